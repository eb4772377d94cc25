#include "tools/capture/relay.h"

#include <cstdint>

#include "00shcode/mytoolkit/clock.h"
#include "tools/capture/end_sending.h"

namespace capture {

namespace {

constexpr std::int32_t kConnectLimitMs = 10000;
constexpr std::int32_t kEndLimitMs = 60000;
constexpr std::int32_t kWithoutLimit = -1;

}  // namespace

Relay::Relay(FTSocket application, const Endpoint& server, RelayEvents* events)
    : m_server(server), m_events(events) {
  m_to_server.from = application;
  m_to_application.to = application;
}

Relay::~Relay() {
  FTSockClose(m_to_server.from);
  FTSockClose(m_to_server.to);
}

void Relay::StopThread() {
  CMyThread::StopThread();
  m_waker.Wake();
}

std::int32_t Relay::OnEnterThread() {
  const std::int32_t result = CMyThread::OnEnterThread();
  platform::NameCurrentThread("relay");
  if (ReachServer()) {
    m_events->OnUp();
  } else {
    EndBy(RelayEvents::End::kNoServer);
  }
  return result;
}

bool Relay::ReachServer() {
  FTSocket& server = m_to_server.to;
  const FTConnectResult result = ft::BeginConnect(
      &server, static_cast<std::uint16_t>(m_server.port), m_server.host.c_str(), nullptr, 0);
  if (result == FTConnectResult::kFailed) return false;
  if (FTSockWaitWritable(server, kConnectLimitMs, &m_waker) != 1) return false;
  if (FTSockTakeConnected(server, nullptr, nullptr, nullptr, nullptr) != 1) return false;
  // Closing must not throw away what the system has not delivered yet.
  platform::SetLinger(server, false, 0);
  m_to_application.from = server;
  return true;
}

std::int32_t Relay::RunOnce() {
  FTSockSet readable;
  FTSockSet writable;
  if (!WaitForSockets(&readable, &writable)) return 0;
  for (Way* const way : {&m_to_server, &m_to_application}) {
    if (GetOpposite(*way).from_ended) continue;  // its receiver has gone
    if (readable.Contains(way->from)) Receive(way);
    if (!way->pending.empty()) PassOn(way);
    if (way->from_ended && way->pending.empty()) EndBy(way->giver);
  }
  return 0;
}

bool Relay::WaitForSockets(FTSockSet* readable, FTSockSet* writable) {
  for (const Way* const way : {&m_to_server, &m_to_application}) {
    if (GetOpposite(*way).from_ended) continue;
    if (!way->pending.empty()) {
      writable->Add(way->to);
    } else if (!way->from_ended) {
      readable->Add(way->from);
    }
  }
  return FTSockSelect(readable, writable, kWithoutLimit, &m_waker) > 0;
}

const Relay::Way& Relay::GetOpposite(const Way& way) const {
  return &way == &m_to_server ? m_to_application : m_to_server;
}

void Relay::Receive(Way* way) {
  const platform::BytePiece piece{m_space.data(), static_cast<int>(m_space.size())};
  std::int32_t received = 0;
  const std::int32_t result = FTSockRecv(way->from, &piece, 1, &received);
  way->from_ended = result < 0;
  if (result <= 0) return;
  way->pending.append(m_space.data(), static_cast<std::size_t>(received));
  m_events->OnBytes(way->direction, m_space.data(), static_cast<std::size_t>(received));
}

void Relay::PassOn(Way* way) {
  const platform::ConstBytePiece piece{way->pending.data(), static_cast<int>(way->pending.size())};
  const std::int32_t sent = FTSockSend(way->to, &piece, 1);
  if (sent >= 0) {
    way->pending.erase(0, static_cast<std::size_t>(sent));
  } else {
    EndBy(way->taker);
  }
}

void Relay::EndBy(RelayEvents::End end) {
  if (m_end == RelayEvents::End::kStopped) m_end = end;
  CMyThread::StopThread();
}

// To close a socket that something unread waits in throws away what is still on the way to its
// peer: what the peer sends is taken until it ends its side, too.
void Relay::PassEndOn(const Way& way) {
  EndSending(way.to);
  const platform::BytePiece piece{m_space.data(), static_cast<int>(m_space.size())};
  const FTTime start = ft::GetTickTime();
  std::int32_t received = 0;
  while (ft::ElapsedMs(ft::GetTickTime(), start) < kEndLimitMs &&
         FTSockWaitReadable(way.to, kEndLimitMs, &m_waker) == 1 &&
         FTSockRecv(way.to, &piece, 1, &received) >= 0) {
  }
}

void Relay::OnExitThread() {
  m_events->OnEnd(m_end);
  for (const Way* const way : {&m_to_server, &m_to_application}) {
    if (way->from_ended) PassEndOn(*way);
  }
  FTSockClose(m_to_server.from);
  FTSockClose(m_to_server.to);
  m_to_server.from = m_to_server.to = kNoSocket;
  m_ended.store(true);
  CMyThread::OnExitThread();
}

}  // namespace capture
