#include "tests/support/win32/socket_hooks.h"

#include <winsock2.h>

#include <atomic>
#include <limits>
#include <mutex>
#include <utility>

#include "tests/support/failing_calls.h"
#include "tests/support/win32/import.h"

namespace testkit {

namespace {

constexpr char kWinsock[] = "ws2_32.dll";

std::mutex g_lock;  // guards the numbers
std::size_t g_open = 0;
std::size_t g_limit = std::numeric_limits<std::size_t>::max();

// With these the next call fails; 0: it is carried out.
std::atomic<int> g_connect_error{0};
std::atomic<int> g_accept_error{0};

bool Fails(std::atomic<int>* error) {
  const int ordered = error->exchange(0);
  if (ordered != 0) WSASetLastError(ordered);
  return ordered != 0;
}

// open() is the system's own function.
template <typename Open>
SOCKET OpenWithinLimit(Open open) {
  const std::lock_guard<std::mutex> guard(g_lock);
  if (g_open >= g_limit) {
    WSASetLastError(WSAEMFILE);
    return INVALID_SOCKET;
  }
  const SOCKET opened = open();
  if (opened != INVALID_SOCKET) ++g_open;
  return opened;
}

SOCKET WSAAPI Open(int family, int type, int protocol) {
  static const auto next = SystemFunction<decltype(&::socket)>(kWinsock, "socket");
  return OpenWithinLimit([&] { return next(family, type, protocol); });
}

// Nobody accepts on a blocking socket, so the lock is not held for long.
SOCKET WSAAPI Accept(SOCKET listening, sockaddr* address, int* length) {
  static const auto next = SystemFunction<decltype(&::accept)>(kWinsock, "accept");
  if (Fails(&g_accept_error)) return INVALID_SOCKET;
  return OpenWithinLimit([&] { return next(listening, address, length); });
}

int WSAAPI Connect(SOCKET socket, const sockaddr* address, int length) {
  static const auto next = SystemFunction<decltype(&::connect)>(kWinsock, "connect");
  return Fails(&g_connect_error) ? SOCKET_ERROR : next(socket, address, length);
}

int WSAAPI Close(SOCKET socket) {
  static const auto next = SystemFunction<decltype(&::closesocket)>(kWinsock, "closesocket");
  const std::lock_guard<std::mutex> guard(g_lock);
  const int result = next(socket);
  if (result == 0) --g_open;
  return result;
}

}  // namespace

decltype(&Open) g_import_of_socket __asm__("__imp__socket@12") = &Open;
decltype(&Accept) g_import_of_accept __asm__("__imp__accept@12") = &Accept;
decltype(&Connect) g_import_of_connect __asm__("__imp__connect@12") = &Connect;
decltype(&Close) g_import_of_closesocket __asm__("__imp__closesocket@4") = &Close;

std::size_t OpenSockets() {
  const std::lock_guard<std::mutex> guard(g_lock);
  return g_open;
}

std::size_t SetSocketLimit(std::size_t sockets) {
  const std::lock_guard<std::mutex> guard(g_lock);
  return std::exchange(g_limit, sockets);
}

void FailNextConnect(int system_error) {
  g_connect_error = system_error;
}

void FailNextAccept(int system_error) {
  g_accept_error = system_error;
}

}  // namespace testkit
