// Move-to-front coding over the caller's 256-entry list, both directions.
#include <immintrin.h>
#include <string.h>

#include "blocksort/mtf_list.h"
#include "core/check.h"

namespace zem::bz2 {
namespace {

inline constexpr int32_t kMtfStateSize = 256;

// Position of b in the list; 255 when it is not there (a state that is not a permutation).
// The first 16 entries are compared with one 16-byte load, the same bytes that the previous
// step's 16-byte store wrote, so that the load is forwarded from that store: a wider load that
// only overlapped it stalled on every symbol (measured: the whole step at 58 MB/s). Deeper
// entries are compared 32 at a time; the slack past entry 255 holds no value that could win,
// and a hit there counts as not found.
ZEM_INLINE uint32_t mtf_find(const uint8_t* list, uint8_t b) {
    uint32_t m = (uint32_t)_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_loadu_si128((const __m128i*)list), _mm_set1_epi8(char(b))));
    if (ZEM_LIKELY(m)) return (uint32_t)__builtin_ctz(m);
    const __m256i key = _mm256_set1_epi8(char(b));
    for (uint32_t at = 16; at < 256; at += 32) {
        m = (uint32_t)_mm256_movemask_epi8(_mm256_cmpeq_epi8(_mm256_loadu_si256((const __m256i*)(list + at)), key));
        if (m) {
            const uint32_t pos = at + (uint32_t)__builtin_ctz(m);
            return pos < 256 ? pos : 255;
        }
    }
    return 255;
}

// The list is worked on in a local copy with slack for the 16-byte moves and the 32-byte
// compares, and written back at the end. A state that is not a permutation (never
// initialised) is still safe: a value that is not found is taken as the last entry.
void forward(const uint8_t* src, uint8_t* dst, int32_t len, uint8_t* state) {
    alignas(32) uint8_t list[kListBytes + 32];
    memcpy(list, state, 256);
    memset(list + 256, 0, sizeof list - 256);
    for (int32_t i = 0; i < len; ++i) {
        const uint8_t b = src[i];
        // Half or more of a sorted block repeats the symbol before it.
        if (b == list[0]) {
            dst[i] = 0;
            continue;
        }
        const uint32_t pos = mtf_find(list, b);
        if (ZEM_UNLIKELY(list[pos] != b)) list[pos] = b;
        mtf_take(list, pos);
        dst[i] = uint8_t(pos);
    }
    memcpy(state, list, 256);
}

void inverse(const uint8_t* src, uint8_t* dst, int32_t len, uint8_t* state) {
    alignas(32) uint8_t list[kListBytes];
    memcpy(list, state, 256);
    for (int32_t i = 0; i < len; ++i) dst[i] = mtf_take(list, src[i]);
    memcpy(state, list, 256);
}

}  // namespace
}  // namespace zem::bz2

namespace {
uint8_t* list_of(zemMTFState_8u* p) { return reinterpret_cast<uint8_t*>(p); }
}  // namespace

ZEM_API zemStatus zemsMTFGetSize_8u(int32_t* pSize) {
    if (zem::any_null(pSize)) return zemStatusNullPtr;
    *pSize = zem::bz2::kMtfStateSize;
    return zemStatusOk;
}

ZEM_API zemStatus zemsMTFInit_8u(zemMTFState_8u* pState) {
    if (zem::any_null(pState)) return zemStatusNullPtr;
    uint8_t* list = list_of(pState);
    for (int v = 0; v < 256; ++v) list[v] = uint8_t(v);
    return zemStatusOk;
}

ZEM_API zemStatus zemsMTFFwd_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len, zemMTFState_8u* pState) {
    if (zem::any_null(pSrc, pDst, pState)) return zemStatusNullPtr;
    if (zem::bad_len(len)) return zemStatusSize;
    zem::bz2::forward(pSrc, pDst, len, list_of(pState));
    return zemStatusOk;
}

ZEM_API zemStatus zemsMTFInv_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len, zemMTFState_8u* pState) {
    if (zem::any_null(pSrc, pDst, pState)) return zemStatusNullPtr;
    if (zem::bad_len(len)) return zemStatusSize;
    zem::bz2::inverse(pSrc, pDst, len, list_of(pState));
    return zemStatusOk;
}
