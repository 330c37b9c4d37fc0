// The fast loops of the inflate decoder: far from both ends of the buffers, whole refills
// counted in advance, no test of input or room inside a symbol. Each is its own function, so
// that its few live values stay in registers.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "deflate/inflate_decode.h"
#include "deflate/inflate_fast_tables.h"

namespace zem::inflate {

enum { kFastGoOn, kFastEnd, kFastBad };

struct FastState {
    const uint8_t* in;
    uint8_t* out;
    uint64_t bb;
    uint32_t bc;
};

// Refills that certainly stay within both margins of the fast loops (stops at kFastMinInput
// before the input's end and kFastMinRoom before the output's): each takes at most 8 input
// bytes and the symbols after it write at most kMaxMatch bytes. Counting them down is cheaper
// than testing both margins after every symbol.
ZEM_INLINE size_t safe_refills(const uint8_t* in, const uint8_t* in_stop, const uint8_t* out, const uint8_t* out_stop) {
    const size_t by_in = in < in_stop ? size_t(in_stop - in) / 8 : 0;
    const size_t by_out = out < out_stop ? size_t(out_stop - out) / kMaxMatch : 0;
    return by_in < by_out ? by_in : by_out;
}

// The copy that ends a length/distance pair in both fast loops, and what follows it: `more`
// counts the refill down (false: the loop stops), `next` looks the next entry up and refills.
// Before a near match's copy, so that the lookup does not wait for the copy's loop to be
// resolved.
enum class Tail { GoOn, Stop, Bad };
template <class More, class Next>
ZEM_INLINE Tail match_tail(uint8_t*& out, uint8_t* hist, uint32_t d, uint32_t mlen, const uint8_t* win,
                           uint32_t win_size, uint32_t win_idx, More more, Next next) {
    if (ZEM_LIKELY(size_t(d) - 1 < size_t(out - hist))) {
        uint8_t* const dst = out;
        out += mlen;
        if (ZEM_UNLIKELY(!more())) {
            copy_wide(dst, d, mlen);
            return Tail::Stop;
        }
        next();
        copy_wide(dst, d, mlen);
        return Tail::GoOn;
    }
    if (!far_copy(out, hist, d, mlen, win, win_size, win_idx)) return Tail::Bad;
    out += mlen;
    if (ZEM_UNLIKELY(!more())) return Tail::Stop;
    next();
    return Tail::GoOn;
}

// Far from both ends of the buffers: up to three literals per refill, matches copied in whole
// words, and no test of input or room inside a symbol. Its own function, so that its few live
// values stay in registers.
//
// Its refills take fewer bytes than a refill to 57..64 bits before every symbol would; that
// changes nothing a caller sees, since the main loop ends by handing back every whole byte it
// holds (see the end of the main loop).
template <class T>
ZEM_NOINLINE int fast_loop(const T tab, FastState& f, const uint8_t* in_end, uint8_t* out_end, uint8_t* hist,
                           const uint8_t* win, uint32_t win_size, uint32_t win_idx) {
    const uint8_t* in = f.in;
    uint8_t* out = f.out;
    uint64_t bb = f.bb;
    uint32_t bc = f.bc;
    const uint8_t* const in_stop = in_end - kFastMinInput;
    uint8_t* const out_stop = out_end - kFastMinRoom;
    // The count is made again when it runs out.
    auto refills = [&]() ZEM_LAMBDA_INLINE { return safe_refills(in, in_stop, out, out_stop); };
    size_t budget = refills();
    if (!budget) return kFastGoOn;
    int why = kFastGoOn;
    // Entries are read as an index and a tag (bits and kind); the value byte is fetched only
    // where it is used. A literal's tag is its bit count, so it shifts the buffer as it is.
    size_t i;
    uint32_t t;
    auto lookup = [&]() ZEM_LAMBDA_INLINE {
        i = tab.lit_index(bb);
        t = tab.tag_at(i);
    };
    // A literal of no bits (an entry no code reaches) takes nothing from the buffer: repeated,
    // it runs into the margins and leaves the entry to the one-symbol loop, which refuses it.
    auto literal = [&]() ZEM_LAMBDA_INLINE {
        *out++ = tab.val_at(i);
        bb >>= t;
        bc -= t;
    };
    auto more = [&]() ZEM_LAMBDA_INLINE { return ZEM_LIKELY(--budget != 0) || (budget = refills()) != 0; };

    // A refill leaves 64 valid bits in the buffer and a symbol takes at most kMaxPairBits of
    // them, so the next entry can be looked up from the bits left before the refill that
    // follows it: the lookup need not wait for the refill.
    refill(in, bb, bc);
    lookup();
    for (;;) {
        if (t < 0x10) {
            // A refill covers three literals; a pair after one or two of them waits for a
            // refill, which leaves the low bits, and t, as they are.
            literal();
            lookup();
            if (t < 0x10) {
                literal();
                lookup();
                if (t < 0x10) {
                    literal();
                    if (!more()) break;
                    lookup();
                    refill(in, bb, bc);
                    continue;
                }
            }
            if (!more()) break;
            refill(in, bb, bc);
        }
        if (ZEM_UNLIKELY(t - 0x80 >= 0x60)) {
            if (T::kHasSub && (t & 0xF0) == kKindSubTable) {
                // A long code: its entry is dealt with like any other, without a new refill.
                i = tab.sub_index(t, i, bb);
                t = tab.tag_at(i);
                continue;
            }
            if ((t & 0xF0) == T::kEob) {
                bb >>= t & 15;
                bc -= t & 15;
                why = kFastEnd;
            } else {
                why = kFastBad;
            }
            break;
        }
        // Code and extra bits leave the buffer in one shift; the extra bits are taken from
        // the bits as they were.
        uint32_t n = t & 15, x = (t >> 4) - 8;
        uint64_t saved = bb;
        bb >>= n + x;
        bc -= n + x;
        uint32_t mlen = tab.val_at(i) + 3 + uint32_t(low_bits(saved, n + x) >> n);
        uint32_t d;
        uint32_t kb = tab.dist_entry(bb, d);
        if (ZEM_UNLIKELY(kb > kDistTagMax)) {
            why = kFastBad;
            break;
        }
        n = kb & 15;
        x = kb >> 4;
        saved = bb;
        bb >>= n + x;
        bc -= n + x;
        d += uint32_t(low_bits(saved, n + x) >> n);
        const Tail r = match_tail(out, hist, d, mlen, win, win_size, win_idx, more, [&]() ZEM_LAMBDA_INLINE {
            lookup();
            refill(in, bb, bc);
        });
        if (ZEM_LIKELY(r == Tail::GoOn)) continue;
        if (r == Tail::Bad) why = kFastBad;
        break;
    }
    f.in = in;
    f.bc = bc;
    f.bb = bb;
    f.out = out;
    return why;
}

// The refill of the loops on the decoder's own tables. Only the low 6 bits of bc count: whole
// entries are subtracted from it, flags and all. It stays between 8 and 63 here, so those bits
// are exact.
ZEM_INLINE void refill(const uint8_t*& in, uint64_t& bb, uint64_t& bc) {
    bb |= load64(in) << (bc & 63);
    in += 7 - bextr(bc, 3 | 3 << 8);
    bc |= 56;
}

// The longest whole match of a step entry (lengths 3 to 10), and the output behind that the step
// loop's one-compare distance test needs.
inline constexpr size_t kStepMaxMatch = 10;
inline constexpr size_t kStepHistory = 16;
static_assert(kStepHistory >= kStepMaxMatch);

// The fast loop on the decoder's own tables, each entry used as it comes from the table, for
// `budget` refills at most. Two ways of taking literals and whole matches:
//  - kRuns false: one step for either, without a branch between them to mispredict, two steps
//    per refill. Needs kStepHistory bytes of output behind it (see the step's distance test).
//  - kRuns true: up to three literals per refill, a whole match in a step of its own. Fewer
//    operations per literal where literals come in long runs.
// Other lengths take their distances as in the loop above. The general layout's widths are
// constants, which leaves two more registers to the loop.
template <bool kGeneral, bool kRuns>
ZEM_NOINLINE int fast_loop_own(const FastTables& ft, FastState& f, size_t budget, uint8_t* hist,
                               const uint8_t* win, uint32_t win_size, uint32_t win_idx) {
    const uint8_t* in = f.in;
    uint8_t* out = f.out;
    uint64_t bb = f.bb;
    uint64_t bc = f.bc;
    // The tables, the ramp included, are addressed from the record as ft.x: a pointer of their
    // own would be hoisted out of the loop and spilled, where a displacement costs nothing.
    const uint32_t* const lit = ft.lit;
    const uint64_t lit_mask = kGeneral ? kFastRootSize - 1 : ft.lit_mask;
    int why = kFastGoOn;
    uint32_t e;
    // A literal or a whole match: at most kMaxStepBits bits and one copy of 16 bytes, from the
    // literal's byte in the ramp or from the match's source, chosen by a mask rather than a
    // branch. Matches that this copy cannot serve (closer than their length, or reaching before
    // the output) go out of line. The next entry's index comes from the bits before the shift,
    // so that its load waits for one operation only. False, with `why` set, for a malformed one.
    //
    // The distance test is one compare, len <= d <= room, as d - len <= room - len: exact once
    // the output behind is at least the longest such match (kStepMaxMatch bytes), and always
    // true for a literal, whose room is all ones. The loop with runs may start at the output's
    // first byte, and tests both ends.
    auto step = [&]() ZEM_LAMBDA_INLINE {
        const uint64_t saved = bb;
        bb >>= (e & 63);
        bc -= e;
        const uint32_t next = lit[bextr(saved, e)];
        const uint64_t len = (e >> 16) & 15;
        const uint64_t de = ft.dist[(e >> 20) & 2047];
        const uint32_t d =
            uint32_t(de >> 32) + uint32_t(_bzhi_u64(saved >> ((e - de) & 63), de) >> (uint32_t(de) >> 16));
        const uint64_t lit_ones = uint64_t(0) - uint64_t(len == 1);
        const uint64_t from = uint64_t(out) ^ ((uint64_t(out) ^ uint64_t(ft.ramp + 256)) & lit_ones);
        const uint64_t room = size_t(out - hist) | lit_ones;
        if (ZEM_UNLIKELY(kRuns ? size_t(d) - 1 >= room || d < len : d - len > room - len)) {
            if (size_t(d) - 1 < size_t(out - hist)) {
                copy_wide(out, d, len);
            } else if (!far_copy(out, hist, d, uint32_t(len), win, win_size, win_idx)) {
                why = kFastBad;
                return false;
            }
            out += len;
            e = next;
            return true;
        }
        copy16(out, reinterpret_cast<const uint8_t*>(from) - d);
        out += len;
        e = next;
        return true;
    };
    auto literal = [&]() ZEM_LAMBDA_INLINE {
        const uint32_t next = lit[bextr(bb, e)];
        bb >>= (e & 63);
        bc -= e;
        *out++ = uint8_t(e >> 20);
        e = next;
    };
    auto more = [&]() ZEM_LAMBDA_INLINE { return ZEM_LIKELY(--budget != 0); };

    refill(in, bb, bc);
    e = lit[bb & lit_mask];
    for (;;) {
        if constexpr (kRuns) {
            // A refill covers three literals, or a step, and the lookup after them.
            if (e & kFastLit) {
                literal();
                if (e & kFastLit) {
                    literal();
                    if (e & kFastLit) literal();
                }
                if (!more()) break;
                refill(in, bb, bc);
                continue;
            }
            if (e & kFastStep) {
                if (!step() || !more()) break;
                refill(in, bb, bc);
                continue;
            }
        } else {
            // A refill covers two steps and the lookup after them.
            if (e & kFastStep) {
                if (!step()) break;
                if ((e & kFastStep) && !step()) break;
                if (!more()) break;
                refill(in, bb, bc);
                continue;
            }
        }
        if (ZEM_UNLIKELY(e & kFastSpecial)) {
            if (e & kFastSub) {
                e = lit[(e >> 16) + _bzhi_u64(bb >> kRootBits, e & 15)];
                continue;
            }
            if (e & kFastEob) {
                bb >>= (e & 63);
                bc -= e;
                why = kFastEnd;
            } else {
                why = kFastBad;
            }
            break;
        }
        // Code and extra bits leave the buffer in one shift; the extra bits are taken from the
        // bits as they were.
        uint64_t saved = bb;
        bb >>= (e & 63);
        bc -= e;
        size_t di = bextr(saved, e);
        uint64_t de = ft.dist[di];
        uint32_t mlen = ((e >> 16) & 0x1FF) + uint32_t(_bzhi_u64(saved, e) >> (e >> kFastLenShift));
        if (ZEM_UNLIKELY(de & kFastSpecial)) {
            if (de & kFastSub) {
                di = (uint32_t(de) >> 16) + _bzhi_u64(bb >> kRootBits, de & 15);
                de = ft.dist[di];
            }
            if (de & kFastSpecial) {
                why = kFastBad;
                break;
            }
        }
        saved = bb;
        bb >>= (de & 63);
        bc -= de;
        // The next entry straight from the bits before the distance, as after a literal.
        e = lit[bextr(saved, de)];
        uint32_t d = uint32_t(de >> 32) + uint32_t(_bzhi_u64(saved, uint32_t(de)) >> (uint32_t(de) >> 16));
        const Tail r = match_tail(out, hist, d, mlen, win, win_size, win_idx, more, [&]() ZEM_LAMBDA_INLINE { refill(in, bb, bc); });
        if (ZEM_LIKELY(r == Tail::GoOn)) continue;
        if (r == Tail::Bad) why = kFastBad;
        break;
    }
    f.in = in;
    f.bc = uint32_t(bc & 63);
    f.bb = bb;
    f.out = out;
    return why;
}

// Rewrites the tables and runs the loops above: worth it only when much is to be decoded. The
// loop with runs serves blocks whose code gives literals at least 85% of the symbols (float
// data, incompressible stretches), where its branch predicts well; the step loop all others.
template <class T>
ZEM_NOINLINE int fast_own(const T& tab, FastState& f, const uint8_t* in_end, uint8_t* out_end, uint8_t* hist,
                          const uint8_t* win, uint32_t win_size, uint32_t win_idx) {
    FastTables ft;
    const bool runs = fast_tables(tab, ft);
    const uint8_t* const in_stop = in_end - kFastMinInput;
    uint8_t* const out_stop = out_end - kFastMinRoom;
    for (;;) {
        size_t n = safe_refills(f.in, in_stop, f.out, out_stop);
        if (n == 0) return kFastGoOn;
        // The step loop's distance test needs kStepHistory bytes of output behind it; until
        // then, runs, a few refills at a time.
        constexpr size_t kStartRefills = 16;
        const bool start = size_t(f.out - hist) < kStepHistory;
        if (start && n > kStartRefills) n = kStartRefills;
        const int r = runs || start ? fast_loop_own<T::kHasSub, true>(ft, f, n, hist, win, win_size, win_idx)
                                    : fast_loop_own<T::kHasSub, false>(ft, f, n, hist, win, win_size, win_idx);
        if (r != kFastGoOn) return r;
    }
}

}  // namespace zem::inflate
