#include "huffman/reference_coder.h"

#include <queue>

namespace zebdc::test {

ReferenceEncoder::ReferenceEncoder(const std::array<int, 256>& lengths) {
  uint32_t code = 0;
  for (int length = 32; length >= 1; --length) {
    for (int value = 255; value >= 0; --value) {
      const size_t index = static_cast<size_t>(value);
      if (lengths[index] != length) continue;
      length_[index] = static_cast<uint32_t>(length);
      code_[index] = code++;
    }
    code >>= 1;
  }
}

void ReferenceEncoder::encode(const uint8_t* src, size_t len, std::vector<uint8_t>& out) {
  for (size_t i = 0; i < len; ++i) {
    const uint32_t code = code_[src[i]];
    const int length = static_cast<int>(length_[src[i]]);
    if (length == 0) continue;
    bitCount_ += length;
    if (bitCount_ >= 32) {
      bitCount_ -= 32;
      const uint32_t word = bitBuffer_ | code >> bitCount_;
      for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(static_cast<uint8_t>(word >> shift));
      bitBuffer_ = bitCount_ == 0 ? 0 : code << (32 - bitCount_);
    } else {
      bitBuffer_ |= code << (32 - bitCount_);
    }
  }
}

void ReferenceEncoder::finish(std::vector<uint8_t>& out) const {
  for (int i = 0; i < (bitCount_ + 7) / 8; ++i) {
    out.push_back(static_cast<uint8_t>(bitBuffer_ >> (24 - 8 * i)));
  }
}

ReferenceDecoder::ReferenceDecoder(const std::array<int, 256>& lengths) {
  std::array<uint32_t, 33> counts{};
  for (size_t value = 0; value < 256; ++value) {
    if (lengths[value] == 0) continue;
    length_[value] = static_cast<uint32_t>(lengths[value]);
    ++counts[length_[value]];
    maxLen_ = std::max(maxLen_, lengths[value]);
    minLen_ = std::min(minLen_, lengths[value]);
  }
  uint32_t code = 0;
  for (int length = maxLen_; length >= 1; --length) {
    limit_[static_cast<size_t>(length)] = code << (maxLen_ - length);
    for (int value = 255; value >= 0; --value) {
      if (lengths[static_cast<size_t>(value)] != length) continue;
      symbols_.push_back(static_cast<uint8_t>(value));
      ++code;
    }
    code >>= 1;
  }
  for (int length = minLen_; length <= maxLen_; ++length) {
    const size_t index = static_cast<size_t>(length);
    cumulative_[index] = counts[index] + (length > minLen_ ? cumulative_[index - 1] : 0);
  }
}

int ReferenceDecoder::lookUp(uint32_t lookahead) const {
  size_t length = static_cast<size_t>(minLen_);
  while (length < static_cast<size_t>(maxLen_) && lookahead < limit_[length]) ++length;
  const int64_t index = static_cast<int64_t>((lookahead - limit_[length]) >>
                                             (static_cast<size_t>(maxLen_) - length)) -
                        cumulative_[length] + static_cast<int64_t>(symbols_.size());
  return index < 0 || index >= static_cast<int64_t>(symbols_.size())
             ? -1
             : symbols_[static_cast<size_t>(index)];
}

size_t ReferenceDecoder::decode(const uint8_t* src, size_t len, uint8_t* dst, size_t capacity) {
  size_t next = 0;
  size_t written = 0;
  const auto shiftZeroBytes = [&] {
    while (bitCount_ >= 8 && bitBuffer_ >> 24 == 0) {
      bitBuffer_ <<= 8;
      bitCount_ -= 8;
      zeroBits_ += 8;
    }
  };
  while (written < capacity) {
    shiftZeroBytes();
    while (next < len && bitCount_ < 17) {
      bitBuffer_ |= static_cast<uint32_t>(src[next++]) << (24 - bitCount_);
      bitCount_ += 8;
      shiftZeroBytes();
    }
    if (zeroBits_ < maxLen_) {
      const int symbol = lookUp(bitBuffer_ >> (32 - (maxLen_ - zeroBits_)));
      if (symbol < 0) break;
      const int length = static_cast<int>(length_[static_cast<size_t>(symbol)]);
      if (bitCount_ + zeroBits_ < length) break;
      dst[written++] = static_cast<uint8_t>(symbol);
      if (length >= zeroBits_) {
        bitBuffer_ <<= length - zeroBits_;
        bitCount_ -= length - zeroBits_;
        zeroBits_ = 0;
      } else {
        zeroBits_ -= length;
      }
    } else {
      while (zeroBits_ >= maxLen_ && written < capacity) {
        dst[written++] = symbols_.front();
        zeroBits_ -= maxLen_;
      }
    }
  }
  return written;
}

uint64_t optimalCost(const std::array<uint32_t, 256>& frequencies) {
  std::priority_queue<uint64_t, std::vector<uint64_t>, std::greater<>> weights;
  for (const uint32_t frequency : frequencies) {
    if (frequency != 0) weights.push(frequency);
  }
  if (weights.size() == 1) return weights.top();
  uint64_t cost = 0;
  while (weights.size() > 1) {
    uint64_t node = weights.top();
    weights.pop();
    node += weights.top();
    weights.pop();
    cost += node;
    weights.push(node);
  }
  return cost;
}

}  // namespace zebdc::test
