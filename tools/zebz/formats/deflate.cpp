// The bare deflate stream, RFC 1951: no header, no checksum.
#include "deflate/deflate_decoder.h"
#include "deflate/deflate_stream.h"
#include "formats/formats.h"

namespace zebz {
namespace {

class DeflateCompressor final : public Compressor {
 public:
  explicit DeflateCompressor(const CompressSettings& settings) : settings_(settings) {}

  void compress(ByteSource& source, ByteSink& sink) override {
    compressDeflate(source, sink, settings_, CheckKind::none);
  }

 private:
  CompressSettings settings_;
};

class DeflateDecompressor final : public Decompressor {
 public:
  OriginalFile readHeader(BufferedSource&) override { return {}; }

  DecodeResult decompress(BufferedSource& source, ByteSink& sink) override {
    CheckingSink counting(sink, CheckKind::none);
    decoder_.decode(source, counting);
    DecodeResult result;
    result.size = counting.check().length();
    result.compressedSize = source.position();
    result.rest = skipRest(source);
    return result;
  }

 private:
  DeflateDecoder decoder_;
};

constexpr Suffix suffixes[] = {{".deflate", ""}};

}  // namespace

const Format deflateFormat = {
    .name = "deflate",
    .shortName = "raw",
    .magic = "",
    .suffixes = suffixes,
    .takesDictionary = false,
    .makeCompressor = [](const CompressSettings& settings) -> std::unique_ptr<Compressor> {
      return std::make_unique<DeflateCompressor>(settings);
    },
    .makeDecompressor = [](const DecompressSettings&) -> std::unique_ptr<Decompressor> {
      return std::make_unique<DeflateDecompressor>();
    },
};

}  // namespace zebz
