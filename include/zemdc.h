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

/* Worst-case block size: the unbounded encoders (zemsEncodeLZ4_8u, zemsEncodeLZ4Fast_8u,
 * zemsEncodeLZ4Dict_8u) do not check their output, so the caller provides at least
 * ZEM_LZ4_BOUND(srcLen) = srcLen + srcLen / 255 + 16 bytes (every byte a literal, its extension
 * bytes, the token and room for wide stores). See docs/lz4.md. */
#define ZEM_LZ4_BOUND(srcLen) ((srcLen) + (srcLen) / 255 + 16)

/* Decodes one LZ4 block of srcLen bytes at src into dst. *pDstLen holds the capacity on entry and
 * receives the bytes produced. Matches may not reach before dst.
 * Statuses: zemStatusNullPtr, zemStatusSize (srcLen or capacity below 1, or a match length that
 * overflows 32 bits), zemStatusError (a match before dst; nothing written back),
 * zemStatusDstTooSmall (output full: *pDstLen is what fit), zemStatusSrcTooShort (the block is cut
 * short; also a 1-byte input, reported with 0 bytes produced), zemStatusOk. */
ZEM_API zemStatus zemsDecodeLZ4_8u(const uint8_t* src, int32_t srcLen, uint8_t* dst, int32_t* pDstLen);

/* Decodes one LZ4 block whose matches may reach into history. *pSrcLen: input length in, bytes
 * consumed out. Output starts at dst + dstIdx; *pDstLen: capacity in, bytes produced out (both
 * counted from dst + dstIdx). The history is chosen in this order:
 *  - pDict null or dictLen 0: none; matches may not reach before dst + dstIdx;
 *  - pDict + dictLen == dst + dstIdx: the dictLen bytes right before the output are history;
 *  - otherwise a separate dictionary of dictLen (>= 1) bytes stands for the first dictLen bytes of
 *    dst: a match byte at position i < dictLen of dst is read from pDict[i], never from dst.
 *    Pass dstIdx >= dictLen (dictLen plus the earlier output kept in dst).
 * Statuses as zemsDecodeLZ4_8u; the counts are written on zemStatusOk, zemStatusSrcTooShort and
 * zemStatusDstTooSmall. */
ZEM_API zemStatus zemsDecodeLZ4Dict_8u(const uint8_t* src, int32_t* pSrcLen, uint8_t* dst, int32_t dstIdx,
                                       int32_t* pDstLen, const uint8_t* pDict, int32_t dictLen);

/* Stores the size of the encoders' hash table, 16384 bytes, in *pSize.
 * Statuses: zemStatusNullPtr, zemStatusOk. */
ZEM_API zemStatus zemsEncodeLZ4HashTableGetSize_8u(int32_t* pSize);

/* Zeroes the part of the hash table that an input of srcLen bytes uses (16384 bytes from 65536
 * bytes on, else 8192). The encoders clear the table themselves; this is for other uses.
 * Statuses: zemStatusNullPtr, zemStatusSize (srcLen below 1), zemStatusOk. */
ZEM_API zemStatus zemsEncodeLZ4HashTableInit_8u(uint8_t* pHashTable, int32_t srcLen);

/* Encodes srcLen bytes at src as one LZ4 block at dst and stores its size in *pDstLen (not read
 * on entry). The output is not bounded: provide ZEM_LZ4_BOUND(srcLen) bytes. pHashTable is the
 * caller's 16384-byte table; it is cleared first, before the other pointers are checked.
 * Statuses: zemStatusNullPtr, zemStatusSize (srcLen below 1), zemStatusOk. */
ZEM_API zemStatus zemsEncodeLZ4_8u(const uint8_t* src, int32_t srcLen, uint8_t* dst, int32_t* pDstLen,
                                   uint8_t* pHashTable);

/* As zemsEncodeLZ4_8u, but never writes past the output capacity. *pSrcLen: input length in,
 * bytes consumed out; *pDstLen: capacity in, bytes written out. When the output is too small the
 * block ends early and is a complete block of the consumed prefix.
 * Statuses: zemStatusNullPtr, zemStatusSize (length or capacity below 1), zemStatusDstTooSmall
 * (only a prefix was encoded), zemStatusOk. */
ZEM_API zemStatus zemsEncodeLZ4Safe_8u(const uint8_t* src, int32_t* pSrcLen, uint8_t* dst, int32_t* pDstLen,
                                       uint8_t* pHashTable);

/* As zemsEncodeLZ4_8u with an acceleration: 1 is exactly zemsEncodeLZ4_8u; larger values probe
 * fewer positions (faster, larger output). Unbounded output: provide ZEM_LZ4_BOUND(srcLen) bytes.
 * Statuses: zemStatusNullPtr, zemStatusSize (srcLen below 1), zemStatusBadMode (acceleration
 * below 1), zemStatusOk. */
ZEM_API zemStatus zemsEncodeLZ4Fast_8u(const uint8_t* src, int32_t srcLen, uint8_t* dst, int32_t* pDstLen,
                                       uint8_t* pHashTable, int32_t acceleration);

/* Zeroes the whole 16384-byte table of the dictionary encoders.
 * Statuses: zemStatusNullPtr, zemStatusSize (srcLen below 1), zemStatusOk. */
ZEM_API zemStatus zemsEncodeLZ4DictHashTableInit_8u(uint8_t* pHashTable, int32_t srcLen);

/* Enters every third position of a dictionary of dictLen bytes into the dictionary table
 * (position p of the dictionary as p). Dictionaries of fewer than 9 bytes load nothing.
 * Statuses: zemStatusNullPtr, zemStatusSize (dictLen below 1), zemStatusOk. */
ZEM_API zemStatus zemsEncodeLZ4LoadDict_8u(uint8_t* pHashTable, const uint8_t* pDict, int32_t dictLen);

/* Encodes srcLen bytes at src as one LZ4 block whose matches may reach into history, and stores
 * its size in *pDstLen. srcIdx counts the history: with pDict null or dictLen 0 (or pDict +
 * srcIdx == src with srcIdx == dictLen) the srcIdx bytes right before src; otherwise the
 * separate dictionary pDict of dictLen bytes, whose last byte stands for the byte before src
 * (pass srcIdx == dictLen, and decode with zemsDecodeLZ4Dict_8u and dstIdx == dictLen).
 * pHashTable persists between the blocks of a stream: a positive srcIdx keeps it, lowering every
 * entry above srcIdx - 1 (so a table of an earlier stream is safe), otherwise it is zeroed; this
 * step comes first. The output is not bounded: provide ZEM_LZ4_BOUND(srcLen) bytes.
 * Statuses: zemStatusNullPtr, zemStatusSize (srcLen below 1, dictLen negative), zemStatusBadArg
 * (srcIdx negative), zemStatusOk. */
ZEM_API zemStatus zemsEncodeLZ4Dict_8u(const uint8_t* src, int32_t srcIdx, int32_t srcLen, uint8_t* dst,
                                       int32_t* pDstLen, uint8_t* pHashTable, const uint8_t* pDict,
                                       int32_t dictLen);

/* As zemsEncodeLZ4Dict_8u with in/out lengths and a bounded output, as zemsEncodeLZ4Safe_8u;
 * its table step lowers entries above srcIdx (not srcIdx - 1) to srcIdx.
 * Statuses: zemStatusNullPtr, zemStatusSize, zemStatusBadArg, zemStatusDstTooSmall, zemStatusOk. */
ZEM_API zemStatus zemsEncodeLZ4DictSafe_8u(const uint8_t* src, int32_t srcIdx, int32_t* pSrcLen, uint8_t* dst,
                                           int32_t* pDstLen, uint8_t* pHashTable, const uint8_t* pDict,
                                           int32_t dictLen);

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
 * In the compact layout the entry that such a one-bit code leaves unreached is not written and
 * keeps what the record held. A block without distance codes gets no distance table: the decoder
 * refuses any length in it as malformed data, whatever the record held. Longest codes of at most 11 (literal/length) and 10 (distance) bits get the compact layout
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

/* The state of one zfp bit stream: an opaque record of exactly 576 bytes (the size that
 * zemsEncodeZfpGetStateSize_32f reports), allocated by the caller. One record serves either
 * direction; it holds a pointer into the bound buffer, no other memory. */
typedef struct zemZfpState zemZfpState;

/* Worst-case stream size in bytes for nBlocks blocks under the parameters minBits and maxBits of
 * zemsEncodeZfpSet_32f: a block takes at most max(minBits, 9, min(maxBits, 2217)) bits, and the
 * flush adds at most 8 bytes. Fixed rate r bits per value: ZEM_ZFP_BOUND(nBlocks, 64 * r, 64 * r);
 * Init's defaults: ZEM_ZFP_BOUND(nBlocks, 0, 4171). See docs/zfp.md. */
#define ZEM_ZFP_BLOCK_BITS(minBits, maxBits) \
    ((minBits) > ((maxBits) < 2217 ? ((maxBits) > 9 ? (maxBits) : 9) : 2217) \
         ? (minBits)                                                           \
         : ((maxBits) < 2217 ? ((maxBits) > 9 ? (maxBits) : 9) : 2217))
#define ZEM_ZFP_BOUND(nBlocks, minBits, maxBits) \
    ((uint64_t)(nBlocks) * (uint64_t)ZEM_ZFP_BLOCK_BITS(minBits, maxBits) / 8 + 8)

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

/* ------------------------------------------------------------------------------------------- */
/* Deflate compression                                                                         */
/* ------------------------------------------------------------------------------------------- */

/* The pieces of a DEFLATE compressor whose stream layer the caller keeps (see docs/deflate.md):
 * hash-chain upkeep, LZ77 match finders that turn input into records (a literal, or a length
 * and distance), Huffman emission of records, and the codes and dynamic block headers.
 *
 * Positions are the caller's numbering of the stream; the head table holds one position per
 * hash value, the prev table links a position (masked with winSize - 1) to the previous one of
 * the same hash. Level 0 uses the three-byte running hash and the head table only; every other
 * level hashes four bytes with CRC-32C and keeps both tables. */

/* A (code, length) pair of a Huffman code table: code holds the code bit-reversed, its first bit
 * in bit 0, as the bits go into the stream. */
typedef struct zemDeflateHuffCode {
    uint16_t code;
    uint16_t len;
} zemDeflateHuffCode;

/* Flush values of the match finders. NoFlush keeps 262 bytes of lookahead unparsed (more input
 * follows, so no match is cut by the end of what was given); the others parse everything. */
enum {
    zemDeflateNoFlush = 0,
    zemDeflateSyncFlush = 1,
    zemDeflateFullFlush = 2,
    zemDeflateFinish = 3
};

/* Bytes of the work area of zemsDeflateLZ77Slow_8u. */
#define ZEM_DEFLATE_SLOW_WORK_SIZE 4096

/* Enters the positions srcIdx.. of the run pSrc[0..srcLen) into the tables: at level 0 the
 * srcLen - 2 positions whose three bytes lie in the run (head table only, running hash), at any
 * other level (negative ones included) the srcLen - 3 positions whose four bytes lie in the run
 * (head and prev). Positions go in increasing order; nothing is cleared.
 * Statuses: zemStatusNullPtr (pSrc, pHashHead, pHashPrev; the prev table also at level 0),
 * zemStatusSize (winSize outside 256..32768, hashSize outside 256..65536; both must be powers of
 * two, which is not checked), zemStatusOk (also, with nothing written, for srcLen below 3 at
 * level 0 or below 4 otherwise). */
ZEM_API zemStatus zemsDeflateUpdateHash_8u(const uint8_t* pSrc, uint32_t srcIdx, uint32_t srcLen,
                                           uint32_t* pHashHead, uint32_t hashSize, uint32_t* pHashPrev,
                                           uint32_t winSize, int32_t comprLevel);

/* Loads a preset dictionary: copies its last min(winSize, dictLen) = n bytes to pWindow[0..n)
 * and, when n is at least 258, enters the positions 0..n - 258 (window offsets) into the tables:
 * below level 1 with the level-0 scheme, otherwise with the chained one (prev indexed by the
 * position itself). The last 257 bytes are not entered; a caller who wants them enters them with
 * zemsDeflateUpdateHash_8u.
 * Statuses: zemStatusNullPtr (pDict, pHashHead, pHashPrev, pWindow), zemStatusSize (as
 * zemsDeflateUpdateHash_8u), zemStatusOk (also, with nothing written, for dictLen below 3 at
 * level 0 or 4 otherwise). */
ZEM_API zemStatus zemsDeflateDictionarySet_8u(const uint8_t* pDict, uint32_t dictLen, uint32_t* pHashHead,
                                              int32_t hashSize, uint32_t* pHashPrev, uint8_t* pWindow,
                                              uint32_t winSize, int32_t comprLevel);

/* Writes srcLen records as DEFLATE codes: record i is the literal pLitLen[i] when pDist[i] is 0,
 * else a match of length pLitLen[i] + 3 at distance pDist[i] (1..32768). The pending bits come
 * in as *pCode holding *pCodeLenBits (at most 16) bits and leave as fewer than 8; everything
 * else goes to pDst from byte *pDstIdx on, which advances. Whole 32-bit words are stored, so the
 * caller provides room for 6 bytes per record plus 4 (no length is passed). No end-of-block code
 * is written; a symbol whose code length is 0 is written as nothing.
 * Statuses: zemStatusNullPtr (any pointer), zemStatusOk. */
ZEM_API zemStatus zemsDeflateHuff_8u(const uint8_t* pLitLen, const uint16_t* pDist, uint32_t srcLen,
                                     uint16_t* pCode, uint32_t* pCodeLenBits,
                                     const zemDeflateHuffCode* pLitCodeTable,
                                     const zemDeflateHuffCode* pDistCodeTable, uint8_t* pDst,
                                     uint32_t* pDstIdx);

/* The match finders. They parse from *ppSrc (stream position *pSrcIdx; the bytes from pWindow up
 * to it are history, of which at most winSize bytes are reached back into) into records
 * (pLitLen, pDist as zemsDeflateHuff_8u takes them; *pDstLen is the record room in and the
 * records written out) and add the symbols of the records to pLitFreq[286] and pDistFreq[30]
 * (the end-of-block symbol is left to the caller). They hash as zemsDeflateUpdateHash_8u does at
 * levels 1..9 and enter the positions they pass, so the three mix on one stream. Table entries
 * that are stale or garbage are checked against distance and history before anything is read.
 * comprLevel 1..9 chooses the search effort. Under zemDeflateNoFlush they stop while 262 bytes
 * remain, under the other flush values they parse everything; a call ends on a record boundary
 * and keeps nothing but the tables.
 *   Fast: the greedy parse. LZ77: the lazy parse (a match at the next position that is
 *   longer, and worth its distance, wins). Slow: lazy over two positions ahead with deeper
 *   searches, and three-byte matches within the last 512 bytes where no longer match is found
 *   and the symbol counts of the call so far price one below its three literals (the counts in
 *   pLitFreq and pDistFreq on entry are not used); pWork is a work area of
 *   ZEM_DEFLATE_SLOW_WORK_SIZE bytes (checked, and reserved: the present parse does not touch
 *   it).
 * Statuses: zemStatusNullPtr (any pointer argument, then *ppSrc), zemStatusSize (winSize or
 * hashSize as in zemsDeflateUpdateHash_8u, *pDstLen 0, pWindow after *ppSrc), zemStatusBadArg
 * (comprLevel outside 1..9, flush outside 0..3), zemStatusOk (everything that may be parsed was),
 * zemStatusDstTooSmall (the record room ran out first; *ppSrc, *pSrcLen, *pSrcIdx name the
 * first byte not parsed). */
ZEM_API zemStatus zemsDeflateLZ77Fast_8u(const uint8_t** ppSrc, uint32_t* pSrcLen, uint32_t* pSrcIdx,
                                         const uint8_t* pWindow, uint32_t winSize, uint32_t* pHashHead,
                                         uint32_t* pHashPrev, uint32_t hashSize, uint8_t* pLitLen, uint16_t* pDist,
                                         uint32_t* pDstLen, uint32_t* pLitFreq, uint32_t* pDistFreq,
                                         int32_t comprLevel, int32_t flush);
ZEM_API zemStatus zemsDeflateLZ77_8u(const uint8_t** ppSrc, uint32_t* pSrcLen, uint32_t* pSrcIdx,
                                     const uint8_t* pWindow, uint32_t winSize, uint32_t* pHashHead,
                                     uint32_t* pHashPrev, uint32_t hashSize, uint8_t* pLitLen, uint16_t* pDist,
                                     uint32_t* pDstLen, uint32_t* pLitFreq, uint32_t* pDistFreq, int32_t comprLevel,
                                     int32_t flush);
ZEM_API zemStatus zemsDeflateLZ77Slow_8u(const uint8_t** ppSrc, uint32_t* pSrcLen, uint32_t* pSrcIdx,
                                         const uint8_t* pWindow, uint32_t winSize, uint32_t* pHashHead,
                                         uint32_t* pHashPrev, uint32_t hashSize, uint8_t* pLitLen, uint16_t* pDist,
                                         uint32_t* pDstLen, uint32_t* pLitFreq, uint32_t* pDistFreq,
                                         int32_t comprLevel, int32_t flush, uint8_t* pWork);

/* Builds length-limited (15 bits) canonical Huffman codes, bit-reversed, from symbol counts:
 * pLitStat[286] and pDistStat[30] (the caller counts the end-of-block symbol). The symbols with a
 * nonzero count get codes, the others length 0; each code gets at least two symbols (the lowest
 * unused ones are added), so every decoder accepts the tables. A caller who needs every symbol
 * coded adds one to each count first.
 * Statuses: zemStatusNullPtr (any pointer), zemStatusOk. */
ZEM_API zemStatus zemsDeflateLZ77FastestGenHuffTable_8u(const uint32_t* pLitStat, const uint32_t* pDistStat,
                                                        zemDeflateHuffCode* pLitCodes,
                                                        zemDeflateHuffCode* pDistCodes);

/* Writes the dynamic block header that follows BFINAL and BTYPE for the code lengths of
 * pLitCodes[286] and pDistCodes[30]: HLIT, HDIST, HCLEN, the code-length code and the lengths in
 * its run-length form, least significant bit first. *pDstLen: room in, bytes written out (the
 * last one zero-padded); *pDstBits: the header's exact length in bits (at most 2,400, so 300
 * bytes always suffice).
 * Statuses: zemStatusNullPtr (any pointer), zemStatusBadArg (a code length above 15),
 * zemStatusOk, zemStatusDstTooSmall (the header does not fit; nothing is written). */
ZEM_API zemStatus zemsDeflateLZ77FastestGenHeader_8u(const zemDeflateHuffCode* pLitCodes,
                                                     const zemDeflateHuffCode* pDistCodes, uint8_t* pDstHeader,
                                                     uint32_t* pDstLen, uint32_t* pDstBits);

/* The single-pass path: one probe of a head table per position, a match taken from four equal
 * bytes on, each literal or match written at once as Huffman bits with the caller's codes. The
 * table is keyed by a hash of the four bytes at a position (into the largest power of two within
 * hashSize entries), not by the three-byte hash of zemsDeflateUpdateHash_8u at level 0: a
 * preset dictionary is entered by running GetStat over it (its counts thrown away). The stream
 * model is the finders' (history from pWindow, at most winSize back, positions in the caller's
 * numbering, table entries checked before they are followed, so a table from any other source
 * costs matches, never a wrong read); positions inside long matches and inside long literal runs
 * are not all entered. Under zemDeflateNoFlush the last 262 bytes given are left for the next
 * call; the other flush values parse everything given. */

/* Input bytes per block of zemsDeflateLZ77FastestPrecompHeader_8u. */
#define ZEM_DEFLATE_PRECOMP_BLOCK_SIZE 65536
/* The longest dynamic header zemsDeflateLZ77FastestGenHeader_8u writes, in bits. */
#define ZEM_DEFLATE_MAX_HEADER_BITS 2400

/* Parses *pSrcLen bytes at *ppSrc (stream position *pSrcIdx) and writes them as literal and
 * length/distance codes of pLitCodes[286] and pDistCodes[30] into pDst: *pDstLen is the room in
 * and the bytes written out. The pending bits come in as *pCode holding *pCodeLenBits (at most
 * 16) bits and leave as fewer than 8, first bit in bit 0. No block header and no end-of-block
 * code are written: the caller opens and closes the block. Every symbol the parse emits needs a
 * code: the fixed code, codes from zemsDeflateLZ77FastestGenHuffTable_8u over GetStat's counts of
 * the same parse (same table contents, history, input and flush), or over counts with one added
 * to each. A record is written only while at least 8 bytes of room remain (it goes out in one
 * 8-byte store), so nothing is ever stored past the capacity.
 * Statuses: zemStatusNullPtr (any pointer argument, then *ppSrc), zemStatusSize (winSize or
 * hashSize as zemsDeflateUpdateHash_8u, pWindow after *ppSrc, *pCodeLenBits above 16),
 * zemStatusBadArg (flush outside 0..3), zemStatusOk (everything that may be parsed was),
 * zemStatusDstTooSmall (the room ran out on a record boundary; the in/out values say where:
 * call again with more room). */
ZEM_API zemStatus zemsDeflateLZ77Fastest_8u(const uint8_t** ppSrc, uint32_t* pSrcLen, uint32_t* pSrcIdx,
                                            const uint8_t* pWindow, uint32_t winSize, uint32_t* pHashHead,
                                            uint32_t hashSize, const zemDeflateHuffCode* pLitCodes,
                                            const zemDeflateHuffCode* pDistCodes, uint8_t* pDst, uint32_t* pDstLen,
                                            uint16_t* pCode, uint32_t* pCodeLenBits, int32_t flush);

/* The parse of zemsDeflateLZ77Fastest_8u, counting its symbols into pLitStat[286] and
 * pDistStat[30] (added to, never cleared; the end-of-block symbol is the caller's) instead of
 * writing them. It enters positions into the head table exactly as Fastest does, so to make
 * Fastest repeat this parse give GetStat a copy of the table. Counting a sample (a part of the
 * input) and adding one to every count gives codes that serve any parse.
 * Statuses: zemStatusNullPtr (any pointer argument, then *ppSrc), zemStatusSize (as Fastest),
 * zemStatusBadArg (flush outside 0..3), zemStatusOk. */
ZEM_API zemStatus zemsDeflateLZ77FastestGetStat_8u(const uint8_t** ppSrc, uint32_t* pSrcLen, uint32_t* pSrcIdx,
                                                   const uint8_t* pWindow, uint32_t winSize, uint32_t* pHashHead,
                                                   uint32_t hashSize, uint32_t* pLitStat, uint32_t* pDistStat,
                                                   int32_t flush);

/* Fastest over whole blocks of ZEM_DEFLATE_PRECOMP_BLOCK_SIZE input bytes, each opened with
 * BFINAL, BTYPE 2 and the caller's dynamic header (headerBits bits at pHeader, least significant
 * first: what zemsDeflateLZ77FastestGenHeader_8u wrote for pLitCodes and pDistCodes) and closed
 * with the end-of-block code; no match crosses a block's end. *pBlockLeft (0 at the start of a
 * stream) carries the open block across calls: the input still to go into it, with bit 31 set
 * when it was opened as the final block; 0 when no block is open; 0x80000000 once the stream is
 * complete, after which calls do nothing. A block is opened as final under zemDeflateFinish when
 * the input left fits in it. Under zemDeflateFinish, once all input is parsed, the stream is
 * completed: a block opened as not final is closed and an empty final block with the fixed code
 * follows (so an empty input gives that block alone), and the last byte is padded and written
 * (*pCodeLenBits is then 0). Under the other flush values a block stays open across calls.
 * Statuses: zemStatusNullPtr (any pointer argument, then *ppSrc), zemStatusSize (as Fastest, and
 * headerBits 0 or above ZEM_DEFLATE_MAX_HEADER_BITS), zemStatusBadArg (flush outside 0..3, a
 * block left above ZEM_DEFLATE_PRECOMP_BLOCK_SIZE), zemStatusOk, zemStatusDstTooSmall (as
 * Fastest; a block is opened only with room for its header). */
ZEM_API zemStatus zemsDeflateLZ77FastestPrecompHeader_8u(
    const uint8_t** ppSrc, uint32_t* pSrcLen, uint32_t* pSrcIdx, const uint8_t* pWindow, uint32_t winSize,
    uint32_t* pHashHead, uint32_t hashSize, const zemDeflateHuffCode* pLitCodes, const zemDeflateHuffCode* pDistCodes,
    uint8_t* pDst, uint32_t* pDstLen, uint16_t* pCode, uint32_t* pCodeLenBits, int32_t flush, const uint8_t* pHeader,
    uint32_t headerBits, uint32_t* pBlockLeft);

/* ------------------------------------------------------------------------------------------- */
/* Block sorting (bzip2)                                                                       */
/* ------------------------------------------------------------------------------------------- */

/* The stages of a bzip2-compatible block compressor, each usable on its own; docs/blocksort.md
 * shows the pipeline in both directions. Compression: run-length coding (zemsEncodeRLE_BZ2_8u),
 * block sort, dictionary reduction, move-to-front, zero-run coding, Huffman coding. Decompression
 * runs the inverses in reverse order, or zemsDecodeBlock_BZ2_16u8u for the middle three at once. */

/* The run-length state, 264 bytes (zemsRLEGetSize_BZ2_8u), opaque; one record serves either
 * direction, prepared by the Init of the direction it is used in. */
typedef struct zemRLEState_BZ2 zemRLEState_BZ2;

/* Stores the size of a zemRLEState_BZ2, 264 bytes, in *pSize.
 * Statuses: zemStatusNullPtr, zemStatusOk. */
ZEM_API zemStatus zemsRLEGetSize_BZ2_8u(int32_t* pSize);

/* Prepares *pState for encoding: empty in-use table, no previous byte, no open run.
 * Statuses: zemStatusNullPtr, zemStatusOk. */
ZEM_API zemStatus zemsEncodeRLEInit_BZ2_8u(zemRLEState_BZ2* pState);

/* The first run-length coding of bzip2: a run of 4..259 equal bytes b becomes b b b b and a count
 * byte (run length - 4); longer runs are cut after 259 bytes. Consumes *pSrcLen bytes at *ppSrc
 * (both advanced by what was consumed) into pDst; *pDstLen: capacity in, bytes written out. A run
 * may span calls: its count byte is written when a different byte follows, when it reaches 259,
 * or by zemsEncodeRLEFlush_BZ2_8u. Every value written (literals and counts) is marked in the
 * state's in-use table.
 * Statuses: zemStatusNullPtr (ppSrc, pDst, pSrcLen, pDstLen, then *ppSrc, pState), zemStatusSize
 * (*pSrcLen < 1, then *pDstLen < 1), zemStatusDstTooSmall (output full with input left: call again
 * with fresh output), zemStatusOk (all input consumed). */
ZEM_API zemStatus zemsEncodeRLE_BZ2_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t* pDst, int32_t* pDstLen,
                                       zemRLEState_BZ2* pState);

/* Ends a block: writes the count byte of an open run of four or more (one byte) and closes it;
 * otherwise writes nothing. *pDstLen: capacity in, bytes written (0 or 1) out. The previous byte
 * is kept. Statuses: zemStatusNullPtr, zemStatusSize (*pDstLen < 1), zemStatusOk. */
ZEM_API zemStatus zemsEncodeRLEFlush_BZ2_8u(uint8_t* pDst, int32_t* pDstLen, zemRLEState_BZ2* pState);

/* Copies the encoder's 256-entry in-use table (1 for every byte value written since Init, else 0)
 * to pInUse; the two may overlap. Statuses: zemStatusNullPtr, zemStatusOk. */
ZEM_API zemStatus zemsRLEGetInUseTable_8u(uint8_t* pInUse, const zemRLEState_BZ2* pState);

/* Prepares *pState for decoding: nothing owed, no run under way.
 * Statuses: zemStatusNullPtr, zemStatusOk. */
ZEM_API zemStatus zemsDecodeRLEStateInit_BZ2_8u(zemRLEState_BZ2* pState);

/* Undoes zemsEncodeRLE_BZ2_8u: copies bytes, and after four equal ones reads the next byte as a
 * count of further copies. Both pointers are advanced and both lengths decreased by what was
 * consumed and produced. Any split of the input and output gives the same bytes as one call:
 * the state carries a run header cut by the end of the input and the copies that did not fit.
 * Statuses: zemStatusNullPtr (ppSrc, pSrcLen, ppDst, pDstLen, then *ppSrc, *ppDst, pState),
 * zemStatusSize (*pSrcLen < 1, then *pDstLen < 1), zemStatusDstTooSmall (the output filled first,
 * or copies are still owed: call again, or zemsDecodeRLEStateFlush_BZ2_8u once the input is
 * used up), zemStatusOk (all input consumed, nothing owed). */
ZEM_API zemStatus zemsDecodeRLEState_BZ2_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst,
                                            int32_t* pDstLen, zemRLEState_BZ2* pState);

/* Writes the copies still owed at the end of the input, advancing *ppDst and decreasing
 * *pDstLen. No length check: a zero capacity with copies owed gives zemStatusDstTooSmall.
 * Statuses: zemStatusNullPtr (pState, ppDst, pDstLen, then *ppDst), zemStatusDstTooSmall (only
 * *pDstLen copies fitted; call again), zemStatusOk. */
ZEM_API zemStatus zemsDecodeRLEStateFlush_BZ2_8u(zemRLEState_BZ2* pState, uint8_t** ppDst, int32_t* pDstLen);

/* Dictionary reduction: renumbers the byte values in use densely. pInUse is a 256-entry table of
 * 0 and 1 (as zemsRLEGetInUseTable_8u gives); each of the len bytes at pSrcDst, x, becomes the
 * number of values in use below x, and *pSizeDictionary receives the number of values in use.
 * Statuses: zemStatusNullPtr (pInUse, pSrcDst, pSizeDictionary), zemStatusSize (len < 1),
 * zemStatusOk. */
ZEM_API zemStatus zemsReduceDictionary_8u_I(const uint8_t* pInUse, uint8_t* pSrcDst, int32_t len,
                                            uint32_t* pSizeDictionary);

/* Dictionary expansion, the inverse: each byte k becomes the k-th value in use (from 0). A byte
 * at or beyond sizeDictionary becomes an unspecified byte value.
 * Statuses: zemStatusNullPtr (pInUse, pSrcDst), zemStatusSize (len < 1 or sizeDictionary < 1),
 * zemStatusError (sizeDictionary differs from the number of values in use; the buffer is not
 * touched), zemStatusOk. */
ZEM_API zemStatus zemsExpandDictionary_8u_I(const uint8_t* pInUse, uint8_t* pSrcDst, int32_t len,
                                            int32_t sizeDictionary);

/* The move-to-front list, 256 bytes (zemsMTFGetSize_8u), opaque; kept by the caller between calls
 * so that a block may be coded in pieces. */
typedef struct zemMTFState_8u zemMTFState_8u;

/* Stores the size of a zemMTFState_8u, 256 bytes, in *pSize.
 * Statuses: zemStatusNullPtr, zemStatusOk. */
ZEM_API zemStatus zemsMTFGetSize_8u(int32_t* pSize);

/* Sets the list to the order 0, 1, ..., 255. Statuses: zemStatusNullPtr, zemStatusOk. */
ZEM_API zemStatus zemsMTFInit_8u(zemMTFState_8u* pState);

/* Move-to-front coding: each of the len bytes at pSrc is written to pDst as its position in the
 * list, and then moved to the front. pSrc and pDst may be the same buffer.
 * Statuses: zemStatusNullPtr (pSrc, pDst, pState), zemStatusSize (len < 1), zemStatusOk. */
ZEM_API zemStatus zemsMTFFwd_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len, zemMTFState_8u* pState);

/* Move-to-front decoding: each position at pSrc is written to pDst as the byte at that position
 * of the list, which is then moved to the front. pSrc and pDst may be the same buffer.
 * Statuses: zemStatusNullPtr (pSrc, pDst, pState), zemStatusSize (len < 1), zemStatusOk. */
ZEM_API zemStatus zemsMTFInv_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len, zemMTFState_8u* pState);

/* Zero-run coding of move-to-front positions into the 16-bit symbols of a bzip2 block: a run of
 * z zeros becomes the bijective base-2 digits of z, least significant first (0 = RUNA for digit
 * 1, 1 = RUNB for digit 2), and a position m of 1..255 the symbol m + 1. pFreq (at least 257
 * counters, symbols 0..256) is added to, one for every symbol written, and never cleared; the
 * end-of-block symbol is the caller's. *ppSrc and *pSrcLen: the positions, advanced by what was
 * consumed; *pDstLen: capacity in symbols in, symbols written out. A run of zeros is not carried
 * from one call to the next: pass whole blocks, or split them only before a nonzero position.
 * When the output fills, a run is coded only as far as the remaining places hold (at most
 * 2^(k+1) - 2 zeros in k places) and the rest of it stays unconsumed.
 * Statuses: zemStatusNullPtr (ppSrc, pDst, pSrcLen, pDstLen, then *ppSrc, pFreq), zemStatusSize
 * (*pSrcLen < 1, then *pDstLen < 1), zemStatusDstTooSmall (input left), zemStatusOk. */
ZEM_API zemStatus zemsEncodeZ1Z2_BZ2_8u16u(const uint8_t** ppSrc, int32_t* pSrcLen, uint16_t* pDst,
                                           int32_t* pDstLen, uint32_t* pFreq);

/* Zero-run decoding: a symbol s >= 2 becomes the byte s - 1; a sequence of 0/1 symbols is read
 * as one run of zeros. A run that does not fit the remaining output is not consumed (the input
 * stays at its first digit). *ppSrc and *pSrcLen advanced by the symbols consumed; *pDstLen: capacity
 * in, bytes written out.
 * Statuses: zemStatusNullPtr (ppSrc, pSrcLen, pDst, pDstLen, then *ppSrc), zemStatusSize
 * (*pSrcLen < 1, then *pDstLen < 1), zemStatusDstTooSmall (input left), zemStatusOk. */
ZEM_API zemStatus zemsDecodeZ1Z2_BZ2_16u8u(const uint16_t** ppSrc, int32_t* pSrcLen, uint8_t* pDst,
                                           int32_t* pDstLen);

/* Stores the work buffer size of zemsBWTInv_8u for blocks of len bytes, len * 4 + 1024 (32-bit
 * arithmetic), in *pSize. Statuses: zemStatusNullPtr, zemStatusSize (len < 1), zemStatusOk. */
ZEM_API zemStatus zemsBWTInvGetSize_8u(int32_t len, uint32_t* pSize);

/* The inverse Burrows-Wheeler transform: from the last column pSrc of the sorted rotations of a
 * block (len bytes) and the row index of the unrotated block, writes the block to pDst. pBuf is a
 * work buffer of the size zemsBWTInvGetSize_8u reports, any alignment; pSrc and pDst must not
 * overlap. Every pSrc of a valid length is inverted, well-formed or not, without access outside
 * the buffers. A negative index is refused like one at or beyond len: the walk would start
 * outside the successor vector.
 * Statuses: zemStatusNullPtr (pSrc, pDst, pBuf), zemStatusSize (len < 1; index < 0 or
 * index >= len), zemStatusOk. */
ZEM_API zemStatus zemsBWTInv_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len, int32_t index, uint8_t* pBuf);

/* Stores the work buffer size of zemsDecodeBlock_BZ2_16u8u for blocks of up to blockSize bytes,
 * blockSize * 4, in *pSize (0 for 0). Statuses: zemStatusNullPtr, zemStatusSize
 * (blockSize > 0xFFFFFF), zemStatusOk. */
ZEM_API zemStatus zemsDecodeBlockGetSize_BZ2_8u(uint32_t blockSize, uint32_t* pSize);

/* Decodes one block's symbols (the Huffman stage's output without the end-of-block symbol:
 * srcLen symbols at pSrc) into the block's bytes before the block sort: zero runs, move-to-front
 * over the dictionary of pInUse (256 entries of 0 and 1; dictSize must be its number of ones) and
 * the inverse transform from row index, in one pass. *pDstLen: the capacity of pDst and of the
 * work buffer (pBuf, 4 bytes per byte of capacity, any alignment) in, the block length out.
 * An in-use table whose count differs from dictSize returns zemStatusOk and writes nothing, not
 * even *pDstLen (kept deliberately). Input that no conforming writer produces is refused with
 * zemStatusError before it can cause an access outside the buffers: a run checked against the
 * capacity before it is stored, a move-to-front position at or beyond dictSize (or any symbol
 * with an empty dictionary), a position that would pass the capacity, and an index at or beyond
 * the decoded length (whose walk would follow entries never linked). *pDstLen then holds the
 * length decoded before the fault; pDst and pBuf hold unspecified bytes.
 * Statuses: zemStatusNullPtr (pSrc, pDst, pDstLen, pInUse, then pBuf), zemStatusSize (srcLen < 1,
 * capacity > 0xFFFFFF, index < 0 or index >= capacity, dictSize > 256), zemStatusError,
 * zemStatusOk. */
ZEM_API zemStatus zemsDecodeBlock_BZ2_16u8u(const uint16_t* pSrc, int32_t srcLen, uint8_t* pDst, uint32_t* pDstLen,
                                            int32_t index, uint32_t dictSize, const uint8_t* pInUse,
                                            uint8_t* pBuf);

/* The Huffman decoding state of one block, opaque; its size comes from
 * zemsDecodeHuffGetSize_BZ2_8u16u (about 40 KiB). Allocate it aligned to 16 bytes (as malloc
 * does). Per block: Init with the block's dictionary size, Unpack the table context, Decode the
 * symbols. The bit stream is read most significant bit first; bits that a call took from the
 * input but did not use cross to the next call in *pCode, *pCodeLenBits of them (0..31),
 * right-aligned, the oldest the most significant. */
typedef struct zemDecodeHuffState_BZ2 zemDecodeHuffState_BZ2;

/* Stores the size of a zemDecodeHuffState_BZ2 in *pSize. The state holds any block of the
 * format (up to 900,000 bytes, 18,002 selectors) whatever wndSize is.
 * Statuses: zemStatusNullPtr, zemStatusSize (wndSize < 1 or > 900000), zemStatusOk. */
ZEM_API zemStatus zemsDecodeHuffGetSize_BZ2_8u16u(int32_t wndSize, int32_t* pSize);

/* Prepares *pState for a block whose dictionary holds sizeDictionary byte values: the alphabet is
 * RUNA (0), RUNB (1), the positions 2..sizeDictionary and the end of the block,
 * sizeDictionary + 1. Statuses: zemStatusNullPtr, zemStatusSize (sizeDictionary < 1 or > 256),
 * zemStatusOk. */
ZEM_API zemStatus zemsDecodeHuffInit_BZ2_8u16u(int32_t sizeDictionary, zemDecodeHuffState_BZ2* pState);

/* Reads the table context that follows a block's in-use bitmap: the table count (2..6), the
 * selector count (at least 1; those beyond 18,002 are read and ignored), the move-to-front coded
 * selectors and the delta-coded code lengths, and builds the decoding tables. Resumable:
 * zemStatusSrcTooShort means the input ran out, all of it taken; call again with more.
 * Statuses: zemStatusNullPtr (pCode, pCodeLenBits, ppSrc, pSrcLen, pState, then *ppSrc),
 * zemStatusSize (*pSrcLen < 0, *pCodeLenBits outside 0..31), zemStatusError (table count,
 * selector count or a selector out of range), zemStatusBadData (a code length outside 1..20, or
 * over-subscribed lengths), zemStatusSrcTooShort, zemStatusOk. */
ZEM_API zemStatus zemsUnpackHuffContext_BZ2_8u16u(uint32_t* pCode, int32_t* pCodeLenBits, const uint8_t** ppSrc,
                                                  int32_t* pSrcLen, zemDecodeHuffState_BZ2* pState);

/* Decodes symbols into pDst (*pDstLen: capacity in, symbols written out) up to the end-of-block
 * symbol, which is not written; the call then returns zemStatusOk with the bits after it left
 * in *pCode and the input. A full output is reported only when a symbol other than the end of the
 * block is waiting, so a capacity of exactly the block's symbols ends with zemStatusOk.
 * Resumable after zemStatusSrcTooShort (all input taken) and zemStatusDstTooSmall. After the
 * end of the block, further calls write nothing and return zemStatusOk.
 * Statuses: zemStatusNullPtr (pCode, pCodeLenBits, ppSrc, pSrcLen, pDst, pDstLen, pState, then
 * *ppSrc), zemStatusSize (*pSrcLen or *pDstLen < 0, *pCodeLenBits outside 0..31), zemStatusError
 * (the context was not unpacked, a bit string no code covers, or more symbols than the selectors
 * cover), zemStatusSrcTooShort, zemStatusDstTooSmall, zemStatusOk. */
ZEM_API zemStatus zemsDecodeHuff_BZ2_8u16u(uint32_t* pCode, int32_t* pCodeLenBits, const uint8_t** ppSrc,
                                           int32_t* pSrcLen, uint16_t* pDst, int32_t* pDstLen,
                                           zemDecodeHuffState_BZ2* pState);

/* ------------------------------------------------------------------------------------------- */
/* Block sorting (bzip2): compression                                                          */
/* ------------------------------------------------------------------------------------------- */

/* The forward block sort of a bzip2-compatible compressor: pDst receives the last column of the
 * sorted rotations of the len bytes at pSrc and *pIndex the row of the unrotated block, exactly
 * what zemsBWTInv_8u inverts. Where several rows hold the unrotated block (a periodic block),
 * *pIndex is the smallest of them. pSrc and pDst must not overlap.
 *
 * The hint picks the sort: zemBWTSortBucket sorts rotations by radix buckets and an 8-byte-key
 * quicksort and hands the block to the suffix sort when its work grows past a fixed multiple of
 * the block; zemBWTSortSuffix uses a linear-time induced suffix sort; zemBWTSortAuto (and
 * zemsBWTFwd_8u) picks the faster of the two for the block (today always the suffix sort). Every
 * hint gives the same output and none goes quadratic: a periodic block is reduced to one period
 * before any sort.
 *
 * The work buffer is sized by the size queries for blocks up to wndSize bytes (any alignment);
 * passing a longer block than the buffer was sized for breaks the contract. */
typedef enum zemBWTSort { zemBWTSortAuto = 0, zemBWTSortBucket = 1, zemBWTSortSuffix = 2 } zemBWTSort;

/* Statuses: zemStatusNullPtr (pSize null), zemStatusSize (wndSize < 1, or so large that the size
 * does not fit in int32_t), zemStatusOk. */
ZEM_API zemStatus zemsBWTFwdGetSize_8u(int32_t wndSize, int32_t* pSize);
/* Statuses: zemStatusNullPtr (pSrc, pDst, pIndex, then pBuf null), zemStatusSize (len < 1),
 * zemStatusOk. */
ZEM_API zemStatus zemsBWTFwd_8u(const uint8_t* pSrc, uint8_t* pDst, int32_t len, int32_t* pIndex,
                                uint8_t* pBuf);
/* Statuses: zemStatusNullPtr (pSize null), zemStatusSize (wndSize 0 or above 0x0FFFFFFF),
 * zemStatusBadArg (hint not one of zemBWTSort), zemStatusOk. Every hint needs the same size. */
ZEM_API zemStatus zemsBWTFwdGetBufSize_SelectSort_8u(uint32_t wndSize, uint32_t* pSize, zemBWTSort hint);
/* Statuses: zemStatusNullPtr (pSrc, pDst, pIndex, then pBuf null), zemStatusSize (len 0 or above
 * 0x0FFFFFFF), zemStatusBadArg (hint not one of zemBWTSort), zemStatusOk. */
ZEM_API zemStatus zemsBWTFwd_SelectSort_8u(const uint8_t* pSrc, uint8_t* pDst, uint32_t len,
                                           uint32_t* pIndex, uint8_t* pBuf, zemBWTSort hint);

/* The Huffman stage of a bzip2-compatible block, encoding side. The block's symbols are the
 * zero-run coder's (0 RUNA, 1 RUNB, m + 1 for a move-to-front position m); with sizeDictionary
 * byte values in use the alphabet has sizeDictionary + 2 symbols, the last the end of the block,
 * which the stage adds itself. Bits are written most significant first; the bits not yet written
 * cross between calls as *pCode holding *pCodeLenBits (0..31) bits, right-aligned, the oldest the
 * most significant, so the caller can write its own fields into the same bit stream before and
 * after. The state is opaque (zemsEncodeHuffGetSize_BZ2_16u8u) and needs no alignment.
 * Order of use per block: Init, Pack, then Encode until it returns zemStatusOk with all the
 * block's symbols given. */
typedef struct zemEncodeHuffState_BZ2 zemEncodeHuffState_BZ2;

/* Stores the size of a zemEncodeHuffState_BZ2 in *pSize; one size serves every block up to the
 * format's largest (900,000 bytes). Statuses: zemStatusNullPtr, zemStatusSize (wndSize outside
 * 1..900000), zemStatusOk. */
ZEM_API zemStatus zemsEncodeHuffGetSize_BZ2_16u8u(int32_t wndSize, int32_t* pSize);

/* Designs the block's coding tables: 2 to 6 of them by the block's length, a table chosen per 50
 * symbols, refined in rounds; code lengths at most 20. pFreqTable holds the counts of symbols
 * 0..sizeDictionary (as zemsEncodeZ1Z2_BZ2_8u16u gathers them; they seed the first tables and need
 * not be exact), pSrc the srcLen symbols of the whole block.
 * Statuses: zemStatusNullPtr (pFreqTable, pSrc, pState), zemStatusSize (srcLen outside
 * 1..899,999 or sizeDictionary outside 1..256), zemStatusError (a symbol at or beyond
 * sizeDictionary + 1; the state then encodes nothing), zemStatusOk. */
ZEM_API zemStatus zemsEncodeHuffInit_BZ2_16u8u(int32_t sizeDictionary, const uint32_t* pFreqTable,
                                               const uint16_t* pSrc, int32_t srcLen,
                                               zemEncodeHuffState_BZ2* pState);

/* Writes the block's table header after the pending bits: the table count (3 bits), the selector
 * count (15 bits), the selectors move-to-front coded in unary, and each table's code lengths,
 * delta coded. *pDstLen: capacity in, bytes written out. The whole header is written or nothing.
 * Statuses: zemStatusNullPtr (pCode, pCodeLenBits, pDst, pDstLen, pState), zemStatusSize
 * (*pDstLen < 1), zemStatusBadArg (*pCodeLenBits outside 0..31), zemStatusDstTooSmall (the header
 * does not fit; nothing written), zemStatusOk. */
ZEM_API zemStatus zemsPackHuffContext_BZ2_16u8u(uint32_t* pCode, int32_t* pCodeLenBits, uint8_t* pDst,
                                                int32_t* pDstLen, zemEncodeHuffState_BZ2* pState);

/* Codes the next *pSrcLen symbols of the block (the state knows how many it has coded, so a block
 * may be given in pieces) and, once the last was given, the end of the block. *ppSrc and *pSrcLen
 * advance by the symbols consumed; *pDstLen: capacity in, bytes written out. *pSrcLen may be 0 to
 * finish a block whose symbols are all given.
 * Statuses: zemStatusNullPtr (pCode, pCodeLenBits, ppSrc, pSrcLen, pDst, pDstLen, pState, then
 * *ppSrc), zemStatusSize (*pSrcLen negative or beyond the block's remaining symbols, then
 * *pDstLen < 1), zemStatusBadArg (*pCodeLenBits outside 0..31), zemStatusDstTooSmall (the output
 * filled: call again with fresh output and the advanced pointers), zemStatusOk (everything given
 * was coded, and the end of the block too once the block is complete). */
ZEM_API zemStatus zemsEncodeHuff_BZ2_16u8u(uint32_t* pCode, int32_t* pCodeLenBits, const uint16_t** ppSrc,
                                           int32_t* pSrcLen, uint8_t* pDst, int32_t* pDstLen,
                                           zemEncodeHuffState_BZ2* pState);

/* ------------------------------------------------------------------------------------------- */
/* LZO                                                                                         */
/* ------------------------------------------------------------------------------------------- */

/* LZO1X streams, interchangeable with liblzo2's lzo1x_* functions in both directions. A stream
 * holds no length: the decoder is told its capacity, and the stream closes with an end marker.
 * See docs/lzo.md for the format, the segmented method and examples. */

/* Worst-case stream size for srcLen input bytes: the encoder refuses a smaller capacity. */
#define ZEM_LZO_BOUND(srcLen) ((srcLen) + (srcLen) / 255 + 16)

/* The segment size of zemLZOSegmented: no match crosses a multiple of it (counted from the
 * input's start). */
#define ZEM_LZO_SEGMENT_SIZE 262144

typedef enum zemLZOMethod {
    zemLZOFast = 0,      /* the fastest parse: one probe per position, greedy */
    zemLZOStrong = 1,    /* a larger table and a lazy choice: smaller output, slower */
    zemLZOSegmented = 2  /* zemLZOStrong within independent segments of ZEM_LZO_SEGMENT_SIZE bytes */
} zemLZOMethod;

/* The encoder's state: opaque, of the size that zemsEncodeLZOGetSize reports, prepared by
 * zemsEncodeLZOInit_8u and reusable for any number of calls (one call at a time). */
typedef struct zemLZOState_8u zemLZOState_8u;

/* Stores in *pSize the bytes of the state of a method for inputs of up to maxInputLen bytes
 * (32,784 for zemLZOFast, 262,160 for the others).
 * Statuses: zemStatusNullPtr, zemStatusSize (maxInputLen above 0x7F000000), zemStatusBadArg (an
 * unknown method), zemStatusOk. */
ZEM_API zemStatus zemsEncodeLZOGetSize(zemLZOMethod method, uint32_t maxInputLen, uint32_t* pSize);

/* Prepares *pState for a method and inputs of up to maxInputLen bytes.
 * Statuses: zemStatusNullPtr, zemStatusSize (maxInputLen above 0x7F000000), zemStatusBadArg,
 * zemStatusOk. */
ZEM_API zemStatus zemsEncodeLZOInit_8u(zemLZOMethod method, uint32_t maxInputLen, zemLZOState_8u* pState);

/* Encodes srcLen bytes at pSrc as one whole LZO1X stream (end marker included; an empty input
 * gives the 3-byte empty stream) at pDst. *pDstLen: capacity in, at least
 * ZEM_LZO_BOUND(srcLen); stream size out. The output depends only on the input and the method.
 * Statuses: zemStatusNullPtr (pSrc, pDst, pDstLen, pState), zemStatusContextMismatch (pState was
 * not prepared by zemsEncodeLZOInit_8u), zemStatusSize (srcLen above the state's maxInputLen, or
 * a capacity below ZEM_LZO_BOUND(srcLen); nothing is written), zemStatusOk. */
ZEM_API zemStatus zemsEncodeLZO_8u(const uint8_t* pSrc, uint32_t srcLen, uint8_t* pDst, uint32_t* pDstLen,
                                   zemLZOState_8u* pState);

/* Decodes the LZO1X stream at pSrc (srcLen bytes; bytes after its end marker are ignored) into
 * pDst; *pDstLen: capacity in, bytes produced out. For trusted input only: the stream must be
 * valid and its output must fit, nothing of either is checked (it never writes past the
 * capacity for such a stream). Statuses: zemStatusNullPtr, zemStatusSize (srcLen or capacity
 * 0), zemStatusOk. */
ZEM_API zemStatus zemsDecodeLZO_8u(const uint8_t* pSrc, uint32_t srcLen, uint8_t* pDst, uint32_t* pDstLen);

/* As zemsDecodeLZO_8u, with every bound checked: no input makes it read or write outside the
 * two buffers. Statuses: zemStatusNullPtr, zemStatusSize (srcLen or capacity 0), zemStatusError
 * (a match reaches before pDst or the stream is malformed; *pDstLen is not written),
 * zemStatusSrcTooShort (the input ends inside the stream), zemStatusDstTooSmall (the output is
 * full before the end marker), zemStatusOk (end marker reached). With both warnings *pDstLen
 * holds the bytes produced, which are correct output: call again with the whole stream and more
 * room. */
ZEM_API zemStatus zemsDecodeLZOSafe_8u(const uint8_t* pSrc, uint32_t srcLen, uint8_t* pDst,
                                       uint32_t* pDstLen);

/* ------------------------------------------------------------------------------------------- */
/* LZSS                                                                                        */
/* ------------------------------------------------------------------------------------------- */

/* A streaming LZSS codec over a 32 KiB window. The stream is a sequence of MSB-first tokens with
 * no header and no end marker: a literal is a 1 bit and the byte (9 bits); a match is a 0 bit,
 * the distance back (15 bits, 1..32767) and the length - 3 (8 bits: lengths 3..258). Flush pads
 * the last byte with zero bits. Worst case: 9 bits per input byte, so ZEM_LZSS_BOUND(n) bytes
 * hold n input bytes however they are split into calls (flush included). See docs/lzss.md. */
#define ZEM_LZSS_BOUND(srcLen) ((srcLen) + ((srcLen) + 7) / 8)

/* The state of one LZSS stream, encoder or decoder: an opaque record of the size that
 * zemsLZSSGetSize_8u reports (327744 bytes), any alignment, allocated by the caller. It holds
 * the history, so that matches reach back into earlier calls, and no pointer. */
typedef struct zemLZSSState_8u zemLZSSState_8u;

/* Stores the size of a zemLZSSState_8u, 327744 (0x50040) bytes, in *pLZSSStateSize.
 * Statuses: zemStatusNullPtr, zemStatusOk. */
ZEM_API zemStatus zemsLZSSGetSize_8u(int32_t* pLZSSStateSize);

/* Prepares a state for a new encoded stream (empty history, no pending bits).
 * Statuses: zemStatusNullPtr, zemStatusOk. */
ZEM_API zemStatus zemsEncodeLZSSInit_8u(zemLZSSState_8u* pLZSSState);

/* Encodes the *pSrcLen bytes at *ppSrc, continuing the stream of pLZSSState, into the *pDstLen
 * bytes at *ppDst; both pointers advance and both lengths decrease by what was consumed and
 * written. The last two bytes of every call are coded as literals, so the same data split into
 * other calls gives other (equally valid) bytes. Bits short of a whole byte stay in the state
 * until the next call or zemsEncodeLZSSFlush_8u. Bytes of the output past those written may be
 * overwritten. Statuses: zemStatusNullPtr (any argument, then *ppSrc, then *ppDst);
 * zemStatusDstTooSmall at once for *pDstLen <= 0; zemStatusOk at once for *pSrcLen <= 0;
 * zemStatusDstTooSmall when the output filled first (the rest of the input is left, call again
 * with fresh output); zemStatusOk. Never zemStatusSize. */
ZEM_API zemStatus zemsEncodeLZSS_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst, int32_t* pDstLen,
                                    zemLZSSState_8u* pLZSSState);

/* Writes the pending bits of the stream as whole bytes, the last padded with zero bits, and
 * advances *ppDst and decreases *pDstLen by their number (0 to 4). The history is kept; a new
 * stream needs zemsEncodeLZSSInit_8u. Statuses: zemStatusNullPtr (any argument, then *ppDst),
 * zemStatusSize (*pDstLen < 1), zemStatusDstTooSmall (bits are left: call again),
 * zemStatusOk. */
ZEM_API zemStatus zemsEncodeLZSSFlush_8u(uint8_t** ppDst, int32_t* pDstLen, zemLZSSState_8u* pLZSSState);

/* Prepares a state for decoding a new stream (empty bit buffer, history and cut match).
 * Statuses: zemStatusNullPtr, zemStatusOk. */
ZEM_API zemStatus zemsDecodeLZSSInit_8u(zemLZSSState_8u* pLZSSState);

/* Decodes the *pSrcLen bytes at *ppSrc, continuing the stream of pLZSSState, into the *pDstLen
 * bytes at *ppDst; pointers and lengths advance as for the encoder. Input and output may be
 * split anywhere: an incomplete token at the end of the input waits in the state, and a match
 * cut by a full output is finished by the next call. Distances are not validated: one beyond
 * the output so far reads the zeroed history, and a distance of 0 reads as 32768. Nothing is
 * read or written outside the two buffers, whatever the input.
 * Statuses: zemStatusNullPtr (any argument, then *ppSrc, then *ppDst), zemStatusSize
 * (*pDstLen < 1; the source length is not checked), zemStatusDstTooSmall (output full: call
 * again with fresh output), zemStatusOk (the input is used up). */
ZEM_API zemStatus zemsDecodeLZSS_8u(const uint8_t** ppSrc, int32_t* pSrcLen, uint8_t** ppDst, int32_t* pDstLen,
                                    zemLZSSState_8u* pLZSSState);

#ifdef __cplusplus
}
#endif

#endif /* ZEMDC_H */
