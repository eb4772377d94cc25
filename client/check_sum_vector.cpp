#include "client/check_sum_run.h"

#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

namespace {

constexpr std::size_t kParts = 8;  // of a block, read side by side: two vectors of four sums
constexpr std::size_t kPart = ft::WordRun::kBlockBytes / kParts;

// Four runs, one to a lane.
struct FourRuns {
  __m256i total;
  __m256i top;
};

#define FT_AVX2 __attribute__((target("avx2"), always_inline)) inline

FT_AVX2 void Add(FourRuns* runs, __m128i words) {
  runs->total = _mm256_add_epi64(runs->total, _mm256_cvtepi32_epi64(words));
  const __m256i higher = _mm256_cmpgt_epi64(runs->total, runs->top);
  runs->top = _mm256_blendv_epi8(runs->top, runs->total, higher);
}

// Four words of one part, in this processor's byte order.
FT_AVX2 __m128i Load(const unsigned char* bytes) {
  const __m128i swap = _mm_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12);
  return _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes)), swap);
}

// The next four words of each of four parts that lie kPart apart.
FT_AVX2 void AddFour(FourRuns* runs, const unsigned char* bytes) {
  const __m128i a = Load(bytes);
  const __m128i b = Load(bytes + kPart);
  const __m128i c = Load(bytes + 2 * kPart);
  const __m128i d = Load(bytes + 3 * kPart);
  const __m128i ab_low = _mm_unpacklo_epi32(a, b);
  const __m128i cd_low = _mm_unpacklo_epi32(c, d);
  const __m128i ab_high = _mm_unpackhi_epi32(a, b);
  const __m128i cd_high = _mm_unpackhi_epi32(c, d);
  Add(runs, _mm_unpacklo_epi64(ab_low, cd_low));
  Add(runs, _mm_unpackhi_epi64(ab_low, cd_low));
  Add(runs, _mm_unpacklo_epi64(ab_high, cd_high));
  Add(runs, _mm_unpackhi_epi64(ab_high, cd_high));
}

FT_AVX2 ft::WordRun Join(const FourRuns& runs) {
  std::int64_t total[4];
  std::int64_t top[4];
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(total), runs.total);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(top), runs.top);
  ft::WordRun joined;
  for (int i = 0; i < 4; ++i) joined = joined + ft::WordRun{total[i], top[i]};
  return joined;
}

__attribute__((target("avx2"))) ft::WordRun ReadBlockAvx2(const unsigned char* bytes) {
  FourRuns first{_mm256_setzero_si256(), _mm256_setzero_si256()};
  FourRuns second = first;
  for (std::size_t i = 0; i < kPart; i += 4 * ft::WordRun::kWordBytes) {
    AddFour(&first, bytes + i);
    AddFour(&second, bytes + 4 * kPart + i);
  }
  return Join(first) + Join(second);
}

}  // namespace

ft::BlockReader ft::VectorBlockReader() {
  return __builtin_cpu_supports("avx2") ? &ReadBlockAvx2 : nullptr;
}

#else

ft::BlockReader ft::VectorBlockReader() {
  return nullptr;
}

#endif
