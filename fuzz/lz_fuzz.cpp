// LZO, LZSS and plain run-length coding: hostile streams decode like the plain renderings, and what
// was encoded decodes to the same, whole and in any cut, under every kernel tier. Source and room
// of every call are allocations of exactly their size.

#include <string.h>
#include <zebdc/zebdc.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "fuzz.h"
#include "kernels/tier.h"
#include "lz/lzo_state.h"
#include "lz/lzss_state.h"
#include "lz/plain_lzo.h"
#include "lz/plain_lzss.h"
#include "lz/plain_rle.h"

namespace {

using zebdc::fuzz::Input;
using Bytes = std::vector<uint8_t>;
using Span = std::span<const uint8_t>;

std::unique_ptr<uint8_t[]> exact(size_t size) {
  return std::unique_ptr<uint8_t[]>(new uint8_t[size]);
}

std::unique_ptr<uint8_t[]> exactCopy(Span bytes) {
  auto copy = exact(bytes.size());
  std::copy(bytes.begin(), bytes.end(), copy.get());
  return copy;
}

// What is left of the input, repeated with small differences, so that short inputs make matches.
Bytes makeContent(Input& input) {
  const size_t repetitions = 1 + input.takeBelow(30);
  const size_t gap = input.takeBelow(3) == 0 ? input.takeBelow(600) : 0;
  const Span seed = input.rest();
  Bytes content;
  for (size_t i = 0; i < repetitions; ++i) {
    content.insert(content.end(), seed.begin(), seed.end());
    if (!seed.empty()) content[content.size() - 1 - i % seed.size()] ^= static_cast<uint8_t>(i);
    content.resize(content.size() + gap, static_cast<uint8_t>(i));
  }
  return content;
}

struct Damages {
  explicit Damages(Input& input) : count(input.takeBelow(5)) {
    for (uint32_t& place : places) place = input.takeWord();
  }

  void applyTo(Bytes& stream) const {
    for (size_t i = 0; i < count && !stream.empty(); ++i) {
      uint8_t& byte = stream[places[i] % stream.size()];
      byte = static_cast<uint8_t>(i % 2 == 0 ? places[i] >> 24 : byte ^ 1 << (places[i] >> 29));
    }
  }

  size_t count;
  uint32_t places[4];
};

// ---- LZO

Bytes encodeLzo(const Bytes& content, uint32_t parts) {
  const std::unique_ptr<ZebLZOState_8u> record(new ZebLZOState_8u);
  FUZZ_CHECK(zebsEncodeLZOInit_8u(zebLZOMethod1X1, 0, record.get()) == zebOk);
  size_t room = content.size() + content.size() / 16 + 67;
  if (parts > 0) {
    record->method = zebLZOMethod1X1Parts;
    record->partCount = parts;
    room += 75 * size_t{parts};
  }
  const auto src = exactCopy(content);
  const auto dst = exact(room);
  uint32_t size = 0;
  FUZZ_CHECK(zebsEncodeLZO_8u(src.get(), static_cast<uint32_t>(content.size()), dst.get(), &size,
                              record.get()) == zebOk);
  FUZZ_CHECK(size <= room);
  return {dst.get(), dst.get() + size};
}

void checkLzoDecodes(const Bytes& stream, size_t capacity) {
  const zebdc::test::PlainLzoResult plain = zebdc::test::plainDecodeAnyLzo(stream, capacity);
  const auto src = exactCopy(stream);
  const auto dst = exact(capacity);
  uint32_t size = static_cast<uint32_t>(capacity);
  const ZebStatus status =
      zebsDecodeLZOSafe_8u(src.get(), static_cast<uint32_t>(stream.size()), dst.get(), &size);
  FUZZ_CHECK(status == (plain.valid ? zebOk : zebErrLZOData));
  FUZZ_CHECK(size == plain.out.size());
  if (plain.gapless) FUZZ_CHECK(std::equal(plain.out.begin(), plain.out.end(), dst.get()));
}

void checkLzoRoundTrip(const Bytes& content, const Bytes& stream) {
  const auto src = exactCopy(stream);
  for (const auto decode : {zebsDecodeLZO_8u, zebsDecodeLZOSafe_8u}) {
    const auto dst = exact(content.size());
    uint32_t size = static_cast<uint32_t>(content.size());
    FUZZ_CHECK(decode(src.get(), static_cast<uint32_t>(stream.size()), dst.get(), &size) == zebOk);
    FUZZ_CHECK(size == content.size());
    FUZZ_CHECK(std::equal(content.begin(), content.end(), dst.get()));
  }
}

void hostileLzo(Input& input) {
  const Span rest = input.rest();
  const Bytes stream(rest.begin(), rest.end());
  for (const size_t capacity : {size_t{1}, stream.size(), 20 * stream.size() + 100}) {
    checkLzoDecodes(stream, capacity);
  }
}

// A container of one part is recognised only by chance.
void encodedLzo(Input& input) {
  const uint32_t parts = static_cast<uint32_t>(input.takeBelow(33));
  const Damages damages(input);
  const uint32_t cut = input.takeWord();
  const Bytes content = makeContent(input);
  if (content.empty()) return;
  Bytes stream = encodeLzo(content, parts);
  if (parts != 1) checkLzoRoundTrip(content, stream);
  damages.applyTo(stream);
  checkLzoDecodes(stream, content.size());
  stream.resize(cut % (stream.size() + 1));
  checkLzoDecodes(stream, cut % (2 * content.size()));
}

// ---- LZSS

// Calls of a coder until all of the source is taken, in pieces of source and room.
struct Cuts {
  size_t source;
  size_t room;
};

using Coder = decltype(&zebsEncodeLZSS_8u);

Bytes codeLzss(Coder coder, ZebLZSSState_8u* record, const Bytes& source, const Cuts& cuts,
               size_t limit) {
  Bytes out;
  size_t at = 0;
  for (;;) {
    const size_t piece = std::min(cuts.source, source.size() - at);
    const size_t room = std::min(cuts.room, limit - out.size());
    if (room == 0) return out;
    const auto src = exactCopy(Span(source).subspan(at, piece));
    const auto dst = exact(room);
    const uint8_t* pSrc = src.get();
    uint8_t* pDst = dst.get();
    int srcLen = static_cast<int>(piece);
    int dstLen = static_cast<int>(room);
    const ZebStatus status = coder(&pSrc, &srcLen, &pDst, &dstLen, record);
    FUZZ_CHECK(status == (dstLen == 0 ? zebWarnDstFull : zebOk));
    FUZZ_CHECK(pSrc + srcLen == src.get() + piece && pDst + dstLen == dst.get() + room);
    FUZZ_CHECK(status == zebWarnDstFull || srcLen == 0);
    at += piece - static_cast<size_t>(srcLen);
    out.insert(out.end(), dst.get(), pDst);
    if (status == zebOk && at == source.size()) return out;
  }
}

Bytes encodeLzss(const Bytes& content, const Cuts& cuts) {
  const std::unique_ptr<ZebLZSSState_8u> record(new ZebLZSSState_8u);
  FUZZ_CHECK(zebsEncodeLZSSInit_8u(record.get()) == zebOk);
  Bytes stream = codeLzss(zebsEncodeLZSS_8u, record.get(), content, cuts, SIZE_MAX);
  uint8_t last[4];
  uint8_t* pDst = last;
  int dstLen = sizeof last;
  FUZZ_CHECK(zebsEncodeLZSSFlush_8u(&pDst, &dstLen, record.get()) == zebOk);
  stream.insert(stream.end(), last, pDst);
  return stream;
}

Bytes decodeLzss(const Bytes& stream, const Cuts& cuts, size_t limit) {
  const std::unique_ptr<ZebLZSSState_8u> record(new ZebLZSSState_8u);
  FUZZ_CHECK(zebsDecodeLZSSInit_8u(record.get()) == zebOk);
  return codeLzss(zebsDecodeLZSS_8u, record.get(), stream, cuts, limit);
}

Cuts takeCuts(Input& input) {
  const size_t source = 1 + input.takeBelow(1 + input.takeBelow(5000));
  return {source, 1 + input.takeBelow(1 + input.takeBelow(5000))};
}

void lzss(Input& input) {
  Cuts cuts = takeCuts(input);
  const Damages damages(input);
  const bool asItIs = input.takeBelow(2) == 0;
  const Bytes content = makeContent(input);
  if (content.empty()) return;
  // Large contents are not cut into single bytes, which would take long.
  cuts.source += content.size() / 500;
  cuts.room += content.size() / 500;
  constexpr Cuts whole = {1 << 24, 1 << 24};
  Bytes stream = content;
  if (!asItIs) {
    stream = encodeLzss(content, whole);
    FUZZ_CHECK(decodeLzss(stream, cuts, content.size()) == content);
    FUZZ_CHECK(decodeLzss(encodeLzss(content, cuts), whole, content.size()) == content);
    damages.applyTo(stream);
  }
  const size_t limit = 3 * content.size();
  const Bytes plain = zebdc::test::plainDecodeLzss(stream, limit);
  FUZZ_CHECK(decodeLzss(stream, whole, limit) == plain);
  FUZZ_CHECK(decodeLzss(stream, cuts, limit) == plain);
}

// ---- Run-length coding

template <class Code, class PlainCode>
Bytes codeRle(Code code, PlainCode plainCode, const Bytes& source, size_t capacity) {
  const auto src = exactCopy(source);
  const auto dst = exact(capacity);
  const uint8_t* pSrc = src.get();
  int srcLen = static_cast<int>(source.size());
  int dstLen = static_cast<int>(capacity);
  const ZebStatus status = code(&pSrc, &srcLen, dst.get(), &dstLen);
  FUZZ_CHECK(status == (srcLen > 0 ? zebWarnDstFull : zebOk));

  Bytes out(capacity);
  const auto plain = plainCode(source.data(), source.size(), out.data(), capacity);
  out.resize(plain.written);
  FUZZ_CHECK(pSrc == src.get() + plain.consumed);
  FUZZ_CHECK(out == Bytes(dst.get(), dst.get() + dstLen));
  return out;
}

void runLengths(Input& input) {
  const size_t room = 1 + input.takeBelow(5000);
  const Damages damages(input);
  const Bytes content = makeContent(input);
  if (content.empty()) return;
  const auto encode = [](const Bytes& source, size_t capacity) {
    return codeRle(zebsEncodeRLE_8u, zebdc::test::plainEncodeRle, source, capacity);
  };
  const auto decode = [](const Bytes& source, size_t capacity) {
    return codeRle(zebsDecodeRLE_8u, zebdc::test::plainDecodeRle, source, capacity);
  };
  Bytes stream = encode(content, content.size() + content.size() / 2 + 2);
  FUZZ_CHECK(decode(stream, content.size()) == content);
  encode(content, room);
  decode(content, 10 * room);
  damages.applyTo(stream);
  decode(stream, room);
  decode(stream, content.size() + 1000);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr void (*operations[])(Input&) = {hostileLzo, encodedLzo, lzss, runLengths};
  for (int tier = 0; tier <= zebdc::kernels::bestTierOfThisMachine(); ++tier) {
    zebdc::kernels::activeTier = tier;
    Input input(data, size);
    operations[input.takeByte() % std::size(operations)](input);
  }
  return 0;
}
