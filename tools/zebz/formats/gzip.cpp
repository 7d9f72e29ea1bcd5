// The gzip file format, RFC 1952: members one after the other, each a header, a deflate stream, the
// CRC-32 of the data and its length modulo 2^32.
#include "deflate/deflate_decoder.h"
#include "deflate/deflate_stream.h"
#include "formats/formats.h"
#include "stream/byte_order.h"
#include "system/platform.h"

namespace zebz {
namespace {

constexpr uint8_t id1 = 0x1F;
constexpr uint8_t id2 = 0x8B;
constexpr uint8_t methodDeflate = 8;
constexpr size_t longestText = 4096;
constexpr uint8_t extraFlagsSmallest = 2;
constexpr uint8_t extraFlagsFastest = 4;

// Bits of FLG.
constexpr uint8_t flagHeaderCrc = 1 << 1;
constexpr uint8_t flagExtra = 1 << 2;
constexpr uint8_t flagName = 1 << 3;
constexpr uint8_t flagComment = 1 << 4;
constexpr uint8_t flagsReserved = 0xE0;

class GzipCompressor final : public Compressor {
 public:
  explicit GzipCompressor(const CompressSettings& settings) : settings_(settings) {}

  void compress(ByteSource& source, ByteSink& sink) override {
    sink.write(header());
    const RunningCheck check = compressDeflate(source, sink, settings_, CheckKind::crc32);
    std::vector<uint8_t> trailer;
    appendLittleEndian32(trailer, check.value());
    appendLittleEndian32(trailer, static_cast<uint32_t>(check.length()));
    sink.write(trailer);
  }

 private:
  std::vector<uint8_t> header() const {
    const std::string& name = settings_.original.name;
    std::vector<uint8_t> bytes = {id1, id2, methodDeflate, name.empty() ? uint8_t{0} : flagName};
    appendLittleEndian32(bytes, settings_.original.modificationTime);
    bytes.push_back(settings_.level == 1   ? extraFlagsFastest
                    : settings_.level == 9 ? extraFlagsSmallest
                                           : 0);
    bytes.push_back(platform::gzipSystemCode);
    if (!name.empty()) {
      bytes.insert(bytes.end(), name.begin(), name.end());
      bytes.push_back(0);
    }
    return bytes;
  }

  CompressSettings settings_;
};

// Takes the fields of a header and keeps their CRC.
class HeaderReader {
 public:
  explicit HeaderReader(BufferedSource& source) : source_(source) {}

  uint8_t byte() {
    const uint8_t value = source_.takeByte();
    crc_.update({&value, 1});
    return value;
  }
  uint16_t littleEndian16() {
    const uint8_t low = byte();
    return static_cast<uint16_t>(low | byte() << 8);
  }
  uint32_t littleEndian32() {
    const uint32_t low = littleEndian16();
    return low | static_cast<uint32_t>(littleEndian16()) << 16;
  }
  // Keeps the start alone of a text longer than any that is of use.
  std::string zeroTerminated() {
    std::string text;
    while (const uint8_t value = byte()) {
      if (text.size() < longestText) text.push_back(static_cast<char>(value));
    }
    return text;
  }
  uint32_t crc() const { return crc_.value(); }

 private:
  BufferedSource& source_;
  RunningCheck crc_{CheckKind::crc32};
};

OriginalFile readMemberHeader(BufferedSource& source) {
  HeaderReader reader(source);
  if (reader.byte() != id1 || reader.byte() != id2) throw DataError("not in gzip format");
  const uint8_t method = reader.byte();
  if (method != methodDeflate) {
    throw DataError("unknown method " + std::to_string(method) + " -- not supported");
  }
  const uint8_t flags = reader.byte();
  if ((flags & flagsReserved) != 0) throw DataError("has reserved flags set -- not supported");

  OriginalFile original;
  original.modificationTime = reader.littleEndian32();
  reader.littleEndian16();  // extra flags and operating system
  if ((flags & flagExtra) != 0) {
    for (int left = reader.littleEndian16(); left > 0; --left) reader.byte();
  }
  if ((flags & flagName) != 0) original.name = reader.zeroTerminated();
  if ((flags & flagComment) != 0) reader.zeroTerminated();
  if ((flags & flagHeaderCrc) != 0) {
    const uint16_t expected = static_cast<uint16_t>(reader.crc());
    if (source.takeLittleEndian16() != expected) {
      throw DataError("invalid compressed data--header crc error");
    }
  }
  return original;
}

class GzipDecompressor final : public Decompressor {
 public:
  OriginalFile readHeader(BufferedSource& source) override { return readMemberHeader(source); }

  DecodeResult decompress(BufferedSource& source, ByteSink& sink) override {
    DecodeResult result;
    for (;;) {
      decodeMember(source, sink, result);
      result.compressedSize = source.position();
      if (!atMember(source)) break;
      readMemberHeader(source);
      decoder_.restart({});
    }
    result.rest = skipRest(source);
    return result;
  }

 private:
  void decodeMember(BufferedSource& source, ByteSink& sink, DecodeResult& result) {
    CheckingSink checking(sink, CheckKind::crc32);
    decoder_.decode(source, checking);
    const RunningCheck& check = checking.check();
    if (source.takeLittleEndian32() != check.value()) {
      throw DataError("invalid compressed data--crc error");
    }
    if (source.takeLittleEndian32() != static_cast<uint32_t>(check.length())) {
      throw DataError("invalid compressed data--length error");
    }
    result.check = check.value();
    result.size += check.length();
  }

  static bool atMember(BufferedSource& source) {
    return source.fillAtLeast(2) && source.unread()[0] == id1 && source.unread()[1] == id2;
  }

  DeflateDecoder decoder_;
};

constexpr Suffix suffixes[] = {{".gz", ""}, {".tgz", ".tar"}, {".taz", ".tar"}, {"-gz", ""},
                               {".z", ""},  {"-z", ""},       {"_z", ""}};

}  // namespace

const Format gzipFormat = {
    .name = "gzip",
    .shortName = "defla",
    .magic = "\x1F\x8B",
    .suffixes = suffixes,
    .takesDictionary = false,
    .makeCompressor = [](const CompressSettings& settings) -> std::unique_ptr<Compressor> {
      return std::make_unique<GzipCompressor>(settings);
    },
    .makeDecompressor = [](const DecompressSettings&) -> std::unique_ptr<Decompressor> {
      return std::make_unique<GzipDecompressor>();
    },
};

}  // namespace zebz
