// Kernels of the Burrows-Wheeler transform by induced sorting.

#include "kernels/bwt_sort.h"

#include <string.h>

#include <algorithm>
#include <array>
#include <bit>

#include "frame/bytes.h"
#include "frame/compiler.h"
#include "kernels/target.h"

namespace zebdc::kernels {
namespace {

// One bit for each of 64 positions.
struct Neighbours {
  uint64_t belowNext;
  uint64_t equalsNext;
  uint64_t belowPrevious;
};

ZEBDC_ALWAYS_INLINE uint64_t mirrored(uint64_t bits) {
  constexpr uint64_t nibbles = 0x0F0F0F0F0F0F0F0F, pairs = 0x3333333333333333,
                     singles = 0x5555555555555555;
  bits = byteSwapped(bits);
  bits = (bits >> 4 & nibbles) | (bits & nibbles) << 4;
  bits = (bits >> 2 & pairs) | (bits & pairs) << 2;
  return (bits >> 1 & singles) | (bits & singles) << 1;
}

ZEBDC_ALWAYS_INLINE bool firstIsTypeS(const uint8_t* text) {
  const uint8_t* p = text;
  while (p[0] == p[1]) ++p;
  return p[0] < p[1];
}

// Bits from any position on, at least 57 of them.
ZEBDC_ALWAYS_INLINE uint64_t loadBits(const uint64_t* bits, uint32_t position) {
  return load<uint64_t>(reinterpret_cast<const uint8_t*>(bits) + position / 8) >> position % 8;
}

ZEBDC_ALWAYS_INLINE uint32_t equalBytes16(const uint8_t* a, const uint8_t* b) {
  const __m128i equal = _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(a)),
                                       _mm_loadu_si128(reinterpret_cast<const __m128i*>(b)));
  return static_cast<uint32_t>(std::countr_one(static_cast<uint32_t>(_mm_movemask_epi8(equal))));
}

namespace baseline {

inline Neighbours compareNeighbours16(const uint8_t* p) {
  const __m128i before = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p - 1));
  const __m128i here = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  const __m128i next = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 1));
  // Unsigned a >= b is max(a, b) == a.
  const auto mask = [](__m128i bytes) {
    return static_cast<uint64_t>(static_cast<uint32_t>(_mm_movemask_epi8(bytes)));
  };
  const uint64_t equal = mask(_mm_cmpeq_epi8(here, next));
  const uint64_t notBelowNext = mask(_mm_cmpeq_epi8(_mm_max_epu8(here, next), here));
  const uint64_t notBelowPrevious = mask(_mm_cmpeq_epi8(_mm_max_epu8(here, before), here));
  return {notBelowNext ^ 0xFFFF, equal, notBelowPrevious ^ 0xFFFF};
}

inline Neighbours compareNeighbours(const uint8_t* p) {
  Neighbours all = {0, 0, 0};
  for (int i = 0; i < 64; i += 16) {
    const Neighbours part = compareNeighbours16(p + i);
    all.belowNext |= part.belowNext << i;
    all.equalsNext |= part.equalsNext << i;
    all.belowPrevious |= part.belowPrevious << i;
  }
  return all;
}

constexpr uint32_t fewWords = 8;

inline void rankFew(const uint64_t* words, uint32_t count, uint32_t* ranks) {
  for (uint32_t i = 0; i < count; ++i) {
    uint32_t rank = 0;
    for (uint32_t j = 0; j < i; ++j) {
      const uint32_t above = words[j] > words[i];
      ranks[j] += above;
      rank += 1 - above;
    }
    ranks[i] = rank;
  }
}

inline uint32_t partition(uint64_t* words, uint32_t count, uint64_t pivot, uint64_t* spare) {
  uint32_t below = 0;
  for (uint32_t i = 0; i < count; ++i) {
    const uint64_t word = words[i];
    words[below] = word;
    spare[i - below] = word;
    below += word < pivot;
  }
  memcpy(words + below, spare, (count - below) * sizeof *words);
  return below;
}

#include "kernels/bwt_sort_body.inc"

}  // namespace baseline

ZEBDC_BEGIN_AVX2
namespace avx2 {

inline Neighbours compareNeighbours32(const uint8_t* p) {
  const __m256i before = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p - 1));
  const __m256i here = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
  const __m256i next = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 1));
  const uint32_t equal = static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(here, next)));
  const uint32_t notBelowNext = static_cast<uint32_t>(
      _mm256_movemask_epi8(_mm256_cmpeq_epi8(_mm256_max_epu8(here, next), here)));
  const uint32_t notBelowPrevious = static_cast<uint32_t>(
      _mm256_movemask_epi8(_mm256_cmpeq_epi8(_mm256_max_epu8(here, before), here)));
  return {~notBelowNext, equal, ~notBelowPrevious};
}

inline Neighbours compareNeighbours(const uint8_t* p) {
  const Neighbours low = compareNeighbours32(p);
  const Neighbours high = compareNeighbours32(p + 32);
  return {low.belowNext | high.belowNext << 32, low.equalsNext | high.equalsNext << 32,
          low.belowPrevious | high.belowPrevious << 32};
}

constexpr uint16_t fewWords = 32;

// AVX2 compares signed words: flipping the top bit of both sides makes them unsigned.
constexpr long long topBit = INT64_MIN;

inline void rankFew(const uint64_t* words, uint32_t count, uint32_t* ranks) {
  baseline::rankFew(words, count, ranks);
}

// The lanes of a vector of four words, as pairs of 32-bit lanes: those whose bit is set in the
// index first, in their order.
struct CompressTable {
  alignas(32) int32_t lanes[16][8];
};

constexpr CompressTable makeCompressTable() {
  CompressTable table = {};
  for (int mask = 0; mask < 16; ++mask) {
    int at = 0;
    for (const bool wanted : {true, false}) {
      for (int lane = 0; lane < 4; ++lane) {
        if ((mask >> lane & 1) != static_cast<int>(wanted)) continue;
        table.lanes[mask][at++] = 2 * lane;
        table.lanes[mask][at++] = 2 * lane + 1;
      }
    }
  }
  return table;
}

constexpr CompressTable compressTable = makeCompressTable();

inline __m256i compress(__m256i vector, uint32_t mask) {
  return _mm256_permutevar8x32_epi32(
      vector, _mm256_load_si256(reinterpret_cast<const __m256i*>(compressTable.lanes[mask])));
}

inline uint32_t partition(uint64_t* words, uint32_t count, uint64_t pivot, uint64_t* spare) {
  const __m256i flip = _mm256_set1_epi64x(topBit);
  const __m256i bound = _mm256_set1_epi64x(static_cast<long long>(pivot) ^ topBit);
  uint32_t below = 0;
  uint32_t i = 0;
  // The store to the front covers words that have been read.
  for (; i + 4 <= count; i += 4) {
    const __m256i vector = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(words + i));
    const __m256i less = _mm256_cmpgt_epi64(bound, _mm256_xor_si256(vector, flip));
    const uint32_t mask = static_cast<uint32_t>(_mm256_movemask_pd(_mm256_castsi256_pd(less)));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(words + below), compress(vector, mask));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(spare + (i - below)),
                        compress(vector, mask ^ 15));
    below += static_cast<uint32_t>(std::popcount(mask));
  }
  for (; i < count; ++i) {
    const uint64_t word = words[i];
    words[below] = word;
    spare[i - below] = word;
    below += word < pivot;
  }
  memcpy(words + below, spare, (count - below) * sizeof *words);
  return below;
}

#include "kernels/bwt_sort_body.inc"

}  // namespace avx2
ZEBDC_END_TARGET

}  // namespace

constinit const TierTable<BwtSortKernels> bwtSortKernels(
    {{tierBaseline, {baseline::markLms, baseline::sortLms}},
     {tierAvx2, {avx2::markLms, avx2::sortLms}}});

}  // namespace zebdc::kernels
