// The threads around the connector and the listener, played by recorders.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <string>
#include <utility>

#include "00shcode/ftmsgq/ftmsgq.h"
#include "00shcode/ftmtsockimpl/engine_msgs.h"
#include "00shcode/ftmtsockimpl/link_info.h"
#include "00shcode/mytoolkit/text.h"
#include "sockif/sock_if_contract.h"
#include "tests/support/log_line.h"
#include "tests/support/mailbox.h"

namespace testkit {

// A message that a recorder received. The records that came with it are released.
struct NotedMsg {
  std::uint32_t id = 0;
  FTLinkReq req;        // of FTMSG_ADD_LINK; its socket is the test's to close
  FTLinkInfo link;      // of FTMSG_CONNECT_FAILED
  std::string link_id;  // of FTMSG_CLOSE_LINK
  std::uintptr_t flag = 0;
  std::chrono::steady_clock::time_point time = std::chrono::steady_clock::now();
};

inline NotedMsg NoteOf(const FTMsg& msg) {
  NotedMsg noted;
  noted.id = msg.id;
  if (msg.id == FTMSG_ADD_LINK) noted.req = *FromParam<FTLinkReq>(msg.p1);
  if (msg.id == FTMSG_CONNECT_FAILED) noted.link = *FromParam<FTLinkInfo>(msg.p1);
  if (msg.id == FTMSG_CLOSE_LINK) {
    noted.link_id = *FromParam<std::string>(msg.p1);
    noted.flag = msg.p2;
  }
  return noted;
}

// Runs from its construction to its destruction and keeps what it is sent. Whoever posts to it must
// be gone before it goes.
template <typename Thread>
class Recorder final : public Thread {
 public:
  Recorder() { this->StartThread(0); }
  ~Recorder() override {
    this->PostQuit();
    this->WaitThreadExit();
  }

  Mailbox<NotedMsg>& Msgs() { return m_msgs; }

  // Waits until everything that was posted is in the mailbox.
  bool CatchUp() {
    this->PostMsg(kMarker, "", 1);
    return m_markers.Take(std::chrono::seconds(10)).has_value();
  }

 protected:
  void OnMsg(const FTMsg& msg, std::int32_t) override {
    if (msg.id == kMarker) {
      m_markers.Push(true);
    } else {
      m_msgs.Push(NoteOf(msg));
    }
  }

 private:
  static constexpr std::uint32_t kMarker = 99999;

  Mailbox<NotedMsg> m_msgs;
  Mailbox<bool> m_markers;
};

// The socket interface, with the settings that every interface has. Link ids are 1, 2 and so on.
class StandInOwner : public CFTSockIfContract {
 public:
  // Their texts are "path:line [level] message".
  Mailbox<LogLine>& Errors() { return m_errors; }

  std::string VNewLinkId() override { return std::to_string(++m_last_id); }
  void VWriteLog(const char* path, int line, std::int32_t level_code, const char* format,
                 va_list arguments) override {
    if (level_code >= 0) return;  // no error
    LogLine error = NewLogLine(path, line, level_code, format, arguments);
    error.text = FormatString("%s:%d [%d] %s", path, line, level_code, error.text.c_str());
    m_errors.Push(std::move(error));
  }

 protected:
  std::int32_t VGetOnePkgLen(const void*, std::int32_t, const FTLinkInfo*) override { return 0; }
  CFTBuffer* VGetHeartbeatPkg(const FTLinkInfo*, FTReleaseFunction*) override { return nullptr; }
  void OnLinkClosed(const FTLinkInfo*, std::int32_t) override {}
  void OnRecvPkg(const FTLinkInfo*, CFTBuffer*, std::int32_t*) override {}
  void OnConnectFailed(const FTLinkInfo*) override {}
  void OnConnected(const FTLinkInfo*) override {}
  void OnAccepted(const FTLinkInfo*, const FTLinkInfo*) override {}
  void OnSetupFailed(const FTLinkReq*, const FTLinkInfo*) override {}
  void OnSendSpace(const FTLinkInfo*, std::int32_t, std::int32_t) override {}
  void VPrepareLink(FTLinkReq*, std::uintptr_t, std::uintptr_t) override {}

 private:
  std::atomic<int> m_last_id{0};
  Mailbox<LogLine> m_errors;
};

using RecordingThread = Recorder<CFTMsgQ>;
using RecordingOwner = Recorder<StandInOwner>;

}  // namespace testkit
