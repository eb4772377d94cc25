#include "tests/campaign/servers.h"

namespace campaign {

namespace {

using testkit::BigEndian;
using testkit::BuildHeader;
using testkit::BuildPackage;
using testkit::PatternBody;
using Milliseconds = std::chrono::milliseconds;

// As long as the process: filling the backlog takes half a second.
const testkit::FullBacklogPort& MutePort() {
  static const testkit::FullBacklogPort port;
  return port;
}

}  // namespace

Servers::Servers(const std::vector<Entry>& entries, Oracle* oracle) : m_oracle(oracle) {
  const testkit::FaultFree guard;
  for (const Entry entry : entries) {
    switch (entry) {
      case Entry::kServer:
        m_listening.emplace_back().entry = m_endpoints.size();
        m_endpoints.push_back(testkit::At(m_listening.back().server));
        break;
      case Entry::kRefusing:
        m_endpoints.push_back(testkit::At(m_closed.emplace_back()));
        break;
      case Entry::kMute:
        m_endpoints.push_back(testkit::At(MutePort()));
        break;
      case Entry::kNoAddress:
        m_endpoints.push_back({"localhost", 1});
    }
  }
  m_thread = std::thread([this] { Run(); });
}

Servers::~Servers() {
  m_stopping = true;
  m_thread.join();
}

void Servers::Run() {
  while (!m_stopping) {
    for (Listening& listening : m_listening) {
      auto peer = listening.server.TryAccept(Milliseconds(1));
      if (!peer) continue;
      const Guard guard(m_lock);
      m_links.push_back({m_oracle->AddLink(listening.entry), std::move(*peer), {}});
      Greet(&m_links.back());
    }
    const Guard guard(m_lock);
    for (Link& link : m_links) Serve(&link);
    m_links.remove_if([](const Link& link) { return !link.open; });
  }
}

// A link that the client has ended may end in the middle of anything.
template <typename Action>
void Servers::Try(Link* link, Action action) {
  try {
    action();
    return;
  } catch (const std::system_error&) {
  } catch (const std::runtime_error& error) {
    m_oracle->Fail(std::string("from the client: ") + error.what());
  }
  m_oracle->Spoil(link->number);
  link->open = false;
}

void Servers::Greet(Link* link) {
  static constexpr Act kEnds[] = {Act::kHalfClose, Act::kClose, Act::kReset};
  if (m_greeting == Greeting::kNothing) return;
  SendPackages(link, 1, 100);
  if (m_greeting > Greeting::kNothing && link->open) {
    End(link, kEnds[int(m_greeting) - int(Greeting::kHalfClose)]);
  }
}

void Servers::Serve(Link* link) {
  if (!link->open || m_answering == Answering::kDeaf) return;
  Try(link, [&] {
    const auto end = link->peer.WaitClosed(Milliseconds(0));
    while (auto body = link->peer.ReceiveAny(Milliseconds(0))) {
      if (!testkit::IsHeartbeat(*body)) link->kept.push_back(m_oracle->TakeRequest(*body));
    }
    if (end != testkit::LinkEnd::kStillOpen) link->open = false;
    if (link->open && link->sends && m_answering == Answering::kAtOnce) Answer(link);
  });
}

void Servers::Answer(Link* link) {
  for (const std::uint32_t request : link->kept) {
    link->peer.SendPackage(m_oracle->MakePackage(link->number, request % 300, request));
  }
  link->kept.clear();
}

void Servers::SendPackages(Link* link, std::uint32_t count, std::uint32_t most) {
  Try(link, [&] {
    for (; count > 0; --count) {
      const std::size_t size = count * 7919 % most;
      link->peer.SendPackage(m_oracle->MakePackage(link->number, size));
    }
  });
}

void Servers::Play(const Step& step) {
  const Guard guard(m_lock);
  if (step.act == Act::kGreeting) m_greeting = static_cast<Greeting>(step.a % 8 % 5);
  if (step.act == Act::kAnswering) m_answering = static_cast<Answering>(step.a % 4 % 3);
  const auto link = std::find_if(m_links.rbegin(), m_links.rend(),
                                 [](const Link& each) { return each.open && each.sends; });
  if (step.act >= Act::kGreeting || link == m_links.rend()) return;
  if (step.act == Act::kPackages) {
    SendPackages(&*link, 1 + step.a % 40, 1 + step.b % 3000);
  } else if (step.act == Act::kFlood) {
    SendPackages(&*link, 500 + step.a % 1000, 1 + step.b % 200);
  } else if (step.act == Act::kLarge) {
    SendPackages(&*link, 1, step.a % 8 == 0 ? 5242867 - 12 : 1 + step.b % 400000);
  } else if (step.act >= Act::kHalfClose) {
    End(&*link, step.act);
  } else {
    Try(&*link, [&] { SendOdd(&*link, step); });
  }
}

void Servers::SendOdd(Link* link, const Step& step) {
  testkit::Peer& peer = link->peer;
  if (step.act == Act::kSingleBytes) {
    const Bytes package = BuildPackage(m_oracle->MakePackage(link->number, step.a % 40));
    for (const char byte : package) peer.SendRaw(Bytes(1, byte));
  } else if (step.act == Act::kHeartbeat) {
    peer.SendHeartbeat();
  } else if (step.act == Act::kEmpty || step.act == Act::kBalanceBytes) {
    const Bytes body = step.act == Act::kEmpty ? "" : "\1A";
    m_oracle->AddForeign(body);
    peer.SendPackage(body);
  } else if (step.act == Act::kBadCheckSum) {
    const Bytes body = PatternBody(1 + step.a % 2000);
    peer.SendRaw(BuildHeader(static_cast<std::uint32_t>(body.size()), BigEndian(step.b)) + body);
  } else if (step.act == Act::kRandomBytes) {
    m_oracle->Spoil(link->number);
    link->garbled = true;
    peer.SendRaw(PatternBody(1 + step.a % 3000, step.b));
  } else {
    SendHostileLength(link, step);
  }
}

// The first is the largest length that can be: its body never comes.
void Servers::SendHostileLength(Link* link, const Step& step) {
  static constexpr std::uint32_t kLengths[] = {5242867,    5242868,    5242880,
                                               0x7FFFFFF3, 0x7FFFFFF4, 0xFFFFFFFF};
  m_oracle->Spoil(link->number);
  link->garbled = true;
  link->peer.SendRaw(BuildHeader(kLengths[step.a % 6], BigEndian(step.b)));
}

void Servers::End(Link* link, Act how) {
  link->sends = false;
  if (how == Act::kHalfClose) {
    m_oracle->EndsInOrder(link->number);
    link->peer.StopSending();
    return;
  }
  m_oracle->Spoil(link->number);
  how == Act::kClose ? link->peer.Close() : link->peer.Reset();
  link->open = false;
}

void Servers::Heal() {
  const Guard guard(m_lock);
  m_greeting = Greeting::kPackage;
  m_answering = Answering::kAtOnce;
  for (Link& link : m_links) {
    if (link.open && link.sends && link.garbled) End(&link, Act::kReset);
  }
}

void Servers::SendHeartbeats() {
  const Guard guard(m_lock);
  for (Link& link : m_links) {
    if (link.open && link.sends) Try(&link, [&] { link.peer.SendHeartbeat(); });
  }
}

}  // namespace campaign
