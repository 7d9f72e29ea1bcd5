// Expansion of pairs to bytes, the second of two passes.

#include <string.h>

#include <algorithm>

#include "frame/entry.h"
#include "inflate/history.h"
#include "kernels/pair_expansion.h"

namespace zebdc::inflate {
namespace {

// Writes as much of a match as there is room for and leaves the rest pending.
void writeMatch(DecoderState& state, ByteOutput& out, uint32_t length, uint32_t distance) {
  const uint32_t fitting = length < out.room() ? length : out.room();
  copyFromLinear(state, out, fitting, distance);
  state.pendingLength = static_cast<int32_t>(length - fitting);
  state.pendingDistance = distance;
}

// Expands the first part of a call's output in the window, right behind the history, and copies it
// to the room.
size_t expandBesideHistory(DecoderState& state, const ZebLZ77Pair* pairs, size_t count,
                           ByteOutput& out) {
  uint8_t* const dst = state.window + state.historyLen;
  const uint32_t free = static_cast<uint32_t>(windowAreaBytes - state.historyLen);
  kernels::InflateBytes scratch = {state.window, dst, dst + std::min(free, out.room())};
  const size_t expanded = kernels::pairExpansion().expand(pairs, count, scratch);
  const size_t bytes = static_cast<size_t>(scratch.dst - dst);
  memcpy(out.dst, dst, bytes);
  out.dst += bytes;
  return expanded;
}

// The bulk of the pairs: as long as the room lasts and no pair is out of the ordinary. How many.
size_t expandFast(DecoderState& state, const ZebLZ77Pair* pairs, size_t count, ByteOutput& out) {
  if (out.written() == 0) return expandBesideHistory(state, pairs, count, out);
  kernels::InflateBytes bytes = {out.begin, out.dst, out.end};
  const size_t expanded = kernels::pairExpansion().expand(pairs, count, bytes);
  out.dst = bytes.dst;
  return expanded;
}

ZebStatus expandPairs(DecoderState& state, const ZebLZ77Pair*& pairs, const ZebLZ77Pair* end,
                      ByteOutput& out) {
  if (state.pendingLength > 0) {
    writeMatch(state, out, static_cast<uint32_t>(state.pendingLength), state.pendingDistance);
    if (state.pendingLength > 0) return zebWarnDstFull;
  }
  for (;;) {
    pairs += expandFast(state, pairs, static_cast<size_t>(end - pairs), out);
    if (pairs == end) return state.streamEnded != 0 ? zebWarnFinalBlockDone : zebOk;
    if (out.room() == 0) return zebWarnDstFull;
    const ZebLZ77Pair pair = *pairs++;
    if (pair.offset == 0) {
      *out.dst++ = static_cast<uint8_t>(pair.length);
    } else {
      writeMatch(state, out, pair.length, pair.offset);
      if (state.pendingLength > 0) return zebWarnDstFull;
    }
  }
}

// A cursor that holds no elements may be null.
bool isNull(const void* cursor, int count) {
  return cursor == nullptr && count != 0;
}

}  // namespace
}  // namespace zebdc::inflate

using namespace zebdc::inflate;

ZEBDC_ENTRY(ZebStatus, zebsDecodeLZ77_8u)
(const ZebLZ77Pair** ppPairs, int* pPairsLen, uint8_t** ppDst, int* pDstLen, ZebLZ77Flush,
 ZebLZ77State_8u* pState) {
  if (ppPairs == nullptr || pPairsLen == nullptr || ppDst == nullptr || pDstLen == nullptr ||
      pState == nullptr || isNull(*ppPairs, *pPairsLen) || isNull(*ppDst, *pDstLen)) {
    return zebErrNullPtr;
  }
  if (*pDstLen < 0 || *pPairsLen < 0) return zebErrSize;
  DecoderState& state = decoderState(pState);
  if (*pPairsLen == 0 && (*pDstLen == 0 || state.pendingLength == 0)) return zebOk;
  if (*pDstLen == 0) return zebWarnDstFull;

  const ZebLZ77Pair* const end = *ppPairs + *pPairsLen;
  ByteOutput out(*ppDst, *pDstLen);
  const ZebStatus status = expandPairs(state, *ppPairs, end, out);
  if (status != zebWarnFinalBlockDone) enterLinearHistory(state, out.begin, out.written());
  *pPairsLen = static_cast<int>(end - *ppPairs);
  out.save(ppDst, pDstLen);
  return status;
}
