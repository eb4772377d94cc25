#include "bench/versus/run.h"

#include <cstring>
#include <stdexcept>
#include <string>

#include "bench/versus/usage.h"

namespace versus {

namespace {

constexpr std::uint64_t kPipelineSamplingStep = 64;

[[noreturn]] void Fail(const std::string& what, std::uint64_t n, std::uint64_t count) {
  throw std::runtime_error(what + " " + std::to_string(n) + " of " + std::to_string(count));
}

}  // namespace

Run::Run(const Job& job, bool full_compare, Contender* contender)
    : m_job(job),
      m_full_compare(full_compare),
      m_bodies(job.bodies, job.size),
      m_contender(contender),
      m_sampling_step(job.kind == JobKind::kRoundTrip ? 1 : kPipelineSamplingStep) {}

Run::Result Run::Execute() {
  const double cpu_before = GetCpuSeconds();
  const auto begin = Clock::now();
  if (m_job.kind == JobKind::kPush) {
    Push();
  } else {
    Request();
  }
  const std::chrono::duration<double> seconds = Clock::now() - begin;
  const double cpu_seconds = GetCpuSeconds() - cpu_before;
  const auto count = static_cast<double>(m_job.count);
  return {count / seconds.count(), GetPercentile(&m_times_us, 0.5),
          GetPercentile(&m_times_us, 0.99), cpu_seconds * 1e6 / count};
}

void Run::Push() {
  const std::string command = m_job.Command();
  if (!m_contender->Send(command.data(), static_cast<std::uint32_t>(command.size()))) {
    throw std::runtime_error("the command was refused");
  }
  for (std::uint64_t n = 0; n < m_job.count; ++n) {
    if (!m_job.IsDamaged(n)) TakeBody(n);
  }
}

void Run::Request() {
  const std::string command = m_job.Command();
  if (!m_contender->Send(command.data(), static_cast<std::uint32_t>(command.size()))) {
    throw std::runtime_error("the command was refused");
  }
  const std::uint64_t most = m_job.GetOutstanding();
  std::uint64_t sent = 0;
  for (std::uint64_t answered = 0; answered < m_job.count; ++answered) {
    while (sent < m_job.count && sent - answered < most && SendRequest(sent)) ++sent;
    if (sent == answered) Fail("refused request", sent, m_job.count);
    TakeAnswer(answered);
  }
}

bool Run::SendRequest(std::uint64_t n) {
  const std::string& body = m_bodies.Of(n);
  const bool sampled = n % m_sampling_step == 0;
  if (sampled) m_sampled.push_back(Clock::now());
  const bool sent = m_contender->Send(body.data(), static_cast<std::uint32_t>(body.size()));
  if (sampled && !sent) m_sampled.pop_back();
  return sent;
}

void Run::TakeAnswer(std::uint64_t n) {
  TakeBody(n);
  if (n % m_sampling_step != 0) return;
  const std::chrono::duration<double, std::micro> time = Clock::now() - m_sampled.front();
  m_sampled.pop_front();
  m_times_us.push_back(time.count());
}

void Run::TakeBody(std::uint64_t n) {
  Body body;
  if (!m_contender->Take(&body)) Fail("missing body", n, m_job.count);
  const std::string& expected = m_bodies.Of(n);
  const std::size_t middle = expected.size() / 2;
  const bool right = body.length == expected.size() &&
                     (m_full_compare ? std::memcmp(body.data, expected.data(), expected.size()) == 0
                                     : expected.empty() || body.data[middle] == expected[middle]);
  m_contender->Free(body);
  if (!right) Fail("wrong body", n, m_job.count);
}

}  // namespace versus
