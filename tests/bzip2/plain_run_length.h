// The run-length stages byte by byte, as their rules read.
#ifndef ZEBDC_TESTS_BZIP2_PLAIN_RUN_LENGTH_H
#define ZEBDC_TESTS_BZIP2_PLAIN_RUN_LENGTH_H

#include <zebdc/zebdc.h>

#include <span>

#include "support/data.h"

namespace zebdc::test {

struct PlainRunEncoder {
  Bytes inUse = Bytes(256);
  int value = -1;
  int count = 0;

  void put(Bytes& out, uint8_t byte) {
    out.push_back(byte);
    inUse[byte] = 1;
  }

  // Returns how much of the source was consumed.
  size_t encode(std::span<const uint8_t> source, size_t room, Bytes& out) {
    const size_t end = out.size() + room;
    size_t in = 0;
    while (true) {
      while (count < 4 && in < source.size() && out.size() < end) {
        put(out, source[in]);
        count = source[in] == value ? count + 1 : 1;
        value = source[in++];
      }
      if (count < 4 || out.size() == end) return in;
      while (count < 259 && in < source.size() && source[in] == value) {
        ++count;
        ++in;
      }
      if (in == source.size()) return in;
      put(out, static_cast<uint8_t>(count - 4));
      count = 0;
    }
  }

  void flush(Bytes& out) {
    if (count < 4) return;
    put(out, static_cast<uint8_t>(count - 4));
    count = 0;
  }
};

struct PlainDecoded {
  ZebStatus status;
  size_t consumed;
  Bytes out;

  bool operator==(const PlainDecoded&) const = default;
};

// The decoder of whole blocks: behind a full destination, too, comes a count byte.
inline PlainDecoded plainDecodeRuns(std::span<const uint8_t> source, size_t capacity) {
  Bytes out;
  if (source.empty()) return {zebOk, 0, out};
  size_t in = 0;
  int last = -1;
  int run = 0;
  while (true) {
    while (run < 4 && in < source.size() && out.size() < capacity) {
      run = source[in] == last ? run + 1 : 1;
      last = source[in++];
      out.push_back(static_cast<uint8_t>(last));
    }
    if (in == source.size()) return {out.size() == capacity ? zebWarnDstFull : zebOk, in, out};
    const size_t further = source[in++];
    if (out.size() + further > capacity) return {zebWarnDstFull, in, out};
    out.insert(out.end(), further, static_cast<uint8_t>(last));
    run = 0;
  }
}

struct PlainRunDecoder {
  int value = -1;
  size_t count = 0;

  PlainDecoded decode(std::span<const uint8_t> source, size_t room) {
    Bytes out;
    if (count > room) {
      out.assign(room, static_cast<uint8_t>(value));
      count -= room;
      return {zebWarnDstFull, 0, out};
    }
    out.assign(count, static_cast<uint8_t>(value));
    value = -1;
    count = 0;

    const size_t size = source.size();
    const auto isGroup = [&](size_t at, int byte) {
      if (at + 4 >= size) return false;  // the count byte would lie outside the source
      for (size_t i = at; i < at + 4; ++i) {
        if (source[i] != byte) return false;
      }
      return true;
    };
    size_t in = 0;
    if (size > 3) {
      while (in < size - 3 && out.size() < room) {
        const uint8_t byte = source[in];
        if (!isGroup(in, byte)) {
          out.push_back(byte);
          ++in;
          continue;
        }
        size_t pending = 0;
        for (; isGroup(in, byte); in += 5) pending += size_t{4} + source[in + 4];
        if (pending > room - out.size()) {
          count = pending - (room - out.size());
          value = byte;
          out.resize(room, byte);
          return {zebWarnDstFull, in, out};
        }
        out.insert(out.end(), pending, byte);
      }
      if (out.size() == room) {
        const uint8_t byte = out.back();
        if (in + 3 <= size - 3 && source[in] == byte && source[in + 1] == byte &&
            source[in + 2] == byte) {
          count = size_t{3} + source[in + 3];
          value = byte;
          in += 4;
          for (; isGroup(in, byte); in += 5) count += size_t{4} + source[in + 4];
        }
        return {zebWarnDstFull, in, out};
      }
    }
    while (in < size && out.size() < room) out.push_back(source[in++]);
    return {zebOk, in, out};
  }

  PlainDecoded flush(size_t room) {
    const size_t written = count < room ? count : room;
    const Bytes out(written, static_cast<uint8_t>(value));
    count -= written;
    if (count > 0) return {zebWarnDstFull, 0, out};
    value = -1;
    return {zebOk, 0, out};
  }
};

}  // namespace zebdc::test

#endif
