// Side-information readers shared by the element parsers and the noiseless
// decoders.  Each reads at the reader's position and assumes valid arguments;
// a data failure returns its status with what was read so far stored.
#pragma once

#include "core/bitstream.hpp"
#include "aklac.h"

namespace akl::aac {

inline constexpr int kEightShort = 2;

// ICS information with the main-profile predictor fields (predictor limit
// pred_sfb_max 0..41).  kStsAacMaxSfbErr for a long-window maxSfb above 51.
Status ReadIcsInfo(BranchFreeReader& br, AklAACIcsInfo& ics, int pred_sfb_max);

// ICS information of the MPEG-4 object types: for a long window with predictor
// data, audio object type 1 reads predictor flags (limit above 41:
// kStsAacPredSfbErr), any other LTP data for `ltp_channels` channels (1 or 2).
Status ReadIcsInfoMp4(BranchFreeReader& br, AklAACIcsInfo& ics, AklAACLtpInfo& ltp, int pred_sfb_max,
                      int audio_object_type, int ltp_channels);

// Standard window grouping from the 7 grouping bits.
void GroupWindows(int grouping, Akl32s* num_groups, Akl32s* group_length);

// TNS data for 8 short windows or one long window.  length, order and
// direction are filled per filter over all windows, coef per coefficient.
// kStsAacTnsOrderErr for an order above 7 (short) or max_order_long (long:
// 12, or 20 in the Main profile).
Status ReadTnsData(BranchFreeReader& br, bool short_windows, Akl32s* n_filt, Akl32s* coef_res, Akl32s* length,
                   Akl32s* order, Akl32s* direction, Akl8s* coef, int max_order_long = 12);

// LTP data after ltpDataPresent, against the given window sequence and maxSfb.
void ReadLtpData(BranchFreeReader& br, AklAACLtpData& ltp, int window_sequence, int max_sfb);

}  // namespace akl::aac
