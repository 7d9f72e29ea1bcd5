// Decoding of whole blocks: from symbols to the text of the first run-length stage.

#include <string.h>

#include "frame/entry.h"
#include "kernels/bwt_inverse.h"
#include "kernels/bzip2_symbols.h"

namespace zebdc::bzip2 {
namespace {

constexpr uint32_t byteValues = 256;
constexpr uint32_t blockLimit = 1 << 24;
static_assert(blockLimit <= kernels::bwtInverseLimit);

// The values in use in increasing order, then zeros. Returns their number.
int listValuesInUse(const uint8_t* inUse, uint8_t* list) {
  memset(list, 0, byteValues);
  int count = 0;
  for (uint32_t value = 0; value < byteValues; ++value) {
    if (inUse[value] != 0) list[count++] = static_cast<uint8_t>(value);
  }
  return count;
}

ZebStatus checkSizes(int srcLen, int dstLen, int index, int numInUse) {
  if (srcLen < 1 || static_cast<uint32_t>(dstLen) >= blockLimit) return zebErrSize;
  if (index < 0 || dstLen <= index) return zebErrSize;
  if (static_cast<uint32_t>(numInUse) > byteValues) return zebErrSize;
  return zebOk;
}

}  // namespace
}  // namespace zebdc::bzip2

ZEBDC_ENTRY(ZebStatus, zebsDecodeBlockGetSize_BZ2_8u)(uint32_t blockSize, int* pSize) {
  using namespace zebdc;
  if (pSize == nullptr) return zebErrNullPtr;
  if (blockSize >= bzip2::blockLimit) return zebErrSize;
  *pSize = static_cast<int>(4 * blockSize);
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeBlock_BZ2_16u8u)
(const uint16_t* pSrc, int srcLen, uint8_t* pDst, int* pDstLen, int index, int numInUse,
 const uint8_t* pInUse, uint8_t* pBuffer) {
  using namespace zebdc;
  if (pSrc == nullptr || pDst == nullptr || pDstLen == nullptr || pInUse == nullptr ||
      pBuffer == nullptr) {
    return zebErrNullPtr;
  }
  const ZebStatus status = bzip2::checkSizes(srcLen, *pDstLen, index, numInUse);
  if (status != zebOk) return status;
  uint8_t list[bzip2::byteValues];
  if (bzip2::listValuesInUse(pInUse, list) != numInUse) return zebOk;

  const size_t decoded = kernels::decodeBzip2Symbols(pSrc, static_cast<size_t>(srcLen), list, pDst,
                                                     static_cast<size_t>(*pDstLen));
  if (decoded == kernels::bzip2SymbolsFailed) return zebErrGeneral;
  const uint32_t length = static_cast<uint32_t>(decoded);
  const uint32_t row = static_cast<uint32_t>(index) < length ? static_cast<uint32_t>(index) : 0;
  kernels::invertColumn(pDst, length, row, pBuffer, pDst);
  *pDstLen = static_cast<int>(length);
  return zebOk;
}
