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

// The same filter bank on floats (full scale 1.0 in and out).
void SynthSlotFloat(const float* subband, float* pcm, float* history, std::int32_t* offset);

}  // namespace akl::mp3
