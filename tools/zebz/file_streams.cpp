#include "file_streams.h"

namespace zebz {
namespace {

using platform::File;

// Created under its own name where that is free, so that two who want it cannot both have it.
File create(const std::filesystem::path& path) {
  if (is_directory(path)) {
    throw platform::FileError(platform::textOf(path),
                              std::make_error_code(std::errc::is_a_directory));
  }
  if (!exists(symlink_status(path))) return File::createNew(path);
  std::filesystem::path beside = path;
  beside += ".zebz-new";
  return File::createNew(beside);
}

}  // namespace

NewFile::NewFile(const std::string& name) : path_(platform::pathOf(name)), file_(create(path_)) {}

void NewFile::keep(const platform::FileInfo& origin) {
  file_.takeMetadata(origin);
  file_.keep(path_);
}

}  // namespace zebz
