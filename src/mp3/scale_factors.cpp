// Layer III scale factors: the MPEG-1 slen1/slen2 scheme with scale-factor
// selection information, and the MPEG-2 four-partition scheme with its
// intensity-stereo variant for the right channel.
#include <cstdint>

#include "core/bitstream.hpp"
#include "core/exports.hpp"
#include "mp3/tables.hpp"

namespace akl::mp3 {
namespace {

// Reads `count` values of `bits` bits each into dst (zeros, reading nothing, when bits is 0).
void ReadValues(ByteReader& br, Akl8s* dst, int count, int bits) {
  for (int i = 0; i < count; ++i) dst[i] = static_cast<Akl8s>(br.Read(bits));
}

void ZeroValues(Akl8s* dst, int count) {
  for (int i = 0; i < count; ++i) dst[i] = 0;
}

void UnpackMpeg1(ByteReader& br, Akl8s* sf, const AklMP3SideInfo& si, const Akl32s* scfsi, int granule) {
  const int slen1 = kSlen1[si.scalefacCompress];
  const int slen2 = kSlen2[si.scalefacCompress];
  sf[21] = 0;
  if (si.blockType == 2) {
    if (si.mixedBlockFlag != 0) {
      // Long bands 0..7 and short bands 3..5, then short bands 6..11.
      ReadValues(br, sf, 17, slen1);
      ReadValues(br, sf + 17, 18, slen2);
      ZeroValues(sf + 35, 3);
    } else {
      ReadValues(br, sf, 18, slen1);
      ReadValues(br, sf + 18, 18, slen2);
      ZeroValues(sf + 36, 3);
    }
    return;
  }
  // Band groups 0-5, 6-10, 11-15, 16-20.  In granule 1 a group flagged in
  // scfsi keeps granule 0's values, which the caller left in the array.
  static constexpr int kGroupStart[5] = {0, 6, 11, 16, 21};
  for (int g = 0; g < 4; ++g) {
    if (granule == 1 && scfsi[g] != 0) continue;
    ReadValues(br, sf + kGroupStart[g], kGroupStart[g + 1] - kGroupStart[g], g < 2 ? slen1 : slen2);
  }
}

void UnpackMpeg2(ByteReader& br, Akl8s* sf, AklMP3SideInfo& si, const AklMP3FrameHeader& h, int channel) {
  int kind = 0;
  if (si.blockType == 2) {
    si.mixedBlockFlag &= 1;
    kind = si.mixedBlockFlag != 0 ? 2 : 1;
  }
  const int sfc = si.scalefacCompress;
  const bool is_right = (h.modeExtension & 1) != 0 && channel == 1;
  int slen[4];
  int range;
  if (!is_right) {
    if (sfc < 400) {
      slen[0] = (sfc >> 4) / 5;
      slen[1] = (sfc >> 4) % 5;
      slen[2] = (sfc % 16) >> 2;
      slen[3] = sfc % 4;
      si.preflag = 0;
      range = 0;
    } else if (sfc < 500) {
      const int s = sfc - 400;
      slen[0] = (s >> 2) / 5;
      slen[1] = (s >> 2) % 5;
      slen[2] = s % 4;
      slen[3] = 0;
      si.preflag = 0;
      range = 1;
    } else {
      const int s = sfc - 500;
      slen[0] = s / 3;
      slen[1] = s % 3;
      slen[2] = slen[3] = 0;
      si.preflag = 1;
      range = 2;
    }
  } else {
    const int hv = sfc >> 1;  // the low bit is the intensity scale, used by requantization
    if (hv < 180) {
      slen[0] = hv / 36;
      slen[1] = (hv % 36) / 6;
      slen[2] = (hv % 36) % 6;
      slen[3] = 0;
      range = 3;
    } else if (hv < 244) {
      const int t = hv - 180;
      slen[0] = t >> 4;
      slen[1] = (t % 16) >> 2;
      slen[2] = t % 4;
      slen[3] = 0;
      range = 4;
    } else {
      const int t = hv - 244;
      slen[0] = t / 3;
      slen[1] = t % 3;
      slen[2] = slen[3] = 0;
      range = 5;
    }
    si.preflag = 0;
  }
  const Akl8s* nr = kNrOfSfb + range * 12 + kind * 4;
  int n = 0;
  for (int part = 0; part < 4; ++part) {
    Akl8s* dst = sf + n;
    ReadValues(br, dst, nr[part], slen[part]);
    if (is_right && slen[part] != 0) {
      // The largest value of a partition is the illegal intensity position;
      // it is marked by its sign so that requantization leaves the band
      // out of intensity processing.
      const int limit = (1 << slen[part]) - 1;
      for (int i = 0; i < nr[part]; ++i)
        if (dst[i] == limit) dst[i] = static_cast<Akl8s>(-limit);
    }
    n += nr[part];
  }
  ZeroValues(sf + n, 3);
}

}  // namespace

Status aklsUnpackScaleFactors_MP3_1u8s(Akl8u** ppBitStream, Akl32s* pOffset, Akl8s* pDstScaleFactor,
                                       AklMP3SideInfo* pSideInfo, const Akl32s* pScfsi,
                                       const AklMP3FrameHeader* pFrameHeader, Akl32s granule, Akl32s channel) {
  if (!ppBitStream || !*ppBitStream || !pOffset || !pDstScaleFactor || !pSideInfo || !pScfsi || !pFrameHeader)
    return kStsNullPtr;
  if (Above(*pOffset, 7) || Above(granule, 1) || Above(channel, 1)) return kStsBadArgErr;
  const AklMP3FrameHeader& h = *pFrameHeader;
  AklMP3SideInfo& si = *pSideInfo;
  // The id selects the scheme; a value other than 0 or 1 names neither.
  if (Above(h.id, 1)) return kStsMP3FrameHeaderErr;
  if (h.id == 1) {
    if (Above(si.scalefacCompress, 15)) return kStsMP3SideInfoErr;
  } else {
    if (Above(si.scalefacCompress, 511)) return kStsMP3SideInfoErr;
    if (Above(h.modeExtension, 3)) return kStsMP3FrameHeaderErr;
  }

  ByteReader br(*ppBitStream, *pOffset);
  if (h.id == 1)
    UnpackMpeg1(br, pDstScaleFactor, si, pScfsi, granule);
  else
    UnpackMpeg2(br, pDstScaleFactor, si, h, channel);
  br.WriteBack(ppBitStream, pOffset);
  return kStsOk;
}

}  // namespace akl::mp3
