// The single-pass parse over whole blocks with a caller's dynamic header: the entry opens each
// block (BFINAL, BTYPE 2, the header), parses the block's input, closes it with end-of-block,
// and on Finish leaves a complete stream. The open block crosses calls in *pBlockLeft.
#include "deflate/deflate_fastest_call.h"

namespace zem::deflate::fastest {

namespace {

inline constexpr uint32_t kBlockInput = ZEM_DEFLATE_PRECOMP_BLOCK_SIZE;
inline constexpr uint32_t kFinalFlag = 0x80000000u;
// *pBlockLeft once the final block is closed: the stream is complete.
inline constexpr uint32_t kStreamDone = kFinalFlag;
static_assert(kBlockInput < kFinalFlag);
inline constexpr uint32_t kMaxHeaderBits = ZEM_DEFLATE_MAX_HEADER_BITS;
// Opening a block takes BFINAL and BTYPE and the header, written by 8-byte stores.
constexpr uint32_t open_room(uint32_t header_bits) { return (3 + header_bits + 7) / 8 + kStoreSlack; }
// The empty final block with the fixed code: BFINAL, BTYPE 1, end-of-block (seven zero bits).
inline constexpr uint32_t kEmptyFinalBits = 3 + 7;
// What the parse of a block leaves free beyond a record's room, for closing the block after its
// last record: that record moves the output at most 6 bytes on (48 bits and fewer than 8
// pending), then the end-of-block code (at most 15 bits) and the final padding take two stores
// of 8 bytes, the second at most 2 bytes further on.
inline constexpr uint32_t kCloseRoom = 8;
static_assert(kRecordRoom + kCloseRoom >= (7 + kMaxRecordBits) / 8 + 2 + kStoreSlack);

struct Block {
    uint32_t left;  // input still to go into the open block, 0 when none is open
    bool final;
};

// Writes the header's bits, least significant first, 32 at a time.
void put_header(BitWriter& w, const uint8_t* h, uint32_t bits) {
    for (; bits >= 32; bits -= 32, h += 4) {
        w.put(load32(h), 32);
        w.flush();
    }
    for (; bits >= 8; bits -= 8) {
        w.put(*h++, 8);
        w.flush();
    }
    if (bits) w.put(_bzhi_u32(*h, bits), bits);
    w.flush();
}

// The last byte of a complete stream, its unused bits zero.
void pad(BitWriter& w) {
    w.count = (w.count + 7) & ~7u;
    w.flush();
}

void end_of_block(BitWriter& w, const zemDeflateHuffCode* lit) {
    w.put(code_bits(lit[kEndOfBlock]), code_len(lit[kEndOfBlock]));
    w.flush();
}

}  // namespace

zemStatus precomp(const Call& c, const uint8_t* header, uint32_t header_bits, uint32_t* p_block_left) {
    if (*p_block_left == kStreamDone) return zemStatusOk;
    Output o;
    if (!o.open(c)) return o.close(c, zemStatusDstTooSmall);
    Block b{*p_block_left & ~kFinalFlag, (*p_block_left & kFinalFlag) != 0};
    const uint8_t* p = *c.pp_src;
    const uint8_t* const end = p + *c.p_src_len;
    const bool to_end = c.flush != zemDeflateNoFlush, finish = c.flush == zemDeflateFinish;
    zemStatus st = zemStatusOk;
    for (;;) {
        if (b.left == 0) {
            if (p == end || (!to_end && size_t(end - p) <= kLookahead)) break;
            if (o.room() < open_room(header_bits)) {
                st = zemStatusDstTooSmall;
                break;
            }
            b.final = finish && size_t(end - p) <= kBlockInput;
            b.left = b.final ? uint32_t(end - p) : kBlockInput;
            o.w.put(uint32_t(b.final) | 2u << 1, 3);
            put_header(o.w, header, header_bits);
        }
        // The block's own end is a flush point of the parse: no match crosses it.
        const bool block_ends_here = size_t(end - p) >= b.left;
        const Span s = c.span(p, block_ends_here ? p + b.left : end, to_end || block_ends_here);
        EmitSink sink = o.sink(c, kCloseRoom);
        const uint8_t* q = parse(s, sink);
        o.w = sink.w;
        b.left -= uint32_t(q - p);
        p = q;
        if (q < s.stop) {
            st = zemStatusDstTooSmall;
            break;
        }
        if (b.left != 0) break;  // the input ended inside the block
        // The sink kept kCloseRoom free after the last record: the end-of-block code and the
        // final padding fit.
        end_of_block(o.w, c.lit_codes);
        if (b.final) {
            pad(o.w);
            b = Block{0, true};
            break;
        }
    }
    // Finish with everything parsed: close a block that was opened as not final, then end the
    // stream with an empty final block, unless the final block has just been closed.
    if (st == zemStatusOk && finish && p == end && !(b.left == 0 && b.final)) {
        if (o.room() < kRecordRoom + (kEmptyFinalBits + 7) / 8) {
            st = zemStatusDstTooSmall;
        } else {
            if (b.left != 0) end_of_block(o.w, c.lit_codes);
            o.w.put(1u | 1u << 1, kEmptyFinalBits);
            pad(o.w);
            b = Block{0, true};
        }
    }
    c.consumed(p);
    *p_block_left = b.left != 0 ? b.left | (b.final ? kFinalFlag : 0) : b.final ? kStreamDone : 0;
    return o.close(c, st);
}

}  // namespace zem::deflate::fastest

using namespace zem::deflate::fastest;

ZEM_API zemStatus zemsDeflateLZ77FastestPrecompHeader_8u(
    const uint8_t** ppSrc, uint32_t* pSrcLen, uint32_t* pSrcIdx, const uint8_t* pWindow, uint32_t winSize,
    uint32_t* pHashHead, uint32_t hashSize, const zemDeflateHuffCode* pLitCodes, const zemDeflateHuffCode* pDistCodes,
    uint8_t* pDst, uint32_t* pDstLen, uint16_t* pCode, uint32_t* pCodeLenBits, int32_t flush, const uint8_t* pHeader,
    uint32_t headerBits, uint32_t* pBlockLeft) {
    const Call c{.pp_src = ppSrc, .p_src_len = pSrcLen, .p_src_idx = pSrcIdx, .window = pWindow,
                 .win_size = winSize, .head = pHashHead, .hash_size = hashSize, .lit_codes = pLitCodes,
                 .dist_codes = pDistCodes, .dst = pDst, .p_dst_len = pDstLen, .p_code = pCode,
                 .p_bits = pCodeLenBits, .flush = flush};
    // The two trailing pointers are checked with the others, before anything they point to.
    if (zem::any_null(ppSrc, pSrcLen, pSrcIdx, pWindow, pHashHead, pLitCodes, pDistCodes, pDst, pDstLen, pCode,
                      pCodeLenBits, pHeader, pBlockLeft))
        return zemStatusNullPtr;
    if (const zemStatus st = c.check(true, headerBits == 0 || headerBits > kMaxHeaderBits); st != zemStatusOk)
        return st;
    if ((*pBlockLeft & ~kFinalFlag) > kBlockInput) return zemStatusBadArg;
    return precomp(c, pHeader, headerBits, pBlockLeft);
}
