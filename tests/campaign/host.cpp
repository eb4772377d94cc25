#include "tests/campaign/host.h"

#include <future>

#include "00shcode/ftmtsockimpl/engine_msgs.h"
#include "client/comm_thread.h"

namespace campaign {

namespace {

constexpr unsigned int kMessage = 0x0401;
constexpr std::chrono::seconds kInTime(20);

}  // namespace

Host::Host(const Servers& servers, Oracle* oracle)
    : m_oracle(oracle), m_servers(servers.Endpoints()), m_usable(servers.Usable()) {}

Host::~Host() {
  for (const unsigned int window : m_older) FTDestroyWindow(window);
  if (m_window != 0) FTDestroyWindow(m_window);
}

// Nothing when memory ran out on the way.
template <typename Call>
auto Host::InTime(const char* name, Call call) {
  std::optional<decltype(call())> result;
  const auto begin = std::chrono::steady_clock::now();
  const int fail_at = std::exchange(m_fail_at, 0);
  try {
    const testkit::MemoryLimit limit(fail_at, fail_at > 0 ? m_fail_count : 0);
    result = call();
  } catch (const std::bad_alloc&) {
    if (fail_at == 0) throw Fault(std::string(name) + " found no memory");
  }
  if (std::chrono::steady_clock::now() - begin > kInTime) {
    throw Fault(std::string(name) + " did not return in time");
  }
  return result;
}

void Host::FailAllocations(int nth, int count) {
  m_fail_at = nth;
  m_fail_count = count;
}

void Host::Link() {
  if (m_window == 0) m_window = FTCreateWindow();
  m_oracle->Begin(m_usable, m_window != 0);
  const bool was_running = IsRunning();
  const auto result =
      InTime("Link", [&] { return testkit::LinkClient(&m_client, m_servers, m_window, kMessage); });
  Require(result || was_running || !IsRunning(), "Link failed and left a client");
  Require(!result || *result == (was_running ? 0 : 1), "Link gave a wrong result");
}

void Host::UnLink() {
  Require(InTime("UnLink", [&] { return m_client.UnLink(); }) == 0, "UnLink failed");
  Require(!IsRunning() && m_client.IsOnline() == 0, "UnLink left a client");
  TakeAll();
  m_oracle->End();
  Require(!Take(0), "something was posted after the end of the client");
  if (m_window != 0) m_older.push_back(std::exchange(m_window, 0));
}

void Host::Ask(std::size_t size) {
  const Bytes body = m_oracle->MakeRequest(0, size);
  m_last_asked = testkit::BigEndianAt(body, 0);
  const auto length = static_cast<unsigned int>(body.size());
  InTime("AskData", [&] { return m_client.AskData(body.data(), length); });
}

void Host::AskTogether(int threads, std::uint32_t times, std::size_t size) {
  std::vector<std::vector<Bytes>> bodies(static_cast<std::size_t>(threads));
  for (std::uint32_t thread = 0; thread < bodies.size(); ++thread) {
    while (bodies[thread].size() < times) {
      bodies[thread].push_back(m_oracle->MakeRequest(thread + 1, size));
    }
  }
  std::atomic<bool> well{true};
  const testkit::FaultFree guard;  // for starting them
  InTime("AskData", [&] {
    testkit::RunOnThreads(threads, [&](int thread) {
      for (const Bytes& body : bodies[static_cast<std::size_t>(thread)]) {
        m_client.AskData(body.data(), static_cast<unsigned int>(body.size()));
        m_client.ChangeReceieveWnd(m_window, kMessage);
        const int online = m_client.IsOnline();
        if (online < 0 || online > 1) well = false;
      }
    });
    return 0;
  });
  Require(well, "IsOnline gave a wrong result");
}

void Host::AskBalance(std::size_t server, const std::function<void()>& meanwhile) {
  const auto& [name, port] = m_servers[server];
  m_oracle->Begin(m_usable, false);
  const auto answer = InTime("GetBalanceServer", [&, host = name, at = port] {
    auto asking = std::async(&testkit::AskBalance, &m_client, host, at, 'A');
    while (asking.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) meanwhile();
    return asking.get();
  });
  if (answer && *answer) m_oracle->OnBody(**answer);
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

void Host::TakeWindowAway() {
  TakeAll();
  m_oracle->Blind();
  ChangeTo(0);
}

void Host::DestroyWindow() {
  TakeAll();
  if (m_window == 0) return;
  m_oracle->Blind();
  Require(InTime("FTDestroyWindow", [&] { return FTDestroyWindow(m_window); }) == 0,
          "a window cannot be destroyed");
  m_window = 0;
}

void Host::ChangeTo(unsigned int window) {
  m_client.ChangeReceieveWnd(window, kMessage);
  if (m_window != 0) m_older.push_back(m_window);
  m_window = window;
}

// What an older window has was posted before anything in the newest.
bool Host::Take(int milliseconds) {
  FTWindowMsg newest{}, older{};
  const bool taken = m_window != 0 && FTWaitMessage(m_window, &newest, milliseconds) == 1;
  bool any = taken;
  for (const unsigned int window : m_older) {
    while (FTWaitMessage(window, &older, 0) == 1) {
      Handle(older, window);
      any = true;
    }
  }
  if (taken) Handle(newest, m_window);
  return any;
}

void Host::TakeAll() {
  while (Take(0)) continue;
}

// With news of a link that nobody knows.
void Host::WakeClient() {
  if (!IsRunning()) return;
  auto unknown = std::make_unique<FTLinkInfo>();
  unknown->link_id = "unknown";
  g_pClientCommThread->Post("", 1, FTConnectFailedMsg::Make(std::move(unknown)));
}

void Host::Handle(const FTWindowMsg& msg, unsigned int window) {
  Require(msg.window == window && msg.message == kMessage, "a foreign message");
  if (msg.wParam == 0) return m_oracle->OnEvent(msg.lParam);
  char* const body = reinterpret_cast<char*>(msg.wParam);
  m_oracle->OnBody(Bytes(body, static_cast<std::size_t>(msg.lParam)));
  m_client.FreeBuffer(body);
}

}  // namespace campaign
