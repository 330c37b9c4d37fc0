// Inflate: the table builder, the resumable decoder and the raw/zlib/gzip stream on top of them.
#include <libdeflate.h>

#include "deflate/inflate_tables.h"
#include "inflate_stream.h"
#include "test_util.h"

using zem::stream::Format;
using zem::stream::InflateResult;

namespace {

// ---- reference encoders ----

Bytes zlib_compress(const Bytes& in, Format f, int level, int strategy = Z_DEFAULT_STRATEGY) {
    return zt::zlib_deflate(in, f == Format::Raw ? -15 : f == Format::Zlib ? 15 : 31, level, strategy);
}

Bytes libdeflate_compress(const Bytes& in, Format f, int level) {
    libdeflate_compressor* c = libdeflate_alloc_compressor(level);
    Bytes out(libdeflate_deflate_compress_bound(c, in.size()) + 64);
    size_t n = f == Format::Raw    ? libdeflate_deflate_compress(c, in.data(), in.size(), out.data(), out.size())
               : f == Format::Zlib ? libdeflate_zlib_compress(c, in.data(), in.size(), out.data(), out.size())
                                   : libdeflate_gzip_compress(c, in.data(), in.size(), out.data(), out.size());
    libdeflate_free_compressor(c);
    out.resize(n);
    return out;
}

// ---- our decoding ----

// One call, input and output each ending at a guard page; the status is checked against `want`
// or, with `got`, handed back.
Bytes one_shot(Format f, const Bytes& comp, size_t cap, InflateResult want = InflateResult::End,
               InflateResult* got = nullptr) {
    zt::GuardedBuffer src(comp), dst(cap);
    size_t n = 0;
    InflateResult r = zem::stream::inflate_buffer(f, src.data(), comp.size(), dst.data(), cap, &n);
    if (got) *got = r;
    else EXPECT_EQ(r, want);
    return Bytes(dst.data(), dst.data() + n);
}

// Feeds input and offers output in random pieces of 1..max_piece bytes. With `contiguous` the
// output is one buffer (its earlier bytes serve as history), otherwise every piece is a fresh
// buffer and the stream keeps its window.
Bytes pieces(Format f, const Bytes& comp, size_t expect, uint64_t seed, uint32_t max_piece, bool contiguous) {
    zt::Rng r(seed);
    zem::stream::Inflater inf(f, contiguous);
    Bytes out(expect + 64);
    size_t in_pos = 0, out_pos = 0, in_avail = 0;
    for (int guard = 0; guard < 50000000; ++guard) {
        in_avail = std::min(comp.size() - in_pos, in_avail + 1 + r.below(max_piece));
        size_t room = std::min(out.size() - out_pos, size_t(1 + r.below(max_piece)));
        Bytes scratch(room + 1);
        const uint8_t* ip = comp.data() + in_pos;
        uint8_t* op = contiguous ? out.data() + out_pos : scratch.data();
        size_t il = in_avail, ol = room;
        InflateResult res = inf.run(ip, il, op, ol);
        if (!contiguous) memcpy(out.data() + out_pos, scratch.data(), room - ol);
        in_pos += in_avail - il;
        in_avail = il;
        out_pos += room - ol;
        EXPECT_TRUE(res == InflateResult::Ok || res == InflateResult::End) << "in " << in_pos << " out " << out_pos;
        if (res != InflateResult::Ok && (res != InflateResult::End || in_pos == comp.size())) break;
    }
    out.resize(out_pos);
    return out;
}

const Format kFormats[] = {Format::Raw, Format::Zlib, Format::Gzip};

}  // namespace

// ---------------------------------------------------------------- streams of the reference encoders

TEST(InflateStream, DecodesEveryReferenceLevelStrategyAndFormat) {
    const Bytes mixed = zt::cat(zt::compressible_bytes(150000, 3), zt::random_bytes(3000, 4));
    for (const Bytes& in : {zt::compressible_bytes(200000, 1), mixed, zt::random_bytes(70000, 5), Bytes(100000, 'z'),
                            Bytes{}, Bytes{42}}) {
        for (Format f : kFormats) {
            for (int level = 0; level <= 9; ++level)
                ASSERT_EQ(one_shot(f, zlib_compress(in, f, level), in.size()), in) << level;
            for (int strategy : {Z_HUFFMAN_ONLY, Z_RLE, Z_FIXED})
                ASSERT_EQ(one_shot(f, zlib_compress(in, f, 6, strategy), in.size()), in) << strategy;
            for (int level = 1; level <= 12; ++level)
                ASSERT_EQ(one_shot(f, libdeflate_compress(in, f, level), in.size()), in) << "libdeflate " << level;
        }
    }
}

TEST(InflateStream, ResumesAtAnyByteWithAndWithoutWindow) {
    uint64_t seed = 100;
    for (const Bytes& in : {zt::compressible_bytes(120000, 7), zt::compressible_bytes(90000, 8)}) {
        for (Format f : kFormats) {
            for (const Bytes& comp : {zlib_compress(in, f, 9), zlib_compress(in, f, 1), zlib_compress(in, f, 0),
                                      zlib_compress(in, f, 6, Z_FIXED), libdeflate_compress(in, f, 12)}) {
                for (bool contiguous : {false, true}) {
                    uint32_t piece = seed % 3 == 0 ? 1 : seed % 3 == 1 ? 7 : 3000;
                    EXPECT_EQ(pieces(f, comp, in.size(), seed++, piece, contiguous), in) << piece;
                }
            }
        }
    }
}

TEST(InflateStream, GzipMembersFollowEachOther) {
    Bytes a = zt::compressible_bytes(50000, 11), b = zt::compressible_bytes(40000, 12);
    const Bytes comp = zt::cat(zlib_compress(a, Format::Gzip, 6), libdeflate_compress(b, Format::Gzip, 9));
    a = zt::cat(a, b);
    EXPECT_EQ(one_shot(Format::Gzip, comp, a.size()), a);
    EXPECT_EQ(pieces(Format::Gzip, comp, a.size(), 5, 13, false), a);
    // After the last member the stream stays ended until more input comes.
    zem::stream::Inflater inf(Format::Gzip);
    Bytes out(a.size());
    const uint8_t* in = comp.data();
    size_t in_len = comp.size(), out_len = out.size();
    uint8_t* o = out.data();
    EXPECT_EQ(inf.run(in, in_len, o, out_len), InflateResult::End);
    EXPECT_EQ(inf.run(in, in_len, o, out_len), InflateResult::End);
    EXPECT_EQ(out, a);
}

TEST(InflateStream, RefusesDamagedStreams) {
    Bytes in = zt::compressible_bytes(60000, 2);
    Bytes gz = zlib_compress(in, Format::Gzip, 6), zl = zlib_compress(in, Format::Zlib, 6);
    // CRC, size, Adler and header check (negative positions count from the end).
    struct Case { Format f; const Bytes* comp; long at; uint8_t flip; } cases[] = {{Format::Gzip, &gz, -6, 1}, {Format::Gzip, &gz, -2, 1}, {Format::Zlib, &zl, -1, 0x80}, {Format::Zlib, &zl, 1, 1}};
    for (const Case& c : cases) {
        Bytes dam = *c.comp;
        dam[size_t(c.at < 0 ? long(dam.size()) + c.at : c.at)] ^= c.flip;
        one_shot(c.f, dam, in.size(), InflateResult::BadData);
    }
    // Short output and short input are told apart; what fits is written.
    EXPECT_EQ(one_shot(Format::Gzip, gz, in.size() / 2, InflateResult::DstTooSmall), Bytes(in.begin(), in.begin() + 30000));
    one_shot(Format::Gzip, Bytes(gz.begin(), gz.end() - 1), in.size(), InflateResult::Truncated);
    // Cut streams and random bytes after a valid header never end; damaged ones stop at the guards.
    InflateResult r;
    for (Format f : {Format::Raw, Format::Gzip}) {
        for (int level : {1, 6, 9}) {
            Bytes comp = zlib_compress(in, f, level);
            for (size_t cut : {comp.size() / 3, comp.size() - 9}) {
                one_shot(f, Bytes(comp.begin(), comp.begin() + ptrdiff_t(cut)), in.size(), {}, &r);
                EXPECT_NE(r, InflateResult::End) << cut;
            }
            zt::Rng rng(level);
            for (int k = 0; k < 50; ++k) {
                Bytes dam = comp;
                dam[10 + rng.below(uint32_t(dam.size() - 10))] ^= uint8_t(1 + rng.below(255));
                one_shot(f, dam, in.size() / 2, {}, &r);
            }
        }
    }
    for (uint64_t s = 0; s < 300; ++s) {
        Bytes junk = zt::random_bytes(200 + s, s);
        junk[0] = 0x78, junk[1] = 0x9c;
        one_shot(Format::Zlib, junk, 1000, {}, &r);
        EXPECT_NE(r, InflateResult::End);
    }
}

// ---------------------------------------------------------------- the primitives

namespace {

// Canonical codes of a set of lengths, most significant bit first.
std::vector<uint32_t> canonical(const std::vector<uint16_t>& lens) {
    uint32_t count[16] = {}, next[16] = {};
    for (uint16_t l : lens) count[l]++;
    count[0] = 0;
    for (uint32_t l = 1, code = 0; l < 16; ++l) next[l] = code = (code + count[l - 1]) << 1;
    std::vector<uint32_t> codes(lens.size());
    for (size_t s = 0; s < lens.size(); ++s) if (lens[s]) codes[s] = next[lens[s]]++;
    return codes;
}

// A random complete code over `symbols`: leaves are split at random, the first ones down to
// max_len so that the longest length is really used.
std::vector<uint16_t> random_code(size_t alphabet, const std::vector<uint32_t>& symbols, uint32_t max_len,
                                  uint64_t seed) {
    zt::Rng r(seed);
    std::vector<uint32_t> depth = {0};
    while (depth.size() < symbols.size()) {
        size_t pick = depth.back() < max_len ? depth.size() - 1 : r.below(uint32_t(depth.size()));
        if (depth[pick] >= max_len) continue;
        depth.push_back(++depth[pick]);
    }
    std::vector<uint16_t> lens(alphabet, 0);
    for (size_t i = 0; i < symbols.size(); ++i) lens[symbols[(i * 7 + seed) % symbols.size()]] = uint16_t(depth[i]);
    return lens;
}

using BitWriter = zt::LsbBits;

namespace zi = zem::inflate;

// A block body with the given codes: random literals and matches over every coded symbol,
// ending with the end-of-block code. `history` is what precedes the output (the window).
struct Block {
    Bytes body, expect;
};
Block make_block(const std::vector<uint16_t>& lit, const std::vector<uint16_t>& dist, const Bytes& history,
                 size_t n_ops, uint64_t seed) {
    zt::Rng r(seed);
    auto lc = canonical(lit), dc = canonical(dist);
    std::vector<uint32_t> lits, lens, dists;
    for (uint32_t s = 0; s < lit.size(); ++s) if (lit[s] && s != 256) (s > 256 && s < 286 ? lens : lits).push_back(s);
    for (uint32_t s = 0; s < dist.size(); ++s) if (dist[s]) dists.push_back(s);
    BitWriter w;
    Bytes all = history;
    for (size_t i = 0; i < n_ops; ++i) {
        if (!lens.empty() && !dists.empty() && (i == 0 || r.below(2))) {
            uint32_t ls = lens[r.below(uint32_t(lens.size()))], ds = i ? dists[r.below(uint32_t(dists.size()))] : dists.back();
            uint32_t le = zi::kLengthExtra[ls - 257], de = zi::kDistExtra[ds];
            uint32_t lx = r.below(1u << le), dx = r.below(1u << de);
            // The first match reaches the oldest byte of the history where its code can.
            if (i == 0 && all.size() - zi::kDistBase[ds] < (1u << de)) dx = uint32_t(all.size() - zi::kDistBase[ds]);
            uint32_t len = zi::kLengthBase[ls - 257] + lx, d = zi::kDistBase[ds] + dx;
            if (d <= all.size()) {
                w.code(lc[ls], lit[ls]), w.put(lx, le);
                w.code(dc[ds], dist[ds]), w.put(dx, de);
                for (uint32_t k = 0; k < len; ++k) all.push_back(all[all.size() - d]);
                continue;
            }
        }
        if (lits.empty()) break;
        uint32_t s = lits[r.below(uint32_t(lits.size()))];
        w.code(lc[s], lit[s]);
        all.push_back(s < 256 ? uint8_t(s) : 0);  // 286 and 287 read as the literal 0
    }
    // Trailing bytes after the end code, as the next block would bring: the decoder must stop.
    w.code(lc[256], lit[256]), w.put(0x5a5a5a5a, 32);
    return {w.finish(), Bytes(all.begin() + ptrdiff_t(history.size()), all.end())};
}

zemInflateState build_state(const std::vector<uint16_t>& lit, const std::vector<uint16_t>& dist) {
    zemInflateState st;
    memset(&st, 0xAB, sizeof st);  // the builder must not rely on a cleared record
    st.window = nullptr, st.windowSize = 0;
    std::vector<uint16_t> all = lit;
    all.insert(all.end(), dist.begin(), dist.end());
    EXPECT_EQ(zemsInflateBuildHuffTable(all.data(), uint32_t(lit.size()), uint32_t(dist.size()), &st), zemStatusOk);
    return st;
}

// The in/out values of one decoder call, kept between calls as a caller would.
struct Call {
    const uint8_t* src;
    uint32_t n;
    uint8_t* dst;
    uint32_t room, code = 0, bits = 0, mode = 0;
    zemStatus run(zemInflateState& st, uint32_t win_idx = 0, uint32_t produced = 0) {
        return zemsInflate_8u(&src, &n, &code, &bits, win_idx, &dst, &room, produced, &mode, &st);
    }
};

// Decodes a block body with the primitive in pieces of input and output of at most `piece`
// bytes (0: all at once), input and output each ending at a guard page, the output one buffer
// whose earlier bytes serve as history, the window (if any) circular with its next write
// position at 7.
Bytes decode_body(zemInflateState& st, const Bytes& body, size_t cap, uint32_t piece, uint64_t seed,
                  zemStatus* status = nullptr) {
    zt::Rng r(seed);
    zt::GuardedBuffer in(body), out(cap);
    Call c{in.data(), 0, out.data(), 0};
    size_t in_left = body.size();
    for (int guard = 0; guard < 10000000; ++guard) {
        size_t produced = size_t(c.dst - out.data());
        c.n = uint32_t(piece ? std::min<size_t>(in_left, 1 + r.below(piece)) : in_left);
        c.room = uint32_t(piece ? std::min<size_t>(cap - produced, r.below(piece + 1)) : cap - produced);
        uint32_t in_before = c.n;
        zemStatus s = c.run(st, st.windowSize ? 7 : 0, uint32_t(produced));
        EXPECT_LE(c.bits, 32u);
        in_left -= in_before - c.n;
        if (s != zemStatusOk || c.mode == 0) {
            if (status) *status = s;
            else EXPECT_EQ(s, zemStatusOk);
            break;
        }
        if (in_left == 0 && (!piece || (c.room && c.dst == out.data() + produced))) break;  // nothing more will come
    }
    return Bytes(out.data(), c.dst);
}

std::vector<uint32_t> range(uint32_t from, uint32_t to) {
    std::vector<uint32_t> v(to - from);
    for (uint32_t s = from; s < to; ++s) v[s - from] = s;
    return v;
}

}  // namespace

TEST(InflateBuild, RefusesBadCodesAndCounts) {
    std::vector<uint16_t> lens(288 + 30, 0);
    zemInflateState st;
    EXPECT_EQ(zemsInflateBuildHuffTable(lens.data(), 288, 30, &st), zemStatusBadData);  // no code at all
    EXPECT_EQ(zemsInflateBuildHuffTable(nullptr, 289, 0, &st), zemStatusNullPtr);       // pointers first
    EXPECT_EQ(zemsInflateBuildHuffTable(lens.data(), 289, 0, &st), zemStatusSize);
    EXPECT_EQ(zemsInflateBuildHuffTable(lens.data(), 257, 31, &st), zemStatusSize);
    // Lengths of literals 0 and 1, the end code, distances 0..2: over-subscribed, incomplete, a good
    // literal code with an incomplete distance code; one code of length 1 in either alphabet is accepted.
    struct Case { uint16_t l0, l1, end, d0, d1, d2; uint32_t n_dist; zemStatus want; } cases[] = {
        {1, 1, 2, 0, 0, 0, 0, zemStatusBadData}, {2, 2, 2, 0, 0, 0, 0, zemStatusBadData},
        {1, 0, 1, 2, 2, 2, 30, zemStatusBadData}, {1, 0, 1, 1, 0, 0, 30, zemStatusOk}, {0, 0, 1, 1, 0, 0, 0, zemStatusOk}};
    for (const Case& c : cases) {
        lens[0] = c.l0, lens[1] = c.l1, lens[256] = c.end, lens[288] = c.d0, lens[289] = c.d1, lens[290] = c.d2;
        EXPECT_EQ(zemsInflateBuildHuffTable(lens.data(), 288, c.n_dist, &st), c.want) << c.l0 << c.l1 << c.end << c.d0;
    }
}

TEST(InflateBuild, ChoosesTheLayoutByTheLongestCodes) {
    auto lit_syms = range(0, 286), dist_syms = range(0, 30);
    struct Case { uint32_t lit_max, dist_max, kind; } cases[] = {{11, 10, 2}, {12, 10, 1}, {11, 11, 1}, {9, 5, 2}, {15, 15, 1}};
    for (auto c : cases) {
        zemInflateState st = build_state(random_code(286, lit_syms, c.lit_max, 3), random_code(30, dist_syms, c.dist_max, 4));
        EXPECT_EQ(st.tableKind, c.kind);
        if (c.kind == 2) EXPECT_TRUE(st.litBits == c.lit_max && st.distBits == c.dist_max) << c.lit_max;
    }
    // 256 literal/length lengths: the compact build refuses after having set its fields, the
    // general build places no end code and succeeds.
    std::vector<uint16_t> lens(256, 8);
    zemInflateState st{};
    EXPECT_EQ(zemsInflateBuildHuffTable(lens.data(), 256, 0, &st), zemStatusBadData);
    EXPECT_EQ(st.tableKind, 2u);
    EXPECT_EQ(st.litBits, 8u);
    auto general = random_code(256, range(0, 256), 13, 5);
    EXPECT_EQ(zemsInflateBuildHuffTable(general.data(), 256, 0, &st), zemStatusOk);
    EXPECT_EQ(st.tableKind, 1u);
}

TEST(InflateDecode, HandMadeBlocksInEveryLayout) {
    // The window as history, oldest byte first, for a next write position of 7.
    const Bytes win = zt::random_bytes(32768, 77);
    Bytes hist(win.begin() + 7, win.end());
    hist.insert(hist.end(), win.begin(), win.begin() + 7);
    std::vector<uint32_t> lit_syms = range(0, 40);
    for (uint32_t s : {100u, 200u, 255u, 256u, 257u, 264u, 265u, 268u, 272u, 276u, 277u, 280u, 281u, 284u, 285u}) lit_syms.push_back(s);
    struct Case { uint32_t lit_max, dist_max, n_dist; } cases[] = {{15, 15, 30}, {12, 9, 20}, {11, 10, 30}, {9, 6, 30}, {15, 5, 30}, {10, 15, 30}, {8, 1, 1}};
    uint64_t seed = 1;
    for (auto c : cases) {
        auto lit = random_code(286, lit_syms, c.lit_max, seed++);
        auto dist = random_code(30, range(0, c.n_dist), c.dist_max, seed++);
        for (bool with_window : {true, false}) {
            Block b = make_block(lit, dist, with_window ? hist : Bytes{}, 3000, seed++);
            zemInflateState st = build_state(lit, dist);
            if (with_window) st.window = const_cast<uint8_t*>(win.data()), st.windowSize = uint32_t(win.size());
            for (uint32_t piece : {0u, 1u, 5u, 40u}) {
                zemInflateState copy = st;
                EXPECT_EQ(decode_body(copy, b.body, b.expect.size(), piece, seed++), b.expect)
                    << c.lit_max << "/" << c.dist_max << " piece " << piece << " window " << with_window;
            }
        }
    }
}

TEST(InflateDecode, OneCodeAlphabetsAndTheUnusedSymbols) {
    // A literal/length code of the end code alone: the block is empty, mode 0 at once.
    std::vector<uint16_t> lit(286, 0), dist(30, 0);
    lit[256] = 1;
    for (bool general : {false, true}) {
        if (general) lit.push_back(0), lit.push_back(0);
        zemInflateState st = build_state(lit, dist);
        Bytes body = {0x00, 0xff}, ones(8, 0xff), many(5000, 0xff), big(70000, 0x11);
        Call c{body.data(), 2, big.data(), 10, 0, 0, 1};
        EXPECT_EQ(c.run(st), zemStatusOk);
        EXPECT_TRUE(c.mode == 0 && c.room == 10);
        // The other half of the one-bit code is no code at all, once enough bits are held to
        // tell (a compact table's unused entries keep what the record held before); with input
        // and room for the widest loop it is refused where it stands, nothing written for it.
        for (const Bytes* in : {&ones, &many}) {
            Call d{in->data(), uint32_t(in->size()), big.data(), uint32_t(in == &ones ? 10 : big.size()), 0, 0, 1};
            EXPECT_EQ(d.run(st), zemStatusBadData);
            EXPECT_EQ(d.dst, big.data());
            EXPECT_EQ(big[0], 0x11);
        }
    }
    // Symbols 286 and 287 decode as the literal 0 in the compact layout.
    std::vector<uint16_t> lit288(288, 0);
    lit288['x'] = 1, lit288[256] = 2, lit288[259] = 3;
    lit288[257] = lit288[258] = lit288[286] = lit288[287] = 5;
    dist[0] = 1;
    zemInflateState st = build_state(lit288, dist);
    ASSERT_EQ(st.tableKind, 2u);
    Block b = make_block(lit288, dist, {}, 500, 9);
    EXPECT_EQ(decode_body(st, b.body, b.expect.size(), 0, 1), b.expect);
}

TEST(InflateDecode, ChecksArgumentsAndRefusesBadStreams) {
    zemInflateState st{};
    uint8_t in[64] = {}, out[64];
    const uint8_t* src = in;
    uint8_t* dst = out;
    uint32_t n = 64, code = 0, bits = 0, mode = 0, room = 64;
    EXPECT_EQ(zemsInflate_8u(nullptr, &n, &code, &bits, 0, &dst, &room, 0, &mode, &st), zemStatusNullPtr);
    EXPECT_EQ(zemsInflate_8u(&src, &n, &code, &bits, 0, &dst, &room, 0, &mode, nullptr), zemStatusNullPtr);
    const uint8_t* null_src = nullptr;
    EXPECT_EQ(zemsInflate_8u(&null_src, &n, &code, &bits, 0, &dst, &room, 0, &mode, &st), zemStatusNullPtr);
    bits = 33;
    EXPECT_EQ(zemsInflate_8u(&src, &n, &code, &bits, 0, &dst, &room, 0, &mode, &st), zemStatusSize);
    bits = 0;
    EXPECT_EQ(zemsInflate_8u(&src, &n, &code, &bits, 1, &dst, &room, 0, &mode, &st), zemStatusSize);
    st.tableKind = 3;
    EXPECT_EQ(zemsInflate_8u(&src, &n, &code, &bits, 0, &dst, &room, 0, &mode, &st), zemStatusBadData);
    EXPECT_TRUE(src == in && dst == out && n == 64 && room == 64 && code == 0 && bits == 0);
    // Fixed code, zero bits: the end code at once.
    st.tableKind = 0;
    EXPECT_EQ(zemsInflate_8u(&src, &n, &code, &bits, 0, &dst, &room, 0, &mode, &st), zemStatusOk);
    EXPECT_TRUE(mode == 0 && dst == out);
    // Literal 'a', then a match of distance 2 with only one byte of history: the literal stays.
    BitWriter w;
    w.code(0x30 + 'a', 8), w.code(1, 7), w.code(1, 5);  // length 3, distance 2
    Bytes body = w.finish();
    body.resize(64);
    Call c{body.data(), 64, out, 64};
    EXPECT_EQ(c.run(st), zemStatusBadData);
    EXPECT_EQ(c.dst - out, 1);
    // One byte of earlier output makes the same match valid.
    out[0] = 'z';
    Call d{body.data(), 64, out + 1, 63};
    EXPECT_EQ(d.run(st, 0, 1), zemStatusOk);
    EXPECT_EQ(memcmp(out, "zazaz", 5), 0);
}

TEST(InflateDecode, LongCallsRefuseAMatchOneByteBeforeTheirHistory) {
    // Short codes, so that a length code and the distance code after it fit in one lookup.
    std::vector<uint16_t> lit(286, 0), dist(30, 0);
    lit[264] = 1, lit[257] = 2, lit['a'] = 3, lit[256] = 4;
    for (uint32_t s = 'b', l = 5; l <= 11; ++s, ++l) lit[s] = uint16_t(l);
    lit['i'] = 11;
    for (uint32_t c = 0; c < 30; ++c) dist[c] = c < 2 ? 4 : 5;
    auto lc = canonical(lit), dc = canonical(dist);
    const Bytes win = zt::random_bytes(4096, 5);
    // 16 literals, k matches of 10 bytes at distance 1, then a match of 3 bytes whose distance
    // is the output so far, or one more: after every number of steps and whatever loop the
    // decoder has chosen by then.
    for (uint32_t k = 0; k < 40; ++k) {
        const uint32_t produced = 16 + 10 * k;
        for (uint32_t d : {produced, produced + 1}) {
            uint32_t c = 0;
            while (c + 1 < 30 && zi::kDistBase[c + 1] <= d) ++c;
            BitWriter w;
            for (int i = 0; i < 16; ++i) w.code(lc['a'], lit['a']);
            for (uint32_t i = 0; i < k; ++i) w.code(lc[264], lit[264]), w.code(dc[0], dist[0]);
            w.code(lc[257], lit[257]), w.code(dc[c], dist[c]), w.put(d - zi::kDistBase[c], zi::kDistExtra[c]);
            w.code(lc[256], lit[256]);
            Bytes body = w.finish(), out(8192);
            body.resize(2000, 0x5a);  // long enough for the decoder's own tables
            for (bool with_window : {false, true}) {
                zemInflateState st = build_state(lit, dist);
                if (with_window) st.window = const_cast<uint8_t*>(win.data()), st.windowSize = uint32_t(win.size());
                Call call{body.data(), uint32_t(body.size()), out.data(), uint32_t(out.size())};
                const zemStatus s = call.run(st);
                Bytes expect(produced, 'a');
                if (d > produced && !with_window) {
                    EXPECT_EQ(s, zemStatusBadData) << k;
                    EXPECT_EQ(Bytes(out.data(), call.dst), expect) << k;
                    continue;
                }
                expect.push_back(d > produced ? win.back() : 'a');
                expect.push_back('a'), expect.push_back('a');
                EXPECT_TRUE(s == zemStatusOk && call.mode == 0) << k << " " << d << " " << with_window;
                EXPECT_EQ(Bytes(out.data(), call.dst), expect) << k << " " << d << " " << with_window;
            }
        }
    }
}

TEST(InflateDecode, ResumesInsideAPairAndAMatch) {
    // Fixed code: 'a', 'b', then length 258 (symbol 285) at distance 2, then the end code.
    BitWriter w;
    w.code(0x30 + 'a', 8), w.code(0x30 + 'b', 8), w.code(0xc0 + 5, 8), w.code(1, 5), w.code(0, 7);
    Bytes body = w.finish(), expect = {'a', 'b'}, out(300);
    for (int i = 0; i < 258; ++i) expect.push_back(expect[expect.size() - 2]);
    zemInflateState st{};
    for (uint32_t piece : {1u, 2u, 3u, 100u}) EXPECT_EQ(decode_body(st, body, expect.size(), piece, piece), expect) << piece;
    // Output room that ends inside the match: mode 2, and the next call goes on with it.
    Call c{body.data(), uint32_t(body.size()), out.data(), 100};
    ASSERT_EQ(c.run(st), zemStatusOk);
    EXPECT_TRUE(c.mode == 2 && c.room == 0);
    c.room = 200;
    EXPECT_TRUE(c.run(st, 0, 100) == zemStatusOk && c.mode == 0);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + 260), expect);
}

TEST(InflateDecode, LongCallsAgreeWithShortOnesOnAnyBody) {
    // Junk bodies decode to something until they fail: a call with room for the widest loop and
    // calls of a few bytes each must agree on the status and on every byte written before it.
    const Bytes win = zt::random_bytes(32768, 77);
    for (uint64_t seed = 0; seed < 24; ++seed) {
        Bytes junk = zt::random_bytes(3000 + seed * 100, 100 + seed);
        zemInflateState st = build_state(random_code(286, range(0, 286), 9 + seed % 7, seed),
                                         random_code(30, range(0, 30), 5 + seed % 11, seed));
        if (seed % 4 == 0) st.tableKind = 0;
        if (seed % 2) st.window = const_cast<uint8_t*>(win.data()), st.windowSize = uint32_t(win.size());
        zemStatus whole = 1, small = 1;
        Bytes a = decode_body(st, junk, 200000, 0, seed, &whole);
        Bytes b = decode_body(st, junk, 200000, 7, seed, &small);
        EXPECT_EQ(whole, small) << seed;
        EXPECT_TRUE(std::equal(a.begin(), a.begin() + ptrdiff_t(std::min(a.size(), b.size())), b.begin())) << seed;
    }
}

TEST(InflateDecode, DistanceReferencesOutsideTheTableAreMalformed) {
    // A general-layout record whose distance root refers far past its second-level tables (no
    // builder makes one): every call size refuses the first match instead of reading there.
    auto lit = random_code(286, range(0, 286), 13, 41), dist = random_code(30, range(0, 30), 12, 42);
    Block b = make_block(lit, dist, {}, 3000, 43);
    zemInflateState st = build_state(lit, dist);
    ASSERT_EQ(st.tableKind, 1u);
    auto* g = zem::inflate::general(&st);
    for (uint32_t i = 0; i < zem::inflate::kRootSize; ++i) {
        g->dist_tag[i] = uint8_t(zem::inflate::kDistSubTable | (1 + i % 5));
        g->dist_val[i] = uint16_t(i % 2 ? 0xFFFF : zem::inflate::kDistEntries - 1);
    }
    zemStatus whole = 0, small = 0;
    decode_body(st, b.body, b.expect.size(), 0, 0, &whole), decode_body(st, b.body, b.expect.size(), 3, 3, &small);
    EXPECT_TRUE(whole == zemStatusBadData && small == zemStatusBadData);
}

TEST(InflateDecode, ALengthWithoutADistanceCodeIsMalformedWhateverTheRecordHeld) {
    // 'a' repeated, a length code, the end code, in a block with no distance code: the table
    // area's distance part is not written, so a zeroed record, one reused from a block with
    // distance codes (same widths, so its entry sits where the decoder looks) and one of random
    // bytes must all refuse the length. Literals before it bring it to every loop.
    const Bytes noise = zt::random_bytes(sizeof(zemInflateState), 61);
    for (bool general : {false, true}) {
        std::vector<uint16_t> lit(286, 0), none(30, 0);
        lit['a'] = 1, lit[256] = 2, lit[257] = general ? 3 : 2;
        if (general) {
            for (uint32_t l = 4; l <= 12; ++l) lit['a' + l] = uint16_t(l);
            lit['z'] = 12;  // completes the code
        }
        const auto lc = canonical(lit);
        for (uint32_t lead : {200u, 20000u}) {
            BitWriter w;
            for (uint32_t i = 0; i < lead; ++i) w.code(lc['a'], 1);
            w.code(lc[257], lit[257]), w.put(0, 5), w.code(lc[256], lit[256]);
            Bytes body = w.finish();
            body.resize(body.size() + 600, 0x5a);
            for (int held = 0; held < 3; ++held) {
                zemInflateState st;
                memset(&st, 0, sizeof st);
                if (held == 1) st = build_state(lit, random_code(30, range(0, 30), 5, 7));
                if (held == 2) memcpy(&st, noise.data(), sizeof st);
                st.window = nullptr, st.windowSize = 0;
                std::vector<uint16_t> all = lit;
                all.insert(all.end(), none.begin(), none.end());
                ASSERT_EQ(zemsInflateBuildHuffTable(all.data(), 286, 30, &st), zemStatusOk);
                ASSERT_EQ(st.tableKind, general ? 1u : 2u);
                for (uint32_t piece : {0u, 3u, 40u}) {
                    zemStatus s = zemStatusOk;
                    decode_body(st, body, lead + 9000, piece, piece, &s);
                    EXPECT_EQ(s, zemStatusBadData) << general << " lead " << lead << " held " << held << " piece " << piece;
                }
            }
        }
    }
}
