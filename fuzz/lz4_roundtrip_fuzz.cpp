// Every LZ4 block encoder on arbitrary input, its block decoded by our decoder and by liblz4:
// both must give back exactly the bytes the encoder reports as consumed. Byte 0 picks the
// encoder, bytes 1-2 its acceleration, level, capacity or dictionary length.
#include <lz4.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "zemdc.h"

namespace {

// Both decoders, with the history (if any) right before the output or separate from it.
void check(const uint8_t* block, int32_t block_len, const uint8_t* want, int32_t want_len, const uint8_t* dict,
           int32_t dict_len, bool separate) {
    std::vector<uint8_t> ours(size_t(dict_len) + size_t(want_len) + 1), ref(ours.size());
    if (dict_len) memcpy(ours.data(), dict, size_t(dict_len));
    if (dict_len) memcpy(ref.data(), dict, size_t(dict_len));
    std::vector<uint8_t> in(block, block + block_len);  // exactly sized, so overreads are seen
    int32_t consumed = block_len, produced = want_len + 1;
    const zemStatus st = zemsDecodeLZ4Dict_8u(in.data(), &consumed, ours.data(), dict_len, &produced,
                                              separate ? dict : ours.data(), dict_len);
    if (st != zemStatusOk || consumed != block_len || produced != want_len ||
        memcmp(ours.data() + dict_len, want, size_t(want_len)) != 0)
        abort();
    const char* hist = reinterpret_cast<const char*>(separate ? dict : ref.data());
    const int got = LZ4_decompress_safe_usingDict(reinterpret_cast<const char*>(in.data()),
                                                  reinterpret_cast<char*>(ref.data() + dict_len), block_len,
                                                  want_len + 1, hist, dict_len);
    if (got != want_len || memcmp(ref.data() + dict_len, want, size_t(want_len)) != 0) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    const int mode = data[0] % 7;
    const uint32_t arg = data[1] | uint32_t(data[2]) << 8;
    data += 3, size -= 3;
    if (size > 200000) size = 200000;
    static std::vector<uint8_t> table(16384);
    const int32_t n = int32_t(size);
    std::vector<uint8_t> dst(ZEM_LZ4_BOUND(size_t(size)));
    int32_t out = int32_t(dst.size());
    zemStatus st = zemStatusOk;

    if (mode <= 2) {
        // Plain blocks: the default, the accelerated and the bounded encoder.
        int32_t used = n;
        if (mode == 0) st = zemsEncodeLZ4_8u(data, n, dst.data(), &out, table.data());
        if (mode == 1) st = zemsEncodeLZ4Fast_8u(data, n, dst.data(), &out, table.data(), 1 + int32_t(arg % 70));
        if (mode == 2) {
            out = 1 + int32_t(arg % dst.size());
            dst.resize(size_t(out));  // the capacity ends the buffer
            st = zemsEncodeLZ4Safe_8u(data, &used, dst.data(), &out, table.data());
            if (st == zemStatusDstTooSmall && used < n) st = zemStatusOk;
        }
        if (st != zemStatusOk || used < 0 || used > n || out < 0 || out > int32_t(dst.size())) abort();
        if (used > 0) check(dst.data(), out, data, used, nullptr, 0, false);
        return 0;
    }
    if (mode <= 4) {
        // A dictionary cut from the input's front: separate (mode 3) or in memory before the block.
        const int32_t dict_len = n > 1 ? int32_t(arg % uint32_t(n)) : 0;
        const uint8_t* src = data + dict_len;
        const int32_t len = n - dict_len;
        std::vector<uint8_t> sep(data, data + dict_len);
        const bool separate = mode == 3 && dict_len > 0;
        zemsEncodeLZ4DictHashTableInit_8u(table.data(), len);
        if (dict_len) zemsEncodeLZ4LoadDict_8u(table.data(), separate ? sep.data() : data, dict_len);
        dst.resize(ZEM_LZ4_BOUND(size_t(len)));
        out = int32_t(dst.size());
        st = zemsEncodeLZ4Dict_8u(src, dict_len, len, dst.data(), &out, table.data(),
                                  separate ? sep.data() : (dict_len ? data : nullptr), dict_len);
        if (st != zemStatusOk || out < 1 || out > int32_t(dst.size())) abort();
        check(dst.data(), out, src, len, separate ? sep.data() : data, dict_len, separate);
        return 0;
    }
    // The high-compression encoder, at any level, into a capacity that may cut the block short
    // (mode 5) or into the bound (mode 6). A cut block ends after its last complete sequence,
    // without the closing literals: it is the front of a block that the next call, given the
    // rest with the bytes already encoded as history, completes. The two outputs together are
    // one block of the whole input.
    static std::vector<uint8_t> hash(131072), chain(262144);
    uint8_t* tables[2] = {hash.data(), chain.data()};
    zemsEncodeLZ4HCHashTableInit_8u(tables);
    const int32_t level = int32_t(arg % 11);
    if (mode == 5) {
        out = 1 + int32_t((arg >> 4) % dst.size());
        dst.resize(size_t(out));
    }
    int32_t used = n;
    st = zemsEncodeLZ4HC_8u(data, 0, &used, dst.data(), &out, tables, nullptr, 0, level);
    if (st == zemStatusDstTooSmall && mode == 5) st = zemStatusOk;
    if (st != zemStatusOk || used < 0 || used > n || (mode == 6 && used != n)) abort();
    std::vector<uint8_t> whole(dst.begin(), dst.begin() + out);
    if (used < n) {
        std::vector<uint8_t> rest(ZEM_LZ4_BOUND(size_t(n - used)));
        int32_t left = n - used, room = int32_t(rest.size());
        st = zemsEncodeLZ4HC_8u(data + used, used, &left, rest.data(), &room, tables, data, used, level);
        if (st != zemStatusOk || left != n - used) abort();
        whole.insert(whole.end(), rest.begin(), rest.begin() + room);
    }
    check(whole.data(), int32_t(whole.size()), data, n, nullptr, 0, false);
    return 0;
}
