// The implementations behind the exported names.
//
// Each exported function zebX is a stub that jumps to zebdcEntry_zebX. Declaring the entries from
// the public prototypes makes the compiler refuse a definition that differs from its prototype.
#ifndef ZEBDC_FRAME_ENTRY_H
#define ZEBDC_FRAME_ENTRY_H

#include <zebdc/zebdc.h>

extern "C" {
#define ZEBDC_EXPORT(name) decltype(::name) zebdcEntry_##name;
#define ZEBDC_EXPORT_PER_VARIANT(name) \
  decltype(::name) zebdcEntry_##name##_t7, zebdcEntry_##name##_w7;
#include "frame/exports.inc"
#undef ZEBDC_EXPORT
#undef ZEBDC_EXPORT_PER_VARIANT
}

// Opens the definition of an export: ZEBDC_ENTRY(ZebStatus, zebsName)(arguments) { ... }
#define ZEBDC_ENTRY(result, name) extern "C" result zebdcEntry_##name

#endif
