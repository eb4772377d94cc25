#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "00shcode/ftmtsockimpl/engine_state.h"
#include "00shcode/ftmtsockimpl/link_info.h"
#include "00shcode/ftmtsockimpl/sock_if_contract.h"
#include "00shcode/mytoolkit/lock.h"

// One established link: what its receive thread, its send thread and the engine share.
class CFTLink {
 public:
  // Takes the socket out of the request. protocol and state outlive the link.
  CFTLink(FTLinkReq* req, CFTSockIfContract* protocol, FTEngineState* state);
  // Closes the socket if nobody has by then.
  ~CFTLink();
  CFTLink(const CFTLink&) = delete;
  CFTLink& operator=(const CFTLink&) = delete;

  // Any thread, without a lock.
  const FTLinkInfo& Info() const { return *m_record; }
  const FTLinkRecord& Record() const { return m_record; }
  const FTLinkInfo& Listener() const { return m_listener; }
  CFTSockIfContract& Protocol() const { return *m_protocol; }
  FTEngineState& State() const { return *m_state; }

  bool IsAlive() const { return m_end.load() == kAlive; }

  // Any thread. Declares the link down and ends its threads' waits. False when it was down already:
  // the first reason stands, and the party that gave it writes the line.
  bool End(FTCloseReason reason);

  // Any thread. The first reason; kNone while the link is alive.
  FTCloseReason GetCloseReason() const;

  // Any thread. Once the protocol object has been told that the link is up: nothing about the link
  // may come before that.
  bool IsAnnounced() const { return m_announced.load(); }
  void SetAnnounced() { m_announced.store(true); }

  // Any thread. Once the protocol object has been told that the link is down, or that it did not
  // come about: another link may have the id.
  bool IsReportedDown() const { return m_reported_down.load(); }
  void SetReportedDown() { m_reported_down.store(true); }

  // Any thread. Ends the waits below, now and for good: the link's threads are to end.
  void EndWaits() { m_waker.Wake(); }

  // Receive thread only. Both as FTSockRecv and FTSockWaitReadable.
  std::int32_t Receive(const platform::BytePiece* pieces, int count, std::int32_t* received);
  bool WaitReadable(std::int32_t timeout_ms);

  // Receive thread only. As CFTRecvBacklog::WaitForRoom, or until EndWaits.
  void WaitForRoom(std::int64_t limit, std::int32_t timeout_ms);

  // Send thread only. As FTSockSend; -1 when the socket is closed. Never overlaps with CloseSocket.
  std::int32_t Send(const platform::ConstBytePiece* pieces, int count);
  bool WaitWritable(std::int32_t timeout_ms);

  // The receive thread, or anybody once that is joined.
  void CloseSocket();

  // A record of its own for a message, with the socket as it is now.
  std::unique_ptr<FTLinkInfo> CopyInfo() const;

  // Posts to the protocol object behind everything that was posted about this link.
  void Post(FTMsg msg) const;

 private:
  static constexpr std::int32_t kAlive = -1;

  // Constant.
  CFTSockIfContract* const m_protocol;
  FTEngineState* const m_state;
  const FTLinkRecord m_record;
  const FTLinkInfo m_listener;

  // kAlive, then the first reason. One value, so that the reason belongs to the end.
  std::atomic<std::int32_t> m_end{kAlive};
  std::atomic<bool> m_announced{false};
  std::atomic<bool> m_reported_down{false};
  platform::Waker m_waker;

  // A write and the closing never overlap, so that nobody writes to a number that the system has
  // given to another file. The receive thread reads and waits without the lock, since it alone
  // closes the socket while the threads run; a wait of the send thread on a closed number is
  // harmless, because a write follows.
  mutable CFTLock m_socket_lock;
  std::atomic<FTSocket> m_socket;  // written under the lock
};
