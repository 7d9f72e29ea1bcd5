#include "bzip2/chunked_input.h"

#include <algorithm>

namespace zebz {
namespace {

constexpr size_t chunkSize = size_t{128} << 10;

std::vector<uint8_t> takeChunk(BufferedSource& source) {
  std::vector<uint8_t> chunk;
  chunk.reserve(chunkSize);
  while (chunk.size() < chunkSize && source.fill()) {
    const size_t count = std::min(source.unread().size(), chunkSize - chunk.size());
    const Bytes bytes = source.unread().first(count);
    chunk.insert(chunk.end(), bytes.begin(), bytes.end());
    source.skip(count);
  }
  return chunk;
}

}  // namespace

ChunkedInput::ChunkedInput(BufferedSource& source)
    : source_(source), start_(source.position()), end_(start_) {}

bool ChunkedInput::readOn() {
  std::vector<uint8_t> chunk = takeChunk(source_);
  if (chunk.empty()) return false;
  end_ += chunk.size();
  chunks_.push_back(std::make_shared<const std::vector<uint8_t>>(std::move(chunk)));
  return true;
}

bool ChunkedInput::readUpTo(uint64_t position) {
  while (end_ < position) {
    if (!readOn()) return false;
  }
  return true;
}

uint8_t ChunkedInput::byteAt(uint64_t position) const {
  return chunkFrom(position).front();
}

Bytes ChunkedInput::chunkFrom(uint64_t position) const {
  return Bytes(*chunks_[chunkIndex(position)]).subspan((position - start_) % chunkSize);
}

ChunkSpan ChunkedInput::span(uint64_t begin, uint64_t end) const {
  ChunkSpan span;
  span.offset = (begin - start_) % chunkSize;
  const auto first = chunks_.begin() + static_cast<ptrdiff_t>(chunkIndex(begin));
  const size_t count = (span.offset + (end - begin) + chunkSize - 1) / chunkSize;
  span.chunks.assign(first, first + static_cast<ptrdiff_t>(count));
  return span;
}

void ChunkedInput::dropBefore(uint64_t position) {
  while (chunks_.size() > 1 && position - start_ >= chunkSize) {
    start_ += chunkSize;
    chunks_.pop_front();
  }
}

size_t ChunkedInput::chunkIndex(uint64_t position) const {
  return static_cast<size_t>((position - start_) / chunkSize);
}

}  // namespace zebz
