// Operations on the common prefix of the deflate records, exported under the names of both roles.

#include "deflate/lz77_record.h"

#include "frame/entry.h"
#include "frame/memory.h"

namespace {

ZebStatus getPairs(ZebLZ77Pair** ppPairs, int* pPairsInd, int* pPairsLen,
                   const ZebLZ77State_8u* state) {
  if (ppPairs == nullptr || pPairsInd == nullptr || pPairsLen == nullptr || state == nullptr) {
    return zebErrNullPtr;
  }
  *ppPairs = state->pairs;
  *pPairsInd = state->pairsInd;
  *pPairsLen = state->pairsLen;
  return zebOk;
}

// Index and length are the caller's to answer for.
ZebStatus setPairs(ZebLZ77Pair* pairs, int pairsInd, int pairsLen, ZebLZ77State_8u* state) {
  if (pairs == nullptr || state == nullptr) return zebErrNullPtr;
  state->pairs = pairs;
  state->pairsInd = pairsInd;
  state->pairsLen = pairsLen;
  return zebOk;
}

ZebStatus getStatus(ZebLZ77DeflateStatus* pStatus, const ZebLZ77State_8u* state) {
  if (pStatus == nullptr || state == nullptr) return zebErrNullPtr;
  *pStatus = state->deflateStatus;
  return zebOk;
}

}  // namespace

ZEBDC_ENTRY(void, zebsLZ77Free_8u)(ZebLZ77State_8u* pState) {
  zebdc::release(pState);
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeLZ77GetPairs_8u)
(ZebLZ77Pair** ppPairs, int* pPairsInd, int* pPairsLen, ZebLZ77State_8u* pState) {
  return getPairs(ppPairs, pPairsInd, pPairsLen, pState);
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeLZ77GetPairs_8u)
(ZebLZ77Pair** ppPairs, int* pPairsInd, int* pPairsLen, ZebLZ77State_8u* pState) {
  return getPairs(ppPairs, pPairsInd, pPairsLen, pState);
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeLZ77SetPairs_8u)
(ZebLZ77Pair* pPairs, int pairsInd, int pairsLen, ZebLZ77State_8u* pState) {
  return setPairs(pPairs, pairsInd, pairsLen, pState);
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeLZ77SetPairs_8u)
(ZebLZ77Pair* pPairs, int pairsInd, int pairsLen, ZebLZ77State_8u* pState) {
  return setPairs(pPairs, pairsInd, pairsLen, pState);
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeLZ77GetStatus_8u)
(ZebLZ77DeflateStatus* pStatus, ZebLZ77State_8u* pState) {
  return getStatus(pStatus, pState);
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeLZ77GetStatus_8u)
(ZebLZ77DeflateStatus* pStatus, ZebLZ77State_8u* pState) {
  return getStatus(pStatus, pState);
}
