// LZ4 block encoders: every block decodes with liblz4 (with and without a dictionary); outputs at
// guard pages; the bounded encoders at every capacity; table sizes, clamping and argument order.
#include <gtest/gtest.h>
#include <lz4.h>

#include <vector>

#include "test_util.h"
#include "zemdc.h"

namespace {

using Bytes = std::vector<uint8_t>;

size_t bound(size_t n) { return ZEM_LZ4_BOUND(n); }

// Decodes with liblz4 and expects exactly `want`.
void expect_decodes(const uint8_t* blk, size_t n, const Bytes& want, const Bytes* dict = nullptr) {
    Bytes out(want.size() + 1);
    int got = dict ? LZ4_decompress_safe_usingDict((const char*)blk, (char*)out.data(), (int)n, (int)out.size(),
                                                   (const char*)dict->data(), (int)dict->size())
                   : LZ4_decompress_safe((const char*)blk, (char*)out.data(), (int)n, (int)out.size());
    ASSERT_EQ(got, (int)want.size());
    if (!want.empty()) ASSERT_EQ(0, memcmp(out.data(), want.data(), want.size()));
}

// A bounded encoder that stopped early: the block of the prefix decodes with both decoders.
void expect_prefix_decodes(const uint8_t* blk, size_t n, zemStatus st, const Bytes& want,
                           const Bytes* dict = nullptr) {
    if (st == zemStatusOk) return expect_decodes(blk, n, want, dict);
    ASSERT_EQ(st, zemStatusDstTooSmall);
    const int32_t dl = dict ? (int32_t)dict->size() : 0;
    Bytes out(dl + want.size() + 1);
    int32_t consumed = (int32_t)n, produced = (int32_t)want.size() + 1;
    // A lone token (capacity 1) is the decoder's one-byte case: short, with nothing consumed.
    const zemStatus expect = n == 1 ? zemStatusSrcTooShort : zemStatusOk;
    ASSERT_EQ(zemsDecodeLZ4Dict_8u(blk, &consumed, out.data(), dl, &produced, dict ? dict->data() : nullptr, dl),
              expect);
    ASSERT_EQ(consumed, n == 1 ? 0 : (int32_t)n);
    ASSERT_EQ(produced, (int32_t)want.size());
    if (!want.empty()) ASSERT_EQ(0, memcmp(out.data() + dl, want.data(), want.size()));
    if (n > 1) expect_decodes(blk, n, want, dict);
}

std::vector<Bytes> inputs() {
    std::vector<Bytes> v;
    for (size_t n : {1, 2, 12, 44, 45, 46, 47, 100, 4000, 65535, 65536, 300000})
        v.push_back(zt::compressible_bytes(n, n * 3 + 1));
    v.push_back(zt::random_bytes(65536, 5));
    v.push_back(zt::random_bytes(1000, 6));
    v.push_back(Bytes(200000, 0));
    Bytes mixed = zt::random_bytes(70000, 9);  // far repeats: beyond 64 KiB some are out of reach
    mixed.insert(mixed.end(), mixed.begin(), mixed.begin() + 70000);
    v.push_back(mixed);
    // A long literal run, then one match just before the last probed position: the block is
    // as close to the worst-case bound as a block with a match gets.
    for (size_t n : {3000, 70000}) {
        Bytes late = zt::random_bytes(n, n);
        late.insert(late.end(), late.begin(), late.begin() + 60);
        Bytes tail = zt::random_bytes(44, 1);
        late.insert(late.end(), tail.begin(), tail.end());
        v.push_back(late);
    }
    return v;
}

TEST(Lz4Encode, EveryEncoderDecodesWithLiblzAtAGuardPage) {
    Bytes table(16384);
    for (const Bytes& data : inputs()) {
        const int32_t n = (int32_t)data.size();
        // Input and output both end at a guard page.
        zt::GuardedBuffer in(data.size());
        in.assign(data.data(), data.size());
        const uint8_t* const s = in.data();
        const Bytes& src = data;
        zt::GuardedBuffer out(bound(src.size()));
        int32_t written = -1;
        ASSERT_EQ(zemsEncodeLZ4_8u(s, n, out.data(), &written, table.data()), 0);
        expect_decodes(out.data(), (size_t)written, src);
        Bytes dflt(out.data(), out.data() + written);

        for (int accel : {1, 2, 8, 100, INT32_MAX}) {
            ASSERT_EQ(zemsEncodeLZ4Fast_8u(s, n, out.data(), &written, table.data(), accel), 0);
            expect_decodes(out.data(), (size_t)written, src);
            if (accel == 1) {
                ASSERT_EQ(Bytes(out.data(), out.data() + written), dflt);
            }
        }

        int32_t consumed = n;
        written = (int32_t)out.size();
        ASSERT_EQ(zemsEncodeLZ4Safe_8u(s, &consumed, out.data(), &written, table.data()), 0);
        EXPECT_EQ(consumed, n);
        ASSERT_EQ(Bytes(out.data(), out.data() + written), dflt);  // the same search
    }
}

TEST(Lz4Encode, BlockShapes) {
    Bytes table(16384);
    Bytes out(bound(70000));
    int32_t written;
    // One byte: the literals-only token and the byte.
    uint8_t one = 'x';
    ASSERT_EQ(zemsEncodeLZ4_8u(&one, 1, out.data(), &written, table.data()), 0);
    ASSERT_EQ(written, 2);
    EXPECT_EQ(out[0], 0x10);
    EXPECT_EQ(out[1], 'x');
    // 45 bytes of a run stay literals; 46 find the run.
    Bytes run(46, 'a');
    ASSERT_EQ(zemsEncodeLZ4_8u(run.data(), 45, out.data(), &written, table.data()), 0);
    EXPECT_EQ(written, 1 + 1 + 45);
    ASSERT_EQ(zemsEncodeLZ4_8u(run.data(), 46, out.data(), &written, table.data()), 0);
    EXPECT_LT(written, 46);
    // The accelerated search also leaves 45 bytes as literals.
    ASSERT_EQ(zemsEncodeLZ4Fast_8u(run.data(), 45, out.data(), &written, table.data(), 4), 0);
    EXPECT_EQ(written, 1 + 1 + 45);
    // Incompressible 64 KiB: one literal run with its extension bytes.
    Bytes rnd = zt::random_bytes(65536, 1);
    ASSERT_EQ(zemsEncodeLZ4_8u(rnd.data(), 65536, out.data(), &written, table.data()), 0);
    EXPECT_EQ(written, 1 + (65536 - 15) / 255 + 1 + 65536);
    EXPECT_EQ(out[0], 0xF0);
    // The last five bytes are always literals, even inside a long run.
    Bytes zeros(1000, 0);
    ASSERT_EQ(zemsEncodeLZ4_8u(zeros.data(), 1000, out.data(), &written, table.data()), 0);
    EXPECT_EQ(out[written - 6], 0x50);
}

TEST(Lz4Encode, CompressesLikeItsPeer) {
    // A coarse guard on the search: within 3% of liblz4's default on mixed data.
    Bytes table(16384);
    Bytes src = zt::compressible_bytes(1 << 20, 42);
    Bytes out(bound(src.size()));
    int32_t ours;
    ASSERT_EQ(zemsEncodeLZ4_8u(src.data(), (int32_t)src.size(), out.data(), &ours, table.data()), 0);
    int theirs = LZ4_compress_default((const char*)src.data(), (char*)out.data(), (int)src.size(), (int)out.size());
    EXPECT_LT(ours, theirs * 1.03);
}

TEST(Lz4Encode, SafeAtEveryCapacity) {
    Bytes table(16384);
    std::vector<Bytes> srcs = {zt::compressible_bytes(700, 1), zt::random_bytes(300, 2), Bytes(400, 'r')};
    for (const Bytes& src : srcs) {
        const int32_t n = (int32_t)src.size();
        for (size_t cap = 1; cap <= bound(src.size()); ++cap) {
            zt::GuardedBuffer out(cap);
            int32_t consumed = n, written = (int32_t)cap;
            zemStatus st = zemsEncodeLZ4Safe_8u(src.data(), &consumed, out.data(), &written, table.data());
            ASSERT_TRUE(st == 0 || st == 33);
            ASSERT_EQ(st == 0, consumed == n);
            ASSERT_LE(written, (int32_t)cap);
            expect_prefix_decodes(out.data(), (size_t)written, st, Bytes(src.begin(), src.begin() + consumed));
            if (cap == 1) {
                EXPECT_EQ(st, 33);
                EXPECT_EQ(consumed, 0);
                EXPECT_EQ(out.data()[0], 0);
            }
        }
    }
}

TEST(Lz4Encode, HashTableAndArgumentOrder) {
    int32_t size = 0;
    EXPECT_EQ(zemsEncodeLZ4HashTableGetSize_8u(nullptr), zemStatusNullPtr);
    ASSERT_EQ(zemsEncodeLZ4HashTableGetSize_8u(&size), 0);
    EXPECT_EQ(size, 16384);

    Bytes table(16384, 0xAA);
    EXPECT_EQ(zemsEncodeLZ4HashTableInit_8u(nullptr, 10), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeLZ4HashTableInit_8u(table.data(), 0), zemStatusSize);
    ASSERT_EQ(zemsEncodeLZ4HashTableInit_8u(table.data(), 65535), 0);
    EXPECT_EQ(table[8191], 0);
    EXPECT_EQ(table[8192], 0xAA);
    ASSERT_EQ(zemsEncodeLZ4HashTableInit_8u(table.data(), 65536), 0);
    EXPECT_EQ(table[16383], 0);

    uint8_t src[4] = {1, 2, 3, 4}, dst[64];
    int32_t len = 4, cap = 64;
    // The default encoder clears the table before it looks at the other pointers.
    memset(table.data(), 0xAA, table.size());
    EXPECT_EQ(zemsEncodeLZ4_8u(nullptr, 4, dst, &cap, table.data()), zemStatusNullPtr);
    EXPECT_EQ(table[0], 0);
    EXPECT_EQ(zemsEncodeLZ4_8u(src, 4, dst, &cap, nullptr), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeLZ4_8u(src, 0, dst, &cap, table.data()), zemStatusSize);
    EXPECT_EQ(zemsEncodeLZ4_8u(src, 0, nullptr, &cap, table.data()), zemStatusNullPtr);

    EXPECT_EQ(zemsEncodeLZ4Safe_8u(src, nullptr, dst, &cap, table.data()), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeLZ4Safe_8u(src, &len, dst, &cap, nullptr), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeLZ4Safe_8u(src, &len, dst, nullptr, table.data()), zemStatusNullPtr);
    cap = 0;
    EXPECT_EQ(zemsEncodeLZ4Safe_8u(src, &len, dst, &cap, table.data()), zemStatusSize);
    EXPECT_EQ(len, 4);

    cap = 64;
    EXPECT_EQ(zemsEncodeLZ4Fast_8u(src, 4, dst, &cap, table.data(), 0), zemStatusBadMode);
    EXPECT_EQ(zemsEncodeLZ4Fast_8u(src, 0, dst, &cap, table.data(), 0), zemStatusSize);
    EXPECT_EQ(zemsEncodeLZ4Fast_8u(src, 0, dst, &cap, nullptr, 0), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeLZ4Fast_8u(src, 4, dst, &cap, table.data(), -5), zemStatusBadMode);
}

// ---- dictionary encoders ----

TEST(Lz4EncodeDict, ConsecutiveBlocksReachIntoEarlierOnes) {
    Bytes table(16384);
    Bytes data = zt::compressible_bytes(50000, 5);
    Bytes tail = data;
    data.insert(data.end(), tail.begin(), tail.begin() + 30000);  // the second block repeats the first
    const int32_t first = 50000, second = 30000;
    Bytes out(bound(second));
    int32_t w1, w2;
    ASSERT_EQ(zemsEncodeLZ4Dict_8u(data.data(), 0, first, out.data(), &w1, table.data(), nullptr, 0), 0);
    expect_decodes(out.data(), (size_t)w1, Bytes(data.begin(), data.begin() + first));
    ASSERT_EQ(zemsEncodeLZ4Dict_8u(data.data() + first, first, second, out.data(), &w2, table.data(), nullptr, 0), 0);
    EXPECT_LT(w2, second / 20);  // almost all of it refers back
    Bytes hist(data.begin(), data.begin() + first);
    expect_decodes(out.data(), (size_t)w2, Bytes(data.begin() + first, data.end()), &hist);

    // The same with the bounded form, at every capacity of a short block.
    const int32_t third = 500;
    for (int32_t cap = 1; cap <= (int32_t)bound(third); cap += 3) {
        zt::GuardedBuffer g((size_t)cap);
        int32_t consumed = third, written = cap;
        zemStatus st = zemsEncodeLZ4DictSafe_8u(data.data() + first, first, &consumed, g.data(), &written,
                                               table.data(), nullptr, 0);
        ASSERT_TRUE(st == 0 || st == 33);
        ASSERT_EQ(st == 0, consumed == third);
        expect_prefix_decodes(g.data(), (size_t)written, st,
                              Bytes(data.begin() + first, data.begin() + first + consumed), &hist);
    }
}

TEST(Lz4EncodeDict, SeparateDictionaryBothDecoders) {
    Bytes table(16384);
    Bytes dict = zt::compressible_bytes(40000, 11);
    for (size_t n : {30, 2000, 100000}) {
        Bytes src(dict.begin() + 1000, dict.begin() + 1000 + (long)std::min<size_t>(n, 30000));
        Bytes more = zt::compressible_bytes(n - src.size() + 1, n);
        src.insert(src.end(), more.begin(), more.end() - 1);
        const int32_t dl = (int32_t)dict.size();
        ASSERT_EQ(zemsEncodeLZ4DictHashTableInit_8u(table.data(), 1), 0);
        ASSERT_EQ(zemsEncodeLZ4LoadDict_8u(table.data(), dict.data(), dl), 0);
        zt::GuardedBuffer out(bound(n));
        int32_t w;
        ASSERT_EQ(zemsEncodeLZ4Dict_8u(src.data(), dl, (int32_t)n, out.data(), &w, table.data(), dict.data(), dl), 0);
        expect_decodes(out.data(), (size_t)w, src, &dict);
        if (n >= 2000) {
            EXPECT_LT((size_t)w, n / 3);
        }

        Bytes dec(dict.size() + n);
        int32_t consumed = w, produced = (int32_t)n;
        ASSERT_EQ(zemsDecodeLZ4Dict_8u(out.data(), &consumed, dec.data(), dl, &produced, dict.data(), dl), 0);
        ASSERT_EQ(produced, (int32_t)n);
        ASSERT_EQ(0, memcmp(dec.data() + dl, src.data(), n));

        // Bounded, with a table left by the call before.
        for (int32_t cap : {1, 7, 40, 300, (int32_t)bound(n)}) {
            zt::GuardedBuffer g((size_t)cap);
            int32_t c = (int32_t)n, wr = cap;
            zemStatus st = zemsEncodeLZ4DictSafe_8u(src.data(), dl, &c, g.data(), &wr, table.data(), dict.data(), dl);
            ASSERT_TRUE(st == 0 || st == 33);
            ASSERT_EQ(st == 0, c == (int32_t)n);
            expect_prefix_decodes(g.data(), (size_t)wr, st, Bytes(src.begin(), src.begin() + c), &dict);
        }
    }
}

TEST(Lz4EncodeDict, TablesOfEarlierStreamsAreClamped) {
    Bytes table(16384);
    Bytes big = zt::compressible_bytes(200000, 3);
    Bytes out(bound(big.size()));
    int32_t w;
    ASSERT_EQ(zemsEncodeLZ4Dict_8u(big.data(), 0, (int32_t)big.size(), out.data(), &w, table.data(), nullptr, 0), 0);
    const uint32_t* t = (const uint32_t*)table.data();
    uint32_t hi = 0;
    for (int i = 0; i < 4096; ++i) hi = std::max(hi, t[i]);
    ASSERT_GT(hi, 100000u);

    // A new stream with 1000 bytes of history: no entry may point at or past its input.
    Bytes again = table;
    Bytes src = zt::compressible_bytes(3000, 4);
    ASSERT_EQ(zemsEncodeLZ4Dict_8u(src.data() + 1000, 1000, 40, out.data(), &w, table.data(), nullptr, 0), 0);
    for (int i = 0; i < 4096; ++i) ASSERT_LE(t[i], 999u);  // 40 bytes: nothing probed, only clamped
    expect_decodes(out.data(), (size_t)w, Bytes(src.begin() + 1000, src.begin() + 1040));

    // The bounded form clamps one higher.
    table = again;
    int32_t len = 40, cap = 100;
    ASSERT_EQ(zemsEncodeLZ4DictSafe_8u(src.data() + 1000, 1000, &len, out.data(), &cap, table.data(), nullptr, 0), 0);
    uint32_t top = 0;
    for (int i = 0; i < 4096; ++i) top = std::max(top, t[i]);
    EXPECT_EQ(top, 1000u);

    // And a long block after the clamp still decodes.
    ASSERT_EQ(zemsEncodeLZ4Dict_8u(src.data() + 1000, 1000, 2000, out.data(), &w, table.data(), nullptr, 0), 0);
    Bytes hist(src.begin(), src.begin() + 1000);
    expect_decodes(out.data(), (size_t)w, Bytes(src.begin() + 1000, src.end()), &hist);
}

TEST(Lz4EncodeDict, LoadAndArguments) {
    Bytes table(16384, 0x77);
    uint8_t d[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    ASSERT_EQ(zemsEncodeLZ4LoadDict_8u(table.data(), d, 8), 0);
    EXPECT_EQ(table, Bytes(16384, 0x77));  // too short to load anything
    EXPECT_EQ(zemsEncodeLZ4LoadDict_8u(nullptr, d, 8), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeLZ4LoadDict_8u(table.data(), nullptr, 8), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeLZ4LoadDict_8u(table.data(), d, 0), zemStatusSize);
    EXPECT_EQ(zemsEncodeLZ4DictHashTableInit_8u(nullptr, 1), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeLZ4DictHashTableInit_8u(table.data(), 0), zemStatusSize);
    ASSERT_EQ(zemsEncodeLZ4DictHashTableInit_8u(table.data(), 1), 0);
    EXPECT_EQ(table, Bytes(16384, 0));

    uint8_t out[64];
    int32_t w, len = 16;
    EXPECT_EQ(zemsEncodeLZ4Dict_8u(d, 0, 16, out, &w, nullptr, nullptr, 0), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeLZ4Dict_8u(d, -1, 16, out, &w, table.data(), d, 16), zemStatusBadArg);
    EXPECT_EQ(zemsEncodeLZ4Dict_8u(d, 16, 16, out, &w, table.data(), d, -1), zemStatusSize);
    EXPECT_EQ(zemsEncodeLZ4Dict_8u(d, 16, 0, out, &w, table.data(), d, 16), zemStatusSize);
    EXPECT_EQ(zemsEncodeLZ4Dict_8u(nullptr, 16, 16, out, &w, table.data(), d, 16), zemStatusNullPtr);
    w = 64;
    EXPECT_EQ(zemsEncodeLZ4DictSafe_8u(d, 16, nullptr, out, &w, table.data(), d, 16), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeLZ4DictSafe_8u(d, -1, &len, out, &w, table.data(), d, 16), zemStatusBadArg);
    EXPECT_EQ(len, 16);
}

}  // namespace
