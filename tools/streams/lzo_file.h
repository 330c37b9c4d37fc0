// The .lzo file format of the lzop tool, on the library's LZO1X codec, and the join of the
// segments of zemLZOSegmented compressed by separate calls.
//
// A file: the 9-byte magic, a header (version, method, level, flags, mode, time, name, header
// checksum; big-endian), then blocks of at most 256 KiB of input each (uncompressed size,
// compressed size, the checksums the flags ask for, the data, stored as it is when compression
// does not make it smaller), closed by a zero uncompressed size. We write lzop's version-0x1040
// header with an Adler-32 of each block's uncompressed data, method 1 (level 5) for zemLZOFast
// and method 3 (level 9) for the other methods; we read every header version lzop writes,
// Adler-32 and CRC-32 block checksums and the extra field, but not filtered files.
//
// Use:
//     std::vector<uint8_t> file;
//     zem::stream::lzo_file_compress(data, n, file);                  // one shot
//     std::vector<uint8_t> back;
//     if (zem::stream::lzo_file_decompress(file.data(), file.size(), back) != LzoResult::End) ...
// or incrementally, LzoWriter::write(...) any number of times then finish(), and
// LzoReader::feed(...) with pieces of a file until it returns End.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "zemdc.h"

namespace zem::stream {

struct LzoFileOptions {
    zemLZOMethod method = zemLZOFast;
    uint32_t block_size = 256 * 1024;  // input bytes per block (at most 64 MiB)
    std::string name;                  // the stored file name (at most 255 bytes)
    uint32_t mode = 0100644;           // the stored file mode
    uint64_t mtime = 0;                // the stored modification time, seconds
};

enum class LzoResult {
    Ok,         // progress: feed more input
    End,        // the file ended (its end block was read) and every checksum matched
    BadData,    // not a .lzo file, an unsupported one, a malformed block or a checksum mismatch
    Truncated,  // one-shot only: the input ended inside the file
};

// Incremental writer: the header goes out with the first write (or finish), a block whenever
// block_size bytes of input are pending.
class LzoWriter {
  public:
    explicit LzoWriter(const LzoFileOptions& options = {});
    // Appends to out. Returns false only when options are unusable (method, block size, name).
    bool write(const uint8_t* in, size_t n, std::vector<uint8_t>& out);
    bool finish(std::vector<uint8_t>& out);

  private:
    bool header(std::vector<uint8_t>& out);
    void block(const uint8_t* in, size_t n, std::vector<uint8_t>& out);
    LzoFileOptions opt_;
    bool started_ = false;
    std::vector<uint8_t> pending_, state_, scratch_;
};

// Incremental reader: keeps what it has not used yet and appends decoded bytes to out.
class LzoReader {
  public:
    LzoResult feed(const uint8_t* in, size_t n, std::vector<uint8_t>& out);
    // Input bytes after the end block (another file may follow) are left in rest().
    [[nodiscard]] const std::vector<uint8_t>& rest() const { return buf_; }
    [[nodiscard]] const std::string& name() const { return name_; }

  private:
    LzoResult header();
    LzoResult block(std::vector<uint8_t>& out);
    std::vector<uint8_t> buf_;
    size_t pos_ = 0;
    bool have_header_ = false, ended_ = false, failed_ = false;
    uint32_t flags_ = 0;
    std::string name_;
};

bool lzo_file_compress(const uint8_t* in, size_t n, std::vector<uint8_t>& out, const LzoFileOptions& options = {});
LzoResult lzo_file_decompress(const uint8_t* in, size_t n, std::vector<uint8_t>& out);

// Joins the streams of consecutive segments of one input, each compressed by its own call of
// zemsEncodeLZO_8u with zemLZOSegmented (every segment ZEM_LZO_SEGMENT_SIZE bytes but the last),
// into one LZO1X stream, byte for byte the one a single call over the whole input gives.
// Returns false when a stream is not one of ours (malformed, or one whose first match after its
// leading literals is a 2- or 3-byte short match, which no encoder of ours writes).
bool lzo_join_segments(const std::vector<std::vector<uint8_t>>& streams, std::vector<uint8_t>& out);

}  // namespace zem::stream
