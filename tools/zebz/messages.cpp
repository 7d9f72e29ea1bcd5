#include "messages.h"

#include <stdio.h>

namespace zebz {
namespace {

void print(const std::string& name, const std::string& text) {
  fprintf(stderr, "zebz: %s: %s\n", name.c_str(), text.c_str());
}

}  // namespace

void Messages::error(const std::string& name, const std::string& text) {
  print(name, text);
  exitCode_ = exitError;
}

void Messages::warn(const std::string& name, const std::string& text) {
  if (!isQuiet_) print(name, text);
  if (exitCode_ == exitOk) exitCode_ = exitWarning;
}

void Messages::note(const std::string& text) {
  fprintf(stderr, "%s\n", text.c_str());
}

}  // namespace zebz
