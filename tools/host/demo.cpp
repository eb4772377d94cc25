#include "tools/host/demo.h"

#include <cstdio>
#include <exception>
#include <memory>
#include <stdexcept>

#include "00shcode/mytoolkit/clock.h"
#include "tools/common/console.h"
#include "tools/common/endpoint.h"
#include "tools/host/balance_answer.h"
#include "tools/server/push_schedule.h"

namespace {

constexpr std::int32_t kStepLimitMs = 20000;
constexpr int kPushedPackages = 3;
constexpr unsigned char kBalanceQuestion = 7;
constexpr char kBalanceAnswer[] = "quotes-2.example:9000";

void Tell(const std::string& text) {
  PrintLine("      " + text);
}

std::string Quote(const std::string& text) {
  return "\"" + text + "\"";
}

DevServer::Report ReportAs(const std::string& server) {
  return [server](const std::string& line) { Tell("[server " + server + "] " + line); };
}

ServerSettings PushingServer() {
  ServerSettings settings;
  settings.echo = true;
  settings.make_behaviour = [](const FTTime& start) {
    return std::make_unique<PushSchedule>(PushPlan{5, 16, 0}, start);
  };
  return settings;
}

ServerSettings BalanceServer() {
  ServerSettings settings;
  settings.echo = true;
  settings.answers_balance = true;
  settings.balance_answer = kBalanceAnswer;
  return settings;
}

}  // namespace

bool Demo::Run() {
  const FTTime start = ft::GetTickTime();
  try {
    RunSteps();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "ftc: step %d (%s) failed: %s\n", m_step, m_title.c_str(), error.what());
    m_client.UnLink();
    return false;
  }
  PrintLine("All " + std::to_string(m_step) + " steps happened, in " +
            std::to_string(ft::DiffMs(ft::GetTickTime(), start)) + " ms.");
  return true;
}

void Demo::RunSteps() {
  Step("Start server A and server B", [this] { StartServers(); });
  Step("Link to A, with B as the next server", [this] { LinkToServers(); });
  Step("Ask A something", [this] { Ask("hello A"); });
  Step("Take packages that A sends unasked", [this] { TakePushedPackages(); });
  Step("Take server A away", [this] { TakeServerAway(); });
  Step("Wait until the client has moved on to B", [this] { AwaitNextServer(); });
  Step("Ask B something", [this] { Ask("hello B"); });
  Step("End the client", [this] { EndClient(); });
  Step("Ask B the balance question, on a link of its own", [this] { AskForBalance(); });
  Step("Stop server B", [this] { m_server_b.reset(); });
}

void Demo::Step(const std::string& title, const std::function<void()>& act) {
  ++m_step;
  m_title = title;
  m_step_start = ft::GetTickTime();
  PrintLine((m_step < 10 ? " " : "") + std::to_string(m_step) + ". " + title);
  act();
  Tell("done after " + std::to_string(ft::DiffMs(ft::GetTickTime(), m_step_start)) + " ms");
}

void Demo::StartServers() {
  m_server_a.emplace(PushingServer(), ReportAs("A"));
  m_server_b.emplace(BalanceServer(), ReportAs("B"));
  if (!m_server_a->Start() || !m_server_b->Start()) {
    throw std::runtime_error("no port of the loopback interface can be listened on");
  }
  Tell("server A listens on " + m_server_a->GetAddress() + ", echoes and pushes packages");
  Tell("server B listens on " + m_server_b->GetAddress() +
       ", echoes and answers balance questions");
}

void Demo::LinkToServers() {
  const Endpoint a = ParseEndpoint(m_server_a->GetAddress());
  const Endpoint b = ParseEndpoint(m_server_b->GetAddress());
  m_client.Link(a.host.c_str(), a.port, b.host.c_str(), b.port, "", 0, "", 0, "", 0,
                m_window.Window(), m_window.MessageNumber());
  AwaitLinkEvent(LINK_EVENT_UP);
}

void Demo::Ask(const std::string& question) {
  if (m_client.AskData(question.data(), static_cast<unsigned int>(question.size())) != 0) {
    throw std::runtime_error("the client has no link");
  }
  Tell("asked " + Quote(question));
  Await("the answer", [&](const Notification& got) { return got.body == question; });
  Tell("answered " + Quote(question));
}

void Demo::TakePushedPackages() {
  for (int taken = 0; taken < kPushedPackages; ++taken) {
    const Notification package =
        Await("a package", [](const Notification& got) { return got.IsPackage(); });
    Tell("got " + Quote(package.body));
  }
}

void Demo::TakeServerAway() {
  m_server_a.reset();
  Tell("server A is gone");
  AwaitLinkEvent(LINK_EVENT_CLOSED);
}

void Demo::AwaitNextServer() {
  AwaitLinkEvent(LINK_EVENT_UP);
  if (m_client.IsOnline() != 1) throw std::runtime_error("the client does not call itself online");
}

void Demo::EndClient() {
  m_client.UnLink();
  if (m_client.IsOnline() != 0) throw std::runtime_error("the client still calls itself online");
}

void Demo::AskForBalance() {
  const Endpoint server = ParseEndpoint(m_server_b->GetAddress());
  const auto answer = AskBalanceServer(&m_client, server, kBalanceQuestion);
  if (!answer) throw std::runtime_error("no answer");
  if (*answer != kBalanceAnswer) throw std::runtime_error("another answer: " + Quote(*answer));
  Tell("answered " + Quote(*answer));
}

Notification Demo::Await(const std::string& what,
                         const std::function<bool(const Notification&)>& wanted) {
  const FTTime start = ft::GetTickTime();
  for (;;) {
    const std::int32_t left_ms = kStepLimitMs - ft::DiffMs(ft::GetTickTime(), start);
    auto got = left_ms > 0 ? m_window.Wait(left_ms) : std::nullopt;
    if (!got) {
      throw std::runtime_error(what + " did not come within " +
                               std::to_string(kStepLimitMs / 1000) + " s");
    }
    if (wanted(*got)) return *got;
  }
}

void Demo::AwaitLinkEvent(std::intptr_t link_event) {
  const std::string name = ShowLinkEvent(link_event);
  Await(name, [&](const Notification& got) { return got.link_event == link_event; });
  Tell(name + " after " + std::to_string(ft::DiffMs(ft::GetTickTime(), m_step_start)) + " ms");
}
