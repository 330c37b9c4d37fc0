/* LZ4 in independent 64 KiB blocks: every block compresses and decompresses on its own, so any
 * one of them can be read without the others.
 *   cc -std=c99 examples/lz4_blocks.c -I include -L build/release -lzemdc -Wl,-rpath,$PWD/build/release -o lz4_blocks */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "zemdc.h"

#define BLOCK 65536

int main(void) {
    size_t n = 5 * BLOCK + 1234, total = 0;
    int32_t tableSize = 0;
    zemsEncodeLZ4HashTableGetSize_8u(&tableSize);
    uint8_t* data = malloc(n);
    uint8_t* back = malloc(n);
    uint8_t* packed = malloc(ZEM_LZ4_BOUND(BLOCK));
    uint8_t* table = malloc((size_t)tableSize);
    if (!data || !back || !packed || !table) return 1;
    for (size_t i = 0; i < n; i++) data[i] = (uint8_t)("abcabdabe"[i % 9] + (i / 1000) % 3);

    for (size_t off = 0; off < n; off += BLOCK) {
        int32_t len = n - off < BLOCK ? (int32_t)(n - off) : BLOCK, packedLen = 0, outLen = len;
        /* The encoder clears the table itself: nothing carries over from the block before. */
        if (zemsEncodeLZ4_8u(data + off, len, packed, &packedLen, table) != zemStatusOk) return 1;
        if (zemsDecodeLZ4_8u(packed, packedLen, back + off, &outLen) != zemStatusOk || outLen != len) return 1;
        total += (size_t)packedLen;
    }
    if (memcmp(data, back, n) != 0) return 1;
    printf("%zu bytes in 64 KiB blocks -> %zu bytes\n", n, total);
    free(data);
    free(back);
    free(packed);
    free(table);
    return 0;
}
