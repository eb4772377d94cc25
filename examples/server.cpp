// A server in one page: a protocol class on the framework that the client stands on. It answers
// each request, and sends all clients a package each second.
// usage: server PORT      0: the system chooses one; try it with: ftc link 127.0.0.1:PORT
// It runs until its input ends: on a terminal until Ctrl-D, on Windows Ctrl-Z and Enter.
// The framework is not installed: servers are built in this tree and linked with ftclient_core.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <set>
#include <string>

#include "client/package.h"
#include "sockif/base_sock_if.h"

namespace {

constexpr char kAddress[] = "127.0.0.1";  // null: all of this machine's
constexpr std::int32_t kLongestRequest = 65536;
constexpr std::int32_t kPriority = 3;  // that of heartbeats, so that nothing overtakes
constexpr std::uint32_t TIMER_PUSH = 1;
constexpr std::int32_t kPushIntervalMs = 1000;

// All callbacks but VGetOnePkgLen and VGetHeartbeatPkg run on the object's own thread.
class Server final : public CFTBaseSockIf {
 public:
  Server()
      : CFTBaseSockIf(FTEventMode::kByMessage, FTHeartbeatMode::kOnSendThread,
                      FTSpaceReports::kNone) {}

  // Links that are still up end with it.
  ~Server() override {
    PostQuit();
    WaitThreadExit();
  }

  // The port, once the server listens there; 0 when it cannot.
  std::uint16_t Start(std::uint16_t port) {
    m_port = port;
    return StartThread(0) == 0 ? m_listens_on.get_future().get() : std::uint16_t{0};
  }

 protected:
  std::int32_t OnEnterThread() override {
    CFTBaseSockIf::OnEnterThread();
    std::uint16_t port = 0;
    Listen(kAddress, m_port, 0, 0, &port);
    SetTimer(TIMER_PUSH, kPushIntervalMs);
    m_listens_on.set_value(port);
    return 0;
  }

  void OnMsg(FTMsg& msg, std::int32_t draining) override {
    if (msg.id != FTMSG_TIMER || msg.param1 != TIMER_PUSH) {
      return CFTBaseSockIf::OnMsg(msg, draining);
    }
    ++m_pushes;
    for (const std::string& link_id : m_links) Send(link_id, "push " + std::to_string(m_pushes));
    SetTimerAgain(msg);
  }

  // A negative length ends the link.
  std::int32_t VGetOnePkgLen(const void* data, std::int32_t count, const FTLinkInfo*) override {
    const std::int32_t length = ft::GetPkgLen(data, count);
    return length <= ft::kPkgHeadLen + kLongestRequest ? length : -1;
  }

  // Asked for when a link has sent nothing for 15 s. Links whose client is silent for 35 s end.
  CFTBuffer* VGetHeartbeatPkg(const FTLinkInfo*, FTReleaseFunction* release) override {
    *release = &ReleaseFTBuffer;
    return ft::MakeHeartbeatPkg().release();
  }

  void OnAccepted(const FTLinkInfo* link, const FTLinkInfo*) override {
    m_links.insert(link->link_id);
  }

  void OnLinkClosed(const FTLinkInfo* link, FTCloseReason) override {
    m_links.erase(link->link_id);
  }

  void OnRecvPkg(const FTLinkInfo* link, CFTBuffer* pkg, std::int32_t*) override {
    PkgHead head;
    std::int32_t length = 0;
    if (ft::VerifyPkg(pkg, &head, &length) != 0) return CloseLink(link->link_id, FTCloseMode::kNow);
    const char* const body = reinterpret_cast<const char*>(pkg->GetData()) + ft::kPkgHeadLen;
    if (ft::IsHeartbeatBody(body, length)) return;  // not to be answered
    Send(link->link_id, "answer to " + std::string(body, static_cast<std::size_t>(length)));
  }

 private:
  // A client that leaves 200,000,000 bytes unread gets no more.
  void Send(const std::string& link_id, const std::string& body) {
    auto pkg = std::make_unique<CFTBuffer>();
    ft::EncodePkg(pkg.get(), body.data(), static_cast<std::int32_t>(body.size()));
    const std::int32_t result =
        SendPkg(link_id, pkg.release(), &ReleaseFTBuffer, FTSendMode::kWithinLimits,
                FTOnRefusal::kRelease, kPriority);
    if (result == kSendTooMuch) CloseLink(link_id, FTCloseMode::kNow);
  }

  std::uint16_t m_port = 0;
  std::promise<std::uint16_t> m_listens_on;
  std::set<std::string> m_links;  // by id
  int m_pushes = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: server PORT      runs until its input ends\n");
    return 2;
  }
  Server server;
  const std::uint16_t port = server.Start(static_cast<std::uint16_t>(std::atoi(argv[1])));
  if (port == 0) {
    std::fprintf(stderr, "server: cannot listen on %s:%s\n", kAddress, argv[1]);
    return 1;
  }
  std::printf("listening on %s:%d\n", kAddress, port);
  std::fflush(stdout);
  while (std::getchar() != EOF) {
  }
  return 0;
}
