// The kernels of the CRC-32 family. Each is a complete path on its own, callable directly on any
// processor with the features it needs (whatever the entries would choose there), so that every
// path can be proven against the others.
//
// The CRC-32 and bzip2 kernels take and return the finished checksum (complemented register),
// the CRC-32C kernels the bare register, as the exported functions do.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "core/check.h"
#include "zemcore.h"

namespace zem::crc {

// CRC-32 (reflected 0x04C11DB7): slicing-by-8 tables; carry-less folding.
[[nodiscard]] uint32_t crc32_slice8(uint32_t crc, const uint8_t* p, size_t n);
[[nodiscard]] uint32_t crc32_fold(uint32_t crc, const uint8_t* p, size_t n);
[[nodiscard]] uint32_t crc32_fold256(uint32_t crc, const uint8_t* p, size_t n);  // needs kWideFeatures

// The bzip2 CRC (0x04C11DB7 most significant bit first): slicing-by-8; carry-less folding.
[[nodiscard]] uint32_t bz2_slice8(uint32_t crc, const uint8_t* p, size_t n);
[[nodiscard]] uint32_t bz2_fold(uint32_t crc, const uint8_t* p, size_t n);
[[nodiscard]] uint32_t bz2_fold256(uint32_t crc, const uint8_t* p, size_t n);  // needs kWideFeatures

// CRC-32C (reflected 0x1EDC6F41), raw register: slicing-by-4; three CRC32-instruction streams
// merged with carry-less multiplication; the same merged with shift tables.
[[nodiscard]] uint32_t crc32c_slice4(uint32_t reg, const uint8_t* p, size_t n);
[[nodiscard]] uint32_t crc32c_streams_clmul(uint32_t reg, const uint8_t* p, size_t n);
[[nodiscard]] uint32_t crc32c_streams_table(uint32_t reg, const uint8_t* p, size_t n);
[[nodiscard]] uint32_t crc32c_fold256(uint32_t reg, const uint8_t* p, size_t n);  // needs kWideFeatures

// 256-bit carry-less multiplication, the 128-bit form the reductions use and the CRC32
// instruction that finishes CRC-32C.
inline constexpr uint64_t kWideFeatures =
    ZEM_FEATURE_VPCLMULQDQ | ZEM_FEATURE_AVX2 | ZEM_FEATURE_CLMUL | ZEM_FEATURE_SSE42;

using Kernel = uint32_t (*)(uint32_t, const uint8_t*, size_t);

// The kernel of each checksum for the processor that has(mask) describes (it answers as
// ownGetFeature does): the entries ask the core library, the tests a processor of their choice.
template <class Has>
ZEM_INLINE Kernel crc32_kernel(Has has) {
    if (has(kWideFeatures)) return crc32_fold256;
    return has(ZEM_FEATURE_CLMUL) ? crc32_fold : crc32_slice8;
}

template <class Has>
ZEM_INLINE Kernel bz2_kernel(Has has) {
    if (has(kWideFeatures)) return bz2_fold256;
    return has(ZEM_FEATURE_CLMUL) ? bz2_fold : bz2_slice8;
}

template <class Has>
ZEM_INLINE Kernel crc32c_kernel(Has has) {
    if (has(kWideFeatures)) return crc32c_fold256;
    if (has(ZEM_FEATURE_CLMUL)) return crc32c_streams_clmul;
    return has(ZEM_FEATURE_SSE42) ? crc32c_streams_table : crc32c_slice4;
}

}  // namespace zem::crc
