// The inverse Burrows-Wheeler transforms.

#include "kernels/bwt_inverse.h"

#include <limits.h>

#include "bzip2/bwt_block.h"
#include "frame/entry.h"

namespace zebdc::bzip2 {
namespace {

ZebStatus checkArguments(const uint8_t* pSrc, const uint8_t* pDst, int len, int index,
                         const uint8_t* pBuffer, int64_t limit) {
  if (pSrc == nullptr || pDst == nullptr || pBuffer == nullptr) return zebErrNullPtr;
  if (len < 1 || len > limit || index >= len) return zebErrSize;
  return zebOk;
}

// Negative indexes pass the checks, and must not lead outside the buffers.
uint32_t rowOf(int index) {
  return index < 0 ? 0 : static_cast<uint32_t>(index);
}

}  // namespace
}  // namespace zebdc::bzip2

ZEBDC_ENTRY(ZebStatus, zebsBWTInvGetSize_8u)(int len, int* pSize) {
  if (pSize == nullptr) return zebErrNullPtr;
  const int64_t size = 4 * int64_t{len} + 1024;
  if (len < 1 || size > INT_MAX) return zebErrSize;
  *pSize = static_cast<int>(size);
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsBWTInv_8u)
(const uint8_t* pSrc, uint8_t* pDst, int len, int index, uint8_t* pBuffer) {
  using namespace zebdc;
  const ZebStatus status = bzip2::checkArguments(pSrc, pDst, len, index, pBuffer, INT_MAX);
  if (status != zebOk) return status;
  const uint32_t length = static_cast<uint32_t>(len);
  const auto invert =
      length <= kernels::bwtInverseLimit ? kernels::invertColumn : kernels::invertLongColumn;
  invert(pSrc, length, bzip2::rowOf(index), pBuffer, pDst);
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsBWTInv_SmallBlock_8u)
(const uint8_t* pSrc, uint8_t* pDst, int len, int index, uint8_t* pBuffer) {
  using namespace zebdc;
  const ZebStatus status =
      bzip2::checkArguments(pSrc, pDst, len, index, pBuffer, bzip2::smallBlockLimit);
  if (status != zebOk) return status;
  kernels::invertSmallColumn(pSrc, static_cast<uint32_t>(len), bzip2::rowOf(index), pBuffer, pDst);
  return zebOk;
}
