// Every family called from several threads at once, each with its own states, tables and output
// buffers over one shared read-only input: the results must equal a single-threaded run. Under
// the tsan preset this is the suite that proves the library keeps no shared mutable state.
#include <functional>
#include <thread>

#include "bz2_reader.h"
#include "bz2_writer.h"
#include "core/mem.h"
#include "deflate_stream.h"
#include "inflate_stream.h"
#include "test_util.h"

namespace {

using Job = std::function<Bytes(const Bytes& input)>;

constexpr int kThreads = 4;
constexpr int kRounds = 3;

void append_word(Bytes& out, uint32_t v) {
    for (int k = 0; k < 4; ++k) out.push_back(uint8_t(v >> 8 * k));
}

const struct {
    const char* name;
    Job job;
} kJobs[] = {
    {"checksums",
     [](const Bytes& in) {
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
             for (uint32_t v : {a, c, cc, bz}) append_word(out, v);
         }
         return out;
     }},
    {"memory kernels",
     [](const Bytes& in) {
         Bytes out(in.size() + 64);
         zem::MemCopy(in.data(), out.data() + 3, int32_t(in.size()));
         zem::MemZero(out.data() + 1000, 40000);
         zem::MemFill(0x5A, out.data() + 50000, 70000);
         return out;
     }},
    {"lz4 both ways",
     [](const Bytes& in) {
         const int32_t n = int32_t(in.size());
         Bytes table(16384), comp(ZEM_LZ4_BOUND(in.size())), back(in.size());
         int32_t clen = int32_t(comp.size()), dlen = n;
         EXPECT_EQ(zemsEncodeLZ4HashTableInit_8u(table.data(), n), zemStatusOk);
         EXPECT_EQ(zemsEncodeLZ4_8u(in.data(), n, comp.data(), &clen, table.data()), zemStatusOk);
         EXPECT_EQ(zemsDecodeLZ4_8u(comp.data(), clen, back.data(), &dlen), zemStatusOk);
         EXPECT_EQ(back, in);
         comp.resize(size_t(clen));
         return comp;
     }},
    {"lz4 high compression",
     [](const Bytes& in) {
         Bytes hash(131072), chain(262144), comp(ZEM_LZ4_BOUND(in.size()));
         uint8_t* tables[2] = {hash.data(), chain.data()};
         EXPECT_EQ(zemsEncodeLZ4HCHashTableInit_8u(tables), zemStatusOk);
         int32_t slen = 100000, clen = int32_t(comp.size());
         EXPECT_EQ(zemsEncodeLZ4HC_8u(in.data(), 0, &slen, comp.data(), &clen, tables, nullptr, 0, 9), zemStatusOk);
         comp.resize(size_t(clen));
         return comp;
     }},
    {"inflate",
     [](const Bytes& in) {
         static const Bytes z = zt::zlib_deflate(in, 15);  // made by the first run, the one alone
         Bytes out(in.size());
         size_t n = 0;
         using zem::stream::Format;
         EXPECT_EQ(zem::stream::inflate_buffer(Format::Zlib, z.data(), z.size(), out.data(), out.size(), &n),
                   zem::stream::InflateResult::End);
         out.resize(n);
         EXPECT_EQ(out, in);
         return out;
     }},
    {"zfp",
     [](const Bytes& in) {
         Bytes enc_state(576), dec_state(576), stream(1 << 16);
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
         stream.resize(size_t(used));
         const auto* f = reinterpret_cast<const uint8_t*>(back.data());
         return zt::cat(stream, Bytes(f, f + back.size() * 4));
     }},
    {"deflate, every parse",
     [](const Bytes& in) {
         Bytes all;
         for (int level : {1, 3, 6, 9}) {
             Bytes out(zem::stream::deflate_bound(in.size()));
             size_t n = 0;
             EXPECT_TRUE(zem::stream::deflate_buffer(zem::stream::Format::Zlib, level, in.data(), in.size(), out.data(),
                                                     out.size(), &n));
             all.insert(all.end(), out.begin(), out.begin() + ptrdiff_t(n));
         }
         return all;
     }},
    {"block sorting both ways",
     [](const Bytes& in) {
         Bytes comp = zem::stream::bz2_compress(in.data(), in.size(), 1), back(in.size());
         size_t n = 0;
         EXPECT_EQ(zem::stream::bz2_decompress(comp.data(), comp.size(), back.data(), back.size(), &n),
                   zem::stream::Bz2Result::End);
         EXPECT_EQ(n, in.size());
         EXPECT_EQ(back, in);
         return comp;
     }},
    {"lzo, every method",
     [](const Bytes& in) {
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
     }},
    {"lzss both ways",
     [](const Bytes& in) {
         Bytes enc(0x50040), dec(0x50040), comp(ZEM_LZSS_BOUND(in.size()) + 8), back(in.size());
         auto* es = reinterpret_cast<zemLZSSState_8u*>(enc.data());
         auto* ds = reinterpret_cast<zemLZSSState_8u*>(dec.data());
         EXPECT_EQ(zemsEncodeLZSSInit_8u(es), zemStatusOk);
         EXPECT_EQ(zemsDecodeLZSSInit_8u(ds), zemStatusOk);
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
     }},
};

}  // namespace

// Each job once alone, then kThreads times at once (kRounds each): every result the same.
TEST(Concurrency, EveryFamilyAgreesWithASingleThreadedRun) {
    const Bytes in = zt::compressible_bytes(300000, 2024);
    for (const auto& j : kJobs) {
        SCOPED_TRACE(j.name);
        const Bytes alone = j.job(in);
        ASSERT_FALSE(alone.empty());
        std::vector<std::vector<Bytes>> got(kThreads);
        std::vector<std::thread> pool;
        for (int t = 0; t < kThreads; ++t)
            pool.emplace_back([&, t] {
                for (int r = 0; r < kRounds; ++r) got[t].push_back(j.job(in));
            });
        for (auto& th : pool) th.join();
        for (int t = 0; t < kThreads; ++t)
            for (const Bytes& b : got[t]) EXPECT_EQ(b, alone) << "thread " << t;
    }
}
