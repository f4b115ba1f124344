// Layer III signal chain on input-driven records and spectra: requantization
// (standard or caller band tables) of one granule's two channels, then per
// channel the inverse MDCT against a carried overlap buffer and 18 slots of
// fixed-point polyphase synthesis, and the float synthesis filter on the same
// slots.  Header and side-information fields, scale factors, quantized lines
// and bounds come from the input, in range most of the time and outside it
// sometimes; the statuses must follow the documented checks, and the
// arithmetic must stay free of undefined behaviour (UBSan) and inside the
// caller's buffers (every buffer is an exact heap block).  Two granules run
// so the overlap and history carry over.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "aklac.h"
#include "fuzz_util.hpp"
#include "mp3/tables.hpp"

namespace {

using akl::fuzz::Params;

void Trap(bool ok) {
  if (!ok) __builtin_trap();
}

// A value in lo..hi most of the time, anything in -300..300 sometimes.
int Field(Params& p, int lo, int hi) {
  const std::uint8_t b = p.Byte();
  if (b >= 0xF8) return static_cast<int>(static_cast<std::int8_t>(p.Byte())) * 2;
  return lo + b % (hi - lo + 1);
}

AklMP3SideInfo SideInfo(Params& p) {
  AklMP3SideInfo s{};
  s.part23Length = Field(p, 0, 4095);
  s.bigValues = Field(p, 0, 288);
  s.globalGain = Field(p, 0, 255);
  s.scalefacCompress = Field(p, 0, 15);
  s.windowSwitchingFlag = Field(p, 0, 1);
  s.blockType = s.windowSwitchingFlag ? Field(p, 1, 3) : 0;
  s.mixedBlockFlag = s.blockType == 2 ? Field(p, 0, 1) : 0;
  for (int& t : s.tableSelect) t = Field(p, 0, 31);
  for (int& g : s.subblockGain) g = Field(p, 0, 7);
  s.region0Count = Field(p, 0, 15);
  s.region1Count = Field(p, 0, 7);
  s.preflag = Field(p, 0, 1);
  s.scalefacScale = Field(p, 0, 1);
  s.count1TableSelect = Field(p, 0, 1);
  return s;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Params p(data, size);
  AklMP3FrameHeader h{};
  h.id = Field(p, 0, 1);
  h.layer = 1;
  h.samplingFreqIndex = Field(p, 0, 2);
  h.mode = Field(p, 0, 3);
  h.modeExtension = Field(p, 0, 3);
  const std::uint8_t how = p.Byte();
  const int channels = h.mode == 3 ? 1 : 2;
  const int pcm_mode = (how & 1) ? 1 : channels;

  std::vector<Akl32s> overlap(2 * 576, 0), vbuf(2 * 512, 0);
  int prev_sb[2] = {0, 0}, vpos[2] = {0, 0};
  std::vector<std::uint8_t> fstate_mem;
  int fsize = 0;
  Trap(aklsSynthesisFilterGetSize_PQMF_MP3_32f(&fsize) == kStsOk);
  fstate_mem.resize(static_cast<std::size_t>(fsize) + 1);
  auto* fstate = reinterpret_cast<AklsFilterState_PQMF_MP3_32f*>(fstate_mem.data() + 1);
  Trap(aklsSynthesisFilterInit_PQMF_MP3_32f(fstate) == kStsOk);

  for (int gr = 0; gr < 2; ++gr) {
    AklMP3SideInfo si[2] = {SideInfo(p), SideInfo(p)};
    if (how & 2) si[1] = si[0];  // same block types: the stereo tools run
    std::vector<Akl8s> sf(2 * 39);
    for (auto& v : sf) v = static_cast<Akl8s>(p.Byte() >= 0xF0 ? -static_cast<int>(p.Byte() % 8) : p.Byte() % 16);
    std::vector<Akl32s> is(2 * 576, 0);
    int bound[2];
    for (int ch = 0; ch < 2; ++ch) {
      const int n = Field(p, 0, 576);
      bound[ch] = n;
      for (int i = 0; i < std::min(n, 576); ++i) {
        const std::uint8_t b = p.Byte();
        int v = b & 0x0F;
        if ((b & 0x30) == 0x30) v = (static_cast<int>(p.Byte()) << 5 | v) % 8300;  // escapes, some too large
        is[static_cast<std::size_t>(ch * 576 + i)] = (b & 0x80) ? -v : v;
      }
    }
    std::vector<Akl32s> work(576);
    Status st;
    if (how & 4) {
      st = aklsReQuantize_MP3_32s_I(is.data(), bound, sf.data(), si, &h, work.data());
    } else {
      // The library's rows, or rows with hostile entries (negative,
      // decreasing, odd widths, past the granule), which must be refused
      // or walked within the granule.
      Akl16s lon[6 * 23], sho[6 * 14];
      std::memcpy(lon, akl::mp3::kSfbLong, sizeof lon);
      std::memcpy(sho, akl::mp3::kSfbShort, sizeof sho);
      if (how & 8) {
        static constexpr Akl16s kVals[] = {-32768, -2, 0, 1, 35, 36, 191, 192, 193, 575, 576, 577, 32767};
        const int edits = 1 + p.Byte() % 8;
        for (int e = 0; e < edits; ++e) {
          const int at = p.Byte();
          const Akl16s v = kVals[p.Byte() % 13];
          if (at & 1) {
            sho[(at >> 1) % (6 * 14)] = v;
          } else {
            lon[(at >> 1) % (6 * 23)] = v;
          }
        }
      }
      st = aklsReQuantizeSfb_MP3_32s_I(is.data(), bound, sf.data(), si, &h, work.data(), lon, sho);
    }
    if (st != kStsOk) {
      Trap(st == kStsMP3FrameHeaderErr || st == kStsMP3SideInfoErr || st == kStsBadArgErr || st == kStsErr);
      return 0;
    }
    // A single-channel frame leaves channel 1 alone.
    for (int ch = 0; ch < channels; ++ch) Trap(bound[ch] >= 0 && bound[ch] <= 576);

    std::vector<Akl16s> pcm(static_cast<std::size_t>(18 * 32 * pcm_mode));
    for (int ch = 0; ch < channels; ++ch) {
      std::vector<Akl32s> y(576);
      const Status m = aklsMDCTInv_MP3_32s(is.data() + ch * 576, y.data(), overlap.data() + ch * 576, bound[ch],
                                           &prev_sb[ch], si[ch].blockType, si[ch].mixedBlockFlag);
      if (m != kStsOk) {
        Trap(m == kStsBadArgErr);
        return 0;
      }
      Trap(prev_sb[ch] >= 0 && prev_sb[ch] <= 32);
      Akl16s* out = pcm.data() + (pcm_mode == 2 ? ch : 0);
      for (int t = 0; t < 18; ++t) {
        Trap(aklsSynthPQMF_MP3_32s16s(y.data() + 32 * t, out + 32 * pcm_mode * t, vbuf.data() + ch * 512, &vpos[ch],
                                      pcm_mode) == kStsOk);
        Trap(vpos[ch] >= 0 && vpos[ch] <= 15);
      }
      if (ch == 0) {
        // The float bank on the same slots, full scale 1.0 = Q26.
        std::vector<Akl32f> fy(576), fo(576);
        for (int i = 0; i < 576; ++i) fy[static_cast<std::size_t>(i)] = static_cast<float>(y[static_cast<std::size_t>(i)]) / 67108864.0f;
        const int slots = 1 + (how >> 4) % 18;
        Trap(aklsSynthesisFilter_PQMF_MP3_32f(fy.data(), fo.data(), fstate, slots) == kStsOk);
        for (int i = 0; i < 32 * slots; ++i) Trap(!std::isnan(fo[static_cast<std::size_t>(i)]));
      }
    }
  }
  return 0;
}
