#include "tests/support/tick_source.h"

#include <chrono>
#include <mutex>

#include "platform/platform.h"

namespace testkit {

namespace {

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

}  // namespace

void TickSource::Install() {
  const std::lock_guard<std::mutex> guard(g_lock);
  if (g_installed) return;
  // The system's counter may be just before its next millisecond, and must not be ahead of ours.
  Anchor(std::chrono::milliseconds(std::uint64_t{platform::TickCount()} + 1));
  platform::SetTickCounter(&TickSource::Read);
  g_installed = true;
}

int TickSource::SetRate(int rate) {
  const std::lock_guard<std::mutex> guard(g_lock);
  Anchor(ShownNow());
  const int before = g_rate;
  g_rate = rate;
  return before;
}

void TickSource::JumpTo(std::uint32_t milliseconds) {
  const std::lock_guard<std::mutex> guard(g_lock);
  Anchor(std::chrono::milliseconds(milliseconds));
}

std::uint32_t TickSource::Read() {
  const std::lock_guard<std::mutex> guard(g_lock);
  const auto shown = std::chrono::duration_cast<std::chrono::milliseconds>(ShownNow());
  return static_cast<std::uint32_t>(shown.count());  // wraps after 2^32 ms, as the system's does
}

}  // namespace testkit
