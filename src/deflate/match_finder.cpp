// From source bytes to pairs: the frame around the match-finding kernels.
//
// Matching happens inside the record's history area alone. The source is copied behind the window
// there, part by part, so that a kernel sees window and new bytes in one piece, may load wide words
// behind them, and never touches the caller's source. When the area is full, the window slides back
// to its start. The two copies cost some hundredths of what matching costs.
//
//   0               offset - 32768        offset                 filled            65536
//   | older bytes   | window              | source               | unused, slack   |

#include "deflate/match_finder.h"

#include <string.h>

#include <algorithm>

#include "checksum/checksum.h"
#include "deflate/format.h"
#include "deflate/match_tables.h"
#include "frame/entry.h"
#include "kernels/match_finder.h"

namespace zebdc::deflate {
namespace {

using kernels::MatchRun;

constexpr uint32_t window = windowSize;
constexpr uint32_t usableBytes = historyBytes - kernels::matchReadSlack;

// A slid window leaves room for more new bytes than the kernels look ahead, so each part advances.
static_assert(usableBytes - window > kernels::matchLookAhead);

// historyBase is an address outside the area for most positions: it is moved as a number.
uint8_t* movedBy(uint8_t* address, int64_t distance) {
  return reinterpret_cast<uint8_t*>(reinterpret_cast<uintptr_t>(address) +
                                    static_cast<uintptr_t>(distance));
}

// The position of the history area's first byte, modulo 2^32.
uint32_t areaPosition(const EncoderState& state) {
  return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(state.history) -
                               reinterpret_cast<uintptr_t>(state.historyBase));
}

void renumberFor(EncoderState& state, int sourceLength) {
  if (state.windowPos <= INT32_MAX - sourceLength) return;
  const uint32_t by = renumber(state, static_cast<uint32_t>(state.windowPos));
  state.historyBase = movedBy(state.historyBase, by);
  state.windowPos -= static_cast<int32_t>(by);
}

// An index is made for calls at level 2 that are long enough to repay it.
constexpr int indexSourceLength = 12 * 1024;
constexpr int indexRoom = 2048;

class Matching {
 public:
  Matching(EncoderState& state, MatchCursor& cursor, ZebLZ77Flush flush)
      : state_(state), cursor_(cursor) {
    run_.area = state.history;
    run_.areaPosition = areaPosition(state);
    run_.at = static_cast<uint32_t>(state.windowPos) - run_.areaPosition;
    run_.pairs = cursor.pairs;
    run_.pairsEnd = cursor.pairs + cursor.room;
    run_.fullFlush = flush == zebLZ77FlushFull;
    run_.searchAfresh = true;
    run_.carriedLength = 0;
    run_.carriedDistance = 0;
    filled_ = run_.at;
    uncopied_ = cursor.sourceLength;
    byIndex_ = state.comprLevel == zebLZ77LevelBest && !run_.fullFlush &&
               cursor.sourceLength >= indexSourceLength && cursor.room >= indexRoom &&
               canIndex(state, state.windowPos);
  }

  void run() {
    do {
      slide();
      fill();
      renumberPart();
      matchPart();
    } while (cursor_.sourceLength != 0 && run_.pairs != run_.pairsEnd);
    saveHistory();
    cursor_.room = static_cast<int>(run_.pairsEnd - run_.pairs);
    cursor_.pairs = run_.pairs;
  }

 private:
  // Brings the window to the start of the area when what is left of the source has no room.
  void slide() {
    if (run_.at <= window || filled_ + static_cast<uint64_t>(uncopied_) <= usableBytes) return;
    const uint32_t by = run_.at - window;
    memmove(state_.history, state_.history + by, filled_ - by);
    run_.areaPosition += by;
    run_.at -= by;
    filled_ -= by;
  }

  void fill() {
    const uint32_t count = std::min(static_cast<uint32_t>(uncopied_), usableBytes - filled_);
    const uint8_t* const from = cursor_.source + (cursor_.sourceLength - uncopied_);
    memcpy(state_.history + filled_, from, count);
    filled_ += count;
    uncopied_ -= static_cast<int>(count);
  }

  // A single source of nearly 2^31 bytes can pass the last position although it began low.
  void renumberPart() {
    const uint32_t last = run_.areaPosition + filled_;
    if (last > INT32_MAX) run_.areaPosition -= renumber(state_, run_.areaPosition + run_.at);
  }

  void matchPart() {
    const uint32_t begin = run_.at;
    const bool allCopied = uncopied_ == 0;
    run_.end = filled_;
    const uint32_t stop =
        filled_ - std::min(filled_, allCopied ? tailLength() : kernels::matchLookAhead);
    run_.stop = std::min(stop, run_.at + kernels::refreshSpan);
    findPairs();
    if (allCopied && run_.at >= stop) tailLiterals();
    consume(run_.at - begin);
  }

  void findPairs() {
    if (state_.comprLevel == zebLZ77LevelFast) {
      kernels::fastMatch().find(run_, state_.headTable);
    } else if (byIndex_) {
      buildIndex(state_, run_);
      kernels::indexMatch().best(run_, indexOf(state_));
    } else {
      prepareChains(state_, run_);
      const kernels::ChainMatchKernels& kernel = kernels::chainMatch();
      (state_.comprLevel == zebLZ77LevelBest ? kernel.best : kernel.average)(run_,
                                                                             chainsOf(state_));
    }
  }

  // The last bytes of a call begin no match and end none.
  uint32_t tailLength() const { return state_.comprLevel == zebLZ77LevelBest ? 3 : 2; }

  void tailLiterals() {
    const uint32_t begin = run_.at;
    for (; run_.at < run_.end && run_.pairs != run_.pairsEnd; ++run_.at) {
      *run_.pairs++ = {state_.history[run_.at], 0};
    }
    if (run_.at != begin) noteSkipped(state_, positionOf(begin), positionOf(run_.at));
  }

  int32_t positionOf(uint32_t offset) const {
    return static_cast<int32_t>(offset + run_.areaPosition);
  }

  void consume(uint32_t count) {
    if (state_.checksumKind == zebLZ77ChecksumAdler32) {
      state_.checksum = checksum::adler32(state_.checksum, cursor_.source, count);
    } else if (state_.checksumKind == zebLZ77ChecksumCRC32) {
      state_.checksum = checksum::crc32(state_.checksum, cursor_.source, count);
    }
    cursor_.source += count;
    cursor_.sourceLength -= static_cast<int>(count);
  }

  void saveHistory() {
    if (run_.fullFlush) beginNumbering();
    state_.windowPos = positionOf(run_.at);
    state_.historyBase =
        movedBy(state_.history, -static_cast<int64_t>(static_cast<int32_t>(run_.areaPosition)));
  }

  // The next byte gets position 0, and nothing before it may be found again. The single candidates
  // of level 0 may stay: those at or above a position count as empty there, and any other is a
  // place behind the flush. Chains that mix two numberings would lose their order.
  void beginNumbering() {
    run_.areaPosition = 0 - run_.at;
    if (state_.comprLevel == zebLZ77LevelFast) {
      std::replace_if(
          state_.headTable, state_.headTable + hashEntries,
          [](int32_t position) { return position < 0; }, noPosition);
    } else {
      forgetPositions(state_);
    }
  }

  EncoderState& state_;
  MatchCursor& cursor_;
  bool byIndex_;
  MatchRun run_;
  uint32_t filled_;  // end of the source bytes in the area
  int uncopied_;     // source bytes that are not there yet
};

}  // namespace

ZebStatus findMatches(EncoderState& state, MatchCursor& cursor, ZebLZ77Flush flush) {
  renumberFor(state, cursor.sourceLength);
  state.callSrcLen = cursor.sourceLength;
  state.lastFlush = flush;
  if (cursor.room == 0) return zebWarnDstFull;
  if (cursor.sourceLength == 0) return zebOk;
  state.altBitsActive = 0;
  Matching(state, cursor, flush).run();
  state.callSrcLen = cursor.sourceLength;
  return cursor.sourceLength == 0 ? zebOk : zebWarnDstFull;
}

void setDictionary(EncoderState& state, const uint8_t* dictionary, int length) {
  const int count = std::min(length, windowSize);
  memcpy(state.history, dictionary + (length - count), static_cast<size_t>(count));
  state.historyBase = state.history;
  state.windowPos = count;
  forgetPositions(state);
  MatchRun run = {};
  run.area = state.history;
  run.stop = static_cast<uint32_t>(count - (minMatch - 1));
  if (state.comprLevel == zebLZ77LevelFast) {
    kernels::fastMatch().insert(run, state.headTable);
  } else {
    kernels::chainMatch().insert(run, chainsOf(state));
    noteSkipped(state, count - (minMatch - 1), count);
  }
}

}  // namespace zebdc::deflate

using namespace zebdc::deflate;

ZEBDC_ENTRY(ZebStatus, zebsEncodeLZ77_8u)
(const uint8_t** ppSrc, int* pSrcLen, ZebLZ77Pair** ppPairs, int* pPairsLen, ZebLZ77Flush flush,
 ZebLZ77State_8u* pState) {
  if (ppSrc == nullptr || pSrcLen == nullptr || ppPairs == nullptr || pPairsLen == nullptr ||
      pState == nullptr || *ppPairs == nullptr) {
    return zebErrNullPtr;
  }
  if (*pPairsLen < 0 || *pSrcLen < 0) return zebErrSize;
  MatchCursor cursor = {*ppSrc, *pSrcLen, *ppPairs, *pPairsLen};
  const ZebStatus status = findMatches(encoderState(pState), cursor, flush);
  *ppSrc = cursor.source;
  *pSrcLen = cursor.sourceLength;
  *ppPairs = cursor.pairs;
  *pPairsLen = cursor.room;
  return status;
}

ZEBDC_ENTRY(ZebStatus, zebsEncodeLZ77SetDictionary_8u)
(const uint8_t* pDict, int dictLen, ZebLZ77State_8u* pState) {
  if (pDict == nullptr || pState == nullptr) return zebErrNullPtr;
  if (dictLen < 0) return zebErrSize;
  if (dictLen < minMatch) return zebOk;
  EncoderState& state = encoderState(pState);
  if (state.deflateStatus != zebLZ77StatusIdle) return zebErrGeneral;
  setDictionary(state, pDict, dictLen);
  return zebOk;
}
