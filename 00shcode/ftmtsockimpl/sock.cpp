#include "00shcode/ftmtsockimpl/sock.h"

#include <cstring>

#include "00shcode/mytoolkit/text.h"

namespace {

constexpr int kBufferBytes = 65536;
constexpr std::size_t kShortestAddressText = 7;  // as in 0.0.0.0

using platform::SocketError;

std::int32_t WaitForOne(FTSocket socket, bool for_reading, std::int32_t timeout_ms) {
  if (socket == kNoSocket) return 0;
  FTSockSet set;
  set.Add(socket);
  const std::int32_t ready = for_reading ? FTSockSelect(&set, nullptr, timeout_ms)
                                         : FTSockSelect(nullptr, &set, timeout_ms);
  return ready > 0 && set.Contains(socket) ? 1 : 0;
}

bool BindLocalEnd(FTSocket socket, const char* text, std::uint16_t port) {
  if (text == nullptr || std::strlen(text) < kShortestAddressText) return true;
  FTSockAddr local;
  FTSockInitAddr(&local, port, text, platform::kFamilyInet);
  return platform::BindSocket(socket, local);
}

std::int32_t GiveUp(FTSocket* socket) {
  FTSockClose(*socket);
  *socket = kNoSocket;
  return kConnectFailed;
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
    *text = FormatString("%d.%d.%d.%d", bytes[0], bytes[1], bytes[2], bytes[3]);
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

std::int32_t FTSockRecv(FTSocket socket, void* buffer, std::int32_t capacity, std::int32_t* count) {
  *count = 0;
  if (socket == kNoSocket) return -1;
  SocketError error = SocketError::kNone;
  *count = platform::ReceiveBytes(socket, buffer, capacity, &error);
  if (*count > 0) return 1;
  return error == SocketError::kWouldBlock ? 0 : -1;
}

std::int32_t FTSockSend(FTSocket socket, const void* data, std::int32_t length) {
  if (socket == kNoSocket) return -1;
  SocketError error = SocketError::kNone;
  const std::int32_t sent = platform::SendBytes(socket, data, length, &error);
  if (sent > 0) return sent;
  return error == SocketError::kWouldBlock ? 0 : -1;
}

std::int32_t FTSockWaitReadable(FTSocket socket, std::int32_t timeout_ms) {
  return WaitForOne(socket, true, timeout_ms);
}

std::int32_t FTSockWaitWritable(FTSocket socket, std::int32_t timeout_ms) {
  return WaitForOne(socket, false, timeout_ms);
}

std::int32_t FTSockSelect(FTSockSet* read, FTSockSet* write, std::int32_t timeout_ms) {
  return platform::WaitForSockets(read, write, timeout_ms);
}

std::int32_t BeginConnect(FTSocket* socket, std::uint16_t remote_port, const char* remote_text,
                          const char* local_text, std::uint16_t local_port) {
  *socket = platform::OpenTcpSocket();
  if (*socket == kNoSocket) return kConnectFailed;
  platform::SetLinger(*socket, true, 0);
  platform::SetBufferSizes(*socket, kBufferBytes, kBufferBytes);
  FTSockAddr remote;
  FTSockInitAddr(&remote, remote_port, remote_text, platform::kFamilyInet);
  if (!BindLocalEnd(*socket, local_text, local_port)) return GiveUp(socket);
  FTSockSetBlocking(*socket, 0);
  switch (platform::ConnectSocket(*socket, remote)) {
    case SocketError::kNone:
      return kConnectDone;
    case SocketError::kInProgress:
      return kConnectInProgress;
    default:
      return GiveUp(socket);
  }
}

std::int32_t FTSockIsConnected(FTSocket socket) {
  return platform::TakeConnectResult(socket) == platform::ConnectState::kConnected ? 1 : 0;
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
