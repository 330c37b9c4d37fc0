// The chained walk of the inverse transform over the fused decoder's entries: entry p holds
// the byte of row p in its low 8 bits and the row that follows it in its upper 24.
#pragma once

#include <immintrin.h>
#include <stdint.h>

#include "core/bytes.h"
#include "core/check.h"

namespace zem::bz2 {

// Writes the n bytes of the block that starts after row `index`. Every successor is a row below
// n once the link step has run, so the walk stays inside the entries whatever the symbols were.
ZEM_INLINE void walk_entries(const uint8_t* e, uint32_t n, uint32_t index, uint8_t* dst) {
    uint32_t v = load32(e + 4 * size_t(index));
    uint32_t k = 0;
    for (; k + 16 <= n; k += 16) {
        uint64_t lo = 0, hi = 0;
        for (int j = 0; j < 8; ++j) {
            v = load32(e + 4 * size_t(v >> 8));
            lo |= uint64_t(v & 0xFF) << (8 * j);
        }
        for (int j = 0; j < 8; ++j) {
            v = load32(e + 4 * size_t(v >> 8));
            hi |= uint64_t(v & 0xFF) << (8 * j);
        }
        _mm_storeu_si128((__m128i*)(dst + k), _mm_set_epi64x(int64_t(hi), int64_t(lo)));
    }
    for (; k < n; ++k) {
        v = load32(e + 4 * size_t(v >> 8));
        dst[k] = uint8_t(v);
    }
}

}  // namespace zem::bz2
