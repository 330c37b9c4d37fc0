// The decoder's own tables for long calls, and their builder from the record's tables.
//
// The record's entries spread a symbol over two planes (general) or pack the bits consumed
// with the kind (both), so a length or distance costs a few operations to take apart on the
// chain from one lookup to the next. A call with much to decode first rewrites the record's
// tables into 32-bit entries that the fast loop uses as they are:
//   bits 0-5    bits the lookup consumes, code and extra bits together (shifts take their
//               count modulo 64, so the flag bit above rides along unused)
//   bit 6       not a literal or length: end of block, second-level reference or malformed
//   bits 8-15   literals and lengths: the index width of the table looked up next (literal/
//               length after a literal, distance after a length). With bits 0-7 this is the
//               control word of BEXTR, which takes the next index from the bits before the
//               shift: one operation between a load and the next, not a shift and a mask
//   bits 16-31  lengths: the length (9 bits), and in bits 25-28 the code length, where the
//               extra bits begin, so that the bits above the code length are clear;
//               literals: 1 in bits 16-19 and the index of their distance entry (below) in
//               bits 20-30
//   bit 31      a literal (a sign test)
// Distance entries are 64 bits wide: the low word holds the literal/length width in bits 8-15
// likewise and the code length in bits 16-19, with nothing above it; the high word holds the
// distance, so that one load, on one cache line, brings both. Specials use bits 12 and 13:
//   bit 12      a second-level reference (bits 0-3 its width, bits 16-31 its position)
//   bit 13      the end of block
// Second-level entries are never references again, and anything that the record's decoder
// would refuse becomes bit 6 alone.
//
// A short length without extra bits is usually followed by a distance code short enough that
// both codes lie within the literal/length root's index. The entry at such an index holds the
// whole match, so that the distance's table lookup leaves the chain from one symbol to the next.
// Literals are written alike, as matches of one byte from a distance entry of their own that
// points into a ramp of all byte values, so that both take the same steps:
//   bits 0-5    bits the step takes: codes and the distance's extra bits
//   bits 8-15   the literal/length width, as before
//   bits 16-19  the length: 3 to 10, or 1 for a literal
//   bits 20-30  the index of the distance entry: the distance code's, or kRampEntry + byte
//   bit 31      a step (a sign test)
#pragma once

#include <stdint.h>

#include "deflate/inflate_decode.h"
#include "deflate/inflate_tables.h"

namespace zem::inflate {

inline constexpr uint32_t kFastSpecial = 0x40;
inline constexpr uint32_t kFastLiteral = 0x80000000u;
// The literal flag, once the whole-match pass has rewritten the length entries.
inline constexpr uint32_t kFastStep = kFastLiteral;
inline constexpr uint32_t kFastLenShift = 25;
inline constexpr uint32_t kFastSub = 0x1000;
inline constexpr uint32_t kFastEob = 0x2000;
// The general layout's rewritten literal/length root is 11 bits wide, one more than the record's:
// codes of 11 bits, frequent in long blocks, then need no second lookup. Its second-level tables
// follow it, with room for any position and width that a root entry can name.
inline constexpr uint32_t kFastRootBits = 11;
inline constexpr uint32_t kFastRootSize = 1u << kFastRootBits;
inline constexpr uint32_t kFastLitEntries = kFastRootSize + 2 * 255 + 128 + 2;  // a multiple of 8
static_assert(kFastLitEntries % 8 == 0 && kFastRootSize >= 1u << kCompactMaxLit);
// The literals' distance entries follow the real ones: byte b's is at kRampEntry + b, and its
// distance, counted back from the ramp's end, leads to b in the ramp.
inline constexpr uint32_t kRampEntry = kDistEntries;

struct alignas(32) FastTables {
    uint32_t lit[kFastLitEntries];
    uint64_t dist[kDistEntries + 256];
    // ramp[b] == b, with room for a copy of 16 bytes from any of them.
    uint8_t ramp[256 + 16];
    uint32_t lit_mask, dist_mask;
};
static_assert(kFastRootBits <= kMaxRootBits);

// Literal entries of the decoder's own tables (step entries whose distance index is a ramp
// entry's, which only literals have: its bit 10 is set).
inline constexpr uint32_t kFastLit = 1u << 30;
static_assert(kRampEntry == 1280 && kDistEntries <= kRampEntry && (kRampEntry & 255) == 0);

// A step: a literal, or a whole match with its distance's extra bits (codes within the root).
inline constexpr uint32_t kMaxStepBits = kFastRootBits + kMaxDistExtra;
static_assert(kMaxStepBits >= kMaxCodeBits);
// A refill leaves 64 valid bits: three literals and the lookup after them, or two steps and
// the lookup after them.
static_assert(3 * kMaxCodeBits + kFastRootBits <= kRefillValidBits);
static_assert(2 * kMaxStepBits + kFastRootBits <= kRefillValidBits);

// Rewrites the record's tables into ft. True when the code gives literals at least 85% of the
// root's indexes: the share of literals among the block's symbols, as its encoder counted them.
bool fast_tables(const CompactTables& c, FastTables& ft);
bool fast_tables(const GeneralTablesView& g, FastTables& ft);

}  // namespace zem::inflate
