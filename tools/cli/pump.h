// Runs one zemstream coder from a file descriptor to another through fixed-size buffers, so
// memory does not grow with the file.
#pragma once

#include <stdint.h>

#include <string>

#include "zemstream.h"

namespace zemdc_cli {

struct PumpResult {
    zemStatus status = zemStatusOk;  // of the stream, or zemStatusOk
    int read_errno = 0;              // the input could not be read
    int write_errno = 0;             // the output could not be written
    std::string detail;              // the container's reason for a stream error
    uint64_t in_bytes = 0, out_bytes = 0;
};

// A progress line on standard error, for inputs of known size; `label` names the file.
struct Progress {
    bool enabled = false;
    uint64_t total = 0;
    std::string label;
};

// Reads `in_fd` to its end through a stream of `container` in `direction` at `level`, writing
// the result to `out_fd` (-1 discards it, for testing). When decoding without a forced format
// the container may be 0: it is then told from the input's first bytes.
PumpResult pump(int in_fd, int out_fd, int32_t container, int32_t direction, int32_t level, const Progress& progress);

// The container whose signature starts `p` (n bytes), or 0.
int32_t sniff_container(const uint8_t* p, size_t n);

}  // namespace zemdc_cli
