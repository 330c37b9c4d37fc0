// The deterministic generator of the tests and the benchmark: splitmix64, so that fixed seeds
// give the same data on every machine and in every run.
#pragma once

#include <stdint.h>

namespace zt {

struct Rng {
    uint64_t s;
    explicit constexpr Rng(uint64_t seed) : s(seed) {}
    uint64_t next() {
        uint64_t z = (s += 0x9e3779b97f4a7c15ull);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
        return z ^ (z >> 31);
    }
    // Uniform in [0, n), from the high bits.
    uint32_t below(uint32_t n) { return uint32_t((next() >> 32) * n >> 32); }
    // Uniform in [0, 1), with the 53 bits a double holds.
    double unit() { return double(next() >> 11) * (1.0 / 9007199254740992.0); }
};

}  // namespace zt
