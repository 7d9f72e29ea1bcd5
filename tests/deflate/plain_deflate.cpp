#include "deflate/plain_deflate.h"

#include <zlib.h>

#include <algorithm>
#include <functional>
#include <queue>

namespace zebdc::test {
namespace {

struct Range {
  int base;
  int extra;
};

// RFC 1951, 3.2.5, copied out of its two tables.
constexpr Range lengthRanges[29] = {
    {3, 0},  {4, 0},  {5, 0},  {6, 0},   {7, 0},   {8, 0},   {9, 0},   {10, 0},  {11, 1}, {13, 1},
    {15, 1}, {17, 1}, {19, 2}, {23, 2},  {27, 2},  {31, 2},  {35, 3},  {43, 3},  {51, 3}, {59, 3},
    {67, 4}, {83, 4}, {99, 4}, {115, 4}, {131, 5}, {163, 5}, {195, 5}, {227, 5}, {258, 0}};
constexpr Range distanceRanges[30] = {
    {1, 0},     {2, 0},     {3, 0},     {4, 0},      {5, 1},      {7, 1},
    {9, 2},     {13, 2},    {17, 3},    {25, 3},     {33, 4},     {49, 4},
    {65, 5},    {97, 5},    {129, 6},   {193, 6},    {257, 7},    {385, 7},
    {513, 8},   {769, 8},   {1025, 9},  {1537, 9},   {2049, 10},  {3073, 10},
    {4097, 11}, {6145, 11}, {8193, 12}, {12289, 12}, {16385, 13}, {24577, 13}};
constexpr int order[19] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};

int lastRangeFrom(std::span<const Range> ranges, int value) {
  int symbol = static_cast<int>(ranges.size()) - 1;
  while (ranges[static_cast<size_t>(symbol)].base > value) --symbol;
  return symbol;
}

int lengthSymbol(int length) {
  return lastRangeFrom(lengthRanges, length);
}
int distanceSymbol(int distance) {
  return lastRangeFrom(distanceRanges, distance);
}

// The canonical code of each symbol, most significant bit first.
std::vector<uint32_t> canonicalCodes(const CodeLengths& lengths) {
  std::vector<uint32_t> codes(lengths.size());
  uint32_t code = 0;
  for (int length = 1; length <= 15; ++length) {
    code <<= 1;
    for (size_t symbol = 0; symbol < lengths.size(); ++symbol) {
      if (lengths[symbol] == length) codes[symbol] = code++;
    }
  }
  return codes;
}

void putCode(BitString& out, uint32_t code, int length) {
  for (int bit = length - 1; bit >= 0; --bit) out.put((code >> bit) & 1, 1);
}

class BitReader {
 public:
  BitReader(const Bytes& bytes, size_t bit) : bytes_(bytes), bit_(bit) {}

  uint32_t take(int count) {
    uint32_t value = 0;
    for (int i = 0; i < count; ++i, ++bit_) {
      if (bit_ / 8 >= bytes_.size()) {
        failed_ = true;
        return 0;
      }
      value |= ((bytes_[bit_ / 8] >> (bit_ % 8)) & 1u) << i;
    }
    return value;
  }

  int takeSymbol(const CodeLengths& lengths) {
    const std::vector<uint32_t> codes = canonicalCodes(lengths);
    uint32_t code = 0;
    for (int length = 1; length <= 15 && !failed_; ++length) {
      code = code << 1 | take(1);
      for (size_t symbol = 0; symbol < lengths.size(); ++symbol) {
        if (lengths[symbol] == length && codes[symbol] == code) return static_cast<int>(symbol);
      }
    }
    failed_ = true;
    return 0;
  }

  bool failed() const { return failed_; }
  size_t position() const { return bit_; }

 private:
  const Bytes& bytes_;
  size_t bit_;
  bool failed_ = false;
};

// Calls back with (symbol, extra bits) for the run-length coded lengths.
void runLengthCode(std::span<const int> lengths, const std::function<void(int, int)>& emit) {
  for (size_t i = 0; i < lengths.size();) {
    const int length = lengths[i];
    size_t run = 1;
    while (i + run < lengths.size() && lengths[i + run] == length) ++run;
    i += run;
    if (length != 0) {
      emit(length, 0);
      --run;
    }
    while (run >= 3) {
      const size_t longest = length != 0 ? 6 : 138;
      const size_t part = std::min(run, longest);
      if (length != 0) {
        emit(16, 2);
      } else {
        emit(part <= 10 ? 17 : 18, part <= 10 ? 3 : 7);
      }
      run -= part;
    }
    for (; run > 0; --run) emit(length, 0);
  }
}

size_t sentCount(const CodeLengths& lengths, size_t minimum) {
  size_t count = lengths.size();
  while (count > minimum && lengths[count - 1] == 0) --count;
  return count;
}

}  // namespace

void BitString::put(uint64_t bits, int count) {
  for (int i = 0; i < count; ++i, ++size_) {
    if (size_ % 8 == 0) bytes_.push_back(0);
    bytes_.back() |= static_cast<uint8_t>(((bits >> i) & 1) << (size_ % 8));
  }
}

void BitString::padToByte() {
  size_ = bytes_.size() * 8;
}

BlockCodes fixedBlockCodes() {
  BlockCodes codes;
  codes.literals.assign(144, 8);
  codes.literals.resize(256, 9);
  codes.literals.resize(280, 7);
  codes.literals.resize(288, 8);
  codes.distances.assign(30, 5);
  return codes;
}

void putPairs(BitString& out, std::span<const ZebLZ77Pair> pairs, const BlockCodes& codes) {
  const std::vector<uint32_t> literals = canonicalCodes(codes.literals);
  const std::vector<uint32_t> distances = canonicalCodes(codes.distances);
  const auto putLiteral = [&](size_t symbol) {
    putCode(out, literals[symbol], codes.literals[symbol]);
  };
  for (const ZebLZ77Pair& pair : pairs) {
    if (pair.offset == 0) {
      putLiteral(pair.length);
      continue;
    }
    const int length = lengthSymbol(pair.length);
    putLiteral(static_cast<size_t>(257 + length));
    out.put(static_cast<uint64_t>(pair.length - lengthRanges[length].base),
            lengthRanges[length].extra);
    const size_t distance = static_cast<size_t>(distanceSymbol(pair.offset));
    putCode(out, distances[distance], codes.distances[distance]);
    out.put(static_cast<uint64_t>(pair.offset - distanceRanges[distance].base),
            distanceRanges[distance].extra);
  }
  putLiteral(256);
}

BlockFrequencies frequenciesOf(std::span<const ZebLZ77Pair> pairs) {
  BlockFrequencies frequencies;
  for (const ZebLZ77Pair& pair : pairs) {
    if (pair.offset == 0) {
      ++frequencies.literals[pair.length];
    } else {
      ++frequencies.literals[static_cast<size_t>(257 + lengthSymbol(pair.length))];
      ++frequencies.distances[static_cast<size_t>(distanceSymbol(pair.offset))];
    }
  }
  ++frequencies.literals[256];
  return frequencies;
}

uint64_t codeBits(const Frequencies& frequencies, const CodeLengths& lengths) {
  uint64_t bits = 0;
  for (size_t symbol = 0; symbol < frequencies.size(); ++symbol) {
    bits += uint64_t{frequencies[symbol]} * static_cast<uint64_t>(lengths[symbol]);
  }
  return bits;
}

uint64_t extraBits(std::span<const ZebLZ77Pair> pairs) {
  uint64_t bits = 0;
  for (const ZebLZ77Pair& pair : pairs) {
    if (pair.offset == 0) continue;
    bits += static_cast<uint64_t>(lengthRanges[lengthSymbol(pair.length)].extra +
                                  distanceRanges[distanceSymbol(pair.offset)].extra);
  }
  return bits;
}

uint64_t huffmanCost(const Frequencies& frequencies) {
  std::priority_queue<uint64_t, std::vector<uint64_t>, std::greater<>> nodes;
  for (const uint32_t frequency : frequencies) {
    if (frequency != 0) nodes.push(frequency);
  }
  if (nodes.size() == 1) return nodes.top();  // a code of no bits is not used
  uint64_t cost = 0;
  while (nodes.size() > 1) {
    uint64_t merged = nodes.top();
    nodes.pop();
    merged += nodes.top();
    nodes.pop();
    nodes.push(merged);
    cost += merged;
  }
  return cost;
}

CodeLengths packageMerge(const Frequencies& frequencies, int limit) {
  struct Item {
    uint64_t weight;
    std::vector<size_t> symbols;
  };
  const auto lighter = [](const Item& a, const Item& b) { return a.weight < b.weight; };
  std::vector<Item> coins;
  for (size_t symbol = 0; symbol < frequencies.size(); ++symbol) {
    if (frequencies[symbol] != 0) coins.push_back({frequencies[symbol], {symbol}});
  }
  CodeLengths lengths(frequencies.size(), 0);
  if (coins.size() < 2) {
    for (const Item& coin : coins) lengths[coin.symbols[0]] = 1;
    return lengths;
  }
  std::stable_sort(coins.begin(), coins.end(), lighter);
  std::vector<Item> items = coins;
  for (int level = 1; level < limit; ++level) {
    std::vector<Item> packages;
    for (size_t i = 0; i + 1 < items.size(); i += 2) {
      Item package = items[i];
      package.weight += items[i + 1].weight;
      package.symbols.insert(package.symbols.end(), items[i + 1].symbols.begin(),
                             items[i + 1].symbols.end());
      packages.push_back(std::move(package));
    }
    items.clear();
    std::merge(coins.begin(), coins.end(), packages.begin(), packages.end(),
               std::back_inserter(items), lighter);
  }
  for (size_t i = 0; i < 2 * (coins.size() - 1); ++i) {
    for (const size_t symbol : items[i].symbols) ++lengths[symbol];
  }
  return lengths;
}

uint64_t kraftSum(const CodeLengths& lengths) {
  uint64_t sum = 0;
  for (const int length : lengths) {
    if (length > 0) sum += uint64_t{1} << (32 - length);
  }
  return sum;
}

uint64_t dynamicHeaderBits(const BlockCodes& codes) {
  Frequencies frequencies(19);
  uint64_t bits = 3 + 5 + 5 + 4;
  const auto count = [&](int symbol, int extra) {
    ++frequencies[static_cast<size_t>(symbol)];
    bits += static_cast<uint64_t>(extra);
  };
  runLengthCode(std::span(codes.literals).first(sentCount(codes.literals, 257)), count);
  runLengthCode(std::span(codes.distances).first(sentCount(codes.distances, 1)), count);
  const CodeLengths lengths = packageMerge(frequencies, 7);
  size_t sent = 19;
  while (sent > 4 && lengths[static_cast<size_t>(order[sent - 1])] == 0) --sent;
  return bits + 3 * sent + codeBits(frequencies, lengths);
}

uint64_t bestDynamicBlockBits(std::span<const ZebLZ77Pair> pairs) {
  const BlockFrequencies frequencies = frequenciesOf(pairs);
  const BlockCodes codes = {packageMerge(frequencies.literals, 15),
                            packageMerge(frequencies.distances, 15)};
  return dynamicHeaderBits(codes) + codeBits(frequencies.literals, codes.literals) +
         codeBits(frequencies.distances, codes.distances) + extraBits(pairs);
}

std::optional<DynamicHeader> readDynamicHeader(const Bytes& stream, size_t bit) {
  BitReader in(stream, bit);
  DynamicHeader header = {};
  header.isFinal = in.take(1) != 0;
  if (in.take(2) != 2) return std::nullopt;
  header.literalCodes = static_cast<int>(in.take(5)) + 257;
  header.distanceCodes = static_cast<int>(in.take(5)) + 1;
  header.codeLengthCodes = static_cast<int>(in.take(4)) + 4;
  CodeLengths codeLengths(19, 0);
  for (int i = 0; i < header.codeLengthCodes; ++i) {
    codeLengths[static_cast<size_t>(order[i])] = static_cast<int>(in.take(3));
  }
  CodeLengths all;
  const size_t total = static_cast<size_t>(header.literalCodes + header.distanceCodes);
  while (all.size() < total && !in.failed()) {
    const int symbol = in.takeSymbol(codeLengths);
    ++header.lengthSymbols;
    if (symbol < 16) {
      all.push_back(symbol);
    } else if (symbol == 16) {
      if (all.empty()) return std::nullopt;
      all.insert(all.end(), 3 + in.take(2), all.back());
    } else {
      all.insert(all.end(), symbol == 17 ? 3 + in.take(3) : 11 + in.take(7), 0);
    }
  }
  if (in.failed() || all.size() != total) return std::nullopt;
  const auto border = all.begin() + header.literalCodes;
  header.codes.literals.assign(all.begin(), border);
  header.codes.literals.resize(286);
  header.codes.distances.assign(border, all.end());
  header.codes.distances.resize(30);
  header.endBit = in.position();
  return header;
}

std::optional<Bytes> inflateWithZlib(std::span<const uint8_t> stream) {
  z_stream z = {};
  if (inflateInit2(&z, -15) != Z_OK) return std::nullopt;
  Bytes input(stream.begin(), stream.end());
  z.next_in = input.data();
  z.avail_in = static_cast<uInt>(input.size());
  Bytes output;
  int result = Z_OK;
  while (result == Z_OK) {
    const size_t written = output.size();
    output.resize(written + std::max<size_t>(1 << 16, written));
    z.next_out = output.data() + written;
    z.avail_out = static_cast<uInt>(output.size() - written);
    result = inflate(&z, Z_NO_FLUSH);
    output.resize(output.size() - z.avail_out);
  }
  const bool complete = result == Z_STREAM_END && z.avail_in == 0;
  inflateEnd(&z);
  if (!complete) return std::nullopt;
  return output;
}

}  // namespace zebdc::test
