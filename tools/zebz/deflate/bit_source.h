// The bits of a deflate stream, the least significant of each byte first.
#ifndef ZEBZ_DEFLATE_BIT_SOURCE_H
#define ZEBZ_DEFLATE_BIT_SOURCE_H

#include <zebdc/zebdc.h>

#include "stream/buffered_source.h"

namespace zebz {

// Running out of input is an unexpected end.
class BitSource {
 public:
  explicit BitSource(BufferedSource& source) : source_(source) {}

  // At most 16 bits.
  uint32_t take(unsigned count) {
    const uint32_t value = peek(count);
    drop(count);
    return value;
  }

  // Bits beyond the end of the input read as zeros, and fail only when they are dropped.
  uint32_t peek(unsigned count) {
    while (held_ < count && source_.fill()) {
      bits_ |= uint32_t{source_.takeByte()} << held_;
      held_ += 8;
    }
    return bits_ & ((uint32_t{1} << count) - 1);
  }

  void drop(unsigned count) {
    if (count > held_) failUnexpectedEnd();
    bits_ >>= count;
    held_ -= count;
  }

  // Goes on behind the byte that the last bit is from, and lets its owner read there.
  BufferedSource& alignedSource() {
    giveBack();
    bits_ = 0;
    held_ = 0;
    return source_;
  }

  // Hands bits and input to a decoder of the library, decode(src, srcLen, bits, bitCount).
  template <typename Decode>
  ZebStatus lendTo(Decode decode) {
    const uint8_t* cursor = source_.unread().data();
    uint32_t left = static_cast<uint32_t>(source_.unread().size());
    const ZebStatus status = decode(&cursor, &left, &bits_, &held_);
    source_.moveTo(cursor);
    return status;
  }

  // More input for a decoder that has taken all there was.
  void readOn() {
    if (!source_.fill()) failUnexpectedEnd();
  }

  // Bytes whose bits are all unused go back to the input. There are four at most, fewer than the
  // input keeps.
  void giveBack() {
    source_.moveTo(source_.unread().data() - held_ / 8);
    held_ %= 8;
    bits_ &= (uint32_t{1} << held_) - 1;
  }

 private:
  BufferedSource& source_;
  uint32_t bits_ = 0;  // taken from the input and unused, the next one lowest, and zeros above them
  uint32_t held_ = 0;  // how many
};

}  // namespace zebz

#endif
