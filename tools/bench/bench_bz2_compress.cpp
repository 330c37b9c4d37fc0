// Block-sorting compression rows: whole .bz2 streams beside libbz2 at levels 1 and 9 (each file
// one stream, ratios of whole files), and the forward block sort alone (each hint, on the corpus
// cut into 900 kB blocks, and on repetitive 900 kB blocks beside a text block of the same size).
#include <bzlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "bench.h"
#include "bz2_writer.h"
#include "zemdc.h"

namespace {

constexpr uint32_t kBlock = 900000;

struct Blocks {
    std::vector<std::pair<const uint8_t*, uint32_t>> spans;
    uint64_t bytes = 0;
    void add(const uint8_t* p, size_t n) {
        for (size_t off = 0; off < n; off += kBlock) {
            uint32_t len = uint32_t(n - off < kBlock ? n - off : kBlock);
            spans.push_back({p + off, len});
            bytes += len;
        }
    }
};

struct Sorter {
    std::vector<uint8_t> buf, dst = std::vector<uint8_t>(kBlock);
    Sorter() {
        uint32_t size = 0;
        zemsBWTFwdGetBufSize_SelectSort_8u(kBlock, &size, zemBWTSortAuto);
        buf.resize(size);
    }
    uint64_t run(const Blocks& b, zemBWTSort hint) {
        uint64_t sum = 0;
        for (auto& [p, n] : b.spans) {
            uint32_t index = 0;
            bench::require(zemsBWTFwd_SelectSort_8u(p, dst.data(), n, &index, buf.data(), hint) == zemStatusOk,
                           "zemsBWTFwd_SelectSort_8u");
            sum += index + dst[n / 2];
        }
        return sum;
    }
};

const char* hint_name(zemBWTSort h) {
    return h == zemBWTSortAuto ? "Auto" : h == zemBWTSortBucket ? "Bucket" : "Suffix";
}

void transform_rows(const bench::Corpus& c, Sorter& s) {
    Blocks corpus;
    for (auto& f : c.files) corpus.add(f.data.data(), f.data.size());
    {
        bench::Table t("BWT forward, corpus in 900 kB blocks", corpus.bytes);
        for (zemBWTSort h : {zemBWTSortAuto, zemBWTSortBucket, zemBWTSortSuffix})
            t.ours(std::string("zemsBWTFwd_SelectSort_8u ") + hint_name(h), [&, h] { bench::keep(s.run(corpus, h)); });
    }

    // The repetitive shapes beside a text block: each row's multiple of the text row is the
    // slowdown the shape costs.
    std::vector<uint8_t> text(kBlock), one(kBlock, 'a'), period(kBlock), doubled(kBlock), runs(kBlock, 0);
    const auto& first = c.files.front().data;
    for (uint32_t i = 0; i < kBlock; ++i) text[i] = first[i % first.size()];
    for (uint32_t i = 0; i < kBlock; ++i) period[i] = uint8_t("zemdc-"[i % 6]);
    for (uint32_t i = 0; i < kBlock; ++i) doubled[i] = text[i % (kBlock / 2)];
    doubled[kBlock / 3] ^= 1;  // nearly doubled: one period does not cover it
    for (uint32_t i = 0; i < kBlock; i += 10007) runs[i] = uint8_t(i);
    struct Shape {
        const char* name;
        const std::vector<uint8_t>* data;
    } shapes[] = {{"all one byte", &one}, {"period 6", &period}, {"nearly doubled", &doubled}, {"long runs", &runs}};
    Blocks tb;
    tb.add(text.data(), kBlock);
    bench::Table t("BWT forward, repetitive 900 kB blocks (peer: the text block)", kBlock);
    for (auto& sh : shapes) {
        Blocks b;
        b.add(sh.data->data(), kBlock);
        for (zemBWTSort h : {zemBWTSortAuto, zemBWTSortSuffix})
            t.ours(std::string(sh.name) + " " + hint_name(h), [&, b, h] { bench::keep(s.run(b, h)); });
    }
    t.peer("text block Auto", [&] { bench::keep(s.run(tb, zemBWTSortAuto)); });
}

void compress_rows(const bench::Corpus& c) {
    std::vector<std::vector<uint8_t>> out(c.files.size());
    for (size_t i = 0; i < c.files.size(); ++i) out[i].resize(c.files[i].data.size() * 101 / 100 + 700);
    auto peer = [&](int level) {
        uint64_t total = 0;
        for (size_t i = 0; i < c.files.size(); ++i) {
            const auto& f = c.files[i].data;
            unsigned int n = (unsigned int)out[i].size();
            bench::require(BZ2_bzBuffToBuffCompress((char*)out[i].data(), &n, (char*)f.data(), (unsigned int)f.size(),
                                                    level, 0, 0) == BZ_OK,
                           "BZ2_bzBuffToBuffCompress");
            total += n;
        }
        return total;
    };
    auto ours = [&](int level) {
        uint64_t total = 0;
        for (auto& f : c.files) total += zem::stream::bz2_compress(f.data.data(), f.data.size(), level).size();
        return total;
    };
    const double raw = double(c.total_bytes());
    bench::Table t(".bz2 compress (whole files, libbz2 decodes ours)", c.total_bytes());
    std::vector<bench::Table::Entry> rows;
    for (int level : {1, 9}) {
        uint64_t total = 0;
        std::vector<uint8_t> back;
        for (auto& f : c.files) {
            auto z = zem::stream::bz2_compress(f.data.data(), f.data.size(), level);
            back.resize(f.data.size() + 1);
            unsigned int n = (unsigned int)back.size();
            bench::require(BZ2_bzBuffToBuffDecompress((char*)back.data(), &n, (char*)z.data(), (unsigned int)z.size(), 0,
                                                      0) == BZ_OK &&
                               n == f.data.size() && memcmp(back.data(), f.data.data(), n) == 0,
                           "libbz2 decodes our .bz2 of " + f.name);
            total += z.size();
        }
        rows.push_back({bench::Kind::Ours, "Bz2Writer L" + std::to_string(level), [&, level] { bench::keep(ours(level)); },
                        raw / double(total)});
    }
    for (int level : {1, 9}) {
        double r = raw / double(peer(level));
        rows.push_back({bench::Kind::Peer, "BZ2_bzBuffToBuffCompress L" + std::to_string(level),
                        [&, level] { bench::keep(peer(level)); }, r});
    }
    t.in_turn(rows);
}

void run(const bench::Corpus& c) {
    compress_rows(c);
    Sorter s;
    transform_rows(c, s);
}

}  // namespace

BENCH_FAMILY("bz2compress", 60, run);
