#include "tests/support/tick_pace.h"

#include <chrono>
#include <mutex>
#include <utility>

#include "platform/platform.h"

namespace testkit {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

std::mutex g_lock;  // guards what follows
bool g_installed = false;
int g_rate = 1;
std::chrono::nanoseconds g_shown{0};  // the reading at the anchor
steady_clock::time_point g_anchor;

std::chrono::nanoseconds ShownNow() {
  return g_shown + (steady_clock::now() - g_anchor) * g_rate;
}

void Anchor(std::chrono::nanoseconds shown) {
  g_shown = shown;
  g_anchor = steady_clock::now();
}

int SetRate(int rate) {
  const std::lock_guard<std::mutex> guard(g_lock);
  Anchor(ShownNow());
  return std::exchange(g_rate, rate);
}

// Replaces the system's counter, at the same reading, when nobody did so yet.
void Install(std::uint32_t (*counter)()) {
  const std::lock_guard<std::mutex> guard(g_lock);
  if (std::exchange(g_installed, true)) return;
  // The system's counter may be just before its next millisecond, and must not be ahead of ours.
  Anchor(milliseconds(std::uint64_t{platform::TickCount()} + 1));
  platform::SetTickCounter(counter);
}

}  // namespace

TickPace::TickPace(int rate) {
  Install(&TickPace::Reading);
  m_rate_before = SetRate(rate);
}

TickPace::~TickPace() {
  SetRate(m_rate_before);
}

void TickPace::JumpTo(std::uint32_t reading) {
  const std::lock_guard<std::mutex> guard(g_lock);
  Anchor(milliseconds(reading));
}

std::uint32_t TickPace::Reading() {
  const std::lock_guard<std::mutex> guard(g_lock);
  const auto shown = std::chrono::duration_cast<milliseconds>(ShownNow());
  return static_cast<std::uint32_t>(shown.count());  // wraps after 2^32 ms, as the system's does
}

}  // namespace testkit
