#include "client/check_sum_run.h"

namespace {

std::int32_t WordAt(const unsigned char* bytes) {
  return static_cast<std::int32_t>(std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 |
                                   std::uint32_t{bytes[2]} << 8 | std::uint32_t{bytes[3]});
}

}  // namespace

ft::WordRun ft::ReadWords(const unsigned char* bytes, std::size_t count) {
  WordRun run;
  for (std::size_t i = 0; i < count; i += WordRun::kWordBytes) run.Add(WordAt(bytes + i));
  return run;
}

// Four parts at once, since each addition waits for the one before it.
ft::WordRun ft::ReadBlock(const unsigned char* bytes) {
  constexpr std::size_t kPart = WordRun::kBlockBytes / 4;
  WordRun parts[4];
  for (std::size_t i = 0; i < kPart; i += WordRun::kWordBytes) {
    parts[0].Add(WordAt(bytes + i));
    parts[1].Add(WordAt(bytes + i + kPart));
    parts[2].Add(WordAt(bytes + i + 2 * kPart));
    parts[3].Add(WordAt(bytes + i + 3 * kPart));
  }
  return parts[0] + parts[1] + parts[2] + parts[3];
}
