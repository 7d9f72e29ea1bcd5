// What differs between operating systems: files by descriptor, their metadata, terminals, signals.
// One source file per system implements it.
#ifndef ZEBZ_SYSTEM_PLATFORM_H
#define ZEBZ_SYSTEM_PLATFORM_H

#include <stdint.h>

#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "stream/byte_stream.h"

namespace zebz::platform {

// The program's arguments, without its own name. Text is UTF-8 where the system has Unicode file
// names, and the system's own bytes elsewhere.
std::vector<std::string> arguments(int argc, char** argv);
std::filesystem::path pathOf(const std::string& text);
std::string textOf(const std::filesystem::path& path);

// What separates folders in a path.
extern const char* const separators;

// The "operating system" of a gzip header, RFC 1952.
extern const uint8_t gzipSystemCode;

struct FileInfo {
  enum class Kind { regular, directory, other };
  Kind kind = Kind::other;
  bool hasSpecialMode = false;  // set-user-ID and the like: not for a compressor to touch
  uint64_t size = 0;
  uint64_t links = 1;
  int64_t modificationSeconds = 0;
  int32_t modificationNanoseconds = 0;
  uint32_t mode = 0;
  uint32_t owner = 0;
  uint32_t group = 0;
};

// The system's refusal, and the name of the file that it is about.
class FileError : public std::system_error {
 public:
  FileError(std::string file, std::error_code code)
      : std::system_error(code), file_(std::move(file)) {}
  const std::string& file() const { return file_; }

 private:
  std::string file_;
};

// An open file. The operations throw FileError.
class File {
 public:
  static File standardInput();
  static File standardOutput();
  static File open(const std::filesystem::path& path, bool followLink);
  // Fails when the name is taken. Until keep(), the file disappears with this object, or when the
  // user interrupts the program.
  static File createNew(const std::filesystem::path& path);

  File(File&& other) noexcept;
  ~File();

  size_t read(ByteRoom room);
  void write(Bytes bytes);
  FileInfo info() const;
  bool isTerminal() const;

  // For a created file: gives it another's mode, owner and time, as far as the user may.
  void takeMetadata(const FileInfo& info);
  // For a created file: closes it; it stays, under the name given.
  void keep(const std::filesystem::path& finalPath);

 private:
  File(int descriptor, bool isOwned, std::string name);
  void close();

  int descriptor_;
  bool isOwned_;
  std::string name_;
  std::filesystem::path createdPath_;  // empty: not created here, or already kept
};

// Whether the user answers the question with yes; false when there is nobody to ask.
bool confirm(const std::string& question);

bool errorsGoToTerminal();

}  // namespace zebz::platform

#endif
