// The inflate decoder: the Huffman-coded body of one DEFLATE block, resumable at any byte of
// input and output.
//
// One decoder template serves both table layouts; the compact instantiation is the faster
// one (one lookup per symbol, where the general layout may need two). Each call alternates
// between two loops:
//  - the main loop, while at least kMainMinInput input bytes and some output room remain: the
//    64-bit bit buffer is refilled branch-free to 56..63 bits, which covers a whole
//    length/distance pair, so no step inside tests for input. Far from both ends it runs as
//    one of the fast loops (inflate_fast.h); near them, one symbol per refill;
//  - the careful loop, one step at a time, which pulls single bytes only when the held bits
//    cannot answer and saves its step in the state's resume words when input or output ends.
#include "deflate/inflate_decode.h"
#include "deflate/inflate_fast.h"
#include "deflate/inflate_tables.h"

namespace zem::inflate {

namespace {

// Where a call continues on mode 2 (the first resume word).
enum Step : uint32_t { kStepCode = 0, kStepLenExtra = 1, kStepDist = 2, kStepDistExtra = 3, kStepCopy = 4 };

// A call that can decode this much rewrites the tables first. The rewrite, whole matches
// included, costs about as much as decoding 2 to 3 KiB; in calls of 4 KiB of output the loop
// on the record's tables was 8% faster in all.
constexpr size_t kOwnTablesMinInput = 1024;
constexpr size_t kOwnTablesMinRoom = 8192;

// How a loop, or a step of the careful loop, leaves the call: on to the next one, or with the
// mode it returns (0 the end of the block, 1 a code boundary for want of input, 2 inside a
// pair or a match), or refusing the data.
enum class Exit { GoOn, End, NoInput, Pending, Bad };

// A call in progress. Inline throughout and a local of the call, so that its fields live in
// registers as locals would.
template <class T>
struct Decoder {
    const T& tab;
    const uint8_t* in;
    const uint8_t* const in_end;
    uint8_t* out;
    uint8_t* const out_end;
    uint8_t* const hist;
    const uint8_t* const win;
    const uint32_t win_size, win_idx;
    uint64_t bb;
    uint32_t bc;
    // The pending step and its length, entry (extra bits) and distance.
    uint32_t step = kStepCode, len = 0, ent = 0, dist = 0;

    ZEM_INLINE void drop(uint32_t n) {
        bb >>= n;
        bc -= n;
    }

    // ---- the main loop ----

    // The length/distance pair of entry e, whose bits are all held: false if malformed.
    ZEM_INLINE bool pair(uint32_t e, uint32_t& mlen, uint32_t& d) {
        drop(e & 15);
        uint32_t x = (e >> 4) & 7;
        mlen = (e >> 8) + 3 + uint32_t(low_bits(bb, x));
        drop(x);
        uint32_t kb = tab.dist_entry(bb, d);
        if (ZEM_UNLIKELY(kb > kDistTagMax)) return false;
        drop(kb & 15);
        x = kb >> 4;
        d += uint32_t(low_bits(bb, x));
        drop(x);
        return true;
    }

    ZEM_INLINE Exit fast() {
        FastState f{in, out, bb, bc};
        const int r = in_end - in >= (ptrdiff_t)kOwnTablesMinInput && out_end - out >= (ptrdiff_t)kOwnTablesMinRoom
                          ? fast_own(tab, f, in_end, out_end, hist, win, win_size, win_idx)
                          : fast_loop(tab, f, in_end, out_end, hist, win, win_size, win_idx);
        in = f.in;
        out = f.out;
        bb = f.bb;
        bc = f.bc;
        return r == kFastEnd ? Exit::End : r == kFastBad ? Exit::Bad : Exit::GoOn;
    }

    // One symbol per refill up to the last byte of room or the last kMainMinInput of input.
    ZEM_INLINE Exit one_symbol() {
        while (in_end - in >= (ptrdiff_t)kMainMinInput && out < out_end) {
            refill(in, bb, bc);
            const uint32_t e = tab.lit_entry(bb);
            if (ZEM_LIKELY(is_literal(e))) {
                if (ZEM_UNLIKELY((e & 15) == 0)) return Exit::Bad;
                drop(e & 15);
                *out++ = uint8_t(e >> 8);
                continue;
            }
            if (ZEM_UNLIKELY(!is_length(e))) {
                if ((e & 0xF0) != T::kEob) return Exit::Bad;
                drop(e & 15);
                return Exit::End;
            }
            uint32_t mlen, d;
            if (ZEM_UNLIKELY(!pair(e, mlen, d))) return Exit::Bad;
            if (ZEM_LIKELY(size_t(d) - 1 < size_t(out - hist) && size_t(out_end - out) >= wide_extent(mlen))) {
                copy_wide(out, d, mlen);
                out += mlen;
                continue;
            }
            // A match that reaches before the output buffer, or that the room cuts short.
            len = mlen;
            dist = d;
            const Exit x = copy();
            if (x != Exit::GoOn) return x;
        }
        return Exit::GoOn;
    }

    ZEM_INLINE Exit main_loop() {
        const uint8_t* const in_main = in;
        Exit why = Exit::GoOn;
        if (in_end - in >= (ptrdiff_t)kFastMinInput && out_end - out >= (ptrdiff_t)kFastMinRoom) why = fast();
        if (why == Exit::GoOn) why = one_symbol();
        // Hand whole bytes back, as many as the bits held allow but no more than this loop
        // took, so that what is held fits the caller's 32-bit word. A loop that refilled to
        // 57..64 bits before every symbol would hold 9 or more bits here (a symbol takes at
        // most kMaxPairBits) and end in exactly this state: the bytes it took beyond ours are
        // given back too. So how often the loops above refill is their own business.
        size_t k = bc >> 3, loaded = size_t(in - in_main);
        if (k > loaded) k = loaded;
        in -= k;
        bc -= uint32_t(8 * k);
        bb = low_bits(bb, bc);
        return why;
    }

    // ---- the careful loop ----

    // Takes single bytes, and only as many as the step in hand needs.
    ZEM_INLINE bool pull_to(uint32_t n) {
        while (bc < n && in < in_end) {
            bb |= uint64_t(*in++) << bc;
            bc += 8;
        }
        return bc >= n;
    }
    // Adds the pending entry's extra bits to v once they are all there.
    ZEM_INLINE bool take_extra(uint32_t& v) {
        const uint32_t x = ent & 15;
        if (!pull_to(x)) return false;
        v += uint32_t(low_bits(bb, x));
        drop(x);
        return true;
    }
    // Looks a code up with the bits held (at least a root index's while input lasts), taking one
    // more byte whenever the entry wants more bits than are held. An entry that the held bits
    // cannot trust counts as a code of the longest length: only bits really held condemn it.
    enum Found { kFound, kNoInput, kMalformed };
    template <class Entry, class Valid>
    ZEM_INLINE Found lookup(Entry entry_of, Valid valid, uint32_t& e, uint32_t& n) {
        pull_to(kMaxRootBits);
        for (;;) {
            e = entry_of();
            n = e & 15;
            if (!valid(e)) {
                if (bc >= kMaxCodeBits) return kMalformed;
                n = kMaxCodeBits;
            }
            if (n <= bc) return kFound;
            if (in == in_end) return kNoInput;
            pull_to(bc + 1);
        }
    }

    // The pending match, or as much of it as the room takes.
    ZEM_INLINE Exit copy() {
        const size_t have = size_t(out - hist), room = size_t(out_end - out);
        const size_t n = len < room ? len : room;
        if (size_t(dist) - 1 < have) {
            copy_match_exact(out, dist, n);
        } else {
            if (dist == 0 || win == nullptr || dist - have > win_size) return Exit::Bad;
            copy_from_window(out, dist - have, dist, n, win, win_size, win_idx);
        }
        out += n;
        len -= uint32_t(n);
        if (len) {
            step = kStepCopy;
            return Exit::Pending;
        }
        step = kStepCode;
        return Exit::GoOn;
    }

    // One step, from the pending one on to the end of a literal or a match.
    ZEM_INLINE Exit careful_step() {
        switch (step) {
            case kStepCode: {
                uint32_t e, n;
                const Found got = lookup([&] { return tab.lit_entry(bb); },
                                         [](uint32_t v) {
                                             return (v & 15) != 0 &&
                                                    (is_literal(v) || is_length(v) || (v & 0xF0) == T::kEob);
                                         },
                                         e, n);
                if (got != kFound) return got == kMalformed ? Exit::Bad : Exit::NoInput;
                if ((e & 0xF0) == T::kEob) {
                    drop(n);
                    return Exit::End;
                }
                // Nothing taken: the code is decoded again when room comes.
                if (out == out_end) return Exit::Pending;
                drop(n);
                if (is_literal(e)) {
                    *out++ = uint8_t(e >> 8);
                    return Exit::GoOn;
                }
                len = (e >> 8) + 3;
                ent = (e >> 4) & 7;
                step = kStepLenExtra;
            }
                [[fallthrough]];
            case kStepLenExtra:
                if (!take_extra(len)) return Exit::Pending;
                step = kStepDist;
                [[fallthrough]];
            case kStepDist: {
                uint32_t kb, n, base = 0;
                const Found got =
                    lookup([&] { return tab.dist_entry(bb, base); }, [](uint32_t v) { return v <= kDistTagMax; }, kb, n);
                if (got != kFound) return got == kMalformed ? Exit::Bad : Exit::Pending;
                drop(n);
                ent = kb >> 4;
                dist = base;
                step = kStepDistExtra;
            }
                [[fallthrough]];
            case kStepDistExtra:
                if (!take_extra(dist)) return Exit::Pending;
                step = kStepCopy;
                [[fallthrough]];
            default:
                return copy();
        }
    }
};

template <class T>
ZEM_INLINE zemStatus run(const T& tab, const uint8_t** pp_src, uint32_t* p_src_len, uint32_t* p_code, uint32_t* p_bits,
                         uint32_t win_idx, uint8_t** pp_dst, uint32_t* p_dst_len, uint32_t dst_idx, uint32_t* p_mode,
                         zemInflateState* st) {
    Decoder<T> d{tab,         *pp_src,       *pp_src + *p_src_len, *pp_dst,
                 *pp_dst + *p_dst_len,       *pp_dst - dst_idx,    st->window,
                 st->windowSize,             win_idx,              low_bits(*p_code, *p_bits),
                 *p_bits};
    Exit x = Exit::GoOn;
    if (*p_mode == 2) {
        d.step = st->resume[0];
        d.len = st->resume[1];
        d.ent = st->resume[2];
        d.dist = st->resume[3];
        if (d.step > kStepCopy) x = Exit::Bad;
    }
    while (x == Exit::GoOn) {
        if (d.step == kStepCode && d.in_end - d.in >= (ptrdiff_t)kMainMinInput && d.out < d.out_end) {
            x = d.main_loop();
            if (x != Exit::GoOn) break;
        }
        x = d.careful_step();
    }

    *pp_src = d.in;
    *p_src_len = uint32_t(d.in_end - d.in);
    *p_code = uint32_t(d.bb);
    *p_bits = d.bc;
    *pp_dst = d.out;
    *p_dst_len = uint32_t(d.out_end - d.out);
    if (x == Exit::Bad) return zemStatusBadData;
    *p_mode = x == Exit::End ? 0 : x == Exit::NoInput ? 1 : 2;
    if (x == Exit::Pending) {
        st->resume[0] = d.step;
        st->resume[1] = d.len;
        st->resume[2] = d.ent;
        st->resume[3] = d.dist;
    }
    return zemStatusOk;
}

}  // namespace

zemStatus decode(const uint8_t** pp_src, uint32_t* p_src_len, uint32_t* p_code, uint32_t* p_bits, uint32_t win_idx,
                 uint8_t** pp_dst, uint32_t* p_dst_len, uint32_t dst_idx, uint32_t* p_mode, zemInflateState* st) {
    if (st->tableKind == 2)
        return run(CompactTables(st), pp_src, p_src_len, p_code, p_bits, win_idx, pp_dst, p_dst_len, dst_idx, p_mode,
                   st);
    const GeneralTablesView g{st->tableKind == 0 ? &kFixedTables : general(st)};
    return run(g, pp_src, p_src_len, p_code, p_bits, win_idx, pp_dst, p_dst_len, dst_idx, p_mode, st);
}

}  // namespace zem::inflate

ZEM_API zemStatus zemsInflate_8u(const uint8_t** ppSrc, uint32_t* pSrcLen, uint32_t* pCode, uint32_t* pCodeLenBits,
                                 uint32_t winIdx, uint8_t** ppDst, uint32_t* pDstLen, uint32_t dstIdx,
                                 uint32_t* pMode, zemInflateState* state) {
    if (zem::any_null(ppSrc, pSrcLen, pCode, pCodeLenBits, ppDst, pDstLen, pMode, state)) return zemStatusNullPtr;
    if (*ppSrc == nullptr || *ppDst == nullptr) return zemStatusNullPtr;
    if (*pCodeLenBits > 32 || winIdx > state->windowSize) return zemStatusSize;
    if (state->tableKind > 2) return zemStatusBadData;
    return zem::inflate::decode(ppSrc, pSrcLen, pCode, pCodeLenBits, winIdx, ppDst, pDstLen, dstIdx, pMode, state);
}
