#include "inflate/streams.h"

#include <stdlib.h>
#include <zlib.h>

#include <algorithm>

#include "deflate/format.h"

namespace zebdc::test {

BitWriter& BitWriter::put(uint64_t value, int width) {
  for (int i = 0; i < width; ++i, ++bitCount_) {
    if (bitCount_ % 8 == 0) bytes_.push_back(0);
    bytes_.back() = static_cast<uint8_t>(bytes_.back() | ((value >> i) & 1) << (bitCount_ % 8));
  }
  return *this;
}

BitWriter& BitWriter::alignToByte() {
  bitCount_ = bytes_.size() * 8;
  return *this;
}

BitWriter& BitWriter::bytes(const Bytes& values) {
  bytes_.insert(bytes_.end(), values.begin(), values.end());
  return alignToByte();
}

Code::Code(Lengths lengths) : lengths_(std::move(lengths)), codes_(lengths_.size()) {
  uint32_t count[17] = {};
  for (const int length : lengths_) ++count[length];
  count[0] = 0;
  uint32_t next[17] = {};
  for (size_t length = 1; length <= 15; ++length) {
    next[length] = (next[length - 1] + count[length - 1]) << 1;
  }
  for (size_t i = 0; i < lengths_.size(); ++i) {
    if (lengths_[i] != 0) codes_[i] = next[lengths_[i]]++;
  }
}

void Code::put(BitWriter& out, size_t symbol) const {
  const int length = lengths_.at(symbol);
  if (length == 0) abort();
  for (int bit = length - 1; bit >= 0; --bit) out.put(codes_[symbol] >> bit, 1);
}

BlockWriter::BlockWriter(BitWriter& out, Code litLen, Code distance)
    : out_(out), litLen_(std::move(litLen)), distance_(std::move(distance)) {}

BlockWriter& BlockWriter::literal(uint8_t byte) {
  litLen_.put(out_, byte);
  return *this;
}

BlockWriter& BlockWriter::literals(const std::string& text) {
  for (const char c : text) literal(static_cast<uint8_t>(c));
  return *this;
}

BlockWriter& BlockWriter::lengthSymbol(int symbol, uint32_t extra, int extraBits) {
  litLen_.put(out_, static_cast<size_t>(symbol));
  out_.put(extra, extraBits);
  return *this;
}

BlockWriter& BlockWriter::distanceSymbol(int symbol, uint32_t extra, int extraBits) {
  distance_.put(out_, static_cast<size_t>(symbol));
  out_.put(extra, extraBits);
  return *this;
}

namespace {

// The last symbol whose base is not above the value.
template <class Codes>
size_t symbolFor(const Codes& codes, int value) {
  size_t symbol = codes.size() - 1;
  while (codes[symbol].base > value) --symbol;
  return symbol;
}

}  // namespace

BlockWriter& BlockWriter::match(int length, int distance) {
  const size_t lengthIndex = symbolFor(deflate::lengthCodes, length);
  const auto lengthCode = deflate::lengthCodes[lengthIndex];
  lengthSymbol(static_cast<int>(lengthIndex) + deflate::firstLengthSymbol,
               static_cast<uint32_t>(length - lengthCode.base), lengthCode.extraBits);
  const size_t distanceIndex = symbolFor(deflate::distanceCodes, distance);
  const auto distanceCode = deflate::distanceCodes[distanceIndex];
  return distanceSymbol(static_cast<int>(distanceIndex),
                        static_cast<uint32_t>(distance - distanceCode.base),
                        distanceCode.extraBits);
}

BlockWriter& BlockWriter::end() {
  litLen_.put(out_, deflate::endOfBlock);
  return *this;
}

BlockWriter fixedBlock(BitWriter& out, bool final) {
  out.put(final, 1).put(1, 2);
  Lengths litLen;
  for (int symbol = 0; symbol < 288; ++symbol)
    litLen.push_back(deflate::fixedLiteralLength(symbol));
  return BlockWriter(out, Code(litLen), Code(Lengths(32, 5)));
}

Code beginDynamicBlock(BitWriter& out, bool final, int litLenCount, int distanceCount) {
  out.put(final, 1).put(2, 2);
  out.put(static_cast<uint64_t>(litLenCount - 257), 5);
  out.put(static_cast<uint64_t>(distanceCount - 1), 5);
  out.put(19 - 4, 4);
  Lengths lengths(19, 4);  // 13 / 16 + 6 / 32: complete
  for (size_t symbol = 13; symbol < 19; ++symbol) lengths[symbol] = 5;
  for (const uint8_t symbol : deflate::codeLengthOrder) {
    out.put(static_cast<uint64_t>(lengths[symbol]), 3);
  }
  return Code(lengths);
}

BlockWriter dynamicBlock(BitWriter& out, bool final, const Lengths& litLen,
                         const Lengths& distance) {
  const Code lengthCode = beginDynamicBlock(out, final, static_cast<int>(litLen.size()),
                                            static_cast<int>(distance.size()));
  for (const int length : litLen) lengthCode.put(out, static_cast<size_t>(length));
  for (const int length : distance) lengthCode.put(out, static_cast<size_t>(length));
  return BlockWriter(out, Code(litLen), Code(distance));
}

void storedBlock(BitWriter& out, bool final, const Bytes& content) {
  out.put(final, 3).alignToByte();
  out.put(content.size(), 16).put(~content.size(), 16).bytes(content);
}

Lengths plainLitLenLengths() {
  // 256 / 512 + 28 / 64 + 2 / 32 = 1
  Lengths lengths(256, 9);
  lengths.insert(lengths.end(), 2, 5);
  lengths.insert(lengths.end(), 28, 6);
  return lengths;
}

Lengths plainDistanceLengths() {
  // 28 / 32 + 2 / 16 = 1
  Lengths lengths(30, 5);
  lengths[0] = lengths[1] = 4;
  return lengths;
}

Lengths longestLengths(size_t count, const std::vector<size_t>& symbols) {
  if (symbols.size() != 16) abort();
  Lengths lengths(count, 0);
  for (size_t i = 0; i < 16; ++i) lengths.at(symbols[i]) = std::min(static_cast<int>(i) + 1, 15);
  return lengths;
}

Bytes zlibDeflate(const Bytes& input, const ZlibSettings& settings) {
  z_stream stream = {};
  if (deflateInit2(&stream, settings.level, Z_DEFLATED, -15, settings.memLevel,
                   settings.strategy) != Z_OK) {
    abort();
  }
  if (!settings.dictionary.empty()) {
    deflateSetDictionary(&stream, settings.dictionary.data(),
                         static_cast<uInt>(settings.dictionary.size()));
  }
  const size_t step = settings.flushEvery == 0 ? input.size() : settings.flushEvery;
  Bytes output(deflateBound(&stream, static_cast<uLong>(input.size())) + 100 +
               (step == 0 ? 0 : input.size() / step * 16));
  stream.next_out = output.data();
  stream.avail_out = static_cast<uInt>(output.size());
  size_t position = 0;
  int result = Z_OK;
  do {
    const size_t count = std::min(step, input.size() - position);
    Bytes piece(input.begin() + static_cast<ptrdiff_t>(position),
                input.begin() + static_cast<ptrdiff_t>(position + count));
    position += count;
    stream.next_in = piece.data();
    stream.avail_in = static_cast<uInt>(count);
    result = ::deflate(&stream, position == input.size() ? Z_FINISH : settings.flush);
  } while (result == Z_OK && position < input.size());
  if (result != Z_STREAM_END) abort();
  output.resize(stream.total_out);
  deflateEnd(&stream);
  return output;
}

}  // namespace zebdc::test
