// The .lzo reader on arbitrary input, whole and in two pieces split at byte 0's position: both
// must agree on the result and on the bytes produced.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <vector>

#include "lzo_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const size_t n = size - 1, cut = n ? data[0] % (n + 1) : 0;
    const uint8_t* in = data + 1;
    std::vector<uint8_t> a, b;
    const auto ra = zem::stream::lzo_file_decompress(in, n, a);
    zem::stream::LzoReader r;
    auto rb = r.feed(in, cut, b);
    if (rb == zem::stream::LzoResult::Ok) rb = r.feed(in + cut, n - cut, b);
    if (rb == zem::stream::LzoResult::Ok) rb = zem::stream::LzoResult::Truncated;
    if (ra != rb || a != b) abort();
    return 0;
}
