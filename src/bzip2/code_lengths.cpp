// Huffman code lengths of one table.

#include "bzip2/code_lengths.h"

#include <algorithm>

#include "frame/frequency_sort.h"
#include "kernels/multi_huffman.h"

namespace zebdc::bzip2 {
namespace {

constexpr int mostSymbols = kernels::huffmanRowSize;
constexpr int longestCode = kernels::huffmanLongestWritten;

// How many codes of each length an optimal code has.
struct LengthCounts {
  int count[mostSymbols] = {};
  int longest = 0;

  void add(int length) {
    ++count[length];
    longest = std::max(longest, length);
  }
};

// Huffman's construction on sorted weights: leaves and inner nodes both come in order of weight, so
// that two queues take the place of a heap. Among equal weights leaves go first, which keeps the
// code as short as it can be at its longest.
LengthCounts huffmanLengths(const FrequencyEntry* leaves, int leafCount) {
  LengthCounts lengths;
  if (leafCount == 1) {
    lengths.add(1);
    return lengths;
  }
  constexpr int mostNodes = 2 * mostSymbols - 1;
  uint32_t weights[mostNodes];  // leaves in order, then inner nodes as they are made
  int parents[mostNodes];
  for (int i = 0; i < leafCount; ++i) weights[i] = leaves[i].frequency;
  int nextLeaf = 0;
  int nextInner = leafCount;
  const int root = 2 * leafCount - 2;
  for (int node = leafCount; node <= root; ++node) {
    weights[node] = 0;
    for (int child = 0; child < 2; ++child) {
      const bool takeLeaf =
          nextLeaf < leafCount && (nextInner == node || weights[nextLeaf] <= weights[nextInner]);
      const int taken = takeLeaf ? nextLeaf++ : nextInner++;
      weights[node] += weights[taken];
      parents[taken] = node;
    }
  }

  int depths[mostNodes];
  depths[root] = 0;
  for (int node = root - 1; node >= 0; --node) {
    depths[node] = depths[parents[node]] + 1;
    if (node < leafCount) lengths.add(depths[node]);
  }
  return lengths;
}

// The adjustment of ITU-T T.81, Annex K.3: a pair of the longest codes becomes one code that is a
// bit shorter, and its other half finds a place below a shorter code that is split. The longest
// codes of a complete code always come in pairs.
void limitLengths(LengthCounts& lengths) {
  for (int longest = lengths.longest; longest > longestCode; --longest) {
    for (int pairs = (lengths.count[longest] + 1) / 2; pairs > 0; --pairs) {
      int split = longestCode - 1;
      while (lengths.count[split] == 0) --split;
      lengths.count[longest] -= 2;
      lengths.count[longest - 1] += 1;
      lengths.count[split] -= 1;
      lengths.count[split + 1] += 2;
    }
  }
  lengths.longest = std::min(lengths.longest, longestCode);
}

}  // namespace

void buildCodeLengths(const uint32_t* counts, int alphaSize, uint8_t* lengths) {
  FrequencyEntry leaves[mostSymbols];
  for (int s = 0; s < alphaSize; ++s) {
    // Symbols that do not occur need a length too: they weigh as little as any that does.
    leaves[s] = {static_cast<uint32_t>(s), std::max(counts[s], 1u)};
  }
  sortByFrequency(leaves, alphaSize);
  LengthCounts codes = huffmanLengths(leaves, alphaSize);
  limitLengths(codes);
  int leaf = 0;
  for (int length = codes.longest; length > 0; --length) {
    for (int i = 0; i < codes.count[length]; ++i) {
      lengths[leaves[leaf++].symbol] = static_cast<uint8_t>(length);
    }
  }
}

void buildCodes(const uint8_t* lengths, int alphaSize, uint32_t* codes) {
  uint32_t counts[longestCode + 1] = {};
  for (int s = 0; s < alphaSize; ++s) ++counts[lengths[s]];
  uint32_t next[longestCode + 1] = {};
  for (int length = 1; length <= longestCode; ++length) {
    next[length] = (next[length - 1] + counts[length - 1]) << 1;
  }
  for (int s = 0; s < alphaSize; ++s) codes[s] = next[lengths[s]]++;
}

}  // namespace zebdc::bzip2
