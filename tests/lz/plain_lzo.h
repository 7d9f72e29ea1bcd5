// LZO1X written out plainly: the level-1 compressor by the rules of its search, and a decompressor
// that takes one byte at a time and checks everything.
#ifndef ZEBDC_TESTS_LZ_PLAIN_LZO_H
#define ZEBDC_TESTS_LZ_PLAIN_LZO_H

#include <stddef.h>
#include <stdint.h>

#include <algorithm>
#include <array>
#include <optional>

#include "support/data.h"

namespace zebdc::test {

// The rows of the hash: what a byte at each of four places contributes.
class PlainLzoHash {
 public:
  PlainLzoHash() {
    for (uint32_t place = 0; place < 4; ++place) {
      for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t value = byte << (8 * place);
        value ^= value >> 12;
        rows_[place][byte] = static_cast<uint16_t>(value ^ (value >> 7));
      }
    }
  }
  size_t of(const uint8_t* bytes) const {
    uint32_t hash = 0;
    for (size_t place = 0; place < 4; ++place) hash ^= rows_[place][bytes[place]];
    return hash & 0x3FFF;
  }

 private:
  std::array<std::array<uint16_t, 256>, 4> rows_;
};

class PlainLzoCompressor {
 public:
  explicit PlainLzoCompressor(const Bytes& source) : source_(source), dictionary_(0x4000) {}

  // With the end instruction; empty for an empty source.
  Bytes run() {
    if (source_.empty()) return out_;
    for (size_t at = 4; at + 13 < source_.size();) at += step(at);
    writeRun(source_.size());
    out_.insert(out_.end(), {0x11, 0, 0});
    return out_;
  }

 private:
  bool equal(size_t candidate, size_t at, size_t offset) const {
    return source_[candidate + offset] == source_[at + offset];
  }

  // What the slot holds, unless it is out of reach.
  std::optional<size_t> candidateIn(size_t slot, size_t at) const {
    const auto entry = dictionary_[slot];
    if (!entry || *entry >= at || at - *entry > 49151) return {};
    return entry;
  }

  bool yields(size_t candidate, size_t at) const {
    return at - candidate > 2048 && !equal(candidate, at, 3);
  }

  // Takes a match or leaves a literal; returns by how many bytes the search goes on.
  size_t step(size_t at) {
    size_t slot = hash_.of(source_.data() + at);
    auto candidate = candidateIn(slot, at);
    if (candidate && yields(*candidate, at)) {
      slot = (slot & 0x7FF) ^ 0x201F;
      candidate = candidateIn(slot, at);
      if (candidate && yields(*candidate, at)) candidate.reset();
    }
    dictionary_[slot] = at;
    if (!candidate || !equal(*candidate, at, 0) || !equal(*candidate, at, 1)) return 1;
    size_t length = 2;
    while (at + length < source_.size() && equal(*candidate, at, length)) ++length;
    if (length < 3) return 1;
    writeRun(at);
    writeMatch(length, at - *candidate);
    written_ = at + length;
    return length;
  }

  void writeExtension(size_t value) {
    for (; value > 255; value -= 255) out_.push_back(0);
    out_.push_back(static_cast<uint8_t>(value));
  }

  // The literals before end.
  void writeRun(size_t end) {
    const size_t count = end - written_;
    if (count == 0) return;
    if (out_.empty() && count < 239) {
      out_.push_back(static_cast<uint8_t>(17 + count));
    } else if (count <= 3) {
      out_[out_.size() - 2] |= static_cast<uint8_t>(count);
    } else if (count <= 18) {
      out_.push_back(static_cast<uint8_t>(count - 3));
    } else {
      out_.push_back(0);
      writeExtension(count - 18);
    }
    out_.insert(out_.end(), source_.begin() + static_cast<ptrdiff_t>(written_),
                source_.begin() + static_cast<ptrdiff_t>(end));
  }

  void writeLength(uint8_t kind, size_t length, size_t plain) {
    if (length <= plain) {
      out_.push_back(static_cast<uint8_t>(kind | (length - 2)));
    } else {
      out_.push_back(kind);
      writeExtension(length - plain);
    }
  }

  void writeMatch(size_t length, size_t distance) {
    if (length <= 8 && distance <= 2048) {
      out_.push_back(static_cast<uint8_t>((length - 1) << 5 | (distance - 1) % 8 << 2));
      out_.push_back(static_cast<uint8_t>((distance - 1) / 8));
      return;
    }
    size_t coded = distance - 1;
    if (distance <= 16384) {
      writeLength(0x20, length, 33);
    } else {
      coded = distance - 16384;
      writeLength(coded >= 16384 ? 0x18 : 0x10, length, 9);
    }
    out_.push_back(static_cast<uint8_t>(coded << 2));
    out_.push_back(static_cast<uint8_t>(coded >> 6));
  }

  const PlainLzoHash hash_;
  const Bytes& source_;
  std::vector<std::optional<size_t>> dictionary_;
  size_t written_ = 0;
  Bytes out_;
};

struct PlainLzoResult {
  bool valid = true;
  Bytes out;
  // False for a container of which a part makes less than its slice: only the number of bytes in
  // out then means something.
  bool gapless = true;
};

class PlainLzoDecoder {
 public:
  PlainLzoDecoder(const Bytes& source, size_t capacity) : source_(source), capacity_(capacity) {}

  PlainLzoResult run() {
    if (!source_.empty() && source_[0] > 17) result_.valid = literals(source_[at_++] - 17u);
    while (result_.valid && !ended_ && at_ < source_.size()) result_.valid = instruction();
    return result_;
  }

 private:
  bool left(size_t count) const { return source_.size() - at_ >= count; }
  bool room(size_t count) const { return capacity_ - result_.out.size() >= count; }

  bool literals(size_t count) {
    if (!left(count) || !room(count)) return false;
    result_.out.insert(result_.out.end(), source_.begin() + static_cast<ptrdiff_t>(at_),
                       source_.begin() + static_cast<ptrdiff_t>(at_ + count));
    at_ += count;
    behindLiterals_ = true;
    return true;
  }

  bool extend(size_t& length) {
    for (; left(1); length += 255) {
      const uint8_t byte = source_[at_++];
      if (byte != 0) {
        length += byte;
        return true;
      }
    }
    return false;
  }

  bool instruction() {
    const uint32_t first = source_[at_++];
    if (first < 16) {
      if (behindLiterals_) return false;
      size_t count = first == 0 ? 18 : 3 + first;
      return (first != 0 || extend(count)) && literals(count);
    }
    size_t length = 0;
    size_t distance = 0;
    uint32_t trailing = 0;
    if (first >= 64) {
      if (!left(1)) return false;
      length = (first >> 5) + 1;
      distance = (first >> 2 & 7) + 1 + 8 * size_t{source_[at_++]};
      trailing = first & 3;
    } else {
      const bool isM3 = first >= 32;
      length = first & (isM3 ? 31 : 7);
      if (length != 0) {
        length += 2;
      } else {
        length = isM3 ? 33 : 9;
        if (!extend(length)) return false;
      }
      if (!left(2)) return false;
      const uint32_t word = source_[at_] | static_cast<uint32_t>(source_[at_ + 1]) << 8;
      at_ += 2;
      trailing = word & 3;
      distance = isM3 ? (word >> 2) + 1 : 16384 + ((first & 8) << 11) + (word >> 2);
      if (!isM3 && distance == 16384) {
        ended_ = true;
        return true;
      }
    }
    if (distance > result_.out.size() || !room(length + trailing) || !left(trailing)) return false;
    for (size_t i = 0; i < length; ++i) {
      result_.out.push_back(result_.out[result_.out.size() - distance]);
    }
    behindLiterals_ = false;
    return trailing == 0 || literals(trailing);
  }

  const Bytes& source_;
  const size_t capacity_;
  size_t at_ = 0;
  bool behindLiterals_ = false;
  bool ended_ = false;
  PlainLzoResult result_;
};

inline Bytes plainCompressLzo(const Bytes& source) {
  return PlainLzoCompressor(source).run();
}

inline PlainLzoResult plainDecodeLzo(const Bytes& source, size_t capacity) {
  return PlainLzoDecoder(source, capacity).run();
}

inline size_t plainNumberAt(const Bytes& bytes, size_t at) {
  size_t number = 0;
  for (size_t i = 4; i > 0; --i) number = number << 8 | bytes[at + i - 1];
  return number;
}

inline bool isPlainLzoContainer(const Bytes& source) {
  if (source.size() < 11 || source[0] != 0x55 || source[1] < 1 || source[1] > 32) return false;
  if (source[2] != (source[1] ^ 0x55)) return false;
  const size_t number = plainNumberAt(source, 7);
  const size_t end = 4 * size_t{source[1]} + number;
  if (source.size() < number + 7 || source.size() < end + 3) return false;
  return source[end] == 0x11 && source[end + 1] == 0 && source[end + 2] == 0;
}

// A plain stream or a container.
inline PlainLzoResult plainDecodeAnyLzo(const Bytes& source, size_t capacity) {
  if (!isPlainLzoContainer(source)) return plainDecodeLzo(source, capacity);
  const size_t parts = source[1];
  const size_t each = plainNumberAt(source, 3) / parts;
  PlainLzoResult result;
  size_t at = 3 + 4 * parts;
  for (size_t part = 0; part < parts; ++part) {
    const bool isLast = part + 1 == parts;
    const size_t left = source.size() - at;
    const size_t size = isLast ? left : plainNumberAt(source, 7 + 4 * part);
    const size_t length = isLast ? plainNumberAt(source, 3) - part * each : each;
    if (size > left || part * each + length > capacity) {
      result.valid = false;
      result.gapless = false;
      at += std::min(size, left);
      continue;
    }
    const auto begin = source.begin() + static_cast<ptrdiff_t>(at);
    const Bytes stream(begin, begin + static_cast<ptrdiff_t>(size));
    const PlainLzoResult made = plainDecodeLzo(stream, length);
    result.valid = result.valid && made.valid;
    result.gapless = result.gapless && (isLast || made.out.size() == length);
    result.out.insert(result.out.end(), made.out.begin(), made.out.end());
    at += size;
  }
  return result;
}

}  // namespace zebdc::test

#endif
