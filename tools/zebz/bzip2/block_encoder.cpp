#include "bzip2/block_encoder.h"

#include <algorithm>

#include "bzip2/bzip2_format.h"

namespace zebz {
namespace {

constexpr size_t bufferSize = size_t{256} << 10;

// Writers of the format stop a little before its limit, and so do we.
constexpr size_t textSizeOf(int level) {
  return bzip2TextLimit(level) - 19;
}

// With so much more room than it has bytes to code, the zero-run coder never cuts a run.
constexpr size_t zeroRunReserve = 21;

constexpr size_t symbolsToGroup = 50;
constexpr size_t mostTables = 6;
constexpr size_t longestCode = 17;

// Table and selector counts; a selector in up to 6 bits for each group; for each table 5 bits and,
// for each symbol, as many steps of 2 bits as codes differ in length, and 1 bit.
constexpr size_t contextRoom(size_t alphabetSize, size_t symbolCount) {
  const size_t groups = symbolCount / symbolsToGroup + 1;
  return (18 + 6 * groups + mostTables * (5 + alphabetSize * (2 * longestCode + 1))) / 8 + 1;
}

constexpr size_t codesRoom(size_t symbolCount) {
  return symbolCount * longestCode / 8 + 8;
}

int intOf(size_t size) {
  return static_cast<int>(size);
}

size_t huffmanRecordSize(int level) {
  int size = 0;
  expectNoError(zebsEncodeHuffGetSize_BZ2_16u8u(intOf(textSizeOf(level) + 1), &size));
  return static_cast<size_t>(size);
}

size_t moveToFrontRecordSize() {
  int size = 0;
  expectNoError(zebsMTFGetSize_8u(&size));
  return static_cast<size_t>(size);
}

size_t sortScratchSize(int level) {
  int size = 0;
  expectNoError(zebsBWTFwdGetSize_8u(intOf(textSizeOf(level)), &size));
  return static_cast<size_t>(size);
}

// 16 bits tell which rows of 16 values have any in use, 16 more for each such row tell which.
void putValuesInUse(const std::array<uint8_t, 256>& inUse, BitWriter& out) {
  std::array<uint32_t, 16> rows{};
  for (size_t value = 0; value < inUse.size(); ++value) {
    rows[value / 16] = rows[value / 16] << 1 | inUse[value];
  }
  for (const uint32_t row : rows) out.put(row != 0 ? 1 : 0, 1);
  for (const uint32_t row : rows) {
    if (row != 0) out.put(row, 16);
  }
}

}  // namespace

// ---- Cutting

Bzip2BlockCutter::Bzip2BlockCutter(ByteSource& source, int level)
    : source_(source),
      textSize_(textSizeOf(level)),
      runs_(makeRecord<decltype(runs_)>(zebsEncodeRLEInitAlloc_BZ2_8u)),
      buffer_(bufferSize) {}

bool Bzip2BlockCutter::operator()(Bzip2Block& block) {
  expectNoError(zebsEncodeRLEInit_BZ2_8u(runs_.get()));
  if (block.text.size() == 0) block.text = Scratch<uint8_t>(textSize_);
  block.textLength = 0;
  block.crc = 0;
  // The last byte is kept for the count of a run that is open when the block is full.
  while (block.textLength < textSize_ - 1 && refill()) takeData(block);
  int flushed = 1;
  expectNoError(
      zebsEncodeRLEFlush_BZ2_8u(block.text.data() + block.textLength, &flushed, runs_.get()));
  block.textLength += static_cast<size_t>(flushed);
  expectNoError(zebsRLEGetInUseTable_8u(block.inUse.data(), runs_.get()));
  return block.textLength != 0;
}

bool Bzip2BlockCutter::refill() {
  if (unread_.empty()) unread_ = Bytes(buffer_).first(source_.read(buffer_));
  return !unread_.empty();
}

void Bzip2BlockCutter::takeData(Bzip2Block& block) {
  const uint8_t* cursor = unread_.data();
  int left = intOf(unread_.size());
  int written = intOf(textSize_ - 1 - block.textLength);
  expectNoError(zebsEncodeRLE_BZ2_8u(&cursor, &left, block.text.data() + block.textLength, &written,
                                     runs_.get()));
  block.textLength += static_cast<size_t>(written);
  const int taken = intOf(unread_.size()) - left;
  expectNoError(zebsCRC32_BZ2_8u(unread_.data(), taken, &block.crc));
  unread_ = unread_.last(static_cast<size_t>(left));
}

// ---- Coding

Bzip2BlockEncoder::Bzip2BlockEncoder(int level)
    : ranks_(moveToFrontRecordSize()),
      codes_(huffmanRecordSize(level)),
      scratch_(sortScratchSize(level)),
      sorted_(textSizeOf(level)),
      positions_(textSizeOf(level)),
      symbols_(textSizeOf(level) + zeroRunReserve + 1) {}

void Bzip2BlockEncoder::operator()(Bzip2Block& block) {
  const int valuesInUse =
      static_cast<int>(std::count(block.inUse.begin(), block.inUse.end(), uint8_t{1}));
  const int alphabetSize = bzip2AlphabetSize(valuesInUse);
  const int origin = sortedRanks(block, valuesInUse);
  const int symbolCount = codeZeroRuns(intOf(block.textLength), alphabetSize);

  BitWriter& out = block.coded;
  out.clear();
  out.put(bzip2BlockMagic, bzip2MagicBits);
  out.put(block.crc, bzip2CrcBits);
  out.put(0, 1);
  out.put(static_cast<uint32_t>(origin), bzip2OriginBits);
  putValuesInUse(block.inUse, out);
  writeCodes(alphabetSize, symbolCount, out);
}

// Sorts the text and turns it into move-to-front positions among the values in use. Returns the
// origin pointer.
int Bzip2BlockEncoder::sortedRanks(const Bzip2Block& block, int valuesInUse) {
  const int length = intOf(block.textLength);
  int origin = 0;
  expectNoError(zebsBWTFwd_8u(block.text.data(), sorted_.data(), length, &origin, scratch_.data()));

  // Passed through in decreasing order, the values in use stand at the front of the list in
  // increasing order: from then on, positions among them are positions in the list.
  std::array<uint8_t, 256> descending;
  uint8_t* end = descending.data();
  for (int value = 255; value >= 0; --value) {
    if (block.inUse[static_cast<size_t>(value)] != 0) *end++ = static_cast<uint8_t>(value);
  }
  expectNoError(zebsMTFInit_8u(ranks_.get()));
  expectNoError(zebsMTFFwd_8u(descending.data(), positions_.data(), valuesInUse, ranks_.get()));
  expectNoError(zebsMTFFwd_8u(sorted_.data(), positions_.data(), length, ranks_.get()));
  return origin;
}

// From positions to symbols and how often each occurs, the end of the block included.
int Bzip2BlockEncoder::codeZeroRuns(int textLength, int alphabetSize) {
  frequencies_.fill(0);
  const uint8_t* cursor = positions_.data();
  int symbolCount = intOf(symbols_.size() - 1);
  expectNoError(zebsEncodeZ1Z2_BZ2_8u16u(&cursor, &textLength, symbols_.data(), &symbolCount,
                                         frequencies_.data()));
  const int endOfBlock = alphabetSize - 1;
  symbols_[static_cast<size_t>(symbolCount)] = static_cast<uint16_t>(endOfBlock);
  ++frequencies_[static_cast<size_t>(endOfBlock)];
  return symbolCount + 1;
}

void Bzip2BlockEncoder::writeCodes(int alphabetSize, int symbolCount, BitWriter& out) {
  expectNoError(zebsEncodeHuffInit_BZ2_16u8u(alphabetSize, frequencies_.data(), symbols_.data(),
                                             symbolCount, codes_.get()));
  out.appendFrom(
      contextRoom(static_cast<size_t>(alphabetSize), static_cast<size_t>(symbolCount)),
      [&](uint32_t* accumulator, int* pending, uint8_t* dst, int* size) {
        expectNoError(zebsPackHuffContext_BZ2_16u8u(accumulator, pending, dst, size, codes_.get()));
      });
  out.appendFrom(codesRoom(static_cast<size_t>(symbolCount)),
                 [&](uint32_t* accumulator, int* pending, uint8_t* dst, int* size) {
                   const uint16_t* cursor = symbols_.data();
                   expectNoError(zebsEncodeHuff_BZ2_16u8u(accumulator, pending, &cursor,
                                                          &symbolCount, dst, size, codes_.get()));
                 });
}

}  // namespace zebz
