// Huffman code lengths of one table, limited as the format's encoders must.
#ifndef ZEBDC_BZIP2_CODE_LENGTHS_H
#define ZEBDC_BZIP2_CODE_LENGTHS_H

#include <stdint.h>

namespace zebdc::bzip2 {

// Lengths of 1 to 17 for all alphaSize symbols (at most 258), also for those with a count of 0.
void buildCodeLengths(const uint32_t* counts, int alphaSize, uint8_t* lengths);

// Canonical codes as in RFC 1951, section 3.2.2.
void buildCodes(const uint8_t* lengths, int alphaSize, uint32_t* codes);

}  // namespace zebdc::bzip2

#endif
