// The lzop file format: files one after the other, each
//
//   a magic of 9 bytes
//   a header, all its numbers big-endian: version, library version and version needed to extract
//     (16 bits each), method and level (8 each), flags, [filter,] mode, time (low), time (high)
//     (32 each), length of the name (8), the name
//   the checksum of the header
//   [an extra field: its length (32), its bytes, the checksum of both]
//   blocks: length of the data (32), length of the code (32), the checksums of the data that the
//     flags tell of, those of the code, the code; where both lengths are equal the code is the data
//     itself, and has no checksums of its own
//   32 zero bits in the place of a block's length
#include <algorithm>
#include <array>

#include "deflate/running_check.h"
#include "formats/formats.h"
#include "stream/byte_order.h"
#include "zeb/block_coder.h"

namespace zebz {
namespace {

constexpr std::string_view magic{"\x89LZO\0\r\n\x1A\n", 9};

constexpr uint16_t version = 0x1040;
constexpr uint16_t libraryVersion = 0x20A0;
constexpr uint16_t versionNeeded = 0x0940;  // the first with levels and times of 64 bits
constexpr uint8_t methodLzo1x1 = 1;
constexpr uint8_t methodLzo1x999 = 3;  // the last of those whose code is LZO1X
constexpr uint8_t levelOfMethod = 5;   // that goes with the method
constexpr uint32_t plainFileMode = 0100644;
constexpr size_t longestName = 255;

// Bits of the flags.
constexpr uint32_t flagDataAdler32 = 1 << 0;
constexpr uint32_t flagCodeAdler32 = 1 << 1;
constexpr uint32_t flagExtraField = 1 << 6;
constexpr uint32_t flagDataCrc32 = 1 << 8;
constexpr uint32_t flagCodeCrc32 = 1 << 9;
constexpr uint32_t flagMultipart = 1 << 10;
constexpr uint32_t flagFilter = 1 << 11;
constexpr uint32_t flagHeaderCrc32 = 1 << 12;
constexpr uint32_t systemUnix = 3U << 24;

constexpr size_t usualBlock = size_t{256} << 10;
constexpr uint32_t largestBlock = uint32_t{64} << 20;

uint32_t checkOf(CheckKind kind, Bytes bytes) {
  RunningCheck check(kind);
  check.update(bytes);
  return check.value();
}

// ---- Writing

// The library's compressor has one level. Levels of the tool make no difference.
class LzopCompressor final : public Compressor {
 public:
  explicit LzopCompressor(const CompressSettings& settings)
      : original_(settings.original), coder_(makeLzoCoder()) {}

  void compress(ByteSource& source, ByteSink& sink) override {
    sink.write(header());
    std::vector<uint8_t> data(usualBlock);
    while (const size_t count = source.readFully(data)) {
      writeBlock(Bytes(data).first(count), sink);
    }
    std::vector<uint8_t> end;
    appendBigEndian32(end, 0);
    sink.write(end);
  }

 private:
  std::vector<uint8_t> header() const {
    const std::string name = original_.name.size() <= longestName ? original_.name : "";
    std::vector<uint8_t> bytes(magic.begin(), magic.end());
    for (const uint16_t number : {version, libraryVersion, versionNeeded}) {
      appendBigEndian16(bytes, number);
    }
    bytes.push_back(methodLzo1x1);
    bytes.push_back(levelOfMethod);
    for (const uint32_t number :
         {flagDataAdler32 | systemUnix, plainFileMode, original_.modificationTime, uint32_t{0}}) {
      appendBigEndian32(bytes, number);
    }
    bytes.push_back(static_cast<uint8_t>(name.size()));
    bytes.insert(bytes.end(), name.begin(), name.end());
    appendBigEndian32(bytes, checkOf(CheckKind::adler32, Bytes(bytes).subspan(magic.size())));
    return bytes;
  }

  void writeBlock(Bytes data, ByteSink& sink) {
    const bool isCoded = coder_->encode(data, code_);
    const Bytes written = isCoded ? Bytes(code_) : data;
    std::vector<uint8_t> head;
    appendBigEndian32(head, static_cast<uint32_t>(data.size()));
    appendBigEndian32(head, static_cast<uint32_t>(written.size()));
    appendBigEndian32(head, checkOf(CheckKind::adler32, data));
    sink.write(head);
    sink.write(written);
  }

  OriginalFile original_;
  std::unique_ptr<BlockCoder> coder_;
  std::vector<uint8_t> code_;
};

// ---- Reading

// Takes the fields of a header and keeps them for their checksum.
class HeaderReader {
 public:
  explicit HeaderReader(BufferedSource& source) : source_(source) {}

  uint8_t byte() {
    bytes_.push_back(source_.takeByte());
    return bytes_.back();
  }
  uint16_t number16() {
    const unsigned high = byte();
    return static_cast<uint16_t>(high << 8 | byte());
  }
  uint32_t number32() {
    const uint32_t high = number16();
    return high << 16 | number16();
  }
  std::string text(size_t length) {
    std::string text;
    while (text.size() < length) text.push_back(static_cast<char>(byte()));
    return text;
  }
  Bytes bytes() const { return bytes_; }

 private:
  BufferedSource& source_;
  std::vector<uint8_t> bytes_;
};

// The checksums of a kind of bytes, data or code.
using CheckKinds = std::array<CheckKind, 2>;

CheckKinds checkKinds(bool hasAdler32, bool hasCrc32) {
  return {hasAdler32 ? CheckKind::adler32 : CheckKind::none,
          hasCrc32 ? CheckKind::crc32 : CheckKind::none};
}

class LzopDecompressor final : public Decompressor {
 public:
  LzopDecompressor() : coder_(makeLzoCoder()) {}

  OriginalFile readHeader(BufferedSource& source) override {
    for (const char expected : magic) {
      if (source.takeByte() != static_cast<uint8_t>(expected))
        throw DataError("not in lzop format");
    }
    HeaderReader reader(source);
    OriginalFile original = readFields(reader);
    const CheckKind kind = (flags_ & flagHeaderCrc32) != 0 ? CheckKind::crc32 : CheckKind::adler32;
    if (source.takeBigEndian32() != checkOf(kind, reader.bytes())) {
      throw DataError("invalid compressed data--header checksum error");
    }
    if ((flags_ & flagExtraField) != 0) skipExtraField(source, kind);
    return original;
  }

  DecodeResult decompress(BufferedSource& source, ByteSink& sink) override {
    DecodeResult result;
    for (;;) {
      while (const uint32_t size = source.takeBigEndian32()) {
        decodeBlock(size, source, sink);
        result.size += size;
        result.check = check_;
      }
      result.compressedSize = source.position();
      if (!isAtFile(source)) break;
      readHeader(source);
    }
    result.rest = skipRest(source);
    return result;
  }

 private:
  OriginalFile readFields(HeaderReader& reader) {
    const uint16_t writtenBy = reader.number16();
    reader.number16();  // library version
    if (writtenBy < versionNeeded || reader.number16() > version) {
      throw DataError("is of another version -- not supported");
    }
    const uint8_t method = reader.byte();
    if (method < methodLzo1x1 || method > methodLzo1x999) {
      throw DataError("unknown method " + std::to_string(method) + " -- not supported");
    }
    mayHoldOtherCode_ = method == methodLzo1x999;
    reader.byte();  // level
    flags_ = reader.number32();
    if ((flags_ & flagMultipart) != 0) throw DataError("has several parts -- not supported");
    if ((flags_ & flagFilter) != 0 && reader.number32() != 0) {
      throw DataError("has a filter -- not supported");
    }
    reader.number32();  // mode
    OriginalFile original;
    original.modificationTime = reader.number32();
    if (reader.number32() != 0) original.modificationTime = 0;
    original.name = reader.text(reader.byte());
    return original;
  }

  // The length counts among the bytes of its checksum.
  static void skipExtraField(BufferedSource& source, CheckKind kind) {
    HeaderReader reader(source);
    for (uint32_t left = reader.number32(); left > 0; --left) reader.byte();
    if (source.takeBigEndian32() != checkOf(kind, reader.bytes())) {
      throw DataError("invalid compressed data--header checksum error");
    }
  }

  // Nothing of a block that fails a check is passed on.
  void decodeBlock(uint32_t size, BufferedSource& source, ByteSink& sink) {
    const uint32_t codeSize = source.takeBigEndian32();
    if (size > largestBlock || codeSize > size || codeSize == 0) {
      throw DataError("invalid compressed data--format violated");
    }
    const bool isStored = codeSize == size;
    const CheckKinds ofData =
        checkKinds((flags_ & flagDataAdler32) != 0, (flags_ & flagDataCrc32) != 0);
    const CheckKinds ofCode = checkKinds(!isStored && (flags_ & flagCodeAdler32) != 0,
                                         !isStored && (flags_ & flagCodeCrc32) != 0);
    const auto dataChecks = takeChecks(source, ofData);
    const auto codeChecks = takeChecks(source, ofCode);

    source.takeBytes(codeSize, code_);
    expectChecks(ofCode, codeChecks, code_);
    if (isStored) {
      data_.swap(code_);
    } else {
      data_.resize(size);
      if (!coder_->decode(code_, data_)) failCode();
    }
    expectChecks(ofData, dataChecks, data_);
    check_ = dataChecks[ofData[0] == CheckKind::none ? 1 : 0];
    sink.write(data_);
  }

  static std::array<uint32_t, 2> takeChecks(BufferedSource& source, const CheckKinds& kinds) {
    std::array<uint32_t, 2> checks{};
    for (size_t i = 0; i < kinds.size(); ++i) {
      if (kinds[i] != CheckKind::none) checks[i] = source.takeBigEndian32();
    }
    return checks;
  }

  static void expectChecks(const CheckKinds& kinds, const std::array<uint32_t, 2>& expected,
                           Bytes bytes) {
    for (size_t i = 0; i < kinds.size(); ++i) {
      if (kinds[i] != CheckKind::none && checkOf(kinds[i], bytes) != expected[i]) {
        throw DataError("invalid compressed data--checksum error");
      }
    }
  }

  // The thorough compressor of method 3 uses instructions that the library's decoder refuses.
  [[noreturn]] void failCode() const {
    if (mayHoldOtherCode_) {
      throw DataError("is damaged, or has code of lzop -7 to -9 that is not supported");
    }
    throw DataError("invalid compressed data--format violated");
  }

  static bool isAtFile(BufferedSource& source) {
    return source.fillAtLeast(magic.size()) &&
           std::equal(magic.begin(), magic.end(), source.unread().begin(),
                      [](char a, uint8_t b) { return static_cast<uint8_t>(a) == b; });
  }

  std::unique_ptr<BlockCoder> coder_;
  uint32_t flags_ = 0;
  bool mayHoldOtherCode_ = false;
  std::vector<uint8_t> code_;
  std::vector<uint8_t> data_;
  uint32_t check_ = 0;  // of the last block
};

constexpr Suffix suffixes[] = {{".lzo", ""}, {".tzo", ".tar"}};

}  // namespace

const Format lzopFormat = {
    .name = "lzop",
    .shortName = "lzo",
    .magic = magic,
    .suffixes = suffixes,
    .makeCompressor = [](const CompressSettings& settings) -> std::unique_ptr<Compressor> {
      return std::make_unique<LzopCompressor>(settings);
    },
    .makeDecompressor = [](const DecompressSettings&) -> std::unique_ptr<Decompressor> {
      return std::make_unique<LzopDecompressor>();
    },
};

}  // namespace zebz
