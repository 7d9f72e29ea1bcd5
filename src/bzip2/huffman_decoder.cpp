// Multi-table Huffman coding: reading the coding context of a block and its symbols.
//
// Both readers stop where the source ends and go on in the next call. They keep to one rule of
// reading, so that the caller's cursor and accumulator are always the same for the same symbols:
// bytes are added one by one until a field, or the 20 bits that the longest code needs, is present.

#include <string.h>

#include <algorithm>
#include <bit>

#include "frame/entry.h"
#include "frame/memory.h"
#include "kernels/move_to_front.h"
#include "kernels/multi_huffman.h"

namespace zebdc::bzip2 {
namespace {

using kernels::HuffmanLongCodes;
using kernels::HuffmanPairs;

constexpr int groupSize = kernels::huffmanGroupSize;
constexpr int mostSymbols = kernels::huffmanRowSize;
constexpr int mostTables = kernels::huffmanTableLimit;
constexpr int fewestTables = 2;
constexpr int longestCode = kernels::huffmanLongestRead;
constexpr int quickBits = kernels::huffmanFirstLong - 1;

// Codes of up to 8 bits, by the next 8 bits of the stream: the symbol in bits 0 to 8, its length in
// bits 12 to 15. Longer ones by length.
struct DecodingTable {
  uint16_t quick[1 << quickBits];
  HuffmanLongCodes longCodes;
  uint8_t lengths[mostSymbols];
};

constexpr int quickLengthShift = 12;
constexpr uint16_t quickSymbol = 0x1FF;

}  // namespace
}  // namespace zebdc::bzip2

// Followed by the selectors, one byte for each group.
struct ZebDecodeHuffState_BZ2 {
  int32_t alphaSize;
  int32_t numTables;
  int32_t numSelectors;

  // The context's reader.
  int32_t phase;
  int32_t tablesRead;
  int32_t selectorsRead;
  int32_t symbolsRead;    // of the current table
  int32_t currentLength;  // 0 before the starting length of a table is read

  // The decoder's place.
  int32_t groups;  // selectors that may be used: none before the whole context is read
  int32_t group;
  int32_t symbolsInGroup;

  zebdc::bzip2::DecodingTable* tables;
  uint8_t* selectors;
  zebdc::bzip2::DecodingTable tableArea[zebdc::bzip2::mostTables];
};

namespace zebdc::bzip2 {
namespace {

using State = ZebDecodeHuffState_BZ2;

enum Phase : int32_t { phaseHeader = 0, phaseSelectors = 1, phaseLengths = 2 };

constexpr int fixedSize = 9364;
static_assert(sizeof(State) <= fixedSize);

// The caller's bit accumulator and source.
class BitReader {
 public:
  BitReader(uint32_t code, int count, const uint8_t* src, int srcLen)
      : count_(std::clamp(count, 0, 32)), begin_(src), next_(src), end_(src + srcLen) {
    const uint64_t valid = ~(~uint64_t{0} >> count_);
    bits_ = static_cast<uint32_t>((uint64_t{code} << 32 & valid) >> 32);
  }

  // Adds bytes until so many bits, at most 24, are present; false if the source ends before.
  bool need(int bits) {
    while (count_ < bits) {
      if (next_ == end_) return false;
      bits_ |= uint32_t{*next_++} << (24 - count_);
      count_ += 8;
    }
    return true;
  }

  uint32_t peek(int bits) const { return bits_ >> (32 - bits); }
  int leadingOnes() const { return static_cast<int>(std::countl_one(bits_)); }

  void consume(int bits) {
    bits_ <<= bits;
    count_ -= bits;
  }

  uint32_t take(int bits) {
    const uint32_t field = peek(bits);
    consume(bits);
    return field;
  }

  int left() const { return static_cast<int>(end_ - next_); }

  void finish(uint32_t* pCode, int* pCodeLenBits, const uint8_t** ppSrc, int* pSrcLen) const {
    *pCode = bits_;
    *pCodeLenBits = count_;
    *pSrcLen -= static_cast<int>(next_ - *ppSrc);
    *ppSrc = next_;
  }

  // For the kernel, which reads ahead; afterwards, what is not needed yet goes back to the source.
  void lend(kernels::MultiHuffmanInput& input) const {
    input.src = next_;
    input.srcEnd = end_;
    input.bits = uint64_t{bits_} << 32;
    input.count = count_;
  }

  void takeBack(const kernels::MultiHuffmanInput& input) {
    const int unused = static_cast<int>(std::min<ptrdiff_t>(input.count / 8, input.src - begin_));
    next_ = input.src - unused;
    count_ = input.count - 8 * unused;
    const uint64_t valid = ~(~uint64_t{0} >> count_);
    bits_ = static_cast<uint32_t>((input.bits & valid) >> 32);
  }

 private:
  uint32_t bits_;
  int count_;
  const uint8_t* begin_;
  const uint8_t* next_;
  const uint8_t* end_;
};

// ---- Decoding tables ----------------------------------------------------------------------------

// Sorts the symbols by code length and finds where the codes of each length begin. False if the
// lengths ask for more codes than there are; a code may be incomplete.
bool buildLongCodes(const uint8_t* lengths, int alphaSize, HuffmanLongCodes& codes) {
  int counts[longestCode + 1] = {};
  for (int s = 0; s < alphaSize; ++s) ++counts[lengths[s]];

  int next[longestCode + 1];
  uint32_t limit = 0;  // the first code of a length, followed by zeros up to the longest one
  int base = 0;
  for (int length = 1; length <= longestCode; ++length) {
    next[length] = base;
    if (length >= kernels::huffmanFirstLong) {
      codes.limits[length - kernels::huffmanFirstLong] = limit;
      codes.bases[length - kernels::huffmanFirstLong] = static_cast<uint16_t>(base);
    }
    limit += static_cast<uint32_t>(counts[length]) << (longestCode - length);
    if (limit > 1u << longestCode) return false;
    base += counts[length];
  }
  codes.limits[kernels::huffmanLongLengths] = limit;
  for (int s = 0; s < alphaSize; ++s) codes.symbols[next[lengths[s]]++] = static_cast<uint16_t>(s);
  return true;
}

// Calls assign(first pattern, number of patterns, symbol, length) for the codes of up to maxBits
// bits, patterns having so many bits.
template <class Assign>
void forShortCodes(const DecodingTable& table, int alphaSize, int maxBits, Assign assign) {
  uint32_t pattern = 0;
  for (int i = 0; i < alphaSize; ++i) {
    const uint16_t symbol = table.longCodes.symbols[i];
    const int length = table.lengths[symbol];
    if (length > maxBits) return;
    const uint32_t patterns = 1u << (maxBits - length);
    assign(pattern, patterns, symbol, length);
    pattern += patterns;
  }
}

bool buildTable(DecodingTable& table, int alphaSize) {
  if (!buildLongCodes(table.lengths, alphaSize, table.longCodes)) return false;
  forShortCodes(table, alphaSize, quickBits,
                [&](uint32_t pattern, uint32_t patterns, uint16_t symbol, int length) {
                  const int entry = symbol | length << quickLengthShift;
                  std::fill_n(table.quick + pattern, patterns, static_cast<uint16_t>(entry));
                });
  return true;
}

// The look-up of the fast decoder: two symbols where both codes fit its bits.
void buildPairs(const DecodingTable& table, int alphaSize, HuffmanPairs& pairs) {
  using namespace kernels;
  constexpr uint32_t patternCount = 1u << huffmanPairBits;
  struct Single {
    uint16_t symbol;
    uint16_t length;  // 0: none
  };
  Single singles[patternCount] = {};
  forShortCodes(
      table, alphaSize, huffmanPairBits,
      [&](uint32_t pattern, uint32_t patterns, uint16_t symbol, int length) {
        if (symbol == alphaSize - 1) return;
        std::fill_n(singles + pattern, patterns, Single{symbol, static_cast<uint16_t>(length)});
      });
  for (uint32_t pattern = 0; pattern < patternCount; ++pattern) {
    const Single first = singles[pattern];
    const Single second = singles[(pattern << first.length) % patternCount];
    uint32_t entry = 0;
    if (first.length != 0) {
      const bool both = second.length != 0 && first.length + second.length <= huffmanPairBits;
      const uint32_t length = first.length + (both ? second.length : 0u);
      entry = first.symbol | length << huffmanPairLengthShift |
              uint32_t{first.length} << huffmanPairFirstLengthShift |
              (both ? 2u : 1u) << huffmanPairCountShift;
      if (both) entry |= uint32_t{second.symbol} << 16;
    }
    pairs.entries[pattern] = entry;
  }
}

// ---- Reading the context ------------------------------------------------------------------------

ZebStatus readHeader(State& state, BitReader& reader) {
  if (!reader.need(18)) return zebWarnSrcExhausted;
  state.groups = 0;
  state.numTables = static_cast<int32_t>(reader.take(3));
  state.numSelectors = static_cast<int32_t>(reader.take(15));
  if (state.numTables < fewestTables || state.numTables > mostTables) return zebErrBadData;
  if (state.numSelectors == 0) return zebErrBadData;
  state.phase = phaseSelectors;
  state.selectorsRead = 0;
  return zebOk;
}

ZebStatus readSelectors(State& state, BitReader& reader) {
  for (; state.selectorsRead < state.numSelectors; ++state.selectorsRead) {
    if (!reader.need(6)) return zebWarnSrcExhausted;
    const int rank = reader.leadingOnes();
    if (rank >= state.numTables) return zebErrBadData;
    reader.consume(rank + 1);
    state.selectors[state.selectorsRead] = static_cast<uint8_t>(rank);
  }
  uint8_t list[256];
  for (int i = 0; i < 256; ++i) list[i] = static_cast<uint8_t>(i);
  kernels::moveToFrontInverse()(state.selectors, state.selectors, state.numSelectors, list);
  state.phase = phaseLengths;
  state.tablesRead = 0;
  state.symbolsRead = 0;
  state.currentLength = 0;
  return zebOk;
}

bool isLength(int32_t length) {
  return length >= 1 && length <= longestCode;
}

ZebStatus readLengthsOfTable(State& state, BitReader& reader) {
  if (state.currentLength == 0) {
    if (!reader.need(5)) return zebWarnSrcExhausted;
    const int32_t start = static_cast<int32_t>(reader.take(5));
    if (!isLength(start)) return zebErrBadData;
    state.currentLength = start;
  }
  uint8_t* const lengths = state.tables[state.tablesRead].lengths;
  while (state.symbolsRead < state.alphaSize) {
    if (!reader.need(1)) return zebWarnSrcExhausted;
    if (reader.peek(1) == 0) {
      reader.consume(1);
      lengths[state.symbolsRead++] = static_cast<uint8_t>(state.currentLength);
      continue;
    }
    if (!reader.need(2)) return zebWarnSrcExhausted;
    const int32_t changed = state.currentLength + (reader.take(2) == 2 ? 1 : -1);
    if (!isLength(changed)) return zebErrBadData;
    state.currentLength = changed;
  }
  return zebOk;
}

ZebStatus readLengths(State& state, BitReader& reader) {
  for (; state.tablesRead < state.numTables; ++state.tablesRead) {
    if (const ZebStatus status = readLengthsOfTable(state, reader); status != zebOk) return status;
    if (!buildTable(state.tables[state.tablesRead], state.alphaSize)) return zebErrBadData;
    state.symbolsRead = 0;
    state.currentLength = 0;
  }
  state.phase = phaseHeader;
  state.groups = state.numSelectors;
  state.group = 0;
  state.symbolsInGroup = 0;
  return zebOk;
}

ZebStatus unpackContext(State& state, BitReader& reader) {
  for (;;) {
    const bool last = state.phase == phaseLengths;
    const ZebStatus status = state.phase == phaseHeader      ? readHeader(state, reader)
                             : state.phase == phaseSelectors ? readSelectors(state, reader)
                                                             : readLengths(state, reader);
    if (status != zebOk || last) return status;
  }
}

// ---- Decoding -----------------------------------------------------------------------------------

struct Decoded {
  ZebStatus status;
  int symbols;
};

kernels::HuffmanSymbol lookUp(const DecodingTable& table, uint32_t pattern) {
  const HuffmanLongCodes& codes = table.longCodes;
  if (pattern < codes.limits[0]) {
    const uint16_t entry = table.quick[pattern >> (longestCode - quickBits)];
    return {entry & quickSymbol, entry >> quickLengthShift};
  }
  return kernels::findLongCode(codes, pattern);
}

// The look-up tables of the kernel are worth building for a source and a room of this size.
constexpr int bulkMinimum = 4096;

// Returns how many symbols were decoded. Room and a group are always left, so that a symbol is
// read, or missed, by the careful decoder at the end of every call: what the kernel gave back to
// the source is then taken again as far as the rule of reading says.
int decodeBulk(State& state, BitReader& reader, uint16_t* dst, int capacity) {
  HuffmanPairs pairs[mostTables];
  const HuffmanLongCodes* longCodes[mostTables];
  for (int t = 0; t < state.numTables; ++t) {
    buildPairs(state.tables[t], state.alphaSize, pairs[t]);
    longCodes[t] = &state.tables[t].longCodes;
  }
  kernels::MultiHuffmanInput input = {};
  reader.lend(input);
  input.dst = dst;
  input.dstEnd = dst + capacity;
  input.selectors = state.selectors;
  input.group = state.group;
  input.numSelectors = state.groups - 1;
  input.symbolsInGroup = state.symbolsInGroup;
  input.endOfBlock = state.alphaSize - 1;
  kernels::multiHuffman().decode(pairs, longCodes, input);
  reader.takeBack(input);
  state.group = input.group;
  state.symbolsInGroup = input.symbolsInGroup;
  return static_cast<int>(input.dst - dst);
}

Decoded decode(State& state, BitReader& reader, uint16_t* dst, int capacity) {
  int out = 0;
  if (reader.left() >= bulkMinimum && capacity >= bulkMinimum && state.group < state.groups) {
    out = decodeBulk(state, reader, dst, capacity);
  }
  const auto noSymbol = [&] { return reader.left() > 0 ? zebErrGeneral : zebWarnSrcExhausted; };
  while (out < capacity) {
    if (state.group >= state.groups) return {noSymbol(), out};
    if (!reader.need(longestCode)) return {zebWarnSrcExhausted, out};
    const DecodingTable& table = state.tables[state.selectors[state.group]];
    const kernels::HuffmanSymbol found = lookUp(table, reader.peek(longestCode));
    if (found.symbol < 0) return {noSymbol(), out};
    reader.consume(found.length);
    dst[out] = static_cast<uint16_t>(found.symbol);
    if (found.symbol == state.alphaSize - 1) {
      state.group = 0;
      state.symbolsInGroup = 0;
      return {zebOk, out};
    }
    ++out;
    if (++state.symbolsInGroup == groupSize) {
      state.symbolsInGroup = 0;
      ++state.group;
    }
  }
  return {zebWarnDstFull, out};
}

// ---- Life ---------------------------------------------------------------------------------------

ZebStatus getSize(int wndSize, int* pSize) {
  if (pSize == nullptr) return zebErrNullPtr;
  if (wndSize < 1) return zebErrSize;
  *pSize = wndSize / groupSize + (wndSize % groupSize != 0 ? 1 : 0) + fixedSize;
  return zebOk;
}

ZebStatus init(int alphaSize, State* state) {
  if (state == nullptr) return zebErrNullPtr;
  if (alphaSize < 1 || alphaSize > mostSymbols) return zebErrSize;
  memset(state, 0, sizeof *state);
  state->alphaSize = alphaSize;
  state->tables = state->tableArea;
  state->selectors = reinterpret_cast<uint8_t*>(state + 1);
  return zebOk;
}

}  // namespace
}  // namespace zebdc::bzip2

using namespace zebdc::bzip2;

ZEBDC_ENTRY(ZebStatus, zebsDecodeHuffGetSize_BZ2_8u16u)(int wndSize, int* pSize) {
  return getSize(wndSize, pSize);
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeHuffInit_BZ2_8u16u)
(int alphaSize, ZebDecodeHuffState_BZ2* pState) {
  return init(alphaSize, pState);
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeHuffInitAlloc_BZ2_8u16u)
(int wndSize, int alphaSize, ZebDecodeHuffState_BZ2** ppState) {
  if (ppState == nullptr) return zebErrNullPtr;
  int size = 0;
  if (const ZebStatus status = getSize(wndSize, &size); status != zebOk) return status;
  if (alphaSize < 1 || alphaSize > mostSymbols) return zebErrSize;
  return zebdc::initAllocUnchecked(
      ppState, size, [&](ZebDecodeHuffState_BZ2* state) { return init(alphaSize, state); });
}

ZEBDC_ENTRY(void, zebsDecodeHuffFree_BZ2_8u16u)(ZebDecodeHuffState_BZ2* pState) {
  zebdc::release(pState);
}

ZEBDC_ENTRY(ZebStatus, zebsUnpackHuffContext_BZ2_8u16u)
(uint32_t* pCode, int* pCodeLenBits, const uint8_t** ppSrc, int* pSrcLen,
 ZebDecodeHuffState_BZ2* pState) {
  if (pCode == nullptr || pCodeLenBits == nullptr || ppSrc == nullptr || pSrcLen == nullptr ||
      pState == nullptr || *ppSrc == nullptr) {
    return zebErrNullPtr;
  }
  if (*pSrcLen < 1) return zebErrSize;
  if (pState->phase < phaseHeader || pState->phase > phaseLengths) return zebErrGeneral;
  BitReader reader(*pCode, *pCodeLenBits, *ppSrc, *pSrcLen);
  const ZebStatus status = unpackContext(*pState, reader);
  reader.finish(pCode, pCodeLenBits, ppSrc, pSrcLen);
  return status;
}

ZEBDC_ENTRY(ZebStatus, zebsDecodeHuff_BZ2_8u16u)
(uint32_t* pCode, int* pCodeLenBits, const uint8_t** ppSrc, int* pSrcLen, uint16_t* pDst,
 int* pDstLen, ZebDecodeHuffState_BZ2* pState) {
  if (pCode == nullptr || pCodeLenBits == nullptr || ppSrc == nullptr || pSrcLen == nullptr ||
      pDst == nullptr || pDstLen == nullptr || pState == nullptr || *ppSrc == nullptr) {
    return zebErrNullPtr;
  }
  if (*pDstLen < 1) return zebErrSize;
  BitReader reader(*pCode, *pCodeLenBits, *ppSrc, std::max(*pSrcLen, 0));
  const Decoded decoded = decode(*pState, reader, pDst, *pDstLen);
  reader.finish(pCode, pCodeLenBits, ppSrc, pSrcLen);
  *pDstLen = decoded.symbols;
  return decoded.status;
}
