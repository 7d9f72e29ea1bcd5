#include "stream_inflater.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace {

constexpr size_t codeLengthSymbols = 19;
constexpr uint32_t longestCodeLengthCode = 7;
constexpr std::array<uint8_t, codeLengthSymbols> codeLengthOrder = {
    16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};

[[noreturn]] void fail(const char* what) {
  throw std::runtime_error(what);
}

// The code of the code lengths, short enough to be looked up bit by bit: canonical codes of a
// length are consecutive numbers.
class CodeLengthCode {
 public:
  explicit CodeLengthCode(const std::array<uint8_t, codeLengthSymbols>& lengths) {
    for (uint32_t length = 1; length <= longestCodeLengthCode; ++length) {
      for (uint8_t symbol = 0; symbol < codeLengthSymbols; ++symbol) {
        if (lengths[symbol] == length) {
          symbols_.push_back(symbol);
          ++counts_[length];
        }
      }
    }
  }

  template <class TakeBit>
  uint8_t decode(TakeBit takeBit) const {
    uint32_t code = 0;
    uint32_t first = 0;
    size_t index = 0;
    for (uint32_t length = 1; length <= longestCodeLengthCode; ++length) {
      code = code << 1 | takeBit();
      if (code - first < counts_[length]) return symbols_[index + (code - first)];
      index += counts_[length];
      first = (first + counts_[length]) << 1;
    }
    fail("invalid code");
  }

 private:
  std::array<uint32_t, longestCodeLengthCode + 1> counts_{};
  std::vector<uint8_t> symbols_;
};

}  // namespace

StreamInflater::StreamInflater(const uint8_t* bytes, size_t count)
    : begin_(bytes), next_(bytes), end_(bytes + count), state_(new ZebInflateState()) {}

void StreamInflater::inflate(std::vector<uint8_t>& output) {
  outputBegin_ = output.size();
  size_ = outputBegin_;
  bool last = false;
  while (!last) {
    last = takeBits(1) != 0;
    switch (takeBits(2)) {
      case 0:
        copyStored(output);
        break;
      case 1:
        state_->tableKind = zebInflateTablesFixed;
        decodeSymbols(output);
        break;
      case 2:
        readCodes();
        decodeSymbols(output);
        break;
      default:
        fail("invalid block kind");
    }
  }
  output.resize(size_);
  // Whole bytes that are left belong to what follows the stream.
  next_ -= bitCount_ / 8;
  bits_ = 0;
  bitCount_ = 0;
}

// Up to 16 bits.
uint32_t StreamInflater::takeBits(uint32_t count) {
  while (bitCount_ < count) {
    if (next_ == end_) fail("unexpected end");
    bits_ |= static_cast<uint32_t>(*next_++) << bitCount_;
    bitCount_ += 8;
  }
  const uint32_t value = bits_ & ((1u << count) - 1);
  bits_ >>= count;
  bitCount_ -= count;
  return value;
}

void StreamInflater::copyStored(std::vector<uint8_t>& output) {
  takeBits(bitCount_ % 8);
  const uint32_t length = takeBits(16);
  if ((takeBits(16) ^ length) != 0xFFFF) fail("invalid stored block");
  // Bytes in hand come first.
  makeRoom(output, length);
  uint32_t left = length;
  for (; left > 0 && bitCount_ > 0; --left) output[size_++] = static_cast<uint8_t>(takeBits(8));
  if (left > static_cast<size_t>(end_ - next_)) fail("unexpected end");
  std::copy_n(next_, left, output.data() + size_);
  size_ += left;
  next_ += left;
}

void StreamInflater::readCodes() {
  const uint32_t litLenCount = takeBits(5) + 257;
  const uint32_t distanceCount = takeBits(5) + 1;
  const uint32_t sent = takeBits(4) + 4;
  std::array<uint8_t, codeLengthSymbols> codeLengths{};
  for (uint32_t i = 0; i < sent; ++i) {
    codeLengths[codeLengthOrder[i]] = static_cast<uint8_t>(takeBits(3));
  }
  const CodeLengthCode code(codeLengths);
  const auto takeBit = [this] { return takeBits(1); };

  std::vector<uint16_t> lengths;
  const size_t wanted = litLenCount + distanceCount;
  while (lengths.size() < wanted) {
    const uint8_t symbol = code.decode(takeBit);
    size_t times = 1;
    uint16_t length = symbol;
    if (symbol == 16) {
      if (lengths.empty()) fail("nothing to repeat");
      length = lengths.back();
      times = 3 + takeBits(2);
    } else if (symbol > 16) {
      length = 0;
      times = symbol == 17 ? 3 + takeBits(3) : 11 + takeBits(7);
    }
    if (times > wanted - lengths.size()) fail("too many code lengths");
    lengths.insert(lengths.end(), times, length);
  }
  if (zebsInflateBuildHuffTable(lengths.data(), litLenCount, distanceCount, state_.get()) !=
      zebOk) {
    fail("invalid code lengths");
  }
}

// The library copies matches within one buffer: all the output so far and the room for more.
void StreamInflater::decodeSymbols(std::vector<uint8_t>& output) {
  ZebInflateMode mode = zebInflateAtSymbol;
  do {
    makeRoom(output, 1);
    uint8_t* const buffer = output.data() + outputBegin_;
    const uint32_t index = static_cast<uint32_t>(size_ - outputBegin_);
    state_->history = buffer;
    state_->historySize = static_cast<uint32_t>(output.size() - outputBegin_);
    uint8_t* dst = buffer + index;
    uint32_t room = state_->historySize - index;
    uint32_t left =
        static_cast<uint32_t>(std::min<size_t>(static_cast<size_t>(end_ - next_), 1u << 30));
    if (zebsInflate_8u(&next_, &left, &bits_, &bitCount_, index, &dst, &room, index, &mode,
                       state_.get()) != zebOk) {
      fail("invalid data");
    }
    size_ = static_cast<size_t>(dst - output.data());
    if (mode != zebInflateBlockDone && next_ == end_ && room > 0) fail("unexpected end");
  } while (mode != zebInflateBlockDone);
}

// The vector clears what it grows by, so it grows only when it is full, and by a good part.
void StreamInflater::makeRoom(std::vector<uint8_t>& output, size_t count) const {
  constexpr size_t leastGrowth = size_t{1} << 16;
  if (output.size() - size_ >= count) return;
  output.resize(output.size() + std::max({count, leastGrowth, output.size() / 2}));
}
