// Which kernels run: the tiers, and the choice among them.
//
// Every family of kernels keeps a table of its variants. A tier without a variant of its own has
// the best one below it. A family's accessor picks the entry of the active tier, once per call of
// an export and never inside a loop. All tiers give the same results; they differ in speed alone.
#ifndef ZEBDC_KERNELS_TIER_H
#define ZEBDC_KERNELS_TIER_H

namespace zebdc::kernels {

enum Tier : int {
  tierBaseline,  // SSSE3
  tierSse42,     // + SSE4.1, SSE4.2, POPCNT, PCLMULQDQ
  tierAvx2,      // + AVX2, BMI1, BMI2, LZCNT, MOVBE
  tierVpclmul,   // + VPCLMULQDQ
  tierAvx512,    // + AVX-512 F, BW, DQ, VL, VBMI, VBMI2, VNNI
  tierCount
};

// Written once at load, before any export can run, and only read afterwards. Programs that link the
// archive for testing may set it to any tier that the machine has.
extern int activeTier;

template <class Kernels>
class TierTable {
 public:
  struct Variant {
    Tier lowest;  // that can run it
    Kernels kernels;
  };

  // The variants in the order of their tiers. The first must be the baseline's.
  template <int count>
  consteval explicit TierTable(const Variant (&variants)[count]) : entries_{} {
    for (int tier = tierBaseline, next = 0; tier < tierCount; ++tier) {
      if (next < count && variants[next].lowest == tier) ++next;
      entries_[tier] = variants[next - 1].kernels;
    }
  }

  const Kernels& operator[](int tier) const { return entries_[tier]; }

 private:
  Kernels entries_[tierCount];
};

// From the processor's features and the register state that the operating system saves.
Tier bestTierOfThisMachine();

}  // namespace zebdc::kernels

#endif
