// The strong LZO1X encoder: a head table over a 16-bit hash of 4 bytes (eight times the fast
// method's), the candidate there taken when it is the longer choice, and a one-step lazy
// choice (a literal now when the next position gives more net saving).
//
// It parses one segment at a time without looking outside it, which is what lets the segmented
// method compress segments by separate calls and still produce what one call produces.
//
// Measured on the Silesia files (seven together, against liblzo2 in the same run): two
// candidates per position by hash chains gave a ratio of 3.19 at 0.32x lzo1x_1's speed, one
// candidate and no links 2.87 at 0.62x; lzo1x_1_15 gives 2.52. The links cost more than the
// second candidate earned, so there are none.
#include "core/bytes.h"
#include "lzo/lzo_format.h"

namespace zem::lzo {

namespace {

ZEM_INLINE uint32_t hash4(const uint8_t* p) {
    return (load32(p) * 2654435761u) >> (32 - kStrongHashBits);
}

// Matches from this length on are taken without looking one position further.
constexpr size_t kLazyBelow = 12;
// Every 2^kSkipShift misses in a row lengthen the stride by one byte: data that does not
// compress is passed over quickly (3% faster at the same ratio).
constexpr unsigned kSkipShift = 3;
// Only the last positions a match covers enter the table: repeats that start inside a match
// are mostly found again at its end, and entering every position cost 15% of the time.
constexpr size_t kTailEntered = 2;

struct Match {
    size_t len;
    uint32_t dist;
};

// A match saves what it covers minus what it costs: 2 bytes for a short near one, 3 otherwise.
ZEM_INLINE size_t match_cost(const Match& m) { return m.len <= kM2MaxLen && m.dist <= kM2MaxDist ? 2 : 3; }

class Parser {
  public:
    Parser(const uint8_t* seg, const uint8_t* seg_end, const uint8_t* base, uint32_t* head)
        : seg_end_(seg_end), base_(base), floor_(uint32_t(seg - base) + 1), head_(head), next_(seg) {}

    // Enters every position before p into the table.
    ZEM_INLINE void update(const uint8_t* p) {
        for (; next_ < p; ++next_) head_[hash4(next_)] = uint32_t(next_ - base_) + 1;
    }

    // Leaves the positions before p out of the table, up to the last kTailEntered of them.
    ZEM_INLINE void pass_over(const uint8_t* p) {
        if (p - next_ > (ptrdiff_t)kTailEntered) next_ = p - kTailEntered;
    }

    // The match at p with the newest position of the same hash (p + kMinMatch <= seg_end);
    // len 0 for none.
    ZEM_INLINE Match find(const uint8_t* p) const {
        const uint32_t stored = head_[hash4(p)];
        if (stored < floor_) return {0, 0};
        const uint32_t dist = uint32_t(p - base_) - (stored - 1);
        const uint8_t* cand = base_ + (stored - 1);
        if (dist > kMaxDist || load32(cand) != load32(p)) return {0, 0};
        return {kMinMatch + count_equal(p + kMinMatch, cand + kMinMatch, seg_end_), dist};
    }

  private:
    const uint8_t* const seg_end_;
    const uint8_t* const base_;
    const uint32_t floor_;  // smallest stored value of this segment (position + 1)
    uint32_t* const head_;  // by hash: position + 1 of the newest entry, 0 for none
    const uint8_t* next_;   // first position not yet entered
};

}  // namespace

const uint8_t* encode_strong(const uint8_t* anchor, const uint8_t* seg, const uint8_t* seg_end,
                             const uint8_t* base, Out& o, uint32_t* head) {
    if (size_t(seg_end - seg) < kMinMatch) return anchor;
    const uint8_t* const limit = seg_end - kMinMatch;  // last position that can start a match
    Parser parser(seg, seg_end, base, head);
    const uint8_t* ip = seg;
    size_t misses = 0;
    while (ip <= limit) {
        parser.update(ip);
        Match m = parser.find(ip);
        if (m.len == 0) {
            ip += 1 + (misses++ >> kSkipShift);
            parser.pass_over(ip);
            continue;
        }
        misses = 0;
        // Lazy: while the next position gives more net saving, this one becomes a literal.
        while (ip < limit && m.len < kLazyBelow) {
            parser.update(ip + 1);
            const Match n = parser.find(ip + 1);
            if (n.len == 0 || n.len - match_cost(n) <= m.len - match_cost(m)) break;
            ++ip;
            m = n;
        }
        write_literals(o, anchor, size_t(ip - anchor), seg_end);
        write_match(o, m.dist, m.len);
        ip += m.len;
        anchor = ip;
        parser.pass_over(ip);
    }
    return anchor;
}

}  // namespace zem::lzo
