// The chained walk of the inverse transform, shared by zemsBWTInv_8u and the fused block
// decoder. Landing on row p yields one output byte and the row that follows; the rows form one
// cycle through the whole block when the input is a real transform.
//
// One chain is a string of dependent loads; once the table outgrows the core's cache each step
// costs a full cache-miss latency. So large blocks are walked as many chains at once: segment
// starts spread over the rows are marked (the top bit of their entry is free for blocks below
// 2^23 rows), lanes walk segments side by side until they land on a mark, the segments are then
// put in cycle order, and a second walk writes every segment's bytes at its offset. Two walks
// with many loads in flight beat one with a single load in flight several times over. Input
// whose rows do not form one cycle is caught (a segment order that does not cover the block) and
// walked as one chain, as are small blocks.
#pragma once

#include <immintrin.h>
#include <stdint.h>

#include "core/bytes.h"
#include "core/check.h"

namespace zem::bz2 {

inline constexpr uint32_t kLanes = 16;       // chains walked side by side
inline constexpr uint32_t kSegments = 64;    // segments the lanes take in turn (balances the tail)
inline constexpr uint32_t kWalkMark = 1u << 31;
// Below this many rows the table sits in the core's cache and one chain is as fast.
inline constexpr uint32_t kParallelMin = 1u << 17;
// The mark needs the top bit of every entry free: successors below 2^23 in the fused entries.
inline constexpr uint32_t kParallelMax = 1u << 23;
static_assert(kSegments >= kLanes && kParallelMin / kSegments >= 2, "segment starts must be distinct rows");

// The fused decoder's entries: the byte in the low 8 bits, the successor above.
struct FusedEntries {
    uint8_t* e;
    ZEM_INLINE uint32_t load(uint32_t p) const { return load32(e + 4 * size_t(p)); }
    ZEM_INLINE void store(uint32_t p, uint32_t v) const { store32(e + 4 * size_t(p), v); }
    ZEM_INLINE static uint32_t next(uint32_t v) { return (v & ~kWalkMark) >> 8; }
    ZEM_INLINE uint8_t byte(uint32_t v, uint32_t) const { return uint8_t(v); }
};

// zemsBWTInv_8u's successor vector beside the last column.
struct ColumnEntries {
    uint8_t* e;
    const uint8_t* column;
    ZEM_INLINE uint32_t load(uint32_t p) const { return load32(e + 4 * size_t(p)); }
    ZEM_INLINE void store(uint32_t p, uint32_t v) const { store32(e + 4 * size_t(p), v); }
    ZEM_INLINE static uint32_t next(uint32_t v) { return v & ~kWalkMark; }
    ZEM_INLINE uint8_t byte(uint32_t, uint32_t p) const { return column[p]; }
};

// One chain from row `index`: 16 bytes gathered in two halves and stored at once.
template <class E>
ZEM_INLINE void walk_one(const E& t, uint32_t n, uint32_t index, uint8_t* dst) {
    uint32_t p = index, v = t.load(p);
    uint32_t k = 0;
    for (; k + 16 <= n; k += 16) {
        uint64_t lo = 0, hi = 0;
        for (int j = 0; j < 8; ++j) {
            p = E::next(v);
            v = t.load(p);
            lo |= uint64_t(t.byte(v, p)) << (8 * j);
        }
        for (int j = 0; j < 8; ++j) {
            p = E::next(v);
            v = t.load(p);
            hi |= uint64_t(t.byte(v, p)) << (8 * j);
        }
        _mm_storeu_si128((__m128i*)(dst + k), _mm_set_epi64x(int64_t(hi), int64_t(lo)));
    }
    for (; k < n; ++k) {
        p = E::next(v);
        v = t.load(p);
        dst[k] = t.byte(v, p);
    }
}

template <class E>
class SegmentWalk {
  public:
    SegmentWalk(const E& t, uint32_t n, uint32_t index) : t_(t), n_(n) {
        // Segment 0 starts at the index; the others evenly spaced, nudged off the index. The
        // starts are increasing apart from segment 0, which the lookup below handles apart.
        const uint32_t gap = n / kSegments;
        start_[0] = index;
        for (uint32_t j = 1; j < kSegments; ++j) start_[j] = j * gap == index ? j * gap + 1 : j * gap;
    }

    // Returns false (entries unmarked again) when the rows do not form one cycle.
    bool run(uint8_t* dst) {
        for (uint32_t j = 0; j < kSegments; ++j) t_.store(start_[j], t_.load(start_[j]) | kWalkMark);
        const bool ok = measure() && order();
        for (uint32_t j = 0; j < kSegments; ++j) t_.store(start_[j], t_.load(start_[j]) & ~kWalkMark);
        if (ok) write(dst);
        return ok;
    }

  private:
    uint32_t segment_at(uint32_t row) const {
        if (row == start_[0]) return 0;
        uint32_t lo = 1, hi = kSegments - 1;  // start_[1..] increase
        while (lo < hi) {
            const uint32_t mid = (lo + hi) / 2;
            if (start_[mid] < row) lo = mid + 1;
            else hi = mid;
        }
        return lo;
    }

    // First walk: each segment's length and the segment whose start it lands on.
    bool measure() {
        uint32_t v[kLanes], seg[kLanes], len[kLanes];
        uint32_t active = kLanes, taken = kLanes, steps = 0;
        for (uint32_t l = 0; l < kLanes; ++l) {
            seg[l] = l;
            v[l] = t_.load(start_[l]);
            len[l] = 0;
        }
        while (active > 0) {
            for (uint32_t l = 0; l < active; ++l) {
                // Rows on a cycle without a mark would walk forever: no real transform takes more
                // steps than the block has rows.
                if (++steps > n_) return false;
                const uint32_t p = E::next(v[l]);
                v[l] = t_.load(p);
                ++len[l];
                if (!(v[l] & kWalkMark)) continue;
                length_[seg[l]] = len[l];
                next_[seg[l]] = segment_at(p);
                if (taken < kSegments) {
                    seg[l] = taken;
                    v[l] = t_.load(start_[taken++]);
                    len[l] = 0;
                } else {
                    --active;
                    v[l] = v[active], seg[l] = seg[active], len[l] = len[active];
                    --l;
                }
            }
        }
        return true;
    }

    // The segments in cycle order from the index; one cycle through every row or nothing.
    bool order() {
        uint32_t at = 0, j = 0, count = 0;
        do {
            offset_[j] = at;
            at += length_[j];
            j = next_[j];
            if (++count > kSegments) return false;
        } while (j != 0);
        return at == n_ && count == kSegments;
    }

    // Second walk: every segment's bytes at its offset.
    void write(uint8_t* dst) {
        uint32_t v[kLanes], seg[kLanes], left[kLanes];
        uint8_t* out[kLanes];
        uint32_t active = kLanes, taken = kLanes;
        for (uint32_t l = 0; l < kLanes; ++l) {
            seg[l] = l;
            v[l] = t_.load(start_[l]);
            left[l] = length_[l];
            out[l] = dst + offset_[l];
        }
        while (active > 0) {
            for (uint32_t l = 0; l < active; ++l) {
                const uint32_t p = E::next(v[l]);
                v[l] = t_.load(p);
                *out[l]++ = t_.byte(v[l], p);
                if (--left[l] != 0) continue;
                if (taken < kSegments) {
                    seg[l] = taken;
                    v[l] = t_.load(start_[taken]);
                    left[l] = length_[taken];
                    out[l] = dst + offset_[taken++];
                } else {
                    --active;
                    v[l] = v[active], seg[l] = seg[active], left[l] = left[active], out[l] = out[active];
                    --l;
                }
            }
        }
    }

    const E& t_;
    uint32_t n_;
    uint32_t start_[kSegments], length_[kSegments], next_[kSegments], offset_[kSegments];
};

// Writes the n bytes of the block that follow row `index`; every successor must be a row below n.
template <class E>
void walk(const E& t, uint32_t n, uint32_t index, uint8_t* dst) {
    if (n >= kParallelMin && n < kParallelMax) {
        SegmentWalk<E> w(t, n, index);
        if (w.run(dst)) return;
    }
    walk_one(t, n, index, dst);
}

}  // namespace zem::bz2
