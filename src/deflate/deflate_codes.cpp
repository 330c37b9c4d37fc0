// Code and header generation for dynamic blocks: length-limited canonical Huffman codes from
// symbol counts, and the block header that carries their lengths.
#include <algorithm>

#include "core/prefix_code.h"
#include "deflate/deflate_tables.h"

namespace zem::deflate {

namespace {

inline constexpr uint32_t kClenSymbols = 19;
inline constexpr uint32_t kMaxClenLen = 7;
inline constexpr uint8_t kClenOrder[kClenSymbols] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
// The most header bits: 14 fixed, 19 three-bit code-length lengths, and each of the 316 lengths
// coded alone with a 7-bit code (runs only shorten that).
inline constexpr uint32_t kMaxHeaderBits = 14 + 3 * kClenSymbols + 7 * (kLitSymbols + kDistSymbols);
static_assert(kMaxHeaderBits <= 2400);

// Code lengths (at most `limit` bits) for `n` symbols with counts `freq`, into lens. Symbols with
// a zero count get 0, except that the lowest unused ones are taken in until two symbols are
// coded: a one-symbol code is incomplete, which not every decoder accepts.
void build_lengths(const uint32_t* freq, uint32_t n, uint32_t limit, uint8_t* lens) {
    uint64_t key[kLitSymbols];  // count << 9 | symbol: sorting by it sorts by count, then symbol
    uint32_t m = 0;
    for (uint32_t s = 0; s < n; ++s) {
        lens[s] = 0;
        if (freq[s]) key[m++] = uint64_t(freq[s]) << 9 | s;
    }
    for (uint32_t s = 0; m < 2; ++s)
        if (!freq[s]) key[m++] = uint64_t(1) << 9 | s;
    std::sort(key, key + m);
    uint64_t w[kLitSymbols];
    for (uint32_t i = 0; i < m; ++i) w[i] = key[i] >> 9;
    zem::prefix_code_lengths(w, int32_t(m));
    // Depth counts, with everything deeper than the limit moved up to it; then leaves are pushed
    // down one level at a time from the deepest level above the limit until the code is no
    // longer over-subscribed (each move takes one unit off the Kraft sum scaled by 2^limit).
    uint32_t count[64] = {};
    for (uint32_t i = 0; i < m; ++i) ++count[w[i] < limit ? w[i] : limit];
    uint64_t kraft = 0;
    for (uint32_t l = 1; l <= limit; ++l) kraft += uint64_t(count[l]) << (limit - l);
    while (kraft > (uint64_t(1) << limit)) {
        uint32_t l = limit - 1;
        while (count[l] == 0) --l;
        --count[l];
        count[l + 1] += 2;
        --count[limit];
        --kraft;
    }
    // The lightest symbols take the longest codes.
    uint32_t i = 0;
    for (uint32_t l = limit; l >= 1; --l)
        for (uint32_t k = 0; k < count[l]; ++k) lens[key[i++] & 511] = uint8_t(l);
}

uint32_t reverse_bits(uint32_t code, uint32_t len) {
    uint32_t r = 0;
    for (uint32_t i = 0; i < len; ++i, code >>= 1) r = r << 1 | (code & 1);
    return r;
}

// Canonical codes (RFC 1951, 3.2.2) from lengths, bit-reversed for the emission.
void assign_codes(const uint8_t* lens, uint32_t n, zemDeflateHuffCode* out) {
    uint32_t count[kMaxCodeLen + 1] = {};
    for (uint32_t s = 0; s < n; ++s) ++count[lens[s]];
    count[0] = 0;
    uint32_t next[kMaxCodeLen + 1] = {};
    for (uint32_t l = 1, code = 0; l <= kMaxCodeLen; ++l) {
        code = (code + count[l - 1]) << 1;
        next[l] = code;
    }
    for (uint32_t s = 0; s < n; ++s) {
        const uint32_t l = lens[s];
        out[s].len = uint16_t(l);
        out[s].code = l ? uint16_t(reverse_bits(next[l]++, l)) : 0;
    }
}

struct BitWriter {
    uint8_t* dst;
    uint64_t buf = 0;
    uint32_t count = 0;
    uint32_t idx = 0;
    void put(uint32_t v, uint32_t n) {
        buf |= uint64_t(v) << count;
        count += n;
        while (count >= 8) {
            dst[idx++] = uint8_t(buf);
            buf >>= 8;
            count -= 8;
        }
    }
};

// The lengths in the run-length form of the header: symbols 0..15, 16 (repeat the previous
// length 3..6 times), 17 (3..10 zeros), 18 (11..138 zeros), each with its repeat count.
struct RunCoded {
    uint8_t sym[kLitSymbols + kDistSymbols];
    uint8_t extra[kLitSymbols + kDistSymbols];
    uint32_t n = 0;
};

void run_code(const uint8_t* lens, uint32_t total, RunCoded& rc) {
    for (uint32_t i = 0; i < total;) {
        const uint8_t v = lens[i];
        uint32_t run = 1;
        while (i + run < total && lens[i + run] == v) ++run;
        i += run;
        if (v == 0) {
            while (run >= 11) {
                const uint32_t k = run < 138 ? run : 138;
                rc.sym[rc.n] = 18, rc.extra[rc.n++] = uint8_t(k - 11);
                run -= k;
            }
            if (run >= 3) {
                rc.sym[rc.n] = 17, rc.extra[rc.n++] = uint8_t(run - 3);
                run = 0;
            }
        } else {
            rc.sym[rc.n] = v, rc.extra[rc.n++] = 0;
            --run;
            while (run >= 3) {
                const uint32_t k = run < 6 ? run : 6;
                rc.sym[rc.n] = 16, rc.extra[rc.n++] = uint8_t(k - 3);
                run -= k;
            }
        }
        for (; run > 0; --run) rc.sym[rc.n] = v, rc.extra[rc.n++] = 0;
    }
}

}  // namespace

}  // namespace zem::deflate

using namespace zem::deflate;

ZEM_API zemStatus zemsDeflateLZ77FastestGenHuffTable_8u(const uint32_t* pLitStat, const uint32_t* pDistStat,
                                                        zemDeflateHuffCode* pLitCodes,
                                                        zemDeflateHuffCode* pDistCodes) {
    if (zem::any_null(pLitStat, pDistStat, pLitCodes, pDistCodes)) return zemStatusNullPtr;
    uint8_t lens[kLitSymbols];
    build_lengths(pLitStat, kLitSymbols, kMaxCodeLen, lens);
    assign_codes(lens, kLitSymbols, pLitCodes);
    build_lengths(pDistStat, kDistSymbols, kMaxCodeLen, lens);
    assign_codes(lens, kDistSymbols, pDistCodes);
    return zemStatusOk;
}

ZEM_API zemStatus zemsDeflateLZ77FastestGenHeader_8u(const zemDeflateHuffCode* pLitCodes,
                                                     const zemDeflateHuffCode* pDistCodes, uint8_t* pDstHeader,
                                                     uint32_t* pDstLen, uint32_t* pDstBits) {
    if (zem::any_null(pLitCodes, pDistCodes, pDstHeader, pDstLen, pDstBits)) return zemStatusNullPtr;
    uint8_t lens[kLitSymbols + kDistSymbols];
    uint32_t n_lit = 257, n_dist = 1;
    for (uint32_t s = 0; s < kLitSymbols; ++s) {
        if (pLitCodes[s].len > kMaxCodeLen) return zemStatusBadArg;
        lens[s] = uint8_t(pLitCodes[s].len);
        if (lens[s] && s >= n_lit) n_lit = s + 1;
    }
    for (uint32_t s = 0; s < kDistSymbols; ++s) {
        if (pDistCodes[s].len > kMaxCodeLen) return zemStatusBadArg;
        lens[n_lit + s] = uint8_t(pDistCodes[s].len);
        if (lens[n_lit + s] && s >= n_dist) n_dist = s + 1;
    }
    RunCoded rc;
    run_code(lens, n_lit + n_dist, rc);
    uint32_t freq[kClenSymbols] = {};
    for (uint32_t i = 0; i < rc.n; ++i) ++freq[rc.sym[i]];
    uint8_t clen[kClenSymbols];
    build_lengths(freq, kClenSymbols, kMaxClenLen, clen);
    zemDeflateHuffCode ccode[kClenSymbols];
    assign_codes(clen, kClenSymbols, ccode);
    uint32_t n_clen = kClenSymbols;
    while (n_clen > 4 && clen[kClenOrder[n_clen - 1]] == 0) --n_clen;

    uint32_t bits = 14 + 3 * n_clen;
    for (uint32_t i = 0; i < rc.n; ++i) {
        const uint32_t s = rc.sym[i];
        bits += ccode[s].len + (s == 16 ? 2 : s == 17 ? 3 : s == 18 ? 7 : 0);
    }
    if ((bits + 7) / 8 > *pDstLen) return zemStatusDstTooSmall;
    BitWriter w{pDstHeader};
    w.put(n_lit - 257, 5);
    w.put(n_dist - 1, 5);
    w.put(n_clen - 4, 4);
    for (uint32_t i = 0; i < n_clen; ++i) w.put(clen[kClenOrder[i]], 3);
    for (uint32_t i = 0; i < rc.n; ++i) {
        const uint32_t s = rc.sym[i];
        w.put(ccode[s].code, ccode[s].len);
        if (s >= 16) w.put(rc.extra[i], s == 16 ? 2 : s == 17 ? 3 : 7);
    }
    if (w.count) w.put(0, 8 - w.count);
    *pDstLen = w.idx;
    *pDstBits = bits;
    return zemStatusOk;
}
