// LZ4 block encoders with history: earlier data of the stream in memory right before the
// input, or a separate dictionary that stands for it.
//
// The 32-bit table persists between the blocks of a stream, holding positions counted from the
// start of the history. A table left by an earlier (possibly longer) stream is made harmless by
// lowering every entry that points at or past the new input; the candidate checks then keep
// each match inside the history and within 64 KiB.
#include <immintrin.h>

#include "core/check.h"
#include "core/mem.h"
#include "lz4/lz4_block.h"
#include "lz4/lz4_search.h"

namespace zem::lz4 {

namespace {

constexpr int kDictHashBits = 12;
constexpr size_t kDictEntries = size_t(1) << kDictHashBits;

// Lowers every entry above `ceiling` to it.
void clamp_table(uint32_t* table, uint32_t ceiling) {
    const __m256i c = _mm256_set1_epi32((int)ceiling);
    for (size_t i = 0; i < kDictEntries; i += 8) {
        __m256i v = _mm256_loadu_si256((const __m256i*)(table + i));
        _mm256_storeu_si256((__m256i*)(table + i), _mm256_min_epu32(v, c));
    }
}

// The first step of both encoders: a positive history count keeps the table, clamped to
// `ceiling`; otherwise the table starts empty.
void prepare_table(uint8_t* table, int32_t srcIdx, uint32_t ceiling) {
    if (srcIdx > 0)
        clamp_table((uint32_t*)table, ceiling);
    else
        MemZero(table, kHashTableBytes);
}

template <bool Bounded>
EncodeResult run(const uint8_t* src, int32_t srcIdx, int32_t len, uint8_t* dst, int32_t cap, uint8_t* table,
                 const uint8_t* dict, int32_t dictLen) {
    EncodeJob j = make_job(src, len, dst, cap, table, 1);
    j.base = src - srcIdx;
    j.src_pos = (uint32_t)srcIdx;
    if (dict == nullptr) return encode_block<uint32_t, kDictHashBits, Bounded, History::InMemory>(j);
    // Dictionary byte dictLen - (srcIdx - q) stands for position q.
    j.dict_at = dict + dictLen - srcIdx;
    j.dict_lo = int64_t(srcIdx) - dictLen;
    return encode_block<uint32_t, kDictHashBits, Bounded, History::External>(j);
}

// Which history an encoder call uses, after its table step. Returns a status below zero for a
// bad argument; `dict` is cleared when the history lies in memory before the input.
zemStatus pick_history(const uint8_t* src, int32_t srcIdx, const uint8_t*& dict, int32_t dictLen) {
    if (dict == nullptr || dictLen == 0) {
        dict = nullptr;
        return zemStatusOk;
    }
    if (dictLen < 0) return zemStatusSize;
    if (srcIdx == dictLen && (uintptr_t)dict + (uintptr_t)(intptr_t)srcIdx == (uintptr_t)src) dict = nullptr;
    return zemStatusOk;
}

}  // namespace

}  // namespace zem::lz4

ZEM_API zemStatus zemsEncodeLZ4DictHashTableInit_8u(uint8_t* pHashTable, int32_t srcLen) {
    if (pHashTable == nullptr) return zemStatusNullPtr;
    if (zem::bad_len(srcLen)) return zemStatusSize;
    zem::MemZero(pHashTable, zem::lz4::kHashTableBytes);
    return zemStatusOk;
}

ZEM_API zemStatus zemsEncodeLZ4LoadDict_8u(uint8_t* pHashTable, const uint8_t* pDict, int32_t dictLen) {
    if (zem::any_null(pHashTable, pDict)) return zemStatusNullPtr;
    if (zem::bad_len(dictLen)) return zemStatusSize;
    // Every third position only: loading stays cheap, and a match found through one of them is
    // extended over its neighbours anyway.
    uint32_t* table = (uint32_t*)pHashTable;
    for (int32_t p = 0; dictLen - p > 8; p += 3)
        table[zem::lz4::hash5<zem::lz4::kDictHashBits>(pDict + p)] = (uint32_t)p;
    return zemStatusOk;
}

ZEM_API zemStatus zemsEncodeLZ4Dict_8u(const uint8_t* src, int32_t srcIdx, int32_t srcLen, uint8_t* dst,
                                       int32_t* pDstLen, uint8_t* pHashTable, const uint8_t* pDict,
                                       int32_t dictLen) {
    if (pHashTable == nullptr) return zemStatusNullPtr;
    zem::lz4::prepare_table(pHashTable, srcIdx, (uint32_t)srcIdx - 1);
    if (zemStatus st = zem::lz4::pick_history(src, srcIdx, pDict, dictLen); st != zemStatusOk) return st;
    if (zem::any_null(src, dst, pDstLen)) return zemStatusNullPtr;
    if (zem::bad_len(srcLen)) return zemStatusSize;
    if (srcIdx < 0) return zemStatusBadArg;
    *pDstLen = (int32_t)zem::lz4::run<false>(src, srcIdx, srcLen, dst, 0, pHashTable, pDict, dictLen).written;
    return zemStatusOk;
}

ZEM_API zemStatus zemsEncodeLZ4DictSafe_8u(const uint8_t* src, int32_t srcIdx, int32_t* pSrcLen, uint8_t* dst,
                                           int32_t* pDstLen, uint8_t* pHashTable, const uint8_t* pDict,
                                           int32_t dictLen) {
    if (pHashTable == nullptr) return zemStatusNullPtr;
    zem::lz4::prepare_table(pHashTable, srcIdx, (uint32_t)srcIdx);
    if (zemStatus st = zem::lz4::pick_history(src, srcIdx, pDict, dictLen); st != zemStatusOk) return st;
    if (zem::any_null(src, pSrcLen, dst, pDstLen)) return zemStatusNullPtr;
    if (zem::bad_len(*pSrcLen) || zem::bad_len(*pDstLen)) return zemStatusSize;
    if (srcIdx < 0) return zemStatusBadArg;
    const int32_t len = *pSrcLen;
    zem::lz4::EncodeResult r = zem::lz4::run<true>(src, srcIdx, len, dst, *pDstLen, pHashTable, pDict, dictLen);
    *pSrcLen = (int32_t)r.consumed;
    *pDstLen = (int32_t)r.written;
    return r.consumed == (size_t)len ? zemStatusOk : zemStatusDstTooSmall;
}
