#include "tests/support/release_counter.h"

#include <atomic>

#include "tests/support/wait_until.h"

namespace testkit {

namespace {

std::atomic<int> g_count{0};

}  // namespace

ReleaseCounter::ReleaseCounter() {
  g_count = 0;
}

void ReleaseCounter::Release(CFTBuffer* buffer) {
  ReleaseFTBuffer(buffer);
  ++g_count;
}

int ReleaseCounter::Count() const {
  return g_count;
}

bool ReleaseCounter::Reaches(int count, std::chrono::milliseconds limit) const {
  return WaitUntil([&] { return g_count == count; }, limit);
}

}  // namespace testkit
