// Standard input and output as streams of bytes. Windows takes them for text unless it is told.
#ifndef ZEBDC_EXAMPLES_BINARY_STREAMS_H
#define ZEBDC_EXAMPLES_BINARY_STREAMS_H

#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#include <stdio.h>
#endif

inline void useBinaryStreams() {
#if defined(_WIN32)
  _setmode(_fileno(stdin), _O_BINARY);
  _setmode(_fileno(stdout), _O_BINARY);
#endif
}

#endif
