// The Huffman decoding stage on hostile bits: the context and the symbols, whole and in pieces
// of input and output given by the first bytes; both ways must agree on statuses and symbols.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "zemdc.h"

namespace {

struct Result {
    zemStatus unpack, decode;
    std::vector<uint16_t> syms;
};

Result run(const uint8_t* data, size_t size, int32_t dict, size_t in_step, size_t out_step) {
    int32_t state_size = 0;
    zemsDecodeHuffGetSize_BZ2_8u16u(900000, &state_size);
    std::vector<uint64_t> state((size_t(state_size) + 7) / 8);
    auto* st = reinterpret_cast<zemDecodeHuffState_BZ2*>(state.data());
    zemsDecodeHuffInit_BZ2_8u16u(dict, st);
    Result res{zemStatusSrcTooShort, zemStatusSrcTooShort, {}};
    uint32_t code = 0;
    int32_t bits = 0;
    size_t pos = 0;
    bool unpacked = false;
    while (pos < size && res.syms.size() < 200000) {
        const size_t n = size - pos < in_step ? size - pos : in_step;
        std::vector<uint8_t> in(data + pos, data + pos + n);
        const uint8_t* s = in.data();
        int32_t left = int32_t(n);
        if (!unpacked) {
            res.unpack = zemsUnpackHuffContext_BZ2_8u16u(&code, &bits, &s, &left, st);
            if (res.unpack != zemStatusOk && res.unpack != zemStatusSrcTooShort) return res;
            unpacked = res.unpack == zemStatusOk;
        }
        while (unpacked) {
            std::vector<uint16_t> o(out_step);
            int32_t room = int32_t(out_step);
            res.decode = zemsDecodeHuff_BZ2_8u16u(&code, &bits, &s, &left, o.data(), &room, st);
            if (room < 0 || size_t(room) > out_step || bits < 0 || bits > 31) abort();
            res.syms.insert(res.syms.end(), o.begin(), o.begin() + room);
            if (res.decode != zemStatusDstTooSmall) break;
        }
        if (unpacked && res.decode != zemStatusSrcTooShort) return res;
        pos += n - size_t(left);
        if (left != 0) abort();  // a call that wants more input has taken all it was given
    }
    return res;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    const int32_t dict = 1 + data[0];
    const size_t in_step = 1 + data[1] % 50;
    data += 2, size -= 2;
    Result whole = run(data, size, dict, size, 1 << 20), parts = run(data, size, dict, in_step, 1 + in_step % 7);
    if (whole.unpack != parts.unpack) abort();
    const size_t common = whole.syms.size() < parts.syms.size() ? whole.syms.size() : parts.syms.size();
    if (memcmp(whole.syms.data(), parts.syms.data(), common * 2) != 0) abort();
    if (whole.decode != zemStatusSrcTooShort && (whole.decode != parts.decode || whole.syms != parts.syms)) abort();
    return 0;
}
