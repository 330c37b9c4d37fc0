// zfp blocks: the stream record, bit-exact agreement with libzfp in every mode, and the rules at
// the end of a buffer. Records are unaligned on purpose: they are plain caller memory.
#include <math.h>
#include <zfp.h>

#include <array>

#include "test_util.h"
#include "zfp/zfp_internal.h"

namespace {

using Params = std::array<int32_t, 4>;  // minBits, maxBits, maxPrec, minExp
const Params kDefault{0, 4171, 64, -10740};
Params rate(int r) { return {64 * r, 64 * r, 64, -10740}; }
Params precision(int p) { return {0, 4171, p, -10740}; }

struct State {
    Bytes mem = Bytes(577);
    zemZfpState* get() { return (zemZfpState*)(mem.data() + 1); }
    zem::zfp::Head head() { return zem::zfp::load_head(get()); }
    // Streams that are read are bound with the decode-side names, so both sets are exercised.
    void init(uint8_t* buf, size_t len, const Params& p, bool read = false) {
        ASSERT_EQ((read ? zemsDecodeZfpInit_32f : zemsEncodeZfpInit_32f)(buf, (int32_t)len, get()), zemStatusOk);
        ASSERT_EQ((read ? zemsDecodeZfpSet_32f : zemsEncodeZfpSet_32f)(p[0], p[1], p[2], p[3], get()), zemStatusOk);
    }
    zemStatus enc(const float* b) { return zemsEncodeZfp444_32f(b, 16, 64, get()); }
    zemStatus dec(float* b) { return zemsDecodeZfp444_32f(get(), b, 16, 64); }
    // A failed query reads as an impossible size.
    uint64_t bytes() { return size(zemsDecodeZfpGetDecompressedSizeLong_32f); }
    uint64_t bits() { return size(zemsEncodeZfpGetCompressedBitSize_32f); }
    uint64_t size(zemStatus (*f)(const zemZfpState*, uint64_t*)) { return f(get(), &last) == zemStatusOk ? last : ~0ull; }
    uint64_t last = 0;
    // What a reader carries from one block to the next.
    std::array<uint64_t, 3> reader() { return {head().bitBuffer, (uint64_t)head().bitCount, bytes()}; }
};

// Blocks of many shapes: smooth, noisy, signed, sparse, constant, wide and narrow magnitudes,
// each with its largest magnitude at 2^-96 or more (where libzfp's scale is still finite).
std::vector<float> make_blocks(size_t count, uint64_t seed, int min_exp = -90, int max_exp = 100) {
    zt::Rng r(seed);
    std::vector<float> v(count * 64);
    for (size_t b = 0; b < count; ++b) {
        int kind = (int)r.below(7);
        float mag = ldexpf(1.0f, min_exp + (int)r.below((uint32_t)(max_exp - min_exp))), top = 0;
        double fx = r.below(100) / 50.0, fy = r.below(100) / 50.0, fz = r.below(100) / 50.0;
        for (int i = 0; i < 64; ++i) {
            double u = double(r.next() >> 11) / 9007199254740992.0 - 0.5;
            double smooth = sin(fx * (i & 3) + fy * ((i >> 2) & 3) + fz * (i >> 4) + b);
            double k[] = {smooth, smooth + 0.01 * u, u, r.below(8) ? 0.0 : u, 1.0,
                          u * ldexp(1.0, -(int)r.below(40)), i == 63 ? -1.0 : 1e-3 * smooth};
            v[b * 64 + i] = float(mag * k[kind]);
            top = fmaxf(top, fabsf(v[b * 64 + i]));
        }
        if (top < ldexpf(1.0f, min_exp < -96 ? -200 : -96)) v[b * 64] = mag;
    }
    return v;
}

// libzfp with the same parameters; it writes bytes and ends its stream on a byte, ours ends on
// a word, so its stream padded with zero bytes to a word is ours.
struct Ref {
    bitstream* bs;
    zfp_stream* zs;
    Ref(void* buf, size_t n, const Params& p) : bs(stream_open(buf, n)), zs(zfp_stream_open(bs)) {
        EXPECT_TRUE(zfp_stream_set_params(zs, (uint)p[0], (uint)p[1], (uint)p[2], std::max(p[3], ZFP_MIN_EXP)));
    }
    ~Ref() { zfp_stream_close(zs), stream_close(bs); }
};

// The first n bytes of a zeroed buffer that libzfp wrote, padded to whole words.
Bytes word_padded(const Bytes& v, size_t n) { return {v.begin(), v.begin() + ((n + 7) & ~7l)}; }

Bytes ours_encode(const std::vector<float>& blocks, const Params& p) {
    Bytes out(blocks.size() * 10 + 64);
    State s;
    s.init(out.data(), out.size(), p);
    for (size_t b = 0; b < blocks.size() / 64; ++b) EXPECT_EQ(s.enc(&blocks[b * 64]), zemStatusOk);
    EXPECT_EQ(zemsEncodeZfpFlush_32f(s.get()), zemStatusOk);
    out.resize(s.bytes());
    return out;
}

// Read twice: from a buffer that ends at a guard page, so the last blocks are read near the end
// and reading past the stream's last byte faults, and from one with room behind, so every block
// is read away from the end. Values and the reader's record must not tell the two apart (the
// record only while the stream ends on a word: a byte-ended one is read by bytes at its end).
// With `held`, both start a word in with that many pending bits that are not those of the word
// before (a record changed by hand): they are still the next bits read.
std::vector<float> ours_decode(const Bytes& stream, size_t count, const Params& p, int held = 0) {
    zt::GuardedBuffer g(stream);
    Bytes roomy(stream);
    roomy.resize(stream.size() + 1024, 0x5a);
    std::vector<float> out(count * 64), far(64);
    State s, a;
    s.init(g.data(), stream.size(), p, true);
    a.init(roomy.data(), roomy.size(), p, true);
    for (State* x : {&s, &a}) {
        zem::zfp::Head h = x->head();
        if (held) h.pCur = h.pStart + 64, h.bitCount = held, h.bitBuffer = 0x9e3779b97f4a7c15ull;
        zem::zfp::store_head(x->get(), h);
    }
    for (size_t b = 0; b < count; ++b) {
        EXPECT_EQ(s.dec(&out[b * 64]), zemStatusOk);
        EXPECT_EQ(a.dec(far.data()), zemStatusOk);
        EXPECT_EQ(0, memcmp(far.data(), &out[b * 64], 256)) << "block " << b;
        if (stream.size() % 8 == 0) EXPECT_EQ(s.reader(), a.reader()) << "block " << b;
    }
    return out;
}

void expect_interop(const std::vector<float>& blocks, const Params& p, const char* what) {
    size_t count = blocks.size() / 64;
    Bytes ref(blocks.size() * 10 + 64);
    Ref e(ref.data(), ref.size(), p);
    for (size_t b = 0; b < count; ++b) zfp_encode_block_float_3(e.zs, &blocks[b * 64]);
    zfp_stream_flush(e.zs);
    size_t n = zfp_stream_compressed_size(e.zs);
    auto ours = ours_encode(blocks, p);
    ASSERT_EQ(ours, word_padded(ref, n)) << what << " " << p[0] << " " << p[1] << " " << p[2];

    std::vector<float> theirs(blocks.size());
    Ref d(ours.data(), ours.size(), p);
    for (size_t b = 0; b < count; ++b) zfp_decode_block_float_3(d.zs, &theirs[b * 64]);
    // Padding that ends within the last 8 bytes is defined to leave the reader on the skipped
    // bits, so a byte-ended stream with padding is read from a whole-word buffer.
    auto back = ours_decode(p[0] <= 1 ? Bytes(ref.begin(), ref.begin() + n) : ours, count, p);
    ASSERT_EQ(0, memcmp(back.data(), theirs.data(), back.size() * 4)) << what << ": not the same bits";
}

}  // namespace

TEST(ZfpState, ArgumentsTagAndParameters) {
    int32_t size = 0, n32;
    uint64_t n64;
    EXPECT_EQ(zemsEncodeZfpGetStateSize_32f(&size), zemStatusOk);
    EXPECT_EQ(size, 576);
    EXPECT_EQ(zemsDecodeZfpGetStateSize_32f(nullptr), zemStatusNullPtr);
    State s;
    uint8_t buf[64];
    float block[64] = {};
    // Pointers before lengths; the 64-bit Init rejects only 0 (its -1 is taken up below).
    const std::vector<zemStatus> init{zemsEncodeZfpInit_32f(nullptr, 0, s.get()), zemsEncodeZfpInit_32f(buf, 64, nullptr),
                                      zemsEncodeZfpInit_32f(buf, 0, s.get()), zemsEncodeZfpInit_32f(buf, -1, s.get()),
                                      zemsEncodeZfpInitLong_32f(buf, 0, s.get())};
    EXPECT_EQ(init, (std::vector<zemStatus>{zemStatusNullPtr, zemStatusNullPtr, zemStatusSize, zemStatusSize, zemStatusSize}));
    // A failed Init leaves the record untagged; a tag overwritten after a good one counts alike.
    for (int clobbered = 0; clobbered < 2; ++clobbered) {
        const zemStatus st[] = {zemsEncodeZfpSet_32f(0, 64, 32, 0, s.get()), zemsEncodeZfpSetAccuracy_32f(1.0, s.get()),
                                zemsEncodeZfpFlush_32f(s.get()), zemsEncodeZfpGetCompressedSize_32f(s.get(), &n32),
                                zemsEncodeZfpGetCompressedSizeLong_32f(s.get(), &n64),
                                zemsEncodeZfpGetCompressedBitSize_32f(s.get(), &n64), s.enc(block), s.dec(block)};
        for (zemStatus x : st) EXPECT_EQ(x, zemStatusContextMismatch) << clobbered;
        ASSERT_EQ(zemsEncodeZfpInit_32f(buf, 64, s.get()), zemStatusOk);
        memset(s.mem.data() + 1, 0x55, 4);
    }
    EXPECT_EQ(zemsEncodeZfp444_32f(nullptr, 16, 64, s.get()), zemStatusNullPtr);  // before the tag
    EXPECT_EQ(zemsDecodeZfp444_32f(s.get(), nullptr, 16, 64), zemStatusNullPtr);
    EXPECT_EQ(zemsEncodeZfpGetCompressedBitSize_32f(s.get(), nullptr), zemStatusNullPtr);

    s.init(buf, 64, {1, 513, 3, 4});
    const std::pair<double, int32_t> acc[] = {{0.5, -1},     {1e-3, -10},     {1.0, 0},        {1.99, 0},   {1e300, 996},
                                              {4e-320, -1023}, {0.0, -10740}, {-2.0, -10740}, {NAN, -10740}};
    for (auto [tol, minExp] : acc) {
        EXPECT_EQ(zemsDecodeZfpSetAccuracy_32f(tol, s.get()), zemStatusOk);
        EXPECT_EQ(s.head().minExp, minExp) << tol;
    }
    // Init resets every parameter to its default.
    ASSERT_EQ(zemsDecodeZfpInitLong_32f(buf, 64, s.get()), zemStatusOk);
    auto h = s.head();
    EXPECT_EQ((Params{h.minBits, h.maxBits, h.maxPrec, h.minExp}), kDefault);
}

TEST(ZfpState, FlushSizesAndHeaderBudgets) {
    float zeros[64] = {}, ones[64];
    std::fill(ones, ones + 64, 1.0f);
    uint8_t buf[24];
    // A flush pads to a whole word while one fits, else ends on the byte that holds the last bit,
    // and with no room left keeps the bits it could not write. Budgets libzfp is not asked about:
    // a header cut by maxBits below 9 is still written whole.
    // block, how many, parameters, buffer length, bits before the flush, its status, bytes and bits after
    const Params pad100{100, 4171, 64, -10740};
    const std::tuple<const float*, int, Params, size_t, uint64_t, zemStatus, int32_t, uint64_t> cases[] = {
        {zeros, 0, kDefault, 24, 0, zemStatusOk, 0, 0},         {zeros, 3, kDefault, 24, 3, zemStatusOk, 8, 64},
        {zeros, 1, pad100, 12, 100, zemStatusStreamEnd, 12, 100}, {zeros, 1, pad100, 13, 100, zemStatusOk, 13, 104},
        {zeros, 1, rate(1), 24, 64, zemStatusOk, 8, 64},        {ones, 1, {0, 1, 64, -10740}, 24, 9, zemStatusOk, 8, 64},
        {ones, 1, {0, 4171, 0, -10740}, 24, 1, zemStatusOk, 8, 64}};
    State s;
    for (auto& [block, count, p, len, bits, flush, bytes, bitsAfter] : cases) {
        s.init(buf, len, p);
        for (int i = 0; i < count; ++i) ASSERT_EQ(s.enc(block), zemStatusOk);
        EXPECT_EQ(s.bits(), bits) << p[1] << " " << p[2] << " " << len;
        EXPECT_EQ(s.bytes(), bits / 64 * 8) << "whole words are stored as they fill";
        EXPECT_EQ(zemsEncodeZfpFlush_32f(s.get()), flush) << len;
        int32_t n32 = -1;
        EXPECT_EQ(zemsDecodeZfpGetDecompressedSize_32f(s.get(), &n32), zemStatusOk);
        EXPECT_EQ(n32, bytes) << len;
        EXPECT_EQ(s.bits(), bitsAfter) << len;
    }
    // A stream bound with a negative 64-bit length fails on its first word.
    ASSERT_EQ(zemsEncodeZfpInitLong_32f(buf + 16, -1, s.get()), zemStatusOk);
    ASSERT_EQ(zemsEncodeZfpSet_32f(64, 64, 64, -10740, s.get()), zemStatusOk);
    EXPECT_EQ(s.enc(zeros), zemStatusStreamEnd);
}

TEST(ZfpEncode, GuardedBuffers) {
    // A guarded output: a word that does not fit is refused, never written past the end, and
    // the words before it stay. Within the last word the flush ends on a byte, and that stream
    // reads back to exactly its last byte.
    auto many = make_blocks(40, 8);
    auto full = ours_encode(many, precision(12));
    auto expect = ours_decode(full, 40, precision(12));
    State s;
    s.init(full.data(), full.size(), precision(12));
    for (size_t b = 0; b < 40; ++b) s.enc(&many[b * 64]);
    uint64_t need = (s.bits() + 7) / 8;  // bytes that hold every bit of the stream
    float scratch[64];
    // Lengths spread up to need - 1, then every one up to the stream's own.
    for (size_t len = 1; len < full.size(); len += len + 1 >= need ? 1 : std::min<size_t>(1 + len / 8, need - 1 - len)) {
        zt::GuardedBuffer g(len), t(len);
        s.init(g.data(), len, precision(12));
        zemStatus st = zemStatusOk, rd = zemStatusOk;
        for (size_t b = 0; b < 40 && st == zemStatusOk; ++b) st = s.enc(&many[b * 64]);
        if (st == zemStatusOk) st = zemsEncodeZfpFlush_32f(s.get());
        EXPECT_EQ(st, len >= need ? zemStatusOk : zemStatusStreamEnd) << len;
        EXPECT_EQ(0, memcmp(g.data(), full.data(), s.bytes() & ~7ul));
        if (st == zemStatusOk) EXPECT_EQ(ours_decode({g.data(), g.data() + s.bytes()}, 40, precision(12)), expect);
        // The stream cut to the same length is read up to its guard page, and no further.
        t.assign(full.data(), len);
        s.init(t.data(), len, precision(12), true);
        for (size_t b = 0; b < 40 && rd == zemStatusOk; ++b) rd = s.dec(scratch);
        EXPECT_EQ(rd, len >= need ? zemStatusOk : zemStatusStreamEnd) << len;
    }
}

TEST(ZfpInterop, BitExactWithLibzfpInEveryMode) {
    auto blocks = make_blocks(300, 11);
    for (int r : {1, 2, 3, 4, 8, 12, 16, 24, 32}) expect_interop(blocks, rate(r), "rate");
    for (int p : {1, 2, 5, 8, 16, 20, 31, 32}) expect_interop(blocks, precision(p), "precision");
    for (double tol : {1e-7, 1e-3, 0.5, 3.0, 1e3}) expect_interop(blocks, {0, 4171, 64, (int32_t)floor(log2(tol))}, "accuracy");
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
    big[5] = -3.4e38f, big[9] = 1.0f;
    expect_interop(big, precision(32), "huge");
    // Below 2^-97 the encoder's scale is held and the decoder returns zeros.
    for (float f : ours_decode(ours_encode(make_blocks(20, 14, -126, -97), precision(24)), 20, precision(24))) ASSERT_EQ(f, 0.0f);
}

TEST(ZfpInterop, WholeArrayMatchesZfpCompressBothWays) {
    // The array is walked bottom-up (negative row and plane strides) by both libraries, our
    // blocks taken from it and written back to it in place.
    const int nx = 12, ny = 8, nz = 8, sy = -nx, sz = -nx * ny;
    std::vector<float> a((size_t)nx * ny * nz), back(a.size()), mine(a.size());
    for (size_t i = 0; i < a.size(); ++i) a[i] = float(sin(0.3 * (i % nx)) * cos(0.2 * (i / nx % ny)) + 0.1 * (i / nx / ny));
    auto at = [&](std::vector<float>& v, int b) {  // the first value of block b in libzfp's order
        int bx = b % (nx / 4) * 4, by = b / (nx / 4) % (ny / 4) * 4, bz = b / (nx / 4) / (ny / 4) * 4;
        return &v[(size_t)((nz - 1 - bz) * ny + ny - 1 - by) * nx + bx];
    };
    for (const Params& p : {rate(8), precision(16)}) {
        Bytes ours(1 << 16), ref(1 << 16);
        State s;
        s.init(ours.data(), ours.size(), p);
        for (int b = 0; b < nx * ny * nz / 64; ++b) ASSERT_EQ(zemsEncodeZfp444_32f(at(a, b), sy * 4, sz * 4, s.get()), zemStatusOk);
        ASSERT_EQ(zemsEncodeZfpFlush_32f(s.get()), zemStatusOk);
        ours.resize(s.bytes());
        Ref r(ref.data(), ref.size(), p);
        zfp_field* f = zfp_field_3d(at(a, 0), zfp_type_float, nx, ny, nz);
        zfp_field_set_stride_3d(f, 1, sy, sz);
        size_t n = zfp_compress(r.zs, f);
        ASSERT_EQ(word_padded(ref, n), ours);
        memcpy(ref.data(), ours.data(), ours.size());  // zfp_decompress reads our stream
        zfp_field_set_pointer(f, at(back, 0));
        zfp_stream_rewind(r.zs);
        EXPECT_EQ(zfp_decompress(r.zs, f), n);
        zfp_field_free(f);
        s.init(ours.data(), ours.size(), p, true);
        for (int b = 0; b < nx * ny * nz / 64; ++b) ASSERT_EQ(zemsDecodeZfp444_32f(s.get(), at(mine, b), sy * 4, sz * 4), zemStatusOk);
        EXPECT_EQ(0, memcmp(mine.data(), back.data(), a.size() * 4));
        for (size_t i = 0; i < a.size(); ++i) ASSERT_NEAR(back[i], a[i], 0.05);
    }
}

TEST(ZfpDecode, PaddingSkipsAndHeldBits) {
    uint8_t bytes[24];
    for (int i = 0; i < 24; ++i) bytes[i] = uint8_t(0x10 + i);
    bytes[0] = 0;  // an empty block: flag 0, then 99 bits of padding of which the first word holds 63
    uint64_t word, tail = 0;
    memcpy(&word, bytes + 8, 8);
    memcpy(&tail, bytes + 8, 5);
    // Away from the end the skipped bits are shifted out; within the last 8 bytes the bytes are
    // read whole and the buffer keeps its leading bits. Whole words are passed over unread,
    // ending exactly at the end is fine, past it is not.
    const std::tuple<int, size_t, zemStatus, std::array<uint64_t, 3>> cases[] = {
        {100, 24, zemStatusOk, {word >> 36, 28, 16}}, {100, 13, zemStatusOk, {tail, 28, 13}}, {100, 12, zemStatusStreamEnd, {}},
        {192, 24, zemStatusOk, {0, 0, 24}},           {192, 16, zemStatusStreamEnd, {}},      {64, 8, zemStatusOk, {0, 0, 8}}};
    for (auto& [minBits, len, st, reader] : cases) {
        float out[64];
        State s;
        s.init(bytes, len, {minBits, 4171, 64, -10740}, true);
        ASSERT_EQ(s.dec(out), st) << minBits << " " << len;
        if (st == zemStatusOk) EXPECT_EQ(s.reader(), reader) << minBits << " " << len;
        if (st == zemStatusOk) EXPECT_EQ(std::vector<float>(out, out + 64), std::vector<float>(64)) << "an empty block is zeros";
        if (minBits == 64) EXPECT_EQ(s.dec(out), zemStatusStreamEnd) << "a word-sized empty block takes the whole word";
    }
    auto six = ours_encode(make_blocks(6, 19), rate(8));
    for (int held : {1, 13, 40, 64}) ours_decode(six, 3, rate(8), held);
}
