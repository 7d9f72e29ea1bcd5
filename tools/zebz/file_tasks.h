// What the tool does with each of the files that it is given.
#ifndef ZEBZ_FILE_TASKS_H
#define ZEBZ_FILE_TASKS_H

#include <string>

#include "file_streams.h"
#include "listing.h"
#include "messages.h"
#include "options.h"
#include "progress.h"

namespace zebz {

class FileTasks {
 public:
  FileTasks(const Options& options, Messages& messages);

  // Works on one file, or on the standard streams for "-". Failures are reported, not thrown.
  void process(const std::string& name);

  // Says what belongs after the last file.
  void finish() const { listing_.finish(); }

 private:
  struct Input;

  Input openInput(const std::string& name) const;
  void refuseUnfit(const Input& input) const;
  ProgressSource showingProgress(const Input& input, ByteSource& source) const;

  void compress(Input& input);
  void decompress(Input& input);
  const Format* findFormat(const Input& input, BufferedSource& source) const;
  std::string decompressedName(const Input& input, const OriginalFile& original) const;

  static void copyUnchanged(BufferedSource& source);

  void refuseTaken(const std::string& name) const;
  void finishFile(const Input& input, const std::string& outputName, const std::string& saved);
  void report(const Input& input, const std::string& text) const;

  const Options& options_;
  Messages& messages_;
  Listing listing_;
};

}  // namespace zebz

#endif
