// Deflate decoding of hostile streams: what the input holds as it is, or a stream of zlib's damaged
// in a few places. Streams that zlib accepts must decode to the same; every way of decoding, every
// cut and every kernel tier must end alike.

#include <string.h>
#include <zebdc/zebdc.h>
#include <zlib.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "fuzz.h"
#include "kernels/tier.h"

namespace {

using Bytes = std::vector<uint8_t>;
using zebdc::fuzz::Input;

constexpr size_t largestOutput = 1 << 16;

Bytes zlibStream(const Bytes& content, Input& input) {
  z_stream stream = {};
  const int level = static_cast<int>(input.takeBelow(10));
  const int strategy = static_cast<int>(input.takeBelow(5));
  FUZZ_CHECK(deflateInit2(&stream, level, Z_DEFLATED, -15, 1, strategy) == Z_OK);
  Bytes out(deflateBound(&stream, static_cast<uLong>(content.size())));
  stream.next_in = const_cast<Bytef*>(content.data());
  stream.avail_in = static_cast<uInt>(content.size());
  stream.next_out = out.data();
  stream.avail_out = static_cast<uInt>(out.size());
  FUZZ_CHECK(deflate(&stream, Z_FINISH) == Z_STREAM_END);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

// The input as it is, or its repetition compressed and damaged.
Bytes makeStream(Input& input) {
  if (input.takeBelow(4) == 0) {
    const auto rest = input.rest();
    return Bytes(rest.begin(), rest.end());
  }
  const size_t repetitions = 1 + input.takeBelow(100);
  Input settings = input;
  const size_t damages = settings.takeBelow(4);
  const auto seed = input.rest();
  Bytes content;
  for (size_t i = 0; i < repetitions; ++i) {
    content.insert(content.end(), seed.begin(), seed.end());
    if (!seed.empty()) content[content.size() - 1 - i % seed.size()] ^= static_cast<uint8_t>(i);
  }
  Bytes stream = zlibStream(content, settings);
  for (size_t i = 0; i < damages && !stream.empty(); ++i) {
    stream[settings.takeBelow(stream.size())] ^= static_cast<uint8_t>(1 + settings.takeBelow(255));
  }
  return stream;
}

struct Decoded {
  ZebStatus status = zebOk;
  Bytes output;
  size_t consumed = 0;
  bool hasStoredBlocks = false;
};

// A record whose history is zero, so that matches before the stream's beginning are the same in
// every run.
struct Record {
  Record() : memory(new Block()) {
    zebsDecodeLZ77Init_8u(zebLZ77ChecksumNone, get());
    zebsDecodeLZ77Reset_8u(get());
  }
  ZebLZ77State_8u* get() const { return reinterpret_cast<ZebLZ77State_8u*>(memory->bytes); }

  struct Block {
    alignas(16) uint8_t bytes[113024] = {};
  };
  std::unique_ptr<Block> memory;
};

// Pieces of source and room, each an allocation of its own size.
struct Cuts {
  size_t source;
  size_t room;
};

template <class T>
std::unique_ptr<T[]> exact(size_t count) {
  return std::unique_ptr<T[]>(new T[count]);
}

template <class Call>
ZebStatus withSource(const Bytes& stream, Decoded& result, size_t limit, Call call) {
  const size_t count = std::min(limit, stream.size() - result.consumed);
  const auto piece = exact<uint8_t>(count);
  if (count > 0) memcpy(piece.get(), stream.data() + result.consumed, count);
  const uint8_t* src = piece.get();
  int srcLen = static_cast<int>(count);
  const ZebStatus status = call(&src, &srcLen);
  FUZZ_CHECK(src + srcLen == piece.get() + count);
  result.consumed += count - static_cast<size_t>(srcLen);
  FUZZ_CHECK(result.consumed <= stream.size());
  return status;
}

template <class Element, class Call>
ZebStatus withRoom(std::vector<Element>& output, size_t room, Call call) {
  const auto area = exact<Element>(room);
  Element* dst = area.get();
  int dstLen = static_cast<int>(room);
  const ZebStatus status = call(&dst, &dstLen);
  FUZZ_CHECK(dst + dstLen == area.get() + room);
  output.insert(output.end(), area.get(), dst);
  return status;
}

ZebStatus decodeBytes(ZebLZ77BlockType type, const uint8_t** ppSrc, int* pSrcLen, uint8_t** ppDst,
                      int* pDstLen, ZebLZ77State_8u* state) {
  if (type == zebLZ77BlockFixed) {
    return zebsDecodeLZ77FixedHuffFull_8u(ppSrc, pSrcLen, ppDst, pDstLen, 0, state);
  }
  if (type == zebLZ77BlockDynamic) {
    return zebsDecodeLZ77DynamicHuffFull_8u(ppSrc, pSrcLen, ppDst, pDstLen, 0, state);
  }
  return zebsDecodeLZ77StoredBlock_8u(ppSrc, pSrcLen, ppDst, pDstLen, state);
}

Decoded onePass(const Bytes& stream, const Cuts& cuts) {
  Record record;
  Decoded result;
  constexpr ZebLZ77BlockType betweenBlocks = -1;
  ZebLZ77BlockType type = betweenBlocks;
  while (result.output.size() < largestOutput) {
    const bool hadAll = stream.size() - result.consumed <= cuts.source;
    const bool atHeader = type == betweenBlocks;
    result.status = withSource(stream, result, cuts.source, [&](auto ppSrc, auto pSrcLen) {
      if (atHeader) return zebsDecodeLZ77GetBlockType_8u(ppSrc, pSrcLen, &type, record.get());
      return withRoom(result.output, cuts.room, [&](uint8_t** ppDst, int* pDstLen) {
        return decodeBytes(type, ppSrc, pSrcLen, ppDst, pDstLen, record.get());
      });
    });
    if (result.status == zebWarnSrcExhausted && hadAll) break;
    if (result.status < 0 || result.status == zebWarnFinalBlockDone) break;
    if (result.status != zebOk) continue;
    if (!atHeader) {
      type = betweenBlocks;
    } else if (type == betweenBlocks) {
      result.status = zebErrGeneral;  // a reserved block
      break;
    }
    result.hasStoredBlocks = result.hasStoredBlocks || type == zebLZ77BlockStored;
  }
  return result;
}

ZebStatus decodePairs(int which, const uint8_t** ppSrc, int* pSrcLen, ZebLZ77Pair** ppPairs,
                      int* pPairsLen, ZebLZ77State_8u* state) {
  if (which == 0) return zebsDecodeLZ77StoredHuff_8u(ppSrc, pSrcLen, ppPairs, pPairsLen, state);
  if (which == 1) return zebsDecodeLZ77FixedHuff_8u(ppSrc, pSrcLen, ppPairs, pPairsLen, 0, state);
  return zebsDecodeLZ77DynamicHuff_8u(ppSrc, pSrcLen, ppPairs, pPairsLen, 0, state);
}

Decoded twoPasses(const Bytes& stream, const Cuts& cuts) {
  Record record;
  Decoded result;
  int which = 0;
  while (result.output.size() < largestOutput) {
    const bool hadAll = stream.size() - result.consumed <= cuts.source;
    std::vector<ZebLZ77Pair> pairs;
    result.status = withSource(stream, result, cuts.source, [&](auto ppSrc, auto pSrcLen) {
      return withRoom(pairs, cuts.room, [&](ZebLZ77Pair** ppPairs, int* pPairsLen) {
        return decodePairs(which, ppSrc, pSrcLen, ppPairs, pPairsLen, record.get());
      });
    });
    const ZebLZ77Pair* next = pairs.data();
    int left = static_cast<int>(pairs.size());
    ZebStatus expanded = pairs.empty() ? zebOk : zebWarnDstFull;
    while (expanded == zebWarnDstFull) {
      expanded = withRoom(result.output, cuts.room, [&](uint8_t** ppDst, int* pDstLen) {
        return zebsDecodeLZ77_8u(&next, &left, ppDst, pDstLen, 0, record.get());
      });
    }
    FUZZ_CHECK(left == 0);
    if (result.status == zebErrGeneral && which < 2) {
      ++which;
      continue;
    }
    if (result.status == zebWarnSrcExhausted && hadAll) break;
    if (result.status < 0 || result.status == zebWarnFinalBlockDone) break;
    if (result.status == zebOk) which = 0;
  }
  return result;
}

// What zlib makes of the stream, if it accepts it to its end.
bool zlibAccepts(const Bytes& stream, Decoded& result) {
  z_stream z = {};
  FUZZ_CHECK(inflateInit2(&z, -15) == Z_OK);
  result.output.resize(largestOutput);
  z.next_in = const_cast<Bytef*>(stream.data());
  z.avail_in = static_cast<uInt>(stream.size());
  z.next_out = result.output.data();
  z.avail_out = static_cast<uInt>(result.output.size());
  const bool accepted = inflate(&z, Z_FINISH) == Z_STREAM_END;
  result.output.resize(z.total_out);
  result.consumed = z.total_in;
  inflateEnd(&z);
  return accepted;
}

void checkAgainst(const Decoded& expected, const Decoded& decoded) {
  FUZZ_CHECK(decoded.status == zebWarnFinalBlockDone);
  FUZZ_CHECK(decoded.consumed == expected.consumed);
  FUZZ_CHECK(decoded.output == expected.output);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const Cuts cuts = {1 + input.takeBelow(60), 1 + input.takeBelow(1000)};
  constexpr Cuts whole = {SIZE_MAX, largestOutput};
  const Bytes stream = makeStream(input);

  Decoded byZlib;
  const bool accepted = !stream.empty() && zlibAccepts(stream, byZlib);
  Decoded firstTier;
  for (int tier = 0; tier <= zebdc::kernels::bestTierOfThisMachine(); ++tier) {
    zebdc::kernels::activeTier = tier;
    const Decoded inOnePass = onePass(stream, whole);
    const Decoded inTwoPasses = twoPasses(stream, whole);
    if (accepted) {
      checkAgainst(byZlib, inOnePass);
      checkAgainst(byZlib, inTwoPasses);
    }
    if (tier == 0) firstTier = inOnePass;
    FUZZ_CHECK(inOnePass.status == firstTier.status);
    FUZZ_CHECK(inOnePass.output == firstTier.output);
  }
  // Every cut ends alike, with stored blocks in two passes alone.
  const Decoded inTwoPasses = twoPasses(stream, cuts);
  if (accepted) checkAgainst(byZlib, inTwoPasses);
  if (!firstTier.hasStoredBlocks && firstTier.output.size() < largestOutput) {
    const Decoded cutInOnePass = onePass(stream, cuts);
    FUZZ_CHECK(cutInOnePass.status == firstTier.status);
    FUZZ_CHECK(cutInOnePass.output == firstTier.output);
  }
  return 0;
}
