#include "tests/campaign/host.h"

#include "00shcode/ftmtsockimpl/engine_msgs.h"
#include "client/client_slot.h"
#include "client/comm_thread.h"

namespace campaign {

namespace {

constexpr unsigned int kMessage = 0x0401;
constexpr std::chrono::seconds kInTime(20);

}  // namespace

Host::Host(std::vector<testkit::Endpoint> servers, Oracle* oracle)
    : m_oracle(oracle), m_servers(std::move(servers)) {}

Host::~Host() {
  for (const unsigned int window : m_older) FTDestroyWindow(window);
  if (m_window != 0) FTDestroyWindow(m_window);
}

// Nothing when memory ran out on the way.
template <typename Call>
auto Host::InTime(const char* name, Call call) {
  std::optional<decltype(call())> result;
  const auto begin = std::chrono::steady_clock::now();
  const int fail_at = m_fail_at;
  if (fail_at > 0) m_fail_at = 0;
  try {
    const MemoryLimit limit(fail_at, fail_at > 0 ? m_fail_count : 0);
    result = call();
  } catch (const std::bad_alloc&) {
    if (fail_at == 0) m_oracle->Fail(std::string(name) + " found no memory");
  }
  if (std::chrono::steady_clock::now() - begin > kInTime) {
    m_oracle->Fail(std::string(name) + " did not return in time");
  }
  return result;
}

void Host::FailAllocations(int nth, int count) {
  m_fail_at = nth;
  m_fail_count = count;
}

bool Host::IsRunning() const {
  return g_pClientCommThread != nullptr;
}

void Host::Play(const Step& step) {
  switch (step.act) {
    case Act::kTake:
      for (std::uint32_t left = step.a % 100; left > 0 && Take(1); --left) continue;
      break;
    case Act::kAsk:
      return AskMany(step, 1);
    case Act::kAskTogether:
      return AskMany(step, 2 + step.a % 3);
    case Act::kChangeWindow:
      return GiveWindow();
    case Act::kNoWindow:
      return ChangeTo(0);
    case Act::kDestroyWindow:
      TakeAll();
      if (m_window != 0) m_oracle->Blind();
      if (m_window != 0 &&
          InTime("FTDestroyWindow", [&] { return FTDestroyWindow(m_window); }) != 0) {
        m_oracle->Fail("a window cannot be destroyed");
      }
      m_window = 0;
      break;
    case Act::kNoMemory:
      return FailAllocations(1 + static_cast<int>(step.a % 30), step.b % 2 == 0 ? 1 : 1000);
    default:
      UnLink();
      if (step.a % 3 != 0) Link();
  }
}

int Host::Link() {
  if (m_window == 0) m_window = FTCreateWindow();
  m_oracle->Begin(m_servers.size(), m_window != 0);
  const bool was_running = IsRunning();
  const auto result =
      InTime("Link", [&] { return testkit::LinkClient(&m_client, m_servers, m_window, kMessage); });
  if (!result && IsRunning()) m_oracle->Fail("Link failed and left a client");
  if (result && *result != (was_running ? 0 : 1)) m_oracle->Fail("Link gave a wrong result");
  return result.value_or(0);
}

void Host::UnLink() {
  if (InTime("UnLink", [&] { return m_client.UnLink(); }) != 0) m_oracle->Fail("UnLink failed");
  if (IsRunning() || m_client.IsOnline() != 0) m_oracle->Fail("UnLink left a client");
  TakeAll();
  m_oracle->End();
  if (m_window != 0) m_older.push_back(std::exchange(m_window, 0));
}

bool Host::Ask(std::uint32_t thread, std::size_t size) {
  const Bytes body = m_oracle->MakeRequest(thread, size);
  if (thread == 0) m_last_asked = testkit::BigEndianAt(body, 0);
  const auto length = static_cast<unsigned int>(body.size());
  return InTime("AskData", [&] { return m_client.AskData(body.data(), length); }) == 0;
}

void Host::AskMany(const Step& step, std::uint32_t threads) {
  const std::uint32_t times = 1 + step.b % 20;
  const std::size_t size = step.b % 16 == 0 ? step.a % 500000 : step.a % 2000;
  if (threads == 1) {
    for (std::uint32_t i = 0; i < times; ++i) Ask(0, size);
    return;
  }
  m_fail_at = 0;
  const testkit::FaultFree guard;
  testkit::RunOnThreads(static_cast<int>(threads), [&](int thread) {
    for (std::uint32_t i = 0; i < times; ++i) {
      Ask(static_cast<std::uint32_t>(thread) + 1, size);
      const int online = m_client.IsOnline();
      if (online < 0 || online > 1) m_oracle->Fail("IsOnline gave a wrong result");
    }
  });
}

void Host::AskBalance(std::size_t server) {
  Bytes name = m_servers[server].host;
  char* answer = nullptr;
  m_oracle->Begin(m_servers.size(), false);
  const auto result = InTime("GetBalanceServer", [&] {
    return m_client.GetBalanceServer(name.data(), m_servers[server].port, 'A', &answer);
  });
  if (IsRunning()) m_oracle->Fail("GetBalanceServer left a client");
  if (result.value_or(0) != (answer == nullptr ? 0 : 1)) m_oracle->Fail("an odd balance answer");
  if (answer != nullptr) {
    const Bytes length = {answer[3], answer[2], answer[1], answer[0]};
    m_oracle->OnBody(Bytes(answer + 4, testkit::BigEndianAt(length, 0)));
  }
  m_client.FreeBuffer(answer);
  m_oracle->End();
}

void Host::GiveWindow() {
  const bool sees_again = m_window == 0;
  TakeAll();  // what is left was posted before the host went blind
  const unsigned int window = InTime("FTCreateWindow", &FTCreateWindow).value_or(0);
  if (window == 0) return;
  ChangeTo(window);
  if (sees_again) m_oracle->See();
}

void Host::ChangeTo(unsigned int window) {
  if (window == 0) TakeAll();
  if (window == 0) m_oracle->Blind();
  m_client.ChangeReceieveWnd(window, kMessage);
  if (m_window != 0) m_older.push_back(m_window);
  m_window = window;
}

// What an older window has was posted before anything in the newest.
bool Host::Take(int milliseconds) {
  FTWindowMsg newest{};
  const bool taken = m_window != 0 && FTWaitMessage(m_window, &newest, milliseconds) == 1;
  bool any = taken;
  for (const unsigned int window : m_older) {
    FTWindowMsg older{};
    while (FTWaitMessage(window, &older, 0) == 1) any = Handle(older, window);
  }
  if (taken) Handle(newest, m_window);
  return any;
}

// With news of a link that nobody knows.
void Host::WakeClient() {
  if (!IsRunning()) return;
  auto unknown = std::make_unique<FTLinkInfo>();
  unknown->link_id = "unknown";
  g_pClientCommThread->Post("", 1, FTConnectFailedMsg::Make(std::move(unknown)));
}

void Host::TakeAll() {
  while (Take(0)) continue;
}

bool Host::Handle(const FTWindowMsg& msg, unsigned int window) {
  if (msg.window != window || msg.message != kMessage) m_oracle->Fail("a foreign message");
  if (msg.wParam == 0) {
    m_oracle->OnEvent(msg.lParam);
  } else {
    char* const body = reinterpret_cast<char*>(msg.wParam);
    m_oracle->OnBody(Bytes(body, static_cast<std::size_t>(msg.lParam)));
    m_client.FreeBuffer(body);
  }
  return true;
}

void Host::CheckNothingIsPosted() {
  if (Take(0)) m_oracle->Fail("something was posted after the end of the client");
}

}  // namespace campaign
