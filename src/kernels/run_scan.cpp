// The scan for runs of four equal bytes.

#include "kernels/run_scan.h"

#include "frame/compiler.h"
#include "kernels/target.h"

namespace zebdc::kernels {
namespace {

// From position i on: a run begins within the last, fewer than one vector's, bytes.
ZEBDC_ALWAYS_INLINE size_t copyRestToRun(const uint8_t* src, size_t i, size_t count, uint8_t* dst) {
  for (; i < count; ++i) {
    const uint8_t byte = src[i];
    if (byte == src[i + 1] && byte == src[i + 2] && byte == src[i + 3]) break;
    dst[i] = byte;
  }
  return i;
}

namespace baseline {

__m128i load(const uint8_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

size_t copyToRun(const uint8_t* src, size_t count, uint8_t* dst) {
  size_t i = 0;
  for (; count - i >= 16; i += 16) {
    const __m128i bytes = load(src + i);
    const __m128i equal1 = _mm_cmpeq_epi8(bytes, load(src + i + 1));
    const __m128i equal2 = _mm_cmpeq_epi8(bytes, load(src + i + 2));
    const __m128i equal3 = _mm_cmpeq_epi8(bytes, load(src + i + 3));
    const __m128i equal = _mm_and_si128(_mm_and_si128(equal1, equal2), equal3);
    const unsigned runs = static_cast<unsigned>(_mm_movemask_epi8(equal));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), bytes);
    if (runs != 0) return i + trailingZeros(runs);
  }
  return copyRestToRun(src, i, count, dst);
}

}  // namespace baseline

ZEBDC_BEGIN_AVX2
namespace avx2 {

__m256i load(const uint8_t* p) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}

size_t copyToRun(const uint8_t* src, size_t count, uint8_t* dst) {
  size_t i = 0;
  for (; count - i >= 32; i += 32) {
    const __m256i bytes = load(src + i);
    const __m256i equal1 = _mm256_cmpeq_epi8(bytes, load(src + i + 1));
    const __m256i equal2 = _mm256_cmpeq_epi8(bytes, load(src + i + 2));
    const __m256i equal3 = _mm256_cmpeq_epi8(bytes, load(src + i + 3));
    const __m256i equal = _mm256_and_si256(_mm256_and_si256(equal1, equal2), equal3);
    const unsigned runs = static_cast<unsigned>(_mm256_movemask_epi8(equal));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i), bytes);
    if (runs != 0) return i + _tzcnt_u32(runs);
  }
  return copyRestToRun(src, i, count, dst);
}

}  // namespace avx2
ZEBDC_END_TARGET

}  // namespace

constinit const TierTable<RunScanKernels> runScanKernels({{tierBaseline, {baseline::copyToRun}},
                                                          {tierAvx2, {avx2::copyToRun}}});

}  // namespace zebdc::kernels
