// Calls of the multi-table Huffman functions for the tests: records and buffers end at inaccessible
// pages.
#ifndef ZEBDC_TESTS_BZIP2_HUFFMAN_SUPPORT_H
#define ZEBDC_TESTS_BZIP2_HUFFMAN_SUPPORT_H

#include <gtest/gtest.h>
#include <zebdc/zebdc.h>

#include <algorithm>
#include <vector>

#include "bzip2/plain_huffman.h"
#include "support/guarded_buffer.h"

namespace zebdc::test {

inline int intOf(size_t size) {
  return static_cast<int>(size);
}

inline std::vector<uint32_t> frequenciesOf(const Symbols& symbols, int alphaSize) {
  std::vector<uint32_t> frequencies(static_cast<size_t>(alphaSize));
  for (const uint16_t symbol : symbols) ++frequencies[symbol];
  return frequencies;
}

// Blocks whose parts differ, so that the tables do, ended by the end-of-block symbol.
inline Symbols blockOf(size_t size, int alphaSize, uint64_t seed) {
  Random random(seed);
  const size_t values = static_cast<size_t>(std::max(alphaSize - 1, 1));
  Symbols symbols;
  size_t spread = 1;
  size_t shift = 0;
  while (symbols.size() + 1 < size) {
    if (symbols.size() % 150 == 0) {
      spread = 1 + below(random, values);
      shift = below(random, 3) == 0 ? below(random, values) : 0;
    }
    const size_t value = below(random, 1 + below(random, 1 + below(random, spread)));
    symbols.push_back(static_cast<uint16_t>((value + shift) % values));
  }
  symbols.push_back(static_cast<uint16_t>(alphaSize - 1));
  return symbols;
}

class Encoder {
 public:
  Encoder(const Symbols& symbols, int alphaSize)
      : Encoder(symbols, alphaSize, frequenciesOf(symbols, alphaSize)) {}

  Encoder(const Symbols& symbols, int alphaSize, const std::vector<uint32_t>& frequencies)
      : memory_(sizeFor(symbols.size()), GuardedBuffer::Edge::none) {
    EXPECT_EQ(zebsEncodeHuffInit_BZ2_16u8u(alphaSize, frequencies.data(), symbols.data(),
                                           intOf(symbols.size()), get()),
              zebOk);
  }

  static size_t sizeFor(size_t symbols) {
    int size = 0;
    EXPECT_EQ(zebsEncodeHuffGetSize_BZ2_16u8u(intOf(symbols), &size), zebOk);
    return static_cast<size_t>(size);
  }

  ZebEncodeHuffState_BZ2* get() const { return memory_.as<ZebEncodeHuffState_BZ2>(); }

  struct Written {
    ZebStatus status;
    Bytes out;
    Accumulator accumulator;
  };

  Written pack(Accumulator accumulator, size_t room) const {
    const GuardedBuffer dst(room);
    int dstLen = intOf(room);
    const ZebStatus status = zebsPackHuffContext_BZ2_16u8u(&accumulator.code, &accumulator.count,
                                                           dst.data(), &dstLen, get());
    return {status, Bytes(dst.begin(), dst.begin() + dstLen), accumulator};
  }

  Written encode(const Symbols& symbols, Accumulator accumulator, size_t room) const {
    const GuardedBuffer src(symbols.size() * sizeof(uint16_t));
    std::copy(symbols.begin(), symbols.end(), src.as<uint16_t>());
    const GuardedBuffer dst(room);
    const uint16_t* pSrc = src.as<uint16_t>();
    int srcLen = intOf(symbols.size());
    int dstLen = intOf(room);
    const ZebStatus status = zebsEncodeHuff_BZ2_16u8u(&accumulator.code, &accumulator.count, &pSrc,
                                                      &srcLen, dst.data(), &dstLen, get());
    EXPECT_EQ(srcLen, 0);
    EXPECT_EQ(pSrc, src.as<uint16_t>() + symbols.size());
    return {status, Bytes(dst.begin(), dst.begin() + dstLen), accumulator};
  }

 private:
  GuardedBuffer memory_;
};

class Decoder {
 public:
  explicit Decoder(int alphaSize, int wndSize = 1638350)
      : alphaSize_(alphaSize), memory_(sizeFor(wndSize), GuardedBuffer::Edge::none) {
    EXPECT_EQ(zebsDecodeHuffInit_BZ2_8u16u(alphaSize, get()), zebOk);
  }

  static size_t sizeFor(int wndSize) {
    int size = 0;
    EXPECT_EQ(zebsDecodeHuffGetSize_BZ2_8u16u(wndSize, &size), zebOk);
    return static_cast<size_t>(size);
  }

  ZebDecodeHuffState_BZ2* get() const { return memory_.as<ZebDecodeHuffState_BZ2>(); }

  struct Unpacked {
    ZebStatus status;
    size_t consumed;
    Accumulator accumulator;
  };

  Unpacked unpack(Accumulator accumulator, std::span<const uint8_t> source) const {
    const GuardedBuffer src(source);
    const uint8_t* pSrc = src.data();
    int srcLen = intOf(source.size());
    const ZebStatus status = zebsUnpackHuffContext_BZ2_8u16u(&accumulator.code, &accumulator.count,
                                                             &pSrc, &srcLen, get());
    EXPECT_EQ(pSrc + srcLen, src.end());
    return {status, static_cast<size_t>(pSrc - src.data()), accumulator};
  }

  PlainHuffmanDecoder::Result decode(Accumulator accumulator, std::span<const uint8_t> source,
                                     size_t room) const {
    const GuardedBuffer src(source);
    const GuardedBuffer dst(room * sizeof(uint16_t));
    const uint8_t* pSrc = src.data();
    int srcLen = intOf(source.size());
    int dstLen = intOf(room);
    const ZebStatus status = zebsDecodeHuff_BZ2_8u16u(&accumulator.code, &accumulator.count, &pSrc,
                                                      &srcLen, dst.as<uint16_t>(), &dstLen, get());
    EXPECT_EQ(pSrc + srcLen, src.end());
    if (status == zebOk) {
      EXPECT_EQ(dst.as<uint16_t>()[dstLen], alphaSize_ - 1);
    }
    return {status, static_cast<size_t>(pSrc - src.data()),
            Symbols(dst.as<uint16_t>(), dst.as<uint16_t>() + dstLen), accumulator};
  }

 private:
  int alphaSize_;
  GuardedBuffer memory_;
};

// Reads a context that the library packed.
inline Context parsedContext(const Bytes& packed, int alphaSize) {
  size_t at = 0;
  const auto take = [&](int length) {
    int field = 0;
    for (; length > 0; --length, ++at) field = field << 1 | (packed[at / 8] >> (7 - at % 8) & 1);
    return field;
  };
  Context context;
  context.alphaSize = alphaSize;
  const int tables = take(3);
  const int groups = take(15);
  Bytes order = {0, 1, 2, 3, 4, 5, 6, 7};
  for (int g = 0; g < groups; ++g) {
    auto place = order.begin();
    while (take(1) == 1) ++place;
    context.selectors.push_back(*place);
    std::rotate(order.begin(), place, place + 1);
  }
  for (int t = 0; t < tables; ++t) {
    int current = take(5);
    Bytes& lengths = context.lengths.emplace_back();
    for (int s = 0; s < alphaSize; ++s) {
      while (take(1) == 1) current += take(1) == 0 ? 1 : -1;
      lengths.push_back(static_cast<uint8_t>(current));
    }
  }
  return context;
}

// The accumulator's bits, if any, as the last bytes of a stream.
inline Bytes finished(Encoder::Written written) {
  for (; written.accumulator.count > 0; written.accumulator.count -= 8) {
    written.out.push_back(static_cast<uint8_t>(written.accumulator.code >> 24));
    written.accumulator.code <<= 8;
  }
  return written.out;
}

inline Context contextOf(const Encoder& encoder, int alphaSize) {
  Bytes packed = finished(encoder.pack({}, 100000));
  packed.resize(packed.size() + 4);
  return parsedContext(packed, alphaSize);
}

}  // namespace zebdc::test

#endif
