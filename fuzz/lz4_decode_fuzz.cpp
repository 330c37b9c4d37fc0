// The LZ4 block decoder on arbitrary input: the plain form, then the dictionary form with no,
// a prefix or a separate dictionary. Byte 0 picks the dictionary form and length, byte 1 the
// output kept before the decoding position, byte 2 the capacity (in steps of 16 bytes, its top
// values in steps of 2 KiB: the decoder changes loops only after 16 KiB of output); the
// dictionary is a fixed pattern. Without a dictionary both forms must agree on status and counts.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "zemdc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    const int form = data[0] % 3;  // 0 none, 1 prefix, 2 separate
    const int32_t dict_len = form ? 1 + (data[0] / 3) * 97 : 0, kept = data[1],
                  cap = data[2] < 224 ? 1 + data[2] * 16 : 1 + (data[2] - 223) * 2048;
    const size_t n = size - 3;
    uint8_t* in = (uint8_t*)malloc(n);
    memcpy(in, data + 3, n);
    uint8_t* dict = (uint8_t*)malloc((size_t)dict_len + 1);
    for (int32_t i = 0; i < dict_len; ++i) dict[i] = (uint8_t)(i * 7);
    uint8_t* dst = (uint8_t*)calloc(1, (size_t)(kept + dict_len + cap));
    int32_t produced = cap;
    const zemStatus st = zemsDecodeLZ4_8u(in, (int32_t)n, dst, &produced);
    if (st != zemStatusOk && st != zemStatusSrcTooShort && st != zemStatusDstTooSmall && st != zemStatusError &&
        st != zemStatusSize)
        abort();
    if (st >= 0 && (produced < 0 || produced > cap)) abort();
    int32_t consumed = (int32_t)n, produced2 = cap;
    zemStatus st2;
    if (form == 1) {
        memcpy(dst + kept, dict, (size_t)dict_len);
        st2 = zemsDecodeLZ4Dict_8u(in, &consumed, dst + kept, dict_len, &produced2, dst + kept, dict_len);
    } else {
        st2 = zemsDecodeLZ4Dict_8u(in, &consumed, dst, kept + dict_len, &produced2, form ? dict : nullptr, dict_len);
    }
    if (st2 >= 0 && (produced2 < 0 || produced2 > cap || consumed < 0 || consumed > (int32_t)n)) abort();
    if (form == 0 && (st2 != st || (st >= 0 && produced2 != produced))) abort();
    free(in);
    free(dict);
    free(dst);
    return 0;
}
