// Allocation, release and the checked copy and fill routines that all families share.
#ifndef ZEBDC_FRAME_MEMORY_H
#define ZEBDC_FRAME_MEMORY_H

#include <stdint.h>
#include <zebdc/zebdc.h>

namespace zebdc {

// A block of the core library, or null when count is below 1 (the core library is then not asked)
// or memory is short.
void* allocate(int count);

// Hands the pointer to the core library as it is, null included.
void release(void* block);

// The checked routines: zebErrNullPtr for a null pointer, then zebErrSize for a length below 1.
ZebStatus copyBytes(const uint8_t* src, uint8_t* dst, int len);
ZebStatus zeroBytes(uint8_t* dst, int len);
ZebStatus fillBytes(uint8_t value, uint8_t* dst, int len);
ZebStatus fill16(uint16_t value, uint16_t* dst, int len);

// The checked form of allocate-then-initialise. getSize(&size) may refuse; init(state) is run on
// the new block, whose address is stored only when everything succeeded. Init's status is not
// examined: with a valid block it cannot fail in the families that use this form.
template <class State, class GetSize, class Init>
ZebStatus initAllocChecked(State** ppState, GetSize getSize, Init init) {
  if (ppState == nullptr) return zebErrNullPtr;
  int size = 0;
  if (const ZebStatus status = getSize(&size); status < 0) return status;
  State* const state = static_cast<State*>(allocate(size));
  if (state == nullptr) return zebErrMemAlloc;
  init(state);
  *ppState = state;
  return zebOk;
}

// The unchecked form: what allocate returned is stored at once, and a failed allocation shows as
// the null-pointer status of Init. The caller has tested ppState and the table argument.
template <class State, class Init>
ZebStatus initAllocUnchecked(State** ppState, int size, Init init) {
  *ppState = static_cast<State*>(allocate(size));
  return init(*ppState);
}

}  // namespace zebdc

#endif
