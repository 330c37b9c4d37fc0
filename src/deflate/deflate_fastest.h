// The single-pass parse: one probe of the level-0 head table per position, each literal or
// match handed at once to a sink, which either writes it as Huffman bits (Fastest and the
// blocks of PrecompHeader) or counts its symbols (GetStat). One template serves all three, so
// the parse that GetStat counts is the parse that Fastest writes.
#pragma once

#include <immintrin.h>
#include <stddef.h>

#include "deflate/deflate_tables.h"

namespace zem::deflate::fastest {

// The table is keyed by the four bytes at a position, the length a match must have: keyed by
// three, as the level-0 upkeep is, a slot holds the newest position that shares three bytes,
// which often differs in the fourth while an older one would have matched. On the Silesia
// files the three-byte key gave 3.35 against zlib level 1's 3.45; this one gives 3.52, and the
// multiply costs less than the rolled hash's dependent shifts (6% faster).
ZEM_INLINE uint32_t hash4(const uint8_t* p, uint32_t shift) { return (load32(p) * 0x9E3779B1u) >> shift; }

// A match is taken from four equal bytes on. Taking three-byte matches as well (at distances up
// to 256, 2048 or 8192) made the Silesia files 0.1-0.5% larger and the parse 4-10% slower:
// greedily taken, they shadow the longer match that starts a byte later.
inline constexpr uint32_t kMinTaken = 4;
// After this many literals in a row without a match the parse probes every other position, and
// so on, as incompressible data costs the probe and gains nothing: the step grows by one for
// every 2^kSkipShift literals and falls back to one at the next match.
inline constexpr uint32_t kSkipShift = 5;
// Of a match's inner positions, the first two and the last two are entered, whatever its
// length: a later repeat often starts just after a match's start or runs on from its end. On
// the Silesia files this gave 3.50 at 295 MB/s where entering every inner position of matches
// up to 8 bytes gave 3.46 at 283: the loop's varying trip count mispredicted once a match and
// was half of all the writer's mispredicts. A fixed four is cheaper than any loop.
static_assert(kMinTaken >= 4, "the four entered positions lie inside the match");

// The worst case of one record in bits: a length code and its extra bits, a distance code and
// its extra bits.
inline constexpr uint32_t kMaxRecordBits = 15 + 5 + 15 + 13;
// The bit writer stores its whole 64-bit buffer and advances by the whole bytes it held, so a
// record (with the fewer than 8 bits pending before it) goes out in one store of 8 bytes: the
// room a record needs.
inline constexpr uint32_t kStoreSlack = 8;
inline constexpr uint32_t kRecordRoom = kStoreSlack;
static_assert(7 + kMaxRecordBits <= 64, "a record and the pending bits fit in the 64-bit buffer");

// The bit writer of the emitting sink: fewer than 8 bits pending between records.
struct BitWriter {
    uint64_t buf;
    uint32_t count;
    uint8_t* out;

    ZEM_INLINE void put(uint64_t v, uint32_t n) {
        buf |= v << count;
        count += n;
    }
    // Stores the whole bytes held: one unaligned 64-bit store, then the pointer moves past them.
    ZEM_INLINE void flush() {
        store64(out, buf);
        out += count >> 3;
        buf >>= count & ~7u;
        count &= 7;
    }
};


// Writes symbols with the caller's codes; refuses a record when fewer than kRecordRoom bytes
// remain, so nothing is ever stored past the capacity.
struct EmitSink {
    BitWriter w;
    uintptr_t room_end;  // the last address at which a record may start (0: none may)
    const zemDeflateHuffCode* lit;
    const zemDeflateHuffCode* dist;

    [[nodiscard]] ZEM_INLINE bool room() const { return reinterpret_cast<uintptr_t>(w.out) <= room_end; }
    ZEM_INLINE void literal(uint8_t b) {
        w.put(code_bits(lit[b]), code_len(lit[b]));
        w.flush();
    }
    ZEM_INLINE void match(uint32_t len, uint32_t d) {
        const uint32_t v = len - kMinMatch, c = kLengthSym.sym[v];
        const zemDeflateHuffCode& lc = lit[257 + c];
        w.put(code_bits(lc) | uint64_t(v + kMinMatch - kLengthBase[c]) << code_len(lc), code_len(lc) + kLengthExtra[c]);
        const uint32_t s = dist_symbol(d);
        const zemDeflateHuffCode& dc = dist[s];
        w.put(code_bits(dc) | uint64_t(_bzhi_u32(d - kDistBase[s], kDistExtra[s])) << code_len(dc),
              code_len(dc) + kDistExtra[s]);
        w.flush();
    }
};

// Counts the symbols the same parse would write; never runs out of room.
struct StatSink {
    uint32_t* lit;
    uint32_t* dist;

    [[nodiscard]] static constexpr bool room() { return true; }
    ZEM_INLINE void literal(uint8_t b) { ++lit[b]; }
    ZEM_INLINE void match(uint32_t len, uint32_t d) {
        ++lit[257 + kLengthSym.sym[len - kMinMatch]];
        ++dist[dist_symbol(d)];
    }
};

// One call's view of the stream: the input, the history it may reach into, the head table.
struct Span {
    const uint8_t* window;  // the oldest byte that may be reached
    const uint8_t* src;     // the first byte to parse, at stream position src_idx
    const uint8_t* end;     // the end of the bytes that may be read (and matched)
    const uint8_t* stop;    // positions from here on are left to a later call
    uint32_t src_idx;
    uint32_t win_size;
    uint32_t* head;
    uint32_t hash_shift;  // 32 - log2 of the table size
};

ZEM_INLINE uint32_t match_len(const uint8_t* p, const uint8_t* c, uint32_t max) {
    uint32_t len = kMinTaken;
    for (; len + 8 <= max; len += 8) {
        const uint64_t x = load64(p + len) ^ load64(c + len);
        if (x) return len + uint32_t(__builtin_ctzll(x) >> 3);
    }
    while (len < max && p[len] == c[len]) ++len;
    return len;
}

// Parses from s.src up to s.stop into the sink and returns where it stopped: at s.stop or
// beyond it (a match may run past it up to s.end), or at the first record the sink had no room
// for. Table entries are positions; one is followed only when its distance is within the window
// size and the history before p, so stale or garbage entries are never read through.
template <class Sink>
const uint8_t* parse(const Span& s, Sink& sink) {
    const uint8_t* p = s.src;
    // Positions whose four bytes lie in the input can be probed; the rest are literals.
    const uint8_t* probe_end = s.end - s.src < 4 ? s.src : s.stop < s.end - 3 ? s.stop : s.end - 3;
    const uint32_t base = s.src_idx - uint32_t(s.src - s.window);  // stream position of s.window
    const uint32_t shift = s.hash_shift;
    uint32_t misses = 1u << kSkipShift;
    while (p < probe_end) {
        if (!sink.room()) return p;
        const uint32_t here = base + uint32_t(p - s.window);
        const uint32_t h = hash4(p, shift);
        const uint32_t cand = s.head[h];
        s.head[h] = here;
        const uint32_t d = here - cand;
        const size_t history = size_t(p - s.window);
        const uint32_t limit = history < s.win_size ? uint32_t(history) : s.win_size;
        if (d - 1 < limit && load32(p - d) == load32(p)) {
            const size_t left = size_t(s.end - p);
            const uint32_t len = match_len(p, p - d, left < kMaxMatch ? uint32_t(left) : kMaxMatch);
            sink.match(len, d);
            misses = 1u << kSkipShift;
            const uint8_t* next = p + len;
            if (next >= probe_end) {
                p = next;
                break;
            }
            // (A match has at least four bytes, so these are inner positions, two of them the
            // same one when it has exactly four; the newest goes in last.)
            const auto enter = [&](const uint8_t* q) { s.head[hash4(q, shift)] = base + uint32_t(q - s.window); };
            enter(p + 1);
            enter(p + 2);
            enter(next - 2);
            enter(next - 1);
            p = next;
            continue;
        }
        const uint32_t step = misses++ >> kSkipShift;
        for (uint32_t k = 0;;) {
            sink.literal(*p++);
            if (p >= probe_end || ++k == step) break;
            if (!sink.room()) return p;
        }
    }
    // The last positions, too close to the end to probe, go out as literals when this call
    // parses to the end; a match may have run past the stop already.
    for (const uint8_t* lim = s.stop; p < lim; ++p) {
        if (!sink.room()) return p;
        sink.literal(*p);
    }
    return p;
}

}  // namespace zem::deflate::fastest
