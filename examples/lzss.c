/* An LZSS stream made and read in pieces with zemdc; built with the tests so that it keeps
 * compiling and round-tripping.
 *   cc -std=c99 examples/lzss.c -I include -L build/release -lzemdc -Wl,-rpath,$PWD/build/release -o lzss */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "zemdc.h"

enum { kInPiece = 1000, kOutChunk = 64 };

int main(void) {
    static uint8_t text[20000], packed[ZEM_LZSS_BOUND(20000)], back[20000];
    for (int i = 0; i < 20000; ++i) text[i] = (uint8_t)"to be or not to be, that is the question. "[i % 42] + (i % 1000 == 0);

    int32_t size = 0;
    zemsLZSSGetSize_8u(&size);
    zemLZSSState_8u* st = (zemLZSSState_8u*)malloc((size_t)size); /* one record, either direction */
    if (!st) return 1;

    /* Encode: the input in pieces, the output in small chunks, then the flush. */
    uint8_t* d = packed;
    zemsEncodeLZSSInit_8u(st);
    for (int32_t pos = 0; pos < 20000; pos += kInPiece) {
        const uint8_t* p = text + pos;
        int32_t left = kInPiece;
        zemStatus s;
        do { /* a full chunk leaves the rest of the piece: give more room and call again */
            int32_t room = kOutChunk;
            s = zemsEncodeLZSS_8u(&p, &left, &d, &room, st);
        } while (s == zemStatusDstTooSmall);
    }
    for (int32_t room = kOutChunk; zemsEncodeLZSSFlush_8u(&d, &room, st) == zemStatusDstTooSmall;) room = kOutChunk;
    const int32_t packedLen = (int32_t)(d - packed);

    /* Decode: the whole stream, the output in small chunks; a cut match resumes by itself. */
    const uint8_t* p = packed;
    int32_t left = packedLen;
    uint8_t* o = back;
    zemsDecodeLZSSInit_8u(st);
    zemStatus s;
    do {
        int32_t room = kOutChunk < back + 20000 - o ? kOutChunk : (int32_t)(back + 20000 - o);
        s = zemsDecodeLZSS_8u(&p, &left, &o, &room, st);
    } while (s == zemStatusDstTooSmall && o < back + 20000);
    free(st);

    if (o - back != 20000 || memcmp(back, text, 20000) != 0) {
        fprintf(stderr, "LZSS round trip failed\n");
        return 1;
    }
    printf("LZSS: 20000 bytes -> %d bytes and back\n", (int)packedLen);
    return 0;
}
