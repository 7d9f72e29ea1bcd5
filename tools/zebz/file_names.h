// The names of compressed files and of what is in them.
#ifndef ZEBZ_FILE_NAMES_H
#define ZEBZ_FILE_NAMES_H

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "options.h"

namespace zebz {

// A suffix and what takes its place, of the formats that the options leave open.
struct KnownSuffix {
  const Format* format;
  std::string compressed;
  std::string original;
};
std::vector<KnownSuffix> knownSuffixes(const Options& options);

// The suffix that the name ends in, if it has a name before it.
std::optional<KnownSuffix> suffixOf(const std::string& name, const Options& options);

// "name.gz" to "name".
std::string withoutSuffix(const std::string& name, const KnownSuffix& suffix);

// How much of a name is the folder, its last separator included.
size_t folderLength(const std::string& name);

// A name found inside a compressed file, as one that is safe to create in a folder: the part after
// the last separator. Empty when nothing usable is left.
std::string safeFileName(const std::string& name);

}  // namespace zebz

#endif
