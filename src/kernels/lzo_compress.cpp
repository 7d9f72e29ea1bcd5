// The level-1 compressor of LZO1X.
//
// A dictionary holds for each hash of four bytes the latest position where it was met. At each
// position the one candidate there, or a second one from another slot, is taken or refused at
// once; the match is written, and the search goes on behind it. There is no lazy evaluation, no
// chain and no search inside a match.
//
// What decides the speed is one chain of dependent steps from match to match: position, four
// bytes, hash, dictionary entry, candidate, length, next position; some 45 cycles, and 20 more for
// every branch that is predicted wrongly, of which there are nine for ten matches. So each entry
// holds the candidate's first four bytes beside its position, which judges it a load earlier and
// leaves most of those that fail untouched; and writing a match, which goes on beside the chain,
// takes no branch that depends on the kind of instruction.
//
// docs/decisions/lz.md has what was tried without gain.

#include "kernels/lzo.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "frame/bytes.h"
#include "frame/compiler.h"
#include "kernels/lzo_format.h"
#include "kernels/target.h"

namespace zebdc::kernels {
namespace {

using namespace lzoformat;

// Positions before the first are not searched and never found; nor are those of the tail searched.
constexpr size_t searchBegin = 4;
constexpr size_t searchTail = 13;
// At and before this distance from the end everything is done with exact bounds. A step of the
// wide search reads 12 bytes from its position on to begin measuring a match, and the literals
// before that position, 18 or a multiple of 16 of them, up to 18 bytes too far.
constexpr size_t wideTail = 32;
static_assert(wideTail >= searchTail);

// The hash: one row of 16-bit values for each of the four bytes, combined by exclusive or. The rows
// are those of a linear function, so that the whole can be computed at once and needs no table. The
// two shifts were chosen, among all pairs, by the size of what they compress to.
ZEBDC_ALWAYS_INLINE uint32_t hashOf(uint32_t bytes) {
  const uint32_t folded = bytes ^ (bytes >> 12);
  return (folded ^ (folded >> 7)) & (lzoDictionaryEntries - 1);
}

ZEBDC_ALWAYS_INLINE uint32_t secondSlot(uint32_t slot) {
  return (slot & 0x7FF) ^ 0x201F;
}

// An entry seen from a position: how far back, and how its four bytes differ.
struct Candidate {
  size_t distance;
  uint32_t difference;

  ZEBDC_ALWAYS_INLINE Candidate(uint64_t entry, size_t position, uint32_t bytes)
      : distance(position - static_cast<uint32_t>(entry)),
        difference(static_cast<uint32_t>(entry >> 32) ^ bytes) {}

  // Whether the distance can be coded. That of an empty entry is above all others.
  ZEBDC_ALWAYS_INLINE bool inReach() const { return distance - 1 < maxDistanceM4; }
  // A distant candidate that differs in the fourth byte gives way to the one of the second slot.
  ZEBDC_ALWAYS_INLINE bool yields() const {
    return distance - (maxDistanceM2 + 1) < maxDistanceM4 - maxDistanceM2 && difference > 0xFFFFFF;
  }
  // Near candidates need three equal bytes, distant ones four.
  ZEBDC_ALWAYS_INLINE bool matches() const {
    const uint32_t deciding = distance <= maxDistanceM2 ? 0xFFFFFF : 0xFFFFFFFF;
    return (difference & deciding) == 0 && inReach();
  }
};

// All ones for true.
ZEBDC_ALWAYS_INLINE uint32_t maskOf(bool condition) {
  return opaque(uint32_t{0} - static_cast<uint32_t>(condition));
}

ZEBDC_ALWAYS_INLINE void copy16(const uint8_t* src, uint8_t* dst) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dst),
                   _mm_loadu_si128(reinterpret_cast<const __m128i*>(src)));
}

uint8_t* writeExtension(uint8_t* dst, size_t value) {
  for (; value > extensionStep; value -= extensionStep) *dst++ = 0;
  *dst++ = static_cast<uint8_t>(value);
  return dst;
}

class Compressor {
 public:
  ZEBDC_ALWAYS_INLINE Compressor(const uint8_t* src, size_t srcLen, uint8_t* dst,
                                 uint64_t* dictionary)
      : src_(src),
        end_(src + srcLen),
        literals_(src),
        dst_(dst),
        out_(dst),
        dictionary_(dictionary) {}

  ZEBDC_ALWAYS_INLINE LzoCompressed run() {
    const size_t srcLen = static_cast<size_t>(end_ - src_);
    size_t position = searchBegin;
    if (srcLen > wideTail) position = search<true>(position, srcLen - wideTail);
    if (srcLen > searchTail) search<false>(position, srcLen - searchTail);
    return {static_cast<size_t>(out_ - dst_), static_cast<size_t>(end_ - literals_)};
  }

 private:
  // Searches positions below stop; returns the first one not searched.
  template <bool wide>
  ZEBDC_ALWAYS_INLINE size_t search(size_t position, size_t stop) {
    while (position < stop) {
      const uint32_t bytes = load<uint32_t>(src_ + position);
      const uint32_t slot = hashOf(bytes);
      const uint64_t entry = uint64_t{bytes} << 32 | position;
      Candidate candidate(dictionary_[slot], position, bytes);
      if (candidate.difference == 0 && candidate.inReach()) [[likely]] {
        dictionary_[slot] = entry;
      } else {
        candidate = askBothSlots(slot, entry, candidate);
        if (!candidate.matches()) [[likely]] {
          ++position;
          continue;
        }
      }
      position += writeMatch<wide>(src_ + position, candidate);
    }
    return position;
  }

  // Stores the entry in the slot that decides, and returns the candidate that was there. Which one
  // decides is next to random, so the choice is made without a branch.
  ZEBDC_ALWAYS_INLINE Candidate askBothSlots(uint32_t slot, uint64_t entry,
                                             const Candidate& first) const {
    const uint64_t second = opaque(uint64_t{0} - static_cast<uint64_t>(first.yields()));
    const uint64_t inFirst = dictionary_[slot];
    const uint64_t inSecond = dictionary_[secondSlot(slot)];
    const uint64_t deciding = inFirst ^ ((inFirst ^ inSecond) & second);
    dictionary_[slot ^ ((slot ^ secondSlot(slot)) & static_cast<uint32_t>(second))] = entry;
    return {deciding, static_cast<uint32_t>(entry), static_cast<uint32_t>(entry >> 32)};
  }

  // Writes the pending literals and the match at here; returns its length.
  template <bool wide>
  ZEBDC_ALWAYS_INLINE size_t writeMatch(const uint8_t* here, const Candidate& candidate) {
    const size_t length =
        candidate.difference == 0 ? matchLength<wide>(here, candidate.distance) : 3;
    writeLiterals<wide>(here);
    writeMatchInstruction(length, static_cast<uint32_t>(candidate.distance));
    literals_ = here + length;
    return length;
  }

  // Of a match of four or more bytes.
  template <bool wide>
  ZEBDC_ALWAYS_INLINE size_t matchLength(const uint8_t* here, size_t distance) const {
    size_t length = 4;
    if constexpr (wide) {
      const uint64_t difference = load<uint64_t>(here + 4) ^ load<uint64_t>(here + 4 - distance);
      if (difference != 0) [[likely]] {
        return length + static_cast<size_t>(std::countr_zero(difference)) / 8;
      }
      length += 8;
    }
    return extendedLength(here, distance, length);
  }

  size_t extendedLength(const uint8_t* here, size_t distance, size_t length) const {
    const size_t limit = static_cast<size_t>(end_ - here);
    for (; limit - length >= 8; length += 8) {
      const uint64_t difference =
          load<uint64_t>(here + length) ^ load<uint64_t>(here + length - distance);
      if (difference != 0) return length + static_cast<size_t>(std::countr_zero(difference)) / 8;
    }
    while (length < limit && here[length] == *(here + length - distance)) ++length;
    return length;
  }

  // The literals before here.
  template <bool wide>
  ZEBDC_ALWAYS_INLINE void writeLiterals(const uint8_t* here) {
    const size_t count = static_cast<size_t>(here - literals_);
    if constexpr (!wide) {
      if (count == 0) return;
      out_ = lzoWriteRunInstruction(out_, count, out_ == dst_);
      memcpy(out_, literals_, count);
    } else if (count > plainRun || out_ == dst_) [[unlikely]] {
      out_ = lzoWriteRunInstruction(out_, count, out_ == dst_);
      for (size_t i = 0; i < count; i += 16) copy16(literals_ + i, out_ + i);
    } else {
      // 0 to 3 go into the match before; 4 to 18 have a byte, which the literals overwrite
      // otherwise.
      const uint32_t few = maskOf(count < shortestRun);
      out_[-2] |= static_cast<uint8_t>(count & few);
      *out_ = static_cast<uint8_t>(count - (shortestRun - 1));
      out_ += 1 + static_cast<int32_t>(few);
      copy16(literals_, out_);
      store<uint16_t>(out_ + 16, load<uint16_t>(literals_ + 16));
    }
    out_ += count;
  }

  ZEBDC_ALWAYS_INLINE void writeMatchInstruction(size_t length, uint32_t distance) {
    const uint32_t isM2 = maskOf((length <= maxLengthM2) & (distance <= maxDistanceM2));
    const uint32_t isM4 = maskOf(distance > maxDistanceM3);
    const uint32_t back = distance - 1;
    const uint32_t m2 = (static_cast<uint32_t>(length) - 1) << 5 | (back & 7) << 2 | back >> 3 << 8;
    const uint32_t beyond = back - (isM4 & (baseDistanceM4 - 1));
    const uint32_t kind = (isM4 & (firstM4 | (beyond >> 11 & 8))) | (~isM4 & firstM3);
    const size_t plain = plainLengthM3 - (isM4 & (plainLengthM3 - plainLengthM4));
    if (length > plain) [[unlikely]] {
      *out_++ = static_cast<uint8_t>(kind);
      out_ = writeExtension(out_, length - plain);
      store<uint16_t>(out_, static_cast<uint16_t>(beyond << 2));
      out_ += 2;
      return;
    }
    const uint32_t m3m4 = kind | (static_cast<uint32_t>(length) - 2) | (beyond & 0x3FFF) << 10;
    store<uint32_t>(out_, m3m4 ^ ((m3m4 ^ m2) & isM2));
    out_ += 3 + static_cast<int32_t>(isM2);
  }

  const uint8_t* const src_;
  const uint8_t* const end_;
  const uint8_t* literals_;  // the first one that is not written yet
  uint8_t* const dst_;
  uint8_t* out_;
  uint64_t* const dictionary_;
};

ZEBDC_ALWAYS_INLINE LzoCompressed compress(const uint8_t* src, size_t srcLen, uint8_t* dst,
                                           uint64_t* dictionary) {
  return Compressor(src, srcLen, dst, dictionary).run();
}

LzoCompressed compressBaseline(const uint8_t* src, size_t srcLen, uint8_t* dst,
                               uint64_t* dictionary) {
  return compress(src, srcLen, dst, dictionary);
}

ZEBDC_BEGIN_AVX2
LzoCompressed compressAvx2(const uint8_t* src, size_t srcLen, uint8_t* dst, uint64_t* dictionary) {
  return compress(src, srcLen, dst, dictionary);
}
ZEBDC_END_TARGET

}  // namespace

constinit const TierTable<LzoCompress> lzoCompressKernels({{tierBaseline, compressBaseline},
                                                           {tierAvx2, compressAvx2}});

uint8_t* lzoWriteRunInstruction(uint8_t* dst, size_t count, bool atStart) {
  if (atStart && count <= longestFirstRun) {
    *dst++ = static_cast<uint8_t>(firstRunBase + count);
  } else if (count < shortestRun) {
    dst[-2] |= static_cast<uint8_t>(count);
  } else if (count <= plainRun) {
    *dst++ = static_cast<uint8_t>(count - (shortestRun - 1));
  } else {
    *dst++ = 0;
    dst = writeExtension(dst, count - plainRun);
  }
  return dst;
}

}  // namespace zebdc::kernels
