// LZ4 block decoder: plain, with a prefix dictionary in the same memory, and with a separate
// dictionary.
//
// Two loops. The fast loop runs while the input is at least 33 bytes (32 with a prefix
// dictionary) and the output at least 64 bytes from their ends (its widest common sequence needs
// 16 more, so it gives way to the narrow one for the last 16): it copies literals and matches
// with wide stores that may run past the bytes that count, which is what makes it fast. Any
// sequence that would bring either end closer is handed, from its token, to the careful loop,
// which checks every access and decides the statuses. Because the fast loop only takes sequences
// that the careful loop would accept unchanged, the result never depends on which loop ran.
#include <immintrin.h>

#include "core/check.h"
#include "core/match_copy.h"
#include "lz4/lz4_block.h"

namespace zem::lz4 {

namespace {

enum class Dict { None, Prefix, External };

// Shuffle that spreads the first `offset` bytes of a 16-byte load over 32 bytes: byte i of the
// result is byte (i mod offset) of the source, (i mod 16) for offset 0.
struct PatternTable {
    uint8_t mask[16][32];
};
constexpr PatternTable make_patterns() {
    PatternTable t{};
    for (int d = 0; d < 16; ++d)
        for (int i = 0; i < 32; ++i) t.mask[d][i] = (uint8_t)(d == 0 ? i % 16 : i % d);
    return t;
}
alignas(32) constexpr PatternTable kPatterns = make_patterns();

// The largest multiple of the offset that does not exceed 32 (32 for offset 0): how far the
// 32-byte pattern moves between stores.
constexpr uint8_t kPatternStep[16] = {32, 32, 32, 30, 32, 30, 30, 28, 32, 27, 30, 22, 24, 26, 28, 30};

ZEM_INLINE void copy16(const uint8_t* s, uint8_t* d) {
    _mm_storeu_si128((__m128i*)d, _mm_loadu_si128((const __m128i*)s));
}
ZEM_INLINE void copy32(const uint8_t* s, uint8_t* d) {
    _mm256_storeu_si256((__m256i*)d, _mm256_loadu_si256((const __m256i*)s));
}

// Fast-loop match copy. Writes up to 63 bytes past d + n; reads below d + n.
ZEM_INLINE void wild_match(uint8_t* d, size_t offset, size_t n) {
    const uint8_t* s = d - offset;
    if (offset < 16) {
        __m256i src = _mm256_broadcastsi128_si256(_mm_loadu_si128((const __m128i*)s));
        __m256i pat = _mm256_shuffle_epi8(src, _mm256_load_si256((const __m256i*)kPatterns.mask[offset]));
        size_t step = kPatternStep[offset];
        _mm256_storeu_si256((__m256i*)d, pat);
        for (size_t i = step; i < n; i += step) _mm256_storeu_si256((__m256i*)(d + i), pat);
        return;
    }
    if (offset >= 32) {
        // Matches that get here are mostly longer than 18 bytes: two stores cover up to 64
        // without a length test. (The second load reads only bytes that precede it or that the
        // first store wrote.)
        copy32(s, d);
        copy32(s + 32, d + 32);
        for (size_t i = 64; i < n; i += 32) copy32(s + i, d + i);
        return;
    }
    copy16(s, d);
    // Each store is right only for its first `offset` bytes; the next store starts there.
    for (size_t i = 16; i < n; i += offset) copy32(s + i, d + i);
}

// Literal copy of the careful loop: exact length; a forward byte loop where input and output
// could overlap.
ZEM_INLINE void exact_literals(const uint8_t* s, uint8_t* d, size_t n) {
    if (s + n <= d || d + n <= s) {
        copy_literals(s, d, n);
    } else {
        for (size_t i = 0; i < n; ++i) d[i] = s[i];
    }
}

struct Block {
    const uint8_t* src;
    int32_t src_len;
    uint8_t* out;
    int32_t cap;
    const uint8_t* low;  // no match source may lie before this
    // Separate dictionary: it stands for the first dict_len bytes of the output buffer `low`.
    const uint8_t* dict;
    size_t dict_len;
};

// Match copy with a separate dictionary: bytes of positions below dict_len (counted from the
// output buffer's start) come from the dictionary, the rest from the output itself.
ZEM_INLINE void dict_match(const Block& b, uint8_t* d, size_t offset, size_t n) {
    size_t pos = size_t(d - b.low) - offset;
    if (pos < b.dict_len) {
        size_t k = b.dict_len - pos;
        if (k > n) k = n;
        const uint8_t* s = b.dict + pos;
        for (size_t i = 0; i < k; ++i) d[i] = s[i];
        d += k;
        n -= k;
    }
    copy_match_exact(d, offset, n);
}

template <Dict K>
ZEM_INLINE bool from_dict(const Block& b, const uint8_t* op, size_t offset) {
    if constexpr (K == Dict::External)
        return size_t(op - b.low) - offset < b.dict_len;
    else
        return false;
}

template <Dict K>
constexpr size_t kInMargin = K == Dict::Prefix ? 32 : 33;
constexpr size_t kOutMargin = 64;

enum class Exit { Careful, Error, Stop };

struct Cursor {
    const uint8_t* ip;
    uint8_t* op;
    Exit exit;
    size_t longs;  // matches with extension bytes seen
};

// The wide common sequence writes up to 14 literals and then up to 64 match bytes: the wide
// loop stops this much before the output margin.
constexpr size_t kWideRoom = 16;

// The fast loop, on its own so that its few live values all stay in registers. Returns where
// the careful loop goes on (at the token of a handed-over sequence), an offset error, or
// `Stop` where the output reached `stop` with both margins still kept.
//
// Matches are checked against the start of the history only while it lies less than 64 KiB
// behind: from there on (`Far`) no 16-bit offset can reach before it.
//
// `Wide` chooses the common sequence. Both take short literal runs (no extension byte). The
// narrow one takes matches of at most 18 bytes and copies 32; it mispredicts on every match
// with an extension byte. The wide one also takes matches of up to 64 bytes with one
// extension byte, chosen by arithmetic rather than by a branch, and copies 64; on text, where
// such matches are rare, its extra stores cost more than the mispredictions it saves.
template <Dict K, bool Far, bool Wide>
ZEM_NOINLINE Cursor fast_loop(const Block& b, const uint8_t* ip, uint8_t* op, uint8_t* const stop) {
    const uint8_t* const low = b.low;
    const uint8_t* const ilimit = b.src + b.src_len - kInMargin<K>;
    uint8_t* const olimit = b.out + b.cap - kOutMargin;
    auto in_reach = [&](size_t offset, const uint8_t* at) { return Far || ptrdiff_t(offset) <= at - low; };
    size_t longs = 0;
    // The token's two nibbles, read one sequence ahead: see below.
    size_t lit = 0, len = 0;
    if (ip < ilimit) {
        lit = *ip >> 4;
        len = *ip & kRunMask;
    }
    while (ip < ilimit && op < stop) {
        const uint8_t* const seq = ip;
        uint8_t* const seq_out = op;
        // The byte after the literals and the offset (two with `Wide`: an extension byte may
        // come first), loaded straight from the literal count, so that the loop-carried chain
        // of the common sequence is load, shift, load. Computing the address first and loading
        // from it would put an add in that chain on every sequence. They lie at most 19 bytes
        // past the token, inside the margin. (Input bytes are never written, so the load needs
        // no ordering against the stores.)
        uint64_t after;
        if constexpr (Wide)
            __asm__("movzwl 3(%1,%2), %k0" : "=r"(after) : "r"(seq), "r"(lit));
        else
            __asm__("movzbl 3(%1,%2), %k0" : "=r"(after) : "r"(seq), "r"(lit));
        if (ZEM_LIKELY(lit < kRunMask)) {
            copy16(seq + 1, op);
            // The common sequence, copied with fixed copies and one combined test. (A match
            // copy reads only bytes that an earlier copy has written or that precede it.)
            // Every address here is one base and one index.
            if constexpr (K != Dict::External) {
                const size_t offset = load16(seq + 1 + lit);
                uint8_t* const mop = op + lit;
                // Addressed as mop plus a negative index: one instruction for the source.
                ptrdiff_t back = -ptrdiff_t(offset);
                if constexpr (Wide) {
                    // Arithmetic, not a choice: the compiler would otherwise split the path.
                    size_t ext = (len + 1) >> 4;  // len == 15
                    __asm__("" : "+r"(ext));
                    // The extension byte's bits, and where the next token starts in `after`.
                    const uint64_t shift = ext * 8;
                    const size_t mlen = len + kMinMatch + _bzhi_u64(after, unsigned(shift));
                    if (ZEM_LIKELY((mlen <= 64) & (offset >= 16) & in_reach(offset, mop))) {
                        __asm__("" : "+r"(back));
                        copy16(mop + back, mop);
                        copy16(mop + back + 16, mop + 16);
                        copy16(mop + back + 32, mop + 32);
                        copy16(mop + back + 48, mop + 48);
                        longs += ext;
                        ip = seq + 3 + (lit + ext);
                        op = mop + mlen;
                        // Bit-field extracts with the control words (start | length << 8)
                        // built directly, off the chain.
                        lit = __builtin_ia32_bextr_u64(after, shift + 0x404);
                        len = __builtin_ia32_bextr_u64(after, shift + 0x400);
                        continue;
                    }
                } else {
                    if (ZEM_LIKELY((len < kRunMask) & (offset >= 16) & in_reach(offset, mop))) {
                        __asm__("" : "+r"(back));
                        copy16(mop + back, mop);
                        copy16(mop + back + 16, mop + 16);
                        // Kept apart from the token chain: a three-part address would add
                        // latency to it.
                        const uint8_t* next = seq + 3;
                        __asm__("" : "+r"(next));
                        ip = next + lit;
                        op = mop + len + kMinMatch;
                        lit = after >> 4;
                        len = after & kRunMask;
                        continue;
                    }
                }
            }
            ip = seq + 1;
        } else {
            ip = seq + 1;
            unsigned x;
            do {
                if (ZEM_UNLIKELY(ip >= ilimit)) return {seq, seq_out, Exit::Careful, longs};
                x = *ip++;
                lit += x;
            } while (x == 255);
            if (ZEM_UNLIKELY(lit >= size_t(ilimit - ip) || lit >= size_t(olimit - op)))
                return {seq, seq_out, Exit::Careful, longs};
            if (ZEM_LIKELY(lit <= 256)) {
                copy32(ip, op);
                for (size_t i = 32; i < lit; i += 32) copy32(ip + i, op + i);
            } else {
                copy_literals(ip, op, lit);  // long runs: the memory kernels
            }
        }
        ip += lit;
        op += lit;

        const size_t offset = load16(ip);
        ip += 2;
        if (ZEM_UNLIKELY(!in_reach(offset, op))) return {ip, op, Exit::Error, longs};
        if (ZEM_UNLIKELY(len == kRunMask)) {
            ++longs;
            unsigned x;
            do {
                if (ZEM_UNLIKELY(ip >= ilimit)) return {seq, seq_out, Exit::Careful, longs};
                x = *ip++;
                len += x;
            } while (x == 255);
        }
        len += kMinMatch;
        // Signed: a short literal run is copied without a length test and may already have
        // carried op past olimit. (len stays far below 2^63: at most 255 per input byte.)
        if (ZEM_UNLIKELY(ptrdiff_t(len) >= olimit - op)) return {seq, seq_out, Exit::Careful, longs};
        if (ZEM_UNLIKELY(from_dict<K>(b, op, offset)))
            dict_match(b, op, offset, len);
        else
            wild_match(op, offset, len);
        op += len;
        // Within the margin: ip has not reached ilimit yet or the loop ends.
        lit = *ip >> 4;
        len = *ip & kRunMask;
    }
    return {ip, op, ip < ilimit && op >= stop ? Exit::Stop : Exit::Careful, longs};
}

// The fast loop runs in stretches of this much output; each stretch takes the wide common
// sequence when the one before met more than kWideLongs matches with extension bytes
// (record-like data meets hundreds, text a few dozen).
constexpr size_t kStretch = 16384;
constexpr size_t kWideLongs = 96;

template <Dict K>
ZEM_INLINE Cursor run_fast(const Block& b, const uint8_t* ip, uint8_t* op) {
    uint8_t* const olimit = b.out + b.cap - kOutMargin;
    bool wide = false;
    for (;;) {
        // The wide sequence stops short of the margin by its extra room; the narrow one then
        // takes the output up to the margin itself, where the careful loop would begin anyway.
        uint8_t* const ostop = wide ? olimit - kWideRoom : olimit;
        // (op may have passed ostop with the last sequence.)
        uint8_t* stop = ostop - op > ptrdiff_t(kStretch) ? op + kStretch : ostop;
        const bool far = size_t(op - b.low) > kMaxOffset;
        if (!far && size_t(stop - b.low) > kMaxOffset + 1) stop = const_cast<uint8_t*>(b.low) + kMaxOffset + 1;
        Cursor c;
        if constexpr (K == Dict::External) {
            c = far ? fast_loop<K, true, false>(b, ip, op, stop) : fast_loop<K, false, false>(b, ip, op, stop);
        } else if (wide) {
            c = far ? fast_loop<K, true, true>(b, ip, op, stop) : fast_loop<K, false, true>(b, ip, op, stop);
        } else {
            c = far ? fast_loop<K, true, false>(b, ip, op, stop) : fast_loop<K, false, false>(b, ip, op, stop);
        }
        if (c.exit != Exit::Stop || (stop == ostop && !wide)) return c;
        ip = c.ip;
        op = c.op;
        wide = stop != ostop && c.longs > kWideLongs;
    }
}

template <Dict K>
zemStatus decode(const Block& b, int32_t* pSrcLen, int32_t* pDstLen) {
    const uint8_t* ip = b.src;
    const uint8_t* const E = b.src + b.src_len;
    uint8_t* op = b.out;
    uint8_t* const F = b.out + b.cap;
    // A lone byte is a token without its sequence: a short input, with nothing consumed.
    const zemStatus clean = b.src_len == 1 ? zemStatusSrcTooShort : zemStatusOk;
    const uint8_t* const low = b.low;

    if (size_t(b.src_len) > kInMargin<K> && size_t(b.cap) > kOutMargin) {
        const Cursor c = run_fast<K>(b, ip, op);
        if (c.exit == Exit::Error) return zemStatusError;
        ip = c.ip;
        op = c.op;
    }

    for (;;) {
        if (ip >= E - 1) break;
        const unsigned token = *ip++;
        size_t lit = token >> 4;
        if (lit == kRunMask) {
            unsigned x;
            do {
                if (ip >= E) break;
                x = *ip++;
                lit += x;
            } while (x == 255);
        }
        if (lit > size_t(F - op)) {
            while (op < F && ip < E) *op++ = *ip++;
            *pSrcLen = int32_t(ip - b.src);
            *pDstLen = int32_t(op - b.out);
            return zemStatusDstTooSmall;
        }
        const size_t in_left = size_t(E - ip);
        if (lit != in_left && lit + 8 > in_left) {
            // The run ends inside the last 7 bytes without ending exactly at the input's end,
            // or runs past it: a cut block.
            while (op < F && ip < E) *op++ = *ip++;
            *pSrcLen = int32_t(ip - b.src);
            *pDstLen = int32_t(op - b.out);
            return zemStatusSrcTooShort;
        }
        exact_literals(ip, op, lit);
        ip += lit;
        op += lit;
        if (ip >= E || op >= F) break;

        const size_t offset = load16(ip);
        ip += 2;
        if (ptrdiff_t(offset) > op - low) return zemStatusError;
        size_t len = token & kRunMask;
        if (len == kRunMask) {
            unsigned x;
            do {
                if (ip >= E) {
                    // The length's extension bytes run off the input.
                    *pSrcLen = int32_t(ip - b.src);
                    *pDstLen = int32_t(op - b.out);
                    return zemStatusSrcTooShort;
                }
                x = *ip++;
                len += x;
            } while (x == 255);
        }
        len += kMinMatch;
        if (len > size_t(INT32_MAX)) return zemStatusSize;
        if (len > size_t(F - op)) {
            const size_t room = size_t(F - op);
            if (room != 0) {
                if (from_dict<K>(b, op, offset))
                    dict_match(b, op, offset, room);
                else
                    copy_match_exact(op, offset, room);
            }
            *pSrcLen = int32_t(ip - b.src);
            *pDstLen = b.cap;
            return zemStatusDstTooSmall;
        }
        if (from_dict<K>(b, op, offset))
            dict_match(b, op, offset, len);
        else
            copy_match_exact(op, offset, len);
        op += len;
    }
    *pSrcLen = int32_t(ip - b.src);
    *pDstLen = int32_t(op - b.out);
    return clean;
}

}  // namespace

}  // namespace zem::lz4

ZEM_API zemStatus zemsDecodeLZ4_8u(const uint8_t* src, int32_t srcLen, uint8_t* dst, int32_t* pDstLen) {
    if (zem::any_null(src, dst, pDstLen)) return zemStatusNullPtr;
    if (srcLen < 1 || *pDstLen < 1) return zemStatusSize;
    int32_t consumed = srcLen;
    const zem::lz4::Block b{src, srcLen, dst, *pDstLen, dst, nullptr, 0};
    return zem::lz4::decode<zem::lz4::Dict::None>(b, &consumed, pDstLen);
}

ZEM_API zemStatus zemsDecodeLZ4Dict_8u(const uint8_t* src, int32_t* pSrcLen, uint8_t* dst, int32_t dstIdx,
                                       int32_t* pDstLen, const uint8_t* pDict, int32_t dictLen) {
    using zem::lz4::Block;
    using zem::lz4::Dict;
    using zem::lz4::decode;
    if (zem::any_null(src, pSrcLen, dst, pDstLen)) return zemStatusNullPtr;
    if (*pSrcLen < 1 || *pDstLen < 1) return zemStatusSize;
    uint8_t* out = dst + dstIdx;
    if (pDict == nullptr || dictLen == 0) {
        const Block b{src, *pSrcLen, out, *pDstLen, out, nullptr, 0};
        return decode<Dict::None>(b, pSrcLen, pDstLen);
    }
    if ((uintptr_t)pDict + (uintptr_t)(intptr_t)dictLen == (uintptr_t)out) {
        // The dictionary is the memory right before the output: matches may reach into it.
        const Block b{src, *pSrcLen, out, *pDstLen, pDict, nullptr, 0};
        return decode<Dict::Prefix>(b, pSrcLen, pDstLen);
    }
    if (dictLen < 1) return zemStatusSize;
    const Block b{src, *pSrcLen, out, *pDstLen, dst, pDict, (size_t)dictLen};
    return decode<Dict::External>(b, pSrcLen, pDstLen);
}
