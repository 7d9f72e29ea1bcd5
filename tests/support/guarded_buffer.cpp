#include "support/guarded_buffer.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <array>
#include <unordered_map>
#include <vector>

#if defined(_WIN32)
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#else
#include <sys/mman.h>
#endif

namespace zebdc::test {
namespace {

constexpr size_t pageSize = 4096;
constexpr size_t recordAlignment = 16;
constexpr uint8_t guardByte = 0xA9;

// There are never more than these on a side.
constexpr auto intactGuardBytes = [] {
  std::array<uint8_t, pageSize> bytes{};
  bytes.fill(guardByte);
  return bytes;
}();

// Inaccessible memory of the given size, a multiple of the page size.
void* reserve(size_t size) {
#if defined(_WIN32)
  void* mapping = VirtualAlloc(nullptr, size, MEM_RESERVE, PAGE_NOACCESS);
  if (mapping == nullptr) abort();
#else
  void* mapping = mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapping == MAP_FAILED) abort();
#endif
  return mapping;
}

void makeAccessible(uint8_t* begin, size_t size) {
  if (size == 0) return;
#if defined(_WIN32)
  if (VirtualAlloc(begin, size, MEM_COMMIT, PAGE_READWRITE) == nullptr) abort();
#else
  if (mprotect(begin, size, PROT_READ | PROT_WRITE) != 0) abort();
#endif
}

// An accessible area of the given size, a multiple of the page size, between inaccessible pages.
uint8_t* mapGuarded(size_t inner) {
  uint8_t* const first = static_cast<uint8_t*>(reserve(inner + 2 * pageSize)) + pageSize;
  makeAccessible(first, inner);
  return first;
}

// Mapping is slow on some systems and tests make buffers by the thousand, so areas are used again.
using SpareAreas = std::unordered_map<size_t, std::vector<uint8_t*>>;

SpareAreas& spareAreas() {
  static SpareAreas areas;
  return areas;
}

uint8_t* takeArea(size_t inner) {
  std::vector<uint8_t*>& spare = spareAreas()[inner];
  if (spare.empty()) return mapGuarded(inner);
  uint8_t* const first = spare.back();
  spare.pop_back();
  return first;
}

size_t wholePages(size_t size) {
  return (size + pageSize - 1) / pageSize * pageSize;
}

size_t gapInFront(GuardedBuffer::Edge edge, size_t gap) {
  switch (edge) {
    case GuardedBuffer::Edge::end:
      return gap;
    case GuardedBuffer::Edge::begin:
      return 0;
    case GuardedBuffer::Edge::none:
      break;
  }
  return recordAlignment;
}

bool isIntact(std::span<const uint8_t> guard) {
  return memcmp(guard.data(), intactGuardBytes.data(), guard.size()) == 0;
}

}  // namespace

GuardedBuffer::GuardedBuffer(size_t size, Edge edge)
    : inner_(wholePages(edge == Edge::none ? recordAlignment + size : size)),
      first_(takeArea(inner_)),
      data_(first_ + gapInFront(edge, inner_ - size)),
      size_(size) {
  // Nothing of an earlier buffer may look like a result.
  memset(data_, 0xCD, size);
  for (const std::span<uint8_t> guard : {guardInFront(), guardBehind()}) {
    memcpy(guard.data(), intactGuardBytes.data(), guard.size());
  }
}

GuardedBuffer::GuardedBuffer(std::span<const uint8_t> content, Edge edge)
    : GuardedBuffer(content.size(), edge) {
  if (!content.empty()) memcpy(data_, content.data(), content.size());
}

GuardedBuffer::~GuardedBuffer() {
  EXPECT_TRUE(isIntact(guardInFront())) << "in front of a buffer of " << size_;
  EXPECT_TRUE(isIntact(guardBehind())) << "behind a buffer of " << size_;
  spareAreas()[inner_].push_back(first_);
}

}  // namespace zebdc::test
