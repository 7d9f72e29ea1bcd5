// A plain rendering of the match finder's rules, byte by byte and without any of the library's code
// but the constant hash table. The library must give the very same pairs.
#ifndef ZEBDC_TESTS_DEFLATE_REFERENCE_MATCH_FINDER_H
#define ZEBDC_TESTS_DEFLATE_REFERENCE_MATCH_FINDER_H

#include <stdint.h>
#include <zebdc/zebdc.h>

#include <span>
#include <vector>

namespace zebdc::test {

class ReferenceMatchFinder {
 public:
  // A stream whose first byte has the position windowPos.
  explicit ReferenceMatchFinder(int level, int32_t windowPos = 0);

  void setDictionary(std::span<const uint8_t> dictionary);

  // One call of the match finder with room for that many pairs.
  struct Result {
    int consumed;
    int pairs;
  };
  Result encode(std::span<const uint8_t> source, ZebLZ77Pair* pairs, int room, int flush);

 private:
  struct Match {
    int length;
    int64_t candidate;
  };

  uint8_t at(int64_t position) const { return bytes_[static_cast<size_t>(position - origin_)]; }
  uint32_t rollingHash(int64_t p) const;
  uint32_t tableHash(int64_t p) const;
  bool isCandidate(int64_t p, int64_t candidate) const;
  int commonLength(int64_t p, int64_t candidate, int limit) const;
  int limitAt(int64_t p, int tail) const;
  Match search(int64_t p, int64_t candidate, int limit, int maxCandidates) const;
  void insert(int64_t p);
  void insertUpTo(int64_t end);
  void renumberFor(int sourceLength);
  void forgetOldBytes();
  bool hasRoom() const { return written_ < room_; }
  void emitLiteral();
  void emitMatch(Match match);
  void runFast();
  void runAverage();
  void runBest();

  int level_;
  std::vector<int32_t> head_;
  std::vector<int32_t> chain_;
  std::vector<uint8_t> bytes_;  // of the positions from origin_ on
  int64_t origin_;
  int64_t windowPos_;

  // The current call.
  int64_t p_ = 0;
  int64_t end_ = 0;
  bool fullFlush_ = false;
  ZebLZ77Pair* pairs_ = nullptr;
  int room_ = 0;
  int written_ = 0;
};

}  // namespace zebdc::test

#endif
