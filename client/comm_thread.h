#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "00shcode/mytoolkit/buffer.h"
#include "00shcode/mytoolkit/rw_lock.h"
#include "client/notification_queue.h"
#include "client/received_queue.h"
#include "client/server_list.h"
#include "sockif/base_sock_if.h"

// The client's protocol: keeps one link to one server of a list, moves on to the next when the link
// is gone, sends requests, closes a link that leaves a request unanswered, and posts what arrives
// to the application's window, or queues packages while none is set.
//
// An application that falls behind never makes the client wait. What cannot be posted yet is kept
// and counts as undelivered, so that the link is not read while that is too much.
//
// Lock order: server lock, then link lock.
class CClientCommThread : public CFTBaseSockIf {
 public:
  CClientCommThread();
  ~CClientCommThread() override;

  // Before StartThread.
  void SetServers(std::vector<ServerEntry> servers);

  // The following may be called from any thread.

  // Where notifications go from now on, those included that are kept; 0 for either: packages are
  // queued, link events dropped. Always 0.
  std::int32_t SetRecvWnd(std::uint32_t window, std::uint32_t message);

  // 1 while the current link is up, else 0.
  std::int32_t IsOnline();

  // Requests are refused while more waits to be sent.
  static constexpr std::int64_t kMostQueuedBytes = sizeof(void*) > 4 ? 800000000 : 400000000;

  // Sends a copy of the body and starts the wait for a reply. 0, also while the link is only being
  // opened (the request is then lost) and for a null body (nothing is sent); -1 without a link, for
  // a length that cannot be, or when the server has left too much unread.
  std::int32_t SendRequest(const char* body, std::int32_t body_len);

  // The current link's; empty without one. It stays until everything received on the link has been
  // handled.
  std::string GetLinkId();

  // The oldest queued package, as CReceivedQueue::Pop.
  char* PopRecvPkg() { return m_received.Pop(); }

 protected:
  std::int32_t OnEnterThread() override;
  void OnIdle() override;
  void OnLoop() override;
  void OnMsg(FTMsg& msg, std::int32_t draining) override;
  std::int32_t VGetOnePkgLen(const void* data, std::int32_t count, const FTLinkInfo* link) override;
  CFTBuffer* VGetHeartbeatPkg(const FTLinkInfo* link, FTReleaseFunction* release) override;
  void OnLinkClosed(const FTLinkInfo* link, FTCloseReason reason) override;
  void OnRecvPkg(const FTLinkInfo* link, CFTBuffer* pkg, std::int32_t* keep) override;
  void OnConnectFailed(const FTLinkInfo* link) override;
  void OnConnected(const FTLinkInfo* link) override;

 private:
  void ConnectNextServer();
  void OnCheckLinkTimer();
  void OnCheckReplyTimer();
  bool IsCurrentLink(const FTLinkInfo& link) const;
  void ForgetLink(const FTLinkInfo& link, std::intptr_t link_event);
  void PostLinkEvent(std::intptr_t link_event);
  bool FlushNotifications();
  void CountKept(bool has_window);

  CFTRwLock m_server_lock;
  CServerList m_servers FT_GUARDED_BY(m_server_lock);
  CFTRwLock m_link_lock;
  std::string m_link_id FT_GUARDED_BY(m_link_lock);  // empty: no link, and none being opened
  CReceivedQueue m_received;

  // This thread's alone: m_link_id for its own looks at it, the notifications that are not posted
  // yet, and the memory of what is kept as far as it counts as undelivered.
  std::string m_own_link_id;
  CNotificationQueue m_notifications;
  std::int64_t m_kept_bytes = 0;
  bool m_idle_cycle = false;    // nothing was handled in it
  std::int32_t m_retry_ms = 0;  // until what is kept is looked at again

  // Single values, each read and written whole; nothing else depends on their order.
  std::atomic<std::uint32_t> m_window{0};
  std::atomic<std::uint32_t> m_message{0};
  std::atomic<std::int32_t> m_reply_wait_start{0};  // wall-clock seconds; 0: no request waits
};
