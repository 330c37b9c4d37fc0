// The symbol tables of the compressor side: RFC 1951's length and distance codes, derived at
// compile time from their base values, plus the hash functions that the table upkeep and the
// match finders must share exactly.
#pragma once

#include <immintrin.h>
#include <nmmintrin.h>
#include <stdint.h>

#include "core/bytes.h"
#include "core/check.h"
#include "deflate/symbol_tables.h"
#include "zemdc.h"

namespace zem::deflate {

inline constexpr uint32_t kMinMatch = 3;
inline constexpr uint32_t kMaxMatch = 258;
inline constexpr uint32_t kMaxDistance = 32768;
inline constexpr uint32_t kLitSymbols = 286;
inline constexpr uint32_t kDistSymbols = 30;
inline constexpr uint32_t kEndOfBlock = 256;
inline constexpr uint32_t kMaxCodeLen = 15;
// The finders keep this much input unparsed under NoFlush: the longest match plus the bytes the
// hash of its last position reads, so no match is cut short by the end of a piece of input.
inline constexpr uint32_t kLookahead = 262;
static_assert(kLookahead >= kMaxMatch + 4);

// Limits on the caller's tables (both used as masks, so powers of two).
inline constexpr uint32_t kMinTableSize = 256;
inline constexpr uint32_t kMaxWinSize = 32768;
inline constexpr uint32_t kMaxHashSize = 65536;
[[nodiscard]] constexpr bool bad_tables(uint32_t win_size, uint32_t hash_size) {
    return win_size < kMinTableSize || win_size > kMaxWinSize || hash_size < kMinTableSize ||
           hash_size > kMaxHashSize;
}
static_assert(kMaxWinSize <= kMaxDistance);

using rfc1951::kDistBase;
using rfc1951::kDistExtra;
using rfc1951::kLengthBase;
using rfc1951::kLengthExtra;

// Length symbol index (0..28) of every stored length value (length - 3). Length 258 has its own
// symbol although 227 + 31 would also reach it with symbol 27's extra bits.
struct LengthSymbols {
    uint8_t sym[256];
    constexpr LengthSymbols() : sym{} {
        for (uint32_t c = 0; c < 28; ++c)
            for (uint32_t l = kLengthBase[c]; l < kLengthBase[c] + (1u << kLengthExtra[c]) && l <= 258; ++l)
                sym[l - 3] = uint8_t(c);
        sym[255] = 28;
    }
};
inline constexpr LengthSymbols kLengthSym{};
static_assert(kLengthSym.sym[0] == 0 && kLengthSym.sym[254] == 27 && kLengthSym.sym[255] == 28);

// Distance symbol by the two-part lookup on d - 1: entries 0..255 for d - 1 below 256, entries
// 256 + ((d - 1) >> 7) above.
struct DistSymbols {
    uint8_t sym[512];
    constexpr DistSymbols() : sym{} {
        for (uint32_t s = 0; s < 30; ++s)
            for (uint32_t d = kDistBase[s]; d < kDistBase[s] + (1u << kDistExtra[s]); ++d) {
                uint32_t v = d - 1;
                if (v < 256) sym[v] = uint8_t(s);
                else sym[256 + (v >> 7)] = uint8_t(s);
            }
    }
};
inline constexpr DistSymbols kDistSym{};
ZEM_INLINE uint32_t dist_symbol(uint32_t d) {
    uint32_t v = d - 1;
    // The mask keeps a distance above 32,768 (never valid, possible in garbage records) inside the
    // table.
    return v < 256 ? kDistSym.sym[v] : kDistSym.sym[256 + ((v >> 7) & 255)];
}
static_assert(kDistSym.sym[0] == 0 && kDistSym.sym[256 + (32767 >> 7)] == 29 && kDistSym.sym[256 + 2] == 16);

// A code's bits, with whatever a caller's table holds above its length dropped and the length
// taken modulo 16, so that no table can make an append wider than the room rule allows.
ZEM_INLINE uint32_t code_len(const zemDeflateHuffCode& c) { return c.len & 15u; }
ZEM_INLINE uint32_t code_bits(const zemDeflateHuffCode& c) { return _bzhi_u32(c.code, code_len(c)); }

// The chained scheme's hash: CRC-32C of four bytes from a zero accumulator.
ZEM_INLINE uint32_t hash4(const uint8_t* p, uint32_t mask) { return _mm_crc32_u32(0, load32(p)) & mask; }

// The fast scheme's running three-byte hash.
ZEM_INLINE uint32_t hash3_start(const uint8_t* p) { return (uint32_t(p[0]) << 5) ^ p[1]; }
ZEM_INLINE uint32_t hash3_next(uint32_t h, uint8_t b, uint32_t mask) { return ((h << 5) ^ b) & mask; }

}  // namespace zem::deflate
