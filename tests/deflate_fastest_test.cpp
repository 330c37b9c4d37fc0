// The single-pass path: Fastest with the fixed code and with codes from GetStat, in pieces and at
// guard pages, on garbage tables; PrecompHeader's whole streams; every stream through zlib.
#include <gtest/gtest.h>
#include <zlib.h>

#include <vector>

#include "test_util.h"
#include "zemdc.h"

using Bytes = std::vector<uint8_t>;

namespace {

constexpr uint32_t kWin = 32768, kHash = 32768;

// A non-null address for the input and window of empty inputs.
const uint8_t* base(const Bytes& in) {
    static const uint8_t none = 0;
    return in.empty() ? &none : in.data();
}

// Raw inflate with zlib; returns false on any error or a stream that does not end.
bool zlib_raw_inflate(const Bytes& comp, Bytes& out, size_t expect) {
    out.assign(expect + 1, 0);
    z_stream z{};
    if (inflateInit2(&z, -15) != Z_OK) return false;
    z.next_in = const_cast<uint8_t*>(comp.data());
    z.avail_in = uInt(comp.size());
    z.next_out = out.data();
    z.avail_out = uInt(out.size());
    const int r = inflate(&z, Z_FINISH);
    out.resize(z.total_out);
    inflateEnd(&z);
    return r == Z_STREAM_END;
}

// LSB-first bit assembly for the parts of a stream the tests write themselves.
struct Bits {
    Bytes out;
    uint64_t acc = 0;
    uint32_t n = 0;
    void put(uint32_t v, uint32_t k) {
        acc |= uint64_t(v) << n;
        n += k;
        while (n >= 8) out.push_back(uint8_t(acc)), acc >>= 8, n -= 8;
    }
    void append(const uint8_t* p, uint32_t len, uint16_t code, uint32_t bits) {
        for (uint32_t i = 0; i < len; ++i) put(p[i], 8);
        put(code, bits);
    }
    Bytes done() {
        if (n) out.push_back(uint8_t(acc));
        n = 0;
        return out;
    }
};

uint16_t reverse(uint32_t code, uint32_t len) {
    uint32_t r = 0;
    for (uint32_t i = 0; i < len; ++i) r |= ((code >> i) & 1) << (len - 1 - i);
    return uint16_t(r);
}

struct Codes {
    zemDeflateHuffCode lit[286], dist[30];
};

Codes fixed_codes() {
    Codes c{};
    for (uint32_t s = 0; s < 286; ++s) {
        const uint32_t len = s < 144 ? 8 : s < 256 ? 9 : s < 280 ? 7 : 8;
        const uint32_t code = s < 144 ? 0x30 + s : s < 256 ? 0x190 + s - 144 : s < 280 ? s - 256 : 0xC0 + s - 280;
        c.lit[s] = {reverse(code, len), uint16_t(len)};
    }
    for (uint32_t s = 0; s < 30; ++s) c.dist[s] = {reverse(s, 5), 5};
    return c;
}

// Codes from GetStat's counts of the parse over `in` with a copy of `head`.
Codes stat_codes(const Bytes& in, std::vector<uint32_t> head, bool plus_one = false) {
    uint32_t lit[286] = {}, dist[30] = {};
    const uint8_t* p = base(in);
    uint32_t len = uint32_t(in.size()), idx = 0;
    EXPECT_EQ(zemsDeflateLZ77FastestGetStat_8u(&p, &len, &idx, base(in), kWin, head.data(), kHash, lit, dist,
                                               zemDeflateFinish),
              zemStatusOk);
    EXPECT_EQ(len, 0u);
    lit[256] = 1;
    if (plus_one) {
        for (auto& v : lit) ++v;
        for (auto& v : dist) ++v;
    }
    Codes c{};
    EXPECT_EQ(zemsDeflateLZ77FastestGenHuffTable_8u(lit, dist, c.lit, c.dist), zemStatusOk);
    return c;
}

// One final block around Fastest's output: the fixed code's header, or GenHeader's.
Bytes one_block(const Bytes& in, const Codes& c, bool fixed, std::vector<uint32_t> head, uint32_t piece,
                uint32_t room, uint64_t seed) {
    Bits b;
    b.put(1, 1);
    if (fixed) {
        b.put(1, 2);
    } else {
        b.put(2, 2);
        uint8_t hdr[400];
        uint32_t hlen = sizeof hdr, hbits = 0;
        EXPECT_EQ(zemsDeflateLZ77FastestGenHeader_8u(c.lit, c.dist, hdr, &hlen, &hbits), zemStatusOk);
        for (uint32_t i = 0; i < hbits; ++i) b.put(hdr[i / 8] >> (i % 8) & 1, 1);
    }
    zt::Rng r(seed);
    const uint8_t* p = base(in);
    uint32_t left = uint32_t(in.size()), idx = 0;
    uint16_t code = uint16_t(b.acc);
    uint32_t nbits = b.n;
    b.acc = 0, b.n = 0;
    for (int guard = 0; guard < 1 << 22; ++guard) {
        const uint32_t give = piece ? std::min(left, 1 + r.below(piece)) : left;
        const int32_t flush = give == left ? zemDeflateFinish : zemDeflateNoFlush;
        const uint32_t cap = room ? 1 + r.below(room) : uint32_t(in.size() * 2 + 64);
        zt::GuardedBuffer out(cap);
        uint32_t n = give, dlen = cap;
        const zemStatus st = zemsDeflateLZ77Fastest_8u(&p, &n, &idx, base(in), kWin, head.data(), kHash, c.lit,
                                                       c.dist, out.data(), &dlen, &code, &nbits, flush);
        if (st != zemStatusOk && st != zemStatusDstTooSmall) {
            ADD_FAILURE() << "status " << st;
            break;
        }
        EXPECT_LT(nbits, 8u);
        b.out.insert(b.out.end(), out.data(), out.data() + dlen);
        left -= give - n;
        if (left == 0 && st == zemStatusOk) break;
    }
    b.put(code, nbits);
    b.put(c.lit[256].code, c.lit[256].len);
    return b.done();
}

std::vector<Bytes> inputs() {
    std::vector<Bytes> v;
    for (size_t n : {0, 1, 3, 4, 258, 262, 263, 32768, 65536, 200000}) v.push_back(zt::compressible_bytes(n, n + 1));
    v.push_back(zt::random_bytes(70000, 5));
    v.push_back(Bytes(100000, 'a'));
    Bytes text;
    const char* words[] = {"the ", "single ", "pass ", "writes ", "codes ", "at ", "once, ", "and "};
    zt::Rng r(9);
    while (text.size() < 150000)
        for (const char* c = words[r.below(8)]; *c; ++c) text.push_back(uint8_t(*c));
    v.push_back(text);
    return v;
}

}  // namespace

TEST(DeflateFastest, FixedAndCountedCodesDecodeWithZlib) {
    const std::vector<uint32_t> zeros(kHash, 0);
    const Codes fixed = fixed_codes();
    for (const Bytes& in : inputs()) {
        Bytes back;
        ASSERT_TRUE(zlib_raw_inflate(one_block(in, fixed, true, zeros, 0, 0, 1), back, in.size())) << in.size();
        EXPECT_EQ(back, in);
        // Codes counted exactly over the same parse: a symbol outside the count would have no
        // code and break the stream.
        const Codes counted = stat_codes(in, zeros);
        ASSERT_TRUE(zlib_raw_inflate(one_block(in, counted, false, zeros, 0, 0, 1), back, in.size())) << in.size();
        EXPECT_EQ(back, in);
    }
}

TEST(DeflateFastest, PiecesTinyRoomsAndGarbageTables) {
    const Bytes in = zt::compressible_bytes(120000, 77);
    // Codes from a sample of other data, every symbol coded.
    const Codes sample = stat_codes(zt::compressible_bytes(20000, 78), std::vector<uint32_t>(kHash, 0), true);
    zt::Rng r(3);
    for (int round = 0; round < 6; ++round) {
        std::vector<uint32_t> head(kHash, 0);
        if (round & 1)
            for (auto& v : head) v = uint32_t(r.next());
        const uint32_t piece = round < 2 ? 0 : 1 + r.below(5000), room = round < 4 ? 40 : 0;
        Bytes back;
        const Bytes comp = one_block(in, round & 2 ? sample : fixed_codes(), !(round & 2), head, piece, room, round);
        ASSERT_TRUE(zlib_raw_inflate(comp, back, in.size())) << round;
        EXPECT_EQ(back, in) << round;
    }
}

TEST(DeflateFastest, TooLittleRoomTakesNothingAndKeepsThePendingBits) {
    const Bytes in = zt::compressible_bytes(1000, 4);
    const Codes c = fixed_codes();
    std::vector<uint32_t> head(kHash, 0);
    for (uint32_t cap : {0u, 1u, 7u}) {
        const uint8_t* p = base(in);
        uint32_t n = 1000, idx = 0, dlen = cap, nbits = 5;
        uint16_t code = 0x15;
        uint8_t out[16];
        EXPECT_EQ(zemsDeflateLZ77Fastest_8u(&p, &n, &idx, base(in), kWin, head.data(), kHash, c.lit, c.dist, out,
                                            &dlen, &code, &nbits, zemDeflateFinish),
                  zemStatusDstTooSmall);
        EXPECT_EQ(n, 1000u);
        EXPECT_EQ(dlen, 0u);
        EXPECT_EQ(nbits, 5u) << cap;
        EXPECT_EQ(code, 0x15) << cap;
    }
}

TEST(DeflatePrecompHeader, WholeStreamsInOneCallAndInPieces) {
    const Codes c = stat_codes(zt::compressible_bytes(50000, 11), std::vector<uint32_t>(kHash, 0), true);
    uint8_t hdr[400];
    uint32_t hlen = sizeof hdr, hbits = 0;
    ASSERT_EQ(zemsDeflateLZ77FastestGenHeader_8u(c.lit, c.dist, hdr, &hlen, &hbits), zemStatusOk);
    zt::Rng r(21);
    for (const Bytes& in : inputs()) {
        for (int pieces = 0; pieces < 2; ++pieces) {
            std::vector<uint32_t> head(kHash, 0);
            Bytes comp;
            const uint8_t* p = base(in);
            uint32_t left = uint32_t(in.size()), idx = 0, nbits = 0, block = 0;
            uint16_t code = 0;
            for (int guard = 0; guard < 1 << 22; ++guard) {
                const uint32_t give = pieces ? std::min(left, r.below(40000)) : left;
                const int32_t flush = give == left ? zemDeflateFinish : zemDeflateNoFlush;
                const uint32_t cap = pieces ? 1 + r.below(3000) : uint32_t(in.size() + 1000);
                zt::GuardedBuffer out(cap);
                uint32_t n = give, dlen = cap;
                const zemStatus st = zemsDeflateLZ77FastestPrecompHeader_8u(
                    &p, &n, &idx, base(in), kWin, head.data(), kHash, c.lit, c.dist, out.data(), &dlen, &code, &nbits,
                    flush, hdr, hbits, &block);
                ASSERT_TRUE(st == zemStatusOk || st == zemStatusDstTooSmall) << st;
                comp.insert(comp.end(), out.data(), out.data() + dlen);
                left -= give - n;
                if (block == 0x80000000u) break;
            }
            ASSERT_EQ(block, 0x80000000u);
            EXPECT_EQ(nbits, 0u);
            Bytes back;
            ASSERT_TRUE(zlib_raw_inflate(comp, back, in.size())) << in.size() << " pieces " << pieces;
            EXPECT_EQ(back, in);
        }
    }
}

// Every output room from 1 byte up, each call's output ending at a guard page: closing a block
// right after its last record must stay inside the room as much as the records themselves do.
TEST(DeflatePrecompHeader, EveryRoomStaysInsideItsBuffer) {
    uint8_t hdr[400];
    uint32_t hlen = sizeof hdr, hbits = 0;
    const Codes d = stat_codes(zt::compressible_bytes(5000, 12), std::vector<uint32_t>(kHash, 0), true);
    ASSERT_EQ(zemsDeflateLZ77FastestGenHeader_8u(d.lit, d.dist, hdr, &hlen, &hbits), zemStatusOk);
    const Bytes in = zt::compressible_bytes(700, 13);
    // Below the header's bytes and one store no block can be opened.
    for (uint32_t cap = hlen + 9; cap <= hlen + 200; ++cap) {
        std::vector<uint32_t> head(kHash, 0);
        Bytes comp;
        const uint8_t* p = in.data();
        uint32_t left = uint32_t(in.size()), idx = 0, nbits = 0, block = 0;
        uint16_t code = 0;
        while (block != 0x80000000u) {
            zt::GuardedBuffer out(cap);
            uint32_t n = left, dlen = cap;
            ASSERT_NE(zemsDeflateLZ77FastestPrecompHeader_8u(&p, &n, &idx, in.data(), kWin, head.data(), kHash, d.lit,
                                                             d.dist, out.data(), &dlen, &code, &nbits, zemDeflateFinish,
                                                             hdr, hbits, &block),
                      zemStatusNullPtr);
            ASSERT_TRUE(dlen > 0 || n < left || block == 0x80000000u) << "no progress with room " << cap;
            comp.insert(comp.end(), out.data(), out.data() + dlen);
            left = n;
        }
        Bytes back;
        ASSERT_TRUE(zlib_raw_inflate(comp, back, in.size())) << cap;
        EXPECT_EQ(back, in) << cap;
    }
}

TEST(DeflatePrecompHeader, ChecksArgumentsInOrder) {
    const Codes c = fixed_codes();
    const uint8_t src[8] = {};
    const uint8_t* p = src;
    const uint8_t* none = nullptr;
    uint32_t n = 8, idx = 0, dlen = 64, nbits = 0, block = 0, head[256];
    uint16_t code = 0;
    uint8_t out[64], hdr[4] = {};
    auto call = [&](const uint8_t** pp, uint32_t win, uint32_t bits_in, int32_t flush, uint32_t hbits,
                    uint32_t blk) {
        nbits = bits_in, block = blk;
        return zemsDeflateLZ77FastestPrecompHeader_8u(pp, &n, &idx, src, win, head, 256, c.lit, c.dist, out, &dlen,
                                                      &code, &nbits, flush, hdr, hbits, &block);
    };
    EXPECT_EQ(call(&none, 100, 0, 9, 0, 0), zemStatusNullPtr);
    EXPECT_EQ(call(&p, 100, 0, 9, 10, 0), zemStatusSize);
    EXPECT_EQ(call(&p, 256, 17, 9, 10, 0), zemStatusSize);
    EXPECT_EQ(call(&p, 256, 0, 9, 0, 0), zemStatusSize);
    EXPECT_EQ(call(&p, 256, 0, 9, 10, 0), zemStatusBadArg);
    EXPECT_EQ(call(&p, 256, 0, 0, 10, 65537), zemStatusBadArg);
    EXPECT_EQ(call(&p, 256, 0, 0, 10, 0x80000000u), zemStatusOk);
    EXPECT_EQ(n, 8u);
}
