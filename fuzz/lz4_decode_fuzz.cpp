// The plain LZ4 block decoder on arbitrary input: the first two bytes choose the output
// capacity; input and output are exact-size heap blocks, so ASan catches any access past them.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "zemdc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    const int32_t cap = 1 + (data[0] | data[1] << 8) * 4;
    const size_t n = size - 2;
    uint8_t* in = (uint8_t*)malloc(n);
    uint8_t* out = (uint8_t*)malloc((size_t)cap);
    memcpy(in, data + 2, n);
    int32_t produced = cap;
    zemStatus st = zemsDecodeLZ4_8u(in, (int32_t)n, out, &produced);
    if (st != zemStatusOk && st != zemStatusSrcTooShort && st != zemStatusDstTooSmall && st != zemStatusError &&
        st != zemStatusSize)
        abort();
    if ((st == zemStatusOk || st == zemStatusSrcTooShort || st == zemStatusDstTooSmall) &&
        (produced < 0 || produced > cap))
        abort();
    // Consumed counts from the in/out form agree with the plain form's produced count.
    int32_t consumed = (int32_t)n, produced2 = cap;
    zemStatus st2 = zemsDecodeLZ4Dict_8u(in, &consumed, out, 0, &produced2, nullptr, 0);
    if (st2 != st || (st >= 0 && (produced2 != produced || consumed < 0 || consumed > (int32_t)n))) abort();
    free(in);
    free(out);
    return 0;
}
