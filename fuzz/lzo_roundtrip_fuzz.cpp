// The LZO encoder in each method on arbitrary input: liblzo2 and both of our decoders must give
// back exactly the input, and the safe decoder must stop cleanly (with correct bytes so far)
// when the stream or the output room is cut short. Byte 0 picks the method and the cuts.
#include <lzo/lzo1x.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "zemdc.h"

namespace {

// Large enough to cross a segment boundary of the segmented method when the input is stretched.
constexpr uint32_t kMaxInput = ZEM_LZO_SEGMENT_SIZE + 4096;

zemLZOState_8u* state_for(int method) {
    static std::vector<uint8_t> states[3];
    std::vector<uint8_t>& s = states[method];
    if (s.empty()) {
        uint32_t bytes = 0;
        if (zemsEncodeLZOGetSize(zemLZOMethod(method), kMaxInput, &bytes) != zemStatusOk) abort();
        s.resize(bytes);
        if (zemsEncodeLZOInit_8u(zemLZOMethod(method), kMaxInput, reinterpret_cast<zemLZOState_8u*>(s.data())) !=
            zemStatusOk)
            abort();
    }
    return reinterpret_cast<zemLZOState_8u*>(s.data());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool ready = lzo_init() == LZO_E_OK;
    if (!ready) abort();
    if (size < 2) return 0;
    const int method = data[0] % 3;
    const uint8_t cut = data[1];
    data += 2, size -= 2;
    // Short inputs are stretched by repetition now and then, so that long matches, long literal
    // runs and (segmented) a segment boundary are reached.
    std::vector<uint8_t> in(data, data + size);
    in.reserve(1);  // a real pointer even for the empty input, which is valid
    if ((cut & 0xE0) == 0xE0 && size > 0)
        while (in.size() < kMaxInput - size) in.insert(in.end(), data, data + size);
    if (in.size() > kMaxInput) in.resize(kMaxInput);
    const uint32_t n = uint32_t(in.size());

    std::vector<uint8_t> z(ZEM_LZO_BOUND(size_t(n)));
    uint32_t z_len = uint32_t(z.size());
    if (zemsEncodeLZO_8u(in.data(), n, z.data(), &z_len, state_for(method)) != zemStatusOk || z_len > z.size())
        abort();
    z.resize(z_len);  // exactly sized, so a decoder's overread is seen

    std::vector<uint8_t> out(size_t(n) + 1);
    lzo_uint ref_len = out.size();
    if (lzo1x_decompress_safe(z.data(), z_len, out.data(), &ref_len, nullptr) != LZO_E_OK || ref_len != n ||
        memcmp(out.data(), in.data(), n) != 0)
        abort();
    uint32_t got = uint32_t(out.size());
    if (zemsDecodeLZOSafe_8u(z.data(), z_len, out.data(), &got) != zemStatusOk || got != n ||
        memcmp(out.data(), in.data(), n) != 0)
        abort();
    got = uint32_t(out.size());
    if (zemsDecodeLZO_8u(z.data(), z_len, out.data(), &got) != zemStatusOk || got != n ||
        memcmp(out.data(), in.data(), n) != 0)
        abort();

    // Cut short: a prefix of the stream, or an output room below the input's size.
    const uint32_t keep = uint32_t(uint64_t(z_len) * (cut & 0x7F) / 128);
    std::vector<uint8_t> part(z.data(), z.data() + keep);
    std::vector<uint8_t> small(n * (cut & 0x7F) / 128 + 1);
    for (int k = 0; k < 2; ++k) {
        const uint8_t* src = k ? z.data() : part.data();
        const uint32_t src_len = k ? z_len : keep;
        uint8_t* dst = k ? small.data() : out.data();
        got = uint32_t(k ? small.size() : out.size());
        if (src_len == 0) continue;
        const zemStatus st = zemsDecodeLZOSafe_8u(src, src_len, dst, &got);
        if (st == zemStatusOk) {
            if (k == 0 || got != n) abort();  // a cut stream has no end marker
        } else if (st == zemStatusSrcTooShort || st == zemStatusDstTooSmall) {
            if (got > n || memcmp(dst, in.data(), got) != 0) abort();
        } else if (!(k == 0 && st == zemStatusError)) {
            abort();
        }
    }
    return 0;
}
