/*
 * layer3_decode: a minimal MPEG-1/2 Layer III decoder built on aklac.
 *
 * usage: layer3_decode INPUT OUTPUT
 *
 * Reads a bare Layer III stream (no tags, no free format: the conformance
 * streams bundled in tests/data) and writes interleaved signed 16-bit
 * little-endian PCM, one or two channels as the stream has them.  Each
 * granule goes through the library's chain one step at a time:
 *
 *   header -> side information -> main data from the bit reservoir ->
 *   scale factors -> Huffman decoding -> requantization (and stereo) ->
 *   inverse MDCT with overlap -> polyphase synthesis -> PCM
 *
 * The guide docs/decoding-layer3.md walks through this file.  A decoder for
 * real-world files also needs tag skipping, free-format frame lengths, CRC
 * checks and concealment; tools/akl-mp3dec has them.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "aklac.h"

/* Readers of the library load aligned 32-bit words: they may touch up to 3
 * bytes before the first byte they are given and the aligned word after the
 * last bit they use.  Every buffer handed to them keeps kPad spare bytes on
 * both sides. */
enum { kPad = 8 };

/* Main data may begin up to 511 bytes before the frame that uses it. */
enum { kReservoirKeep = 511, kMaxMainBytes = 2048 };

/* [guide:state] */
/* What one channel carries from granule to granule. */
typedef struct {
  Akl32s overlap[576];  /* IMDCT overlap tails, Q26, zero at the start */
  int prevSubbands;     /* subbands the last IMDCT transformed, 0 at the start */
  Akl32s history[512];  /* synthesis history ring, zero at the start */
  int ring;             /* position in that ring, 0 at the start */
} ChannelState;

typedef struct {
  Akl8u main[kPad + kReservoirKeep + kMaxMainBytes + kPad]; /* reservoir + this frame */
  int held;                   /* main-data bytes kept from earlier frames */
  ChannelState channel[2];
  Akl8s scaleFactors[2 * 39]; /* per channel; granule 1 may reuse granule 0's (scfsi) */
  Akl32s spectrum[2 * 576];   /* quantized values, then Q26 lines, channel 0 then 1 */
  Akl32s work[576];           /* scratch for the requantizer */
  Akl32s subbands[576];       /* IMDCT output: 18 time slots of 32 subbands, Q26 */
  Akl16s pcm[2 * 1152];       /* one frame of interleaved output */
} Decoder;
/* [/guide:state] */

/* Bit rates in kbit/s by bitrateIndex: row 0 MPEG-2, row 1 MPEG-1. */
static const int kKbps[2][15] = {
    {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
    {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320}};
static const int kRateMpeg1[3] = {44100, 48000, 32000};

static int Fail(const char* what, Status st) {
  fprintf(stderr, "layer3_decode: %s failed with status %d\n", what, (int)st);
  return 1;
}

/* A frame starts with twelve 1 bits, then id 1 or 0 with its leading
 * extension bit set (MPEG-1 or MPEG-2) and layer code 01 (Layer III). */
static int IsLayer3Sync(const Akl8u* p) {
  return p[0] == 0xFF && (p[1] & 0xF0) == 0xF0 && (p[1] & 0x06) == 0x02 && (p[2] >> 4) != 15 &&
         (p[2] >> 4) != 0 && ((p[2] >> 2) & 3) != 3;
}

/* [guide:frame-length] */
/* Bytes in the frame that this header starts: 144 (MPEG-1) or 72 (MPEG-2)
 * bytes per kbit/s per kHz, plus the padding slot. */
static int FrameBytes(const AklMP3FrameHeader* h) {
  const int rate = kRateMpeg1[h->samplingFreqIndex] >> (h->id ? 0 : 1);
  const int perKbps = h->id ? 144000 : 72000;
  return perKbps * kKbps[h->id][h->bitrateIndex] / rate + h->paddingBit;
}
/* [/guide:frame-length] */

/* Decodes the frame at `frame` (`avail` bytes remain in the stream) into
 * d->pcm; *samples receives the samples per channel.  Returns the frame's
 * length in bytes, 0 at the end of the stream, -1 on an error. */
static int DecodeFrame(Decoder* d, Akl8u* frame, long avail, int* samples, int* channels) {
  /* [guide:header] */
  Akl8u* p = frame;
  AklMP3FrameHeader hdr;
  Status st = aklsUnpackFrameHeader_MP3(&p, &hdr); /* p now after the header and CRC */
  if (st != kStsOk) return Fail("aklsUnpackFrameHeader_MP3", st);
  const int nch = hdr.mode == 3 ? 1 : 2;
  const int ngr = hdr.id == 1 ? 2 : 1; /* MPEG-2 frames hold one granule */
  const int frameBytes = FrameBytes(&hdr);
  /* [/guide:header] */
  if (frameBytes > avail) return 0; /* a truncated last frame ends the stream */

  /* [guide:side-info] */
  AklMP3SideInfo side[4];        /* granule-major: side[gr * nch + ch] */
  Akl32s mainDataBegin, privateBits, scfsi[8];
  memset(side, 0, sizeof side);   /* fields a block type leaves unread stay 0 */
  memset(scfsi, 0, sizeof scfsi); /* MPEG-2 has no scfsi flags */
  st = aklsUnpackSideInfo_MP3(&p, side, &mainDataBegin, &privateBits, scfsi, &hdr);
  if (st != kStsOk) return Fail("aklsUnpackSideInfo_MP3", st);
  /* [/guide:side-info] */

  /* [guide:reservoir] */
  /* This frame's main data runs from p to the end of the frame; it is
   * appended to what earlier frames left, and this frame's part starts
   * mainDataBegin bytes before the appended bytes. */
  const int mainBytes = (int)(frame + frameBytes - p);
  if (mainBytes < 0 || mainBytes > kMaxMainBytes) return Fail("frame length", kStsMP3FrameHeaderErr);
  Akl8u* md = d->main + kPad;
  memcpy(md + d->held, p, (size_t)mainBytes);
  const int haveMain = mainDataBegin <= d->held;
  long bit = 8L * (d->held - mainDataBegin); /* first bit of granule 0, channel 0 */
  d->held += mainBytes;
  /* [/guide:reservoir] */

  for (int gr = 0; gr < ngr; ++gr) {
    int bound[2] = {0, 0}; /* last non-zero line + 1, per channel */
    memset(d->spectrum, 0, sizeof d->spectrum);
    for (int ch = 0; ch < nch && haveMain; ++ch) {
      /* [guide:scale-factors] */
      AklMP3SideInfo* si = &side[gr * nch + ch];
      Akl8u* cur = md + bit / 8;
      Akl32s offset = (Akl32s)(bit % 8);
      st = aklsUnpackScaleFactors_MP3_1u8s(&cur, &offset, d->scaleFactors + 39 * ch, si, scfsi + 4 * ch, &hdr,
                                           gr, ch);
      if (st != kStsOk) return Fail("aklsUnpackScaleFactors_MP3_1u8s", st);
      const long scaleFactorBits = (cur - md) * 8L + offset - bit;
      /* [/guide:scale-factors] */
      /* [guide:huffman] */
      const Akl32s hufSize = si->part23Length - (Akl32s)scaleFactorBits;
      st = aklsHuffmanDecode_MP3_1u32s(&cur, &offset, d->spectrum + 576 * ch, &bound[ch], si, &hdr, hufSize);
      if (st != kStsOk) return Fail("aklsHuffmanDecode_MP3_1u32s", st);
      bit += si->part23Length; /* the next channel starts here, whatever was read */
      /* [/guide:huffman] */
    }
    /* [guide:requantize] */
    const AklMP3SideInfo* gsi = &side[gr * nch];
    if (haveMain) {
      st = aklsReQuantize_MP3_32s_I(d->spectrum, bound, d->scaleFactors, gsi, &hdr, d->work);
      if (st != kStsOk) return Fail("aklsReQuantize_MP3_32s_I", st);
    }
    /* [/guide:requantize] */
    /* [guide:synthesis] */
    for (int ch = 0; ch < nch; ++ch) {
      ChannelState* cs = &d->channel[ch];
      st = aklsMDCTInv_MP3_32s(d->spectrum + 576 * ch, d->subbands, cs->overlap, bound[ch], &cs->prevSubbands,
                               gsi[ch].blockType, gsi[ch].mixedBlockFlag);
      if (st != kStsOk) return Fail("aklsMDCTInv_MP3_32s", st);
      Akl16s* out = d->pcm + gr * 576 * nch + ch; /* interleaved: stride nch */
      for (int t = 0; t < 18; ++t) {
        st = aklsSynthPQMF_MP3_32s16s(d->subbands + 32 * t, out + 32 * t * nch, cs->history, &cs->ring, nch);
        if (st != kStsOk) return Fail("aklsSynthPQMF_MP3_32s16s", st);
      }
    }
    /* [/guide:synthesis] */
  }

  /* Keep the last bytes for the frames that point back into them. */
  if (d->held > kReservoirKeep) {
    memmove(md, md + d->held - kReservoirKeep, kReservoirKeep);
    d->held = kReservoirKeep;
  }
  *samples = 576 * ngr;
  *channels = nch;
  return frameBytes;
}

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: layer3_decode INPUT OUTPUT\n");
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
  /* The whole stream, with spare bytes on both sides for the word reader. */
  Akl8u* buffer = calloc((size_t)size + 2 * kPad, 1);
  Decoder* d = calloc(1, sizeof(Decoder));
  if (!buffer || !d || fread(buffer + kPad, 1, (size_t)size, in) != (size_t)size) {
    fprintf(stderr, "layer3_decode: cannot read %s\n", argv[1]);
    return 1;
  }
  fclose(in);
  FILE* out = fopen(argv[2], "wb");
  if (!out) {
    perror(argv[2]);
    return 1;
  }

  long pos = 0, frames = 0;
  while (pos + 4 <= size) {
    Akl8u* frame = buffer + kPad + pos;
    if (!IsLayer3Sync(frame)) { /* not at a frame: look one byte further */
      ++pos;
      continue;
    }
    int samples = 0, channels = 0;
    const int len = DecodeFrame(d, frame, size - pos, &samples, &channels);
    if (len < 0) return 1;
    if (len == 0) break;
    for (int i = 0; i < samples * channels; ++i) { /* little-endian 16-bit */
      const unsigned v = (unsigned)(Akl16s)d->pcm[i] & 0xFFFFu;
      fputc((int)(v & 0xFF), out);
      fputc((int)(v >> 8), out);
    }
    pos += len;
    ++frames;
  }
  fclose(out);
  free(buffer);
  free(d);
  fprintf(stderr, "layer3_decode: %ld frames\n", frames);
  return frames > 0 ? 0 : 1;
}
