#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <immintrin.h>

#include <algorithm>
#include <fstream>
#include <iterator>

#include "bench.h"
#include "splitmix.h"
#include "zemdc.h"

namespace bench {

namespace {

struct Registered {
    const char* name;
    int order;
    FamilyFn fn;
};

std::vector<Registered>& registry() {
    static std::vector<Registered> r;
    return r;
}

Options g_options;
volatile uint64_t g_sink;

double now() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return double(ts.tv_sec) + 1e-9 * double(ts.tv_nsec);
}

using zt::Rng;

// Text-like: words drawn with a Zipf-like skew from a generated vocabulary, in sentences and
// paragraphs.
std::vector<uint8_t> make_text(size_t size, uint64_t seed) {
    Rng r{seed};
    std::vector<std::string> vocab;
    const char* syll[] = {"th", "e", "an", "re", "on", "at", "en", "nd", "ti", "es", "or", "te", "of", "ed",
                          "is", "it", "al", "ar", "st", "to", "nt", "ng", "se", "ha", "as", "ou", "io", "le"};
    for (int i = 0; i < 6000; ++i) {
        std::string w;
        int n = 1 + int(r.below(3)) + (i > 300 ? 1 : 0);
        for (int k = 0; k < n; ++k) w += syll[r.below(28)];
        vocab.push_back(w);
    }
    std::vector<uint8_t> out;
    out.reserve(size + 64);
    int in_sentence = 0;
    while (out.size() < size) {
        double u = r.unit();
        size_t idx = size_t(pow(u, 3.0) * double(vocab.size()));
        std::string w = vocab[std::min(idx, vocab.size() - 1)];
        if (in_sentence == 0 && !w.empty()) w[0] = char(w[0] - 32);
        out.insert(out.end(), w.begin(), w.end());
        ++in_sentence;
        if (in_sentence > 6 && r.below(10) == 0) {
            out.push_back('.');
            in_sentence = 0;
            if (r.below(8) == 0) out.push_back('\n');
        } else if (r.below(12) == 0) {
            out.push_back(',');
        }
        out.push_back(' ');
    }
    out.resize(size);
    return out;
}

// Record-like: fixed-layout lines of a table, as a database export.
std::vector<uint8_t> make_records(size_t size, uint64_t seed) {
    Rng r{seed};
    const char* cities[] = {"Berlin", "Lisboa", "Osaka", "Toronto", "Nairobi", "Quito", "Oslo", "Perth"};
    const char* status[] = {"shipped", "pending", "returned", "cancelled"};
    std::vector<uint8_t> out;
    out.reserve(size + 256);
    char line[256];
    uint64_t id = 100000;
    while (out.size() < size) {
        id += 1 + r.below(3);
        int n = snprintf(line, sizeof line, "%llu,%s,%04u-%02u-%02u,%s,%u.%02u,%u\n", (unsigned long long)id,
                         cities[r.below(8)], 2015 + r.below(10), 1 + r.below(12), 1 + r.below(28), status[r.below(4)],
                         r.below(5000), r.below(100), r.below(40));
        out.insert(out.end(), line, line + n);
    }
    out.resize(size);
    return out;
}

// Binary-like: structured little-endian records with small integers, pointers into a region,
// repeated instruction-like byte patterns and some incompressible stretches.
std::vector<uint8_t> make_binary(size_t size, uint64_t seed) {
    Rng r{seed};
    std::vector<uint8_t> out;
    out.reserve(size + 64);
    std::vector<std::vector<uint8_t>> snippets;
    for (int i = 0; i < 64; ++i) {
        std::vector<uint8_t> s(8 + r.below(40));
        for (auto& b : s) b = uint8_t(r.below(4) ? r.below(32) * 8 : r.next());
        snippets.push_back(s);
    }
    uint32_t base = 0x401000;
    while (out.size() < size) {
        switch (r.below(4)) {
            case 0: {
                auto& s = snippets[std::min<uint32_t>(r.below(64), r.below(64))];
                out.insert(out.end(), s.begin(), s.end());
                break;
            }
            case 1: {
                uint32_t v = base + r.below(1 << 16) * 4;
                for (int k = 0; k < 4; ++k) out.push_back(uint8_t(v >> (8 * k)));
                break;
            }
            case 2: {
                uint16_t v = uint16_t(r.below(300));
                out.push_back(uint8_t(v));
                out.push_back(uint8_t(v >> 8));
                break;
            }
            default: {
                int n = r.below(16) == 0 ? 64 : 4;
                for (int k = 0; k < n; ++k) out.push_back(uint8_t(r.next()));
            }
        }
    }
    out.resize(size);
    return out;
}

// A smooth 3-D field (a sum of a few waves) with a little noise, like simulation output.
FloatField make_field(int nx, int ny, int nz, uint64_t seed) {
    Rng r{seed};
    FloatField f;
    f.nx = nx;
    f.ny = ny;
    f.nz = nz;
    f.values.resize(size_t(nx) * ny * nz);
    size_t i = 0;
    for (int z = 0; z < nz; ++z)
        for (int y = 0; y < ny; ++y)
            for (int x = 0; x < nx; ++x) {
                double v = 100.0 * sin(0.031 * x + 0.2) * cos(0.017 * y) + 40.0 * sin(0.011 * (x + y + z)) +
                           10.0 * cos(0.05 * z) + 0.01 * (r.unit() - 0.5);
                f.values[i++] = float(v);
            }
    return f;
}

bool read_file(const char* path, File& f) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    f.data.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    const char* slash = strrchr(path, '/');
    f.name = slash ? slash + 1 : path;
    return true;
}

void print_mbps(double mbps) {
    if (mbps >= 10000)
        printf("%10.0f", mbps);
    else
        printf("%10.1f", mbps);
}

}  // namespace

uint64_t Corpus::total_bytes() const {
    uint64_t t = 0;
    for (auto& f : files) t += f.data.size();
    return t;
}

const Options& options() { return g_options; }

void keep(uint64_t v) { g_sink = g_sink + v; }

uint64_t read_sum(const uint8_t* p, size_t n) {
    __m256i acc0 = _mm256_setzero_si256(), acc1 = acc0;
    size_t i = 0;
    for (; i + 64 <= n; i += 64) {
        acc0 = _mm256_add_epi64(acc0, _mm256_loadu_si256((const __m256i*)(p + i)));
        acc1 = _mm256_add_epi64(acc1, _mm256_loadu_si256((const __m256i*)(p + i + 32)));
    }
    acc0 = _mm256_add_epi64(acc0, acc1);
    uint64_t lanes[4];
    _mm256_storeu_si256((__m256i*)lanes, acc0);
    uint64_t s = lanes[0] + lanes[1] + lanes[2] + lanes[3];
    for (; i < n; ++i) s += p[i];
    return s;
}

void add_read_limit(Table& t, const Corpus& corpus) {
    t.limit("AVX2 read (sum of words)", [&] {
        for (auto& f : corpus.files) keep(read_sum(f.data.data(), f.data.size()));
    });
}

void require(bool ok, const std::string& what) {
    if (ok) return;
    fprintf(stderr, "zemdc-bench: check failed: %s\n", what.c_str());
    exit(1);
}

// Best seconds per pass of each of `passes`, after a warm-up pass each (caches, page-ins), run in
// alternating rounds until each has had min_runs rounds and min_seconds (at most 1000 rounds).
static std::vector<double> best_in_rounds(const std::vector<const std::function<void()>*>& passes) {
    const size_t n = passes.size();
    std::vector<double> best(n, 1e30), spent(n, 0);
    for (const auto* pass : passes) (*pass)();
    for (int round = 1;; ++round) {
        for (size_t i = 0; i < n; ++i) {
            const double t0 = now();
            (*passes[i])();
            const double t = now() - t0;
            best[i] = std::min(best[i], t);
            spent[i] += t;
        }
        const double least = *std::min_element(spent.begin(), spent.end());
        if ((round >= g_options.min_runs && least >= g_options.min_seconds) || round >= 1000) break;
    }
    return best;
}

double time_best(const std::function<void()>& pass) { return best_in_rounds({&pass})[0]; }

Family::Family(const char* name, int order, FamilyFn fn) { registry().push_back({name, order, fn}); }

Table::Table(std::string title, uint64_t bytes) : title_(std::move(title)), bytes_(bytes) {}

void Table::add(Kind kind, const std::string& name, uint64_t bytes, const std::function<void()>& pass, double ratio) {
    double t = time_best(pass);
    rows_.push_back({kind, name, double(bytes) / t / 1e6, ratio});
}
void Table::in_turn(const std::vector<Entry>& entries) {
    std::vector<const std::function<void()>*> passes;
    for (const Entry& e : entries) passes.push_back(&e.pass);
    const std::vector<double> best = best_in_rounds(passes);
    for (size_t i = 0; i < entries.size(); ++i)
        rows_.push_back({entries[i].kind, entries[i].name, double(bytes_) / best[i] / 1e6, entries[i].ratio});
}
void Table::ours(const std::string& name, const std::function<void()>& pass, double ratio) {
    add(Kind::Ours, name, bytes_, pass, ratio);
}
void Table::peer(const std::string& name, const std::function<void()>& pass, double ratio) {
    add(Kind::Peer, name, bytes_, pass, ratio);
}
void Table::limit(const std::string& name, const std::function<void()>& pass) { add(Kind::Limit, name, bytes_, pass); }

Table::~Table() {
    std::vector<const Row*> refs;
    for (auto& r : rows_)
        if (r.kind != Kind::Ours) refs.push_back(&r);
    printf("\n%s (%.1f MB a pass)\n", title_.c_str(), double(bytes_) / 1e6);
    printf("  %-34s %10s %7s", "", "MB/s", "ratio");
    // Each multiple column is as wide as its peer's full name, so that peers differing only at
    // the end of their names (levels, accelerations) stay apart.
    for (auto* p : refs) printf("  x %s", p->name.c_str());
    printf("\n");
    for (auto& r : rows_) {
        const char* tag = r.kind == Kind::Ours ? "*" : r.kind == Kind::Limit ? "=" : " ";
        printf("%s %-34.34s ", tag, r.name.c_str());
        print_mbps(r.mbps);
        if (r.ratio > 0)
            printf(" %7.3f", r.ratio);
        else
            printf(" %7s", "-");
        if (r.kind == Kind::Ours)
            for (auto* p : refs) printf("  %*.2fx", (int)p->name.size() + 1, r.mbps / p->mbps);
        printf("\n");
    }
    fflush(stdout);
}

}  // namespace bench

static void usage() {
    printf(
        "usage: zemdc-bench [--corpus FILE...] [--family NAME[,NAME...]] [--min-time SECONDS] [--list]\n"
        "  With no --corpus, an embedded deterministic corpus (text-, record-, binary-like and a 3-D float\n"
        "  field) is built in memory. Rows marked * are ours, = is the physical limit (a plain read);\n"
        "  x columns give our speed as a multiple of each other row of the table.\n");
}

int main(int argc, char** argv) {
    using namespace bench;
    Corpus corpus;
    std::vector<std::string> families;
    bool list = false;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--corpus") {
            corpus.embedded = false;
            while (i + 1 < argc && argv[i + 1][0] != '-') {
                File f;
                if (!read_file(argv[++i], f)) {
                    fprintf(stderr, "zemdc-bench: cannot read %s\n", argv[i]);
                    return 2;
                }
                corpus.files.push_back(std::move(f));
            }
        } else if (a == "--family" && i + 1 < argc) {
            std::string s = argv[++i];
            size_t p = 0;
            while (p <= s.size()) {
                size_t q = s.find(',', p);
                if (q == std::string::npos) q = s.size();
                families.push_back(s.substr(p, q - p));
                p = q + 1;
            }
        } else if (a == "--min-time" && i + 1 < argc) {
            g_options.min_seconds = atof(argv[++i]);
        } else if (a == "--list") {
            list = true;
        } else {
            usage();
            return a == "--help" || a == "-h" ? 0 : 2;
        }
    }
    auto& reg = registry();
    std::stable_sort(reg.begin(), reg.end(), [](const Registered& x, const Registered& y) { return x.order < y.order; });
    if (list) {
        for (auto& r : reg) printf("%s\n", r.name);
        return 0;
    }
    if (corpus.embedded) {
        corpus.files.push_back({"text", make_text(8u << 20, 1)});
        corpus.files.push_back({"records", make_records(8u << 20, 2)});
        corpus.files.push_back({"binary", make_binary(8u << 20, 3)});
    }
    // 256 x 128 x 128 floats: 16 MiB, always available to the floating-point families.
    corpus.field = make_field(256, 128, 128, 4);
    if (corpus.embedded) {
        File f{"field.f32", {}};
        auto* p = (const uint8_t*)corpus.field.values.data();
        f.data.assign(p, p + corpus.field.values.size() * sizeof(float));
        corpus.files.push_back(std::move(f));
    }
    const zemLibraryVersion* v = zemdcGetLibVersion();
    printf("zemdc-bench: %s %s\ncorpus:", v->Name, v->Version);
    for (auto& f : corpus.files) printf(" %s (%.1f MB)", f.name.c_str(), double(f.data.size()) / 1e6);
    printf("; total %.1f MB\n", double(corpus.total_bytes()) / 1e6);
    for (auto& r : reg) {
        if (!families.empty() && std::find(families.begin(), families.end(), r.name) == families.end()) continue;
        r.fn(corpus);
    }
    return 0;
}
