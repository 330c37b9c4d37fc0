/* Whole .gz and .bz2 files in one call each through zemstream.h: decompress two small files
 * that gzip and bzip2 wrote, then compress a buffer and read it back. A format whose stream
 * layer this build lacks answers zemStreamStatusUnsupported, which is reported and skipped.
 *   cc -std=c99 examples/zemstream_oneshot.c -I include -L build/release -lzemstream -lzemdc -Wl,-rpath,$PWD/build/release -o zemstream_oneshot */
#include <stdio.h>
#include <string.h>

#include "zemstream.h"

static const uint8_t kGz[] = {
    0x1f, 0x8b, 0x08, 0x00, 0x00, 0x00, 0x00, 0x00, 0x02, 0x03, 0xf3, 0x48,
    0xcd, 0xc9, 0xc9, 0x57, 0x48, 0x2b, 0xca, 0xcf, 0x55, 0x48, 0x54, 0x48,
    0xcb, 0xcc, 0x49, 0x55, 0x28, 0xc9, 0x48, 0x2c, 0x51, 0x48, 0xaf, 0xca,
    0x2c, 0x50, 0x48, 0xcc, 0x4b, 0x51, 0x48, 0x02, 0x32, 0x8c, 0x14, 0x92,
    0xf2, 0x4b, 0x32, 0x14, 0x92, 0xf3, 0x73, 0x0b, 0x8a, 0x52, 0x8b, 0x8b,
    0x53, 0x53, 0xf4, 0xb8, 0x00, 0x5e, 0x8f, 0x61, 0x2c, 0x37, 0x00, 0x00,
    0x00
};

static const uint8_t kBz2[] = {
    0x42, 0x5a, 0x68, 0x39, 0x31, 0x41, 0x59, 0x26, 0x53, 0x59, 0x4e, 0x0f,
    0xc5, 0x69, 0x00, 0x00, 0x06, 0x5d, 0x80, 0x00, 0x10, 0x40, 0x01, 0x10,
    0x00, 0x00, 0x40, 0x3f, 0xe7, 0xdc, 0x10, 0x20, 0x00, 0x54, 0x50, 0x01,
    0x88, 0xd3, 0x4d, 0x1a, 0x0d, 0x49, 0xa3, 0x13, 0xcd, 0x51, 0xb5, 0x1e,
    0x53, 0xd2, 0x55, 0x9e, 0xcb, 0x94, 0x79, 0xcd, 0xb0, 0xa4, 0x73, 0xb5,
    0x22, 0xf1, 0x2d, 0x37, 0xa1, 0x11, 0xa1, 0xa4, 0x46, 0x1e, 0x55, 0x26,
    0x70, 0x3e, 0x72, 0xc5, 0x4e, 0x98, 0x3e, 0x2e, 0xe4, 0x8a, 0x70, 0xa1,
    0x20, 0x9c, 0x1f, 0x8a, 0xd2
};

static const char kText[] = "Hello from a file that gzip and bzip2 both compressed.\n";

/* Decodes one embedded file; 0 when it reads back as kText or the format is not built. */
static int read_back(int32_t container, const uint8_t* packed, size_t packedLen) {
    uint8_t out[256];
    size_t outLen = sizeof out;
    zemStatus st = zemStreamDecompress(container, packed, packedLen, out, &outLen);
    printf("%s: %s", zemStreamContainerName(container), zemStreamStatusString(st));
    if (st == zemStreamStatusUnsupported) return printf(" (skipped)\n"), 0;
    printf(", %zu bytes\n", outLen);
    return st == zemStatusOk && outLen == strlen(kText) && memcmp(out, kText, outLen) == 0 ? 0 : 1;
}

/* Compresses text at the default level into a buffer of the worst-case size, then decodes it. */
static int round_trip(int32_t container, const char* text) {
    uint8_t packed[4096], back[4096];
    uint64_t bound = 0;
    size_t len = strlen(text), packedLen = sizeof packed, backLen = sizeof back;
    zemStatus st = zemStreamCompressBound(container, len, &bound);
    if (st == zemStreamStatusUnsupported) return printf("%s: no writer in this build\n", zemStreamContainerName(container)), 0;
    if (st != zemStatusOk || bound > sizeof packed) return 1;
    st = zemStreamCompress(container, 0, (const uint8_t*)text, len, packed, &packedLen);
    if (st != zemStatusOk) return fprintf(stderr, "compress: %s\n", zemStreamStatusString(st)), 1;
    st = zemStreamDecompress(container, packed, packedLen, back, &backLen);
    printf("%s: %zu bytes -> %zu -> %zu\n", zemStreamContainerName(container), len, packedLen, backLen);
    return st == zemStatusOk && backLen == len && memcmp(back, text, len) == 0 ? 0 : 1;
}

int main(void) {
    char text[2048] = "";
    for (int i = 0; i < 30; i++) strcat(text, "one call compresses, one call decompresses. ");
    int bad = read_back(zemContainerGzip, kGz, sizeof kGz) + read_back(zemContainerBZ2, kBz2, sizeof kBz2);
    bad += round_trip(zemContainerGzip, text) + round_trip(zemContainerBZ2, text) + round_trip(zemContainerLZ4, text);
    /* A cut file is a status, never a crash or a write past the buffer. */
    uint8_t out[256];
    size_t outLen = sizeof out;
    zemStatus st = zemStreamDecompress(zemContainerGzip, kGz, sizeof kGz - 4, out, &outLen);
    printf("cut .gz: %s\n", zemStreamStatusString(st));
    return bad || st != zemStreamStatusTruncated;
}
