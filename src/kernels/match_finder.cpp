#include "kernels/match_finder.h"

#include <algorithm>
#include <bit>

#include "frame/bytes.h"
#include "frame/compiler.h"
#include "kernels/target.h"

namespace zebdc::kernels {
namespace {

constexpr uint32_t windowMask = 0x7FFF;
constexpr uint32_t maxDistance = 0x7FFF;
constexpr uint32_t maxMatch = 258;
constexpr uint32_t minMatch = 3;

struct Match {
  uint32_t length;
  uint32_t distance;
};

// How the three finders measure and look up, with or without the bounds of a full flush.
template <bool fullFlush>
class Finder {
 public:
  ZEBDC_ALWAYS_INLINE explicit Finder(MatchRun& run) : run_(run) {}

  ZEBDC_ALWAYS_INLINE bool more() const {
    return run_.at < run_.stop && run_.pairs != run_.pairsEnd;
  }
  ZEBDC_ALWAYS_INLINE uint32_t position(uint32_t offset) const {
    return offset + run_.areaPosition;
  }

  // The greatest distance that position p accepts.
  ZEBDC_ALWAYS_INLINE uint32_t reach(uint32_t p) const {
    if constexpr (fullFlush) return p == 0 ? 0 : std::min(p - 1, maxDistance);
    return maxDistance;
  }

  ZEBDC_ALWAYS_INLINE uint32_t limitAt(uint32_t offset, uint32_t tail) const {
    return std::min(run_.end - tail - offset, maxMatch);
  }

  ZEBDC_ALWAYS_INLINE uint32_t rollingHash(uint32_t offset) const {
    const uint8_t* b = run_.area + offset;
    return ((static_cast<uint32_t>(b[0]) << 10) ^ (static_cast<uint32_t>(b[1]) << 5) ^ b[2]) &
           0x7FFF;
  }

  ZEBDC_ALWAYS_INLINE uint32_t tableHash(uint32_t offset) const {
    const uint8_t* b = run_.area + offset;
    return static_cast<uint32_t>(run_.levelTable[b[0]] ^ run_.levelTable[256 + b[1]] ^
                                 run_.levelTable[512 + b[2]]);
  }

  // The length that the strings at two places share, up to limit.
  ZEBDC_ALWAYS_INLINE uint32_t commonLength(const uint8_t* a, const uint8_t* b,
                                            uint32_t limit) const {
    for (uint32_t length = 0; length < limit; length += 8) {
      const uint64_t difference = load<uint64_t>(a + length) ^ load<uint64_t>(b + length);
      if (difference != 0) {
        return std::min(length + static_cast<uint32_t>(std::countr_zero(difference)) / 8, limit);
      }
    }
    return limit;
  }

  // The best of the first maxCandidates of a chain that is longer than 2: the longest, and the
  // nearest of the longest.
  //
  // A candidate is measured only if it agrees in the byte that would make it longer and in the
  // three before that: few that are not longer pass.
  ZEBDC_ALWAYS_INLINE Match search(uint32_t offset, int32_t candidate, uint32_t limit,
                                   uint32_t maxCandidates) const {
    const uint32_t p = position(offset);
    const uint8_t* const here = run_.area + offset;
    const uint32_t farthest = reach(p);
    Match best = {minMatch - 1, 0};
    if (limit < minMatch) return best;
    uint32_t checkAt = 0;
    uint32_t checkMask = 0xFFFFFF;
    uint32_t needle = load<uint32_t>(here) & checkMask;
    for (uint32_t left = maxCandidates; left != 0; --left) {
      const uint32_t distance = p - static_cast<uint32_t>(candidate);
      if (distance - 1 >= farthest) break;
      const uint8_t* const there = here - distance;
      if ((load<uint32_t>(there + checkAt) & checkMask) == needle) {
        const uint32_t length = commonLength(here, there, limit);
        if (length > best.length) {
          best = {length, distance};
          if (length == limit) break;
          checkAt = length - 3;
          checkMask = 0xFFFFFFFF;
          needle = load<uint32_t>(here + checkAt);
        }
      }
      candidate = run_.chainTable[static_cast<uint32_t>(candidate) & windowMask];
    }
    return best;
  }

  ZEBDC_ALWAYS_INLINE void insertRolling(uint32_t offset) const {
    run_.headTable[rollingHash(offset)] = static_cast<int32_t>(position(offset));
  }

  // Returns the head before.
  ZEBDC_ALWAYS_INLINE int32_t insertChained(uint32_t offset) const {
    const uint32_t p = position(offset);
    int32_t& head = run_.headTable[tableHash(offset)];
    const int32_t before = head;
    run_.chainTable[p & windowMask] = before;
    head = static_cast<int32_t>(p);
    return before;
  }

  ZEBDC_ALWAYS_INLINE void literal() const {
    *run_.pairs++ = {run_.area[run_.at], 0};
    ++run_.at;
  }

  ZEBDC_ALWAYS_INLINE void matchOut(Match match) const {
    *run_.pairs++ = {static_cast<uint16_t>(match.length), static_cast<uint16_t>(match.distance)};
  }

  void fast() const {
    while (more()) {
      const uint32_t p = position(run_.at);
      int32_t& head = run_.headTable[rollingHash(run_.at)];
      const uint32_t distance = p - static_cast<uint32_t>(head);
      head = static_cast<int32_t>(p);
      Match match = {0, distance};
      if (distance - 1 < reach(p)) {
        const uint8_t* const here = run_.area + run_.at;
        match.length = commonLength(here, here - distance, limitAt(run_.at, 2));
      }
      if (match.length < minMatch) {
        literal();
        continue;
      }
      matchOut(match);
      const uint32_t next = run_.at + match.length;
      while (++run_.at < next) insertRolling(run_.at);
    }
  }

  void average() const {
    constexpr uint32_t maxCandidates = 16;
    while (more()) {
      const int32_t candidate = insertChained(run_.at);
      const Match match = search(run_.at, candidate, limitAt(run_.at, 2), maxCandidates);
      if (match.length < minMatch) {
        literal();
        continue;
      }
      matchOut(match);
      const uint32_t next = run_.at + match.length;
      while (++run_.at < next) insertChained(run_.at);
    }
  }

  void best() const {
    constexpr uint32_t maxCandidates = 512;
    constexpr uint32_t farThreeByteMatch = 4096;
    constexpr uint32_t tail = fullFlush ? 2 : 3;
    bool searchAfresh = run_.searchAfresh;
    Match match = {run_.carriedLength, run_.carriedDistance};
    while (more()) {
      const int32_t candidate = insertChained(run_.at);
      if (searchAfresh) match = search(run_.at, candidate, limitAt(run_.at, tail), maxCandidates);
      const Match next = search(run_.at + 1, run_.headTable[tableHash(run_.at + 1)],
                                limitAt(run_.at + 1, tail), maxCandidates);
      const bool acceptable = match.length > minMatch ||
                              (match.length == minMatch && match.distance <= farThreeByteMatch);
      searchAfresh = acceptable && match.length >= next.length;
      if (!searchAfresh) {
        literal();
        match = next;
        continue;
      }
      matchOut(match);
      const uint32_t nextAt = run_.at + match.length;
      while (++run_.at < nextAt) insertChained(run_.at);
    }
    run_.searchAfresh = searchAfresh;
    run_.carriedLength = match.length;
    run_.carriedDistance = match.distance;
  }

  void insertAllRolling() const {
    for (; run_.at < run_.stop; ++run_.at) insertRolling(run_.at);
  }

  void insertAllChained() const {
    for (; run_.at < run_.stop; ++run_.at) insertChained(run_.at);
  }

 private:
  MatchRun& run_;
};

template <bool fullFlush>
void fast(MatchRun& run) {
  Finder<fullFlush>(run).fast();
}

template <bool fullFlush>
void average(MatchRun& run) {
  Finder<fullFlush>(run).average();
}

template <bool fullFlush>
void best(MatchRun& run) {
  Finder<fullFlush>(run).best();
}

void insertRolling(MatchRun& run) {
  Finder<false>(run).insertAllRolling();
}

void insertChained(MatchRun& run) {
  Finder<false>(run).insertAllChained();
}

constexpr MatchFinderKernels baseline = {{fast<false>, average<false>, best<false>},
                                         {fast<true>, average<true>, best<true>},
                                         {insertRolling, insertChained, insertChained}};

}  // namespace

constinit const TierTable<MatchFinderKernels> matchFinderKernels({{tierBaseline, baseline}});

}  // namespace zebdc::kernels
