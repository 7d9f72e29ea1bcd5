// The tables of the match finder in the encoder's record, between its calls.
//
// Level 0 keeps positions in headTable. Levels 1 and 2 keep there what MatchChains calls recent,
// and the links in the first half of chainTable. In either form the initial value of the entries,
// -32768 or 0xFFFF8000, is empty. The index of level 2 takes the room of both tables: chainTable
// has the sorted places, headTable the 16-bit next and first.

#include "deflate/match_tables.h"

#include <algorithm>

#include "deflate/format.h"
#include "kernels/memory.h"

namespace zebdc::deflate {
namespace {

using kernels::MatchRun;

int32_t windowBegin(const EncoderState& state, int32_t position) {
  return std::max(state.windowStart, position - windowSize);
}

// Calls action(begin, end) for each range of the window before a position that is in the tables.
template <class Action>
void forEachEntered(const EncoderState& state, int32_t position, Action action) {
  int32_t begin = windowBegin(state, position);
  for (int32_t i = 0; i < state.skipped.count; ++i) {
    const SkippedRanges::Range& skipped = state.skipped.ranges[i];
    if (skipped.begin > begin) action(begin, skipped.begin);
    begin = std::max(begin, skipped.end);
  }
  if (begin < position) action(begin, position);
}

uint32_t* recentOf(const EncoderState& state) {
  return reinterpret_cast<uint32_t*>(state.headTable);
}

// Nothing is known at a position.
void emptyChains(EncoderState& state, int32_t position) {
  const uint32_t tooFar = static_cast<uint32_t>(position - windowSize) & 0xFFFF;
  kernels::memory().fill32(0xFFFF0000 | tooFar, recentOf(state), hashEntries);
  state.refreshedAt = position;
}

int32_t lowered(int32_t position, int32_t by) {
  return position < noPosition + by ? noPosition : position - by;
}

// As they would be had there been no index.
void restoreChains(EncoderState& state, const MatchRun& run, int32_t position) {
  state.chainsAreGone = 0;
  emptyChains(state, windowBegin(state, position));
  forEachEntered(state, position, [&](int32_t begin, int32_t end) {
    MatchRun range = run;
    range.at = static_cast<uint32_t>(begin) - run.areaPosition;
    range.stop = static_cast<uint32_t>(end) - run.areaPosition;
    kernels::chainMatch().insert(range, chainsOf(state));
  });
}

}  // namespace

void emptyTable(int32_t* table, int entries) {
  kernels::memory().fill32(static_cast<uint32_t>(noPosition), reinterpret_cast<uint32_t*>(table),
                           entries);
}

void forgetPositions(EncoderState& state) {
  static_assert(noPosition == static_cast<int32_t>(0xFFFF8000));
  emptyChains(state, 0);
  state.chainsAreGone = 0;
  state.windowStart = 0;
  state.skipped.count = 0;
}

uint32_t renumber(EncoderState& state, uint32_t position) {
  const int32_t by = static_cast<int32_t>(position & ~0x7FFFu);
  if (state.comprLevel == zebLZ77LevelFast) {
    for (int i = 0; i < hashEntries; ++i) state.headTable[i] = lowered(state.headTable[i], by);
  } else if (state.chainsAreGone == 0) {
    for (int i = 0; i < hashEntries; ++i) recentOf(state)[i] ^= (by & 0x8000) * 0x10001u;
  }
  state.refreshedAt -= by;
  state.windowStart = lowered(state.windowStart, by);
  for (int32_t i = 0; i < state.skipped.count; ++i) {
    SkippedRanges::Range& range = state.skipped.ranges[i];
    range = {lowered(range.begin, by), lowered(range.end, by)};
  }
  return static_cast<uint32_t>(by);
}

void noteSkipped(EncoderState& state, int32_t begin, int32_t end) {
  SkippedRanges& skipped = state.skipped;
  if (skipped.count != 0 && skipped.ranges[skipped.count - 1].end == begin) {
    skipped.ranges[skipped.count - 1].end = end;
    return;
  }
  if (skipped.count == SkippedRanges::capacity) {
    std::copy(skipped.ranges + 1, skipped.ranges + skipped.count, skipped.ranges);
    --skipped.count;
  }
  skipped.ranges[skipped.count++] = {begin, end};
}

kernels::MatchChains chainsOf(const EncoderState& state) {
  return {recentOf(state), reinterpret_cast<uint16_t*>(state.chainTable)};
}

kernels::MatchIndex indexOf(const EncoderState& state) {
  uint16_t* const places = reinterpret_cast<uint16_t*>(state.headTable);
  return {reinterpret_cast<uint16_t*>(state.chainTable), places, places + hashEntries};
}

bool canIndex(const EncoderState& state, int32_t position) {
  return state.skipped.count < SkippedRanges::capacity ||
         state.skipped.ranges[0].begin <= windowBegin(state, position);
}

void buildIndex(EncoderState& state, const MatchRun& run) {
  const kernels::IndexMatchKernels& kernel = kernels::indexMatch();
  const kernels::MatchIndex index = indexOf(state);
  const int32_t position = static_cast<int32_t>(run.at + run.areaPosition);
  const auto offset = [&](int32_t p) { return static_cast<uint32_t>(p) - run.areaPosition; };
  state.chainsAreGone = 1;
  kernel.clear(index);
  forEachEntered(state, position, [&](int32_t begin, int32_t end) {
    kernel.count(run, index, offset(begin), offset(end));
  });
  kernel.count(run, index, run.at, std::min(run.stop + maxMatch, run.end - 2));
  kernel.layOut(index);
  forEachEntered(state, position, [&](int32_t begin, int32_t end) {
    kernel.enter(run, index, offset(begin), offset(end));
  });
}

void prepareChains(EncoderState& state, const MatchRun& run) {
  const int32_t position = static_cast<int32_t>(run.at + run.areaPosition);
  if (state.chainsAreGone != 0) restoreChains(state, run, position);
  const uint32_t span = run.stop + run.areaPosition - static_cast<uint32_t>(state.refreshedAt);
  if (span <= kernels::refreshSpan) return;
  kernels::chainMatch().refresh(chainsOf(state), static_cast<uint32_t>(position));
  state.refreshedAt = position;
}

}  // namespace zebdc::deflate
