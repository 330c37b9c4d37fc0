// .bz2 rows: files written by libbz2 at level 9, decompressed by our reader and by libbz2; then
// the fused block decoder alone on the same blocks.
#include <bzlib.h>
#include <string.h>

#include "bench.h"
#include "bz2_reader.h"
#include "zemdc.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes bz2_level9(const Bytes& in) {
    unsigned int cap = unsigned(in.size() + in.size() / 100 + 600);
    Bytes out(cap);
    bench::require(BZ2_bzBuffToBuffCompress((char*)out.data(), &cap, (char*)const_cast<uint8_t*>(in.data()),
                                            unsigned(in.size()), 9, 0, 0) == BZ_OK,
                   "libbz2 compression");
    out.resize(cap);
    return out;
}

size_t ours(const Bytes& bz, Bytes& out) {
    size_t n = 0;
    auto r = zem::stream::bz2_decompress(bz.data(), bz.size(), out.data(), out.size(), &n);
    return r == zem::stream::Bz2Result::End ? n : 0;
}

size_t libbz2(const Bytes& bz, Bytes& out) {
    unsigned int n = unsigned(out.size());
    int r = BZ2_bzBuffToBuffDecompress((char*)out.data(), &n, (char*)const_cast<uint8_t*>(bz.data()),
                                       unsigned(bz.size()), 0, 0);
    return r == BZ_OK ? n : 0;
}

struct Block {
    std::vector<uint16_t> syms;
    uint8_t in_use[256];
    uint32_t capacity, orig_ptr, dict_size;
};

void run(const bench::Corpus& corpus) {
    std::vector<Bytes> bz, out;
    std::vector<Block> blocks;
    uint64_t packed = 0;
    for (auto& f : corpus.files) {
        if (f.data.empty()) continue;
        bz.push_back(bz2_level9(f.data));
        packed += bz.back().size();
        out.emplace_back(f.data.size());
        bench::require(ours(bz.back(), out.back()) == f.data.size() && out.back() == f.data,
                       "our .bz2 decompression of " + f.name);
        bench::require(libbz2(bz.back(), out.back()) == f.data.size(), "libbz2 decompression of " + f.name);
        zem::stream::Bz2Reader r;
        r.set_block_observer([&](const zem::stream::Bz2Reader::BlockInput& b) {
            Block k{std::vector<uint16_t>(b.syms, b.syms + b.n_syms), {}, b.capacity, b.orig_ptr, b.dict_size};
            memcpy(k.in_use, b.in_use, 256);
            blocks.push_back(std::move(k));
        });
        const uint8_t* p = bz.back().data();
        size_t left = bz.back().size(), room = out.back().size();
        uint8_t* o = out.back().data();
        r.run(p, left, o, room);
    }
    const double ratio = packed ? double(corpus.total_bytes()) / double(packed) : 0;
    {
        bench::Table t(".bz2 decompress (libbz2 level 9 files)", corpus.total_bytes());
        t.in_turn({{bench::Kind::Ours, "zem::stream bz2 reader",
                    [&] {
                        for (size_t i = 0; i < bz.size(); ++i) bench::keep(ours(bz[i], out[i]));
                    },
                    ratio},
                   {bench::Kind::Peer, "BZ2_bzBuffToBuffDecompress",
                    [&] {
                        for (size_t i = 0; i < bz.size(); ++i) bench::keep(libbz2(bz[i], out[i]));
                    },
                    ratio}});
    }
    // The block decoder alone: zero runs, move-to-front and the inverse transform, measured by
    // the block bytes it produces (before run-length decoding).
    uint32_t largest = 0;
    for (auto& b : blocks) largest = b.capacity > largest ? b.capacity : largest;
    uint32_t work_size = 0;
    zemsDecodeBlockGetSize_BZ2_8u(largest, &work_size);
    Bytes work(work_size), dst(largest);
    uint64_t block_bytes = 0;
    for (auto& b : blocks) {
        uint32_t len = b.capacity;
        bench::require(zemsDecodeBlock_BZ2_16u8u(b.syms.data(), int32_t(b.syms.size()), dst.data(), &len,
                                                 int32_t(b.orig_ptr), b.dict_size, b.in_use, work.data()) == 0,
                       "block decoding");
        block_bytes += len;
    }
    bench::Table t("bzip2 block decode (symbols to block bytes)", block_bytes);
    t.ours("zemsDecodeBlock_BZ2_16u8u", [&] {
        for (auto& b : blocks) {
            uint32_t len = b.capacity;
            zemsDecodeBlock_BZ2_16u8u(b.syms.data(), int32_t(b.syms.size()), dst.data(), &len, int32_t(b.orig_ptr),
                                      b.dict_size, b.in_use, work.data());
            bench::keep(len);
        }
    });
}

}  // namespace

BENCH_FAMILY("bz2", 60, run);
