// Constant tables of the CRC-32 family, all derived at compile time from the two polynomials.
//
// Two representations are used:
//  - reflected (CRC-32, CRC-32C): bit i of a 32-bit value is the coefficient of x^(31-i), so the
//    first message bit is the highest power and "multiply by x" is a right shift;
//  - natural (the bzip2 CRC): bit i is the coefficient of x^i, multiplying by x is a left shift.
//
// Every table is built from a handful of products by linearity (an entry for a byte is the XOR of
// the entries of its set bits), which keeps the compile-time work small enough for every
// compiler's constant-evaluation budget.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace zem::crc {

inline constexpr uint32_t kPolyCrc32 = 0x04C11DB7u;     // natural form
inline constexpr uint32_t kPolyCrc32R = 0xEDB88320u;    // reflected form
inline constexpr uint32_t kPolyCrc32CR = 0x82F63B78u;   // reflected form of 0x1EDC6F41

// ---- arithmetic modulo the generator -------------------------------------------------------

constexpr uint32_t mulx_r(uint32_t v, uint32_t poly_r) { return (v >> 1) ^ ((v & 1u) ? poly_r : 0u); }
constexpr uint32_t mulx_n(uint32_t v, uint32_t poly) { return (v << 1) ^ ((v >> 31) ? poly : 0u); }

// a * b mod P, both reflected (Horner over a's coefficients from the highest power down).
constexpr uint32_t mulmod_r(uint32_t a, uint32_t b, uint32_t poly_r) {
    uint32_t r = 0;
    for (int i = 0; i < 32; ++i) {
        r = mulx_r(r, poly_r);
        if ((a >> i) & 1u) r ^= b;
    }
    return r;
}

constexpr uint32_t mulmod_n(uint32_t a, uint32_t b, uint32_t poly) {
    uint32_t r = 0;
    for (int i = 31; i >= 0; --i) {
        r = mulx_n(r, poly);
        if ((a >> i) & 1u) r ^= b;
    }
    return r;
}

// x^n mod P by square and multiply.
constexpr uint32_t xpow_r(uint64_t n, uint32_t poly_r) {
    uint32_t result = 0x80000000u;  // 1
    uint32_t base = 0x40000000u;    // x
    for (; n; n >>= 1) {
        if (n & 1) result = mulmod_r(result, base, poly_r);
        base = mulmod_r(base, base, poly_r);
    }
    return result;
}

constexpr uint32_t xpow_n(uint64_t n, uint32_t poly) {
    uint32_t result = 1u;
    uint32_t base = 2u;
    for (; n; n >>= 1) {
        if (n & 1) result = mulmod_n(result, base, poly);
        base = mulmod_n(base, base, poly);
    }
    return result;
}

constexpr uint32_t bswap32(uint32_t v) {
    return (v >> 24) | ((v >> 8) & 0xff00u) | ((v << 8) & 0xff0000u) | (v << 24);
}

// ---- byte and slicing tables ---------------------------------------------------------------

// t[j][b]: the register contribution of byte b followed by j zero bytes, starting from zero.
template <int K>
struct SliceTables {
    uint32_t t[K][256];
};

template <int K>
constexpr SliceTables<K> make_reflected(uint32_t poly_r) {
    SliceTables<K> s{};
    for (uint32_t b = 0; b < 256; ++b) {
        uint32_t c = b;
        for (int k = 0; k < 8; ++k) c = mulx_r(c, poly_r);
        s.t[0][b] = c;
    }
    for (int j = 1; j < K; ++j)
        for (uint32_t b = 0; b < 256; ++b) s.t[j][b] = (s.t[j - 1][b] >> 8) ^ s.t[0][s.t[j - 1][b] & 0xff];
    return s;
}

// The most-significant-bit-first tables, with every entry byte-swapped: a register kept
// byte-swapped then advances with right shifts, exactly like a reflected one.
template <int K>
constexpr SliceTables<K> make_msb_swapped(uint32_t poly) {
    SliceTables<K> n{};
    for (uint32_t b = 0; b < 256; ++b) {
        uint32_t c = b << 24;
        for (int k = 0; k < 8; ++k) c = mulx_n(c, poly);
        n.t[0][b] = c;
    }
    for (int j = 1; j < K; ++j)
        for (uint32_t b = 0; b < 256; ++b) n.t[j][b] = (n.t[j - 1][b] << 8) ^ n.t[0][n.t[j - 1][b] >> 24];
    SliceTables<K> s{};
    for (int j = 0; j < K; ++j)
        for (int b = 0; b < 256; ++b) s.t[j][b] = bswap32(n.t[j][b]);
    return s;
}

inline constexpr SliceTables<8> kCrc32Tables = make_reflected<8>(kPolyCrc32R);
inline constexpr SliceTables<8> kBz2Tables = make_msb_swapped<8>(kPolyCrc32);
inline constexpr SliceTables<4> kCrc32CTables = make_reflected<4>(kPolyCrc32CR);

// ---- folding constants (carry-less multiplication) -----------------------------------------

// Reflected: x^n mod P reflected over 32 bits and shifted left by one, the form in which a
// 64x64 carry-less product of a reflected lane lands at the right power.
constexpr uint64_t fold_r(unsigned n, uint32_t poly_r = kPolyCrc32R) { return (uint64_t)xpow_r(n, poly_r) << 1; }
// Reflected: x^n mod P as a 64-bit reflected value (bit j is x^(63-j)); used by the reduction.
constexpr uint64_t fold_r64(unsigned n) { return (uint64_t)xpow_r(n, kPolyCrc32R) << 32; }
// Natural: x^n mod P as it is.
constexpr uint64_t fold_n(unsigned n) { return xpow_n(n, kPolyCrc32); }

// A pair of constants for one folding distance of d bits: the first applies to the low 64-bit
// lane of an accumulator, the second to the high one.
struct FoldPair {
    uint64_t lo, hi;
};

// Reflected lanes: the low lane holds the earlier (higher) powers.
constexpr FoldPair fold_pair_r(unsigned d, uint32_t poly_r = kPolyCrc32R) {
    return {fold_r(d + 32, poly_r), fold_r(d - 32, poly_r)};
}
// Natural lanes after a byte reversal: the high lane holds the earlier powers.
constexpr FoldPair fold_pair_n(unsigned d) { return {fold_n(d), fold_n(d + 64)}; }

static_assert(fold_r(544) == 0x154442BD4ull && fold_r(480) == 0x1C6E41596ull);
static_assert(fold_r(288) == 0xF1DA05AAull && fold_r(224) == 0x15A546366ull);
static_assert(fold_r(160) == 0x1751997D0ull && fold_r(96) == 0xCCAA009Eull);
static_assert(fold_r(64) == 0x163CD6124ull);

// Barrett reduction: floor(x^64 / P), natural, 33 bits (P = x^32 + poly).
constexpr uint64_t barrett_mu_n(uint32_t poly) {
    const unsigned __int128 p = ((unsigned __int128)1 << 32) | poly;
    unsigned __int128 r = (unsigned __int128)1 << 64;
    uint64_t q = 0;
    for (int d = 64; d >= 32; --d)
        if ((r >> d) & 1) {
            q |= 1ull << (d - 32);
            r ^= p << (d - 32);
        }
    return q;
}

// A 33-bit value with its bits in reverse order: the reflected form of a degree-32 polynomial.
constexpr uint64_t reflect33(uint64_t v) {
    uint64_t r = 0;
    for (int i = 0; i < 33; ++i) r |= ((v >> i) & 1) << (32 - i);
    return r;
}

static_assert(barrett_mu_n(kPolyCrc32) == 0x104D101DFull && reflect33(0x104D101DFull) == 0x1F7011641ull);
static_assert(reflect33(0x104C11DB7ull) == (((uint64_t)kPolyCrc32R << 1) | 1));

// ---- CRC-32C three-stream merging ----------------------------------------------------------

// Shifting a CRC32-instruction register v past `bytes` bytes: clmul(v, x^(8*bytes-33)) lands the
// product one power low and 32 bits high, and one CRC32 instruction over it reduces the rest.
constexpr uint64_t merge_k(uint64_t bytes) { return xpow_r(8 * bytes - 33, kPolyCrc32CR); }

// Pairs for three streams of n words each (n = 1..127): shift the first chain past 2n words and
// the second past n. Built incrementally, one multiplication per entry.
struct MergePairs {
    uint64_t k[128][2];
};

constexpr MergePairs make_merge_pairs() {
    MergePairs m{};
    const uint32_t x64 = xpow_r(64, kPolyCrc32CR);
    uint32_t one = xpow_r(64 - 33, kPolyCrc32CR);  // x^(64n - 33) for n = 1
    uint32_t two = xpow_r(128 - 33, kPolyCrc32CR); // x^(128n - 33) for n = 1
    const uint32_t x128 = mulmod_r(x64, x64, kPolyCrc32CR);
    for (int n = 1; n < 128; ++n) {
        m.k[n][0] = two;
        m.k[n][1] = one;
        one = mulmod_r(one, x64, kPolyCrc32CR);
        two = mulmod_r(two, x128, kPolyCrc32CR);
    }
    return m;
}

inline constexpr MergePairs kMergePairs = make_merge_pairs();
static_assert(kMergePairs.k[127][0] == merge_k(2 * 127 * 8) && kMergePairs.k[127][1] == merge_k(127 * 8));

// Shift tables for the processors without carry-less multiplication: t[k][b] is the register
// byte b at position k (bits 8k..8k+7) carried past `bytes` zero bytes.
struct ShiftTable {
    uint32_t t[4][256];
};

constexpr ShiftTable make_shift_table(uint64_t bytes) {
    ShiftTable s{};
    const uint32_t k = xpow_r(8 * bytes, kPolyCrc32CR);
    for (int pos = 0; pos < 4; ++pos) {
        uint32_t bit[8] = {};
        for (int i = 0; i < 8; ++i) bit[i] = mulmod_r(1u << (8 * pos + i), k, kPolyCrc32CR);
        s.t[pos][0] = 0;
        for (uint32_t b = 1; b < 256; ++b) {
            uint32_t low = b & (0u - b);
            s.t[pos][b] = s.t[pos][b ^ low] ^ bit[__builtin_ctz(low)];
        }
    }
    return s;
}

inline constexpr ShiftTable kShift72 = make_shift_table(72);
inline constexpr ShiftTable kShift144 = make_shift_table(144);
inline constexpr ShiftTable kShift288 = make_shift_table(288);
inline constexpr ShiftTable kShift576 = make_shift_table(576);
inline constexpr ShiftTable kShift1024 = make_shift_table(1024);
inline constexpr ShiftTable kShift1152 = make_shift_table(1152);
inline constexpr ShiftTable kShift2048 = make_shift_table(2048);

}  // namespace zem::crc
