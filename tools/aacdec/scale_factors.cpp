// See scale_factors.hpp.
#include "aacdec/scale_factors.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace aacdec {
namespace {

struct SfCode {
  int length;
  std::uint32_t code;
};
constexpr SfCode kSfCodes[121] = {
#include "aacdec/sf_codes.inc"
};
constexpr int kZeroDifference = 60;  // the index of a difference of 0 (code "0")

constexpr int kNoiseBook = 13;
constexpr int kNoiseFirstBits = 9;
constexpr int kNoiseFirstOffset = 346;  // first noise energy = global_gain + value - 346
constexpr std::size_t kScratchPadding = 16384;  // zeros after the copy, as after a frame
constexpr int kLead = 16;                       // readers may look back 3 bytes

// Bit reader over the caller's frame (zero-padded past its end).
struct Reader {
  const Akl8u* base;
  long bit;  // from the most significant bit of base[0]
  std::uint32_t Get(int n) {
    std::uint32_t v = 0;
    for (int i = 0; i < n; ++i, ++bit) v = (v << 1) | ((base[bit >> 3] >> (7 - (bit & 7))) & 1u);
    return v;
  }
};

// Bit writer into the scratch copy (zero-filled beforehand).
struct Writer {
  Akl8u* base;
  long bit = 0;
  void Put(std::uint32_t v, int n) {
    for (int i = n - 1; i >= 0; --i, ++bit)
      if ((v >> i) & 1u) base[bit >> 3] = static_cast<Akl8u>(base[bit >> 3] | (0x80u >> (bit & 7)));
  }
  void Copy(const Akl8u* src, long from, long to) {
    Reader r{src, from};
    while (r.bit < to) {
      const int n = static_cast<int>(std::min<long>(16, to - r.bit));
      Put(r.Get(n), n);
    }
  }
};

}  // namespace

ScaleFactorCodes::ScaleFactorCodes() {
  VlcCodeEntry book[121];
  for (int i = 0; i < 121; ++i)
    book[i] = VlcCodeEntry{i - kZeroDifference, static_cast<Akl32s>(kSfCodes[i].code), kSfCodes[i].length};
  const int levels[3] = {9, 5, 5};
  if (aklsVLCDecodeInitAlloc_32s(book, 121, levels, 3, &spec_) != kStsOk) {
    aklsVLCDecodeFree_32s(spec_);
    spec_ = nullptr;
  }
}

ScaleFactorCodes::~ScaleFactorCodes() { aklsVLCDecodeFree_32s(spec_); }

int ScaleFactorCodes::Decode(Akl8u** p, Akl32s* offset) const {
  Akl16s v = 0;
  int off = *offset;
  aklsVLCDecodeOne_1u16s(p, &off, &v, spec_);
  *offset = off;
  return v;
}

Status DecodeIcsOwnScaleFactors(Akl8u** p, Akl32s* offset, const Akl8u* end, int common_window, int num_swb_long,
                                int num_swb_short, AklAACLtpInfo* ltp_info, const ScaleFactorCodes& codes,
                                std::vector<Akl8u>* scratch, const IcsTarget& target) {
  Akl8u* const base = *p;
  const long end_bit = (end - base) * 8;
  Reader r{base, *offset};
  const int global_gain = static_cast<int>(r.Get(8));
  AklAACIcsInfo own{};
  const AklAACIcsInfo* ics = common_window ? target.info->pIcsInfo : &own;
  if (!common_window) {
    own.icsReservedBit = static_cast<Akl32s>(r.Get(1));
    own.windowSequence = static_cast<Akl32s>(r.Get(2));
    own.windowShape = static_cast<Akl32s>(r.Get(1));
    if (own.windowSequence == 2) {
      own.maxSfb = static_cast<Akl32s>(r.Get(4));
      own.scaleFactorGrouping = static_cast<Akl32s>(r.Get(7));
      own.numWindowGroups = 1;
      own.windowGroupLength[0] = 1;
      for (int w = 6; w >= 0; --w) {
        if ((own.scaleFactorGrouping >> w) & 1)
          ++own.windowGroupLength[own.numWindowGroups - 1];
        else
          own.windowGroupLength[own.numWindowGroups++] = 1;
      }
    } else {
      own.maxSfb = static_cast<Akl32s>(r.Get(6));
      if (r.Get(1) != 0) return kStsErr;  // prediction data: not handled on this path
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
      if (r.bit > end_bit) return kStsErr;
      const int book = static_cast<int>(r.Get(4));
      int len = 0, step;
      do {
        step = static_cast<int>(r.Get(len_bits));
        len += step;
      } while (step == esc && k + len <= max_sfb);
      if (len == 0 || k + len > max_sfb || ++sections > 120) return kStsAacSectDataErr;
      if (book == 12) return kStsAacCodebookErr;
      for (int b = k; b < k + len; ++b) target.cb[g * max_sfb + b] = static_cast<Akl8u>(book);
      k += len;
    }
  }
  const long sections_end = r.bit;

  // Scale factors, noise energies and intensity positions: three chains.
  int scale = global_gain, noise = global_gain - kNoiseFirstOffset, position = 0;
  bool first_noise = true;
  Akl16s values[8 * 64];
  Akl8u* cursor_p = base + (r.bit >> 3);
  Akl32s cursor_off = static_cast<Akl32s>(r.bit & 7);
  for (int i = 0; i < groups * max_sfb; ++i) {
    const int book = target.cb[i];
    if (cursor_p > end) return kStsErr;
    int v = 0;
    if (book == 0) {
      v = 0;
    } else if (book == 14 || book == 15) {
      position = std::clamp(position + codes.Decode(&cursor_p, &cursor_off), -32768, 32767);
      v = position;
    } else if (book == kNoiseBook) {
      if (first_noise) {
        Reader nr{cursor_p, cursor_off};
        noise += static_cast<int>(nr.Get(kNoiseFirstBits));
        cursor_p += nr.bit >> 3;
        cursor_off = static_cast<Akl32s>(nr.bit & 7);
        first_noise = false;
      } else {
        noise = std::clamp(noise + codes.Decode(&cursor_p, &cursor_off), -32768, 32767);
      }
      v = noise;
    } else {
      scale += codes.Decode(&cursor_p, &cursor_off);
      if (scale < 0 || scale > 255) return kStsAacSfValErr;
      v = scale;
    }
    values[i] = static_cast<Akl16s>(v);
  }
  const long tail = (cursor_p - base) * 8 + cursor_off;
  if (tail > end_bit) return kStsErr;

  // The copy: everything up to the scale factors as it is, a scale-factor
  // field of zero differences (the first noise energy coded as global_gain
  // itself), then the rest of the block.
  const std::size_t bytes = static_cast<std::size_t>((end_bit - *offset) / 8 + 8);
  scratch->assign(kLead + bytes + kScratchPadding + 64, 0);
  auto addr = reinterpret_cast<std::uintptr_t>(scratch->data());
  Akl8u* const copy = scratch->data() + kLead + ((16 - addr % 16) % 16);
  Writer w{copy};
  w.Copy(base, *offset, sections_end);
  bool noise_written = false;
  for (int i = 0; i < groups * max_sfb; ++i) {
    const int book = target.cb[i];
    if (book == 0) continue;
    if (book == kNoiseBook && !noise_written) {
      noise_written = true;  // only the first noise band carries the 9-bit field
      w.Put(kNoiseFirstOffset, kNoiseFirstBits);
    } else {
      w.Put(kSfCodes[kZeroDifference].code, kSfCodes[kZeroDifference].length);
    }
  }
  const long tail_in_copy = w.bit;
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
