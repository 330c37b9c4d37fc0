// The fused block decoder: zero runs, move-to-front and the inverse transform in one pass over
// a block's symbols, the decoded bytes living only in the low 8 bits of the work entries.
#include <immintrin.h>

#include "blocksort/block_walk.h"
#include "blocksort/mtf_list.h"
#include "blocksort/symbols.h"
#include "core/bytes.h"
#include "core/check.h"

namespace zem::bz2 {
namespace {

// The successor index shares a 32-bit entry with the byte, so a block holds at most 2^24 - 1.
inline constexpr uint32_t kMaxBlock = 0xFFFFFF;
inline constexpr uint32_t kMaxDict = 256;

// The dictionary: in-use values in increasing order, read 16 entries at a time. Within a group,
// values are taken from its first entry that reads as a positive signed byte onwards; for tables
// of 0 and 1 that is every set entry.
uint32_t build_dictionary(const uint8_t* in_use, uint8_t* dict) {
    uint32_t n = 0;
    for (int g = 0; g < 256; g += 16) {
        const __m128i v = _mm_loadu_si128((const __m128i*)(in_use + g));
        const uint32_t positive = (uint32_t)_mm_movemask_epi8(_mm_cmpgt_epi8(v, _mm_setzero_si128()));
        if (!positive) continue;
        for (int j = __builtin_ctz(positive); j < 16; ++j)
            if (in_use[g + j]) dict[n++] = uint8_t(g + j);
    }
    return n;
}

// Stores r copies of the 32-bit entry v at e (unaligned), eight at a time.
ZEM_INLINE void fill_entries(uint8_t* e, uint32_t v, uint32_t r) {
    const __m256i w = _mm256_set1_epi32(int32_t(v));
    uint32_t i = 0;
    for (; i + 8 <= r; i += 8) _mm256_storeu_si256((__m256i*)(e + 4 * size_t(i)), w);
    for (; i < r; ++i) store32(e + 4 * size_t(i), v);
}

zemStatus decode(const uint16_t* src, int32_t src_len, uint8_t* dst, uint32_t* p_dst_len, uint32_t index,
                 uint32_t dict_size, const uint8_t* in_use, uint8_t* buf) {
    uint8_t dict[kMaxDict + 16];
    if (build_dictionary(in_use, dict) != dict_size) return zemStatusOk;  // deliberate: writes nothing
    // The list holds byte values directly (the dictionary applied once, up front), so a symbol
    // needs no second lookup; positions at or beyond the dictionary are refused before use.
    alignas(16) uint8_t list[kListBytes] = {};
    for (uint32_t i = 0; i < dict_size; ++i) list[i] = dict[i];
    uint32_t count[256] = {};

    const uint32_t cap = *p_dst_len;
    uint32_t n = 0;
    const uint16_t* s = src;
    const uint16_t* const se = src + src_len;
    while (s < se) {
        if (*s <= kRunB) {
            // A run: its length is checked against the room before anything is stored, and it
            // stops growing once past it, so no digit string overflows.
            const uint64_t room = cap - n;
            uint64_t r = 0;
            uint32_t shift = 0;
            while (s < se && *s <= kRunB) {
                r += uint64_t(*s++ + 1) << shift;
                if (r > room) break;
                ++shift;
            }
            if (r > room || dict_size == 0) {
                *p_dst_len = n;
                return zemStatusError;
            }
            const uint8_t b = list[0];
            fill_entries(buf + 4 * size_t(n), b, uint32_t(r));
            count[b] += uint32_t(r);
            n += uint32_t(r);
            continue;
        }
        const uint32_t pos = uint32_t(*s++) - 1u;
        if (pos >= dict_size || n >= cap) {
            *p_dst_len = n;
            return zemStatusError;
        }
        const uint8_t b = mtf_take(list, pos);
        store32(buf + 4 * size_t(n), b);
        ++count[b];
        ++n;
    }
    *p_dst_len = n;
    // The walk may only follow entries that the link step filled.
    if (index >= n) return zemStatusError;

    uint32_t start[256];
    uint32_t sum = 0;
    for (int b = 0; b < 256; ++b) {
        start[b] = sum;
        sum += count[b];
    }
    for (uint32_t i = 0; i < n; ++i) {
        const uint8_t* e = buf + 4 * size_t(i);
        const uint32_t row = start[e[0]]++;
        uint8_t* t = buf + 4 * size_t(row);
        store32(t, load32(t) | i << 8);
    }
    walk(FusedEntries{buf}, n, index, dst);
    return zemStatusOk;
}

}  // namespace
}  // namespace zem::bz2

ZEM_API zemStatus zemsDecodeBlockGetSize_BZ2_8u(uint32_t blockSize, uint32_t* pSize) {
    if (zem::any_null(pSize)) return zemStatusNullPtr;
    if (blockSize > zem::bz2::kMaxBlock) return zemStatusSize;
    *pSize = blockSize * 4;
    return zemStatusOk;
}

ZEM_API zemStatus zemsDecodeBlock_BZ2_16u8u(const uint16_t* pSrc, int32_t srcLen, uint8_t* pDst, uint32_t* pDstLen,
                                            int32_t index, uint32_t dictSize, const uint8_t* pInUse,
                                            uint8_t* pBuf) {
    if (zem::any_null(pSrc, pDst, pDstLen, pInUse)) return zemStatusNullPtr;
    if (zem::any_null(pBuf)) return zemStatusNullPtr;
    if (zem::bad_len(srcLen)) return zemStatusSize;
    if (*pDstLen > zem::bz2::kMaxBlock) return zemStatusSize;
    if (index < 0 || int64_t(index) >= int64_t(*pDstLen)) return zemStatusSize;
    if (dictSize > zem::bz2::kMaxDict) return zemStatusSize;
    return zem::bz2::decode(pSrc, srcLen, pDst, pDstLen, uint32_t(index), dictSize, pInUse, pBuf);
}
