// The LZSS codec's shared pieces: the token format, the hash, and the two views of the one
// caller-owned state record (the encoder's and the decoder's).
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "core/check.h"
#include "zemdc.h"

namespace zem::lzss {

// ---- token format: MSB-first bits, no header, no end marker ----
inline constexpr int kLiteralBits = 9;   // flag 1, byte
inline constexpr int kMatchBits = 24;    // flag 0, distance (15 bits), length - 3 (8 bits)
inline constexpr int kMinMatch = 3;
inline constexpr int kMaxMatch = kMinMatch + 255;
inline constexpr uint32_t kWindow = 32768;  // distances are 1 .. kWindow - 1
inline constexpr uint32_t kWindowMask = kWindow - 1;

// ---- encoder search ----
inline constexpr int kMaxCandidates = 16;
// A hash covers three bytes, so the last two bytes of every call are literals.
inline constexpr int32_t kTailLiterals = kMinMatch - 1;
inline constexpr int32_t kHashCount = 32768;  // hash values are 15 bits and index the head array

// ---- history ----
inline constexpr int32_t kHistoryBytes = 65536;
// History grows in place while its end leaves room for the next call's lookahead copy.
inline constexpr int32_t kHistoryAppendMax = kHistoryBytes - kMaxMatch;
static_assert(kHistoryAppendMax == 65278);

// The state record, whatever the caller's alignment: the fields start at the next 32-byte
// boundary, and the record's size leaves the slack for that.
inline constexpr int32_t kStateSize = 0x50040;
inline constexpr uintptr_t kStateAlign = 32;

// The hash table: three rows of 256 15-bit values, XORed over the three bytes at a position.
// The first entries of each row are fixed values and the rest come from a fixed generator:
// the table decides only which matches the encoder finds, never whether a stream decodes.
struct HashTable {
    uint16_t v[3 * 256];
};
constexpr HashTable make_hash_table() {
    HashTable t{};
    uint64_t s = 0x4c5a5353u;  // splitmix64, a fixed seed
    for (int i = 0; i < 3 * 256; ++i) {
        uint64_t z = (s += 0x9e3779b97f4a7c15ull);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
        t.v[i] = uint16_t((z ^ (z >> 31)) & 0x7fff);
    }
    constexpr uint16_t fixed[3][4] = {
        {18845, 15810, 11527, 28763}, {23403, 25964, 7330, 5756}, {23616, 7640, 29028, 30668}};
    for (int r = 0; r < 3; ++r)
        for (int i = 0; i < 4; ++i) t.v[r * 256 + i] = fixed[r][i];
    return t;
}
inline constexpr HashTable kHash = make_hash_table();
static_assert(kHash.v[0] == 18845 && kHash.v[259] == 5756 && kHash.v[515] == 30668);
static_assert([] {
    for (uint16_t x : kHash.v)
        if (x >= kHashCount) return false;
    return true;
}());

ZEM_INLINE uint32_t hash3(const uint8_t* p) {
    return uint32_t(kHash.v[p[0]] ^ kHash.v[256 + p[1]] ^ kHash.v[512 + p[2]]);
}

// The encoder's view. Positions count the stream's bytes modulo 2^32 and are never rebased
// (moving the history only moves bytes): candidates are addressed by distance, and
// (p - entry) in 32 bits is the true distance as long as entries are at most 2^32 - kWindow
// old. Each history move marks entries that have left the window as empty, and between two
// moves fewer than 2^31 + 2^16 positions go by, so no entry ever gets that old.
struct EncoderState {
    int32_t prev[kWindow];     // by position mod kWindow: the previous position with the same hash
    int32_t head[kHashCount];  // by hash: the newest position
    uint8_t history[kHistoryBytes];
    // Scalars after the history: the match compare reads up to 7 bytes past a history match
    // (never counting them), and these keep such reads inside the record.
    int32_t history_len;
    int32_t bit_count;   // pending bits, left-aligned in bit_buf
    uint64_t bit_buf;
    uint32_t position;   // stream position of the next input byte, modulo 2^32
    uint32_t reserved;
};
inline constexpr size_t kHistoryOverread = 7;
static_assert(sizeof(EncoderState) - offsetof(EncoderState, history_len) >= kHistoryOverread);
static_assert(sizeof(EncoderState) + kStateAlign - 1 <= (size_t)kStateSize);
// Init's empty entry: (p - entry) >= kWindow for the first 2^31 positions, so no candidate is
// taken before the first history move refreshes it.
inline constexpr int32_t kNoPosition = -(int32_t)kWindow;

// The decoder's view: the history is a ring of the last kWindow bytes of output.
struct DecoderState {
    uint32_t bit_buf;    // left-aligned
    int32_t bit_count;
    uint32_t ring_pos;   // where the next output byte goes in the ring
    int32_t history_len; // bytes of the ring that hold output (at most kWindow)
    uint32_t cut_dist;   // a match cut short by a full output: its distance ...
    int32_t cut_len;     // ... and the bytes still to copy
    uint8_t ring[kWindow];
};
static_assert(sizeof(DecoderState) + kStateAlign - 1 <= (size_t)kStateSize);

template <class T>
ZEM_INLINE T* view(void* state) {
    return reinterpret_cast<T*>(((uintptr_t)state + kStateAlign - 1) & ~(kStateAlign - 1));
}

void encoder_init(EncoderState* s);
void decoder_init(DecoderState* s);
zemStatus encode(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst, int32_t* pDstLen, EncoderState* s);
zemStatus flush(uint8_t** ppDst, int32_t* pDstLen, EncoderState* s);
zemStatus decode(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst, int32_t* pDstLen, DecoderState* s);

}  // namespace zem::lzss
