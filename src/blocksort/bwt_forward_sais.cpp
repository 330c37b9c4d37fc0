// Induced suffix sorting (linear time on any text), the sort that no block can make slow.
//
// The text has a virtual sentinel after its end, smaller than every symbol. Suffixes are typed
// S (smaller than the next suffix) or L; a leftmost-S position (LMS) follows an L one. Sorting
// the LMS substrings by two induction passes names them; when names repeat, the string of names
// is sorted recursively, and its order induces the full order in two more passes. The reduced
// text lives in the upper half of sa and its own sa in the lower part, so the recursion needs
// no memory beyond one types array and one bucket array, which every level shares and which a
// level rebuilds after its recursive call.
#include <string.h>

#include "blocksort/bwt_forward.h"
#include "core/check.h"

namespace zem::bwt {
namespace {

constexpr int32_t kEmpty = -1;

template <class Ch>
void classify(const Ch* s, uint32_t n, uint8_t* t) {
    t[n - 1] = 0;  // before the sentinel: L
    for (uint32_t i = n - 1; i-- > 0;) t[i] = (s[i] < s[i + 1] || (s[i] == s[i + 1] && t[i + 1])) ? 1 : 0;
}

ZEM_INLINE bool is_lms(const uint8_t* t, uint32_t i) { return i > 0 && t[i] && !t[i - 1]; }

template <class Ch>
void bucket_bounds(const Ch* s, uint32_t n, uint32_t k, int32_t* bkt, bool ends) {
    memset(bkt, 0, sizeof(int32_t) * (k + 1));
    for (uint32_t i = 0; i < n; ++i) ++bkt[s[i]];
    int32_t sum = 0;
    for (uint32_t c = 0; c < k; ++c) {
        sum += bkt[c];
        bkt[c] = ends ? sum : sum - bkt[c];
    }
}

// How far ahead the induction scans touch the text and types of the suffix they will meet: the
// scans read both at random positions, and the fetch hides most of that latency. Entries ahead
// may still change before the scan reaches them; a stale fetch only costs its memory traffic.
constexpr uint32_t kPrefetch = 32;

template <class Ch>
ZEM_INLINE void touch(const Ch* s, const uint8_t* t, int32_t j) {
    if (j > 0) {
        __builtin_prefetch(s + j - 1);
        __builtin_prefetch(t + j - 1);
    }
}

template <class Ch>
void induce(const Ch* s, int32_t* sa, uint32_t n, uint32_t k, const uint8_t* t, int32_t* bkt) {
    bucket_bounds(s, n, k, bkt, false);
    sa[bkt[s[n - 1]]++] = int32_t(n - 1);  // the suffix before the sentinel leads its bucket
    for (uint32_t i = 0; i < n; ++i) {
        if (i + kPrefetch < n) touch(s, t, sa[i + kPrefetch]);
        int32_t j = sa[i] - 1;
        if (j >= 0 && !t[j]) sa[bkt[s[j]]++] = j;
    }
    bucket_bounds(s, n, k, bkt, true);
    for (uint32_t i = n; i-- > 0;) {
        if (i >= kPrefetch) touch(s, t, sa[i - kPrefetch]);
        int32_t j = sa[i] - 1;
        if (j >= 0 && t[j]) sa[--bkt[s[j]]] = j;
    }
}

// True when the LMS substrings at a and b differ (the sentinel is unique, so a substring that
// reaches it differs from every other).
template <class Ch>
bool lms_differ(const Ch* s, const uint8_t* t, uint32_t n, uint32_t a, uint32_t b) {
    for (uint32_t d = 0;; ++d) {
        if (a + d == n || b + d == n) return true;
        if (s[a + d] != s[b + d] || t[a + d] != t[b + d]) return true;
        if (d > 0) {
            bool la = is_lms(t, a + d), lb = is_lms(t, b + d);
            if (la || lb) return !(la && lb);
        }
    }
}

template <class Ch>
void sais(const Ch* s, int32_t* sa, uint32_t n, uint32_t k, uint8_t* t, int32_t* bkt) {
    if (n == 1) {
        sa[0] = 0;
        return;
    }
    classify(s, n, t);

    // Stage 1: sort the LMS substrings.
    for (uint32_t i = 0; i < n; ++i) sa[i] = kEmpty;
    bucket_bounds(s, n, k, bkt, true);
    for (uint32_t i = 1; i < n; ++i)
        if (is_lms(t, i)) sa[--bkt[s[i]]] = int32_t(i);
    induce(s, sa, n, k, t, bkt);

    uint32_t n1 = 0;
    for (uint32_t i = 0; i < n; ++i)
        if (is_lms(t, uint32_t(sa[i]))) sa[n1++] = sa[i];

    // Name them; a name goes to slot n1 + pos/2, which no two LMS positions share.
    for (uint32_t i = n1; i < n; ++i) sa[i] = kEmpty;
    uint32_t names = 0;
    int64_t prev = -1;
    for (uint32_t i = 0; i < n1; ++i) {
        uint32_t pos = uint32_t(sa[i]);
        if (prev < 0 || lms_differ(s, t, n, pos, uint32_t(prev))) {
            ++names;
            prev = pos;
        }
        sa[n1 + pos / 2] = int32_t(names - 1);
    }
    for (uint32_t i = n, j = n; i-- > n1;)
        if (sa[i] != kEmpty) sa[--j] = sa[i];

    // Stage 2: the order of the LMS suffixes, recursively when names repeat.
    int32_t* s1 = sa + (n - n1);
    if (names < n1) {
        sais<int32_t>(s1, sa, n1, names, t, bkt);
        classify(s, n, t);  // the recursion reused the types array
    } else {
        for (uint32_t i = 0; i < n1; ++i) sa[s1[i]] = int32_t(i);
    }

    // Stage 3: LMS suffixes to their bucket ends in order, then induce everything.
    for (uint32_t i = 1, j = 0; i < n; ++i)
        if (is_lms(t, i)) s1[j++] = int32_t(i);
    for (uint32_t i = 0; i < n1; ++i) sa[i] = s1[sa[i]];
    for (uint32_t i = n1; i < n; ++i) sa[i] = kEmpty;
    bucket_bounds(s, n, k, bkt, true);
    for (uint32_t i = n1; i-- > 0;) {
        int32_t j = sa[i];
        sa[i] = kEmpty;
        sa[--bkt[s[j]]] = j;
    }
    induce(s, sa, n, k, t, bkt);
}

}  // namespace

void suffix_sort(const Work& work, uint32_t m) { sais<uint8_t>(work.text, work.sa, m, 256, work.types, work.bkt); }

}  // namespace zem::bwt
