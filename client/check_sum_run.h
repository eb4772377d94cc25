#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace ft {

// What a run of signed big-endian words does to a sum.
struct WordRun {
  static constexpr std::size_t kWordBytes = 4;
  static constexpr std::size_t kBlockBytes = 1024;

  std::int64_t total = 0;
  std::int64_t top = 0;  // the highest total on the way, or 0

  void Add(std::int32_t word) {
    total += word;
    top = std::max(top, total);
  }

  // The run that goes on with the other one.
  WordRun operator+(const WordRun& next) const {
    return {total + next.total, std::max(top, total + next.top)};
  }
};

// So many bytes, a multiple of kWordBytes.
WordRun ReadWords(const unsigned char* bytes, std::size_t count);

// Reads one block of WordRun::kBlockBytes.
using BlockReader = WordRun (*)(const unsigned char* bytes);

// For every processor.
WordRun ReadBlock(const unsigned char* bytes);

// The same with the vectors of this processor; null when it has none that help.
BlockReader VectorBlockReader();

}  // namespace ft
