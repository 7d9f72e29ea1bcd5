#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

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

// Repeats a call that a signal interrupted.
template <typename Call>
auto retrying(const std::string& file, Call call) {
  for (;;) {
    const auto result = call();
    if (result >= 0) return result;
    if (errno != EINTR) failWithErrno(file);
  }
}

// The one file being written, for the signal handler. Changed only while its signals are blocked in
// the one thread that then runs.
std::atomic<bool> hasUnfinished = false;
char unfinishedPath[PATH_MAX];
static_assert(std::atomic<bool>::is_always_lock_free);

constexpr int interruptions[] = {SIGHUP, SIGINT, SIGTERM, SIGXCPU, SIGXFSZ};

void removeUnfinishedAndDie(int signal) {
  if (hasUnfinished) unlink(unfinishedPath);
  ::signal(signal, SIG_DFL);
  raise(signal);
}

void handleInterruptions() {
  struct sigaction action = {};
  action.sa_handler = removeUnfinishedAndDie;
  for (const int signal : interruptions) sigaddset(&action.sa_mask, signal);
  for (const int signal : interruptions) {
    struct sigaction before = {};
    sigaction(signal, nullptr, &before);
    if (before.sa_handler != SIG_IGN) sigaction(signal, &action, nullptr);
  }
}

class InterruptionBlocker {
 public:
  InterruptionBlocker() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : interruptions) sigaddset(&set, signal);
    pthread_sigmask(SIG_BLOCK, &set, &before_);
  }
  ~InterruptionBlocker() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  InterruptionBlocker(const InterruptionBlocker&) = delete;
  InterruptionBlocker& operator=(const InterruptionBlocker&) = delete;

 private:
  sigset_t before_;
};

void rememberUnfinished(const std::string& path) {
  if (path.size() >= sizeof unfinishedPath) return;
  memcpy(unfinishedPath, path.c_str(), path.size() + 1);
  hasUnfinished = true;
}

}  // namespace

const char* const separators = "/";
const uint8_t gzipSystemCode = 3;

std::vector<std::string> arguments(int argc, char** argv) {
  return {argv + std::min(argc, 1), argv + argc};
}

std::filesystem::path pathOf(const std::string& text) {
  return text;
}

std::string textOf(const std::filesystem::path& path) {
  return path.native();
}

File File::standardInput() {
  return File(STDIN_FILENO, false, "stdin");
}

File File::standardOutput() {
  return File(STDOUT_FILENO, false, "stdout");
}

File File::open(const std::filesystem::path& path, bool followLink) {
  // A named pipe without a writer must not hold us up; what is opened is looked at first.
  const int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | (followLink ? 0 : O_NOFOLLOW);
  const int descriptor = retrying(path.native(), [&] { return ::open(path.c_str(), flags); });
  File file(descriptor, true, path.native());
  fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) & ~O_NONBLOCK);
  return file;
}

File File::createNew(const std::filesystem::path& path) {
  static const bool areHandled = (handleInterruptions(), true);
  static_cast<void>(areHandled);
  const InterruptionBlocker blocker;
  const int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
  const int descriptor =
      retrying(path.native(), [&] { return ::open(path.c_str(), flags, S_IRUSR | S_IWUSR); });
  File file(descriptor, true, path.native());
  file.createdPath_ = path;
  rememberUnfinished(path.native());
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
    const InterruptionBlocker blocker;
    unlink(createdPath_.c_str());
    hasUnfinished = false;
  }
  if (isOwned_) ::close(descriptor_);
}

size_t File::read(ByteRoom room) {
  return static_cast<size_t>(
      retrying(name_, [&] { return ::read(descriptor_, room.data(), room.size()); }));
}

void File::write(Bytes bytes) {
  while (!bytes.empty()) {
    const auto count =
        retrying(name_, [&] { return ::write(descriptor_, bytes.data(), bytes.size()); });
    bytes = bytes.subspan(static_cast<size_t>(count));
  }
}

FileInfo File::info() const {
  struct stat status;
  if (fstat(descriptor_, &status) != 0) failWithErrno(name_);
  FileInfo info;
  info.kind = S_ISREG(status.st_mode)   ? FileInfo::Kind::regular
              : S_ISDIR(status.st_mode) ? FileInfo::Kind::directory
                                        : FileInfo::Kind::other;
  info.hasSpecialMode = (status.st_mode & (S_ISUID | S_ISGID | S_ISVTX)) != 0;
  info.size = static_cast<uint64_t>(status.st_size);
  info.links = status.st_nlink;
  info.modificationSeconds = status.st_mtim.tv_sec;
  info.modificationNanoseconds = static_cast<int32_t>(status.st_mtim.tv_nsec);
  info.mode = status.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO);
  info.owner = status.st_uid;
  info.group = status.st_gid;
  return info;
}

bool File::isTerminal() const {
  return isatty(descriptor_) == 1;
}

// Only root may give files away. Where the group cannot be kept, its rights are not given to
// another.
void File::takeMetadata(const FileInfo& info) {
  mode_t mode = info.mode;
  if (fchown(descriptor_, info.owner, info.group) != 0 &&
      fchown(descriptor_, static_cast<uid_t>(-1), info.group) != 0) {
    mode &= ~static_cast<mode_t>(S_IRWXG);
  }
  if (fchmod(descriptor_, mode) != 0) failWithErrno(name_);
  timespec times[2] = {};
  times[0].tv_nsec = UTIME_OMIT;
  times[1].tv_sec = info.modificationSeconds;
  times[1].tv_nsec = info.modificationNanoseconds;
  if (futimens(descriptor_, times) != 0) failWithErrno(name_);
}

void File::close() {
  isOwned_ = false;
  if (::close(descriptor_) != 0 && errno != EINTR) failWithErrno(name_);
}

void File::keep(const std::filesystem::path& finalPath) {
  close();
  const InterruptionBlocker blocker;
  if (finalPath != createdPath_ && rename(createdPath_.c_str(), finalPath.c_str()) != 0) {
    failWithErrno(finalPath.native());
  }
  hasUnfinished = false;
  createdPath_.clear();
}

bool confirm(const std::string& question) {
  if (isatty(STDIN_FILENO) != 1) return false;
  fputs(question.c_str(), stderr);
  const int answer = getchar();
  for (int rest = answer; rest != '\n' && rest != EOF;) rest = getchar();
  return answer == 'y' || answer == 'Y';
}

bool errorsGoToTerminal() {
  return isatty(STDERR_FILENO) == 1;
}

}  // namespace zebz::platform
