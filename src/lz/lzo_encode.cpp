// LZO compression.

#include <string.h>

#include "frame/bytes.h"
#include "frame/entry.h"
#include "kernels/memory.h"
#include "lz/lzo_container.h"
#include "lz/lzo_state.h"

namespace zebdc::lz {
namespace {

constexpr uint8_t endInstruction[] = {0x11, 0, 0};

bool isMethod(ZebLZOMethod method) {
  return method == zebLZOMethod1X1 || method == zebLZOMethod1X1Parts;
}

uint8_t* writeEnd(uint8_t* out) {
  memcpy(out, endInstruction, sizeof endInstruction);
  return out + sizeof endInstruction;
}

// Compresses a part, or the whole, without the end instruction. What an earlier call left in the
// dictionary is forgotten, so that the output depends on nothing but the source.
void compressPart(ZebLZOState_8u& state, const uint8_t* src, uint32_t srcLen, uint8_t* dst) {
  state.partSource = src;
  state.partOutput = dst;
  if (srcLen > kernels::lzoLiteralsOnly) {
    kernels::memory().fill64(kernels::lzoEmptyEntry, state.dictionary,
                             kernels::lzoDictionaryEntries);
  }
  const kernels::LzoCompressed done = kernels::lzoCompress()(src, srcLen, dst, state.dictionary);
  state.pendingLiterals = static_cast<uint32_t>(done.pendingLiterals);

  uint8_t* out = dst + done.written;
  if (done.pendingLiterals > 0) {
    out = kernels::lzoWriteRunInstruction(out, done.pendingLiterals, done.written == 0);
    memcpy(out, src + srcLen - done.pendingLiterals, done.pendingLiterals);
    out += done.pendingLiterals;
  }
  state.compressedSize = static_cast<uint32_t>(out - dst);
}

uint8_t* encodePlain(ZebLZOState_8u& state, const uint8_t* src, uint32_t srcLen, uint8_t* dst) {
  compressPart(state, src, srcLen, dst);
  return writeEnd(dst + state.compressedSize);
}

// Every part is compressed where it belongs, so that its bytes are in place when its size is known.
uint8_t* encodeContainer(ZebLZOState_8u& state, const uint8_t* src, uint32_t srcLen, uint8_t* dst) {
  const uint32_t parts = state.partCount;
  dst[0] = container::mark;
  dst[container::countAt] = static_cast<uint8_t>(parts);
  dst[container::checkAt] = static_cast<uint8_t>(parts ^ container::mark);
  store<uint32_t>(dst + container::lengthAt, srcLen);

  uint8_t* out = dst + container::headerSize(parts);
  for (uint32_t part = 0; part < parts; ++part) {
    const container::Slice slice = container::sliceOf(part, parts, srcLen);
    out = encodePlain(state, src + slice.begin, slice.length, out);
    if (part + 1 < parts) {
      const uint32_t size = state.compressedSize + static_cast<uint32_t>(sizeof endInstruction);
      store<uint32_t>(dst + container::sizesAt + 4 * size_t{part}, size);
    }
  }
  return out;
}

}  // namespace
}  // namespace zebdc::lz

using namespace zebdc::lz;

ZEBDC_ENTRY(ZebStatus, zebsEncodeLZOGetSize)
(ZebLZOMethod method, uint32_t /*maxSrcLen*/, uint32_t* pSize) {
  if (pSize == nullptr) return zebErrNullPtr;
  *pSize = isMethod(method) ? sizeof(ZebLZOState_8u) : 0;
  return isMethod(method) ? zebOk : zebErrBadArg;
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeLZOInit_8u)
(ZebLZOMethod method, uint32_t /*maxSrcLen*/, ZebLZOState_8u* pState) {
  if (pState == nullptr) return zebErrNullPtr;
  if (!isMethod(method)) return zebErrBadArg;
  pState->method = zebLZOMethod1X1;
  return zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeLZO_8u)
(const uint8_t* pSrc, uint32_t srcLen, uint8_t* pDst, uint32_t* pDstLen, ZebLZOState_8u* pState) {
  if (pSrc == nullptr || pDst == nullptr || pDstLen == nullptr || pState == nullptr) {
    return zebErrNullPtr;
  }
  if (srcLen == 0) {
    *pDstLen = 0;
    return zebOk;
  }
  const uint8_t* const end = pState->method == zebLZOMethod1X1Parts
                                 ? encodeContainer(*pState, pSrc, srcLen, pDst)
                                 : encodePlain(*pState, pSrc, srcLen, pDst);
  *pDstLen = static_cast<uint32_t>(end - pDst);
  return zebOk;
}
