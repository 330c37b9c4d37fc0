// The .bz2 reader on hostile input: one-shot, and in pieces through small output buffers; both
// must agree on what they produce.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "bz2_reader.h"

using zem::stream::Bz2Result;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const size_t piece = 1 + data[0] % 64;
    data += 1, size -= 1;
    static std::vector<uint8_t> whole(1 << 20);
    size_t n = 0;
    const Bz2Result r1 = zem::stream::bz2_decompress(data, size, whole.data(), whole.size(), &n);

    static zem::stream::Bz2Reader* reader = new zem::stream::Bz2Reader();
    reader->reset();
    std::vector<uint8_t> got;
    Bz2Result r2 = Bz2Result::Ok;
    while (got.size() < whole.size()) {
        std::vector<uint8_t> in(data, data + (size < piece ? size : piece)), out(piece * 7);
        const uint8_t* p = in.data();
        size_t il = in.size(), ol = out.size();
        uint8_t* q = out.data();
        r2 = reader->run(p, il, q, ol);
        got.insert(got.end(), out.data(), q);
        data += in.size() - il, size -= in.size() - il;
        if (r2 == Bz2Result::End && size > 0) continue;
        if (r2 != Bz2Result::Ok) break;
        if (il == in.size() && ol == out.size() && size == 0) break;
    }
    const size_t common = got.size() < n ? got.size() : n;
    if (common && memcmp(got.data(), whole.data(), common) != 0) abort();
    if (r1 == Bz2Result::End && got.size() < n) abort();
    return 0;
}
