#include "00shcode/ftmtsockimpl/link.h"

#include <utility>

CFTLink::CFTLink(FTLinkReq* req, CFTSockIfContract* protocol, FTEngineState* state)
    : m_protocol(protocol),
      m_state(state),
      m_record(std::make_shared<const FTLinkInfo>(req->link)),
      m_listener(req->listener),
      m_socket(std::exchange(req->link.socket, kNoSocket)) {}

CFTLink::~CFTLink() {
  CloseSocket();
}

bool CFTLink::End(FTCloseReason reason) {
  std::int32_t before = kAlive;
  if (!m_end.compare_exchange_strong(before, static_cast<std::int32_t>(reason))) return false;
  EndWaits();
  return true;
}

FTCloseReason CFTLink::GetCloseReason() const {
  const std::int32_t end = m_end.load();
  return end == kAlive ? FTCloseReason::kNone : static_cast<FTCloseReason>(end);
}

std::int32_t CFTLink::Receive(const platform::BytePiece* pieces, int count,
                              std::int32_t* received) {
  return FTSockRecv(m_socket.load(), pieces, count, received);
}

bool CFTLink::WaitReadable(std::int32_t timeout_ms) {
  return FTSockWaitReadable(m_socket.load(), timeout_ms, &m_waker) != 0;
}

void CFTLink::WaitForRoom(std::int64_t limit, std::int32_t timeout_ms) {
  m_state->recv_backlog.WaitForRoom(limit, timeout_ms, &m_waker);
}

std::int32_t CFTLink::Send(const platform::ConstBytePiece* pieces, int count) {
  const CFTScopedLock guard(&m_socket_lock);
  return FTSockSend(m_socket.load(), pieces, count);
}

bool CFTLink::WaitWritable(std::int32_t timeout_ms) {
  return FTSockWaitWritable(m_socket.load(), timeout_ms, &m_waker) != 0;
}

void CFTLink::CloseSocket() {
  const CFTScopedLock guard(&m_socket_lock);
  FTSockClose(m_socket.exchange(kNoSocket));
}

std::unique_ptr<FTLinkInfo> CFTLink::CopyInfo() const {
  auto copy = std::make_unique<FTLinkInfo>(*m_record);
  copy->socket = m_socket.load();
  return copy;
}

void CFTLink::Post(FTMsg msg) const {
  m_protocol->Post(m_record->link_id, m_record->priority, std::move(msg));
}
