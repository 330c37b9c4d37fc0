#include "xxhash32.h"

#include <string.h>

#include "core/bytes.h"

namespace zem::stream {
namespace {

constexpr uint32_t kP1 = 2654435761u, kP2 = 2246822519u, kP3 = 3266489917u, kP4 = 668265263u, kP5 = 374761393u;
constexpr size_t kStripe = 16;

constexpr uint32_t rotl(uint32_t x, int r) { return (x << r) | (x >> (32 - r)); }
constexpr uint32_t round(uint32_t acc, uint32_t lane) { return rotl(acc + lane * kP2, 13) * kP1; }

// Four independent lanes over whole 16-byte stripes; returns the bytes consumed.
size_t stripes(uint32_t v[4], const uint8_t* p, size_t len) {
    size_t n = len / kStripe * kStripe;
    for (size_t i = 0; i < n; i += kStripe) {
        v[0] = round(v[0], load32(p + i));
        v[1] = round(v[1], load32(p + i + 4));
        v[2] = round(v[2], load32(p + i + 8));
        v[3] = round(v[3], load32(p + i + 12));
    }
    return n;
}

// The tail (< 16 bytes) and the final mix, shared by the one-shot and the piecewise forms.
uint32_t finish(uint32_t h, const uint8_t* p, size_t len) {
    for (; len >= 4; p += 4, len -= 4) h = rotl(h + load32(p) * kP3, 17) * kP4;
    for (; len; ++p, --len) h = rotl(h + *p * kP5, 11) * kP1;
    h ^= h >> 15;
    h *= kP2;
    h ^= h >> 13;
    h *= kP3;
    return h ^ (h >> 16);
}

uint32_t merge(const uint32_t v[4]) { return rotl(v[0], 1) + rotl(v[1], 7) + rotl(v[2], 12) + rotl(v[3], 18); }

void init_lanes(uint32_t v[4], uint32_t seed) {
    v[0] = seed + kP1 + kP2;
    v[1] = seed + kP2;
    v[2] = seed;
    v[3] = seed - kP1;
}

}  // namespace

uint32_t xxh32(const void* data, size_t len, uint32_t seed) {
    auto p = static_cast<const uint8_t*>(data);
    uint32_t h = seed + kP5;
    size_t done = 0;
    if (len >= kStripe) {
        uint32_t v[4];
        init_lanes(v, seed);
        done = stripes(v, p, len);
        h = merge(v);
    }
    return finish(h + uint32_t(len), p + done, len - done);
}

void Xxh32::reset(uint32_t seed) {
    seed_ = seed;
    init_lanes(v_, seed);
    total_ = 0;
    buf_len_ = 0;
}

void Xxh32::update(const void* data, size_t len) {
    auto p = static_cast<const uint8_t*>(data);
    total_ += len;
    if (buf_len_) {
        size_t take = kStripe - buf_len_ < len ? kStripe - buf_len_ : len;
        memcpy(buf_ + buf_len_, p, take);
        buf_len_ += uint32_t(take);
        p += take;
        len -= take;
        if (buf_len_ < kStripe) return;
        stripes(v_, buf_, kStripe);
        buf_len_ = 0;
    }
    size_t n = stripes(v_, p, len);
    memcpy(buf_, p + n, len - n);
    buf_len_ = uint32_t(len - n);
}

uint32_t Xxh32::digest() const {
    uint32_t h = total_ >= kStripe ? merge(v_) : seed_ + kP5;
    // The length enters modulo 2^32, as in the one-shot form.
    return finish(h + uint32_t(total_), buf_, buf_len_);
}

}  // namespace zem::stream
