// Reading of a block's header, apart from the block's decoder.

#include "frame/entry.h"
#include "inflate/decoder_state.h"

namespace zebdc::inflate {
namespace {

constexpr int headerBits = 3;  // BFINAL and the two bits of BTYPE

void armForBlock(DecoderState& state, ZebLZ77BlockType type, DecodeBlockState first) {
  state.blockKind = static_cast<uint32_t>(type);
  state.blockState = first;
}

// Arms the record for a block whose header is at the front of bitBuffer. The reserved BTYPE 11 arms
// nothing.
void readHeader(DecoderState& state) {
  state.finalBlock = state.bitBuffer & 1;
  switch ((state.bitBuffer >> 1) & 3) {
    case 0:
      armForBlock(state, zebLZ77BlockStored, storedAlign);
      break;
    case 1:
      armForBlock(state, zebLZ77BlockFixed, huffmanSymbols);
      break;
    case 2:
      armForBlock(state, zebLZ77BlockDynamic, dynamicCounts);
      break;
  }
  state.bitBuffer >>= headerBits;
  state.bitCount -= headerBits;
}

ZebStatus getBlockType(DecoderState& state, const uint8_t*& src, int& srcLen,
                       ZebLZ77BlockType& type) {
  if (state.blockState == betweenBlocks) {
    if (state.bitCount < headerBits) {
      if (srcLen == 0) return zebWarnSrcExhausted;
      state.bitBuffer |= uint64_t{*src++} << state.bitCount;
      state.bitCount += 8;
      --srcLen;
    }
    readHeader(state);
  }
  if (state.blockState != betweenBlocks) type = static_cast<ZebLZ77BlockType>(state.blockKind);
  return zebOk;
}

}  // namespace
}  // namespace zebdc::inflate

using namespace zebdc::inflate;

ZEBDC_ENTRY(ZebStatus, zebsDecodeLZ77GetBlockType_8u)
(const uint8_t** ppSrc, int* pSrcLen, ZebLZ77BlockType* pBlockType, ZebLZ77State_8u* pState) {
  if (ppSrc == nullptr || pSrcLen == nullptr || pBlockType == nullptr || pState == nullptr ||
      *ppSrc == nullptr) {
    return zebErrNullPtr;
  }
  if (*pSrcLen < 0) return zebErrSize;
  return getBlockType(decoderState(pState), *ppSrc, *pSrcLen, *pBlockType);
}
