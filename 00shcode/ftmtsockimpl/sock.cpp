#include "00shcode/ftmtsockimpl/sock.h"

#include <cstring>

#include "00shcode/mytoolkit/text.h"

namespace {

constexpr std::size_t kShortestAddressText = 7;  // as in 0.0.0.0

using platform::SocketError;

std::int32_t WaitForOne(FTSocket socket, platform::Readiness readiness, std::int32_t timeout_ms,
                        platform::Waker* waker) {
  if (socket == kNoSocket) return 0;
  return platform::WaitForSocket(socket, readiness, timeout_ms, waker) ? 1 : 0;
}

bool BindLocalEnd(FTSocket socket, const char* text, std::uint16_t port) {
  if (text == nullptr || std::strlen(text) < kShortestAddressText) return true;
  FTSockAddr local;
  FTSockInitAddr(&local, port, text, platform::kFamilyInet);
  return platform::BindSocket(socket, local);
}

FTConnectResult GiveUp(FTSocket* socket) {
  FTSockClose(*socket);
  *socket = kNoSocket;
  return FTConnectResult::kFailed;
}

}  // namespace

std::int32_t FTSockStartup() {
  platform::StartSockets();
  return 0;
}

FTSockAddr* FTSockInitAddr(FTSockAddr* address, std::uint16_t port, const char* text,
                           std::uint16_t family) {
  if (address == nullptr) return nullptr;
  *address = FTSockAddr{};
  const bool any = text == nullptr || *text == '\0';
  address->address = any ? platform::kAnyAddress : platform::ParseAddress(text);
  address->port = platform::PortToNetwork(port);
  address->family = family;
  return address;
}

std::int32_t FTSockAddrToStr(const FTSockAddr* address, std::uint16_t* port, std::string* text,
                             std::uint16_t* family) {
  if (address == nullptr) return -1;
  if (family != nullptr) *family = address->family;
  if (text != nullptr) {
    unsigned char bytes[4];
    std::memcpy(bytes, &address->address, sizeof bytes);
    *text = ft::FormatString("%d.%d.%d.%d", bytes[0], bytes[1], bytes[2], bytes[3]);
  }
  if (port != nullptr) *port = platform::PortToHost(address->port);
  return 0;
}

std::int32_t FTSockGetAddrs(FTSocket socket, std::string* local_text, std::uint16_t* local_port,
                            std::string* peer_text, std::uint16_t* peer_port) {
  if (local_text != nullptr || local_port != nullptr) {
    FTSockAddr local{};
    platform::GetLocalAddress(socket, &local);
    FTSockAddrToStr(&local, local_port, local_text, nullptr);
  }
  if (peer_text != nullptr || peer_port != nullptr) {
    FTSockAddr peer{};
    platform::GetPeerAddress(socket, &peer);
    FTSockAddrToStr(&peer, peer_port, peer_text, nullptr);
  }
  return 0;
}

void FTSockClose(FTSocket socket) {
  if (socket != kNoSocket) platform::CloseSocket(socket);
}

std::int32_t FTSockSetBlocking(FTSocket socket, std::int32_t blocking) {
  platform::SetBlocking(socket, blocking != 0);
  return 0;
}

std::int32_t FTSockRecv(FTSocket socket, const platform::BytePiece* pieces, int count,
                        std::int32_t* received) {
  *received = 0;
  if (socket == kNoSocket) return -1;
  SocketError error = SocketError::kNone;
  *received = platform::ReceivePieces(socket, pieces, count, &error);
  if (*received > 0) return 1;
  return error == SocketError::kWouldBlock ? 0 : -1;
}

std::int32_t FTSockSend(FTSocket socket, const platform::ConstBytePiece* pieces, int count) {
  if (socket == kNoSocket) return -1;
  SocketError error = SocketError::kNone;
  const std::int32_t sent = platform::SendPieces(socket, pieces, count, &error);
  if (sent > 0) return sent;
  return error == SocketError::kWouldBlock ? 0 : -1;
}

std::int32_t FTSockWaitReadable(FTSocket socket, std::int32_t timeout_ms, platform::Waker* waker) {
  return WaitForOne(socket, platform::Readiness::kReadable, timeout_ms, waker);
}

std::int32_t FTSockWaitWritable(FTSocket socket, std::int32_t timeout_ms, platform::Waker* waker) {
  return WaitForOne(socket, platform::Readiness::kWritable, timeout_ms, waker);
}

std::int32_t FTSockSelect(FTSockSet* read, FTSockSet* write, std::int32_t timeout_ms,
                          platform::Waker* waker) {
  return platform::WaitForSockets(read, write, timeout_ms, waker);
}

FTConnectResult ft::BeginConnect(FTSocket* socket, std::uint16_t remote_port,
                                 const char* remote_text, const char* local_text,
                                 std::uint16_t local_port) {
  *socket = platform::OpenTcpSocket();
  if (*socket == kNoSocket) return FTConnectResult::kFailed;
  platform::SetLinger(*socket, true, 0);
  FTSockAddr remote;
  FTSockInitAddr(&remote, remote_port, remote_text, platform::kFamilyInet);
  if (!BindLocalEnd(*socket, local_text, local_port)) return GiveUp(socket);
  FTSockSetBlocking(*socket, 0);
  switch (platform::ConnectSocket(*socket, remote)) {
    case SocketError::kNone:
      return FTConnectResult::kConnected;
    case SocketError::kInProgress:
      return FTConnectResult::kInProgress;
    default:
      return GiveUp(socket);
  }
}

std::int32_t FTSockTakeConnected(FTSocket socket, std::string* local_text,
                                 std::uint16_t* local_port, std::string* peer_text,
                                 std::uint16_t* peer_port) {
  FTSockAddr local{};
  FTSockAddr peer{};
  const platform::ConnectState state = platform::TakeConnectResult(socket, &local, &peer);
  if (state != platform::ConnectState::kConnected) return 0;
  FTSockAddrToStr(&local, local_port, local_text, nullptr);
  FTSockAddrToStr(&peer, peer_port, peer_text, nullptr);
  return 1;
}

std::int32_t FTSockAccept(FTSocket listening, FTSocket* accepted, FTSockAddr* peer) {
  SocketError error = SocketError::kNone;
  const FTSocket socket = platform::AcceptSocket(listening, peer, &error);
  if (socket == kNoSocket) {
    const bool gone = error == SocketError::kWouldBlock || error == SocketError::kAborted;
    return gone ? 0 : -1;
  }
  FTSockSetBlocking(socket, 0);
  *accepted = socket;
  return 1;
}

FTSocket FTSockListen(const char* local_text, std::uint16_t local_port) {
  const FTSocket socket = platform::OpenTcpSocket();
  if (socket == kNoSocket) return kNoSocket;
  FTSockAddr local;
  FTSockInitAddr(&local, local_port, local_text, platform::kFamilyInet);
  FTSockSetBlocking(socket, 0);
  if (platform::ListenOn(socket, local)) return socket;
  FTSockClose(socket);
  return kNoSocket;
}
