// The strong LZO1X encoder: hash chains over every position, the longest match among the
// nearest candidates, and a one-step lazy choice (a literal now when the next position starts a
// longer match).
//
// It parses one segment at a time without looking outside it, which is what lets the segmented
// method compress segments by separate calls and still produce what one call produces.
#include "core/bytes.h"
#include "lzo/lzo_format.h"

namespace zem::lzo {

namespace {

ZEM_INLINE uint32_t hash4(const uint8_t* p) {
    return (load32(p) * 2654435761u) >> (32 - kStrongHashBits);
}

// Candidates examined per position, and the length from which the first match found is kept.
constexpr int kDepth = 2;
constexpr size_t kNiceLen = 32;
// Matches from this length on are taken without looking one position further.
constexpr size_t kLazyBelow = 12;

struct Match {
    size_t len;
    uint32_t dist;
};

// A match saves what it covers minus what it costs: 2 bytes for a short near one, 3 otherwise.
ZEM_INLINE size_t match_cost(const Match& m) { return m.len <= kM2MaxLen && m.dist <= kM2MaxDist ? 2 : 3; }

class Parser {
  public:
    Parser(const uint8_t* seg, const uint8_t* seg_end, const uint8_t* base, const Chains& c)
        : seg_end_(seg_end), base_(base), floor_(uint32_t(seg - base) + 1), c_(c), next_(seg) {}

    // Enters every position before p into the chains.
    ZEM_INLINE void update(const uint8_t* p) {
        for (; next_ < p; ++next_) {
            const uint32_t pos = uint32_t(next_ - base_);
            const uint32_t h = hash4(next_);
            const uint32_t prev = c_.head[h];
            const uint32_t gap = pos + 1 - prev;
            c_.link[pos % kChainSize] = prev != 0 && gap < kChainSize ? uint16_t(gap) : 0;
            c_.head[h] = pos + 1;
        }
    }

    // The longest match at p (p + kMinMatch <= seg_end), the nearest among equals; len 0 for none.
    ZEM_INLINE Match find(const uint8_t* p) const {
        Match best{0, 0};
        const uint32_t pos = uint32_t(p - base_);
        uint32_t stored = c_.head[hash4(p)];
        const uint32_t head4 = load32(p);
        const size_t room = size_t(seg_end_ - p);
        for (int depth = kDepth; depth > 0 && stored >= floor_; --depth) {
            const uint32_t cpos = stored - 1;
            const uint32_t dist = pos - cpos;
            if (dist > kMaxDist) break;
            const uint8_t* cand = base_ + cpos;
            // The byte that would make this candidate longer than the best is tested first.
            if ((best.len == 0 || (best.len < room && cand[best.len] == p[best.len])) && load32(cand) == head4) {
                const size_t len = kMinMatch + count_equal(p + kMinMatch, cand + kMinMatch, seg_end_);
                if (len > best.len) {
                    best = {len, dist};
                    if (len >= kNiceLen) break;
                }
            }
            const uint16_t gap = c_.link[cpos % kChainSize];
            if (gap == 0) break;
            stored -= gap;
        }
        return best;
    }

  private:
    const uint8_t* const seg_end_;
    const uint8_t* const base_;
    const uint32_t floor_;  // smallest stored value of this segment (position + 1)
    const Chains& c_;
    const uint8_t* next_;   // first position not yet entered
};

}  // namespace

const uint8_t* encode_strong(const uint8_t* anchor, const uint8_t* seg, const uint8_t* seg_end,
                             const uint8_t* base, Out& o, const Chains& c) {
    if (size_t(seg_end - seg) < kMinMatch) return anchor;
    const uint8_t* const limit = seg_end - kMinMatch;  // last position that can start a match
    Parser parser(seg, seg_end, base, c);
    const uint8_t* ip = seg;
    while (ip <= limit) {
        parser.update(ip);
        Match m = parser.find(ip);
        if (m.len == 0) {
            ++ip;
            continue;
        }
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
    }
    return anchor;
}

}  // namespace zem::lzo
