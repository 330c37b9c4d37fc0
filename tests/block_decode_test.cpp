// The inverse transform and the fused block decoder: against the separate stages and a naive
// forward transform, on libbz2's real blocks and on hostile symbols, with every buffer at a
// guard page; and the Huffman stage read in single bytes and symbols.
#include <bzlib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <vector>

#include "bz2_reader.h"
#include "test_util.h"
#include "zemdc.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Syms = std::vector<uint16_t>;

// The last column of the sorted rotations and the row of the unrotated block.
Bytes forward_bwt(const Bytes& s, int32_t& index) {
    size_t n = s.size();
    std::vector<size_t> rot(n);
    std::iota(rot.begin(), rot.end(), 0);
    std::stable_sort(rot.begin(), rot.end(), [&](size_t a, size_t b) {
        for (size_t k = 0; k < n; ++k) {
            uint8_t x = s[(a + k) % n], y = s[(b + k) % n];
            if (x != y) return x < y;
        }
        return false;
    });
    Bytes last(n);
    for (size_t r = 0; r < n; ++r) {
        last[r] = s[(rot[r] + n - 1) % n];
        if (rot[r] == 0) index = int32_t(r);
    }
    return last;
}

Bytes bwt_inv(const Bytes& last, int32_t index, zemStatus* st = nullptr) {
    uint32_t size = 0;
    EXPECT_EQ(zemsBWTInvGetSize_8u(int32_t(last.size()), &size), zemStatusOk);
    zt::GuardedBuffer src(last.size()), dst(last.size()), buf(size);
    src.assign(last.data(), last.size());
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
    unsigned cap = unsigned(data.size() + data.size() / 100 + 600);
    Bytes bz(cap), out(data.size());
    BZ2_bzBuffToBuffCompress((char*)bz.data(), &cap, (char*)const_cast<uint8_t*>(data.data()), unsigned(data.size()),
                             level, 0, 0);
    std::vector<Block> v;
    zem::stream::Bz2Reader r;
    r.set_block_observer([&](const zem::stream::Bz2Reader::BlockInput& b) {
        v.push_back({Syms(b.syms, b.syms + b.n_syms), Bytes(b.in_use, b.in_use + 256), b.capacity, b.orig_ptr,
                     b.dict_size});
    });
    const uint8_t* p = bz.data();
    size_t left = cap, room = out.size();
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
    int32_t index = -1;
    Bytes banana{'b', 'a', 'n', 'a', 'n', 'a'};
    EXPECT_EQ(forward_bwt(banana, index), Bytes({'n', 'n', 'b', 'a', 'a', 'a'}));
    EXPECT_EQ(index, 3);
    EXPECT_EQ(bwt_inv({'n', 'n', 'b', 'a', 'a', 'a'}, 3), banana);
    for (size_t n : {2, 15, 16, 17, 33, 700, 5000}) {
        Bytes s = zt::compressible_bytes(n, n);
        Bytes last = forward_bwt(s, index);
        EXPECT_EQ(bwt_inv(last, index), s) << n;
    }
    for (int32_t i : {0, 5, 9}) EXPECT_EQ(bwt_inv(Bytes(10, 'z'), i), Bytes(10, 'z'));
    // Any column inverts without leaving the buffers, by the plain successor rule, also when its
    // rows fall into many cycles (large blocks are walked as many chains at once).
    for (size_t n : {37u, 1000u, 140000u, 300000u}) {
        Bytes noise = zt::random_bytes(n, n);
        if (n == 300000) std::fill(noise.begin() + 1000, noise.end(), 'q');
        std::vector<uint32_t> start(257, 0), next(n);
        for (uint8_t b : noise) ++start[b + 1];
        for (int b = 0; b < 256; ++b) start[b + 1] += start[b];
        for (size_t i = 0; i < n; ++i) next[start[noise[i]]++] = uint32_t(i);
        Bytes want(n);
        for (uint32_t k = 0, p = uint32_t(n / 3); k < n; ++k) want[k] = noise[p = next[p]];
        zemStatus st;
        EXPECT_EQ(bwt_inv(noise, int32_t(n / 3), &st), want) << n;
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
