#include "tests/fuzz/script.h"

#include "tests/support/process.h"

int LLVMFuzzerInitialize(int*, char***) {
  GTEST_FLAG_SET(throw_on_failure, true);
  return 0;
}

namespace fuzz {

using testkit::BigEndianAt;
using testkit::BuildPackage;
using testkit::kHeaderSize;

// The two low bits of a step say what it does, the others are a small number.
static Bytes ReadStream(Input* input, std::size_t enough) {
  Bytes stream;
  while (!input->IsEmpty() && stream.size() < enough) {
    const std::size_t step = input->Byte();
    const std::size_t number = step >> 2;
    switch (step & 3U) {
      case 0:
        stream += input->Take(number);
        break;
      case 1:
        stream += BuildPackage(input->Take(number));
        break;
      case 2:
        stream += BuildPackage(Bytes(input->TwoBytes(), static_cast<char>(number)));
        break;
      default: {
        const std::size_t back = 1 + input->TwoBytes();
        if (back > stream.size()) break;
        char& byte = stream[stream.size() - back];
        byte = static_cast<char>(byte ^ 1 << number % 8);
      }
    }
  }
  return stream;
}

std::vector<Chunk> ReadScript(Input input) {
  constexpr std::size_t kMostChunks = 200;
  const std::size_t first = input.Byte();
  Bytes sizes = input.Take(first % 16);
  if (sizes.empty()) sizes = '\x0F';
  const Bytes stream = ReadStream(&input, first < 255 ? 6000 : 150000);
  std::vector<Chunk> chunks;
  for (std::size_t begin = 0; begin < stream.size(); begin += chunks.back().bytes.size()) {
    const auto size = static_cast<unsigned char>(sizes[chunks.size() % sizes.size()]);
    const std::size_t bytes = (std::size_t{1} << (size & 15U) * 17 / 15) + (size >> 4 & 7U);
    const bool is_last = chunks.size() >= kMostChunks;
    chunks.push_back({stream.substr(begin, is_last ? Bytes::npos : bytes), size >= 128});
  }
  return chunks;
}

int PlayServer(Input input, void (*play)(const std::vector<Chunk>& script)) {
  const testkit::HeldResources held;
  play(ReadScript(input));
  EXPECT_TRUE(held.AreRestored(kLimit)) << held.Difference();
  return 0;
}

Result PlainCutter::Feed(const Bytes& bytes, std::vector<Bytes>* packages) {
  for (std::size_t begin = 0, count = 0; begin < bytes.size(); begin += count) {
    count = std::min(bytes.size() - begin, m_capacity - m_held.size());
    m_held.append(bytes, begin, count);
    const std::size_t packages_before = packages->size();
    const Result result = Cut(packages);
    if (result == Result::kGoOn) continue;
    packages->resize(packages_before);
    m_held.clear();
    return result;
  }
  return Result::kGoOn;
}

Result PlainCutter::FeedSingly(const Bytes& bytes, std::vector<Bytes>* packages) {
  for (const char byte : bytes) {
    const Result result = Feed({byte}, packages);
    if (result != Result::kGoOn) return result;
  }
  return Result::kGoOn;
}

Result PlainCutter::Cut(std::vector<Bytes>* packages) {
  m_capacity = 2048;
  while (m_held.size() >= kHeaderSize) {
    const std::uint32_t body_length = BigEndianAt(m_held, 4);
    if (body_length > INT32_MAX - kHeaderSize) return Result::kProtocolError;
    const std::size_t length = kHeaderSize + body_length;
    if (length >= 5242880) return Result::kTooBig;
    if (length > m_held.size()) {
      m_capacity = std::max(m_capacity, length);
      break;
    }
    packages->push_back(m_held.substr(0, length));
    m_held.erase(0, length);
  }
  return Result::kGoOn;
}

std::vector<Bytes> DeliveredBodies(const std::vector<Bytes>& packages) {
  std::vector<Bytes> bodies;
  for (const Bytes& package : packages) {
    Bytes body = package.substr(kHeaderSize);
    if (testkit::CheckSum(body) != package.substr(8, 4) || testkit::IsHeartbeat(body)) continue;
    bodies.push_back(std::move(body));
  }
  return bodies;
}

}  // namespace fuzz
