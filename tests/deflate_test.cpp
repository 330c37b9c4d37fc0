// Deflate compression primitives: the hash upkeep and the Huffman emission against small models,
// the code and header generators through zlib, and the match finders on clean and garbage tables.
#include "deflate/deflate_match.h"
#include "test_util.h"

using Table = std::vector<uint32_t>;

namespace {

// ---- models ----

uint32_t crc32c_model(const uint8_t* p) {
    uint32_t c = 0;
    for (int i = 0; i < 4; ++i) {
        c ^= p[i];
        for (int k = 0; k < 8; ++k) c = c & 1 ? (c >> 1) ^ 0x82F63B78u : c >> 1;
    }
    return c;
}

void fast_model(const uint8_t* p, uint32_t base, uint32_t count, Table& head) {
    uint32_t h = uint32_t(p[0]) << 5 ^ p[1], mask = uint32_t(head.size() - 1);
    for (uint32_t i = 0; i < count; ++i) {
        h = ((h << 5) ^ p[i + 2]) & mask;
        head[h] = base + i;
    }
}

void chained_model(const uint8_t* p, uint32_t base, uint32_t count, Table& head, Table& prev, bool masked) {
    for (uint32_t i = 0; i < count; ++i) {
        uint32_t h = crc32c_model(p + i) & uint32_t(head.size() - 1), pos = base + i;
        prev[masked ? pos & (prev.size() - 1) : pos] = head[h];
        head[h] = pos;
    }
}

Table garbage(size_t n, uint64_t seed) {
    zt::Rng r(seed);
    Table t(n);
    for (auto& v : t) v = uint32_t(r.next());
    return t;
}

constexpr uint16_t kLenBase[29] = {3,  4,  5,  6,  7,  8,  9,  10, 11,  13,  15,  17,  19,  23, 27,
                                   31, 35, 43, 51, 59, 67, 83, 99, 115, 131, 163, 195, 227, 258};
constexpr uint16_t kDistBase[30] = {1,    2,    3,    4,    5,    7,    9,    13,    17,    25,
                                    33,   49,   65,   97,   129,  193,  257,  385,   513,   769,
                                    1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577};

uint32_t len_code(uint32_t len) {
    uint32_t c = 0;
    while (c < 27 && kLenBase[c + 1] <= len) ++c;
    return len == 258 ? 28 : c;
}
uint32_t dist_code(uint32_t d) {
    uint32_t s = 0;
    while (s < 29 && kDistBase[s + 1] <= d) ++s;
    return s;
}

// The emission by the RFC's tables searched linearly.
void emit_model(zt::LsbBits& m, const Bytes& ll, const std::vector<uint16_t>& dist, const zemDeflateHuffCode* lc,
                const zemDeflateHuffCode* dc) {
    for (size_t i = 0; i < ll.size(); ++i) {
        if (!dist[i]) {
            m.put(lc[ll[i]].code, lc[ll[i]].len);
            continue;
        }
        const uint32_t len = ll[i] + 3u, c = len_code(len), s = dist_code(dist[i]);
        m.put(lc[257 + c].code, lc[257 + c].len);
        m.put(len - kLenBase[c], c >= 8 && c < 28 ? (c - 4) / 4 : 0);
        m.put(dc[s].code, dc[s].len);
        m.put(dist[i] - kDistBase[s], s < 4 ? 0 : s / 2 - 1);
    }
}

// Random valid records: literals, and matches reaching back into what they produce.
void random_records(size_t n, uint64_t seed, Bytes& ll, std::vector<uint16_t>& dist, Bytes* expanded = nullptr) {
    zt::Rng r(seed);
    Bytes out;
    for (size_t i = 0; i < n; ++i) {
        if (out.size() < 4 || r.below(3) == 0) {
            uint8_t b = uint8_t(r.below(7) == 0 ? r.next() : 'a' + r.below(6));
            ll.push_back(b), dist.push_back(0), out.push_back(b);
        } else {
            uint32_t len = r.below(4) == 0 ? 3 + r.below(256) : 3 + r.below(12);
            uint32_t lim = uint32_t(out.size() < 32768 ? out.size() : 32768);
            uint32_t d = r.below(2) ? 1 + r.below(lim) : 1 + r.below(lim < 40 ? lim : 40);
            ll.push_back(uint8_t(len - 3)), dist.push_back(uint16_t(d));
            for (uint32_t k = 0; k < len; ++k) out.push_back(out[out.size() - d]);
        }
    }
    if (expanded) *expanded = out;
}

void count_symbols(const Bytes& ll, const std::vector<uint16_t>& dist, uint32_t* lit, uint32_t* ds) {
    for (size_t i = 0; i < ll.size(); ++i) {
        if (dist[i]) ++lit[257 + len_code(ll[i] + 3u)], ++ds[dist_code(dist[i])];
        else ++lit[ll[i]];
    }
}

// Expands records back into bytes, checking every distance against what exists.
bool expand(const Bytes& hist, const uint8_t* ll, const uint16_t* dist, size_t n, Bytes& out) {
    out = hist;
    for (size_t i = 0; i < n; ++i) {
        if (!dist[i]) {
            out.push_back(ll[i]);
            continue;
        }
        if (dist[i] > out.size()) return false;
        for (uint32_t k = 0; k < ll[i] + 3u; ++k) out.push_back(out[out.size() - dist[i]]);
    }
    out.erase(out.begin(), out.begin() + ptrdiff_t(hist.size()));
    return true;
}

}  // namespace

// ---- hash upkeep ----

TEST(DeflateHash, UpdateEntersThePositionsOfBothSchemes) {
    Bytes data = zt::compressible_bytes(3000, 1);
    for (uint32_t len : {0u, 2u, 3u, 4u, 5u, 9u, 1000u, 3000u}) {
        for (int level : {0, 1, 6, -1}) {
            Table head = garbage(1024, len), prev = garbage(512, len + 1);
            Table mh = head, mp = prev;
            ASSERT_EQ(zemsDeflateUpdateHash_8u(data.data(), 7000, len, head.data(), 1024, prev.data(), 512, level), 0);
            // Level 0 alone is the fast scheme; a negative level hashes four bytes.
            if (level == 0 && len >= 3) fast_model(data.data(), 7000, len - 2, mh);
            if (level != 0 && len >= 4) chained_model(data.data(), 7000, len - 3, mh, mp, true);
            EXPECT_EQ(head, mh) << len << " " << level;
            EXPECT_EQ(prev, mp) << len << " " << level;
        }
    }
}

TEST(DeflateHash, DictionaryCopiesItsTailAndEntersAllButTheLast257) {
    Bytes dict = zt::compressible_bytes(40000, 2);
    for (uint32_t len : {3u, 4u, 257u, 258u, 259u, 5000u, 32768u, 40000u}) {
        for (int level : {0, -1, 1, 9}) {
            const uint32_t win = 32768;
            Table head = garbage(4096, len), prev = garbage(win, len + 3);
            Table mh = head, mp = prev;
            Bytes window(win, 0xEE), mw = window;
            ASSERT_EQ(zemsDeflateDictionarySet_8u(dict.data(), len, head.data(), 4096, prev.data(), window.data(), win,
                                                  level),
                      0);
            uint32_t n = len < win ? len : win;
            if (len >= (level == 0 ? 3u : 4u)) {
                std::copy(dict.begin() + (len - n), dict.begin() + len, mw.begin());
                // The dictionary tests level < 1 where the update tests level == 0.
                if (n >= 258 && level < 1) fast_model(mw.data(), 0, n - 257, mh);
                if (n >= 258 && level >= 1) chained_model(mw.data(), 0, n - 257, mh, mp, false);
            }
            EXPECT_EQ(window, mw) << len << " " << level;
            EXPECT_EQ(head, mh) << len << " " << level;
            EXPECT_EQ(prev, mp) << len << " " << level;
        }
    }
}

TEST(DeflateHash, ChecksPointersThenSizes) {
    uint8_t b[8] = {};
    Table t(65536);
    EXPECT_EQ(zemsDeflateUpdateHash_8u(b, 0, 8, t.data(), 256, nullptr, 256, 0), zemStatusNullPtr);
    EXPECT_EQ(zemsDeflateUpdateHash_8u(nullptr, 0, 8, t.data(), 255, t.data(), 256, 1), zemStatusNullPtr);
    EXPECT_EQ(zemsDeflateUpdateHash_8u(b, 0, 8, t.data(), 255, t.data(), 256, 1), zemStatusSize);
    EXPECT_EQ(zemsDeflateUpdateHash_8u(b, 0, 8, t.data(), 65537, t.data(), 256, 1), zemStatusSize);
    EXPECT_EQ(zemsDeflateUpdateHash_8u(b, 0, 8, t.data(), 256, t.data(), 32769, 1), zemStatusSize);
    EXPECT_EQ(zemsDeflateUpdateHash_8u(b, 0, 8, t.data(), 256, t.data(), 255, 1), zemStatusSize);
    EXPECT_EQ(zemsDeflateDictionarySet_8u(b, 8, t.data(), 256, t.data(), nullptr, 256, 1), zemStatusNullPtr);
    EXPECT_EQ(zemsDeflateDictionarySet_8u(b, 8, t.data(), -256, t.data(), b, 256, 1), zemStatusSize);
    EXPECT_EQ(zemsDeflateDictionarySet_8u(b, 8, t.data(), 256, t.data(), b, 128, 1), zemStatusSize);
}

// ---- Huffman emission ----

namespace {
// Random codes of lengths 1..15 (not a prefix code: the emission does not care).
void random_codes(zemDeflateHuffCode* t, size_t n, zt::Rng& r) {
    for (size_t s = 0; s < n; ++s) {
        uint16_t len = uint16_t(1 + r.below(15));
        t[s] = {uint16_t(r.next() & ((1u << len) - 1)), len};
    }
}
}  // namespace

TEST(DeflateHuff, MatchesTheBitModelOnEveryPathPendingCountAndSplit) {
    zt::Rng r(3);
    for (uint32_t n : {0u, 1u, 2u, 17u, 2047u, 2048u, 2049u, 5000u}) {
        for (uint32_t held : {0u, 5u, 13u, 16u}) {
            zemDeflateHuffCode lc[286], dc[30];
            random_codes(lc, 286, r), random_codes(dc, 30, r);
            Bytes ll;
            std::vector<uint16_t> dist;
            random_records(n, n + held, ll, dist);
            // The extremes (length 258, distances 1 and 32,768), and long literal runs.
            if (n > 10) ll[3] = 255, dist[3] = 32768, ll[7] = 0, dist[7] = 1;
            if (held == 16) std::fill(dist.begin(), dist.begin() + n * 3 / 4, 0);
            const uint16_t pending = uint16_t(r.next() & ((1u << held) - 1));
            zt::LsbBits m;
            m.put(pending, held);
            emit_model(m, ll, dist, lc, dc);
            ll.push_back(0), dist.push_back(0);  // room for n = 0 (vector data() may be null)
            // In one call, and in two where the first ends one record short of a long run's end.
            for (uint32_t cut : {n, n ? n - 1 : 0}) {
                zt::GuardedBuffer out(n * 6 + 4 + 3);
                uint16_t code = pending;
                uint32_t bits = held, idx = 3;
                ASSERT_EQ(zemsDeflateHuff_8u(ll.data(), dist.data(), cut, &code, &bits, lc, dc, out.data(), &idx), 0);
                ASSERT_EQ(zemsDeflateHuff_8u(ll.data() + cut, dist.data() + cut, n - cut, &code, &bits, lc, dc,
                                             out.data(), &idx),
                          0);
                ASSERT_EQ(idx - 3, m.out.size()) << n << " " << held << " " << cut;
                EXPECT_TRUE(std::equal(m.out.begin(), m.out.end(), out.data() + 3)) << n << " " << held << " " << cut;
                EXPECT_EQ(bits, m.n);
                EXPECT_EQ(code, m.acc);
            }
        }
    }
    zemDeflateHuffCode t[286] = {};
    uint8_t b[8];
    uint16_t code = 0;
    uint32_t bits = 0, idx = 0;
    EXPECT_EQ(zemsDeflateHuff_8u(b, nullptr, 0, &code, &bits, t, t, b, &idx), zemStatusNullPtr);
}

// ---- codes and headers: whole blocks that zlib must decode ----

TEST(DeflateCodes, GeneratedBlocksDecodeWithZlib) {
    // Skewed, flat, sparse and single-symbol statistics; the codes stay within 15 bits and every
    // block (header, records, end of block) inflates to the records' bytes.
    for (uint64_t seed = 1; seed <= 12; ++seed) {
        Bytes ll, expect;
        std::vector<uint16_t> dist;
        size_t n = seed == 1 ? 1 : seed == 2 ? 3 : 300 * seed * seed;
        random_records(n, seed, ll, dist, &expect);
        uint32_t lit[286] = {}, ds[30] = {};
        count_symbols(ll, dist, lit, ds);
        lit[256] = 1;
        if (seed == 5) lit[0] += 1u << 30, lit[1] += 1u << 29;  // forces the length limit
        if (seed == 6)
            for (uint32_t s = 0, f = 1; s < 40; ++s, f = f * 3 / 2 + 1) lit[s] += f;
        zemDeflateHuffCode lc[286], dc[30];
        ASSERT_EQ(zemsDeflateLZ77FastestGenHuffTable_8u(lit, ds, lc, dc), 0);
        uint32_t kraft_dist = 0, coded_dist = 0;
        for (auto& c : lc) EXPECT_LE(c.len, 15);
        for (auto& c : dc) kraft_dist += c.len ? 1u << (15 - c.len) : 0, coded_dist += c.len != 0;
        EXPECT_GE(coded_dist, 2u);
        EXPECT_EQ(kraft_dist, 1u << 15);

        uint32_t hlen = 320, hbits = 0;
        Bytes hdr(320);
        ASSERT_EQ(zemsDeflateLZ77FastestGenHeader_8u(lc, dc, hdr.data(), &hlen, &hbits), 0);
        ASSERT_EQ(hlen, (hbits + 7) / 8);
        uint32_t dummy = 4;
        EXPECT_EQ(zemsDeflateLZ77FastestGenHeader_8u(lc, dc, hdr.data(), &dummy, &hbits),
                  hlen > 4 ? zemStatusDstTooSmall : zemStatusOk);
        zt::LsbBits m;
        m.put(1 | 2 << 1, 3);  // BFINAL, BTYPE 2
        for (uint32_t i = 0; i < hbits; ++i) m.put(hdr[i / 8] >> (i % 8), 1);
        uint16_t code = uint16_t(m.acc);
        uint32_t bits = m.n, idx = 0;
        Bytes body(n * 6 + 8);
        zemsDeflateHuff_8u(ll.data(), dist.data(), uint32_t(n), &code, &bits, lc, dc, body.data(), &idx);
        body.resize(idx);
        zt::LsbBits tail;
        tail.put(code, bits), tail.put(lc[256].code, lc[256].len);
        EXPECT_EQ(zt::zlib_inflate(zt::cat(zt::cat(m.out, body), tail.finish()), -15, expect.size()), expect) << seed;
    }
}

// ---- match finders ----

namespace {

using Finder = zemStatus (*)(const uint8_t**, uint32_t*, uint32_t*, const uint8_t*, uint32_t, uint32_t*, uint32_t*,
                             uint32_t, uint8_t*, uint16_t*, uint32_t*, uint32_t*, uint32_t*, int32_t, int32_t);
uint8_t g_work[ZEM_DEFLATE_SLOW_WORK_SIZE];
zemStatus slow(const uint8_t** a, uint32_t* b, uint32_t* c, const uint8_t* d, uint32_t e, uint32_t* f, uint32_t* g,
               uint32_t h, uint8_t* i, uint16_t* j, uint32_t* k, uint32_t* l, uint32_t* m, int32_t n, int32_t o) {
    return zemsDeflateLZ77Slow_8u(a, b, c, d, e, f, g, h, i, j, k, l, m, n, o, g_work);
}
const Finder kFinders[3] = {zemsDeflateLZ77Fast_8u, zemsDeflateLZ77_8u, slow};

// Parses data[hist..] with history data[0..hist) sitting at a guard page's edge, in calls of
// `cap` records from window position `idx`, and checks that the records rebuild the input they
// took and their counts add up. `done` gets how many records there were and how much input
// was left (with no flush, the lookahead).
void parse_and_check(Finder f, int level, const Bytes& data, size_t hist, uint32_t cap, Table& head, Table& prev,
                     uint32_t win, int32_t flush = zemDeflateFinish, uint32_t idx = 12345,
                     std::pair<size_t, uint32_t>* done = nullptr) {
    zt::GuardedBuffer buf(data.size(), true), tail(data.size());
    // The window's start and the input's end each touch a guard page.
    zt::GuardedBuffer& in = data.size() % 2 ? buf : tail;
    memcpy(in.data(), data.data(), data.size());
    const uint8_t* p = in.data() + hist;
    const uint32_t idx0 = idx;
    uint32_t left = uint32_t(data.size() - hist);
    Bytes ll(cap), all_ll;
    std::vector<uint16_t> dist(cap), all_dist;
    uint32_t lit[286] = {}, ds[30] = {};
    for (zemStatus st = zemStatusDstTooSmall; st == zemStatusDstTooSmall && left > 0;) {
        uint32_t n = cap;
        const uint32_t before = left;
        st = f(&p, &left, &idx, in.data(), win, head.data(), prev.data(), uint32_t(head.size()), ll.data(), dist.data(),
               &n, lit, ds, level, flush);
        ASSERT_TRUE(st == 0 || st == zemStatusDstTooSmall);
        ASSERT_EQ(idx, idx0 + (data.size() - hist) - left);
        if (flush == zemDeflateFinish) ASSERT_EQ(st == 0, left == 0);
        if (st) ASSERT_LT(left, before);
        all_ll.insert(all_ll.end(), ll.begin(), ll.begin() + n);
        all_dist.insert(all_dist.end(), dist.begin(), dist.begin() + n);
    }
    for (auto d : all_dist) ASSERT_LE(d, win);
    Bytes out;
    ASSERT_TRUE(expand(Bytes(data.begin(), data.begin() + ptrdiff_t(hist)), all_ll.data(), all_dist.data(),
                       all_ll.size(), out));
    ASSERT_TRUE(out == Bytes(data.begin() + ptrdiff_t(hist), data.end() - left)) << level;
    uint32_t ml[286] = {}, md[30] = {};
    count_symbols(all_ll, all_dist, ml, md);
    EXPECT_TRUE(std::equal(ml, ml + 286, lit) && std::equal(md, md + 30, ds));
    if (done) *done = {all_ll.size(), left};
}

}  // namespace

TEST(DeflateFinders, RecordsRebuildTheInputAtEveryLevel) {
    const Bytes text = zt::compressible_bytes(70000, 5), noise = zt::random_bytes(5000, 6);
    const Bytes same(20000, 'z');
    for (int which = 0; which < 3; ++which) {
        for (int level = 1; level <= 9; ++level) {
            for (const Bytes* d : {&text, &noise, &same}) {
                Table head(1 << 15), prev(1 << 15);
                parse_and_check(kFinders[which], level, *d, 0, 1 << 16, head, prev, 32768);
            }
        }
    }
}

TEST(DeflateFinders, GreedyLeavesTheInnerPositionsOfLongMatchesOut) {
    // Level 2 enters the inner positions of matches up to 8 bytes only: a block repeated once
    // is one long match, and none of its inner positions may reach the table, not even by way
    // of the search that follows it.
    Bytes data = zt::random_bytes(300, 9);
    data.insert(data.end(), data.begin(), data.end());
    Table head(1 << 15), prev(1 << 15);
    parse_and_check(kFinders[0], 2, data, 0, 1000, head, prev, 32768, zemDeflateFinish, 0);
    EXPECT_EQ(std::count_if(head.begin(), head.end(), [](uint32_t pos) { return pos > 300 && pos != 300 + 258; }), 0);
}

TEST(DeflateFinders, NearThreeByteScanFindsTheNearestMatchInReach) {
    // Against a plain scan, over a small alphabet (many candidates) and every window size, so
    // the reach is cut by the history, the window and the scan's own limit in turn.
    Bytes data = zt::random_bytes(3000, 10);
    for (auto& b : data) b &= 7;
    for (uint32_t win : {256u, 512u, 32768u}) {
        Table head(1 << 15), prev(win);
        const zem::deflate::Chains ch(data.data(), 0, data.data(), data.data() + data.size(), win, head.data(),
                                      prev.data(), uint32_t(head.size()));
        for (size_t i = 0; i + 4 <= data.size(); ++i) {
            const uint8_t* p = data.data() + i;
            const size_t reach = std::min({i, size_t(win), size_t(zem::deflate::kNear3)}) / 32 * 32;
            uint32_t want = 0;
            for (uint32_t d = 1; d <= reach && !want; ++d)
                if (p[-ptrdiff_t(d)] == p[0] && p[1 - ptrdiff_t(d)] == p[1] && p[2 - ptrdiff_t(d)] == p[2]) want = d;
            const zem::deflate::Match got = ch.near3(p);
            ASSERT_EQ(got.dist, want) << "at " << i << " window " << win;
            ASSERT_EQ(got.len, want ? 3u : 0u);
        }
    }
}

TEST(DeflateFinders, GarbageTablesSmallWindowsAndTinyRecordRooms) {
    // Random table contents and short histories never lead a search outside the buffer (the
    // guard pages would fault) nor to a distance the history does not have.
    const Bytes data = zt::compressible_bytes(9000, 7);
    for (int which = 0; which < 3; ++which) {
        for (uint32_t win : {256u, 4096u, 32768u}) {
            for (size_t hist : {size_t(0), size_t(1), size_t(300), size_t(5000)}) {
                for (uint32_t cap : {1u, 3u, 1000u}) {
                    Table head = garbage(256 << (which * 4), win + hist), prev = garbage(win, cap);
                    parse_and_check(kFinders[which], 1 + int(hist % 9), data, hist, cap, head, prev, win);
                }
            }
        }
    }
}

TEST(DeflateFinders, NoFlushKeepsTheLookaheadAndMixesWithTheHashUpdate) {
    const Bytes data = zt::compressible_bytes(4000, 8);
    for (int which = 0; which < 3; ++which) {
        Table head(4096), prev(32768);
        std::pair<size_t, uint32_t> done;
        // Shorter than the lookahead: nothing parsed.
        parse_and_check(kFinders[which], 6, Bytes(data.begin(), data.begin() + 261), 0, 100, head, prev, 32768,
                        zemDeflateNoFlush, 0, &done);
        EXPECT_TRUE(done.first == 0 && done.second == 261u);
        // The first 1000 bytes entered by the hash update, the rest parsed: matches reach them.
        zemsDeflateUpdateHash_8u(data.data(), 0, 1003, head.data(), 4096, prev.data(), 32768, 6);
        parse_and_check(kFinders[which], 6, data, 1000, 100, head, prev, 32768, zemDeflateNoFlush, 1000, &done);
        EXPECT_TRUE(done.second > 0 && done.second <= 262u) << done.second;
        EXPECT_LT(done.first, 1500u);  // the history was found
    }
}

TEST(DeflateFinders, CheckArgumentsInOrder) {
    uint8_t b[300] = {}, ll[4];
    uint16_t d[4];
    const uint8_t* p = b;
    const uint8_t* none = nullptr;
    uint32_t len = 300, idx = 0, n = 4, zero = 0, lit[286], ds[30];
    Table t(65536);
    for (int which = 0; which < 3; ++which) {
        Finder f = kFinders[which];
        EXPECT_EQ(f(&p, &len, &idx, b, 256, t.data(), t.data(), 256, ll, d, &n, lit, nullptr, 1, 0), zemStatusNullPtr);
        EXPECT_EQ(f(&none, &len, &idx, b, 256, t.data(), t.data(), 255, ll, d, &n, lit, ds, 0, 0), zemStatusNullPtr);
        EXPECT_EQ(f(&p, &len, &idx, b, 256, t.data(), t.data(), 255, ll, d, &n, lit, ds, 0, 0), zemStatusSize);
        EXPECT_EQ(f(&p, &len, &idx, b, 256, t.data(), t.data(), 256, ll, d, &zero, lit, ds, 0, 0), zemStatusSize);
        EXPECT_EQ(f(&p, &len, &idx, b + 1, 256, t.data(), t.data(), 256, ll, d, &n, lit, ds, 0, 0), zemStatusSize);
        EXPECT_EQ(f(&p, &len, &idx, b, 256, t.data(), t.data(), 256, ll, d, &n, lit, ds, 10, 0), zemStatusBadArg);
        EXPECT_EQ(f(&p, &len, &idx, b, 256, t.data(), t.data(), 256, ll, d, &n, lit, ds, 1, 4), zemStatusBadArg);
    }
    EXPECT_EQ(zemsDeflateLZ77Slow_8u(&none, &len, &idx, b, 256, t.data(), t.data(), 256, ll, d, &n, lit, ds, 1, 0,
                                     nullptr),
              zemStatusNullPtr);
}
