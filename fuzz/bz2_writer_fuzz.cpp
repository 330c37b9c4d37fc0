// The .bz2 writer on arbitrary input in arbitrary pieces: the stream must not depend on the
// pieces, and libbz2 must decode it to exactly the input.
#include <bzlib.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "bz2_writer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const int level = 1 + data[0] % 9;
    const uint32_t piece_seed = data[1];
    data += 2;
    size -= 2;
    // Small inputs are stretched by repeating them, so that block ends and long runs are reached.
    std::vector<uint8_t> in;
    const size_t copies = size == 0 ? 0 : (piece_seed & 0x80) ? 1 + (150000 / size) % 64 : 1;
    for (size_t k = 0; k < copies; ++k) in.insert(in.end(), data, data + size);

    std::vector<uint8_t> whole = zem::stream::bz2_compress(in.data(), in.size(), level);
    zem::stream::Bz2Writer w(level);
    std::vector<uint8_t> pieces;
    uint32_t x = piece_seed * 2654435761u + 1;
    for (size_t at = 0; at < in.size();) {
        x = x * 1103515245u + 12345u;
        size_t n = 1 + (x >> 16) % 4096;
        if (n > in.size() - at) n = in.size() - at;
        w.write(in.data() + at, n, pieces);
        at += n;
    }
    w.finish(pieces);
    if (pieces != whole) abort();

    std::vector<uint8_t> back(in.size() + 1);
    unsigned int n = (unsigned int)back.size();
    if (BZ2_bzBuffToBuffDecompress((char*)back.data(), &n, (char*)whole.data(), (unsigned int)whole.size(), 0, 0) !=
            BZ_OK ||
        n != in.size() || (n > 0 && memcmp(back.data(), in.data(), n) != 0))
        abort();
    return 0;
}
