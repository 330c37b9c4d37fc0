// The LZO1X decoders: one instruction loop, instantiated with every bound checked (the safe
// decoder) and without the checks that a valid stream whose output fits cannot fail (the
// trusted one).
//
// Both copy with whole 16-byte blocks while the input and the output have a margin past the
// bytes that count, and exactly near the ends; the margins are the only checks the trusted
// decoder keeps, so that on a valid stream whose output fits it never writes past the end.
#include <immintrin.h>

#include "core/bytes.h"
#include "core/check.h"
#include "core/match_copy.h"
#include "core/mem.h"
#include "lzo/lzo_format.h"

namespace zem::lzo {

namespace {

// Room past a copy's last byte that the wide copies need: literal runs and matches start with
// 32 bytes copied whatever their length (most are shorter: no loop test), then go on in 16-byte
// blocks; matches below distance 16 move 8 bytes at a time with a step of their period.
constexpr size_t kMargin = 32;
// The trailing literals of a match (at most 3) move as one 4-byte word.
constexpr size_t kTrailWord = 4;
static_assert(kTrailWord >= 3 && kMargin >= kTrailWord);

ZEM_INLINE void copy16(const uint8_t* s, uint8_t* d) {
    _mm_storeu_si128((__m128i*)d, _mm_loadu_si128((const __m128i*)s));
}

// Literal copy in 16-byte blocks: needs n + 15 readable and writable bytes.
ZEM_INLINE void wild_literals(const uint8_t* s, uint8_t* d, size_t n) {
    if (ZEM_UNLIKELY(n > 256)) {
        MemCopy(s, d, int32_t(n));
        return;
    }
    copy16(s, d);
    copy16(s + 16, d + 16);
    for (size_t i = 32; i < n; i += 16) copy16(s + i, d + i);
}

// Match copy with whole blocks: the same result as a forward byte copy for the first n bytes,
// up to kMargin - 1 bytes written past them.
ZEM_INLINE void wild_match(uint8_t* d, size_t dist, size_t n) {
    const uint8_t* s = d - dist;
    if (ZEM_LIKELY(dist >= 16)) {
        // (The second load reads bytes that precede it or that the first store wrote.)
        copy16(s, d);
        copy16(s + 16, d + 16);
        for (size_t i = 32; i < n; i += 16) copy16(s + i, d + i);
    } else if (dist >= 8) {
        for (size_t i = 0; i < n; i += 8) store64(d + i, load64(s + i));
    } else {
        // A word that repeats with the match's period, stored at a whole number of periods
        // (its load reads into the margin).
        const uint64_t w = period_word(s, dist);
        const size_t step = kPeriod.step[dist];
        for (size_t i = 0; i < n; i += step) store64(d + i, w);
    }
}

// Exact copies for the ends of the buffers.
ZEM_INLINE void exact_match(uint8_t* d, size_t dist, size_t n) {
    const uint8_t* s = d - dist;
    for (size_t i = 0; i < n; ++i) d[i] = s[i];
}

struct Checked {
    static constexpr bool kSafe = true;
};
struct Trusted {
    static constexpr bool kSafe = false;
};

struct Result {
    zemStatus status;
    size_t produced;
};

template <class K>
ZEM_INLINE Result decode(const uint8_t* ip, size_t src_len, uint8_t* const dst, size_t cap) {
    const uint8_t* const E = ip + src_len;
    uint8_t* op = dst;
    uint8_t* const F = dst + cap;
    size_t state = 0;  // trailing literals of the last match (0..3), or 4 after a literal run
    size_t t, len, dist;

#define ZEM_LZO_NEED(k)                                                            \
    do {                                                                           \
        if (K::kSafe && ZEM_UNLIKELY(size_t(E - ip) < size_t(k))) goto cut_input; \
    } while (0)
// An extension: zero bytes of 255 each, then a non-zero byte that is added to `base`.
#define ZEM_LZO_EXT(var, base)         \
    do {                               \
        var = base;                    \
        for (;;) {                     \
            ZEM_LZO_NEED(1);           \
            if (*ip != 0) break;       \
            var += 255;                \
            ++ip;                      \
        }                              \
        var += *ip++;                  \
    } while (0)

    if (*ip > 17) {
        len = size_t(*ip++) - 17;
        state = len < 4 ? len : 4;
        goto literals;
    }
    for (;;) {
        ZEM_LZO_NEED(1);
    next:  // from paths that checked a trailing word, so this byte too, is in the input
        t = *ip++;
        if (t >= 64) {
            len = (t >> 5) + 1;
            // The most common instruction: at most 8 bytes, so one word when the distance
            // allows, and its trailing literals as one more word. The test for its distance
            // byte is the test for the word after it.
            if (ZEM_LIKELY(size_t(E - ip) > kTrailWord && size_t(F - op) >= kMargin)) {
                dist = 1 + ((t >> 2) & 7) + (size_t(*ip++) << 3);
                if (ZEM_LIKELY(dist >= 8 && dist <= size_t(op - dst))) {
                    store64(op, load64(op - dist));
                    op += len;
                    state = t & 3;
                    store32(op, load32(ip));
                    ip += state;
                    op += state;
                    goto next;
                }
            } else {
                // (The read is written out in both arms: behind one shared test it ran 2% slower,
                // with fewer instructions.)
                ZEM_LZO_NEED(1);
                dist = 1 + ((t >> 2) & 7) + (size_t(*ip++) << 3);
            }
        } else if (t >= 32) {
            len = t & 31;
            if (len == 0) ZEM_LZO_EXT(len, 31);
            len += 2;
            ZEM_LZO_NEED(2);
            dist = 1 + (size_t(load16(ip)) >> 2);
            ip += 2;
        } else if (t >= 16) {
            len = t & 7;
            if (len == 0) ZEM_LZO_EXT(len, 7);
            len += 2;
            ZEM_LZO_NEED(2);
            dist = ((t & 8) << 11) + (size_t(load16(ip)) >> 2);
            ip += 2;
            if (dist == 0) return {zemStatusOk, size_t(op - dst)};
            dist += kM3MaxDist;
        } else if (state == 0) {
            len = t;
            if (len == 0) ZEM_LZO_EXT(len, 15);
            len += 3;
            state = 4;
            goto literals;
        } else {
            ZEM_LZO_NEED(1);
            if (state == 4) {
                len = 3;
                dist = kM1LongBase + (t >> 2) + (size_t(*ip++) << 2);
            } else {
                len = 2;
                dist = 1 + (t >> 2) + (size_t(*ip++) << 2);
            }
        }
        // The match.
        if (K::kSafe && ZEM_UNLIKELY(dist > size_t(op - dst))) return {zemStatusError, 0};
        if (ZEM_LIKELY(size_t(F - op) >= len + kMargin)) {
            wild_match(op, dist, len);
        } else {
            if (K::kSafe && len > size_t(F - op)) {
                exact_match(op, dist, size_t(F - op));
                return {zemStatusDstTooSmall, cap};
            }
            exact_match(op, dist, len);
        }
        op += len;
        // Its trailing literals, counted in the low bits of its second-to-last byte. Whether
        // there are any is hard to predict, so the word goes out either way (none: it is
        // overwritten by what follows); the branch on the count mispredicted one match in three.
        state = ip[-2] & 3;
        if (ZEM_LIKELY(size_t(E - ip) >= kTrailWord && size_t(F - op) >= kTrailWord)) {
            store32(op, load32(ip));
            ip += state;
            op += state;
            goto next;
        }
        if (state == 0) continue;
        len = state;

    literals:
        if (ZEM_LIKELY(size_t(E - ip) >= len + kMargin && size_t(F - op) >= len + kMargin)) {
            wild_literals(ip, op, len);
        } else {
            if (K::kSafe && (len > size_t(E - ip) || len > size_t(F - op))) {
                const size_t in = size_t(E - ip), room = size_t(F - op);
                const size_t n = in < room ? in : room;
                MemCopy(ip, op, int32_t(n));
                return {len > in ? zemStatusSrcTooShort : zemStatusDstTooSmall, size_t(op - dst) + n};
            }
            MemCopy(ip, op, int32_t(len));
        }
        ip += len;
        op += len;
    }

cut_input:
    return {zemStatusSrcTooShort, size_t(op - dst)};
#undef ZEM_LZO_NEED
#undef ZEM_LZO_EXT
}

}  // namespace

}  // namespace zem::lzo

ZEM_API zemStatus zemsDecodeLZO_8u(const uint8_t* pSrc, uint32_t srcLen, uint8_t* pDst, uint32_t* pDstLen) {
    if (zem::any_null(pSrc, pDst, pDstLen)) return zemStatusNullPtr;
    if (srcLen == 0 || *pDstLen == 0) return zemStatusSize;
    const auto r = zem::lzo::decode<zem::lzo::Trusted>(pSrc, srcLen, pDst, *pDstLen);
    *pDstLen = uint32_t(r.produced);
    return r.status;
}

ZEM_API zemStatus zemsDecodeLZOSafe_8u(const uint8_t* pSrc, uint32_t srcLen, uint8_t* pDst, uint32_t* pDstLen) {
    if (zem::any_null(pSrc, pDst, pDstLen)) return zemStatusNullPtr;
    if (srcLen == 0 || *pDstLen == 0) return zemStatusSize;
    const auto r = zem::lzo::decode<zem::lzo::Checked>(pSrc, srcLen, pDst, *pDstLen);
    if (r.status < 0) return r.status;
    *pDstLen = uint32_t(r.produced);
    return r.status;
}
