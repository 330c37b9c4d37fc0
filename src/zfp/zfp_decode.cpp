// The zfp block decoder: the embedded bit-plane code of one block back to 4x4x4 floats.
//
// Bits are fetched lazily, a whole word at a time while eight bytes remain and single bytes in
// the last few, so that the record after each block (position, pending bits) is exactly that of
// a bit-at-a-time reader and the size queries report the bytes really fetched. The plane coder
// consumes runs with one bit scan each; the planes then become coefficients with byte masks on
// all 64 lanes at once, and the inverse transform runs on eight vectors.
#include "zfp/zfp_internal.h"

namespace zem::zfp {

namespace {

struct Reader {
    uint64_t acc;  // bits above cnt are not part of the stream
    unsigned cnt;
    uintptr_t p;
    uintptr_t end;
    bool fail;

    // Called only with cnt == 0. Past the end the reader fails once and then serves zero bits
    // without moving, so the loops run out normally and the position stays where it failed.
    ZEM_INLINE void refill() {
        intptr_t left = room(p, end);
        if (ZEM_LIKELY(left >= 8)) {
            acc = load_le64(p);
            p += 8;
            cnt = 64;
        } else if (left > 0) {
            acc = *(const uint8_t*)p;
            p += 1;
            cnt = 8;
        } else {
            fail = true;
            acc = 0;
            cnt = 64;
        }
    }

    ZEM_INLINE void drop(unsigned n) {  // n <= cnt
        acc = shr64(acc, n);
        cnt -= n;
    }

    ZEM_INLINE unsigned bit() {
        if (ZEM_UNLIKELY(cnt == 0)) refill();
        unsigned b = (unsigned)acc & 1;
        acc >>= 1;
        cnt -= 1;
        return b;
    }

    ZEM_NOINLINE uint64_t read_split(unsigned m) {
        uint64_t v = _bzhi_u64(acc, cnt);
        unsigned got = cnt;
        cnt = 0;
        while (got < m) {
            refill();
            unsigned take = m - got < cnt ? m - got : cnt;
            v |= _bzhi_u64(acc, take) << got;
            drop(take);
            got += take;
        }
        return v;
    }

    // m <= 64 bits, least significant first.
    ZEM_INLINE uint64_t read(unsigned m) {
        if (ZEM_LIKELY(m <= cnt)) {
            uint64_t v = _bzhi_u64(acc, m);
            drop(m);
            return v;
        }
        return read_split(m);
    }

    // Passes over s > 0 bits of padding. Whole words in between are not fetched; an end that
    // falls within the last eight bytes is read byte-wise into a buffer that keeps its leading
    // bits, exactly as streams have always been read there.
    bool skip(uint64_t s) {
        if (cnt >= s) {
            drop((unsigned)s);
            return true;
        }
        uint64_t r = s - cnt;
        p += 8 * (r >> 6);
        acc = 0;
        cnt = 0;
        unsigned t = (unsigned)(r & 63);
        if (t == 0) return (intptr_t)(end - p) >= 0;
        if (room(p, end) >= 8) {
            acc = load_le64(p) >> t;
            p += 8;
            cnt = 64 - t;
            return true;
        }
        uint64_t v = 0;
        for (unsigned got = 0; got < t; got += 8) {
            if (room(p, end) <= 0) return false;
            v |= (uint64_t)*(const uint8_t*)p << got;
            p += 1;
        }
        acc = v;
        cnt = 64 - t;
        return true;
    }
};

// Planes 31 down to the last one read under the budget `bits` (updated); returns that plane
// (32 when none was read).
ZEM_INLINE int decode_planes(Reader& rd, uint64_t plane[32], int kmin, int64_t& bits) {
    int n = 0;
    int k = 31;
    for (; k >= kmin && bits > 0; --k) {
        int m = (int64_t)n < bits ? n : (int)bits;
        uint64_t x = m ? rd.read((unsigned)m) : 0;
        bits -= m;
        while (n < 64 && bits > 0) {
            --bits;
            if (!rd.bit()) break;
            // Zeros up to the next significant coefficient; at the last one it is implied.
            int lim = (int64_t)(63 - n) < bits ? 63 - n : (int)bits;
            while (lim > 0) {
                if (ZEM_UNLIKELY(rd.cnt == 0)) rd.refill();
                int avail = (int)rd.cnt < lim ? (int)rd.cnt : lim;
                int r = (int)_tzcnt_u64(rd.acc);
                if (r < avail) {
                    rd.drop((unsigned)r + 1);
                    bits -= r + 1;
                    n += r;
                    break;
                }
                rd.drop((unsigned)avail);
                bits -= avail;
                n += avail;
                lim -= avail;
            }
            x |= 1ull << n;
            ++n;
        }
        plane[k] = x;
    }
    return k + 1;
}

// Bit k of coefficient i from plane k, bit i, for all 64 coefficients: byte planes in coding
// order, then the layout the encoder gathered from, negabinary back to two's complement.
ZEM_INLINE void assemble(const uint64_t plane[32], int klow, int32_t* seq) {
    const __m256i sel_lo = _mm256_setr_epi8(0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2, 2, 2, 2, 2, 2, 2,
                                            3, 3, 3, 3, 3, 3, 3, 3);
    const __m256i sel_hi = _mm256_add_epi8(sel_lo, _mm256_set1_epi8(4));
    const __m256i bitsel = _mm256_set1_epi64x(0x8040201008040201ll);
    __m256i c[8];
    for (int j = 3; j >= 0; --j) {
        __m256i lo = _mm256_setzero_si256(), hi = _mm256_setzero_si256();
        for (int b = 7; b >= 0; --b) {
            int k = 8 * j + b;
            lo = _mm256_add_epi8(lo, lo);
            hi = _mm256_add_epi8(hi, hi);
            if (k >= klow) {
                __m256i x = _mm256_set1_epi64x((long long)plane[k]);
                __m256i ml = _mm256_cmpeq_epi8(_mm256_and_si256(_mm256_shuffle_epi8(x, sel_lo), bitsel), bitsel);
                __m256i mh = _mm256_cmpeq_epi8(_mm256_and_si256(_mm256_shuffle_epi8(x, sel_hi), bitsel), bitsel);
                lo = _mm256_sub_epi8(lo, ml);
                hi = _mm256_sub_epi8(hi, mh);
            }
        }
        c[j] = lo;
        c[4 + j] = hi;
    }
    transpose4(c[0], c[1], c[2], c[3]);
    transpose4(c[4], c[5], c[6], c[7]);
    const __m256i nb = _mm256_set1_epi32((int)kNbMask);
    for (int q = 0; q < 8; ++q) {
        __m256i u = byte_transpose(c[q]);
        _mm256_storeu_si256((__m256i*)(seq + 8 * q), _mm256_sub_epi32(_mm256_xor_si256(u, nb), nb));
    }
}

// Spatial order, inverse transform along z, y and x, scaled back to floats and stored as rows.
ZEM_INLINE void inverse_transform(const int32_t* seq, int e, uint8_t* dst, ptrdiff_t step, ptrdiff_t plane) {
    __m256i s[8];
    for (int q = 0; q < 8; ++q)
        s[q] = _mm256_i32gather_epi32(seq, _mm256_loadu_si256((const __m256i*)(kDecodeGather.v + 8 * q)), 4);
    inv_lift(s[0], s[2], s[4], s[6]);
    inv_lift(s[1], s[3], s[5], s[7]);
    // v[2y+g] = rows (y, z=g) and (y, z=g+2)
    __m256i v[8];
    for (int y = 0; y < 4; ++y)
        for (int g = 0; g < 2; ++g)
            v[2 * y + g] = _mm256_permute2x128_si256(s[2 * g + (y >> 1)], s[2 * (g + 2) + (y >> 1)],
                                                     (y & 1) ? 0x31 : 0x20);
    for (int g = 0; g < 2; ++g) {
        inv_lift(v[g], v[2 + g], v[4 + g], v[6 + g]);
        transpose4(v[g], v[2 + g], v[4 + g], v[6 + g]);
        inv_lift(v[g], v[2 + g], v[4 + g], v[6 + g]);
        transpose4(v[g], v[2 + g], v[4 + g], v[6 + g]);
    }
    // 2^(emax-30); blocks at or below 2^-97 get 0, matching the encoder's held scale.
    const __m256 scale = _mm256_castsi256_ps(_mm256_set1_epi32(e > 30 ? (e - 30) << 23 : 0));
    for (int y = 0; y < 4; ++y)
        for (int g = 0; g < 2; ++g) {
            __m256 f = _mm256_mul_ps(_mm256_cvtepi32_ps(v[2 * y + g]), scale);
            _mm_storeu_ps((float*)(dst + g * plane + y * step), _mm256_castps256_ps128(f));
            _mm_storeu_ps((float*)(dst + (g + 2) * plane + y * step), _mm256_extractf128_ps(f, 1));
        }
}

ZEM_INLINE void store_zeros(uint8_t* dst, ptrdiff_t step, ptrdiff_t plane) {
    const __m128 z = _mm_setzero_ps();
    for (int zz = 0; zz < 4; ++zz)
        for (int y = 0; y < 4; ++y) _mm_storeu_ps((float*)(dst + zz * plane + y * step), z);
}

zemStatus decode(void* state, float* dstf, int32_t step, int32_t planeStep) {
    Head h = load_head(state);
    unsigned held = h.bitCount < 0 ? 0 : h.bitCount > 64 ? 64 : (unsigned)h.bitCount;
    Reader rd{h.bitBuffer, held, h.pCur, h.pEnd, false};
    uint8_t* dst = (uint8_t*)dstf;
    bool ok = true;

    if (!rd.bit()) {
        if (!rd.fail) {
            store_zeros(dst, step, planeStep);
            if (h.minBits >= 2) ok = rd.skip((uint64_t)h.minBits - 1);
        }
    } else {
        int e = (int)rd.read(8);
        int64_t prec = (int64_t)e - 127 - h.minExp + 8;
        if (h.maxPrec < prec) prec = h.maxPrec;
        int kmin = prec >= 32 ? 0 : prec > 0 ? (int)(32 - prec) : 32;
        int64_t budget = (int64_t)h.maxBits - 9;
        int64_t bits = budget;
        uint64_t plane[32];
        int klow = 32;
        if (bits > 0 && kmin <= 31) klow = decode_planes(rd, plane, kmin, bits);
        int64_t pad = (int64_t)h.minBits - 9 - (budget - bits);
        if (!rd.fail && pad > 0) ok = rd.skip((uint64_t)pad);
        if (!rd.fail && ok) {
            int32_t* seq = seq_scratch(state);
            assemble(plane, klow, seq);
            inverse_transform(seq, e, dst, step, planeStep);
        }
    }
    h.bitBuffer = rd.fail ? 0 : rd.acc;
    h.bitCount = rd.fail ? 0 : (int32_t)rd.cnt;
    h.pCur = rd.p;
    store_head(state, h);
    return (rd.fail || !ok) ? zemStatusStreamEnd : zemStatusOk;
}

}  // namespace

}  // namespace zem::zfp

ZEM_API zemStatus zemsDecodeZfp444_32f(zemZfpState* pState, float* pDst, int32_t dstStep, int32_t dstPlaneStep) {
    if (zem::any_null(pDst, pState)) return zemStatusNullPtr;
    if (!zem::zfp::tag_ok(pState)) return zemStatusContextMismatch;
    return zem::zfp::decode(pState, pDst, dstStep, dstPlaneStep);
}
