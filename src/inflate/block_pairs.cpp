// Huffman blocks to pairs, the first of two passes.

#include "frame/entry.h"
#include "inflate/bit_reader.h"
#include "inflate/block_header.h"
#include "inflate/pair_output.h"
#include "inflate/symbol.h"
#include "kernels/inflate_block.h"

namespace zebdc::inflate {
namespace {

ZebStatus endBlock(DecoderState& state, BitReader& in) {
  state.blockState = betweenBlocks;
  if (state.finalBlock == 0) return zebOk;
  state.streamEnded = 1;
  in.giveBackAll();
  return zebWarnFinalBlockDone;
}

// The bulk of the symbols, as far as the margins of source and room allow.
void decodeFast(BitReader& in, PairOutput& out, const kernels::InflateTables& tables) {
  kernels::InflateInput input = {in.src, in.end, in.bits, in.count};
  kernels::InflatePairs pairs = {out.next, out.end};
  kernels::inflate().toPairs(input, pairs, tables);
  in.src = input.src;
  in.bits = input.bits;
  in.count = input.count;
  out.next = pairs.dst;
}

// With no room left only the end of the block is still taken.
ZebStatus decodeSymbols(DecoderState& state, BitReader& in, PairOutput& out) {
  const kernels::InflateTables tables = tablesOf(state);
  for (;;) {
    decodeFast(in, out, tables);
    in.refill();
    const Symbol symbol = peekSymbol(in, tables);
    if (symbol.kind == Symbol::endOfBlock) {
      in.consume(symbol.bits);
      return endBlock(state, in);
    }
    if (out.full()) return zebWarnDstFull;
    if (symbol.kind == Symbol::incomplete) return zebWarnSrcExhausted;
    if (symbol.kind == Symbol::invalid) return zebErrSize;
    in.consume(symbol.bits);
    out.put(symbol.value, symbol.distance);
  }
}

// Seeks the LEN and NLEN of an empty stored block, as a sync flush leaves them at a byte boundary.
// What follows them is between blocks.
ZebStatus resynchronise(DecoderState& state, BitReader& in) {
  constexpr uint32_t emptyStoredBlock = 0xFFFF0000;
  in.alignToByte();
  while (in.want(32)) {
    const bool found = static_cast<uint32_t>(in.bits) == emptyStoredBlock;
    in.consume(found ? 32 : 8);
    if (found) {
      state.blockState = betweenBlocks;
      return zebOk;
    }
  }
  return zebWarnSrcExhausted;
}

template <ZebStatus (*readHeader)(DecoderState&, BitReader&)>
ZebStatus decodeBlock(DecoderState& state, BitReader& in, PairOutput& out, ZebLZ77Flush flush) {
  if (flush == zebLZ77FlushSync || flush == zebLZ77FlushFull) return resynchronise(state, in);
  if (const ZebStatus status = readHeader(state, in); status != zebOk) return status;
  return decodeSymbols(state, in, out);
}

// Arguments and cursors around decodeBlock.
template <ZebStatus (*readHeader)(DecoderState&, BitReader&)>
ZebStatus decodeToPairs(const uint8_t** ppSrc, int* pSrcLen, ZebLZ77Pair** ppPairs, int* pPairsLen,
                        ZebLZ77Flush flush, ZebLZ77State_8u* pState) {
  if (ppSrc == nullptr || pSrcLen == nullptr || ppPairs == nullptr || pPairsLen == nullptr ||
      pState == nullptr || (*ppSrc == nullptr && *pSrcLen != 0) ||
      (*ppPairs == nullptr && *pPairsLen != 0)) {
    return zebErrNullPtr;
  }
  if (*pSrcLen < 0 || *pPairsLen < 0) return zebErrSize;
  if (*pPairsLen == 0) return zebWarnDstFull;

  DecoderState& state = decoderState(pState);
  BitReader in(state, *ppSrc, *pSrcLen);
  PairOutput out(*ppPairs, *pPairsLen);
  const ZebStatus status = decodeBlock<readHeader>(state, in, out, flush);
  in.save(state, ppSrc, pSrcLen);
  out.save(ppPairs, pPairsLen);
  return status;
}

}  // namespace
}  // namespace zebdc::inflate

using namespace zebdc::inflate;

ZEBDC_ENTRY(ZebStatus, zebsDecodeLZ77FixedHuff_8u)
(const uint8_t** ppSrc, int* pSrcLen, ZebLZ77Pair** ppPairs, int* pPairsLen, ZebLZ77Flush flush,
 ZebLZ77State_8u* pState) {
  return decodeToPairs<readFixedHeader>(ppSrc, pSrcLen, ppPairs, pPairsLen, flush, pState);
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeLZ77DynamicHuff_8u)
(const uint8_t** ppSrc, int* pSrcLen, ZebLZ77Pair** ppPairs, int* pPairsLen, ZebLZ77Flush flush,
 ZebLZ77State_8u* pState) {
  return decodeToPairs<readDynamicHeader>(ppSrc, pSrcLen, ppPairs, pPairsLen, flush, pState);
}
