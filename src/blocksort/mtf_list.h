// The move-to-front list step shared by the move-to-front decoder and the fused block decoder:
// take the entry at a position and move it to the front.
#pragma once

#include <immintrin.h>
#include <stdint.h>

#include "core/check.h"

namespace zem::bz2 {

// The list is kept in a buffer with this much slack behind its 256 entries, so that the
// 16-byte steps below may read and write past the last entry. (The 32-byte steps stay inside
// entries 0..pos.)
inline constexpr int kListSlack = 16;
inline constexpr int kListBytes = 256 + kListSlack;

// Returns list[pos] after moving it to the front. Most positions in a move-to-front coded block
// are small (runs of position 0 never get here), so the first 16 entries move with one shifted
// blend that also puts the taken entry in front, and are written back with one 16-byte store:
// a byte store there would stall the next call's 16-byte load (measured: a quarter of the block
// decoder's time). Deeper positions move in 32-byte blocks from the top down, and the first 32
// entries last, again with the taken entry blended in, so that the front is one store too.
ZEM_INLINE uint8_t mtf_take(uint8_t* list, uint32_t pos) {
    const uint8_t b = list[pos];
    if (ZEM_LIKELY(pos < 16)) {
        const __m128i v = _mm_loadu_si128((const __m128i*)list);
        const __m128i up = _mm_insert_epi8(_mm_slli_si128(v, 1), b, 0);  // entry j - 1 at j, b first
        const __m128i idx = _mm_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
        const __m128i moved = _mm_cmpgt_epi8(_mm_set1_epi8(char(pos + 1)), idx);  // j <= pos
        _mm_storeu_si128((__m128i*)list, _mm_blendv_epi8(v, up, moved));
        return b;
    }
    const __m256i lo = _mm256_loadu_si256((const __m256i*)list);
    // Each block is read before the block above it is written over, and entries 32 and up come
    // from blocks that start at or above 0; the front block, loaded first, covers entries 0..31.
    for (int32_t k = int32_t(pos) - 32; k >= 0; k -= 32)
        _mm256_storeu_si256((__m256i*)(list + 1 + k), _mm256_loadu_si256((const __m256i*)(list + k)));
    // lo shifted up by one byte across both lanes, b in front.
    const __m256i up = _mm256_insert_epi8(_mm256_alignr_epi8(lo, _mm256_permute2x128_si256(lo, lo, 0x08), 15), char(b), 0);
    const __m256i idx = _mm256_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21,
                                         22, 23, 24, 25, 26, 27, 28, 29, 30, 31);
    const __m256i moved = _mm256_cmpgt_epi8(_mm256_set1_epi8(char(pos < 32 ? pos + 1 : 32)), idx);  // j <= pos
    _mm256_storeu_si256((__m256i*)list, _mm256_blendv_epi8(lo, up, moved));
    return b;
}

}  // namespace zem::bz2
