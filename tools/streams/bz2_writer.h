// The .bz2 writer on the library's block-sorting stages: the stream layer cuts the run-length
// coded input into blocks, writes the stream, block and end-of-stream headers, the in-use bitmap
// and both CRCs; the library sorts, recodes and entropy-codes each block.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

#include "zemdc.h"

namespace zem::stream {

// An incremental writer: feed input in any pieces, then finish. The output is the same whatever
// pieces the input arrives in. Levels 1..9 give blocks of 100k..900k bytes (after the first
// run-length stage), as bzip2's.
class Bz2Writer {
  public:
    explicit Bz2Writer(int level = 9);

    // Appends to out whatever the input completes (whole blocks).
    void write(const uint8_t* in, size_t len, std::vector<uint8_t>& out);
    // Writes the last block and the end of the stream; the writer is then ready for a new stream.
    void finish(std::vector<uint8_t>& out);

  private:
    void start_stream(std::vector<uint8_t>& out);
    void close_block(std::vector<uint8_t>& out);
    void put_bits(std::vector<uint8_t>& out, uint32_t v, int n);

    int level_;
    int32_t limit_;      // run-length coded bytes per block
    bool started_ = false;
    uint32_t stream_crc_ = 0, block_crc_ = 0;
    uint32_t code_ = 0;  // pending bits, right-aligned
    int32_t code_bits_ = 0;
    std::vector<uint8_t> rle_state_, block_, sorted_, bwt_buf_, huff_state_, mtf_state_;
    std::vector<uint16_t> symbols_;
    int32_t used_ = 0;
};

// One-shot compression of a whole input into a .bz2 stream.
std::vector<uint8_t> bz2_compress(const uint8_t* in, size_t len, int level = 9);

}  // namespace zem::stream
