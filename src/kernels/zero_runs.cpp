// The bulk of zero-run coding.
//
// A block of 64 elements is reduced to bit masks, one bit for each, and the loops walk the set bits
// instead of the elements: the chain from one to the next is a single cycle, and short zero runs
// cost no branch of their own.
//
// A run of n zeros is written as the bits of n + 1 below its highest one, least significant first.
// Neither direction loops over the digits of a short run: the encoder takes them from a table, four
// symbols to the store, and the decoder reads k digits as k bits of a mask, worth 2^k - 1 + bits.
//
// Tried and slower: computing the digits by a bit scan and a multiplication that spreads them
// (twice the time); masks from 512-bit vectors in the encoder.

#include "kernels/zero_runs.h"

#include <string.h>

#include <bit>

#include "frame/bytes.h"
#include "frame/compiler.h"
#include "kernels/target.h"

namespace zebdc::kernels {
namespace {

// Numerals of up to this many digits, that is runs of up to 30 zeros, are written and read without
// a loop.
constexpr size_t shortDigits = 4;
constexpr size_t longestShortRun = (2u << shortDigits) - 2;

// Symbols that a block may add: no more than its bytes, but the numeral of a run that began in
// blocks before it, and a store of four symbols that is used in part.
constexpr size_t encoderRoom = zeroRunBlock + 64 + 4;

// Bytes that a block may add, and a store of 32 bytes that is used in part. Longer runs are checked
// one by one.
constexpr size_t decoderRoom = zeroRunBlock * (longestShortRun + 1) + 32;
static_assert(longestShortRun <= 32);

// What a short run is written as. Symbols are 16-bit lanes, first one lowest; the two counts, of
// RUNA and RUNB, are 32-bit lanes, so that sums of them are formed in one addition.
struct Numeral {
  uint64_t symbols;
  uint64_t counts;
};

struct Numerals {
  alignas(64) Numeral forRun[longestShortRun + 1];
  uint8_t digits[longestShortRun + 1];
};

constexpr Numerals makeNumerals() {
  Numerals numerals{};
  for (size_t run = 0; run <= longestShortRun; ++run) {
    unsigned digits = 0;
    for (size_t rest = run + 1; rest > 1; rest >>= 1, ++digits) {
      const uint64_t symbol = rest & 1;
      numerals.forRun[run].symbols |= symbol << 16 * digits;
      numerals.forRun[run].counts += uint64_t{1} << 32 * symbol;
    }
    numerals.digits[run] = static_cast<uint8_t>(digits);
  }
  return numerals;
}

constexpr Numerals numerals = makeNumerals();

struct LiteralMasks {
  uint64_t literals;  // symbols of 2 and more
  uint64_t ones;      // symbols of 1
};

namespace baseline {

inline __m128i load(const void* p) {
  return _mm_loadu_si128(static_cast<const __m128i*>(p));
}

inline uint64_t bits(__m128i bytes) {
  return static_cast<uint32_t>(_mm_movemask_epi8(bytes));
}

inline uint64_t nonzeroBytes(const uint8_t* p) {
  uint64_t zeros = 0;
  for (unsigned i = 0; i < 64; i += 16) {
    zeros |= bits(_mm_cmpeq_epi8(load(p + i), _mm_setzero_si128())) << i;
  }
  return ~zeros;
}

inline LiteralMasks masksOf(const uint16_t* p) {
  LiteralMasks masks = {0, 0};
  const __m128i one = _mm_set1_epi16(1);
  const __m128i zero = _mm_setzero_si128();
  for (unsigned i = 0; i < 64; i += 16) {
    const __m128i low = load(p + i);
    const __m128i high = load(p + i + 8);
    const __m128i digits = _mm_packs_epi16(_mm_cmpeq_epi16(_mm_subs_epu16(low, one), zero),
                                           _mm_cmpeq_epi16(_mm_subs_epu16(high, one), zero));
    const __m128i ones = _mm_packs_epi16(_mm_cmpeq_epi16(low, one), _mm_cmpeq_epi16(high, one));
    masks.literals |= (bits(digits) ^ 0xFFFF) << i;
    masks.ones |= bits(ones) << i;
  }
  return masks;
}

inline void clear32(uint8_t* p) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm_setzero_si128());
  _mm_storeu_si128(reinterpret_cast<__m128i*>(p + 16), _mm_setzero_si128());
}

#include "kernels/zero_runs_loops.inc"

}  // namespace baseline

ZEBDC_BEGIN_AVX2
namespace avx2 {

inline __m256i load(const void* p) {
  return _mm256_loadu_si256(static_cast<const __m256i*>(p));
}

inline uint64_t bits(__m256i bytes) {
  return static_cast<uint32_t>(_mm256_movemask_epi8(bytes));
}

inline uint64_t nonzeroBytes(const uint8_t* p) {
  const __m256i zero = _mm256_setzero_si256();
  return ~(bits(_mm256_cmpeq_epi8(load(p), zero)) | bits(_mm256_cmpeq_epi8(load(p + 32), zero))
                                                        << 32);
}

// Packing works within 128-bit lanes; the permutation puts the quarters back in order.
inline uint64_t bitsOfPair(__m256i low, __m256i high) {
  return bits(_mm256_permute4x64_epi64(_mm256_packs_epi16(low, high), 0xD8));
}

inline LiteralMasks masksOf(const uint16_t* p) {
  LiteralMasks masks = {0, 0};
  const __m256i one = _mm256_set1_epi16(1);
  const __m256i zero = _mm256_setzero_si256();
  for (unsigned i = 0; i < 64; i += 32) {
    const __m256i low = load(p + i);
    const __m256i high = load(p + i + 16);
    const uint64_t digits = bitsOfPair(_mm256_cmpeq_epi16(_mm256_subs_epu16(low, one), zero),
                                       _mm256_cmpeq_epi16(_mm256_subs_epu16(high, one), zero));
    masks.literals |= (digits ^ 0xFFFFFFFF) << i;
    masks.ones |= bitsOfPair(_mm256_cmpeq_epi16(low, one), _mm256_cmpeq_epi16(high, one)) << i;
  }
  return masks;
}

inline void clear32(uint8_t* p) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), _mm256_setzero_si256());
}

#include "kernels/zero_runs_loops.inc"

}  // namespace avx2
ZEBDC_END_TARGET

}  // namespace

constinit const TierTable<ZeroRunKernels> zeroRunKernels(
    {{tierBaseline, {baseline::encode, baseline::decode}},
     {tierAvx2, {avx2::encode, avx2::decode}}});

}  // namespace zebdc::kernels
