// The common prefix of the deflate records. Encoder and decoder records are different blocks of
// memory behind one public type; both begin with these fields, which the shared operations use.
#ifndef ZEBDC_DEFLATE_LZ77_RECORD_H
#define ZEBDC_DEFLATE_LZ77_RECORD_H

#include <stdint.h>
#include <zebdc/zebdc.h>

struct ZebLZ77State_8u {
  ZebLZ77Pair* pairs;            // the record's own buffer, or the caller's after SetPairs
  int32_t pairsInd;              // next pair to write (matching) or to read (coding)
  int32_t pairsLen;              // capacity while matching, pairs to code while coding
  ZebLZ77Checksum checksumKind;  // as given to Init
  ZebLZ77DeflateStatus deflateStatus;
};

#endif
