#include "tests/support/process_usage.h"

#include <thread>

#include "tests/support/wait_until.h"

namespace testkit {

namespace {

std::string Change(const char* what, std::size_t before, std::size_t now) {
  return std::string(what) + ": " + std::to_string(before) + " before, " + std::to_string(now) +
         " now";
}

}  // namespace

HeldResources::HeldResources() {
  std::thread([] {}).join();  // the first thread of all may bring a sanitizer's own with it
  m_handles = CountHandles();
  m_threads = CountThreads();
}

bool HeldResources::AreRestored(std::chrono::milliseconds limit) const {
  return WaitUntil([this] { return CountHandles() == m_handles && CountThreads() == m_threads; },
                   limit);
}

std::string HeldResources::Difference() const {
  return Change("handles", m_handles, CountHandles()) + "; " +
         Change("threads", m_threads, CountThreads());
}

}  // namespace testkit
