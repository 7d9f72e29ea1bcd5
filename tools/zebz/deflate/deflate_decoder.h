// Deflate blocks to bytes.
#ifndef ZEBZ_DEFLATE_DEFLATE_DECODER_H
#define ZEBZ_DEFLATE_DEFLATE_DECODER_H

#include <vector>

#include "deflate/bit_source.h"
#include "library_record.h"

namespace zebz {

// Reads block headers and code lengths itself, and has the library decode the symbols, into one
// buffer in which what was decoded before stands right before what comes next.
class DeflateDecoder {
 public:
  DeflateDecoder();

  // Forgets the stream so far; the next one may refer back to the end of `history`, which is no
  // longer than a window.
  void restart(Bytes history);

  // Decodes one stream, up to the end of its last block, and leaves the source at the next byte.
  // Everything before a damage is passed on.
  void decode(BufferedSource& source, ByteSink& sink);

 private:
  void decodeBlocks(BitSource& bits, ByteSink& sink);
  void copyStored(BufferedSource& source, ByteSink& sink);
  void buildTables(BitSource& bits);
  void decodeSymbols(BitSource& bits, ByteSink& sink);

  void passOn(ByteSink& sink);
  void makeRoom(ByteSink& sink);

  std::unique_ptr<ZebInflateState> tables_;
  std::vector<uint8_t> buffer_;
  size_t passedOn_ = 0;  // the bytes before are history
  size_t end_ = 0;       // of what is decoded
};

}  // namespace zebz

#endif
