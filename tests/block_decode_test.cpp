// The inverse transform and the fused block decoder: against the separate stages and a naive
// forward transform, on libbz2's real blocks and on hostile symbols, with every buffer at a
// guard page; and the Huffman stage read in single bytes and symbols.
#include "bz2_reader.h"
#include "test_util.h"

namespace {

using Syms = std::vector<uint16_t>;

Bytes bwt_inv(const Bytes& last, int32_t index, zemStatus* st = nullptr) {
    uint32_t size = 0;
    EXPECT_EQ(zemsBWTInvGetSize_8u(int32_t(last.size()), &size), zemStatusOk);
    zt::GuardedBuffer src(last), dst(last.size()), buf(size);
    zemStatus r = zemsBWTInv_8u(src.data(), dst.data(), int32_t(last.size()), index, buf.data());
    if (st) *st = r;
    return Bytes(dst.data(), dst.data() + last.size());
}

struct Block {
    Syms syms;
    Bytes in_use;
    uint32_t capacity, orig_ptr, dict_size;
};

// The blocks of a libbz2 file, as the reader hands them to the block decoder.
std::vector<Block> blocks_of(const Bytes& data, int level) {
    const Bytes bz = zt::libbz2_compress(data, level);
    Bytes out(data.size());
    std::vector<Block> v;
    zem::stream::Bz2Reader r;
    r.set_block_observer([&](const zem::stream::Bz2Reader::BlockInput& b) {
        v.push_back({Syms(b.syms, b.syms + b.n_syms), Bytes(b.in_use, b.in_use + 256), b.capacity, b.orig_ptr,
                     b.dict_size});
    });
    const uint8_t* p = bz.data();
    size_t left = bz.size(), room = out.size();
    uint8_t* o = out.data();
    r.run(p, left, o, room);
    return v;
}

// The same block through the separate stages: zero runs, move-to-front, expansion, inversion.
Bytes staged(const Block& b) {
    Bytes mtf(b.capacity);
    const uint16_t* s = b.syms.data();
    int32_t left = int32_t(b.syms.size()), n = int32_t(mtf.size());
    EXPECT_EQ(zemsDecodeZ1Z2_BZ2_16u8u(&s, &left, mtf.data(), &n), zemStatusOk);
    mtf.resize(size_t(n));
    Bytes state(256), bytes(mtf.size());
    auto* st = reinterpret_cast<zemMTFState_8u*>(state.data());
    zemsMTFInit_8u(st);
    zemsMTFInv_8u(mtf.data(), bytes.data(), n, st);
    EXPECT_EQ(zemsExpandDictionary_8u_I(b.in_use.data(), bytes.data(), n, int32_t(b.dict_size)), zemStatusOk);
    return bwt_inv(bytes, int32_t(b.orig_ptr));
}

zemStatus decode_block(const Block& b, Bytes& out, uint32_t& len) {
    uint32_t size = 0;
    EXPECT_EQ(zemsDecodeBlockGetSize_BZ2_8u(len, &size), zemStatusOk);
    zt::GuardedBuffer src(b.syms.size() * 2), dst(len ? len : 1), work(size ? size : 1), in_use(256);
    src.assign(b.syms.data(), b.syms.size() * 2);
    in_use.assign(b.in_use.data(), 256);
    zemStatus r = zemsDecodeBlock_BZ2_16u8u(reinterpret_cast<const uint16_t*>(src.data()), int32_t(b.syms.size()),
                                            dst.data(), &len, int32_t(b.orig_ptr), b.dict_size, in_use.data(),
                                            work.data());
    out.assign(dst.data(), dst.data() + std::min<size_t>(len, dst.size()));
    return r;
}

}  // namespace

TEST(BwtInv, InvertsTheForwardTransform) {
    uint32_t index = 0;
    for (size_t n : {2, 15, 16, 17, 33, 700, 5000}) {
        Bytes s = zt::compressible_bytes(n, n);
        Bytes last = zt::bwt_naive(s, index);
        EXPECT_EQ(bwt_inv(last, int32_t(index)), s) << n;
    }
    for (int32_t i : {0, 5, 9}) EXPECT_EQ(bwt_inv(Bytes(10, 'z'), i), Bytes(10, 'z'));
    // Any column inverts without leaving the buffers, by the plain successor rule, also when its
    // rows fall into many cycles (large blocks are walked as many chains at once).
    for (size_t n : {37u, 1000u, 140000u, 300000u}) {
        Bytes noise = zt::random_bytes(n, n);
        if (n == 300000) std::fill(noise.begin() + 1000, noise.end(), 'q');
        zemStatus st;
        EXPECT_EQ(bwt_inv(noise, int32_t(n / 3), &st), zt::bwt_invert(noise, uint32_t(n / 3))) << n;
        EXPECT_EQ(st, zemStatusOk);
    }
    uint32_t size = 0;
    EXPECT_EQ(zemsBWTInvGetSize_8u(0, &size), zemStatusSize);
    EXPECT_EQ(zemsBWTInvGetSize_8u(1, &size), zemStatusOk);
    EXPECT_EQ(size, 1028u);
    uint8_t a = 7, b = 0, buf = 0;
    EXPECT_EQ(zemsBWTInv_8u(&a, &b, 1, 0, &buf), zemStatusOk);
    EXPECT_EQ(b, 7);
    EXPECT_EQ(zemsBWTInv_8u(&a, &b, 1, 1, &buf), zemStatusSize);
    EXPECT_EQ(zemsBWTInv_8u(&a, &b, 1, -1, &buf), zemStatusSize);
    EXPECT_EQ(zemsBWTInv_8u(&a, &b, 1, 0, nullptr), zemStatusNullPtr);
}

TEST(BlockDecode, RealBlocksMatchTheSeparateStages) {
    Bytes data = zt::compressible_bytes(260000, 21);
    for (size_t i = 0; i < 60000; ++i) data[i] = uint8_t(i % 13 ? 'a' + i % 7 : 0);
    for (int level : {1, 9}) {
        for (const Block& b : blocks_of(data, level)) {
            Bytes got;
            uint32_t len = b.capacity;
            ASSERT_EQ(decode_block(b, got, len), zemStatusOk);
            EXPECT_EQ(got, staged(b));
            // The exact length as capacity suffices (index permitting); one less fails.
            uint32_t exact = len;
            if (b.orig_ptr < exact) {
                EXPECT_EQ(decode_block(b, got, exact), zemStatusOk);
                exact = len - 1;
                if (b.orig_ptr < exact) EXPECT_EQ(decode_block(b, got, exact), zemStatusError);
            }
        }
    }
}

TEST(BlockDecode, EdgesAndHostileSymbols) {
    Bytes in_use(256, 0);
    in_use[10] = in_use[20] = in_use[30] = in_use[40] = 1;
    Block b{{0, 1}, in_use, 5, 0, 4};  // a run of 1 + 4
    Bytes got;
    uint32_t len = 5;
    EXPECT_EQ(decode_block(b, got, len), zemStatusOk);
    EXPECT_EQ(len, 5u);
    EXPECT_EQ(got, Bytes(5, 10));
    len = 4;
    EXPECT_EQ(decode_block(b, got, len), zemStatusError);
    // Five values set but a size of four: success with nothing written, not even the length.
    b.in_use[50] = 1;
    len = 77;
    EXPECT_EQ(decode_block(b, got, len), zemStatusOk);
    EXPECT_EQ(len, 77u);
    b.in_use[50] = 0;
    b.syms = {4, 5};  // position 4 is beyond a dictionary of four
    len = 10;
    EXPECT_EQ(decode_block(b, got, len), zemStatusError);
    b.syms = {2, 3}, b.orig_ptr = 2;  // an index at or beyond the decoded length
    len = 10;
    EXPECT_EQ(decode_block(b, got, len), zemStatusError);
    EXPECT_EQ(len, 2u);
    b.orig_ptr = 10, len = 10;
    EXPECT_EQ(decode_block(b, got, len), zemStatusSize);

    uint32_t size = 0;
    EXPECT_EQ(zemsDecodeBlockGetSize_BZ2_8u(0x1000000, &size), zemStatusSize);
    EXPECT_EQ(zemsDecodeBlockGetSize_BZ2_8u(0xFFFFFF, &size), zemStatusOk);
    EXPECT_EQ(size, 0x3FFFFFCu);

    // Random symbols, dictionaries and indices: a clear status, and when accepted, the bytes of
    // the separate stages.
    zt::Rng r(77);
    for (int iter = 0; iter < 400; ++iter) {
        Block h;
        h.in_use.assign(256, 0);
        uint32_t dict = 1 + r.below(256);
        for (uint32_t k = 0; k < dict; ++k) h.in_use[r.below(256)] = 1;
        h.dict_size = uint32_t(std::count(h.in_use.begin(), h.in_use.end(), 1));
        size_t n = 1 + r.below(300);
        for (size_t k = 0; k < n; ++k)
            h.syms.push_back(uint16_t(r.below(3) ? r.below(4) : r.below(iter % 2 ? 300 : h.dict_size + 2)));
        h.capacity = 1 + r.below(2000);
        h.orig_ptr = r.below(h.capacity);
        uint32_t cap = h.capacity;
        zemStatus st = decode_block(h, got, cap);
        ASSERT_TRUE(st == zemStatusOk || st == zemStatusError) << st;
        if (st == zemStatusOk) {
            ASSERT_LE(cap, h.capacity);
            EXPECT_EQ(got, staged(h)) << iter;
        }
    }
}

namespace {

// The symbols of a file's first block read by the Huffman stage straight from the file, in
// pieces of `in_step` bytes and `out_step` symbols; the status of the last call in *last.
Syms huff_symbols(const Bytes& bz, size_t in_step, int32_t out_step, zemStatus* last) {
    // Stream header, block magic, CRC, randomised bit, index: 137 bits; then the bitmap.
    auto bit = [&](size_t b) { return bz[b / 8] >> (7 - b % 8) & 1; };
    size_t at = 137, groups = 0, dict = 0;
    for (int g = 0; g < 16; ++g) groups = groups << 1 | bit(at++);
    for (int g = 0; g < 16; ++g)
        if (groups >> (15 - g) & 1)
            for (int k = 0; k < 16; ++k) dict += bit(at++);
    int32_t size = 0;
    EXPECT_EQ(zemsDecodeHuffGetSize_BZ2_8u16u(100000, &size), zemStatusOk);
    std::vector<uint64_t> state((size_t(size) + 7) / 8);
    auto* st = reinterpret_cast<zemDecodeHuffState_BZ2*>(state.data());
    EXPECT_EQ(zemsDecodeHuffInit_BZ2_8u16u(int32_t(dict), st), zemStatusOk);
    int32_t bits = int32_t(8 - at % 8);
    uint32_t code = bz[at / 8] & ((1u << bits) - 1);
    size_t pos = at / 8 + 1;
    Syms syms;
    bool unpacked = false;
    *last = zemStatusSrcTooShort;
    while (pos < bz.size() && *last == zemStatusSrcTooShort) {
        size_t n = std::min(in_step, bz.size() - pos);
        zt::GuardedBuffer in(n);
        in.assign(bz.data() + pos, n);
        const uint8_t* s = in.data();
        int32_t left = int32_t(n);
        if (!unpacked) {
            *last = zemsUnpackHuffContext_BZ2_8u16u(&code, &bits, &s, &left, st);
            unpacked = *last == zemStatusOk;
        }
        while (unpacked) {
            zt::GuardedBuffer out(size_t(out_step) * 2);
            int32_t room = out_step;
            *last = zemsDecodeHuff_BZ2_8u16u(&code, &bits, &s, &left, (uint16_t*)out.data(), &room, st);
            syms.insert(syms.end(), (uint16_t*)out.data(), (uint16_t*)out.data() + room);
            if (*last != zemStatusDstTooSmall) break;
        }
        EXPECT_TRUE(*last != zemStatusSrcTooShort || left == 0);  // stopping for input takes all of it
        pos += n - size_t(left);
    }
    return syms;
}

}  // namespace

TEST(HuffDecode, WholeAndByteBySymbolMatchTheReader) {
    Bytes data = zt::compressible_bytes(20000, 31), bz = zt::libbz2_compress(data, 1);
    std::vector<Block> blocks = blocks_of(data, 1);
    ASSERT_EQ(blocks.size(), 1u);
    zemStatus last;
    EXPECT_EQ(huff_symbols(bz, bz.size(), 1 << 20, &last), blocks[0].syms);
    EXPECT_EQ(last, zemStatusOk);
    EXPECT_EQ(huff_symbols(bz, 1, 1, &last), blocks[0].syms);
    EXPECT_EQ(last, zemStatusOk);
    // Random bits after a valid header: statuses of the stage only, never an access outside.
    for (uint64_t seed = 1; seed <= 60; ++seed) {
        Bytes junk = bz, noise = zt::random_bytes(junk.size(), seed);
        const size_t from = 20 + seed % 40;
        std::copy(noise.begin() + from, noise.end(), junk.begin() + from);
        huff_symbols(junk, 64 + seed * 7 % 500, int32_t(1 + seed * 13 % 1000), &last);
        EXPECT_TRUE(last == zemStatusOk || last == zemStatusError || last == zemStatusBadData ||
                    last == zemStatusSrcTooShort)
            << last;
    }
}
