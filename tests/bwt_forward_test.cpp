// The forward block sort: every hint against a plain sort of rotations on small blocks, every
// hint agreeing on large blocks of the shapes that make rotation sorts slow, and the output
// inverting back to the block.
#include "test_util.h"

namespace {

constexpr zemBWTSort kHints[] = {zemBWTSortAuto, zemBWTSortBucket, zemBWTSortSuffix};

struct Bwt {
    Bytes last;
    uint32_t index = 0;
};

Bwt ours(const Bytes& s, zemBWTSort hint) {
    uint32_t size = 0;
    EXPECT_EQ(zemsBWTFwdGetBufSize_SelectSort_8u(uint32_t(s.size()), &size, hint), zemStatusOk);
    zt::GuardedBuffer buf(size), dst(s.size());
    Bwt r;
    EXPECT_EQ(zemsBWTFwd_SelectSort_8u(s.data(), dst.data(), uint32_t(s.size()), &r.index, buf.data(), hint),
              zemStatusOk);
    r.last.assign(dst.data(), dst.data() + s.size());
    return r;
}

Bytes periodic(size_t n, const Bytes& period) {
    Bytes v(n);
    for (size_t i = 0; i < n; ++i) v[i] = period[i % period.size()];
    return v;
}

TEST(BwtForward, SmallBlocksMatchTheDefinition) {
    zt::Rng rng(16);
    for (int round = 0; round < 3000; ++round) {
        size_t n = 1 + rng.below(round < 2000 ? 40 : 300);
        uint32_t alphabet = 1 + rng.below(round % 3 == 0 ? 2 : 256);
        Bytes s(n);
        for (auto& c : s) c = uint8_t(rng.below(alphabet));
        if (round % 5 == 0) {  // a period repeated, sometimes not a whole number of times
            size_t p = 1 + rng.below(uint32_t(n));
            for (size_t i = p; i < n; ++i) s[i] = s[i - p];
        }
        Bwt want;
        want.last = zt::bwt_naive(s, want.index);
        for (zemBWTSort hint : kHints) {
            Bwt got = ours(s, hint);
            ASSERT_EQ(got.last, want.last) << "n=" << n << " hint=" << hint << " round=" << round;
            ASSERT_EQ(got.index, want.index) << "n=" << n << " hint=" << hint << " round=" << round;
        }
    }
}

// The worked example, which also anchors the definition the other tests compare with.
TEST(BwtForward, Banana) {
    Bwt b = ours({'b', 'a', 'n', 'a', 'n', 'a'}, zemBWTSortAuto);
    EXPECT_EQ(b.last, (Bytes{'n', 'n', 'b', 'a', 'a', 'a'}));
    EXPECT_EQ(b.index, 3u);
}

// The shapes that make rotation sorts slow, at a size where a quadratic sort would not finish:
// every hint must agree and invert.
TEST(BwtForward, RepetitiveBlocksAgreeAcrossHints) {
    const size_t n = 200000;
    std::vector<Bytes> blocks;
    blocks.push_back(Bytes(n, 'a'));
    blocks.push_back(periodic(n, {'a', 'b', 'c'}));
    blocks.push_back(periodic(n + 1, {'x', 'y'}));  // not a whole number of periods
    const Bytes half = zt::compressible_bytes(n / 2, 3);
    Bytes doubled = zt::cat(half, half);
    blocks.push_back(doubled);
    doubled[n / 3] ^= 1;  // nearly doubled: primitive, with repeats of n/2
    blocks.push_back(doubled);
    Bytes runs(n, 0);
    for (size_t i = 0; i < n; i += 4099) runs[i] = uint8_t(i);
    blocks.push_back(runs);
    blocks.push_back(zt::random_bytes(n, 5));
    blocks.push_back(zt::compressible_bytes(n, 6));
    for (size_t k = 0; k < blocks.size(); ++k) {
        Bwt first = ours(blocks[k], kHints[0]);
        EXPECT_EQ(zt::bwt_invert(first.last, first.index), blocks[k]) << "block " << k;
        for (zemBWTSort hint : {zemBWTSortBucket, zemBWTSortSuffix}) {
            Bwt got = ours(blocks[k], hint);
            EXPECT_EQ(got.last, first.last) << "block " << k << " hint " << hint;
            EXPECT_EQ(got.index, first.index) << "block " << k << " hint " << hint;
        }
    }
}

TEST(BwtForward, SizesAndArguments) {
    int32_t size = 0;
    uint32_t usize = 0;
    EXPECT_EQ(zemsBWTFwdGetSize_8u(100, nullptr), zemStatusNullPtr);
    EXPECT_EQ(zemsBWTFwdGetSize_8u(0, &size), zemStatusSize);
    EXPECT_EQ(zemsBWTFwdGetSize_8u(INT32_MAX, &size), zemStatusSize);
    ASSERT_EQ(zemsBWTFwdGetSize_8u(900000, &size), zemStatusOk);
    ASSERT_EQ(zemsBWTFwdGetBufSize_SelectSort_8u(900000, &usize, zemBWTSortSuffix), zemStatusOk);
    EXPECT_EQ(uint32_t(size), usize);
    EXPECT_EQ(zemsBWTFwdGetBufSize_SelectSort_8u(0, &usize, zemBWTSortAuto), zemStatusSize);
    EXPECT_EQ(zemsBWTFwdGetBufSize_SelectSort_8u(10, &usize, zemBWTSort(3)), zemStatusBadArg);

    // A buffer sized for a larger window serves a smaller block, through the plain entry too.
    Bytes src = zt::compressible_bytes(5000, 9), dst(5000), buf((size_t)size);
    int32_t index = -1;
    EXPECT_EQ(zemsBWTFwd_8u(src.data(), dst.data(), 5000, &index, buf.data()), zemStatusOk);
    EXPECT_EQ(zt::bwt_invert(dst, uint32_t(index)), src);

    uint32_t uindex = 0;
    EXPECT_EQ(zemsBWTFwd_8u(nullptr, dst.data(), 1, &index, buf.data()), zemStatusNullPtr);
    EXPECT_EQ(zemsBWTFwd_8u(src.data(), dst.data(), 1, &index, nullptr), zemStatusNullPtr);
    EXPECT_EQ(zemsBWTFwd_8u(src.data(), dst.data(), 0, &index, buf.data()), zemStatusSize);
    EXPECT_EQ(zemsBWTFwd_SelectSort_8u(src.data(), dst.data(), 0, &uindex, buf.data(), zemBWTSortAuto), zemStatusSize);
    EXPECT_EQ(zemsBWTFwd_SelectSort_8u(src.data(), dst.data(), 1, &uindex, buf.data(), zemBWTSort(-1)),
              zemStatusBadArg);
    EXPECT_EQ(zemsBWTFwd_SelectSort_8u(src.data(), nullptr, 0, &uindex, buf.data(), zemBWTSort(9)), zemStatusNullPtr);
}

}  // namespace
