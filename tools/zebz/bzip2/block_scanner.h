// Finds where the blocks of bzip2 streams may begin.
#ifndef ZEBZ_BZIP2_BLOCK_SCANNER_H
#define ZEBZ_BZIP2_BLOCK_SCANNER_H

#include <optional>

#include "bzip2/chunked_input.h"

namespace zebz {

// Every block begins with the block magic, at any bit; but the bits of a coded block may look like
// a magic, too.
class BlockScanner {
 public:
  explicit BlockScanner(uint64_t position) : position_(position) {}

  // The position in bits of the next magic among what the input has read, or nothing. The input
  // must still have everything from position() on.
  std::optional<uint64_t> next(const ChunkedInput& input);

  // Passes over what is known to hold no block's beginning.
  void skipTo(uint64_t position) {
    if (position <= position_) return;
    position_ = position;
    recent_ = 0;
  }

  // How far the scan has come, in bytes.
  uint64_t position() const { return position_; }

 private:
  uint64_t position_;
  uint64_t recent_ = 0;  // the last 8 bytes, the latest one lowest
};

}  // namespace zebz

#endif
