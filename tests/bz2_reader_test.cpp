// The .bz2 reader against libbz2 and the bzip2 tool: every level, data of every kind and sizes
// around the block boundaries, one-shot and in random small pieces; malformed, truncated and
// corrupted files give a clear result and never an access outside the buffers.
#include "bz2_reader.h"
#include "test_util.h"

namespace {

using zem::stream::Bz2Result;

// One-shot into a buffer of exactly the right size that ends at a guard page.
Bz2Result one_shot(const Bytes& bz, Bytes& got, size_t cap) {
    zt::GuardedBuffer src(bz), dst(cap);
    size_t n = 0, used = 0;
    Bz2Result r = zem::stream::bz2_decompress(src.data(), bz.size(), dst.data(), cap, &n, &used);
    got.assign(dst.data(), dst.data() + n);
    if (r == Bz2Result::End) EXPECT_EQ(used, bz.size());
    return r;
}

// Random pieces of input and output, each piece in its own guarded buffer.
Bz2Result pieces(const Bytes& bz, Bytes& got, uint64_t seed, uint32_t max_in, uint32_t max_out) {
    zem::stream::Bz2Reader r;
    zt::Rng rng(seed);
    got.clear();
    size_t pos = 0;
    Bz2Result res = Bz2Result::Ok;
    int ends = 0;
    for (int idle = 0; idle < 4;) {
        size_t n = std::min<size_t>(bz.size() - pos, 1 + rng.below(max_in));
        zt::GuardedBuffer src(n ? n : 1);
        src.assign(bz.data() + pos, n);
        const uint8_t* p = src.data();
        size_t left = n;
        size_t room = 1 + rng.below(max_out);
        zt::GuardedBuffer dst(room);
        uint8_t* o = dst.data();
        res = r.run(p, left, o, room);
        got.insert(got.end(), dst.data(), o);
        pos += n - left;
        if (res == Bz2Result::End) ++ends;
        if (res != Bz2Result::Ok && res != Bz2Result::End) return res;
        idle = (n == 0 && o == dst.data()) ? idle + 1 : 0;
    }
    return ends ? Bz2Result::End : Bz2Result::Truncated;
}

std::vector<std::pair<std::string, Bytes>> corpus() {
    std::vector<std::pair<std::string, Bytes>> v;
    v.emplace_back("text", zt::text_like(250000, 7));
    zt::Rng r(7);
    Bytes rec;
    for (uint32_t i = 0; rec.size() < 150000; ++i) {
        uint32_t f[4] = {i, i * 7 % 1000, 0x01020304, uint32_t(r.below(50))};
        rec.insert(rec.end(), (uint8_t*)f, (uint8_t*)f + 16);
    }
    v.emplace_back("records", rec);
    v.emplace_back("binary", zt::compressible_bytes(200000, 3));
    v.emplace_back("one byte", Bytes(300000, 'x'));
    v.emplace_back("random", zt::random_bytes(120000, 5));
    v.emplace_back("single", Bytes(1, 'q'));
    v.emplace_back("two", Bytes{0, 255});
    // Sizes around the smallest block size; the run-length stage fills blocks by its output, so
    // random bytes (no runs) hit the boundary exactly.
    for (size_t n : {99980u, 99981u, 100000u, 100001u, 200000u})
        v.emplace_back("random " + std::to_string(n), zt::random_bytes(n, n));
    return v;
}

}  // namespace

TEST(Bz2Reader, DecodesEveryLevelOfLibbz2) {
    for (auto& [name, data] : corpus())
        for (int level : {1, 2, 5, 9}) {
            Bytes bz = zt::libbz2_compress(data, level), got;
            ASSERT_EQ(one_shot(bz, got, data.size()), Bz2Result::End) << name << " " << level;
            ASSERT_EQ(got, data) << name << " " << level;
            ASSERT_EQ(pieces(bz, got, level, 3000, 70000), Bz2Result::End) << name << " " << level;
            ASSERT_EQ(got, data) << name << " " << level;
        }
}

TEST(Bz2Reader, StreamsOneAfterAnotherAndTheBzip2Tool) {
    const Bytes a = zt::compressible_bytes(150000, 1), b(5000, 'b'), both = zt::cat(a, b);
    const Bytes file = zt::cat(zt::libbz2_compress(a, 1), zt::libbz2_compress(b, 9));
    Bytes got;
    ASSERT_EQ(one_shot(file, got, both.size()), Bz2Result::End);
    EXPECT_EQ(got, both);
    ASSERT_EQ(pieces(file, got, 3, 50, 900), Bz2Result::End);
    EXPECT_EQ(got, both);
    // One byte short of room: the output is full, the file not done.
    EXPECT_EQ(one_shot(file, got, both.size() - 1), Bz2Result::DstTooSmall);

    // The reference tool reads the same file to the same bytes.
    EXPECT_EQ(zt::tool_output("bzip2 -dc", file), both);
}

TEST(Bz2Reader, MalformedTruncatedAndCorruptFiles) {
    Bytes data = zt::compressible_bytes(30000, 9), bz = zt::libbz2_compress(data, 1), got;
    // Every cut of the file: never a complete result, never an access outside the buffers.
    for (size_t cut = 0; cut < bz.size(); cut += cut < 200 ? 1 : 61) {
        Bytes part(bz.begin(), bz.begin() + cut);
        Bz2Result r = one_shot(part, got, data.size());
        ASSERT_TRUE(r == Bz2Result::Truncated || r == Bz2Result::BadData) << cut;
    }
    // Flipped bits anywhere: a CRC or a structure catches them.
    zt::Rng rng(4);
    for (int i = 0; i < 300; ++i) {
        Bytes bad = bz;
        bad[4 + rng.below(uint32_t(bad.size() - 4))] ^= uint8_t(1 << rng.below(8));
        Bz2Result r = one_shot(bad, got, data.size());
        ASSERT_TRUE(r == Bz2Result::BadData || r == Bz2Result::Unsupported || r == Bz2Result::Truncated ||
                    r == Bz2Result::DstTooSmall || (r == Bz2Result::End && got == data))
            << i;
    }
    // Random bytes behind a valid stream header and block magic.
    for (uint64_t seed = 1; seed <= 200; ++seed) {
        Bytes junk = zt::random_bytes(20 + seed * 13, seed);
        const uint8_t head[] = {'B', 'Z', 'h', '9', 0x31, 0x41, 0x59, 0x26, 0x53, 0x59};
        std::copy(head, head + 10, junk.begin());
        Bz2Result r = one_shot(junk, got, 1000);
        ASSERT_TRUE(r != Bz2Result::End && r != Bz2Result::Ok) << seed;
    }
    // The randomised flag (the bit after the block CRC) is refused clearly.
    Bytes rnd = bz;
    rnd[14] |= 0x80;
    EXPECT_EQ(one_shot(rnd, got, data.size()), Bz2Result::Unsupported);
    EXPECT_EQ(one_shot({'B', 'Z', 'h', '0'}, got, 10), Bz2Result::BadData);
}
