// Deflate blocks to bytes.
#ifndef ZEBZ_DEFLATE_DEFLATE_DECODER_H
#define ZEBZ_DEFLATE_DEFLATE_DECODER_H

#include <vector>

#include "library_record.h"
#include "stream/buffered_source.h"

namespace zebz {

// Goes the library's two-pass way, through pairs: the one way that is right for every valid stream
// wherever the input and the output happen to be cut.
class DeflateDecoder {
 public:
  DeflateDecoder();

  // Forgets the stream so far; the next one may refer back to the end of `history`.
  void restart(Bytes history);

  // Decodes one stream, up to the end of its last block, and leaves the source at the next byte.
  void decode(BufferedSource& source, ByteSink& sink);

 private:
  void expandPairs(ByteSink& sink);
  void checkDistances() const;
  int pairRoom() const;

  LZ77State state_;
  std::vector<ZebLZ77Pair> pairs_;
  ZebLZ77Pair* pairsEnd_;  // pairs from the start of pairs_ wait to be expanded
  std::vector<uint8_t> output_;
  uint64_t history_ = 0;  // bytes before the waiting pairs' that a match may refer back to
};

}  // namespace zebz

#endif
