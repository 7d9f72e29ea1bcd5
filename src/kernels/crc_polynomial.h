// CRC by carry-less multiplication: the constants, derived at compile time.
//
// Read a message as a polynomial over GF(2) whose highest powers come first. Its CRC, starting from
// register 0, is message * x^32 mod P, and a start value is the same as adding (exclusive or) the
// register to the first 32 bits of the message. So the message may be replaced by any other one
// that leaves the same remainder. Folding does that: of a 128-bit accumulator
//
//     A = H * x^64 + L,    to stand D bits before the end,
//
// the contribution A * x^D is congruent to
//
//     H * (x^(D + 64) mod P)  +  L * (x^D mod P),
//
// two carry-less products of a 64-bit by a 32-bit polynomial, at most 96 bits long. They can be
// added to the 128 bits of message D bits further on: the front of the message is gone and nothing
// has been divided. Folding is exact in any order and over any distance, so several accumulators
// advance side by side, as many as hide the latency of the multiplier, and meet at the end.
//
// The last accumulator is reduced by Barrett's method, in three products:
//
//   1. A * x^32 = H * x^96 + L * x^32; with H * (x^96 mod P) in place of the first term this is a
//      polynomial V of 96 bits: V = V1 * x^32 + V0, V1 of 64 bits.
//   2. The quotient of V by P is floor(V1 * M / x^64), exactly, with M = floor(x^96 / P): 64 bits.
//   3. The remainder is quotient * P + V; only its low 32 bits are not known to be 0.
//
// Bit order. For a CRC that is defined most significant bit first the 16 bytes are reversed after
// the load and bit i of a register is the coefficient of x^i. The reflected CRCs need no shuffle:
// bytes stay as they are, bit i of a 64-bit lane is the coefficient of x^(63 - i), and the lower
// lane is H. The product of two reflected 64-bit operands is a 127-bit polynomial whose bit i is
// the coefficient of x^(126 - i): seen as a reflected 128-bit register, it is the product times x.
// Constants for reflected registers are therefore made for one power less.
//
// References: V. Gopal et al., "Fast CRC Computation for Generic Polynomials Using PCLMULQDQ
// Instruction", 2009; P. Barrett, "Implementing the Rivest Shamir and Adleman public key encryption
// algorithm on a standard digital signal processor", 1986.
#ifndef ZEBDC_KERNELS_CRC_POLYNOMIAL_H
#define ZEBDC_KERNELS_CRC_POLYNOMIAL_H

#include <stdint.h>

namespace zebdc::kernels {

// x^n mod P, where P = x^32 + lowTerms. Bit i is the coefficient of x^i.
constexpr uint64_t powerOfX(uint32_t n, uint32_t lowTerms) {
  uint32_t power = 1;
  for (uint32_t i = 0; i < n; ++i) power = (power << 1) ^ ((power >> 31) != 0 ? lowTerms : 0);
  return power;
}

// floor(x^96 / P) without its leading term x^64.
constexpr uint64_t barrettQuotient(uint32_t lowTerms) {
  uint64_t quotient = 0;
  uint32_t remainder = lowTerms;  // of x^32
  for (int i = 0; i < 64; ++i) {
    const uint32_t lead = remainder >> 31;
    quotient = (quotient << 1) | lead;
    remainder = (remainder << 1) ^ (lead != 0 ? lowTerms : 0);
  }
  return quotient;
}

constexpr uint64_t reflected64(uint64_t value) {
  uint64_t result = 0;
  for (int i = 0; i < 64; ++i) result |= ((value >> i) & 1) << (63 - i);
  return result;
}

// Factors for the two 64-bit lanes of a register, or one factor for each of two steps.
struct LanePair {
  uint64_t low;
  uint64_t high;
};

// The constants of a CRC whose registers hold the message as it stands in memory.
template <uint32_t lowTerms>
struct ReflectedCrc {
  static constexpr bool reflected = true;

  // Moves an accumulator over `bits` bits.
  template <uint32_t bits>
  static constexpr LanePair foldOver = {reflected64(powerOfX(bits + 64 - 1, lowTerms)),
                                        reflected64(powerOfX(bits - 1, lowTerms))};

  // Moves a 32-bit register over `bits` bits, but for a product by x^33.
  template <uint32_t bits>
  static constexpr uint64_t registerOver = reflected64(powerOfX(bits - 33, lowTerms)) >> 32;

  // H -> the lane of V1 followed by V0: 32 places lower than a fold would put it.
  static constexpr uint64_t reduceHigh = reflected64(powerOfX(96 - 1, lowTerms)) >> 32;
  // M / x: together with the x of the product, all of M that reaches the quotient.
  static constexpr uint64_t quotientFactor =
      reflected64((barrettQuotient(lowTerms) >> 1) | uint64_t{1} << 63);
  // P reflected in 33 bits: puts the remainder beside V0.
  static constexpr uint64_t remainderFactor = (reflected64(lowTerms) >> 31) | 1;
};

// The constants of a CRC whose registers hold the message with its bytes reversed.
template <uint32_t lowTerms>
struct MsbFirstCrc {
  static constexpr bool reflected = false;

  template <uint32_t bits>
  static constexpr LanePair foldOver = {powerOfX(bits, lowTerms), powerOfX(bits + 64, lowTerms)};

  // H -> the upper lane holds V1, the upper half of the lower lane V0.
  static constexpr uint64_t reduceHigh = powerOfX(96, lowTerms) << 32;
  // M without x^64, whose product is V1 itself.
  static constexpr uint64_t quotientFactor = barrettQuotient(lowTerms);
  // P without x^32, 32 places higher: puts the remainder beside V0.
  static constexpr uint64_t remainderFactor = uint64_t{lowTerms} << 32;
};

// Both orders write CRC-32 and the bzip2 CRC with the same polynomial.
using Crc32 = ReflectedCrc<0x04C11DB7>;
using Crc32c = ReflectedCrc<0x1EDC6F41>;
using Crc32Bzip2 = MsbFirstCrc<0x04C11DB7>;

}  // namespace zebdc::kernels

#endif
