/* LZ4 blocks that each use the block before them as a dictionary, kept in a separate buffer
 * (as a receiver that stores only the last block would keep it).
 *   cc -std=c99 examples/lz4_dict.c -I include -L build/release -lzemdc -Wl,-rpath,$PWD/build/release -o lz4_dict */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "zemdc.h"

#define BLOCK 16384

int main(void) {
    enum { COUNT = 8 };
    int32_t tableSize = 0;
    zemsEncodeLZ4HashTableGetSize_8u(&tableSize);
    uint8_t* table = malloc((size_t)tableSize);
    uint8_t block[BLOCK], prev[BLOCK], packed[ZEM_LZ4_BOUND(BLOCK)];
    /* The decoder writes after dictLen bytes of its output buffer and never touches them. */
    uint8_t decoded[BLOCK + BLOCK], lastDecoded[BLOCK];
    int32_t dictLen = 0;
    size_t in = 0, out = 0;
    if (!table) return 1;
    for (int k = 0; k < COUNT; k++) {
        /* Blocks that resemble each other: what a dictionary pays for. */
        for (int i = 0; i < BLOCK; i++) block[i] = (uint8_t)((i * 7 + (i / 100) * k) % 61 + 'A');
        int32_t packedLen = 0;
        if (dictLen == 0) {
            if (zemsEncodeLZ4_8u(block, BLOCK, packed, &packedLen, table) != zemStatusOk) return 1;
        } else {
            /* Load the previous block into a fresh dictionary table, then encode against it:
             * srcIdx = dictLen says that the dictionary's last byte stands right before block. */
            zemsEncodeLZ4DictHashTableInit_8u(table, BLOCK);
            zemsEncodeLZ4LoadDict_8u(table, prev, dictLen);
            if (zemsEncodeLZ4Dict_8u(block, dictLen, BLOCK, packed, &packedLen, table, prev, dictLen) != zemStatusOk)
                return 1;
        }
        /* Decode: output at decoded + dictLen, matches into the dictionary read lastDecoded. */
        int32_t used = packedLen, produced = BLOCK;
        zemStatus st = zemsDecodeLZ4Dict_8u(packed, &used, decoded, dictLen, &produced, dictLen ? lastDecoded : NULL,
                                           dictLen);
        if (st != zemStatusOk || produced != BLOCK || memcmp(decoded + dictLen, block, BLOCK) != 0) return 1;
        memcpy(lastDecoded, decoded + dictLen, BLOCK);
        memcpy(prev, block, BLOCK);
        dictLen = BLOCK;
        in += BLOCK;
        out += (size_t)packedLen;
    }
    printf("%zu bytes in blocks with the previous block as dictionary -> %zu bytes\n", in, out);
    free(table);
    return 0;
}
