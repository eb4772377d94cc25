#include "tests/campaign/player.h"

#include "client/client_slot.h"
#include "client/comm_thread.h"
#include "tests/support/test_protocol.h"

namespace campaign {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kRecovery = 30s;
constexpr std::uint32_t kPassing = 500;  // ticks for each millisecond that brings nothing

}  // namespace

Player::Player(const Schedule& schedule)
    : m_schedule(schedule),
      m_servers(schedule.Entries(), &m_oracle),
      m_host(m_servers.Endpoints(), &m_oracle) {}

void Player::Play() {
  m_host.Link();
  AwaitUp(100ms);
  for (const Step& step : m_schedule.Steps()) {
    PlayStep(step);
    m_oracle.Check();
  }
  Recover();
  m_host.UnLink();
  m_host.CheckNothingIsPosted();
  if (CMyThread::GetThreadCount() != 0) m_oracle.Fail("threads are left");
  m_oracle.Check();
}

void Player::PlayStep(const Step& step) {
  if (step.act < Act::kAwaitUp) {
    m_servers.Play(step);
  } else if (step.act == Act::kAwaitUp) {
    AwaitUp(100ms);
  } else if (step.act == Act::kBalance) {
    m_machine.EndFaults();
    m_servers.Heal();
    m_host.UnLink();
    m_host.AskBalance(m_servers.FirstServer());
    m_host.Link();
  } else if (step.act < Act::kTicks || step.act == Act::kNoMemory) {
    m_crippled = m_machine.LacksThreads() || (m_crippled && step.act != Act::kRelink);
    m_host.Play(step);
  } else if (step.act == Act::kTicks) {
    static constexpr std::uint32_t kTicks[] = {100, 2100, 10100, 16000, 36000};
    LetPass(kTicks[step.a % std::size(kTicks)]);
  } else {
    if (step.act == Act::kWallClock) m_oracle.WatchdogMayBite();
    if (m_machine.Play(step)) m_oracle.SpoilAll();
    m_crippled |= m_machine.LacksThreads();
  }
}

void Player::LetPass(std::uint32_t milliseconds) {
  m_oracle.TicksPass(milliseconds);
  m_machine.LetPass(milliseconds);
  m_host.WakeClient();
}

bool Player::AwaitUp(std::chrono::milliseconds limit) {
  const auto end = Clock::now() + limit;
  while (!m_oracle.IsUp() && Clock::now() < end) {
    if (!m_host.Take(1)) LetPass(kPassing);
    m_oracle.Check();
  }
  return m_oracle.IsUp();
}

void Player::Recover() {
  m_machine.EndFaults();
  m_host.FailAllocations(0, 0);
  m_servers.Heal();
  if (m_crippled) m_host.UnLink();
  if (!m_host.IsRunning()) m_host.Link();
  if (!m_host.HasWindow()) m_host.GiveWindow();
  AskUntilAnswered();
  LoseLink();
  AskUntilAnswered();
  WaitForEmptyCounters();
}

// A link that is well loses nothing when it ends in order.
void Player::LoseLink() {
  const int attempts = m_oracle.Attempts();
  const auto end = Clock::now() + kRecovery;
  m_servers.Play({Act::kPackages, 20, 500});
  m_servers.Play({Act::kHalfClose, 0, 0});
  while (m_oracle.Attempts() == attempts && Clock::now() < end) {
    m_host.Take(1);
    m_oracle.Check();
  }
  if (m_oracle.Attempts() == attempts) throw std::runtime_error("the end of a link is not told");
}

// A link that was up may still be about to end, and take the request with it.
void Player::AskUntilAnswered() {
  const auto end = Clock::now() + kRecovery;
  const int most_attempts = m_oracle.Attempts() + static_cast<int>(m_schedule.Entries().size()) + 4;
  do {
    if (Clock::now() > end) throw std::runtime_error("the client does not recover");
    if (m_oracle.Attempts() > most_attempts) throw std::runtime_error("too many attempts");
    if (!AwaitUp(100ms)) continue;
    const bool known = m_oracle.KnowsItIsUp();
    const int attempts = m_oracle.Attempts();
    m_host.Ask(0, 10);
    const std::uint32_t asked = m_host.LastAsked();
    const auto limit = Clock::now() + (known ? 10000ms : 50ms);
    while (m_oracle.IsUp() && m_oracle.LastAnswered() != asked && Clock::now() < limit) {
      m_host.Take(1);
      m_oracle.Check();
    }
    if (m_oracle.LastAnswered() == asked) return;
    if (known && m_oracle.IsUp() && m_oracle.Attempts() == attempts) {
      throw std::runtime_error("no answer on a link that is up");
    }
    LetPass(kPassing);
  } while (true);
}

// Links that ended keep what they had until they are deleted.
void Player::WaitForEmptyCounters() {
  FTEngineState& state = testkit::StateOf(*g_pClientCommThread);
  const auto end = Clock::now() + kRecovery;
  while (state.queued_send_bytes != 0 || state.recv_backlog.GetBytes() != 0) {
    if (Clock::now() > end) throw std::runtime_error("the engine's counters stay above zero");
    m_servers.SendHeartbeats();
    LetPass(kPassing);
    m_host.Take(1);
    m_oracle.Check();
  }
}

}  // namespace campaign
