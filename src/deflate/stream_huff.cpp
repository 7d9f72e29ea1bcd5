// Coding of the arrays that stream-style match finding leaves, with codes of the caller.
//
// The items are turned into pairs, a few hundred at a time, and coded by the loop that the block
// writers use. Its stores may reach pairCodingMargin bytes beyond the bits, so it is kept from the
// last items, as many as certainly fill that many bytes; they go out byte by byte.

#include <algorithm>

#include "deflate/bit_writer.h"
#include "deflate/pair_codes.h"
#include "frame/entry.h"
#include "kernels/pair_coding.h"

namespace zebdc::deflate {
namespace {

// Below this many items the tables cost more than they save.
constexpr uint32_t worthwhile = 2048;
constexpr uint32_t maxPendingBits = 32;

struct Items {
  const uint8_t* literals;    // a literal, or a match length - 3
  const uint16_t* distances;  // 0 for a literal
  size_t count;
};

ZebLZ77Pair pairOf(const Items& items, size_t i) {
  const uint16_t distance = items.distances[i];
  const int value = items.literals[i];
  return {static_cast<uint16_t>(distance == 0 ? value : value + minMatch), distance};
}

struct CodeTables {
  uint32_t items[kernels::pairItems];
  uint64_t distances[kernels::distanceClasses];

  CodeTables(const ZebDeflateHuffCode* literalCodes, const ZebDeflateHuffCode* distanceCodeTable)
      : items{}, distances{} {
    OutputBits literalBits[literalSymbols];
    OutputBits distanceBits[distanceSymbols];
    for (int i = 0; i < literalSymbols; ++i)
      literalBits[i] = {literalCodes[i].code, literalCodes[i].len};
    for (int i = 0; i < distanceSymbols; ++i) {
      distanceBits[i] = {distanceCodeTable[i].code, distanceCodeTable[i].len};
    }
    spreadCodes(literalBits, distanceBits, items, distances);
  }

  kernels::PairCodes codes() const { return {items, distances}; }
};

// How many items from the front the loop may code: those behind them fill the margin.
size_t itemsAheadOfMargin(const Items& items, const kernels::PairCodes& codes) {
  size_t bits = 0;
  size_t end = items.count;
  while (end > 0 && bits < kernels::pairCodingMargin * 8) {
    bits += kernels::pairCodeWord(codes, pairOf(items, --end)).count;
  }
  return end;
}

// Codes the first count items.
void codeFast(const Items& items, size_t count, const kernels::PairCodes& codes, BitSink& sink) {
  constexpr size_t batch = 256;
  ZebLZ77Pair pairs[batch];
  for (size_t begin = 0; begin < count;) {
    const size_t size = std::min(batch, count - begin);
    for (size_t i = 0; i < size; ++i) pairs[i] = pairOf(items, begin + i);
    // Room for the batch, the margin and one turn: the loop never ends for lack of it.
    sink.room = (size + 2) * 8 + kernels::pairCodingMargin;
    const size_t coded = kernels::pairCoding().code(codes, pairs, size, sink);
    for (size_t i = coded; i < size; ++i) {
      const kernels::CodeWord word = kernels::pairCodeWord(codes, pairs[i]);
      put(sink, word.bits, word.count);
      drain(sink);
    }
    begin += size;
  }
}

void codeSlowly(const Items& items, size_t from, const kernels::PairCodes& codes, BitSink& sink) {
  sink.room = SIZE_MAX;
  drain(sink);
  for (size_t i = from; i < items.count; ++i) {
    const kernels::CodeWord word = kernels::pairCodeWord(codes, pairOf(items, i));
    put(sink, word.bits, word.count);
    drain(sink);
  }
}

}  // namespace
}  // namespace zebdc::deflate

using namespace zebdc;

ZEBDC_ENTRY(ZebStatus, zebsDeflateHuff_8u)
(const uint8_t* pLitSrc, const uint16_t* pDistSrc, uint32_t srcLen,
 const ZebDeflateHuffCode* pLitCodes, const ZebDeflateHuffCode* pDistCodes, uint8_t* pDst,
 uint32_t* pDstIdx, uint32_t* pCode, uint32_t* pCodeLenBits) {
  if (pLitSrc == nullptr || pDistSrc == nullptr || pLitCodes == nullptr || pDistCodes == nullptr ||
      pDst == nullptr || pDstIdx == nullptr || pCode == nullptr || pCodeLenBits == nullptr) {
    return zebErrNullPtr;
  }
  if (*pCodeLenBits >= deflate::maxPendingBits) return zebErrSize;
  const deflate::Items items = {pLitSrc, pDistSrc, srcLen};
  const deflate::CodeTables tables(pLitCodes, pDistCodes);
  uint8_t* const begin = pDst + *pDstIdx;
  const uint32_t pending = *pCodeLenBits;
  deflate::BitSink sink = {*pCode & ((uint64_t{1} << pending) - 1), pending, begin, SIZE_MAX};
  size_t coded = 0;
  if (srcLen >= deflate::worthwhile) {
    deflate::drain(sink);
    coded = deflate::itemsAheadOfMargin(items, tables.codes());
    deflate::codeFast(items, coded, tables.codes(), sink);
  }
  deflate::codeSlowly(items, coded, tables.codes(), sink);
  *pDstIdx += static_cast<uint32_t>(sink.dst - begin);
  *pCode = static_cast<uint32_t>(sink.bits);
  *pCodeLenBits = sink.count;
  return zebOk;
}
