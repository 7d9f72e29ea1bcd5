// Decoding of the generalized interval transform.
//
// The intervals of a value are coded by parameters that depend on its own intervals alone, so each
// stream can be read by itself; what a value waits for tells which value is next. The pass over all
// 256 values that the encoder makes first is decoded like any bytes and dropped.

#include "frame/bytes.h"
#include "frame/entry.h"
#include "frame/memory.h"
#include "huffman/git_state.h"

namespace zebdc::huffman {
namespace {

using kernels::IntervalDecoder;
using kernels::IntervalResult;
using kernels::IntervalSource;

int64_t recordSize(int maxSrcLen) {
  return int64_t{gitStreams} * ((maxSrcLen & ~7) + int64_t{8}) + gitDecoderFixedSize;
}

// Finds the streams in a joined block. False where their lengths do not fit it.
bool splitBlock(IntervalDecoder& model, const uint8_t* src, size_t len) {
  for (IntervalSource& source : model.sources) {
    if (len < 4) return false;
    const uint32_t length = loadBigEndian<uint32_t>(src);
    if (length < 1 || length > len - 4) return false;
    source = {src + 4, 0, uint64_t{length} * 8, length};
    src += 4 + length;
    len -= 4 + length;
  }
  return len == 0;
}

// The last interval of the last stream is the count of the value that has none of its own. Stores
// it and ends the stream before it.
bool takeLastValueCount(IntervalDecoder& model) {
  IntervalSource& last = model.sources[gitStreams - 1];
  IntervalSource reader = last;
  kernels::IntervalStatistics statistics = model.statistics[gitStreams - 1];
  uint64_t lastBegin = 0;
  uint32_t lastInterval = 0;
  bool found = false;
  for (;;) {
    const uint64_t begin = reader.bit;
    const IntervalResult result =
        kernels::intervalTransform().getInterval(&reader, &statistics, &lastInterval);
    if (result == IntervalResult::invalid) return false;
    if (result == IntervalResult::done) break;
    lastBegin = begin;
    found = true;
  }
  last.bitEnd = lastBegin;
  model.lastValueLeft = lastInterval;
  return found;
}

bool startBlock(IntervalDecoder& model, const uint8_t* src, size_t len) {
  resetLeaves(model.leaves);
  resetStatistics(model.statistics);
  if (!splitBlock(model, src, len) || !takeLastValueCount(model)) return false;
  return kernels::intervalTransform().startDecoding(&model) != IntervalResult::invalid;
}

// Drops the encoder's pass over all values.
bool skipAllValues(IntervalDecoder& model, kernels::IntervalOrder order) {
  uint8_t values[256];
  size_t written = 0;
  const IntervalResult result =
      kernels::intervalTransform().decode(&model, values, sizeof values, order, &written);
  if (result == IntervalResult::invalid || written != sizeof values) return false;
  for (int i = 0; i < 256; ++i) {
    if (values[i] != 255 - i) return false;
  }
  return true;
}

bool decodeBlock(IntervalDecoder& model, const uint8_t* src, size_t srcLen, uint8_t* dst,
                 size_t maxDstLen, int strategyHint, size_t* written) {
  const kernels::IntervalOrder order = orderOfHint(strategyHint);
  if (!startBlock(model, src, srcLen)) return false;
  if (strategyHint != zebGITStrategyStatic && !skipAllValues(model, order)) return false;
  return kernels::intervalTransform().decode(&model, dst, maxDstLen, order, written) ==
         IntervalResult::done;
}

}  // namespace
}  // namespace zebdc::huffman

using namespace zebdc;

ZEBDC_ENTRY(ZebStatus, zebsDecodeGITGetSize_8u)(int maxSrcLen, int* pSize) {
  if (pSize == nullptr) return zebErrNullPtr;
  if (maxSrcLen < 1 || huffman::recordSize(maxSrcLen) > INT32_MAX) return zebErrSize;
  *pSize = static_cast<int>(huffman::recordSize(maxSrcLen));
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeGITInit_8u)(int maxDstLen, ZebGITState_8u* pState) {
  if (pState == nullptr) return zebErrNullPtr;
  if (maxDstLen < 1) return zebErrSize;
  pState->maxSrcLen = INT32_MAX;
  pState->maxDstLen = maxDstLen;
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeGITInitAlloc_8u)
(int maxSrcLen, int maxDstLen, ZebGITState_8u** ppState) {
  if (ppState == nullptr) return zebErrNullPtr;
  int size = 0;
  if (zebdcEntry_zebsDecodeGITGetSize_8u(maxSrcLen, &size) != zebOk) return zebErrSize;
  return initAllocUnchecked(ppState, size, [=](ZebGITState_8u* state) {
    const ZebStatus status = zebdcEntry_zebsDecodeGITInit_8u(maxDstLen, state);
    if (status == zebOk) state->maxSrcLen = maxSrcLen;
    return status;
  });
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeGIT_8u)
(const uint8_t* pSrc, int srcLen, uint8_t* pDst, int* pDstLen, int strategyHint,
 ZebGITState_8u* pState) {
  if (pSrc == nullptr || pDst == nullptr || pDstLen == nullptr || pState == nullptr) {
    return zebErrNullPtr;
  }
  if (srcLen < 0 || srcLen > pState->maxSrcLen) return zebErrSize;
  kernels::IntervalDecoder& model = static_cast<huffman::GitDecoderState&>(*pState).model;
  size_t written = 0;
  if (!huffman::decodeBlock(model, pSrc, static_cast<size_t>(srcLen), pDst,
                            static_cast<size_t>(pState->maxDstLen), strategyHint, &written)) {
    return zebErrSize;
  }
  *pDstLen = static_cast<int>(written);
  return zebOk;
}
