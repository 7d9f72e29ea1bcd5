// Allocation and the shared copy and fill routines, under every kernel tier.

#include "frame/memory.h"

#include <gtest/gtest.h>
#include <string.h>

#include "kernels/memory.h"
#include "support/data.h"
#include "support/guarded_buffer.h"

namespace zebdc {
namespace {

using test::Bytes;
using test::GuardedBuffer;

TEST(Allocate, RefusesCountsBelowOne) {
  EXPECT_EQ(allocate(0), nullptr);
  EXPECT_EQ(allocate(-1), nullptr);
  EXPECT_EQ(allocate(INT32_MIN), nullptr);
}

TEST(Allocate, BlocksAreAligned) {
  void* const block = allocate(100);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 16, 0u);
  release(block);
}

TEST(CheckedCopyAndFill, NullPointersComeBeforeLengths) {
  uint8_t byte = 7;
  uint16_t word = 7;
  EXPECT_EQ(copyBytes(nullptr, &byte, 0), zebErrNullPtr);
  EXPECT_EQ(copyBytes(&byte, nullptr, 0), zebErrNullPtr);
  EXPECT_EQ(zeroBytes(nullptr, 0), zebErrNullPtr);
  EXPECT_EQ(fillBytes(1, nullptr, 0), zebErrNullPtr);
  EXPECT_EQ(fill16(1, nullptr, 0), zebErrNullPtr);
  for (const int length : {0, -1, INT32_MIN}) {
    EXPECT_EQ(copyBytes(&byte, &byte, length), zebErrSize);
    EXPECT_EQ(zeroBytes(&byte, length), zebErrSize);
    EXPECT_EQ(fillBytes(1, &byte, length), zebErrSize);
    EXPECT_EQ(fill16(1, &word, length), zebErrSize);
  }
  EXPECT_EQ(byte, 7);
  EXPECT_EQ(word, 7);
}

TEST(CheckedCopyAndFill, DoWhatTheySay) {
  const Bytes source = test::randomBytes(1000, 1);
  GuardedBuffer target(1000);
  EXPECT_EQ(copyBytes(source.data(), target.data(), 1000), zebOk);
  EXPECT_EQ(memcmp(source.data(), target.data(), 1000), 0);
  EXPECT_EQ(fillBytes(0x5A, target.data(), 999), zebOk);
  EXPECT_EQ(target[0], 0x5A);
  EXPECT_EQ(target[998], 0x5A);
  EXPECT_EQ(target[999], source[999]);
  EXPECT_EQ(zeroBytes(target.data(), 1), zebOk);
  EXPECT_EQ(target[0], 0);
  EXPECT_EQ(target[1], 0x5A);
  EXPECT_EQ(fill16(0x1234, target.as<uint16_t>(), 500), zebOk);
  EXPECT_EQ(target[998], 0x34);
  EXPECT_EQ(target[999], 0x12);
}

// Every length up to 300 elements at every alignment, against the plain definition, with guards.
template <class T, class Fill>
void expectFills(T value, Fill fill) {
  for (int length = 0; length <= 300; ++length) {
    const size_t bytes = static_cast<size_t>(length) * sizeof value;
    for (size_t shift = 0; shift < 17; ++shift) {
      GuardedBuffer area(bytes + shift + 16, GuardedBuffer::Edge::begin);
      memset(area.data(), 0xEE, area.size());
      Bytes expected(area.begin(), area.end());
      for (size_t i = 0; i < bytes; i += sizeof value) {
        memcpy(expected.data() + shift + i, &value, sizeof value);
      }
      fill(value, area.data() + shift, length);
      ASSERT_EQ(memcmp(area.data(), expected.data(), area.size()), 0)
          << "length " << length << " shift " << shift;
    }
    GuardedBuffer exact(bytes);
    fill(value, exact.data(), length);
  }
}

TEST(MemoryKernels, FillEveryLengthAndAlignment) {
  const kernels::MemoryKernels& kernel = kernels::memory();
  expectFills<uint8_t>(0xA5, [&](uint8_t v, uint8_t* p, int n) { kernel.fill8(v, p, n); });
  expectFills<uint16_t>(0xA512, [&](uint16_t v, uint8_t* p, int n) {
    kernel.fill16(v, reinterpret_cast<uint16_t*>(p), n);
  });
  expectFills<uint32_t>(0xA5123456, [&](uint32_t v, uint8_t* p, int n) {
    kernel.fill32(v, reinterpret_cast<uint32_t*>(p), n);
  });
  expectFills<uint64_t>(0xA512345678901234, [&](uint64_t v, uint8_t* p, int n) {
    kernel.fill64(v, reinterpret_cast<uint64_t*>(p), n);
  });
  struct Wide {
    uint64_t low = 0x1122334455667788, high = 0x99AABBCCDDEEFF00;
  };
  expectFills<Wide>(Wide(), [&](const Wide& v, uint8_t* p, int n) { kernel.fill128(&v, p, n); });
}

TEST(MemoryKernels, CopyEveryLength) {
  const Bytes source = test::randomBytes(400, 2);
  for (int length = 0; length <= 300; ++length) {
    for (size_t shift = 0; shift < 17; ++shift) {
      GuardedBuffer from(
          std::span<const uint8_t>(source).subspan(shift, static_cast<size_t>(length)));
      GuardedBuffer to(static_cast<size_t>(length) + shift);
      kernels::memory().copy(from.data(), to.data() + shift, length);
      ASSERT_EQ(memcmp(from.data(), to.data() + shift, from.size()), 0);
    }
  }
}

TEST(MemoryKernels, LongFillsAndCopiesAtEveryAlignment) {
  const Bytes source = test::randomBytes(70000, 3);
  for (const int length : {1000, 4095, 16384, 17001}) {
    const size_t bytes = static_cast<size_t>(length) * 4;
    for (size_t shift = 0; shift < 65; ++shift) {
      GuardedBuffer area(bytes + shift);
      memset(area.data(), 0xEE, area.size());
      uint8_t* const target = area.data() + shift;
      kernels::memory().fill32(0x01234567, reinterpret_cast<uint32_t*>(target), length);
      for (size_t i = 0; i < shift; ++i) ASSERT_EQ(area[i], 0xEE);
      for (size_t i = 0; i < bytes; ++i) {
        ASSERT_EQ(target[i], static_cast<uint8_t>(0x01234567 >> (i % 4 * 8))) << i;
      }
      kernels::memory().copy(source.data() + shift, target, length);
      ASSERT_EQ(memcmp(target, source.data() + shift, static_cast<size_t>(length)), 0);
    }
  }
}

TEST(MemoryKernels, LengthsBelowOneTouchNothing) {
  const kernels::MemoryKernels& kernel = kernels::memory();
  const Bytes before(64, 0xEE);
  Bytes area = before;
  const Bytes value(16, 1);
  for (const int length : {0, -1, INT32_MIN}) {
    kernel.copy(value.data(), area.data(), length);
    kernel.fill8(1, area.data(), length);
    kernel.fill16(1, reinterpret_cast<uint16_t*>(area.data()), length);
    kernel.fill32(1, reinterpret_cast<uint32_t*>(area.data()), length);
    kernel.fill64(1, reinterpret_cast<uint64_t*>(area.data()), length);
    kernel.fill128(value.data(), area.data(), length);
  }
  EXPECT_EQ(area, before);
}

}  // namespace
}  // namespace zebdc
