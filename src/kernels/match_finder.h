// The match finders: bytes to pairs.
//
// Three families of kernels share the run below: level 0 takes one candidate from a table of heads,
// levels 1 and 2 follow chains, and level 2 has an index of all strings for long calls. How each
// works stands in its source file.
#ifndef ZEBDC_KERNELS_MATCH_FINDER_H
#define ZEBDC_KERNELS_MATCH_FINDER_H

#include <stdint.h>
#include <zebdc/zebdc.h>

#include "kernels/tier.h"

namespace zebdc::kernels {

// One run over bytes that lie in one piece behind their window.
//
// Offsets count from area; positions are offset + areaPosition modulo 2^32. A table entry serves at
// position p when 1 <= p - entry <= 32767, so that entries from too far back count as empty, and so
// do those of positions that are not yet reached.
struct MatchRun {
  const uint8_t* area;  // all bytes of the 32767 positions before at, as far as they exist
  uint32_t areaPosition;
  uint32_t at;    // offset of the next byte; advanced
  uint32_t stop;  // pairs are made while at < stop
  uint32_t end;   // end of the bytes; matchReadSlack more may be read, but mean nothing

  ZebLZ77Pair* pairs;  // advanced
  ZebLZ77Pair* pairsEnd;

  // Candidates at position 0 and before are refused.
  bool fullFlush;

  // Lazy evaluation: whether the byte at is yet to be searched for, and if not, what was found.
  bool searchAfresh;
  uint32_t carriedLength;
  uint32_t carriedDistance;
};

// Bytes behind the end that wide loads may touch.
inline constexpr uint32_t matchReadSlack = 48;

// How far behind stop the end of the bytes must be, unless it is the end of the call: neither a
// match that begins before stop nor the search at the byte behind such a one comes near it.
inline constexpr uint32_t matchLookAhead = 258 + 8;

struct FastMatchKernels {
  void (*find)(MatchRun& run, int32_t* headTable);
  // Enters the places at to stop - 1; advances at.
  void (*insert)(MatchRun& run, int32_t* headTable);
};

// The chains of levels 1 and 2. A string's candidates are numbered from the nearest, 1, 2, 3 and so
// on; links lead from each to the next but one, so that a search follows two chains side by side,
// the odd and the even candidates, and waits for memory half as long. Distances of 32768 and more
// stand for none.
struct MatchChains {
  // By the 15-bit hash, in one word so that a string enters by one exchange:
  //   bits 0-15   the position of the most recent string, modulo 65536
  //   bits 16-31  that of the one before
  uint32_t* recent;
  uint16_t* link;  // of a position modulo 32768: the distance to the next but one of its hash
};

// How far a run may go, in positions from the last refresh to its stop: up to there, what was too
// far back stays so although positions are known modulo 65536 only.
inline constexpr uint32_t refreshSpan = 32768 - matchLookAhead;

struct ChainMatchKernels {
  void (*average)(MatchRun& run, const MatchChains& chains);
  void (*best)(MatchRun& run, const MatchChains& chains);
  void (*insert)(MatchRun& run, const MatchChains& chains);
  // Marks what is too far back from a position, 32768 or less behind the last refresh.
  void (*refresh)(const MatchChains& chains, uint32_t position);
};

// The offsets of the area sorted by hash, and within one hash ascending.
struct MatchIndex {
  uint16_t* sorted;  // 65536
  uint16_t* next;    // by hash: behind the last offset entered
  uint16_t* first;   // by hash: the first offset not yet too far back
};

// An index is made by clear; count for everything that will be entered; layOut; enter for what lies
// before at. The finder enters the rest as it goes.
struct IndexMatchKernels {
  void (*clear)(const MatchIndex& index);
  void (*count)(const MatchRun& run, const MatchIndex& index, uint32_t begin, uint32_t end);
  void (*layOut)(const MatchIndex& index);
  void (*enter)(const MatchRun& run, const MatchIndex& index, uint32_t begin, uint32_t end);
  void (*best)(MatchRun& run, const MatchIndex& index);
};

extern const TierTable<FastMatchKernels> fastMatchKernels;
extern const TierTable<ChainMatchKernels> chainMatchKernels;
extern const TierTable<IndexMatchKernels> indexMatchKernels;

inline const FastMatchKernels& fastMatch() {
  return fastMatchKernels[activeTier];
}
inline const ChainMatchKernels& chainMatch() {
  return chainMatchKernels[activeTier];
}
inline const IndexMatchKernels& indexMatch() {
  return indexMatchKernels[activeTier];
}

}  // namespace zebdc::kernels

#endif
