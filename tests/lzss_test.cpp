// LZSS: the encoder against a plain model of its search, the stream across any split of input and
// output, and the decoder on hostile input, with every buffer ending at a guard page.
#include "lzss/lzss.h"
#include "test_util.h"

namespace {

constexpr int32_t kStateSize = 0x50040;

// The next piece size, given what is left: a quarter single bytes, the rest up to max; max 0
// takes all that is left (output: kWhole bytes of room).
constexpr uint32_t kWhole = 1u << 22;
struct Pieces {
    zt::Rng rng;
    uint32_t max;
    int32_t operator()(size_t left = kWhole) {
        uint32_t n = max == 0 ? kWhole : rng.below(4) == 0 ? 1 : 1 + rng.below(max);
        return (int32_t)(n < left ? n : left);
    }
    size_t cap() const { return max ? max : kWhole; }
};

// An MSB-first writer for the expected streams.
struct Bits {
    Bytes out;
    uint32_t acc = 0;
    int n = 0;
    void put(uint32_t v, int bits) {
        for (int b = bits - 1; b >= 0; --b) {
            acc = acc << 1 | ((v >> b) & 1);
            if (++n == 8) out.push_back(uint8_t(acc)), acc = 0, n = 0;
        }
    }
    void literal(uint8_t c) { put(0x100u | c, 9); }
    void match(uint32_t dist, uint32_t len) { put(dist << 8 | (len - 3), 24); }
    Bytes done() {
        if (n) out.push_back(uint8_t(acc << (8 - n)));
        return out;
    }
};

// The search written as plainly as it can be: per hash, every inserted position, newest last.
Bytes model_encode(const Bytes& in, const std::vector<int32_t>& calls) {
    Bits w;
    std::vector<std::vector<size_t>> chains(32768);
    auto hash = [&](size_t q) { return zem::lzss::hash3(&in[q]); };
    size_t start = 0;
    for (int32_t n : calls) {
        size_t end = start + (size_t)n, i = start;
        while (i + 2 < end) {
            size_t limit = std::min<size_t>(end - 2 - i, 258), best = 2, dist = 0;
            auto& c = chains[hash(i)];
            int seen = 0;
            for (auto it = c.rbegin(); it != c.rend() && seen < 16 && i - *it < 32768; ++it, ++seen) {
                size_t m = 0;
                while (m < limit && in[*it + m] == in[i + m]) ++m;
                if (m > best) best = m, dist = i - *it;
                if (best >= limit) break;
            }
            c.push_back(i);
            if (best >= 3) {
                w.match((uint32_t)dist, (uint32_t)best);
                for (size_t j = i + 1; j < i + best; ++j) chains[hash(j)].push_back(j);
                i += best;
            } else {
                w.literal(in[i++]);
            }
        }
        while (i < end) w.literal(in[i++]);
        start = end;
    }
    return w.done();
}

zemLZSSState_8u* state_of(Bytes& s) { return (zemLZSSState_8u*)s.data(); }

// Calls `call(&dst, &room)` with outputs of `room()` bytes at the end of the guarded buffer for
// as long as it reports a full output, appending what each wrote to `out`; a decoder that
// produces more than `max_out` bytes is given up on.
template <class Call>
void drain(zt::GuardedBuffer& g, Pieces& rooms, Bytes& out, Call call, size_t max_out = SIZE_MAX) {
    zemStatus s;
    do {
        int32_t room = rooms(), r = room;
        uint8_t* d0 = g.data() + g.size() - room;
        uint8_t* d = d0;
        s = call(&d, &r);
        EXPECT_TRUE(s == zemStatusOk || s == zemStatusDstTooSmall) << s;
        EXPECT_EQ(d - d0, room - r);
        out.insert(out.end(), d0, d);
    } while (s == zemStatusDstTooSmall && out.size() <= max_out);
}

// Encodes `in` in the given calls, each output call given out_pieces() bytes of room at the end
// of a guarded buffer; every input call's bytes, and the state record at the given
// misalignment, also end at a guard page.
Bytes encode(const Bytes& in, const std::vector<int32_t>& calls, Pieces out_pieces, size_t misalign = 0) {
    zt::GuardedBuffer gst(kStateSize + misalign), gin(in.size() + 1), gout(out_pieces.cap());
    zemLZSSState_8u* st = (zemLZSSState_8u*)(gst.data() + misalign);
    Bytes out;
    EXPECT_EQ(zemsEncodeLZSSInit_8u(st), zemStatusOk);
    size_t pos = 0;
    for (int32_t n : calls) {
        uint8_t* piece = gin.data() + gin.size() - n;
        memcpy(piece, in.data() + pos, (size_t)n);
        const uint8_t* p = piece;
        int32_t left = n;
        drain(gout, out_pieces, out, [&](uint8_t** d, int32_t* r) {
            zemStatus s = zemsEncodeLZSS_8u(&p, &left, d, r, st);
            EXPECT_EQ(p - piece, n - left);
            return s;
        });
        EXPECT_EQ(left, 0);
        pos += (size_t)n;
    }
    drain(gout, out_pieces, out, [&](uint8_t** d, int32_t* r) { return zemsEncodeLZSSFlush_8u(d, r, st); });
    return out;
}

std::vector<int32_t> split(size_t n, Pieces p) {
    std::vector<int32_t> v;
    for (size_t left = n; left; left -= (size_t)v.back()) v.push_back(p(left));
    return v;
}

// Decodes with input and output split by the two piece makers, each piece at a guard page, and
// a state record at the given misalignment that also ends at one.
Bytes decode(const Bytes& in, Pieces in_pieces, Pieces out_pieces, size_t misalign = 0) {
    zt::GuardedBuffer gst(kStateSize + misalign), gin(in.size() + 1), gout(out_pieces.cap());
    zemLZSSState_8u* st = (zemLZSSState_8u*)(gst.data() + misalign);
    EXPECT_EQ(zemsDecodeLZSSInit_8u(st), zemStatusOk);
    Bytes out;
    const size_t max_out = (in.size() + 1) * 86;  // a hostile stream: 258 bytes per 3
    size_t pos = 0;
    do {
        int32_t n = in_pieces(in.size() - pos), left = n;
        uint8_t* piece = gin.data() + gin.size() - n;
        memcpy(piece, in.data() + pos, (size_t)n);
        const uint8_t* p = piece;
        drain(gout, out_pieces, out, [&](uint8_t** d, int32_t* r) { return zemsDecodeLZSS_8u(&p, &left, d, r, st); },
              max_out);
        if (out.size() > max_out) return out;
        EXPECT_EQ(p - piece, n);
        pos += (size_t)n;
    } while (pos < in.size());
    return out;
}

Pieces whole() { return Pieces{zt::Rng(0), 0}; }

Bytes runs_and_text(size_t n, uint64_t seed) {
    Bytes v = zt::compressible_bytes(n, seed);
    for (size_t i = n / 3; i < n / 3 + 1000 && i < n; ++i) v[i] = 7;  // a long run: distance-1 matches
    return v;
}

}  // namespace

TEST(Lzss, ArgumentsInOrder) {
    Bytes st(kStateSize);
    int32_t size = 0, len = 4, cap = 4, zero = 0;
    uint8_t buf[4] = {1, 2, 3, 4}, *d = buf, *nul = nullptr;
    const uint8_t *p = buf, *cnul = nullptr;
    EXPECT_EQ(zemsLZSSGetSize_8u(nullptr), zemStatusNullPtr);
    EXPECT_EQ(zemsLZSSGetSize_8u(&size), zemStatusOk);
    EXPECT_EQ(size, kStateSize);
    EXPECT_EQ(zemsEncodeLZSSInit_8u(nullptr), zemStatusNullPtr);
    EXPECT_EQ(zemsDecodeLZSSInit_8u(nullptr), zemStatusNullPtr);
    ASSERT_EQ(zemsEncodeLZSSInit_8u(state_of(st)), zemStatusOk);
    // Pointers (also those held by the pointer arguments) before lengths, lengths never -6.
    EXPECT_EQ(zemsEncodeLZSS_8u(&p, &len, &d, &cap, nullptr), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeLZSS_8u(&cnul, &len, &d, &zero, state_of(st)), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeLZSS_8u(&p, &len, &nul, &cap, state_of(st)), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeLZSS_8u(&p, &zero, &d, &zero, state_of(st)), zemStatusDstTooSmall);
    EXPECT_EQ(zemsEncodeLZSS_8u(&p, &zero, &d, &cap, state_of(st)), zemStatusOk);
    EXPECT_EQ(zemsEncodeLZSSFlush_8u(&d, &zero, nullptr), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeLZSSFlush_8u(&d, &zero, state_of(st)), zemStatusSize);
    EXPECT_EQ(zemsDecodeLZSS_8u(&p, &len, &d, &zero, nullptr), zemStatusNullPtr);
    EXPECT_EQ(zemsDecodeLZSS_8u(&p, &len, &d, &zero, state_of(st)), zemStatusSize);
    // None of the refusals consumed, wrote or moved anything.
    EXPECT_TRUE(p == buf && d == buf && len == 4 && cap == 4 && zero == 0);
    EXPECT_EQ(zemsEncodeLZSSFlush_8u(&d, &cap, state_of(st)), zemStatusOk);
    EXPECT_EQ(cap, 4);
}

TEST(Lzss, ExactStreamsOfShortInputsAndRuns) {
    Bits one, two, run, doc;
    one.literal('x');
    doc.literal('x'), doc.literal('y'), doc.match(2, 5), doc.literal('y'), doc.literal('z');
    EXPECT_EQ(encode(Bytes{'x', 'y', 'x', 'y', 'x', 'y', 'x', 'y', 'z'}, {9}, whole()), doc.done());
    two.literal('x'), two.literal('y');
    // A run: one literal, distance-1 matches as long as the limit allows, the last two literal.
    run.literal('a'), run.match(1, 258), run.match(1, 39), run.literal('a'), run.literal('a');
    EXPECT_EQ(encode(Bytes{'x'}, {1}, whole()), one.done());
    EXPECT_EQ(encode(Bytes{'x', 'y'}, {2}, whole()), two.done());
    EXPECT_EQ(encode(Bytes(300, 'a'), {300}, whole()), run.done());
    // The same run over one-byte outputs: the stream only changes where output filled.
    Bytes r(300, 'a');
    EXPECT_EQ(decode(encode(r, {300}, Pieces{zt::Rng(1), 1}), whole(), whole()), r);
}

TEST(Lzss, EncoderMatchesTheModelAcrossCallsAndHistoryMoves) {
    // Long enough for many history moves; calls from 1 byte to past the window.
    for (uint64_t seed : {1, 2, 3}) {
        Bytes in = runs_and_text(300000, seed);
        std::vector<int32_t> calls = split(in.size(), Pieces{zt::Rng(seed), seed == 1 ? 100000u : 3000u});
        Bytes ours = encode(in, calls, whole());
        EXPECT_EQ(ours, model_encode(in, calls)) << seed;
        EXPECT_EQ(decode(ours, whole(), whole()), in) << seed;
    }
    Bytes noise = zt::random_bytes(70000, 4);
    EXPECT_EQ(encode(noise, {70000}, whole()), model_encode(noise, {70000}));
    EXPECT_LE(encode(noise, {70000}, whole()).size(), (size_t)ZEM_LZSS_BOUND(70000));
}

TEST(Lzss, AnySplitOfOutputDecodesToTheInput) {
    Bytes in = runs_and_text(60000, 5);
    for (uint32_t out_max : {1u, 3u, 40u, 5000u}) {
        std::vector<int32_t> calls = split(in.size(), Pieces{zt::Rng(out_max), 20000});
        Bytes stream = encode(in, calls, Pieces{zt::Rng(out_max + 1), out_max}, out_max % 32);
        EXPECT_EQ(decode(stream, whole(), whole()), in) << out_max;
        EXPECT_LE(stream.size(), (size_t)ZEM_LZSS_BOUND(60000));
    }
}

TEST(Lzss, DecoderGivesTheSameBytesForEverySplit) {
    Bytes in = runs_and_text(120000, 6);
    Bytes stream = encode(in, split(in.size(), Pieces{zt::Rng(6), 50000}), whole());
    ASSERT_EQ(decode(stream, whole(), whole()), in);
    EXPECT_EQ(decode(stream, Pieces{zt::Rng(7), 1}, whole(), 1), in);
    EXPECT_EQ(decode(stream, whole(), Pieces{zt::Rng(8), 1}, 7), in);
    EXPECT_EQ(decode(stream, Pieces{zt::Rng(9), 300}, Pieces{zt::Rng(10), 700}, 31), in);
    // Calls that produce more than the window, then reach back past their own output.
    EXPECT_EQ(decode(stream, Pieces{zt::Rng(11), 30000}, whole()), in);
    EXPECT_EQ(decode(stream, whole(), Pieces{zt::Rng(12), 60000}), in);
}

TEST(Lzss, DecoderOnHostileInputStaysInItsBuffers) {
    // Random bytes are valid token streams too (distances beyond the output read the zeroed
    // history), so every split must agree with one call.
    for (uint64_t seed = 20; seed < 26; ++seed) {
        Bytes junk = zt::random_bytes(2000 + 3000 * (seed % 3), seed);
        if (seed % 2) std::fill(junk.begin(), junk.begin() + 500, 0);  // distance-0 matches
        Bytes one = decode(junk, whole(), whole());
        EXPECT_EQ(decode(junk, Pieces{zt::Rng(seed), 7}, Pieces{zt::Rng(seed + 1), 300}), one) << seed;
    }
    // Cut streams decode to a prefix of the data.
    Bytes in = runs_and_text(3000, 11);
    Bytes stream = encode(in, {3000}, whole());
    for (size_t k = 1; k < stream.size(); k += 1 + k / 64) {
        Bytes part = decode(Bytes(stream.begin(), stream.begin() + (ptrdiff_t)k), whole(), whole());
        ASSERT_LE(part.size(), in.size());
        EXPECT_TRUE(std::equal(part.begin(), part.end(), in.begin())) << k;
    }
}
