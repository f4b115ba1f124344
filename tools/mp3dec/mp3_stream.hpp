// akl-mp3dec's decoding engine: a Layer III frame loop over a memory buffer,
// built only on the public aklac.h.  It finds frames (skipping ID3v2, ID3v1
// and APE tags and junk), reads the Xing/Info frame and its LAME tag,
// assembles main data from the bit reservoir, runs the library's chain per
// granule and hands 16-bit PCM to a sink.  Damaged frames are concealed
// (decoded as silence through the filter banks, so their tails fade out)
// and counted; nothing in the input can make it read outside the buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "damage_report.hpp"

namespace aklmp3 {

struct DecodeOptions {
  bool gapless = true;  // trim encoder delay and padding given by a LAME tag
  bool mono = false;    // one output channel: stereo frames mixed down (left + right) / 2
};

// Where PCM goes: called with interleaved samples (frames x channels).
class PcmSink {
 public:
  virtual ~PcmSink() = default;
  // First call tells the output format; it never changes afterwards.
  virtual void Format(int sample_rate, int channels) = 0;
  virtual void Write(const std::int16_t* samples, std::size_t frames) = 0;
  // Progress: bytes of input consumed so far, of `total`.
  virtual void Progress(std::size_t /*consumed*/, std::size_t /*total*/) {}
};

// Kinds of the damage report (see damage_report.hpp), declared in this order.
inline constexpr const char* kSkipBefore = "before the first frame";
inline constexpr const char* kSkipBetween = "between frames";
inline constexpr const char* kSkipAfter = "after the last frame";
inline constexpr const char* kSkipTruncated = "in a truncated last frame";
inline constexpr const char* kConcealLostHeader = "damaged frame header";
inline constexpr const char* kConcealHeader = "unreadable side information";
inline constexpr const char* kConcealCrc = "CRC mismatch";
inline constexpr const char* kConcealReservoir = "main data missing (bit reservoir)";
inline constexpr const char* kConcealOverrun = "main data overrun";
inline constexpr const char* kConcealScaleFactors = "bad scale factors";
inline constexpr const char* kConcealHuffman = "bad Huffman data";
inline constexpr const char* kConcealRequant = "bad requantization input";
inline constexpr const char* kDropRate = "at another sampling rate";
inline constexpr const char* kDropUnsupported = "of an unsupported layer or version";

struct DecodeStats {
  long frames = 0;              // audio frames written (concealed ones included, dropped ones not)
  long damaged = 0;             // damage events: frames concealed and regions skipped (damage.Damaged())
  long reservoir_gaps = 0;      // frames whose main data reached before the data available (stream start, after a resync)
  long other_format_frames = 0;  // frames dropped because their sampling rate differs from the first frame's
  long unsupported_frames = 0;   // Layer I/II or MPEG-2.5 frames found (dropped)
  std::string unsupported_kind;  // "Layer I", "Layer II", "MPEG-2.5" of the first such frame
  std::uint64_t samples_out = 0;  // per channel, after gapless trimming
  int sample_rate = 0;
  int channels = 0;
  bool lame_tag = false;
  int encoder_delay = 0;
  int encoder_padding = 0;
  // Every input byte is a tag byte, a frame byte (written, dropped or the
  // Xing/Info frame) or a skipped byte (damage.Total(kSkippedBytes)).
  std::uint64_t tag_bytes = 0;
  std::uint64_t frame_bytes = 0;
  std::uint64_t scan_work = 0;   // bytes looked at while finding frames (both passes; linear in the input)
  aklcli::DamageReport damage;  // bytes skipped, frames concealed and dropped, by kind
};

// Where a stream's bytes come from, in order.
class ByteSource {
 public:
  virtual ~ByteSource() = default;
  // Up to n bytes into dst; 0 only at the end of the stream.
  virtual std::size_t Read(std::uint8_t* dst, std::size_t n) = 0;
  // Back to the first byte for a second pass; false if the source cannot go
  // back (a pipe).
  virtual bool Rewind() = 0;
  // The stream's size in bytes, 0 if unknown.
  virtual std::uint64_t Size() const { return 0; }
};

// Decodes a stream as it is read, in bounded memory (a window of a few
// hundred KiB whatever the stream's length), writing PCM frame by frame.  A
// source that can go back is read twice: first to find the output format
// and the end of the audio, then to decode.  One that cannot (a pipe) is
// decoded as it arrives, about 12 KiB behind the input: its output format is
// that of its first Layer III frame (searched for in its first MiB; stereo
// frames in a mono output are mixed down), and trailing tags longer than
// that look-ahead count as skipped bytes.
DecodeStats DecodeStream(ByteSource* source, const DecodeOptions& options, PcmSink* sink);

// Decodes a whole stream held in memory.  Returns the statistics; if no
// Layer III frame was found, stats.frames is 0 (and unsupported_* tells why
// when frames of another layer or of MPEG-2.5 were seen).
DecodeStats DecodeBuffer(const std::uint8_t* data, std::size_t size, const DecodeOptions& options, PcmSink* sink);

// Access units of a container (MP4), one frame each, in order.  A unit may be
// shorter than its header's frame length (writers drop the unused bytes at
// the end): its main data is what it holds, and the bit reservoir is the main
// data of the units before it.  Skipped units count as bytes skipped between
// frames.  No LAME-tag trimming: the container says what to trim.
struct AccessUnit {
  const std::uint8_t* data;
  std::size_t size;
};
// Of the options, only `mono` applies (the container says what to trim).
DecodeStats DecodeUnits(const AccessUnit* units, std::size_t count, PcmSink* sink, const DecodeOptions& options = {});

}  // namespace aklmp3
