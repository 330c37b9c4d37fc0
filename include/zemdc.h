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

/* @@crc32@@ */

/* ------------------------------------------------------------------------------------------- */
/* LZ4 block codec                                                                              */
/* ------------------------------------------------------------------------------------------- */

/* @@lz4@@ */

/* ------------------------------------------------------------------------------------------- */
/* LZ4 high compression                                                                         */
/* ------------------------------------------------------------------------------------------- */

/* Reports the sizes of the two tables of the high-compression encoder: *pHashSize receives
 * 131072 (32768 positions, one per 15-bit hash), *pChainSize 262144 (65536 links, indexed by
 * position modulo 65536). The caller allocates both and passes them as a pair of pointers,
 * hash table first.
 * Statuses: zemStatusNullPtr (either pointer null), zemStatusOk. */
ZEM_API zemStatus zemsEncodeLZ4HCHashTableGetSize_8u(int32_t* pHashSize, int32_t* pChainSize);

/* Zeroes both tables of the pair ppTables[0] (hash table), ppTables[1] (chain table). A stream
 * starts with clean tables; between the blocks of one stream the tables are kept, so that
 * later blocks find matches in earlier ones.
 * Statuses: zemStatusNullPtr (ppTables or the hash table null; a null chain table is reported
 * after the hash table has been zeroed), zemStatusOk. */
ZEM_API zemStatus zemsEncodeLZ4HCHashTableInit_8u(uint8_t* const* ppTables);

/* Encodes *pSrcLen bytes at src as one LZ4 block at dst (capacity *pDstLen), searching hash
 * chains for the longest match. level 1..9 examines up to 2^(level-1) candidates per position;
 * 0 means 9, a negative level 1, a level above 9 is 9.
 * srcIdx counts the history bytes in memory right before src; positions are numbered from the
 * start of that history, and the tables carry them from call to call. Matches reach no lower
 * than max(srcIdx - dictLen, 0): without a dictionary (pDict null or dictLen 0) that is src
 * itself. pDict/dictLen either describe that same history in place (pDict + dictLen == src,
 * dictLen == srcIdx: all of it usable) or a separate dictionary that stands for the dictLen
 * positions before src (its last byte is position srcIdx - 1).
 * On return *pSrcLen holds the bytes consumed and *pDstLen the bytes written. When the output
 * fills, the block ends after the last complete sequence and zemStatusDstTooSmall is returned
 * with *pSrcLen covering exactly what that block decodes to; call again with fresh output for
 * the rest. An output of srcLen + srcLen / 255 + 16 bytes is always enough.
 * Statuses, in order of checking: zemStatusSize (a non-null pDict with dictLen below 0),
 * zemStatusNullPtr (src, pSrcLen, dst, pDstLen, ppTables or either table null),
 * zemStatusSize (*pSrcLen below 1), zemStatusBadArg (srcIdx below 0), zemStatusOk,
 * zemStatusDstTooSmall. */
ZEM_API zemStatus zemsEncodeLZ4HC_8u(const uint8_t* src, int32_t srcIdx, int32_t* pSrcLen, uint8_t* dst,
                                     int32_t* pDstLen, uint8_t* const* ppTables, const uint8_t* pDict,
                                     int32_t dictLen, int32_t level);

/* As zemsEncodeLZ4HC_8u, with the lowest usable history position given by dictLimit (0 keeps
 * the default max(srcIdx - dictLen, 0)). With a separate dictionary the limit is never taken
 * below the dictionary's first byte. dictLen is not checked here.
 * Statuses: zemStatusNullPtr (src, pSrcLen, dst, pDstLen, ppTables or either table null),
 * zemStatusSize (*pSrcLen below 1), zemStatusBadArg (srcIdx below 0), zemStatusOk,
 * zemStatusDstTooSmall. */
ZEM_API zemStatus zemsEncodeLZ4HCDictLimit_8u(const uint8_t* src, int32_t srcIdx, int32_t* pSrcLen, uint8_t* dst,
                                              int32_t* pDstLen, uint8_t* const* ppTables, const uint8_t* pDict,
                                              int32_t dictLen, int32_t level, int32_t dictLimit);

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
