// CRC-32C with the CRC32 instruction in three interleaved streams.
//
// One chain of CRC32 instructions is bound by their latency; three independent chains over three
// consecutive stretches keep the unit busy every cycle. The chains are then merged by carrying the
// first past the other two stretches and the second past the third, as if the zero bytes had been
// run through them: with carry-less multiplication by x^(8L - 33) mod P and one CRC32
// instruction, or, without it, with four table lookups per shifted register. Long inputs also
// keep the carry-less multiplier busy with a share of the bytes (see fused_blocks).
#include <immintrin.h>

#include "checksum/crc32.h"
#include "checksum/crc32_clmul.h"
#include "checksum/crc32_step.h"

namespace zem::crc {

namespace {

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

// The same over three full 1024-byte stretches, asking for the lines of the block after next:
// three interleaved streams inside each page defeat the hardware prefetcher, and on data that
// comes from memory the chains would otherwise wait for every line.
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


constexpr size_t kStream = 1024;
constexpr uint64_t kTwo1024 = merge_k(2 * kStream), kOne1024 = merge_k(kStream);

// ---- long inputs: the three streams beside carry-less folding ----
//
// The CRC32 instruction and the carry-less multiplier run on different units, so long inputs
// feed both at once: in each block, 512 bytes are folded by four 128-bit accumulators (as the
// CRC-32 folding path does, with this polynomial's constants) while the three chains run over
// the 3 x 320 bytes after them, five words each per folded group, which keeps both units busy.
// The chains' merged register, from zero, is data XORed onto the four bytes after their
// stretches, and the accumulators fold across the stretches onto the next block's first group.

constexpr size_t kFoldGroups = 8;                          // 64-byte groups folded per block
constexpr size_t kWords = 5;                               // words per chain per folded group
constexpr size_t kFusedStream = 8 * kWords * kFoldGroups;  // 320 bytes per chain
constexpr size_t kFusedBlock = 64 * kFoldGroups + 3 * kFusedStream + 64;
constexpr size_t kFusedMin = 4096;  // below this the final merge does not pay for itself

constexpr FoldPair k512C = fold_pair_r(512, kPolyCrc32CR);
constexpr FoldPair kJumpC = fold_pair_r(8 * (64 + 3 * kFusedStream), kPolyCrc32CR);
constexpr FoldPair k128C = fold_pair_r(128, kPolyCrc32CR), k256C = fold_pair_r(256, kPolyCrc32CR),
                   k384C = fold_pair_r(384, kPolyCrc32CR);
constexpr uint64_t kTwoFused = merge_k(2 * kFusedStream), kOneFused = merge_k(kFusedStream);

ZEM_INLINE __m128i load128(const uint8_t* p) { return _mm_loadu_si128((const __m128i*)p); }

// Whole blocks while at least one remains; p is 8-byte aligned and n >= kFusedMin. Returns the
// register after the bytes consumed.
ZEM_INLINE uint32_t fused_blocks(uint32_t reg, const uint8_t*& p, size_t& n) {
    __m128i x0 = _mm_xor_si128(load128(p), _mm_cvtsi32_si128((int)reg));
    __m128i x1 = load128(p + 16), x2 = load128(p + 32), x3 = load128(p + 48);
    const uint8_t* q = p + 64;
    size_t left = n - 64;
    const __m128i k512 = pair(k512C), kjump = pair(kJumpC);
    for (; left >= kFusedBlock; left -= kFusedBlock) {
        const uint8_t* s = q + 64 * kFoldGroups;
        // Four streams in a block defeat the hardware prefetcher as three do (see run3_block);
        // from memory, about 6 KiB ahead measured best.
        const uint8_t* ahead = q + 4 * kFusedBlock;
        uint64_t c0 = 0, c1 = 0, c2 = 0;
        for (size_t g = 0; g < kFoldGroups; ++g, q += 64, ahead += 256) {
            for (size_t i = 0; i < 256; i += 64) _mm_prefetch((const char*)(ahead + i), _MM_HINT_T0);
            x0 = fold(x0, k512, load128(q));
            x1 = fold(x1, k512, load128(q + 16));
            x2 = fold(x2, k512, load128(q + 32));
            x3 = fold(x3, k512, load128(q + 48));
            for (size_t w = 0; w < kWords; ++w, s += 8) {
                c0 = _mm_crc32_u64(c0, load64(s));
                c1 = _mm_crc32_u64(c1, load64(s + kFusedStream));
                c2 = _mm_crc32_u64(c2, load64(s + 2 * kFusedStream));
            }
        }
        q += 3 * kFusedStream;
        const uint64_t m = merge_clmul(c0, c1, c2, kTwoFused, kOneFused);
        x0 = fold(x0, kjump, _mm_xor_si128(load128(q), _mm_cvtsi64_si128((long long)m)));
        x1 = fold(x1, kjump, load128(q + 16));
        x2 = fold(x2, kjump, load128(q + 32));
        x3 = fold(x3, kjump, load128(q + 48));
        q += 64;
    }
    // The four accumulators onto the last, then its 16 bytes through the instruction from zero.
    const __m128i a = _mm_xor_si128(_mm_xor_si128(lanes(x0, pair(k384C)), lanes(x1, pair(k256C))),
                                    _mm_xor_si128(lanes(x2, pair(k128C)), x3));
    p = q;
    n = left;
    return (uint32_t)_mm_crc32_u64(_mm_crc32_u64(0, (uint64_t)_mm_cvtsi128_si64(a)), (uint64_t)_mm_extract_epi64(a, 1));
}

}  // namespace

uint32_t crc32c_streams_clmul(uint32_t reg, const uint8_t* p, size_t n) {
    if (n < 8) return bytes(reg, p, n);
    uint64_t c0 = head(reg, p, n);
    if (n >= kFusedMin) c0 = fused_blocks((uint32_t)c0, p, n);
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
    return crc32c_instr_run(c0, p, n);
}

uint32_t crc32c_streams_table(uint32_t reg, const uint8_t* p, size_t n) {
    if (n < 8) return bytes(reg, p, n);
    uint64_t c0 = head(reg, p, n);
    while (n >= 3 * 1024) block_table<1024>(c0, p, n, kShift2048, kShift1024);
    if (n >= 3 * 576) block_table<576>(c0, p, n, kShift1152, kShift576);
    if (n >= 3 * 288) block_table<288>(c0, p, n, kShift576, kShift288);
    if (n >= 3 * 144) block_table<144>(c0, p, n, kShift288, kShift144);
    if (n >= 3 * 72) block_table<72>(c0, p, n, kShift144, kShift72);
    return crc32c_instr_run(c0, p, n);
}

}  // namespace zem::crc
