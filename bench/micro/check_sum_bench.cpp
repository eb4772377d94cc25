// The wire checksum beside a plain copy of the same bytes.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "bench/micro/bodies.h"
#include "client/check_sum.h"

namespace {

void SetBytes(benchmark::State& state) {
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_Memcpy(benchmark::State& state) {
  const std::vector<char> body = micro::RandomBody(state.range(0));
  std::vector<char> copy(body.size());
  for (auto _ : state) {
    std::memcpy(copy.data(), body.data(), body.size());
    benchmark::DoNotOptimize(copy.data());
    benchmark::ClobberMemory();
  }
  SetBytes(state);
}

void CheckSum(benchmark::State& state, const std::vector<char>& body) {
  unsigned char sum[4];
  for (auto _ : state) {
    ft::CalcCheckSum(sum, body.data(), static_cast<std::int32_t>(body.size()));
    benchmark::DoNotOptimize(sum);
  }
  SetBytes(state);
}

void BM_CheckSumText(benchmark::State& state) {
  CheckSum(state, micro::TextBody(state.range(0)));
}

void BM_CheckSumRandom(benchmark::State& state) {
  CheckSum(state, micro::RandomBody(state.range(0)));
}

BENCHMARK(BM_Memcpy)->Apply(micro::AllSizes);
BENCHMARK(BM_CheckSumText)->Apply(micro::AllSizes);
BENCHMARK(BM_CheckSumRandom)->Apply(micro::AllSizes);

}  // namespace
