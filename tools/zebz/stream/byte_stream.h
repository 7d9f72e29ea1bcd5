// Where the bytes of a stream come from and where they go.
#ifndef ZEBZ_STREAM_BYTE_STREAM_H
#define ZEBZ_STREAM_BYTE_STREAM_H

#include <stddef.h>
#include <stdint.h>

#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace zebz {

using Bytes = std::span<const uint8_t>;
using ByteRoom = std::span<uint8_t>;

// Compressed data that is not what its format demands. The text completes "<file>: ".
class DataError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

[[noreturn]] inline void failUnexpectedEnd() {
  throw DataError("unexpected end of file");
}

class ByteSource {
 public:
  virtual ~ByteSource() = default;

  // Stores at least one byte in a room that is not empty, and returns how many; 0 at the end.
  virtual size_t read(ByteRoom room) = 0;

  // Fills the room; returns less than its size only at the end.
  size_t readFully(ByteRoom room) {
    size_t filled = 0;
    while (filled < room.size()) {
      const size_t count = read(room.subspan(filled));
      if (count == 0) break;
      filled += count;
    }
    return filled;
  }
};

class ByteSink {
 public:
  virtual ~ByteSink() = default;
  virtual void write(Bytes bytes) = 0;
};

// A sink that keeps what it is given.
class MemorySink final : public ByteSink {
 public:
  void write(Bytes bytes) override { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }
  Bytes bytes() const { return bytes_; }
  void clear() { bytes_.clear(); }

 private:
  std::vector<uint8_t> bytes_;
};

}  // namespace zebz

#endif
