// The LZ4 dictionary decoder on arbitrary input, in its prefix and separate-dictionary forms.
// Byte 0 picks the form and the dictionary length, byte 1 the extra output kept before the
// decoding position, byte 2 the capacity; the dictionary is a fixed pattern.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "zemdc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    const bool prefix = data[0] & 1;
    const int32_t dict_len = 1 + (data[0] >> 1) * 97;
    const int32_t kept = data[1];
    const int32_t cap = 1 + data[2] * 16;
    const size_t n = size - 3;
    uint8_t* in = (uint8_t*)malloc(n);
    memcpy(in, data + 3, n);
    uint8_t* dict = (uint8_t*)malloc((size_t)dict_len);
    for (int32_t i = 0; i < dict_len; ++i) dict[i] = (uint8_t)(i * 7);
    const int32_t dst_idx = dict_len + kept;
    uint8_t* dst = (uint8_t*)malloc((size_t)(dst_idx + cap));
    memset(dst, 0, (size_t)(dst_idx + cap));
    int32_t consumed = (int32_t)n, produced = cap;
    zemStatus st;
    if (prefix) {
        memcpy(dst + kept, dict, (size_t)dict_len);
        st = zemsDecodeLZ4Dict_8u(in, &consumed, dst + kept, dict_len, &produced, dst + kept, dict_len);
    } else {
        st = zemsDecodeLZ4Dict_8u(in, &consumed, dst, dst_idx, &produced, dict, dict_len);
    }
    if (st >= 0 && (produced < 0 || produced > cap || consumed < 0 || consumed > (int32_t)n)) abort();
    free(in);
    free(dict);
    free(dst);
    return 0;
}
