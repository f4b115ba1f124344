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
/* Frame header: the raw bit fields of the four-byte Layer III header and the
 * optional CRC word, one signed 32-bit field each. */
typedef struct {
  Akl32s id;                /* 1 = MPEG-1, 0 = MPEG-2 low sampling frequencies */
  Akl32s layer;             /* layer code: 1 = Layer III, 2 = Layer II, 3 = Layer I */
  Akl32s protectionBit;     /* 0 = a 16-bit CRC word follows the header */
  Akl32s bitrateIndex;      /* 0 = free format, 15 = forbidden */
  Akl32s samplingFreqIndex; /* MPEG-1: 0 44.1 kHz, 1 48 kHz, 2 32 kHz; MPEG-2: the halves */
  Akl32s paddingBit;        /* 1 = one extra slot */
  Akl32s privateBit;
  Akl32s mode;              /* 0 stereo, 1 joint stereo, 2 dual channel, 3 single channel */
  Akl32s modeExtension;     /* joint stereo: bit 1 mid/side on, bit 0 intensity on */
  Akl32s copyFlag;          /* copyright bit */
  Akl32s originalHome;      /* original/copy bit */
  Akl32s emphasis;
  Akl32s crcWord;           /* CRC as read, first byte in bits 15..8; only when protectionBit is 0 */
} AklMP3FrameHeader;

/* Side information of one channel in one granule.  A frame's records lie
 * granule-major in one array: index = granule * channels + channel. */
typedef struct {
  Akl32s part23Length;        /* bits of scale factors plus Huffman data */
  Akl32s bigValues;           /* value pairs in the big-values region */
  Akl32s globalGain;
  Akl32s scalefacCompress;    /* 4 bits (MPEG-1) or 9 bits (MPEG-2) */
  Akl32s windowSwitchingFlag;
  Akl32s blockType;           /* 0 normal, 1 start, 2 short, 3 stop; 0 without window switching */
  Akl32s mixedBlockFlag;      /* 0 without window switching */
  Akl32s tableSelect[3];      /* Huffman table of regions 0, 1, 2 */
  Akl32s subblockGain[3];     /* short windows 0, 1, 2 (window-switched granules only) */
  Akl32s region0Count;        /* scale-factor bands in region 0, minus one */
  Akl32s region1Count;        /* scale-factor bands in region 1, minus one */
  Akl32s preflag;             /* read for MPEG-1; derived by the scale-factor unpacker for MPEG-2 */
  Akl32s scalefacScale;
  Akl32s count1TableSelect;   /* 0 = quadruple table A, 1 = table B */
} AklMP3SideInfo;

/* Encoder bit reservoir: bits now held and the largest number it may hold. */
typedef struct {
  Akl32s bitsHeld;
  Akl32s maxBits;
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
 * otherwise. */
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
 *   pSfbTableLong   in: 6 rows of 23 long band boundaries.
 *   pSfbTableShort  in: 6 rows of 14 short band boundaries (lines of one window).
 *   pMbpTable       in: 6 rows of 2: long bands of a mixed block (0..22; clamped), short-band
 *                   widths to add (region 0 then ends at most at short band 13).
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
 * kStsBadArgErr (a bound above 576); then, while converting (spectrum left
 * partly converted): kStsMP3SideInfoErr (globalGain above 255,
 * scalefacScale or preflag above 1), kStsErr (subblockGain above 7 in a
 * short block, or a quantized magnitude above 8206). */
AKLAC_API Status aklsReQuantizeSfb_MP3_32s_I(Akl32s* pSrcDstIsXr, int* pNonZeroBound, const Akl8s* pScaleFactor,
                                             const AklMP3SideInfo* pSideInfo, const AklMP3FrameHeader* pFrameHeader,
                                             Akl32s* pBuffer, const Akl16s* pSfbTableLong,
                                             const Akl16s* pSfbTableShort);

/* aklsReQuantizeSfb_MP3_32s_I with the library's scale-factor band tables
 * (ISO/IEC 11172-3 and 13818-3).  Arguments and statuses as there. */
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
 * Statuses: kStsNullPtr; kStsContextMismatch (wrong tag, nothing released). */
AKLAC_API Status aklsSynthesisFilterFree_PQMF_MP3_32f(AklsFilterState_PQMF_MP3_32f* pState);

/* Polyphase synthesis of numSlots time slots on floats.
 *   pSrc      in      numSlots x 32 subband samples, slot-major (subband 0
 *                     first), the standard's scale (full scale 1.0)
 *   pDst      out     numSlots x 32 PCM samples, full scale 1.0, not clipped
 *   pState    in/out  the context (history carried between calls)
 *   numSlots  in      number of 32-sample time slots, at least 1
 * Statuses: kStsNullPtr; kStsSizeErr (numSlots below 1);
 * kStsContextMismatch. */
AKLAC_API Status aklsSynthesisFilter_PQMF_MP3_32f(const Akl32f* pSrc, Akl32f* pDst,
                                                  AklsFilterState_PQMF_MP3_32f* pState, int numSlots);

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
/* @transform-end */

/* ========================================================================
 * Vector utilities
 * ====================================================================== */
/* @vector-end */

#ifdef __cplusplus
}
#endif

#endif /* AKLAC_H */
