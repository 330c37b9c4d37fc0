// The first and last stage of the block-sorting pipeline: bzip2's initial run-length coding and
// its inverse, both resumable over any split of input and output.
#include <immintrin.h>

#include "blocksort/rle_state.h"
#include "core/check.h"
#include "core/mem.h"

namespace zem::bz2 {
namespace {

zemStatus encode(const uint8_t** pp_src, int32_t* p_src_len, uint8_t* dst, int32_t* p_dst_len, zemRLEState_BZ2* state) {
    uint8_t* const in_use = bytes_of(state);
    const RleFields f = load_fields(state);
    const uint8_t* s = *pp_src;
    const uint8_t* const se = s + *p_src_len;
    uint8_t* d = dst;
    uint8_t* const de = dst + *p_dst_len;
    int32_t p = f.byte, r = f.count;
    zemStatus status = zemStatusOk;
    for (;;) {
        // Below four copies every byte is written as it is.
        while (r < kRunHeader && s < se && d < de) {
            const uint8_t b = *s++;
            *d++ = b;
            in_use[b] = 1;
            r = (b == p) ? r + 1 : 1;
            p = b;
        }
        if (d == de) {
            if (s < se) status = zemStatusDstTooSmall;
            break;
        }
        // Four copies are out: count the rest of the run without writing it. The count byte is
        // owed until the run ends, so a run cut by the end of the input stays open for the next
        // call (or the flush).
        const uint8_t* lim = se - s > kMaxRun - r ? s + (kMaxRun - r) : se;
        while (s < lim && *s == p) ++s, ++r;
        if (s == se) break;
        // r >= 4 here: the loop above only stops below four at the end of input or output.
        *d++ = uint8_t(r - kRunHeader);
        in_use[r - kRunHeader] = 1;
        r = 0;  // p stays, so an equal byte after a cut run starts a new run at one
    }
    store_byte_count(state, p, r);
    *p_src_len -= int32_t(s - *pp_src);
    *pp_src = s;
    *p_dst_len = int32_t(d - dst);
    return status;
}

// Input bytes the vector scan reads per step: 16 it may copy and the one after them, which
// decides whether the 16th starts a pair.
inline constexpr int32_t kScanRead = 17;
inline constexpr int32_t kScanWrite = 16;

zemStatus decode(const uint8_t** pp_src, int32_t* p_src_len, uint8_t** pp_dst, int32_t* p_dst_len,
                 zemRLEState_BZ2* state) {
    const RleFields f = load_fields(state);
    const uint8_t* s = *pp_src;
    const uint8_t* const se = s + *p_src_len;
    uint8_t* d = *pp_dst;
    uint8_t* const de = d + *p_dst_len;
    int32_t byte = f.byte, seen = f.seen, owed = f.count;
    zemStatus status = zemStatusOk;

    if (owed > 0) {
        if (owed > de - d) {
            const int32_t room = int32_t(de - d);
            MemFill(uint8_t(byte), d, room);
            d += room;
            owed -= room;
            status = zemStatusDstTooSmall;
            goto done;
        }
        MemFill(uint8_t(byte), d, owed);
        d += owed;
        owed = 0;
        byte = -1;
        seen = 0;
    }
    while (s < se) {
        // Literal stretches: while the last byte written has no equal neighbour before it, 16
        // bytes with no adjacent equal pair (the first also unlike the last written) are copied
        // at once; the first pair ends the stretch right after its first byte.
        if (seen <= 1) {
            while (se - s >= kScanRead && de - d >= kScanWrite && int32_t(s[0]) != byte) {
                const __m128i v = _mm_loadu_si128((const __m128i*)s);
                const __m128i w = _mm_loadu_si128((const __m128i*)(s + 1));
                const uint32_t pairs = (uint32_t)_mm_movemask_epi8(_mm_cmpeq_epi8(v, w));
                _mm_storeu_si128((__m128i*)d, v);
                const int32_t n = pairs ? int32_t(__builtin_ctz(pairs)) + 1 : kScanWrite;
                s += n;
                d += n;
                byte = s[-1];
                seen = 1;
                if (pairs) break;
            }
            if (s == se) break;
        }
        const uint8_t b = *s;
        if (seen == kRunHeader) {
            // A count byte: the copies it owes are written now, as far as they fit.
            ++s;
            seen = 0;
            const int32_t room = int32_t(de - d);
            if (b > room) {
                MemFill(uint8_t(byte), d, room);
                d += room;
                owed = b - room;
                status = zemStatusDstTooSmall;
                break;
            }
            MemFill(uint8_t(byte), d, b);
            d += b;
            byte = -1;
            continue;
        }
        if (d == de) {
            status = zemStatusDstTooSmall;
            break;
        }
        *d++ = b;
        ++s;
        if (int32_t(b) == byte) {
            ++seen;
        } else {
            byte = b;
            seen = 1;
        }
    }
done:
    store_fields(state, {seen, byte, owed});
    *p_src_len -= int32_t(s - *pp_src);
    *pp_src = s;
    *p_dst_len -= int32_t(d - *pp_dst);
    *pp_dst = d;
    return status;
}

zemStatus flush(zemRLEState_BZ2* state, uint8_t** pp_dst, int32_t* p_dst_len) {
    RleFields f = load_fields(state);
    // The length is not checked; a negative one is no room at all.
    const int32_t room = *p_dst_len > 0 ? *p_dst_len : 0, n = f.count < room ? f.count : room;
    MemFill(uint8_t(f.byte), *pp_dst, n);
    *pp_dst += n;
    *p_dst_len -= n;
    f.count -= n;
    if (f.count > 0) {
        store_fields(state, f);
        return zemStatusDstTooSmall;
    }
    store_fields(state, {0, -1, 0});
    return zemStatusOk;
}

}  // namespace
}  // namespace zem::bz2

namespace bz2 = zem::bz2;

ZEM_API zemStatus zemsRLEGetSize_BZ2_8u(int32_t* pSize) {
    if (zem::any_null(pSize)) return zemStatusNullPtr;
    *pSize = bz2::kStateSize;
    return zemStatusOk;
}

ZEM_API zemStatus zemsEncodeRLEInit_BZ2_8u(zemRLEState_BZ2* pState) {
    if (zem::any_null(pState)) return zemStatusNullPtr;
    zem::MemZero(pState, 256);
    bz2::store_byte_count(pState, -1, 0);
    return zemStatusOk;
}

ZEM_API zemStatus zemsEncodeRLE_BZ2_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t* pDst, int32_t* pDstLen,
                                       zemRLEState_BZ2* pState) {
    if (zem::any_null(ppSrc, pDst, pSrcLen, pDstLen)) return zemStatusNullPtr;
    if (zem::any_null(*ppSrc, pState)) return zemStatusNullPtr;
    if (zem::bad_len(*pSrcLen) || zem::bad_len(*pDstLen)) return zemStatusSize;
    return bz2::encode(ppSrc, pSrcLen, pDst, pDstLen, pState);
}

ZEM_API zemStatus zemsEncodeRLEFlush_BZ2_8u(uint8_t* pDst, int32_t* pDstLen, zemRLEState_BZ2* pState) {
    if (zem::any_null(pDst, pDstLen, pState)) return zemStatusNullPtr;
    if (zem::bad_len(*pDstLen)) return zemStatusSize;
    const bz2::RleFields f = bz2::load_fields(pState);
    *pDstLen = 0;
    if (f.count >= bz2::kRunHeader) {
        const uint8_t c = uint8_t(f.count - bz2::kRunHeader);
        pDst[0] = c;
        bz2::bytes_of(pState)[c] = 1;
        bz2::store_byte_count(pState, f.byte, 0);
        *pDstLen = 1;
    }
    return zemStatusOk;
}

ZEM_API zemStatus zemsRLEGetInUseTable_8u(uint8_t* pInUse, const zemRLEState_BZ2* pState) {
    if (zem::any_null(pInUse, pState)) return zemStatusNullPtr;
    memmove(pInUse, bz2::bytes_of(pState), 256);
    return zemStatusOk;
}

ZEM_API zemStatus zemsDecodeRLEStateInit_BZ2_8u(zemRLEState_BZ2* pState) {
    if (zem::any_null(pState)) return zemStatusNullPtr;
    bz2::store_fields(pState, {0, -1, 0});
    return zemStatusOk;
}

ZEM_API zemStatus zemsDecodeRLEState_BZ2_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst,
                                            int32_t* pDstLen, zemRLEState_BZ2* pState) {
    if (zem::any_null(ppSrc, pSrcLen, ppDst, pDstLen)) return zemStatusNullPtr;
    if (zem::any_null(*ppSrc, *ppDst, pState)) return zemStatusNullPtr;
    if (zem::bad_len(*pSrcLen) || zem::bad_len(*pDstLen)) return zemStatusSize;
    return bz2::decode(ppSrc, pSrcLen, ppDst, pDstLen, pState);
}

ZEM_API zemStatus zemsDecodeRLEStateFlush_BZ2_8u(zemRLEState_BZ2* pState, uint8_t** ppDst, int32_t* pDstLen) {
    if (zem::any_null(pState, ppDst, pDstLen)) return zemStatusNullPtr;
    if (zem::any_null(*ppDst)) return zemStatusNullPtr;
    return bz2::flush(pState, ppDst, pDstLen);
}
