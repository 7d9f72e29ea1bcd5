// Zero-run coding symbol by symbol, as its rules read.
#ifndef ZEBDC_TESTS_BZIP2_PLAIN_ZERO_RUNS_H
#define ZEBDC_TESTS_BZIP2_PLAIN_ZERO_RUNS_H

#include <zebdc/zebdc.h>

#include <span>
#include <vector>

#include "support/data.h"

namespace zebdc::test {

using Symbols = std::vector<uint16_t>;

template <class Out>
struct PlainZeroRuns {
  ZebStatus status;
  size_t consumed;
  Out out;

  bool operator==(const PlainZeroRuns&) const = default;
};

inline void putNumeral(Symbols& out, size_t zeros) {
  for (size_t n = zeros; n > 0; n = (n - 1) >> 1) {
    out.push_back(static_cast<uint16_t>((n - 1) & 1));
  }
}

// For runs below 2097151 zeros.
inline PlainZeroRuns<Symbols> plainEncodeZeroRuns(std::span<const uint8_t> source,
                                                  size_t capacity) {
  const auto longestAllowed = [](size_t room) {
    return room == 20 ? size_t{0} : (size_t{2} << room) - 2;
  };
  Symbols out;
  size_t in = 0;
  const auto finish = [&] {
    return PlainZeroRuns<Symbols>{in < source.size() ? zebWarnDstFull : zebOk, in, out};
  };
  while (in < source.size() && out.size() < capacity) {
    const size_t room = capacity - out.size();
    size_t zeros = 0;
    while (in + zeros < source.size() && source[in + zeros] == 0) ++zeros;
    if (in + zeros == source.size()) {
      if (room < 20) zeros = std::min(zeros, longestAllowed(room));
      putNumeral(out, zeros);
      in += zeros;
      return finish();
    }
    if (room <= 20 && zeros > longestAllowed(room)) {
      putNumeral(out, longestAllowed(room));
      in += longestAllowed(room);
      return finish();
    }
    putNumeral(out, zeros);
    in += zeros;
    if (out.size() == capacity) return finish();
    out.push_back(static_cast<uint16_t>(source[in++] + 1));
  }
  return finish();
}

inline PlainZeroRuns<Bytes> plainDecodeZeroRuns(std::span<const uint16_t> source, size_t capacity) {
  Bytes out;
  size_t in = 0;
  while (true) {
    // In floating point, which neither wraps nor ends.
    double zeros = 0;
    double weight = 1;
    for (; in < source.size() && source[in] < 2; ++in, weight *= 2) {
      zeros += weight * (source[in] + 1);
    }
    const double room = static_cast<double>(capacity - out.size());
    if (in == source.size()) {
      if (zeros > room) return {zebWarnDstFull, in, out};
      out.insert(out.end(), static_cast<size_t>(zeros), 0);
      return {zebOk, in, out};
    }
    if (zeros >= room) return {zebWarnDstFull, in, out};
    out.insert(out.end(), static_cast<size_t>(zeros), 0);
    out.push_back(static_cast<uint8_t>(source[in++] - 1));
  }
}

}  // namespace zebdc::test

#endif
