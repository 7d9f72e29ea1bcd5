// The Burrows-Wheeler transform and whole-block decoding, on blocks of the size of bzip2's largest.

#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdlib.h>
#include <zebdc/zebdc.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bzip2/plain_bwt.h"
#include "corpus.h"
#include "families.h"

#if defined(ZEBDC_BENCH_DIVSUFSORT)
#include <divsufsort.h>
#endif

namespace zebdc::bench {
namespace {

using test::Bytes;
using test::PlainBwt;

constexpr size_t blockSize = 900000;

void require(bool condition, const char* what) {
  if (condition) return;
  fprintf(stderr, "Burrows-Wheeler benchmark: %s\n", what);
  abort();
}

// What a timed function works on. Rows of one block share it; all is verified before it is timed.
struct Work {
  Bytes block;
  Bytes out;
  Bytes scratch;
  std::vector<int> numbers;  // scratch of peers
  PlainBwt bwt;
  std::vector<uint16_t> symbols;
  Bytes map;
  int valuesInUse = 0;

  int length() const { return static_cast<int>(block.size()); }
};

using Operation = void (*)(Work& work);

void forward(Work& work) {
  zebsBWTFwd_8u(work.block.data(), work.out.data(), work.length(), &work.bwt.index,
                work.scratch.data());
}

template <ZebBWTSortMethod method>
void forwardBy(Work& work) {
  zebsBWTFwd_SelectSort_8u(work.block.data(), work.out.data(), work.length(), &work.bwt.index,
                           work.scratch.data(), method);
}

void inverse(Work& work) {
  zebsBWTInv_8u(work.bwt.column.data(), work.out.data(), work.length(), work.bwt.index,
                work.scratch.data());
}

// The walk over the column and an array of links.
void inverseByTwoArrays(Work& work) {
  const Bytes& column = work.bwt.column;
  uint32_t* const link = reinterpret_cast<uint32_t*>(work.numbers.data());
  uint32_t start[257] = {};
  for (const uint8_t byte : column) ++start[byte + 1];
  for (int byte = 0; byte < 256; ++byte) start[byte + 1] += start[byte];
  for (size_t i = 0; i < column.size(); ++i) link[start[column[i]]++] = static_cast<uint32_t>(i);
  uint32_t p = link[work.bwt.index];
  for (uint8_t& byte : work.out) {
    byte = column[p];
    p = link[p];
  }
}

void decodeBlock(Work& work) {
  int length = work.length();
  zebsDecodeBlock_BZ2_16u8u(work.symbols.data(), static_cast<int>(work.symbols.size()),
                            work.out.data(), &length, work.bwt.index, work.valuesInUse,
                            work.map.data(), work.scratch.data());
}

#if defined(ZEBDC_BENCH_DIVSUFSORT)

// It sorts suffixes, not rotations; its column is another one.
void forwardByDivbwt(Work& work) {
  divbwt(work.block.data(), work.out.data(), work.numbers.data(), work.length());
}

void requireDivbwtInverts(Work& work) {
  const int index = divbwt(work.block.data(), work.out.data(), work.numbers.data(), work.length());
  Bytes back(work.block.size());
  inverse_bw_transform(work.out.data(), back.data(), work.numbers.data(), work.length(), index);
  require(back == work.block, "divbwt does not invert");
}

#endif

// The symbols of the column and the map of the values in use.
void prepareSymbols(Work& work) {
  work.map.assign(256, 0);
  for (const uint8_t byte : work.block) work.map[byte] = 1;
  Bytes list;
  for (int value = 0; value < 256; ++value) {
    if (work.map[static_cast<size_t>(value)] != 0) list.push_back(static_cast<uint8_t>(value));
  }
  work.valuesInUse = static_cast<int>(list.size());
  size_t run = 0;
  const auto endRun = [&] {
    for (; run > 0; run = (run - 1) / 2) {
      work.symbols.push_back(static_cast<uint16_t>((run - 1) % 2));
    }
  };
  for (const uint8_t byte : work.bwt.column) {
    const auto at = std::find(list.begin(), list.end(), byte);
    if (at == list.begin()) {
      ++run;
      continue;
    }
    endRun();
    work.symbols.push_back(static_cast<uint16_t>(at - list.begin() + 1));
    std::rotate(list.begin(), at, at + 1);
  }
  endRun();
}

std::shared_ptr<Work> prepare(const Bytes& block) {
  const auto work = std::make_shared<Work>();
  work->block = block;
  int size = 0;
  zebsBWTFwdGetSize_8u(work->length(), &size);
  work->scratch.resize(static_cast<size_t>(size));
  work->out.resize(block.size());
  work->numbers.resize(block.size() + 1);
  forward(*work);
  work->bwt.column = work->out;
  require(test::plainInverse(work->bwt.column, static_cast<size_t>(work->bwt.index)) == block,
          "the transform does not invert");
  prepareSymbols(*work);
  for (const Operation back : {inverse, inverseByTwoArrays, decodeBlock}) {
    std::fill(work->out.begin(), work->out.end(), uint8_t{0});
    back(*work);
    require(work->out == block, "the block does not come back");
  }
  for (const Operation other : {forwardBy<zebBWTSortUnbounded>, forwardBy<zebBWTSortSuffix>}) {
    other(*work);
    require(work->out == work->bwt.column, "the methods differ");
  }
#if defined(ZEBDC_BENCH_DIVSUFSORT)
  requireDivbwtInverts(*work);
#endif
  return work;
}

void add(const std::string& name, const Bytes& block, Operation operation) {
  benchmark::RegisterBenchmark(name.c_str(), [=, &block](benchmark::State& state) {
    static std::map<const Bytes*, std::shared_ptr<Work>> prepared;
    std::shared_ptr<Work>& work = prepared[&block];
    if (work == nullptr) work = prepare(block);
    for (auto _ : state) operation(*work);
    state.SetBytesProcessed(static_cast<int64_t>(block.size()) * state.iterations());
  });
}

// Blocks that are hard for sorting by comparison.
struct WorstCase {
  std::string name;
  Bytes block;
};

const std::vector<WorstCase>& worstCases() {
  static const std::vector<WorstCase> cases = [] {
    std::vector<WorstCase> all = {{"equal", Bytes(blockSize, 'a')},
                                  {"fibonacci", test::fibonacciWord(blockSize)}};
    for (const size_t period : {2, 3, 7, 10, 31, 100, 255, 500, 1000}) {
      test::Random random(period);
      Bytes block(blockSize);
      for (size_t i = 0; i < blockSize; ++i) {
        block[i] = i < period ? static_cast<uint8_t>('a' + random() % 26) : block[i - period];
      }
      all.push_back({"period-" + std::to_string(period), block});
      block.back() ^= 1;
      all.push_back({"broken-period-" + std::to_string(period), block});
    }
    Bytes twice = test::randomBytes(blockSize / 2, 1);
    twice.insert(twice.end(), twice.begin(), twice.begin() + blockSize / 2);
    all.push_back({"two-copies", twice});
    twice[5] ^= 1;
    all.push_back({"two-copies-changed", twice});
    return all;
  }();
  return cases;
}

void addWorstCase(const WorstCase& worst) {
  const std::string name = "bwt/forward/" + worst.name + "/zebdc";
  benchmark::RegisterBenchmark(name.c_str(), [&worst](benchmark::State& state) {
    Work work;
    work.block = worst.block;
    int size = 0;
    zebsBWTFwdGetSize_8u(work.length(), &size);
    work.scratch.resize(static_cast<size_t>(size));
    work.out.resize(worst.block.size());
    forward(work);
    require(test::plainInverse(work.out, static_cast<size_t>(work.bwt.index)) == work.block,
            "a worst case does not invert");
    for (auto _ : state) forward(work);
    state.SetBytesProcessed(static_cast<int64_t>(blockSize) * state.iterations());
  });
}

}  // namespace

void registerBwt() {
  static std::vector<Bytes> blocks;
  blocks.clear();
  blocks.reserve(corpus().size());
  for (const File& file : corpus()) {
    const size_t size = std::min(file.bytes.size(), blockSize);
    const Bytes& block =
        blocks.emplace_back(file.bytes.begin(), file.bytes.begin() + static_cast<ptrdiff_t>(size));
    const auto addRow = [&](const char* operation, const char* by, Operation run) {
      add("bwt/" + std::string(operation) + "/" + file.name + "/" + by, block, run);
    };
    addRow("forward", "zebdc", forward);
#if defined(ZEBDC_BENCH_DIVSUFSORT)
    addRow("forward", "divbwt", forwardByDivbwt);
#endif
    addRow("forward", "unbounded", forwardBy<zebBWTSortUnbounded>);
    addRow("forward", "suffix", forwardBy<zebBWTSortSuffix>);
    addRow("inverse", "zebdc", inverse);
    addRow("inverse", "two-arrays", inverseByTwoArrays);
    addRow("decode-block", "zebdc", decodeBlock);
  }
  for (const WorstCase& worst : worstCases()) addWorstCase(worst);
}

}  // namespace zebdc::bench
