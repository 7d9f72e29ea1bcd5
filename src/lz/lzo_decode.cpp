// LZO decompression: plain streams and containers of several.

#include <algorithm>

#include "frame/bytes.h"
#include "frame/entry.h"
#include "kernels/lzo.h"
#include "lz/lzo_container.h"

namespace zebdc::lz {
namespace {

using Kernel = kernels::LzoDecoded (*)(const uint8_t* src, size_t srcLen, uint8_t* dst,
                                       size_t capacity);

// A container shows its mark, its count twice, and an end instruction where the first part ends. A
// plain stream that shows all of this is taken for a container.
bool isContainer(const uint8_t* src, size_t srcLen) {
  if (srcLen < container::sizesAt + 4 || src[0] != container::mark) return false;
  const uint32_t parts = src[container::countAt];
  if (parts < 1 || parts > container::maxParts) return false;
  if (src[container::checkAt] != (parts ^ container::mark)) return false;
  const uint64_t firstSize = load<uint32_t>(src + container::sizesAt);
  const uint64_t endAt = 4 * uint64_t{parts} + firstSize;
  if (srcLen < firstSize + container::sizesAt || srcLen < endAt + 3) return false;
  return src[endAt] == 0x11 && src[endAt + 1] == 0 && src[endAt + 2] == 0;
}

ZebStatus decodeStream(Kernel kernel, const uint8_t* src, size_t srcLen, uint8_t* dst,
                       size_t capacity, uint32_t& written) {
  const kernels::LzoDecoded done = kernel(src, srcLen, dst, capacity);
  written = static_cast<uint32_t>(done.written);
  return done.valid ? zebOk : zebErrLZOData;
}

// Decodes all parts, each into its slice; a part whose stream or slice does not fit makes nothing.
ZebStatus decodeContainer(Kernel kernel, const uint8_t* src, size_t srcLen, uint8_t* dst,
                          size_t capacity, uint32_t& written) {
  const uint32_t parts = src[container::countAt];
  const uint32_t length = load<uint32_t>(src + container::lengthAt);
  size_t at = container::headerSize(parts);
  ZebStatus result = zebOk;
  written = 0;
  for (uint32_t part = 0; part < parts; ++part) {
    const container::Slice slice = container::sliceOf(part, parts, length);
    const size_t left = srcLen - at;
    const size_t size =
        part + 1 == parts ? left : load<uint32_t>(src + container::sizesAt + 4 * size_t{part});
    ZebStatus status = zebErrLZOData;
    uint32_t made = 0;
    if (size <= left && size_t{slice.begin} + slice.length <= capacity) {
      status = decodeStream(kernel, src + at, size, dst + slice.begin, slice.length, made);
    }
    if (status != zebOk) result = status;
    written += made;
    at += std::min(size, left);
  }
  return result;
}

ZebStatus decode(Kernel kernel, const uint8_t* pSrc, uint32_t srcLen, uint8_t* pDst,
                 uint32_t* pDstLen) {
  if (pSrc == nullptr || pDst == nullptr || pDstLen == nullptr) return zebErrNullPtr;
  const auto decodeIt = isContainer(pSrc, srcLen) ? decodeContainer : decodeStream;
  uint32_t written = 0;
  const ZebStatus status = decodeIt(kernel, pSrc, srcLen, pDst, *pDstLen, written);
  *pDstLen = written;
  return status;
}

}  // namespace
}  // namespace zebdc::lz

ZEBDC_ENTRY(ZebStatus, zebsDecodeLZO_8u)
(const uint8_t* pSrc, uint32_t srcLen, uint8_t* pDst, uint32_t* pDstLen) {
  return zebdc::lz::decode(zebdc::kernels::lzoDecode().trusting, pSrc, srcLen, pDst, pDstLen);
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeLZOSafe_8u)
(const uint8_t* pSrc, uint32_t srcLen, uint8_t* pDst, uint32_t* pDstLen) {
  return zebdc::lz::decode(zebdc::kernels::lzoDecode().safe, pSrc, srcLen, pDst, pDstLen);
}
