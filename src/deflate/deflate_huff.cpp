// Huffman emission of records: literals and (length, distance) pairs written as DEFLATE codes
// through a bit buffer that is stored a 32-bit word at a time.
//
// The buffer is 64 bits wide inside the call, so an append never has to split its bits around a
// store; a word is stored as soon as 32 bits are held, which writes the same bytes at the same
// indices as holding them in a 32-bit word and storing it when the next append overflows.
#include <immintrin.h>

#include "deflate/deflate_tables.h"

namespace zem::deflate {

namespace {

// From this many records on, the combined length table pays for building it.
inline constexpr uint32_t kCombinedMin = 2048;
// Records the literal-run test of the long path looks at at once (one 256-bit load of pDist).
inline constexpr uint32_t kRun = 16;
// Widest single append: a length code with its extra bits (15 + 5) or a distance code with its
// extra bits (15 + 13). After a store fewer than 32 bits are held, so an append always fits.
inline constexpr uint32_t kMaxAppend = 28;
static_assert(31 + kMaxAppend <= 64);
// Two literal codes (2 x 15 bits) fit beside fewer than 32 held bits.
static_assert(31 + 2 * kMaxCodeLen <= 64);

struct Bits {
    uint64_t buf;
    uint32_t count;
    uint8_t* dst;
    uint32_t idx;

    ZEM_INLINE void put(uint64_t v, uint32_t n) {
        buf |= v << count;
        count += n;
    }
    ZEM_INLINE void flush_word() {
        if (count >= 32) {
            store32(dst + idx, uint32_t(buf));
            idx += 4;
            buf >>= 32;
            count -= 32;
        }
    }
};

ZEM_INLINE void put_distance(Bits& b, const zemDeflateHuffCode* dist_codes, uint32_t d) {
    const uint32_t s = dist_symbol(d);
    const uint32_t n = code_len(dist_codes[s]);
    b.put(code_bits(dist_codes[s]) | uint64_t(_bzhi_u32(d - kDistBase[s], kDistExtra[s])) << n, n + kDistExtra[s]);
    b.flush_word();
}

void emit_plain(Bits& b, const uint8_t* lit_len, const uint16_t* dist, uint32_t n, const zemDeflateHuffCode* lit_codes,
                const zemDeflateHuffCode* dist_codes) {
    for (uint32_t i = 0; i < n; ++i) {
        const uint32_t v = lit_len[i];
        if (dist[i] == 0) {
            b.put(code_bits(lit_codes[v]), code_len(lit_codes[v]));
        } else {
            const uint32_t c = kLengthSym.sym[v];
            const zemDeflateHuffCode& lc = lit_codes[257 + c];
            b.put(code_bits(lc) | uint64_t(v + kMinMatch - kLengthBase[c]) << code_len(lc), code_len(lc) + kLengthExtra[c]);
            b.flush_word();
            put_distance(b, dist_codes, dist[i]);
        }
        b.flush_word();
    }
}

// Every length value's code and extra bits as one bit string.
struct Combined {
    uint32_t bits[256];
    uint8_t len[256];
    uint32_t lit_bits[256];
    uint8_t lit_len[256];
};

void build_combined(Combined& t, const zemDeflateHuffCode* lit_codes) {
    for (uint32_t v = 0; v < 256; ++v) {
        const uint32_t c = kLengthSym.sym[v];
        const zemDeflateHuffCode& lc = lit_codes[257 + c];
        t.bits[v] = code_bits(lc) | (v + kMinMatch - kLengthBase[c]) << code_len(lc);
        t.len[v] = uint8_t(code_len(lc) + kLengthExtra[c]);
        t.lit_bits[v] = code_bits(lit_codes[v]);
        t.lit_len[v] = uint8_t(code_len(lit_codes[v]));
    }
}

void emit_combined(Bits& b, const uint8_t* lit_len, const uint16_t* dist, uint32_t n, const zemDeflateHuffCode* lit_codes,
                   const zemDeflateHuffCode* dist_codes) {
    Combined t;
    build_combined(t, lit_codes);
    auto one = [&](uint32_t i) {
        const uint32_t v = lit_len[i];
        if (dist[i] == 0) {
            b.put(t.lit_bits[v], t.lit_len[v]);
        } else {
            b.put(t.bits[v], t.len[v]);
            b.flush_word();
            put_distance(b, dist_codes, dist[i]);
        }
        b.flush_word();
    };
    uint32_t i = 0;
    for (; i + kRun <= n; i += kRun) {
        const __m256i d = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(dist + i));
        if (_mm256_testz_si256(d, d)) {
            // A run of literals: two codes per store check.
            for (uint32_t k = 0; k < kRun; k += 2) {
                const uint32_t a = lit_len[i + k], c = lit_len[i + k + 1];
                b.put(t.lit_bits[a] | uint64_t(t.lit_bits[c]) << t.lit_len[a], t.lit_len[a] + t.lit_len[c]);
                b.flush_word();
            }
        } else {
            for (uint32_t k = 0; k < kRun; ++k) one(i + k);
        }
    }
    for (; i < n; ++i) one(i);
}

}  // namespace

}  // namespace zem::deflate

using namespace zem::deflate;

ZEM_API zemStatus zemsDeflateHuff_8u(const uint8_t* pLitLen, const uint16_t* pDist, uint32_t srcLen,
                                     uint16_t* pCode, uint32_t* pCodeLenBits,
                                     const zemDeflateHuffCode* pLitCodeTable,
                                     const zemDeflateHuffCode* pDistCodeTable, uint8_t* pDst,
                                     uint32_t* pDstIdx) {
    if (zem::any_null(pLitLen, pDist, pCode, pCodeLenBits, pLitCodeTable, pDistCodeTable, pDst, pDstIdx))
        return zemStatusNullPtr;
    // At most 16 bits can come in through a 16-bit word; bits above the count are not pending.
    const uint32_t held = *pCodeLenBits < 16 ? *pCodeLenBits : 16;
    Bits b{_bzhi_u32(*pCode, held), held, pDst, *pDstIdx};
    if (srcLen >= kCombinedMin) emit_combined(b, pLitLen, pDist, srcLen, pLitCodeTable, pDistCodeTable);
    else emit_plain(b, pLitLen, pDist, srcLen, pLitCodeTable, pDistCodeTable);
    b.flush_word();
    for (; b.count >= 8; b.count -= 8, b.buf >>= 8) b.dst[b.idx++] = uint8_t(b.buf);
    *pCode = uint16_t(b.buf);
    *pCodeLenBits = b.count;
    *pDstIdx = b.idx;
    return zemStatusOk;
}
