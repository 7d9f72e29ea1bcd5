// Kernels of LZSS.

#include "kernels/lzss.h"

#include <string.h>

#include <algorithm>
#include <bit>

#include "frame/bytes.h"
#include "frame/compiler.h"
#include "kernels/match_copy.h"
#include "kernels/target.h"

namespace zebdc::kernels {
namespace {

constexpr uint32_t windowMask = lzssWindow - 1;

// ---- Encoding

constexpr uint32_t maxDistance = lzssWindow - 1;
constexpr int maxCandidates = 16;
// The last bytes of a call are literals: a match never includes them.
constexpr size_t literalTail = 2;

struct Match {
  uint32_t length;
  uint32_t distance;
};

class Encoder {
 public:
  ZEBDC_ALWAYS_INLINE explicit Encoder(LzssEncoding& run) : run_(run) {}

  ZEBDC_ALWAYS_INLINE void encode() {
    size_t at = 0;
    while (at + literalTail < run_.srcLen && run_.dstLen > 0) at += takeToken(at);
    for (; at < run_.srcLen && run_.dstLen > 0; ++at) writeLiteral(run_.src[at]);
    run_.srcLen -= at;
    run_.position += static_cast<uint32_t>(at);
  }

 private:
  // Writes a match or a literal; returns how many bytes it stands for.
  ZEBDC_ALWAYS_INLINE size_t takeToken(size_t at) {
    const uint32_t candidate = insert(at);
    const Match match = search(at, candidate);
    if (match.length < lzssShortestMatch) {
      writeLiteral(run_.src[at]);
      return 1;
    }
    write(uint64_t{match.distance} << 8 | (match.length - lzssShortestMatch), lzssMatchBits);
    for (uint32_t i = 1; i < match.length; ++i) insert(at + i);
    return match.length;
  }

  ZEBDC_ALWAYS_INLINE uint32_t positionOf(size_t at) const {
    return run_.position + static_cast<uint32_t>(at);
  }

  // Enters a position into the chains; returns the one before it with the same hash.
  ZEBDC_ALWAYS_INLINE uint32_t insert(size_t at) const {
    const uint8_t* const bytes = run_.src + at;
    const int16_t* const rows = run_.hashTable;
    int32_t& head = run_.head[rows[bytes[0]] ^ rows[256 + bytes[1]] ^ rows[512 + bytes[2]]];
    const int32_t before = head;
    const uint32_t position = positionOf(at);
    run_.chain[position & windowMask] = before;
    head = static_cast<int32_t>(position);
    return static_cast<uint32_t>(before);
  }

  // Where the byte at some distance before a source byte stands.
  ZEBDC_ALWAYS_INLINE const uint8_t* bytesBefore(size_t at, uint32_t distance) const {
    return distance > at ? run_.history - (distance - at) : run_.src + (at - distance);
  }

  // The longest match among the first candidates of a chain, and the nearest of the longest.
  //
  // Only candidates that agree in the byte that would make them longer, and in some before it, are
  // measured. A distance of 0 or more than the window is that of an empty entry, or of one that is
  // 2^32 positions old.
  ZEBDC_ALWAYS_INLINE Match search(size_t at, uint32_t candidate) const {
    const uint32_t position = positionOf(at);
    const uint32_t limit =
        static_cast<uint32_t>(std::min<size_t>(run_.srcLen - at - literalTail, lzssLongestMatch));
    Match best = {lzssShortestMatch - 1, 0};
    if (limit < lzssShortestMatch) return best;
    const uint8_t* const here = run_.src + at;
    uint16_t needle = load<uint16_t>(here + best.length - 1);
    for (int left = maxCandidates; left > 0; --left) {
      const uint32_t distance = position - candidate;
      if (distance - 1 >= maxDistance) break;
      const uint8_t* const there = bytesBefore(at, distance);
      if (load<uint16_t>(there + best.length - 1) == needle) {
        const uint32_t length = commonLength(here, there, limit);
        if (length > best.length) {
          best = {length, distance};
          if (length == limit) break;
          needle = load<uint16_t>(here + length - 1);
        }
      }
      candidate = static_cast<uint32_t>(run_.chain[candidate & windowMask]);
    }
    return best;
  }

  // Reads no byte at or behind the limit.
  ZEBDC_ALWAYS_INLINE static uint32_t commonLength(const uint8_t* a, const uint8_t* b,
                                                   uint32_t limit) {
    uint32_t length = 0;
    for (; limit - length >= 8; length += 8) {
      const uint64_t difference = load<uint64_t>(a + length) ^ load<uint64_t>(b + length);
      if (difference != 0) return length + static_cast<uint32_t>(std::countr_zero(difference)) / 8;
    }
    while (length < limit && a[length] == b[length]) ++length;
    return length;
  }

  ZEBDC_ALWAYS_INLINE void writeLiteral(uint8_t byte) { write(0x100 | byte, lzssLiteralBits); }

  // There is room for a byte at least, and at most 7 bits are pending.
  ZEBDC_ALWAYS_INLINE void write(uint64_t token, int tokenBits) {
    LzssBits& bits = run_.bits;
    bits.count += tokenBits;
    bits.buffer |= token << (64 - bits.count);
    if (run_.dstLen < sizeof bits.buffer) {
      lzssDrain(bits, run_.dst, run_.dstLen);
      return;
    }
    storeBigEndian(run_.dst, bits.buffer);
    const int bytes = bits.count >> 3;
    run_.dst += bytes;
    run_.dstLen -= static_cast<size_t>(bytes);
    bits.buffer <<= 8 * bytes;
    bits.count &= 7;
  }

  LzssEncoding& run_;
};

// ---- Decoding

class Decoder {
 public:
  ZEBDC_ALWAYS_INLINE explicit Decoder(LzssDecoding& run) : run_(run) {}

  ZEBDC_ALWAYS_INLINE void decode() {
    decodeWide();
    while (run_.dst < run_.dstEnd && takeToken()) {
    }
  }

  void resumeMatch() {
    const size_t length = std::min<size_t>(run_.pendingLength, room());
    copyMatch(run_.pendingDistance, length);
    run_.pendingLength -= static_cast<uint32_t>(length);
  }

 private:
  ZEBDC_ALWAYS_INLINE size_t room() const { return static_cast<size_t>(run_.dstEnd - run_.dst); }
  ZEBDC_ALWAYS_INLINE size_t produced() const {
    return static_cast<size_t>(run_.dst - run_.dstBegin);
  }

  // The distance field 0, which no encoder writes, stands for the whole window.
  ZEBDC_ALWAYS_INLINE static uint32_t distanceOf(uint64_t buffer) {
    return ((static_cast<uint32_t>(buffer >> 48) - 1) & windowMask) + 1;
  }
  ZEBDC_ALWAYS_INLINE static uint32_t lengthOf(uint64_t buffer) {
    return static_cast<uint32_t>(buffer >> 40 & 0xFF) + lzssShortestMatch;
  }

  // The bytes before dstBegin come from the history.
  void copyMatch(size_t distance, size_t length) {
    while (length > 0 && distance > produced()) {
      const size_t before = distance - produced();
      const size_t from = (run_.position - before) & windowMask;
      const size_t count = std::min({length, before, lzssWindow - from});
      memcpy(run_.dst, run_.history + from, count);
      run_.dst += count;
      length -= count;
    }
    copyMatchExactly(run_.dst, distance, length);
    run_.dst += length;
  }

  // ---- One token with exact bounds

  // Takes source bytes until at least needed bits are there, or returns false.
  ZEBDC_ALWAYS_INLINE bool fill(int needed) {
    LzssBits& bits = run_.bits;
    while (bits.count < needed) {
      if (run_.src == run_.srcEnd) return false;
      bits.buffer |= uint64_t{*run_.src++} << (56 - bits.count);
      bits.count += 8;
    }
    return true;
  }

  ZEBDC_ALWAYS_INLINE void drop(int count) {
    run_.bits.buffer <<= count;
    run_.bits.count -= count;
  }

  // False when the source holds no whole token.
  bool takeToken() {
    if (!fill(1)) return false;
    if (run_.bits.buffer >> 63 != 0) {
      if (!fill(lzssLiteralBits)) return false;
      *run_.dst++ = static_cast<uint8_t>(run_.bits.buffer >> 55);
      drop(lzssLiteralBits);
      return true;
    }
    if (!fill(lzssMatchBits)) return false;
    run_.pendingDistance = distanceOf(run_.bits.buffer);
    run_.pendingLength = lengthOf(run_.bits.buffer);
    drop(lzssMatchBits);
    resumeMatch();
    return true;
  }

  // ---- Tokens far from the ends of source and room

  // A step fills the buffer once and takes up to three literals and the match behind them.
  static constexpr int groupLiterals = 3;
  static constexpr int groupBits = groupLiterals * lzssLiteralBits;
  static constexpr int filledBits = 56;
  static_assert(groupBits + lzssMatchBits <= filledBits);
  static constexpr ptrdiff_t sourceMargin = 8;
  static constexpr ptrdiff_t roomMargin = groupLiterals + lzssLongestMatch + wideCopyExcess;

  // The literals of a group are counted by one look at their flags: whether the next token is a
  // literal or a match, which is next to random, costs no branch. Groups of six, for which the
  // buffer must be filled twice, are faster on data of almost nothing but literals, slower
  // elsewhere.
  //
  // The buffer may hold true source bits behind its count; filling sets them again.
  ZEBDC_ALWAYS_INLINE void decodeWide() {
    const uint8_t* src = run_.src;
    uint64_t buffer = run_.bits.buffer;
    uint32_t count = static_cast<uint32_t>(run_.bits.count);
    const auto fillWide = [&] {
      buffer |= loadBigEndian<uint64_t>(src) >> count;
      src += (63 - count) >> 3;
      count |= filledBits;
    };
    if (run_.srcEnd - src < sourceMargin || run_.dstEnd - run_.dst < roomMargin) return;
    do {
      fillWide();
      const uint32_t literalBits = leadingLiteralBits(buffer);
      for (int i = 0; i < groupLiterals; ++i) {
        run_.dst[i] = static_cast<uint8_t>(buffer >> (55 - lzssLiteralBits * i));
      }
      run_.dst += literalBits / lzssLiteralBits;
      buffer <<= literalBits;
      count -= literalBits;
      if (literalBits == groupBits) continue;

      const uint32_t distance = distanceOf(buffer);
      const uint32_t length = lengthOf(buffer);
      buffer <<= lzssMatchBits;
      count -= lzssMatchBits;
      if (distance <= produced()) [[likely]] {
        copyMatchWide(run_.dst, distance, length);
        run_.dst += length;
      } else {
        copyMatch(distance, length);
      }
    } while (run_.srcEnd - src >= sourceMargin && run_.dstEnd - run_.dst >= roomMargin);

    // At least one token has been taken, so all whole bytes left were taken here: they go back.
    run_.src = src - (count >> 3);
    run_.bits.count = static_cast<int>(count & 7);
    run_.bits.buffer = buffer & ~(~uint64_t{0} >> run_.bits.count);
  }

  // The bits of the literals among the first three tokens, up to a match.
  ZEBDC_ALWAYS_INLINE static uint32_t leadingLiteralBits(uint64_t buffer) {
    constexpr uint64_t flags = [] {
      uint64_t bits = uint64_t{1} << (63 - lzssLiteralBits * groupLiterals);
      for (int i = 0; i < groupLiterals; ++i) bits |= uint64_t{1} << (63 - lzssLiteralBits * i);
      return bits;
    }();
    // The lowest flag, behind the group, stops the count.
    constexpr uint64_t stop = flags & (~flags + 1);
    const uint64_t matches = (~buffer & flags) | stop;
    return static_cast<uint32_t>(std::countl_zero(matches));
  }

  LzssDecoding& run_;
};

void encodeBaseline(LzssEncoding& run) {
  Encoder(run).encode();
}

void decodeBaseline(LzssDecoding& run) {
  Decoder(run).decode();
}

void resumeMatch(LzssDecoding& run) {
  Decoder(run).resumeMatch();
}

ZEBDC_BEGIN_AVX2
void encodeAvx2(LzssEncoding& run) {
  Encoder(run).encode();
}

void decodeAvx2(LzssDecoding& run) {
  Decoder(run).decode();
}
ZEBDC_END_TARGET

}  // namespace

constinit const TierTable<LzssKernels> lzssKernels(
    {{tierBaseline, {encodeBaseline, decodeBaseline, resumeMatch}},
     {tierAvx2, {encodeAvx2, decodeAvx2, resumeMatch}}});

void lzssDrain(LzssBits& bits, uint8_t*& dst, size_t& dstLen) {
  for (; bits.count >= 8 && dstLen > 0; --dstLen) {
    *dst++ = static_cast<uint8_t>(bits.buffer >> 56);
    bits.buffer <<= 8;
    bits.count -= 8;
  }
}

}  // namespace zebdc::kernels
