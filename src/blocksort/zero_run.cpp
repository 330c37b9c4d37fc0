// Zero-run coding of move-to-front positions into 16-bit block symbols and back, and the
// dictionary reduction that renumbers a block's byte values densely before move-to-front.
#include <string.h>

#include "blocksort/symbols.h"
#include "core/check.h"
#include "core/mem.h"

namespace zem::bz2 {
namespace {

// Digits of the bijective base-2 form of a run of z zeros: floor(log2(z + 1)).
ZEM_INLINE int32_t run_digits(uint32_t z) { return 31 - __builtin_clz(z + 1); }

// The longest run that k digits can hold: 2 + 4 + ... + 2^k.
ZEM_INLINE uint32_t longest_run(int32_t k) { return k >= 31 ? 0xFFFFFFFEu : (2u << k) - 2; }

ZEM_INLINE uint16_t* put_run(uint16_t* d, uint32_t z, uint32_t* freq) {
    while (z > 0) {
        const uint16_t digit = uint16_t((z - 1) & 1);
        *d++ = digit;
        ++freq[digit];
        z = (z - 1) >> 1;
    }
    return d;
}

zemStatus encode(const uint8_t** pp_src, int32_t* p_src_len, uint16_t* dst, int32_t* p_dst_len, uint32_t* freq) {
    const uint8_t* s = *pp_src;
    const uint8_t* const se = s + *p_src_len;
    uint16_t* d = dst;
    uint16_t* const de = dst + *p_dst_len;
    for (;;) {
        const uint8_t* run_start = s;
        while (s < se && *s == 0) ++s;
        uint32_t z = uint32_t(s - run_start);
        if (z > 0) {
            // A run is coded only as far as the places left hold; the rest of it stays unconsumed
            // (no run is carried to the next call, so its zeros start a run of their own there).
            const int32_t room = int32_t(de - d);
            if (run_digits(z) > room) {
                z = longest_run(room);
                s = run_start + z;
            }
            d = put_run(d, z, freq);
        }
        if (s == se || d == de) break;
        const uint16_t sym = uint16_t(*s++ + 1);
        *d++ = sym;
        ++freq[sym];
    }
    *p_src_len -= int32_t(s - *pp_src);
    *pp_src = s;
    *p_dst_len = int32_t(d - dst);
    return s < se ? zemStatusDstTooSmall : zemStatusOk;
}

zemStatus decode(const uint16_t** pp_src, int32_t* p_src_len, uint8_t* dst, int32_t* p_dst_len) {
    const uint16_t* s = *pp_src;
    const uint16_t* const se = s + *p_src_len;
    uint8_t* d = dst;
    uint8_t* const de = dst + *p_dst_len;
    while (s < se && d < de) {
        if (*s >= kRunB + 1) {
            *d++ = uint8_t(*s++ - 1);
            continue;
        }
        // A run: its length is summed in 64 bits and stops growing past the room left, so that
        // no digit string, however long, overflows; one that does not fit is not consumed.
        const uint16_t* t = s;
        const uint64_t room = uint64_t(de - d);
        uint64_t z = 0;
        int shift = 0;
        while (t < se && *t <= kRunB) {
            if (z <= room) z += uint64_t(*t + 1) << shift;
            shift = shift < 40 ? shift + 1 : shift;
            ++t;
        }
        if (z > room) break;
        MemZero(d, int32_t(z));
        d += z;
        s = t;
    }
    *p_src_len -= int32_t(s - *pp_src);
    *pp_src = s;
    *p_dst_len = int32_t(d - dst);
    return s < se ? zemStatusDstTooSmall : zemStatusOk;
}

// map[v] = number of values in use below v; returns the number in use.
uint32_t reduction_map(const uint8_t* in_use, uint8_t* map) {
    uint32_t n = 0;
    for (int v = 0; v < 256; ++v) {
        map[v] = uint8_t(n);
        n += in_use[v];
    }
    return n;
}

// Rewrites every byte through a 256-entry map, eight bytes a step.
void remap(uint8_t* p, int32_t len, const uint8_t* map) {
    int32_t i = 0;
    for (; i + 8 <= len; i += 8) {
        uint8_t t[8];
        for (int k = 0; k < 8; ++k) t[k] = map[p[i + k]];
        memcpy(p + i, t, 8);
    }
    for (; i < len; ++i) p[i] = map[p[i]];
}

}  // namespace
}  // namespace zem::bz2

namespace bz2 = zem::bz2;

ZEM_API zemStatus zemsEncodeZ1Z2_BZ2_8u16u(const uint8_t** ppSrc, int32_t* pSrcLen, uint16_t* pDst, int32_t* pDstLen,
                                           uint32_t* pFreq) {
    if (zem::any_null(ppSrc, pDst, pSrcLen, pDstLen)) return zemStatusNullPtr;
    if (zem::any_null(*ppSrc, pFreq)) return zemStatusNullPtr;
    if (zem::bad_len(*pSrcLen) || zem::bad_len(*pDstLen)) return zemStatusSize;
    return bz2::encode(ppSrc, pSrcLen, pDst, pDstLen, pFreq);
}

ZEM_API zemStatus zemsDecodeZ1Z2_BZ2_16u8u(const uint16_t** ppSrc, int32_t* pSrcLen, uint8_t* pDst, int32_t* pDstLen) {
    if (zem::any_null(ppSrc, pSrcLen, pDst, pDstLen)) return zemStatusNullPtr;
    if (zem::any_null(*ppSrc)) return zemStatusNullPtr;
    if (zem::bad_len(*pSrcLen) || zem::bad_len(*pDstLen)) return zemStatusSize;
    return bz2::decode(ppSrc, pSrcLen, pDst, pDstLen);
}

ZEM_API zemStatus zemsReduceDictionary_8u_I(const uint8_t* pInUse, uint8_t* pSrcDst, int32_t len,
                                            uint32_t* pSizeDictionary) {
    if (zem::any_null(pInUse, pSrcDst, pSizeDictionary)) return zemStatusNullPtr;
    if (zem::bad_len(len)) return zemStatusSize;
    uint8_t map[256];
    *pSizeDictionary = bz2::reduction_map(pInUse, map);
    bz2::remap(pSrcDst, len, map);
    return zemStatusOk;
}

ZEM_API zemStatus zemsExpandDictionary_8u_I(const uint8_t* pInUse, uint8_t* pSrcDst, int32_t len,
                                            int32_t sizeDictionary) {
    if (zem::any_null(pInUse, pSrcDst)) return zemStatusNullPtr;
    if (zem::bad_len(len) || zem::bad_len(sizeDictionary)) return zemStatusSize;
    uint8_t map[256], inverse[256];
    const uint32_t n = bz2::reduction_map(pInUse, map);
    if (n != uint32_t(sizeDictionary)) return zemStatusError;
    // A value not in use shares its slot with the next one that is, which overwrites it; slots
    // past the dictionary keep whatever the last writer left (the fill makes that defined).
    memset(inverse, 0, sizeof inverse);
    for (int v = 0; v < 256; ++v) inverse[map[v]] = uint8_t(v);
    bz2::remap(pSrcDst, len, inverse);
    return zemStatusOk;
}
