#include "00shcode/ftmtsockimpl/engine_log.h"

#include "00shcode/mytoolkit/log.h"
#include "00shcode/mytoolkit/thread.h"

namespace {

constexpr const char* kSource = "ftmtsockimpl.cpp";

void CreateThreadError(CMyThread* log, int line, std::int32_t threads,
                       const std::string& link_name) {
  log->WriteLog(kSource, line, ft::kLogError,
                "Create thread error: current threads[%d]. One Connection[%s] has closed now\n",
                threads, link_name.c_str());
}

void LinkDown(CMyThread* log, int line, const std::string& remote, const char* why) {
  log->WriteLog(kSource, line, ft::kLogError, "Link down with[%s]: %s\n", remote.c_str(), why);
}

}  // namespace

namespace EngineLog {

void LinkThreadNotStarted(CMyThread* log, std::int32_t threads, const std::string& link_name) {
  CreateThreadError(log, 172, threads, link_name);
}

void ClosedByRequest(CMyThread* log, const std::string& remote) {
  LinkDown(log, 333, remote, "I close it.");
}

void AcceptFailed(CMyThread* log) {
  log->WriteLog(kSource, 1660, ft::kLogError, "accept() error, socket fd maybe not enough.\n");
}

void BeginConnectFailed(CMyThread* log) {
  log->WriteLog(kSource, 1930, ft::kLogError, "BeginConnect failed, socket fd maybe not enough.");
}

void SendThreadNotStarted(CMyThread* log, std::int32_t threads, const std::string& link_name) {
  CreateThreadError(log, 2210, threads, link_name);
}

void LinkWithoutThread(CMyThread* log, const std::string& remote) {
  LinkDown(log, 2219, remote, "create thread failed.");
}

void RecvThrottled(CMyThread* log, std::int32_t wait_ms, const std::string& remote) {
  log->WriteLog(kSource, 2301, 20, "Recv MinResolveMillSec=[%d] of [%s]\n", wait_ms,
                remote.c_str());
}

void RecvCount(CMyThread* log, std::int32_t packages, const std::string& remote) {
  log->WriteLog(kSource, 2335, 10, "Recv msg count[%d] from[%s]\n", packages, remote.c_str());
}

void PkgTooBig(CMyThread* log, const std::string& remote) {
  LinkDown(log, 2372, remote, "Pkg is too big.");
}

void PkgLenGrew(CMyThread* log, const std::string& remote) {
  LinkDown(log, 2421, remote, "VGetOnePkgLen is error.");
}

void ProtocolError(CMyThread* log, const std::string& remote) {
  LinkDown(log, 2455, remote, "protocol is error.");
}

void RecvTimeout(CMyThread* log, const std::string& remote) {
  LinkDown(log, 2502, remote, "Recv timeout.");
}

void ClosedAfterSending(CMyThread* log, const std::string& remote) {
  LinkDown(log, 2634, remote, "I close it.");
}

void ClosedWhenIdle(CMyThread* log, const std::string& remote) {
  LinkDown(log, 2751, remote, "I close it.");
}

void SendFailed(CMyThread* log, const std::string& remote) {
  LinkDown(log, 2688, remote, "Send error, SslErrCode[0]");
}

}  // namespace EngineLog
