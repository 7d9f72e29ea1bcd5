// The decompressors of LZO1X: one that trusts its stream and one for any bytes.
//
// Both are one body. While source and room are far from their ends a step takes an instruction (or
// a short literal run and the match behind it) with wide copies that may go beyond what the
// instruction asks for; only the distance needs a check. What does not fit that way, and the end of
// the stream, is done with exact bounds. So the safe decompressor is hardly slower.
//
// All matches without an extension are taken apart by one table, without a branch on their kind,
// which is next to random. The table gives distance and length only: where the next instruction
// begins is worked out beside it. So the chain that limits a step is: first bytes (5 cycles), kind
// (2), number of literals (2), next position (1).

#include <string.h>

#include <algorithm>
#include <array>

#include "frame/bytes.h"
#include "frame/compiler.h"
#include "kernels/lzo.h"
#include "kernels/lzo_format.h"
#include "kernels/match_copy.h"
#include "kernels/target.h"

namespace zebdc::kernels {
namespace {

using namespace lzoformat;

// How the match that begins with a byte is taken apart. Let next be the two bytes behind the first:
//
//   distance = base + (next << shift & mask) / 4
//
// M2:    next = ........HHHHHHHH, << 5: ...HHHHHHHH.....; a quarter of the masked value is 8 H
// M3/M4: next = DDDDDDDDDDDDDDSS
struct alignas(8) MatchForm {
  uint16_t mask;
  uint16_t base;
  uint8_t shift;
  uint8_t length;  // 0: an extension follows
};

constexpr MatchForm matchFormOf(uint32_t first) {
  if (first >= firstM2) {
    return {0x1FE0, static_cast<uint16_t>((first >> 2 & 7) + 1), 5,
            static_cast<uint8_t>((first >> 5) + 1)};
  }
  const bool isM3 = first >= firstM3;
  const uint32_t length = first & (isM3 ? 31 : 7);
  const uint32_t base = isM3 ? 1 : baseDistanceM4 + (first & 8) * 2048;
  return {0xFFFC, static_cast<uint16_t>(base), 0,
          static_cast<uint8_t>(length == 0 ? 0 : length + 2)};
}

constexpr auto makeMatchForms() {
  std::array<MatchForm, 256> forms{};
  for (uint32_t first = firstM4; first < 256; ++first) forms[first] = matchFormOf(first);
  return forms;
}

ZEBDC_ALWAYS_INLINE size_t distanceOf(const MatchForm& form, uint32_t next) {
  return form.base + ((next << form.shift & form.mask) >> 2);
}

ZEBDC_ALWAYS_INLINE bool endsStream(uint32_t first, size_t distance) {
  return distance == baseDistanceM4 && first < firstM3;
}

alignas(64) constexpr std::array<MatchForm, 256> matchForms = makeMatchForms();

// A literal run in one byte may be copied as 18 bytes whatever its length is.
ZEBDC_ALWAYS_INLINE void copyPlainRun(const uint8_t* src, uint8_t* dst) {
  store16(dst, load16(src));
  store<uint16_t>(dst + 16, load<uint16_t>(src + 16));
}

// A wide step takes at most: a run's first byte and 18 literals, a match of 3 bytes, and looks at
// the 4 bytes behind it.
constexpr size_t sourceMargin = 1 + plainRun + 3 + 4;
// It makes at most: 18 literals, a match with what its copy writes too much, and 4 literals.
constexpr size_t roomMargin = plainRun + plainLengthM3 + wideCopyExcess + 4;

template <bool safe>
class Decoder {
 public:
  ZEBDC_ALWAYS_INLINE Decoder(const uint8_t* src, size_t srcLen, uint8_t* dst, size_t capacity)
      : in_(src), inEnd_(src + srcLen), begin_(dst), out_(dst), outEnd_(dst + capacity) {}

  ZEBDC_ALWAYS_INLINE LzoDecoded run() {
    Step step = takeFirstRun();
    while (step == Step::taken && in_ < inEnd_) {
      step = takeWide();
      if (step == Step::deferred && in_ < inEnd_) step = takeExactly();
    }
    return {step != Step::invalid, static_cast<size_t>(out_ - begin_)};
  }

 private:
  enum class Step {
    taken,
    deferred,  // to exact bounds
    ended,
    invalid,
  };

  ZEBDC_ALWAYS_INLINE size_t sourceLeft() const { return static_cast<size_t>(inEnd_ - in_); }
  ZEBDC_ALWAYS_INLINE bool sourceHas(const uint8_t* from, size_t count) const {
    return !safe || static_cast<size_t>(inEnd_ - from) >= count;
  }
  ZEBDC_ALWAYS_INLINE bool roomFor(size_t count) const {
    return !safe || static_cast<size_t>(outEnd_ - out_) >= count;
  }
  ZEBDC_ALWAYS_INLINE bool reaches(size_t distance) const {
    return !safe || distance <= static_cast<size_t>(out_ - begin_);
  }
  // Signed: the trusting decompressor may have left source and room behind.
  ZEBDC_ALWAYS_INLINE bool canStepWide() const {
    return inEnd_ - in_ >= static_cast<ptrdiff_t>(sourceMargin) &&
           outEnd_ - out_ >= static_cast<ptrdiff_t>(roomMargin);
  }

  Step takeFirstRun() {
    if (in_ == inEnd_ || *in_ <= firstRunBase) return Step::taken;
    return copyLiterals(in_ + 1, *in_ - firstRunBase);
  }

  Step copyLiterals(const uint8_t* literals, size_t count) {
    if (!sourceHas(literals, count) || !roomFor(count)) return Step::invalid;
    memcpy(out_, literals, count);
    in_ = literals + count;
    out_ += count;
    behindLiterals_ = true;
    return Step::taken;
  }

  // Adds an extension to a length and advances the cursor; false when it would leave the source.
  template <bool bounded>
  ZEBDC_ALWAYS_INLINE bool addExtension(const uint8_t*& cursor, size_t& length) const {
    for (;; length += extensionStep) {
      if (bounded && cursor >= inEnd_) return false;
      const uint8_t byte = *cursor++;
      length += byte;
      if (byte != 0) return true;
    }
  }

  // Steps while the margins last.
  ZEBDC_ALWAYS_INLINE Step takeWide() {
    if (!canStepWide()) return Step::deferred;
    const uint8_t* const inStop = inEnd_ - sourceMargin;
    const uint8_t* const outStop = outEnd_ - roomMargin;
    while (in_ <= inStop && out_ <= outStop) {
      uint32_t word = load<uint32_t>(in_);
      uint32_t first = word & 0xFF;
      if (first < firstM4) {
        if (behindLiterals_) return Step::invalid;
        if (first == 0) [[unlikely]] {
          if (!takeLongRunWide()) return Step::deferred;
          continue;
        }
        const size_t count = first + (shortestRun - 1);
        copyPlainRun(in_ + 1, out_);
        in_ += 1 + count;
        out_ += count;
        word = load<uint32_t>(in_);
        first = word & 0xFF;
        if (first < firstM4) return Step::invalid;
      }
      const MatchForm form = matchForms[first];
      if (form.length == 0) [[unlikely]] {
        const Step step = takeLongMatchWide(first);
        if (step != Step::taken) return step;
        continue;
      }
      const size_t distance = distanceOf(form, word >> 8);
      if (endsStream(first, distance)) [[unlikely]]
        return Step::ended;
      if (!reaches(distance)) [[unlikely]]
        return Step::invalid;
      copyMatchWide(out_, distance, form.length);
      out_ += form.length;
      // Not chosen by a branch: 1 where distance and S are in two bytes behind the first.
      const uint32_t hasWord = opaque(static_cast<uint32_t>(first < firstM2));
      in_ += 2 + hasWord;
      takeTrailingLiteralsWide(word >> (8 * hasWord) & 3);
    }
    return Step::deferred;
  }

  ZEBDC_ALWAYS_INLINE void takeTrailingLiteralsWide(uint32_t count) {
    store<uint32_t>(out_, load<uint32_t>(in_));
    in_ += count;
    out_ += count;
    behindLiterals_ = count != 0;
  }

  // False when it needs exact bounds.
  bool takeLongRunWide() {
    const uint8_t* literals = in_ + 1;
    size_t count = plainRun;
    if (!addExtension<true>(literals, count)) return false;
    if (inEnd_ - literals < static_cast<ptrdiff_t>(count + wideCopyExcess) ||
        outEnd_ - out_ < static_cast<ptrdiff_t>(count + wideCopyExcess)) {
      return false;
    }
    copyWide(literals, out_, count);
    in_ = literals + count;
    out_ += count;
    behindLiterals_ = true;
    return true;
  }

  // A match with an extension.
  Step takeLongMatchWide(uint32_t first) {
    const uint8_t* cursor = in_ + 1;
    size_t length = first >= firstM3 ? plainLengthM3 : plainLengthM4;
    if (!addExtension<true>(cursor, length)) return Step::deferred;
    constexpr ptrdiff_t wordAndLiterals = 2 + 4;
    if (inEnd_ - cursor < wordAndLiterals ||
        outEnd_ - out_ < static_cast<ptrdiff_t>(length + wideCopyExcess)) {
      return Step::deferred;
    }
    const uint32_t word = load<uint16_t>(cursor);
    const size_t distance = matchForms[first].base + (word >> 2);
    if (endsStream(first, distance)) return Step::ended;
    if (!reaches(distance)) return Step::invalid;
    copyMatchWide(out_, distance, length);
    in_ = cursor + 2;
    out_ += length;
    takeTrailingLiteralsWide(word & 3);
    return Step::taken;
  }

  // ---- Exact bounds

  Step takeExactly() {
    const uint32_t first = *in_;
    if (first >= firstM4) return takeMatchExactly(first);
    if (behindLiterals_) return Step::invalid;
    const uint8_t* literals = in_ + 1;
    size_t count = first + (shortestRun - 1);
    if (first == 0) {
      count = plainRun;
      if (!addExtension<safe>(literals, count)) return Step::invalid;
    }
    return copyLiterals(literals, count);
  }

  Step takeMatchExactly(uint32_t first) {
    const uint8_t* cursor = in_ + 1;
    const MatchForm form = matchForms[first];
    size_t length = form.length;
    if (length == 0) {
      length = first >= firstM3 ? plainLengthM3 : plainLengthM4;
      if (!addExtension<safe>(cursor, length)) return Step::invalid;
    }
    const size_t operandSize = first < firstM2 ? 2 : 1;
    if (!sourceHas(cursor, operandSize)) return Step::invalid;
    uint32_t next = cursor[0];
    if (operandSize == 2) next |= static_cast<uint32_t>(cursor[1]) << 8;
    const uint32_t literals = (operandSize == 1 ? first : next) & 3;
    cursor += operandSize;

    const size_t distance = distanceOf(form, next);
    if (endsStream(first, distance)) return Step::ended;
    if (!reaches(distance) || !roomFor(length + literals) || !sourceHas(cursor, literals)) {
      return Step::invalid;
    }
    copyMatchExactly(out_, distance, length);
    out_ += length;
    for (uint32_t i = 0; i < literals; ++i) *out_++ = *cursor++;
    in_ = cursor;
    behindLiterals_ = literals != 0;
    return Step::taken;
  }

  const uint8_t* in_;
  const uint8_t* const inEnd_;
  uint8_t* const begin_;
  uint8_t* out_;
  uint8_t* const outEnd_;
  bool behindLiterals_ = false;  // the next instruction must be a match
};

template <bool safe>
ZEBDC_ALWAYS_INLINE LzoDecoded decode(const uint8_t* src, size_t srcLen, uint8_t* dst,
                                      size_t capacity) {
  return Decoder<safe>(src, srcLen, dst, capacity).run();
}

LzoDecoded trustingBaseline(const uint8_t* src, size_t srcLen, uint8_t* dst, size_t capacity) {
  return decode<false>(src, srcLen, dst, capacity);
}

LzoDecoded safeBaseline(const uint8_t* src, size_t srcLen, uint8_t* dst, size_t capacity) {
  return decode<true>(src, srcLen, dst, capacity);
}

ZEBDC_BEGIN_AVX2
LzoDecoded trustingAvx2(const uint8_t* src, size_t srcLen, uint8_t* dst, size_t capacity) {
  return decode<false>(src, srcLen, dst, capacity);
}

LzoDecoded safeAvx2(const uint8_t* src, size_t srcLen, uint8_t* dst, size_t capacity) {
  return decode<true>(src, srcLen, dst, capacity);
}
ZEBDC_END_TARGET

}  // namespace

constinit const TierTable<LzoDecodeKernels> lzoDecodeKernels(
    {{tierBaseline, {trustingBaseline, safeBaseline}}, {tierAvx2, {trustingAvx2, safeAvx2}}});

}  // namespace zebdc::kernels
