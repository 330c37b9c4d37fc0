// The fused block decoder on hostile symbols, dictionaries, capacities and indices: a clear
// status and no access outside its buffers, each allocated at its exact size.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "zemdc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Header: 32 bytes of in-use bits, two bytes of capacity, two of index, one dictionary
    // adjustment; the rest are the symbols, two bytes each.
    if (size < 39) return 0;
    std::vector<uint8_t> in_use(256);
    uint32_t dict = 0;
    for (int v = 0; v < 256; ++v) dict += in_use[v] = data[v / 8] >> (v % 8) & 1;
    const uint32_t cap = 1 + (uint32_t(data[32]) | uint32_t(data[33]) << 8);
    const int32_t index = int32_t(uint32_t(data[34]) | uint32_t(data[35]) << 8) % int32_t(cap);
    if (data[36] == 0xFF) dict += 1;  // the deliberate silent success
    const size_t n = (size - 37) / 2;
    if (n == 0) return 0;
    std::vector<uint16_t> syms(n);
    memcpy(syms.data(), data + 37, n * 2);
    uint32_t work_size = 0;
    zemsDecodeBlockGetSize_BZ2_8u(cap, &work_size);
    std::vector<uint8_t> dst(cap), work(work_size);
    uint32_t len = cap;
    const zemStatus r = zemsDecodeBlock_BZ2_16u8u(syms.data(), int32_t(n), dst.data(), &len, index, dict,
                                                  in_use.data(), work.data());
    if (r != zemStatusOk && r != zemStatusError) abort();
    if (len > cap) abort();
    return 0;
}
