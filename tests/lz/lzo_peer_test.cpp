// LZO: exchange of streams with liblzo2.

#include <gtest/gtest.h>
#include <lzo/lzo1x.h>

#include "lz/lzo_helpers.h"
#include "support/data.h"

namespace zebdc {
namespace {

using test::Bytes;

Bytes compressedByPeer(const Bytes& source) {
  std::vector<lzo_align_t> work(LZO1X_1_MEM_COMPRESS / sizeof(lzo_align_t) + 1);
  Bytes out(test::lzoWorstCase(source.size()));
  lzo_uint size = 0;
  EXPECT_EQ(lzo1x_1_compress(source.data(), source.size(), out.data(), &size, work.data()),
            LZO_E_OK);
  out.resize(size);
  return out;
}

Bytes decompressedByPeer(const Bytes& stream, size_t capacity) {
  Bytes out(capacity);
  lzo_uint size = capacity;
  EXPECT_EQ(lzo1x_decompress_safe(stream.data(), stream.size(), out.data(), &size, nullptr),
            LZO_E_OK);
  out.resize(size);
  return out;
}

class LzoPeer : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(lzo_init(), LZO_E_OK); }

  void expectExchange(const Bytes& source) {
    test::expectLzoDecodesTo(compressedByPeer(source), source);
    EXPECT_EQ(decompressedByPeer(test::lzoEncoded(record_, source), source.size()), source);
  }

 private:
  test::LzoRecord record_;
};

TEST_F(LzoPeer, StreamsOfAllSmallSizesAreExchanged) {
  const Bytes whole = test::textLike(2000, 1);
  for (size_t size = 1; size <= whole.size(); ++size) {
    SCOPED_TRACE(size);
    expectExchange(Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)));
  }
}

TEST_F(LzoPeer, StreamsOfAllKindsAreExchanged) {
  for (const size_t size : {1000, 20'000, 200'000}) {
    for (const auto& [name, source] : test::oneOfEachKind(size)) {
      SCOPED_TRACE(name);
      expectExchange(source);
    }
  }
}

}  // namespace
}  // namespace zebdc
