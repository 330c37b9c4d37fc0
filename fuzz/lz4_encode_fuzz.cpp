// The LZ4 block encoders on arbitrary input: the default, fast and safe forms, and the dictionary
// forms with history in memory or a separate dictionary, over tables that are clean, stale from
// the previous input or full of made-up positions. Outputs are exactly as large as the caller
// would make them (the documented bound, or the chosen capacity), and every block must decode,
// by the format's strict rules, to exactly the input reported as consumed.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "lz4_block_model.h"
#include "zemdc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 8) return 0;
    // Kept between inputs on purpose: a table left by another stream is one of the cases.
    static std::vector<uint8_t> table(16384);
    const uint8_t mode = data[0] % 6;
    const uint32_t cap_sel = data[1] | data[2] << 8;
    const uint32_t hist_sel = data[3] | data[4] << 8;
    const uint8_t table_kind = data[5] & 3;
    const int32_t accel = data[5] >> 2 == 63 ? 1 << 20 : 1 + (data[5] >> 2);
    uint64_t seed = data[6] | (uint64_t)data[7] << 8;
    data += 8;
    size -= 8;
    if (size < 1) return 0;

    const bool dict_mode = mode >= 3;
    const int32_t hist = dict_mode ? (int32_t)(hist_sel % size) : 0;
    const uint8_t* src = data + hist;
    const int32_t n = (int32_t)size - hist;
    const bool separate = dict_mode && hist > 0 && (mode == 4 || (mode == 5 && (seed & 1)));
    // The separate dictionary is a copy elsewhere, so no read can reach it through src.
    std::vector<uint8_t> dict(data, data + hist);

    if (table_kind == 0) {
        zemsEncodeLZ4DictHashTableInit_8u(table.data(), 1);
    } else if (table_kind == 1) {
        uint32_t* t = (uint32_t*)(void*)table.data();
        for (size_t k = 0; k < 4096; ++k) {
            seed = seed * 6364136223846793005ull + 1442695040888963407ull;
            t[k] = (uint32_t)((seed >> 33) % (2 * size + 70000));
        }
    } else if (table_kind == 3 && separate) {
        zemsEncodeLZ4DictHashTableInit_8u(table.data(), 1);
        zemsEncodeLZ4LoadDict_8u(table.data(), dict.data(), hist);
    }

    const bool bounded = mode == 1 || mode == 5;
    const int32_t bound = ZEM_LZ4_BOUND(n);
    const int32_t cap = !bounded || cap_sel >= 0x8000 ? bound : (int32_t)(1 + cap_sel % (uint32_t)bound);
    std::vector<uint8_t> out((size_t)cap);
    int32_t consumed = n, produced = cap;
    const uint8_t* d = separate ? dict.data() : nullptr;
    const int32_t dl = separate ? hist : 0;
    zemStatus st;
    switch (mode) {
        case 0: st = zemsEncodeLZ4_8u(src, n, out.data(), &produced, table.data()); break;
        case 1: st = zemsEncodeLZ4Safe_8u(src, &consumed, out.data(), &produced, table.data()); break;
        case 2: st = zemsEncodeLZ4Fast_8u(src, n, out.data(), &produced, table.data(), accel); break;
        case 3:
        case 4: st = zemsEncodeLZ4Dict_8u(src, hist, n, out.data(), &produced, table.data(), d, dl); break;
        default: st = zemsEncodeLZ4DictSafe_8u(src, hist, &consumed, out.data(), &produced, table.data(), d, dl);
    }
    if (st != zemStatusOk && !(bounded && st == zemStatusDstTooSmall)) abort();
    if (produced < 1 || produced > cap || consumed < 0 || consumed > n) abort();
    if ((st == zemStatusOk) != (consumed == n)) abort();
    std::vector<uint8_t> back(data, data + hist);
    if (!fuzz::decode_block(out.data(), (size_t)produced, back)) abort();
    if (back.size() != (size_t)hist + (size_t)consumed) abort();
    if (consumed > 0 && memcmp(back.data() + hist, src, (size_t)consumed) != 0) abort();
    return 0;
}
