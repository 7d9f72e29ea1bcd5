// Data to the blocks of a bzip2 stream. Cutting the data into blocks is sequential work; coding
// them can be done in any order.
#ifndef ZEBZ_BZIP2_BLOCK_ENCODER_H
#define ZEBZ_BZIP2_BLOCK_ENCODER_H

#include <array>

#include "bzip2/bit_writer.h"
#include "library_record.h"
#include "stream/scratch.h"

namespace zebz {

struct Bzip2Block {
  Scratch<uint8_t> text;  // of which so much is used
  size_t textLength = 0;
  std::array<uint8_t, 256> inUse{};  // 1 for each byte value that occurs in the text
  uint32_t crc = 0;
  BitWriter coded;
};

// Reads data, and runs it through the first run-length stage until a block is full.
class Bzip2BlockCutter {
 public:
  Bzip2BlockCutter(ByteSource& source, int level);

  // False at the end of the data.
  bool operator()(Bzip2Block& block);

 private:
  struct Free {
    void operator()(ZebRLEState_BZ2* state) const { zebsRLEFree_BZ2_8u(state); }
  };

  bool refill();
  void takeData(Bzip2Block& block);

  ByteSource& source_;
  size_t textSize_;
  std::unique_ptr<ZebRLEState_BZ2, Free> runs_;
  std::vector<uint8_t> buffer_;
  Bytes unread_;
};

// Codes a block from its text: sorting, move-to-front, zero runs, Huffman codes.
class Bzip2BlockEncoder {
 public:
  explicit Bzip2BlockEncoder(int level);
  void operator()(Bzip2Block& block);

 private:
  int sortedRanks(const Bzip2Block& block, int valuesInUse);
  int codeZeroRuns(int textLength, int alphabetSize);
  void writeCodes(int alphabetSize, int symbolCount, BitWriter& out);

  RecordMemory<ZebMTFState_8u> ranks_;
  RecordMemory<ZebEncodeHuffState_BZ2> codes_;
  Scratch<uint8_t> scratch_;
  Scratch<uint8_t> sorted_;
  Scratch<uint8_t> positions_;
  Scratch<uint16_t> symbols_;
  std::array<uint32_t, 258> frequencies_{};
};

}  // namespace zebz

#endif
