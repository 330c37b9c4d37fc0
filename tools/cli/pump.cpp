#include "pump.h"

#include <errno.h>
#include <stdio.h>
#include <time.h>
#include <unistd.h>

namespace zemdc_cli {
namespace {

// Large enough that the per-call cost of the layers vanishes, small enough to stay in L2.
constexpr size_t kBufferSize = 256 * 1024;
// A redraw at most this often, in nanoseconds: a terminal is slow and the eye no faster.
constexpr int64_t kRedrawNs = 200'000'000;

int64_t now_ns() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return int64_t(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
}

// Fills as much of buf as the input gives: short reads of pipes and terminals are not ends.
ssize_t read_full(int fd, uint8_t* buf, size_t n) {
    size_t got = 0;
    while (got < n) {
        ssize_t r = read(fd, buf + got, n - got);
        if (r < 0 && errno == EINTR) continue;
        if (r < 0) return -1;
        if (r == 0) break;
        got += size_t(r);
    }
    return ssize_t(got);
}

bool write_full(int fd, const uint8_t* buf, size_t n) {
    while (n) {
        ssize_t w = write(fd, buf, n);
        if (w < 0 && errno == EINTR) continue;
        if (w < 0) return false;
        buf += w;
        n -= size_t(w);
    }
    return true;
}

class ProgressLine {
  public:
    explicit ProgressLine(const Progress& p) : p_(p) {}
    ~ProgressLine() {
        if (drawn_) fprintf(stderr, "\r%*s\r", int(p_.label.size()) + 16, "");
    }
    void update(uint64_t done) {
        if (!p_.enabled || !p_.total) return;
        int64_t t = now_ns();
        if (t - last_ < kRedrawNs) return;
        last_ = t;
        drawn_ = true;
        fprintf(stderr, "\r%s: %3u%%", p_.label.c_str(), unsigned(done * 100 / p_.total));
        fflush(stderr);
    }

  private:
    const Progress& p_;
    int64_t last_ = now_ns();
    bool drawn_ = false;
};

}  // namespace

int32_t sniff_container(const uint8_t* p, size_t n) {
    if (n >= 2 && p[0] == 0x1f && p[1] == 0x8b) return zemContainerGzip;
    if (n >= 4 && p[1] == 0x22 && p[2] == 0x4d && p[3] == 0x18 && p[0] == 0x04) return zemContainerLZ4;
    if (n >= 4 && (p[0] & 0xf0) == 0x50 && p[1] == 0x2a && p[2] == 0x4d && p[3] == 0x18) return zemContainerLZ4;
    if (n >= 3 && p[0] == 'B' && p[1] == 'Z' && p[2] == 'h') return zemContainerBZ2;
    if (n >= 4 && p[0] == 0x89 && p[1] == 'L' && p[2] == 'Z' && p[3] == 'O') return zemContainerLZO;
    // zlib: deflate with a window of at most 32 KiB and the header check.
    if (n >= 2 && (p[0] & 0x0f) == 8 && (p[0] >> 4) <= 7 && (p[0] << 8 | p[1]) % 31 == 0) return zemContainerZlib;
    return 0;
}

PumpResult pump(int in_fd, int out_fd, int32_t container, int32_t direction, int32_t level, const Progress& progress) {
    PumpResult res;
    static uint8_t in_buf[kBufferSize], out_buf[kBufferSize];
    ProgressLine line(progress);
    zemStream* s = nullptr;
    bool eof = false;
    ssize_t got = read_full(in_fd, in_buf, kBufferSize);
    if (got < 0) {
        res.read_errno = errno;
        return res;
    }
    eof = size_t(got) < kBufferSize;
    if (!container) container = sniff_container(in_buf, size_t(got));
    if (!container) {
        res.status = got ? zemStreamStatusCorrupt : zemStreamStatusTruncated;
        res.detail = got ? "not in a known compressed format" : "";
        return res;
    }
    res.status = zemStreamCreate(container, direction, level, &s);
    if (res.status != zemStatusOk) return res;

    auto flush = [&](uint8_t* end) {
        size_t n = size_t(end - out_buf);
        res.out_bytes += n;
        if (out_fd >= 0 && n && !write_full(out_fd, out_buf, n)) res.write_errno = errno;
        return res.write_errno == 0;
    };
    for (;;) {
        const uint8_t* p = in_buf;
        size_t left = size_t(got);
        res.in_bytes += left;
        // Feed the whole buffer, draining the output whenever it fills.
        for (;;) {
            uint8_t* q = out_buf;
            size_t room = kBufferSize;
            zemStatus st = zemStreamFeed(s, &p, &left, &q, &room);
            if (st < 0) {
                res.status = st;
                res.detail = zemStreamErrorDetail(s);
                flush(q);
                zemStreamDestroy(s);
                return res;
            }
            if (!flush(q)) {
                zemStreamDestroy(s);
                return res;
            }
            if (!left && st == zemStatusOk) break;
        }
        line.update(res.in_bytes);
        if (eof) break;
        got = read_full(in_fd, in_buf, kBufferSize);
        if (got < 0) {
            res.read_errno = errno;
            zemStreamDestroy(s);
            return res;
        }
        eof = size_t(got) < kBufferSize;
        if (!got) break;
    }
    for (zemStatus st = zemStatusDstTooSmall; st == zemStatusDstTooSmall;) {
        uint8_t* q = out_buf;
        size_t room = kBufferSize;
        st = zemStreamFinish(s, &q, &room);
        if (!flush(q)) break;
        if (st < 0) {
            res.status = st;
            res.detail = zemStreamErrorDetail(s);
        }
    }
    zemStreamDestroy(s);
    return res;
}

}  // namespace zemdc_cli
