#include "lz4_frame.h"

#include <string.h>

#include "core/bytes.h"
#include "zemdc.h"

namespace zem::stream {
namespace {

constexpr uint32_t kMagic = 0x184D2204;
constexpr uint32_t kSkippableMagic = 0x184D2A50;  // the low four bits are free
constexpr uint32_t kSkippableMask = 0xFFFFFFF0;
constexpr uint32_t kWindow = 64 * 1024;           // how far back a linked block may refer
constexpr uint32_t kStoredBit = 0x80000000u;      // block size word: the block is stored as it is
constexpr int kFirstHcLevel = 3;                  // below: the default encoder

// Descriptor flag byte: version 01 in bits 7-6, then the feature bits.
constexpr uint8_t kVersion = 0x40, kVersionMask = 0xC0;
constexpr uint8_t kIndependent = 0x20, kBlockCheck = 0x10, kContentSize = 0x08, kContentCheck = 0x04,
                  kDictId = 0x01, kFlagReserved = 0x02;
// Magic, FLG, BD, content size, dictionary id, header checksum.
constexpr uint32_t kMaxHeader = 4 + 2 + 8 + 4 + 1;
// Size word, its block's checksum, and after the last block the end mark and content checksum.
constexpr uint32_t kBlockOverhead = 4 + 4;
constexpr uint32_t kTrailer = 4 + 4;

// The block-size code of the descriptor (4..7) and the size it stands for.
constexpr uint32_t block_bytes(uint32_t code) { return 1u << (2 * code + 8); }
static_assert(block_bytes(4) == 64 * 1024 && block_bytes(7) == 4u << 20);
uint32_t block_code(uint32_t size) {
    uint32_t code = 4;
    while (code < 7 && block_bytes(code) < size) ++code;
    return code;
}

// The high-compression tables number positions across the blocks of a frame, so that entries of
// earlier blocks fall below the low limit and end a search at once instead of being compared.
// Positions are 32-bit signed: the numbering starts over (with cleared tables) well before that.
constexpr uint32_t kHcRestart = 1u << 30;
static_assert(kHcRestart + (4u << 20) < 0x7FFFFFFFu);

}  // namespace

// ---------------------------------------------------------------------------------------------
// Writer

Lz4FrameWriter::Lz4FrameWriter(const Lz4FrameOptions& options) : opt_(options) {
    opt_.block_size = block_bytes(block_code(opt_.block_size));
    if (opt_.level < 1) opt_.level = 1;
    if (opt_.level > 9) opt_.level = 9;
    in_.resize((opt_.linked ? kWindow : 0) + opt_.block_size);
    pending_.resize(kMaxHeader + kBlockOverhead + ZEM_LZ4_BOUND(opt_.block_size) + kTrailer);
    if (opt_.level >= kFirstHcLevel) {
        int32_t hash_size = 0, chain_size = 0;
        zemsEncodeLZ4HCHashTableGetSize_8u(&hash_size, &chain_size);
        hc_hash_.resize(size_t(hash_size));
        hc_chain_.resize(size_t(chain_size));
    } else {
        int32_t size = 0;
        zemsEncodeLZ4HashTableGetSize_8u(&size);
        table_.resize(size_t(size));
    }
}

uint64_t Lz4FrameWriter::bound(const Lz4FrameOptions& options, uint64_t n) {
    uint64_t block = block_bytes(block_code(options.block_size));
    uint64_t blocks = n / block + (n % block != 0);
    // A block that would not shrink is stored, so no block costs more than its size and overhead.
    return kMaxHeader + blocks * kBlockOverhead + n + kTrailer;
}

void Lz4FrameWriter::start() {
    started_ = true;
    uint8_t* h = pending_.data();
    store32(h, kMagic);
    uint8_t flg = kVersion | (opt_.linked ? 0 : kIndependent) | (opt_.block_checksum ? kBlockCheck : 0) |
                  (opt_.content_size >= 0 ? kContentSize : 0) | (opt_.content_checksum ? kContentCheck : 0);
    h[4] = flg;
    h[5] = uint8_t(block_code(opt_.block_size) << 4);
    size_t n = 6;
    if (opt_.content_size >= 0) {
        store64(h + n, uint64_t(opt_.content_size));
        n += 8;
    }
    h[n] = uint8_t(xxh32(h + 4, n - 4, 0) >> 8);
    pending_len_ = n + 1;
    if (hc_hash_.size()) {
        uint8_t* tables[2] = {hc_hash_.data(), hc_chain_.data()};
        zemsEncodeLZ4HCHashTableInit_8u(tables);
    }
}

size_t Lz4FrameWriter::encode_fast(const uint8_t* src, uint32_t len, uint8_t* dst) {
    int32_t out = 0;
    if (opt_.linked)
        zemsEncodeLZ4Dict_8u(src, int32_t(hist_), int32_t(len), dst, &out, table_.data(), nullptr, 0);
    else
        zemsEncodeLZ4_8u(src, int32_t(len), dst, &out, table_.data());
    return size_t(out);
}

size_t Lz4FrameWriter::encode_hc(const uint8_t* src, uint32_t len, uint8_t* dst) {
    if (hc_pos_ > kHcRestart) {
        uint8_t* tables[2] = {hc_hash_.data(), hc_chain_.data()};
        zemsEncodeLZ4HCHashTableInit_8u(tables);
        hc_pos_ = 0;
    }
    // Linked blocks declare the history kept in memory before src as a dictionary that ends at
    // src: the same positions the tables already hold for it, so nothing has to be renumbered.
    uint8_t* const tables[2] = {hc_hash_.data(), hc_chain_.data()};
    int32_t src_len = int32_t(len), out = int32_t(ZEM_LZ4_BOUND(len));
    uint32_t hist = hc_pos_ < hist_ ? hc_pos_ : hist_;
    zemsEncodeLZ4HC_8u(src, int32_t(hc_pos_), &src_len, dst, &out, tables, hist ? src - hist : nullptr,
                       int32_t(hist), opt_.level);
    hc_pos_ += len;
    return size_t(out);
}

void Lz4FrameWriter::encode_block() {
    const uint8_t* src = in_.data() + hist_;
    uint8_t* size_word = pending_.data() + pending_len_;
    uint8_t* dst = size_word + 4;
    size_t n = opt_.level >= kFirstHcLevel ? encode_hc(src, fill_, dst) : encode_fast(src, fill_, dst);
    if (n >= fill_) {
        memcpy(dst, src, fill_);
        n = fill_;
        store32(size_word, uint32_t(n) | kStoredBit);
    } else {
        store32(size_word, uint32_t(n));
    }
    if (opt_.block_checksum) {
        store32(dst + n, xxh32(dst, n, 0));
        n += 4;
    }
    pending_len_ += 4 + n;
    content_.update(src, fill_);
    total_ += fill_;
    if (opt_.linked) {
        uint32_t keep = hist_ + fill_ < kWindow ? hist_ + fill_ : kWindow;
        memmove(in_.data(), in_.data() + hist_ + fill_ - keep, keep);
        hist_ = keep;
    }
    fill_ = 0;
}

void Lz4FrameWriter::drain(uint8_t*& out, size_t& out_len) {
    size_t n = pending_len_ - pending_pos_ < out_len ? pending_len_ - pending_pos_ : out_len;
    memcpy(out, pending_.data() + pending_pos_, n);
    out += n;
    out_len -= n;
    pending_pos_ += n;
    if (pending_pos_ == pending_len_) pending_pos_ = pending_len_ = 0;
}

void Lz4FrameWriter::write(const uint8_t*& in, size_t& in_len, uint8_t*& out, size_t& out_len) {
    if (!started_) start();
    for (;;) {
        if (pending_len_) drain(out, out_len);
        // A full block waits until its predecessor has left: pending_ holds one block at a time.
        if (pending_len_ || !in_len) return;
        size_t take = opt_.block_size - fill_ < in_len ? opt_.block_size - fill_ : in_len;
        memcpy(in_.data() + hist_ + fill_, in, take);
        in += take;
        in_len -= take;
        fill_ += uint32_t(take);
        if (fill_ == opt_.block_size) encode_block();
    }
}

Lz4FrameResult Lz4FrameWriter::finish(uint8_t*& out, size_t& out_len) {
    if (!started_) start();
    if (pending_len_) drain(out, out_len);
    if (pending_len_) return Lz4FrameResult::Ok;
    if (!finished_) {
        if (fill_) encode_block();
        if (opt_.content_size >= 0 && total_ != uint64_t(opt_.content_size)) return Lz4FrameResult::BadData;
        uint8_t* p = pending_.data() + pending_len_;
        store32(p, 0);
        if (opt_.content_checksum) store32(p + 4, content_.digest());
        pending_len_ += opt_.content_checksum ? 8 : 4;
        finished_ = true;
        drain(out, out_len);
    }
    return pending_len_ ? Lz4FrameResult::Ok : Lz4FrameResult::End;
}

// ---------------------------------------------------------------------------------------------
// Reader

Lz4FrameReader::Lz4FrameReader() { reset(); }

void Lz4FrameReader::reset() {
    step_ = Step::Magic;
    have_ = frames_ = hist_ = prev_end_ = 0;
    pending_pos_ = pending_len_ = 0;
    reason_ = "";
}

Lz4FrameResult Lz4FrameReader::fail(Lz4FrameResult r, const char* why) {
    step_ = Step::Failed;
    reason_ = why;
    return r;
}

// Collects a field that may arrive in pieces into hold_; true once `want` bytes are there.
bool Lz4FrameReader::gather(const uint8_t*& in, size_t& in_len, size_t want) {
    // The descriptor is gathered in two steps and may already hold more than the first asks.
    if (have_ >= want) return true;
    if (hold_.size() < want) hold_.resize(want);
    size_t take = want - have_ < in_len ? want - have_ : in_len;
    memcpy(hold_.data() + have_, in, take);
    in += take;
    in_len -= take;
    have_ += uint32_t(take);
    return have_ == want;
}

void Lz4FrameReader::drain(uint8_t*& out, size_t& out_len) {
    size_t n = pending_len_ < out_len ? pending_len_ : out_len;
    memcpy(out, dec_.data() + pending_pos_, n);
    out += n;
    out_len -= n;
    pending_pos_ += n;
    pending_len_ -= n;
}

// Checks the descriptor held in hold_ (from FLG on) and prepares for the frame's blocks.
void Lz4FrameReader::descriptor() {
    flags_ = hold_[0];
    block_max_ = block_bytes((hold_[1] >> 4) & 7);
    content_size_ = flags_ & kContentSize ? load64(hold_.data() + 2) : 0;
    decoded_ = 0;
    prev_end_ = 0;
    content_.reset();
    size_t need = (flags_ & kIndependent ? 0 : kWindow) + block_max_;
    if (dec_.size() < need) dec_.resize(need);
}

Lz4FrameResult Lz4FrameReader::block(const uint8_t* data) {
    if (flags_ & kBlockCheck && xxh32(data, block_len_, 0) != load32(data + block_len_))
        return fail(Lz4FrameResult::BadChecksum, "bad block checksum");
    // Linked blocks keep the last 64 KiB of output in front of the block as its history.
    bool linked = !(flags_ & kIndependent);
    hist_ = 0;
    if (linked) {
        hist_ = prev_end_ < kWindow ? prev_end_ : kWindow;
        memmove(dec_.data(), dec_.data() + prev_end_ - hist_, hist_);
    }
    uint8_t* dst = dec_.data() + hist_;
    int32_t produced = 0;
    if (stored_) {
        memcpy(dst, data, block_len_);
        produced = int32_t(block_len_);
    } else {
        if (block_len_ == 0) return fail(Lz4FrameResult::BadData, "empty compressed block");
        int32_t used = int32_t(block_len_);
        produced = int32_t(block_max_);
        zemStatus st = linked ? zemsDecodeLZ4Dict_8u(data, &used, dec_.data(), int32_t(hist_), &produced,
                                                     hist_ ? dec_.data() : nullptr, int32_t(hist_))
                              : zemsDecodeLZ4_8u(data, int32_t(block_len_), dst, &produced);
        if (st == zemStatusDstTooSmall) return fail(Lz4FrameResult::BadData, "block larger than its frame allows");
        if (st != zemStatusOk || used != int32_t(block_len_)) return fail(Lz4FrameResult::BadData, "corrupt block");
    }
    content_.update(dst, size_t(produced));
    decoded_ += uint64_t(produced);
    pending_pos_ = hist_;
    pending_len_ = size_t(produced);
    prev_end_ = hist_ + uint32_t(produced);
    return Lz4FrameResult::Ok;
}

Lz4FrameResult Lz4FrameReader::run(const uint8_t*& in, size_t& in_len, uint8_t*& out, size_t& out_len) {
    if (step_ == Step::Failed) return Lz4FrameResult::BadData;
    for (;;) {
        if (pending_len_) {
            drain(out, out_len);
            if (pending_len_) return Lz4FrameResult::Ok;
        }
        switch (step_) {
            case Step::Magic: {
                if (!in_len) return have_ == 0 && frames_ ? Lz4FrameResult::End : Lz4FrameResult::Ok;
                if (!gather(in, in_len, 4)) return Lz4FrameResult::Ok;
                uint32_t magic = load32(hold_.data());
                have_ = 0;
                if ((magic & kSkippableMask) == kSkippableMagic) {
                    step_ = Step::SkipSize;
                } else if (magic == kMagic) {
                    step_ = Step::Descriptor;
                } else {
                    return fail(Lz4FrameResult::BadData, frames_ ? "trailing garbage" : "not in the LZ4 frame format");
                }
                break;
            }
            case Step::SkipSize:
                if (!gather(in, in_len, 4)) return Lz4FrameResult::Ok;
                skip_left_ = load32(hold_.data());
                have_ = 0;
                step_ = Step::Skip;
                break;
            case Step::Skip: {
                size_t n = skip_left_ < in_len ? skip_left_ : in_len;
                in += n;
                in_len -= n;
                skip_left_ -= uint32_t(n);
                if (skip_left_) return Lz4FrameResult::Ok;
                ++frames_;
                step_ = Step::Magic;
                break;
            }
            case Step::Descriptor: {
                // FLG and BD first: they say how long the rest is.
                if (!gather(in, in_len, 2)) return Lz4FrameResult::Ok;
                uint8_t flg = hold_[0], bd = hold_[1];
                if ((flg & kVersionMask) != kVersion) return fail(Lz4FrameResult::BadData, "unknown frame version");
                if (flg & kFlagReserved || bd & 0x8F || ((bd >> 4) & 7) < 4)
                    return fail(Lz4FrameResult::BadData, "bad frame descriptor");
                size_t len = 2 + (flg & kContentSize ? 8 : 0) + (flg & kDictId ? 4 : 0);
                if (!gather(in, in_len, len + 1)) return Lz4FrameResult::Ok;
                if (uint8_t(xxh32(hold_.data(), len, 0) >> 8) != hold_[len])
                    return fail(Lz4FrameResult::BadChecksum, "bad header checksum");
                if (flg & kDictId) return fail(Lz4FrameResult::Unsupported, "frame needs a dictionary");
                descriptor();
                have_ = 0;
                step_ = Step::BlockSize;
                break;
            }
            case Step::BlockSize: {
                if (!gather(in, in_len, 4)) return Lz4FrameResult::Ok;
                uint32_t word = load32(hold_.data());
                have_ = 0;
                if (word == 0) {
                    step_ = Step::ContentCheck;
                    break;
                }
                stored_ = word & kStoredBit;
                block_len_ = word & ~kStoredBit;
                if (block_len_ > block_max_) return fail(Lz4FrameResult::BadData, "block larger than its frame allows");
                step_ = Step::Block;
                break;
            }
            case Step::Block: {
                size_t whole = block_len_ + (flags_ & kBlockCheck ? 4 : 0);
                // A block that is all there is decoded straight from the input.
                if (have_ == 0 && in_len >= whole) {
                    const uint8_t* data = in;
                    in += whole;
                    in_len -= whole;
                    if (Lz4FrameResult r = block(data); r != Lz4FrameResult::Ok) return r;
                } else {
                    if (!gather(in, in_len, whole)) return Lz4FrameResult::Ok;
                    have_ = 0;
                    if (Lz4FrameResult r = block(hold_.data()); r != Lz4FrameResult::Ok) return r;
                }
                step_ = Step::BlockSize;
                break;
            }
            case Step::ContentCheck: {
                if (flags_ & kContentCheck) {
                    if (!gather(in, in_len, 4)) return Lz4FrameResult::Ok;
                    have_ = 0;
                    if (load32(hold_.data()) != content_.digest())
                        return fail(Lz4FrameResult::BadChecksum, "bad content checksum");
                }
                if (flags_ & kContentSize && decoded_ != content_size_)
                    return fail(Lz4FrameResult::BadData, "content size does not match");
                ++frames_;
                prev_end_ = 0;
                step_ = Step::Magic;
                break;
            }
            case Step::Failed:
                return Lz4FrameResult::BadData;
        }
    }
}

}  // namespace zem::stream
