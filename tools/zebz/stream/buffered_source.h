// A source read through a buffer, for the decoders: they look at bytes in place and may give back
// the few that they took too many.
#ifndef ZEBZ_STREAM_BUFFERED_SOURCE_H
#define ZEBZ_STREAM_BUFFERED_SOURCE_H

#include <vector>

#include "stream/byte_stream.h"

namespace zebz {

class BufferedSource {
 public:
  // Bytes before the unread ones that stay in place across refills: what a decoder may give back
  // although it took them before the last refill.
  static constexpr size_t keptBytes = 16;

  explicit BufferedSource(ByteSource& source);

  // The unread bytes in the buffer.
  Bytes unread() const { return {cursor_, static_cast<size_t>(end_ - cursor_)}; }

  // Reads on when nothing is unread. False at the end of the input.
  bool fill() { return cursor_ != end_ || fillAtLeast(1); }

  // Reads on until `count` bytes (at most the buffer's size) are unread; false when the input ends
  // before.
  bool fillAtLeast(size_t count);

  // Moves to a place in the buffer: forward within unread(), or back within the kept bytes.
  void moveTo(const uint8_t* place) { cursor_ = place; }
  void skip(size_t count) { cursor_ += count; }

  // How many bytes of the input lie before the cursor.
  uint64_t position() const { return bytesRead_ - unread().size(); }

  // The following fail with "unexpected end of file" where the input ends too early.
  uint8_t takeByte();
  uint16_t takeLittleEndian16();
  uint32_t takeLittleEndian32();
  uint32_t takeBigEndian32();
  // Memory grows with the bytes that are there, not with the count.
  void takeBytes(size_t count, std::vector<uint8_t>& bytes);

 private:
  ByteSource& source_;
  std::vector<uint8_t> buffer_;
  const uint8_t* cursor_;
  const uint8_t* end_;
  uint64_t bytesRead_ = 0;
};

}  // namespace zebz

#endif
