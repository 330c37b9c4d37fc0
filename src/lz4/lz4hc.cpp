// The LZ4 high-compression encoder: the parse, which lets a longer match overlapping the current
// one take over part of it, and the entries. The match finder is lz4hc_search.h.
#include <stdint.h>

#include "core/check.h"
#include "core/mem.h"
#include "lz4/lz4_block.h"
#include "lz4/lz4hc_search.h"
#include "zemdc.h"

namespace zem::lz4hc {

namespace {

// When the third match lies beyond the first and the second starts closer than this to the
// first, the first keeps up to kNibbleLen bytes and the second gives way; farther, the first
// simply ends where the second begins.
constexpr uint32_t kShareWithin = 15;

struct Writer {
    const uint8_t* base;    // position 0, as in Encoder
    const uint8_t* in_end;  // end of the input
    uint8_t* op;
    uint8_t* oend;
    uint32_t anchor;  // first position not yet written

    // Writes the literals from the anchor and then the match. A sequence that does not fit
    // whole is not written at all: the block then ends after the previous one.
    ZEM_INLINE bool put(const Match& m) {
        const uint8_t* lit_src = base + anchor;
        const uint32_t lit = m.pos - anchor;
        const uint64_t need = 3ull + lit + lz4::ext_bytes(lit) + lz4::ext_bytes((uint32_t)m.len - kMinMatch);
        const uint64_t room = (uint64_t)(oend - op);
        if (need > room) return false;
        // Whole-block literal copies when both sides have the slack they overwrite or read.
        const bool wild = room >= need + 32 && (uint64_t)(in_end - lit_src) >= lit + 32ull;
        op = lz4::write_sequence(op, lit_src, lit, m.dist, (size_t)m.len, wild);
        anchor = m.end();
        return true;
    }
};

// The parse: find a match, then look for wider ones overlapping it, keeping at most three
// candidates (a, b, c in input order) and writing each as soon as it is settled. Returns false
// when the output filled.
template <bool kExtDict>
bool parse(Encoder& e, Writer& w, uint32_t end) {
    const uint32_t wide_end = end - kWideEnd;
    // The last position with 32 bytes before E - 5.
    const int64_t search_last = (int64_t)end - kLastLiterals - kSearchRoom;
    uint32_t p = w.anchor;
    Pending next{};
    // A wider search also makes the plain search that follows it when it fails, where there
    // will be one.
    auto wide = [&](uint32_t s, uint32_t start_low, int32_t best) {
        if (!kExtDict && (int64_t)s + 2 <= search_last) return search_wide_and_next(e, s, start_low, best, next);
        next.ready = false;
        return search<kExtDict>(e, s, start_low, best);
    };
    // The output is full: a plain search made ahead will not be taken.
    auto stop_full = [&] {
        if (next.ready) unlink_two(e, next.m.pos - 2);
        return false;
    };
    // Settling is a small state machine: second() looks for a wider match overlapping `a`,
    // third() for one overlapping `b`; each step either writes what it settled or hands over.
    // A full output ends the parse, dropping a plain search made ahead where one may have been.
    // Both steps are forced inline: g++ outlines second(), and the parse then runs 2% more
    // instructions (callgrind, levels 1/4/9 on text and binary).
    enum class Step { kSecond, kThird, kSettled, kFull, kFullAhead };
    Match a, b, c;
    Match first;  // `a` as first found; a replacement that a later match would cut into gives way to it
    auto second = [&]() __attribute__((always_inline)) -> Step {
        for (;;) {
            if (a.end() >= wide_end) return w.put(a) ? Step::kSettled : Step::kFull;
            b = wide(a.end() - 2, a.pos, a.len);
            if (b.len <= a.len) return w.put(a) ? Step::kSettled : Step::kFullAhead;
            if (first.pos < a.pos && b.pos < first.end()) a = first;
            if (b.pos - a.pos >= kReplaceDistance) return Step::kThird;
            a = b;
        }
    };
    auto third = [&]() __attribute__((always_inline)) -> Step {
        for (;;) {
            // Let the first match keep up to 18 bytes (one token nibble), taking them from the
            // front of the second, which keeps at least four.
            if (b.pos - a.pos < (uint32_t)kNibbleLen) {
                int32_t keep = a.len < kNibbleLen ? a.len : kNibbleLen;
                int32_t most = int32_t(b.pos - a.pos) + b.len - kMinMatch;
                if (keep > most) keep = most;
                int32_t cut = keep - int32_t(b.pos - a.pos);
                if (cut > 0) {
                    b.pos += (uint32_t)cut;
                    b.len -= cut;
                }
            }
            if (b.end() >= wide_end)
                c.len = b.len;
            else
                c = wide(b.end() - 2, b.pos, b.len);
            if (c.len <= b.len) {
                if (b.pos < a.end()) a.len = int32_t(b.pos - a.pos);
                return w.put(a) && w.put(b) ? Step::kSettled : Step::kFullAhead;
            }
            if (c.pos < a.end() + kReplaceDistance) {
                if (c.pos >= a.end()) {
                    // The third starts after the first: the first is final, the second gives way
                    // to the third where they overlap.
                    if (b.pos < a.end()) {
                        int32_t cut = int32_t(a.end() - b.pos);
                        b.pos += (uint32_t)cut;
                        b.len -= cut;
                        if (b.len < kMinMatch) b = c;
                    }
                    if (!w.put(a)) return Step::kFull;
                    a = c;
                    first = b;
                    return Step::kSecond;
                }
                // The third reaches into the first: it takes the second's place.
                b = c;
                continue;
            }
            // The third lies beyond the first: write the first, shortened where the second begins,
            // and move on by one candidate.
            if (b.pos < a.end()) {
                if (b.pos - a.pos < kShareWithin) {
                    if (a.len > kNibbleLen) a.len = kNibbleLen;
                    int32_t most = int32_t(b.pos - a.pos) + b.len - kMinMatch;
                    if (a.len > most) a.len = most;
                    int32_t cut = int32_t(a.end() - b.pos);
                    if (cut > 0) {
                        b.pos += (uint32_t)cut;
                        b.len -= cut;
                    }
                } else {
                    a.len = int32_t(b.pos - a.pos);
                }
            }
            if (!w.put(a)) return Step::kFull;
            a = b;
            b = c;
        }
    };
    while ((int64_t)p <= search_last) {
        // The next search is at p + 1 if this one fails, else near the match's end.
        warm_chain(e, p + 1);
        if (!kExtDict && next.ready && next.m.pos == p)
            a = next.m;
        else
            a = search<kExtDict>(e, p, p, kMinMatch - 1);
        next.ready = false;
        if (a.len < kMinMatch) {
            ++p;
            continue;
        }
        first = a;
        warm_chain(e, a.end() - 2);
        warm_chain(e, a.end());
        Step step;
        do {
            step = second();
            if (step == Step::kThird) step = third();
        } while (step == Step::kSecond);
        if (step == Step::kFull) return false;
        if (step == Step::kFullAhead) return stop_full();
        p = w.anchor;
    }
    return true;
}

template <bool kExtDict>
zemStatus run(Encoder& e, const uint8_t* src, int32_t* pSrcLen, uint8_t* dst, int32_t* pDstLen) {
    const int32_t src_len = *pSrcLen;
    const int32_t cap = *pDstLen > 0 ? *pDstLen : 0;
    const uint32_t end = e.src_pos + (uint32_t)src_len;
    Writer w{e.base, src + src_len, dst, dst + cap, e.src_pos};
    bool fits = true;
    if (src_len >= kMinInput) {
        e.limit = e.base + (end - kLastLiterals);
        fits = parse<kExtDict>(e, w, end);
    }
    if (fits) {
        // The final literals, written only when they fit whole.
        const uint32_t count = end - w.anchor;
        const uint64_t need = 1 + lz4::ext_bytes(count) + (uint64_t)count;
        if (need > (uint64_t)(w.oend - w.op)) {
            fits = false;
        } else {
            w.op = lz4::write_last_literals(w.op, w.base + w.anchor, count);
            w.anchor = end;
        }
    }
    *pSrcLen = int32_t(w.anchor - e.src_pos);
    *pDstLen = int32_t(w.op - dst);
    return fits ? zemStatusOk : zemStatusDstTooSmall;
}

ZEM_INLINE int32_t normalise_level(int32_t level) {
    if (level == 0 || level > 9) return 9;
    if (level < 0) return 1;
    return level;
}

// The worker behind both entries. `dict` is null when the history lies in memory before src.
zemStatus encode(const uint8_t* src, int32_t src_idx, int32_t* pSrcLen, uint8_t* dst, int32_t* pDstLen,
                 uint8_t* const* tables, const uint8_t* dict, int32_t dict_len, int32_t level, int64_t low) {
    Encoder e;
    e.base = src - src_idx;
    e.dict_base = nullptr;
    e.limit = nullptr;
    e.head = (uint32_t*)(void*)tables[0];
    e.chain = (uint32_t*)(void*)tables[1];
    e.src_pos = (uint32_t)src_idx;
    e.next = (uint32_t)src_idx;
    e.attempts = 1 << (level - 1);
    if (dict) {
        // The dictionary's bytes end where the input begins; nothing before its first byte
        // exists, whatever limit the caller asked for.
        const int64_t dict_first = (int64_t)src_idx - dict_len;
        if (low < dict_first) low = dict_first;
        e.dict_base = dict + dict_len - src_idx;
    }
    if (low < 0) low = 0;
    if (low > (int64_t)UINT32_MAX) low = UINT32_MAX;
    e.low = (uint32_t)low;
    if (dict) return run<true>(e, src, pSrcLen, dst, pDstLen);
    return run<false>(e, src, pSrcLen, dst, pDstLen);
}

ZEM_INLINE bool dict_in_place(const uint8_t* src, int32_t src_idx, const uint8_t* dict, int32_t dict_len) {
    return dict_len == src_idx && (uintptr_t)dict + (uintptr_t)(intptr_t)dict_len == (uintptr_t)src;
}

}  // namespace

}  // namespace zem::lz4hc

using namespace zem::lz4hc;

ZEM_API zemStatus zemsEncodeLZ4HCHashTableGetSize_8u(int32_t* pHashSize, int32_t* pChainSize) {
    if (zem::any_null(pHashSize, pChainSize)) return zemStatusNullPtr;
    *pHashSize = kHashBytes;
    *pChainSize = kChainBytes;
    return zemStatusOk;
}

ZEM_API zemStatus zemsEncodeLZ4HCHashTableInit_8u(uint8_t* const* ppTables) {
    if (ppTables == nullptr || ppTables[0] == nullptr) return zemStatusNullPtr;
    // The hash table is cleared before the chain table's pointer is looked at.
    zem::mem::fill_vector(0, ppTables[0], (size_t)kHashBytes);
    if (ppTables[1] == nullptr) return zemStatusNullPtr;
    zem::MemZero(ppTables[1], kChainBytes);
    return zemStatusOk;
}

namespace {

ZEM_INLINE bool tables_null(uint8_t* const* ppTables) {
    return ppTables == nullptr || ppTables[0] == nullptr || ppTables[1] == nullptr;
}

}  // namespace

ZEM_API zemStatus zemsEncodeLZ4HC_8u(const uint8_t* src, int32_t srcIdx, int32_t* pSrcLen, uint8_t* dst,
                                     int32_t* pDstLen, uint8_t* const* ppTables, const uint8_t* pDict,
                                     int32_t dictLen, int32_t level) {
    level = normalise_level(level);
    const bool separate = pDict != nullptr && dictLen != 0;
    if (separate && dictLen < 1) return zemStatusSize;
    if (zem::any_null(src, pSrcLen, dst, pDstLen) || tables_null(ppTables)) return zemStatusNullPtr;
    if (zem::bad_len(*pSrcLen)) return zemStatusSize;
    if (srcIdx < 0) return zemStatusBadArg;
    const int64_t low = (int64_t)srcIdx - dictLen;
    if (!separate || dict_in_place(src, srcIdx, pDict, dictLen))
        return encode(src, srcIdx, pSrcLen, dst, pDstLen, ppTables, nullptr, 0, level, low);
    return encode(src, srcIdx, pSrcLen, dst, pDstLen, ppTables, pDict, dictLen, level, low);
}

ZEM_API zemStatus zemsEncodeLZ4HCDictLimit_8u(const uint8_t* src, int32_t srcIdx, int32_t* pSrcLen, uint8_t* dst,
                                              int32_t* pDstLen, uint8_t* const* ppTables, const uint8_t* pDict,
                                              int32_t dictLen, int32_t level, int32_t dictLimit) {
    level = normalise_level(level);
    if (zem::any_null(src, pSrcLen, dst, pDstLen) || tables_null(ppTables)) return zemStatusNullPtr;
    if (zem::bad_len(*pSrcLen)) return zemStatusSize;
    if (srcIdx < 0) return zemStatusBadArg;
    const int64_t low = dictLimit != 0 ? (int64_t)dictLimit : (int64_t)srcIdx - dictLen;
    const bool separate = pDict != nullptr && dictLen != 0 && !dict_in_place(src, srcIdx, pDict, dictLen);
    return encode(src, srcIdx, pSrcLen, dst, pDstLen, ppTables, separate ? pDict : nullptr, dictLen, level, low);
}
