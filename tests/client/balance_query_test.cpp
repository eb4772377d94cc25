#include <future>

#include "tests/support/client_test.h"

namespace {

using namespace testkit;

class BalanceQuery : public ClientTest {
 protected:
  // The answer's body; nothing without an answer.
  std::optional<Bytes> Query(std::string host, int port, char question = 'A') {
    return AskBalance(&m_client, std::move(host), port, question);
  }

  void ExpectGivenUp(const OwnPort& port) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Query(port.Host(), port.Port()), std::nullopt);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 8s);
  }

  auto BeginQuery(const ScriptedServer& server, char question = 'A') {
    return std::async(&BalanceQuery::Query, this, kLoopbackHost, server.Port(), question);
  }
};

// The answer is large enough that the client is still at work on it when the link is gone.
TEST_F(BalanceQuery, QuestionIsTwoBytesAndTheEndOfTheLinkEndsTheWaitWithTheAnswerOrWithoutAny) {
  const Bytes body = PatternBody(5000000);
  ScriptedServer server;
  for (int i = 0; i < 10; ++i) {
    const char question = i == 0 ? '\0' : 'A';
    auto querying = BeginQuery(server, question);
    Peer peer = server.Accept(5s);
    EXPECT_EQ(peer.ReceiveExactly(14, 5s), BuildPackage(Bytes{1, question}));
    if (i > 0) peer.SendPackage(body);
    peer.StopSending();
    EXPECT_EQ(querying.wait_for(7s), std::future_status::ready) << "an answer may take ten";
    ASSERT_TRUE(querying.get() == (i > 0 ? std::optional(body) : std::nullopt)) << i;
    EXPECT_EQ(peer.ReceiveExactly(1, 5s), std::nullopt) << "more than one question";
  }
}

// The client looks for its link every ten milliseconds; one that it saw takes the question along,
// and the query is over.
TEST_F(BalanceQuery, ALinkThatWasLostBeforeTheQuestionDoesNotCount) {
  bool answered = false;
  for (int i = 0; i < 50 && !answered; ++i) {
    ScriptedServer server;
    auto querying = BeginQuery(server);
    server.Accept(5s).Close();
    std::optional<Peer> second;
    while (!second && querying.wait_for(0s) != std::future_status::ready)
      second = server.TryAccept(100ms);
    if (second && second->ReceivePackage(2s)) second->SendPackage("the second link's");
    answered = querying.get() == "the second link's";
  }
  EXPECT_TRUE(answered);
}

TEST_F(BalanceQuery, HostsThatCannotBeResolvedAreNotLinkedTo) {
  for (const char* const host : {"no-such-host.invalid", "256.1.1.1", ""})
    EXPECT_EQ(Query(host, 80), std::nullopt) << host;
  char host[] = "127.0.0.1";
  char* answer = host;
  EXPECT_EQ(m_client.GetBalanceServer(nullptr, 80, 'A', &answer), 0);
  EXPECT_EQ(answer, nullptr);
  EXPECT_EQ(m_client.GetBalanceServer(host, 80, 'A', nullptr), 0);
}

TEST_F(BalanceQuery, WithoutALinkIsGivenUpAfterEightSecondsAndTheClientIsFreeAgain) {
  ExpectGivenUp(ClosedPort());
  ScriptedServer server;
  LinkWith(&server);
}

// Ten seconds, or less when the reply watchdog comes first.
TEST_F(BalanceQuery, HeartbeatsAreNoAnswer) {
  ExpectGivenUp(
      AnsweringServer([](const Bytes&) { return std::vector<Bytes>(20, kHeartbeatBody); }));
}

}  // namespace
