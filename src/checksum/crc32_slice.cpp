// The table paths of the CRC-32 family, for processors without carry-less multiplication or the
// CRC32 instruction: slicing-by-8 for CRC-32 and the bzip2 CRC, slicing-by-4 for CRC-32C.
#include "checksum/crc32.h"
#include "checksum/crc32_step.h"

namespace zem::crc {

uint32_t crc32_slice8(uint32_t crc, const uint8_t* p, size_t n) {
    const auto& T = kCrc32Tables;
    uint32_t r = ~crc;
    if (n < 15) {
        for (; n; --n) r = step1(T, r, *p++);
        return ~r;
    }
    for (; (uintptr_t)p & 7; --n) r = step1(T, r, *p++);
    for (; n >= 8; n -= 8, p += 8) r = step8(T, r, p);
    for (; n; --n) r = step1(T, r, *p++);
    return ~r;
}

uint32_t bz2_slice8(uint32_t crc, const uint8_t* p, size_t n) {
    const auto& T = kBz2Tables;
    uint32_t r = bswap32(~crc);
    if (n < 11) {
        for (; n; --n) r = step1(T, r, *p++);
        return bswap32(~r);
    }
    for (; (uintptr_t)p & 7; --n) r = step1(T, r, *p++);
    for (; n >= 8; n -= 8, p += 8) r = step8(T, r, p);
    for (; n >= 4; n -= 4, p += 4) r = step4(T, r, p);
    for (; n; --n) r = step1(T, r, *p++);
    return bswap32(~r);
}

uint32_t crc32c_slice4(uint32_t reg, const uint8_t* p, size_t n) {
    const auto& T = kCrc32CTables;
    uint32_t r = reg;
    if (n >= 11) {
        for (; (uintptr_t)p & 3; --n) r = step1(T, r, *p++);
        for (; n >= 8; n -= 8, p += 8) r = step4(T, step4(T, r, p), p + 4);
        if (n >= 4) {
            r = step4(T, r, p);
            p += 4;
            n -= 4;
        }
    }
    for (; n >= 8; n -= 8, p += 8)
        for (int i = 0; i < 8; ++i) r = step1(T, r, p[i]);
    for (; n; --n) r = step1(T, r, *p++);
    return r;
}

}  // namespace zem::crc
