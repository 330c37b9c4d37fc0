// The 16-bit symbol alphabet of a block between zero-run coding and the Huffman stage.
#pragma once

#include <stdint.h>

namespace zem::bz2 {

// The two digits of a zero run (bijective base 2: RUNA is 1, RUNB is 2); a move-to-front
// position m >= 1 is the symbol m + 1, and the end of the block is the dictionary size + 1.
inline constexpr uint16_t kRunA = 0;
inline constexpr uint16_t kRunB = 1;
// The largest alphabet: both digits, positions 1..255 and the end of the block.
inline constexpr int32_t kMaxAlphabet = 258;

}  // namespace zem::bz2
