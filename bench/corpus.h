// The files that the benchmarks run on.
#ifndef ZEBDC_BENCH_CORPUS_H
#define ZEBDC_BENCH_CORPUS_H

#include <stdint.h>

#include <string>
#include <vector>

namespace zebdc::bench {

struct File {
  std::string name;
  std::vector<uint8_t> bytes;
};

// Reads the files of a folder, or, where no folder is given, a few large files that Linux systems
// have. Files are cut to a limit so that a run stays short.
void loadCorpus(const std::string& folder);

// What loadCorpus read, in the order of the names.
const std::vector<File>& corpus();

}  // namespace zebdc::bench

#endif
