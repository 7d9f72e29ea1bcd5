#include "formats/formats.h"

#include <algorithm>
#include <array>

namespace zebz {
namespace {

constexpr std::array allFormats = {&gzipFormat,  &zlibFormat, &deflateFormat,
                                   &bzip2Format, &lzopFormat, &zebFormat};

bool startsWith(Bytes bytes, std::string_view magic) {
  return bytes.size() >= magic.size() &&
         std::equal(magic.begin(), magic.end(), bytes.begin(),
                    [](char a, uint8_t b) { return static_cast<uint8_t>(a) == b; });
}

}  // namespace

std::span<const Format* const> formats() {
  return allFormats;
}

const Format* formatNamed(std::string_view name) {
  const auto found = std::find_if(allFormats.begin(), allFormats.end(),
                                  [name](const Format* format) { return format->name == name; });
  return found == allFormats.end() ? nullptr : *found;
}

const Format* formatOfMagic(Bytes start) {
  const auto found =
      std::find_if(allFormats.begin(), allFormats.end(), [start](const Format* format) {
        return !format->magic.empty() && startsWith(start, format->magic);
      });
  return found == allFormats.end() ? nullptr : *found;
}

}  // namespace zebz
