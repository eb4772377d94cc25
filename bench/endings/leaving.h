#pragma once

#include <chrono>
#include <cstdint>

namespace endings {

enum class ObjectOfExit { kGlobal, kOnHeap };

// Lets a process of its own leave with a client that is flooded both ways, as by a return from
// main, without UnLink. How many milliseconds it takes to end. Throws std::runtime_error when it
// does not end well. To be called while this process has one thread.
double TimeExit(std::uint16_t server_port, std::chrono::microseconds time, ObjectOfExit object);

}  // namespace endings
