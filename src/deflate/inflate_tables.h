// The contract between the inflate table builder and the inflate decoder: the layouts of the
// table area, the entry packings and the DEFLATE symbol tables.
//
// Both layouts end up giving the decoder a 16-bit literal/length entry of the same shape:
//   bits 0-3   bits the lookup consumes,
//   bits 4-7   kind: 0 literal, 8 + e a length with e extra bits still to read, and the
//              layout's own end-of-block kind (15 compact, 6 general); the general layout also
//              has kind 1, a reference to a second-level table,
//   bits 8-15  the literal byte, or the length minus 3.
// and a distance entry as one byte, (extra bits << 4) | bits consumed, beside a 16-bit distance.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "core/check.h"
#include "deflate/symbol_tables.h"
#include "zemdc.h"

namespace zem::inflate {

// The record's size and field order are part of the interface: callers allocate it.
static_assert(sizeof(zemInflateState) == 7216);
static_assert(offsetof(zemInflateState, resume) == 24 && offsetof(zemInflateState, litBits) == 40 &&
              offsetof(zemInflateState, tables) == 48);

inline constexpr uint32_t kRootBits = 10;
inline constexpr uint32_t kRootSize = 1u << kRootBits;

// General layout: a 10-bit root table per alphabet, followed by its second-level tables.
inline constexpr uint32_t kLitEntries = 1536;
inline constexpr uint32_t kDistEntries = 1280;
struct GeneralTables {
    uint8_t lit_val[kLitEntries];
    uint8_t lit_tag[kLitEntries];
    uint16_t dist_val[kDistEntries];
    uint8_t dist_tag[kDistEntries];
};
static_assert(sizeof(GeneralTables) == 6912);
static_assert(offsetof(GeneralTables, dist_val) == 3072 && offsetof(GeneralTables, dist_tag) == 5632);

inline constexpr uint8_t kKindLiteral = 0x00;
inline constexpr uint8_t kKindSubTable = 0x10;  // general root only: value = (position - 1024) / 2
inline constexpr uint8_t kKindEobGeneral = 0x60;
inline constexpr uint8_t kKindLength = 0x80;     // | extra bits << 4
inline constexpr uint8_t kKindEobCompact = 0xF0;
// Distance bytes above this carry more than 13 extra bits and are refused; the general root
// marks its second-level references with 0xE0 | width, above it too.
inline constexpr uint8_t kDistTagMax = 0xDF;
inline constexpr uint8_t kDistSubTable = 0xE0;

// Compact layout: the distance bases start this far after the distance kind bytes.
inline constexpr uint32_t kCompactDistBaseGap = 1024;
inline constexpr uint32_t kCompactMaxLit = 11;
inline constexpr uint32_t kCompactMaxDist = 10;

using rfc1951::kDistBase;
using rfc1951::kDistExtra;
using rfc1951::kLengthBase;
using rfc1951::kLengthExtra;

// The table of the fixed code, in the general layout, computed at compile time.
extern const GeneralTables kFixedTables;

// Views of a state's table area.
inline GeneralTables* general(zemInflateState* s) { return reinterpret_cast<GeneralTables*>(s->tables); }
inline const GeneralTables* general(const zemInflateState* s) {
    return reinterpret_cast<const GeneralTables*>(s->tables);
}
inline uint16_t* compact_lit(zemInflateState* s) { return reinterpret_cast<uint16_t*>(s->tables); }
inline uint8_t* compact_dist_kind(zemInflateState* s, uint32_t lit_bits) {
    return s->tables + (size_t(2) << lit_bits);
}
inline uint16_t* compact_dist_base(zemInflateState* s, uint32_t lit_bits) {
    return reinterpret_cast<uint16_t*>(compact_dist_kind(s, lit_bits) + kCompactDistBaseGap);
}

// Validates and builds (the exported function's worker).
[[nodiscard]] zemStatus build(const uint16_t* lens, uint32_t n_lit, uint32_t n_dist, zemInflateState* state);

// Decodes (the exported function's worker).
[[nodiscard]] zemStatus decode(const uint8_t** pp_src, uint32_t* p_src_len, uint32_t* p_code, uint32_t* p_bits,
                               uint32_t win_idx, uint8_t** pp_dst, uint32_t* p_dst_len, uint32_t dst_idx,
                               uint32_t* p_mode, zemInflateState* state);

}  // namespace zem::inflate
