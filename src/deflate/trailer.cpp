// The trailer behind the last block: the checksum, in the layout of RFC 1950 or RFC 1952.

#include "deflate/encoder_state.h"
#include "frame/bytes.h"
#include "frame/entry.h"

namespace zebdc::deflate {
namespace {

constexpr int32_t zlibTrailerBytes = 4;
constexpr int32_t gzipTrailerBytes = 8;
static_assert(gzipTrailerBytes <= trailerBytes);

bool isKnownKind(ZebLZ77Checksum kind) {
  return kind == zebLZ77ChecksumNone || kind == zebLZ77ChecksumAdler32 ||
         kind == zebLZ77ChecksumCRC32;
}

int32_t trailerLength(const EncoderState& state) {
  return state.checksumKind == zebLZ77ChecksumAdler32 ? zlibTrailerBytes : gzipTrailerBytes;
}

// Without a checksum the layout is that of gzip all the same, with a checksum of 0.
void buildTrailer(EncoderState& state) {
  if (state.checksumKind == zebLZ77ChecksumAdler32) {
    storeBigEndian<uint32_t>(state.trailer, state.checksum);
  } else {
    store<uint32_t>(state.trailer, state.checksum);
    store<uint32_t>(state.trailer + 4, static_cast<uint32_t>(state.windowPos));
  }
}

// A trailer that fills the room exactly counts as cut: the next call finds nothing left to write
// and says so. Behind a byte that leaves room the next one is cleared, though it is not counted.
ZebStatus writeTrailer(EncoderState& state) {
  if (state.blockPhase == phaseStreamEnd) buildTrailer(state);
  for (const int32_t length = trailerLength(state); state.trailerWritten < length;) {
    if (state.dstRemaining > 0) {
      *state.dstCursor++ = state.trailer[state.trailerWritten++];
      --state.dstRemaining;
    }
    if (state.dstRemaining == 0) {
      state.blockPhase = phasePartial;
      return zebWarnDstFull;
    }
    *state.dstCursor = 0;
  }
  state.trailerWritten = 0;
  state.blockPhase = phaseStreamEnd;
  return zebOk;
}

}  // namespace
}  // namespace zebdc::deflate

using namespace zebdc;
using namespace zebdc::deflate;

ZEBDC_ENTRY(ZebStatus, zebsEncodeLZ77Flush_8u)
(uint8_t** ppDst, int* pDstLen, ZebLZ77State_8u* pState) {
  if (ppDst == nullptr || pDstLen == nullptr || pState == nullptr || *ppDst == nullptr) {
    return zebErrNullPtr;
  }
  if (*pDstLen < 0) return zebErrSize;
  EncoderState& state = encoderState(pState);
  if (state.deflateStatus != zebLZ77StatusFinal) return zebErrGeneral;
  state.dstCursor = *ppDst;
  state.dstRemaining = *pDstLen;
  if (!isKnownKind(state.checksumKind)) return zebErrGeneral;
  const ZebStatus status = writeTrailer(state);
  *ppDst = state.dstCursor;
  *pDstLen = state.dstRemaining;
  return status;
}
