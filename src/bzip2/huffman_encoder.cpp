// Multi-table Huffman coding: building the tables of a block, writing its coding context and its
// symbols.
//
// The tables are refined in four passes. Each pass chooses for every group of 50 symbols the table
// that codes it in the fewest bits, and then builds each table anew from the groups that chose it.

#include <string.h>

#include <algorithm>

#include "bzip2/code_lengths.h"
#include "frame/bytes.h"
#include "frame/entry.h"
#include "frame/memory.h"
#include "kernels/move_to_front.h"
#include "kernels/multi_huffman.h"

namespace zebdc::bzip2 {
namespace {

using kernels::GroupCosts;

constexpr int groupSize = kernels::huffmanGroupSize;
constexpr int rowSize = kernels::huffmanRowSize;
constexpr int mostTables = kernels::huffmanTableLimit;
constexpr int mostSelectors = (1 << 15) - 1;  // their number is written in 15 bits

}  // namespace
}  // namespace zebdc::bzip2

// Followed by the selectors: one byte for each group, and as many again for their move-to-front
// values. The tables have row t at index t * 258.
struct ZebEncodeHuffState_BZ2 {
  int32_t alphaSize;
  int32_t numSelectors;
  int32_t numTables;
  uint32_t* codes;
  uint8_t* lengths;
  uint8_t* selectors;
  uint32_t codeTable[zebdc::bzip2::mostTables * zebdc::bzip2::rowSize];
  uint8_t lengthTable[zebdc::bzip2::mostTables * zebdc::bzip2::rowSize];
};

namespace zebdc::bzip2 {
namespace {

using State = ZebEncodeHuffState_BZ2;

constexpr size_t selectorOffset = offsetof(State, lengthTable) + sizeof(State::lengthTable);
static_assert(selectorOffset == 7780);

int groupsOf(int symbols) {
  return symbols / groupSize + (symbols % groupSize != 0 ? 1 : 0);
}

// ---- Building the tables ------------------------------------------------------------------------

int tablesFor(int symbols) {
  if (symbols < 200) return 2;
  if (symbols < 600) return 3;
  if (symbols < 1200) return 4;
  if (symbols < 2400) return 5;
  return 6;
}

// Cuts the alphabet into one range of about equal frequency for each table, from the last table
// down. A table codes the symbols of its range for nothing at first, and all others dearly.
void initialLengths(const uint32_t* frequencies, State& state) {
  constexpr uint8_t dear = 15;
  memset(state.lengths, dear, sizeof state.lengthTable);
  uint64_t remaining = 0;
  for (int s = 0; s < state.alphaSize; ++s) remaining += frequencies[s];
  int begin = 0;
  for (int table = state.numTables - 1; table >= 0; --table) {
    const uint64_t target = remaining / static_cast<uint64_t>(table + 1);
    uint64_t sum = 0;
    int end = begin;
    while (sum < target && end < state.alphaSize) sum += frequencies[end++];
    // Ranges pass their target; every second one stops short of it instead.
    const bool filledAsEvenOne = (state.numTables - 1 - table) % 2 == 1;
    if (table == 0) {
      end = state.alphaSize;
    } else if (filledAsEvenOne && end - begin > 1) {
      sum -= frequencies[--end];
    }
    memset(state.lengths + table * rowSize + begin, 0, static_cast<size_t>(end - begin));
    remaining -= sum;
    begin = end;
  }
}

void loadCosts(const State& state, GroupCosts& costs) {
  for (int s = 0; s < state.alphaSize; ++s) {
    for (int table = 0; table < 8; ++table) {
      costs.lanes[s][table] =
          table < state.numTables ? state.lengths[table * rowSize + s] : GroupCosts::absent;
    }
  }
}

// How often each table codes each symbol. Between passes only the groups that changed their table
// are counted anew.
class TableCounts {
 public:
  TableCounts(const uint16_t* symbols, int count) : symbols_(symbols), count_(count) {}

  void addGroup(int group, int table) { update(group, table, 1); }
  void removeGroup(int group, int table) { update(group, table, ~0u); }
  const uint32_t* of(int table) const { return counts_[table]; }

 private:
  void update(int group, int table, uint32_t change) {
    const int begin = group * groupSize;
    const int end = std::min(begin + groupSize, count_);
    for (int i = begin; i < end; ++i) counts_[table][symbols_[i]] += change;
  }

  const uint16_t* symbols_;
  int count_;
  uint32_t counts_[mostTables][rowSize] = {};
};

void refineTables(const uint16_t* symbols, int count, State& state) {
  constexpr int passes = 4;
  TableCounts counts(symbols, count);
  GroupCosts costs;
  uint8_t* const chosen = state.selectors + state.numSelectors;
  for (int pass = 0; pass < passes; ++pass) {
    loadCosts(state, costs);
    kernels::multiHuffman().chooseTables(symbols, static_cast<size_t>(count), costs, chosen);
    for (int group = 0; group < state.numSelectors; ++group) {
      if (pass > 0) {
        if (chosen[group] == state.selectors[group]) continue;
        counts.removeGroup(group, state.selectors[group]);
      }
      counts.addGroup(group, chosen[group]);
      state.selectors[group] = chosen[group];
    }
    for (int table = 0; table < state.numTables; ++table) {
      buildCodeLengths(counts.of(table), state.alphaSize, state.lengths + table * rowSize);
    }
  }
  for (int table = 0; table < state.numTables; ++table) {
    buildCodes(state.lengths + table * rowSize, state.alphaSize, state.codes + table * rowSize);
  }
}

bool allBelow(int alphaSize, const uint16_t* symbols, int count) {
  uint16_t most = 0;
  for (int i = 0; i < count; ++i) most = std::max(most, symbols[i]);
  return most < alphaSize;
}

ZebStatus init(int alphaSize, const uint32_t* frequencies, const uint16_t* symbols, int count,
               State* state) {
  if (frequencies == nullptr || symbols == nullptr || state == nullptr) return zebErrNullPtr;
  if (alphaSize < 1 || alphaSize > rowSize || count < 1 || groupsOf(count) > mostSelectors ||
      !allBelow(alphaSize, symbols, count)) {
    return zebErrSize;
  }
  state->alphaSize = alphaSize;
  state->numSelectors = groupsOf(count);
  state->numTables = tablesFor(count);
  state->codes = state->codeTable;
  state->lengths = state->lengthTable;
  state->selectors = reinterpret_cast<uint8_t*>(state) + selectorOffset;
  initialLengths(frequencies, *state);
  refineTables(symbols, count, *state);
  return zebOk;
}

// ---- Writing ------------------------------------------------------------------------------------

// The caller's bit accumulator and destination. Whole bytes leave before each field while there is
// room; without it the bits pile up, and beyond the 64 kept here they are lost.
class BitWriter {
 public:
  BitWriter(uint32_t code, int count, uint8_t* dst, int capacity)
      : count_(std::clamp(count, 0, 32)), begin_(dst), next_(dst), end_(dst + capacity) {
    const uint64_t valid = ~(~uint64_t{0} >> count_);
    bits_ = uint64_t{code} << 32 & valid;
  }

  void put(uint32_t field, int length) {
    drain();
    count_ += length;
    if (count_ <= 64) bits_ |= uint64_t{field} << (64 - count_);
  }

  void drain() {
    while (count_ >= 8 && next_ < end_) {
      *next_++ = static_cast<uint8_t>(bits_ >> 56);
      bits_ <<= 8;
      count_ -= 8;
    }
  }

  size_t room() const { return static_cast<size_t>(end_ - next_); }

  // For groups of codes, with room for them. The accumulator holds less than a byte then.
  kernels::HuffmanOutput output() const { return {bits_, static_cast<int>(count_), next_}; }

  void take(const kernels::HuffmanOutput& output) {
    bits_ = output.bits;
    count_ = output.count;
    next_ = output.next;
  }

  ZebStatus finish(uint32_t* pCode, int* pCodeLenBits, int* pDstLen) const {
    *pCode = static_cast<uint32_t>(bits_ >> 32);
    *pCodeLenBits = static_cast<int>(std::min<int64_t>(count_, INT32_MAX));
    *pDstLen = static_cast<int>(next_ - begin_);
    return count_ > 32 ? zebWarnDstFull : zebOk;
  }

 private:
  uint64_t bits_;
  int64_t count_;
  uint8_t* begin_;
  uint8_t* next_;
  uint8_t* end_;
};

// All whole groups for which there is room go through the kernel. At least one symbol is left, so
// that the accumulator ends as if every code had been put by itself.
int encodeWholeGroups(const uint16_t* symbols, int count, const State& state, BitWriter& writer) {
  if (count == 0) return 0;
  writer.drain();
  const int groups = (count - 1) / groupSize;
  int group = 0;
  while (group < groups) {
    const int fitting = static_cast<int>(writer.room() / kernels::huffmanEncodeMargin);
    const int batch = std::min(groups - group, fitting);
    if (batch == 0) break;
    const kernels::MultiHuffmanCodes codes = {state.codes, state.lengths, state.selectors + group};
    kernels::HuffmanOutput output = writer.output();
    kernels::multiHuffman().encode(symbols + group * groupSize, static_cast<size_t>(batch), codes,
                                   output);
    writer.take(output);
    group += batch;
  }
  return group * groupSize;
}

void encode(const uint16_t* symbols, int count, const State& state, BitWriter& writer) {
  for (int i = encodeWholeGroups(symbols, count, state, writer); i < count; ++i) {
    const int index = state.selectors[i / groupSize] * rowSize + symbols[i];
    writer.put(state.codes[index], state.lengths[index]);
  }
}

// Selectors as their places in a list of tables, in unary.
void packSelectors(const State& state, BitWriter& writer) {
  uint8_t positions[256];
  for (int i = 0; i < 256; ++i) positions[i] = static_cast<uint8_t>(i);
  uint8_t* const ranks = state.selectors + state.numSelectors;
  kernels::moveToFrontForward()(state.selectors, ranks, state.numSelectors, positions);
  for (int i = 0; i < state.numSelectors; ++i) {
    writer.put((2u << ranks[i]) - 2, ranks[i] + 1);
  }
}

// The lengths as steps from one symbol to the next: 10 up, 11 down, 0 done.
void packLengths(const uint8_t* lengths, int alphaSize, BitWriter& writer) {
  int current = lengths[0];
  writer.put(static_cast<uint32_t>(current), 5);
  for (int s = 0; s < alphaSize; ++s) {
    for (; current < lengths[s]; ++current) writer.put(2, 2);
    for (; current > lengths[s]; --current) writer.put(3, 2);
    writer.put(0, 1);
  }
}

void packContext(const State& state, BitWriter& writer) {
  writer.put(static_cast<uint32_t>(state.numTables), 3);
  writer.put(static_cast<uint32_t>(state.numSelectors), 15);
  packSelectors(state, writer);
  for (int table = 0; table < state.numTables; ++table) {
    packLengths(state.lengths + table * rowSize, state.alphaSize, writer);
  }
}

ZebStatus getSize(int wndSize, int* pSize) {
  if (pSize == nullptr) return zebErrNullPtr;
  if (wndSize < 1) return zebErrSize;
  *pSize = 2 * groupsOf(wndSize) + static_cast<int>(selectorOffset);
  return zebOk;
}

}  // namespace
}  // namespace zebdc::bzip2

using namespace zebdc::bzip2;

ZEBDC_ENTRY(ZebStatus, zebsEncodeHuffGetSize_BZ2_16u8u)(int wndSize, int* pSize) {
  return getSize(wndSize, pSize);
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeHuffInit_BZ2_16u8u)
(int alphaSize, const uint32_t* pFreqTable, const uint16_t* pSrc, int srcLen,
 ZebEncodeHuffState_BZ2* pState) {
  return init(alphaSize, pFreqTable, pSrc, srcLen, pState);
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeHuffInitAlloc_BZ2_16u8u)
(int wndSize, int alphaSize, const uint32_t* pFreqTable, const uint16_t* pSrc, int srcLen,
 ZebEncodeHuffState_BZ2** ppState) {
  if (pFreqTable == nullptr || pSrc == nullptr || ppState == nullptr) return zebErrNullPtr;
  int size = 0;
  if (const ZebStatus status = getSize(wndSize, &size); status != zebOk) return status;
  if (srcLen > wndSize) return zebErrSize;
  return zebdc::initAllocUnchecked(ppState, size, [&](ZebEncodeHuffState_BZ2* state) {
    return init(alphaSize, pFreqTable, pSrc, srcLen, state);
  });
}

ZEBDC_ENTRY(void, zebsEncodeHuffFree_BZ2_16u8u)(ZebEncodeHuffState_BZ2* pState) {
  zebdc::release(pState);
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeHuff_BZ2_16u8u)
(uint32_t* pCode, int* pCodeLenBits, const uint16_t** ppSrc, int* pSrcLen, uint8_t* pDst,
 int* pDstLen, ZebEncodeHuffState_BZ2* pState) {
  if (pCode == nullptr || pCodeLenBits == nullptr || ppSrc == nullptr || pSrcLen == nullptr ||
      pDst == nullptr || pDstLen == nullptr || pState == nullptr || *ppSrc == nullptr) {
    return zebErrNullPtr;
  }
  const int count = std::max(*pSrcLen, 0);
  if (*pDstLen < 1 || groupsOf(count) > pState->numSelectors ||
      !allBelow(pState->alphaSize, *ppSrc, count)) {
    return zebErrSize;
  }
  BitWriter writer(*pCode, *pCodeLenBits, pDst, *pDstLen);
  encode(*ppSrc, count, *pState, writer);
  *ppSrc += count;
  *pSrcLen -= count;
  return writer.finish(pCode, pCodeLenBits, pDstLen);
}

ZEBDC_ENTRY(ZebStatus, zebsPackHuffContext_BZ2_16u8u)
(uint32_t* pCode, int* pCodeLenBits, uint8_t* pDst, int* pDstLen, ZebEncodeHuffState_BZ2* pState) {
  if (pCode == nullptr || pCodeLenBits == nullptr || pDst == nullptr || pDstLen == nullptr ||
      pState == nullptr) {
    return zebErrNullPtr;
  }
  if (*pDstLen < 1) return zebErrSize;
  BitWriter writer(*pCode, *pCodeLenBits, pDst, *pDstLen);
  packContext(*pState, writer);
  return writer.finish(pCode, pCodeLenBits, pDstLen);
}
