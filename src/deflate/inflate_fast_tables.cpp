// The rewriter of the record's tables into the decoder's own, eight entries at a time.
#include <immintrin.h>

#include "deflate/inflate_fast_tables.h"

namespace zem::inflate {

namespace {

ZEM_INLINE __m256i v8(uint32_t x) { return _mm256_set1_epi32(int(x)); }
ZEM_INLINE __m256i bytes8(const uint8_t* p) { return _mm256_cvtepu8_epi32(_mm_loadl_epi64((const __m128i*)p)); }
ZEM_INLINE __m256i words8(const uint16_t* p) { return _mm256_cvtepu16_epi32(_mm_loadu_si128((const __m128i*)p)); }
// Lanes with lo <= x <= hi (x is at most 16 bits).
ZEM_INLINE __m256i in_range(__m256i x, uint32_t lo, uint32_t hi) {
    return _mm256_and_si256(_mm256_cmpgt_epi32(x, v8(lo - 1)), _mm256_cmpgt_epi32(v8(hi + 1), x));
}
ZEM_INLINE __m256i pick(__m256i acc, __m256i mask, __m256i e) { return _mm256_blendv_epi8(acc, e, mask); }
// Eight distance entries with their distances (the low 16 bits of each lane of d) as 64-bit words.
ZEM_INLINE void store_dist(uint64_t* p, __m256i e, __m256i d) {
    d = _mm256_and_si256(d, v8(0xFFFF));
    const __m256i lo = _mm256_unpacklo_epi32(e, d), hi = _mm256_unpackhi_epi32(e, d);
    _mm256_store_si256((__m256i*)p, _mm256_permute2x128_si256(lo, hi, 0x20));
    _mm256_store_si256((__m256i*)(p + 4), _mm256_permute2x128_si256(lo, hi, 0x31));
}

// A literal/length entry from code length n, kind (0 literal, 8 + e length, eob_kind the end of
// block) and value v, eight at a time; lit_w and dist_w are the widths of the tables looked up
// after a literal and after a length.
ZEM_INLINE __m256i lit_entries(__m256i n, __m256i kind, __m256i v, uint32_t eob_kind, uint32_t lit_w,
                               uint32_t dist_w) {
    const __m256i v16 = _mm256_slli_epi32(v, 16);
    __m256i e = v8(kFastSpecial);
    __m256i lit = _mm256_or_si256(n, v8(kFastLiteral | lit_w << 8 | 1u << 16 | kRampEntry << 20));
    lit = _mm256_or_si256(lit, _mm256_slli_epi32(v, 20));
    e = pick(e, _mm256_andnot_si256(_mm256_cmpeq_epi32(n, _mm256_setzero_si256()),
                                    _mm256_cmpeq_epi32(kind, _mm256_setzero_si256())),
             lit);
    __m256i len = _mm256_or_si256(_mm256_add_epi32(n, _mm256_sub_epi32(kind, v8(8))),
                                  _mm256_slli_epi32(n, kFastLenShift));
    len = _mm256_or_si256(len, _mm256_add_epi32(v16, v8(3u << 16 | dist_w << 8)));
    e = pick(e, in_range(kind, 8, 13), len);
    e = pick(e, _mm256_cmpeq_epi32(kind, v8(eob_kind)), _mm256_or_si256(n, v8(kFastSpecial | kFastEob)));
    return e;
}

// A distance entry from its byte ((extra << 4) | code length), eight at a time; lit_w is the
// width of the literal/length table looked up after it.
ZEM_INLINE __m256i dist_entries(__m256i t, uint32_t lit_w) {
    __m256i n = _mm256_and_si256(t, v8(15));
    __m256i e = _mm256_or_si256(_mm256_add_epi32(n, _mm256_srli_epi32(t, 4)), _mm256_slli_epi32(n, 16));
    e = _mm256_or_si256(e, v8(lit_w << 8));
    return pick(v8(kFastSpecial), _mm256_cmpgt_epi32(v8(kDistTagMax + 1), t), e);
}

// Turns the root entries of short lengths into whole matches where the root's index also holds
// the distance code, and writes the ramp and the literals' distance entries. Needs both tables
// built. Returns what fast_tables does.
bool join_matches(FastTables& ft, uint32_t root_bits) {
    const __m256i lane = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    for (uint32_t k = 0; k < sizeof ft.ramp; ++k) ft.ramp[k] = uint8_t(k);
    for (uint32_t b = 0; b < 256; b += 8)
        store_dist(ft.dist + kRampEntry + b, _mm256_setzero_si256(), _mm256_sub_epi32(v8(256 - b), lane));
    const __m256i dist_mask = v8(ft.dist_mask);
    // Whole groups of eight, as the tables were built.
    const uint32_t root = root_bits > 3 ? 1u << root_bits : 8;
    uint32_t literals = 0;
    for (uint32_t i = 0; i < root; i += 8) {
        const __m256i e = _mm256_load_si256((const __m256i*)(ft.lit + i));
        literals += uint32_t(_mm_popcnt_u32(uint32_t(_mm256_movemask_ps(_mm256_castsi256_ps(e)))));
        // Lengths 3..10 (no extra bits): no flag, the length's bits its code's alone.
        const __m256i n = _mm256_and_si256(e, v8(63));
        __m256i ok = _mm256_cmpeq_epi32(_mm256_and_si256(e, v8(kFastSpecial | kFastLiteral)), _mm256_setzero_si256());
        ok = _mm256_and_si256(ok, _mm256_cmpeq_epi32(n, _mm256_srli_epi32(e, kFastLenShift)));
        const __m256i len = _mm256_and_si256(_mm256_srli_epi32(e, 16), v8(0x1FF));
        ok = _mm256_and_si256(ok, _mm256_cmpgt_epi32(v8(11), len));
        if (_mm256_testz_si256(ok, ok)) continue;
        // The distance entry at the bits after the length code, as far as the index sees them;
        // the whole distance code must lie within them.
        const __m256i di = _mm256_and_si256(_mm256_srlv_epi32(_mm256_add_epi32(v8(i), lane), n), dist_mask);
        const __m256i dl = _mm256_mask_i32gather_epi32(_mm256_setzero_si256(), (const int*)ft.dist, di, ok, 8);
        const __m256i nd = _mm256_and_si256(_mm256_srli_epi32(dl, 16), v8(15));
        const __m256i code = _mm256_add_epi32(n, nd);
        ok = _mm256_and_si256(ok, _mm256_cmpeq_epi32(_mm256_and_si256(dl, v8(kFastSpecial)), _mm256_setzero_si256()));
        ok = _mm256_and_si256(ok, _mm256_cmpgt_epi32(v8(root_bits + 1), code));
        // Bits taken: both codes and the distance's extra bits (the distance entry's count
        // less its code length).
        __m256i m = _mm256_add_epi32(code, _mm256_sub_epi32(_mm256_and_si256(dl, v8(63)), nd));
        m = _mm256_or_si256(m, v8(kFastStep | root_bits << 8));
        m = _mm256_or_si256(m, _mm256_slli_epi32(len, 16));
        m = _mm256_or_si256(m, _mm256_slli_epi32(di, 20));
        _mm256_store_si256((__m256i*)(ft.lit + i), pick(e, ok, m));
    }
    return literals * 20 >= root * 17;
}

}  // namespace

bool fast_tables(const CompactTables& c, FastTables& ft) {
    // The masks are all ones below the tables' widths.
    const uint32_t lit_w = uint32_t(_mm_popcnt_u32(c.lit_mask)), dist_w = uint32_t(_mm_popcnt_u32(c.dist_mask));
    // Whole groups of eight: past a narrow table they read other bytes of the record and fill
    // entries that the masks never reach.
    for (uint32_t i = 0; i <= c.lit_mask; i += 8) {
        __m256i w = words8(c.lit + i);
        __m256i e = lit_entries(_mm256_and_si256(w, v8(15)), _mm256_and_si256(_mm256_srli_epi32(w, 4), v8(15)),
                                _mm256_srli_epi32(w, 8), kKindEobCompact >> 4, lit_w, dist_w);
        _mm256_store_si256((__m256i*)(ft.lit + i), e);
    }
    for (uint32_t i = 0; i <= c.dist_mask; i += 8)
        store_dist(ft.dist + i, dist_entries(bytes8(c.dist_kind + i), lit_w), words8(c.dist_base + i));
    ft.lit_mask = c.lit_mask;
    ft.dist_mask = c.dist_mask;
    return join_matches(ft, lit_w);
}

bool fast_tables(const GeneralTablesView& gv, FastTables& ft) {
    const GeneralTables& g = *gv.g;
    // The second-level tables first, so that the root can take entries from them as it goes.
    for (uint32_t i = kRootSize; i < kLitEntries; i += 8) {
        __m256i t = bytes8(g.lit_tag + i), v = bytes8(g.lit_val + i);
        __m256i e = lit_entries(_mm256_and_si256(t, v8(15)), _mm256_srli_epi32(t, 4), v, kKindEobGeneral >> 4,
                                kFastRootBits, kRootBits);
        _mm256_store_si256((__m256i*)(ft.lit + i - kRootSize + kFastRootSize), e);
    }
    for (uint32_t i = kFastRootSize + kLitEntries - kRootSize; i < kFastLitEntries; i += 8)
        _mm256_store_si256((__m256i*)(ft.lit + i), v8(kFastSpecial));
    // Each entry of the record's root serves both halves of the 11-bit root; the halves differ
    // only where a reference can be resolved by the one more bit that the upper half sees.
    for (uint32_t i = 0; i < kRootSize; i += 8) {
        __m256i t = bytes8(g.lit_tag + i), v = bytes8(g.lit_val + i);
        __m256i kind = _mm256_srli_epi32(t, 4);
        __m256i r = lit_entries(_mm256_and_si256(t, v8(15)), kind, v, kKindEobGeneral >> 4, kFastRootBits, kRootBits);
        __m256i sub = _mm256_or_si256(_mm256_and_si256(t, v8(7)), v8(kFastSpecial | kFastSub));
        sub = _mm256_or_si256(sub, _mm256_slli_epi32(_mm256_add_epi32(_mm256_add_epi32(v, v), v8(kFastRootSize)), 16));
        const __m256i is_sub = _mm256_cmpeq_epi32(kind, v8(kKindSubTable >> 4));
        r = pick(r, is_sub, sub);
        if (_mm256_testz_si256(is_sub, is_sub)) {
            _mm256_store_si256((__m256i*)(ft.lit + i), r);
            _mm256_store_si256((__m256i*)(ft.lit + kRootSize + i), r);
            continue;
        }
        for (uint32_t half = 0; half < 2; ++half) {
            __m256i idx = _mm256_add_epi32(_mm256_srli_epi32(r, 16), _mm256_min_epu32(_mm256_and_si256(r, v8(15)), v8(half)));
            __m256i s = _mm256_mask_i32gather_epi32(r, (const int*)ft.lit, idx, is_sub, 4);
            // The code length: where the extra bits begin for a length, the bits consumed
            // for a literal or the end of block; references and malformed entries stay.
            __m256i plain = _mm256_cmpeq_epi32(_mm256_and_si256(s, v8(kFastSpecial | kFastLiteral)), _mm256_setzero_si256());
            __m256i len = _mm256_and_si256(_mm256_blendv_epi8(s, _mm256_srli_epi32(s, kFastLenShift), plain), v8(15));
            __m256i ok = _mm256_or_si256(plain, _mm256_cmpeq_epi32(_mm256_and_si256(s, v8(kFastLiteral)), v8(kFastLiteral)));
            ok = _mm256_or_si256(ok, _mm256_cmpeq_epi32(_mm256_and_si256(s, v8(kFastSpecial | kFastEob | kFastSub)),
                                                       v8(kFastSpecial | kFastEob)));
            ok = _mm256_and_si256(_mm256_and_si256(ok, is_sub), _mm256_cmpgt_epi32(v8(kFastRootBits + 1), len));
            _mm256_store_si256((__m256i*)(ft.lit + half * kRootSize + i), pick(r, ok, s));
        }
    }
    __m256i any_ref = _mm256_setzero_si256();
    for (uint32_t i = 0; i < kDistEntries; i += 8) {
        // Distance codes rarely pass 10 bits: without a reference nothing reaches the
        // second-level part.
        if (i == kRootSize && _mm256_testz_si256(any_ref, any_ref)) break;
        __m256i t = bytes8(g.dist_tag + i), d = words8(g.dist_val + i);
        __m256i e = dist_entries(t, kFastRootBits);
        if (i < kRootSize) {
            // A reference must lead to a table that lies wholly inside the distance part.
            __m256i w = _mm256_and_si256(t, v8(7));
            __m256i ok = _mm256_and_si256(in_range(t, kDistSubTable + 1, kDistSubTable + 5), in_range(d, kRootSize, kDistEntries));
            __m256i end = _mm256_add_epi32(d, _mm256_sllv_epi32(v8(1), w));
            ok = _mm256_and_si256(ok, _mm256_cmpgt_epi32(v8(kDistEntries + 1), end));
            __m256i sub = _mm256_or_si256(_mm256_or_si256(w, v8(kFastSpecial | kFastSub)), _mm256_slli_epi32(d, 16));
            e = pick(e, ok, sub);
            any_ref = _mm256_or_si256(any_ref, ok);
        }
        store_dist(ft.dist + i, e, d);
    }
    ft.lit_mask = kFastRootSize - 1;
    ft.dist_mask = kRootSize - 1;
    return join_matches(ft, kFastRootBits);
}

}  // namespace zem::inflate
