// The Burrows-Wheeler transform of whole blocks by induced sorting.

#include "bzip2/bwt_block.h"

#include <string.h>

#include "bzip2/lms_sort.h"
#include "frame/bytes.h"
#include "kernels/bwt_induce.h"
#include "kernels/bwt_sort.h"

namespace zebdc::bzip2 {
namespace {

// Work allowed to the sort by bytes, in its units. Text takes 9 to 14, repetitive tables up to 23;
// sorting by induction, which follows when it is spent, takes the time of some 25.
constexpr int64_t budgetPerByte = 32;

// Counts the bytes of a block.
void countBytes(const uint8_t* src, uint32_t length, uint32_t* counts) {
  // Four tables, as increments of one counter in a row wait for each other.
  uint32_t tables[4][byteValues] = {};
  uint32_t i = 0;
  for (; length - i >= 8; i += 8) {
    const uint64_t bytes = load<uint64_t>(src + i);
    for (int k = 0; k < 8; ++k) ++tables[k % 4][bytes >> (8 * k) & 0xFF];
  }
  for (; i < length; ++i) ++tables[0][src[i]];
  for (uint32_t byte = 0; byte < byteValues; ++byte) {
    counts[byte] = tables[0][byte] + tables[1][byte] + tables[2][byte] + tables[3][byte];
  }
}

uint32_t greatestCommonDivisor(uint32_t a, uint32_t b) {
  while (b != 0) {
    const uint32_t rest = a % b;
    a = b;
    b = rest;
  }
  return a;
}

bool hasPeriod(const uint8_t* src, uint32_t length, uint32_t period) {
  return memcmp(src, src + period, length - period) == 0;
}

// Divides the root by a prime as long as the block has the shorter period.
uint32_t reduceRoot(const uint8_t* src, uint32_t length, uint32_t root, uint32_t prime) {
  while (root % prime == 0 && hasPeriod(src, length, root / prime)) root /= prime;
  return root;
}

uint32_t rootLength(const uint8_t* src, uint32_t length, const uint32_t* byteCounts) {
  // The number of copies divides the count of every byte value.
  uint32_t divisor = length;
  for (uint32_t byte = 0; byte < byteValues; ++byte) {
    divisor = greatestCommonDivisor(divisor, byteCounts[byte]);
  }
  uint32_t root = length;
  for (uint32_t prime = 2; prime <= divisor / prime; ++prime) {
    if (divisor % prime != 0) continue;
    do divisor /= prime;
    while (divisor % prime == 0);
    root = reduceRoot(src, length, root, prime);
  }
  return divisor > 1 ? reduceRoot(src, length, root, divisor) : root;
}

}  // namespace

Root findRoot(const uint8_t* src, uint32_t length) {
  Root root;
  countBytes(src, length, root.byteCounts);
  root.length = rootLength(src, length, root.byteCounts);
  root.copies = length / root.length;
  if (root.copies > 1) {
    for (uint32_t& count : root.byteCounts) count /= root.copies;
  }
  return root;
}

uint32_t repeatColumn(const Root& root, uint32_t index, uint8_t* dst) {
  if (root.copies > 1) {
    for (uint32_t row = root.length; row-- > 0;) {
      memset(dst + size_t{row} * root.copies, dst[row], root.copies);
    }
  }
  return index * root.copies;
}

uint8_t* copyTwice(const uint8_t* src, uint32_t length, size_t margin, Scratch& scratch) {
  uint8_t* const text = scratch.take<uint8_t>(2 * size_t{length} + margin);
  memcpy(text, src, length);
  memcpy(text + length, src, length);
  return text;
}

namespace {

int positionBits(uint32_t length) {
  return length <= 1u << 24 ? 24 : 32;
}

// Copies the root, the byte before it and so many bytes behind it, cyclically.
uint8_t* copyText(const uint8_t* src, uint32_t length, size_t behind, Scratch& scratch) {
  uint8_t* const text = scratch.take<uint8_t>(1 + length + behind) + 1;
  *(text - 1) = src[length - 1];
  memcpy(text, src, length);
  for (size_t copied = 0; copied < behind;) {
    const size_t piece = behind - copied < length ? behind - copied : length;
    memcpy(text + length + copied, text, piece);
    copied += piece;
  }
  return text;
}

MarkedBlock markLms(const uint8_t* text, uint32_t length, Scratch& scratch) {
  uint64_t* const bits = scratch.take<uint64_t>(kernels::bwtBitWords(length));
  const uint32_t count = kernels::bwtSort().markLms(text, length, bits);
  return {text, length, bits, count};
}

// Sorting LMS positions leaves them, sorted, at the front of an area that either sorter can use.
uint64_t* takeOrder(const MarkedBlock& block, Scratch& scratch) {
  const size_t words = block.lmsCount + kernels::bwtWordSlack;
  const size_t positions = block.length / 2 + size_t{1};
  return scratch.take<uint64_t>(words > positions ? words : positions);
}

// False when that takes too long.
bool sortLmsByBytes(const MarkedBlock& block, uint64_t* order, Scratch scratch) {
  const uint32_t count = block.lmsCount;
  kernels::BwtLmsSort job;
  job.text = block.text;
  job.length = block.length;
  job.lmsCount = count;
  job.positionBits = positionBits(block.length);
  job.budget = budgetPerByte * block.length;
  job.lmsBits = block.lmsBits;
  job.words = order;
  job.spare = scratch.take<uint64_t>(count + kernels::bwtWordSlack);
  job.groups = scratch.take<kernels::BwtGroup>(count / 2);
  job.ranks = scratch.take<uint32_t>(block.length / 2 + 1);
  job.bucketEnds = scratch.take<uint32_t>(kernels::bwtBucketCount(block.length));
  memset(job.ranks, 0, (block.length / 2 + 1) * sizeof *job.ranks);
  if (!kernels::bwtSort().sortLms(job)) return false;

  // The positions may replace the words in place: they are shorter.
  const uint64_t positionMask = (uint64_t{1} << job.positionBits) - 1;
  for (uint32_t i = 0; i < count; ++i) {
    store(reinterpret_cast<uint32_t*>(order) + i, static_cast<uint32_t>(order[i] & positionMask));
  }
  return true;
}

// Of positions in the order of their rotations.
void countByFirstByte(const MarkedBlock& block, const uint32_t* lms, uint32_t* counts) {
  uint32_t begin = 0;
  for (uint32_t byte = 0; byte < byteValues; ++byte) {
    uint32_t low = begin;
    uint32_t high = block.lmsCount;
    while (low < high) {
      const uint32_t middle = low + (high - low) / 2;
      if (block.text[lms[middle]] <= byte) {
        low = middle + 1;
      } else {
        high = middle;
      }
    }
    counts[byte] = low - begin;
    begin = low;
  }
}

// From the sorted LMS positions to the column of the whole block.
uint32_t induceColumn(const MarkedBlock& block, const Root& root, const uint32_t* lms, uint8_t* dst,
                      Scratch scratch) {
  uint32_t lmsCounts[byteValues];
  countByFirstByte(block, lms, lmsCounts);
  kernels::BwtInduction job;
  job.text = block.text;
  job.length = block.length;
  job.positionBits = positionBits(block.length);
  job.byteCounts = root.byteCounts;
  job.lmsCounts = lmsCounts;
  job.lms = lms;
  job.entries = job.positionBits == 24
                    ? static_cast<void*>(scratch.take<uint32_t>(block.length + size_t{1}))
                    : scratch.take<uint64_t>(block.length + size_t{1});
  job.column = dst;
  return repeatColumn(root, kernels::induceColumn(job), dst);
}

uint32_t transformOneValue(const uint8_t* src, uint32_t length, uint8_t* dst) {
  memset(dst, src[0], length);
  return 0;
}

}  // namespace

uint32_t transformFast(const uint8_t* src, uint32_t length, uint8_t* dst, Scratch scratch) {
  const Root root = findRoot(src, length);
  if (root.length == 1) return transformOneValue(src, length, dst);
  const size_t behind = root.length + kernels::bwtTextMargin;
  const MarkedBlock block =
      markLms(copyText(src, root.length, behind, scratch), root.length, scratch);
  uint64_t* const order = takeOrder(block, scratch);
  uint32_t* const lms = reinterpret_cast<uint32_t*>(order);
  if (!sortLmsByBytes(block, order, scratch)) sortLmsByInduction(block, lms, scratch);
  return induceColumn(block, root, lms, dst, scratch);
}

uint32_t transformByInduction(const uint8_t* src, uint32_t length, uint8_t* dst, Scratch scratch) {
  const Root root = findRoot(src, length);
  if (root.length == 1) return transformOneValue(src, length, dst);
  const MarkedBlock block = markLms(copyText(src, root.length, 1, scratch), root.length, scratch);
  uint32_t* const lms = scratch.take<uint32_t>(block.length);
  sortLmsByInduction(block, lms, scratch);
  return induceColumn(block, root, lms, dst, scratch);
}

}  // namespace zebdc::bzip2
