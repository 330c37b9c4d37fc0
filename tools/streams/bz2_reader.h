// Decompression of .bz2 files (one or several streams one after another) on the library's
// block-sorting stages: the reader parses the stream and block headers and the in-use bitmap,
// checks the block and stream CRCs, and keeps the block buffers; the library decodes the
// Huffman context and symbols, the block (zero runs, move-to-front, inverse transform) and the
// run-length coding.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <functional>
#include <vector>

#include "zemdc.h"

namespace zem::stream {

enum class Bz2Result {
    Ok,           // progress; call again with more input or more output room
    End,          // a stream ended and its CRC checked out; another may follow in later input
    BadData,      // malformed stream or a CRC mismatch (final: reset() to decode another file)
    Unsupported,  // a randomised block, which the format's old writers made and no current one does
    DstTooSmall,  // one-shot only: the output buffer filled before the last stream ended
    Truncated,    // one-shot only: the input ended inside a stream
};

// An incremental decoder: feed input, drain output. It allocates its block buffers (about
// 6.5 MiB for the largest block size) when the first stream header names the block size.
class Bz2Reader {
  public:
    Bz2Reader();
    void reset();

    // Decodes from in/in_len into out/out_len, advancing both. Returns Ok when it stopped for
    // want of input or output room, End at the end of each stream, BadData or Unsupported when
    // the stream cannot be decoded (final).
    Bz2Result run(const uint8_t*& in, size_t& in_len, uint8_t*& out, size_t& out_len);

    // Total bytes produced since reset().
    [[nodiscard]] uint64_t total_out() const { return total_out_; }

    // What one block hands to the block decoder; an observer set below sees each block's before
    // it is decoded (benchmarks and fuzz seeds time and replay the block decoder with these).
    struct BlockInput {
        const uint16_t* syms;
        uint32_t n_syms, capacity, orig_ptr, dict_size;
        const uint8_t* in_use;
    };
    void set_block_observer(std::function<void(const BlockInput&)> f) { observer_ = std::move(f); }

  private:
    enum class Step : uint8_t {
        StreamMagic,
        BlockMagic,
        BlockCrc,
        Randomised,
        OrigPtr,
        MapGroups,
        MapBits,
        Context,
        Symbols,
        Output,
        StreamCrc,
        End,
        Error,
    };
    struct Call;

    bool bits(Call& c, uint32_t n, uint32_t& v);
    Bz2Result block_start(Call& c);
    Bz2Result fail(Step why);
    bool decode_block();
    bool output(Call& c);

    Step step_ = Step::StreamMagic;
    uint64_t code_ = 0;  // bits_ bits not yet used, right-aligned, the oldest the most significant
    uint32_t bits_ = 0;
    uint32_t part_ = 0;  // a field read in two halves, or the header byte count
    uint32_t level_ = 0, block_cap_ = 0;
    uint32_t want_crc_ = 0, crc_ = 0, stream_crc_ = 0, combined_crc_ = 0;
    uint32_t orig_ptr_ = 0, groups_ = 0, group_ = 0, dict_size_ = 0;
    uint8_t in_use_[256];
    uint32_t n_syms_ = 0, block_len_ = 0, block_pos_ = 0;
    uint64_t total_out_ = 0;
    std::vector<uint16_t> syms_;
    std::vector<uint8_t> block_, work_;
    std::vector<uint64_t> huff_;  // 8-byte units keep the state aligned
    uint8_t rle_[264];
    std::function<void(const BlockInput&)> observer_;
};

// One-shot decoding of a whole .bz2 file (all its streams) into out (out_cap bytes); *out_len
// receives the bytes produced (also on failure), *in_used, if not null, the input bytes the
// streams took. Bytes after the last stream that do not start another are left unused.
Bz2Result bz2_decompress(const uint8_t* in, size_t in_len, uint8_t* out, size_t out_cap, size_t* out_len,
                         size_t* in_used = nullptr);

}  // namespace zem::stream
