// Decompression of raw deflate streams that zlib made of the corpus: dynamic blocks of levels 1 and
// 6, and fixed blocks. In one pass into room for everything or in rooms of 64 KiB, in two passes,
// and by the peers. Every output is compared with the file before it is timed.

#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zebdc/zebdc.h>

#include <algorithm>
#include <list>
#include <string>
#include <vector>

#include "corpus.h"
#include "families.h"

#if defined(ZEBDC_BENCH_ZLIB)
#include <zlib.h>
#endif
#if defined(ZEBDC_BENCH_LIBDEFLATE)
#include <libdeflate.h>
#endif

namespace zebdc::bench {

#if defined(ZEBDC_BENCH_ZLIB)
namespace {

using Bytes = std::vector<uint8_t>;

void require(bool condition, const char* what) {
  if (condition) return;
  fprintf(stderr, "inflate benchmark: %s\n", what);
  abort();
}

struct StreamKind {
  const char* name;
  int level;
  int strategy;
};
constexpr StreamKind streamKinds[] = {
    {"level1", 1, Z_DEFAULT_STRATEGY}, {"level6", 6, Z_DEFAULT_STRATEGY}, {"fixed", 6, Z_FIXED}};

Bytes deflated(const Bytes& content, const StreamKind& kind) {
  constexpr int rawDeflate = -15;
  z_stream stream = {};
  require(deflateInit2(&stream, kind.level, Z_DEFLATED, rawDeflate, 8, kind.strategy) == Z_OK,
          "no memory");
  Bytes out(deflateBound(&stream, static_cast<uLong>(content.size())));
  stream.next_in = const_cast<Bytef*>(content.data());
  stream.avail_in = static_cast<uInt>(content.size());
  stream.next_out = out.data();
  stream.avail_out = static_cast<uInt>(out.size());
  require(deflate(&stream, Z_FINISH) == Z_STREAM_END, "zlib does not compress");
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

// What is decoded, and where to. Every decoder returns the bytes it has written.
struct Task {
  const Bytes& stream;
  Bytes& out;
};

ZebLZ77State_8u* record() {
  static ZebLZ77State_8u* const state = [] {
    ZebLZ77State_8u* allocated = nullptr;
    require(zebsDecodeLZ77InitAlloc_8u(zebLZ77ChecksumNone, &allocated) == zebOk, "no memory");
    return allocated;
  }();
  return state;
}

struct Source {
  explicit Source(const Bytes& stream)
      : src(stream.data()), left(static_cast<int>(stream.size())) {}
  const uint8_t* src;
  int left;
};

ZebStatus decodeBlock(ZebLZ77BlockType type, Source& in, uint8_t** ppDst, int* pDstLen) {
  ZebLZ77State_8u* const state = record();
  if (type == zebLZ77BlockDynamic) {
    return zebsDecodeLZ77DynamicHuffFull_8u(&in.src, &in.left, ppDst, pDstLen, 0, state);
  }
  if (type == zebLZ77BlockFixed) {
    return zebsDecodeLZ77FixedHuffFull_8u(&in.src, &in.left, ppDst, pDstLen, 0, state);
  }
  return zebsDecodeLZ77StoredBlock_8u(&in.src, &in.left, ppDst, pDstLen, state);
}

size_t onePassInRooms(const Task& task, size_t room) {
  zebsDecodeLZ77Reset_8u(record());
  Source in(task.stream);
  uint8_t* dst = task.out.data();
  uint8_t* const end = dst + task.out.size();
  ZebStatus status = zebOk;
  ZebLZ77BlockType type = zebLZ77BlockStored;
  while (status != zebWarnFinalBlockDone) {
    if (status == zebOk) zebsDecodeLZ77GetBlockType_8u(&in.src, &in.left, &type, record());
    int dstLen = static_cast<int>(std::min(room, static_cast<size_t>(end - dst)));
    status = decodeBlock(type, in, &dst, &dstLen);
    require(status == zebOk || status == zebWarnDstFull || status == zebWarnFinalBlockDone,
            "one pass fails");
  }
  return static_cast<size_t>(dst - task.out.data());
}

size_t onePass(const Task& task) {
  return onePassInRooms(task, task.out.size());
}

size_t onePassIn64K(const Task& task) {
  return onePassInRooms(task, 65536);
}

ZebStatus decodePairs(ZebLZ77BlockType type, Source& in, ZebLZ77Pair** ppPairs, int* pPairsLen) {
  ZebLZ77State_8u* const state = record();
  if (type == zebLZ77BlockDynamic) {
    return zebsDecodeLZ77DynamicHuff_8u(&in.src, &in.left, ppPairs, pPairsLen, 0, state);
  }
  if (type == zebLZ77BlockFixed) {
    return zebsDecodeLZ77FixedHuff_8u(&in.src, &in.left, ppPairs, pPairsLen, 0, state);
  }
  return zebsDecodeLZ77StoredHuff_8u(&in.src, &in.left, ppPairs, pPairsLen, state);
}

size_t twoPasses(const Task& task) {
  zebsDecodeLZ77Reset_8u(record());
  Source in(task.stream);
  uint8_t* dst = task.out.data();
  int dstLen = static_cast<int>(task.out.size());
  ZebLZ77Pair* begin = nullptr;
  int index = 0;
  int capacity = 0;
  zebsDecodeLZ77GetPairs_8u(&begin, &index, &capacity, record());
  ZebLZ77BlockType type = zebLZ77BlockDynamic;
  ZebStatus status = zebOk;
  while (status != zebWarnFinalBlockDone) {
    ZebLZ77Pair* next = begin;
    int room = capacity;
    status = decodePairs(type, in, &next, &room);
    if (status == zebErrGeneral) type = (type + 1) % 3;
    const ZebLZ77Pair* pairs = begin;
    int count = static_cast<int>(next - begin);
    require(zebsDecodeLZ77_8u(&pairs, &count, &dst, &dstLen, 0, record()) >= 0 && count == 0,
            "two passes fail");
  }
  return static_cast<size_t>(dst - task.out.data());
}

size_t zlibInflate(const Task& task) {
  z_stream stream = {};
  require(inflateInit2(&stream, -15) == Z_OK, "no memory");
  stream.next_in = const_cast<Bytef*>(task.stream.data());
  stream.avail_in = static_cast<uInt>(task.stream.size());
  stream.next_out = task.out.data();
  stream.avail_out = static_cast<uInt>(task.out.size());
  require(inflate(&stream, Z_FINISH) == Z_STREAM_END, "zlib fails");
  const size_t size = stream.total_out;
  inflateEnd(&stream);
  return size;
}

#if defined(ZEBDC_BENCH_LIBDEFLATE)
size_t libdeflateInflate(const Task& task) {
  static libdeflate_decompressor* const decompressor = libdeflate_alloc_decompressor();
  size_t size = 0;
  require(
      libdeflate_deflate_decompress(decompressor, task.stream.data(), task.stream.size(),
                                    task.out.data(), task.out.size(), &size) == LIBDEFLATE_SUCCESS,
      "libdeflate fails");
  return size;
}
#endif

struct Decoder {
  const char* name;
  size_t (*run)(const Task&);
};
constexpr Decoder decoders[] = {
    {"zebdc", onePass},
    {"zebdc_64K_rooms", onePassIn64K},
    {"zebdc_two_passes", twoPasses},
#if defined(ZEBDC_BENCH_LIBDEFLATE)
    {"libdeflate", libdeflateInflate},
#endif
    {"zlib", zlibInflate},
};

// A stream, made when it is first asked for: most runs time other things.
struct Case {
  const File& file;
  const StreamKind& kind;
  Bytes stream = {};

  const Bytes& streamMade() {
    if (stream.empty()) stream = deflated(file.bytes, kind);
    return stream;
  }
};

void timeDecoder(benchmark::State& state, const Decoder& decoder, Case& data) {
  const Bytes& content = data.file.bytes;
  Bytes out(content.size());
  const Task task = {data.streamMade(), out};
  if (decoder.run(task) != content.size() || out != content) {
    state.SkipWithError("wrong output");
    return;
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(decoder.run(task));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(content.size()));
}

}  // namespace

void registerInflate() {
  static std::list<Case> cases;
  for (const File& file : corpus()) {
    for (const StreamKind& kind : streamKinds) {
      Case& data = cases.emplace_back(Case{file, kind});
      for (const Decoder& decoder : decoders) {
        const std::string name =
            std::string("inflate/") + kind.name + "/" + file.name + "/" + decoder.name;
        benchmark::RegisterBenchmark(name.c_str(), [&decoder, &data](benchmark::State& state) {
          timeDecoder(state, decoder, data);
        });
      }
    }
  }
}

#else

void registerInflate() {}

#endif

}  // namespace zebdc::bench
