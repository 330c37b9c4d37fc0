// The zfp block decoder: the embedded bit-plane code of one block back to 4x4x4 floats.
//
// Bits are fetched lazily, a whole word at a time while eight bytes remain and single bytes in
// the last few, so that the record after each block (position, pending bits) is exactly that of
// a bit-at-a-time reader and the size queries report the bytes really fetched; away from the
// end a reader by bit position does the work and that state is rebuilt afterwards. The plane
// coder consumes a run, and sees the group test behind it, with one load and one bit scan; the
// planes then become coefficients through 8x8 bit transposes of all 64 at once, and the inverse
// transform runs on eight vectors.
#include "zfp/zfp_internal.h"

namespace zem::zfp {

namespace {

// The reader of record: fetches lazily, a word while eight bytes remain and a byte after that,
// so its state after a block is the stream's defined state. Used near the end of the input.
struct Reader {
    static constexpr bool kFast = false;
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
            acc = load64((const void*)p);
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

    // m <= 64 bits, least significant first.
    ZEM_INLINE uint64_t read(unsigned m) {
        uint64_t v = 0;
        unsigned got = 0;
        while (got < m) {
            if (cnt == 0) refill();
            unsigned take = m - got < cnt ? m - got : cnt;
            v |= _bzhi_u64(acc, take) << got;
            drop(take);
            got += take;
        }
        return v;
    }

    ZEM_INLINE void ensure() {
        if (cnt == 0) refill();
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
            acc = load64((const void*)p) >> t;
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

// Away from the end of the input the stream is read by bit position: any 57 bits from there are
// one unaligned load, so the reader carries no buffer between reads and no end test. The block's
// bits (at most 2217) and the load's look-ahead stay well inside kFastRoom; afterwards the lazy
// reader's state is rebuilt from the number of bits consumed.
inline constexpr intptr_t kFastRoom = 512;

struct PosReader {
    static constexpr bool kFast = true;
    uintptr_t base;
    uint64_t at;   // stream bit position from base
    uint64_t acc;  // for the generic run scan: the bits at `at` after ensure(), cnt of them sure
    unsigned cnt;

    // 57 or more stream bits from the read position.
    ZEM_INLINE uint64_t peek() const { return load64((const void*)(base + (at >> 3))) >> (at & 7); }
    ZEM_INLINE void ensure() {
        acc = peek();
        cnt = 57;
    }
    ZEM_INLINE void drop(unsigned n) {  // n <= cnt
        acc >>= n;
        cnt -= n;
        at += n;
    }
    ZEM_INLINE unsigned bit() {
        unsigned b = (unsigned)peek() & 1;
        at += 1;
        return b;
    }
    ZEM_INLINE uint64_t read(unsigned m) {  // m <= 64
        uint64_t v;
        if (ZEM_LIKELY(m <= 57)) {
            v = _bzhi_u64(peek(), m);
        } else {
            v = peek() & 0xffffffffull;
            at += 32;
            v |= _bzhi_u64(peek(), m - 32) << 32;
            at -= 32;
        }
        at += m;
        return v;
    }
    ZEM_INLINE uint64_t pos() const { return at; }
};

// Consumes zeros up to the next one bit, at most lim of them; with `found` the one is consumed
// too. Returns the zeros.
template <class R>
ZEM_INLINE int run(R& rd, int lim, bool& found) {
    int done = 0;
    while (done < lim) {
        rd.ensure();
        int avail = (int)rd.cnt < lim - done ? (int)rd.cnt : lim - done;
        int r = (int)_tzcnt_u64(rd.acc);
        if (r < avail) {
            rd.drop((unsigned)r + 1);
            found = true;
            return done + r;
        }
        rd.drop((unsigned)avail);
        done += avail;
    }
    found = false;
    return done;
}

// Planes 31 down to kmin (or until no more than 129 bits of the budget are left, with
// kChecked) read by position: a plane that adds no coefficient costs one load, and each new
// coefficient one load that also sees the group test behind it. Returns the next plane; n
// (updated) counts the significant coefficients.
template <bool kChecked>
ZEM_INLINE int fast_planes(PosReader& rd, uint64_t plane[32], int kmin, uint64_t limit, int& n) {
    int k = 31;
    for (; k >= kmin && (!kChecked || (int64_t)(limit - rd.at) > 129); --k) {
        uint64_t w = rd.peek();
        uint64_t x;
        if (ZEM_LIKELY(n <= 56)) {
            x = _bzhi_u64(w, (unsigned)n);
            w >>= n;
            rd.at += (unsigned)n + 1;
        } else {
            x = rd.read((unsigned)n);
            if (n == 64) {
                plane[k] = x;
                continue;
            }
            w = rd.peek();
            rd.at += 1;
        }
        if (w & 1) {
            for (;;) {
                w = rd.peek();
                int lim = 63 - n;
                int r = (int)_tzcnt_u64(w);
                if (r < lim && r < 56) {
                    n += r;
                    x |= 1ull << n;
                    ++n;
                    rd.at += (unsigned)r + 2;
                    if (!((w >> (r + 1)) & 1)) break;  // the next group test
                } else if (lim <= 56) {
                    rd.at += (unsigned)lim;  // zeros up to the last coefficient, its one implied
                    x |= 1ull << 63;
                    n = 64;
                    break;
                } else {
                    rd.at += 56;  // 56 insignificant coefficients, more to come
                    n += 56;
                }
            }
        }
        plane[k] = x;
    }
    return k;
}

// Planes 31 down to kmin while the budget `bits` (updated) lasts; planes not reached stay zero.
// Returns the lowest plane read (32 for none).
template <class R>
ZEM_INLINE int decode_planes(R& rd, uint64_t plane[32], int kmin, int64_t& bits) {
    int n = 0;
    int k = 31;
    if constexpr (R::kFast) {
        // A plane takes at most 129 bits; while more are left the budget cannot end inside one,
        // so it is kept as a stream position and the plane is read without budget tests. When
        // the budget covers every plane to kmin (fixed precision and accuracy) not even the
        // position is tested.
        const uint64_t limit = rd.pos() + (uint64_t)bits;
        if (bits > 129 * (int64_t)(32 - kmin))
            k = fast_planes<false>(rd, plane, kmin, limit, n);
        else
            k = fast_planes<true>(rd, plane, kmin, limit, n);
        bits = (int64_t)(limit - rd.pos());
    }
    for (; k >= kmin && bits > 0; --k) {
        int m = (int64_t)n < bits ? n : (int)bits;
        uint64_t x = m ? rd.read((unsigned)m) : 0;
        bits -= m;
        while (n < 64 && bits > 0) {
            --bits;
            if (!rd.bit()) break;
            // Zeros up to the next significant coefficient; at the last one it is implied.
            int lim = (int64_t)(63 - n) < bits ? 63 - n : (int)bits;
            bool found;
            int r = run(rd, lim, found);
            bits -= r + found;
            n += r;
            x |= 1ull << n;
            ++n;
        }
        plane[k] = x;
    }
    return k + 1;
}

// Transposes the 8x8 bit matrix in each 64-bit lane: bit 8r + c goes to bit 8c + r.
ZEM_INLINE __m256i bit_transpose8(__m256i x) {
    const __m256i m1 = _mm256_set1_epi64x(0x00AA00AA00AA00AAll);
    const __m256i m2 = _mm256_set1_epi64x(0x0000CCCC0000CCCCll);
    const __m256i m3 = _mm256_set1_epi64x(0x00000000F0F0F0F0ll);
    __m256i t = _mm256_and_si256(_mm256_xor_si256(_mm256_srli_epi64(x, 7), x), m1);
    x = _mm256_xor_si256(x, _mm256_xor_si256(t, _mm256_slli_epi64(t, 7)));
    t = _mm256_and_si256(_mm256_xor_si256(_mm256_srli_epi64(x, 14), x), m2);
    x = _mm256_xor_si256(x, _mm256_xor_si256(t, _mm256_slli_epi64(t, 14)));
    t = _mm256_and_si256(_mm256_xor_si256(_mm256_srli_epi64(x, 28), x), m3);
    return _mm256_xor_si256(x, _mm256_xor_si256(t, _mm256_slli_epi64(t, 28)));
}

// Bit k of coefficient i from plane k, bit i, for all 64 coefficients at a fixed cost: for each
// group of eight planes, byte g of each plane is gathered into one 64-bit lane, whose 8x8 bit
// transpose holds that byte of coefficients 8g..8g+7; four such bytes make a coefficient.
// Vector q, lane l ends up with coded coefficient 4q + (l & 3) + 32 (l >> 2), back in two's
// complement. Groups below jmin hold only zero planes and are not transposed.
ZEM_INLINE void assemble(const uint64_t plane[32], int jmin, int32_t* seq) {
    const __m256i split = _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7);
    __m256i lo[4], hi[4];
    for (int j = 0; j < 4; ++j) {
        if (j < jmin) {
            lo[j] = hi[j] = _mm256_setzero_si256();
            continue;
        }
        __m256i a = _mm256_loadu_si256((const __m256i*)(plane + 8 * j));
        __m256i b = _mm256_loadu_si256((const __m256i*)(plane + 8 * j + 4));
        a = byte_transpose(_mm256_permutevar8x32_epi32(a, split));
        b = byte_transpose(_mm256_permutevar8x32_epi32(b, split));
        lo[j] = bit_transpose8(_mm256_unpacklo_epi32(a, b));  // bytes g = 0, 1 | 4, 5
        hi[j] = bit_transpose8(_mm256_unpackhi_epi32(a, b));  // bytes g = 2, 3 | 6, 7
    }
    const __m256i nb = _mm256_set1_epi32((int)kNbMask);
    __m256i c[8];
    for (int h = 0; h < 2; ++h) {
        const __m256i* v = h ? hi : lo;
        __m256i u0 = _mm256_unpacklo_epi8(v[0], v[1]), w0 = _mm256_unpacklo_epi8(v[2], v[3]);
        __m256i u1 = _mm256_unpackhi_epi8(v[0], v[1]), w1 = _mm256_unpackhi_epi8(v[2], v[3]);
        c[4 * h + 0] = _mm256_unpacklo_epi16(u0, w0);
        c[4 * h + 1] = _mm256_unpackhi_epi16(u0, w0);
        c[4 * h + 2] = _mm256_unpacklo_epi16(u1, w1);
        c[4 * h + 3] = _mm256_unpackhi_epi16(u1, w1);
    }
    for (int q = 0; q < 8; ++q)
        _mm256_storeu_si256((__m256i*)(seq + 8 * q), _mm256_sub_epi32(_mm256_xor_si256(c[q], nb), nb));
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
    for (int yp = 0; yp < 2; ++yp)
        for (int g = 0; g < 2; ++g) {
            v[4 * yp + g] = _mm256_permute2x128_si256(s[2 * g + yp], s[2 * g + 4 + yp], 0x20);
            v[4 * yp + 2 + g] = _mm256_permute2x128_si256(s[2 * g + yp], s[2 * g + 4 + yp], 0x31);
        }
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

// The header and planes of a coded block; `used` counts the plane bits against the budget.
template <class R>
ZEM_INLINE void decode_coded(R& rd, const Head& h, uint64_t plane[32], int& e, int& klow, int64_t& used) {
    e = (int)rd.read(kExponentBits);
    int64_t prec = (int64_t)e - 127 - h.minExp + 8;
    if (h.maxPrec < prec) prec = h.maxPrec;
    int kmin = prec >= 32 ? 0 : prec > 0 ? (int)(32 - prec) : 32;
    int64_t budget = (int64_t)h.maxBits - kHeaderBits;
    int64_t bits = budget;
    klow = 32;
    if (bits > 0 && kmin <= 31) klow = decode_planes(rd, plane, kmin, bits);
    used = budget - bits;
}

template <class T>
ZEM_INLINE T get_field(const void* state, size_t off) {
    T v;
    memcpy(&v, (const uint8_t*)state + off, sizeof v);
    return v;
}
template <class T>
ZEM_INLINE void set_field(void* state, size_t off, T v) {
    memcpy((uint8_t*)state + off, &v, sizeof v);
}

zemStatus decode(void* state, float* dstf, int32_t step, int32_t planeStep) {
    // Field by field: a copy of the whole head goes through vector registers and the stack.
    Head h;
    h.minBits = get_field<int32_t>(state, offsetof(Head, minBits));
    h.maxBits = get_field<int32_t>(state, offsetof(Head, maxBits));
    h.maxPrec = get_field<int32_t>(state, offsetof(Head, maxPrec));
    h.minExp = get_field<int32_t>(state, offsetof(Head, minExp));
    h.bitCount = get_field<int32_t>(state, offsetof(Head, bitCount));
    h.bitBuffer = get_field<uint64_t>(state, offsetof(Head, bitBuffer));
    h.pCur = get_field<uintptr_t>(state, offsetof(Head, pCur));
    h.pStart = get_field<uintptr_t>(state, offsetof(Head, pStart));
    h.pEnd = get_field<uintptr_t>(state, offsetof(Head, pEnd));
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
        uint64_t plane[32];
        // Eight vector stores; hidden from the compiler, which would make them a string store
        // with a slow start.
        __m256i zero = _mm256_setzero_si256();
        __asm__("" : "+x"(zero));
        for (int i = 0; i < 32; i += 4) _mm256_storeu_si256((__m256i*)(plane + i), zero);
        int e, klow;
        int64_t used;
        // The position reader starts in the word the held bits came from; a record whose held
        // bits are not that word's (only a hand-made one) goes the lazy way.
        uintptr_t start = rd.p;
        unsigned held0 = rd.cnt;
        if (room(start, rd.end) >= kFastRoom &&
            (held0 == 0 || (room(h.pStart, start) >= 8 &&
                            load64((const void*)(start - 8)) >> (64 - held0) == _bzhi_u64(rd.acc, held0)))) {
            PosReader fr{start - 8, 64 - (uint64_t)held0, 0, 0};
            decode_coded(fr, h, plane, e, klow, used);
            // Back to the lazy reader's state: whole words fetched, the rest of the last held.
            uint64_t consumed = fr.at - (64 - held0);
            if (consumed <= held0) {
                rd.drop((unsigned)consumed);
            } else {
                uint64_t words = (consumed - held0 + 63) >> 6;
                rd.p = start + 8 * words;
                rd.cnt = (unsigned)(64 * words - (consumed - held0));
                rd.acc = rd.cnt ? load64((const void*)(rd.p - 8)) >> (64 - rd.cnt) : 0;
            }
        } else {
            decode_coded(rd, h, plane, e, klow, used);
        }
        int64_t pad = (int64_t)h.minBits - kHeaderBits - used;
        if (!rd.fail && pad > 0) ok = rd.skip((uint64_t)pad);
        if (!rd.fail && ok) {
            int32_t* seq = seq_scratch(state);
            assemble(plane, klow >> 3, seq);
            inverse_transform(seq, e, dst, step, planeStep);
        }
    }
    set_field<uint64_t>(state, offsetof(Head, bitBuffer), rd.fail ? 0 : rd.acc);
    set_field<int32_t>(state, offsetof(Head, bitCount), rd.fail ? 0 : (int32_t)rd.cnt);
    set_field<uintptr_t>(state, offsetof(Head, pCur), rd.p);
    return (rd.fail || !ok) ? zemStatusStreamEnd : zemStatusOk;
}

}  // namespace

}  // namespace zem::zfp

ZEM_API zemStatus zemsDecodeZfp444_32f(zemZfpState* pState, float* pDst, int32_t dstStep, int32_t dstPlaneStep) {
    if (zem::any_null(pDst, pState)) return zemStatusNullPtr;
    if (!zem::zfp::tag_ok(pState)) return zemStatusContextMismatch;
    return zem::zfp::decode(pState, pDst, dstStep, dstPlaneStep);
}
