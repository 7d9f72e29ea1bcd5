/* A program that was linked by another vendor's linker: it begins here, without a C run time. Ends
 * with 0 when the library answers. */
#include <zebdc/zebdc.h>

int programEntry(void);
int programEntry(void) {
  static const uint8_t text[] = "123456789";
  ZebLZ77State_8u* state = NULL;
  uint32_t crc = 0;

  if (zebdcGetLibVersion()->majorVersion != ZEBDC_VERSION_MAJOR) return 1;
  if (zebsCRC32_8u(text, 9, &crc) != zebOk || crc != 0xCBF43926u) return 2;
  if (zebsDecodeLZ77InitAlloc_8u(zebLZ77ChecksumNone, &state) != zebOk) return 3;
  zebsLZ77Free_8u(state);
  return 0;
}
