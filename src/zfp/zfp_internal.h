// Pieces shared by the zfp state operations, the block encoder and the block decoder: the state
// record's layout, the coefficient order, and the vector kernels of the transform.
//
// The record is caller memory of unknown alignment, so its 64-byte head is always copied in and
// out with memcpy; the two 256-byte scratch arrays behind it are only touched with unaligned
// vector stores and gathers.
#pragma once

#include <immintrin.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "core/bytes.h"
#include "core/check.h"
#include "zemdc.h"

namespace zem::zfp {

inline constexpr uint32_t kTag = 0x4B617398u;
inline constexpr int32_t kStateSize = 576;
inline constexpr int32_t kDefaultMaxBits = 4171;
inline constexpr int32_t kDefaultMaxPrec = 64;
// A coded block's header: one bit that says it is coded, and its biased 8-bit exponent.
inline constexpr int32_t kExponentBits = 8;
inline constexpr int32_t kHeaderBits = 1 + kExponentBits;
// Far below any float exponent: the precision is then bounded by maxPrec alone.
inline constexpr int32_t kNoMinExp = -10740;

// The head of the record. Pointers are kept as integers: a stream bound with a negative 64-bit
// length, or a skip that runs past the end, yields positions outside the buffer that are only
// ever compared, never dereferenced.
struct Head {
    uint32_t idTag;
    int32_t minBits;
    int32_t maxBits;
    int32_t maxPrec;
    int32_t minExp;
    int32_t bitCount;
    uint64_t bitBuffer;
    uintptr_t pCur;
    uintptr_t pStart;
    uintptr_t pEnd;
    uintptr_t pSafeEnd;
};
static_assert(sizeof(Head) == 64, "the record's head is 64 bytes");

// Scratch areas behind the head: one block in coding order, one in spatial order.
inline constexpr size_t kSeqOffset = 64;
inline constexpr size_t kXformOffset = 64 + 256;
static_assert(kXformOffset + 256 == (size_t)kStateSize, "the record is 576 bytes");

ZEM_INLINE Head load_head(const void* state) {
    Head h;
    memcpy(&h, state, sizeof h);
    return h;
}
ZEM_INLINE void store_head(void* state, const Head& h) { memcpy(state, &h, sizeof h); }
ZEM_INLINE bool tag_ok(const void* state) {
    uint32_t t;
    memcpy(&t, state, sizeof t);
    return t == kTag;
}
ZEM_INLINE int32_t* seq_scratch(void* state) { return (int32_t*)((uint8_t*)state + kSeqOffset); }
ZEM_INLINE int32_t* xform_scratch(void* state) { return (int32_t*)((uint8_t*)state + kXformOffset); }

// Bytes between two stream positions, signed: positions may lie on either side of the end.
ZEM_INLINE intptr_t room(uintptr_t cur, uintptr_t end) { return (intptr_t)(end - cur); }


// Shift that also accepts a count of 64.
ZEM_INLINE uint64_t shr64(uint64_t v, unsigned s) { return s < 64 ? v >> s : 0; }

// Coefficients ordered by total sequency: entry i is the spatial index x + 4y + 16z of the
// i-th coded coefficient.
inline constexpr uint8_t kOrder[64] = {
    0,  1,  4,  16, 20, 17, 5,  2,  8,  32, 21, 6,  18, 24, 9,  33, 36, 3,  12, 48, 22, 25,
    37, 40, 34, 10, 7,  19, 28, 13, 49, 52, 41, 38, 26, 23, 29, 53, 11, 35, 44, 14, 50, 56,
    42, 27, 39, 45, 30, 54, 57, 60, 51, 15, 43, 46, 58, 61, 55, 31, 62, 59, 47, 63};

// The bit planes are moved with byte-wise masks: the 64 coefficients sit in eight vectors laid
// out so that one in-lane 4x4 byte transpose and one 4x4 dword transpose per half turn them
// into byte planes in coding order. Vector q, lane l holds the coded coefficient below.
constexpr int coded_of(int q, int l) { return 32 * (q >> 2) + 4 * (q & 3) + (l < 4 ? l : 12 + l); }

struct Index64 {
    int32_t v[64];
};

// Encoder: vector q, lane l gathers its coefficient from the spatially ordered scratch.
constexpr Index64 make_encode_gather() {
    Index64 r{};
    for (int q = 0; q < 8; ++q)
        for (int l = 0; l < 8; ++l) r.v[8 * q + l] = kOrder[coded_of(q, l)];
    return r;
}
// Decoder: the planes become coefficients in a layout of their own (vector q, lane l holds
// coded coefficient 4q + (l & 3) + 32 (l >> 2)); spatial index s gathers from where it left
// coded coefficient order^-1(s).
constexpr int decoded_of(int q, int l) { return 4 * q + (l & 3) + 32 * (l >> 2); }
constexpr Index64 make_decode_gather() {
    Index64 pos{}, r{};
    for (int q = 0; q < 8; ++q)
        for (int l = 0; l < 8; ++l) pos.v[decoded_of(q, l)] = 8 * q + l;
    for (int i = 0; i < 64; ++i) r.v[kOrder[i]] = pos.v[i];
    return r;
}
inline constexpr Index64 kEncodeGather = make_encode_gather();
inline constexpr Index64 kDecodeGather = make_decode_gather();

// In-lane 4x4 transpose of 32-bit elements across four vectors (its own inverse).
ZEM_INLINE void transpose4(__m256i& a, __m256i& b, __m256i& c, __m256i& d) {
    __m256i t0 = _mm256_unpacklo_epi32(a, b), t1 = _mm256_unpackhi_epi32(a, b);
    __m256i t2 = _mm256_unpacklo_epi32(c, d), t3 = _mm256_unpackhi_epi32(c, d);
    a = _mm256_unpacklo_epi64(t0, t2);
    b = _mm256_unpackhi_epi64(t0, t2);
    c = _mm256_unpacklo_epi64(t1, t3);
    d = _mm256_unpackhi_epi64(t1, t3);
}

// In-lane 4x4 transpose of the bytes of four 32-bit elements (its own inverse).
ZEM_INLINE __m256i byte_transpose(__m256i v) {
    const __m256i idx = _mm256_setr_epi8(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15, 0, 4, 8, 12, 1, 5, 9,
                                         13, 2, 6, 10, 14, 3, 7, 11, 15);
    return _mm256_shuffle_epi8(v, idx);
}

// The lifting steps of the decorrelating transform, on four vectors of independent lanes.
ZEM_INLINE void fwd_lift(__m256i& x, __m256i& y, __m256i& z, __m256i& w) {
    x = _mm256_srai_epi32(_mm256_add_epi32(x, w), 1);
    w = _mm256_sub_epi32(w, x);
    z = _mm256_srai_epi32(_mm256_add_epi32(z, y), 1);
    y = _mm256_sub_epi32(y, z);
    x = _mm256_srai_epi32(_mm256_add_epi32(x, z), 1);
    z = _mm256_sub_epi32(z, x);
    w = _mm256_srai_epi32(_mm256_add_epi32(w, y), 1);
    y = _mm256_sub_epi32(y, w);
    w = _mm256_add_epi32(w, _mm256_srai_epi32(y, 1));
    y = _mm256_sub_epi32(y, _mm256_srai_epi32(w, 1));
}

// The steps b += d, d = 2d - b (and their like) come to the butterfly (b + d, d - b) in wrapping
// arithmetic, which needs no shift and no wait for the new b.
ZEM_INLINE void inv_lift(__m256i& x, __m256i& y, __m256i& z, __m256i& w) {
    y = _mm256_add_epi32(y, _mm256_srai_epi32(w, 1));
    w = _mm256_sub_epi32(w, _mm256_srai_epi32(y, 1));
    __m256i t = _mm256_add_epi32(y, w);
    w = _mm256_sub_epi32(w, y);
    y = t;
    t = _mm256_add_epi32(z, x);
    x = _mm256_sub_epi32(x, z);
    z = t;
    t = _mm256_add_epi32(y, z);
    z = _mm256_sub_epi32(z, y);
    y = t;
    t = _mm256_add_epi32(w, x);
    x = _mm256_sub_epi32(x, w);
    w = t;
}

// Negabinary mask: coefficients become unsigned with their magnitude in the high planes.
inline constexpr uint32_t kNbMask = 0xAAAAAAAAu;

}  // namespace zem::zfp
