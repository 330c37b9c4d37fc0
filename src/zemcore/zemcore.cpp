// The companion core library: the processor is read once, by the loader's constructor call,
// and every query afterwards is a load and a compare.
#include "zemcore.h"

#include <cpuid.h>
#include <stdint.h>

namespace {

struct CpuRecord {
    uint64_t features;
    int32_t max_cache;  // 0 when unknown
};

// Written once by the constructor before any caller can run, read-only afterwards.
CpuRecord g_cpu;

void cpuid(uint32_t leaf, uint32_t sub, uint32_t r[4]) { __cpuid_count(leaf, sub, r[0], r[1], r[2], r[3]); }

uint64_t xgetbv0() {
    uint32_t lo, hi;
    __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
    return (uint64_t(hi) << 32) | lo;
}

// Leaves 4 (Intel) and 0x8000001D (AMD) describe caches in one layout; walk the sub-leaves
// until the type field says there are no more.
int64_t largest_cache_in_leaf(uint32_t leaf) {
    int64_t best = 0;
    for (uint32_t sub = 0; sub < 16; ++sub) {
        uint32_t r[4];
        cpuid(leaf, sub, r);
        uint32_t type = r[0] & 0x1f;
        if (type == 0) break;
        if (type == 2) continue;  // instruction cache
        int64_t ways = ((r[1] >> 22) & 0x3ff) + 1;
        int64_t parts = ((r[1] >> 12) & 0x3ff) + 1;
        int64_t line = (r[1] & 0xfff) + 1;
        int64_t sets = int64_t(r[2]) + 1;
        int64_t size = ways * parts * line * sets;
        if (size > best) best = size;
    }
    return best;
}

void read_processor() {
    uint32_t r[4];
    cpuid(0, 0, r);
    uint32_t max_leaf = r[0];
    bool intel = r[1] == 0x756e6547;  // "Genu"
    cpuid(0x80000000u, 0, r);
    uint32_t max_ext = r[0];

    uint64_t f = 0;
    uint32_t ecx1 = 0, edx1 = 0;
    if (max_leaf >= 1) {
        cpuid(1, 0, r);
        ecx1 = r[2];
        edx1 = r[3];
    }
    if (edx1 & (1u << 23)) f |= ZEM_FEATURE_MMX;
    if (edx1 & (1u << 25)) f |= ZEM_FEATURE_SSE;
    if (edx1 & (1u << 26)) f |= ZEM_FEATURE_SSE2;
    if (ecx1 & (1u << 0)) f |= ZEM_FEATURE_SSE3;
    if (ecx1 & (1u << 1)) f |= ZEM_FEATURE_CLMUL;
    if (ecx1 & (1u << 9)) f |= ZEM_FEATURE_SSSE3;
    if (ecx1 & (1u << 22)) f |= ZEM_FEATURE_MOVBE;
    if (ecx1 & (1u << 19)) f |= ZEM_FEATURE_SSE41;
    if (ecx1 & (1u << 20)) f |= ZEM_FEATURE_SSE42;
    if (ecx1 & (1u << 23)) f |= ZEM_FEATURE_POPCNT;
    if (ecx1 & (1u << 25)) f |= ZEM_FEATURE_AES;
    if (ecx1 & (1u << 30)) f |= ZEM_FEATURE_RDRAND;

    // The vector extensions count only when the operating system saves their registers.
    bool ymm_ok = false, zmm_ok = false;
    if ((ecx1 & (1u << 27)) && (ecx1 & (1u << 28))) {
        uint64_t xcr0 = xgetbv0();
        ymm_ok = (xcr0 & 0x6) == 0x6;
        zmm_ok = ymm_ok && (xcr0 & 0xe0) == 0xe0;
    }
    if (ymm_ok) {
        f |= ZEM_FEATURE_AVX;
        if (ecx1 & (1u << 12)) f |= ZEM_FEATURE_FMA;
        if (ecx1 & (1u << 29)) f |= ZEM_FEATURE_F16C;
    }
    if (max_leaf >= 7) {
        cpuid(7, 0, r);
        uint32_t ebx7 = r[1], ecx7 = r[2];
        if (ebx7 & (1u << 3)) f |= ZEM_FEATURE_BMI1;
        if (ebx7 & (1u << 8)) f |= ZEM_FEATURE_BMI2;
        if (ebx7 & (1u << 9)) f |= ZEM_FEATURE_ERMS;
        if (ebx7 & (1u << 19)) f |= ZEM_FEATURE_ADX;
        if (ebx7 & (1u << 29)) f |= ZEM_FEATURE_SHA;
        if (ymm_ok) {
            if (ebx7 & (1u << 5)) f |= ZEM_FEATURE_AVX2;
            if (ecx7 & (1u << 10)) f |= ZEM_FEATURE_VPCLMULQDQ;
            if (ecx7 & (1u << 9)) f |= ZEM_FEATURE_VAES;
        }
        if (zmm_ok) {
            if (ebx7 & (1u << 16)) f |= ZEM_FEATURE_AVX512F;
            if (ebx7 & (1u << 30)) f |= ZEM_FEATURE_AVX512BW;
        }
    }
    if (max_ext >= 0x80000001u) {
        cpuid(0x80000001u, 0, r);
        if (r[2] & (1u << 5)) f |= ZEM_FEATURE_LZCNT;
    }

    int64_t cache = 0;
    if (intel && max_leaf >= 4) cache = largest_cache_in_leaf(4);
    if (cache == 0 && max_ext >= 0x8000001du) cache = largest_cache_in_leaf(0x8000001du);
    if (cache == 0 && max_ext >= 0x80000006u) {
        // Older AMD parts: L3 size in 512 KiB units, L2 in KiB.
        cpuid(0x80000006u, 0, r);
        int64_t l3 = int64_t(r[3] >> 18) * 512 * 1024;
        int64_t l2 = int64_t(r[2] >> 16) * 1024;
        cache = l3 > l2 ? l3 : l2;
    }
    if (cache > 0x7fffffff) cache = 0x7fffffff;

    g_cpu.features = f;
    g_cpu.max_cache = int32_t(cache);
}

__attribute__((constructor)) void zemcore_load() { read_processor(); }

}  // namespace

extern "C" ZEMCORE_API int32_t zemGetMaxCacheSizeB(int32_t* pSize) {
    if (pSize == nullptr) return -8;
    if (g_cpu.max_cache <= 0) return -1;
    *pSize = g_cpu.max_cache;
    return 0;
}

extern "C" ZEMCORE_API int ownGetFeature(uint64_t mask) { return (g_cpu.features & mask) == mask; }
