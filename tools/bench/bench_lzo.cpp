// LZO1X rows: our three methods beside liblzo2's lzo1x_1 and lzo1x_1_15, and our two decoders
// beside lzo1x_decompress_safe and lzo1x_decompress on liblzo2's lzo1x_1 streams; one stream per
// file.
#include <lzo/lzo1x.h>

#include "bench.h"
#include "zemdc.h"

namespace {

using Bytes = std::vector<uint8_t>;

struct Streams {
    std::vector<Bytes> out;
    std::vector<size_t> size;
    uint64_t total = 0;
    explicit Streams(const bench::Corpus& c) {
        for (auto& f : c.files) out.emplace_back(ZEM_LZO_BOUND(f.data.size()) + 64);
        size.resize(c.files.size());
    }
    double ratio(const bench::Corpus& c) const { return total ? double(c.total_bytes()) / double(total) : 0; }
};

template <class Enc>
std::function<void()> encoder(const bench::Corpus& c, Streams& s, Enc enc) {
    auto pass = [&c, &s, enc] {
        s.total = 0;
        for (size_t i = 0; i < c.files.size(); ++i) {
            s.size[i] = enc(c.files[i].data, s.out[i]);
            s.total += s.size[i];
        }
    };
    pass();
    return pass;
}

void check_round_trip(const bench::Corpus& c, const Streams& s, const std::string& who) {
    for (size_t i = 0; i < c.files.size(); ++i) {
        const Bytes& f = c.files[i].data;
        Bytes back(f.size() + 1);
        lzo_uint n = back.size();
        int r = lzo1x_decompress_safe(s.out[i].data(), s.size[i], back.data(), &n, nullptr);
        bench::require(r == LZO_E_OK && n == f.size() && std::equal(f.begin(), f.end(), back.begin()),
                       who + " round trip of " + c.files[i].name);
    }
}

void run(const bench::Corpus& c) {
    bench::require(lzo_init() == LZO_E_OK, "lzo_init");
    uint64_t largest = 0;
    for (auto& f : c.files) largest = std::max<uint64_t>(largest, f.data.size());
    Bytes work(LZO1X_1_15_MEM_COMPRESS);
    Bytes fast_state, strong_state, seg_state;
    auto ours = [&](zemLZOMethod m, Bytes& state) {
        uint32_t size = 0;
        zemsEncodeLZOGetSize(m, (uint32_t)largest, &size);
        state.resize(size);
        zemsEncodeLZOInit_8u(m, (uint32_t)largest, (zemLZOState_8u*)state.data());
        auto* st = (zemLZOState_8u*)state.data();
        return [st](const Bytes& in, Bytes& out) {
            uint32_t n = (uint32_t)out.size();
            zemsEncodeLZO_8u(in.data(), (uint32_t)in.size(), out.data(), &n, st);
            return (size_t)n;
        };
    };
    Streams fast(c), strong(c), seg(c), ref1(c), ref15(c);
    auto ours_fast = encoder(c, fast, ours(zemLZOFast, fast_state));
    auto ours_strong = encoder(c, strong, ours(zemLZOStrong, strong_state));
    auto ours_seg = encoder(c, seg, ours(zemLZOSegmented, seg_state));
    auto lzo_1 = encoder(c, ref1, [&work](const Bytes& in, Bytes& out) {
        lzo_uint n = 0;
        lzo1x_1_compress(in.data(), in.size(), out.data(), &n, work.data());
        return (size_t)n;
    });
    auto lzo_1_15 = encoder(c, ref15, [&work](const Bytes& in, Bytes& out) {
        lzo_uint n = 0;
        lzo1x_1_15_compress(in.data(), in.size(), out.data(), &n, work.data());
        return (size_t)n;
    });
    check_round_trip(c, fast, "zemLZOFast");
    check_round_trip(c, strong, "zemLZOStrong");
    check_round_trip(c, seg, "zemLZOSegmented");
    {
        bench::Table t("LZO compress", c.total_bytes());
        t.in_turn({{bench::Kind::Ours, "zemsEncodeLZO_8u fast", ours_fast, fast.ratio(c)},
                   {bench::Kind::Ours, "zemsEncodeLZO_8u strong", ours_strong, strong.ratio(c)},
                   {bench::Kind::Ours, "zemsEncodeLZO_8u segmented", ours_seg, seg.ratio(c)},
                   {bench::Kind::Peer, "lzo1x_1_compress", lzo_1, ref1.ratio(c)},
                   {bench::Kind::Peer, "lzo1x_1_15_compress", lzo_1_15, ref15.ratio(c)}});
    }

    std::vector<Bytes> back;
    for (auto& f : c.files) back.emplace_back(f.data.size());
    for (size_t i = 0; i < c.files.size(); ++i)
        for (auto dec : {zemsDecodeLZO_8u, zemsDecodeLZOSafe_8u}) {
            uint32_t n = (uint32_t)back[i].size();
            zemStatus st = dec(ref1.out[i].data(), (uint32_t)ref1.size[i], back[i].data(), &n);
            bench::require(st == zemStatusOk && back[i] == c.files[i].data, "our decoding of " + c.files[i].name);
        }
    auto ours_dec = [&](auto dec) {
        return [&, dec] {
            for (size_t i = 0; i < c.files.size(); ++i) {
                uint32_t n = (uint32_t)back[i].size();
                dec(ref1.out[i].data(), (uint32_t)ref1.size[i], back[i].data(), &n);
                bench::keep(n);
            }
        };
    };
    auto lzo_dec = [&](auto dec) {
        return [&, dec] {
            for (size_t i = 0; i < c.files.size(); ++i) {
                lzo_uint n = back[i].size();
                dec(ref1.out[i].data(), ref1.size[i], back[i].data(), &n, nullptr);
                bench::keep(n);
            }
        };
    };
    bench::Table t("LZO decompress (lzo1x_1 streams)", c.total_bytes());
    t.in_turn({{bench::Kind::Ours, "zemsDecodeLZOSafe_8u", ours_dec(zemsDecodeLZOSafe_8u), ref1.ratio(c)},
               {bench::Kind::Ours, "zemsDecodeLZO_8u", ours_dec(zemsDecodeLZO_8u), ref1.ratio(c)},
               {bench::Kind::Peer, "lzo1x_decompress_safe", lzo_dec(lzo1x_decompress_safe), ref1.ratio(c)},
               {bench::Kind::Peer, "lzo1x_decompress", lzo_dec(lzo1x_decompress), ref1.ratio(c)}});
}

}  // namespace

BENCH_FAMILY("lzo", 70, run);
