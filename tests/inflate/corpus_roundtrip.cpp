// Puts files through zlib's deflate, at every level and strategy, and through both ways of
// decoding:
//
//   inflate_corpus_roundtrip [--seconds=N] [--limit=BYTES] FILE-OR-FOLDER ...
//
// Files are cut to the limit (1 MiB). After N seconds no further file is begun. Ends with 1 when a
// stream did not come out right. Not one of the tests that run by themselves: it takes long.

#include <stdio.h>
#include <zlib.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "inflate/drivers.h"
#include "inflate/streams.h"

namespace {

using namespace zebdc::test;
using Clock = std::chrono::steady_clock;

struct Options {
  std::chrono::seconds time{1 << 30};
  size_t limit = 1 << 20;
  std::vector<std::filesystem::path> roots;
};

Options parse(int argc, char** argv) {
  constexpr std::string_view seconds = "--seconds=";
  constexpr std::string_view limit = "--limit=";
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument.starts_with(seconds)) {
      options.time = std::chrono::seconds(std::stol(argv[i] + seconds.size()));
    } else if (argument.starts_with(limit)) {
      options.limit = std::stoul(argv[i] + limit.size());
    } else {
      options.roots.emplace_back(argument);
    }
  }
  return options;
}

Bytes contentOf(const std::filesystem::path& path, size_t limit) {
  std::ifstream stream(path, std::ios::binary);
  Bytes content(limit);
  stream.read(reinterpret_cast<char*>(content.data()), static_cast<std::streamsize>(limit));
  content.resize(static_cast<size_t>(stream.gcount()));
  return content;
}

std::vector<ZlibSettings> allSettings() {
  std::vector<ZlibSettings> all;
  for (int level = 0; level <= 9; ++level) all.push_back({.level = level});
  for (const int strategy : {Z_FILTERED, Z_HUFFMAN_ONLY, Z_RLE, Z_FIXED}) {
    all.push_back({.strategy = strategy});
  }
  return all;
}

class RoundTrips {
 public:
  void run(const std::filesystem::path& path, const Bytes& content) {
    for (const ZlibSettings& settings : allSettings()) {
      const Bytes stream = zlibDeflate(content, settings);
      Cuts inRooms = wholeStream(65536);
      inRooms.expandRoom = [] { return 32768; };
      check(decodeOnePass, stream, wholeStream(content.size() + 1), content, path, settings);
      check(decodeTwoPass, stream, inRooms, content, path, settings);
      if (settings.level > 0) continue;
      check(decodeOnePass, stream, inRooms, content, path, settings);
    }
    ++files_;
    bytes_ += content.size();
  }

  int report() const {
    printf("%zu files, %zu bytes, %zu decodings, %zu failures\n", files_, bytes_, decodings_,
           failures_);
    return failures_ == 0 && files_ > 0 ? 0 : 1;
  }

 private:
  using Driver = Decoded (*)(Decoder&, const Bytes&, const Cuts&);

  void check(Driver decode, const Bytes& stream, const Cuts& cuts, const Bytes& content,
             const std::filesystem::path& path, const ZlibSettings& settings) {
    Decoder decoder;
    const Decoded decoded = decode(decoder, stream, cuts);
    ++decodings_;
    if (decoded.status == zebWarnFinalBlockDone && decoded.consumed == stream.size() &&
        decoded.output == content) {
      return;
    }
    ++failures_;
    printf("%s: level %d, strategy %d, %s: status %d\n", path.c_str(), settings.level,
           settings.strategy, decode == decodeOnePass ? "one pass" : "two passes", decoded.status);
  }

  size_t files_ = 0;
  size_t bytes_ = 0;
  size_t decodings_ = 0;
  size_t failures_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  const Options options = parse(argc, argv);
  const auto end = Clock::now() + options.time;
  RoundTrips roundTrips;
  const auto runFile = [&](const fs::path& path) {
    std::error_code error;
    if (!fs::is_regular_file(path, error) || fs::is_symlink(path, error)) return;
    roundTrips.run(path, contentOf(path, options.limit));
  };
  for (const fs::path& root : options.roots) {
    if (!fs::is_directory(root)) {
      runFile(root);
      continue;
    }
    std::error_code error;
    constexpr auto skip = fs::directory_options::skip_permission_denied;
    for (fs::recursive_directory_iterator it(root, skip, error), last; it != last;
         it.increment(error)) {
      if (Clock::now() > end) break;
      runFile(it->path());
    }
  }
  return roundTrips.report();
}
