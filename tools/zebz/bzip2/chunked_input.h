// Compressed input in chunks that threads share: kept as long as anyone looks at them, never
// copied or changed.
#ifndef ZEBZ_BZIP2_CHUNKED_INPUT_H
#define ZEBZ_BZIP2_CHUNKED_INPUT_H

#include <deque>
#include <memory>
#include <vector>

#include "stream/buffered_source.h"

namespace zebz {

using Chunk = std::shared_ptr<const std::vector<uint8_t>>;

// A stretch of the input that begins `offset` bytes into the first chunk.
struct ChunkSpan {
  std::vector<Chunk> chunks;
  size_t offset = 0;
};

// Positions are those of the whole input.
class ChunkedInput {
 public:
  explicit ChunkedInput(BufferedSource& source);

  // The end of what has been read.
  uint64_t end() const { return end_; }

  // Reads another chunk; false at the end of the input.
  bool readOn();

  // Reads until so much of the input is there; false if the input ends before.
  bool readUpTo(uint64_t position);

  // What was read and has not been dropped.
  uint8_t byteAt(uint64_t position) const;
  Bytes chunkFrom(uint64_t position) const;
  ChunkSpan span(uint64_t begin, uint64_t end) const;

  // Everything before is no longer needed here.
  void dropBefore(uint64_t position);

 private:
  size_t chunkIndex(uint64_t position) const;

  BufferedSource& source_;
  std::deque<Chunk> chunks_;  // all but the last are of one size
  uint64_t start_;            // of the first chunk
  uint64_t end_;
};

}  // namespace zebz

#endif
