// The containers of zemstream.h, one adapter entry each, over the C++ stream layers.
#include <string.h>

#include <vector>

#include "bz2_reader.h"
#include "bz2_writer.h"
#include "deflate_stream.h"
#include "inflate_stream.h"
#include "lz4_frame.h"
#include "lzo_file.h"
#include "zemstream_adapter.h"

namespace zem::stream {
namespace {

constexpr uint64_t kUnknownSize = ~uint64_t(0);

// Layers that append their output to a vector: what they produced waits there until the
// caller's buffer takes it. Draining after every call keeps the vector at about one block.
class VectorOutput {
  protected:
    void drain(uint8_t*& out, size_t& out_len) {
        size_t n = pending_.size() - pos_ < out_len ? pending_.size() - pos_ : out_len;
        if (n) memcpy(out, pending_.data() + pos_, n);
        out += n;
        out_len -= n;
        pos_ += n;
        if (pos_ == pending_.size()) {
            pending_.clear();
            pos_ = 0;
        }
    }
    [[nodiscard]] bool waiting() const { return pos_ < pending_.size(); }
    std::vector<uint8_t> pending_;
    size_t pos_ = 0;
};

// ---- DEFLATE family ----

class DeflateCoder final : public Coder {
  public:
    DeflateCoder(Format f, int level) : d_(f, level) {}
    zemStatus feed(const uint8_t*& in, size_t& in_len, uint8_t*& out, size_t& out_len) override {
        d_.run(in, in_len, out, out_len, Flush::None);
        return zemStatusOk;
    }
    zemStatus finish(uint8_t*& out, size_t& out_len) override {
        const uint8_t* none = nullptr;
        size_t zero = 0;
        if (ended_) return zemStatusOk;
        ended_ = d_.run(none, zero, out, out_len, Flush::Finish) == DeflateResult::End;
        return ended_ ? zemStatusOk : zemStatusDstTooSmall;
    }

  private:
    Deflater d_;
    bool ended_ = false;
};

template <Format F>
Coder* make_deflater(int level, uint64_t) {
    return new DeflateCoder(F, level);
}

uint64_t deflate_family_bound(uint64_t n) { return deflate_bound(size_t(n)); }

// Decoders whose layer says when a stream has ended: at the end of the input the stream must
// have ended, or the output filled first (the caller drains and calls again).
class EndingDecoder : public Coder {
  public:
    zemStatus finish(uint8_t*& out, size_t& out_len) override {
        const uint8_t* none = nullptr;
        size_t zero = 0;
        if (zemStatus st = feed(none, zero, out, out_len); st != zemStatusOk) return st;
        if (ended_) return zemStatusOk;
        return out_len ? zemStatus(zemStreamStatusTruncated) : zemStatus(zemStatusDstTooSmall);
    }

  protected:
    bool ended_ = false;
};

class InflateCoder final : public EndingDecoder {
  public:
    explicit InflateCoder(Format f) : inf_(f) {}
    zemStatus feed(const uint8_t*& in, size_t& in_len, uint8_t*& out, size_t& out_len) override {
        InflateResult r = inf_.run(in, in_len, out, out_len);
        if (r == InflateResult::BadData) return zemStreamStatusCorrupt;
        ended_ = r == InflateResult::End;
        return zemStatusOk;
    }
    const char* detail() const override { return "invalid data, bad CRC or bad length"; }

  private:
    Inflater inf_;
};

template <Format F>
Coder* make_inflater() {
    return new InflateCoder(F);
}

class Lz4Encoder final : public Coder {
  public:
    explicit Lz4Encoder(const Lz4FrameOptions& o) : w_(o) {}
    zemStatus feed(const uint8_t*& in, size_t& in_len, uint8_t*& out, size_t& out_len) override {
        w_.write(in, in_len, out, out_len);
        return zemStatusOk;
    }
    zemStatus finish(uint8_t*& out, size_t& out_len) override {
        Lz4FrameResult r = w_.finish(out, out_len);
        if (r == Lz4FrameResult::BadData) return zemStreamStatusBadState;
        return r == Lz4FrameResult::End ? zemStatusOk : zemStatusDstTooSmall;
    }

  private:
    Lz4FrameWriter w_;
};

class Lz4Decoder final : public Coder {
  public:
    zemStatus feed(const uint8_t*& in, size_t& in_len, uint8_t*& out, size_t& out_len) override {
        switch (r_.run(in, in_len, out, out_len)) {
            case Lz4FrameResult::Ok:
            case Lz4FrameResult::End: return zemStatusOk;
            case Lz4FrameResult::BadChecksum: return zemStreamStatusChecksum;
            case Lz4FrameResult::Unsupported: return zemStreamStatusUnsupported;
            case Lz4FrameResult::BadData: break;
        }
        return zemStreamStatusCorrupt;
    }
    zemStatus finish(uint8_t*& out, size_t& out_len) override {
        const uint8_t* none = nullptr;
        size_t zero = 0;
        if (zemStatus st = feed(none, zero, out, out_len); st != zemStatusOk) return st;
        if (r_.at_boundary() && r_.any_frame()) return zemStatusOk;
        return out_len ? zemStatus(zemStreamStatusTruncated) : zemStatus(zemStatusDstTooSmall);
    }
    const char* detail() const override { return r_.reason(); }

  private:
    Lz4FrameReader r_;
};

// ---- bzip2 ----

class Bz2Encoder final : public Coder, VectorOutput {
  public:
    explicit Bz2Encoder(int level) : w_(level) {}
    zemStatus feed(const uint8_t*& in, size_t& in_len, uint8_t*& out, size_t& out_len) override {
        drain(out, out_len);
        // Input waits while output does, so that pending_ stays at a block or so.
        if (waiting() || !in_len) return zemStatusOk;
        w_.write(in, in_len, pending_);
        in += in_len;
        in_len = 0;
        drain(out, out_len);
        return zemStatusOk;
    }
    zemStatus finish(uint8_t*& out, size_t& out_len) override {
        if (!finished_) {
            w_.finish(pending_);
            finished_ = true;
        }
        drain(out, out_len);
        return waiting() ? zemStatusDstTooSmall : zemStatusOk;
    }

  private:
    Bz2Writer w_;
    bool finished_ = false;
};

class Bz2Decoder final : public EndingDecoder {
  public:
    zemStatus feed(const uint8_t*& in, size_t& in_len, uint8_t*& out, size_t& out_len) override {
        size_t given = in_len;
        switch (r_.run(in, in_len, out, out_len)) {
            case Bz2Result::End: ended_ = true; return zemStatusOk;
            // Input taken after an end belongs to the next stream of the file.
            case Bz2Result::Ok: ended_ = ended_ && in_len == given; return zemStatusOk;
            case Bz2Result::Unsupported: return zemStreamStatusUnsupported;
            default: return zemStreamStatusCorrupt;
        }
    }
    const char* detail() const override { return "invalid data or bad CRC"; }

  private:
    Bz2Reader r_;
};

Coder* make_bz2_encoder(int level, uint64_t) { return new Bz2Encoder(level); }
Coder* make_bz2_decoder() { return new Bz2Decoder; }
// bzip2's own rule (1% and 600 bytes) with room to spare for our Huffman tables and block headers.
uint64_t bz2_bound(uint64_t n) { return n + n / 50 + 1024; }

// ---- .lzo ----

class LzoEncoder final : public Coder, VectorOutput {
  public:
    explicit LzoEncoder(const LzoFileOptions& o) : w_(o) {}
    zemStatus feed(const uint8_t*& in, size_t& in_len, uint8_t*& out, size_t& out_len) override {
        drain(out, out_len);
        if (waiting() || !in_len) return zemStatusOk;
        if (!w_.write(in, in_len, pending_)) return zemStreamStatusBadState;
        in += in_len;
        in_len = 0;
        drain(out, out_len);
        return zemStatusOk;
    }
    zemStatus finish(uint8_t*& out, size_t& out_len) override {
        if (!finished_ && !w_.finish(pending_)) return zemStreamStatusBadState;
        finished_ = true;
        drain(out, out_len);
        return waiting() ? zemStatusDstTooSmall : zemStatusOk;
    }

  private:
    LzoWriter w_;
    bool finished_ = false;
};

// The reader appends what it decodes to a vector and keeps the input it has not used; the
// adapter hands both on piecewise, and starts a new reader for a file that follows the last.
class LzoDecoder final : public Coder, VectorOutput {
  public:
    zemStatus feed(const uint8_t*& in, size_t& in_len, uint8_t*& out, size_t& out_len) override {
        drain(out, out_len);
        if (waiting() || !in_len) return zemStatusOk;
        LzoResult r = r_.feed(in, in_len, pending_);
        in += in_len;
        in_len = 0;
        while (r == LzoResult::End && !r_.rest().empty()) {
            std::vector<uint8_t> rest = r_.rest();
            r_ = LzoReader();
            r = r_.feed(rest.data(), rest.size(), pending_);
        }
        drain(out, out_len);
        if (r == LzoResult::BadData) return zemStreamStatusCorrupt;
        ended_ = r == LzoResult::End;
        return zemStatusOk;
    }
    zemStatus finish(uint8_t*& out, size_t& out_len) override {
        drain(out, out_len);
        if (waiting()) return zemStatusDstTooSmall;
        return ended_ ? zemStatus(zemStatusOk) : zemStatus(zemStreamStatusTruncated);
    }
    const char* detail() const override { return "invalid data or bad checksum"; }

  private:
    LzoReader r_;
    bool ended_ = false;
};

LzoFileOptions lzo_options(int level) {
    LzoFileOptions o;
    // lzop's levels: 1..6 its fast method, 7..9 the thorough one.
    o.method = level >= 7 ? zemLZOStrong : zemLZOFast;
    return o;
}
Coder* make_lzo_encoder(int level, uint64_t) { return new LzoEncoder(lzo_options(level)); }
Coder* make_lzo_decoder() { return new LzoDecoder; }
// Each 256 KiB block may be stored: its size words and checksum, plus the header and end word.
uint64_t lzo_bound(uint64_t n) { return n + (n / (256 * 1024) + 1) * 12 + 64 + 255; }

// ---- LZ4 frame ----

Lz4FrameOptions lz4_options(int level, uint64_t size_hint) {
    Lz4FrameOptions o;
    o.level = level;
    // A whole input smaller than the default block gets the smallest block that holds it, so a
    // one-call frame of a small buffer does not cost its reader a 4 MiB buffer.
    if (size_hint != kUnknownSize) o.block_size = uint32_t(size_hint < o.block_size ? size_hint : o.block_size);
    return o;
}

Coder* make_lz4_encoder(int level, uint64_t size_hint) { return new Lz4Encoder(lz4_options(level, size_hint)); }
Coder* make_lz4_decoder() { return new Lz4Decoder; }
uint64_t lz4_bound(uint64_t n) { return Lz4FrameWriter::bound(lz4_options(1, n), n); }

constexpr Adapter kAdapters[] = {
    {zemContainerGzip, "gzip", ".gz", 6, make_deflater<Format::Gzip>, make_inflater<Format::Gzip>, deflate_family_bound},
    {zemContainerZlib, "zlib", ".zlib", 6, make_deflater<Format::Zlib>, make_inflater<Format::Zlib>, deflate_family_bound},
    {zemContainerDeflate, "deflate", ".deflate", 6, make_deflater<Format::Raw>, make_inflater<Format::Raw>,
     deflate_family_bound},
    {zemContainerLZ4, "lz4", ".lz4", 1, make_lz4_encoder, make_lz4_decoder, lz4_bound},
    {zemContainerBZ2, "bzip2", ".bz2", 9, make_bz2_encoder, make_bz2_decoder, bz2_bound},
    {zemContainerLZO, "lzo", ".lzo", 3, make_lzo_encoder, make_lzo_decoder, lzo_bound},
};

}  // namespace

const Adapter* find_adapter(int32_t container) {
    for (const Adapter& a : kAdapters)
        if (a.container == container) return &a;
    return nullptr;
}

}  // namespace zem::stream
