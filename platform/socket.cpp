#include <algorithm>
#include <chrono>

#include "platform/backend.h"

namespace platform {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Calls until the call was carried out: what interrupts it is no event of the link's.
template <typename Call>
auto Uninterrupted(SocketError* error, Call call) {
  auto result = call();
  while (*error == SocketError::kInterrupted) {
    *error = SocketError::kNone;
    result = call();
  }
  return result;
}

bool IsHostAddress(const SocketAddress& address) {
  return address.address != kAnyAddress && address.address != kNoAddress;
}

int RemainingMs(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
  return static_cast<int>(std::max(left, milliseconds(0)).count());
}

// A wait whose interruptions do not make it longer.
template <typename Wait>
int WaitUntil(int timeout_ms, Wait wait) {
  const Clock::time_point deadline = Clock::now() + milliseconds(timeout_ms);
  SocketError error = SocketError::kNone;
  return Uninterrupted(&error,
                       [&] { return wait(timeout_ms < 0 ? -1 : RemainingMs(deadline), &error); });
}

Socket SignalOf(const Waker* waker) {
  return waker == nullptr ? kNoSocket : waker->Signal();
}

}  // namespace

Socket AcceptSocket(Socket listening, SocketAddress* peer, SocketError* error) {
  *error = SocketError::kNone;
  return Uninterrupted(error, [&] { return backend::Accept(listening, peer, error); });
}

SocketError ConnectSocket(Socket socket, const SocketAddress& remote) {
  if (remote.port == 0 || !IsHostAddress(remote)) return SocketError::kBroken;
  switch (const SocketError answer = backend::Connect(socket, remote)) {
    case SocketError::kNone:
    case SocketError::kInProgress:
      return answer;
    case SocketError::kInterrupted:  // the system goes on connecting
    case SocketError::kRefused:      // a peer's answer, only a quick one
      return SocketError::kInProgress;
    default:
      return SocketError::kBroken;
  }
}

ConnectState TakeConnectResult(Socket socket, SocketAddress* local, SocketAddress* peer) {
  if (!backend::TakeSuccess(socket) || !GetPeerAddress(socket, peer) ||
      !GetLocalAddress(socket, local)) {
    return ConnectState::kFailed;
  }
  const bool itself = local->port == peer->port && local->address == peer->address;
  return itself ? ConnectState::kFailed : ConnectState::kConnected;
}

int ReceivePieces(Socket socket, const BytePiece* pieces, int count, SocketError* error) {
  *error = SocketError::kNone;
  return Uninterrupted(error, [&] { return backend::Receive(socket, pieces, count, error); });
}

int SendPieces(Socket socket, const ConstBytePiece* pieces, int count, SocketError* error) {
  *error = SocketError::kNone;
  return Uninterrupted(error, [&] { return backend::Send(socket, pieces, count, error); });
}

int WaitForSockets(SocketSet* read, SocketSet* write, int timeout_ms, Waker* waker) {
  const int ready = WaitUntil(timeout_ms, [&](int left_ms, SocketError* error) {
    return backend::Wait(read, write, SignalOf(waker), left_ms, error);
  });
  if (ready >= 0) return ready;
  for (SocketSet* const set : {read, write}) {
    if (set != nullptr) set->Assign({});
  }
  return -1;
}

bool WaitForSocket(Socket socket, Readiness readiness, int timeout_ms, Waker* waker) {
  return WaitUntil(timeout_ms, [&](int left_ms, SocketError* error) {
           return backend::WaitForOne(socket, readiness, SignalOf(waker), left_ms, error);
         }) > 0;
}

}  // namespace platform
