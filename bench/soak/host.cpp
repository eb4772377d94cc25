#include "bench/soak/host.h"

#include <malloc.h>

#include <chrono>
#include <cstdio>
#include <stdexcept>

#include "bench/common/process.h"

namespace soak {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kBurstInterval{20};
constexpr int kBurst = 6;
constexpr std::uint64_t kMostUnderWay = 64;
constexpr int kPatienceBursts = 1500;  // half a minute without an answer

double GetHeapKiB() {
  const auto heap = mallinfo2();
  return static_cast<double>(heap.uordblks + heap.hblkhd) / 1024;
}

}  // namespace

Host::Host(int number, std::uint16_t port)
    : m_number(number), m_heap_before(GetHeapKiB()), m_window(FTCreateWindow()) {
  m_client.Link("127.0.0.1", port, "", 0, "", 0, "", 0, "", 0, m_window, 1);
}

Host::~Host() {
  m_client.UnLink();
  FTDestroyWindow(m_window);
}

void Host::Run(int seconds) {
  const auto begin = Clock::now();
  int idle_bursts = 0;
  for (int second = 0; second < seconds; ++second) {
    for (int burst = 1; burst <= 50; ++burst) {
      const std::uint64_t before = m_packages;
      if (m_up) Ask();
      const auto end = begin + std::chrono::seconds(second) + burst * kBurstInterval;
      for (FTWindowMsg msg; Clock::now() < end;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        if (FTWaitMessage(m_window, &msg, static_cast<int>(left.count())) == 1) Take(msg);
      }
      idle_bursts = m_packages == before ? idle_bursts + 1 : 0;
      if (idle_bursts > kPatienceBursts) throw std::runtime_error("soak: no answer any more");
    }
    PrintFigures(second);
  }
  m_client.UnLink();
  for (FTWindowMsg msg; FTWaitMessage(m_window, &msg, 0) == 1;) Take(msg);
  std::printf("left,%d,%.1f\n", m_number, GetHeapKiB() - m_heap_before);
}

std::string Host::MakeBody(std::uint64_t request) const {
  std::string body = std::to_string(m_number) + ' ' + std::to_string(m_losses) + ' ' +
                     std::to_string(request) + ' ';
  body.resize(body.size() + request * 37 % 3000, static_cast<char>('a' + request % 26));
  return body;
}

void Host::Ask() {
  for (int i = 0; i < kBurst && m_asked - m_answered < kMostUnderWay; ++i) {
    const std::string body = MakeBody(m_asked);
    if (m_client.AskData(body.data(), static_cast<unsigned int>(body.size())) == 0) ++m_asked;
  }
}

void Host::Take(const FTWindowMsg& msg) {
  if (msg.wParam != 0) {
    TakeBody(reinterpret_cast<char*>(msg.wParam), static_cast<std::size_t>(msg.lParam));
    return;
  }
  // A link that is reset before the client has seen it is an attempt that failed.
  if (!m_up && msg.lParam == LINK_EVENT_CONNECT_FAILED) return;
  if (msg.lParam != (m_up ? LINK_EVENT_CLOSED : LINK_EVENT_UP)) {
    throw std::runtime_error("soak: unexpected link event " + std::to_string(msg.lParam));
  }
  m_up = !m_up;
  if (m_up) return;
  ++m_losses;
  m_asked = 0;
  m_answered = 0;
}

void Host::TakeBody(char* body, std::size_t length) {
  const bool expected = m_up && std::string(body, length) == MakeBody(m_answered);
  m_client.FreeBuffer(body);
  if (!expected) throw std::runtime_error("soak: wrong answer " + std::to_string(m_answered));
  ++m_answered;
  ++m_packages;
  m_bytes += length;
}

void Host::PrintColumns() {
  std::puts("second,client,memory KiB,heap KiB,threads,descriptors,CPU s,losses,packages,bytes");
  std::fflush(stdout);
}

void Host::PrintFigures(int second) const {
  const auto self = bench::Process::Self();
  std::printf(
      "%d,%d,%.0f,%.1f,%d,%d,%.3f,%llu,%llu,%llu\n", second, m_number, self.GetMemoryMiB() * 1024,
      GetHeapKiB(), self.GetThreadCount(), self.GetDescriptorCount(),
      bench::Process::GetOwnUsage().cpu_seconds, static_cast<unsigned long long>(m_losses),
      static_cast<unsigned long long>(m_packages), static_cast<unsigned long long>(m_bytes));
  std::fflush(stdout);  // whole lines, since all clients write to one file
}

}  // namespace soak
