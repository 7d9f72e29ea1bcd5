// LZSS, LZO and plain run-length coding.

#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <zebdc/zebdc.h>

#if defined(ZEBDC_BENCH_LZO2)
#include <lzo/lzo1x.h>
#endif

#include <algorithm>
#include <random>
#include <string>

#include "corpus.h"
#include "families.h"
#include "lz/plain_rle.h"

namespace zebdc::bench {
namespace {

using Bytes = std::vector<uint8_t>;

void require(bool condition, const char* what) {
  if (condition) return;
  fprintf(stderr, "lz benchmark: %s\n", what);
  abort();
}

using Run = size_t (*)(const Bytes& source, Bytes& room);

// Times one run over the source; speed counts the bytes of the uncompressed side.
void add(const std::string& name, Run run, Bytes source, size_t room, size_t plainSize) {
  benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
    Bytes out(room);
    for (auto _ : state) benchmark::DoNotOptimize(run(source, out));
    state.SetBytesProcessed(static_cast<int64_t>(plainSize) * state.iterations());
  });
}

Bytes output(Run run, const Bytes& source, size_t room) {
  Bytes out(room);
  out.resize(run(source, out));
  return out;
}

// ---- Plain run-length coding

size_t encodeRle(const Bytes& source, Bytes& room) {
  const uint8_t* pSrc = source.data();
  int srcLen = static_cast<int>(source.size());
  int dstLen = static_cast<int>(room.size());
  zebsEncodeRLE_8u(&pSrc, &srcLen, room.data(), &dstLen);
  return static_cast<size_t>(dstLen);
}

size_t decodeRle(const Bytes& source, Bytes& room) {
  const uint8_t* pSrc = source.data();
  int srcLen = static_cast<int>(source.size());
  int dstLen = static_cast<int>(room.size());
  zebsDecodeRLE_8u(&pSrc, &srcLen, room.data(), &dstLen);
  return static_cast<size_t>(dstLen);
}

size_t encodeRlePlain(const Bytes& source, Bytes& room) {
  return test::plainEncodeRle(source.data(), source.size(), room.data(), room.size()).written;
}

size_t decodeRlePlain(const Bytes& source, Bytes& room) {
  return test::plainDecodeRle(source.data(), source.size(), room.data(), room.size()).written;
}

void addRle(const std::string& data, const Bytes& source) {
  const size_t worstCase = source.size() + source.size() / 2 + 2;
  const Bytes code = output(encodeRle, source, worstCase);
  require(code == output(encodeRlePlain, source, worstCase), "run-length codes differ");
  require(source == output(decodeRle, code, source.size()), "run-length code does not decode");
  add("rle/encode/" + data + "/zebdc", encodeRle, source, worstCase, source.size());
  add("rle/encode/" + data + "/plain", encodeRlePlain, source, worstCase, source.size());
  add("rle/decode/" + data + "/zebdc", decodeRle, code, source.size(), source.size());
  add("rle/decode/" + data + "/plain", decodeRlePlain, code, source.size(), source.size());
}

// ---- LZSS

// The allocated records live as long as the program.
ZebLZSSState_8u* lzssRecord() {
  static ZebLZSSState_8u* const record = [] {
    ZebLZSSState_8u* state = nullptr;
    zebsEncodeLZSSInitAlloc_8u(&state);
    return state;
  }();
  return record;
}

size_t encodeLzss(const Bytes& source, Bytes& room) {
  const uint8_t* pSrc = source.data();
  uint8_t* pDst = room.data();
  int srcLen = static_cast<int>(source.size());
  int dstLen = static_cast<int>(room.size());
  zebsEncodeLZSSInit_8u(lzssRecord());
  zebsEncodeLZSS_8u(&pSrc, &srcLen, &pDst, &dstLen, lzssRecord());
  zebsEncodeLZSSFlush_8u(&pDst, &dstLen, lzssRecord());
  return static_cast<size_t>(pDst - room.data());
}

// The piece is the room of each call, as a caller with a small buffer gives it.
template <int piece>
size_t decodeLzss(const Bytes& source, Bytes& room) {
  const uint8_t* pSrc = source.data();
  uint8_t* pDst = room.data();
  int srcLen = static_cast<int>(source.size());
  uint8_t* const end = pDst + room.size();
  zebsDecodeLZSSInit_8u(lzssRecord());
  while (pDst < end) {
    int dstLen = static_cast<int>(std::min<ptrdiff_t>(piece, end - pDst));
    if (zebsDecodeLZSS_8u(&pSrc, &srcLen, &pDst, &dstLen, lzssRecord()) == zebOk) break;
  }
  return static_cast<size_t>(pDst - room.data());
}

// Bit by bit and byte by byte.
size_t decodeLzssPlain(const Bytes& source, Bytes& room) {
  const size_t bitCount = 8 * source.size();
  size_t bit = 0;
  const auto take = [&](int count) {
    size_t value = 0;
    for (; count > 0; --count, ++bit) value = value << 1 | (source[bit / 8] >> (7 - bit % 8) & 1u);
    return value;
  };
  size_t out = 0;
  while (out < room.size() && bit < bitCount) {
    if (take(1) != 0) {
      if (bitCount - bit < 8) break;
      room[out++] = static_cast<uint8_t>(take(8));
      continue;
    }
    if (bitCount - bit < 23) break;
    const size_t distance = take(15);
    for (size_t length = take(8) + 3; length > 0 && out < room.size(); --length, ++out) {
      room[out] = room[out - distance];
    }
  }
  return out;
}

// Byte by byte, with the bits in a register.
size_t decodeLzssBytewise(const Bytes& source, Bytes& room) {
  const uint8_t* in = source.data();
  const uint8_t* const inEnd = in + source.size();
  uint64_t bits = 0;
  int count = 0;
  size_t out = 0;
  for (;;) {
    while (count <= 24 && in < inEnd) {
      bits = bits << 8 | *in++;
      count += 8;
    }
    if (count < 9) break;
    if ((bits >> (count - 1) & 1) != 0) {
      if (out == room.size()) break;
      room[out++] = static_cast<uint8_t>(bits >> (count - 9));
      count -= 9;
      continue;
    }
    if (count < 24) break;
    const size_t distance = bits >> (count - 16) & 0x7FFF;
    size_t length = (bits >> (count - 24) & 0xFF) + 3;
    count -= 24;
    for (; length > 0 && out < room.size(); --length, ++out) room[out] = room[out - distance];
  }
  return out;
}

void addLzss(const std::string& data, const Bytes& source) {
  const size_t worstCase = source.size() + source.size() / 8 + 8;
  const size_t size = source.size();
  constexpr int whole = INT32_MAX;
  constexpr int small = 4096;
  const Bytes code = output(encodeLzss, source, worstCase);
  for (const Run run :
       {decodeLzss<whole>, decodeLzss<small>, decodeLzssPlain, decodeLzssBytewise}) {
    require(source == output(run, code, size), "LZSS code does not decode");
  }
  add("lzss/encode/" + data + "/zebdc", encodeLzss, source, worstCase, size);
  add("lzss/decode/" + data + "/zebdc", decodeLzss<whole>, code, size, size);
  add("lzss/decode/" + data + "/zebdc_4k_rooms", decodeLzss<small>, code, size, size);
  add("lzss/decode/" + data + "/bytewise", decodeLzssBytewise, code, size, size);
  add("lzss/decode/" + data + "/bitwise", decodeLzssPlain, code, size, size);
}

// ---- LZO

ZebLZOState_8u* lzoRecord() {
  static ZebLZOState_8u* const record = [] {
    uint32_t size = 0;
    zebsEncodeLZOGetSize(zebLZOMethod1X1, 0, &size);
    void* const memory = aligned_alloc(64, (size + 63) / 64 * 64);
    ZebLZOState_8u* const state = static_cast<ZebLZOState_8u*>(memory);
    zebsEncodeLZOInit_8u(zebLZOMethod1X1, 0, state);
    return state;
  }();
  return record;
}

size_t compressLzo(const Bytes& source, Bytes& room) {
  uint32_t size = 0;
  zebsEncodeLZO_8u(source.data(), static_cast<uint32_t>(source.size()), room.data(), &size,
                   lzoRecord());
  return size;
}

template <auto decode>
size_t decompressLzo(const Bytes& source, Bytes& room) {
  uint32_t size = static_cast<uint32_t>(room.size());
  decode(source.data(), static_cast<uint32_t>(source.size()), room.data(), &size);
  return size;
}

#if defined(ZEBDC_BENCH_LZO2)
size_t compressLzoPeer(const Bytes& source, Bytes& room) {
  static std::vector<lzo_align_t> work(LZO1X_1_MEM_COMPRESS / sizeof(lzo_align_t) + 1);
  lzo_uint size = 0;
  lzo1x_1_compress(source.data(), source.size(), room.data(), &size, work.data());
  return size;
}

template <auto decode>
size_t decompressLzoPeer(const Bytes& source, Bytes& room) {
  lzo_uint size = room.size();
  decode(source.data(), source.size(), room.data(), &size, nullptr);
  return size;
}
#endif

// The decompressors' input is the peer's where there is one.
void addLzo(const std::string& data, const Bytes& source) {
  const size_t worstCase = source.size() + source.size() / 16 + 67;
  const size_t size = source.size();
  const Run trusting = decompressLzo<zebsDecodeLZO_8u>;
  const Run safe = decompressLzo<zebsDecodeLZOSafe_8u>;
  Bytes code = output(compressLzo, source, worstCase);
  require(source == output(trusting, code, size), "LZO code does not decode");
  require(source == output(safe, code, size), "LZO code does not decode safely");
  add("lzo/compress/" + data + "/zebdc", compressLzo, source, worstCase, size);
#if defined(ZEBDC_BENCH_LZO2)
  const Run trustingPeer = decompressLzoPeer<lzo1x_decompress>;
  const Run safePeer = decompressLzoPeer<lzo1x_decompress_safe>;
  require(source == output(safePeer, code, size), "the peer does not decode our LZO code");
  code = output(compressLzoPeer, source, worstCase);
  require(source == output(trusting, code, size), "LZO code of the peer does not decode");
  require(source == output(safe, code, size), "LZO code of the peer does not decode safely");
  add("lzo/compress/" + data + "/lzo2", compressLzoPeer, source, worstCase, size);
  add("lzo/decompress/" + data + "/lzo2", trustingPeer, code, size, size);
  add("lzo/decompress_safe/" + data + "/lzo2", safePeer, code, size, size);
#endif
  add("lzo/decompress/" + data + "/zebdc", trusting, code, size, size);
  add("lzo/decompress_safe/" + data + "/zebdc", safe, code, size, size);
}

Bytes randomBytes(size_t size) {
  std::mt19937_64 random(1);
  Bytes out(size);
  for (uint8_t& byte : out) byte = static_cast<uint8_t>(random());
  return out;
}

}  // namespace

void registerLz() {
  addRle("random", randomBytes(1 << 20));
  for (const File& file : corpus()) {
    addRle(file.name, file.bytes);
    addLzss(file.name, file.bytes);
    addLzo(file.name, file.bytes);
  }
}

}  // namespace zebdc::bench
