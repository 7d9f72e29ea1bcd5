// Multi-table Huffman coding bit by bit, as its rules read.
#ifndef ZEBDC_TESTS_BZIP2_PLAIN_HUFFMAN_H
#define ZEBDC_TESTS_BZIP2_PLAIN_HUFFMAN_H

#include <zebdc/zebdc.h>

#include <algorithm>
#include <map>
#include <span>
#include <utility>
#include <vector>

#include "support/data.h"

namespace zebdc::test {

using Symbols = std::vector<uint16_t>;
using Bits = std::vector<bool>;

inline void putBits(Bits& bits, uint32_t field, int length) {
  for (int i = length - 1; i >= 0; --i) bits.push_back((field >> i & 1) != 0);
}

inline Bytes packBits(Bits bits) {
  bits.resize((bits.size() + 7) / 8 * 8);
  Bytes out(bits.size() / 8);
  for (size_t i = 0; i < bits.size(); ++i) {
    if (bits[i]) out[i / 8] = static_cast<uint8_t>(out[i / 8] | 0x80 >> i % 8);
  }
  return out;
}

// The accumulator that callers hold.
struct Accumulator {
  uint32_t code = 0;
  int count = 0;

  bool operator==(const Accumulator&) const = default;
};

// Lengths by symbol, one row for each table, and a table for each group of 50.
struct Context {
  int alphaSize = 0;
  std::vector<Bytes> lengths;
  Bytes selectors;

  bool operator==(const Context&) const = default;
};

inline Bits contextBits(const Context& context) {
  Bits bits;
  putBits(bits, static_cast<uint32_t>(context.lengths.size()), 3);
  putBits(bits, static_cast<uint32_t>(context.selectors.size()), 15);
  Bytes order = {0, 1, 2, 3, 4, 5, 6, 7};
  for (const uint8_t selector : context.selectors) {
    const auto place = std::find(order.begin(), order.end(), selector);
    for (auto i = order.begin(); i < place; ++i) bits.push_back(true);
    bits.push_back(false);
    std::rotate(order.begin(), place, place + 1);
  }
  for (const Bytes& lengths : context.lengths) {
    int current = lengths[0];
    putBits(bits, static_cast<uint32_t>(current), 5);
    for (const uint8_t length : lengths) {
      for (; current < length; ++current) putBits(bits, 2, 2);
      for (; current > length; --current) putBits(bits, 3, 2);
      bits.push_back(false);
    }
  }
  return bits;
}

// Canonical codes: shorter ones first, within a length by symbol.
inline std::vector<uint32_t> canonicalCodes(const Bytes& lengths) {
  std::vector<uint32_t> codes(lengths.size());
  uint32_t next = 0;
  for (int length = 1; length <= 20; ++length) {
    next <<= 1;
    for (size_t s = 0; s < lengths.size(); ++s) {
      if (lengths[s] == length) codes[s] = next++;
    }
  }
  return codes;
}

inline Bits codedBits(const Context& context, const Symbols& symbols) {
  std::vector<std::vector<uint32_t>> codes;
  for (const Bytes& lengths : context.lengths) codes.push_back(canonicalCodes(lengths));
  Bits bits;
  for (size_t i = 0; i < symbols.size(); ++i) {
    const uint8_t table = context.selectors[i / 50];
    putBits(bits, codes[table][symbols[i]], context.lengths[table][symbols[i]]);
  }
  return bits;
}

// What a writer does with a sequence of fields: before each one whole bytes leave while there is
// room.
class PlainBitWriter {
 public:
  PlainBitWriter(Accumulator start, size_t room) : room_(room) {
    for (int i = 0; i < start.count; ++i) pending_.push_back((start.code << i >> 31) != 0);
  }

  void put(uint32_t field, int length) {
    while (pending_.size() >= 8 && out.size() < room_) {
      uint8_t byte = 0;
      for (int i = 0; i < 8; ++i) byte = static_cast<uint8_t>(byte << 1 | pending_[size_t(i)]);
      out.push_back(byte);
      pending_.erase(pending_.begin(), pending_.begin() + 8);
    }
    putBits(pending_, field, length);
  }

  int pendingCount() const { return static_cast<int>(pending_.size()); }
  Accumulator accumulator() const {
    Accumulator end = {0, pendingCount()};
    for (size_t i = 0; i < pending_.size(); ++i) {
      end.code |= static_cast<uint32_t>(pending_[i]) << (31 - i);
    }
    return end;
  }

  Bytes out;

 private:
  Bits pending_;
  size_t room_;
};

// A decoder in any pieces: bytes are added one by one until 20 bits are present.
class PlainHuffmanDecoder {
 public:
  struct Result {
    ZebStatus status;
    size_t consumed;
    Symbols out;
    Accumulator accumulator;

    bool operator==(const Result&) const = default;
  };

  explicit PlainHuffmanDecoder(const Context& context) : context_(context) {
    for (const Bytes& lengths : context.lengths) {
      const std::vector<uint32_t> codes = canonicalCodes(lengths);
      auto& table = tables_.emplace_back();
      for (size_t s = 0; s < lengths.size(); ++s) table[{lengths[s], codes[s]}] = int(s);
    }
  }

  Result decode(Accumulator start, std::span<const uint8_t> source, size_t room) {
    uint64_t bits = uint64_t{start.code} << 32;
    int count = start.count;
    size_t in = 0;
    Symbols out;
    const auto finish = [&](ZebStatus status) {
      return Result{status, in, out, {static_cast<uint32_t>(bits >> 32), count}};
    };
    while (out.size() < room) {
      const auto noSymbol = [&] {
        return finish(in < source.size() ? zebErrGeneral : zebWarnSrcExhausted);
      };
      if (done_ / 50 >= context_.selectors.size()) return noSymbol();
      while (count < 20) {
        if (in == source.size()) return finish(zebWarnSrcExhausted);
        bits |= uint64_t{source[in++]} << (56 - count);
        count += 8;
      }
      const auto& table = tables_[context_.selectors[done_ / 50]];
      int symbol = -1;
      for (int length = 1; length <= 20 && symbol < 0; ++length) {
        const auto found = table.find({length, static_cast<uint32_t>(bits >> (64 - length))});
        if (found == table.end()) continue;
        symbol = found->second;
        bits <<= length;
        count -= length;
      }
      if (symbol < 0) return noSymbol();
      out.push_back(static_cast<uint16_t>(symbol));
      ++done_;
      if (symbol == context_.alphaSize - 1) {
        done_ = 0;
        out.pop_back();
        return finish(zebOk);
      }
    }
    return finish(zebWarnDstFull);
  }

 private:
  Context context_;
  std::vector<std::map<std::pair<int, uint32_t>, int>> tables_;
  size_t done_ = 0;
};

}  // namespace zebdc::test

#endif
