// Which kernels run: the tiers, and the choice among them.
//
// Every family of kernels keeps a table with one entry per tier, each entry complete: where a wider
// tier has no variant of its own it names the best one below it. A family's accessor picks the
// entry of the active tier, once per call of an export and never inside a loop. All tiers give the
// same results; they differ in speed alone.
#ifndef ZEBDC_KERNELS_TIER_H
#define ZEBDC_KERNELS_TIER_H

namespace zebdc::kernels {

enum Tier : int {
  tierBaseline,  // SSSE3
  tierSse42,     // + SSE4.1, SSE4.2, POPCNT, PCLMULQDQ
  tierAvx2,      // + AVX2, BMI1, BMI2, LZCNT, MOVBE
  tierAvx512,    // + AVX-512 F, BW, DQ, VL, VBMI, VBMI2, VNNI, and VPCLMULQDQ
  tierCount
};

// Written once at load, before any export can run, and only read afterwards. Programs that link the
// archive for testing may set it to any tier that the machine has.
extern int activeTier;

// From the processor's features and the register state that the operating system saves.
Tier bestTierOfThisMachine();

}  // namespace zebdc::kernels

#endif
