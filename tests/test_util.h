// Helpers shared by the suites: guard-page buffers and deterministic data.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <vector>

#include "splitmix.h"

namespace zt {

// A buffer of n bytes that ends exactly at an inaccessible page, so that any access past its
// end faults. With `at_start` the guard page sits right before it instead.
class GuardedBuffer {
  public:
    explicit GuardedBuffer(size_t n, bool at_start = false) : n_(n) {
        size_t page = (size_t)sysconf(_SC_PAGESIZE);
        size_t body = (n + page - 1) / page * page;
        map_size_ = body + 2 * page;
        base_ = (uint8_t*)mmap(nullptr, map_size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        mprotect(base_, page, PROT_NONE);
        mprotect(base_ + page + body, page, PROT_NONE);
        data_ = at_start ? base_ + page : base_ + page + body - n;
    }
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;
    ~GuardedBuffer() { munmap(base_, map_size_); }

    uint8_t* data() { return data_; }
    size_t size() const { return n_; }
    // Copies bytes in so the buffer's last byte is the data's last byte.
    void assign(const void* src, size_t n) { memcpy(data_, src, n < n_ ? n : n_); }

  private:
    size_t n_, map_size_;
    uint8_t* base_;
    uint8_t* data_;
};

inline std::vector<uint8_t> random_bytes(size_t n, uint64_t seed) {
    Rng r(seed);
    std::vector<uint8_t> v(n);
    for (auto& b : v) b = uint8_t(r.next());
    return v;
}

// Compressible data: runs, repeats at varying distances and a limited alphabet, the material
// that exercises every match and literal path of an LZ-style codec.
inline std::vector<uint8_t> compressible_bytes(size_t n, uint64_t seed) {
    Rng r(seed);
    std::vector<uint8_t> v;
    v.reserve(n);
    while (v.size() < n) {
        uint32_t kind = r.below(8);
        if (kind < 3 && v.size() > 8) {
            size_t dist = 1 + r.below(uint32_t(v.size() < 70000 ? v.size() : 70000));
            size_t len = 3 + r.below(kind == 0 ? 300 : 20);
            for (size_t i = 0; i < len && v.size() < n; ++i) v.push_back(v[v.size() - dist]);
        } else if (kind == 3) {
            uint8_t c = uint8_t(r.next());
            size_t len = 1 + r.below(100);
            for (size_t i = 0; i < len && v.size() < n; ++i) v.push_back(c);
        } else {
            size_t len = 1 + r.below(30);
            for (size_t i = 0; i < len && v.size() < n; ++i) v.push_back(uint8_t('a' + r.below(20)));
        }
    }
    return v;
}

}  // namespace zt
