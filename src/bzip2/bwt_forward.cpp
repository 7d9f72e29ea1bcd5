// The forward Burrows-Wheeler transforms: their arguments and the choice of the method.

#include <limits.h>

#include <algorithm>

#include "bzip2/bwt_block.h"
#include "frame/entry.h"

namespace zebdc::bzip2 {
namespace {

int64_t comparisonBytes(int64_t len) {
  return 6 * len + 524484;
}

int64_t inductionBytes(int64_t len) {
  return 18 * len + 80;
}

ZebStatus storeSize(int64_t size, int* pSize) {
  if (size < INT_MIN || size > INT_MAX) return zebErrSize;
  *pSize = static_cast<int>(size);
  return zebOk;
}

ZebStatus scratchOfMethod(int64_t len, ZebBWTSortMethod method, int* pSize) {
  switch (method) {
    case zebBWTSortBudgeted:
    case zebBWTSortUnbounded:
      return storeSize(comparisonBytes(len), pSize);
    case zebBWTSortSuffix:
      return storeSize(inductionBytes(len), pSize);
    case zebBWTSortAuto:
      return storeSize(std::max(comparisonBytes(len), inductionBytes(len)), pSize);
    default:
      return zebOk;
  }
}

ZebStatus transformBy(ZebBWTSortMethod method, const uint8_t* src, uint32_t length, uint8_t* dst,
                      int* pIndex, Scratch scratch) {
  uint32_t index = 0;
  if (method == zebBWTSortUnbounded) {
    index = transformByComparisonUnbounded(src, length, dst, scratch);
  } else if (method == zebBWTSortSuffix ||
             !transformByComparison(src, length, dst, &index, scratch)) {
    if (method == zebBWTSortBudgeted) return zebWarnSortBudget;
    index = transformByInduction(src, length, dst, scratch);
  }
  *pIndex = static_cast<int>(index);
  return zebOk;
}

bool anyNull(const uint8_t* pSrc, const uint8_t* pDst, const int* pIndex, const uint8_t* pBuffer) {
  return pSrc == nullptr || pDst == nullptr || pIndex == nullptr || pBuffer == nullptr;
}

bool isSmallBlock(int len) {
  return len >= 1 && static_cast<uint32_t>(len) <= smallBlockLimit;
}

}  // namespace
}  // namespace zebdc::bzip2

ZEBDC_ENTRY(ZebStatus, zebsBWTFwdGetSize_8u)(int len, int* pSize) {
  using namespace zebdc::bzip2;
  if (pSize == nullptr) return zebErrNullPtr;
  if (len < 1) return zebErrSize;
  return scratchOfMethod(len, zebBWTSortAuto, pSize);
}

ZEBDC_ENTRY(ZebStatus, zebsBWTFwdGetBufSize_SelectSort_8u)
(int len, int* pSize, ZebBWTSortMethod method) {
  using namespace zebdc::bzip2;
  if (pSize == nullptr) return zebErrNullPtr;
  if (len == 0) return zebErrSize;
  return scratchOfMethod(len, method, pSize);
}

ZEBDC_ENTRY(ZebStatus, zebsBWTFwd_8u)
(const uint8_t* pSrc, uint8_t* pDst, int len, int* pIndex, uint8_t* pBuffer) {
  using namespace zebdc::bzip2;
  if (anyNull(pSrc, pDst, pIndex, pBuffer)) return zebErrNullPtr;
  if (len < 1) return zebErrSize;
  const uint32_t length = static_cast<uint32_t>(len);
  *pIndex = static_cast<int>(transformFast(pSrc, length, pDst, Scratch(pBuffer)));
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsBWTFwd_SelectSort_8u)
(const uint8_t* pSrc, uint8_t* pDst, int len, int* pIndex, uint8_t* pBuffer,
 ZebBWTSortMethod method) {
  using namespace zebdc::bzip2;
  if (anyNull(pSrc, pDst, pIndex, pBuffer)) return zebErrNullPtr;
  if (len == 0) return zebErrSize;
  if (len < 0) return zebOk;  // there is nothing to transform
  return transformBy(method, pSrc, static_cast<uint32_t>(len), pDst, pIndex, Scratch(pBuffer));
}

ZEBDC_ENTRY(ZebStatus, zebsBWTGetSize_SmallBlock_8u)(int len, int* pSize) {
  using namespace zebdc::bzip2;
  if (pSize == nullptr) return zebErrNullPtr;
  if (!isSmallBlock(len)) return zebErrSize;
  *pSize = 4 * len + 2080;
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsBWTFwd_SmallBlock_8u)
(const uint8_t* pSrc, uint8_t* pDst, int len, int* pIndex, uint8_t* pBuffer) {
  using namespace zebdc::bzip2;
  if (anyNull(pSrc, pDst, pIndex, pBuffer)) return zebErrNullPtr;
  if (!isSmallBlock(len)) return zebErrSize;
  const uint32_t length = static_cast<uint32_t>(len);
  *pIndex = static_cast<int>(transformSmall(pSrc, length, pDst, Scratch(pBuffer)));
  return zebOk;
}
