// The block Huffman stage, encoding side: entries, canonical codes, the table header and the
// symbol coder. Bits go out most significant first; between calls the unwritten bits cross in
// the caller's code word, right-aligned, so that the caller's own fields (block header, bitmap)
// and ours interleave in one bit stream.
#include <string.h>

#include "blocksort/huff_encode.h"
#include "core/bytes.h"
#include "core/check.h"

namespace zem::bz2 {
namespace {

constexpr int32_t kMaxPendingBits = 31;

// Canonical codes: shorter codes first, equal lengths in symbol order, as a decoder rebuilds them
// from the lengths alone.
void assign_codes(HuffEncodeState& s) {
    for (int32_t t = 0; t < s.tables; ++t) {
        uint32_t next = 0;
        for (int32_t l = 1; l <= kMaxCodeLen; ++l) {
            for (int32_t v = 0; v < s.alphabet; ++v)
                if (s.len[t][v] == l) store32(s.code[t] + 4 * v, next++);
            next <<= 1;
        }
    }
}

// A most-significant-first bit writer over a 64-bit word that holds fewer than 32 bits between
// puts, so a put of up to 32 bits never overflows it.
struct BitWriter {
    uint64_t acc;
    int32_t bits;
    uint8_t* p;

    ZEM_INLINE void put(uint32_t v, int32_t n) {
        acc = (acc << n) | v;
        bits += n;
        if (bits >= 32) {
            bits -= 32;
            store32_be(p, uint32_t(acc >> bits));
            p += 4;
        }
    }
    ZEM_INLINE void drain(const uint8_t* end) {
        while (bits >= 8 && p < end) {
            bits -= 8;
            *p++ = uint8_t(acc >> bits);
        }
    }
    [[nodiscard]] uint32_t pending() const { return bits ? uint32_t(acc & ((uint64_t(1) << bits) - 1)) : 0; }
};

zemStatus pack(uint32_t* pCode, int32_t* pBits, uint8_t* dst, int32_t* pDstLen, const HuffEncodeState& s) {
    uint8_t mtf_sel[kMaxSelectors];
    int64_t bits = *pBits + header_bits(s, mtf_sel);
    if (bits / 8 > *pDstLen) return zemStatusDstTooSmall;
    BitWriter w{*pCode, *pBits, dst};
    w.put(uint32_t(s.tables), kFieldTables);
    w.put(uint32_t(s.selectors), kFieldSelectors);
    for (int32_t g = 0; g < s.selectors; ++g) {
        // j ones and a zero; j is at most 5.
        uint32_t j = mtf_sel[g];
        w.put(((1u << j) - 1) << 1, int32_t(j) + 1);
    }
    for (int32_t t = 0; t < s.tables; ++t) {
        int32_t cur = s.len[t][0];
        w.put(uint32_t(cur), kFieldFirstLen);
        for (int32_t v = 0; v < s.alphabet; ++v) {
            for (; cur < s.len[t][v]; ++cur) w.put(2, 2);
            for (; cur > s.len[t][v]; --cur) w.put(3, 2);
            w.put(0, 1);
        }
    }
    w.drain(dst + *pDstLen);
    *pCode = w.pending();
    *pBits = w.bits;
    *pDstLen = int32_t(w.p - dst);
    return zemStatusOk;
}

// Room below which the symbol loop leaves its 4-byte stores for byte stores.
constexpr int64_t kFastRoom = 4;

zemStatus encode(uint32_t* pCode, int32_t* pBits, const uint16_t** ppSrc, int32_t* pSrcLen, uint8_t* dst,
                 int32_t* pDstLen, HuffEncodeState& s) {
    const uint16_t* src = *ppSrc;
    const uint8_t* end = dst + *pDstLen;
    BitWriter w{*pCode, *pBits, dst};
    int32_t i = s.done;
    const int32_t stop = i + *pSrcLen + (i + *pSrcLen == s.symbols ? 1 : 0);
    const uint16_t eob = uint16_t(s.alphabet - 1);
    zemStatus status = zemStatusOk;
    while (i < stop) {
        const int32_t t = s.selector[i / kGroupSize];
        const uint8_t* len = s.len[t];
        const uint8_t* code = s.code[t];
        int32_t group_end = (i / kGroupSize + 1) * kGroupSize;
        if (group_end > stop) group_end = stop;
        for (; i < group_end; ++i) {
            uint16_t v = i < s.symbols ? src[i - s.done] : eob;
            if (ZEM_LIKELY(end - w.p >= kFastRoom)) {
                w.put(load32(code + 4 * v), len[v]);
                continue;
            }
            w.drain(end);
            if (w.bits + len[v] > kMaxPendingBits) {
                status = zemStatusDstTooSmall;
                break;
            }
            w.acc = (w.acc << len[v]) | load32(code + 4 * v);
            w.bits += len[v];
        }
        if (status != zemStatusOk) break;
    }
    w.drain(end);
    int32_t consumed = (i < s.symbols ? i : s.symbols) - s.done;
    *ppSrc = src + consumed;
    *pSrcLen -= consumed;
    s.done = i;
    *pCode = w.pending();
    *pBits = w.bits;
    *pDstLen = int32_t(w.p - dst);
    return status;
}

}  // namespace
}  // namespace zem::bz2

using namespace zem::bz2;

ZEM_API zemStatus zemsEncodeHuffGetSize_BZ2_16u8u(int32_t wndSize, int32_t* pSize) {
    if (zem::any_null(pSize)) return zemStatusNullPtr;
    if (wndSize < 1 || wndSize > 900000) return zemStatusSize;
    *pSize = kHuffStateSize;
    return zemStatusOk;
}

ZEM_API zemStatus zemsEncodeHuffInit_BZ2_16u8u(int32_t sizeDictionary, const uint32_t* pFreqTable, const uint16_t* pSrc,
                                               int32_t srcLen, zemEncodeHuffState_BZ2* pState) {
    if (zem::any_null(pFreqTable, pSrc, pState)) return zemStatusNullPtr;
    if (srcLen < 1 || srcLen > kMaxBlockSymbols) return zemStatusSize;
    if (sizeDictionary < 1 || sizeDictionary > 256) return zemStatusSize;
    HuffEncodeState& s = *state_of(pState);
    s.alphabet = sizeDictionary + 2;
    s.symbols = srcLen;
    s.done = 0;
    s.selectors = (srcLen + 1 + kGroupSize - 1) / kGroupSize;
    s.tables = tables_for(srcLen + 1);
    if (!design_tables(s, pFreqTable, pSrc)) {
        s.done = s.symbols + 1;  // nothing left to encode from a rejected block
        return zemStatusError;
    }
    assign_codes(s);
    return zemStatusOk;
}

ZEM_API zemStatus zemsPackHuffContext_BZ2_16u8u(uint32_t* pCode, int32_t* pCodeLenBits, uint8_t* pDst,
                                                int32_t* pDstLen, zemEncodeHuffState_BZ2* pState) {
    if (zem::any_null(pCode, pCodeLenBits, pDst, pDstLen, pState)) return zemStatusNullPtr;
    if (*pDstLen < 1) return zemStatusSize;
    if (*pCodeLenBits < 0 || *pCodeLenBits > 31) return zemStatusBadArg;
    return pack(pCode, pCodeLenBits, pDst, pDstLen, *state_of(pState));
}

ZEM_API zemStatus zemsEncodeHuff_BZ2_16u8u(uint32_t* pCode, int32_t* pCodeLenBits, const uint16_t** ppSrc,
                                           int32_t* pSrcLen, uint8_t* pDst, int32_t* pDstLen,
                                           zemEncodeHuffState_BZ2* pState) {
    if (zem::any_null(pCode, pCodeLenBits, ppSrc, pSrcLen, pDst, pDstLen, pState)) return zemStatusNullPtr;
    if (zem::any_null(*ppSrc)) return zemStatusNullPtr;
    HuffEncodeState& s = *state_of(pState);
    if (*pSrcLen < 0 || *pSrcLen > s.symbols - (s.done < s.symbols ? s.done : s.symbols)) return zemStatusSize;
    if (*pDstLen < 1) return zemStatusSize;
    if (*pCodeLenBits < 0 || *pCodeLenBits > 31) return zemStatusBadArg;
    if (s.done > s.symbols) return zemStatusOk;  // the block is complete
    return encode(pCode, pCodeLenBits, ppSrc, pSrcLen, pDst, pDstLen, s);
}
