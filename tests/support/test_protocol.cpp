#include "tests/support/test_protocol.h"

#include <cstdarg>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include "00shcode/ftmtsockimpl/engine.h"
#include "platform/platform.h"
#include "tests/support/wait_until.h"

namespace testkit {

namespace {

using namespace std::chrono_literals;
using Kind = LinkEvent::Kind;

constexpr auto kLimit = 10s;

CFTMtSockImpl& EngineOf(CFTBaseSockIf& protocol);

// The engine is nobody's business but its owner's. Naming a private member is allowed in the
// arguments of an explicit instantiation, and there alone.
template <std::unique_ptr<CFTMtSockImpl> const CFTBaseSockIf::*kEngine>
struct EngineAccess {
  friend CFTMtSockImpl& EngineOf(CFTBaseSockIf& protocol) { return *(protocol.*kEngine); }
};
template struct EngineAccess<&CFTBaseSockIf::m_engine>;

std::int32_t WirePackageLength(const unsigned char* data, std::int32_t count) {
  if (count < static_cast<std::int32_t>(kHeaderSize)) return 0;
  std::uint32_t body_length = 0;
  for (int i = 4; i < 8; ++i) body_length = body_length << 8 | data[i];
  return static_cast<std::int32_t>(body_length + kHeaderSize);
}

}  // namespace

CFTBuffer* NewBuffer(const Bytes& bytes) {
  auto buffer = std::make_unique<CFTBuffer>();
  buffer->Append(bytes.data(), static_cast<std::int32_t>(bytes.size()));
  return buffer.release();
}

TestProtocol::TestProtocol(FTEventMode events, FTHeartbeatMode heartbeats, FTSpaceReports spaces)
    : CFTBaseSockIf(events, heartbeats, spaces) {}

void TestProtocol::Start() {
  if (StartThread(0) != 0 || !WaitUntil([this] { return IsRunning() == 1; }, kLimit)) {
    throw std::runtime_error("the protocol's thread does not start");
  }
}

void TestProtocol::StartAlone() {
  Start();
  if (!WaitUntil([] { return GetThreadCount() == kThreads; }, kLimit)) {
    throw std::runtime_error("the engine's threads do not start");
  }
}

void TestProtocol::Stop() {
  PostQuit();
  WaitThreadExit();
}

TestProtocol::OpenedLink TestProtocol::OpenLink(ScriptedServer& server) {
  std::string id = Connect(server.Host(), server.Port());
  Peer peer = server.Accept(kLimit);
  auto connected = WaitFor(Kind::kConnected);
  if (!connected || connected->link.link_id != id) throw std::runtime_error("no link came up");
  return {std::move(id), std::move(peer), std::move(connected->link)};
}

std::optional<LinkEvent> TestProtocol::WaitFor(Kind kind) {
  auto event = m_events.Take(kLimit);
  while (event && event->kind != kind) event = m_events.Take(kLimit);
  return event;
}

std::optional<Bytes> TestProtocol::ReceivePackage() {
  auto event = WaitFor(Kind::kPackage);
  if (!event) return std::nullopt;
  return std::move(event->body);
}

std::optional<FTCloseReason> TestProtocol::WaitClosed() {
  const auto event = WaitFor(Kind::kClosed);
  if (!event) return std::nullopt;
  return event->reason;
}

std::int32_t TestProtocol::Send(const std::string& link_id, const Bytes& body,
                                std::int32_t priority) {
  return SendPkg(link_id, NewBuffer(BuildPackage(body)), &ReleaseFTBuffer,
                 FTSendMode::kWithinLimits, FTOnRefusal::kRelease, priority);
}

std::vector<LogLine> TestProtocol::LinesWith(const std::string& part) const {
  std::vector<LogLine> lines;
  for (LogLine& line : m_lines.All()) {
    if (line.text.find(part) != std::string::npos) lines.push_back(std::move(line));
  }
  return lines;
}

FTEngineState& TestProtocol::State() {
  return EngineOf(*this).State();
}

bool TestProtocol::CountersReturnToZero() {
  const auto are_zero = [this] {
    return State().undelivered_recv_bytes.load() == 0 && State().queued_send_bytes.load() == 0;
  };
  return WaitUntil(are_zero, kLimit);
}

// Every line, also those that the threshold would drop.
void TestProtocol::WriteLog(const char* path, int line, std::int32_t level_code, const char* format,
                            ...) {
  va_list arguments;
  va_start(arguments, format);
  VWriteLog(path, line, level_code, format, arguments);
  va_end(arguments);
}

void TestProtocol::VWriteLog(const char* path, int line, std::int32_t level_code,
                             const char* format, va_list arguments) {
  va_list copy;
  va_copy(copy, arguments);
  m_lines.Push(NewLogLine(path, line, level_code, format, copy));
  va_end(copy);
  CFTBaseSockIf::VWriteLog(path, line, level_code, format, arguments);
}

std::string TestProtocol::VNewLinkId() {
  return m_hooks.new_link_id ? m_hooks.new_link_id() : CFTBaseSockIf::VNewLinkId();
}

std::int32_t TestProtocol::VGetOnePkgLen(const void* data, std::int32_t count, const FTLinkInfo*) {
  const auto* const bytes = static_cast<const unsigned char*>(data);
  if (m_hooks.package_length) return m_hooks.package_length(bytes, count);
  return WirePackageLength(bytes, count);
}

CFTBuffer* TestProtocol::VGetHeartbeatPkg(const FTLinkInfo* link, FTReleaseFunction* release) {
  if (m_hooks.heartbeat) m_hooks.heartbeat(*link);
  m_heartbeat_calls.Push({platform::CurrentThreadId()});
  *release = &ReleaseFTBuffer;
  return NewBuffer(HeartbeatPackage());
}

void TestProtocol::OnLinkClosed(const FTLinkInfo* link, FTCloseReason reason) {
  if (m_hooks.closed) m_hooks.closed(*link);
  LinkEvent event;
  event.reason = reason;
  Note(Kind::kClosed, link, std::move(event));
}

void TestProtocol::OnRecvPkg(const FTLinkInfo* link, CFTBuffer* pkg, std::int32_t* keep) {
  LinkEvent event;
  const Bytes whole(reinterpret_cast<const char*>(pkg->GetData()),
                    static_cast<std::size_t>(pkg->GetDataLen()));
  event.body = whole.size() < kHeaderSize ? whole : whole.substr(kHeaderSize);
  Note(Kind::kPackage, link, std::move(event));
  if (m_hooks.received) m_hooks.received(*link, pkg, keep);
}

void TestProtocol::OnAccepted(const FTLinkInfo* link, const FTLinkInfo* listener) {
  LinkEvent event;
  event.listener = *listener;
  Note(Kind::kAccepted, link, std::move(event));
}

void TestProtocol::OnSendSpace(const FTLinkInfo* link, std::int32_t free_bytes,
                               std::int32_t limit) {
  if (m_hooks.space) m_hooks.space(*link);
  m_spaces.Push({link->link_id, free_bytes, limit, platform::CurrentThreadId(),
                 std::chrono::steady_clock::now()});
}

void TestProtocol::Note(Kind kind, const FTLinkInfo* link, LinkEvent event) {
  event.kind = kind;
  event.link = *link;
  event.thread = platform::CurrentThreadId();
  m_events.Push(std::move(event));
}

}  // namespace testkit
