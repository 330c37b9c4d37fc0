// The LZ4 frame reader on arbitrary input, whole and in small pieces into a small output; and
// the writer's frames, under options taken from the input, read back to the same bytes.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <vector>

#include "lz4_frame.h"

using namespace zem::stream;

namespace {

std::vector<uint8_t> read_all(const uint8_t* data, size_t size, size_t piece, Lz4FrameResult* last) {
    Lz4FrameReader r;
    std::vector<uint8_t> got;
    uint8_t buf[1000];
    *last = Lz4FrameResult::Ok;
    for (;;) {
        size_t n = size < piece ? size : piece, give = n, room = sizeof buf;
        uint8_t* q = buf;
        *last = r.run(data, n, q, room);
        size -= give - n;
        got.insert(got.end(), buf, q);
        // A frame's end with input left over: another frame may follow, so reading goes on.
        if (*last == Lz4FrameResult::End && size > 0) continue;
        if (*last != Lz4FrameResult::Ok || (give == n && q == buf)) break;
    }
    return got;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Lz4FrameResult whole, pieces;
    auto a = read_all(data, size, size, &whole);
    auto b = read_all(data, size, 1 + (size % 13), &pieces);
    // However the input arrives, the reader reaches the same verdict and the same bytes.
    if (whole != pieces || a != b) __builtin_trap();

    if (size < 2) return 0;
    Lz4FrameOptions opt;
    opt.level = 1 + data[0] % 9;
    opt.linked = data[0] & 0x10;
    opt.block_checksum = data[0] & 0x20;
    opt.content_checksum = data[0] & 0x40;
    opt.block_size = 64u << (2 * (data[1] & 3));
    opt.content_size = data[1] & 4 ? int64_t(size) : -1;
    Lz4FrameWriter w(opt);
    std::vector<uint8_t> frame(Lz4FrameWriter::bound(opt, size));
    const uint8_t* p = data;
    size_t left = size, room = frame.size();
    uint8_t* q = frame.data();
    w.write(p, left, q, room);
    if (left || w.finish(q, room) != Lz4FrameResult::End) __builtin_trap();
    frame.resize(size_t(q - frame.data()));
    Lz4FrameResult r;
    auto back = read_all(frame.data(), frame.size(), frame.size(), &r);
    if (r != Lz4FrameResult::End || back.size() != size || memcmp(back.data(), data, size)) __builtin_trap();
    return 0;
}
