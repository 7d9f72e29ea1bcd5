#include "bzip2/block_decoder.h"

#include <array>

#include "bzip2/bzip2_format.h"

namespace zebz {
namespace {

// The selector count of a context has 15 bits, and the library's reader stores what it names.
constexpr int mostSelectors = (1 << 15) - 1;
constexpr int symbolsToGroup = 50;

// Four equal bytes and their count byte stand for up to 259 bytes.
constexpr size_t dataLimit(size_t textLength) {
  constexpr size_t countedRun = 5;
  constexpr size_t longestRun = 4 + 255;
  return textLength / countedRun * longestRun + textLength % countedRun;
}

int intOf(size_t size) {
  return static_cast<int>(size);
}

size_t huffmanRecordSize() {
  int size = 0;
  expectNoError(zebsDecodeHuffGetSize_BZ2_8u16u(mostSelectors * symbolsToGroup, &size));
  return static_cast<size_t>(size);
}

size_t scratchSize() {
  int size = 0;
  expectNoError(zebsDecodeBlockGetSize_BZ2_8u(uint32_t{bzip2LargestText}, &size));
  return static_cast<size_t>(size);
}

struct ValuesInUse {
  std::array<uint8_t, 256> flags{};
  int count = 0;
};

}  // namespace

// Takes bits from chunk after chunk, itself or through the library's readers.
class Bzip2BlockDecoder::Reader {
 public:
  explicit Reader(const ChunkSpan& span)
      : next_(span.chunks.begin()), end_(span.chunks.end()), unread_(Bytes(**next_)) {
    ++next_;
    unread_ = unread_.subspan(span.offset);
  }

  // Whether a field reached beyond the end; it then reads as zeros.
  bool isCut() const { return isCut_; }

  uint64_t bitsTaken() const { return 8 * bytesTaken_ - static_cast<uint64_t>(pending_); }

  uint32_t take(int count) {
    uint32_t field = 0;
    for (; count > 0; --count) {
      if (pending_ == 0 && !takeByte()) return 0;
      field = field << 1 | accumulator_ >> 31;
      accumulator_ <<= 1;
      --pending_;
    }
    return field;
  }

  // Calls a reader, read(accumulator, pending, source, length), with one chunk after the other
  // until it asks for no more. zebWarnSrcExhausted: there is no more.
  template <typename Read>
  ZebStatus takeBy(Read read) {
    while (fill()) {
      const uint8_t* cursor = unread_.data();
      int left = intOf(unread_.size());
      const ZebStatus status = read(&accumulator_, &pending_, &cursor, &left);
      bytesTaken_ += unread_.size() - static_cast<size_t>(left);
      unread_ = unread_.last(static_cast<size_t>(left));
      if (status != zebWarnSrcExhausted) return status;
    }
    return zebWarnSrcExhausted;
  }

 private:
  bool fill() {
    while (unread_.empty() && next_ != end_) unread_ = Bytes(**next_++);
    return !unread_.empty();
  }

  bool takeByte() {
    if (!fill()) {
      isCut_ = true;
      return false;
    }
    accumulator_ = uint32_t{unread_[0]} << 24;
    pending_ = 8;
    unread_ = unread_.subspan(1);
    ++bytesTaken_;
    return true;
  }

  std::vector<Chunk>::const_iterator next_;
  std::vector<Chunk>::const_iterator end_;
  Bytes unread_;
  uint64_t bytesTaken_ = 0;
  uint32_t accumulator_ = 0;  // its top bits, as many as are pending, come before the unread bytes
  int pending_ = 0;
  bool isCut_ = false;
};

namespace {

template <typename Reader>
ValuesInUse takeValuesInUse(Reader& reader) {
  ValuesInUse values;
  const uint32_t rows = reader.take(16);
  for (size_t value = 0; value < values.flags.size(); value += 16) {
    const bool isRowInUse = (rows << (value / 16) & 0x8000) != 0;
    const uint32_t row = isRowInUse ? reader.take(16) : 0;
    for (size_t i = 0; i < 16; ++i) {
      const uint8_t flag = row >> (15 - i) & 1;
      values.flags[value + i] = flag;
      values.count += flag;
    }
  }
  return values;
}

}  // namespace

Bzip2BlockDecoder::Bzip2BlockDecoder()
    : codes_(huffmanRecordSize()), symbols_(bzip2LargestText + 1), scratch_(scratchSize()) {}

void Bzip2BlockDecoder::decode(const ChunkSpan& span, int firstBit, DecodedBlock& block) {
  Reader reader(span);
  reader.take(firstBit);
  block.outcome = decodeBlock(reader, block);
  block.bits = reader.bitsTaken() - static_cast<uint64_t>(firstBit);
}

DecodedBlock::Outcome Bzip2BlockDecoder::decodeBlock(Reader& reader, DecodedBlock& block) {
  reader.take(bzip2MagicBits / 2);
  reader.take(bzip2MagicBits / 2);
  block.crc = reader.take(bzip2CrcBits);
  const bool isRandomised = reader.take(1) != 0;
  const int origin = intOf(reader.take(bzip2OriginBits));
  const ValuesInUse values = takeValuesInUse(reader);
  if (reader.isCut()) return Outcome::cut;
  if (isRandomised) return Outcome::randomised;
  if (values.count == 0 || origin >= intOf(bzip2LargestText)) return Outcome::damaged;

  const Outcome outcome = readSymbols(reader, bzip2AlphabetSize(values.count));
  if (outcome != Outcome::whole) return outcome;
  if (block.text.size() == 0) block.text = Scratch<uint8_t>(bzip2LargestText);
  int length = intOf(block.text.size());
  const ZebStatus status =
      zebsDecodeBlock_BZ2_16u8u(symbols_.data(), symbolCount_, block.text.data(), &length, origin,
                                values.count, values.flags.data(), scratch_.data());
  if (status != zebOk || origin >= length) return Outcome::damaged;
  block.textLength = static_cast<size_t>(length);
  return Outcome::whole;
}

// Up to the end of the block, whose symbol is not counted.
DecodedBlock::Outcome Bzip2BlockDecoder::readSymbols(Reader& reader, int alphabetSize) {
  expectNoError(zebsDecodeHuffInit_BZ2_8u16u(alphabetSize, codes_.get()));
  const auto readContext = [&](uint32_t* accumulator, int* pending, const uint8_t** src, int* len) {
    return zebsUnpackHuffContext_BZ2_8u16u(accumulator, pending, src, len, codes_.get());
  };
  symbolCount_ = 0;
  const auto readOn = [&](uint32_t* accumulator, int* pending, const uint8_t** src, int* len) {
    int count = intOf(symbols_.size()) - symbolCount_;
    const ZebStatus status = zebsDecodeHuff_BZ2_8u16u(
        accumulator, pending, src, len, symbols_.data() + symbolCount_, &count, codes_.get());
    symbolCount_ += count;
    return status == zebWarnSrcExhausted && symbolCount_ == intOf(symbols_.size()) ? zebWarnDstFull
                                                                                   : status;
  };
  ZebStatus status = reader.takeBy(readContext);
  if (status == zebOk) status = reader.takeBy(readOn);
  if (status == zebWarnSrcExhausted) return Outcome::cut;
  return status == zebOk && symbolCount_ > 0 ? Outcome::whole : Outcome::damaged;
}

// One byte more than can be used: the library's answer for a room that is just filled is not
// different from that for one that is too small.
Bzip2TextExpander::Bzip2TextExpander() : data_(dataLimit(bzip2LargestText) + 1) {}

Bytes Bzip2TextExpander::expand(Bytes text) {
  const uint8_t* cursor = text.data();
  int left = intOf(text.size());
  int size = intOf(dataLimit(text.size()) + 1);
  expectNoError(zebsDecodeRLE_BZ2_8u(&cursor, &left, data_.data(), &size));
  return {data_.data(), static_cast<size_t>(size)};
}

}  // namespace zebz
