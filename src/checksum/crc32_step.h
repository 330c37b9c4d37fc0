// Table steps shared by the slicing paths and by the heads and tails of the vector paths.
//
// The reflected registers (CRC-32, CRC-32C) and the byte-swapped register of the bzip2 CRC
// advance with the same right-shifting steps; only the tables differ.
#pragma once

#include <immintrin.h>
#include <stdint.h>

#include "checksum/crc32_tables.h"
#include "core/bytes.h"
#include "core/check.h"

namespace zem::crc {

template <int K>
ZEM_INLINE uint32_t step1(const SliceTables<K>& T, uint32_t r, uint8_t b) {
    return (r >> 8) ^ T.t[0][(r ^ b) & 0xff];
}

template <int K>
ZEM_INLINE uint32_t step4(const SliceTables<K>& T, uint32_t r, const uint8_t* p) {
    r ^= load32(p);
    return T.t[3][r & 0xff] ^ T.t[2][(r >> 8) & 0xff] ^ T.t[1][(r >> 16) & 0xff] ^ T.t[0][r >> 24];
}

// Eight bytes given as two little-endian words, lo holding the first four.
ZEM_INLINE uint32_t step8_words(const SliceTables<8>& T, uint32_t r, uint32_t lo, uint32_t hi) {
    lo ^= r;
    return T.t[7][lo & 0xff] ^ T.t[6][(lo >> 8) & 0xff] ^ T.t[5][(lo >> 16) & 0xff] ^ T.t[4][lo >> 24] ^
           T.t[3][hi & 0xff] ^ T.t[2][(hi >> 8) & 0xff] ^ T.t[1][(hi >> 16) & 0xff] ^ T.t[0][hi >> 24];
}

ZEM_INLINE uint32_t step8(const SliceTables<8>& T, uint32_t r, const uint8_t* p) {
    return step8_words(T, r, load32(p), load32(p + 4));
}

// Any number of bytes, eight at a time where it can: the tails of the vector paths.
ZEM_INLINE uint32_t slice8_run(const SliceTables<8>& T, uint32_t r, const uint8_t* p, size_t n) {
    for (; n >= 8; n -= 8, p += 8) r = step8(T, r, p);
    for (; n; --n) r = step1(T, r, *p++);
    return r;
}

// CRC-32C with the CRC32 instruction, one chain: eight bytes at a time, then by the low bits
// of the count. The tails of the CRC-32C paths.
ZEM_INLINE uint32_t crc32c_instr_run(uint64_t c, const uint8_t* p, size_t n) {
    for (; n >= 8; n -= 8, p += 8) c = _mm_crc32_u64(c, load64(p));
    uint32_t r = (uint32_t)c;
    if (n & 4) {
        r = _mm_crc32_u32(r, load32(p));
        p += 4;
    }
    if (n & 2) {
        r = _mm_crc32_u16(r, load16(p));
        p += 2;
    }
    if (n & 1) r = _mm_crc32_u8(r, *p);
    return r;
}

}  // namespace zem::crc
