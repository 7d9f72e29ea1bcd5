// The inflater whose caller parses block headers itself and keeps the bit buffer.
//
// Symbols are decoded step by step (see PartialStep), any of which may have to wait for source or
// room. Where neither is near its end the fast loop runs instead; it stops at a symbol boundary, in
// the state that the steps would have reached there.

#include <string.h>

#include <algorithm>

#include "frame/entry.h"
#include "inflate/fixed_tables.h"
#include "inflate/inflate_state.h"
#include "inflate/symbol.h"
#include "kernels/inflate_block.h"

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

// The entry at the front of the input, once its bits are in hand. Bits beyond those in hand count
// as zeros: an entry that needs no more does not depend on them.
template <class BitsOf>
bool findWhole(InflateCall& call, const uint32_t* table, int rootBits, BitsOf bitsOf,
               FoundEntry* found) {
  call.want(deflate::maxCodeLength);
  *found = findEntry(table, rootBits, call.in.bits);
  return bitsOf(*found) <= call.in.count;
}

int codeBitsOf(const FoundEntry& found) {
  return found.rootBits + static_cast<int>(kernels::entryCodeBits(found.entry));
}

int extraBitsOf(const FoundEntry& found) {
  return found.allBits() - codeBitsOf(found);
}

Progress decodeSymbol(InflateCall& call) {
  Partial& partial = call.partial;
  const auto bitsOf = [&call](const FoundEntry& found) {
    if (found.isException()) return found.allBits();
    if (kernels::entryCount(found.entry) == 0) return codeBitsOf(found);
    // Two literals may share the entry; only the first is taken.
    return static_cast<int>(
        call.tables.litLenLengths[found.entry >> kernels::entryValueShift & 0xFF]);
  };
  FoundEntry found;
  if (!findWhole(call, call.tables.litLen, kernels::litLenRootBits, bitsOf, &found)) {
    return Progress::stop;
  }
  if (found.isException() && !found.isEndOfBlock()) {
    partial.step = stepInvalid;
    return Progress::stop;
  }
  call.consume(bitsOf(found));
  if (found.isException()) {
    partial.step = stepBlockDone;
    return Progress::stop;
  }
  if (kernels::entryCount(found.entry) > 0) {
    partial = {stepLiteral, found.entry >> kernels::entryValueShift & 0xFF, 0, 0};
  } else {
    partial = {stepLengthExtra,
               (found.entry >> kernels::entrySecondShift) + kernels::entryShortestMatch, 0,
               static_cast<uint32_t>(extraBitsOf(found))};
  }
  return Progress::goOn;
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
  FoundEntry found;
  const auto bitsOf = [](const FoundEntry& entry) {
    return entry.isException() ? entry.allBits() : codeBitsOf(entry);
  };
  if (!findWhole(call, call.tables.distance, kernels::distanceRootBits, bitsOf, &found)) {
    return Progress::stop;
  }
  if (found.isException()) {
    call.partial.step = stepInvalid;
    return Progress::stop;
  }
  call.consume(codeBitsOf(found));
  call.partial.distance = found.entry >> kernels::entryValueShift;
  call.partial.extraBits = static_cast<uint32_t>(extraBitsOf(found));
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
    default:
      call.partial.step = stepInvalid;
      return Progress::stop;
  }
}

bool fastLoopMayRun(const InflateCall& call) {
  return call.partial.step == stepSymbol &&
         call.in.end - call.in.src >= kernels::inflateSourceMargin &&
         call.out.end - call.out.dst >= kernels::inflateBytesMargin;
}

void run(InflateCall& call) {
  do {
    if (fastLoopMayRun(call)) kernels::inflate().toBytes(call.in, call.out, call.tables);
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

kernels::InflateTables tablesOf(const ZebInflateState& state) {
  if (state.tableKind == zebInflateTablesFixed) return fixedTables;
  return {state.litLenTable, state.distanceTable, state.litLenLengths};
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
  if (pState->tableKind > zebInflateTablesFast) return zebErrBadData;

  InflateCall call = {};
  call.in.src = *ppSrc;
  call.in.end = *ppSrc + *pSrcLen;
  call.in.bits = *pCode & ((uint64_t{1} << *pCodeLenBits) - 1);
  call.in.count = static_cast<int>(*pCodeLenBits);
  call.out = {*ppDst - winIdx, *ppDst, *ppDst + *pDstLen};
  call.tables = tablesOf(*pState);
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
