#include "stream/format.h"

namespace zebz {

DecodeResult::Rest skipRest(BufferedSource& source) {
  if (!source.fill()) return DecodeResult::Rest::none;
  do {
    for (const uint8_t byte : source.unread()) {
      if (byte != 0) return DecodeResult::Rest::garbage;
    }
    source.skip(source.unread().size());
  } while (source.fill());
  return DecodeResult::Rest::zeros;
}

}  // namespace zebz
