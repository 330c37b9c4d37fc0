// The C API of the stream layers: one-call and incremental use of every container this build
// offers, against zlib and liblz4, with outputs that end at a guard page and inputs that are
// cut, damaged or too large for the output.
#include <gtest/gtest.h>
#include <lz4frame.h>
#include <zlib.h>

#include <string.h>

#include "test_util.h"
#include "zemstream.h"

namespace {

// zlib's deflate with the window bits that choose the wrapper (raw -15, zlib 15, gzip 31).
std::vector<uint8_t> zlib_compress(const std::vector<uint8_t>& d, int window_bits) {
    z_stream z{};
    deflateInit2(&z, 6, Z_DEFLATED, window_bits, 8, Z_DEFAULT_STRATEGY);
    std::vector<uint8_t> out(deflateBound(&z, uLong(d.size())) + 32);
    z.next_in = const_cast<Bytef*>(d.data());
    z.avail_in = uInt(d.size());
    z.next_out = out.data();
    z.avail_out = uInt(out.size());
    EXPECT_EQ(deflate(&z, Z_FINISH), Z_STREAM_END);
    out.resize(z.total_out);
    deflateEnd(&z);
    return out;
}

std::vector<uint8_t> liblz4_frame(const std::vector<uint8_t>& d) {
    LZ4F_preferences_t pr{};
    pr.frameInfo.contentChecksumFlag = LZ4F_contentChecksumEnabled;
    std::vector<uint8_t> out(LZ4F_compressFrameBound(d.size(), &pr));
    out.resize(LZ4F_compressFrame(out.data(), out.size(), d.data(), d.size(), &pr));
    return out;
}

// One-call decompression into a buffer of exactly `cap` bytes that ends at a guard page.
zemStatus decompress_guarded(int32_t container, const std::vector<uint8_t>& in, size_t cap, std::vector<uint8_t>* got) {
    zt::GuardedBuffer out(cap ? cap : 1);
    size_t len = cap;
    zemStatus st = zemStreamDecompress(container, in.data(), in.size(), out.data(), &len);
    EXPECT_LE(len, cap);
    if (got) got->assign(out.data(), out.data() + len);
    return st;
}

// Incremental use with tiny input and output pieces.
zemStatus stream_through(int32_t container, int32_t direction, int32_t level, const std::vector<uint8_t>& in,
                         size_t piece, std::vector<uint8_t>* out) {
    zemStream* s = nullptr;
    zemStatus st = zemStreamCreate(container, direction, level, &s);
    if (st != zemStatusOk) return st;
    std::vector<uint8_t> buf(piece);
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
        std::vector<uint8_t> packed;
    } cases[] = {
        {zemContainerGzip, zlib_compress(data, 31)},
        {zemContainerZlib, zlib_compress(data, 15)},
        {zemContainerDeflate, zlib_compress(data, -15)},
        {zemContainerLZ4, liblz4_frame(data)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(zemStreamContainerName(c.container));
        std::vector<uint8_t> got;
        EXPECT_EQ(decompress_guarded(c.container, c.packed, data.size(), &got), zemStatusOk);
        EXPECT_EQ(got, data);
        got.clear();
        EXPECT_EQ(stream_through(c.container, zemStreamDecode, 0, c.packed, 999, &got), zemStatusOk);
        EXPECT_EQ(got, data);
        // One byte short of room, cut input, a damaged byte near the end, no input at all.
        EXPECT_EQ(decompress_guarded(c.container, c.packed, data.size() - 1, nullptr), zemStreamStatusDstTooSmall);
        auto cut = std::vector<uint8_t>(c.packed.begin(), c.packed.end() - 3);
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
    for (int level : {0, 1, 5, 9}) {
        uint64_t bound = 0;
        ASSERT_EQ(zemStreamCompressBound(zemContainerLZ4, data.size(), &bound), zemStatusOk);
        zt::GuardedBuffer out(bound);
        size_t len = bound;
        ASSERT_EQ(zemStreamCompress(zemContainerLZ4, level, data.data(), data.size(), out.data(), &len), zemStatusOk);
        std::vector<uint8_t> back(data.size());
        LZ4F_dctx* d;
        LZ4F_createDecompressionContext(&d, LZ4F_VERSION);
        size_t dst = back.size(), src = len;
        EXPECT_EQ(LZ4F_decompress(d, back.data(), &dst, out.data(), &src, nullptr), 0u);
        LZ4F_freeDecompressionContext(d);
        EXPECT_EQ(back, data);
        // Too little room: a status and nothing past the buffer.
        zt::GuardedBuffer small(len - 1);
        size_t small_len = len - 1;
        EXPECT_EQ(zemStreamCompress(zemContainerLZ4, level, data.data(), data.size(), small.data(), &small_len),
                  zemStreamStatusDstTooSmall);
        std::vector<uint8_t> streamed, again;
        ASSERT_EQ(stream_through(zemContainerLZ4, zemStreamEncode, level, data, 4096, &streamed), zemStatusOk);
        ASSERT_EQ(stream_through(zemContainerLZ4, zemStreamDecode, 0, streamed, 3000, &again), zemStatusOk);
        EXPECT_EQ(again, data);
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
