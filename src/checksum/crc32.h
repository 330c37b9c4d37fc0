// The kernels of the CRC-32 family. Each is a complete path on its own, callable whatever the
// processor reports, so that every path can be proven against the others.
//
// The CRC-32 and bzip2 kernels take and return the finished checksum (complemented register),
// the CRC-32C kernels the bare register, as the exported functions do.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace zem::crc {

// CRC-32 (reflected 0x04C11DB7): slicing-by-8 tables; carry-less folding.
[[nodiscard]] uint32_t crc32_slice8(uint32_t crc, const uint8_t* p, size_t n);
[[nodiscard]] uint32_t crc32_fold(uint32_t crc, const uint8_t* p, size_t n);

// The bzip2 CRC (0x04C11DB7 most significant bit first): slicing-by-8; carry-less folding.
[[nodiscard]] uint32_t bz2_slice8(uint32_t crc, const uint8_t* p, size_t n);
[[nodiscard]] uint32_t bz2_fold(uint32_t crc, const uint8_t* p, size_t n);

// CRC-32C (reflected 0x1EDC6F41), raw register: slicing-by-4; three CRC32-instruction streams
// merged with carry-less multiplication; the same merged with shift tables.
[[nodiscard]] uint32_t crc32c_slice4(uint32_t reg, const uint8_t* p, size_t n);
[[nodiscard]] uint32_t crc32c_streams_clmul(uint32_t reg, const uint8_t* p, size_t n);
[[nodiscard]] uint32_t crc32c_streams_table(uint32_t reg, const uint8_t* p, size_t n);

}  // namespace zem::crc
