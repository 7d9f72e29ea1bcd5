// Bytes to deflate blocks.
#ifndef ZEBZ_DEFLATE_DEFLATE_ENCODER_H
#define ZEBZ_DEFLATE_DEFLATE_ENCODER_H

#include <vector>

#include "library_record.h"
#include "stream/byte_stream.h"

namespace zebz {

class DeflateEncoder {
 public:
  // How the output of an encode() ends.
  enum class Ending {
    open,     // anywhere: more bytes will follow
    aligned,  // on a whole byte, with all bytes so far decodable
    final     // with the last block of the stream
  };

  // The level as gzip counts, 1 to 9.
  explicit DeflateEncoder(int level);

  // Forgets the stream so far; what follows may refer back to the end of `history`.
  void restart(Bytes history);

  // Bytes are best given in pieces of hundreds of KiB: a match never reaches across the end of one.
  void encode(Bytes bytes, Ending ending, ByteSink& sink);

 private:
  struct Batch;

  Batch findMatches(Bytes bytes, ZebLZ77Flush flush);
  void writeBlock(const Batch& batch, ZebLZ77Flush flush, ByteSink& sink);
  void writeStored(Bytes bytes, ZebLZ77Flush flush, ByteSink& sink);
  template <typename Write>
  void writeAll(ByteSink& sink, Write write);

  LZ77State state_;
  std::vector<uint8_t> output_;
};

}  // namespace zebz

#endif
