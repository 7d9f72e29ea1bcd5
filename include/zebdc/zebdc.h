/* zebDC: primitives of data compression for 64-bit x86.
 *
 * The library is a set of building blocks. An application assembles compressors and decompressors
 * of the open formats (gzip, zlib, bzip2, LZO) and of the library's own from them.
 *
 * Rules that hold for every function:
 *
 * - Memory. The caller owns every buffer and every state record. Only the ...InitAlloc functions
 *   allocate, through the core library (zebcore.h); the matching ...Free functions release. A
 *   record in the caller's own memory needs 16-byte alignment; buffers may have any alignment. No
 *   byte outside the stated bounds of a buffer is read or written.
 * - Records point into themselves: they may not be moved or copied by bytes.
 * - Threads. Functions may be called from any thread; one record must not be used by two threads at
 *   once. The library starts no threads, takes no locks and keeps no state of its own.
 * - Status. Negative: an error. Zero: success. Positive: a warning, that is a normal stop; cursors
 *   and record are valid and the same call may be repeated with more input or more room.
 *   Checks are made in a fixed order: null pointers in the order of the arguments, then the
 *   pointers that in/out arguments point to, then sizes and enumerations, then the phase of the
 *   record. A call that fails these checks has written nothing.
 * - Streaming. In/out arguments named ppSrc and pSrcLen, ppDst and pDstLen are cursors: the
 *   function advances the pointer and lowers the count by what it consumed or produced. Where a
 *   destination is a plain pointer, *pDstLen is the capacity on entry and what was written on
 *   return. Lengths are in elements of the buffer's type.
 */
#ifndef ZEBDC_ZEBDC_H
#define ZEBDC_ZEBDC_H

#include <stddef.h>
#include <stdint.h>

#define ZEBDC_VERSION_MAJOR 8
#define ZEBDC_VERSION_MINOR 2
#define ZEBDC_VERSION_UPDATE 3

/* Define ZEBDC_STATIC when linking the static archive on Windows. */
#if defined(_WIN32)
#if defined(ZEBDC_STATIC) || defined(ZEBDC_BUILDING_LIBRARY)
#define ZEBDC_API
#else
#define ZEBDC_API __declspec(dllimport)
#endif
#else
#define ZEBDC_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------------------------------
 * Status codes
 * --------------------------------------------------------------------------------------------- */

/* The result of every function but the version query and the ...Free functions. */
typedef int32_t ZebStatus;

enum {
  zebOk = 0,                  /* success */
  zebErrGeneral = -2,         /* the call does not fit the record's phase or the data's kind */
  zebErrBadArg = -5,          /* an enumeration argument outside its set */
  zebErrSize = -6,            /* a length, count or index out of range; corrupt deflate data */
  zebErrNullPtr = -8,         /* a required pointer is null */
  zebErrMemAlloc = -9,        /* the core library had no memory */
  zebErrFreqTable = -197,     /* unusable frequency table */
  zebErrCodeLenTable = -198,  /* invalid code-length table, or a byte without a code */
  zebErrCodeTooLong = -199,   /* a Huffman tree deeper than 32 levels */
  zebErrBadData = -200,       /* invalid coded data or code lengths */
  zebErrLZOData = -214,       /* invalid LZO stream */
  zebWarnSrcExhausted = 32,   /* more source is needed; progress is kept */
  zebWarnDstFull = 33,        /* more room is needed; progress is kept */
  zebWarnFinalBlockDone = 34, /* the final deflate block is complete */
  zebWarnSortBudget = 47      /* the budgeted block sort gave up; try another method */
};

/* ------------------------------------------------------------------------------------------------
 * Frame
 * --------------------------------------------------------------------------------------------- */

/* What the library says of itself. Constant; never freed. */
typedef struct ZebLibVersion {
  int32_t majorVersion;
  int32_t minorVersion;
  int32_t updateNumber;
  int32_t buildNumber;
  char targetCode[4]; /* zero-padded: "t7" or "w7" */
  const char* libraryName;
  const char* versionText;
  const char* buildDate;
} ZebLibVersion;

/* The version record of the variant that was chosen when the library was loaded: "t7" for
 * processors with SSSE3, "w7" for those that also have MOVBE. Never null. */
ZEBDC_API const ZebLibVersion* zebdcGetLibVersion(void);

/* ------------------------------------------------------------------------------------------------
 * Checksums
 *
 * Stateless: the running value lives with the caller, is read on entry and replaced on return. Any
 * way of cutting the data into calls gives the same result. The conventions of the values differ:
 *
 *                      start with    the final value is
 *   zebsAdler32_8u     1             the Adler-32
 *   zebsCRC32_8u       0             the CRC-32
 *   zebsCRC32C_8u      0xFFFFFFFF    the inversion of the CRC-32C
 *   zebsCRC32_BZ2_8u   0             the bzip2 CRC
 * --------------------------------------------------------------------------------------------- */

/* Continues the Adler-32 of RFC 1950 over srcLen bytes: in the low 16 bits of the value the sum of
 * the bytes, in the high 16 bits the sum of the sums, modulo 65521. The value passed in need not be
 * reduced; the value returned is.
 *
 * A null pSrc sets *pAdler32 to the start value, whatever srcLen is. A srcLen of 0 or less takes no
 * bytes.
 *
 * zebOk          done
 * zebErrNullPtr  pAdler32 is null */
ZEBDC_API ZebStatus zebsAdler32_8u(const uint8_t* pSrc, int srcLen, uint32_t* pAdler32);

/* Continues the CRC-32 of RFC 1952 (reflected polynomial 0xEDB88320) over srcLen bytes. The value
 * is inverted on entry and on return: start from 0 and pass results on directly.
 *
 * zebOk          done
 * zebErrNullPtr  pSrc or pCRC32 is null
 * zebErrSize     srcLen is below 1 */
ZEBDC_API ZebStatus zebsCRC32_8u(const uint8_t* pSrc, int srcLen, uint32_t* pCRC32);

/* Continues the CRC-32C of RFC 3720 (Castagnoli, reflected polynomial 0x82F63B78) over srcLen
 * bytes. The value is the bare register: nothing is inverted. For the standard CRC-32C start from
 * 0xFFFFFFFF and invert the last result. The length is unsigned.
 *
 * zebOk          done
 * zebErrNullPtr  pSrc or pCRC32C is null
 * zebErrSize     srcLen is 0 */
ZEBDC_API ZebStatus zebsCRC32C_8u(const uint8_t* pSrc, uint32_t srcLen, uint32_t* pCRC32C);

/* Continues the CRC of the bzip2 format (polynomial 0x04C11DB7, most significant bit first) over
 * srcLen bytes. The value is inverted on entry and on return: start each block from 0 and pass
 * results on directly.
 *
 * zebOk          done
 * zebErrNullPtr  pSrc or pCRC32 is null
 * zebErrSize     srcLen is below 1 */
ZEBDC_API ZebStatus zebsCRC32_BZ2_8u(const uint8_t* pSrc, int srcLen, uint32_t* pCRC32);

/* ------------------------------------------------------------------------------------------------
 * Deflate encoding: state, match finding, block writers
 * --------------------------------------------------------------------------------------------- */

/* One LZ77 item. */
typedef struct ZebLZ77Pair {
  uint16_t length; /* of a match: 3 to 258; of a literal: the byte itself */
  uint16_t offset; /* distance of a match, counted back from its first byte; 0 marks a literal */
} ZebLZ77Pair;

/* The record of a deflate encoder or decoder. The two are different blocks of memory: a record that
 * an encoder's Init built serves the zebsEncode... functions only, and likewise for decoders. */
typedef struct ZebLZ77State_8u ZebLZ77State_8u;

/* Compression level. Any other value stands for zebLZ77LevelAverage. */
typedef int32_t ZebLZ77ComprLevel;
enum {
  zebLZ77LevelFast = 0,    /* one candidate for each position */
  zebLZ77LevelAverage = 1, /* hash chains, greedy */
  zebLZ77LevelBest = 2     /* hash chains, thorough, one step of lazy evaluation */
};

/* Checksum kind of a stream. */
typedef int32_t ZebLZ77Checksum;
enum {
  zebLZ77ChecksumNone = 0,
  zebLZ77ChecksumAdler32 = 1, /* zlib (RFC 1950) trailer */
  zebLZ77ChecksumCRC32 = 2    /* gzip (RFC 1952) trailer */
};

/* Stage of a stream. */
typedef int32_t ZebLZ77DeflateStatus;
enum {
  zebLZ77StatusIdle = 0,     /* after Init */
  zebLZ77StatusMatching = 1, /* the match finder fills the pairs buffer */
  zebLZ77StatusCoding = 2,   /* the block writers consume it */
  zebLZ77StatusFinal = 3     /* only the trailer is left to write */
};

/* Flush argument. Use one value for the match finder and the block writer of one round. */
typedef int32_t ZebLZ77Flush;
enum {
  zebLZ77FlushNone = 0,
  zebLZ77FlushSync = 1, /* the block is followed by an empty stored block: output ends on a byte */
  zebLZ77FlushFull = 2, /* likewise, and later matches do not reach back before this point */
  zebLZ77FlushFinal = 3 /* the last block of the stream */
};

/* Compression runs in rounds over one record:
 *
 *   zebsEncodeLZ77SetStatus_8u(zebLZ77StatusMatching)   opens the pairs buffer
 *   zebsEncodeLZ77_8u                                   turns source bytes into pairs
 *   zebsEncodeLZ77SetStatus_8u(zebLZ77StatusCoding)     hands the pairs to the block writers
 *   a block writer                                      turns pairs into a deflate block
 *
 * After the last block the status is set to zebLZ77StatusFinal and the flush writes the trailer.
 * A stream header (RFC 1950, RFC 1952) is the caller's to write. */

/* Bytes that an encoder's record needs: 599076.
 *   zebErrNullPtr  pSize is null */
ZEBDC_API ZebStatus zebsEncodeLZ77GetSize_8u(int* pSize);

/* Builds an encoder's record in the caller's memory of zebsEncodeLZ77GetSize_8u bytes, 16-byte
 * aligned. A level outside the enumeration stands for zebLZ77LevelAverage; the checksum kind is
 * kept as it is given, and refused no earlier than by the writer of the trailer.
 *   zebErrNullPtr  pState is null */
ZEBDC_API ZebStatus zebsEncodeLZ77Init_8u(ZebLZ77ComprLevel level, ZebLZ77Checksum checksum,
                                          ZebLZ77State_8u* pState);

/* The same in memory of the core library; release it with zebsLZ77Free_8u.
 *   zebErrNullPtr   ppState is null
 *   zebErrMemAlloc  no memory; *ppState is not written */
ZEBDC_API ZebStatus zebsEncodeLZ77InitAlloc_8u(ZebLZ77ComprLevel level, ZebLZ77Checksum checksum,
                                               ZebLZ77State_8u** ppState);

/* Releases a record of zebsEncodeLZ77InitAlloc_8u or zebsDecodeLZ77InitAlloc_8u. */
ZEBDC_API void zebsLZ77Free_8u(ZebLZ77State_8u* pState);

/* Makes the record ready for a new stream, at half the cost of Init. Level, checksum kind, status
 * and the pairs buffer stay. The buffer's length becomes 65280 pairs again: install a smaller
 * buffer of your own once more with SetPairs.
 *   zebErrNullPtr  pState is null */
ZEBDC_API ZebStatus zebsEncodeLZ77Reset_8u(ZebLZ77State_8u* pState);

/* The pairs buffer, the index of the next pair to write (matching) or to read (coding), and the
 * number of usable pairs: the capacity while matching, the pairs to code while coding.
 *   zebErrNullPtr  an argument is null */
ZEBDC_API ZebStatus zebsEncodeLZ77GetPairs_8u(ZebLZ77Pair** ppPairs, int* pPairsInd, int* pPairsLen,
                                              ZebLZ77State_8u* pState);

/* Stores what GetPairs returns: after a call of the match finder or of a writer its new index, or
 * another buffer, to which the record points until Init. Index and length are not checked.
 *   zebErrNullPtr  pPairs or pState is null */
ZEBDC_API ZebStatus zebsEncodeLZ77SetPairs_8u(ZebLZ77Pair* pPairs, int pairsInd, int pairsLen,
                                              ZebLZ77State_8u* pState);

/* The stage of the stream; zebLZ77StatusIdle after Init.
 *   zebErrNullPtr  an argument is null */
ZEBDC_API ZebStatus zebsEncodeLZ77GetStatus_8u(ZebLZ77DeflateStatus* pStatus,
                                               ZebLZ77State_8u* pState);

/* Sets the stage. zebLZ77StatusMatching opens the pairs buffer from its start with 65280 pairs;
 * zebLZ77StatusCoding begins a block whose pairs are those before the current index. Any other
 * value is stored and changes nothing else.
 *   zebErrNullPtr  pState is null */
ZEBDC_API ZebStatus zebsEncodeLZ77SetStatus_8u(ZebLZ77DeflateStatus status,
                                               ZebLZ77State_8u* pState);

/* Turns source bytes into pairs: finds repeated strings in the 32 KiB before each byte and appends
 * a pair for each match or literal. Feed a stream in pieces of any size; the history carries over,
 * and so does the running checksum of the kind given to Init, which continues from 0 for every
 * kind, Adler-32 included: a standard zlib trailer needs a value that started from 1.
 *
 * The last two bytes of each call (three at zebLZ77LevelBest) always come out as literals, and no
 * match spans the end of a call: large pieces compress better than small ones. The greatest
 * distance is 32767.
 *
 * Take pairs and room from GetPairs (buffer + index, length - index) and store the advanced index
 * with SetPairs.
 *
 * After a call with zebLZ77FlushFull nothing refers back to bytes before its end, so that decoding
 * may begin there; the position count restarts, on which the length in a gzip trailer depends. The
 * other flush values act on the block writers only.
 *
 *   zebOk           the whole source is consumed
 *   zebWarnDstFull  the room is used up, or was 0: code the pairs, then call again with the rest
 *   zebErrNullPtr   an argument or *ppPairs is null (*ppSrc is not looked at when *pSrcLen is 0)
 *   zebErrSize      *pPairsLen or *pSrcLen is negative */
ZEBDC_API ZebStatus zebsEncodeLZ77_8u(const uint8_t** ppSrc, int* pSrcLen, ZebLZ77Pair** ppPairs,
                                      int* pPairsLen, ZebLZ77Flush flush, ZebLZ77State_8u* pState);

/* Primes the record with the last 32768 bytes of a dictionary, before the stream's first byte: the
 * decoder must be given the same. Replaces an earlier dictionary. Dictionaries below 3 bytes do
 * nothing.
 *   zebErrNullPtr  pDict or pState is null
 *   zebErrSize     dictLen is negative
 *   zebErrGeneral  the status is no longer zebLZ77StatusIdle */
ZEBDC_API ZebStatus zebsEncodeLZ77SetDictionary_8u(const uint8_t* pDict, int dictLen,
                                                   ZebLZ77State_8u* pState);

/* How a block is coded, and so which writer to call. */
typedef int32_t ZebLZ77HuffMode;
enum {
  zebLZ77HuffFixed = 0,   /* zebsEncodeLZ77FixedHuff_8u */
  zebLZ77HuffDynamic = 1, /* zebsEncodeLZ77DynamicHuff_8u */
  zebLZ77HuffStored = 2   /* zebsEncodeLZ77StoredBlock_8u, on the bytes that the pairs stand for */
};

/* Estimates what the pairs would take as a stored, a fixed and a dynamic block (RFC 1951) and
 * writes the cheapest to *pHuffMode; a tie goes to the dynamic block. The dynamic block's header is
 * prepared on the way, and zebsEncodeLZ77DynamicHuff_8u uses it.
 *
 * The answer stays pending until a writer has completed the block or the match finder has taken new
 * source: until then further calls repeat it, whatever pairs they name. Call it after
 * SetStatus(zebLZ77StatusCoding), with all pairs of the block.
 *
 * Whether the header marks the last block of the stream follows the match finder's last call: its
 * flush was zebLZ77FlushFinal and it has consumed all of its source. Give the match finder and the
 * writer of a round the same flush value.
 *
 * The pairs of one call of the match finder may be written as several blocks, with
 * SetStatus(zebLZ77StatusCoding), this function and a writer for each part. Blocks of about 16 000
 * pairs give the smallest streams on data that changes its nature. Use zebLZ77FlushNone throughout
 * then, also for the match finder, and end the stream with an empty block under zebLZ77FlushFinal.
 *
 * A stored block needs the source bytes again. Where they are many, note that every stored block
 * written with zebLZ77FlushFinal is marked as the last one (see zebsEncodeLZ77StoredBlock_8u).
 *   zebErrNullPtr  a pointer is null, pPairs included even for no pairs
 *   zebErrSize     pairsLen is negative */
ZEBDC_API ZebStatus zebsEncodeLZ77SelectHuffMode_8u(const ZebLZ77Pair* pPairs, int pairsLen,
                                                    ZebLZ77HuffMode* pHuffMode,
                                                    ZebLZ77State_8u* pState);

/* Writes the pairs as one block under the fixed codes. The first call after
 * SetStatus(zebLZ77StatusCoding) writes the block's header; when all pairs are coded the block is
 * ended, and then, by flush:
 *
 *   zebLZ77FlushNone   nothing: the last bits wait in the record for the next block
 *   zebLZ77FlushSync   an empty stored block follows, so that the output ends on a byte, with
 *   zebLZ77FlushFull   00 00 FF FF
 *   zebLZ77FlushFinal  the block is marked as the last one and padded to a byte, provided that the
 *                      match finder has consumed all of its source; otherwise as FlushNone
 *
 * *pPairsLen is the number of pairs left to code. While the answer is zebWarnDstFull repeat the
 * call with fresh room, the cursors as they were left, and the same flush. A call without pairs in
 * the middle of nothing completes what is pending; with zebLZ77FlushFinal it pads to a byte.
 *
 * A pair whose offset is not 0 and whose length is outside 3 to 258, an offset beyond 32768 or a
 * literal above 255 give a stream that is wrong, but nothing worse.
 *   zebWarnFinalBlockDone  the last block is complete; the trailer may follow
 *   zebWarnDstFull         the room is used up; with no room at all too
 *   zebErrNullPtr          an argument or *ppDst is null, or *ppPairs where there are pairs
 *   zebErrSize             a count is negative */
ZEBDC_API ZebStatus zebsEncodeLZ77FixedHuff_8u(ZebLZ77Pair** ppPairs, int* pPairsLen,
                                               uint8_t** ppDst, int* pDstLen, ZebLZ77Flush flush,
                                               ZebLZ77State_8u* pState);

/* Writes the pairs as one block under codes built for them, or for the pairs that
 * zebsEncodeLZ77SelectHuffMode_8u was given: a pair that did not occur there cannot be coded. The
 * first call of a block must therefore name all of its pairs. Everything else as in
 * zebsEncodeLZ77FixedHuff_8u, but that the header's mark of the last block is the one of
 * SelectHuffMode.
 *   zebWarnFinalBlockDone  the last block is complete; the trailer may follow
 *   zebWarnDstFull         the room is used up; with no room at all too
 *   zebErrNullPtr          an argument or *ppDst is null, or *ppPairs where there are pairs
 *   zebErrSize             a count is negative */
ZEBDC_API ZebStatus zebsEncodeLZ77DynamicHuff_8u(ZebLZ77Pair** ppPairs, int* pPairsLen,
                                                 uint8_t** ppDst, int* pDstLen, ZebLZ77Flush flush,
                                                 ZebLZ77State_8u* pState);

/* Writes the source as stored blocks of at most 65535 bytes each, one empty block where there is no
 * source. A block's length is settled when its header is written: if the source of that call ends
 * before the block does, the next call goes on with it.
 *
 * With zebLZ77FlushFinal every block is marked as the last one. To end a stream write all but the
 * last 65535 bytes, or fewer, with another flush value first. Other values of flush change nothing:
 * a stored block ends on a byte anyway.
 *   zebWarnFinalBlockDone  all source is written and the flush was zebLZ77FlushFinal
 *   zebWarnDstFull         the room is used up and something is left to write; with no room at all
 *                          too
 *   zebErrNullPtr          an argument, *ppSrc or *ppDst is null
 *   zebErrSize             a count is negative */
ZEBDC_API ZebStatus zebsEncodeLZ77StoredBlock_8u(const uint8_t** ppSrc, int* pSrcLen,
                                                 uint8_t** ppDst, int* pDstLen, ZebLZ77Flush flush,
                                                 ZebLZ77State_8u* pState);

/* Writes the trailer once the last block is complete and the status is zebLZ77StatusFinal:
 *
 *   zebLZ77ChecksumAdler32  the checksum, most significant byte first (the layout of RFC 1950)
 *   zebLZ77ChecksumCRC32    the CRC-32 and the length of the input, least significant byte first
 *   zebLZ77ChecksumNone     (RFC 1952); without a checksum likewise, with a checksum of 0
 *
 * The Adler-32 of the record starts from 0, where RFC 1950 starts from 1: compute the trailer of a
 * standard zlib stream yourself with zebsAdler32_8u. The length is the match finder's position,
 * which equals the input's length modulo 2^32 unless the input is longer than 2^31 - 1 bytes or a
 * zebLZ77FlushFull has restarted the numbering.
 *
 * A trailer that fills the room exactly answers zebWarnDstFull; the next call, with any room, then
 * answers zebOk and writes nothing. Where room is left behind the trailer one byte there is
 * cleared.
 *   zebWarnDstFull  the room is used up
 *   zebErrNullPtr   an argument or *ppDst is null
 *   zebErrSize      *pDstLen is negative
 *   zebErrGeneral   the status is not zebLZ77StatusFinal, or the checksum kind is none of the above
 */
ZEBDC_API ZebStatus zebsEncodeLZ77Flush_8u(uint8_t** ppDst, int* pDstLen, ZebLZ77State_8u* pState);

/* ------------------------------------------------------------------------------------------------
 * Deflate encoding: stream-style primitives
 * --------------------------------------------------------------------------------------------- */

/* For callers that keep window, hash tables, frequency tables and output buffers of their own.
 *
 * Positions count the bytes of the stream from 0, or from the length of a dictionary, modulo 2^32.
 * The window is circular: the byte of an earlier position q stands at pWindow[q & (winSize - 1)].
 * The bytes of a call are read from its source; after the call the caller copies what was consumed
 * into the window. winSize (256 to 32768) and hashSize (256 to 65536) are powers of two and serve
 * as masks without a check.
 *
 * pHashHead has hashSize entries, pHashPrev winSize. An entry e serves at position p only where e <
 * p and p - e < winSize: tables filled with zeros or 0xFFFFFFFF, and stale entries, are harmless.
 * Level 0 uses another hash than the levels above it and no links: do not change between them
 * within a stream. */

/* Enters the positions of srcLen - 2 bytes into the hash tables without searching; srcIdx is the
 * position of the first. Levels of 0 and below enter heads only.
 *   zebOk          also at once, before any other check, where srcLen is below 3
 *   zebErrNullPtr  pSrc, pHashHead or pHashPrev is null
 *   zebErrSize     winSize or hashSize is out of range */
ZEBDC_API ZebStatus zebsDeflateUpdateHash_8u(const uint8_t* pSrc, uint32_t srcIdx, uint32_t srcLen,
                                             uint32_t* pHashHead, uint32_t hashSize,
                                             uint32_t* pHashPrev, uint32_t winSize, int comprLevel);

/* Copies the last winSize bytes of a dictionary, or all of a shorter one, to the start of the
 * window and enters their positions, counted from 0, into the hash tables: positions 0 to count -
 * 258. A dictionary of fewer than 258 bytes is copied but not hashed. The stream's first position
 * is then the number of bytes copied.
 *   zebOk          also at once, before any other check, where dictLen is below 3
 *   zebErrNullPtr  a pointer is null
 *   zebErrSize     winSize or hashSize is out of range */
ZEBDC_API ZebStatus zebsDeflateDictionarySet_8u(const uint8_t* pDict, uint32_t dictLen,
                                                uint32_t* pHashHead, int hashSize,
                                                uint32_t* pHashPrev, uint8_t* pWindow,
                                                uint32_t winSize, int comprLevel);

/* Turns source bytes into items: pLitDst gets a literal, or the length of a match less 3, pDistDst
 * 0 for a literal, or the distance (1 to winSize - 1). Adds each item to the frequencies: pLitFreq
 * has 286 counters (literals, end of block, which is not counted, length symbols), pDistFreq 30.
 *
 * *pSrcIdx is the position of **ppSrc; *pDstLen the room in items on entry, the items written on
 * return. comprLevel 0 looks at one candidate; 1 to 4 take the first good match, with growing
 * search limits; 5 to 9 look at the next position before they take one. flush changes nothing.
 * Where the room runs out, call again with the remaining source before anything is copied past it.
 *   zebOk           all source was consumed
 *   zebWarnDstFull  the room ran out first; cursors stand at the first unconsumed byte
 *   zebErrNullPtr   a pointer, or *ppSrc, is null
 *   zebErrSize      winSize, hashSize or comprLevel is out of range */
ZEBDC_API ZebStatus zebsDeflateLZ77_8u(const uint8_t** ppSrc, uint32_t* pSrcLen, uint32_t* pSrcIdx,
                                       const uint8_t* pWindow, uint32_t winSize,
                                       uint32_t* pHashHead, uint32_t* pHashPrev, uint32_t hashSize,
                                       uint32_t* pLitFreq, uint32_t* pDistFreq, uint8_t* pLitDst,
                                       uint16_t* pDistDst, uint32_t* pDstLen, int comprLevel,
                                       int flush);

/* A code of deflate: bit-reversed, as it goes out, and its length, 0 for a symbol without one. */
typedef struct ZebDeflateHuffCode {
  uint16_t code;
  uint16_t len;
} ZebDeflateHuffCode;

/* Codes srcLen items of zebsDeflateLZ77_8u with the caller's codes (RFC 1951): pLitCodes has 286
 * entries, pDistCodes 30. Writes from pDst[*pDstIdx] on and advances *pDstIdx; *pCode and
 * *pCodeLenBits are the pending bits, least significant first: up to 31 on entry, fewer than 8 on
 * return. No end-of-block code is written, and nothing behind the last byte that holds bits. The
 * caller gives enough room: 6 bytes for each item and 4 for the pending bits always suffice.
 *   zebErrNullPtr  a pointer is null
 *   zebErrSize     *pCodeLenBits is above 31 */
ZEBDC_API ZebStatus zebsDeflateHuff_8u(const uint8_t* pLitSrc, const uint16_t* pDistSrc,
                                       uint32_t srcLen, const ZebDeflateHuffCode* pLitCodes,
                                       const ZebDeflateHuffCode* pDistCodes, uint8_t* pDst,
                                       uint32_t* pDstIdx, uint32_t* pCode, uint32_t* pCodeLenBits);

/* Replaces every byte of pSrcDst in place by the sum, in 8 bits, of the frequencies of all lower
 * symbols. pFreq has 256 entries; with 1 for the symbols in use and 0 elsewhere a byte becomes the
 * number of used symbols below it. *pDictLen is the sum of all entries.
 *   zebErrNullPtr  a pointer is null
 *   zebErrSize     len is below 1 */
ZEBDC_API ZebStatus zebsReduceDictionary_8u_I(const uint8_t* pFreq, uint8_t* pSrcDst, int len,
                                              uint32_t* pDictLen);

/* The inverse of zebsReduceDictionary_8u_I for a table of zeros and ones. Bytes above the number of
 * symbols in use, which no sum reaches, become 0.
 *   zebErrNullPtr  a pointer is null
 *   zebErrSize     len or dictLen is below 1
 *   zebErrGeneral  dictLen is not the sum of pFreq; nothing is changed */
ZEBDC_API ZebStatus zebsExpandDictionary_8u_I(const uint8_t* pFreq, uint8_t* pSrcDst, int len,
                                              int dictLen);

/* ------------------------------------------------------------------------------------------------
 * Deflate decoding
 * --------------------------------------------------------------------------------------------- */

/* The same functions as zebsEncodeLZ77GetPairs_8u, zebsEncodeLZ77SetPairs_8u and
 * zebsEncodeLZ77GetStatus_8u, for a decoder's record. */
ZEBDC_API ZebStatus zebsDecodeLZ77GetPairs_8u(ZebLZ77Pair** ppPairs, int* pPairsInd, int* pPairsLen,
                                              ZebLZ77State_8u* pState);
ZEBDC_API ZebStatus zebsDecodeLZ77SetPairs_8u(ZebLZ77Pair* pPairs, int pairsInd, int pairsLen,
                                              ZebLZ77State_8u* pState);
ZEBDC_API ZebStatus zebsDecodeLZ77GetStatus_8u(ZebLZ77DeflateStatus* pStatus,
                                               ZebLZ77State_8u* pState);

/* Two ways lead from deflate blocks to bytes. One pass: the ...Full decoders and
 * zebsDecodeLZ77StoredBlock_8u write bytes. Two passes: zebsDecodeLZ77StoredHuff_8u,
 * zebsDecodeLZ77FixedHuff_8u and zebsDecodeLZ77DynamicHuff_8u write pairs, which zebsDecodeLZ77_8u
 * turns into bytes. Each way arranges the history in its own manner: keep a stream on one of them.
 *
 * One pass. Between blocks ask zebsDecodeLZ77GetBlockType_8u for the kind of the next one, then
 * call the decoder of that kind until it answers zebOk (the block is done) or zebWarnFinalBlockDone
 * (the stream is), with more source after zebWarnSrcExhausted and more room after zebWarnDstFull.
 *
 *   A stored block that follows a Huffman block finds its first bytes in the bit buffer if earlier
 *   calls, not the one that ended the Huffman block, took them from the source. Such bytes come out
 *   but do not enter the history. So the one-pass way is right for streams whose Huffman blocks end
 *   in the call that took their last bytes: give the whole source, or at least rooms large enough.
 *   Where every stream must come out right in every cut, use two passes.
 *
 * Two passes. Between blocks try the three decoders in turn: one that meets a block of another kind
 * answers zebErrGeneral and leaves the block's header in hand for the next. Reserved blocks (BTYPE
 * 11) are refused by all three. zebsDecodeLZ77GetBlockType_8u has no place here. Expand the pairs
 * of a call before the next block's: those of the final block are expanded last, and answered with
 * zebWarnFinalBlockDone if that block was a Huffman block.
 *
 * Of both:
 *
 * - The decoders take bytes ahead of the symbols that they decode, up to 64 bits, and keep them in
 *   the record. At the end of the stream whole bytes that were not used go back: *ppSrc stands
 *   right behind the stream's last byte, even if that means that it moves back beyond this call's
 *   source.
 * - Room beyond what a call produced may have been overwritten.
 * - Corrupt data gives zebErrSize. What came before the bad symbol has been written and counted;
 *   the bad symbol itself is not consumed, so that the call can be repeated with the same answer.
 *   Matches that reach back beyond the beginning of the stream are not detected: they read what the
 *   history holds, never anything outside it.
 * - Code lengths are not examined: incomplete sets decode as far as their codes go, bits that no
 *   code has are corrupt data, and over-subscribed sets leave their last symbols without a code.
 * - In a blockState that belongs to another decoder (a Huffman or ...StoredHuff decoder called in
 *   the middle of a block of another kind) a call may never return. Do not change decoders within a
 *   block.
 * - The flush argument of the ...Full decoders and of zebsDecodeLZ77_8u has no meaning. */

/* Bytes that a decoder's record needs: 113024.
 *   zebErrNullPtr  pSize is null */
ZEBDC_API ZebStatus zebsDecodeLZ77GetSize_8u(int* pSize);

/* Builds a decoder's record in the caller's memory of zebsDecodeLZ77GetSize_8u bytes, 16-byte
 * aligned. The checksum kind is kept as it is given; the decoder itself computes no checksum. The
 * history is not cleared: a stream that reaches back before its own beginning reads what the memory
 * held.
 *   zebErrNullPtr  pState is null */
ZEBDC_API ZebStatus zebsDecodeLZ77Init_8u(ZebLZ77Checksum checksum, ZebLZ77State_8u* pState);

/* The same in memory of the core library; release it with zebsLZ77Free_8u.
 *   zebErrNullPtr   ppState is null
 *   zebErrMemAlloc  no memory; *ppState is not written */
ZEBDC_API ZebStatus zebsDecodeLZ77InitAlloc_8u(ZebLZ77Checksum checksum, ZebLZ77State_8u** ppState);

/* Makes the record ready for a new stream. The checksum kind, the pairs buffer and the bytes of the
 * history stay; the buffer's length becomes 8192 pairs again and the status zebLZ77StatusIdle.
 *   zebErrNullPtr  pState is null */
ZEBDC_API ZebStatus zebsDecodeLZ77Reset_8u(ZebLZ77State_8u* pState);

/* Stores the stage of the stream, any value. It is the caller's note: decoding neither reads nor
 * changes it.
 *   zebErrNullPtr  pState is null */
ZEBDC_API ZebStatus zebsDecodeLZ77SetStatus_8u(ZebLZ77DeflateStatus status,
                                               ZebLZ77State_8u* pState);

/* Makes the last 32768 bytes of a dictionary the history that the stream's matches may reach. Call
 * it before the first block, after Init or Reset. A shorter dictionary is taken for the end of a
 * history of 32768 bytes whose beginning is whatever the record's memory held.
 *   zebErrNullPtr  pDict or pState is null
 *   zebErrSize     dictLen is below 1 */
ZEBDC_API ZebStatus zebsDecodeLZ77SetDictionary_8u(const uint8_t* pDict, int dictLen,
                                                   ZebLZ77State_8u* pState);

/* Makes pDst, a record that Init built, go on exactly where pSrc stands. pDst keeps its own storage
 * and its pairs buffer; of the pairs, those in pSrc's own buffer are copied, not those in a buffer
 * that SetPairs installed. pSrc is not changed.
 *   zebErrNullPtr  an argument is null */
ZEBDC_API ZebStatus zebsDecodeLZ77CopyState_8u(const ZebLZ77State_8u* pSrc, ZebLZ77State_8u* pDst);

/* Kind of a deflate block. */
typedef int32_t ZebLZ77BlockType;
enum {
  zebLZ77BlockFixed = 0,   /* fixed Huffman codes (BTYPE 01) */
  zebLZ77BlockDynamic = 1, /* dynamic Huffman codes (BTYPE 10) */
  zebLZ77BlockStored = 2   /* no compression (BTYPE 00) */
};

/* Reads the three-bit header of a block, and arms the record for the decoder of its kind. Takes one
 * byte of source when fewer than three bits are in hand, else none. Within a block it answers the
 * kind of that block and reads nothing.
 *
 * A header of the reserved kind (BTYPE 11) is consumed and answered with zebOk, but *pBlockType is
 * not written: set it to another value beforehand to notice.
 *
 * zebOk                the kind is in *pBlockType
 * zebErrNullPtr        an argument or *ppSrc is null
 * zebErrSize           *pSrcLen is negative
 * zebWarnSrcExhausted  fewer than three bits in hand and *pSrcLen is 0; nothing has changed */
ZEBDC_API ZebStatus zebsDecodeLZ77GetBlockType_8u(const uint8_t** ppSrc, int* pSrcLen,
                                                  ZebLZ77BlockType* pBlockType,
                                                  ZebLZ77State_8u* pState);

/* One pass: decodes the stored block whose header zebsDecodeLZ77GetBlockType_8u has just read.
 *
 * zebOk                  the block is done
 * zebWarnFinalBlockDone  likewise, and it was the final one
 * zebErrNullPtr          an argument, *ppSrc or *ppDst is null
 * zebErrSize             a count is negative; LEN is not the complement of NLEN
 * zebWarnDstFull         *pDstLen is 0 on entry; or the room ran out
 * zebErrGeneral          the record is not at or in a stored block of this pass
 * zebWarnSrcExhausted    the source ran out */
ZEBDC_API ZebStatus zebsDecodeLZ77StoredBlock_8u(const uint8_t** ppSrc, int* pSrcLen,
                                                 uint8_t** ppDst, int* pDstLen,
                                                 ZebLZ77State_8u* pState);

/* Two passes: decodes a stored block, its header included, to literals.
 *
 * zebOk                  the block is done
 * zebWarnFinalBlockDone  likewise, and a final block has been met
 * zebErrNullPtr          an argument, *ppSrc or *ppPairs is null
 * zebErrSize             a count is negative; LEN is not the complement of NLEN
 * zebErrGeneral          the block is of another kind
 * zebWarnSrcExhausted    the source ran out
 * zebWarnDstFull         the pairs ran out */
ZEBDC_API ZebStatus zebsDecodeLZ77StoredHuff_8u(const uint8_t** ppSrc, int* pSrcLen,
                                                ZebLZ77Pair** ppPairs, int* pPairsLen,
                                                ZebLZ77State_8u* pState);

/* One pass: decode a block of fixed or of dynamic Huffman codes. Between blocks they read the
 * block's header themselves; behind zebsDecodeLZ77GetBlockType_8u they go on from it. A match that
 * is longer than the room is finished by the next call, before anything else. The end of a block is
 * seen even when the room is used up, so a room of exactly the block's size suffices.
 *
 * When zebsDecodeLZ77DynamicHuffFull_8u answers zebWarnDstFull and has taken all the source, the
 * last byte goes back if it is still unused: as long as such a stream is not done, the source does
 * not look empty.
 *
 * zebOk                  the block is done; whole bytes of source taken in this call and not used
 *                        have gone back
 * zebWarnFinalBlockDone  likewise, it was the final one, and the record's bit buffer is empty
 * zebErrNullPtr          an argument, *ppSrc or *ppDst is null
 * zebErrSize             a count is negative; corrupt data
 * zebWarnDstFull         *pDstLen is 0 on entry; or the room ran out
 * zebErrGeneral          the block is of another kind
 * zebWarnSrcExhausted    the source ran out */
ZEBDC_API ZebStatus zebsDecodeLZ77FixedHuffFull_8u(const uint8_t** ppSrc, int* pSrcLen,
                                                   uint8_t** ppDst, int* pDstLen,
                                                   ZebLZ77Flush flush, ZebLZ77State_8u* pState);
ZEBDC_API ZebStatus zebsDecodeLZ77DynamicHuffFull_8u(const uint8_t** ppSrc, int* pSrcLen,
                                                     uint8_t** ppDst, int* pDstLen,
                                                     ZebLZ77Flush flush, ZebLZ77State_8u* pState);

/* Two passes: decode a block of fixed or of dynamic Huffman codes, its header included, to pairs.
 * The end of a block is seen even when no room for pairs is left.
 *
 * With zebLZ77FlushSync or zebLZ77FlushFull they do not decode but look for the next place where a
 * flush left its mark, an empty stored block: from the next byte boundary on they skip input up to
 * and including the bytes 00 00 FF FF. There a block begins. This is for streams of which a part is
 * lost; the history is then still that of the part before.
 *
 * zebOk                  the block is done; or the mark is found
 * zebWarnFinalBlockDone  the block is done and was the final one; whole bytes in hand have gone
 *                        back
 * zebErrNullPtr          an argument is null; *ppSrc or *ppPairs is null and its count is not 0
 * zebErrSize             a count is negative; corrupt data
 * zebWarnDstFull         *pPairsLen is 0 on entry; or the pairs ran out
 * zebErrGeneral          the block is of another kind
 * zebWarnSrcExhausted    the source ran out */
ZEBDC_API ZebStatus zebsDecodeLZ77FixedHuff_8u(const uint8_t** ppSrc, int* pSrcLen,
                                               ZebLZ77Pair** ppPairs, int* pPairsLen,
                                               ZebLZ77Flush flush, ZebLZ77State_8u* pState);
ZEBDC_API ZebStatus zebsDecodeLZ77DynamicHuff_8u(const uint8_t** ppSrc, int* pSrcLen,
                                                 ZebLZ77Pair** ppPairs, int* pPairsLen,
                                                 ZebLZ77Flush flush, ZebLZ77State_8u* pState);

/* Second pass: turns pairs into bytes. Advances *ppPairs and *ppDst. Of a match that is longer than
 * the room the rest is kept, and written by the next call before its pairs; a call without pairs
 * writes that rest alone. Pairs are not examined: a distance that leads out of the history reads
 * what the record's memory holds.
 *
 * zebOk                  the pairs are used up; or there were none
 * zebWarnFinalBlockDone  they are used up and a final Huffman block has been decoded to pairs
 * zebErrNullPtr          an argument is null; *ppPairs or *ppDst is null and its count is not 0
 * zebErrSize             a count is negative
 * zebWarnDstFull         there are pairs and *pDstLen is 0 on entry; or the room ran out */
ZEBDC_API ZebStatus zebsDecodeLZ77_8u(const ZebLZ77Pair** ppPairs, int* pPairsLen, uint8_t** ppDst,
                                      int* pDstLen, ZebLZ77Flush flush, ZebLZ77State_8u* pState);

/* ------------------------------------------------------------------------------------------------
 * Inflate with tables of the caller
 * --------------------------------------------------------------------------------------------- */

/* A deflate decoder for callers who parse block headers and code lengths themselves (RFC 1951) and
 * keep the bit buffer. Tables are built once for each code and serve all calls within the block.
 *
 * The output so far, a dictionary before it included, and the room for more are one contiguous
 * buffer: matches are copied within it. */

/* Which tables a record holds. */
enum {
  zebInflateTablesFixed = 0, /* the fixed codes: the library's own tables are used */
  zebInflateTablesLong = 1,  /* built, with codes above 11 (literals) or 10 bits (distances) */
  zebInflateTablesFast = 2   /* built, with shorter codes only */
};

/* Where a call stopped. */
typedef uint32_t ZebInflateMode;
enum {
  zebInflateBlockDone = 0, /* the end-of-block symbol was read */
  zebInflateAtSymbol = 1,  /* between two symbols: more source is needed */
  zebInflateInSymbol =
      2 /* within a symbol, which the record keeps: more source or room is needed */
};

/* The tables of zebInflateTablesFast. Each is indexed by the next bits of the input, as many as its
 * longest code has; a code of fewer bits stands at every index that ends in it.
 *   litLen        bits 0 to 3: the length of the code; bits 4 to 7: 0 for a literal, 8 to 13 for a
 *                 match and its 0 to 5 extra bits, 15 for the end of the block, 14 where no symbol
 *                 has the code; bits 8 to 15: the literal, or the least length of the match - 3
 *   distance      bits 0 to 3: the length of the code; bits 4 to 7: 0 to 13 extra bits, 14 where no
 *                 symbol has the code. Without distance codes there is no table.
 *   distanceBase  at the same index: the least distance */
typedef struct ZebInflateFastTables {
  uint16_t litLen[2048];
  uint8_t distance[1024];
  uint16_t distanceBase[1024];
} ZebInflateFastTables;

#define ZEB_INFLATE_LITLEN_ENTRIES 2400
#define ZEB_INFLATE_DISTANCE_ENTRIES 688

/* The tables of zebInflateTablesLong. Their layout may change. */
typedef struct ZebInflateLongTables {
  uint32_t litLen[ZEB_INFLATE_LITLEN_ENTRIES];
  uint32_t distance[ZEB_INFLATE_DISTANCE_ENTRIES];
  uint16_t litLenLengths[288];
} ZebInflateLongTables;

/* The caller sets the first three members: historySize before every series of calls, and tableKind
 * for fixed blocks. zebsInflateBuildHuffTable sets tableKind and everything behind partial. */
typedef struct ZebInflateState {
  const uint8_t* history; /* the first byte of the buffer */
  uint32_t historySize;   /* the largest winIdx that is accepted */
  uint32_t tableKind;
  uint32_t partial[4];    /* a symbol that a call had to leave */
  uint32_t longestLitLen; /* lengths of the longest codes */
  uint32_t longestDistance;
  union {
    ZebInflateFastTables fast;
    ZebInflateLongTables longCodes;
  } tables;
} ZebInflateState;

/* Builds the tables of a dynamic block: pCodeLens are nLitCodeLens lengths of literal/length codes
 * followed by nDistCodeLens of distance codes, 0 to 15 each. Incomplete sets are accepted, such as
 * a single distance code, or none; their unused patterns are invalid data.
 *   zebErrNullPtr  a pointer is null
 *   zebErrSize     nLitCodeLens is above 286 or nDistCodeLens above 30
 *   zebErrBadData  no literal/length code, none for the end of the block, a length above 15, or
 *                  more codes than there are patterns; the tables are then not to be used */
ZEBDC_API ZebStatus zebsInflateBuildHuffTable(const uint16_t* pCodeLens, uint32_t nLitCodeLens,
                                              uint32_t nDistCodeLens, ZebInflateState* pState);

/* Decodes symbols of one block. *pCode and *pCodeLenBits are the caller's bit buffer, least
 * significant bit first: up to 32 bits that precede the source; whole bytes that a call took and
 * did not use go back to the source. winIdx and dstIdx are both the offset of *ppDst in the buffer.
 *
 * *pMode is zebInflateInSymbol to resume after a call that answered so; any other value starts at a
 * symbol and abandons what the record keeps. On return it tells where the call stopped. The end of
 * the block is taken even with no room left.
 *   zebOk          a normal stop: see *pMode
 *   zebErrNullPtr  a pointer, *ppSrc or *ppDst is null
 *   zebErrSize     *pCodeLenBits is above 32, or winIdx above the record's historySize
 *   zebErrBadData  the record's tableKind is unknown (nothing was done then); or a code that no
 *                  symbol has, or a distance that reaches before the buffer: everything before it
 *                  has been decoded, and *pMode is as it was */
ZEBDC_API ZebStatus zebsInflate_8u(const uint8_t** ppSrc, uint32_t* pSrcLen, uint32_t* pCode,
                                   uint32_t* pCodeLenBits, uint32_t winIdx, uint8_t** ppDst,
                                   uint32_t* pDstLen, uint32_t dstIdx, ZebInflateMode* pMode,
                                   ZebInflateState* pState);

/* ------------------------------------------------------------------------------------------------
 * Byte Huffman coding
 * --------------------------------------------------------------------------------------------- */

/* A static Huffman coder for bytes. The caller counts byte frequencies, builds a code from them,
 * ships the code lengths in packed form and codes any number of blocks; the decoder builds its
 * tables from the lengths. Bits left over between calls wait in the record.
 *
 * Codes have at most 32 bits and are written most significant bit first, into bytes from the most
 * significant bit down. They are canonical in this library's own orientation: handed out from the
 * longest length to the shortest, within a length from the highest byte value to the lowest, the
 * running code being halved on the way to the next shorter length. Lengths A=1, B=2, C=2 give C=00,
 * B=01, A=1.
 *
 * A code-length table is 256 int by byte value, 0 for a value without a code. */

/* The record, for encoder and decoder alike: 2608 bytes. One record serves one direction. */
typedef struct ZebHuffState_8u ZebHuffState_8u;

/* Stores the size of the record. zebErrNullPtr: pSize is null. */
ZEBDC_API ZebStatus zebsHuffGetSize_8u(int* pSize);

/* Builds an encoder's code from 256 frequencies by byte value and starts a stream. A single value
 * in use gets the one-bit code 0.
 *   zebErrNullPtr      an argument is null
 *   zebErrFreqTable    all frequencies are 0, or one of them or their running sum reaches 2^31
 *   zebErrCodeTooLong  the tree is deeper than 32 levels; lengths are not limited, the call fails
 */
ZEBDC_API ZebStatus zebsEncodeHuffInit_8u(const uint32_t* pFreqTable, ZebHuffState_8u* pState);

/* The same in memory of the core library. Stores the record's address, or null where memory is
 * short (the result is then zebErrNullPtr), and returns what zebsEncodeHuffInit_8u returns; the
 * record must be released after an error, too.
 *   zebErrNullPtr      pFreqTable or ppState is null: nothing is stored */
ZEBDC_API ZebStatus zebsEncodeHuffInitAlloc_8u(const uint32_t* pFreqTable,
                                               ZebHuffState_8u** ppState);

/* Writes the code of one byte value at pDst, behind the first dstOffsetBits (0 to 7) bits of its
 * first byte, which stay as they are. Every further byte touched is overwritten; bits behind the
 * code in the last one become 0. (code length + offset + 7) / 8 bytes are touched. The record's
 * pending bits play no part; the caller advances its bit position by the code's length.
 *   zebErrNullPtr       pDst or pState is null
 *   zebErrSize          dstOffsetBits is not 0 to 7
 *   zebErrCodeLenTable  the value has no code */
ZEBDC_API ZebStatus zebsEncodeHuffOne_8u(uint8_t src, uint8_t* pDst, int dstOffsetBits,
                                         ZebHuffState_8u* pState);

/* Codes srcLen bytes behind the pending bits. Output leaves in whole 32-bit words: *pDstLen, on
 * return the bytes written, is a multiple of 4, and fewer than 32 bits stay pending. Values without
 * a code contribute nothing. There is no capacity argument: zebsHuffGetDstBuffSize_8u bounds the
 * output of a stream that is coded in one call and finished; a caller who codes in pieces adds 4
 * bytes.
 *   zebErrNullPtr  an argument is null
 *   zebErrSize     srcLen is below 1 */
ZEBDC_API ZebStatus zebsEncodeHuff_8u(const uint8_t* pSrc, int srcLen, uint8_t* pDst, int* pDstLen,
                                      ZebHuffState_8u* pState);

/* Writes the pending bits, 0 to 4 bytes, padded with zero bits, and stores their number in
 * *pDstLen. The record stays as it was. zebErrNullPtr: an argument is null. */
ZEBDC_API ZebStatus zebsEncodeHuffFinal_8u(uint8_t* pDst, int* pDstLen, ZebHuffState_8u* pState);

/* Builds a decoder's tables from a code-length table and starts a stream. Whether the lengths form
 * a complete code is not checked; bits that match no code stop decoding.
 *   zebErrNullPtr       an argument is null
 *   zebErrCodeLenTable  a length is negative or above 32, or all are 0 */
ZEBDC_API ZebStatus zebsDecodeHuffInit_8u(const int* pCodeLenTable, ZebHuffState_8u* pState);

/* The same in memory of the core library, with the conventions of zebsEncodeHuffInitAlloc_8u.
 *   zebErrNullPtr  pCodeLenTable or ppState is null: nothing is stored; or memory is short: null is
 */
ZEBDC_API ZebStatus zebsDecodeHuffInitAlloc_8u(const int* pCodeLenTable, ZebHuffState_8u** ppState);

/* Decodes the one symbol behind the first srcOffsetBits (0 to 7) bits of pSrc. Reads (offset +
 * longest code + 7) / 8 bytes. The record's pending bits play no part; the caller advances its bit
 * position by the length of the symbol's code.
 *   zebErrNullPtr       an argument is null, or the record has no decoding tables
 *   zebErrSize          srcOffsetBits is not 0 to 7, or the record holds no code
 *   zebErrCodeLenTable  the bits match no code (incomplete codes only) */
ZEBDC_API ZebStatus zebsDecodeHuffOne_8u(const uint8_t* pSrc, int srcOffsetBits, uint8_t* pDst,
                                         ZebHuffState_8u* pState);

/* Decodes a block: until *pDstLen symbols (capacity on entry, symbols written on return) are
 * written or the source holds no further whole code. Bytes are read ahead into the record; how many
 * is not told, so a piece of source is given once only, with room for all its symbols. Padding may
 * decode as the symbol of the all-zero code: the caller bounds the output by the count that it
 * expects.
 *   zebErrNullPtr  an argument is null
 *   zebErrSize     srcLen or *pDstLen is below 1 */
ZEBDC_API ZebStatus zebsDecodeHuff_8u(const uint8_t* pSrc, int srcLen, uint8_t* pDst, int* pDstLen,
                                      ZebHuffState_8u* pState);

/* Bounds for a code: *pEncDstBuffSize the bytes that srcLen source bytes code to, *pDecDstBuffSize
 * a generous bound on the symbols that srcLen coded bytes decode to. Either pointer may be null.
 *   zebErrNullPtr       pCodeLenTable is null
 *   zebErrSize          srcLen is below 1, or a bound that is asked for exceeds 31 bits
 *   zebErrCodeLenTable  a length is negative or above 32 */
ZEBDC_API ZebStatus zebsHuffGetDstBuffSize_8u(const int* pCodeLenTable, int srcLen,
                                              int* pEncDstBuffSize, int* pDecDstBuffSize);

/* Copies the 256 code lengths out of a record. zebErrNullPtr: an argument is null. */
ZEBDC_API ZebStatus zebsHuffGetLenCodeTable_8u(int* pCodeLenTable, ZebHuffState_8u* pState);

/* Packs a code-length table into nibbles. *pDstLen is the capacity on entry and the bytes written
 * on return, also where the result is one of the last two; 256 bytes always suffice.
 *   zebErrNullPtr       an argument is null
 *   zebErrSize          *pDstLen is below 1 (nothing is written), or the table does not fit
 *   zebErrCodeLenTable  a length is negative or above 32 */
ZEBDC_API ZebStatus zebsHuffLenCodeTablePack_8u(const int* pCodeLenTable, uint8_t* pDst,
                                                int* pDstLen);

/* Unpacks 256 lengths. *pSrcLen is the bytes available on entry and those consumed on return.
 * Lengths are not range-checked here: up to 41 can come out, which zebsDecodeHuffInit_8u refuses.
 *   zebErrNullPtr  an argument is null
 *   zebErrSize     *pSrcLen is below 1 (nothing is written), or the source ended before 256 lengths
 *                  (the missing part was read as zeros) */
ZEBDC_API ZebStatus zebsHuffLenCodeTableUnpack_8u(const uint8_t* pSrc, int* pSrcLen,
                                                  int* pCodeLenTable);

/* Hands the record to zebFree. */
ZEBDC_API void zebsHuffFree_8u(ZebHuffState_8u* pState);

/* ------------------------------------------------------------------------------------------------
 * Generalized interval transform
 * --------------------------------------------------------------------------------------------- */

/* A block coder for bytes. Each byte is replaced by its interval: how many bytes have occurred
 * since its value last did, counting only values that stand behind it in an order of all 256. The
 * intervals of each value go to a bit stream of its own with an adaptive prefix code; a block is
 * the 256 streams one after another, each as a 32-bit big-endian length and its bytes. Value 255
 * stands last in the order and needs no intervals; its number of occurrences ends the last stream.
 *
 * The strategy hint chooses how the order adapts. The decoder is given the encoder's. Any other
 * value stands for 0. */
enum {
  /* 0 is treated as zebGITStrategyLeafSwap */
  zebGITStrategyLeafSwap = 1, /* a value more frequent than the one before it takes its place */
  zebGITStrategyNodeSwap = 2, /* a value more frequent than the one behind it takes its place */
  zebGITStrategyStatic = 3    /* the order stays, and no value is counted in advance */
};

/* The record. An encoder's and a decoder's are different blocks of memory. */
typedef struct ZebGITState_8u ZebGITState_8u;

/* Stores the size of an encoder's record for blocks of up to maxSrcLen bytes that code to up to
 * maxDstLen. It is about 256 times maxSrcLen, since each stream may need that much.
 *   zebWarnDstFull  a notice, with the size stored: maxSrcLen is below 4096, so that the limits
 *                   4096 and 8192 are used instead of both
 *   zebErrNullPtr   pSize is null
 *   zebErrSize      a limit is below 1, or the size exceeds 31 bits */
ZEBDC_API ZebStatus zebsEncodeGITGetSize_8u(int maxSrcLen, int maxDstLen, int* pSize);

/* Lays out an encoder's record. Statuses as zebsEncodeGITGetSize_8u, with pState in place of pSize.
 */
ZEBDC_API ZebStatus zebsEncodeGITInit_8u(int maxSrcLen, int maxDstLen, ZebGITState_8u* pState);

/* The same in memory of the core library; returns what zebsEncodeGITInit_8u returns.
 *   zebErrNullPtr   ppState is null
 *   zebErrSize      as above; nothing is stored
 *   zebErrMemAlloc  memory is short; nothing is stored */
ZEBDC_API ZebStatus zebsEncodeGITInitAlloc_8u(int maxSrcLen, int maxDstLen,
                                              ZebGITState_8u** ppState);

/* Codes one block of srcLen bytes, 0 included, and stores its coded length, at most the record's
 * maxDstLen, in *pDstLen. Blocks are independent of one another.
 *   zebErrNullPtr  an argument is null
 *   zebErrSize     srcLen is negative or above the record's maxSrcLen; or the coded block is longer
 *                  than maxDstLen (nothing is written then) */
ZEBDC_API ZebStatus zebsEncodeGIT_8u(const uint8_t* pSrc, int srcLen, uint8_t* pDst, int* pDstLen,
                                     int strategyHint, ZebGITState_8u* pState);

/* Stores the size of a decoder's record for coded blocks of up to maxSrcLen bytes.
 *   zebErrNullPtr  pSize is null
 *   zebErrSize     maxSrcLen is below 1, or the size exceeds 31 bits */
ZEBDC_API ZebStatus zebsDecodeGITGetSize_8u(int maxSrcLen, int* pSize);

/* Prepares a decoder's record for blocks that decode to up to maxDstLen bytes.
 *   zebErrNullPtr  pState is null
 *   zebErrSize     maxDstLen is below 1 */
ZEBDC_API ZebStatus zebsDecodeGITInit_8u(int maxDstLen, ZebGITState_8u* pState);

/* The same in memory of the core library; the record also refuses coded blocks above maxSrcLen.
 * Stores the record's address, or null where memory is short.
 *   zebErrNullPtr  ppState is null; or memory is short: null is stored
 *   zebErrSize     maxSrcLen is out of range: nothing is stored; or maxDstLen is below 1: the
 *                  record is stored and must be released */
ZEBDC_API ZebStatus zebsDecodeGITInitAlloc_8u(int maxSrcLen, int maxDstLen,
                                              ZebGITState_8u** ppState);

/* Decodes one block. pDst has room for the record's maxDstLen bytes; *pDstLen is the number
 * written.
 *   zebErrNullPtr  an argument is null
 *   zebErrSize     srcLen is negative or above the record's maxSrcLen; or the block is malformed or
 *                  longer than maxDstLen: *pDstLen is then not written, the bytes at pDst may be */
ZEBDC_API ZebStatus zebsDecodeGIT_8u(const uint8_t* pSrc, int srcLen, uint8_t* pDst, int* pDstLen,
                                     int strategyHint, ZebGITState_8u* pState);

/* Hands the record to zebFree. */
ZEBDC_API void zebsGITFree_8u(ZebGITState_8u* pState);

/* ------------------------------------------------------------------------------------------------
 * bzip2: run-length stages
 * --------------------------------------------------------------------------------------------- */

/* The first stage of a bzip2 block and its inverse. Four equal bytes are followed by a byte that
 * counts the further ones, 0 to 255; after a count byte, counting starts afresh.
 *
 * A block is encoded by Init, calls of zebsEncodeRLE_BZ2_8u and one zebsEncodeRLEFlush_BZ2_8u;
 * zebsRLEGetInUseTable_8u then tells which byte values the block holds. It is decoded whole by
 * zebsDecodeRLE_BZ2_8u, or in pieces by zebsDecodeRLEState_BZ2_8u and its flush. Bytes of a room
 * behind what was written may have been overwritten. */

/* The record of an encoder or of a decoder in pieces: 264 bytes. */
typedef struct ZebRLEState_BZ2 ZebRLEState_BZ2;

/* Stores the size of the record. zebErrNullPtr: pSize is null. */
ZEBDC_API ZebStatus zebsRLEGetSize_BZ2_8u(int* pSize);

/* Starts a block for the encoder. zebErrNullPtr: pState is null. */
ZEBDC_API ZebStatus zebsEncodeRLEInit_BZ2_8u(ZebRLEState_BZ2* pState);

/* The same in memory of the core library. Stores the record's address, or null where memory is
 * short. zebErrNullPtr: ppState is null, or memory is short. */
ZEBDC_API ZebStatus zebsEncodeRLEInitAlloc_BZ2_8u(ZebRLEState_BZ2** ppState);

/* Hands the record to zebFree. */
ZEBDC_API void zebsRLEFree_BZ2_8u(ZebRLEState_BZ2* pState);

/* Encodes *pSrcLen bytes, as far as the room goes. Both may be cut anywhere: a run that is open at
 * the end waits in the record. Runs of up to 259 bytes are coded by one count byte; bzip2's own
 * encoder stops at 255, and all decoders take both. The output is at most 5/4 of the input, flush
 * included.
 *
 *   ppSrc, pSrcLen   advanced by what was consumed
 *   pDstLen          in: the capacity of pDst; out: the bytes written
 *
 * zebOk           the source is used up
 * zebWarnDstFull  source is left over
 * zebErrNullPtr   an argument or *ppSrc is null
 * zebErrSize      *pSrcLen or *pDstLen is below 1 */
ZEBDC_API ZebStatus zebsEncodeRLE_BZ2_8u(const uint8_t** ppSrc, int* pSrcLen, uint8_t* pDst,
                                         int* pDstLen, ZebRLEState_BZ2* pState);

/* Ends a block: writes the count byte of a run of four or more that is still open. *pDstLen is the
 * capacity on entry and 0 or 1 on return.
 *   zebErrNullPtr  an argument is null
 *   zebErrSize     *pDstLen is below 1 */
ZEBDC_API ZebStatus zebsEncodeRLEFlush_BZ2_8u(uint8_t* pDst, int* pDstLen, ZebRLEState_BZ2* pState);

/* Copies 256 bytes: 1 for each byte value that the block holds since Init, count bytes included,
 * else 0. zebErrNullPtr: an argument is null. */
ZEBDC_API ZebStatus zebsRLEGetInUseTable_8u(uint8_t* pInUse, const ZebRLEState_BZ2* pState);

/* Decodes a whole block into a destination that holds all of it. A block that ends behind four
 * equal bytes stands for these four. No data is invalid.
 *
 *   ppSrc, pSrcLen   advanced by what was consumed
 *   pDstLen          in: the capacity of pDst; out: the bytes written
 *
 * zebOk           the source is used up; also for a source of 0 bytes
 * zebWarnDstFull  the destination is full, even if just full with the last byte. With source left
 *                 over, or where a run did not fit (its count byte is consumed, the run not
 *                 written), start again with more room: the call cannot be continued
 * zebErrNullPtr   an argument or *ppSrc is null
 * zebErrSize      *pSrcLen is below 0 or *pDstLen below 1 */
ZEBDC_API ZebStatus zebsDecodeRLE_BZ2_8u(const uint8_t** ppSrc, int* pSrcLen, uint8_t* pDst,
                                         int* pDstLen);

/* Starts a block for decoding in pieces; the table of values in use stays as it is.
 * zebErrNullPtr: pState is null. */
ZEBDC_API ZebStatus zebsDecodeRLEStateInit_BZ2_8u(ZebRLEState_BZ2* pState);

/* Decodes a piece of a block. What of a run does not fit waits in the record and is written before
 * new source is read.
 *
 * Cut the source between groups only: no piece may end inside four equal bytes, or between them and
 * their count byte, because nothing but a pending run is carried over; a piece's last four bytes
 * never begin a group.
 *
 * Give a room that holds what the rest of the block decodes to, or feed one group at a time. Where
 * the room ends sooner, right behind a run's last byte, and three more bytes of the same value
 * follow, these three are taken with that byte for the start of a new group: runs of 262 and more
 * bytes can come out wrong.
 *
 *   ppSrc, pSrcLen   advanced by what was consumed
 *   ppDst, pDstLen   advanced by what was written
 *
 * zebOk           the end of the piece was reached. *pSrcLen may still be above 0: the last three
 *                 bytes or fewer did not fit
 * zebWarnDstFull  the room was filled before: call again with more
 * zebErrNullPtr   an argument, *ppSrc or *ppDst is null
 * zebErrSize      *pSrcLen or *pDstLen is below 1 */
ZEBDC_API ZebStatus zebsDecodeRLEState_BZ2_8u(const uint8_t** ppSrc, int* pSrcLen, uint8_t** ppDst,
                                              int* pDstLen, ZebRLEState_BZ2* pState);

/* Writes the run that is still pending, as far as the room goes; a room of 0 is allowed.
 *   zebOk           nothing is pending any more
 *   zebWarnDstFull  call again with more room
 *   zebErrNullPtr   an argument or *ppDst is null */
ZEBDC_API ZebStatus zebsDecodeRLEStateFlush_BZ2_8u(ZebRLEState_BZ2* pState, uint8_t** ppDst,
                                                   int* pDstLen);

/* ------------------------------------------------------------------------------------------------
 * bzip2: move-to-front
 * --------------------------------------------------------------------------------------------- */

/* Move-to-front of bytes. A list of the 256 byte values starts in increasing order; each byte is
 * replaced by the position of its value in the list (0 to 255), and the value goes to the front.
 *
 * The record carries the list from call to call: data may be cut anywhere. The two directions keep
 * it in opposite senses (positions by value, values by position), so that a record serves one
 * direction from its Init on. */

/* The record: 256 bytes. */
typedef struct ZebMTFState_8u ZebMTFState_8u;

/* Stores the size of the record. zebErrNullPtr: pSize is null. */
ZEBDC_API ZebStatus zebsMTFGetSize_8u(int* pSize);

/* Starts a stream, in either direction. zebErrNullPtr: pState is null. */
ZEBDC_API ZebStatus zebsMTFInit_8u(ZebMTFState_8u* pState);

/* The same in memory of the core library. Stores the record's address.
 *   zebErrNullPtr   ppState is null
 *   zebErrMemAlloc  memory is short: null is stored */
ZEBDC_API ZebStatus zebsMTFInitAlloc_8u(ZebMTFState_8u** ppState);

/* Hands the record to zebFree. */
ZEBDC_API void zebsMTFFree_8u(ZebMTFState_8u* pState);

/* Bytes to positions, and positions back to bytes: len of them, into a buffer that must not overlap
 * the source. No data is invalid.
 *   zebErrNullPtr  an argument is null
 *   zebErrSize     len is below 1 */
ZEBDC_API ZebStatus zebsMTFFwd_8u(const uint8_t* pSrc, uint8_t* pDst, int len,
                                  ZebMTFState_8u* pState);
ZEBDC_API ZebStatus zebsMTFInv_8u(const uint8_t* pSrc, uint8_t* pDst, int len,
                                  ZebMTFState_8u* pState);

/* ------------------------------------------------------------------------------------------------
 * bzip2: Burrows-Wheeler transform
 * --------------------------------------------------------------------------------------------- */

/* The transform of a block of len bytes: all its rotations, compared cyclically, are sorted in
 * increasing order of their bytes. The last column of the sorted rows has len bytes; the index is
 * the row of the rotation that starts at the block's first byte. If the block repeats a shorter
 * string, some rows are equal and the index is the first of those that fit. Every forward
 * function gives the same column and the same index for a block.
 *
 * The scratch buffer may have any alignment; its size is what the ...GetSize function says for the
 * length. What it holds before and after a call does not matter. pDst must not overlap pSrc or the
 * scratch. */

/* How the forward transform sorts. The transform takes any other value for zebBWTSortAuto. */
typedef int32_t ZebBWTSortMethod;
enum {
  /* Compares rotations within a budget of work, and gives up on repetitive blocks. */
  zebBWTSortBudgeted = 0,
  /* The same without a budget: quadratic time on the worst blocks. */
  zebBWTSortUnbounded = 1,
  /* Induced sorting: linear time whatever the block holds. */
  zebBWTSortSuffix = 2,
  /* zebBWTSortBudgeted, and zebBWTSortSuffix where that gives up. */
  zebBWTSortAuto = 3
};

/* The scratch for zebsBWTFwd_8u in bytes: 6 * len + 524484 or 18 * len + 80, whichever is more.
 *
 * zebErrNullPtr  pSize is null
 * zebErrSize     len is below 1, or so large that the answer does not fit an int */
ZEBDC_API ZebStatus zebsBWTFwdGetSize_8u(int len, int* pSize);

/* The scratch for zebsBWTFwd_SelectSort_8u in bytes: 6 * len + 524484 for methods 0 and 1,
 * 18 * len + 80 for method 2, and for method 3 whichever is more. For any other method *pSize is
 * left as it is and the answer is zebOk. A negative len is not refused.
 *
 * zebErrNullPtr  pSize is null
 * zebErrSize     len is 0, or so large that the answer does not fit an int */
ZEBDC_API ZebStatus zebsBWTFwdGetBufSize_SelectSort_8u(int len, int* pSize,
                                                       ZebBWTSortMethod method);

/* Transforms a block, by the fastest method that the library has. No block takes longer than a few
 * times what text of its length takes.
 *
 * zebErrNullPtr  an argument is null
 * zebErrSize     len is below 1 */
ZEBDC_API ZebStatus zebsBWTFwd_8u(const uint8_t* pSrc, uint8_t* pDst, int len, int* pIndex,
                                  uint8_t* pBuffer);

/* Transforms a block by a given method. A negative len is not refused: the call does nothing.
 *
 * zebWarnSortBudget  method 0 gave up: pDst and *pIndex hold nothing of use; try method 2 or 3
 * zebErrNullPtr      a pointer is null
 * zebErrSize         len is 0 */
ZEBDC_API ZebStatus zebsBWTFwd_SelectSort_8u(const uint8_t* pSrc, uint8_t* pDst, int len,
                                             int* pIndex, uint8_t* pBuffer,
                                             ZebBWTSortMethod method);

/* The scratch for zebsBWTFwd_SmallBlock_8u in bytes, 4 * len + 2080. It is enough for
 * zebsBWTInv_SmallBlock_8u too, which needs 2 * len + 512.
 *
 * zebErrNullPtr  pSize is null
 * zebErrSize     len is below 1 or above 32768 */
ZEBDC_API ZebStatus zebsBWTGetSize_SmallBlock_8u(int len, int* pSize);

/* Transforms a block of at most 32768 bytes in little scratch.
 *
 * zebErrNullPtr  an argument is null
 * zebErrSize     len is below 1 or above 32768 */
ZEBDC_API ZebStatus zebsBWTFwd_SmallBlock_8u(const uint8_t* pSrc, uint8_t* pDst, int len,
                                             int* pIndex, uint8_t* pBuffer);

/* The scratch for zebsBWTInv_8u in bytes, 4 * len + 1024.
 *
 * zebErrNullPtr  pSize is null
 * zebErrSize     len is below 1, or so large that the answer does not fit an int */
ZEBDC_API ZebStatus zebsBWTInvGetSize_8u(int len, int* pSize);

/* The block that a forward transform turned into the column pSrc and the index. Columns and indexes
 * that no block has are not recognised: pDst then receives len bytes without meaning.
 *
 * zebErrNullPtr  a pointer is null
 * zebErrSize     len is below 1, or index is len or more; a negative index is not recognised */
ZEBDC_API ZebStatus zebsBWTInv_8u(const uint8_t* pSrc, uint8_t* pDst, int len, int index,
                                  uint8_t* pBuffer);

/* The same for at most 32768 bytes, in 2 * len + 512 bytes of scratch.
 *
 * zebErrNullPtr  a pointer is null
 * zebErrSize     len is below 1 or above 32768, or index is len or more */
ZEBDC_API ZebStatus zebsBWTInv_SmallBlock_8u(const uint8_t* pSrc, uint8_t* pDst, int len, int index,
                                             uint8_t* pBuffer);

/* ------------------------------------------------------------------------------------------------
 * bzip2: zero-run coding
 * --------------------------------------------------------------------------------------------- */

/* Zero-run coding of move-to-front positions into 16-bit symbols. A run of zero bytes becomes a
 * numeral in base 2, least significant digit first, whose digits are the symbols 0 (RUNA, worth 1)
 * and 1 (RUNB, worth 2); any other byte b becomes the symbol b + 1, 2 to 256. So one zero is RUNA,
 * two are RUNB, three RUNA RUNA, four RUNB RUNA.
 *
 * Both functions carry nothing from call to call: code a block in one call, with room for all of
 * it. Elements of the room behind those written may have been overwritten. */

/* Codes *pSrcLen bytes. As many symbols of room as there are bytes always suffice, but with 20 more
 * no run is ever cut or left over. Zero runs must be shorter than 2097151 bytes; longer ones may
 * end the call early.
 *
 * A run that does not fit is cut: what was written of it stands as a run of its own, the rest stays
 * in the source. In front of another byte, a run that meets a room of exactly 20 symbols ends the
 * call unwritten.
 *
 *   ppSrc, pSrcLen   advanced by what was consumed
 *   pDstLen          in: the capacity of pDst; out: the symbols written
 *   pFreqTable       a counter for each symbol, which is incremented for each one written. Indexes
 *                    0 to 256 are used; give 258, so that the end-of-block symbol can be counted.
 *                    The caller clears them
 *
 * zebOk           the source is used up. The caller appends the end-of-block symbol and counts it
 * zebWarnDstFull  source is left over
 * zebErrNullPtr   an argument or *ppSrc is null
 * zebErrSize      *pSrcLen or *pDstLen is below 1 */
ZEBDC_API ZebStatus zebsEncodeZ1Z2_BZ2_8u16u(const uint8_t** ppSrc, int* pSrcLen, uint16_t* pDst,
                                             int* pDstLen, uint32_t* pFreqTable);

/* Decodes *pSrcLen symbols, without the end-of-block symbol. Symbols above 256 give the low 8 bits
 * of their value minus 1; no symbol is invalid.
 *
 *   ppSrc, pSrcLen   advanced by what was consumed, in symbols
 *   pDstLen          in: the capacity of pDst in bytes; out: the bytes written
 *
 * zebOk           the source is used up
 * zebWarnDstFull  the destination is too small. The digits of a run that did not fit (together with
 *                 the byte behind it) are consumed and lost: start again with more room
 * zebErrNullPtr   an argument or *ppSrc is null
 * zebErrSize      *pSrcLen or *pDstLen is below 1 */
ZEBDC_API ZebStatus zebsDecodeZ1Z2_BZ2_16u8u(const uint16_t** ppSrc, int* pSrcLen, uint8_t* pDst,
                                             int* pDstLen);

/* ------------------------------------------------------------------------------------------------
 * bzip2: multi-table Huffman coding
 * --------------------------------------------------------------------------------------------- */

/* The entropy coder of a bzip2 block. Symbols (zebsEncodeZ1Z2_BZ2_8u16u's, ended by the
 * end-of-block symbol alphaSize - 1) are coded in groups of 50, each by one of two to six Huffman
 * tables. The context tells the decoder the tables and which group uses which.
 *
 *   encoder: Init (builds everything), zebsPackHuffContext_BZ2_16u8u, zebsEncodeHuff_BZ2_16u8u
 *   decoder: Init, zebsUnpackHuffContext_BZ2_8u16u until zebOk, zebsDecodeHuff_BZ2_8u16u until
 *   zebOk;
 *            for a further block with the same alphaSize Init may be left out
 *
 * Bits run from the most significant one down. They go through an accumulator that the caller holds
 * and hands from one function to the next: *pCode with its valid bits at the top, and their number
 * *pCodeLenBits, 0 to 32. Writers move whole bytes out before they add a field, so that up to 24
 * bits are left at the end; the caller writes them himself, or adds the next block to them. Readers
 * add bytes until a field is present, and leave what they have not used. */
typedef struct ZebEncodeHuffState_BZ2 ZebEncodeHuffState_BZ2;
typedef struct ZebDecodeHuffState_BZ2 ZebDecodeHuffState_BZ2;

/* Stores the size of an encoder's record for blocks of up to wndSize symbols: 7780 bytes and two
 * for each group.
 *   zebErrNullPtr  pSize is null
 *   zebErrSize     wndSize is below 1 */
ZEBDC_API ZebStatus zebsEncodeHuffGetSize_BZ2_16u8u(int wndSize, int* pSize);

/* Builds the tables of a block: two for fewer than 200 symbols, three below 600, four below 1200,
 * five below 2400, else six, refined in four passes. Codes have 1 to 17 bits.
 *
 *   alphaSize    symbols in the alphabet, the end-of-block symbol included: 1 to 258
 *   pFreqTable   how often each of them occurs in the block. Guides the first pass only
 *   pSrc, srcLen the block, the end-of-block symbol included; at most the wndSize of the record's
 *                size, and 1638350
 *
 *   zebErrNullPtr  an argument is null
 *   zebErrSize     alphaSize or srcLen is out of range, or a symbol is not below alphaSize */
ZEBDC_API ZebStatus zebsEncodeHuffInit_BZ2_16u8u(int alphaSize, const uint32_t* pFreqTable,
                                                 const uint16_t* pSrc, int srcLen,
                                                 ZebEncodeHuffState_BZ2* pState);

/* The same in memory of the core library. Stores the record's address, or null where memory is
 * short (the result is then zebErrNullPtr), and returns what zebsEncodeHuffInit_BZ2_16u8u returns;
 * the record must be released after an error of that function, too.
 *   zebErrNullPtr  pFreqTable, pSrc or ppState is null: nothing is stored
 *   zebErrSize     wndSize is below 1 or srcLen above it: nothing is stored */
ZEBDC_API ZebStatus zebsEncodeHuffInitAlloc_BZ2_16u8u(int wndSize, int alphaSize,
                                                      const uint32_t* pFreqTable,
                                                      const uint16_t* pSrc, int srcLen,
                                                      ZebEncodeHuffState_BZ2** ppState);

/* Hands the record to zebFree. */
ZEBDC_API void zebsEncodeHuffFree_BZ2_16u8u(ZebEncodeHuffState_BZ2* pState);

/* Writes the context: table count, selector count, selectors, code lengths. *pDstLen is the
 * capacity on entry and the bytes written on return.
 *
 * zebOk           done; fewer than 33 bits are left in the accumulator
 * zebWarnDstFull  the room was too small, and the output is of no use
 * zebErrNullPtr   an argument is null
 * zebErrSize      *pDstLen is below 1 */
ZEBDC_API ZebStatus zebsPackHuffContext_BZ2_16u8u(uint32_t* pCode, int* pCodeLenBits, uint8_t* pDst,
                                                  int* pDstLen, ZebEncodeHuffState_BZ2* pState);

/* Writes the symbols of the block that Init was given, all in one call. *pDstLen is the capacity on
 * entry and the bytes written on return; ppSrc and pSrcLen are advanced over the whole source. 17
 * bits for each symbol always suffice.
 *
 * zebOk           done; fewer than 33 bits are left in the accumulator
 * zebWarnDstFull  the room was too small, and the output is of no use
 * zebErrNullPtr   an argument or *ppSrc is null
 * zebErrSize      *pDstLen is below 1; *pSrcLen asks for more groups than Init has seen, or a
 *                 symbol is not below alphaSize */
ZEBDC_API ZebStatus zebsEncodeHuff_BZ2_16u8u(uint32_t* pCode, int* pCodeLenBits,
                                             const uint16_t** ppSrc, int* pSrcLen, uint8_t* pDst,
                                             int* pDstLen, ZebEncodeHuffState_BZ2* pState);

/* Stores the size of a decoder's record for contexts of up to (wndSize + 49) / 50 selectors: as
 * many bytes, and 9364.
 *
 * The record does not know its size. A context of 15 bits of selector count can name 32767 of them:
 * size the record for that, 1638350 symbols, or look at the count before it is unpacked. bzip2's
 * own blocks have at most 18002.
 *   zebErrNullPtr  pSize is null
 *   zebErrSize     wndSize is below 1 */
ZEBDC_API ZebStatus zebsDecodeHuffGetSize_BZ2_8u16u(int wndSize, int* pSize);

/* Starts a decoder. alphaSize is the number of byte values in use and 2, at most 258.
 *   zebErrNullPtr  pState is null
 *   zebErrSize     alphaSize is out of range */
ZEBDC_API ZebStatus zebsDecodeHuffInit_BZ2_8u16u(int alphaSize, ZebDecodeHuffState_BZ2* pState);

/* The same in memory of the core library. Stores the record's address, or null where memory is
 * short; the result is then zebErrNullPtr.
 *   zebErrNullPtr  ppState is null: nothing is stored
 *   zebErrSize     wndSize is below 1 or alphaSize out of range: nothing is stored */
ZEBDC_API ZebStatus zebsDecodeHuffInitAlloc_BZ2_8u16u(int wndSize, int alphaSize,
                                                      ZebDecodeHuffState_BZ2** ppState);

/* Hands the record to zebFree. */
ZEBDC_API void zebsDecodeHuffFree_BZ2_8u16u(ZebDecodeHuffState_BZ2* pState);

/* Reads a context. The source may be cut anywhere: call again with more of it.
 *
 * zebOk                the context is complete
 * zebWarnSrcExhausted  the source ended; what was read is kept
 * zebErrNullPtr        an argument or *ppSrc is null
 * zebErrSize           *pSrcLen is below 1
 * zebErrGeneral        the record is no decoder's
 * zebErrBadData        a table count outside 2 to 6, no selectors, a selector for no table, a code
 *                      length outside 1 to 20, or more codes of some length than there can be. The
 *                      record holds nothing to decode then, and Init starts it anew */
ZEBDC_API ZebStatus zebsUnpackHuffContext_BZ2_8u16u(uint32_t* pCode, int* pCodeLenBits,
                                                    const uint8_t** ppSrc, int* pSrcLen,
                                                    ZebDecodeHuffState_BZ2* pState);

/* Decodes the symbols of a block, in as many calls as source and room ask for. 20 bits must be
 * present before a symbol is decoded, whatever its length; what follows a block in a bzip2 file is
 * always longer.
 *
 *   ppSrc, pSrcLen   advanced by the bytes taken; they stand behind the accumulator's bits
 *   pDstLen          in: the capacity in symbols; out: the symbols decoded
 *
 * zebOk                the end-of-block symbol was met. It stands behind the *pDstLen symbols and
 *                      is not counted among them
 * zebWarnSrcExhausted  the source ended
 * zebWarnDstFull       the destination is full
 * zebErrNullPtr        an argument or *ppSrc is null
 * zebErrSize           *pDstLen is below 1
 * zebErrGeneral        bits that are no code, more groups than selectors, or no context was read */
ZEBDC_API ZebStatus zebsDecodeHuff_BZ2_8u16u(uint32_t* pCode, int* pCodeLenBits,
                                             const uint8_t** ppSrc, int* pSrcLen, uint16_t* pDst,
                                             int* pDstLen, ZebDecodeHuffState_BZ2* pState);

/* ------------------------------------------------------------------------------------------------
 * bzip2: whole-block decoding
 * --------------------------------------------------------------------------------------------- */

/* The scratch for zebsDecodeBlock_BZ2_16u8u in bytes, 4 * blockSize, where blockSize is the largest
 * *pDstLen that it will be called with.
 *
 * zebErrNullPtr  pSize is null
 * zebErrSize     blockSize is 2^24 or more */
ZEBDC_API ZebStatus zebsDecodeBlockGetSize_BZ2_8u(uint32_t blockSize, int* pSize);

/* From the symbols of a block, as the Huffman decoder gives them but without the end-of-block
 * symbol, to the text that the first run-length stage wrote: zero-run decoding, move-to-front over
 * the values in use, and the inverse Burrows-Wheeler transform in one call.
 *
 *   pSrc, srcLen   symbols: 0 (RUNA) and 1 (RUNB) are digits of run lengths, s >= 2 is the
 *                  move-to-front position s - 1, of which the low 8 bits count
 *   pDstLen        in: the capacity of pDst; out: the bytes decoded. All of the capacity may be
 *                  overwritten
 *   index          the block's origin pointer. If it is not below the number of bytes decoded, the
 *                  bytes are without meaning
 *   numInUse       how many byte values the block has
 *   pInUse         256 bytes, not 0 for each value that the block has. If they are not numInUse in
 *                  number, the call does nothing and answers zebOk
 *   pBuffer        4 * *pDstLen bytes of scratch, at any alignment
 *
 * zebErrNullPtr  a pointer is null
 * zebErrSize     srcLen is below 1, *pDstLen is negative or 2^24 or more, index is negative or not
 *                below *pDstLen, or numInUse is negative or above 256
 * zebErrGeneral  the block does not fit pDst, whose bytes are lost then */
ZEBDC_API ZebStatus zebsDecodeBlock_BZ2_16u8u(const uint16_t* pSrc, int srcLen, uint8_t* pDst,
                                              int* pDstLen, int index, int numInUse,
                                              const uint8_t* pInUse, uint8_t* pBuffer);

/* ------------------------------------------------------------------------------------------------
 * LZSS
 * --------------------------------------------------------------------------------------------- */

/* A stream-style coder with a window of 32 KiB: a literal has 9 bits, a match of 3 to 258 bytes 24.
 * A stream has neither header nor end marker: the caller knows how many bytes it stands for, or
 * gives each stream a decoder of its own and all of its bytes.
 *
 * Calls of any size may follow one another; the result of decoding does not depend on them. Where
 * an encoder's calls end does change the stream: the last two bytes of each call are always
 * literals, so small calls compress badly. */

/* The record of an encoder or a decoder. */
typedef struct ZebLZSSState_8u ZebLZSSState_8u;

/* The bytes that a record needs.
 *
 * zebOk          done
 * zebErrNullPtr  pSize is null */
ZEBDC_API ZebStatus zebsLZSSGetSize_8u(int* pSize);

/* Builds an encoder at the beginning of a stream, also in a record that was in use.
 *
 * zebOk          done
 * zebErrNullPtr  pState is null */
ZEBDC_API ZebStatus zebsEncodeLZSSInit_8u(ZebLZSSState_8u* pState);

/* Builds an encoder in memory of the core library. Release it with zebsLZSSFree_8u.
 *
 * zebOk           done
 * zebErrNullPtr   ppState is null
 * zebErrMemAlloc  there was no memory; *ppState is unchanged */
ZEBDC_API ZebStatus zebsEncodeLZSSInitAlloc_8u(ZebLZSSState_8u** ppState);

/* Encodes source bytes. All cursors advance.
 *
 * After zebWarnDstFull up to two coded bytes may wait in the record for the next call; they go out
 * before anything new is taken. A call without source bytes writes nothing: it does not drain them,
 * zebsEncodeLZSSFlush_8u does.
 *
 * zebOk           the source is used up
 * zebWarnDstFull  the room is used up, exactly at the end of the source too; or was 0 on entry
 * zebErrNullPtr   an argument, *ppSrc or *ppDst is null
 * zebErrSize      *pSrcLen or *pDstLen is negative */
ZEBDC_API ZebStatus zebsEncodeLZSS_8u(const uint8_t** ppSrc, int* pSrcLen, uint8_t** ppDst,
                                      int* pDstLen, ZebLZSSState_8u* pState);

/* Writes the pending bits, padded with zeros to a byte. At most three bytes are pending.
 *
 * A flush that answers zebOk leaves the record as it was: a second one would write the same bits
 * again. Flush once, at the end, and call Init for the next stream.
 *
 * zebOk           everything is written
 * zebWarnDstFull  the room is used up, maybe by the last byte; call again with more room
 * zebErrNullPtr   an argument or *ppDst is null
 * zebErrSize      *pDstLen is below 1 */
ZEBDC_API ZebStatus zebsEncodeLZSSFlush_8u(uint8_t** ppDst, int* pDstLen, ZebLZSSState_8u* pState);

/* Builds a decoder at the beginning of a stream, also in a record that was in use.
 *
 * zebOk          done
 * zebErrNullPtr  pState is null */
ZEBDC_API ZebStatus zebsDecodeLZSSInit_8u(ZebLZSSState_8u* pState);

/* Builds a decoder in memory of the core library. Release it with zebsLZSSFree_8u.
 *
 * zebOk           done
 * zebErrNullPtr   ppState is null
 * zebErrMemAlloc  there was no memory; *ppState is unchanged */
ZEBDC_API ZebStatus zebsDecodeLZSSInitAlloc_8u(ZebLZSSState_8u** ppState);

/* Decodes tokens. All cursors advance; no source byte is taken that no token needs.
 *
 * A match that does not fit is cut; the next call writes the rest. The bits of a token that is not
 * complete stay in the record. No data is invalid: a distance that reaches before the first byte
 * stands for zeros, a distance of 0, which no encoder writes, for 32768.
 *
 * zebOk           the source holds no further whole token
 * zebWarnDstFull  the room is used up, maybe by the last byte
 * zebErrNullPtr   an argument, *ppSrc or *ppDst is null
 * zebErrSize      *pDstLen is below 1, or *pSrcLen is negative */
ZEBDC_API ZebStatus zebsDecodeLZSS_8u(const uint8_t** ppSrc, int* pSrcLen, uint8_t** ppDst,
                                      int* pDstLen, ZebLZSSState_8u* pState);

/* Releases what an InitAlloc returned. */
ZEBDC_API void zebsLZSSFree_8u(ZebLZSSState_8u* pState);

/* ------------------------------------------------------------------------------------------------
 * LZO
 * --------------------------------------------------------------------------------------------- */

/* Coding method of an encoder. */
typedef int32_t ZebLZOMethod;
enum {
  zebLZOMethod1X1 = 0,     /* a plain LZO1X stream, level 1 */
  zebLZOMethod1X1Parts = 1 /* accepted for compatibility; the encoder writes a plain stream too */
};

/* The record of an encoder. Decoders need none. */
typedef struct ZebLZOState_8u ZebLZOState_8u;

/* The bytes that an encoder's record needs. maxSrcLen is not read.
 *
 * zebOk          done
 * zebErrNullPtr  pSize is null
 * zebErrBadArg   the method is unknown; *pSize is 0 */
ZEBDC_API ZebStatus zebsEncodeLZOGetSize(ZebLZOMethod method, uint32_t maxSrcLen, uint32_t* pSize);

/* Prepares a record. One record serves any number of calls of zebsEncodeLZO_8u. maxSrcLen is not
 * read.
 *
 * zebOk          done
 * zebErrNullPtr  pState is null
 * zebErrBadArg   the method is unknown */
ZEBDC_API ZebStatus zebsEncodeLZOInit_8u(ZebLZOMethod method, uint32_t maxSrcLen,
                                         ZebLZOState_8u* pState);

/* Compresses srcLen bytes to one LZO1X stream with its end instruction. The output depends on the
 * source alone. A source of 0 bytes gives an output of 0 bytes, without an end instruction.
 *
 *   pDst      room for the worst case, srcLen + srcLen / 16 + 67 bytes, of which the bytes behind
 *             the stream may be overwritten
 *   pDstLen   out: the size of the stream
 *
 * zebOk          done
 * zebErrNullPtr  an argument is null */
ZEBDC_API ZebStatus zebsEncodeLZO_8u(const uint8_t* pSrc, uint32_t srcLen, uint8_t* pDst,
                                     uint32_t* pDstLen, ZebLZOState_8u* pState);

/* Decompresses an LZO1X stream that a level-1 compressor wrote, or a container of up to 32 such
 * streams. FOR TRUSTED DATA ONLY: what is not a valid stream makes it read and write anywhere. Use
 * zebsDecodeLZOSafe_8u, which is about as fast, for everything else.
 *
 * Decoding ends with the end instruction or, between two instructions, with the source. A source of
 * 0 bytes gives an output of 0 bytes.
 *
 * A container is recognized by its header: 0x55, the number n of parts (1 to 32), n ^ 0x55, and an
 * end instruction (11 00 00) at offset 4 n + s, where s is the little-endian number at offset 7:
 * the size of the first of several parts. A plain stream with all these bytes is taken for a
 * container.
 *
 *   pDstLen   in: the capacity of pDst; out: the bytes produced. Bytes of the capacity behind them
 *             may have been overwritten
 *
 * zebOk          done
 * zebErrNullPtr  an argument is null
 * zebErrLZOData  an instruction byte below 16 follows literals; or a part of a container does not
 *                fit the source or the capacity */
ZEBDC_API ZebStatus zebsDecodeLZO_8u(const uint8_t* pSrc, uint32_t srcLen, uint8_t* pDst,
                                     uint32_t* pDstLen);

/* Does what zebsDecodeLZO_8u does, for any bytes: nothing outside the source is read and nothing
 * outside the capacity is written. *pDstLen is the bytes produced in the case of an error too.
 *
 * zebOk          done
 * zebErrNullPtr  an argument is null
 * zebErrLZOData  as above; or an instruction, a literal run or an extended length reaches beyond
 * the source; or its output reaches beyond the capacity, or its distance before the start of the
 * output */
ZEBDC_API ZebStatus zebsDecodeLZOSafe_8u(const uint8_t* pSrc, uint32_t srcLen, uint8_t* pDst,
                                         uint32_t* pDstLen);

/* ------------------------------------------------------------------------------------------------
 * Plain run-length coding
 * --------------------------------------------------------------------------------------------- */

/* Codes *pSrcLen bytes. A run of 2 to 257 equal bytes b becomes b, b and a byte that counts the
 * further ones; longer runs are split; any other byte stands for itself. The output is at most one
 * and a half times as long as the input; a room of srcLen + srcLen / 2 + 2 bytes always suffices.
 *
 * Give room for the whole result. When fewer than three bytes of room are left, the call fills them
 * with the next source bytes as they are: two equal ones among them would be taken for a run by a
 * decoder that sees bytes behind them.
 *
 *   ppSrc, pSrcLen   advanced by what was consumed
 *   pDstLen          in: the capacity of pDst; out: the bytes written. Bytes of the capacity behind
 *                    them may have been overwritten
 *
 * zebOk           the source is used up
 * zebWarnDstFull  source is left over; call again with more room
 * zebErrNullPtr   an argument or *ppSrc is null
 * zebErrSize      *pSrcLen or *pDstLen is below 1 */
ZEBDC_API ZebStatus zebsEncodeRLE_8u(const uint8_t** ppSrc, int* pSrcLen, uint8_t* pDst,
                                     int* pDstLen);

/* Decodes what zebsEncodeRLE_8u wrote. Arguments and statuses are the encoder's. A run is written
 * as a whole or not at all: where it does not fit, its three bytes stay in the source.
 *
 * The last two bytes of the source, unless they belong to a run that began before them, are copied
 * as they are, equal or not. So cut a stream into calls only where no run is cut. No data is
 * invalid. */
ZEBDC_API ZebStatus zebsDecodeRLE_8u(const uint8_t** ppSrc, int* pSrcLen, uint8_t* pDst,
                                     int* pDstLen);

#ifdef __cplusplus
}
#endif

#endif
