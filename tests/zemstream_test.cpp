// The C API of the stream layers: one-call and incremental use of every container this build
// offers, against zlib and liblz4, with outputs that end at a guard page and inputs that are
// cut, damaged or too large for the output.
#include "test_util.h"
#include "zemstream.h"

namespace {

// The reference decoder of each container we write, into a buffer of the expected size.
Bytes reference_decode(int32_t container, const uint8_t* p, size_t n, size_t expect) {
    if (container == zemContainerBZ2) return zt::libbz2_decompress(p, n, expect);
    if (container != zemContainerLZ4)
        return zt::zlib_inflate(p, n, container == zemContainerGzip ? 31 : container == zemContainerZlib ? 15 : -15,
                                expect);
    return zt::lz4f_decompress(p, n, expect);
}

// One-call decompression into a buffer of exactly `cap` bytes that ends at a guard page.
zemStatus decompress_guarded(int32_t container, const Bytes& in, size_t cap, Bytes* got) {
    zt::GuardedBuffer out(cap ? cap : 1);
    size_t len = cap;
    zemStatus st = zemStreamDecompress(container, in.data(), in.size(), out.data(), &len);
    EXPECT_LE(len, cap);
    if (got) got->assign(out.data(), out.data() + len);
    return st;
}

// Incremental use with tiny input and output pieces.
zemStatus stream_through(int32_t container, int32_t direction, int32_t level, const Bytes& in,
                         size_t piece, Bytes* out) {
    zemStream* s = nullptr;
    zemStatus st = zemStreamCreate(container, direction, level, &s);
    if (st != zemStatusOk) return st;
    Bytes buf(piece);
    const uint8_t* p = in.data();
    size_t left = in.size();
    while (left && st >= 0) {
        size_t n = left < piece ? left : piece, give = n, room = piece;
        uint8_t* q = buf.data();
        st = zemStreamFeed(s, &p, &n, &q, &room);
        left -= give - n;
        out->insert(out->end(), buf.data(), q);
    }
    do {
        if (st < 0) break;
        size_t room = piece;
        uint8_t* q = buf.data();
        st = zemStreamFinish(s, &q, &room);
        out->insert(out->end(), buf.data(), q);
    } while (st == zemStatusDstTooSmall);
    zemStreamDestroy(s);
    return st;
}

}  // namespace

TEST(ZemStream, ForeignContainersDecodeInOneCallAndInPieces) {
    auto data = zt::compressible_bytes(200000, 1);
    struct {
        int32_t container;
        Bytes packed;
    } cases[] = {
        {zemContainerGzip, zt::zlib_deflate(data, 31)},
        {zemContainerZlib, zt::zlib_deflate(data, 15)},
        {zemContainerDeflate, zt::zlib_deflate(data, -15)},
        {zemContainerLZ4, zt::lz4f_compress(data, LZ4F_default, true, true, 0)},
        {zemContainerBZ2, zt::libbz2_compress(data, 9)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(zemStreamContainerName(c.container));
        Bytes got;
        EXPECT_EQ(decompress_guarded(c.container, c.packed, data.size(), &got), zemStatusOk);
        EXPECT_EQ(got, data);
        got.clear();
        EXPECT_EQ(stream_through(c.container, zemStreamDecode, 0, c.packed, 999, &got), zemStatusOk);
        EXPECT_EQ(got, data);
        // One byte short of room, cut input, a damaged byte near the end, no input at all.
        EXPECT_EQ(decompress_guarded(c.container, c.packed, data.size() - 1, nullptr), zemStreamStatusDstTooSmall);
        auto cut = Bytes(c.packed.begin(), c.packed.end() - 3);
        EXPECT_EQ(decompress_guarded(c.container, cut, data.size(), nullptr), zemStreamStatusTruncated);
        got.clear();
        EXPECT_EQ(stream_through(c.container, zemStreamDecode, 0, cut, 500, &got), zemStreamStatusTruncated);
        // Raw DEFLATE has no check to catch a changed literal; the others must not pass it.
        auto bad = c.packed;
        bad[bad.size() - 6] ^= 0x10;
        if (c.container != zemContainerDeflate)
            EXPECT_LT(decompress_guarded(c.container, bad, data.size() + 100, nullptr), 0);
        EXPECT_EQ(decompress_guarded(c.container, {}, 10, nullptr), zemStreamStatusTruncated);
    }
}

TEST(ZemStream, OurContainersDecodeWithTheReferences) {
    auto data = zt::compressible_bytes(300000, 2);
    for (int32_t container : {zemContainerLZ4, zemContainerGzip, zemContainerZlib, zemContainerDeflate, zemContainerBZ2})
        for (int level : {0, 1, 5, 9}) {
            SCOPED_TRACE(testing::Message() << zemStreamContainerName(container) << " level " << level);
            uint64_t bound = 0;
            ASSERT_EQ(zemStreamCompressBound(container, data.size(), &bound), zemStatusOk);
            zt::GuardedBuffer out(bound);
            size_t len = bound;
            ASSERT_EQ(zemStreamCompress(container, level, data.data(), data.size(), out.data(), &len), zemStatusOk);
            EXPECT_EQ(reference_decode(container, out.data(), len, data.size()), data);
            // Too little room: a status and nothing past the buffer.
            zt::GuardedBuffer small(len - 1);
            size_t small_len = len - 1;
            EXPECT_EQ(zemStreamCompress(container, level, data.data(), data.size(), small.data(), &small_len),
                      zemStreamStatusDstTooSmall);
            Bytes streamed, again;
            ASSERT_EQ(stream_through(container, zemStreamEncode, level, data, 4096, &streamed), zemStatusOk);
            ASSERT_EQ(stream_through(container, zemStreamDecode, 0, streamed, 3000, &again), zemStatusOk);
            EXPECT_EQ(again, data);
        }
    // Random bytes stay within every bound.
    auto noise = zt::random_bytes(70000, 3);
    for (int32_t container : {zemContainerLZ4, zemContainerGzip, zemContainerBZ2, zemContainerLZO}) {
        uint64_t bound = 0;
        ASSERT_EQ(zemStreamCompressBound(container, noise.size(), &bound), zemStatusOk);
        zt::GuardedBuffer out(bound);
        size_t len = bound;
        EXPECT_EQ(zemStreamCompress(container, 9, noise.data(), noise.size(), out.data(), &len), zemStatusOk)
            << zemStreamContainerName(container);
        Bytes back(noise.size());
        size_t back_len = back.size();
        EXPECT_EQ(zemStreamDecompress(container, out.data(), len, back.data(), &back_len), zemStatusOk);
        EXPECT_EQ(back, noise);
    }
    // Empty input makes a valid, empty container.
    uint8_t buf[64];
    size_t len = sizeof buf;
    ASSERT_EQ(zemStreamCompress(zemContainerLZ4, 0, nullptr, 0, buf, &len), zemStatusOk);
    size_t out_len = 0;
    EXPECT_EQ(zemStreamDecompress(zemContainerLZ4, buf, len, buf + len, &out_len), zemStatusOk);
    EXPECT_EQ(out_len, 0u);
}

TEST(ZemStream, ArgumentsStatesAndMessages) {
    uint8_t b[16];
    size_t len = sizeof b;
    zemStream* s = nullptr;
    // Pointers first, then the container, direction and level.
    EXPECT_EQ(zemStreamCompress(99, 20, nullptr, 1, b, &len), zemStatusNullPtr);
    EXPECT_EQ(zemStreamCompress(99, 1, b, 1, b, &len), zemStatusBadArg);
    EXPECT_EQ(zemStreamCompress(zemContainerLZ4, 10, b, 1, b, &len), zemStatusBadArg);
    EXPECT_EQ(zemStreamCreate(zemContainerLZ4, 2, 1, &s), zemStatusBadArg);
    EXPECT_EQ(zemStreamCreate(0, zemStreamEncode, 1, nullptr), zemStatusNullPtr);
    EXPECT_EQ(zemStreamCompressBound(7, 1, nullptr), zemStatusNullPtr);
    // After an error the stream refuses further work; the detail names the fault.
    ASSERT_EQ(zemStreamCreate(zemContainerLZ4, zemStreamDecode, 0, &s), zemStatusOk);
    const uint8_t junk[] = {1, 2, 3, 4, 5};
    const uint8_t* p = junk;
    size_t n = sizeof junk, room = sizeof b;
    uint8_t* q = b;
    EXPECT_EQ(zemStreamFeed(s, &p, &n, &q, &room), zemStreamStatusCorrupt);
    EXPECT_STRNE(zemStreamErrorDetail(s), "");
    EXPECT_EQ(zemStreamFeed(s, &p, &n, &q, &room), zemStreamStatusBadState);
    EXPECT_EQ(zemStreamFinish(s, &q, &room), zemStreamStatusBadState);
    zemStreamDestroy(s);
    zemStreamDestroy(nullptr);
    // Every status of both libraries has its own message.
    const zemStatus all[] = {0, -2, -4, -5, -6, -8, -13, -16, -200, 32, 33, -300, -301, -302, -303, -304, -305, -306};
    for (zemStatus a : all) {
        EXPECT_STRNE(zemStreamStatusString(a), "unknown status") << a;
        for (zemStatus b2 : all)
            if (a != b2) EXPECT_STRNE(zemStreamStatusString(a), zemStreamStatusString(b2));
    }
    EXPECT_STREQ(zemStreamStatusString(12345), "unknown status");
    EXPECT_STREQ(zemStreamContainerSuffix(zemContainerGzip), ".gz");
}
