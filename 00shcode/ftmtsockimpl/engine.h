#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "00shcode/ftmtsockimpl/connect_schedule.h"
#include "00shcode/ftmtsockimpl/engine_state.h"
#include "00shcode/ftmtsockimpl/engine_thread.h"
#include "00shcode/ftmtsockimpl/link_info.h"
#include "00shcode/ftmtsockimpl/link_orders.h"
#include "00shcode/ftmtsockimpl/receive_thread.h"
#include "00shcode/mytoolkit/buffer.h"
#include "00shcode/mytoolkit/rw_lock.h"

class CFTMtSockConn;
class CFTMtSockListen;
class CFTMtSockWaitThrd;

// The hub of one protocol object's links: owns the service threads and the table of live links,
// turns connected sockets into links, closes links on request and hands those that have ended to
// the wait thread.
//
// The protocol object starts it, stops and joins it, and destroys it only then. Lock order: link
// table, then a link's send queue. Neither is held while a thread is joined or a line is written.
class CFTMtSockImpl : public CFTEngineThread {
 public:
  // Builds the service threads without starting them. protocol outlives this object.
  CFTMtSockImpl(CFTSockIfContract* protocol, FTEventMode event_mode, FTHeartbeatMode heartbeat_mode,
                FTSpaceReports space_reports);
  // Precondition: joined.
  ~CFTMtSockImpl() override;

  // The following may be called from any thread; none blocks on the network.

  // As CFTBaseSockIf::SendPkg.
  std::int32_t SendPkg(const std::string& link_id, CFTBuffer* pkg, FTReleaseFunction release,
                       FTSendMode mode, FTOnRefusal on_refusal, std::int32_t priority);

  // As CFTBaseSockIf::SendCopy.
  std::int32_t SendCopy(const std::string& link_id, const platform::ConstBytePiece* pieces,
                        int count, FTSendMode mode, std::int32_t priority);

  // 1 when the id names a live link, else 0.
  std::int32_t IsLinkUp(const std::string& link_id);

  // Starts a connect, after the delay if it is above 0.
  void Connect(std::unique_ptr<FTLinkInfo> link, std::int32_t delay_sec);

  // Hands a bound and listening socket to the listener.
  void AddListener(FTListenerPtr listener);

  // Cancels a connect that is still to start, and asks listener, connector and engine in turn to
  // close what they hold under the id.
  void CloseLink(const std::string& link_id, FTCloseMode mode);

  FTEngineState& State() { return m_state; }

 protected:
  std::int32_t OnEnterThread() override;
  void OnExitThread() override;
  void OnMsg(FTMsg& msg, std::int32_t draining) override;

 private:
  void AddLink(FTLinkReqPtr req);
  bool Register(FTLinkThreadPtr link);
  FTLinkThreadPtr Unregister(const FTLinkInfo& link);
  void ForgetUnstartedLink(const FTLinkInfo& link);
  void Reap(FTLinkThreadPtr link);
  void CloseHere(const std::string& link_id, FTCloseMode mode);
  void ReportFailure(std::unique_ptr<FTLinkInfo> link);
  void ReleaseDueConnects();
  void StopLinks();
  template <typename Queue>
  std::int32_t QueueOnLink(const std::string& link_id, std::int32_t length, FTSendMode mode,
                           Queue queue);
  CFTMtSockOneLinkThrd* FindLink(const std::string& link_id) FT_REQUIRES(m_table_lock);

  FTEngineState m_state;

  // With a lock of its own.
  CFTConnectSchedule m_schedule;

  // Only the engine's thread adds and removes links, so that it may use what it found in the table
  // after it has released the lock.
  CFTRwLock m_table_lock;
  std::map<std::string, FTLinkThreadPtr> m_links FT_GUARDED_BY(m_table_lock);
  // Mostly one link is asked for over and over.
  CFTMtSockOneLinkThrd* m_last_found FT_GUARDED_BY(m_table_lock) = nullptr;

  // Constant.
  std::unique_ptr<CFTMtSockWaitThrd> m_wait_thread;
  std::unique_ptr<CFTMtSockConn> m_connector;
  std::unique_ptr<CFTMtSockListen> m_listener;
};
