// The check sum, which the library computes in parts side by side, is that of a plain loop.
#include "client/check_sum.h"
#include "client/check_sum_run.h"
#include "tests/fuzz/script.h"

namespace {

using namespace testkit;

// To the very end of a block, so that a read behind the data is seen.
void Check(const Bytes& data, std::size_t offset) {
  const auto block = std::make_unique<char[]>(offset + data.size());
  data.copy(block.get() + offset, data.size());
  unsigned char sum[4];
  ft::CalcCheckSum(sum, block.get() + offset, static_cast<std::int32_t>(data.size()));
  EXPECT_EQ(Bytes(reinterpret_cast<const char*>(sum), sizeof sum), CheckSum(data));
}

// Whatever this processor offers, the others' way is right too.
void CheckOtherReader(const Bytes& data) {
  constexpr std::size_t kBlock = ft::WordRun::kBlockBytes;
  for (std::size_t begin = 0; begin + kBlock <= data.size(); begin += kBlock) {
    const auto* const block = reinterpret_cast<const unsigned char*>(data.data()) + begin;
    const ft::WordRun parts = ft::ReadBlock(block), words = ft::ReadWords(block, kBlock);
    EXPECT_EQ(std::pair(parts.total, parts.top), std::pair(words.total, words.top));
  }
}

}  // namespace

// Runs of words, each behind the length of its run, and how far the end and the start are moved.
int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  constexpr std::size_t kEnough = 9000;
  fuzz::Input input(bytes, size);
  const std::size_t ends = input.Byte();
  Bytes data;
  while (!input.IsEmpty() && data.size() < kEnough) {
    const std::size_t run = input.Byte();
    const Bytes word = input.Take(4);
    for (std::size_t i = run < 128 ? run + 1 : (run - 127) * 16; i > 0; --i) data += word;
  }
  constexpr std::size_t kAllLengths = 255;
  for (std::size_t i = 0; ends == kAllLengths && i <= std::min<std::size_t>(data.size(), 300);
       ++i) {
    Check(data.substr(0, i), i % 8);
  }
  data.resize(data.size() - std::min(data.size(), ends % 4));
  Check(data, ends / 4 % 8);
  CheckOtherReader(data);
  return 0;
}
