// The zfp stream record: binding to a buffer, the coding parameters, the final flush and the size
// queries. The decoder shares every one of these operations; its names are second names of the
// same functions, so both directions always behave alike.
#include <bit>

#include "zfp/zfp_internal.h"

namespace zem::zfp {

namespace {

// The bytes of one largest block rounded up to whole words, in the record's own 32-bit
// arithmetic (a maxBits near the top of the range wraps, as it always has).
ZEM_INLINE uintptr_t safe_end(uintptr_t end, int32_t maxBits) {
    int32_t bytes = (int32_t)((uint32_t)maxBits + 7u) >> 3;
    int32_t words = (int32_t)(((uint32_t)bytes + 7u) & ~7u);
    return end - (uintptr_t)(intptr_t)words;
}

void init(uint8_t* buf, int64_t len, void* state) {
    Head h;
    h.pStart = h.pCur = (uintptr_t)buf;
    h.pEnd = (uintptr_t)buf + (uintptr_t)len;
    h.bitBuffer = 0;
    h.idTag = kTag;
    h.minBits = 0;
    h.maxBits = kDefaultMaxBits;
    h.maxPrec = kDefaultMaxPrec;
    h.minExp = kNoMinExp;
    h.bitCount = 0;
    h.pSafeEnd = safe_end(h.pEnd, kDefaultMaxBits);
    store_head(state, h);
}

zemStatus flush(void* state) {
    Head h = load_head(state);
    if (h.bitCount < 1) return zemStatusOk;
    if (room(h.pCur, h.pEnd) >= 8) {
        // A whole word even for a few bits: away from the end a stream is always whole words.
        store64((void*)h.pCur, h.bitBuffer);
        h.pCur += 8;
    } else {
        for (;;) {
            if (room(h.pCur, h.pEnd) <= 0) {
                store_head(state, h);
                return zemStatusStreamEnd;
            }
            *(uint8_t*)h.pCur = (uint8_t)h.bitBuffer;
            h.pCur += 1;
            h.bitBuffer >>= 8;
            bool last = h.bitCount <= 8;
            h.bitCount -= 8;
            if (last) break;
        }
    }
    h.bitCount = 0;
    h.bitBuffer = 0;
    store_head(state, h);
    return zemStatusOk;
}

}  // namespace

}  // namespace zem::zfp

using namespace zem::zfp;

ZEM_API zemStatus zemsEncodeZfpGetStateSize_32f(int32_t* pStateSize) {
    if (pStateSize == nullptr) return zemStatusNullPtr;
    *pStateSize = kStateSize;
    return zemStatusOk;
}

ZEM_API zemStatus zemsEncodeZfpInit_32f(uint8_t* pBuf, int32_t bufLen, zemZfpState* pState) {
    if (zem::any_null(pState, pBuf)) return zemStatusNullPtr;
    if (zem::bad_len(bufLen)) return zemStatusSize;
    init(pBuf, (int64_t)(uint32_t)bufLen, pState);
    return zemStatusOk;
}

ZEM_API zemStatus zemsEncodeZfpInitLong_32f(uint8_t* pBuf, int64_t bufLen, zemZfpState* pState) {
    if (zem::any_null(pState, pBuf)) return zemStatusNullPtr;
    if (bufLen == 0) return zemStatusSize;
    init(pBuf, bufLen, pState);
    return zemStatusOk;
}

ZEM_API zemStatus zemsEncodeZfpSet_32f(int32_t minBits, int32_t maxBits, int32_t maxPrec, int32_t minExp,
                                       zemZfpState* pState) {
    if (pState == nullptr) return zemStatusNullPtr;
    if (!tag_ok(pState)) return zemStatusContextMismatch;
    Head h = load_head(pState);
    h.minBits = minBits;
    h.maxBits = maxBits;
    h.maxPrec = maxPrec;
    h.minExp = minExp;
    h.pSafeEnd = safe_end(h.pEnd, maxBits);
    store_head(pState, h);
    return zemStatusOk;
}

ZEM_API zemStatus zemsEncodeZfpSetAccuracy_32f(double tolerance, zemZfpState* pState) {
    if (pState == nullptr) return zemStatusNullPtr;
    if (!tag_ok(pState)) return zemStatusContextMismatch;
    Head h = load_head(pState);
    if (tolerance > 0)
        h.minExp = (int32_t)((std::bit_cast<uint64_t>(tolerance) >> 52) & 0x7ff) - 1023;
    else
        h.minExp = kNoMinExp;
    store_head(pState, h);
    return zemStatusOk;
}

ZEM_API zemStatus zemsEncodeZfpFlush_32f(zemZfpState* pState) {
    if (pState == nullptr) return zemStatusNullPtr;
    if (!tag_ok(pState)) return zemStatusContextMismatch;
    return flush(pState);
}

ZEM_API zemStatus zemsEncodeZfpGetCompressedBitSize_32f(const zemZfpState* pState, uint64_t* pBitSize) {
    if (zem::any_null(pState, pBitSize)) return zemStatusNullPtr;
    if (!tag_ok(pState)) return zemStatusContextMismatch;
    Head h = load_head(pState);
    *pBitSize = (uint64_t)(h.pCur - h.pStart) * 8 + (uint64_t)(int64_t)h.bitCount;
    return zemStatusOk;
}

ZEM_API zemStatus zemsEncodeZfpGetCompressedSizeLong_32f(const zemZfpState* pState, uint64_t* pSize) {
    if (zem::any_null(pState, pSize)) return zemStatusNullPtr;
    if (!tag_ok(pState)) return zemStatusContextMismatch;
    Head h = load_head(pState);
    *pSize = (uint64_t)(h.pCur - h.pStart);
    return zemStatusOk;
}

ZEM_API zemStatus zemsEncodeZfpGetCompressedSize_32f(const zemZfpState* pState, int32_t* pSize) {
    if (zem::any_null(pState, pSize)) return zemStatusNullPtr;
    if (!tag_ok(pState)) return zemStatusContextMismatch;
    Head h = load_head(pState);
    *pSize = (int32_t)(uint32_t)(h.pCur - h.pStart);
    return zemStatusOk;
}

// The decode side: the same functions under their second names.
#define ZEM_ZFP_ALIAS(target) __attribute__((alias(#target)))
ZEM_API zemStatus zemsDecodeZfpGetStateSize_32f(int32_t*) ZEM_ZFP_ALIAS(zemsEncodeZfpGetStateSize_32f);
ZEM_API zemStatus zemsDecodeZfpInit_32f(uint8_t*, int32_t, zemZfpState*) ZEM_ZFP_ALIAS(zemsEncodeZfpInit_32f);
ZEM_API zemStatus zemsDecodeZfpInitLong_32f(uint8_t*, int64_t, zemZfpState*) ZEM_ZFP_ALIAS(zemsEncodeZfpInitLong_32f);
ZEM_API zemStatus zemsDecodeZfpSet_32f(int32_t, int32_t, int32_t, int32_t, zemZfpState*)
    ZEM_ZFP_ALIAS(zemsEncodeZfpSet_32f);
ZEM_API zemStatus zemsDecodeZfpSetAccuracy_32f(double, zemZfpState*) ZEM_ZFP_ALIAS(zemsEncodeZfpSetAccuracy_32f);
ZEM_API zemStatus zemsDecodeZfpGetDecompressedSize_32f(const zemZfpState*, int32_t*)
    ZEM_ZFP_ALIAS(zemsEncodeZfpGetCompressedSize_32f);
ZEM_API zemStatus zemsDecodeZfpGetDecompressedSizeLong_32f(const zemZfpState*, uint64_t*)
    ZEM_ZFP_ALIAS(zemsEncodeZfpGetCompressedSizeLong_32f);
