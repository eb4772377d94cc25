// The first good package that a balance server sends is the answer, whatever else it sends.
#include <future>

#include "tests/fuzz/script.h"
#include "tests/support/client_test.h"

namespace {

using namespace testkit;

// Sends until the answer is complete or the link at fault. What comes in one go with a fault may be
// lost.
void Play(const std::vector<fuzz::Chunk>& script) {
  ScriptedServer server;
  CClientDataSource client;
  auto asking = std::async(&AskBalance, &client, "localhost", server.Port(), 'A');
  Peer peer = server.Accept(fuzz::kLimit);
  EXPECT_EQ(peer.ReceivePackage(fuzz::kLimit), "\1A");
  fuzz::PlainCutter plain;
  std::vector<Bytes> packages;
  std::vector<Bytes> bodies;
  auto result = fuzz::Result::kGoOn;
  for (auto chunk = script.begin();
       chunk != script.end() && bodies.empty() && result == fuzz::Result::kGoOn; ++chunk) {
    result = plain.FeedSingly(chunk->bytes, &packages);
    bodies = fuzz::DeliveredBodies(packages);
    peer.SendRaw(chunk->bytes);
  }
  peer.StopSending();
  const std::optional<Bytes> answer = asking.get();
  if (answer || result == fuzz::Result::kGoOn) {
    EXPECT_EQ(answer, bodies.empty() ? std::nullopt : std::optional(bodies[0]));
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::PlayServer({data, size}, &Play);
}
