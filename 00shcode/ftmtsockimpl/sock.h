// Every touch of a socket goes through these functions. All sockets are IPv4 TCP; a call that would
// block gives a neutral result; every wait takes milliseconds, a negative value meaning without
// limit. Stateless, no log lines, any thread.
#pragma once

#include <cstdint>
#include <string>

#include "platform/platform.h"

using FTSocket = platform::Socket;
using FTSockAddr = platform::SocketAddress;
using FTSockSet = platform::SocketSet;

constexpr FTSocket kNoSocket = platform::kNoSocket;

// Makes the process ready for sockets. Always 0.
std::int32_t FTSockStartup();

// Fills an address from a port in host order and dotted text; a null or empty text means any
// address, and no name is looked up. Returns address, which may be null.
FTSockAddr* FTSockInitAddr(FTSockAddr* address, std::uint16_t port, const char* text,
                           std::uint16_t family);

// The parts of an address, each output optional. 0, or -1 for a null address.
std::int32_t FTSockAddrToStr(const FTSockAddr* address, std::uint16_t* port, std::string* text,
                             std::uint16_t* family);

// Both ends of a socket, each output optional. A query that fails yields 0.0.0.0 and port 0.
// Always 0.
std::int32_t FTSockGetAddrs(FTSocket socket, std::string* local_text, std::uint16_t* local_port,
                            std::string* peer_text, std::uint16_t* peer_port);

// Nothing happens for kNoSocket.
void FTSockClose(FTSocket socket);

// Always 0.
std::int32_t FTSockSetBlocking(FTSocket socket, std::int32_t blocking);

// Fills the pieces in their order. 1: *received bytes; 0: nothing to read now; -1: the link is
// broken or ended.
std::int32_t FTSockRecv(FTSocket socket, const platform::BytePiece* pieces, int count,
                        std::int32_t* received);

// Sends the pieces, at most platform::kMaxPieces, as if they were one. The bytes placed, at least 1
// and perhaps fewer than there are; 0: try later; -1: the link is broken.
std::int32_t FTSockSend(FTSocket socket, const platform::ConstBytePiece* pieces, int count);

// Block for at most timeout_ms, or until the waker is used. 1: ready; 0: not, or failed.
std::int32_t FTSockWaitReadable(FTSocket socket, std::int32_t timeout_ms,
                                platform::Waker* waker = nullptr);
std::int32_t FTSockWaitWritable(FTSocket socket, std::int32_t timeout_ms,
                                platform::Waker* waker = nullptr);

// Blocks for at most timeout_ms, or until the waker is used, and leaves only ready sockets in the
// sets, either of which may be null. The number of ready sockets, 0 without any, -1 on failure.
std::int32_t FTSockSelect(FTSockSet* read, FTSockSet* write, std::int32_t timeout_ms,
                          platform::Waker* waker = nullptr);

enum class FTConnectResult : std::int32_t { kConnected = 0, kInProgress = 1, kFailed = 2 };

namespace ft {

// Starts a connect on a new socket that closing resets at once. After kFailed *socket is kNoSocket.
// A local text of fewer than 7 characters, or none, leaves the local end to the system.
FTConnectResult BeginConnect(FTSocket* socket, std::uint16_t remote_port, const char* remote_text,
                             const char* local_text, std::uint16_t local_port);

}  // namespace ft

// For a connecting socket that became writable. 1: it is connected, and the outputs hold its ends;
// 0: the connect failed.
std::int32_t FTSockTakeConnected(FTSocket socket, std::string* local_text,
                                 std::uint16_t* local_port, std::string* peer_text,
                                 std::uint16_t* peer_port);

// Takes one waiting connection and makes it non-blocking. 1: *accepted and *peer are filled;
// 0: none is waiting (any more); -1: it cannot be accepted.
std::int32_t FTSockAccept(FTSocket listening, FTSocket* accepted, FTSockAddr* peer);

// A new non-blocking listening socket; kNoSocket when the address cannot be listened on.
FTSocket FTSockListen(const char* local_text, std::uint16_t local_port);
