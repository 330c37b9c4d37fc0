// Decompression of raw DEFLATE, zlib and gzip (multi-member) streams on the library's inflate
// primitives: the stream layer parses headers, block headers, stored blocks, the code-length
// code and the trailers, keeps the 32 KiB history window and verifies the checksums; the
// library builds the tables and decodes the block bodies.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "zemdc.h"

namespace zem::stream {

enum class Format { Raw, Zlib, Gzip };

enum class InflateResult {
    Ok,           // progress; call again with more input or more output room
    End,          // the stream ended (a gzip stream: its last member so far) and its trailer checked out
    BadData,      // malformed stream, unsupported header or a checksum/length mismatch
    DstTooSmall,  // one-shot only: the output buffer filled before the stream ended
    Truncated,    // one-shot only: the input ended inside the stream
};

// An incremental decoder: feed input, drain output. No allocation; the object carries the
// library's state record and the history window (about 40 KiB).
class Inflater {
  public:
    // contiguous_output: the caller promises that every earlier byte of the stream still lies
    // right before the output pointer of each call (one growing buffer), so matches are copied
    // from it and no window is kept.
    explicit Inflater(Format format, bool contiguous_output = false);
    void reset();

    // Decodes from in/in_len into out/out_len, advancing both. Returns Ok when it stopped for
    // want of input or output room, End when the stream is complete (for gzip, another member
    // may follow in later input), BadData when the stream is malformed (final: reset() to
    // decode another stream).
    InflateResult run(const uint8_t*& in, size_t& in_len, uint8_t*& out, size_t& out_len);

    // Total bytes produced since reset().
    [[nodiscard]] uint64_t total_out() const { return total_out_; }
    // Bits taken from the input but not yet used (whole bytes of them follow the stream's end).
    [[nodiscard]] uint32_t held_bits() const { return bc_; }

  private:
    enum class Step : uint8_t {
        Header,
        BlockHeader,
        StoredLen,
        Stored,
        DynCounts,
        DynCodeLens,
        DynLens,
        Body,
        Trailer,
        End,
        Error,
    };
    struct Call;

    bool header(Call& c);
    bool gzip_header(Call& c);
    bool block_header(Call& c);
    bool dyn_lens(Call& c);
    bool body(Call& c);
    bool trailer(Call& c);
    bool next_byte(Call& c, uint8_t& b);
    void start_member(Call& c);
    void checksum(const uint8_t* p, size_t n);
    void keep_history(Call& c);

    Format format_;
    bool contiguous_;
    Step step_ = Step::Header;
    bool final_ = false;
    bool member_started_ = false;
    uint64_t bb_ = 0;  // bits not yet used, next bit in bit 0
    uint32_t bc_ = 0;
    uint32_t mode_ = 0;
    uint32_t check_ = 0;      // running Adler-32 or CRC-32
    uint64_t member_out_ = 0;  // bytes of the current member
    uint64_t total_out_ = 0;
    // header and dynamic-header parsing
    uint32_t hdr_pos_ = 0, hdr_flags_ = 0, hdr_skip_ = 0, hdr_crc_ = 0;
    uint32_t stored_left_ = 0;
    uint32_t n_lit_ = 0, n_dist_ = 0, n_clen_ = 0, n_have_ = 0;
    uint8_t clens_[19];
    uint16_t clen_table_[128];  // by 7 reversed bits: symbol << 8 | repeat bits << 4 | code length
    uint16_t lens_[288 + 32];
    // history window (not used with contiguous output)
    uint32_t win_have_ = 0, win_next_ = 0;
    zemInflateState state_;
    uint8_t window_[32768];
};

// One-shot decoding of a whole stream into out (out_cap bytes); *out_len receives the bytes
// produced (also on failure), *in_used, if not null, the input bytes the stream took.
InflateResult inflate_buffer(Format format, const uint8_t* in, size_t in_len, uint8_t* out, size_t out_cap,
                             size_t* out_len, size_t* in_used = nullptr);

}  // namespace zem::stream
