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
 *   ppSrc    in   len + 2 row pointers (time slots); entry k of each row is read.
 *                 Samples in any Q format (the result does not depend on the
 *                 scale), full 32-bit range, no overflow.
 *   pAlpha0  out  alpha0 of subband k, real and imaginary part in Q29
 *   pAlpha1  out  alpha1 of subband k, Q29 (|alpha| < 4 always fits)
 *   k        in   subband index, 0 or more
 *   len      in   number of time slots summed over; below 1: nothing to do
 * Statuses: kStsNullPtr if ppSrc, pAlpha0 or pAlpha1 is null; kStsBadArgErr
 * if k < 0; kStsOk (nothing written) if len < 1; else kStsOk. */
AKLAC_API Status aklsPredictOneCoef_SBRHQ_32sc_D2L(const Akl32sc* const* ppSrc, Akl32sc* pAlpha0, Akl32sc* pAlpha1,
                                                   int k, int len);

/* Fixed-point low-power (real) predictor for one subband: the real member's
 * formulas in the integer arithmetic of aklsPredictOneCoef_SBRHQ_32sc_D2L.
 *   ppSrc    in   len + 2 row pointers; entry k of each row is read; any Q format
 *   pAlpha0  out  alpha0 of subband k in Q29
 *   pAlpha1  out  alpha1 of subband k in Q29
 *   k        in   subband index, 0 or more
 *   len      in   number of time slots; below 1: nothing to do
 * Statuses: kStsNullPtr if ppSrc, pAlpha0 or pAlpha1 is null; kStsBadArgErr
 * if k < 0; kStsOk (nothing written) if len < 1; else kStsOk. */
AKLAC_API Status aklsPredictOneCoef_SBRLP_32s_D2L(const Akl32s* const* ppSrc, Akl32s* pAlpha0, Akl32s* pAlpha1,
                                                  int k, int len);
/* @sbr-end */

/* ========================================================================
 * Transforms: general MDCT, block FIR
 * ====================================================================== */
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

/* As aklsInterleave_16s on floats. */
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

/* As aklsDeinterleave_16s on floats. */
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
