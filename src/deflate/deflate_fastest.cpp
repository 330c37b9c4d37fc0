// The single-pass path's entries: Fastest writes the parse as Huffman bits with the caller's
// codes, GetStat counts the symbols of the same parse.
#include "deflate/deflate_fastest_call.h"

namespace zem::deflate::fastest {

zemStatus Call::check(bool with_output, bool bad_size) const {
    if (zem::any_null(pp_src, p_src_len, p_src_idx, window, head)) return zemStatusNullPtr;
    if (with_output && zem::any_null(lit_codes, dist_codes, dst, p_dst_len, p_code, p_bits)) return zemStatusNullPtr;
    if (!with_output && zem::any_null(lit_stat, dist_stat)) return zemStatusNullPtr;
    if (*pp_src == nullptr) return zemStatusNullPtr;
    if (bad_tables(win_size, hash_size) || window > *pp_src) return zemStatusSize;
    if ((with_output && *p_bits > kMaxPendingIn) || bad_size) return zemStatusSize;
    if (flush < zemDeflateNoFlush || flush > zemDeflateFinish) return zemStatusBadArg;
    return zemStatusOk;
}

Span Call::span(const uint8_t* src, const uint8_t* end, bool to_end) const {
    const uint8_t* stop = to_end ? end : end - src > ptrdiff_t(kLookahead) ? end - kLookahead : src;
    // The keys fill the largest power of two within the table (all of it, when it is one).
    const uint32_t shift = 1 + uint32_t(__builtin_clz(hash_size));
    return Span{window, src, end, stop, *p_src_idx + uint32_t(src - *pp_src), win_size, head, shift};
}

bool Output::open(const Call& c) {
    w = BitWriter{_bzhi_u32(*c.p_code, *c.p_bits), *c.p_bits, c.dst};
    end = c.dst + *c.p_dst_len;
    // Bits that came in as whole bytes go out one by one: the room may be smaller than a store.
    for (; w.count >= 8; w.count -= 8, w.buf >>= 8) {
        if (w.out == end) return false;
        *w.out++ = uint8_t(w.buf);
    }
    return true;
}

EmitSink Output::sink(const Call& c, uint32_t reserve) const {
    // With too little room the sink's limit lies before the output, so it takes no record.
    const size_t room = size_t(end - w.out);
    const uintptr_t room_end =
        room >= kRecordRoom + reserve ? reinterpret_cast<uintptr_t>(end - kRecordRoom - reserve) : 0;
    return EmitSink{w, room_end, c.lit_codes, c.dist_codes};
}

zemStatus Output::close(const Call& c, zemStatus st) const {
    *c.p_dst_len = uint32_t(w.out - c.dst);
    *c.p_code = uint16_t(w.buf);
    *c.p_bits = w.count;
    return st;
}

void Call::consumed(const uint8_t* p) const {
    const uint32_t used = uint32_t(p - *pp_src);
    *pp_src = p;
    *p_src_len -= used;
    *p_src_idx += used;
}

}  // namespace zem::deflate::fastest

using namespace zem::deflate::fastest;

ZEM_API zemStatus zemsDeflateLZ77Fastest_8u(const uint8_t** ppSrc, uint32_t* pSrcLen, uint32_t* pSrcIdx,
                                            const uint8_t* pWindow, uint32_t winSize, uint32_t* pHashHead,
                                            uint32_t hashSize, const zemDeflateHuffCode* pLitCodes,
                                            const zemDeflateHuffCode* pDistCodes, uint8_t* pDst, uint32_t* pDstLen,
                                            uint16_t* pCode, uint32_t* pCodeLenBits, int32_t flush) {
    const Call c{.pp_src = ppSrc, .p_src_len = pSrcLen, .p_src_idx = pSrcIdx, .window = pWindow,
                 .win_size = winSize, .head = pHashHead, .hash_size = hashSize, .lit_codes = pLitCodes,
                 .dist_codes = pDistCodes, .dst = pDst, .p_dst_len = pDstLen, .p_code = pCode,
                 .p_bits = pCodeLenBits, .flush = flush};
    if (const zemStatus st = c.check(true); st != zemStatusOk) return st;
    Output o;
    if (!o.open(c)) return o.close(c, zemStatusDstTooSmall);
    const uint8_t* src = *ppSrc;
    const Span s = c.span(src, src + *pSrcLen, flush != zemDeflateNoFlush);
    EmitSink sink = o.sink(c, 0);
    const uint8_t* p = parse(s, sink);
    o.w = sink.w;
    c.consumed(p);
    return o.close(c, p < s.stop ? zemStatusDstTooSmall : zemStatusOk);
}

ZEM_API zemStatus zemsDeflateLZ77FastestGetStat_8u(const uint8_t** ppSrc, uint32_t* pSrcLen, uint32_t* pSrcIdx,
                                                   const uint8_t* pWindow, uint32_t winSize, uint32_t* pHashHead,
                                                   uint32_t hashSize, uint32_t* pLitStat, uint32_t* pDistStat,
                                                   int32_t flush) {
    const Call c{.pp_src = ppSrc, .p_src_len = pSrcLen, .p_src_idx = pSrcIdx, .window = pWindow,
                 .win_size = winSize, .head = pHashHead, .hash_size = hashSize, .lit_stat = pLitStat,
                 .dist_stat = pDistStat, .flush = flush};
    if (const zemStatus st = c.check(false); st != zemStatusOk) return st;
    const uint8_t* src = *ppSrc;
    StatSink sink{pLitStat, pDistStat};
    c.consumed(parse(c.span(src, src + *pSrcLen, flush != zemDeflateNoFlush), sink));
    return zemStatusOk;
}
