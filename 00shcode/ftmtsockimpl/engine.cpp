#include "00shcode/ftmtsockimpl/engine.h"

#include <new>
#include <utility>
#include <vector>

#include "00shcode/ftmtsockimpl/connector.h"
#include "00shcode/ftmtsockimpl/engine_log.h"
#include "00shcode/ftmtsockimpl/engine_msgs.h"
#include "00shcode/ftmtsockimpl/listener.h"
#include "00shcode/ftmtsockimpl/send_thread.h"
#include "00shcode/ftmtsockimpl/wait_thread.h"

namespace {

constexpr std::int32_t kTidyIntervalMs = 5000;
constexpr std::int32_t kDueConnectsIntervalMs = 1000;
constexpr std::int32_t kMostCopiedInLock = 16384;  // bytes

void StopAndJoin(CMyThread* thread) {
  thread->StopThread();
  thread->WaitThreadExit();
}

}  // namespace

CFTMtSockImpl::CFTMtSockImpl(CFTSockIfContract* protocol, FTEventMode event_mode,
                             FTHeartbeatMode heartbeat_mode, FTSpaceReports space_reports)
    : CFTEngineThread(protocol, "CFTMtSockImpl"),
      m_state{event_mode, heartbeat_mode, space_reports, {}, {}},
      m_wait_thread(std::make_unique<CFTMtSockWaitThrd>(protocol)),
      m_connector(std::make_unique<CFTMtSockConn>(protocol, this)),
      m_listener(std::make_unique<CFTMtSockListen>(protocol, this, m_connector.get())) {
  SetIdleWaitMs(kUntilWoken);
  SetTimer(TIMER_TIDY_BLOCKS, kTidyIntervalMs);
  SetTimer(TIMER_DUE_CONNECTS, kDueConnectsIntervalMs);
}

// The service threads go first: the links that they still hold count in m_state. A release function
// may ask for a link while the last ones go.
CFTMtSockImpl::~CFTMtSockImpl() {
  m_listener.reset();
  m_connector.reset();
  m_wait_thread.reset();
  std::map<std::string, FTLinkThreadPtr> links;
  const CFTAutoLock guard(&m_table_lock, CFTRwLock::kWrite);
  links.swap(m_links);
  m_last_found = nullptr;
}

std::int32_t CFTMtSockImpl::SendPkg(const std::string& link_id, CFTBuffer* pkg,
                                    FTReleaseFunction release, FTSendMode mode,
                                    FTOnRefusal on_refusal, std::int32_t priority) {
  if (pkg == nullptr) return kSendNoLink;
  const bool releases = on_refusal == FTOnRefusal::kRelease && release != nullptr;
  try {
    const std::int32_t result = QueueOnLink(
        link_id, pkg->GetDataLen(), mode,
        [&](CFTMtSockSendThrd* link) { return link->QueuePkg(pkg, release, mode, priority); });
    if (result != kSendQueued && releases) release(pkg);
    return result;
  } catch (const std::bad_alloc&) {
    if (releases) release(pkg);
    throw;
  }
}

std::int32_t CFTMtSockImpl::SendCopy(const std::string& link_id,
                                     const platform::ConstBytePiece* pieces, int count,
                                     FTSendMode mode, std::int32_t priority) {
  std::int32_t length = 0;
  for (int i = 0; i < count; ++i) length += pieces[i].length;
  if (length > kMostCopiedInLock) {
    FTBufferPtr pkg = CFTBuffer::Make(static_cast<std::uint32_t>(length));
    for (int i = 0; i < count; ++i) pkg->Append(pieces[i].data, pieces[i].length);
    return SendPkg(link_id, pkg.release(), &ReleaseFTBuffer, mode, FTOnRefusal::kRelease, priority);
  }
  return QueueOnLink(link_id, length, mode, [&](CFTMtSockSendThrd* link) {
    return link->QueueCopy(pieces, count, length, mode, priority);
  });
}

template <typename Queue>
std::int32_t CFTMtSockImpl::QueueOnLink(const std::string& link_id, std::int32_t length,
                                        FTSendMode mode, Queue queue) {
  if (length == 0) return kSendNoLink;
  if (Protocol().IsRunning() == 0) return kSendNotRunning;
  const bool limited = mode == FTSendMode::kWithinLimits;
  if (limited && m_state.queued_send_bytes >= FTEngineState::kSendBacklogLimit) return kSendTooMuch;
  const CFTAutoLock guard(&m_table_lock, CFTRwLock::kRead);
  CFTMtSockOneLinkThrd* const link = FindLink(link_id);
  if (link == nullptr || !link->Link().IsAlive()) return kSendNoLink;
  return queue(&link->SendThread());
}

std::int32_t CFTMtSockImpl::IsLinkUp(const std::string& link_id) {
  const CFTAutoLock guard(&m_table_lock, CFTRwLock::kRead);
  CFTMtSockOneLinkThrd* const link = FindLink(link_id);
  return link != nullptr && link->Link().IsAlive() ? 1 : 0;
}

void CFTMtSockImpl::Connect(std::unique_ptr<FTLinkInfo> link, std::int32_t delay_sec) {
  if (delay_sec > 0) {
    auto refused = m_schedule.Add(std::move(link), delay_sec, ft::GetTickTime());
    if (refused != nullptr) ReportFailure(std::move(refused));
  } else {
    m_connector->Post("", 1, FTConnectMsg::Make(std::move(link)));
  }
}

void CFTMtSockImpl::AddListener(FTListenerPtr listener) {
  m_listener->Post("", 1, FTAddListenMsg::Make(std::move(listener)));
}

// The schedule first: a connect that has left it is in the connector's queue, ahead of the request.
void CFTMtSockImpl::CloseLink(const std::string& link_id, FTCloseMode mode) {
  if (auto scheduled = m_schedule.Take(link_id)) ReportFailure(std::move(scheduled));
  m_listener->Post("", 1, FTCloseLinkMsg::Make(std::make_unique<std::string>(link_id), mode));
}

std::int32_t CFTMtSockImpl::OnEnterThread() {
  CFTEngineThread::OnEnterThread();
  m_wait_thread->StartThread(0);
  m_connector->StartThread(0);
  m_listener->StartThread(0);
  return 0;
}

// First those that make links. Then the wait thread, once it has let go of all links that were
// handed to it: their threads may still be calling the protocol object. Then the links that are
// left.
void CFTMtSockImpl::OnExitThread() {
  StopAndJoin(m_listener.get());
  StopAndJoin(m_connector.get());
  m_wait_thread->PostQuit();
  m_wait_thread->WaitThreadExit();
  StopLinks();
  CFTEngineThread::OnExitThread();
}

void CFTMtSockImpl::OnMsg(FTMsg& msg, std::int32_t draining) {
  if (msg.id == FTMSG_ADD_LINK) {
    auto [req] = FTAddLinkMsg::Take(msg);
    AddLink(std::move(req));
  } else if (msg.id == FTMSG_CLOSE_LINK) {
    const auto [link_id, mode] = FTCloseLinkMsg::Take(msg);
    CloseHere(*link_id, mode);
  } else if (msg.id == FTMSG_LINK_FINISHED) {
    const auto [link] = FTLinkFinishedMsg::Take(msg);
    Reap(Unregister(*link));
  } else if (msg.id == FTMSG_TIMER && msg.param1 == TIMER_TIDY_BLOCKS) {
    ft::TidyIdleBlocks();
    SetTimerAgain(msg);
  } else if (msg.id == FTMSG_TIMER && msg.param1 == TIMER_DUE_CONNECTS) {
    ReleaseDueConnects();
    SetTimerAgain(msg);
  } else {
    CFTEngineThread::OnMsg(msg, draining);
  }
}

void CFTMtSockImpl::AddLink(FTLinkReqPtr req) {
  FTLinkThreadPtr created(new CFTMtSockOneLinkThrd(&Protocol(), this, &m_state, req.get()));
  CFTMtSockOneLinkThrd* const link = created.get();
  const FTLinkInfo& info = req->link;
  if (!Register(std::move(created))) {
    // A link with this id is running, and goes on.
    if (info.kind == LINK_KIND_OUT) ReportFailure(std::make_unique<FTLinkInfo>(info));
  } else if (link->StartThread(0) != 0) {
    ForgetUnstartedLink(link->Link().Info());
  }
}

// False when the id is taken: the newcomer is gone then, with its socket. An id is free once the
// end of its link is reported, although that link may not have finished yet.
bool CFTMtSockImpl::Register(FTLinkThreadPtr link) {
  {
    const CFTAutoLock guard(&m_table_lock, CFTRwLock::kWrite);
    FTLinkThreadPtr& entry = m_links[link->Link().Info().link_id];
    if (entry != nullptr && !entry->Link().IsReportedDown()) return false;
    entry.swap(link);
    m_last_found = nullptr;
  }
  Reap(std::move(link));
  return true;
}

// Null when another link has its id by now. What is let go of under the lock would release packages
// there.
FTLinkThreadPtr CFTMtSockImpl::Unregister(const FTLinkInfo& link) {
  const CFTAutoLock guard(&m_table_lock, CFTRwLock::kWrite);
  const auto found = m_links.find(link.link_id);
  if (found == m_links.end() || &found->second->Link().Info() != &link) return nullptr;
  FTLinkThreadPtr taken = std::move(found->second);
  m_links.erase(found);
  m_last_found = nullptr;
  return taken;
}

void CFTMtSockImpl::ForgetUnstartedLink(const FTLinkInfo& info) {
  const FTLinkThreadPtr link = Unregister(info);
  EngineLog::LinkThreadNotStarted(this, GetThreadCount(), ft::GetLinkName(info));
  if (info.kind == LINK_KIND_OUT) ReportFailure(link->Link().CopyInfo());
}

void CFTMtSockImpl::CloseHere(const std::string& link_id, FTCloseMode mode) {
  CFTMtSockOneLinkThrd* link = nullptr;
  {
    const CFTAutoLock guard(&m_table_lock, CFTRwLock::kRead);
    link = FindLink(link_id);
  }
  if (link == nullptr || !link->Link().IsAlive()) return;
  if (mode == FTCloseMode::kAfterSending) {
    link->SendThread().CloseAfterSending();
  } else if (link->Link().End(FTCloseReason::kOnRequest)) {
    EngineLog::ClosedByRequest(this, link->Link().Info().remote_address);
    link->StopThread();
  }
}

void CFTMtSockImpl::ReportFailure(std::unique_ptr<FTLinkInfo> link) {
  Protocol().Post("", 1, FTConnectFailedMsg::Make(std::move(link)));
}

void CFTMtSockImpl::Reap(FTLinkThreadPtr link) {
  if (link != nullptr) m_wait_thread->Post("", 1, FTReapLinkMsg::Make(std::move(link)));
}

void CFTMtSockImpl::ReleaseDueConnects() {
  m_schedule.StartDue(ft::GetTickTime(), [this](std::unique_ptr<FTLinkInfo> due) {
    m_connector->Post("", 1, FTConnectMsg::Make(std::move(due)));
  });
}

// Joins without the table lock: a send thread that is just making a heartbeat, or a callback on a
// link thread, may be waiting for it in SendPkg. The entries stay until the destructor.
void CFTMtSockImpl::StopLinks() {
  std::vector<CFTMtSockOneLinkThrd*> links;
  {
    const CFTAutoLock guard(&m_table_lock, CFTRwLock::kRead);
    for (const auto& [link_id, link] : m_links) links.push_back(link.get());
  }
  for (CFTMtSockOneLinkThrd* const link : links) link->StopThread();
  for (CFTMtSockOneLinkThrd* const link : links) link->WaitThreadExit();
}

CFTMtSockOneLinkThrd* CFTMtSockImpl::FindLink(const std::string& link_id) {
  if (m_last_found == nullptr || m_last_found->Link().Info().link_id != link_id) {
    const auto found = m_links.find(link_id);
    m_last_found = found == m_links.end() ? nullptr : found->second.get();
  }
  return m_last_found;
}
