#include <atomic>

#include "platform/backend.h"

namespace platform {

namespace {

std::atomic<std::uint32_t (*)()> g_counter{&backend::TickCount};

}  // namespace

std::uint32_t TickCount() {
  return g_counter.load(std::memory_order_acquire)();
}

void SetTickCounter(std::uint32_t (*counter)()) {
  g_counter.store(counter != nullptr ? counter : &backend::TickCount, std::memory_order_release);
}

}  // namespace platform
