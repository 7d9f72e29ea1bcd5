// The Burrows-Wheeler transform and its stages by their plain definitions.
#ifndef ZEBDC_TESTS_BZIP2_PLAIN_BWT_H
#define ZEBDC_TESTS_BZIP2_PLAIN_BWT_H

#include <string.h>

#include <algorithm>
#include <numeric>
#include <optional>
#include <span>
#include <vector>

#include "support/data.h"

namespace zebdc::test {

struct PlainBwt {
  Bytes column;
  int index;

  bool operator==(const PlainBwt&) const = default;
};

// The positions of a block in the order of their rotations, equal ones by position.
inline std::vector<uint32_t> plainRotationOrder(std::span<const uint8_t> block) {
  Bytes twice(block.begin(), block.end());
  twice.insert(twice.end(), block.begin(), block.end());
  std::vector<uint32_t> order(block.size());
  std::iota(order.begin(), order.end(), 0u);
  std::stable_sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) {
    // In pieces: sanitizers look at all that a comparison might read.
    for (size_t from = 0; from < block.size();) {
      const size_t piece = std::min(block.size() - from, from + 16);
      const int result = memcmp(twice.data() + a + from, twice.data() + b + from, piece);
      if (result != 0) return result < 0;
      from += piece;
    }
    return false;
  });
  return order;
}

// The same order by doubling: rotations are ranked by their first k bytes, and two neighbouring
// ranks rank them by 2k. Long repetitions cost no more than other data.
inline std::vector<uint32_t> doubledRotationOrder(std::span<const uint8_t> block) {
  struct Rotation {
    uint64_t ranks;
    uint32_t position;
  };
  const size_t size = block.size();
  std::vector<uint32_t> rank(block.begin(), block.end());
  std::vector<Rotation> rotations(size);
  size_t classes = 0;
  for (size_t k = 1; classes < size && k < size; k *= 2) {
    for (size_t i = 0; i < size; ++i) {
      rotations[i] = {uint64_t{rank[i]} << 32 | rank[(i + k) % size], static_cast<uint32_t>(i)};
    }
    std::sort(rotations.begin(), rotations.end(), [](const Rotation& a, const Rotation& b) {
      return a.ranks != b.ranks ? a.ranks < b.ranks : a.position < b.position;
    });
    classes = 0;
    for (size_t row = 0; row < size; ++row) {
      classes += row == 0 || rotations[row].ranks != rotations[row - 1].ranks;
      rank[rotations[row].position] = static_cast<uint32_t>(classes);
    }
  }
  std::vector<uint32_t> order;
  for (const Rotation& rotation : rotations) order.push_back(rotation.position);
  return order;
}

inline PlainBwt plainForward(std::span<const uint8_t> block) {
  constexpr size_t longBlock = 300;
  const std::vector<uint32_t> order =
      block.size() < longBlock ? plainRotationOrder(block) : doubledRotationOrder(block);
  PlainBwt result = {Bytes(block.size()), 0};
  for (size_t row = 0; row < order.size(); ++row) {
    result.column[row] = block[(order[row] + block.size() - 1) % block.size()];
    if (order[row] == 0) result.index = static_cast<int>(row);
  }
  return result;
}

// The walk over two arrays, for any column and any index below its size.
inline Bytes plainInverse(std::span<const uint8_t> column, size_t index) {
  std::vector<uint32_t> start(257);
  for (const uint8_t byte : column) ++start[byte + size_t{1}];
  std::partial_sum(start.begin(), start.end(), start.begin());
  std::vector<uint32_t> link(column.size());
  for (size_t i = 0; i < column.size(); ++i) link[start[column[i]]++] = static_cast<uint32_t>(i);
  Bytes block(column.size());
  size_t p = column.empty() ? 0 : link[index];
  for (uint8_t& byte : block) {
    byte = column[p];
    p = link[p];
  }
  return block;
}

// Zero-run decoding and inverse move-to-front; nothing when the result has more bytes than the
// limit.
inline std::optional<Bytes> plainDecodeSymbols(std::span<const uint16_t> symbols, Bytes list,
                                               size_t limit) {
  list.resize(256);
  Bytes out;
  for (size_t in = 0; in < symbols.size();) {
    if (symbols[in] >= 2) {
      const size_t position = (symbols[in++] - 1) & 255;
      std::rotate(list.begin(), list.begin() + static_cast<ptrdiff_t>(position),
                  list.begin() + static_cast<ptrdiff_t>(position) + 1);
      out.push_back(list[0]);
    } else {
      size_t run = 0;
      for (int place = 0; in < symbols.size() && symbols[in] < 2; ++place) {
        if (place > 40) return std::nullopt;
        run += (symbols[in++] + size_t{1}) << place;
      }
      if (run > limit) return std::nullopt;
      out.insert(out.end(), run, list[0]);
    }
    if (out.size() > limit) return std::nullopt;
  }
  return out;
}

}  // namespace zebdc::test

#endif
