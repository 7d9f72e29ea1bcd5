#include "deflate/deflate_stream.h"

#include <algorithm>

#include "deflate/deflate_encoder.h"
#include "stream/ordered_pieces.h"

namespace zebz {
namespace {

constexpr size_t pieceSize = size_t{1} << 20;

RunningCheck compressOnOneThread(ByteSource& source, ByteSink& sink,
                                 const CompressSettings& settings, CheckKind kind) {
  DeflateEncoder encoder(settings.level);
  if (!settings.dictionary.empty()) encoder.restart(windowOf(settings.dictionary));
  RunningCheck check(kind);
  std::vector<uint8_t> buffer(pieceSize);
  size_t count;
  do {
    count = source.readFully(buffer);
    const Bytes bytes(buffer.data(), count);
    const bool isLast = count < buffer.size();
    encoder.encode(bytes, isLast ? DeflateEncoder::Ending::final : DeflateEncoder::Ending::open,
                   sink);
    check.update(bytes);
  } while (count == buffer.size());
  return check;
}

// The window before a piece and the piece itself, one after the other, and what becomes of it.
struct Piece {
  std::vector<uint8_t> buffer;
  size_t windowLength = 0;
  size_t length = 0;
  bool isLast = false;
  MemorySink coded;
  RunningCheck check{CheckKind::none};

  Bytes window() const { return Bytes(buffer).first(windowLength); }
  Bytes bytes() const { return Bytes(buffer).subspan(windowLength, length); }
};

class PieceReader {
 public:
  PieceReader(ByteSource& source, Bytes dictionary)
      : source_(source), window_(dictionary.begin(), dictionary.end()) {}

  bool operator()(Piece& piece) {
    if (done_) return false;
    piece.buffer.resize(deflateWindow + pieceSize);
    piece.windowLength = window_.size();
    std::copy(window_.begin(), window_.end(), piece.buffer.begin());
    piece.length = source_.readFully(ByteRoom(piece.buffer).subspan(piece.windowLength, pieceSize));
    piece.isLast = done_ = piece.length < pieceSize;
    const Bytes next = windowOf(piece.bytes());
    window_.assign(next.begin(), next.end());
    return true;
  }

 private:
  ByteSource& source_;
  std::vector<uint8_t> window_;
  bool done_ = false;
};

class PieceCoder {
 public:
  PieceCoder(int level, CheckKind kind) : encoder_(level), kind_(kind) {}

  void operator()(Piece& piece) {
    piece.coded.clear();
    encoder_.restart(piece.window());
    encoder_.encode(piece.bytes(),
                    piece.isLast ? DeflateEncoder::Ending::final : DeflateEncoder::Ending::aligned,
                    piece.coded);
    piece.check = RunningCheck(kind_);
    piece.check.update(piece.bytes());
  }

 private:
  DeflateEncoder encoder_;
  CheckKind kind_;
};

RunningCheck compressOnManyThreads(ByteSource& source, ByteSink& sink,
                                   const CompressSettings& settings, CheckKind kind) {
  RunningCheck check(kind);
  processInOrder<Piece>(
      settings.threads, PieceReader(source, windowOf(settings.dictionary)),
      [&] { return PieceCoder(settings.level, kind); },
      [&](const Piece& piece) {
        sink.write(piece.coded.bytes());
        check.append(piece.check);
      });
  return check;
}

}  // namespace

Bytes windowOf(Bytes bytes) {
  return bytes.last(std::min(bytes.size(), deflateWindow));
}

RunningCheck compressDeflate(ByteSource& source, ByteSink& sink, const CompressSettings& settings,
                             CheckKind kind) {
  return settings.threads > 1 ? compressOnManyThreads(source, sink, settings, kind)
                              : compressOnOneThread(source, sink, settings, kind);
}

}  // namespace zebz
