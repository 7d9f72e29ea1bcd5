// The caller's scratch memory, handed out in pieces.
#ifndef ZEBDC_BZIP2_SCRATCH_H
#define ZEBDC_BZIP2_SCRATCH_H

#include <stddef.h>
#include <stdint.h>

namespace zebdc::bzip2 {

// Copies of a Scratch hand out the same memory again: a function that takes one by value gives
// back all that it took when it returns.
class Scratch {
 public:
  explicit Scratch(uint8_t* buffer) : next_(buffer) {}

  // Uninitialised memory, aligned for its elements.
  template <class T>
  T* take(size_t count) {
    const size_t misalignment = reinterpret_cast<uintptr_t>(next_) % alignof(T);
    if (misalignment != 0) next_ += alignof(T) - misalignment;
    T* const piece = reinterpret_cast<T*>(next_);
    next_ += count * sizeof(T);
    return piece;
  }

 private:
  uint8_t* next_;
};

}  // namespace zebdc::bzip2

#endif
