#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "00shcode/ftmtsockimpl/link_info.h"
#include "00shcode/ftmtsockimpl/link_orders.h"
#include "00shcode/ftmtsockimpl/sock_if_contract.h"

class CFTMtSockImpl;

// Base of a protocol class: owns the socket engine, opens and closes links, sends packages, and
// turns the engine's messages into callbacks on its own thread. A derived class supplies
// VGetOnePkgLen and overrides the callbacks it cares about.
//
// The owner starts it (StartThread), stops it (PostQuit or StopThread), joins it (WaitThreadExit)
// and destroys it. For each link the derived class sees: the id from Connect; then either
// OnConnectFailed or OnConnected; then packages and room reports; then OnLinkClosed once.
class CFTBaseSockIf : public CFTSockIfContract {
 public:
  CFTBaseSockIf(FTEventMode event_mode, FTHeartbeatMode heartbeat_mode,
                FTSpaceReports space_reports = FTSpaceReports::kWanted);
  // Precondition: joined.
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

  // Queues a package for a link. kSendQueued (0): the engine calls release (may be null: the caller
  // keeps the package and must keep it intact) when it is sent or dropped. kSendTooMuch (1),
  // kSendNoLink (-1) or kSendNotRunning (-10): refused; the package is the caller's, unless
  // on_refusal had it released. Priority 1 goes first, 5 last.
  std::int32_t SendPkg(const std::string& link_id, CFTBuffer* pkg, FTReleaseFunction release,
                       FTSendMode mode, FTOnRefusal on_refusal, std::int32_t priority);

  // The same for a copy of a package, which is given in pieces; small packages travel together in
  // one buffer. Whatever the result, the pieces stay the caller's.
  std::int32_t SendCopy(const std::string& link_id, const platform::ConstBytePiece* pieces,
                        int count, FTSendMode mode, std::int32_t priority);

  // Bytes accepted for any link and not yet sent.
  std::int64_t GetQueuedSendBytes() const;

  // Closes a link, a pending or scheduled connect, or a listening socket. Nothing happens for other
  // ids or when the thread is not running.
  void CloseLink(const std::string& link_id, FTCloseMode mode);

  std::int32_t IsLinkUp(const std::string& link_id) const;

  static std::string GetLinkName(const FTLinkInfo& link) { return ft::GetLinkName(link); }

  std::string VNewLinkId() override;

 protected:
  // Any thread. Adds to what the links count as received and not yet delivered, or takes it off:
  // for memory that a derived class keeps because of what it received. While there is too much,
  // nothing is read.
  void CountUndelivered(std::int64_t bytes);

  std::int32_t OnEnterThread() override;
  void OnExitThread() override;
  std::int32_t RunOnce() override;
  void OnMsg(FTMsg& msg, std::int32_t draining) override;

  CFTBuffer* VGetHeartbeatPkg(const FTLinkInfo* link, FTReleaseFunction* release) override;
  void OnLinkClosed(const FTLinkInfo* link, FTCloseReason reason) override;
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
  void CountDelivered();

  // Constant.
  const std::unique_ptr<CFTMtSockImpl> m_engine;

  // With a lock of its own.
  CFTLockedValue<std::uint32_t> m_link_counter;

  // This thread's alone: what was handled and not yet taken off the engine's count.
  std::int64_t m_delivered = 0;
  // And the records of links whose end was handled in the cycle under way: a handler that runs a
  // cycle of its own may still be looking at one.
  std::vector<FTLinkRecord> m_ended;
  int m_cycles = 0;  // that are under way
};
