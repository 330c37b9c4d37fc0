// xxHash32, the checksum of the LZ4 frame (content, blocks and the descriptor byte), one-shot and
// in pieces. The library has no use for it, so it lives with the container that needs it.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace zem::stream {

uint32_t xxh32(const void* data, size_t len, uint32_t seed);

// The same hash over data that arrives in pieces: update() in any split gives xxh32 of the whole.
class Xxh32 {
  public:
    explicit Xxh32(uint32_t seed = 0) { reset(seed); }
    void reset(uint32_t seed = 0);
    void update(const void* data, size_t len);
    [[nodiscard]] uint32_t digest() const;

  private:
    uint32_t v_[4];
    uint32_t seed_;
    uint64_t total_;
    uint8_t buf_[16];  // a stripe not yet complete
    uint32_t buf_len_;
};

}  // namespace zem::stream
