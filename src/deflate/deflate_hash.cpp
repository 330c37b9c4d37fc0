// Hash-table upkeep and preset dictionaries: entering runs of positions into the caller's head
// and prev tables with the two schemes that the match finders read.
#include "core/mem.h"
#include "deflate/deflate_tables.h"

namespace zem::deflate {

namespace {

// Minimum run lengths: the bytes one position's hash reads.
inline constexpr uint32_t kFastMinRun = 3;
inline constexpr uint32_t kChainMinRun = 4;
// A dictionary shorter than this is copied but not hashed, and its last kDictHashMin - 1 bytes
// are not entered: the positions whose longest match would run past the dictionary's end.
inline constexpr uint32_t kDictHashMin = 258;
static_assert(kDictHashMin == kMaxMatch);

// Running three-byte hash over positions base .. base + count - 1, their bytes at p. The loop is
// unrolled eight positions at a time: the hash is a serial chain, so the gain is in the stores.
void enter_fast(const uint8_t* p, uint32_t base, uint32_t count, uint32_t* head, uint32_t mask) {
    uint32_t h = hash3_start(p);
    uint32_t i = 0;
    for (; i + 8 <= count; i += 8) {
        for (uint32_t k = 0; k < 8; ++k) {
            h = hash3_next(h, p[i + k + 2], mask);
            head[h] = base + i + k;
        }
    }
    for (; i < count; ++i) {
        h = hash3_next(h, p[i + 2], mask);
        head[h] = base + i;
    }
}

// Chained scheme over positions base .. base + count - 1. Four hashes are computed ahead of
// their table updates (independent CRC instructions overlap); the updates stay in order, since
// two of the four may share a hash.
template <bool Masked>
void enter_chained(const uint8_t* p, uint32_t base, uint32_t count, uint32_t* head, uint32_t hash_mask,
                   uint32_t* prev, uint32_t win_mask) {
    auto link = [&](uint32_t h, uint32_t pos) {
        prev[Masked ? (pos & win_mask) : pos] = head[h];
        head[h] = pos;
    };
    uint32_t i = 0;
    for (; i + 4 <= count; i += 4) {
        uint32_t h0 = hash4(p + i, hash_mask), h1 = hash4(p + i + 1, hash_mask);
        uint32_t h2 = hash4(p + i + 2, hash_mask), h3 = hash4(p + i + 3, hash_mask);
        link(h0, base + i);
        link(h1, base + i + 1);
        link(h2, base + i + 2);
        link(h3, base + i + 3);
    }
    for (; i < count; ++i) link(hash4(p + i, hash_mask), base + i);
}

}  // namespace

}  // namespace zem::deflate

using namespace zem::deflate;

ZEM_API zemStatus zemsDeflateUpdateHash_8u(const uint8_t* pSrc, uint32_t srcIdx, uint32_t srcLen,
                                           uint32_t* pHashHead, uint32_t hashSize, uint32_t* pHashPrev,
                                           uint32_t winSize, int32_t comprLevel) {
    if (zem::any_null(pSrc, pHashHead, pHashPrev)) return zemStatusNullPtr;
    if (bad_tables(winSize, hashSize)) return zemStatusSize;
    // Level 0 alone takes the fast scheme here; the dictionary load tests level < 1 instead.
    if (comprLevel == 0) {
        if (srcLen < kFastMinRun) return zemStatusOk;
        enter_fast(pSrc, srcIdx, srcLen - 2, pHashHead, hashSize - 1);
    } else {
        if (srcLen < kChainMinRun) return zemStatusOk;
        enter_chained<true>(pSrc, srcIdx, srcLen - 3, pHashHead, hashSize - 1, pHashPrev, winSize - 1);
    }
    return zemStatusOk;
}

ZEM_API zemStatus zemsDeflateDictionarySet_8u(const uint8_t* pDict, uint32_t dictLen, uint32_t* pHashHead,
                                              int32_t hashSize, uint32_t* pHashPrev, uint8_t* pWindow,
                                              uint32_t winSize, int32_t comprLevel) {
    if (zem::any_null(pDict, pHashHead, pHashPrev, pWindow)) return zemStatusNullPtr;
    if (hashSize < 0 || bad_tables(winSize, uint32_t(hashSize))) return zemStatusSize;
    const bool fast = comprLevel < 1;
    if (dictLen < (comprLevel == 0 ? kFastMinRun : kChainMinRun)) return zemStatusOk;
    const uint32_t n = dictLen < winSize ? dictLen : winSize;
    zem::MemCopy(pDict + (dictLen - n), pWindow, int32_t(n));
    if (n < kDictHashMin) return zemStatusOk;
    const uint32_t count = n - kDictHashMin + 1;
    if (fast) enter_fast(pWindow, 0, count, pHashHead, uint32_t(hashSize) - 1);
    else enter_chained<false>(pWindow, 0, count, pHashHead, uint32_t(hashSize) - 1, pHashPrev, 0);
    return zemStatusOk;
}
