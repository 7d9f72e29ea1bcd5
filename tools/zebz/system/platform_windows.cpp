#define NOMINMAX
#define WIN32_LEAN_AND_MEAN
#include <errno.h>
#include <fcntl.h>
#include <io.h>
#include <limits.h>
#include <stdio.h>
#include <sys/stat.h>
#include <windows.h>

// Only after windows.h.
#include <shellapi.h>

#include <algorithm>
#include <atomic>
#include <system_error>
#include <utility>

#include "system/platform.h"

namespace zebz::platform {
namespace {

[[noreturn]] void failWithErrno(const std::string& file) {
  throw FileError(file, std::error_code(errno, std::generic_category()));
}

[[noreturn]] void failWithLastError(const std::string& file) {
  throw FileError(file, std::error_code(static_cast<int>(GetLastError()), std::system_category()));
}

std::string utf8Of(const wchar_t* text) {
  const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  std::string result(static_cast<size_t>(std::max(size, 1)), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text, -1, result.data(), size, nullptr, nullptr);
  result.pop_back();
  return result;
}

// The one file being written, for the handler, which runs in a thread of its own.
std::atomic<const wchar_t*> unfinishedPath = nullptr;

BOOL WINAPI removeUnfinished(DWORD) {
  if (const wchar_t* const path = unfinishedPath.exchange(nullptr)) DeleteFileW(path);
  return FALSE;
}

// Files are opened so that they may be deleted while open, as on other systems: by the handler
// above, and when a compressed file has taken the place of its original.
int openDescriptor(const std::filesystem::path& path, DWORD access, DWORD creation, int flags) {
  const DWORD sharing = FILE_SHARE_READ | FILE_SHARE_DELETE;
  // The flag is what lets a folder be opened, to be told that it is one.
  const HANDLE handle = CreateFileW(path.c_str(), access, sharing, nullptr, creation,
                                    FILE_ATTRIBUTE_NORMAL | FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (handle == INVALID_HANDLE_VALUE) failWithLastError(textOf(path));
  const int descriptor = _open_osfhandle(reinterpret_cast<intptr_t>(handle), flags);
  if (descriptor < 0) {
    CloseHandle(handle);
    failWithErrno(textOf(path));
  }
  _setmode(descriptor, _O_BINARY);
  return descriptor;
}

HANDLE handleOf(int descriptor) {
  return reinterpret_cast<HANDLE>(_get_osfhandle(descriptor));
}

// Windows counts time in steps of 100 ns since 1601.
constexpr int64_t stepsPerSecond = 10'000'000;
constexpr int64_t secondsFrom1601To1970 = 11'644'473'600;

}  // namespace

const char* const separators = "/\\:";
const uint8_t gzipSystemCode = 11;

std::vector<std::string> arguments(int, char**) {
  int count = 0;
  wchar_t** const list = CommandLineToArgvW(GetCommandLineW(), &count);
  std::vector<std::string> result;
  for (int i = 1; i < count; ++i) result.push_back(utf8Of(list[i]));
  LocalFree(list);
  return result;
}

std::filesystem::path pathOf(const std::string& text) {
  return std::filesystem::path(std::u8string(text.begin(), text.end()));
}

std::string textOf(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return std::string(text.begin(), text.end());
}

File File::standardInput() {
  _setmode(_fileno(stdin), _O_BINARY);
  return File(_fileno(stdin), false, "stdin");
}

File File::standardOutput() {
  _setmode(_fileno(stdout), _O_BINARY);
  return File(_fileno(stdout), false, "stdout");
}

File File::open(const std::filesystem::path& path, bool followLink) {
  if (!followLink && is_symlink(symlink_status(path))) {
    throw FileError(textOf(path), std::make_error_code(std::errc::too_many_symbolic_link_levels));
  }
  const int descriptor = openDescriptor(path, GENERIC_READ, OPEN_EXISTING, _O_RDONLY | _O_BINARY);
  return File(descriptor, true, textOf(path));
}

File File::createNew(const std::filesystem::path& path) {
  static const bool isHandled = SetConsoleCtrlHandler(removeUnfinished, TRUE) != 0;
  static_cast<void>(isHandled);
  const DWORD access = GENERIC_WRITE | FILE_WRITE_ATTRIBUTES;
  File file(openDescriptor(path, access, CREATE_NEW, _O_WRONLY | _O_BINARY), true, textOf(path));
  file.createdPath_ = path;
  static std::wstring remembered;
  unfinishedPath = nullptr;
  remembered = path.native();
  unfinishedPath = remembered.c_str();
  return file;
}

File::File(int descriptor, bool isOwned, std::string name)
    : descriptor_(descriptor), isOwned_(isOwned), name_(std::move(name)) {}

File::File(File&& other) noexcept
    : descriptor_(other.descriptor_),
      isOwned_(std::exchange(other.isOwned_, false)),
      name_(std::move(other.name_)),
      createdPath_(std::exchange(other.createdPath_, {})) {}

File::~File() {
  if (!createdPath_.empty()) {
    unfinishedPath = nullptr;
    DeleteFileW(createdPath_.c_str());
  }
  if (isOwned_) _close(descriptor_);
}

size_t File::read(ByteRoom room) {
  const unsigned size = static_cast<unsigned>(std::min<size_t>(room.size(), INT_MAX));
  const int count = _read(descriptor_, room.data(), size);
  if (count < 0) failWithErrno(name_);
  return static_cast<size_t>(count);
}

void File::write(Bytes bytes) {
  while (!bytes.empty()) {
    const unsigned size = static_cast<unsigned>(std::min<size_t>(bytes.size(), INT_MAX));
    const int count = _write(descriptor_, bytes.data(), size);
    if (count < 0) failWithErrno(name_);
    bytes = bytes.subspan(static_cast<size_t>(count));
  }
}

FileInfo File::info() const {
  struct _stat64 status;
  if (_fstat64(descriptor_, &status) != 0) failWithErrno(name_);
  FileInfo info;
  info.kind = (status.st_mode & _S_IFMT) == _S_IFREG   ? FileInfo::Kind::regular
              : (status.st_mode & _S_IFMT) == _S_IFDIR ? FileInfo::Kind::directory
                                                       : FileInfo::Kind::other;
  info.size = static_cast<uint64_t>(status.st_size);
  info.modificationSeconds = status.st_mtime;
  BY_HANDLE_FILE_INFORMATION details;
  if (GetFileInformationByHandle(handleOf(descriptor_), &details)) {
    info.links = details.nNumberOfLinks;
    if ((details.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
      info.kind = FileInfo::Kind::directory;
    }
    const int64_t steps = static_cast<int64_t>(details.ftLastWriteTime.dwHighDateTime) << 32 |
                          details.ftLastWriteTime.dwLowDateTime;
    info.modificationSeconds = steps / stepsPerSecond - secondsFrom1601To1970;
    info.modificationNanoseconds = static_cast<int32_t>(steps % stepsPerSecond * 100);
  }
  return info;
}

bool File::isTerminal() const {
  return _isatty(descriptor_) != 0;
}

// A new file has the rights of its folder; of the original's metadata the time alone passes on.
void File::takeMetadata(const FileInfo& info) {
  const int64_t steps = (info.modificationSeconds + secondsFrom1601To1970) * stepsPerSecond +
                        info.modificationNanoseconds / 100;
  FILETIME time;
  time.dwLowDateTime = static_cast<DWORD>(steps);
  time.dwHighDateTime = static_cast<DWORD>(steps >> 32);
  if (!SetFileTime(handleOf(descriptor_), nullptr, nullptr, &time)) failWithLastError(name_);
}

void File::close() {
  isOwned_ = false;
  if (_close(descriptor_) != 0) failWithErrno(name_);
}

void File::keep(const std::filesystem::path& finalPath) {
  close();
  if (finalPath != createdPath_ &&
      !MoveFileExW(createdPath_.c_str(), finalPath.c_str(), MOVEFILE_REPLACE_EXISTING)) {
    failWithLastError(textOf(finalPath));
  }
  unfinishedPath = nullptr;
  createdPath_.clear();
}

bool confirm(const std::string& question) {
  if (_isatty(_fileno(stdin)) == 0) return false;
  fputs(question.c_str(), stderr);
  const int answer = getchar();
  for (int rest = answer; rest != '\n' && rest != EOF;) rest = getchar();
  return answer == 'y' || answer == 'Y';
}

bool errorsGoToTerminal() {
  return _isatty(_fileno(stderr)) != 0;
}

}  // namespace zebz::platform
