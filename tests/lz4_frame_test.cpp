// The LZ4 frame layer: our frames through liblz4's frame decoder and liblz4's frames through
// ours, for every block size, link mode and checksum option; input and output in odd pieces;
// damaged and cut frames.
#include "lz4_frame.h"
#include "test_util.h"

using namespace zem::stream;

namespace {

// Runs the writer with input and output handed over in pieces of up to `piece` bytes.
Bytes write_frame(const Lz4FrameOptions& opt, const Bytes& data, size_t piece) {
    Lz4FrameWriter w(opt);
    Bytes out(Lz4FrameWriter::bound(opt, data.size()));
    uint8_t* q = out.data();
    const uint8_t* p = data.data();
    size_t left = data.size();
    while (left) {
        size_t n = left < piece ? left : piece, room = piece;
        w.write(p, n, q, room);
        left -= (left < piece ? left : piece) - n;
    }
    for (Lz4FrameResult r = Lz4FrameResult::Ok; r == Lz4FrameResult::Ok;) {
        size_t room = piece;
        r = w.finish(q, room);
        EXPECT_NE(r, Lz4FrameResult::BadData);
        if (r == Lz4FrameResult::BadData) break;
    }
    EXPECT_LE(size_t(q - out.data()), out.size());
    out.resize(size_t(q - out.data()));
    return out;
}

struct ReadResult {
    Lz4FrameResult last;
    bool clean_end;
    Bytes data;
};

ReadResult read_frames(const Bytes& frame, size_t piece) {
    Lz4FrameReader r;
    ReadResult res{Lz4FrameResult::Ok, false, {}};
    uint8_t buf[4096];
    const uint8_t* p = frame.data();
    size_t left = frame.size();
    for (int stall = 0; stall < 3;) {
        size_t n = left < piece ? left : piece, give = n, room = piece < sizeof buf ? piece : sizeof buf;
        uint8_t* q = buf;
        res.last = r.run(p, n, q, room);
        left -= give - n;
        res.data.insert(res.data.end(), buf, q);
        if (res.last != Lz4FrameResult::Ok && res.last != Lz4FrameResult::End) break;
        stall = (give == n && q == buf) ? stall + 1 : 0;
        if (res.last == Lz4FrameResult::End && !left) break;
    }
    res.clean_end = res.last == Lz4FrameResult::End && r.at_boundary() && !left;
    return res;
}

}  // namespace

TEST(Xxh32, KnownValuesAndAnySplit) {
    EXPECT_EQ(xxh32("", 0, 0), 0x02CC5D05u);
    EXPECT_EQ(xxh32("abc", 3, 0), 0x32D153FFu);
    auto data = zt::random_bytes(1000, 7);
    uint32_t whole = xxh32(data.data(), data.size(), 0x9747b28c);
    zt::Rng rng(3);
    for (int round = 0; round < 20; ++round) {
        Xxh32 h(0x9747b28c);
        for (size_t pos = 0; pos < data.size();) {
            size_t n = 1 + rng.below(40);
            if (n > data.size() - pos) n = data.size() - pos;
            h.update(data.data() + pos, n);
            pos += n;
        }
        EXPECT_EQ(h.digest(), whole);
    }
}

TEST(Lz4Frame, OurFramesDecodeWithLiblz4AndOurs) {
    auto data = zt::compressible_bytes(700 * 1024, 11);
    const int64_t size = int64_t(data.size());
    // level, block size, linked, block checksum, content checksum, content size; the pieces
    const struct {
        Lz4FrameOptions opt;
        size_t piece;
    } cases[] = {
        {{1, 64 << 10, false, false, true, -1}, 1 << 20},  {{1, 64 << 10, true, true, false, size}, 777},
        {{2, 256 << 10, true, false, true, -1}, 65536},    {{4, 64 << 10, true, true, true, size}, 5000},
        {{9, 1 << 20, false, false, false, -1}, 1 << 20},  {{6, 4u << 20, false, true, true, size}, 100000},
        {{6, 64 << 10, false, false, true, -1}, 33333},
    };
    for (const auto& c : cases) {
        const Lz4FrameOptions& opt = c.opt;
        SCOPED_TRACE(testing::Message() << "level " << opt.level << " block " << opt.block_size << " linked "
                                        << opt.linked);
        auto frame = write_frame(opt, data, c.piece);
        EXPECT_LT(frame.size(), data.size() / 2);
        EXPECT_EQ(zt::lz4f_decompress(frame.data(), frame.size(), data.size()), data);
        auto back = read_frames(frame, 3001);
        EXPECT_TRUE(back.clean_end);
        EXPECT_EQ(back.data, data);
    }
    // Random data is stored block by block; an empty input is a frame with no blocks.
    auto noise = zt::random_bytes(200000, 5);
    for (const auto& d : {noise, Bytes{}, Bytes{42}}) {
        const Lz4FrameOptions opt{.block_size = 64 << 10};
        auto frame = write_frame(opt, d, 1 << 20);
        EXPECT_LE(frame.size(), Lz4FrameWriter::bound(opt, d.size()));
        EXPECT_EQ(zt::lz4f_decompress(frame.data(), frame.size(), d.size()), d);
        EXPECT_EQ(read_frames(frame, 1 << 20).data, d);
    }
    // A declared size that the input does not match is refused at the end.
    Lz4FrameWriter w(Lz4FrameOptions{.content_size = 5});
    const uint8_t* p = data.data();
    size_t n = 4, room = 1000;
    Bytes out(1000);
    uint8_t* q = out.data();
    w.write(p, n, q, room);
    EXPECT_EQ(w.finish(q, room), Lz4FrameResult::BadData);
}

TEST(Lz4Frame, Liblz4FramesConcatenatedWithSkippableOnes) {
    auto a = zt::compressible_bytes(300000, 21), b = zt::compressible_bytes(90000, 22);
    Bytes stream = zt::lz4f_compress(a, LZ4F_max64KB, true, true, 9);
    const uint8_t skippable[] = {0x5A, 0x2A, 0x4D, 0x18, 3, 0, 0, 0, 'x', 'y', 'z'};
    stream.insert(stream.end(), skippable, skippable + sizeof skippable);
    stream = zt::cat(stream, zt::lz4f_compress(b, LZ4F_max256KB, false, false, 1));
    const Bytes expect = zt::cat(a, b);
    for (size_t piece : {size_t(1) << 20, size_t(4093), size_t(7)}) {
        auto got = read_frames(stream, piece);
        EXPECT_TRUE(got.clean_end);
        EXPECT_EQ(got.data, expect);
    }
}

TEST(Lz4Frame, DamagedAndCutFramesAreCaught) {
    auto data = zt::compressible_bytes(150000, 31);
    const Lz4FrameOptions opt{.block_size = 64 << 10, .linked = true, .block_checksum = true};
    auto frame = write_frame(opt, data, 1 << 20);
    // Every cut leaves the reader short of a frame's end.
    for (size_t cut = 0; cut < frame.size(); cut += 1 + cut / 3) {
        auto part = Bytes(frame.begin(), frame.begin() + long(cut));
        EXPECT_FALSE(read_frames(part, 1 << 20).clean_end) << cut;
    }
    // A flipped bit anywhere is caught by a check or the decoder, never decoded silently.
    zt::Rng rng(9);
    for (int i = 0; i < 300; ++i) {
        auto bad = frame;
        size_t pos = rng.below(uint32_t(bad.size()));
        bad[pos] ^= uint8_t(1u << rng.below(8));
        auto got = read_frames(bad, 1 << 16);
        EXPECT_FALSE(got.clean_end && got.data != data) << pos;
    }
    // Decoding into an output that ends at a guard page, from random bytes after a valid header.
    for (int i = 0; i < 200; ++i) {
        auto junk = Bytes(frame.begin(), frame.begin() + 7);
        auto tail = zt::random_bytes(64 + rng.below(5000), 100 + i);
        // Half of them with a plausible block size word, so the block decoder sees the junk.
        if (i % 2) tail[0] = uint8_t(tail.size() - 8), tail[1] = tail[2] = tail[3] = 0;
        junk.insert(junk.end(), tail.begin(), tail.end());
        zt::GuardedBuffer out(300);
        Lz4FrameReader r;
        const uint8_t* p = junk.data();
        size_t n = junk.size(), room = out.size();
        uint8_t* q = out.data();
        r.run(p, n, q, room);
        EXPECT_LE(size_t(q - out.data()), out.size());
    }
}
