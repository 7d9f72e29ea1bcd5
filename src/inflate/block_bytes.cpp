// Huffman blocks to bytes in one pass.

#include <string.h>

#include <algorithm>

#include "frame/entry.h"
#include "inflate/bit_reader.h"
#include "inflate/block_header.h"
#include "inflate/history.h"
#include "inflate/symbol.h"
#include "kernels/inflate_block.h"

namespace zebdc::inflate {
namespace {

// Writes as much of a match as there is room for and leaves the rest pending. False when there is
// such a rest.
bool writeMatch(DecoderState& state, ByteOutput& out, uint32_t length, uint32_t distance) {
  const uint32_t fitting = length < out.room() ? length : out.room();
  copyFromCircular(state, out, fitting, distance);
  state.pendingLength = static_cast<int32_t>(length - fitting);
  state.pendingDistance = distance;
  return state.pendingLength == 0;
}

// Decodes the first part of a call's output into the window's second half, right behind the
// history, where every match reaches its source without a question, and copies it to the room. That
// half is free from the history's end on: in front of it a copy of the history's first windowPos
// bytes makes the circle a line.
void decodeBesideHistory(DecoderState& state, kernels::InflateInput& input, ByteOutput& out,
                         const kernels::InflateTables& tables) {
  uint8_t* const begin = state.window + state.windowPos;
  uint8_t* const dst = begin + historyBytes;
  const uint32_t free = static_cast<uint32_t>(state.window + windowAreaBytes - dst);
  kernels::InflateBytes scratch = {begin, dst, dst + std::min(free, out.room())};
  kernels::inflate().toBytes(input, scratch, tables);
  const size_t decoded = static_cast<size_t>(scratch.dst - dst);
  memcpy(out.dst, dst, decoded);
  out.dst += decoded;
}

// The bulk of the symbols, as far as the margins of source and room allow.
void decodeFast(DecoderState& state, BitReader& in, ByteOutput& out,
                const kernels::InflateTables& tables) {
  kernels::InflateInput input = {in.src, in.end, in.bits, in.count};
  if (out.written() == 0) decodeBesideHistory(state, input, out, tables);
  kernels::InflateBytes bytes = {out.begin, out.dst, out.end};
  const uint8_t* const historyEnd = state.window + state.windowPos + historyBytes;
  kernels::inflate().toBytesWithHistory(input, bytes, historyEnd, tables);
  in.src = input.src;
  in.bits = input.bits;
  in.count = input.count;
  out.dst = bytes.dst;
}

// The end of a block. Bytes that this call took and did not use go back to the source, so that the
// next block's decoder finds them there; at the end of the stream all unused bytes do, for what
// follows the stream.
ZebStatus endBlock(DecoderState& state, BitReader& in) {
  state.blockState = betweenBlocks;
  if (state.finalBlock == 0) {
    in.giveBackOwn();
    return zebOk;
  }
  state.streamEnded = 1;
  in.giveBackAll();
  return zebWarnFinalBlockDone;
}

// With no room left only the end of the block is still taken.
ZebStatus decodeSymbols(DecoderState& state, BitReader& in, ByteOutput& out) {
  const kernels::InflateTables tables = tablesOf(state);
  for (;;) {
    decodeFast(state, in, out, tables);
    in.refill();
    const Symbol symbol = peekSymbol(in, tables);
    if (symbol.kind == Symbol::endOfBlock) {
      in.consume(symbol.bits);
      return endBlock(state, in);
    }
    if (out.room() == 0) return zebWarnDstFull;
    if (symbol.kind == Symbol::incomplete) return zebWarnSrcExhausted;
    if (symbol.kind == Symbol::invalid) return zebErrSize;
    in.consume(symbol.bits);
    if (symbol.kind == Symbol::literal) {
      *out.dst++ = static_cast<uint8_t>(symbol.value);
    } else if (!writeMatch(state, out, symbol.value, symbol.distance)) {
      return zebWarnDstFull;
    }
  }
}

template <ZebStatus (*readHeader)(DecoderState&, BitReader&)>
ZebStatus decodeBlock(DecoderState& state, BitReader& in, ByteOutput& out) {
  if (state.pendingLength > 0 &&
      !writeMatch(state, out, static_cast<uint32_t>(state.pendingLength), state.pendingDistance)) {
    return zebWarnDstFull;
  }
  if (const ZebStatus status = readHeader(state, in); status != zebOk) return status;
  return decodeSymbols(state, in, out);
}

// Arguments, history and cursors around decodeBlock.
template <ZebStatus (*readHeader)(DecoderState&, BitReader&), bool returnsOneByte>
ZebStatus decodeToBytes(const uint8_t** ppSrc, int* pSrcLen, uint8_t** ppDst, int* pDstLen,
                        ZebLZ77State_8u* pState) {
  if (ppSrc == nullptr || pSrcLen == nullptr || ppDst == nullptr || pDstLen == nullptr ||
      pState == nullptr || *ppSrc == nullptr || *ppDst == nullptr) {
    return zebErrNullPtr;
  }
  if (*pSrcLen < 0 || *pDstLen < 0) return zebErrSize;
  if (*pDstLen == 0) return zebWarnDstFull;

  DecoderState& state = decoderState(pState);
  BitReader in(state, *ppSrc, *pSrcLen);
  ByteOutput out(*ppDst, *pDstLen);
  const ZebStatus status = decodeBlock<readHeader>(state, in, out);
  // A caller that goes on while it has source must not stop with symbols left in the bit buffer.
  if (returnsOneByte && status == zebWarnDstFull && in.sourceEmpty() && in.src > in.begin) {
    in.giveBack(1);
  }
  if (status != zebWarnFinalBlockDone) enterCircularHistory(state, out.begin, out.written());
  in.save(state, ppSrc, pSrcLen);
  out.save(ppDst, pDstLen);
  return status;
}

}  // namespace
}  // namespace zebdc::inflate

using namespace zebdc::inflate;

ZEBDC_ENTRY(ZebStatus, zebsDecodeLZ77FixedHuffFull_8u)
(const uint8_t** ppSrc, int* pSrcLen, uint8_t** ppDst, int* pDstLen, ZebLZ77Flush,
 ZebLZ77State_8u* pState) {
  return decodeToBytes<readFixedHeader, false>(ppSrc, pSrcLen, ppDst, pDstLen, pState);
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeLZ77DynamicHuffFull_8u)
(const uint8_t** ppSrc, int* pSrcLen, uint8_t** ppDst, int* pDstLen, ZebLZ77Flush,
 ZebLZ77State_8u* pState) {
  return decodeToBytes<readDynamicHeader, true>(ppSrc, pSrcLen, ppDst, pDstLen, pState);
}
