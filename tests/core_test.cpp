// The companion core library: feature bits agree with the compiler's own processor query, and
// the cache size is plausible and stable.
#include <gtest/gtest.h>

#include "zemcore.h"

TEST(Core, FeatureBitsAgreeWithTheProcessor) {
    EXPECT_NE(ownGetFeature(0), 0) << "an empty mask is always satisfied";
    struct {
        uint64_t bit;
        bool has;
    } const cases[] = {
        {ZEM_FEATURE_SSE2, __builtin_cpu_supports("sse2") != 0},
        {ZEM_FEATURE_SSSE3, __builtin_cpu_supports("ssse3") != 0},
        {ZEM_FEATURE_SSE41, __builtin_cpu_supports("sse4.1") != 0},
        {ZEM_FEATURE_SSE42, __builtin_cpu_supports("sse4.2") != 0},
        {ZEM_FEATURE_POPCNT, __builtin_cpu_supports("popcnt") != 0},
        {ZEM_FEATURE_AVX, __builtin_cpu_supports("avx") != 0},
        {ZEM_FEATURE_AVX2, __builtin_cpu_supports("avx2") != 0},
        {ZEM_FEATURE_BMI1, __builtin_cpu_supports("bmi") != 0},
        {ZEM_FEATURE_BMI2, __builtin_cpu_supports("bmi2") != 0},
        {ZEM_FEATURE_FMA, __builtin_cpu_supports("fma") != 0},
        {ZEM_FEATURE_CLMUL, __builtin_cpu_supports("pclmul") != 0},
        {ZEM_FEATURE_AVX512F, __builtin_cpu_supports("avx512f") != 0},
    };
    for (auto& c : cases) EXPECT_EQ(ownGetFeature(c.bit) != 0, c.has) << std::hex << c.bit;
    // Masks are all-of: one missing feature makes the whole mask fail.
    EXPECT_EQ(ownGetFeature(ZEM_FEATURE_SSE42 | ZEM_FEATURE_CLMUL) != 0,
              __builtin_cpu_supports("sse4.2") && __builtin_cpu_supports("pclmul"));
    EXPECT_EQ(ownGetFeature(1ull << 63), 0) << "an unassigned bit is never reported";
}

// The bits the CRC kernels select on keep their values.
static_assert(ZEM_FEATURE_SSE42 == 0x80u && ZEM_FEATURE_CLMUL == 0x800u);

TEST(Core, CacheSize) {
    EXPECT_EQ(zemGetMaxCacheSizeB(nullptr), -8);
    int32_t a = 0, b = 0;
    if (zemGetMaxCacheSizeB(&a) != 0) GTEST_SKIP() << "the processor reports no cache size";
    ASSERT_EQ(zemGetMaxCacheSizeB(&b), 0);
    EXPECT_EQ(a, b);
    EXPECT_GE(a, 64 * 1024);
    EXPECT_LE(a, 1 << 30);
}
