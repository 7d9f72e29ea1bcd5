// The exported checksums.

#include "checksum/checksum.h"

#include "frame/entry.h"

using namespace zebdc;

ZEBDC_ENTRY(ZebStatus, zebsAdler32_8u)(const uint8_t* pSrc, int srcLen, uint32_t* pAdler32) {
  if (pAdler32 == nullptr) return zebErrNullPtr;
  if (pSrc == nullptr) {
    *pAdler32 = 1;
    return zebOk;
  }
  *pAdler32 = checksum::adler32(*pAdler32, pSrc, srcLen > 0 ? static_cast<size_t>(srcLen) : 0);
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsCRC32_8u)(const uint8_t* pSrc, int srcLen, uint32_t* pCRC32) {
  if (pSrc == nullptr || pCRC32 == nullptr) return zebErrNullPtr;
  if (srcLen < 1) return zebErrSize;
  *pCRC32 = checksum::crc32(*pCRC32, pSrc, static_cast<size_t>(srcLen));
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsCRC32C_8u)(const uint8_t* pSrc, uint32_t srcLen, uint32_t* pCRC32C) {
  if (pSrc == nullptr || pCRC32C == nullptr) return zebErrNullPtr;
  if (srcLen == 0) return zebErrSize;
  *pCRC32C = checksum::crc32c(*pCRC32C, pSrc, srcLen);
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsCRC32_BZ2_8u)(const uint8_t* pSrc, int srcLen, uint32_t* pCRC32) {
  if (pSrc == nullptr || pCRC32 == nullptr) return zebErrNullPtr;
  if (srcLen < 1) return zebErrSize;
  *pCRC32 = checksum::crc32Bzip2(*pCRC32, pSrc, static_cast<size_t>(srcLen));
  return zebOk;
}
