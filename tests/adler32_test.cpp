#include "test_util.h"

namespace {

// The definition, one byte at a time with a reduction after every byte.
uint32_t adler_ref(uint32_t adler, const uint8_t* p, size_t n) {
    uint32_t a = adler & 0xffff, b = adler >> 16;
    a %= 65521;
    b %= 65521;
    for (size_t i = 0; i < n; ++i) {
        a = (a + p[i]) % 65521;
        b = (b + a) % 65521;
    }
    return b << 16 | a;
}

uint32_t ours(uint32_t start, const uint8_t* p, int32_t n) {
    uint32_t v = start;
    EXPECT_EQ(zemsAdler32_8u(p, n, &v), zemStatusOk);
    return v;
}

}  // namespace

TEST(Adler32, EveryLengthAndAlignmentMatchesZlib) {
    // 0xff bytes drive every sum to its maximum; random bytes catch weighting mistakes.
    auto rnd = zt::random_bytes(20000, 1);
    Bytes ff(20000, 0xff);
    for (auto* buf : {&rnd, &ff}) {
        for (size_t off = 0; off < 64; off += (off < 35 ? 1 : 7)) {
            for (size_t n = 0; n <= 300; ++n)
                ASSERT_EQ(ours(1, buf->data() + off, (int32_t)n), adler32(1, buf->data() + off, (uInt)n)) << n;
            for (size_t n : {5535u, 5536u, 5537u, 5552u, 5553u, 5536u * 3 + 17, 11008u, 11072u, 19900u})
                ASSERT_EQ(ours(1, buf->data() + off, (int32_t)n), adler32(1, buf->data() + off, (uInt)n)) << n;
        }
    }
}

TEST(Adler32, ExtremeRunningValuesOnEveryPath) {
    // The largest reduced value continued over 0xff bytes drives every sum to its maximum;
    // halves of 65535 are out of range and must be reduced as the definition does.
    Bytes ff(1 << 20, 0xff);
    auto rnd = zt::random_bytes(3 << 20, 2);
    for (uint32_t start : {65520u << 16 | 65520u, 0xffffffffu})
        for (size_t n : {1u, 30u, 31u, 64u, 100u, 5536u, 12000u, (1u << 20) - 1})
            for (auto* buf : {&ff, &rnd})
                EXPECT_EQ(ours(start, buf->data() + 1, (int32_t)n), adler_ref(start, buf->data() + 1, n)) << n;
    EXPECT_EQ(ours(1, rnd.data(), (int32_t)rnd.size()), adler32(1, rnd.data(), (uInt)rnd.size()));
}

TEST(Adler32, SplitsEqualOneCall) {
    auto buf = zt::compressible_bytes(70000, 3);
    uint32_t whole = ours(1, buf.data(), (int32_t)buf.size());
    zt::Rng r(4);
    for (int trial = 0; trial < 200; ++trial) {
        size_t cut = r.below((uint32_t)buf.size() + 1);
        uint32_t v = ours(1, buf.data(), (int32_t)cut);
        v = ours(v, buf.data() + cut, (int32_t)(buf.size() - cut));
        ASSERT_EQ(v, whole) << cut;
    }
}

TEST(Adler32, NullSourceRestartsAndEmptyLengthsOnlyReduce) {
    uint8_t byte = 7;
    uint32_t v = 0xdeadbeef;
    EXPECT_EQ(zemsAdler32_8u(nullptr, 100, &v), zemStatusOk);
    EXPECT_EQ(v, 1u);
    v = 0x12345678;
    EXPECT_EQ(zemsAdler32_8u(nullptr, -5, &v), zemStatusOk);
    EXPECT_EQ(v, 1u);
    EXPECT_EQ(zemsAdler32_8u(&byte, 1, nullptr), zemStatusNullPtr);
    EXPECT_EQ(zemsAdler32_8u(nullptr, 1, nullptr), zemStatusNullPtr);
    v = 0xfff3fff2;  // both halves at or above 65521
    EXPECT_EQ(zemsAdler32_8u(&byte, 0, &v), zemStatusOk);
    EXPECT_EQ(v, (0xfff3u - 65521) << 16 | (0xfff2u - 65521));
    v = 0x00120034;
    EXPECT_EQ(zemsAdler32_8u(&byte, -1, &v), zemStatusOk);
    EXPECT_EQ(v, 0x00120034u);
}

TEST(Adler32, ReadsNothingPastTheEnd) {
    auto data = zt::random_bytes(4096, 6);
    for (size_t n : {1u, 31u, 63u, 64u, 65u, 4096u}) {
        zt::GuardedBuffer g(Bytes(data.begin(), data.begin() + ptrdiff_t(n)));
        EXPECT_EQ(ours(1, g.data(), (int32_t)n), adler32(1, data.data(), (uInt)n));
    }
}
