#include "tests/support/socket_fault_hooks.h"

#include <winsock2.h>

#include <cerrno>

#include "tests/support/win32/import.h"

namespace testkit {

namespace {

constexpr char kWinsock[] = "ws2_32.dll";

constexpr struct {
  int error;  // errno value
  int system_error;
} kErrors[] = {
    {EINTR, WSAEINTR},
    {EAGAIN, WSAEWOULDBLOCK},
    {ECONNRESET, WSAECONNRESET},
    {ETIMEDOUT, WSAETIMEDOUT},
};

int SystemError(int error) {
  for (const auto& row : kErrors) {
    if (row.error == error) return row.system_error;
  }
  return error;
}

int ErrorOf(int system_error) {
  for (const auto& row : kErrors) {
    if (row.system_error == system_error) return row.error;
  }
  return system_error;
}

// move(count) is the system's own function.
template <typename Move>
int MoveAsPlanned(FaultyCall call, SOCKET socket, int asked, Move move) {
  const int fault = TakeFault(call);
  const auto bytes = static_cast<std::size_t>(asked);
  const int result = fault != 0 ? SOCKET_ERROR : move(static_cast<int>(AllowedBytes(call, bytes)));
  const int error = fault != 0 ? SystemError(fault) : WSAGetLastError();
  const int seen_error = result < 0 ? ErrorOf(error) : 0;
  RecordCall(call, {static_cast<int>(socket), bytes, result, seen_error});
  if (result < 0) WSASetLastError(error);
  return result;
}

int WSAAPI Send(SOCKET socket, const char* data, int size, int flags) {
  static const auto next = SystemFunction<decltype(&::send)>(kWinsock, "send");
  if (!AreFaultsActive()) return next(socket, data, size, flags);
  return MoveAsPlanned(FaultyCall::kSend, socket, size,
                       [&](int count) { return next(socket, data, count, flags); });
}

int WSAAPI Receive(SOCKET socket, char* buffer, int size, int flags) {
  static const auto next = SystemFunction<decltype(&::recv)>(kWinsock, "recv");
  if (!AreFaultsActive()) return next(socket, buffer, size, flags);
  return MoveAsPlanned(FaultyCall::kReceive, socket, size,
                       [&](int count) { return next(socket, buffer, count, flags); });
}

int WSAAPI Select(int count, fd_set* read, fd_set* write, fd_set* except, const timeval* limit) {
  using Function = int(WSAAPI*)(int, fd_set*, fd_set*, fd_set*, const timeval*);
  static const auto next = SystemFunction<Function>(kWinsock, "select");
  if (const int fault = AreFaultsActive() ? TakeFault(FaultyCall::kPoll) : 0) {
    WSASetLastError(SystemError(fault));
    return SOCKET_ERROR;
  }
  return next(count, read, write, except, limit);
}

}  // namespace

void LinkSocketHooks() {}

decltype(&Send) g_import_of_send __asm__("__imp__send@16") = &Send;
decltype(&Receive) g_import_of_recv __asm__("__imp__recv@16") = &Receive;
decltype(&Select) g_import_of_select __asm__("__imp__select@20") = &Select;

}  // namespace testkit
