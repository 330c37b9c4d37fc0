// zfp: arbitrary bytes decoded as a stream under parameters taken from the input, and the same
// bytes encoded as blocks of floats into a short buffer. Every buffer has exactly its size, so
// the sanitizer sees any access past an end.
#include <stdint.h>
#include <string.h>

#include <vector>

#include "zemdc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 8) return 0;
    int32_t p[4];
    // Parameters around the interesting ranges, with an occasional extreme one.
    p[0] = data[0] == 255 ? 2147483647 : (int32_t)data[0] * 9;  // minBits
    p[1] = data[1] == 255 ? -5 : (int32_t)data[1] * 10;         // maxBits
    p[2] = (int32_t)(data[2] % 70) - 3;                          // maxPrec
    p[3] = (int32_t)(int8_t)data[3] * 2;                          // minExp
    unsigned blocks = 1 + data[4] % 16;
    data += 8;
    size -= 8;
    if (size == 0) return 0;

    std::vector<uint8_t> state(576);
    zemZfpState* s = (zemZfpState*)state.data();
    std::vector<uint8_t> in(data, data + size);
    std::vector<float> out(64);
    if (zemsDecodeZfpInit_32f(in.data(), (int32_t)in.size(), s) != zemStatusOk) __builtin_trap();
    zemsDecodeZfpSet_32f(p[0], p[1], p[2], p[3], s);
    for (unsigned b = 0; b < blocks; ++b)
        if (zemsDecodeZfp444_32f(s, out.data(), 16, 64) != zemStatusOk) break;

    if (size >= 256) {
        std::vector<float> block(64);
        memcpy(block.data(), data, 256);
        std::vector<uint8_t> enc(1 + data[255] % 300);
        zemsEncodeZfpInit_32f(enc.data(), (int32_t)enc.size(), s);
        zemsEncodeZfpSet_32f(p[0], p[1], p[2], p[3], s);
        for (unsigned b = 0; b < blocks; ++b)
            if (zemsEncodeZfp444_32f(block.data(), 16, 64, s) != zemStatusOk) break;
        zemsEncodeZfpFlush_32f(s);
    }
    return 0;
}
