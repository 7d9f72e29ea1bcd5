// The functions whose caller keeps the state. Encoding: any window, any tables, any pieces give
// items that stand for the source, and their coding is the format's. Decoding: any code lengths and
// any bits end alike under every kernel tier and in any cut, and as zlib has it where zlib accepts
// them.

#include <string.h>
#include <zebdc/zebdc.h>
#include <zlib.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "deflate/format.h"
#include "fuzz.h"
#include "kernels/tier.h"

namespace {

using Bytes = std::vector<uint8_t>;
using zebdc::fuzz::Input;

// Bits, the first one lowest in the first byte.
class BitString {
 public:
  void put(uint64_t bits, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i, ++size_) {
      if (size_ % 8 == 0) bytes_.push_back(0);
      bytes_.back() |= static_cast<uint8_t>((bits >> i & 1) << (size_ % 8));
    }
  }
  size_t size() const { return size_; }
  const Bytes& bytes() const { return bytes_; }

 private:
  Bytes bytes_;
  size_t size_ = 0;
};

template <class T>
std::unique_ptr<T[]> exact(size_t count) {
  return std::unique_ptr<T[]>(new T[count]);
}

uint32_t nextRandom(uint32_t& state) {
  state = state * 1664525 + 1013904223;
  return state >> 8;
}

// Encoding ----------------------------------------------------------------------------------------

struct Setup {
  explicit Setup(Input& input)
      : winSize(256u << input.takeBelow(8)),
        hashSize(256u << input.takeBelow(9)),
        level(static_cast<int>(input.takeBelow(10))),
        tableKind(input.takeBelow(3)),
        start(input.takeBelow(2) == 0 ? 0 : input.takeWord()),
        piece(1 + input.takeBelow(5000)),
        room(static_cast<uint32_t>(1 + input.takeBelow(5000))),
        hashAhead(static_cast<uint32_t>(input.takeBelow(300))) {
    const auto dictionaryBytes = input.takeBytes(input.takeBelow(600));
    dictionary.assign(dictionaryBytes.begin(), dictionaryBytes.end());
    const size_t repetitions = 1 + input.takeBelow(40);
    const auto seed = input.rest();
    for (size_t i = 0; i < repetitions; ++i) {
      source.insert(source.end(), seed.begin(), seed.end());
      if (!seed.empty()) source[source.size() - 1 - i % seed.size()] ^= static_cast<uint8_t>(i);
    }
  }

  uint32_t winSize;
  uint32_t hashSize;
  int level;
  size_t tableKind;
  uint32_t start;  // position of the first byte
  size_t piece;
  uint32_t room;
  uint32_t hashAhead;  // bytes entered into the tables without being matched
  Bytes dictionary;
  Bytes source;
};

struct Items {
  std::vector<uint8_t> literals;
  std::vector<uint16_t> distances;

  bool operator==(const Items&) const = default;
};

class Matcher {
 public:
  explicit Matcher(const Setup& setup)
      : setup_(setup),
        window_(exact<uint8_t>(setup.winSize)),
        head_(exact<uint32_t>(setup.hashSize)),
        chain_(exact<uint32_t>(setup.winSize)),
        position_(setup.start) {
    uint32_t random = setup.start;
    const auto entry = [&] {
      return setup.tableKind == 0 ? 0 : setup.tableKind == 1 ? ~0u : nextRandom(random) << 6;
    };
    for (uint32_t i = 0; i < setup.hashSize; ++i) head_[i] = entry();
    for (uint32_t i = 0; i < setup.winSize; ++i) {
      chain_[i] = entry();
      window_[i] = static_cast<uint8_t>(nextRandom(random));
    }
    if (setup.start == 0 && !setup.dictionary.empty()) setDictionary();
  }

  Items run() {
    for (size_t at = 0; at < setup_.source.size(); at += setup_.piece) {
      takePiece(
          std::span(setup_.source).subspan(at, std::min(setup_.piece, setup_.source.size() - at)));
    }
    return items_;
  }

 private:
  void setDictionary() {
    const uint32_t count = static_cast<uint32_t>(setup_.dictionary.size());
    FUZZ_CHECK(zebsDeflateDictionarySet_8u(setup_.dictionary.data(), count, head_.get(),
                                           static_cast<int>(setup_.hashSize), chain_.get(),
                                           window_.get(), setup_.winSize, setup_.level) == zebOk);
    if (count >= 3) position_ = std::min(count, setup_.winSize);
  }

  void takePiece(std::span<const uint8_t> piece) {
    const auto copy = exact<uint8_t>(piece.size());
    std::copy(piece.begin(), piece.end(), copy.get());
    const uint8_t* src = copy.get();
    uint32_t left = static_cast<uint32_t>(piece.size());
    const uint32_t ahead = std::min(setup_.hashAhead, left);
    FUZZ_CHECK(zebsDeflateUpdateHash_8u(src, position_, ahead, head_.get(), setup_.hashSize,
                                        chain_.get(), setup_.winSize, setup_.level) == zebOk);
    while (left > 0) {
      const uint8_t* const begin = src;
      const uint32_t position = position_;
      uint32_t litFreq[286] = {};
      uint32_t distFreq[30] = {};
      const auto literals = exact<uint8_t>(setup_.room);
      const auto distances = exact<uint16_t>(setup_.room);
      uint32_t count = setup_.room;
      const ZebStatus status =
          zebsDeflateLZ77_8u(&src, &left, &position_, window_.get(), setup_.winSize, head_.get(),
                             chain_.get(), setup_.hashSize, litFreq, distFreq, literals.get(),
                             distances.get(), &count, setup_.level, zebLZ77FlushNone);
      FUZZ_CHECK(status == (left == 0 ? zebOk : zebWarnDstFull));
      FUZZ_CHECK(count <= setup_.room && position_ - position == src - begin);
      checkItems(begin, position, literals.get(), distances.get(), count);
      for (uint32_t i = 0; begin + i < src; ++i) {
        window_[(position + i) & (setup_.winSize - 1)] = begin[i];
      }
      items_.literals.insert(items_.literals.end(), literals.get(), literals.get() + count);
      items_.distances.insert(items_.distances.end(), distances.get(), distances.get() + count);
    }
  }

  // Every item stands for the bytes at its place: those of a match stand a distance before, in this
  // call's source or in the window.
  void checkItems(const uint8_t* src, uint32_t start, const uint8_t* literals,
                  const uint16_t* distances, uint32_t count) {
    uint32_t at = 0;
    for (uint32_t i = 0; i < count; ++i) {
      const uint32_t distance = distances[i];
      FUZZ_CHECK(distance < setup_.winSize);
      if (distance == 0) {
        FUZZ_CHECK(literals[i] == src[at++]);
        continue;
      }
      for (uint32_t end = at + literals[i] + 3; at < end; ++at) {
        const uint8_t earlier = distance <= at
                                    ? src[at - distance]
                                    : window_[(start + at - distance) & (setup_.winSize - 1)];
        FUZZ_CHECK(src[at] == earlier);
      }
    }
  }

  const Setup& setup_;
  std::unique_ptr<uint8_t[]> window_;
  std::unique_ptr<uint32_t[]> head_;
  std::unique_ptr<uint32_t[]> chain_;
  uint32_t position_;
  Items items_;
};

struct Codes {
  ZebDeflateHuffCode literals[286];
  ZebDeflateHuffCode distances[30];

  explicit Codes(uint32_t seed) {
    const auto fill = [&seed](ZebDeflateHuffCode& code) {
      code.len = static_cast<uint16_t>(nextRandom(seed) % 16);
      code.code = static_cast<uint16_t>(nextRandom(seed) & ((1u << code.len) - 1));
    };
    for (ZebDeflateHuffCode& code : literals) fill(code);
    for (ZebDeflateHuffCode& code : distances) fill(code);
  }
};

// The symbol whose range holds a value, and its extra bits.
template <class Ranges>
size_t symbolOf(const Ranges& ranges, uint32_t value) {
  size_t symbol = ranges.size() - 1;
  while (ranges[symbol].base > value) --symbol;
  return symbol;
}

void putItem(BitString& out, uint8_t literal, uint16_t distance, const Codes& codes) {
  if (distance == 0) {
    out.put(codes.literals[literal].code, codes.literals[literal].len);
    return;
  }
  const uint32_t length = literal + 3u;
  const size_t lengthIndex = symbolOf(zebdc::deflate::lengthCodes, length);
  const auto lengthRange = zebdc::deflate::lengthCodes[lengthIndex];
  const ZebDeflateHuffCode lengthCode = codes.literals[257 + lengthIndex];
  out.put(lengthCode.code, lengthCode.len);
  out.put(length - lengthRange.base, lengthRange.extraBits);
  const size_t distanceIndex = symbolOf(zebdc::deflate::distanceCodes, distance);
  const auto distanceRange = zebdc::deflate::distanceCodes[distanceIndex];
  out.put(codes.distances[distanceIndex].code, codes.distances[distanceIndex].len);
  out.put(static_cast<uint32_t>(distance - distanceRange.base), distanceRange.extraBits);
}

// Into a room that ends with the last whole byte.
void checkCoding(const Items& items, uint32_t seed) {
  const Codes codes(seed);
  const uint32_t pending = seed % 32;
  BitString expected;
  expected.put(seed, pending);
  for (size_t i = 0; i < items.literals.size(); ++i) {
    putItem(expected, items.literals[i], items.distances[i], codes);
  }
  const size_t whole = expected.size() / 8;
  const auto out = exact<uint8_t>(whole + 1);
  uint32_t index = 1;
  uint32_t bits = seed & ((uint32_t{1} << pending) - 1);
  uint32_t bitCount = pending;
  const uint8_t noLiteral = 0;
  const uint16_t noDistance = 0;
  FUZZ_CHECK(zebsDeflateHuff_8u(items.literals.empty() ? &noLiteral : items.literals.data(),
                                items.distances.empty() ? &noDistance : items.distances.data(),
                                static_cast<uint32_t>(items.literals.size()), codes.literals,
                                codes.distances, out.get(), &index, &bits, &bitCount) == zebOk);
  FUZZ_CHECK(bitCount < 32 && (index - 1) * size_t{8} + bitCount == expected.size());
  FUZZ_CHECK(memcmp(out.get() + 1, expected.bytes().data(), index - 1) == 0);
  for (uint32_t i = 0; i < bitCount; ++i) {
    const size_t bit = (index - 1) * size_t{8} + i;
    FUZZ_CHECK((bits >> i & 1) == (expected.bytes()[bit / 8] >> (bit % 8) & 1u));
  }
}

void checkEncoding(Input& input) {
  const uint32_t seed = input.takeWord();
  const Setup setup(input);
  Items first;
  for (int tier = 0; tier <= zebdc::kernels::bestTierOfThisMachine(); ++tier) {
    zebdc::kernels::activeTier = tier;
    const Items items = Matcher(setup).run();
    if (tier == 0) first = items;
    FUZZ_CHECK(items == first);
    checkCoding(items, seed);
  }
}

// Decoding ----------------------------------------------------------------------------------------

struct Block {
  std::vector<uint16_t> lengths;
  uint32_t litLens;
  uint32_t distances;
  uint32_t skippedBits;  // of the first byte
  Bytes data;
  Bytes dictionary;
};

// Code lengths that fill a share of the patterns, or any.
void makeLengths(Input& input, size_t count, std::vector<uint16_t>& lengths) {
  const size_t kind = input.takeBelow(4);
  const uint32_t longest = 1 + static_cast<uint32_t>(input.takeBelow(15));
  uint32_t seed = input.takeWord();
  uint32_t left = 1u << longest;
  const size_t begin = lengths.size();
  lengths.resize(begin + count);
  if (kind == 0) {
    for (size_t i = begin; i < lengths.size(); ++i) {
      lengths[i] = static_cast<uint16_t>(nextRandom(seed) % (longest + 2));
    }
    return;
  }
  for (size_t i = 0; i < 4 * count && left > 0; ++i) {
    uint16_t& length = lengths[begin + nextRandom(seed) % count];
    const uint32_t shorter = nextRandom(seed) % longest / 2;
    if (length != 0 || 1u << shorter > left) continue;
    length = static_cast<uint16_t>(longest - shorter);
    left -= 1u << shorter;
  }
}

Block makeBlock(Input& input) {
  Block block;
  block.litLens = 257 + static_cast<uint32_t>(input.takeBelow(30));
  block.distances = static_cast<uint32_t>(input.takeBelow(31));
  makeLengths(input, block.litLens, block.lengths);
  if (block.lengths[256] == 0) {
    const auto end = block.lengths.begin() + block.litLens;
    std::swap(block.lengths[256], *std::max_element(block.lengths.begin(), end));
  }
  if (block.distances > 0) makeLengths(input, block.distances, block.lengths);
  block.skippedBits = static_cast<uint32_t>(input.takeBelow(8));
  const auto dictionary = input.takeBytes(input.takeBelow(100));
  block.dictionary.assign(dictionary.begin(), dictionary.end());
  const auto data = input.rest();
  block.data.assign(data.begin(), data.end());
  return block;
}

constexpr size_t outputLimit = 3000;

struct Outcome {
  ZebStatus status = zebOk;
  ZebInflateMode mode = zebInflateAtSymbol;
  Bytes output;
  size_t bitsLeft = 0;  // of the data, behind the end of the block

  bool operator==(const Outcome&) const = default;
};

// Source and room come in pieces of up to the given sizes, 0 included.
Outcome decode(const Block& block, bool fixed, size_t piece, size_t room, uint32_t seed) {
  const auto state = std::make_unique<ZebInflateState>();
  Outcome outcome;
  if (!fixed) {
    outcome.status = zebsInflateBuildHuffTable(block.lengths.data(), block.litLens, block.distances,
                                               state.get());
    if (outcome.status != zebOk) return outcome;
  }
  outcome.output = block.dictionary;
  uint32_t bits = 0;
  uint32_t bitCount = 0;
  size_t at = 0;
  if (!block.data.empty()) {
    bits = static_cast<uint32_t>(block.data[at++] >> block.skippedBits);
    bitCount = 8 - block.skippedBits;
  }
  const size_t limit = block.dictionary.size() + outputLimit;
  for (;;) {
    const size_t srcSize = std::min<size_t>(nextRandom(seed) % (piece + 1), block.data.size() - at);
    const size_t roomSize =
        std::min<size_t>(nextRandom(seed) % (room + 1), limit - outcome.output.size());
    const auto source = exact<uint8_t>(srcSize);
    std::copy_n(block.data.begin() + static_cast<ptrdiff_t>(at), srcSize, source.get());
    const auto buffer = exact<uint8_t>(outcome.output.size() + roomSize);
    std::copy(outcome.output.begin(), outcome.output.end(), buffer.get());
    const uint8_t* src = source.get();
    uint32_t left = static_cast<uint32_t>(srcSize);
    const uint32_t index = static_cast<uint32_t>(outcome.output.size());
    uint8_t* dst = buffer.get() + index;
    uint32_t roomLeft = static_cast<uint32_t>(roomSize);
    state->history = buffer.get();
    state->historySize = index + roomLeft;
    outcome.status = zebsInflate_8u(&src, &left, &bits, &bitCount, index, &dst, &roomLeft, index,
                                    &outcome.mode, state.get());
    FUZZ_CHECK(bitCount <= 32 && src + left == source.get() + srcSize);
    FUZZ_CHECK(dst + roomLeft == buffer.get() + index + roomSize);
    at += srcSize - left;
    outcome.output.assign(buffer.get(), dst);
    const bool noSource = at == block.data.size() && roomLeft > 0;
    const bool noRoom = outcome.output.size() == limit;
    const bool stopped = outcome.mode == zebInflateBlockDone || noSource ||
                         (noRoom && (left > 0 || at == block.data.size()));
    if (outcome.status != zebOk || stopped) break;
    FUZZ_CHECK(left == 0 || roomLeft == 0);
  }
  if (outcome.status != zebOk) {
    outcome.mode = zebInflateBlockDone;  // an error leaves it as it was
  } else if (outcome.mode == zebInflateBlockDone) {
    outcome.bitsLeft = 8 * (block.data.size() - at) + bitCount;
  }
  return outcome;
}

// The block as a stream of its own, with a header that sends each length as it is.
Bytes asStream(const Block& block) {
  BitString out;
  out.put(5, 3);
  out.put(block.litLens - 257, 5);
  out.put(block.distances - 1, 5);
  out.put(19 - 4, 4);
  for (int i = 0; i < 19; ++i) out.put(zebdc::deflate::codeLengthOrder[i] < 16 ? 4 : 0, 3);
  for (const uint16_t length : block.lengths) {
    for (int bit = 3; bit >= 0; --bit) out.put(length >> bit & 1u, 1);
  }
  for (size_t i = 0; i < block.data.size(); ++i) {
    const uint32_t skipped = i == 0 ? block.skippedBits : 0;
    out.put(block.data[i] >> skipped, 8 - skipped);
  }
  return out.bytes();
}

// True where zlib decodes the block to its end.
bool zlibDecodes(const Block& block, Bytes& output) {
  const bool sendable =
      block.distances > 0 && *std::max_element(block.lengths.begin(), block.lengths.end()) <= 15;
  if (!sendable) return false;
  Bytes stream = asStream(block);
  z_stream z = {};
  FUZZ_CHECK(inflateInit2(&z, -15) == Z_OK);
  if (!block.dictionary.empty()) {
    inflateSetDictionary(&z, block.dictionary.data(), static_cast<uInt>(block.dictionary.size()));
  }
  output.resize(outputLimit);
  z.next_in = stream.data();
  z.avail_in = static_cast<uInt>(stream.size());
  z.next_out = output.data();
  z.avail_out = static_cast<uInt>(output.size());
  const bool decoded = inflate(&z, Z_FINISH) == Z_STREAM_END;
  output.resize(z.total_out);
  output.insert(output.begin(), block.dictionary.begin(), block.dictionary.end());
  inflateEnd(&z);
  return decoded;
}

void checkDecoding(Input& input) {
  const uint32_t seed = input.takeWord();
  const size_t piece = 1 + input.takeBelow(50);
  const size_t room = 1 + input.takeBelow(400);
  const bool fixed = input.takeBelow(8) == 0;
  const Block block = makeBlock(input);
  Outcome first;
  for (int tier = 0; tier <= zebdc::kernels::bestTierOfThisMachine(); ++tier) {
    zebdc::kernels::activeTier = tier;
    const Outcome outcome = decode(block, fixed, SIZE_MAX / 2, SIZE_MAX / 2, 0);
    if (tier == 0) first = outcome;
    FUZZ_CHECK(outcome == first);
    FUZZ_CHECK(decode(block, fixed, piece, room, seed) == first);
  }
  Bytes expected;
  if (!fixed && zlibDecodes(block, expected)) {
    FUZZ_CHECK(first.status == zebOk && first.mode == zebInflateBlockDone);
    FUZZ_CHECK(first.output == expected);
  }
}

// Remapping ---------------------------------------------------------------------------------------

void checkRemapping(Input& input) {
  const auto frequencyBytes = input.takeBytes(256);
  uint8_t frequencies[256] = {};
  std::copy(frequencyBytes.begin(), frequencyBytes.end(), frequencies);
  const bool flags = input.takeBelow(2) == 0;
  const auto rest = input.rest();
  Bytes bytes(rest.begin(), rest.end());
  if (bytes.empty()) return;
  if (flags) {
    std::fill_n(frequencies, 256, uint8_t{0});
    for (const uint8_t byte : bytes) frequencies[byte] = 1;
  }
  const Bytes before = bytes;
  uint32_t dictLen = 0;
  const int count = static_cast<int>(bytes.size());
  FUZZ_CHECK(zebsReduceDictionary_8u_I(frequencies, bytes.data(), count, &dictLen) == zebOk);
  const ZebStatus status =
      zebsExpandDictionary_8u_I(frequencies, bytes.data(), count, static_cast<int>(dictLen));
  FUZZ_CHECK(status == (dictLen == 0 ? zebErrSize : zebOk));
  if (flags) FUZZ_CHECK(bytes == before);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  switch (input.takeBelow(5)) {
    case 0:
    case 1:
      checkEncoding(input);
      break;
    case 2:
    case 3:
      checkDecoding(input);
      break;
    default:
      checkRemapping(input);
  }
  return 0;
}
