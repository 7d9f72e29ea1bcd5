// The checksum and length of a stream, taken as its bytes pass or put together from its pieces.
#ifndef ZEBZ_DEFLATE_RUNNING_CHECK_H
#define ZEBZ_DEFLATE_RUNNING_CHECK_H

#include "stream/byte_stream.h"

namespace zebz {

enum class CheckKind { none, adler32, crc32 };

class RunningCheck {
 public:
  explicit RunningCheck(CheckKind kind) : kind_(kind), value_(kind == CheckKind::adler32 ? 1 : 0) {}

  void update(Bytes bytes);

  // Continues with the bytes that `next`, a check of the same kind, was taken of on its own.
  void append(const RunningCheck& next);

  CheckKind kind() const { return kind_; }
  uint32_t value() const { return value_; }
  uint64_t length() const { return length_; }

 private:
  CheckKind kind_;
  uint32_t value_;
  uint64_t length_ = 0;
};

}  // namespace zebz

#endif
