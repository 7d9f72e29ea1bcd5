// What the tool knows of a file format, and the two stream adapters that each format provides.
//
// To add a format: write formats/<name>.cpp with its adapters and its Format record, declare the
// record in formats/formats.h and list it in formats/formats.cpp. Options, suffixes, detection and
// listing follow from the record.
#ifndef ZEBZ_STREAM_FORMAT_H
#define ZEBZ_STREAM_FORMAT_H

#include <stdint.h>

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "stream/buffered_source.h"
#include "stream/byte_stream.h"

namespace zebz {

// What a container may say of the file inside it.
struct OriginalFile {
  std::string name;               // without folders; empty: not stored
  uint32_t modificationTime = 0;  // seconds since 1970; 0: not stored
};

struct CompressSettings {
  int level = 6;  // 1 (fast) to 9 (small)
  unsigned threads = 1;
  OriginalFile original;
  std::vector<uint8_t> dictionary;
  std::string_view method;  // one of the format's, where it has any
};

struct DecompressSettings {
  unsigned threads = 1;  // of use to the formats whose parts can be decoded apart
  std::vector<uint8_t> dictionary;
};

// How a file was found to end, and what its format tells of it.
struct DecodeResult {
  enum class Rest { none, zeros, garbage };
  Rest rest = Rest::none;       // what followed the last member
  uint64_t compressedSize = 0;  // without that rest
  uint64_t size = 0;
  uint32_t check = 0;  // the checksum of the last member, where the format has one
};

// Reads to the end of the input. Tapes and block devices pad files with zeros.
DecodeResult::Rest skipRest(BufferedSource& source);

// Both adapters work with memory of a fixed size, however long the stream.
class Compressor {
 public:
  virtual ~Compressor() = default;
  virtual void compress(ByteSource& source, ByteSink& sink) = 0;
};

// Decodes all members of a file. Throws DataError for anything that the format forbids.
class Decompressor {
 public:
  virtual ~Decompressor() = default;

  // Reads the first header and tells what it says of the original file. Called once, first.
  virtual OriginalFile readHeader(BufferedSource& source) = 0;
  virtual DecodeResult decompress(BufferedSource& source, ByteSink& sink) = 0;
};

// A file name's ending in this format, and what takes its place when the file is decompressed:
// ".gz" and "", ".tgz" and ".tar". The first of a format is the one that compression appends.
struct Suffix {
  std::string_view compressed;
  std::string_view original;
};

struct Format {
  std::string_view name;       // as --format takes it
  std::string_view shortName;  // as --list prints it
  std::string_view magic;      // the first bytes of every file; empty: the format has none
  std::span<const Suffix> suffixes;
  bool takesDictionary = false;
  int defaultLevel = 6;
  std::span<const std::string_view> methods = {};  // as --method takes them; the first by default

  std::unique_ptr<Compressor> (*makeCompressor)(const CompressSettings& settings);
  std::unique_ptr<Decompressor> (*makeDecompressor)(const DecompressSettings& settings);
};

}  // namespace zebz

#endif
