// CRC-32 family rows: ours beside zlib's and libdeflate's crc32, a plain byte-table loop for the
// two variants that neither library offers, and the plain read of the same data. First on the
// corpus, then on short buffers, where the cost of choosing a path and setting it up shows.
#include <libdeflate.h>
#include <zlib.h>

#include <string>

#include "bench.h"
#include "zemdc.h"

namespace {

using Export = zemStatus (*)(const uint8_t*, int32_t, uint32_t*);

// The textbook loop, one table lookup per byte: what a program without a tuned library runs.
struct ByteTable {
    uint32_t t[256];
    ByteTable(bool msb, uint32_t poly) {
        for (uint32_t b = 0; b < 256; ++b) {
            uint32_t c = msb ? b << 24 : b;
            for (int k = 0; k < 8; ++k)
                c = msb ? (c << 1) ^ ((c >> 31) ? poly : 0) : (c >> 1) ^ ((c & 1) ? poly : 0);
            t[b] = c;
        }
    }
};
const ByteTable kBz2Bytes(true, 0x04C11DB7u), kCrc32CBytes(false, 0x82F63B78u);

uint32_t bz2_bytewise(uint32_t crc, const uint8_t* p, size_t n) {
    uint32_t r = ~crc;
    for (size_t i = 0; i < n; ++i) r = (r << 8) ^ kBz2Bytes.t[(r >> 24) ^ p[i]];
    return ~r;
}

uint32_t crc32c_bytewise(uint32_t r, const uint8_t* p, size_t n) {
    for (size_t i = 0; i < n; ++i) r = (r >> 8) ^ kCrc32CBytes.t[(r ^ p[i]) & 0xff];
    return r;
}

uint32_t ours(Export f, uint32_t start, const uint8_t* p, size_t n) {
    uint32_t v = start;
    f(p, (int32_t)n, &v);
    return v;
}

struct Variant {
    const char* title;
    const char* name;
    Export fn;
    uint32_t start;
    uint32_t (*bytewise)(uint32_t, const uint8_t*, size_t);  // null for CRC-32 (zlib is the peer)
};

const Variant kVariants[] = {
    {"CRC-32", "zemsCRC32_8u", zemsCRC32_8u, 0, nullptr},
    {"bzip2 CRC", "zemsCRC32_BZ2_8u", zemsCRC32_BZ2_8u, 0, bz2_bytewise},
    {"CRC-32C", "zemsCRC32C_8u", zemsCRC32C_8u, 0xFFFFFFFFu, crc32c_bytewise},
};

// One table of rows over `chunks` (pointer, length) pieces: the whole files, or short buffers.
struct Piece {
    const uint8_t* p;
    size_t n;
};

void rows(const Variant& v, const std::string& title, const std::vector<Piece>& pieces, uint64_t bytes) {
    bench::Table t(title, bytes);
    t.ours(v.name, [&] {
        for (auto& c : pieces) bench::keep(ours(v.fn, v.start, c.p, c.n));
    });
    t.peer("zlib crc32", [&] {
        for (auto& c : pieces) bench::keep(crc32(0, c.p, (uInt)c.n));
    });
    t.peer("libdeflate_crc32", [&] {
        for (auto& c : pieces) bench::keep(libdeflate_crc32(0, c.p, c.n));
    });
    if (v.bytewise)
        t.peer("byte-table loop", [&] {
            for (auto& c : pieces) bench::keep(v.bytewise(v.start, c.p, c.n));
        });
    t.limit("AVX2 read (sum of words)", [&] {
        for (auto& c : pieces) bench::keep(bench::read_sum(c.p, c.n));
    });
}

void run(const bench::Corpus& c) {
    // Check before timing: every file against zlib or the byte-table loop.
    for (auto& f : c.files) {
        const uint8_t* p = f.data.data();
        size_t n = f.data.size();
        if (n == 0) continue;
        bench::require(ours(zemsCRC32_8u, 0, p, n) == (uint32_t)crc32(0, p, (uInt)n), "CRC-32 of " + f.name);
        for (const Variant& v : kVariants)
            if (v.bytewise) bench::require(ours(v.fn, v.start, p, n) == v.bytewise(v.start, p, n), v.title + (" of " + f.name));
    }

    std::vector<Piece> files;
    for (auto& f : c.files)
        if (!f.data.empty()) files.push_back({f.data.data(), f.data.size()});

    // Short buffers: consecutive pieces of the first 256 KiB of the corpus, so they stay in the
    // cache and the rows show per-call cost rather than memory speed.
    std::vector<uint8_t> pool;
    for (auto& f : c.files) {
        pool.insert(pool.end(), f.data.begin(), f.data.end());
        if (pool.size() >= (256u << 10)) break;
    }
    pool.resize(256u << 10);

    for (const Variant& v : kVariants) {
        rows(v, std::string(v.title) + " (corpus)", files, c.total_bytes());
        for (size_t size : {64u, 1024u, 4096u, 65536u}) {
            std::vector<Piece> pieces;
            for (size_t at = 0; at + size <= pool.size(); at += size) pieces.push_back({pool.data() + at, size});
            std::string label = size >= 1024 ? std::to_string(size >> 10) + " KiB" : std::to_string(size) + " B";
            rows(v, std::string(v.title) + " (" + label + " buffers)", pieces, pool.size());
        }
    }
}

}  // namespace

BENCH_FAMILY("crc", 11, run);
