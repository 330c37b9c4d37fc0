// Compression into raw DEFLATE, zlib and gzip streams on the library's deflate primitives: the
// stream layer keeps the window buffer, the hash tables and the records, cuts blocks, chooses
// dynamic, fixed or stored coding per block and writes headers and trailers; the library parses
// (the match finders) and turns records into bits.
//
// Levels: 1 the single-pass path (a block per 64 KiB span: its symbols counted, codes built,
// then written in one pass), 2..3 the greedy parse, 4..6 the lazy
// parse, 7..9 the lazy parse over two positions with deeper searches. The output depends only
// on the input bytes, the level, the dictionary and where flushes were asked for, never on how
// the input was cut into pieces between flushes.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

#include "inflate_stream.h"  // Format
#include "zemdc.h"

namespace zem::stream {

enum class Flush {
    None,    // more input follows; output may lag behind the input
    Sync,    // everything so far is output, then an empty stored block (the stream stays open)
    Full,    // as Sync, and later data refers to nothing before this point
    Finish,  // everything is output and the stream is closed (final block, trailer)
};

struct BlockCodes;

enum class DeflateResult {
    Ok,   // call again: with more input, or (when out_len reached 0) with more output room
    End,  // Finish is complete: the whole stream has been handed out
};

// An incremental compressor: feed input, drain output. Allocates about 1 MiB at construction
// (window buffer, tables, records); nothing afterwards.
class Deflater {
  public:
    // level 1..9 (values outside are clamped).
    Deflater(Format format, int level);
    void reset();

    // A preset dictionary, before the first input of a raw or zlib stream (its last 32 KiB are
    // used; a zlib header names its Adler-32). Returns false for gzip or after input.
    bool set_dictionary(const uint8_t* dict, size_t n);

    // Takes input from in/in_len and writes output to out/out_len, advancing both. With
    // Flush::None it returns once all input is taken (or out filled). With another flush it
    // returns Ok with out_len 0 when output room ran out (call again with the same flush and
    // more room), and otherwise once the flush is complete: Ok for Sync and Full (in_len is
    // then 0), End for Finish. After End only reset() starts anew.
    DeflateResult run(const uint8_t*& in, size_t& in_len, uint8_t*& out, size_t& out_len, Flush flush);

    [[nodiscard]] uint64_t total_in() const { return total_in_; }
    [[nodiscard]] uint64_t total_out() const { return total_out_; }

  private:
    enum class Step : uint8_t { Header, Body, Done };

    void take_input(const uint8_t*& in, size_t& in_len);
    void slide();
    void parse(bool flushing);
    void find(uint32_t len, int32_t flush);
    void checkpoint(uint32_t call_start, uint32_t rec_start);
    void emit_block(uint32_t n_rec, uint32_t in_end, bool final);
    void fastest_block(uint32_t len, int32_t flush);
    const BlockCodes* open_block(const BlockCodes& bc, bool final);
    void took_bits(size_t end, uint16_t code, uint32_t n_bits);
    void emit_stored(const uint8_t* p, uint32_t n, bool final);
    void put(uint64_t v, uint32_t n);
    void align();
    void do_flush(Flush flush);
    void write_header();

    Format format_;
    int level_;
    Step step_ = Step::Header;
    bool flushed_ = false;  // nothing taken since the last completed flush
    Flush last_flush_ = Flush::None;
    uint32_t check_ = 0;
    uint32_t dict_id_ = 0;
    bool has_dict_ = false;
    uint64_t total_in_ = 0, total_out_ = 0;

    // window buffer: [win_lo_, parse_) history, [block_start_, parse_) the open block's input,
    // [parse_, have_) not yet parsed; buf_[0] is stream offset off_base_
    std::vector<uint8_t> buf_;
    uint32_t win_lo_ = 0, block_start_ = 0, parse_ = 0, have_ = 0;
    uint64_t off_base_ = 0;
    std::vector<uint32_t> head_, prev_;
    std::vector<uint8_t> work_;
    std::vector<uint32_t> stat_head_;  // level 1: the copy of head_ that GetStat parses with

    // records of the open block and their symbol counts; the last call's records are counted
    // apart until the block takes them
    std::vector<uint8_t> lit_len_;
    std::vector<uint16_t> dist_;
    uint32_t n_rec_ = 0;
    uint32_t blk_lit_[286], blk_dist_[30], call_lit_[286], call_dist_[30];

    // output not yet handed out, and the bits not yet whole bytes
    std::vector<uint8_t> pend_;
    size_t pend_pos_ = 0;
    uint64_t bits_ = 0;
    uint32_t n_bits_ = 0;
};

// The most bytes deflate_buffer writes for n input bytes (stored blocks and the largest wrapper).
size_t deflate_bound(size_t n);

// One-shot compression of in[0..n) into out (out_cap bytes, at least deflate_bound(n) always
// suffices). Returns false when out is too small; *out_len receives the stream's length.
bool deflate_buffer(Format format, int level, const uint8_t* in, size_t n, uint8_t* out, size_t out_cap,
                    size_t* out_len, const uint8_t* dict = nullptr, size_t dict_len = 0);

}  // namespace zem::stream
