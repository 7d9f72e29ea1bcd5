// Kernels of the generalized interval transform.

#include "kernels/interval_transform.h"

#include <algorithm>
#include <bit>

#include "frame/bytes.h"
#include "kernels/target.h"

namespace zebdc::kernels {
namespace {

// An interval v is coded as v >> k ones, a zero and the low k bits of v. Where v >> k is 8 or more,
// eight ones stand for 8 << k, and k doubles for the rest.
constexpr uint32_t escapeQuotient = 8;
constexpr uint32_t updatesBetweenHalvings = 8;

// --- the adaptive parameter

// The smallest k of at least 1 with count << k no less than sum.
ZEBDC_ALWAYS_INLINE uint32_t parameterFor(uint64_t sum, uint64_t count) {
  // The bit lengths place k within one of their difference. There is no branch on it: frequent
  // values go back and forth between the smallest parameters.
  const int least =
      std::max(static_cast<int>(std::bit_width(sum)) - static_cast<int>(std::bit_width(count)), 1);
  return static_cast<uint32_t>(least) + ((count << least) < sum);
}

ZEBDC_ALWAYS_INLINE void addInterval(IntervalStatistics& statistics, uint32_t interval) {
  statistics.sum += interval;
  ++statistics.count;
  ++statistics.updates;
  // A shift by 1 or 0: a branch would be mispredicted at every other halving.
  const uint32_t halvings = statistics.updates / updatesBetweenHalvings;
  statistics.sum >>= halvings;
  statistics.count >>= halvings;
  statistics.updates %= updatesBetweenHalvings;
  statistics.k = parameterFor(statistics.sum, statistics.count);
}

// --- streams of the encoder

// Appends up to 57 bits, right-aligned. The store reaches 8 bytes from the current one on.
ZEBDC_ALWAYS_INLINE void putBits(IntervalStream& stream, uint64_t bits, uint32_t length) {
  uint8_t* const current = stream.bytes + stream.byteIndex;
  const uint64_t before = static_cast<uint64_t>(*current) << 56;
  storeBigEndian<uint64_t>(current, before | bits << (64 - stream.bitPosition - length));
  const uint32_t end = stream.bitPosition + length;
  stream.byteIndex += end / 8;
  stream.bitPosition = end % 8;
}

ZEBDC_ALWAYS_INLINE bool putIntervalBody(IntervalEncoder& encoder, int index, uint32_t interval) {
  IntervalStream& stream = encoder.streams[index];
  if (stream.byteIndex >= encoder.streamLimit) return false;
  uint64_t rest = interval;
  uint32_t k = encoder.statistics[index].k;
  while (rest >> k >= escapeQuotient) {
    putBits(stream, 0xFF, 8);
    rest -= uint64_t{escapeQuotient} << k;
    k *= 2;
  }
  const uint32_t quotient = static_cast<uint32_t>(rest >> k);
  const uint64_t prefix = (uint64_t{2} << quotient) - 2;
  const uint64_t low = rest & ((uint64_t{1} << k) - 1);
  if (k <= 32) [[likely]] {
    putBits(stream, prefix << k | low, quotient + 1 + k);
  } else {
    putBits(stream, prefix, quotient + 1);
    putBits(stream, low, k);
  }
  addInterval(encoder.statistics[index], interval);
  return true;
}

// --- the order of the values

ZEBDC_ALWAYS_INLINE void exchangeValues(IntervalLeaves& leaves, int a, int b) {
  const uint8_t valueA = leaves.valueAt[a];
  const uint8_t valueB = leaves.valueAt[b];
  leaves.valueAt[a] = valueB;
  leaves.valueAt[b] = valueA;
  leaves.positionOf[valueA] = static_cast<uint8_t>(b);
  leaves.positionOf[valueB] = static_cast<uint8_t>(a);
  const uint32_t count = leaves.count[a];
  leaves.count[a] = leaves.count[b];
  leaves.count[b] = count;
}

// The first of the two neighbouring positions whose values change places after a byte on the given
// position, or -1. The last position takes no part.
template <IntervalOrder order>
ZEBDC_ALWAYS_INLINE int exchangeAfter(const IntervalLeaves& leaves, int position) {
  if constexpr (order == IntervalOrder::towardFront) {
    if (position >= 1 && position < lastIntervalPosition &&
        leaves.count[position] > leaves.count[position - 1]) {
      return position - 1;
    }
  } else if constexpr (order == IntervalOrder::towardBack) {
    if (position < lastIntervalPosition - 1 &&
        leaves.count[position] > leaves.count[position + 1]) {
      return position;
    }
  }
  return -1;
}

// --- encoding

ZEBDC_ALWAYS_INLINE uint32_t sumBehind(const IntervalEncoder& encoder, int position) {
  return encoder.groupSum[position / intervalGroup] + encoder.positionSum[position];
}

ZEBDC_ALWAYS_INLINE void addToSumsBefore(IntervalEncoder& encoder, int position) {
  const int group = position / intervalGroup;
  const int inGroup = position % intervalGroup;
  for (int i = 0; i < intervalGroups; ++i) encoder.groupSum[i] += i < group;
  uint32_t* const sums = encoder.positionSum + group * intervalGroup;
  for (int i = 0; i < intervalGroup; ++i) sums[i] += i < inGroup;
}

// Exchanges the values on two neighbouring positions. Of all sums only that behind the first
// changes. Both values keep what has passed since they last occurred: their stored sums are based
// anew.
ZEBDC_ALWAYS_INLINE void exchangeEncoded(IntervalEncoder& encoder, int first) {
  const int second = first + 1;
  const uint32_t passedFirst = sumBehind(encoder, first) - encoder.storedSum[first];
  const uint32_t passedSecond = sumBehind(encoder, second) - encoder.storedSum[second];
  encoder.positionSum[first] += encoder.leaves.count[first] - encoder.leaves.count[second];
  exchangeValues(encoder.leaves, first, second);
  encoder.storedSum[first] = sumBehind(encoder, first) - passedSecond;
  encoder.storedSum[second] = sumBehind(encoder, second) - passedFirst;
}

template <IntervalOrder order>
ZEBDC_ALWAYS_INLINE bool encodeInOrder(IntervalEncoder& encoder, const uint8_t* src, size_t len) {
  for (size_t i = 0; i < len; ++i) {
    const int value = src[i];
    const int position = encoder.leaves.positionOf[value];
    ++encoder.leaves.count[position];
    if (position != lastIntervalPosition) {
      const uint32_t sum = sumBehind(encoder, position);
      const uint32_t interval = sum - encoder.storedSum[position];
      encoder.storedSum[position] = sum;
      if (!putIntervalBody(encoder, 255 - value, interval)) return false;
    }
    addToSumsBefore(encoder, position);
    if (const int first = exchangeAfter<order>(encoder.leaves, position); first >= 0) {
      exchangeEncoded(encoder, first);
    }
  }
  return true;
}

ZEBDC_ALWAYS_INLINE bool encodeBody(IntervalEncoder& encoder, const uint8_t* src, size_t len,
                                    IntervalOrder order) {
  switch (order) {
    case IntervalOrder::towardFront:
      return encodeInOrder<IntervalOrder::towardFront>(encoder, src, len);
    case IntervalOrder::towardBack:
      return encodeInOrder<IntervalOrder::towardBack>(encoder, src, len);
    default:
      return encodeInOrder<IntervalOrder::fixed>(encoder, src, len);
  }
}

// --- streams of the decoder

// At least 57 bits from a bit on, left-justified; ones stand for what lies past the end.
ZEBDC_ALWAYS_INLINE uint64_t peekBits(const IntervalSource& source, uint64_t bit) {
  const uint64_t byte = bit / 8;
  uint64_t word = ~uint64_t{0};
  if (byte + 8 <= source.size) {
    word = loadBigEndian<uint64_t>(source.bytes + byte);
  } else {
    for (uint64_t i = byte; i < source.size; ++i) {
      const int shift = static_cast<int>(56 - 8 * (i - byte));
      word ^= static_cast<uint64_t>(source.bytes[i] ^ 0xFF) << shift;
    }
  }
  const int used = static_cast<int>(bit % 8);
  return ~(~word << used);
}

ZEBDC_ALWAYS_INLINE bool onlyPaddingLeft(const IntervalSource& source) {
  const uint64_t left = source.bitEnd - source.bit;
  if (left == 0) return true;
  return left <= 8 && static_cast<uint64_t>(std::countl_one(peekBits(source, source.bit))) >= left;
}

IntervalResult getIntervalCarefully(IntervalSource& source, IntervalStatistics& statistics,
                                    uint32_t* interval) {
  if (onlyPaddingLeft(source)) return IntervalResult::done;
  uint64_t bit = source.bit;
  uint64_t value = 0;
  uint32_t k = statistics.k;
  uint64_t bits = peekBits(source, bit);
  while (bits >> 56 == 0xFF) {
    value += uint64_t{escapeQuotient} << k;
    k *= 2;
    bit += 8;
    if (value > INT32_MAX || bit >= source.bitEnd) return IntervalResult::invalid;
    bits = peekBits(source, bit);
  }
  const uint32_t quotient = static_cast<uint32_t>(std::countl_one(bits));
  bit += quotient + 1;
  if (bit + k > source.bitEnd) return IntervalResult::invalid;
  // A parameter of 28 and more has left the range at an escape, so k is at most 54 here.
  bits = quotient + 1 + k <= 57 ? bits << (quotient + 1) : peekBits(source, bit);
  const uint64_t low = bits >> (64 - k);
  value += (static_cast<uint64_t>(quotient) << k) + low;
  if (value > INT32_MAX) return IntervalResult::invalid;
  source.bit = bit + k;
  addInterval(statistics, static_cast<uint32_t>(value));
  *interval = static_cast<uint32_t>(value);
  return IntervalResult::more;
}

// The usual interval: no escape, and far enough from the stream's end that neither padding nor the
// bounds need a look.
ZEBDC_ALWAYS_INLINE IntervalResult getIntervalBody(IntervalSource& source,
                                                   IntervalStatistics& statistics,
                                                   uint32_t* interval) {
  constexpr uint64_t farFromEnd = 128;
  // Up to it quotients below 8 give intervals of at most INT32_MAX.
  constexpr uint32_t usualParameter = 28;
  const uint32_t k = statistics.k;
  if (source.bitEnd - source.bit >= farFromEnd && k <= usualParameter) [[likely]] {
    const uint64_t bits = loadBigEndian<uint64_t>(source.bytes + source.bit / 8)
                          << (source.bit % 8);
    const uint32_t quotient = static_cast<uint32_t>(std::countl_one(bits));
    if (quotient < escapeQuotient) [[likely]] {
      const uint32_t low = static_cast<uint32_t>((bits << (quotient + 1)) >> (64 - k));
      const uint32_t value = (quotient << k) + low;
      source.bit += quotient + 1 + k;
      addInterval(statistics, value);
      *interval = value;
      return IntervalResult::more;
    }
  }
  return getIntervalCarefully(source, statistics, interval);
}

// --- decoding

// Reads the next interval of the value on a position. False when its stream is malformed.
ZEBDC_ALWAYS_INLINE bool readUpcoming(IntervalDecoder& decoder, int position) {
  const int stream = 255 - decoder.leaves.valueAt[position];
  uint32_t interval = noMoreIntervals;
  const IntervalResult result =
      getIntervalBody(decoder.sources[stream], decoder.statistics[stream], &interval);
  decoder.upcoming[position] = interval;
  return result != IntervalResult::invalid;
}

ZEBDC_ALWAYS_INLINE IntervalResult startBody(IntervalDecoder& decoder) {
  for (int position = 0; position < lastIntervalPosition; ++position) {
    if (!readUpcoming(decoder, position)) return IntervalResult::invalid;
    decoder.remaining[position] = decoder.upcoming[position];
    if (!readUpcoming(decoder, position)) return IntervalResult::invalid;
  }
  decoder.remaining[lastIntervalPosition] = noMoreIntervals;
  decoder.upcoming[lastIntervalPosition] = noMoreIntervals;
  return IntervalResult::more;
}

ZEBDC_ALWAYS_INLINE bool anyValueWaits(const IntervalDecoder& decoder) {
  for (const uint32_t remaining : decoder.remaining) {
    if (remaining <= INT32_MAX) return true;
  }
  return false;
}

template <class T>
ZEBDC_ALWAYS_INLINE void exchange(T& a, T& b) {
  const T before = a;
  a = b;
  b = before;
}

// The positions with nothing left before them, as a set of bits. Those of the first group are left
// out while a loop holds that group in registers.
struct ReadyPositions {
  static constexpr int words = intervalPositions / 64;
  uint64_t bits[words];

  // The first of them, or the last position, which is never in the set.
  ZEBDC_ALWAYS_INLINE int first() const {
    for (int i = 0; i < words; ++i) {
      if (bits[i] != 0) return 64 * i + std::countr_zero(bits[i]);
    }
    return lastIntervalPosition;
  }

  // Replaces a group's part.
  ZEBDC_ALWAYS_INLINE void setGroup(int group, uint64_t groupBits) {
    const int shift = group * intervalGroup % 64;
    uint64_t& word = bits[group * intervalGroup / 64];
    word = (word & ~(uint64_t{0xFFFF} << shift)) | groupBits << shift;
  }

  ZEBDC_ALWAYS_INLINE void exchange(int a, int b) {
    const uint64_t differ = (bits[a / 64] >> (a % 64) ^ bits[b / 64] >> (b % 64)) & 1;
    bits[a / 64] ^= differ << (a % 64);
    bits[b / 64] ^= differ << (b % 64);
  }
};
static_assert(intervalGroup == 16,
              "a group is 16 bits of the set and one vector of the widest kind");

// Lane numbers to compare a position in its group with.
alignas(64) constexpr uint32_t laneNumbers[intervalGroup] = {0, 1, 2,  3,  4,  5,  6,  7,
                                                             8, 9, 10, 11, 12, 13, 14, 15};

}  // namespace

// Each tier gives a group of 16 positions in registers and the two steps on it:
//
//   passAll    every value waits for one byte less
//   passUpTo   so do those before a lane; the lane itself waits for the given number
//   lanesWith  the set of lanes that wait for just so many bytes

namespace {
namespace baseline {
struct Group {
  __m128i v[4];
};

ZEBDC_ALWAYS_INLINE Group loadGroup(const uint32_t* waits) {
  Group group;
  for (int i = 0; i < 4; ++i) {
    group.v[i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(waits) + i);
  }
  return group;
}

ZEBDC_ALWAYS_INLINE void storeGroup(uint32_t* waits, const Group& group) {
  for (int i = 0; i < 4; ++i) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(waits) + i, group.v[i]);
  }
}

ZEBDC_ALWAYS_INLINE void passAll(Group& group) {
  for (__m128i& v : group.v) v = _mm_add_epi32(v, _mm_set1_epi32(-1));
}

ZEBDC_ALWAYS_INLINE void passUpTo(Group& group, int lane, uint32_t own) {
  const __m128i lanes = _mm_set1_epi32(lane);
  const __m128i owns = _mm_set1_epi32(static_cast<int>(own));
  for (int i = 0; i < 4; ++i) {
    const __m128i number = _mm_load_si128(reinterpret_cast<const __m128i*>(laneNumbers) + i);
    const __m128i isLane = _mm_cmpeq_epi32(number, lanes);
    const __m128i passed = _mm_add_epi32(group.v[i], _mm_cmpgt_epi32(lanes, number));
    group.v[i] = _mm_or_si128(_mm_andnot_si128(isLane, passed), _mm_and_si128(isLane, owns));
  }
}

ZEBDC_ALWAYS_INLINE uint32_t lanesWith(const Group& group, uint32_t wait) {
  const __m128i waits = _mm_set1_epi32(static_cast<int>(wait));
  __m128i equal[4];
  for (int i = 0; i < 4; ++i) equal[i] = _mm_cmpeq_epi32(group.v[i], waits);
  const __m128i packed =
      _mm_packs_epi16(_mm_packs_epi32(equal[0], equal[1]), _mm_packs_epi32(equal[2], equal[3]));
  return static_cast<uint32_t>(_mm_movemask_epi8(packed));
}

#include "kernels/interval_decode.inc"
}  // namespace baseline
}  // namespace

ZEBDC_BEGIN_AVX2
namespace {
namespace avx2 {
struct Group {
  __m256i v[2];
};

ZEBDC_ALWAYS_INLINE Group loadGroup(const uint32_t* waits) {
  const __m256i* const vectors = reinterpret_cast<const __m256i*>(waits);
  return {{_mm256_loadu_si256(vectors), _mm256_loadu_si256(vectors + 1)}};
}

ZEBDC_ALWAYS_INLINE void storeGroup(uint32_t* waits, const Group& group) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(waits), group.v[0]);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(waits) + 1, group.v[1]);
}

ZEBDC_ALWAYS_INLINE void passAll(Group& group) {
  for (__m256i& v : group.v) v = _mm256_add_epi32(v, _mm256_set1_epi32(-1));
}

ZEBDC_ALWAYS_INLINE void passUpTo(Group& group, int lane, uint32_t own) {
  const __m256i lanes = _mm256_set1_epi32(lane);
  const __m256i owns = _mm256_set1_epi32(static_cast<int>(own));
  for (int i = 0; i < 2; ++i) {
    const __m256i number = _mm256_load_si256(reinterpret_cast<const __m256i*>(laneNumbers) + i);
    const __m256i passed = _mm256_add_epi32(group.v[i], _mm256_cmpgt_epi32(lanes, number));
    group.v[i] = _mm256_blendv_epi8(passed, owns, _mm256_cmpeq_epi32(number, lanes));
  }
}

ZEBDC_ALWAYS_INLINE uint32_t equalLanes(__m256i a, __m256i b) {
  return static_cast<uint32_t>(_mm256_movemask_ps(_mm256_castsi256_ps(_mm256_cmpeq_epi32(a, b))));
}

ZEBDC_ALWAYS_INLINE uint32_t lanesWith(const Group& group, uint32_t wait) {
  const __m256i waits = _mm256_set1_epi32(static_cast<int>(wait));
  return equalLanes(group.v[0], waits) | equalLanes(group.v[1], waits) << 8;
}

#include "kernels/interval_decode.inc"
}  // namespace avx2
}  // namespace
ZEBDC_END_TARGET

ZEBDC_BEGIN_AVX512
namespace {
namespace avx512 {
struct Group {
  __m512i v;
};

ZEBDC_ALWAYS_INLINE Group loadGroup(const uint32_t* waits) {
  return {_mm512_loadu_si512(waits)};
}

ZEBDC_ALWAYS_INLINE void storeGroup(uint32_t* waits, const Group& group) {
  _mm512_storeu_si512(waits, group.v);
}

ZEBDC_ALWAYS_INLINE void passAll(Group& group) {
  group.v = _mm512_add_epi32(group.v, _mm512_set1_epi32(-1));
}

ZEBDC_ALWAYS_INLINE void passUpTo(Group& group, int lane, uint32_t own) {
  const __mmask16 before = static_cast<__mmask16>((1u << lane) - 1);
  const __mmask16 isLane = static_cast<__mmask16>(1u << lane);
  group.v = _mm512_mask_add_epi32(group.v, before, group.v, _mm512_set1_epi32(-1));
  group.v = _mm512_mask_set1_epi32(group.v, isLane, static_cast<int>(own));
}

ZEBDC_ALWAYS_INLINE uint32_t lanesWith(const Group& group, uint32_t wait) {
  return _mm512_cmpeq_epi32_mask(group.v, _mm512_set1_epi32(static_cast<int>(wait)));
}

#include "kernels/interval_decode.inc"
}  // namespace avx512
}  // namespace
ZEBDC_END_TARGET

namespace {

// The encoder's loops over groups are plain: the compiler makes vector code of them for each tier.
#define ZEBDC_INTERVAL_VARIANT(name, decoding)                                                     \
  bool encode##name(IntervalEncoder* encoder, const uint8_t* src, size_t len,                      \
                    IntervalOrder order) {                                                         \
    return encodeBody(*encoder, src, len, order);                                                  \
  }                                                                                                \
  bool putInterval##name(IntervalEncoder* encoder, int stream, uint32_t interval) {                \
    return putIntervalBody(*encoder, stream, interval);                                            \
  }                                                                                                \
  IntervalResult startDecoding##name(IntervalDecoder* decoder) {                                   \
    return startBody(*decoder);                                                                    \
  }                                                                                                \
  IntervalResult getInterval##name(IntervalSource* source, IntervalStatistics* statistics,         \
                                   uint32_t* interval) {                                           \
    return getIntervalBody(*source, *statistics, interval);                                        \
  }                                                                                                \
  constexpr IntervalKernels kernels##name = {encode##name, putInterval##name, startDecoding##name, \
                                             decoding::decode, getInterval##name};

ZEBDC_INTERVAL_VARIANT(Baseline, baseline)

}  // namespace

ZEBDC_BEGIN_SSE42
namespace {
ZEBDC_INTERVAL_VARIANT(Sse42, baseline)
}  // namespace
ZEBDC_END_TARGET

ZEBDC_BEGIN_AVX2
namespace {
ZEBDC_INTERVAL_VARIANT(Avx2, avx2)
}  // namespace
ZEBDC_END_TARGET

ZEBDC_BEGIN_AVX512
namespace {
ZEBDC_INTERVAL_VARIANT(Avx512, avx512)
}  // namespace
ZEBDC_END_TARGET

#undef ZEBDC_INTERVAL_VARIANT

constinit const TierTable<IntervalKernels> intervalKernels({{tierBaseline, kernelsBaseline},
                                                            {tierSse42, kernelsSse42},
                                                            {tierAvx2, kernelsAvx2},
                                                            {tierAvx512, kernelsAvx512}});

}  // namespace zebdc::kernels
