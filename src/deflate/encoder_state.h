// The encoder's record: a header of fields, and behind it in the same block the tables and buffers
// that they point to.
#ifndef ZEBDC_DEFLATE_ENCODER_STATE_H
#define ZEBDC_DEFLATE_ENCODER_STATE_H

#include <stddef.h>
#include <stdint.h>

#include "deflate/dynamic_header.h"
#include "deflate/huffman_code.h"
#include "deflate/lz77_record.h"
#include "kernels/pair_coding.h"

namespace zebdc::deflate {

inline constexpr int windowSize = 32768;   // every distance is below it
inline constexpr int hashEntries = 32768;  // one for each 15-bit hash
inline constexpr int historyBytes = 65536;
inline constexpr int ownPairs = 65280;
inline constexpr int trailerBytes = 8;

// A position so far back that no distance test accepts it.
inline constexpr int32_t noPosition = -32768;

// Values of blockPhase.
inline constexpr int32_t phaseBlockBegin = 2;  // a new block: its header is not yet written
inline constexpr int32_t phasePartial = 3;     // block or trailer partly written
inline constexpr int32_t phaseBlockEnd = 4;    // the block has ended, the stream goes on
inline constexpr int32_t phaseStreamEnd = 5;  // the final block is complete; the trailer may follow

// Ranges of positions that the match finder passed without entering them into its tables: the last
// bytes of calls and dictionaries. The most recent ones, oldest first.
struct SkippedRanges {
  static constexpr int32_t capacity = 64;
  struct Range {
    int32_t begin;
    int32_t end;
  };
  int32_t count;
  Range ranges[capacity];
};

struct EncoderState : ZebLZ77State_8u {
  int32_t callSrcLen;            // source of the match finder's call, less what it consumed
  uint8_t* dstCursor;            // destination of the trailer, kept between calls
  int32_t dstRemaining;          // room left there
  uint32_t checksum;             // of the source consumed; starts from 0 for every kind
  ZebLZ77ComprLevel comprLevel;  // 0, 1 or 2
  int32_t windowPos;             // position of the next source byte

  uint64_t bitBuffer;  // output bits not yet written; bit 0 goes out first
  int32_t bitCount;
  uint32_t pendingMode;          // 1 + the mode answered for the pairs at hand; 0: none is pending
  uint32_t headerOwed;           // non-zero: the header of the current block is not wholly written
  uint32_t preparedHeaderBytes;  // length of the dynamic header in huffWork; 0: none is prepared
  uint32_t preparedHeaderTail;   // valid bits of its last byte, 1 to 8
  uint32_t headerBytesWritten;   // of the prepared header

  uint8_t* history;            // the history area
  uint8_t* historyBase;        // the byte of position p is at historyBase + p
  const uint16_t* levelTable;  // substitution tables of the three-byte hash
  int32_t* chainTable;         // links between positions with the same hash
  int32_t* headTable;          // by hash: the most recent position

  int32_t blockPhase;
  int32_t trailerWritten;
  uint8_t* trailer;

  // Work tables of the dynamic writer.
  uint32_t* itemCodes;           // kernels::pairItems, as in kernels::PairCodes
  OutputBits* literalCodes;      // by symbol: literals, end of block, lengths
  uint64_t* distanceClassCodes;  // kernels::distanceClasses, as in kernels::PairCodes
  OutputBits* distanceCodes;     // by symbol
  uint32_t* literalFrequencies;
  uint32_t* distanceFrequencies;

  uint32_t altBitsActive;  // non-zero: the writers continue from the second bit buffer
  int32_t altBitCount;
  uint64_t altBitBuffer;
  uint8_t* huffWork;  // the prepared dynamic block header

  int32_t lastFlush;        // flush argument of the match finder's last call
  int32_t storedPhase;      // of the stored-block writer, or of the empty block behind a flush
  int32_t storedRemaining;  // bytes of the current stored block still to copy

  // What the chains of levels 1 and 2 need. The index of level 2, made anew in each long call, lies
  // over them; they are brought back when a shorter call needs them.
  int32_t refreshedAt;  // the position at which what is too far back was last marked
  uint32_t chainsAreGone;
  int32_t windowStart;  // no position before it may be referred to
  SkippedRanges skipped;

  uint8_t reserved[64];
};

// Everything behind the header, in the order of the addresses.
struct EncoderStorage {
  int32_t chainTable[windowSize];
  int32_t headTable[hashEntries];
  uint8_t history[historyBytes];
  ZebLZ77Pair pairs[ownPairs];
  uint8_t trailer[trailerBytes];
  uint8_t itemCodes[2048];
  uint8_t literalCodes[2288];
  uint8_t distanceClassCodes[2048];
  uint8_t distanceCodes[240];
  uint8_t literalFrequencies[2288];
  uint8_t distanceFrequencies[240];
  uint8_t huffWork[dynamicHeaderRoom];
};

inline constexpr int encoderStateBytes = 599076;
static_assert(sizeof(EncoderState) == 824);
static_assert(sizeof(EncoderState) + sizeof(EncoderStorage) == encoderStateBytes);
static_assert((sizeof(EncoderState) + offsetof(EncoderStorage, itemCodes)) % 8 == 0);

static_assert(kernels::pairItems * sizeof(uint32_t) <= sizeof EncoderStorage::itemCodes);
static_assert(kernels::distanceClasses * sizeof(uint64_t) <=
              sizeof EncoderStorage::distanceClassCodes);
static_assert(literalSymbols * sizeof(OutputBits) <= sizeof EncoderStorage::literalCodes);
static_assert(distanceSymbols * sizeof(OutputBits) <= sizeof EncoderStorage::distanceCodes);

inline EncoderState& encoderState(ZebLZ77State_8u* state) {
  return *static_cast<EncoderState*>(state);
}

void initEncoder(EncoderState& state, ZebLZ77ComprLevel level, ZebLZ77Checksum checksumKind);
void resetEncoder(EncoderState& state);

void setEncoderStatus(EncoderState& state, ZebLZ77DeflateStatus status);

}  // namespace zebdc::deflate

#endif
