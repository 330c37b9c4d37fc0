// The zfp block encoder: one 4x4x4 block of floats to the embedded bit-plane code.
//
// Everything up to the bit planes runs on eight vectors of eight 32-bit lanes, and each plane is
// taken from all 64 coefficients at once with byte masks, so a block costs the same whatever its
// values. Only the final plane coder is scalar: it emits whole runs (a group test, its zeros and
// the closing one) in one field found with a bit scan, not bit by bit.
#include "core/mem.h"
#include "zfp/zfp_internal.h"

namespace zem::zfp {

namespace {

// Whole 64-bit words only, as the stream requires; a word that does not fit makes the block
// fail. Once failed, no later word is stored, so the words before the failure stay as written.
struct Writer {
    uint64_t acc;
    unsigned cnt;  // bits held in acc, 0..63
    uintptr_t p;
    uintptr_t end;
    bool fail;

    ZEM_INLINE void emit(uint64_t word) {
        if (ZEM_UNLIKELY(fail || room(p, end) < 8)) {
            fail = true;
            return;
        }
        store64((void*)p, word);
        p += 8;
    }

    // Appends the w low bits of v (1 <= w <= 64, nothing set above them).
    ZEM_INLINE void put(uint64_t v, unsigned w) {
        unsigned c = cnt;
        acc |= v << c;
        c += w;
        if (c >= 64) {
            emit(acc);
            c -= 64;
            acc = c ? v >> (64 - cnt) : 0;
        }
        cnt = c;
    }

    // Appends n zero bits; long runs become whole zero words.
    ZEM_NOINLINE void pad(uint64_t n) {
        uint64_t total = cnt + n;
        if (total < 64) {
            cnt = (unsigned)total;
            return;
        }
        emit(acc);
        acc = 0;
        total -= 64;
        uint64_t words = total >> 6;
        cnt = (unsigned)(total & 63);
        if (words == 0) return;
        intptr_t avail = fail ? 0 : room(p, end) / 8;
        if (avail < 0) avail = 0;
        uint64_t fit = words < (uint64_t)avail ? words : (uint64_t)avail;
        if (fit > 8)
            MemZero((void*)p, (int32_t)(fit * 8));
        else
            for (uint64_t i = 0; i < fit; ++i) store64((void*)(p + 8 * i), 0);
        p += 8 * fit;
        if (fit < words) fail = true;
    }
};

// Loads the block as eight row pairs: r[2y+g] = rows (y, z=g) and (y, z=g+2).
ZEM_INLINE void load_rows(const float* src, ptrdiff_t step, ptrdiff_t plane, __m256 r[8]) {
    const uint8_t* b = (const uint8_t*)src;
    for (int y = 0; y < 4; ++y)
        for (int g = 0; g < 2; ++g) {
            __m128 lo = _mm_loadu_ps((const float*)(b + g * plane + y * step));
            __m128 hi = _mm_loadu_ps((const float*)(b + (g + 2) * plane + y * step));
            r[2 * y + g] = _mm256_set_m128(hi, lo);
        }
}

// The largest magnitude's bit pattern: positive floats order like their patterns.
ZEM_INLINE uint32_t max_magnitude(const __m256 r[8]) {
    const __m256i abs = _mm256_set1_epi32(0x7fffffff);
    __m256i m = _mm256_and_si256(_mm256_castps_si256(r[0]), abs);
    for (int i = 1; i < 8; ++i) m = _mm256_max_epi32(m, _mm256_and_si256(_mm256_castps_si256(r[i]), abs));
    __m128i h = _mm_max_epi32(_mm256_castsi256_si128(m), _mm256_extracti128_si256(m, 1));
    h = _mm_max_epi32(h, _mm_shuffle_epi32(h, 0x4e));
    h = _mm_max_epi32(h, _mm_shuffle_epi32(h, 0xb1));
    return (uint32_t)_mm_cvtsi128_si32(h);
}

// Block-floating-point integers, transformed along x, y and z, stored in spatial order.
ZEM_INLINE void forward_transform(const __m256 r[8], int emax, int32_t* xf) {
    int field = 157 - emax < 254 ? 157 - emax : 254;  // 2^(30-emax), held at 2^127 for tiny blocks
    const __m256 scale = _mm256_castsi256_ps(_mm256_set1_epi32(field << 23));
    __m256i v[8];
    for (int i = 0; i < 8; ++i) v[i] = _mm256_cvttps_epi32(_mm256_mul_ps(r[i], scale));
    // Along x: rows become columns, lift, and back.
    for (int g = 0; g < 2; ++g) {
        transpose4(v[g], v[2 + g], v[4 + g], v[6 + g]);
        fwd_lift(v[g], v[2 + g], v[4 + g], v[6 + g]);
        transpose4(v[g], v[2 + g], v[4 + g], v[6 + g]);
    }
    // Along y: the row pairs of one y are already separate vectors.
    for (int g = 0; g < 2; ++g) fwd_lift(v[g], v[2 + g], v[4 + g], v[6 + g]);
    // Along z: regroup so that vector 2z+p holds rows y=2p, 2p+1 of plane z, which is spatial order.
    __m256i s[8];
    for (int z = 0; z < 2; ++z)
        for (int p = 0; p < 2; ++p) {
            s[2 * z + p] = _mm256_permute2x128_si256(v[4 * p + z], v[4 * p + 2 + z], 0x20);
            s[2 * z + 4 + p] = _mm256_permute2x128_si256(v[4 * p + z], v[4 * p + 2 + z], 0x31);
        }
    fwd_lift(s[0], s[2], s[4], s[6]);
    fwd_lift(s[1], s[3], s[5], s[7]);
    for (int q = 0; q < 8; ++q) _mm256_storeu_si256((__m256i*)(xf + 8 * q), s[q]);
}

// Reorders by sequency, converts to negabinary and extracts planes 31 down to kmin: bit i of
// plane[k] is bit k of coded coefficient i.
ZEM_INLINE void extract_planes(const int32_t* xf, int kmin, uint64_t plane[32]) {
    const __m256i nb = _mm256_set1_epi32((int)kNbMask);
    __m256i c[8];
    for (int q = 0; q < 8; ++q) {
        __m256i idx = _mm256_loadu_si256((const __m256i*)(kEncodeGather.v + 8 * q));
        __m256i g = _mm256_i32gather_epi32(xf, idx, 4);
        c[q] = byte_transpose(_mm256_xor_si256(_mm256_add_epi32(g, nb), nb));
    }
    transpose4(c[0], c[1], c[2], c[3]);  // c[j]: byte j of coefficients 0..31
    transpose4(c[4], c[5], c[6], c[7]);  // c[4+j]: byte j of coefficients 32..63
    for (int j = 3; j >= 0; --j) {
        __m256i lo = c[j], hi = c[4 + j];
        for (int b = 7; b >= 0; --b) {
            int k = 8 * j + b;
            if (k < kmin) return;
            plane[k] = (uint64_t)(uint32_t)_mm256_movemask_epi8(lo) |
                       (uint64_t)(uint32_t)_mm256_movemask_epi8(hi) << 32;
            lo = _mm256_add_epi8(lo, lo);
            hi = _mm256_add_epi8(hi, hi);
        }
    }
}

// The embedded code of planes 31..kmin under a budget of `bits`; returns the bits left.
ZEM_INLINE int64_t code_planes(Writer& w, const uint64_t plane[32], int kmin, int64_t bits) {
    int n = 0;  // coefficients known to be significant
    for (int k = 31; k >= kmin && bits > 0; --k) {
        uint64_t x = plane[k];
        int m = (int64_t)n < bits ? n : (int)bits;
        if (m) {
            w.put(_bzhi_u64(x, (unsigned)m), (unsigned)m);
            bits -= m;
            x = shr64(x, (unsigned)m);
        }
        while (n < 64 && bits > 0) {
            --bits;
            if (!x) {
                w.put(0, 1);
                break;
            }
            int tz = (int)_tzcnt_u64(x);
            int lim = (int64_t)(63 - n) < bits ? 63 - n : (int)bits;
            if (tz < lim) {
                // group test 1, tz zeros, the one that ends the run
                w.put(1 | (2ull << tz), (unsigned)tz + 2);
                bits -= tz + 1;
                x >>= tz + 1;
                n += tz + 1;
            } else {
                // the run reaches the last coefficient (whose one is implied) or the budget
                w.put(1, (unsigned)lim + 1);
                bits -= lim;
                x = (x >> lim) >> 1;
                n += lim + 1;
            }
        }
    }
    return bits;
}

zemStatus encode(const float* src, int32_t step, int32_t planeStep, void* state) {
    Head h = load_head(state);
    Writer w{h.bitBuffer, (unsigned)h.bitCount & 63, h.pCur, h.pEnd, false};

    __m256 r[8];
    load_rows(src, step, planeStep, r);
    uint32_t mx = max_magnitude(r);
    int emax = mx ? (int)(mx >> 23) - 126 : -127;
    int64_t p = (int64_t)emax - h.minExp + 8;
    if (p < 0) p = 0;
    int64_t prec = h.maxPrec < p ? h.maxPrec : p;

    if (prec == 0 || emax == -127) {
        w.pad(h.minBits >= 2 ? (uint64_t)h.minBits : 1);
    } else {
        w.put((2u * (unsigned)(emax + 127) + 1) & 511u, kHeaderBits);  // non-finite input must not spill
        int64_t budget = (int64_t)h.maxBits - kHeaderBits;
        int64_t bits = budget;
        int kmin = prec >= 32 ? 0 : (int)(32 - prec);  // above 31 for a negative precision: no plane
        if (bits > 0 && kmin <= 31) {
            int32_t* xf = xform_scratch(state);
            forward_transform(r, emax, xf);
            uint64_t plane[32];
            extract_planes(xf, kmin, plane);
            bits = code_planes(w, plane, kmin, bits);
        }
        int64_t used = budget - bits;
        int64_t pad = (int64_t)h.minBits - kHeaderBits - used;
        if (pad > 0) w.pad((uint64_t)pad);
    }

    h.bitBuffer = w.acc;
    h.bitCount = (int32_t)w.cnt;
    h.pCur = w.p;
    store_head(state, h);
    return w.fail ? zemStatusStreamEnd : zemStatusOk;
}

}  // namespace

}  // namespace zem::zfp

ZEM_API zemStatus zemsEncodeZfp444_32f(const float* pSrc, int32_t srcStep, int32_t srcPlaneStep, zemZfpState* pState) {
    if (zem::any_null(pSrc, pState)) return zemStatusNullPtr;
    if (!zem::zfp::tag_ok(pState)) return zemStatusContextMismatch;
    return zem::zfp::encode(pSrc, srcStep, srcPlaneStep, pState);
}
