/* Checksumming a stream in pieces with zemdc; built with the tests so that it keeps compiling.
 *   cc -std=c99 examples/checksum.c -I include -L build/release -lzemdc -Wl,-rpath,$PWD/build/release -o checksum */
#include <stdio.h>
#include <string.h>

#include "zemdc.h"

int main(void) {
    const char* parts[] = {"Wikipedia", " is an encyclopedia"};
    uint32_t adler = 0;
    const zemLibraryVersion* v = zemdcGetLibVersion();

    zemsAdler32_8u(NULL, 0, &adler); /* a null source starts a new stream: adler = 1 */
    for (int i = 0; i < 2; ++i) {
        zemStatus st = zemsAdler32_8u((const uint8_t*)parts[i], (int32_t)strlen(parts[i]), &adler);
        if (st != zemStatusOk) {
            fprintf(stderr, "zemsAdler32_8u failed: %d\n", (int)st);
            return 1;
        }
    }
    printf("%s %s: adler32 = 0x%08x\n", v->Name, v->Version, (unsigned)adler);
    return 0;
}
