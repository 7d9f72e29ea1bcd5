// Adler-32 kernels.
//
// Over n bytes d[0 .. n-1] the sums grow to
//
//     A' = A + sum of d[i]
//     B' = B + n * A + sum of (n - i) * d[i]
//
// Cut into rows of V bytes, with byte j of row k being d[V * k + j], the last sum is
//
//     V * (sum over k of the bytes in front of row k)  +  sum over k and j of (V - j) * d[V * k +
//     j].
//
// So running sums suffice: `bytes`, of all bytes so far; `before`, to which each row adds the value
// that `bytes` has in front of it; and sums of products with the fixed weights V to 1. Zero bytes
// in front of the data change none of them. Hence the odd bytes come first, as the end of a row
// that begins with zeros, and whole rows follow to the end.
//
// A row is two registers (four in AVX-512), so that the chains of additions through `before` and
// `bytes` are half as long as the loop. Weights are applied within a register or a part of it; what
// they lack, the same multiple for all bytes of a lane of a sum of bytes, is added once when a
// block ends, and only then is anything divided. No value of A, B or the bytes can overflow: the
// longest block of each kernel is derived beside it, and A, B and the final sums have 64 bits.

#include "kernels/adler32.h"

#include <algorithm>

#include "frame/compiler.h"
#include "kernels/target.h"

namespace zebdc::kernels {
namespace {

constexpr uint32_t modulus = 65521;

struct Sums {
  uint64_t a;
  uint64_t b;
};

// What a block of len bytes adds: the sum of its bytes and the sum of its weighted bytes.
Sums afterBlock(Sums sums, size_t len, uint64_t bytes, uint64_t weighted) {
  return {(sums.a + bytes) % modulus, (sums.b + sums.a * len + weighted) % modulus};
}

// Fewer bytes than a register holds, one at a time.
uint32_t adler32Short(uint32_t value, const uint8_t* src, size_t len) {
  uint32_t a = value & 0xFFFF;
  uint32_t b = value >> 16;
  for (size_t i = 0; i < len; ++i) {
    a += src[i];
    b += a;
  }
  return a % modulus | b % modulus << 16;
}

// Adds a block to the sums and reduces them: `odd` bytes, fewer than a row, and then whole rows. 16
// bytes at least are readable.
using AddBlock = Sums (*)(Sums sums, const uint8_t* src, size_t odd, size_t rows);

template <size_t rowBytes, size_t blockRows, AddBlock addBlock>
uint32_t adler32InBlocks(uint32_t value, const uint8_t* src, size_t len) {
  Sums sums = {value & 0xFFFF, value >> 16};
  size_t odd = len % rowBytes;
  size_t rows = len / rowBytes;
  do {
    const size_t count = std::min(rows, blockRows);
    sums = addBlock(sums, src, odd, count);
    src += odd + count * rowBytes;
    rows -= count;
    odd = 0;
  } while (rows > 0);
  return static_cast<uint32_t>(sums.a | sums.b << 16);
}

// PMADDUBSW with weights of 8 to 1 for each 8 bytes: pairs of products stay small enough for a
// group of rows to gather in 16 bits, before PMADDWD widens them. 64-bit lanes, each the sum of 8
// bytes as PSADBW gives it, make up for the weights.
constexpr size_t groupRows = 4;
static_assert(2 * groupRows * 255 * (8 + 7) <= INT16_MAX);
constexpr size_t blockRows = 32768;
static_assert((blockRows / groupRows + 2) * 2 * INT16_MAX <= UINT32_MAX);

ZEBDC_ALWAYS_INLINE __m128i loadRegister(const uint8_t* src) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(src));
}

// Shuffle controls: the 16 that begin at n move the first n bytes of a register to its end and put
// zeros in front.
alignas(16) constexpr uint8_t toEndControls[32] = {
    0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80,
    0,    1,    2,    3,    4,    5,    6,    7,    8,    9,    10,   11,   12,   13,   14,   15};

// The first n (0 to 16) of 16 bytes at the end of a register.
ZEBDC_ALWAYS_INLINE __m128i firstBytesAtEnd(const uint8_t* src, size_t n) {
  return _mm_shuffle_epi8(loadRegister(src), loadRegister(toEndControls + n));
}

ZEBDC_ALWAYS_INLINE uint64_t sumOfLanes(__m128i lanes) {
  return static_cast<uint64_t>(
      _mm_cvtsi128_si64(_mm_add_epi64(lanes, _mm_unpackhi_epi64(lanes, lanes))));
}

// 32-bit lanes, added in pairs as 64-bit lanes.
ZEBDC_ALWAYS_INLINE __m128i widened(__m128i lanes) {
  return _mm_add_epi64(_mm_and_si128(lanes, _mm_set1_epi64x(0xFFFFFFFF)),
                       _mm_srli_epi64(lanes, 32));
}

struct RunningSums {
  __m128i before;
  __m128i bytes;
  __m128i firstHalves;  // of the bytes in the first register of each row
  __m128i products;     // of the current group
  __m128i weighted;     // of the groups before it

  ZEBDC_ALWAYS_INLINE void addRow(__m128i first, __m128i second) {
    const __m128i weights = _mm_set1_epi64x(0x0102030405060708);
    const __m128i firstBytes = _mm_sad_epu8(first, _mm_setzero_si128());
    const __m128i secondBytes = _mm_sad_epu8(second, _mm_setzero_si128());
    before = _mm_add_epi64(before, bytes);
    bytes = _mm_add_epi64(bytes, _mm_add_epi64(firstBytes, secondBytes));
    firstHalves = _mm_add_epi64(firstHalves, firstBytes);
    products = _mm_add_epi16(products, _mm_add_epi16(_mm_maddubs_epi16(first, weights),
                                                     _mm_maddubs_epi16(second, weights)));
    ZEBDC_PIN(before);
    ZEBDC_PIN(bytes);
    ZEBDC_PIN(firstHalves);
    ZEBDC_PIN(products);
  }

  ZEBDC_ALWAYS_INLINE void endGroup() {
    weighted = _mm_add_epi32(weighted, _mm_madd_epi16(products, _mm_set1_epi16(1)));
    products = _mm_setzero_si128();
  }

  ZEBDC_ALWAYS_INLINE Sums addTo(Sums sums, size_t len) const {
    const __m128i inRegister = _mm_mul_epu32(bytes, _mm_set_epi64x(0, 8));
    const __m128i inRow = _mm_add_epi64(_mm_slli_epi64(before, 5), _mm_slli_epi64(firstHalves, 4));
    const __m128i total = _mm_add_epi64(_mm_add_epi64(inRow, inRegister), widened(weighted));
    return afterBlock(sums, len, sumOfLanes(bytes), sumOfLanes(total));
  }
};

Sums addBlock(Sums sums, const uint8_t* src, size_t odd, size_t rows) {
  const size_t len = odd + 32 * rows;
  RunningSums running = {};
  if (odd > 0) {
    if (odd > 16) {
      running.addRow(firstBytesAtEnd(src, odd - 16), loadRegister(src + odd - 16));
    } else {
      running.addRow(_mm_setzero_si128(), firstBytesAtEnd(src, odd));
    }
    running.endGroup();
    src += odd;
  }
  for (; rows >= groupRows; rows -= groupRows, src += 32 * groupRows) {
    for (size_t i = 0; i < groupRows; ++i) {
      running.addRow(loadRegister(src + 32 * i), loadRegister(src + 32 * i + 16));
    }
    running.endGroup();
  }
  for (; rows > 0; --rows, src += 32) running.addRow(loadRegister(src), loadRegister(src + 16));
  running.endGroup();
  return running.addTo(sums, len);
}

uint32_t adler32Baseline(uint32_t value, const uint8_t* src, size_t len) {
  if (len < 16) return adler32Short(value, src, len);
  return adler32InBlocks<32, blockRows, addBlock>(value, src, len);
}

}  // namespace
}  // namespace zebdc::kernels

// The same in registers of twice the width.
ZEBDC_BEGIN_AVX2
namespace zebdc::kernels::avx2 {
namespace {

ZEBDC_ALWAYS_INLINE __m256i loadRegister(const uint8_t* src) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src));
}

// The first n (0 to 32) bytes at the end of a register. 16 bytes at least must be readable.
ZEBDC_ALWAYS_INLINE __m256i firstBytesAtEnd(const uint8_t* src, size_t n) {
  const size_t inFront = n > 16 ? n - 16 : 0;
  return _mm256_set_m128i(kernels::firstBytesAtEnd(src + inFront, n - inFront),
                          kernels::firstBytesAtEnd(src, inFront));
}

ZEBDC_ALWAYS_INLINE uint64_t sumOfLanes(__m256i lanes) {
  return kernels::sumOfLanes(
      _mm_add_epi64(_mm256_castsi256_si128(lanes), _mm256_extracti128_si256(lanes, 1)));
}

ZEBDC_ALWAYS_INLINE __m256i widened(__m256i lanes) {
  return _mm256_add_epi64(_mm256_and_si256(lanes, _mm256_set1_epi64x(0xFFFFFFFF)),
                          _mm256_srli_epi64(lanes, 32));
}

struct RunningSums {
  __m256i before;
  __m256i bytes;
  __m256i firstHalves;
  __m256i products;
  __m256i weighted;

  ZEBDC_ALWAYS_INLINE void addRow(__m256i first, __m256i second) {
    const __m256i weights = _mm256_set1_epi64x(0x0102030405060708);
    const __m256i firstBytes = _mm256_sad_epu8(first, _mm256_setzero_si256());
    const __m256i secondBytes = _mm256_sad_epu8(second, _mm256_setzero_si256());
    before = _mm256_add_epi64(before, bytes);
    bytes = _mm256_add_epi64(bytes, _mm256_add_epi64(firstBytes, secondBytes));
    firstHalves = _mm256_add_epi64(firstHalves, firstBytes);
    products = _mm256_add_epi16(products, _mm256_add_epi16(_mm256_maddubs_epi16(first, weights),
                                                           _mm256_maddubs_epi16(second, weights)));
    ZEBDC_PIN(before);
    ZEBDC_PIN(bytes);
    ZEBDC_PIN(firstHalves);
    ZEBDC_PIN(products);
  }

  ZEBDC_ALWAYS_INLINE void endGroup() {
    weighted = _mm256_add_epi32(weighted, _mm256_madd_epi16(products, _mm256_set1_epi16(1)));
    products = _mm256_setzero_si256();
  }

  ZEBDC_ALWAYS_INLINE Sums addTo(Sums sums, size_t len) const {
    const __m256i inRegister = _mm256_mul_epu32(bytes, _mm256_set_epi64x(0, 8, 16, 24));
    const __m256i inRow =
        _mm256_add_epi64(_mm256_slli_epi64(before, 6), _mm256_slli_epi64(firstHalves, 5));
    const __m256i total = _mm256_add_epi64(_mm256_add_epi64(inRow, inRegister), widened(weighted));
    return afterBlock(sums, len, sumOfLanes(bytes), sumOfLanes(total));
  }
};

Sums addBlock(Sums sums, const uint8_t* src, size_t odd, size_t rows) {
  const size_t len = odd + 64 * rows;
  RunningSums running = {};
  if (odd > 0) {
    if (odd > 32) {
      running.addRow(firstBytesAtEnd(src, odd - 32), loadRegister(src + odd - 32));
    } else {
      running.addRow(_mm256_setzero_si256(), firstBytesAtEnd(src, odd));
    }
    running.endGroup();
    src += odd;
  }
  for (; rows >= groupRows; rows -= groupRows, src += 64 * groupRows) {
    for (size_t i = 0; i < groupRows; ++i) {
      running.addRow(loadRegister(src + 64 * i), loadRegister(src + 64 * i + 32));
    }
    running.endGroup();
  }
  for (; rows > 0; --rows, src += 64) running.addRow(loadRegister(src), loadRegister(src + 32));
  running.endGroup();
  return running.addTo(sums, len);
}

uint32_t adler32(uint32_t value, const uint8_t* src, size_t len) {
  constexpr size_t wideRowsPay = 128;
  if (len < wideRowsPay) return adler32Baseline(value, src, len);
  return adler32InBlocks<64, blockRows, addBlock>(value, src, len);
}

}  // namespace
}  // namespace zebdc::kernels::avx2
ZEBDC_END_TARGET

// VPDPBUSD multiplies and adds in one step, in 32-bit lanes: with weights of 64 to 1 for the
// products and of 1 for the bytes. Its latency is why a row has four registers, each with sums of
// its own.
ZEBDC_BEGIN_AVX512
namespace zebdc::kernels::avx512 {
namespace {

constexpr size_t rowRegisters = 4;
constexpr size_t rowBytes = 64 * rowRegisters;
constexpr size_t blockRows = 2048;
constexpr size_t laneBytes = blockRows * 4 * 255;  // the most that a lane of bytes[i] can hold
static_assert(laneBytes * blockRows / 2 <= UINT32_MAX);  // before
static_assert(rowRegisters * laneBytes * 64 + (3 + 2 + 1) * 64 * laneBytes <= UINT32_MAX);  // inRow

ZEBDC_ALWAYS_INLINE __m512i widened(__m512i lanes) {
  return _mm512_add_epi64(_mm512_and_si512(lanes, _mm512_set1_epi64(0xFFFFFFFF)),
                          _mm512_srli_epi64(lanes, 32));
}

ZEBDC_ALWAYS_INLINE uint64_t sumOfLanes(__m512i lanes) {
  return static_cast<uint64_t>(_mm512_reduce_add_epi64(widened(lanes)));
}

Sums addRows(Sums sums, const uint8_t* src, size_t rows) {
  const __m512i ones = _mm512_set1_epi8(1);
  const __m512i weights = _mm512_set_epi64(
      0x0102030405060708, 0x090A0B0C0D0E0F10, 0x1112131415161718, 0x191A1B1C1D1E1F20,
      0x2122232425262728, 0x292A2B2C2D2E2F30, 0x3132333435363738, 0x393A3B3C3D3E3F40);
  __m512i before[rowRegisters] = {};
  __m512i bytes[rowRegisters] = {};
  __m512i weighted[rowRegisters] = {};
  for (size_t row = 0; row < rows; ++row) {
    for (size_t i = 0; i < rowRegisters; ++i) {
      __m512i data = _mm512_loadu_si512(src + rowBytes * row + 64 * i);
      ZEBDC_PIN(data);
      before[i] = _mm512_add_epi32(before[i], bytes[i]);
      bytes[i] = _mm512_dpbusd_epi32(bytes[i], data, ones);
      weighted[i] = _mm512_dpbusd_epi32(weighted[i], data, weights);
    }
  }

  // Register i of a row has 3 - i registers behind it, which its own weights leave out.
  __m512i allBytes = bytes[0];
  __m512i behind = _mm512_setzero_si512();
  __m512i inRow = weighted[0];
  __m512i allBefore = widened(before[0]);
  for (size_t i = 1; i < rowRegisters; ++i) {
    behind = _mm512_add_epi32(behind, allBytes);
    allBytes = _mm512_add_epi32(allBytes, bytes[i]);
    inRow = _mm512_add_epi32(inRow, weighted[i]);
    allBefore = _mm512_add_epi64(allBefore, widened(before[i]));
  }
  inRow = _mm512_add_epi32(inRow, _mm512_slli_epi32(behind, 6));
  const __m512i total = _mm512_add_epi64(widened(inRow), _mm512_slli_epi64(allBefore, 8));
  return afterBlock(sums, rowBytes * rows, sumOfLanes(allBytes),
                    static_cast<uint64_t>(_mm512_reduce_add_epi64(total)));
}

Sums addBlock(Sums sums, const uint8_t* src, size_t odd, size_t rows) {
  if (odd > 0) sums = avx2::addBlock(sums, src, odd % 64, odd / 64);
  return rows > 0 ? addRows(sums, src + odd, rows) : sums;
}

uint32_t adler32(uint32_t value, const uint8_t* src, size_t len) {
  constexpr size_t widerRowsPay = 1024;
  if (len < widerRowsPay) return avx2::adler32(value, src, len);
  return adler32InBlocks<rowBytes, blockRows, addBlock>(value, src, len);
}

}  // namespace
}  // namespace zebdc::kernels::avx512
ZEBDC_END_TARGET

namespace zebdc::kernels {

constinit const TierTable<Adler32Kernels> adler32Kernels({{tierBaseline, {adler32Baseline}},
                                                          {tierAvx2, {avx2::adler32}},
                                                          {tierAvx512, {avx512::adler32}}});

}  // namespace zebdc::kernels
