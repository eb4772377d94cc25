#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "00shcode/ftmsgq/ftmsgq.h"
#include "00shcode/ftmtsockimpl/connect_schedule.h"
#include "00shcode/ftmtsockimpl/engine_state.h"
#include "00shcode/ftmtsockimpl/link_info.h"
#include "00shcode/mytoolkit/buffer.h"
#include "00shcode/mytoolkit/rw_lock.h"

class CFTMtSockConn;
class CFTMtSockListen;
class CFTMtSockOneLinkThrd;
class CFTMtSockWaitThrd;
class CFTSockIfContract;

// The hub of one socket interface's links: owns the service threads and the table of live links,
// turns connected sockets into links, closes links on request and passes finished ones on to the
// wait thread.
//
// The owner starts it, stops and joins it, and destroys it only then. Lock order: link table, then
// a link's send queue. Neither is held while a thread is joined.
class CFTMtSockImpl : public CFTMsgQ {
 public:
  // Builds the service threads without starting them.
  CFTMtSockImpl(CFTSockIfContract* owner, std::int32_t event_mode,
                std::int32_t heartbeat_by_message);
  ~CFTMtSockImpl() override;

  // The following may be called from any thread.

  // Queues a package on a link's send thread. 0: queued, and the send thread will call release;
  // 1: refused because too much is queued; -1: no package, an empty one, or no such live link;
  // -10: the owner's thread is not running. After a refusal the package is the caller's, unless
  // release_on_failure had it released. force skips the limits. Never blocks on the network.
  std::int32_t SendPkg(const std::string& link_id, CFTBuffer* pkg, FTReleaseFunction release,
                       std::int32_t force, std::int32_t release_on_failure, std::int32_t priority);

  // 1 when the id names a live link, else 0.
  std::int32_t IsLinkUp(const std::string& link_id);

  // Starts a connect, after the delay if it is above 0.
  void BeginConnectLater(std::unique_ptr<FTLinkInfo> link, std::int32_t delay_sec);

  // Hands the record of a bound and listening socket to the listener.
  void AddListener(std::unique_ptr<FTLinkInfo> listener);

  // Asks listener, connector and engine in turn to close what they hold under the id.
  void CloseLink(const std::string& link_id, std::int32_t after_sending);

  CFTSockIfContract* GetOwner() { return m_owner; }
  FTEngineState& State() { return m_state; }

 protected:
  std::int32_t OnEnterThread() override;
  void OnExitThread() override;
  void OnMsg(const FTMsg& msg, std::int32_t draining) override;

 public:
  void VWriteLog(const char* path, int line, std::int32_t level_code, const char* format,
                 va_list arguments) override;

 private:
  using LinkTable = std::map<std::string, std::unique_ptr<CFTMtSockOneLinkThrd>>;

  void OnAddLink(std::unique_ptr<FTLinkReq> req);
  void ForgetUnstartedLink(const FTLinkInfo& link);
  void OnCloseLink(const std::string& link_id, std::int32_t after_sending);
  void CloseScheduled(const std::string& link_id);
  void ReapLinks();
  void ReleaseDueConnects();
  void StopLinks();
  std::int32_t QueueOnLink(const std::string& link_id, CFTBuffer* pkg, FTReleaseFunction release,
                           std::int32_t force, std::int32_t priority);
  CFTMtSockOneLinkThrd* FindLink(const std::string& link_id) FT_REQUIRES(m_table_lock);
  void ReleaseQueuedMsgs();

  CFTSockIfContract* const m_owner;
  FTEngineState m_state;
  CFTConnectSchedule m_schedule;
  CFTRwLock m_table_lock;
  LinkTable m_links FT_GUARDED_BY(m_table_lock);
  std::unique_ptr<CFTMtSockWaitThrd> m_wait_thread;
  std::unique_ptr<CFTMtSockConn> m_connector;
  std::unique_ptr<CFTMtSockListen> m_listener;
};
