// MemCopy, MemZero and MemFill: the block kernels through which every family copies, clears
// and fills. None checks its pointers; all work on any alignment of either pointer.
#pragma once

#include <immintrin.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "core/check.h"
#include "zemcore.h"
#include "zemdc.h"

namespace zem {

namespace mem {

// The cache-size query is a parameter of the path choice so that tests can drive the
// streaming paths with small buffers; the exported behaviour always uses the core library's.
using CacheQuery = int32_t (*)(int32_t*);

enum class CopyPath { Small, Stream, StringMove, Backward };
enum class ZeroPath { Vector, StringStore };
enum class FillPath { Vector, Stream };

// Largest block the small-block copy kernel takes on its own.
inline constexpr int32_t kSmallCopyMax = 32767;
// Copies of at least this many bytes (unsigned) ask for the cache size.
inline constexpr uint32_t kStreamCopyMin = 0x400001;
// The string move suffers 4 KiB aliasing when the destination's page offset lies just above
// the source's; below this distance the backward vector copy is used instead.
inline constexpr uint32_t kAliasDistance = 160;
// Zeroing takes the string-store path above this size (one more than the copy threshold).
inline constexpr int32_t kVectorZeroMax = 32768;
// Fills of at most this many bytes never ask for the cache size.
inline constexpr int32_t kVectorFillMax = 0x200000;

[[nodiscard]] CopyPath copy_path(const void* src, void* dst, int32_t len, CacheQuery query);
[[nodiscard]] constexpr ZeroPath zero_path(int32_t len) {
    return len > kVectorZeroMax ? ZeroPath::StringStore : ZeroPath::Vector;
}
[[nodiscard]] FillPath fill_path(int32_t len, CacheQuery query);

// MemCopy / MemFill with the cache query injected.
void* copy(const void* src, void* dst, int32_t len, CacheQuery query);
void* fill(uint8_t value, void* dst, int32_t len, CacheQuery query);

// The kernels behind the paths, callable on their own.
void copy_small_large(const uint8_t* s, uint8_t* d, size_t n);  // n > 256
void copy_string_move(const uint8_t* s, uint8_t* d, size_t n);
void copy_backward(const uint8_t* s, uint8_t* d, size_t n);
void copy_stream(const uint8_t* s, uint8_t* d, size_t n);
void zero_string_store(uint8_t* d, size_t n);
void fill_vector_large(__m256i v, uint8_t* d, size_t n);  // n > 64
void fill_stream(uint8_t value, uint8_t* d, size_t n);

// The small-block copy kernel: overlapping wide loads and stores up to 256 bytes, an aligned
// block loop above. Inline so that the short copies of the codecs cost no call.
ZEM_INLINE void copy_small(const uint8_t* s, uint8_t* d, size_t n) {
    if (n <= 16) {
        if (n >= 8) {
            uint64_t a, b;
            memcpy(&a, s, 8);
            memcpy(&b, s + n - 8, 8);
            memcpy(d, &a, 8);
            memcpy(d + n - 8, &b, 8);
        } else if (n >= 4) {
            uint32_t a, b;
            memcpy(&a, s, 4);
            memcpy(&b, s + n - 4, 4);
            memcpy(d, &a, 4);
            memcpy(d + n - 4, &b, 4);
        } else if (n >= 2) {
            uint16_t a, b;
            memcpy(&a, s, 2);
            memcpy(&b, s + n - 2, 2);
            memcpy(d, &a, 2);
            memcpy(d + n - 2, &b, 2);
        } else if (n == 1) {
            d[0] = s[0];
        }
        return;
    }
    if (n <= 32) {
        __m128i a = _mm_loadu_si128((const __m128i*)s);
        __m128i b = _mm_loadu_si128((const __m128i*)(s + n - 16));
        _mm_storeu_si128((__m128i*)d, a);
        _mm_storeu_si128((__m128i*)(d + n - 16), b);
        return;
    }
    if (n <= 64) {
        __m256i a = _mm256_loadu_si256((const __m256i*)s);
        __m256i b = _mm256_loadu_si256((const __m256i*)(s + n - 32));
        _mm256_storeu_si256((__m256i*)d, a);
        _mm256_storeu_si256((__m256i*)(d + n - 32), b);
        return;
    }
    if (n <= 128) {
        __m256i a = _mm256_loadu_si256((const __m256i*)s);
        __m256i b = _mm256_loadu_si256((const __m256i*)(s + 32));
        __m256i c = _mm256_loadu_si256((const __m256i*)(s + n - 64));
        __m256i e = _mm256_loadu_si256((const __m256i*)(s + n - 32));
        _mm256_storeu_si256((__m256i*)d, a);
        _mm256_storeu_si256((__m256i*)(d + 32), b);
        _mm256_storeu_si256((__m256i*)(d + n - 64), c);
        _mm256_storeu_si256((__m256i*)(d + n - 32), e);
        return;
    }
    if (n <= 256) {
        __m256i a0 = _mm256_loadu_si256((const __m256i*)s);
        __m256i a1 = _mm256_loadu_si256((const __m256i*)(s + 32));
        __m256i a2 = _mm256_loadu_si256((const __m256i*)(s + 64));
        __m256i a3 = _mm256_loadu_si256((const __m256i*)(s + 96));
        __m256i b0 = _mm256_loadu_si256((const __m256i*)(s + n - 128));
        __m256i b1 = _mm256_loadu_si256((const __m256i*)(s + n - 96));
        __m256i b2 = _mm256_loadu_si256((const __m256i*)(s + n - 64));
        __m256i b3 = _mm256_loadu_si256((const __m256i*)(s + n - 32));
        _mm256_storeu_si256((__m256i*)d, a0);
        _mm256_storeu_si256((__m256i*)(d + 32), a1);
        _mm256_storeu_si256((__m256i*)(d + 64), a2);
        _mm256_storeu_si256((__m256i*)(d + 96), a3);
        _mm256_storeu_si256((__m256i*)(d + n - 128), b0);
        _mm256_storeu_si256((__m256i*)(d + n - 96), b1);
        _mm256_storeu_si256((__m256i*)(d + n - 64), b2);
        _mm256_storeu_si256((__m256i*)(d + n - 32), b3);
        return;
    }
    copy_small_large(s, d, n);
}

// The vector fill kernel (also the vector zeroing kernel, with value 0).
ZEM_INLINE void fill_vector(uint8_t value, uint8_t* d, size_t n) {
    if (n <= 16) {
        uint64_t v = 0x0101010101010101ull * value;
        if (n >= 8) {
            memcpy(d, &v, 8);
            memcpy(d + n - 8, &v, 8);
        } else if (n >= 4) {
            memcpy(d, &v, 4);
            memcpy(d + n - 4, &v, 4);
        } else if (n >= 2) {
            memcpy(d, &v, 2);
            memcpy(d + n - 2, &v, 2);
        } else if (n == 1) {
            d[0] = value;
        }
        return;
    }
    if (n <= 32) {
        __m128i v = _mm_set1_epi8((char)value);
        _mm_storeu_si128((__m128i*)d, v);
        _mm_storeu_si128((__m128i*)(d + n - 16), v);
        return;
    }
    __m256i v = _mm256_set1_epi8((char)value);
    if (n <= 64) {
        _mm256_storeu_si256((__m256i*)d, v);
        _mm256_storeu_si256((__m256i*)(d + n - 32), v);
        return;
    }
    fill_vector_large(v, d, n);
}

}  // namespace mem

// Copies len bytes from src to dst (regions must not overlap) and returns dst; len <= 0
// copies nothing.
ZEM_INLINE void* MemCopy(const void* src, void* dst, int32_t len) {
    if (len <= mem::kSmallCopyMax) {
        if (len > 0) mem::copy_small((const uint8_t*)src, (uint8_t*)dst, (size_t)len);
        return dst;
    }
    return mem::copy(src, dst, len, ::zemGetMaxCacheSizeB);
}

// The form used where the length comes from a caller: null pointers give zemStatusNullPtr,
// len < 1 gives zemStatusSize.
[[nodiscard]] zemStatus MemCopyChecked(const void* src, void* dst, int32_t len);

// Sets len bytes at dst to zero and returns dst.
void* MemZero(void* dst, int32_t len);

// Sets len bytes at dst to value and returns dst.
ZEM_INLINE void* MemFill(uint8_t value, void* dst, int32_t len) {
    if (len <= mem::kVectorFillMax) {
        if (len > 0) mem::fill_vector(value, (uint8_t*)dst, (size_t)len);
        return dst;
    }
    return mem::fill(value, dst, len, ::zemGetMaxCacheSizeB);
}

}  // namespace zem
