// .lzo files (lzop's format) and the join of separately compressed segments.
#include "lzo_file.h"

#include <string.h>

namespace zem::stream {

namespace {

constexpr uint8_t kMagic[9] = {0x89, 0x4C, 0x5A, 0x4F, 0x00, 0x0D, 0x0A, 0x1A, 0x0A};
constexpr uint16_t kVersion = 0x1040, kLibVersion = 0x20A0, kNeeded = 0x0940;
constexpr uint32_t kAdlerD = 0x1, kAdlerC = 0x2, kExtra = 0x40, kCrcD = 0x100, kCrcC = 0x200, kFilter = 0x800,
                   kCrcHeader = 0x1000;
constexpr uint32_t kOsUnix = 0x03000000;  // what lzop writes on Unix, in the flags' top byte
constexpr uint32_t kMaxBlock = 64u << 20;  // lzop refuses larger blocks, and so do we

void put8(std::vector<uint8_t>& v, uint32_t x) { v.push_back(uint8_t(x)); }
void put16(std::vector<uint8_t>& v, uint32_t x) {
    put8(v, x >> 8);
    put8(v, x);
}
void put32(std::vector<uint8_t>& v, uint32_t x) {
    put16(v, x >> 16);
    put16(v, x);
}
uint32_t get16(const uint8_t* p) { return uint32_t(p[0]) << 8 | p[1]; }
uint32_t get32(const uint8_t* p) { return get16(p) << 16 | get16(p + 2); }

uint32_t adler32(const uint8_t* p, size_t n) {
    uint32_t a = 1;
    for (size_t done = 0; done < n;) {
        const size_t k = n - done < (1u << 30) ? n - done : (1u << 30);
        zemsAdler32_8u(p + done, int32_t(k), &a);
        done += k;
    }
    return a;
}
uint32_t crc32(const uint8_t* p, size_t n) {
    uint32_t c = 0;
    for (size_t done = 0; done < n;) {
        const size_t k = n - done < (1u << 30) ? n - done : (1u << 30);
        zemsCRC32_8u(p + done, int32_t(k), &c);
        done += k;
    }
    return c;
}

}  // namespace

// ---- writer ----

LzoWriter::LzoWriter(const LzoFileOptions& options) : opt_(options) {}

bool LzoWriter::header(std::vector<uint8_t>& out) {
    if (started_) return true;
    if (opt_.block_size == 0 || opt_.block_size > kMaxBlock || opt_.name.size() > 255) return false;
    uint32_t size = 0;
    if (zemsEncodeLZOGetSize(opt_.method, opt_.block_size, &size) != zemStatusOk) return false;
    state_.resize(size);
    zemsEncodeLZOInit_8u(opt_.method, opt_.block_size, (zemLZOState_8u*)state_.data());
    scratch_.resize(ZEM_LZO_BOUND(opt_.block_size));
    started_ = true;
    out.insert(out.end(), kMagic, kMagic + sizeof kMagic);
    const size_t from = out.size();
    const bool fast = opt_.method == zemLZOFast;
    put16(out, kVersion);
    put16(out, kLibVersion);
    put16(out, kNeeded);
    put8(out, fast ? 1 : 3);
    put8(out, fast ? 5 : 9);
    put32(out, kAdlerD | kOsUnix);
    put32(out, opt_.mode);
    put32(out, uint32_t(opt_.mtime));
    put32(out, uint32_t(opt_.mtime >> 32));
    put8(out, uint32_t(opt_.name.size()));
    out.insert(out.end(), opt_.name.begin(), opt_.name.end());
    put32(out, adler32(out.data() + from, out.size() - from));
    return true;
}

void LzoWriter::block(const uint8_t* in, size_t n, std::vector<uint8_t>& out) {
    uint32_t c = uint32_t(scratch_.size());
    zemsEncodeLZO_8u(in, uint32_t(n), scratch_.data(), &c, (zemLZOState_8u*)state_.data());
    const bool stored = c >= n;  // lzop keeps a block as it is when it does not shrink
    put32(out, uint32_t(n));
    put32(out, stored ? uint32_t(n) : c);
    put32(out, adler32(in, n));
    if (stored)
        out.insert(out.end(), in, in + n);
    else
        out.insert(out.end(), scratch_.data(), scratch_.data() + c);
}

bool LzoWriter::write(const uint8_t* in, size_t n, std::vector<uint8_t>& out) {
    if (!header(out)) return false;
    // Whole blocks straight from the input while nothing is pending; the rest waits.
    while (pending_.empty() && n >= opt_.block_size) {
        block(in, opt_.block_size, out);
        in += opt_.block_size;
        n -= opt_.block_size;
    }
    while (n > 0) {
        const size_t k = n < opt_.block_size - pending_.size() ? n : opt_.block_size - pending_.size();
        pending_.insert(pending_.end(), in, in + k);
        in += k;
        n -= k;
        if (pending_.size() == opt_.block_size) {
            block(pending_.data(), pending_.size(), out);
            pending_.clear();
        }
    }
    return true;
}

bool LzoWriter::finish(std::vector<uint8_t>& out) {
    if (!header(out)) return false;
    if (!pending_.empty()) block(pending_.data(), pending_.size(), out);
    pending_.clear();
    put32(out, 0);
    started_ = false;
    return true;
}

bool lzo_file_compress(const uint8_t* in, size_t n, std::vector<uint8_t>& out, const LzoFileOptions& options) {
    LzoWriter w(options);
    return w.write(in, n, out) && w.finish(out);
}

// ---- reader ----
//
// header() and block() parse from buf_[pos_]: Ok when more input is needed (nothing taken),
// End after the end block, BadData; Truncated stands for "took one piece, go on".

LzoResult LzoReader::header() {
    const uint8_t* p = buf_.data() + pos_;
    const size_t avail = buf_.size() - pos_;
    size_t need = 9 + 2 + 2;
    if (avail < need) return LzoResult::Ok;
    if (memcmp(p, kMagic, sizeof kMagic) != 0) return LzoResult::BadData;
    const uint32_t version = get16(p + 9);
    if (version < 0x0900) return LzoResult::BadData;
    const bool v940 = version >= 0x0940;
    // version, library version, [needed], method, [level], flags, mode, mtime, [mtime high], name length
    need += (v940 ? 2 : 0) + 1 + (v940 ? 1 : 0) + 4;
    if (avail < need) return LzoResult::Ok;
    const uint8_t method = p[need - 5 - (v940 ? 1 : 0)];
    if (method < 1 || method > 3) return LzoResult::BadData;
    const uint32_t flags = get32(p + need - 4);
    if (flags & kFilter) return LzoResult::BadData;
    need += 4 + 4 + (v940 ? 4 : 0) + 1;
    if (avail < need) return LzoResult::Ok;
    const size_t name_len = p[need - 1];
    need += name_len + 4;
    if (avail < need) return LzoResult::Ok;
    const uint32_t sum = get32(p + need - 4);
    const size_t hdr = need - 4 - 9;
    if ((flags & kCrcHeader ? crc32(p + 9, hdr) : adler32(p + 9, hdr)) != sum) return LzoResult::BadData;
    if (flags & kExtra) {
        if (avail < need + 4) return LzoResult::Ok;
        const uint64_t extra = get32(p + need);
        if (extra > kMaxBlock) return LzoResult::BadData;
        need += 4 + size_t(extra) + 4;
        if (avail < need) return LzoResult::Ok;
    }
    name_.assign((const char*)p + 9 + hdr - name_len, name_len);
    flags_ = flags;
    pos_ += need;
    have_header_ = true;
    return LzoResult::Truncated;
}

LzoResult LzoReader::block(std::vector<uint8_t>& out) {
    const uint8_t* p = buf_.data() + pos_;
    const size_t avail = buf_.size() - pos_;
    if (avail < 4) return LzoResult::Ok;
    const uint32_t ulen = get32(p);
    if (ulen == 0) {
        pos_ += 4;
        return LzoResult::End;
    }
    if (ulen > kMaxBlock) return LzoResult::BadData;
    if (avail < 8) return LzoResult::Ok;
    const uint32_t clen = get32(p + 4);
    if (clen == 0 || clen > ulen) return LzoResult::BadData;
    const bool packed = clen < ulen;
    const int sums_d = ((flags_ & kAdlerD) != 0) + ((flags_ & kCrcD) != 0);
    const int sums_c = packed ? ((flags_ & kAdlerC) != 0) + ((flags_ & kCrcC) != 0) : 0;
    const size_t head = 8 + 4 * size_t(sums_d + sums_c);
    if (avail < head + clen) return LzoResult::Ok;
    const uint8_t* sums = p + 8;
    const uint8_t* data = p + head;
    if (packed) {
        const uint8_t* s = sums + 4 * sums_d;
        if ((flags_ & kAdlerC) && get32(s) != adler32(data, clen)) return LzoResult::BadData;
        if (flags_ & kAdlerC) s += 4;
        if ((flags_ & kCrcC) && get32(s) != crc32(data, clen)) return LzoResult::BadData;
    }
    const size_t at = out.size();
    out.resize(at + ulen);
    if (packed) {
        uint32_t n = ulen;
        if (zemsDecodeLZOSafe_8u(data, clen, out.data() + at, &n) != zemStatusOk || n != ulen) return LzoResult::BadData;
    } else {
        memcpy(out.data() + at, data, ulen);
    }
    if ((flags_ & kAdlerD) && get32(sums) != adler32(out.data() + at, ulen)) return LzoResult::BadData;
    if (flags_ & kAdlerD) sums += 4;
    if ((flags_ & kCrcD) && get32(sums) != crc32(out.data() + at, ulen)) return LzoResult::BadData;
    pos_ += head + clen;
    return LzoResult::Truncated;
}

LzoResult LzoReader::feed(const uint8_t* in, size_t n, std::vector<uint8_t>& out) {
    if (failed_) return LzoResult::BadData;
    buf_.insert(buf_.end(), in, in + n);
    if (ended_) return LzoResult::End;
    for (;;) {
        const LzoResult r = have_header_ ? block(out) : header();
        if (r == LzoResult::Truncated) continue;
        if (r == LzoResult::BadData) failed_ = true;
        if (r == LzoResult::End) ended_ = true;
        // Only the unused bytes are kept.
        buf_.erase(buf_.begin(), buf_.begin() + ptrdiff_t(pos_));
        pos_ = 0;
        return r;
    }
}

LzoResult lzo_file_decompress(const uint8_t* in, size_t n, std::vector<uint8_t>& out) {
    LzoReader r;
    const LzoResult res = r.feed(in, n, out);
    return res == LzoResult::Ok ? LzoResult::Truncated : res;
}

}  // namespace zem::stream
