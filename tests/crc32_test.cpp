// The CRC-32 family: every path on its own against bitwise references and zlib, the exported
// entries' checks, and reads that stay inside the caller's buffer.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <zlib.h>

#include "checksum/crc32.h"
#include "checksum/crc32_tables.h"
#include "test_util.h"
#include "zemdc.h"

namespace {

// Bit at a time, straight from the definition.
uint32_t ref_reflected(uint32_t reg, uint32_t poly_r, const uint8_t* p, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        reg ^= p[i];
        for (int k = 0; k < 8; ++k) reg = (reg >> 1) ^ ((reg & 1) ? poly_r : 0);
    }
    return reg;
}

uint32_t ref_msb(uint32_t reg, const uint8_t* p, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        reg ^= uint32_t(p[i]) << 24;
        for (int k = 0; k < 8; ++k) reg = (reg << 1) ^ ((reg >> 31) ? 0x04C11DB7u : 0);
    }
    return reg;
}

// The three checksums in the form their exports carry between calls.
uint32_t ref_crc32(uint32_t crc, const uint8_t* p, size_t n) { return ~ref_reflected(~crc, 0xEDB88320u, p, n); }
uint32_t ref_bz2(uint32_t crc, const uint8_t* p, size_t n) { return ~ref_msb(~crc, p, n); }
uint32_t ref_crc32c(uint32_t reg, const uint8_t* p, size_t n) { return ref_reflected(reg, 0x82F63B78u, p, n); }

using Fn = uint32_t (*)(uint32_t, const uint8_t*, size_t);

struct Path {
    const char* name;
    Fn fn;
    Fn ref;
};

const Path kPaths[] = {
    {"crc32_slice8", zem::crc::crc32_slice8, ref_crc32},
    {"crc32_fold", zem::crc::crc32_fold, ref_crc32},
    {"bz2_slice8", zem::crc::bz2_slice8, ref_bz2},
    {"bz2_fold", zem::crc::bz2_fold, ref_bz2},
    {"crc32c_slice4", zem::crc::crc32c_slice4, ref_crc32c},
    {"crc32c_streams_clmul", zem::crc::crc32c_streams_clmul, ref_crc32c},
    {"crc32c_streams_table", zem::crc::crc32c_streams_table, ref_crc32c},
};

// Lengths around every length that changes a path: the byte-loop limits, the folding steps, the
// stream blocks (3 x 72 ... 3 x 1024), the long-input blocks and their multiples.
std::vector<size_t> interesting_lengths() {
    std::vector<size_t> v;
    for (size_t n = 1; n <= 160; ++n) v.push_back(n);
    for (size_t base : {216u, 432u, 648u, 864u, 1296u, 1728u, 2592u, 3072u, 4096u, 4800u, 5760u, 6144u, 7360u, 9216u,
                        3072u + 1728u + 864u})
        for (int d : {-25, -24, -17, -8, -1, 0, 1, 7, 8, 23, 24, 25, 63})
            v.push_back(size_t(int(base) + d));
    v.push_back(3071);
    v.push_back(3 * 3072 + 3071);
    return v;
}

}  // namespace

TEST(Crc32, CheckValues) {
    const uint8_t digits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    uint32_t v = 0;
    EXPECT_EQ(zemsCRC32_8u(digits, 9, &v), zemStatusOk);
    EXPECT_EQ(v, 0xCBF43926u);
    v = 0;
    EXPECT_EQ(zemsCRC32_BZ2_8u(digits, 9, &v), zemStatusOk);
    EXPECT_EQ(v, 0xFC891918u);
    v = 0xFFFFFFFFu;
    EXPECT_EQ(zemsCRC32C_8u(digits, 9, &v), zemStatusOk);
    EXPECT_EQ(v, 0x1CF96D7Cu);
    EXPECT_EQ(~v, 0xE3069283u);
    v = 0;
    EXPECT_EQ(zemsCRC32C_8u(digits, 9, &v), zemStatusOk);
    EXPECT_EQ(v, 0x58E3FA20u);
    // The same from every path, whatever the processor would choose.
    const uint32_t start[] = {0, 0, 0, 0, 0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu};
    const uint32_t check[] = {0xCBF43926u, 0xCBF43926u, 0xFC891918u, 0xFC891918u, 0x1CF96D7Cu, 0x1CF96D7Cu, 0x1CF96D7Cu};
    for (size_t i = 0; i < std::size(kPaths); ++i) EXPECT_EQ(kPaths[i].fn(start[i], digits, 9), check[i]) << kPaths[i].name;
}

TEST(Crc32, BitwiseReferencesAgreeWithZlib) {
    // Anchors the bitwise references themselves: the CRC-32 one is zlib's, and the bzip2 CRC of a
    // byte string equals the CRC-32 of the bit-reversed bytes, bit-reversed.
    auto buf = zt::random_bytes(3000, 11);
    std::vector<uint8_t> rev(buf.size());
    auto rev32 = [](uint32_t v) {
        uint32_t r = 0;
        for (int i = 0; i < 32; ++i) r |= ((v >> i) & 1u) << (31 - i);
        return r;
    };
    auto rev8 = [&](uint8_t b) { return uint8_t(rev32(b) >> 24); };
    for (size_t i = 0; i < buf.size(); ++i) rev[i] = rev8(buf[i]);
    for (size_t n : {1u, 9u, 100u, 3000u}) {
        ASSERT_EQ(ref_crc32(0x1234567u, buf.data(), n), crc32(0x1234567u, buf.data(), (uInt)n));
        ASSERT_EQ(ref_bz2(0, buf.data(), n), rev32(ref_crc32(0, rev.data(), n)));
    }
}

TEST(Crc32, EveryPathEveryLengthAndAlignment) {
    auto buf = zt::random_bytes(16384 + 64, 1);
    const auto lengths = interesting_lengths();
    for (const Path& path : kPaths) {
        for (size_t off = 0; off < 16; ++off) {
            const uint8_t* p = buf.data() + off;
            for (size_t n : lengths) {
                // A running value with every byte distinct, so a misplaced register byte shows.
                uint32_t start = 0x9E3779B9u ^ uint32_t(n * 0x01000193u);
                ASSERT_EQ(path.fn(start, p, n), path.ref(start, p, n)) << path.name << " off " << off << " len " << n;
            }
        }
    }
}

TEST(Crc32, LargeBuffersMatchZlib) {
    auto buf = zt::compressible_bytes((3 << 20) + 77, 2);
    for (size_t off : {0u, 5u, 13u}) {
        const uint8_t* p = buf.data() + off;
        size_t n = buf.size() - off;
        uint32_t want = (uint32_t)crc32(0, p, (uInt)n);
        EXPECT_EQ(zem::crc::crc32_fold(0, p, n), want);
        EXPECT_EQ(zem::crc::crc32_slice8(0, p, n), want);
        uint32_t bz2 = zem::crc::bz2_slice8(0, p, n);
        EXPECT_EQ(zem::crc::bz2_fold(0, p, n), bz2);
        uint32_t c = zem::crc::crc32c_slice4(0xFFFFFFFFu, p, n);
        EXPECT_EQ(zem::crc::crc32c_streams_clmul(0xFFFFFFFFu, p, n), c);
        EXPECT_EQ(zem::crc::crc32c_streams_table(0xFFFFFFFFu, p, n), c);
    }
    // The bitwise references once over a long buffer, for the paths zlib cannot check.
    const size_t n = 1 << 20;
    EXPECT_EQ(zem::crc::bz2_fold(7, buf.data() + 3, n), ref_bz2(7, buf.data() + 3, n));
    EXPECT_EQ(zem::crc::crc32c_streams_clmul(7, buf.data() + 3, n), ref_crc32c(7, buf.data() + 3, n));
}

TEST(Crc32, TwoCallsEqualOne) {
    auto buf = zt::random_bytes(12000, 3);
    zt::Rng r(4);
    for (const Path& path : kPaths) {
        const uint32_t start = path.ref == ref_crc32c ? 0xFFFFFFFFu : 0;
        const uint32_t whole = path.fn(start, buf.data(), buf.size());
        for (int trial = 0; trial < 300; ++trial) {
            size_t cut = trial < 40 ? size_t(trial) : 1 + r.below(uint32_t(buf.size() - 1));
            uint32_t v = path.fn(start, buf.data(), cut);
            ASSERT_EQ(path.fn(v, buf.data() + cut, buf.size() - cut), whole) << path.name << " cut " << cut;
        }
    }
    // Through the exports, with the value carried as the caller keeps it.
    using Export = zemStatus (*)(const uint8_t*, int32_t, uint32_t*);
    for (Export f : {zemsCRC32_8u, zemsCRC32_BZ2_8u, zemsCRC32C_8u}) {
        uint32_t whole = 0xFFFFFFFFu, v = 0xFFFFFFFFu;
        ASSERT_EQ(f(buf.data(), (int32_t)buf.size(), &whole), zemStatusOk);
        for (size_t at = 0, step = 1; at < buf.size(); at += step, step = step * 3 + 1) {
            size_t len = std::min(step, buf.size() - at);
            ASSERT_EQ(f(buf.data() + at, (int32_t)len, &v), zemStatusOk);
        }
        EXPECT_EQ(v, whole);
    }
}

TEST(Crc32, ExportsAgreeWithTheirPaths) {
    auto buf = zt::random_bytes(5000, 5);
    for (size_t n : {1u, 31u, 32u, 215u, 4999u}) {
        const uint8_t* p = buf.data() + 1;
        uint32_t a = 0x11223344u, b = a, c = a;
        ASSERT_EQ(zemsCRC32_8u(p, (int32_t)n, &a), zemStatusOk);
        ASSERT_EQ(zemsCRC32_BZ2_8u(p, (int32_t)n, &b), zemStatusOk);
        ASSERT_EQ(zemsCRC32C_8u(p, (int32_t)n, &c), zemStatusOk);
        EXPECT_EQ(a, ref_crc32(0x11223344u, p, n));
        EXPECT_EQ(b, ref_bz2(0x11223344u, p, n));
        EXPECT_EQ(c, ref_crc32c(0x11223344u, p, n));
    }
}

TEST(Crc32, StatusesLeaveTheValueUntouched) {
    uint8_t byte = 0x5a;
    using Export = zemStatus (*)(const uint8_t*, int32_t, uint32_t*);
    for (Export f : {zemsCRC32_8u, zemsCRC32_BZ2_8u, zemsCRC32C_8u}) {
        uint32_t v = 0xA5A5A5A5u;
        EXPECT_EQ(f(nullptr, 1, &v), zemStatusNullPtr);
        EXPECT_EQ(f(&byte, 1, nullptr), zemStatusNullPtr);
        EXPECT_EQ(f(nullptr, 0, &v), zemStatusNullPtr);  // pointers are checked before the length
        EXPECT_EQ(f(&byte, 0, &v), zemStatusSize);
        EXPECT_EQ(v, 0xA5A5A5A5u);
    }
    for (Export f : {zemsCRC32_8u, zemsCRC32_BZ2_8u}) {
        uint32_t v = 0xA5A5A5A5u;
        EXPECT_EQ(f(&byte, -1, &v), zemStatusSize);
        EXPECT_EQ(f(&byte, INT32_MIN, &v), zemStatusSize);
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
    const uint32_t start = 0x12345678u;
    const uint32_t want = zem::crc::mulmod_r(start, zem::crc::xpow_r(8 * n, zem::crc::kPolyCrc32CR), zem::crc::kPolyCrc32CR);
    uint32_t v = start;
    EXPECT_EQ(zemsCRC32C_8u(base + 1, -1, &v), zemStatusOk);
    EXPECT_EQ(v, want);
    munmap(base, span + 4096);
}

TEST(Crc32, ReadsStayInsideTheBuffer) {
    // A guard page right after, or right before, the bytes: any path that reads outside faults.
    auto data = zt::random_bytes(8192, 6);
    for (bool at_start : {false, true}) {
        for (size_t n : {1u, 7u, 8u, 15u, 16u, 17u, 31u, 32u, 33u, 47u, 63u, 64u, 65u, 127u, 216u, 1000u, 3072u, 8192u}) {
            zt::GuardedBuffer g(n, at_start);
            g.assign(data.data(), n);
            for (const Path& path : kPaths) {
                // Inside the buffer, also the first byte at each alignment.
                for (size_t skip = 0; skip < std::min<size_t>(n, 16); ++skip)
                    ASSERT_EQ(path.fn(1, g.data() + skip, n - skip), path.ref(1, data.data() + skip, n - skip))
                        << path.name << " len " << n << " skip " << skip;
            }
        }
    }
}
