// The single-pass path: Fastest with the fixed code and with codes from GetStat, in pieces and at
// guard pages, on garbage tables; PrecompHeader's whole streams; every stream through zlib.
#include "test_util.h"

namespace {

constexpr uint32_t kWin = 32768, kHash = 32768;

// A non-null address for the input and window of empty inputs.
const uint8_t* base(const Bytes& in) {
    static const uint8_t none = 0;
    return in.empty() ? &none : in.data();
}

struct Codes {
    zemDeflateHuffCode lit[286], dist[30];
};

Codes fixed_codes() {
    Codes c{};
    for (uint32_t s = 0; s < 286; ++s) {
        const uint32_t len = s < 144 ? 8 : s < 256 ? 9 : s < 280 ? 7 : 8;
        const uint32_t code = s < 144 ? 0x30 + s : s < 256 ? 0x190 + s - 144 : s < 280 ? s - 256 : 0xC0 + s - 280;
        c.lit[s] = {uint16_t(zt::reverse_bits(code, len)), uint16_t(len)};
    }
    for (uint32_t s = 0; s < 30; ++s) c.dist[s] = {uint16_t(zt::reverse_bits(s, 5)), 5};
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

// GenHeader's dynamic-block header for the codes: its bytes, and its length in bits.
Bytes gen_header(const Codes& c, uint32_t& bits) {
    Bytes h(400);
    uint32_t len = uint32_t(h.size());
    EXPECT_EQ(zemsDeflateLZ77FastestGenHeader_8u(c.lit, c.dist, h.data(), &len, &bits), zemStatusOk);
    h.resize(len);
    return h;
}

// One final block around Fastest's output: the fixed code's header, or GenHeader's.
Bytes one_block(const Bytes& in, const Codes& c, bool fixed, std::vector<uint32_t> head, uint32_t piece,
                uint32_t room, uint64_t seed) {
    zt::LsbBits b;
    b.put(fixed ? 1 | 1 << 1 : 1 | 2 << 1, 3);  // BFINAL, BTYPE
    uint32_t hbits = 0;
    const Bytes hdr = fixed ? Bytes() : gen_header(c, hbits);
    for (uint32_t i = 0; i < hbits; ++i) b.put(hdr[i / 8] >> (i % 8), 1);
    zt::Rng r(seed);
    const uint8_t* p = base(in);
    uint32_t left = uint32_t(in.size()), idx = 0, nbits = b.n;
    uint16_t code = uint16_t(b.acc);
    b.acc = b.n = 0;
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
    return b.finish();
}

// A whole stream from PrecompHeader, the input handed over `give(left)` bytes at a time and
// each call's output a guarded buffer of `room()` bytes; a finishing call must make progress.
template <class Give, class Room>
Bytes precomp_stream(const Bytes& in, const Codes& c, const Bytes& hdr, uint32_t hbits, Give give, Room room) {
    std::vector<uint32_t> head(kHash, 0);
    Bytes comp;
    const uint8_t* p = base(in);
    uint32_t left = uint32_t(in.size()), idx = 0, nbits = 0, block = 0;
    uint16_t code = 0;
    for (int guard = 0; block != 0x80000000u && guard < 1 << 22; ++guard) {
        const uint32_t k = give(left), cap = room();
        zt::GuardedBuffer out(cap);
        uint32_t n = k, dlen = cap;
        const zemStatus st = zemsDeflateLZ77FastestPrecompHeader_8u(
            &p, &n, &idx, base(in), kWin, head.data(), kHash, c.lit, c.dist, out.data(), &dlen, &code, &nbits,
            k == left ? zemDeflateFinish : zemDeflateNoFlush, hdr.data(), hbits, &block);
        if (st != zemStatusOk && st != zemStatusDstTooSmall) {
            ADD_FAILURE() << "status " << st;
            break;
        }
        if (k == left && !(dlen > 0 || n < k || block == 0x80000000u)) {
            ADD_FAILURE() << "no progress with room " << cap;
            break;
        }
        comp.insert(comp.end(), out.data(), out.data() + dlen);
        left -= k - n;
    }
    EXPECT_EQ(block, 0x80000000u);
    EXPECT_EQ(nbits, 0u);
    return comp;
}

std::vector<Bytes> inputs() {
    std::vector<Bytes> v;
    for (size_t n : {0, 1, 3, 4, 258, 262, 263, 32768, 65536, 200000}) v.push_back(zt::compressible_bytes(n, n + 1));
    v.push_back(zt::random_bytes(70000, 5));
    v.push_back(Bytes(100000, 'a'));
    v.push_back(zt::text_like(150000, 9));
    return v;
}

}  // namespace

TEST(DeflateFastest, FixedAndCountedCodesDecodeWithZlib) {
    const std::vector<uint32_t> zeros(kHash, 0);
    const Codes fixed = fixed_codes();
    for (const Bytes& in : inputs()) {
        EXPECT_EQ(zt::zlib_inflate(one_block(in, fixed, true, zeros, 0, 0, 1), -15, in.size()), in) << in.size();
        // Codes counted exactly over the same parse: a symbol outside the count would have no
        // code and break the stream.
        const Codes counted = stat_codes(in, zeros);
        EXPECT_EQ(zt::zlib_inflate(one_block(in, counted, false, zeros, 0, 0, 1), -15, in.size()), in) << in.size();
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
        const Bytes comp = one_block(in, round & 2 ? sample : fixed_codes(), !(round & 2), head, piece, room, round);
        EXPECT_EQ(zt::zlib_inflate(comp, -15, in.size()), in) << round;
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
        EXPECT_TRUE(n == 1000 && dlen == 0 && nbits == 5 && code == 0x15) << cap;
    }
}

TEST(DeflatePrecompHeader, WholeStreamsInOneCallAndInPieces) {
    const Codes c = stat_codes(zt::compressible_bytes(50000, 11), std::vector<uint32_t>(kHash, 0), true);
    uint32_t hbits = 0;
    const Bytes hdr = gen_header(c, hbits);
    zt::Rng r(21);
    for (const Bytes& in : inputs()) {
        const uint32_t whole = uint32_t(in.size() + 1000);
        Bytes comp = precomp_stream(in, c, hdr, hbits, [](uint32_t left) { return left; }, [&] { return whole; });
        EXPECT_EQ(zt::zlib_inflate(comp, -15, in.size()), in) << in.size();
        comp = precomp_stream(in, c, hdr, hbits, [&](uint32_t left) { return std::min(left, r.below(40000)); },
                              [&] { return 1 + r.below(3000); });
        EXPECT_EQ(zt::zlib_inflate(comp, -15, in.size()), in) << in.size() << " in pieces";
    }
}

// Every output room from 1 byte up, each call's output ending at a guard page: closing a block
// right after its last record must stay inside the room as much as the records themselves do.
TEST(DeflatePrecompHeader, EveryRoomStaysInsideItsBuffer) {
    const Codes c = stat_codes(zt::compressible_bytes(5000, 12), std::vector<uint32_t>(kHash, 0), true);
    uint32_t hbits = 0;
    const Bytes hdr = gen_header(c, hbits), in = zt::compressible_bytes(700, 13);
    // Below the header's bytes and one store no block can be opened.
    for (uint32_t cap = uint32_t(hdr.size()) + 9; cap <= hdr.size() + 200; ++cap) {
        const Bytes comp = precomp_stream(in, c, hdr, hbits, [](uint32_t left) { return left; }, [&] { return cap; });
        EXPECT_EQ(zt::zlib_inflate(comp, -15, in.size()), in) << cap;
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
