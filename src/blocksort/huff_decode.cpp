// The Huffman decoding stage of a block: the table context (table count, selectors, code
// lengths) and the symbols, resumable at any byte of input or output. Bits are read most
// significant first.
#include <string.h>

#include "blocksort/huff_state.h"
#include "core/bytes.h"
#include "core/check.h"

namespace zem::bz2 {
namespace {

// The bit buffer of one call: `acc` holds `nb` unread bits at its top. On return at most 31 of
// them cross to the caller's word; whole bytes beyond those go back to the input they came from.
struct Bits {
    uint64_t acc;
    uint32_t nb;
    const uint8_t* s;
    const uint8_t* se;
    const uint8_t* s0;

    Bits(uint32_t code, int32_t bits, const uint8_t* src, int32_t len)
        : acc(bits ? uint64_t(code) << (64 - bits) : 0), nb(uint32_t(bits)), s(src), se(src + len), s0(src) {}

    // Tops the buffer up to at least 56 bits when eight input bytes can be read at once.
    ZEM_INLINE bool refill_fast() {
        if (se - s < 8) return false;
        acc |= __builtin_bswap64(load64(s)) >> nb;
        s += (63 - nb) >> 3;
        nb |= 56;
        return true;
    }
    // At least k (<= 57) bits, byte by byte; false when the input ends first.
    ZEM_INLINE bool need(uint32_t k) {
        while (nb < k) {
            if (s == se) return false;
            acc |= uint64_t(*s++) << (56 - nb);
            nb += 8;
        }
        return true;
    }
    ZEM_INLINE uint32_t peek(uint32_t k) const { return uint32_t(acc >> (64 - k)); }
    ZEM_INLINE void skip(uint32_t k) {
        acc <<= k;
        nb -= k;
    }
    ZEM_INLINE uint32_t take(uint32_t k) {
        const uint32_t v = peek(k);
        skip(k);
        return v;
    }
    // Only as many bytes go back as the word cannot hold, so a call that stops for want of
    // input (fewer than 20 bits held) has taken all of it. Bits read before this call are at
    // most 31, so the bytes of this call always suffice.
    void give_back(uint32_t* p_code, int32_t* p_bits, const uint8_t** pp_src, int32_t* p_len) {
        uint32_t back = nb > 31 ? (nb - 31 + 7) / 8 : 0;
        if (back > uint32_t(s - s0)) back = uint32_t(s - s0);
        s -= back;
        nb -= 8 * back;
        *p_code = nb ? uint32_t(acc >> (64 - nb)) : 0;
        *p_bits = int32_t(nb);
        *p_len -= int32_t(s - s0);
        *pp_src = s;
    }
};

// Canonical codes from the lengths: codes of one length are consecutive in symbol order, and the
// shorter codes come first. Over-subscribed lengths are malformed; an incomplete code is taken,
// and a bit string that no code covers is refused when met.
bool build_table(const uint8_t* lens, int32_t alpha_size, HuffTable& t) {
    uint32_t count[kMaxCodeLen + 1] = {};
    for (int32_t s = 0; s < alpha_size; ++s) ++count[lens[s]];
    uint64_t kraft = 0;
    for (int l = 1; l <= kMaxCodeLen; ++l) kraft += uint64_t(count[l]) << (kMaxCodeLen - l);
    if (kraft > (uint64_t(1) << kMaxCodeLen)) return false;
    uint32_t code = 0, offset = 0;
    for (int l = 1; l <= kMaxCodeLen; ++l) {
        t.first[l] = code;
        t.count[l] = count[l];
        t.offset[l] = uint16_t(offset);
        offset += count[l];
        code = (code + count[l]) << 1;
    }
    uint16_t next[kMaxCodeLen + 1];
    for (int l = 1; l <= kMaxCodeLen; ++l) next[l] = t.offset[l];
    for (int32_t s = 0; s < alpha_size; ++s) t.perm[next[lens[s]]++] = uint16_t(s);
    memset(t.fast, 0, sizeof t.fast);
    for (int l = 1; l <= kFastBits; ++l)
        for (uint32_t k = 0; k < t.count[l]; ++k) {
            const uint32_t c = t.first[l] + k, sym = t.perm[t.offset[l] + k];
            const uint32_t lo = c << (kFastBits - l), hi = (c + 1) << (kFastBits - l);
            for (uint32_t e = lo; e < hi; ++e) t.fast[e] = uint16_t(sym << 5 | uint32_t(l));
        }
    return true;
}

zemStatus unpack(Bits& b, HuffState& st) {
    for (;;) {
        switch (st.step) {
            case UnpackStep::Groups: {
                if (!b.need(18)) return zemStatusSrcTooShort;
                st.groups = uint8_t(b.take(3));
                st.selectors = int32_t(b.take(15));
                if (st.groups < kMinTables || st.groups > kMaxTables || st.selectors < 1) return zemStatusError;
                st.i = st.j = 0;
                st.step = UnpackStep::Selectors;
                break;
            }
            case UnpackStep::Selectors:
                // Each selector is the unary move-to-front position of its table.
                while (st.i < st.selectors) {
                    if (!b.need(1)) return zemStatusSrcTooShort;
                    if (b.take(1)) {
                        if (++st.j >= st.groups) return zemStatusError;
                        continue;
                    }
                    if (st.i < kMaxSelectors) st.selector[st.i] = uint8_t(st.j);
                    ++st.i;
                    st.j = 0;
                }
                {
                    uint8_t order[kMaxTables] = {0, 1, 2, 3, 4, 5};
                    const int32_t kept = st.selectors < kMaxSelectors ? st.selectors : kMaxSelectors;
                    for (int32_t k = 0; k < kept; ++k) {
                        const uint8_t pos = st.selector[k], v = order[pos];
                        for (int m = pos; m > 0; --m) order[m] = order[m - 1];
                        order[0] = v;
                        st.selector[k] = v;
                    }
                }
                st.i = 0;
                st.step = UnpackStep::TableStart;
                break;
            case UnpackStep::TableStart:
                if (st.i == st.groups) {
                    st.step = UnpackStep::Done;
                    break;
                }
                if (!b.need(5)) return zemStatusSrcTooShort;
                st.len = int32_t(b.take(5));
                st.j = 0;
                st.step = UnpackStep::Length;
                break;
            case UnpackStep::Length:
                // Lengths are delta coded: 0 ends a symbol's length, 10 adds one, 11 takes one.
                while (st.j < st.alpha_size) {
                    if (st.len < 1 || st.len > kMaxCodeLen) return zemStatusBadData;
                    if (!b.need(1)) return zemStatusSrcTooShort;
                    if (b.take(1) == 0) {
                        st.lens[st.i][st.j++] = uint8_t(st.len);
                        continue;
                    }
                    st.step = UnpackStep::LengthStep;
                    break;
                }
                if (st.step == UnpackStep::Length) {
                    ++st.i;
                    st.step = UnpackStep::TableStart;
                }
                break;
            case UnpackStep::LengthStep:
                if (!b.need(1)) return zemStatusSrcTooShort;
                st.len += b.take(1) ? -1 : 1;
                st.step = UnpackStep::Length;
                break;
            case UnpackStep::Done:
                for (int t = 0; t < st.groups; ++t)
                    if (!build_table(st.lens[t], st.alpha_size, st.table[t])) return zemStatusBadData;
                st.next_selector = 0;
                st.group_left = 0;
                st.ended = 0;
                return zemStatusOk;
        }
    }
}

inline constexpr int32_t kNeedInput = -1;
inline constexpr int32_t kBadCode = -2;

// The symbol at the top of the buffer and its length, or kNeedInput when the held bits do not
// decide it, or kBadCode for bits that no code covers.
ZEM_INLINE int32_t symbol(const HuffTable& t, const Bits& b, uint32_t& len) {
    const uint32_t e = t.fast[b.peek(kFastBits)];
    if (ZEM_LIKELY(e != 0)) {
        len = e & 31;
        return len <= b.nb ? int32_t(e >> 5) : kNeedInput;
    }
    for (uint32_t l = kFastBits + 1; l <= uint32_t(kMaxCodeLen); ++l) {
        const uint32_t d = b.peek(l) - t.first[l];
        if (d < t.count[l]) {
            len = l;
            return l <= b.nb ? int32_t(t.perm[t.offset[l] + d]) : kNeedInput;
        }
    }
    return b.nb >= uint32_t(kMaxCodeLen) ? kBadCode : kNeedInput;
}

zemStatus decode(Bits& b, uint16_t* dst, int32_t* p_dst_len, HuffState& st) {
    uint16_t* d = dst;
    uint16_t* const de = dst + *p_dst_len;
    const int32_t eob = st.alpha_size - 1;
    zemStatus status = zemStatusOk;
    if (st.ended) {
        *p_dst_len = 0;
        return zemStatusOk;
    }
    const int32_t kept = st.selectors < kMaxSelectors ? st.selectors : kMaxSelectors;
    for (;;) {
        if (st.group_left == 0) {
            if (st.next_selector >= kept) {
                status = zemStatusError;
                break;
            }
            st.group_left = kGroupSize;
            ++st.next_selector;
        }
        const HuffTable& t = st.table[st.selector[st.next_selector - 1]];
        // The group's symbols while input and output last: two symbols per refill.
        int32_t left = st.group_left;
        while (left >= 2 && de - d >= 2 && b.refill_fast()) {
            uint32_t l1, l2;
            const int32_t s1 = symbol(t, b, l1);
            if (s1 < 0 || s1 == eob) break;
            b.skip(l1);
            const int32_t s2 = symbol(t, b, l2);
            *d++ = uint16_t(s1);
            --left;
            if (s2 < 0 || s2 == eob) break;
            b.skip(l2);
            *d++ = uint16_t(s2);
            --left;
        }
        st.group_left = left;
        if (left == 0) continue;
        // One symbol at a time near the ends of input and output, and for the end of the block.
        b.need(kMaxCodeLen);
        uint32_t l;
        const int32_t sym = symbol(t, b, l);
        if (sym == kNeedInput) {
            status = zemStatusSrcTooShort;
            break;
        }
        if (sym == kBadCode) {
            status = zemStatusError;
            break;
        }
        if (sym == eob) {
            b.skip(l);
            st.ended = 1;
            break;
        }
        if (d == de) {
            status = zemStatusDstTooSmall;
            break;
        }
        b.skip(l);
        *d++ = uint16_t(sym);
        --st.group_left;
    }
    *p_dst_len = int32_t(d - dst);
    return status;
}

inline constexpr int32_t kStateSize = int32_t((sizeof(HuffState) + 63) / 64 * 64);

}  // namespace
}  // namespace zem::bz2

namespace bz2 = zem::bz2;

ZEM_API zemStatus zemsDecodeHuffGetSize_BZ2_8u16u(int32_t wndSize, int32_t* pSize) {
    if (zem::any_null(pSize)) return zemStatusNullPtr;
    if (wndSize < 1 || wndSize > bz2::kLargestBlock) return zemStatusSize;
    *pSize = bz2::kStateSize;
    return zemStatusOk;
}

ZEM_API zemStatus zemsDecodeHuffInit_BZ2_8u16u(int32_t sizeDictionary, zemDecodeHuffState_BZ2* pState) {
    if (zem::any_null(pState)) return zemStatusNullPtr;
    if (sizeDictionary < 1 || sizeDictionary > 256) return zemStatusSize;
    bz2::HuffState& st = *bz2::state(pState);
    st.alpha_size = sizeDictionary + 2;
    st.step = bz2::UnpackStep::Groups;
    st.groups = 0;
    st.ended = 0;
    st.selectors = 0;
    st.next_selector = 0;
    st.group_left = 0;
    return zemStatusOk;
}

ZEM_API zemStatus zemsUnpackHuffContext_BZ2_8u16u(uint32_t* pCode, int32_t* pCodeLenBits, const uint8_t** ppSrc,
                                                  int32_t* pSrcLen, zemDecodeHuffState_BZ2* pState) {
    if (zem::any_null(pCode, pCodeLenBits, ppSrc, pSrcLen, pState)) return zemStatusNullPtr;
    if (zem::any_null(*ppSrc)) return zemStatusNullPtr;
    if (*pSrcLen < 0 || *pCodeLenBits < 0 || *pCodeLenBits > 31) return zemStatusSize;
    bz2::Bits b(*pCode, *pCodeLenBits, *ppSrc, *pSrcLen);
    const zemStatus st = bz2::unpack(b, *bz2::state(pState));
    b.give_back(pCode, pCodeLenBits, ppSrc, pSrcLen);
    return st;
}

ZEM_API zemStatus zemsDecodeHuff_BZ2_8u16u(uint32_t* pCode, int32_t* pCodeLenBits, const uint8_t** ppSrc,
                                           int32_t* pSrcLen, uint16_t* pDst, int32_t* pDstLen,
                                           zemDecodeHuffState_BZ2* pState) {
    if (zem::any_null(pCode, pCodeLenBits, ppSrc, pSrcLen, pDst, pDstLen, pState)) return zemStatusNullPtr;
    if (zem::any_null(*ppSrc)) return zemStatusNullPtr;
    if (*pSrcLen < 0 || *pCodeLenBits < 0 || *pCodeLenBits > 31 || *pDstLen < 0) return zemStatusSize;
    bz2::HuffState& st = *bz2::state(pState);
    if (st.step != bz2::UnpackStep::Done) return zemStatusError;
    bz2::Bits b(*pCode, *pCodeLenBits, *ppSrc, *pSrcLen);
    const zemStatus r = bz2::decode(b, pDst, pDstLen, st);
    b.give_back(pCode, pCodeLenBits, ppSrc, pSrcLen);
    return r;
}
