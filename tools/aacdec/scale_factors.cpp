// See scale_factors.hpp.
#include "aacdec/scale_factors.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace aacdec {
namespace {

constexpr int kNoiseBook = 13;
constexpr int kNoiseFirstBits = 9;
constexpr int kNoiseFirstOffset = 346;  // first noise energy = global_gain + value - 346
constexpr std::size_t kScratchPadding = 16384;  // zeros after the copy, as after a frame
constexpr int kLead = 16;                       // readers may look back 3 bytes

using aklkit::BitCursor;
using aklkit::BitWriter;
using aklkit::ReadBits;

}  // namespace

Status DecodeIcsOwnScaleFactors(Akl8u** p, Akl32s* offset, const Akl8u* end, int common_window, int num_swb_long,
                                int num_swb_short, AklAACLtpInfo* ltp_info, const ScaleFactorCodes& codes,
                                std::vector<Akl8u>* scratch, const IcsTarget& target) {
  Akl8u* const base = *p;
  const long end_bit = (end - base) * 8;
  BitCursor c{base, *offset};
  const int global_gain = static_cast<int>(ReadBits(c, 8));
  AklAACIcsInfo own{};
  const AklAACIcsInfo* ics = common_window ? target.info->pIcsInfo : &own;
  if (!common_window) {
    own.icsReservedBit = static_cast<Akl32s>(ReadBits(c, 1));
    own.windowSequence = static_cast<Akl32s>(ReadBits(c, 2));
    own.windowShape = static_cast<Akl32s>(ReadBits(c, 1));
    if (own.windowSequence == 2) {
      own.maxSfb = static_cast<Akl32s>(ReadBits(c, 4));
      own.scaleFactorGrouping = static_cast<Akl32s>(ReadBits(c, 7));
      own.numWindowGroups = 1;
      own.windowGroupLength[0] = 1;
      for (int w = 6; w >= 0; --w) {
        if ((own.scaleFactorGrouping >> w) & 1)
          ++own.windowGroupLength[own.numWindowGroups - 1];
        else
          own.windowGroupLength[own.numWindowGroups++] = 1;
      }
    } else {
      own.maxSfb = static_cast<Akl32s>(ReadBits(c, 6));
      if (ReadBits(c, 1) != 0) return kStsErr;  // prediction data: not handled on this path
      own.numWindowGroups = 1;
      own.windowGroupLength[0] = 1;
    }
  }
  const bool is_short = ics->windowSequence == 2;
  const int max_sfb = ics->maxSfb;
  if (max_sfb > (is_short ? num_swb_short : num_swb_long)) return kStsAacMaxSfbErr;
  const int groups = ics->numWindowGroups;

  // Section data: a codebook per band slot.
  const int len_bits = is_short ? 3 : 5;
  const int esc = (1 << len_bits) - 1;
  int sections = 0;
  for (int g = 0; g < groups; ++g) {
    int k = 0;
    while (k < max_sfb) {
      if (aklkit::BitPosition(c, base) > end_bit) return kStsErr;
      const int book = static_cast<int>(ReadBits(c, 4));
      int len = 0, step;
      do {
        step = static_cast<int>(ReadBits(c, len_bits));
        len += step;
      } while (step == esc && k + len <= max_sfb);
      if (len == 0 || k + len > max_sfb || ++sections > 120) return kStsAacSectDataErr;
      if (book == 12) return kStsAacCodebookErr;
      for (int b = k; b < k + len; ++b) target.cb[g * max_sfb + b] = static_cast<Akl8u>(book);
      k += len;
    }
  }
  const long sections_end = aklkit::BitPosition(c, base);

  // Scale factors, noise energies and intensity positions: three chains.
  int scale = global_gain, noise = global_gain - kNoiseFirstOffset, position = 0;
  bool first_noise = true;
  Akl16s values[8 * 64];
  for (int i = 0; i < groups * max_sfb; ++i) {
    const int book = target.cb[i];
    if (c.p > end) return kStsErr;
    int v = 0;
    if (book == 0) {
      v = 0;
    } else if (book == 14 || book == 15) {
      position = std::clamp(position + codes.Decode(c), -32768, 32767);
      v = position;
    } else if (book == kNoiseBook) {
      if (first_noise) {
        noise += static_cast<int>(ReadBits(c, kNoiseFirstBits));
        first_noise = false;
      } else {
        noise = std::clamp(noise + codes.Decode(c), -32768, 32767);
      }
      v = noise;
    } else {
      scale += codes.Decode(c);
      if (scale < 0 || scale > 255) return kStsAacSfValErr;
      v = scale;
    }
    values[i] = static_cast<Akl16s>(v);
  }
  const long tail = aklkit::BitPosition(c, base);
  if (tail > end_bit) return kStsErr;

  // The copy: everything up to the scale factors as it is, a scale-factor
  // field of zero differences (the first noise energy coded as global_gain
  // itself), then the rest of the block.
  const std::size_t bytes = static_cast<std::size_t>((end_bit - *offset) / 8 + 8);
  scratch->assign(kLead + bytes + kScratchPadding + 64, 0);
  auto addr = reinterpret_cast<std::uintptr_t>(scratch->data());
  Akl8u* const copy = scratch->data() + kLead + ((16 - addr % 16) % 16);
  BitWriter w(copy);
  w.Copy(base, *offset, sections_end);
  bool noise_written = false;
  for (int i = 0; i < groups * max_sfb; ++i) {
    const int book = target.cb[i];
    if (book == 0) continue;
    if (book == kNoiseBook && !noise_written) {
      noise_written = true;  // only the first noise band carries the 9-bit field
      w.Put(kNoiseFirstOffset, kNoiseFirstBits);
    } else {
      w.Put(ScaleFactorCodes::Code(0), ScaleFactorCodes::Length(0));
    }
  }
  const long tail_in_copy = w.bits();
  w.Copy(base, tail, end_bit);

  Akl8u* q = copy;
  Akl32s q_off = 0;
  const Status st = aklsNoiselessDecode_AAC(&q, &q_off, ltp_info, target.sf, target.spec, target.cb, target.tns_coef,
                                            target.info, common_window ? ics->windowSequence : 0,
                                            common_window ? ics->maxSfb : 0, common_window, 0, 2);
  if (st != kStsOk) return st;
  const long used = (q - copy) * 8 + q_off;
  if (used < tail_in_copy) return kStsErr;
  const long after = tail + (used - tail_in_copy);
  *p = base + (after >> 3);
  *offset = static_cast<Akl32s>(after & 7);
  for (int i = 0; i < groups * max_sfb; ++i) target.sf[i] = target.cb[i] == 0 ? 0 : values[i];
  return kStsOk;
}

}  // namespace aacdec
