// For the functions of this program that stand before the system's (in posix/hooks.cpp and
// win32/hooks.cpp): what tests order by way of SocketFaults and FailNext...
#pragma once

#include <cstddef>
#include <functional>

namespace testkit {

// Brings the hooks into this program, which alone makes them stand before the system's functions.
void LinkHooks();

enum class Hooked { kSend, kReceive, kPoll, kConnect, kAccept };

// The next calls do nothing but fail, with this errno value or number of the system's.
void OrderFailures(Hooked call, int error, int count);

// For the hooks: whether the call is to fail instead; the thread's last error is set then.
bool Fails(Hooked call);
// Carries out a send or a receive as ordered. move(count) is the system's own function.
std::ptrdiff_t Move(Hooked call, std::size_t asked,
                    const std::function<std::ptrdiff_t(std::size_t count)>& move);

}  // namespace testkit
