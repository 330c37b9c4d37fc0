// The CRC-32 family: every path on its own against zlib and bitwise references, the exported
// entries' checks, and reads that stay inside the caller's buffer.
#include <sys/mman.h>

#include "checksum/crc32.h"
#include "checksum/crc32_tables.h"
#include "test_util.h"
#include "zemcore.h"

namespace {

// Bit at a time, straight from the definition; anchored by the check values below.
uint32_t ref_reflected(uint32_t reg, uint32_t poly_r, const uint8_t* p, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        reg ^= p[i];
        for (int k = 0; k < 8; ++k) reg = (reg >> 1) ^ ((reg & 1) ? poly_r : 0);
    }
    return reg;
}

uint32_t ref_bz2(uint32_t crc, const uint8_t* p, size_t n) {
    uint32_t reg = ~crc;
    for (size_t i = 0; i < n; ++i) {
        reg ^= uint32_t(p[i]) << 24;
        for (int k = 0; k < 8; ++k) reg = (reg << 1) ^ ((reg >> 31) ? 0x04C11DB7u : 0);
    }
    return ~reg;
}

// The three checksums in the form their exports carry between calls; CRC-32 is zlib's own.
uint32_t ref_crc32(uint32_t crc, const uint8_t* p, size_t n) { return (uint32_t)crc32(crc, p, (uInt)n); }
uint32_t ref_crc32c(uint32_t reg, const uint8_t* p, size_t n) { return ref_reflected(reg, 0x82F63B78u, p, n); }

using Fn = uint32_t (*)(uint32_t, const uint8_t*, size_t);
using Export = zemStatus (*)(const uint8_t*, int32_t, uint32_t*);

constexpr uint64_t kClmul = ZEM_FEATURE_CLMUL, kSse42 = ZEM_FEATURE_SSE42, kWide = zem::crc::kWideFeatures;

const struct Path {
    const char* name;
    Fn fn, ref;
    uint32_t start, check;  // the check value over "123456789" from the conventional start
    uint64_t needs;         // what the processor must have to run it
} kPaths[] = {
    {"crc32_slice8", zem::crc::crc32_slice8, ref_crc32, 0, 0xCBF43926u, 0},
    {"crc32_fold", zem::crc::crc32_fold, ref_crc32, 0, 0xCBF43926u, kClmul},
    {"crc32_fold256", zem::crc::crc32_fold256, ref_crc32, 0, 0xCBF43926u, kWide},
    {"bz2_slice8", zem::crc::bz2_slice8, ref_bz2, 0, 0xFC891918u, 0},
    {"bz2_fold", zem::crc::bz2_fold, ref_bz2, 0, 0xFC891918u, kClmul},
    {"bz2_fold256", zem::crc::bz2_fold256, ref_bz2, 0, 0xFC891918u, kWide},
    {"crc32c_slice4", zem::crc::crc32c_slice4, ref_crc32c, 0xFFFFFFFFu, 0x1CF96D7Cu, 0},
    {"crc32c_streams_clmul", zem::crc::crc32c_streams_clmul, ref_crc32c, 0xFFFFFFFFu, 0x1CF96D7Cu, kClmul | kSse42},
    {"crc32c_streams_table", zem::crc::crc32c_streams_table, ref_crc32c, 0xFFFFFFFFu, 0x1CF96D7Cu, kSse42},
    {"crc32c_fold256", zem::crc::crc32c_fold256, ref_crc32c, 0xFFFFFFFFu, 0x1CF96D7Cu, kWide},
};

// The paths this processor can run; the others are left to the test of the kernel choice, which
// says that they were skipped.
std::vector<const Path*> runnable() {
    std::vector<const Path*> v;
    for (const Path& p : kPaths)
        if (ownGetFeature(p.needs)) v.push_back(&p);
    return v;
}

const struct {
    Export fn;
    Fn ref;
} kExports[] = {{zemsCRC32_8u, ref_crc32}, {zemsCRC32_BZ2_8u, ref_bz2}, {zemsCRC32C_8u, ref_crc32c}};

// Lengths around every length that changes a path: the byte-loop limits, the folding steps, the
// stream blocks (3 x 72 ... 3 x 1024), the long-input blocks and their multiples.
std::vector<size_t> interesting_lengths() {
    std::vector<size_t> v;
    for (size_t n = 1; n <= 160; ++n) v.push_back(n);
    for (size_t base : {216u, 432u, 648u, 864u, 1296u, 1728u, 2592u, 3072u, 4096u, 4800u, 5760u, 6144u, 7360u, 9216u,
                        3072u + 1728u + 864u})
        for (int d : {-25, -24, -17, -8, -1, 0, 1, 7, 8, 23, 24, 25, 63}) v.push_back(size_t(int(base) + d));
    v.insert(v.end(), {3071, 3 * 3072 + 3071});
    return v;
}

}  // namespace

TEST(Crc32, CheckValues) {
    const uint8_t digits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    for (const Path* pp : runnable()) {
        const Path& path = *pp;
        EXPECT_EQ(path.fn(path.start, digits, 9), path.check) << path.name;
        EXPECT_EQ(path.ref(path.start, digits, 9), path.check) << path.name;
    }
    uint32_t v[4] = {0, 0, 0xFFFFFFFFu, 0};
    EXPECT_EQ(zemsCRC32_8u(digits, 9, &v[0]), zemStatusOk);
    EXPECT_EQ(zemsCRC32_BZ2_8u(digits, 9, &v[1]), zemStatusOk);
    EXPECT_EQ(zemsCRC32C_8u(digits, 9, &v[2]), zemStatusOk);
    EXPECT_EQ(zemsCRC32C_8u(digits, 9, &v[3]), zemStatusOk);
    EXPECT_EQ(v[0], 0xCBF43926u);
    EXPECT_EQ(v[1], 0xFC891918u);
    EXPECT_EQ(~v[2], 0xE3069283u);  // the register, not the finished CRC-32C
    EXPECT_EQ(v[3], 0x58E3FA20u);
}

TEST(Crc32, EveryPathEveryLengthAndAlignment) {
    auto buf = zt::random_bytes(16384 + 64, 1);
    const auto lengths = interesting_lengths();
    for (const Path* path : runnable())
        for (size_t off = 0; off < 16; ++off)
            for (size_t n : lengths) {
                // A running value with every byte distinct, so a misplaced register byte shows.
                uint32_t start = 0x9E3779B9u ^ uint32_t(n * 0x01000193u);
                const uint8_t* p = buf.data() + off;
                ASSERT_EQ(path->fn(start, p, n), path->ref(start, p, n)) << path->name << " off " << off << " len " << n;
            }
}

TEST(Crc32, LargeBuffers) {
    auto buf = zt::compressible_bytes((3 << 20) + 77, 2);
    for (const Path* path : runnable())
        for (size_t off : {0u, 13u})
            EXPECT_EQ(path->fn(7, buf.data() + off, buf.size() - off), path->ref(7, buf.data() + off, buf.size() - off))
                << path->name << " off " << off;
}

TEST(Crc32, SplitsEqualOneCall) {
    auto buf = zt::random_bytes(12000, 3);
    zt::Rng r(4);
    for (const Path* pp : runnable()) {
        const Path& path = *pp;
        const uint32_t whole = path.fn(path.start, buf.data(), buf.size());
        for (int trial = 0; trial < 300; ++trial) {
            size_t cut = trial < 40 ? size_t(trial) : 1 + r.below(uint32_t(buf.size() - 1));
            uint32_t v = path.fn(path.start, buf.data(), cut);
            ASSERT_EQ(path.fn(v, buf.data() + cut, buf.size() - cut), whole) << path.name << " cut " << cut;
        }
    }
    // Through the exports, with the value carried as the caller keeps it, in growing pieces.
    for (const auto& e : kExports) {
        uint32_t v = 0x11223344u;
        for (size_t at = 1, step = 1; at < buf.size(); at += step, step = step * 3 + 1)
            ASSERT_EQ(e.fn(buf.data() + at, (int32_t)std::min(step, buf.size() - at), &v), zemStatusOk);
        EXPECT_EQ(v, e.ref(0x11223344u, buf.data() + 1, buf.size() - 1));
    }
}

TEST(Crc32, KernelForEachProcessor) {
    // Made-up processors, from none of the features to the wide multiplier: each gets the kernel
    // of the strongest path it can run, so a processor without a feature never reaches its code.
    using namespace zem::crc;
    const struct {
        uint64_t features;
        Kernel crc32, bz2, crc32c;
    } kProcessors[] = {
        {0, crc32_slice8, bz2_slice8, crc32c_slice4},
        {kSse42, crc32_slice8, bz2_slice8, crc32c_streams_table},
        {kSse42 | kClmul, crc32_fold, bz2_fold, crc32c_streams_clmul},
        {kSse42 | kClmul | ZEM_FEATURE_AVX2, crc32_fold, bz2_fold, crc32c_streams_clmul},
        {kSse42 | ZEM_FEATURE_VPCLMULQDQ | ZEM_FEATURE_AVX2, crc32_slice8, bz2_slice8, crc32c_streams_table},
        {kWide, crc32_fold256, bz2_fold256, crc32c_fold256},
    };
    for (const auto& cpu : kProcessors) {
        auto has = [&](uint64_t mask) { return (cpu.features & mask) == mask; };
        EXPECT_EQ(crc32_kernel(has), cpu.crc32) << std::hex << cpu.features;
        EXPECT_EQ(bz2_kernel(has), cpu.bz2) << std::hex << cpu.features;
        EXPECT_EQ(crc32c_kernel(has), cpu.crc32c) << std::hex << cpu.features;
        for (const Path& path : kPaths) {
            const bool chosen = path.fn == cpu.crc32 || path.fn == cpu.bz2 || path.fn == cpu.crc32c;
            EXPECT_TRUE(!chosen || has(path.needs)) << path.name << " chosen without its features";
        }
    }
    if (!ownGetFeature(kWide)) GTEST_SKIP() << "no 256-bit carry-less multiply here: its kernels were not run";
}

TEST(Crc32, StatusesLeaveTheValueUntouched) {
    uint8_t byte = 0x5a;
    for (const auto& e : kExports) {
        uint32_t v = 0xA5A5A5A5u;
        EXPECT_EQ(e.fn(nullptr, 1, &v), zemStatusNullPtr);
        EXPECT_EQ(e.fn(&byte, 1, nullptr), zemStatusNullPtr);
        EXPECT_EQ(e.fn(nullptr, 0, &v), zemStatusNullPtr);  // pointers are checked before the length
        EXPECT_EQ(e.fn(&byte, 0, &v), zemStatusSize);
        if (e.fn != zemsCRC32C_8u) {  // which takes a negative length as unsigned (below)
            EXPECT_EQ(e.fn(&byte, -1, &v), zemStatusSize);
            EXPECT_EQ(e.fn(&byte, INT32_MIN, &v), zemStatusSize);
        }
        EXPECT_EQ(v, 0xA5A5A5A5u);
    }
}

TEST(Crc32, Crc32cTakesANegativeLengthAsUnsigned) {
    // -1 is 2^32 - 1 bytes. They are one 2 MiB block of zeros mapped over and over (cheap to
    // fault in), ending at an inaccessible page so that the call must read exactly them. The
    // expected register is the start carried past that many zero bytes: r * x^(8n) mod P.
    const size_t chunk = 2u << 20, n = 0xFFFFFFFFull, span = n + 1;
    int fd = memfd_create("zeros", 0);
    if (fd < 0 || ftruncate(fd, (off_t)chunk) != 0) GTEST_SKIP() << "no memfd";
    uint8_t* base = (uint8_t*)mmap(nullptr, span + 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (base == MAP_FAILED) {
        close(fd);
        GTEST_SKIP() << "no room for a 4 GiB mapping";
    }
    for (size_t at = 0; at < span; at += chunk)
        ASSERT_NE(mmap(base + at, chunk, PROT_READ, MAP_SHARED | MAP_FIXED, fd, 0), MAP_FAILED);
    close(fd);
    uint32_t v = 0x12345678u;
    EXPECT_EQ(zemsCRC32C_8u(base + 1, -1, &v), zemStatusOk);
    EXPECT_EQ(v, zem::crc::mulmod_r(0x12345678u, zem::crc::xpow_r(8 * n, zem::crc::kPolyCrc32CR), zem::crc::kPolyCrc32CR));
    munmap(base, span + 4096);
}

TEST(Crc32, ReadsStayInsideTheBuffer) {
    // A guard page right after, or right before, the bytes: any path that reads outside faults.
    // Every first-byte alignment is tried inside the buffer.
    auto data = zt::random_bytes(8192, 6);
    for (bool at_start : {false, true})
        for (size_t n : {1u, 7u, 8u, 15u, 16u, 17u, 31u, 32u, 33u, 47u, 63u, 64u, 65u, 127u, 128u, 161u, 216u, 1000u, 3072u, 8192u}) {
            zt::GuardedBuffer g(n, at_start);
            g.assign(data.data(), n);
            for (const Path* path : runnable())
                for (size_t skip = 0; skip < std::min<size_t>(n, 16); ++skip)
                    ASSERT_EQ(path->fn(1, g.data() + skip, n - skip), path->ref(1, data.data() + skip, n - skip))
                        << path->name << " len " << n << " skip " << skip;
        }
}
