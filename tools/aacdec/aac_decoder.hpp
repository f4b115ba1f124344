// The AAC decoder of akl-aacdec, built on the public aklac.h only: ADTS and
// ADIF transport, every raw data block element, the library's noiseless
// decoding, dequantization, stereo, noise substitution and TNS, then the
// library's inverse MDCT with this program's windows and overlap-add.
//
// The frame loop is one function over a memory buffer, so that a fuzzer can
// drive it exactly as the command line does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "damage_report.hpp"

namespace aacdec {

struct StreamFormat {
  int sample_rate = 0;
  int channels = 0;
  std::uint32_t channel_mask = 0;  // WAVE_FORMAT_EXTENSIBLE speaker bits; 0 if unassigned
  int object_type = 0;             // 1 Main, 2 LC, 3 SSR, 4 LTP
  bool adif = false;
};

// Receives the decoder's output.  Returning false from Format or Frame stops
// decoding (for instance when the output cannot be written).
class PcmSink {
 public:
  virtual ~PcmSink() = default;
  virtual bool Format(const StreamFormat& format) = 0;  // once, before the first frame
  // `frames` samples per channel, interleaved in WAV channel order.
  virtual bool Frame(const std::int16_t* pcm, int frames) = 0;
  virtual void Warn(const std::string& message) = 0;
  virtual void Progress(std::size_t consumed, std::size_t total) { (void)consumed; (void)total; }
};

// Kinds of the damage report (see damage_report.hpp), declared in this order.
inline constexpr const char* kSkipBefore = "before the first frame";
inline constexpr const char* kSkipBetween = "between frames";
inline constexpr const char* kSkipAfter = "after the last frame";
inline constexpr const char* kSkipInFrame = "after the last raw data block of a frame";
inline constexpr const char* kConcealSync = "with a destroyed sync word";
inline constexpr const char* kConcealHeader = "with a damaged header";
inline constexpr const char* kConcealTruncated = "truncated";
inline constexpr const char* kConcealSyntax = "undecodable";
inline constexpr const char* kConcealSpectral = "with bad spectral data";
inline constexpr const char* kConcealMissing = "with channels missing";
inline constexpr const char* kConcealLayout = "before the channel layout was known";
inline constexpr const char* kDropRate = "at another sampling rate";
inline constexpr const char* kDropAbsent = "declared by a header but absent";

struct DecodeStats {
  DecodeStats();
  long frames = 0;        // raw data blocks turned into PCM (damaged ones included)
  long damaged = 0;       // blocks concealed (the concealed-frames total of `damage`)
  long skipped_bytes = 0; // bytes that belong to no frame (the skipped-bytes total of `damage`)
  long dropped = 0;       // blocks found but left out of the output (the dropped total)
  long samples = 0;       // samples per channel written
  aklcli::DamageReport damage;
};

enum class DecodeResult { kOk, kRefused, kNoAudio, kSinkStopped };

struct DecodeOptions {
  bool sbr = true;  // false: play the AAC-LC core of HE-AAC streams only (--no-sbr)
  bool ps = true;   // false: play HE-AAC v2 streams as their mono core with SBR (--no-ps)
};

// Decodes a whole ADTS or ADIF stream held in memory.  On kRefused or
// kNoAudio, *message says why.
DecodeResult DecodeAacBuffer(const std::uint8_t* data, std::size_t size, PcmSink* sink, DecodeStats* stats,
                             std::string* message, const DecodeOptions& options = {});

// Raw access units, one raw data block each (as MP4 files carry them), and
// the configuration their container gives (an AudioSpecificConfig).
struct AccessUnit {
  const std::uint8_t* data;
  std::size_t size;
};
struct RawConfig {
  int object_type = 2;       // 1 Main, 2 LC, 3 SSR, 4 LTP
  int sampling_index = 4;    // 0..11: the band tables
  int sample_rate = 44100;   // the output rate (the index's own or an explicit rate)
  int channel_config = 2;    // 1..7, or 0: a program configuration element follows
  // Channel configuration 0: the element, `pce_bit` bits into `pce` (a
  // byte-aligned config of `pce_size` bytes, so its alignment counts from there).
  const std::uint8_t* pce = nullptr;
  std::size_t pce_size = 0;
  int pce_bit = 0;
  int sbr_rate = 0;          // SBR signalled: its output rate (the core's own rate: down-sampled SBR)
  bool ps = false;           // parametric stereo signalled
};

// Decodes `count` access units.  On kRefused or kNoAudio, *message says why.
DecodeResult DecodeAacAccessUnits(const RawConfig& config, const AccessUnit* units, std::size_t count, PcmSink* sink,
                                  DecodeStats* stats, std::string* message, const DecodeOptions& options = {});

}  // namespace aacdec
