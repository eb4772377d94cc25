#include "tests/support/answering_server.h"

#include <stdexcept>
#include <system_error>
#include <utility>

#include "tests/support/wait_until.h"

namespace testkit {

namespace {

constexpr int kBacklog = 128;
constexpr std::chrono::seconds kStopLimit{10};

}  // namespace

AnsweringServer::AnsweringServer(Answer answer) : m_answer(std::move(answer)) {
  StartListening(m_socket, kBacklog);
  m_thread = std::thread([this] { Run(); });
}

AnsweringServer::~AnsweringServer() {
  m_stopping = true;
  ConnectTo(m_doorbell, Port(), Deadline(kStopLimit));
  m_thread.join();
}

bool AnsweringServer::WaitForOpenLinks(std::size_t links, Milliseconds limit) const {
  return WaitUntil([&] { return m_open_count == links; }, limit);
}

void AnsweringServer::Run() {
  while (!m_stopping) {
    AcceptAll();
    m_links.remove_if([this](Link& link) { return !Serve(&link); });
    m_open_count = m_links.size();
    WaitForWork();
  }
}

void AnsweringServer::WaitForWork() const {
  std::vector<Interest> interests{{&m_socket, false}};
  for (const Link& link : m_links) interests.push_back({&link.socket, !link.outgoing.empty()});
  // What is ready does not matter: everything is tried, and nothing blocks.
  WaitForAny(interests);
}

void AnsweringServer::AcceptAll() {
  for (;;) {
    Link link{AcceptWaiting(m_socket), {}, {}};
    if (link.socket.Get() < 0) return;
    m_links.push_back(std::move(link));
    m_open_count = m_links.size();
  }
}

// False when the link is over.
bool AnsweringServer::Serve(Link* link) {
  try {
    const ReadResult result = ReadAvailable(link->socket, &link->incoming);
    if (result == ReadResult::kOrderlyEnd || result == ReadResult::kReset) return false;
    while (auto body = TakeBody(&link->incoming)) Handle(link, std::move(*body));
    const Bytes& outgoing = link->outgoing;
    link->outgoing.erase(0, WriteAvailable(link->socket, outgoing.data(), outgoing.size()));
    return true;
  } catch (const std::system_error&) {
    return false;  // the other side is gone
  } catch (const std::runtime_error& malformed) {
    m_faults.Push(malformed.what());
    return false;
  }
}

void AnsweringServer::Handle(Link* link, Bytes body) {
  if (IsHeartbeat(body)) {
    link->outgoing += HeartbeatPackage();
    return;
  }
  for (const Bytes& answer : m_answer(body)) link->outgoing += BuildPackage(answer);
  m_packages.Push({std::move(body)});
}

}  // namespace testkit
