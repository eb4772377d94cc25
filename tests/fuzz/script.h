// What the fuzz targets make of their inputs, and what the wire format says about it.
#pragma once

#include <gtest/gtest.h>

#include "00shcode/ftmtsockimpl/pkg_cutter.h"
#include "tests/support/wire.h"

// A target is the second function. The first one lets an expectation that fails end the program.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

using Result = CFTPkgCutter::Result;
using testkit::Bytes;

// Takes an input apart from its front. Behind its end numbers are zero and bytes are missing.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : m_next(data), m_end(data + size) {}

  bool IsEmpty() const { return m_next == m_end; }
  std::size_t Byte() { return IsEmpty() ? 0 : *m_next++; }
  std::size_t TwoBytes() {
    const std::size_t high = Byte();
    return high << 8 | Byte();
  }
  Bytes Take(std::size_t most) {
    const auto left = static_cast<std::size_t>(m_end - m_next);
    const Bytes bytes(reinterpret_cast<const char*>(m_next), std::min(most, left));
    m_next += bytes.size();
    return bytes;
  }

 private:
  const std::uint8_t* m_next;
  const std::uint8_t* const m_end;
};

// Sent in one go. After a pause everything before has arrived.
struct Chunk {
  Bytes bytes;
  bool pause;
};

// What a peer sends. The input begins with the number of chunk sizes and the sizes, which are used
// in turn; then steps write the stream: bytes as they are, good packages, and bits that flip. Long
// streams are rare, so that most inputs are quick.
std::vector<Chunk> ReadScript(Input input);

constexpr std::chrono::seconds kLimit(10);

// For targets whose input is what a server sends; nothing may be left of a client. Always 0.
int PlayServer(Input input, void (*play)(const std::vector<Chunk>& script));

// Packages as the wire format says: a buffer of 2,048 bytes, or of the size of a longer package, is
// filled and cut over and over. A fault drops all that lies in the buffer and the rest that is fed.
class PlainCutter {
 public:
  Result Feed(const Bytes& bytes, std::vector<Bytes>* packages);
  // One at a time: no package is lost beside a fault.
  Result FeedSingly(const Bytes& bytes, std::vector<Bytes>* packages);

 private:
  Result Cut(std::vector<Bytes>* packages);

  std::size_t m_capacity = 2048;
  Bytes m_held;
};

// The bodies that a client delivers: of packages whose check sum is right, heartbeats left out.
std::vector<Bytes> DeliveredBodies(const std::vector<Bytes>& packages);

}  // namespace fuzz
