// The greedy parse: the longest match found at a position is taken at once.
#include "deflate/deflate_match.h"

namespace zem::deflate {

namespace {

// Levels 1..9. The inner positions of matches longer than `insert` are not entered: on long
// repeats they cost a hash and two table writes each and seldom start a better match.
constexpr Effort kGreedy[10] = {
    {0, 0, 0, 0, 0},       {2, 8, 0, 0, 4},       {4, 16, 0, 0, 8},      {8, 32, 0, 0, 16},
    {32, 64, 0, 0, 64},    {48, 96, 0, 0, 128},   {64, 128, 0, 0, 258},  {128, 258, 0, 0, 258},
    {256, 258, 0, 0, 258}, {1024, 258, 0, 0, 258}};

zemStatus parse(const FinderArgs& a) {
    const Effort e = kGreedy[a.level];
    Frame f(a);
    const uint8_t* p = f.src;
    zemStatus st = zemStatusOk;
    while (p < f.stop) {
        if (f.out.full()) {
            st = zemStatusDstTooSmall;
            break;
        }
        if (!f.chains.hashable(p)) {
            f.out.literal(*p++);
            continue;
        }
        const Match m = f.chains.find(p, f.chains.take(p), kMinMatch, e.chain, e.nice);
        if (m.dist == 0) {
            f.out.literal(*p++);
            continue;
        }
        f.out.match(m.len, m.dist);
        // (Left out explicitly: the next search would otherwise enter them on its way.)
        if (m.len <= e.insert)
            f.chains.enter_to(p + m.len);
        else
            f.chains.skip_to(p + m.len);
        p += m.len;
    }
    return f.finish(a, p, st);
}

}  // namespace

}  // namespace zem::deflate

ZEM_API zemStatus zemsDeflateLZ77Fast_8u(const uint8_t** ppSrc, uint32_t* pSrcLen, uint32_t* pSrcIdx,
                                         const uint8_t* pWindow, uint32_t winSize, uint32_t* pHashHead,
                                         uint32_t* pHashPrev, uint32_t hashSize, uint8_t* pLitLen, uint16_t* pDist,
                                         uint32_t* pDstLen, uint32_t* pLitFreq, uint32_t* pDistFreq,
                                         int32_t comprLevel, int32_t flush) {
    const zem::deflate::FinderArgs a{ppSrc,   pSrcLen, pSrcIdx,  pWindow,   winSize,    pHashHead, pHashPrev, hashSize,
                                     pLitLen, pDist,   pDstLen, pLitFreq, pDistFreq, comprLevel, flush};
    if (zemStatus st = a.check(); st != zemStatusOk) return st;
    return zem::deflate::parse(a);
}
