#include "00shcode/mytoolkit/text.h"

#include <gtest/gtest.h>

#include <string>

// Long texts are formatted twice, with the same arguments.
TEST(FormatString, ReturnsTheWholeTextOfAnyLength) {
  for (const std::size_t length : {15U, 1023U, 1024U, 1025U, 1026U, 3072U, 100000U}) {
    const std::string text(length - 15, 'x');
    EXPECT_EQ(FormatString("%s%d%lld", text.c_str(), -7, 1LL << 40), text + "-71099511627776");
  }
  EXPECT_EQ(FormatString("a%cb", 0), std::string("a\0b", 3));
}

TEST(BytesToHex, WritesTwoDigitsAByte) {
  const unsigned char bytes[] = {0x0A, 0xFF, 0x00, 0x9C};
  EXPECT_EQ(BytesToHex(bytes, 2, 1), "0aff");
  EXPECT_EQ(BytesToHex(bytes, 4, 0), "0AFF009C");
}
