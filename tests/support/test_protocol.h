#pragma once

#include <cstdio>

#include "00shcode/ftmtsockimpl/engine_state.h"
#include "sockif/base_sock_if.h"
#include "tests/support/servers.h"

namespace testkit {

inline CFTBuffer* NewBuffer(const Bytes& bytes) {
  auto buffer = std::make_unique<CFTBuffer>();
  buffer->Append(bytes.data(), static_cast<std::int32_t>(bytes.size()));
  return buffer.release();
}

// A package of this length whose bytes do not matter: its memory is never written to.
inline CFTBuffer* NewNothing(std::int32_t length) {
  auto buffer = std::make_unique<CFTBuffer>(static_cast<std::uint32_t>(length));
  buffer->CommitWrite(length);
  return buffer.release();
}

// A release function for SendPkg that counts its calls since the counter was made. One at a time.
class ReleaseCounter {
 public:
  ReleaseCounter() { s_count = 0; }

  static void Release(CFTBuffer* buffer) {
    ReleaseFTBuffer(buffer);
    ++s_count;
  }

  int Count() const { return s_count; }
  bool Reaches(int count, Milliseconds limit) const {
    return WaitUntil([&] { return s_count == count; }, limit);
  }

 private:
  static inline std::atomic<int> s_count{0};
};

struct LogLine {
  std::string source;
  int line;
  std::int32_t level_code;
  std::string text;
  std::chrono::steady_clock::time_point time;
};

struct LinkEvent {
  enum class Kind { kConnected, kAccepted, kConnectFailed, kPackage, kClosed };

  Kind kind;
  FTLinkInfo link;
  Bytes body{};            // kPackage, without the header
  FTCloseReason reason{};  // kClosed
  FTLinkInfo listener{};   // kAccepted
  std::uint32_t thread = platform::CurrentThreadId();
};

struct SpaceReport {
  std::string link_id;
  std::int32_t free_bytes;
  std::int32_t limit;
  std::uint32_t thread = platform::CurrentThreadId();
};

FTEngineState& StateOf(CFTBaseSockIf& protocol);

// A protocol on the engine whose packages are those of the wire format, and which writes down all
// that the engine tells it.
class TestProtocol : public CFTBaseSockIf {
 public:
  using Kind = LinkEvent::Kind;

  // Run inside the callbacks of their names, on their threads. To be set before Start.
  struct Hooks {
    std::function<std::string()> new_link_id;
    std::function<std::int32_t(const unsigned char*, std::int32_t)> package_length;
    std::function<void(const FTLinkInfo&, CFTBuffer*, std::int32_t* keep)> received;
    std::function<void(const FTLinkInfo&)> closed, space, heartbeat;
  };

  struct OpenedLink {
    static constexpr std::size_t kDescriptors = 3;  // two sockets and a waker
    std::string id;
    Peer peer;
    FTLinkInfo link;
  };

  static constexpr int kThreads = 5;  // before it has links

  explicit TestProtocol(FTEventMode events = FTEventMode::kByMessage,
                        FTHeartbeatMode heartbeats = FTHeartbeatMode::kOnSendThread,
                        FTSpaceReports spaces = FTSpaceReports::kWanted)
      : CFTBaseSockIf(events, heartbeats, spaces) {}
  ~TestProtocol() override { Stop(); }

  Hooks& On() { return m_hooks; }

  void Start() {
    StartThread(0);
    Require(WaitUntil([this] { return IsRunning() == 1; }, kLimit), "the thread does not start");
  }
  // Waits for all threads of the engine. For a process's only protocol.
  void StartAlone() {
    Start();
    Require(WaitUntil([] { return GetThreadCount() == kThreads; }, kLimit), "a thread is missing");
  }
  void Stop() {
    PostQuit();
    WaitThreadExit();
  }

  // All waits have a limit of ten seconds. Throws std::runtime_error when no link comes about.
  OpenedLink OpenLink(ScriptedServer& server) {
    std::string id = Connect(server.Host(), server.Port());
    Peer peer = server.Accept(kLimit);
    const auto connected = WaitFor(Kind::kConnected);
    Require(connected && connected->link.link_id == id, "no link came up");
    return {std::move(id), std::move(peer), connected->link};
  }
  // Drops the events before it.
  std::optional<LinkEvent> WaitFor(Kind kind) {
    auto event = m_events.Take(kLimit);
    while (event && event->kind != kind) event = m_events.Take(kLimit);
    return event;
  }
  std::optional<Bytes> ReceivePackage() {
    const auto event = WaitFor(Kind::kPackage);
    return event ? std::optional(event->body) : std::nullopt;
  }
  std::optional<FTCloseReason> WaitClosed() {
    const auto event = WaitFor(Kind::kClosed);
    return event ? std::optional(event->reason) : std::nullopt;
  }

  void Close(const std::string& link_id) { CloseLink(link_id, FTCloseMode::kNow); }
  std::int32_t Send(const std::string& link_id, const Bytes& body, std::int32_t priority = 3) {
    return SendPkg(link_id, NewBuffer(BuildPackage(body)), &ReleaseFTBuffer,
                   FTSendMode::kWithinLimits, FTOnRefusal::kRelease, priority);
  }

  Mailbox<LinkEvent>& Events() { return m_events; }
  Mailbox<SpaceReport>& Spaces() { return m_spaces; }
  Mailbox<std::uint32_t>& HeartbeatCalls() { return m_heartbeat_calls; }  // their threads
  std::vector<LogLine> LinesWith(const std::string& part) const {
    std::vector<LogLine> lines;
    for (LogLine& line : m_lines.All()) {
      if (line.text.find(part) != std::string::npos) lines.push_back(std::move(line));
    }
    return lines;
  }

  FTEngineState& State() { return StateOf(*this); }
  bool CountersReturnToZero() {
    const auto& received = State().recv_backlog;
    const auto& queued = State().queued_send_bytes;
    return WaitUntil([&] { return received.GetBytes() == 0 && queued == 0; }, kLimit);
  }

  // Every line, also those that the threshold would drop.
  void WriteLog(const char* path, int line, std::int32_t level_code, const char* format,
                ...) override {
    va_list arguments;
    va_start(arguments, format);
    VWriteLog(path, line, level_code, format, arguments);
    va_end(arguments);
  }
  void VWriteLog(const char* path, int line, std::int32_t level_code, const char* format,
                 va_list arguments) override {
    char text[512];
    std::vsnprintf(text, sizeof text, format, arguments);
    m_lines.Push({path, line, level_code, text, std::chrono::steady_clock::now()});
  }

  std::string VNewLinkId() override {
    return m_hooks.new_link_id ? m_hooks.new_link_id() : CFTBaseSockIf::VNewLinkId();
  }

 protected:
  std::int32_t VGetOnePkgLen(const void* data, std::int32_t count, const FTLinkInfo*) override {
    const auto* const bytes = static_cast<const unsigned char*>(data);
    if (m_hooks.package_length) return m_hooks.package_length(bytes, count);
    if (count < static_cast<std::int32_t>(kHeaderSize)) return 0;
    const Bytes header(static_cast<const char*>(data), kHeaderSize);
    return static_cast<std::int32_t>(BigEndianAt(header, 4) + kHeaderSize);
  }
  CFTBuffer* VGetHeartbeatPkg(const FTLinkInfo* link, FTReleaseFunction* release) override {
    if (m_hooks.heartbeat) m_hooks.heartbeat(*link);
    m_heartbeat_calls.Push(platform::CurrentThreadId());
    *release = &ReleaseFTBuffer;
    return NewBuffer(kHeartbeatPackage);
  }
  void OnLinkClosed(const FTLinkInfo* link, FTCloseReason reason) override {
    if (m_hooks.closed) m_hooks.closed(*link);
    m_events.Push({Kind::kClosed, *link, {}, reason});
  }
  void OnRecvPkg(const FTLinkInfo* link, CFTBuffer* pkg, std::int32_t* keep) override {
    const Bytes whole(reinterpret_cast<const char*>(pkg->GetData()),
                      static_cast<std::size_t>(pkg->GetDataLen()));
    m_events.Push(
        {Kind::kPackage, *link, whole.substr(whole.size() < kHeaderSize ? 0 : kHeaderSize)});
    if (m_hooks.received) m_hooks.received(*link, pkg, keep);
  }
  void OnConnectFailed(const FTLinkInfo* link) override {
    m_events.Push({Kind::kConnectFailed, *link});
  }
  void OnConnected(const FTLinkInfo* link) override { m_events.Push({Kind::kConnected, *link}); }
  void OnAccepted(const FTLinkInfo* link, const FTLinkInfo* listener) override {
    m_events.Push({Kind::kAccepted, *link, {}, {}, *listener});
  }
  void OnSendSpace(const FTLinkInfo* link, std::int32_t free, std::int32_t limit) override {
    if (m_hooks.space) m_hooks.space(*link);
    m_spaces.Push({link->link_id, free, limit});
  }

 private:
  static constexpr std::chrono::seconds kLimit{10};

  static void Require(bool condition, const char* what) {
    if (!condition) throw std::runtime_error(what);
  }

  Hooks m_hooks;
  Mailbox<LinkEvent> m_events;
  Mailbox<SpaceReport> m_spaces;
  Mailbox<std::uint32_t> m_heartbeat_calls;
  Mailbox<LogLine> m_lines;
};

}  // namespace testkit
