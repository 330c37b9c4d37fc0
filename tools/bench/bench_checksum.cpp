// Checksum rows: ours beside zlib, libdeflate and the plain read of the same data.
#include <libdeflate.h>
#include <zlib.h>

#include "bench.h"
#include "zemdc.h"

namespace {

uint32_t ours_adler(const bench::Corpus& c) {
    uint32_t acc = 0;
    for (auto& f : c.files) {
        uint32_t s = 1;
        zemsAdler32_8u(f.data.data(), (int32_t)f.data.size(), &s);
        acc ^= s;
    }
    return acc;
}

void run(const bench::Corpus& c) {
    // Check before timing: ours must equal zlib's on every file.
    for (auto& f : c.files) {
        uint32_t ours = 1;
        zemsAdler32_8u(f.data.data(), (int32_t)f.data.size(), &ours);
        bench::require(ours == adler32(1, f.data.data(), (uInt)f.data.size()), "Adler-32 of " + f.name);
    }
    bench::Table t("Adler-32", c.total_bytes());
    t.ours("zemsAdler32_8u", [&] { bench::keep(ours_adler(c)); });
    t.peer("zlib adler32", [&] {
        for (auto& f : c.files) bench::keep(adler32(1, f.data.data(), (uInt)f.data.size()));
    });
    t.peer("libdeflate_adler32", [&] {
        for (auto& f : c.files) bench::keep(libdeflate_adler32(1, f.data.data(), f.data.size()));
    });
    bench::add_read_limit(t, c);
}

}  // namespace

BENCH_FAMILY("adler32", 10, run);
