// The .bz2 reader: stream and block headers here, everything inside a block in the library.
#include "bz2_reader.h"

#include <string.h>

#include <algorithm>
#include <climits>

namespace zem::stream {

namespace {

constexpr uint32_t kBlockMagicHi = 0x314159, kBlockMagicLo = 0x265359;
constexpr uint32_t kEndMagicHi = 0x177245, kEndMagicLo = 0x385090;
constexpr uint32_t kLevelBytes = 100000;
// The library's length arguments are 32-bit; longer buffers are passed in slices.
constexpr size_t kSlice = size_t(INT32_MAX);
// A valid pointer for calls with no input left (the library refuses a null one).
const uint8_t kNoInput[1] = {0};

}  // namespace

struct Bz2Reader::Call {
    const uint8_t*& in;
    size_t& in_len;
    uint8_t*& out;
    size_t& out_len;
};

Bz2Reader::Bz2Reader() { reset(); }

void Bz2Reader::reset() {
    step_ = Step::StreamMagic;
    code_ = 0;
    bits_ = 0;
    part_ = 0;
    total_out_ = 0;
}

// Reads n (<= 24) bits; false, with the bytes taken so far kept, when the input runs out.
bool Bz2Reader::bits(Call& c, uint32_t n, uint32_t& v) {
    while (bits_ < n) {
        if (c.in_len == 0) return false;
        code_ = code_ << 8 | *c.in++;
        --c.in_len;
        bits_ += 8;
    }
    bits_ -= n;
    v = uint32_t(code_ >> bits_) & ((1u << n) - 1);
    code_ &= (uint64_t(1) << bits_) - 1;
    return true;
}

Bz2Result Bz2Reader::fail(Step why) {
    step_ = why;
    return Bz2Result::BadData;
}

bool Bz2Reader::decode_block() {
    if (observer_) observer_({syms_.data(), n_syms_, block_cap_, orig_ptr_, dict_size_, in_use_});
    uint32_t len = block_cap_;
    const zemStatus st = zemsDecodeBlock_BZ2_16u8u(syms_.data(), int32_t(n_syms_), block_.data(), &len,
                                                   int32_t(orig_ptr_), dict_size_, in_use_, work_.data());
    if (st != zemStatusOk) return false;
    block_len_ = len;
    block_pos_ = 0;
    crc_ = 0;
    zemsDecodeRLEStateInit_BZ2_8u(reinterpret_cast<zemRLEState_BZ2*>(rle_));
    return true;
}

// Run-length decodes the block into the caller's output; true when the block is complete.
bool Bz2Reader::output(Call& c) {
    auto* rle = reinterpret_cast<zemRLEState_BZ2*>(rle_);
    for (;;) {
        uint8_t* d = c.out;
        int32_t room = int32_t(std::min(c.out_len, kSlice));
        zemStatus st;
        if (block_pos_ < block_len_) {
            if (room == 0) return false;
            const uint8_t* s = block_.data() + block_pos_;
            int32_t left = int32_t(block_len_ - block_pos_);
            st = zemsDecodeRLEState_BZ2_8u(&s, &left, &d, &room, rle);
            block_pos_ = block_len_ - uint32_t(left);
        } else {
            st = zemsDecodeRLEStateFlush_BZ2_8u(rle, &d, &room);
        }
        const size_t n = size_t(d - c.out);
        if (n) zemsCRC32_BZ2_8u(c.out, int32_t(n), &crc_);
        c.out = d;
        c.out_len -= n;
        total_out_ += n;
        if (block_pos_ == block_len_ && st == zemStatusOk) return true;
        if (c.out_len == 0) return false;
    }
}

Bz2Result Bz2Reader::run(const uint8_t*& in, size_t& in_len, uint8_t*& out, size_t& out_len) {
    Call c{in, in_len, out, out_len};
    auto* huff = reinterpret_cast<zemDecodeHuffState_BZ2*>(huff_.data());
    for (;;) {
        uint32_t v = 0;
        switch (step_) {
            case Step::StreamMagic: {
                // "BZh" and the block size digit, byte by byte so that a stream may start anywhere.
                static const uint8_t magic[3] = {'B', 'Z', 'h'};
                while (part_ < 4) {
                    if (!bits(c, 8, v)) return Bz2Result::Ok;
                    if (part_ < 3 ? v != magic[part_] : (v < '1' || v > '9')) return fail(Step::Error);
                    if (part_ == 3) level_ = v - '0';
                    ++part_;
                }
                part_ = 0;
                block_cap_ = level_ * kLevelBytes;
                if (block_.size() < block_cap_) {
                    syms_.resize(block_cap_);
                    block_.resize(block_cap_);
                    uint32_t work = 0;
                    zemsDecodeBlockGetSize_BZ2_8u(block_cap_, &work);
                    work_.resize(work);
                }
                if (huff_.empty()) {
                    int32_t size = 0;
                    zemsDecodeHuffGetSize_BZ2_8u16u(int32_t(block_cap_), &size);
                    huff_.resize((size_t(size) + 7) / 8);
                    huff = reinterpret_cast<zemDecodeHuffState_BZ2*>(huff_.data());
                }
                combined_crc_ = 0;
                step_ = Step::BlockMagic;
                break;
            }
            case Step::BlockMagic: {
                // 48 bits in two halves: a block, or the end of the stream.
                if (part_ == 0) {
                    if (!bits(c, 24, v)) return Bz2Result::Ok;
                    part_ = v | 1u << 31;
                }
                if (!bits(c, 24, v)) return Bz2Result::Ok;
                const uint32_t hi = part_ & 0xFFFFFF;
                part_ = 0;
                if (hi == kBlockMagicHi && v == kBlockMagicLo)
                    step_ = Step::BlockCrc;
                else if (hi == kEndMagicHi && v == kEndMagicLo)
                    step_ = Step::StreamCrc;
                else
                    return fail(Step::Error);
                break;
            }
            case Step::BlockCrc:
            case Step::StreamCrc: {
                if (part_ == 0) {
                    if (!bits(c, 16, v)) return Bz2Result::Ok;
                    part_ = v | 1u << 31;
                }
                if (!bits(c, 16, v)) return Bz2Result::Ok;
                const uint32_t crc = (part_ & 0xFFFF) << 16 | v;
                part_ = 0;
                if (step_ == Step::BlockCrc) {
                    want_crc_ = crc;
                    step_ = Step::Randomised;
                    break;
                }
                if (crc != combined_crc_) return fail(Step::Error);
                // The stream ends on a byte boundary; the padding bits are dropped.
                code_ = 0;
                bits_ = 0;
                step_ = Step::End;
                return Bz2Result::End;
            }
            case Step::Randomised:
                if (!bits(c, 1, v)) return Bz2Result::Ok;
                if (v) {
                    step_ = Step::Error;
                    return Bz2Result::Unsupported;
                }
                step_ = Step::OrigPtr;
                break;
            case Step::OrigPtr:
                if (!bits(c, 24, v)) return Bz2Result::Ok;
                orig_ptr_ = v;
                step_ = Step::MapGroups;
                break;
            case Step::MapGroups:
                // Which of the 16 groups of 16 byte values have any value in use.
                if (!bits(c, 16, v)) return Bz2Result::Ok;
                groups_ = v;
                group_ = 0;
                memset(in_use_, 0, sizeof in_use_);
                step_ = Step::MapBits;
                break;
            case Step::MapBits:
                for (; group_ < 16; ++group_) {
                    if (!(groups_ >> (15 - group_) & 1)) continue;
                    if (!bits(c, 16, v)) return Bz2Result::Ok;
                    for (int k = 0; k < 16; ++k) in_use_[group_ * 16 + k] = uint8_t(v >> (15 - k) & 1);
                }
                dict_size_ = 0;
                for (uint8_t u : in_use_) dict_size_ += u;
                if (dict_size_ == 0 || zemsDecodeHuffInit_BZ2_8u16u(int32_t(dict_size_), huff) != zemStatusOk)
                    return fail(Step::Error);
                step_ = Step::Context;
                break;
            case Step::Context:
            case Step::Symbols: {
                uint32_t code = uint32_t(code_);
                int32_t held = int32_t(bits_);
                const uint8_t* s = c.in_len ? c.in : kNoInput;
                int32_t left = int32_t(std::min(c.in_len, kSlice));
                const int32_t given = left;
                zemStatus st;
                if (step_ == Step::Context) {
                    st = zemsUnpackHuffContext_BZ2_8u16u(&code, &held, &s, &left, huff);
                    if (st == zemStatusOk) {
                        n_syms_ = 0;
                        step_ = Step::Symbols;
                    }
                } else {
                    int32_t room = int32_t(block_cap_ - n_syms_);
                    st = zemsDecodeHuff_BZ2_8u16u(&code, &held, &s, &left, syms_.data() + n_syms_, &room, huff);
                    n_syms_ += uint32_t(room);
                    if (st == zemStatusOk) {
                        if (n_syms_ == 0 || !decode_block()) return fail(Step::Error);
                        step_ = Step::Output;
                    }
                }
                code_ = code;
                bits_ = uint32_t(held);
                if (c.in_len) {
                    c.in += given - left;
                    c.in_len -= size_t(given - left);
                }
                if (st == zemStatusSrcTooShort) {
                    if (c.in_len == 0 || left == given) return Bz2Result::Ok;
                    break;  // a slice of a very long input ran out
                }
                if (st != zemStatusOk) return fail(Step::Error);
                break;
            }
            case Step::Output:
                if (!output(c)) return Bz2Result::Ok;
                if (crc_ != want_crc_) return fail(Step::Error);
                combined_crc_ = (combined_crc_ << 1 | combined_crc_ >> 31) ^ crc_;
                step_ = Step::BlockMagic;
                break;
            case Step::End:
                // Another stream may follow.
                step_ = Step::StreamMagic;
                break;
            case Step::Error:
                return Bz2Result::BadData;
        }
    }
}

Bz2Result bz2_decompress(const uint8_t* in, size_t in_len, uint8_t* out, size_t out_cap, size_t* out_len,
                         size_t* in_used) {
    Bz2Reader r;
    const uint8_t* p = in;
    size_t left = in_len, room = out_cap;
    uint8_t* o = out;
    Bz2Result res;
    for (;;) {
        res = r.run(p, left, o, room);
        // Streams follow one another; anything else after one is not ours to read.
        if (res == Bz2Result::End && left >= 3 && p[0] == 'B' && p[1] == 'Z' && p[2] == 'h') continue;
        if (res == Bz2Result::Ok) res = room == 0 ? Bz2Result::DstTooSmall : Bz2Result::Truncated;
        break;
    }
    *out_len = size_t(o - out);
    if (in_used) *in_used = in_len - left;
    return res;
}

}  // namespace zem::stream
