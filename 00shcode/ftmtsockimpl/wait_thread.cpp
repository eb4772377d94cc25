#include "00shcode/ftmtsockimpl/wait_thread.h"

#include <utility>

#include "00shcode/ftmtsockimpl/engine_msgs.h"
#include "00shcode/ftmtsockimpl/receive_thread.h"
#include "sockif/sock_if_contract.h"

namespace {

constexpr std::int32_t kCheckIntervalMs = 2000;
constexpr std::int32_t kGraceMs = 5000;

void Reap(CFTMtSockOneLinkThrd* link) {
  link->WaitThreadExit();
  link->CloseSocket();
}

}  // namespace

CFTMtSockWaitThrd::CFTMtSockWaitThrd(CFTSockIfContract* owner) : m_owner(owner) {
  SetThreadName("CFTMtSockWaitThrd");
  SetTimer(TIMER_REAP_CHECK, kCheckIntervalMs);
}

CFTMtSockWaitThrd::~CFTMtSockWaitThrd() {
  for (const FTMsg& msg : TakeQueuedMsgs()) {
    if (msg.id == FTMSG_REAP_LINK) TakeUp(FromParam<CFTMtSockOneLinkThrd>(msg.p1));
  }
  for (const auto& [link_id, link] : m_links) Reap(link.get());
}

void CFTMtSockWaitThrd::VWriteLog(const char* path, int line, std::int32_t level_code,
                                  const char* format, va_list arguments) {
  m_owner->VWriteLog(path, line, level_code, format, arguments);
}

void CFTMtSockWaitThrd::OnExitThread() {
  ReapLinks(false);
  CFTMsgQ::OnExitThread();
}

void CFTMtSockWaitThrd::OnMsg(const FTMsg& msg, std::int32_t draining) {
  if (msg.id == FTMSG_REAP_LINK) {
    TakeUp(FromParam<CFTMtSockOneLinkThrd>(msg.p1));
  } else if (msg.id == FTMSG_TIMER && msg.param1 == TIMER_REAP_CHECK) {
    ReapLinks(true);
    SetTimerAgain(msg);
  } else {
    CFTMsgQ::OnMsg(msg, draining);
  }
}

void CFTMtSockWaitThrd::TakeUp(Link link) {
  if (link == nullptr) return;
  const std::string link_id = link->GetLinkId();
  m_links[link_id] = std::move(link);
}

void CFTMtSockWaitThrd::ReapLinks(bool with_grace) {
  for (auto entry = m_links.begin(); entry != m_links.end();) {
    CFTMtSockOneLinkThrd* const link = entry->second.get();
    const bool in_grace = with_grace && DiffMs(GetTickTime(), link->GetFinishTime()) <= kGraceMs;
    if (!link->IsFinished() || in_grace) {
      ++entry;
      continue;
    }
    Reap(link);
    entry = m_links.erase(entry);
  }
}
