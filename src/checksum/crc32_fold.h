// What the 128- and 256-bit folding paths of CRC-32 and the bzip2 CRC share: the two bit orders
// as trait structs, and the end of every fold, one 128-bit accumulator reduced to a register.
#pragma once

#include <immintrin.h>

#include "checksum/crc32_clmul.h"
#include "checksum/crc32_step.h"

namespace zem::crc::fold_detail {

// The folded register is congruent to the last accumulator, and the CRC register is that
// accumulator times x^32 mod P. Two products against x^k mod P take it from 128 to 64
// significant bits, each clearing the lane of highest powers; the eight bytes left are a plain
// table step from a zero register.
struct Reflected {
    static constexpr bool msb = false;
    static constexpr const SliceTables<8>& tables = kCrc32Tables;
    static constexpr FoldPair k512 = fold_pair_r(512), k256 = fold_pair_r(256), k128 = fold_pair_r(128);
    // x^63 mod P as a 64-bit reflected lane: the product lands one power high, i.e. times x^64.
    static constexpr uint64_t kReduce = fold_r64(63);
    static constexpr FoldPair pair(unsigned d) { return fold_pair_r(d); }
    static constexpr int kLane = 0x00;  // the low lane holds the highest powers
    static constexpr int kKeep = 0x3;   // blend mask that clears it
    static constexpr size_t kGroups = 1;  // folded groups per table run in the mixed loop
    static ZEM_INLINE uint64_t bytes(__m128i b) { return (uint64_t)_mm_extract_epi64(b, 1); }
};

struct MsbFirst {
    static constexpr bool msb = true;
    static constexpr const SliceTables<8>& tables = kBz2Tables;
    static constexpr FoldPair k512 = fold_pair_n(512), k256 = fold_pair_n(256), k128 = fold_pair_n(128);
    static constexpr uint64_t kReduce = fold_n(64);
    static constexpr FoldPair pair(unsigned d) { return fold_pair_n(d); }
    static constexpr int kLane = 0x01;
    static constexpr int kKeep = 0xc;
    static constexpr size_t kGroups = 3;
    // The polynomial's highest powers first, as the message bytes ran.
    static ZEM_INLINE uint64_t bytes(__m128i b) { return __builtin_bswap64((uint64_t)_mm_cvtsi128_si64(b)); }
};

// The accumulator as eight message bytes (the first in the low byte) whose register from zero
// is the folded register.
template <class V>
ZEM_INLINE uint64_t reduce64(__m128i a) {
    const __m128i k = _mm_set_epi64x(0, (long long)V::kReduce);
    __m128i b = _mm_xor_si128(_mm_clmulepi64_si128(a, k, V::kLane), _mm_blend_epi32(a, _mm_setzero_si128(), V::kKeep));
    b = _mm_xor_si128(_mm_clmulepi64_si128(b, k, V::kLane), b);
    return V::bytes(b);
}

template <class V>
ZEM_INLINE uint32_t reduce(__m128i a) {
    const uint64_t w = reduce64<V>(a);
    return step8_words(V::tables, 0, (uint32_t)w, (uint32_t)(w >> 32));
}

ZEM_INLINE uint64_t clmul64(uint64_t a, uint64_t b) {
    return (uint64_t)_mm_cvtsi128_si64(_mm_clmulepi64_si128(_mm_cvtsi64_si128((long long)a), _mm_cvtsi64_si128((long long)b), 0));
}

// The same eight bytes finished by Barrett reduction instead of the tables: three products and
// a few scalar operations, against eight table loads and their shifts. Where short calls are
// bound by instruction count rather than latency, this is the cheaper end. The message W is
// first folded to a 64-bit V = W * x^32 mod P (its first four bytes carried by x^64), then
// q = floor(V / P) = floor(floor(V / x^32) * floor(x^64 / P) / x^32), and V + q * P is the register.
template <class V>
ZEM_INLINE uint32_t barrett(uint64_t w) {
    if constexpr (V::msb) {
        constexpr uint64_t kX64 = fold_n(64), kMu = barrett_mu_n(kPolyCrc32), kP = (1ull << 32) | kPolyCrc32;
        const uint64_t u = __builtin_bswap64(w);  // natural: the first byte holds the highest powers
        const uint64_t v = clmul64(u >> 32, kX64) ^ (u << 32);
        const uint64_t q = clmul64(v >> 32, kMu) >> 32;
        return bswap32((uint32_t)(v ^ clmul64(q, kP)));
    } else {
        // Reflected: bit j is the coefficient of x^(63 - j), so the high powers are the low bits.
        constexpr uint64_t kX64 = fold_r(64), kMu = reflect33(barrett_mu_n(kPolyCrc32)),
                           kP = reflect33((1ull << 32) | kPolyCrc32);
        const uint64_t v = clmul64(w & 0xffffffffu, kX64) ^ (w >> 32);
        const uint64_t q = clmul64(v & 0xffffffffu, kMu) & 0xffffffffu;
        return (uint32_t)((v ^ clmul64(q, kP)) >> 32);
    }
}

template <class V>
ZEM_INLINE __m128i order(__m128i v) {
    if constexpr (V::msb) return _mm_shuffle_epi8(v, _mm_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0));
    return v;
}

template <class V>
ZEM_INLINE __m128i block(const uint8_t* p) {
    return order<V>(_mm_loadu_si128((const __m128i*)p));
}

}  // namespace zem::crc::fold_detail
