// The inflate decoder: the Huffman-coded body of one DEFLATE block, resumable at any byte of
// input and output.
//
// One decoder template serves both table layouts; the compact instantiation is the faster
// one (one lookup per symbol, where the general layout may need two). Each call alternates
// between two loops:
//  - the main loop, while at least 16 input bytes and some output room remain: the 64-bit bit
//    buffer is refilled branch-free to 56..63 bits, which covers a whole length/distance pair
//    (at most 15 + 5 + 15 + 13 bits), so no step inside tests for input. Far from both ends it
//    runs as the fast loop (its own function); near them, one symbol per refill;
//  - the careful loop, one step at a time, which pulls single bytes only when the held bits
//    cannot answer and saves its step in the state's resume words when input or output ends.
#include <string.h>

#include "core/bytes.h"
#include "core/match_copy.h"
#include "core/mem.h"
#include "deflate/inflate_tables.h"

namespace zem::inflate {

namespace {

// Where a call continues on mode 2 (the first resume word).
enum Step : uint32_t { kStepCode = 0, kStepLenExtra = 1, kStepDist = 2, kStepDistExtra = 3, kStepCopy = 4 };

// Room beyond a match that the wide copies may overwrite with scratch.
constexpr size_t kCopySlack = 48;
constexpr size_t kMainMinInput = 16;
// The longest match an entry can describe (length base 255 + 3 and 5 extra bits).
constexpr size_t kMaxMatch = 289;
// The fast loop's margins: input for whole refills, and room for the longest match plus the
// copy slack.
constexpr size_t kFastMinInput = 32;
constexpr size_t kFastMinRoom = 320;
// A call that can decode this much rewrites the tables first. The rewrite, whole matches
// included, costs about as much as decoding 2 to 3 KiB; in calls of 4 KiB of output the loop
// on the record's tables was 8% faster in all.
constexpr size_t kOwnTablesMinInput = 1024;
constexpr size_t kOwnTablesMinRoom = 8192;
// A code of the longest length that any table can hold; an entry that the held bits cannot
// trust is treated as needing this many.
constexpr uint32_t kMaxCodeBits = 15;

// (v >> ctl[7:0]) & ((1 << ctl[15:8]) - 1) in one operation.
ZEM_INLINE uint64_t bextr(uint64_t v, uint64_t ctl) { return __builtin_ia32_bextr_u64(v, ctl); }

// BZHI keeps every bit for n of 64 or more.
ZEM_INLINE uint64_t low_bits(uint64_t v, uint32_t n) { return _bzhi_u64(v, n); }

// Literal/length entries: kind 0 is a literal, 8..13 a length with 0..5 extra bits.
ZEM_INLINE bool is_literal(uint32_t e) { return (e & 0xF0) == 0; }
ZEM_INLINE bool is_length(uint32_t e) { return uint32_t(uint8_t(e)) - 0x80 < 0x60; }

// What a compact record without distance codes decodes its distances from: the builder leaves
// that part of the record as it was, so a length there would take a stale or random distance.
// One malformed entry instead (eight, for the table rewriter's groups), whatever the record held.
struct NoDistance {
    uint8_t kind[8];
    uint16_t base[8];
};
constexpr NoDistance kNoDistance = {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, {}};
static_assert(kNoDistance.kind[0] > kDistTagMax);

struct CompactTables {
    static constexpr uint32_t kEob = kKindEobCompact;
    const uint16_t* lit;
    const uint8_t* dist_kind;
    const uint16_t* dist_base;
    uint32_t lit_mask, dist_mask;

    // The widths come from the record: clamped so that no value in it reads outside it.
    static uint32_t lit_bits(const zemInflateState* s) {
        return s->litBits > kCompactMaxLit ? kCompactMaxLit : s->litBits;
    }
    static uint32_t dist_bits(const zemInflateState* s) {
        return s->distBits > kCompactMaxDist ? kCompactMaxDist : s->distBits;
    }
    explicit CompactTables(zemInflateState* s)
        : lit(compact_lit(s)),
          dist_kind(dist_bits(s) ? compact_dist_kind(s, lit_bits(s)) : kNoDistance.kind),
          dist_base(dist_bits(s) ? compact_dist_base(s, lit_bits(s)) : kNoDistance.base),
          lit_mask((1u << lit_bits(s)) - 1),
          dist_mask((1u << dist_bits(s)) - 1) {}

    static constexpr bool kHasSub = false;
    ZEM_INLINE uint32_t lit_entry(uint64_t bb) const { return lit[bb & lit_mask]; }
    // An entry's two bytes: bits and kind (low), value (high).
    ZEM_INLINE size_t lit_index(uint64_t bb) const { return bb & lit_mask; }
    ZEM_INLINE uint32_t tag_at(size_t i) const { return reinterpret_cast<const uint8_t*>(lit)[2 * i]; }
    ZEM_INLINE uint8_t val_at(size_t i) const { return reinterpret_cast<const uint8_t*>(lit)[2 * i + 1]; }
    ZEM_INLINE size_t sub_index(uint32_t, size_t i, uint64_t) const { return i; }
    ZEM_INLINE uint32_t dist_entry(uint64_t bb, uint32_t& dist) const {
        size_t i = bb & dist_mask;
        dist = dist_base[i];
        return dist_kind[i];
    }
};

struct GeneralTablesView {
    static constexpr uint32_t kEob = kKindEobGeneral;
    const GeneralTables* g;

    static constexpr bool kHasSub = true;
    ZEM_INLINE size_t lit_index(uint64_t bb) const { return bb & (kRootSize - 1); }
    ZEM_INLINE uint32_t tag_at(size_t i) const { return g->lit_tag[i]; }
    ZEM_INLINE uint8_t val_at(size_t i) const { return g->lit_val[i]; }
    ZEM_INLINE size_t sub_index(uint32_t tag, size_t i, uint64_t bb) const {
        return kRootSize + size_t(g->lit_val[i]) * 2 + low_bits(bb >> kRootBits, tag & 7);
    }
    // The whole entry (tag | value << 8), through a second-level table for a long code.
    ZEM_INLINE uint32_t lit_entry(uint64_t bb) const {
        size_t i = lit_index(bb);
        if (ZEM_UNLIKELY((tag_at(i) & 0xF0) == kKindSubTable)) i = sub_index(tag_at(i), i, bb);
        return tag_at(i) | uint32_t(val_at(i)) << 8;
    }
    ZEM_INLINE uint32_t dist_entry(uint64_t bb, uint32_t& dist) const {
        size_t i = bb & (kRootSize - 1);
        uint32_t tag = g->dist_tag[i];
        dist = g->dist_val[i];
        if (ZEM_UNLIKELY(tag > kDistTagMax)) {
            // A reference leads to a table that lies wholly inside the distance part.
            if (tag - kDistSubTable - 1 >= 5 || dist < kRootSize || dist + (1u << (tag & 7)) > kDistEntries)
                return 0xFF;
            size_t j = dist + low_bits(bb >> kRootBits, tag & 7);
            tag = g->dist_tag[j];
            dist = g->dist_val[j];
        }
        return tag;
    }
};

// Shuffles for matches closer than 16 bytes: kPeriodic[d] repeats the first d bytes of a
// vector over all 16, kAdvance[d] turns 16 bytes of a d-periodic run into the next 16.
struct ShuffleMasks {
    alignas(16) uint8_t m[16][16];
};
constexpr ShuffleMasks make_periodic() {
    ShuffleMasks t{};
    for (uint32_t d = 1; d < 16; ++d)
        for (uint32_t i = 0; i < 16; ++i) t.m[d][i] = uint8_t(i % d);
    return t;
}
constexpr ShuffleMasks make_advance() {
    ShuffleMasks t{};
    for (uint32_t d = 1; d < 16; ++d)
        for (uint32_t i = 0; i < 16; ++i) t.m[d][i] = uint8_t((i + 16 % d) % d);
    return t;
}
constexpr ShuffleMasks kPeriodic = make_periodic();
constexpr ShuffleMasks kAdvance = make_advance();

// The match copy of the main loop: 16 bytes a step, possibly writing up to kCopySlack bytes of
// scratch past the match, which the caller's room allows. No wider vectors: they would make
// the loops around this copy realign their stack and give up a register.
ZEM_INLINE void copy16(uint8_t* d, const uint8_t* s) {
    _mm_storeu_si128((__m128i*)d, _mm_loadu_si128((const __m128i*)s));
}
ZEM_INLINE void copy_wide(uint8_t* out, size_t dist, size_t len) {
    const uint8_t* src = out - dist;
    uint8_t* const end = out + len;
    if (ZEM_LIKELY(dist >= 16)) {
        // Each step reads only bytes written before it. Most matches are at most 48 bytes
        // long: three steps and no loop to predict.
        copy16(out, src);
        copy16(out + 16, src + 16);
        copy16(out + 32, src + 32);
        if (ZEM_LIKELY(len <= 48)) return;
        out += 48;
        src += 48;
        // Two steps a turn: half the loop branches of a long match.
        do {
            copy16(out, src);
            copy16(out + 16, src + 16);
            out += 32;
            src += 32;
        } while (out < end);
        return;
    }
    // Closer than 16 bytes: the run is periodic. The load may take bytes at and after `out`,
    // inside the room; the shuffle uses only the first dist of them.
    __m128i run = _mm_shuffle_epi8(_mm_loadu_si128((const __m128i*)src),
                                   _mm_load_si128((const __m128i*)kPeriodic.m[dist]));
    const __m128i advance = _mm_load_si128((const __m128i*)kAdvance.m[dist]);
    // The same three steps before any loop as for far matches.
    _mm_storeu_si128((__m128i*)out, run);
    run = _mm_shuffle_epi8(run, advance);
    _mm_storeu_si128((__m128i*)(out + 16), run);
    run = _mm_shuffle_epi8(run, advance);
    _mm_storeu_si128((__m128i*)(out + 32), run);
    if (ZEM_LIKELY(len <= 48)) return;
    run = _mm_shuffle_epi8(run, advance);
    out += 48;
    do {
        _mm_storeu_si128((__m128i*)out, run);
        run = _mm_shuffle_epi8(run, advance);
        out += 16;
    } while (out < end);
}

// A match (or the part of one that fits) whose start lies before the output buffer: the bytes
// before it come from the caller's circular window, the rest from the output.
ZEM_NOINLINE void copy_from_window(uint8_t* out, size_t before, size_t dist, size_t n, const uint8_t* win,
                                   uint32_t win_size, uint32_t win_idx) {
    size_t pos = win_idx >= before ? win_idx - before : win_idx + win_size - before;
    size_t k = before < n ? before : n;
    size_t first = win_size - pos < k ? win_size - pos : k;
    mem::copy_small(win + pos, out, first);
    mem::copy_small(win, out + first, k - first);
    if (n > k) copy_match_exact(out + k, dist, n - k);
}

// ---- the decoder's own tables for long calls ----
//
// The record's entries spread a symbol over two planes (general) or pack the bits consumed
// with the kind (both), so a length or distance costs a few operations to take apart on the
// chain from one lookup to the next. A call with much to decode first rewrites the record's
// tables into 32-bit entries that the fast loop uses as they are:
//   bits 0-5    bits the lookup consumes, code and extra bits together (shifts take their
//               count modulo 64, so the flag bit above rides along unused)
//   bit 6       not a literal or length: end of block, second-level reference or malformed
//   bits 8-15   literals and lengths: the index width of the table looked up next (literal/
//               length after a literal, distance after a length). With bits 0-7 this is the
//               control word of BEXTR, which takes the next index from the bits before the
//               shift: one operation between a load and the next, not a shift and a mask
//   bits 16-31  lengths: the length (9 bits), and in bits 25-28 the code length, where the
//               extra bits begin, so that the bits above the code length are clear;
//               literals: 1 in bits 16-19 and the index of their distance entry (below) in
//               bits 20-30
//   bit 31      a literal (a sign test)
// Distance entries are 64 bits wide: the low word holds the literal/length width in bits 8-15
// likewise and the code length in bits 16-19, with nothing above it; the high word holds the
// distance, so that one load, on one cache line, brings both. Specials use bits 12 and 13:
//   bit 12      a second-level reference (bits 0-3 its width, bits 16-31 its position)
//   bit 13      the end of block
// Second-level entries are never references again, and anything that the record's decoder
// would refuse becomes bit 6 alone.
//
// A short length without extra bits is usually followed by a distance code short enough that
// both codes lie within the literal/length root's index. The entry at such an index holds the
// whole match, so that the distance's table lookup leaves the chain from one symbol to the next.
// Literals are written alike, as matches of one byte from a distance entry of their own that
// points into a ramp of all byte values, so that both take the same steps:
//   bits 0-5    bits the step takes: codes and the distance's extra bits
//   bits 8-15   the literal/length width, as before
//   bits 16-19  the length: 3 to 10, or 1 for a literal
//   bits 20-30  the index of the distance entry: the distance code's, or kRampEntry + byte
//   bit 31      a step (a sign test)
constexpr uint32_t kFastSpecial = 0x40;
constexpr uint32_t kFastLiteral = 0x80000000u;
// The literal flag, once the whole-match pass has rewritten the length entries.
constexpr uint32_t kFastStep = kFastLiteral;
constexpr uint32_t kFastLenShift = 25;
constexpr uint32_t kFastSub = 0x1000;
constexpr uint32_t kFastEob = 0x2000;
// The general layout's rewritten literal/length root is 11 bits wide, one more than the record's:
// codes of 11 bits, frequent in long blocks, then need no second lookup. Its second-level tables
// follow it, with room for any position and width that a root entry can name.
constexpr uint32_t kFastRootBits = 11;
constexpr uint32_t kFastRootSize = 1u << kFastRootBits;
constexpr uint32_t kFastLitEntries = kFastRootSize + 2 * 255 + 128 + 2;  // a multiple of 8
static_assert(kFastLitEntries % 8 == 0 && kFastRootSize >= 1u << kCompactMaxLit);
// The literals' distance entries follow the real ones: byte b's is at kRampEntry + b, and its
// distance, counted back from the ramp's end, leads to b in the ramp.
constexpr uint32_t kRampEntry = kDistEntries;

struct alignas(32) FastTables {
    uint32_t lit[kFastLitEntries];
    uint64_t dist[kDistEntries + 256];
    // ramp[b] == b, with room for a copy of 16 bytes from any of them.
    uint8_t ramp[256 + 16];
    uint32_t lit_mask, dist_mask;
};

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
// built. True when the code gives literals at least 85% of the root's indexes: the share of
// literals among the block's symbols, as its encoder counted them.
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

// Both return what join_matches does.
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

// ---- the fast loop ----

enum { kFastGoOn, kFastEnd, kFastBad };

struct FastState {
    const uint8_t* in;
    uint8_t* out;
    uint64_t bb;
    uint32_t bc;
};

// Refills that certainly stay within both margins of the fast loops (stops at kFastMinInput
// before the input's end and kFastMinRoom before the output's): each takes at most 8 input
// bytes and the symbols after it write at most kMaxMatch bytes. Counting them down is cheaper
// than testing both margins after every symbol.
ZEM_INLINE size_t safe_refills(const uint8_t* in, const uint8_t* in_stop, const uint8_t* out, const uint8_t* out_stop) {
    const size_t by_in = in < in_stop ? size_t(in_stop - in) / 8 : 0;
    const size_t by_out = out < out_stop ? size_t(out_stop - out) / kMaxMatch : 0;
    return by_in < by_out ? by_in : by_out;
}

// A match of the fast loop that starts before the output buffer: from the window, whole (the
// fast loop's room always covers it). False when there is no such history.
ZEM_NOINLINE bool far_copy(uint8_t* out, uint8_t* hist, uint32_t d, uint32_t mlen, const uint8_t* win,
                           uint32_t win_size, uint32_t win_idx) {
    size_t have = size_t(out - hist);
    if (d == 0 || win == nullptr || d - have > win_size) return false;
    copy_from_window(out, d - have, d, mlen, win, win_size, win_idx);
    return true;
}

// Far from both ends of the buffers: up to three literals per refill, matches copied in whole
// words, and no test of input or room inside a symbol. Its own function, so that its few live
// values stay in registers.
//
// Its refills take fewer bytes than a refill to 57..64 bits before every symbol would; that
// changes nothing a caller sees, since the main loop ends by handing back every whole byte it
// holds (see the end of the main loop).
template <class T>
ZEM_NOINLINE int fast_loop(const T tab, FastState& f, const uint8_t* in_end, uint8_t* out_end, uint8_t* hist,
                           const uint8_t* win, uint32_t win_size, uint32_t win_idx) {
    const uint8_t* in = f.in;
    uint8_t* out = f.out;
    uint64_t bb = f.bb;
    uint32_t bc = f.bc;
    const uint8_t* const in_stop = in_end - kFastMinInput;
    uint8_t* const out_stop = out_end - kFastMinRoom;
    // The count is made again when it runs out.
    auto refills = [&] { return safe_refills(in, in_stop, out, out_stop); };
    size_t budget = refills();
    if (!budget) return kFastGoOn;
    int why = kFastGoOn;
    // Entries are read as an index and a tag (bits and kind); the value byte is fetched only
    // where it is used. A literal's tag is its bit count, so it shifts the buffer as it is.
#define ZEM_REFILL()                 \
    do {                             \
        bb |= load64(in) << bc;      \
        in += (63 - bc) >> 3;        \
        bc |= 56;                    \
    } while (0)
#define ZEM_LOOKUP()             \
    do {                         \
        i = tab.lit_index(bb);   \
        t = tab.tag_at(i);       \
    } while (0)
    // A literal of no bits (an entry no code reaches) takes nothing from the buffer: repeated,
    // it runs into the margins and leaves the entry to the one-symbol loop, which refuses it.
#define ZEM_LITERAL()                \
    do {                             \
        *out++ = tab.val_at(i);      \
        bb >>= t;                    \
        bc -= t;                     \
    } while (0)

    // Whole bytes until 56..63 bits are held; the bits of a partly taken byte above them are
    // read again, in place, by the next refill. A refill leaves 64 valid bits in the buffer
    // and a symbol takes at most 48 of them, so the next entry can be looked up from the 16 or
    // more left before the refill that follows it: the lookup need not wait for the refill.
    ZEM_REFILL();
    size_t i;
    uint32_t t;
    ZEM_LOOKUP();
    for (;;) {
        if (t < 0x10) {
            // 56 bits cover three literals of up to 15 bits; a pair (up to 48 bits) after one
            // or two of them waits for a refill, which leaves the low bits, and t, as they are.
            ZEM_LITERAL();
            ZEM_LOOKUP();
            if (t < 0x10) {
                ZEM_LITERAL();
                ZEM_LOOKUP();
                if (t < 0x10) {
                    ZEM_LITERAL();
                    if (ZEM_UNLIKELY(--budget == 0) && (budget = refills()) == 0) break;
                    ZEM_LOOKUP();
                    ZEM_REFILL();
                    continue;
                }
            }
            if (ZEM_UNLIKELY(--budget == 0) && (budget = refills()) == 0) break;
            ZEM_REFILL();
        }
        if (ZEM_UNLIKELY(t - 0x80 >= 0x60)) {
            if (T::kHasSub && (t & 0xF0) == kKindSubTable) {
                // A long code: its entry is dealt with like any other, without a new refill.
                i = tab.sub_index(t, i, bb);
                t = tab.tag_at(i);
                continue;
            }
            if ((t & 0xF0) == T::kEob) {
                bb >>= t & 15;
                bc -= t & 15;
                why = kFastEnd;
            } else {
                why = kFastBad;
            }
            break;
        }
        // Code and extra bits leave the buffer in one shift; the extra bits are taken from
        // the bits as they were.
        uint32_t n = t & 15, x = (t >> 4) - 8;
        uint64_t saved = bb;
        bb >>= n + x;
        bc -= n + x;
        uint32_t mlen = tab.val_at(i) + 3 + uint32_t(low_bits(saved, n + x) >> n);
        uint32_t d;
        uint32_t kb = tab.dist_entry(bb, d);
        if (ZEM_UNLIKELY(kb > kDistTagMax)) {
            why = kFastBad;
            break;
        }
        n = kb & 15;
        x = kb >> 4;
        saved = bb;
        bb >>= n + x;
        bc -= n + x;
        d += uint32_t(low_bits(saved, n + x) >> n);
        if (ZEM_LIKELY(size_t(d) - 1 < size_t(out - hist))) {
            // The next entry is fetched before the copy, so that its lookup does not wait for
            // the copy's loop to be resolved.
            uint8_t* const dst = out;
            out += mlen;
            if (ZEM_UNLIKELY(--budget == 0) && (budget = refills()) == 0) {
                copy_wide(dst, d, mlen);
                break;
            }
            ZEM_LOOKUP();
            ZEM_REFILL();
            copy_wide(dst, d, mlen);
            continue;
        }
        if (!far_copy(out, hist, d, mlen, win, win_size, win_idx)) {
            why = kFastBad;
            break;
        }
        out += mlen;
        if (ZEM_UNLIKELY(--budget == 0) && (budget = refills()) == 0) break;
        ZEM_LOOKUP();
        ZEM_REFILL();
    }
#undef ZEM_REFILL
#undef ZEM_LOOKUP
#undef ZEM_LITERAL
    f.in = in;
    f.bc = bc;
    f.bb = bb;
    f.out = out;
    return why;
}

// Literal entries of the decoder's own tables (step entries whose distance index is a ramp
// entry's, which only literals have: its bit 10 is set).
constexpr uint32_t kFastLit = 1u << 30;
static_assert(kRampEntry == 1280 && kDistEntries <= kRampEntry && (kRampEntry & 255) == 0);

// The fast loop on the decoder's own tables, each entry used as it comes from the table, for
// `budget` refills at most. Two ways of taking literals and whole matches:
//  - kRuns false: one step for either, without a branch between them to mispredict, two steps
//    per refill. Needs 16 bytes of output behind it (see the step's distance test).
//  - kRuns true: up to three literals per refill, a whole match in a step of its own. Fewer
//    operations per literal where literals come in long runs.
// Other lengths take their distances as in the loop above. The general layout's widths are
// constants, which leaves two more registers to the loop.
template <bool kGeneral, bool kRuns>
ZEM_NOINLINE int fast_loop_own(const FastTables& ft, FastState& f, size_t budget, uint8_t* hist,
                               const uint8_t* win, uint32_t win_size, uint32_t win_idx) {
    const uint8_t* in = f.in;
    uint8_t* out = f.out;
    uint64_t bb = f.bb;
    // Only the low 6 bits of bc count: whole entries are subtracted from it, flags and all. It
    // stays between 8 and 63 here, so those bits are exact.
    uint64_t bc = f.bc;
    // The tables, the ramp included, are addressed from the record as ft.x: a pointer of their
    // own would be hoisted out of the loop and spilled, where a displacement costs nothing.
    const uint32_t* const lit = ft.lit;
    const uint64_t lit_mask = kGeneral ? kFastRootSize - 1 : ft.lit_mask;
    int why = kFastGoOn;
#define ZEM_REFILL()                       \
    do {                                   \
        bb |= load64(in) << (bc & 63);     \
        in += 7 - bextr(bc, 3 | 3 << 8);   \
        bc |= 56;                          \
    } while (0)
#define ZEM_LOOKUP() e = lit[bb & lit_mask]
    // A literal or a whole match: at most 24 bits and one copy of 16 bytes, from the literal's
    // byte in the ramp or from the match's source, chosen by a mask rather than a branch.
    // Matches that this copy cannot serve (closer than their length, or reaching before the
    // output) go out of line. The next entry's index comes from the bits before the shift, so
    // that its load waits for one operation only.
    //
    // The distance test is one compare, len <= d <= room, as d - len <= room - len: exact once
    // the output behind is at least the longest such match (10 bytes), and always true for a
    // literal, whose room is all ones. The loop with runs may start at the output's first byte,
    // and tests both ends.
#define ZEM_STEP()                                                                                       \
    do {                                                                                                 \
        const uint64_t saved = bb;                                                                       \
        bb >>= (e & 63);                                                                                 \
        bc -= e;                                                                                         \
        const uint32_t next = lit[bextr(saved, e)];                                                      \
        const uint64_t len = (e >> 16) & 15;                                                             \
        const uint64_t de = ft.dist[(e >> 20) & 2047];                                                   \
        const uint32_t d = uint32_t(de >> 32) +                                                          \
                           uint32_t(_bzhi_u64(saved >> ((e - de) & 63), de) >> (uint32_t(de) >> 16));   \
        const uint64_t lit_ones = uint64_t(0) - uint64_t(len == 1);                                      \
        const uint64_t from = uint64_t(out) ^ ((uint64_t(out) ^ uint64_t(ft.ramp + 256)) & lit_ones);    \
        const uint64_t room = size_t(out - hist) | lit_ones;                                             \
        if (ZEM_UNLIKELY(kRuns ? size_t(d) - 1 >= room || d < len : d - len > room - len)) {             \
            if (size_t(d) - 1 < size_t(out - hist))                                                      \
                copy_wide(out, d, len);                                                                  \
            else if (!far_copy(out, hist, d, uint32_t(len), win, win_size, win_idx)) {                   \
                why = kFastBad;                                                                          \
                goto stop;                                                                               \
            }                                                                                            \
            out += len;                                                                                  \
            e = next;                                                                                    \
            break;                                                                                       \
        }                                                                                                \
        copy16(out, reinterpret_cast<const uint8_t*>(from) - d);                                         \
        out += len;                                                                                      \
        e = next;                                                                                        \
    } while (0)
#define ZEM_LITERAL()                                  \
    do {                                               \
        const uint32_t next = lit[bextr(bb, e)];       \
        bb >>= (e & 63);                               \
        bc -= e;                                       \
        *out++ = uint8_t(e >> 20);                     \
        e = next;                                      \
    } while (0)
    ZEM_REFILL();
    uint32_t e;
    ZEM_LOOKUP();
    for (;;) {
        if constexpr (kRuns) {
            // A refill leaves 64 valid bits: three literals of up to 15 bits, or a step, and the
            // lookup after them.
            if (e & kFastLit) {
                ZEM_LITERAL();
                if (e & kFastLit) {
                    ZEM_LITERAL();
                    if (e & kFastLit) ZEM_LITERAL();
                }
                if (ZEM_UNLIKELY(--budget == 0)) break;
                ZEM_REFILL();
                continue;
            }
            if (e & kFastStep) {
                ZEM_STEP();
                if (ZEM_UNLIKELY(--budget == 0)) break;
                ZEM_REFILL();
                continue;
            }
        } else {
            // Two steps per refill: it leaves 64 valid bits, enough for two steps and the
            // lookup after them.
            if (e & kFastStep) {
                ZEM_STEP();
                if (e & kFastStep) ZEM_STEP();
                if (ZEM_UNLIKELY(--budget == 0)) break;
                ZEM_REFILL();
                continue;
            }
        }
        if (ZEM_UNLIKELY(e & kFastSpecial)) {
            if (e & kFastSub) {
                e = lit[(e >> 16) + _bzhi_u64(bb >> kRootBits, e & 15)];
                continue;
            }
            if (e & kFastEob) {
                bb >>= (e & 63);
                bc -= e;
                why = kFastEnd;
            } else {
                why = kFastBad;
            }
            break;
        }
        // Code and extra bits leave the buffer in one shift; the extra bits are taken from the
        // bits as they were.
        uint64_t saved = bb;
        bb >>= (e & 63);
        bc -= e;
        size_t di = bextr(saved, e);
        uint64_t de = ft.dist[di];
        uint32_t mlen = ((e >> 16) & 0x1FF) + uint32_t(_bzhi_u64(saved, e) >> (e >> kFastLenShift));
        if (ZEM_UNLIKELY(de & kFastSpecial)) {
            if (de & kFastSub) {
                di = (uint32_t(de) >> 16) + _bzhi_u64(bb >> kRootBits, de & 15);
                de = ft.dist[di];
            }
            if (de & kFastSpecial) {
                why = kFastBad;
                break;
            }
        }
        saved = bb;
        bb >>= (de & 63);
        bc -= de;
        // The next entry straight from the bits before the distance, as after a literal.
        e = lit[bextr(saved, de)];
        uint32_t d = uint32_t(de >> 32) + uint32_t(_bzhi_u64(saved, uint32_t(de)) >> (uint32_t(de) >> 16));
        if (ZEM_LIKELY(size_t(d) - 1 < size_t(out - hist))) {
            uint8_t* const dst = out;
            out += mlen;
            if (ZEM_UNLIKELY(--budget == 0)) {
                copy_wide(dst, d, mlen);
                break;
            }
            ZEM_REFILL();
            copy_wide(dst, d, mlen);
            continue;
        }
        if (!far_copy(out, hist, d, mlen, win, win_size, win_idx)) {
            why = kFastBad;
            break;
        }
        out += mlen;
        if (ZEM_UNLIKELY(--budget == 0)) break;
        ZEM_REFILL();
    }
stop:
#undef ZEM_REFILL
#undef ZEM_LOOKUP
#undef ZEM_STEP
#undef ZEM_LITERAL
    f.in = in;
    f.bc = uint32_t(bc & 63);
    f.bb = bb;
    f.out = out;
    return why;
}

// Rewrites the tables and runs the loops above: worth it only when much is to be decoded. The
// loop with runs serves blocks whose code gives literals at least 85% of the symbols (float
// data, incompressible stretches), where its branch predicts well; the step loop all others.
template <class T>
ZEM_NOINLINE int fast_own(const T& tab, FastState& f, const uint8_t* in_end, uint8_t* out_end, uint8_t* hist,
                          const uint8_t* win, uint32_t win_size, uint32_t win_idx) {
    FastTables ft;
    const bool runs = fast_tables(tab, ft);
    const uint8_t* const in_stop = in_end - kFastMinInput;
    uint8_t* const out_stop = out_end - kFastMinRoom;
    for (;;) {
        size_t n = safe_refills(f.in, in_stop, f.out, out_stop);
        if (n == 0) return kFastGoOn;
        // The step loop's distance test needs 16 bytes of output behind it; until then, runs,
        // a few refills at a time.
        const bool start = f.out - hist < 16;
        if (start && n > 16) n = 16;
        const int r = runs || start ? fast_loop_own<T::kHasSub, true>(ft, f, n, hist, win, win_size, win_idx)
                                    : fast_loop_own<T::kHasSub, false>(ft, f, n, hist, win, win_size, win_idx);
        if (r != kFastGoOn) return r;
    }
}

template <class T>
ZEM_INLINE zemStatus run(const T& tab, const uint8_t** pp_src, uint32_t* p_src_len, uint32_t* p_code, uint32_t* p_bits,
                         uint32_t win_idx, uint8_t** pp_dst, uint32_t* p_dst_len, uint32_t dst_idx, uint32_t* p_mode,
                         zemInflateState* st) {
    const uint8_t* in = *pp_src;
    const uint8_t* const in_end = in + *p_src_len;
    uint8_t* out = *pp_dst;
    uint8_t* const out_end = out + *p_dst_len;
    uint8_t* const hist = out - dst_idx;
    const uint8_t* const win = st->window;
    const uint32_t win_size = st->windowSize;
    uint32_t bc = *p_bits;
    uint64_t bb = low_bits(*p_code, bc);

    uint32_t step = kStepCode, len = 0, ent = 0, dist = 0;
    // The careful loop takes single bytes, and only as many as the step in hand needs.
    auto pull_to = [&](uint32_t n) {
        while (bc < n && in < in_end) {
            bb |= uint64_t(*in++) << bc;
            bc += 8;
        }
        return bc >= n;
    };
    // Adds the pending entry's extra bits to v once they are all there.
    auto take_extra = [&](uint32_t& v) {
        uint32_t x = ent & 15;
        if (!pull_to(x)) return false;
        v += uint32_t(low_bits(bb, x));
        bb >>= x;
        bc -= x;
        return true;
    };
    // Looks a code up with the bits held (at least 11 while input lasts), taking one more byte
    // whenever the entry wants more bits than are held. An entry that the held bits cannot
    // trust counts as a code of the longest length: only bits really held condemn it.
    enum { kFound, kNoInput, kMalformed };
    auto lookup = [&](auto entry_of, auto valid, uint32_t& e, uint32_t& n) {
        pull_to(11);
        for (;;) {
            e = entry_of();
            n = e & 15;
            if (!valid(e)) {
                if (bc >= kMaxCodeBits) return kMalformed;
                n = kMaxCodeBits;
            }
            if (n <= bc) return kFound;
            if (in == in_end) return kNoInput;
            pull_to(bc + 1);
        }
    };
    uint32_t mode = 1;
    zemStatus status = zemStatusOk;
    if (*p_mode == 2) {
        step = st->resume[0];
        len = st->resume[1];
        ent = st->resume[2];
        dist = st->resume[3];
        if (step > kStepCopy) {
            status = zemStatusBadData;
            goto done;
        }
    }

#define ZEM_DROP(n)  \
    do {             \
        bb >>= (n);  \
        bc -= (n);   \
    } while (0)

    for (;;) {
        // ---------------- main loop ----------------
        if (step == kStepCode && in_end - in >= (ptrdiff_t)kMainMinInput && out < out_end) {
            const uint8_t* const in_main = in;
            enum { kGoOn, kEnd, kBad, kPending } why = kGoOn;
            uint32_t e;

            // The length/distance pair of entry e, whose bits are all held: false if malformed.
            auto pair = [&](uint32_t& mlen, uint32_t& d) {
                ZEM_DROP(e & 15);
                uint32_t x = (e >> 4) & 7;
                mlen = (e >> 8) + 3 + uint32_t(low_bits(bb, x));
                ZEM_DROP(x);
                uint32_t kb = tab.dist_entry(bb, d);
                if (ZEM_UNLIKELY(kb > kDistTagMax)) return false;
                ZEM_DROP(kb & 15);
                x = kb >> 4;
                d += uint32_t(low_bits(bb, x));
                ZEM_DROP(x);
                return true;
            };
            // A match that reaches before the output buffer, or that the room cuts short.
            auto careful_copy = [&](uint32_t mlen, uint32_t d) {
                size_t have = size_t(out - hist), room = size_t(out_end - out);
                size_t n = mlen < room ? mlen : room;
                if (size_t(d) - 1 < have) {
                    copy_match_exact(out, d, n);
                } else {
                    if (d == 0 || win == nullptr || d - have > win_size) return kBad;
                    copy_from_window(out, d - have, d, n, win, win_size, win_idx);
                }
                out += n;
                if (n == mlen) return kGoOn;
                len = uint32_t(mlen - n);
                dist = d;
                step = kStepCopy;
                return kPending;
            };

            if (in_end - in >= (ptrdiff_t)kFastMinInput && out_end - out >= (ptrdiff_t)kFastMinRoom) {
                FastState f{in, out, bb, bc};
                int r = in_end - in >= (ptrdiff_t)kOwnTablesMinInput && out_end - out >= (ptrdiff_t)kOwnTablesMinRoom
                            ? fast_own(tab, f, in_end, out_end, hist, win, win_size, win_idx)
                            : fast_loop(tab, f, in_end, out_end, hist, win, win_size, win_idx);
                in = f.in;
                out = f.out;
                bb = f.bb;
                bc = f.bc;
                why = r == kFastEnd ? kEnd : r == kFastBad ? kBad : kGoOn;
            }

            // One symbol per refill up to the last byte of room or the last 16 of input.
            if (why == kGoOn) {
                while (in_end - in >= (ptrdiff_t)kMainMinInput && out < out_end) {
                    bb |= load64(in) << bc;
                    in += (63 - bc) >> 3;
                    bc |= 56;
                    e = tab.lit_entry(bb);
                    if (ZEM_LIKELY(is_literal(e))) {
                        if (ZEM_UNLIKELY((e & 15) == 0)) {
                            why = kBad;
                            break;
                        }
                        ZEM_DROP(e & 15);
                        *out++ = uint8_t(e >> 8);
                        continue;
                    }
                    if (ZEM_UNLIKELY(!is_length(e))) {
                        why = (e & 0xF0) == T::kEob ? kEnd : kBad;
                        if (why == kEnd) ZEM_DROP(e & 15);
                        break;
                    }
                    uint32_t mlen, d;
                    if (ZEM_UNLIKELY(!pair(mlen, d))) {
                        why = kBad;
                        break;
                    }
                    if (ZEM_LIKELY(size_t(d) - 1 < size_t(out - hist) && size_t(out_end - out) >= mlen + kCopySlack)) {
                        copy_wide(out, d, mlen);
                        out += mlen;
                        continue;
                    }
                    why = careful_copy(mlen, d);
                    if (why != kGoOn) break;
                }
            }

            // Hand whole bytes back, as many as the bits held allow but no more than this loop
            // took, so that what is held fits the caller's 32-bit word. A loop that refilled
            // to 57..64 bits before every symbol would hold 9 or more bits here (a symbol takes
            // at most 48) and end in exactly this state: the bytes it took beyond ours are
            // given back too. So how often the loops above refill is their own business.
            {
                size_t k = bc >> 3, loaded = size_t(in - in_main);
                if (k > loaded) k = loaded;
                in -= k;
                bc -= uint32_t(8 * k);
            }
            bb = low_bits(bb, bc);
            if (why == kEnd) {
                mode = 0;
                goto done;
            }
            if (why == kBad) {
                status = zemStatusBadData;
                goto done;
            }
            if (why == kPending) {
                mode = 2;
                goto done;
            }
        }

        // ---------------- careful loop: one step ----------------
        switch (step) {
            case kStepCode: {
                uint32_t e, n;
                int got = lookup([&] { return tab.lit_entry(bb); },
                                 [](uint32_t v) {
                                     return (v & 15) != 0 && (is_literal(v) || is_length(v) || (v & 0xF0) == T::kEob);
                                 },
                                 e, n);
                if (got != kFound) {
                    mode = 1;
                    status = got == kMalformed ? zemStatusBadData : zemStatusOk;
                    goto done;
                }
                if ((e & 0xF0) == T::kEob) {
                    ZEM_DROP(n);
                    mode = 0;
                    goto done;
                }
                if (out == out_end) {
                    // Nothing taken: the code is decoded again when room comes.
                    mode = 2;
                    goto done;
                }
                ZEM_DROP(n);
                if (is_literal(e)) {
                    *out++ = uint8_t(e >> 8);
                    continue;
                }
                len = (e >> 8) + 3;
                ent = (e >> 4) & 7;
                step = kStepLenExtra;
            }
                [[fallthrough]];
            case kStepLenExtra:
                if (!take_extra(len)) {
                    mode = 2;
                    goto done;
                }
                step = kStepDist;
                [[fallthrough]];
            case kStepDist: {
                uint32_t kb, n, base = 0;
                int got = lookup([&] { return tab.dist_entry(bb, base); }, [](uint32_t v) { return v <= kDistTagMax; },
                                 kb, n);
                if (got != kFound) {
                    mode = 2;
                    status = got == kMalformed ? zemStatusBadData : zemStatusOk;
                    goto done;
                }
                ZEM_DROP(n);
                ent = kb >> 4;
                dist = base;
                step = kStepDistExtra;
            }
                [[fallthrough]];
            case kStepDistExtra:
                if (!take_extra(dist)) {
                    mode = 2;
                    goto done;
                }
                step = kStepCopy;
                [[fallthrough]];
            case kStepCopy: {
                size_t have = size_t(out - hist);
                size_t room = size_t(out_end - out);
                size_t n = len < room ? len : room;
                if (size_t(dist) - 1 < have) {
                    copy_match_exact(out, dist, n);
                } else {
                    if (dist == 0 || win == nullptr || dist - have > win_size) {
                        status = zemStatusBadData;
                        goto done;
                    }
                    copy_from_window(out, dist - have, dist, n, win, win_size, win_idx);
                }
                out += n;
                len -= uint32_t(n);
                if (len) {
                    mode = 2;
                    goto done;
                }
                step = kStepCode;
                break;
            }
        }
    }
#undef ZEM_DROP

done:
    *pp_src = in;
    *p_src_len = uint32_t(in_end - in);
    *p_code = uint32_t(bb);
    *p_bits = bc;
    *pp_dst = out;
    *p_dst_len = uint32_t(out_end - out);
    if (status == zemStatusOk) {
        *p_mode = mode;
        if (mode == 2) {
            st->resume[0] = step;
            st->resume[1] = len;
            st->resume[2] = ent;
            st->resume[3] = dist;
        }
    }
    return status;
}

}  // namespace

zemStatus decode(const uint8_t** pp_src, uint32_t* p_src_len, uint32_t* p_code, uint32_t* p_bits, uint32_t win_idx,
                 uint8_t** pp_dst, uint32_t* p_dst_len, uint32_t dst_idx, uint32_t* p_mode, zemInflateState* st) {
    if (st->tableKind == 2)
        return run(CompactTables(st), pp_src, p_src_len, p_code, p_bits, win_idx, pp_dst, p_dst_len, dst_idx, p_mode,
                   st);
    const GeneralTablesView g{st->tableKind == 0 ? &kFixedTables : general(st)};
    return run(g, pp_src, p_src_len, p_code, p_bits, win_idx, pp_dst, p_dst_len, dst_idx, p_mode, st);
}

}  // namespace zem::inflate

ZEM_API zemStatus zemsInflate_8u(const uint8_t** ppSrc, uint32_t* pSrcLen, uint32_t* pCode, uint32_t* pCodeLenBits,
                                 uint32_t winIdx, uint8_t** ppDst, uint32_t* pDstLen, uint32_t dstIdx,
                                 uint32_t* pMode, zemInflateState* state) {
    if (zem::any_null(ppSrc, pSrcLen, pCode, pCodeLenBits, ppDst, pDstLen, pMode, state)) return zemStatusNullPtr;
    if (*ppSrc == nullptr || *ppDst == nullptr) return zemStatusNullPtr;
    if (*pCodeLenBits > 32 || winIdx > state->windowSize) return zemStatusSize;
    if (state->tableKind > 2) return zemStatusBadData;
    return zem::inflate::decode(ppSrc, pSrcLen, pCode, pCodeLenBits, winIdx, ppDst, pDstLen, dstIdx, pMode, state);
}
