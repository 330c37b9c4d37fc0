// .lzo files against the lzop tool both ways, the incremental reader and writer, damaged files,
// and the join of separately compressed segments.
#include <lzo/lzo1x.h>

#include "lzo_file.h"
#include "test_util.h"

namespace {

using zem::stream::LzoResult;

std::vector<Bytes> inputs() {
    return {Bytes(), zt::random_bytes(1, 1), zt::compressible_bytes(1000, 2), zt::random_bytes(70000, 3),
            zt::compressible_bytes(700000, 4)};
}

TEST(LzoFile, LzopReadsOurs) {
    for (auto m : {zemLZOFast, zemLZOStrong, zemLZOSegmented})
        for (const Bytes& in : inputs()) {
            zem::stream::LzoFileOptions o;
            o.method = m;
            o.name = "data";
            Bytes file;
            ASSERT_TRUE(zem::stream::lzo_file_compress(in.data(), in.size(), file, o));
            ASSERT_EQ(zt::tool_output("lzop -q -dc", file), in) << "method " << m << " size " << in.size();
        }
}

TEST(LzoFile, WeReadLzops) {
    for (const char* flags : {"-1", "-3", "-7", "-9", "--crc32 -5"})
        for (const Bytes& in : inputs()) {
            const Bytes file = zt::tool_output(std::string("lzop -q -c ") + flags + " in", in);
            Bytes out;
            ASSERT_EQ(zem::stream::lzo_file_decompress(file.data(), file.size(), out), LzoResult::End)
                << flags << " size " << in.size();
            ASSERT_EQ(out, in);
            // Fed in ragged pieces, the reader gives the same.
            zem::stream::LzoReader r;
            Bytes out2;
            LzoResult res = LzoResult::Ok;
            zt::Rng rng(in.size());
            for (size_t at = 0; at < file.size() && res == LzoResult::Ok;) {
                const size_t k = std::min<size_t>(file.size() - at, 1 + rng.below(3000));
                res = r.feed(file.data() + at, k, out2);
                at += k;
            }
            ASSERT_EQ(res, LzoResult::End);
            ASSERT_EQ(out2, in);
            ASSERT_EQ(r.name(), "in");
        }
}

TEST(LzoFile, WriterPiecesAndDamage) {
    const Bytes in = zt::compressible_bytes(600000, 8);
    Bytes whole, pieces;
    ASSERT_TRUE(zem::stream::lzo_file_compress(in.data(), in.size(), whole));
    zem::stream::LzoWriter w;
    zt::Rng rng(3);
    for (size_t at = 0; at < in.size();) {
        const size_t k = std::min<size_t>(in.size() - at, rng.below(100000));
        ASSERT_TRUE(w.write(in.data() + at, k, pieces));
        at += k;
    }
    ASSERT_TRUE(w.finish(pieces));
    EXPECT_EQ(pieces, whole);

    Bytes out;
    EXPECT_EQ(zem::stream::lzo_file_decompress(whole.data(), whole.size() - 1, out), LzoResult::Truncated);
    // Any damaged byte is caught by a checksum, a bound or the decoder.
    for (size_t at : {size_t(3), size_t(20), size_t(60), whole.size() / 2, whole.size() - 6}) {
        Bytes bad = whole;
        bad[at] ^= 0x5A;
        out.clear();
        EXPECT_EQ(zem::stream::lzo_file_decompress(bad.data(), bad.size(), out), LzoResult::BadData) << at;
    }
    zem::stream::LzoFileOptions o;
    o.block_size = 0;
    EXPECT_FALSE(zem::stream::lzo_file_compress(in.data(), in.size(), out, o));
}

// Segments compressed by separate calls join into exactly the stream of one call.
TEST(LzoJoin, SeparateSegmentsJoinIntoTheSingleCallStream) {
    uint32_t size = 0;
    ASSERT_EQ(zemsEncodeLZOGetSize(zemLZOSegmented, 4 << 20, &size), zemStatusOk);
    Bytes state(size);
    auto* st = (zemLZOState_8u*)state.data();
    ASSERT_EQ(zemsEncodeLZOInit_8u(zemLZOSegmented, 4 << 20, st), zemStatusOk);
    auto encode = [&](const uint8_t* p, size_t n) {
        Bytes out(ZEM_LZO_BOUND(n));
        uint32_t c = (uint32_t)out.size();
        const uint8_t none = 0;
        EXPECT_EQ(zemsEncodeLZO_8u(n ? p : &none, (uint32_t)n, out.data(), &c, st), zemStatusOk);
        out.resize(c);
        return out;
    };
    const size_t S = ZEM_LZO_SEGMENT_SIZE;
    // Segment ends in literals meet segments that start with few or many literals, and a
    // segment of incompressible bytes is all literals.
    Bytes text = zt::compressible_bytes(3 * S + 1234, 5);
    const Bytes noise = zt::random_bytes(S + 2, 6);
    std::copy(noise.begin(), noise.begin() + S, text.begin() + S);
    for (size_t k = 0; k < 3; ++k) text[(k + 2) * S - 1 - k] ^= 0x80;
    for (const Bytes& in : {text, zt::compressible_bytes(2 * S, 7), Bytes(S + 5, 'a')}) {
        std::vector<Bytes> segs;
        for (size_t at = 0; at < in.size(); at += S) segs.push_back(encode(in.data() + at, std::min(S, in.size() - at)));
        Bytes joined;
        ASSERT_TRUE(zem::stream::lzo_join_segments(segs, joined));
        const Bytes one = encode(in.data(), in.size());
        ASSERT_EQ(joined, one);
        Bytes back(in.size());
        lzo_uint n = back.size();
        ASSERT_EQ(lzo1x_decompress_safe(joined.data(), joined.size(), back.data(), &n, nullptr), LZO_E_OK);
        ASSERT_EQ(back, in);
    }
}

}  // namespace
