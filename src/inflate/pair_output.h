// The pairs that a call writes.
#ifndef ZEBDC_INFLATE_PAIR_OUTPUT_H
#define ZEBDC_INFLATE_PAIR_OUTPUT_H

#include <stdint.h>
#include <zebdc/zebdc.h>

namespace zebdc::inflate {

struct PairOutput {
  PairOutput(ZebLZ77Pair* pairs, int pairsLen) : next(pairs), end(pairs + pairsLen) {}

  void save(ZebLZ77Pair** ppPairs, int* pPairsLen) const {
    *ppPairs = next;
    *pPairsLen = static_cast<int>(end - next);
  }

  bool full() const { return next == end; }

  // A literal has the distance 0.
  void put(uint32_t lengthOrLiteral, uint32_t distance) {
    *next++ = {static_cast<uint16_t>(lengthOrLiteral), static_cast<uint16_t>(distance)};
  }

  ZebLZ77Pair* next;
  ZebLZ77Pair* end;
};

}  // namespace zebdc::inflate

#endif
