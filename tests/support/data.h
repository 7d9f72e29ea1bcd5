// Inputs for the tests, made on the spot and the same in every run.
#ifndef ZEBDC_TESTS_SUPPORT_DATA_H
#define ZEBDC_TESTS_SUPPORT_DATA_H

#include <stddef.h>
#include <stdint.h>

#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace zebdc::test {

using Bytes = std::vector<uint8_t>;
using Random = std::mt19937_64;

// A number of 0 to limit - 1, or 0 when limit is 0. Unlike the standard distributions it is the
// same with every standard library.
inline size_t below(Random& random, size_t limit) {
  return limit == 0 ? 0 : random() % limit;
}

Bytes fromText(std::string_view text);

Bytes randomBytes(size_t size, uint64_t seed);               // incompressible
Bytes textLike(size_t size, uint64_t seed);                  // words of skewed frequency
Bytes repeated(size_t size, std::string_view period);        // a short period over and over
Bytes fibonacciWord(size_t size);                            // over the letters a and b
Bytes skewed(size_t size, uint64_t seed, int alphabetSize);  // geometric byte frequencies
Bytes runs(size_t size, uint64_t seed);                      // runs of 1 to 1000 equal bytes
Bytes binaryLike(size_t size, uint64_t seed);                // records with counters and strings

struct NamedBytes {
  std::string name;
  Bytes bytes;
};

// One input of each kind at the given size.
std::vector<NamedBytes> oneOfEachKind(size_t size);

// One to four changes (flips, overwritten, removed, inserted or swapped bytes) to a valid stream.
Bytes mutated(Bytes bytes, Random& random);

}  // namespace zebdc::test

#endif
