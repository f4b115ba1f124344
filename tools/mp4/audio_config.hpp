// AudioSpecificConfig: the AAC decoder configuration that MP4 files carry in
// their esds descriptor (and that other transports carry beside raw access
// units).  Parses the object type (with the escape to 32 and above), the
// sampling rate (15-entry index or an explicit 24-bit value), the channel
// configuration, SBR and PS signalling in both forms (explicit: object type
// 5 or 29 first, then the core's; backward compatible: a sync extension
// after the core's configuration), and the general audio part
// (frameLengthFlag, core coder delay, extension flags, and the program
// configuration element of channel configuration 0, located and skipped).
//
// Reads never go past `size` bytes; a config that ends early is damage.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace mp4 {

enum class SbrSignalling { kNone, kExplicit, kBackwardCompatible };

struct AudioSpecificConfig {
  int object_type = 0;              // the core's: 1 Main, 2 LC, 3 SSR, 4 LTP, 17.. error resilient, ...
  int sampling_index = 0;           // 0..12, or 15 for an explicit rate
  std::uint32_t sample_rate = 0;    // the core's sampling rate in Hz
  int band_index = 0;               // the index whose band tables serve sample_rate (nearest for explicit rates)
  int channel_config = 0;           // 0: a program configuration element says
  // SBR (object type 5) and PS (29).
  SbrSignalling sbr_signalling = SbrSignalling::kNone;
  bool sbr = false;                 // SBR is present (explicitly or by a backward-compatible extension)
  bool ps = false;                  // parametric stereo is present
  std::uint32_t extension_sample_rate = 0;  // the SBR output rate when sbr
  // General audio specific part.
  bool frame_length_960 = false;    // frameLengthFlag: 960 (120 for short windows) instead of 1024
  bool depends_on_core_coder = false;
  int core_coder_delay = 0;
  bool extension_flag = false;
  // Channel configuration 0: where the program configuration element starts
  // (bits from the first byte of the config) and how many bits it takes.
  int pce_bit_offset = -1;
  int pce_bits = 0;
};

// Nominal rate of a sampling index 0..12 (0 for others).
std::uint32_t RateOfSamplingIndex(int index);
// The sampling index whose tables serve `rate`: the nearest of the standard
// rates by the standard's boundaries (an explicit 24-bit rate needs one).
int SamplingIndexForRate(std::uint32_t rate);

// Parses `size` bytes.  False, with *error saying why, if the config is
// damaged or uses something this parser does not know (object types without
// a general audio part, reserved sampling indices).
bool ParseAudioSpecificConfig(const std::uint8_t* data, std::size_t size, AudioSpecificConfig* config,
                              std::string* error);

// A short name for an object type ("AAC-LC", "HE-AAC (SBR)", ...).
std::string ObjectTypeName(int object_type);

}  // namespace mp4
