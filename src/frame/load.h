// The choice made once, when the library is loaded.
#ifndef ZEBDC_FRAME_LOAD_H
#define ZEBDC_FRAME_LOAD_H

#include <stdint.h>

// 0: the baseline variant; 1: the variant for processors that also have MOVBE. Written before any
// export can run and only read afterwards.
extern "C" int32_t zebdcVariantIndex;

namespace zebdc {

// The variant that a feature mask of the core library stands for.
int32_t variantForFeatures(uint64_t featureMask);

}  // namespace zebdc

#endif
