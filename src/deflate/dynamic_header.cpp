// The header of a dynamic block: the code lengths of both alphabets, run-length coded, under a
// Huffman code of their own.

#include "deflate/dynamic_header.h"

#include <algorithm>

#include "deflate/bit_writer.h"
#include "deflate/huffman_code.h"

namespace zebdc::deflate {
namespace {

// Symbols of the code-length alphabet that stand for several lengths.
constexpr int repeatPrevious = 16;  // 3 to 6 times, 2 extra bits
constexpr int repeatZero = 17;      // 3 to 10 times, 3 extra bits
constexpr int repeatZeroLong = 18;  // 11 to 138 times, 7 extra bits
constexpr int minRepeat = 3;
constexpr int maxRepeatPrevious = 6;
constexpr int minRepeatZeroLong = 11;
constexpr int maxRepeatZeroLong = 138;

struct CodeLengthItem {
  uint8_t symbol;
  uint8_t extra;
};

constexpr uint32_t extraBits(int symbol) {
  return symbol == repeatPrevious ? 2 : symbol == repeatZero ? 3 : symbol == repeatZeroLong ? 7 : 0;
}

class CodeLengthSequence {
 public:
  void append(const uint8_t* lengths, int count) {
    for (int i = 0; i < count;) {
      int run = 1;
      while (i + run < count && lengths[i + run] == lengths[i]) ++run;
      if (lengths[i] == 0) {
        appendZeros(run);
      } else {
        appendRun(lengths[i], run);
      }
      i += run;
    }
  }

  const CodeLengthItem* begin() const { return items_; }
  const CodeLengthItem* end() const { return items_ + count_; }

 private:
  void appendZeros(int run) {
    while (run >= minRepeatZeroLong) {
      const int part = std::min(run, maxRepeatZeroLong);
      add(repeatZeroLong, part - minRepeatZeroLong);
      run -= part;
    }
    if (run >= minRepeat) {
      add(repeatZero, run - minRepeat);
    } else {
      addSingly(0, run);
    }
  }

  void appendRun(int length, int run) {
    add(length, 0);
    --run;
    while (run >= minRepeat) {
      const int part = std::min(run, maxRepeatPrevious);
      add(repeatPrevious, part - minRepeat);
      run -= part;
    }
    addSingly(length, run);
  }

  void addSingly(int length, int times) {
    for (int i = 0; i < times; ++i) add(length, 0);
  }

  void add(int symbol, int extra) {
    items_[count_++] = {static_cast<uint8_t>(symbol), static_cast<uint8_t>(extra)};
  }

  CodeLengthItem items_[literalSymbols + distanceSymbols];
  int count_ = 0;
};

// Trailing zero lengths are not sent, down to the given minimum.
int trimmedCount(const uint8_t* lengths, int count, int minimum) {
  while (count > minimum && lengths[count - 1] == 0) --count;
  return count;
}

int trimmedOrderCount(const uint8_t* codeLengthLengths) {
  int count = codeLengthSymbols;
  while (count > 4 && codeLengthLengths[codeLengthOrder[static_cast<size_t>(count - 1)]] == 0) {
    --count;
  }
  return count;
}

void write(BitSink& sink, uint32_t bits, uint32_t count) {
  put(sink, bits, count);
  drain(sink);
}

}  // namespace

int buildDynamicHeader(const uint8_t* literalLengths, const uint8_t* distanceLengths, bool isFinal,
                       uint8_t* dst) {
  const int literalCount = trimmedCount(literalLengths, literalSymbols, endOfBlock + 1);
  const int distanceCount = trimmedCount(distanceLengths, distanceSymbols, 1);
  CodeLengthSequence sequence;
  sequence.append(literalLengths, literalCount);
  sequence.append(distanceLengths, distanceCount);

  uint32_t frequencies[codeLengthSymbols] = {};
  for (const CodeLengthItem& item : sequence) ++frequencies[item.symbol];
  uint8_t lengths[codeLengthSymbols];
  OutputBits codes[codeLengthSymbols];
  findCodeLengths(frequencies, codeLengthSymbols, maxCodeLengthCodeLength, lengths);
  assignCodes(lengths, codeLengthSymbols, codes);
  const int orderCount = trimmedOrderCount(lengths);

  BitSink sink = {0, 0, dst, dynamicHeaderRoom};
  write(sink, blockHeader(dynamicBlock, isFinal), blockHeaderBits);
  write(sink, static_cast<uint32_t>(literalCount - (endOfBlock + 1)), 5);
  write(sink, static_cast<uint32_t>(distanceCount - 1), 5);
  write(sink, static_cast<uint32_t>(orderCount - 4), 4);
  for (int i = 0; i < orderCount; ++i)
    write(sink, lengths[codeLengthOrder[static_cast<size_t>(i)]], 3);
  for (const CodeLengthItem& item : sequence) {
    write(sink, codes[item.symbol].bits, codes[item.symbol].count);
    write(sink, item.extra, extraBits(item.symbol));
  }
  const int bits = static_cast<int>(8 * (sink.dst - dst)) + static_cast<int>(sink.count);
  padToByte(sink);
  drain(sink);
  return bits;
}

}  // namespace zebdc::deflate
