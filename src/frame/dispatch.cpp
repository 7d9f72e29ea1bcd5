// The dispatch tables: for each export the entry of either variant.

#include "frame/entry.h"

extern "C" {

#define ZEBDC_EXPORT(name)                             \
  extern decltype(&::name) const zebdcTable_##name[2]; \
  decltype(&::name) const zebdcTable_##name[2] = {&zebdcEntry_##name, &zebdcEntry_##name};
#define ZEBDC_EXPORT_PER_VARIANT(name)                 \
  extern decltype(&::name) const zebdcTable_##name[2]; \
  decltype(&::name) const zebdcTable_##name[2] = {&zebdcEntry_##name##_t7, &zebdcEntry_##name##_w7};
#include "frame/exports.inc"
#undef ZEBDC_EXPORT
#undef ZEBDC_EXPORT_PER_VARIANT
}
