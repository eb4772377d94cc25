#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "00shcode/ftmtsockimpl/engine_state.h"
#include "00shcode/ftmtsockimpl/link_info.h"
#include "sockif/base_sock_if.h"
#include "tests/support/log_line.h"
#include "tests/support/mailbox.h"
#include "tests/support/peer.h"
#include "tests/support/scripted_server.h"
#include "tests/support/wire.h"

namespace testkit {

// A heap buffer with these bytes, as SendPkg takes it.
CFTBuffer* NewBuffer(const Bytes& bytes);

// A callback that a protocol class received.
struct LinkEvent {
  enum class Kind { kConnected, kAccepted, kConnectFailed, kPackage, kClosed };

  Kind kind{};
  FTLinkInfo link;
  FTLinkInfo listener;     // kAccepted
  Bytes body;              // kPackage, without the header
  FTCloseReason reason{};  // kClosed
  std::uint32_t thread = 0;
};

struct SpaceReport {
  std::string link_id;
  std::int32_t free_bytes;
  std::int32_t limit;
  std::uint32_t thread;
  std::chrono::steady_clock::time_point time;
};

struct HeartbeatCall {
  std::uint32_t thread;
};

// A protocol on the engine whose packages are those of the wire format, and which writes down all
// that the engine tells it. Linking and sending take a line each:
//
//   TestProtocol protocol;
//   protocol.Start();
//   auto [id, peer, link] = protocol.OpenLink(server);
//   protocol.Send(id, "question");
class TestProtocol : public CFTBaseSockIf {
 public:
  // Run inside the callbacks of their names, on their threads. To be set before Start.
  struct Hooks {
    std::function<std::string()> new_link_id;
    std::function<std::int32_t(const unsigned char*, std::int32_t)> package_length;
    std::function<void(const FTLinkInfo&, CFTBuffer*, std::int32_t* keep)> received;
    std::function<void(const FTLinkInfo&)> closed;
    std::function<void(const FTLinkInfo&)> space;
    std::function<void(const FTLinkInfo&)> heartbeat;
  };

  struct OpenedLink {
    // A link holds its socket and a waker, and this process the peer's socket too.
    static constexpr std::size_t kDescriptors = 3;

    std::string id;
    Peer peer;
    FTLinkInfo link;
  };

  explicit TestProtocol(FTEventMode events = FTEventMode::kByMessage,
                        FTHeartbeatMode heartbeats = FTHeartbeatMode::kOnSendThread,
                        FTSpaceReports spaces = FTSpaceReports::kWanted);
  ~TestProtocol() override { Stop(); }

  Hooks& On() { return m_hooks; }
  // How many threads an interface has before it has links.
  static constexpr int kThreads = 5;

  // Blocks until the operations are accepted.
  void Start();
  // The same, until all threads of the engine have been started. For a process's only protocol.
  void StartAlone();
  // Ends the thread and joins it. May be called again.
  void Stop();

  // All of them with a limit of ten seconds.
  // Links to the server; throws std::runtime_error when no link comes about.
  OpenedLink OpenLink(ScriptedServer& server);
  // The next event of this kind; those before it are dropped. Nothing when none comes.
  std::optional<LinkEvent> WaitFor(LinkEvent::Kind kind);
  // The body of the next package.
  std::optional<Bytes> ReceivePackage();
  // The reason of the next link that is reported as closed; nothing when none is.
  std::optional<FTCloseReason> WaitClosed();

  // Ends the link, a connect or a listening socket.
  void Close(const std::string& link_id) { CloseLink(link_id, FTCloseMode::kNow); }

  // Result of SendPkg with a package of this body that is released in any case.
  std::int32_t Send(const std::string& link_id, const Bytes& body, std::int32_t priority = 3);

  Mailbox<LinkEvent>& Events() { return m_events; }
  Mailbox<SpaceReport>& Spaces() { return m_spaces; }
  Mailbox<HeartbeatCall>& HeartbeatCalls() { return m_heartbeat_calls; }

  // The lines that contain the text, whatever their levels.
  std::vector<LogLine> LinesWith(const std::string& part) const;

  FTEngineState& State();
  // Waits until nothing that was received or queued is counted any more.
  bool CountersReturnToZero();

  void WriteLog(const char* path, int line, std::int32_t level_code, const char* format,
                ...) override FT_PRINTF(5, 6);
  void VWriteLog(const char* path, int line, std::int32_t level_code, const char* format,
                 va_list arguments) override FT_PRINTF(5, 0);

  std::string VNewLinkId() override;

 protected:
  std::int32_t VGetOnePkgLen(const void* data, std::int32_t count, const FTLinkInfo* link) override;
  CFTBuffer* VGetHeartbeatPkg(const FTLinkInfo* link, FTReleaseFunction* release) override;
  void OnLinkClosed(const FTLinkInfo* link, FTCloseReason reason) override;
  void OnRecvPkg(const FTLinkInfo* link, CFTBuffer* pkg, std::int32_t* keep) override;
  void OnConnectFailed(const FTLinkInfo* link) override {
    Note(LinkEvent::Kind::kConnectFailed, link);
  }
  void OnConnected(const FTLinkInfo* link) override { Note(LinkEvent::Kind::kConnected, link); }
  void OnAccepted(const FTLinkInfo* link, const FTLinkInfo* listener) override;
  void OnSendSpace(const FTLinkInfo* link, std::int32_t free_bytes, std::int32_t limit) override;

 private:
  void Note(LinkEvent::Kind kind, const FTLinkInfo* link, LinkEvent event = {});

  Hooks m_hooks;
  Mailbox<LinkEvent> m_events;
  Mailbox<SpaceReport> m_spaces;
  Mailbox<HeartbeatCall> m_heartbeat_calls;
  Mailbox<LogLine> m_lines;
};

}  // namespace testkit
