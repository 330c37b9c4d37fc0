// The .bz2 writer and the block Huffman stage under it: libbz2 and the bzip2 tool decode every
// stream exactly, the output does not depend on how the input arrives, our streams are no larger
// than libbz2's, and the Huffman stage keeps the format's limits and its output buffer.
#include "blocksort/huff_encode.h"
#include "bz2_writer.h"
#include "test_util.h"

namespace {

using zem::stream::bz2_compress;

TEST(Bz2Writer, LibbzDecodesEveryLevelAndBlockEdge) {
    for (int level = 1; level <= 9; ++level) {
        const size_t block = size_t(100000 * level - 19);
        std::vector<Bytes> inputs = {Bytes{}, Bytes{'x'}, zt::random_bytes(block - 1, level),
                                     zt::random_bytes(block + 1, level)};
        if (level == 1 || level == 9) {
            inputs.push_back(zt::compressible_bytes(3 * block + 7, level));
            inputs.push_back(zt::runs_bytes(2 * block, level));
            inputs.push_back(Bytes(block * 2 + 3, 'q'));  // runs cut by every block end
        }
        for (size_t k = 0; k < inputs.size(); ++k) {
            Bytes z = bz2_compress(inputs[k].data(), inputs[k].size(), level);
            ASSERT_EQ(z[3], '0' + level);
            EXPECT_EQ(zt::libbz2_decompress(z.data(), z.size(), inputs[k].size()), inputs[k])
                << "level " << level << " input " << k;
        }
    }
}

TEST(Bz2Writer, BzipToolDecodesAndPiecesDoNotMatter) {
    const Bytes in = zt::cat(zt::runs_bytes(250000, 7), zt::compressible_bytes(150000, 8));
    Bytes whole = bz2_compress(in.data(), in.size(), 1);

    zt::Rng r(11);
    for (int round = 0; round < 3; ++round) {
        zem::stream::Bz2Writer w(1);
        Bytes out;
        for (size_t at = 0; at < in.size();) {
            size_t n = std::min<size_t>(in.size() - at, round == 0 ? 1 + r.below(7) : 1 + r.below(70000));
            w.write(in.data() + at, n, out);
            at += n;
        }
        w.finish(out);
        EXPECT_EQ(out, whole) << "round " << round;
    }

    EXPECT_EQ(zt::tool_output("bzip2 -dc", whole), in);
}

TEST(Bz2Writer, NoLargerThanLibbz2) {
    for (int level : {1, 9}) {
        for (uint64_t seed : {1, 2}) {
            Bytes in = seed == 1 ? zt::compressible_bytes(400000, seed) : zt::runs_bytes(400000, seed);
            size_t ours = bz2_compress(in.data(), in.size(), level).size();
            EXPECT_LE(ours, zt::libbz2_compress(in, level).size()) << "level " << level << " seed " << seed;
        }
    }
}

struct Huff {
    Bytes state;
    zemEncodeHuffState_BZ2* p() { return (zemEncodeHuffState_BZ2*)state.data(); }
    Huff() {
        int32_t size = 0;
        EXPECT_EQ(zemsEncodeHuffGetSize_BZ2_16u8u(900000, &size), zemStatusOk);
        state.resize((size_t)size);
    }
};

// Counts that grow like Fibonacci numbers force an unlimited code past 20 bits.
TEST(Bz2Huffman, LimitsHoldOnSkewedBlocks) {
    std::vector<uint16_t> src;
    uint32_t freq[258] = {};
    uint64_t a = 1, b = 1;
    for (int v = 2; v < 40; ++v) {
        for (uint64_t i = 0; i < a && src.size() < 800000; ++i) src.push_back(uint16_t(v));
        freq[v] = uint32_t(a);
        uint64_t c = a + b;
        a = b;
        b = c;
    }
    zt::Rng r(3);
    for (size_t i = src.size(); i > 1; --i) std::swap(src[i - 1], src[r.below(uint32_t(i))]);
    Huff h;
    ASSERT_EQ(zemsEncodeHuffInit_BZ2_16u8u(60, freq, src.data(), int32_t(src.size()), h.p()), zemStatusOk);
    const auto& s = *zem::bz2::state_of(h.p());
    EXPECT_EQ(s.tables, 6);
    EXPECT_EQ(s.selectors, int32_t((src.size() + 1 + 49) / 50));
    for (int t = 0; t < s.tables; ++t)
        for (int v = 0; v < s.alphabet; ++v) {
            EXPECT_GE(s.len[t][v], 1);
            EXPECT_LE(s.len[t][v], 20);
        }
    for (int g = 0; g < s.selectors; ++g) ASSERT_LT(s.selector[g], s.tables);

    uint16_t bad[3] = {2, 62, 3};  // 62 is beyond the end-of-block symbol of a 60-value dictionary
    EXPECT_EQ(zemsEncodeHuffInit_BZ2_16u8u(60, freq, bad, 3, h.p()), zemStatusError);
}

// Pack and Encode at guard pages: an output that runs out stops cleanly, and the pieces joined
// equal the stream of one call.
TEST(Bz2Huffman, OutputAtGuardPagesResumes) {
    Bytes text = zt::runs_bytes(20000, 5);
    std::vector<uint16_t> src;
    uint32_t freq[258] = {};
    for (uint8_t c : text) {
        uint16_t v = uint16_t(c % 7);
        src.push_back(v);
        ++freq[v];
    }
    Huff h;
    ASSERT_EQ(zemsEncodeHuffInit_BZ2_16u8u(6, freq, src.data(), int32_t(src.size()), h.p()), zemStatusOk);
    uint32_t code = 5;
    int32_t bits = 3;
    Bytes whole(65536);
    int32_t n = 3;
    zt::GuardedBuffer small(3);
    EXPECT_EQ(zemsPackHuffContext_BZ2_16u8u(&code, &bits, small.data(), &n, h.p()), zemStatusDstTooSmall);
    n = int32_t(whole.size());
    ASSERT_EQ(zemsPackHuffContext_BZ2_16u8u(&code, &bits, whole.data(), &n, h.p()), zemStatusOk);
    const uint32_t code0 = code;
    const int32_t bits0 = bits;
    Huff h2 = h;

    const uint16_t* p = src.data();
    int32_t left = int32_t(src.size()), room = int32_t(whole.size()) - n;
    ASSERT_EQ(zemsEncodeHuff_BZ2_16u8u(&code, &bits, &p, &left, whole.data() + n, &room, h.p()), zemStatusOk);
    EXPECT_EQ(left, 0);
    whole.resize(size_t(n + room));
    const uint32_t code_end = code;
    const int32_t bits_end = bits;

    Bytes pieces(whole.begin(), whole.begin() + n);
    code = code0;
    bits = bits0;
    p = src.data();
    left = int32_t(src.size());
    zt::Rng r(9);
    zemStatus st;
    do {
        int32_t give = std::min<int32_t>(left, int32_t(r.below(300)));
        int32_t before = give, cap = 1 + int32_t(r.below(40));
        zt::GuardedBuffer out{size_t(cap)};
        st = zemsEncodeHuff_BZ2_16u8u(&code, &bits, &p, &give, out.data(), &cap, h2.p());
        ASSERT_TRUE(st == zemStatusOk || st == zemStatusDstTooSmall);
        left -= before - give;
        pieces.insert(pieces.end(), out.data(), out.data() + cap);
    } while (zem::bz2::state_of(h2.p())->done <= int32_t(src.size()));
    for (; bits >= 8; bits -= 8) pieces.push_back(uint8_t(code >> (bits - 8)));  // a full output may leave bytes pending
    code &= (1u << bits) - 1;
    EXPECT_EQ(pieces, whole);
    EXPECT_EQ(code, code_end);
    EXPECT_EQ(bits, bits_end);

    // Argument order: pointers, then lengths, then the bit count.
    int32_t zero = 0, one = 1, bad_bits = 32;
    EXPECT_EQ(zemsEncodeHuff_BZ2_16u8u(&code, &bits, &p, &left, nullptr, &one, h.p()), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeHuff_BZ2_16u8u(&code, &bad_bits, &p, &zero, whole.data(), &zero, h.p()), zemStatusSize);
    EXPECT_EQ(zemsPackHuffContext_BZ2_16u8u(&code, &bad_bits, whole.data(), &one, h.p()), zemStatusBadArg);
    EXPECT_EQ(zemsEncodeHuffInit_BZ2_16u8u(0, freq, src.data(), 5, h.p()), zemStatusSize);
    EXPECT_EQ(zemsEncodeHuffGetSize_BZ2_16u8u(900001, &one), zemStatusSize);
}

}  // namespace
