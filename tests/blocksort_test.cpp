// Block-sorting stages: run-length coding both ways, dictionary reduction, move-to-front and
// zero-run coding, each against a plain model of its rule, whole and in pieces, with the
// caller's buffers ending at guard pages.
#include "test_util.h"

namespace {

using Syms = std::vector<uint16_t>;

// The encoding rule over a whole block: runs of 4..259 become four copies and a count.
Bytes rle_model(const Bytes& in) {
    Bytes out;
    for (size_t i = 0; i < in.size();) {
        size_t j = i;
        while (j < in.size() && in[j] == in[i] && j - i < 259) ++j;
        size_t run = j - i;
        out.insert(out.end(), std::min<size_t>(run, 4), in[i]);
        if (run >= 4) out.push_back(uint8_t(run - 4));
        i = j;
    }
    return out;
}

// The decoding rule for any bytes, well-formed or not: after four equal bytes the next is a count.
Bytes unrle_model(const Bytes& in) {
    Bytes out;
    int last = -1, seen = 0;
    for (uint8_t b : in) {
        if (seen == 4) {
            out.insert(out.end(), b, uint8_t(last));
            last = -1, seen = 0;
        } else {
            out.push_back(b);
            seen = b == last ? seen + 1 : 1;
            last = b;
        }
    }
    return out;
}

struct Rle {
    Bytes state = Bytes(264);
    zemRLEState_BZ2* p() { return reinterpret_cast<zemRLEState_BZ2*>(state.data()); }
};

// Encodes in pieces of at most `in_step` bytes with at most `out_step` bytes of room per call,
// then flushes; the output goes through a buffer that ends at a guard page each call.
Bytes rle_encode(const Bytes& in, Rle& st, size_t in_step, size_t out_step, zt::Rng* rng = nullptr) {
    EXPECT_EQ(zemsEncodeRLEInit_BZ2_8u(st.p()), zemStatusOk);
    Bytes out;
    zt::GuardedBuffer src(in);
    const uint8_t* s = src.data();
    size_t left = in.size();
    while (left) {
        int32_t n = int32_t(std::min(left, rng ? 1 + rng->below(uint32_t(in_step)) : in_step));
        while (n) {
            int32_t cap = int32_t(rng ? 1 + rng->below(uint32_t(out_step)) : out_step);
            zt::GuardedBuffer dst{size_t(cap)};
            int32_t before = n;
            zemStatus st_ = zemsEncodeRLE_BZ2_8u(&s, &n, dst.data(), &cap, st.p());
            EXPECT_EQ(st_, n ? zemStatusDstTooSmall : zemStatusOk);
            left -= size_t(before - n);
            out.insert(out.end(), dst.data(), dst.data() + cap);
        }
    }
    uint8_t tail[1];
    int32_t cap = 1;
    EXPECT_EQ(zemsEncodeRLEFlush_BZ2_8u(tail, &cap, st.p()), zemStatusOk);
    out.insert(out.end(), tail, tail + cap);
    return out;
}

// Decodes in pieces likewise, flushing at the end; both buffers end at guard pages.
Bytes rle_decode(const Bytes& in, size_t in_step, size_t out_step, zt::Rng* rng = nullptr) {
    Rle st;
    EXPECT_EQ(zemsDecodeRLEStateInit_BZ2_8u(st.p()), zemStatusOk);
    Bytes out;
    size_t pos = 0;
    while (pos < in.size()) {
        size_t n = std::min(in.size() - pos, rng ? 1 + rng->below(uint32_t(in_step)) : in_step);
        zt::GuardedBuffer src(n);
        src.assign(in.data() + pos, n);
        const uint8_t* s = src.data();
        int32_t left = int32_t(n);
        while (left) {
            int32_t cap = int32_t(rng ? 1 + rng->below(uint32_t(out_step)) : out_step);
            zt::GuardedBuffer dst{size_t(cap)};
            uint8_t* d = dst.data();
            zemStatus r = zemsDecodeRLEState_BZ2_8u(&s, &left, &d, &cap, st.p());
            EXPECT_TRUE(r == zemStatusOk || r == zemStatusDstTooSmall);
            out.insert(out.end(), dst.data(), d);
            if (r == zemStatusOk) EXPECT_EQ(left, 0);
        }
        pos += n;
    }
    for (zemStatus r = zemStatusDstTooSmall; r == zemStatusDstTooSmall;) {
        int32_t cap = int32_t(rng ? rng->below(uint32_t(out_step) + 1) : out_step);
        zt::GuardedBuffer dst{size_t(cap)};
        uint8_t* d = dst.data();
        r = zemsDecodeRLEStateFlush_BZ2_8u(st.p(), &d, &cap);
        out.insert(out.end(), dst.data(), d);
    }
    return out;
}

Bytes in_use_of(const Bytes& v) {
    Bytes u(256);
    for (uint8_t b : v) u[b] = 1;
    return u;
}

}  // namespace

TEST(Rle, EncodesAsTheRuleWholeAndInPieces) {
    for (size_t n : {1, 3, 4, 5, 259, 260, 4096, 70000}) {
        Bytes in = zt::runs_bytes(n, n), want = rle_model(in);
        Rle st;
        EXPECT_EQ(rle_encode(in, st, in.size(), want.size() + 1), want) << n;
        Bytes in_use(256);
        ASSERT_EQ(zemsRLEGetInUseTable_8u(in_use.data(), st.p()), zemStatusOk);
        EXPECT_EQ(in_use, in_use_of(want)) << n;
        zt::Rng rng(n);
        if (n <= 4096) EXPECT_EQ(rle_encode(in, st, 1, 1), want) << n;
        EXPECT_EQ(rle_encode(in, st, 300, 9, &rng), want) << n;
    }
    // Runs cut by the end of a call stay open; the count comes only from the flush.
    Rle st;
    EXPECT_EQ(rle_encode(Bytes(4, 7), st, 2, 8), Bytes({7, 7, 7, 7, 0}));
    EXPECT_EQ(rle_encode(Bytes(260, 7), st, 1, 8), Bytes({7, 7, 7, 7, 255, 7}));
    // A flush with no open run writes nothing and keeps the previous byte: a run that began
    // before it goes on counting.
    uint8_t b[1];
    int32_t cap = 1;
    EXPECT_EQ(zemsEncodeRLEFlush_BZ2_8u(b, &cap, st.p()), zemStatusOk);
    EXPECT_EQ(cap, 0);
}

TEST(Rle, DecodesAnyBytesAsTheRuleWholeAndInPieces) {
    for (size_t n : {1, 2, 5, 17, 18, 33, 4096, 70000}) {
        Bytes enc = rle_model(zt::runs_bytes(n, n + 1));
        Bytes noise = zt::random_bytes(n, n), runs = zt::runs_bytes(n, n + 2);  // not well-formed
        for (const Bytes* in : {&enc, &noise, &runs}) {
            Bytes want = unrle_model(*in);
            zt::Rng rng(n);
            EXPECT_EQ(rle_decode(*in, in->size(), want.size() + 1), want) << n;
            if (n <= 4096) EXPECT_EQ(rle_decode(*in, 1, 1), want) << n;  // guard pages per byte are slow
            EXPECT_EQ(rle_decode(*in, 40, 300, &rng), want) << n;
        }
    }
    EXPECT_EQ(unrle_model({5, 5, 5, 5, 0}), Bytes(4, 5));
    EXPECT_EQ(rle_decode({5, 5, 5, 5, 3}, 5, 100), Bytes(7, 5));
}

TEST(Rle, OwedCopiesAndArguments) {
    Rle st;
    ASSERT_EQ(zemsDecodeRLEStateInit_BZ2_8u(st.p()), zemStatusOk);
    const uint8_t in[] = {9, 9, 9, 9, 200};
    const uint8_t* s = in;
    int32_t len = 5, cap = 10;
    uint8_t out[300];
    uint8_t* d = out;
    EXPECT_EQ(zemsDecodeRLEState_BZ2_8u(&s, &len, &d, &cap, st.p()), zemStatusDstTooSmall);
    EXPECT_EQ(len, 0);
    EXPECT_EQ(d - out, 10);
    cap = 0;  // kept deliberately: no length check, and copies are owed
    EXPECT_EQ(zemsDecodeRLEStateFlush_BZ2_8u(st.p(), &d, &cap), zemStatusDstTooSmall);
    cap = 300;
    EXPECT_EQ(zemsDecodeRLEStateFlush_BZ2_8u(st.p(), &d, &cap), zemStatusOk);
    EXPECT_EQ(d - out, 204);
    EXPECT_EQ(cap, 300 - 194);

    int32_t size = 0;
    EXPECT_EQ(zemsRLEGetSize_BZ2_8u(&size), zemStatusOk);
    EXPECT_EQ(size, 264);
    EXPECT_EQ(zemsRLEGetSize_BZ2_8u(nullptr), zemStatusNullPtr);
    s = nullptr, len = 0, cap = 0;
    const uint8_t* none = nullptr;
    uint8_t* dnone = nullptr;
    EXPECT_EQ(zemsEncodeRLE_BZ2_8u(&s, &len, nullptr, &cap, st.p()), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeRLE_BZ2_8u(&none, &len, out, &cap, st.p()), zemStatusNullPtr);
    s = in;
    EXPECT_EQ(zemsEncodeRLE_BZ2_8u(&s, &len, out, &cap, nullptr), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeRLE_BZ2_8u(&s, &len, out, &cap, st.p()), zemStatusSize);
    len = 1;
    EXPECT_EQ(zemsEncodeRLE_BZ2_8u(&s, &len, out, &cap, st.p()), zemStatusSize);
    EXPECT_EQ(zemsEncodeRLEFlush_BZ2_8u(out, &cap, st.p()), zemStatusSize);
    EXPECT_EQ(zemsDecodeRLEState_BZ2_8u(&s, &len, &dnone, &cap, st.p()), zemStatusNullPtr);
    d = out;
    EXPECT_EQ(zemsDecodeRLEState_BZ2_8u(&s, &len, &d, &cap, st.p()), zemStatusSize);
    EXPECT_EQ(zemsDecodeRLEStateFlush_BZ2_8u(st.p(), &dnone, &cap), zemStatusNullPtr);
}

TEST(Dictionary, ReducesAndExpandsThroughTheInUseTable) {
    Bytes block = zt::runs_bytes(5000, 3), every(256);
    for (size_t i = 0; i < block.size(); i += 97) block[i] = uint8_t(i * 7);
    std::iota(every.begin(), every.end(), 0);  // every value in use: both ways are the identity
    for (const Bytes& b : {block, every}) {
        Bytes in_use = in_use_of(b), work = b;
        uint32_t n = 0;
        ASSERT_EQ(zemsReduceDictionary_8u_I(in_use.data(), work.data(), int32_t(work.size()), &n), zemStatusOk);
        EXPECT_EQ(n, uint32_t(std::count(in_use.begin(), in_use.end(), 1)));
        for (size_t i = 0; i < b.size(); ++i)
            ASSERT_EQ(work[i], std::count(in_use.begin(), in_use.begin() + b[i], 1)) << i;
        // A wrong size is refused before the buffer is touched.
        const Bytes reduced = work;
        EXPECT_EQ(zemsExpandDictionary_8u_I(in_use.data(), work.data(), int32_t(work.size()), int32_t(n) + 1),
                  zemStatusError);
        EXPECT_EQ(work, reduced);
        zt::GuardedBuffer g(work);
        ASSERT_EQ(zemsExpandDictionary_8u_I(in_use.data(), g.data(), int32_t(work.size()), int32_t(n)), zemStatusOk);
        EXPECT_EQ(g.bytes(work.size()), b);
    }
    uint32_t n = 0;
    const Bytes all(256, 1);
    EXPECT_EQ(zemsExpandDictionary_8u_I(all.data(), nullptr, 0, 0), zemStatusNullPtr);
    EXPECT_EQ(zemsExpandDictionary_8u_I(all.data(), block.data(), 1, 0), zemStatusSize);
    EXPECT_EQ(zemsReduceDictionary_8u_I(all.data(), block.data(), 0, &n), zemStatusSize);
}

TEST(Mtf, BothDirectionsAgainstTheListRuleInPieces) {
    // Positions of every depth: text-like data with occasional bytes from the whole range.
    Bytes block = zt::runs_bytes(20000, 5);
    zt::Rng r(9);
    for (auto& b : block)
        if (r.below(5) == 0) b = uint8_t(r.next());
    Bytes list(256), want;
    for (int v = 0; v < 256; ++v) list[v] = uint8_t(v);
    for (uint8_t b : block) {
        auto it = std::find(list.begin(), list.end(), b);
        want.push_back(uint8_t(it - list.begin()));
        list.erase(it);
        list.insert(list.begin(), b);
    }
    int32_t size = 0;
    ASSERT_EQ(zemsMTFGetSize_8u(&size), zemStatusOk);
    ASSERT_EQ(size, 256);
    Bytes state(256);
    auto* st = reinterpret_cast<zemMTFState_8u*>(state.data());
    zt::GuardedBuffer out(block.size()), back(block.size());
    ASSERT_EQ(zemsMTFInit_8u(st), zemStatusOk);
    for (size_t pos = 0; pos < block.size();) {
        int32_t n = int32_t(std::min<size_t>(1 + r.below(700), block.size() - pos));
        ASSERT_EQ(zemsMTFFwd_8u(block.data() + pos, out.data() + pos, n, st), zemStatusOk);
        pos += size_t(n);
    }
    EXPECT_EQ(Bytes(out.data(), out.data() + block.size()), want);
    EXPECT_EQ(state, list);
    ASSERT_EQ(zemsMTFInit_8u(st), zemStatusOk);
    for (size_t pos = 0; pos < block.size(); ++pos) ASSERT_EQ(zemsMTFInv_8u(out.data() + pos, back.data() + pos, 1, st), 0);
    EXPECT_EQ(Bytes(back.data(), back.data() + block.size()), block);
    EXPECT_EQ(zemsMTFFwd_8u(block.data(), out.data(), 0, nullptr), zemStatusNullPtr);
    EXPECT_EQ(zemsMTFInv_8u(block.data(), out.data(), 0, st), zemStatusSize);
}

namespace {

// Bijective base-2 digits of each zero run, least significant first; m becomes m + 1.
Syms z1z2_model(const Bytes& in) {
    Syms out;
    size_t z = 0;
    auto flush = [&] {
        for (; z > 0; z = (z - 1) >> 1) out.push_back(uint16_t((z - 1) & 1));
    };
    for (uint8_t b : in) {
        if (b == 0) {
            ++z;
            continue;
        }
        flush();
        out.push_back(uint16_t(b + 1));
    }
    flush();
    return out;
}

}  // namespace

TEST(ZeroRun, CodesAndDecodesAsTheRule) {
    Bytes mtf = zt::random_bytes(30000, 11);
    zt::Rng r(12);
    for (size_t i = 0; i < mtf.size();) {  // zero runs of 1..70000
        size_t len = r.below(4) ? 1 + r.below(6) : 1 + r.below(r.below(2) ? 300 : 70000);
        for (size_t k = 0; k < len && i < mtf.size(); ++k) mtf[i++] = 0;
        i += 1 + r.below(8);
    }
    mtf.insert(mtf.end(), 70000, 0);
    Syms want = z1z2_model(mtf);
    std::vector<uint32_t> freq(258, 1), want_freq(258, 1);
    for (uint16_t s : want) ++want_freq[s];

    zt::GuardedBuffer dst(want.size() * 2);
    const uint8_t* s = mtf.data();
    int32_t len = int32_t(mtf.size()), cap = int32_t(want.size());
    auto* d = reinterpret_cast<uint16_t*>(dst.data());
    ASSERT_EQ(zemsEncodeZ1Z2_BZ2_8u16u(&s, &len, d, &cap, freq.data()), zemStatusOk);
    EXPECT_EQ(len, 0);
    ASSERT_EQ(Syms(d, d + cap), want);
    EXPECT_EQ(freq, want_freq);

    zt::GuardedBuffer back(mtf.size());
    const uint16_t* ss = d;
    len = cap, cap = int32_t(mtf.size());
    ASSERT_EQ(zemsDecodeZ1Z2_BZ2_16u8u(&ss, &len, back.data(), &cap), zemStatusOk);
    EXPECT_EQ(Bytes(back.data(), back.data() + cap), mtf);

    // With too little room, a run is coded only as far as the places hold, the rest stays in
    // the input; the pieces then decode to the whole.
    for (int32_t room : {1, 2, 3, 7, 19, 20, 21, 25}) {
        const uint8_t* p = mtf.data();
        int32_t left = int32_t(mtf.size());
        Bytes got;
        while (left) {
            std::vector<uint16_t> buf(size_t(room) + 1, 0xEEEE);
            int32_t c = room, before = left;
            zemStatus st = zemsEncodeZ1Z2_BZ2_8u16u(&p, &left, buf.data(), &c, freq.data());
            ASSERT_EQ(st, left ? zemStatusDstTooSmall : zemStatusOk);
            ASSERT_LE(c, room);
            ASSERT_EQ(buf[size_t(room)], 0xEEEE);
            Bytes part(size_t(before - left) + 1);
            const uint16_t* q = buf.data();
            int32_t n = c, pc = int32_t(part.size());
            if (n) ASSERT_EQ(zemsDecodeZ1Z2_BZ2_16u8u(&q, &n, part.data(), &pc), zemStatusOk);
            else pc = 0;
            ASSERT_EQ(pc, before - left) << room;
            got.insert(got.end(), part.begin(), part.begin() + pc);
        }
        EXPECT_EQ(got, mtf) << room;
    }
    // 1048574 zeros need 19 places, 1048575 need 20: with 19 places the last zero stays.
    Bytes zeros(1048575, 0);
    s = zeros.data(), len = int32_t(zeros.size()), cap = 19;
    std::vector<uint16_t> buf(19);
    EXPECT_EQ(zemsEncodeZ1Z2_BZ2_8u16u(&s, &len, buf.data(), &cap, freq.data()), zemStatusDstTooSmall);
    EXPECT_EQ(len, 1);
    EXPECT_EQ(cap, 19);
    // A run that does not fit the output is not consumed.
    const uint16_t runs[] = {5, 1, 1, 7};
    ss = runs, len = 4, cap = 6;
    Bytes small(6);
    EXPECT_EQ(zemsDecodeZ1Z2_BZ2_16u8u(&ss, &len, small.data(), &cap), zemStatusDstTooSmall);
    EXPECT_EQ(cap, 1);
    EXPECT_EQ(len, 3);
}
