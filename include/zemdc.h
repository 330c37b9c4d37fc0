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

/* @@lz4hc@@ */

/* ------------------------------------------------------------------------------------------- */
/* Inflate                                                                                      */
/* ------------------------------------------------------------------------------------------- */

/* The caller-owned record of the inflate primitives (7,216 bytes). The caller sets window,
 * windowSize and, for a block with the fixed code, tableKind = 0; zemsInflateBuildHuffTable sets
 * tableKind, litBits, distBits and the table area for a block with its own codes; zemsInflate_8u
 * keeps its position inside a block in resume. */
typedef struct zemInflateState {
    uint8_t* window;        /* circular history window (earlier output), or null for none */
    uint32_t windowSize;    /* bytes in the window */
    uint32_t tableKind;     /* 0 fixed code, 1 general two-level tables, 2 compact one-level tables */
    uint32_t reserved[2];   /* not used by the primitives */
    uint32_t resume[4];     /* the decoder's saved step, length, table entry and distance */
    uint32_t litBits;       /* compact tables: index width of the literal/length table (1..11) */
    uint32_t distBits;      /* compact tables: index width of the distance table (0..10) */
    uint8_t tables[7168];   /* the tables */
} zemInflateState;

/* Validates the Huffman code lengths of one DEFLATE block with its own codes and builds the
 * decoding tables into *state. codeLens holds nLitCodes literal/length lengths (at most 288)
 * followed by nDistCodes distance lengths (at most 30, 0 allowed), each 0 (no code) or 1..15.
 * Both codes must be complete; a single code of length 1 is the one incomplete code accepted.
 * Longest codes of at most 11 (literal/length) and 10 (distance) bits get the compact layout
 * (tableKind 2, litBits and distBits set), others the general layout (tableKind 1). The window
 * and resume fields are left alone.
 * Statuses: zemStatusNullPtr (codeLens, state), zemStatusSize (nLitCodes > 288 or
 * nDistCodes > 30), zemStatusBadData (over-subscribed or incomplete code; in the compact layout
 * also nLitCodes < 257 or no end-of-block code, in which case tableKind, litBits and distBits
 * have already been written), zemStatusOk. */
ZEM_API zemStatus zemsInflateBuildHuffTable(const uint16_t* codeLens, uint32_t nLitCodes, uint32_t nDistCodes,
                                            zemInflateState* state);

/* Decodes the body of one DEFLATE block through the tables of *state, resumable at any byte of
 * input and output. *ppSrc and *pSrcLen: the input, advanced past the bytes taken into the bit
 * buffer. *pCode and *pCodeLenBits: the bit buffer (held bits, next bit in bit 0; at most 32).
 * winIdx: next write position in state->window (at most windowSize). *ppDst and *pDstLen: output
 * position and room, advanced past the bytes written; the dstIdx bytes before *ppDst are
 * earlier output of the same stream and serve as history before the window does. *pMode: 0 or
 * 1 on entry starts at a code boundary, 2 continues from state->resume; on return 0 means the
 * end of the block was decoded, 1 that the call stopped at a code boundary for want of input,
 * 2 that it stopped inside a length/distance pair or a match copy (for want of input or output).
 * Statuses: zemStatusNullPtr (any pointer argument, then *ppSrc, then *ppDst), zemStatusSize
 * (*pCodeLenBits > 32 or winIdx > windowSize), zemStatusBadData (tableKind above 2 with nothing
 * consumed, or malformed data: the in/out values say where decoding stopped), zemStatusOk. */
ZEM_API zemStatus zemsInflate_8u(const uint8_t** ppSrc, uint32_t* pSrcLen, uint32_t* pCode, uint32_t* pCodeLenBits,
                                 uint32_t winIdx, uint8_t** ppDst, uint32_t* pDstLen, uint32_t dstIdx,
                                 uint32_t* pMode, zemInflateState* state);

/* ------------------------------------------------------------------------------------------- */
/* ZFP: 4x4x4 blocks of 32-bit floats                                                           */
/* ------------------------------------------------------------------------------------------- */

/* @@zfp@@ */

#ifdef __cplusplus
}
#endif

#endif /* ZEMDC_H */
