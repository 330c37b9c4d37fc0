// The raw/zlib/gzip decompression stream on the library's inflate primitives.
//
// Every step can stop at any byte of input or output and continue on the next call: the
// headers are read a byte at a time, the dynamic block header one code-length symbol (with
// its repeat bits) at a time, and the block bodies by zemsInflate_8u, whose bit buffer is this
// object's. The bit buffer never holds more than 32 bits when the primitive is called: every
// read here takes whole bytes only as far as it needs them.
#include "inflate_stream.h"

#include <string.h>

namespace zem::stream {

namespace {

constexpr uint8_t kClenOrder[19] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
constexpr size_t kWindow = 32768;
// Each primitive call gets at most this much input and output, well inside its 32-bit lengths.
constexpr size_t kMaxPiece = size_t(1) << 30;

// The gzip trailer's CRC-32 continued over n bytes.
uint32_t gzip_crc_update(uint32_t crc, const uint8_t* p, size_t n) {
    // zemsCRC32_8u takes and gives the finished checksum and refuses empty input.
    while (n > 0) {
        int32_t piece = (int32_t)(n < kMaxPiece ? n : kMaxPiece);
        zemsCRC32_8u(p, piece, &crc);
        p += piece;
        n -= (size_t)piece;
    }
    return crc;
}

}  // namespace

struct Inflater::Call {
    const uint8_t* in;
    size_t in_len;
    uint8_t* out;
    size_t out_len;
    uint8_t* hist;  // first byte of the current member's output in this call's buffer

    // Whole bytes into the bit buffer until it holds n bits or the input is used up.
    bool need(uint64_t& bb, uint32_t& bc, uint32_t n) {
        while (bc < n && in_len) {
            bb |= uint64_t(*in++) << bc;
            bc += 8;
            --in_len;
        }
        return bc >= n;
    }
};

Inflater::Inflater(Format format, bool contiguous_output) : format_(format), contiguous_(contiguous_output) {
    memset(&state_, 0, sizeof state_);
    reset();
}

void Inflater::reset() {
    step_ = Step::Header;
    final_ = false;
    bb_ = 0;
    bc_ = 0;
    mode_ = 0;
    total_out_ = 0;
    member_started_ = false;
}

void Inflater::start_member(Call& c) {
    member_started_ = true;
    member_out_ = 0;
    hdr_pos_ = 0;
    hdr_flags_ = 0;
    hdr_crc_ = 0;
    final_ = false;
    win_have_ = 0;
    win_next_ = 0;
    c.hist = c.out;
    check_ = format_ == Format::Zlib ? 1u : 0u;
    step_ = format_ == Format::Raw ? Step::BlockHeader : Step::Header;
}

void Inflater::checksum(const uint8_t* p, size_t n) {
    if (format_ == Format::Gzip) {
        check_ = gzip_crc_update(check_, p, n);
    } else if (format_ == Format::Zlib) {
        while (n) {
            size_t k = n < kMaxPiece ? n : kMaxPiece;
            zemsAdler32_8u(p, int32_t(k), &check_);
            p += k;
            n -= k;
        }
    }
}

bool Inflater::next_byte(Call& c, uint8_t& b) {
    if (bc_ >= 8) {
        b = uint8_t(bb_);
        bb_ >>= 8;
        bc_ -= 8;
        return true;
    }
    if (!c.in_len) return false;
    b = *c.in++;
    --c.in_len;
    return true;
}

bool Inflater::header(Call& c) {
    if (format_ == Format::Gzip) return gzip_header(c);
    // zlib: CMF and FLG
    uint8_t b;
    while (hdr_pos_ < 2) {
        if (!next_byte(c, b)) return false;
        hdr_flags_ = hdr_flags_ << 8 | b;
        ++hdr_pos_;
    }
    uint32_t cmf = hdr_flags_ >> 8, flg = hdr_flags_ & 0xff;
    // Deflate with a window of at most 32 KiB, a valid check and no preset dictionary.
    if ((cmf & 15) != 8 || (cmf >> 4) > 7 || hdr_flags_ % 31 != 0 || (flg & 0x20)) {
        step_ = Step::Error;
        return true;
    }
    step_ = Step::BlockHeader;
    return true;
}

bool Inflater::gzip_header(Call& c) {
    uint8_t b;
    auto take = [&](uint8_t& v) {
        if (!next_byte(c, v)) return false;
        hdr_crc_ = gzip_crc_update(hdr_crc_, &v, 1);
        return true;
    };
    auto fail = [&] {
        step_ = Step::Error;
        return true;
    };
    // 0-9 the fixed part, 10-11 XLEN, 12 the extra field, 13 the name, 14 the comment,
    // 15-16 the header CRC.
    for (;;) {
        if (hdr_pos_ < 10) {
            if (!take(b)) return false;
            if ((hdr_pos_ == 0 && b != 0x1f) || (hdr_pos_ == 1 && b != 0x8b) || (hdr_pos_ == 2 && b != 8))
                return fail();
            if (hdr_pos_ == 3) {
                if (b & 0xe0) return fail();
                hdr_flags_ = b;
            }
            ++hdr_pos_;
        } else if (hdr_pos_ == 10) {
            if (!(hdr_flags_ & 4)) {
                hdr_pos_ = 13;
                continue;
            }
            if (!take(b)) return false;
            hdr_skip_ = b;
            hdr_pos_ = 11;
        } else if (hdr_pos_ == 11) {
            if (!take(b)) return false;
            hdr_skip_ |= uint32_t(b) << 8;
            hdr_pos_ = 12;
        } else if (hdr_pos_ == 12) {
            while (hdr_skip_) {
                if (!take(b)) return false;
                --hdr_skip_;
            }
            hdr_pos_ = 13;
        } else if (hdr_pos_ == 13 || hdr_pos_ == 14) {
            uint32_t flag = hdr_pos_ == 13 ? 8 : 16;
            if (hdr_flags_ & flag) {
                do {
                    if (!take(b)) return false;
                } while (b != 0);
            }
            ++hdr_pos_;
        } else if (hdr_pos_ == 15) {
            if (!(hdr_flags_ & 2)) break;
            if (!next_byte(c, b)) return false;
            hdr_skip_ = b;
            hdr_pos_ = 16;
        } else {
            if (!next_byte(c, b)) return false;
            if ((hdr_skip_ | uint32_t(b) << 8) != (hdr_crc_ & 0xffff)) return fail();
            break;
        }
    }
    step_ = Step::BlockHeader;
    return true;
}

bool Inflater::block_header(Call& c) {
    if (!c.need(bb_, bc_, 3)) return false;
    final_ = bb_ & 1;
    uint32_t type = uint32_t(bb_ >> 1) & 3;
    bb_ >>= 3;
    bc_ -= 3;
    switch (type) {
        case 0:
            bb_ >>= bc_ & 7;
            bc_ &= ~7u;
            step_ = Step::StoredLen;
            break;
        case 1:
            state_.tableKind = 0;
            mode_ = 0;
            step_ = Step::Body;
            break;
        case 2:
            step_ = Step::DynCounts;
            break;
        default:
            step_ = Step::Error;
    }
    return true;
}

bool Inflater::dyn_lens(Call& c) {
    const uint32_t total = n_lit_ + n_dist_;
    // The bit buffer and the count in locals for the loop, written back on every way out.
    uint64_t bb = bb_;
    uint32_t bc = bc_, have = n_have_;
    bool ok = true, more = true;
    // Far from the end of the input, eight bytes at once fill the buffer for the next few
    // symbols without a loop; the bytes the loop then leaves whole go back to the input.
    size_t taken = 0;
    while (have < total) {
        // A symbol and its repeat bits take at most 14 bits.
        if (bc < 14 && c.in_len >= 8) {
            uint64_t w;
            memcpy(&w, c.in, 8);
            bb |= w << bc;
            size_t k = (63 - bc) >> 3;
            c.in += k;
            c.in_len -= k;
            taken += k;
            bc += uint32_t(8 * k);
        } else if (bc < 14) {
            c.need(bb, bc, 14);
        }
        uint32_t e = clen_table_[bb & 127];
        uint32_t l = e & 15, x = (e >> 4) & 15, sym = e >> 8;
        if (l + x > bc) {
            more = false;
            break;
        }
        uint32_t v = uint32_t(bb >> l) & ((1u << x) - 1);
        bb >>= l + x;
        bc -= l + x;
        if (sym < 16) {
            lens_[have++] = uint16_t(sym);
            continue;
        }
        uint32_t rep = sym == 16 ? 3 + v : sym == 17 ? 3 + v : 11 + v;
        if ((sym == 16 && have == 0) || have + rep > total) {
            ok = false;
            break;
        }
        uint16_t val = sym == 16 ? lens_[have - 1] : 0;
        while (rep--) lens_[have++] = val;
    }
    {
        size_t k = bc >> 3;
        if (k > taken) k = taken;
        c.in -= k;
        c.in_len += k;
        bc -= uint32_t(8 * k);
        bb &= (uint64_t(1) << bc) - 1;  // bc is below 64 here
    }
    bb_ = bb;
    bc_ = bc;
    n_have_ = have;
    if (!ok) return step_ = Step::Error, true;
    if (!more) return false;
    // A block without an end-of-block code could never end.
    if (lens_[256] == 0 || zemsInflateBuildHuffTable(lens_, n_lit_, n_dist_, &state_) != zemStatusOk)
        return step_ = Step::Error, true;
    mode_ = 0;
    step_ = Step::Body;
    return true;
}

bool Inflater::body(Call& c) {
    for (;;) {
        // The primitive takes no null buffers, even empty ones.
        static const uint8_t kNoInput = 0;
        static uint8_t no_output = 0;
        const uint8_t* src = c.in ? c.in : &kNoInput;
        uint8_t* dst = c.out ? c.out : &no_output;
        uint32_t src_len = uint32_t(c.in_len < kMaxPiece ? c.in_len : kMaxPiece);
        uint32_t dst_len = uint32_t(c.out_len < kMaxPiece ? c.out_len : kMaxPiece);
        uint32_t code = uint32_t(bb_), bits = bc_;
        uint32_t dst_idx, win_idx = 0;
        if (!c.out) {
            state_.window = nullptr;
            state_.windowSize = 0;
            dst_idx = 0;
        } else if (contiguous_) {
            state_.window = nullptr;
            state_.windowSize = 0;
            dst_idx = uint32_t(member_out_ < kMaxPiece ? member_out_ : kMaxPiece);
        } else {
            state_.window = window_;
            state_.windowSize = win_have_;
            win_idx = win_next_;
            dst_idx = uint32_t(c.out - c.hist < ptrdiff_t(kMaxPiece) ? c.out - c.hist : kMaxPiece);
        }
        zemStatus st = zemsInflate_8u(&src, &src_len, &code, &bits, win_idx, &dst, &dst_len, dst_idx, &mode_, &state_);
        size_t used = size_t(src - (c.in ? c.in : &kNoInput)), made = size_t(dst - (c.out ? c.out : &no_output));
        if (made) checksum(c.out, made);
        c.in += used;
        c.in_len -= used;
        c.out += made;
        c.out_len -= made;
        member_out_ += made;
        total_out_ += made;
        bb_ = code;
        bc_ = bits;
        if (st != zemStatusOk) return step_ = Step::Error, true;
        if (mode_ == 0) {
            if (final_) {
                hdr_pos_ = 0;
                step_ = format_ == Format::Raw ? Step::End : Step::Trailer;
            } else {
                step_ = Step::BlockHeader;
            }
            return true;
        }
        if (!c.in_len || !c.out_len) return false;
        // Only the piece limit stops a call with input and room left; anything else would
        // come back here forever.
        if (!used && !made) return step_ = Step::Error, true;
    }
}

bool Inflater::trailer(Call& c) {
    if (hdr_pos_ == 0) {
        bb_ >>= bc_ & 7;
        bc_ &= ~7u;
        hdr_skip_ = 0;
        hdr_flags_ = 0;
    }
    const uint32_t n = format_ == Format::Gzip ? 8 : 4;
    uint8_t b;
    while (hdr_pos_ < n) {
        if (!next_byte(c, b)) return false;
        // zlib's Adler-32 is big-endian; gzip's CRC-32 and ISIZE little-endian.
        if (format_ == Format::Zlib)
            hdr_skip_ = hdr_skip_ << 8 | b;
        else if (hdr_pos_ < 4)
            hdr_skip_ |= uint32_t(b) << (8 * hdr_pos_);
        else
            hdr_flags_ |= uint32_t(b) << (8 * (hdr_pos_ - 4));
        ++hdr_pos_;
    }
    bool ok = hdr_skip_ == check_ && (format_ != Format::Gzip || hdr_flags_ == uint32_t(member_out_));
    step_ = ok ? Step::End : Step::Error;
    return true;
}

void Inflater::keep_history(Call& c) {
    if (contiguous_) return;
    const uint8_t* p = c.hist;
    size_t n = size_t(c.out - c.hist);
    if (n >= kWindow) {
        memcpy(window_, p + n - kWindow, kWindow);
        win_next_ = 0;
        win_have_ = kWindow;
        return;
    }
    size_t first = kWindow - win_next_ < n ? kWindow - win_next_ : n;
    memcpy(window_ + win_next_, p, first);
    memcpy(window_, p + first, n - first);
    win_next_ = uint32_t((win_next_ + n) % kWindow);
    win_have_ = uint32_t(win_have_ + n < kWindow ? win_have_ + n : kWindow);
}

InflateResult Inflater::run(const uint8_t*& in, size_t& in_len, uint8_t*& out, size_t& out_len) {
    Call c{in, in_len, out, out_len, out};
    InflateResult result = InflateResult::Ok;
    // A gzip stream that has ended goes on only when another member's bytes come.
    bool ended = step_ == Step::End && !c.in_len && bc_ < 8;
    if (!member_started_ && step_ != Step::Error && !ended) start_member(c);
    for (bool go = true; go;) {
        switch (step_) {
            case Step::Header:
                go = header(c);
                break;
            case Step::BlockHeader:
                go = block_header(c);
                break;
            case Step::StoredLen:
                if (!c.need(bb_, bc_, 32)) {
                    go = false;
                    break;
                }
                if ((bb_ & 0xffff) != ((~bb_ >> 16) & 0xffff)) {
                    step_ = Step::Error;
                    break;
                }
                stored_left_ = uint32_t(bb_ & 0xffff);
                bb_ = 0;
                bc_ = 0;
                step_ = Step::Stored;
                break;
            case Step::Stored: {
                if (!stored_left_) {
                    step_ = final_ ? (format_ == Format::Raw ? Step::End : Step::Trailer) : Step::BlockHeader;
                    hdr_pos_ = 0;
                    break;
                }
                size_t n = stored_left_;
                if (n > c.in_len) n = c.in_len;
                if (n > c.out_len) n = c.out_len;
                if (!n) {
                    go = false;
                    break;
                }
                memcpy(c.out, c.in, n);
                checksum(c.out, n);
                c.in += n;
                c.in_len -= n;
                c.out += n;
                c.out_len -= n;
                member_out_ += n;
                total_out_ += n;
                stored_left_ -= uint32_t(n);
                if (stored_left_) {
                    go = false;
                    break;
                }
                if (final_) {
                    hdr_pos_ = 0;
                    step_ = format_ == Format::Raw ? Step::End : Step::Trailer;
                } else {
                    step_ = Step::BlockHeader;
                }
                break;
            }
            case Step::DynCounts:
                if (!c.need(bb_, bc_, 14)) {
                    go = false;
                    break;
                }
                n_lit_ = 257 + uint32_t(bb_ & 31);
                n_dist_ = 1 + uint32_t((bb_ >> 5) & 31);
                n_clen_ = 4 + uint32_t((bb_ >> 10) & 15);
                bb_ >>= 14;
                bc_ -= 14;
                if (n_lit_ > 286 || n_dist_ > 30) {
                    step_ = Step::Error;
                    break;
                }
                memset(clens_, 0, sizeof clens_);
                n_have_ = 0;
                step_ = Step::DynCodeLens;
                break;
            case Step::DynCodeLens: {
                while (n_have_ < n_clen_) {
                    if (!c.need(bb_, bc_, 3)) break;
                    clens_[kClenOrder[n_have_++]] = uint8_t(bb_ & 7);
                    bb_ >>= 3;
                    bc_ -= 3;
                }
                if (n_have_ < n_clen_) {
                    go = false;
                    break;
                }
                // The code-length code must be complete.
                uint32_t count[8] = {}, next[8] = {};
                for (uint8_t l : clens_) count[l]++;
                count[0] = 0;
                int32_t left = 1;
                for (uint32_t l = 1; l < 8; ++l) {
                    left = 2 * left - int32_t(count[l]);
                    if (left < 0) break;
                }
                if (left != 0) {
                    step_ = Step::Error;
                    break;
                }
                for (uint32_t l = 1, code = 0; l < 8; ++l) {
                    code = (code + count[l - 1]) << 1;
                    next[l] = code;
                }
                for (uint32_t s = 0; s < 19; ++s) {
                    uint32_t l = clens_[s];
                    if (!l) continue;
                    uint32_t code = next[l]++, r = 0;
                    for (uint32_t i = 0; i < l; ++i) r |= ((code >> i) & 1) << (l - 1 - i);
                    // The repeat symbols carry their count of repeat bits beside the length.
                    uint32_t x = s < 16 ? 0 : s == 16 ? 2 : s == 17 ? 3 : 7;
                    for (uint32_t i = r; i < 128; i += 1u << l) clen_table_[i] = uint16_t(s << 8 | x << 4 | l);
                }
                n_have_ = 0;
                step_ = Step::DynLens;
                break;
            }
            case Step::DynLens:
                go = dyn_lens(c);
                break;
            case Step::Body:
                go = body(c);
                break;
            case Step::Trailer:
                go = trailer(c);
                break;
            case Step::End:
                // Another gzip member may follow; bytes still held in the bit buffer are its own.
                if (format_ == Format::Gzip && (c.in_len || bc_ >= 8)) {
                    start_member(c);
                    break;
                }
                // A gzip stream may go on with another member in later input; raw and zlib
                // streams are over.
                if (format_ == Format::Gzip) member_started_ = false;
                result = InflateResult::End;
                go = false;
                break;
            case Step::Error:
                result = InflateResult::BadData;
                go = false;
                break;
        }
    }
    keep_history(c);
    in = c.in;
    in_len = c.in_len;
    out = c.out;
    out_len = c.out_len;
    return result;
}

InflateResult inflate_buffer(Format format, const uint8_t* in, size_t in_len, uint8_t* out, size_t out_cap,
                             size_t* out_len, size_t* in_used) {
    Inflater inf(format, true);
    const uint8_t* p = in;
    size_t left = in_len;
    uint8_t* q = out;
    size_t room = out_cap;
    InflateResult r = inf.run(p, left, q, room);
    *out_len = size_t(q - out);
    // Whole bytes still in the bit buffer were not part of the stream.
    if (in_used) *in_used = size_t(p - in) - (r == InflateResult::End ? inf.held_bits() / 8 : 0);
    if (r == InflateResult::Ok) return room == 0 && left != 0 ? InflateResult::DstTooSmall : InflateResult::Truncated;
    return r;
}

}  // namespace zem::stream
