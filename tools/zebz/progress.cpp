#include "progress.h"

#include <stdio.h>

#include <algorithm>
#include <utility>

namespace zebz {
namespace {

constexpr auto updateInterval = std::chrono::milliseconds(200);
constexpr size_t longestName = 40;

}  // namespace

ProgressSource::ProgressSource(ByteSource& source, std::string name, uint64_t total, bool isEnabled)
    : source_(source), name_(std::move(name)), total_(total), isEnabled_(isEnabled) {
  if (name_.size() > longestName) name_ = "..." + name_.substr(name_.size() - longestName + 3);
}

ProgressSource::~ProgressSource() {
  if (lineLength_ != 0) fprintf(stderr, "\r%*s\r", static_cast<int>(lineLength_), "");
}

size_t ProgressSource::read(ByteRoom room) {
  const size_t count = source_.read(room);
  bytesRead_ += count;
  if (isEnabled_) {
    const auto now = Clock::now();
    if (now >= nextUpdate_) show(now);
  }
  return count;
}

void ProgressSource::show(Clock::time_point now) {
  nextUpdate_ = now + updateInterval;
  const double megabytes = static_cast<double>(bytesRead_) / 1e6;
  const double seconds = std::chrono::duration<double>(now - start_).count();
  char text[128];
  if (total_ != 0) {
    const double share = static_cast<double>(bytesRead_) / static_cast<double>(total_);
    snprintf(text, sizeof text, "%s: %3.0f %%  %.0f MB  %.0f MB/s", name_.c_str(),
             100 * std::min(share, 1.0), megabytes, megabytes / seconds);
  } else {
    snprintf(text, sizeof text, "%s: %.0f MB  %.0f MB/s", name_.c_str(), megabytes,
             megabytes / seconds);
  }
  print(text);
}

void ProgressSource::print(const std::string& line) {
  const size_t padding = lineLength_ > line.size() ? lineLength_ - line.size() : 0;
  fprintf(stderr, "\r%s%*s", line.c_str(), static_cast<int>(padding), "");
  fflush(stderr);
  lineLength_ = line.size();
}

}  // namespace zebz
