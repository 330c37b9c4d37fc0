// The LZ4 high-compression encoder: liblz4 decodes everything it writes; levels, the window
// edge, history, dictionaries, the low limit and output that runs out.
#include "test_util.h"

namespace {

struct Tables {
    Bytes hash = Bytes(131072), chain = Bytes(262144);
    uint8_t* p[2] = {hash.data(), chain.data()};
    Tables() { EXPECT_EQ(zemsEncodeLZ4HCHashTableInit_8u(p), zemStatusOk); }
};

struct Result {
    zemStatus status;
    int32_t consumed, produced;
    Bytes out;
};

Result encode(Tables& t, const uint8_t* src, int32_t src_len, int level, int32_t cap = -1, int32_t src_idx = 0,
              const uint8_t* dict = nullptr, int32_t dict_len = 0) {
    if (cap < 0) cap = src_len + src_len / 255 + 16;
    Result r{0, src_len, cap, Bytes((size_t)cap + 1)};
    r.status = zemsEncodeLZ4HC_8u(src, src_idx, &r.consumed, r.out.data(), &r.produced, t.p, dict, dict_len, level);
    r.out.resize((size_t)r.produced);
    return r;
}

Result encode_fresh(const Bytes& in, int level) {
    Tables t;
    return encode(t, in.data(), (int32_t)in.size(), level);
}

void expect_round_trip(const Bytes& in, const Result& r) {
    ASSERT_EQ(r.status, zemStatusOk);
    ASSERT_EQ(r.consumed, (int32_t)in.size());
    ASSERT_LE(r.produced, (int32_t)(in.size() + in.size() / 255 + 16));
    zt::expect_lz4_block(r.out.data(), r.out.size(), in);
}

// Sequences of a block: the literal count, the match length (0 for the final run) and where
// each sequence ends in the block; what the format says, walked without liblz4.
struct Seq {
    uint32_t lit, match, dist;
    size_t end;
};
std::vector<Seq> walk(const Bytes& b) {
    std::vector<Seq> seqs;
    size_t i = 0;
    while (i < b.size()) {
        Seq s{};
        uint8_t tok = b[i++];
        s.lit = tok >> 4;
        if (s.lit == 15)
            for (uint8_t x = 255; x == 255 && i < b.size();) s.lit += (x = b[i++]);
        i += s.lit;
        if (i + 2 <= b.size()) {
            s.dist = b[i] | b[i + 1] << 8;
            i += 2;
            s.match = (tok & 15u) + 4;
            if ((tok & 15) == 15)
                for (uint8_t x = 255; x == 255 && i < b.size();) s.match += (x = b[i++]);
        }
        s.end = i;
        seqs.push_back(s);
    }
    return seqs;
}

TEST(LZ4HC, TableSizesAndInit) {
    int32_t hs = 0, cs = 0;
    EXPECT_EQ(zemsEncodeLZ4HCHashTableGetSize_8u(nullptr, &cs), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeLZ4HCHashTableGetSize_8u(&hs, nullptr), zemStatusNullPtr);
    ASSERT_EQ(zemsEncodeLZ4HCHashTableGetSize_8u(&hs, &cs), zemStatusOk);
    EXPECT_EQ(hs, 131072);
    EXPECT_EQ(cs, 262144);

    Bytes hash(131072, 0xAB), chain(262144, 0xCD);
    uint8_t* none[2] = {nullptr, chain.data()};
    EXPECT_EQ(zemsEncodeLZ4HCHashTableInit_8u(nullptr), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeLZ4HCHashTableInit_8u(none), zemStatusNullPtr);
    EXPECT_EQ(chain[0], 0xCD);
    // The hash table is cleared before the chain table's pointer is checked.
    uint8_t* half[2] = {hash.data(), nullptr};
    EXPECT_EQ(zemsEncodeLZ4HCHashTableInit_8u(half), zemStatusNullPtr);
    EXPECT_EQ(hash, Bytes(131072, 0));
    uint8_t* both[2] = {hash.data(), chain.data()};
    EXPECT_EQ(zemsEncodeLZ4HCHashTableInit_8u(both), zemStatusOk);
    EXPECT_EQ(chain, Bytes(262144, 0));
}

TEST(LZ4HC, ArgumentOrder) {
    Tables t;
    Bytes in(100, 'x'), out(200), dict(50, 'd');
    int32_t len = 100, cap = 200;
    uint8_t* no_chain[2] = {t.hash.data(), nullptr};
    auto hc = [&](const uint8_t* s, int32_t idx, int32_t* pl, uint8_t* d, int32_t* pc, uint8_t* const* tb,
                  const uint8_t* dc, int32_t dl) { return zemsEncodeLZ4HC_8u(s, idx, pl, d, pc, tb, dc, dl, 9); };
    EXPECT_EQ(hc(nullptr, 0, &len, out.data(), &cap, t.p, nullptr, 0), zemStatusNullPtr);
    EXPECT_EQ(hc(in.data(), 0, &len, out.data(), &cap, no_chain, nullptr, 0), zemStatusNullPtr);
    EXPECT_EQ(hc(in.data(), 0, &len, out.data(), &cap, nullptr, nullptr, 0), zemStatusNullPtr);
    // A dictionary length below 1 is reported before any pointer.
    EXPECT_EQ(hc(nullptr, 0, &len, out.data(), &cap, t.p, dict.data(), -1), zemStatusSize);
    EXPECT_EQ(hc(in.data(), -1, &len, out.data(), &cap, t.p, dict.data(), 50), zemStatusBadArg);
    EXPECT_EQ(hc(in.data(), -1, &len, out.data(), &cap, t.p, nullptr, 0), zemStatusBadArg);
    int32_t zero = 0;
    EXPECT_EQ(hc(in.data(), -1, &zero, out.data(), &cap, t.p, dict.data(), 50), zemStatusSize);
    EXPECT_EQ(hc(nullptr, -1, &zero, out.data(), &cap, t.p, dict.data(), 50), zemStatusNullPtr);

    auto lim = [&](const uint8_t* s, int32_t idx, int32_t* pl, uint8_t* const* tb, int32_t dl) {
        return zemsEncodeLZ4HCDictLimit_8u(s, idx, pl, out.data(), &cap, tb, dict.data(), dl, 9, 0);
    };
    EXPECT_EQ(lim(nullptr, 0, &len, t.p, -1), zemStatusNullPtr);  // no dictionary-length check here
    EXPECT_EQ(lim(in.data(), 0, &len, no_chain, 50), zemStatusNullPtr);
    EXPECT_EQ(lim(in.data(), -1, &zero, t.p, 50), zemStatusSize);
    EXPECT_EQ(lim(in.data(), -1, &len, t.p, 50), zemStatusBadArg);
    EXPECT_EQ(len, 100);
    EXPECT_EQ(cap, 200);
}

TEST(LZ4HC, RoundTripsThroughLiblz4AndLevels) {
    const Bytes inputs[] = {zt::compressible_bytes(300000, 1), zt::random_bytes(70000, 2), zt::text_like(100000, 3),
                            Bytes(100000, 0), zt::compressible_bytes(37, 5), zt::compressible_bytes(38, 6)};
    for (const Bytes& in : inputs)
        for (int level : {1, 2, 9}) {
            SCOPED_TRACE(testing::Message() << in.size() << " bytes, level " << level);
            Result r = encode_fresh(in, level);
            expect_round_trip(in, r);
            auto seqs = walk(r.out);
            // The block ends with a literal run that holds at least the last five bytes.
            EXPECT_EQ(seqs.back().match, 0u);
            EXPECT_GE(seqs.back().lit, 5u);
        }
    // Deeper searches never lose on text, and all levels beat the literal bound on it.
    const Bytes& text = inputs[2];
    EXPECT_LE(encode_fresh(text, 9).produced, encode_fresh(text, 4).produced);
    EXPECT_LE(encode_fresh(text, 4).produced, encode_fresh(text, 1).produced);
    EXPECT_LT(encode_fresh(text, 1).produced, 100000 / 2);
    // Levels are normalised: 0 and above 9 are 9, below 1 is 1.
    Bytes in(text.begin(), text.begin() + 50000);
    EXPECT_EQ(encode_fresh(in, 0).out, encode_fresh(in, 9).out);
    EXPECT_EQ(encode_fresh(in, 12).out, encode_fresh(in, 9).out);
    EXPECT_EQ(encode_fresh(in, -3).out, encode_fresh(in, 1).out);
    EXPECT_NE(encode_fresh(in, 1).out, encode_fresh(in, 9).out);
}

TEST(LZ4HC, ShortInputsAreLiteralsAndTheWindowEndsAt65534) {
    for (int32_t n : {1, 14, 15, 36}) {
        Bytes in = Bytes((size_t)n, 'a');
        Result r = encode_fresh(in, 9);
        expect_round_trip(in, r);
        EXPECT_EQ(r.produced, n + 1 + (n >= 15)) << n;  // a token, maybe one length byte, the bytes
    }
    // Positions 0 and 1 of 38 bytes have room to search, but position 0 ends every chain; at
    // 39 bytes position 2 finds position 1.
    for (int32_t n : {37, 38, 39}) {
        Bytes run((size_t)n, 'a');
        Result r = encode_fresh(run, 9);
        expect_round_trip(run, r);
        EXPECT_EQ(walk(r.out).size(), n == 39 ? 2u : 1u) << n;
    }
    for (uint32_t dist : {65534u, 65535u}) {
        Bytes in = zt::random_bytes(dist + 200, 9);
        memcpy(&in[10 + dist], &in[10], 100);
        Result r = encode_fresh(in, 9);
        expect_round_trip(in, r);
        bool found = false;
        for (auto& s : walk(r.out)) found |= s.match >= 100 && s.dist == dist;
        EXPECT_EQ(found, dist <= 65534) << dist;
    }
}

// Every capacity below the full size ends with 33 and the longest prefix of the full block
// that holds whole sequences, with exactly their input consumed (the full block decodes, so
// the prefix does). Input and output end at guard pages.
TEST(LZ4HC, TightOutputEndsAtLastCompleteSequence) {
    Bytes in = zt::compressible_bytes(3000, 11);
    zt::GuardedBuffer guarded_in(in);
    Result whole = encode_fresh(in, 9);
    expect_round_trip(in, whole);
    auto seqs = walk(whole.out);
    for (int32_t cap = 0; cap <= whole.produced; ++cap) {
        SCOPED_TRACE(cap);
        zt::GuardedBuffer out((size_t)(cap > 0 ? cap : 1));
        Tables t;
        int32_t len = (int32_t)in.size(), produced = cap;
        zemStatus st = zemsEncodeLZ4HC_8u(guarded_in.data(), 0, &len, out.data(), &produced, t.p, nullptr, 0, 9);
        size_t fit = 0, consumed = 0;
        for (auto& s : seqs) {
            if (s.end > (size_t)cap || (s.match == 0 && cap < whole.produced)) break;
            fit = s.end;
            consumed += s.lit + s.match;
        }
        ASSERT_EQ(st, cap == whole.produced ? zemStatusOk : zemStatusDstTooSmall);
        ASSERT_EQ(produced, (int32_t)fit);
        ASSERT_EQ(len, (int32_t)consumed);
        ASSERT_EQ(0, memcmp(out.data(), whole.out.data(), fit));
    }
}

// Blocks of one buffer encoded one after another with the same tables: later blocks refer
// back into earlier ones when the history is declared in place; without it, nothing before
// the input is used, and a caller's low limit opens the history again.
TEST(LZ4HC, HistoryInPlace) {
    Bytes all = zt::text_like(120000, 17);
    Tables t;
    const int32_t first = 60000;
    const Bytes second(all.begin() + first, all.end());
    expect_round_trip(Bytes(all.begin(), all.begin() + first), encode(t, all.data(), first, 9));
    Result b = encode(t, all.data() + first, (int32_t)second.size(), 9, -1, first, all.data(), first);
    ASSERT_EQ(b.status, zemStatusOk);
    zt::expect_lz4_block(b.out.data(), b.out.size(), second, all.data(), first);
    EXPECT_LT(b.produced, encode_fresh(second, 9).produced);
    expect_round_trip(second, encode(t, all.data() + first, (int32_t)second.size(), 9, -1, first));
    int32_t len = (int32_t)second.size(), cap = (int32_t)second.size() * 2;
    Bytes out((size_t)cap);
    ASSERT_EQ(zemsEncodeLZ4HCDictLimit_8u(all.data() + first, first, &len, out.data(), &cap, t.p, nullptr, 0, 9, 1),
              zemStatusOk);
    out.resize((size_t)cap);
    zt::expect_lz4_block(out.data(), out.size(), second, all.data(), first);
    EXPECT_LT(cap, encode_fresh(second, 9).produced);
}

// A dictionary in its own buffer: the tables learn it from encoding it first, then the input
// is numbered to follow it. A low limit inside the dictionary keeps matches above it; one
// below its start is raised to it.
TEST(LZ4HC, SeparateDictionary) {
    Bytes text = zt::text_like(90000, 19);
    Bytes dict(text.begin(), text.begin() + 40000), in(text.begin() + 40000, text.end());
    const int32_t dlen = (int32_t)dict.size();
    for (int32_t limit : {0, dlen - 1000, -5}) {
        Tables u;
        encode(u, dict.data(), dlen, 9);
        int32_t len = (int32_t)in.size(), cap = (int32_t)in.size() * 2;
        Bytes out((size_t)cap);
        ASSERT_EQ(zemsEncodeLZ4HCDictLimit_8u(in.data(), dlen, &len, out.data(), &cap, u.p, dict.data(), dlen, 9,
                                              limit),
                  zemStatusOk);
        out.resize((size_t)cap);
        const int32_t usable = limit > 0 ? dlen - limit : dlen;
        SCOPED_TRACE(limit);
        zt::expect_lz4_block(out.data(), out.size(), in, dict.data() + dlen - usable, usable);
        if (limit == 0) EXPECT_LT(cap, encode_fresh(in, 9).produced);
    }
}

// A stream pushed through a small output: each call stops with 33 and the next continues where
// it stopped, with the history in place. Whatever a stop leaves linked, every block decodes
// with liblz4 and ours, given all the input before it, and together they give the input.
TEST(LZ4HC, StoppedStreamDecodesExactly) {
    const Bytes all = zt::text_like(120000, 29);
    for (int level : {9, 4}) {
        SCOPED_TRACE(level);
        Tables t;
        int32_t pos = 0, calls = 0;
        Result last{};
        while (pos < (int32_t)all.size() && calls++ < 100) {
            last = encode(t, all.data() + pos, (int32_t)all.size() - pos, level, 997, pos, all.data(), pos);
            ASSERT_EQ(last.status, pos + last.consumed == (int32_t)all.size() ? zemStatusOk : zemStatusDstTooSmall);
            ASSERT_GT(last.consumed, 0);
            // A stopped block ends after a match; with the rest as one literal run it must give
            // the whole remaining input.
            const Bytes rest(all.begin() + pos, all.end());
            Bytes blk = last.out;
            if (last.status) zt::lz4_append(blk, all.data() + pos + last.consumed, rest.size() - (size_t)last.consumed);
            zt::expect_lz4_block(blk.data(), blk.size(), rest, all.data(), pos);
            ASSERT_FALSE(HasFailure()) << pos;
            pos += last.consumed;
        }
        EXPECT_GT(calls, 20);
    }
}

}  // namespace
