#include "listing.h"

#include <inttypes.h>
#include <stdio.h>
#include <time.h>

namespace zebz {
namespace {

constexpr int columnsBeforeSizes = 28;  // of the verbose table

}  // namespace

std::string savedPercent(uint64_t size, uint64_t compressedSize) {
  const double part = static_cast<double>(compressedSize) / static_cast<double>(size);
  char text[32];
  snprintf(text, sizeof text, "%.1f%%", size == 0 ? 0.0 : 100 * (1 - part));
  return text;
}

void Listing::add(const Format& format, const DecodeResult& result, int64_t modificationTime,
                  const std::string& name) {
  if (count_++ == 0) {
    if (isVerbose_) printf("method  crc     date  time  ");
    printf("         compressed        uncompressed  ratio uncompressed_name\n");
  }
  if (isVerbose_) {
    const time_t time = static_cast<time_t>(modificationTime);
    const struct tm* const local = localtime(&time);
    char month[16] = "";
    char date[32] = "";
    if (local != nullptr) {
      strftime(month, sizeof month, "%b", local);
      snprintf(date, sizeof date, "%s %2d %02d:%02d", month, local->tm_mday, local->tm_hour,
               local->tm_min);
    }
    printf("%-5.5s %08" PRIx32 " %-12s ", std::string(format.shortName).c_str(), result.check,
           date);
  }
  printSizes(result.size, result.compressedSize, name);
  totalSize_ += result.size;
  totalCompressedSize_ += result.compressedSize;
}

void Listing::finish() const {
  if (count_ < 2) return;
  if (isVerbose_) printf("%*s", columnsBeforeSizes, "");
  printSizes(totalSize_, totalCompressedSize_, "(totals)");
}

void Listing::printSizes(uint64_t size, uint64_t compressedSize, const std::string& name) const {
  printf("%19" PRIu64 " %19" PRIu64 " %6s %s\n", compressedSize, size,
         savedPercent(size, compressedSize).c_str(), name.c_str());
}

}  // namespace zebz
