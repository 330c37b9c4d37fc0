// The forward block sort: one layout of the caller's work buffer and the two sorts that fill it.
//
// Both sorts order the rotations of a primitive text w of m bytes (the block reduced to one
// period and turned to its least rotation, see bwt_forward.cpp) and leave the rotation starts in
// sa[0..m). The bucket sort may give up (returns false) and leave the block to the suffix sort,
// which never fails.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace zem::bwt {

// Largest block the 32-bit size query can describe (see buffer_size).
inline constexpr uint32_t kMaxBlock = 0x0FFFFFFF;
// Bytes past the text that the 8-byte key loads may touch; they repeat the text cyclically.
inline constexpr uint32_t kTextPad = 64;
// Radix buckets of the bucket sort: the first two bytes of a rotation.
inline constexpr uint32_t kRadix = 65536;
// Pending partitions of the bucket sort's quicksort; more than this means a block so repetitive
// that the suffix sort is the better choice anyway.
inline constexpr uint32_t kSortStack = 8192;
inline constexpr uint32_t kAlign = 64;

struct Work {
    int32_t* sa;     // m entries: the sorted rotations
    uint8_t* text;   // m + kTextPad bytes: w, then its first bytes again
    uint8_t* types;  // m bytes: suffix types of the induced sort (all levels share it)
    int32_t* bkt;    // bkt_len entries: buckets of either sort, and the bucket sort's stack
    uint32_t bkt_len;
};

// Entries of the shared bucket area: the larger of the induced sort's alphabets (256 bytes at
// the top level, at most half the block below it) and the radix counts plus the quicksort stack.
[[nodiscard]] constexpr uint64_t bucket_entries(uint64_t w) {
    uint64_t sais = (w / 2 > 256 ? w / 2 : 256) + 1;
    uint64_t radix = kRadix + 1 + 3ull * kSortStack;
    return sais > radix ? sais : radix;
}
[[nodiscard]] constexpr uint64_t buffer_size(uint64_t w) {
    return 4 * w + (w + kTextPad) + w + 4 * bucket_entries(w) + 4 * kAlign;
}
static_assert(buffer_size(kMaxBlock) <= 0xFFFFFFFFull, "the size query answers in 32 bits");

// Carves the caller's buffer (any alignment) for a text of m bytes.
[[nodiscard]] Work carve(uint8_t* buf, uint32_t m);

// Induced suffix sort of the m-byte text; with w the least rotation of a primitive block the
// suffix order is the rotation order.
void suffix_sort(const Work& work, uint32_t m);

// Radix and quicksort of rotations; false when its work outgrew `budget` key loads (the sa
// entries are then garbage).
[[nodiscard]] bool bucket_sort(const Work& work, uint32_t m, uint64_t budget);

}  // namespace zem::bwt
