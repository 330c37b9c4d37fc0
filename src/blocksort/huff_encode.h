// The Huffman encoding state of a bzip2-compatible block, behind the opaque
// zemEncodeHuffState_BZ2: the coding tables, the table chosen for each group of symbols, and how
// far the block has been written.
#pragma once

#include <stdint.h>

#include "blocksort/symbols.h"
#include "zemdc.h"

namespace zem::bz2 {

// Symbols coded with one table before the next selector.
inline constexpr int32_t kGroupSize = 50;
inline constexpr int32_t kMinTables = 2, kMaxTables = 6;
// The longest code a stream may carry.
inline constexpr int32_t kMaxCodeLen = 20;
// Selectors of the largest block: 900,000 bytes after the run-length stage give at most 900,000
// symbols and the end of the block, in groups of 50 (with one to spare, as the format allows).
inline constexpr int32_t kMaxSelectors = 18002;
inline constexpr int32_t kMaxBlockSymbols = kMaxSelectors * kGroupSize - 1;
// Widths of the table header's fields: table count, selector count, a table's first length.
inline constexpr int32_t kFieldTables = 3, kFieldSelectors = 15, kFieldFirstLen = 5;
static_assert((900000 + 1 + kGroupSize - 1) / kGroupSize < kMaxSelectors);

// Packed, so that the record works at any address and may be copied between buffers; the code
// words are read and written through the unaligned helpers.
struct __attribute__((packed)) HuffEncodeState {
    int32_t alphabet;   // dictionary size + 2: both run digits, the positions, the end of block
    int32_t tables;     // 2..6
    int32_t selectors;  // groups of kGroupSize symbols, the end of the block included
    int32_t symbols;    // symbols of the block, the end of the block excluded
    int32_t done;       // symbols written so far; symbols + 1 once the end of the block is out
    uint8_t len[kMaxTables][kMaxAlphabet];
    uint8_t code[kMaxTables][kMaxAlphabet * 4];  // 32-bit code words, native order
    uint8_t selector[kMaxSelectors];
};

inline constexpr int32_t kHuffStateSize = int32_t(sizeof(HuffEncodeState));
static_assert(alignof(HuffEncodeState) == 1);

inline HuffEncodeState* state_of(zemEncodeHuffState_BZ2* p) { return reinterpret_cast<HuffEncodeState*>(p); }

// Number of tables for a block of n symbols (the end of the block included): more tables pay for
// their headers only on longer blocks.
[[nodiscard]] constexpr int32_t tables_for(int32_t n) {
    return n < 200 ? 2 : n < 600 ? 3 : n < 1200 ? 4 : n < 2400 ? 5 : 6;
}

// Optimal code lengths for freq[0..n) (an unused symbol still gets a code, as the format wants
// one for every symbol), no longer than kMaxCodeLen.
void build_lengths(const uint32_t* freq, int32_t n, uint8_t* len);

// Bits of the table header: counts, selectors and lengths. With mtf_sel, also stores each
// selector's move-to-front position there.
int64_t header_bits(const HuffEncodeState& s, uint8_t* mtf_sel);

// Designs the tables and selectors for the block; false when a symbol lies outside the alphabet.
[[nodiscard]] bool design_tables(HuffEncodeState& s, const uint32_t* freq, const uint16_t* src);

}  // namespace zem::bz2
