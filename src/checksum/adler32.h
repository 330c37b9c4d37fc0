#pragma once

#include <stddef.h>
#include <stdint.h>

namespace zem::adler32 {

// Returns the Adler-32 of n bytes at p continued from adler (whose halves may be unreduced);
// the result's halves are reduced modulo 65521.
[[nodiscard]] uint32_t update(uint32_t adler, const uint8_t* p, size_t n);

}  // namespace zem::adler32
