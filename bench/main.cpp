// Times the library and its peers in one run:
//   zebdc_bench [--corpus=FOLDER] [Google Benchmark flags]
//   zebdc_tier_bench [--tier=NAME] ...

#include <benchmark/benchmark.h>
#include <stdio.h>

#include <algorithm>
#include <iterator>
#include <string_view>
#include <vector>

#include "corpus.h"
#include "families.h"

#if defined(ZEBDC_BENCH_TIERS)
#include "kernels/tier.h"

namespace {

constexpr std::string_view tierOption = "--tier=";

bool useTier(std::string_view name) {
  constexpr std::string_view names[] = {"baseline", "sse42", "avx2", "vpclmul", "avx512"};
  static_assert(std::size(names) == zebdc::kernels::tierCount);
  const int tier =
      static_cast<int>(std::find(std::begin(names), std::end(names), name) - std::begin(names));
  if (tier > zebdc::kernels::bestTierOfThisMachine() || tier == zebdc::kernels::tierCount) {
    fprintf(stderr, "this machine has no tier named %s\n", name.data());
    return false;
  }
  zebdc::kernels::activeTier = tier;
  return true;
}

}  // namespace
#endif

int main(int argc, char** argv) {
  constexpr std::string_view corpusOption = "--corpus=";
  std::string folder;
  std::vector<char*> arguments;
  for (int i = 0; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument.starts_with(corpusOption)) {
      folder = argument.substr(corpusOption.size());
#if defined(ZEBDC_BENCH_TIERS)
    } else if (argument.starts_with(tierOption)) {
      if (!useTier(argument.substr(tierOption.size()))) return 2;
#endif
    } else {
      arguments.push_back(argv[i]);
    }
  }
  zebdc::bench::loadCorpus(folder);
#if defined(ZEBDC_BENCH_TIERS)
  zebdc::bench::registerMemory();
#endif
  zebdc::bench::registerChecksums();
  zebdc::bench::registerBwt();
  zebdc::bench::registerBzip2();
  zebdc::bench::registerDeflate();
  zebdc::bench::registerDeflateMatch();
  zebdc::bench::registerHuffman();
  zebdc::bench::registerInflate();
  zebdc::bench::registerLz();

  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
