// The exported names. Each reads the variant index, takes its entry from the export's dispatch
// table and jumps there with the caller's registers and stack untouched, so that the entry returns
// straight to the caller. Only rax and r11 change: both calling conventions leave them free at a
// call, and neither passes an argument in them.

// Tests of the stub itself bring a list of their own.
#if !defined(ZEBDC_EXPORTS_LIST)
#define ZEBDC_EXPORTS_LIST "exports.inc"
#endif

#if defined(__ELF__)
#define ZEBDC_FUNCTION_TYPE(name) .type name, @function
#define ZEBDC_FUNCTION_SIZE(name) .size name, . - name
#define ZEBDC_LOCAL_TO_LIBRARY(name) .hidden name
#else
#define ZEBDC_FUNCTION_TYPE(name) .def name; .scl 2; .type 32; .endef
#define ZEBDC_FUNCTION_SIZE(name)
#define ZEBDC_LOCAL_TO_LIBRARY(name)
#endif

#define ZEBDC_EXPORT(name)                   \
  .globl name;                               \
  ZEBDC_FUNCTION_TYPE(name);                 \
  ZEBDC_LOCAL_TO_LIBRARY(zebdcTable_##name); \
  .p2align 5;                                \
  name: movslq zebdcVariantIndex(%rip), %rax; \
  leaq zebdcTable_##name(%rip), %r11;        \
  jmp *(%r11, %rax, 8);                      \
  ZEBDC_FUNCTION_SIZE(name);
#define ZEBDC_EXPORT_PER_VARIANT(name) ZEBDC_EXPORT(name)

  .text
  ZEBDC_LOCAL_TO_LIBRARY(zebdcVariantIndex)
#include ZEBDC_EXPORTS_LIST

#if defined(__ELF__)
  .section .note.GNU-stack, "", @progbits
#endif
