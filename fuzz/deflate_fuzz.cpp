// The match finders and the Huffman emission on arbitrary input, levels, record rooms, history
// lengths, window sizes and table contents (near positions, far garbage, or left from the last
// input): every call ends with 0 or 33, its records rebuild exactly the input it consumed from
// the history it was given, and their emission stays within the documented room.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "zemdc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 8) return 0;
    static std::vector<uint32_t> head(65536), prev(32768);
    static uint8_t work[ZEM_DEFLATE_SLOW_WORK_SIZE];
    const int which = data[0] % 3;
    const int32_t level = 1 + data[0] / 3 % 9;
    const uint32_t win = 256u << (data[1] % 8);
    const uint32_t hash_size = 256u << (data[1] >> 3 & 7);
    const int32_t flush = data[1] >> 6;
    const uint32_t cap = 1 + (data[2] | data[3] << 8) % 5000;
    const uint8_t table_kind = data[4] & 3;
    uint64_t seed = data[5];
    data += 8;
    size -= 8;
    const size_t hist = size ? (size_t(data[-2]) * 97) % (size + 1) : 0;

    if (table_kind < 2) {
        for (size_t k = 0; k < head.size() + prev.size(); ++k) {
            seed = seed * 6364136223846793005ull + 1442695040888963407ull;
            uint32_t v = table_kind == 0 ? uint32_t(seed >> 32) : uint32_t((seed >> 33) % (2 * size + 600));
            (k < head.size() ? head[k] : prev[k - head.size()]) = v;
        }
    }
    // The input on its own heap block, so that the sanitizer sees any read past either end.
    uint8_t* buf = static_cast<uint8_t*>(malloc(size ? size : 1));
    memcpy(buf, data, size);
    std::vector<uint8_t> ll(cap), out(buf, buf + hist);
    std::vector<uint16_t> dist(cap);
    uint32_t lit[286] = {}, ds[30] = {};
    const uint8_t* p = buf + hist;
    uint32_t left = uint32_t(size - hist), idx = uint32_t(hist) + 300;
    for (;;) {
        uint32_t n = cap;
        const uint32_t before = left;
        zemStatus st =
            which == 0 ? zemsDeflateLZ77Fast_8u(&p, &left, &idx, buf, win, head.data(), prev.data(), hash_size, ll.data(),
                                                dist.data(), &n, lit, ds, level, flush)
            : which == 1
                ? zemsDeflateLZ77_8u(&p, &left, &idx, buf, win, head.data(), prev.data(), hash_size, ll.data(),
                                     dist.data(), &n, lit, ds, level, flush)
                : zemsDeflateLZ77Slow_8u(&p, &left, &idx, buf, win, head.data(), prev.data(), hash_size, ll.data(),
                                         dist.data(), &n, lit, ds, level, flush, work);
        if (st != 0 && st != zemStatusDstTooSmall) abort();
        for (uint32_t i = 0; i < n; ++i) {
            if (!dist[i]) {
                out.push_back(ll[i]);
                continue;
            }
            if (dist[i] > win || dist[i] > out.size()) abort();
            for (uint32_t k = 0; k < ll[i] + 3u; ++k) out.push_back(out[out.size() - dist[i]]);
        }
        // The emission of these records with codes from their counts (or, half the time, codes
        // with garbage lengths) stays within 6 bytes a record plus one word.
        zemDeflateHuffCode lc[286], dc[30];
        lit[256] = 1;
        zemsDeflateLZ77FastestGenHuffTable_8u(lit, ds, lc, dc);
        if (seed & 1)
            for (auto& c : lc) c.len = uint16_t(c.len * 4099u);
        std::vector<uint8_t> bits(size_t(n) * 6 + 4);
        uint16_t code = uint16_t(seed);
        uint32_t held = uint32_t(seed >> 8) % 40, at = 0;
        zemsDeflateHuff_8u(ll.data(), dist.data(), n, &code, &held, lc, dc, bits.data(), &at);
        if (at > bits.size() || held >= 8) abort();
        if (st == 0) break;
        if (left >= before) abort();
    }
    if (out.size() != size - left || (!out.empty() && memcmp(out.data(), buf, out.size()) != 0)) abort();
    if (flush == zemDeflateNoFlush ? left > 262 && size - hist > 262 : left != 0) abort();
    free(buf);
    return 0;
}
