// The raw/zlib/gzip stream layer on hostile input: one-shot, and in pieces through fresh
// output buffers (the window path); both must agree on what they produce.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "inflate_stream.h"

using zem::stream::Format;
using zem::stream::InflateResult;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    Format f = data[0] % 3 == 0 ? Format::Raw : data[0] % 3 == 1 ? Format::Zlib : Format::Gzip;
    size_t piece = 1 + data[1] % 64, n = 0;
    data += 2, size -= 2;
    static uint8_t whole[1 << 17];
    InflateResult r1 = zem::stream::inflate_buffer(f, data, size, whole, sizeof whole, &n);

    static zem::stream::Inflater* inf = new zem::stream::Inflater(f);
    *inf = zem::stream::Inflater(f);
    std::vector<uint8_t> got;
    uint8_t buf[64];
    InflateResult r2 = InflateResult::Ok;
    while (got.size() < sizeof whole) {
        size_t give = size < piece ? size : piece, il = give, ol = piece;
        uint8_t* q = buf;
        r2 = inf->run(data, il, q, ol);
        got.insert(got.end(), buf, q);
        size -= give - il;
        if (r2 == InflateResult::End && f == Format::Gzip && size > 0) continue;  // another member
        if (r2 != InflateResult::Ok) break;
        if (il == give && ol == piece && size == 0) break;
    }
    // Up to the smaller of the two lengths, both ways of decoding must have written the same.
    size_t common = got.size() < n ? got.size() : n;
    if (common && memcmp(got.data(), whole, common) != 0) abort();
    if (r1 == InflateResult::End && (r2 != InflateResult::End || got.size() != n)) abort();
    return 0;
}
