// Kernels of plain run-length coding.

#include "kernels/rle.h"

#include <string.h>

#include <algorithm>
#include <bit>

#include "frame/bytes.h"
#include "kernels/target.h"

namespace zebdc::kernels {
namespace {

constexpr size_t blockSize = 64;

namespace baseline {

inline uint64_t equalNeighbours16(const uint8_t* p) {
  const __m128i here = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  const __m128i next = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 1));
  return static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(here, next)));
}

inline uint64_t equalNeighbours(const uint8_t* p) {
  return equalNeighbours16(p) | equalNeighbours16(p + 16) << 16 | equalNeighbours16(p + 32) << 32 |
         equalNeighbours16(p + 48) << 48;
}

inline void copyBlock(const uint8_t* src, uint8_t* dst) {
  memcpy(dst, src, blockSize);
}

#include "kernels/rle_loops.inc"

}  // namespace baseline

ZEBDC_BEGIN_AVX2
namespace avx2 {

inline uint64_t equalNeighbours32(const uint8_t* p) {
  const __m256i here = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
  const __m256i next = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 1));
  return static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(here, next)));
}

inline uint64_t equalNeighbours(const uint8_t* p) {
  return equalNeighbours32(p) | equalNeighbours32(p + 32) << 32;
}

inline void copyBlock(const uint8_t* src, uint8_t* dst) {
  memcpy(dst, src, blockSize);
}

#include "kernels/rle_loops.inc"

}  // namespace avx2
ZEBDC_END_TARGET

ZEBDC_BEGIN_AVX512
namespace avx512 {

inline uint64_t equalNeighbours(const uint8_t* p) {
  return _mm512_cmpeq_epi8_mask(_mm512_loadu_si512(p), _mm512_loadu_si512(p + 1));
}

inline void copyBlock(const uint8_t* src, uint8_t* dst) {
  _mm512_storeu_si512(dst, _mm512_loadu_si512(src));
}

#include "kernels/rle_loops.inc"

}  // namespace avx512
ZEBDC_END_TARGET

}  // namespace

constinit const TierTable<RleKernels> rleKernels({{tierBaseline,
                                                   {baseline::encode, baseline::decode}},
                                                  {tierAvx2, {avx2::encode, avx2::decode}},
                                                  {tierAvx512, {avx512::encode, avx512::decode}}});

}  // namespace zebdc::kernels
