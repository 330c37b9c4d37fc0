// The memory kernels beside glibc's memcpy and memset, from 16 bytes to 64 MiB. Each size is
// repeated over a working set so that small sizes measure the kernel, not the timer.
#include <stdlib.h>
#include <string.h>

#include "bench.h"
#include "core/mem.h"

namespace {

std::string size_label(size_t size) {
    return size >= (1u << 20) ? std::to_string(size >> 20) + " MiB"
           : size >= 1024     ? std::to_string(size >> 10) + " KiB"
                              : std::to_string(size) + " B";
}

// Enough calls a pass that even 16-byte calls add up to about 4 MB.
size_t reps_for(size_t size) { return std::max<size_t>(1, (size_t(4) << 20) / size); }

void copy_table(const std::string& title, const uint8_t* s, uint8_t* d, size_t size) {
    size_t reps = reps_for(size);
    zem::MemCopy(s, d, (int32_t)size);
    bench::require(memcmp(s, d, size) == 0, "MemCopy " + title);
    bench::Table t(title, reps * size);
    t.ours("MemCopy", [&] {
        for (size_t r = 0; r < reps; ++r) zem::MemCopy(s, d, (int32_t)size);
    });
    t.peer("memcpy", [&] {
        for (size_t r = 0; r < reps; ++r) {
            memcpy(d, s, size);
            __asm__ volatile("" : : "r"(d) : "memory");
        }
    });
}

void run(const bench::Corpus&) {
    const size_t max = size_t(64) << 20;
    std::vector<uint8_t> src(max + 8192), dst(max + 8192);
    for (size_t i = 0; i < src.size(); ++i) src[i] = uint8_t(i * 131 + (i >> 9));
    auto page = [](std::vector<uint8_t>& v) { return v.data() + (4096 - ((uintptr_t)v.data() & 4095)); };
    // Unrelated placements: odd offsets, and page offsets far apart, as for two separate buffers.
    const uint8_t* s = page(src) + 3;
    uint8_t* d = page(dst) + 2048 + 17;
    const size_t sizes[] = {16, 64, 256, 1024, 4096, 32768, 262144, size_t(2) << 20, size_t(16) << 20, max};
    for (size_t size : sizes) {
        std::string label = size_label(size);
        copy_table("copy, " + label + " blocks", s, d, size);
        size_t reps = reps_for(size);
        bench::Table t("fill, " + label + " blocks", reps * size);
        t.ours("MemFill", [&] {
            for (size_t r = 0; r < reps; ++r) zem::MemFill(0x5a, d, (int32_t)size);
        });
        t.ours("MemZero", [&] {
            for (size_t r = 0; r < reps; ++r) zem::MemZero(d, (int32_t)size);
        });
        t.peer("memset", [&] {
            for (size_t r = 0; r < reps; ++r) {
                memset(d, 0x5a, size);
                __asm__ volatile("" : : "r"(d) : "memory");
            }
        });
    }
    // Buffers at the same page offset (as two large allocations often are) take the backward
    // copy, which avoids the 4 KiB aliasing a forward string move would suffer there.
    for (size_t size : {size_t(32) << 10, size_t(256) << 10, size_t(2) << 20, size_t(16) << 20})
        copy_table("copy, " + size_label(size) + " blocks, same page offset", page(src) + 16, page(dst) + 16, size);
}

}  // namespace

BENCH_FAMILY("mem", 90, run);
