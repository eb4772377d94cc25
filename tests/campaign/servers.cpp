#include "tests/campaign/servers.h"

namespace campaign {

namespace {

constexpr std::size_t kNever = 99;  // no entry's turn

using Milliseconds = std::chrono::milliseconds;

// As long as the process: filling the backlog takes half a second.
const testkit::FullBacklogPort& MutePort() {
  static const testkit::FullBacklogPort port;
  return port;
}

}  // namespace

Servers::Servers(const std::vector<Entry>& entries, Oracle* oracle) : m_oracle(oracle) {
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
        m_listening.emplace_back().entry = kNever;
        m_endpoints.push_back({"localhost", m_listening.back().server.Port()});
        break;
      case Entry::kNoPort:
        m_endpoints.push_back({"127.0.0.1", 0});
    }
  }
  const auto end = std::find(entries.begin() + 1, entries.end(), Entry::kNoPort);
  m_first = static_cast<std::size_t>(std::find(entries.begin(), entries.end(), Entry::kServer) -
                                     entries.begin());
  m_usable = std::min(static_cast<std::size_t>(end - entries.begin()), std::size_t{5});
}

void Servers::Turn() {
  for (Listening& listening : m_listening) {
    while (auto peer = listening.server.TryAccept(Milliseconds(0))) {
      m_links.push_back({m_oracle->AddLink(listening.entry), std::move(*peer)});
      Greet(&m_links.back());
    }
  }
  for (Link& link : m_links) Serve(&link);
  m_links.remove_if([](const Link& link) { return !link.open; });
}

// A link that the client has ended may end in the middle of anything.
template <typename Action>
void Servers::Try(Link* link, Action action) {
  if (link == nullptr) return;
  try {
    return action(*link);
  } catch (const std::system_error&) {
    m_oracle->Spoil(link->number);
    link->open = false;
  } catch (const std::runtime_error& error) {
    throw Fault(std::string("from the client: ") + error.what());
  }
}

void Servers::Greet(Link* link) {
  if (m_greeting == Greeting::kNothing) return;
  SendPackage(19);
  if (m_greeting == Greeting::kPackage || !link->open) return;
  Finish(link, static_cast<End>(int(m_greeting) - int(Greeting::kHalfClose)));
}

void Servers::Serve(Link* link) {
  if (!link->open || m_answering == Answering::kDeaf) return;
  Try(link, [&](Link& from) {
    const auto end = from.peer.WaitClosed(Milliseconds(0));
    while (auto body = from.peer.ReceiveAny(Milliseconds(0))) {
      if (!testkit::IsHeartbeat(*body)) from.kept.push_back(m_oracle->TakeRequest(*body));
    }
    if (end != testkit::LinkEnd::kStillOpen) from.open = false;
    if (!from.open || !from.sends || m_answering != Answering::kAtOnce) return;
    for (const std::uint32_t request : std::exchange(from.kept, {})) {
      from.peer.SendPackage(m_oracle->MakePackage(from.number, request % 300, request));
    }
  });
}

Servers::Link* Servers::Last() {
  const auto link = std::find_if(m_links.rbegin(), m_links.rend(),
                                 [](const Link& each) { return each.open && each.sends; });
  return link == m_links.rend() ? nullptr : &*link;
}

void Servers::SendPackage(std::size_t size, std::size_t piece) {
  Try(Last(), [&](Link& link) {
    const Bytes package = testkit::BuildPackage(m_oracle->MakePackage(link.number, size));
    for (std::size_t sent = 0; sent < package.size(); sent += std::min(piece, package.size())) {
      link.peer.SendRaw(package.substr(sent, piece));
    }
  });
}

void Servers::SendForeign(const Bytes& body) {
  if (Last() != nullptr) m_oracle->AddForeign(body);
  SendBytes(testkit::BuildPackage(body));
}

void Servers::SendBytes(const Bytes& bytes) {
  Try(Last(), [&](Link& link) { link.peer.SendRaw(bytes); });
}

void Servers::SendGarbage(const Bytes& bytes) {
  Try(Last(), [&](Link& link) {
    m_oracle->Spoil(link.number);
    link.garbled = true;
    link.peer.SendRaw(bytes);
  });
}

void Servers::EndLink(End how) {
  if (Link* const link = Last()) Finish(link, how);
}

void Servers::Finish(Link* link, End how) {
  link->sends = false;
  if (how == End::kHalfClose) {
    m_oracle->EndsInOrder(link->number);
    link->peer.StopSending();
    return;
  }
  m_oracle->Spoil(link->number);
  how == End::kClose ? link->peer.Close() : link->peer.Reset();
  link->open = false;
}

void Servers::Heal() {
  m_greeting = Greeting::kPackage;
  m_answering = Answering::kAtOnce;
  for (Link& link : m_links) {
    if (link.open && link.sends && link.garbled) Finish(&link, End::kReset);
  }
}

void Servers::SendHeartbeats() {
  for (Link& link : m_links) {
    if (link.open && link.sends) Try(&link, [](Link& to) { to.peer.SendHeartbeat(); });
  }
}

}  // namespace campaign
