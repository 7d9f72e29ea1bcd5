// Decompression of raw deflate streams that zlib made of the corpus: dynamic blocks of levels 1 and
// 6, and fixed blocks. In one pass into room for everything or in rooms of 64 KiB, in two passes,
// with tables of the caller, and by the peers. Every output is compared with the file before it is
// timed.

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

// A caller of zebsInflate_8u: it parses headers and code lengths itself.
class TableDriven {
 public:
  explicit TableDriven(const Task& task)
      : src_(task.stream.data()),
        left_(static_cast<uint32_t>(task.stream.size())),
        begin_(task.out.data()),
        dst_(begin_),
        room_(static_cast<uint32_t>(task.out.size())) {
    state().history = begin_;
    state().historySize = room_;
  }

  size_t run() {
    for (bool last = false; !last;) {
      last = take(1) != 0;
      const uint32_t type = take(2);
      if (type == 0) {
        copyStored();
        continue;
      }
      if (type == 1) state().tableKind = zebInflateTablesFixed;
      if (type == 2) readCodes();
      decode();
    }
    return static_cast<size_t>(dst_ - begin_);
  }

 private:
  static ZebInflateState& state() {
    static ZebInflateState record;
    return record;
  }

  // Up to 16 bits.
  uint32_t take(uint32_t count) {
    while (held_ < count) {
      require(left_ > 0, "the caller's tables fail");
      bits_ |= static_cast<uint32_t>(*src_++) << held_;
      held_ += 8;
      --left_;
    }
    const uint32_t value = bits_ & ((1u << count) - 1);
    bits_ >>= count;
    held_ -= count;
    return value;
  }

  void copyStored() {
    take(held_ % 8);
    const uint32_t length = take(16);
    take(16);
    for (uint32_t i = 0; i < length; ++i) *dst_++ = static_cast<uint8_t>(take(8));
    room_ -= length;
  }

  void readCodes() {
    const uint32_t litLens = take(5) + 257;
    const uint32_t distances = take(5) + 1;
    readCodeLengthCode(take(4) + 4);
    uint16_t lengths[288 + 32 + 138] = {};
    for (uint32_t at = 0; at < litLens + distances;) {
      while (held_ < longestCodeLengthCode && left_ > 0) {
        bits_ |= static_cast<uint32_t>(*src_++) << held_;
        held_ += 8;
        --left_;
      }
      const uint8_t entry = codeLengthTable_[bits_ & ((1u << longestCodeLengthCode) - 1)];
      take(entry & 7);
      const uint16_t symbol = entry >> 3;
      const uint32_t times = symbol < 16    ? 1
                             : symbol == 16 ? 3 + take(2)
                             : symbol == 17 ? 3 + take(3)
                                            : 11 + take(7);
      const uint16_t length = symbol < 16 ? symbol : symbol == 16 ? lengths[at - 1] : uint16_t{0};
      std::fill_n(lengths + at, times, length);
      at += times;
    }
    require(zebsInflateBuildHuffTable(lengths, litLens, distances, &state()) == zebOk,
            "the caller's tables fail");
  }

  // An entry of the table: the symbol, and in the low three bits the length of its code.
  void readCodeLengthCode(uint32_t sent) {
    constexpr uint8_t order[] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
    uint8_t lengths[19] = {};
    for (uint32_t i = 0; i < sent; ++i) lengths[order[i]] = static_cast<uint8_t>(take(3));
    uint32_t code = 0;
    for (uint32_t length = 1; length <= longestCodeLengthCode; ++length, code <<= 1) {
      for (uint32_t symbol = 0; symbol < 19; ++symbol) {
        if (lengths[symbol] != length) continue;
        uint32_t reversed = 0;
        for (uint32_t i = 0; i < length; ++i) reversed |= (code >> i & 1) << (length - 1 - i);
        for (; reversed < 1u << longestCodeLengthCode; reversed += 1u << length) {
          codeLengthTable_[reversed] = static_cast<uint8_t>(symbol << 3 | length);
        }
        ++code;
      }
    }
  }

  void decode() {
    ZebInflateMode mode = zebInflateAtSymbol;
    const uint32_t index = static_cast<uint32_t>(dst_ - begin_);
    require(zebsInflate_8u(&src_, &left_, &bits_, &held_, index, &dst_, &room_, index, &mode,
                           &state()) == zebOk &&
                mode == zebInflateBlockDone,
            "the caller's tables fail");
  }

  static constexpr uint32_t longestCodeLengthCode = 7;

  const uint8_t* src_;
  uint32_t left_;
  uint8_t* const begin_;
  uint8_t* dst_;
  uint32_t room_;
  uint32_t bits_ = 0;
  uint32_t held_ = 0;
  uint8_t codeLengthTable_[1u << longestCodeLengthCode] = {};
};

size_t callersTables(const Task& task) {
  return TableDriven(task).run();
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
    {"zebdc_callers_tables", callersTables},
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
