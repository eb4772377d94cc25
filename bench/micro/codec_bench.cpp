// Packages: made, taken apart, and cut out of a stream.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "00shcode/ftmtsockimpl/pkg_cutter.h"
#include "00shcode/mytoolkit/buffer.h"
#include "bench/micro/bodies.h"
#include "client/package.h"
#include "platform/platform.h"

namespace {

constexpr std::int32_t kMaxPkgLen = 5242880;
constexpr std::int32_t kStreamBytes = 1 << 22;

void SetRates(benchmark::State& state, std::int64_t packages, std::int64_t body_bytes) {
  state.SetItemsProcessed(packages);
  state.SetBytesProcessed(packages * body_bytes);
}

void BM_Encode(benchmark::State& state) {
  const std::vector<char> body = micro::RandomBody(state.range(0));
  const auto length = static_cast<std::int32_t>(body.size());
  CFTBuffer buffer(static_cast<std::uint32_t>(length + ft::kPkgHeadLen));
  for (auto _ : state) {
    buffer.Reset();
    ft::EncodePkg(&buffer, body.data(), length);
    benchmark::DoNotOptimize(buffer.GetData());
  }
  SetRates(state, state.iterations(), length);
}

void BM_Decode(benchmark::State& state) {
  const std::vector<char> body = micro::RandomBody(state.range(0));
  const auto length = static_cast<std::int32_t>(body.size());
  CFTBuffer buffer;
  ft::EncodePkg(&buffer, body.data(), length);
  for (auto _ : state) {
    PkgHead head;
    char* decoded = nullptr;
    std::int32_t decoded_length = 0;
    if (ft::DecodePkg(&buffer, &head, &decoded, &decoded_length) != 0) {
      state.SkipWithError("the package was refused");
      break;
    }
    benchmark::DoNotOptimize(decoded);
    ft::FreeBody(decoded);
  }
  SetRates(state, state.iterations(), length);
}

void MakeStream(const std::vector<char>& body, std::int64_t packages, CFTBuffer* stream) {
  for (std::int64_t i = 0; i < packages; ++i) {
    ft::EncodePkg(stream, body.data(), static_cast<std::int32_t>(body.size()));
  }
}

// Fills the cutter's spaces as a read would; the number of bytes.
std::int32_t ReadInto(CFTPkgCutter* cutter, const unsigned char* data, std::int32_t count) {
  platform::BytePiece spaces[CFTPkgCutter::kMaxSpaces];
  const int pieces = cutter->GetSpaces(spaces);
  std::int32_t used = 0;
  for (int i = 0; i < pieces && used < count; ++i) {
    const std::int32_t now = std::min(spaces[i].length, count - used);
    std::memcpy(spaces[i].data, data + used, static_cast<std::size_t>(now));
    used += now;
  }
  cutter->Commit(used);
  return used;
}

void BM_Cut(benchmark::State& state) {
  const std::int64_t packages = kStreamBytes / (state.range(0) + ft::kPkgHeadLen);
  CFTBuffer stream(kStreamBytes);
  MakeStream(micro::RandomBody(state.range(0)), packages, &stream);
  CFTPkgCutter cutter(ft::GetPkgLen);
  std::vector<FTBufferPtr> cut;
  std::int64_t total = 0;
  for (auto _ : state) {
    for (std::int32_t at = 0; at < stream.GetDataLen();) {
      at += ReadInto(&cutter, stream.GetData() + at, stream.GetDataLen() - at);
      cutter.Cut(kMaxPkgLen, &cut);
      total += static_cast<std::int64_t>(cut.size());
      cut.clear();
    }
  }
  if (total != packages * state.iterations()) state.SkipWithError("packages are missing");
  SetRates(state, total, state.range(0));
}

BENCHMARK(BM_Encode)->Apply(micro::AllSizes);
BENCHMARK(BM_Decode)->Apply(micro::AllSizes);
BENCHMARK(BM_Cut)->Apply(micro::AllSizes);

}  // namespace
