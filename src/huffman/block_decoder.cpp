// Decoding of a block of bytes.
//
// The rule reads at most 24 bits ahead and counts whole zero bytes at the front of the buffer
// instead of keeping them, so that codes of up to 32 bits fit. What it leaves in the record at the
// end of a call is part of the contract.
//
// The fast path decodes through a direct table, with a bit position of its own, and then hands over
// to the rule a little before the end of the source or of the room. It can do so exactly because of
// what holds after a code that is not all zeros, in a complete code:
//
// - The rule has no zero bits in hand there: only batches of the all-zero code leave some.
// - Once it has refilled, its state is a function of the stream position alone: the whole zero
// bytes
//   from there on are counted in zeroBits, the byte that follows is at the top of bitBuffer, and
//   bitCount is the one number from 17 to 24 that makes position and bits in hand end on a byte (or
//   all the source has been read).
//
// So the rule may start at such a position with just the bits of the byte that it lies in, and its
// next refill brings it to the state that it would have had. As it refills only when it decodes
// another symbol, the hand-over leaves room for at least one.

#include "huffman/block_decoder.h"

#include "huffman/code.h"
#include "kernels/byte_huffman.h"

namespace zebdc::huffman {
namespace {

// Below these the table costs more than it saves.
constexpr size_t worthwhileSource = 2048;
constexpr size_t worthwhileRoom = 4096;

struct Reader {
  const uint8_t* src;
  size_t len;
  size_t next;
};

void countZeroBytes(ZebHuffState_8u& state) {
  while (state.bitCount >= 8 && state.bitBuffer >> 24 == 0) {
    state.bitBuffer <<= 8;
    state.bitCount -= 8;
    state.zeroBits += 8;
  }
}

void refill(ZebHuffState_8u& state, Reader& reader) {
  countZeroBytes(state);
  while (reader.next < reader.len && state.bitCount < 17) {
    state.bitBuffer |= static_cast<uint32_t>(reader.src[reader.next++]) << (24 - state.bitCount);
    state.bitCount += 8;
    countZeroBytes(state);
  }
}

// One code behind fewer than maxLen zero bits. False where the bits in hand hold no whole code.
bool decodeOne(ZebHuffState_8u& state, uint8_t* dst) {
  const int bitsNeeded = state.maxLen - state.zeroBits;
  const int symbol = symbolAt(state, state.bitBuffer >> (32 - bitsNeeded));
  if (symbol < 0) return false;
  const int length = static_cast<int>(state.codeLen[symbol]);
  if (state.bitCount + state.zeroBits < length) return false;
  *dst = static_cast<uint8_t>(symbol);
  // Only in a code that is not prefix-free can a code end within the zero bits.
  const int fromBuffer = length > state.zeroBits ? length - state.zeroBits : 0;
  state.bitBuffer <<= fromBuffer;
  state.bitCount -= fromBuffer;
  state.zeroBits -= length - fromBuffer;
  return true;
}

// Decodes by the rule until capacity symbols are written.
size_t decodeByRule(ZebHuffState_8u& state, Reader& reader, uint8_t* dst, size_t written,
                    size_t capacity) {
  while (written < capacity) {
    refill(state, reader);
    if (state.zeroBits < state.maxLen) {
      if (!decodeOne(state, dst + written)) break;
      ++written;
    } else {
      while (state.zeroBits >= state.maxLen && written < capacity) {
        dst[written++] = state.zeroSymbol;
        state.zeroBits -= state.maxLen;
      }
    }
  }
  return written;
}

bool isComplete(const ZebHuffState_8u& state) {
  uint64_t sum = 0;
  for (const uint32_t length : state.codeLen) {
    if (length != 0) sum += uint64_t{1} << (maxCodeLength - length);
  }
  return sum == uint64_t{1} << maxCodeLength;
}

// Builds the kernel's direct table of a complete code: first the one symbol that each index begins
// with, then as many further ones as fit.
void buildTable(const ZebHuffState_8u& state, uint32_t* table) {
  using namespace kernels;
  struct First {
    uint8_t symbol;
    uint8_t length;  // 0: longer than the index
  };
  First first[byteHuffmanTableSize] = {};
  for (int value = 0; value < 256; ++value) {
    const int length = static_cast<int>(state.codeLen[value]);
    if (length == 0 || length > byteHuffmanTableBits) continue;
    const size_t repeats = size_t{1} << (byteHuffmanTableBits - length);
    First* const range = first + state.code[value] * repeats;
    for (size_t i = 0; i < repeats; ++i) {
      range[i] = {static_cast<uint8_t>(value), static_cast<uint8_t>(length)};
    }
  }
  for (size_t index = 0; index < byteHuffmanTableSize; ++index) {
    uint32_t symbols = 0;
    uint32_t length = 0;
    uint32_t count = 0;
    while (count < byteHuffmanSymbolsPerEntry) {
      const First next = first[(index << length) % byteHuffmanTableSize];
      if (next.length == 0 || length + next.length > byteHuffmanTableBits) break;
      symbols |= static_cast<uint32_t>(next.symbol) << (8 * count++);
      length += next.length;
    }
    table[index] = byteHuffmanEntry(symbols, length, count);
  }
}

// A code longer than the table's index. Needs 8 bytes of source at the position.
uint8_t decodeLongCode(const ZebHuffState_8u& state, const uint8_t* src, size_t* position) {
  uint64_t window = 0;
  for (int i = 0; i < 8; ++i) window = window << 8 | src[*position / 8 + static_cast<size_t>(i)];
  window <<= *position % 8;
  const int symbol = symbolAt(state, static_cast<uint32_t>(window >> (64 - state.maxLen)));
  *position += state.codeLen[symbol];
  return static_cast<uint8_t>(symbol);
}

// Makes the record that of the rule at a position behind a code that is not all zeros.
void standAt(ZebHuffState_8u& state, Reader& reader, size_t position) {
  reader.next = (position + 7) / 8;
  state.bitCount = static_cast<int32_t>(reader.next * 8 - position);
  state.bitBuffer = state.bitCount == 0 ? 0
                                        : static_cast<uint32_t>(reader.src[reader.next - 1])
                                              << (32 - state.bitCount);
  state.zeroBits = 0;
}

// Decodes most of a block through the direct table. On entry all bits in hand come from this call's
// source. The result is the symbols written up to and including the last one that the rule may take
// over behind; where there is none, the record is as it was.
size_t decodeByTable(ZebHuffState_8u& state, Reader& reader, uint8_t* dst, size_t written,
                     size_t capacity) {
  uint32_t table[kernels::byteHuffmanTableSize];
  buildTable(state, table);
  const auto& kernel = kernels::byteHuffman();
  size_t position = reader.next * 8 - static_cast<size_t>(state.bitCount + state.zeroBits);
  size_t end = written;
  for (;;) {
    end += kernel.decode(table, reader.src, reader.len, &position, dst + end, capacity - end);
    if (position / 8 + 8 > reader.len || capacity - end < kernels::byteHuffmanRoom) break;
    dst[end++] = decodeLongCode(state, reader.src, &position);
  }
  while (end > written && dst[end - 1] == state.zeroSymbol) {
    --end;
    position -= static_cast<size_t>(state.maxLen);
  }
  if (end > written) standAt(state, reader, position);
  return end;
}

bool holdsEarlierBits(const ZebHuffState_8u& state, const Reader& reader) {
  return reader.next * 8 <
         static_cast<size_t>(state.bitCount) + static_cast<size_t>(state.zeroBits);
}

}  // namespace

size_t decodeBlock(ZebHuffState_8u& state, const uint8_t* src, size_t srcLen, uint8_t* dst,
                   size_t capacity) {
  Reader reader = {src, srcLen, 0};
  size_t written = 0;
  if (srcLen >= worthwhileSource && capacity >= worthwhileRoom && isComplete(state)) {
    // Bits left by earlier calls are used up first: each step takes at least one of them.
    for (;;) {
      const size_t before = written;
      if (!holdsEarlierBits(state, reader)) {
        written = decodeByTable(state, reader, dst, written, capacity);
        break;
      }
      written = decodeByRule(state, reader, dst, written, written + 1);
      if (written == before) break;
    }
  }
  return decodeByRule(state, reader, dst, written, capacity);
}

}  // namespace zebdc::huffman
