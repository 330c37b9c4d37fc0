// The containers of zemstream.h, one adapter entry each, over the C++ stream layers.
#include "inflate_stream.h"
#include "lz4_frame.h"
#include "zemstream_adapter.h"

namespace zem::stream {
namespace {

constexpr uint64_t kUnknownSize = ~uint64_t(0);

// ---- DEFLATE family: decoding only until a writer is built ----

class InflateCoder final : public Coder {
  public:
    explicit InflateCoder(Format f) : inf_(f) {}
    zemStatus feed(const uint8_t*& in, size_t& in_len, uint8_t*& out, size_t& out_len) override {
        InflateResult r = inf_.run(in, in_len, out, out_len);
        if (r == InflateResult::BadData) return zemStreamStatusCorrupt;
        ended_ = r == InflateResult::End;
        return zemStatusOk;
    }
    zemStatus finish(uint8_t*& out, size_t& out_len) override {
        const uint8_t* none = nullptr;
        size_t zero = 0;
        if (zemStatus st = feed(none, zero, out, out_len); st != zemStatusOk) return st;
        if (ended_) return zemStatusOk;
        return out_len ? zemStatus(zemStreamStatusTruncated) : zemStatus(zemStatusDstTooSmall);
    }
    const char* detail() const override { return "invalid data, bad CRC or bad length"; }

  private:
    Inflater inf_;
    bool ended_ = false;
};

template <Format F>
Coder* make_inflater() {
    return new InflateCoder(F);
}

// ---- LZ4 frame ----

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
    {zemContainerGzip, "gzip", ".gz", 6, nullptr, make_inflater<Format::Gzip>, nullptr},
    {zemContainerZlib, "zlib", ".zlib", 6, nullptr, make_inflater<Format::Zlib>, nullptr},
    {zemContainerDeflate, "deflate", ".deflate", 6, nullptr, make_inflater<Format::Raw>, nullptr},
    {zemContainerLZ4, "lz4", ".lz4", 1, make_lz4_encoder, make_lz4_decoder, lz4_bound},
    {zemContainerBZ2, "bzip2", ".bz2", 9, nullptr, nullptr, nullptr},
    {zemContainerLZO, "lzo", ".lzo", 3, nullptr, nullptr, nullptr},
};

}  // namespace

const Adapter* find_adapter(int32_t container) {
    for (const Adapter& a : kAdapters)
        if (a.container == container) return &a;
    return nullptr;
}

}  // namespace zem::stream
