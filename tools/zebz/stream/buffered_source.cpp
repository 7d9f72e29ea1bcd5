#include "stream/buffered_source.h"

#include <string.h>

#include <algorithm>

namespace zebz {
namespace {

constexpr size_t bufferSize = size_t{256} << 10;

}  // namespace

BufferedSource::BufferedSource(ByteSource& source)
    : source_(source),
      buffer_(keptBytes + bufferSize),
      cursor_(buffer_.data() + keptBytes),
      end_(cursor_) {}

bool BufferedSource::fillAtLeast(size_t count) {
  if (unread().size() >= count) return true;
  uint8_t* const start = buffer_.data() + keptBytes;
  size_t filled = unread().size();
  memmove(buffer_.data(), cursor_ - keptBytes, keptBytes + filled);
  cursor_ = start;
  while (filled < count) {
    const size_t added = source_.read({start + filled, bufferSize - filled});
    if (added == 0) break;
    filled += added;
    bytesRead_ += added;
  }
  end_ = start + filled;
  return filled >= count;
}

uint8_t BufferedSource::takeByte() {
  if (!fill()) failUnexpectedEnd();
  return *cursor_++;
}

uint16_t BufferedSource::takeLittleEndian16() {
  const uint16_t low = takeByte();
  return static_cast<uint16_t>(low | takeByte() << 8);
}

uint32_t BufferedSource::takeLittleEndian32() {
  const uint32_t low = takeLittleEndian16();
  return low | static_cast<uint32_t>(takeLittleEndian16()) << 16;
}

uint32_t BufferedSource::takeBigEndian32() {
  uint32_t value = 0;
  for (int i = 0; i < 4; ++i) value = value << 8 | takeByte();
  return value;
}

void BufferedSource::takeBytes(size_t count, std::vector<uint8_t>& bytes) {
  bytes.clear();
  while (bytes.size() < count) {
    if (!fill()) failUnexpectedEnd();
    const Bytes part = unread().first(std::min(unread().size(), count - bytes.size()));
    bytes.insert(bytes.end(), part.begin(), part.end());
    skip(part.size());
  }
}

}  // namespace zebz
