// Plain run-length coding.
//
// A run of equal bytes is announced by writing its byte twice; a count of the bytes beyond these
// two follows. So "aa" is a a 0, "aaaaa" is a a 3, and 258 times a is a a 255 a.

#include "kernels/rle.h"

#include <string.h>

#include <algorithm>

#include "frame/entry.h"

namespace zebdc::lz {
namespace {

using Kernel = kernels::RleProgress (*)(const uint8_t* src, size_t srcLen, uint8_t* dst,
                                        size_t capacity);

ZebStatus checkArguments(const uint8_t* const* ppSrc, const int* pSrcLen, const uint8_t* pDst,
                         const int* pDstLen) {
  if (ppSrc == nullptr || pSrcLen == nullptr || pDst == nullptr || pDstLen == nullptr ||
      *ppSrc == nullptr) {
    return zebErrNullPtr;
  }
  if (*pSrcLen < 1 || *pDstLen < 1) return zebErrSize;
  return zebOk;
}

// Runs a kernel and then copies up to two source bytes as they are: those for which the kernel had
// no room (encoding) or which are too few to hold a run (decoding).
ZebStatus run(Kernel kernel, bool tailNeedsSourceEnd, const uint8_t** ppSrc, int* pSrcLen,
              uint8_t* pDst, int* pDstLen) {
  const ZebStatus status = checkArguments(ppSrc, pSrcLen, pDst, pDstLen);
  if (status != zebOk) return status;
  const size_t srcLen = static_cast<size_t>(*pSrcLen);
  const size_t capacity = static_cast<size_t>(*pDstLen);

  kernels::RleProgress done = kernel(*ppSrc, srcLen, pDst, capacity);
  const size_t left = srcLen - done.consumed;
  if (!tailNeedsSourceEnd || left < kernels::rleTripleSize) {
    const size_t tail = std::min(left, capacity - done.written);
    memcpy(pDst + done.written, *ppSrc + done.consumed, tail);
    done.consumed += tail;
    done.written += tail;
  }

  *ppSrc += done.consumed;
  *pSrcLen -= static_cast<int>(done.consumed);
  *pDstLen = static_cast<int>(done.written);
  return *pSrcLen > 0 ? zebWarnDstFull : zebOk;
}

}  // namespace
}  // namespace zebdc::lz

ZEBDC_ENTRY(ZebStatus, zebsEncodeRLE_8u)
(const uint8_t** ppSrc, int* pSrcLen, uint8_t* pDst, int* pDstLen) {
  return zebdc::lz::run(zebdc::kernels::rle().encode, false, ppSrc, pSrcLen, pDst, pDstLen);
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeRLE_8u)
(const uint8_t** ppSrc, int* pSrcLen, uint8_t* pDst, int* pDstLen) {
  return zebdc::lz::run(zebdc::kernels::rle().decode, true, ppSrc, pSrcLen, pDst, pDstLen);
}
