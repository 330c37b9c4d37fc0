// LZ4 block encoders without history: the default, bounded ("safe") and accelerated searches,
// and the hash table they share.
//
// Inputs below 64 KiB use 16-bit table entries (every position fits, so no distance check is
// needed); longer inputs use 32-bit entries. The accelerated search on short inputs has the
// whole table for 13-bit hashes.
#include "core/check.h"
#include "core/mem.h"
#include "lz4/lz4_block.h"
#include "lz4/lz4_search.h"

namespace zem::lz4 {

namespace {

// Table bytes that an input of this length uses with the default schedule.
constexpr int32_t table_bytes(int32_t len) { return len >= kWideTableInput ? kHashTableBytes : kHashTableBytes / 2; }

template <bool Bounded>
EncodeResult run(const uint8_t* src, int32_t len, uint8_t* dst, int32_t cap, uint8_t* table, uint32_t accel) {
    const EncodeJob j = make_job(src, len, dst, cap, table, accel);
    if (accel > 1) {
        if (len >= kWideTableInput) return encode_block<uint32_t, 12, Bounded, History::None, true>(j);
        return encode_block<uint16_t, 13, Bounded, History::None, true>(j);
    }
    if (len >= kWideTableInput) return encode_block<uint32_t, 12, Bounded, History::None>(j);
    return encode_block<uint16_t, 12, Bounded, History::None>(j);
}

// The default and safe encoders clear the table first, before the other pointers are looked at.
zemStatus clear_table(uint8_t* table, int32_t len) {
    if (table == nullptr) return zemStatusNullPtr;
    MemZero(table, table_bytes(len));
    return zemStatusOk;
}

}  // namespace

}  // namespace zem::lz4

ZEM_API zemStatus zemsEncodeLZ4HashTableGetSize_8u(int32_t* pSize) {
    if (pSize == nullptr) return zemStatusNullPtr;
    *pSize = zem::lz4::kHashTableBytes;
    return zemStatusOk;
}

ZEM_API zemStatus zemsEncodeLZ4HashTableInit_8u(uint8_t* pHashTable, int32_t srcLen) {
    if (pHashTable == nullptr) return zemStatusNullPtr;
    if (zem::bad_len(srcLen)) return zemStatusSize;
    zem::MemZero(pHashTable, zem::lz4::table_bytes(srcLen));
    return zemStatusOk;
}

ZEM_API zemStatus zemsEncodeLZ4_8u(const uint8_t* src, int32_t srcLen, uint8_t* dst, int32_t* pDstLen,
                                   uint8_t* pHashTable) {
    if (zemStatus st = zem::lz4::clear_table(pHashTable, srcLen); st != zemStatusOk) return st;
    if (zem::any_null(src, dst, pDstLen, pHashTable)) return zemStatusNullPtr;
    if (zem::bad_len(srcLen)) return zemStatusSize;
    *pDstLen = (int32_t)zem::lz4::run<false>(src, srcLen, dst, 0, pHashTable, 1).written;
    return zemStatusOk;
}

ZEM_API zemStatus zemsEncodeLZ4Safe_8u(const uint8_t* src, int32_t* pSrcLen, uint8_t* dst, int32_t* pDstLen,
                                       uint8_t* pHashTable) {
    if (pSrcLen == nullptr) return zemStatusNullPtr;
    if (zemStatus st = zem::lz4::clear_table(pHashTable, *pSrcLen); st != zemStatusOk) return st;
    if (zem::any_null(src, dst)) return zemStatusNullPtr;
    if (zem::any_null(pDstLen, pHashTable)) return zemStatusNullPtr;
    if (zem::bad_len(*pSrcLen) || zem::bad_len(*pDstLen)) return zemStatusSize;
    const int32_t len = *pSrcLen;
    zem::lz4::EncodeResult r = zem::lz4::run<true>(src, len, dst, *pDstLen, pHashTable, 1);
    *pSrcLen = (int32_t)r.consumed;
    *pDstLen = (int32_t)r.written;
    return r.consumed == (size_t)len ? zemStatusOk : zemStatusDstTooSmall;
}

ZEM_API zemStatus zemsEncodeLZ4Fast_8u(const uint8_t* src, int32_t srcLen, uint8_t* dst, int32_t* pDstLen,
                                       uint8_t* pHashTable, int32_t acceleration) {
    if (acceleration == 1) return zemsEncodeLZ4_8u(src, srcLen, dst, pDstLen, pHashTable);
    if (zem::any_null(src, dst, pDstLen, pHashTable)) return zemStatusNullPtr;
    if (zem::bad_len(srcLen)) return zemStatusSize;
    if (acceleration < 1) return zemStatusBadMode;
    // Short inputs spread their 13-bit hashes over the whole table.
    zem::MemZero(pHashTable, zem::lz4::kHashTableBytes);
    *pDstLen = (int32_t)zem::lz4::run<false>(src, srcLen, dst, 0, pHashTable, (uint32_t)acceleration).written;
    return zemStatusOk;
}
