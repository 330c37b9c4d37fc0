// zemdc-bench: every family of ours beside the reference codec of the same format, on one
// corpus, in one run.
//
// A family adds itself with one file in this directory:
//
//     #include "bench.h"
//     static void run(const bench::Corpus& corpus) {
//         bench::Table t("LZ4 decompress", corpus.total_bytes());
//         ... prepare inputs, bench::require(round trip ok, "...") ...
//         t.ours("zemsDecodeLZ4_8u", [&] { for (auto& f : corpus.files) decode(f); }, ratio);
//         t.peer("LZ4_decompress_safe", [&] { ... }, ratio);
//     }   // the table prints itself when it goes out of scope
//     BENCH_FAMILY("lz4", 30, run);
//
// Every row of ours is printed with its speed as a multiple of each peer row of its table.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <functional>
#include <string>
#include <vector>

namespace bench {

struct File {
    std::string name;
    std::vector<uint8_t> data;
};

struct FloatField {
    int nx = 0, ny = 0, nz = 0;  // x fastest
    std::vector<float> values;
};

struct Corpus {
    std::vector<File> files;  // the embedded corpus, or the files of --corpus
    FloatField field;         // a smooth 3-D float field with noise, always present
    bool embedded = true;
    [[nodiscard]] uint64_t total_bytes() const;
};

struct Options {
    double min_seconds = 0.25;  // per measurement
    int min_runs = 3;
};
const Options& options();

enum class Kind { Ours, Peer, Limit };

// One comparison table. `bytes` is what one pass processes (the uncompressed size for codecs),
// the basis of MB/s.
class Table {
  public:
    Table(std::string title, uint64_t bytes);
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;
    ~Table();

    // ratio <= 0 prints no ratio column value.
    void ours(const std::string& name, const std::function<void()>& pass, double ratio = 0);
    void peer(const std::string& name, const std::function<void()>& pass, double ratio = 0);
    // A physical limit (a plain read of the data) that rows are measured against.
    void limit(const std::string& name, const std::function<void()>& pass);
    // A row whose pass processes a different number of bytes than the table's.
    void add(Kind kind, const std::string& name, uint64_t bytes, const std::function<void()>& pass, double ratio = 0);
    // Rows timed in alternating rounds, each keeping its best pass: a machine whose speed drifts
    // while the table runs then moves all of them alike, which one row after the other does not
    // (the .bz2 reader's multiple moved from 2.36x to 2.80x between runs that way).
    struct Entry {
        Kind kind;
        std::string name;
        std::function<void()> pass;
        double ratio = 0;
    };
    void in_turn(const std::vector<Entry>& entries);

  private:
    struct Row {
        Kind kind;
        std::string name;
        double mbps;
        double ratio;
    };
    std::string title_;
    uint64_t bytes_;
    std::vector<Row> rows_;
};

// Best seconds per call of pass over repeated runs.
double time_best(const std::function<void()>& pass);

// Stops the benchmark with a message when a round trip or a check fails: nothing is timed that
// is not correct.
void require(bool ok, const std::string& what);

// The physical limit of a read-only pass: the data read with 32-byte loads and its 64-bit words
// summed. Checksum rows are measured against it.
[[nodiscard]] uint64_t read_sum(const uint8_t* p, size_t n);
// A Table::limit row for reading every file of the corpus once.
void add_read_limit(Table& t, const Corpus& corpus);

// Keeps a value alive so that the compiler cannot drop the work that made it.
void keep(uint64_t v);

using FamilyFn = void (*)(const Corpus&);
struct Family {
    Family(const char* name, int order, FamilyFn fn);
};

}  // namespace bench

#define BENCH_FAMILY(name, order, fn) static ::bench::Family bench_family_registration_(name, order, fn)
