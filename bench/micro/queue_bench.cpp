// Messages between threads: posted and handled, by the number of threads that post.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "00shcode/ftmsgq/ftmsgq.h"

namespace {

constexpr std::int64_t kMessagesPerPoster = 50000;
constexpr std::uint32_t kMessageId = 1000;
constexpr std::int32_t kWeight = 10;

// Counts what it handles, and signals whenever it has reached the next goal.
class CountingQueue : public CFTMsgQ {
 public:
  ~CountingQueue() override {
    StopThread();
    WaitThreadExit();
  }

  // Before anybody posts towards it.
  void SetGoal(std::int64_t messages) {
    m_goal = messages;
    m_reached = std::promise<void>();
  }
  void WaitForGoal() { m_reached.get_future().wait(); }

 protected:
  void OnMsg(FTMsg& msg, std::int32_t draining) override {
    if (msg.id != kMessageId) return CFTMsgQ::OnMsg(msg, draining);
    if (--m_goal == 0) m_reached.set_value();
  }

 private:
  std::int64_t m_goal = 0;
  std::promise<void> m_reached;
};

void Post(CountingQueue* queue, int poster) {
  const std::string key = "poster " + std::to_string(poster);
  for (std::int64_t i = 0; i < kMessagesPerPoster; ++i) queue->PostMsg(kMessageId, key, kWeight);
}

void BM_PostAndHandle(benchmark::State& state) {
  const auto posters = static_cast<int>(state.range(0));
  CountingQueue queue;
  if (queue.StartThread(0) != 0) return state.SkipWithError("no thread");
  for (auto _ : state) {
    queue.SetGoal(posters * kMessagesPerPoster);
    std::vector<std::thread> threads;
    for (int i = 0; i < posters; ++i) threads.emplace_back(Post, &queue, i);
    for (std::thread& thread : threads) thread.join();
    queue.WaitForGoal();
  }
  state.SetItemsProcessed(state.iterations() * posters * kMessagesPerPoster);
}

BENCHMARK(BM_PostAndHandle)->Arg(1)->Arg(2)->Arg(4)->Arg(8)->UseRealTime();

}  // namespace
