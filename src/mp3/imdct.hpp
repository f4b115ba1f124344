// Inverse MDCT of the Layer III hybrid filter bank: internal kernels, shared
// with the tests.
#pragma once

#include <cstdint>

namespace akl::mp3 {

inline constexpr int kSubbands = 32;
inline constexpr int kLinesPerSubband = 18;
inline constexpr int kGranuleLines = 576;

// Number of subbands that can hold non-zero lines after alias reduction,
// from the non-zero bound (0..576), block type and mixed flag.
int ImdctSubbandCount(int bound, int block_type, int mixed);

// Alias reduction in place over the boundaries below `n` subbands (only the
// boundary between subbands 0 and 1 for a mixed block, none for short blocks).
void AliasReduce(std::int32_t* spec_q26, int n, int block_type, int mixed);
// The plain scalar form (64-bit products, saturated); AliasReduce matches it exactly.
void AliasReduceRef(std::int32_t* spec_q26, int n, int block_type, int mixed);

// One subband: 18 Q26 lines (or three runs of 6 for short blocks) to 36
// windowed Q26 time samples, accumulated before the one rounding.
void ImdctLong(const std::int32_t* lines_q26, int block_type, std::int32_t* out36_q26);

// The same transforms without the window: 36 Q26 samples of the 18-line
// transform, or the three 12-sample outputs of the 6-line ones (window 0
// first), each output one rounding to Q26.
void ImdctLongRaw(const std::int32_t* lines_q26, std::int32_t* out36_q26);
void ImdctShortRaw(const std::int32_t* lines_q26, std::int32_t* out36_q26);
// The windowing stage alone (aklsMDCTInvWindow_MP3_32s after its checks);
// ImdctLong is ImdctLongRaw followed by this, bit for bit.
void WindowKernel(const std::int32_t* src36_q26, std::int32_t* dst36_q26, int block_type);
void ImdctShort(const std::int32_t* lines_q26, std::int32_t* out36_q26);

// The whole granule of one channel, assuming valid arguments.
void MdctInvKernel(std::int32_t* spec_q26, std::int32_t* out_q26, std::int32_t* overlap_q26, int bound,
                   std::int32_t* prev_count, int block_type, int mixed);

// The plain form of MdctInvKernel (64-bit integer transforms, rounded at each
// stage); the tuned kernel agrees with it within a few Q26 steps.
void MdctInvKernelRef(std::int32_t* spec_q26, std::int32_t* out_q26, std::int32_t* overlap_q26, int bound,
                      std::int32_t* prev_count, int block_type, int mixed);

}  // namespace akl::mp3
