// The table that --list prints.
#ifndef ZEBZ_LISTING_H
#define ZEBZ_LISTING_H

#include <string>

#include "stream/format.h"

namespace zebz {

// What compression saved: "61.7%" for a result of 38.3 % of the size.
std::string savedPercent(uint64_t size, uint64_t compressedSize);

class Listing {
 public:
  explicit Listing(bool isVerbose) : isVerbose_(isVerbose) {}

  void add(const Format& format, const DecodeResult& result, int64_t modificationTime,
           const std::string& name);

  // Prints the sums where there is more than one file.
  void finish() const;

 private:
  void printSizes(uint64_t size, uint64_t compressedSize, const std::string& name) const;

  bool isVerbose_;
  int count_ = 0;
  uint64_t totalSize_ = 0;
  uint64_t totalCompressedSize_ = 0;
};

}  // namespace zebz

#endif
