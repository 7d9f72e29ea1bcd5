// Kernels of the deflate block writers.
//
// Most of the work is done in batches: vectors work out the indexes of a whole batch of pairs, then
// a scalar loop looks them up. The batches keep the scalar loads away from the vector stores that
// they read; side by side in one loop counting cost 6 ns a pair instead of 0.9 (Zen 4, as all
// figures here). What does not fill a batch goes one pair at a time.

#include "kernels/pair_coding.h"

#include "kernels/target.h"

namespace zebdc::kernels {
namespace {

constexpr size_t indexBatch = 128;

// item | distance class << 16
struct PairIndexes {
  uint32_t of[indexBatch];
};

constexpr uint32_t itemOf(uint32_t index) {
  return index & 0xFFFF;
}

constexpr uint32_t classOf(uint32_t index) {
  return index >> 16;
}

// Twice the exponent's bias: the number that a float's exponent and highest fraction bit exceed by
// the distance class less 1.
constexpr int classBias = 2 * 127;

ZEBDC_ALWAYS_INLINE void countOne(const ZebLZ77Pair& pair, uint32_t* items, uint32_t* distances) {
  const uint32_t offset = pair.offset;
  ++items[offset != 0 ? matchItem(pair.length) : literalItem(pair.length)];
  ++distances[distanceClass(offset)];
}

// Two sets of counters take turns, so that equal neighbours do not wait for each other's store.
template <class Vectors>
ZEBDC_ALWAYS_INLINE void countPairs(const ZebLZ77Pair* pairs, size_t pairsLen, uint32_t* items,
                                    uint32_t* distances) {
  size_t i = 0;
  if (pairsLen >= indexBatch) {
    uint32_t secondItems[pairItems] = {};
    uint32_t secondDistances[distanceClasses] = {};
    PairIndexes indexes;
    for (; i + indexBatch <= pairsLen; i += indexBatch) {
      Vectors::index(pairs + i, indexes);
      for (size_t k = 0; k < indexBatch; k += 2) {
        ++items[itemOf(indexes.of[k])];
        ++distances[classOf(indexes.of[k])];
        ++secondItems[itemOf(indexes.of[k + 1])];
        ++secondDistances[classOf(indexes.of[k + 1])];
      }
    }
    for (int k = 0; k < pairItems; ++k) items[k] += secondItems[k];
    for (int k = 0; k < distanceClasses; ++k) distances[k] += secondDistances[k];
  }
  for (; i < pairsLen; ++i) countOne(pairs[i], items, distances);
}

// The sink's parts in registers. No room is counted down: the loop compares addresses.
struct FastSink {
  uint64_t bits;
  uint32_t count;
  uint8_t* dst;
};

// With at most 7 bits in hand words of up to 56 bits fit, and the shift by whole bytes stays below
// the width of the word.
constexpr uint32_t longestPush = 56;
static_assert(7 + longestPush < 64 && longestPairWord <= longestPush);

ZEBDC_ALWAYS_INLINE void push(FastSink& sink, CodeWord word) {
  sink.bits |= word.bits << sink.count;
  sink.count += word.count;
  store<uint64_t>(sink.dst, sink.bits);
  sink.dst += sink.count >> 3;
  sink.bits >>= sink.count & 56;
  sink.count &= 7;
}

// The two words are joined before they meet the sink: what one turn waits for of the turn before is
// then one shift and one merge for two pairs.
ZEBDC_ALWAYS_INLINE void pushTwo(FastSink& sink, CodeWord first, CodeWord second) {
  const uint32_t count = first.count + second.count;
  if (count <= longestPush) [[likely]] {
    push(sink, {first.bits | second.bits << first.count, count});
  } else {
    push(sink, first);
    push(sink, second);
  }
}

ZEBDC_ALWAYS_INLINE FastSink begin(const BitSink& sink) {
  return {sink.bits, sink.count, sink.dst};
}

ZEBDC_ALWAYS_INLINE void end(const FastSink& fast, BitSink& sink) {
  sink.room -= static_cast<size_t>(fast.dst - sink.dst);
  sink.bits = fast.bits;
  sink.count = fast.count;
  sink.dst = fast.dst;
}

// Two at a time while the margin allows.
ZEBDC_ALWAYS_INLINE size_t codeInTwos(PairCodes codes, const ZebLZ77Pair* pairs, size_t pairsLen,
                                      BitSink& sink) {
  if (sink.room < pairCodingMargin) return 0;
  const uint8_t* const lastStart = sink.dst + (sink.room - pairCodingMargin);
  FastSink fast = begin(sink);
  size_t i = 0;
  for (; i + 2 <= pairsLen && fast.dst <= lastStart; i += 2) {
    pushTwo(fast, pairCodeWord(codes, pairs[i]), pairCodeWord(codes, pairs[i + 1]));
  }
  end(fast, sink);
  return i;
}

// With at most 7 bits in hand a batch writes whole bytes of 7 + 128 * 48 bits, and the last store
// may reach 8 bytes further.
constexpr size_t batchMargin = (7 + indexBatch * longestPairWord) / 8 + 8;
static_assert(batchMargin >= pairCodingMargin);

template <class Vectors>
ZEBDC_ALWAYS_INLINE size_t codePairs(PairCodes codes, const ZebLZ77Pair* pairs, size_t pairsLen,
                                     BitSink& sink) {
  PairIndexes indexes;
  size_t i = 0;
  for (; i + indexBatch <= pairsLen && sink.room >= batchMargin; i += indexBatch) {
    Vectors::index(pairs + i, indexes);
    FastSink fast = begin(sink);
    for (size_t k = 0; k < indexBatch; k += 2) {
      const auto word = [&](size_t at) {
        const uint32_t index = indexes.of[at];
        return joinedCodeWord(codes.items[itemOf(index)], codes.distances[classOf(index)],
                              pairs[i + at].offset);
      };
      pushTwo(fast, word(k), word(k + 1));
    }
    end(fast, sink);
  }
  return i + codeInTwos(codes, pairs + i, pairsLen - i, sink);
}

namespace baseline {

// For a literal 2 * offset - 1 is raised to 0, whose exponent lies below the bias.
struct Vectors {
  static void index(const ZebLZ77Pair* pairs, PairIndexes& indexes) {
    for (size_t i = 0; i < indexBatch; i += 4) {
      const __m128i words = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pairs + i));
      const __m128i offsets = _mm_srli_epi32(words, 16);
      const __m128i literals = _mm_cmpeq_epi32(offsets, _mm_setzero_si128());
      const __m128i doubled = _mm_add_epi32(offsets, offsets);
      const __m128i odd = _mm_sub_epi32(_mm_sub_epi32(doubled, _mm_set1_epi32(1)), literals);
      const __m128i exponents = _mm_srli_epi32(_mm_castps_si128(_mm_cvtepi32_ps(odd)), 22);
      const __m128i classes = _mm_subs_epu16(exponents, _mm_set1_epi32(classBias - 1));
      const __m128i bytes = _mm_and_si128(words, _mm_set1_epi32(255));
      const __m128i items = _mm_or_si128(bytes, _mm_andnot_si128(literals, _mm_set1_epi32(256)));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(indexes.of + i),
                       _mm_or_si128(items, _mm_slli_epi32(classes, 16)));
    }
  }
};

void count(const ZebLZ77Pair* pairs, size_t pairsLen, uint32_t* items, uint32_t* distances) {
  countPairs<Vectors>(pairs, pairsLen, items, distances);
}

size_t code(PairCodes codes, const ZebLZ77Pair* pairs, size_t pairsLen, BitSink& sink) {
  return codePairs<Vectors>(codes, pairs, pairsLen, sink);
}

constexpr PairCodingKernels kernels = {count, code};

}  // namespace baseline

ZEBDC_BEGIN_AVX2
namespace avx2 {

struct Vectors {
  static void index(const ZebLZ77Pair* pairs, PairIndexes& indexes) {
    for (size_t i = 0; i < indexBatch; i += 8) {
      const __m256i words = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pairs + i));
      const __m256i offsets = _mm256_srli_epi32(words, 16);
      const __m256i literals = _mm256_cmpeq_epi32(offsets, _mm256_setzero_si256());
      const __m256i doubled = _mm256_add_epi32(offsets, offsets);
      const __m256i odd =
          _mm256_sub_epi32(_mm256_sub_epi32(doubled, _mm256_set1_epi32(1)), literals);
      const __m256i exponents = _mm256_srli_epi32(_mm256_castps_si256(_mm256_cvtepi32_ps(odd)), 22);
      const __m256i classes = _mm256_subs_epu16(exponents, _mm256_set1_epi32(classBias - 1));
      const __m256i bytes = _mm256_and_si256(words, _mm256_set1_epi32(255));
      const __m256i items =
          _mm256_or_si256(bytes, _mm256_andnot_si256(literals, _mm256_set1_epi32(256)));
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(indexes.of + i),
                          _mm256_or_si256(items, _mm256_slli_epi32(classes, 16)));
    }
  }
};

void count(const ZebLZ77Pair* pairs, size_t pairsLen, uint32_t* items, uint32_t* distances) {
  countPairs<Vectors>(pairs, pairsLen, items, distances);
}

size_t code(PairCodes codes, const ZebLZ77Pair* pairs, size_t pairsLen, BitSink& sink) {
  return codePairs<Vectors>(codes, pairs, pairsLen, sink);
}

constexpr PairCodingKernels kernels = {count, code};

}  // namespace avx2
ZEBDC_END_TARGET

// Here vectors also look up and join the code words, two pairs in each, so that the scalar loop
// only shifts and stores them: 1.0 ns a pair instead of 1.55. Counting takes the distances of the
// matches alone, closed up by compression.
//
// Tried and slower: positions of all words by a prefix sum in vectors, which leaves the scalar loop
// one shift, one merge and one store (1.12 ns).
ZEBDC_BEGIN_AVX512
namespace avx512 {

constexpr size_t lanes = 16;

// Of matches. For a literal it is any number below 512.
inline __m512i classesOf(__m512i offsets) {
  const __m512i odd = _mm512_sub_epi32(_mm512_add_epi32(offsets, offsets), _mm512_set1_epi32(1));
  const __m512i exponents = _mm512_srli_epi32(_mm512_castps_si512(_mm512_cvtepi32_ps(odd)), 22);
  return _mm512_sub_epi32(exponents, _mm512_set1_epi32(classBias - 1));
}

inline __m512i itemsOf(__m512i words, __mmask16 matches) {
  const __m512i bytes = _mm512_and_si512(words, _mm512_set1_epi32(255));
  return _mm512_mask_or_epi32(bytes, matches, bytes, _mm512_set1_epi32(256));
}

constexpr int counterSets = 4;
constexpr size_t countBatch = 256;

struct Counters {
  uint32_t items[counterSets][pairItems];
  uint32_t distances[counterSets][distanceClasses];
};

// The distances are filled up with class 0 to a multiple of the counter sets.
struct CountIndexes {
  uint16_t items[countBatch];
  uint16_t distances[countBatch + lanes];
  size_t distanceCount;
};

inline void indexForCounting(const ZebLZ77Pair* pairs, CountIndexes& indexes) {
  size_t matchCount = 0;
  for (size_t i = 0; i < countBatch; i += lanes) {
    const __m512i words = _mm512_loadu_si512(pairs + i);
    const __m512i offsets = _mm512_srli_epi32(words, 16);
    const __mmask16 matches = _mm512_test_epi32_mask(offsets, offsets);
    const __m512i classes = _mm512_maskz_compress_epi32(matches, classesOf(offsets));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(indexes.items + i),
                        _mm512_cvtepi32_epi16(itemsOf(words, matches)));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(indexes.distances + matchCount),
                        _mm512_cvtepi32_epi16(classes));
    matchCount += static_cast<size_t>(_mm_popcnt_u32(matches));
  }
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(indexes.distances + matchCount),
                      _mm256_setzero_si256());
  indexes.distanceCount = (matchCount + counterSets - 1) / counterSets * counterSets;
}

inline void countIndexes(const CountIndexes& indexes, Counters& counters) {
  for (size_t i = 0; i < countBatch; i += counterSets) {
    for (size_t set = 0; set < counterSets; ++set) ++counters.items[set][indexes.items[i + set]];
  }
  for (size_t i = 0; i < indexes.distanceCount; i += counterSets) {
    for (size_t set = 0; set < counterSets; ++set) {
      ++counters.distances[set][indexes.distances[i + set]];
    }
  }
}

void count(const ZebLZ77Pair* pairs, size_t pairsLen, uint32_t* items, uint32_t* distances) {
  constexpr size_t fewPairs = 4 * countBatch;  // not worth clearing and adding up the counters
  if (pairsLen < fewPairs) return avx2::count(pairs, pairsLen, items, distances);

  Counters counters = {};
  CountIndexes indexes;
  size_t i = 0;
  for (; i + countBatch <= pairsLen; i += countBatch) {
    indexForCounting(pairs + i, indexes);
    countIndexes(indexes, counters);
  }
  for (int k = 0; k < pairItems; ++k) {
    for (int set = 0; set < counterSets; ++set) items[k] += counters.items[set][k];
  }
  uint32_t literals = static_cast<uint32_t>(i);
  for (int k = 1; k < distanceClasses; ++k) {
    uint32_t sum = 0;
    for (int set = 0; set < counterSets; ++set) sum += counters.distances[set][k];
    distances[k] += sum;
    literals -= sum;
  }
  distances[0] += literals;
  for (; i < pairsLen; ++i) countOne(pairs[i], items, distances);
}

// The parts of PairCodes::distances in two vectors each, where the lookups use the class modulo 32.
// That keeps the classes of valid offsets, 1 to 32, apart.
struct DistanceTables {
  __m512i addends[2];
  __m512i counts[2];  // bits 8-15 all bits, 0-7 code bits
};

inline DistanceTables splitDistances(const uint64_t* distances) {
  alignas(64) uint32_t addends[2 * lanes];
  alignas(64) uint32_t counts[2 * lanes];
  for (uint32_t k = 0; k < 2 * lanes; ++k) {
    const uint64_t entry = distances[k == 0 ? 2 * lanes : k];
    addends[k] = static_cast<uint32_t>(entry >> 32);
    counts[k] = static_cast<uint32_t>(entry);
  }
  return {{_mm512_load_si512(addends), _mm512_load_si512(addends + lanes)},
          {_mm512_load_si512(counts), _mm512_load_si512(counts + lanes)}};
}

// Two pairs' bits joined, one number of bits for both.
struct JoinedWords {
  alignas(64) uint64_t bits[indexBatch / 2];
  alignas(64) uint64_t counts[indexBatch / 2];
};

// False when some two words together are too long for one push, or an offset is above 32767: then
// the joined words are not valid.
inline bool joinWords(const uint32_t* items, const DistanceTables& tables, const ZebLZ77Pair* pairs,
                      JoinedWords& joined) {
  const __m512i byteMask = _mm512_set1_epi32(255);
  const __m512i evenMask = _mm512_set1_epi64(0xFFFFFFFF);
  uint32_t unfit = 0;
  for (size_t i = 0; i < indexBatch; i += lanes) {
    const __m512i words = _mm512_loadu_si512(pairs + i);
    const __m512i offsets = _mm512_srli_epi32(words, 16);
    const __mmask16 matches = _mm512_test_epi32_mask(offsets, offsets);
    const __m512i classes = classesOf(offsets);
    const __m512i addends =
        _mm512_maskz_permutex2var_epi32(matches, tables.addends[0], classes, tables.addends[1]);
    const __m512i distanceCounts =
        _mm512_maskz_permutex2var_epi32(matches, tables.counts[0], classes, tables.counts[1]);
    const __m512i item = _mm512_i32gather_epi32(itemsOf(words, matches), items, 4);

    const __m512i itemBits = _mm512_srli_epi32(item, 8);
    const __m512i itemCounts = _mm512_and_si512(item, byteMask);
    const __m512i distanceBits = _mm512_add_epi32(
        addends, _mm512_sllv_epi32(offsets, _mm512_and_si512(distanceCounts, byteMask)));
    const __m512i counts = _mm512_add_epi32(itemCounts, _mm512_srli_epi32(distanceCounts, 8));

    const __m512i evenBits =
        _mm512_or_si512(_mm512_and_si512(itemBits, evenMask),
                        _mm512_sllv_epi64(_mm512_and_si512(distanceBits, evenMask),
                                          _mm512_and_si512(itemCounts, evenMask)));
    const __m512i oddBits = _mm512_or_si512(
        _mm512_srli_epi64(itemBits, 32),
        _mm512_sllv_epi64(_mm512_srli_epi64(distanceBits, 32), _mm512_srli_epi64(itemCounts, 32)));
    const __m512i evenCounts = _mm512_and_si512(counts, evenMask);
    const __m512i sums = _mm512_add_epi64(evenCounts, _mm512_srli_epi64(counts, 32));
    _mm512_store_si512(joined.bits + i / 2,
                       _mm512_or_si512(evenBits, _mm512_sllv_epi64(oddBits, evenCounts)));
    _mm512_store_si512(joined.counts + i / 2, sums);
    unfit |=
        _mm512_cmpgt_epu64_mask(sums, _mm512_set1_epi64(longestPush)) | _mm512_movepi32_mask(words);
  }
  return unfit == 0;
}

inline void pushJoined(const JoinedWords& joined, BitSink& sink) {
  FastSink fast = begin(sink);
  for (size_t i = 0; i < indexBatch / 2; ++i) {
    push(fast, {joined.bits[i], static_cast<uint32_t>(joined.counts[i])});
  }
  end(fast, sink);
}

size_t code(PairCodes codes, const ZebLZ77Pair* pairs, size_t pairsLen, BitSink& sink) {
  size_t i = 0;
  if (pairsLen >= indexBatch && sink.room >= batchMargin) {
    const DistanceTables tables = splitDistances(codes.distances);
    JoinedWords joined;
    while (i + indexBatch <= pairsLen && sink.room >= batchMargin) {
      if (joinWords(codes.items, tables, pairs + i, joined)) [[likely]] {
        pushJoined(joined, sink);
        i += indexBatch;
      } else {
        i += avx2::code(codes, pairs + i, indexBatch, sink);
      }
    }
  }
  return i + codeInTwos(codes, pairs + i, pairsLen - i, sink);
}

constexpr PairCodingKernels kernels = {count, code};

}  // namespace avx512
ZEBDC_END_TARGET

}  // namespace

constinit const TierTable<PairCodingKernels> pairCodingKernels({{tierBaseline, baseline::kernels},
                                                                {tierAvx2, avx2::kernels},
                                                                {tierAvx512, avx512::kernels}});

}  // namespace zebdc::kernels
