// LZ4 block encoders: the default search is a plain model's, every block decodes with liblz4 and
// ours (with and without a dictionary); outputs at guard pages; the bounded encoders at every
// capacity; table sizes, clamping and argument order.
#include <immintrin.h>

#include "test_util.h"

namespace {

size_t bound(size_t n) { return ZEM_LZ4_BOUND(n); }

// The bounded dictionary encoder at capacity `cap` (output at a guard page): 0 with all of the
// input, or 33 with a complete block of the consumed prefix, which both decoders read.
void check_bounded(const uint8_t* src, int32_t n, int32_t cap, uint8_t* table, int32_t idx = 0, const Bytes* dict = nullptr,
                   const Bytes* hist = nullptr) {
    zt::GuardedBuffer g((size_t)cap);
    const Bytes* dd = dict ? dict : hist;  // the history both decoders get
    int32_t consumed = n, written = cap;
    const int32_t dl = dict ? (int32_t)dict->size() : 0;
    zemStatus st = idx == 0 && !dict ? zemsEncodeLZ4Safe_8u(src, &consumed, g.data(), &written, table)
                                     : zemsEncodeLZ4DictSafe_8u(src, idx, &consumed, g.data(), &written, table,
                                                                dict ? dict->data() : nullptr, dl);
    ASSERT_TRUE(st == 0 || st == 33);
    ASSERT_EQ(st == 0, consumed == n);
    ASSERT_LE(written, cap);
    if (cap == 1) {  // a lone zero token, which our decoder calls short
        ASSERT_TRUE(st == 33 && written == 1 && consumed == 0 && g.data()[0] == 0);
        return;
    }
    zt::expect_lz4_block(g.data(), (size_t)written, Bytes(src, src + consumed), dd ? dd->data() : nullptr,
                         dd ? (int32_t)dd->size() : 0);
}

// The default search written plainly, one probe at a time: the CRC-32C hash of five bytes into
// 4096 entries of the last position, 64 (16 for short inputs) positions one by one and then a
// stride growing every 64 (16) probes, 48 after each match shorter than 64 bytes, matches
// extended to 5 bytes before the end and back over their literals. Whatever the encoder does
// to be fast, its blocks must be these bytes.
Bytes model_block(const Bytes& in) {
    const uint8_t* s = in.data();
    const size_t n = in.size();
    const bool wide = n >= 65536;
    std::vector<uint32_t> table(4096, 0);
    Bytes out;
    auto word = [&](size_t p) {
        uint32_t v;
        memcpy(&v, s + p, 4);
        return v;
    };
    size_t anchor = 0;
    if (n > 44) {
        const size_t probe_end = n - 44, limit = n - 5;
        size_t ip = 1, dense = wide ? 64 : 16, counter = dense;
        unsigned shift = wide ? 6 : 4;
        for (;;) {
            size_t q = 0;
            auto probe = [&](size_t p) {
                const uint32_t h = _mm_crc32_u32(s[p + 4], word(p)) & 4095;
                q = table[h];
                table[h] = uint32_t(p);
                return word(q) == word(p) && (!wide || p - q <= 65535);
            };
            bool found = false;
            for (const size_t end = std::min(ip + dense, probe_end); ip < end && !(found = probe(ip));) ++ip;
            if (!found && ip < probe_end) {
                while (!(found = probe(ip))) {
                    const size_t step = counter++ >> shift;
                    if (step >= probe_end - ip) break;
                    ip += step;
                }
            }
            if (!found) break;
            size_t len = 4;
            while (ip + len < limit && s[ip + len] == s[q + len]) ++len;
            const size_t resume = ip + len;
            for (; ip > anchor && q > 0 && s[ip - 1] == s[q - 1]; --ip, --q) ++len;
            zt::lz4_append(out, s + anchor, ip - anchor, int(ip - q), len);
            anchor = ip = resume;
            dense = len < 64 ? 48 : 0;
            counter = 128;
            shift = 6;
        }
    }
    zt::lz4_append(out, s + anchor, n - anchor);  // the closing literals
    return out;
}

TEST(Lz4Encode, DefaultSearchIsThePlainModelAndEveryEncoderDecodes) {
    Bytes table(16384);
    std::vector<Bytes> inputs = {zt::random_bytes(65536, 5), zt::random_bytes(70000, 3), Bytes(200000, 0),
                                 Bytes(45, 'a'), Bytes(46, 'a')};
    for (size_t n : {1, 12, 45, 46, 47, 100, 4000, 65535, 65536, 200000})
        inputs.push_back(zt::compressible_bytes(n, n + 7));
    Bytes runs(150000, 'x');  // long matches: no dense probes after them
    for (size_t i = 0; i < runs.size(); i += 997) runs[i] = uint8_t(i);
    inputs.push_back(runs);
    Bytes far = zt::random_bytes(66000, 4);  // repeats 66000 bytes back, out of an offset's reach
    inputs.push_back(zt::cat(far, Bytes(far.begin(), far.begin() + 40000)));
    // Random bytes that end where the stride lands: the position 44 bytes before the end
    // repeats the stride's previous position, and only a probe there would find it. Then the
    // same in the middle of a block, where a stride schedule off by one position misses it.
    for (size_t stop : {70000, 20000}) {
        size_t prev = 65, p = 65;
        for (size_t c = 64; p < stop; prev = p, p += c++ >> 6) {
        }
        Bytes edge = zt::random_bytes(stop == 70000 ? p + 44 : 100000, stop == 70000 ? 6 : 8);
        memcpy(edge.data() + p, edge.data() + prev, 8);
        inputs.push_back(edge);
    }
    // A long literal run, then one match just before the last probed position: the block is
    // as close to the worst-case bound as a block with a match gets.
    for (size_t n : {3000, 70000}) {
        Bytes late = zt::random_bytes(n, n);
        inputs.push_back(zt::cat(zt::cat(late, Bytes(late.begin(), late.begin() + 60)), zt::random_bytes(44, 1)));
    }
    for (const Bytes& src : inputs) {
        SCOPED_TRACE(src.size());
        const int32_t n = (int32_t)src.size();
        zt::GuardedBuffer in(src), out(bound(src.size()));
        int32_t written = -1, consumed = n;
        ASSERT_EQ(zemsEncodeLZ4_8u(in.data(), n, out.data(), &written, table.data()), 0);
        const Bytes dflt = out.bytes((size_t)written);
        ASSERT_TRUE(dflt == model_block(src));
        zt::expect_lz4_block(dflt.data(), dflt.size(), src);
        for (int accel : {1, 4, 8, INT32_MAX}) {
            ASSERT_EQ(zemsEncodeLZ4Fast_8u(in.data(), n, out.data(), &written, table.data(), accel), 0);
            zt::expect_lz4_block(out.data(), (size_t)written, src);
            if (accel == 1) ASSERT_EQ(out.bytes((size_t)written), dflt);
        }
        written = (int32_t)out.size();
        ASSERT_EQ(zemsEncodeLZ4Safe_8u(in.data(), &consumed, out.data(), &written, table.data()), 0);
        EXPECT_EQ(consumed, n);
        ASSERT_EQ(out.bytes((size_t)written), dflt);  // the same search
    }
}

TEST(Lz4Encode, SafeAtEveryCapacity) {
    Bytes table(16384);
    for (const Bytes& src : {zt::compressible_bytes(700, 1), zt::random_bytes(300, 2), Bytes(400, 'r')})
        for (size_t cap = 1; cap <= bound(src.size()); ++cap) check_bounded(src.data(), (int32_t)src.size(), (int32_t)cap, table.data());
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

// Consecutive blocks of one buffer with the history in place, then a separate dictionary
// loaded into the table; each also bounded, with the table left by the call before.
TEST(Lz4EncodeDict, HistoryInPlaceAndSeparateDictionary) {
    Bytes table(16384), data = zt::compressible_bytes(50000, 5);
    data.insert(data.end(), data.begin(), data.begin() + 30000);  // the second block repeats the first
    const Bytes hist(data.begin(), data.begin() + 50000), second(data.begin() + 50000, data.end());
    Bytes out(bound(100000));
    int32_t w;
    ASSERT_EQ(zemsEncodeLZ4Dict_8u(data.data(), 0, 50000, out.data(), &w, table.data(), nullptr, 0), 0);
    zt::expect_lz4_block(out.data(), (size_t)w, hist);
    ASSERT_EQ(zemsEncodeLZ4Dict_8u(data.data() + 50000, 50000, 30000, out.data(), &w, table.data(), nullptr, 0), 0);
    EXPECT_LT(w, 30000 / 20);  // almost all of it refers back
    zt::expect_lz4_block(out.data(), (size_t)w, second, hist.data(), (int32_t)hist.size());
    for (int32_t cap = 1; cap <= (int32_t)bound(500); cap += 3)
        check_bounded(data.data() + 50000, 500, cap, table.data(), 50000, nullptr, &hist);

    const Bytes dict = zt::compressible_bytes(40000, 11);
    const int32_t dl = (int32_t)dict.size();
    for (size_t n : {30, 2000, 100000}) {
        const Bytes src = zt::cat(Bytes(dict.begin() + 1000, dict.begin() + 1000 + (long)std::min<size_t>(n, 30000)),
                                  zt::compressible_bytes(n - std::min<size_t>(n, 30000), n));
        ASSERT_EQ(zemsEncodeLZ4DictHashTableInit_8u(table.data(), 1), 0);
        ASSERT_EQ(zemsEncodeLZ4LoadDict_8u(table.data(), dict.data(), dl), 0);
        ASSERT_EQ(zemsEncodeLZ4Dict_8u(src.data(), dl, (int32_t)n, out.data(), &w, table.data(), dict.data(), dl), 0);
        zt::expect_lz4_block(out.data(), (size_t)w, src, dict.data(), dl);
        if (n >= 2000) EXPECT_LT((size_t)w, n / 3);
        for (int32_t cap : {1, 7, 40, 300, (int32_t)bound(n)}) check_bounded(src.data(), (int32_t)n, cap, table.data(), dl, &dict);
    }
}

TEST(Lz4EncodeDict, TablesOfEarlierStreamsAreClamped) {
    Bytes table(16384), big = zt::compressible_bytes(200000, 3), src = zt::compressible_bytes(3000, 4);
    Bytes out(bound(big.size()));
    const uint32_t* t = (const uint32_t*)table.data();
    auto top = [&] { return *std::max_element(t, t + 4096); };
    int32_t w, len = 40, cap = 100;
    ASSERT_EQ(zemsEncodeLZ4Dict_8u(big.data(), 0, (int32_t)big.size(), out.data(), &w, table.data(), nullptr, 0), 0);
    ASSERT_GT(top(), 100000u);
    // A new stream with 1000 bytes of history: no entry may point at or past its input (40
    // bytes: nothing probed, only clamped); the bounded form clamps one higher.
    const Bytes again = table;
    ASSERT_EQ(zemsEncodeLZ4Dict_8u(src.data() + 1000, 1000, 40, out.data(), &w, table.data(), nullptr, 0), 0);
    EXPECT_EQ(top(), 999u);
    zt::expect_lz4_block(out.data(), (size_t)w, Bytes(src.begin() + 1000, src.begin() + 1040));
    table = again;
    ASSERT_EQ(zemsEncodeLZ4DictSafe_8u(src.data() + 1000, 1000, &len, out.data(), &cap, table.data(), nullptr, 0), 0);
    EXPECT_EQ(top(), 1000u);
    // And a long block after the clamp still decodes.
    ASSERT_EQ(zemsEncodeLZ4Dict_8u(src.data() + 1000, 1000, 2000, out.data(), &w, table.data(), nullptr, 0), 0);
    const Bytes hist(src.begin(), src.begin() + 1000);
    zt::expect_lz4_block(out.data(), (size_t)w, Bytes(src.begin() + 1000, src.end()), hist.data(), 1000);
}

TEST(Lz4EncodeDict, LoadAndArguments) {
    Bytes table(16384, 0x77);
    uint8_t d[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}, out[64];
    ASSERT_EQ(zemsEncodeLZ4LoadDict_8u(table.data(), d, 8), 0);
    EXPECT_EQ(table, Bytes(16384, 0x77));  // too short to load anything
    EXPECT_EQ(zemsEncodeLZ4LoadDict_8u(nullptr, d, 8), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeLZ4LoadDict_8u(table.data(), nullptr, 8), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeLZ4LoadDict_8u(table.data(), d, 0), zemStatusSize);
    EXPECT_EQ(zemsEncodeLZ4DictHashTableInit_8u(nullptr, 1), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeLZ4DictHashTableInit_8u(table.data(), 0), zemStatusSize);
    ASSERT_EQ(zemsEncodeLZ4DictHashTableInit_8u(table.data(), 1), 0);
    EXPECT_EQ(table, Bytes(16384, 0));
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
