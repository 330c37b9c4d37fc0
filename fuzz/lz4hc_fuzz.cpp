// The high-compression encoder on arbitrary input, levels, output capacities, history layouts,
// low limits and table contents (stale tables full of positions from elsewhere): every call
// must end with 0 or 33 and a block that decodes to exactly the input it reports as consumed,
// using no history below the low limit.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "lz4_block_model.h"
#include "zemdc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 8) return 0;
    static std::vector<uint8_t> hash(131072), chain(262144);
    uint8_t* tables[2] = {hash.data(), chain.data()};
    const int32_t level = (int8_t)data[0];
    const uint8_t mode = data[1] & 3;
    const uint8_t table_kind = data[1] >> 2 & 3;
    const uint32_t cap_sel = data[2] | data[3] << 8;
    const uint32_t hist_sel = data[4] | data[5] << 8;
    const int32_t limit_sel = (int8_t)data[6];
    uint64_t seed = data[7];
    data += 8;
    size -= 8;
    if (size < 1) return 0;

    // Tables: clean, left from the previous input, or filled with positions near this one.
    if (table_kind == 0) {
        zemsEncodeLZ4HCHashTableInit_8u(tables);
    } else if (table_kind == 1) {
        uint32_t* h = (uint32_t*)(void*)hash.data();
        uint32_t* c = (uint32_t*)(void*)chain.data();
        for (size_t k = 0; k < 98304; ++k) {
            seed = seed * 6364136223846793005ull + 1442695040888963407ull;
            (k < 32768 ? h[k] : c[k - 32768]) = (uint32_t)((seed >> 33) % (2 * size + 70000));
        }
    }

    const int32_t hist = (int32_t)(hist_sel % size);
    const uint8_t* src = data + hist;
    const int32_t src_len = (int32_t)size - hist;
    const int32_t bound = src_len + src_len / 255 + 16;
    const int32_t cap = cap_sel >= 0x8000 ? bound : (int32_t)(cap_sel % (uint32_t)(bound + 1));
    std::vector<uint8_t> out((size_t)cap + 1);
    // A separate copy of the history, for the separate-dictionary call.
    std::vector<uint8_t> dict(data, data + hist);
    dict.push_back(0);

    int32_t len = src_len, produced = cap;
    zemStatus st;
    int32_t usable;  // history bytes a match may use
    switch (mode) {
        case 0:  // history in memory, no dictionary: none of it is usable
            st = zemsEncodeLZ4HC_8u(src, hist, &len, out.data(), &produced, tables, nullptr, 0, level);
            usable = 0;
            break;
        case 1:  // the history declared in place
            st = zemsEncodeLZ4HC_8u(src, hist, &len, out.data(), &produced, tables, data, hist, level);
            usable = hist;
            break;
        case 2:  // the history as a separate dictionary
            st = zemsEncodeLZ4HC_8u(src, hist, &len, out.data(), &produced, tables, hist ? dict.data() : nullptr,
                                    hist, level);
            usable = hist;
            break;
        default: {  // a caller's low limit inside (or outside) the in-memory history
            const int32_t limit = hist ? limit_sel % (hist + 1) : limit_sel;
            st = zemsEncodeLZ4HCDictLimit_8u(src, hist, &len, out.data(), &produced, tables, nullptr, 0, level,
                                             limit);
            usable = limit == 0 ? 0 : limit < 0 ? hist : hist - limit;
            if (limit >= hist) usable = 0;
            break;
        }
    }
    if (st != zemStatusOk && st != zemStatusDstTooSmall) abort();
    if (produced < 0 || produced > cap || len < 0 || len > src_len) abort();
    if ((st == zemStatusOk) != (len == src_len)) abort();
    std::vector<uint8_t> back(src - usable, src);
    if (!fuzz::decode_block(out.data(), (size_t)produced, back)) abort();
    if (back.size() != (size_t)usable + (size_t)len) abort();
    if (len > 0 && memcmp(back.data() + usable, src, (size_t)len) != 0) abort();
    return 0;
}
