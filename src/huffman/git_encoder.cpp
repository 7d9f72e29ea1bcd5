// Encoding with the generalized interval transform.

#include <string.h>

#include "frame/bytes.h"
#include "frame/entry.h"
#include "frame/memory.h"
#include "huffman/git_state.h"

namespace zebdc::huffman {
namespace {

using kernels::IntervalEncoder;
using kernels::IntervalStream;

struct Limits {
  int maxSrcLen;
  int maxDstLen;
  bool raised;  // to the minimum
};

Limits limitsFor(int maxSrcLen, int maxDstLen) {
  if (maxSrcLen < minGitSrcLen) return {minGitSrcLen, minGitDstLen, true};
  return {maxSrcLen, maxDstLen, false};
}

int roundedDown(int length) {
  return length & ~7;
}

int64_t recordSize(const Limits& limits) {
  return int64_t{gitStreams} * roundedDown(limits.maxSrcLen) + roundedDown(limits.maxDstLen) +
         gitEncoderFixedSize;
}

ZebStatus checkedLimits(int maxSrcLen, int maxDstLen, Limits* limits) {
  if (maxSrcLen < 1 || maxDstLen < 1) return zebErrSize;
  *limits = limitsFor(maxSrcLen, maxDstLen);
  return recordSize(*limits) > INT32_MAX ? zebErrSize : zebOk;
}

ZebStatus noticeOf(const Limits& limits) {
  return limits.raised ? zebWarnDstFull : zebOk;
}

void initRecord(const Limits& limits, ZebGITState_8u* state) {
  auto& record = static_cast<GitEncoderState&>(*state);
  record.maxSrcLen = limits.maxSrcLen;
  record.maxDstLen = limits.maxDstLen;
  const int capacity = roundedDown(limits.maxSrcLen) + gitStreamSlack;
  uint8_t* buffer = reinterpret_cast<uint8_t*>(&record + 1);
  for (IntervalStream& stream : record.model.streams) {
    stream = {buffer, 0, 0};
    buffer += capacity;
  }
  record.model.streamLimit = static_cast<uint32_t>(capacity) - kernels::intervalStreamSlack;
}

void startBlock(IntervalEncoder& model) {
  resetLeaves(model.leaves);
  resetStatistics(model.statistics);
  memset(model.groupSum, 0, sizeof model.groupSum);
  memset(model.positionSum, 0, sizeof model.positionSum);
  memset(model.storedSum, 0, sizeof model.storedSum);
  for (IntervalStream& stream : model.streams) {
    stream.byteIndex = 0;
    stream.bitPosition = 0;
    stream.bytes[0] = 0;
  }
}

// Counts every value once, so that the order starts from equal counts.
bool countAllValues(IntervalEncoder& model, kernels::IntervalOrder order) {
  uint8_t values[256];
  for (int i = 0; i < 256; ++i) values[i] = static_cast<uint8_t>(255 - i);
  return kernels::intervalTransform().encode(&model, values, sizeof values, order);
}

// Codes the block into the streams, and at the end of the last stream the count of the value that
// has no intervals.
bool codeBlock(IntervalEncoder& model, const uint8_t* src, size_t len, int strategyHint) {
  const kernels::IntervalOrder order = orderOfHint(strategyHint);
  startBlock(model);
  if (strategyHint != zebGITStrategyStatic && !countAllValues(model, order)) return false;
  if (!kernels::intervalTransform().encode(&model, src, len, order)) return false;
  return kernels::intervalTransform().putInterval(
      &model, gitStreams - 1, model.leaves.count[kernels::lastIntervalPosition]);
}

uint32_t streamLength(const IntervalStream& stream) {
  return stream.byteIndex + 1;
}

// Ends a stream: what its current byte has left is filled with ones.
void closeStream(const IntervalStream& stream) {
  stream.bytes[stream.byteIndex] |= static_cast<uint8_t>(0xFF >> stream.bitPosition);
}

int64_t joinedLength(const IntervalEncoder& model) {
  int64_t length = 4 * gitStreams;
  for (const IntervalStream& stream : model.streams) length += streamLength(stream);
  return length;
}

void joinStreams(const IntervalEncoder& model, uint8_t* dst) {
  for (const IntervalStream& stream : model.streams) {
    closeStream(stream);
    storeBigEndian<uint32_t>(dst, streamLength(stream));
    memcpy(dst + 4, stream.bytes, streamLength(stream));
    dst += 4 + streamLength(stream);
  }
}

}  // namespace
}  // namespace zebdc::huffman

using namespace zebdc;

ZEBDC_ENTRY(ZebStatus, zebsEncodeGITGetSize_8u)(int maxSrcLen, int maxDstLen, int* pSize) {
  if (pSize == nullptr) return zebErrNullPtr;
  huffman::Limits limits;
  const ZebStatus status = huffman::checkedLimits(maxSrcLen, maxDstLen, &limits);
  if (status != zebOk) return status;
  *pSize = static_cast<int>(huffman::recordSize(limits));
  return huffman::noticeOf(limits);
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeGITInit_8u)
(int maxSrcLen, int maxDstLen, ZebGITState_8u* pState) {
  if (pState == nullptr) return zebErrNullPtr;
  huffman::Limits limits;
  const ZebStatus status = huffman::checkedLimits(maxSrcLen, maxDstLen, &limits);
  if (status != zebOk) return status;
  huffman::initRecord(limits, pState);
  return huffman::noticeOf(limits);
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeGITInitAlloc_8u)
(int maxSrcLen, int maxDstLen, ZebGITState_8u** ppState) {
  ZebStatus notice = zebOk;
  const ZebStatus status = initAllocChecked(
      ppState,
      [=](int* size) { return zebdcEntry_zebsEncodeGITGetSize_8u(maxSrcLen, maxDstLen, size); },
      [&](ZebGITState_8u* state) {
        notice = zebdcEntry_zebsEncodeGITInit_8u(maxSrcLen, maxDstLen, state);
      });
  return status != zebOk ? status : notice;
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeGIT_8u)
(const uint8_t* pSrc, int srcLen, uint8_t* pDst, int* pDstLen, int strategyHint,
 ZebGITState_8u* pState) {
  if (pSrc == nullptr || pDst == nullptr || pDstLen == nullptr || pState == nullptr) {
    return zebErrNullPtr;
  }
  if (srcLen < 0 || srcLen > pState->maxSrcLen) return zebErrSize;
  kernels::IntervalEncoder& model = static_cast<huffman::GitEncoderState&>(*pState).model;
  if (!huffman::codeBlock(model, pSrc, static_cast<size_t>(srcLen), strategyHint)) {
    return zebErrSize;
  }
  const int64_t length = huffman::joinedLength(model);
  if (length > pState->maxDstLen) return zebErrSize;
  huffman::joinStreams(model, pDst);
  *pDstLen = static_cast<int>(length);
  return zebOk;
}

ZEBDC_ENTRY(void, zebsGITFree_8u)(ZebGITState_8u* pState) {
  release(pState);
}
