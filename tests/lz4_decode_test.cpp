// LZ4 block decoder: liblz4's blocks decode exactly; every status and count; hostile input
// against a plain byte-at-a-time model of the block rules, with both buffers ending at guard
// pages.
#include <gtest/gtest.h>
#include <lz4.h>
#include <lz4hc.h>

#include <vector>

#include "test_util.h"
#include "zemdc.h"

namespace {

using Bytes = std::vector<uint8_t>;

struct Decoded {
    zemStatus st;
    int32_t consumed;
    int32_t produced;
};

// The block rules one byte at a time, with every check of the decoder: what ours must report
// whichever of its loops runs. `pos0` is the output position where decoding starts in a buffer
// whose first `dict.size()` positions are a separate dictionary (or `low` for no dictionary).
Decoded model(const Bytes& in, Bytes& out, size_t pos0, size_t cap, size_t low, const Bytes* dict, bool* zero_offset) {
    const size_t E = in.size(), F = pos0 + cap;
    size_t ip = 0, op = pos0;
    auto at = [&](size_t p) { return dict && p < dict->size() ? (*dict)[p] : out[p]; };
    auto done = [&](zemStatus st) { return Decoded{st, int32_t(ip), int32_t(op - pos0)}; };
    for (;;) {
        if (ip + 1 >= E) return done(E == 1 ? 32 : 0);
        unsigned t = in[ip++];
        size_t lit = t >> 4;
        if (lit == 15) {
            unsigned x;
            do {
                if (ip >= E) break;
                lit += x = in[ip++];
            } while (x == 255);
        }
        if (lit > F - op || (lit != E - ip && lit + 8 > E - ip)) {
            zemStatus st = lit > F - op ? 33 : 32;
            while (op < F && ip < E) out[op++] = in[ip++];
            return done(st);
        }
        for (size_t i = 0; i < lit; ++i) out[op++] = in[ip++];
        if (ip >= E || op >= F) return done(0);
        size_t off = in[ip] | in[ip + 1] << 8;
        ip += 2;
        if (off > op - low) return {-2, -1, -1};
        if (off == 0) *zero_offset = true;
        size_t len = t & 15;
        if (len == 15) {
            unsigned x;
            do {
                if (ip >= E) return done(32);
                len += x = in[ip++];
            } while (x == 255);
        }
        len += 4;
        bool full = len > F - op;
        if (full) len = F - op;
        for (size_t i = 0; i < len; ++i, ++op) out[op] = at(op - off);
        if (full) return done(33);
    }
}

// Runs ours with input and output at guard pages and compares with the model: statuses and
// counts always, bytes whenever no offset 0 (which keeps whatever the buffer held) was used.
void check_against_model(const Bytes& in, size_t cap) {
    zt::GuardedBuffer gin(in.size()), gout(cap);
    gin.assign(in.data(), in.size());
    Bytes want(cap, 0);
    bool zero = false;
    Decoded m = model(in, want, 0, cap, 0, nullptr, &zero);
    int32_t consumed = (int32_t)in.size(), produced = (int32_t)cap;
    zemStatus st = zemsDecodeLZ4Dict_8u(gin.data(), &consumed, gout.data(), 0, &produced, nullptr, 0);
    ASSERT_EQ(st, m.st);
    if (st == -2) return;
    ASSERT_EQ(consumed, m.consumed);
    ASSERT_EQ(produced, m.produced);
    if (!zero) ASSERT_EQ(0, memcmp(gout.data(), want.data(), (size_t)produced));
}

Bytes lz4_default(const Bytes& src, int accel = 1) {
    Bytes out((size_t)LZ4_compressBound((int)src.size()));
    int n = LZ4_compress_fast((const char*)src.data(), (char*)out.data(), (int)src.size(), (int)out.size(), accel);
    out.resize((size_t)n);
    return out;
}

Bytes lz4_hc(const Bytes& src, int level) {
    Bytes out((size_t)LZ4_compressBound((int)src.size()));
    int n = LZ4_compress_HC((const char*)src.data(), (char*)out.data(), (int)src.size(), (int)out.size(), level);
    out.resize((size_t)n);
    return out;
}

// Data that gives every offset below 40 long matches, plus text-like and random stretches.
Bytes patterned(size_t n, uint64_t seed) {
    zt::Rng r(seed);
    Bytes v;
    while (v.size() < n) {
        size_t period = 1 + r.below(40);
        size_t reps = 2 + r.below(60);
        for (size_t i = 0; i < period; ++i) v.push_back(uint8_t(r.next()));
        for (size_t i = period; i < period * reps && v.size() < n; ++i) v.push_back(v[v.size() - period]);
        for (size_t i = r.below(20); i > 0; --i) v.push_back(uint8_t(r.next()));
    }
    v.resize(n);
    return v;
}

std::vector<Bytes> sample_inputs() {
    std::vector<Bytes> v;
    for (size_t n : {1, 5, 13, 33, 34, 64, 65, 100, 1000, 65535, 65536, 200000})
        v.push_back(zt::compressible_bytes(n, n));
    v.push_back(zt::random_bytes(70000, 3));
    v.push_back(patterned(100000, 4));
    v.push_back(Bytes(100000, 'z'));
    return v;
}

TEST(Lz4Decode, LiblzBlocksDecodeExactlyAtGuardPages) {
    for (const Bytes& src : sample_inputs()) {
        std::vector<Bytes> blocks = {lz4_default(src), lz4_default(src, 8), lz4_default(src, 65537), lz4_hc(src, 9),
                                     lz4_hc(src, 12)};
        for (const Bytes& blk : blocks) {
            zt::GuardedBuffer in(blk.size()), out(src.size());
            in.assign(blk.data(), blk.size());
            int32_t produced = (int32_t)src.size();
            ASSERT_EQ(zemsDecodeLZ4_8u(in.data(), (int32_t)blk.size(), out.data(), &produced), zemStatusOk);
            ASSERT_EQ(produced, (int32_t)src.size());
            ASSERT_EQ(0, memcmp(out.data(), src.data(), src.size()));
            int32_t consumed = (int32_t)blk.size();
            produced = (int32_t)src.size();
            ASSERT_EQ(zemsDecodeLZ4Dict_8u(in.data(), &consumed, out.data(), 0, &produced, nullptr, 0), zemStatusOk);
            EXPECT_EQ(consumed, (int32_t)blk.size());
        }
    }
}

TEST(Lz4Decode, LiblzStreamBlocksWithSeparateAndPrefixDictionary) {
    Bytes dict = zt::compressible_bytes(65536 + 3000, 77);
    for (size_t n : {20, 100, 5000, 100000}) {
        Bytes src(dict.end() - 40000, dict.end());  // much of it repeats the dictionary
        Bytes more = zt::compressible_bytes(n, n + 1);
        src.insert(src.end(), more.begin(), more.end());
        LZ4_stream_t* s = LZ4_createStream();
        LZ4_loadDict(s, (const char*)dict.data(), (int)dict.size());
        Bytes blk((size_t)LZ4_compressBound((int)src.size()));
        int bn = LZ4_compress_fast_continue(s, (const char*)src.data(), (char*)blk.data(), (int)src.size(),
                                            (int)blk.size(), 1);
        LZ4_freeStream(s);
        blk.resize((size_t)bn);

        // Separate dictionary: it stands for the first dict.size() positions of the output.
        const int32_t dl = (int32_t)dict.size();
        zt::GuardedBuffer out(dict.size() + src.size());
        memset(out.data(), 0xEE, dict.size());  // never read
        int32_t consumed = bn, produced = (int32_t)src.size();
        ASSERT_EQ(zemsDecodeLZ4Dict_8u(blk.data(), &consumed, out.data(), dl, &produced, dict.data(), dl), 0);
        EXPECT_EQ(consumed, bn);
        ASSERT_EQ(produced, (int32_t)src.size());
        ASSERT_EQ(0, memcmp(out.data() + dl, src.data(), src.size()));

        // Prefix: the dictionary lies right before the output in the same memory.
        memcpy(out.data(), dict.data(), dict.size());
        memset(out.data() + dl, 0, src.size());
        consumed = bn;
        produced = (int32_t)src.size();
        ASSERT_EQ(zemsDecodeLZ4Dict_8u(blk.data(), &consumed, out.data(), dl, &produced, out.data(), dl), 0);
        ASSERT_EQ(0, memcmp(out.data() + dl, src.data(), src.size()));

        // Without the history the first back-reference into it is an error.
        produced = (int32_t)src.size();
        EXPECT_EQ(zemsDecodeLZ4_8u(blk.data(), bn, out.data() + dl, &produced), zemStatusError);
        EXPECT_EQ(produced, (int32_t)src.size());  // not written back
    }
}

// A hand-made block: literals-only token and the various sequence shapes.
Bytes seq(size_t lit, const Bytes& lits, int off, size_t mlen) {
    Bytes b;
    size_t m = mlen >= 4 ? mlen - 4 : 0;
    b.push_back(uint8_t((lit < 15 ? lit : 15) << 4 | (m < 15 ? m : 15)));
    if (lit >= 15) {
        size_t r = lit - 15;
        for (; r >= 255; r -= 255) b.push_back(255);
        b.push_back(uint8_t(r));
    }
    for (uint8_t c : lits) b.push_back(c);
    if (off < 0) return b;
    b.push_back(uint8_t(off));
    b.push_back(uint8_t(off >> 8));
    if (m >= 15) {
        size_t r = m - 15;
        for (; r >= 255; r -= 255) b.push_back(255);
        b.push_back(uint8_t(r));
    }
    return b;
}
Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes v;
    for (auto& p : parts) v.insert(v.end(), p.begin(), p.end());
    return v;
}

TEST(Lz4Decode, StatusesAndCounts) {
    const Bytes q20(20, 'q'), x4(4, 'x'), x8(8, 'x');
    Bytes ext_cut = seq(10, Bytes(10, 'a'), 1, 4);  // match length bytes that run off the input
    ext_cut[0] |= 15;
    ext_cut.insert(ext_cut.end(), 9, 255);
    struct Case {
        const char* what;
        Bytes block;
        int32_t cap;
        zemStatus st;
        int32_t consumed, produced;  // consumed -1: the whole block
    } cases[] = {
        {"a lone byte: short, nothing consumed", {0x10}, 100, 32, 0, 0},
        {"literals ending at the input's end", seq(10, Bytes(10, 'a'), -1, 0), 100, 0, -1, 10},
        {"one byte left at a sequence boundary", cat({seq(20, q20, 5, 19 + 255 * 5 + 3), {0x00}}), 4096, 0, 2 + 20 + 2 + 6,
         20 + 19 + 255 * 5 + 3},
        {"literals past the output: the capacity", seq(20, q20, -1, 0), 7, 33, 2 + 7, 7},
        {"a match past the output: filled, offset and length counted", cat({seq(20, q20, 3, 40), seq(8, x8, -1, 0)}),
         31, 33, 2 + 20 + 3, 31},
        {"output full right after literals: clean", cat({seq(20, q20, 3, 40), seq(8, x8, -1, 0)}), 20, 0, 22, 20},
        {"offset before the output: nothing written back", cat({seq(4, x4, 5, 4), seq(8, x8, -1, 0)}), 100, -2, 0, 0},
        {"literals ending 3 bytes before the end: the rest copied", cat({seq(4, x4, -1, 0), {1, 2, 3}}), 100, 32, 8, 7},
        {"offset 0 is accepted", cat({seq(4, x4, 0, 9), seq(8, x8, -1, 0)}), 100, 0, -1, 4 + 9 + 8},
        {"match length bytes run off the input", ext_cut, 4096, 32, -1, 10},
    };
    Bytes out(4096, 0);
    for (const Case& c : cases) {
        const int32_t n = (int32_t)c.block.size();
        int32_t consumed = n, produced = c.cap;
        EXPECT_EQ(zemsDecodeLZ4Dict_8u(c.block.data(), &consumed, out.data(), 0, &produced, nullptr, 0), c.st)
            << c.what;
        // On an error the in/out values keep what the caller passed.
        EXPECT_EQ(consumed, c.st == -2 || c.consumed < 0 ? n : c.consumed) << c.what;
        EXPECT_EQ(produced, c.st == -2 ? c.cap : c.produced) << c.what;
    }
}

TEST(Lz4Decode, LengthOverflowIsASizeError) {
    // 8.5 M extension bytes of 255 carry the match length past 2^31.
    Bytes b = {0x1F, 'a', 1, 0};
    b.insert(b.end(), 8500000, 255);
    b.push_back(0);
    b.insert(b.end(), 10, 0);
    Bytes out(64);
    int32_t produced = 64;
    EXPECT_EQ(zemsDecodeLZ4_8u(b.data(), (int32_t)b.size(), out.data(), &produced), zemStatusSize);
}

TEST(Lz4Decode, EveryShortOffsetInBothLoops) {
    // Long matches of every offset below 48, far from the ends (fast loop) and in the last
    // bytes (careful loop), against a forward byte copy.
    for (int off = 1; off < 48; ++off) {
        for (size_t mlen : {4, 5, 15, 16, 17, 18, 19, 31, 32, 33, 63, 64, 65, 200, 1000}) {
            Bytes lits(48);
            for (size_t i = 0; i < lits.size(); ++i) lits[i] = uint8_t(i * 37 + off);
            Bytes b = cat({seq(48, lits, off, mlen), seq(40, Bytes(40, 'e'), -1, 0)});
            Bytes want(lits);
            for (size_t i = 0; i < mlen; ++i) want.push_back(want[want.size() - off]);
            want.insert(want.end(), 40, 'e');
            for (size_t slack : {0, 200}) {  // capacity exact: careful; roomy: fast
                zt::GuardedBuffer out(want.size() + slack);
                int32_t produced = (int32_t)out.size();
                ASSERT_EQ(zemsDecodeLZ4_8u(b.data(), (int32_t)b.size(), out.data(), &produced), 0);
                ASSERT_EQ(produced, (int32_t)want.size());
                ASSERT_EQ(0, memcmp(out.data(), want.data(), want.size())) << off << " " << mlen;
            }
        }
    }
}

TEST(Lz4Decode, TruncatedCorruptedAndRandomAgreeWithTheModel) {
    zt::Rng r(99);
    Bytes src = patterned(3000, 5);
    Bytes blk = lz4_default(src);
    // Every truncation, at two capacities.
    for (size_t n = 1; n <= blk.size(); n += (n < 200 ? 1 : 7)) {
        Bytes cut(blk.begin(), blk.begin() + (long)n);
        check_against_model(cut, src.size());
        check_against_model(cut, 1 + r.below((uint32_t)src.size()));
    }
    // Flipped bytes.
    for (int i = 0; i < 1500; ++i) {
        Bytes bad = blk;
        for (int k = 1 + (int)r.below(4); k > 0; --k) bad[r.below((uint32_t)bad.size())] = uint8_t(r.next());
        check_against_model(bad, src.size() + r.below(200));
    }
    // Flipped bytes in a block longer than 64 KiB: past that point the fast loop no longer
    // tests offsets against the output's start.
    Bytes big = patterned(150000, 6);
    Bytes big_blk = lz4_default(big);
    for (int i = 0; i < 60; ++i) {
        Bytes bad = big_blk;
        for (int k = 1 + (int)r.below(3); k > 0; --k) bad[r.below((uint32_t)bad.size())] = uint8_t(r.next());
        check_against_model(bad, big.size() + r.below(100));
    }
    // Random bytes, biased to small offsets so that matches succeed.
    for (int i = 0; i < 1500; ++i) {
        Bytes junk(1 + r.below(400));
        for (auto& x : junk) x = uint8_t(r.below(4) == 0 ? r.next() : r.below(16));
        check_against_model(junk, 1 + r.below(2000));
    }
}

TEST(Lz4Decode, SeparateDictionaryMatchesTheModel) {
    // Random blocks with a separate dictionary, against the model that reads positions below
    // the dictionary's length from it.
    zt::Rng r(7);
    Bytes dict = zt::random_bytes(300, 8);
    for (int i = 0; i < 800; ++i) {
        Bytes junk(1 + r.below(300));
        for (auto& x : junk) x = uint8_t(r.below(3) == 0 ? r.next() : r.below(8) << 4 | r.below(3));
        size_t dst_idx = 300 + r.below(50), cap = 1 + r.below(500);
        Bytes want(dst_idx + cap, 0x55);
        bool zero = false;
        Decoded m = model(junk, want, dst_idx, cap, 0, &dict, &zero);
        zt::GuardedBuffer out(dst_idx + cap);
        memset(out.data(), 0x55, out.size());
        int32_t consumed = (int32_t)junk.size(), produced = (int32_t)cap;
        zemStatus st = zemsDecodeLZ4Dict_8u(junk.data(), &consumed, out.data(), (int32_t)dst_idx, &produced,
                                            dict.data(), (int32_t)dict.size());
        ASSERT_EQ(st, m.st);
        if (st == -2) continue;
        ASSERT_EQ(consumed, m.consumed);
        ASSERT_EQ(produced, m.produced);
        if (!zero) ASSERT_EQ(0, memcmp(out.data() + dst_idx, want.data() + dst_idx, (size_t)produced));
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
