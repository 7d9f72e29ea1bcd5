// The inverse Burrows-Wheeler transform.
//
// A row is a rotation; its successor is the row of the rotation that starts one position later.
// Row r's successor is the position in the column of the byte that sorts to r, if equal bytes keep
// their order. Walking from row to successor, beginning at the index, spells the block by the first
// bytes of the rows. Each row is one word:
//
//   31          8        0
//   | successor | byte   |     or in long columns the successor alone: the byte is then the one
//                              that the column has at the successor
//
// A plain walk takes, for each byte, the time in which a load misses the caches, because only the
// one load tells the next address. So the walk is cut into segments that are walked side by side.
// Where they begin in the block is not known beforehand; but every row whose number agrees with
// the index in its low bits can begin a segment, and each walk ends where it meets the beginning of
// another one. A first pass finds the lengths and the sequence of the segments, and with them where
// each goes in the block; a second one writes them. Two passes of overlapping loads take a fraction
// of the time of a single chain.

#include "kernels/bwt_inverse.h"

#include <string.h>

#include <algorithm>
#include <bit>

#include "frame/bytes.h"
#include "frame/compiler.h"

namespace zebdc::kernels {
namespace {

constexpr uint32_t byteValues = 256;

struct ShortRows {
  static uint32_t make(uint32_t successor, uint32_t byte) { return successor << 8 | byte; }
  static uint32_t successor(uint32_t row) { return row >> 8; }
  uint8_t byte(uint32_t row) const { return static_cast<uint8_t>(row); }
};

struct LongRows {
  static uint32_t make(uint32_t successor, uint32_t) { return successor; }
  static uint32_t successor(uint32_t row) { return row; }
  uint8_t byte(uint32_t row) const { return column[row]; }

  const uint8_t* column;
};

// ---- Building the rows

// Each part of the column has counters of its own: neighbouring bytes of one column are often
// equal, and increments of one counter wait for each other.
constexpr uint32_t parts = 4;

struct PartCounters {
  uint32_t next[parts][byteValues];
};

void countParts(const uint8_t* column, uint32_t length, PartCounters& counters) {
  memset(&counters, 0, sizeof counters);
  const uint32_t partLength = length / parts;
  for (uint32_t i = 0; i < partLength; ++i) {
    for (uint32_t part = 0; part < parts; ++part) {
      ++counters.next[part][column[part * partLength + i]];
    }
  }
  // The last part has the rest, too.
  for (uint32_t i = parts * partLength; i < length; ++i) ++counters.next[parts - 1][column[i]];
  uint32_t sum = 0;
  for (uint32_t byte = 0; byte < byteValues; ++byte) {
    for (uint32_t part = 0; part < parts; ++part) {
      const uint32_t count = counters.next[part][byte];
      counters.next[part][byte] = sum;
      sum += count;
    }
  }
}

template <class Format>
void buildRows(const uint8_t* column, uint32_t length, uint8_t* rows) {
  PartCounters counters;
  countParts(column, length, counters);
  const auto place = [&](uint32_t part, uint32_t position) {
    const uint32_t byte = column[position];
    store(rows + size_t{counters.next[part][byte]++} * sizeof(uint32_t),
          Format::make(position, byte));
  };
  const uint32_t partLength = length / parts;
  for (uint32_t i = 0; i < partLength; ++i) {
    for (uint32_t part = 0; part < parts; ++part) place(part, part * partLength + i);
  }
  for (uint32_t i = parts * partLength; i < length; ++i) place(parts - 1, i);
}

ZEBDC_ALWAYS_INLINE uint32_t rowAt(const uint8_t* rows, uint32_t number) {
  return load<uint32_t>(rows + size_t{number} * sizeof(uint32_t));
}

// ---- Walking

struct Segment {
  uint32_t length;
  uint32_t next;  // the segment that follows in the block
};

// The segments of a walk, in the order of the rows in which they begin.
class Segments {
 public:
  static constexpr uint32_t leastSegmentBytes = 256;

  Segments(uint32_t length, uint32_t index) {
    const uint32_t wanted = std::min(mostSegments, length / leastSegmentBytes);
    shift_ = static_cast<uint32_t>(std::bit_width((length - 1) / wanted));
    phase_ = index & lowBits();
    count_ = (length - phase_ + lowBits()) >> shift_;
    memset(segments_, 0, count_ * sizeof *segments_);
  }

  uint32_t count() const { return count_; }
  bool isStart(uint32_t row) const { return (row & lowBits()) == phase_; }
  uint32_t startOf(uint32_t segment) const { return (segment << shift_) + phase_; }
  uint32_t beginningAt(uint32_t row) const { return row >> shift_; }
  Segment& operator[](uint32_t segment) { return segments_[segment]; }

 private:
  static constexpr uint32_t mostSegments = 1024;

  uint32_t lowBits() const { return (1u << shift_) - 1; }

  uint32_t shift_;
  uint32_t phase_;
  uint32_t count_;
  Segment segments_[mostSegments];
};

// Walks that go on side by side. Shorter blocks are not worth the cutting.
constexpr uint32_t lanes = 16;
constexpr uint32_t shortestCutBlock = 1 << 14;
// Rounding to a power of two may halve the number of segments.
static_assert(shortestCutBlock / Segments::leastSegmentBytes / 2 > lanes);

// First pass. A lane that has finished its segment takes the next one. When there is none left, it
// walks its segment again until the other lanes have finished, too.
template <class Format>
void measureSegments(const uint8_t* rows, Segments& segments) {
  uint32_t row[lanes];
  uint32_t segment[lanes];
  uint32_t begin[lanes] = {};  // the step at which the lane began its segment
  uint32_t started = 0;
  for (; started < lanes; ++started) {
    row[started] = segments.startOf(started);
    segment[started] = started;
  }
  uint32_t finished = 0;
  for (uint32_t step = 1;; ++step) {
    for (uint32_t i = 0; i < lanes; ++i) {
      row[i] = Format::successor(rowAt(rows, row[i]));
      if (!segments.isStart(row[i])) continue;
      Segment& measured = segments[segment[i]];
      finished += measured.length == 0;
      measured = {step - begin[i], segments.beginningAt(row[i])};
      if (finished == segments.count()) return;
      if (started < segments.count()) segment[i] = started++;
      row[i] = segments.startOf(segment[i]);
      begin[i] = step;
    }
  }
}

struct Walk {
  uint32_t row;
  uint32_t left;
  uint8_t* out;
};

// Hands out the segments from that of the index on, until they fill the block or come round.
class SegmentSequence {
 public:
  SegmentSequence(Segments& segments, uint32_t index, uint8_t* block, uint32_t length)
      : segments_(segments),
        first_(segments.beginningAt(index)),
        next_(first_),
        block_(block),
        length_(length) {}

  bool take(Walk* walk) {
    if (written_ == length_ || (written_ > 0 && next_ == first_)) return false;
    const Segment& segment = segments_[next_];
    *walk = {segments_.startOf(next_), segment.length, block_ + written_};
    written_ += segment.length;
    next_ = segment.next;
    return true;
  }

  // The bytes of all segments handed out.
  uint32_t written() const { return written_; }

 private:
  Segments& segments_;
  uint32_t first_;
  uint32_t next_;
  uint8_t* block_;
  uint32_t length_;
  uint32_t written_ = 0;
};

template <class Format>
ZEBDC_ALWAYS_INLINE void walkSideBySide(const Format& format, const uint8_t* rows, Walk* walks,
                                        uint32_t count, uint32_t steps) {
  for (uint32_t step = 0; step < steps; ++step) {
    for (uint32_t i = 0; i < count; ++i) {
      const uint32_t row = rowAt(rows, walks[i].row);
      walks[i].out[step] = format.byte(row);
      walks[i].row = Format::successor(row);
    }
  }
  for (uint32_t i = 0; i < count; ++i) {
    walks[i].left -= steps;
    walks[i].out += steps;
  }
}

// Second pass.
template <class Format>
void writeSegments(const Format& format, const uint8_t* rows, SegmentSequence& sequence) {
  Walk walks[lanes];
  uint32_t active = 0;
  while (active < lanes && sequence.take(&walks[active])) ++active;
  while (active > 0) {
    uint32_t steps = UINT32_MAX;
    for (uint32_t i = 0; i < active; ++i) steps = std::min(steps, walks[i].left);
    if (active == lanes) {
      walkSideBySide(format, rows, walks, lanes, steps);
    } else {
      walkSideBySide(format, rows, walks, active, steps);
    }
    for (uint32_t i = active; i-- > 0;) {
      if (walks[i].left == 0 && !sequence.take(&walks[i])) walks[i] = walks[--active];
    }
  }
}

template <class Format>
void walkPlainly(const Format& format, const uint8_t* rows, uint32_t index, uint32_t length,
                 uint8_t* block) {
  for (uint32_t i = 0; i < length; ++i) {
    const uint32_t row = rowAt(rows, index);
    block[i] = format.byte(row);
    index = Format::successor(row);
  }
}

template <class Format>
void invert(const Format& format, const uint8_t* column, uint32_t length, uint32_t index,
            uint8_t* rows, uint8_t* block) {
  buildRows<Format>(column, length, rows);
  if (length < shortestCutBlock) return walkPlainly(format, rows, index, length, block);
  Segments segments(length, index);
  measureSegments<Format>(rows, segments);
  SegmentSequence sequence(segments, index, block, length);
  writeSegments(format, rows, sequence);
  // In the column of a block, one chain of successors leads through all rows. In any other one, it
  // may come round earlier and then begins again.
  for (uint32_t i = sequence.written(); i < length; ++i) block[i] = block[i - sequence.written()];
}

}  // namespace

void invertSmallColumn(const uint8_t* column, uint32_t length, uint32_t index, uint8_t* links,
                       uint8_t* block) {
  uint32_t next[byteValues] = {};
  for (uint32_t i = 0; i < length; ++i) ++next[column[i]];
  uint32_t sum = 0;
  for (uint32_t& count : next) {
    const uint32_t start = sum;
    sum += count;
    count = start;
  }
  const auto linkAt = [links](uint32_t row) { return links + size_t{row} * sizeof(uint16_t); };
  for (uint32_t i = 0; i < length; ++i) {
    store(linkAt(next[column[i]]++), static_cast<uint16_t>(i));
  }
  for (uint32_t i = 0; i < length; ++i) {
    index = load<uint16_t>(linkAt(index));
    block[i] = column[index];
  }
}

void invertColumn(const uint8_t* column, uint32_t length, uint32_t index, uint8_t* rows,
                  uint8_t* block) {
  invert(ShortRows(), column, length, index, rows, block);
}

void invertLongColumn(const uint8_t* column, uint32_t length, uint32_t index, uint8_t* rows,
                      uint8_t* block) {
  invert(LongRows{column}, column, length, index, rows, block);
}

}  // namespace zebdc::kernels
