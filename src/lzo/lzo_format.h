// What the LZO1X encoders, decoders and the segmented driver share: the instruction layout,
// the worst-case size, and the writers of literal runs and matches.
//
// A stream is a run of instructions; the meaning of a byte below 16 depends on what came
// before it (the "state"):
//   - after a match that carried no literals (and at the stream start): a literal run,
//     t + 3 literals (t == 0: 18 + extension);
//   - after a match that carried 1..3 literals: a 2-byte match, distance 1 + (t >> 2) + 4 * b;
//   - after a literal run of 4 or more: a 3-byte match, distance 2049 + (t >> 2) + 4 * b.
// Bytes from 16 on are matches whatever the state:
//   64..255  length (t >> 5) + 1 (3..8), distance 1 + ((t >> 2) & 7) + 8 * b          (2 bytes)
//   32..63   length (t & 31) + 2 (0: 33 + extension), distance 1 + (w >> 2)          (3+ bytes)
//   16..31   length (t & 7) + 2 (0: 9 + extension), distance 16384 + 16384 * ((t >> 3) & 1)
//            + (w >> 2); distance exactly 16384 is the end marker                   (3+ bytes)
// where b is the next byte and w the next little-endian 16-bit word. Every match carries in
// the low two bits of its second-to-last byte the count (0..3) of literals that follow it.
// The first byte of a stream may also be 18..255: 1..238 literals follow. An extension is a
// run of zero bytes (255 each) closed by a non-zero byte that is added.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "core/bytes.h"
#include "core/check.h"
#include "core/mem.h"

namespace zem::lzo {

inline constexpr uint32_t kM2MaxDist = 2048;
inline constexpr uint32_t kM3MaxDist = 16384;
inline constexpr uint32_t kMaxDist = 49151;
inline constexpr uint32_t kM2MaxLen = 8;
inline constexpr uint32_t kM3MaxLen = 33;  // without extension bytes
inline constexpr uint32_t kM4MaxLen = 9;
inline constexpr uint32_t kRunMaxShort = 18;     // literal run without extension
inline constexpr uint32_t kFirstRunMax = 238;    // the stream-start form: 17 + n in one byte
inline constexpr uint32_t kM1LongBase = 2049;    // 3-byte short matches after a literal run
inline constexpr uint8_t kEndMarker[3] = {0x11, 0x00, 0x00};
inline constexpr uint32_t kMinMatch = 4;  // our encoders find matches of 4 bytes and more

static_assert(kMaxDist == kM3MaxDist + 2 * 16384 - 1, "the far form reaches two 16 KiB pages");
static_assert(kFirstRunMax == 255 - 17, "the stream-start run is one byte");

// The worst case of a stream of n bytes: one literal run (its header 2 + (n - 19) / 255 bytes)
// and the end marker, with slack for the encoders' wide literal stores near the end. A match
// never takes more bytes than it covers, so no parse exceeds the all-literal stream.
inline constexpr uint64_t worst_size(uint64_t n) { return n + n / 255 + 16; }
inline constexpr uint32_t kEncodeSlack = 16;
static_assert(worst_size(0) >= sizeof(kEndMarker) && kEncodeSlack >= 2 + sizeof(kEndMarker));

// The largest input any encoder takes: its worst case still fits 32 bits.
inline constexpr uint32_t kMaxInput = 0x7F000000u;
static_assert(worst_size(kMaxInput) < (1ull << 32));

// Writes the extension bytes of v >= 1.
ZEM_INLINE uint8_t* write_ext(uint8_t* op, size_t v) {
    if (ZEM_UNLIKELY(v > 255 * 16)) {
        size_t k = (v - 1) / 255;
        MemZero(op, (int32_t)k);
        op += k;
        v -= k * 255;
    }
    while (v > 255) {
        *op++ = 0;
        v -= 255;
    }
    *op++ = (uint8_t)v;
    return op;
}

// Where the encoder is: `start` is the first byte of the stream, `low_bits` the byte of the last
// match that carries its trailing literal count (null while no match has been written).
struct Out {
    uint8_t* op;
    uint8_t* start;
    uint8_t* end;  // capacity end
    uint8_t* low_bits;
};

// Writes the header of a literal run of n >= 1 bytes in the form that the state allows. The
// literals themselves follow it.
ZEM_INLINE void write_run_header(Out& o, size_t n) {
    if (o.low_bits != nullptr && n <= 3) {
        *o.low_bits |= (uint8_t)n;
    } else if (o.low_bits == nullptr && o.op == o.start && n <= kFirstRunMax) {
        *o.op++ = (uint8_t)(17 + n);
    } else if (n <= kRunMaxShort) {
        *o.op++ = (uint8_t)(n - 3);
    } else {
        *o.op++ = 0;
        o.op = write_ext(o.op, n - kRunMaxShort);
    }
}

// Writes n literals at lit (n may be 0); lit + n <= in_end. A short run is stored as one
// 16-byte block while both buffers have room for it: the overshoot is overwritten by what
// follows.
ZEM_INLINE void write_literals(Out& o, const uint8_t* lit, size_t n, const uint8_t* in_end) {
    if (n == 0) return;
    write_run_header(o, n);
    if (n <= 16 && o.end - o.op >= 16 + 16 && in_end - lit >= 16) {
        mem::copy_small(lit, o.op, 16);
    } else {
        if (n <= 32767)
            mem::copy_small(lit, o.op, n);
        else
            MemCopy(lit, o.op, (int32_t)n);
    }
    o.op += n;
}

// Writes a match of len >= 3 bytes (len 3 only at distances up to 2048) at distance
// 1..kMaxDist, with no trailing literals yet.
ZEM_INLINE void write_match(Out& o, uint32_t dist, size_t len) {
    uint8_t* op = o.op;
    if (len <= kM2MaxLen && dist <= kM2MaxDist) {
        const uint32_t d = dist - 1;
        op[0] = (uint8_t)(((len - 1) << 5) | ((d & 7) << 2));
        op[1] = (uint8_t)(d >> 3);
        o.low_bits = op;
        o.op = op + 2;
        return;
    }
    uint32_t d;
    if (dist <= kM3MaxDist) {
        d = dist - 1;
        if (len <= kM3MaxLen) {
            *op++ = (uint8_t)(32 | (len - 2));
        } else {
            *op++ = 32;
            op = write_ext(op, len - kM3MaxLen);
        }
    } else {
        d = dist - kM3MaxDist;
        const uint8_t page = (uint8_t)((d >> 11) & 8);
        if (len <= kM4MaxLen) {
            *op++ = (uint8_t)(16 | page | (len - 2));
        } else {
            *op++ = (uint8_t)(16 | page);
            op = write_ext(op, len - kM4MaxLen);
        }
    }
    op[0] = (uint8_t)((d & 63) << 2);
    op[1] = (uint8_t)((d >> 6) & 255);
    o.low_bits = op;
    o.op = op + 2;
}

ZEM_INLINE void write_end(Out& o) {
    memcpy(o.op, kEndMarker, sizeof(kEndMarker));
    o.op += sizeof(kEndMarker);
}

// Number of equal bytes at a and b, a running at most to a_limit (b's buffer is at least as
// long from b). Loads never pass a_limit.
ZEM_INLINE size_t count_equal(const uint8_t* a, const uint8_t* b, const uint8_t* a_limit) {
    const uint8_t* const start = a;
    while (a_limit - a >= 8) {
        const uint64_t x = load64(a) ^ load64(b);
        if (x != 0) return size_t(a - start) + (size_t)(__builtin_ctzll(x) >> 3);
        a += 8;
        b += 8;
    }
    while (a < a_limit && *a == *b) {
        ++a;
        ++b;
    }
    return size_t(a - start);
}

// The encoder state record: a tag, the method and input limit of Init, then the tables.
inline constexpr uint32_t kStateTag = 0x314F5A4Cu;  // "LZO1"
struct StateHeader {
    uint32_t tag;
    uint32_t method;
    uint32_t max_input;
    uint32_t reserved;
};

// Fast method: one 4-byte hash table of positions.
inline constexpr int kFastHashBits = 13;
// Strong method: heads by a 16-bit hash of 4 bytes.
inline constexpr int kStrongHashBits = 16;

inline constexpr uint32_t kFastStateBytes = sizeof(StateHeader) + (4u << kFastHashBits);
inline constexpr uint32_t kStrongStateBytes = sizeof(StateHeader) + (4u << kStrongHashBits);

// The segmented method compresses each segment of this size on its own.
inline constexpr uint32_t kSegmentSize = ZEM_LZO_SEGMENT_SIZE;

static_assert(worst_size(1000000) == ZEM_LZO_BOUND(1000000ull), "the header's bound is ours");
static_assert(kFastStateBytes == 32784 && kStrongStateBytes == 262160, "the sizes the header documents");

// The encoders write the matches and the literals before them and return where the pending
// literals start; the caller writes those and the end marker. The fast one takes the whole
// input and a cleared table.
const uint8_t* encode_fast(const uint8_t* src, size_t n, Out& o, uint32_t* table);

// The strong parse of one segment [seg, seg_end) of the input that starts at base: no match
// reaches before seg or past seg_end, and `anchor` (<= seg) is where the literals still
// pending from earlier segments start. `head` (by hash: position + 1 of the newest entry, 0
// for none) is cleared once per input; positions of earlier segments in it are ignored, so
// that a segment parses the same on its own.
const uint8_t* encode_strong(const uint8_t* anchor, const uint8_t* seg, const uint8_t* seg_end,
                             const uint8_t* base, Out& o, uint32_t* head);

}  // namespace zem::lzo
