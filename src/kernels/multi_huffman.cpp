// Kernels of multi-table Huffman coding.

#include "kernels/multi_huffman.h"

#include "frame/bytes.h"
#include "frame/compiler.h"
#include "kernels/target.h"

namespace zebdc::kernels {
namespace {

// ---- Choosing tables ----------------------------------------------------------------------------

ZEBDC_ALWAYS_INLINE __m128i costOf(const GroupCosts& costs, uint16_t symbol) {
  return _mm_load_si128(reinterpret_cast<const __m128i*>(costs.lanes[symbol]));
}

// Symbols are loaded four at a time: the loop is limited by its loads.
ZEBDC_ALWAYS_INLINE __m128i costOfGroup(const GroupCosts& costs, const uint16_t* symbols) {
  __m128i sum = _mm_setzero_si128();
  __m128i otherSum = _mm_setzero_si128();
  for (int i = 0; i + 4 <= huffmanGroupSize; i += 4) {
    const uint64_t four = load<uint64_t>(symbols + i);
    sum = _mm_adds_epu16(sum, costOf(costs, static_cast<uint16_t>(four)));
    otherSum = _mm_adds_epu16(otherSum, costOf(costs, static_cast<uint16_t>(four >> 16)));
    sum = _mm_adds_epu16(sum, costOf(costs, static_cast<uint16_t>(four >> 32)));
    otherSum = _mm_adds_epu16(otherSum, costOf(costs, static_cast<uint16_t>(four >> 48)));
  }
  for (int i = huffmanGroupSize / 4 * 4; i < huffmanGroupSize; ++i) {
    sum = _mm_adds_epu16(sum, costOf(costs, symbols[i]));
  }
  return _mm_adds_epu16(sum, otherSum);
}

// The lanes' minimum in every lane, then the first lane that equals it.
ZEBDC_ALWAYS_INLINE uint8_t cheapest(__m128i sums) {
  __m128i least = _mm_min_epi16(sums, _mm_shuffle_epi32(sums, 0x4E));
  least = _mm_min_epi16(least, _mm_shuffle_epi32(least, 0xB1));
  least = _mm_min_epi16(least, _mm_or_si128(_mm_slli_epi32(least, 16), _mm_srli_epi32(least, 16)));
  const int bytes = _mm_movemask_epi8(_mm_cmpeq_epi16(sums, least));
  return static_cast<uint8_t>(trailingZeros(static_cast<unsigned>(bytes)) / 2);
}

void chooseTables(const uint16_t* symbols, size_t count, const GroupCosts& costs,
                  uint8_t* selectors) {
  for (; count >= huffmanGroupSize; count -= huffmanGroupSize, symbols += huffmanGroupSize) {
    *selectors++ = cheapest(costOfGroup(costs, symbols));
  }
  if (count == 0) return;
  __m128i sum = _mm_setzero_si128();
  for (size_t i = 0; i < count; ++i) sum = _mm_adds_epu16(sum, costOf(costs, symbols[i]));
  *selectors = cheapest(sum);
}

// ---- Encoding -----------------------------------------------------------------------------------

// Three codes and the bits left over fit the accumulator.
constexpr int codesPerStore = 3;
static_assert(7 + codesPerStore * huffmanLongestWritten <= 64);

ZEBDC_ALWAYS_INLINE void encodeGroups(const uint16_t* symbols, size_t groups,
                                      const MultiHuffmanCodes& tables, HuffmanOutput& output) {
  uint64_t bits = output.bits;
  int count = output.count;
  uint8_t* next = output.next;
  const auto put = [&](const uint32_t* codes, const uint8_t* lengths, uint16_t symbol) {
    count += lengths[symbol];
    bits |= uint64_t{codes[symbol]} << (64 - count);
  };
  const auto flush = [&] {
    storeBigEndian(next, bits);
    next += count >> 3;
    bits <<= count & 0x38;
    count &= 7;
  };
  for (size_t group = 0; group < groups; ++group, symbols += huffmanGroupSize) {
    const size_t row = size_t{tables.selectors[group]} * huffmanRowSize;
    const uint32_t* const codes = tables.codes + row;
    const uint8_t* const lengths = tables.lengths + row;
    constexpr int inThrees = huffmanGroupSize / codesPerStore * codesPerStore;
    for (int i = 0; i < inThrees; i += codesPerStore) {
      for (int k = 0; k < codesPerStore; ++k) put(codes, lengths, symbols[i + k]);
      flush();
    }
    for (int i = inThrees; i < huffmanGroupSize; ++i) put(codes, lengths, symbols[i]);
    flush();
  }
  output = {bits, count, next};
}

void encode(const uint16_t* symbols, size_t groups, const MultiHuffmanCodes& codes,
            HuffmanOutput& output) {
  encodeGroups(symbols, groups, codes, output);
}

// ---- Decoding -----------------------------------------------------------------------------------

// A refill leaves at least 56 valid bits: enough for this many look-ups and a long code.
constexpr int lookupsPerRefill = 3;
static_assert(lookupsPerRefill * huffmanPairBits + huffmanLongestRead <= 56);

ZEBDC_ALWAYS_INLINE void decodeGroups(const HuffmanPairs* pairs,
                                      const HuffmanLongCodes* const* longCodes,
                                      MultiHuffmanInput& input) {
  const uint8_t* src = input.src;
  uint64_t bits = input.bits;
  int count = input.count;
  uint16_t* dst = input.dst;
  int left = huffmanGroupSize - input.symbolsInGroup;

  const auto refill = [&] {
    bits |= loadBigEndian<uint64_t>(src) >> count;
    src += (63 - count) >> 3;
    count |= 56;
  };
  const auto consume = [&](uint32_t length) {
    bits <<= length;
    count -= static_cast<int>(length);
  };
  // Where the look-up holds no symbol. False in front of what ends the loop. The only short code
  // that the look-up does not hold is that of the end of the block.
  const auto decodeLong = [&](const HuffmanLongCodes& codes) {
    const uint32_t pattern = static_cast<uint32_t>(bits >> (64 - huffmanLongestRead));
    if (pattern < codes.limits[0]) return false;
    const HuffmanSymbol found = findLongCode(codes, pattern);
    if (found.symbol < 0 || found.symbol == input.endOfBlock) return false;
    *dst++ = static_cast<uint16_t>(found.symbol);
    consume(static_cast<uint32_t>(found.length));
    --left;
    return true;
  };

  bool more = true;
  while (more && input.group < input.numSelectors && input.srcEnd - src >= huffmanDecodeMargin &&
         input.dstEnd - dst >= huffmanDecodeRoom) {
    const int table = input.selectors[input.group];
    const uint32_t* const entries = pairs[table].entries;
    const HuffmanLongCodes& codes = *longCodes[table];
    while (left > 0) {
      refill();
      int lookups = 0;
      for (; lookups < lookupsPerRefill && left > 1; ++lookups) {
        const uint32_t entry = entries[bits >> (64 - huffmanPairBits)];
        const uint32_t symbols = entry >> huffmanPairCountShift;
        if (symbols == 0) [[unlikely]]
          break;
        store(dst, entry & huffmanPairSymbols);
        dst += symbols;
        left -= static_cast<int>(symbols);
        consume(entry >> huffmanPairLengthShift & 0xF);
      }
      if (lookups == lookupsPerRefill) continue;
      if (left == 0) break;
      const uint32_t entry = entries[bits >> (64 - huffmanPairBits)];
      if (entry >> huffmanPairCountShift != 0) {  // the last symbol of the group
        *dst++ = static_cast<uint16_t>(entry & 0x1FF);
        consume(entry >> huffmanPairFirstLengthShift & 0xF);
        --left;
      } else if (!decodeLong(codes)) {
        more = false;
        break;
      }
    }
    if (left == 0) {
      left = huffmanGroupSize;
      ++input.group;
    }
  }

  input.src = src;
  input.bits = bits;
  input.count = count;
  input.dst = dst;
  input.symbolsInGroup = huffmanGroupSize - left;
}

void decode(const HuffmanPairs* pairs, const HuffmanLongCodes* const* longCodes,
            MultiHuffmanInput& input) {
  decodeGroups(pairs, longCodes, input);
}

}  // namespace

ZEBDC_BEGIN_AVX2
namespace avx2 {
namespace {

void encode(const uint16_t* symbols, size_t groups, const MultiHuffmanCodes& codes,
            HuffmanOutput& output) {
  encodeGroups(symbols, groups, codes, output);
}

void decode(const HuffmanPairs* pairs, const HuffmanLongCodes* const* longCodes,
            MultiHuffmanInput& input) {
  decodeGroups(pairs, longCodes, input);
}

}  // namespace
}  // namespace avx2
ZEBDC_END_TARGET

constinit const TierTable<MultiHuffmanKernels> multiHuffmanKernels(
    {{tierBaseline, {chooseTables, encode, decode}},
     {tierAvx2, {chooseTables, avx2::encode, avx2::decode}}});

}  // namespace zebdc::kernels
