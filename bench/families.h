// Each family registers its benchmarks through one function, called once the corpus is loaded. A
// benchmark's name is family/operation/data/implementation, where the implementation is "zebdc", a
// kernel or level of it, or a peer: rows that differ in the last part alone are compared.
#ifndef ZEBDC_BENCH_FAMILIES_H
#define ZEBDC_BENCH_FAMILIES_H

namespace zebdc::bench {

void registerBwt();
void registerBzip2();
void registerChecksums();
void registerDeflate();
void registerDeflateMatch();
void registerHuffman();
void registerInflate();
void registerMemory();  // with the archive only
void registerLz();

}  // namespace zebdc::bench

#endif
