#include "zemdc.h"

namespace {

// The version string is stored, not formatted: the record is constant data of the library.
constexpr zemLibraryVersion kVersion = {
    2022, 3, 0, 0x0FC08BB1, {'q', '4', '\0', '\0'}, "zemDC AVX2 (q4)", "2022.3.0 (r0x0fc08bb1)", "Sep 19 2025",
};

}  // namespace

ZEM_API const zemLibraryVersion* zemdcGetLibVersion(void) { return &kVersion; }
