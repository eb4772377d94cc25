// A client whose server sends anything: good packages are delivered in order, those before a pause
// all of them. Only a fault or the server ends the link, and nothing is left of it.
#include "tests/fuzz/script.h"
#include "tests/support/client_test.h"

namespace {

using namespace testkit;

using fuzz::kLimit;

class Host {
 public:
  explicit Host(const ScriptedServer& server) {
    LinkClient(&m_client, {At(server)}, m_window.Handle(), m_window.Message());
    EXPECT_EQ(m_window.Next(kLimit), Notification(LINK_EVENT_UP, ""));
  }

  void ExpectBodies(const std::vector<Bytes>& bodies) {
    while (m_delivered < bodies.size()) {
      EXPECT_EQ(m_window.Next(kLimit), Notification(0, bodies[m_delivered++]));
    }
  }
  // Before it, more of the bodies may come, but none is left out.
  void ExpectEnd(const std::vector<Bytes>& bodies) {
    auto next = m_window.Next(kLimit);
    for (; next && next->first == 0; next = m_window.Next(kLimit)) {
      EXPECT_EQ(next->second, bodies.at(m_delivered++));
    }
    EXPECT_EQ(next, Notification(LINK_EVENT_CLOSED, ""));
  }

 private:
  CClientDataSource m_client;
  ClientWindow m_window{&m_client};
  std::size_t m_delivered = 0;
};

void Play(const std::vector<fuzz::Chunk>& script) {
  ScriptedServer server;
  Host host(server);
  Peer peer = server.Accept(kLimit);
  fuzz::PlainCutter plain;
  std::vector<Bytes> packages;
  for (const fuzz::Chunk& chunk : script) {
    const fuzz::Result result = plain.FeedSingly(chunk.bytes, &packages);
    peer.SendRaw(chunk.bytes);
    const std::vector<Bytes> bodies = fuzz::DeliveredBodies(packages);
    if (result != fuzz::Result::kGoOn) return host.ExpectEnd(bodies);
    if (chunk.pause) host.ExpectBodies(bodies);
  }
  host.ExpectBodies(fuzz::DeliveredBodies(packages));
  peer.Close();
  host.ExpectEnd({});
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::PlayServer({data, size}, &Play);
}
