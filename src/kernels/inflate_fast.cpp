// The inner loop of deflate decoding by tables that one lookup resolves.
//
// Its entries are smaller than those of inflate_block.cpp and hold one symbol each: the tables are
// built in half the time, and a block has no long codes to branch for. The margins are the same.
//
// Bits. Topping up leaves 56 to 63 bits in hand, and all 64 bits of the buffer are bits of the
// stream. Four literals consume at most 44 of them and leave enough to look the next entry up; then
// the buffer is topped up. A match consumes at most 11 + 5 + 10 + 13 = 39 bits. So a literal and a
// match behind it need no topping up between them, nor does the lookup behind both.
//
// Room. A turn writes at most four literals and a match.

#include "kernels/inflate_fast.h"

#include "kernels/inflate_loop.h"
#include "kernels/target.h"

namespace zebdc::kernels {
namespace {

constexpr int literalsBetweenRefills = 4;
constexpr int mostMatchBits = fastLitLenBits + 5 + fastDistanceBits + 13;

static_assert(literalsBetweenRefills * fastLitLenBits + fastLitLenBits <= bitsRefilled);
static_assert(mostMatchBits + fastLitLenBits <= bitsRefilled);
static_assert(7 + 7 + 8 <= inflateSourceMargin);
static_assert(literalsBetweenRefills + (longestMatch + copyStep - 1) / copyStep * copyStep <=
              inflateBytesMargin);

// The extra bits behind a code.
ZEBDC_ALWAYS_INLINE uint32_t bitsBehind(uint64_t bits, uint32_t codeBits, uint32_t extraBits) {
  return static_cast<uint32_t>(bits >> codeBits) & ((1u << extraBits) - 1);
}

// Runs while the source is not beyond lastSrc and the room not beyond lastDst, which hold at entry.
ZEBDC_ALWAYS_INLINE void decodeSymbols(BitBuffer& buffer, InflateBytes& out,
                                       const InflateFastTables& tables, const uint8_t* lastSrc) {
  const uint16_t* const litLen = tables.litLen;
  const uint64_t litLenMask = tables.litLenMask;
  const uint8_t* const lastDst = out.end - inflateBytesMargin;
  uint8_t* dst = out.dst;
  const auto lookUp = [&] { return uint32_t{litLen[buffer.bits & litLenMask]}; };
  uint32_t entry = lookUp();
  do {
    if ((entry & fastNoLiteral) == 0) {
      for (int i = 0; i < literalsBetweenRefills && (entry & fastNoLiteral) == 0; ++i) {
        *dst++ = static_cast<uint8_t>(entry >> fastValueShift);
        buffer.consume(entry);
        entry = lookUp();
      }
      buffer.refill();
      if ((entry & fastNoLiteral) == 0) continue;
    }
    if ((entry & fastException) == fastException) break;

    const uint32_t codeBits = fastCodeBits(entry);
    const uint32_t extra = entry >> fastKindShift & 7;
    const uint32_t length =
        (entry >> fastValueShift) + entryShortestMatch + bitsBehind(buffer.bits, codeBits, extra);
    const uint64_t behind = buffer.bits >> (codeBits + extra);

    const uint64_t index = behind & tables.distanceMask;
    const uint32_t distanceEntry = tables.distance[index];
    const uint32_t distanceBits = fastCodeBits(distanceEntry);
    const uint32_t distanceExtra = distanceEntry >> fastKindShift;
    const uint32_t distance =
        tables.distanceBase[index] + bitsBehind(behind, distanceBits, distanceExtra);
    if (distanceEntry >= fastException) break;
    if (uint64_t{distance} - 1 >= static_cast<uint64_t>(dst - out.begin)) break;

    buffer.bits = behind >> (distanceBits + distanceExtra);
    buffer.left -= codeBits + extra + distanceBits + distanceExtra;
    entry = lookUp();
    buffer.refill();
    copyMatch(dst - distance, dst, length, distance);
    dst += length;
  } while (buffer.src <= lastSrc && dst <= lastDst);
  out.dst = dst;
}

ZEBDC_ALWAYS_INLINE void decodeToBytes(InflateInput& in, InflateBytes& out,
                                       const InflateFastTables& tables) {
  if (!hasMargins(in, out.end - out.dst, inflateBytesMargin)) return;
  BitBuffer buffer(in);
  buffer.refill();
  decodeSymbols(buffer, out, tables, in.end - inflateSourceMargin);
  buffer.save(in);
}

}  // namespace

namespace baseline {
namespace {
void toBytes(InflateInput& in, InflateBytes& out, const InflateFastTables& tables) {
  decodeToBytes(in, out, tables);
}
constexpr InflateFastKernels fastKernels = {toBytes};
}  // namespace
}  // namespace baseline

// Shifts by a count in any register, and the extraction of low bits in one instruction.
ZEBDC_BEGIN_AVX2
namespace avx2 {
namespace {
void toBytes(InflateInput& in, InflateBytes& out, const InflateFastTables& tables) {
  decodeToBytes(in, out, tables);
}
constexpr InflateFastKernels fastKernels = {toBytes};
}  // namespace
}  // namespace avx2
ZEBDC_END_TARGET

constinit const TierTable<InflateFastKernels> inflateFastKernels(
    {{tierBaseline, baseline::fastKernels}, {tierAvx2, avx2::fastKernels}});

}  // namespace zebdc::kernels
