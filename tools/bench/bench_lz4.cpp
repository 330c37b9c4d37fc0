// LZ4 block rows: our encoders and decoder beside liblz4's on the same files, one block per file.
#include <lz4.h>

#include "bench.h"
#include "zemdc.h"

namespace {

using Bytes = std::vector<uint8_t>;

struct Blocks {
    std::vector<Bytes> out;
    std::vector<int32_t> size;
    uint64_t total = 0;
    explicit Blocks(const bench::Corpus& c) {
        for (auto& f : c.files) out.emplace_back((size_t)LZ4_compressBound((int)f.data.size()) + 16);
        size.resize(c.files.size());
    }
    double ratio(const bench::Corpus& c) const { return total ? double(c.total_bytes()) / double(total) : 0; }
};

// Fills `b` with one encoder's blocks; returns the pass that the table times.
template <class Enc>
std::function<void()> encoder(const bench::Corpus& c, Blocks& b, Enc enc) {
    auto pass = [&c, &b, enc] {
        b.total = 0;
        for (size_t i = 0; i < c.files.size(); ++i) {
            b.size[i] = enc(c.files[i].data, b.out[i]);
            b.total += (uint64_t)b.size[i];
        }
    };
    pass();
    return pass;
}

void check_round_trip(const bench::Corpus& c, const Blocks& b, const std::string& who) {
    for (size_t i = 0; i < c.files.size(); ++i) {
        const Bytes& f = c.files[i].data;
        Bytes back(f.size());
        int n = LZ4_decompress_safe((const char*)b.out[i].data(), (char*)back.data(), b.size[i], (int)back.size());
        bench::require(n == (int)f.size() && back == f, who + " round trip of " + c.files[i].name);
    }
}

void run(const bench::Corpus& c) {
    Bytes table(16384);
    uint8_t* tab = table.data();

    Blocks dflt(c), fast1(c), fast8(c), safe(c), ref(c), ref8(c);
    auto ours_default = encoder(c, dflt, [tab](const Bytes& in, Bytes& out) {
        int32_t n = 0;
        zemsEncodeLZ4_8u(in.data(), (int32_t)in.size(), out.data(), &n, tab);
        return n;
    });
    auto ours_fast1 = encoder(c, fast1, [tab](const Bytes& in, Bytes& out) {
        int32_t n = 0;
        zemsEncodeLZ4Fast_8u(in.data(), (int32_t)in.size(), out.data(), &n, tab, 1);
        return n;
    });
    auto ours_fast8 = encoder(c, fast8, [tab](const Bytes& in, Bytes& out) {
        int32_t n = 0;
        zemsEncodeLZ4Fast_8u(in.data(), (int32_t)in.size(), out.data(), &n, tab, 8);
        return n;
    });
    auto ours_safe = encoder(c, safe, [tab](const Bytes& in, Bytes& out) {
        int32_t len = (int32_t)in.size(), n = (int32_t)out.size();
        zemsEncodeLZ4Safe_8u(in.data(), &len, out.data(), &n, tab);
        return n;
    });
    auto lz4_default = encoder(c, ref, [](const Bytes& in, Bytes& out) {
        return LZ4_compress_default((const char*)in.data(), (char*)out.data(), (int)in.size(), (int)out.size());
    });
    auto lz4_fast8 = encoder(c, ref8, [](const Bytes& in, Bytes& out) {
        return LZ4_compress_fast((const char*)in.data(), (char*)out.data(), (int)in.size(), (int)out.size(), 8);
    });
    check_round_trip(c, dflt, "zemsEncodeLZ4_8u");
    check_round_trip(c, fast1, "zemsEncodeLZ4Fast_8u(1)");
    check_round_trip(c, fast8, "zemsEncodeLZ4Fast_8u(8)");
    check_round_trip(c, safe, "zemsEncodeLZ4Safe_8u");
    {
        bench::Table t("LZ4 compress", c.total_bytes());
        t.in_turn({{bench::Kind::Ours, "zemsEncodeLZ4_8u", ours_default, dflt.ratio(c)},
                   {bench::Kind::Ours, "zemsEncodeLZ4Fast_8u accel 1", ours_fast1, fast1.ratio(c)},
                   {bench::Kind::Ours, "zemsEncodeLZ4Fast_8u accel 8", ours_fast8, fast8.ratio(c)},
                   {bench::Kind::Ours, "zemsEncodeLZ4Safe_8u", ours_safe, safe.ratio(c)},
                   {bench::Kind::Peer, "LZ4_compress_default", lz4_default, ref.ratio(c)},
                   {bench::Kind::Peer, "LZ4_compress_fast accel 8", lz4_fast8, ref8.ratio(c)}});
    }

    // Decoding: both decoders read liblz4's default blocks.
    std::vector<Bytes> back;
    for (auto& f : c.files) back.emplace_back(f.data.size());
    for (size_t i = 0; i < c.files.size(); ++i) {
        int32_t n = (int32_t)back[i].size();
        zemStatus st = zemsDecodeLZ4_8u(ref.out[i].data(), ref.size[i], back[i].data(), &n);
        bench::require(st == zemStatusOk && back[i] == c.files[i].data, "zemsDecodeLZ4_8u of " + c.files[i].name);
    }
    bench::Table t("LZ4 decompress", c.total_bytes());
    t.in_turn({{bench::Kind::Ours, "zemsDecodeLZ4_8u",
                [&] {
                    for (size_t i = 0; i < c.files.size(); ++i) {
                        int32_t n = (int32_t)back[i].size();
                        zemsDecodeLZ4_8u(ref.out[i].data(), ref.size[i], back[i].data(), &n);
                        bench::keep((uint64_t)n);
                    }
                },
                ref.ratio(c)},
               {bench::Kind::Peer, "LZ4_decompress_safe",
                [&] {
                    for (size_t i = 0; i < c.files.size(); ++i)
                        bench::keep((uint64_t)LZ4_decompress_safe((const char*)ref.out[i].data(),
                                                                  (char*)back[i].data(), ref.size[i],
                                                                  (int)back[i].size()));
                },
                ref.ratio(c)}});
}

}  // namespace

BENCH_FAMILY("lz4", 30, run);
