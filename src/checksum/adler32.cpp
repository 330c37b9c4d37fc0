// Adler-32 (zlib's checksum, modulus 65521).
//
// The vector loop keeps the byte sums (A) and the position-weighted sums (B) in 32-bit lanes
// and reduces only once per chunk; a chunk stays within the 5552-byte bound of the checksum's
// definition, and the chunk's contribution is combined in 64 bits, so no lane or sum overflows
// even when the caller hands in unreduced halves.
#include "checksum/adler32.h"

#include <immintrin.h>

#include "core/check.h"

namespace zem::adler32 {

namespace {

constexpr uint32_t kMod = 65521;
// Bytes per reduction: a multiple of the 64-byte step within the 5552-byte bound.
constexpr size_t kChunk = 5504;

ZEM_INLINE uint64_t hsum_epi32(__m256i v) {
    __m128i x = _mm_add_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    x = _mm_add_epi32(x, _mm_shuffle_epi32(x, 0x4e));
    x = _mm_add_epi32(x, _mm_shuffle_epi32(x, 0xb1));
    return (uint32_t)_mm_cvtsi128_si32(x);
}

// Whole 64-byte blocks, n a multiple of 64 and at most kChunk. Each block is weighted 64..1:
// B gains 64 * (bytes of all earlier blocks) + the block's weighted sum, A the plain sum.
ZEM_INLINE void blocks64(const uint8_t* p, size_t n, uint64_t& a, uint64_t& b) {
    const __m256i zero = _mm256_setzero_si256();
    const __m256i ones = _mm256_set1_epi16(1);
    const __m256i w_hi = _mm256_setr_epi8(64, 63, 62, 61, 60, 59, 58, 57, 56, 55, 54, 53, 52, 51, 50, 49, 48, 47, 46,
                                          45, 44, 43, 42, 41, 40, 39, 38, 37, 36, 35, 34, 33);
    const __m256i w_lo = _mm256_setr_epi8(32, 31, 30, 29, 28, 27, 26, 25, 24, 23, 22, 21, 20, 19, 18, 17, 16, 15, 14,
                                          13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1);
    __m256i s1 = zero, prev = zero, s2a = zero, s2b = zero;
    for (size_t i = 0; i < n; i += 64) {
        __m256i x = _mm256_loadu_si256((const __m256i*)(p + i));
        __m256i y = _mm256_loadu_si256((const __m256i*)(p + i + 32));
        prev = _mm256_add_epi32(prev, s1);
        s1 = _mm256_add_epi32(s1, _mm256_add_epi32(_mm256_sad_epu8(x, zero), _mm256_sad_epu8(y, zero)));
        s2a = _mm256_add_epi32(s2a, _mm256_madd_epi16(_mm256_maddubs_epi16(x, w_hi), ones));
        s2b = _mm256_add_epi32(s2b, _mm256_madd_epi16(_mm256_maddubs_epi16(y, w_lo), ones));
    }
    b += a * n + 64 * hsum_epi32(prev) + hsum_epi32(_mm256_add_epi32(s2a, s2b));
    a += hsum_epi32(s1);
}

ZEM_INLINE void bytes(const uint8_t* p, size_t n, uint64_t& a, uint64_t& b) {
    for (; n >= 8; n -= 8, p += 8) {
        a += p[0]; b += a;
        a += p[1]; b += a;
        a += p[2]; b += a;
        a += p[3]; b += a;
        a += p[4]; b += a;
        a += p[5]; b += a;
        a += p[6]; b += a;
        a += p[7]; b += a;
    }
    for (; n; --n) {
        a += *p++;
        b += a;
    }
}

}  // namespace

uint32_t update(uint32_t adler, const uint8_t* p, size_t n) {
    uint64_t a = adler & 0xffff, b = adler >> 16;
    if (n >= 64) {
        // Start the blocks on a 32-byte boundary so that no load splits a cache line.
        size_t head = (32 - ((uintptr_t)p & 31)) & 31;
        bytes(p, head, a, b);
        p += head;
        n -= head;
        a %= kMod;
        b %= kMod;
        while (n >= 64) {
            size_t c = n & ~size_t(63);
            if (c > kChunk) c = kChunk;
            blocks64(p, c, a, b);
            p += c;
            n -= c;
            a %= kMod;
            b %= kMod;
        }
    }
    bytes(p, n, a, b);
    return (uint32_t)((b % kMod) << 16 | (a % kMod));
}

}  // namespace zem::adler32

ZEM_API zemStatus zemsAdler32_8u(const uint8_t* src, int32_t len, uint32_t* pChecksum) {
    if (pChecksum == nullptr) return zemStatusNullPtr;
    if (src == nullptr) {
        // A null source is the documented way to start a new checksum.
        *pChecksum = 1;
        return zemStatusOk;
    }
    *pChecksum = zem::adler32::update(*pChecksum, src, len > 0 ? (size_t)len : 0);
    return zemStatusOk;
}
