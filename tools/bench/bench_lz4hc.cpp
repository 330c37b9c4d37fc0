// LZ4 high-compression rows: our levels 1, 4 and 9 beside liblz4's LZ4_compress_HC at levels
// 1, 4, 9 and 12, each file compressed as one block.
#include <lz4.h>
#include <lz4hc.h>
#include <string.h>

#include <string>
#include <vector>

#include "bench.h"
#include "zemdc.h"

namespace {

struct Buffers {
    std::vector<std::vector<uint8_t>> out;
    std::vector<uint8_t> hash, chain;
    std::vector<char> lz4_state;
};

// Compresses file i into its output buffer and returns the block's size.
int32_t ours_file(const bench::Corpus& c, Buffers& b, size_t i, int level) {
    uint8_t* tables[2] = {b.hash.data(), b.chain.data()};
    const auto& f = c.files[i];
    zemsEncodeLZ4HCHashTableInit_8u(tables);
    int32_t src_len = (int32_t)f.data.size();
    int32_t dst_len = (int32_t)b.out[i].size();
    zemStatus st =
        zemsEncodeLZ4HC_8u(f.data.data(), 0, &src_len, b.out[i].data(), &dst_len, tables, nullptr, 0, level);
    bench::require(st == zemStatusOk && src_len == (int32_t)f.data.size(), "zemsEncodeLZ4HC_8u on " + f.name);
    return dst_len;
}

size_t ours(const bench::Corpus& c, Buffers& b, int level) {
    size_t total = 0;
    for (size_t i = 0; i < c.files.size(); ++i) total += (size_t)ours_file(c, b, i, level);
    return total;
}

size_t peer(const bench::Corpus& c, Buffers& b, int level) {
    size_t total = 0;
    for (size_t i = 0; i < c.files.size(); ++i) {
        const auto& f = c.files[i];
        int n = LZ4_compress_HC_extStateHC(b.lz4_state.data(), (const char*)f.data.data(), (char*)b.out[i].data(),
                                           (int)f.data.size(), (int)b.out[i].size(), level);
        bench::require(n > 0, "LZ4_compress_HC on " + f.name);
        total += (size_t)n;
    }
    return total;
}

void run(const bench::Corpus& c) {
    Buffers b;
    int32_t hs = 0, cs = 0;
    zemsEncodeLZ4HCHashTableGetSize_8u(&hs, &cs);
    b.hash.resize((size_t)hs);
    b.chain.resize((size_t)cs);
    b.lz4_state.resize((size_t)LZ4_sizeofStateHC());
    for (auto& f : c.files) b.out.emplace_back((size_t)LZ4_compressBound((int)f.data.size()));
    const double raw = (double)c.total_bytes();

    // Every level of ours must decode with liblz4 to the input before it is timed.
    double ratio[10] = {};
    std::vector<uint8_t> back;
    for (int level : {1, 4, 9}) {
        size_t total = 0;
        for (size_t i = 0; i < c.files.size(); ++i) {
            const auto& f = c.files[i];
            int32_t dst_len = ours_file(c, b, i, level);
            back.assign(f.data.size() + 1, 0);
            int n = LZ4_decompress_safe((const char*)b.out[i].data(), (char*)back.data(), dst_len, (int)back.size());
            bench::require(n == (int)f.data.size() && memcmp(back.data(), f.data.data(), f.data.size()) == 0,
                           "LZ4 HC level " + std::to_string(level) + " round trip of " + f.name);
            total += (size_t)dst_len;
        }
        ratio[level] = raw / (double)total;
    }

    bench::Table t("LZ4 HC compress", c.total_bytes());
    std::vector<bench::Table::Entry> rows;
    for (int level : {1, 4, 9})
        rows.push_back({bench::Kind::Ours, "zemsEncodeLZ4HC_8u L" + std::to_string(level),
                        [&, level] { bench::keep(ours(c, b, level)); }, ratio[level]});
    for (int level : {1, 4, 9, 12}) {
        double r = raw / (double)peer(c, b, level);
        rows.push_back({bench::Kind::Peer, "LZ4_compress_HC L" + std::to_string(level),
                        [&, level] { bench::keep(peer(c, b, level)); }, r});
    }
    t.in_turn(rows);
}

}  // namespace

BENCH_FAMILY("lz4hc", 35, run);
