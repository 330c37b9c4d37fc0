// The LZSS encoder on arbitrary input cut into calls of arbitrary sizes, with output rooms that
// run out mid-call and mid-flush: the stream must stay within its bound and decode, in other
// arbitrary pieces, to exactly the input. Byte 0 seeds the cuts.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "zemdc.h"

namespace {

constexpr size_t kMaxInput = 1 << 17;  // several window lengths

struct Cuts {
    uint32_t x;
    int32_t next(int32_t most) {
        x = x * 1103515245u + 12345u;
        // Mostly small pieces, sometimes large ones.
        const int32_t cap = (x >> 30) == 0 ? most : 64;
        return 1 + int32_t((x >> 8) % uint32_t(cap < most ? cap : most));
    }
};

zemLZSSState_8u* fresh_state(std::vector<uint8_t>& mem) {
    int32_t bytes = 0;
    zemsLZSSGetSize_8u(&bytes);
    mem.resize(size_t(bytes) + 1);
    return reinterpret_cast<zemLZSSState_8u*>(mem.data() + 1);  // any alignment is allowed
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    Cuts cuts{data[0] * 2654435761u + 7};
    data += 1, size -= 1;
    if (size > kMaxInput) size = kMaxInput;
    const std::vector<uint8_t> in(data, data + size);

    static std::vector<uint8_t> enc_mem, dec_mem;
    zemLZSSState_8u* enc = fresh_state(enc_mem);
    zemsEncodeLZSSInit_8u(enc);
    const size_t bound = ZEM_LZSS_BOUND(size);
    std::vector<uint8_t> z;
    const uint8_t* p = in.data();
    size_t left = size;
    while (left > 0) {
        int32_t take = cuts.next(int32_t(left < 65536 ? left : 65536)), given = take;
        while (take > 0) {
            // A fresh output of its exact room each call: writes beyond it are seen.
            const int32_t room0 = cuts.next(4096);
            std::vector<uint8_t> out(static_cast<size_t>(room0));
            uint8_t* q = out.data();
            int32_t room = room0;
            const zemStatus st = zemsEncodeLZSS_8u(&p, &take, &q, &room, enc);
            if ((st != zemStatusOk && st != zemStatusDstTooSmall) || room < 0 || q != out.data() + (room0 - room) ||
                (st == zemStatusOk && take != 0))
                abort();
            z.insert(z.end(), out.data(), q);
        }
        left -= size_t(given);
    }
    for (zemStatus st = zemStatusDstTooSmall; st == zemStatusDstTooSmall;) {
        uint8_t out[4];
        uint8_t* q = out;
        int32_t room = cuts.next(4);
        st = zemsEncodeLZSSFlush_8u(&q, &room, enc);
        if (st != zemStatusOk && st != zemStatusDstTooSmall) abort();
        z.insert(z.end(), out, q);
    }
    if (z.size() > bound) abort();

    zemLZSSState_8u* dec = fresh_state(dec_mem);
    zemsDecodeLZSSInit_8u(dec);
    std::vector<uint8_t> back;
    // Padding is under 8 bits and no token is shorter than 9, so once the stream is used up
    // the output is exactly the input, with nothing made up from the padding.
    for (size_t at = 0; at < z.size();) {
        const int32_t given = cuts.next(int32_t(z.size() - at));
        const std::vector<uint8_t> piece(z.begin() + long(at), z.begin() + long(at) + given);
        const uint8_t* s = piece.data();
        int32_t s_len = given;
        for (zemStatus st = zemStatusDstTooSmall; st == zemStatusDstTooSmall;) {
            const int32_t room0 = cuts.next(4096);
            std::vector<uint8_t> out(static_cast<size_t>(room0));
            uint8_t* q = out.data();
            int32_t room = room0;
            st = zemsDecodeLZSS_8u(&s, &s_len, &q, &room, dec);
            if ((st != zemStatusOk && st != zemStatusDstTooSmall) || (st == zemStatusOk && s_len != 0) ||
                q != out.data() + (room0 - room))
                abort();
            back.insert(back.end(), out.data(), q);
            if (back.size() > size) abort();
        }
        at += size_t(given);
    }
    if (back != in) abort();
    return 0;
}
