// Runs a fuzz target without a fuzzing engine:
//
//   <target> [--runs=N] [--seed=S] [--max-size=B] [FILE or FOLDER ...]
//
// Each file is run as it is. Then N inputs are made from the files (or from nothing, where none are
// given) by random changes and run; the same seed makes the same inputs. An input that ends the
// program is left behind in the file crash-input.

#include <signal.h>
#include <stdint.h>
#include <stdio.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Makes the sanitizers end the program by a signal, so that the input is kept.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
  return "abort_on_error=1";
}

namespace {

using Bytes = std::vector<uint8_t>;
using Random = std::mt19937_64;

const Bytes* running = nullptr;

void keepInput(int signal) {
  if (FILE* const file = fopen("crash-input", "wb"); file != nullptr && running != nullptr) {
    fwrite(running->data(), 1, running->size(), file);
    fclose(file);
    fputs("the input is in crash-input\n", stderr);
  }
  ::signal(signal, SIG_DFL);
  raise(signal);
}

void run(const Bytes& input) {
  running = &input;
  // An allocation of exactly the input's size, at whose end the sanitizers stand guard.
  const Bytes exact(input.begin(), input.end());
  LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

size_t below(Random& random, size_t limit) {
  return limit == 0 ? 0 : random() % limit;
}

Bytes randomBytes(Random& random, size_t size) {
  Bytes bytes(size);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
  return bytes;
}

// One change at a random place: flipped, overwritten, removed, inserted or repeated bytes, or a
// piece of another input.
void change(Bytes& bytes, const std::vector<Bytes>& inputs, Random& random) {
  const size_t at = below(random, bytes.size() + 1);
  const size_t count = std::min(bytes.size() - at, 1 + below(random, 1 + below(random, 64)));
  const auto begin = bytes.begin() + static_cast<ptrdiff_t>(at);
  const auto end = begin + static_cast<ptrdiff_t>(count);
  switch (below(random, 6)) {
    case 0:
      if (count > 0) *begin ^= static_cast<uint8_t>(1u << below(random, 8));
      break;
    case 1:
      for (auto place = begin; place != end; ++place) *place = static_cast<uint8_t>(random());
      break;
    case 2:
      bytes.erase(begin, end);
      break;
    case 3: {
      const Bytes inserted = randomBytes(random, 1 + below(random, 16));
      bytes.insert(begin, inserted.begin(), inserted.end());
      break;
    }
    case 4: {
      const Bytes repeated(begin, end);
      bytes.insert(begin, repeated.begin(), repeated.end());
      break;
    }
    default: {
      const Bytes& other = inputs[below(random, inputs.size())];
      const size_t from = below(random, other.size() + 1);
      const size_t length = std::min(other.size() - from, below(random, 256));
      const auto piece = other.begin() + static_cast<ptrdiff_t>(from);
      bytes.insert(begin, piece, piece + static_cast<ptrdiff_t>(length));
      break;
    }
  }
}

Bytes made(const std::vector<Bytes>& inputs, size_t maxSize, Random& random) {
  Bytes bytes = below(random, 16) == 0 ? randomBytes(random, below(random, maxSize + 1))
                                       : inputs[below(random, inputs.size())];
  const size_t changes = 1 + below(random, 8);
  for (size_t i = 0; i < changes; ++i) change(bytes, inputs, random);
  bytes.resize(std::min(bytes.size(), maxSize));
  return bytes;
}

void read(const std::filesystem::path& path, std::vector<Bytes>& inputs) {
  if (std::filesystem::is_directory(path)) {
    for (const auto& entry : std::filesystem::directory_iterator(path)) read(entry.path(), inputs);
    return;
  }
  std::ifstream stream(path, std::ios::binary);
  inputs.emplace_back(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

bool takeNumber(std::string_view argument, std::string_view option, uint64_t& number) {
  if (!argument.starts_with(option)) return false;
  argument.remove_prefix(option.size());
  const auto [end, error] =
      std::from_chars(argument.data(), argument.data() + argument.size(), number);
  return error == std::errc() && end == argument.data() + argument.size();
}

}  // namespace

int main(int argc, char** argv) {
  uint64_t runs = 0;
  uint64_t seed = 1;
  uint64_t maxSize = 4096;
  std::vector<Bytes> inputs;
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (takeNumber(argument, "--runs=", runs) || takeNumber(argument, "--seed=", seed) ||
        takeNumber(argument, "--max-size=", maxSize)) {
      continue;
    }
    if (argument.starts_with("--") || !std::filesystem::exists(argument)) {
      fprintf(stderr, "%s: not an option, a file or a folder\n", argv[i]);
      return 2;
    }
    read(argument, inputs);
  }
  for (const int signal : {SIGABRT, SIGSEGV, SIGILL, SIGFPE}) ::signal(signal, keepInput);

  for (const Bytes& input : inputs) run(input);
  const size_t given = inputs.size();
  if (inputs.empty()) inputs.emplace_back();
  Random random(seed);
  for (uint64_t i = 0; i < runs; ++i) run(made(inputs, maxSize, random));
  printf("%zu files and %llu inputs made from them\n", given,
         static_cast<unsigned long long>(runs));
  return 0;
}
