// Forward block sort: the entries, the reduction of a block to a primitive least rotation, and
// the emission of the last column and the primary index.
//
// Both sorts work on w, the block turned to its least rotation and cut to one period. That one
// step removes every repetition that would make sorting rotations quadratic (all one byte, a
// short period, a doubled block: the rows of a block u^k are the rows of u, each k times), and it
// makes rotation order and suffix order one order: w is then a Lyndon word, whose every proper
// suffix is larger than w itself, so when one suffix is a prefix of another the shorter one is
// also the smaller rotation, exactly the order the induced sort's sentinel gives.
#include "blocksort/bwt_forward.h"

#include <immintrin.h>
#include <string.h>

#include "core/check.h"
#include "zemdc.h"

namespace zem::bwt {
namespace {

// Key loads the bucket sort may spend per byte of the block before it hands over to the suffix
// sort. Text and binary blocks stay far below it; blocks of long repeats blow through it quickly.
constexpr uint64_t kBucketBudgetPerByte = 24;
constexpr uint64_t kBucketBudgetBase = 1 << 16;

ZEM_INLINE uint8_t at(const uint8_t* s, uint32_t n, uint32_t i) { return s[i < n ? i : i - n]; }

// First position from j (j < end <= n) whose byte is at most c, or end: 32 bytes a step.
uint32_t next_at_most(const uint8_t* s, uint32_t j, uint32_t end, uint8_t c) {
    const __m256i cv = _mm256_set1_epi8(char(c));
    for (; j + 32 <= end; j += 32) {
        __m256i v = _mm256_loadu_si256((const __m256i*)(s + j));
        uint32_t hit = uint32_t(_mm256_movemask_epi8(_mm256_cmpeq_epi8(_mm256_min_epu8(v, cv), v)));
        if (hit) return j + uint32_t(__builtin_ctz(hit));
    }
    while (j < end && s[j] > c) ++j;
    return j;
}

// Start of the least rotation (Duval's factorization run over the block doubled). While the
// factor is still its first byte (k == i), every larger byte only extends it: on ordinary data
// that is nearly every step, so those stretches are skipped with vector compares.
uint32_t least_rotation(const uint8_t* s, uint32_t n) {
    uint32_t i = 0, best = 0;
    while (i < n) {
        best = i;
        uint32_t j = i + 1, k = i;
        while (j < 2 * n) {
            if (k == i) {
                const uint8_t c = s[i];
                j = j < n ? next_at_most(s, j, n, c) : n + next_at_most(s, j - n, n, c);
                if (j == n && s[0] > c) j = n + next_at_most(s, 0, n, c);
                if (j >= 2 * n) break;
            }
            uint8_t a = at(s, n, k), b = at(s, n, j);
            if (a > b) break;
            k = a < b ? i : k + 1;
            ++j;
        }
        while (i <= k) i += j - k;
    }
    return best;
}

// Length of the primitive root of w, a least rotation: w is a power of one Lyndon word, which the
// first pass of Duval's factorization finds.
uint32_t root_length(const uint8_t* w, uint32_t n) {
    uint32_t j = 1, k = 0;
    while (j < n && w[k] <= w[j]) {
        k = w[k] < w[j] ? 0 : k + 1;
        ++j;
    }
    uint32_t p = j - k;
    return (j == n && n % p == 0) ? p : n;
}

void transform(const uint8_t* src, uint8_t* dst, uint32_t n, uint32_t* index, uint8_t* buf, zemBWTSort hint) {
    if (n == 1) {
        dst[0] = src[0];
        *index = 0;
        return;
    }
    Work work = carve(buf, n);
    uint8_t* w = work.text;
    uint32_t r = least_rotation(src, n);
    memcpy(w, src + r, n - r);
    memcpy(w + (n - r), src, r);
    uint32_t m = root_length(w, n);
    for (uint32_t t = 0; t < kTextPad; ++t) w[m + t] = w[t % m];

    // Auto takes the induced sort: on the corpus files in 900 kB blocks it runs 17-30 MB/s where
    // the bucket sort runs 10-19 MB/s (its partitions pay a cache miss per key and depth).
    bool sorted = false;
    if (hint == zemBWTSortBucket) sorted = bucket_sort(work, m, kBucketBudgetBase + kBucketBudgetPerByte * m);
    if (!sorted) suffix_sort(work, m);

    // Row i of the block is row i / k of w's rotations: each rotation of w stands k times.
    const uint32_t k = n / m;
    const int32_t* sa = work.sa;
    const uint32_t origin = (n - r) % n % m;
    uint32_t row = 0;
    for (uint32_t i = 0; i < m; ++i) {
        uint32_t p = uint32_t(sa[i]);
        if (p == origin) row = i;
        uint8_t c = w[p == 0 ? m - 1 : p - 1];
        if (k == 1)
            dst[i] = c;
        else
            memset(dst + size_t(i) * k, c, k);
    }
    *index = row * k;
}

}  // namespace

Work carve(uint8_t* buf, uint32_t m) {
    auto align = [](uint8_t* p) {
        return (uint8_t*)((uintptr_t(p) + (kAlign - 1)) & ~uintptr_t(kAlign - 1));
    };
    Work w{};
    uint8_t* p = align(buf);
    w.sa = (int32_t*)p;
    p = align(p + 4ull * m);
    w.bkt = (int32_t*)p;
    w.bkt_len = uint32_t(bucket_entries(m));
    p = align(p + 4ull * w.bkt_len);
    w.text = p;
    p = align(p + m + kTextPad);
    w.types = p;
    return w;
}

}  // namespace zem::bwt

using zem::bwt::kMaxBlock;

namespace {
// A C caller may pass any int as the hint; its bits are read as one, since a value outside the
// enumeration is not a valid C++ enum value to load.
static_assert(sizeof(zemBWTSort) == sizeof(int32_t));
bool bad_hint(const zemBWTSort& hint) {
    int32_t raw;
    memcpy(&raw, &hint, sizeof raw);
    return raw < int32_t(zemBWTSortAuto) || raw > int32_t(zemBWTSortSuffix);
}
}  // namespace

ZEM_API zemStatus zemsBWTFwdGetSize_8u(int32_t wndSize, int32_t* pSize) {
    if (zem::any_null(pSize)) return zemStatusNullPtr;
    if (wndSize < 1 || zem::bwt::buffer_size(uint64_t(wndSize)) > INT32_MAX) return zemStatusSize;
    *pSize = int32_t(zem::bwt::buffer_size(uint64_t(wndSize)));
    return zemStatusOk;
}

ZEM_API zemStatus zemsBWTFwd_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len, int32_t* pIndex, uint8_t* pBuf) {
    if (zem::any_null(pSrc, pDst, pIndex, pBuf)) return zemStatusNullPtr;
    if (len < 1) return zemStatusSize;
    uint32_t index = 0;
    zem::bwt::transform(pSrc, pDst, uint32_t(len), &index, pBuf, zemBWTSortAuto);
    *pIndex = int32_t(index);
    return zemStatusOk;
}

ZEM_API zemStatus zemsBWTFwdGetBufSize_SelectSort_8u(uint32_t wndSize, uint32_t* pSize, zemBWTSort hint) {
    if (zem::any_null(pSize)) return zemStatusNullPtr;
    if (wndSize < 1 || wndSize > kMaxBlock) return zemStatusSize;
    if (bad_hint(hint)) return zemStatusBadArg;
    *pSize = uint32_t(zem::bwt::buffer_size(wndSize));
    return zemStatusOk;
}

ZEM_API zemStatus zemsBWTFwd_SelectSort_8u(const uint8_t* pSrc, uint8_t* pDst, uint32_t len, uint32_t* pIndex,
                                           uint8_t* pBuf, zemBWTSort hint) {
    if (zem::any_null(pSrc, pDst, pIndex, pBuf)) return zemStatusNullPtr;
    if (len < 1 || len > kMaxBlock) return zemStatusSize;
    if (bad_hint(hint)) return zemStatusBadArg;
    zem::bwt::transform(pSrc, pDst, len, pIndex, pBuf, hint);
    return zemStatusOk;
}
