#include "stream_deflater.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <stdexcept>
#include <utility>

namespace {

constexpr int maxCodeLength = 15;
constexpr int maxCodeLengthCodeLength = 7;
constexpr size_t codeLengthSymbols = 19;
constexpr std::array<uint8_t, codeLengthSymbols> codeLengthOrder = {
    16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};

void require(ZebStatus status) {
  if (status < 0) throw std::runtime_error("zebDC answered " + std::to_string(status));
}

// Moves codes up until none is longer than the limit: each step turns one of the longest allowed
// code above the bottom into two of the next length, and so makes room for two that were too long.
void limitCounts(std::vector<uint32_t>& counts, size_t limit) {
  for (size_t length = counts.size() - 1; length > limit; --length) {
    while (counts[length] > 0) {
      size_t donor = limit - 1;
      while (counts[donor] == 0) --donor;
      counts[length] -= 2;
      counts[length - 1] += 1;
      counts[donor] -= 1;
      counts[donor + 1] += 2;
    }
  }
}

// Huffman code lengths with none above the limit.
std::vector<uint8_t> limitedLengths(const uint32_t* frequencies, size_t symbols, size_t limit) {
  struct Node {
    uint64_t weight;
    size_t parent;
  };
  std::vector<size_t> order;
  for (size_t i = 0; i < symbols; ++i) {
    if (frequencies[i] != 0) order.push_back(i);
  }
  std::vector<uint8_t> lengths(symbols);
  const size_t leaves = order.size();
  if (leaves < 2) {
    if (leaves == 1) lengths[order[0]] = 1;
    return lengths;
  }
  std::stable_sort(order.begin(), order.end(),
                   [&](size_t a, size_t b) { return frequencies[a] < frequencies[b]; });

  // Merged nodes arise in ascending order: two queues, of leaves and of merged nodes, suffice.
  std::vector<Node> nodes;
  for (const size_t symbol : order) nodes.push_back({frequencies[symbol], 0});
  size_t nextLeaf = 0;
  size_t nextMerged = leaves;
  const auto takeLightest = [&](size_t parent) {
    const bool leaf = nextLeaf < leaves && (nextMerged == nodes.size() ||
                                            nodes[nextLeaf].weight <= nodes[nextMerged].weight);
    Node& node = nodes[leaf ? nextLeaf++ : nextMerged++];
    node.parent = parent;
    return node.weight;
  };
  while (nodes.size() < 2 * leaves - 1) {
    const size_t parent = nodes.size();
    const uint64_t first = takeLightest(parent);
    const uint64_t second = takeLightest(parent);
    nodes.push_back({first + second, 0});
  }

  std::vector<size_t> depths(nodes.size());
  std::vector<uint32_t> counts(leaves + limit);
  for (size_t i = nodes.size() - 1; i-- > 0;) {
    depths[i] = depths[nodes[i].parent] + 1;
    if (i < leaves) ++counts[depths[i]];
  }
  limitCounts(counts, limit);
  size_t next = 0;
  for (size_t length = limit; length > 0; --length) {
    for (uint32_t i = 0; i < counts[length]; ++i)
      lengths[order[next++]] = static_cast<uint8_t>(length);
  }
  return lengths;
}

// Canonical codes (RFC 1951, 3.2.2), bit-reversed for output.
std::vector<ZebDeflateHuffCode> codesFor(const std::vector<uint8_t>& lengths) {
  std::array<uint32_t, maxCodeLength + 1> first{};
  uint32_t code = 0;
  std::array<uint32_t, maxCodeLength + 1> counts{};
  for (const uint8_t length : lengths) ++counts[length];
  counts[0] = 0;
  for (size_t length = 1; length <= maxCodeLength; ++length) {
    code = (code + counts[length - 1]) << 1;
    first[length] = code;
  }
  std::vector<ZebDeflateHuffCode> codes(lengths.size());
  for (size_t symbol = 0; symbol < lengths.size(); ++symbol) {
    const uint8_t length = lengths[symbol];
    if (length == 0) continue;
    const uint32_t forward = first[length]++;
    uint32_t reversed = 0;
    for (int bit = 0; bit < length; ++bit)
      reversed |= ((forward >> bit) & 1u) << (length - 1 - bit);
    codes[symbol] = {static_cast<uint16_t>(reversed), length};
  }
  return codes;
}

// One symbol of the coded length sequence, with its extra bits.
struct LengthItem {
  uint8_t symbol;
  uint8_t extra;
  uint8_t extraBits;
};

// Runs of lengths as repeats (RFC 1951, 3.2.7).
std::vector<LengthItem> runLengthCoded(const std::vector<uint8_t>& lengths) {
  std::vector<LengthItem> items;
  for (size_t i = 0; i < lengths.size();) {
    const uint8_t length = lengths[i];
    size_t run = 1;
    while (i + run < lengths.size() && lengths[i + run] == length) ++run;
    i += run;
    if (length != 0) {
      items.push_back({length, 0, 0});
      --run;
    }
    while (run >= 3) {
      const size_t most = length != 0 ? 6 : run < 11 ? 10 : 138;
      const size_t taken = std::min(run, most);
      if (length != 0) {
        items.push_back({16, static_cast<uint8_t>(taken - 3), 2});
      } else if (taken < 11) {
        items.push_back({17, static_cast<uint8_t>(taken - 3), 3});
      } else {
        items.push_back({18, static_cast<uint8_t>(taken - 11), 7});
      }
      run -= taken;
    }
    for (; run > 0; --run) items.push_back({length, 0, 0});
  }
  return items;
}

// Without trailing zeros, but with at least the given number of lengths.
std::vector<uint8_t> trimmed(std::vector<uint8_t> lengths, size_t least) {
  while (lengths.size() > least && lengths.back() == 0) lengths.pop_back();
  return lengths;
}

}  // namespace

StreamDeflater::StreamDeflater(int level, Sink sink)
    : level_(level),
      sink_(std::move(sink)),
      window_(windowSize),
      hashHead_(hashSize, 0xFFFFFFFFu),
      hashPrev_(windowSize),
      literals_(itemsPerBlock),
      distances_(itemsPerBlock),
      // An item takes up to 6 bytes; the rest is for headers and pending bits.
      out_(6 * itemsPerBlock + 4096) {}

void StreamDeflater::write(const uint8_t* bytes, size_t count) {
  while (count > 0) {
    const uint8_t* const before = bytes;
    uint32_t left = static_cast<uint32_t>(std::min<size_t>(count, 1u << 30));
    uint32_t items = itemsPerBlock - items_;
    const ZebStatus status = zebsDeflateLZ77_8u(
        &bytes, &left, &position_, window_.data(), windowSize, hashHead_.data(), hashPrev_.data(),
        hashSize, literalFrequencies_.data(), distanceFrequencies_.data(),
        literals_.data() + items_, distances_.data() + items_, &items, level_, zebLZ77FlushNone);
    require(status);
    items_ += items;
    const size_t consumed = static_cast<size_t>(bytes - before);
    count -= consumed;
    copyIntoWindow(before, static_cast<uint32_t>(consumed));
    if (status == zebWarnDstFull) writeBlock(false);
  }
}

void StreamDeflater::finish() {
  writeBlock(true);
  if (pendingCount_ > 0) putBits(0, 8 - pendingCount_ % 8);
  emit();
}

// The consumed bytes end just before position_.
void StreamDeflater::copyIntoWindow(const uint8_t* bytes, uint32_t count) {
  const uint32_t kept = std::min(count, windowSize);
  const uint8_t* from = bytes + (count - kept);
  const uint32_t place = (position_ - kept) % windowSize;
  const uint32_t untilEnd = std::min(kept, windowSize - place);
  std::memcpy(window_.data() + place, from, untilEnd);
  std::memcpy(window_.data(), from + untilEnd, kept - untilEnd);
}

void StreamDeflater::putBits(uint32_t bits, uint32_t count) {
  pendingBits_ |= bits << pendingCount_;
  pendingCount_ += count;
  while (pendingCount_ >= 8) {
    out_[outSize_++] = static_cast<uint8_t>(pendingBits_);
    pendingBits_ >>= 8;
    pendingCount_ -= 8;
  }
}

void StreamDeflater::putHeader(const std::vector<uint8_t>& literalLengths,
                               const std::vector<uint8_t>& distanceLengths, bool last) {
  std::vector<uint8_t> sequence = literalLengths;
  sequence.insert(sequence.end(), distanceLengths.begin(), distanceLengths.end());
  const std::vector<LengthItem> items = runLengthCoded(sequence);
  std::array<uint32_t, codeLengthSymbols> frequencies{};
  for (const LengthItem& item : items) ++frequencies[item.symbol];
  const std::vector<uint8_t> lengths =
      limitedLengths(frequencies.data(), codeLengthSymbols, maxCodeLengthCodeLength);
  const std::vector<ZebDeflateHuffCode> codes = codesFor(lengths);
  size_t sent = codeLengthSymbols;
  while (sent > 4 && lengths[codeLengthOrder[sent - 1]] == 0) --sent;

  putBits(last ? 5 : 4, 3);
  putBits(static_cast<uint32_t>(literalLengths.size() - 257), 5);
  putBits(static_cast<uint32_t>(distanceLengths.size() - 1), 5);
  putBits(static_cast<uint32_t>(sent - 4), 4);
  for (size_t i = 0; i < sent; ++i) putBits(lengths[codeLengthOrder[i]], 3);
  for (const LengthItem& item : items) {
    putBits(codes[item.symbol].code, codes[item.symbol].len);
    putBits(item.extra, item.extraBits);
  }
}

// Writes the items at hand as a dynamic block.
void StreamDeflater::writeBlock(bool last) {
  literalFrequencies_[endOfBlock] = 1;
  // Some decoders want at least two codes in an alphabet.
  if (literalFrequencies_[0] == 0) literalFrequencies_[0] = 1;
  if (distanceFrequencies_[0] == 0) distanceFrequencies_[0] = 1;
  if (distanceFrequencies_[1] == 0) distanceFrequencies_[1] = 1;
  std::vector<uint8_t> literalLengths =
      limitedLengths(literalFrequencies_.data(), literalSymbols, maxCodeLength);
  std::vector<uint8_t> distanceLengths =
      limitedLengths(distanceFrequencies_.data(), distanceSymbols, maxCodeLength);
  const std::vector<Code> literalCodes = codesFor(literalLengths);
  const std::vector<Code> distanceCodes = codesFor(distanceLengths);

  putHeader(trimmed(literalLengths, 257), trimmed(distanceLengths, 1), last);
  require(zebsDeflateHuff_8u(literals_.data(), distances_.data(), items_, literalCodes.data(),
                             distanceCodes.data(), out_.data(), &outSize_, &pendingBits_,
                             &pendingCount_));
  putBits(literalCodes[endOfBlock].code, literalCodes[endOfBlock].len);

  emit();
  items_ = 0;
  literalFrequencies_.fill(0);
  distanceFrequencies_.fill(0);
}

void StreamDeflater::emit() {
  sink_(out_.data(), outSize_);
  outSize_ = 0;
}
