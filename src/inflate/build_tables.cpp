// Tables for the inflater whose caller parses block headers itself.

#include <string.h>

#include <algorithm>

#include "frame/entry.h"
#include "inflate/fast_table.h"
#include "inflate/inflate_state.h"

namespace zebdc::inflate {
namespace {

constexpr uint32_t maxLitLenCodes = deflate::literalSymbols;
constexpr uint32_t maxDistanceCodes = deflate::distanceSymbols;

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

void buildLong(const uint16_t* lengths, uint32_t litLenCount, uint32_t distanceCount,
               ZebInflateState& state) {
  ZebInflateLongTables& tables = state.tables.longCodes;
  memset(tables.litLenLengths, 0, sizeof tables.litLenLengths);
  memcpy(tables.litLenLengths, lengths, litLenCount * sizeof *lengths);
  buildLitLenTable(lengths, static_cast<int>(litLenCount), tables.litLen);
  buildDistanceTable(lengths + litLenCount, static_cast<int>(distanceCount), tables.distance);
  state.tableKind = zebInflateTablesLong;
}

void buildFast(const uint16_t* lengths, uint32_t litLenCount, uint32_t distanceCount,
               ZebInflateState& state) {
  ZebInflateFastTables& tables = state.tables.fast;
  buildFastLitLenTable(lengths, static_cast<int>(litLenCount),
                       static_cast<int>(state.longestLitLen), tables.litLen);
  if (state.longestDistance > 0) {
    buildFastDistanceTable(lengths + litLenCount, static_cast<int>(distanceCount),
                           static_cast<int>(state.longestDistance), tables.distance,
                           tables.distanceBase);
  }
  state.tableKind = zebInflateTablesFast;
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
  if (litLen.longest <= kernels::fastLitLenBits && distance.longest <= kernels::fastDistanceBits) {
    buildFast(lengths, litLenCount, distanceCount, state);
  } else {
    buildLong(lengths, litLenCount, distanceCount, state);
  }
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
