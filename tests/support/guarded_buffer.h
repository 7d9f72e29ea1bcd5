// Buffers that end, or begin, at an inaccessible page, so that a single byte read or written beyond
// that edge ends the test. Beyond any other edge are guard bytes, up to the next inaccessible page:
// a test in which one of them is overwritten fails.
#ifndef ZEBDC_TESTS_SUPPORT_GUARDED_BUFFER_H
#define ZEBDC_TESTS_SUPPORT_GUARDED_BUFFER_H

#include <stddef.h>
#include <stdint.h>

#include <span>

namespace zebdc::test {

class GuardedBuffer {
 public:
  enum class Edge {
    end,    // the buffer's end touches the inaccessible page behind it
    begin,  // its beginning touches the one before it
    none,   // for records: its beginning is aligned to 16 bytes, and no more
  };

  explicit GuardedBuffer(size_t size, Edge edge = Edge::end);
  explicit GuardedBuffer(std::span<const uint8_t> content, Edge edge = Edge::end);
  ~GuardedBuffer();
  GuardedBuffer(const GuardedBuffer&) = delete;
  GuardedBuffer& operator=(const GuardedBuffer&) = delete;

  uint8_t* data() const { return data_; }
  size_t size() const { return size_; }
  uint8_t* begin() const { return data_; }
  uint8_t* end() const { return data_ + size_; }
  uint8_t& operator[](size_t i) const { return data_[i]; }
  std::span<uint8_t> bytes() const { return {data_, size_}; }

  template <class T>
  T* as() const {
    return reinterpret_cast<T*>(data_);
  }

 private:
  std::span<uint8_t> guardInFront() const { return {first_, data_}; }
  std::span<uint8_t> guardBehind() const { return {end(), first_ + inner_}; }

  size_t inner_;    // size of the accessible area, a multiple of the page size
  uint8_t* first_;  // its beginning
  uint8_t* data_;
  size_t size_;
};

}  // namespace zebdc::test

#endif
