// Blocks under codes of their own (RFC 1951, 3.2.7).

#include "deflate/dynamic_block.h"
#include "deflate/pair_block.h"
#include "frame/entry.h"

namespace zebdc::deflate {
namespace {

// True when the header is wholly in: at most 15 bits are then in hand.
bool writeHeader(EncoderState& state, BitSink& sink) {
  for (; state.headerBytesWritten < state.preparedHeaderBytes; ++state.headerBytesWritten) {
    if (!drained(sink)) return false;
    const bool isLastByte = state.headerBytesWritten + 1 == state.preparedHeaderBytes;
    put(sink, state.huffWork[state.headerBytesWritten], isLastByte ? state.preparedHeaderTail : 8);
  }
  return true;
}

ZebStatus writeDynamicBlock(EncoderState& state, PairCall& call) {
  BitSink& sink = call.sink;
  if (state.blockPhase == phaseBlockBegin) state.headerOwed = 1;
  if (sink.room == 0) return blockCut(state);

  drain(sink);
  if (call.pairsLeft == 0 && state.headerOwed == 0) return finishPending(state, call);
  if (state.preparedHeaderBytes == 0) {
    prepareDynamicBlock(state, countFrequencies(call.pairs, call.pairsLeft));
  }
  if (!writeHeader(state, sink)) {
    state.headerOwed = 1;
    return blockCut(state);
  }
  state.headerOwed = 0;
  if (!codePairs({state.itemCodes, state.distanceClassCodes}, call)) return blockCut(state);
  put(sink, state.literalCodes[endOfBlock].bits, state.literalCodes[endOfBlock].count);
  return finishBlock(state, call);
}

}  // namespace
}  // namespace zebdc::deflate

using namespace zebdc;
using namespace zebdc::deflate;

ZEBDC_ENTRY(ZebStatus, zebsEncodeLZ77DynamicHuff_8u)
(ZebLZ77Pair** ppPairs, int* pPairsLen, uint8_t** ppDst, int* pDstLen, ZebLZ77Flush flush,
 ZebLZ77State_8u* pState) {
  return runPairWriter(ppPairs, pPairsLen, ppDst, pDstLen, flush, pState,
                       [](EncoderState& state, PairCall& call) {
                         const ZebStatus status = writeDynamicBlock(state, call);
                         if (status != zebWarnDstFull) state.lastFlush = call.flush;
                         return status;
                       });
}
