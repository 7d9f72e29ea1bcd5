// The generalized interval transform.

#include <gtest/gtest.h>
#include <string.h>
#include <zebdc/zebdc.h>

#include <algorithm>

#include "huffman/reference_git.h"
#include "support/data.h"
#include "support/guarded_buffer.h"

namespace zebdc {
namespace {

using test::Bytes;
using test::GuardedBuffer;

// An encoder's record in exactly the memory that GetSize asks for.
struct Encoder {
  Encoder(int maxSrcLen, int maxDstLen)
      : memory(sizeFor(maxSrcLen, maxDstLen), GuardedBuffer::Edge::none) {
    const ZebStatus status = zebsEncodeGITInit_8u(maxSrcLen, maxDstLen, state());
    EXPECT_TRUE(status == zebOk || status == zebWarnDstFull);
  }
  static size_t sizeFor(int maxSrcLen, int maxDstLen) {
    int size = 0;
    zebsEncodeGITGetSize_8u(maxSrcLen, maxDstLen, &size);
    return static_cast<size_t>(size);
  }
  ZebGITState_8u* state() { return memory.as<ZebGITState_8u>(); }
  GuardedBuffer memory;
};

struct Decoder {
  Decoder(int maxSrcLen, int maxDstLen) : memory(sizeFor(maxSrcLen), GuardedBuffer::Edge::none) {
    EXPECT_EQ(zebsDecodeGITInit_8u(maxDstLen, state()), zebOk);
  }
  static size_t sizeFor(int maxSrcLen) {
    int size = 0;
    zebsDecodeGITGetSize_8u(maxSrcLen, &size);
    return static_cast<size_t>(size);
  }
  ZebGITState_8u* state() { return memory.as<ZebGITState_8u>(); }
  GuardedBuffer memory;
};

Bytes encoded(Encoder& encoder, const Bytes& src, int hint, size_t room) {
  GuardedBuffer in(src);
  Bytes out(room);
  int written = -1;
  EXPECT_EQ(zebsEncodeGIT_8u(in.data(), static_cast<int>(src.size()), out.data(), &written, hint,
                             encoder.state()),
            zebOk);
  out.resize(static_cast<size_t>(written));
  return out;
}

struct Decoded {
  ZebStatus status;
  Bytes bytes;
};

Decoded decoded(const Bytes& coded, int hint, size_t maxDstLen) {
  Decoder decoder(static_cast<int>(std::max<size_t>(coded.size(), 1)), static_cast<int>(maxDstLen));
  GuardedBuffer in(coded);
  GuardedBuffer out(maxDstLen);
  int written = -1;
  const ZebStatus status = zebsDecodeGIT_8u(in.data(), static_cast<int>(coded.size()), out.data(),
                                            &written, hint, decoder.state());
  if (status != zebOk) {
    EXPECT_EQ(written, -1);
    return {status, {}};
  }
  return {status, {out.data(), out.data() + written}};
}

constexpr int hints[] = {1, 2, 3};

TEST(Git, EncoderSizes) {
  int size = 0;
  EXPECT_EQ(zebsEncodeGITGetSize_8u(1, 1, &size), zebWarnDstFull);
  EXPECT_EQ(size, 1103032);
  EXPECT_EQ(zebsEncodeGITGetSize_8u(4095, 1 << 20, &size), zebWarnDstFull);
  EXPECT_EQ(size, 1103032);
  EXPECT_EQ(zebsEncodeGITGetSize_8u(4096, 8192, &size), zebOk);
  EXPECT_EQ(size, 1103032);
  EXPECT_EQ(zebsEncodeGITGetSize_8u(4103, 8199, &size), zebOk);
  EXPECT_EQ(size, 1103032);
  EXPECT_EQ(zebsEncodeGITGetSize_8u(100'000, 200'001, &size), zebOk);
  EXPECT_EQ(size, 256 * 100'000 + 200'000 + 46264);
}

TEST(Git, SizesAndLimitsOutOfRangeAreRefused) {
  int size = -7;
  for (const int bad : {0, -1, INT32_MIN}) {
    EXPECT_EQ(zebsEncodeGITGetSize_8u(bad, 1, &size), zebErrSize);
    EXPECT_EQ(zebsEncodeGITGetSize_8u(1, bad, &size), zebErrSize);
    EXPECT_EQ(zebsDecodeGITGetSize_8u(bad, &size), zebErrSize);
  }
  // 256 bytes for each source byte: from 8 MiB on the answer needs more than 31 bits.
  EXPECT_EQ(zebsEncodeGITGetSize_8u(8 << 20, 8192, &size), zebErrSize);
  EXPECT_EQ(zebsEncodeGITGetSize_8u(INT32_MAX, INT32_MAX, &size), zebErrSize);
  EXPECT_EQ(zebsDecodeGITGetSize_8u(8 << 20, &size), zebErrSize);
  EXPECT_EQ(zebsDecodeGITGetSize_8u(INT32_MAX, &size), zebErrSize);
  EXPECT_EQ(size, -7);
  EXPECT_EQ(zebsEncodeGITGetSize_8u(0, 0, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeGITGetSize_8u(0, nullptr), zebErrNullPtr);
}

TEST(Git, DecoderSizes) {
  int size = 0;
  EXPECT_EQ(zebsDecodeGITGetSize_8u(1, &size), zebOk);
  EXPECT_EQ(size, 256 * 8 + 30952);
  EXPECT_EQ(zebsDecodeGITGetSize_8u(100'007, &size), zebOk);
  EXPECT_EQ(size, 256 * (100'000 + 8) + 30952);
}

TEST(Git, InitStatuses) {
  Encoder encoder(1, 1);
  EXPECT_EQ(zebsEncodeGITInit_8u(0, 0, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeGITInit_8u(0, 1, encoder.state()), zebErrSize);
  EXPECT_EQ(zebsEncodeGITInit_8u(1, 0, encoder.state()), zebErrSize);
  EXPECT_EQ(zebsEncodeGITInit_8u(4095, 1, encoder.state()), zebWarnDstFull);
  EXPECT_EQ(zebsEncodeGITInit_8u(4096, 8192, encoder.state()), zebOk);
  EXPECT_EQ(zebsDecodeGITInit_8u(0, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeGITInit_8u(0, encoder.state()), zebErrSize);
}

TEST(Git, InitAllocReturnsWhatInitReturns) {
  ZebGITState_8u* state = nullptr;
  EXPECT_EQ(zebsEncodeGITInitAlloc_8u(0, 0, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeGITInitAlloc_8u(0, 1, &state), zebErrSize);
  EXPECT_EQ(zebsEncodeGITInitAlloc_8u(1, 0, &state), zebErrSize);
  EXPECT_EQ(state, nullptr);
  EXPECT_EQ(zebsEncodeGITInitAlloc_8u(1, 1, &state), zebWarnDstFull);
  ASSERT_NE(state, nullptr);
  zebsGITFree_8u(state);
  EXPECT_EQ(zebsEncodeGITInitAlloc_8u(4096, 1, &state), zebOk);
  zebsGITFree_8u(state);

  state = nullptr;
  EXPECT_EQ(zebsDecodeGITInitAlloc_8u(0, 0, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeGITInitAlloc_8u(0, 1, &state), zebErrSize);
  EXPECT_EQ(state, nullptr);
  EXPECT_EQ(zebsDecodeGITInitAlloc_8u(100, 0, &state), zebErrSize);
  EXPECT_NE(state, nullptr) << "stored before Init refuses";
  zebsGITFree_8u(state);
  EXPECT_EQ(zebsDecodeGITInitAlloc_8u(100, 1, &state), zebOk);
  // The record knows how long a block it was made for.
  const Bytes block(101);
  uint8_t dst = 0;
  int written = 0;
  EXPECT_EQ(zebsDecodeGIT_8u(block.data(), 101, &dst, &written, 1, state), zebErrSize);
  zebsGITFree_8u(state);
}

TEST(Git, CodingChecksPointersThenLengths) {
  Encoder encoder(1, 1);
  uint8_t byte = 7;
  int size = -7;
  ZebGITState_8u* const state = encoder.state();
  EXPECT_EQ(zebsEncodeGIT_8u(nullptr, -1, &byte, &size, 1, state), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeGIT_8u(&byte, -1, nullptr, &size, 1, state), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeGIT_8u(&byte, -1, &byte, nullptr, 1, state), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeGIT_8u(&byte, -1, &byte, &size, 1, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsEncodeGIT_8u(&byte, -1, &byte, &size, 1, state), zebErrSize);
  EXPECT_EQ(zebsEncodeGIT_8u(&byte, 4097, &byte, &size, 1, state), zebErrSize);
  Decoder decoder(1, 1);
  EXPECT_EQ(zebsDecodeGIT_8u(nullptr, -1, &byte, &size, 1, decoder.state()), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeGIT_8u(&byte, -1, nullptr, &size, 1, decoder.state()), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeGIT_8u(&byte, -1, &byte, nullptr, 1, decoder.state()), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeGIT_8u(&byte, -1, &byte, &size, 1, nullptr), zebErrNullPtr);
  EXPECT_EQ(zebsDecodeGIT_8u(&byte, -1, &byte, &size, 1, decoder.state()), zebErrSize);
  EXPECT_EQ(byte, 7);
  EXPECT_EQ(size, -7);
}

TEST(Git, EmptyBlock) {
  for (const int hint : {0, 1, 2, 3}) {
    Encoder encoder(1, 1);
    const Bytes coded = encoded(encoder, {}, hint, 8192);
    EXPECT_EQ(coded, test::referenceGitEncode(nullptr, 0, hint == 0 ? 1 : hint));
    const Decoded back = decoded(coded, hint, 1);
    EXPECT_EQ(back.status, zebOk);
    EXPECT_TRUE(back.bytes.empty());
  }
}

TEST(Git, EmptyBlockWithoutTheFirstPassIsWrittenByHand) {
  // 255 streams of nothing, and the count 0 with the first parameter of 10: eleven zero bits.
  Bytes expected;
  for (int i = 0; i < 255; ++i) expected.insert(expected.end(), {0, 0, 0, 1, 0xFF});
  expected.insert(expected.end(), {0, 0, 0, 2, 0x00, 0x1F});
  Encoder encoder(1, 1);
  EXPECT_EQ(encoded(encoder, {}, 3, 8192), expected);
}

TEST(Git, BlocksAreThoseOfTheRuleAndDecode) {
  for (const size_t size : {1u, 2u, 3u, 10u, 255u, 256u, 257u, 1000u, 20000u}) {
    Encoder encoder(static_cast<int>(size), static_cast<int>(2 * size + 8192));
    for (const auto& [name, bytes] : test::oneOfEachKind(size)) {
      for (const int hint : hints) {
        SCOPED_TRACE(testing::Message() << name << " " << size << " hint " << hint);
        const Bytes coded = encoded(encoder, bytes, hint, 2 * size + 8192);
        ASSERT_EQ(coded, test::referenceGitEncode(bytes.data(), size, hint));
        ASSERT_EQ(test::referenceGitDecode(coded.data(), coded.size(), hint), bytes);
        const Decoded back = decoded(coded, hint, size);
        ASSERT_EQ(back.status, zebOk);
        ASSERT_EQ(back.bytes, bytes);
      }
    }
  }
}

TEST(Git, LongIntervalsTakeEscapes) {
  // Each value returns after ever longer pauses: parameters stay small while intervals grow.
  for (const int hint : hints) {
    Bytes bytes;
    for (int round = 0; round < 17; ++round) {
      bytes.insert(bytes.end(), 16, 0);
      bytes.insert(bytes.end(), size_t{1} << round, static_cast<uint8_t>(255 - round % 2));
    }
    Encoder encoder(static_cast<int>(bytes.size()), 1 << 18);
    const Bytes coded = encoded(encoder, bytes, hint, 1 << 18);
    ASSERT_EQ(coded, test::referenceGitEncode(bytes.data(), bytes.size(), hint));
    ASSERT_EQ(decoded(coded, hint, bytes.size()).bytes, bytes);
  }
}

TEST(Git, HintsOutsideTheSetCountAsTheFirst) {
  const Bytes bytes = test::textLike(3000, 1);
  Encoder encoder(3000, 8192);
  const Bytes first = encoded(encoder, bytes, 1, 8192);
  for (const int hint : {0, 4, -1, INT32_MAX, INT32_MIN}) {
    EXPECT_EQ(encoded(encoder, bytes, hint, 8192), first);
    EXPECT_EQ(decoded(first, hint, 3000).bytes, bytes);
  }
}

TEST(Git, OutputRoomDecidesExactly) {
  const Bytes bytes = test::randomBytes(6000, 1);
  Encoder roomy(6000, 1 << 16);
  const Bytes whole = encoded(roomy, bytes, 1, 1 << 16);
  const int size = static_cast<int>(whole.size());
  Encoder exact(6000, size);
  GuardedBuffer out(whole.size());
  int written = -1;
  EXPECT_EQ(zebsEncodeGIT_8u(bytes.data(), 6000, out.data(), &written, 1, exact.state()), zebOk);
  EXPECT_EQ(written, size);
  Encoder tight(6000, size - 1);
  written = -1;
  EXPECT_EQ(zebsEncodeGIT_8u(bytes.data(), 6000, out.data(), &written, 1, tight.state()),
            zebErrSize);
  EXPECT_EQ(written, -1);

  EXPECT_EQ(decoded(whole, 1, 6000).status, zebOk);
  EXPECT_EQ(decoded(whole, 1, 5999).status, zebErrSize);
}

TEST(Git, RecordsAtAnySourceLimit) {
  // The largest block that a record takes, with buffers that end at the record's end.
  for (const int limit : {4096, 4097, 4103, 4104, 9999}) {
    Encoder encoder(limit, 3 * limit);
    for (const auto& [name, bytes] : test::oneOfEachKind(static_cast<size_t>(limit))) {
      const Bytes coded = encoded(encoder, bytes, 1, static_cast<size_t>(3 * limit));
      ASSERT_EQ(decoded(coded, 1, bytes.size()).bytes, bytes) << name << " " << limit;
    }
  }
}

TEST(Git, TruncationAtEveryByteIsRefused) {
  const Bytes bytes = test::textLike(700, 2);
  for (const int hint : hints) {
    Encoder encoder(700, 8192);
    const Bytes coded = encoded(encoder, bytes, hint, 8192);
    for (size_t size = 0; size < coded.size(); ++size) {
      ASSERT_EQ(decoded({coded.begin(), coded.begin() + static_cast<int>(size)}, hint, 2000).status,
                zebErrSize);
    }
    Bytes longer = coded;
    longer.push_back(0xFF);
    EXPECT_EQ(decoded(longer, hint, 2000).status, zebErrSize);
  }
}

TEST(Git, WrongStreamLengthsAreRefusedOrHarmless) {
  const Bytes bytes = test::textLike(700, 2);
  Encoder encoder(700, 8192);
  const Bytes coded = encoded(encoder, bytes, 1, 8192);
  for (const uint32_t length : {0u, 2u, 5u, 0xFFFFFFFFu, 0x80000000u, 0xFFFFFFFCu}) {
    Bytes bad = coded;
    for (size_t i = 0; i < 4; ++i) bad[i] = static_cast<uint8_t>(length >> (24 - 8 * i));
    EXPECT_EQ(decoded(bad, 1, 2000).status, zebErrSize) << length;
  }
}

TEST(Git, MutatedBlocksStayInBounds) {
  test::Random random(3);
  for (const int hint : hints) {
    Encoder encoder(1, 1);
    for (const auto& [name, bytes] : test::oneOfEachKind(600)) {
      const Bytes coded = encoded(encoder, bytes, hint, 8192);
      for (int round = 0; round < 120; ++round) {
        const Decoded back = decoded(test::mutated(coded, random), hint, 1500);
        ASSERT_TRUE(back.status == zebOk || back.status == zebErrSize);
      }
    }
  }
}

TEST(Git, RandomStreamsStayInBounds) {
  test::Random random(4);
  for (int round = 0; round < 1500; ++round) {
    Bytes block;
    for (int stream = 0; stream < 256; ++stream) {
      const size_t length = 1 + test::below(random, 1 + test::below(random, 30));
      block.insert(block.end(), {0, 0, 0, static_cast<uint8_t>(length)});
      const bool longPrefixes = test::below(random, 4) == 0;
      for (size_t i = 0; i < length; ++i) {
        block.push_back(static_cast<uint8_t>(longPrefixes ? random() | random() | random()
                                                          : random() & random() & random()));
      }
    }
    decoded(block, static_cast<int>(1 + test::below(random, 3)), 3000);
  }
}

}  // namespace
}  // namespace zebdc
