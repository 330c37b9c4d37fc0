// The move-to-front list step shared by the move-to-front decoder and the fused block decoder:
// take the entry at a position and move it to the front.
#pragma once

#include <immintrin.h>
#include <stdint.h>
#include <string.h>

#include "core/check.h"

namespace zem::bz2 {

// The list is kept in a buffer with this much slack behind its 256 entries, so that the
// 16-byte steps below may read and write past the last entry.
inline constexpr int kListSlack = 16;
inline constexpr int kListBytes = 256 + kListSlack;

// Returns list[pos] after moving it to the front. Most positions in a move-to-front coded block
// are small (runs of position 0 never get here), so the first 16 entries move with one shifted
// blend; deeper positions move with memmove.
ZEM_INLINE uint8_t mtf_take(uint8_t* list, uint32_t pos) {
    const uint8_t b = list[pos];
    if (ZEM_LIKELY(pos < 16)) {
        const __m128i v = _mm_loadu_si128((const __m128i*)list);
        const __m128i up = _mm_slli_si128(v, 1);  // entry j - 1 at j
        const __m128i idx = _mm_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
        const __m128i moved = _mm_cmpgt_epi8(_mm_set1_epi8(char(pos + 1)), idx);  // j <= pos
        _mm_storeu_si128((__m128i*)list, _mm_blendv_epi8(v, up, moved));
    } else {
        memmove(list + 1, list, pos);
    }
    list[0] = b;
    return b;
}

}  // namespace zem::bz2
