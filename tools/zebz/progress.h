// A line on the terminal that shows how far long work has come.
#ifndef ZEBZ_PROGRESS_H
#define ZEBZ_PROGRESS_H

#include <chrono>
#include <string>

#include "stream/byte_stream.h"

namespace zebz {

// Passes on what it reads and shows how much that is. Silent for the first second, and unless
// enabled.
class ProgressSource final : public ByteSource {
 public:
  // A total of 0 means that it is not known.
  ProgressSource(ByteSource& source, std::string name, uint64_t total, bool isEnabled);
  ~ProgressSource() override;
  ProgressSource(const ProgressSource&) = delete;
  ProgressSource& operator=(const ProgressSource&) = delete;

  size_t read(ByteRoom room) override;
  uint64_t bytesRead() const { return bytesRead_; }

 private:
  using Clock = std::chrono::steady_clock;
  void show(Clock::time_point now);
  void print(const std::string& line);

  ByteSource& source_;
  std::string name_;
  uint64_t total_;
  bool isEnabled_;
  uint64_t bytesRead_ = 0;
  Clock::time_point start_ = Clock::now();
  Clock::time_point nextUpdate_ = start_ + std::chrono::seconds(1);
  size_t lineLength_ = 0;
};

}  // namespace zebz

#endif
