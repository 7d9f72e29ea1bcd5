#include "options.h"

#include <stdio.h>
#include <zebdc/zebdc.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <thread>

#include "formats/formats.h"
#include "messages.h"
#include "system/platform.h"

namespace zebz {
namespace {

constexpr unsigned mostThreads = 256;

constexpr const char* description =
    "Compresses FILEs, or with -d decompresses them: FILE becomes FILE.gz and back.\n"
    "Without FILE, or where FILE is -, works from standard input to standard output.";

constexpr const char* footer =
    "Ends with 0 when all went well, 2 when there were warnings, 1 after an error.\n"
    "Files that lzop wrote at its levels 7 to 9 cannot be decompressed.";

std::string versionLine() {
  return std::string("zebz ") + zebdcGetLibVersion()->versionText;
}

std::vector<std::string> formatNames() {
  std::vector<std::string> names;
  for (const Format* format : formats()) names.emplace_back(format->name);
  return names;
}

std::string formatNameList() {
  std::string list;
  for (const std::string& name : formatNames()) list += (list.empty() ? "" : ", ") + name;
  return list;
}

std::vector<uint8_t> readWholeFile(const std::string& name) {
  platform::File file = platform::File::open(platform::pathOf(name), true);
  std::vector<uint8_t> bytes;
  uint8_t buffer[65536];
  while (const size_t count = file.read(buffer)) {
    bytes.insert(bytes.end(), buffer, buffer + count);
  }
  return bytes;
}

CLI::Validator isSuffix() {
  return CLI::Validator(
      [](const std::string& text) -> std::string {
        const bool isGood =
            !text.empty() && text.find_first_of(platform::separators) == std::string::npos;
        return isGood ? "" : "invalid suffix '" + text + "'";
      },
      "");
}

// Of options that exclude one another the last counts, as in gzip: flags that take effect in the
// order of the command line.
template <typename Effect>
CLI::Option* addOrderedFlag(CLI::App& app, const std::string& names, const std::string& help,
                            Effect effect) {
  return app.add_flag_callback(names, effect, help)->trigger_on_parse();
}

void addActions(CLI::App& app, Options& options) {
  const auto setAction = [&options](Action action) {
    return [&options, action] { options.action = action; };
  };
  addOrderedFlag(app, "-z,--compress", "compress; the default", setAction(Action::compress));
  addOrderedFlag(app, "-d,--decompress,--uncompress", "decompress", setAction(Action::decompress));
  addOrderedFlag(app, "-t,--test", "test whether compressed files are sound",
                 setAction(Action::test));
  addOrderedFlag(app, "-l,--list", "list sizes and names of compressed files",
                 setAction(Action::list));
}

void addLevels(CLI::App& app, Options& options) {
  for (int level = 1; level <= 9; ++level) {
    std::string names = "-" + std::to_string(level);
    std::string help;
    if (level == 1) {
      names += ",--fast";
      help = "compress faster: levels 1 to 9; 6, with bzip2 9, by default";
    } else if (level == 9) {
      names += ",--best";
      help = "compress better";
    }
    CLI::Option* const option =
        addOrderedFlag(app, names, help, [&options, level] { options.level = level; });
    if (help.empty()) option->group("");
  }
}

[[noreturn]] void failUsage(const std::string& text) {
  fprintf(stderr, "zebz: %s\nTry 'zebz --help' for more information.\n", text.c_str());
  throw EndProgram{exitError};
}

void readDictionary(Options& options, const std::string& name) {
  if (options.format != nullptr && !options.format->takesDictionary) {
    failUsage("--dict does not go with --format=" + std::string(options.format->name));
  }
  if (options.format == nullptr && options.action == Action::compress) {
    failUsage("--dict goes with --format=zlib");
  }
  try {
    options.dictionary = readWholeFile(name);
  } catch (const platform::FileError& error) {
    failUsage(error.file() + ": " + error.code().message());
  }
}

// The format's own copy of the name, which lives as long as the program.
std::string_view methodOf(const Format& format, const std::string& name) {
  const auto found = std::find(format.methods.begin(), format.methods.end(), name);
  if (found == format.methods.end()) {
    failUsage("--method=" + name + " does not go with --format=" + std::string(format.name));
  }
  return *found;
}

void chooseMethod(Options& options, const std::string& name) {
  const Format& format = options.format != nullptr ? *options.format : *formats().front();
  if (!name.empty()) {
    options.method = methodOf(format, name);
  } else if (!format.methods.empty()) {
    options.method = format.methods.front();
  }
}

}  // namespace

Options parseOptions(std::vector<std::string> arguments) {
  Options options;
  std::string formatName;
  std::string dictionaryName;
  std::string methodName;
  CLI::App app(description, "zebz");
  app.footer(footer);
  app.option_defaults()->always_capture_default(false);
  app.set_help_flag("-h,--help", "print this help");
  app.set_version_flag("-V,--version", versionLine(), "print the version");

  addActions(app, options);
  app.add_flag("-c,--stdout,--to-stdout", options.toStdout,
               "write to standard output; keep the files");
  app.add_flag("-k,--keep", options.keep, "keep the input files");
  app.add_flag("-f,--force", options.force,
               "overwrite files, follow links, write compressed data to a terminal");
  addLevels(app, options);
  app.add_option("-T,--threads", options.threads, "work with N threads; 0: one per processor")
      ->type_name("N")
      ->check(CLI::Range(0U, mostThreads).description(""));
  app.add_option("--format", formatName, formatNameList() + "; to decompress, found out")
      ->type_name("NAME")
      ->check(CLI::IsMember(formatNames()).description(""));
  app.add_option("--method", methodName, "huff, git, lzss, rle or lzo, for --format=zeb")
      ->type_name("NAME");
  app.add_option("--dict", dictionaryName, "preset dictionary, for zlib")->type_name("FILE");
  app.add_option("-S,--suffix", options.suffix, "use this suffix on compressed files")
      ->type_name(".SUF")
      ->check(isSuffix());
  addOrderedFlag(app, "-n,--no-name", "do not store, or restore, the original name and time",
                 [&options] { options.useOriginalName = false; });
  addOrderedFlag(app, "-N,--name", "store, or restore, the original name and time",
                 [&options] { options.useOriginalName = true; });
  app.add_flag("-q,--quiet", options.quiet, "say no warnings");
  app.add_flag("-v,--verbose", options.verbose, "say what is done");
  app.add_option("FILE", options.files, "files to work on")->type_name("");

  std::reverse(arguments.begin(), arguments.end());
  try {
    app.parse(arguments);
  } catch (const CLI::Success& request) {
    throw EndProgram{app.exit(request)};
  } catch (const CLI::ParseError& error) {
    failUsage(error.what());
  }

  if (options.threads == 0) {
    options.threads = std::clamp(std::thread::hardware_concurrency(), 1U, mostThreads);
  }
  if (!formatName.empty()) options.format = formatNamed(formatName);
  chooseMethod(options, methodName);
  if (!dictionaryName.empty()) readDictionary(options, dictionaryName);
  if (options.files.empty()) options.files = {"-"};
  return options;
}

}  // namespace zebz
