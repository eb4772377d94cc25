#include "client/ftwindow.h"

#include <gtest/gtest.h>

namespace {

TEST(HostWindow, NobodyWaitsOnWindowsThatAreGone) {
  const unsigned int window = FTCreateWindow();
  FTWindowMsg message{};
  EXPECT_EQ(FTWaitMessage(window, &message, 0), 0);
  EXPECT_EQ(FTWaitMessage(window, nullptr, 0), -1);
  EXPECT_GE(FTGetWindowFd(window), 0);
  EXPECT_EQ(FTDestroyWindow(window), 0);
  EXPECT_EQ(FTDestroyWindow(window), -1);
  EXPECT_EQ(FTWaitMessage(window, &message, -1), -1);
  EXPECT_EQ(FTGetWindowFd(window), -1);
}

}  // namespace
