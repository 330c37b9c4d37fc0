// The LZ4 HC match finder: hash chains over caller-owned tables, and the chain walks of the plain
// search and of the wider search that may reach back into the current match.
//
// Positions are numbered from the start of the history (src - srcIdx) and stored in the
// caller's tables as they are, so that one pair of tables serves the successive blocks of a
// stream. Nothing in the tables is trusted: a stale entry is either outside the window (and
// ends its chain) or gets its bytes compared like any other candidate.
#pragma once

#include <immintrin.h>
#include <stdint.h>

#include "core/bytes.h"
#include "core/check.h"
#include "lz4/lz4_block.h"

namespace zem::lz4hc {

inline constexpr int32_t kHashBytes = 131072;
inline constexpr int32_t kChainBytes = 262144;
inline constexpr uint32_t kHashMask = 0x7fff;
inline constexpr uint32_t kChainMask = 0xffff;
// One below the format's largest offset: the chain stops before it.
inline constexpr uint32_t kMaxDistance = 65534;
// The block format's limits, as signed values for this file's position arithmetic: no match
// shorter than four bytes, and the last five bytes always literals (no match reaches past E - 5).
inline constexpr int32_t kMinMatch = (int32_t)lz4::kMinMatch;
inline constexpr int32_t kLastLiterals = (int32_t)lz4::kLastLiterals;
// A search position needs this much room before E - 5: the first comparison is one full
// 32-byte load on each side.
inline constexpr int32_t kSearchRoom = 32;
// A match reaching E - 13 or beyond is written as it stands, without looking for a wider one.
inline constexpr int32_t kWideEnd = 13;
// Shorter inputs are written as one literal run.
inline constexpr int32_t kMinInput = 15;
// The longest match length whose token nibble needs no extension byte.
inline constexpr int32_t kNibbleLen = 18;
// A later match starting this close to the current one replaces it outright.
inline constexpr uint32_t kReplaceDistance = 3;

ZEM_INLINE uint32_t hash_at(const uint8_t* p) { return _mm_crc32_u32(0, load32(p)) & kHashMask; }

// Length of the common prefix of a and b, counted until b reaches b_end. a lies before b (or in
// a dictionary that holds at least b_end - b bytes after a), so a never reads past its own data.
ZEM_INLINE int32_t count_forward(const uint8_t* a, const uint8_t* b, const uint8_t* b_end) {
    return int32_t(lz4::extend_match(b, a, b_end));
}

// How many of the `most` bytes before a and b agree; nothing below a - most or b - most is read.
// Runs of agreeing bytes in a wider search are often long (the candidate is the current match
// seen from further on), so this goes a vector at a time.
ZEM_INLINE int32_t count_back_n(const uint8_t* a, const uint8_t* b, int32_t most) {
    int32_t n = 0;
    while (most - n >= 32) {
        __m256i x = _mm256_loadu_si256((const __m256i*)(a - n - 32));
        __m256i y = _mm256_loadu_si256((const __m256i*)(b - n - 32));
        uint32_t eq = (uint32_t)_mm256_movemask_epi8(_mm256_cmpeq_epi8(x, y));
        if (eq != 0xffffffffu) return n + (int32_t)_lzcnt_u32(~eq);
        n += 32;
    }
    while (most - n >= 8) {
        uint64_t diff = load64(a - n - 8) ^ load64(b - n - 8);
        if (diff) return n + (int32_t)(_lzcnt_u64(diff) >> 3);
        n += 8;
    }
    while (n < most && a[-n - 1] == b[-n - 1]) ++n;
    return n;
}

// How many bytes before a and b agree, stopping at a_low and b_low (neither is read below).
ZEM_INLINE int32_t count_backward(const uint8_t* a, const uint8_t* a_low, const uint8_t* b, const uint8_t* b_low) {
    const intptr_t ra = a - a_low, rb = b - b_low;
    return count_back_n(a, b, (int32_t)(ra < rb ? ra : rb));
}

struct Match {
    uint32_t pos;   // first byte of the match
    uint32_t dist;  // offset back to its source
    int32_t len;
    [[nodiscard]] uint32_t end() const { return pos + (uint32_t)len; }
};

struct Encoder {
    const uint8_t* base;       // position 0 in memory: src - srcIdx
    const uint8_t* dict_base;  // with a separate dictionary: the byte of position q < src_pos
    const uint8_t* limit;      // E - 5: no match reaches past it
    uint32_t* head;
    uint32_t* chain;
    uint32_t src_pos;  // position of src[0]
    uint32_t low;      // lowest position a match may use
    uint32_t next;     // first position not yet linked into the chains
    int32_t attempts;
};

// Links every position from e.next up to (not including) target into the chains. Only input
// positions are ever linked, so hashing never reads history or dictionary bytes.
ZEM_INLINE void insert_until(Encoder& e, uint32_t target) {
    uint32_t q = e.next;
    if (q >= target) return;
    const uint8_t* const base = e.base;
    uint32_t* const head = e.head;
    uint32_t* const chain = e.chain;
    // A head of one to three, then four positions a step: the four hashes are independent, the
    // links must still go in position order.
    while ((target - q) & 3) {
        uint32_t h = hash_at(base + q);
        chain[q & kChainMask] = head[h];
        head[h] = q;
        ++q;
    }
    for (; q < target; q += 4) {
        uint32_t h0 = hash_at(base + q);
        uint32_t h1 = hash_at(base + q + 1);
        uint32_t h2 = hash_at(base + q + 2);
        uint32_t h3 = hash_at(base + q + 3);
        chain[q & kChainMask] = head[h0];
        head[h0] = q;
        chain[(q + 1) & kChainMask] = head[h1];
        head[h1] = q + 1;
        chain[(q + 2) & kChainMask] = head[h2];
        head[h2] = q + 2;
        chain[(q + 3) & kChainMask] = head[h3];
        head[h3] = q + 3;
    }
    e.next = target;
}

// Measures a dictionary candidate q for the bytes at ip: forwards up to the dictionary's end
// and then on against the start of the input, which follows it in the numbering; backwards
// (unless kForwardOnly) down to ip_low and the low limit. Returns the back count in pos and the
// whole length in len (0 when fewer than four bytes agree from ip on).
template <bool kForwardOnly>
ZEM_INLINE Match count_dict(const Encoder& e, uint32_t q, const uint8_t* ip, const uint8_t* ip_low) {
    const uint8_t* mp = e.dict_base + q;
    const uint8_t* in_dict_end = ip + (e.src_pos - q);
    const uint8_t* lim = in_dict_end < e.limit ? in_dict_end : e.limit;
    int32_t fwd = count_forward(mp, ip, lim);
    if (ip + fwd == in_dict_end) fwd += count_forward(e.base + e.src_pos, in_dict_end, e.limit);
    if (fwd < kMinMatch) return Match{0, 0, 0};
    int32_t back = 0;
    if (!kForwardOnly && ip > ip_low) back = count_backward(mp, e.dict_base + e.low, ip, ip_low);
    return Match{(uint32_t)back, 0, back + fwd};
}

// Valid candidates for a search at s lie in [window_low, s): not position 0, not below the low
// limit, not farther than the largest distance, not at or after s (stale entries of a longer
// stream). The window is empty when this is s or more.
ZEM_INLINE uint32_t window_low(const Encoder& e, uint32_t s) {
    uint32_t lo = e.low > 1 ? e.low : 1;
    if (s > kMaxDistance && s - kMaxDistance > lo) lo = s - kMaxDistance;
    return lo;
}

// What every search does first: link the positions up to s, then decide whether a walk can
// find anything. Returns the window's low end, or s when no candidate can beat `best` (the
// current best already runs to the limit, or the window is empty).
ZEM_INLINE uint32_t search_start(Encoder& e, uint32_t s, uint32_t start_low, int32_t best) {
    insert_until(e, s);
    if (best >= int32_t(e.limit - (e.base + start_low))) return s;
    const uint32_t lo = window_low(e, s);
    return lo < s ? lo : s;
}

// One candidate of a plain search at s from memory. Any longer match agrees on the four bytes
// that end at the current best length: a quick reject that never drops a winner, and after the
// first hit it rejects nearly every other candidate.
struct PlainProbe {
    const uint8_t* ip;
    const uint8_t* limit;
    uint32_t s;
    int32_t room;
    int32_t o;      // the current best length, at least 3
    uint32_t tail;  // the four bytes of ip that end at it
    PlainProbe(const uint8_t* ip_, const uint8_t* limit_, uint32_t s_, int32_t room_, int32_t best)
        : ip(ip_), limit(limit_), s(s_), room(room_), o(best), tail(load32(ip_ + best - 3)) {}
    ZEM_INLINE void set_best(int32_t len) {
        o = len;
        tail = load32(ip + len - 3);
    }
    // Returns true when the walk can stop: the match runs to the limit.
    ZEM_INLINE bool measure(const uint8_t* mp, uint32_t q, Match& m) {
        if (load32(mp + o - 3) != tail) return false;
        const int32_t fwd = count_forward(mp, ip, limit);
        if (fwd <= m.len) return false;
        m = Match{s, s - q, fwd};
        set_best(fwd);
        return fwd >= room;
    }
};

// Whether every candidate at lo or above has the backward room that WideProbe reads: 32 bytes
// and the whole room back to start_low, above the lowest usable position.
ZEM_INLINE bool wide_probe_fits(uint32_t lo, uint32_t mem_low_pos, uint32_t back_room) {
    const uint32_t need = back_room > 32 ? back_room : 32;
    return lo >= mem_low_pos && lo - mem_low_pos >= need;
}

// One candidate of a wider search at s, far enough from the low end that no candidate's
// backward room is cut by it (the usual case). A winner may extend back as far as start_low, so
// only the bytes from s on are certain to agree, and most candidates of the chain pass any sound
// quick reject. Instead every candidate is measured without branching on its bytes, a vector
// wide in both directions, and only runs of 32 bytes or more take the rare branch.
struct WideProbe {
    __m256i cur, cur_back;
    const uint8_t* ip;
    const uint8_t* limit;
    uint32_t s;
    int32_t room;
    int32_t broom;  // s - start_low
    int32_t bcap;   // the backward count one vector can settle: broom, at most 32
    WideProbe(const uint8_t* ip_, const uint8_t* limit_, uint32_t s_, uint32_t start_low, int32_t room_)
        : cur(_mm256_loadu_si256((const __m256i*)ip_)),
          cur_back(_mm256_loadu_si256((const __m256i*)(ip_ - 32))),
          ip(ip_),
          limit(limit_),
          s(s_),
          room(room_),
          broom(int32_t(s_ - start_low)),
          bcap(s_ - start_low > 32 ? 32 : int32_t(s_ - start_low)) {}
    // Returns true when the walk can stop: the match runs to the limit.
    ZEM_INLINE bool measure(const uint8_t* mp, uint32_t q, Match& m) const {
        uint32_t eq = (uint32_t)_mm256_movemask_epi8(_mm256_cmpeq_epi8(_mm256_loadu_si256((const __m256i*)mp), cur));
        uint32_t eqb = (uint32_t)_mm256_movemask_epi8(
            _mm256_cmpeq_epi8(_mm256_loadu_si256((const __m256i*)(mp - 32)), cur_back));
        const int32_t fwd = (int32_t)_tzcnt_u32(~eq);
        const int32_t back_run = (int32_t)_lzcnt_u32(~eqb);
        const int32_t back = back_run < bcap ? back_run : bcap;
        // Exact unless a count reached 32, where a compare may have run to its end (bit 5 of
        // either count moved to the sign): one test for the usual reject.
        if (ZEM_LIKELY((int32_t)((uint32_t)(m.len - back - fwd) | ((uint32_t)(fwd | back) << 26)) >= 0)) return false;
        return measure_on(mp, q, m, fwd, back_run);
    }
    // The rare part: the counts go on past the vectors before the candidate is judged.
    ZEM_INLINE bool measure_on(const uint8_t* mp, uint32_t q, Match& m, int32_t fwd, int32_t back_run) const {
        int32_t back = back_run < broom ? back_run : broom;
        if (fwd == 32) fwd += count_forward(mp + 32, ip + 32, limit);
        if (back_run == 32 && broom > 32) back += count_back_n(mp - 32, ip - 32, broom - 32);
        if (fwd < kMinMatch || back + fwd <= m.len) return false;
        m = Match{s - (uint32_t)back, s - q, back + fwd};
        return m.len >= room;
    }
};

// Walks the chain of position s for a match longer than `best` that covers s and starts no
// earlier than start_low (start_low == s: a plain search; below s: a wider match that may
// reach back into the current one). Returns a match of length `best` when none is longer.
template <bool kExtDict>
ZEM_INLINE Match search(Encoder& e, uint32_t s, uint32_t start_low, int32_t best) {
    Match m{s, 0, best};
    const uint32_t lo = search_start(e, s, start_low, best);
    if (lo == s) return m;
    const uint8_t* const base = e.base;
    const uint8_t* const ip = base + s;
    const uint8_t* const limit = e.limit;
    const int32_t room = int32_t(limit - (base + start_low));
    const uint32_t span = s - lo;
    const uint32_t* const chain = e.chain;
    uint32_t q = e.head[hash_at(ip)];
    int32_t n = e.attempts;

    if (s == start_low) {
        PlainProbe probe(ip, limit, s, room, best > 3 ? best : 3);
        for (; n > 0 && q - lo < span; --n) {
            // The next link is read before this candidate's bytes are judged, so a mispredicted
            // reject does not hold back the walk's one dependent load; the last step reads none.
            const uint32_t next_q = n > 1 ? chain[q & kChainMask] : q;
            if (!kExtDict || q >= e.src_pos) {
                if (probe.measure(base + q, q, m)) break;
            } else {
                int32_t fwd = count_dict<true>(e, q, ip, ip).len;
                if (fwd > m.len) {
                    m = Match{s, s - q, fwd};
                    if (fwd >= room) break;
                    probe.set_best(fwd);
                }
            }
            q = next_q;
        }
        return m;
    }

    // A wider search (see WideProbe); near the low end, or with a separate dictionary, each
    // candidate's backward room is bounded on its own.
    const uint8_t* const ip_low = base + start_low;
    const uint32_t back_room = s - start_low;
    const uint32_t mem_low_pos = kExtDict ? (e.low > e.src_pos ? e.low : e.src_pos) : e.low;
    const uint8_t* const mem_low = base + mem_low_pos;
    const bool vector_ok = limit - ip >= 32 && s >= (kExtDict ? e.src_pos : 0) + 8;
    const __m256i cur = vector_ok ? _mm256_loadu_si256((const __m256i*)ip) : _mm256_setzero_si256();
    const uint64_t cur_back = vector_ok ? load64(ip - 8) : 0;
    if (vector_ok && (!kExtDict || lo >= e.src_pos) && wide_probe_fits(lo, mem_low_pos, back_room)) {
        const WideProbe probe(ip, limit, s, start_low, room);
        for (; n > 0 && q - lo < span; --n) {
            const uint32_t next_q = n > 1 ? chain[q & kChainMask] : q;
            if (probe.measure(base + q, q, m)) break;
            q = next_q;
        }
        return m;
    }
    for (; n > 0 && q - lo < span; --n) {
        if (!kExtDict || q >= e.src_pos) {
            const uint8_t* mp = base + q;
            const uint32_t back_max0 = q - mem_low_pos;
            const uint32_t back_max = back_max0 < back_room ? back_max0 : back_room;
            int32_t fwd, back;
            if (ZEM_LIKELY(vector_ok && back_max0 >= 8)) {
                uint32_t eq = (uint32_t)_mm256_movemask_epi8(
                    _mm256_cmpeq_epi8(_mm256_loadu_si256((const __m256i*)mp), cur));
                fwd = (int32_t)_tzcnt_u32(~eq);
                if (ZEM_UNLIKELY(fwd == 32)) fwd += count_forward(mp + 32, ip + 32, limit);
                back = (int32_t)(_lzcnt_u64(load64(mp - 8) ^ cur_back) >> 3);
                if (ZEM_UNLIKELY(back == 8 && back_max > 8)) back += count_backward(mp - 8, mem_low, ip - 8, ip_low);
            } else {
                fwd = count_forward(mp, ip, limit);
                back = count_backward(mp, mem_low, ip, ip_low);
            }
            if (back > (int32_t)back_max) back = (int32_t)back_max;
            const int32_t total = fwd >= kMinMatch ? back + fwd : 0;
            if (total > m.len) {
                m = Match{s - (uint32_t)back, s - q, total};
                if (total >= room) break;
            }
        } else {
            Match d = count_dict<false>(e, q, ip, ip_low);
            if (d.len > m.len) {
                m = Match{s - d.pos, s - q, d.len};
                if (d.len >= room) break;
            }
        }
        q = chain[q & kChainMask];
    }
    return m;
}

// Undoes the linking of s and s + 1 (the last two linked), newest first, when the search at
// s + 2 that they were linked for is not made after all: no head then names a position that
// the encoder has not reached, as if they had never been linked. Their own chain slots are
// left behind, but nothing leads to them any more.
ZEM_INLINE void unlink_two(Encoder& e, uint32_t s) {
    e.head[hash_at(e.base + s + 1)] = e.chain[(s + 1) & kChainMask];
    e.head[hash_at(e.base + s)] = e.chain[s & kChainMask];
    e.next = s;
}

// The plain search at position s + 2 that follows a wider search at s whenever that one finds
// nothing longer. Both chain walks are bound by the latency of their dependent chain loads, so
// they run side by side in one loop; the plain result is kept for the parse to take.
struct Pending {
    Match m;
    bool ready;
};

// A wider search at s (as search() with start_low below s, which it must be) and, beside it, the
// plain search at s + 2. The plain search sees the tables exactly as it would after the wider
// one: the wider walk reads its head before s and s + 1 are linked, and it only follows links
// of positions in the window below s, whose chain slots are not those of s and s + 1. Falls back
// to the wider search alone where its vector loop does not apply.
ZEM_INLINE Match search_wide_and_next(Encoder& e, uint32_t s, uint32_t start_low, int32_t best, Pending& next) {
    next.ready = false;
    Match m{s, 0, best};
    const uint32_t lo = search_start(e, s, start_low, best);
    if (lo == s) return m;
    const uint8_t* const base = e.base;
    const uint8_t* const ip = base + s;
    const uint8_t* const limit = e.limit;
    const int32_t room = int32_t(limit - (base + start_low));
    if (!(limit - ip >= 32 && wide_probe_fits(lo, e.low, s - start_low))) return search<false>(e, s, start_low, best);
    const uint32_t span = s - lo;
    const uint32_t* const chain = e.chain;
    uint32_t q = e.head[hash_at(ip)];
    int32_t n = e.attempts;
    const WideProbe wide(ip, limit, s, start_low, room);

    // The plain search at t = s + 2, set up as search() does.
    const uint32_t t = s + 2;
    insert_until(e, t);
    const uint8_t* const ipt = base + t;
    Match mt{t, 0, kMinMatch - 1};
    PlainProbe plain(ipt, limit, t, int32_t(limit - ipt), kMinMatch - 1);
    const uint32_t lo_t = window_low(e, t);
    const uint32_t span_t = t - lo_t;
    uint32_t qt = e.head[hash_at(ipt)];
    int32_t nt = lo_t < t && plain.room > kMinMatch - 1 ? e.attempts : 0;

    // One step of each walk; each returns false when its walk is over.
    auto step_wide = [&]() __attribute__((always_inline)) -> bool {
        const uint32_t next_q = n > 1 ? chain[q & kChainMask] : q;
        if (wide.measure(base + q, q, m)) return false;
        q = next_q;
        return --n > 0 && q - lo < span;
    };
    auto step_plain = [&]() __attribute__((always_inline)) -> bool {
        const uint32_t next_qt = nt > 1 ? chain[qt & kChainMask] : qt;
        if (plain.measure(base + qt, qt, mt)) return false;
        qt = next_qt;
        return --nt > 0 && qt - lo_t < span_t;
    };
    bool on_w = n > 0 && q - lo < span;
    bool on_t = nt > 0 && qt - lo_t < span_t;
    while (on_w & on_t) {
        on_w = step_wide();
        // Once the wider search has found a longer match, the plain one is not needed.
        on_t = m.len == best && step_plain();
    }
    while (on_w) on_w = step_wide();
    if (m.len > best) {
        // The parse goes on from a longer match and searches no earlier than s + 1.
        unlink_two(e, s);
        return m;
    }
    while (on_t) on_t = step_plain();
    next.m = mt;
    next.ready = true;
    return m;
}

// Touches the first links of position pos's chain ahead of its search: the chain index is
// masked, and the loads run beside the current walk instead of adding their latency to the
// next one. Only the links are touched, not the candidates' bytes: those lines are fetched by
// the walk's own compares soon enough, and prefetching them for chains that end within a few
// links (stale positions anywhere in the input) displaced more than it saved.
ZEM_INLINE void warm_chain(const Encoder& e, uint32_t pos) {
    uint32_t q = e.head[hash_at(e.base + pos)];
    for (int i = 0; i < 4; ++i) q = e.chain[q & kChainMask];
    _mm_prefetch((const char*)(e.chain + (q & kChainMask)), _MM_HINT_T0);
}

}  // namespace zem::lz4hc
