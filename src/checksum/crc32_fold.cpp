// Carry-less folding paths of CRC-32 and the bzip2 CRC.
//
// The data is taken as a run of 16-byte blocks. A block held in an accumulator is carried
// forward by d bits with two 64x64 carry-less products (one per lane, each against x^k mod P for
// the lane's distance) and XORed onto the block found there. Four accumulators 64 bytes apart
// keep several products in flight; they are then merged two by two and into one, and the last
// accumulator is reduced to a register that the byte tables finish.
//
// The bzip2 CRC runs most significant bit first: each block is byte-reversed, so the register
// reads as a plain polynomial and the same two-product step folds it, with the natural-order
// constants. Its register is kept byte-swapped, which makes its table steps those of a
// reflected CRC.
#include <immintrin.h>

#include "checksum/crc32.h"
#include "checksum/crc32_fold.h"

namespace zem::crc {

namespace {

using namespace fold_detail;

// Loading 16 bytes at kZeroPrefix + h keeps the last h bytes of a block and moves them to its
// end behind zero bytes (PSHUFB clears a lane whose index has the top bit set).
alignas(32) constexpr uint8_t kZeroPrefix[32] = {0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80,
                                                 0x80, 0x80, 0x80, 0x80, 0x80, 0,    1,    2,    3,    4,    5,
                                                 6,    7,    8,    9,    10,   11,   12,   13,   14,   15};

// The mixed loop: V::kGroups 64-byte groups folded with the 512-bit constant, kTable bytes run
// through the slicing tables, then the next group folded across them. kTable keeps the blocks
// 16-byte aligned (split loads cost more than the tables save).
constexpr size_t kTable = 16;
template <class V>
inline constexpr size_t kSpan = 64 * V::kGroups + kTable + 64;

// r is the register in the form the tables use (reflected, or byte-swapped most-significant-
// bit-first); it is XORed onto the first four data bytes, so the folding itself starts from zero.
template <class V>
uint32_t fold_run(uint32_t r, const uint8_t* p, size_t n) {
    // h head bytes up to the first 16-byte boundary (16 when already aligned): the first block is
    // those bytes behind zeros, which leave a zero register unchanged.
    const size_t h = 16 - ((uintptr_t)p & 15);
    if (n < 16 + h) return slice8_run(V::tables, r, p, n);

    __m128i first = _mm_xor_si128(_mm_loadu_si128((const __m128i*)p), _mm_cvtsi32_si128((int)r));
    __m128i x0 = order<V>(_mm_shuffle_epi8(first, _mm_loadu_si128((const __m128i*)(kZeroPrefix + h))));
    // With fewer than four head bytes, the rest of the register falls into the next block.
    const uint32_t spill = h < 4 ? r >> (8 * h) : 0;
    const uint8_t* q = p + h;
    size_t m = (n - h) >> 4;
    const size_t tail = (n - h) & 15;

    __m128i x1 = order<V>(_mm_xor_si128(_mm_load_si128((const __m128i*)q), _mm_cvtsi32_si128((int)spill)));
    q += 16;
    m -= 1;
    if (m >= 2) {
        __m128i x2 = block<V>(q), x3 = block<V>(q + 16);
        q += 32;
        m -= 2;
        const __m128i k512 = pair(V::k512);
        // The multiplier bounds this loop (two products per 16 bytes), so a share of the bytes
        // goes through the slicing tables in the meantime. Their register, from zero, is data
        // XORed onto the four bytes after them, as the caller's register is at the start; the
        // accumulators then fold straight across the table bytes. More table work than this
        // share slows the loop down: the two compete for issue slots, and the byte reversal of
        // the most-significant-bit-first blocks leaves less room still.
        const __m128i kjump = pair(V::pair(8 * (64 + kTable)));
        for (; m >= kSpan<V> / 16; m -= kSpan<V> / 16) {
            for (size_t g = 0; g < V::kGroups; ++g, q += 64) {
                x0 = fold(x0, k512, block<V>(q));
                x1 = fold(x1, k512, block<V>(q + 16));
                x2 = fold(x2, k512, block<V>(q + 32));
                x3 = fold(x3, k512, block<V>(q + 48));
            }
            const uint32_t t = step8(V::tables, step8(V::tables, 0, q), q + 8);
            q += kTable;
            x0 = fold(x0, kjump, _mm_xor_si128(block<V>(q), order<V>(_mm_cvtsi32_si128((int)t))));
            x1 = fold(x1, kjump, block<V>(q + 16));
            x2 = fold(x2, kjump, block<V>(q + 32));
            x3 = fold(x3, kjump, block<V>(q + 48));
            q += 64;
        }
        for (; m >= 4; m -= 4, q += 64) {
            x0 = fold(x0, k512, block<V>(q));
            x1 = fold(x1, k512, block<V>(q + 16));
            x2 = fold(x2, k512, block<V>(q + 32));
            x3 = fold(x3, k512, block<V>(q + 48));
        }
        const __m128i k256 = pair(V::k256);
        x0 = fold(x0, k256, x2);
        x1 = fold(x1, k256, x3);
    }
    const __m128i k256 = pair(V::k256);
    for (; m >= 2; m -= 2, q += 32) {
        x0 = fold(x0, k256, block<V>(q));
        x1 = fold(x1, k256, block<V>(q + 16));
    }
    const __m128i k128 = pair(V::k128);
    x0 = fold(x0, k128, x1);
    if (m) {
        x0 = fold(x0, k128, block<V>(q));
        q += 16;
    }
    return slice8_run(V::tables, reduce<V>(x0), q, tail);
}

}  // namespace

uint32_t crc32_fold(uint32_t crc, const uint8_t* p, size_t n) { return ~fold_run<Reflected>(~crc, p, n); }

uint32_t bz2_fold(uint32_t crc, const uint8_t* p, size_t n) {
    return bswap32(~fold_run<MsbFirst>(bswap32(~crc), p, n));
}

}  // namespace zem::crc
