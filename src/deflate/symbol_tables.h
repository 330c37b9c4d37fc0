// The length and distance codes of the DEFLATE format (RFC 1951): base values and extra-bit
// counts, the one home that the compressor's and the decompressor's tables derive from.
#pragma once

#include <stdint.h>

namespace zem::rfc1951 {

inline constexpr uint16_t kLengthBase[29] = {3,  4,  5,  6,  7,  8,  9,  10, 11,  13,  15,  17,  19,  23, 27,
                                             31, 35, 43, 51, 59, 67, 83, 99, 115, 131, 163, 195, 227, 258};
inline constexpr uint8_t kLengthExtra[29] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                             2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
inline constexpr uint16_t kDistBase[30] = {1,    2,    3,    4,    5,    7,     9,     13,    17,  25,
                                           33,   49,   65,   97,   129,  193,   257,   385,   513, 769,
                                           1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577};
inline constexpr uint8_t kDistExtra[30] = {0, 0, 0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6,
                                           6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};

// Each code's range ends where the next one's begins (length 258 has a code of its own).
constexpr bool codes_are_contiguous() {
    for (int c = 0; c + 1 < 28; ++c)
        if (kLengthBase[c] + (1 << kLengthExtra[c]) != kLengthBase[c + 1]) return false;
    for (int s = 0; s + 1 < 30; ++s)
        if (kDistBase[s] + (1 << kDistExtra[s]) != kDistBase[s + 1]) return false;
    return kDistBase[29] + (1 << kDistExtra[29]) == 32769;
}
static_assert(codes_are_contiguous());

}  // namespace zem::rfc1951
