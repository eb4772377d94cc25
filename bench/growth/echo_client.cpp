#include "bench/growth/echo_client.h"

#include <chrono>
#include <stdexcept>

#include "client/package.h"

namespace growth {

namespace {

constexpr std::chrono::seconds kPatience(20);

}  // namespace

EchoClient::EchoClient(std::uint32_t body_bytes) : m_body(body_bytes, 'x') {
  Start();
}

void EchoClient::Open(std::uint16_t port, int links) {
  for (int i = 0; i < links; ++i) m_link_ids.push_back(Connect("127.0.0.1", port));
  Await("a link did not come up", [&] { return m_up == links; });
}

void EchoClient::Send(std::size_t link) {
  SendOn(m_link_ids[link]);
}

void EchoClient::SendOn(const std::string& link_id) {
  const auto length = static_cast<std::int32_t>(m_body.size());
  FTBufferPtr package = CFTBuffer::Make(static_cast<std::uint32_t>(ft::kPkgHeadLen + length));
  ft::EncodePkg(package.get(), m_body.data(), length);
  ++m_sent;
  SendPkg(link_id, package.release(), &ReleaseFTBuffer, FTSendMode::kForced, FTOnRefusal::kRelease,
          3);
}

void EchoClient::AwaitAnswers() {
  Await("an answer is missing or wrong", [this] { return m_answers == m_sent; });
}

void EchoClient::AwaitClosed() {
  Await("a link did not end", [this] { return m_up == 0; });
}

template <typename Condition>
void EchoClient::Await(const char* what, Condition condition) {
  std::unique_lock<std::mutex> lock(m_mutex);
  m_changed.wait_for(lock, kPatience, [&] { return m_failed || condition(); });
  if (m_failed || !condition()) throw std::runtime_error(what);
}

void EchoClient::Notify() {
  { const std::lock_guard<std::mutex> guard(m_mutex); }
  m_changed.notify_all();
}

void EchoClient::OnConnected(const FTLinkInfo*) {
  ++m_up;
  Notify();
}

void EchoClient::OnConnectFailed(const FTLinkInfo*) {
  m_failed = true;
  Notify();
}

void EchoClient::OnLinkClosed(const FTLinkInfo*, FTCloseReason) {
  --m_up;
  Notify();
}

void EchoClient::OnRecvPkg(const FTLinkInfo* link, CFTBuffer* pkg, std::int32_t*) {
  PkgHead head;
  std::int32_t length = 0;
  const bool intact = ft::VerifyPkg(pkg, &head, &length) == 0;
  const auto* const body = reinterpret_cast<const char*>(pkg->GetData()) + ft::kPkgHeadLen;
  if (intact && ft::IsHeartbeatBody(body, length)) return;
  if (!intact || static_cast<std::size_t>(length) != m_body.size()) m_failed = true;
  if (m_refilling) SendOn(link->link_id);
  if (++m_answers == m_sent || m_failed) Notify();
}

}  // namespace growth
