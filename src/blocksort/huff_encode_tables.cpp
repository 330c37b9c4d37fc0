// Table design of the block Huffman stage: code lengths, the first split of the alphabet among
// the tables, and the refinement that alternates choosing a table per group of 50 symbols with
// rebuilding each table for the symbols it was chosen for. Both steps can only lower the block's
// coded size (the first picks the cheapest table, the second gives each table optimal lengths for
// its symbols), so the rounds converge; four of them take nearly all of the gain.
#include <string.h>

#include <algorithm>

#include "blocksort/huff_encode.h"
#include "core/check.h"
#include "core/prefix_code.h"

namespace zem::bz2 {
namespace {

// Refinement rounds per start.
constexpr int kRounds = 4;
// Costs of four tables summed in one 64-bit word: a group costs at most 50 * 20 bits.
constexpr int kLaneBits = 16;
static_assert(kGroupSize * kMaxCodeLen < (1 << kLaneBits));
static_assert(kMaxTables <= 8, "two words of four lanes hold every table's cost");

}  // namespace

int64_t header_bits(const HuffEncodeState& s, uint8_t* mtf_sel) {
    int64_t bits = kFieldTables + kFieldSelectors;
    uint8_t order[kMaxTables] = {0, 1, 2, 3, 4, 5};
    for (int32_t g = 0; g < s.selectors; ++g) {
        uint8_t t = s.selector[g], j = 0;
        while (order[j] != t) ++j;
        for (uint8_t k = j; k > 0; --k) order[k] = order[k - 1];
        order[0] = t;
        if (mtf_sel) mtf_sel[g] = j;
        bits += j + 1;
    }
    for (int32_t t = 0; t < s.tables; ++t) {
        bits += kFieldFirstLen;
        int32_t cur = s.len[t][0];
        for (int32_t v = 0; v < s.alphabet; ++v) {
            int32_t d = s.len[t][v] - cur;
            bits += 2 * (d < 0 ? -d : d) + 1;
            cur = s.len[t][v];
        }
    }
    return bits;
}

void build_lengths(const uint32_t* freq, int32_t n, uint8_t* len) {
    uint32_t weight[kMaxAlphabet];
    uint16_t order[kMaxAlphabet];
    uint32_t a[kMaxAlphabet];
    for (int32_t i = 0; i < n; ++i) weight[i] = freq[i] ? freq[i] : 1;
    for (;;) {
        for (int32_t i = 0; i < n; ++i) order[i] = uint16_t(i);
        std::sort(order, order + n, [&](uint16_t x, uint16_t y) { return weight[x] < weight[y]; });
        for (int32_t i = 0; i < n; ++i) a[i] = weight[order[i]];
        zem::prefix_code_lengths(a, n);
        if (int32_t(a[0]) <= kMaxCodeLen) break;
        // Too deep: flatten the weights and build again. Rare (it takes a Fibonacci-like spread of
        // counts) and the loss from halving is a small fraction of a bit per symbol.
        for (int32_t i = 0; i < n; ++i) weight[i] = 1 + weight[i] / 2;
    }
    for (int32_t i = 0; i < n; ++i) len[order[i]] = uint8_t(a[i]);
}

namespace {

// First split: consecutive symbol ranges of about equal weight, each the cheap range of one
// table. The weights are the caller's counts, the end of the block counted once. With `narrow`,
// every other inner range gives up its last symbol: a second start whose refinement often ends
// in a different, sometimes better, optimum.
void first_split(HuffEncodeState& s, const uint32_t* freq, bool narrow) {
    const int32_t alpha = s.alphabet, eob = alpha - 1, tables = s.tables;
    int64_t remaining = 1;
    for (int32_t v = 0; v < eob; ++v) remaining += freq[v];
    int32_t lo = 0;
    for (int32_t part = tables; part > 0; --part) {
        int64_t target = remaining / part, acc = 0;
        int32_t hi = lo - 1;
        while (acc < target && hi < alpha - 1) {
            ++hi;
            acc += hi == eob ? 1 : freq[hi];
        }
        if (narrow && hi > lo && part != tables && part != 1 && (tables - part) % 2 == 1) {
            acc -= hi == eob ? 1 : freq[hi];
            --hi;
        }
        if (part == 1) hi = alpha - 1;
        for (int32_t v = 0; v < alpha; ++v) s.len[part - 1][v] = (v >= lo && v <= hi) ? 0 : 15;
        lo = hi + 1;
        remaining -= acc;
    }
}

struct Scratch {
    uint32_t counts[kMaxTables][kMaxAlphabet];
    uint64_t cost[kMaxAlphabet][2];
};

// Refinement rounds from the tables in s; returns the block's coded size in bits (symbols and
// header), or -1 when a symbol lies outside the alphabet.
int64_t refine(HuffEncodeState& s, const uint16_t* src, Scratch& w) {
    const int32_t alpha = s.alphabet, eob = alpha - 1, tables = s.tables, total = s.symbols + 1;
    for (int round = 0; round < kRounds; ++round) {
        for (int32_t v = 0; v < alpha; ++v) {
            uint64_t lo = 0, hi = 0;
            for (int32_t t = 0; t < tables; ++t) {
                uint64_t l = s.len[t][v];
                if (t < 4)
                    lo |= l << (kLaneBits * t);
                else
                    hi |= l << (kLaneBits * (t - 4));
            }
            w.cost[v][0] = lo;
            w.cost[v][1] = hi;
        }
        memset(w.counts, 0, sizeof w.counts);
        for (int32_t g = 0, start = 0; start < total; ++g, start += kGroupSize) {
            int32_t end = start + kGroupSize < total ? start + kGroupSize : total;
            uint64_t lo = 0, hi = 0;
            for (int32_t i = start; i < end; ++i) {
                uint32_t v = i < s.symbols ? src[i] : uint32_t(eob);
                if (ZEM_UNLIKELY(v > uint32_t(eob) || (v == uint32_t(eob) && i < s.symbols))) return -1;
                lo += w.cost[v][0];
                hi += w.cost[v][1];
            }
            int32_t best = 0;
            uint32_t best_cost = uint32_t(lo & 0xFFFF);
            for (int32_t t = 1; t < tables; ++t) {
                uint32_t c = uint32_t(((t < 4 ? lo : hi) >> (kLaneBits * (t & 3))) & 0xFFFF);
                if (c < best_cost) {
                    best_cost = c;
                    best = t;
                }
            }
            s.selector[g] = uint8_t(best);
            for (int32_t i = start; i < end; ++i) ++w.counts[best][i < s.symbols ? src[i] : eob];
        }
        for (int32_t t = 0; t < tables; ++t) build_lengths(w.counts[t], alpha, s.len[t]);
    }
    int64_t bits = header_bits(s, nullptr);
    for (int32_t t = 0; t < tables; ++t)
        for (int32_t v = 0; v < alpha; ++v) bits += int64_t(w.counts[t][v]) * s.len[t][v];
    return bits;
}

}  // namespace

bool design_tables(HuffEncodeState& s, const uint32_t* freq, const uint16_t* src) {
    Scratch w;
    first_split(s, freq, false);
    const int64_t plain = refine(s, src, w);
    if (plain < 0) return false;
    if (s.tables <= 2) return true;  // no inner range to narrow
    // Keep the first result while the second start is tried.
    uint8_t len[kMaxTables][kMaxAlphabet];
    uint8_t selector[kMaxSelectors];
    memcpy(len, s.len, sizeof len);
    memcpy(selector, s.selector, size_t(s.selectors));
    first_split(s, freq, true);
    if (refine(s, src, w) > plain) {
        memcpy(s.len, len, sizeof len);
        memcpy(s.selector, selector, size_t(s.selectors));
    }
    return true;
}

}  // namespace zem::bz2
