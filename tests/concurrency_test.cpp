// Every family called from several threads at once, each with its own states, tables and output
// buffers over one shared read-only input: the results must equal a single-threaded run. Under
// the tsan preset this is the suite that proves the library keeps no shared mutable state.
#include <gtest/gtest.h>
#include <zlib.h>

#include <functional>
#include <thread>
#include <vector>

#include "bz2_reader.h"
#include "bz2_writer.h"
#include "core/mem.h"
#include "deflate_stream.h"
#include "inflate_stream.h"
#include "test_util.h"
#include "zemdc.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Job = std::function<Bytes(const Bytes& input)>;

constexpr int kThreads = 4;
constexpr int kRounds = 3;

const Bytes& shared_input() {
    static const Bytes data = zt::compressible_bytes(300000, 2024);
    return data;
}

// Runs job once alone, then kThreads times at once (kRounds each), and compares every result.
void expect_same_under_threads(const Job& job) {
    const Bytes& in = shared_input();
    const Bytes alone = job(in);
    ASSERT_FALSE(alone.empty());
    std::vector<std::vector<Bytes>> got(kThreads);
    std::vector<std::thread> pool;
    for (int t = 0; t < kThreads; ++t)
        pool.emplace_back([&, t] {
            for (int r = 0; r < kRounds; ++r) got[t].push_back(job(in));
        });
    for (auto& th : pool) th.join();
    for (int t = 0; t < kThreads; ++t)
        for (const Bytes& b : got[t]) EXPECT_EQ(b, alone) << "thread " << t;
}

Bytes word(uint32_t v) { return Bytes{uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)}; }

}  // namespace

TEST(Concurrency, Checksums) {
    expect_same_under_threads([](const Bytes& in) {
        Bytes out;
        const int32_t n = int32_t(in.size());
        uint32_t a = 1, c = 0, cc = 0, bz = 0xFFFFFFFFu;
        for (int32_t step : {n, 64, 1000, 4096}) {
            for (int32_t i = 0; i < n; i += step) {
                const int32_t len = std::min(step, n - i);
                EXPECT_EQ(zemsAdler32_8u(in.data() + i, len, &a), zemStatusOk);
                EXPECT_EQ(zemsCRC32_8u(in.data() + i, len, &c), zemStatusOk);
                EXPECT_EQ(zemsCRC32C_8u(in.data() + i, len, &cc), zemStatusOk);
                EXPECT_EQ(zemsCRC32_BZ2_8u(in.data() + i, len, &bz), zemStatusOk);
            }
            for (uint32_t v : {a, c, cc, bz}) {
                Bytes w = word(v);
                out.insert(out.end(), w.begin(), w.end());
            }
        }
        return out;
    });
}

TEST(Concurrency, MemoryKernels) {
    expect_same_under_threads([](const Bytes& in) {
        Bytes out(in.size() + 64);
        zem::MemCopy(in.data(), out.data() + 3, int32_t(in.size()));
        zem::MemZero(out.data() + 1000, 40000);
        zem::MemFill(0x5A, out.data() + 50000, 70000);
        return out;
    });
}

TEST(Concurrency, Lz4EncodeDecode) {
    expect_same_under_threads([](const Bytes& in) {
        int32_t table_size = 0;
        zemsEncodeLZ4HashTableGetSize_8u(&table_size);
        Bytes table(static_cast<size_t>(table_size)), comp(in.size() + in.size() / 255 + 16), back(in.size());
        const int32_t n = int32_t(in.size());
        int32_t clen = int32_t(comp.size());
        EXPECT_EQ(zemsEncodeLZ4HashTableInit_8u(table.data(), n), zemStatusOk);
        EXPECT_EQ(zemsEncodeLZ4_8u(in.data(), n, comp.data(), &clen, table.data()), zemStatusOk);
        int32_t dlen = n;
        EXPECT_EQ(zemsDecodeLZ4_8u(comp.data(), clen, back.data(), &dlen), zemStatusOk);
        EXPECT_EQ(back, in);
        comp.resize(size_t(clen));
        return comp;
    });
}

TEST(Concurrency, Lz4HighCompression) {
    expect_same_under_threads([](const Bytes& in) {
        int32_t hs = 0, cs = 0;
        zemsEncodeLZ4HCHashTableGetSize_8u(&hs, &cs);
        Bytes hash(static_cast<size_t>(hs)), chain(static_cast<size_t>(cs)), comp(in.size() + in.size() / 255 + 16);
        uint8_t* tables[2] = {hash.data(), chain.data()};
        EXPECT_EQ(zemsEncodeLZ4HCHashTableInit_8u(tables), zemStatusOk);
        int32_t slen = 100000, clen = int32_t(comp.size());
        EXPECT_EQ(zemsEncodeLZ4HC_8u(in.data(), 0, &slen, comp.data(), &clen, tables, nullptr, 0, 9), zemStatusOk);
        comp.resize(size_t(clen));
        return comp;
    });
}

TEST(Concurrency, Inflate) {
    const Bytes& in = shared_input();
    uLongf zlen = compressBound(uLong(in.size()));
    Bytes z(zlen);
    ASSERT_EQ(compress2(z.data(), &zlen, in.data(), uLong(in.size()), 6), Z_OK);
    z.resize(zlen);
    expect_same_under_threads([&z](const Bytes& orig) {
        Bytes out(orig.size());
        size_t n = 0;
        EXPECT_EQ(zem::stream::inflate_buffer(zem::stream::Format::Zlib, z.data(), z.size(), out.data(), out.size(), &n),
                  zem::stream::InflateResult::End);
        out.resize(n);
        EXPECT_EQ(out, orig);
        return out;
    });
}

TEST(Concurrency, Zfp) {
    expect_same_under_threads([](const Bytes& in) {
        int32_t state_size = 0;
        zemsEncodeZfpGetStateSize_32f(&state_size);
        Bytes enc_state(static_cast<size_t>(state_size)), dec_state(static_cast<size_t>(state_size)), stream(1 << 16);
        auto* es = reinterpret_cast<zemZfpState*>(enc_state.data());
        auto* ds = reinterpret_cast<zemZfpState*>(dec_state.data());
        // Floats made from the shared bytes: 32 blocks of 64 finite values.
        std::vector<float> src(64 * 32), back(64 * 32);
        for (size_t i = 0; i < src.size(); ++i) src[i] = float(in[i]) * 0.25f - float(in[i + 7]);
        EXPECT_EQ(zemsEncodeZfpInit_32f(stream.data(), int32_t(stream.size()), es), zemStatusOk);
        EXPECT_EQ(zemsEncodeZfpSet_32f(1, 1024, 32, -1074, es), zemStatusOk);
        for (size_t b = 0; b < 32; ++b) EXPECT_EQ(zemsEncodeZfp444_32f(&src[b * 64], 16, 64, es), zemStatusOk);
        EXPECT_EQ(zemsEncodeZfpFlush_32f(es), zemStatusOk);
        int32_t used = 0;
        EXPECT_EQ(zemsEncodeZfpGetCompressedSize_32f(es, &used), zemStatusOk);
        EXPECT_EQ(zemsDecodeZfpInit_32f(stream.data(), used, ds), zemStatusOk);
        EXPECT_EQ(zemsDecodeZfpSet_32f(1, 1024, 32, -1074, ds), zemStatusOk);
        for (size_t b = 0; b < 32; ++b) EXPECT_EQ(zemsDecodeZfp444_32f(ds, &back[b * 64], 16, 64), zemStatusOk);
        Bytes out(stream.begin(), stream.begin() + used);
        const auto* f = reinterpret_cast<const uint8_t*>(back.data());
        out.insert(out.end(), f, f + back.size() * 4);
        return out;
    });
}

TEST(Concurrency, DeflateEveryParse) {
    expect_same_under_threads([](const Bytes& in) {
        Bytes all;
        for (int level : {1, 3, 6, 9}) {
            Bytes out(zem::stream::deflate_bound(in.size()));
            size_t n = 0;
            EXPECT_TRUE(zem::stream::deflate_buffer(zem::stream::Format::Zlib, level, in.data(), in.size(), out.data(),
                                                    out.size(), &n));
            all.insert(all.end(), out.begin(), out.begin() + ptrdiff_t(n));
        }
        return all;
    });
}

TEST(Concurrency, BlockSortingBothWays) {
    expect_same_under_threads([](const Bytes& in) {
        Bytes comp = zem::stream::bz2_compress(in.data(), in.size(), 1);
        Bytes back(in.size());
        size_t n = 0;
        EXPECT_EQ(zem::stream::bz2_decompress(comp.data(), comp.size(), back.data(), back.size(), &n),
                  zem::stream::Bz2Result::End);
        EXPECT_EQ(n, in.size());
        EXPECT_EQ(back, in);
        return comp;
    });
}

TEST(Concurrency, LzoEveryMethod) {
    expect_same_under_threads([](const Bytes& in) {
        Bytes all;
        const uint32_t n = uint32_t(in.size());
        for (zemLZOMethod m : {zemLZOFast, zemLZOStrong, zemLZOSegmented}) {
            uint32_t size = 0;
            EXPECT_EQ(zemsEncodeLZOGetSize(m, n, &size), zemStatusOk);
            std::vector<uint64_t> state(size / 8 + 1);
            auto* st = reinterpret_cast<zemLZOState_8u*>(state.data());
            EXPECT_EQ(zemsEncodeLZOInit_8u(m, n, st), zemStatusOk);
            Bytes comp(ZEM_LZO_BOUND(n)), back(n);
            uint32_t clen = uint32_t(comp.size()), dlen = n;
            EXPECT_EQ(zemsEncodeLZO_8u(in.data(), n, comp.data(), &clen, st), zemStatusOk);
            EXPECT_EQ(zemsDecodeLZOSafe_8u(comp.data(), clen, back.data(), &dlen), zemStatusOk);
            EXPECT_EQ(back, in);
            all.insert(all.end(), comp.begin(), comp.begin() + clen);
        }
        return all;
    });
}

TEST(Concurrency, Lzss) {
    expect_same_under_threads([](const Bytes& in) {
        int32_t size = 0;
        zemsLZSSGetSize_8u(&size);
        Bytes enc(static_cast<size_t>(size)), dec(static_cast<size_t>(size));
        auto* es = reinterpret_cast<zemLZSSState_8u*>(enc.data());
        auto* ds = reinterpret_cast<zemLZSSState_8u*>(dec.data());
        EXPECT_EQ(zemsEncodeLZSSInit_8u(es), zemStatusOk);
        EXPECT_EQ(zemsDecodeLZSSInit_8u(ds), zemStatusOk);
        Bytes comp(ZEM_LZSS_BOUND(in.size()) + 8), back(in.size());
        const uint8_t* src = in.data();
        int32_t src_len = int32_t(in.size()), room = int32_t(comp.size());
        uint8_t* dst = comp.data();
        EXPECT_EQ(zemsEncodeLZSS_8u(&src, &src_len, &dst, &room, es), zemStatusOk);
        EXPECT_EQ(zemsEncodeLZSSFlush_8u(&dst, &room, es), zemStatusOk);
        comp.resize(size_t(dst - comp.data()));
        const uint8_t* csrc = comp.data();
        int32_t clen = int32_t(comp.size()), out_room = int32_t(back.size());
        uint8_t* out = back.data();
        EXPECT_EQ(zemsDecodeLZSS_8u(&csrc, &clen, &out, &out_room, ds), zemStatusOk);
        EXPECT_EQ(back, in);
        return comp;
    });
}
