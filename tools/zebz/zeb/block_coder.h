// The library's own coders, each as a coder of independent blocks.
#ifndef ZEBZ_ZEB_BLOCK_CODER_H
#define ZEBZ_ZEB_BLOCK_CODER_H

#include <memory>
#include <string_view>
#include <vector>

#include "stream/byte_stream.h"

namespace zebz {

class BlockCoder {
 public:
  virtual ~BlockCoder() = default;

  // What a block may hold at most.
  virtual size_t maxContent() const = 0;

  // Codes a block of at least one byte. False where the code would not be smaller than the block.
  virtual bool encode(Bytes content, std::vector<uint8_t>& code) = 0;

  // Decodes a block into room of exactly its size. False where the code is malformed or stands for
  // another number of bytes. Any bytes are safe.
  virtual bool decode(Bytes code, ByteRoom content) = 0;
};

// LZO, whose code is an LZO1X stream.
std::unique_ptr<BlockCoder> makeLzoCoder();

struct BlockMethod {
  std::string_view name;
  uint8_t number;  // in the file
  std::unique_ptr<BlockCoder> (*make)();
};

// Null where there is none.
const BlockMethod* blockMethodNamed(std::string_view name);
const BlockMethod* blockMethodNumbered(uint8_t number);

}  // namespace zebz

#endif
