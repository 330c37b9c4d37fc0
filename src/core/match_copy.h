// The exact copy of an LZ77 match, shared by the decoders whose careful loops must write no
// byte past the match: the LZ4 block decoder and inflate.
//
// Their fast loops keep copies of their own, because their contracts differ: LZ4's may write up
// to 63 bytes past a match and uses 32-byte stores, inflate's writes at most 48 and stays with
// 16-byte stores (wider ones make its loops realign the stack and give up a register).
#pragma once

#include <immintrin.h>
#include <stddef.h>
#include <stdint.h>

#include "core/bytes.h"
#include "core/mem.h"

namespace zem {

// For a match closer than 8 bytes: the byte order that repeats its period across a word, and the
// whole number of periods that fit in 8 bytes, by distance (row 0 unused). Building the word
// byte by byte took a division per byte, which dominated short-period matches.
struct PeriodTables {
    alignas(16) uint8_t shuffle[8][16];
    uint8_t step[8];
};
inline constexpr PeriodTables kPeriod = [] {
    PeriodTables t{};
    for (unsigned d = 1; d < 8; ++d) {
        for (unsigned k = 0; k < 16; ++k) t.shuffle[d][k] = uint8_t(k % d);
        t.step[d] = uint8_t(8 / d * d);
    }
    return t;
}();

// The 8 bytes of a forward copy from s with period dist (1..7): s[0..dist) repeated. Reads
// s[0..7], so the caller needs 8 - dist readable bytes past the period.
ZEM_INLINE uint64_t period_word(const uint8_t* s, size_t dist) {
    const __m128i v = _mm_loadl_epi64((const __m128i*)s);
    return (uint64_t)_mm_cvtsi128_si64(_mm_shuffle_epi8(v, _mm_load_si128((const __m128i*)kPeriod.shuffle[dist])));
}

// Copies the n bytes that start dist bytes before d to d, exactly, with the result of a forward
// byte-by-byte copy: a match closer than its length repeats its first dist bytes. Distance 0
// copies each byte onto itself, which leaves the output as it was.
ZEM_INLINE void copy_match_exact(uint8_t* d, size_t dist, size_t n) {
    if (dist == 0) return;
    const uint8_t* s = d - dist;
    if (dist >= n) {
        if (ZEM_LIKELY(n <= size_t(mem::kSmallCopyMax)))
            mem::copy_small(s, d, n);
        else
            MemCopy(s, d, int32_t(n));
        return;
    }
    size_t i = 0;
    if (dist >= 8) {
        for (; i + 8 <= n; i += 8) store64(d + i, load64(s + i));
    } else if (n >= 8) {
        // A word that repeats with the match's period, stored a whole number of periods apart
        // (its loads stay below d + 7, inside the match).
        const uint64_t w = period_word(s, dist);
        const size_t step = kPeriod.step[dist];
        for (; i + 8 <= n; i += step) store64(d + i, w);
    }
    for (; i < n; ++i) d[i] = s[i];
}

}  // namespace zem
