/*
 * aklac.h - audio-coding primitives: bitstream, variable-length codes,
 * MPEG-1/2 Layer III and AAC decoding stages, transforms, vector utilities.
 *
 * Every operation is a re-entrant function over caller-owned buffers and
 * library-built context objects and returns a Status (0 success, negative
 * error, positive warning).  Arguments are checked before anything is
 * written, in this order: null pointers, then sizes and ranges, then context
 * tags, then record consistency; the first failing check decides the status
 * and leaves every output and cursor untouched.
 *
 * Bit-level operations take a bitstream cursor: a pointer to the caller's
 * byte pointer and a pointer to the bit offset 0..7 in that byte, counted
 * from the most significant bit.  On success both are advanced past what was
 * read or written.  Readers load aligned big-endian 32-bit words, so an input
 * buffer must be readable from the aligned word holding the first bit through
 * the aligned word after the last bit used.
 *
 * Valid C99 and C++.
 */
#ifndef AKLAC_H
#define AKLAC_H

#if defined(__GNUC__)
#define AKLAC_API __attribute__((visibility("default")))
#else
#define AKLAC_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------
 * Element types
 * ---------------------------------------------------------------------- */
typedef unsigned char Akl8u;       /* unsigned 8-bit: bytes of a bitstream, per-band flags */
typedef signed char Akl8s;         /* signed 8-bit */
typedef short Akl16s;              /* signed 16-bit: PCM samples, decoded VLC values */
typedef int Akl32s;                /* signed 32-bit: record fields, fixed-point spectra */
typedef unsigned int Akl32u;       /* unsigned 32-bit */
typedef unsigned long long Akl64u; /* unsigned 64-bit: processor-feature masks */
typedef float Akl32f;              /* IEEE single precision */
/* Complex pair of signed 16-bit values, real part first. */
typedef struct { Akl16s re; /* real part */ Akl16s im; /* imaginary part */ } Akl16sc;
/* Complex pair of signed 32-bit values, real part first. */
typedef struct { Akl32s re; /* real part */ Akl32s im; /* imaginary part */ } Akl32sc;
/* Complex pair of floats, real part first. */
typedef struct { Akl32f re; /* real part */ Akl32f im; /* imaginary part */ } Akl32fc;

/* ------------------------------------------------------------------------
 * Status values
 * ---------------------------------------------------------------------- */
/* Result of every operation: 0 success, negative error, 2 a warning after
 * which the work has been done in full.  Values are those of AklStatusCode. */
typedef Akl32s Status;

/* The status values.  Two family statuses share a value with a general one
 * (kStsVLCLinbitsErr, kStsVLCEscValueErr): the operation tells them apart. */
enum AklStatusCode {
  kStsMisalignedWarn = 2,       /* warning: a data pointer is not 16-byte aligned; work done in full */
  kStsOk = 0,                   /* success */
  kStsErr = -2,                 /* unclassified error */
  kStsBadArgErr = -5,           /* an argument value is out of its allowed range */
  kStsSizeErr = -6,             /* a length, size or count is out of range */
  kStsNullPtr = -8,             /* a required pointer is null */
  kStsMemAllocErr = -9,         /* memory allocation failed */
  kStsFftOrderErr = -15,        /* FFT order out of range */
  kStsFftFlagErr = -16,         /* FFT normalisation flag not 1, 2, 4 or 8 */
  kStsContextMismatch = -17,    /* the context does not carry the expected type tag */
  kStsFIRLenErr = -26,          /* block FIR: taps or block length not positive, or state inconsistent */
  kStsNumChannelsErr = -53,     /* number of channels below 1 */
  kStsVLCDataErr = -127,        /* VLC decoding: bad offset or tag, or an undecodable escape */
  kStsVLCTableErr = -129,       /* VLC table build: bad lengths, sub-table sizes or prefix conflict */
  kStsAacAotErr = -136,         /* audio object type above 16 */
  kStsAacLayerFlagErr = -137,   /* scalable-layer flag outside 0..1 */
  kStsAacDiffCtrlFlagErr = -138, /* difference-control flag argument outside 0..1 */
  kStsAacMsMaskFlagErr = -139,  /* extension-layer M/S mask flag outside 0..1 */
  kStsAacStereoFlagErr = -140,  /* scalable-header stereo flag outside 0..1 */
  kStsAacChanErr = -141,        /* number of channels outside 1..2 */
  kStsAacMsMaskErr = -142,      /* msMaskPresent outside 1..2 */
  kStsAacCommonWinErr = -143,   /* common-window flag outside 0..1 */
  kStsAacWinSeqErr = -144,      /* window sequence outside 0..3 */
  kStsAacWinGrpErr = -145,      /* window groups outside 1..8 (or not 1 for long windows) */
  kStsAacWinLenErr = -146,      /* window length not 128 (or 1024) */
  kStsAacSmpRateIdxErr = -147,  /* sampling-frequency index outside 0..11 */
  kStsAacBitOffsetErr = -149,   /* cursor bit offset outside 0..7 */
  kStsAacTnsDirectErr = -152,   /* TNS direction not 0 or 1 */
  kStsAacTnsCoefErr = -153,     /* TNS coefficient outside -8..7 */
  kStsAacTnsCoefResErr = -154,  /* TNS coefficient resolution not 3 or 4 */
  kStsAacTnsOrderErr = -155,    /* TNS order above 7 (short) or 12 (long) */
  kStsAacTnsLenErr = -156,      /* TNS length negative or above the number of bands */
  kStsAacTnsNumFiltErr = -157,  /* TNS filter count negative or above 3 (long) / 1 (short) */
  kStsAacSectDataErr = -158,    /* section lengths do not add up to max_sfb */
  kStsAacGainCtrlErr = -159,    /* gain-control data present (not supported) */
  kStsAacPulseErr = -160,       /* pulse data invalid */
  kStsAacPredSfbErr = -161,     /* predictor band limit outside 0..41 */
  kStsAacMaxSfbErr = -162,      /* max_sfb or band limit above its maximum */
  kStsAacCoefValErr = -163,     /* quantized coefficient magnitude above 8191 */
  kStsAacSfValErr = -164,       /* scale factor or noise energy outside 0..255 */
  kStsAacCodebookErr = -166,    /* section codebook not allowed here */
  kStsAacPrgNumErr = -167,      /* number of program configuration elements outside 1..16 */
  kStsMP3SideInfoErr = -170,    /* side information invalid */
  kStsMP3FrameHeaderErr = -171, /* frame header unsupported or invalid */
  kStsBitOffsetErr = -193,      /* escape-block VLC: bit offset outside 0..7 */
  kStsNotSupportedModeErr = -9999, /* the requested mode is not supported */
  /* statuses particular to one family: */
  kStsVLCLinbitsErr = -15,     /* VLC Layer III escape encoder/counter: linbits outside 0..13 (value of kStsFftOrderErr) */
  kStsVLCEscValueErr = -16,    /* VLC escape encoders/counters: a magnitude beyond the escape's range (value of kStsFftFlagErr) */
  /* @status-end */
};

/* ------------------------------------------------------------------------
 * Version record
 * ---------------------------------------------------------------------- */
/* The library's version record (constant, returned by aklacGetLibVersion). */
typedef struct {
  Akl32s major;          /* 8 */
  Akl32s minor;          /* 1 */
  Akl32s majorBuild;     /* 1 */
  Akl32s build;          /* 42291 */
  char targetCpu[4];     /* "mx" and two zero bytes: generic x86-64 code */
  const char* Name;      /* "aklAC PX (mx)" */
  const char* Version;   /* "8.1.1 (r42291)" */
  const char* BuildDate; /* "Apr 10 2014" */
} AklLibraryVersion;

/* Returns the library's constant version record; the same pointer on every call.
 * Status: none; the result is never null. */
AKLAC_API const AklLibraryVersion* aklacGetLibVersion(void);

/* ========================================================================
 * Variable-length codes
 * ====================================================================== */
/* A code-book entry: `length` (1..32) low bits of `code` form the code word,
 * most significant bit sent first; `value` is what it decodes to. */
typedef struct {
  Akl32s value;  /* what the code decodes to (for tuple and pair books, the packed elements) */
  Akl32s code;   /* the code word in its `length` low bits; higher bits are ignored */
  Akl32s length; /* code length in bits, 1..32 */
} VlcCodeEntry;

/* VLC decoding context (plain and tuple decoders share it; tag 0x434D4160).
 * Opaque: built by aklsVLCDecode[UTuple]Init[Alloc]_32s in memory of the
 * GetSize size at any alignment; the caller always passes the same raw pointer. */
typedef struct aklsVLCDecodeSpec_32s aklsVLCDecodeSpec_32s;
/* VLC encoding context (encoders and bit counters; tag 0x434D415F). Opaque. */
typedef struct aklsVLCEncodeSpec_32s aklsVLCEncodeSpec_32s;

/* --- decoding context ---------------------------------------------------
 * The code book becomes a multi-level lookup table: level i resolves
 * pSubTablesSizes[i] more code bits; the level that reaches the longest code
 * length L is cut to end exactly there and later sizes are ignored.  Entries
 * are 8, 16 or 32 bits wide, the narrowest that holds both the leaves
 * (value, consumed bits, flag) and the sub-table pointers.  Values decoded
 * from 8-bit tables come back unsigned (a negative value does not survive);
 * 16- and 32-bit tables return them signed.
 * Prefix conflicts are found only where a code descends through a slot that
 * holds a leaf; a shorter code entered after a longer one with the same
 * prefix silently replaces it, and inside one level a later entry overwrites
 * an earlier one. */

/* Bytes needed by aklsVLCDecodeInit_32s: table entries x width / 8 + 160.
 *   pInputTable      in   code book, inputTableSize entries
 *   inputTableSize   in   entries in the book
 *   pSubTablesSizes  in   code bits resolved per lookup level, first level first
 *   numSubTables     in   entries in pSubTablesSizes
 *   pSize            out  size in bytes
 * Status: kStsNullPtr (pInputTable, pSubTablesSizes, pSize); kStsVLCTableErr
 * (a code length outside 1..32, which includes an empty book; a level size
 * below 1 before the sizes reach L; sizes summing to less than L; a table
 * whose size would not fit in an int). */
AKLAC_API Status aklsVLCDecodeGetSize_32s(const VlcCodeEntry* pInputTable, int inputTableSize,
                                          const int* pSubTablesSizes, int numSubTables, int* pSize);
/* Builds the decoding context in caller memory of at least the GetSize size
 * (any alignment; the context starts at the first 64-byte boundary).
 *   pInputTable, inputTableSize, pSubTablesSizes, numSubTables  in  as GetSize
 *   pSpec            out  the context memory
 * Status: kStsNullPtr; kStsVLCTableErr as GetSize; kStsVLCTableErr when a
 * code descends through a slot that holds a leaf (the context is then built
 * in part and carries its tag). */
AKLAC_API Status aklsVLCDecodeInit_32s(const VlcCodeEntry* pInputTable, int inputTableSize,
                                       const int* pSubTablesSizes, int numSubTables,
                                       aklsVLCDecodeSpec_32s* pSpec);
/* As aklsVLCDecodeInit_32s in memory from aklMalloc; *ppSpec receives it.
 *   pInputTable, inputTableSize, pSubTablesSizes, numSubTables  in  as GetSize
 *   ppSpec           out  the raw pointer of the new context
 * Status: kStsNullPtr; kStsVLCTableErr as GetSize; kStsMemAllocErr (*ppSpec
 * unwritten); kStsVLCTableErr for a prefix conflict, reported after *ppSpec
 * has been written: release it with aklsVLCDecodeFree_32s. */
AKLAC_API Status aklsVLCDecodeInitAlloc_32s(const VlcCodeEntry* pInputTable, int inputTableSize,
                                            const int* pSubTablesSizes, int numSubTables,
                                            aklsVLCDecodeSpec_32s** ppSpec);
/* Clears the context's tag and releases the memory if InitAlloc obtained it.
 * A null pointer is ignored.  Also frees tuple contexts.  Memory that does
 * not hold a built context at the aligned position (a context freed before,
 * a pointer passed on at another offset) is neither written nor released.
 *   pSpec            in/out  decoding context (raw pointer), or null */
AKLAC_API void aklsVLCDecodeFree_32s(aklsVLCDecodeSpec_32s* pSpec);

/* --- decoders -------------------------------------------------------------
 * A stream that is not in the code book decodes to an unspecified value; the
 * walk never leaves the table and a code never consumes more than L bits.
 * Input buffers must be readable from the aligned 32-bit word holding the
 * first bit through the aligned word after the last bit used. */

/* Decodes one code.
 *   ppBitStream, pBitOffset  in/out  cursor; offset 0..7 from the most significant bit
 *   pData            out  the value
 *   pSpec            in   decoding context
 * Status: kStsNullPtr (any pointer, or *ppBitStream); kStsVLCDataErr (offset
 * outside 0..7, or a context without the decoding tag: one check). */
AKLAC_API Status aklsVLCDecodeOne_1u16s(Akl8u** ppBitStream, int* pBitOffset, Akl16s* pData,
                                        const aklsVLCDecodeSpec_32s* pSpec);
/* Decodes len codes into pData[0..len-1]; len < 1 decodes nothing.
 *   ppBitStream, pBitOffset  in/out  cursor; offset 0..7
 *   pData            out  len values
 *   len              in   number of codes
 *   pSpec            in   decoding context
 * Status: kStsNullPtr; kStsVLCDataErr (offset outside 0..7); kStsVLCDataErr (tag). */
AKLAC_API Status aklsVLCDecodeBlock_1u16s(Akl8u** ppBitStream, int* pBitOffset, Akl16s* pData, int len,
                                          const aklsVLCDecodeSpec_32s* pSpec);
/* Decodes len / 2 pairs (len rounded down to even) with the AAC escape rule.
 * The book stores a pair as first * 256 + second + 128, signs included; an
 * element of 16 or -16 is followed (first element's before second's) by an
 * escape: N ones (N 0..8), a zero, N + 4 bits w; magnitude 2^(N+4) + w (16..8191),
 * sign of the decoded element.  The first partial word is read byte by byte
 * from *ppBitStream: the bytes before it are not touched.  A context with
 * 8-bit entries is not meant for these decoders (its values are unsigned).
 *   ppBitStream, pBitOffset  in/out  cursor; offset 0..7; advanced past the last pair
 *   pData            out  len rounded down to even values, -8191..8191
 *   len              in   number of values; below 2 decodes nothing
 *   pSpec            in   decoding context built from a signed pair book
 * Status: kStsNullPtr; kStsBitOffsetErr (offset outside 0..7);
 * kStsContextMismatch (tag); kStsVLCDataErr (an escape of nine leading ones:
 * the pairs before it are written, the cursor is left as it was). */
AKLAC_API Status aklsVLCDecodeEscBlock_AAC_1u16s(Akl8u** ppBitStream, int* pBitOffset, Akl16s* pData, int len,
                                                 const aklsVLCDecodeSpec_32s* pSpec);
/* Decodes len / 2 Layer III pairs (x, y) with linbits escapes.  The book
 * stores x * 256 + y + 128 and each code's length includes the sign bits of
 * the non-zero elements.  For x or y of magnitude 15 the decoder steps back
 * over the sign bits still to come and reads linbits bits and a sign per
 * escaped element: Huffman code, x's linbits, x's sign, y's linbits, y's sign.
 *   ppBitStream, pBitOffset  in/out  cursor; offset 0..7; advanced past the last pair
 *   linbits          in   extra bits of the table in use (0..13); not checked,
 *                         values outside 0..31 are taken as clamped to it
 *   pData            out  len rounded down to even values, |v| <= 15 + 2^linbits - 1
 *   len              in   number of values; below 2 decodes nothing
 *   pSpec            in   decoding context built from a signed pair book
 * Status: kStsNullPtr; kStsBitOffsetErr; kStsContextMismatch. */
AKLAC_API Status aklsVLCDecodeEscBlock_MP3_1u16s(Akl8u** ppBitStream, int* pBitOffset, int linbits, Akl16s* pData,
                                                 int len, const aklsVLCDecodeSpec_32s* pSpec);

/* --- tuple decoding -------------------------------------------------------
 * A tuple book's value packs numElements unsigned magnitudes of numValueBits
 * bits each, the first element most significant.  Each non-zero magnitude is
 * followed by its sign bit (1 negative) after the code.  Tuple and plain
 * contexts carry the same tag and are accepted by either kind of decoder (a
 * plain context reads as one element of 16 bits). */

/* Bytes needed by aklsVLCDecodeUTupleInit_32s.
 *   pInputTable, inputTableSize, pSubTablesSizes, numSubTables  in  as aklsVLCDecodeGetSize_32s
 *   numElements      in   magnitudes per code, >= 1
 *   numValueBits     in   bits per magnitude, >= 1; numElements x numValueBits <= 32
 *   pSize            out  size in bytes
 * Status: kStsNullPtr; kStsBadArgErr (numElements or numValueBits below 1, or
 * their product above 32); kStsVLCTableErr as aklsVLCDecodeGetSize_32s. */
AKLAC_API Status aklsVLCDecodeUTupleGetSize_32s(const VlcCodeEntry* pInputTable, int inputTableSize,
                                                const int* pSubTablesSizes, int numSubTables, int numElements,
                                                int numValueBits, int* pSize);
/* Builds a tuple decoding context; as aklsVLCDecodeInit_32s.
 *   pInputTable, inputTableSize, pSubTablesSizes, numSubTables  in  as aklsVLCDecodeGetSize_32s
 *   numElements, numValueBits  in  as aklsVLCDecodeUTupleGetSize_32s
 *   pSpec            out  context memory of the GetSize size, any alignment
 * Status: kStsNullPtr; kStsBadArgErr; kStsVLCTableErr (as GetSize, then a
 * prefix conflict: the context is then built in part and carries its tag). */
AKLAC_API Status aklsVLCDecodeUTupleInit_32s(const VlcCodeEntry* pInputTable, int inputTableSize,
                                             const int* pSubTablesSizes, int numSubTables, int numElements,
                                             int numValueBits, aklsVLCDecodeSpec_32s* pSpec);
/* Builds a tuple decoding context in memory from aklMalloc; as
 * aklsVLCDecodeInitAlloc_32s.
 *   pInputTable, inputTableSize, pSubTablesSizes, numSubTables  in  as aklsVLCDecodeGetSize_32s
 *   numElements, numValueBits  in  as aklsVLCDecodeUTupleGetSize_32s
 *   ppSpec           out  the raw pointer of the new context; unwritten on any
 *                         failure but the prefix conflict
 * Status: kStsNullPtr; kStsBadArgErr; kStsVLCTableErr; kStsMemAllocErr;
 * kStsVLCTableErr (prefix conflict, *ppSpec written). */
AKLAC_API Status aklsVLCDecodeUTupleInitAlloc_32s(const VlcCodeEntry* pInputTable, int inputTableSize,
                                                  const int* pSubTablesSizes, int numSubTables, int numElements,
                                                  int numValueBits, aklsVLCDecodeSpec_32s** ppSpec);
/* Clears the tag and releases the memory if InitAlloc obtained it; the same
 * operation as aklsVLCDecodeFree_32s.
 *   pSpec            in/out  context (plain or tuple); null is ignored */
AKLAC_API void aklsVLCDecodeUTupleFree_32s(aklsVLCDecodeSpec_32s* pSpec);
/* Decodes one tuple with its sign bits into pData[0..numElements-1].
 *   ppBitStream, pBitOffset  in/out  cursor; offset 0..7
 *   pData            out  numElements signed values (a plain context: one value)
 *   pSpec            in   decoding context
 * Status: kStsNullPtr; kStsVLCDataErr (offset outside 0..7, or tag). */
AKLAC_API Status aklsVLCDecodeUTupleOne_1u16s(Akl8u** ppBitStream, int* pBitOffset, Akl16s* pData,
                                              const aklsVLCDecodeSpec_32s* pSpec);
/* Decodes len / numElements tuples (len counts elements; a remainder is not
 * written) into consecutive groups of numElements values.
 *   ppBitStream, pBitOffset  in/out  cursor; offset 0..7
 *   pData            out  len / numElements x numElements signed values
 *   len              in   number of elements; below numElements decodes nothing
 *   pSpec            in   decoding context
 * Status: kStsNullPtr; kStsVLCDataErr (offset outside 0..7); kStsVLCDataErr (tag). */
AKLAC_API Status aklsVLCDecodeUTupleBlock_1u16s(Akl8u** ppBitStream, int* pBitOffset, Akl16s* pData, int len,
                                                const aklsVLCDecodeSpec_32s* pSpec);
/* Decodes len / 2 AAC pairs from an unsigned pair book (numValueBits bits per
 * magnitude): code, a sign bit per non-zero magnitude, then for a magnitude of
 * 16 the escape sequence (first element's before second's).
 *   ppBitStream, pBitOffset  in/out  cursor; offset 0..7
 *   pData            out  len rounded down to even signed values, -8191..8191
 *   len              in   number of values; below 2 decodes nothing
 *   pSpec            in   decoding context of an unsigned pair book
 * Status: kStsNullPtr; kStsBitOffsetErr; kStsContextMismatch; kStsVLCDataErr
 * (nine leading ones; earlier pairs written, cursor unchanged). */
AKLAC_API Status aklsVLCDecodeUTupleEscBlock_AAC_1u16s(Akl8u** ppBitStream, int* pBitOffset, Akl16s* pData,
                                                       int len, const aklsVLCDecodeSpec_32s* pSpec);
/* Decodes len / 2 Layer III pairs from an unsigned pair book: a magnitude of
 * 15 takes linbits extra bits (added to 15) before its sign bit, in the order
 * x's linbits, x's sign, y's linbits, y's sign.
 *   ppBitStream, pBitOffset  in/out  cursor; offset 0..7
 *   linbits          in   0..13; not checked, values outside 0..31 are taken as clamped
 *   pData            out  len rounded down to even signed values
 *   len              in   number of values; below 2 decodes nothing
 *   pSpec            in   decoding context of an unsigned pair book
 * Status: kStsNullPtr; kStsBitOffsetErr; kStsContextMismatch. */
AKLAC_API Status aklsVLCDecodeUTupleEscBlock_MP3_1u16s(Akl8u** ppBitStream, int* pBitOffset, int linbits,
                                                       Akl16s* pData, int len, const aklsVLCDecodeSpec_32s* pSpec);

/* --- encoding and bit counting ----------------------------------------------
 * The encoding context maps value - smallest value straight to (length, code).
 * Of two entries with the same value the first in the book wins; values the
 * book lacks (and values outside its range, which wrap into it) encode as
 * whatever their slot holds: a length of 0 if no entry filled it.
 * Encoders write whole aligned big-endian 32-bit words: the bits before the
 * cursor in its word are kept, and the rest of the word after the last code
 * is set to ones; a code that runs into the next word keeps that word's
 * other bits.  The output buffer must be writable from the aligned word
 * holding the cursor through the aligned word holding the last bit written. */

/* Bytes needed by aklsVLCEncodeInit_32s: 8 x 2^k + 128, k the binary digits
 * of (largest value - smallest value + 1).
 *   pInputTable      in   code book (lengths outside 0..32 are taken as clamped)
 *   inputTableSize   in   entries, >= 1
 *   pSize            out  size in bytes
 * Status: kStsNullPtr; kStsVLCDataErr (inputTableSize below 1, or a value
 * range too wide for an int-sized context). */
AKLAC_API Status aklsVLCEncodeGetSize_32s(const VlcCodeEntry* pInputTable, int inputTableSize, int* pSize);
/* Builds the encoding context in caller memory of at least the GetSize size.
 *   pInputTable, inputTableSize  in  as aklsVLCEncodeGetSize_32s
 *   pSpec            out  context memory, any alignment (built at the first 64-byte boundary)
 * Status: kStsNullPtr; kStsVLCDataErr as GetSize. */
AKLAC_API Status aklsVLCEncodeInit_32s(const VlcCodeEntry* pInputTable, int inputTableSize,
                                       aklsVLCEncodeSpec_32s* pSpec);
/* As aklsVLCEncodeInit_32s in memory from aklMalloc.
 *   pInputTable, inputTableSize  in  as aklsVLCEncodeGetSize_32s
 *   ppSpec           out  the raw pointer of the new context
 * Status: kStsNullPtr; kStsVLCDataErr; kStsMemAllocErr (*ppSpec unwritten). */
AKLAC_API Status aklsVLCEncodeInitAlloc_32s(const VlcCodeEntry* pInputTable, int inputTableSize,
                                            aklsVLCEncodeSpec_32s** ppSpec);
/* Clears the tag and releases the memory if InitAlloc obtained it.  Memory
 * that does not hold a built context (freed before, a pointer passed on at
 * another offset) is neither written nor released.
 *   pSpec            in/out  encoding context; null is ignored */
AKLAC_API void aklsVLCEncodeFree_32s(aklsVLCEncodeSpec_32s* pSpec);
/* Writes the code of one value at the cursor.
 *   value            in   a value of the book
 *   ppBitStream, pBitOffset  in/out  cursor
 *   pSpec            in   encoding context
 * Status: kStsNullPtr (any pointer, or *ppBitStream); kStsVLCDataErr (offset
 * outside 0..7, or tag: one check). */
AKLAC_API Status aklsVLCEncodeOne_16s1u(Akl16s value, Akl8u** ppBitStream, int* pBitOffset,
                                        const aklsVLCEncodeSpec_32s* pSpec);
/* Writes the codes of pSrc[0..len-1]; len < 1 writes nothing.
 *   pSrc             in   len values of the book
 *   len              in   number of values
 *   ppBitStream, pBitOffset  in/out  cursor; offset 0..7
 *   pSpec            in   encoding context
 * Status: kStsNullPtr; kStsVLCDataErr (offset or tag). */
AKLAC_API Status aklsVLCEncodeBlock_16s1u(const Akl16s* pSrc, int len, Akl8u** ppBitStream, int* pBitOffset,
                                          const aklsVLCEncodeSpec_32s* pSpec);
/* Writes len / 2 AAC pairs (the reverse of aklsVLCDecodeEscBlock_AAC_1u16s):
 * elements of magnitude 16 or more are coded as +-16 and followed by their
 * escape sequences.  Magnitudes up to 8191 are allowed; nothing is written
 * unless every element is in range.
 *   pSrc             in   len values, -8191..8191
 *   len              in   number of values; below 2 writes nothing
 *   ppBitStream, pBitOffset  in/out  cursor; offset 0..7
 *   pSpec            in   encoding context of a signed pair book
 * Status: kStsNullPtr; kStsBitOffsetErr; kStsContextMismatch;
 * kStsVLCEscValueErr (a magnitude above 8191). */
AKLAC_API Status aklsVLCEncodeEscBlock_AAC_16s1u(const Akl16s* pSrc, int len, Akl8u** ppBitStream,
                                                 int* pBitOffset, const aklsVLCEncodeSpec_32s* pSpec);
/* Writes len / 2 Layer III pairs (the reverse of aklsVLCDecodeEscBlock_MP3_1u16s):
 * magnitudes of 15 or more are coded as +-15 and followed by their linbits
 * field (magnitude - 15) and sign.  Magnitudes up to 15 + 2^linbits - 1 are
 * allowed; nothing is written unless every element is in range.
 *   pSrc             in   len values
 *   len              in   number of values; below 2 writes nothing
 *   linbits          in   0..13
 *   ppBitStream, pBitOffset  in/out  cursor; offset 0..7
 *   pSpec            in   encoding context of a signed pair book
 * Status: kStsNullPtr; kStsBitOffsetErr; kStsVLCLinbitsErr (linbits outside
 * 0..13); kStsContextMismatch; kStsVLCEscValueErr (a magnitude too large). */
AKLAC_API Status aklsVLCEncodeEscBlock_MP3_16s1u(const Akl16s* pSrc, int len, int linbits, Akl8u** ppBitStream,
                                                 int* pBitOffset, const aklsVLCEncodeSpec_32s* pSpec);
/* The number of bits aklsVLCEncodeBlock_16s1u would write for pSrc[0..len-1].
 *   pSrc             in   len values of the book
 *   len              in   number of values, 1 or more
 *   pCountBits       out  bit count
 *   pSpec            in   encoding context
 * Status: kStsNullPtr; kStsVLCDataErr (len below 1); kStsVLCDataErr (tag). */
AKLAC_API Status aklsVLCCountBits_16s32s(const Akl16s* pSrc, int len, int* pCountBits,
                                         const aklsVLCEncodeSpec_32s* pSpec);
/* The number of bits aklsVLCEncodeEscBlock_AAC_16s1u would write (0 for len < 2).
 *   pSrc             in   len values, -8191..8191
 *   len              in   number of values
 *   pCountBits       out  bit count
 *   pSpec            in   encoding context of a signed pair book
 * Status: kStsNullPtr; kStsContextMismatch; kStsVLCEscValueErr. */
AKLAC_API Status aklsVLCCountEscBits_AAC_16s32s(const Akl16s* pSrc, int len, int* pCountBits,
                                                const aklsVLCEncodeSpec_32s* pSpec);
/* The number of bits aklsVLCEncodeEscBlock_MP3_16s1u would write (0 for len < 2).
 *   pSrc             in   len values
 *   len              in   number of values
 *   linbits          in   0..13
 *   pCountBits       out  bit count
 *   pSpec            in   encoding context of a signed pair book
 * Status: kStsNullPtr; kStsVLCLinbitsErr; kStsContextMismatch; kStsVLCEscValueErr. */
AKLAC_API Status aklsVLCCountEscBits_MP3_16s32s(const Akl16s* pSrc, int len, int linbits, int* pCountBits,
                                                const aklsVLCEncodeSpec_32s* pSpec);

/* @vlc-end */

/* ========================================================================
 * MPEG-1/2 Layer III
 * ====================================================================== */
/* Frame header: the raw bit fields of the four-byte Layer III header and the
 * optional CRC word, one signed 32-bit field each. */
typedef struct {
  Akl32s id;                /* 1 = MPEG-1, 0 = MPEG-2 low sampling frequencies */
  Akl32s layer;             /* layer code: 1 = Layer III, 2 = Layer II, 3 = Layer I */
  Akl32s protectionBit;     /* 0 = a 16-bit CRC word follows the header */
  Akl32s bitrateIndex;      /* 0 = free format, 15 = forbidden */
  Akl32s samplingFreqIndex; /* MPEG-1: 0 44.1 kHz, 1 48 kHz, 2 32 kHz; MPEG-2: the halves */
  Akl32s paddingBit;        /* 1 = one extra slot */
  Akl32s privateBit;        /* private bit, not interpreted */
  Akl32s mode;              /* 0 stereo, 1 joint stereo, 2 dual channel, 3 single channel */
  Akl32s modeExtension;     /* joint stereo: bit 1 mid/side on, bit 0 intensity on */
  Akl32s copyFlag;          /* copyright bit */
  Akl32s originalHome;      /* original/copy bit */
  Akl32s emphasis;          /* de-emphasis code, not applied by the library */
  Akl32s crcWord;           /* CRC as read, first byte in bits 15..8; only when protectionBit is 0 */
} AklMP3FrameHeader;

/* Side information of one channel in one granule.  A frame's records lie
 * granule-major in one array: index = granule * channels + channel. */
typedef struct {
  Akl32s part23Length;        /* bits of scale factors plus Huffman data */
  Akl32s bigValues;           /* value pairs in the big-values region */
  Akl32s globalGain;          /* 8 bits: quantizer step size of the granule */
  Akl32s scalefacCompress;    /* 4 bits (MPEG-1) or 9 bits (MPEG-2) */
  Akl32s windowSwitchingFlag; /* 1: blockType, mixedBlockFlag and subblockGain are coded */
  Akl32s blockType;           /* 0 normal, 1 start, 2 short, 3 stop; 0 without window switching */
  Akl32s mixedBlockFlag;      /* 0 without window switching */
  Akl32s tableSelect[3];      /* Huffman table of regions 0, 1, 2 */
  Akl32s subblockGain[3];     /* short windows 0, 1, 2 (window-switched granules only) */
  Akl32s region0Count;        /* scale-factor bands in region 0, minus one */
  Akl32s region1Count;        /* scale-factor bands in region 1, minus one */
  Akl32s preflag;             /* read for MPEG-1; derived by the scale-factor unpacker for MPEG-2 */
  Akl32s scalefacScale;       /* 1: scale factors step by 2^1 instead of 2^0.5 */
  Akl32s count1TableSelect;   /* 0 = quadruple table A, 1 = table B */
} AklMP3SideInfo;

/* Encoder bit reservoir: bits now held and the largest number it may hold. */
typedef struct {
  Akl32s bitsHeld; /* bits now in the reservoir */
  Akl32s maxBits;  /* the most it may hold */
} AklMP3BitReservoir;

/* Unpacks a Layer III frame header (and its CRC word when protectionBit is 0).
 *   ppBitStream   in/out: pointer to the byte pointer at the first header byte;
 *                 advanced by 4 bytes, or 6 when a CRC word follows.
 *   pFrameHeader  out: the header fields; crcWord is written only when a CRC follows.
 * The sync bits are not examined and no field is validated.
 * Statuses: kStsNullPtr. */
AKLAC_API Status aklsUnpackFrameHeader_MP3(Akl8u** ppBitStream, AklMP3FrameHeader* pFrameHeader);

/* Unpacks the side information that follows the header (and CRC).
 *   ppBitStream        in/out: pointer to the byte pointer; advanced by 17 / 32 bytes
 *                      (MPEG-1 mono / two channels) or 9 / 17 (MPEG-2).
 *   pDstSideInfo       out: 4 records (MPEG-1: granules 0, 1 x channels) or 2 (MPEG-2),
 *                      granule-major.  Window-switched granules get region0Count 8 (short,
 *                      not mixed) or 7 and region1Count 20 - region0Count; tableSelect[2]
 *                      is then left untouched.  Long granules leave subblockGain untouched;
 *                      MPEG-2 leaves preflag untouched.
 *   pDstMainDataBegin  out: main_data_begin in bytes (9 bits MPEG-1, 8 bits MPEG-2).
 *   pDstPrivateBits    out: the private bits.
 *   pDstScfsi          out (MPEG-1 only): 4 flags per channel, index channel * 4 + group.
 *   pFrameHeader       in: this frame's header.
 * Statuses: kStsNullPtr; kStsMP3FrameHeaderErr (id not 0/1, layer not 1, mode above 3;
 * nothing read); kStsMP3SideInfoErr (window switching with block type 0: the records
 * before it are filled and the byte pointer stands on the byte holding the next bit). */
AKLAC_API Status aklsUnpackSideInfo_MP3(Akl8u** ppBitStream, AklMP3SideInfo* pDstSideInfo,
                                        Akl32s* pDstMainDataBegin, Akl32s* pDstPrivateBits,
                                        Akl32s* pDstScfsi, const AklMP3FrameHeader* pFrameHeader);

/* Initialises an MPEG-1 encoder bit reservoir: bitsHeld 0, maxBits
 * min(4088, 7680 - min(8 * frame length without padding, 7680)).
 *   pDstBitResv   out: the reservoir record.
 *   pFrameHeader  in: MPEG-1 header; bitrateIndex 0..14, samplingFreqIndex 0..2.
 * Statuses: kStsNullPtr; kStsMP3FrameHeaderErr (id not 1, or bitrateIndex above 14 or
 * samplingFreqIndex above 2). */
AKLAC_API Status aklsBitReservoirInit_MP3(AklMP3BitReservoir* pDstBitResv, const AklMP3FrameHeader* pFrameHeader);

/* Unpacks the scale factors of one granule and channel at the cursor.
 *   ppBitStream, pOffset  in/out: cursor at the start of this channel's part2_3 data (offset 0..7);
 *                         advanced past the scale factors.
 *   pDstScaleFactor       out: at least 39 entries, in stream order.  MPEG-1 long blocks:
 *                         bands 0..20 and entry 21 = 0; in granule 1 a group whose scfsi flag
 *                         is set keeps the caller's values.  Short: 36 values, entries 36..38
 *                         = 0.  Mixed: 35 values, entries 35..37 = 0.  MPEG-2: the four
 *                         partitions' values then three zeros; on the intensity-stereo right
 *                         channel a value equal to its partition's limit 2^slen - 1 is negated.
 *   pSideInfo             in/out: this granule and channel; MPEG-2 writes preflag and reduces
 *                         mixedBlockFlag of short granules to its lowest bit.
 *   pScfsi                in: this channel's four scfsi flags (MPEG-1 granule 1 only).
 *   pFrameHeader          in: id selects MPEG-1 (1) or MPEG-2 (0); modeExtension for MPEG-2.
 *   granule, channel      in: 0..1.
 * Statuses: kStsNullPtr; kStsBadArgErr (offset above 7, granule or channel above 1);
 * kStsMP3FrameHeaderErr (id not 0/1); MPEG-1: kStsMP3SideInfoErr (scalefacCompress above 15);
 * MPEG-2: kStsMP3SideInfoErr (scalefacCompress above 511), kStsMP3FrameHeaderErr
 * (modeExtension above 3).  On an error nothing is read or written. */
AKLAC_API Status aklsUnpackScaleFactors_MP3_1u8s(Akl8u** ppBitStream, Akl32s* pOffset, Akl8s* pDstScaleFactor,
                                                 AklMP3SideInfo* pSideInfo, const Akl32s* pScfsi,
                                                 const AklMP3FrameHeader* pFrameHeader, Akl32s granule,
                                                 Akl32s channel);

/* Huffman-decodes the spectrum of one granule and channel, with the library's
 * long scale-factor band table; the same as aklsHuffmanDecodeSfb_MP3_1u32s
 * otherwise.
 *   ppBitStream, pOffset  in/out: cursor after the scale factors (offset 0..7)
 *   pDstIs                out: 576 quantized values with sign, in stream order
 *   pDstNonZeroBound      out: last non-zero index plus one (0 if none)
 *   pSideInfo             in: this granule and channel
 *   pFrameHeader          in: id, layer, samplingFreqIndex
 *   hufSize               in: Huffman bits, 0..part23Length
 * Statuses: as aklsHuffmanDecodeSfb_MP3_1u32s. */
AKLAC_API Status aklsHuffmanDecode_MP3_1u32s(Akl8u** ppBitStream, Akl32s* pOffset, Akl32s* pDstIs,
                                             Akl32s* pDstNonZeroBound, const AklMP3SideInfo* pSideInfo,
                                             const AklMP3FrameHeader* pFrameHeader, Akl32s hufSize);

/* Huffman-decodes the big-values and count1 regions of one granule and channel.
 *   ppBitStream, pOffset  in/out: cursor after the scale factors (offset 0..7); on success it
 *                         ends exactly hufSize bits further on.
 *   pDstIs                out: 576 quantized values with sign, in stream order.
 *   pDstNonZeroBound      out: index of the last non-zero value plus one (0 if none).
 *   pSideInfo             in: this granule and channel.
 *   pFrameHeader          in: id, layer, samplingFreqIndex.
 *   hufSize               in: Huffman bits, part23Length minus the scale-factor bits, 0..part23Length.
 *   pSfbTableLong         in: 6 rows (row id * 3 + samplingFreqIndex) of 23 long band boundaries.
 * Window-switched granules: region 0 is 36 lines (MPEG-1 or block type 2) or 54, region 1 the rest.
 * Statuses: kStsNullPtr; kStsBadArgErr (offset above 7, hufSize outside 0..part23Length);
 * kStsMP3SideInfoErr (bigValues * 2 above 576, blockType above 3, windowSwitchingFlag above 1,
 * count1TableSelect above 1); kStsMP3FrameHeaderErr (id above 1, layer not 1, samplingFreqIndex
 * above 2); kStsMP3SideInfoErr (window switching with block type 0; a table number above 31;
 * region counts negative or summing to 21 or more); kStsErr (the big values ran past hufSize:
 * output partly written, the cursor where the big values ended).
 * The reader touches the aligned words from the one holding the first bit through the one after
 * the word holding bit hufSize - 1, never more: big values running beyond read zero bits there. */
AKLAC_API Status aklsHuffmanDecodeSfb_MP3_1u32s(Akl8u** ppBitStream, Akl32s* pOffset, Akl32s* pDstIs,
                                                Akl32s* pDstNonZeroBound, const AklMP3SideInfo* pSideInfo,
                                                const AklMP3FrameHeader* pFrameHeader, Akl32s hufSize,
                                                const Akl16s* pSfbTableLong);

/* As aklsHuffmanDecodeSfb_MP3_1u32s, with region 0 of window-switched granules
 * computed from the caller's tables: block types 1 and 3 end it at long band 8,
 * short blocks at 3 x short band 3, mixed blocks from the partition row.
 *   ppBitStream, pOffset  in/out: cursor after the scale factors (offset 0..7)
 *   pDstIs          out: 576 quantized values with sign, in stream order
 *   pDstNonZeroBound out: last non-zero index plus one (0 if none)
 *   pSideInfo       in: this granule and channel
 *   pFrameHeader    in: id, layer, samplingFreqIndex
 *   hufSize         in: Huffman bits, 0..part23Length
 *   pSfbTableLong   in: 6 rows of 23 long band boundaries.
 *   pSfbTableShort  in: 6 rows of 14 short band boundaries (lines of one window).
 *   pMbpTable       in: 6 rows of 2: long bands of a mixed block (0..22; clamped), short-band
 *                   widths to add (0..39; clamped: region 0 then ends at most at short band 13).
 * Caller tables are not trusted: whatever their values, region boundaries are
 * clamped to 0..bigValues * 2 and the output stays inside its 576 lines.
 * Statuses, in this order: kStsNullPtr; kStsBadArgErr (offset above 7); kStsMP3FrameHeaderErr
 * (id above 1); kStsMP3SideInfoErr (bigValues * 2 above 576, blockType above 3,
 * windowSwitchingFlag above 1; window switching with block type 0); kStsMP3FrameHeaderErr
 * (layer not 1, samplingFreqIndex above 2); kStsMP3SideInfoErr (count1TableSelect above 1,
 * hufSize outside 0..part23Length; a table number above 31; bad region counts); kStsErr. */
AKLAC_API Status aklsHuffmanDecodeSfbMbp_MP3_1u32s(Akl8u** ppBitStream, Akl32s* pOffset, Akl32s* pDstIs,
                                                   Akl32s* pDstNonZeroBound, const AklMP3SideInfo* pSideInfo,
                                                   const AklMP3FrameHeader* pFrameHeader, Akl32s hufSize,
                                                   const Akl16s* pSfbTableLong, const Akl16s* pSfbTableShort,
                                                   const Akl16s* pMbpTable);

/* @mp3-bitstream-end */
/* ---- Layer III signal stages: requantization ----
 *
 * Requantizes one granule, both channels, in place: power law, global gain,
 * scale factors (with scalefac_scale and pre-emphasis), sub-block gains,
 * mid/side and intensity stereo, and for short blocks the reordering into
 * three runs of six lines per subband (window w of subband s at lines
 * 18*s + 6*w .. 18*s + 6*w + 5) that aklsMDCTInv_MP3_32s reads.
 *   pSrcDstIsXr    in/out  2 x 576 Akl32s, channel 0 then channel 1: the
 *                          Huffman decoder's quantized values (magnitudes up
 *                          to 8206) in, Q26 values (saturated) out
 *   pNonZeroBound  in/out  per channel, last non-zero line + 1 (0..576);
 *                          recomputed on return (short blocks first rounded
 *                          up to a whole subband)
 *   pScaleFactor   in      2 x 39 Akl8s: channel 0's array at entry 0 and
 *                          channel 1's at entry 39, each in the layout of
 *                          aklsUnpackScaleFactors_MP3_1u8s (negative values
 *                          mark illegal MPEG-2 intensity positions)
 *   pSideInfo      in      the granule's two side-information records,
 *                          channel 0 then channel 1
 *   pFrameHeader   in      the frame's header (id, samplingFreqIndex, mode,
 *                          modeExtension are read)
 *   pBuffer        work    576 Akl32s
 *   pSfbTableLong  in      long band boundaries, 23 per row, 6 rows
 *                          (row = id * 3 + samplingFreqIndex)
 *   pSfbTableShort in      short band boundaries in lines of one window, 14
 *                          per row, same rows
 * Statuses, in check order: kStsNullPtr; kStsMP3FrameHeaderErr (id above 1,
 * samplingFreqIndex above 2, mode or modeExtension above 3);
 * kStsMP3SideInfoErr (a stereo tool on and the channels' blockType or
 * mixedBlockFlag differ; blockType above 3 or mixedBlockFlag above 1);
 * kStsBadArgErr (a bound above 576); kStsBadArgErr (this granule's band rows
 * unusable: long edges not rising from 0 or more to at most 576, short edges
 * not rising by even widths from 0 or more to at most 192, or, for a mixed
 * block, more than 9 long bands below line 36); then, while converting (spectrum left
 * partly converted): kStsMP3SideInfoErr (globalGain above 255,
 * scalefacScale or preflag above 1), kStsErr (subblockGain above 7 in a
 * short block, or a quantized magnitude above 8206). */
AKLAC_API Status aklsReQuantizeSfb_MP3_32s_I(Akl32s* pSrcDstIsXr, int* pNonZeroBound, const Akl8s* pScaleFactor,
                                             const AklMP3SideInfo* pSideInfo, const AklMP3FrameHeader* pFrameHeader,
                                             Akl32s* pBuffer, const Akl16s* pSfbTableLong,
                                             const Akl16s* pSfbTableShort);

/* aklsReQuantizeSfb_MP3_32s_I with the library's scale-factor band tables
 * (ISO/IEC 11172-3 and 13818-3).  Arguments and statuses as there.
 *   pSrcDstIsXr    in/out  2 x 576 quantized values in, Q26 values out
 *   pNonZeroBound  in/out  per channel, last non-zero line + 1 (0..576)
 *   pScaleFactor   in      2 x 39 scale factors, channel 1's at entry 39
 *   pSideInfo      in      the granule's two records, channel 0 then 1
 *   pFrameHeader   in      the frame's header
 *   pBuffer        work    576 Akl32s of scratch
 * Statuses: as aklsReQuantizeSfb_MP3_32s_I. */
AKLAC_API Status aklsReQuantize_MP3_32s_I(Akl32s* pSrcDstIsXr, int* pNonZeroBound, const Akl8s* pScaleFactor,
                                          const AklMP3SideInfo* pSideInfo, const AklMP3FrameHeader* pFrameHeader,
                                          Akl32s* pBuffer);

/* ---- Layer III signal stages: inverse MDCT and polyphase synthesis ----
 *
 * Fixed-point formats between the stages: requantized spectra are Q26 (the
 * standard's values times 2^26); the inverse MDCT's time samples, which the
 * synthesis filter bank reads, are Q26 as well.  Per channel a decoder keeps
 * an overlap buffer of 576 Akl32s and a subband count (both zero at the
 * start), and a synthesis history of 512 Akl32s with a ring offset (zero at
 * the start). */

/* Alias reduction, inverse MDCT with the block-type window, overlap-add and
 * frequency inversion for one channel of one granule.
 *   pSrcXr          in/out  576 Q26 lines in the requantizer's layout (short
 *                           blocks: each window's 6 lines of a subband
 *                           consecutive); alias reduction works in place
 *   pDstY           out     576 Q26 time samples, slot-major: subband s of
 *                           time slot t at 32*t + s (pass pDstY + 32*t to
 *                           aklsSynthPQMF_MP3_32s16s for t = 0..17)
 *   pOverlapBuf     in/out  576 Q26 overlap tails of this channel (18 per
 *                           subband, subband-major)
 *   nonZeroBound    in      last non-zero line + 1, 0..576
 *   pPrevNumSbImdct in/out  subbands transformed for the previous granule,
 *                           0..32; set to this granule's count
 *   blockType       in      0 normal, 1 start, 2 short, 3 stop
 *   mixedBlock      in      0 or 1 (1: subbands 0 and 1 long, normal window)
 * Statuses: kStsNullPtr (any pointer null); kStsBadArgErr (bound above 576,
 * block type outside 0..3, mixed flag above 1, previous count above 32). */
AKLAC_API Status aklsMDCTInv_MP3_32s(Akl32s* pSrcXr, Akl32s* pDstY, Akl32s* pOverlapBuf, int nonZeroBound,
                                     int* pPrevNumSbImdct, int blockType, int mixedBlock);

/* The windowing stage of aklsMDCTInv_MP3_32s by itself, for one subband, at
 * the same Q26 scale: a decoder that computes its own inverse transforms
 * windows them here and keeps the overlap-add and frequency inversion.
 *   pSrc       in   36 Akl32s, Q26, unwindowed: for block types 0, 1 and 3
 *                   the 36 outputs of the 18-line inverse MDCT; for block
 *                   type 2 the three 12-sample outputs of the 6-line inverse
 *                   MDCTs, window 0 first (pSrc[12*w + i])
 *   pDst       out  36 Akl32s, Q26: the windowed block; its first 18 samples
 *                   are added to the previous granule's tail, its last 18
 *                   are the next tail.  May be pSrc.
 *   blockType  in   0 normal, 1 start, 2 short, 3 stop (a mixed block's two
 *                   long subbands take 0)
 * The window values are those of the standard in Q30.  Block types 0, 1, 3:
 * pDst[i] = pSrc[i] * win[i], rounded to nearest (halves up) and saturated
 * to Akl32s.  Block type 2: pDst[0..5] and pDst[30..35] are 0; sample
 * 6 + 6*w + i (w 0..2, i 0..11) receives pSrc[12*w + i] * sin(pi/12 (i +
 * 1/2)), the up to two products of a sample summed exactly and then rounded
 * and saturated once.  For the long block types this is, bit for bit, the
 * window step of aklsMDCTInv_MP3_32s's plain integer path.
 * Statuses, checked in this order, nothing written on an error: kStsNullPtr
 * (pSrc or pDst null); kStsBadArgErr (blockType outside 0..3). */
AKLAC_API Status aklsMDCTInvWindow_MP3_32s(const Akl32s* pSrc, Akl32s* pDst, int blockType);

/* Polyphase synthesis of one time slot to 16-bit PCM.
 *   pSrcY      in      32 Q26 subband samples of one slot, subband 0 first
 *   pDstPcm    out     32 PCM samples, written at pDstPcm[mode * j]
 *   pVBuffer   in/out  the channel's history: 512 Akl32s (16 slots of 32)
 *   pVPosition in/out  ring slot index 0..15, stepped back by one per call
 *   mode       in      1 (one channel) or 2 (interleaved stereo: the caller
 *                      points at the channel's first sample)
 * Output is rounded to nearest and saturated to -32768..32767.
 * Statuses: kStsNullPtr; kStsBadArgErr (mode not 1 or 2, *pVPosition not in
 * 0..15). */
AKLAC_API Status aklsSynthPQMF_MP3_32s16s(const Akl32s* pSrcY, Akl16s* pDstPcm, Akl32s* pVBuffer, int* pVPosition,
                                          int mode);

/* Floating-point polyphase synthesis context (tag 0x434D4167): the history
 * of one channel (16 slots of 32 values) and its ring position. */
typedef struct AklsFilterState_PQMF_MP3_32f AklsFilterState_PQMF_MP3_32f;

/* Bytes that aklsSynthesisFilterInit_PQMF_MP3_32f needs (alignment slack
 * included).
 *   pSize out  the size
 * Statuses: kStsNullPtr. */
AKLAC_API Status aklsSynthesisFilterGetSize_PQMF_MP3_32f(int* pSize);

/* Builds a synthesis context with cleared history in caller memory of at
 * least the GetSize size (any alignment; built at the next 16-byte boundary).
 *   pState in/out  the memory
 * Statuses: kStsNullPtr. */
AKLAC_API Status aklsSynthesisFilterInit_PQMF_MP3_32f(AklsFilterState_PQMF_MP3_32f* pState);

/* Allocates (aklMalloc) and builds a synthesis context.
 *   ppState out  the raw pointer to pass to the other operations
 * Statuses: kStsNullPtr; kStsMemAllocErr (*ppState unwritten). */
AKLAC_API Status aklsSynthesisFilterInitAlloc_PQMF_MP3_32f(AklsFilterState_PQMF_MP3_32f** ppState);

/* Releases a context built by InitAlloc (caller memory is left alone); the
 * tag is kept.
 *   pState in  the context
 * Statuses: kStsNullPtr; kStsContextMismatch (wrong tag, or a tag beside an
 * owner flag other than 0/1 or a ring position outside 0..15: nothing released). */
AKLAC_API Status aklsSynthesisFilterFree_PQMF_MP3_32f(AklsFilterState_PQMF_MP3_32f* pState);

/* Polyphase synthesis of numSlots time slots on floats.
 *   pSrc      in      numSlots x 32 subband samples, slot-major (subband 0
 *                     first), the standard's scale (full scale 1.0)
 *   pDst      out     numSlots x 32 PCM samples, full scale 1.0, not clipped
 *   pState    in/out  the context (history carried between calls)
 *   numSlots  in      number of 32-sample time slots, at least 1
 * Statuses: kStsNullPtr; kStsSizeErr (numSlots below 1);
 * kStsContextMismatch (wrong tag, or fields no built context holds: an owner
 * flag other than 0/1, a ring position outside 0..15). */
AKLAC_API Status aklsSynthesisFilter_PQMF_MP3_32f(const Akl32f* pSrc, Akl32f* pDst,
                                                  AklsFilterState_PQMF_MP3_32f* pState, int numSlots);

/* ---- Layer III encoding ----
 *
 * The encoder's chain for one granule, the reverse of the decoding chain:
 * aklsAnalysisPQMF_MP3_16s32s (or the float analysis context) turns 18 time
 * slots of 32 PCM samples into subband samples; aklsMDCTFwd_MP3_32s turns
 * them into 576 Q26 spectral lines in the layout aklsMDCTInv_MP3_32s reads;
 * aklsJointStereoEncode_MP3_32s_I forms mid/side lines; aklsQuantize_MP3_32s_I
 * applies the nonlinear quantizer and puts the lines in stream order;
 * aklsHuffmanTableSelect_MP3_32s chooses regions and tables and counts the
 * bits, aklsHuffmanEncode_MP3_32s1u writes them; aklsPackScaleFactors_MP3_8s1u,
 * aklsPackSideInfo_MP3 and aklsPackFrameHeader_MP3 write the rest of the
 * frame.  Each packer is the exact reverse of its unpacker: what it writes
 * unpacks to the same record, and what the decoding operations read back
 * is what went in.  The caller chooses the block types, gains, scale
 * factors and stereo mode (the rate control and the psychoacoustics). */

/* Fixed-point polyphase analysis of one time slot.
 *   pSrcPcm    in      32 PCM samples read at pSrcPcm[mode * j], oldest first
 *   pDstS      out     32 subband samples, Q26 of the standard's scale (PCM
 *                      full scale 1.0), subband 0 first, saturated
 *   pXBuffer   in/out  the channel's history: 512 Akl32s (16 slots of 32
 *                      PCM values), zero at the start
 *   pXPosition in/out  ring slot index 0..15, stepped back by one per call
 *   mode       in      1 (one channel) or 2 (interleaved stereo: the caller
 *                      points at the channel's first sample)
 * Window: the standard's analysis window C[i] = D[i] / 32, D the synthesis
 * window; windowed sums are exact, each output is rounded once.  Followed
 * by aklsSynthPQMF_MP3_32s16s the bank reconstructs its input delayed by 481
 * samples, within the error of the standard's near-perfect-reconstruction
 * design (the float pair reconstructs a two-sine-plus-noise test signal at
 * about 83 dB SNR; the fixed-point pair, 16-bit output rounding included,
 * above 75 dB).
 * Statuses: kStsNullPtr; kStsBadArgErr (mode not 1 or 2, *pXPosition not in
 * 0..15); on an error nothing is written. */
AKLAC_API Status aklsAnalysisPQMF_MP3_16s32s(const Akl16s* pSrcPcm, Akl32s* pDstS, Akl32s* pXBuffer,
                                             int* pXPosition, int mode);

/* Floating-point polyphase analysis context (tag 0x434D4168): the PCM
 * history of one channel (16 slots of 32 values) and its ring position. */
typedef struct AklsAnalysisState_PQMF_MP3_32f AklsAnalysisState_PQMF_MP3_32f;

/* Bytes that aklsAnalysisFilterInit_PQMF_MP3_32f needs (alignment slack
 * included).
 *   pSize out  the size
 * Statuses: kStsNullPtr. */
AKLAC_API Status aklsAnalysisFilterGetSize_PQMF_MP3_32f(int* pSize);

/* Builds an analysis context with cleared history in caller memory of at
 * least the GetSize size (any alignment; built at the next 16-byte boundary).
 *   pState in/out  the memory
 * Statuses: kStsNullPtr. */
AKLAC_API Status aklsAnalysisFilterInit_PQMF_MP3_32f(AklsAnalysisState_PQMF_MP3_32f* pState);

/* Allocates (aklMalloc) and builds an analysis context.
 *   ppState out  the raw pointer to pass to the other operations
 * Statuses: kStsNullPtr; kStsMemAllocErr (*ppState unwritten). */
AKLAC_API Status aklsAnalysisFilterInitAlloc_PQMF_MP3_32f(AklsAnalysisState_PQMF_MP3_32f** ppState);

/* Releases a context built by InitAlloc (caller memory is left alone); the
 * tag is kept.
 *   pState in  the context
 * Statuses: kStsNullPtr; kStsContextMismatch (wrong tag, nothing released). */
AKLAC_API Status aklsAnalysisFilterFree_PQMF_MP3_32f(AklsAnalysisState_PQMF_MP3_32f* pState);

/* Polyphase analysis of numSlots time slots on floats.
 *   pSrc      in      numSlots x 32 PCM samples of one channel, full scale 1.0
 *   pDst      out     numSlots x 32 subband samples, slot-major (subband 0
 *                     first), the standard's scale
 *   pState    in/out  the context (history carried between calls)
 *   numSlots  in      number of 32-sample time slots, at least 1
 * The same filter as aklsAnalysisPQMF_MP3_16s32s in single precision;
 * followed by aklsSynthesisFilter_PQMF_MP3_32f it reconstructs the input
 * delayed by 481 samples.
 * Statuses: kStsNullPtr; kStsSizeErr (numSlots below 1);
 * kStsContextMismatch. */
AKLAC_API Status aklsAnalysisFilter_PQMF_MP3_32f(const Akl32f* pSrc, Akl32f* pDst,
                                                 AklsAnalysisState_PQMF_MP3_32f* pState, int numSlots);

/* Forward hybrid MDCT of one channel of one granule, the inverse of
 * aklsMDCTInv_MP3_32s: frequency inversion of the odd subbands, the window
 * of the block type, the 18-line (long) or three 6-line (short) MDCTs
 * scaled by 2/18 and 2/6, and the encoder's alias butterflies (every
 * subband boundary of long blocks, the first one of mixed blocks, none of
 * short blocks).
 *   pSrcY        in      576 Q26 subband samples of this granule, slot-major
 *                        (subband s of slot t at 32*t + s, as 18 calls of
 *                        aklsAnalysisPQMF_MP3_16s32s leave them)
 *   pDstXr       out     576 Q26 lines in the layout aklsMDCTInv_MP3_32s
 *                        reads: 18 per subband; short blocks window w of
 *                        subband s at 18*s + 6*w .. 18*s + 6*w + 5
 *   pOverlapBuf  in/out  576 Akl32s: the previous granule's subband samples,
 *                        subband-major (zero at the start); replaced by this
 *                        granule's
 *   blockType    in      0 normal, 1 start, 2 short, 3 stop
 *   mixedBlock   in      0 or 1 (1: subbands 0 and 1 long with the normal window)
 * The block types must follow each other as the decoder expects (a short
 * block after a start block, a stop block after a short block); the
 * decoder's inverse transform with overlap-add then returns pSrcY one
 * granule later within a few Q26 steps.  Arithmetic in double precision,
 * each line rounded once and saturated.
 * Statuses: kStsNullPtr; kStsBadArgErr (blockType outside 0..3, mixedBlock
 * outside 0..1); on an error nothing is written. */
AKLAC_API Status aklsMDCTFwd_MP3_32s(const Akl32s* pSrcY, Akl32s* pDstXr, Akl32s* pOverlapBuf, int blockType,
                                     int mixedBlock);

/* Mid/side encoding of one granule, in place: M = (L + R) / sqrt(2),
 * S = (L - R) / sqrt(2), each rounded once and saturated, when the header
 * asks for joint stereo with mid/side (mode 1, modeExtension bit 1); any
 * other header leaves the lines alone.
 *   pSrcDstXr     in/out  2 x 576 Q26 lines, channel 0 then channel 1
 *   pFrameHeader  in      id, mode, modeExtension
 * Statuses: kStsNullPtr; kStsMP3FrameHeaderErr (id above 1, mode or
 * modeExtension above 3); kStsNotSupportedModeErr (joint stereo with the
 * intensity bit set: intensity encoding is not offered); on an error
 * nothing is written. */
AKLAC_API Status aklsJointStereoEncode_MP3_32s_I(Akl32s* pSrcDstXr, const AklMP3FrameHeader* pFrameHeader);

/* Quantizes one channel of one granule in place, the inverse of
 * aklsReQuantize_MP3_32s_I (without stereo processing): line x of a band
 * with attenuation a (in quarter octaves, 210 - globalGain + ((scale factor
 * + preflag * pretab[band]) << (scalefacScale + 1)) for long bands, 210 -
 * globalGain + (scale factor << (scalefacScale + 1)) + 8 * subblockGain[w]
 * for window w of short bands) becomes sign(x) floor((|x| 2^(a/4))^(3/4) +
 * 0.4054), magnitudes saturated at 8206; short-block lines are moved from
 * the transform's layout to stream order.
 *   pSrcDstXrIx   in/out  576 Q26 lines in the layout of aklsMDCTFwd_MP3_32s
 *                         in; quantized integers in stream order out
 *   pScaleFactor  in      at least 39 Akl8s in the layout of
 *                         aklsUnpackScaleFactors_MP3_1u8s (entry 21 of long
 *                         blocks is band 21's, normally 0; negative values
 *                         count by their magnitude)
 *   pSideInfo     in      globalGain, blockType, mixedBlockFlag,
 *                         subblockGain, preflag, scalefacScale
 *   pFrameHeader  in      id and samplingFreqIndex select the band tables
 *   pBuffer       work    576 Akl32s
 * Requantizing the result gives each line back within its quantizer cell.
 * Statuses: kStsNullPtr; kStsMP3FrameHeaderErr (id above 1,
 * samplingFreqIndex above 2); kStsMP3SideInfoErr (blockType above 3,
 * mixedBlockFlag, scalefacScale or preflag above 1, globalGain above 255,
 * a subblockGain above 7 in a short block); on an error nothing is written. */
AKLAC_API Status aklsQuantize_MP3_32s_I(Akl32s* pSrcDstXrIx, const Akl8s* pScaleFactor,
                                        const AklMP3SideInfo* pSideInfo, const AklMP3FrameHeader* pFrameHeader,
                                        Akl32s* pBuffer);

/* Chooses the Huffman coding of one granule and channel and counts its bits.
 * The top zero pairs are left uncoded, the quadruples of magnitudes 0 and 1
 * below them form the count1 region (with the cheaper of tables A and B),
 * the rest are big values.  Long granules get the split into three regions
 * and the tables that cost the fewest bits (every region0Count 0..15 and
 * region1Count 0..7 with region0Count + region1Count at most 20); window-
 * switched granules get the decoder's fixed regions (region 0 of 36 lines
 * for MPEG-1 or short blocks, else 54) with region0Count 8 (short, not
 * mixed) or 7 and region1Count 20 minus that, and the cheapest two tables.
 *   pSrcIx        in      576 quantized values in stream order, magnitudes
 *                         0..8206
 *   pSideInfo     in/out  windowSwitchingFlag, blockType, mixedBlockFlag in;
 *                         bigValues, tableSelect[0..2], region0Count,
 *                         region1Count, count1TableSelect out
 *   pFrameHeader  in      id, layer, samplingFreqIndex
 *   pDstHufBits   out     the bits aklsHuffmanEncode_MP3_32s1u will write
 * Statuses: kStsNullPtr; kStsMP3FrameHeaderErr (id above 1, layer not 1,
 * samplingFreqIndex above 2); kStsMP3SideInfoErr (windowSwitchingFlag,
 * mixedBlockFlag above 1, blockType above 3, block type 0 with window
 * switching or another without); kStsBadArgErr (a magnitude above 8206); on
 * an error nothing is written. */
AKLAC_API Status aklsHuffmanTableSelect_MP3_32s(const Akl32s* pSrcIx, AklMP3SideInfo* pSideInfo,
                                                const AklMP3FrameHeader* pFrameHeader, Akl32s* pDstHufBits);

/* Huffman-encodes one granule and channel at the cursor with the regions
 * and tables of the side information: big-value pairs (linbits and sign
 * bits after each value's code, x before y), then count1 quadruples from
 * line bigValues * 2 up to the last non-zero line rounded up to a whole
 * quadruple, each followed by the signs of its non-zero values.
 * aklsHuffmanDecode_MP3_1u32s given the written bits as hufSize returns
 * pSrcIx exactly.
 *   pSrcIx        in      576 quantized values in stream order
 *   ppBitStream, pOffset  in/out  cursor (offset 0..7); advanced past the
 *                         codes (the shared bit writer: bytes begun afresh
 *                         are stored whole, the rest of the last byte zero)
 *   pSideInfo     in      bigValues, tableSelect, region counts,
 *                         count1TableSelect, windowSwitchingFlag, blockType
 *   pFrameHeader  in      id, layer, samplingFreqIndex
 * Statuses: kStsNullPtr; kStsBadArgErr (offset above 7);
 * kStsMP3FrameHeaderErr (id above 1, layer not 1, samplingFreqIndex above
 * 2); kStsMP3SideInfoErr (block fields as aklsHuffmanTableSelect_MP3_32s,
 * bigValues above 288, a table number above 31, count1TableSelect above 1,
 * region counts negative or summing to 21 or more); kStsErr (the values do
 * not fit the side information: a magnitude above 8206 or above what its
 * region's table codes, a value in region with table 0, 4 or 14, a
 * magnitude above 1 after the big values, or count1 quadruples that would
 * end past line 575); on an error nothing is written. */
AKLAC_API Status aklsHuffmanEncode_MP3_32s1u(const Akl32s* pSrcIx, Akl8u** ppBitStream, Akl32s* pOffset,
                                             const AklMP3SideInfo* pSideInfo, const AklMP3FrameHeader* pFrameHeader);

/* Packs the scale factors of one granule and channel at the cursor, the
 * reverse of aklsUnpackScaleFactors_MP3_1u8s: the same array layout, field
 * widths and order (MPEG-1 slen1/slen2 with the groups whose scfsi flag is
 * set skipped in granule 1; MPEG-2 the four partitions of scalefacCompress,
 * with the intensity-stereo variant on the right channel).
 *   pSrcScaleFactor       in      the array, as the unpacker fills it; on the
 *                         MPEG-2 intensity right channel a negated partition
 *                         limit (-(2^slen - 1)) is written as the limit
 *   ppBitStream, pOffset  in/out  cursor (offset 0..7); advanced past the
 *                         scale factors (shared bit writer)
 *   pSideInfo             in      scalefacCompress, blockType, mixedBlockFlag
 *   pScfsi                in      this channel's four scfsi flags (MPEG-1)
 *   pFrameHeader          in      id; modeExtension (MPEG-2)
 *   granule, channel      in      0..1
 * Statuses: kStsNullPtr; kStsBadArgErr (offset above 7, granule or channel
 * above 1); kStsMP3FrameHeaderErr (id above 1, modeExtension above 3);
 * kStsMP3SideInfoErr (blockType above 3, mixedBlockFlag above 1,
 * scalefacCompress above 15 / 511, an scfsi flag above 1); kStsBadArgErr
 * (a value that does not fit its field); on an error nothing is written. */
AKLAC_API Status aklsPackScaleFactors_MP3_8s1u(const Akl8s* pSrcScaleFactor, Akl8u** ppBitStream, Akl32s* pOffset,
                                               const AklMP3SideInfo* pSideInfo, const Akl32s* pScfsi,
                                               const AklMP3FrameHeader* pFrameHeader, Akl32s granule,
                                               Akl32s channel);

/* Packs the side information of one frame, the reverse of
 * aklsUnpackSideInfo_MP3: 17 / 32 bytes (MPEG-1 one / two channels) or
 * 9 / 17 (MPEG-2), whole bytes written at the byte pointer.
 *   pSrcSideInfo     in      granules x channels records, granule-major;
 *                            window-switched records write blockType,
 *                            mixedBlockFlag, tableSelect[0..1] and
 *                            subblockGain (not the region counts), the others
 *                            tableSelect[0..2] and the region counts;
 *                            preflag is written for MPEG-1 only
 *   ppBitStream      in/out  pointer to the byte pointer; advanced
 *   mainDataBegin    in      0..511 (MPEG-1) or 0..255 (MPEG-2)
 *   privateBits      in      5 / 3 bits (MPEG-1 one / two channels), 1 / 2 (MPEG-2)
 *   pSrcScfsi        in      4 flags per channel (read for MPEG-1 only)
 *   pFrameHeader     in      id, layer, mode
 * Statuses: kStsNullPtr; kStsMP3FrameHeaderErr (id above 1, layer not 1,
 * mode above 3); kStsBadArgErr (mainDataBegin or privateBits too wide);
 * kStsMP3SideInfoErr (an scfsi flag above 1; a field too wide for its bits,
 * window switching with blockType 0, or mixedBlockFlag above 1); on an error
 * nothing is written. */
AKLAC_API Status aklsPackSideInfo_MP3(const AklMP3SideInfo* pSrcSideInfo, Akl8u** ppBitStream, Akl32s mainDataBegin,
                                      Akl32s privateBits, const Akl32s* pSrcScfsi,
                                      const AklMP3FrameHeader* pFrameHeader);

/* Packs a Layer III frame header: the 12-bit sync word 0xFFF, the fields,
 * and the CRC word when protectionBit is 0 (4 or 6 bytes), the reverse of
 * aklsUnpackFrameHeader_MP3.
 *   pSrcFrameHeader  in      the fields
 *   ppBitStream      in/out  pointer to the byte pointer; advanced by 4 or 6
 * Statuses: kStsNullPtr; kStsMP3FrameHeaderErr (id above 1, layer not 1,
 * bitrateIndex above 14, samplingFreqIndex above 2, mode, modeExtension or
 * emphasis above 3, another one-bit field above 1, crcWord above 0xFFFF
 * when it is written); on an error nothing is written. */
AKLAC_API Status aklsPackFrameHeader_MP3(const AklMP3FrameHeader* pSrcFrameHeader, Akl8u** ppBitStream);

/* @mp3-signal-end */

/* ========================================================================
 * AAC
 * ====================================================================== */
/* --- AAC transport headers and program configuration ------------------- */

/* ADTS fixed and variable header; every field holds the raw coded value. */
typedef struct {
  Akl32s id;                     /* 1 bit: 0 MPEG-4, 1 MPEG-2 */
  Akl32s layer;                  /* 2 bits, not checked */
  Akl32s protectionAbsent;       /* 1 bit: 1 = no CRC word follows */
  Akl32s profile;                /* 2 bits: object type minus one */
  Akl32s samplingFrequencyIndex; /* 4 bits */
  Akl32s privateBit;             /* 1 bit */
  Akl32s channelConfiguration;   /* 3 bits */
  Akl32s originalCopy;           /* 1 bit */
  Akl32s home;                   /* 1 bit */
  Akl32s reserved;               /* never written by the parser: keeps the caller's value */
  Akl32s copyIdBit;              /* 1 bit */
  Akl32s copyIdStart;            /* 1 bit */
  Akl32s aacFrameLength;         /* 13 bits: frame bytes, header included */
  Akl32s adtsBufferFullness;     /* 11 bits (0x7FF: variable rate) */
  Akl32s numRawDataBlocks;       /* coded 2 bits plus one: 1..4 */
  Akl32s crcCheck;               /* 16 bits; untouched when protectionAbsent is 1 */
} AklAACADTSFrameHeader;

/* ADIF header. */
typedef struct {
  Akl32s adifId;                 /* 32 bits, not compared with "ADIF" */
  Akl32s copyIdPresent;          /* 1 bit */
  Akl32s originalCopy;           /* 1 bit */
  Akl32s home;                   /* 1 bit */
  Akl32s bitstreamType;          /* 1 bit: 0 constant rate, 1 variable rate */
  Akl32s bitrate;                /* 23 bits */
  Akl32s numPrgCfgElt;           /* coded 4 bits plus one: 1..16 */
  Akl32s adifBufferFullness[16]; /* 20 bits each, only when bitstreamType is 0 */
  Akl8u copyId[9];               /* only when copyIdPresent is 1 */
} AklAACADIFHeader;

/* Program configuration element.  Array entries beyond their count are not written. */
typedef struct {
  Akl32s elementInstanceTag;        /* 4 bits */
  Akl32s objectType;                /* 2 bits */
  Akl32s samplingFrequencyIndex;    /* 4 bits */
  Akl32s numFrontElt;               /* 4 bits */
  Akl32s numSideElt;                /* 4 bits */
  Akl32s numBackElt;                /* 4 bits */
  Akl32s numLfeElt;                 /* 2 bits */
  Akl32s numAssocDataElt;           /* 3 bits */
  Akl32s numValidCcElt;             /* 4 bits */
  Akl32s monoMixdownPresent;        /* 1 bit */
  Akl32s monoMixdownEltNum;         /* 4 bits if present, else 0 */
  Akl32s stereoMixdownPresent;      /* 1 bit */
  Akl32s stereoMixdownEltNum;       /* 4 bits if present, else 0 */
  Akl32s matrixMixdownIdxPresent;   /* 1 bit */
  Akl32s matrixMixdownIdx;          /* 2 bits if present, else 0 */
  Akl32s pseudoSurroundEnable;      /* 1 bit if present, else 0 */
  Akl32s frontElementIsCpe[16];     /* 1 = channel pair */
  Akl32s frontElementTagSel[16];    /* instance tags */
  Akl32s sideElementIsCpe[16];   /* side elements: 1 = channel pair */
  Akl32s sideElementTagSel[16];  /* side elements: instance tags */
  Akl32s backElementIsCpe[16];   /* back elements: 1 = channel pair */
  Akl32s backElementTagSel[16];  /* back elements: instance tags */
  Akl32s lfeElementTagSel[4];    /* LFE elements: instance tags */
  Akl32s assocDataElementTagSel[8]; /* data stream elements: instance tags */
  Akl32s ccElementIsIndSw[16];      /* 1 = independently switched coupling */
  Akl32s validCcElementTagSel[16]; /* coupling elements: instance tags */
  Akl32s commentFieldBytes;         /* 0..255 */
  Akl8u commentFieldData[256];      /* only the first commentFieldBytes are written */
} AklAACPrgCfgElt;

/* Unpacks a 7-byte (no CRC) or 9-byte ADTS header starting on a byte boundary.
 *   ppBitStream  in/out: byte pointer at the sync word; advanced by 7 or 9 bytes.
 *                Four bytes are fetched per field read, so up to 3 bytes past the
 *                header may be touched.
 *   pHeader      out: every field except `reserved` (and `crcCheck` without CRC).
 * The sync word, layer and CRC are not checked.
 * Statuses: kStsNullPtr (ppBitStream, *ppBitStream or pHeader null); kStsOk. */
AKLAC_API Status aklsUnpackADTSFrameHeader_AAC(Akl8u** ppBitStream, AklAACADTSFrameHeader* pHeader);

/* Unpacks an ADIF header and its program configuration elements.
 *   ppBitStream   in/out: byte pointer at the header; advanced past the last element
 *                 (on a count failure, by the whole bytes read so far).
 *   pHeader       out: header fields.
 *   pPrgCfgElt    out: array of prgCfgEltMax records, numPrgCfgElt of them filled.
 *   prgCfgEltMax  in: records in pPrgCfgElt, 1..16.
 * Statuses, in check order: kStsNullPtr (any pointer or *ppBitStream null);
 * kStsAacPrgNumErr (prgCfgEltMax outside 1..16; then, after the count field,
 * numPrgCfgElt above prgCfgEltMax, the fields read so far being written); kStsOk. */
AKLAC_API Status aklsUnpackADIFHeader_AAC(Akl8u** ppBitStream, AklAACADIFHeader* pHeader,
                                          AklAACPrgCfgElt* pPrgCfgElt, Akl32s prgCfgEltMax);

/* Decodes a program configuration element at a bit cursor.  The comment field is
 * preceded by a byte alignment of the cursor (offset 0 of the next byte).
 *   ppBitStream, pBitOffset  in/out: cursor (offset 0..7); left after the last comment byte.
 *   pPrgCfgElt               out: the element.
 * Statuses, in check order: kStsNullPtr; kStsAacBitOffsetErr (offset outside 0..7); kStsOk. */
AKLAC_API Status aklsDecodePrgCfgElt_AAC(Akl8u** ppBitStream, Akl32s* pBitOffset, AklAACPrgCfgElt* pPrgCfgElt);

/* --- AAC syntax elements -------------------------------------------------
 * Window sequences: 0 only-long, 1 long-start, 2 eight-short, 3 long-stop. */

/* Individual channel stream information. */
typedef struct {
  Akl32s icsReservedBit;         /* 1 bit, unchecked */
  Akl32s windowSequence;         /* 2 bits */
  Akl32s windowShape;            /* 1 bit: 0 sine, 1 KBD */
  Akl32s maxSfb;                 /* 4 bits (short) or 6 bits (long, at most 51) */
  Akl32s scaleFactorGrouping;    /* 7 bits, short windows only */
  Akl32s predictorDataPresent;   /* 1 bit, long windows only; else 0 */
  Akl32s predictorReset;         /* 1 bit if predictorDataPresent; else 0 */
  Akl32s predictorResetGroupNum; /* 5 bits if predictorReset */
  Akl8u predictionUsed[44];      /* bands below min(maxSfb, predSfbMax); 0 from there to predSfbMax */
  Akl32s numWindowGroups;        /* 1..8; 1 for long windows */
  Akl32s windowGroupLength[8];   /* windows per group */
} AklAACIcsInfo;

/* Channel pair element header. */
typedef struct {
  Akl32s commonWindow;           /* 1 bit */
  Akl32s msMaskPresent;          /* 2 bits, only with a common window */
  Akl8u msUsed[8][60];           /* [group][band], only when msMaskPresent is 1 */
} AklAACChanPairElt;

/* Temporal noise shaping side information of one channel (256 bytes).
 * length, order, direction and coef run over all filters of all windows. */
typedef struct {
  Akl32s tnsDataPresent;         /* 1: the channel has TNS data */
  Akl32s nFilt[8];               /* filters per window */
  Akl32s coefRes[8];             /* coefficient width 3 or 4 (resolution bit plus 3) */
  Akl32s length[8];              /* per filter */
  Akl32s order[8];               /* per filter */
  Akl32s direction[16];          /* per filter of non-zero order */
  Akl8s coef[60];                /* order coefficients per filter of non-zero order, sign-extended */
} AklAACTnsData;

/* Long-term prediction side information of one channel. */
typedef struct {
  Akl32s ltpDataPresent;         /* 1: long-term prediction is used */
  Akl32s ltpLag;                 /* 11 bits */
  Akl16s ltpCoef;                /* Q14 gain for the coded 3-bit index */
  Akl32s longUsed[41];           /* [0] copies ltpDataPresent, [1..40] per-band flags */
  Akl32s shortUsed[8];           /* per short window: prediction used */
  Akl32s shortLagPresent[8];     /* per short window: a lag offset follows */
  Akl32s shortLag[8];            /* per short window: lag offset */
} AklAACLtpData;

/* Long-term prediction information of a channel or channel pair: the window
 * sequence and maxSfb of the ICS it was read with, then one AklAACLtpData per
 * channel.  The long-term prediction operations may append their own state
 * after these fields. */
typedef struct {
  Akl32s windowSequence;         /* window sequence of the ICS, 0..3 */
  Akl32s maxSfb;                 /* transmitted bands of the ICS */
  AklAACLtpData ltpData[2];      /* per channel */
} AklAACLtpInfo;

/* Scalable main-layer header. */
typedef struct {
  Akl32s windowSequence;         /* 2 bits, 0..3 */
  Akl32s windowShape;            /* 1 bit: 0 sine, 1 KBD */
  Akl32s maxSfb;                 /* transmitted bands */
  Akl32s scaleFactorGrouping;    /* 7 bits, eight short windows only */
  Akl32s numWindowGroups;        /* 1..8 */
  Akl32s windowGroupLength[8];   /* see aklsDecodeMainHeader_AAC for its rule */
  Akl32s msMaskPresent;          /* 0 none, 1 per band, 2 all bands */
  Akl8u* pMsUsed;                /* caller buffer of 8 x 60 bytes, [group * 60 + band] */
  AklAACTnsData tnsData[2];      /* per channel */
  AklAACLtpData ltpData[2];      /* per channel */
} AklAACMainHeader;

/* Scalable extension-layer header. */
typedef struct {
  Akl32s msMaskPresent;          /* 0 none, 1 per band, 2 all bands */
  Akl32s maxSfb;                 /* transmitted bands of this layer */
  Akl8u* pMsUsed;                /* caller buffer of 8 x 60 bytes, [group * 60 + band] */
  AklAACTnsData tnsData[2];      /* per channel */
  Akl32s diffControl[2][51];     /* flags actually read, packed from entry 0 */
} AklAACExtHeader;

/* Decodes the channel pair element header after its instance tag: common_window
 * and, with a common window, the ICS information and the M/S mask.
 *   ppBitStream, pBitOffset  in/out: cursor (offset 0..7).
 *   pIcsInfo       out: shared ICS information (written only with a common window).
 *   pChanPairElt   out: commonWindow, msMaskPresent (0 without a common window), msUsed
 *                  (rows below numWindowGroups, bands below maxSfb, only when msMaskPresent
 *                  is 1).
 *   predSfbMax     in: limit of predictor bands, 0..41 (0 for low complexity).
 * Statuses, in check order: kStsNullPtr; kStsAacBitOffsetErr; kStsAacPredSfbErr
 * (predSfbMax outside 0..41); kStsAacMaxSfbErr (long-window maxSfb above 51, read);
 * kStsOk.  After a failure found in the data the cursor stands after the bits read. */
AKLAC_API Status aklsDecodeChanPairElt_AAC(Akl8u** ppBitStream, Akl32s* pBitOffset, AklAACIcsInfo* pIcsInfo,
                                           AklAACChanPairElt* pChanPairElt, Akl32s predSfbMax);

/* As aklsDecodeChanPairElt_AAC with the MPEG-4 ICS information: for a long window
 * with predictor data, audioObjectType 1 reads main-profile prediction flags and
 * any other value reads long-term prediction data for both channels into pLtpInfo.
 *   ppBitStream, pBitOffset  in/out: cursor (offset 0..7).
 *   pIcsInfo        out: shared ICS information (written only with a common window).
 *   pChanPairElt    out: commonWindow, msMaskPresent and msUsed, as aklsDecodeChanPairElt_AAC.
 *   pLtpInfo        out: both ltpDataPresent cleared first; window sequence, maxSfb
 *                   and ltpData[0..1] when LTP data is read.
 *   predSfbMax      in: 0..51; above 41 fails when main-profile flags are read.
 *   audioObjectType in: object type of the stream (1 main profile).
 * Statuses, in check order: kStsNullPtr; kStsAacBitOffsetErr; kStsAacMaxSfbErr
 * (predSfbMax outside 0..51, or long-window maxSfb above 51, read); kStsAacPredSfbErr
 * (main-profile flags with predSfbMax above 41); kStsOk. */
AKLAC_API Status aklsDecodeChanPairElt_MP4_AAC(Akl8u** ppBitStream, Akl32s* pBitOffset, AklAACIcsInfo* pIcsInfo,
                                               AklAACChanPairElt* pChanPairElt, AklAACLtpInfo* pLtpInfo,
                                               Akl32s predSfbMax, Akl32s audioObjectType);

/* Decodes a data stream element after its element id.
 *   ppBitStream, pBitOffset  in/out: cursor (offset 0..7).
 *   pElementInstanceTag  out: 4-bit tag.
 *   pDataCount           out: 0..510 bytes.
 *   pDataBytes           out: the data bytes (room for 510).
 * Statuses, in check order: kStsNullPtr; kStsAacBitOffsetErr; kStsOk. */
AKLAC_API Status aklsDecodeDatStrElt_AAC(Akl8u** ppBitStream, Akl32s* pBitOffset, Akl32s* pElementInstanceTag,
                                         Akl32s* pDataCount, Akl8u* pDataBytes);

/* Decodes a fill element after its element id; the payload is copied, not interpreted.
 *   ppBitStream, pBitOffset  in/out: cursor (offset 0..7).
 *   pFillCount   out: 0..269 bytes.
 *   pFillBytes   out: the payload bytes (room for 269).
 * Statuses, in check order: kStsNullPtr; kStsAacBitOffsetErr; kStsOk. */
AKLAC_API Status aklsDecodeFillElt_AAC(Akl8u** ppBitStream, Akl32s* pBitOffset, Akl32s* pFillCount,
                                       Akl8u* pFillBytes);

/* Decodes the header of a scalable main layer: window information, M/S mask and
 * per-channel TNS and LTP data.  For eight short windows the group lengths follow
 * this header's own rule (entry 0 reset to 1 on each new group, later increments
 * added to what the entry held), so callers derive standard group lengths from
 * scaleFactorGrouping; numWindowGroups is exact.
 *   ppBitStream, pBitOffset  in/out: cursor (offset 0..7).
 *   pMainHeader     in/out: pMsUsed must point at 8 x 60 bytes.
 *   channels        in: 1..2.
 *   monoStereoFlag  in: 0..1; 1 parses everything and then reports kStsNotSupportedModeErr.
 * Statuses, in check order: kStsNullPtr (including pMainHeader->pMsUsed);
 * kStsAacBitOffsetErr; kStsAacChanErr; kStsAacStereoFlagErr; kStsAacTnsOrderErr
 * (TNS order above 7 short / 12 long, read); kStsNotSupportedModeErr; kStsOk. */
AKLAC_API Status aklsDecodeMainHeader_AAC(Akl8u** ppBitStream, Akl32s* pBitOffset, AklAACMainHeader* pMainHeader,
                                          Akl32s channels, Akl32s monoStereoFlag);

/* Decodes the header of a scalable extension layer.  With eight short windows the
 * M/S mask is read for four groups.
 *   ppBitStream, pBitOffset  in/out: cursor (offset 0..7).
 *   pExtHeader         in/out: pMsUsed must point at 8 x 60 bytes.
 *   tnsPresent         in: 0..1.
 *   msMaskEnable       in: 0..1.
 *   diffControlEnable  in: 0..1.
 *   lowerMaxSfb        in: 0..51, first band of this layer.
 *   lowerMaxSfbPrev    in: 0..51.
 *   windowSequence     in: 0..3.
 * Statuses, in check order: kStsNullPtr (including pExtHeader->pMsUsed);
 * kStsAacBitOffsetErr; kStsAacStereoFlagErr (tnsPresent); kStsAacMsMaskFlagErr;
 * kStsAacDiffCtrlFlagErr; kStsAacMaxSfbErr (band limits above 51; read maxSfb above 60);
 * kStsAacWinSeqErr; kStsAacTnsOrderErr (read); kStsOk. */
AKLAC_API Status aklsDecodeExtensionHeader_AAC(Akl8u** ppBitStream, Akl32s* pBitOffset, AklAACExtHeader* pExtHeader,
                                               Akl32s tnsPresent, Akl32s msMaskEnable, Akl32s diffControlEnable,
                                               Akl32s lowerMaxSfb, Akl32s lowerMaxSfbPrev, Akl32s windowSequence);

/* --- AAC noiseless decoding --------------------------------------------- */

/* Per-channel state of the noiseless decoders (caller-owned). */
typedef struct {
  Akl32s samplingFrequencyIndex; /* in: 0..11 */
  Akl32s predSfbMax;             /* in: predictor band limit for the ICS reader (0 for low complexity) */
  Akl32s windowLength;           /* out: 1024 or 128 */
  Akl32s numWindows;             /* out: 1 or 8 */
  Akl32s numSwb;                 /* out: scale-factor bands of the window length */
  Akl32s globalGain;             /* out: 8 bits */
  Akl32s pulseDataPresent;       /* out */
  Akl32s tnsDataPresent;         /* out */
  Akl32s gainControlDataPresent; /* out */
  AklAACIcsInfo* pIcsInfo;       /* in: the channel's ICS information (read into or taken from) */
  Akl8u sectCb[120];             /* out: codebook of each section, groups one after the other */
  Akl8u sectEnd[120];            /* out: end band (exclusive) of each section */
  Akl32s numSec[8];              /* out: sections per window group */
  Akl32s nFilt[8];               /* out: TNS filters per window */
  Akl32s coefRes[8];             /* out: TNS coefficient width 3 or 4 */
  Akl32s length[8];              /* out: per TNS filter */
  Akl32s order[8];               /* out: per TNS filter */
  Akl32s direction[8];           /* out: per TNS filter of non-zero order */
} AklAACChanInfo;

/* Decodes one low-complexity individual channel stream from global_gain through the
 * spectral data: ICS information (when commonWindow is 0), sections, scale factors
 * and intensity positions, pulse, TNS and gain-control flags, and the quantised
 * spectrum with pulses added.
 *   ppBitStream, pBitOffset  in/out: cursor (offset 0..7); after the last spectral bit.
 *   commonWindow   in: 0..1; 1 takes the ICS information already in pChanInfo->pIcsInfo.
 *   pChanInfo      in/out: see AklAACChanInfo; predSfbMax must be 0.
 *   pScaleFactor   out: numWindowGroups x maxSfb values (group-major): scale factor,
 *                  intensity position, or 0 for codebook 0.
 *   pSpectrum      out: 1024 quantised values; short windows grouped and interleaved
 *                  (group, then band, then window).
 *   pSfbCb         out: numWindowGroups x maxSfb codebooks.
 *   pTnsCoef       out: TNS coefficients (up to 60).
 * Statuses, in check order: kStsNullPtr (including *ppBitStream and pIcsInfo);
 * kStsAacBitOffsetErr; kStsAacCommonWinErr; kStsAacSmpRateIdxErr; kStsAacPredSfbErr
 * (predSfbMax not 0); then from the data: kStsAacMaxSfbErr (maxSfb above numSwb),
 * kStsAacWinGrpErr (a grouping, read or handed in, that is not 1..8 groups of 1..8
 * windows adding up to exactly 8), kStsAacSectDataErr
 * (section lengths not adding up to maxSfb, an empty section, more than 120 sections),
 * kStsAacCodebookErr (12 or 13), kStsAacSfValErr, kStsAacPulseErr, kStsAacTnsOrderErr,
 * kStsAacGainCtrlErr, kStsAacCoefValErr (escape above 8191); kStsOk. */
AKLAC_API Status aklsNoiselessDecoder_LC_AAC(Akl8u** ppBitStream, Akl32s* pBitOffset, Akl32s commonWindow,
                                             AklAACChanInfo* pChanInfo, Akl16s* pScaleFactor, Akl32s* pSpectrum,
                                             Akl8u* pSfbCb, Akl8s* pTnsCoef);

/* Decodes one individual channel stream of the MPEG-4 object types (LTP ICS
 * information, scalable layers, noise substitution).
 *   ppBitStream, pBitOffset  in/out: cursor (offset 0..7); after the last spectral bit.
 *   pLayerInfo      in/out: AklAACLtpInfo* when the ICS information is read here
 *                   (LTP data of channel 0), AklAACMainHeader* when scalableLayer is 1
 *                   (window grouping taken from it).
 *   pScaleFactor    out: as in the LC decoder; codebook 13 bands hold noise energies,
 *                   which share one running value with the scale factors.
 *   pSpectrum       out: 1024 quantised values, as in the LC decoder.
 *   pSfbCb          out: numWindowGroups x maxSfb codebooks.
 *   pTnsCoef        out: TNS coefficients (up to 60).
 *   pChanInfo       in/out: as in the LC decoder.
 *   windowSequence  in: 0..3, used when scalableLayer is 1.
 *   maxSfb          in: 0..51, used when scalableLayer is 1.
 *   commonWindow    in: 0..1; 1 takes pChanInfo->pIcsInfo as read.
 *   scalableLayer   in: 0..1; 1 reads no ICS information, pulse, TNS or gain-control data.
 *   audioObjectType in: 0..16 (1 main profile: prediction flags, and TNS orders
 *                   up to 20 for long windows instead of 12).
 * Statuses, in check order: kStsNullPtr; kStsAacBitOffsetErr; kStsAacCommonWinErr;
 * kStsAacWinSeqErr; kStsAacLayerFlagErr; kStsAacAotErr; kStsAacMaxSfbErr;
 * kStsAacSmpRateIdxErr; then from the data as the LC decoder (kStsAacWinGrpErr also
 * for a main-layer grouping that is not 8 windows in 1..8 groups), plus kStsErr (a section
 * beyond the band table) and kStsAacPredSfbErr (main-profile flags with predSfbMax
 * above 41); kStsOk. */
AKLAC_API Status aklsNoiselessDecode_AAC(Akl8u** ppBitStream, Akl32s* pBitOffset, void* pLayerInfo,
                                         Akl16s* pScaleFactor, Akl32s* pSpectrum, Akl8u* pSfbCb, Akl8s* pTnsCoef,
                                         AklAACChanInfo* pChanInfo, Akl32s windowSequence, Akl32s maxSfb,
                                         Akl32s commonWindow, Akl32s scalableLayer, Akl32s audioObjectType);
/* @aac-bitstream-end */
/* --- AAC spectral tools: dequantization, stereo, noise substitution, TNS ---
 * Spectra are signed 32-bit: 1024 lines for a long window, 8 x 128 for eight
 * short windows.  Before aklsDeinterleaveSpectrum_AAC_32s a short-window
 * spectrum is in the bitstream's grouped order (group after group, band after
 * band inside a group, window after window inside a band); the stereo and
 * noise tools work on that order, TNS on the deinterleaved one.  Dequantized
 * values are Q3 (three fractional bits).  Per-band arrays (codebooks, scale
 * factors) hold maxSfb entries per window group, group after group; msUsed
 * holds one row of 60 bytes per group.  Group lengths (pWinGrpLen) count
 * windows and are read for short windows only (a long window is one group of
 * one window); for short windows they must be 1..8 each and add up to
 * exactly 8 ("group lengths inconsistent" below: kStsAacWinGrpErr otherwise).
 */

/* Dequantizes a quantized spectrum in place to Q3:
 * y = sign(x) * |x|^(4/3) * 2^((sf - 100) / 4) * 8, truncated.  Bands of
 * codebooks 13, 14 and 15 (noise, intensity) and the lines above the last
 * band are left untouched.
 *   pSrcDst      in/out: 1024 quantized values (|x| <= 8191), Q3 on return
 *   pScaleFactor in: scale factor (0..255) per band per group
 *   numWinGrp    in: window groups, 1 for long windows, 1..8 for short
 *   pWinGrpLen   in: windows per group (short windows)
 *   maxSfb       in: transmitted bands, 0..number of bands of the index
 *   pSfbCb       in: codebook per band per group
 *   samplingFrequencyIndex in: 0..11
 *   winLen       in: 1024 (long) or 128 (eight short windows)
 * Statuses: kStsNullPtr; kStsAacWinLenErr (winLen not 128 or 1024);
 * kStsAacWinGrpErr (numWinGrp not 1 for long, outside 1..8 for short);
 * kStsAacMaxSfbErr (maxSfb above 51); kStsAacSmpRateIdxErr; kStsAacMaxSfbErr
 * (maxSfb above the bands of the index); kStsAacWinGrpErr (group lengths
 * inconsistent); kStsAacCoefValErr (a magnitude above 8191: stops there, the
 * lines before it stay converted). */
AKLAC_API Status aklsQuantInv_AAC_32s_I(Akl32s* pSrcDst, const Akl16s* pScaleFactor, Akl32s numWinGrp,
                                        const Akl32s* pWinGrpLen, Akl32s maxSfb, const Akl8u* pSfbCb,
                                        Akl32s samplingFrequencyIndex, Akl32s winLen);

/* Reorders an eight-short-window spectrum from the grouped, band-interleaved
 * order into 8 windows of 128 lines; lines from band maxSfb up are set to 0
 * in every window.
 *   pSrc  in: 1024 values in grouped order;  pDst out: 8 x 128 values
 *   numWinGrp in: 1..8;  pWinGrpLen in: windows per group
 *   maxSfb in: 0..number of short bands of the index
 *   samplingFrequencyIndex in: 0..11;  winLen in: must be 128
 * Statuses: kStsNullPtr; kStsAacWinLenErr; kStsAacWinGrpErr; kStsAacMaxSfbErr
 * (outside 0..51); kStsAacSmpRateIdxErr; kStsAacMaxSfbErr (above the short
 * bands of the index); kStsAacWinGrpErr (group lengths inconsistent). */
AKLAC_API Status aklsDeinterleaveSpectrum_AAC_32s(const Akl32s* pSrc, Akl32s* pDst, Akl32s numWinGrp,
                                                  const Akl32s* pWinGrpLen, Akl32s maxSfb,
                                                  Akl32s samplingFrequencyIndex, Akl32s winLen);

/* M/S stereo of a channel pair, in place: L' = L + R, R' = L - R (plain
 * 32-bit sums) in every band with msUsed set (msMaskPresent 1) or in every
 * band (msMaskPresent 2), except noise bands (codebook 13) and intensity
 * bands (14, 15).  An intensity band with msUsed set under msMaskPresent 1
 * gets its codebook toggled between 14 and 15 in pSfbCb, so that
 * aklsDecodeIsStereo_AAC_32s applies the inverted sign.
 *   pSrcDstL, pSrcDstR in/out: dequantized spectra (Q3), grouped order
 *   msMaskPresent in: 1 (per-band mask) or 2 (all bands)
 *   pMsUsed in: msUsed[g * 60 + sfb]
 *   pSfbCb  in/out: codebooks of the pair's right channel (per band per group)
 *   numWinGrp, pWinGrpLen, maxSfb, samplingFrequencyIndex, winLen  in: as above
 * Statuses: kStsNullPtr; kStsAacWinLenErr; kStsAacWinGrpErr; kStsAacMaxSfbErr
 * (outside 0..51); kStsAacSmpRateIdxErr; kStsAacMsMaskErr (msMaskPresent
 * outside 1..2); kStsAacMaxSfbErr (above the bands of the index);
 * kStsAacWinGrpErr (group lengths inconsistent). */
AKLAC_API Status aklsDecodeMsStereo_AAC_32s_I(Akl32s* pSrcDstL, Akl32s* pSrcDstR, Akl32s msMaskPresent,
                                              const Akl8u* pMsUsed, Akl8u* pSfbCb, Akl32s numWinGrp,
                                              const Akl32s* pWinGrpLen, Akl32s maxSfb,
                                              Akl32s samplingFrequencyIndex, Akl32s winLen);

/* Intensity stereo: in every band of codebook 15 (in phase) or 14 (out of
 * phase) R = +-L * 2^(-p/4), p the band's intensity position; other bands of
 * pDstR are left as they are.
 *   pSrcL in: left spectrum (Q3);  pDstR in/out: right spectrum (Q3)
 *   pScaleFactor in: intensity position per band per group (any value)
 *   pSfbCb in: codebooks of the right channel
 *   numWinGrp, pWinGrpLen, maxSfb, samplingFrequencyIndex, winLen  in: as above
 * Statuses: kStsNullPtr; kStsAacWinLenErr; kStsAacWinGrpErr; kStsAacMaxSfbErr
 * (outside 0..51); kStsAacSmpRateIdxErr; kStsAacMaxSfbErr (above the bands
 * of the index); kStsAacWinGrpErr (group lengths inconsistent). */
AKLAC_API Status aklsDecodeIsStereo_AAC_32s(const Akl32s* pSrcL, Akl32s* pDstR, const Akl16s* pScaleFactor,
                                            const Akl8u* pSfbCb, Akl32s numWinGrp, const Akl32s* pWinGrpLen,
                                            Akl32s maxSfb, Akl32s samplingFrequencyIndex, Akl32s winLen);

/* Perceptual noise substitution of one channel: every band of codebook 13
 * (in every window of its group) is filled with pseudo-random noise of the
 * band's noise energy n: sum of squares 64 * 2^(n/2) in Q3, that is the
 * energy 2^(n/2) of the standard.  One row of noise energies per group
 * (pScaleFactor as the noiseless decoder writes it).  When numWinGrp is 1
 * the LTP flag of each noise band below 40, pLtpLongUsed[band + 1], is
 * cleared.
 *   pSrcDst in/out: spectrum (Q3), grouped order
 *   pLtpLongUsed in/out: 41 LTP band flags (entry 0 the LTP-present flag)
 *   pSfbCb in: codebooks;  pScaleFactor in: noise energies (codebook-13 bands)
 *   maxSfb in: 0..51 (bands above the index's count are not processed)
 *   numWinGrp in: 1..8 (1 for long windows);  pWinGrpLen in: windows per group
 *   samplingFrequencyIndex in: 0..11;  winLen in: 128 or 1024
 *   pRandomSeed in/out: the caller's generator state, advanced once per line
 * Statuses: kStsNullPtr; kStsAacMaxSfbErr; kStsAacWinGrpErr;
 * kStsAacSmpRateIdxErr; kStsAacWinLenErr; kStsAacWinGrpErr (group lengths
 * inconsistent). */
AKLAC_API Status aklsDecodePNS_AAC_32s(Akl32s* pSrcDst, Akl32s* pLtpLongUsed, const Akl8u* pSfbCb,
                                       const Akl16s* pScaleFactor, Akl32s maxSfb, Akl32s numWinGrp,
                                       const Akl32s* pWinGrpLen, Akl32s samplingFrequencyIndex, Akl32s winLen,
                                       Akl32s* pRandomSeed);

/* Perceptual noise substitution of a channel pair with a common window: as
 * aklsDecodePNS_AAC_32s for each channel, except that a band which is a
 * noise band in both channels and has M/S on (msMaskPresent 2, or 1 with its
 * msUsed byte set) gets the same noise vector in both channels, each scaled
 * by its own noise energy.  Noise is drawn band by band, left before right.
 *   pSrcDstL, pSrcDstR in/out: spectra (Q3), grouped order
 *   pLtpLongUsedL, pLtpLongUsedR in/out: 41 LTP band flags per channel
 *   pSfbCbL, pSfbCbR in: codebooks per channel
 *   pScaleFactorL, pScaleFactorR in: noise energies per channel
 *   msMaskPresent in: 0..2;  pMsUsed in: msUsed[g * 60 + sfb]
 *   maxSfb, numWinGrp, pWinGrpLen, samplingFrequencyIndex, winLen  in: as for
 *                      aklsDecodePNS_AAC_32s
 *   pRandomSeed  in/out: as for aklsDecodePNS_AAC_32s
 * Statuses: kStsNullPtr; kStsAacMaxSfbErr; kStsAacWinGrpErr;
 * kStsAacSmpRateIdxErr; kStsAacWinLenErr; kStsAacMsMaskErr (msMaskPresent
 * outside 0..2); kStsAacWinGrpErr (group lengths inconsistent). */
AKLAC_API Status aklsDecodeMsPNS_AAC_32s(Akl32s* pSrcDstL, Akl32s* pSrcDstR, Akl32s* pLtpLongUsedL,
                                         Akl32s* pLtpLongUsedR, const Akl8u* pSfbCbL, const Akl8u* pSfbCbR,
                                         const Akl16s* pScaleFactorL, const Akl16s* pScaleFactorR,
                                         Akl32s msMaskPresent, const Akl8u* pMsUsed, Akl32s maxSfb,
                                         Akl32s numWinGrp, const Akl32s* pWinGrpLen,
                                         Akl32s samplingFrequencyIndex, Akl32s winLen, Akl32s* pRandomSeed);

/* Temporal noise shaping, decoder side: the all-pole filters of each window
 * run in place over their band ranges.
 *   pSrcDst   in/out: 1024 lines (long) or 8 x 128 deinterleaved (Q3)
 *   pNumFilt  in: filters per window (0..3 long, 0..1 short), 1 or 8 entries
 *   pLength, pOrder, pDirection in: per filter, over all windows in turn
 *             (length 0..number of bands, order 0..12 long (0..20 when
 *             profile is 0) / 0..7 short,
 *             direction 0 upward, 1 downward; a filter of order 0 has no
 *             direction entry)
 *   pCoefRes  in: coefficient width per window, 3 or 4
 *   pCoef     in: order coefficients (-8..7) per filter of non-zero order
 *   maxSfb    in: transmitted bands
 *   profile   in: the ADTS profile code (object type minus 1); 0 (Main)
 *             allows long-window orders up to 20, any other value 12
 *   samplingFrequencyIndex in: 0..11;  winLen in: 128 or 1024
 * Statuses: kStsNullPtr; kStsAacWinLenErr; kStsAacSmpRateIdxErr;
 * kStsAacMaxSfbErr; then, per window and filter, kStsAacTnsNumFiltErr,
 * kStsAacTnsLenErr, kStsAacTnsOrderErr, kStsAacTnsCoefResErr,
 * kStsAacTnsCoefErr, kStsAacTnsDirectErr (windows and filters before the
 * failing one stay filtered). */
AKLAC_API Status aklsDecodeTNS_AAC_32s_I(Akl32s* pSrcDst, const Akl32s* pNumFilt, const Akl32s* pLength,
                                         const Akl32s* pOrder, const Akl32s* pCoefRes, const Akl8s* pCoef,
                                         const Akl32s* pDirection, Akl32s maxSfb, Akl32s profile,
                                         Akl32s samplingFrequencyIndex, Akl32s winLen);

/* Temporal noise shaping, encoder side: the all-zero (prediction-error)
 * filters that aklsDecodeTNS_AAC_32s_I inverts, with the same arguments and
 * the same checks.  Unlike the decoder it checks every window and filter
 * before it changes anything, so a failing call leaves pSrcDst untouched.
 *   pSrcDst   in/out: 1024 lines (long) or 8 x 128 deinterleaved (Q3)
 *   pNumFilt, pLength, pOrder, pCoefRes, pCoef, pDirection  in: as for aklsDecodeTNS_AAC_32s_I
 *   maxSfb, profile, samplingFrequencyIndex, winLen  in: as for aklsDecodeTNS_AAC_32s_I
 * Statuses: as aklsDecodeTNS_AAC_32s_I. */
AKLAC_API Status aklsEncodeTNS_AAC_32s_I(Akl32s* pSrcDst, const Akl32s* pNumFilt, const Akl32s* pLength,
                                         const Akl32s* pOrder, const Akl32s* pCoefRes, const Akl8s* pCoef,
                                         const Akl32s* pDirection, Akl32s maxSfb, Akl32s profile,
                                         Akl32s samplingFrequencyIndex, Akl32s winLen);

/* @aac-spectral-end */

/* --- AAC Main and LTP profiles: prediction and the AAC filter bank ------
 * Three tools that share the AAC filter bank's windows.  Frequency-domain
 * prediction (Main profile) keeps one predictor per spectral line in a State
 * context; the filter bank (a Spec context, read-only in use) runs the
 * inverse and forward transforms with the window sequences; long-term
 * prediction (LTP profile) builds a frame's estimate from the caller's
 * history of reconstructed output through the forward transform. */

/* Frequency-domain prediction state (tag 0x434D4170): one backward-adaptive
 * second-order lattice predictor for each spectral line below the prediction
 * limit of the sampling rate (bands 33, 33, 38, 40, 40, 40, 41, 41, 37, 37,
 * 37, 34 for indices 0..11; at most 672 lines).  One context per channel.
 *
 * Contract of aklsFDP_32f.  Each predictor holds r0, r1 (lattice registers),
 * COR0, COR1 (correlations) and VAR0, VAR1 (energies), all in a 16-bit float
 * format: the upper 16 bits of an IEEE single (sign, exponent, 7 mantissa
 * bits).  A reset sets r0 = r1 = COR0 = COR1 = 0 and VAR0 = VAR1 = 1.  For
 * a line with dequantized value x (single precision throughout, alpha =
 * 29/32, a = b = 61/64):
 *   k1 = COR0 * R(b / VAR0) if VAR0 > 1, else 0;  k2 likewise from COR1, VAR1
 *   est = R(k1 * r0 + k2 * r1);  y = x + est if the band is predicted, else x
 *   e1 = y - k1 * r0
 *   COR1 = T(alpha * COR1 + r1 * e1);  VAR1 = T(alpha * VAR1 + 0.5 * (r1 * r1 + e1 * e1))
 *   COR0 = T(alpha * COR0 + r0 * y);   VAR0 = T(alpha * VAR0 + 0.5 * (r0 * r0 + y * y))
 *   r1 = T(a * (r0 - k1 * y));  r0 = T(a * y)   (old r0, r1 on the right)
 * where T clears the 16 low bits of the single (toward zero) and R rounds to
 * the 16-bit format, halves away from zero (the word plus 0x8000, then the
 * low 16 bits cleared).  Every predictor below the limit advances in every
 * long-window frame, predicted or not.  A band is predicted when
 * predictorDataPresent is 1, the band lies below maxSfb and its
 * predictionUsed byte is non-zero.  A band below maxSfb coded as noise
 * (codebook 13) is not predicted and its predictors are reset.  Then, if
 * predictorDataPresent and predictorReset are 1, reset group g =
 * predictorResetGroupNum (1..30) resets predictors g-1, g-1+30, g-1+60, ...
 * An eight-short-window frame is passed through unchanged and resets every
 * predictor.  Lines from the limit up to 1024 are copied. */
typedef struct AklsFDPState_32f AklsFDPState_32f;

/* Bytes that aklsFDPInit_32f needs (alignment slack included).
 *   pSize  out: the size
 * Statuses: kStsNullPtr. */
AKLAC_API Status aklsFDPGetSize_32f(int* pSize);

/* Builds a prediction state with every predictor reset, in caller memory of at
 * least the GetSize size (any alignment; built at the next 16-byte boundary).
 *   samplingFrequencyIndex  in: 0..11 (fixes the band offsets and the limit)
 *   pState                  in/out: the memory
 * Statuses: kStsNullPtr; kStsAacSmpRateIdxErr. */
AKLAC_API Status aklsFDPInit_32f(Akl32s samplingFrequencyIndex, AklsFDPState_32f* pState);

/* Allocates (aklMalloc) and builds a prediction state; release it with aklsFDPFree_32f.
 *   samplingFrequencyIndex  in: 0..11
 *   ppState                 out: the raw pointer to pass to the other operations
 * Statuses: kStsNullPtr; kStsAacSmpRateIdxErr; kStsMemAllocErr (*ppState unwritten). */
AKLAC_API Status aklsFDPInitAlloc_32f(Akl32s samplingFrequencyIndex, AklsFDPState_32f** ppState);

/* Releases a state built by InitAlloc (caller memory is left alone); the tag is kept.
 *   pState  in: the state
 * Statuses: kStsNullPtr; kStsContextMismatch (wrong tag, nothing released). */
AKLAC_API Status aklsFDPFree_32f(AklsFDPState_32f* pState);

/* Resets every predictor (for instance after a damaged frame).
 *   pState  in/out: the state
 * Statuses: kStsNullPtr; kStsContextMismatch. */
AKLAC_API Status aklsFDPReset_32f(AklsFDPState_32f* pState);

/* Prediction of one frame of one channel, after M/S and before intensity
 * stereo and TNS, as the contract above states.
 *   pSrc      in: 1024 dequantized lines in the standard's scale (a Q3 value
 *             divided by 8); eight short windows in any order
 *   pDst      out: 1024 reconstructed lines (may equal pSrc)
 *   pIcsInfo  in: windowSequence, maxSfb and the prediction fields of the frame
 *   pSfbCb    in: codebook of each band below maxSfb (long windows)
 *   pState    in/out: the channel's predictors
 * Statuses, in check order (nothing written on failure): kStsNullPtr;
 * kStsAacWinSeqErr (windowSequence outside 0..3); kStsAacMaxSfbErr (long
 * window, maxSfb outside 0..51); kStsBadArgErr (a reset asked for with a
 * group outside 1..30); kStsContextMismatch; kStsAacMaxSfbErr (maxSfb above
 * the band count of the state's sampling rate); kStsOk. */
AKLAC_API Status aklsFDP_32f(const Akl32f* pSrc, Akl32f* pDst, const AklAACIcsInfo* pIcsInfo, const Akl8u* pSfbCb,
                             AklsFDPState_32f* pState);

/* The AAC filter bank on fixed-point data (tag 0x434D4171, read-only in use):
 * transforms of 2048 and 256 points, sine and Kaiser-Bessel-derived windows
 * (alpha 4 long, 6 short) for the four window sequences.
 *
 * Contract.  Spectra and time signals share one fixed-point format (the
 * decoders use Q3, the dequantizer's).  The inverse transform of a block is
 * y[n] = 2/N sum_k X[k] cos(2pi/N (n + 1/2 + N/4)(k + 1/2)), N = 2048 (or 256
 * for each of eight short blocks); the forward transform is X[k] = 2 sum_n
 * z[n] cos(same), so that windowed overlap-add of inverse transforms of
 * forward transforms restores the signal.  Window of a long block: the rising
 * half of windowShape of the previous frame (prevWindowShape), then the
 * falling half of windowShape; long-start: rising long half, 448 ones, the
 * falling short half, 448 zeros; long-stop: 448 zeros, the rising short half
 * (prevWindowShape), 448 ones, the falling long half.  Eight short: block j
 * covers samples 448 + 128 j .. 448 + 128 j + 255, the rising half of the
 * first block from prevWindowShape, all others from windowShape.  The
 * arithmetic is single-precision float; every result is rounded to nearest
 * (halves away from zero) and saturated to 32 bits.  The overlap buffer holds
 * the 1024 windowed samples that the next frame adds (zero at the start). */
typedef struct AklsMDCTSpec_AAC_32s AklsMDCTSpec_AAC_32s;

/* Bytes that aklsMDCTInit_AAC_32s needs (alignment slack included).
 *   pSize  out: the size
 * Statuses: kStsNullPtr. */
AKLAC_API Status aklsMDCTGetSize_AAC_32s(int* pSize);

/* Builds a filter-bank context in caller memory of at least the GetSize size
 * (any alignment; built at the next 16-byte boundary).
 *   pSpec  in/out: the memory
 * Statuses: kStsNullPtr. */
AKLAC_API Status aklsMDCTInit_AAC_32s(AklsMDCTSpec_AAC_32s* pSpec);

/* Allocates (aklMalloc) and builds a filter-bank context.
 *   ppSpec  out: the raw pointer to pass to the other operations
 * Statuses: kStsNullPtr; kStsMemAllocErr (*ppSpec unwritten). */
AKLAC_API Status aklsMDCTInitAlloc_AAC_32s(AklsMDCTSpec_AAC_32s** ppSpec);

/* Releases a context built by InitAlloc (caller memory is left alone); the tag is kept.
 *   pSpec  in: the context
 * Statuses: kStsNullPtr; kStsContextMismatch (wrong tag, nothing released). */
AKLAC_API Status aklsMDCTFree_AAC_32s(AklsMDCTSpec_AAC_32s* pSpec);

/* Inverse transform, windowing and overlap-add of one frame to 16-bit PCM.
 *   pSrc             in: 1024 coefficients (Q3), or 8 x 128 deinterleaved
 *   pDst             out: 1024 samples, the Q3 sum divided by 8, rounded and
 *                    saturated to -32768..32767
 *   pOverlap         in/out: 1024 samples (Q3) carried between frames
 *   windowSequence   in: 0 only-long, 1 long-start, 2 eight-short, 3 long-stop
 *   windowShape      in: 0 sine, 1 KBD
 *   prevWindowShape  in: the previous frame's shape
 *   pSpec            in: the filter-bank context
 * Statuses, in check order (nothing written on failure): kStsNullPtr;
 * kStsAacWinSeqErr (windowSequence outside 0..3); kStsBadArgErr (a shape
 * outside 0..1); kStsContextMismatch; kStsOk. */
AKLAC_API Status aklsMDCTInv_AAC_32s16s(const Akl32s* pSrc, Akl16s* pDst, Akl32s* pOverlap, Akl32s windowSequence,
                                        Akl32s windowShape, Akl32s prevWindowShape, const AklsMDCTSpec_AAC_32s* pSpec);

/* In-place inverse: as aklsMDCTInv_AAC_32s16s, but the 1024 output samples
 * replace the coefficients in the input's own format (Q3), not reduced to 16
 * bits (saturated to 32 bits): the form that feeds a long-term prediction
 * history.
 *   pSrcDst          in/out: 1024 coefficients in, 1024 samples out
 *   pOverlap         in/out: 1024 samples (Q3) carried between frames
 *   windowSequence   in: 0..3
 *   windowShape      in: 0 sine, 1 KBD
 *   prevWindowShape  in: the previous frame's shape
 *   pSpec            in: the filter-bank context
 * Statuses: as aklsMDCTInv_AAC_32s16s. */
AKLAC_API Status aklsMDCTInv_AAC_32s_I(Akl32s* pSrcDst, Akl32s* pOverlap, Akl32s windowSequence, Akl32s windowShape,
                                       Akl32s prevWindowShape, const AklsMDCTSpec_AAC_32s* pSpec);

/* Forward transform of one frame with the window of its sequence.
 *   pSrc             in: 2048 time samples (the frame's two halves)
 *   pDst             out: 1024 coefficients (long), or 8 x 128 (eight short),
 *                    in the input's format; may equal pSrc
 *   windowSequence   in: 0..3
 *   windowShape      in: 0 sine, 1 KBD
 *   prevWindowShape  in: the previous frame's shape
 *   pSpec            in: the filter-bank context
 * Statuses: as aklsMDCTInv_AAC_32s16s. */
AKLAC_API Status aklsMDCTFwd_AAC_32s(const Akl32s* pSrc, Akl32s* pDst, Akl32s windowSequence, Akl32s windowShape,
                                     Akl32s prevWindowShape, const AklsMDCTSpec_AAC_32s* pSpec);

/* In-place forward transform: the 1024 coefficients replace the first half of
 * the 2048 input samples.
 *   pSrcDst          in/out: 2048 samples in, 1024 coefficients out
 *   windowSequence   in: 0..3
 *   windowShape      in: 0 sine, 1 KBD
 *   prevWindowShape  in: the previous frame's shape
 *   pSpec            in: the filter-bank context
 * Statuses: as aklsMDCTInv_AAC_32s16s. */
AKLAC_API Status aklsMDCTFwd_AAC_32s_I(Akl32s* pSrcDst, Akl32s windowSequence, Akl32s windowShape,
                                       Akl32s prevWindowShape, const AklsMDCTSpec_AAC_32s* pSpec);

/* Long-term prediction.  The caller keeps, per channel, a history of 3072
 * samples in the spectrum's format (Q3): the reconstructed output of the
 * frame before last, of the last frame, and the last frame's overlap (the
 * windowed half that the next frame adds); aklsLtpUpdate_AAC_32s maintains
 * it and it starts as zeros.  For a long-window frame with LTP data the
 * decoder: predicts (aklsLongTermPredict_AAC_32s), filters the estimate with
 * the frame's TNS analysis filters (aklsEncodeTNS_AAC_32s_I) when the frame
 * has TNS, adds it to the dequantized spectrum before TNS
 * (aklsLongTermReconstruct_AAC_32s), and after the synthesis of every frame
 * updates the history.  Short-window frames are not predicted.
 *
 * Contract of aklsLongTermPredict_AAC_32s: with lag L = ltpLag (0..2047) and
 * gain c, the time estimate is e[i] = c * h[i + 2048 - L] for i below
 * min(2048, 1024 + L), and 0 above; the estimate is the forward transform of
 * e with the frame's window (as aklsMDCTFwd_AAC_32s, but on e in single
 * precision, rounded only at the end).  c is the standard's gain for the
 * eight Q14 codes of AklAACLtpData.ltpCoef (9352 stands for 0.570829, ...,
 * 22438 for 1.369533; the Q14 code alone would be off by up to 5e-5, a
 * 16-bit step on loud material), and ltpCoef / 16384 for any other value. */

/* Estimate of a frame's spectrum from the history.
 *   pSrcHistory      in: 3072 samples (Q3)
 *   pDstEstimate     out: 1024 coefficients (Q3)
 *   pLtpData         in: ltpLag and ltpCoef of the channel
 *   windowSequence   in: 0, 1 or 3 (long windows)
 *   windowShape      in: 0 sine, 1 KBD
 *   prevWindowShape  in: the previous frame's shape
 *   pSpec            in: the filter-bank context
 * Statuses, in check order (nothing written on failure): kStsNullPtr;
 * kStsAacWinSeqErr (outside 0..3, or 2: short windows are not predicted);
 * kStsBadArgErr (a shape outside 0..1; a lag outside 0..2047, which reaches
 * beyond the history); kStsContextMismatch; kStsOk. */
AKLAC_API Status aklsLongTermPredict_AAC_32s(const Akl32s* pSrcHistory, Akl32s* pDstEstimate,
                                             const AklAACLtpData* pLtpData, Akl32s windowSequence, Akl32s windowShape,
                                             Akl32s prevWindowShape, const AklsMDCTSpec_AAC_32s* pSpec);

/* Adds the estimate to the spectrum in the bands that use it: for each band b
 * below min(maxSfb, 40) with pLongUsed[b + 1] non-zero, over the band's lines
 * (long-window band offsets), with 32-bit saturation; nothing if pLongUsed[0]
 * is 0.
 *   pSrcEstimate     in: 1024 coefficients (Q3)
 *   pSrcDstSpec      in/out: 1024 dequantized lines (Q3)
 *   pLongUsed        in: 41 flags, as AklAACLtpData.longUsed
 *   maxSfb           in: transmitted bands, 0..51
 *   samplingFrequencyIndex  in: 0..11
 * Statuses, in check order: kStsNullPtr; kStsAacMaxSfbErr (above 51);
 * kStsAacSmpRateIdxErr; kStsAacMaxSfbErr (above the band count of the
 * index); kStsOk. */
AKLAC_API Status aklsLongTermReconstruct_AAC_32s(const Akl32s* pSrcEstimate, Akl32s* pSrcDstSpec,
                                                 const Akl32s* pLongUsed, Akl32s maxSfb,
                                                 Akl32s samplingFrequencyIndex);

/* History update after a frame: the history moves back by 1024 samples, the
 * frame's 1024 output samples and its 1024 overlap samples (all Q3, before
 * any reduction to 16 bits) take the last two thirds.
 *   pSrcDstHistory  in/out: 3072 samples
 *   pSrcFrame       in: 1024 samples of the frame
 *   pSrcOverlap     in: 1024 samples of the overlap the next frame adds
 * Statuses: kStsNullPtr; kStsOk. */
AKLAC_API Status aklsLtpUpdate_AAC_32s(Akl32s* pSrcDstHistory, const Akl32s* pSrcFrame, const Akl32s* pSrcOverlap);

/* ========================================================================
 * SBR
 * ====================================================================== */
/* Second-order SBR predictor coefficients by the covariance method, float,
 * real subband samples.  For each subband k with x_n = ppSrc[n][k],
 * n = 0..len+1 (two history slots in front of the len slots), forms the
 * single-precision covariance sums A = sum x_n x_{n+1} (n = 0..len-1),
 * B = sum x_n x_{n+1} (n = 1..len), C = sum x_n^2 (n = 1..len),
 * D = sum x_n^2 (n = 0..len-1), E = sum x_n x_{n+2} (n = 0..len-1), then
 * det = D*C - r*A*A with r = 1 - 2^-20 (the float with bits 0x3F7FFFF0);
 * alpha1 = (B*A - E*C)/det if det*det > 0, else 0; alpha0 = -(B + alpha1*A)/C
 * if C > 0, else 0; and both become 0 if alpha1^2 >= 16 or alpha0^2 >= 16.
 *   ppSrc    in   len + 2 row pointers (time slots), each row at least numBands floats
 *   pAlpha0  out  numBands coefficients alpha0[k]
 *   pAlpha1  out  numBands coefficients alpha1[k]
 *   numBands in   number of subbands; below 1: nothing to do
 *   len      in   number of time slots summed over; below 1: nothing to do
 * Statuses: kStsNullPtr if ppSrc, pAlpha0 or pAlpha1 is null; kStsOk (nothing
 * written) if len < 1 or numBands < 1; else kStsOk. */
AKLAC_API Status aklsPredictCoef_SBR_R_32f_D2L(const Akl32f* const* ppSrc, Akl32f* pAlpha0, Akl32f* pAlpha1,
                                               int numBands, int len);

/* The complex predictor on split rows: x_n = ppSrcRe[n][k] + i*ppSrcIm[n][k].
 * The sums A, B, E take x_{n+j}*conj(x_n) (A, B: j = 1; E: j = 2); C and D are
 * energies.  det = D*C - r*|A|^2 (real); alpha1 = (B*A - E*C) * (1/det) if
 * det*det > 0, else 0; alpha0 = -(B + alpha1*conj(A)) * (1/C) if C > 0, else
 * 0; all four outputs 0 if |alpha1|^2 >= 16 or |alpha0|^2 >= 16.  Sums in
 * single precision; divisions are multiplications by the reciprocal.
 *   ppSrcRe, ppSrcIm      in   len + 2 row pointers each, rows of at least numBands floats
 *   pAlpha0Re, pAlpha0Im  out  numBands real and imaginary parts of alpha0
 *   pAlpha1Re, pAlpha1Im  out  numBands real and imaginary parts of alpha1
 *   numBands, len         in   as in aklsPredictCoef_SBR_R_32f_D2L
 * Statuses: kStsNullPtr if any of the six pointers is null; kStsOk (nothing
 * written) if len < 1 or numBands < 1; else kStsOk. */
AKLAC_API Status aklsPredictCoef_SBR_C_32f_D2L(const Akl32f* const* ppSrcRe, const Akl32f* const* ppSrcIm,
                                               Akl32f* pAlpha0Re, Akl32f* pAlpha0Im, Akl32f* pAlpha1Re,
                                               Akl32f* pAlpha1Im, int numBands, int len);

/* The complex predictor on interleaved complex rows, x_n = ppSrc[n][k];
 * arithmetic as aklsPredictCoef_SBR_C_32f_D2L.
 *   ppSrc    in   len + 2 row pointers, rows of at least numBands complex values
 *   pAlpha0  out  numBands complex alpha0
 *   pAlpha1  out  numBands complex alpha1
 *   numBands, len  in  as in aklsPredictCoef_SBR_R_32f_D2L
 * Statuses: kStsNullPtr if ppSrc, pAlpha0 or pAlpha1 is null; kStsOk (nothing
 * written) if len < 1 or numBands < 1; else kStsOk. */
AKLAC_API Status aklsPredictCoef_SBR_C_32fc_D2L(const Akl32fc* const* ppSrc, Akl32fc* pAlpha0, Akl32fc* pAlpha1,
                                                int numBands, int len);

/* Fixed-point high-quality (complex) predictor for one subband.  Same
 * covariance sums, r = 1 - 2^-20 and |alpha| >= 4 rule as the float complex
 * member, in integer arithmetic: the sums are exact (128-bit), then scaled by
 * one common power of two to 31 bits (the coefficients do not depend on a
 * common scale of the sums), det is formed exactly as 2^20*(D*C - |A|^2) +
 * |A|^2, and the quotients are rounded to nearest.  alpha1 = 0 if det = 0;
 * alpha0 = 0 if C = 0; all four parts 0 if |alpha1|^2 >= 16 or |alpha0|^2 >= 16.
 *   ppSrc    in   len + 2 row pointers (time slots); entry k of each row is read;
 *                 any Q format (the result does not depend on the scale),
 *                 full 32-bit range, no overflow
 *   pAlpha0  out  alpha0 of subband k, real and imaginary part in Q29
 *   pAlpha1  out  alpha1 of subband k, Q29 (|alpha| < 4 always fits)
 *   k        in   subband index, 0 or more
 *   len      in   number of time slots summed over; below 1: nothing to do
 * Statuses: kStsNullPtr if ppSrc, pAlpha0 or pAlpha1 is null; kStsBadArgErr
 * if k < 0; kStsOk (nothing written) if len < 1; else kStsOk. */
AKLAC_API Status aklsPredictOneCoef_SBRHQ_32sc_D2L(const Akl32sc* const* ppSrc, Akl32sc* pAlpha0, Akl32sc* pAlpha1,
                                                   int k, int len);

/* Fixed-point low-power (real) predictor for one subband.  The real float
 * predictor's formulas, computed in the integer arithmetic of
 * aklsPredictOneCoef_SBRHQ_32sc_D2L.
 *   ppSrc    in   len + 2 row pointers; entry k of each row is read; any Q format
 *   pAlpha0  out  alpha0 of subband k in Q29
 *   pAlpha1  out  alpha1 of subband k in Q29
 *   k        in   subband index, 0 or more
 *   len      in   number of time slots; below 1: nothing to do
 * Statuses: kStsNullPtr if ppSrc, pAlpha0 or pAlpha1 is null; kStsBadArgErr
 * if k < 0; kStsOk (nothing written) if len < 1; else kStsOk. */
AKLAC_API Status aklsPredictOneCoef_SBRLP_32s_D2L(const Akl32s* const* ppSrc, Akl32s* pAlpha0, Akl32s* pAlpha1,
                                                  int k, int len);
/* SBR QMF banks, float.  Three banks, each a context that holds its constant
 * tables and the history of one channel (filter-bank life cycle: GetSize,
 * Init, InitAlloc, Free returning Status and keeping the tag):
 *  - analysis, 32 bands, real to complex (tag 0x434D4156): per time slot 32
 *    new samples enter the 320-sample history x (x(0) the newest);
 *    z(n) = x(n) c(2n), u(n) = sum_{j=0}^{4} z(n + 64j), n = 0..63;
 *    X(k) = 2 sum_{n=0}^{63} u(n) exp(i pi/64 (k + 1/2)(2n - 1/2)), k = 0..31.
 *  - synthesis, 64 bands, complex to real (tag 0x434D4159): per slot the
 *    1280-value FIFO v moves up by 128 and
 *    v(n) = 1/64 sum_{k=0}^{63} Re(X(k) exp(i pi/128 (k + 1/2)(2n - 255))), n = 0..127;
 *    out(j) = sum_{i=0}^{4} v(256i + j) c(128i + j) + v(256i + 192 + j) c(128i + 64 + j),
 *    j = 0..63: 64 output samples per slot.
 *  - down-sampled synthesis, 32 bands (tag 0x434D415C), for SBR output at
 *    the core rate: the 640-value FIFO moves up by 64,
 *    v(n) = 1/64 sum_{k=0}^{31} Re(X(k) exp(i pi/64 (k + 1/2)(2n - 127.5))), n = 0..63;
 *    out(j) = sum_{i=0}^{4} v(128i + j) c(2(64i + j)) + v(128i + 96 + j) c(2(64i + 32 + j)),
 *    j = 0..31: 32 output samples per slot.
 * c is the 640-coefficient SBR prototype window.  With these scales a signal
 * analysed and synthesised again by either synthesis bank returns at its own
 * amplitude, delayed: by 289 samples through the down-sampled bank, by 578
 * output samples through the full bank, which interpolates to twice the rate
 * when bands 32..63 are zero.  Against a direct double-precision evaluation
 * of the formulas the float results differ by less than 1e-5 of the input
 * peak (analysis) and 4e-6 absolute for subband samples of magnitude up to
 * 45, the scale of a full-scale signal (synthesis).  A new context starts from
 * zero history; Init on the same memory resets it.  A context is written by
 * every call (it is a State): one per channel and stream, never shared by two
 * threads at once.  No fixed-point members: a real-valued low-power bank
 * trades accuracy (uncancelled aliasing between bands) for speed on
 * processors without fast floating point, which this x86-64 variant does not
 * target; the complex float banks serve the high-quality decoding path. */
typedef struct AklsAnalysisState_SBR_32f AklsAnalysisState_SBR_32f;           /* tag 0x434D4156 */
typedef struct AklsSynthesisState_SBR_32f AklsSynthesisState_SBR_32f;         /* tag 0x434D4159 */
typedef struct AklsSynthesisDownState_SBR_32f AklsSynthesisDownState_SBR_32f; /* tag 0x434D415C */

/* Bytes that aklsAnalysisFilterInit_SBR_RToC_32f32fc needs (alignment slack
 * included).
 *   pSize  out  the size
 * Statuses: kStsNullPtr. */
AKLAC_API Status aklsAnalysisFilterGetSize_SBR_RToC_32f32fc(int* pSize);

/* Builds an analysis context with zero history in caller memory of at least
 * the GetSize size (any alignment; built at the next 16-byte boundary).
 *   pState  in/out  the memory
 * Statuses: kStsNullPtr. */
AKLAC_API Status aklsAnalysisFilterInit_SBR_RToC_32f32fc(AklsAnalysisState_SBR_32f* pState);

/* Allocates (aklMalloc) and builds an analysis context.
 *   ppState  out  the raw pointer to pass to the other operations
 * Statuses: kStsNullPtr; kStsMemAllocErr (*ppState unwritten). */
AKLAC_API Status aklsAnalysisFilterInitAlloc_SBR_RToC_32f32fc(AklsAnalysisState_SBR_32f** ppState);

/* Releases an analysis context built by InitAlloc (caller memory is left
 * alone); the tag is kept.
 *   pState  in  the context
 * Statuses: kStsNullPtr; kStsContextMismatch (wrong tag, nothing released). */
AKLAC_API Status aklsAnalysisFilterFree_SBR_RToC_32f32fc(AklsAnalysisState_SBR_32f* pState);

/* 32-band complex QMF analysis of numSlots time slots.
 *   pSrc      in      numSlots x 32 samples, oldest first (any scale)
 *   ppDst     out     numSlots row pointers; row t receives the 32 complex
 *                     subband samples of slot t; bands numBands..31 are
 *                     written as zero (computed but not wanted)
 *   numSlots  in      number of slots, at least 1
 *   numBands  in      number of bands kept, 0..32
 *   pState    in/out  the context (history carried between calls)
 * Statuses: kStsNullPtr (pSrc, ppDst, pState); kStsSizeErr (numSlots below
 * 1, numBands outside 0..32); kStsContextMismatch.  Row pointers are not
 * checked; nothing is written before the checks pass. */
AKLAC_API Status aklsAnalysisFilter_SBR_RToC_32f32fc_D2L(const Akl32f* pSrc, Akl32fc* const* ppDst, int numSlots,
                                                         int numBands, AklsAnalysisState_SBR_32f* pState);

/* Bytes that aklsSynthesisFilterInit_SBR_CToR_32fc32f needs.
 *   pSize  out  the size
 * Statuses: kStsNullPtr. */
AKLAC_API Status aklsSynthesisFilterGetSize_SBR_CToR_32fc32f(int* pSize);

/* Builds a 64-band synthesis context with zero history (any alignment;
 * built at the next 16-byte boundary).
 *   pState  in/out  the memory, at least the GetSize size
 * Statuses: kStsNullPtr. */
AKLAC_API Status aklsSynthesisFilterInit_SBR_CToR_32fc32f(AklsSynthesisState_SBR_32f* pState);

/* Allocates (aklMalloc) and builds a 64-band synthesis context.
 *   ppState  out  the raw pointer
 * Statuses: kStsNullPtr; kStsMemAllocErr (*ppState unwritten). */
AKLAC_API Status aklsSynthesisFilterInitAlloc_SBR_CToR_32fc32f(AklsSynthesisState_SBR_32f** ppState);

/* Releases a 64-band synthesis context built by InitAlloc; the tag is kept.
 *   pState  in  the context
 * Statuses: kStsNullPtr; kStsContextMismatch (wrong tag, nothing released). */
AKLAC_API Status aklsSynthesisFilterFree_SBR_CToR_32fc32f(AklsSynthesisState_SBR_32f* pState);

/* 64-band complex-to-real QMF synthesis of numSlots time slots.
 *   ppSrc     in      numSlots row pointers, each row 64 complex subband samples
 *   pDst      out     numSlots x 64 samples, oldest first
 *   numSlots  in      at least 1
 *   pState    in/out  the context
 * Statuses: kStsNullPtr (ppSrc, pDst, pState); kStsSizeErr (numSlots below
 * 1); kStsContextMismatch.  Row pointers are not checked. */
AKLAC_API Status aklsSynthesisFilter_SBR_CToR_32fc32f_D2L(const Akl32fc* const* ppSrc, Akl32f* pDst, int numSlots,
                                                          AklsSynthesisState_SBR_32f* pState);

/* Bytes that aklsSynthesisDownFilterInit_SBR_CToR_32fc32f needs.
 *   pSize  out  the size
 * Statuses: kStsNullPtr. */
AKLAC_API Status aklsSynthesisDownFilterGetSize_SBR_CToR_32fc32f(int* pSize);

/* Builds a 32-band down-sampled synthesis context with zero history (any
 * alignment; built at the next 16-byte boundary).
 *   pState  in/out  the memory, at least the GetSize size
 * Statuses: kStsNullPtr. */
AKLAC_API Status aklsSynthesisDownFilterInit_SBR_CToR_32fc32f(AklsSynthesisDownState_SBR_32f* pState);

/* Allocates (aklMalloc) and builds a down-sampled synthesis context.
 *   ppState  out  the raw pointer
 * Statuses: kStsNullPtr; kStsMemAllocErr (*ppState unwritten). */
AKLAC_API Status aklsSynthesisDownFilterInitAlloc_SBR_CToR_32fc32f(AklsSynthesisDownState_SBR_32f** ppState);

/* Releases a down-sampled synthesis context built by InitAlloc; the tag is kept.
 *   pState  in  the context
 * Statuses: kStsNullPtr; kStsContextMismatch (wrong tag, nothing released). */
AKLAC_API Status aklsSynthesisDownFilterFree_SBR_CToR_32fc32f(AklsSynthesisDownState_SBR_32f* pState);

/* 32-band complex-to-real down-sampled QMF synthesis of numSlots time slots.
 *   ppSrc     in      numSlots row pointers, each row 32 complex subband samples
 *   pDst      out     numSlots x 32 samples, oldest first
 *   numSlots  in      at least 1
 *   pState    in/out  the context
 * Statuses: kStsNullPtr (ppSrc, pDst, pState); kStsSizeErr (numSlots below
 * 1); kStsContextMismatch.  Row pointers are not checked. */
AKLAC_API Status aklsSynthesisDownFilter_SBR_CToR_32fc32f_D2L(const Akl32fc* const* ppSrc, Akl32f* pDst,
                                                              int numSlots, AklsSynthesisDownState_SBR_32f* pState);
/* Parametric-stereo hybrid filter bank, float.  The analysis splits the
 * lowest QMF bands of a (mono) SBR signal into narrower sub-bands for the
 * stereo parameters; the synthesis adds them back into their QMF bands.
 * `config` names the layout by its number of stereo parameter bands:
 *  - 20: QMF band 0 -> 8 complex sub-bands, pairs (2, 5) and (3, 4) added,
 *    giving 6; bands 1 and 2 -> 2 real-filter sub-bands each: 10 hybrid
 *    bands from QMF bands 0..2.
 *  - 34: band 0 -> 12, band 1 -> 8, bands 2, 3, 4 -> 4 complex sub-bands
 *    each: 32 hybrid bands from QMF bands 0..4.
 * Each sub-band filter is y_q(t) = sum_{n=0}^{12} G_q(n) x(t - n) on the QMF
 * band's complex samples x, from a symmetric 13-tap prototype g (the
 * standard's prototypes for Q = 8, 2 in the 20 layout and Q = 12, 8, 4 in
 * the 34 layout): G_q(n) = g(n) exp(i 2 pi (q + 1/2)(n - 6)/Q), q = 0..Q-1,
 * and for the real pair G_0(n) = g(n), G_1(n) = g(n) (-1)^(n - 6).
 * Hybrid band order k (used by both operations):
 *  - 20: k 0, 1 = band 0 sub-bands q 6, 7; k 2, 3 = q 0, 1; k 4 = q 2 + q 5;
 *    k 5 = q 3 + q 4; k 6 = band 1 G_1, k 7 = band 1 G_0; k 8 = band 2 G_0,
 *    k 9 = band 2 G_1.
 *  - 34: k 0..11 = band 0 q 0..11; k 12..19 = band 1 q 0..7; k 20..23,
 *    24..27, 28..31 = bands 2, 3, 4 q 0..3.
 * The filters of one band add up to a delay of exactly 6 slots, so the
 * synthesis (a plain sum) returns each QMF band 6 slots late, and an output
 * slot t of the analysis is centred on input slot t - 6: a decoder either
 * feeds the analysis 6 slots ahead of the bands it leaves unsplit, or
 * delays those bands by 6 slots.  Against a direct double-precision
 * evaluation of the filters the analysis differs by less than 1e-6 of the
 * input peak (13 float products per output, taps rounded once to float);
 * the synthesis is exact but for float rounding of at most 12 additions.
 * The analysis context (tag 0x434D416C, filter-bank life cycle: GetSize,
 * Init, InitAlloc, Free returning Status and keeping the tag) holds the
 * filters and the last 12 slots of QMF bands 0..4 of one channel, for both
 * layouts, so a stream may change layout between calls; a new context
 * starts from zero history, Init on the same memory resets it.  It is a
 * State: one per channel and stream, never shared by two threads at once.
 * The synthesis needs no context. */
typedef struct AklsAnalysisState_PS_32fc AklsAnalysisState_PS_32fc; /* tag 0x434D416C */

/* Bytes that aklsAnalysisFilterInit_PS_32fc needs (alignment slack included).
 *   pSize  out  the size
 * Statuses: kStsNullPtr. */
AKLAC_API Status aklsAnalysisFilterGetSize_PS_32fc(int* pSize);

/* Builds a hybrid analysis context with zero history in caller memory of at
 * least the GetSize size (any alignment; built at the next 16-byte boundary).
 *   pState  in/out  the memory
 * Statuses: kStsNullPtr. */
AKLAC_API Status aklsAnalysisFilterInit_PS_32fc(AklsAnalysisState_PS_32fc* pState);

/* Allocates (aklMalloc) and builds a hybrid analysis context.
 *   ppState  out  the raw pointer to pass to the other operations
 * Statuses: kStsNullPtr; kStsMemAllocErr (*ppState unwritten). */
AKLAC_API Status aklsAnalysisFilterInitAlloc_PS_32fc(AklsAnalysisState_PS_32fc** ppState);

/* Releases a hybrid analysis context built by InitAlloc (caller memory is
 * left alone); the tag is kept.
 *   pState  in  the context
 * Statuses: kStsNullPtr; kStsContextMismatch (wrong tag, nothing released). */
AKLAC_API Status aklsAnalysisFilterFree_PS_32fc(AklsAnalysisState_PS_32fc* pState);

/* Hybrid analysis of numSlots QMF time slots.
 *   pSrc      in      numSlots rows of srcStep complex QMF samples, oldest
 *                     first; bands 0..4 of each row are read (all five in
 *                     both layouts: the history serves both)
 *   srcStep   in      row step of pSrc in elements, at least 5
 *   pDst      out     numSlots rows of dstStep elements; row t receives the
 *                     10 (config 20) or 32 (config 34) hybrid samples of
 *                     slot t, centred on input slot t - 6; the rest of each
 *                     row is left alone
 *   dstStep   in      row step of pDst, at least 10 or 32
 *   numSlots  in      at least 1
 *   config    in      20 or 34
 *   pState    in/out  the context (history carried between calls)
 * Statuses, checked in this order: kStsNullPtr (pSrc, pDst, pState); kStsSizeErr
 * (numSlots below 1); kStsBadArgErr (config not 20 or 34); kStsSizeErr
 * (srcStep below 5, dstStep below the hybrid band count);
 * kStsContextMismatch.  Nothing is written before the checks pass. */
AKLAC_API Status aklsAnalysisFilter_PS_32fc_D2(const Akl32fc* pSrc, int srcStep, Akl32fc* pDst, int dstStep,
                                               int numSlots, int config, AklsAnalysisState_PS_32fc* pState);

/* Hybrid synthesis of numSlots slots: each QMF band 0..2 (config 20) or
 * 0..4 (config 34) is the sum of its hybrid bands in the order above.
 *   pSrc      in   numSlots rows of srcStep elements, hybrid bands 0..9 or 0..31
 *   srcStep   in   at least 10 or 32
 *   pDst      out  numSlots rows of dstStep elements; elements 0..2 or 0..4
 *                  of each row are written, the rest left alone
 *   dstStep   in   at least 3 or 5
 *   numSlots  in   at least 1
 *   config    in   20 or 34
 * Statuses, checked in this order: kStsNullPtr (pSrc, pDst); kStsSizeErr (numSlots
 * below 1); kStsBadArgErr (config); kStsSizeErr (srcStep, dstStep).
 * pSrc and pDst may be the same memory with the same step (each output
 * band lies at or before the first hybrid band it sums and is written after
 * its own bands are read). */
AKLAC_API Status aklsSynthesisFilter_PS_32fc_D2(const Akl32fc* pSrc, int srcStep, Akl32fc* pDst, int dstStep,
                                                int numSlots, int config);
/* @sbr-end */

/* ========================================================================
 * Transforms: general MDCT, block FIR
 * ====================================================================== */
/* Opaque transform contexts.  Each is built at the first 64-byte boundary of
 * the memory that holds it; callers pass the raw pointer to every operation. */
typedef struct MDCTFwdSpec_32f MDCTFwdSpec_32f; /* forward MDCT, float (tag 55) */
typedef struct MDCTInvSpec_32f MDCTInvSpec_32f; /* inverse MDCT, float (tag 56) */
typedef struct MDCTFwdSpec_16s MDCTFwdSpec_16s; /* forward MDCT, 16-bit (tag 57) */
typedef struct FIRBlockState_32f FIRBlockState_32f; /* block FIR history (tag 58) */

/* MDCT of length N: the forward transform reads N samples and writes N/2
 * coefficients y[k] = 2 * sum_n x[n] cos(2pi/N (n + 1/2 + N/4)(k + 1/2));
 * the inverse reads N/2 coefficients and writes N time-aliased samples
 * y[n] = 2/N * sum_k X[k] cos(2pi/N (n + 1/2 + N/4)(k + 1/2)).  No window,
 * no overlap.  Float lengths: 12, 36 and every power of two from 32 to 2^28
 * (larger powers of two are refused with kStsSizeErr: their sizes would
 * not fit an int). */

/* Sizes for a forward float MDCT context (same rule as the inverse).
 *   len              in: 12, 36 or a power of two >= 32
 *   pSpecSize        out: bytes for aklsMDCTFwdInit_32f's pMemSpec
 *   pSpecBufferSize  out: bytes for its pMemInit scratch (0 for 12 and 36, and for
 *                    powers of two up to 4096, whose Init still wants a non-null pMemInit)
 *   pBufferSize      out: bytes for the work buffer of one transform
 * Statuses: kStsNullPtr (any pointer null, checked before the length),
 * kStsSizeErr (len not accepted), kStsOk. */
AKLAC_API Status aklsMDCTFwdGetSize_32f(int len, int* pSpecSize, int* pSpecBufferSize, int* pBufferSize);

/* Sizes for an inverse float MDCT context; identical to aklsMDCTFwdGetSize_32f.
 *   len              in   12, 36 or a power of two from 32 to 2^28
 *   pSpecSize        out  bytes for aklsMDCTInvInit_32f's pMemSpec
 *   pSpecBufferSize  out  bytes for its pMemInit scratch (0 for 12 and 36)
 *   pBufferSize      out  bytes for the work buffer of one transform
 * Statuses: kStsNullPtr (checked before the length), kStsSizeErr, kStsOk. */
AKLAC_API Status aklsMDCTInvGetSize_32f(int len, int* pSpecSize, int* pSpecBufferSize, int* pBufferSize);

/* Sizes for a forward 16-bit MDCT context.
 *   len              in: a power of two >= 32 (12 and 36 are refused)
 *   pSpecSize        out: bytes for aklsMDCTFwdInit_16s's pMemSpec
 *   pSpecBufferSize  out: bytes for its pMemInit scratch
 *   pBufferSize      out: bytes for the work buffer of one transform
 * Statuses: kStsNullPtr, kStsSizeErr, kStsOk. */
AKLAC_API Status aklsMDCTFwdGetSize_16s(int len, int* pSpecSize, int* pSpecBufferSize, int* pBufferSize);

/* Builds a forward float MDCT context in caller memory.
 *   ppSpec    out: the context's address (inside pMemSpec)
 *   len       in: 12, 36 or a power of two >= 32
 *   pMemSpec  in: at least the GetSize spec size, any alignment
 *   pMemInit  in: scratch of the GetSize spec-buffer size; may be null for 12 and 36.
 *             Every power of two needs a non-null pointer, also when GetSize
 *             reports 0 bytes for it (N up to 4096): nothing is then touched there
 * Statuses: kStsSizeErr (the length is checked first), kStsNullPtr, kStsOk. */
AKLAC_API Status aklsMDCTFwdInit_32f(MDCTFwdSpec_32f** ppSpec, int len, Akl8u* pMemSpec, Akl8u* pMemInit);

/* Builds an inverse float MDCT context in caller memory; as aklsMDCTFwdInit_32f.
 *   ppSpec    out: the context's address (inside pMemSpec)
 *   len       in: 12, 36 or a power of two >= 32
 *   pMemSpec  in: at least the GetSize spec size, any alignment
 *   pMemInit  in: scratch of the GetSize spec-buffer size; may be null for 12 and 36.
 *             Every power of two needs a non-null pointer, also when GetSize
 *             reports 0 bytes for it (N up to 4096): nothing is then touched there
 * Statuses: kStsSizeErr (the length is checked first), kStsNullPtr, kStsOk. */
AKLAC_API Status aklsMDCTInvInit_32f(MDCTInvSpec_32f** ppSpec, int len, Akl8u* pMemSpec, Akl8u* pMemInit);

/* Builds a forward 16-bit MDCT context in caller memory.
 *   ppSpec    out: the context's address (inside pMemSpec)
 *   len       in: a power of two >= 32
 *   pMemSpec  in: at least the GetSize spec size, any alignment
 *   pMemInit  in: scratch of the GetSize spec-buffer size, required
 * Statuses: kStsNullPtr (pointers are checked first), kStsSizeErr, kStsOk. */
AKLAC_API Status aklsMDCTFwdInit_16s(MDCTFwdSpec_16s** ppSpec, int len, Akl8u* pMemSpec, Akl8u* pMemInit);

/* Allocates and builds a forward float MDCT context; release it with aklsMDCTFwdFree_32f.
 *   ppSpec  out: the new context
 *   len     in: 12, 36 or a power of two >= 32
 * Statuses: kStsNullPtr, kStsSizeErr, kStsMemAllocErr, kStsOk. */
AKLAC_API Status aklsMDCTFwdInitAlloc_32f(MDCTFwdSpec_32f** ppSpec, int len);

/* Allocates and builds an inverse float MDCT context; release it with aklsMDCTInvFree_32f.
 *   ppSpec  out: the new context
 *   len     in: 12, 36 or a power of two >= 32
 * Statuses: kStsNullPtr, kStsSizeErr, kStsMemAllocErr, kStsOk. */
AKLAC_API Status aklsMDCTInvInitAlloc_32f(MDCTInvSpec_32f** ppSpec, int len);

/* Allocates and builds a forward 16-bit MDCT context; release it with aklsMDCTFwdFree_16s.
 *   ppSpec  out: the new context
 *   len     in: a power of two >= 32
 * Statuses: kStsNullPtr, kStsSizeErr, kStsMemAllocErr, kStsOk. */
AKLAC_API Status aklsMDCTFwdInitAlloc_16s(MDCTFwdSpec_16s** ppSpec, int len);

/* Invalidates a forward float MDCT context (tag set to 0) and releases what
 * InitAlloc allocated; memory given to Init stays the caller's.
 *   pSpec   in/out: the context (raw pointer as returned by Init or InitAlloc)
 * Statuses: kStsNullPtr, kStsContextMismatch (nothing released), kStsOk. */
AKLAC_API Status aklsMDCTFwdFree_32f(MDCTFwdSpec_32f* pSpec);

/* Invalidates and releases an inverse float MDCT context; as aklsMDCTFwdFree_32f.
 *   pSpec   in/out: the context
 * Statuses: kStsNullPtr, kStsContextMismatch (nothing released), kStsOk. */
AKLAC_API Status aklsMDCTInvFree_32f(MDCTInvSpec_32f* pSpec);

/* Invalidates and releases a forward 16-bit MDCT context; as aklsMDCTFwdFree_32f.
 *   pSpec   in/out: the context
 * Statuses: kStsNullPtr, kStsContextMismatch (nothing released), kStsOk. */
AKLAC_API Status aklsMDCTFwdFree_16s(MDCTFwdSpec_16s* pSpec);

/* Work-buffer size in bytes that a transform with this context allocates when
 * given no buffer.
 *   pSpec   in: the context
 *   pSize   out: the size in bytes
 * Statuses: kStsNullPtr, kStsContextMismatch, kStsOk. */
AKLAC_API Status aklsMDCTFwdGetBufSize_32f(const MDCTFwdSpec_32f* pSpec, int* pSize);

/* Work-buffer size of an inverse float MDCT context; as aklsMDCTFwdGetBufSize_32f.
 *   pSpec   in: the context
 *   pSize   out: the size in bytes
 * Statuses: kStsNullPtr, kStsContextMismatch, kStsOk. */
AKLAC_API Status aklsMDCTInvGetBufSize_32f(const MDCTInvSpec_32f* pSpec, int* pSize);

/* Work-buffer size of a forward 16-bit MDCT context; as aklsMDCTFwdGetBufSize_32f.
 *   pSpec   in: the context
 *   pSize   out: the size in bytes
 * Statuses: kStsNullPtr, kStsContextMismatch, kStsOk. */
AKLAC_API Status aklsMDCTFwdGetBufSize_16s(const MDCTFwdSpec_16s* pSpec, int* pSize);

/* Forward float MDCT.
 *   pSrc     in: N samples
 *   pDst     out: N/2 coefficients (may equal pSrc)
 *   pSpec    in: forward float context
 *   pBuffer  in/out: work buffer of the GetSize buffer size, used from its
 *            first 64-byte boundary; null makes the call allocate and release one
 * Statuses: kStsNullPtr (pSpec), kStsContextMismatch, kStsNullPtr (pSrc, pDst),
 * kStsMemAllocErr, kStsOk. */
AKLAC_API Status aklsMDCTFwd_32f(const Akl32f* pSrc, Akl32f* pDst, const MDCTFwdSpec_32f* pSpec, Akl8u* pBuffer);

/* Inverse float MDCT.
 *   pSrc     in: N/2 coefficients
 *   pDst     out: N time-aliased samples (may equal pSrc when it holds N floats)
 *   pSpec    in: inverse float context
 *   pBuffer  in/out: work buffer as aklsMDCTFwd_32f, or null
 * Statuses: kStsNullPtr (pSpec), kStsContextMismatch, kStsNullPtr (pSrc, pDst),
 * kStsMemAllocErr, kStsOk. */
AKLAC_API Status aklsMDCTInv_32f(const Akl32f* pSrc, Akl32f* pDst, const MDCTInvSpec_32f* pSpec, Akl8u* pBuffer);

/* In-place forward float MDCT.
 *   pSrcDst  in/out: N samples in; the N/2 coefficients replace its first half
 *   pSpec    in: forward float context
 *   pBuffer  in/out: work buffer as aklsMDCTFwd_32f, or null
 * Statuses: kStsNullPtr (pSpec), kStsContextMismatch, kStsNullPtr (pSrcDst),
 * kStsMemAllocErr, kStsOk. */
AKLAC_API Status aklsMDCTFwd_32f_I(Akl32f* pSrcDst, const MDCTFwdSpec_32f* pSpec, Akl8u* pBuffer);

/* In-place inverse float MDCT.
 *   pSrcDst  in/out: N floats; N/2 coefficients in, N samples out
 *   pSpec    in: inverse float context
 *   pBuffer  in/out: work buffer as aklsMDCTFwd_32f, or null
 * Statuses: kStsNullPtr (pSpec), kStsContextMismatch, kStsNullPtr (pSrcDst),
 * kStsMemAllocErr, kStsOk. */
AKLAC_API Status aklsMDCTInv_32f_I(Akl32f* pSrcDst, const MDCTInvSpec_32f* pSpec, Akl8u* pBuffer);

/* Forward 16-bit MDCT with block normalisation.
 *   pSrc         in: N samples
 *   pDst         out: N/2 coefficients, about 2 * X[k] * 2^-scaleFactor, rounded
 *                half to even and saturated to int16
 *   pSpec        in: forward 16-bit context
 *   scaleFactor  in: output scale exponent, any int: the output shift it gives
 *                is formed without overflow and taken in -15..31, so values far
 *                beyond the useful range saturate or give 0 alike
 *   pBuffer      in/out: work buffer as aklsMDCTFwd_32f, or null
 * Statuses: kStsNullPtr (pSpec), kStsContextMismatch, kStsNullPtr (pSrc, pDst),
 * kStsMemAllocErr, kStsOk. */
AKLAC_API Status aklsMDCTFwd_16s_Sfs(const Akl16s* pSrc, Akl16s* pDst, const MDCTFwdSpec_16s* pSpec, int scaleFactor,
                                     Akl8u* pBuffer);

/* Creates a block FIR filter: pDst = sum_m pTaps[m] * (block passed m calls
 * ago), element by element, blocks before the first call being zeros.
 *   ppState  out: the new state
 *   order    in: number of taps, 1..32767 (only the low 16 bits are kept)
 *   len      in: block length in floats, 1..32767 (low 16 bits kept)
 * Any positive int is accepted; one whose low 16 bits are not 1..32767 (up to
 * 32764 for len) makes a state that aklsFIRBlockOne_32f refuses.
 * Statuses: kStsNullPtr, kStsFIRLenErr (order or len <= 0), kStsMemAllocErr, kStsOk. */
AKLAC_API Status aklsFIRBlockInitAlloc_32f(FIRBlockState_32f** ppState, int order, int len);

/* Filters one block.
 *   pSrc    in: len floats, the newest block
 *   pDst    out: len floats
 *   pState  in/out: the filter state
 *   pTaps   in: order weights, pTaps[0] for the newest block
 * Statuses: kStsNullPtr, kStsContextMismatch (wrong tag, or a pointer off the
 * state's alignment, as one passed on at an offset), kStsFIRLenErr (stored length or
 * order not positive, position out of range, or a length of 32765..32767
 * whose stride does not fit), then kStsMisalignedWarn (+2) if pSrc, pDst or pTaps is not 16-byte
 * aligned (the output is complete), else kStsOk. */
AKLAC_API Status aklsFIRBlockOne_32f(const Akl32f* pSrc, Akl32f* pDst, FIRBlockState_32f* pState, const Akl32f* pTaps);

/* Releases a block FIR state made by aklsFIRBlockInitAlloc_32f.
 *   pState  in/out: the state
 * Statuses: kStsNullPtr, kStsContextMismatch (nothing released), kStsOk. */
AKLAC_API Status aklsFIRBlockFree_32f(FIRBlockState_32f* pState);

/* @transform-end */

/* ========================================================================
 * Vector utilities
 * ====================================================================== */
/* Interleaves channel rows: pDst[i*chCount + c] = ppSrc[c][i].
 *   ppSrc    in   chCount row pointers of len samples each
 *   chCount  in   number of channels, 1 or more
 *   len      in   samples per channel, 1 or more
 *   pDst     out  len*chCount samples
 * Statuses, in check order: kStsNullPtr if pDst or ppSrc is null;
 * kStsNumChannelsErr if chCount < 1; kStsSizeErr if len < 1; kStsNullPtr if
 * a row pointer is null; kStsMisalignedWarn if pDst or a row pointer is not a
 * multiple of 16 bytes (the work is done in full); else kStsOk. */
AKLAC_API Status aklsInterleave_16s(const Akl16s** ppSrc, int chCount, int len, Akl16s* pDst);

/* Interleaves float channel rows; as aklsInterleave_16s.
 *   ppSrc    in   chCount row pointers of len floats each
 *   chCount  in   number of channels, 1 or more
 *   len      in   samples per channel, 1 or more
 *   pDst     out  len*chCount floats
 * Statuses: as aklsInterleave_16s. */
AKLAC_API Status aklsInterleave_32f(const Akl32f** ppSrc, int chCount, int len, Akl32f* pDst);

/* Splits interleaved frames into channel rows: ppDst[c][i] = pSrc[i*chCount + c].
 *   pSrc     in   len*chCount samples
 *   chCount  in   number of channels, 1 or more
 *   len      in   samples per channel, 1 or more
 *   ppDst    in   chCount row pointers; out: len samples in each row
 * Statuses, in check order: kStsNullPtr if pSrc or ppDst is null;
 * kStsNumChannelsErr if chCount < 1; kStsSizeErr if len < 1; kStsNullPtr if
 * a row pointer is null; kStsMisalignedWarn if pSrc or a row pointer is not a
 * multiple of 16 bytes (the work is done in full); else kStsOk. */
AKLAC_API Status aklsDeinterleave_16s(const Akl16s* pSrc, int chCount, int len, Akl16s** ppDst);

/* Splits interleaved float frames into channel rows; as aklsDeinterleave_16s.
 *   pSrc     in   len*chCount floats
 *   chCount  in   number of channels, 1 or more
 *   len      in   samples per channel, 1 or more
 *   ppDst    in   chCount row pointers; out: len floats in each row
 * Statuses: as aklsDeinterleave_16s. */
AKLAC_API Status aklsDeinterleave_32f(const Akl32f* pSrc, int chCount, int len, Akl32f** ppDst);

/* Interleaves float channel rows into 16-bit PCM: pDst[i*chCount + c] =
 * ppSrc[c][i] rounded to nearest, ties to even; above 32767.0 gives 32767,
 * below -32768.0 gives -32768; NaN gives -32768.  The rounding does not
 * depend on the processor's rounding mode.
 *   ppSrc    in   chCount row pointers of len floats each
 *   chCount  in   number of channels, 1 or more
 *   len      in   samples per channel, 1 or more
 *   pDst     out  len*chCount samples
 * Statuses, in check order: kStsNullPtr if pDst is null; kStsSizeErr if len
 * or chCount is below 1; kStsNullPtr if ppSrc or a row pointer is null;
 * else kStsOk. */
AKLAC_API Status aklsJoin_32f16s_D2L(const Akl32f** ppSrc, int chCount, int len, Akl16s* pDst);

/* Mantissa/exponent pairs to floats: pDst[i] = pSrcMant[i] * 2^-(15 + pSrcExp[i]).
 * The factor is the float whose bits are 0x38000000 - (pSrcExp[i] << 23)
 * with the sign bit cleared (32-bit wrap-around arithmetic); the exponent is
 * not range-checked: exponents outside -142..111 give whatever float those
 * bits make (zero, infinity, NaN or a wrapped power of two).
 *   pSrcMant  in   len mantissas
 *   pSrcExp   in   len exponents
 *   len       in   number of values, 1 or more
 *   pDst      out  len floats
 * Statuses: kStsNullPtr if any pointer is null; kStsSizeErr if len < 1; else kStsOk. */
AKLAC_API Status aklsMakeFloat_16s32f(const Akl16s* pSrcMant, const Akl16s* pSrcExp, int len, Akl32f* pDst);
/* @vector-end */

#ifdef __cplusplus
}
#endif

#endif /* AKLAC_H */
