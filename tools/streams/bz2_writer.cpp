#include "bz2_writer.h"

#include <string.h>

#include <stdexcept>

namespace zem::stream {
namespace {

constexpr uint64_t kBlockMagic = 0x314159265359ull;
constexpr uint64_t kEndMagic = 0x177245385090ull;
constexpr int32_t kBlockUnit = 100000;
// bzip2 fills a block to 19 bytes short of its size; we keep the same margin, so that every
// decoder's block limit holds whatever it counts.
constexpr int32_t kBlockMargin = 19;

void check(zemStatus st, const char* what) {
    if (st != zemStatusOk) throw std::runtime_error(std::string("bz2 writer: ") + what + " failed");
}

}  // namespace

Bz2Writer::Bz2Writer(int level) : level_(level) {
    if (level < 1 || level > 9) throw std::invalid_argument("bz2 writer: level outside 1..9");
    limit_ = kBlockUnit * level - kBlockMargin;
    int32_t size = 0;
    check(zemsRLEGetSize_BZ2_8u(&size), "zemsRLEGetSize_BZ2_8u");
    rle_state_.resize(size_t(size));
    check(zemsMTFGetSize_8u(&size), "zemsMTFGetSize_8u");
    mtf_state_.resize(size_t(size));
    check(zemsBWTFwdGetSize_8u(limit_, &size), "zemsBWTFwdGetSize_8u");
    bwt_buf_.resize(size_t(size));
    check(zemsEncodeHuffGetSize_BZ2_16u8u(limit_, &size), "zemsEncodeHuffGetSize_BZ2_16u8u");
    huff_state_.resize(size_t(size));
    block_.resize(size_t(limit_));
    sorted_.resize(size_t(limit_));
    symbols_.resize(size_t(limit_));
    check(zemsEncodeRLEInit_BZ2_8u((zemRLEState_BZ2*)rle_state_.data()), "zemsEncodeRLEInit_BZ2_8u");
}

void Bz2Writer::put_bits(std::vector<uint8_t>& out, uint32_t v, int n) {
    // n <= 24 and fewer than 8 bits pending, so the word never overflows.
    code_ = (code_ << n) | v;
    code_bits_ += n;
    while (code_bits_ >= 8) {
        code_bits_ -= 8;
        out.push_back(uint8_t(code_ >> code_bits_));
    }
    code_ &= (1u << code_bits_) - 1;
}

void Bz2Writer::start_stream(std::vector<uint8_t>& out) {
    const char header[4] = {'B', 'Z', 'h', char('0' + level_)};
    out.insert(out.end(), header, header + 4);
    started_ = true;
    stream_crc_ = 0;
    block_crc_ = 0;
}

void Bz2Writer::write(const uint8_t* in, size_t len, std::vector<uint8_t>& out) {
    if (!started_) start_stream(out);
    auto* rle = (zemRLEState_BZ2*)rle_state_.data();
    while (len > 0) {
        // One byte of the block stays free for the count byte the flush may owe.
        int32_t room = limit_ - 1 - used_;
        if (room == 0) {
            close_block(out);
            continue;
        }
        const uint8_t* p = in;
        int32_t piece = len > size_t(INT32_MAX) ? INT32_MAX : int32_t(len);
        int32_t left = piece, produced = room;
        zemStatus st = zemsEncodeRLE_BZ2_8u(&p, &left, block_.data() + used_, &produced, rle);
        if (st != zemStatusOk && st != zemStatusDstTooSmall) check(st, "zemsEncodeRLE_BZ2_8u");
        int32_t consumed = piece - left;
        if (consumed > 0) check(zemsCRC32_BZ2_8u(in, consumed, &block_crc_), "zemsCRC32_BZ2_8u");
        used_ += produced;
        in += consumed;
        len -= size_t(consumed);
        if (st == zemStatusDstTooSmall) close_block(out);
    }
}

void Bz2Writer::close_block(std::vector<uint8_t>& out) {
    auto* rle = (zemRLEState_BZ2*)rle_state_.data();
    int32_t tail = 1;
    check(zemsEncodeRLEFlush_BZ2_8u(block_.data() + used_, &tail, rle), "zemsEncodeRLEFlush_BZ2_8u");
    used_ += tail;
    if (used_ == 0) return;

    uint8_t in_use[256];
    check(zemsRLEGetInUseTable_8u(in_use, rle), "zemsRLEGetInUseTable_8u");
    int32_t index = 0;
    check(zemsBWTFwd_8u(block_.data(), sorted_.data(), used_, &index, bwt_buf_.data()), "zemsBWTFwd_8u");
    uint32_t dict = 0;
    check(zemsReduceDictionary_8u_I(in_use, sorted_.data(), used_, &dict), "zemsReduceDictionary_8u_I");
    auto* mtf = (zemMTFState_8u*)mtf_state_.data();
    check(zemsMTFInit_8u(mtf), "zemsMTFInit_8u");
    check(zemsMTFFwd_8u(sorted_.data(), sorted_.data(), used_, mtf), "zemsMTFFwd_8u");
    uint32_t freq[258] = {};
    const uint8_t* pos = sorted_.data();
    int32_t pos_left = used_, n_symbols = int32_t(symbols_.size());
    check(zemsEncodeZ1Z2_BZ2_8u16u(&pos, &pos_left, symbols_.data(), &n_symbols, freq), "zemsEncodeZ1Z2_BZ2_8u16u");
    auto* huff = (zemEncodeHuffState_BZ2*)huff_state_.data();
    check(zemsEncodeHuffInit_BZ2_16u8u(int32_t(dict), freq, symbols_.data(), n_symbols, huff),
          "zemsEncodeHuffInit_BZ2_16u8u");

    put_bits(out, uint32_t(kBlockMagic >> 24), 24);
    put_bits(out, uint32_t(kBlockMagic & 0xFFFFFF), 24);
    put_bits(out, block_crc_ >> 16, 16);
    put_bits(out, block_crc_ & 0xFFFF, 16);
    put_bits(out, 0, 1);  // not randomised
    put_bits(out, uint32_t(index), 24);
    // The in-use bitmap: which of the 16 ranges of 16 values occur, then each such range's values.
    uint32_t ranges = 0;
    for (int r = 0; r < 16; ++r)
        for (int v = 0; v < 16; ++v)
            if (in_use[r * 16 + v]) ranges |= 0x8000u >> r;
    put_bits(out, ranges, 16);
    for (int r = 0; r < 16; ++r) {
        if (!(ranges & (0x8000u >> r))) continue;
        uint32_t bits = 0;
        for (int v = 0; v < 16; ++v)
            if (in_use[r * 16 + v]) bits |= 0x8000u >> v;
        put_bits(out, bits, 16);
    }

    // The table header, then the symbols; each call gets room for its worst case, so one does.
    size_t at = out.size();
    out.resize(at + 32768);
    int32_t room = 32768;
    check(zemsPackHuffContext_BZ2_16u8u(&code_, &code_bits_, out.data() + at, &room, huff),
          "zemsPackHuffContext_BZ2_16u8u");
    at += size_t(room);
    const size_t worst = (size_t(n_symbols) + 1) * 20 / 8 + 8;
    out.resize(at + worst);
    const uint16_t* sym = symbols_.data();
    int32_t sym_left = n_symbols;
    room = int32_t(worst);
    check(zemsEncodeHuff_BZ2_16u8u(&code_, &code_bits_, &sym, &sym_left, out.data() + at, &room, huff),
          "zemsEncodeHuff_BZ2_16u8u");
    out.resize(at + size_t(room));
    // Back to fewer than 8 pending bits, which put_bits expects.
    while (code_bits_ >= 8) {
        code_bits_ -= 8;
        out.push_back(uint8_t(code_ >> code_bits_));
    }
    code_ &= (1u << code_bits_) - 1;

    stream_crc_ = ((stream_crc_ << 1) | (stream_crc_ >> 31)) ^ block_crc_;
    block_crc_ = 0;
    used_ = 0;
    check(zemsEncodeRLEInit_BZ2_8u(rle), "zemsEncodeRLEInit_BZ2_8u");
}

void Bz2Writer::finish(std::vector<uint8_t>& out) {
    if (!started_) start_stream(out);
    close_block(out);
    put_bits(out, uint32_t(kEndMagic >> 24), 24);
    put_bits(out, uint32_t(kEndMagic & 0xFFFFFF), 24);
    put_bits(out, stream_crc_ >> 16, 16);
    put_bits(out, stream_crc_ & 0xFFFF, 16);
    if (code_bits_ > 0) put_bits(out, 0, 8 - code_bits_);
    started_ = false;
    code_ = 0;
    code_bits_ = 0;
}

std::vector<uint8_t> bz2_compress(const uint8_t* in, size_t len, int level) {
    Bz2Writer w(level);
    std::vector<uint8_t> out;
    out.reserve(len / 4 + 64);
    w.write(in, len, out);
    w.finish(out);
    return out;
}

}  // namespace zem::stream
