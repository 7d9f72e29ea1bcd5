#include "corpus.h"

#include <stdio.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace zebdc::bench {
namespace {

constexpr size_t fileLimit = 4 << 20;

std::vector<File>& storage() {
  static std::vector<File> files;
  return files;
}

void addFile(const std::filesystem::path& path) {
  std::ifstream stream(path, std::ios::binary);
  std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(stream), {}};
  if (bytes.empty()) return;
  bytes.resize(std::min(bytes.size(), fileLimit));
  storage().push_back({path.filename().string(), std::move(bytes)});
}

}  // namespace

void loadCorpus(const std::string& folder) {
  storage().clear();
  if (folder.empty()) {
    for (const char* path : {"/usr/bin/git", "/usr/bin/cmake", "/usr/share/dict/words",
                             "/usr/share/perl/5.36.0/unicore/Name.pl", "/usr/bin/perl"}) {
      addFile(path);
    }
  } else {
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      if (entry.is_regular_file()) addFile(entry.path());
    }
  }
  std::sort(storage().begin(), storage().end(),
            [](const File& a, const File& b) { return a.name < b.name; });
}

const std::vector<File>& corpus() {
  return storage();
}

}  // namespace zebdc::bench
