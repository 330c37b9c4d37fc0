// zemdc: compress, decompress and test .gz, .zlib, .lz4, .bz2 and .lzo files with the habits of
// gzip, bzip2, lz4 and lzop, on the containers of zemstream.h.
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "files.h"
#include "pump.h"
#include "zemstream.h"

using namespace zemdc_cli;

namespace {

// gzip's exit codes: an error outranks a warning.
constexpr int kExitOk = 0, kExitError = 1, kExitWarning = 2;
// Below this a progress line would only flicker.
constexpr off_t kProgressMinBytes = 16 << 20;

struct Options {
    bool decompress = false, test = false, to_stdout = false, keep = false, force = false;
    bool verbose = false, quiet = false;
    int32_t level = 0;   // 0: the container's default
    int32_t format = 0;  // forced by -F; 0: gzip when compressing, the input's own when decoding
};

int g_exit = kExitOk;

void say(int level, const char* name, const char* fmt, ...) {
    if (level == kExitError) g_exit = kExitError;
    if (level == kExitWarning && g_exit == kExitOk) g_exit = kExitWarning;
    fprintf(stderr, "zemdc: %s%s", name ? name : "", name ? ": " : "");
    va_list ap;
    va_start(ap, fmt);
    vfprintf(stderr, fmt, ap);
    va_end(ap);
    fputc('\n', stderr);
}

struct NameEntry {
    const char* name;
    int32_t container;
};
constexpr NameEntry kFormatNames[] = {
    {"gz", zemContainerGzip},   {"gzip", zemContainerGzip}, {"zlib", zemContainerZlib}, {"zz", zemContainerZlib},
    {"deflate", zemContainerDeflate}, {"raw", zemContainerDeflate}, {"lz4", zemContainerLZ4},
    {"bz2", zemContainerBZ2},   {"bzip2", zemContainerBZ2}, {"lzo", zemContainerLZO},  {"lzop", zemContainerLZO},
};

struct SuffixEntry {
    const char* suffix;
    const char* replacement;
    int32_t container;
};
constexpr SuffixEntry kSuffixes[] = {
    {".gz", "", zemContainerGzip},    {".tgz", ".tar", zemContainerGzip},  {".zlib", "", zemContainerZlib},
    {".zz", "", zemContainerZlib},    {".deflate", "", zemContainerDeflate}, {".lz4", "", zemContainerLZ4},
    {".bz2", "", zemContainerBZ2},    {".tbz2", ".tar", zemContainerBZ2},  {".tbz", ".tar", zemContainerBZ2},
    {".lzo", "", zemContainerLZO},    {".tzo", ".tar", zemContainerLZO},
};

const SuffixEntry* find_suffix(const std::string& name) {
    for (const SuffixEntry& s : kSuffixes) {
        size_t n = strlen(s.suffix);
        if (name.size() > n && name.compare(name.size() - n, n, s.suffix) == 0 && name[name.size() - n - 1] != '/')
            return &s;
    }
    return nullptr;
}

void usage(FILE* f) {
    fputs("usage: zemdc [-cdfhkqtvV19] [-F FORMAT] [FILE]...\n"
          "Compress or decompress FILEs (standard input to standard output without FILEs or with -).\n"
          "  -d, --decompress  decompress          -t, --test     test compressed files\n"
          "  -c, --stdout      write to stdout     -k, --keep     keep the input files\n"
          "  -f, --force       overwrite, and write compressed data to a terminal\n"
          "  -1 .. -9          fastest .. smallest (--fast, --best)\n"
          "  -F, --format=F    gz, zlib, deflate, lz4, bz2 or lzo (compressing: default gz;\n"
          "                    decompressing: told from the data)\n"
          "  -v, --verbose     -q, --quiet         -h, --help     -V, --version\n",
          f);
}

// The message for a failed run: the stream's status in words, with the container's reason.
std::string reason(const PumpResult& r, int32_t direction) {
    if (r.read_errno) return std::string("read error: ") + strerror(r.read_errno);
    if (r.write_errno) return std::string("write error: ") + strerror(r.write_errno);
    if (r.status == zemStreamStatusUnsupported && direction == zemStreamEncode)
        return "this build cannot write that format";
    if (r.status == zemStreamStatusUnsupported) return "this build cannot read that format";
    if (r.status == zemStreamStatusTruncated) return "unexpected end of file";
    std::string msg = r.status == zemStreamStatusChecksum ? "corrupt input" : zemStreamStatusString(r.status);
    if (!r.detail.empty()) return msg + " (" + r.detail + ")";
    return r.status == zemStreamStatusChecksum ? msg + " (checksum mismatch)" : msg;
}

// Processes one input; `name` is "-" for standard input.
void process(const Options& o, const std::string& name) {
    const bool from_stdin = name == "-";
    const char* shown = from_stdin ? "stdin" : name.c_str();
    const int32_t direction = o.decompress || o.test ? zemStreamDecode : zemStreamEncode;
    struct stat meta {};
    int in_fd = STDIN_FILENO;
    if (!from_stdin) {
        if (stat(name.c_str(), &meta) != 0) return say(kExitError, shown, "%s", strerror(errno));
        if (S_ISDIR(meta.st_mode)) return say(kExitWarning, shown, "is a directory -- ignored");
        if (!S_ISREG(meta.st_mode) && !o.to_stdout && !o.test)
            return say(kExitWarning, shown, "not a regular file -- ignored");
    }

    // Which container, and where the result goes.
    int32_t container = o.format;
    std::string target;
    const SuffixEntry* suffix = from_stdin ? nullptr : find_suffix(name);
    if (direction == zemStreamEncode) {
        if (!container) container = zemContainerGzip;
        if (suffix && suffix->container == container && !o.to_stdout)
            return say(kExitWarning, shown, "already has %s suffix -- unchanged", suffix->suffix);
        target = name + zemStreamContainerSuffix(container);
        if (isatty(STDOUT_FILENO) && (from_stdin || o.to_stdout) && !o.force)
            return say(kExitError, nullptr, "compressed data not written to a terminal (use -f to force)");
    } else {
        // Raw DEFLATE has no signature to be told by.
        if (!container && suffix && suffix->container == zemContainerDeflate) container = zemContainerDeflate;
        if (from_stdin && isatty(STDIN_FILENO) && !o.force)
            return say(kExitError, nullptr, "compressed data not read from a terminal (use -f to force)");
        if (!from_stdin && !o.to_stdout && !o.test) {
            if (!suffix) return say(kExitWarning, shown, "unknown suffix -- ignored");
            target = name.substr(0, name.size() - strlen(suffix->suffix)) + suffix->replacement;
        }
    }

    const bool to_file = !from_stdin && !o.to_stdout && !o.test;
    struct stat existing;
    if (to_file && !o.force && lstat(target.c_str(), &existing) == 0)
        return say(kExitWarning, target.c_str(), "already exists; not overwritten");
    if (!from_stdin && (in_fd = open(name.c_str(), O_RDONLY)) < 0) return say(kExitError, shown, "%s", strerror(errno));

    OutputFile out;
    if (to_file && !out.create(target)) {
        say(kExitError, target.c_str(), "%s", strerror(errno));
        close(in_fd);
        return;
    }
    int out_fd = o.test ? -1 : to_file ? out.fd() : STDOUT_FILENO;
    Progress progress;
    progress.enabled = !o.quiet && isatty(STDERR_FILENO) && out_fd != STDOUT_FILENO && !from_stdin &&
                       S_ISREG(meta.st_mode) && meta.st_size >= kProgressMinBytes;
    progress.total = uint64_t(meta.st_size);
    progress.label = shown;
    PumpResult r = pump(in_fd, out_fd, container, direction, o.level, progress);
    if (!from_stdin) close(in_fd);

    if (r.status != zemStatusOk || r.read_errno || r.write_errno) {
        out.discard();
        return say(kExitError, r.write_errno && to_file ? target.c_str() : shown, "%s", reason(r, direction).c_str());
    }
    if (to_file && !out.commit(meta, o.force)) {
        if (errno == EEXIST) return say(kExitWarning, target.c_str(), "already exists; not overwritten");
        return say(kExitError, target.c_str(), "%s", strerror(errno));
    }
    if (o.verbose && !o.quiet) {
        uint64_t big = direction == zemStreamEncode ? r.in_bytes : r.out_bytes;
        uint64_t small = direction == zemStreamEncode ? r.out_bytes : r.in_bytes;
        double saved = big ? 100.0 * (double(big) - double(small)) / double(big) : 0.0;
        if (o.test)
            fprintf(stderr, "%s:\t OK\n", shown);
        else if (to_file)
            fprintf(stderr, "%s:\t%5.1f%% -- %s %s\n", shown, saved, o.keep ? "created" : "replaced with", target.c_str());
        else
            fprintf(stderr, "%s:\t%5.1f%%\n", shown, saved);
    }
    if (to_file && !o.keep && unlink(name.c_str()) != 0) say(kExitWarning, shown, "%s", strerror(errno));
}

bool parse_format(const char* s, Options& o) {
    for (const NameEntry& e : kFormatNames)
        if (strcmp(s, e.name) == 0) {
            o.format = e.container;
            return true;
        }
    say(kExitError, nullptr, "unknown format '%s' (gz, zlib, deflate, lz4, bz2, lzo)", s);
    return false;
}

void version() {
    const zemLibraryVersion* v = zemdcGetLibVersion();
    printf("zemdc %s\nlibrary: %s %s\n", v->Version, v->Name, v->BuildDate);
}

}  // namespace

int main(int argc, char** argv) {
    Options o;
    std::vector<std::string> files;
    bool options_done = false;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (options_done || a == "-" || a[0] != '-') {
            files.push_back(a);
        } else if (a == "--") {
            options_done = true;
        } else if (a.compare(0, 2, "--") == 0) {
            if (a == "--decompress" || a == "--uncompress") o.decompress = true;
            else if (a == "--compress") o.decompress = false;
            else if (a == "--test") o.test = true;
            else if (a == "--stdout" || a == "--to-stdout") o.to_stdout = true;
            else if (a == "--keep") o.keep = true;
            else if (a == "--force") o.force = true;
            else if (a == "--verbose") o.verbose = true;
            else if (a == "--quiet") o.quiet = true;
            else if (a == "--fast") o.level = 1;
            else if (a == "--best") o.level = 9;
            else if (a.compare(0, 9, "--format=") == 0) {
                if (!parse_format(a.c_str() + 9, o)) return kExitError;
            } else if (a == "--help") {
                usage(stdout);
                return kExitOk;
            } else if (a == "--version") {
                version();
                return kExitOk;
            } else {
                say(kExitError, nullptr, "unknown option '%s'", a.c_str());
                usage(stderr);
                return kExitError;
            }
        } else {
            for (size_t j = 1; j < a.size(); ++j) {
                char c = a[j];
                if (c >= '1' && c <= '9') o.level = c - '0';
                else if (c == 'd') o.decompress = true;
                else if (c == 'z') o.decompress = false;
                else if (c == 't') o.test = true;
                else if (c == 'c') o.to_stdout = true;
                else if (c == 'k') o.keep = true;
                else if (c == 'f') o.force = true;
                else if (c == 'v') o.verbose = true;
                else if (c == 'q') o.quiet = true;
                else if (c == 'h') {
                    usage(stdout);
                    return kExitOk;
                } else if (c == 'V') {
                    version();
                    return kExitOk;
                } else if (c == 'F') {
                    // The format is the rest of this word or the next word.
                    const char* f = j + 1 < a.size() ? argv[i] + j + 1 : (i + 1 < argc ? argv[++i] : nullptr);
                    if (!f) {
                        say(kExitError, nullptr, "-F needs a format");
                        return kExitError;
                    }
                    if (!parse_format(f, o)) return kExitError;
                    break;
                } else {
                    say(kExitError, nullptr, "unknown option '-%c'", c);
                    usage(stderr);
                    return kExitError;
                }
            }
        }
    }
    install_cleanup_handlers();
    if (files.empty()) files.push_back("-");
    for (const std::string& f : files) process(o, f);
    return g_exit;
}
