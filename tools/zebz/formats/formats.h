// The formats that the tool knows.
#ifndef ZEBZ_FORMATS_FORMATS_H
#define ZEBZ_FORMATS_FORMATS_H

#include <span>

#include "stream/format.h"

namespace zebz {

extern const Format bzip2Format;
extern const Format deflateFormat;
extern const Format gzipFormat;
extern const Format lzopFormat;
extern const Format zebFormat;
extern const Format zlibFormat;

// All of them; the first is the default.
std::span<const Format* const> formats();

// Null where there is none.
const Format* formatNamed(std::string_view name);
const Format* formatOfMagic(Bytes start);

}  // namespace zebz

#endif
