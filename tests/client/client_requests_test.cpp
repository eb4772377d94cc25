// Requests and answers of one link, seen from both of its ends.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <map>
#include <string>
#include <thread>

#include "tests/support/answering_server.h"
#include "tests/support/client_test.h"
#include "tests/support/fast_clock.h"
#include "tests/support/run_on_threads.h"
#include "tests/support/stderr_capture.h"

namespace testkit {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kLargestBody = 5242867;

class ClientRequests : public ClientTest {};

TEST_F(ClientRequests, RequestsStandOnTheWireAsPackagesAndRefusedOnesLeaveNoTrace) {
  ScriptedServer server;
  Peer peer = LinkWith(&server);
  for (const unsigned int length : {unsigned{INT_MAX} - 11, unsigned{INT_MAX} + 1, UINT_MAX}) {
    EXPECT_EQ(m_client.AskData("x", length), -1) << length;
  }
  EXPECT_EQ(m_client.AskData(nullptr, 10), 0);
  EXPECT_EQ(m_client.AskData(nullptr, 0), 0);
  for (const Bytes& body : {Bytes("abc"), Bytes(), Bytes("HB\0", 3), PatternBody(6000000)}) {
    Bytes data = body;
    EXPECT_EQ(Ask(data), 0);
    std::fill(data.begin(), data.end(), '!');  // the data were copied
    const Bytes package = BuildPackage(body);
    EXPECT_TRUE(peer.ReceiveExactly(package.size(), 10s) == package) << body.size() << " bytes";
  }
}

TEST_F(ClientRequests, AnswersAreDeliveredInOrderWithTheirLengths) {
  EchoServer server;
  LinkWith(server);
  const std::size_t sizes[] = {0, 1, 2, 4, 11, 12, 13, 255, 10240, 65535, 70000, 300000};
  const auto body = [&](std::uint32_t i) { return PatternBody(sizes[i % std::size(sizes)], i); };
  for (std::uint32_t i = 0; i < 240; ++i) ASSERT_EQ(Ask(body(i)), 0);
  for (std::uint32_t i = 0; i < 240; ++i) ASSERT_TRUE(m_window.Next(10s) == Package(body(i))) << i;
  EXPECT_EQ(server.Fault(), "");
}

TEST_F(ClientRequests, HeartbeatsAreSentAndOnlyWholeOnesAreKeptFromTheWindow) {
  FastClock fast(20);
  ScriptedServer server;
  Peer peer = LinkWith(&server);
  const Bytes heartbeat("HB\0", 3);
  for (const Bytes& other : {Bytes("HB"), Bytes("HBx"), Bytes(), Bytes("\0HB\0", 4)}) {
    peer.SendPackage(heartbeat);
    peer.SendPackage(other);
    peer.SendPackage(heartbeat + "more");
    EXPECT_EQ(m_window.Next(5s), Package(other));
  }
  EXPECT_EQ(peer.ReceiveExactly(15, 10s), FromHex("01 00 00 00 00 00 00 03 B7 BD FF FF 48 42 00"));
}

TEST_F(ClientRequests, DamagedPackagesVanishSilentlyAndForeignMarksDoNot) {
  StderrCapture lines;
  ScriptedServer server;
  Peer peer = LinkWith(&server);
  peer.SendRaw(BuildHeader(4, CheckSum("good")) + "gOod");
  peer.SendRaw(BuildHeader(0, FromHex("FF FF FF FE")));
  peer.SendRaw(BuildHeader(5, CheckSum("other"), 0xFFFFFFFF) + "other");
  peer.SendPackage("good");
  EXPECT_EQ(m_window.Next(5s), Package("other"));
  EXPECT_EQ(m_window.Next(5s), Package("good"));
  EXPECT_EQ(m_client.IsOnline(), 1);
  EXPECT_EQ(lines.Text(), "");
}

TEST_F(ClientRequests, LargestBodyIsDeliveredAndLongerOnesEndTheLink) {
  FastClock fast(10);
  StderrCapture lines;
  ScriptedServer server;
  ASSERT_EQ(Link({At(server)}), 1);
  const Bytes largest = PatternBody(kLargestBody);
  for (const std::uint32_t length : {std::uint32_t{kLargestBody + 1}, 0x7FFFFFF4U, 0xFFFFFFF4U}) {
    Peer peer = TakeLink(&server);
    peer.SendPackage(largest);
    EXPECT_TRUE(m_window.Next(10s) == Package(largest));
    // The header alone is enough: nobody waits for a body that will not be taken.
    peer.SendRaw(BuildHeader(length, FromHex("FF FF FF FF")));
    EXPECT_EQ(m_window.Next(5s), LinkClosed()) << std::hex << length;
    EXPECT_NE(peer.WaitClosed(5s), LinkEnd::kStillOpen);
  }
  EXPECT_GE(lines.LinesWith("Link down with[127.0.0.1]: Pkg is too big.").size(), 1U);
}

TEST_F(ClientRequests, RequestsOfOneThreadKeepTheirOrderAmongThoseOfOthers) {
  constexpr int kRequestsEach = 400;
  constexpr std::size_t kAll = 4 * kRequestsEach;
  EchoServer server;
  ClientWindow other(&m_client);
  LinkWith(server);
  std::atomic<bool> done{false};
  std::thread switching([&] {
    while (!done) {
      m_client.ChangeReceieveWnd(other.Handle(), other.Message());
      m_client.ChangeReceieveWnd(m_window.Handle(), m_window.Message());
    }
  });
  RunOnThreads(4, [&](int thread) {
    const Bytes name = std::to_string(thread);
    for (int i = 0; i < kRequestsEach; ++i) {
      EXPECT_EQ(Ask(name + std::to_string(i)), 0);
      EXPECT_EQ(m_client.IsOnline(), 1);
    }
  });
  EXPECT_TRUE(server.WaitForPackages(kAll, 10s));
  done = true;
  switching.join();
  std::map<char, int> next;
  for (const Arrival& arrival : server.Packages()) {
    EXPECT_EQ(arrival.body.substr(1), std::to_string(next[arrival.body[0]]++));
  }
  const auto next_delivered = [&] {
    return m_window.Next(0ms) || other.Next(0ms) || m_window.Next(5s) || other.Next(0ms);
  };
  std::size_t delivered = 0;
  while (delivered < kAll && next_delivered()) ++delivered;
  EXPECT_EQ(delivered, kAll);
}

}  // namespace
}  // namespace testkit
