#include "file_names.h"

#include "formats/formats.h"
#include "system/platform.h"

namespace zebz {

std::vector<KnownSuffix> knownSuffixes(const Options& options) {
  std::vector<KnownSuffix> known;
  if (!options.suffix.empty()) known.push_back({options.format, options.suffix, ""});
  for (const Format* format : formats()) {
    if (options.format != nullptr && options.format != format) continue;
    for (const Suffix& suffix : format->suffixes) {
      known.push_back({format, std::string(suffix.compressed), std::string(suffix.original)});
    }
  }
  return known;
}

std::optional<KnownSuffix> suffixOf(const std::string& name, const Options& options) {
  const size_t start = folderLength(name);
  for (KnownSuffix& suffix : knownSuffixes(options)) {
    if (name.size() - start > suffix.compressed.size() && name.ends_with(suffix.compressed)) {
      return suffix;
    }
  }
  return std::nullopt;
}

std::string withoutSuffix(const std::string& name, const KnownSuffix& suffix) {
  return name.substr(0, name.size() - suffix.compressed.size()) + suffix.original;
}

size_t folderLength(const std::string& name) {
  const size_t last = name.find_last_of(platform::separators);
  return last == std::string::npos ? 0 : last + 1;
}

std::string safeFileName(const std::string& name) {
  const std::string last = name.substr(folderLength(name));
  return last == "." || last == ".." ? "" : last;
}

}  // namespace zebz
