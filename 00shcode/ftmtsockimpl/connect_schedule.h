#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "00shcode/ftmtsockimpl/link_info.h"
#include "00shcode/mytoolkit/clock.h"
#include "00shcode/mytoolkit/lock.h"

// Connects that are to start later, by link id. Any thread.
class CFTConnectSchedule {
 public:
  // Gives the record back when its id is scheduled already; null: taken.
  std::unique_ptr<FTLinkInfo> Add(std::unique_ptr<FTLinkInfo> link, std::int32_t delay_sec,
                                  const FTTime& now);

  // Null when the id is not scheduled.
  std::unique_ptr<FTLinkInfo> Take(const std::string& link_id);

  // The first one, by link id, whose delay is over; null when there is none.
  std::unique_ptr<FTLinkInfo> TakeDue(const FTTime& now);

 private:
  struct Entry {
    std::unique_ptr<FTLinkInfo> link;
    FTTime stamp;
    std::int32_t delay_sec;
  };

  CFTLock m_lock;
  std::map<std::string, Entry> m_entries FT_GUARDED_BY(m_lock);
};
