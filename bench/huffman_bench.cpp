// Byte Huffman coding and the generalized interval transform, against plain renderings of their
// rules, which are the tests' references.

#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdlib.h>
#include <zebdc/zebdc.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <vector>

#include "corpus.h"
#include "families.h"
#include "huffman/reference_coder.h"
#include "huffman/reference_git.h"

namespace zebdc::bench {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr size_t intervalBlock = size_t{1} << 18;
constexpr int intervalHint = zebGITStrategyLeafSwap;

void require(bool condition, const char* what) {
  if (condition) return;
  fprintf(stderr, "huffman benchmark: %s\n", what);
  abort();
}

// Times run() over a file's bytes.
template <class Run>
void add(const std::string& name, size_t bytes, Run run) {
  benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(run());
    state.SetBytesProcessed(static_cast<int64_t>(bytes) * state.iterations());
  });
}

// --- byte Huffman coding

struct CodedFile {
  Bytes plain;
  std::array<uint32_t, 256> frequencies{};
  std::array<int, 256> lengths{};
  Bytes coded;
};

template <class Init>
std::shared_ptr<ZebHuffState_8u> record(Init init) {
  ZebHuffState_8u* state = nullptr;
  require(init(&state) == zebOk, "no record");
  return {state, zebsHuffFree_8u};
}

std::shared_ptr<const CodedFile> codedFile(const File& file) {
  auto result = std::make_shared<CodedFile>();
  result->plain = file.bytes;
  for (const uint8_t byte : file.bytes) ++result->frequencies[byte];
  const auto state = record([&](ZebHuffState_8u** made) {
    return zebsEncodeHuffInitAlloc_8u(result->frequencies.data(), made);
  });
  zebsHuffGetLenCodeTable_8u(result->lengths.data(), state.get());
  test::ReferenceEncoder reference(result->lengths);
  reference.encode(file.bytes.data(), file.bytes.size(), result->coded);
  reference.finish(result->coded);
  return result;
}

size_t encode(const CodedFile& file, Bytes& room) {
  const auto state = record([&](ZebHuffState_8u** made) {
    return zebsEncodeHuffInitAlloc_8u(file.frequencies.data(), made);
  });
  int written = 0;
  int rest = 0;
  zebsEncodeHuff_8u(file.plain.data(), static_cast<int>(file.plain.size()), room.data(), &written,
                    state.get());
  zebsEncodeHuffFinal_8u(room.data() + written, &rest, state.get());
  return static_cast<size_t>(written + rest);
}

size_t decode(const CodedFile& file, Bytes& room) {
  const auto state = record([&](ZebHuffState_8u** made) {
    return zebsDecodeHuffInitAlloc_8u(file.lengths.data(), made);
  });
  int written = static_cast<int>(file.plain.size());
  zebsDecodeHuff_8u(file.coded.data(), static_cast<int>(file.coded.size()), room.data(), &written,
                    state.get());
  return static_cast<size_t>(written);
}

void addHuffman(const File& file) {
  const auto coded = codedFile(file);
  const auto room = std::make_shared<Bytes>(file.bytes.size() * 2 + 8);
  require(encode(*coded, *room) == coded->coded.size() &&
              std::equal(coded->coded.begin(), coded->coded.end(), room->begin()),
          "codes differ");
  require(decode(*coded, *room) == file.bytes.size() &&
              std::equal(file.bytes.begin(), file.bytes.end(), room->begin()),
          "code does not decode");

  const size_t size = file.bytes.size();
  const std::string suffix = "/" + file.name + "/";
  add("huffman/encode" + suffix + "zebdc", size, [=] { return encode(*coded, *room); });
  add("huffman/encode" + suffix + "plain", size, [=] {
    test::ReferenceEncoder reference(coded->lengths);
    room->clear();
    reference.encode(coded->plain.data(), coded->plain.size(), *room);
    const size_t written = room->size();
    room->resize(room->capacity());
    return written;
  });
  add("huffman/decode" + suffix + "zebdc", size, [=] { return decode(*coded, *room); });
  add("huffman/decode" + suffix + "plain", size, [=] {
    test::ReferenceDecoder reference(coded->lengths);
    return reference.decode(coded->coded.data(), coded->coded.size(), room->data(),
                            coded->plain.size());
  });
}

// --- generalized interval transform

void addIntervals(const File& file) {
  const auto block = std::make_shared<Bytes>(file.bytes);
  block->resize(std::min(block->size(), intervalBlock));
  const int blockLen = static_cast<int>(block->size());
  const auto coded = std::make_shared<const Bytes>(
      test::referenceGitEncode(block->data(), block->size(), intervalHint));
  const auto room = std::make_shared<Bytes>(2 * intervalBlock + 8192);

  ZebGITState_8u* made = nullptr;
  require(zebsEncodeGITInitAlloc_8u(intervalBlock, 2 * intervalBlock, &made) == zebOk, "no record");
  const std::shared_ptr<ZebGITState_8u> encoder(made, zebsGITFree_8u);
  require(zebsDecodeGITInitAlloc_8u(2 * intervalBlock, blockLen, &made) == zebOk, "no record");
  const std::shared_ptr<ZebGITState_8u> decoder(made, zebsGITFree_8u);
  const auto encodeBlock = [=] {
    int written = 0;
    zebsEncodeGIT_8u(block->data(), blockLen, room->data(), &written, intervalHint, encoder.get());
    return static_cast<size_t>(written);
  };
  const auto decodeBlock = [=] {
    int written = 0;
    zebsDecodeGIT_8u(coded->data(), static_cast<int>(coded->size()), room->data(), &written,
                     intervalHint, decoder.get());
    return static_cast<size_t>(written);
  };
  require(encodeBlock() == coded->size() && std::equal(coded->begin(), coded->end(), room->begin()),
          "interval codes differ");
  require(decodeBlock() == block->size() && std::equal(block->begin(), block->end(), room->begin()),
          "interval code does not decode");

  const std::string suffix = "/" + file.name + "/";
  add("git/encode" + suffix + "zebdc", block->size(), encodeBlock);
  add("git/encode" + suffix + "plain", block->size(),
      [=] { return test::referenceGitEncode(block->data(), block->size(), intervalHint).size(); });
  add("git/decode" + suffix + "zebdc", block->size(), decodeBlock);
  add("git/decode" + suffix + "plain", block->size(),
      [=] { return test::referenceGitDecode(coded->data(), coded->size(), intervalHint).size(); });
}

}  // namespace

void registerHuffman() {
  for (const File& file : corpus()) {
    addHuffman(file);
    addIntervals(file);
  }
}

}  // namespace zebdc::bench
