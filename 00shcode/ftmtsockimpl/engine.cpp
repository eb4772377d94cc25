#include "00shcode/ftmtsockimpl/engine.h"

#include <utility>
#include <vector>

#include "00shcode/ftmtsockimpl/connector.h"
#include "00shcode/ftmtsockimpl/engine_log.h"
#include "00shcode/ftmtsockimpl/engine_msgs.h"
#include "00shcode/ftmtsockimpl/listener.h"
#include "00shcode/ftmtsockimpl/receive_thread.h"
#include "00shcode/ftmtsockimpl/send_thread.h"
#include "00shcode/ftmtsockimpl/wait_thread.h"
#include "sockif/sock_if_contract.h"

namespace {

constexpr std::int32_t kReapIntervalMs = 5000;
constexpr std::int32_t kDueConnectsIntervalMs = 1000;

void StopAndJoin(CMyThread* thread) {
  thread->StopThread();
  thread->WaitThreadExit();
}

}  // namespace

CFTMtSockImpl::CFTMtSockImpl(CFTSockIfContract* owner, std::int32_t event_mode,
                             std::int32_t heartbeat_by_message)
    : m_owner(owner) {
  SetThreadName("CFTMtSockImpl");
  m_state.event_mode = event_mode;
  m_state.heartbeat_by_message = heartbeat_by_message;
  m_wait_thread = std::make_unique<CFTMtSockWaitThrd>(owner);
  m_connector = std::make_unique<CFTMtSockConn>(owner, this);
  m_listener = std::make_unique<CFTMtSockListen>(owner, this, m_connector.get());
  SetTimer(TIMER_REAP_LINKS, kReapIntervalMs);
  SetTimer(TIMER_DUE_CONNECTS, kDueConnectsIntervalMs);
}

// The owner has joined the engine's thread, so nothing below runs any more.
CFTMtSockImpl::~CFTMtSockImpl() {
  m_listener.reset();
  m_connector.reset();
  m_wait_thread.reset();
  LinkTable links;
  {
    const CFTAutoLock guard(&m_table_lock, CFTRwLock::kWrite);
    links.swap(m_links);
  }
  links.clear();
  ReleaseQueuedMsgs();
}

std::int32_t CFTMtSockImpl::SendPkg(const std::string& link_id, CFTBuffer* pkg,
                                    FTReleaseFunction release, std::int32_t force,
                                    std::int32_t release_on_failure, std::int32_t priority) {
  if (pkg == nullptr) return -1;
  const std::int32_t result = QueueOnLink(link_id, pkg, release, force, priority);
  if (result != 0 && release_on_failure != 0 && release != nullptr) release(pkg);
  return result;
}

std::int32_t CFTMtSockImpl::QueueOnLink(const std::string& link_id, CFTBuffer* pkg,
                                        FTReleaseFunction release, std::int32_t force,
                                        std::int32_t priority) {
  if (pkg->GetDataLen() == 0) return -1;
  if (m_owner->IsRunning() == 0) return -10;
  const std::int64_t limit = m_state.send_backlog_limit.Get() * FTEngineState::kBacklogUnit;
  if (force == 0 && m_state.queued_send_bytes.Get() >= limit) return 1;
  const CFTAutoLock guard(&m_table_lock, CFTRwLock::kRead);
  CFTMtSockOneLinkThrd* const link = FindLink(link_id);
  if (link == nullptr || !link->IsAlive()) return -1;
  return link->SendThread().QueuePkg(pkg, release, force, priority);
}

std::int32_t CFTMtSockImpl::IsLinkUp(const std::string& link_id) {
  const CFTAutoLock guard(&m_table_lock, CFTRwLock::kRead);
  const CFTMtSockOneLinkThrd* const link = FindLink(link_id);
  return link != nullptr && link->IsAlive() ? 1 : 0;
}

void CFTMtSockImpl::BeginConnectLater(std::unique_ptr<FTLinkInfo> link, std::int32_t delay_sec) {
  if (delay_sec > 0) {
    m_schedule.Add(std::move(link), delay_sec, GetTickTime());
  } else {
    m_connector->PostMsg(FTMSG_CONNECT, "", 1, ToParam(std::move(link)));
  }
}

void CFTMtSockImpl::AddListener(std::unique_ptr<FTLinkInfo> listener) {
  m_listener->PostMsg(FTMSG_ADD_LISTEN, "", 1, ToParam(std::move(listener)));
}

void CFTMtSockImpl::CloseLink(const std::string& link_id, std::int32_t after_sending) {
  m_listener->PostMsg(FTMSG_CLOSE_LINK, "", 1, ToParam(std::make_unique<std::string>(link_id)),
                      static_cast<std::uintptr_t>(after_sending));
}

std::int32_t CFTMtSockImpl::OnEnterThread() {
  CFTMsgQ::OnEnterThread();
  m_wait_thread->StartThread(0);
  m_connector->StartThread(0);
  m_listener->StartThread(0);
  return 0;
}

void CFTMtSockImpl::OnExitThread() {
  StopAndJoin(m_listener.get());
  StopAndJoin(m_connector.get());
  StopAndJoin(m_wait_thread.get());
  StopLinks();
  CFTMsgQ::OnExitThread();
}

void CFTMtSockImpl::OnMsg(const FTMsg& msg, std::int32_t draining) {
  if (msg.id == FTMSG_ADD_LINK) {
    OnAddLink(FromParam<FTLinkReq>(msg.p1));
  } else if (msg.id == FTMSG_CLOSE_LINK) {
    OnCloseLink(*FromParam<std::string>(msg.p1), static_cast<std::int32_t>(msg.p2));
  } else if (msg.id == FTMSG_TIMER && msg.param1 == TIMER_REAP_LINKS) {
    ReapLinks();
    SetTimerAgain(msg);
  } else if (msg.id == FTMSG_TIMER && msg.param1 == TIMER_DUE_CONNECTS) {
    ReleaseDueConnects();
    SetTimerAgain(msg);
  } else {
    CFTMsgQ::OnMsg(msg, draining);
  }
}

void CFTMtSockImpl::VWriteLog(const char* path, int line, std::int32_t level_code,
                              const char* format, va_list arguments) {
  m_owner->VWriteLog(path, line, level_code, format, arguments);
}

void CFTMtSockImpl::OnAddLink(std::unique_ptr<FTLinkReq> req) {
  auto created = std::make_unique<CFTMtSockOneLinkThrd>(this, *req);
  CFTMtSockOneLinkThrd* const link = created.get();
  {
    const CFTAutoLock guard(&m_table_lock, CFTRwLock::kWrite);
    m_links[req->link.link_id] = std::move(created);
  }
  // Nobody but this thread removes links, so the pointer holds.
  if (link->StartThread(0) != 0) ForgetUnstartedLink(req->link);
}

void CFTMtSockImpl::ForgetUnstartedLink(const FTLinkInfo& link) {
  EngineLog::LinkThreadNotStarted(this, GetThreadCount(), GetLinkName(link));
  if (link.kind == LINK_KIND_OUT) {
    m_owner->PostMsg(FTMSG_CONNECT_FAILED, "", 1, ToParam(std::make_unique<FTLinkInfo>(link)));
  }
  std::unique_ptr<CFTMtSockOneLinkThrd> unstarted;
  const CFTAutoLock guard(&m_table_lock, CFTRwLock::kWrite);
  m_links[link.link_id].swap(unstarted);
  m_links.erase(link.link_id);
}

void CFTMtSockImpl::OnCloseLink(const std::string& link_id, std::int32_t after_sending) {
  CloseScheduled(link_id);
  const CFTAutoLock guard(&m_table_lock, CFTRwLock::kRead);
  CFTMtSockOneLinkThrd* const link = FindLink(link_id);
  if (link == nullptr || !link->IsAlive()) return;
  if (after_sending != 0) {
    link->SendThread().CloseAfterSending();
  } else if (link->EndLink(kCloseOnRequest)) {
    EngineLog::ClosedByRequest(this, link->GetRemoteAddress());
    link->StopThread();
  }
}

void CFTMtSockImpl::CloseScheduled(const std::string& link_id) {
  auto scheduled = m_schedule.Take(link_id);
  if (scheduled == nullptr) return;
  m_owner->PostMsg(FTMSG_CONNECT_FAILED, "", 1, ToParam(std::move(scheduled)));
}

void CFTMtSockImpl::ReapLinks() {
  const CFTAutoLock guard(&m_table_lock, CFTRwLock::kWrite);
  for (auto entry = m_links.begin(); entry != m_links.end();) {
    if (!entry->second->IsFinished()) {
      ++entry;
      continue;
    }
    m_wait_thread->PostMsg(FTMSG_REAP_LINK, "", 1, ToParam(std::move(entry->second)));
    entry = m_links.erase(entry);
  }
}

void CFTMtSockImpl::ReleaseDueConnects() {
  const FTTime now = GetTickTime();
  while (auto due = m_schedule.TakeDue(now)) {
    m_connector->PostMsg(FTMSG_CONNECT, "", 1, ToParam(std::move(due)));
  }
}

// Joins without the table lock: a send thread that is just making a heartbeat, or a callback on a
// link thread, may be waiting for it in SendPkg. The entries stay until the destructor.
void CFTMtSockImpl::StopLinks() {
  std::vector<CFTMtSockOneLinkThrd*> links;
  {
    const CFTAutoLock guard(&m_table_lock, CFTRwLock::kRead);
    for (const auto& [link_id, link] : m_links) {
      link->StopThread();
      links.push_back(link.get());
    }
  }
  for (CFTMtSockOneLinkThrd* const link : links) link->WaitThreadExit();
}

CFTMtSockOneLinkThrd* CFTMtSockImpl::FindLink(const std::string& link_id) {
  const auto found = m_links.find(link_id);
  return found == m_links.end() ? nullptr : found->second.get();
}

void CFTMtSockImpl::ReleaseQueuedMsgs() {
  for (const FTMsg& msg : TakeQueuedMsgs()) {
    if (msg.id == FTMSG_ADD_LINK) CloseSocketOf(&FromParam<FTLinkReq>(msg.p1)->link);
    if (msg.id == FTMSG_CLOSE_LINK) FromParam<std::string>(msg.p1);
  }
}
