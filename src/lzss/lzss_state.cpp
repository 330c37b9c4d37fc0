// The LZSS state record: its size query and the two Inits. One record size serves both
// directions, so a caller allocates the same block for an encoder or a decoder.
#include "core/mem.h"
#include "lzss/lzss.h"

namespace zem::lzss {

void encoder_init(EncoderState* s) {
    // Every entry far enough below position 0 that no candidate passes the window test.
    for (int32_t i = 0; i < (int32_t)kWindow; ++i) s->prev[i] = kNoPosition;
    for (int32_t i = 0; i < kHashCount; ++i) s->head[i] = kNoPosition;
    s->history_len = 0;
    s->bit_count = 0;
    s->bit_buf = 0;
    s->position = 0;
    s->reserved = 0;
}

void decoder_init(DecoderState* s) {
    s->bit_buf = 0;
    s->bit_count = 0;
    s->ring_pos = 0;
    s->history_len = 0;
    s->cut_dist = 0;
    s->cut_len = 0;
    // A distance beyond the output so far reads the ring unchecked; zeroing it makes what a
    // malformed stream produces depend on the stream alone, not on the caller's old memory.
    MemZero(s->ring, (int32_t)kWindow);
}

}  // namespace zem::lzss

using namespace zem::lzss;

ZEM_API zemStatus zemsLZSSGetSize_8u(int32_t* pLZSSStateSize) {
    if (pLZSSStateSize == nullptr) return zemStatusNullPtr;
    *pLZSSStateSize = kStateSize;
    return zemStatusOk;
}

ZEM_API zemStatus zemsEncodeLZSSInit_8u(zemLZSSState_8u* pLZSSState) {
    if (pLZSSState == nullptr) return zemStatusNullPtr;
    encoder_init(view<EncoderState>(pLZSSState));
    return zemStatusOk;
}

ZEM_API zemStatus zemsDecodeLZSSInit_8u(zemLZSSState_8u* pLZSSState) {
    if (pLZSSState == nullptr) return zemStatusNullPtr;
    decoder_init(view<DecoderState>(pLZSSState));
    return zemStatusOk;
}
