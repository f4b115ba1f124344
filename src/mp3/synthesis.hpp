// Polyphase synthesis filter bank: internal kernels, shared with the tests.
#pragma once

#include <cstdint>

namespace akl::mp3 {

// Slots of history kept per channel and values per slot.
inline constexpr int kSynthSlots = 16;
inline constexpr int kSynthSlotValues = 32;
inline constexpr int kSynthHistoryValues = kSynthSlots * kSynthSlotValues;  // 512

// One time slot, fixed point: 32 Q26 subband samples to 32 PCM samples at
// `stride`, against a 512-value history ring (Q25) whose slot index *offset
// is stepped back first.  Assumes valid arguments.
void SynthSlotKernel(const std::int32_t* subband_q26, std::int16_t* pcm, int stride, std::int32_t* history_q24,
                     std::int32_t* offset);

// The plain scalar form of SynthSlotKernel (its transform rounds at several
// stages in 64-bit integers); the two agree within one PCM step.
void SynthSlotKernelRef(const std::int32_t* subband_q26, std::int16_t* pcm, int stride, std::int32_t* history_q24,
                        std::int32_t* offset);

// The two stages of the slot kernel.  The transform: 32 Q26 subband samples
// (|s| < 2^29) to the 32 Q25 values A[m] = sum s[k] cos(m (2k+1) pi/64) of
// one history slot; the tuned form is within one Q25 step of the exact sum.
// The plain form expects inputs clamped to +-(2^29 - 1); the tuned one clamps
// them itself (to +-2^29, the nearest float).
void SynthDct32(const std::int32_t* subband_q26, std::int32_t* a_q25);
void SynthDct32Ref(const std::int32_t* subband_q26, std::int32_t* a_q25);
// The windowed sum over the 16 slots of the ring whose newest slot is slot0,
// to 32 PCM samples at `stride`.  The plain form sums exactly in 64-bit
// integers; the tuned one in single precision, within one PCM step of it while
// the history stays below 2^26 (and within 2^-26.8 x max|A| + 1 steps always).
void SynthWindowSum(const std::int32_t* history_q25, int slot0, std::int16_t* pcm, int stride);
void SynthWindowSumRef(const std::int32_t* history_q25, int slot0, std::int16_t* pcm, int stride);
// SynthWindowSum is the SSE2 member of the windowed sum; the AVX2 member
// (synthesis_avx2.cpp) gives bit-identical results.  SynthSlotKernel calls the
// member bound at process attach (core/dispatch.hpp).
namespace avx2 {
void SynthWindowSum(const std::int32_t* history_q25, int slot0, std::int16_t* pcm, int stride);
}

// The same filter bank on floats (full scale 1.0 in and out).
void SynthSlotFloat(const float* subband, float* pcm, float* history, std::int32_t* offset);

}  // namespace akl::mp3
