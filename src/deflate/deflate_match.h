// What the match finders share: the call frame (argument checks, the span they may parse, the
// record sink) and the chained search over the caller's head and prev tables.
//
// Table entries are positions in the caller's numbering; nothing in them is trusted. A
// candidate is followed only when its distance from the current position is at least one more
// than the previous candidate's and lies within both the window size and the history that
// pWindow allows, so a stale, garbage or cyclic chain ends instead of leading a read outside
// [pWindow, end of input).
#pragma once

#include <immintrin.h>

#include <stddef.h>

#include "deflate/deflate_tables.h"

namespace zem::deflate {

// Search effort of one level: the chain depth, the length at which a search stops (nice), the
// length from which the lazy parses stop looking ahead (lazy), from which their look-ahead
// searches a quarter of the chain (good), and the longest match whose inner positions the
// greedy parse still enters (insert).
struct Effort {
    uint16_t chain, nice, lazy, good, insert;
};

struct Records {
    uint8_t* lit_len;
    uint16_t* dist;
    uint32_t n, cap;
    uint32_t* lit_freq;
    uint32_t* dist_freq;

    [[nodiscard]] ZEM_INLINE bool full() const { return n == cap; }
    ZEM_INLINE void literal(uint8_t b) {
        lit_len[n] = b;
        dist[n++] = 0;
        ++lit_freq[b];
    }
    ZEM_INLINE void match(uint32_t len, uint32_t d) {
        lit_len[n] = uint8_t(len - kMinMatch);
        dist[n++] = uint16_t(d);
        ++lit_freq[257 + kLengthSym.sym[len - kMinMatch]];
        ++dist_freq[dist_symbol(d)];
    }
};

struct Match {
    uint32_t len, dist;
};

// How far back the slow parse looks for three-byte matches (see the lazy parses), in steps of
// one 32-byte compare. Window sizes are powers of two from 256, so whole steps fill any window.
inline constexpr uint32_t kNearStep = 32;
inline constexpr uint32_t kNear3 = 512;
static_assert(kNear3 % kNearStep == 0 && kMinTableSize % kNearStep == 0);

// The search state of one call. Positions are entered in increasing order up to `ins`; the
// parse may look ahead of its position, and a position is never entered twice in one call.
class Chains {
  public:
    Chains(const uint8_t* src, uint32_t src_idx, const uint8_t* window, const uint8_t* end, uint32_t win_size,
           uint32_t* head, uint32_t* prev, uint32_t hash_size)
        : src_(src), end_(end), window_(window), ins_(src), head_(head), prev_(prev), src_idx_(src_idx),
          hash_mask_(hash_size - 1), win_mask_(win_size - 1), win_size_(win_size) {}

    [[nodiscard]] ZEM_INLINE uint32_t pos(const uint8_t* p) const { return src_idx_ + uint32_t(p - src_); }
    // A position can be hashed, and so searched from, when its four bytes lie in the input.
    [[nodiscard]] ZEM_INLINE bool hashable(const uint8_t* p) const { return end_ - p >= 4; }
    [[nodiscard]] ZEM_INLINE uint32_t max_len(const uint8_t* p) const {
        return end_ - p < ptrdiff_t(kMaxMatch) ? uint32_t(end_ - p) : kMaxMatch;
    }

    // Enters the hashable positions before `to`.
    ZEM_INLINE void enter_to(const uint8_t* to) {
        const uint8_t* lim = end_ - 3;
        if (to > lim) to = lim;
        for (; ins_ < to; ++ins_) link(ins_);
    }

    // Leaves the positions before `to` out of the tables.
    ZEM_INLINE void skip_to(const uint8_t* to) {
        if (to > ins_) ins_ = to;
    }

    // The newest earlier position with p's hash, entering p (and any skipped position before it).
    ZEM_INLINE uint32_t take(const uint8_t* p) {
        if (p < ins_) return prev_[pos(p) & win_mask_];
        enter_to(p);
        ins_ = p + 1;
        return link(p);
    }

    // The longest match at p over the chain from cand that beats `best` bytes, or {best, 0}.
    ZEM_INLINE Match find(const uint8_t* p, uint32_t cand, uint32_t best, uint32_t depth, uint32_t nice) const {
        const uint32_t max = max_len(p);
        if (best >= max) return {best, 0};
        if (nice > max) nice = max;
        const size_t history = size_t(p - window_);
        const uint32_t limit = history < win_size_ ? uint32_t(history) : win_size_;
        const uint32_t here = pos(p);
        const uint32_t first = load32(p);
        uint32_t last_d = 0, best_d = 0;
        for (; depth > 0; --depth) {
            const uint32_t d = here - cand;
            if (d <= last_d || d > limit) break;
            last_d = d;
            const uint8_t* c = p - d;
            // The next link is loaded before this candidate's bytes are judged, so that the two
            // cache misses of a step overlap instead of following each other.
            const uint32_t next = prev_[cand & win_mask_];
            // best < max, so the two bytes at best - 1 lie inside the input on both sides.
            if (load16(c + best - 1) == load16(p + best - 1) && load32(c) == first) {
                const uint32_t len = match_len(p, c, max);
                if (len > best) {
                    best = len;
                    best_d = d;
                    if (len >= nice) break;
                }
            }
            cand = next;
        }
        return {best, best_d};
    }

    // The nearest three-byte match at p within kNear3 bytes, the history and the window, or
    // {0, 0}: 32 candidates a step, compared at once. Reads up to p[1], inside a hashable p.
    ZEM_INLINE Match near3(const uint8_t* p) const {
        const size_t history = size_t(p - window_);
        const size_t reach = history < win_size_ ? history : win_size_;
        const __m256i b0 = _mm256_set1_epi8(char(p[0])), b1 = _mm256_set1_epi8(char(p[1])),
                      b2 = _mm256_set1_epi8(char(p[2]));
        for (uint32_t back = kNearStep; back <= kNear3 && back <= reach; back += kNearStep) {
            const uint8_t* q = p - back;
            const __m256i eq = _mm256_and_si256(
                _mm256_and_si256(_mm256_cmpeq_epi8(_mm256_loadu_si256((const __m256i*)q), b0),
                                 _mm256_cmpeq_epi8(_mm256_loadu_si256((const __m256i*)(q + 1)), b1)),
                _mm256_cmpeq_epi8(_mm256_loadu_si256((const __m256i*)(q + 2)), b2));
            // Bit i: the three bytes at q + i; the highest is the nearest.
            const uint32_t hits = uint32_t(_mm256_movemask_epi8(eq));
            if (hits) return {3, back - (31 - uint32_t(__builtin_clz(hits)))};
        }
        return {0, 0};
    }

  private:
    ZEM_INLINE uint32_t link(const uint8_t* p) {
        const uint32_t h = hash4(p, hash_mask_), here = pos(p), cand = head_[h];
        // A position entered by an earlier call that looked ahead of where it stopped is not
        // linked to itself.
        if (cand == here) return prev_[here & win_mask_];
        prev_[here & win_mask_] = cand;
        head_[h] = here;
        return cand;
    }

    static ZEM_INLINE uint32_t match_len(const uint8_t* p, const uint8_t* c, uint32_t max) {
        uint32_t len = 4;
        for (; len + 8 <= max; len += 8) {
            const uint64_t x = load64(p + len) ^ load64(c + len);
            if (x) return len + uint32_t(__builtin_ctzll(x) >> 3);
        }
        while (len < max && p[len] == c[len]) ++len;
        return len;
    }

    const uint8_t* src_;
    const uint8_t* end_;
    const uint8_t* window_;
    const uint8_t* ins_;
    uint32_t* head_;
    uint32_t* prev_;
    uint32_t src_idx_, hash_mask_, win_mask_, win_size_;
};

// The arguments every finder takes, checked in the library's order.
struct FinderArgs {
    const uint8_t** pp_src;
    uint32_t* p_src_len;
    uint32_t* p_src_idx;
    const uint8_t* window;
    uint32_t win_size;
    uint32_t* head;
    uint32_t* prev;
    uint32_t hash_size;
    uint8_t* lit_len;
    uint16_t* dist;
    uint32_t* p_dst_len;
    uint32_t* lit_freq;
    uint32_t* dist_freq;
    int32_t level;
    int32_t flush;
    const uint8_t* work = nullptr;  // the slow parse's work area, the last pointer argument

    [[nodiscard]] zemStatus check(bool with_work = false) const {
        if (zem::any_null(pp_src, p_src_len, p_src_idx, window, head, prev, lit_len, dist, p_dst_len, lit_freq,
                          dist_freq))
            return zemStatusNullPtr;
        if (with_work && work == nullptr) return zemStatusNullPtr;
        if (*pp_src == nullptr) return zemStatusNullPtr;
        if (bad_tables(win_size, hash_size) || *p_dst_len == 0 || window > *pp_src) return zemStatusSize;
        if (level < 1 || level > 9 || flush < zemDeflateNoFlush || flush > zemDeflateFinish) return zemStatusBadArg;
        return zemStatusOk;
    }
};

// One call's frame: the input, where the parse must stop, the search state and the records.
struct Frame {
    const uint8_t* src;
    const uint8_t* end;
    const uint8_t* stop;  // positions at or after it are left to the next call
    Chains chains;
    Records out;

    explicit Frame(const FinderArgs& a)
        : src(*a.pp_src),
          end(src + *a.p_src_len),
          stop(a.flush != zemDeflateNoFlush ? end : *a.p_src_len > kLookahead ? end - kLookahead : src),
          chains(src, *a.p_src_idx, a.window, end, a.win_size, a.head, a.prev, a.hash_size),
          out{a.lit_len, a.dist, 0, *a.p_dst_len, a.lit_freq, a.dist_freq} {}

    // Hands back where the parse stopped.
    zemStatus finish(const FinderArgs& a, const uint8_t* p, zemStatus st) const {
        const uint32_t used = uint32_t(p - src);
        *a.pp_src = p;
        *a.p_src_len -= used;
        *a.p_src_idx += used;
        *a.p_dst_len = out.n;
        return st;
    }
};

}  // namespace zem::deflate
