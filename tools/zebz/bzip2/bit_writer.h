// Bits to bytes, most significant bit first.
#ifndef ZEBZ_BZIP2_BIT_WRITER_H
#define ZEBZ_BZIP2_BIT_WRITER_H

#include <algorithm>

#include "stream/byte_stream.h"

namespace zebz {

// The bits so far are the bytes and, at the top of the accumulator, `pending` more, fewer than 8
// after each of the functions here. The library's coders take the accumulator in the same form.
class BitWriter {
 public:
  void clear() {
    bytes_.clear();
    accumulator_ = 0;
    pending_ = 0;
  }

  // The low `count` bits, at most 64, of the value.
  void put(uint64_t value, int count) {
    while (count > 0) {
      const int part = std::min(count, 8);
      count -= part;
      const uint32_t bits = static_cast<uint32_t>(value >> count) & ((1U << part) - 1);
      accumulator_ |= bits << (32 - pending_ - part);
      pending_ += part;
      moveOut();
    }
  }

  // All the bits of another writer.
  void append(const BitWriter& other) {
    if (pending_ == 0) {
      bytes_.insert(bytes_.end(), other.bytes_.begin(), other.bytes_.end());
    } else {
      for (const uint8_t byte : other.bytes_) put(byte, 8);
    }
    put(other.accumulator_ >> (32 - 8) >> (8 - other.pending_), other.pending_);
  }

  // Lets one of the library's coders write, into room for so many bytes and four that may be left
  // in the accumulator: write(accumulator, pending, bytes, byteCount).
  template <typename Write>
  void appendFrom(size_t room, Write write) {
    const size_t before = bytes_.size();
    bytes_.resize(before + room);
    int count = static_cast<int>(room);
    write(&accumulator_, &pending_, bytes_.data() + before, &count);
    bytes_.resize(before + static_cast<size_t>(count));
    moveOut();
  }

  void padToByte() { put(0, (8 - pending_) % 8); }

  Bytes bytes() const { return bytes_; }
  void dropBytes() { bytes_.clear(); }

 private:
  void moveOut() {
    for (; pending_ >= 8; pending_ -= 8, accumulator_ <<= 8) {
      bytes_.push_back(static_cast<uint8_t>(accumulator_ >> 24));
    }
  }

  std::vector<uint8_t> bytes_;
  uint32_t accumulator_ = 0;
  int pending_ = 0;
};

}  // namespace zebz

#endif
