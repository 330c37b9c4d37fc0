// The run-length state record behind the opaque zemRLEState_BZ2: one 264-byte layout that both
// directions share, so that one size query serves both. Callers allocate it as bytes, so the
// 32-bit fields are read and written through the unaligned helpers.
#pragma once

#include <stdint.h>

#include "core/bytes.h"
#include "zemdc.h"

namespace zem::bz2 {

// The longest run one count byte covers: four literal copies and a count of up to 255.
inline constexpr int32_t kMaxRun = 4 + 255;
// Equal bytes after which the next byte is a count.
inline constexpr int32_t kRunHeader = 4;

// Layout: bytes 0..255 the encoder's in-use table (1 for every value written since Init); the
// decoder has no use for it and keeps there, in bytes 0..3, how many equal copies of `byte` end
// its output (0..4; at 4 the next input byte is a count). Bytes 256..259 `byte`: the encoder's
// previous input byte, or the decoder's byte of the run being expanded or of the trailing equal
// group; -1 at the start (and, decoding, after a run was expanded). Bytes 260..263 `count`: the
// encoder's copies counted in the open run (0..259), or the decoder's copies still owed.
inline constexpr int32_t kStateSize = 264;
inline constexpr int32_t kSeenAt = 0, kByteAt = 256, kCountAt = 260;
static_assert(kCountAt + 4 == kStateSize && kByteAt >= 256 && kSeenAt + 4 <= kByteAt);

struct RleFields {
    int32_t seen, byte, count;
};

inline uint8_t* bytes_of(zemRLEState_BZ2* p) { return reinterpret_cast<uint8_t*>(p); }
inline const uint8_t* bytes_of(const zemRLEState_BZ2* p) { return reinterpret_cast<const uint8_t*>(p); }

inline RleFields load_fields(const zemRLEState_BZ2* p) {
    const uint8_t* b = bytes_of(p);
    return {int32_t(load32(b + kSeenAt)), int32_t(load32(b + kByteAt)), int32_t(load32(b + kCountAt))};
}
inline void store_byte_count(zemRLEState_BZ2* p, int32_t byte, int32_t count) {
    store32(bytes_of(p) + kByteAt, uint32_t(byte));
    store32(bytes_of(p) + kCountAt, uint32_t(count));
}
inline void store_fields(zemRLEState_BZ2* p, const RleFields& f) {
    store32(bytes_of(p) + kSeenAt, uint32_t(f.seen));
    store_byte_count(p, f.byte, f.count);
}

}  // namespace zem::bz2
