// Inflate rows: gzip streams made by zlib at level 6, decompressed by our stream layer, by
// zlib's inflate and by libdeflate.
#include <libdeflate.h>
#include <zlib.h>

#include <string.h>

#include "bench.h"
#include "inflate_stream.h"

namespace {

std::vector<uint8_t> gzip_level6(const std::vector<uint8_t>& in) {
    z_stream z{};
    deflateInit2(&z, 6, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY);
    std::vector<uint8_t> out(deflateBound(&z, in.size()) + 64);
    z.next_in = const_cast<uint8_t*>(in.data());
    z.avail_in = uInt(in.size());
    z.next_out = out.data();
    z.avail_out = uInt(out.size());
    bench::require(deflate(&z, Z_FINISH) == Z_STREAM_END, "zlib gzip compression");
    out.resize(z.total_out);
    deflateEnd(&z);
    return out;
}

size_t ours(const std::vector<uint8_t>& gz, std::vector<uint8_t>& out) {
    size_t n = 0;
    auto r = zem::stream::inflate_buffer(zem::stream::Format::Gzip, gz.data(), gz.size(), out.data(), out.size(), &n);
    return r == zem::stream::InflateResult::End ? n : 0;
}

size_t zlib_inflate(const std::vector<uint8_t>& gz, std::vector<uint8_t>& out) {
    z_stream z{};
    inflateInit2(&z, 31);
    z.next_in = const_cast<uint8_t*>(gz.data());
    z.avail_in = uInt(gz.size());
    z.next_out = out.data();
    z.avail_out = uInt(out.size());
    int r = inflate(&z, Z_FINISH);
    size_t n = z.total_out;
    inflateEnd(&z);
    return r == Z_STREAM_END ? n : 0;
}

size_t libdeflate_inflate(libdeflate_decompressor* d, const std::vector<uint8_t>& gz, std::vector<uint8_t>& out) {
    size_t n = 0;
    auto r = libdeflate_gzip_decompress(d, gz.data(), gz.size(), out.data(), out.size(), &n);
    return r == LIBDEFLATE_SUCCESS ? n : 0;
}

void run(const bench::Corpus& corpus) {
    std::vector<std::vector<uint8_t>> gz;
    std::vector<std::vector<uint8_t>> out;
    uint64_t packed = 0;
    libdeflate_decompressor* d = libdeflate_alloc_decompressor();
    for (auto& f : corpus.files) {
        gz.push_back(gzip_level6(f.data));
        packed += gz.back().size();
        out.emplace_back(f.data.size());
        auto& o = out.back();
        bool ok = ours(gz.back(), o) == f.data.size() && memcmp(o.data(), f.data.data(), o.size()) == 0;
        bench::require(ok, "our gzip decompression of " + f.name);
        bench::require(zlib_inflate(gz.back(), o) == f.data.size(), "zlib inflate of " + f.name);
        bench::require(libdeflate_inflate(d, gz.back(), o) == f.data.size(), "libdeflate of " + f.name);
    }
    double ratio = packed ? double(corpus.total_bytes()) / double(packed) : 0;
    {
        bench::Table t("gzip decompress (zlib level 6 streams)", corpus.total_bytes());
        t.in_turn({{bench::Kind::Ours, "zem::stream gzip (zemsInflate_8u)",
                    [&] {
                        for (size_t i = 0; i < gz.size(); ++i) bench::keep(ours(gz[i], out[i]));
                    },
                    ratio},
                   {bench::Kind::Peer, "zlib inflate",
                    [&] {
                        for (size_t i = 0; i < gz.size(); ++i) bench::keep(zlib_inflate(gz[i], out[i]));
                    },
                    ratio},
                   {bench::Kind::Peer, "libdeflate_gzip_decompress",
                    [&] {
                        for (size_t i = 0; i < gz.size(); ++i) bench::keep(libdeflate_inflate(d, gz[i], out[i]));
                    },
                    ratio}});
    }  // the table prints here, before the next

    // The same streams without their gzip wrapper: the block decoder alone, with no CRC-32.
    std::vector<std::vector<uint8_t>> raw;
    for (auto& g : gz) raw.emplace_back(g.begin() + 10, g.end() - 8);  // zlib writes a bare 10-byte header
    for (size_t i = 0; i < raw.size(); ++i) {
        size_t n = 0;
        bench::require(zem::stream::inflate_buffer(zem::stream::Format::Raw, raw[i].data(), raw[i].size(), out[i].data(),
                                                   out[i].size(), &n) == zem::stream::InflateResult::End &&
                           n == out[i].size(),
                       "our raw deflate decompression of " + corpus.files[i].name);
    }
    bench::Table r("raw deflate decompress (the same streams, no wrapper)", corpus.total_bytes());
    r.in_turn({{bench::Kind::Ours, "zem::stream raw (zemsInflate_8u)", [&] {
        for (size_t i = 0; i < raw.size(); ++i) {
            size_t n = 0;
            zem::stream::inflate_buffer(zem::stream::Format::Raw, raw[i].data(), raw[i].size(), out[i].data(),
                                        out[i].size(), &n);
            bench::keep(n);
        }
    }, ratio},
    {bench::Kind::Peer, "zlib inflate (raw)", [&] {
        for (size_t i = 0; i < raw.size(); ++i) {
            z_stream z{};
            inflateInit2(&z, -15);
            z.next_in = raw[i].data();
            z.avail_in = uInt(raw[i].size());
            z.next_out = out[i].data();
            z.avail_out = uInt(out[i].size());
            inflate(&z, Z_FINISH);
            bench::keep(z.total_out);
            inflateEnd(&z);
        }
    }, ratio},
    {bench::Kind::Peer, "libdeflate_deflate_decompress", [&] {
        for (size_t i = 0; i < raw.size(); ++i) {
            size_t n = 0;
            libdeflate_deflate_decompress(d, raw[i].data(), raw[i].size(), out[i].data(), out[i].size(), &n);
            bench::keep(n);
        }
    }, ratio}});
    libdeflate_free_decompressor(d);
}

}  // namespace

BENCH_FAMILY("inflate", 50, run);
