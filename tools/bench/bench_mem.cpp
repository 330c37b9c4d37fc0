// The memory kernels beside glibc's memcpy and memset, from 16 bytes to 64 MiB. Each size is
// repeated over a working set so that small sizes measure the kernel, not the timer.
#include <stdlib.h>
#include <string.h>

#include "bench.h"
#include "core/mem.h"

namespace {

// Buffers are offset by odd amounts so that neither side is conveniently aligned.
constexpr size_t kSrcOffset = 3, kDstOffset = 17;

void run(const bench::Corpus&) {
    const size_t max = size_t(64) << 20;
    std::vector<uint8_t> src(max + 4096), dst(max + 4096);
    for (size_t i = 0; i < src.size(); ++i) src[i] = uint8_t(i * 131 + (i >> 9));
    const uint8_t* s = src.data() + kSrcOffset;
    uint8_t* d = dst.data() + kDstOffset;
    for (size_t size = 16; size <= max; size *= (size < 4096 ? 4 : 8)) {
        // Enough calls a pass that even 16-byte calls add up to about 4 MB.
        size_t reps = std::max<size_t>(1, (size_t(4) << 20) / size);
        uint64_t bytes = reps * size;
        std::string label = size >= (1u << 20) ? std::to_string(size >> 20) + " MiB"
                            : size >= 1024    ? std::to_string(size >> 10) + " KiB"
                                              : std::to_string(size) + " B";
        zem::MemCopy(s, d, (int32_t)size);
        bench::require(memcmp(s, d, size) == 0, "MemCopy " + label);
        {
            bench::Table t("copy, " + label + " blocks", bytes);
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
        bench::Table t("fill, " + label + " blocks", bytes);
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
}

}  // namespace

BENCH_FAMILY("mem", 90, run);
