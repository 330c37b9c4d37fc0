// The frame of the single-pass entries: their arguments, checked in the library's order, the
// span of input one call parses, and the output with its pending bits.
#pragma once

#include "deflate/deflate_fastest.h"

namespace zem::deflate::fastest {

// Pending bits a call takes in: at most two bytes' worth, as the Huffman emission does.
inline constexpr uint32_t kMaxPendingIn = 16;
static_assert(kMaxPendingIn + kMaxRecordBits <= 64);

struct Call {
    const uint8_t** pp_src;
    uint32_t* p_src_len;
    uint32_t* p_src_idx;
    const uint8_t* window;
    uint32_t win_size;
    uint32_t* head;
    uint32_t hash_size;
    const zemDeflateHuffCode* lit_codes = nullptr;
    const zemDeflateHuffCode* dist_codes = nullptr;
    uint8_t* dst = nullptr;
    uint32_t* p_dst_len = nullptr;
    uint16_t* p_code = nullptr;
    uint32_t* p_bits = nullptr;
    uint32_t* lit_stat = nullptr;
    uint32_t* dist_stat = nullptr;
    int32_t flush;

    // Pointers in argument order, then *pp_src, then sizes (with the caller's own size test),
    // then the flush value.
    [[nodiscard]] zemStatus check(bool with_output, bool bad_size = false) const;
    // The input [src, end) of this call, parsed to its end when to_end, else up to the
    // lookahead that later input may still extend a match into.
    [[nodiscard]] Span span(const uint8_t* src, const uint8_t* end, bool to_end) const;
    // Hands the input back from p on.
    void consumed(const uint8_t* p) const;
};

struct Output {
    BitWriter w;
    uint8_t* end;

    // Takes the pending bits and writes their whole bytes; false when those do not fit.
    [[nodiscard]] bool open(const Call& c);
    // A sink that leaves `reserve` bytes beyond a record's room for what follows the parse.
    [[nodiscard]] EmitSink sink(const Call& c, uint32_t reserve) const;
    [[nodiscard]] size_t room() const { return size_t(end - w.out); }
    // Stores the counts and the pending bits.
    zemStatus close(const Call& c, zemStatus st) const;
};

}  // namespace zem::deflate::fastest
