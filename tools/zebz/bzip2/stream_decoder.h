// Whole bzip2 files, decoded by one or several threads.
#ifndef ZEBZ_BZIP2_STREAM_DECODER_H
#define ZEBZ_BZIP2_STREAM_DECODER_H

#include "stream/format.h"

namespace zebz {

// Takes the header of a stream and returns its level, or 0 where there is none; the source is then
// somewhere inside what is no header.
int takeBzip2Header(BufferedSource& source);

// Decodes everything behind the header of the first stream. Nothing of a block is written whose CRC
// is wrong, and everything before it.
DecodeResult decodeBzip2(int firstLevel, unsigned threads, BufferedSource& source, ByteSink& sink);

}  // namespace zebz

#endif
