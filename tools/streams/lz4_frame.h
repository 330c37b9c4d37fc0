// The LZ4 frame format on the library's block codecs: a writer (default or high-compression
// encoder, independent or linked blocks of 64 KiB..4 MiB, optional content size, block and
// content checksums) and a reader (every frame of that kind, skippable frames, any number of
// frames in a row). Readable by and able to read liblz4's frame API and the lz4 tool.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

#include "xxhash32.h"

namespace zem::stream {

struct Lz4FrameOptions {
    int level = 1;                    // 1..2: the default encoder; 3..9: high compression, deeper searches
    uint32_t block_size = 4u << 20;   // 64 KiB, 256 KiB, 1 MiB or 4 MiB
    bool linked = false;              // blocks may refer to the 64 KiB before them
    bool block_checksum = false;
    bool content_checksum = true;
    int64_t content_size = -1;        // written in the descriptor when >= 0; the input must match it
};

enum class Lz4FrameResult {
    Ok,           // progress; call again with more input or more output room
    End,          // a frame ended, every check passed and no input is left (another frame may follow)
    BadData,      // malformed frame: see reason()
    BadChecksum,  // a header, block or content checksum does not match
    Unsupported,  // a valid frame that needs something we do not offer (a dictionary)
};

class Lz4FrameWriter {
  public:
    // Options outside their ranges are brought to the nearest valid value (block_size to the
    // next size the format has).
    explicit Lz4FrameWriter(const Lz4FrameOptions& options);

    // Takes input into the current block and writes finished blocks to out; returns when the
    // input is used up or the output is full.
    void write(const uint8_t*& in, size_t& in_len, uint8_t*& out, size_t& out_len);
    // Ends the frame (last block, end mark, content checksum). Ok: call again with more room;
    // End: the frame is complete; BadData: the input did not match the declared content size.
    Lz4FrameResult finish(uint8_t*& out, size_t& out_len);
    // Worst-case frame size for n bytes of input with these options.
    [[nodiscard]] static uint64_t bound(const Lz4FrameOptions& options, uint64_t n);

  private:
    void start();
    void encode_block();
    size_t encode_fast(const uint8_t* src, uint32_t len, uint8_t* dst);
    size_t encode_hc(const uint8_t* src, uint32_t len, uint8_t* dst);
    void drain(uint8_t*& out, size_t& out_len);

    Lz4FrameOptions opt_;
    bool started_ = false, finished_ = false;
    uint32_t hist_ = 0;   // history bytes before the block in in_ (linked blocks)
    uint32_t fill_ = 0;   // bytes of the current block
    uint64_t total_ = 0;
    uint32_t hc_pos_ = 0;  // the high-compression tables' position of the next independent block
    std::vector<uint8_t> in_, pending_, table_, hc_hash_, hc_chain_;
    size_t pending_pos_ = 0, pending_len_ = 0;
    Xxh32 content_;
};

class Lz4FrameReader {
  public:
    Lz4FrameReader();
    void reset();

    // Decodes from in into out, advancing both; see Lz4FrameResult. After an error the reader
    // stays failed until reset().
    Lz4FrameResult run(const uint8_t*& in, size_t& in_len, uint8_t*& out, size_t& out_len);
    // True between frames (and before the first): input that ends here ends cleanly.
    [[nodiscard]] bool at_boundary() const { return step_ == Step::Magic && have_ == 0 && pending_len_ == 0; }
    [[nodiscard]] bool any_frame() const { return frames_ > 0; }
    [[nodiscard]] const char* reason() const { return reason_; }

  private:
    enum class Step : uint8_t { Magic, SkipSize, Skip, Descriptor, BlockSize, Block, ContentCheck, Failed };

    bool gather(const uint8_t*& in, size_t& in_len, size_t want);
    void descriptor();
    Lz4FrameResult block(const uint8_t* data);
    Lz4FrameResult fail(Lz4FrameResult r, const char* why);
    void drain(uint8_t*& out, size_t& out_len);

    Step step_ = Step::Magic;
    uint8_t flags_ = 0;
    uint32_t block_max_ = 0, block_len_ = 0, skip_left_ = 0, hist_ = 0, have_ = 0, frames_ = 0;
    uint32_t prev_end_ = 0;  // where the last block's output ends in dec_
    bool stored_ = false;
    uint64_t content_size_ = 0, decoded_ = 0;
    std::vector<uint8_t> hold_;   // header fields and blocks that arrived in pieces
    std::vector<uint8_t> dec_;    // [64 KiB history of linked blocks][the decoded block]
    size_t pending_pos_ = 0, pending_len_ = 0;
    Xxh32 content_;
    const char* reason_ = "";
};

}  // namespace zem::stream
