// The match search that every fast LZ4 encoder runs, as one template over its variants:
// table entry width and hash bits, bounded or unbounded output, the kind of history (none, in
// memory before the input, a separate dictionary) and the probe schedule.
//
// Positions are counted from a base: the input's start without history, the history's start
// otherwise. The table keeps the latest position seen for each hash; an entry is only a
// candidate, confirmed by comparing four bytes, so stale entries cost one failed compare.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "lz4/lz4_block.h"

namespace zem::lz4 {

enum class History { None, InMemory, External };

struct EncodeJob {
    const uint8_t* src;
    size_t len;
    uint8_t* out;
    size_t cap;  // read only by the bounded encoders
    void* table;
    // Position numbering: byte at position p (p >= src_pos) is base[p].
    const uint8_t* base;
    uint32_t src_pos;
    // External history: position q < src_pos is dict_at[q], valid for q in [dict_lo, src_pos).
    const uint8_t* dict_at;
    int64_t dict_lo;
    // The probe schedule: 1 for the default one, above 1 the fast encoder's starting stride.
    uint32_t accel;
};

// A job without history; the history encoders then set base, src_pos and the dictionary.
inline EncodeJob make_job(const uint8_t* src, int32_t len, uint8_t* dst, int32_t cap, void* table, uint32_t accel) {
    EncodeJob j{};
    j.src = src;
    j.len = (size_t)len;
    j.out = dst;
    j.cap = cap > 0 ? (size_t)cap : 0;
    j.table = table;
    j.base = src;
    j.accel = accel;
    return j;
}

struct EncodeResult {
    size_t written;
    size_t consumed;
};

// Whether a found match is also extended backwards over the literals before it. It costs a
// byte compare or two per match and gains about 3% of output size on text and binaries.
inline constexpr bool kExtendBackwards = true;

namespace search {

// The probe schedule: `dense` probes one position apart, then a growing stride, the next
// position being (counter++ >> shift) further on.
struct Schedule {
    size_t dense;
    uint64_t counter;  // 64 bits: the fast encoder starts it at 64 times any 32-bit acceleration
    unsigned shift;
};

// The stride grows by one every 2^kShift probes without a match (2^kShortShift with 16-bit
// entries, whose inputs are short).
inline constexpr unsigned kShift = 6;
inline constexpr unsigned kShortShift = 4;
// After a match: where it was short, the positions after it are probed one by one for a while
// (matches cluster); the stride then starts at 2.
inline constexpr size_t kShortMatch = 64;
inline constexpr size_t kDenseAfterShort = 48;
inline constexpr uint64_t kCounterAfterMatch = 2ull << kShift;
// The accelerated schedule starts at the acceleration's stride, a little into it.
constexpr Schedule accel_start(uint32_t accel) { return {0, (uint64_t(accel) << kShift) + 4, kShift}; }

// Room a wide sequence needs besides its literals: the token, one extension byte beyond
// nlit / 255, the offset and the wide copy's overrun, with a little to spare.
inline constexpr size_t kWildSequenceRoom = 40;
static_assert(kWildSequenceRoom >= 1 + 1 + 2 + kWildOverrun);
// A match that starts in a separate dictionary ends at the dictionary's end or this many bytes
// before the input's end, whichever comes first: a wider margin than kLastLiterals, which the
// dictionary encoders' output is fixed by byte for byte.
inline constexpr size_t kDictMatchEndMargin = 13;
static_assert(kDictMatchEndMargin > kLastMatchStart);

}  // namespace search

// `Accel`: the accelerated schedule (j.accel above 1), a parameter so that the default search
// carries no test for it.
template <class Entry, int Bits, bool Bounded, History H, bool Accel = false>
EncodeResult encode_block(const EncodeJob& j) {
    const uint8_t* const src = j.src;
    const uint8_t* const E = src + j.len;
    const uint8_t* anchor = src;
    uint8_t* op = j.out;
    uint8_t* const oend = j.out + j.cap;
    Entry* const table = (Entry*)j.table;
    const uint8_t* const base = j.base;
    // Locals, not fields: the output stores may alias anything, which would reload a field.
    const uint32_t accel = j.accel, src_pos = j.src_pos;
    const uint8_t* const dict_at = j.dict_at;
    const int64_t dict_lo = j.dict_lo;
    // The bounded encoders remember their last sequences, to take back those that a block cut
    // short would leave too close to its end (see below).
    struct Emitted {
        uint8_t* op;
        const uint8_t* anchor;
        size_t mlen;
    };
    constexpr unsigned kKept = Bounded ? 8 : 1;  // a power of two: a ring of the latest
    Emitted kept[kKept];
    unsigned head = 0, nkept = 0;

    // Inputs of 45 bytes or fewer have no probe position before the margin.
    if (j.len > kProbeMargin + (Accel ? 1 : 0)) {
        const uint8_t* const probe_end = E - kProbeMargin;
        const uint8_t* const match_limit = E - kLastLiterals;
        const uint8_t* ip = src + 1;

        search::Schedule s;
        if constexpr (Accel) {
            s = search::accel_start(accel);
        } else if constexpr (H != History::None) {
            // The first 2^kShift positions of the whole stream are probed one by one.
            constexpr uint32_t kDense = 1u << search::kShift;
            uint32_t first = src_pos + 1;
            s = {first < kDense ? size_t(kDense - first) : 0, kDense, search::kShift};
        } else if constexpr (sizeof(Entry) == 4) {
            s = {size_t(1) << search::kShift, uint64_t(1) << search::kShift, search::kShift};
        } else {
            s = {size_t(1) << search::kShortShift, uint64_t(1) << search::kShortShift, search::kShortShift};
        }

        for (;;) {
            // Find a candidate: every probe stores its position before the compare.
            const uint8_t* cand;
            uint32_t pos, q;
            bool in_dict = false;
            // Probes position p (counted from base), whose hash is h and whose first four
            // bytes are word.
            auto probe = [&](uint32_t p, uint32_t h, uint32_t word) -> bool {
                pos = p;
                q = table[h];
                table[h] = (Entry)pos;
                if constexpr (H == History::None && sizeof(Entry) == 2) {
                    cand = base + q;
                    return load32(cand) == word;
                } else if constexpr (H == History::None) {
                    // The table was cleared for this call, so q is an earlier position of this
                    // input and its bytes are readable whatever the distance: the compare goes
                    // first, and the distance is worked out only for the few that pass it.
                    cand = base + q;
                    if (load32(cand) != word) return false;
                    return uint32_t(pos - q - 1) < kMaxOffset;
                } else if constexpr (H != History::External) {
                    // Also rejects q == pos, which a table left by an earlier call may hold.
                    if (uint32_t(pos - q - 1) >= kMaxOffset) return false;
                    cand = base + q;
                    return load32(cand) == word;
                } else {
                    if (uint32_t(pos - q - 1) >= kMaxOffset) return false;
                    if (q >= src_pos) {
                        cand = base + q;
                        return load32(cand) == word;
                    }
                    if (int64_t(q) < dict_lo || q + kMinMatch > src_pos) return false;
                    cand = dict_at + q;
                    return in_dict = load32(cand) == word;
                }
            };
            // Dense probes, in groups of three: one 8-byte load serves the three neighbours'
            // words, but each hash reads its own bytes. Its table entry and candidate wait on
            // it, and after a match the whole search waits on them: a load feeding the CRC
            // directly answers two cycles sooner than shifting the bytes out of the word.
            const uint8_t* dense_end = ip + s.dense;
            if (dense_end > probe_end) dense_end = probe_end;
            while (ip + 2 < dense_end) {
                const uint64_t w = load64(ip);
                const uint32_t p0 = uint32_t(ip - base);
                if (probe(p0, hash5<Bits>(ip), uint32_t(w))) goto found;
                if (probe(p0 + 1, hash5<Bits>(ip + 1), uint32_t(w >> 8))) {
                    ip += 1;
                    goto found;
                }
                if (probe(p0 + 2, hash5<Bits>(ip + 2), uint32_t(w >> 16))) {
                    ip += 2;
                    goto found;
                }
                ip += 3;
            }
            for (; ip < dense_end; ++ip)
                if (probe(uint32_t(ip - base), hash5<Bits>(ip), load32(ip))) goto found;
            if (ZEM_UNLIKELY(ip >= probe_end)) goto last;
            for (;;) {
                if (probe(uint32_t(ip - base), hash5<Bits>(ip), load32(ip))) break;
                // A stride may be as long as the acceleration: compared, never added past the end.
                const size_t step = size_t(s.counter++ >> s.shift);
                if (ZEM_UNLIKELY(step >= size_t(probe_end - ip))) goto last;
                ip += step;
            }
        found:
            size_t mlen;
            // Where the search resumes. Taken from the forward extension alone: backward
            // extension moves the start and the length by the same amount, and keeping it out
            // of this address shortens the chain that the next probes wait on.
            const uint8_t* resume;
            if (H == History::External && in_dict) {
                // A match from the dictionary stops at the dictionary's end.
                const uint8_t* lim = ip + (src_pos - q);
                if (lim > E - search::kDictMatchEndMargin) lim = E - search::kDictMatchEndMargin;
                mlen = kMinMatch + extend_match(ip + kMinMatch, cand + kMinMatch, lim);
                resume = ip + mlen;
            } else {
                mlen = kMinMatch + extend_match(ip + kMinMatch, cand + kMinMatch, match_limit);
                resume = ip + mlen;
                if constexpr (kExtendBackwards) {
                    // Probes skip positions, so a match often starts a little before where it
                    // was found: take back the equal bytes that precede it (never past the
                    // literals' start or the history's).
                    const uint8_t* const lowest = H == History::External ? src : base;
                    const size_t room = size_t(ip - anchor) < size_t(cand - lowest) ? size_t(ip - anchor)
                                                                                      : size_t(cand - lowest);
                    size_t back = 0;
                    bool more = true;
                    if (ZEM_LIKELY(cand - lowest >= 8)) {
                        // The eight bytes before both, compared at once (bytes before the
                        // literals' start are still input, so they may be read): the equal run
                        // is the count of equal top bytes, cut to the room. This replaces a byte
                        // loop whose exit the branch predictor cannot know.
                        const uint64_t d = load64(ip - 8) ^ load64(cand - 8);
                        const size_t eq = size_t(_lzcnt_u64(d) >> 3);  // 8 for d == 0
                        back = eq < room ? eq : room;
                        more = back == 8;
                    }
                    if (ZEM_UNLIKELY(more))
                        while (back < room && ip[-1 - ptrdiff_t(back)] == cand[-1 - ptrdiff_t(back)]) ++back;
                    ip -= back;
                    cand -= back;
                    mlen += back;
                    pos = uint32_t(ip - base);
                    q = uint32_t(cand - base);
                }
            }
            const size_t nlit = size_t(ip - anchor);
            if constexpr (Bounded) {
                if (sequence_worst_size(nlit, mlen) >= size_t(oend - op)) goto last;
                kept[head++ & (kKept - 1)] = {op, anchor, mlen};
                if (nkept < kKept) ++nkept;
            }
            // The unbounded encoders' worst-case output leaves the room for wide copies: a
            // sequence starts at least 44 bytes before the input's end, each of which the bound
            // still counts.
            const bool wild = !Bounded || size_t(oend - op) >= nlit + nlit / 255 + search::kWildSequenceRoom;
            op = write_sequence(op, anchor, nlit, pos - q, mlen, wild);
            ip = resume;
            anchor = ip;
            if constexpr (Accel)
                s = search::accel_start(accel);
            else
                s = {mlen < search::kShortMatch ? search::kDenseAfterShort : 0, search::kCounterAfterMatch,
                     search::kShift};
        }
    }
last:
    size_t n = size_t(E - anchor);
    if constexpr (Bounded) {
        n = last_literals_that_fit(size_t(E - anchor), size_t(oend - op));
        // A block cut short must still keep the format's end rules (at least 5 closing literals,
        // the last match starting at least 12 bytes before the end), or decoders report it as
        // cut. Taking back the last sequence frees at least 3 bytes for literals each time.
        while (n < size_t(E - anchor) && nkept != 0 && (n < kLastLiterals || kept[(head - 1) & (kKept - 1)].mlen + n < kLastMatchStart)) {
            const Emitted& e = kept[--head & (kKept - 1)];
            --nkept;
            op = e.op;
            anchor = e.anchor;
            n = last_literals_that_fit(size_t(E - anchor), size_t(oend - op));
        }
    }
    op = write_last_literals(op, anchor, n);
    return {size_t(op - j.out), size_t(anchor - src) + n};
}

}  // namespace zem::lz4
