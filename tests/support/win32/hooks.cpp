// A call of a DLL's function goes through a pointer that the linker takes from the DLL's import
// library, unless the program defines that pointer itself, as this file does at its end.
#include "tests/support/hooks.h"

#include <winsock2.h>

#include <windows.h>

#include <process.h>
#include <sys/timeb.h>

#include <cerrno>
#include <limits>
#include <mutex>
#include <utility>

#include "tests/support/descriptor_limit.h"
#include "tests/support/process_usage.h"
#include "tests/support/thread_limit.h"
#include "tests/support/wall_clock_shift.h"

namespace testkit {

namespace {

constexpr char kWinsock[] = "ws2_32.dll";
constexpr char kRuntime[] = "msvcrt.dll";

std::mutex g_lock;  // guards the numbers
std::size_t g_open = 0;
std::size_t g_limit = std::numeric_limits<std::size_t>::max();

// The DLL's own function.
template <typename Function>
Function* Next(Function*, const char* dll, const char* name) {
  return reinterpret_cast<Function*>(
      reinterpret_cast<void*>(GetProcAddress(LoadLibraryA(dll), name)));
}

// open() is the system's own function. Nobody accepts on a blocking socket, so the lock is not held
// for long.
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

std::size_t SetLimit(std::size_t sockets) {
  const std::lock_guard<std::mutex> guard(g_lock);
  return std::exchange(g_limit, sockets);
}

SOCKET WSAAPI Open(int family, int type, int protocol) {
  static const auto next = Next(&Open, kWinsock, "socket");
  return OpenWithinLimit([&] { return next(family, type, protocol); });
}

SOCKET WSAAPI Accept(SOCKET listening, sockaddr* address, int* length) {
  static const auto next = Next(&Accept, kWinsock, "accept");
  if (Fails(Hooked::kAccept)) return INVALID_SOCKET;
  return OpenWithinLimit([&] { return next(listening, address, length); });
}

int WSAAPI Connect(SOCKET socket, const sockaddr* address, int length) {
  static const auto next = Next(&Connect, kWinsock, "connect");
  return Fails(Hooked::kConnect) ? SOCKET_ERROR : next(socket, address, length);
}

int WSAAPI Close(SOCKET socket) {
  static const auto next = Next(&Close, kWinsock, "closesocket");
  const std::lock_guard<std::mutex> guard(g_lock);
  const int result = next(socket);
  if (result == 0) --g_open;
  return result;
}

int WSAAPI Send(SOCKET socket, const char* data, int size, int flags) {
  static const auto next = Next(&Send, kWinsock, "send");
  return Move(Hooked::kSend, static_cast<std::size_t>(size), [&](std::size_t count) {
    return next(socket, data, static_cast<int>(count), flags);
  });
}

int WSAAPI Receive(SOCKET socket, char* buffer, int size, int flags) {
  static const auto next = Next(&Receive, kWinsock, "recv");
  return Move(Hooked::kReceive, static_cast<std::size_t>(size), [&](std::size_t count) {
    return next(socket, buffer, static_cast<int>(count), flags);
  });
}

int WSAAPI Select(int count, fd_set* read, fd_set* write, fd_set* except, const timeval* limit) {
  static const auto next = Next(&Select, kWinsock, "select");
  return Fails(Hooked::kPoll) ? SOCKET_ERROR : next(count, read, write, except, limit);
}

std::uintptr_t __cdecl BeginThread(void* security, unsigned stack_bytes,
                                   unsigned(__stdcall* main)(void*), void* argument, unsigned flags,
                                   unsigned* id) {
  static const auto next = Next(&BeginThread, kRuntime, "_beginthreadex");
  if (ThreadLimit::TakePlace()) return next(security, stack_bytes, main, argument, flags, id);
  errno = EAGAIN;
  return 0;
}

void __cdecl GetTime(struct __timeb64* now) {
  static const auto next = Next(&GetTime, kRuntime, "_ftime64");
  next(now);
  now->time += WallClockShift::Seconds();
}

}  // namespace

decltype(&Open) g_import_of_socket __asm__("__imp__socket@12") = &Open;
decltype(&Accept) g_import_of_accept __asm__("__imp__accept@12") = &Accept;
decltype(&Connect) g_import_of_connect __asm__("__imp__connect@12") = &Connect;
decltype(&Close) g_import_of_closesocket __asm__("__imp__closesocket@4") = &Close;
decltype(&Send) g_import_of_send __asm__("__imp__send@16") = &Send;
decltype(&Receive) g_import_of_recv __asm__("__imp__recv@16") = &Receive;
decltype(&Select) g_import_of_select __asm__("__imp__select@20") = &Select;
decltype(&BeginThread) g_import_of_beginthreadex __asm__("__imp___beginthreadex") = &BeginThread;
decltype(&GetTime) g_import_of_ftime __asm__("__imp___ftime64") = &GetTime;

void LinkHooks() {}

// Sockets of this process, those of the kit included.
std::size_t CountDescriptors() {
  const std::lock_guard<std::mutex> guard(g_lock);
  return g_open;
}

DescriptorLimit::DescriptorLimit(int more)
    : m_before(SetLimit(CountDescriptors() + static_cast<std::size_t>(more))) {}

DescriptorLimit::~DescriptorLimit() {
  SetLimit(m_before);
}

}  // namespace testkit
