/* The least that a program does with the library, in C99. */
#include <stdio.h>
#include <zebdc/zebdc.h>

int main(void) {
  const uint8_t text[] = "123456789";
  const ZebLibVersion* version = zebdcGetLibVersion();
  ZebLZ77State_8u* state = NULL;
  uint32_t crc = 0;

  if (version->majorVersion != ZEBDC_VERSION_MAJOR) return 1;
  if (zebsCRC32_8u(text, 9, &crc) != zebOk || crc != 0xCBF43926u) return 2;
  if (zebsDecodeLZ77InitAlloc_8u(zebLZ77ChecksumNone, &state) != zebOk) return 3;
  zebsLZ77Free_8u(state);
  printf("%s %s\n", version->libraryName, version->versionText);
  return 0;
}
