// The .bz2 writer, read back by our reader (one-shot, and in pieces through small outputs) and
// by libbz2: every way must give exactly the input. Inputs are small and the block size is the
// smallest now and then (a stretched input then spans blocks), so that runs reach depth.
#include <bzlib.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "bz2_reader.h"
#include "bz2_writer.h"

using zem::stream::Bz2Result;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const int level = 1 + data[0] % 9;
    const size_t piece = 1 + data[1] % 97;
    const bool stretch = (data[0] & 0xC0) == 0xC0 && level == 1;
    data += 2, size -= 2;
    if (size > 8192) size = 8192;
    std::vector<uint8_t> in(data, data + size);
    // Stretching past 100k bytes puts a block end inside a long run, where the first run-length
    // stage must cut it the way bzip2 does.
    if (stretch && size > 0)
        while (in.size() < 120000) in.insert(in.end(), data, data + size);

    std::vector<uint8_t> z = zem::stream::bz2_compress(in.data(), in.size(), level);

    std::vector<uint8_t> back(in.size() + 1);
    size_t got = 0, used = 0;
    if (zem::stream::bz2_decompress(z.data(), z.size(), back.data(), back.size(), &got, &used) != Bz2Result::End ||
        got != in.size() || used != z.size() || memcmp(back.data(), in.data(), got) != 0)
        abort();

    static zem::stream::Bz2Reader* reader = new zem::stream::Bz2Reader();
    reader->reset();
    std::vector<uint8_t> pieces;
    const uint8_t* p = z.data();
    size_t left = z.size();
    Bz2Result r = Bz2Result::Ok;
    while (r == Bz2Result::Ok) {
        std::vector<uint8_t> chunk(p, p + (left < piece ? left : piece)), out(piece);
        const uint8_t* c = chunk.data();
        size_t cl = chunk.size(), ol = out.size();
        uint8_t* q = out.data();
        r = reader->run(c, cl, q, ol);
        p += chunk.size() - cl, left -= chunk.size() - cl;
        pieces.insert(pieces.end(), out.data(), q);
        if (pieces.size() > in.size()) abort();
        if (cl == chunk.size() && q == out.data() && r == Bz2Result::Ok) abort();  // no progress
    }
    if (r != Bz2Result::End || left != 0 || pieces != in) abort();

    unsigned int ref_len = unsigned(back.size());
    if (BZ2_bzBuffToBuffDecompress(reinterpret_cast<char*>(back.data()), &ref_len, reinterpret_cast<char*>(z.data()),
                                   unsigned(z.size()), 0, 0) != BZ_OK ||
        ref_len != in.size() || memcmp(back.data(), in.data(), in.size()) != 0)
        abort();
    return 0;
}
