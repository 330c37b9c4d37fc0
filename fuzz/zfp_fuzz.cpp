// zfp: arbitrary bytes decoded as a stream under parameters taken from the input, and the same
// bytes encoded as blocks of floats into a short buffer. Every buffer has exactly its size, so
// the sanitizer sees any access past an end.
#include <stdint.h>
#include <string.h>

#include <vector>

#include "zemdc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 9) return 0;
    // Parameters around the interesting ranges, with an occasional extreme one: minBits, maxBits,
    // maxPrec, minExp.
    const int32_t p[4] = {data[0] == 255 ? 2147483647 : data[0] * 9, data[1] == 255 ? -5 : data[1] * 10,
                          data[2] % 70 - 3, (int8_t)data[3] * 2};
    unsigned blocks = 1 + data[4] % 16;
    std::vector<uint8_t> state(576), in(data + 8, data + size), enc(1 + data[size - 1] % 300);
    std::vector<float> out(64);
    zemZfpState* s = (zemZfpState*)state.data();
    if (zemsDecodeZfpInit_32f(in.data(), (int32_t)in.size(), s) != zemStatusOk) __builtin_trap();
    zemsDecodeZfpSet_32f(p[0], p[1], p[2], p[3], s);
    for (unsigned b = 0; b < blocks && zemsDecodeZfp444_32f(s, out.data(), 16, 64) == zemStatusOk; ++b) {
    }
    if (in.size() < 256) return 0;
    memcpy(out.data(), in.data(), 256);
    zemsEncodeZfpInit_32f(enc.data(), (int32_t)enc.size(), s);
    zemsEncodeZfpSet_32f(p[0], p[1], p[2], p[3], s);
    for (unsigned b = 0; b < blocks && zemsEncodeZfp444_32f(out.data(), 16, 64, s) == zemStatusOk; ++b) {
    }
    zemsEncodeZfpFlush_32f(s);
    return 0;
}
