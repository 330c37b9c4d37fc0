// The exported CRC-32 family: argument checks, then the fastest path the processor offers,
// chosen on every call from the core library's feature record.
#include "checksum/crc32.h"

#include "core/check.h"

ZEM_API zemStatus zemsCRC32_8u(const uint8_t* src, int32_t len, uint32_t* pCRC) {
    if (zem::any_null(src, pCRC)) return zemStatusNullPtr;
    if (zem::bad_len(len)) return zemStatusSize;
    *pCRC = zem::crc::crc32_kernel(ownGetFeature)(*pCRC, src, (size_t)len);
    return zemStatusOk;
}

ZEM_API zemStatus zemsCRC32_BZ2_8u(const uint8_t* src, int32_t len, uint32_t* pCRC) {
    if (zem::any_null(src, pCRC)) return zemStatusNullPtr;
    if (zem::bad_len(len)) return zemStatusSize;
    *pCRC = zem::crc::bz2_kernel(ownGetFeature)(*pCRC, src, (size_t)len);
    return zemStatusOk;
}

ZEM_API zemStatus zemsCRC32C_8u(const uint8_t* src, int32_t len, uint32_t* pCRC) {
    if (zem::any_null(src, pCRC)) return zemStatusNullPtr;
    // Only zero is refused: the length is a 32-bit unsigned count here, so -1 means 2^32 - 1 bytes.
    if (len == 0) return zemStatusSize;
    *pCRC = zem::crc::crc32c_kernel(ownGetFeature)(*pCRC, src, (uint32_t)len);
    return zemStatusOk;
}
