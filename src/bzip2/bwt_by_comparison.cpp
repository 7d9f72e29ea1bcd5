// The Burrows-Wheeler transform of whole blocks by comparison of rotations.

#include <string.h>

#include "bzip2/bwt_block.h"
#include "kernels/bwt_compare.h"

namespace zebdc::bzip2 {
namespace {

// Blocks below this length are not worth counting their pairs.
constexpr uint32_t shortBlock = 100;

int64_t workBudget(uint32_t length) {
  constexpr uint32_t longBlock = 99900;
  return int64_t{length < longBlock ? 100 : 25} * length;
}

// The order of all rotations, or null when the budget was not enough.
const uint32_t* sortBlock(const uint8_t* text, uint32_t length, int64_t budget, Scratch scratch) {
  uint32_t* const order = scratch.take<uint32_t>(length);
  if (length < shortBlock) {
    for (uint32_t p = 0; p < length; ++p) order[p] = p;
    kernels::sortRotations(text, length, order, length, 0, &budget);
    return budget < 0 ? nullptr : order;
  }
  uint32_t* const starts = scratch.take<uint32_t>(kernels::bwtPairs + 1);
  kernels::countPairs(text, length, starts);
  kernels::placeByPairs(text, length, starts, order);
  starts[kernels::bwtPairs] = length;
  for (size_t pair = 0; pair < kernels::bwtPairs; ++pair) {
    const uint32_t count = starts[pair + 1] - starts[pair];
    if (count < 2) continue;
    kernels::sortRotations(text, length, order + starts[pair], count, 2, &budget);
    if (budget < 0) return nullptr;
  }
  return order;
}

}  // namespace

bool transformByComparison(const uint8_t* src, uint32_t length, uint8_t* dst, uint32_t* index,
                           Scratch scratch) {
  const uint8_t* const text = copyTwice(src, length, kernels::bwtCompareMargin, scratch);
  const uint32_t* const order = sortBlock(text, length, workBudget(length), scratch);
  if (order == nullptr) return false;
  const uint32_t row = kernels::writeColumn(text, length, order, dst);
  *index = row - row % findRoot(text, length).copies;
  return true;
}

uint32_t transformByComparisonUnbounded(const uint8_t* src, uint32_t length, uint8_t* dst,
                                        Scratch scratch) {
  const Root root = findRoot(src, length);
  const uint8_t* const text = copyTwice(src, root.length, kernels::bwtCompareMargin, scratch);
  const uint32_t* const order = sortBlock(text, root.length, INT64_MAX, scratch);
  return repeatColumn(root, kernels::writeColumn(text, root.length, order, dst), dst);
}

}  // namespace zebdc::bzip2
