// The exact copy of an LZ77 match, shared by the decoders whose careful loops must write no
// byte past the match: the LZ4 block decoder and inflate.
//
// Their fast loops keep copies of their own, because their contracts differ: LZ4's may write up
// to 63 bytes past a match and uses 32-byte stores, inflate's writes at most 48 and stays with
// 16-byte stores (wider ones make its loops realign the stack and give up a register).
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "core/bytes.h"
#include "core/mem.h"

namespace zem {

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
    } else {
        // A word that repeats with the match's period, stored a whole number of periods apart.
        uint8_t pat[8];
        for (size_t k = 0; k < 8; ++k) pat[k] = s[k % dist];
        const uint64_t w = load64(pat);
        const size_t step = 8 / dist * dist;
        for (; i + 8 <= n; i += step) store64(d + i, w);
    }
    for (; i < n; ++i) d[i] = s[i];
}

}  // namespace zem
