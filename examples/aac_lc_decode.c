/*
 * aac_lc_decode: a minimal AAC-LC (ADTS) decoder built on aklac.
 *
 * usage: aac_lc_decode INPUT OUTPUT
 *
 * Reads an ADTS stream of single-channel and channel-pair elements (the
 * AAC-LC conformance streams bundled in tests/data) and writes interleaved
 * signed 16-bit little-endian PCM, channels in the order of the elements.
 * Each raw data block goes through the library's chain one step at a time:
 *
 *   ADTS header -> element walk -> noiseless decoding -> inverse quantization
 *   -> mid/side and intensity stereo -> deinterleaving -> TNS ->
 *   inverse MDCT -> windowing and overlap-add -> PCM
 *
 * The guide docs/decoding-aac-lc.md walks through this file.  Noise
 * substitution (which needs the MPEG-4 noiseless decoder
 * aklsNoiselessDecode_AAC), coupling channels, ADIF, channel layouts and
 * concealment are left out; tools/akl-aacdec has them.
 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "aklac.h"

/* Readers load aligned 32-bit words: keep spare bytes around the stream. */
enum { kPad = 8 };
enum { kMaxChannels = 8, kFrame = 1024 };
enum { kSce = 0, kCpe = 1, kCce = 2, kLfe = 3, kDse = 4, kPce = 5, kFil = 6, kEnd = 7 };
enum { kOnlyLong = 0, kLongStart = 1, kEightShort = 2, kLongStop = 3 };

/* [guide:state] */
/* One channel's decoding buffers and the state it carries between frames. */
typedef struct {
  AklAACIcsInfo ownIcs;     /* ICS information when the channel has its own */
  AklAACChanInfo info;      /* noiseless decoder's per-channel record */
  Akl16s scaleFactors[8 * 51]; /* per band per window group */
  Akl8u codebooks[8 * 51];     /* per band per window group */
  Akl8s tnsCoef[60];
  Akl32s spectrum[kFrame];  /* quantized values, then Q3 lines times 2^-shift */
  int shift;                /* this frame's scale shift (see Dequantize) */
  float overlap[kFrame];    /* second half of the last windowed IMDCT output */
  int prevShape;            /* window shape of the previous frame */
} Channel;

typedef struct {
  Channel ch[kMaxChannels];
  int numChannels;          /* channels met so far */
  int key[kMaxChannels];    /* channel k belongs to element type and tag key[k] / 2 */
  int sfi;                  /* sampling-frequency index, 0..11 */
  MDCTInvSpec_32f* imdctLong;  /* N = 2048: 1024 lines to 2048 samples */
  MDCTInvSpec_32f* imdctShort; /* N = 256: 128 lines to 256 samples */
  Akl8u* imdctBuffer;          /* work buffer shared by both */
  float riseLong[2][1024];     /* rising window halves, [shape]: 0 sine, 1 KBD */
  float riseShort[2][128];
  float pcm[kMaxChannels][kFrame];
} Decoder;
/* [/guide:state] */

static int Fail(const char* what, Status st) {
  fprintf(stderr, "aac_lc_decode: %s failed with status %d\n", what, (int)st);
  return -1;
}

/* Reads n bits (n <= 16) at the cursor: the element ids and instance tags,
 * which the library leaves to the caller. */
static int ReadBits(Akl8u** p, Akl32s* offset, int n) {
  int v = 0;
  for (int i = 0; i < n; ++i) {
    v = (v << 1) | ((**p >> (7 - *offset)) & 1);
    if (++*offset == 8) {
      *offset = 0;
      ++*p;
    }
  }
  return v;
}

/* ---- windows ---------------------------------------------------------- */

static double BesselI0(double x) {
  double sum = 1, term = 1;
  for (int k = 1; k < 64; ++k) {
    term *= (x / (2.0 * k)) * (x / (2.0 * k));
    sum += term;
  }
  return sum;
}

/* Rising half of the sine window and of the Kaiser-Bessel-derived window
 * (alpha 4 for long, 6 for short windows) of length 2 * half. */
static void MakeWindows(float* sine, float* kbd, int half, double alpha) {
  const double pi = 3.14159265358979323846;
  double kernel[1025], total = 0, acc = 0;
  for (int n = 0; n <= half; ++n) {
    const double r = 2.0 * n / half - 1.0;
    kernel[n] = BesselI0(pi * alpha * sqrt(1.0 - r * r));
    total += kernel[n];
  }
  for (int n = 0; n < half; ++n) {
    sine[n] = (float)sin(pi / (2.0 * half) * (n + 0.5));
    acc += kernel[n];
    kbd[n] = (float)sqrt(acc / total);
  }
}

/* [guide:imdct-setup] */
static int SetUpTransforms(Decoder* d) {
  Status st = aklsMDCTInvInitAlloc_32f(&d->imdctLong, 2 * kFrame);
  if (st == kStsOk) st = aklsMDCTInvInitAlloc_32f(&d->imdctShort, 256);
  int size = 0;
  if (st == kStsOk) st = aklsMDCTInvGetBufSize_32f(d->imdctLong, &size);
  if (st != kStsOk) return Fail("inverse MDCT set-up", st);
  d->imdctBuffer = malloc((size_t)size); /* the larger transform's buffer serves both */
  MakeWindows(d->riseLong[0], d->riseLong[1], 1024, 4.0);
  MakeWindows(d->riseShort[0], d->riseShort[1], 128, 6.0);
  return d->imdctBuffer ? 0 : -1;
}
/* [/guide:imdct-setup] */

/* ---- one channel stream ------------------------------------------------- */

/* [guide:noiseless] */
/* Decodes one individual channel stream: ICS information (unless the pair
 * shares it), section data, scale factors, pulse and TNS data and the
 * quantized spectrum. */
static int DecodeIcs(Decoder* d, Channel* c, Akl8u** p, Akl32s* offset, AklAACIcsInfo* shared) {
  c->info.samplingFrequencyIndex = d->sfi;
  c->info.predSfbMax = 0; /* no prediction in AAC-LC */
  c->info.pIcsInfo = shared ? shared : &c->ownIcs;
  const Status st = aklsNoiselessDecoder_LC_AAC(p, offset, shared ? 1 : 0, &c->info, c->scaleFactors, c->spectrum,
                                                c->codebooks, c->tnsCoef);
  return st == kStsOk ? 0 : Fail("aklsNoiselessDecoder_LC_AAC", st);
}
/* [/guide:noiseless] */

static int HasIntensity(const Channel* c) {
  const AklAACIcsInfo* ics = c->info.pIcsInfo;
  for (int i = 0; i < ics->numWindowGroups * ics->maxSfb; ++i)
    if (c->codebooks[i] == 14 || c->codebooks[i] == 15) return 1;
  return 0;
}

/* [guide:dequantize] */
/* The dequantizer writes Q3 into 32 bits and is exact only while a band's
 * exponent e = (sf - 100 + 3) >> 2 stays small enough (magnitudes below 16
 * are not scaled up past e = 22, below 4 past e = 25) and its lines stay
 * below 2^31.  Loud material goes past both, so each channel (both of a pair
 * that shares its window) gets a shift for the frame: the scale factors go
 * in lowered by 4 x shift, which divides every line by exactly 2^shift, and
 * the float stage multiplies it back.  The shift keeps the largest line
 * below 2^27.5: room for M/S and TNS, and low enough that every band is
 * inside the exact range too (a band past it would have a line of at least
 * 2^27.9).  A first bound comes from the largest magnitude and scale factor
 * of the frame; the dequantized lines then tell the true peak, and a bound
 * far too high is tightened (precision). */
static const double kPeak = 27.5;

static int FirstShift(const Channel* c) {
  const AklAACIcsInfo* ics = c->info.pIcsInfo;
  int maxq = 0, maxsf = -1000, minpos = 0;
  for (int i = 0; i < kFrame; ++i) maxq = abs(c->spectrum[i]) > maxq ? abs(c->spectrum[i]) : maxq;
  for (int i = 0; i < ics->numWindowGroups * ics->maxSfb; ++i) {
    const int cb = c->codebooks[i], sf = c->scaleFactors[i];
    if (cb >= 1 && cb <= 11 && sf > maxsf) maxsf = sf;
    if ((cb == 14 || cb == 15) && sf < minpos) minpos = sf; /* intensity lines: 2^(-position/4) */
  }
  if (maxq == 0 || maxsf < 0) return 0;
  return (int)ceil(3.0 + log2((double)maxq) * 4.0 / 3.0 + 0.25 * (maxsf - 100) - 0.25 * minpos - kPeak);
}

static int DequantizeShifted(Decoder* d, Channel* c, const Akl32s* quantized, int shift) {
  const AklAACIcsInfo* ics = c->info.pIcsInfo;
  Akl16s sf[8 * 51];
  for (int i = 0; i < ics->numWindowGroups * ics->maxSfb; ++i)
    sf[i] = (Akl16s)(c->codebooks[i] >= 1 && c->codebooks[i] <= 11 ? c->scaleFactors[i] - 4 * shift : c->scaleFactors[i]);
  memcpy(c->spectrum, quantized, sizeof c->spectrum);
  c->shift = shift;
  const Status st = aklsQuantInv_AAC_32s_I(c->spectrum, sf, ics->numWindowGroups, ics->windowGroupLength,
                                           ics->maxSfb, c->codebooks, d->sfi, c->info.windowLength);
  return st == kStsOk ? 0 : Fail("aklsQuantInv_AAC_32s_I", st);
}

/* Dequantizes `count` channels (1, or a pair that shares its window) with
 * one shift. */
static int Dequantize(Decoder* d, Channel* c, int count) {
  static Akl32s quantized[2][kFrame];
  int shift = -1000;
  for (int k = 0; k < count; ++k) {
    memcpy(quantized[k], c[k].spectrum, sizeof quantized[k]);
    const int s = FirstShift(&c[k]);
    shift = s > shift ? s : shift;
  }
  for (int pass = 0; pass < 3; ++pass) {
    Akl32s peak = 0;
    for (int k = 0; k < count; ++k) {
      if (DequantizeShifted(d, &c[k], quantized[k], shift)) return -1;
      for (int i = 0; i < kFrame; ++i) peak = abs(c[k].spectrum[i]) > peak ? abs(c[k].spectrum[i]) : peak;
    }
    /* The true peak is below (peak + 1) x 2^shift: tighten a loose bound. */
    const int tighter = (int)ceil(log2((double)peak + 1.0) + shift - kPeak);
    if (tighter >= shift - 1) break;
    shift = tighter;
  }
  return 0;
}
/* [/guide:dequantize] */

/* [guide:stereo] */
/* The stereo tools of a pair that shares one window: mid/side, then
 * intensity.  M/S skips the intensity bands of the right channel and, where
 * msUsed is set in one, swaps its codebook 14 <-> 15 so that intensity
 * stereo applies the inverted sign. */
static int Stereo(Decoder* d, Channel* l, Channel* r, const AklAACChanPairElt* cpe) {
  const AklAACIcsInfo* ics = l->info.pIcsInfo;
  const int winLen = l->info.windowLength;
  Status st;
  if (cpe->msMaskPresent == 1 || cpe->msMaskPresent == 2) {
    st = aklsDecodeMsStereo_AAC_32s_I(l->spectrum, r->spectrum, cpe->msMaskPresent, &cpe->msUsed[0][0],
                                      r->codebooks, ics->numWindowGroups, ics->windowGroupLength, ics->maxSfb,
                                      d->sfi, winLen);
    if (st != kStsOk) return Fail("aklsDecodeMsStereo_AAC_32s_I", st);
  }
  if (HasIntensity(r)) {
    st = aklsDecodeIsStereo_AAC_32s(l->spectrum, r->spectrum, r->scaleFactors, r->codebooks, ics->numWindowGroups,
                                    ics->windowGroupLength, ics->maxSfb, d->sfi, winLen);
    if (st != kStsOk) return Fail("aklsDecodeIsStereo_AAC_32s", st);
  }
  return 0;
}
/* [/guide:stereo] */

/* [guide:tns] */
/* Short windows leave the noiseless decoder grouped and interleaved; TNS and
 * the transform want eight windows of 128 lines one after the other. */
static int Deinterleave(Decoder* d, Channel* c) {
  const AklAACIcsInfo* ics = c->info.pIcsInfo;
  if (ics->windowSequence != kEightShort) return 0;
  Akl32s windows[kFrame];
  const Status st = aklsDeinterleaveSpectrum_AAC_32s(c->spectrum, windows, ics->numWindowGroups,
                                                     ics->windowGroupLength, ics->maxSfb, d->sfi, 128);
  if (st != kStsOk) return Fail("aklsDeinterleaveSpectrum_AAC_32s", st);
  memcpy(c->spectrum, windows, sizeof windows);
  return 0;
}

static int Tns(Decoder* d, Channel* c) {
  if (!c->info.tnsDataPresent) return 0;
  const Status st = aklsDecodeTNS_AAC_32s_I(c->spectrum, c->info.nFilt, c->info.length, c->info.order,
                                            c->info.coefRes, c->tnsCoef, c->info.direction,
                                            c->info.pIcsInfo->maxSfb, 1, d->sfi, c->info.windowLength);
  return st == kStsOk ? 0 : Fail("aklsDecodeTNS_AAC_32s_I", st);
}
/* [/guide:tns] */

/* [guide:synthesis] */
/* Inverse MDCT, window and overlap-add: 1024 new samples into out. */
static void Synthesize(Decoder* d, Channel* c, float* out) {
  const AklAACIcsInfo* ics = c->info.pIcsInfo;
  const int seq = ics->windowSequence, shape = ics->windowShape & 1, prev = c->prevShape;
  const float* longPrev = d->riseLong[prev];
  const float* longCur = d->riseLong[shape];
  const float* shortPrev = d->riseShort[prev];
  const float* shortCur = d->riseShort[shape];
  float lines[kFrame], y[2 * kFrame], z[2 * kFrame];
  const float unit = ldexpf(1.0f, c->shift - 3); /* Q3 at the frame's shift to float */
  for (int i = 0; i < kFrame; ++i) lines[i] = (float)c->spectrum[i] * unit;
  if (seq == kEightShort) {
    memset(z, 0, sizeof z);
    for (int w = 0; w < 8; ++w) { /* window w covers z[448 + 128 w .. 704 + 128 w) */
      aklsMDCTInv_32f(lines + 128 * w, y, d->imdctShort, d->imdctBuffer);
      const float* rise = w == 0 ? shortPrev : shortCur;
      for (int n = 0; n < 128; ++n) z[448 + 128 * w + n] += y[n] * rise[n];
      for (int n = 0; n < 128; ++n) z[576 + 128 * w + n] += y[128 + n] * shortCur[127 - n];
    }
  } else {
    aklsMDCTInv_32f(lines, y, d->imdctLong, d->imdctBuffer);
    for (int n = 0; n < kFrame; ++n) /* first half: rises with the previous shape */
      z[n] = seq == kLongStop ? (n < 448 ? 0.0f : n < 576 ? y[n] * shortPrev[n - 448] : y[n]) : y[n] * longPrev[n];
    for (int n = kFrame; n < 2 * kFrame; ++n) /* second half: falls with this shape */
      z[n] = seq == kLongStart ? (n < 1472 ? y[n] : n < 1600 ? y[n] * shortCur[1599 - n] : 0.0f)
                               : y[n] * longCur[2 * kFrame - 1 - n];
  }
  for (int n = 0; n < kFrame; ++n) {
    out[n] = z[n] + c->overlap[n];
    c->overlap[n] = z[kFrame + n];
  }
  c->prevShape = shape;
}
/* [/guide:synthesis] */

/* ---- one raw data block --------------------------------------------------- */

/* The channel slots of an element, by its type and instance tag: elements
 * may come in any order within a block, and each channel's overlap must
 * follow its own element.  A new element gets the next free slots. */
static int Slot(Decoder* d, int id, int tag, int count) {
  for (int k = 0; k < d->numChannels; ++k)
    if (d->key[k] == 2 * (16 * id + tag)) return k;
  if (d->numChannels + count > kMaxChannels) return -1;
  const int k = d->numChannels;
  for (int i = 0; i < count; ++i) d->key[k + i] = 2 * (16 * id + tag) + i;
  d->numChannels += count;
  return k;
}

/* Walks the elements of one raw data block and leaves its PCM in d->pcm. */
static int DecodeBlock(Decoder* d, Akl8u** p, Akl32s* offset) {
  int first[kMaxChannels], pair[kMaxChannels]; /* each element's first slot; 1 for a shared-window pair */
  AklAACIcsInfo pairIcs[kMaxChannels];
  AklAACChanPairElt cpe[kMaxChannels];
  int n = 0; /* elements in this block */
  /* [guide:element-walk] */
  for (;;) {
    const int id = ReadBits(p, offset, 3);
    if (id == kEnd) break;
    if (id == kSce || id == kLfe) {
      const int k = Slot(d, id, ReadBits(p, offset, 4), 1); /* element_instance_tag */
      if (k < 0 || n == kMaxChannels || DecodeIcs(d, &d->ch[k], p, offset, NULL)) return -1;
      first[n] = k;
      pair[n++] = 0;
    } else if (id == kCpe) {
      const int k = Slot(d, id, ReadBits(p, offset, 4), 2);
      if (k < 0 || n == kMaxChannels) return -1;
      AklAACIcsInfo* shared = &pairIcs[n];
      const Status st = aklsDecodeChanPairElt_AAC(p, offset, shared, &cpe[n], 0);
      if (st != kStsOk) return Fail("aklsDecodeChanPairElt_AAC", st);
      if (!cpe[n].commonWindow) shared = NULL; /* each channel reads its own */
      if (DecodeIcs(d, &d->ch[k], p, offset, shared) || DecodeIcs(d, &d->ch[k + 1], p, offset, shared)) return -1;
      first[n] = k;
      pair[n] = cpe[n].commonWindow ? 1 : 2; /* 2: two channels, each on its own */
      ++n;
    } else if (id == kFil) {
      Akl32s count;
      Akl8u bytes[270];
      const Status st = aklsDecodeFillElt_AAC(p, offset, &count, bytes);
      if (st != kStsOk) return Fail("aklsDecodeFillElt_AAC", st);
    } else if (id == kPce) { /* channel layout; this example orders channels by element */
      static AklAACPrgCfgElt pce;
      const Status st = aklsDecodePrgCfgElt_AAC(p, offset, &pce);
      if (st != kStsOk) return Fail("aklsDecodePrgCfgElt_AAC", st);
    } else if (id == kDse) {
      Akl32s tag, count;
      Akl8u bytes[512];
      const Status st = aklsDecodeDatStrElt_AAC(p, offset, &tag, &count, bytes);
      if (st != kStsOk) return Fail("aklsDecodeDatStrElt_AAC", st);
    } else {
      fprintf(stderr, "aac_lc_decode: element %d is not handled by this example\n", id);
      return -1;
    }
  }
  /* [/guide:element-walk] */
  /* [guide:channel-chain] */
  for (int e = 0; e < n; ++e) {
    Channel* c = &d->ch[first[e]];
    const int channels = pair[e] ? 2 : 1;
    if (pair[e] == 1) { /* M/S and intensity mix the pair's lines: one shift for both */
      if (Dequantize(d, c, 2)) return -1;
    } else {
      for (int i = 0; i < channels; ++i)
        if (Dequantize(d, &c[i], 1)) return -1;
    }
    if (pair[e] == 1 && Stereo(d, &c[0], &c[1], &cpe[e])) return -1;
    for (int i = 0; i < channels; ++i) {
      if (Deinterleave(d, &c[i]) || Tns(d, &c[i])) return -1;
      Synthesize(d, &c[i], d->pcm[first[e] + i]);
    }
  }
  /* [/guide:channel-chain] */
  return 0;
}

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: aac_lc_decode INPUT OUTPUT\n");
    return 2;
  }
  FILE* in = fopen(argv[1], "rb");
  if (!in) {
    perror(argv[1]);
    return 1;
  }
  fseek(in, 0, SEEK_END);
  const long size = ftell(in);
  fseek(in, 0, SEEK_SET);
  Akl8u* buffer = calloc((size_t)size + 2 * kPad, 1);
  Decoder* d = calloc(1, sizeof(Decoder));
  if (!buffer || !d || fread(buffer + kPad, 1, (size_t)size, in) != (size_t)size) {
    fprintf(stderr, "aac_lc_decode: cannot read %s\n", argv[1]);
    return 1;
  }
  fclose(in);
  FILE* out = fopen(argv[2], "wb");
  if (!out || SetUpTransforms(d)) return 1;

  long pos = 0, frames = 0;
  while (pos + 7 <= size) {
    /* [guide:adts] */
    Akl8u* frame = buffer + kPad + pos;
    if (frame[0] != 0xFF || (frame[1] & 0xF6) != 0xF0) { /* sync word, layer 0 */
      ++pos;
      continue;
    }
    Akl8u* p = frame;
    AklAACADTSFrameHeader h;
    Status st = aklsUnpackADTSFrameHeader_AAC(&p, &h); /* p now at the raw data block */
    if (st != kStsOk || h.profile != 1 || h.aacFrameLength < 7 || pos + h.aacFrameLength > size) break;
    d->sfi = h.samplingFrequencyIndex;
    Akl32s offset = 0;
    /* [/guide:adts] */
    if (DecodeBlock(d, &p, &offset)) return 1;
    /* [guide:output] */
    const Akl32f* rows[kMaxChannels]; /* channels in order of element type and tag */
    Akl16s pcm[kMaxChannels * kFrame];
    for (int k = 0; k < d->numChannels; ++k) {
      int rank = 0;
      for (int j = 0; j < d->numChannels; ++j) rank += d->key[j] < d->key[k];
      rows[rank] = d->pcm[k];
    }
    st = aklsJoin_32f16s_D2L(rows, d->numChannels, kFrame, pcm); /* round, saturate, interleave */
    if (st != kStsOk) {
      Fail("aklsJoin_32f16s_D2L", st);
      return 1;
    }
    /* [/guide:output] */
    for (int i = 0; i < d->numChannels * kFrame; ++i) {
      const unsigned v = (unsigned)pcm[i] & 0xFFFFu;
      fputc((int)(v & 0xFF), out);
      fputc((int)(v >> 8), out);
    }
    pos += h.aacFrameLength;
    ++frames;
  }
  fclose(out);
  aklsMDCTInvFree_32f(d->imdctLong);
  aklsMDCTInvFree_32f(d->imdctShort);
  free(d->imdctBuffer);
  free(buffer);
  free(d);
  fprintf(stderr, "aac_lc_decode: %ld frames\n", frames);
  return frames > 0 ? 0 : 1;
}
