// zfp blocks of arbitrary finite floats under parameters taken from the input: our stream must
// equal libzfp's bit for bit, and our decoder must give back exactly what libzfp decodes from it.
// Bytes 0-3 pick minBits, maxBits, maxPrec and minExp; the rest are the floats, 64 per block.
#include <math.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <zfp.h>

#include <vector>

#include "zemdc.h"

namespace {

constexpr size_t kMaxBlocks = 16;
// Blocks smaller than this in magnitude are coded differently by the two (ours as empty).
const float kTiny = ldexpf(1.0f, -97);

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 5) return 0;
    // Parameters libzfp accepts: minBits <= maxBits <= 4171, maxPrec 1..64, minExp >= -1074.
    const uint32_t max_bits = data[1] == 255 ? 4171 : 9 + data[1] * 16u;
    const uint32_t min_bits = data[0] % 4 == 0 ? max_bits : data[0] * max_bits / 255;
    const uint32_t max_prec = 1 + data[2] % 64;
    const int32_t min_exp = data[3] == 255 ? -1074 : int32_t(int8_t(data[3]));
    data += 4, size -= 4;
    const size_t blocks = (size / 4 + 63) / 64 < kMaxBlocks ? (size / 4 + 63) / 64 : kMaxBlocks;
    if (blocks == 0) return 0;
    std::vector<float> in(blocks * 64, 0.0f);
    memcpy(in.data(), data, size < in.size() * 4 ? size : in.size() * 4);
    for (size_t b = 0; b < blocks; ++b) {
        float most = 0;
        for (size_t i = 0; i < 64; ++i) {
            float& v = in[b * 64 + i];
            if (!isfinite(v)) v = 0;
            most = fabsf(v) > most ? fabsf(v) : most;
        }
        if (most < kTiny)
            for (size_t i = 0; i < 64; ++i) in[b * 64 + i] = 0;
    }

    const size_t bytes = (ZEM_ZFP_BOUND(blocks, min_bits, max_bits) + 7) / 8 * 8;
    std::vector<uint8_t> ours(bytes, 0), ref(bytes, 0);
    std::vector<uint8_t> state(576);
    zemZfpState* s = reinterpret_cast<zemZfpState*>(state.data());
    if (zemsEncodeZfpInit_32f(ours.data(), int32_t(bytes), s) != zemStatusOk ||
        zemsEncodeZfpSet_32f(int32_t(min_bits), int32_t(max_bits), int32_t(max_prec), min_exp, s) != zemStatusOk)
        abort();
    for (size_t b = 0; b < blocks; ++b)
        if (zemsEncodeZfp444_32f(&in[b * 64], 16, 64, s) != zemStatusOk) abort();
    if (zemsEncodeZfpFlush_32f(s) != zemStatusOk) abort();

    bitstream* bs = stream_open(ref.data(), bytes);
    zfp_stream* z = zfp_stream_open(bs);
    if (!zfp_stream_set_params(z, min_bits, max_bits, max_prec, min_exp)) abort();
    for (size_t b = 0; b < blocks; ++b) zfp_encode_block_float_3(z, &in[b * 64]);
    zfp_stream_flush(z);
    if (ours != ref) abort();

    std::vector<float> back(64), want(64);
    zfp_stream_rewind(z);
    if (zemsDecodeZfpInit_32f(ours.data(), int32_t(bytes), s) != zemStatusOk ||
        zemsDecodeZfpSet_32f(int32_t(min_bits), int32_t(max_bits), int32_t(max_prec), min_exp, s) != zemStatusOk)
        abort();
    for (size_t b = 0; b < blocks; ++b) {
        zfp_decode_block_float_3(z, want.data());
        if (zemsDecodeZfp444_32f(s, back.data(), 16, 64) != zemStatusOk ||
            memcmp(back.data(), want.data(), 64 * sizeof(float)) != 0)
            abort();
    }
    zfp_stream_close(z);
    stream_close(bs);
    return 0;
}
