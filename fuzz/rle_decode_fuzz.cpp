// The run-length decoder on any bytes: whole and in pieces of input and output given by the
// first bytes, both into buffers of their exact size; both ways must write the same bytes.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "zemdc.h"

namespace {

// Decodes through fresh heap buffers of exactly in_step / out_step bytes, so that the sanitizer
// catches any access past either.
std::vector<uint8_t> decode(const uint8_t* data, size_t size, size_t in_step, size_t out_step) {
    uint8_t state[264];
    auto* st = reinterpret_cast<zemRLEState_BZ2*>(state);
    zemsDecodeRLEStateInit_BZ2_8u(st);
    std::vector<uint8_t> out;
    for (size_t pos = 0; pos < size;) {
        const size_t n = size - pos < in_step ? size - pos : in_step;
        std::vector<uint8_t> in(data + pos, data + pos + n);
        const uint8_t* s = in.data();
        int32_t left = int32_t(n);
        while (left > 0) {
            std::vector<uint8_t> o(out_step);
            uint8_t* d = o.data();
            int32_t room = int32_t(out_step);
            zemStatus r = zemsDecodeRLEState_BZ2_8u(&s, &left, &d, &room, st);
            if (r != zemStatusOk && r != zemStatusDstTooSmall) abort();
            out.insert(out.end(), o.data(), d);
        }
        pos += n;
    }
    for (zemStatus r = zemStatusDstTooSmall; r == zemStatusDstTooSmall;) {
        std::vector<uint8_t> o(out_step);
        uint8_t* d = o.data();
        int32_t room = int32_t(out_step);
        r = zemsDecodeRLEStateFlush_BZ2_8u(st, &d, &room);
        out.insert(out.end(), o.data(), d);
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    const size_t in_step = 1 + data[0] % 40, out_step = 1 + data[1] * 3 % 300;
    data += 2, size -= 2;
    if (decode(data, size, size, size * 256 + 1) != decode(data, size, in_step, out_step)) abort();
    return 0;
}
