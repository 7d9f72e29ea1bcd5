// LZSS encoding.

#include <string.h>

#include <algorithm>

#include "frame/entry.h"
#include "frame/memory.h"
#include "frame/substitution_tables.h"
#include "kernels/memory.h"
#include "lz/lzss_state.h"

namespace zebdc::lz {
namespace {

using kernels::lzssLongestMatch;
using kernels::lzssWindow;

using State = ZebLZSSState_8u;

// An entry this low is out of reach from position 0 on.
constexpr int32_t emptyEntry = -static_cast<int32_t>(lzssWindow);

// Where new bytes are appended: before it, the old ones, at least a window of them once there are
// so many; behind it, room for the copy that lets matches run into the new bytes.
constexpr size_t fullHistory =
    sizeof State::historyArea - lzssLongestMatch - kernels::lzssHistorySlack;
static_assert(fullHistory >= lzssWindow);

size_t historyFill(const State& state) {
  return reinterpret_cast<uintptr_t>(state.historyOrigin) + state.position -
         reinterpret_cast<uintptr_t>(state.history);
}

void setHistoryFill(State& state, size_t fill) {
  state.historyOrigin = reinterpret_cast<uint8_t*>(reinterpret_cast<uintptr_t>(state.history) +
                                                   fill - state.position);
}

// Takes consumed bytes, up to the state's position, into the history, of which fill bytes were in
// use before.
void keepHistory(State& state, size_t fill, const uint8_t* consumed, size_t count) {
  if (count >= lzssWindow) {
    memcpy(state.history, consumed + count - lzssWindow, lzssWindow);
    setHistoryFill(state, lzssWindow);
    return;
  }
  if (fill + count > fullHistory) {
    const size_t kept = lzssWindow - count;
    memmove(state.history, state.history + fill - kept, kept);
    fill = kept;
  }
  memcpy(state.history + fill, consumed, count);
  setHistoryFill(state, fill + count);
}

void clear(State& state) {
  state.hashTable = reinterpret_cast<const int16_t*>(threeByteHashRows.data());
  state.chain = state.chainTable;
  state.head = state.headTable;
  state.history = state.historyArea;
  state.position = 0;
  setHistoryFill(state, 0);
  state.bitCount = 0;
  state.bitBuffer = 0;
  state.bitBufferLow = 0;
  state.pendingDistance = 0;
  state.pendingLength = 0;
  for (int32_t* table : {state.chainTable, state.headTable}) {
    kernels::memory().fill32(static_cast<uint32_t>(emptyEntry), reinterpret_cast<uint32_t*>(table),
                             lzssWindow);
  }
}

kernels::LzssBits loadBits(const State& state) {
  return {uint64_t{state.bitBuffer} << 32 | state.bitBufferLow, state.bitCount};
}

void storeBits(State& state, const kernels::LzssBits& bits) {
  state.bitBuffer = static_cast<uint32_t>(bits.buffer >> 32);
  state.bitBufferLow = static_cast<uint32_t>(bits.buffer);
  state.bitCount = bits.count;
}

// Codes as much as there is room for.
void encode(State& state, kernels::LzssEncoding& run) {
  const size_t fill = historyFill(state);
  const uint8_t* const source = run.src;
  const size_t srcLen = run.srcLen;
  memcpy(state.history + fill, source, std::min<size_t>(srcLen, lzssLongestMatch));
  run.position = state.position;
  run.history = state.history + fill;
  run.chain = state.chain;
  run.head = state.head;
  run.hashTable = state.hashTable;
  kernels::lzss().encode(run);
  state.position = run.position;
  keepHistory(state, fill, source, srcLen - run.srcLen);
}

}  // namespace
}  // namespace zebdc::lz

using namespace zebdc;
using namespace zebdc::lz;

ZEBDC_ENTRY(ZebStatus, zebsLZSSGetSize_8u)(int* pSize) {
  if (pSize == nullptr) return zebErrNullPtr;
  *pSize = sizeof(ZebLZSSState_8u);
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeLZSSInit_8u)(ZebLZSSState_8u* pState) {
  if (pState == nullptr) return zebErrNullPtr;
  clear(*pState);
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeLZSSInitAlloc_8u)(ZebLZSSState_8u** ppState) {
  return initAllocChecked(ppState, zebdcEntry_zebsLZSSGetSize_8u, zebdcEntry_zebsEncodeLZSSInit_8u);
}

ZEBDC_ENTRY(void, zebsLZSSFree_8u)(ZebLZSSState_8u* pState) {
  release(pState);
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeLZSS_8u)
(const uint8_t** ppSrc, int* pSrcLen, uint8_t** ppDst, int* pDstLen, ZebLZSSState_8u* pState) {
  if (ppSrc == nullptr || pSrcLen == nullptr || ppDst == nullptr || pDstLen == nullptr ||
      pState == nullptr || *ppSrc == nullptr || *ppDst == nullptr) {
    return zebErrNullPtr;
  }
  if (*pSrcLen < 0 || *pDstLen < 0) return zebErrSize;
  if (*pDstLen == 0) return zebWarnDstFull;
  if (*pSrcLen == 0) return zebOk;

  kernels::LzssEncoding run = {};
  run.src = *ppSrc;
  run.srcLen = static_cast<size_t>(*pSrcLen);
  run.dst = *ppDst;
  run.dstLen = static_cast<size_t>(*pDstLen);
  run.bits = loadBits(*pState);
  // What an earlier call had no room for goes out before anything new is taken.
  kernels::lzssDrain(run.bits, run.dst, run.dstLen);
  if (run.dstLen > 0) encode(*pState, run);

  storeBits(*pState, run.bits);
  *ppSrc += static_cast<size_t>(*pSrcLen) - run.srcLen;
  *pSrcLen = static_cast<int>(run.srcLen);
  *ppDst = run.dst;
  *pDstLen = static_cast<int>(run.dstLen);
  return run.dstLen == 0 ? zebWarnDstFull : zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeLZSSFlush_8u)
(uint8_t** ppDst, int* pDstLen, ZebLZSSState_8u* pState) {
  if (ppDst == nullptr || pDstLen == nullptr || pState == nullptr || *ppDst == nullptr) {
    return zebErrNullPtr;
  }
  if (*pDstLen < 1) return zebErrSize;

  kernels::LzssBits bits = loadBits(*pState);
  while (bits.count > 0 && *pDstLen > 0) {
    *(*ppDst)++ = static_cast<uint8_t>(bits.buffer >> 56);
    --*pDstLen;
    bits.buffer <<= 8;
    bits.count = std::max(bits.count - 8, 0);
  }
  if (*pDstLen > 0) return zebOk;  // and the record keeps what was written
  storeBits(*pState, bits);
  return zebWarnDstFull;
}
