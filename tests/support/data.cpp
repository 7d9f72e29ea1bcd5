#include "support/data.h"

#include <algorithm>

namespace zebdc::test {

Bytes fromText(std::string_view text) {
  return Bytes(text.begin(), text.end());
}

Bytes randomBytes(size_t size, uint64_t seed) {
  Random random(seed);
  Bytes out(size);
  for (uint8_t& byte : out) byte = static_cast<uint8_t>(random());
  return out;
}

Bytes textLike(size_t size, uint64_t seed) {
  Random random(seed);
  std::vector<std::string> words(500);
  for (std::string& word : words) {
    const size_t length = 1 + below(random, 9);
    for (size_t i = 0; i < length; ++i) {
      word += "etaoinshrdlucmfwypvbgkjqxz"[below(random, 1 + below(random, 26))];
    }
  }
  Bytes out;
  out.reserve(size + 16);
  while (out.size() < size) {
    const std::string& word = words[below(random, 1 + below(random, words.size()))];
    out.insert(out.end(), word.begin(), word.end());
    out.push_back(below(random, 12) == 0 ? '\n' : ' ');
  }
  out.resize(size);
  return out;
}

Bytes repeated(size_t size, std::string_view period) {
  Bytes out(size);
  for (size_t i = 0; i < size; ++i) out[i] = static_cast<uint8_t>(period[i % period.size()]);
  return out;
}

Bytes fibonacciWord(size_t size) {
  Bytes current = {'a'};
  Bytes previous = {'b'};
  while (current.size() < size) {
    Bytes next = current;
    next.insert(next.end(), previous.begin(), previous.end());
    previous = std::move(current);
    current = std::move(next);
  }
  current.resize(size);
  return current;
}

Bytes skewed(size_t size, uint64_t seed, int alphabetSize) {
  Random random(seed);
  Bytes out(size);
  for (uint8_t& byte : out) {
    int symbol = 0;
    while (symbol + 1 < alphabetSize && (random() & 1) != 0) ++symbol;
    byte = static_cast<uint8_t>(symbol * 37);
  }
  return out;
}

Bytes runs(size_t size, uint64_t seed) {
  Random random(seed);
  Bytes out;
  while (out.size() < size) {
    const size_t length = 1 + below(random, 1 + below(random, 1000));
    out.insert(out.end(), std::min(length, size - out.size()), static_cast<uint8_t>(random() % 5));
  }
  return out;
}

Bytes binaryLike(size_t size, uint64_t seed) {
  Random random(seed);
  Bytes out;
  uint32_t counter = 0;
  while (out.size() < size) {
    counter += 1 + static_cast<uint32_t>(below(random, 3));
    for (int shift = 0; shift < 32; shift += 8)
      out.push_back(static_cast<uint8_t>(counter >> shift));
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(random() % (i + 1) * 16));
    if (below(random, 8) == 0) {
      for (char c : std::string_view("record name")) out.push_back(static_cast<uint8_t>(c));
    }
    if (below(random, 16) == 0) {
      for (int i = 0; i < 24; ++i) out.push_back(static_cast<uint8_t>(random()));
    }
  }
  out.resize(size);
  return out;
}

std::vector<NamedBytes> oneOfEachKind(size_t size) {
  return {
      {"random", randomBytes(size, 1)},
      {"text", textLike(size, 2)},
      {"zeros", Bytes(size, 0)},
      {"period2", repeated(size, "ab")},
      {"period7", repeated(size, "abcabcd")},
      {"fibonacci", fibonacciWord(size)},
      {"skewed", skewed(size, 3, 16)},
      {"runs", runs(size, 4)},
      {"binary", binaryLike(size, 5)},
  };
}

Bytes mutated(Bytes bytes, Random& random) {
  const size_t changes = 1 + below(random, 4);
  for (size_t i = 0; i < changes && !bytes.empty(); ++i) {
    const size_t at = below(random, bytes.size());
    const auto position = bytes.begin() + static_cast<ptrdiff_t>(at);
    switch (below(random, 5)) {
      case 0:
        *position ^= static_cast<uint8_t>(1u << below(random, 8));
        break;
      case 1:
        *position = static_cast<uint8_t>(random());
        break;
      case 2:
        bytes.erase(position);
        break;
      case 3:
        bytes.insert(position, static_cast<uint8_t>(random()));
        break;
      default:
        std::swap(*position, bytes[below(random, bytes.size())]);
        break;
    }
  }
  return bytes;
}

}  // namespace zebdc::test
