#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "00shcode/ftmtsockimpl/link_info.h"
#include "sockif/sock_if_contract.h"

class CFTMtSockImpl;

// Base of a protocol class: owns the socket engine, opens and closes links, sends packages, and
// turns the engine's messages into callbacks on its own thread. A derived class supplies
// VGetOnePkgLen and overrides the callbacks it cares about.
//
// The owner starts it (StartThread), stops it (PostQuit or StopThread), joins it (WaitThreadExit)
// and destroys it; the join takes up to a few seconds, since the engine's threads notice a stop
// only when their waits run out. For each link the derived class sees: the id from Connect; then
// either OnConnectFailed or OnConnected; then packages; then OnLinkClosed once.
class CFTBaseSockIf : public CFTSockIfContract {
 public:
  // The two modes are explained at CFTSockIfContract.
  CFTBaseSockIf(std::int32_t event_mode, std::int32_t heartbeat_by_message);
  ~CFTBaseSockIf() override;

  // The following may be called from any thread; none blocks on the network.

  // Opens a link to a dotted address, from the local address and port if given (null or an empty
  // text, and 0: the system chooses), after delay_sec seconds if above 0. Returns the link's id;
  // the outcome follows as OnConnected or OnConnectFailed. Empty when the thread is not running.
  std::string Connect(const char* remote_address, std::uint16_t remote_port,
                      std::uint32_t user_value1 = 0, std::uint32_t user_value2 = 0,
                      const char* local_address = nullptr, std::uint16_t local_port = 0,
                      std::int32_t delay_sec = 0);

  // Accepts links on a local address (null or empty: any) and port (0: the system chooses one);
  // each is reported by OnAccepted. Returns the id under which CloseLink ends the listening and
  // stores the port in *bound_port (may be null). Empty when the thread is not running or the
  // address cannot be listened on.
  std::string Listen(const char* local_address, std::uint16_t port, std::uint32_t user_value1 = 0,
                     std::uint32_t user_value2 = 0, std::uint16_t* bound_port = nullptr);

  // Queues a package for a link. 0: queued, the engine calls release (may be null: the caller keeps
  // the package and must keep it intact) when it is sent or dropped; 1: refused for now, too much
  // is queued (force skips the limits); -1: no package, an empty one, or the link is not up; -10:
  // the thread is not running. After a refusal the package is the caller's, unless
  // release_on_failure had it released. Priority 1 goes first, 5 last.
  std::int32_t SendPkg(const std::string& link_id, CFTBuffer* pkg, FTReleaseFunction release,
                       std::int32_t force, std::int32_t release_on_failure, std::int32_t priority);

  // Closes a link, a pending or scheduled connect, or a listening socket; after_sending lets what
  // is queued go out first. Nothing happens for other ids or when the thread is not running.
  void CloseLink(const std::string& link_id, std::int32_t after_sending);

  std::int32_t IsLinkUp(const std::string& link_id) const;

  static std::string GetLinkName(const FTLinkInfo& link) { return ::GetLinkName(link); }

  std::string VNewLinkId() override;

 protected:
  std::int32_t OnEnterThread() override;
  void OnExitThread() override;
  void OnMsg(const FTMsg& msg, std::int32_t draining) override;

  CFTBuffer* VGetHeartbeatPkg(const FTLinkInfo* link, FTReleaseFunction* release) override;
  void OnLinkClosed(const FTLinkInfo* link, std::int32_t reason) override;
  void OnRecvPkg(const FTLinkInfo* link, CFTBuffer* pkg, std::int32_t* keep) override;
  void OnConnectFailed(const FTLinkInfo* link) override;
  void OnConnected(const FTLinkInfo* link) override;
  void OnAccepted(const FTLinkInfo* link, const FTLinkInfo* listener) override;
  void OnSetupFailed(const FTLinkReq* req, const FTLinkInfo* listener) override;
  void OnSendSpace(const FTLinkInfo* link, std::int32_t free_bytes, std::int32_t limit) override;
  void VPrepareLink(FTLinkReq* req, std::uintptr_t value1, std::uintptr_t value2) override;

 private:
  void SendHeartbeat(const FTLinkInfo& link);
  void HandlePkg(const FTLinkInfo& link, FTBufferPtr pkg);
  void HandleLinkUp(const FTLinkInfo& link, const FTLinkInfo& listener);
  void ReleaseQueuedMsgs();

  const std::unique_ptr<CFTMtSockImpl> m_engine;
  CFTLockedValue<std::uint32_t> m_link_counter;
};
