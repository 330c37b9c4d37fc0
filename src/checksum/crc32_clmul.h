// The carry-less folding step shared by the CRC-32, bzip2 and CRC-32C vector paths.
#pragma once

#include <immintrin.h>

#include "checksum/crc32_tables.h"
#include "core/check.h"

namespace zem::crc {

ZEM_INLINE __m128i pair(FoldPair k) { return _mm_set_epi64x((long long)k.hi, (long long)k.lo); }

// A 16-byte accumulator carried by the distance of k: each 64-bit lane times its constant.
ZEM_INLINE __m128i lanes(__m128i acc, __m128i k) {
    return _mm_xor_si128(_mm_clmulepi64_si128(acc, k, 0x00), _mm_clmulepi64_si128(acc, k, 0x11));
}

// ... and XORed onto the block found there.
ZEM_INLINE __m128i fold(__m128i acc, __m128i k, __m128i next) { return _mm_xor_si128(lanes(acc, k), next); }

}  // namespace zem::crc
