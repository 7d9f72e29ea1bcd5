// What the fixed and the dynamic writer share: everything but the header and the codes.
//
// A call of either writer goes through these steps, any of which the room may cut short:
//
//   bits in hand -> header -> pairs -> end of block -> what the flush asks for
//
// The record remembers where: headerOwed until the header is wholly in, then the caller's own count
// of pairs, then storedPhase for the empty stored block behind a flush. The end-of-block code needs
// no state, because it is taken into the bit buffer together with the last pair.
#ifndef ZEBDC_DEFLATE_PAIR_BLOCK_H
#define ZEBDC_DEFLATE_PAIR_BLOCK_H

#include <stddef.h>
#include <stdint.h>
#include <zebdc/zebdc.h>

#include "deflate/bit_writer.h"
#include "deflate/encoder_state.h"

namespace zebdc::deflate {

// One call of a writer.
struct PairCall {
  const ZebLZ77Pair* pairs;
  size_t pairsLeft;
  BitSink sink;
  ZebLZ77Flush flush;
};

// BFINAL is due when the caller says final and the match finder has consumed all of its source.
inline bool isLastBlock(const EncoderState& state, ZebLZ77Flush flush) {
  return flush == zebLZ77FlushFinal && state.callSrcLen == 0;
}

// The room is used up in the middle of a block.
inline ZebStatus blockCut(EncoderState& state) {
  state.blockPhase = phasePartial;
  return zebWarnDstFull;
}

// Codes pairs while room remains. True when none is left: then at most 47 bits are in hand, so that
// an end-of-block code still fits.
bool codePairs(const kernels::PairCodes& codes, PairCall& call);

// Writes what follows the end-of-block code, which is already in the sink.
ZebStatus finishBlock(EncoderState& state, PairCall& call);

// A call without pairs behind the end of a block: writes what is pending.
ZebStatus finishPending(EncoderState& state, PairCall& call);

// Forgets what belonged to the block that is now complete, or was written in another way.
void closeBlock(EncoderState& state);

// The frame of an export: checks the arguments, hands the call to write(state, call) and moves the
// cursors and the bit buffer on.
template <class Write>
ZebStatus runPairWriter(ZebLZ77Pair** ppPairs, int* pPairsLen, uint8_t** ppDst, int* pDstLen,
                        ZebLZ77Flush flush, ZebLZ77State_8u* pState, Write write) {
  if (ppPairs == nullptr || pPairsLen == nullptr || ppDst == nullptr || pDstLen == nullptr ||
      pState == nullptr) {
    return zebErrNullPtr;
  }
  if ((*ppPairs == nullptr && *pPairsLen > 0) || *ppDst == nullptr) return zebErrNullPtr;
  if (*pDstLen < 0 || *pPairsLen < 0) return zebErrSize;

  EncoderState& state = encoderState(pState);
  PairCall call = {*ppPairs, static_cast<size_t>(*pPairsLen), {}, flush};
  call.sink = {state.bitBuffer, static_cast<uint32_t>(state.bitCount), *ppDst,
               static_cast<size_t>(*pDstLen)};
  const ZebStatus status = write(state, call);
  state.bitBuffer = call.sink.bits;
  state.bitCount = static_cast<int32_t>(call.sink.count);
  *ppPairs += static_cast<size_t>(*pPairsLen) - call.pairsLeft;
  *pPairsLen = static_cast<int>(call.pairsLeft);
  *ppDst = call.sink.dst;
  *pDstLen = static_cast<int>(call.sink.room);
  return status;
}

}  // namespace zebdc::deflate

#endif
