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

/* @@inflate@@ */

/* ------------------------------------------------------------------------------------------- */
/* ZFP: 4x4x4 blocks of 32-bit floats                                                           */
/* ------------------------------------------------------------------------------------------- */

/* The state of one zfp bit stream: an opaque record of exactly 576 bytes (the size that
 * zemsEncodeZfpGetStateSize_32f reports), allocated by the caller. One record serves either
 * direction; it holds a pointer into the bound buffer, no other memory. */
typedef struct zemZfpState zemZfpState;

/* Stores the size of a zemZfpState, 576 bytes, in *pStateSize.
 * Statuses: zemStatusNullPtr, zemStatusOk. */
ZEM_API zemStatus zemsEncodeZfpGetStateSize_32f(int32_t* pStateSize);

/* Binds *pState to the bufLen bytes at pBuf (the output when encoding, the input when decoding;
 * a decoder never writes to it) and resets the parameters to their defaults: minBits 0,
 * maxBits 4171, maxPrec 64, minExp -10740 (no accuracy limit). Set and SetAccuracy must follow,
 * not precede, Init. Statuses: zemStatusNullPtr (pState or pBuf null), zemStatusSize
 * (bufLen < 1), zemStatusOk. */
ZEM_API zemStatus zemsEncodeZfpInit_32f(uint8_t* pBuf, int32_t bufLen, zemZfpState* pState);

/* As zemsEncodeZfpInit_32f with a 64-bit length. Only bufLen 0 is rejected (zemStatusSize); a
 * negative length is accepted and yields a stream on which every later write or read fails with
 * zemStatusStreamEnd. */
ZEM_API zemStatus zemsEncodeZfpInitLong_32f(uint8_t* pBuf, int64_t bufLen, zemZfpState* pState);

/* Sets the four coding parameters: every block occupies at least minBits and at most maxBits
 * bits (its 9 header bits always), at most maxPrec bit planes (1..32 for floats; more acts as
 * 32) and no plane below 2^minExp. The values are stored unchecked. Fixed rate r bits per value:
 * minBits = maxBits = 64 r, maxPrec 64; fixed precision p: maxPrec = p.
 * Statuses: zemStatusNullPtr, zemStatusContextMismatch (the record was never initialised),
 * zemStatusOk. */
ZEM_API zemStatus zemsEncodeZfpSet_32f(int32_t minBits, int32_t maxBits, int32_t maxPrec, int32_t minExp,
                                       zemZfpState* pState);

/* Fixed-accuracy mode: sets minExp to floor(log2(tolerance)) (the binary exponent of the
 * tolerance; its mantissa is ignored, a subnormal gives -1023), or back to -10740 (no limit) for a
 * tolerance that is zero, negative or NaN. The other parameters are kept.
 * Statuses: zemStatusNullPtr, zemStatusContextMismatch, zemStatusOk. */
ZEM_API zemStatus zemsEncodeZfpSetAccuracy_32f(double tolerance, zemZfpState* pState);

/* Stores the bytes written so far (whole words; bits not yet flushed are not counted: call
 * zemsEncodeZfpFlush_32f first), the low 32 bits of the count, in *pSize.
 * Statuses: zemStatusNullPtr, zemStatusContextMismatch, zemStatusOk. */
ZEM_API zemStatus zemsEncodeZfpGetCompressedSize_32f(const zemZfpState* pState, int32_t* pSize);

/* As zemsEncodeZfpGetCompressedSize_32f with a 64-bit count. */
ZEM_API zemStatus zemsEncodeZfpGetCompressedSizeLong_32f(const zemZfpState* pState, uint64_t* pSize);

/* Stores the bits of the stream so far, written bytes times 8 plus the pending bits, in
 * *pBitSize. Statuses: zemStatusNullPtr, zemStatusContextMismatch, zemStatusOk. */
ZEM_API zemStatus zemsEncodeZfpGetCompressedBitSize_32f(const zemZfpState* pState, uint64_t* pBitSize);

/* Writes out the pending bits after the last block: one whole zero-padded 64-bit word when 8
 * bytes are left in the buffer (so a stream ends on a multiple of 8 bytes), otherwise as few
 * single bytes as hold them. Nothing pending: nothing is written.
 * Statuses: zemStatusNullPtr, zemStatusContextMismatch, zemStatusStreamEnd (the buffer ended;
 * the bytes that fitted are written and the rest stays pending), zemStatusOk. */
ZEM_API zemStatus zemsEncodeZfpFlush_32f(zemZfpState* pState);

/* Compresses one 4x4x4 block of floats and appends it to the stream. Value (x, y, z) is read
 * from (const uint8_t*)pSrc + z * srcPlaneStep + y * srcStep + 4 x: rows of four contiguous
 * values, signed byte strides (negative ones walk upward). Values must be finite. The bits equal
 * libzfp's for the same block and parameters (for blocks whose largest magnitude is at least
 * 2^-97). Statuses: zemStatusNullPtr (pSrc, then pState), zemStatusContextMismatch,
 * zemStatusStreamEnd (a whole 64-bit word did not fit: the stream is unusable from there on and
 * must be restarted with Init on a larger buffer), zemStatusOk. */
ZEM_API zemStatus zemsEncodeZfp444_32f(const float* pSrc, int32_t srcStep, int32_t srcPlaneStep, zemZfpState* pState);

/* Decodes the next 4x4x4 block of the stream, which must be driven with the parameters and the
 * block order of its encoder. Value (x, y, z) is written to (uint8_t*)pDst + z * dstPlaneStep +
 * y * dstStep + 4 x. Blocks whose largest magnitude was below 2^-97 decode to zeros. Note that the state
 * comes first here. Statuses: zemStatusNullPtr (pDst, then pState), zemStatusContextMismatch,
 * zemStatusStreamEnd (the input ended inside the block or its padding; an empty block has
 * been zeroed, a coded one is not written), zemStatusOk. */
ZEM_API zemStatus zemsDecodeZfp444_32f(zemZfpState* pState, float* pDst, int32_t dstStep, int32_t dstPlaneStep);

/* Decode-side names of the same operations (the same functions under a second name). The size
 * queries report how many input bytes the decoder has fetched, pending bits included. */
ZEM_API zemStatus zemsDecodeZfpGetStateSize_32f(int32_t* pStateSize);
ZEM_API zemStatus zemsDecodeZfpInit_32f(uint8_t* pBuf, int32_t bufLen, zemZfpState* pState);
ZEM_API zemStatus zemsDecodeZfpInitLong_32f(uint8_t* pBuf, int64_t bufLen, zemZfpState* pState);
ZEM_API zemStatus zemsDecodeZfpSet_32f(int32_t minBits, int32_t maxBits, int32_t maxPrec, int32_t minExp,
                                       zemZfpState* pState);
ZEM_API zemStatus zemsDecodeZfpSetAccuracy_32f(double tolerance, zemZfpState* pState);
ZEM_API zemStatus zemsDecodeZfpGetDecompressedSize_32f(const zemZfpState* pState, int32_t* pSize);
ZEM_API zemStatus zemsDecodeZfpGetDecompressedSizeLong_32f(const zemZfpState* pState, uint64_t* pSize);

#ifdef __cplusplus
}
#endif

#endif /* ZEMDC_H */
