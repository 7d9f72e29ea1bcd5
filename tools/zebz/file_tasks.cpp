#include "file_tasks.h"

#include <stdexcept>
#include <utility>

#include "file_names.h"
#include "formats/formats.h"

namespace zebz {
namespace {

using platform::File;
using platform::FileError;
using platform::FileInfo;

// A reason to leave a file alone, which is less than an error.
class Ignored : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

uint32_t storableTime(int64_t seconds) {
  return seconds > 0 && seconds <= UINT32_MAX ? static_cast<uint32_t>(seconds) : 0;
}

}  // namespace

struct FileTasks::Input {
  std::string name;  // as messages have it: "stdin" for the standard input
  bool isStandard;
  bool becomesFile;  // the result goes to a file beside it
  File file;
  FileInfo info;
};

FileTasks::FileTasks(const Options& options, Messages& messages)
    : options_(options), messages_(messages), listing_(options.verbose) {}

void FileTasks::process(const std::string& name) {
  std::string inputName = name == "-" ? "stdin" : name;
  try {
    Input input = openInput(name);
    inputName = input.name;
    refuseUnfit(input);
    if (options_.action == Action::compress) {
      compress(input);
    } else {
      decompress(input);
    }
  } catch (const Ignored& reason) {
    messages_.warn(inputName, reason.what());
  } catch (const DataError& error) {
    messages_.error(inputName, error.what());
  } catch (const FileError& error) {
    messages_.error(error.file(), error.code().message());
  }
}

// To decompress, "name" also stands for "name.gz" where there is no "name".
FileTasks::Input FileTasks::openInput(const std::string& name) const {
  const auto opened = [](const std::string& inputName, bool isStandard, bool becomesFile,
                         File file) {
    const FileInfo info = file.info();
    return Input{inputName, isStandard, becomesFile, std::move(file), info};
  };
  if (name == "-") return opened("stdin", true, false, File::standardInput());

  const bool becomesFile = !options_.toStdout && (options_.action == Action::compress ||
                                                  options_.action == Action::decompress);
  const bool followLinks = options_.force || !becomesFile;
  try {
    return opened(name, false, becomesFile, File::open(platform::pathOf(name), followLinks));
  } catch (const FileError& error) {
    const bool isMissing = error.code() == std::errc::no_such_file_or_directory;
    if (!isMissing || options_.action == Action::compress || suffixOf(name, options_)) throw;
  }
  std::string candidate;
  for (const KnownSuffix& suffix : knownSuffixes(options_)) {
    candidate = name + suffix.compressed;
    if (!suffix.original.empty() || !exists(platform::pathOf(candidate))) continue;
    return opened(candidate, false, becomesFile,
                  File::open(platform::pathOf(candidate), followLinks));
  }
  throw FileError(name, std::make_error_code(std::errc::no_such_file_or_directory));
}

void FileTasks::refuseUnfit(const Input& input) const {
  if (input.info.kind == FileInfo::Kind::directory) throw Ignored("is a directory -- ignored");
  if (input.isStandard && options_.action != Action::compress && !options_.force &&
      input.file.isTerminal()) {
    throw DataError("compressed data not read from a terminal; use -f to force decompression");
  }
  if (!input.becomesFile || options_.force) return;
  if (input.info.kind != FileInfo::Kind::regular) {
    throw Ignored("is not a directory or a regular file -- ignored");
  }
  if (input.info.hasSpecialMode) {
    throw Ignored("is set-user-ID, set-group-ID or sticky on execution -- ignored");
  }
  if (input.info.links > 1) {
    const uint64_t others = input.info.links - 1;
    throw Ignored("has " + std::to_string(others) + " other link" + (others > 1 ? "s" : "") +
                  " -- ignored");
  }
}

ProgressSource FileTasks::showingProgress(const Input& input, ByteSource& source) const {
  const uint64_t total = input.info.kind == FileInfo::Kind::regular ? input.info.size : 0;
  const bool isWanted = !options_.quiet && platform::errorsGoToTerminal();
  return ProgressSource(source, input.name, total, isWanted);
}

void FileTasks::compress(Input& input) {
  const Format& format = options_.format != nullptr ? *options_.format : *formats().front();
  CompressSettings settings;
  settings.level = options_.level.value_or(format.defaultLevel);
  settings.threads = options_.threads;
  settings.dictionary = options_.dictionary;
  settings.method = options_.method;
  if (!input.isStandard && options_.useOriginalName.value_or(true)) {
    settings.original.name = safeFileName(input.name);
    settings.original.modificationTime = storableTime(input.info.modificationSeconds);
  }
  const std::unique_ptr<Compressor> compressor = format.makeCompressor(settings);

  FileSource file(input.file);
  ProgressSource source = showingProgress(input, file);
  const auto compressTo = [&](ByteSink& sink) {
    CountingSink counting(sink);
    compressor->compress(source, counting);
    return savedPercent(source.bytesRead(), counting.count());
  };

  if (!input.becomesFile) {
    StandardOutput output;
    if (!options_.force && platform::File::standardOutput().isTerminal()) {
      throw DataError("compressed data not written to a terminal; use -f to force compression");
    }
    report(input, compressTo(output));
    return;
  }
  if (!options_.force && suffixOf(input.name, options_)) {
    if (!options_.quiet) messages_.note(input.name + ": already has the suffix -- unchanged");
    return;
  }
  const std::string outputName =
      input.name +
      (options_.suffix.empty() ? std::string(format.suffixes.front().compressed) : options_.suffix);
  refuseTaken(outputName);
  NewFile output(outputName);
  const std::string saved = compressTo(output);
  output.keep(input.info);
  finishFile(input, outputName, saved);
}

void FileTasks::decompress(Input& input) {
  FileSource file(input.file);
  ProgressSource progress = showingProgress(input, file);
  BufferedSource source(progress);
  if (input.becomesFile && !suffixOf(input.name, options_)) {
    throw Ignored("unknown suffix -- ignored");
  }

  const Format* const format = findFormat(input, source);
  if (format == nullptr) {
    copyUnchanged(source);
    return;
  }
  const std::unique_ptr<Decompressor> decompressor =
      format->makeDecompressor({.threads = options_.threads, .dictionary = options_.dictionary});
  OriginalFile original = decompressor->readHeader(source);
  if (!options_.useOriginalName.value_or(false)) original = {};

  const auto decompressTo = [&](ByteSink& sink) {
    const DecodeResult result = decompressor->decompress(source, sink);
    if (result.rest == DecodeResult::Rest::garbage) {
      messages_.warn(input.name, "decompression OK, trailing garbage ignored");
    }
    return result;
  };
  const auto saved = [](const DecodeResult& result) {
    return savedPercent(result.size, result.compressedSize);
  };

  if (options_.action == Action::list) {
    NullSink nowhere;
    const DecodeResult result = decompressTo(nowhere);
    const int64_t time =
        original.modificationTime != 0 ? original.modificationTime : input.info.modificationSeconds;
    listing_.add(*format, result, time, decompressedName(input, original));
  } else if (options_.action == Action::test) {
    NullSink nowhere;
    decompressTo(nowhere);
    report(input, " OK");
  } else if (!input.becomesFile) {
    StandardOutput output;
    report(input, saved(decompressTo(output)));
  } else {
    const std::string outputName = decompressedName(input, original);
    refuseTaken(outputName);
    NewFile output(outputName);
    const DecodeResult result = decompressTo(output);
    FileInfo info = input.info;
    if (original.modificationTime != 0) {
      info.modificationSeconds = original.modificationTime;
      info.modificationNanoseconds = 0;
    }
    output.keep(info);
    finishFile(input, outputName, saved(result));
  }
}

// Null: the input is in no format that is known, and is to be passed on as it is.
const Format* FileTasks::findFormat(const Input& input, BufferedSource& source) const {
  constexpr size_t longestMagic = 16;
  if (options_.format != nullptr) return options_.format;
  source.fillAtLeast(longestMagic);
  if (const Format* const format = formatOfMagic(source.unread())) return format;
  if (source.unread().size() < 2) failUnexpectedEnd();

  // A suffix decides only for formats that have no magic bytes to be known by.
  const std::optional<KnownSuffix> suffix = suffixOf(input.name, options_);
  if (suffix && suffix->format != nullptr && suffix->format->magic.empty()) return suffix->format;
  if (options_.force && options_.toStdout) return nullptr;
  throw DataError("not in a known format");
}

void FileTasks::copyUnchanged(BufferedSource& source) {
  StandardOutput output;
  while (source.fill()) {
    output.write(source.unread());
    source.skip(source.unread().size());
  }
}

// Beside the input, whatever folder an original name tells of.
std::string FileTasks::decompressedName(const Input& input, const OriginalFile& original) const {
  if (input.isStandard) return "stdout";
  const std::string name = safeFileName(original.name);
  if (!name.empty()) return input.name.substr(0, folderLength(input.name)) + name;
  const std::optional<KnownSuffix> suffix = suffixOf(input.name, options_);
  return suffix ? withoutSuffix(input.name, *suffix) : input.name;
}

void FileTasks::refuseTaken(const std::string& name) const {
  if (options_.force || !exists(symlink_status(platform::pathOf(name)))) return;
  const std::string question =
      "zebz: " + name + " already exists; do you wish to overwrite (y or n)? ";
  if (!platform::confirm(question)) throw Ignored(name + " already exists -- not overwritten");
}

void FileTasks::finishFile(const Input& input, const std::string& outputName,
                           const std::string& saved) {
  if (!options_.keep) {
    std::error_code error;
    remove(platform::pathOf(input.name), error);
    if (error) messages_.warn(input.name, "cannot be removed: " + error.message());
  }
  report(input, saved + (options_.keep ? " -- created " : " -- replaced with ") + outputName);
}

void FileTasks::report(const Input& input, const std::string& text) const {
  if (options_.verbose) messages_.note(input.name + ":\t" + text);
}

}  // namespace zebz
