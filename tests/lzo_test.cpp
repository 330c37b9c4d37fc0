// LZO1X: interoperability with liblzo2 both ways, the argument checks, and the safe decoder on
// cut, corrupted and random input with both buffers ending at guard pages.
#include <lzo/lzo1x.h>

#include "test_util.h"

namespace {

const zemLZOMethod kMethods[] = {zemLZOFast, zemLZOStrong, zemLZOSegmented};

Bytes encode(const Bytes& in, zemLZOMethod m) {
    uint32_t size = 0;
    EXPECT_EQ(zemsEncodeLZOGetSize(m, (uint32_t)in.size(), &size), zemStatusOk);
    Bytes state(size);
    auto* st = (zemLZOState_8u*)state.data();
    EXPECT_EQ(zemsEncodeLZOInit_8u(m, (uint32_t)in.size(), st), zemStatusOk);
    // The output ends at a guard page with exactly the documented capacity.
    const uint32_t bound = ZEM_LZO_BOUND((uint32_t)in.size());
    zt::GuardedBuffer out(bound);
    uint32_t n = bound;
    const uint8_t none = 0;
    EXPECT_EQ(zemsEncodeLZO_8u(in.empty() ? &none : in.data(), (uint32_t)in.size(), out.data(), &n, st), zemStatusOk);
    return Bytes(out.data(), out.data() + n);
}

// Decodes with both of ours (input and output at guard pages, output exactly the size) and with
// liblzo2's safe decoder.
void expect_decodes(const Bytes& stream, const Bytes& want, const std::string& what) {
    SCOPED_TRACE(what);
    zt::GuardedBuffer in(stream);
    for (int safe = 0; safe < 2; ++safe) {
        zt::GuardedBuffer out(want.size() ? want.size() : 1);
        uint32_t n = (uint32_t)out.size();
        auto dec = safe ? zemsDecodeLZOSafe_8u : zemsDecodeLZO_8u;
        ASSERT_EQ(dec(in.data(), (uint32_t)stream.size(), out.data(), &n), zemStatusOk) << "safe " << safe;
        ASSERT_EQ(n, want.size());
        ASSERT_TRUE(std::equal(want.begin(), want.end(), out.data()));
    }
    Bytes back(want.size() + 1);
    lzo_uint n = back.size();
    ASSERT_EQ(lzo1x_decompress_safe(stream.data(), stream.size(), back.data(), &n, nullptr), LZO_E_OK);
    ASSERT_EQ(n, want.size());
    ASSERT_TRUE(std::equal(want.begin(), want.end(), back.begin()));
}

std::vector<std::pair<std::string, Bytes>> samples() {
    std::vector<std::pair<std::string, Bytes>> v;
    for (size_t n : {1, 2, 3, 4, 5, 15, 16, 17, 19, 20, 40, 239, 300})
        v.push_back({"random " + std::to_string(n), zt::random_bytes(n, n)});
    v.push_back({"zeros 70000", Bytes(70000, 0)});
    v.push_back({"random 100000", zt::random_bytes(100000, 7)});
    v.push_back({"compressible 3 MB", zt::compressible_bytes(3 << 20, 11)});
    v.push_back({"compressible 600000", zt::compressible_bytes(600000, 12)});
    // Period-3 text with long literal stretches between repeats, and far repeats of every
    // distance class (short near, up to 16 KiB, up to 48 KiB and beyond).
    Bytes mix = zt::random_bytes(200000, 3);
    for (size_t i = 60000; i < 200000; i += 997) {
        size_t d = 1 + (i * 7919) % 60000, len = 2 + (i % 300);
        for (size_t k = 0; k < len && i + k < mix.size(); ++k) mix[i + k] = mix[i + k - d];
    }
    v.push_back({"far repeats", mix});
    return v;
}

TEST(LZO, OurStreamsDecodeEverywhere) {
    for (auto& [name, data] : samples())
        for (auto m : kMethods) {
            const Bytes s = encode(data, m);
            ASSERT_LE(s.size(), ZEM_LZO_BOUND(data.size()));
            expect_decodes(s, data, name + " method " + std::to_string(m));
        }
    EXPECT_EQ(encode(Bytes(), zemLZOFast), Bytes({0x11, 0, 0}));
}

TEST(LZO, LibraryStreamsDecodeWithOurs) {
    ASSERT_EQ(lzo_init(), LZO_E_OK);
    Bytes work(LZO1X_999_MEM_COMPRESS);
    for (auto& [name, data] : samples()) {
        Bytes out(data.size() + data.size() / 16 + 64 + 3);
        lzo_uint n = 0;
        ASSERT_EQ(lzo1x_1_compress(data.data(), data.size(), out.data(), &n, work.data()), LZO_E_OK);
        expect_decodes(Bytes(out.begin(), out.begin() + (ptrdiff_t)n), data, name + " lzo1x_1");
        ASSERT_EQ(lzo1x_1_15_compress(data.data(), data.size(), out.data(), &n, work.data()), LZO_E_OK);
        expect_decodes(Bytes(out.begin(), out.begin() + (ptrdiff_t)n), data, name + " lzo1x_1_15");
        if (data.size() > 700000) continue;  // the slow one on the smaller samples only
        ASSERT_EQ(lzo1x_999_compress(data.data(), data.size(), out.data(), &n, work.data()), LZO_E_OK);
        expect_decodes(Bytes(out.begin(), out.begin() + (ptrdiff_t)n), data, name + " lzo1x_999");
    }
}

TEST(LZO, StrongBeatsFastAndSegmentsAgreeBelowOneSegment) {
    const Bytes data = zt::compressible_bytes(1 << 20, 5);
    const size_t fast = encode(data, zemLZOFast).size(), strong = encode(data, zemLZOStrong).size(),
                 seg = encode(data, zemLZOSegmented).size();
    EXPECT_LT(strong, fast);
    EXPECT_GE(seg, strong);
    // Below one segment the two parses agree.
    const Bytes small(data.begin(), data.begin() + ZEM_LZO_SEGMENT_SIZE);
    EXPECT_EQ(encode(small, zemLZOStrong), encode(small, zemLZOSegmented));
}

TEST(LZO, ArgumentChecks) {
    uint32_t size = 0;
    EXPECT_EQ(zemsEncodeLZOGetSize(zemLZOFast, 0, nullptr), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeLZOGetSize((zemLZOMethod)3, 0x7F000001u, &size), zemStatusSize);
    EXPECT_EQ(zemsEncodeLZOGetSize((zemLZOMethod)3, 10, &size), zemStatusBadArg);
    ASSERT_EQ(zemsEncodeLZOGetSize(zemLZOStrong, 10, &size), zemStatusOk);
    Bytes state(size, 0);
    auto* st = (zemLZOState_8u*)state.data();
    EXPECT_EQ(zemsEncodeLZOInit_8u((zemLZOMethod)3, 10, st), zemStatusBadArg);
    const uint8_t src[11] = "abcabcabca";
    uint8_t dst[64];
    uint32_t cap = sizeof dst;
    EXPECT_EQ(zemsEncodeLZO_8u(src, 10, dst, &cap, st), zemStatusContextMismatch);
    ASSERT_EQ(zemsEncodeLZOInit_8u(zemLZOStrong, 10, st), zemStatusOk);
    EXPECT_EQ(zemsEncodeLZO_8u(nullptr, 10, nullptr, &cap, st), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeLZO_8u(src, 10, dst, &cap, nullptr), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeLZO_8u(src, 11, dst, &cap, st), zemStatusSize);
    // One byte short of the bound: refused before anything is written.
    memset(dst, 0xA5, sizeof dst);
    cap = ZEM_LZO_BOUND(10) - 1;
    EXPECT_EQ(zemsEncodeLZO_8u(src, 10, dst, &cap, st), zemStatusSize);
    EXPECT_EQ(cap, ZEM_LZO_BOUND(10) - 1);
    EXPECT_EQ(dst[0], 0xA5);

    uint32_t n = 8;
    for (auto dec : {zemsDecodeLZO_8u, zemsDecodeLZOSafe_8u}) {
        EXPECT_EQ(dec(nullptr, 0, dst, nullptr), zemStatusNullPtr);
        EXPECT_EQ(dec(src, 0, dst, &n), zemStatusSize);
        n = 0;
        EXPECT_EQ(dec(src, 3, dst, &n), zemStatusSize);
        n = 8;
    }
}

// The safe decoder at the ends of both buffers: every cut of a stream gives 32 and every short
// capacity 33, with what was produced equal to the start of the data.
TEST(LZOSafe, CutInputAndShortOutputKeepTheirPrefix) {
    const Bytes data = zt::compressible_bytes(3000, 9);
    for (auto m : {zemLZOFast, zemLZOStrong}) {
        const Bytes s = encode(data, m);
        for (size_t cut = 1; cut < s.size(); ++cut) {
            zt::GuardedBuffer in(cut), out(data.size());
            in.assign(s.data(), cut);
            uint32_t n = (uint32_t)data.size();
            ASSERT_EQ(zemsDecodeLZOSafe_8u(in.data(), (uint32_t)cut, out.data(), &n), zemStatusSrcTooShort) << cut;
            ASSERT_LE(n, data.size());
            ASSERT_TRUE(std::equal(out.data(), out.data() + n, data.begin())) << cut;
        }
        zt::GuardedBuffer in(s);
        for (size_t cap = 1; cap < data.size(); cap += 7) {
            zt::GuardedBuffer out(cap);
            uint32_t n = (uint32_t)cap;
            ASSERT_EQ(zemsDecodeLZOSafe_8u(in.data(), (uint32_t)s.size(), out.data(), &n), zemStatusDstTooSmall);
            ASSERT_EQ(n, cap);
            ASSERT_TRUE(std::equal(out.data(), out.data() + n, data.begin())) << cap;
        }
    }
}

TEST(LZOSafe, MatchesBeforeTheStartAreErrors) {
    // A 2-byte literal run at the start, then a near match reaching 3 bytes back.
    const uint8_t far[] = {17 + 2, 'a', 'b', 0x40 | (2 << 2), 0, 0x11, 0, 0};
    uint8_t out[32];
    uint32_t n = sizeof out;
    EXPECT_EQ(zemsDecodeLZOSafe_8u(far, sizeof far, out, &n), zemStatusError);
    EXPECT_EQ(n, sizeof out);
    // A match as the very first instruction (a first byte above 17 would be literals).
    const uint8_t first[] = {0x11, 4, 0, 0x11, 0, 0};
    EXPECT_EQ(zemsDecodeLZOSafe_8u(first, sizeof first, out, &n), zemStatusError);
}

// Corrupted and random streams: whatever the status, nothing outside the buffers is touched and
// the count stays within the capacity.
TEST(LZOSafe, HostileInputStaysInsideTheBuffers) {
    zt::Rng r(77);
    const Bytes data = zt::compressible_bytes(20000, 21);
    const Bytes good = encode(data, zemLZOStrong);
    for (int round = 0; round < 3000; ++round) {
        Bytes s;
        if (round % 3 == 0) {
            s = zt::random_bytes(1 + r.below(400), r.next());
        } else {
            s = good;
            for (uint32_t k = 1 + r.below(6); k > 0; --k) s[r.below((uint32_t)s.size())] = (uint8_t)r.next();
            s.resize(1 + r.below((uint32_t)s.size()));
        }
        const size_t cap = 1 + r.below(round % 2 ? 64 : 30000);
        zt::GuardedBuffer in(s), out(cap);
        uint32_t n = (uint32_t)cap;
        const zemStatus st = zemsDecodeLZOSafe_8u(in.data(), (uint32_t)s.size(), out.data(), &n);
        ASSERT_TRUE(st == zemStatusOk || st == zemStatusError || st == zemStatusSrcTooShort ||
                    st == zemStatusDstTooSmall)
            << st;
        ASSERT_LE(n, cap);
    }
}

}  // namespace
