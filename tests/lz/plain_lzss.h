// LZSS written out plainly, byte by byte and bit by bit.
#ifndef ZEBDC_TESTS_LZ_PLAIN_LZSS_H
#define ZEBDC_TESTS_LZ_PLAIN_LZSS_H

#include <stddef.h>
#include <stdint.h>

#include <algorithm>
#include <map>
#include <vector>

#include "frame/substitution_tables.h"
#include "support/data.h"

namespace zebdc::test {

struct PlainToken {
  size_t length;    // 1: a literal
  size_t distance;  // 0: a literal
  uint8_t literal;

  bool operator==(const PlainToken&) const = default;
};

// The bits of a token, the first one first.
inline std::vector<bool> bitsOf(const PlainToken& token) {
  const bool isLiteral = token.distance == 0;
  const size_t value =
      isLiteral ? 0x100u | token.literal : token.distance << 8 | (token.length - 3);
  std::vector<bool> bits;
  for (int bit = isLiteral ? 8 : 23; bit >= 0; --bit) bits.push_back((value >> bit & 1) != 0);
  return bits;
}

// Keeps everything: all bytes since the start and the chain of every hash.
class PlainLzssEncoder {
 public:
  // What the next token of a call is whose bytes from the current position on are left.
  PlainToken next(const uint8_t* left, size_t count) {
    seen_.insert(seen_.end(), left, left + std::min<size_t>(count, 258 + 3));
    PlainToken token = {1, 0, *left};
    if (count >= 3) {
      token = search(count);
      const size_t at = position_;
      for (size_t i = 0; i < token.length; ++i) {
        if (count - i >= 3) chains_[hashAt(at + i)].push_back(at + i);
      }
    }
    position_ += token.length;
    seen_.resize(position_);
    return token;
  }

 private:
  uint32_t hashAt(size_t at) const {
    return threeByteHash(seen_[at], seen_[at + 1], seen_[at + 2]);
  }

  PlainToken search(size_t count) const {
    const size_t at = position_;
    const size_t limit = std::min<size_t>(count - 2, 258);
    PlainToken best = {2, 0, seen_[at]};
    const auto chain = chains_.find(hashAt(at));
    if (limit >= 3 && chain != chains_.end()) {
      int candidates = 0;
      for (auto entry = chain->second.rbegin(); entry != chain->second.rend(); ++entry) {
        if (at - *entry >= 32768 || ++candidates > 16 || best.length == limit) break;
        size_t length = 0;
        while (length < limit && seen_[*entry + length] == seen_[at + length]) ++length;
        if (length > best.length) best = {length, at - *entry, 0};
      }
    }
    return best.length >= 3 ? best : PlainToken{1, 0, seen_[at]};
  }

  Bytes seen_;
  size_t position_ = 0;
  std::map<uint32_t, std::vector<size_t>> chains_;
};

// All tokens of one call over a whole source, as bytes.
inline Bytes plainEncodeLzss(const Bytes& source) {
  PlainLzssEncoder encoder;
  Bytes out;
  size_t bitCount = 0;
  for (size_t at = 0; at < source.size();) {
    const PlainToken token = encoder.next(source.data() + at, source.size() - at);
    for (const bool bit : bitsOf(token)) {
      if (bitCount % 8 == 0) out.push_back(0);
      if (bit) out.back() |= static_cast<uint8_t>(0x80 >> bitCount % 8);
      ++bitCount;
    }
    at += token.length;
  }
  return out;
}

// Decodes all whole tokens, up to a number of bytes, one bit and one byte at a time.
inline Bytes plainDecodeLzss(const Bytes& stream, size_t limit) {
  const size_t bitCount = 8 * stream.size();
  size_t bit = 0;
  const auto take = [&](int count) {
    size_t value = 0;
    for (; count > 0; --count, ++bit) value = value << 1 | (stream[bit / 8] >> (7 - bit % 8) & 1u);
    return value;
  };
  Bytes out;
  while (out.size() < limit && bit < bitCount) {
    const bool isLiteral = take(1) != 0;
    if (bitCount - bit < (isLiteral ? 8u : 23u)) break;
    if (isLiteral) {
      out.push_back(static_cast<uint8_t>(take(8)));
      continue;
    }
    const size_t field = take(15);
    const size_t distance = field == 0 ? 32768 : field;
    size_t length = take(8) + 3;
    for (; length > 0 && out.size() < limit; --length) {
      out.push_back(distance <= out.size() ? out[out.size() - distance] : uint8_t{0});
    }
  }
  return out;
}

}  // namespace zebdc::test

#endif
