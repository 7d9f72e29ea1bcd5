// LZSS decoding.

#include <string.h>

#include <algorithm>

#include "frame/entry.h"
#include "frame/memory.h"
#include "kernels/memory.h"
#include "lz/lzss_state.h"

namespace zebdc::lz {
namespace {

using kernels::lzssWindow;

using State = ZebLZSSState_8u;

// The history is cleared too, so that distances which reach before the first output byte, as in
// invalid data, give the same bytes every time.
void clear(State& state) {
  state.hashTable = nullptr;
  state.chain = nullptr;
  state.head = nullptr;
  state.history = state.historyArea;
  state.historyOrigin = nullptr;
  state.position = 0;
  state.bitCount = 0;
  state.bitBuffer = 0;
  state.bitBufferLow = 0;
  state.pendingDistance = 0;
  state.pendingLength = 0;
  kernels::memory().fill8(0, state.history, lzssWindow);
}

// Takes the last of count produced bytes, which end at the state's position, into the history.
void keepHistory(State& state, const uint8_t* produced, size_t count) {
  const size_t kept = std::min<size_t>(count, lzssWindow);
  const uint8_t* const bytes = produced + count - kept;
  const size_t at = (state.position - kept) % lzssWindow;
  const size_t untilWrap = std::min(kept, lzssWindow - at);
  memcpy(state.history + at, bytes, untilWrap);
  memcpy(state.history, bytes + untilWrap, kept - untilWrap);
}

}  // namespace
}  // namespace zebdc::lz

using namespace zebdc;
using namespace zebdc::lz;

ZEBDC_ENTRY(ZebStatus, zebsDecodeLZSSInit_8u)(ZebLZSSState_8u* pState) {
  if (pState == nullptr) return zebErrNullPtr;
  clear(*pState);
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeLZSSInitAlloc_8u)(ZebLZSSState_8u** ppState) {
  return initAllocChecked(ppState, zebdcEntry_zebsLZSSGetSize_8u, zebdcEntry_zebsDecodeLZSSInit_8u);
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeLZSS_8u)
(const uint8_t** ppSrc, int* pSrcLen, uint8_t** ppDst, int* pDstLen, ZebLZSSState_8u* pState) {
  if (ppSrc == nullptr || pSrcLen == nullptr || ppDst == nullptr || pDstLen == nullptr ||
      pState == nullptr || *ppSrc == nullptr || *ppDst == nullptr) {
    return zebErrNullPtr;
  }
  if (*pSrcLen < 0 || *pDstLen < 1) return zebErrSize;

  kernels::LzssDecoding run = {};
  run.src = *ppSrc;
  run.srcEnd = run.src + *pSrcLen;
  run.dst = *ppDst;
  run.dstEnd = run.dst + *pDstLen;
  run.dstBegin = run.dst;
  run.bits = {uint64_t{pState->bitBuffer} << 32, pState->bitCount};
  run.position = pState->position;
  run.history = pState->history;
  run.pendingDistance = static_cast<uint32_t>(pState->pendingDistance);
  run.pendingLength = pState->pendingLength;
  if (run.pendingLength > 0) kernels::lzss().resumeMatch(run);
  kernels::lzss().decode(run);

  const size_t produced = static_cast<size_t>(run.dst - run.dstBegin);
  pState->position += static_cast<uint32_t>(produced);
  keepHistory(*pState, run.dstBegin, produced);
  pState->bitBuffer = static_cast<uint32_t>(run.bits.buffer >> 32);
  pState->bitCount = run.bits.count;
  pState->pendingDistance = static_cast<int32_t>(run.pendingDistance);
  pState->pendingLength = run.pendingLength;
  *ppSrc = run.src;
  *pSrcLen = static_cast<int>(run.srcEnd - run.src);
  *ppDst = run.dst;
  *pDstLen = static_cast<int>(run.dstEnd - run.dst);
  return run.dst == run.dstEnd ? zebWarnDstFull : zebOk;
}
