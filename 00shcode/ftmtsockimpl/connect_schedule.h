#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "00shcode/ftmtsockimpl/link_info.h"
#include "00shcode/mytoolkit/clock.h"
#include "00shcode/mytoolkit/lock.h"

// Connects that are to start later, by link id. Any thread.
class CFTConnectSchedule {
 public:
  using Start = std::function<void(std::unique_ptr<FTLinkInfo>)>;

  // Gives the record back when its id is scheduled already; null: taken.
  std::unique_ptr<FTLinkInfo> Add(std::unique_ptr<FTLinkInfo> link, std::int32_t delay_sec,
                                  const FTTime& now);

  // Null when the id is not scheduled.
  std::unique_ptr<FTLinkInfo> Take(const std::string& link_id);

  // Calls start for each whose delay is over, in the order of their ids, under the lock: a connect
  // that Take no longer finds has been started.
  void StartDue(const FTTime& now, const Start& start);

 private:
  struct Entry {
    std::unique_ptr<FTLinkInfo> link;
    FTTime stamp;
    std::int32_t delay_sec;
  };

  CFTLock m_lock;
  std::map<std::string, Entry> m_entries FT_GUARDED_BY(m_lock);
};
