// The inflate table builder: validates a block's code lengths and writes the decoding tables
// into the caller's state, in the compact one-level layout when the codes are short enough for
// one lookup per symbol, in the general two-level layout otherwise. The general builder is
// constexpr so that the fixed code's table is computed by the compiler from the same code.
#include <immintrin.h>

#include <type_traits>

#include "core/mem.h"
#include "deflate/inflate_tables.h"

namespace zem::inflate {

namespace {

constexpr uint32_t kMaxLen = 15;

struct Rev8 {
    uint8_t v[256];
};
constexpr Rev8 make_rev8() {
    Rev8 t{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t r = 0;
        for (uint32_t b = 0; b < 8; ++b) r |= ((i >> b) & 1u) << (7 - b);
        t.v[i] = uint8_t(r);
    }
    return t;
}
constexpr Rev8 kRev8 = make_rev8();

// Codes of up to 10 bits, nearly all of a block's, reverse with one lookup.
struct Rev10 {
    uint16_t v[1u << kRootBits];
};
constexpr Rev10 make_rev10() {
    Rev10 t{};
    for (uint32_t i = 0; i < (1u << kRootBits); ++i)
        t.v[i] = uint16_t((uint32_t(kRev8.v[i & 0xff]) << 8 | kRev8.v[i >> 8]) >> (16 - kRootBits));
    return t;
}
constexpr Rev10 kRev10 = make_rev10();

// The code read least significant bit first: the first bit of the code ends up in bit 0.
constexpr uint32_t reverse(uint32_t code, uint32_t len) {
    if (len <= kRootBits) return uint32_t(kRev10.v[code & ((1u << kRootBits) - 1)]) >> (kRootBits - len);
    uint32_t r16 = uint32_t(kRev8.v[code & 0xff]) << 8 | kRev8.v[(code >> 8) & 0xff];
    return r16 >> (16 - len);
}

// Lengths above 15 cannot be told by the caller; masking keeps every index in range anyway.
constexpr uint32_t len_of(const uint16_t* lens, uint32_t s) { return lens[s] & 15u; }

struct Code {
    uint16_t count[16];
    uint16_t next[16];  // first canonical code of each length
    uint32_t max;
};

constexpr void count_lengths(const uint16_t* lens, uint32_t n, Code& c) {
    // Four sets of counters: runs of equal lengths would otherwise chain every increment to
    // the store of the one before.
    uint16_t part[4][16] = {};
    uint32_t s = 0;
    for (; s + 4 <= n; s += 4)
        for (uint32_t k = 0; k < 4; ++k) part[k][len_of(lens, s + k)]++;
    for (; s < n; ++s) part[0][len_of(lens, s)]++;
    for (uint32_t l = 0; l < 16; ++l) c.count[l] = uint16_t(part[0][l] + part[1][l] + part[2][l] + part[3][l]);
    c.count[0] = 0;
    c.max = 0;
    for (uint32_t l = kMaxLen; l >= 1; --l)
        if (c.count[l]) {
            c.max = l;
            break;
        }
}

// Over-subscribed and incomplete codes are refused, except the single code of length 1.
constexpr bool valid(const Code& c) {
    uint32_t min = 1;
    while (c.count[min] == 0) ++min;
    uint32_t left = 0;
    for (uint32_t l = min; l <= c.max; ++l) {
        left = 2 * left + c.count[l];
        if (left > (1u << l)) return false;
    }
    return left == (1u << c.max) || (c.max == 1 && left == 1);
}

constexpr void first_codes(Code& c) {
    uint32_t code = 0;
    c.next[0] = 0;
    for (uint32_t l = 1; l <= kMaxLen; ++l) {
        code = (code + (l > 1 ? c.count[l - 1] : 0)) << 1;
        c.next[l] = uint16_t(code);
    }
}

// A symbol of the literal/length alphabet as the decoder sees it: kind bits, extra bits and
// value. 286 and 287 never occur in a valid stream; they read as the literal 0.
struct LitSym {
    uint8_t kind;
    uint8_t extra;
    uint8_t value;
};
constexpr LitSym lit_sym(uint32_t s, uint8_t eob_kind) {
    if (s < 256) return {kKindLiteral, 0, uint8_t(s)};
    if (s == 256) return {eob_kind, 0, 0};
    if (s <= 285) return {kKindLength, kLengthExtra[s - 257], uint8_t(kLengthBase[s - 257] - 3)};
    return {kKindLiteral, 0, 0};
}

// ---- general layout ----

// One alphabet of the general layout: the root and its second-level tables. Entries of up to
// 10 bits are replicated over the root, with the extra bits folded in where they fit; longer
// codes go to a second-level table per 10-bit prefix, as wide as its longest code needs.
template <class Put, class Ref>
constexpr void build_two_level(const uint16_t* lens, uint32_t n, Code c, uint32_t first_sub, Put put, Ref ref) {
    first_codes(c);
    // Codes of up to 10 bits go to the root at once; the longer ones wait until the widths of
    // their second-level tables are known. Filled before they are read (the others only with
    // long codes), so they are not cleared: that would cost more than a block's build
    // otherwise does.
    uint8_t sub_width[kRootSize];
    uint16_t sub_pos[kRootSize];
    uint16_t prefixes[288];  // the 10-bit prefixes of long codes, each once
    uint16_t long_sym[288], long_rev[288];
    uint32_t n_prefixes = 0, n_long = 0;
    if (c.max > kRootBits)
        for (auto& w : sub_width) w = 0;
    for (uint32_t s = 0; s < n; ++s) {
        uint32_t l = len_of(lens, s);
        if (!l) continue;
        uint32_t r = reverse(c.next[l]++, l);
        if (l <= kRootBits) {
            put(s, r, l, 0u, kRootSize);
            continue;
        }
        long_sym[n_long] = uint16_t(s);
        long_rev[n_long++] = uint16_t(r);
        uint32_t p = r & (kRootSize - 1);
        if (!sub_width[p]) prefixes[n_prefixes++] = uint16_t(p);
        if (l - kRootBits > sub_width[p]) sub_width[p] = uint8_t(l - kRootBits);
    }
    uint32_t pos = first_sub;
    for (uint32_t k = 0; k < n_prefixes; ++k) {
        uint32_t p = prefixes[k];
        sub_pos[p] = uint16_t(pos);
        ref(p, pos, sub_width[p]);
        pos += 1u << sub_width[p];
    }
    for (uint32_t k = 0; k < n_long; ++k) {
        uint32_t s = long_sym[k], r = long_rev[k], l = len_of(lens, s);
        uint32_t p = r & (kRootSize - 1);
        uint32_t w = sub_width[p];
        for (uint32_t i = r >> kRootBits; i < (1u << w); i += 1u << (l - kRootBits)) put(s, 0u, l, sub_pos[p] + i, 0u);
    }
}

// Spreading: with every code of up to 10 bits written once, at its reversed code (folded
// lengths once per extra-bit value), entry i of the root belongs to the code that ends the
// bits of i, which for an unwritten i is that of i less its highest bit. So each half-open
// range [2^k, 2^(k+1)) takes the entries of [0, 2^k) wherever it holds none of its own: about
// a thousand entries in wide blocks, instead of replicating each code at its stride. This
// needs a complete code; the one incomplete code accepted leaves half of the root empty.
template <class V>
ZEM_INLINE void spread_scalar(uint8_t* tag, V* val, uint32_t from, uint32_t to) {
    for (uint32_t i = from; i < to; ++i)
        if (!tag[i]) {
            uint32_t j = i - from;
            tag[i] = tag[j];
            val[i] = val[j];
        }
}

void spread_lit(uint8_t* tag, uint8_t* val) {
    for (uint32_t k = 1; k < 32; k <<= 1) spread_scalar(tag, val, k, 2 * k);
    for (uint32_t k = 32; k < kRootSize; k <<= 1)
        for (uint32_t i = k; i < 2 * k; i += 32) {
            const __m256i t = _mm256_loadu_si256((const __m256i*)(tag + i));
            const __m256i empty = _mm256_cmpeq_epi8(t, _mm256_setzero_si256());
            const __m256i lt = _mm256_loadu_si256((const __m256i*)(tag + i - k));
            const __m256i lv = _mm256_loadu_si256((const __m256i*)(val + i - k));
            _mm256_storeu_si256((__m256i*)(tag + i), _mm256_blendv_epi8(t, lt, empty));
            _mm256_storeu_si256((__m256i*)(val + i),
                                _mm256_blendv_epi8(_mm256_loadu_si256((const __m256i*)(val + i)), lv, empty));
        }
}

void spread_dist(uint8_t* tag, uint16_t* val) {
    for (uint32_t k = 1; k < 16; k <<= 1) spread_scalar(tag, val, k, 2 * k);
    for (uint32_t k = 16; k < kRootSize; k <<= 1)
        for (uint32_t i = k; i < 2 * k; i += 16) {
            const __m128i t = _mm_loadu_si128((const __m128i*)(tag + i));
            const __m128i empty = _mm_cmpeq_epi8(t, _mm_setzero_si128());
            _mm_storeu_si128((__m128i*)(tag + i), _mm_blendv_epi8(t, _mm_loadu_si128((const __m128i*)(tag + i - k)), empty));
            const __m256i empty16 = _mm256_cvtepi8_epi16(empty);
            const __m256i v = _mm256_loadu_si256((const __m256i*)(val + i));
            const __m256i lv = _mm256_loadu_si256((const __m256i*)(val + i - k));
            _mm256_storeu_si256((__m256i*)(val + i), _mm256_blendv_epi8(v, lv, empty16));
        }
}

// spread: write root codes once and spread them afterwards (complete codes, at run time);
// otherwise replicate each at its stride (the fixed code at compile time, the incomplete code).
constexpr void build_general(const uint16_t* lens, uint32_t n_lit, uint32_t n_dist, const Code& lc, const Code& dc,
                             bool spread_lit_root, bool spread_dist_root, GeneralTables& g) {
    // put(symbol, reversed code, length, index, root size): with a root size, place the code in
    // the root from its reversed code; without, write the one second-level entry at index.
    auto put_lit = [&g, spread_lit_root](uint32_t s, uint32_t r, uint32_t l, uint32_t idx, uint32_t root) {
        LitSym y = lit_sym(s, kKindEobGeneral);
        if (!root) {
            g.lit_val[idx] = y.value;
            g.lit_tag[idx] = uint8_t(y.kind | y.extra << 4 | l);
            return;
        }
        // Spread roots take each code once, at its reversed code.
        if (y.extra && l + y.extra <= kRootBits) {
            uint32_t lt = l + y.extra;
            for (uint32_t x = 0; x < (1u << y.extra); ++x)
                for (uint32_t i = r | x << l; i < (spread_lit_root ? (r | x << l) + 1 : root); i += 1u << lt) {
                    g.lit_val[i] = uint8_t(y.value + x);
                    g.lit_tag[i] = uint8_t(kKindLength | lt);
                }
            return;
        }
        for (uint32_t i = r; i < (spread_lit_root ? r + 1 : root); i += 1u << l) {
            g.lit_val[i] = y.value;
            g.lit_tag[i] = uint8_t(y.kind | y.extra << 4 | l);
        }
    };
    auto ref_lit = [&g](uint32_t p, uint32_t pos, uint32_t w) {
        g.lit_val[p] = uint8_t((pos - kRootSize) >> 1);
        g.lit_tag[p] = uint8_t(kKindSubTable | w);
    };
    build_two_level(lens, n_lit, lc, kRootSize, put_lit, ref_lit);
    if (spread_lit_root && !std::is_constant_evaluated()) spread_lit(g.lit_tag, g.lit_val);
    if (!n_dist) return;
    const uint16_t* dl = lens + n_lit;
    auto put_dist = [&g, spread_dist_root](uint32_t s, uint32_t r, uint32_t l, uint32_t idx, uint32_t root) {
        uint32_t e = kDistExtra[s], base = kDistBase[s];
        if (!root) {
            g.dist_val[idx] = uint16_t(base);
            g.dist_tag[idx] = uint8_t(e << 4 | l);
            return;
        }
        if (e && l + e <= kRootBits) {
            uint32_t lt = l + e;
            for (uint32_t x = 0; x < (1u << e); ++x)
                for (uint32_t i = r | x << l; i < (spread_dist_root ? (r | x << l) + 1 : root); i += 1u << lt) {
                    g.dist_val[i] = uint16_t(base + x);
                    g.dist_tag[i] = uint8_t(lt);
                }
            return;
        }
        for (uint32_t i = r; i < (spread_dist_root ? r + 1 : root); i += 1u << l) {
            g.dist_val[i] = uint16_t(base);
            g.dist_tag[i] = uint8_t(e << 4 | l);
        }
    };
    auto ref_dist = [&g](uint32_t p, uint32_t pos, uint32_t w) {
        g.dist_val[p] = uint16_t(pos);
        g.dist_tag[p] = uint8_t(kDistSubTable | w);
    };
    build_two_level(dl, n_dist, dc, kRootSize, put_dist, ref_dist);
    if (spread_dist_root && !std::is_constant_evaluated()) spread_dist(g.dist_tag, g.dist_val);
}

constexpr GeneralTables make_fixed() {
    GeneralTables g{};
    uint16_t lens[288 + 30] = {};
    for (uint32_t s = 0; s < 288; ++s) lens[s] = s < 144 ? 8 : s < 256 ? 9 : s < 280 ? 7 : 8;
    for (uint32_t s = 0; s < 30; ++s) lens[288 + s] = 5;
    Code lc{}, dc{};
    count_lengths(lens, 288, lc);
    count_lengths(lens + 288, 30, dc);
    build_general(lens, 288, 30, lc, dc, false, false, g);
    return g;
}

// ---- compact layout ----

// Writes e at every index that begins with the reversed code r of length l.
template <class T>
ZEM_INLINE void replicate(T* t, uint32_t r, uint32_t l, uint32_t size, T e) {
    for (uint32_t i = r; i < size; i += 1u << l) t[i] = e;
}

zemStatus build_compact(const uint16_t* lens, uint32_t n_lit, uint32_t n_dist, Code& lc, Code& dc,
                        zemInflateState* st) {
    // The widths and the kind go in first: a failure below leaves them set.
    st->litBits = lc.max;
    st->distBits = dc.max;
    st->tableKind = 2;
    first_codes(lc);
    if (n_lit < 257) return zemStatusBadData;
    uint16_t* lt = compact_lit(st);
    const uint32_t lsize = 1u << lc.max;
    for (uint32_t s = 0; s < 256; ++s) {
        uint32_t l = len_of(lens, s);
        if (l) replicate<uint16_t>(lt, reverse(lc.next[l]++, l), l, lsize, uint16_t(s << 8 | l));
    }
    uint32_t l = len_of(lens, 256);
    if (!l) return zemStatusBadData;
    replicate<uint16_t>(lt, reverse(lc.next[l]++, l), l, lsize, uint16_t(kKindEobCompact | l));
    for (uint32_t s = 257; s < n_lit; ++s) {
        l = len_of(lens, s);
        if (!l) continue;
        LitSym y = lit_sym(s, kKindEobCompact);
        replicate<uint16_t>(lt, reverse(lc.next[l]++, l), l, lsize, uint16_t(y.value << 8 | y.kind | y.extra << 4 | l));
    }
    if (n_dist) {
        first_codes(dc);
        uint8_t* dk = compact_dist_kind(st, lc.max);
        uint16_t* db = compact_dist_base(st, lc.max);
        const uint32_t dsize = 1u << dc.max;
        const uint16_t* dl = lens + n_lit;
        for (uint32_t s = 0; s < n_dist; ++s) {
            l = len_of(dl, s);
            if (!l) continue;
            uint32_t r = reverse(dc.next[l]++, l);
            replicate<uint8_t>(dk, r, l, dsize, uint8_t(kDistExtra[s] << 4 | l));
            replicate<uint16_t>(db, r, l, dsize, kDistBase[s]);
        }
    }
    return zemStatusOk;
}

}  // namespace

constexpr GeneralTables kFixedTables = make_fixed();

zemStatus build(const uint16_t* lens, uint32_t n_lit, uint32_t n_dist, zemInflateState* st) {
    Code lc, dc;
    count_lengths(lens, n_lit, lc);
    if (lc.max == 0 || !valid(lc)) return zemStatusBadData;
    count_lengths(lens + n_lit, n_dist, dc);
    if (dc.max != 0 && !valid(dc)) return zemStatusBadData;
    if (lc.max <= kCompactMaxLit && dc.max <= kCompactMaxDist) return build_compact(lens, n_lit, n_dist, lc, dc, st);
    st->tableKind = 1;
    MemZero(st->tables, int32_t(sizeof(GeneralTables)));
    // Only one code of length 1 is incomplete among those accepted.
    build_general(lens, n_lit, n_dist, lc, dc, lc.max > 1, dc.max > 1, *general(st));
    return zemStatusOk;
}

}  // namespace zem::inflate

ZEM_API zemStatus zemsInflateBuildHuffTable(const uint16_t* codeLens, uint32_t nLitCodes, uint32_t nDistCodes,
                                            zemInflateState* state) {
    if (zem::any_null(codeLens, state)) return zemStatusNullPtr;
    if (nLitCodes > 288 || nDistCodes > 30) return zemStatusSize;
    return zem::inflate::build(codeLens, nLitCodes, nDistCodes, state);
}
