// What the tool says to the user, and the exit code that follows from it.
#ifndef ZEBZ_MESSAGES_H
#define ZEBZ_MESSAGES_H

#include <string>

namespace zebz {

enum ExitCode { exitOk = 0, exitError = 1, exitWarning = 2 };

class Messages {
 public:
  explicit Messages(bool isQuiet) : isQuiet_(isQuiet) {}

  // About a file; the name comes first.
  void error(const std::string& name, const std::string& text);
  // For what does not keep the rest from being done. A quiet tool keeps it to the exit code.
  void warn(const std::string& name, const std::string& text);
  // Says something without any bearing on the exit code.
  void note(const std::string& text);

  ExitCode exitCode() const { return exitCode_; }

 private:
  bool isQuiet_;
  ExitCode exitCode_ = exitOk;
};

}  // namespace zebz

#endif
