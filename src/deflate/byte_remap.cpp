// Translation of bytes to and from a dense numbering of the symbols in use.

#include "frame/entry.h"

namespace zebdc::deflate {
namespace {

// map[s] is the sum of the frequencies of all lower symbols, in 8 bits. Returns the whole sum.
uint32_t sumsBelow(const uint8_t* frequencies, uint8_t* map) {
  uint32_t sum = 0;
  for (int symbol = 0; symbol < 256; ++symbol) {
    map[symbol] = static_cast<uint8_t>(sum);
    sum += frequencies[symbol];
  }
  return sum;
}

void replaceBytes(uint8_t* bytes, int len, const uint8_t* map) {
  for (int i = 0; i < len; ++i) bytes[i] = map[bytes[i]];
}

}  // namespace
}  // namespace zebdc::deflate

using namespace zebdc;

ZEBDC_ENTRY(ZebStatus, zebsReduceDictionary_8u_I)
(const uint8_t* pFreq, uint8_t* pSrcDst, int len, uint32_t* pDictLen) {
  if (pFreq == nullptr || pSrcDst == nullptr || pDictLen == nullptr) return zebErrNullPtr;
  if (len < 1) return zebErrSize;
  uint8_t map[256];
  *pDictLen = deflate::sumsBelow(pFreq, map);
  deflate::replaceBytes(pSrcDst, len, map);
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsExpandDictionary_8u_I)
(const uint8_t* pFreq, uint8_t* pSrcDst, int len, int dictLen) {
  if (pFreq == nullptr || pSrcDst == nullptr) return zebErrNullPtr;
  if (len < 1 || dictLen < 1) return zebErrSize;
  uint8_t map[256];
  const uint32_t sum = deflate::sumsBelow(pFreq, map);
  if (sum != static_cast<uint32_t>(dictLen)) return zebErrGeneral;
  // Later symbols overwrite earlier ones: with frequencies of 0 and 1 each index ends up with the
  // symbol in use. Indexes that no sum reaches stand for 0.
  uint8_t inverse[256] = {};
  for (int symbol = 0; symbol < 256; ++symbol) {
    inverse[map[symbol]] = static_cast<uint8_t>(symbol);
  }
  deflate::replaceBytes(pSrcDst, len, inverse);
  return zebOk;
}
