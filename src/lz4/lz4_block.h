// What the LZ4 block encoders and decoders share: the block layout constants, the five-byte
// CRC-32C hash, forward match extension and the sequence writer.
//
// A block is a run of sequences: token (literal count high nibble, match length - 4 low
// nibble), literal-count extension bytes, literals, 2-byte little-endian offset, match-length
// extension bytes. The last sequence holds literals only.
#pragma once

#include <immintrin.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "core/bytes.h"
#include "core/check.h"
#include "core/mem.h"

namespace zem::lz4 {

// Size of every caller-allocated encoder hash table.
inline constexpr int32_t kHashTableBytes = 16384;
// Inputs of this length and more use 32-bit table entries; shorter ones 16-bit entries.
inline constexpr int32_t kWideTableInput = 65536;
inline constexpr uint32_t kMaxOffset = 65535;
inline constexpr size_t kMinMatch = 4;
// Matches end at least this many bytes before the input end: the last bytes are literals.
inline constexpr size_t kLastLiterals = 5;
// No position in the last 44 bytes of the input is probed for a match.
inline constexpr size_t kProbeMargin = 44;
// Nibble value that announces extension bytes.
inline constexpr size_t kRunMask = 15;
// The last match of a block starts at least this many bytes before its end.
inline constexpr size_t kLastMatchStart = 12;
// How far past the literals wild_literals may write: one 32-byte block less a byte.
inline constexpr size_t kWildOverrun = 31;

// The hash of the five bytes at p: CRC-32C of the 32-bit word at p, started from the fifth
// byte. One instruction of three cycles, and five bytes make fewer false candidates than the
// four that a match needs.
template <int Bits>
ZEM_INLINE uint32_t hash5(const uint8_t* p) {
    return _mm_crc32_u32(p[4], load32(p)) & ((1u << Bits) - 1);
}

// Number of equal bytes at a and b, a running at most up to a_limit. Both ranges are read only
// below their ends: the caller guarantees b + (a_limit - a) lies inside b's buffer.
ZEM_INLINE size_t extend_match(const uint8_t* a, const uint8_t* b, const uint8_t* a_limit) {
    const uint8_t* const start = a;
    // Most matches end within a word: a scalar compare answers sooner than a vector one.
    if (ZEM_LIKELY(a_limit - a >= 64)) {
        const uint64_t d = load64(a) ^ load64(b);
        if (d != 0) return (size_t)(_tzcnt_u64(d) >> 3);
    }
    while (a_limit - a >= 64) {
        __m256i x = _mm256_loadu_si256((const __m256i*)a);
        __m256i y = _mm256_loadu_si256((const __m256i*)b);
        uint32_t neq = ~(uint32_t)_mm256_movemask_epi8(_mm256_cmpeq_epi8(x, y));
        if (neq != 0) return size_t(a - start) + (size_t)_tzcnt_u32(neq);
        a += 32;
        b += 32;
    }
    while (a_limit - a >= 8) {
        uint64_t d = load64(a) ^ load64(b);
        if (d != 0) return size_t(a - start) + (size_t)(_tzcnt_u64(d) >> 3);
        a += 8;
        b += 8;
    }
    while (a < a_limit && *a == *b) {
        ++a;
        ++b;
    }
    return size_t(a - start);
}

// Extension bytes for a length part n >= 15: 255s, then the remainder.
ZEM_INLINE uint8_t* write_ext(uint8_t* op, size_t n) {
    n -= kRunMask;
    if (ZEM_UNLIKELY(n >= 255 * 16)) {
        size_t k = n / 255;
        MemFill(255, op, (int32_t)k);
        op += k;
        n -= k * 255;
    }
    while (n >= 255) {
        *op++ = 255;
        n -= 255;
    }
    *op++ = (uint8_t)n;
    return op;
}

// Number of extension bytes that a length part n needs.
ZEM_INLINE size_t ext_bytes(size_t n) { return n < kRunMask ? 0 : (n - kRunMask) / 255 + 1; }

// Copies n literal bytes exactly (never past op + n).
ZEM_INLINE void copy_literals(const uint8_t* s, uint8_t* d, size_t n) {
    if (ZEM_LIKELY(n <= 32767))
        mem::copy_small(s, d, n);
    else
        MemCopy(s, d, (int32_t)n);
}

// Copies n literal bytes in whole 16- or 32-byte blocks: up to 31 bytes past d + n are written.
// Long runs go to the memory kernels, exactly.
ZEM_INLINE void wild_literals(const uint8_t* s, uint8_t* d, size_t n) {
    if (n <= 16) {
        _mm_storeu_si128((__m128i*)d, _mm_loadu_si128((const __m128i*)s));
        return;
    }
    if (ZEM_UNLIKELY(n > 256)) {
        copy_literals(s, d, n);
        return;
    }
    for (size_t i = 0; i < n; i += 32)
        _mm256_storeu_si256((__m256i*)(d + i), _mm256_loadu_si256((const __m256i*)(s + i)));
}

// Writes one sequence: nlit literals at lit, then a match of mlen bytes at offset. With `wild`
// the literals are copied in whole blocks, which needs 32 bytes of room past them (the input
// must then also have 32 readable bytes past the literals, which a match always provides).
ZEM_INLINE uint8_t* write_sequence(uint8_t* op, const uint8_t* lit, size_t nlit, uint32_t offset, size_t mlen,
                                   bool wild) {
    uint8_t* token = op++;
    size_t ml = mlen - kMinMatch;
    uint8_t t = (uint8_t)(ml < kRunMask ? ml : kRunMask);
    if (nlit < kRunMask) {
        t |= (uint8_t)(nlit << 4);
    } else {
        t |= (uint8_t)(kRunMask << 4);
        op = write_ext(op, nlit);
    }
    *token = t;
    if (wild)
        wild_literals(lit, op, nlit);
    else
        copy_literals(lit, op, nlit);
    op += nlit;
    store16(op, (uint16_t)offset);
    op += 2;
    if (ml >= kRunMask) op = write_ext(op, ml);
    return op;
}

// Writes the closing literals-only sequence (n may be 0: a lone token 0).
ZEM_INLINE uint8_t* write_last_literals(uint8_t* op, const uint8_t* lit, size_t n) {
    if (n < kRunMask) {
        *op++ = (uint8_t)(n << 4);
    } else {
        *op++ = (uint8_t)(kRunMask << 4);
        op = write_ext(op, n);
    }
    copy_literals(lit, op, n);
    return op + n;
}

// The bounded encoders' estimate of a sequence's size before writing it. Both extension terms
// are (count - 15) / 255 + 1 in truncating arithmetic, so short counts still reserve a byte and
// the match term is taken on the full match length: a little more than needed, deliberately,
// which also leaves room for the closing token.
ZEM_INLINE size_t sequence_worst_size(size_t nlit, size_t mlen) {
    auto ext = [](size_t n) -> size_t { return n >= kRunMask ? (n - kRunMask) / 255 + 1 : 1; };
    return nlit + 3 + ext(nlit) + ext(mlen);
}

// How many of the in_left remaining input bytes a closing literal run can carry in out_left
// bytes of output (out_left >= 1): token, extension bytes and literals must all fit.
ZEM_INLINE size_t last_literals_that_fit(size_t in_left, size_t out_left) {
    size_t n = in_left < out_left - 1 ? in_left : out_left - 1;
    while (n > 0 && 1 + ext_bytes(n) + n > out_left) --n;
    return n;
}

// The worst-case block size of the unbounded encoders for an input of n bytes: every byte a
// literal, plus the extension bytes, the token, and slack for the wide literal copies.
ZEM_INLINE constexpr int64_t worst_block_size(int64_t n) { return n + n / 255 + 16; }

}  // namespace zem::lz4
