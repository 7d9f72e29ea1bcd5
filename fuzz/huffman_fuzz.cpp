// Byte Huffman coding and the generalized interval transform: what was coded comes back, and coders
// and decoders do as the references say, in every cut and with every kernel tier. Code lengths,
// packed tables, coded bytes and joined blocks may also be what the input holds.

#include <string.h>
#include <zebdc/zebdc.h>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <vector>

#include "fuzz.h"
#include "huffman/reference_coder.h"
#include "huffman/reference_git.h"
#include "kernels/tier.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Lengths = std::array<int, 256>;
using zebdc::fuzz::Input;

template <class Run>
void withEveryTier(Run run) {
  for (int tier = 0; tier <= zebdc::kernels::bestTierOfThisMachine(); ++tier) {
    zebdc::kernels::activeTier = tier;
    run();
  }
}

// An allocation of just this size, at whose end the sanitizers stand guard.
template <class T>
std::unique_ptr<T[]> exact(size_t count) {
  return std::unique_ptr<T[]>(new T[count]);
}

std::unique_ptr<uint8_t[]> exactCopy(const uint8_t* bytes, size_t count) {
  auto copy = exact<uint8_t>(count);
  if (count > 0) memcpy(copy.get(), bytes, count);
  return copy;
}

// The input's rest several times over, each time with one byte changed.
Bytes repeatedRest(Input& input) {
  const size_t repetitions = 1 + input.takeBelow(20);
  const auto seed = input.rest();
  Bytes bytes;
  for (size_t i = 0; i < repetitions; ++i) {
    bytes.insert(bytes.end(), seed.begin(), seed.end());
    if (!seed.empty()) bytes[bytes.size() - 1 - i % seed.size()] ^= static_cast<uint8_t>(i);
  }
  return bytes;
}

// ---- Byte Huffman coding

struct HuffRecord {
  alignas(16) uint8_t bytes[2608];

  ZebHuffState_8u* get() { return reinterpret_cast<ZebHuffState_8u*>(bytes); }
};

Bytes encoded(const uint32_t* frequencies, const Bytes& plain, size_t piece) {
  const auto record = std::make_unique<HuffRecord>();
  FUZZ_CHECK(zebsEncodeHuffInit_8u(frequencies, record->get()) == zebOk);
  Lengths lengths;
  FUZZ_CHECK(zebsHuffGetLenCodeTable_8u(lengths.data(), record->get()) == zebOk);
  Bytes coded;
  for (size_t done = 0; done < plain.size();) {
    const size_t count = std::min(piece, plain.size() - done);
    const auto source = exactCopy(plain.data() + done, count);
    int bound = 0;
    FUZZ_CHECK(zebsHuffGetDstBuffSize_8u(lengths.data(), static_cast<int>(count), &bound,
                                         nullptr) == zebOk);
    // Whole words: up to four bytes may wait from the piece before.
    const auto out = exact<uint8_t>(static_cast<size_t>(bound) + 4);
    int written = 0;
    FUZZ_CHECK(zebsEncodeHuff_8u(source.get(), static_cast<int>(count), out.get(), &written,
                                 record->get()) == zebOk);
    FUZZ_CHECK(written % 4 == 0 && written <= bound + 4);
    coded.insert(coded.end(), out.get(), out.get() + written);
    done += count;
  }
  uint8_t last[4];
  int written = 0;
  FUZZ_CHECK(zebsEncodeHuffFinal_8u(last, &written, record->get()) == zebOk);
  coded.insert(coded.end(), last, last + written);
  return coded;
}

// Decodes in pieces. The rooms are ample, so that each piece is used up, but none holds more than
// is wanted.
Bytes decoded(const Lengths& lengths, const Bytes& coded, size_t piece, size_t wanted) {
  const auto record = std::make_unique<HuffRecord>();
  FUZZ_CHECK(zebsDecodeHuffInit_8u(lengths.data(), record->get()) == zebOk);
  Bytes plain;
  for (size_t done = 0; done < coded.size() && plain.size() < wanted;) {
    const size_t count = std::min(piece, coded.size() - done);
    const size_t room = wanted - plain.size();
    const auto source = exactCopy(coded.data() + done, count);
    const auto out = exact<uint8_t>(room);
    int written = static_cast<int>(room);
    FUZZ_CHECK(zebsDecodeHuff_8u(source.get(), static_cast<int>(count), out.get(), &written,
                                 record->get()) == zebOk);
    FUZZ_CHECK(written >= 0 && static_cast<size_t>(written) <= room);
    plain.insert(plain.end(), out.get(), out.get() + written);
    done += count;
  }
  return plain;
}

void checkPackedTable(const Lengths& lengths) {
  uint8_t packed[256];
  int size = sizeof packed;
  FUZZ_CHECK(zebsHuffLenCodeTablePack_8u(lengths.data(), packed, &size) == zebOk);
  const auto source = exactCopy(packed, static_cast<size_t>(size));
  Lengths back;
  int used = size;
  FUZZ_CHECK(zebsHuffLenCodeTableUnpack_8u(source.get(), &used, back.data()) == zebOk);
  FUZZ_CHECK(used == size && back == lengths);
}

// Frequencies of the content, some of them made large, so that codes grow deep.
void checkHuffman(Input& input) {
  const size_t piece = 1 + input.takeBelow(5000);
  const size_t changes = input.takeBelow(40);
  std::array<uint32_t, 256> frequencies{};
  for (size_t i = 0; i < changes; ++i) {
    const uint8_t value = input.takeByte();
    frequencies[value] = 1u << input.takeByte() % 31;
  }
  const Bytes plain = repeatedRest(input);
  for (const uint8_t byte : plain) ++frequencies[byte];

  const auto record = std::make_unique<HuffRecord>();
  const ZebStatus status = zebsEncodeHuffInit_8u(frequencies.data(), record->get());
  if (status != zebOk) {
    FUZZ_CHECK(status == zebErrFreqTable || status == zebErrCodeTooLong);
    return;
  }
  Lengths lengths;
  zebsHuffGetLenCodeTable_8u(lengths.data(), record->get());
  checkPackedTable(lengths);

  Bytes expected;
  zebdc::test::ReferenceEncoder reference(lengths);
  reference.encode(plain.data(), plain.size(), expected);
  reference.finish(expected);
  withEveryTier([&] {
    const Bytes coded = encoded(frequencies.data(), plain, piece);
    FUZZ_CHECK(coded == expected);
    FUZZ_CHECK(decoded(lengths, coded, piece, plain.size()) == plain);
  });
}

void checkHostileHuffman(Input& input) {
  const size_t piece = 1 + input.takeBelow(300);
  const size_t values = 1 + input.takeBelow(256);
  Lengths lengths{};
  for (size_t i = 0; i < values; ++i) {
    const uint8_t value = input.takeByte();
    lengths[value] = input.takeByte() % 33;
  }
  const auto rest = input.rest();
  const Bytes coded(rest.begin(), rest.end());
  if (std::ranges::all_of(lengths, [](int length) { return length == 0; })) return;
  constexpr size_t wanted = 20000;
  zebdc::test::ReferenceDecoder reference(lengths);
  Bytes expected(wanted);
  expected.resize(reference.decode(coded.data(), coded.size(), expected.data(), wanted));
  withEveryTier([&] {
    FUZZ_CHECK(decoded(lengths, coded, coded.size() + 1, wanted) == expected);
    decoded(lengths, coded, piece, wanted);
  });
}

void checkHostileTable(Input& input) {
  const auto rest = input.rest();
  if (rest.empty()) return;
  const auto source = exactCopy(rest.data(), rest.size());
  Lengths lengths;
  int used = static_cast<int>(rest.size());
  const ZebStatus status = zebsHuffLenCodeTableUnpack_8u(source.get(), &used, lengths.data());
  FUZZ_CHECK(status == zebOk || status == zebErrSize);
  FUZZ_CHECK(used >= 0 && static_cast<size_t>(used) <= rest.size());
  for (const int length : lengths) FUZZ_CHECK(length >= 0 && length <= 41);
  if (status == zebOk && std::ranges::all_of(lengths, [](int length) { return length <= 32; })) {
    checkPackedTable(lengths);
  }
}

// ---- Generalized interval transform

struct Freed {
  void operator()(ZebGITState_8u* state) const { zebsGITFree_8u(state); }
};
using GitRecord = std::unique_ptr<ZebGITState_8u, Freed>;

std::optional<Bytes> decodedGit(const Bytes& block, int hint, size_t room) {
  ZebGITState_8u* made = nullptr;
  const int blockLen = static_cast<int>(block.size());
  FUZZ_CHECK(zebsDecodeGITInitAlloc_8u(std::max(blockLen, 1), static_cast<int>(room), &made) ==
             zebOk);
  const GitRecord record(made);
  const auto source = exactCopy(block.data(), block.size());
  const auto out = exact<uint8_t>(room);
  int written = -1;
  const ZebStatus status =
      zebsDecodeGIT_8u(source.get(), blockLen, out.get(), &written, hint, record.get());
  if (status != zebOk) {
    FUZZ_CHECK(status == zebErrSize && written == -1);
    return std::nullopt;
  }
  FUZZ_CHECK(written >= 0 && static_cast<size_t>(written) <= room);
  return Bytes(out.get(), out.get() + written);
}

void checkSameFromEveryTier(const Bytes& block, int hint, size_t room) {
  zebdc::kernels::activeTier = 0;
  const std::optional<Bytes> first = decodedGit(block, hint, room);
  withEveryTier([&] { FUZZ_CHECK(decodedGit(block, hint, room) == first); });
}

void checkGit(Input& input) {
  const int hint = static_cast<int>(1 + input.takeBelow(3));
  const size_t damages = 1 + input.takeBelow(3);
  Input settings = input;
  const Bytes plain = repeatedRest(input);
  const Bytes expected = zebdc::test::referenceGitEncode(plain.data(), plain.size(), hint);

  const int limit = static_cast<int>(std::max<size_t>(plain.size(), 1));
  ZebGITState_8u* made = nullptr;
  FUZZ_CHECK(zebsEncodeGITInitAlloc_8u(limit, static_cast<int>(expected.size()), &made) >= zebOk);
  const GitRecord record(made);
  withEveryTier([&] {
    const auto source = exactCopy(plain.data(), plain.size());
    const auto out = exact<uint8_t>(std::max<size_t>(expected.size(), 8192));
    int written = 0;
    FUZZ_CHECK(zebsEncodeGIT_8u(source.get(), static_cast<int>(plain.size()), out.get(), &written,
                                hint, record.get()) == zebOk);
    FUZZ_CHECK(Bytes(out.get(), out.get() + written) == expected);
    FUZZ_CHECK(decodedGit(expected, hint, static_cast<size_t>(limit)) == plain);
  });

  Bytes damaged = expected;
  for (size_t i = 0; i < damages; ++i) {
    damaged[settings.takeBelow(damaged.size())] ^= static_cast<uint8_t>(1 + settings.takeByte());
  }
  checkSameFromEveryTier(damaged, hint, 2 * static_cast<size_t>(limit));
}

// 256 streams whose bytes, and seldom whose lengths, the input decides.
void checkHostileGit(Input& input) {
  const int hint = static_cast<int>(1 + input.takeBelow(3));
  Bytes block;
  for (int stream = 0; stream < 256; ++stream) {
    const uint8_t count = input.takeByte();
    const auto bytes = input.takeBytes(count % 12);
    const uint8_t stated =
        static_cast<uint8_t>(count == 0xFF ? input.takeByte() : std::max<size_t>(bytes.size(), 1));
    block.insert(block.end(), {0, 0, 0, stated});
    block.insert(block.end(), bytes.begin(), bytes.end());
    if (bytes.empty()) block.push_back(0xFF);
  }
  checkSameFromEveryTier(block, hint, 4000);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  constexpr void (*checks[])(Input&) = {checkHuffman, checkHostileHuffman, checkHostileTable,
                                        checkGit, checkHostileGit};
  checks[input.takeBelow(std::size(checks))](input);
  return 0;
}
