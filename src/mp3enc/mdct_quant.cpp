// Layer III encoding: forward hybrid MDCT with alias butterflies, mid/side
// encoding, and quantization with the nonlinear law.
//
// Forward MDCT.  For each subband the 36 inputs are the previous granule's
// 18 subband samples followed by this granule's, with the odd samples of odd
// subbands negated (the decoder's frequency inversion undone).  Long blocks:
// X[k] = (2/18) sum_n w[n] z[n] cos(pi/72 (2n + 19)(2k + 1)), k = 0..17,
// with the window of the block type (normal, start, stop); short blocks: for
// each window v the 12 inputs z[6 + 6v ..] give (2/6) sum_n ws[n] z cos(pi/24
// (2n + 7)(2k + 1)), k = 0..5.  The factors 2/18 and 2/6 make the decoder's
// unnormalised inverse transform with overlap-add the identity.  Short-block
// lines are stored as the inverse transform reads them: window v of subband
// s at 18 s + 6 v .. 18 s + 6 v + 5.  Then the encoder's alias butterflies
// (the transposed rotations of the decoder's alias reduction) are applied
// across every subband boundary of long blocks, and only across the first of
// a mixed block.  The arithmetic is double precision; each output is rounded
// once to Q26 and saturated.
//
// Quantization of one channel: ix = sign(xr) floor((|xr| 2^(a/4))^(3/4) +
// 0.4054), where a = 210 - globalGain + the scale-factor and sub-block-gain
// terms in quarter octaves: exactly the attenuation the requantizer applies,
// so requantizing ix gives back xr within the quantizer's cell.
#include <cmath>
#include <cstdint>
#include <initializer_list>

#include "core/exports.hpp"
#include "mp3/mp3_math.hpp"
#include "mp3enc/encode_tables.hpp"

namespace akl::mp3 {

namespace {

struct MdctTables {
  double lon[4][18][36];  // window rows 0 normal, 1 start, 3 stop (2 unused) folded into the cosines
  double sho[6][12];
  double cs[8], ca[8];
};

constexpr double WindowLong(int row, int n) {
  const double s36 = ConstSin(kPi / 36.0 * (n + 0.5));
  if (row == 0) return s36;
  if (row == 1) {
    if (n < 18) return s36;
    if (n < 24) return 1.0;
    if (n < 30) return ConstSin(kPi / 12.0 * (n - 18 + 0.5));
    return 0.0;
  }
  // stop
  if (n < 6) return 0.0;
  if (n < 12) return ConstSin(kPi / 12.0 * (n - 6 + 0.5));
  if (n < 18) return 1.0;
  return s36;
}

constexpr MdctTables MakeMdct() {
  MdctTables t{};
  for (int row : {0, 1, 3})
    for (int k = 0; k < 18; ++k)
      for (int n = 0; n < 36; ++n)
        t.lon[row][k][n] = WindowLong(row, n) * ConstCos(kPi / 72.0 * (2 * n + 19) * (2 * k + 1)) * (2.0 / 18.0);
  for (int k = 0; k < 6; ++k)
    for (int n = 0; n < 12; ++n)
      t.sho[k][n] = ConstSin(kPi / 12.0 * (n + 0.5)) * ConstCos(kPi / 24.0 * (2 * n + 7) * (2 * k + 1)) * (2.0 / 6.0);
  constexpr double c[8] = {-0.6, -0.535, -0.33, -0.185, -0.095, -0.041, -0.0142, -0.0037};
  for (int i = 0; i < 8; ++i) {
    const double d = ConstSqrt(1.0 + c[i] * c[i]);
    t.cs[i] = 1.0 / d;
    t.ca[i] = c[i] / d;
  }
  return t;
}
const MdctTables kMdct = MakeMdct();

inline std::int32_t RoundSat(double v) {
  const double r = std::nearbyint(v);
  if (r >= 2147483647.0) return 2147483647;
  if (r <= -2147483648.0) return -2147483647 - 1;
  return static_cast<std::int32_t>(r);
}

}  // namespace

void MdctFwdKernel(const std::int32_t* y, std::int32_t* xr, std::int32_t* overlap, int block_type, int mixed) {
  double out[576];
  for (int sb = 0; sb < 32; ++sb) {
    double z[36];
    for (int t = 0; t < 18; ++t) {
      z[t] = overlap[18 * sb + t];
      z[18 + t] = y[32 * t + sb];
    }
    if (sb & 1)
      for (int n = 1; n < 36; n += 2) z[n] = -z[n];
    double* x = out + 18 * sb;
    const bool long_block = block_type != 2 || (mixed && sb < 2);
    if (long_block) {
      const int row = (block_type == 2 || block_type == 0 || (mixed && sb < 2)) ? 0 : block_type == 1 ? 1 : 3;
      for (int k = 0; k < 18; ++k) {
        double acc = 0.0;
        for (int n = 0; n < 36; ++n) acc += kMdct.lon[row][k][n] * z[n];
        x[k] = acc;
      }
    } else {
      for (int w = 0; w < 3; ++w)
        for (int k = 0; k < 6; ++k) {
          double acc = 0.0;
          for (int n = 0; n < 12; ++n) acc += kMdct.sho[k][n] * z[6 + 6 * w + n];
          x[6 * w + k] = acc;
        }
    }
  }
  const int boundaries = block_type != 2 ? 31 : (mixed ? 1 : 0);
  for (int sb = 0; sb < boundaries; ++sb)
    for (int i = 0; i < 8; ++i) {
      double& a = out[18 * sb + 17 - i];
      double& b = out[18 * (sb + 1) + i];
      const double na = a * kMdct.cs[i] + b * kMdct.ca[i];
      const double nb = b * kMdct.cs[i] - a * kMdct.ca[i];
      a = na;
      b = nb;
    }
  for (int i = 0; i < 576; ++i) xr[i] = RoundSat(out[i]);
  for (int sb = 0; sb < 32; ++sb)
    for (int t = 0; t < 18; ++t) overlap[18 * sb + t] = y[32 * t + sb];
}

Status aklsMDCTFwd_MP3_32s(const Akl32s* pSrcY, Akl32s* pDstXr, Akl32s* pOverlapBuf, int blockType,
                           int mixedBlock) {
  if (!pSrcY || !pDstXr || !pOverlapBuf) return kStsNullPtr;
  if (static_cast<unsigned>(blockType) > 3u || static_cast<unsigned>(mixedBlock) > 1u) return kStsBadArgErr;
  MdctFwdKernel(pSrcY, pDstXr, pOverlapBuf, blockType, mixedBlock);
  return kStsOk;
}

Status aklsJointStereoEncode_MP3_32s_I(Akl32s* pSrcDstXr, const AklMP3FrameHeader* pFrameHeader) {
  if (!pSrcDstXr || !pFrameHeader) return kStsNullPtr;
  const AklMP3FrameHeader& h = *pFrameHeader;
  if (Above(h.id, 1) || Above(h.mode, 3) || Above(h.modeExtension, 3)) return kStsMP3FrameHeaderErr;
  if (h.mode != 1) return kStsOk;
  if (h.modeExtension & 1) return kStsNotSupportedModeErr;
  if (!(h.modeExtension & 2)) return kStsOk;
  constexpr double kHalfRoot2 = 0.70710678118654752440;
  Akl32s* l = pSrcDstXr;
  Akl32s* r = pSrcDstXr + 576;
  for (int i = 0; i < 576; ++i) {
    const double a = l[i], b = r[i];
    l[i] = RoundSat((a + b) * kHalfRoot2);
    r[i] = RoundSat((a - b) * kHalfRoot2);
  }
  return kStsOk;
}

Status aklsQuantize_MP3_32s_I(Akl32s* pSrcDstXrIx, const Akl8s* pScaleFactor, const AklMP3SideInfo* pSideInfo,
                              const AklMP3FrameHeader* pFrameHeader, Akl32s* pBuffer) {
  if (!pSrcDstXrIx || !pScaleFactor || !pSideInfo || !pFrameHeader || !pBuffer) return kStsNullPtr;
  const AklMP3FrameHeader& h = *pFrameHeader;
  const AklMP3SideInfo& si = *pSideInfo;
  if (Above(h.id, 1) || Above(h.samplingFreqIndex, 2)) return kStsMP3FrameHeaderErr;
  if (Above(si.blockType, 3) || Above(si.mixedBlockFlag, 1) || Above(si.globalGain, 255) ||
      Above(si.scalefacScale, 1) || Above(si.preflag, 1))
    return kStsMP3SideInfoErr;
  if (si.blockType == 2)
    for (int w = 0; w < 3; ++w)
      if (Above(si.subblockGain[w], 7)) return kStsMP3SideInfoErr;
  const int row = h.id * 3 + h.samplingFreqIndex;
  EncBandLayout lay;
  EncBuildLayout(si.blockType, si.mixedBlockFlag, kSfbLong[row], kSfbShort[row], &lay);
  for (int i = 0; i < 576; ++i) pBuffer[i] = pSrcDstXrIx[i];
  const int shift = si.scalefacScale + 1;
  for (int n = 0; n < lay.count; ++n) {
    const EncBand& b = lay.b[n];
    int sfv = pScaleFactor[b.sf];
    if (sfv < 0) sfv = -sfv;
    int a = 210 - si.globalGain;
    if (b.window < 0)
      a += (sfv + si.preflag * kEncPretab[b.band]) << shift;
    else
      a += (sfv << shift) + 8 * si.subblockGain[b.window];
    // (|xr| 2^(a/4))^(3/4) with xr = v / 2^26.
    const double gain = std::exp2(0.1875 * a - 19.5);  // 2^(3a/16) * (2^-26)^(3/4)
    for (int j = 0; j < b.len; ++j) {
      int src;
      if (b.window < 0) {
        src = b.start + j;
      } else {
        const int k = b.mdct0 + j;  // line of this window
        src = 18 * (k / 6) + 6 * b.window + k % 6;
      }
      const Akl32s v = pBuffer[src];
      const double m = std::fabs(static_cast<double>(v));
      const double q = std::sqrt(m * std::sqrt(m)) * gain + 0.4054;
      int ix = q >= 8206.0 ? 8206 : static_cast<int>(q);
      pSrcDstXrIx[b.start + j] = v < 0 ? -ix : ix;
    }
  }
  return kStsOk;
}

}  // namespace akl::mp3
