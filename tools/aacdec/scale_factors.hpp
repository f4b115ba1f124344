// Scale factors read by akl-aacdec itself, on the library's VLC engine.
//
// The library's noiseless decoder keeps scale factors and noise energies in
// one running value and refuses the channel once that value leaves 0..255.
// A stream codes them as two chains (scale factors from global_gain, noise
// energies from their own first value), so a valid channel whose noise
// energies lie far from its scale factors trips that check part-way.  For
// such a channel this reader takes the scale-factor part of the channel
// stream into its own hands and lets the library decode the rest (pulse
// data, TNS, the spectrum), so every valid channel decodes in full.
#pragma once

#include <vector>

#include "aklac.h"
#include "kit/aac_scale_factors.hpp"

namespace aacdec {

// The scale-factor code book on the library's VLC engine (kit/).
using aklkit::ScaleFactorCodes;

// The arrays one channel stream decodes into (as aklsNoiselessDecode_AAC
// writes them); info->pIcsInfo is set by the caller.
struct IcsTarget {
  Akl16s* sf;         // out: scale factors, noise energies (own chain), intensity positions
  Akl32s* spec;       // out: quantized spectrum
  Akl8u* cb;          // out: codebook per band slot
  Akl8s* tns_coef;    // out
  AklAACChanInfo* info;
};

// Decodes the individual channel stream that starts at (*p, *offset) and
// must end before `end`: global gain, ICS information (unless common_window,
// when *info->pIcsInfo already holds it), section data and scale factors are
// read here; the remainder goes through aklsNoiselessDecode_AAC on a copy of
// the stream whose scale-factor field codes every difference as 0 (so its
// running value never leaves global_gain).  On success the cursor is left
// after the channel stream and target->sf holds the stream's own chains.
// Statuses: kStsAacSfValErr for a scale factor outside 0..255,
// kStsAacMaxSfbErr, kStsAacSectDataErr, kStsAacCodebookErr for damage found
// here, kStsErr when the stream ends first or the ICS information asks for
// prediction; otherwise the noiseless decoder's status.
Status DecodeIcsOwnScaleFactors(Akl8u** p, Akl32s* offset, const Akl8u* end, int common_window, int num_swb_long,
                                int num_swb_short, AklAACLtpInfo* ltp_info, const ScaleFactorCodes& codes,
                                std::vector<Akl8u>* scratch, const IcsTarget& target);

}  // namespace aacdec
