#pragma once

#include "00shcode/ftmtsockimpl/sock_if_contract.h"

// Base of the engine's threads: knows the protocol object, which writes their lines.
class CFTEngineThread : public CFTMsgQ {
 public:
  void VWriteLog(const char* path, int line, std::int32_t level_code, const char* format,
                 va_list arguments) override;

 protected:
  // protocol outlives this object.
  CFTEngineThread(CFTSockIfContract* protocol, const char* name);

  CFTSockIfContract& Protocol() const { return *m_protocol; }

 private:
  CFTSockIfContract* const m_protocol;
};
