// Unaligned little-endian loads and stores: the one home of the helpers every codec needs to
// read words at byte positions. memcpy compiles to a single move on x86 and keeps the accesses
// free of alignment and aliasing undefined behaviour.
#pragma once

#include <stdint.h>
#include <string.h>

#include "core/check.h"

namespace zem {

ZEM_INLINE uint16_t load16(const void* p) {
    uint16_t v;
    memcpy(&v, p, 2);
    return v;
}
ZEM_INLINE uint32_t load32(const void* p) {
    uint32_t v;
    memcpy(&v, p, 4);
    return v;
}
ZEM_INLINE uint64_t load64(const void* p) {
    uint64_t v;
    memcpy(&v, p, 8);
    return v;
}
ZEM_INLINE void store16(void* p, uint16_t v) { memcpy(p, &v, 2); }
ZEM_INLINE void store32(void* p, uint32_t v) { memcpy(p, &v, 4); }
ZEM_INLINE void store64(void* p, uint64_t v) { memcpy(p, &v, 8); }

// Big-endian forms, for formats that store their fields most significant byte first.
ZEM_INLINE uint32_t load32_be(const void* p) { return __builtin_bswap32(load32(p)); }
ZEM_INLINE void store32_be(void* p, uint32_t v) { store32(p, __builtin_bswap32(v)); }
ZEM_INLINE uint64_t load64_be(const void* p) { return __builtin_bswap64(load64(p)); }
ZEM_INLINE void store64_be(void* p, uint64_t v) { store64(p, __builtin_bswap64(v)); }

}  // namespace zem
