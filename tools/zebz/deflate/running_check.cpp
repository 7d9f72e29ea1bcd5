// Combining uses that both checksums are linear in the right sense:
//
// CRC-32: the checksum of A followed by B is that of A followed by as many zeros, combined by XOR
// with that of B. In the reflected representation, where bit 31 of a word stands for x^0, passing
// n zero bytes is a multiplication by x^(8n) modulo the polynomial.
//
// Adler-32: with sums a = 1 + the sum of the bytes and b = the sum of all intermediate a, passing
// B's n bytes from the sums of A instead of (1, 0) adds a(A) - 1 to each of the n intermediate
// sums.
#include "deflate/running_check.h"

#include <limits.h>
#include <zebdc/zebdc.h>

#include <algorithm>

namespace zebz {
namespace {

constexpr uint32_t crcPolynomial = 0xEDB88320;
constexpr uint32_t xToThe8 = uint32_t{1} << (31 - 8);
constexpr uint32_t one = uint32_t{1} << 31;

constexpr uint32_t multiply(uint32_t a, uint32_t b) {
  uint32_t product = 0;
  for (uint32_t term = one; term != 0; term >>= 1) {
    if ((a & term) != 0) product ^= b;
    b = (b >> 1) ^ ((b & 1) != 0 ? crcPolynomial : 0);
  }
  return product;
}

constexpr uint32_t passZeros(uint32_t crc, uint64_t count) {
  uint32_t power = xToThe8;
  for (; count != 0; count >>= 1) {
    if ((count & 1) != 0) crc = multiply(crc, power);
    power = multiply(power, power);
  }
  return crc;
}

constexpr uint32_t combineCrc(uint32_t first, uint32_t second, uint64_t secondLength) {
  return passZeros(first, secondLength) ^ second;
}

constexpr uint32_t combineAdler(uint32_t first, uint32_t second, uint64_t secondLength) {
  constexpr uint64_t modulus = 65521;
  const uint64_t carried = (first & 0xFFFF) + modulus - 1;
  const uint64_t a = (carried + (second & 0xFFFF)) % modulus;
  const uint64_t b =
      ((first >> 16) + (second >> 16) + carried % modulus * (secondLength % modulus)) % modulus;
  return static_cast<uint32_t>(b << 16 | a);
}

// The check values of "123456789", put together from "1234" and "56789".
static_assert(combineCrc(0x9BE3E0A3, 0x131DA070, 5) == 0xCBF43926);
static_assert(combineAdler(0x01F800CB, 0x03340114, 5) == 0x091E01DE);

}  // namespace

void RunningCheck::update(Bytes bytes) {
  length_ += bytes.size();
  while (kind_ != CheckKind::none && !bytes.empty()) {
    const Bytes part = bytes.first(std::min<size_t>(bytes.size(), INT_MAX));
    const int length = static_cast<int>(part.size());
    if (kind_ == CheckKind::crc32) {
      zebsCRC32_8u(part.data(), length, &value_);
    } else {
      zebsAdler32_8u(part.data(), length, &value_);
    }
    bytes = bytes.subspan(part.size());
  }
}

void RunningCheck::append(const RunningCheck& next) {
  if (kind_ == CheckKind::crc32) value_ = combineCrc(value_, next.value_, next.length_);
  if (kind_ == CheckKind::adler32) value_ = combineAdler(value_, next.value_, next.length_);
  length_ += next.length_;
}

}  // namespace zebz
