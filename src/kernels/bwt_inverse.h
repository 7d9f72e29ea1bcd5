// Kernel of the inverse Burrows-Wheeler transform.
#ifndef ZEBDC_KERNELS_BWT_INVERSE_H
#define ZEBDC_KERNELS_BWT_INVERSE_H

#include <stddef.h>
#include <stdint.h>

namespace zebdc::kernels {

// Writes the block of a column whose index is below the length, which is 1 to bwtInverseLimit. The
// rows, 4 bytes of scratch for each byte, may have any alignment. The block may overwrite the
// column. Any column and index are safe. One body serves all tiers.
constexpr uint32_t bwtInverseLimit = 1 << 24;
void invertColumn(const uint8_t* column, uint32_t length, uint32_t index, uint8_t* rows,
                  uint8_t* block);

// The same, slower, for any length. The block must not overlap the column.
void invertLongColumn(const uint8_t* column, uint32_t length, uint32_t index, uint8_t* rows,
                      uint8_t* block);

// The same for at most 2^16 bytes, with links of two bytes for each, at any alignment.
void invertSmallColumn(const uint8_t* column, uint32_t length, uint32_t index, uint8_t* links,
                       uint8_t* block);

}  // namespace zebdc::kernels

#endif
