// What the fixed and the dynamic writer share.

#include "deflate/pair_block.h"

namespace zebdc::deflate {
namespace {

// While storedPhase counts an empty stored block down it is the number of bytes left of LEN and
// NLEN; above that the block's header is still owed.
constexpr int32_t markerBytes = 4;
constexpr int32_t markerHeaderOwed = markerBytes + 1;

// The longest words that meet in the sink, each after a drain that had room: bits in hand, the last
// pair, less the byte that its room took, and the end of the block.
static_assert(7 + kernels::longestPairWord - 8 + maxCodeLength <= 64);

ZebStatus blockComplete(EncoderState& state, int32_t phase, ZebStatus status) {
  closeBlock(state);
  state.blockPhase = phase;
  return status;
}

// An empty stored block, which ends on a byte: 00 00 FF FF behind the header and its padding.
ZebStatus continueMarker(EncoderState& state, BitSink& sink) {
  if (!drained(sink)) return blockCut(state);
  if (state.storedPhase >= markerHeaderOwed) {
    put(sink, blockHeader(storedBlock, false), blockHeaderBits);
    padToByte(sink);
    state.storedPhase = markerBytes;
    if (!drained(sink)) return blockCut(state);
  }
  while (state.storedPhase > 0) {
    if (sink.room == 0) return blockCut(state);
    *sink.dst++ = state.storedPhase > markerBytes / 2 ? 0x00 : 0xFF;
    --sink.room;
    --state.storedPhase;
  }
  return blockComplete(state, phaseBlockEnd, zebOk);
}

ZebStatus endStream(EncoderState& state, BitSink& sink, ZebStatus status) {
  padToByte(sink);
  drain(sink);
  if (sink.count > 0) return blockCut(state);
  return blockComplete(state, phaseStreamEnd, status);
}

}  // namespace

bool codePairs(const kernels::PairCodes& codes, PairCall& call) {
  BitSink& sink = call.sink;
  if (!drained(sink)) return call.pairsLeft == 0;
  const size_t coded = kernels::pairCoding().code(codes, call.pairs, call.pairsLeft, sink);
  call.pairs += coded;
  call.pairsLeft -= coded;
  for (; call.pairsLeft > 0 && sink.room > 0; --call.pairsLeft) {
    const kernels::CodeWord word = kernels::pairCodeWord(codes, *call.pairs++);
    put(sink, word.bits, word.count);
    drain(sink);
  }
  return call.pairsLeft == 0;
}

ZebStatus finishBlock(EncoderState& state, PairCall& call) {
  drain(call.sink);
  if (call.flush == zebLZ77FlushSync || call.flush == zebLZ77FlushFull) {
    state.storedPhase = markerHeaderOwed;
    return continueMarker(state, call.sink);
  }
  if (isLastBlock(state, call.flush)) return endStream(state, call.sink, zebWarnFinalBlockDone);
  return blockComplete(state, phaseBlockEnd, zebOk);
}

ZebStatus finishPending(EncoderState& state, PairCall& call) {
  if (state.storedPhase > 0) return continueMarker(state, call.sink);
  if (call.flush == zebLZ77FlushFinal) {
    const bool isLast = isLastBlock(state, call.flush);
    return endStream(state, call.sink, isLast ? zebWarnFinalBlockDone : zebOk);
  }
  return blockComplete(state, phaseBlockEnd, zebOk);
}

void closeBlock(EncoderState& state) {
  state.altBitsActive = 0;
  state.pendingMode = 0;
  state.headerOwed = 0;
  state.preparedHeaderBytes = 0;
  state.headerBytesWritten = 0;
}

}  // namespace zebdc::deflate
