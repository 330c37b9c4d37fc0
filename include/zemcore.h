/*
 * zemcore: the companion core library of zemdc. It reads the processor once, when it is
 * loaded, and answers every later query from that record, so a query costs a few instructions
 * and never executes CPUID on a caller's hot path.
 */
#ifndef ZEMCORE_H
#define ZEMCORE_H

#include <stdint.h>

#if defined(__GNUC__)
#define ZEMCORE_API __attribute__((visibility("default")))
#else
#define ZEMCORE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Feature bits for ownGetFeature. A bit is reported only when the processor has the feature
 * and, for the vector extensions, the operating system saves the registers they use. */
#define ZEM_FEATURE_MMX        0x00000001ULL
#define ZEM_FEATURE_SSE        0x00000002ULL
#define ZEM_FEATURE_SSE2       0x00000004ULL
#define ZEM_FEATURE_SSE3       0x00000008ULL
#define ZEM_FEATURE_SSSE3      0x00000010ULL
#define ZEM_FEATURE_MOVBE      0x00000020ULL
#define ZEM_FEATURE_SSE41      0x00000040ULL
#define ZEM_FEATURE_SSE42      0x00000080ULL /* also the CRC32 instruction */
#define ZEM_FEATURE_AVX        0x00000100ULL
#define ZEM_FEATURE_AES        0x00000200ULL
#define ZEM_FEATURE_SHA        0x00000400ULL
#define ZEM_FEATURE_CLMUL      0x00000800ULL /* PCLMULQDQ: carry-less multiplication */
#define ZEM_FEATURE_RDRAND     0x00001000ULL
#define ZEM_FEATURE_F16C       0x00002000ULL
#define ZEM_FEATURE_AVX2       0x00004000ULL
#define ZEM_FEATURE_ADX        0x00008000ULL
#define ZEM_FEATURE_BMI1       0x00010000ULL
#define ZEM_FEATURE_BMI2       0x00020000ULL
#define ZEM_FEATURE_LZCNT      0x00040000ULL
#define ZEM_FEATURE_FMA        0x00080000ULL
#define ZEM_FEATURE_POPCNT     0x00100000ULL
#define ZEM_FEATURE_ERMS       0x00200000ULL /* enhanced REP MOVSB/STOSB */
#define ZEM_FEATURE_AVX512F    0x00400000ULL
#define ZEM_FEATURE_AVX512BW   0x00800000ULL
#define ZEM_FEATURE_VPCLMULQDQ 0x01000000ULL /* carry-less multiplication of 256-bit registers; the
                                               * CRC-32 kernels ask for it together with AVX2,
                                               * CLMUL and SSE4.2: mask 0x01004880 */
#define ZEM_FEATURE_VAES       0x02000000ULL

/* Stores into *pSize the size in bytes of the largest processor cache (the last-level cache as
 * seen by one core) and returns 0; returns -8 for a null pointer and -1 when the size is
 * unknown (the caller then behaves as for blocks that fit in the cache). */
ZEMCORE_API int32_t zemGetMaxCacheSizeB(int32_t* pSize);

/* GCC calls a function so marked through its GOT entry instead of a PLT stub: one jump less on
 * every checksum call of zemdc, which asks for the features on each call (at 64-byte buffers
 * the CRC-32 call took 4.73 ns instead of 4.90-5.30). */
#if defined(__GNUC__) && !defined(__clang__)
#define ZEMCORE_NOPLT __attribute__((noplt))
#else
#define ZEMCORE_NOPLT
#endif

/* Returns nonzero when the processor has every feature in mask (a zero mask gives nonzero),
 * zero otherwise. */
ZEMCORE_API ZEMCORE_NOPLT int ownGetFeature(uint64_t mask);

#ifdef __cplusplus
}
#endif

#endif /* ZEMCORE_H */
