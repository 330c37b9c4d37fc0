// The join of segment streams into one LZO1X stream.
//
// A segment's stream starts with its leading literals (nothing before them to match) and ends
// with its trailing literals and the end marker. Where two segments meet, the literal runs of
// both sides become one run: the first side's end marker goes, its trailing run header (or the
// count in its last match's low bits) is rewritten for the combined count, and the second side
// goes on after its own leading run header. No match reaches across a segment start, so every
// match of either side still reaches the same bytes. The next instruction of the second side
// is a long match (our encoders write no 2- or 3-byte short match), which reads the same
// whatever literals come before it.
#include <string.h>

#include "lzo_file.h"

namespace zem::stream {

namespace {

constexpr size_t kNone = ~size_t(0);

// What the join needs of one stream: its leading literals, and the trailing literal section
// with the match before it.
struct Shape {
    size_t lead_start = 0, lead_n = 0;  // leading literal bytes
    size_t after_lead = 0;              // first instruction after them
    bool has_match = false;
    size_t low = kNone;                 // byte with the last match's literal count
    size_t tail_hdr = 0, tail_start = 0, tail_n = 0;
    size_t marker = 0;                  // where the end marker starts
};

bool read_ext(const uint8_t* s, size_t n, size_t& i, size_t base, size_t& v) {
    v = base;
    while (i < n && s[i] == 0) {
        v += 255;
        ++i;
    }
    if (i >= n) return false;
    v += s[i++];
    return true;
}

// Walks the instructions without decoding; false for anything malformed.
bool shape(const std::vector<uint8_t>& stream, Shape& sh) {
    const uint8_t* s = stream.data();
    const size_t n = stream.size();
    size_t i = 0, state = 0, len;
    bool leading = true;
    auto literals = [&](size_t hdr, size_t count) {
        if (i + count > n) return false;
        if (leading) {
            sh.lead_start = i;
            sh.lead_n = count;
            sh.after_lead = i + count;
        }
        sh.tail_hdr = hdr;
        sh.tail_start = i;
        sh.tail_n = count;
        i += count;
        return true;
    };
    if (n == 0) return false;
    if (s[0] > 17) {
        ++i;
        len = size_t(s[0]) - 17;
        if (!literals(0, len)) return false;
        state = len < 4 ? len : 4;
    }
    for (;;) {
        if (i >= n) return false;
        const size_t at = i;
        const uint8_t t = s[i++];
        if (t < 16) {
            if (state != 0) {
                if (leading && sh.lead_n > 0) return false;  // a short match right after the leading run
                if (i >= n) return false;
                ++i;
            } else {
                len = t;
                if (len == 0 && !read_ext(s, n, i, 15, len)) return false;
                if (!literals(at, len + 3)) return false;
                state = 4;
                continue;
            }
        } else if (t >= 64) {
            if (++i > n) return false;
        } else {
            len = t & (t >= 32 ? 31 : 7);
            if (len == 0 && !read_ext(s, n, i, 0, len)) return false;
            if (i + 2 > n) return false;
            const size_t d = (size_t(s[i]) | size_t(s[i + 1]) << 8) >> 2;
            i += 2;
            if (t < 32 && (t & 8) == 0 && d == 0) {
                sh.marker = at;
                if (leading) sh.after_lead = at;
                return true;
            }
        }
        // A match: its literal count sits in its second-to-last byte.
        if (leading && sh.lead_n == 0) sh.after_lead = at;
        leading = false;
        sh.has_match = true;
        sh.low = i - 2;
        state = s[i - 2] & 3;
        sh.tail_hdr = i;
        sh.tail_start = i;
        sh.tail_n = 0;
        if (state != 0 && !literals(i, state)) return false;
    }
}

void put_ext(std::vector<uint8_t>& out, size_t v) {
    while (v > 255) {
        out.push_back(0);
        v -= 255;
    }
    out.push_back(uint8_t(v));
}

// The encoder's rule for a run header of n >= 1 literals.
void put_run_header(std::vector<uint8_t>& out, size_t n, size_t low) {
    if (low != kNone && n <= 3)
        out[low] |= uint8_t(n);
    else if (low == kNone && out.empty() && n <= 238)
        out.push_back(uint8_t(17 + n));
    else if (n <= 18)
        out.push_back(uint8_t(n - 3));
    else {
        out.push_back(0);
        put_ext(out, n - 18);
    }
}

}  // namespace

bool lzo_join_segments(const std::vector<std::vector<uint8_t>>& streams, std::vector<uint8_t>& out) {
    out.clear();
    // The joined stream so far, without its end marker, and the shape of its tail.
    size_t low = kNone, tail_hdr = 0, tail_start = 0, tail_n = 0;
    std::vector<uint8_t> lits;
    for (const auto& st : streams) {
        Shape sh;
        if (!shape(st, sh)) return false;
        // The combined run: our trailing literals, then the segment's leading ones.
        lits.assign(out.begin() + ptrdiff_t(tail_start), out.begin() + ptrdiff_t(tail_start + tail_n));
        lits.insert(lits.end(), st.begin() + ptrdiff_t(sh.lead_start),
                    st.begin() + ptrdiff_t(sh.lead_start + sh.lead_n));
        out.resize(tail_hdr);
        if (low != kNone) out[low] &= 0xFC;
        const size_t run_hdr = out.size();
        if (!lits.empty()) put_run_header(out, lits.size(), low);
        const size_t run_start = out.size();
        out.insert(out.end(), lits.begin(), lits.end());
        if (sh.has_match) {
            const size_t base = out.size() - sh.after_lead;
            out.insert(out.end(), st.begin() + ptrdiff_t(sh.after_lead), st.begin() + ptrdiff_t(sh.marker));
            low = sh.low + base;
            tail_hdr = sh.tail_hdr + base;
            tail_start = sh.tail_start + base;
            tail_n = sh.tail_n;
        } else {
            // Literals only: the combined run stays the tail.
            tail_hdr = lits.size() <= 3 && low != kNone ? run_start : run_hdr;
            tail_start = run_start;
            tail_n = lits.size();
        }
    }
    static const uint8_t kEnd[3] = {0x11, 0, 0};
    out.insert(out.end(), kEnd, kEnd + 3);
    return true;
}

}  // namespace zem::stream
