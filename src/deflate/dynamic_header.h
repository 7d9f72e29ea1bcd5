// The header of a dynamic block (RFC 1951, 3.2.7).
#ifndef ZEBDC_DEFLATE_DYNAMIC_HEADER_H
#define ZEBDC_DEFLATE_DYNAMIC_HEADER_H

#include <stdint.h>

#include "deflate/format.h"

namespace zebdc::deflate {

inline constexpr int dynamicHeaderRoom = 292;

// Every length as a symbol of its own under the longest code: the extra bits of a symbol that
// stands for several lengths are fewer than the codes it saves.
static_assert(3 + 5 + 5 + 4 + 3 * codeLengthSymbols +
                  (literalSymbols + distanceSymbols) * maxCodeLengthCodeLength <=
              8 * dynamicHeaderRoom);

// Writes the header that sends these code lengths to dst[dynamicHeaderRoom] and returns its length
// in bits. What remains of the last byte is zero.
int buildDynamicHeader(const uint8_t* literalLengths, const uint8_t* distanceLengths, bool isFinal,
                       uint8_t* dst);

}  // namespace zebdc::deflate

#endif
