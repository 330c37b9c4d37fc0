// The LZO1X encoder entries: state size and Init, and the driver that runs the method's parse
// over the input (segment by segment for the segmented method) and closes the stream.
#include "core/check.h"
#include "core/mem.h"
#include "lzo/lzo_format.h"

namespace zem::lzo {

namespace {

constexpr uint32_t state_bytes(uint32_t method) { return method == zemLZOFast ? kFastStateBytes : kStrongStateBytes; }

uint32_t* tables(zemLZOState_8u* s) { return (uint32_t*)((uint8_t*)s + sizeof(StateHeader)); }

uint32_t encode(const uint8_t* src, uint32_t n, uint8_t* dst, uint32_t cap, zemLZOState_8u* state) {
    const StateHeader* h = (const StateHeader*)state;
    Out o{dst, dst, dst + cap, nullptr};
    const uint8_t* const end = src + n;
    const uint8_t* anchor;
    if (h->method == zemLZOFast) {
        uint32_t* table = tables(state);
        MemZero(table, int32_t(4u << kFastHashBits));
        anchor = encode_fast(src, n, o, table);
    } else {
        uint32_t* head = tables(state);
        MemZero(head, int32_t(4u << kStrongHashBits));
        // The strong method is the segmented one with a single segment.
        const uint32_t seg_size = h->method == zemLZOSegmented ? kSegmentSize : kMaxInput;
        anchor = src;
        for (const uint8_t* seg = src; seg < end;) {
            const uint8_t* seg_end = size_t(end - seg) > seg_size ? seg + seg_size : end;
            anchor = encode_strong(anchor, seg, seg_end, src, o, head);
            seg = seg_end;
        }
    }
    write_literals(o, anchor, size_t(end - anchor), end);
    write_end(o);
    return uint32_t(o.op - dst);
}

bool bad_method(zemLZOMethod m) { return uint32_t(m) > uint32_t(zemLZOSegmented); }

}  // namespace

}  // namespace zem::lzo

ZEM_API zemStatus zemsEncodeLZOGetSize(zemLZOMethod method, uint32_t maxInputLen, uint32_t* pSize) {
    using namespace zem::lzo;
    if (pSize == nullptr) return zemStatusNullPtr;
    if (maxInputLen > kMaxInput) return zemStatusSize;
    if (bad_method(method)) return zemStatusBadArg;
    *pSize = state_bytes(method);
    return zemStatusOk;
}

ZEM_API zemStatus zemsEncodeLZOInit_8u(zemLZOMethod method, uint32_t maxInputLen, zemLZOState_8u* pState) {
    using namespace zem::lzo;
    if (pState == nullptr) return zemStatusNullPtr;
    if (maxInputLen > kMaxInput) return zemStatusSize;
    if (bad_method(method)) return zemStatusBadArg;
    StateHeader* h = (StateHeader*)pState;
    *h = StateHeader{kStateTag, uint32_t(method), maxInputLen, 0};
    return zemStatusOk;
}

ZEM_API zemStatus zemsEncodeLZO_8u(const uint8_t* pSrc, uint32_t srcLen, uint8_t* pDst, uint32_t* pDstLen,
                                   zemLZOState_8u* pState) {
    using namespace zem::lzo;
    if (zem::any_null(pSrc, pDst, pDstLen, pState)) return zemStatusNullPtr;
    const StateHeader* h = (const StateHeader*)pState;
    if (h->tag != kStateTag) return zemStatusContextMismatch;
    if (srcLen > h->max_input || *pDstLen < worst_size(srcLen)) return zemStatusSize;
    *pDstLen = encode(pSrc, srcLen, pDst, *pDstLen, pState);
    return zemStatusOk;
}
