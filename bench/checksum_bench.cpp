// Checksums of buffers from a few bytes to a megabyte. Each call continues the value of the one
// before, so short sizes show the latency of a call. A copy of the same size shows what memory
// allows.

#include <benchmark/benchmark.h>
#include <string.h>
#include <zebdc/zebdc.h>

#include <string>
#include <vector>

#include "families.h"

#if defined(ZEBDC_BENCH_ZLIB)
#include <zlib.h>
#endif
#if defined(ZEBDC_BENCH_LIBDEFLATE)
#include <libdeflate.h>
#endif

namespace zebdc::bench {
namespace {

using Checksum = uint32_t (*)(uint32_t value, const uint8_t* src, size_t len);

struct Row {
  const char* operation;
  const char* implementation;
  uint32_t start;
  Checksum run;
};

uint32_t adler32(uint32_t value, const uint8_t* src, size_t len) {
  zebsAdler32_8u(src, static_cast<int>(len), &value);
  return value;
}

uint32_t crc32(uint32_t value, const uint8_t* src, size_t len) {
  zebsCRC32_8u(src, static_cast<int>(len), &value);
  return value;
}

uint32_t crc32c(uint32_t value, const uint8_t* src, size_t len) {
  zebsCRC32C_8u(src, static_cast<uint32_t>(len), &value);
  return value;
}

uint32_t crc32Bzip2(uint32_t value, const uint8_t* src, size_t len) {
  zebsCRC32_BZ2_8u(src, static_cast<int>(len), &value);
  return value;
}

#if defined(ZEBDC_BENCH_ZLIB)
uint32_t zlibAdler32(uint32_t value, const uint8_t* src, size_t len) {
  return static_cast<uint32_t>(adler32_z(value, src, len));
}

uint32_t zlibCrc32(uint32_t value, const uint8_t* src, size_t len) {
  return static_cast<uint32_t>(crc32_z(value, src, len));
}
#endif

#if defined(ZEBDC_BENCH_LIBDEFLATE)
uint32_t libdeflateAdler32(uint32_t value, const uint8_t* src, size_t len) {
  return libdeflate_adler32(value, src, len);
}

uint32_t libdeflateCrc32(uint32_t value, const uint8_t* src, size_t len) {
  return libdeflate_crc32(value, src, len);
}
#endif

// The check values of "123456789", by which every implementation is verified before it is timed.
constexpr uint32_t adler32Check = 0x091E01DE;
constexpr uint32_t crc32Check = 0xCBF43926;
constexpr uint32_t crc32cCheck = 0x1CF96D7C;
constexpr uint32_t crc32Bzip2Check = 0xFC891918;

uint32_t checkValueOf(const std::string& operation) {
  if (operation == "adler32") return adler32Check;
  if (operation == "crc32") return crc32Check;
  return operation == "crc32c" ? crc32cCheck : crc32Bzip2Check;
}

// The checksums of the library's four operations, on which no two implementations may differ.
constexpr Row rows[] = {
    {"adler32", "zebdc", 1, adler32},
    {"crc32", "zebdc", 0, crc32},
    {"crc32c", "zebdc", 0xFFFFFFFF, crc32c},
    {"crc32_bz2", "zebdc", 0, crc32Bzip2},
#if defined(ZEBDC_BENCH_LIBDEFLATE)
    {"adler32", "libdeflate", 1, libdeflateAdler32},
    {"crc32", "libdeflate", 0, libdeflateCrc32},
#endif
#if defined(ZEBDC_BENCH_ZLIB)
    {"adler32", "zlib", 1, zlibAdler32},
    {"crc32", "zlib", 0, zlibCrc32},
#endif
};

constexpr size_t sizes[] = {4, 8, 16, 31, 64, 200, 1024, 4096, 65536, 1 << 20};

constexpr size_t largestSize = 1 << 20;

// Begins at a page, as the peers like it best.
const uint8_t* sharedData() {
  alignas(4096) static uint8_t data[largestSize];
  static const bool filled = [] {
    uint32_t state = 1;
    for (uint8_t& byte : data) {
      state = state * 1664525 + 1013904223;
      byte = static_cast<uint8_t>(state >> 24);
    }
    return true;
  }();
  return filled ? data : nullptr;
}

bool isRight(const Row& row, size_t size) {
  const uint8_t digits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
  if (row.run(row.start, digits, sizeof digits) != checkValueOf(row.operation)) return false;
  // The same bytes one at a time, which no fast path takes.
  uint32_t value = row.start;
  for (size_t i = 0; i < size; ++i) value = row.run(value, sharedData() + i, 1);
  return row.run(row.start, sharedData(), size) == value;
}

void timeChecksum(benchmark::State& state, const Row& row, size_t size) {
  if (!isRight(row, size)) {
    state.SkipWithError("wrong checksum");
    return;
  }
  uint32_t value = row.start;
  for (auto _ : state) value = row.run(value, sharedData(), size);
  benchmark::DoNotOptimize(value);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}

void timeCopy(benchmark::State& state, size_t size) {
  std::vector<uint8_t> target(size);
  for (auto _ : state) {
    memcpy(target.data(), sharedData(), size);
    benchmark::DoNotOptimize(target.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}

}  // namespace

void registerChecksums() {
  for (const size_t size : sizes) {
    const std::string data = std::to_string(size);
    for (const Row& row : rows) {
      const std::string name =
          std::string("checksum/") + row.operation + "/" + data + "/" + row.implementation;
      benchmark::RegisterBenchmark(
          name.c_str(), [&row, size](benchmark::State& state) { timeChecksum(state, row, size); });
    }
    benchmark::RegisterBenchmark(("checksum/copy/" + data + "/memcpy").c_str(),
                                 [size](benchmark::State& state) { timeCopy(state, size); });
  }
}

}  // namespace zebdc::bench
