// Whole deflate compression at each level, and its stages, beside levels of zlib and libdeflate
// that take about the same effort; and the example's compressor on the stream-style primitives
// beside zlib's levels of the same numbers. Every stream is inflated with zlib before anything is
// timed.

#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdlib.h>
#include <zebdc/zebdc.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>

#include "corpus.h"
#include "families.h"
#include "stream_deflater.h"
#if defined(ZEBDC_BENCH_ZLIB)
#include <zlib.h>
#endif
#if defined(ZEBDC_BENCH_LIBDEFLATE)
#include <libdeflate.h>
#endif

namespace zebdc::bench {
namespace {

using Bytes = std::vector<uint8_t>;

void require(bool condition, const std::string& what) {
  if (condition) return;
  fprintf(stderr, "deflate benchmark: %s\n", what.c_str());
  abort();
}

size_t worstCase(size_t size) {
  return size + size / 8 + 1000;
}

// Compresses into out and returns the bytes written.
using Compress = std::function<size_t(const Bytes& source, Bytes& out)>;

struct Record {
  explicit Record(int level) {
    require(zebsEncodeLZ77InitAlloc_8u(level, zebLZ77ChecksumNone, &state) == zebOk, "no memory");
  }
  ~Record() { zebsLZ77Free_8u(state); }
  Record(const Record&) = delete;
  Record& operator=(const Record&) = delete;

  ZebLZ77State_8u* state = nullptr;
};

struct PairsView {
  ZebLZ77Pair* pairs;
  int count;
};

PairsView match(ZebLZ77State_8u* state, const uint8_t** ppSrc, int* pSrcLen) {
  zebsEncodeLZ77SetStatus_8u(zebLZ77StatusMatching, state);
  ZebLZ77Pair* begin = nullptr;
  int index = 0;
  int room = 0;
  zebsEncodeLZ77GetPairs_8u(&begin, &index, &room, state);
  ZebLZ77Pair* next = begin;
  zebsEncodeLZ77_8u(ppSrc, pSrcLen, &next, &room, zebLZ77FlushNone, state);
  const int count = static_cast<int>(next - begin);
  return {begin, count};
}

struct Room {
  uint8_t* dst;
  int left;
};

// Pairs in a block. Below the best speed fewer than a call of the match finder yields: the codes
// then follow data that changes its nature, which saves 1 % of mr and xml and costs 0.1 % to 0.2 %
// of the others.
int blockPairs(int level) {
  return level == zebLZ77LevelFast ? 65280 : 16384;
}

// The source bytes that pairs stand for, added up only when a stored block needs them.
class SourcePosition {
 public:
  SourcePosition(const uint8_t* begin, const ZebLZ77Pair* pairs) : at_(begin), pairs_(pairs) {}

  const uint8_t* of(const ZebLZ77Pair* pair) {
    for (; pairs_ != pair; ++pairs_) at_ += pairs_->offset == 0 ? 1 : pairs_->length;
    return at_;
  }

 private:
  const uint8_t* at_;
  const ZebLZ77Pair* pairs_;
};

void writeBlock(ZebLZ77State_8u* state, PairsView view, SourcePosition& position, Room& room) {
  zebsEncodeLZ77SetStatus_8u(zebLZ77StatusCoding, state);
  ZebLZ77HuffMode mode = zebLZ77HuffFixed;
  zebsEncodeLZ77SelectHuffMode_8u(view.pairs, view.count, &mode, state);
  if (mode == zebLZ77HuffStored) {
    const uint8_t* src = position.of(view.pairs);
    int srcLen = static_cast<int>(position.of(view.pairs + view.count) - src);
    zebsEncodeLZ77StoredBlock_8u(&src, &srcLen, &room.dst, &room.left, zebLZ77FlushNone, state);
    return;
  }
  const auto write =
      mode == zebLZ77HuffFixed ? zebsEncodeLZ77FixedHuff_8u : zebsEncodeLZ77DynamicHuff_8u;
  write(&view.pairs, &view.count, &room.dst, &room.left, zebLZ77FlushNone, state);
}

// An empty block ends the stream: only then it is certain that nothing follows.
void writeEnd(ZebLZ77State_8u* state, Room& room) {
  ZebLZ77Pair* none = nullptr;
  int count = 0;
  zebsEncodeLZ77SetStatus_8u(zebLZ77StatusCoding, state);
  zebsEncodeLZ77FixedHuff_8u(&none, &count, &room.dst, &room.left, zebLZ77FlushFinal, state);
}

size_t compress(ZebLZ77State_8u* state, int pairsInBlock, const Bytes& source, Bytes& out) {
  zebsEncodeLZ77Reset_8u(state);
  const uint8_t* src = source.data();
  int srcLen = static_cast<int>(source.size());
  Room room = {out.data(), static_cast<int>(out.size())};
  while (srcLen > 0) {
    const uint8_t* const begin = src;
    PairsView view = match(state, &src, &srcLen);
    SourcePosition position(begin, view.pairs);
    while (view.count > 0) {
      const int count = std::min(view.count, pairsInBlock);
      writeBlock(state, {view.pairs, count}, position, room);
      view.pairs += count;
      view.count -= count;
    }
  }
  writeEnd(state, room);
  return out.size() - static_cast<size_t>(room.left);
}

Compress zebdc(int level) {
  const auto record = std::make_shared<Record>(level);
  return [record, level](const Bytes& source, Bytes& out) {
    return compress(record->state, blockPairs(level), source, out);
  };
}

Compress streamStyle(int level) {
  return [level](const Bytes& source, Bytes& out) {
    uint8_t* dst = out.data();
    StreamDeflater deflater(level, [&dst](const uint8_t* bytes, size_t count) {
      dst = std::copy_n(bytes, count, dst);
    });
    deflater.write(source.data(), source.size());
    deflater.finish();
    return static_cast<size_t>(dst - out.data());
  };
}

#if defined(ZEBDC_BENCH_ZLIB)
Compress zlib(int level) {
  const std::shared_ptr<z_stream> stream(new z_stream(), [](z_stream* z) {
    deflateEnd(z);
    delete z;
  });
  require(deflateInit2(stream.get(), level, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) == Z_OK,
          "zlib does not start");
  return [stream](const Bytes& source, Bytes& out) {
    deflateReset(stream.get());
    stream->next_in = const_cast<uint8_t*>(source.data());
    stream->avail_in = static_cast<uInt>(source.size());
    stream->next_out = out.data();
    stream->avail_out = static_cast<uInt>(out.size());
    deflate(stream.get(), Z_FINISH);
    return out.size() - stream->avail_out;
  };
}

bool inflatesTo(const Bytes& source, const Bytes& out, size_t size) {
  z_stream z = {};
  Bytes back(source.size() + 1);
  inflateInit2(&z, -15);
  z.next_in = const_cast<uint8_t*>(out.data());
  z.avail_in = static_cast<uInt>(size);
  z.next_out = back.data();
  z.avail_out = static_cast<uInt>(back.size());
  const int result = inflate(&z, Z_FINISH);
  const bool complete = result == Z_STREAM_END && z.avail_in == 0;
  back.resize(back.size() - z.avail_out);
  inflateEnd(&z);
  return complete && back == source;
}
#endif

#if defined(ZEBDC_BENCH_LIBDEFLATE)
Compress libdeflate(int level) {
  const std::shared_ptr<libdeflate_compressor> compressor(libdeflate_alloc_compressor(level),
                                                          libdeflate_free_compressor);
  return [compressor](const Bytes& source, Bytes& out) {
    return libdeflate_deflate_compress(compressor.get(), source.data(), source.size(), out.data(),
                                       out.size());
  };
}
#endif

void addCompress(const std::string& name, const Compress& run, const Bytes& source) {
  const auto size = std::make_shared<size_t>(0);
  benchmark::RegisterBenchmark(name.c_str(), [=, &source](benchmark::State& state) {
    Bytes out(worstCase(source.size()));
    if (*size == 0) {
      *size = run(source, out);
#if defined(ZEBDC_BENCH_ZLIB)
      require(inflatesTo(source, out, *size), name + " does not inflate");
#endif
    }
    for (auto _ : state) benchmark::DoNotOptimize(run(source, out));
    state.SetBytesProcessed(static_cast<int64_t>(source.size()) * state.iterations());
    state.counters["percent"] =
        100.0 * static_cast<double>(*size) / static_cast<double>(source.size());
  });
}

void addStage(const std::string& name, size_t bytes, const std::function<void()>& run) {
  benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
    for (auto _ : state) run();
    state.SetBytesProcessed(static_cast<int64_t>(bytes) * state.iterations());
  });
}

// The stages of the first block of a file.
struct FirstBlock {
  FirstBlock(int level, const Bytes& file) : record(level), source(file) {
    const uint8_t* src = source.data();
    int srcLen = static_cast<int>(source.size());
    const PairsView view = match(record.state, &src, &srcLen);
    pairs.assign(view.pairs, view.pairs + view.count);
    consumed = static_cast<size_t>(src - source.data());
    out.resize(worstCase(consumed));
  }

  void matchOnly() {
    zebsEncodeLZ77Reset_8u(record.state);
    const uint8_t* src = source.data();
    int srcLen = static_cast<int>(consumed);
    match(record.state, &src, &srcLen);
  }

  void select() {
    zebsEncodeLZ77Reset_8u(record.state);  // no answer is pending
    ZebLZ77HuffMode mode = zebLZ77HuffFixed;
    zebsEncodeLZ77SelectHuffMode_8u(pairs.data(), static_cast<int>(pairs.size()), &mode,
                                    record.state);
    benchmark::DoNotOptimize(mode);
  }

  void write(decltype(&zebsEncodeLZ77FixedHuff_8u) writer) {
    zebsEncodeLZ77SetStatus_8u(zebLZ77StatusCoding, record.state);
    ZebLZ77Pair* next = pairs.data();
    int count = static_cast<int>(pairs.size());
    Room room = {out.data(), static_cast<int>(out.size())};
    writer(&next, &count, &room.dst, &room.left, zebLZ77FlushFinal, record.state);
    benchmark::DoNotOptimize(room.left);
  }

  Record record;
  const Bytes& source;
  std::vector<ZebLZ77Pair> pairs;
  size_t consumed;
  Bytes out;
};

void addStages(const File& file) {
  const auto block = std::make_shared<FirstBlock>(zebLZ77LevelFast, file.bytes);
  const std::string data = "/" + file.name + "/zebdc";
  addStage("deflate/stage-reset" + data, block->consumed,
           [=] { zebsEncodeLZ77Reset_8u(block->record.state); });
  addStage("deflate/stage-match-fast" + data, block->consumed, [=] { block->matchOnly(); });
  addStage("deflate/stage-reset-and-select" + data, block->consumed, [=] { block->select(); });
  addStage("deflate/stage-write-fixed" + data, block->consumed,
           [=] { block->write(zebsEncodeLZ77FixedHuff_8u); });
  addStage("deflate/stage-select-and-write-dynamic" + data, block->consumed,
           [=] { block->write(zebsEncodeLZ77DynamicHuff_8u); });
}

}  // namespace

void registerDeflate() {
  struct Effort {
    const char* name;
    int level;
    std::vector<int> zlibLevels;
    std::vector<int> libdeflateLevels;
  };
  const Effort efforts[] = {{"fast", zebLZ77LevelFast, {1}, {1}},
                            {"average", zebLZ77LevelAverage, {4, 6}, {4}},
                            {"best", zebLZ77LevelBest, {9}, {8}}};
  for (const File& file : corpus()) {
    for (const Effort& effort : efforts) {
      const std::string prefix = std::string("deflate/compress-") + effort.name + "/" + file.name;
      addCompress(prefix + "/zebdc-" + std::to_string(effort.level), zebdc(effort.level),
                  file.bytes);
#if defined(ZEBDC_BENCH_ZLIB)
      for (const int level : effort.zlibLevels) {
        addCompress(prefix + "/zlib-" + std::to_string(level), zlib(level), file.bytes);
      }
#endif
#if defined(ZEBDC_BENCH_LIBDEFLATE)
      for (const int level : effort.libdeflateLevels) {
        addCompress(prefix + "/libdeflate-" + std::to_string(level), libdeflate(level), file.bytes);
      }
#endif
    }
    for (const int level : {1, 5, 9}) {
      const std::string prefix = "deflate/stream-level-" + std::to_string(level) + "/" + file.name;
      addCompress(prefix + "/zebdc", streamStyle(level), file.bytes);
#if defined(ZEBDC_BENCH_ZLIB)
      addCompress(prefix + "/zlib-" + std::to_string(level), zlib(level), file.bytes);
#endif
    }
    addStages(file);
  }
}

}  // namespace zebdc::bench
