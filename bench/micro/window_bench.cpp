// A window's messages: posted and taken by one thread, and from one thread to another.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <thread>

#include "client/ftwindow.h"
#include "platform/platform.h"

namespace {

constexpr std::int64_t kMessages = 5000;
constexpr unsigned int kMessage = 1;
constexpr int kPatienceMs = 10000;

// Owns the window.
class Window {
 public:
  Window() : m_number(FTCreateWindow()) {}
  ~Window() { FTDestroyWindow(m_number); }
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;

  void Post() const {
    for (std::intptr_t i = 0; i < kMessages; ++i) {
      const platform::WindowPost post{kMessage, 0, i};
      while (platform::PostToWindow(m_number, &post, 1, nullptr).posted == 0)
        std::this_thread::yield();
    }
  }

  // False: one is missing.
  bool Take() const {
    FTWindowMsg msg;
    for (std::intptr_t i = 0; i < kMessages; ++i) {
      if (FTWaitMessage(m_number, &msg, kPatienceMs) != 1 || msg.lParam != i) return false;
    }
    return true;
  }

 private:
  const unsigned int m_number;
};

void BM_WindowSameThread(benchmark::State& state) {
  const Window window;
  for (auto _ : state) {
    window.Post();
    if (!window.Take()) return state.SkipWithError("a message is missing");
  }
  state.SetItemsProcessed(state.iterations() * kMessages);
}

void BM_WindowTwoThreads(benchmark::State& state) {
  const Window window;
  for (auto _ : state) {
    std::thread poster([&window] { window.Post(); });
    const bool complete = window.Take();
    poster.join();
    if (!complete) return state.SkipWithError("a message is missing");
  }
  state.SetItemsProcessed(state.iterations() * kMessages);
}

BENCHMARK(BM_WindowSameThread);
BENCHMARK(BM_WindowTwoThreads)->UseRealTime();

}  // namespace
