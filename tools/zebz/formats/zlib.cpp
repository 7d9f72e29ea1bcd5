// The zlib stream format, RFC 1950: two bytes of header, the identification of a preset dictionary
// where one is used, a deflate stream, the Adler-32 of the data.
#include "deflate/deflate_decoder.h"
#include "deflate/deflate_stream.h"
#include "formats/formats.h"
#include "stream/byte_order.h"

namespace zebz {
namespace {

constexpr uint8_t methodDeflate = 8;
constexpr uint8_t largestWindow = 7;  // CINFO: log2 of the window's size, less 8
constexpr uint8_t flagDictionary = 1 << 5;
constexpr unsigned checkModulus = 31;

uint32_t adler32(Bytes bytes) {
  RunningCheck check(CheckKind::adler32);
  check.update(bytes);
  return check.value();
}

// FLEVEL, bits 6 and 7 of FLG: a hint at how hard the encoder tried, 2 being the default.
constexpr uint8_t levelFlags(int level) {
  const int hint = level == 1 ? 0 : level <= 5 ? 1 : level == 6 ? 2 : 3;
  return static_cast<uint8_t>(hint << 6);
}

class ZlibCompressor final : public Compressor {
 public:
  explicit ZlibCompressor(const CompressSettings& settings) : settings_(settings) {}

  void compress(ByteSource& source, ByteSink& sink) override {
    sink.write(header());
    const RunningCheck check = compressDeflate(source, sink, settings_, CheckKind::adler32);
    std::vector<uint8_t> trailer;
    appendBigEndian32(trailer, check.value());
    sink.write(trailer);
  }

 private:
  std::vector<uint8_t> header() const {
    const uint8_t method = largestWindow << 4 | methodDeflate;
    uint8_t flags = levelFlags(settings_.level);
    if (!settings_.dictionary.empty()) flags |= flagDictionary;
    const unsigned remainder = (method * 256U + flags) % checkModulus;
    flags = static_cast<uint8_t>(flags + checkModulus - remainder);

    std::vector<uint8_t> bytes = {method, flags};
    if (!settings_.dictionary.empty()) appendBigEndian32(bytes, adler32(settings_.dictionary));
    return bytes;
  }

  CompressSettings settings_;
};

class ZlibDecompressor final : public Decompressor {
 public:
  explicit ZlibDecompressor(const DecompressSettings& settings)
      : dictionary_(settings.dictionary) {}

  OriginalFile readHeader(BufferedSource& source) override {
    const uint8_t method = source.takeByte();
    const uint8_t flags = source.takeByte();
    if ((method * 256U + flags) % checkModulus != 0 || (method & 15) != methodDeflate ||
        method >> 4 > largestWindow) {
      throw DataError("not in zlib format");
    }
    if ((flags & flagDictionary) != 0) useDictionary(source.takeBigEndian32());
    return {};
  }

  DecodeResult decompress(BufferedSource& source, ByteSink& sink) override {
    CheckingSink checking(sink, CheckKind::adler32);
    decoder_.decode(source, checking);
    if (source.takeBigEndian32() != checking.check().value()) {
      throw DataError("invalid compressed data--adler32 error");
    }
    DecodeResult result;
    result.check = checking.check().value();
    result.size = checking.check().length();
    result.compressedSize = source.position();
    result.rest = skipRest(source);
    return result;
  }

 private:
  void useDictionary(uint32_t identification) {
    if (dictionary_.empty()) throw DataError("needs a dictionary (--dict)");
    if (adler32(dictionary_) != identification) throw DataError("needs another dictionary");
    decoder_.restart(windowOf(dictionary_));
  }

  std::vector<uint8_t> dictionary_;
  DeflateDecoder decoder_;
};

constexpr Suffix suffixes[] = {{".zz", ""}, {".zlib", ""}};

}  // namespace

const Format zlibFormat = {
    .name = "zlib",
    .shortName = "zlib",
    .magic = "",
    .suffixes = suffixes,
    .takesDictionary = true,
    .makeCompressor = [](const CompressSettings& settings) -> std::unique_ptr<Compressor> {
      return std::make_unique<ZlibCompressor>(settings);
    },
    .makeDecompressor = [](const DecompressSettings& settings) -> std::unique_ptr<Decompressor> {
      return std::make_unique<ZlibDecompressor>(settings);
    },
};

}  // namespace zebz
