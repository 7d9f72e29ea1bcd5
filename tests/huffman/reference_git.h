// The generalized interval transform written step by step after its rules, with a counting tree and
// single bits. The library is compared with it, and timed against it.
#ifndef ZEBDC_TESTS_HUFFMAN_REFERENCE_GIT_H
#define ZEBDC_TESTS_HUFFMAN_REFERENCE_GIT_H

#include <stddef.h>
#include <stdint.h>

#include <vector>

namespace zebdc::test {

// The joined streams of one block. The hint is 1, 2 or 3.
std::vector<uint8_t> referenceGitEncode(const uint8_t* src, size_t len, int hint);

// The bytes of a well-formed block.
std::vector<uint8_t> referenceGitDecode(const uint8_t* src, size_t len, int hint);

}  // namespace zebdc::test

#endif
