/* zfp at a fixed rate: an nx*ny*nz float array (x fastest) in 4x4x4 blocks, edge blocks padded
 * as libzfp pads them, compressed at 8 bits per value and decompressed again.
 *   cc -std=c99 examples/zfp_rate.c -I include -L build/release -lzemdc -Wl,-rpath,$PWD/build/release -o zfp_rate */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "zemdc.h"

#define RATE 8 /* bits per value: every block takes exactly 64 * RATE bits */

/* Completes n (1..3) valid values at q[0], q[s], ... to four. */
static void pad(float* q, int n, int s) {
    if (n == 1) q[s] = q[2 * s] = q[3 * s] = q[0];
    if (n == 2) {
        q[2 * s] = q[s];
        q[3 * s] = q[0];
    }
    if (n == 3) q[3 * s] = q[0];
}

static int min4(int a) { return a < 4 ? a : 4; }

int main(void) {
    int nx = 37, ny = 20, nz = 9;
    size_t n = (size_t)nx * ny * nz, blocks = (size_t)((nx + 3) / 4) * ((ny + 3) / 4) * ((nz + 3) / 4);
    uint64_t cap = ZEM_ZFP_BOUND(blocks, 64 * RATE, 64 * RATE), size = 0;
    int32_t stateSize = 0;
    zemsEncodeZfpGetStateSize_32f(&stateSize);
    float* a = malloc(n * sizeof *a);
    float* b = malloc(n * sizeof *b);
    uint8_t* buf = malloc(cap);
    zemZfpState* s = malloc((size_t)stateSize);
    if (!a || !b || !buf || !s) return 1;
    for (size_t i = 0; i < n; i++) a[i] = (float)((i * 37) % 101) * 0.25f - (float)(i % 13);

    int ok = zemsEncodeZfpInitLong_32f(buf, (int64_t)cap, s) == zemStatusOk &&
             zemsEncodeZfpSet_32f(64 * RATE, 64 * RATE, 64, -10740, s) == zemStatusOk;
    for (int bz = 0; ok && bz < nz; bz += 4)
        for (int by = 0; ok && by < ny; by += 4)
            for (int bx = 0; ok && bx < nx; bx += 4) {
                const float* p = a + ((size_t)bz * ny + by) * nx + bx;
                int cx = min4(nx - bx), cy = min4(ny - by), cz = min4(nz - bz);
                if (cx == 4 && cy == 4 && cz == 4) {
                    ok = zemsEncodeZfp444_32f(p, 4 * nx, 4 * nx * ny, s) == zemStatusOk;
                    continue;
                }
                float block[64];
                for (int z = 0; z < cz; z++)
                    for (int y = 0; y < cy; y++) {
                        memcpy(&block[16 * z + 4 * y], p + ((size_t)z * ny + y) * nx, 4 * (size_t)cx);
                        pad(&block[16 * z + 4 * y], cx, 1);
                    }
                for (int z = 0; z < cz; z++)
                    for (int x = 0; x < 4; x++) pad(&block[16 * z + x], cy, 4);
                for (int i = 0; i < 16; i++) pad(&block[i], cz, 16);
                ok = zemsEncodeZfp444_32f(block, 16, 64, s) == zemStatusOk;
            }
    ok = ok && zemsEncodeZfpFlush_32f(s) == zemStatusOk && zemsEncodeZfpGetCompressedSizeLong_32f(s, &size) == zemStatusOk;

    /* Decoding runs the same parameters over the same block order. */
    ok = ok && zemsDecodeZfpInitLong_32f(buf, (int64_t)size, s) == zemStatusOk &&
         zemsDecodeZfpSet_32f(64 * RATE, 64 * RATE, 64, -10740, s) == zemStatusOk;
    for (int bz = 0; ok && bz < nz; bz += 4)
        for (int by = 0; ok && by < ny; by += 4)
            for (int bx = 0; ok && bx < nx; bx += 4) {
                float* p = b + ((size_t)bz * ny + by) * nx + bx;
                int cx = min4(nx - bx), cy = min4(ny - by), cz = min4(nz - bz);
                float block[64];
                if (cx == 4 && cy == 4 && cz == 4) {
                    ok = zemsDecodeZfp444_32f(s, p, 4 * nx, 4 * nx * ny) == zemStatusOk;
                    continue;
                }
                ok = zemsDecodeZfp444_32f(s, block, 16, 64) == zemStatusOk;
                for (int z = 0; z < cz; z++)
                    for (int y = 0; y < cy; y++)
                        memcpy(p + ((size_t)z * ny + y) * nx, &block[16 * z + 4 * y], 4 * (size_t)cx);
            }
    double worst = 0;
    for (size_t i = 0; ok && i < n; i++) {
        double d = a[i] > b[i] ? a[i] - b[i] : b[i] - a[i];
        worst = d > worst ? d : worst;
    }
    if (!ok || worst > 1.0) return 1;
    printf("%zu floats at %d bits each -> %llu bytes (bound %llu), largest error %g\n", n, RATE,
           (unsigned long long)size, (unsigned long long)cap, worst);
    free(a);
    free(b);
    free(buf);
    free(s);
    return 0;
}
