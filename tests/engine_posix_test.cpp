#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <string>
#include <vector>

#include "tests/support/answering_server.h"
#include "tests/support/socket_io.h"
#include "tests/support/test_protocol.h"

namespace testkit {
namespace {

using Kind = LinkEvent::Kind;

// Takes all descriptor numbers below the one given.
std::vector<Descriptor> TakeNumbersBelow(int number) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  std::vector<Descriptor> taken;
  do {
    taken.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
  } while (taken.back().Get() >= 0 && taken.back().Get() < number);
  return taken;
}

TEST(Engine, LinksWithHighDescriptorNumbersWorkLikeOthers) {
  const auto taken = TakeNumbersBelow(2100);
  if (taken.back().Get() < 0) GTEST_SKIP() << "the system does not allow so many descriptors";
  EchoServer echo;
  TestProtocol protocol;
  protocol.Start();
  const std::string id = protocol.Connect(echo.Host(), echo.Port());
  const auto connected = protocol.WaitFor(Kind::kConnected);
  ASSERT_TRUE(connected);
  EXPECT_GT(connected->link.socket, 2100);
  ASSERT_EQ(protocol.Send(id, PatternBody(2000000)), 0);
  EXPECT_EQ(protocol.ReceivePackage(), PatternBody(2000000));
}

}  // namespace
}  // namespace testkit
