#include "bench/flood/observer.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iterator>

#include "bench/common/stop_watch.h"
#include "bench/flood/memory.h"

namespace flood {

namespace {

constexpr int kSeconds[] = {1, 2, 5, 10};
constexpr std::chrono::milliseconds kSampling(20);

std::string GetCell(double value, int decimals) {
  char text[64];
  std::snprintf(text, sizeof text, " %.*f |", decimals, value);
  return text;
}

template <typename Call>
void Time(double* longest_ms, Call call) {
  const bench::StopWatch watch;
  call();
  *longest_ms = std::max(*longest_ms, watch.GetMs());
}

}  // namespace

void Observer::Stop() {
  m_stopping = true;
  if (m_thread.joinable()) m_thread.join();
}

std::string Observer::GetCells() const {
  return m_memory_cells + GetCell(m_peak, 0) + GetCell(m_ask_ms, 1) + GetCell(m_online_ms, 1);
}

void Observer::Run() {
  const bench::StopWatch watch;
  const int* next = std::begin(kSeconds);
  while (!m_stopping) {
    const double memory = GetMemoryMiB();
    m_peak = std::max(m_peak, memory);
    if (next != std::end(kSeconds) && watch.GetMs() >= *next * 1000) {
      m_memory_cells += GetCell(memory, 0);
      ++next;
    }
    Time(&m_ask_ms, [this] { m_client->AskData("?", 1); });
    Time(&m_online_ms, [this] { m_client->IsOnline(); });
    std::this_thread::sleep_for(kSampling);
  }
}

}  // namespace flood
