// The bzip2 file format; bzip2/bzip2_format.h describes it.
#include "bzip2/block_encoder.h"
#include "bzip2/bzip2_format.h"
#include "bzip2/stream_decoder.h"
#include "formats/formats.h"
#include "stream/ordered_pieces.h"

namespace zebz {
namespace {

class Bzip2Compressor final : public Compressor {
 public:
  explicit Bzip2Compressor(const CompressSettings& settings)
      : level_(settings.level), threads_(settings.threads) {}

  void compress(ByteSource& source, ByteSink& sink) override {
    BitWriter out;
    for (const char byte : bzip2Signature) out.put(static_cast<uint8_t>(byte), 8);
    out.put(static_cast<uint8_t>('0' + level_), 8);
    uint32_t streamCrc = 0;
    processInOrder<Bzip2Block>(
        threads_, Bzip2BlockCutter(source, level_), [&] { return Bzip2BlockEncoder(level_); },
        [&](const Bzip2Block& block) {
          out.append(block.coded);
          streamCrc = combineBzip2Crc(streamCrc, block.crc);
          sink.write(out.bytes());
          out.dropBytes();
        });
    out.put(bzip2EndMagic, bzip2MagicBits);
    out.put(streamCrc, bzip2CrcBits);
    out.padToByte();
    sink.write(out.bytes());
  }

 private:
  int level_;
  unsigned threads_;
};

class Bzip2Decompressor final : public Decompressor {
 public:
  explicit Bzip2Decompressor(const DecompressSettings& settings) : threads_(settings.threads) {}

  OriginalFile readHeader(BufferedSource& source) override {
    level_ = takeBzip2Header(source);
    if (level_ == 0) throw DataError("not in bzip2 format");
    return {};
  }

  DecodeResult decompress(BufferedSource& source, ByteSink& sink) override {
    return decodeBzip2(level_, threads_, source, sink);
  }

 private:
  int level_ = 0;
  unsigned threads_;
};

constexpr Suffix suffixes[] = {{".bz2", ""}, {".bz", ""}, {".tbz2", ".tar"}, {".tbz", ".tar"}};

}  // namespace

const Format bzip2Format = {
    .name = "bzip2",
    .shortName = "bzip2",
    .magic = bzip2Signature,
    .suffixes = suffixes,
    .defaultLevel = bzip2HighestLevel,
    .makeCompressor = [](const CompressSettings& settings) -> std::unique_ptr<Compressor> {
      return std::make_unique<Bzip2Compressor>(settings);
    },
    .makeDecompressor = [](const DecompressSettings& settings) -> std::unique_ptr<Decompressor> {
      return std::make_unique<Bzip2Decompressor>(settings);
    },
};

}  // namespace zebz
