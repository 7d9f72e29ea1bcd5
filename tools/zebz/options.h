// The command line.
#ifndef ZEBZ_OPTIONS_H
#define ZEBZ_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "stream/format.h"

namespace zebz {

enum class Action { compress, decompress, test, list };

struct Options {
  Action action = Action::compress;
  const Format* format = nullptr;  // null: the default to compress, found out to decompress
  std::string_view method;         // of the format, where it has any
  std::optional<int> level;        // the format's own by default
  unsigned threads = 1;
  bool toStdout = false;
  bool keep = false;
  bool force = false;
  bool quiet = false;
  bool verbose = false;
  // Compression stores the name and time unless told not to; decompression goes by the name and
  // time of the compressed file unless told otherwise.
  std::optional<bool> useOriginalName;
  std::string suffix;  // with its dot; empty: the format's own
  std::vector<uint8_t> dictionary;
  std::vector<std::string> files;  // "-" is the standard input
};

// Thrown with the exit code when there is nothing to do but to end: after a wrong option, or
// --help.
struct EndProgram {
  int exitCode;
};

Options parseOptions(std::vector<std::string> arguments);

}  // namespace zebz

#endif
