#include "bench/micro/bodies.h"

#include <cstddef>
#include <random>

namespace micro {

std::vector<char> TextBody(std::int64_t size) {
  std::vector<char> body = RandomBody(size);
  for (char& c : body) c = static_cast<char>('a' + static_cast<unsigned char>(c) % 26);
  return body;
}

std::vector<char> RandomBody(std::int64_t size) {
  std::mt19937 random(1);
  std::vector<char> body(static_cast<std::size_t>(size));
  for (char& c : body) c = static_cast<char>(random());
  return body;
}

void AllSizes(benchmark::internal::Benchmark* bench) {
  for (const std::int64_t size : {16, 64, 1024, 16384, 1048576}) bench->Arg(size);
}

}  // namespace micro
