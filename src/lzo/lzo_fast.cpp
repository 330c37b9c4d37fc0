// The fast LZO1X encoder: one probe per position into a table of the last position of each
// 4-byte hash, greedy, with a stride that grows over incompressible stretches.
#include "core/bytes.h"
#include "lzo/lzo_format.h"

namespace zem::lzo {

namespace {

// Five bytes hashed, four compared: the candidates that pass are mostly longer than the
// minimum, so fewer short matches that save a byte each are taken, and each costs time.
ZEM_INLINE uint32_t hash4(const uint8_t* p) {
    return uint32_t(((load64(p) << 24) * 0xCF1BBCDCB7A56463ull) >> (64 - kFastHashBits));
}

// No position in the last bytes is probed: the loads of the probe and of the match extension
// stay inside the input.
constexpr size_t kProbeMargin = 12;
// Every 2^kSkipShift misses in a row lengthen the stride by one byte: on data that does not
// compress the encoder soon moves several bytes per probe.
constexpr unsigned kSkipShift = 2;

}  // namespace

const uint8_t* encode_fast(const uint8_t* src, size_t n, Out& o, uint32_t* table) {
    const uint8_t* anchor = src;
    if (n < kProbeMargin + kMinMatch) return anchor;
    const uint8_t* const end = src + n;
    const uint8_t* const limit = end - kProbeMargin;
    const uint8_t* ip = src + 1;
    table[hash4(src)] = 0;
    for (;;) {
        const uint8_t* cand;
        // Search: the stride grows with the misses since the last match.
        size_t misses = 1u << kSkipShift;
        for (;;) {
            const uint32_t h = hash4(ip);
            cand = src + table[h];
            table[h] = uint32_t(ip - src);
            if (load32(cand) == load32(ip) && size_t(ip - cand) <= kMaxDist && cand < ip) break;
            ip += misses++ >> kSkipShift;
            if (ZEM_UNLIKELY(ip > limit)) return anchor;
        }
        // A match found late often started earlier, among the bytes passed as literals.
        while (ip > anchor && cand > src && ip[-1] == cand[-1]) {
            --ip;
            --cand;
        }
        const size_t len = kMinMatch + count_equal(ip + kMinMatch, cand + kMinMatch, end);
        write_literals(o, anchor, size_t(ip - anchor), end);
        write_match(o, uint32_t(ip - cand), len);
        ip += len;
        anchor = ip;
        if (ip > limit) return anchor;
        // The position two bytes back is often where the next repeat starts.
        table[hash4(ip - 2)] = uint32_t(ip - 2 - src);
    }
}

}  // namespace zem::lzo
