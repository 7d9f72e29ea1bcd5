// Zero-run decoding and inverse move-to-front.
//
// Which symbols are digits cannot be predicted, so the loop does the same for all. A digit is
// position 0, which moves nothing, and each digit of a numeral by itself appends its share of the
// run, (digit + 1) << place. So every symbol appends some copies of the byte that is then at the
// front, mostly few: 16 are stored at once, and the output advances by those that count.

#include "kernels/bzip2_symbols.h"

#include <string.h>
#include <tmmintrin.h>

#include "frame/compiler.h"

namespace zebdc::kernels {
namespace {

constexpr size_t listBlock = 16;
constexpr uint32_t runSymbols = 2;

// Row r moves byte r of a vector to the front.
struct MoveTable {
  alignas(16) uint8_t rows[listBlock][listBlock];
};

constexpr MoveTable makeMoveTable() {
  MoveTable table = {};
  for (size_t row = 0; row < listBlock; ++row) {
    for (size_t i = 0; i < listBlock; ++i) {
      const size_t source = i > row ? i : i == 0 ? row : i - 1;
      table.rows[row][i] = static_cast<uint8_t>(source);
    }
  }
  return table;
}

constexpr MoveTable moveTable = makeMoveTable();

ZEBDC_ALWAYS_INLINE __m128i loadBlock(const uint8_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

ZEBDC_ALWAYS_INLINE void storeBlock(uint8_t* p, __m128i block) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(p), block);
}

ZEBDC_ALWAYS_INLINE __m128i moveToFront(__m128i block, uint32_t position) {
  return _mm_shuffle_epi8(block, loadBlock(moveTable.rows[position]));
}

// The last byte of the first block, then the first 15 of the second.
ZEBDC_ALWAYS_INLINE __m128i shiftedIn(__m128i first, __m128i second) {
  return _mm_alignr_epi8(second, first, 15);
}

// Moves a byte from behind the first block, which the caller holds and gets back changed, to the
// front of the list.
ZEBDC_NOINLINE __m128i moveFromBehind(uint8_t* list, __m128i front, uint32_t position) {
  storeBlock(list, front);
  uint8_t* block = list + position / listBlock * listBlock;
  const __m128i last = moveToFront(loadBlock(block), position % listBlock);
  // The moved byte is now the first of its block, where the one before the block belongs.
  storeBlock(block, last);
  *block = *(block - 1);
  for (block -= listBlock; block != list; block -= listBlock) {
    storeBlock(block, shiftedIn(loadBlock(block - listBlock), loadBlock(block)));
  }
  return shiftedIn(_mm_slli_si128(last, 15), front);
}

// The bytes that a symbol appends; numeralPlace is that of the symbol if it is a digit.
ZEBDC_ALWAYS_INLINE size_t copiesOf(uint32_t symbol, uint32_t numeralPlace) {
  return symbol < runSymbols ? (symbol + size_t{1}) << numeralPlace : 1;
}

}  // namespace

size_t decodeBzip2Symbols(const uint16_t* symbols, size_t count, uint8_t* list, uint8_t* dst,
                          size_t capacity) {
  __m128i front = loadBlock(list);
  uint32_t place = 0;
  size_t out = 0;
  for (size_t in = 0; in < count; ++in) {
    const uint32_t symbol = symbols[in];
    const uint32_t position = symbol < runSymbols ? 0 : (symbol - 1) & 0xFF;
    if (position < listBlock) [[likely]] {
      front = moveToFront(front, position);
    } else {
      front = moveFromBehind(list, front, position);
    }
    const __m128i copies = _mm_shuffle_epi8(front, _mm_setzero_si128());
    // Places go up to 24, as a run of that many digits is longer than any capacity.
    const size_t added = copiesOf(symbol, place);
    place = symbol < runSymbols ? place + 1 : 0;
    if (added <= listBlock && capacity - out >= listBlock) [[likely]] {
      storeBlock(dst + out, copies);
    } else {
      if (added > capacity - out) return bzip2SymbolsFailed;
      memset(dst + out, _mm_cvtsi128_si32(copies) & 0xFF, added);
    }
    out += added;
  }
  return out;
}

}  // namespace zebdc::kernels
