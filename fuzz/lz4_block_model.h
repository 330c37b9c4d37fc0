// A strict reading of the LZ4 block format for the encoder fuzz targets: whatever an encoder
// writes must pass it, so it refuses what a lenient decoder would let by (offset 0, a match
// reaching before the history, a block ending inside a sequence).
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

namespace fuzz {

// Appends the block's bytes to `out`, which already holds the usable history; false on any
// sequence that the format does not allow or that reaches before the history.
inline bool decode_block(const uint8_t* b, size_t n, std::vector<uint8_t>& out) {
    size_t i = 0;
    while (i < n) {
        uint8_t tok = b[i++];
        size_t lit = tok >> 4;
        if (lit == 15)
            for (uint8_t x = 255; x == 255;) {
                if (i >= n) return false;
                lit += (x = b[i++]);
            }
        if (lit > n - i) return false;
        out.insert(out.end(), b + i, b + i + lit);
        i += lit;
        if (i == n) break;
        if (n - i < 2) return false;
        size_t dist = b[i] | (size_t)b[i + 1] << 8;
        i += 2;
        size_t len = (tok & 15u) + 4;
        if ((tok & 15) == 15)
            for (uint8_t x = 255; x == 255;) {
                if (i >= n) return false;
                len += (x = b[i++]);
            }
        if (dist == 0 || dist > out.size()) return false;
        for (size_t k = 0; k < len; ++k) out.push_back(out[out.size() - dist]);
    }
    return true;
}

}  // namespace fuzz
