// LZSS: the fields of the record, and positions near the largest number that one of them holds.

#include <gtest/gtest.h>
#include <zebdc/zebdc.h>

#include <algorithm>
#include <span>

#include "frame/substitution_tables.h"
#include "lz/lzss_helpers.h"
#include "lz/lzss_state.h"
#include "support/data.h"

namespace zebdc {
namespace {

using test::Bytes;
using test::callLzss;
using test::LzssRecord;

void expectNothingPending(const ZebLZSSState_8u& state) {
  EXPECT_EQ(state.position, 0u);
  EXPECT_EQ(state.bitCount, 0);
  EXPECT_EQ(state.bitBuffer, 0u);
  EXPECT_EQ(state.bitBufferLow, 0u);
  EXPECT_EQ(state.pendingDistance, 0);
  EXPECT_EQ(state.pendingLength, 0u);
}

TEST(LzssRecord, OfAnEncoderBeginsWithEmptyTables) {
  const LzssRecord record(zebsEncodeLZSSInit_8u);
  const ZebLZSSState_8u& state = *record.state();
  EXPECT_EQ(static_cast<const void*>(state.hashTable), threeByteHashRows.data());
  EXPECT_EQ(state.chain, state.chainTable);
  EXPECT_EQ(state.head, state.headTable);
  EXPECT_EQ(state.history, state.historyArea);
  EXPECT_EQ(state.historyOrigin, state.historyArea);
  expectNothingPending(state);
  for (const auto& table : {std::span(state.chainTable), std::span(state.headTable)}) {
    EXPECT_EQ(std::count(table.begin(), table.end(), -32768), 32768);
  }
}

TEST(LzssRecord, OfADecoderHasAHistoryOnly) {
  const LzssRecord record(zebsDecodeLZSSInit_8u);
  const ZebLZSSState_8u& state = *record.state();
  EXPECT_EQ(state.hashTable, nullptr);
  EXPECT_EQ(state.chain, nullptr);
  EXPECT_EQ(state.head, nullptr);
  EXPECT_EQ(state.history, state.historyArea);
  EXPECT_EQ(state.historyOrigin, nullptr);
  expectNothingPending(state);
}

// Where the byte of an old position stands. The origin itself lies outside the area.
uint8_t byteAt(const ZebLZSSState_8u& state, uint32_t position) {
  const uintptr_t address = reinterpret_cast<uintptr_t>(state.historyOrigin) + position;
  const uintptr_t offset = address - reinterpret_cast<uintptr_t>(state.historyArea);
  EXPECT_LT(offset, sizeof state.historyArea);
  return state.historyArea[offset % sizeof state.historyArea];
}

TEST(LzssRecord, HistoryHoldsTheLatest32768Bytes) {
  const Bytes source = test::randomBytes(300'000, 1);
  for (const size_t piece :
       {size_t{999}, size_t{20'000}, size_t{32'767}, size_t{32'768}, size_t{100'000}}) {
    SCOPED_TRACE(piece);
    const LzssRecord record(zebsEncodeLZSSInit_8u);
    for (size_t at = 0; at < source.size();) {
      const auto part = std::span(source).subspan(at, std::min(piece, source.size() - at));
      at += callLzss(zebsEncodeLZSS_8u, record, part, test::lzssWorstCase(piece)).consumed;
      const ZebLZSSState_8u& state = *record.state();
      ASSERT_EQ(state.position, at);
      for (size_t back = 1; back <= std::min<size_t>(at, 32'768); back += 1 + back / 7) {
        ASSERT_EQ(byteAt(state, static_cast<uint32_t>(at - back)), source[at - back]) << back;
      }
    }
  }
}

// ---- Positions count on from 0 when 32 bits are used up

void moveTo(const LzssRecord& encoder, uint32_t position) {
  ZebLZSSState_8u& state = *encoder.state();
  state.position = position;
  state.historyOrigin =
      reinterpret_cast<uint8_t*>(reinterpret_cast<uintptr_t>(state.historyArea) - position);
}

// Encodes all of a source in calls of a size, without the last bits, from a position on.
Bytes encodedFrom(uint32_t position, const Bytes& source, size_t piece) {
  const LzssRecord encoder(zebsEncodeLZSSInit_8u);
  moveTo(encoder, position);
  Bytes stream;
  for (size_t at = 0; at < source.size(); at += piece) {
    const auto part = std::span(source).subspan(at, std::min(piece, source.size() - at));
    const auto result =
        callLzss(zebsEncodeLZSS_8u, encoder, part, test::lzssWorstCase(source.size()));
    EXPECT_EQ(result.status, zebOk);
    stream.insert(stream.end(), result.out.begin(), result.out.end());
  }
  const Bytes rest = test::flushLzss(encoder, 4).out;
  stream.insert(stream.end(), rest.begin(), rest.end());
  EXPECT_EQ(encoder.state()->position, static_cast<uint32_t>(position + source.size()));
  return stream;
}

TEST(LzssRecord, PositionsMayWrapAround) {
  const Bytes source = test::textLike(150'000, 2);
  for (const size_t piece : {source.size(), size_t{40'000}, size_t{1000}}) {
    for (const uint32_t before : {100'000u, 33'000u}) {
      SCOPED_TRACE(testing::Message() << piece << ", " << before);
      const Bytes stream = encodedFrom(0u - before, source, piece);
      EXPECT_EQ(stream, encodedFrom(0, source, piece));

      const LzssRecord decoder(zebsDecodeLZSSInit_8u);
      decoder.state()->position = 0u - before;
      Bytes whole;
      for (size_t at = 0; whole.size() < source.size();) {
        const auto result =
            callLzss(zebsDecodeLZSS_8u, decoder, std::span(stream).subspan(at), piece);
        at += result.consumed;
        ASSERT_FALSE(result.out.empty());
        whole.insert(whole.end(), result.out.begin(), result.out.end());
      }
      EXPECT_EQ(whole, source);
    }
  }
}

}  // namespace
}  // namespace zebdc
