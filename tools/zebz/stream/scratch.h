// Memory that begins with no content.
#ifndef ZEBZ_STREAM_SCRATCH_H
#define ZEBZ_STREAM_SCRATCH_H

#include <stddef.h>

#include <memory>

namespace zebz {

// Unlike a vector's, its pages are not touched before they are used: room for the largest case
// costs little in the usual one.
template <class T>
class Scratch {
 public:
  Scratch() = default;
  explicit Scratch(size_t size) : items_(std::make_unique_for_overwrite<T[]>(size)), size_(size) {}

  T* data() { return items_.get(); }
  const T* data() const { return items_.get(); }
  size_t size() const { return size_; }
  T& operator[](size_t index) { return items_[index]; }

 private:
  std::unique_ptr<T[]> items_;
  size_t size_ = 0;
};

}  // namespace zebz

#endif
