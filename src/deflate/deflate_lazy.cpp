// The lazy parses: a match found at a position is held back while the next position (LZ77) or
// one of the next two (Slow) starts a longer one.
#include <string.h>

#include "deflate/deflate_match.h"

namespace zem::deflate {

namespace {

// Levels 1..9 of each parse: {chain, nice, lazy, good, insert (unused: every position goes in)}.
constexpr Effort kLazy[10] = {
    {0, 0, 0, 0, 0},        {4, 16, 4, 4, 0},       {6, 16, 6, 4, 0},       {8, 16, 8, 4, 0},
    {8, 24, 8, 6, 0},       {16, 32, 12, 8, 0},     {40, 80, 24, 10, 0},    {64, 128, 32, 16, 0},
    {128, 258, 64, 32, 0},  {256, 258, 128, 32, 0}};
constexpr Effort kSlow[10] = {
    {0, 0, 0, 0, 0},        {16, 32, 16, 8, 0},     {24, 48, 24, 8, 0},     {32, 64, 32, 16, 0},
    {48, 96, 48, 16, 0},    {64, 128, 64, 16, 0},   {96, 160, 96, 32, 0},   {48, 160, 64, 16, 0},
    {384, 258, 258, 64, 0}, {896, 258, 258, 32, 0}};

// A match's worth: four per byte, less the bits its distance takes, so that a longer match far
// away does not displace a shorter one nearby for nothing.
ZEM_INLINE int32_t match_score(const Match& m) { return int32_t(4 * m.len) - int32_t(31 - __builtin_clz(m.dist)); }

// The slow parse also takes three-byte matches, which the four-byte hash cannot find: the
// nearest in the last kNear3 bytes, where one is taken only when the symbol counts of the call
// so far price it below its three literals. Taken always, they made text and images larger
// than they saved on code; priced, level 9 on the Silesia files went from 4.190 to 4.200
// (ooffice 1.8% smaller, no other file more than 0.1% larger), and the chain walk could be
// cut to regain the time.
class ThreeByteCosts {
  public:
    // Counts from the caller's earlier calls are set aside, so the parse depends on this call's
    // (the lazy parse, which takes no three-byte matches, skips the copy).
    ThreeByteCosts(const Records& o, bool used) : o_(o) {
        if (!used) return;
        memcpy(lit0_, o.lit_freq, sizeof lit0_);
        memcpy(dist0_, o.dist_freq, sizeof dist0_);
    }
    // A symbol costs log2(total / (count + 1)) bits, so "the match's bits are fewer than its
    // literals'" is a comparison of products: no logarithm (the library takes nothing from libm).
    [[nodiscard]] bool worth(const uint8_t* p, uint32_t d) const {
        uint32_t matches = 0;  // of this call: only the slow parse, and only here, needs it
        for (uint32_t k = 0; k < 30; ++k) matches += o_.dist_freq[k] - dist0_[k];
        const double lits = double(o_.n + 2), dists = double(matches + 2);
        const uint32_t s = dist_symbol(d), len3 = 257 + kLengthSym.sym[0];
        const double literals = lits * lits * lits / (share(p[0]) * share(p[1]) * share(p[2]));
        const double match = lits * dists * double(1u << kDistExtra[s]) /
                             (share(len3) * double(o_.dist_freq[s] - dist0_[s] + 1));
        return match < literals;
    }

  private:
    [[nodiscard]] double share(uint32_t sym) const { return double(o_.lit_freq[sym] - lit0_[sym] + 1); }

    const Records& o_;
    uint32_t lit0_[286], dist0_[30];
};

// Ahead is how many positions after a match's start may take its place.
template <int Ahead>
zemStatus parse(const FinderArgs& a, const Effort& e) {
    Frame f(a);
    Chains& ch = f.chains;
    const uint8_t* p = f.src;
    Match cur{0, 0};
    bool held = false;  // cur was found at p by a look-ahead
    const ThreeByteCosts three(f.out, Ahead == 2);
    zemStatus st = zemStatusOk;
    while (p < f.stop) {
        if (f.out.full()) {
            st = zemStatusDstTooSmall;
            break;
        }
        if (!held) {
            if (!ch.hashable(p)) {
                f.out.literal(*p++);
                continue;
            }
            cur = ch.find(p, ch.take(p), kMinMatch, e.chain, e.nice);
            if (Ahead == 2 && cur.dist == 0) {
                cur = ch.near3(p);
                if (cur.dist && !three.worth(p, cur.dist)) cur = {0, 0};
            }
        }
        held = false;
        if (cur.dist == 0) {
            f.out.literal(*p++);
            continue;
        }
        if (cur.len < e.lazy) {
            // The look-ahead searches half the chain (a quarter behind a good match). Together
            // with the distance-aware choice below, level 6 on the Silesia files went from 97.8
            // to 100.9 MB/s at a ratio of 4.099 against 4.101.
            const uint32_t depth = e.chain >> (cur.len >= e.good ? 2 : 1);
            const int32_t score = match_score(cur);
            if (ch.hashable(p + 1)) {
                const Match next = ch.find(p + 1, ch.take(p + 1), cur.len, depth, e.nice);
                if (next.dist && match_score(next) > score) {
                    f.out.literal(*p++);
                    cur = next;
                    held = true;
                    continue;
                }
            }
            // Two positions on, a match must be two bytes longer to pay for its two literals.
            if (Ahead == 2 && ch.hashable(p + 2) && f.out.n + 2 <= f.out.cap) {
                const Match next = ch.find(p + 2, ch.take(p + 2), cur.len + 1, depth, e.nice);
                if (next.dist && match_score(next) > score + 4) {
                    f.out.literal(p[0]);
                    f.out.literal(p[1]);
                    p += 2;
                    cur = next;
                    held = true;
                    continue;
                }
            }
        }
        f.out.match(cur.len, cur.dist);
        ch.enter_to(p + cur.len);
        p += cur.len;
    }
    return f.finish(a, p, st);
}

}  // namespace

}  // namespace zem::deflate

using zem::deflate::FinderArgs;

ZEM_API zemStatus zemsDeflateLZ77_8u(const uint8_t** ppSrc, uint32_t* pSrcLen, uint32_t* pSrcIdx,
                                     const uint8_t* pWindow, uint32_t winSize, uint32_t* pHashHead,
                                     uint32_t* pHashPrev, uint32_t hashSize, uint8_t* pLitLen, uint16_t* pDist,
                                     uint32_t* pDstLen, uint32_t* pLitFreq, uint32_t* pDistFreq, int32_t comprLevel,
                                     int32_t flush) {
    const FinderArgs a{ppSrc,   pSrcLen, pSrcIdx, pWindow,  winSize,   pHashHead,  pHashPrev, hashSize,
                       pLitLen, pDist,   pDstLen, pLitFreq, pDistFreq, comprLevel, flush};
    if (zemStatus st = a.check(); st != zemStatusOk) return st;
    return zem::deflate::parse<1>(a, zem::deflate::kLazy[comprLevel]);
}

ZEM_API zemStatus zemsDeflateLZ77Slow_8u(const uint8_t** ppSrc, uint32_t* pSrcLen, uint32_t* pSrcIdx,
                                         const uint8_t* pWindow, uint32_t winSize, uint32_t* pHashHead,
                                         uint32_t* pHashPrev, uint32_t hashSize, uint8_t* pLitLen, uint16_t* pDist,
                                         uint32_t* pDstLen, uint32_t* pLitFreq, uint32_t* pDistFreq,
                                         int32_t comprLevel, int32_t flush, uint8_t* pWork) {
    const FinderArgs a{ppSrc,   pSrcLen, pSrcIdx, pWindow,  winSize,   pHashHead,  pHashPrev, hashSize,
                       pLitLen, pDist,   pDstLen, pLitFreq, pDistFreq, comprLevel, flush, pWork};
    if (zemStatus st = a.check(true); st != zemStatusOk) return st;
    return zem::deflate::parse<2>(a, zem::deflate::kSlow[comprLevel]);
}
