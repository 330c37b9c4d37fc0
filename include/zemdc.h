/*
 * zemdc: data-compression primitives for x86-64 processors with AVX2.
 *
 * Every function is a plain C function over caller-owned memory: the library never allocates,
 * starts no threads and keeps no mutable global state. Results come back as a zemStatus:
 * 0 is success, negative values are errors (nothing usable was written), positive values are
 * warnings (a partial, consistent result was written and the call can be continued).
 *
 * Arguments are checked in one order in every function: null pointers first (in argument
 * order), then the pointers held by pointer-to-pointer arguments, then lengths, then modes and
 * levels; the first failure decides, and nothing is written before all checks have passed
 * unless a function's comment says otherwise.
 *
 * Valid C99 and C++.
 */
#ifndef ZEMDC_H
#define ZEMDC_H

#include <stdint.h>

#if defined(__GNUC__)
#define ZEM_API __attribute__((visibility("default")))
#else
#define ZEM_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------------------------- */
/* Status values                                                                                */
/* ------------------------------------------------------------------------------------------- */

typedef int32_t zemStatus;

enum {
    zemStatusOk = 0,                /* success */
    zemStatusError = -2,            /* inconsistent input (LZ4: a match before the allowed history;
                                       dictionary expansion: size disagrees with the in-use table) */
    zemStatusStreamEnd = -4,        /* a bit stream reached the end of its buffer */
    zemStatusBadArg = -5,           /* an argument value is out of its allowed range */
    zemStatusSize = -6,             /* a length or size is zero, negative or too large */
    zemStatusNullPtr = -8,          /* a required pointer is null */
    zemStatusContextMismatch = -13, /* a state record lacks the identity tag its Init writes */
    zemStatusBadMode = -16,         /* a mode or acceleration is out of range */
    zemStatusBadData = -200,        /* malformed Huffman code lengths or DEFLATE data */
    zemStatusSrcTooShort = 32,      /* warning: the input ended inside the encoded stream */
    zemStatusDstTooSmall = 33       /* warning: the output filled before the input was used up */
};

/* ------------------------------------------------------------------------------------------- */
/* Library version                                                                              */
/* ------------------------------------------------------------------------------------------- */

typedef struct zemLibraryVersion {
    int32_t major;         /* 2022 */
    int32_t minor;         /* 3 */
    int32_t majorBuild;    /* 0 */
    int32_t build;         /* 0x0FC08BB1 */
    char targetCpu[4];     /* "q4": the processor generation of this build (AVX2) */
    const char* Name;      /* "zemDC AVX2 (q4)" */
    const char* Version;   /* "2022.3.0 (r0x0fc08bb1)" */
    const char* BuildDate; /* "Sep 19 2025" */
} zemLibraryVersion;

/* Returns the constant version record of this build. Never fails; every call returns the same
 * pointer, and the record is never written. */
ZEM_API const zemLibraryVersion* zemdcGetLibVersion(void);

/* ------------------------------------------------------------------------------------------- */
/* Checksums                                                                                    */
/* ------------------------------------------------------------------------------------------- */

/* Updates the running Adler-32 checksum *pChecksum (zlib's; a new stream starts at 1) over len
 * bytes at src. A null src is the way to start a new stream: *pChecksum is set to 1 and
 * zemStatusOk returned, whatever len is. len of zero or less processes no bytes but still
 * reduces both 16-bit halves of *pChecksum modulo 65521.
 * Statuses: zemStatusNullPtr (pChecksum null), zemStatusOk. */
ZEM_API zemStatus zemsAdler32_8u(const uint8_t* src, int32_t len, uint32_t* pChecksum);

/* Updates the running CRC-32 of zlib, gzip and PNG (polynomial 0x04C11DB7, least significant bit
 * first) over len bytes at src. *pCRC holds the finished checksum of everything so far (start a
 * stream with 0) and receives the finished checksum including these bytes.
 * Statuses: zemStatusNullPtr (src or pCRC null), zemStatusSize (len < 1), zemStatusOk. On an
 * error *pCRC is left unchanged. */
ZEM_API zemStatus zemsCRC32_8u(const uint8_t* src, int32_t len, uint32_t* pCRC);

/* Updates the running bzip2 CRC (polynomial 0x04C11DB7, most significant bit first) over len
 * bytes at src. *pCRC holds the finished CRC as a number, as a bzip2 block header carries it
 * (start with 0), and receives the finished CRC including these bytes.
 * Statuses: zemStatusNullPtr (src or pCRC null), zemStatusSize (len < 1), zemStatusOk. On an
 * error *pCRC is left unchanged. */
ZEM_API zemStatus zemsCRC32_BZ2_8u(const uint8_t* src, int32_t len, uint32_t* pCRC);

/* Updates a CRC-32C (Castagnoli, polynomial 0x1EDC6F41, least significant bit first) shift
 * register over len bytes at src. Unlike zemsCRC32_8u, *pCRC is the bare register, neither
 * complemented on entry nor on exit: start with 0xFFFFFFFF and complement the last value to get
 * the finished CRC-32C. len is taken as an unsigned 32-bit count: only 0 is refused, and a
 * negative value means that many bytes modulo 2^32 (-1 is 4294967295 bytes).
 * Statuses: zemStatusNullPtr (src or pCRC null), zemStatusSize (len == 0), zemStatusOk. On an
 * error *pCRC is left unchanged. */
ZEM_API zemStatus zemsCRC32C_8u(const uint8_t* src, int32_t len, uint32_t* pCRC);

/* ------------------------------------------------------------------------------------------- */
/* LZ4 block codec                                                                              */
/* ------------------------------------------------------------------------------------------- */

/* @@lz4@@ */

/* ------------------------------------------------------------------------------------------- */
/* LZ4 high compression                                                                         */
/* ------------------------------------------------------------------------------------------- */

/* @@lz4hc@@ */

/* ------------------------------------------------------------------------------------------- */
/* Inflate                                                                                      */
/* ------------------------------------------------------------------------------------------- */

/* @@inflate@@ */

/* ------------------------------------------------------------------------------------------- */
/* ZFP: 4x4x4 blocks of 32-bit floats                                                           */
/* ------------------------------------------------------------------------------------------- */

/* @@zfp@@ */

#ifdef __cplusplus
}
#endif

#endif /* ZEMDC_H */
