// The inner loops of deflate decoding.
//
// One loop serves bytes and pairs; what becomes of a literal or a match is the business of a sink.
//
// What limits it is the chain from one table entry to the next, and the branch between literals and
// matches that is often predicted wrong. A literal's chain is shift (1 cycle), mask (1), load (5);
// a match's is twice that, through the distance. So the loop
//   - takes from an entry all that it needs for the next lookup with a single shift;
//   - looks up, in front of that branch, what follows an entry of either kind: the next literal or
//     length, and the distance. After a wrong prediction both are there when the right side starts;
//   - looks the next entry up before it tops up the bit buffer, and before it copies a match: both
//     then run beside the load;
//   - decodes two symbols by one entry where they fit (see inflate_table.h).
//
// Nothing is consumed before its symbol has been accepted: `buffer` stands in front of the entry,
// `behind` behind it, and the loop can be left at any point.
//
// Bits. Topping up leaves 56 to 63 bits in hand, and all 64 bits of the buffer are bits of the
// stream. Four entries of literals consume at most 44 of them and leave enough to look the next one
// up; then the buffer is topped up. A length consumes at most 15 + 5 bits, or 16 with a literal in
// front. Three entries of literals in front of it leave enough for the lookup of its distance, of 8
// bits; then the buffer is topped up, too. A distance consumes at most 15 + 13 bits, and the lookup
// behind it takes up to 11 more; without literals in front that makes at most 59 of the 64 bits in
// the buffer.
//
// Source. Each turn tops up at most twice, and before the first turn once; to top up reads 8 bytes
// and goes on by at most 7. So a turn reads no further than 7 + 7 + 8 bytes from where the margin
// of 24 was last seen.
//
// Room. A turn writes at most 4 entries of 2 literals; or 3 of them, the literal in front of a
// match, and the match, whose copy is rounded up to whole steps: 6 + 1 + 288 bytes, within the
// margin of 304, or 6 + 1 + 1 pairs.
//
// Tried and dropped:
//   - choosing between room and history for each match without a branch, which saves the copy that
//     decoding beside the history takes (as the callers do where they can): 3 % faster on an idle
//     core of Zen 3, up to 2 % slower on one that shares its units with another thread, and 7 %
//     slower on Zen 4;
//   - three literals between topping up, and testing before topping up a second time: 1 % slower;
//   - single symbols in all entries: up to 20 % slower on text.

#include "kernels/inflate_block.h"

#include <string.h>

#include "frame/bytes.h"
#include "kernels/inflate_loop.h"
#include "kernels/target.h"

namespace zebdc::kernels {
namespace {

constexpr int literalsBetweenRefills = 4;
constexpr int longestLength = 15 + 5;  // bits of code and extra bits
constexpr int longestDistance = 15 + 13;

static_assert(literalsBetweenRefills * litLenRootBits + litLenRootBits <= bitsRefilled);
static_assert((literalsBetweenRefills - 1) * litLenRootBits + longestLength <= bitsRefilled);
static_assert((literalsBetweenRefills - 1) * litLenRootBits + longestLength + distanceRootBits <=
              64);
static_assert(longestDistance + litLenRootBits <= bitsRefilled);
static_assert(longestLength + longestDistance <= bitsRefilled);
static_assert(longestLength + longestDistance + litLenRootBits <= 64);
static_assert(7 + 7 + 8 <= inflateSourceMargin);
static_assert(2 * (literalsBetweenRefills - 1) + 1 +
                  (longestMatch + copyStep - 1) / copyStep * copyStep <=
              inflateBytesMargin);
static_assert(2 * literalsBetweenRefills <= inflatePairsMargin);

// The extra bits of a length or a distance. In its entry the flags above "code bits", which the
// count of the shift takes in, are 0.
ZEBDC_ALWAYS_INLINE uint64_t extraBits(uint64_t entry, uint64_t bits) {
  const uint64_t codeAndExtra = bits & ((uint64_t{1} << (entry & entryAllBits)) - 1);
  return codeAndExtra >> (entry >> entryCodeBitsShift & 63);
}

// The entry of a subtable, the pointer to which has been consumed.
ZEBDC_ALWAYS_INLINE uint64_t subtableEntry(const uint32_t* table, uint64_t pointer, uint64_t bits) {
  const uint64_t width = pointer >> entryCodeBitsShift & entryCodeBitsMask;
  return table[(pointer >> entryValueShift) + (bits & ((uint64_t{1} << width) - 1))];
}

// Sinks -------------------------------------------------------------------------------------------
//
// literals(entry)       writes both literals of an entry, keeps as many as it has
// literal(entry)        writes the literal in front of a match, keeps it if there is one
// accepts(...)          whether the match can be written
// match(...)            writes it

struct ByteSink {
  uint8_t* dst;
  uint8_t* const begin;

  ZEBDC_ALWAYS_INLINE void literals(uint64_t entry) {
    store<uint16_t>(dst, static_cast<uint16_t>(entry >> entryValueShift));
    dst += entry >> entryCountShift;
  }

  ZEBDC_ALWAYS_INLINE void literal(uint64_t entry) {
    *dst = static_cast<uint8_t>(entry >> entryValueShift);
    dst += entry >> entryCountShift;
  }
};

// Matches within the room, which is known to be long enough behind begin.
struct FreeSink : ByteSink {
  ZEBDC_ALWAYS_INLINE bool accepts(uint64_t) const { return true; }

  ZEBDC_ALWAYS_INLINE void match(uint64_t length, uint64_t distance) {
    copyMatch(dst - distance, dst, length, distance);
    dst += length;
  }
};

// Matches within the room.
struct CheckedSink : FreeSink {
  ZEBDC_ALWAYS_INLINE bool accepts(uint64_t distance) const {
    return distance <= static_cast<uint64_t>(dst - begin);
  }
};

// A match of which the first bytes stand before `to`, at the end of the history, and the others
// from begin on.
ZEBDC_NOINLINE void copyStraddlingMatch(const uint8_t* historyEnd, uint64_t inHistory,
                                        const uint8_t* begin, uint8_t* to, uint64_t length) {
  memcpy(to, historyEnd - inHistory, inHistory);
  to += inHistory;
  for (; length > inHistory; --length) *to++ = *begin++;
}

// Matches within the history and the room.
struct HistorySink : ByteSink {
  const uint8_t* const historyEnd;

  ZEBDC_ALWAYS_INLINE bool accepts(uint64_t) const { return true; }

  ZEBDC_ALWAYS_INLINE void match(uint64_t length, uint64_t distance) {
    const int64_t position = (dst - begin) - static_cast<int64_t>(distance);
    if (static_cast<uint64_t>(-position - 1) < length - 1) {
      copyStraddlingMatch(historyEnd, static_cast<uint64_t>(-position), begin, dst, length);
    } else {
      const int64_t toHistory = position >> 63 & (historyEnd - begin);
      copyMatch(begin + position + toHistory, dst, length, distance);
    }
    dst += length;
  }
};

struct PairSink {
  ZebLZ77Pair* dst;

  ZEBDC_ALWAYS_INLINE void literals(uint64_t entry) {
    store(dst, static_cast<uint32_t>(entryFirst(entry)));
    store(dst + 1, static_cast<uint32_t>(entrySecond(entry)));
    dst += entry >> entryCountShift;
  }

  ZEBDC_ALWAYS_INLINE void literal(uint64_t entry) {
    store(dst, static_cast<uint32_t>(entryFirst(entry)));
    dst += entry >> entryCountShift;
  }

  ZEBDC_ALWAYS_INLINE bool accepts(uint64_t) const { return true; }

  ZEBDC_ALWAYS_INLINE void match(uint64_t length, uint64_t distance) {
    store(dst++, static_cast<uint32_t>(length | distance << 16));
  }
};

// The loop ----------------------------------------------------------------------------------------

// Runs while the source is not beyond lastSrc and the room not beyond lastDst, which hold at entry.
// The bit buffer has been topped up.
template <class Sink, class Element>
ZEBDC_ALWAYS_INLINE void decodeSymbols(BitBuffer& buffer, Sink& sink, const InflateTables& tables,
                                       const uint8_t* lastSrc, const Element* lastDst) {
  const uint32_t* const litLen = tables.litLen;
  const uint32_t* const distances = tables.distance;
  const auto lookUp = [&](const BitBuffer& at) {
    return uint64_t{litLen[at.bits & litLenRootMask]};
  };
  const auto lookUpDistance = [&](const BitBuffer& at) {
    return uint64_t{distances[at.bits & distanceRootMask]};
  };
  uint64_t entry = lookUp(buffer);
  do {
    BitBuffer behind = buffer;
    behind.consume(entry);
    uint64_t next = opaque(lookUp(behind));
    uint64_t distanceEntry = opaque(lookUpDistance(behind));
    if (entry & entryLiterals) {
      int entries = 1;
      for (; entries < literalsBetweenRefills; ++entries) {
        sink.literals(entry);
        buffer = behind;
        entry = next;
        behind.consume(entry);
        next = opaque(lookUp(behind));
        distanceEntry = opaque(lookUpDistance(behind));
        if ((entry & entryLiterals) == 0) break;
      }
      if (entries == literalsBetweenRefills) {
        sink.literals(entry);
        behind.refill();
        buffer = behind;
        entry = next;
        continue;
      }
      behind.refill();
    }

    uint64_t codeAndExtra = buffer.bits;
    if (entry & entryException) [[unlikely]] {
      if ((entry & entrySubtable) == 0) return;
      entry = subtableEntry(litLen, entry, behind.bits);
      if (entry & entryException) return;
      codeAndExtra = behind.bits;
      behind.consume(entry);
      if (entry & entryLiterals) {
        sink.literals(entry);
        entry = lookUp(behind);
        behind.refill();
        buffer = behind;
        continue;
      }
      distanceEntry = lookUpDistance(behind);
    }
    Element* const dstBefore = sink.dst;
    sink.literal(entry);
    const uint64_t length =
        entrySecond(entry) + entryShortestMatch + extraBits(entry, codeAndExtra);

    if (distanceEntry & entryException) [[unlikely]] {
      if (distanceEntry & entrySubtable) {
        behind.consume(distanceEntry);
        distanceEntry = subtableEntry(distances, distanceEntry, behind.bits);
      }
      if (distanceEntry & entryException) {
        sink.dst = dstBefore;
        return;
      }
    }
    const uint64_t distance =
        (distanceEntry >> entryValueShift) + extraBits(distanceEntry, behind.bits);
    behind.consume(distanceEntry);
    if (!sink.accepts(distance)) {
      sink.dst = dstBefore;
      return;
    }

    entry = lookUp(behind);
    behind.refill();
    buffer = behind;
    sink.match(length, distance);
  } while (buffer.src <= lastSrc && sink.dst <= lastDst);
}

template <class Sink>
ZEBDC_ALWAYS_INLINE void decodeToRoom(InflateInput& in, InflateBytes& out, Sink sink,
                                      const InflateTables& tables, const uint8_t* lastDst) {
  BitBuffer buffer(in);
  buffer.refill();
  decodeSymbols<Sink, uint8_t>(buffer, sink, tables, in.end - inflateSourceMargin, lastDst);
  buffer.save(in);
  out.dst = sink.dst;
}

// Until inflateReach bytes stand behind begin the sink looks after matches that reach before it;
// from there on none does.
template <class Sink, class... Field>
ZEBDC_ALWAYS_INLINE void decodeToBytes(InflateInput& in, InflateBytes& out,
                                       const InflateTables& tables, Field... field) {
  if (out.dst - out.begin < inflateReach && hasMargins(in, out.end - out.dst, inflateBytesMargin)) {
    const uint8_t* const last = out.end - inflateBytesMargin;
    const uint8_t* const lastNear = out.begin + (inflateReach - 1);
    decodeToRoom(in, out, Sink{{out.dst, out.begin}, field...}, tables,
                 last < lastNear ? last : lastNear);
  }
  if (out.dst - out.begin >= inflateReach &&
      hasMargins(in, out.end - out.dst, inflateBytesMargin)) {
    decodeToRoom(in, out, FreeSink{{out.dst, out.begin}}, tables, out.end - inflateBytesMargin);
  }
}

ZEBDC_ALWAYS_INLINE void decodeToPairs(InflateInput& in, InflatePairs& out,
                                       const InflateTables& tables) {
  if (!hasMargins(in, out.end - out.dst, inflatePairsMargin)) return;
  BitBuffer buffer(in);
  PairSink sink = {out.dst};
  buffer.refill();
  decodeSymbols<PairSink, ZebLZ77Pair>(buffer, sink, tables, in.end - inflateSourceMargin,
                                       out.end - inflatePairsMargin);
  buffer.save(in);
  out.dst = sink.dst;
}

}  // namespace

#define ZEBDC_INFLATE_KERNELS                                                             \
  void toBytes(InflateInput& in, InflateBytes& out, const InflateTables& tables) {        \
    decodeToBytes<CheckedSink>(in, out, tables);                                          \
  }                                                                                       \
  void toBytesWithHistory(InflateInput& in, InflateBytes& out, const uint8_t* historyEnd, \
                          const InflateTables& tables) {                                  \
    decodeToBytes<HistorySink>(in, out, tables, historyEnd);                              \
  }                                                                                       \
  void toPairs(InflateInput& in, InflatePairs& out, const InflateTables& tables) {        \
    decodeToPairs(in, out, tables);                                                       \
  }                                                                                       \
  constexpr InflateKernels kernels = {toBytes, toBytesWithHistory, toPairs};

namespace baseline {
namespace {
ZEBDC_INFLATE_KERNELS
}
}  // namespace baseline

// Shifts by a count in any register, and the extraction of low bits in one instruction.
ZEBDC_BEGIN_AVX2
namespace avx2 {
namespace {
ZEBDC_INFLATE_KERNELS
}
}  // namespace avx2
ZEBDC_END_TARGET

constinit const TierTable<InflateKernels> inflateKernels({{tierBaseline, baseline::kernels},
                                                          {tierAvx2, avx2::kernels}});

}  // namespace zebdc::kernels
