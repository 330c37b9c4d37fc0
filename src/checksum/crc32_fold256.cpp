// Carry-less folding of CRC-32 and the bzip2 CRC with 256-bit products, for processors whose
// multiplier takes 256-bit operands (reached only when the core library reports it; the rest of
// the library is built for processors without it, hence the per-function target).
//
// A 256-bit accumulator is two of the 128-bit blocks of the narrower path side by side, the
// earlier in the low half; one instruction does the products of both, so every step folds twice
// the bytes for the same issue slots. Four accumulators 128 bytes apart cover the multiplier's
// latency; they merge into one, its halves into one 128-bit block, and the narrower path's
// reduction finishes. Loads are unaligned: the loop is bound by the multiplier (one 256-bit
// product a cycle), which leaves the load ports room for the split ones.
#include <immintrin.h>

#include "checksum/crc32.h"
#include "checksum/crc32_fold.h"

#define ZEM_WIDE __attribute__((target("avx2,pclmul,vpclmulqdq,sse4.2")))

namespace zem::crc {

namespace {

using namespace fold_detail;

constexpr size_t kLanes = 4;            // 256-bit accumulators in the main loop
constexpr size_t kStep = 32 * kLanes;   // bytes folded per step of the main loop
// From memory the loop outruns the hardware prefetcher; asking for the lines this far ahead
// keeps enough misses in flight (on the Silesia files, 1 KiB ahead reached 0.90-0.95x of a plain
// read, 4 KiB 1.0x).
constexpr size_t kAhead = 4096;
static_assert(kAhead % 64 == 0 && kStep % 64 == 0, "whole lines are asked for, one per 64 bytes");

// Constants for a folding distance of D bits, forced to compile time.
template <class V, unsigned D>
inline constexpr FoldPair kPair = V::pair(D);

ZEM_WIDE ZEM_INLINE __m256i pair2(FoldPair k) {
    return _mm256_set_epi64x((long long)k.hi, (long long)k.lo, (long long)k.hi, (long long)k.lo);
}

ZEM_WIDE ZEM_INLINE __m256i lanes2(__m256i acc, __m256i k) {
    return _mm256_xor_si256(_mm256_clmulepi64_epi128(acc, k, 0x00), _mm256_clmulepi64_epi128(acc, k, 0x11));
}

ZEM_WIDE ZEM_INLINE __m256i fold2(__m256i acc, __m256i k, __m256i next) { return _mm256_xor_si256(lanes2(acc, k), next); }

// Byte reversal within each 16-byte half: the halves stay in message order, as two blocks.
template <class V>
ZEM_WIDE ZEM_INLINE __m256i order2(__m256i v) {
    if constexpr (V::msb)
        return _mm256_shuffle_epi8(v, _mm256_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13,
                                                       12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0));
    return v;
}

ZEM_WIDE ZEM_INLINE __m256i load256(const uint8_t* p) { return _mm256_loadu_si256((const __m256i*)p); }

template <class V>
ZEM_WIDE ZEM_INLINE __m256i block2(const uint8_t* p) {
    return order2<V>(load256(p));
}

// The finished checksum to the register form the tables use, and back: the change is its own
// inverse.
template <class V>
ZEM_INLINE uint32_t other_form(uint32_t crc) {
    return V::msb ? bswap32(~crc) : ~crc;
}

// n >= 16 bytes folded to one 128-bit block, leaving fewer than 16 behind. The register r is
// XORed onto the first four data bytes, so the folding itself starts from zero, as in the
// narrower path.
template <class V>
ZEM_WIDE ZEM_INLINE __m128i fold_to_128(uint32_t r, const uint8_t*& p, size_t& n) {
    const __m128i k128 = pair(V::k128);
    __m128i x;
    if (n >= 32) {
        __m256i y0 = order2<V>(_mm256_xor_si256(load256(p), _mm256_setr_epi32((int)r, 0, 0, 0, 0, 0, 0, 0)));
        p += 32;
        n -= 32;
        if (n >= kStep - 32) {
            __m256i y1 = block2<V>(p), y2 = block2<V>(p + 32), y3 = block2<V>(p + 64);
            p += kStep - 32;
            n -= kStep - 32;
            const __m256i k = pair2(kPair<V, 8 * kStep>);
            for (; n >= kStep; n -= kStep, p += kStep) {
                _mm_prefetch((const char*)(p + kAhead), _MM_HINT_T0);
                _mm_prefetch((const char*)(p + kAhead + 64), _MM_HINT_T0);
                y0 = fold2(y0, k, block2<V>(p));
                y1 = fold2(y1, k, block2<V>(p + 32));
                y2 = fold2(y2, k, block2<V>(p + 64));
                y3 = fold2(y3, k, block2<V>(p + 96));
            }
            // Each accumulator carried to the last one's place at once: the products are
            // independent, and their sum is one XOR tree.
            y0 = _mm256_xor_si256(_mm256_xor_si256(lanes2(y0, pair2(kPair<V, 768>)), lanes2(y1, pair2(kPair<V, 512>))),
                                  fold2(y2, pair2(kPair<V, 256>), y3));
        }
        const __m256i k256 = pair2(V::k256);
        for (; n >= 32; n -= 32, p += 32) y0 = fold2(y0, k256, block2<V>(p));
        x = fold(_mm256_castsi256_si128(y0), k128, _mm256_extracti128_si256(y0, 1));
    } else {
        x = order<V>(_mm_xor_si128(_mm_loadu_si128((const __m128i*)p), _mm_cvtsi32_si128((int)r)));
        p += 16;
        n -= 16;
    }
    if (n >= 16) {
        x = fold(x, k128, block<V>(p));
        p += 16;
        n -= 16;
    }
    return x;
}

// Takes and returns the finished checksum, so that the exported kernels are a jump here.
template <class V>
ZEM_WIDE uint32_t wide_run(uint32_t crc, const uint8_t* p, size_t n) {
    const uint32_t r = other_form<V>(crc);
    if (n < 16) return other_form<V>(slice8_run(V::tables, r, p, n));
    const __m128i x = fold_to_128<V>(r, p, n);
    return other_form<V>(slice8_run(V::tables, barrett<V>(reduce64<V>(x)), p, n));
}

// CRC-32C: the CRC32 instruction is this polynomial's own reduction, so the folded block is
// finished by two of them from zero, and the tail by more.
struct Castagnoli {
    static constexpr bool msb = false;
    static constexpr FoldPair k256 = fold_pair_r(256, kPolyCrc32CR), k128 = fold_pair_r(128, kPolyCrc32CR);
    static constexpr FoldPair pair(unsigned d) { return fold_pair_r(d, kPolyCrc32CR); }
};

ZEM_WIDE uint32_t castagnoli_run(uint32_t reg, const uint8_t* p, size_t n) {
    if (n < 16) return crc32c_instr_run(reg, p, n);
    const __m128i x = fold_to_128<Castagnoli>(reg, p, n);
    const uint64_t c = _mm_crc32_u64(_mm_crc32_u64(0, (uint64_t)_mm_cvtsi128_si64(x)), (uint64_t)_mm_extract_epi64(x, 1));
    return crc32c_instr_run(c, p, n);
}

}  // namespace

uint32_t crc32_fold256(uint32_t crc, const uint8_t* p, size_t n) { return wide_run<Reflected>(crc, p, n); }

uint32_t bz2_fold256(uint32_t crc, const uint8_t* p, size_t n) { return wide_run<MsbFirst>(crc, p, n); }

uint32_t crc32c_fold256(uint32_t reg, const uint8_t* p, size_t n) { return castagnoli_run(reg, p, n); }

}  // namespace zem::crc
