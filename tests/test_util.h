// What every suite starts from: GoogleTest, the library's header, the standard containers and
// the reference codecs' headers; guard-page buffers, deterministic data, the reference codecs as
// oracles, and the plain definitions that more than one suite checks against.
#pragma once

#include <bzlib.h>
#include <gtest/gtest.h>
#include <lz4.h>
#include <lz4frame.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <numeric>
#include <string>
#include <vector>

#include "splitmix.h"
#include "zemdc.h"

using Bytes = std::vector<uint8_t>;

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
    // A copy of `b` against the guard page.
    explicit GuardedBuffer(const Bytes& b, bool at_start = false) : GuardedBuffer(b.size(), at_start) {
        assign(b.data(), b.size());
    }
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;
    ~GuardedBuffer() { munmap(base_, map_size_); }

    uint8_t* data() { return data_; }
    size_t size() const { return n_; }
    // Copies bytes in so the buffer's last byte is the data's last byte.
    void assign(const void* src, size_t n) {
        if (n) memcpy(data_, src, n < n_ ? n : n_);
    }
    Bytes bytes(size_t n) const { return Bytes(data_, data_ + n); }

  private:
    size_t n_, map_size_;
    uint8_t* base_;
    uint8_t* data_;
};

inline Bytes cat(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

inline Bytes random_bytes(size_t n, uint64_t seed) {
    Rng r(seed);
    Bytes v(n);
    for (auto& b : v) b = uint8_t(r.next());
    return v;
}

// Compressible data: runs, repeats at varying distances and a limited alphabet, the material
// that exercises every match and literal path of an LZ-style codec.
inline Bytes compressible_bytes(size_t n, uint64_t seed) {
    Rng r(seed);
    Bytes v;
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

// Runs of every length that matters to a run-length rule (1..5, 258..263, 518..520, 1000)
// between literal stretches, with equal bytes often on both sides of a run's end.
inline Bytes runs_bytes(size_t n, uint64_t seed) {
    static const uint32_t lens[] = {1, 2, 3, 4, 5, 258, 259, 260, 263, 518, 519, 520, 1000};
    Rng r(seed);
    Bytes v;
    while (v.size() < n) {
        uint8_t b = uint8_t(r.below(4) == 0 ? r.next() : 'a' + r.below(3));
        uint32_t len = r.below(3) ? 1 + r.below(6) : lens[r.below(13)];
        v.insert(v.end(), std::min<size_t>(len, n - v.size()), b);
    }
    return v;
}

// Words of a small vocabulary: many short matches at many distances, as prose gives them.
inline Bytes text_like(size_t n, uint64_t seed) {
    static const char* const words[] = {"the ", "of ", "compression ", "and ", "block ", "match ", "a ", "zemdc ",
                                        "history ", "literal ", "chain ", "hash ", "\n", ", ", "window ", "level "};
    Rng r(seed);
    Bytes v;
    while (v.size() < n)
        for (const char* c = words[r.below(16)]; *c; ++c) v.push_back(uint8_t(*c));
    v.resize(n);
    return v;
}

// ---- the reference codecs ----

// zlib's deflate; the window bits choose the wrapper: -15 raw, 15 zlib, 31 gzip.
inline Bytes zlib_deflate(const Bytes& in, int wbits, int level = 6, int strategy = Z_DEFAULT_STRATEGY,
                          const Bytes* dict = nullptr) {
    z_stream z{};
    EXPECT_EQ(deflateInit2(&z, level, Z_DEFLATED, wbits, 8, strategy), Z_OK);
    if (dict) deflateSetDictionary(&z, dict->data(), uInt(dict->size()));
    Bytes out(deflateBound(&z, uLong(in.size())) + 64);
    z.next_in = const_cast<uint8_t*>(in.data()), z.avail_in = uInt(in.size());
    z.next_out = out.data(), z.avail_out = uInt(out.size());
    EXPECT_EQ(deflate(&z, Z_FINISH), Z_STREAM_END);
    out.resize(z.total_out);
    deflateEnd(&z);
    return out;
}

// zlib's inflate of one whole stream, all its input used, into at most `cap` bytes. A dictionary
// goes to a raw stream at once and to a zlib stream when it asks.
inline Bytes zlib_inflate(const uint8_t* p, size_t n, int wbits, size_t cap, const Bytes* dict = nullptr) {
    z_stream z{};
    EXPECT_EQ(inflateInit2(&z, wbits), Z_OK);
    if (dict && wbits < 0) inflateSetDictionary(&z, dict->data(), uInt(dict->size()));
    Bytes out(cap + 1);
    z.next_in = const_cast<uint8_t*>(p), z.avail_in = uInt(n);
    z.next_out = out.data(), z.avail_out = uInt(out.size());
    int r = inflate(&z, Z_FINISH);
    if (r == Z_NEED_DICT && dict) {
        inflateSetDictionary(&z, dict->data(), uInt(dict->size()));
        r = inflate(&z, Z_FINISH);
    }
    EXPECT_EQ(r, Z_STREAM_END);
    EXPECT_EQ(z.avail_in, 0u);
    out.resize(z.total_out);
    inflateEnd(&z);
    return out;
}
inline Bytes zlib_inflate(const Bytes& comp, int wbits, size_t cap, const Bytes* dict = nullptr) {
    return zlib_inflate(comp.data(), comp.size(), wbits, cap, dict);
}

inline Bytes libbz2_compress(const Bytes& in, int level) {
    unsigned n = unsigned(in.size() + in.size() / 100 + 700);
    Bytes out(n);
    EXPECT_EQ(BZ2_bzBuffToBuffCompress((char*)out.data(), &n, (char*)in.data(), unsigned(in.size()), level, 0, 0),
              BZ_OK);
    out.resize(n);
    return out;
}

inline Bytes libbz2_decompress(const uint8_t* p, size_t n, size_t cap) {
    Bytes out(cap + 1);
    unsigned len = unsigned(out.size());
    EXPECT_EQ(BZ2_bzBuffToBuffDecompress((char*)out.data(), &len, (char*)p, unsigned(n), 0, 0), BZ_OK);
    out.resize(len);
    return out;
}

// An LZ4 block that liblz4 and ours both decode to exactly `want`, with the `dict_len` bytes at
// `dict` as the history before it.
inline void expect_lz4_block(const uint8_t* blk, size_t n, const Bytes& want, const uint8_t* dict = nullptr,
                             int32_t dict_len = 0) {
    Bytes theirs(want.size() + 1), ours(size_t(dict_len) + want.size() + 1);
    EXPECT_EQ(LZ4_decompress_safe_usingDict((const char*)blk, (char*)theirs.data(), int(n), int(theirs.size()),
                                            (const char*)dict, dict_len),
              int(want.size()));
    EXPECT_TRUE(std::equal(want.begin(), want.end(), theirs.begin())) << "liblz4 decodes other bytes";
    int32_t used = int32_t(n), produced = int32_t(want.size() + 1);
    EXPECT_EQ(zemsDecodeLZ4Dict_8u(blk, &used, ours.data(), dict_len, &produced, dict, dict_len), zemStatusOk);
    EXPECT_EQ(produced, int32_t(want.size()));
    EXPECT_TRUE(std::equal(want.begin(), want.end(), ours.begin() + dict_len)) << "our decoder gives other bytes";
}

// Appends one LZ4 sequence: `n` literals, then a match of `mlen` bytes at offset `off`; with
// `off` below 0 the literals alone, as a block's last sequence.
inline void lz4_append(Bytes& b, const uint8_t* lit, size_t n, int off = -1, size_t mlen = 4) {
    auto ext = [&](size_t r) {  // what a length part of 15 leaves to the extension bytes
        for (; r >= 255; r -= 255) b.push_back(255);
        b.push_back(uint8_t(r));
    };
    const size_t m = off < 0 ? 0 : mlen - 4;
    b.push_back(uint8_t(std::min<size_t>(n, 15) << 4 | std::min<size_t>(m, 15)));
    if (n >= 15) ext(n - 15);
    b.insert(b.end(), lit, lit + n);
    if (off < 0) return;
    b.push_back(uint8_t(off)), b.push_back(uint8_t(off >> 8));
    if (m >= 15) ext(m - 15);
}

// liblz4's frame, with checksums and the content size or with neither.
inline Bytes lz4f_compress(const Bytes& data, LZ4F_blockSizeID_t bs, bool linked, bool checks, int level) {
    LZ4F_preferences_t pr{};
    pr.frameInfo.blockSizeID = bs;
    pr.frameInfo.blockMode = linked ? LZ4F_blockLinked : LZ4F_blockIndependent;
    pr.frameInfo.contentChecksumFlag = checks ? LZ4F_contentChecksumEnabled : LZ4F_noContentChecksum;
    pr.frameInfo.blockChecksumFlag = checks ? LZ4F_blockChecksumEnabled : LZ4F_noBlockChecksum;
    pr.frameInfo.contentSize = checks ? data.size() : 0;
    pr.compressionLevel = level;
    Bytes out(LZ4F_compressFrameBound(data.size(), &pr));
    size_t n = LZ4F_compressFrame(out.data(), out.size(), data.data(), data.size(), &pr);
    EXPECT_FALSE(LZ4F_isError(n));
    out.resize(LZ4F_isError(n) ? 0 : n);
    return out;
}

// liblz4's frame decoder over frames that must end exactly with the input.
inline Bytes lz4f_decompress(const uint8_t* p, size_t n, size_t cap) {
    LZ4F_dctx* d = nullptr;
    LZ4F_createDecompressionContext(&d, LZ4F_VERSION);
    Bytes out(cap + 1);
    size_t pos = 0, in_pos = 0, hint = 1;
    while (in_pos < n && hint) {
        size_t dst = out.size() - pos, src = n - in_pos;
        hint = LZ4F_decompress(d, out.data() + pos, &dst, p + in_pos, &src, nullptr);
        if (LZ4F_isError(hint)) {
            ADD_FAILURE() << LZ4F_getErrorName(hint);
            break;
        }
        pos += dst, in_pos += src;
    }
    EXPECT_EQ(hint, 0u) << "frame not complete";
    LZ4F_freeDecompressionContext(d);
    out.resize(pos);
    return out;
}

// What a command prints when run in a scratch directory that holds `input` as the file `in`,
// which is also its standard input; it must exit with status 0.
inline Bytes tool_output(const std::string& cmd, const Bytes& input) {
    char dir[] = "/tmp/zemdc_tool_XXXXXX";
    Bytes out;
    if (!mkdtemp(dir)) {
        ADD_FAILURE() << "no scratch directory";
        return out;
    }
    if (FILE* f = fopen((std::string(dir) + "/in").c_str(), "wb")) {
        EXPECT_EQ(fwrite(input.data(), 1, input.size(), f), input.size());
        fclose(f);
    }
    if (FILE* p = popen(("cd " + std::string(dir) + " && (" + cmd + ") < in").c_str(), "r")) {
        uint8_t buf[65536];
        for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) out.insert(out.end(), buf, buf + n);
        EXPECT_EQ(pclose(p), 0) << cmd;
    }
    EXPECT_EQ(system(("rm -rf " + std::string(dir)).c_str()), 0);
    return out;
}

// ---- plain definitions ----

inline uint32_t reverse_bits(uint32_t code, uint32_t len) {
    uint32_t r = 0;
    for (uint32_t i = 0; i < len; ++i) r |= ((code >> i) & 1) << (len - 1 - i);
    return r;
}

// Bits packed from the least significant end, as DEFLATE streams are; `acc` holds the n < 8 bits
// that do not fill a byte yet.
struct LsbBits {
    Bytes out;
    uint64_t acc = 0;
    uint32_t n = 0;
    void put(uint64_t v, uint32_t bits) {
        acc |= (v & ((uint64_t(1) << bits) - 1)) << n;
        for (n += bits; n >= 8; n -= 8, acc >>= 8) out.push_back(uint8_t(acc));
    }
    // Huffman codes are sent from their most significant bit.
    void code(uint32_t c, uint32_t len) { put(reverse_bits(c, len), len); }
    Bytes finish() {
        if (n) out.push_back(uint8_t(acc));
        acc = n = 0;
        return out;
    }
};

// The block sort by its definition: the last column of the sorted rotations, and the row that
// holds the block itself.
inline Bytes bwt_naive(const Bytes& s, uint32_t& index) {
    const size_t n = s.size();
    std::vector<size_t> rows(n);
    std::iota(rows.begin(), rows.end(), 0);
    std::stable_sort(rows.begin(), rows.end(), [&](size_t a, size_t b) {
        for (size_t d = 0; d < n; ++d) {
            uint8_t x = s[(a + d) % n], y = s[(b + d) % n];
            if (x != y) return x < y;
        }
        return false;
    });
    Bytes last(n);
    for (size_t i = 0; i < n; ++i) {
        last[i] = s[(rows[i] + n - 1) % n];
        if (rows[i] == 0) index = uint32_t(i);
    }
    return last;
}

// The inverse by the successor rule, for any column: from row `index`, each byte's row leads to
// the next.
inline Bytes bwt_invert(const Bytes& last, uint32_t index) {
    const size_t n = last.size();
    std::vector<uint32_t> start(257, 0), next(n);
    for (uint8_t c : last) ++start[c + 1];
    for (int c = 0; c < 256; ++c) start[c + 1] += start[c];
    for (size_t i = 0; i < n; ++i) next[start[last[i]]++] = uint32_t(i);
    Bytes out(n);
    for (size_t k = 0, p = index; k < n; ++k) out[k] = last[p = next[p]];
    return out;
}

}  // namespace zt
