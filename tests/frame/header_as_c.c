/* Compiled as C99: the public headers stand alone. */
#include <zebdc/zebcore.h>
#include <zebdc/zebdc.h>

int headerCompilesAsC(void);
int headerCompilesAsC(void) {
  return zebOk;
}
