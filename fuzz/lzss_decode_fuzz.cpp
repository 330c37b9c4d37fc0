// The LZSS decoder on arbitrary input, then the same bytes through the encoder and back.
// Byte 0 picks the input piece size, byte 1 the output piece size (1..256 each). Every input is
// a token stream, so the decoder must accept it, stay in its buffers and give the same bytes
// over pieces as in one call; the encoder's stream of the input, made in the same pieces, must
// decode to the input.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "zemdc.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Runs decode over `in` with input and output pieces of the given sizes (0: all at once).
Bytes decode(const uint8_t* in, size_t n, size_t in_piece, size_t out_piece, zemLZSSState_8u* st) {
    zemsDecodeLZSSInit_8u(st);
    Bytes out;
    const size_t cap = out_piece ? out_piece : 86 * n + 258;  // at most 258 bytes per 3 input
    uint8_t* buf = (uint8_t*)malloc(cap);
    size_t pos = 0;
    do {
        int32_t left = (int32_t)(in_piece && n - pos > in_piece ? in_piece : n - pos), taken = left;
        const uint8_t* p = in + pos;
        zemStatus s;
        do {
            uint8_t* d = buf;
            int32_t room = (int32_t)cap;
            s = zemsDecodeLZSS_8u(&p, &left, &d, &room, st);
            if (s != zemStatusOk && s != zemStatusDstTooSmall) abort();
            if (d - buf != (ptrdiff_t)cap - room) abort();
            out.insert(out.end(), buf, d);
        } while (s == zemStatusDstTooSmall);
        if (left != 0) abort();
        pos += (size_t)taken;
    } while (pos < n);
    free(buf);
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const size_t in_piece = 1 + data[0], out_piece = 1 + data[1], n = size - 2;
    uint8_t* in = (uint8_t*)malloc(n ? n : 1);  // exact-size copies, so ASan sees any overread
    memcpy(in, data + 2, n);
    int32_t state_size = 0;
    zemsLZSSGetSize_8u(&state_size);
    auto* st = (zemLZSSState_8u*)malloc((size_t)state_size);

    if (decode(in, n, 0, 0, st) != decode(in, n, in_piece, out_piece, st)) abort();

    zemsEncodeLZSSInit_8u(st);
    Bytes stream((n + (n + 7) / 8) + out_piece);
    uint8_t* d = stream.data();
    for (size_t pos = 0; pos < n;) {
        int32_t left = (int32_t)(n - pos > in_piece ? in_piece : n - pos), taken = left;
        const uint8_t* p = in + pos;
        zemStatus s;
        do {
            int32_t room = (int32_t)out_piece, r = room;
            s = zemsEncodeLZSS_8u(&p, &left, &d, &r, st);
            if (s != zemStatusOk && s != zemStatusDstTooSmall) abort();
        } while (s == zemStatusDstTooSmall);
        pos += (size_t)taken;
    }
    int32_t room = (int32_t)out_piece;
    while (zemsEncodeLZSSFlush_8u(&d, &room, st) == zemStatusDstTooSmall) room = (int32_t)out_piece;
    const size_t m = size_t(d - stream.data());
    if (m > n + (n + 7) / 8) abort();
    Bytes back = decode(stream.data(), m, 0, 0, st);
    if (back.size() != n || (n && memcmp(back.data(), in, n) != 0)) abort();
    free(st);
    free(in);
    return 0;
}
