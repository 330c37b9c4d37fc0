// What the C entries of zemstream.h need of a container: one adapter entry per container, with a
// coder for each direction the stream layers offer. A container whose layer is not built has
// null factories and answers "unsupported".
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "zemstream.h"

namespace zem::stream {

// One direction of one container. feed() and finish() follow zemStreamFeed and zemStreamFinish,
// except that they need not report zemStatusDstTooSmall: the entries derive it from the room left.
class Coder {
  public:
    virtual ~Coder() = default;
    virtual zemStatus feed(const uint8_t*& in, size_t& in_len, uint8_t*& out, size_t& out_len) = 0;
    // Ok once everything is out (and, decoding, the input ended cleanly); DstTooSmall while
    // output waits.
    virtual zemStatus finish(uint8_t*& out, size_t& out_len) = 0;
    // A reason for the last error, in the container's terms.
    [[nodiscard]] virtual const char* detail() const { return ""; }
};

struct Adapter {
    int32_t container;
    const char* name;
    const char* suffix;
    int default_level;
    Coder* (*encoder)(int level, uint64_t size_hint);  // size_hint: the whole input's size when known, else ~0
    Coder* (*decoder)();
    uint64_t (*bound)(uint64_t n);
};

// The table of every container of zemstream.h; null when there is no such container.
const Adapter* find_adapter(int32_t container);

}  // namespace zem::stream
