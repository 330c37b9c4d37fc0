// Inflate: the table builder, the resumable decoder and the raw/zlib/gzip stream on top of them.
#include <gtest/gtest.h>
#include <libdeflate.h>
#include <zlib.h>

#include <string>
#include <vector>

#include "deflate/inflate_tables.h"
#include "inflate_stream.h"
#include "test_util.h"
#include "zemdc.h"

using zem::stream::Format;
using zem::stream::InflateResult;
using Bytes = std::vector<uint8_t>;

namespace {

// ---- reference encoders ----

Bytes zlib_compress(const Bytes& in, Format f, int level, int strategy = Z_DEFAULT_STRATEGY) {
    z_stream z{};
    int wbits = f == Format::Raw ? -15 : f == Format::Zlib ? 15 : 31;
    EXPECT_EQ(deflateInit2(&z, level, Z_DEFLATED, wbits, 9, strategy), Z_OK);
    Bytes out(deflateBound(&z, in.size()) + 64);
    z.next_in = const_cast<uint8_t*>(in.data());
    z.avail_in = uInt(in.size());
    z.next_out = out.data();
    z.avail_out = uInt(out.size());
    EXPECT_EQ(deflate(&z, Z_FINISH), Z_STREAM_END);
    out.resize(z.total_out);
    deflateEnd(&z);
    return out;
}

Bytes libdeflate_compress(const Bytes& in, Format f, int level) {
    libdeflate_compressor* c = libdeflate_alloc_compressor(level);
    Bytes out(libdeflate_deflate_compress_bound(c, in.size()) + 64);
    size_t n = f == Format::Raw    ? libdeflate_deflate_compress(c, in.data(), in.size(), out.data(), out.size())
               : f == Format::Zlib ? libdeflate_zlib_compress(c, in.data(), in.size(), out.data(), out.size())
                                   : libdeflate_gzip_compress(c, in.data(), in.size(), out.data(), out.size());
    libdeflate_free_compressor(c);
    out.resize(n);
    return out;
}

// ---- our decoding ----

Bytes one_shot(Format f, const Bytes& comp, size_t cap, InflateResult want = InflateResult::End) {
    Bytes out(cap + 1);
    size_t n = 0;
    EXPECT_EQ(zem::stream::inflate_buffer(f, comp.data(), comp.size(), out.data(), cap, &n), want);
    out.resize(n);
    return out;
}

// Feeds input and offers output in random pieces of 1..max_piece bytes. With `contiguous` the
// output is one buffer (its earlier bytes serve as history), otherwise every piece is a fresh
// buffer and the stream keeps its window.
Bytes pieces(Format f, const Bytes& comp, size_t expect, uint64_t seed, uint32_t max_piece, bool contiguous) {
    zt::Rng r(seed);
    zem::stream::Inflater inf(f, contiguous);
    Bytes out(expect + 64);
    size_t in_pos = 0, out_pos = 0, in_avail = 0;
    for (int guard = 0; guard < 50000000; ++guard) {
        size_t add = 1 + r.below(max_piece);
        in_avail = std::min(comp.size() - in_pos, in_avail + add);
        size_t room = std::min(out.size() - out_pos, size_t(1 + r.below(max_piece)));
        Bytes scratch(room + 1);
        const uint8_t* ip = comp.data() + in_pos;
        size_t il = in_avail;
        uint8_t* op = contiguous ? out.data() + out_pos : scratch.data();
        size_t ol = room;
        InflateResult res = inf.run(ip, il, op, ol);
        size_t made = room - ol;
        if (!contiguous) memcpy(out.data() + out_pos, scratch.data(), made);
        in_pos += in_avail - il;
        in_avail = il;
        out_pos += made;
        if (res == InflateResult::End && in_pos == comp.size()) break;
        if (res != InflateResult::Ok && res != InflateResult::End) {
            ADD_FAILURE() << "stream failed at in " << in_pos << " out " << out_pos;
            break;
        }
    }
    out.resize(out_pos);
    return out;
}

Bytes text_like(size_t n, uint64_t seed) {
    static const char* words[] = {"the ", "inflate ", "window ", "of ", "and ", "stream ", "block ", "\n",
                                  "Huffman ", "code ", "length ", "distance ", "zemdc ", ", ", ". "};
    zt::Rng r(seed);
    Bytes v;
    while (v.size() < n) {
        const char* w = words[r.below(15)];
        v.insert(v.end(), w, w + strlen(w));
    }
    v.resize(n);
    return v;
}

std::vector<Bytes> sample_inputs() {
    Bytes mixed = zt::compressible_bytes(150000, 3);
    Bytes rnd = zt::random_bytes(3000, 4);
    mixed.insert(mixed.end(), rnd.begin(), rnd.end());
    return {text_like(200000, 1), mixed, zt::random_bytes(70000, 5), Bytes(100000, 'z'), Bytes{}, Bytes{42}};
}

}  // namespace

// ---------------------------------------------------------------- streams of the reference encoders

TEST(InflateStream, DecodesEveryZlibLevelStrategyAndFormat) {
    for (const Bytes& in : sample_inputs()) {
        for (Format f : {Format::Raw, Format::Zlib, Format::Gzip}) {
            for (int level = 0; level <= 9; ++level)
                ASSERT_EQ(one_shot(f, zlib_compress(in, f, level), in.size()), in) << level;
            for (int strategy : {Z_HUFFMAN_ONLY, Z_RLE, Z_FIXED})
                ASSERT_EQ(one_shot(f, zlib_compress(in, f, 6, strategy), in.size()), in) << strategy;
        }
    }
}

TEST(InflateStream, DecodesEveryLibdeflateLevel) {
    for (const Bytes& in : sample_inputs())
        for (Format f : {Format::Raw, Format::Zlib, Format::Gzip})
            for (int level = 1; level <= 12; ++level)
                ASSERT_EQ(one_shot(f, libdeflate_compress(in, f, level), in.size()), in) << level;
}

TEST(InflateStream, ResumesAtAnyByteWithAndWithoutWindow) {
    Bytes text = text_like(120000, 7);
    Bytes mixed = zt::compressible_bytes(90000, 8);
    uint64_t seed = 100;
    for (const Bytes* in : {&text, &mixed}) {
        std::vector<Bytes> streams = {zlib_compress(*in, Format::Gzip, 9), zlib_compress(*in, Format::Gzip, 1),
                                      zlib_compress(*in, Format::Gzip, 0), zlib_compress(*in, Format::Gzip, 6, Z_FIXED),
                                      libdeflate_compress(*in, Format::Gzip, 12)};
        for (const Bytes& comp : streams) {
            for (bool contiguous : {false, true}) {
                EXPECT_EQ(pieces(Format::Gzip, comp, in->size(), seed++, 1, contiguous), *in);
                EXPECT_EQ(pieces(Format::Gzip, comp, in->size(), seed++, 7, contiguous), *in);
                EXPECT_EQ(pieces(Format::Gzip, comp, in->size(), seed++, 3000, contiguous), *in);
            }
        }
    }
    Bytes z = zlib_compress(mixed, Format::Zlib, 6);
    EXPECT_EQ(pieces(Format::Zlib, z, mixed.size(), 1, 40, false), mixed);
}

TEST(InflateStream, GzipMembersFollowEachOther) {
    Bytes a = text_like(50000, 11), b = zt::compressible_bytes(40000, 12);
    Bytes comp = zlib_compress(a, Format::Gzip, 6);
    Bytes second = libdeflate_compress(b, Format::Gzip, 9);
    comp.insert(comp.end(), second.begin(), second.end());
    Bytes both = a;
    both.insert(both.end(), b.begin(), b.end());
    EXPECT_EQ(one_shot(Format::Gzip, comp, both.size()), both);
    EXPECT_EQ(pieces(Format::Gzip, comp, both.size(), 5, 13, false), both);
}

TEST(InflateStream, RefusesDamagedStreams) {
    Bytes in = text_like(30000, 2);
    Bytes gz = zlib_compress(in, Format::Gzip, 6);
    Bytes bad_crc = gz;
    bad_crc[bad_crc.size() - 6] ^= 1;
    one_shot(Format::Gzip, bad_crc, in.size(), InflateResult::BadData);
    Bytes bad_size = gz;
    bad_size[bad_size.size() - 2] ^= 1;
    one_shot(Format::Gzip, bad_size, in.size(), InflateResult::BadData);
    Bytes zl = zlib_compress(in, Format::Zlib, 6);
    Bytes bad_adler = zl;
    bad_adler.back() ^= 0x80;
    one_shot(Format::Zlib, bad_adler, in.size(), InflateResult::BadData);
    Bytes bad_header = zl;
    bad_header[1] ^= 1;  // the header check fails
    one_shot(Format::Zlib, bad_header, in.size(), InflateResult::BadData);
    // Short output and short input are told apart.
    one_shot(Format::Gzip, gz, in.size() - 1, InflateResult::DstTooSmall);
    one_shot(Format::Gzip, Bytes(gz.begin(), gz.end() - 1), in.size(), InflateResult::Truncated);
    // Random bytes after a valid header: the decoder stops cleanly, whatever it decides.
    for (uint64_t s = 0; s < 300; ++s) {
        Bytes junk = zt::random_bytes(200 + s, s);
        junk[0] = 0x78;
        junk[1] = 0x9c;
        Bytes out(1000);
        size_t n;
        InflateResult r = zem::stream::inflate_buffer(Format::Zlib, junk.data(), junk.size(), out.data(), out.size(), &n);
        EXPECT_NE(r, InflateResult::End);
    }
}

TEST(InflateStream, OutputEndingAtAGuardPage) {
    Bytes in = zt::compressible_bytes(60000, 21);
    for (Format f : {Format::Raw, Format::Gzip}) {
        for (int level : {1, 6, 9}) {
            Bytes comp = zlib_compress(in, f, level);
            zt::GuardedBuffer src(comp.size());
            src.assign(comp.data(), comp.size());
            zt::GuardedBuffer dst(in.size());
            size_t n = 0;
            ASSERT_EQ(zem::stream::inflate_buffer(f, src.data(), comp.size(), dst.data(), in.size(), &n),
                      InflateResult::End);
            ASSERT_EQ(n, in.size());
            ASSERT_EQ(memcmp(dst.data(), in.data(), n), 0);
            // Too little room, truncated and damaged input: stop without touching the guard.
            zt::GuardedBuffer small(in.size() / 2);
            EXPECT_EQ(zem::stream::inflate_buffer(f, src.data(), comp.size(), small.data(), small.size(), &n),
                      InflateResult::DstTooSmall);
            EXPECT_EQ(memcmp(small.data(), in.data(), small.size()), 0);
            for (size_t cut : {comp.size() / 3, comp.size() - 9}) {
                zt::GuardedBuffer part(cut);
                part.assign(comp.data(), cut);
                EXPECT_NE(zem::stream::inflate_buffer(f, part.data(), cut, dst.data(), in.size(), &n),
                          InflateResult::End);
            }
            zt::Rng r(level);
            for (int k = 0; k < 50; ++k) {
                Bytes dam = comp;
                dam[10 + r.below(uint32_t(dam.size() - 10))] ^= uint8_t(1 + r.below(255));
                zt::GuardedBuffer d2(dam.size());
                d2.assign(dam.data(), dam.size());
                (void)zem::stream::inflate_buffer(f, d2.data(), dam.size(), small.data(), small.size(), &n);
            }
        }
    }
}
