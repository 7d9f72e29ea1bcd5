#include "bzip2/bzip2_stream.h"

#include <stdlib.h>
#include <zebdc/zebdc.h>

#include <algorithm>

namespace zebdc::test {
namespace {

constexpr int levelUnit = 100000;
constexpr uint64_t blockMagic = 0x314159265359;
constexpr uint64_t endMagic = 0x177245385090;

// 18 bits; up to 6 for each of the 18001 selectors of the largest block; 5 for each of six tables,
// and for each symbol of these up to 32 for its length.
constexpr size_t contextRoom = (18 + 18001 * 6 + 6 * (5 + 258 * 33)) / 8 + 1;

// A status that these calls never give when they are used as here.
void require(bool condition) {
  if (!condition) abort();
}

int intOf(size_t size) {
  return static_cast<int>(size);
}

uint32_t crcOf(std::span<const uint8_t> bytes, uint32_t crc = 0) {
  if (!bytes.empty()) require(zebsCRC32_BZ2_8u(bytes.data(), intOf(bytes.size()), &crc) == zebOk);
  return crc;
}

uint32_t combined(uint32_t streamCrc, uint32_t blockCrc) {
  return (streamCrc << 1 | streamCrc >> 31) ^ blockCrc;
}

template <class State>
class Record {
 public:
  explicit Record(int size) : memory_(static_cast<size_t>(size) / 16 + 1) {}
  State* get() { return reinterpret_cast<State*>(memory_.data()); }

 private:
  struct alignas(16) Unit {
    uint8_t bytes[16];
  };
  std::vector<Unit> memory_;
};

int sizeOf(ZebStatus (*getSize)(int*)) {
  int size = 0;
  require(getSize(&size) == zebOk);
  return size;
}

int sizeOf(ZebStatus (*getSize)(int, int*), int argument) {
  int size = 0;
  require(getSize(argument, &size) == zebOk);
  return size;
}

int decodeBlockSize() {
  int size = 0;
  require(zebsDecodeBlockGetSize_BZ2_8u(9 * levelUnit, &size) == zebOk);
  return size;
}

}  // namespace

// ---- Compression

struct Bzip2Compressor::Work {
  explicit Work(int levelIn)
      : level(levelIn),
        blockSize(levelIn * levelUnit - 19),
        runs(sizeOf(zebsRLEGetSize_BZ2_8u)),
        moveToFront(sizeOf(zebsMTFGetSize_8u)),
        huffman(sizeOf(zebsEncodeHuffGetSize_BZ2_16u8u, blockSize + 1)),
        block(static_cast<size_t>(blockSize)),
        sorted(block.size()),
        ranks(block.size()),
        symbols(block.size() + 21),
        scratch(static_cast<size_t>(sizeOf(zebsBWTFwdGetSize_8u, blockSize))) {}

  void putBits(uint64_t field, int length) {
    for (int rest = length; rest > 0;) {
      const int part = std::min(rest, 8);
      rest -= part;
      const uint32_t bits = static_cast<uint32_t>(field >> rest) & ((1u << part) - 1);
      code |= bits << (32 - count - part);
      count += part;
      for (; count >= 8; count -= 8, code <<= 8) out.push_back(static_cast<uint8_t>(code >> 24));
    }
  }

  // Hands accumulator and room to one of the library's writers.
  template <class Write>
  void append(size_t room, Write write) {
    const size_t before = out.size();
    out.resize(before + room);
    int written = intOf(room);
    require(write(out.data() + before, &written) == zebOk);
    out.resize(before + static_cast<size_t>(written));
  }

  // Run-length codes as much of the source as one block takes.
  std::span<const uint8_t> takeBlock(std::span<const uint8_t> source) {
    require(zebsEncodeRLEInit_BZ2_8u(runs.get()) == zebOk);
    const uint8_t* pSrc = source.data();
    int srcLen = intOf(source.size());
    blockLen = blockSize - 1;  // room for the count byte of the last run
    require(zebsEncodeRLE_BZ2_8u(&pSrc, &srcLen, block.data(), &blockLen, runs.get()) >= 0);
    int flushed = 1;
    require(zebsEncodeRLEFlush_BZ2_8u(block.data() + blockLen, &flushed, runs.get()) == zebOk);
    blockLen += flushed;
    return source.first(source.size() - static_cast<size_t>(srcLen));
  }

  void putSymbolMap(const uint8_t* inUse) {
    uint32_t rows = 0;
    uint32_t values[16] = {};
    for (int v = 0; v < 256; ++v) values[v / 16] = values[v / 16] << 1 | inUse[v];
    for (const uint32_t row : values) rows = rows << 1 | (row != 0 ? 1 : 0);
    putBits(rows, 16);
    for (const uint32_t row : values) {
      if (row != 0) putBits(row, 16);
    }
  }

  // Moves the values in use to the front of the list, so that positions are ranks among them.
  int startMoveToFront(const uint8_t* inUse) {
    require(zebsMTFInit_8u(moveToFront.get()) == zebOk);
    uint8_t descending[256];
    uint8_t ignored[256];
    int used = 0;
    for (int v = 255; v >= 0; --v) {
      if (inUse[v] != 0) descending[used++] = static_cast<uint8_t>(v);
    }
    require(zebsMTFFwd_8u(descending, ignored, used, moveToFront.get()) == zebOk);
    return used;
  }

  void compressBlock(uint32_t crc) {
    int index = 0;
    require(zebsBWTFwd_8u(block.data(), sorted.data(), blockLen, &index, scratch.data()) == zebOk);
    uint8_t inUse[256];
    require(zebsRLEGetInUseTable_8u(inUse, runs.get()) == zebOk);
    const int alphaSize = startMoveToFront(inUse) + 2;
    require(zebsMTFFwd_8u(sorted.data(), ranks.data(), blockLen, moveToFront.get()) == zebOk);

    uint32_t frequencies[258] = {};
    const uint8_t* pRanks = ranks.data();
    int rankLen = blockLen;
    int symbolLen = intOf(symbols.size()) - 1;
    require(zebsEncodeZ1Z2_BZ2_8u16u(&pRanks, &rankLen, symbols.data(), &symbolLen, frequencies) ==
            zebOk);
    symbols[static_cast<size_t>(symbolLen++)] = static_cast<uint16_t>(alphaSize - 1);
    ++frequencies[alphaSize - 1];

    require(zebsEncodeHuffInit_BZ2_16u8u(alphaSize, frequencies, symbols.data(), symbolLen,
                                         huffman.get()) == zebOk);
    putBits(blockMagic, 48);
    putBits(crc, 32);
    putBits(0, 1);
    putBits(static_cast<uint32_t>(index), 24);
    putSymbolMap(inUse);
    append(contextRoom, [&](uint8_t* dst, int* len) {
      return zebsPackHuffContext_BZ2_16u8u(&code, &count, dst, len, huffman.get());
    });
    append(static_cast<size_t>(symbolLen) * 17 / 8 + 8, [&](uint8_t* dst, int* len) {
      const uint16_t* pSymbols = symbols.data();
      return zebsEncodeHuff_BZ2_16u8u(&code, &count, &pSymbols, &symbolLen, dst, len,
                                      huffman.get());
    });
    putBits(0, 0);
    for (; count >= 8; count -= 8, code <<= 8) out.push_back(static_cast<uint8_t>(code >> 24));
  }

  int level;
  int blockSize;
  Record<ZebRLEState_BZ2> runs;
  Record<ZebMTFState_8u> moveToFront;
  Record<ZebEncodeHuffState_BZ2> huffman;
  std::vector<uint8_t> block;
  int blockLen = 0;
  std::vector<uint8_t> sorted;
  std::vector<uint8_t> ranks;
  std::vector<uint16_t> symbols;
  std::vector<uint8_t> scratch;
  std::vector<uint8_t> out;
  uint32_t code = 0;
  int count = 0;
};

Bzip2Compressor::Bzip2Compressor(int level) : work_(std::make_unique<Work>(level)) {}
Bzip2Compressor::~Bzip2Compressor() = default;

std::vector<uint8_t> Bzip2Compressor::compress(std::span<const uint8_t> source) {
  Work& work = *work_;
  work.out = {'B', 'Z', 'h', static_cast<uint8_t>('0' + work.level)};
  work.code = 0;
  work.count = 0;
  uint32_t streamCrc = 0;
  while (!source.empty()) {
    const auto taken = work.takeBlock(source);
    source = source.subspan(taken.size());
    const uint32_t crc = crcOf(taken);
    work.compressBlock(crc);
    streamCrc = combined(streamCrc, crc);
  }
  work.putBits(endMagic, 48);
  work.putBits(streamCrc, 32);
  if (work.count > 0) work.putBits(0, 8 - work.count);
  return std::move(work.out);
}

// ---- Decompression

struct Bzip2Decompressor::Work {
  explicit Work(Inverse inverseIn)
      : inverse(inverseIn),
        moveToFront(sizeOf(zebsMTFGetSize_8u)),
        huffman(sizeOf(zebsDecodeHuffGetSize_BZ2_8u16u, 32767 * 50)),
        symbols(9 * levelUnit + 1),
        ranks(9 * levelUnit),
        sorted(9 * levelUnit),
        block(9 * levelUnit),
        scratch(static_cast<size_t>(
            std::max(decodeBlockSize(), sizeOf(zebsBWTInvGetSize_8u, 9 * levelUnit)))) {}

  uint32_t takeBits(int length) {
    uint32_t field = 0;
    for (; length > 0; --length) {
      if (count == 0) {
        if (source.empty()) {
          failed = true;
          return 0;
        }
        code = uint32_t{source[0]} << 24;
        count = 8;
        source = source.subspan(1);
      }
      field = field << 1 | code >> 31;
      code <<= 1;
      --count;
    }
    return field;
  }

  uint64_t takeMagic() {
    const uint64_t high = takeBits(24);
    return high << 24 | takeBits(24);
  }

  int takeSymbolMap(uint8_t* inUse) {
    const uint32_t rows = takeBits(16);
    int used = 0;
    for (int v = 0; v < 256; v += 16) {
      const uint32_t row = (rows << (v / 16) & 0x8000) != 0 ? takeBits(16) : 0;
      for (int i = 0; i < 16; ++i) {
        inUse[v + i] = row << i >> 15 & 1;
        used += inUse[v + i];
      }
    }
    return used;
  }

  // The library's readers advance the same cursor and accumulator.
  template <class Read>
  bool read(Read readFrom) {
    const uint8_t* pSrc = source.data();
    int srcLen = intOf(source.size());
    const ZebStatus status = readFrom(&pSrc, &srcLen);
    source = source.last(static_cast<size_t>(srcLen));
    return status == zebOk;
  }

  bool decodeSymbols(int alphaSize) {
    symbolLen = intOf(symbols.size());
    return zebsDecodeHuffInit_BZ2_8u16u(alphaSize, huffman.get()) == zebOk &&
           read([&](const uint8_t** ppSrc, int* pSrcLen) {
             return zebsUnpackHuffContext_BZ2_8u16u(&code, &count, ppSrc, pSrcLen, huffman.get());
           }) &&
           read([&](const uint8_t** ppSrc, int* pSrcLen) {
             return zebsDecodeHuff_BZ2_8u16u(&code, &count, ppSrc, pSrcLen, symbols.data(),
                                             &symbolLen, huffman.get());
           }) &&
           symbolLen > 0;
  }

  bool invertWhole(int index, int used, const uint8_t* inUse) {
    blockLen = intOf(block.size());
    return zebsDecodeBlock_BZ2_16u8u(symbols.data(), symbolLen, block.data(), &blockLen, index,
                                     used, inUse, scratch.data()) == zebOk &&
           index < blockLen;
  }

  // The values in use go to the front of the list first, the last one first.
  bool invertByStages(int index, const uint8_t* inUse) {
    const uint16_t* pSymbols = symbols.data();
    blockLen = intOf(ranks.size());
    if (zebsDecodeZ1Z2_BZ2_16u8u(&pSymbols, &symbolLen, ranks.data(), &blockLen) != zebOk ||
        index >= blockLen) {
      return false;
    }
    require(zebsMTFInit_8u(moveToFront.get()) == zebOk);
    for (int v = 255, atFront = 0; v >= 0; --v) {
      if (inUse[v] == 0) continue;
      const uint8_t rank = static_cast<uint8_t>(v + atFront++);
      uint8_t ignored = 0;
      require(zebsMTFInv_8u(&rank, &ignored, 1, moveToFront.get()) == zebOk);
    }
    require(zebsMTFInv_8u(ranks.data(), sorted.data(), blockLen, moveToFront.get()) == zebOk);
    require(zebsBWTInv_8u(sorted.data(), block.data(), blockLen, index, scratch.data()) == zebOk);
    return true;
  }

  // Expands the block behind the output, with the room growing until it fits.
  bool expand(uint32_t expectedCrc) {
    const size_t before = out.size();
    for (size_t room = static_cast<size_t>(blockLen) * 2;; room *= 8) {
      out.resize(before + room + 1);
      const uint8_t* pSrc = block.data();
      int srcLen = blockLen;
      int dstLen = intOf(room + 1);
      if (zebsDecodeRLE_BZ2_8u(&pSrc, &srcLen, out.data() + before, &dstLen) == zebOk) {
        out.resize(before + static_cast<size_t>(dstLen));
        return crcOf(std::span(out).subspan(before)) == expectedCrc;
      }
    }
  }

  bool decompressBlock(uint32_t& streamCrc) {
    const uint32_t crc = takeBits(32);
    const bool randomised = takeBits(1) != 0;
    const int index = static_cast<int>(takeBits(24));
    uint8_t inUse[256];
    const int used = takeSymbolMap(inUse);
    if (failed || randomised || used == 0 || index >= 9 * levelUnit) return false;
    if (!decodeSymbols(used + 2)) return false;
    const bool inverted = inverse == Inverse::wholeBlock ? invertWhole(index, used, inUse)
                                                         : invertByStages(index, inUse);
    streamCrc = combined(streamCrc, crc);
    return inverted && expand(crc);
  }

  bool decompress() {
    if (takeBits(24) != 0x425A68) return false;
    takeBits(8);
    uint32_t streamCrc = 0;
    for (;;) {
      const uint64_t magic = takeMagic();
      if (failed) return false;
      if (magic == endMagic) return takeBits(32) == streamCrc && !failed;
      if (magic != blockMagic || !decompressBlock(streamCrc)) return false;
    }
  }

  Inverse inverse;
  Record<ZebMTFState_8u> moveToFront;
  Record<ZebDecodeHuffState_BZ2> huffman;
  std::vector<uint16_t> symbols;
  int symbolLen = 0;
  std::vector<uint8_t> ranks;
  std::vector<uint8_t> sorted;
  std::vector<uint8_t> block;
  int blockLen = 0;
  std::vector<uint8_t> scratch;
  std::span<const uint8_t> source;
  std::vector<uint8_t> out;
  uint32_t code = 0;
  int count = 0;
  bool failed = false;
};

Bzip2Decompressor::Bzip2Decompressor(Inverse inverse) : work_(std::make_unique<Work>(inverse)) {}
Bzip2Decompressor::~Bzip2Decompressor() = default;

bool Bzip2Decompressor::failed() const {
  return work_->failed;
}

std::vector<uint8_t> Bzip2Decompressor::decompress(std::span<const uint8_t> stream) {
  Work& work = *work_;
  work.source = stream;
  work.out.clear();
  work.code = 0;
  work.count = 0;
  work.failed = false;
  if (!work.decompress()) {
    work.failed = true;
    work.out.clear();
  }
  return std::move(work.out);
}

}  // namespace zebdc::test
