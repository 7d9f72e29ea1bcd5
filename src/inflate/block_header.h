// What stands before the symbols of a block: the three bits of its type, and the code lengths of a
// dynamic block.
#ifndef ZEBDC_INFLATE_BLOCK_HEADER_H
#define ZEBDC_INFLATE_BLOCK_HEADER_H

#include "inflate/bit_reader.h"
#include "inflate/decoder_state.h"
#include "kernels/inflate_table.h"

namespace zebdc::inflate {

inline constexpr int typeBits = 3;  // BFINAL and the two bits of BTYPE

// For the decoders that read the header themselves: takes bytes for the three type bits and
// consumes them if they name a block of the wanted kind. Another kind is zebErrGeneral and leaves
// the bits in hand, for the decoder of that kind. A final block sets finalBlock; no block clears
// it.
ZebStatus readTypeBits(DecoderState& state, BitReader& in, ZebLZ77BlockType wanted);

// Go on from blockState until symbols follow: zebOk. A blockState of another kind of block keeps
// the call for ever.
ZebStatus readFixedHeader(DecoderState& state, BitReader& in);
ZebStatus readDynamicHeader(DecoderState& state, BitReader& in);

// The tables of the block that the record is in.
kernels::InflateTables tablesOf(const DecoderState& state);

[[noreturn]] void spinForever();

}  // namespace zebdc::inflate

#endif
