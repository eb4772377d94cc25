#include "tools/host/echo_bench.h"

#include <algorithm>
#include <optional>

#include "tools/common/body_text.h"
#include "tools/common/count_text.h"
#include "tools/common/interrupt.h"

namespace {

constexpr int kLookAroundMs = 50;
constexpr std::int32_t kAnswerWaitSec = 5;
constexpr int kDigits = 8;

double SecondsOf(std::chrono::steady_clock::duration time) {
  return std::chrono::duration<double>(time).count();
}

}  // namespace

EchoBench::EchoBench(const BenchOptions& options)
    : m_options(options),
      m_name(ShowEndpoint(options.server)),
      m_body(static_cast<std::size_t>(options.size), '.') {}

BenchResult EchoBench::Run() {
  const Endpoint& server = m_options.server;
  m_client.Link(server.host.c_str(), server.port, "", 0, "", 0, "", 0, "", 0, m_window.Window(),
                m_window.MessageNumber());
  AwaitLink();
  if (m_options.warm_up_sec > 0) Measure(m_options.warm_up_sec, 0);
  const BenchResult result = Measure(m_options.seconds, m_options.count);
  CheckNoneIsLeft();
  m_client.UnLink();
  if (result.latencies.GetCount() == 0) throw BenchFault("stopped before anything was measured");
  return result;
}

void EchoBench::AwaitLink() {
  while (!IsInterrupted()) {
    const auto got = m_window.Wait(kLookAroundMs);
    if (!got) continue;
    if (got->link_event == LINK_EVENT_UP) return;
    throw BenchFault("no link to " + m_name);
  }
}

// Sends for that long, or that many when a count is given, and waits for what is not answered yet.
BenchResult EchoBench::Measure(std::int32_t seconds, std::int64_t count) {
  BenchResult result;
  const Clock::time_point start = Clock::now();
  const Clock::time_point end = start + std::chrono::seconds(seconds);
  const std::int64_t last = m_answered + count;
  const auto most = static_cast<std::size_t>(m_options.in_flight);
  const auto may_send = [&] {
    const std::int64_t made = m_answered + static_cast<std::int64_t>(m_sent.size());
    return !IsInterrupted() && (count > 0 ? made < last : Clock::now() < end);
  };
  for (bool sending = true; sending || !m_sent.empty();) {
    while (sending && m_sent.size() < most) {
      sending = may_send();
      if (sending) Send();
    }
    if (!m_sent.empty()) TakeAnswer(&result.latencies);
  }
  result.seconds = SecondsOf(Clock::now() - start);
  return result;
}

void EchoBench::Send() {
  const std::string& body = MakeBody(m_answered + static_cast<std::int64_t>(m_sent.size()));
  m_sent.push_back(Clock::now());
  if (m_client.AskData(body.data(), static_cast<unsigned int>(body.size())) != 0) {
    throw BenchFault("the link to " + m_name + " was lost");
  }
}

void EchoBench::TakeAnswer(LatencyHistogram* latencies) {
  const auto got = m_window.Wait(kAnswerWaitSec * 1000);
  const Clock::time_point now = Clock::now();
  const std::string after = " after " + ShowCount(m_answered, "answer");
  if (!got) {
    throw BenchFault("no answer from " + m_name + " within " + ShowCount(kAnswerWaitSec, "second") +
                     after + ": is it an echo server?");
  }
  if (!got->IsPackage()) throw BenchFault("the link to " + m_name + " was lost" + after);
  CheckAnswer(got->body);
  latencies->Count(std::chrono::nanoseconds(now - m_sent.front()).count());
  m_sent.pop_front();
  ++m_answered;
}

void EchoBench::CheckAnswer(const std::string& answer) {
  const std::string& request = MakeBody(m_answered);
  if (answer == request) return;
  throw BenchFault(m_name + " does not echo: asked " +
                   ShowBodyShort(request.data(), request.size()) + "; answered " +
                   ShowBodyShort(answer.data(), answer.size()));
}

// Bodies that are short or empty may all be equal.
void EchoBench::CheckNoneIsLeft() {
  const auto got = m_window.Wait(kLookAroundMs);
  if (got && got->IsPackage()) throw BenchFault(m_name + " does not echo: it answered too often");
}

// Letters that tell the request's number, as many as fit, in front of what all bodies have.
const std::string& EchoBench::MakeBody(std::int64_t number) {
  std::size_t at = std::min(m_body.size(), std::size_t{kDigits});
  for (std::int64_t left = number; at > 0; left /= 26) {
    m_body[--at] = static_cast<char>('a' + left % 26);
  }
  return m_body;
}
