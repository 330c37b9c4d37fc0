// What the inflate decoder's loops share: the bit-buffer budgets and margins, the views of the
// record's tables, and the match copies that may write past a match.
#pragma once

#include <immintrin.h>
#include <stddef.h>
#include <stdint.h>

#include "core/bytes.h"
#include "core/match_copy.h"
#include "core/mem.h"
#include "deflate/inflate_tables.h"

namespace zem::inflate {

// ---- budgets ----

// A code of the longest length that any table can hold; an entry that the held bits cannot
// trust is treated as needing this many.
inline constexpr uint32_t kMaxCodeBits = 15;
inline constexpr uint32_t kMaxLengthExtra = 5;
inline constexpr uint32_t kMaxDistExtra = 13;
// A length/distance pair, codes and extra bits.
inline constexpr uint32_t kMaxPairBits = kMaxCodeBits + kMaxLengthExtra + kMaxCodeBits + kMaxDistExtra;
// A branch-free refill loads a word at the input and takes whole bytes until 56..63 bits are
// held; the bits of a partly taken byte above them stay valid, so 64 bits can be used.
inline constexpr size_t kRefillBytes = sizeof(uint64_t);
inline constexpr uint32_t kRefillMinBits = 56;
inline constexpr uint32_t kRefillValidBits = 64;
// The widest root index that a lookup takes from the bits held.
inline constexpr uint32_t kMaxRootBits = 11;
static_assert(kMaxRootBits >= kRootBits && kMaxRootBits >= kCompactMaxLit);
// One refill covers a whole pair: no step inside the main loop tests for input.
static_assert(kMaxPairBits <= kRefillMinBits);
// Three literals per refill in the fast loop.
static_assert(3 * kMaxCodeBits <= kRefillMinBits);
// After a pair, the next root lookup still finds its bits: it need not wait for the refill.
static_assert(kRefillValidBits - kMaxPairBits >= kMaxRootBits);

// The longest match an entry can describe: a value byte as length base minus 3, and the most
// extra bits.
inline constexpr size_t kMaxMatch = 255 + 3 + (1u << kMaxLengthExtra) - 1;
static_assert(kMaxMatch == 289);

// copy_wide's stores: three of 16 bytes before any loop, then turns of at most 32 bytes, the
// last of which starts before the match's end.
inline constexpr size_t kWideHead = 48;
inline constexpr size_t kWideOvershoot = 31;
static_assert(kWideHead == 3 * 16);
// The most bytes past out that copy_wide writes for a match of len bytes.
constexpr size_t wide_extent(size_t len) { return len > kWideHead ? len + kWideOvershoot : kWideHead; }

// The main loop's margin of input: every refill loads a whole word.
inline constexpr size_t kMainMinInput = 16;
static_assert(kMainMinInput >= kRefillBytes);
// The fast loops' margins: input for whole refills, and room for the longest match with its
// wide copy.
inline constexpr size_t kFastMinInput = 32;
inline constexpr size_t kFastMinRoom = wide_extent(kMaxMatch);
static_assert(kFastMinInput >= kRefillBytes && kFastMinRoom == 320);

// (v >> ctl[7:0]) & ((1 << ctl[15:8]) - 1) in one operation.
ZEM_INLINE uint64_t bextr(uint64_t v, uint64_t ctl) { return __builtin_ia32_bextr_u64(v, ctl); }

// BZHI keeps every bit for n of 64 or more.
ZEM_INLINE uint64_t low_bits(uint64_t v, uint32_t n) { return _bzhi_u64(v, n); }

// The refill of the record's loops: whole bytes until 56..63 bits are held.
ZEM_INLINE void refill(const uint8_t*& in, uint64_t& bb, uint32_t& bc) {
    bb |= load64(in) << bc;
    in += (63 - bc) >> 3;
    bc |= 56;
}

// Literal/length entries: kind 0 is a literal, 8..13 a length with 0..5 extra bits.
ZEM_INLINE bool is_literal(uint32_t e) { return (e & 0xF0) == 0; }
ZEM_INLINE bool is_length(uint32_t e) { return uint32_t(uint8_t(e)) - 0x80 < 0x60; }

// ---- the record's tables ----

// What a compact record without distance codes decodes its distances from: the builder leaves
// that part of the record as it was, so a length there would take a stale or random distance.
// One malformed entry instead (eight, for the table rewriter's groups), whatever the record held.
struct NoDistance {
    uint8_t kind[8];
    uint16_t base[8];
};
inline constexpr NoDistance kNoDistance = {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, {}};
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

// ---- match copies ----

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
inline constexpr ShuffleMasks kPeriodic = make_periodic();
inline constexpr ShuffleMasks kAdvance = make_advance();

// The match copy of the main loops: 16 bytes a step, writing scratch up to wide_extent(len)
// bytes past out, which the caller's room allows. No wider vectors: they would make
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
        if (ZEM_LIKELY(len <= kWideHead)) return;
        out += kWideHead;
        src += kWideHead;
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
    if (ZEM_LIKELY(len <= kWideHead)) return;
    run = _mm_shuffle_epi8(run, advance);
    out += kWideHead;
    do {
        _mm_storeu_si128((__m128i*)out, run);
        run = _mm_shuffle_epi8(run, advance);
        out += 16;
    } while (out < end);
}

// A match (or the part of one that fits) whose start lies before the output buffer: the bytes
// before it come from the caller's circular window, the rest from the output.
ZEM_NOINLINE inline void copy_from_window(uint8_t* out, size_t before, size_t dist, size_t n,
                                          const uint8_t* win, uint32_t win_size, uint32_t win_idx) {
    size_t pos = win_idx >= before ? win_idx - before : win_idx + win_size - before;
    size_t k = before < n ? before : n;
    size_t first = win_size - pos < k ? win_size - pos : k;
    mem::copy_small(win + pos, out, first);
    mem::copy_small(win, out + first, k - first);
    if (n > k) copy_match_exact(out + k, dist, n - k);
}

// A match of the fast loops that starts before the output buffer: from the window, whole (the
// fast loops' room always covers it). False when there is no such history.
ZEM_NOINLINE inline bool far_copy(uint8_t* out, uint8_t* hist, uint32_t d, uint32_t mlen, const uint8_t* win,
                                  uint32_t win_size, uint32_t win_idx) {
    size_t have = size_t(out - hist);
    if (d == 0 || win == nullptr || d - have > win_size) return false;
    copy_from_window(out, d - have, d, mlen, win, win_size, win_idx);
    return true;
}

}  // namespace zem::inflate
