// Differential fuzzing of the CRC-32 family: every path of a checksum must agree with the
// bit-at-a-time definition, for any bytes, start value and split into two calls.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "checksum/crc32.h"
#include "zemcore.h"

namespace {

uint32_t bitwise_reflected(uint32_t reg, uint32_t poly_r, const uint8_t* p, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        reg ^= p[i];
        for (int k = 0; k < 8; ++k) reg = (reg >> 1) ^ ((reg & 1) ? poly_r : 0);
    }
    return reg;
}

uint32_t bitwise_msb(uint32_t reg, const uint8_t* p, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        reg ^= uint32_t(p[i]) << 24;
        for (int k = 0; k < 8; ++k) reg = (reg << 1) ^ ((reg >> 31) ? 0x04C11DB7u : 0);
    }
    return reg;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Header: four bytes of start value, two of split point, one of repeat count; the rest,
    // repeated (so that messages reach the long-input paths), is the message. It sits in a buffer
    // of its exact size so that any read past it is caught.
    if (size < 7) return 0;
    uint32_t start;
    memcpy(&start, data, 4);
    const size_t body = size - 7, reps = 1 + data[6] % 4, n = body * reps;
    const size_t cut = n ? (size_t(data[4]) | size_t(data[5]) << 8) * reps % (n + 1) : 0;
    uint8_t* msg = new uint8_t[n + 1];  // +1 keeps the pointer valid for n == 0
    for (size_t r = 0; r < reps; ++r) memcpy(msg + r * body, data + 7, body);

    const uint32_t want[] = {~bitwise_reflected(~start, 0xEDB88320u, msg, n), ~bitwise_msb(~start, msg, n),
                             bitwise_reflected(start, 0x82F63B78u, msg, n)};
    using namespace zem::crc;
    // Each path with the index of its checksum in want, and what the processor needs to run it.
    static const struct { Kernel fn; int sum; uint64_t needs; } paths[] = {
        {crc32_slice8, 0, 0},  {crc32_fold, 0, ZEM_FEATURE_CLMUL},     {crc32_fold256, 0, kWideFeatures},
        {bz2_slice8, 1, 0},    {bz2_fold, 1, ZEM_FEATURE_CLMUL},       {bz2_fold256, 1, kWideFeatures},
        {crc32c_slice4, 2, 0}, {crc32c_streams_clmul, 2, ZEM_FEATURE_CLMUL | ZEM_FEATURE_SSE42},
        {crc32c_streams_table, 2, ZEM_FEATURE_SSE42}, {crc32c_fold256, 2, kWideFeatures}};
    for (const auto& p : paths)
        if (ownGetFeature(p.needs) && p.fn(start, msg, n) != want[p.sum] || p.fn(p.fn(start, msg, cut), msg + cut, n - cut) != want[p.sum])
            __builtin_trap();
    delete[] msg;
    return 0;
}
