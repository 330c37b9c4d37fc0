// The deflate writer at every level (1 is the single-pass path) and in every wrapper, on
// arbitrary input fed in pieces with flushes between them: zlib and our inflater must both give
// back the input, and without flushes the stream must equal the one-shot stream whatever the
// pieces. Byte 0 picks format and level, byte 1 the pieces and flushes, byte 2 a dictionary.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <zlib.h>

#include <vector>

#include "deflate_stream.h"
#include "inflate_stream.h"

using namespace zem::stream;

namespace {

constexpr size_t kMaxInput = 1 << 17;  // a few blocks and window slides, fast enough for depth

std::vector<uint8_t> zlib_inflate(Format f, const std::vector<uint8_t>& z, const uint8_t* dict, size_t dict_len,
                                  size_t expect) {
    z_stream s{};
    if (inflateInit2(&s, f == Format::Raw ? -15 : f == Format::Zlib ? 15 : 31) != Z_OK) abort();
    if (dict_len && f == Format::Raw && inflateSetDictionary(&s, dict, uInt(dict_len)) != Z_OK) abort();
    std::vector<uint8_t> out(expect + 1);
    s.next_in = const_cast<Bytef*>(z.data());
    s.avail_in = uInt(z.size());
    s.next_out = out.data();
    s.avail_out = uInt(out.size());
    int r = inflate(&s, Z_FINISH);
    if (r == Z_NEED_DICT) {
        if (inflateSetDictionary(&s, dict, uInt(dict_len)) != Z_OK) abort();
        r = inflate(&s, Z_FINISH);
    }
    if (r != Z_STREAM_END || s.avail_in != 0) abort();
    out.resize(out.size() - s.avail_out);
    inflateEnd(&s);
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    const Format format = data[0] % 3 == 0 ? Format::Raw : data[0] % 3 == 1 ? Format::Zlib : Format::Gzip;
    const int level = 1 + data[0] / 3 % 9;
    uint32_t x = data[1] * 2654435761u + 1;
    const bool flushes = data[1] & 1;
    const uint8_t dict_sel = data[2];
    data += 3, size -= 3;
    if (size > kMaxInput) size = kMaxInput;
    const size_t dict_len = format != Format::Gzip ? dict_sel * size / 1024 : 0;
    // The dictionary is the input's front: matches into it are then likely.
    const uint8_t* dict = data;
    const uint8_t* in = data + dict_len;
    const size_t n = size - dict_len;

    std::vector<uint8_t> whole(deflate_bound(n));
    size_t whole_len = 0;
    if (!deflate_buffer(format, level, in, n, whole.data(), whole.size(), &whole_len, dict_len ? dict : nullptr,
                        dict_len))
        abort();
    whole.resize(whole_len);

    static Deflater* d = new Deflater(format, level);
    *d = Deflater(format, level);
    if (dict_len && !d->set_dictionary(dict, dict_len)) abort();
    std::vector<uint8_t> pieces, buf(4096);
    const uint8_t* p = in;
    size_t left = n;
    DeflateResult r = DeflateResult::Ok;
    while (r != DeflateResult::End) {
        x = x * 1103515245u + 12345u;
        size_t take = left < 1 + (x >> 8) % 5000 ? left : 1 + (x >> 8) % 5000, given = take;
        Flush f = Flush::None;
        if (take == left) f = Flush::Finish;
        else if (flushes && (x >> 28) == 1) f = Flush::Sync;
        else if (flushes && (x >> 28) == 2) f = Flush::Full;
        // Output room varies too, down to one byte, so that a flush stops halfway; a call that
        // fills its room is repeated with the same flush.
        size_t room = 0;
        do {
            room = 1 + (x >> 4) % buf.size();
            uint8_t* q = buf.data();
            r = d->run(p, take, q, room, f);
            pieces.insert(pieces.end(), buf.data(), q);
            x = x * 1103515245u + 12345u;
        } while (r != DeflateResult::End && room == 0);
        if (take != 0) abort();
        left -= given;
    }
    if (!flushes && pieces != whole) abort();

    for (const std::vector<uint8_t>* z : {&whole, &pieces}) {
        if (zlib_inflate(format, *z, dict, dict_len, n) != std::vector<uint8_t>(in, in + n)) abort();
        if (dict_len) continue;  // our one-shot inflater takes no dictionary
        std::vector<uint8_t> back(n + 1);
        size_t got = 0, used = 0;
        if (inflate_buffer(format, z->data(), z->size(), back.data(), back.size(), &got, &used) !=
                InflateResult::End ||
            got != n || used != z->size() || memcmp(back.data(), in, n) != 0)
            abort();
    }
    return 0;
}
