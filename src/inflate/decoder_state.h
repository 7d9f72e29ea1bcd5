// The decoder's record: a header of fields, and behind it in the same block the tables and buffers
// that they point to.
#ifndef ZEBDC_INFLATE_DECODER_STATE_H
#define ZEBDC_INFLATE_DECODER_STATE_H

#include <stddef.h>
#include <stdint.h>

#include "deflate/format.h"
#include "deflate/lz77_record.h"

namespace zebdc::inflate {

inline constexpr int windowAreaBytes = 65536;
inline constexpr int historyBytes = 32768;  // the farthest that a match reaches back
inline constexpr int ownPairs = 8192;
inline constexpr int codeLengthEntries = 320;  // 288 literal/length and 32 distance lengths
inline constexpr int fixedLengthEntries = 288;

// Decoding tables: two areas, side by side. What stands in them is told in huffman_table.h.
inline constexpr int decodeTableEntries = 1440;
inline constexpr int subTablesEntries = 1728;
inline constexpr int subTablesBytes[4] = {1536, 1536, 2560, 1280};
static_assert(subTablesBytes[0] + subTablesBytes[1] + subTablesBytes[2] + subTablesBytes[3] ==
              subTablesEntries * 4);

// Values of blockState. Stored blocks that are decoded to pairs use 0, 1 and 4 in a sense of their
// own.
enum DecodeBlockState : uint32_t {
  betweenBlocks = 0,
  dynamicCounts = 1,       // HLIT, HDIST and HCLEN are to be read
  dynamicCodeLengths = 2,  // the lengths of the code-length code
  dynamicLengths = 3,      // the lengths of the literal/length and distance codes
  huffmanSymbols = 4,      // symbols, in the codes that blockKind names
  storedAlign = 8,         // header read, input not yet aligned to a byte
  storedLength = 9,        // LEN and NLEN
  storedHeldBytes = 10,    // bytes left in bitBuffer
  storedCopy = 11,         // bytes of the source
};

// An entry of the table that decodes the code-length code by its next 7 bits. A length of 0 marks
// bits that no code has.
struct CodeLengthEntry {
  uint8_t symbol;
  uint8_t length;
};
inline constexpr int codeLengthTableEntries = 1 << deflate::maxCodeLengthCodeLength;

struct DecoderFields : ZebLZ77State_8u {
  uint64_t bitBuffer;  // input taken but not yet consumed; bit 0 is next; 0 above bitCount bits
  int32_t bitCount;
  int32_t windowPos;  // where the circular history of 32768 bytes is continued
  uint8_t* window;
  int32_t historyLen;  // valid bytes of the linear history
  uint32_t blockState;
  int32_t storedRemaining;  // bytes of a stored block still to come from the source
  uint32_t finalBlock;      // BFINAL of the current block
  uint32_t streamEnded;     // a final Huffman block has ended
  uint32_t blockKind;       // ZebLZ77BlockType of the current block
  uint32_t* cursors[3];     // into decodeTable; they mark nothing while tables are built in one go
  uint16_t* codeLengths;
  uint16_t* fixedLitLengths;
  uint32_t* decodeTable;
  int32_t pendingLength;  // rest of a match that found no room, and its distance
  uint32_t pendingDistance;
  uint8_t* subTables[4];

  // Stored blocks.
  int32_t storedHeld;  // bytes of the block that bitBuffer holds

  // Header of a dynamic block.
  uint32_t litLenCount;      // HLIT + 257
  uint32_t distanceCount;    // HDIST + 1
  uint32_t codeLengthCount;  // HCLEN + 4
  uint32_t lengthsRead;      // code lengths read so far
  uint8_t codeLengthLengths[deflate::codeLengthSymbols];
  CodeLengthEntry codeLengthTable[codeLengthTableEntries];
};

inline constexpr int fieldBytes = 824;
inline constexpr int decoderStateBytes = 113024;

struct DecoderState : DecoderFields {
  alignas(8) uint8_t reserved[fieldBytes - sizeof(DecoderFields)];
  uint8_t windowArea[windowAreaBytes];
  ZebLZ77Pair pairsArea[ownPairs];
  uint8_t cell[8];
  uint16_t codeLengthsArea[codeLengthEntries];
  uint16_t fixedLitLengthsArea[fixedLengthEntries];
  uint32_t tablesArea[decodeTableEntries + subTablesEntries];  // decodeTable, then subTables
};

static_assert(sizeof(DecoderFields) < fieldBytes);
static_assert(sizeof(DecoderState) == decoderStateBytes);
static_assert(fieldBytes + sizeof(DecoderState::windowArea) + sizeof(DecoderState::pairsArea) +
                  sizeof(DecoderState::cell) + sizeof(DecoderState::codeLengthsArea) +
                  sizeof(DecoderState::fixedLitLengthsArea) + sizeof(DecoderState::tablesArea) ==
              decoderStateBytes);

inline DecoderState& decoderState(ZebLZ77State_8u* state) {
  return *static_cast<DecoderState*>(state);
}

inline const DecoderState& decoderState(const ZebLZ77State_8u* state) {
  return *static_cast<const DecoderState*>(state);
}

void initDecoder(DecoderState& state, ZebLZ77Checksum checksumKind);
void resetDecoder(DecoderState& state);

// Makes target go on where source stands, with target's own storage.
void copyDecoder(const DecoderState& source, DecoderState& target);

}  // namespace zebdc::inflate

#endif
