// LZ4 block decoder: liblz4's blocks decode exactly; every status and count; hostile input
// against a plain byte-at-a-time model of the block rules, with both buffers ending at guard
// pages.
#include <lz4hc.h>

#include "test_util.h"

namespace {

struct Decoded {
    zemStatus st;
    int32_t consumed, produced;
};

// The block rules one byte at a time, with every check of the decoder: what ours must report
// whichever of its loops runs. Output starts at `pos0` of `out`, whose first `dict->size()`
// positions are read from the separate dictionary when one is given.
Decoded model(const Bytes& in, Bytes& out, size_t pos0, size_t cap, const Bytes* dict, bool* zero_offset) {
    const size_t E = in.size(), F = pos0 + cap;
    size_t ip = 0, op = pos0;
    auto at = [&](size_t p) { return dict && p < dict->size() ? (*dict)[p] : out[p]; };
    auto done = [&](zemStatus st) { return Decoded{st, int32_t(ip), int32_t(op - pos0)}; };
    auto ext = [&](size_t& v) {  // false when the input ends inside the extension bytes
        for (unsigned x = 255; x == 255; v += x = in[ip++])
            if (ip >= E) return false;
        return true;
    };
    for (;;) {
        if (ip + 1 >= E) return done(E == 1 ? 32 : 0);
        unsigned t = in[ip++];
        size_t lit = t >> 4;
        if (lit == 15) ext(lit);
        if (lit > F - op || (lit != E - ip && lit + 8 > E - ip)) {
            zemStatus st = lit > F - op ? 33 : 32;
            while (op < F && ip < E) out[op++] = in[ip++];
            return done(st);
        }
        for (size_t i = 0; i < lit; ++i) out[op++] = in[ip++];
        if (ip >= E || op >= F) return done(0);
        size_t off = in[ip] | in[ip + 1] << 8, len = t & 15;
        ip += 2;
        if (off > op) return {-2, -1, -1};
        if (off == 0) *zero_offset = true;
        if (len == 15 && !ext(len)) return done(32);
        len += 4;
        bool full = len > F - op;
        if (full) len = F - op;
        for (size_t i = 0; i < len; ++i, ++op) out[op] = at(op - off);
        if (full) return done(33);
    }
}

// Runs ours with input and output at guard pages and compares with the model: statuses and
// counts always, bytes whenever no offset 0 (which keeps whatever the buffer held) was used.
void check_against_model(const Bytes& in, size_t cap, const Bytes* dict = nullptr, size_t dst_idx = 0) {
    zt::GuardedBuffer gin(in), gout(dst_idx + cap);
    memset(gout.data(), 0x55, gout.size());
    Bytes want(dst_idx + cap, 0x55);
    bool zero = false;
    Decoded m = model(in, want, dst_idx, cap, dict, &zero);
    int32_t consumed = (int32_t)in.size(), produced = (int32_t)cap;
    zemStatus st = zemsDecodeLZ4Dict_8u(gin.data(), &consumed, gout.data(), (int32_t)dst_idx, &produced,
                                        dict ? dict->data() : nullptr, dict ? (int32_t)dict->size() : 0);
    ASSERT_EQ(st, m.st);
    if (st == -2) return;
    ASSERT_EQ(consumed, m.consumed);
    ASSERT_EQ(produced, m.produced);
    if (!zero) ASSERT_EQ(0, memcmp(gout.data() + dst_idx, want.data() + dst_idx, (size_t)produced));
}

// level < 0: liblz4's fast encoder with acceleration -level; else its HC encoder at that level.
Bytes liblz4(const Bytes& src, int level) {
    Bytes out((size_t)LZ4_compressBound((int)src.size()));
    const char* s = (const char*)src.data();
    int n = level < 0 ? LZ4_compress_fast(s, (char*)out.data(), (int)src.size(), (int)out.size(), -level)
                      : LZ4_compress_HC(s, (char*)out.data(), (int)src.size(), (int)out.size(), level);
    out.resize((size_t)n);
    return out;
}

// Data that gives every offset below 40 long matches, plus random stretches.
Bytes patterned(size_t n, uint64_t seed) {
    zt::Rng r(seed);
    Bytes v;
    while (v.size() < n) {
        size_t period = 1 + r.below(40), reps = 2 + r.below(60);
        for (size_t i = 0; i < period; ++i) v.push_back(uint8_t(r.next()));
        for (size_t i = period; i < period * reps; ++i) v.push_back(v[v.size() - period]);
        for (size_t i = r.below(20); i > 0; --i) v.push_back(uint8_t(r.next()));
    }
    v.resize(n);
    return v;
}

// Stretches of text-like data (short matches) and of records (rows of 100 bytes with a few
// changed, so matches of 20 to 60 bytes), 40 KB each in turn: the decoder changes loops between
// them.
Bytes text_and_records(uint64_t seed) {
    zt::Rng r(seed);
    Bytes v;
    for (int part = 0; part < 6; ++part) {
        if (part % 2 == 0) {
            Bytes t = zt::compressible_bytes(40000, seed + part);
            v.insert(v.end(), t.begin(), t.end());
            continue;
        }
        Bytes row = zt::random_bytes(100, seed + part);
        for (int i = 0; i < 400; ++i) {
            for (int k = 0; k < 3; ++k) row[r.below(100)] = uint8_t(r.next());
            v.insert(v.end(), row.begin(), row.end());
        }
    }
    return v;
}

TEST(Lz4Decode, LiblzBlocksDecodeExactlyAtGuardPages) {
    std::vector<Bytes> srcs = {zt::random_bytes(70000, 3), patterned(100000, 4), Bytes(100000, 'z'),
                               text_and_records(5)};
    for (size_t n : {1, 5, 13, 33, 34, 64, 65, 1000, 65535, 65536, 200000}) srcs.push_back(zt::compressible_bytes(n, n));
    for (const Bytes& src : srcs) {
        for (int level : {-1, -8, -65537, 9, 12}) {
            Bytes blk = liblz4(src, level);
            zt::GuardedBuffer in(blk), out(src.size());
            int32_t produced = (int32_t)src.size(), consumed = (int32_t)blk.size();
            ASSERT_EQ(zemsDecodeLZ4_8u(in.data(), (int32_t)blk.size(), out.data(), &produced), zemStatusOk);
            ASSERT_EQ(produced, (int32_t)src.size());
            ASSERT_EQ(0, memcmp(out.data(), src.data(), src.size()));
            ASSERT_EQ(zemsDecodeLZ4Dict_8u(in.data(), &consumed, out.data(), 0, &produced, nullptr, 0), zemStatusOk);
            EXPECT_EQ(consumed, (int32_t)blk.size());
        }
    }
}

TEST(Lz4Decode, LiblzStreamBlocksWithSeparateAndPrefixDictionary) {
    Bytes dict = zt::compressible_bytes(65536 + 3000, 77);
    const int32_t dl = (int32_t)dict.size();
    for (size_t n : {20, 100000}) {
        const Bytes src = zt::cat(Bytes(dict.end() - 40000, dict.end()), zt::compressible_bytes(n, n + 1));
        LZ4_stream_t* s = LZ4_createStream();
        LZ4_loadDict(s, (const char*)dict.data(), dl);
        Bytes blk((size_t)LZ4_compressBound((int)src.size()));
        int bn = LZ4_compress_fast_continue(s, (const char*)src.data(), (char*)blk.data(), (int)src.size(),
                                            (int)blk.size(), 1);
        LZ4_freeStream(s);
        zt::GuardedBuffer out(dict.size() + src.size());
        // Separate (the dictionary area of the output is never read), then prefix in place.
        for (bool prefix : {false, true}) {
            memcpy(out.data(), prefix ? dict.data() : Bytes(dict.size(), 0xEE).data(), dict.size());
            memset(out.data() + dl, 0, src.size());
            int32_t consumed = bn, produced = (int32_t)src.size();
            ASSERT_EQ(zemsDecodeLZ4Dict_8u(blk.data(), &consumed, out.data(), dl, &produced,
                                           prefix ? out.data() : dict.data(), dl),
                      0);
            EXPECT_EQ(consumed, bn);
            ASSERT_EQ(produced, (int32_t)src.size());
            ASSERT_EQ(0, memcmp(out.data() + dl, src.data(), src.size()));
        }
    }
}

// A hand-made sequence; off < 0 gives the final literals-only one.
Bytes seq(size_t lit, uint8_t c, int off = -1, size_t mlen = 4) {
    Bytes b;
    zt::lz4_append(b, Bytes(lit, c).data(), lit, off, mlen);
    return b;
}
using zt::cat;

TEST(Lz4Decode, StatusesAndCounts) {
    Bytes ext_cut = seq(10, 'a', 1, 4);  // match length bytes that run off the input
    ext_cut[0] |= 15;
    ext_cut.insert(ext_cut.end(), 9, 255);
    const Bytes m40 = cat(seq(20, 'q', 3, 40), seq(8, 'x'));
    struct Case {
        const char* what;
        Bytes block;
        int32_t cap;
        zemStatus st;
        int32_t consumed, produced;  // consumed -1: the whole block
    } cases[] = {
        {"a lone byte: short, nothing consumed", {0x10}, 100, 32, 0, 0},
        {"literals ending at the input's end", seq(10, 'a'), 100, 0, -1, 10},
        {"one byte left at a sequence boundary", cat(seq(20, 'q', 5, 19 + 255 * 5 + 3), {0x00}), 4096, 0, 2 + 20 + 2 + 6,
         20 + 19 + 255 * 5 + 3},
        {"literals past the output: the capacity", seq(20, 'q'), 7, 33, 2 + 7, 7},
        {"a match past the output: filled, offset and length counted", m40, 31, 33, 2 + 20 + 3, 31},
        {"output full right after literals: clean", m40, 20, 0, 22, 20},
        {"offset before the output: nothing written back", cat(seq(4, 'x', 5, 4), seq(8, 'x')), 100, -2, 0, 0},
        {"the same in a later stretch of the fast loop",
         cat(cat(seq(20000, 'x', 1, 4), seq(0, 'x', 30000, 4)), seq(40, 'x')), 32768, -2, 0, 0},
        {"literals ending 3 bytes before the end: the rest copied", cat(seq(4, 'x'), {1, 2, 3}), 100, 32, 8, 7},
        {"offset 0 is accepted", cat(seq(4, 'x', 0, 9), seq(8, 'x')), 100, 0, -1, 4 + 9 + 8},
        {"match length bytes run off the input", ext_cut, 4096, 32, -1, 10},
    };
    Bytes out(32768, 0);
    for (const Case& c : cases) {
        const int32_t n = (int32_t)c.block.size();
        int32_t consumed = n, produced = c.cap;
        EXPECT_EQ(zemsDecodeLZ4Dict_8u(c.block.data(), &consumed, out.data(), 0, &produced, nullptr, 0), c.st)
            << c.what;
        // On an error the in/out values keep what the caller passed.
        EXPECT_EQ(consumed, c.st == -2 || c.consumed < 0 ? n : c.consumed) << c.what;
        EXPECT_EQ(produced, c.st == -2 ? c.cap : c.produced) << c.what;
    }
    // 8.5 M extension bytes of 255 carry the match length past 2^31.
    Bytes b = {0x1F, 'a', 1, 0};
    b.insert(b.end(), 8500000, 255);
    b.insert(b.end(), 11, 0);
    int32_t produced = 64;
    EXPECT_EQ(zemsDecodeLZ4_8u(b.data(), (int32_t)b.size(), out.data(), &produced), zemStatusSize);
}

TEST(Lz4Decode, EveryShortOffsetInBothLoops) {
    // Long matches of every offset below 48 after distinct literals; the exact capacity runs the
    // careful loop, a roomy one the fast loop.
    for (int off = 1; off < 48; ++off) {
        for (size_t mlen : {4, 15, 16, 19, 32, 33, 64, 65, 1000}) {
            Bytes b = cat(seq(48, uint8_t(off), off, mlen), seq(40, 'e'));
            for (size_t i = 0; i < 48; ++i) b[2 + i] = uint8_t(i * 37 + off);
            for (size_t slack : {0, 200}) check_against_model(b, 48 + mlen + 40 + slack);
        }
    }
}

TEST(Lz4Decode, ShortSequencesAroundTheOneExtensionByteLimit) {
    // Short literal runs before matches of up to 64 bytes take the fast loop's shortest path,
    // extension byte included; 65 bytes and more, or an extension byte of 255, do not. Every
    // combination in one block, with distinct literals so that a wrong source shows, against
    // the model at a roomy and an exact capacity.
    zt::Rng r(17);
    Bytes b = seq(300, 0, 1, 4);
    for (size_t i = 3; i < 303; ++i) b[i] = uint8_t(r.next());  // after the token and 2 extension bytes
    size_t out_len = 304;
    for (size_t lit : {0, 1, 7, 14})
        for (size_t mlen : {4, 18, 19, 20, 33, 48, 63, 64, 65, 100, 273, 274, 530})
            for (int off : {16, 17, 31, 32, 33, 47, 63, 64, 65, 299}) {
                Bytes s = seq(lit, 0, off, mlen);
                for (size_t i = 0; i < lit; ++i) s[1 + i] = uint8_t(r.next());
                b = cat(b, s);
                out_len += lit + mlen;
            }
    b = cat(b, seq(40, 'e'));
    out_len += 40;
    check_against_model(b, out_len + 300);
    check_against_model(b, out_len);
    int32_t produced = int32_t(out_len + 300);
    Bytes out(out_len + 300);
    ASSERT_EQ(zemsDecodeLZ4_8u(b.data(), (int32_t)b.size(), out.data(), &produced), 0);  // the whole block
    ASSERT_EQ(produced, (int32_t)out_len);
}

TEST(Lz4Decode, ShortLiteralsThatCrossTheOutputMarginHandTheMatchOver) {
    // A short literal run is copied without a length test, so it may carry the output past the
    // fast loop's margin; the match after it must still go to the careful loop, for every
    // offset kind (pattern, short, wide, separate dictionary) and every crossing.
    const Bytes dict = zt::random_bytes(100, 3);
    for (int off : {1, 7, 20, 40, 90})
        for (size_t lit = 1; lit < 15; ++lit)
            for (size_t cap = 65; cap < 65 + 16; ++cap) {
                const Bytes b = cat(seq(lit, 'x', off, 80), seq(40, 'e'));
                check_against_model(b, cap, &dict, 100);
                if (off <= (int)lit) check_against_model(b, cap);
            }
}

TEST(Lz4Decode, TruncatedCorruptedAndRandomAgreeWithTheModel) {
    zt::Rng r(99);
    Bytes src = patterned(3000, 5), blk = liblz4(src, -1);
    for (size_t n = 1; n <= blk.size(); n += (n < 200 ? 1 : 7)) {  // every truncation, two capacities
        Bytes cut(blk.begin(), blk.begin() + (long)n);
        check_against_model(cut, src.size());
        check_against_model(cut, 1 + r.below((uint32_t)src.size()));
    }
    // Flipped bytes, also in blocks longer than 64 KiB: past that point the fast loop no
    // longer tests offsets against the output's start; and in records, where it takes its wide
    // common sequence.
    const Bytes bigs[2] = {patterned(150000, 6), text_and_records(7)};
    const Bytes big_blks[2] = {liblz4(bigs[0], -1), liblz4(bigs[1], -1)};
    for (int i = 0; i < 1560; ++i) {
        Bytes bad = i < 1500 ? blk : big_blks[i % 2];
        for (int k = 1 + (int)r.below(4); k > 0; --k) bad[r.below((uint32_t)bad.size())] = uint8_t(r.next());
        check_against_model(bad, (i < 1500 ? src.size() : bigs[i % 2].size()) + r.below(200));
    }
    // Random bytes biased to small offsets so that matches succeed, without and with a
    // separate dictionary standing for the first 300 output positions.
    Bytes dict = zt::random_bytes(300, 8);
    for (int i = 0; i < 2300; ++i) {
        Bytes junk(1 + r.below(400));
        for (auto& x : junk) x = uint8_t(r.below(4) == 0 ? r.next() : i < 1500 ? r.below(16) : r.below(8) << 4 | r.below(3));
        if (i < 1500)
            check_against_model(junk, 1 + r.below(2000));
        else
            check_against_model(junk, 1 + r.below(500), &dict, 300 + r.below(50));
    }
}

TEST(Lz4Decode, ArgumentChecks) {
    uint8_t in[8] = {0x10, 'a'}, out[8], dict[4] = {};
    int32_t n = 8, cap = 8;
    EXPECT_EQ(zemsDecodeLZ4_8u(nullptr, 0, out, &cap), zemStatusNullPtr);  // pointers first
    EXPECT_EQ(zemsDecodeLZ4_8u(in, 2, nullptr, &cap), zemStatusNullPtr);
    EXPECT_EQ(zemsDecodeLZ4_8u(in, 2, out, nullptr), zemStatusNullPtr);
    EXPECT_EQ(zemsDecodeLZ4_8u(in, 0, out, &cap), zemStatusSize);
    cap = 0;
    EXPECT_EQ(zemsDecodeLZ4_8u(in, 2, out, &cap), zemStatusSize);
    cap = 8;
    EXPECT_EQ(zemsDecodeLZ4Dict_8u(in, nullptr, out, 0, &cap, dict, 4), zemStatusNullPtr);
    EXPECT_EQ(zemsDecodeLZ4Dict_8u(in, &n, out, 0, nullptr, dict, 4), zemStatusNullPtr);
    n = -1;
    EXPECT_EQ(zemsDecodeLZ4Dict_8u(in, &n, out, 4, &cap, dict, 4), zemStatusSize);
    n = 2;
    EXPECT_EQ(zemsDecodeLZ4Dict_8u(in, &n, out, 4, &cap, dict, -3), zemStatusSize);
    EXPECT_EQ(n, 2);
    EXPECT_EQ(zemsDecodeLZ4Dict_8u(in, &n, out, 4, &cap, dict, 4), zemStatusOk);
    EXPECT_EQ(cap, 1);
    EXPECT_EQ(out[4], 'a');
}

}  // namespace
