// The match finder alone at each level, beside a plain rendering of the same rules. Both find the
// same pairs, which is checked before anything is timed.

#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdlib.h>
#include <zebdc/zebdc.h>

#include <algorithm>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "corpus.h"
#include "deflate/reference_match_finder.h"
#include "families.h"

namespace zebdc::bench {
namespace {

constexpr int roundPairs = 65280;

using Source = std::span<const uint8_t>;

// Finds the pairs of one call at the front of the source and takes what they stand for from it.
class PlainFinder {
 public:
  explicit PlainFinder(int level) : level_(level), finder_(level), pairs_(roundPairs) {}

  void reset() { finder_ = test::ReferenceMatchFinder(level_); }

  std::span<const ZebLZ77Pair> next(Source& source) {
    const auto [consumed, count] =
        finder_.encode(source, pairs_.data(), roundPairs, zebLZ77FlushNone);
    source = source.subspan(static_cast<size_t>(consumed));
    return {pairs_.data(), static_cast<size_t>(count)};
  }

 private:
  int level_;
  test::ReferenceMatchFinder finder_;
  std::vector<ZebLZ77Pair> pairs_;
};

class LibraryFinder {
 public:
  explicit LibraryFinder(int level) : pairs_(roundPairs) {
    if (zebsEncodeLZ77InitAlloc_8u(level, zebLZ77ChecksumNone, &state_) != zebOk) abort();
  }
  ~LibraryFinder() { zebsLZ77Free_8u(state_); }
  LibraryFinder(const LibraryFinder&) = delete;
  LibraryFinder& operator=(const LibraryFinder&) = delete;

  void reset() { zebsEncodeLZ77Reset_8u(state_); }

  std::span<const ZebLZ77Pair> next(Source& source) {
    const uint8_t* src = source.data();
    int srcLen = static_cast<int>(source.size());
    ZebLZ77Pair* end = pairs_.data();
    int room = roundPairs;
    zebsEncodeLZ77SetStatus_8u(zebLZ77StatusMatching, state_);
    zebsEncodeLZ77_8u(&src, &srcLen, &end, &room, zebLZ77FlushNone, state_);
    source = source.last(static_cast<size_t>(srcLen));
    return {pairs_.data(), static_cast<size_t>(end - pairs_.data())};
  }

 private:
  ZebLZ77State_8u* state_ = nullptr;
  std::vector<ZebLZ77Pair> pairs_;
};

bool sameLengthAndOffset(const ZebLZ77Pair& a, const ZebLZ77Pair& b) {
  return a.length == b.length && a.offset == b.offset;
}

void requireSamePairs(int level, Source source) {
  PlainFinder plain(level);
  LibraryFinder library(level);
  Source plainSource = source;
  while (!source.empty()) {
    if (!std::ranges::equal(library.next(source), plain.next(plainSource), sameLengthAndOffset)) {
      fprintf(stderr, "match finder benchmark: level %d finds other pairs\n", level);
      abort();
    }
  }
}

template <class Finder>
void addFinder(const std::string& name, int level, Source source) {
  const auto checked = std::make_shared<bool>(false);
  benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
    if (!std::exchange(*checked, true)) requireSamePairs(level, source);
    Finder finder(level);
    for (auto _ : state) {
      finder.reset();
      for (Source left = source; !left.empty();) benchmark::DoNotOptimize(finder.next(left));
    }
    state.SetBytesProcessed(static_cast<int64_t>(source.size()) * state.iterations());
  });
}

}  // namespace

void registerDeflateMatch() {
  // The plain rendering takes long: the first megabytes of a file will do.
  constexpr size_t limit = size_t{4} << 20;
  for (const File& file : corpus()) {
    const Source source = Source(file.bytes).first(std::min(file.bytes.size(), limit));
    for (int level = zebLZ77LevelFast; level <= zebLZ77LevelBest; ++level) {
      const std::string prefix =
          "deflate-match/level-" + std::to_string(level) + "/" + file.name + "/";
      addFinder<LibraryFinder>(prefix + "zebdc", level, source);
      addFinder<PlainFinder>(prefix + "plain", level, source);
    }
  }
}

}  // namespace zebdc::bench
