#include "00shcode/ftmtsockimpl/wait_thread.h"

#include <utility>

namespace {

constexpr std::int32_t kIdleWaitMs = 200;
constexpr std::int32_t kCheckIntervalMs = 2000;
constexpr std::int32_t kGraceMs = 5000;

}  // namespace

CFTMtSockWaitThrd::CFTMtSockWaitThrd(CFTSockIfContract* protocol)
    : CFTEngineThread(protocol, "CFTMtSockWaitThrd") {
  SetIdleWaitMs(kIdleWaitMs);
  SetTimer(TIMER_REAP_CHECK, kCheckIntervalMs);
}

CFTMtSockWaitThrd::~CFTMtSockWaitThrd() = default;

void CFTMtSockWaitThrd::OnExitThread() {
  ReapLinks(false);
  CFTEngineThread::OnExitThread();
}

void CFTMtSockWaitThrd::OnMsg(FTMsg& msg, std::int32_t draining) {
  if (msg.id == FTMSG_REAP_LINK) {
    auto [link] = FTReapLinkMsg::Take(msg);
    TakeUp(std::move(link));
  } else if (msg.id == FTMSG_TIMER && msg.param1 == TIMER_REAP_CHECK) {
    ReapLinks(true);
    SetTimerAgain(msg);
  } else {
    CFTEngineThread::OnMsg(msg, draining);
  }
}

void CFTMtSockWaitThrd::TakeUp(FTLinkThreadPtr link) {
  if (link == nullptr) return;
  const std::string& link_id = link->Link().Info().link_id;
  m_links[link_id] = std::move(link);
}

// Letting go of a link joins its thread, closes its socket and releases what it did not send.
void CFTMtSockWaitThrd::ReapLinks(bool with_grace) {
  for (auto entry = m_links.begin(); entry != m_links.end();) {
    const CFTMtSockOneLinkThrd& link = *entry->second;
    const bool in_grace =
        with_grace && ft::ElapsedMs(ft::GetTickTime(), link.GetFinishTime()) <= kGraceMs;
    entry = link.IsFinished() && !in_grace ? m_links.erase(entry) : std::next(entry);
  }
}
