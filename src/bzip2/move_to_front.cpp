// Move-to-front.

#include "kernels/move_to_front.h"

#include "frame/entry.h"
#include "frame/memory.h"

// Forward: the position of each value. Inverse: the value at each position.
struct ZebMTFState_8u {
  uint8_t table[256];
};

namespace zebdc::bzip2 {
namespace {

static_assert(sizeof(ZebMTFState_8u) == 256);

using Kernel = void (*)(const uint8_t* src, uint8_t* dst, int len, uint8_t* table);

void init(ZebMTFState_8u* state) {
  for (int i = 0; i < 256; ++i) state->table[i] = static_cast<uint8_t>(i);
}

ZebStatus run(Kernel kernel, const uint8_t* pSrc, uint8_t* pDst, int len, ZebMTFState_8u* pState) {
  if (pSrc == nullptr || pDst == nullptr || pState == nullptr) return zebErrNullPtr;
  if (len < 1) return zebErrSize;
  kernel(pSrc, pDst, len, pState->table);
  return zebOk;
}

}  // namespace
}  // namespace zebdc::bzip2

ZEBDC_ENTRY(ZebStatus, zebsMTFGetSize_8u)(int* pSize) {
  if (pSize == nullptr) return zebErrNullPtr;
  *pSize = sizeof(ZebMTFState_8u);
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsMTFInit_8u)(ZebMTFState_8u* pState) {
  if (pState == nullptr) return zebErrNullPtr;
  zebdc::bzip2::init(pState);
  return zebOk;
}

// Unlike the other checked forms this one stores the null of a failed allocation.
ZEBDC_ENTRY(ZebStatus, zebsMTFInitAlloc_8u)(ZebMTFState_8u** ppState) {
  if (ppState == nullptr) return zebErrNullPtr;
  *ppState = static_cast<ZebMTFState_8u*>(zebdc::allocate(sizeof(ZebMTFState_8u)));
  if (*ppState == nullptr) return zebErrMemAlloc;
  zebdc::bzip2::init(*ppState);
  return zebOk;
}

ZEBDC_ENTRY(void, zebsMTFFree_8u)(ZebMTFState_8u* pState) {
  zebdc::release(pState);
}

ZEBDC_ENTRY(ZebStatus, zebsMTFFwd_8u)
(const uint8_t* pSrc, uint8_t* pDst, int len, ZebMTFState_8u* pState) {
  return zebdc::bzip2::run(zebdc::kernels::moveToFrontForward(), pSrc, pDst, len, pState);
}

ZEBDC_ENTRY(ZebStatus, zebsMTFInv_8u)
(const uint8_t* pSrc, uint8_t* pDst, int len, ZebMTFState_8u* pState) {
  return zebdc::bzip2::run(zebdc::kernels::moveToFrontInverse(), pSrc, pDst, len, pState);
}
