/* Reading a gzip file through the inflate primitives alone: the caller parses the gzip header,
 * the block headers and the code lengths, the library builds the tables and decodes the block
 * bodies. (zemstream.h does all of this in one call; this is what lies beneath it.) The whole
 * output stays in one buffer, so earlier output is the history and no window is needed.
 * With no argument it reads a small embedded file.
 *   cc -std=c99 examples/inflate_gzip.c -I include -L build/release -lzemdc -Wl,-rpath,$PWD/build/release -o inflate_gzip */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "zemdc.h"

static const uint8_t kEmbedded[] = {
    0x1f, 0x8b, 0x08, 0x00, 0x00, 0x00, 0x00, 0x00, 0x02, 0x03, 0x6d, 0xd3, 0x3b, 0x0e, 0xc2, 0x30,
    0x10, 0x84, 0xe1, 0x9e, 0x53, 0xf8, 0x08, 0xf1, 0xfa, 0xcd, 0x6d, 0x52, 0x18, 0x81, 0x14, 0x20,
    0x12, 0x14, 0x1c, 0x9f, 0xd0, 0x20, 0xcd, 0xcc, 0x76, 0x29, 0x46, 0xfa, 0x94, 0x5f, 0xde, 0xed,
    0xf6, 0x98, 0x21, 0x86, 0xe7, 0x25, 0xbc, 0xaf, 0x33, 0xcc, 0xcf, 0x7a, 0xdf, 0xb7, 0x79, 0x0e,
    0xa9, 0x85, 0x75, 0x3f, 0xbe, 0x5e, 0xa7, 0xed, 0x37, 0x30, 0x19, 0xb4, 0x0c, 0x83, 0x24, 0x83,
    0xb8, 0xc0, 0x20, 0xcb, 0x20, 0x23, 0x51, 0x64, 0xd0, 0x91, 0xa8, 0x32, 0x30, 0x24, 0x9a, 0x0c,
    0x0a, 0x12, 0x5d, 0x06, 0x03, 0x89, 0xa1, 0x1d, 0x90, 0x38, 0x7e, 0x8a, 0x17, 0x15, 0x8d, 0xe8,
    0xb4, 0xc4, 0x81, 0xb6, 0xcc, 0x84, 0x68, 0xcc, 0x46, 0x88, 0xd6, 0x8c, 0xa4, 0x68, 0xce, 0x42,
    0x8a, 0xf6, 0xec, 0xa4, 0x68, 0x50, 0x23, 0x45, 0x8b, 0x56, 0x52, 0x34, 0xe9, 0xa0, 0xa7, 0xa5,
    0x49, 0x13, 0x2a, 0xa6, 0x49, 0x1b, 0x2a, 0xa6, 0x4d, 0x2b, 0x0e, 0x34, 0x69, 0x26, 0x44, 0x93,
    0x76, 0x42, 0x34, 0x69, 0x24, 0x45, 0x93, 0x16, 0x52, 0x34, 0xe9, 0x20, 0x45, 0x93, 0x1a, 0x29,
    0x9a, 0xb4, 0xa2, 0x92, 0x16, 0xe7, 0x1a, 0x91, 0x49, 0xce, 0x33, 0x45, 0x26, 0x39, 0x37, 0x4f,
    0x8c, 0x46, 0x1d, 0x38, 0x70, 0x8e, 0x9e, 0x10, 0xe7, 0xea, 0x09, 0xd1, 0xa6, 0x91, 0x14, 0xe7,
    0xee, 0x49, 0x71, 0x0e, 0x9f, 0x14, 0x6d, 0x6a, 0xa8, 0x64, 0xe7, 0xf2, 0xff, 0xca, 0x17, 0xa1,
    0x14, 0x34, 0xed, 0x45, 0x05, 0x00, 0x00
};

/* The bit buffer crosses into zemsInflate_8u as is: at most 32 bits, the next bit in bit 0. */
typedef struct Bits {
    const uint8_t* p;
    uint32_t left, code, count;
} Bits;

static int need(Bits* b, uint32_t n) {
    while (b->count < n) {
        if (!b->left) return 0;
        b->code |= (uint32_t)*b->p++ << b->count;
        b->left--;
        b->count += 8;
    }
    return 1;
}

static uint32_t take(Bits* b, uint32_t n) {
    uint32_t v = n == 32 ? b->code : b->code & ((1u << n) - 1);
    b->code = n == 32 ? 0 : b->code >> n;
    b->count -= n;
    return v;
}

/* One symbol of the code-length code: a canonical code, read a bit at a time (first bit is the
 * most significant of the code). Returns -1 on a bad code. */
static int clen_symbol(Bits* b, const uint8_t lens[19]) {
    int code = 0, first = 0, index = 0;
    for (int len = 1; len <= 7; len++) {
        if (!need(b, 1)) return -1;
        code |= (int)take(b, 1);
        int count = 0;
        for (int s = 0; s < 19; s++) count += lens[s] == len;
        if (code - first < count) {
            for (int s = 0, k = 0; s < 19; s++)
                if (lens[s] == len && k++ == code - first) return s;
        }
        index += count;
        first = (first + count) << 1;
        code <<= 1;
    }
    return -1;
}

/* Reads a dynamic block's code lengths and builds its tables; 0 on success. */
static int dynamic_header(Bits* b, zemInflateState* st) {
    static const uint8_t order[19] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
    uint8_t clens[19] = {0};
    uint16_t lens[288 + 32];
    if (!need(b, 14)) return -1;
    uint32_t nlit = take(b, 5) + 257, ndist = take(b, 5) + 1, nclen = take(b, 4) + 4;
    for (uint32_t i = 0; i < nclen; i++) {
        if (!need(b, 3)) return -1;
        clens[order[i]] = (uint8_t)take(b, 3);
    }
    for (uint32_t i = 0; i < nlit + ndist;) {
        int sym = clen_symbol(b, clens);
        uint32_t repeat = 1, value = (uint32_t)sym;
        if (sym < 0) return -1;
        if (sym == 16) {
            if (i == 0 || !need(b, 2)) return -1;
            value = lens[i - 1];
            repeat = 3 + take(b, 2);
        } else if (sym == 17 || sym == 18) {
            uint32_t extra = sym == 17 ? 3 : 7;
            if (!need(b, extra)) return -1;
            value = 0;
            repeat = (sym == 17 ? 3 : 11) + take(b, extra);
        }
        if (i + repeat > nlit + ndist) return -1;
        while (repeat--) lens[i++] = (uint16_t)value;
    }
    return zemsInflateBuildHuffTable(lens, nlit, ndist, st) == zemStatusOk ? 0 : -1;
}

/* Decodes one gzip member at in into out; returns the bytes produced, or -1. */
static long gunzip(const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t outCap) {
    if (inLen < 18 || in[0] != 0x1f || in[1] != 0x8b || in[2] != 8) return -1;
    uint32_t pos = 10, flags = in[3];
    if (flags & 4) pos += 2 + (in[10] | in[11] << 8);          /* extra field */
    for (int f = 8; f <= 16; f <<= 1)                          /* name, comment */
        if (flags & f) while (pos < inLen && in[pos++]) {}
    if (flags & 2) pos += 2;                                   /* header CRC */
    if (pos >= inLen) return -1;

    zemInflateState* st = malloc(sizeof *st);
    Bits b = {in + pos, inLen - pos, 0, 0};
    uint32_t produced = 0, last = 0;
    if (!st) return -1;
    st->window = NULL; /* all history is in out */
    st->windowSize = 0;
    while (!last) {
        if (!need(&b, 3)) break;
        last = take(&b, 1);
        uint32_t type = take(&b, 2);
        if (type == 0) { /* stored: byte-aligned length, its complement, the bytes */
            take(&b, b.count % 8);
            if (!need(&b, 32)) break;
            uint32_t len = take(&b, 16), nlen = take(&b, 16);
            if (len != (~nlen & 0xffff) || len > b.left || len > outCap - produced) break;
            memcpy(out + produced, b.p, len);
            b.p += len;
            b.left -= len;
            produced += len;
            continue;
        }
        if (type == 1) st->tableKind = 0; /* the fixed code needs no tables */
        else if (type != 2 || dynamic_header(&b, st) != 0) break;
        uint8_t* dst = out + produced;
        uint32_t room = outCap - produced, mode = 0;
        zemStatus s = zemsInflate_8u(&b.p, &b.left, &b.code, &b.count, 0, &dst, &room, produced, &mode, st);
        produced = (uint32_t)(dst - out);
        if (s != zemStatusOk || mode != 0) break; /* bad data, or the input or room ran out */
    }
    free(st);
    /* The trailer: CRC-32 and length of the output, after the bits up to the byte boundary. */
    take(&b, b.count % 8);
    uint32_t crc = 0, isize;
    if (!last || !need(&b, 32)) return -1;
    uint32_t want = take(&b, 32);
    if (!need(&b, 32)) return -1;
    isize = take(&b, 32);
    if (produced) zemsCRC32_8u(out, (int32_t)produced, &crc);
    return crc == want && isize == produced ? (long)produced : -1;
}

int main(int argc, char** argv) {
    const uint8_t* in = kEmbedded;
    long inLen = sizeof kEmbedded;
    uint8_t* file = NULL;
    if (argc > 1) {
        FILE* f = fopen(argv[1], "rb");
        if (!f || fseek(f, 0, SEEK_END) != 0 || (inLen = ftell(f)) < 0 || fseek(f, 0, SEEK_SET) != 0) return 1;
        file = malloc((size_t)inLen + 1);
        if (!file || fread(file, 1, (size_t)inLen, f) != (size_t)inLen) return 1;
        fclose(f);
        in = file;
    }
    /* ISIZE, the last four bytes, is the output's size (modulo 4 GiB: fine for an example). */
    uint32_t cap = inLen >= 4 ? (uint32_t)(in[inLen - 4] | in[inLen - 3] << 8 | in[inLen - 2] << 16 |
                                           (uint32_t)in[inLen - 1] << 24) : 0;
    uint8_t* out = malloc(cap + 1);
    long n = out ? gunzip(in, (uint32_t)inLen, out, cap) : -1;
    if (n < 0) {
        fprintf(stderr, "inflate_gzip: not a valid gzip member\n");
        return 1;
    }
    printf("%ld bytes, CRC-32 and length checked; first line: %.*s\n", n, (int)strcspn((char*)out, "\n"), out);
    free(out);
    free(file);
    return 0;
}
