#include "tests/support/answering_server.h"

#include <stdexcept>
#include <utility>

namespace testkit {

namespace {

constexpr int kBacklog = 128;

Descriptor OpenListening() {
  Descriptor socket = OpenBoundSocket();
  StartListening(socket, kBacklog);
  return socket;
}

}  // namespace

AnsweringServer::AnsweringServer(Answer answer, Heartbeats heartbeats)
    : m_answer(std::move(answer)),
      m_heartbeats(heartbeats),
      m_listening(OpenListening()),
      m_port(LocalPort(m_listening)),
      m_thread([this] { Run(); }) {}

AnsweringServer::~AnsweringServer() {
  Report([this] { m_stopping = true; });
  m_wake.Set();
  m_thread.join();
}

bool AnsweringServer::WaitForAccepted(std::size_t links, Milliseconds limit) const {
  return WaitFor(limit, [&] { return m_accepted_count >= links; });
}

bool AnsweringServer::WaitForPackages(std::size_t packages, Milliseconds limit) const {
  return WaitFor(limit, [&] { return m_packages.size() >= packages; });
}

bool AnsweringServer::WaitForHeartbeats(std::size_t heartbeats, Milliseconds limit) const {
  return WaitFor(limit, [&] { return m_heartbeat_count >= heartbeats; });
}

bool AnsweringServer::WaitForOpenLinks(std::size_t links, Milliseconds limit) const {
  return WaitFor(limit, [&] { return m_open_count == links; });
}

std::vector<Arrival> AnsweringServer::Packages() const {
  const std::lock_guard<std::mutex> guard(m_lock);
  return m_packages;
}

std::string AnsweringServer::Fault() const {
  const std::lock_guard<std::mutex> guard(m_lock);
  return m_fault;
}

void AnsweringServer::SendToAll(const Bytes& body) {
  SendRawToAll(BuildPackage(body));
}

void AnsweringServer::SendRawToAll(const Bytes& bytes) {
  Give([bytes](std::list<Link>& links) {
    for (Link& link : links) link.outgoing += bytes;
  });
}

void AnsweringServer::ResetAll() {
  Give([](std::list<Link>& links) {
    for (Link& link : links) CloseWithReset(&link.socket);
    links.clear();
  });
}

void AnsweringServer::Run() {
  while (CarryOutOrders()) {
    AcceptAll();
    for (auto link = m_links.begin(); link != m_links.end();) {
      link = Serve(*link) ? std::next(link) : m_links.erase(link);
    }
    Report([this] { m_open_count = m_links.size(); });
    WaitForWork();
  }
}

void AnsweringServer::WaitForWork() const {
  std::vector<Interest> interests{{&m_wake.Readable(), false}, {&m_listening, false}};
  for (const Link& link : m_links) interests.push_back({&link.socket, !link.outgoing.empty()});
  // What is ready does not matter: everything is tried, and nothing blocks.
  WaitForAny(interests);
}

// False when the server is to end.
bool AnsweringServer::CarryOutOrders() {
  m_wake.Clear();
  std::vector<Order> orders;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    if (m_stopping) return false;
    orders.swap(m_orders);
  }
  for (const Order& order : orders) order(m_links);
  return true;
}

void AnsweringServer::AcceptAll() {
  for (;;) {
    Link link{AcceptWaiting(m_listening), {}, {}};
    if (link.socket.Get() < 0) return;
    m_links.push_back(std::move(link));
    Report([this] {
      ++m_accepted_count;
      m_open_count = m_links.size();
    });
  }
}

// False when the link is over.
bool AnsweringServer::Serve(Link& link) {
  try {
    const ReadResult result = ReadAvailable(link.socket, &link.incoming);
    if (result == ReadResult::kOrderlyEnd || result == ReadResult::kReset) return false;
    while (std::optional<ParsedPackage> package = ParsePackage(link.incoming)) {
      if (package->mark != 1 || !package->check_sum_matches) {
        const std::string dump = HexDump(link.incoming);
        Report([&] { m_fault = m_fault.empty() ? "malformed package: " + dump : m_fault; });
        return false;
      }
      link.incoming.erase(0, package->size);
      Handle(link, std::move(package->body));
    }
    link.outgoing.erase(0, WriteAvailable(link.socket, link.outgoing.data(), link.outgoing.size()));
    return true;
  } catch (const std::runtime_error&) {
    return false;  // the other side is gone
  }
}

void AnsweringServer::Handle(Link& link, Bytes body) {
  if (IsHeartbeat(body)) {
    if (m_heartbeats == Heartbeats::kReturn) link.outgoing += HeartbeatPackage();
    Report([this] { ++m_heartbeat_count; });
    return;
  }
  for (const Bytes& answer : m_answer(body)) link.outgoing += BuildPackage(answer);
  const auto now = std::chrono::steady_clock::now();
  Report([&] { m_packages.push_back({std::move(body), now, false}); });
}

void AnsweringServer::Give(Order order) {
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_orders.push_back(std::move(order));
  }
  m_wake.Set();
}

template <typename Change>
void AnsweringServer::Report(Change change) {
  const std::lock_guard<std::mutex> guard(m_lock);
  change();
  m_changed.notify_all();
}

template <typename Reached>
bool AnsweringServer::WaitFor(Milliseconds limit, Reached reached) const {
  std::unique_lock<std::mutex> guard(m_lock);
  return m_changed.wait_for(guard, limit, reached);
}

}  // namespace testkit
