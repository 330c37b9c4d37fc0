// The memory kernels: every path and threshold, every alignment, byte for byte.
#include "core/mem.h"
#include "test_util.h"
#include "zemcore.h"

using namespace zem;
using zem::mem::CopyPath;
using zem::mem::FillPath;

namespace {

int32_t g_fake_cache = 0;
int g_queries = 0;
int32_t fake_cache(int32_t* size) {
    ++g_queries;
    *size = g_fake_cache;
    return 0;
}
int32_t failing_cache(int32_t*) {
    ++g_queries;
    return -1;
}

// Copies with a kernel and checks every byte of the destination, and the bytes around it.
template <class Copy>
void check_copy(Copy copy, size_t n, size_t soff, size_t doff) {
    static Bytes src = zt::random_bytes(size_t(5) << 20, 11);
    Bytes dst(n + doff + 128, 0xcc);
    ASSERT_LE(n + soff, src.size());
    copy(src.data() + soff, dst.data() + doff, n);
    ASSERT_EQ(0, memcmp(dst.data() + doff, src.data() + soff, n)) << "n=" << n << " soff=" << soff << " doff=" << doff;
    for (size_t i = 0; i < doff; ++i) ASSERT_EQ(dst[i], 0xcc);
    for (size_t i = doff + n; i < dst.size(); ++i) ASSERT_EQ(dst[i], 0xcc) << "write past the end, n=" << n;
}

// Index of the first byte of buf that is not `inside` within [off, off + n) or not `outside`
// elsewhere; buf.size() when every byte is right.
size_t first_wrong(const Bytes& buf, size_t off, size_t n, uint8_t inside, uint8_t outside) {
    for (size_t i = 0; i < buf.size(); ++i)
        if (buf[i] != ((i >= off && i < off + n) ? inside : outside)) return i;
    return buf.size();
}

// Every size class of the small-block kernel and both sides of each of its boundaries.
const size_t kSizes[] = {0,  1,   2,   3,   4,   7,   8,   9,   15,  16,   17,   31,   32,    33,   63,   64,
                         65, 127, 128, 129, 255, 256, 257, 511, 512, 513, 1000, 4095, 16384, 20000, 32767};

}  // namespace

TEST(MemCopy, PathChoiceFollowsSizeCacheAndPagePlacement) {
    alignas(4096) static uint8_t page[8192];
    g_fake_cache = 8 << 20;
    g_queries = 0;
    EXPECT_EQ(mem::copy_path(page, page + 4096 + 500, 32767, fake_cache), CopyPath::Small);
    EXPECT_NE(mem::copy_path(page, page + 4096 + 500, 32768, fake_cache), CopyPath::Small);
    EXPECT_EQ(mem::copy_path(page, page + 500, 0x400000, fake_cache), CopyPath::StringMove);
    EXPECT_EQ(g_queries, 0) << "4 MiB copies never ask for the cache size";
    EXPECT_EQ(mem::copy_path(page, page + 500, 0x400001, fake_cache), CopyPath::Stream);
    EXPECT_EQ(g_queries, 1);
    // Half the cache is the threshold: an 8 MiB + 2 cache makes 0x400001 too small.
    g_fake_cache = (8 << 20) + 4;
    EXPECT_EQ(mem::copy_path(page, page + 500, 0x400001, fake_cache), CopyPath::StringMove);
    EXPECT_EQ(mem::copy_path(page, page + 500, 0x400002, fake_cache), CopyPath::Stream);
    EXPECT_EQ(mem::copy_path(page, page + 500, 0x7fffffff, failing_cache), CopyPath::StringMove);
    // Destination page offset just above the source's (0..159 bytes): backward copy.
    EXPECT_EQ(mem::copy_path(page, page + 4096, 40000, failing_cache), CopyPath::Backward);
    EXPECT_EQ(mem::copy_path(page + 10, page + 4096 + 10 + 159, 40000, failing_cache), CopyPath::Backward);
    EXPECT_EQ(mem::copy_path(page + 10, page + 4096 + 10 + 160, 40000, failing_cache), CopyPath::StringMove);
    // Destination below the source within the page: the difference wraps to a large unsigned.
    EXPECT_EQ(mem::copy_path(page + 100, page + 4096 + 99, 40000, failing_cache), CopyPath::StringMove);
}

TEST(MemCopy, SmallKernelAllSizesAndAlignments) {
    for (size_t n : kSizes)
        for (size_t soff = 0; soff < 64; soff += (n > 4096 ? 13 : 1))
            for (size_t doff : {0, 1, 5, 31, 32, 33, 63})
                check_copy([](const uint8_t* s, uint8_t* d, size_t k) { mem::copy_small(s, d, k); }, n, soff, doff);
}

TEST(MemCopy, LargeKernelsAllAlignments) {
    const size_t sizes[] = {32768, 32769, 40000 + 63, 100000};
    for (size_t n : sizes)
        for (size_t soff : {0, 1, 8, 12, 33, 64})
            for (size_t doff : {0, 2, 4, 8, 17, 63}) {
                check_copy([](const uint8_t* s, uint8_t* d, size_t k) { mem::copy_string_move(s, d, k); }, n, soff, doff);
                check_copy([](const uint8_t* s, uint8_t* d, size_t k) { mem::copy_backward(s, d, k); }, n, soff, doff);
                check_copy([](const uint8_t* s, uint8_t* d, size_t k) { mem::copy_stream(s, d, k); }, n, soff, doff);
            }
    // Short string moves exercise the element-width remainders.
    for (size_t n = 1; n < 40; ++n)
        check_copy([](const uint8_t* s, uint8_t* d, size_t k) { mem::copy_string_move(s, d, k); }, n, 3, 7);
}

TEST(MemCopy, EveryPathThroughTheDispatcher) {
    // 0x400001 bytes with a small injected cache takes the streaming path; the same size with a
    // failing query takes the string move or the backward copy by page placement.
    g_fake_cache = 1 << 20;
    for (size_t n : {size_t(0x400001), size_t(0x400000 + 100)})
        for (size_t doff : {0, 1, 63}) {
            check_copy([](const uint8_t* s, uint8_t* d, size_t k) { mem::copy(s, d, (int32_t)k, fake_cache); }, n, 5, doff);
            check_copy([](const uint8_t* s, uint8_t* d, size_t k) { mem::copy(s, d, (int32_t)k, failing_cache); }, n, 5, doff);
        }
    check_copy([](const uint8_t* s, uint8_t* d, size_t k) { MemCopy(s, d, (int32_t)k); }, 32767, 1, 2);
    check_copy([](const uint8_t* s, uint8_t* d, size_t k) { MemCopy(s, d, (int32_t)k); }, 32768, 1, 2);
    // Nothing is written for lengths of zero or less.
    uint8_t a[4] = {1, 2, 3, 4}, b[4] = {9, 9, 9, 9};
    EXPECT_EQ(MemCopy(a, b, 0), b);
    EXPECT_EQ(MemCopy(a, b, -5), b);
    EXPECT_EQ(b[0], 9);
}

TEST(MemCopy, StreamingThroughTheRealCacheQuery) {
    int32_t cache = 0;
    if (zemGetMaxCacheSizeB(&cache) != 0) GTEST_SKIP() << "the processor reports no cache size";
    size_t n = std::max<size_t>(size_t(cache) / 2, 0x400001) + 77;
    ASSERT_EQ(mem::copy_path(nullptr, (void*)64, (int32_t)n, zemGetMaxCacheSizeB), CopyPath::Stream);
    // The cache may be hundreds of megabytes: a cheap pattern rather than random bytes.
    Bytes src(n + 1), dst(n + 64, 0);
    for (size_t i = 0; i < src.size(); ++i) src[i] = uint8_t(i * 131 + (i >> 11));
    MemCopy(src.data() + 1, dst.data() + 3, (int32_t)n);
    EXPECT_EQ(0, memcmp(dst.data() + 3, src.data() + 1, n));
    EXPECT_EQ(dst[2], 0);
    EXPECT_EQ(dst[n + 3], 0);
}

TEST(MemCopyChecked, StatusesAndCopies) {
    uint8_t a[8] = {1, 2, 3, 4, 5, 6, 7, 8}, b[8] = {};
    EXPECT_EQ(MemCopyChecked(nullptr, b, 8), zemStatusNullPtr);
    EXPECT_EQ(MemCopyChecked(a, nullptr, 0), zemStatusNullPtr);
    EXPECT_EQ(MemCopyChecked(a, b, 0), zemStatusSize);
    EXPECT_EQ(MemCopyChecked(a, b, -1), zemStatusSize);
    EXPECT_EQ(b[0], 0);
    EXPECT_EQ(MemCopyChecked(a, b, 8), zemStatusOk);
    EXPECT_EQ(0, memcmp(a, b, 8));
    check_copy([](const uint8_t* s, uint8_t* d, size_t k) { ASSERT_EQ(MemCopyChecked(s, d, (int32_t)k), 0); }, 32767, 3, 1);
    check_copy([](const uint8_t* s, uint8_t* d, size_t k) { ASSERT_EQ(MemCopyChecked(s, d, (int32_t)k), 0); }, 50000, 3, 1);
}

TEST(MemZero, BothPathsAroundTheThreshold) {
    EXPECT_EQ(mem::zero_path(32768), mem::ZeroPath::Vector);
    EXPECT_EQ(mem::zero_path(32769), mem::ZeroPath::StringStore);
    for (size_t n : {0, 1, 2, 5, 16, 17, 33, 64, 65, 127, 128, 129, 255, 1000, 32767, 32768, 32769, 100003})
        for (size_t off : {0, 1, 31, 32}) {
            Bytes buf(n + off + 64, 0xee);
            EXPECT_EQ(MemZero(buf.data() + off, (int32_t)n), buf.data() + off);
            ASSERT_EQ(first_wrong(buf, off, n, 0, 0xee), buf.size()) << "n=" << n << " off=" << off;
        }
}

TEST(MemFill, PathChoiceFollowsSizeAndCache) {
    g_fake_cache = 1 << 20;
    g_queries = 0;
    EXPECT_EQ(mem::fill_path(0x200000, fake_cache), FillPath::Vector);
    EXPECT_EQ(g_queries, 0) << "2 MiB fills never ask for the cache size";
    EXPECT_EQ(mem::fill_path(0x200001, fake_cache), FillPath::Stream);
    g_fake_cache = 0x300000;
    EXPECT_EQ(mem::fill_path(0x300000, fake_cache), FillPath::Vector) << "must be larger than the whole cache";
    EXPECT_EQ(mem::fill_path(0x300001, fake_cache), FillPath::Stream);
    g_fake_cache = -1;
    EXPECT_EQ(mem::fill_path(0x7fffffff, fake_cache), FillPath::Vector);
    EXPECT_EQ(mem::fill_path(0x7fffffff, failing_cache), FillPath::Vector);
}

TEST(MemFill, EveryPathEveryAlignmentEveryTailBit) {
    g_fake_cache = 1 << 20;
    auto check = [](size_t n, size_t off, bool stream) {
        Bytes buf(n + off + 64, 0x11);
        if (stream)
            EXPECT_EQ(mem::fill(0xa7, buf.data() + off, (int32_t)n, fake_cache), buf.data() + off);
        else
            EXPECT_EQ(MemFill(0xa7, buf.data() + off, (int32_t)n), buf.data() + off);
        ASSERT_EQ(first_wrong(buf, off, n, 0xa7, 0x11), buf.size()) << "n=" << n << " off=" << off;
    };
    for (size_t n : {0, 1, 3, 8, 15, 16, 31, 32, 33, 64, 65, 100, 128, 129, 191, 4096, 0xfffff, 0x100000, 0x100007, 0x200000})
        for (size_t off : {0, 1, 13, 32, 63}) check(n, off, false);
    // Streaming: every remainder below 64 (each bit of the tail) and every head misalignment.
    for (size_t rem = 0; rem < 64; ++rem) check(0x200040 + 512 * 3 + rem, rem % 7, true);
    for (size_t off = 0; off < 64; ++off) check(0x200001, off, true);
}

TEST(MemFill, StreamingThroughTheRealCacheQuery) {
    int32_t cache = 0;
    if (zemGetMaxCacheSizeB(&cache) != 0 || cache >= (1 << 30)) GTEST_SKIP() << "no usable cache size";
    size_t n = std::max<size_t>(size_t(cache), 0x200000) + 33;
    ASSERT_EQ(mem::fill_path((int32_t)n, zemGetMaxCacheSizeB), FillPath::Stream);
    Bytes buf(n + 2, 0);
    MemFill(0x3c, buf.data() + 1, (int32_t)n);
    EXPECT_EQ(first_wrong(buf, 1, n, 0x3c, 0), buf.size());
}

TEST(MemKernels, GuardPages) {
    auto src = zt::random_bytes(40000, 13);
    for (size_t n : {1, 17, 64, 255, 256, 1000, 32767, 32768, 40000}) {
        zt::GuardedBuffer dst(n), s(n);
        s.assign(src.data(), n);
        MemCopy(s.data(), dst.data(), (int32_t)n);
        EXPECT_EQ(0, memcmp(dst.data(), src.data(), n));
        mem::copy_backward(s.data(), dst.data(), n);
        mem::copy_string_move(s.data(), dst.data(), n);
        MemFill(1, dst.data(), (int32_t)n);
        MemZero(dst.data(), (int32_t)n);
        zt::GuardedBuffer front(n, true);
        MemFill(2, front.data(), (int32_t)n);
        MemCopy(s.data(), front.data(), (int32_t)n);
        EXPECT_EQ(0, memcmp(front.data(), src.data(), n));
    }
}
