// The C entries of zemstream.h: argument checks in the library's order, then the container's
// adapter. One-call forms are the incremental ones run over the whole buffers.
#include <new>

#include "zemstream_adapter.h"

using zem::stream::Adapter;
using zem::stream::Coder;
using zem::stream::find_adapter;

struct zemStream {
    Coder* coder;
    bool failed;
    bool finished;  // compressing: the container's end has been started
    zemStatus last_error;
};

namespace {

constexpr uint64_t kUnknownSize = ~uint64_t(0);

// Level and container checks shared by the entries; 0 or the status to return.
zemStatus check_container(int32_t container, int32_t direction, const Adapter*& a) {
    a = find_adapter(container);
    if (!a || (direction != zemStreamEncode && direction != zemStreamDecode)) return zemStatusBadArg;
    bool built = direction == zemStreamEncode ? a->encoder != nullptr : a->decoder != nullptr;
    return built ? zemStatus(zemStatusOk) : zemStatus(zemStreamStatusUnsupported);
}

// The layers allocate with new; a failed allocation is a status here, never an exception
// across the C boundary.
Coder* make(const Adapter* a, int32_t direction, int32_t level, uint64_t size_hint) {
    try {
        return direction == zemStreamEncode ? a->encoder(level ? level : a->default_level, size_hint) : a->decoder();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

zemStatus fail(zemStream* s, zemStatus st) {
    s->failed = true;
    s->last_error = st;
    return st;
}

}  // namespace

extern "C" {

ZEMSTREAM_API zemStatus zemStreamCompressBound(int32_t container, uint64_t srcLen, uint64_t* pBound) {
    if (!pBound) return zemStatusNullPtr;
    const Adapter* a;
    if (zemStatus st = check_container(container, zemStreamEncode, a); st != zemStatusOk) return st;
    *pBound = a->bound(srcLen);
    return zemStatusOk;
}

ZEMSTREAM_API zemStatus zemStreamCreate(int32_t container, int32_t direction, int32_t level, zemStream** ppStream) {
    if (!ppStream) return zemStatusNullPtr;
    const Adapter* a;
    if (zemStatus st = check_container(container, direction, a); st != zemStatusOk) return st;
    if (level < 0 || level > 9) return zemStatusBadArg;
    Coder* c = make(a, direction, level, kUnknownSize);
    zemStream* s = c ? new (std::nothrow) zemStream{c, false, false, zemStatusOk} : nullptr;
    if (!s) {
        delete c;
        return zemStreamStatusNoMemory;
    }
    *ppStream = s;
    return zemStatusOk;
}

ZEMSTREAM_API zemStatus zemStreamFeed(zemStream* pStream, const uint8_t** ppSrc, size_t* pSrcLen, uint8_t** ppDst,
                                      size_t* pDstLen) {
    if (!pStream || !ppSrc || !pSrcLen || !ppDst || !pDstLen) return zemStatusNullPtr;
    if ((*pSrcLen && !*ppSrc) || !*ppDst) return zemStatusNullPtr;
    if (pStream->failed || pStream->finished) return zemStreamStatusBadState;
    zemStatus st;
    try {
        st = pStream->coder->feed(*ppSrc, *pSrcLen, *ppDst, *pDstLen);
    } catch (const std::bad_alloc&) {
        st = zemStreamStatusNoMemory;
    }
    if (st < 0) return fail(pStream, st);
    return *pDstLen ? zemStatusOk : zemStatusDstTooSmall;
}

ZEMSTREAM_API zemStatus zemStreamFinish(zemStream* pStream, uint8_t** ppDst, size_t* pDstLen) {
    if (!pStream || !ppDst || !pDstLen || !*ppDst) return zemStatusNullPtr;
    if (pStream->failed) return zemStreamStatusBadState;
    pStream->finished = true;
    zemStatus st;
    try {
        st = pStream->coder->finish(*ppDst, *pDstLen);
    } catch (const std::bad_alloc&) {
        st = zemStreamStatusNoMemory;
    }
    return st < 0 ? fail(pStream, st) : st;
}

ZEMSTREAM_API void zemStreamDestroy(zemStream* pStream) {
    if (!pStream) return;
    delete pStream->coder;
    delete pStream;
}

ZEMSTREAM_API const char* zemStreamErrorDetail(const zemStream* pStream) {
    return pStream && pStream->failed ? pStream->coder->detail() : "";
}

ZEMSTREAM_API zemStatus zemStreamCompress(int32_t container, int32_t level, const uint8_t* pSrc, size_t srcLen,
                                          uint8_t* pDst, size_t* pDstLen) {
    if ((!pSrc && srcLen) || !pDst || !pDstLen) return zemStatusNullPtr;
    const Adapter* a;
    if (zemStatus st = check_container(container, zemStreamEncode, a); st != zemStatusOk) return st;
    if (level < 0 || level > 9) return zemStatusBadArg;
    Coder* c = make(a, zemStreamEncode, level, srcLen);
    if (!c) return zemStreamStatusNoMemory;
    uint8_t* out = pDst;
    size_t room = *pDstLen;
    zemStatus st;
    try {
        st = c->feed(pSrc, srcLen, out, room);
        if (st == zemStatusOk && srcLen) st = zemStreamStatusDstTooSmall;
        if (st == zemStatusOk) st = c->finish(out, room);
    } catch (const std::bad_alloc&) {
        st = zemStreamStatusNoMemory;
    }
    delete c;
    if (st == zemStatusDstTooSmall) st = zemStreamStatusDstTooSmall;
    *pDstLen = st == zemStatusOk ? size_t(out - pDst) : 0;
    return st;
}

ZEMSTREAM_API zemStatus zemStreamDecompress(int32_t container, const uint8_t* pSrc, size_t srcLen, uint8_t* pDst,
                                            size_t* pDstLen) {
    if ((!pSrc && srcLen) || !pDst || !pDstLen) return zemStatusNullPtr;
    const Adapter* a;
    if (zemStatus st = check_container(container, zemStreamDecode, a); st != zemStatusOk) return st;
    Coder* c = make(a, zemStreamDecode, 0, srcLen);
    if (!c) return zemStreamStatusNoMemory;
    uint8_t* out = pDst;
    size_t room = *pDstLen;
    zemStatus st;
    try {
        st = c->feed(pSrc, srcLen, out, room);
        // Input left over with the output full: the output is what is short.
        if (st == zemStatusOk && srcLen) st = zemStreamStatusDstTooSmall;
        if (st == zemStatusOk) st = c->finish(out, room);
        // A full output cannot tell "more to come" from "input cut short": one byte of scratch
        // room asks the decoder which it is.
        if (st == zemStatusDstTooSmall) {
            uint8_t probe, *p = &probe;
            size_t one = 1;
            if (c->finish(p, one) == zemStreamStatusTruncated) st = zemStreamStatusTruncated;
        }
    } catch (const std::bad_alloc&) {
        st = zemStreamStatusNoMemory;
    }
    delete c;
    if (st == zemStatusDstTooSmall) st = zemStreamStatusDstTooSmall;
    *pDstLen = size_t(out - pDst);
    return st;
}

ZEMSTREAM_API const char* zemStreamStatusString(zemStatus status) {
    switch (status) {
        case zemStatusOk: return "success";
        case zemStatusError: return "inconsistent or malformed input";
        case zemStatusStreamEnd: return "bit stream ended";
        case zemStatusBadArg: return "argument out of range";
        case zemStatusSize: return "bad length or size";
        case zemStatusNullPtr: return "null pointer";
        case zemStatusContextMismatch: return "state record not initialised";
        case zemStatusBadMode: return "mode out of range";
        case zemStatusBadData: return "malformed compressed data";
        case zemStatusSrcTooShort: return "input ended early";
        case zemStatusDstTooSmall: return "output buffer full";
        case zemStreamStatusUnsupported: return "format not supported";
        case zemStreamStatusCorrupt: return "corrupt input";
        case zemStreamStatusChecksum: return "corrupt input (checksum mismatch)";
        case zemStreamStatusTruncated: return "unexpected end of input";
        case zemStreamStatusDstTooSmall: return "output buffer too small";
        case zemStreamStatusNoMemory: return "out of memory";
        case zemStreamStatusBadState: return "call out of order";
    }
    return "unknown status";
}

ZEMSTREAM_API const char* zemStreamContainerName(int32_t container) {
    const Adapter* a = find_adapter(container);
    return a ? a->name : "";
}

ZEMSTREAM_API const char* zemStreamContainerSuffix(int32_t container) {
    const Adapter* a = find_adapter(container);
    return a ? a->suffix : "";
}

}  // extern "C"
