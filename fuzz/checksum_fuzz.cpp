// The checksums against their definitions: whole and in two pieces, at any alignment, under every
// kernel tier of the machine.

#include <string.h>
#include <zebdc/zebdc.h>

#include <memory>

#include "checksum/plain_checksums.h"
#include "fuzz.h"
#include "kernels/tier.h"

namespace {

using Bytes = std::span<const uint8_t>;

struct Checksum {
  uint32_t (*plain)(uint32_t value, Bytes bytes);
  ZebStatus (*run)(const uint8_t* src, size_t len, uint32_t* value);
};

constexpr Checksum checksums[] = {
    {zebdc::test::plainAdler32,
     [](const uint8_t* src, size_t len, uint32_t* value) {
       return zebsAdler32_8u(src, static_cast<int>(len), value);
     }},
    {zebdc::test::plainCrc32,
     [](const uint8_t* src, size_t len, uint32_t* value) {
       return zebsCRC32_8u(src, static_cast<int>(len), value);
     }},
    {zebdc::test::plainCrc32c,
     [](const uint8_t* src, size_t len, uint32_t* value) {
       return zebsCRC32C_8u(src, static_cast<uint32_t>(len), value);
     }},
    {zebdc::test::plainCrc32Bzip2,
     [](const uint8_t* src, size_t len, uint32_t* value) {
       return zebsCRC32_BZ2_8u(src, static_cast<int>(len), value);
     }},
};

uint32_t continued(const Checksum& checksum, uint32_t value, Bytes bytes) {
  if (!bytes.empty()) FUZZ_CHECK(checksum.run(bytes.data(), bytes.size(), &value) == zebOk);
  return value;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zebdc::fuzz::Input input(data, size);
  const Checksum& checksum = checksums[input.takeBelow(4)];
  const uint32_t start = input.takeWord();
  const size_t shift = input.takeBelow(64);
  const size_t repetitions = 1 + input.takeBelow(40);
  const Bytes seed = input.rest();
  if (seed.empty()) return 0;

  // The data is repeated, so that short inputs reach the kernels for long buffers, and ends with
  // its allocation.
  const size_t length = seed.size() * repetitions;
  const std::unique_ptr<uint8_t[]> area(new uint8_t[shift + length]);
  for (size_t i = 0; i < repetitions; ++i) {
    memcpy(area.get() + shift + i * seed.size(), seed.data(), seed.size());
  }
  const Bytes bytes(area.get() + shift, length);
  const size_t cut = start % (length + 1);

  const uint32_t expected = checksum.plain(start, bytes);
  for (int tier = 0; tier <= zebdc::kernels::bestTierOfThisMachine(); ++tier) {
    zebdc::kernels::activeTier = tier;
    FUZZ_CHECK(continued(checksum, start, bytes) == expected);
    const uint32_t half = continued(checksum, start, bytes.first(cut));
    FUZZ_CHECK(continued(checksum, half, bytes.subspan(cut)) == expected);
  }
  return 0;
}
