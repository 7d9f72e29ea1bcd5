// Byte Huffman coding: the exports that build a code and code single bytes and blocks.

#include "frame/bytes.h"
#include "frame/entry.h"
#include "frame/memory.h"
#include "huffman/block_decoder.h"
#include "huffman/code.h"
#include "kernels/byte_huffman.h"

namespace zebdc::huffman {
namespace {

// The bits of a code left-justified in 64 bits behind offset bits that are free for others.
uint64_t placedCode(const ZebHuffState_8u& state, uint8_t value, int offset) {
  return static_cast<uint64_t>(state.code[value])
         << (64 - offset - static_cast<int>(state.codeLen[value]));
}

// Writes the code behind the first offset bits of dst[0]. Bits behind it in its last byte become 0.
void putCode(const ZebHuffState_8u& state, uint8_t value, uint8_t* dst, int offset) {
  const uint64_t bits = placedCode(state, value, offset);
  const int bytes = (static_cast<int>(state.codeLen[value]) + offset + 7) / 8;
  const uint8_t first = static_cast<uint8_t>(bits >> 56);
  dst[0] = offset == 0 ? first : static_cast<uint8_t>(dst[0] | first);
  for (int i = 1; i < bytes; ++i) dst[i] = static_cast<uint8_t>(bits >> (56 - 8 * i));
}

// The maxLen bits behind the first offset bits of src. Reads the bytes that hold them and no
// others.
uint32_t lookaheadAt(const uint8_t* src, int offset, int maxLen) {
  uint64_t bits = 0;
  const int bytes = (offset + maxLen + 7) / 8;
  for (int i = 0; i < bytes; ++i) bits |= static_cast<uint64_t>(src[i]) << (56 - 8 * i);
  return static_cast<uint32_t>((bits << offset) >> (64 - maxLen));
}

}  // namespace
}  // namespace zebdc::huffman

using namespace zebdc;

ZEBDC_ENTRY(ZebStatus, zebsHuffGetSize_8u)(int* pSize) {
  if (pSize == nullptr) return zebErrNullPtr;
  *pSize = huffman::stateSize;
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeHuffInit_8u)
(const uint32_t* pFreqTable, ZebHuffState_8u* pState) {
  if (pFreqTable == nullptr || pState == nullptr) return zebErrNullPtr;
  const ZebStatus status = huffman::buildFromFrequencies(pFreqTable, *pState);
  if (status != zebOk) return status;
  pState->bitBuffer = 0;
  pState->bitCount = 0;
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeHuffInitAlloc_8u)
(const uint32_t* pFreqTable, ZebHuffState_8u** ppState) {
  if (pFreqTable == nullptr || ppState == nullptr) return zebErrNullPtr;
  return initAllocUnchecked(ppState, huffman::stateSize, [=](ZebHuffState_8u* state) {
    return zebdcEntry_zebsEncodeHuffInit_8u(pFreqTable, state);
  });
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeHuffOne_8u)
(uint8_t src, uint8_t* pDst, int dstOffsetBits, ZebHuffState_8u* pState) {
  if (pDst == nullptr || pState == nullptr) return zebErrNullPtr;
  if (dstOffsetBits < 0 || dstOffsetBits > 7) return zebErrSize;
  if (pState->codeLen[src] == 0) return zebErrCodeLenTable;
  huffman::putCode(*pState, src, pDst, dstOffsetBits);
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeHuff_8u)
(const uint8_t* pSrc, int srcLen, uint8_t* pDst, int* pDstLen, ZebHuffState_8u* pState) {
  if (pSrc == nullptr || pDst == nullptr || pDstLen == nullptr || pState == nullptr) {
    return zebErrNullPtr;
  }
  if (srcLen < 1) return zebErrSize;
  kernels::PendingBits pending = {pState->bitBuffer, pState->bitCount};
  const uint8_t* const end = kernels::byteHuffman().encode(
      pState->code, pState->codeLen, pSrc, static_cast<size_t>(srcLen), pDst, &pending);
  pState->bitBuffer = pending.bitBuffer;
  pState->bitCount = pending.bitCount;
  *pDstLen = static_cast<int>(end - pDst);
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeHuffFinal_8u)
(uint8_t* pDst, int* pDstLen, ZebHuffState_8u* pState) {
  if (pDst == nullptr || pDstLen == nullptr || pState == nullptr) return zebErrNullPtr;
  const int bytes = (pState->bitCount + 7) / 8;
  for (int i = 0; i < bytes; ++i) pDst[i] = static_cast<uint8_t>(pState->bitBuffer >> (24 - 8 * i));
  *pDstLen = bytes;
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeHuffInit_8u)
(const int* pCodeLenTable, ZebHuffState_8u* pState) {
  if (pCodeLenTable == nullptr || pState == nullptr) return zebErrNullPtr;
  const ZebStatus status = huffman::buildFromLengths(pCodeLenTable, *pState);
  if (status != zebOk) return status;
  pState->bitBuffer = 0;
  pState->bitCount = 0;
  pState->zeroBits = 0;
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeHuffInitAlloc_8u)
(const int* pCodeLenTable, ZebHuffState_8u** ppState) {
  if (pCodeLenTable == nullptr || ppState == nullptr) return zebErrNullPtr;
  return initAllocUnchecked(ppState, huffman::stateSize, [=](ZebHuffState_8u* state) {
    return zebdcEntry_zebsDecodeHuffInit_8u(pCodeLenTable, state);
  });
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeHuffOne_8u)
(const uint8_t* pSrc, int srcOffsetBits, uint8_t* pDst, ZebHuffState_8u* pState) {
  if (pSrc == nullptr || pDst == nullptr || pState == nullptr) return zebErrNullPtr;
  if (srcOffsetBits < 0 || srcOffsetBits > 7 || pState->maxLen <= 0) return zebErrSize;
  if (pState->limitTable == nullptr || pState->cumCount == nullptr ||
      pState->symbolsEnd == nullptr) {
    return zebErrNullPtr;
  }
  const int symbol =
      huffman::symbolAt(*pState, huffman::lookaheadAt(pSrc, srcOffsetBits, pState->maxLen));
  if (symbol < 0) return zebErrCodeLenTable;
  *pDst = static_cast<uint8_t>(symbol);
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeHuff_8u)
(const uint8_t* pSrc, int srcLen, uint8_t* pDst, int* pDstLen, ZebHuffState_8u* pState) {
  if (pSrc == nullptr || pDst == nullptr || pDstLen == nullptr || pState == nullptr) {
    return zebErrNullPtr;
  }
  if (srcLen < 1 || *pDstLen < 1) return zebErrSize;
  *pDstLen = static_cast<int>(huffman::decodeBlock(*pState, pSrc, static_cast<size_t>(srcLen), pDst,
                                                   static_cast<size_t>(*pDstLen)));
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsHuffGetDstBuffSize_8u)
(const int* pCodeLenTable, int srcLen, int* pEncDstBuffSize, int* pDecDstBuffSize) {
  if (pCodeLenTable == nullptr) return zebErrNullPtr;
  if (srcLen < 1) return zebErrSize;
  int shortest = huffman::maxCodeLength;
  int longest = 1;
  for (int value = 0; value < 256; ++value) {
    const int length = pCodeLenTable[value];
    if (length == 0) continue;
    if (length < shortest) shortest = length;
    if (length > longest) longest = length;
  }
  if (shortest < 0 || longest > huffman::maxCodeLength) return zebErrCodeLenTable;

  // The factor of 64 makes the second bound generous; callers rely on that.
  const int64_t encoded = (static_cast<int64_t>(srcLen) * longest + longest + 7) >> 3;
  const int64_t decoded = static_cast<int64_t>(srcLen) * 64 / shortest;
  if ((pEncDstBuffSize != nullptr && encoded > INT32_MAX) ||
      (pDecDstBuffSize != nullptr && decoded > INT32_MAX)) {
    return zebErrSize;
  }
  if (pEncDstBuffSize != nullptr) *pEncDstBuffSize = static_cast<int>(encoded);
  if (pDecDstBuffSize != nullptr) *pDecDstBuffSize = static_cast<int>(decoded);
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsHuffGetLenCodeTable_8u)
(int* pCodeLenTable, ZebHuffState_8u* pState) {
  if (pCodeLenTable == nullptr || pState == nullptr) return zebErrNullPtr;
  for (int value = 0; value < 256; ++value) {
    pCodeLenTable[value] = static_cast<int>(pState->codeLen[value]);
  }
  return zebOk;
}

ZEBDC_ENTRY(void, zebsHuffFree_8u)(ZebHuffState_8u* pState) {
  release(pState);
}
