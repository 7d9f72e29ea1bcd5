// The blocks of a bzip2 stream back to data.
#ifndef ZEBZ_BZIP2_BLOCK_DECODER_H
#define ZEBZ_BZIP2_BLOCK_DECODER_H

#include "bzip2/chunked_input.h"
#include "library_record.h"
#include "stream/scratch.h"

namespace zebz {

// More bytes than a block can take: 900001 symbols of 20 bits, 32767 selectors of 6, and lengths of
// codes. These may be written with any number of detours; a block that takes so many that it gets
// longer than this is refused.
constexpr uint64_t bzip2LongestBlock = uint64_t{5} << 19;

struct DecodedBlock {
  enum class Outcome { whole, cut, damaged, randomised };
  Outcome outcome = Outcome::damaged;  // cut: the input ended inside the block
  uint32_t crc = 0;                    // that the data ought to have
  uint64_t bits = 0;                   // that the block takes
  Scratch<uint8_t> text;               // of which so much is used
  size_t textLength = 0;
};

// From the bits of a block to its text. Any bits are safe.
class Bzip2BlockDecoder {
 public:
  Bzip2BlockDecoder();

  // The block's magic begins `firstBit` bits into the first byte of the span.
  void decode(const ChunkSpan& span, int firstBit, DecodedBlock& block);

 private:
  class Reader;
  using Outcome = DecodedBlock::Outcome;

  Outcome decodeBlock(Reader& reader, DecodedBlock& block);
  Outcome readSymbols(Reader& reader, int alphabetSize);

  RecordMemory<ZebDecodeHuffState_BZ2> codes_;
  Scratch<uint16_t> symbols_;
  int symbolCount_ = 0;
  Scratch<uint8_t> scratch_;
};

// From the text of a block to its data. The room for the most that a block can stand for, 46.6 MB,
// is made once, and is memory in use only as far as blocks ever filled it.
class Bzip2TextExpander {
 public:
  Bzip2TextExpander();
  Bytes expand(Bytes text);

 private:
  Scratch<uint8_t> data_;
};

}  // namespace zebz

#endif
