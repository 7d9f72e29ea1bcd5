// Inducing the last column of a block's sorted rotations from its sorted LMS rotations.
//
// The rows of the rotations that begin with one byte are first those of type L, then those of type
// S. The first scan goes up the rows. Each L or LMS rotation that it meets is followed, in the
// block, by nothing smaller, so that the rotation one position before it, if of type L, is the next
// one in its bucket: within a bucket, rotations are in the order of those that begin one position
// later. The second scan goes down the rows and does the same for type S, including the LMS
// rotations themselves.
//
// An entry stands for a rotation and carries the byte before it, which is the byte of its row in
// the last column and names the bucket of the rotation to induce:
//
//   31 (63)  24 (32)             0
//   | byte before | position     |
//
// With it, each entry costs one random read of the text, when it is made. Both scans take the
// decision whether an entry induces without branching, as no predictor could guess it.
//
// Tried and not faster: prefetching the text ahead of the scans. The reads of many entries overlap
// without it.

#include "kernels/bwt_induce.h"

#include <string.h>

namespace zebdc::kernels {
namespace {

constexpr int byteValues = 256;

template <class Entry, int positionBits>
class Inducer {
 public:
  explicit Inducer(const BwtInduction& job)
      : before_(job.text - 1),
        length_(job.length),
        entries_(static_cast<Entry*>(job.entries)),
        column_(job.column) {
    uint32_t row = 0;
    for (int byte = 0; byte < byteValues; ++byte) {
      start_[byte] = endL_[byte] = row;
      row += job.byteCounts[byte];
      startS_[byte] = row;
    }
    start_[byteValues] = row;
  }

  uint32_t run(const uint32_t* lms, const uint32_t* lmsCounts) {
    for (int byte = 0; byte < byteValues; ++byte) {
      scanL(static_cast<uint32_t>(byte));
      for (uint32_t i = 0; i < lmsCounts[byte]; ++i) induceL(*lms++);
    }
    for (int byte = byteValues - 1; byte >= 0; --byte) scanS(static_cast<uint32_t>(byte));
    return firstRow_;
  }

 private:
  static constexpr Entry positionMask = (Entry{1} << positionBits) - 1;

  Entry entryOf(uint32_t position, uint32_t byteFrom) const {
    return static_cast<Entry>(before_[byteFrom]) << positionBits | position;
  }

  static uint32_t byteBefore(Entry entry) { return static_cast<uint32_t>(entry >> positionBits); }

  // The position before that of an entry in the given row.
  uint32_t previous(Entry entry, uint32_t row) {
    uint32_t position = static_cast<uint32_t>(entry & positionMask);
    if (position == 0) {
      firstRow_ = row;
      position = length_;
    }
    return position - 1;
  }

  // Entries that do not induce in this scan induce in the other one: they are kept, moved to the
  // front of their bucket.
  void scanL(uint32_t byte) {
    uint32_t kept = start_[byte];
    for (uint32_t row = kept; row < endL_[byte]; ++row) {
      const Entry entry = entries_[row];
      const uint32_t bucket = byteBefore(entry);
      column_[row] = static_cast<uint8_t>(bucket);
      const uint32_t position = previous(entry, row);
      const bool typeL = bucket >= byte;
      entries_[kept] = entry;
      kept += !typeL;
      // The entry behind the last row takes what is not wanted.
      entries_[typeL ? endL_[bucket] : length_] = entryOf(position, typeL ? position : 0);
      endL_[bucket] += typeL;
    }
    endKept_[byte] = kept;
  }

  void induceL(uint32_t position) {
    const uint32_t bucket = before_[position];
    position = (position == 0 ? length_ : position) - 1;
    entries_[endL_[bucket]++] = entryOf(position, position);
  }

  void scanS(uint32_t byte) {
    for (uint32_t row = start_[byte + 1]; row > startS_[byte];) {
      const Entry entry = entries_[--row];
      const uint32_t bucket = byteBefore(entry);
      column_[row] = static_cast<uint8_t>(bucket);
      const uint32_t position = previous(entry, row);
      const bool typeS = bucket <= byte;
      startS_[bucket] -= typeS;
      entries_[typeS ? startS_[bucket] : length_] = entryOf(position, typeS ? position : 0);
    }
    for (uint32_t i = endKept_[byte]; i > start_[byte];) {
      const Entry entry = entries_[--i];
      uint32_t position = static_cast<uint32_t>(entry & positionMask);
      position = (position == 0 ? length_ : position) - 1;
      entries_[--startS_[byteBefore(entry)]] = entryOf(position, position);
    }
  }

  const uint8_t* before_;  // before_[p] is the byte before position p
  uint32_t length_;
  Entry* entries_;
  uint8_t* column_;
  uint32_t firstRow_ = 0;
  uint32_t start_[byteValues + 1];  // first row of each bucket
  uint32_t endL_[byteValues];       // behind its last L entry so far
  uint32_t endKept_[byteValues];    // behind its last kept entry
  uint32_t startS_[byteValues];     // its first S entry so far
};

}  // namespace

uint32_t induceColumn(const BwtInduction& job) {
  if (job.positionBits == 24) {
    return Inducer<uint32_t, 24>(job).run(job.lms, job.lmsCounts);
  }
  return Inducer<uint64_t, 32>(job).run(job.lms, job.lmsCounts);
}

}  // namespace zebdc::kernels
