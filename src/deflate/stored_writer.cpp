// Stored blocks (RFC 1951, 3.2.4).

#include <algorithm>

#include "deflate/bit_writer.h"
#include "deflate/encoder_state.h"
#include "deflate/pair_block.h"
#include "frame/entry.h"
#include "kernels/memory.h"

namespace zebdc::deflate {
namespace {

// Values of storedPhase: what is done next.
constexpr int32_t storedHeader = 0;       // the block header
constexpr int32_t storedLength = 1;       // LEN and NLEN into the bit buffer
constexpr int32_t storedLengthBytes = 2;  // and out of it
constexpr int32_t storedBytes = 3;        // the bytes themselves

struct StoredCall {
  const uint8_t* src;
  size_t srcLeft;
  BitSink sink;
  ZebLZ77Flush flush;
};

// The header, LEN and NLEN. False when the room runs out.
bool writeStoredHeader(EncoderState& state, StoredCall& call) {
  BitSink& sink = call.sink;
  if (state.storedPhase == storedHeader) {
    if (!drained(sink)) return false;
    put(sink, blockHeader(storedBlock, call.flush == zebLZ77FlushFinal), blockHeaderBits);
    padToByte(sink);
    state.storedPhase = storedLength;
  }
  if (state.storedPhase == storedLength) {
    if (!drained(sink)) return false;
    const uint32_t length = static_cast<uint32_t>(std::min<size_t>(call.srcLeft, maxStoredBlock));
    state.storedRemaining = static_cast<int32_t>(length);
    put(sink, length | (length ^ 0xFFFF) << 16, 32);
    state.storedPhase = storedLengthBytes;
  }
  if (state.storedPhase == storedLengthBytes) {
    if (!drained(sink)) return false;
    state.storedPhase = storedBytes;
  }
  return true;
}

// True when the block's bytes are all written.
bool copyStoredBytes(EncoderState& state, StoredCall& call) {
  const size_t count =
      std::min({call.sink.room, static_cast<size_t>(state.storedRemaining), call.srcLeft});
  kernels::memory().copy(call.src, call.sink.dst, static_cast<int>(count));
  call.src += count;
  call.srcLeft -= count;
  call.sink.dst += count;
  call.sink.room -= count;
  state.storedRemaining -= static_cast<int32_t>(count);
  return state.storedRemaining == 0;
}

ZebStatus writeStoredBlocks(EncoderState& state, StoredCall& call) {
  if (call.sink.room == 0) return zebWarnDstFull;
  for (;;) {
    if (!writeStoredHeader(state, call)) return zebWarnDstFull;
    if (!copyStoredBytes(state, call)) return call.sink.room == 0 ? zebWarnDstFull : zebOk;
    state.storedPhase = storedHeader;
    closeBlock(state);
    if (call.flush == zebLZ77FlushFinal) state.blockPhase = phaseStreamEnd;
    if (call.srcLeft == 0) {
      return call.flush == zebLZ77FlushFinal ? zebWarnFinalBlockDone : zebOk;
    }
    if (call.sink.room == 0) return zebWarnDstFull;
  }
}

}  // namespace
}  // namespace zebdc::deflate

using namespace zebdc;
using namespace zebdc::deflate;

ZEBDC_ENTRY(ZebStatus, zebsEncodeLZ77StoredBlock_8u)
(const uint8_t** ppSrc, int* pSrcLen, uint8_t** ppDst, int* pDstLen, ZebLZ77Flush flush,
 ZebLZ77State_8u* pState) {
  if (ppSrc == nullptr || pSrcLen == nullptr || ppDst == nullptr || pDstLen == nullptr ||
      pState == nullptr || *ppSrc == nullptr || *ppDst == nullptr) {
    return zebErrNullPtr;
  }
  if (*pSrcLen < 0 || *pDstLen < 0) return zebErrSize;

  EncoderState& state = encoderState(pState);
  const bool alternate = state.altBitsActive != 0;
  StoredCall call = {*ppSrc, static_cast<size_t>(*pSrcLen), {}, flush};
  call.sink = {alternate ? state.altBitBuffer : state.bitBuffer,
               static_cast<uint32_t>(alternate ? state.altBitCount : state.bitCount), *ppDst,
               static_cast<size_t>(*pDstLen)};
  const ZebStatus status = writeStoredBlocks(state, call);
  state.bitBuffer = state.altBitBuffer = call.sink.bits;
  state.bitCount = state.altBitCount = static_cast<int32_t>(call.sink.count);
  *ppSrc = call.src;
  *pSrcLen = static_cast<int>(call.srcLeft);
  *ppDst = call.sink.dst;
  *pDstLen = static_cast<int>(call.sink.room);
  return status;
}
