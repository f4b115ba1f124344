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
typedef unsigned char Akl8u;
typedef signed char Akl8s;
typedef short Akl16s;
typedef int Akl32s;
typedef unsigned int Akl32u;
typedef unsigned long long Akl64u;
typedef float Akl32f;
typedef struct { Akl16s re; Akl16s im; } Akl16sc;
typedef struct { Akl32s re; Akl32s im; } Akl32sc;
typedef struct { Akl32f re; Akl32f im; } Akl32fc;

/* ------------------------------------------------------------------------
 * Status values
 * ---------------------------------------------------------------------- */
typedef Akl32s Status;

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
  /* @status-end */
};

/* ------------------------------------------------------------------------
 * Version record
 * ---------------------------------------------------------------------- */
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

/* Returns the library's constant version record; the same pointer on every call. */
AKLAC_API const AklLibraryVersion* aklacGetLibVersion(void);

/* ========================================================================
 * Variable-length codes
 * ====================================================================== */
/* @vlc-end */

/* ========================================================================
 * MPEG-1/2 Layer III
 * ====================================================================== */
/* @mp3-bitstream-end */
/* @mp3-signal-end */

/* ========================================================================
 * AAC
 * ====================================================================== */
/* @aac-bitstream-end */
/* @aac-spectral-end */

/* ========================================================================
 * SBR
 * ====================================================================== */
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
 *   pSpecBufferSize  out: bytes for its pMemInit scratch (0 for 12 and 36)
 *   pBufferSize      out: bytes for the work buffer of one transform
 * Statuses: kStsNullPtr (any pointer null, checked before the length),
 * kStsSizeErr (len not accepted), kStsOk. */
AKLAC_API Status aklsMDCTFwdGetSize_32f(int len, int* pSpecSize, int* pSpecBufferSize, int* pBufferSize);

/* Sizes for an inverse float MDCT context; identical to aklsMDCTFwdGetSize_32f. */
AKLAC_API Status aklsMDCTInvGetSize_32f(int len, int* pSpecSize, int* pSpecBufferSize, int* pBufferSize);

/* Sizes for a forward 16-bit MDCT context.
 *   len              in: a power of two >= 32 (12 and 36 are refused)
 *   pSpecSize, pSpecBufferSize, pBufferSize: out, as aklsMDCTFwdGetSize_32f
 * Statuses: kStsNullPtr, kStsSizeErr, kStsOk. */
AKLAC_API Status aklsMDCTFwdGetSize_16s(int len, int* pSpecSize, int* pSpecBufferSize, int* pBufferSize);

/* Builds a forward float MDCT context in caller memory.
 *   ppSpec    out: the context's address (inside pMemSpec)
 *   len       in: 12, 36 or a power of two >= 32
 *   pMemSpec  in: at least the GetSize spec size, any alignment
 *   pMemInit  in: scratch of the GetSize spec-buffer size; may be null for 12 and 36
 * Statuses: kStsSizeErr (the length is checked first), kStsNullPtr, kStsOk. */
AKLAC_API Status aklsMDCTFwdInit_32f(MDCTFwdSpec_32f** ppSpec, int len, Akl8u* pMemSpec, Akl8u* pMemInit);

/* Builds an inverse float MDCT context in caller memory; as aklsMDCTFwdInit_32f. */
AKLAC_API Status aklsMDCTInvInit_32f(MDCTInvSpec_32f** ppSpec, int len, Akl8u* pMemSpec, Akl8u* pMemInit);

/* Builds a forward 16-bit MDCT context in caller memory.
 *   ppSpec, pMemSpec, pMemInit: as aklsMDCTFwdInit_32f, all required
 *   len       in: a power of two >= 32
 * Statuses: kStsNullPtr (pointers are checked first), kStsSizeErr, kStsOk. */
AKLAC_API Status aklsMDCTFwdInit_16s(MDCTFwdSpec_16s** ppSpec, int len, Akl8u* pMemSpec, Akl8u* pMemInit);

/* Allocates and builds a forward float MDCT context; release it with aklsMDCTFwdFree_32f.
 *   ppSpec  out: the new context
 *   len     in: 12, 36 or a power of two >= 32
 * Statuses: kStsNullPtr, kStsSizeErr, kStsMemAllocErr, kStsOk. */
AKLAC_API Status aklsMDCTFwdInitAlloc_32f(MDCTFwdSpec_32f** ppSpec, int len);

/* Allocates and builds an inverse float MDCT context; as aklsMDCTFwdInitAlloc_32f. */
AKLAC_API Status aklsMDCTInvInitAlloc_32f(MDCTInvSpec_32f** ppSpec, int len);

/* Allocates and builds a forward 16-bit MDCT context (len a power of two >= 32). */
AKLAC_API Status aklsMDCTFwdInitAlloc_16s(MDCTFwdSpec_16s** ppSpec, int len);

/* Invalidates a forward float MDCT context (tag set to 0) and releases what
 * InitAlloc allocated; memory given to Init stays the caller's.
 * Statuses: kStsNullPtr, kStsContextMismatch, kStsOk. */
AKLAC_API Status aklsMDCTFwdFree_32f(MDCTFwdSpec_32f* pSpec);

/* Invalidates and releases an inverse float MDCT context; as aklsMDCTFwdFree_32f. */
AKLAC_API Status aklsMDCTInvFree_32f(MDCTInvSpec_32f* pSpec);

/* Invalidates and releases a forward 16-bit MDCT context; as aklsMDCTFwdFree_32f. */
AKLAC_API Status aklsMDCTFwdFree_16s(MDCTFwdSpec_16s* pSpec);

/* Work-buffer size in bytes that a transform with this context allocates when
 * given no buffer.
 *   pSpec in: the context; pSize out: the size
 * Statuses: kStsNullPtr, kStsContextMismatch, kStsOk. */
AKLAC_API Status aklsMDCTFwdGetBufSize_32f(const MDCTFwdSpec_32f* pSpec, int* pSize);

/* Work-buffer size of an inverse float MDCT context; as aklsMDCTFwdGetBufSize_32f. */
AKLAC_API Status aklsMDCTInvGetBufSize_32f(const MDCTInvSpec_32f* pSpec, int* pSize);

/* Work-buffer size of a forward 16-bit MDCT context; as aklsMDCTFwdGetBufSize_32f. */
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

/* Inverse float MDCT: N/2 coefficients in pSrc, N samples out in pDst (may
 * equal pSrc when it holds N floats); arguments and statuses as aklsMDCTFwd_32f. */
AKLAC_API Status aklsMDCTInv_32f(const Akl32f* pSrc, Akl32f* pDst, const MDCTInvSpec_32f* pSpec, Akl8u* pBuffer);

/* In-place forward float MDCT: the N/2 coefficients replace the first half of pSrcDst. */
AKLAC_API Status aklsMDCTFwd_32f_I(Akl32f* pSrcDst, const MDCTFwdSpec_32f* pSpec, Akl8u* pBuffer);

/* In-place inverse float MDCT: N/2 coefficients in, N samples out (pSrcDst holds N floats). */
AKLAC_API Status aklsMDCTInv_32f_I(Akl32f* pSrcDst, const MDCTInvSpec_32f* pSpec, Akl8u* pBuffer);

/* Forward 16-bit MDCT with block normalisation.
 *   pSrc         in: N samples
 *   pDst         out: N/2 coefficients, about 2 * X[k] * 2^-scaleFactor, rounded
 *                half to even and saturated to int16
 *   pSpec        in: forward 16-bit context
 *   scaleFactor  in: output scale exponent
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
 * Statuses: kStsNullPtr, kStsFIRLenErr (order or len <= 0), kStsMemAllocErr, kStsOk. */
AKLAC_API Status aklsFIRBlockInitAlloc_32f(FIRBlockState_32f** ppState, int order, int len);

/* Filters one block.
 *   pSrc    in: len floats, the newest block
 *   pDst    out: len floats
 *   pState  in/out: the filter state
 *   pTaps   in: order weights, pTaps[0] for the newest block
 * Statuses: kStsNullPtr, kStsContextMismatch, kStsFIRLenErr (stored length or
 * order not positive, position out of range, or a length of 32765..32767
 * whose stride does not fit), then kStsMisalignedWarn (+2) if pSrc, pDst or pTaps is not 16-byte
 * aligned (the output is complete), else kStsOk. */
AKLAC_API Status aklsFIRBlockOne_32f(const Akl32f* pSrc, Akl32f* pDst, FIRBlockState_32f* pState, const Akl32f* pTaps);

/* Releases a block FIR state.  Statuses: kStsNullPtr, kStsContextMismatch, kStsOk. */
AKLAC_API Status aklsFIRBlockFree_32f(FIRBlockState_32f* pState);

/* @transform-end */

/* ========================================================================
 * Vector utilities
 * ====================================================================== */
/* @vector-end */

#ifdef __cplusplus
}
#endif

#endif /* AKLAC_H */
