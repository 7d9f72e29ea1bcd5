// Whole deflate streams, as the containers around them need them: coded by one or several threads,
// with a running check over the bytes.
#ifndef ZEBZ_DEFLATE_DEFLATE_STREAM_H
#define ZEBZ_DEFLATE_DEFLATE_STREAM_H

#include "deflate/running_check.h"
#include "stream/format.h"

namespace zebz {

// How far back a match may reach: what of a dictionary or of earlier data can be of use.
constexpr size_t deflateWindow = 32768;

// The last of the bytes, as many as a window holds.
Bytes windowOf(Bytes bytes);

// Writes one deflate stream. With several threads the data is cut into pieces that are coded apart,
// each with the window before it as its dictionary, and put together on byte boundaries.
RunningCheck compressDeflate(ByteSource& source, ByteSink& sink, const CompressSettings& settings,
                             CheckKind kind);

// Passes bytes on and checks them.
class CheckingSink final : public ByteSink {
 public:
  CheckingSink(ByteSink& next, CheckKind kind) : next_(next), check_(kind) {}
  void write(Bytes bytes) override {
    check_.update(bytes);
    next_.write(bytes);
  }
  const RunningCheck& check() const { return check_; }

 private:
  ByteSink& next_;
  RunningCheck check_;
};

}  // namespace zebz

#endif
