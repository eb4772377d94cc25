// The first good package that a balance server sends is the answer, whatever else it sends.
#include <future>

#include "tests/fuzz/script.h"
#include "tests/support/client_test.h"
#include "tests/support/process.h"

namespace {

using namespace testkit;

constexpr std::chrono::seconds kLimit(10);

std::optional<Bytes> Ask(std::uint16_t port) {
  CClientDataSource client;
  char host[] = "localhost";
  char* answer = host;
  const int result = client.GetBalanceServer(host, port, 'A', &answer);
  EXPECT_EQ(result, answer == nullptr ? 0 : 1);
  if (answer == nullptr) return std::nullopt;
  Bytes body(answer + 4, BigEndianAt({answer[3], answer[2], answer[1], answer[0]}, 0));
  client.FreeBuffer(answer);
  return body;
}

// Sends until the answer is complete or the link at fault. What comes in one go with a fault may be
// lost.
void Play(const std::vector<fuzz::Chunk>& script) {
  ScriptedServer server;
  auto asking = std::async(std::launch::async, &Ask, server.Port());
  Peer peer = server.Accept(kLimit);
  EXPECT_EQ(peer.ReceivePackage(kLimit), "\1A");
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
  const HeldResources held;
  Play(fuzz::ReadScript({data, size}));
  EXPECT_TRUE(held.AreRestored(kLimit)) << held.Difference();
  return 0;
}
