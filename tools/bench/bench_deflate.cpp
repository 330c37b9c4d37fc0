// Deflate compression rows: our zlib writer at levels 1..9 beside zlib's compress2 and
// libdeflate_zlib_compress at the same level (each file one zlib stream, every round trip
// checked first), and the Huffman emission alone on the records of the corpus.
#include <libdeflate.h>
#include <zlib.h>

#include <string>
#include <vector>

#include "bench.h"
#include "deflate_stream.h"
#include "inflate_stream.h"
#include "zemdc.h"

namespace {

using zem::stream::Format;

struct Outputs {
    std::vector<std::vector<uint8_t>> comp, back;
};

size_t ours(const bench::Corpus& c, Outputs& o, int level) {
    size_t total = 0;
    for (size_t i = 0; i < c.files.size(); ++i) {
        size_t n = 0;
        const auto& f = c.files[i].data;
        bench::require(zem::stream::deflate_buffer(Format::Zlib, level, f.data(), f.size(), o.comp[i].data(),
                                                   o.comp[i].size(), &n),
                       "our deflate of " + c.files[i].name);
        total += n;
    }
    return total;
}

size_t zlib(const bench::Corpus& c, Outputs& o, int level) {
    size_t total = 0;
    for (size_t i = 0; i < c.files.size(); ++i) {
        uLongf n = uLongf(o.comp[i].size());
        compress2(o.comp[i].data(), &n, c.files[i].data.data(), uLong(c.files[i].data.size()), level);
        total += n;
    }
    return total;
}

size_t libdeflate(const bench::Corpus& c, Outputs& o, libdeflate_compressor* k) {
    size_t total = 0;
    for (size_t i = 0; i < c.files.size(); ++i)
        total += libdeflate_zlib_compress(k, c.files[i].data.data(), c.files[i].data.size(), o.comp[i].data(),
                                          o.comp[i].size());
    return total;
}

// Compresses with `pass`, then checks that every stream inflates (with zlib) to its file.
double checked_ratio(const bench::Corpus& c, Outputs& o, const std::string& who,
                     const std::function<size_t(std::vector<size_t>&)>& pass) {
    std::vector<size_t> sizes(c.files.size());
    const size_t total = pass(sizes);
    for (size_t i = 0; i < c.files.size(); ++i) {
        uLongf n = uLongf(o.back[i].size());
        bool ok = uncompress(o.back[i].data(), &n, o.comp[i].data(), uLong(sizes[i])) == Z_OK &&
                  n == c.files[i].data.size() &&
                  std::equal(o.back[i].begin(), o.back[i].begin() + ptrdiff_t(n), c.files[i].data.begin());
        bench::require(ok, who + " round trip of " + c.files[i].name);
    }
    return double(c.total_bytes()) / double(total);
}

void run(const bench::Corpus& c) {
    Outputs o;
    for (auto& f : c.files) {
        o.comp.emplace_back(zem::stream::deflate_bound(f.data.size()) + 1024);
        o.back.emplace_back(f.data.size() + 1);
    }
    auto per_file = [&](std::vector<size_t>& sizes, auto&& one) {
        size_t total = 0;
        for (size_t i = 0; i < c.files.size(); ++i) total += sizes[i] = one(i);
        return total;
    };
    for (int level = 1; level <= 9; ++level) {
        libdeflate_compressor* k = libdeflate_alloc_compressor(level);
        const double r_ours = checked_ratio(c, o, "our deflate", [&](std::vector<size_t>& s) {
            return per_file(s, [&](size_t i) {
                size_t n = 0;
                const auto& f = c.files[i].data;
                zem::stream::deflate_buffer(Format::Zlib, level, f.data(), f.size(), o.comp[i].data(),
                                            o.comp[i].size(), &n);
                return n;
            });
        });
        const double r_zlib = checked_ratio(c, o, "zlib", [&](std::vector<size_t>& s) {
            return per_file(s, [&](size_t i) {
                uLongf n = uLongf(o.comp[i].size());
                compress2(o.comp[i].data(), &n, c.files[i].data.data(), uLong(c.files[i].data.size()), level);
                return size_t(n);
            });
        });
        const double r_ld = checked_ratio(c, o, "libdeflate", [&](std::vector<size_t>& s) {
            return per_file(s, [&](size_t i) {
                return libdeflate_zlib_compress(k, c.files[i].data.data(), c.files[i].data.size(), o.comp[i].data(),
                                                o.comp[i].size());
            });
        });
        bench::Table t("zlib compress, level " + std::to_string(level), c.total_bytes());
        t.in_turn({{bench::Kind::Ours, "zem::stream zlib L" + std::to_string(level),
                    [&] { bench::keep(ours(c, o, level)); }, r_ours},
                   {bench::Kind::Peer, "zlib compress2 L" + std::to_string(level),
                    [&] { bench::keep(zlib(c, o, level)); }, r_zlib},
                   {bench::Kind::Peer, "libdeflate_zlib_compress L" + std::to_string(level),
                    [&] { bench::keep(libdeflate(c, o, k)); }, r_ld}});
        libdeflate_free_compressor(k);
    }

    // The emission alone: the level-6 records of every file, written with their own codes.
    struct Recorded {
        std::vector<uint8_t> ll;
        std::vector<uint16_t> dist;
        zemDeflateHuffCode lc[286], dc[30];
    };
    std::vector<Recorded> rec(c.files.size());
    std::vector<uint32_t> head(65536), prev(32768);
    size_t max_rec = 0;
    for (size_t i = 0; i < c.files.size(); ++i) {
        const auto& f = c.files[i].data;
        Recorded& r = rec[i];
        r.ll.resize(f.size() + 1);
        r.dist.resize(f.size() + 1);
        std::fill(head.begin(), head.end(), 0);
        const uint8_t* p = f.data();
        uint32_t left = uint32_t(f.size()), idx = 0, n = uint32_t(r.ll.size()), lit[286] = {}, ds[30] = {};
        bench::require(zemsDeflateLZ77_8u(&p, &left, &idx, f.data(), 32768, head.data(), prev.data(), 65536,
                                          r.ll.data(), r.dist.data(), &n, lit, ds, 6, zemDeflateFinish) == 0,
                       "records of " + c.files[i].name);
        r.ll.resize(n);
        r.dist.resize(n);
        lit[256] = 1;
        zemsDeflateLZ77FastestGenHuffTable_8u(lit, ds, r.lc, r.dc);
        max_rec = std::max(max_rec, size_t(n));
    }
    std::vector<uint8_t> bits(max_rec * 6 + 8);
    bench::Table h("deflate Huffman emission (level-6 records, MB/s of input)", c.total_bytes());
    h.ours("zemsDeflateHuff_8u", [&] {
        for (auto& r : rec) {
            uint16_t code = 0;
            uint32_t nb = 0, idx = 0;
            zemsDeflateHuff_8u(r.ll.data(), r.dist.data(), uint32_t(r.ll.size()), &code, &nb, r.lc, r.dc, bits.data(),
                               &idx);
            bench::keep(idx);
        }
    });
}

}  // namespace

BENCH_FAMILY("deflate", 45, run);
