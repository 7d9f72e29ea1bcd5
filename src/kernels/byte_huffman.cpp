// Kernels of byte Huffman coding.
//
// Encoding. The plain rule adds one code at a time and writes a word whenever 32 bits are pending;
// its branch is hard to predict. The fast loop joins several codes first and then stores 8 bytes
// whether or not words are complete, advancing by the complete ones. Such a store may reach 8 bytes
// beyond the words that are complete, so the loop ends early: the codes left for the plain rule add
// up to at least safetyBits, and the words that those bits complete lie where the last store
// reached.
//
// Decoding. The critical chain is shift, load, shift: about 8 cycles for each look-up, so each
// look-up yields as many symbols as fit in the index.

#include "kernels/byte_huffman.h"

#include "frame/bytes.h"
#include "kernels/target.h"

namespace zebdc::kernels {
namespace {

// What an 8-byte store at the end of the complete words covers.
constexpr size_t safetyBits = 64;

// A code at the top of the word, its length at the bottom:
//
//   63         32 31     6 5      0
//   | code, then zeros     | length |
//
// Codes have at most 32 bits, so the two do not meet; the whole entry serves as a shift count and
// as a summand of shift counts, which take their lowest 6 bits alone.
using CodeEntry = uint64_t;
constexpr uint64_t lengthMask = 63;

struct Accumulator {
  uint64_t bits;  // left-justified, zeros behind
  uint64_t count;
};

ZEBDC_ALWAYS_INLINE uint8_t* encodePlain(const uint32_t* code, const uint32_t* codeLen,
                                         const uint8_t* src, const uint8_t* srcEnd, uint8_t* dst,
                                         PendingBits* pending) {
  uint64_t bits = static_cast<uint64_t>(pending->bitBuffer) << 32;  // left-justified
  uint32_t count = static_cast<uint32_t>(pending->bitCount);
  for (; src < srcEnd; ++src) {
    count += codeLen[*src];
    // Only a value without a code, whose code is 0, can leave the count at 0.
    bits |= static_cast<uint64_t>(code[*src]) << ((64 - count) & 63);
    if (count >= 32) {
      storeBigEndian<uint32_t>(dst, static_cast<uint32_t>(bits >> 32));
      dst += 4;
      bits <<= 32;
      count -= 32;
    }
  }
  pending->bitBuffer = static_cast<uint32_t>(bits >> 32);
  pending->bitCount = static_cast<int32_t>(count);
  return dst;
}

// Where the plain rule must take over: the codes from there on have at least safetyBits bits.
ZEBDC_ALWAYS_INLINE const uint8_t* fastEnd(const uint32_t* codeLen, const uint8_t* src,
                                           const uint8_t* srcEnd) {
  size_t bits = 0;
  while (srcEnd > src && bits < safetyBits) bits += codeLen[*--srcEnd];
  return bits < safetyBits ? src : srcEnd;
}

// Appends length (at most 32) left-justified bits to at most 31 pending ones.
ZEBDC_ALWAYS_INLINE uint8_t* append(uint64_t bits, uint64_t length, uint8_t* dst,
                                    Accumulator* acc) {
  const uint64_t joined = acc->bits | bits >> acc->count;
  const uint64_t count = acc->count + length;
  storeBigEndian<uint64_t>(dst, joined);
  acc->bits = joined << (count & 32);
  acc->count = count % 32;
  return dst + count / 32 * 4;
}

// Joins four codes at a time. They seldom have more than the 32 bits that one step appends; then
// they are appended one by one.
ZEBDC_ALWAYS_INLINE uint8_t* encodeFast(const CodeEntry* entries, const uint8_t** src,
                                        const uint8_t* srcEnd, uint8_t* dst, Accumulator* acc) {
  constexpr int perStep = 4;
  const uint8_t* p = *src;
  Accumulator local = *acc;
  for (; srcEnd - p >= perStep; p += perStep) {
    // The lengths of later entries fall behind the codes, or into bits that are masked off.
    uint64_t joined = 0;
    uint64_t length = 0;
    for (int i = 0; i < perStep; ++i) {
      const CodeEntry entry = entries[p[i]];
      joined |= entry >> (length & lengthMask);
      length += entry;
    }
    // Four lengths add up to 128 at most, which the lowest byte holds.
    const uint64_t total = static_cast<uint8_t>(length);
    if (total <= 32) [[likely]] {
      dst = append(joined & ~lengthMask, total, dst, &local);
    } else {
      for (int i = 0; i < perStep; ++i) {
        const CodeEntry entry = entries[p[i]];
        dst = append(entry & ~lengthMask, entry & lengthMask, dst, &local);
      }
    }
  }
  *src = p;
  *acc = local;
  return dst;
}

ZEBDC_ALWAYS_INLINE uint8_t* encodeBody(const uint32_t* code, const uint32_t* codeLen,
                                        const uint8_t* src, size_t len, uint8_t* dst,
                                        PendingBits* pending) {
  constexpr size_t worthwhile = 512;
  const uint8_t* const srcEnd = src + len;
  if (len >= worthwhile) {
    CodeEntry entries[256];
    for (int i = 0; i < 256; ++i) {
      entries[i] = static_cast<uint64_t>(code[i]) << ((64 - codeLen[i]) & 63) | codeLen[i];
    }
    const uint8_t* const end = fastEnd(codeLen, src, srcEnd);
    Accumulator acc = {static_cast<uint64_t>(pending->bitBuffer) << 32,
                       static_cast<uint64_t>(pending->bitCount)};
    dst = encodeFast(entries, &src, end, dst, &acc);
    *pending = {static_cast<uint32_t>(acc.bits >> 32), static_cast<int32_t>(acc.count)};
  }
  return encodePlain(code, codeLen, src, srcEnd, dst, pending);
}

ZEBDC_ALWAYS_INLINE size_t decodeBody(const uint32_t* table, const uint8_t* src, size_t srcLen,
                                      size_t* position, uint8_t* dst, size_t capacity) {
  // 7 bits of the first byte may be used up, and four look-ups take at most 44 of the other 57.
  static_assert(byteHuffmanLookups * byteHuffmanTableBits <= 57);
  const uint8_t* const dstBegin = dst;
  const uint8_t* const dstEnd = dst + capacity;
  size_t bit = *position;
  while (bit / 8 + 8 <= srcLen && static_cast<size_t>(dstEnd - dst) >= byteHuffmanRoom) {
    uint64_t window = loadBigEndian<uint64_t>(src + bit / 8) << (bit % 8);
    for (int i = 0; i < byteHuffmanLookups; ++i) {
      const uint32_t entry = table[window >> (64 - byteHuffmanTableBits)];
      const uint32_t count = entry >> byteHuffmanCountShift & 3;
      if (count == 0) {
        *position = bit;
        return static_cast<size_t>(dst - dstBegin);
      }
      store<uint32_t>(dst, entry >> byteHuffmanSymbolShift);
      dst += count;
      window <<= entry & 63;
      bit += entry & 63;
    }
  }
  *position = bit;
  return static_cast<size_t>(dst - dstBegin);
}

#define ZEBDC_BYTE_HUFFMAN_VARIANT(name)                                                          \
  uint8_t* encode##name(const uint32_t* code, const uint32_t* codeLen, const uint8_t* src,        \
                        size_t len, uint8_t* dst, PendingBits* pending) {                         \
    return encodeBody(code, codeLen, src, len, dst, pending);                                     \
  }                                                                                               \
  size_t decode##name(const uint32_t* table, const uint8_t* src, size_t srcLen, size_t* position, \
                      uint8_t* dst, size_t capacity) {                                            \
    return decodeBody(table, src, srcLen, position, dst, capacity);                               \
  }                                                                                               \
  constexpr ByteHuffmanKernels kernels##name = {encode##name, decode##name};

ZEBDC_BYTE_HUFFMAN_VARIANT(Baseline)

}  // namespace

ZEBDC_BEGIN_AVX2
namespace {
ZEBDC_BYTE_HUFFMAN_VARIANT(Avx2)
}  // namespace
ZEBDC_END_TARGET

#undef ZEBDC_BYTE_HUFFMAN_VARIANT

constinit const TierTable<ByteHuffmanKernels> byteHuffmanKernels({{tierBaseline, kernelsBaseline},
                                                                  {tierAvx2, kernelsAvx2}});

}  // namespace zebdc::kernels
