#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "00shcode/ftmsgq/ftmsgq.h"
#include "00shcode/ftmtsockimpl/link_info.h"
#include "00shcode/ftmtsockimpl/pkg_cutter.h"

class CFTMtSockImpl;
class CFTMtSockSendThrd;
class CFTSockIfContract;

// One established link: owns its socket and its send thread, reads what the peer sends, cuts it
// into packages and hands them to the interface, watches for silence, and reports the link's
// beginning and end.
class CFTMtSockOneLinkThrd : public CFTMsgQ {
 public:
  // Takes the request's socket over; the destructor closes it if nobody has by then.
  CFTMtSockOneLinkThrd(CFTMtSockImpl* engine, const FTLinkReq& req);
  ~CFTMtSockOneLinkThrd() override;

  // The following may be called from any thread.

  bool IsAlive() const;

  // Declares the link down for this reason. False when it was down already: the first reason
  // stands, and the party that gave it writes the line.
  bool EndLink(std::int32_t reason);

  // True once the thread has done all but return: then it may be joined.
  bool IsFinished() const { return m_finish_time.Get() != FTTime{}; }
  FTTime GetFinishTime() const { return m_finish_time.Get(); }

  const std::string& GetLinkId() const { return m_link.link_id; }
  const std::string& GetRemoteAddress() const { return m_link.remote_address; }
  std::int32_t GetPriority() const { return m_link.priority; }
  std::unique_ptr<FTLinkInfo> CopyLink() const;

  // Writes to the socket, as FTSockSend does, unless it is closed: then -1.
  std::int32_t SendOnSocket(const void* data, std::int32_t length);
  // Blocks for at most timeout_ms. 1: the socket is writable.
  std::int32_t WaitWritable(std::int32_t timeout_ms) const;
  void CloseSocket();

  CFTMtSockSendThrd& SendThread() { return *m_send_thread; }

  void VWriteLog(const char* path, int line, std::int32_t level_code, const char* format,
                 va_list arguments) override;

 protected:
  std::int32_t OnEnterThread() override;
  void OnExitThread() override;
  void OnMsg(const FTMsg& msg, std::int32_t draining) override;
  void OnLoop() override;

 private:
  std::int32_t GetCloseReason() const;
  FTSocket GetSocket() const;
  std::int32_t RefuseLink();
  void ReceiveOnce();
  bool RecvAndCut();
  bool EndAfterCut(CFTPkgCutter::Result result);
  void SlowDownWhenBehind();
  void DeliverPkg(FTBufferPtr pkg);
  void CheckRecvTimeout();
  void StopBothThreads();
  void ReportClosed();
  void DropUndelivered();

  CFTMtSockImpl* const m_engine;
  CFTSockIfContract* const m_interface;

  mutable CFTLock m_state_lock;
  bool m_alive FT_GUARDED_BY(m_state_lock) = true;
  std::int32_t m_close_reason FT_GUARDED_BY(m_state_lock);
  CFTLockedValue<FTTime> m_finish_time;

  // Guards the number in m_link.socket: closing it never overlaps a write to it, so that nobody
  // writes to a number that the system has given to another file. Reads by the receive thread
  // itself, which alone closes it while the threads run, do not take it.
  mutable CFTLock m_socket_lock;
  FTLinkInfo m_link;
  const FTLinkInfo m_listener;

  bool m_announced = false;
  bool m_read_last_pass = true;
  CFTPkgCutter m_cutter;
  std::int64_t m_undelivered = 0;  // our part of the engine's undelivered bytes
  FTTime m_last_wait_start;
  FTTime m_last_data;
  std::unique_ptr<CFTMtSockSendThrd> m_send_thread;
};
