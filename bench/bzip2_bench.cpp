// Block-sorting compression: whole streams beside libbz2, and the move-to-front stage beside the
// plain rule.

#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdlib.h>
#include <zebdc/zebdc.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

#if defined(ZEBDC_BENCH_BZ2)
#include <bzlib.h>
#endif

#include "bzip2/bzip2_stream.h"
#include "bzip2/plain_move_to_front.h"
#include "corpus.h"
#include "families.h"

namespace zebdc::bench {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr int level = 9;
constexpr size_t blockSize = 900000;

void require(bool condition, const char* what) {
  if (condition) return;
  fprintf(stderr, "bzip2 benchmark: %s\n", what);
  abort();
}

// Times a run on data that the first of its rows prepares and verifies; speed counts plainSize
// bytes. The run returns the size of what it made.
template <class Data>
void add(const std::string& name, size_t plainSize, std::shared_ptr<Data> data,
         size_t (*run)(Data&)) {
  benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
    data->prepare();
    size_t size = 0;
    for (auto _ : state) size = run(*data);
    state.SetBytesProcessed(static_cast<int64_t>(plainSize) * state.iterations());
    state.counters["size"] = static_cast<double>(size);
  })->Unit(benchmark::kMillisecond);
}

// ---- Move-to-front

Bytes sortedBlock(const Bytes& file) {
  const int len = static_cast<int>(std::min(file.size(), blockSize));
  int size = 0;
  require(zebsBWTFwdGetSize_8u(len, &size) == zebOk, "no size");
  Bytes scratch(static_cast<size_t>(size));
  Bytes sorted(static_cast<size_t>(len));
  int index = 0;
  require(zebsBWTFwd_8u(file.data(), sorted.data(), len, &index, scratch.data()) == zebOk,
          "no block sort");
  return sorted;
}

template <auto transform>
size_t moveToFront(const Bytes& source, Bytes& out) {
  ZebMTFState_8u* state = nullptr;
  require(zebsMTFInitAlloc_8u(&state) == zebOk, "no memory");
  transform(source.data(), out.data(), static_cast<int>(source.size()), state);
  zebsMTFFree_8u(state);
  return out.size();
}

// The rule a byte at a time. Compilers turn the loop of the plain rendering into memmove.
struct BytewiseMoveToFront : test::PlainMoveToFront {
  uint8_t toFront(size_t position) {
    uint8_t carried = list[position];
    for (size_t i = 0; i <= position; ++i) std::swap(carried, list[i]);
    return list[0];
  }

  void forward(const Bytes& src, Bytes& dst) {
    for (size_t i = 0; i < src.size(); ++i) {
      size_t position = 0;
      while (list[position] != src[i]) ++position;
      dst[i] = static_cast<uint8_t>(position);
      toFront(position);
    }
  }

  void inverse(const Bytes& src, Bytes& dst) {
    for (size_t i = 0; i < src.size(); ++i) dst[i] = toFront(src[i]);
  }
};

// Sorted once, when the first of the rows runs.
struct MoveToFrontData {
  explicit MoveToFrontData(const Bytes& fileIn) : file(fileIn) {}

  void prepare() {
    if (!sorted.empty()) return;
    sorted = sortedBlock(file);
    ranks.resize(sorted.size());
    out.resize(sorted.size());
    test::PlainMoveToFront().forward(sorted.data(), ranks.data(), sorted.size());
    moveToFront<zebsMTFFwd_8u>(sorted, out);
    require(out == ranks, "positions differ");
    moveToFront<zebsMTFInv_8u>(ranks, out);
    require(out == sorted, "positions do not lead back");
    BytewiseMoveToFront().forward(sorted, out);
    require(out == ranks, "positions of the rule a byte at a time differ");
    BytewiseMoveToFront().inverse(ranks, out);
    require(out == sorted, "positions do not lead back a byte at a time");
  }

  const Bytes& file;
  Bytes sorted;
  Bytes ranks;
  Bytes out;
};

void addMoveToFront(const File& file) {
  const auto data = std::make_shared<MoveToFrontData>(file.bytes);
  const size_t size = std::min(file.bytes.size(), blockSize);
  const std::string forward = "bzip2/mtf-forward/" + file.name;
  const std::string inverse = "bzip2/mtf-inverse/" + file.name;
  add(
      forward + "/zebdc", size, data,
      +[](MoveToFrontData& d) { return moveToFront<zebsMTFFwd_8u>(d.sorted, d.out); });
  add(
      forward + "/plain", size, data, +[](MoveToFrontData& d) {
        test::PlainMoveToFront().forward(d.sorted.data(), d.out.data(), d.out.size());
        return d.out.size();
      });
  add(
      forward + "/bytewise", size, data, +[](MoveToFrontData& d) {
        BytewiseMoveToFront().forward(d.sorted, d.out);
        return d.out.size();
      });
  add(
      inverse + "/zebdc", size, data,
      +[](MoveToFrontData& d) { return moveToFront<zebsMTFInv_8u>(d.ranks, d.out); });
  add(
      inverse + "/plain", size, data, +[](MoveToFrontData& d) {
        test::PlainMoveToFront().inverse(d.ranks.data(), d.out.data(), d.out.size());
        return d.out.size();
      });
  add(
      inverse + "/bytewise", size, data, +[](MoveToFrontData& d) {
        BytewiseMoveToFront().inverse(d.ranks, d.out);
        return d.out.size();
      });
}

// ---- Whole streams

#if defined(ZEBDC_BENCH_BZ2)
// libbz2 takes pointers to bytes that it may write, and writes none of the source.
char* chars(const Bytes& bytes) {
  return reinterpret_cast<char*>(const_cast<uint8_t*>(bytes.data()));
}

size_t compressPeer(const Bytes& source, Bytes& out) {
  unsigned size = static_cast<unsigned>(out.size());
  require(BZ2_bzBuffToBuffCompress(chars(out), &size, chars(source),
                                   static_cast<unsigned>(source.size()), level, 0, 0) == BZ_OK,
          "libbz2 does not compress");
  return size;
}

size_t decompressPeer(const Bytes& source, Bytes& out) {
  unsigned size = static_cast<unsigned>(out.size());
  require(BZ2_bzBuffToBuffDecompress(chars(out), &size, chars(source),
                                     static_cast<unsigned>(source.size()), 0, 0) == BZ_OK,
          "libbz2 does not decompress");
  return size;
}
#endif

test::Bzip2Compressor& compressor() {
  static test::Bzip2Compressor instance(level);
  return instance;
}

test::Bzip2Decompressor& decompressor() {
  static test::Bzip2Decompressor instance;
  return instance;
}

struct StreamData {
  explicit StreamData(const Bytes& fileIn) : file(fileIn) {}

  void prepare() {
    if (!stream.empty()) return;
    stream = compressor().compress(file);
    require(decompressor().decompress(stream) == file, "the stream does not decompress");
    out.resize(file.size() + file.size() / 50 + 700);
#if defined(ZEBDC_BENCH_BZ2)
    require(decompressPeer(stream, out) == file.size(), "libbz2 finds another size");
    require(std::equal(file.begin(), file.end(), out.begin()), "libbz2 finds other bytes");
#endif
  }

  const Bytes& file;
  Bytes stream;
  Bytes out;
};

void addStreams(const File& file) {
  const auto data = std::make_shared<StreamData>(file.bytes);
  const std::string compress = "bzip2/compress/" + file.name;
  const std::string decompress = "bzip2/decompress/" + file.name;
  const size_t size = file.bytes.size();
  add(
      compress + "/zebdc", size, data,
      +[](StreamData& d) { return compressor().compress(d.file).size(); });
  add(
      decompress + "/zebdc", size, data,
      +[](StreamData& d) { return decompressor().decompress(d.stream).size(); });
#if defined(ZEBDC_BENCH_BZ2)
  add(
      compress + "/libbz2", size, data, +[](StreamData& d) { return compressPeer(d.file, d.out); });
  add(
      decompress + "/libbz2", size, data,
      +[](StreamData& d) { return decompressPeer(d.stream, d.out); });
#endif
}

}  // namespace

void registerBzip2() {
  for (const File& file : corpus()) {
    addMoveToFront(file);
    addStreams(file);
  }
}

}  // namespace zebdc::bench
