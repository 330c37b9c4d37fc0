// zfp blocks: the stream record, bit-exact agreement with libzfp in every mode, and the rules at
// the end of a buffer. Records are unaligned on purpose: they are plain caller memory.
#include <gtest/gtest.h>
#include <math.h>
#include <zfp.h>

#include <bit>
#include <vector>

#include "test_util.h"
#include "zemdc.h"
#include "zfp/zfp_internal.h"

namespace {

struct Params {
    int32_t minBits, maxBits, maxPrec, minExp;
};
const Params kDefault{0, 4171, 64, -10740};
Params rate(int r) { return {64 * r, 64 * r, 64, -10740}; }
Params precision(int p) { return {0, 4171, p, -10740}; }

struct State {
    std::vector<uint8_t> mem = std::vector<uint8_t>(577);
    zemZfpState* get() { return (zemZfpState*)(mem.data() + 1); }
    zem::zfp::Head head() { return zem::zfp::load_head(get()); }
    void init(uint8_t* buf, size_t len, const Params& p) {
        ASSERT_EQ(zemsEncodeZfpInit_32f(buf, (int32_t)len, get()), zemStatusOk);
        ASSERT_EQ(zemsEncodeZfpSet_32f(p.minBits, p.maxBits, p.maxPrec, p.minExp, get()), zemStatusOk);
    }
    uint64_t bytes() {
        uint64_t n = 0;
        EXPECT_EQ(zemsEncodeZfpGetCompressedSizeLong_32f(get(), &n), zemStatusOk);
        return n;
    }
    uint64_t bits() {
        uint64_t n = 0;
        EXPECT_EQ(zemsEncodeZfpGetCompressedBitSize_32f(get(), &n), zemStatusOk);
        return n;
    }
};

// Blocks of many shapes: smooth, noisy, signed, sparse, constant, wide and narrow magnitudes,
// each with its largest magnitude at 2^-96 or more (where libzfp's scale is still finite).
std::vector<float> make_blocks(size_t count, uint64_t seed, int min_exp = -90, int max_exp = 100) {
    zt::Rng r(seed);
    std::vector<float> v(count * 64);
    for (size_t b = 0; b < count; ++b) {
        float* p = &v[b * 64];
        int kind = (int)r.below(7);
        float mag = ldexpf(1.0f, min_exp + (int)r.below((uint32_t)(max_exp - min_exp)));
        double fx = r.below(100) / 50.0, fy = r.below(100) / 50.0, fz = r.below(100) / 50.0;
        float top = 0;
        for (int i = 0; i < 64; ++i) {
            double u = double(r.next() >> 11) / 9007199254740992.0 - 0.5;
            double smooth = sin(fx * (i & 3) + fy * ((i >> 2) & 3) + fz * (i >> 4) + b);
            double k[] = {smooth, smooth + 0.01 * u, u, r.below(8) ? 0.0 : u, 1.0,
                          u * ldexp(1.0, -(int)r.below(40)), i == 63 ? -1.0 : 1e-3 * smooth};
            p[i] = float(mag * k[kind]);
            top = fmaxf(top, fabsf(p[i]));
        }
        if (top < ldexpf(1.0f, min_exp < -96 ? -200 : -96)) p[0] = mag;
    }
    return v;
}

// libzfp with the same parameters; it writes bytes and ends its stream on a byte, ours ends on
// a word, so its stream padded with zero bytes to a word is ours.
struct Ref {
    bitstream* bs;
    zfp_stream* zs;
    Ref(void* buf, size_t n, const Params& p) {
        bs = stream_open(buf, n);
        zs = zfp_stream_open(bs);
        EXPECT_TRUE(zfp_stream_set_params(zs, (uint)p.minBits, (uint)p.maxBits, (uint)p.maxPrec,
                                          p.minExp < ZFP_MIN_EXP ? ZFP_MIN_EXP : p.minExp));
    }
    ~Ref() {
        zfp_stream_close(zs);
        stream_close(bs);
    }
};

std::vector<uint8_t> word_padded(std::vector<uint8_t> v) {
    v.resize((v.size() + 7) & ~size_t(7));
    return v;
}

std::vector<uint8_t> ours_encode(const std::vector<float>& blocks, const Params& p) {
    std::vector<uint8_t> out(blocks.size() * 10 + 64);
    State s;
    s.init(out.data(), out.size(), p);
    for (size_t b = 0; b < blocks.size() / 64; ++b)
        EXPECT_EQ(zemsEncodeZfp444_32f(&blocks[b * 64], 16, 64, s.get()), zemStatusOk);
    EXPECT_EQ(zemsEncodeZfpFlush_32f(s.get()), zemStatusOk);
    out.resize(s.bytes());
    return out;
}

// From a buffer that ends at a guard page, so reading past the stream's last byte faults.
std::vector<float> ours_decode(const std::vector<uint8_t>& stream, size_t count, const Params& p) {
    zt::GuardedBuffer g(stream.size());
    g.assign(stream.data(), stream.size());
    std::vector<float> out(count * 64);
    State s;
    s.init(g.data(), stream.size(), p);
    for (size_t b = 0; b < count; ++b) EXPECT_EQ(zemsDecodeZfp444_32f(s.get(), &out[b * 64], 16, 64), zemStatusOk);
    return out;
}

void expect_interop(const std::vector<float>& blocks, const Params& p, const char* what) {
    size_t count = blocks.size() / 64;
    std::vector<uint8_t> ref(blocks.size() * 10 + 64);
    {
        Ref r(ref.data(), ref.size(), p);
        for (size_t b = 0; b < count; ++b) zfp_encode_block_float_3(r.zs, &blocks[b * 64]);
        zfp_stream_flush(r.zs);
        ref.resize(zfp_stream_compressed_size(r.zs));
    }
    auto ours = ours_encode(blocks, p);
    ASSERT_EQ(ours, word_padded(ref)) << what << " " << p.minBits << " " << p.maxBits << " " << p.maxPrec;

    std::vector<float> theirs(blocks.size()), back(blocks.size());
    Ref r(ours.data(), ours.size(), p);
    for (size_t b = 0; b < count; ++b) zfp_decode_block_float_3(r.zs, &theirs[b * 64]);
    // Padding that ends within the last 8 bytes is defined to leave the reader on the skipped
    // bits, so a byte-ended stream with padding is read from a whole-word buffer.
    back = ours_decode(p.minBits <= 1 ? ref : ours, count, p);
    for (size_t i = 0; i < back.size(); ++i)
        ASSERT_EQ(std::bit_cast<uint32_t>(back[i]), std::bit_cast<uint32_t>(theirs[i])) << what << " value " << i;
}

// libzfp's edge padding: 1: a a a a, 2: a b b a, 3: a b c a.
void pad(float* q, int n, int s) {
    if (n == 1) q[s] = q[2 * s] = q[3 * s] = q[0];
    if (n == 2) q[2 * s] = q[s], q[3 * s] = q[0];
    if (n == 3) q[3 * s] = q[0];
}

}  // namespace

TEST(ZfpState, InitSetAndAccuracy) {
    int32_t size = 0;
    EXPECT_EQ(zemsEncodeZfpGetStateSize_32f(&size), zemStatusOk);
    EXPECT_EQ(size, 576);
    EXPECT_EQ(zemsDecodeZfpGetStateSize_32f(nullptr), zemStatusNullPtr);

    State s;
    uint8_t buf[64];
    EXPECT_EQ(zemsEncodeZfpInit_32f(nullptr, 0, s.get()), zemStatusNullPtr);  // pointers before lengths
    EXPECT_EQ(zemsEncodeZfpInit_32f(buf, 64, nullptr), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeZfpInit_32f(buf, 0, s.get()), zemStatusSize);
    EXPECT_EQ(zemsEncodeZfpInit_32f(buf, -1, s.get()), zemStatusSize);
    EXPECT_EQ(zemsEncodeZfpInitLong_32f(buf, 0, s.get()), zemStatusSize);
    EXPECT_EQ(s.head().idTag, 0u) << "a failed Init leaves the record alone";

    s.init(buf, 64, {1, 513, 3, 4});
    auto h = s.head();
    EXPECT_EQ(h.idTag, 0x4B617398u);
    EXPECT_EQ(h.minBits + h.maxBits + h.maxPrec + h.minExp, 1 + 513 + 3 + 4);
    EXPECT_EQ(h.pEnd - h.pSafeEnd, 72u);  // 65 bytes, rounded up to whole words
    EXPECT_EQ(zemsEncodeZfpSet_32f(0, 0, 0, 0, s.get()), zemStatusOk);
    EXPECT_EQ(s.head().pSafeEnd, s.head().pEnd);

    const struct {
        double tol;
        int32_t minExp;
    } acc[] = {{0.5, -1},       {1e-3, -10},    {1.0, 0},       {1.99, 0},    {1e300, 996},
               {4e-320, -1023}, {0.0, -10740}, {-2.0, -10740}, {NAN, -10740}};
    for (auto& a : acc) {
        EXPECT_EQ(zemsDecodeZfpSetAccuracy_32f(a.tol, s.get()), zemStatusOk);
        EXPECT_EQ(s.head().minExp, a.minExp) << a.tol;
    }
    // Init resets every parameter to its default.
    ASSERT_EQ(zemsDecodeZfpInitLong_32f(buf, 64, s.get()), zemStatusOk);
    h = s.head();
    EXPECT_EQ(h.minBits, 0);
    EXPECT_EQ(h.maxBits, 4171);
    EXPECT_EQ(h.maxPrec, 64);
    EXPECT_EQ(h.minExp, -10740);
    EXPECT_EQ(h.pEnd - h.pSafeEnd, 528u);
}

TEST(ZfpState, TagCheckedEverywhereAndDecodeNamesAreAliases) {
    State s;
    uint8_t buf[64];
    float block[64] = {};
    int32_t n32;
    uint64_t n64;
    ASSERT_EQ(zemsEncodeZfpInit_32f(buf, 64, s.get()), zemStatusOk);
    memset(s.mem.data() + 1, 0x55, 4);
    EXPECT_EQ(zemsEncodeZfpSet_32f(0, 64, 32, 0, s.get()), zemStatusContextMismatch);
    EXPECT_EQ(zemsEncodeZfpSetAccuracy_32f(1.0, s.get()), zemStatusContextMismatch);
    EXPECT_EQ(zemsEncodeZfpFlush_32f(s.get()), zemStatusContextMismatch);
    EXPECT_EQ(zemsEncodeZfpGetCompressedSize_32f(s.get(), &n32), zemStatusContextMismatch);
    EXPECT_EQ(zemsEncodeZfpGetCompressedSizeLong_32f(s.get(), &n64), zemStatusContextMismatch);
    EXPECT_EQ(zemsEncodeZfpGetCompressedBitSize_32f(s.get(), &n64), zemStatusContextMismatch);
    EXPECT_EQ(zemsEncodeZfp444_32f(block, 16, 64, s.get()), zemStatusContextMismatch);
    EXPECT_EQ(zemsDecodeZfp444_32f(s.get(), block, 16, 64), zemStatusContextMismatch);
    EXPECT_EQ(zemsEncodeZfp444_32f(nullptr, 16, 64, s.get()), zemStatusNullPtr);  // before the tag
    EXPECT_EQ(zemsDecodeZfp444_32f(s.get(), nullptr, 16, 64), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeZfpGetCompressedBitSize_32f(s.get(), nullptr), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeZfpInit_32f(buf, 64, s.get()), zemStatusOk);

    const std::pair<void*, void*> alias[] = {
        {(void*)&zemsDecodeZfpGetStateSize_32f, (void*)&zemsEncodeZfpGetStateSize_32f},
        {(void*)&zemsDecodeZfpInit_32f, (void*)&zemsEncodeZfpInit_32f},
        {(void*)&zemsDecodeZfpInitLong_32f, (void*)&zemsEncodeZfpInitLong_32f},
        {(void*)&zemsDecodeZfpSet_32f, (void*)&zemsEncodeZfpSet_32f},
        {(void*)&zemsDecodeZfpSetAccuracy_32f, (void*)&zemsEncodeZfpSetAccuracy_32f},
        {(void*)&zemsDecodeZfpGetDecompressedSize_32f, (void*)&zemsEncodeZfpGetCompressedSize_32f},
        {(void*)&zemsDecodeZfpGetDecompressedSizeLong_32f, (void*)&zemsEncodeZfpGetCompressedSizeLong_32f}};
    for (auto& a : alias) EXPECT_EQ(a.first, a.second);
}

TEST(ZfpState, FlushAndSizesNearTheEnd) {
    float zeros[64] = {};
    uint8_t buf[24];
    State s;
    s.init(buf, 24, kDefault);
    EXPECT_EQ(zemsEncodeZfpFlush_32f(s.get()), zemStatusOk);  // nothing pending
    EXPECT_EQ(s.bytes(), 0u);
    for (int i = 0; i < 3; ++i) ASSERT_EQ(zemsEncodeZfp444_32f(zeros, 16, 64, s.get()), zemStatusOk);
    EXPECT_EQ(s.bits(), 3u);
    EXPECT_EQ(zemsEncodeZfpFlush_32f(s.get()), zemStatusOk);
    EXPECT_EQ(s.bytes(), 8u);  // a whole word while one fits

    // 100 bits in 12 bytes: the block stores a word, the flush 4 of the 5 bytes it needs and
    // keeps the last 4 bits pending; with 13 bytes it ends on a byte.
    for (size_t len : {12, 13}) {
        s.init(buf, len, {100, 4171, 64, -10740});
        ASSERT_EQ(zemsEncodeZfp444_32f(zeros, 16, 64, s.get()), zemStatusOk);
        EXPECT_EQ(s.bytes(), 8u);
        EXPECT_EQ(zemsEncodeZfpFlush_32f(s.get()), len == 12 ? zemStatusStreamEnd : zemStatusOk);
        int32_t n32 = 0;
        EXPECT_EQ(zemsDecodeZfpGetDecompressedSize_32f(s.get(), &n32), zemStatusOk);
        EXPECT_EQ(n32, (int32_t)len);
        EXPECT_EQ(s.bits(), len == 12 ? 100u : 104u);
    }
    // A stream bound with a negative 64-bit length fails on its first word.
    ASSERT_EQ(zemsEncodeZfpInitLong_32f(buf + 16, -1, s.get()), zemStatusOk);
    ASSERT_EQ(zemsEncodeZfpSet_32f(64, 64, 64, -10740, s.get()), zemStatusOk);
    EXPECT_EQ(zemsEncodeZfp444_32f(zeros, 16, 64, s.get()), zemStatusStreamEnd);
}

TEST(ZfpEncode, HeadersEmptyBlocksAndBudgets) {
    float zeros[64] = {}, ones[64];
    for (float& f : ones) f = 1.0f;
    uint8_t buf[64];
    State s;
    const struct {
        const float* block;
        Params p;
        uint64_t bits;
    } cases[] = {{zeros, kDefault, 1},          {zeros, {64, 64, 64, -10740}, 64}, {ones, {0, 9, 64, -10740}, 9},
                 {ones, {0, 1, 64, -10740}, 9}, {ones, {0, 4171, 0, -10740}, 1},  {ones, {0, 4171, 64, 10}, 1},
                 {ones, {0, 4171, 64, 0}, 27}};  // 9 planes, the one coefficient found in plane 30
    for (auto& c : cases) {
        s.init(buf, sizeof buf, c.p);
        ASSERT_EQ(zemsEncodeZfp444_32f(c.block, 16, 64, s.get()), zemStatusOk);
        EXPECT_EQ(s.bits(), c.bits) << c.p.minBits << " " << c.p.maxBits << " " << c.p.maxPrec << " " << c.p.minExp;
    }
    // 1.0 has exponent 1: flag 1 and biased exponent 128.
    s.init(buf, sizeof buf, {0, 9, 64, -10740});
    ASSERT_EQ(zemsEncodeZfp444_32f(ones, 16, 64, s.get()), zemStatusOk);
    ASSERT_EQ(zemsEncodeZfpFlush_32f(s.get()), zemStatusOk);
    EXPECT_EQ(buf[0] | (buf[1] & 1) << 8, 257);
}

TEST(ZfpEncode, NegativeStridesAndGuardedOutput) {
    auto blocks = make_blocks(1, 7);
    // The block stored bottom-up with gaps between rows and planes.
    const int step = 6, plane = 9 * 6;
    std::vector<float> wide(4 * plane, 7.0f), back(wide.size(), 7.0f);
    auto at = [&](int x, int y, int z) { return (3 - z) * plane + (3 - y) * step + x; };
    for (int i = 0; i < 64; ++i) wide[at(i & 3, (i >> 2) & 3, i >> 4)] = blocks[i];
    auto ref = ours_encode(blocks, rate(8));
    std::vector<uint8_t> out(ref.size());
    State s;
    s.init(out.data(), out.size(), rate(8));
    ASSERT_EQ(zemsEncodeZfp444_32f(&wide[at(0, 0, 0)], -step * 4, -plane * 4, s.get()), zemStatusOk);
    ASSERT_EQ(zemsEncodeZfpFlush_32f(s.get()), zemStatusOk);
    EXPECT_EQ(out, ref);
    s.init(out.data(), out.size(), rate(8));
    ASSERT_EQ(zemsDecodeZfp444_32f(s.get(), &back[at(0, 0, 0)], -step * 4, -plane * 4), zemStatusOk);
    auto plain = ours_decode(ref, 1, rate(8));
    for (int i = 0; i < 64; ++i) ASSERT_EQ(back[at(i & 3, (i >> 2) & 3, i >> 4)], plain[i]);
    EXPECT_EQ(back[at(0, 0, 0) + 4], 7.0f) << "the gap between rows is not written";

    // A guarded output: a word that does not fit is refused, never written past the end, and
    // the words before it stay.
    auto many = make_blocks(40, 8);
    auto full = ours_encode(many, precision(12));
    State e;
    e.init(full.data(), full.size(), precision(12));
    for (size_t b = 0; b < 40; ++b) zemsEncodeZfp444_32f(&many[b * 64], 16, 64, e.get());
    uint64_t need = (e.bits() + 7) / 8;  // bytes that hold every bit of the stream
    for (size_t len : {1ul, 7ul, 8ul, 9ul, full.size() / 2 + 3, need - 1, need, full.size() - 1}) {
        zt::GuardedBuffer g(len);
        e.init(g.data(), len, precision(12));
        zemStatus st = zemStatusOk;
        for (size_t b = 0; b < 40 && st == zemStatusOk; ++b) st = zemsEncodeZfp444_32f(&many[b * 64], 16, 64, e.get());
        if (st == zemStatusOk) st = zemsEncodeZfpFlush_32f(e.get());
        EXPECT_EQ(st, len >= need ? zemStatusOk : zemStatusStreamEnd) << len;
        EXPECT_EQ(0, memcmp(g.data(), full.data(), e.bytes() & ~7ul));
    }
}

TEST(ZfpInterop, BitExactWithLibzfpInEveryMode) {
    auto blocks = make_blocks(300, 11);
    for (int r : {1, 2, 3, 4, 8, 12, 16, 24, 32}) expect_interop(blocks, rate(r), "rate");
    for (int p : {1, 2, 5, 8, 16, 20, 31, 32}) expect_interop(blocks, precision(p), "precision");
    for (double tol : {1e-7, 1e-3, 0.5, 3.0, 1e3}) {
        Params p = kDefault;
        p.minExp = (int32_t)floor(log2(tol));
        expect_interop(blocks, p, "accuracy");
    }
    // Expert combinations, including budgets that end inside a group test or a run.
    zt::Rng r(12);
    for (int t = 0; t < 60; ++t) {
        int32_t maxBits = 9 + (int32_t)r.below(t < 30 ? 200 : 2300);
        Params p{(int32_t)r.below((uint32_t)maxBits + 1), maxBits, 1 + (int32_t)r.below(32),
                 r.below(4) ? -40 + (int32_t)r.below(60) : -1074};
        expect_interop(std::vector<float>(blocks.begin() + 64 * t, blocks.begin() + 64 * (t + 40)), p, "expert");
    }
    // Down to the smallest exponent the two agree on, and the largest finite values.
    expect_interop(make_blocks(100, 13, -96, -80), rate(16), "tiny");
    std::vector<float> big(64, 3.4e38f);
    big[5] = -3.4e38f;
    big[9] = 1.0f;
    expect_interop(big, precision(32), "huge");
}

TEST(ZfpInterop, WholeArrayBlockByBlockMatchesZfpCompress) {
    const int nx = 13, ny = 10, nz = 7;  // partial blocks in every dimension
    std::vector<float> a((size_t)nx * ny * nz), back(a.size());
    for (size_t i = 0; i < a.size(); ++i) a[i] = float(sin(0.3 * (i % nx)) * cos(0.2 * (i / nx % ny)) + 0.1 * (i / nx / ny));
    for (const Params& p : {rate(8), precision(16)}) {
        std::vector<uint8_t> ours(1 << 16), ref(1 << 16);
        State s;
        s.init(ours.data(), ours.size(), p);
        float block[64];
        for (int bz = 0; bz < nz; bz += 4)
            for (int by = 0; by < ny; by += 4)
                for (int bx = 0; bx < nx; bx += 4) {
                    int cx = std::min(nx - bx, 4), cy = std::min(ny - by, 4), cz = std::min(nz - bz, 4);
                    for (int z = 0; z < cz; ++z)
                        for (int y = 0; y < cy; ++y) {
                            for (int x = 0; x < cx; ++x)
                                block[16 * z + 4 * y + x] = a[(size_t)((bz + z) * ny + by + y) * nx + bx + x];
                            pad(&block[16 * z + 4 * y], cx, 1);
                        }
                    for (int z = 0; z < cz; ++z)
                        for (int x = 0; x < 4; ++x) pad(&block[16 * z + x], cy, 4);
                    for (int i = 0; i < 16; ++i) pad(&block[i], cz, 16);
                    ASSERT_EQ(zemsEncodeZfp444_32f(block, 16, 64, s.get()), zemStatusOk);
                }
        ASSERT_EQ(zemsEncodeZfpFlush_32f(s.get()), zemStatusOk);
        ours.resize(s.bytes());

        Ref r(ref.data(), ref.size(), p);
        zfp_field* f = zfp_field_3d(a.data(), zfp_type_float, nx, ny, nz);
        size_t n = zfp_compress(r.zs, f);
        ASSERT_EQ(word_padded(std::vector<uint8_t>(ref.begin(), ref.begin() + (long)n)), ours);
        memcpy(ref.data(), ours.data(), ours.size());  // zfp_decompress reads our stream
        zfp_field_set_pointer(f, back.data());
        zfp_stream_rewind(r.zs);
        EXPECT_EQ(zfp_decompress(r.zs, f), n);
        zfp_field_free(f);
        for (size_t i = 0; i < a.size(); ++i) ASSERT_NEAR(back[i], a[i], 0.05);
    }
}

TEST(ZfpDecode, TinyAndEmptyBlocks) {
    // Below 2^-97 the encoder's scale is held and the decoder returns zeros.
    auto tiny = make_blocks(20, 14, -126, -97);
    for (float f : ours_decode(ours_encode(tiny, precision(24)), 20, precision(24))) ASSERT_EQ(f, 0.0f);
    // An empty block padded to 64 bits takes exactly one word; the next one finds nothing.
    uint8_t word[8] = {};
    float block[64];
    memset(block, 0xff, sizeof block);
    State s;
    s.init(word, 8, {64, 64, 64, -10740});
    ASSERT_EQ(zemsDecodeZfp444_32f(s.get(), block, 16, 64), zemStatusOk);
    for (float f : block) ASSERT_EQ(f, 0.0f);
    EXPECT_EQ(s.bits(), 64u);
    EXPECT_EQ(zemsDecodeZfp444_32f(s.get(), block, 16, 64), zemStatusStreamEnd);
}

TEST(ZfpDecode, ByteEndedAndTruncatedStreams) {
    // Flushed byte-wise near the end of a short buffer, read back to exactly its last byte.
    auto blocks = make_blocks(30, 15);
    auto full = ours_encode(blocks, precision(14));
    auto expect = ours_decode(full, 30, precision(14));
    for (size_t cut = 1; cut < 8; ++cut) {
        std::vector<uint8_t> enc(full.size());
        State e;
        e.init(enc.data(), full.size() - cut, precision(14));
        for (size_t b = 0; b < 30; ++b) ASSERT_EQ(zemsEncodeZfp444_32f(&blocks[b * 64], 16, 64, e.get()), zemStatusOk);
        if (zemsEncodeZfpFlush_32f(e.get()) != zemStatusOk) continue;  // the last bits did not fit
        enc.resize(e.bytes());
        EXPECT_EQ(ours_decode(enc, 30, precision(14)), expect);
    }
    // Every truncation fails cleanly at the guard page.
    for (size_t len = 1; len < full.size(); len += 1 + len / 8) {
        zt::GuardedBuffer g(len);
        g.assign(full.data(), len);
        State d;
        d.init(g.data(), len, precision(14));
        float out[64];
        zemStatus st = zemStatusOk;
        for (int b = 0; b < 30 && st == zemStatusOk; ++b) st = zemsDecodeZfp444_32f(d.get(), out, 16, 64);
        EXPECT_EQ(st, zemStatusStreamEnd) << len;
    }
}

TEST(ZfpDecode, PaddingSkipRules) {
    uint8_t bytes[24];
    for (int i = 0; i < 24; ++i) bytes[i] = uint8_t(0x10 + i);
    bytes[0] = 0;  // an empty block: flag 0, then 99 bits of padding of which the first word holds 63
    uint64_t word, tail = 0;
    memcpy(&word, bytes + 8, 8);
    memcpy(&tail, bytes + 8, 5);
    float out[64];
    State s;
    s.init(bytes, 24, {100, 4171, 64, -10740});
    ASSERT_EQ(zemsDecodeZfp444_32f(s.get(), out, 16, 64), zemStatusOk);
    EXPECT_EQ(s.head().bitBuffer, word >> 36);
    EXPECT_EQ(s.head().bitCount, 28);
    EXPECT_EQ(s.bytes(), 16u);
    // Within the last 8 bytes the bytes are read whole and the buffer keeps its leading bits.
    s.init(bytes, 13, {100, 4171, 64, -10740});
    ASSERT_EQ(zemsDecodeZfp444_32f(s.get(), out, 16, 64), zemStatusOk);
    EXPECT_EQ(s.head().bitBuffer, tail);
    EXPECT_EQ(s.head().bitCount, 28);
    EXPECT_EQ(s.bytes(), 13u);
    s.init(bytes, 12, {100, 4171, 64, -10740});
    EXPECT_EQ(zemsDecodeZfp444_32f(s.get(), out, 16, 64), zemStatusStreamEnd);
    // Whole words are passed over unread; ending exactly at the end is fine, past it is not.
    s.init(bytes, 24, {192, 4171, 64, -10740});
    EXPECT_EQ(zemsDecodeZfp444_32f(s.get(), out, 16, 64), zemStatusOk);
    EXPECT_EQ(s.bytes(), 24u);
    s.init(bytes, 16, {192, 4171, 64, -10740});
    EXPECT_EQ(zemsDecodeZfp444_32f(s.get(), out, 16, 64), zemStatusStreamEnd);
}

TEST(ZfpDecode, ReadersAwayFromAndNearTheEndAgree) {
    // Bound to the stream's own length, the last few hundred bytes are read by the lazy reader;
    // with room behind, the same blocks are read by position. Values and the record after every
    // block must not tell the two apart, in every mode and with padding of any length.
    auto blocks = make_blocks(120, 17);
    zt::Rng r(18);
    for (const Params& p : {rate(3), rate(8), precision(16), precision(29), kDefault, Params{700, 1400, 20, -10740},
                            Params{(int32_t)r.below(900), 900, 32, -30}}) {
        auto enc = ours_encode(blocks, p);
        std::vector<uint8_t> roomy(enc);
        roomy.resize(enc.size() + 1024, 0x5a);
        State a, b;
        a.init(roomy.data(), roomy.size(), p);
        b.init(enc.data(), enc.size(), p);
        float va[64], vb[64];
        for (int i = 0; i < 120; ++i) {
            ASSERT_EQ(zemsDecodeZfp444_32f(a.get(), va, 16, 64), zemStatusOk);
            ASSERT_EQ(zemsDecodeZfp444_32f(b.get(), vb, 16, 64), zemStatusOk);
            ASSERT_EQ(0, memcmp(va, vb, sizeof va)) << p.maxBits << " block " << i;
            ASSERT_EQ(a.head().bitBuffer, b.head().bitBuffer) << p.maxBits << " block " << i;
            ASSERT_EQ(a.head().bitCount, b.head().bitCount) << p.maxBits << " block " << i;
            ASSERT_EQ(a.bytes(), b.bytes()) << p.maxBits << " block " << i;
        }
    }
}

TEST(ZfpDecode, HeldBitsComeFromTheRecord) {
    // Pending bits that are not those of the word before the position (a record changed by
    // hand) are still the next bits read, away from the end as near it.
    auto blocks = make_blocks(6, 19);
    auto enc = ours_encode(blocks, rate(8));
    std::vector<uint8_t> roomy(enc);
    roomy.resize(enc.size() + 1024);
    for (int32_t held : {1, 13, 40, 64}) {
        State a, b;
        a.init(roomy.data(), roomy.size(), rate(8));
        b.init(enc.data(), enc.size(), rate(8));
        float va[64], vb[64];
        for (State* s : {&a, &b}) {
            zem::zfp::Head h = s->head();
            h.pCur = h.pStart + 64;
            h.bitCount = held;
            h.bitBuffer = 0x9e3779b97f4a7c15ull;
            zem::zfp::store_head(s->get(), h);
        }
        for (int i = 0; i < 3; ++i) {
            ASSERT_EQ(zemsDecodeZfp444_32f(a.get(), va, 16, 64), zemStatusOk);
            ASSERT_EQ(zemsDecodeZfp444_32f(b.get(), vb, 16, 64), zemStatusOk);
            ASSERT_EQ(0, memcmp(va, vb, sizeof va)) << held << " block " << i;
            ASSERT_EQ(a.head().bitBuffer, b.head().bitBuffer) << held << " block " << i;
            ASSERT_EQ(a.head().bitCount, b.head().bitCount) << held << " block " << i;
            ASSERT_EQ(a.bytes(), b.bytes()) << held << " block " << i;
        }
    }
}

TEST(ZfpDecode, HostileInputStaysInBounds) {
    zt::Rng r(16);
    for (int t = 0; t < 300; ++t) {
        size_t len = 1 + r.below(600);
        auto junk = zt::random_bytes(len, 100 + t);
        zt::GuardedBuffer g(len);
        g.assign(junk.data(), len);
        State d;
        d.init(g.data(), len, {(int32_t)r.below(5000) - 100, (int32_t)r.below(3000), (int32_t)r.below(70) - 3,
                               (int32_t)r.below(300) - 150});
        float out[64];
        for (int b = 0; b < 50 && zemsDecodeZfp444_32f(d.get(), out, 16, 64) == zemStatusOk; ++b) {
        }
    }
}
