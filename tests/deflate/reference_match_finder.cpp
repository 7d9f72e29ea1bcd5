#include "deflate/reference_match_finder.h"

#include <algorithm>

#include "frame/substitution_tables.h"

namespace zebdc::test {

namespace {

constexpr int64_t window = 32768;
constexpr int32_t none = -32768;

}  // namespace

ReferenceMatchFinder::ReferenceMatchFinder(int level, int32_t windowPos)
    : level_(level),
      head_(window, none),
      chain_(window, none),
      origin_(windowPos),
      windowPos_(windowPos) {}

uint32_t ReferenceMatchFinder::rollingHash(int64_t p) const {
  return ((static_cast<uint32_t>(at(p)) << 10) ^ (static_cast<uint32_t>(at(p + 1)) << 5) ^
          at(p + 2)) &
         0x7FFF;
}

uint32_t ReferenceMatchFinder::tableHash(int64_t p) const {
  return threeByteHash(at(p), at(p + 1), at(p + 2));
}

// Entries at or above p are left from another numbering. With a full flush position 0 and all
// before it count as too far.
bool ReferenceMatchFinder::isCandidate(int64_t p, int64_t candidate) const {
  const int64_t distance = p - candidate;
  return distance >= 1 && distance < window && (!fullFlush_ || distance < p);
}

int ReferenceMatchFinder::commonLength(int64_t p, int64_t candidate, int limit) const {
  int length = 0;
  while (length < limit && at(p + length) == at(candidate + length)) ++length;
  return length;
}

int ReferenceMatchFinder::limitAt(int64_t p, int tail) const {
  return static_cast<int>(std::min<int64_t>(end_ - tail - p, 258));
}

ReferenceMatchFinder::Match ReferenceMatchFinder::search(int64_t p, int64_t candidate, int limit,
                                                         int maxCandidates) const {
  Match best = {2, 0};
  for (int looked = 0; looked < maxCandidates; ++looked) {
    if (!isCandidate(p, candidate) || best.length >= limit) break;
    if (at(candidate + best.length) == at(p + best.length) &&
        at(candidate + best.length - 1) == at(p + best.length - 1)) {
      const int length = commonLength(p, candidate, limit);
      if (length > best.length) best = {length, candidate};
    }
    candidate = chain_[static_cast<size_t>(candidate & 0x7FFF)];
  }
  return best;
}

void ReferenceMatchFinder::insert(int64_t p) {
  if (level_ == 0) {
    head_[rollingHash(p)] = static_cast<int32_t>(p);
    return;
  }
  int32_t& head = head_[tableHash(p)];
  chain_[static_cast<size_t>(p & 0x7FFF)] = head;
  head = static_cast<int32_t>(p);
}

void ReferenceMatchFinder::insertUpTo(int64_t end) {
  for (++p_; p_ < end; ++p_) insert(p_);
}

void ReferenceMatchFinder::emitLiteral() {
  pairs_[written_++] = {at(p_++), 0};
}

void ReferenceMatchFinder::emitMatch(Match match) {
  pairs_[written_++] = {static_cast<uint16_t>(match.length),
                        static_cast<uint16_t>(p_ - match.candidate)};
  insertUpTo(p_ + match.length);
}

void ReferenceMatchFinder::runFast() {
  while (p_ < end_ - 2 && hasRoom()) {
    const int64_t candidate = head_[rollingHash(p_)];
    insert(p_);
    int length = 0;
    if (isCandidate(p_, candidate)) length = commonLength(p_, candidate, limitAt(p_, 2));
    if (length >= 3) {
      emitMatch({length, candidate});
    } else {
      emitLiteral();
    }
  }
}

void ReferenceMatchFinder::runAverage() {
  while (p_ < end_ - 2 && hasRoom()) {
    const int64_t candidate = head_[tableHash(p_)];
    insert(p_);
    const Match match = search(p_, candidate, limitAt(p_, 2), 16);
    if (match.length >= 3) {
      emitMatch(match);
    } else {
      emitLiteral();
    }
  }
}

void ReferenceMatchFinder::runBest() {
  const int tail = fullFlush_ ? 2 : 3;
  bool searchAfresh = true;
  Match match = {2, 0};
  while (p_ < end_ - 3 && hasRoom()) {
    const int64_t candidate = head_[tableHash(p_)];
    insert(p_);
    if (searchAfresh) match = search(p_, candidate, limitAt(p_, tail), 512);
    const Match next = search(p_ + 1, head_[tableHash(p_ + 1)], limitAt(p_ + 1, tail), 512);
    const bool tooShort = match.length < 4 && (match.length != 3 || p_ - match.candidate > 4096);
    searchAfresh = match.length >= next.length && !tooShort;
    if (searchAfresh) {
      emitMatch(match);
    } else {
      emitLiteral();
      match = next;
    }
  }
}

void ReferenceMatchFinder::renumberFor(int sourceLength) {
  if (windowPos_ <= INT32_MAX - static_cast<int64_t>(sourceLength)) return;
  const int64_t shift = windowPos_ & ~int64_t{0x7FFF};
  for (std::vector<int32_t>* table : {&head_, &chain_}) {
    for (int32_t& entry : *table) {
      entry = static_cast<int32_t>(std::max<int64_t>(entry - shift, none));
    }
  }
  origin_ -= shift;
  windowPos_ -= shift;
}

void ReferenceMatchFinder::forgetOldBytes() {
  const size_t kept = static_cast<size_t>(window);
  if (bytes_.size() < 64 * kept) return;
  const size_t dropped = bytes_.size() - kept;
  bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<ptrdiff_t>(dropped));
  origin_ += static_cast<int64_t>(dropped);
}

ReferenceMatchFinder::Result ReferenceMatchFinder::encode(std::span<const uint8_t> source,
                                                          ZebLZ77Pair* pairs, int room, int flush) {
  renumberFor(static_cast<int>(source.size()));
  if (room == 0 || source.empty()) return {0, 0};
  forgetOldBytes();
  bytes_.insert(bytes_.end(), source.begin(), source.end());
  p_ = windowPos_;
  end_ = windowPos_ + static_cast<int64_t>(source.size());
  fullFlush_ = flush == zebLZ77FlushFull;
  pairs_ = pairs;
  room_ = room;
  written_ = 0;
  if (level_ == 0) runFast();
  if (level_ == 1) runAverage();
  if (level_ == 2) runBest();
  while (p_ < end_ && hasRoom()) emitLiteral();

  const int consumed = static_cast<int>(p_ - windowPos_);
  bytes_.resize(static_cast<size_t>(p_ - origin_));
  windowPos_ = p_;
  if (fullFlush_) {
    origin_ -= windowPos_;
    windowPos_ = 0;
    if (level_ == 0) {
      // Entries from before a renumbering would lie before the flush.
      std::replace_if(
          head_.begin(), head_.end(), [](int32_t entry) { return entry < 0; }, none);
    } else {
      head_.assign(head_.size(), none);
    }
  }
  return {consumed, written_};
}

void ReferenceMatchFinder::setDictionary(std::span<const uint8_t> dictionary) {
  if (dictionary.size() < 3) return;
  bytes_.assign(
      dictionary.end() - static_cast<ptrdiff_t>(std::min<size_t>(dictionary.size(), window)),
      dictionary.end());
  origin_ = 0;
  windowPos_ = static_cast<int64_t>(bytes_.size());
  head_.assign(head_.size(), none);
  for (int64_t p = 0; p + 3 <= windowPos_; ++p) insert(p);
}

}  // namespace zebdc::test
