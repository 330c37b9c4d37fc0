/* LZ4 high compression in independent blocks at full speed: clear the two tables once, then give
 * every block its offset in the input as srcIdx and no dictionary. Positions keep growing, so
 * the entries of earlier blocks lie below the block's low limit and end each search at once.
 * (Clearing once and passing srcIdx 0 for every block is also correct, but then those entries
 * look like candidates inside the block and are compared in vain: markedly slower.)
 *   cc -std=c99 examples/lz4hc_blocks.c -I include -L build/release -lzemdc -Wl,-rpath,$PWD/build/release -o lz4hc_blocks */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "zemdc.h"

#define BLOCK 65536

int main(void) {
    size_t n = 6 * BLOCK + 99, total = 0;
    int32_t hashSize = 0, chainSize = 0;
    zemsEncodeLZ4HCHashTableGetSize_8u(&hashSize, &chainSize);
    uint8_t* tables[2] = {malloc((size_t)hashSize), malloc((size_t)chainSize)};
    uint8_t* data = malloc(n);
    uint8_t* back = malloc(n);
    uint8_t* packed = malloc(ZEM_LZ4_BOUND(BLOCK));
    if (!tables[0] || !tables[1] || !data || !back || !packed) return 1;
    for (size_t i = 0; i < n; i++) data[i] = (uint8_t)("the cat sat on the mat. "[i % 24] ^ ((i >> 12) & 1));

    zemsEncodeLZ4HCHashTableInit_8u(tables);
    for (size_t off = 0; off < n; off += BLOCK) {
        int32_t len = n - off < BLOCK ? (int32_t)(n - off) : BLOCK;
        int32_t srcLen = len, packedLen = ZEM_LZ4_BOUND(len), outLen = len;
        /* Offsets must stay below 2^31: clear the tables and start again from 0 before that. */
        zemStatus st = zemsEncodeLZ4HC_8u(data + off, (int32_t)off, &srcLen, packed, &packedLen, tables, NULL, 0, 9);
        if (st != zemStatusOk || srcLen != len) return 1;
        if (zemsDecodeLZ4_8u(packed, packedLen, back + off, &outLen) != zemStatusOk || outLen != len) return 1;
        total += (size_t)packedLen;
    }
    if (memcmp(data, back, n) != 0) return 1;
    printf("%zu bytes in independent HC blocks -> %zu bytes\n", n, total);
    free(tables[0]);
    free(tables[1]);
    free(data);
    free(back);
    free(packed);
    return 0;
}
