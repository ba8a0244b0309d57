#include "piv_simd_level.h"

#include <atomic>

#include "hwy/targets.h"

namespace {

int MachineLevel() {
    const int64_t t = hwy::SupportedTargets();
    if (t & (HWY_AVX3 | HWY_AVX3_DL)) return 6;
    if (t & HWY_AVX2) return 5;
    if (t & HWY_SSE4) return 4;
    if (t & HWY_SSSE3) return 3;
#if HWY_ARCH_X86_64
    return 2;  // every x86-64 has SSE2, which the loops run on as EMU128
#else
    return (t & ~(HWY_EMU128 | HWY_SCALAR)) ? 4 : 0;
#endif
}

// Read by every worker of an evaluation; set between evaluations.
std::atomic<bool> g_enabled{true};

}  // namespace

int PIV_SIMD_Info() {
    static const int machine = MachineLevel();
    return g_enabled.load(std::memory_order_relaxed) ? machine : 0;
}

void PIV_Set_SIMD_Level(int level) {
    g_enabled.store(level > 0, std::memory_order_relaxed);
}
