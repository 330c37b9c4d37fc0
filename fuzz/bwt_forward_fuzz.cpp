// The forward block sort on arbitrary blocks: the block, or the block made repetitive (repeated
// whole, or with a period copied through it), through the hint the input picks, must agree with
// the suffix sort and invert back to the block.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "zemdc.h"

namespace {

std::vector<uint8_t> invert(const std::vector<uint8_t>& last, uint32_t index) {
    size_t n = last.size();
    std::vector<uint32_t> start(257, 0), next(n);
    for (uint8_t c : last) ++start[c + 1];
    for (int c = 0; c < 256; ++c) start[c + 1] += start[c];
    for (size_t i = 0; i < n; ++i) next[start[last[i]]++] = uint32_t(i);
    std::vector<uint8_t> out(n);
    uint32_t p = index;
    for (size_t k = 0; k < n; ++k) {
        p = next[p];
        out[k] = last[p];
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    const zemBWTSort hint = zemBWTSort(data[0] % 3);
    const uint8_t shape = data[1] % 4;
    const uint32_t period = 1 + data[2];
    data += 3;
    size -= 3;
    std::vector<uint8_t> block(data, data + size);
    if (shape == 1 && size > period) {
        for (size_t i = period; i < size; ++i) block[i] = block[i - period];
    } else if (shape == 2) {
        for (int k = 0; k < 3; ++k) block.insert(block.end(), data, data + size);
    }
    if (block.empty()) return 0;
    const uint32_t n = uint32_t(block.size());

    uint32_t buf_size = 0;
    if (zemsBWTFwdGetBufSize_SelectSort_8u(n, &buf_size, hint) != zemStatusOk) abort();
    // Exactly sized, so that a read or write past any of them is caught.
    uint8_t* buf = (uint8_t*)malloc(buf_size);
    uint8_t* dst = (uint8_t*)malloc(n);
    uint8_t* ref = (uint8_t*)malloc(n);
    uint32_t index = 0, ref_index = 0;
    if (zemsBWTFwd_SelectSort_8u(block.data(), dst, n, &index, buf, hint) != zemStatusOk) abort();
    if (zemsBWTFwd_SelectSort_8u(block.data(), ref, n, &ref_index, buf, zemBWTSortSuffix) != zemStatusOk) abort();
    if (index != ref_index || memcmp(dst, ref, n) != 0) abort();
    if (index >= n || invert(std::vector<uint8_t>(dst, dst + n), index) != block) abort();
    free(buf);
    free(dst);
    free(ref);
    return 0;
}
