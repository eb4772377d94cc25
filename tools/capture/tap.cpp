#include "tools/capture/tap.h"

#include "00shcode/mytoolkit/clock.h"
#include "tools/capture/address.h"
#include "tools/common/console.h"

namespace capture {

namespace {

constexpr std::uint32_t kPauseMs = 100;  // when the system takes no link

}  // namespace

Tap::Link::Link(int number, FTSocket application, const FTSockAddr& peer, const TapOptions& options,
                CaptureWriter* writer)
    : events(number, MakeAddress(peer), MakeAddress(options.server), options.style, writer),
      relay(application, options.server, &events) {}

Tap::Link::~Link() {
  relay.StopThread();
  relay.WaitThreadExit();
}

Tap::Tap(const TapOptions& options)
    : m_options(options),
      m_writer(options.recording.empty() ? nullptr
                                         : std::make_unique<CaptureWriter>(options.recording)) {
  FTSockStartup();
}

Tap::~Tap() {
  Stop();
}

void Tap::Stop() {
  FTSockClose(m_listening);
  m_listening = kNoSocket;
  m_links.clear();
}

bool Tap::Listen() {
  m_listening = FTSockListen(m_options.listen.host.c_str(),
                             static_cast<std::uint16_t>(m_options.listen.port));
  return m_listening != kNoSocket;
}

std::string Tap::GetAddress() const {
  Endpoint address;
  std::uint16_t port = 0;
  FTSockGetAddrs(m_listening, &address.host, &port, nullptr, nullptr);
  address.port = port;
  return ShowEndpoint(address);
}

void Tap::RunOnce(std::int32_t wait_ms) {
  if (FTSockWaitReadable(m_listening, wait_ms) == 1) Accept();
  m_links.remove_if([](const Link& link) { return link.relay.HasEnded(); });
}

void Tap::Accept() {
  FTSocket application = kNoSocket;
  FTSockAddr peer;
  const std::int32_t result = FTSockAccept(m_listening, &application, &peer);
  if (result < 0) ft::Sleep(kPauseMs);
  if (result != 1) return;
  Link& link = m_links.emplace_back(++m_count, application, peer, m_options, m_writer.get());
  if (link.relay.StartThread(0) == 0) return;
  PrintStamped(std::to_string(m_count) + " refused: the system makes no thread");
  m_links.pop_back();
}

}  // namespace capture
