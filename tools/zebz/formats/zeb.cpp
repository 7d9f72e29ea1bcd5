// The library's own container for its own coders; docs/zeb-format.md describes it.
#include <zebdc/zebdc.h>

#include <algorithm>
#include <string>

#include "formats/formats.h"
#include "library_record.h"
#include "stream/byte_order.h"
#include "zeb/block_coder.h"

namespace zebz {
namespace {

constexpr std::string_view magic = "ZEB\x1A";
constexpr std::string_view methodNames[] = {"huff", "git", "lzss", "rle", "lzo"};

// The largest block that a file may hold.
constexpr uint32_t contentLimit = 1 << 20;

uint32_t checkOf(Bytes content) {
  uint32_t check = 0xFFFFFFFFu;
  expectNoError(zebsCRC32C_8u(content.data(), static_cast<uint32_t>(content.size()), &check));
  return ~check;
}

class ZebCompressor final : public Compressor {
 public:
  explicit ZebCompressor(const CompressSettings& settings)
      : method_(*blockMethodNamed(settings.method)), coder_(method_.make()) {}

  void compress(ByteSource& source, ByteSink& sink) override {
    std::vector<uint8_t> header(magic.begin(), magic.end());
    header.push_back(method_.number);
    sink.write(header);

    std::vector<uint8_t> content(coder_->maxContent());
    uint64_t total = 0;
    while (const size_t count = source.readFully(content)) {
      writeBlock(Bytes(content).first(count), sink);
      total += count;
    }
    writeEnd(total, sink);
  }

 private:
  void writeBlock(Bytes content, ByteSink& sink) {
    const bool coded = coder_->encode(content, code_);
    const Bytes written = coded ? Bytes(code_) : content;
    std::vector<uint8_t> header;
    appendLittleEndian32(header, static_cast<uint32_t>(content.size()));
    appendLittleEndian32(header, static_cast<uint32_t>(written.size()));
    appendLittleEndian32(header, checkOf(content));
    sink.write(header);
    sink.write(written);
  }

  static void writeEnd(uint64_t total, ByteSink& sink) {
    std::vector<uint8_t> end;
    appendLittleEndian32(end, 0);
    appendLittleEndian32(end, static_cast<uint32_t>(total));
    appendLittleEndian32(end, static_cast<uint32_t>(total >> 32));
    sink.write(end);
  }

  const BlockMethod& method_;
  std::unique_ptr<BlockCoder> coder_;
  std::vector<uint8_t> code_;
};

class ZebDecompressor final : public Decompressor {
 public:
  OriginalFile readHeader(BufferedSource& source) override {
    for (const char expected : magic) {
      if (source.takeByte() != static_cast<uint8_t>(expected)) throw DataError("not in zeb format");
    }
    const uint8_t number = source.takeByte();
    const BlockMethod* const method = blockMethodNumbered(number);
    if (method == nullptr) throw DataError("unknown method " + std::to_string(number));
    coder_ = method->make();
    return {};
  }

  DecodeResult decompress(BufferedSource& source, ByteSink& sink) override {
    DecodeResult result;
    while (const uint32_t size = source.takeLittleEndian32()) {
      result.check = decodeBlock(size, source, sink);
      result.size += size;
    }
    const uint64_t low = source.takeLittleEndian32();
    const uint64_t high = source.takeLittleEndian32();
    if ((high << 32 | low) != result.size) throw DataError("length error");
    result.compressedSize = source.position();
    result.rest = skipRest(source);
    return result;
  }

 private:
  // Nothing of a block that fails its check is passed on. Returns its check.
  uint32_t decodeBlock(uint32_t size, BufferedSource& source, ByteSink& sink) {
    const uint32_t codeSize = source.takeLittleEndian32();
    const uint32_t check = source.takeLittleEndian32();
    if (size > contentLimit || codeSize > size || codeSize == 0) {
      throw DataError("invalid block sizes");
    }
    source.takeBytes(codeSize, code_);
    if (codeSize == size) {
      content_ = code_;
    } else {
      content_.resize(size);
      if (!coder_->decode(code_, content_)) throw DataError("invalid compressed data");
    }
    if (checkOf(content_) != check) throw DataError("crc error");
    sink.write(content_);
    return check;
  }

  std::unique_ptr<BlockCoder> coder_;
  std::vector<uint8_t> code_;
  std::vector<uint8_t> content_;
};

constexpr Suffix suffixes[] = {{".zeb", ""}};

}  // namespace

const Format zebFormat = {
    .name = "zeb",
    .shortName = "zeb",
    .magic = magic,
    .suffixes = suffixes,
    .methods = methodNames,
    .makeCompressor = [](const CompressSettings& settings) -> std::unique_ptr<Compressor> {
      return std::make_unique<ZebCompressor>(settings);
    },
    .makeDecompressor = [](const DecompressSettings&) -> std::unique_ptr<Decompressor> {
      return std::make_unique<ZebDecompressor>();
    },
};

}  // namespace zebz
