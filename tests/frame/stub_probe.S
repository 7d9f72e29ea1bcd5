// The library's stub, of a function of the tests.
#define ZEBDC_EXPORTS_LIST "frame/stub_probe.inc"
#include "frame/export_stubs.S"
