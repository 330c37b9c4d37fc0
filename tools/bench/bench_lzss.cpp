// LZSS rows: our streaming encoder and decoder, one stream per file, beside zlib's raw deflate at
// level 6 and raw inflate, the nearest peer with the same 32 KiB window.
#include <zlib.h>

#include "bench.h"
#include "zemdc.h"

namespace {

using Bytes = std::vector<uint8_t>;

// One call for the whole file and a flush: the encoder's own speed, not the caller's loop.
size_t lzss_encode(const Bytes& in, Bytes& out, Bytes& state) {
    auto* st = (zemLZSSState_8u*)state.data();
    zemsEncodeLZSSInit_8u(st);
    const uint8_t* p = in.data();
    uint8_t* d = out.data();
    int32_t left = (int32_t)in.size(), room = (int32_t)out.size();
    if (zemsEncodeLZSS_8u(&p, &left, &d, &room, st) != zemStatusOk) return 0;
    if (zemsEncodeLZSSFlush_8u(&d, &room, st) != zemStatusOk) return 0;
    return size_t(d - out.data());
}

size_t lzss_decode(const Bytes& in, size_t n, Bytes& out, Bytes& state) {
    auto* st = (zemLZSSState_8u*)state.data();
    zemsDecodeLZSSInit_8u(st);
    const uint8_t* p = in.data();
    uint8_t* d = out.data();
    int32_t left = (int32_t)n, room = (int32_t)out.size();
    if (zemsDecodeLZSS_8u(&p, &left, &d, &room, st) != zemStatusOk) return 0;
    return size_t(d - out.data());
}

size_t zlib_deflate(const Bytes& in, Bytes& out) {
    z_stream z{};
    deflateInit2(&z, 6, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY);
    z.next_in = const_cast<uint8_t*>(in.data());
    z.avail_in = uInt(in.size());
    z.next_out = out.data();
    z.avail_out = uInt(out.size());
    int r = deflate(&z, Z_FINISH);
    size_t n = z.total_out;
    deflateEnd(&z);
    return r == Z_STREAM_END ? n : 0;
}

size_t zlib_inflate(const Bytes& in, size_t n, Bytes& out) {
    z_stream z{};
    inflateInit2(&z, -15);
    z.next_in = const_cast<uint8_t*>(in.data());
    z.avail_in = uInt(n);
    z.next_out = out.data();
    z.avail_out = uInt(out.size());
    int r = inflate(&z, Z_FINISH);
    size_t m = z.total_out;
    inflateEnd(&z);
    return r == Z_STREAM_END ? m : 0;
}

void run(const bench::Corpus& c) {
    int32_t state_size = 0;
    zemsLZSSGetSize_8u(&state_size);
    Bytes state((size_t)state_size);
    const size_t nf = c.files.size();
    std::vector<Bytes> ours(nf), peer(nf), back(nf);
    std::vector<size_t> ours_n(nf), peer_n(nf);
    uint64_t ours_total = 0, peer_total = 0;
    for (size_t i = 0; i < nf; ++i) {
        const Bytes& f = c.files[i].data;
        ours[i].resize((size_t)ZEM_LZSS_BOUND(f.size()));
        peer[i].resize(f.size() + f.size() / 100 + 1024);
        back[i].resize(f.size());
        ours_n[i] = lzss_encode(f, ours[i], state);
        peer_n[i] = zlib_deflate(f, peer[i]);
        bench::require(ours_n[i] > 0 || f.empty(), "LZSS encode of " + c.files[i].name);
        bench::require(lzss_decode(ours[i], ours_n[i], back[i], state) == f.size() && back[i] == f,
                       "LZSS round trip of " + c.files[i].name);
        bench::require(zlib_inflate(peer[i], peer_n[i], back[i]) == f.size(), "zlib round trip of " + c.files[i].name);
        ours_total += ours_n[i];
        peer_total += peer_n[i];
    }
    const double r_ours = ours_total ? double(c.total_bytes()) / double(ours_total) : 0;
    const double r_peer = peer_total ? double(c.total_bytes()) / double(peer_total) : 0;
    {
        bench::Table t("LZSS compress (one stream per file)", c.total_bytes());
        t.in_turn({{bench::Kind::Ours, "zemsEncodeLZSS_8u + Flush",
                    [&] {
                        for (size_t i = 0; i < nf; ++i) bench::keep(lzss_encode(c.files[i].data, ours[i], state));
                    },
                    r_ours},
                   {bench::Kind::Peer, "zlib deflate level 6 (raw)",
                    [&] {
                        for (size_t i = 0; i < nf; ++i) bench::keep(zlib_deflate(c.files[i].data, peer[i]));
                    },
                    r_peer}});
    }
    bench::Table t("LZSS decompress", c.total_bytes());
    t.in_turn({{bench::Kind::Ours, "zemsDecodeLZSS_8u",
                [&] {
                    for (size_t i = 0; i < nf; ++i) bench::keep(lzss_decode(ours[i], ours_n[i], back[i], state));
                },
                r_ours},
               {bench::Kind::Peer, "zlib inflate (raw, its level-6 streams)",
                [&] {
                    for (size_t i = 0; i < nf; ++i) bench::keep(zlib_inflate(peer[i], peer_n[i], back[i]));
                },
                r_peer}});
}

}  // namespace

BENCH_FAMILY("lzss", 75, run);
