#include "huffman/reference_git.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace zebdc::test {
namespace {

constexpr size_t leafCount = 256;
constexpr size_t firstLeaf = 255;  // of the 511 nodes; the children of node n are 2n + 1 and 2n + 2

struct Statistics {
  uint64_t sum = 0;
  uint64_t count = 0;
  int updates = 0;
  int k = 10;

  void add(uint64_t interval) {
    sum += interval;
    ++count;
    if (++updates == 8) {
      sum /= 2;
      count /= 2;
      updates = 0;
    }
    for (k = 1; (count << k) < sum; ++k) {
    }
  }
};

struct BitWriter {
  std::vector<uint8_t> bytes = {0};
  int used = 0;  // bits of the last byte

  void put(int bit) {
    if (bit != 0) bytes.back() |= static_cast<uint8_t>(0x80 >> used);
    if (++used == 8) {
      bytes.push_back(0);
      used = 0;
    }
  }

  void close() {
    for (int i = used; i < 8; ++i) bytes.back() |= static_cast<uint8_t>(0x80 >> i);
  }
};

struct Stream {
  BitWriter writer;
  Statistics statistics;

  void put(uint64_t interval) {
    uint64_t rest = interval;
    int k = statistics.k;
    while (rest >> k >= 8) {
      for (int i = 0; i < 8; ++i) writer.put(1);
      rest -= uint64_t{8} << k;
      k *= 2;
    }
    for (uint64_t i = 0; i < rest >> k; ++i) writer.put(1);
    writer.put(0);
    for (int i = k - 1; i >= 0; --i) writer.put(static_cast<int>(rest >> i & 1));
    statistics.add(interval);
  }
};

// The order of the values and their counts. nodes[firstLeaf + position] is a leaf's count.
struct Tree {
  std::array<uint64_t, 511> nodes{};
  std::array<uint8_t, leafCount> valueAt;
  std::array<uint8_t, leafCount> positionOf;

  Tree() {
    for (size_t i = 0; i < leafCount; ++i) {
      valueAt[i] = static_cast<uint8_t>(i);
      positionOf[i] = static_cast<uint8_t>(i);
    }
  }

  uint64_t count(size_t position) const { return nodes[firstLeaf + position]; }

  void add(size_t position, uint64_t amount) {
    for (size_t node = firstLeaf + position;; node = (node - 1) / 2) {
      nodes[node] += amount;
      if (node == 0) break;
    }
  }

  // The counts on all later positions: whenever the walk to the root arrives from a first child,
  // the second child's count.
  uint64_t sumBehind(size_t position) const {
    uint64_t sum = 0;
    for (size_t node = firstLeaf + position; node != 0; node = (node - 1) / 2) {
      if (node % 2 == 1) sum += nodes[node + 1];
    }
    return sum;
  }

  void exchange(size_t a, size_t b) {
    const uint64_t countA = count(a);
    const uint64_t countB = count(b);
    add(a, countB - countA);
    add(b, countA - countB);
    std::swap(valueAt[a], valueAt[b]);
    positionOf[valueAt[a]] = static_cast<uint8_t>(a);
    positionOf[valueAt[b]] = static_cast<uint8_t>(b);
  }

  // The neighbour that the value on a position changes places with after it occurred.
  std::optional<size_t> exchangePartner(size_t position, int hint) const {
    if (hint == 1 && position >= 1 && position <= 254 && count(position) > count(position - 1)) {
      return position - 1;
    }
    if (hint == 2 && position <= 253 && count(position) > count(position + 1)) return position + 1;
    return std::nullopt;
  }
};

class Encoder {
 public:
  explicit Encoder(int hint) : hint_(hint) {}

  void code(uint8_t value) {
    const size_t position = tree_.positionOf[value];
    tree_.add(position, 1);
    if (position != 255) {
      const uint64_t sum = tree_.sumBehind(position);
      streams_[255u - value].put(sum - stored_[position]);
      stored_[position] = sum;
    }
    if (const auto partner = tree_.exchangePartner(position, hint_)) exchange(position, *partner);
  }

  std::vector<uint8_t> finish() {
    streams_[255].put(tree_.count(255));
    std::vector<uint8_t> joined;
    for (Stream& stream : streams_) {
      stream.writer.close();
      const std::vector<uint8_t>& bytes = stream.writer.bytes;
      for (int shift = 24; shift >= 0; shift -= 8) {
        joined.push_back(static_cast<uint8_t>(bytes.size() >> shift));
      }
      joined.insert(joined.end(), bytes.begin(), bytes.end());
    }
    return joined;
  }

 private:
  void exchange(size_t a, size_t b) {
    const uint64_t passedA = tree_.sumBehind(a) - stored_[a];
    const uint64_t passedB = tree_.sumBehind(b) - stored_[b];
    tree_.exchange(a, b);
    stored_[a] = tree_.sumBehind(a) - passedB;
    stored_[b] = tree_.sumBehind(b) - passedA;
  }

  int hint_;
  Tree tree_;
  std::array<uint64_t, leafCount> stored_{};
  std::array<Stream, leafCount> streams_;
};

struct BitReader {
  const uint8_t* bytes = nullptr;
  size_t end = 0;  // in bits
  size_t next = 0;

  int get() {
    const int bit = bytes[next / 8] >> (7 - next % 8) & 1;
    ++next;
    return bit;
  }

  bool onlyPaddingLeft() const {
    for (size_t i = next; i < end; ++i) {
      if ((bytes[i / 8] >> (7 - i % 8) & 1) == 0) return false;
    }
    return true;
  }
};

uint64_t getInterval(BitReader& reader, Statistics& statistics) {
  uint64_t interval = 0;
  int k = statistics.k;
  for (;;) {
    uint64_t ones = 0;
    while (ones < 8 && reader.get() != 0) ++ones;
    interval += ones << k;
    if (ones < 8) break;
    k *= 2;
  }
  uint64_t low = 0;
  for (int i = 0; i < k; ++i) low = low << 1 | static_cast<uint64_t>(reader.get());
  statistics.add(interval + low);
  return interval + low;
}

}  // namespace

std::vector<uint8_t> referenceGitEncode(const uint8_t* src, size_t len, int hint) {
  Encoder encoder(hint);
  if (hint != 3) {
    for (int value = 255; value >= 0; --value) encoder.code(static_cast<uint8_t>(value));
  }
  for (size_t i = 0; i < len; ++i) encoder.code(src[i]);
  return encoder.finish();
}

std::vector<uint8_t> referenceGitDecode(const uint8_t* src, size_t /*len*/, int hint) {
  std::array<std::vector<uint64_t>, leafCount> intervals;  // by value
  for (size_t stream = 0; stream < leafCount; ++stream) {
    size_t length = 0;
    for (int i = 0; i < 4; ++i) length = length << 8 | *src++;
    BitReader reader = {src, length * 8, 0};
    src += length;
    Statistics statistics;
    while (!reader.onlyPaddingLeft()) {
      intervals[255 - stream].push_back(getInterval(reader, statistics));
    }
  }
  uint64_t lastValueLeft = intervals[0].back();
  intervals[0].pop_back();

  constexpr uint64_t never = ~uint64_t{0};
  std::array<size_t, leafCount> next{};
  std::array<uint64_t, leafCount> remaining;  // by position
  Tree tree;
  const auto load = [&](size_t position) {
    const size_t value = tree.valueAt[position];
    remaining[position] =
        next[value] < intervals[value].size() ? intervals[value][next[value]] : never;
    ++next[value];
  };
  for (size_t position = 0; position < leafCount; ++position) load(position);

  std::vector<uint8_t> out;
  for (;;) {
    const size_t position = static_cast<size_t>(
        std::find(remaining.begin(), remaining.end() - 1, uint64_t{0}) - remaining.begin());
    if (position == 255 && lastValueLeft-- == 0) break;
    out.push_back(tree.valueAt[position]);
    tree.add(position, 1);
    for (size_t i = 0; i < position; ++i) {
      if (remaining[i] != never) --remaining[i];
    }
    if (position != 255) load(position);
    if (const auto partner = tree.exchangePartner(position, hint)) {
      tree.exchange(position, *partner);
      std::swap(remaining[position], remaining[*partner]);
    }
  }
  if (hint != 3) out.erase(out.begin(), out.begin() + 256);
  return out;
}

}  // namespace zebdc::test
