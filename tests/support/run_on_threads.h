#pragma once

#include <thread>
#include <vector>

namespace testkit {

// Runs work(0) to work(count - 1) at once, each on a thread of its own, and joins them all.
template <typename Work>
void RunOnThreads(int count, const Work& work) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i) threads.emplace_back([&work, i] { work(i); });
  for (std::thread& thread : threads) thread.join();
}

}  // namespace testkit
