// The inflater whose caller parses block headers itself and keeps the bit buffer.
//
// Symbols are decoded step by step (see PartialStep), any of which may have to wait for source or
// room. Where neither is near its end the fast loop runs instead; it stops at a symbol boundary, in
// the state that the steps would have reached there.

#include <string.h>

#include <algorithm>
#include <bit>

#include "frame/entry.h"
#include "inflate/fixed_tables.h"
#include "inflate/inflate_state.h"
#include "inflate/symbol.h"
#include "kernels/inflate_block.h"
#include "kernels/inflate_fast.h"

namespace zebdc::inflate {
namespace {

constexpr uint32_t maxCallerBits = 32;

// A symbol in progress.
struct Partial {
  uint32_t step;
  uint32_t value;      // the literal, or the length as far as it is known
  uint32_t distance;   // as far as it is known
  uint32_t extraBits;  // still to read for the length or the distance
};

struct InflateCall {
  kernels::InflateInput in;
  kernels::InflateBytes out;
  bool fast;  // which of the two kinds of tables serves
  kernels::InflateFastTables fastTables;
  kernels::InflateTables tables;
  Partial partial;

  uint32_t room() const { return static_cast<uint32_t>(out.end - out.dst); }

  // Takes bytes until so many bits are in hand. False where the source does not suffice: then all
  // of it is in hand.
  bool want(int wanted) {
    while (in.count < wanted) {
      if (in.src == in.end) return false;
      in.bits |= uint64_t{*in.src++} << in.count;
      in.count += 8;
    }
    return true;
  }

  void consume(int width) {
    in.bits >>= width;
    in.count -= width;
  }
};

// What a step comes to.
enum class Progress { goOn, stop };

// A code, whichever kind of table it stands in.
struct FoundCode {
  enum Kind { literal, length, distance, endOfBlock, invalid };

  Kind kind;
  int bits;  // of the code
  uint32_t value;
  uint32_t extraBits;
};

FoundCode litLenCode(const kernels::InflateTables& tables, uint64_t bits) {
  const FoundEntry found = findEntry(tables.litLen, kernels::litLenRootBits, bits);
  const uint32_t entry = found.entry;
  if (found.isException()) {
    const auto kind = found.isEndOfBlock() ? FoundCode::endOfBlock : FoundCode::invalid;
    return {kind, found.allBits(), 0, 0};
  }
  if (kernels::entryCount(entry) > 0) {
    // Two literals may share the entry; only the first is taken.
    const uint32_t byte = kernels::entryFirst(entry);
    return {FoundCode::literal, tables.litLenLengths[byte], byte, 0};
  }
  return {FoundCode::length, found.codeBits(),
          kernels::entrySecond(entry) + kernels::entryShortestMatch,
          static_cast<uint32_t>(found.allBits() - found.codeBits())};
}

FoundCode distanceCode(const kernels::InflateTables& tables, uint64_t bits) {
  const FoundEntry found = findEntry(tables.distance, kernels::distanceRootBits, bits);
  if (found.isException()) return {FoundCode::invalid, found.allBits(), 0, 0};
  return {FoundCode::distance, found.codeBits(), found.entry >> kernels::entryValueShift,
          static_cast<uint32_t>(found.allBits() - found.codeBits())};
}

// No pattern is known to be invalid before all bits of its index are there.
FoundCode litLenCode(const kernels::InflateFastTables& tables, uint64_t bits) {
  const uint32_t entry = tables.litLen[bits & tables.litLenMask];
  const uint32_t kind = entry >> kernels::fastKindShift & 0xF;
  const int codeBits = static_cast<int>(kernels::fastCodeBits(entry));
  const uint32_t value = entry >> kernels::fastValueShift;
  if (kind == kernels::fastEndOfBlockKind) return {FoundCode::endOfBlock, codeBits, 0, 0};
  if (kind == kernels::fastInvalidKind) {
    return {FoundCode::invalid, std::popcount(tables.litLenMask), 0, 0};
  }
  if (kind < kernels::fastMatchKind) return {FoundCode::literal, codeBits, value, 0};
  return {FoundCode::length, codeBits, value + kernels::entryShortestMatch,
          kind - kernels::fastMatchKind};
}

FoundCode distanceCode(const kernels::InflateFastTables& tables, uint64_t bits) {
  const uint64_t index = bits & tables.distanceMask;
  const uint32_t entry = tables.distance[index];
  if (entry >= kernels::fastException) {
    return {FoundCode::invalid, std::popcount(tables.distanceMask), 0, 0};
  }
  return {FoundCode::distance, static_cast<int>(kernels::fastCodeBits(entry)),
          tables.distanceBase[index], entry >> kernels::fastKindShift};
}

// The code at the front of the input, once its bits are in hand, where it stays if it is invalid.
// Bits beyond those in hand count as zeros: an entry that needs no more does not depend on them.
template <class CodeOf>
bool takeCode(InflateCall& call, CodeOf codeOf, FoundCode* found) {
  call.want(deflate::maxCodeLength);
  *found = call.fast ? codeOf(call.fastTables, call.in.bits) : codeOf(call.tables, call.in.bits);
  if (found->bits > call.in.count) return false;
  if (found->kind != FoundCode::invalid) call.consume(found->bits);
  return true;
}

Progress decodeSymbol(InflateCall& call) {
  const auto codeOf = [](const auto& tables, uint64_t bits) { return litLenCode(tables, bits); };
  Partial& partial = call.partial;
  FoundCode found;
  if (!takeCode(call, codeOf, &found)) return Progress::stop;
  switch (found.kind) {
    case FoundCode::literal:
      partial = {stepLiteral, found.value, 0, 0};
      return Progress::goOn;
    case FoundCode::length:
      partial = {stepLengthExtra, found.value, 0, found.extraBits};
      return Progress::goOn;
    case FoundCode::endOfBlock:
      partial.step = stepBlockDone;
      return Progress::stop;
    default:
      partial.step = stepInvalid;
      return Progress::stop;
  }
}

// Adds the extra bits to the length or the distance.
Progress addExtraBits(InflateCall& call, uint32_t* value, PartialStep next) {
  const int width = static_cast<int>(call.partial.extraBits);
  if (!call.want(width)) return Progress::stop;
  *value += static_cast<uint32_t>(call.in.bits & ((uint64_t{1} << width) - 1));
  call.consume(width);
  call.partial.step = next;
  return Progress::goOn;
}

Progress decodeDistance(InflateCall& call) {
  const auto codeOf = [](const auto& tables, uint64_t bits) { return distanceCode(tables, bits); };
  FoundCode found;
  if (!takeCode(call, codeOf, &found)) return Progress::stop;
  if (found.kind == FoundCode::invalid) {
    call.partial.step = stepInvalid;
    return Progress::stop;
  }
  call.partial.distance = found.value;
  call.partial.extraBits = found.extraBits;
  call.partial.step = stepDistanceExtra;
  return Progress::goOn;
}

// Copies as much of the match as there is room for.
Progress copyMatch(InflateCall& call) {
  Partial& partial = call.partial;
  if (partial.distance > static_cast<uint64_t>(call.out.dst - call.out.begin)) {
    partial.step = stepInvalid;
    return Progress::stop;
  }
  const uint32_t count = std::min(partial.value, call.room());
  for (uint32_t i = 0; i < count; ++i, ++call.out.dst) {
    *call.out.dst = *(call.out.dst - partial.distance);
  }
  partial.value -= count;
  if (partial.value > 0) return Progress::stop;
  partial.step = stepSymbol;
  return Progress::goOn;
}

Progress writeLiteral(InflateCall& call) {
  if (call.room() == 0) return Progress::stop;
  *call.out.dst++ = static_cast<uint8_t>(call.partial.value);
  call.partial.step = stepSymbol;
  return Progress::goOn;
}

Progress takeStep(InflateCall& call) {
  switch (call.partial.step) {
    case stepSymbol:
      return decodeSymbol(call);
    case stepLengthExtra:
      return addExtraBits(call, &call.partial.value, stepDistance);
    case stepDistance:
      return decodeDistance(call);
    case stepDistanceExtra:
      return addExtraBits(call, &call.partial.distance, stepCopy);
    case stepCopy:
      return copyMatch(call);
    case stepLiteral:
      return writeLiteral(call);
    default:  // not met: what a call cannot have left is refused when it is loaded
      call.partial.step = stepInvalid;
      return Progress::stop;
  }
}

bool fastLoopMayRun(const InflateCall& call) {
  return call.partial.step == stepSymbol &&
         call.in.end - call.in.src >= kernels::inflateSourceMargin &&
         call.out.end - call.out.dst >= kernels::inflateBytesMargin;
}

void runFastLoop(InflateCall& call) {
  if (call.fast) {
    kernels::inflateFast().toBytes(call.in, call.out, call.fastTables);
  } else {
    kernels::inflate().toBytes(call.in, call.out, call.tables);
  }
}

void run(InflateCall& call) {
  do {
    if (fastLoopMayRun(call)) runFastLoop(call);
  } while (takeStep(call) == Progress::goOn);
}

// Returns whole bytes that this call took and did not use to the source. Where the source ran out
// in the middle of a code, its bits stay: fewer than a code's.
void giveBack(InflateCall& call, const uint8_t* srcBegin) {
  const bool waitsForSource = call.in.src == call.in.end && call.partial.step >= stepSymbol &&
                              call.partial.step <= stepDistanceExtra;
  if (waitsForSource) return;
  const ptrdiff_t bytes = std::min<ptrdiff_t>(call.in.count / 8, call.in.src - srcBegin);
  call.in.src -= bytes;
  call.in.count -= static_cast<int>(8 * bytes);
  call.in.bits &= (uint64_t{1} << call.in.count) - 1;
}

uint32_t modeOf(uint32_t step) {
  if (step == stepBlockDone) return zebInflateBlockDone;
  return step == stepSymbol ? zebInflateAtSymbol : zebInflateInSymbol;
}

// A code without distances has no table of them.
constexpr uint8_t noDistance = kernels::fastInvalidDistance;
constexpr uint16_t noBase = 0;

// False where the record's kind is unknown, or its tables are none that were built.
bool findTables(const ZebInflateState& state, InflateCall& call) {
  call.fast = state.tableKind == zebInflateTablesFast;
  if (state.tableKind == zebInflateTablesFixed) {
    call.tables = fixedTables;
    return true;
  }
  if (state.tableKind == zebInflateTablesLong) {
    call.tables = {state.tables.longCodes.litLen, state.tables.longCodes.distance,
                   state.tables.longCodes.litLenLengths};
    return true;
  }
  if (!call.fast || state.longestLitLen > kernels::fastLitLenBits ||
      state.longestDistance > kernels::fastDistanceBits) {
    return false;
  }
  const ZebInflateFastTables& tables = state.tables.fast;
  call.fastTables = {tables.litLen, tables.distance, tables.distanceBase,
                     (1u << state.longestLitLen) - 1, (1u << state.longestDistance) - 1};
  if (state.longestDistance == 0) {
    call.fastTables.distance = &noDistance;
    call.fastTables.distanceBase = &noBase;
  }
  return true;
}

Partial loadPartial(const ZebInflateState& state) {
  return {state.partial[0], state.partial[1], state.partial[2], state.partial[3]};
}

void savePartial(const Partial& partial, ZebInflateState& state) {
  state.partial[0] = partial.step;
  state.partial[1] = partial.value;
  state.partial[2] = partial.distance;
  state.partial[3] = partial.extraBits;
}

// A context that no call has left could ask for more than a symbol's bits.
bool isPlausible(const Partial& partial) {
  constexpr uint32_t mostExtraBits = 13;
  return partial.step >= stepLengthExtra && partial.step <= stepLiteral &&
         partial.extraBits <= mostExtraBits && (partial.step != stepCopy || partial.distance > 0);
}

}  // namespace
}  // namespace zebdc::inflate

ZEBDC_ENTRY(ZebStatus, zebsInflate_8u)
(const uint8_t** ppSrc, uint32_t* pSrcLen, uint32_t* pCode, uint32_t* pCodeLenBits, uint32_t winIdx,
 uint8_t** ppDst, uint32_t* pDstLen, uint32_t /*dstIdx*/, ZebInflateMode* pMode,
 ZebInflateState* pState) {
  using namespace zebdc;
  using namespace zebdc::inflate;
  if (ppSrc == nullptr || pSrcLen == nullptr || pCode == nullptr || pCodeLenBits == nullptr ||
      ppDst == nullptr || pDstLen == nullptr || pMode == nullptr || pState == nullptr ||
      *ppSrc == nullptr || *ppDst == nullptr) {
    return zebErrNullPtr;
  }
  if (*pCodeLenBits > maxCallerBits || winIdx > pState->historySize) return zebErrSize;
  InflateCall call = {};
  if (!findTables(*pState, call)) return zebErrBadData;
  call.in.src = *ppSrc;
  call.in.end = *ppSrc + *pSrcLen;
  call.in.bits = *pCode & ((uint64_t{1} << *pCodeLenBits) - 1);
  call.in.count = static_cast<int>(*pCodeLenBits);
  call.out = {*ppDst - winIdx, *ppDst, *ppDst + *pDstLen};
  call.partial = {stepSymbol, 0, 0, 0};
  if (*pMode == zebInflateInSymbol) {
    call.partial = loadPartial(*pState);
    if (!isPlausible(call.partial)) return zebErrBadData;
  }

  run(call);
  giveBack(call, *ppSrc);
  *ppSrc = call.in.src;
  *pSrcLen = static_cast<uint32_t>(call.in.end - call.in.src);
  *pCode = static_cast<uint32_t>(call.in.bits);
  *pCodeLenBits = static_cast<uint32_t>(call.in.count);
  *ppDst = call.out.dst;
  *pDstLen = call.room();
  if (call.partial.step == stepInvalid) return zebErrBadData;
  *pMode = modeOf(call.partial.step);
  savePartial(call.partial, *pState);
  return zebOk;
}
