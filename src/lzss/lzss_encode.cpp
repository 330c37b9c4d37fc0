// The LZSS encoder: a hash-chain search over a 32 KiB window, tokens written MSB-first into the
// caller's output, and the history carried in the state from call to call.
#include <string.h>

#include "core/bytes.h"
#include "core/mem.h"
#include "lzss/lzss.h"

namespace zem::lzss {

namespace {

// The pending bits of the stream, left-aligned in a 64-bit word. At most 7 bits stay after a
// drain that had room and a token adds at most 24; what a stopped call leaves (up to 31) is
// drained before anything new is added.
struct BitOut {
    uint8_t* dst;
    uint8_t* end;
    uint64_t buf;
    int32_t count;

    ZEM_INLINE void put(uint32_t v, int32_t n) {
        buf |= (uint64_t)v << (64 - count - n);
        count += n;
    }
    // Writes the whole bytes; false when some are left for want of room.
    ZEM_INLINE bool drain() {
        if (ZEM_LIKELY(end - dst >= 8)) {
            // One store of the whole word: the bytes past the whole ones are rewritten later.
            store64_be(dst, buf);
            int32_t k = count >> 3;
            dst += k;
            buf <<= 8 * k;
            count &= 7;
            return true;
        }
        while (count >= 8) {
            if (dst == end) return false;
            *dst++ = uint8_t(buf >> 56);
            buf <<= 8;
            count -= 8;
        }
        return true;
    }
};
// The most bits ever pending: what a stopped call leaves (7 + one token). The word holds them and
// a token more, and one 8-byte store writes them all.
inline constexpr int32_t kMaxPending = 7 + kMatchBits;
static_assert(kMaxPending + kMatchBits <= 64 - 8);

// Bytes equal at cand and cur, up to limit. With `wide`, both may be read 7 bytes past limit.
template <bool wide>
ZEM_INLINE int32_t match_len(const uint8_t* cand, const uint8_t* cur, int32_t limit) {
    int32_t n = 0;
    if constexpr (wide) {
        for (; n < limit; n += 8) {
            uint64_t x = load64(cand + n) ^ load64(cur + n);
            if (x) {
                n += __builtin_ctzll(x) >> 3;
                return n < limit ? n : limit;
            }
        }
        return limit;
    } else {
        while (n < limit && cand[n] == cur[n]) ++n;
        return n;
    }
}

// One call's search context: the input, the history before it and the chains.
struct Search {
    EncoderState* s;
    const uint8_t* src;
    const uint8_t* hist_end;  // history + history_len: the byte before src in the stream
    uint32_t base;            // stream position of src[0]

    ZEM_INLINE void insert(int32_t i) {
        uint32_t h = hash3(src + i), p = base + (uint32_t)i;
        s->prev[p & kWindowMask] = s->head[h];
        s->head[h] = (int32_t)p;
    }

    // Inserts position i and returns the longest match there (length << 16 | distance), or a
    // length below kMinMatch. `wide` when i is far enough from the input's end.
    template <bool wide>
    ZEM_INLINE uint32_t find(int32_t i, int32_t limit) {
        const uint8_t* cur = src + i;
        uint32_t h = hash3(cur), p = base + (uint32_t)i;
        int32_t cand = s->head[h];
        s->prev[p & kWindowMask] = cand;
        s->head[h] = (int32_t)p;
        int32_t best = kMinMatch - 1;
        uint32_t best_dist = 0;
        if (limit < kMinMatch) return 0;
        for (int n = 0; n < kMaxCandidates; ++n) {
            uint32_t d = p - (uint32_t)cand;
            if (d >= kWindow) break;
            // A match that starts in the history runs on into the input's copy behind it.
            const uint8_t* cp = d <= (uint32_t)i ? cur - d : hist_end + (i - (int32_t)d);
            // Only a candidate that also matches the byte after the best so far can beat it.
            if (load16(cp + best - 1) == load16(cur + best - 1)) {
                int32_t m = match_len<wide>(cp, cur, limit);
                if (m > best) {
                    best = m;
                    best_dist = d;
                    if (m >= limit) break;
                }
            }
            cand = s->prev[(uint32_t)cand & kWindowMask];
        }
        return (uint32_t)best << 16 | best_dist;
    }
};

// The history after a call that consumed n bytes of src: appended in place while the buffer
// keeps room for the next call's lookahead copy, else the stream's last kWindow bytes.
void move_history(EncoderState* s, const uint8_t* src, int32_t n) {
    int32_t hl = s->history_len;
    if (n < (int32_t)kWindow && hl + n <= kHistoryAppendMax) {
        MemCopy(src, s->history + hl, n);
        s->history_len = hl + n;
        return;
    }
    int32_t keep = n >= (int32_t)kWindow ? 0 : (int32_t)kWindow - n;
    if (keep) memmove(s->history, s->history + hl - keep, (size_t)keep);
    MemCopy(src + n - ((int32_t)kWindow - keep), s->history + keep, (int32_t)kWindow - keep);
    s->history_len = (int32_t)kWindow;
    // Entries out of the window become the entry at exactly the window's edge, which no later
    // position takes as a candidate until the next move refreshes it again.
    uint32_t end = s->position + (uint32_t)n;
    int32_t edge = (int32_t)(end - kWindow);
    for (int32_t j = 0; j < (int32_t)kWindow; ++j)
        s->prev[j] = end - (uint32_t)s->prev[j] >= kWindow ? edge : s->prev[j];
    for (int32_t j = 0; j < kHashCount; ++j)
        s->head[j] = end - (uint32_t)s->head[j] >= kWindow ? edge : s->head[j];
}

}  // namespace

zemStatus encode(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst, int32_t* pDstLen, EncoderState* s) {
    const uint8_t* src = *ppSrc;
    const int32_t len = *pSrcLen;
    BitOut out{*ppDst, *ppDst + *pDstLen, s->bit_buf, s->bit_count};
    int32_t i = 0;
    bool full = !out.drain();
    if (!full) {
        const int32_t hl = s->history_len;
        MemCopy(src, s->history + hl, len < kMaxMatch ? len : kMaxMatch);
        Search search{s, src, s->history + hl, s->position};
        // Positions below `body` are hashed and searched; the last two bytes are literals.
        const int32_t body = len - kTailLiterals;
        // Below `wide_end` a compare may read 7 bytes past its limit and stay in the input.
        const int32_t wide_end = len - kMaxMatch - (int32_t)kHistoryOverread - kTailLiterals;
        while (i < body) {
            int32_t limit = body - i < kMaxMatch ? body - i : kMaxMatch;
            uint32_t m = i < wide_end ? search.find<true>(i, limit) : search.find<false>(i, limit);
            int32_t mlen = (int32_t)(m >> 16);
            if (mlen >= kMinMatch) {
                out.put((m & 0xffff) << 8 | uint32_t(mlen - kMinMatch), kMatchBits);
                for (int32_t j = i + 1; j < i + mlen; ++j) search.insert(j);
                i += mlen;
            } else {
                out.put(0x100u | src[i], kLiteralBits);
                ++i;
            }
            if (!out.drain()) {
                full = true;
                break;
            }
        }
        while (!full && i < len) {
            out.put(0x100u | src[i], kLiteralBits);
            ++i;
            full = !out.drain();
        }
        move_history(s, src, i);
        s->position += (uint32_t)i;
    }
    s->bit_buf = out.buf;
    s->bit_count = out.count;
    *ppSrc = src + i;
    *pSrcLen = len - i;
    *pDstLen -= (int32_t)(out.dst - *ppDst);
    *ppDst = out.dst;
    return i < len ? zemStatusDstTooSmall : zemStatusOk;
}

zemStatus flush(uint8_t** ppDst, int32_t* pDstLen, EncoderState* s) {
    uint8_t* dst = *ppDst;
    uint8_t* const end = dst + *pDstLen;
    // The last byte goes out padded with zero bits: the buffer's low bits are always zero.
    while (s->bit_count > 0 && dst < end) {
        *dst++ = uint8_t(s->bit_buf >> 56);
        s->bit_buf <<= 8;
        s->bit_count = s->bit_count > 8 ? s->bit_count - 8 : 0;
    }
    *pDstLen -= (int32_t)(dst - *ppDst);
    *ppDst = dst;
    return s->bit_count > 0 ? zemStatusDstTooSmall : zemStatusOk;
}

}  // namespace zem::lzss

using namespace zem::lzss;

// No zemStatusSize here: an empty output answers "too small" and an empty input "done", so a
// caller's loop needs no special case for either.
ZEM_API zemStatus zemsEncodeLZSS_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst, int32_t* pDstLen,
                                    zemLZSSState_8u* pLZSSState) {
    if (zem::any_null(ppSrc, pSrcLen, ppDst, pDstLen, pLZSSState)) return zemStatusNullPtr;
    if (*ppSrc == nullptr || *ppDst == nullptr) return zemStatusNullPtr;
    if (*pDstLen <= 0) return zemStatusDstTooSmall;
    if (*pSrcLen <= 0) return zemStatusOk;
    return encode(ppSrc, pSrcLen, ppDst, pDstLen, view<EncoderState>(pLZSSState));
}

ZEM_API zemStatus zemsEncodeLZSSFlush_8u(uint8_t** ppDst, int32_t* pDstLen, zemLZSSState_8u* pLZSSState) {
    if (zem::any_null(ppDst, pDstLen, pLZSSState)) return zemStatusNullPtr;
    if (*ppDst == nullptr) return zemStatusNullPtr;
    if (*pDstLen < 1) return zemStatusSize;
    return flush(ppDst, pDstLen, view<EncoderState>(pLZSSState));
}
