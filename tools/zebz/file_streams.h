// Files as sources and sinks of bytes.
#ifndef ZEBZ_FILE_STREAMS_H
#define ZEBZ_FILE_STREAMS_H

#include <string>

#include "stream/byte_stream.h"
#include "system/platform.h"

namespace zebz {

class FileSource final : public ByteSource {
 public:
  explicit FileSource(platform::File& file) : file_(file) {}
  size_t read(ByteRoom room) override { return file_.read(room); }

 private:
  platform::File& file_;
};

class StandardOutput final : public ByteSink {
 public:
  void write(Bytes bytes) override { file_.write(bytes); }

 private:
  platform::File file_ = platform::File::standardOutput();
};

// A file that comes into being whole or not at all: it is gone with this object unless it was kept.
// A file of the same name, where there is one, stays as it is until then.
class NewFile final : public ByteSink {
 public:
  explicit NewFile(const std::string& name);
  void write(Bytes bytes) override { file_.write(bytes); }

  // Gives the file its name and the metadata of the file that it was made from.
  void keep(const platform::FileInfo& origin);

 private:
  std::filesystem::path path_;
  platform::File file_;
};

class NullSink final : public ByteSink {
 public:
  void write(Bytes) override {}
};

class CountingSink final : public ByteSink {
 public:
  explicit CountingSink(ByteSink& next) : next_(next) {}
  void write(Bytes bytes) override {
    count_ += bytes.size();
    next_.write(bytes);
  }
  uint64_t count() const { return count_; }

 private:
  ByteSink& next_;
  uint64_t count_ = 0;
};

}  // namespace zebz

#endif
