#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "00shcode/ftmsgq/ftmsgq.h"

class CFTMtSockOneLinkThrd;
class CFTSockIfContract;

// Joins and deletes finished links, some seconds after they finished: a link's own threads cannot,
// and the engine must not wait for them. At its end it does so at once for all that it holds.
class CFTMtSockWaitThrd : public CFTMsgQ {
 public:
  explicit CFTMtSockWaitThrd(CFTSockIfContract* owner);
  // Also joins and deletes links that were handed over but never taken up.
  ~CFTMtSockWaitThrd() override;

  void VWriteLog(const char* path, int line, std::int32_t level_code, const char* format,
                 va_list arguments) override;

 protected:
  void OnExitThread() override;
  void OnMsg(const FTMsg& msg, std::int32_t draining) override;

 private:
  using Link = std::unique_ptr<CFTMtSockOneLinkThrd>;

  void TakeUp(Link link);
  void ReapLinks(bool with_grace);

  CFTSockIfContract* const m_owner;
  std::map<std::string, Link> m_links;
};
