// The LZSS decoder: a wide loop while input and output are far from their ends, a careful
// token-at-a-time loop near them, and a ring of the last 32 KiB of output for matches that
// reach back past the current call.
#include "core/bytes.h"
#include "core/mem.h"
#include "lzss/lzss.h"

namespace zem::lzss {

namespace {

// The wide loop copies matches 16 bytes at a time, so it may write this far past a match's end
// (one token per refill: decoding two measured no faster on the large test files).
inline constexpr int32_t kCopyChunk = 16;
inline constexpr ptrdiff_t kWideRoom = kMaxMatch + kCopyChunk - 1;
// ... and it refills with one 8-byte load.
inline constexpr ptrdiff_t kWideInput = 8;
// The state keeps at most 32 bits; the careful loop refills to at most 64.
inline constexpr int32_t kStateBits = 32;

// Distance 0 does not occur in a well-formed stream; it reads as kWindow, the oldest byte
// the ring holds, so every distance field names a byte of the history or the output.
ZEM_INLINE uint32_t distance(uint64_t buf) {
    uint32_t d = uint32_t(buf >> 48) & kWindowMask;
    return d ? d : kWindow;
}
ZEM_INLINE int32_t length(uint64_t buf) { return int32_t((buf >> 40) & 0xff) + kMinMatch; }

// Copies n bytes from distance d back, where `produced` bytes of this call precede out; the
// part before them comes from the ring. Byte by byte, so that overlaps repeat the pattern.
void copy_far(uint8_t* out, size_t produced, uint32_t d, int32_t n, const DecoderState* s) {
    int32_t k = 0;
    if (d > produced) {
        uint32_t r = s->ring_pos - (d - (uint32_t)produced);
        int32_t from_ring = (int32_t)(d - produced) < n ? (int32_t)(d - produced) : n;
        for (; k < from_ring; ++k) out[k] = s->ring[(r + (uint32_t)k) & kWindowMask];
    }
    for (; k < n; ++k) out[k] = out[k - (int32_t)d];
}

// A match wholly inside this call's output, with kWideRoom bytes of room.
ZEM_INLINE void copy_near(uint8_t* out, uint32_t d, int32_t n) {
    const uint8_t* from = out - d;
    if (d >= kCopyChunk) {
        for (int32_t k = 0; k < n; k += kCopyChunk)
            _mm_storeu_si128((__m128i*)(out + k), _mm_loadu_si128((const __m128i*)(from + k)));
    } else if (d == 1) {
        MemFill(*from, out, n);
    } else if (d >= 8) {
        for (int32_t k = 0; k < n; k += 8) store64(out + k, load64(from + k));
    } else {
        for (int32_t k = 0; k < n; ++k) out[k] = from[k];
    }
}

void ring_write(DecoderState* s, const uint8_t* p, size_t n) {
    if (n >= kWindow) {
        p += n - kWindow;
        s->ring_pos = (s->ring_pos + (uint32_t)(n - kWindow)) & kWindowMask;
        n = kWindow;
    }
    size_t first = kWindow - s->ring_pos < n ? kWindow - s->ring_pos : n;
    MemCopy(p, s->ring + s->ring_pos, (int32_t)first);
    MemCopy(p + first, s->ring, (int32_t)(n - first));
    s->ring_pos = (s->ring_pos + (uint32_t)n) & kWindowMask;
    int32_t hl = s->history_len + (int32_t)n;
    s->history_len = hl < (int32_t)kWindow ? hl : (int32_t)kWindow;
}

ZEM_INLINE uint64_t keep_top(uint64_t buf, int32_t count) { return count ? buf & (~0ull << (64 - count)) : 0; }

}  // namespace

zemStatus decode(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst, int32_t* pDstLen, DecoderState* s) {
    const uint8_t* in = *ppSrc;
    const uint8_t* const in_end = in + (*pSrcLen > 0 ? *pSrcLen : 0);
    uint8_t* const out0 = *ppDst;
    uint8_t* out = out0;
    uint8_t* const out_end = out0 + *pDstLen;
    uint64_t buf = (uint64_t)s->bit_buf << 32;
    int32_t count = s->bit_count;
    zemStatus st = zemStatusOk;

    if (s->cut_len > 0) {
        int32_t n = s->cut_len < out_end - out ? s->cut_len : (int32_t)(out_end - out);
        copy_far(out, 0, s->cut_dist, n, s);
        out += n;
        s->cut_len -= n;
        if (s->cut_len > 0) st = zemStatusDstTooSmall;
    }

    if (st == zemStatusOk) {
        // Wide loop: one refill to 56..63 bits per token. The load may bring in bits past the
        // count; they are the stream's next bits, so the next refill ORs the same values.
        while (in_end - in >= kWideInput && out_end - out >= kWideRoom) {
            buf |= load64_be(in) >> count;
            in += (63 - count) >> 3;
            count |= 56;
            if ((int64_t)buf < 0) {
                *out++ = uint8_t(buf >> 55);
                buf <<= kLiteralBits;
                count -= kLiteralBits;
                continue;
            }
            uint32_t d = distance(buf);
            int32_t n = length(buf);
            buf <<= kMatchBits;
            count -= kMatchBits;
            size_t produced = (size_t)(out - out0);
            if (ZEM_LIKELY(d <= produced))
                copy_near(out, d, n);
            else
                copy_far(out, produced, d, n, s);
            out += n;
        }
        buf = keep_top(buf, count);

        // Careful loop: byte refills, and a check of the room before every token.
        for (;;) {
            while (count <= 56 && in < in_end) {
                buf |= (uint64_t)*in++ << (56 - count);
                count += 8;
            }
            bool literal = (int64_t)buf < 0;
            if (count < (literal ? kLiteralBits : kMatchBits)) break;  // input used up
            if (out == out_end) {
                st = zemStatusDstTooSmall;
                break;
            }
            if (literal) {
                *out++ = uint8_t(buf >> 55);
                buf <<= kLiteralBits;
                count -= kLiteralBits;
                continue;
            }
            uint32_t d = distance(buf);
            int32_t n = length(buf);
            buf <<= kMatchBits;
            count -= kMatchBits;
            int32_t room = (int32_t)(out_end - out);
            copy_far(out, (size_t)(out - out0), d, n < room ? n : room, s);
            if (n > room) {
                out += room;
                s->cut_dist = d;
                s->cut_len = n - room;
                st = zemStatusDstTooSmall;
                break;
            }
            out += n;
        }
        // Give back the whole bytes that do not fit the state's buffer; they were all read by
        // this call, since the state held at most kStateBits on entry.
        if (count > kStateBits) {
            int32_t r = (count - kStateBits + 7) >> 3;
            in -= r;
            count -= 8 * r;
            buf = keep_top(buf, count);
        }
    }

    ring_write(s, out0, (size_t)(out - out0));
    s->bit_buf = uint32_t(buf >> 32);
    s->bit_count = count;
    *pSrcLen -= (int32_t)(in - *ppSrc);
    *ppSrc = in;
    *pDstLen -= (int32_t)(out - out0);
    *ppDst = out;
    return st;
}

}  // namespace zem::lzss

using namespace zem::lzss;

// The source length is not checked: an empty or negative one decodes what the state holds.
ZEM_API zemStatus zemsDecodeLZSS_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst, int32_t* pDstLen,
                                    zemLZSSState_8u* pLZSSState) {
    if (zem::any_null(ppSrc, pSrcLen, ppDst, pDstLen, pLZSSState)) return zemStatusNullPtr;
    if (*ppSrc == nullptr || *ppDst == nullptr) return zemStatusNullPtr;
    if (*pDstLen < 1) return zemStatusSize;
    return decode(ppSrc, pSrcLen, ppDst, pDstLen, view<DecoderState>(pLZSSState));
}
