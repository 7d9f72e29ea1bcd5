// Stored blocks, to bytes and to pairs.

#include <string.h>

#include <algorithm>

#include "frame/entry.h"
#include "inflate/bit_reader.h"
#include "inflate/block_header.h"
#include "inflate/history.h"
#include "inflate/pair_output.h"

namespace zebdc::inflate {
namespace {

// The bytes-form and the pairs-form number the stages of a block differently. These are the second
// form's.
constexpr uint32_t pairsLength = 1;  // LEN and NLEN are to be read
constexpr uint32_t pairsBytes = 4;   // bytes are to be emitted

// A stored block has ended. At the end of the stream whole bytes that are still in hand go back to
// the source.
ZebStatus endBlock(DecoderState& state, BitReader& in) {
  state.blockState = betweenBlocks;
  if (state.finalBlock == 0) return zebOk;
  in.giveBackAll();
  return zebWarnFinalBlockDone;
}

// Reads LEN and NLEN from a byte boundary. A wrong pair is left in hand.
ZebStatus readLength(BitReader& in, uint32_t& length) {
  if (!in.want(32)) return zebWarnSrcExhausted;
  length = static_cast<uint32_t>(in.bits) & 0xFFFF;
  const uint32_t complement = static_cast<uint32_t>(in.bits >> 16) & 0xFFFF;
  if (complement != (length ^ 0xFFFF)) return zebErrSize;
  in.consume(32);
  return zebOk;
}

// To bytes ----------------------------------------------------------------------------------------

// Shares LEN between the whole bytes in hand and those to come from the source.
ZebStatus readLengthForBytes(DecoderState& state, BitReader& in) {
  uint32_t length = 0;
  if (const ZebStatus status = readLength(in, length); status != zebOk) return status;
  const int held = in.count / 8;
  state.storedHeld = held < static_cast<int>(length) ? held : static_cast<int>(length);
  state.storedRemaining = static_cast<int>(length) - state.storedHeld;
  state.blockState = storedHeldBytes;
  return zebOk;
}

// Bytes that were in hand do not enter the history.
ZebStatus writeHeldBytes(DecoderState& state, BitReader& in, ByteOutput& out) {
  for (; state.storedHeld > 0; --state.storedHeld) {
    if (out.room() == 0) return zebWarnDstFull;
    *out.dst++ = static_cast<uint8_t>(in.bits);
    in.consume(8);
  }
  state.blockState = storedCopy;
  return zebOk;
}

ZebStatus copyFromSource(DecoderState& state, BitReader& in, ByteOutput& out) {
  const ptrdiff_t count =
      std::min({ptrdiff_t{state.storedRemaining}, in.end - in.src, out.end - out.dst});
  if (count > 0) {
    memcpy(out.dst, in.src, static_cast<size_t>(count));
    enterCircularHistory(state, in.src, static_cast<uint32_t>(count));
    in.src += count;
    out.dst += count;
    state.storedRemaining -= static_cast<int32_t>(count);
  }
  if (state.storedRemaining == 0) return endBlock(state, in);
  return out.room() > 0 ? zebWarnSrcExhausted : zebWarnDstFull;
}

ZebStatus decodeToBytes(DecoderState& state, BitReader& in, ByteOutput& out) {
  for (;;) {
    ZebStatus status = zebOk;
    switch (state.blockState) {
      case storedAlign:
        in.alignToByte();
        state.blockState = storedLength;
        break;
      case storedLength:
        status = readLengthForBytes(state, in);
        break;
      case storedHeldBytes:
        status = writeHeldBytes(state, in, out);
        break;
      case storedCopy:
        return copyFromSource(state, in, out);
      default:
        return zebErrGeneral;
    }
    if (status != zebOk) return status;
  }
}

// To pairs ----------------------------------------------------------------------------------------

ZebStatus readLengthForPairs(DecoderState& state, BitReader& in) {
  in.alignToByte();
  uint32_t length = 0;
  if (const ZebStatus status = readLength(in, length); status != zebOk) return status;
  state.storedRemaining = static_cast<int32_t>(length);
  state.blockKind = zebLZ77BlockStored;
  state.blockState = pairsBytes;
  return zebOk;
}

// Bytes in hand come first, then those of the source.
ZebStatus emitLiterals(DecoderState& state, BitReader& in, PairOutput& out) {
  for (; state.storedRemaining > 0 && in.count >= 8; --state.storedRemaining) {
    if (out.full()) return zebWarnDstFull;
    out.put(in.peek(8), 0);
    in.consume(8);
  }
  const ptrdiff_t count =
      std::min({ptrdiff_t{state.storedRemaining}, in.end - in.src, out.end - out.next});
  for (ptrdiff_t i = 0; i < count; ++i) out.next[i] = {in.src[i], 0};
  in.src += count;
  out.next += count;
  state.storedRemaining -= static_cast<int32_t>(count);
  if (state.storedRemaining == 0) return endBlock(state, in);
  return out.full() ? zebWarnDstFull : zebWarnSrcExhausted;
}

ZebStatus decodeToPairs(DecoderState& state, BitReader& in, PairOutput& out) {
  for (;;) {
    ZebStatus status = zebOk;
    switch (state.blockState) {
      case betweenBlocks:
        status = readTypeBits(state, in, zebLZ77BlockStored);
        if (status == zebOk) state.blockState = pairsLength;
        break;
      case pairsLength:
        status = readLengthForPairs(state, in);
        break;
      case pairsBytes:
        return emitLiterals(state, in, out);
      default:
        spinForever();
    }
    if (status != zebOk) return status;
  }
}

}  // namespace
}  // namespace zebdc::inflate

using namespace zebdc::inflate;

ZEBDC_ENTRY(ZebStatus, zebsDecodeLZ77StoredBlock_8u)
(const uint8_t** ppSrc, int* pSrcLen, uint8_t** ppDst, int* pDstLen, ZebLZ77State_8u* pState) {
  if (ppSrc == nullptr || pSrcLen == nullptr || ppDst == nullptr || pDstLen == nullptr ||
      pState == nullptr || *ppSrc == nullptr || *ppDst == nullptr) {
    return zebErrNullPtr;
  }
  if (*pSrcLen < 0 || *pDstLen < 0) return zebErrSize;
  if (*pDstLen == 0) return zebWarnDstFull;

  DecoderState& state = decoderState(pState);
  BitReader in(state, *ppSrc, *pSrcLen);
  ByteOutput out(*ppDst, *pDstLen);
  const ZebStatus status = decodeToBytes(state, in, out);
  in.save(state, ppSrc, pSrcLen);
  out.save(ppDst, pDstLen);
  return status;
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeLZ77StoredHuff_8u)
(const uint8_t** ppSrc, int* pSrcLen, ZebLZ77Pair** ppPairs, int* pPairsLen,
 ZebLZ77State_8u* pState) {
  if (ppSrc == nullptr || pSrcLen == nullptr || ppPairs == nullptr || pPairsLen == nullptr ||
      pState == nullptr || *ppSrc == nullptr || *ppPairs == nullptr) {
    return zebErrNullPtr;
  }
  if (*pSrcLen < 0 || *pPairsLen < 0) return zebErrSize;

  DecoderState& state = decoderState(pState);
  BitReader in(state, *ppSrc, *pSrcLen);
  PairOutput out(*ppPairs, *pPairsLen);
  const ZebStatus status = decodeToPairs(state, in, out);
  in.save(state, ppSrc, pSrcLen);
  out.save(ppPairs, pPairsLen);
  return status;
}
