// The safe LZO1X decoder on arbitrary input. Byte 0 picks the capacity (in steps of 64 bytes,
// its top values in steps of 16 KiB); the output is allocated to exactly that size so that the
// sanitizer sees any write past it. A stream that decodes completely must decode the same with
// the trusted decoder.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "zemdc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const uint32_t cap = data[0] < 224 ? 1 + data[0] * 64u : 1 + (data[0] - 223u) * 16384u;
    const size_t n = size - 1;
    uint8_t* in = (uint8_t*)malloc(n);
    memcpy(in, data + 1, n);
    uint8_t* out = (uint8_t*)malloc(cap);
    uint32_t produced = cap;
    const zemStatus st = zemsDecodeLZOSafe_8u(in, (uint32_t)n, out, &produced);
    if (st != zemStatusOk && st != zemStatusError && st != zemStatusSrcTooShort && st != zemStatusDstTooSmall)
        abort();
    if (st >= 0 && produced > cap) abort();
    if (st == zemStatusOk) {
        uint8_t* again = (uint8_t*)malloc(cap);
        uint32_t n2 = cap;
        if (zemsDecodeLZO_8u(in, (uint32_t)n, again, &n2) != zemStatusOk || n2 != produced ||
            memcmp(out, again, produced) != 0)
            abort();
        free(again);
    }
    free(in);
    free(out);
    return 0;
}
