// The Huffman decoding state behind the opaque zemDecodeHuffState_BZ2: the block's tables and
// selectors, the fast lookup tables built from them, and where a resumable call left off.
#pragma once

#include <stdint.h>

#include "blocksort/symbols.h"
#include "zemdc.h"

namespace zem::bz2 {

inline constexpr int32_t kMinTables = 2, kMaxTables = 6;
inline constexpr int32_t kGroupSize = 50;  // symbols coded with one table
// Selectors a block of the format's largest size can use; more may be written and are skipped.
inline constexpr int32_t kMaxSelectors = 18002;
inline constexpr int32_t kMaxCodeLen = 20;
// Codes up to this length decode with one table lookup; longer ones by canonical ranges.
inline constexpr int32_t kFastBits = 10;
inline constexpr int32_t kLargestBlock = 900000;

struct HuffTable {
    // sym << 5 | len for a code of len <= kFastBits starting with the index's bits, else 0.
    uint16_t fast[1 << kFastBits];
    // Codes of length L are first[L] .. first[L] + count[L] - 1; their symbols in code order
    // start at perm[offset[L]].
    uint32_t first[kMaxCodeLen + 1];
    uint32_t count[kMaxCodeLen + 1];
    uint16_t offset[kMaxCodeLen + 1];
    uint16_t perm[kMaxAlphabet];
};

enum class UnpackStep : uint8_t { Groups, Selectors, TableStart, Length, LengthStep, Done };

struct HuffState {
    int32_t alpha_size;  // dictionary size + 2; the end-of-block symbol is alpha_size - 1
    // Unpacking: where it stands.
    UnpackStep step;
    uint8_t groups;
    uint8_t ended;  // the end-of-block symbol was decoded
    int32_t selectors;  // as read (up to 32767); only the first kMaxSelectors are kept
    int32_t i;          // selector or table being read
    int32_t j;          // unary count of a selector, or symbol whose length is being read
    int32_t len;        // the running code length
    // Decoding: the selector in use and how many symbols its group still codes.
    int32_t next_selector;
    int32_t group_left;
    uint8_t selector[kMaxSelectors];
    uint8_t lens[kMaxTables][kMaxAlphabet];
    HuffTable table[kMaxTables];
};

inline HuffState* state(zemDecodeHuffState_BZ2* p) { return reinterpret_cast<HuffState*>(p); }

}  // namespace zem::bz2
