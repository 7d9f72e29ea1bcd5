// The decoding tables of fixed-Huffman blocks, made at compile time.
#ifndef ZEBDC_INFLATE_FIXED_TABLES_H
#define ZEBDC_INFLATE_FIXED_TABLES_H

#include "kernels/inflate_table.h"

namespace zebdc::inflate {

extern const kernels::InflateTables fixedTables;

}  // namespace zebdc::inflate

#endif
