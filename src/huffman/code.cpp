// Construction of the byte code from frequencies or from lengths.

#include "huffman/code.h"

#include <stddef.h>
#include <string.h>

#include "frame/frequency_sort.h"

namespace zebdc::huffman {
namespace {

constexpr uint32_t frequencyLimit = 1u << 31;

// Lists the values in use. The result is their number, or 0 where the table is unusable.
int gatherFrequencies(const uint32_t* frequencies, FrequencyEntry* entries) {
  int count = 0;
  uint32_t sum = 0;
  for (uint32_t value = 0; value < 256; ++value) {
    const uint32_t frequency = frequencies[value];
    if (frequency == 0) continue;
    sum += frequency;
    if (frequency >= frequencyLimit || sum >= frequencyLimit) return 0;
    entries[count++] = {value, frequency};
  }
  return count;
}

struct Merge {
  uint8_t first;
  uint8_t second;
};

// Merges the two lightest entries until one is left. A node stands under the value of its first
// part and goes behind all entries of equal weight.
void mergeLightest(FrequencyEntry* entries, int count, Merge* merges) {
  for (int i = 0; i + 1 < count; ++i) {
    merges[i] = {static_cast<uint8_t>(entries[i].symbol),
                 static_cast<uint8_t>(entries[i + 1].symbol)};
    const FrequencyEntry node = {entries[i].symbol,
                                 entries[i].frequency + entries[i + 1].frequency};
    int place = i + 2;
    for (; place < count && entries[place].frequency <= node.frequency; ++place) {
      entries[place - 1] = entries[place];
    }
    entries[place - 1] = node;
  }
}

// Walks from the root down: both parts of a merge lie one level below the node that they made.
uint32_t lengthsFromMerges(const Merge* merges, int mergeCount, uint32_t* codeLen) {
  uint32_t longest = 0;
  for (int i = mergeCount - 1; i >= 0; --i) {
    const uint32_t length = codeLen[merges[i].first] + 1;
    codeLen[merges[i].first] = length;
    codeLen[merges[i].second] = length;
    if (length > longest) longest = length;
  }
  return longest;
}

// Values grouped by length, in ascending order within a length.
struct LengthGroups {
  uint16_t begin[maxCodeLength + 2];  // of each length, in values
  uint8_t values[256];

  explicit LengthGroups(const uint32_t* codeLen) {
    uint16_t counts[maxCodeLength + 1] = {};
    for (int value = 0; value < 256; ++value) ++counts[codeLen[value]];
    begin[1] = 0;
    for (int length = 1; length <= maxCodeLength; ++length) {
      begin[length + 1] = static_cast<uint16_t>(begin[length] + counts[length]);
    }
    uint16_t next[maxCodeLength + 2];
    memcpy(next, begin, sizeof next);
    for (int value = 0; value < 256; ++value) {
      if (codeLen[value] != 0) values[next[codeLen[value]]++] = static_cast<uint8_t>(value);
    }
  }

  int count(int length) const { return begin[length + 1] - begin[length]; }
};

// Hands out the codes. visit(value, length) sees the values in code order, startOfLength(length,
// code) each length before its values.
template <class Visit, class StartOfLength>
void assignCodes(ZebHuffState_8u& state, const LengthGroups& groups, StartOfLength startOfLength,
                 Visit visit) {
  uint32_t code = 0;
  for (int length = state.maxLen; length >= 1; --length) {
    startOfLength(length, code);
    for (int i = groups.begin[length + 1] - 1; i >= groups.begin[length]; --i) {
      const uint8_t value = groups.values[i];
      state.code[value] = code++;
      visit(value);
    }
    code >>= 1;
  }
}

// A table in the record, based so that lengths from 1 on index it. The base, one entry before it,
// lies inside the record.
uint32_t* numberedFromOne(ZebHuffState_8u& state, size_t offset) {
  uint8_t* const record = reinterpret_cast<uint8_t*>(&state);
  return reinterpret_cast<uint32_t*>(record + offset) - 1;
}

// Finds the longest and the shortest length. False where the table is unusable.
bool measureLengths(ZebHuffState_8u& state) {
  uint32_t longest = 0;
  uint32_t shortest = maxCodeLength;
  for (const uint32_t length : state.codeLen) {
    if (length > maxCodeLength) return false;
    if (length == 0) continue;
    if (length > longest) longest = length;
    if (length < shortest) shortest = length;
  }
  state.maxLen = static_cast<int32_t>(longest);
  state.minLen = static_cast<int32_t>(shortest);
  return longest > 0;
}

}  // namespace

ZebStatus buildFromFrequencies(const uint32_t* frequencies, ZebHuffState_8u& state) {
  FrequencyEntry entries[256];
  const int count = gatherFrequencies(frequencies, entries);
  if (count == 0) return zebErrFreqTable;

  const uint32_t firstValue = entries[0].symbol;
  sortByFrequency(entries, count);
  Merge merges[255];
  mergeLightest(entries, count, merges);

  memset(state.codeLen, 0, sizeof state.codeLen);
  memset(state.code, 0, sizeof state.code);
  uint32_t longest = lengthsFromMerges(merges, count - 1, state.codeLen);
  if (count == 1) {
    state.codeLen[firstValue] = 1;
    longest = 1;
  }
  if (longest > maxCodeLength) return zebErrCodeTooLong;

  state.maxLen = static_cast<int32_t>(longest);
  assignCodes(
      state, LengthGroups(state.codeLen), [](int, uint32_t) {}, [](uint8_t) {});
  return zebOk;
}

ZebStatus buildFromLengths(const int* lengths, ZebHuffState_8u& state) {
  // A negative length becomes one above 32 and is refused with them.
  for (int value = 0; value < 256; ++value) {
    state.codeLen[value] = static_cast<uint32_t>(lengths[value]);
  }
  memset(state.code, 0, sizeof state.code);
  if (!measureLengths(state)) return zebErrCodeLenTable;

  state.limitTable = numberedFromOne(state, offsetof(ZebHuffState_8u, limitArea));
  state.cumCount = numberedFromOne(state, offsetof(ZebHuffState_8u, countArea));
  uint8_t* next = state.decodeSymbols;
  const LengthGroups groups(state.codeLen);
  assignCodes(
      state, groups,
      [&](int length, uint32_t code) {
        state.limitTable[length] = code << (state.maxLen - length);
        state.cumCount[length] = static_cast<uint32_t>(groups.count(length));
      },
      [&](uint8_t value) { *next++ = value; });
  for (int length = state.minLen + 1; length <= state.maxLen; ++length) {
    state.cumCount[length] += state.cumCount[length - 1];
  }
  state.symbolsEnd = next;
  state.zeroSymbol = state.decodeSymbols[0];
  return zebOk;
}

int symbolAt(const ZebHuffState_8u& state, uint32_t lookahead) {
  int length = state.minLen;
  // The limit of the longest length is 0, so the search ends.
  while (length < state.maxLen && lookahead < state.limitTable[length]) ++length;
  const uint32_t indexInLength = (lookahead - state.limitTable[length]) >> (state.maxLen - length);
  const int64_t fromEnd = static_cast<int64_t>(state.cumCount[length]) - indexInLength;
  const int64_t used = state.symbolsEnd - state.decodeSymbols;
  if (fromEnd < 1 || fromEnd > used) return -1;
  return state.symbolsEnd[-fromEnd];
}

}  // namespace zebdc::huffman
