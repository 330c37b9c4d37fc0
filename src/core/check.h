// The entry/worker pattern shared by every family.
//
// An exported entry checks its arguments in the library's one order and then calls a worker
// that trusts them:
//
//     ZEM_API zemStatus zemsFoo_8u(const uint8_t* src, int32_t len, uint8_t* dst, int32_t* pLen) {
//         if (zem::any_null(src, dst, pLen)) return zemStatusNullPtr;   // 1. pointers, in order
//         if (len < 1) return zemStatusSize;                              // 2. lengths
//         if (mode > 2) return zemStatusBadArg;                           // 3. modes and levels
//         return zem::foo::run(src, len, dst, pLen);                      // 4. worker
//     }
//
// Because pointers are checked before lengths, a call with both faults reports zemStatusNullPtr.
#pragma once

#include <stdint.h>

#include "zemdc.h"

namespace zem {

// True when any of the pointers is null; the first failing argument decides, so callers list
// the pointers in argument order and test this before any length.
template <class... P>
[[nodiscard]] constexpr bool any_null(const P*... p) noexcept {
    return ((p == nullptr) || ...);
}

// The common length rule: a length must be at least 1.
[[nodiscard]] constexpr bool bad_len(int32_t len) noexcept { return len < 1; }

}  // namespace zem

#if defined(__GNUC__)
#define ZEM_LIKELY(x) __builtin_expect(!!(x), 1)
#define ZEM_UNLIKELY(x) __builtin_expect(!!(x), 0)
#define ZEM_INLINE inline __attribute__((always_inline))
#define ZEM_NOINLINE __attribute__((noinline))
// For helper lambdas in hot loops, which GCC does not always inline: the inflate fast loops
// ran 10% slower without it.
#define ZEM_LAMBDA_INLINE __attribute__((always_inline))
#else
#define ZEM_LIKELY(x) (x)
#define ZEM_UNLIKELY(x) (x)
#define ZEM_INLINE inline
#define ZEM_NOINLINE
#define ZEM_LAMBDA_INLINE
#endif
