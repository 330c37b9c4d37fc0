// The inverse Burrows-Wheeler transform of a block given as its last column and primary index.
#include "blocksort/block_walk.h"
#include "core/bytes.h"
#include "core/check.h"
#include "core/mem.h"

namespace zem::bz2 {
namespace {

inline constexpr int32_t kBuckets = 256;
inline constexpr uint32_t kCountBytes = kBuckets * 4;

// The work buffer holds the 256 bucket counters, then the successor vector; the caller's buffer
// has no alignment, so both are accessed through the unaligned helpers.
ZEM_INLINE uint32_t at(const uint8_t* a, uint32_t i) { return load32(a + 4 * size_t(i)); }
ZEM_INLINE void put(uint8_t* a, uint32_t i, uint32_t v) { store32(a + 4 * size_t(i), v); }

void invert(const uint8_t* src, uint8_t* dst, uint32_t n, uint32_t index, uint8_t* buf) {
    // Counting runs on a local table (the caller's buffer may be unaligned, and four tables
    // break the dependency on repeated bytes); the buffer then takes the bucket starts.
    uint32_t count[4][kBuckets] = {};
    uint32_t i = 0;
    for (; i + 4 <= n; i += 4) {
        ++count[0][src[i]];
        ++count[1][src[i + 1]];
        ++count[2][src[i + 2]];
        ++count[3][src[i + 3]];
    }
    for (; i < n; ++i) ++count[0][src[i]];
    uint8_t* const c = buf;
    uint8_t* const t = buf + kCountBytes;
    uint32_t sum = 0;
    for (int b = 0; b < kBuckets; ++b) {
        put(c, uint32_t(b), sum);
        sum += count[0][b] + count[1][b] + count[2][b] + count[3][b];
    }
    // Successors in increasing position order: equal bytes keep their order, which is what
    // makes the transform invertible.
    for (i = 0; i < n; ++i) {
        const uint8_t b = src[i];
        const uint32_t row = at(c, b);
        put(c, b, row + 1);
        put(t, row, i);
    }
    // Every successor is a row below n, so even a column that is no transform of anything
    // keeps the walk inside the buffers.
    walk(ColumnEntries{t, src}, n, index, dst);
}

}  // namespace
}  // namespace zem::bz2

ZEM_API zemStatus zemsBWTInvGetSize_8u(int32_t len, uint32_t* pSize) {
    if (zem::any_null(pSize)) return zemStatusNullPtr;
    if (zem::bad_len(len)) return zemStatusSize;
    *pSize = uint32_t(len) * 4 + zem::bz2::kCountBytes;
    return zemStatusOk;
}

ZEM_API zemStatus zemsBWTInv_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len, int32_t index, uint8_t* pBuf) {
    if (zem::any_null(pSrc, pDst, pBuf)) return zemStatusNullPtr;
    if (zem::bad_len(len)) return zemStatusSize;
    // A negative index would start the walk outside the successor vector: refused like one at
    // or beyond the length.
    if (index < 0 || index >= len) return zemStatusSize;
    if (len == 1) return zem::MemCopyChecked(pSrc, pDst, 1);
    zem::bz2::invert(pSrc, pDst, uint32_t(len), uint32_t(index), pBuf);
    return zemStatusOk;
}
