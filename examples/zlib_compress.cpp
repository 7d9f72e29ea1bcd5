// Compresses standard input into a zlib stream (RFC 1950) on standard output.
//
//   zlib_compress [LEVEL] < FILE > FILE.zz     LEVEL is 0 (fastest) to 9 (smallest)

#include <zebdc/zebdc.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <vector>

#include "binary_streams.h"
#include "stream_deflater.h"

namespace {

void writeOut(const uint8_t* bytes, size_t count) {
  if (std::fwrite(bytes, 1, count, stdout) != count) throw std::runtime_error("cannot write");
}

void compress(int level) {
  constexpr uint8_t header[] = {0x78, 0x9C};  // deflate with a 32 KiB window, no dictionary
  writeOut(header, sizeof header);

  uint32_t adler = 0;
  zebsAdler32_8u(nullptr, 0, &adler);  // stores the start value
  StreamDeflater deflater(level, writeOut);
  std::vector<uint8_t> piece(1 << 18);
  while (const size_t count = std::fread(piece.data(), 1, piece.size(), stdin)) {
    zebsAdler32_8u(piece.data(), static_cast<int>(count), &adler);
    deflater.write(piece.data(), count);
  }
  if (std::ferror(stdin)) throw std::runtime_error("cannot read");
  deflater.finish();

  uint8_t trailer[4];
  for (int i = 0; i < 4; ++i) trailer[i] = static_cast<uint8_t>(adler >> (24 - 8 * i));
  writeOut(trailer, sizeof trailer);
}

}  // namespace

int main(int argc, char** argv) {
  const int level = argc > 1 ? std::atoi(argv[1]) : 6;
  if (argc > 2 || level < 0 || level > 9) {
    std::fprintf(stderr, "usage: zlib_compress [0-9] < FILE > FILE.zz\n");
    return 2;
  }
  useBinaryStreams();
  try {
    compress(level);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zlib_compress: %s\n", error.what());
    return 1;
  }
  return 0;
}
