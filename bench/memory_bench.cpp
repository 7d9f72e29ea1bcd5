// The copy and fill kernels, beside the C library and the compiler's own loop. They are not
// exported: only the binary that links the archive can time them.

#include <benchmark/benchmark.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "families.h"
#include "kernels/memory.h"

namespace zebdc::bench {
namespace {

using Fill = void (*)(uint8_t* dst, size_t bytes);

struct Row {
  const char* operation;
  const char* implementation;
  Fill run;
};

constexpr uint64_t value = 0x0123456789ABCDEF;

uint8_t source[1 << 20];

// What a row must leave behind: the value's low bytes again and again, or the source.
template <class Element>
void plainFill(uint8_t* dst, size_t bytes) {
  for (size_t i = 0; i + sizeof(Element) <= bytes; i += sizeof(Element)) {
    const Element element = static_cast<Element>(value);
    memcpy(dst + i, &element, sizeof element);
  }
}

constexpr Row rows[] = {
    {"copy", "zebdc",
     [](uint8_t* dst, size_t bytes) {
       kernels::memory().copy(source, dst, static_cast<int>(bytes));
     }},
    {"copy", "memcpy", [](uint8_t* dst, size_t bytes) { memcpy(dst, source, bytes); }},
    {"fill8", "zebdc",
     [](uint8_t* dst, size_t bytes) {
       kernels::memory().fill8(static_cast<uint8_t>(value), dst, static_cast<int>(bytes));
     }},
    {"fill8", "memset",
     [](uint8_t* dst, size_t bytes) { memset(dst, static_cast<uint8_t>(value), bytes); }},
    {"fill16", "zebdc",
     [](uint8_t* dst, size_t bytes) {
       kernels::memory().fill16(static_cast<uint16_t>(value), reinterpret_cast<uint16_t*>(dst),
                                static_cast<int>(bytes / 2));
     }},
    {"fill16", "plain", plainFill<uint16_t>},
    {"fill32", "zebdc",
     [](uint8_t* dst, size_t bytes) {
       kernels::memory().fill32(static_cast<uint32_t>(value), reinterpret_cast<uint32_t*>(dst),
                                static_cast<int>(bytes / 4));
     }},
    {"fill32", "plain", plainFill<uint32_t>},
    {"fill64", "zebdc",
     [](uint8_t* dst, size_t bytes) {
       kernels::memory().fill64(value, reinterpret_cast<uint64_t*>(dst),
                                static_cast<int>(bytes / 8));
     }},
    {"fill64", "plain", plainFill<uint64_t>},
};

bool isRight(const Row& row, uint8_t* dst, size_t bytes) {
  std::vector<uint8_t> expected(bytes);
  const std::string_view operation = row.operation;
  if (operation == "copy") memcpy(expected.data(), source, bytes);
  if (operation == "fill8") plainFill<uint8_t>(expected.data(), bytes);
  if (operation == "fill16") plainFill<uint16_t>(expected.data(), bytes);
  if (operation == "fill32") plainFill<uint32_t>(expected.data(), bytes);
  if (operation == "fill64") plainFill<uint64_t>(expected.data(), bytes);
  std::fill_n(dst, bytes, uint8_t{0});
  row.run(dst, bytes);
  return memcmp(dst, expected.data(), bytes) == 0;
}

// `shift` is the distance of the destination from a page.
void time(benchmark::State& state, const Row& row, size_t bytes, size_t shift) {
  alignas(4096) static uint8_t target[sizeof source + 64];
  if (!isRight(row, target + shift, bytes)) {
    state.SkipWithError("wrong bytes");
    return;
  }
  for (auto _ : state) {
    row.run(target + shift, bytes);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

}  // namespace

void registerMemory() {
  uint32_t seed = 1;
  for (uint8_t& byte : source) {
    seed = seed * 1664525 + 1013904223;
    byte = static_cast<uint8_t>(seed >> 24);
  }
  for (const size_t bytes :
       {size_t{8}, size_t{64}, size_t{200}, size_t{4096}, size_t{65536}, sizeof source}) {
    for (const size_t shift : {size_t{0}, size_t{6}}) {
      for (const Row& row : rows) {
        const std::string data = std::to_string(bytes) + (shift == 0 ? "" : "-unaligned");
        const std::string name =
            std::string("memory/") + row.operation + "/" + data + "/" + row.implementation;
        benchmark::RegisterBenchmark(name.c_str(), [&row, bytes, shift](benchmark::State& state) {
          time(state, row, bytes, shift);
        });
      }
    }
  }
}

}  // namespace zebdc::bench
