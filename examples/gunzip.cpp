// Decompresses a gzip file (RFC 1952) from standard input to standard output.
//
//   gunzip_example < FILE.gz > FILE

#include <zebdc/zebdc.h>

#include <cstdio>
#include <stdexcept>
#include <vector>

#include "binary_streams.h"
#include "stream_inflater.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes readAll(std::FILE* file) {
  Bytes bytes;
  Bytes piece(1 << 18);
  while (const size_t count = std::fread(piece.data(), 1, piece.size(), file)) {
    bytes.insert(bytes.end(), piece.begin(), piece.begin() + static_cast<ptrdiff_t>(count));
  }
  if (std::ferror(file)) throw std::runtime_error("cannot read");
  return bytes;
}

class GzipReader {
 public:
  explicit GzipReader(const Bytes& bytes) : next_(bytes.data()), end_(next_ + bytes.size()) {}

  bool atEnd() const { return next_ == end_; }

  // Reads one member.
  Bytes readMember() {
    readHeader();
    StreamInflater inflater(next_, static_cast<size_t>(end_ - next_));
    Bytes output;
    inflater.inflate(output);
    next_ += inflater.consumed();

    uint32_t crc = 0;
    if (!output.empty()) {
      zebsCRC32_8u(output.data(), static_cast<int>(output.size()), &crc);
    }
    if (take(4) != crc) throw std::runtime_error("crc error");
    if (take(4) != static_cast<uint32_t>(output.size())) throw std::runtime_error("length error");
    return output;
  }

 private:
  enum : uint32_t { headerCrc = 2, extraField = 4, fileName = 8, comment = 16, reserved = 0xE0 };

  // A little-endian number.
  uint32_t take(int bytes) {
    if (end_ - next_ < bytes) throw std::runtime_error("unexpected end");
    uint32_t value = 0;
    for (int i = 0; i < bytes; ++i) value |= static_cast<uint32_t>(*next_++) << (8 * i);
    return value;
  }

  void readHeader() {
    if (take(2) != 0x8B1F || take(1) != 8) throw std::runtime_error("not in gzip format");
    const uint32_t flags = take(1);
    if (flags & reserved) throw std::runtime_error("unknown header flags");
    take(4);  // time
    take(2);  // extra flags, operating system
    if (flags & extraField) {
      for (uint32_t left = take(2); left > 0; --left) take(1);
    }
    if (flags & fileName) skipText();
    if (flags & comment) skipText();
    if (flags & headerCrc) take(2);
  }

  void skipText() {
    while (take(1) != 0) {
    }
  }

  const uint8_t* next_;
  const uint8_t* end_;
};

}  // namespace

int main() {
  useBinaryStreams();
  try {
    const Bytes bytes = readAll(stdin);
    GzipReader reader(bytes);
    do {
      const Bytes output = reader.readMember();
      if (!output.empty() &&
          std::fwrite(output.data(), 1, output.size(), stdout) != output.size()) {
        throw std::runtime_error("cannot write");
      }
    } while (!reader.atEnd());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "gunzip_example: %s\n", error.what());
    return 1;
  }
  return 0;
}
