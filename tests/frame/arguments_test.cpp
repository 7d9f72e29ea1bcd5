// Exports with more arguments than the registers hold, called as an application calls them: each
// argument that comes on the stack is seen to matter.

#include <gtest/gtest.h>
#include <zebdc/zebdc.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace {

// Fifteen arguments, eleven or nine of them on the stack.
class DeflateLz77 : public testing::Test {
 protected:
  static constexpr uint32_t windowSize = 1024;
  static constexpr uint32_t hashSize = 512;
  static constexpr std::string_view text = "abcdefabcdef";

  struct Call {
    const uint8_t* source = reinterpret_cast<const uint8_t*>(text.data());
    const uint8_t** ppSrc = &source;
    uint32_t sourceLength = text.size();
    uint32_t* pSrcLen = &sourceLength;
    uint32_t sourceIndex = 0;
    uint32_t* pSrcIdx = &sourceIndex;
    std::array<uint8_t, windowSize> window = {};
    const uint8_t* pWindow = window.data();
    uint32_t winSize = windowSize;
    std::array<uint32_t, hashSize> hashHead = {};
    uint32_t* pHashHead = hashHead.data();
    std::array<uint32_t, windowSize> hashPrevious = {};
    uint32_t* pHashPrev = hashPrevious.data();
    uint32_t tableSize = hashSize;
    std::array<uint32_t, 286> literalCounts = {};
    uint32_t* pLitFreq = literalCounts.data();
    std::array<uint32_t, 30> distanceCounts = {};
    uint32_t* pDistFreq = distanceCounts.data();
    std::array<uint8_t, 16> literals = {};
    uint8_t* pLitDst = literals.data();
    std::array<uint16_t, 16> distances = {};
    uint16_t* pDistDst = distances.data();
    uint32_t room = 16;
    uint32_t* pDstLen = &room;
    int level = 6;
    int flush = 0;

    ZebStatus run() {
      hashHead.fill(0xFFFFFFFF);
      hashPrevious.fill(0xFFFFFFFF);
      return zebsDeflateLZ77_8u(ppSrc, pSrcLen, pSrcIdx, pWindow, winSize, pHashHead, pHashPrev,
                                tableSize, pLitFreq, pDistFreq, pLitDst, pDistDst, pDstLen, level,
                                flush);
    }
  };

  Call call_;
};

TEST_F(DeflateLz77, AllFifteenArgumentsArrive) {
  ASSERT_EQ(call_.run(), zebOk);
  EXPECT_EQ(call_.sourceLength, 0u);
  EXPECT_EQ(call_.sourceIndex, 12u);
  ASSERT_EQ(call_.room, 7u);
  const std::array<uint8_t, 7> literals = {'a', 'b', 'c', 'd', 'e', 'f', 6 - 3};
  EXPECT_TRUE(std::equal(literals.begin(), literals.end(), call_.literals.begin()));
  EXPECT_EQ(call_.distances[5], 0);
  EXPECT_EQ(call_.distances[6], 6);
  EXPECT_EQ(call_.literalCounts['a'], 1u);
  EXPECT_EQ(call_.literalCounts[257 + 3], 1u);
  EXPECT_EQ(call_.distanceCounts[4], 1u);
}

TEST_F(DeflateLz77, EachPointerIsLookedAt) {
  const auto expectRefusal = [](auto clear) {
    Call call;
    clear(call);
    EXPECT_EQ(call.run(), zebErrNullPtr);
  };
  expectRefusal([](Call& call) { call.ppSrc = nullptr; });
  expectRefusal([](Call& call) { call.pSrcLen = nullptr; });
  expectRefusal([](Call& call) { call.pSrcIdx = nullptr; });
  expectRefusal([](Call& call) { call.pWindow = nullptr; });
  expectRefusal([](Call& call) { call.pHashHead = nullptr; });
  expectRefusal([](Call& call) { call.pHashPrev = nullptr; });
  expectRefusal([](Call& call) { call.pLitFreq = nullptr; });
  expectRefusal([](Call& call) { call.pDistFreq = nullptr; });
  expectRefusal([](Call& call) { call.pLitDst = nullptr; });
  expectRefusal([](Call& call) { call.pDistDst = nullptr; });
  expectRefusal([](Call& call) { call.pDstLen = nullptr; });
}

TEST_F(DeflateLz77, EachSizeIsLookedAt) {
  Call call;
  call.winSize = 0;
  EXPECT_EQ(call.run(), zebErrSize);
  call.winSize = windowSize;
  call.tableSize = 0;
  EXPECT_EQ(call.run(), zebErrSize);
}

// Ten arguments, four or six of them on the stack: a match of length 3 at distance 1 far into a
// history.
TEST(Inflate, AllTenArgumentsArrive) {
  // The rest of a fixed block whose header and first five bits have been taken.
  const std::array<uint8_t, 2> stream = {0x02, 0x00};
  const uint8_t* source = stream.data();
  uint32_t sourceLength = stream.size();
  uint32_t bits = 0;
  uint32_t bitCount = 5;
  std::array<uint8_t, 16> buffer = {};
  buffer[6] = 'x';
  uint8_t* destination = buffer.data() + 7;
  uint32_t room = 9;
  uint32_t mode = 0;
  static ZebInflateState state;
  state.history = buffer.data();
  state.historySize = buffer.size();
  state.tableKind = zebInflateTablesFixed;
  EXPECT_EQ(zebsInflate_8u(&source, &sourceLength, &bits, &bitCount, 7, &destination, &room, 7,
                           &mode, &state),
            zebOk);
  EXPECT_EQ(mode, static_cast<uint32_t>(zebInflateBlockDone));
  EXPECT_EQ(destination, buffer.data() + 10);
  EXPECT_EQ(room, 6u);
  EXPECT_EQ(std::string_view(reinterpret_cast<const char*>(buffer.data()) + 6, 4), "xxxx");
  EXPECT_EQ(zebsInflate_8u(&source, &sourceLength, &bits, &bitCount, 7, &destination, &room, 7,
                           &mode, nullptr),
            zebErrNullPtr);
}

}  // namespace
