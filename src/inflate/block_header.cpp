#include "inflate/block_header.h"

#include <algorithm>

#include "inflate/fixed_tables.h"
#include "inflate/huffman_table.h"

namespace zebdc::inflate {
namespace {

// Where the two tables of a dynamic block stand in the record: from the beginning of decodeTable,
// and at the end of subTables.
constexpr int tableEntries = decodeTableEntries + subTablesEntries;
constexpr int distanceTableStart = (tableEntries - distanceTableRoom) / 16 * 16;
static_assert(litLenTableRoom <= distanceTableStart);
static_assert(litLenCodes + distanceCodes == codeLengthEntries);

constexpr uint32_t btypeOf(ZebLZ77BlockType type) {
  return type == zebLZ77BlockFixed ? 1 : type == zebLZ77BlockDynamic ? 2 : 0;
}

ZebStatus readCounts(DecoderState& state, BitReader& in) {
  if (!in.want(14)) return zebWarnSrcExhausted;
  state.litLenCount = 257 + in.peek(5);
  in.consume(5);
  state.distanceCount = 1 + in.peek(5);
  in.consume(5);
  state.codeLengthCount = 4 + in.peek(4);
  in.consume(4);
  state.blockState = dynamicCodeLengths;
  return zebOk;
}

// A code fills every entry whose low bits are the code reversed.
void buildCodeLengthTable(DecoderState& state) {
  uint16_t lengths[deflate::codeLengthSymbols];
  std::copy_n(state.codeLengthLengths, deflate::codeLengthSymbols, lengths);
  const CodeOrder order(lengths, deflate::codeLengthSymbols);
  CodeWalk codes(order);
  std::fill_n(state.codeLengthTable, codeLengthTableEntries, CodeLengthEntry{0, 0});
  for (int length = 1; length <= deflate::maxCodeLengthCodeLength; ++length) {
    codes.walk(length, order.count[length], [&](uint32_t symbol, uint32_t code) {
      const CodeLengthEntry entry = {static_cast<uint8_t>(symbol), static_cast<uint8_t>(length)};
      for (uint32_t i = code; i < codeLengthTableEntries; i += 1u << length) {
        state.codeLengthTable[i] = entry;
      }
    });
  }
}

ZebStatus readCodeLengthLengths(DecoderState& state, BitReader& in) {
  if (!in.want(static_cast<int>(3 * state.codeLengthCount))) return zebWarnSrcExhausted;
  for (uint32_t i = 0; i < deflate::codeLengthSymbols; ++i) {
    uint8_t& length = state.codeLengthLengths[deflate::codeLengthOrder[i]];
    length = 0;
    if (i < state.codeLengthCount) {
      length = static_cast<uint8_t>(in.peek(3));
      in.consume(3);
    }
  }
  buildCodeLengthTable(state);
  state.lengthsRead = 0;
  state.blockState = dynamicLengths;
  return zebOk;
}

// A symbol of the code-length code above 15 stands for a run of lengths.
struct RunOfLengths {
  int extraBits;
  uint32_t shortest;
};
constexpr uint8_t firstRunSymbol = 16;
constexpr uint8_t repeatSymbol = 16;  // of the last length; the other runs are of zeros
constexpr RunOfLengths runsOfLengths[] = {{2, 3}, {3, 3}, {7, 11}};
constexpr uint32_t longestRun = 11 + 127;

// Writes a run in steps that may pass its end, as long as they stay in the array.
void writeRun(uint16_t* lengths, uint32_t at, uint32_t count, uint16_t value) {
  constexpr uint32_t step = 8;
  if (at + (longestRun + step - 1) / step * step > codeLengthEntries) {
    std::fill_n(lengths + at, count, value);
    return;
  }
  for (uint32_t i = 0; i < count; i += step) std::fill_n(lengths + at + i, step, value);
}

// Reads symbols of the code-length code until all lengths are there.
ZebStatus readLengths(DecoderState& state, BitReader& in, uint32_t total) {
  uint16_t* const lengths = state.codeLengths;
  const CodeLengthEntry* const table = state.codeLengthTable;
  uint32_t read = state.lengthsRead;
  ZebStatus status = zebOk;
  while (read < total) {
    in.refill();
    const CodeLengthEntry entry = table[in.peek(deflate::maxCodeLengthCodeLength)];
    if (entry.symbol < firstRunSymbol && entry.length != 0 && entry.length <= in.count) {
      in.consume(entry.length);
      lengths[read++] = entry.symbol;
      continue;
    }
    if (entry.length == 0) {
      const bool determined = in.count >= deflate::maxCodeLengthCodeLength;
      status = determined ? zebErrSize : zebWarnSrcExhausted;
      break;
    }
    const RunOfLengths run = entry.symbol < firstRunSymbol
                                 ? RunOfLengths{}
                                 : runsOfLengths[entry.symbol - firstRunSymbol];
    const int bits = entry.length + run.extraBits;
    if (bits > in.count) {
      status = zebWarnSrcExhausted;
      break;
    }
    const uint32_t count = run.shortest + (in.peek(bits) >> entry.length);
    if (count > total - read) {
      status = zebErrSize;
      break;
    }
    in.consume(bits);
    const bool repeats = entry.symbol == repeatSymbol && read > 0;
    writeRun(lengths, read, count, repeats ? lengths[read - 1] : uint16_t{0});
    read += count;
  }
  state.lengthsRead = read;
  return status;
}

ZebStatus readLengthsAndBuildTables(DecoderState& state, BitReader& in) {
  BitReader reader = in;  // of which no one else has the address
  const ZebStatus status = readLengths(state, reader, state.litLenCount + state.distanceCount);
  in = reader;
  if (status != zebOk) return status;
  buildLitLenTable(state.codeLengths, static_cast<int>(state.litLenCount), state.decodeTable);
  buildDistanceTable(state.codeLengths + state.litLenCount, static_cast<int>(state.distanceCount),
                     state.decodeTable + distanceTableStart);
  state.blockState = huffmanSymbols;
  return zebOk;
}

}  // namespace

void spinForever() {
  // A loop without volatile accesses the compiler might take for unreachable.
  volatile unsigned turns = 0;
  for (;;) turns = turns + 1;
}

ZebStatus readTypeBits(DecoderState& state, BitReader& in, ZebLZ77BlockType wanted) {
  if (in.count < typeBits) {
    if (in.sourceEmpty()) return zebWarnSrcExhausted;
    const bool even = (reinterpret_cast<uintptr_t>(in.src) & 1) == 0;
    const bool takeTwo = even && in.end - in.src >= 2;
    in.takeByte();
    if (takeTwo) in.takeByte();
  }
  if (in.peek(typeBits) >> 1 != btypeOf(wanted)) return zebErrGeneral;
  state.blockKind = static_cast<uint32_t>(wanted);
  if (in.peek(1) != 0) state.finalBlock = 1;
  in.consume(typeBits);
  return zebOk;
}

ZebStatus readFixedHeader(DecoderState& state, BitReader& in) {
  if (state.blockState == huffmanSymbols) return zebOk;
  if (state.blockState != betweenBlocks) spinForever();
  const ZebStatus status = readTypeBits(state, in, zebLZ77BlockFixed);
  if (status == zebOk) state.blockState = huffmanSymbols;
  return status;
}

ZebStatus readDynamicHeader(DecoderState& state, BitReader& in) {
  ZebStatus status = zebOk;
  while (status == zebOk && state.blockState != huffmanSymbols) {
    switch (state.blockState) {
      case betweenBlocks:
        status = readTypeBits(state, in, zebLZ77BlockDynamic);
        if (status == zebOk) state.blockState = dynamicCounts;
        break;
      case dynamicCounts:
        status = readCounts(state, in);
        break;
      case dynamicCodeLengths:
        status = readCodeLengthLengths(state, in);
        break;
      case dynamicLengths:
        status = readLengthsAndBuildTables(state, in);
        break;
      default:
        spinForever();
    }
  }
  return status;
}

kernels::InflateTables tablesOf(const DecoderState& state) {
  if (state.blockKind != uint32_t{zebLZ77BlockDynamic}) return fixedTables;
  return {state.decodeTable, state.decodeTable + distanceTableStart, state.codeLengths};
}

}  // namespace zebdc::inflate
