#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

namespace micro {

std::vector<char> TextBody(std::int64_t size);
std::vector<char> RandomBody(std::int64_t size);

// 16 bytes to 1 MiB.
void AllSizes(benchmark::internal::Benchmark* bench);

}  // namespace micro
