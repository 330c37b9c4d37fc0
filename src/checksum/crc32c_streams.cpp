// CRC-32C with the CRC32 instruction in three interleaved streams.
//
// One chain of CRC32 instructions is bound by their latency; three independent chains over three
// consecutive stretches keep the unit busy every cycle. The chains are then merged by carrying the
// first past the other two stretches and the second past the third, as if the zero bytes had been
// run through them: with carry-less multiplication by x^(8L - 33) mod P and one CRC32
// instruction, or, without it, with four table lookups per shifted register.
#include <immintrin.h>

#include "checksum/crc32.h"
#include "checksum/crc32_step.h"

namespace zem::crc {

namespace {

ZEM_INLINE uint64_t load64(const uint8_t* p) {
    uint64_t v;
    memcpy(&v, p, 8);
    return v;
}

// Three chains over three stretches of `words` 8-byte words each; c0 carries the running
// register, the others start from zero.
ZEM_INLINE void run3(uint64_t& c0, uint64_t& c1, uint64_t& c2, const uint8_t* p, size_t words) {
    const uint8_t* p1 = p + 8 * words;
    const uint8_t* p2 = p1 + 8 * words;
    size_t i = 0;
    for (; i + 2 <= words; i += 2) {
        c0 = _mm_crc32_u64(c0, load64(p + 8 * i));
        c1 = _mm_crc32_u64(c1, load64(p1 + 8 * i));
        c2 = _mm_crc32_u64(c2, load64(p2 + 8 * i));
        c0 = _mm_crc32_u64(c0, load64(p + 8 * i + 8));
        c1 = _mm_crc32_u64(c1, load64(p1 + 8 * i + 8));
        c2 = _mm_crc32_u64(c2, load64(p2 + 8 * i + 8));
    }
    if (i < words) {
        c0 = _mm_crc32_u64(c0, load64(p + 8 * i));
        c1 = _mm_crc32_u64(c1, load64(p1 + 8 * i));
        c2 = _mm_crc32_u64(c2, load64(p2 + 8 * i));
    }
}

// The same over three full 1024-byte stretches, asking for the lines of the block after next: three interleaved streams inside each page defeat the hardware prefetcher, and on data
// that comes from memory the chains would otherwise wait for every line.
ZEM_INLINE void run3_block(uint64_t& c0, uint64_t& c1, uint64_t& c2, const uint8_t* p) {
    constexpr size_t kAhead = 2 * 3 * 1024;
    for (size_t i = 0; i < 1024; i += 64) {
        _mm_prefetch((const char*)(p + kAhead + i), _MM_HINT_T0);
        _mm_prefetch((const char*)(p + kAhead + 1024 + i), _MM_HINT_T0);
        _mm_prefetch((const char*)(p + kAhead + 2048 + i), _MM_HINT_T0);
        for (size_t j = i; j < i + 64; j += 8) {
            c0 = _mm_crc32_u64(c0, load64(p + j));
            c1 = _mm_crc32_u64(c1, load64(p + 1024 + j));
            c2 = _mm_crc32_u64(c2, load64(p + 2048 + j));
        }
    }
}

// c0 * x^(8*2L) + c1 * x^(8*L) + c2 with the pair {x^(16L*8-33), x^(8L*8-33)}: both products
// are summed before the one reduction, which is linear.
ZEM_INLINE uint64_t merge_clmul(uint64_t c0, uint64_t c1, uint64_t c2, uint64_t k_two, uint64_t k_one) {
    const __m128i c = _mm_set_epi64x((long long)c1, (long long)c0);
    const __m128i k = _mm_set_epi64x((long long)k_one, (long long)k_two);
    const __m128i s = _mm_xor_si128(_mm_clmulepi64_si128(c, k, 0x00), _mm_clmulepi64_si128(c, k, 0x11));
    return _mm_crc32_u64(0, (uint64_t)_mm_cvtsi128_si64(s)) ^ c2;
}

ZEM_INLINE uint32_t shift(const ShiftTable& T, uint64_t v) {
    return T.t[0][v & 0xff] ^ T.t[1][(v >> 8) & 0xff] ^ T.t[2][(v >> 16) & 0xff] ^ T.t[3][(v >> 24) & 0xff];
}

template <size_t Bytes>
ZEM_INLINE void block_table(uint64_t& c0, const uint8_t*& p, size_t& n, const ShiftTable& two, const ShiftTable& one) {
    uint64_t c1 = 0, c2 = 0;
    if constexpr (Bytes == 1024)
        run3_block(c0, c1, c2, p);
    else
        run3(c0, c1, c2, p, Bytes / 8);
    c0 = shift(two, c0) ^ shift(one, c1) ^ c2;
    p += 3 * Bytes;
    n -= 3 * Bytes;
}

// Fewer than eight bytes in total: a byte instruction each.
ZEM_INLINE uint32_t bytes(uint32_t r, const uint8_t* p, size_t n) {
    for (; n; --n) r = _mm_crc32_u8(r, *p++);
    return r;
}

// The head up to an 8-byte boundary, so that every word load of the streams is aligned.
ZEM_INLINE uint32_t head(uint32_t r, const uint8_t*& p, size_t& n) {
    for (; (uintptr_t)p & 7; --n) r = _mm_crc32_u8(r, *p++);
    return r;
}

// The last bytes: eight at a time, then by the low bits of the count.
ZEM_INLINE uint32_t tail(uint64_t c, const uint8_t* p, size_t n) {
    for (; n >= 8; n -= 8, p += 8) c = _mm_crc32_u64(c, load64(p));
    uint32_t r = (uint32_t)c;
    if (n & 4) {
        r = _mm_crc32_u32(r, load32(p));
        p += 4;
    }
    if (n & 2) {
        uint16_t h;
        memcpy(&h, p, 2);
        r = _mm_crc32_u16(r, h);
        p += 2;
    }
    if (n & 1) r = _mm_crc32_u8(r, *p);
    return r;
}

constexpr size_t kStream = 1024;
constexpr uint64_t kTwo1024 = merge_k(2 * kStream), kOne1024 = merge_k(kStream);

}  // namespace

uint32_t crc32c_streams_clmul(uint32_t reg, const uint8_t* p, size_t n) {
    if (n < 8) return bytes(reg, p, n);
    uint64_t c0 = head(reg, p, n);
    for (; n >= 3 * kStream; n -= 3 * kStream, p += 3 * kStream) {
        uint64_t c1 = 0, c2 = 0;
        run3_block(c0, c1, c2, p);
        c0 = merge_clmul(c0, c1, c2, kTwo1024, kOne1024);
    }
    // The rest in three equal runs of whole words: n / 24, by a multiplication that is exact for
    // every n below 3072.
    const size_t words = (n * 0xAAB) >> 16;
    if (words) {
        uint64_t c1 = 0, c2 = 0;
        run3(c0, c1, c2, p, words);
        c0 = merge_clmul(c0, c1, c2, kMergePairs.k[words][0], kMergePairs.k[words][1]);
        p += 24 * words;
        n -= 24 * words;
    }
    return tail(c0, p, n);
}

uint32_t crc32c_streams_table(uint32_t reg, const uint8_t* p, size_t n) {
    if (n < 8) return bytes(reg, p, n);
    uint64_t c0 = head(reg, p, n);
    while (n >= 3 * 1024) block_table<1024>(c0, p, n, kShift2048, kShift1024);
    if (n >= 3 * 576) block_table<576>(c0, p, n, kShift1152, kShift576);
    if (n >= 3 * 288) block_table<288>(c0, p, n, kShift576, kShift288);
    if (n >= 3 * 144) block_table<144>(c0, p, n, kShift288, kShift144);
    if (n >= 3 * 72) block_table<72>(c0, p, n, kShift144, kShift72);
    return tail(c0, p, n);
}

}  // namespace zem::crc
