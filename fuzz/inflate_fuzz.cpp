// The bare primitives on hostile input: code lengths from the first bytes (built if valid, the
// fixed code otherwise), then a block body decoded into a buffer with a window, in pieces and in
// one call, every call's in/out values checked against the buffers.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "zemdc.h"

namespace {

struct Result {
    zemStatus status;
    size_t produced;
};

// Decodes the body in calls of at most `piece` input and `room_piece` output bytes into `out`.
Result decode(zemInflateState st, const uint8_t* data, size_t size, uint32_t piece, uint32_t room_piece, uint8_t* out,
              size_t cap) {
    const uint8_t* src = data;
    uint32_t left = uint32_t(size), code = 0, bits = 0, mode = 0;
    size_t produced = 0;
    zemStatus s = zemStatusOk;
    while (produced < cap) {
        uint32_t in_n = left < piece ? left : piece, in_before = in_n;
        uint32_t room = uint32_t(cap - produced < room_piece ? cap - produced : room_piece), room_before = room;
        const uint8_t* src_before = src;
        uint8_t* dst = out + produced;
        s = zemsInflate_8u(&src, &in_n, &code, &bits, 123, &dst, &room, uint32_t(produced), &mode, &st);
        if (bits > 32 || in_n > in_before || room > room_before || src != src_before + (in_before - in_n) ||
            dst != out + produced + (room_before - room))
            abort();
        left -= in_before - in_n;
        produced += room_before - room;
        if (s != zemStatusOk || mode == 0) break;
        if (in_n == in_before && room == room_before && left == 0) break;  // wants input that is not there
    }
    return {s, produced};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    static uint8_t window[32768], out[1 << 16], whole[1 << 16];
    zemInflateState st;
    memset(&st, 0, sizeof st);
    uint32_t n_lit = 257 + data[0] % 32, n_dist = data[1] % 31, piece = 1 + data[2], room_piece = 1 + data[3];
    data += 4, size -= 4;
    uint16_t lens[320];
    size_t n_lens = n_lit + n_dist, n_bytes = (n_lens + 1) / 2;
    if (size >= n_bytes) {
        // Two lengths a byte.
        for (size_t i = 0; i < n_lens; ++i) lens[i] = (data[i / 2] >> (i & 1 ? 4 : 0)) & 15;
        data += n_bytes, size -= n_bytes;
        if (zemsInflateBuildHuffTable(lens, n_lit, n_dist, &st) != zemStatusOk) st.tableKind = 0;
    }
    st.window = size & 1 ? window : nullptr;
    st.windowSize = st.window ? sizeof window : 0;
    // In pieces, and in one call, which takes the decoder's widest loops once the input is long
    // enough: both must agree on the status and on every byte.
    const Result a = decode(st, data, size, piece, room_piece, out, sizeof out);
    const Result b = decode(st, data, size, UINT32_MAX, UINT32_MAX, whole, sizeof whole);
    const size_t common = a.produced < b.produced ? a.produced : b.produced;
    if (memcmp(out, whole, common) != 0) abort();
    if (a.status != b.status) abort();
    return 0;
}
