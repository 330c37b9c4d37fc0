// The deflate writer: input is gathered in one buffer behind its 32 KiB of history and handed to
// the match finders in spans fixed by stream offset, so that the parse (and so the output) does
// not depend on how the input arrives. Records collect into blocks; a block is cut where the
// symbol statistics of the last call's records differ enough from the block's that two codes
// beat one, or when it is large; each block is written in whichever of the dynamic, fixed and
// stored forms is smallest.
#include "deflate_stream.h"

#include <string.h>

#include <cmath>

namespace zem::stream {

namespace {

constexpr uint32_t kWin = 32768;
// The largest head table the finders take: against 32,768 entries, fewer unrelated positions
// share a chain, and levels 1 to 6 ran 2-4% faster on the Silesia files at the same or a
// slightly better ratio, for 128 KiB more state (256 KiB more at level 1, which copies it).
constexpr uint32_t kHashSize = 65536;
constexpr uint32_t kLookahead = 262;  // what the finders keep unparsed under NoFlush
// The finders see the input in spans of this many bytes of stream offset.
constexpr uint32_t kSpan = 65536;
// Records per finder call: the unit at which the statistics are compared.
constexpr uint32_t kChunk = 4096;
constexpr uint32_t kBlockRecords = 8 * kChunk;
// A block is closed once its input reaches this; it stays in the buffer until then, for the
// stored form.
constexpr uint32_t kMaxBlockIn = 131072;
// What a second block costs beyond its symbols: an average dynamic header.
constexpr double kBlockCostBits = 800;
// A call with fewer records than this is not worth a block of its own.
constexpr uint32_t kMinSplitRecords = 512;
// The buffer holds the open block's input or the history (whichever reaches back further; a
// block is closed after the call that took it past kMaxBlockIn, so at most a span more), the
// unparsed rest of a span, and a whole next span with its lookahead.
constexpr uint32_t kBufSize = kMaxBlockIn + 2 * (kSpan + 2 * kLookahead) + kSpan;
static_assert(kMaxBlockIn >= kWin);
constexpr uint32_t kStoredMax = 65535;
// Level 1 builds its codes from the first bytes of each span. Counting the whole span made the
// Silesia files 1.1% smaller than these 16 KiB, at two thirds of the speed; counting slices
// spread over the span gained less than the same bytes taken at its start.
constexpr uint32_t kSample = 16384;

constexpr uint8_t kLengthExtra[29] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                      2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
constexpr uint8_t kDistExtra[30] = {0, 0, 0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6,
                                    6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};

uint32_t lit_extra(uint32_t s) { return s >= 257 ? kLengthExtra[s - 257] : 0; }

struct FixedCodes {
    zemDeflateHuffCode lit[288], dist[30];
    FixedCodes() {
        uint8_t lens[288];
        for (uint32_t s = 0; s < 288; ++s) lens[s] = s < 144 ? 8 : s < 256 ? 9 : s < 280 ? 7 : 8;
        canonical(lens, 288, lit);
        uint8_t d[30];
        memset(d, 5, sizeof d);
        canonical(d, 30, dist);
    }
    static void canonical(const uint8_t* lens, uint32_t n, zemDeflateHuffCode* out) {
        uint32_t count[16] = {}, next[16] = {};
        for (uint32_t s = 0; s < n; ++s) ++count[lens[s]];
        for (uint32_t l = 1, code = 0; l < 16; ++l) next[l] = code = (code + count[l - 1]) << 1;
        for (uint32_t s = 0; s < n; ++s) {
            uint32_t c = next[lens[s]]++, r = 0;
            for (uint32_t i = 0; i < lens[s]; ++i, c >>= 1) r = r << 1 | (c & 1);
            out[s] = {uint16_t(r), lens[s]};
        }
    }
};
const FixedCodes& fixed_codes() {
    static const FixedCodes f;
    return f;
}

// Bits of an ideal code for counts c[0..n).
double entropy_bits(const uint32_t* c, uint32_t n) {
    double total = 0, sum = 0;
    for (uint32_t s = 0; s < n; ++s) total += c[s];
    if (total == 0) return 0;
    for (uint32_t s = 0; s < n; ++s)
        if (c[s]) sum += c[s] * std::log2(total / c[s]);
    return sum;
}

double joint_entropy_bits(const uint32_t* a, const uint32_t* b, uint32_t n) {
    uint32_t c[286];
    for (uint32_t s = 0; s < n; ++s) c[s] = a[s] + b[s];
    return entropy_bits(c, n);
}

uint32_t update_check(Format f, uint32_t check, const uint8_t* p, size_t n) {
    while (n > 0) {
        const int32_t piece = int32_t(n < (1u << 30) ? n : (1u << 30));
        if (f == Format::Gzip) zemsCRC32_8u(p, piece, &check);
        else zemsAdler32_8u(p, piece, &check);
        p += piece;
        n -= size_t(piece);
    }
    return check;
}

}  // namespace

// A block's dynamic codes and header from its symbol counts, and the bits it takes in each of
// the three forms, so that the smallest can be written.
struct BlockCodes {
    zemDeflateHuffCode lit[286], dist[30];
    uint8_t hdr[320];
    uint32_t hdr_len = sizeof hdr, hdr_bits = 0;
    uint64_t dyn, fix, stored;

    BlockCodes(uint32_t* lit_count, const uint32_t* dist_count, uint32_t n_in) {
        lit_count[256] = 1;
        zemsDeflateLZ77FastestGenHuffTable_8u(lit_count, dist_count, lit, dist);
        zemsDeflateLZ77FastestGenHeader_8u(lit, dist, hdr, &hdr_len, &hdr_bits);
        const FixedCodes& fc = fixed_codes();
        dyn = 3 + hdr_bits, fix = 3;
        for (uint32_t s = 0; s < 286; ++s) {
            dyn += uint64_t(lit_count[s]) * (lit[s].len + lit_extra(s));
            fix += uint64_t(lit_count[s]) * (fc.lit[s].len + lit_extra(s));
        }
        for (uint32_t s = 0; s < 30; ++s) {
            dyn += uint64_t(dist_count[s]) * (dist[s].len + kDistExtra[s]);
            fix += uint64_t(dist_count[s]) * (5 + kDistExtra[s]);
        }
        stored = stored_bits(n_in);
    }
    // A stored block of n bytes, at most this many bits with its headers and alignment.
    static uint64_t stored_bits(uint32_t n) {
        const uint64_t pieces = n == 0 ? 1 : (n + kStoredMax - 1) / kStoredMax;
        return pieces * 35 + 7 + 8 * uint64_t(n);
    }
};

Deflater::Deflater(Format format, int level)
    : format_(format),
      level_(level < 1 ? 1 : level > 9 ? 9 : level),
      buf_(kBufSize),
      head_(kHashSize),
      prev_(kWin),
      work_(ZEM_DEFLATE_SLOW_WORK_SIZE),
      stat_head_(level_ == 1 ? kHashSize : 0),
      lit_len_(kBlockRecords),
      dist_(kBlockRecords) {
    reset();
}

void Deflater::reset() {
    step_ = Step::Header;
    flushed_ = false;
    last_flush_ = Flush::None;
    check_ = format_ == Format::Gzip ? 0 : 1;
    has_dict_ = false;
    dict_id_ = 0;
    total_in_ = total_out_ = 0;
    win_lo_ = block_start_ = parse_ = have_ = 0;
    off_base_ = 0;
    memset(head_.data(), 0, head_.size() * 4);
    memset(prev_.data(), 0, prev_.size() * 4);
    n_rec_ = 0;
    memset(blk_lit_, 0, sizeof blk_lit_);
    memset(blk_dist_, 0, sizeof blk_dist_);
    pend_.clear();
    pend_pos_ = 0;
    bits_ = 0;
    n_bits_ = 0;
}

bool Deflater::set_dictionary(const uint8_t* dict, size_t n) {
    if (format_ == Format::Gzip || step_ != Step::Header || have_ != 0 || dict == nullptr) return false;
    has_dict_ = true;
    dict_id_ = 1;
    dict_id_ = update_check(Format::Zlib, dict_id_, dict, n);
    const uint32_t m = uint32_t(n < kWin ? n : kWin);
    if (level_ == 1 || m < 4) {
        memcpy(buf_.data(), dict + (n - m), m);
        if (level_ == 1) {
            // The single-pass path keys its table its own way: its statistics pass enters the
            // dictionary's positions as the parse will look for them.
            const uint8_t* p = buf_.data();
            uint32_t left = m, idx = 0, lit[286] = {}, dist[30] = {};
            zemsDeflateLZ77FastestGetStat_8u(&p, &left, &idx, buf_.data(), kWin, head_.data(), kHashSize, lit,
                                             dist, zemDeflateFinish);
        }
    } else {
        zemsDeflateDictionarySet_8u(dict, uint32_t(n), head_.data(), int32_t(kHashSize), prev_.data(), buf_.data(),
                                    kWin, level_);
        // The dictionary load leaves its last 257 positions out (and short dictionaries
        // altogether); entering them lets the first bytes of input match there too.
        const uint32_t from = m >= 258 ? m - 257 : 0;
        zemsDeflateUpdateHash_8u(buf_.data() + from, from, m - from, head_.data(), kHashSize, prev_.data(), kWin,
                                 level_);
    }
    have_ = parse_ = block_start_ = m;
    return true;
}

void Deflater::put(uint64_t v, uint32_t n) {
    bits_ |= v << n_bits_;
    n_bits_ += n;
    for (; n_bits_ >= 8; n_bits_ -= 8, bits_ >>= 8) pend_.push_back(uint8_t(bits_));
}

void Deflater::align() {
    if (n_bits_) put(0, 8 - n_bits_);
}

void Deflater::write_header() {
    if (format_ == Format::Zlib) {
        const uint32_t cmf = 0x78, flevel = level_ < 2 ? 0 : level_ < 6 ? 1 : level_ == 6 ? 2 : 3;
        uint32_t flg = flevel << 6 | (has_dict_ ? 0x20 : 0);
        flg += 31 - ((cmf << 8 | flg) % 31);
        put(cmf, 8);
        put(flg, 8);
        if (has_dict_)
            for (int s = 24; s >= 0; s -= 8) put((dict_id_ >> s) & 0xff, 8);
    } else if (format_ == Format::Gzip) {
        const uint8_t h[10] = {0x1f, 0x8b, 8, 0, 0, 0, 0, 0, uint8_t(level_ == 9 ? 2 : level_ == 1 ? 4 : 0), 3};
        for (uint8_t b : h) put(b, 8);
    }
    step_ = Step::Body;
}

void Deflater::slide() {
    const uint32_t hist = parse_ > win_lo_ + kWin ? parse_ - kWin : win_lo_;
    const uint32_t k = block_start_ < hist ? block_start_ : hist;
    if (k == 0) return;
    memmove(buf_.data(), buf_.data() + k, have_ - k);
    off_base_ += k;
    win_lo_ = win_lo_ > k ? win_lo_ - k : 0;
    block_start_ -= k;
    parse_ -= k;
    have_ -= k;
}

void Deflater::take_input(const uint8_t*& in, size_t& in_len) {
    if (have_ == kBufSize) slide();
    const size_t n = in_len < kBufSize - have_ ? in_len : kBufSize - have_;
    if (n == 0) return;
    memcpy(buf_.data() + have_, in, n);
    check_ = update_check(format_, check_, in, n);
    have_ += uint32_t(n);
    total_in_ += n;
    in += n;
    in_len -= n;
    flushed_ = false;
}

void Deflater::find(uint32_t len, int32_t flush) {
    if (level_ == 1) return fastest_block(len, flush);
    memset(call_lit_, 0, sizeof call_lit_);
    memset(call_dist_, 0, sizeof call_dist_);
    const uint32_t call_start = parse_, rec_start = n_rec_;
    const uint8_t* src = buf_.data() + parse_;
    uint32_t src_len = len, idx = uint32_t(off_base_ + parse_), cap = kChunk;
    const uint8_t* window = buf_.data() + win_lo_;
    uint8_t* ll = lit_len_.data() + n_rec_;
    uint16_t* d = dist_.data() + n_rec_;
    const int32_t level = level_;
    if (level <= 3)
        zemsDeflateLZ77Fast_8u(&src, &src_len, &idx, window, kWin, head_.data(), prev_.data(), kHashSize, ll, d, &cap,
                               call_lit_, call_dist_, level, flush);
    else if (level <= 6)
        zemsDeflateLZ77_8u(&src, &src_len, &idx, window, kWin, head_.data(), prev_.data(), kHashSize, ll, d, &cap,
                           call_lit_, call_dist_, level, flush);
    else
        zemsDeflateLZ77Slow_8u(&src, &src_len, &idx, window, kWin, head_.data(), prev_.data(), kHashSize, ll, d,
                               &cap, call_lit_, call_dist_, level, flush, work_.data());
    parse_ = uint32_t(src - buf_.data());
    n_rec_ += cap;
    checkpoint(call_start, rec_start);
}

void Deflater::checkpoint(uint32_t call_start, uint32_t rec_start) {
    const uint32_t n_call = n_rec_ - rec_start;
    bool split = false;
    if (rec_start > 0 && n_call >= kMinSplitRecords) {
        const double apart = entropy_bits(blk_lit_, 286) + entropy_bits(blk_dist_, 30) +
                             entropy_bits(call_lit_, 286) + entropy_bits(call_dist_, 30) + kBlockCostBits;
        const double together = joint_entropy_bits(blk_lit_, call_lit_, 286) + joint_entropy_bits(blk_dist_, call_dist_, 30);
        split = apart < together;
    }
    if (split) {
        emit_block(rec_start, call_start, false);
        memmove(lit_len_.data(), lit_len_.data() + rec_start, n_call);
        memmove(dist_.data(), dist_.data() + rec_start, n_call * sizeof(uint16_t));
        n_rec_ = n_call;
    }
    for (uint32_t s = 0; s < 286; ++s) blk_lit_[s] += call_lit_[s];
    for (uint32_t s = 0; s < 30; ++s) blk_dist_[s] += call_dist_[s];
    if (n_rec_ + kChunk > kBlockRecords || parse_ - block_start_ >= kMaxBlockIn) emit_block(n_rec_, parse_, false);
}

void Deflater::emit_stored(const uint8_t* p, uint32_t n, bool final) {
    do {
        const uint32_t k = n < kStoredMax ? n : kStoredMax;
        put(final && k == n ? 1 : 0, 1);
        put(0, 2);
        align();
        put(k, 16);
        put(~k & 0xffff, 16);
        pend_.insert(pend_.end(), p, p + k);
        p += k;
        n -= k;
    } while (n > 0);
}

// Writes BFINAL and BTYPE, and the header of a dynamic block; returns the codes to write with.
const BlockCodes* Deflater::open_block(const BlockCodes& bc, bool final) {
    const bool dynamic = bc.dyn < bc.fix;
    put(final ? 1 : 0, 1);
    put(dynamic ? 2 : 1, 2);
    if (!dynamic) return nullptr;
    for (uint32_t i = 0; i < bc.hdr_len; ++i) put(bc.hdr[i], bc.hdr_bits - 8 * i < 8 ? bc.hdr_bits - 8 * i : 8);
    return &bc;
}

// Takes back the pending bits after a primitive wrote into pend_ from `at` on.
void Deflater::took_bits(size_t end, uint16_t code, uint32_t n_bits) {
    pend_.resize(end);
    bits_ = code;
    n_bits_ = n_bits;
}

void Deflater::emit_block(uint32_t n_rec, uint32_t in_end, bool final) {
    const uint32_t n_in = in_end - block_start_;
    const BlockCodes bc(blk_lit_, blk_dist_, n_in);
    if (bc.stored < bc.dyn && bc.stored < bc.fix) {
        emit_stored(buf_.data() + block_start_, n_in, final);
    } else {
        const BlockCodes* dyn = open_block(bc, final);
        const zemDeflateHuffCode* l = dyn ? dyn->lit : fixed_codes().lit;
        const zemDeflateHuffCode* d = dyn ? dyn->dist : fixed_codes().dist;
        const size_t at = pend_.size();
        pend_.resize(at + size_t(n_rec) * 6 + 8);
        uint16_t code = uint16_t(bits_);
        uint32_t code_bits = n_bits_, idx = uint32_t(at);
        zemsDeflateHuff_8u(lit_len_.data(), dist_.data(), n_rec, &code, &code_bits, l, d, pend_.data(), &idx);
        took_bits(idx, code, code_bits);
        put(l[256].code, l[256].len);
    }
    block_start_ = in_end;
    n_rec_ = 0;
    memset(blk_lit_, 0, sizeof blk_lit_);
    memset(blk_dist_, 0, sizeof blk_dist_);
}

// Level 1: one block per span, written by the single-pass path with codes built from a sample:
// GetStat counts the span's first kSample bytes, on a copy of the table so that Fastest parses
// them afresh, and every symbol gets a count so that the codes cover whatever the whole parse
// emits. The block's exact size is known only once it is written: when its stored form would
// have been smaller, the block is taken back and stored instead.
void Deflater::fastest_block(uint32_t len, int32_t flush) {
    const uint8_t* const src = buf_.data() + parse_;
    const uint8_t* const window = buf_.data() + win_lo_;
    const uint32_t idx = uint32_t(off_base_ + parse_);
    uint32_t lit[286] = {}, dist[30] = {};
    const uint32_t sampled = len < kSample ? len : kSample;
    memcpy(stat_head_.data(), head_.data(), head_.size() * sizeof(uint32_t));
    {
        const uint8_t* p = src;
        uint32_t n = sampled, i = idx;
        zemsDeflateLZ77FastestGetStat_8u(&p, &n, &i, window, kWin, stat_head_.data(), kHashSize, lit, dist,
                                         zemDeflateSyncFlush);
    }
    // Counts scaled to the span, plus one each: a count is at most the bytes sampled, so a
    // scaled one is below twice the span, which never exceeds the buffer.
    const uint32_t scale = sampled ? (len + sampled - 1) / sampled : 1;
    static_assert(2ull * kBufSize + 1 < (1ull << 32), "scaled counts fit");
    for (uint32_t& c : lit) c = c * scale + 1;
    for (uint32_t& c : dist) c = c * scale + 1;
    const BlockCodes bc(lit, dist, len);
    const size_t at0 = pend_.size();
    const uint64_t bits0 = bits_;
    const uint32_t n_bits0 = n_bits_;
    const BlockCodes* dyn = open_block(bc, false);
    const size_t at = pend_.size();
    // A literal takes at most 15 bits and a match of four bytes or more at most 48.
    pend_.resize(at + size_t(len) * 2 + 16);
    uint16_t code = uint16_t(bits_);
    uint32_t code_bits = n_bits_, room = uint32_t(pend_.size() - at);
    const uint8_t* p = src;
    uint32_t n = len, i = idx;
    const zemDeflateHuffCode* l = dyn ? dyn->lit : fixed_codes().lit;
    zemsDeflateLZ77Fastest_8u(&p, &n, &i, window, kWin, head_.data(), kHashSize, l,
                              dyn ? dyn->dist : fixed_codes().dist, pend_.data() + at, &room, &code, &code_bits, flush);
    took_bits(at + room, code, code_bits);
    put(l[256].code, l[256].len);
    const uint32_t parsed = len - n;
    const uint64_t block_bits = (pend_.size() - at0) * 8 + n_bits_ - n_bits0;
    if (parsed == 0 || block_bits > BlockCodes::stored_bits(parsed)) {
        took_bits(at0, uint16_t(bits0), n_bits0);
        // (Nothing parsed, as with input within the lookahead: no block at all.)
        if (parsed) emit_stored(src, parsed, false);
    }
    parse_ += parsed;
    block_start_ = parse_;
}

void Deflater::parse(bool flushing) {
    if (flushing) {
        while (parse_ < have_) find(have_ - parse_, zemDeflateFinish);
        return;
    }
    for (;;) {
        const uint64_t at = off_base_ + parse_;
        const uint64_t span_end = (at / kSpan + 1) * kSpan - off_base_;
        if (span_end + kLookahead > have_) return;
        find(uint32_t(span_end + kLookahead - parse_), zemDeflateNoFlush);
    }
}

void Deflater::do_flush(Flush flush) {
    parse(true);
    if (flush == Flush::Finish) {
        emit_block(n_rec_, parse_, true);
        align();
        if (format_ == Format::Zlib) {
            for (int s = 24; s >= 0; s -= 8) put((check_ >> s) & 0xff, 8);
        } else if (format_ == Format::Gzip) {
            for (int s = 0; s < 32; s += 8) put((check_ >> s) & 0xff, 8);
            for (int s = 0; s < 32; s += 8) put((total_in_ >> s) & 0xff, 8);
        }
        step_ = Step::Done;
        return;
    }
    if (n_rec_ > 0) emit_block(n_rec_, parse_, false);
    emit_stored(nullptr, 0, false);
    // Nothing after a full flush may reach back before it: the history floor moves up.
    if (flush == Flush::Full) win_lo_ = parse_;
}

DeflateResult Deflater::run(const uint8_t*& in, size_t& in_len, uint8_t*& out, size_t& out_len, Flush flush) {
    if (step_ == Step::Header) write_header();
    for (;;) {
        // Hand out what is pending first; new work waits until it is gone.
        const size_t k = pend_.size() - pend_pos_ < out_len ? pend_.size() - pend_pos_ : out_len;
        if (k) {
            memcpy(out, pend_.data() + pend_pos_, k);
            out += k;
            out_len -= k;
            pend_pos_ += k;
            total_out_ += k;
        }
        if (pend_pos_ < pend_.size()) return DeflateResult::Ok;
        pend_.clear();
        pend_pos_ = 0;
        if (step_ == Step::Done) return DeflateResult::End;
        if (in_len > 0) {
            take_input(in, in_len);
            parse(false);
            continue;
        }
        if (flush == Flush::None || (flushed_ && last_flush_ == flush)) return DeflateResult::Ok;
        do_flush(flush);
        flushed_ = true;
        last_flush_ = flush;
    }
}

size_t deflate_bound(size_t n) { return n + n / 256 + 64; }

bool deflate_buffer(Format format, int level, const uint8_t* in, size_t n, uint8_t* out, size_t out_cap,
                    size_t* out_len, const uint8_t* dict, size_t dict_len) {
    Deflater d(format, level);
    if (dict && !d.set_dictionary(dict, dict_len)) return false;
    size_t room = out_cap;
    uint8_t* o = out;
    const DeflateResult r = d.run(in, n, o, room, Flush::Finish);
    *out_len = size_t(o - out);
    return r == DeflateResult::End;
}

}  // namespace zem::stream
