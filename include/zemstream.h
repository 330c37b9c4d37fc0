/* zemstream: whole containers (.gz, .zlib, raw DEFLATE, .lz4, .bz2, .lzo) on the zemdc primitives,
 * in one call or as a feed/drain stream. A companion of libzemdc.so, which itself offers no
 * containers: link both (pkg-config --libs zemdc gives -lzemstream -lzemdc -lzemcore).
 *
 * Unlike the primitives, the stream layers allocate (their windows and block buffers, a few MiB
 * at most, fixed by the container and level, never growing with the data). Lengths are size_t:
 * a container may hold more than 2 GiB. Every function may run on any number of threads at once
 * as long as no two calls at the same time share a zemStream.
 *
 * Statuses are those of zemdc.h (zemStatusNullPtr, zemStatusSize, zemStatusBadArg, and the warning
 * zemStatusDstTooSmall of the incremental calls) and the negative zemStreamStatus values below;
 * zemStreamStatusString turns any of them into a short English message. Arguments are checked in
 * the library's order: pointers (-8), then lengths (-6), then container, direction and level (-5). */
#ifndef ZEMSTREAM_H
#define ZEMSTREAM_H

#include <stddef.h>
#include <stdint.h>

#include "zemdc.h"

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define ZEMSTREAM_API __attribute__((visibility("default")))
#else
#define ZEMSTREAM_API
#endif

typedef enum zemContainer {
    zemContainerGzip = 1,    /* RFC 1952; several members read as one stream */
    zemContainerZlib = 2,    /* RFC 1950 */
    zemContainerDeflate = 3, /* raw DEFLATE (RFC 1951), no header or trailer */
    zemContainerLZ4 = 4,     /* the LZ4 frame format; skippable and concatenated frames read as one */
    zemContainerBZ2 = 5,     /* bzip2's .bz2; several streams read as one */
    zemContainerLZO = 6      /* the .lzo file format of lzop */
} zemContainer;

typedef enum zemStreamDirection { zemStreamEncode = 0, zemStreamDecode = 1 } zemStreamDirection;

enum {
    zemStreamStatusUnsupported = -300, /* this build has no layer for the container in that direction */
    zemStreamStatusCorrupt = -301,     /* the input is not a valid container */
    zemStreamStatusChecksum = -302,    /* a checksum or length in the container does not match the data */
    zemStreamStatusTruncated = -303,   /* the input ended inside a stream */
    zemStreamStatusDstTooSmall = -304, /* one-shot calls: the output does not hold the result */
    zemStreamStatusNoMemory = -305,    /* a buffer of the stream layer could not be allocated */
    zemStreamStatusBadState = -306     /* a call out of order (feed after finish, or after an error) */
};

/* ---- one call ----------------------------------------------------------------------------- */

/* Stores in *pBound the largest container zemStreamCompress can write for srcLen bytes at any
 * level. Statuses: zemStatusNullPtr, zemStatusBadArg (no such container),
 * zemStreamStatusUnsupported, zemStatusOk. */
ZEMSTREAM_API zemStatus zemStreamCompressBound(int32_t container, uint64_t srcLen, uint64_t* pBound);

/* Compresses srcLen bytes at pSrc (pSrc may be null when srcLen is 0) into one container at
 * pDst. *pDstLen: capacity in, bytes written out. level 1 (fastest) .. 9 (smallest), 0 for the
 * container's default. Nothing is written past the capacity; with less than the bound the call
 * may fail with zemStreamStatusDstTooSmall, and *pDstLen is then 0.
 * Statuses: zemStatusNullPtr, zemStatusBadArg (container or level), zemStreamStatusUnsupported,
 * zemStreamStatusDstTooSmall, zemStreamStatusNoMemory, zemStatusOk. */
ZEMSTREAM_API zemStatus zemStreamCompress(int32_t container, int32_t level, const uint8_t* pSrc, size_t srcLen,
                                          uint8_t* pDst, size_t* pDstLen);

/* Decompresses the whole input (every member or frame of it) into pDst. *pDstLen: capacity in,
 * bytes produced out (also on failure: the bytes before the fault are correct output, but an
 * error means the whole is not). Nothing is written past the capacity, whatever the input.
 * Statuses: zemStatusNullPtr, zemStatusBadArg, zemStreamStatusUnsupported, zemStreamStatusCorrupt,
 * zemStreamStatusChecksum, zemStreamStatusTruncated (also for an empty input),
 * zemStreamStatusDstTooSmall, zemStreamStatusNoMemory, zemStatusOk. */
ZEMSTREAM_API zemStatus zemStreamDecompress(int32_t container, const uint8_t* pSrc, size_t srcLen, uint8_t* pDst,
                                            size_t* pDstLen);

/* ---- incremental ---------------------------------------------------------------------------- */

typedef struct zemStream zemStream;

/* Creates a stream that compresses (at level 1..9, 0 for the default) or decompresses (level
 * ignored) one container. Release it with zemStreamDestroy.
 * Statuses: zemStatusNullPtr, zemStatusBadArg (container, direction or level),
 * zemStreamStatusUnsupported, zemStreamStatusNoMemory, zemStatusOk. */
ZEMSTREAM_API zemStatus zemStreamCreate(int32_t container, int32_t direction, int32_t level, zemStream** ppStream);

/* Consumes input from *ppSrc (*pSrcLen bytes) and writes output to *ppDst (*pDstLen bytes of
 * room), advancing both pointers and lowering both lengths by what was used. With *pSrcLen 0 it
 * only drains output held back. Returns zemStatusDstTooSmall when the output filled (call again
 * with more room: more may be waiting), zemStatusOk when all input was taken and nothing waits.
 * Errors (zemStreamStatusCorrupt, zemStreamStatusChecksum, ...) are final for the stream.
 * Statuses: zemStatusNullPtr (any argument, then *ppSrc when *pSrcLen is not 0, then *ppDst),
 * zemStreamStatusBadState, the errors above, zemStatusDstTooSmall, zemStatusOk. */
ZEMSTREAM_API zemStatus zemStreamFeed(zemStream* pStream, const uint8_t** ppSrc, size_t* pSrcLen, uint8_t** ppDst,
                                      size_t* pDstLen);

/* Ends the stream: a compressor writes what it holds and the container's end, a decompressor
 * drains what it holds and checks that the input ended between members or frames. Returns
 * zemStatusDstTooSmall while output remains (call again with more room), zemStatusOk when done.
 * Statuses: zemStatusNullPtr, zemStreamStatusBadState (after an error), zemStreamStatusTruncated,
 * zemStatusDstTooSmall, zemStatusOk. */
ZEMSTREAM_API zemStatus zemStreamFinish(zemStream* pStream, uint8_t** ppDst, size_t* pDstLen);

/* Releases the stream; a null pointer is ignored. */
ZEMSTREAM_API void zemStreamDestroy(zemStream* pStream);

/* After an error of the stream, a short reason in the container's terms ("bad CRC", "bad header
 * checksum"), else "". Never null; valid until the next call on the stream. */
ZEMSTREAM_API const char* zemStreamErrorDetail(const zemStream* pStream);

/* ---- names ------------------------------------------------------------------------------------ */

/* A short English message for any status of zemdc.h or of this header ("unknown status" else). */
ZEMSTREAM_API const char* zemStreamStatusString(zemStatus status);

/* The container's usual name and file suffix ("gzip", ".gz"); "" for no such container. */
ZEMSTREAM_API const char* zemStreamContainerName(int32_t container);
ZEMSTREAM_API const char* zemStreamContainerSuffix(int32_t container);

#ifdef __cplusplus
}
#endif

#endif /* ZEMSTREAM_H */
