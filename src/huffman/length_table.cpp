// The packed code-length table: 256 lengths as nibbles, the first in the high half of each byte.
//
// Nibbles 0 to 12 are data: a number is the current base plus the nibble. Nibbles 13, 14 and 15 set
// the base to 0, 13 and 26 and are followed by a data nibble. A length that stands twice beyond the
// one before it is followed by a count of further repeats. The length before the first counts as 0.

#include "frame/entry.h"
#include "huffman/state.h"

namespace zebdc::huffman {
namespace {

constexpr int baseStep = 13;
constexpr int firstSwitchNibble = 13;
constexpr int maxPendingRun = 34;
constexpr uint32_t largestNumber = 38;

class NibbleWriter {
 public:
  NibbleWriter(uint8_t* dst, int capacity) : dst_(dst), capacity_(capacity) {}

  // Numbers that the coding has no nibbles for are reported by the caller; here they only stay
  // safe.
  void putNumber(uint32_t number) {
    if (number > largestNumber) number = largestNumber;
    const uint32_t base = number / baseStep;
    if (base != base_) putNibble(firstSwitchNibble + base);
    base_ = base;
    putNibble(number - base * baseStep);
  }

  void finish() {
    if (halfByte_) putNibble(0);
  }

  int written() const { return written_; }
  bool truncated() const { return truncated_; }

 private:
  void putNibble(uint32_t nibble) {
    if (!halfByte_) {
      held_ = nibble << 4;
    } else if (written_ < capacity_) {
      dst_[written_++] = static_cast<uint8_t>(held_ | nibble);
    } else {
      truncated_ = true;
    }
    halfByte_ = !halfByte_;
  }

  uint8_t* dst_;
  int capacity_;
  int written_ = 0;
  uint32_t base_ = 0;
  uint32_t held_ = 0;
  bool halfByte_ = false;
  bool truncated_ = false;
};

void putRun(NibbleWriter& writer, uint32_t length, int run) {
  writer.putNumber(length);
  if (run < 2) return;
  writer.putNumber(length);
  writer.putNumber(static_cast<uint32_t>(run - 2));
}

void putLengths(NibbleWriter& writer, const int* lengths) {
  uint32_t previous = 0;
  int run = 0;
  for (int value = 0; value < 256; ++value) {
    const uint32_t length = static_cast<uint32_t>(lengths[value]);
    if (length == previous && run < maxPendingRun) {
      ++run;
      continue;
    }
    if (run > 0) putRun(writer, previous, run);
    if (length == previous) {
      run = 1;
    } else {
      writer.putNumber(length);
      previous = length;
      run = 0;
    }
  }
  if (run > 0) putRun(writer, previous, run);
  writer.finish();
}

// Reads zeros past the end and remembers that it did.
class NibbleReader {
 public:
  NibbleReader(const uint8_t* src, int available) : src_(src), available_(available) {}

  int getNumber() {
    int nibble = getNibble();
    if (nibble >= firstSwitchNibble) {
      base_ = (nibble - firstSwitchNibble) * baseStep;
      nibble = getNibble();
    }
    return base_ + nibble;
  }

  int consumed() const { return overrun() ? available_ : (nibbles_ + 1) / 2; }
  bool overrun() const { return (nibbles_ + 1) / 2 > available_; }

 private:
  int getNibble() {
    const int index = nibbles_++;
    if (index / 2 >= available_) return 0;
    const int byte = src_[index / 2];
    return index % 2 == 0 ? byte >> 4 : byte & 15;
  }

  const uint8_t* src_;
  int available_;
  int nibbles_ = 0;
  int base_ = 0;
};

void getLengths(NibbleReader& reader, int* lengths) {
  int previous = 0;
  int repeats = 0;
  int stored = 0;
  while (stored < 256) {
    const int length = reader.getNumber();
    repeats = length == previous ? repeats + 1 : 0;
    previous = length;
    lengths[stored++] = length;
    if (repeats < 2) continue;
    repeats = 0;
    for (int run = reader.getNumber(); run > 0 && stored < 256; --run) lengths[stored++] = length;
  }
}

bool allLengthsValid(const int* lengths) {
  for (int value = 0; value < 256; ++value) {
    if (lengths[value] < 0 || lengths[value] > maxCodeLength) return false;
  }
  return true;
}

}  // namespace
}  // namespace zebdc::huffman

ZEBDC_ENTRY(ZebStatus, zebsHuffLenCodeTablePack_8u)
(const int* pCodeLenTable, uint8_t* pDst, int* pDstLen) {
  using namespace zebdc::huffman;
  if (pCodeLenTable == nullptr || pDst == nullptr || pDstLen == nullptr) return zebErrNullPtr;
  if (*pDstLen < 1) return zebErrSize;
  NibbleWriter writer(pDst, *pDstLen);
  putLengths(writer, pCodeLenTable);
  *pDstLen = writer.written();
  if (!allLengthsValid(pCodeLenTable)) return zebErrCodeLenTable;
  return writer.truncated() ? zebErrSize : zebOk;
}

ZEBDC_ENTRY(ZebStatus, zebsHuffLenCodeTableUnpack_8u)
(const uint8_t* pSrc, int* pSrcLen, int* pCodeLenTable) {
  using namespace zebdc::huffman;
  if (pSrc == nullptr || pSrcLen == nullptr || pCodeLenTable == nullptr) return zebErrNullPtr;
  if (*pSrcLen < 1) return zebErrSize;
  NibbleReader reader(pSrc, *pSrcLen);
  getLengths(reader, pCodeLenTable);
  *pSrcLen = reader.consumed();
  return reader.overrun() ? zebErrSize : zebOk;
}
