// In what the systems' sockets differ; all other calls are the same under the same names.
#pragma once

#include <cstddef>
#include <cstdint>

#if __has_include(<sys/socket.h>)
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#else
#include <winsock2.h>
#include <ws2tcpip.h>
#endif

#include "tests/support/socket_io.h"

namespace testkit {

// To a port of this machine; 0: one that the system chooses. Throws when it cannot be had.
void BindTo(const Descriptor& socket, std::uint16_t port);

namespace native {

extern const int kSendFlags;
extern const int kBufferShare;  // the system sets aside so many times the bytes, and says so

// Non-blocking and not inherited; -1 when there is none.
int OpenSocket();
int Accept(int listening);
// poll, as no test tells it to fail.
int Poll(pollfd* entries, std::size_t count, int limit_ms);

// Of this thread's last call: errno values, or the system's own where there are none.
int LastError();
void SetLastError(int error);

}  // namespace native

}  // namespace testkit
