// Allocation, release and the checked copy and fill routines.

#include "frame/memory.h"

#include <zebdc/zebcore.h>

#include "kernels/memory.h"

namespace zebdc {

void* allocate(int count) {
  return count > 0 ? zebMalloc(count) : nullptr;
}

void release(void* block) {
  zebFree(block);
}

ZebStatus copyBytes(const uint8_t* src, uint8_t* dst, int len) {
  if (src == nullptr || dst == nullptr) return zebErrNullPtr;
  if (len < 1) return zebErrSize;
  kernels::memory().copy(src, dst, len);
  return zebOk;
}

ZebStatus zeroBytes(uint8_t* dst, int len) {
  return fillBytes(0, dst, len);
}

ZebStatus fillBytes(uint8_t value, uint8_t* dst, int len) {
  if (dst == nullptr) return zebErrNullPtr;
  if (len < 1) return zebErrSize;
  kernels::memory().fill8(value, dst, len);
  return zebOk;
}

ZebStatus fill16(uint16_t value, uint16_t* dst, int len) {
  if (dst == nullptr) return zebErrNullPtr;
  if (len < 1) return zebErrSize;
  kernels::memory().fill16(value, dst, len);
  return zebOk;
}

}  // namespace zebdc
