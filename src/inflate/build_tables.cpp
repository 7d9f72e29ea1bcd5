// Tables for the inflater whose caller parses block headers itself.

#include <string.h>

#include <algorithm>

#include "frame/entry.h"
#include "inflate/huffman_table.h"
#include "inflate/inflate_state.h"

namespace zebdc::inflate {
namespace {

constexpr uint32_t maxLitLenCodes = deflate::literalSymbols;
constexpr uint32_t maxDistanceCodes = deflate::distanceSymbols;

// Codes up to these lengths are resolved by one look-up.
constexpr uint32_t longestFastLitLen = 11;
constexpr uint32_t longestFastDistance = 10;

struct CodeSet {
  uint32_t longest;  // 0: no code at all
  bool possible;     // no length beyond 15, and not more codes than patterns
};

CodeSet examine(const uint16_t* lengths, uint32_t count) {
  constexpr uint32_t patterns = 1u << deflate::maxCodeLength;
  uint32_t longest = 0;
  uint64_t used = 0;
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t length = lengths[i];
    if (length > deflate::maxCodeLength) return {longest, false};
    if (length == 0) continue;
    longest = std::max(longest, length);
    used += patterns >> length;
  }
  return {longest, used <= patterns};
}

ZebStatus build(const uint16_t* lengths, uint32_t litLenCount, uint32_t distanceCount,
                ZebInflateState& state) {
  const uint16_t* const distanceLengths = lengths + litLenCount;
  const CodeSet litLen = examine(lengths, litLenCount);
  const CodeSet distance = examine(distanceLengths, distanceCount);
  if (litLen.longest == 0 || !litLen.possible || !distance.possible) return zebErrBadData;
  if (litLenCount <= static_cast<uint32_t>(deflate::endOfBlock) ||
      lengths[deflate::endOfBlock] == 0) {
    return zebErrBadData;
  }
  state.longestLitLen = litLen.longest;
  state.longestDistance = distance.longest;
  memset(state.litLenLengths, 0, sizeof state.litLenLengths);
  memcpy(state.litLenLengths, lengths, litLenCount * sizeof *lengths);
  buildLitLenTable(lengths, static_cast<int>(litLenCount), state.litLenTable);
  buildDistanceTable(distanceLengths, static_cast<int>(distanceCount), state.distanceTable);
  const bool fast = litLen.longest <= longestFastLitLen && distance.longest <= longestFastDistance;
  state.tableKind = fast ? zebInflateTablesFast : zebInflateTablesLong;
  return zebOk;
}

}  // namespace
}  // namespace zebdc::inflate

ZEBDC_ENTRY(ZebStatus, zebsInflateBuildHuffTable)
(const uint16_t* pCodeLens, uint32_t nLitCodeLens, uint32_t nDistCodeLens,
 ZebInflateState* pState) {
  using namespace zebdc::inflate;
  if (pCodeLens == nullptr || pState == nullptr) return zebErrNullPtr;
  if (nLitCodeLens > maxLitLenCodes || nDistCodeLens > maxDistanceCodes) return zebErrSize;
  return build(pCodeLens, nLitCodeLens, nDistCodeLens, *pState);
}
