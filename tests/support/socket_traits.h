// In what the systems' sockets differ, where a test has to know.
#pragma once

#include <chrono>
#include <filesystem>

#include "tests/support/scripted_server.h"

namespace testkit {

constexpr bool IsWin32() {
  return std::filesystem::path::preferred_separator == '\\';
}

// Whether a connect that failed makes its socket writable; Windows tells of it as an exception.
constexpr bool FailedConnectsAreWritable() {
  return !IsWin32();
}

// What WaitClosed tells of a link that was reset. Emulated sockets may end in order first.
inline LinkEnd EndOfResetLinks() {
  constexpr std::chrono::seconds kLimit{5};
  ScriptedServer server;
  Peer caller = Peer::Connect(server.Port(), kLimit);
  server.Accept(kLimit).Reset();
  return caller.WaitClosed(kLimit);
}

}  // namespace testkit
