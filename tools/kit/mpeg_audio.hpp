// MPEG audio frame headers (Layers I-III; MPEG-1, MPEG-2 and MPEG-2.5) as
// programs need them to find and size frames, ahead of the library's own
// header parser; and the CRC word of a Layer III frame.
#pragma once

#include <cstdint>

namespace aklkit {

struct MpegHeader {
  int version = 0;  // 10 = MPEG-1, 20 = MPEG-2, 25 = MPEG-2.5
  int layer = 0;    // 1, 2 or 3
  bool crc = false;  // a 16-bit CRC word follows the header
  int bitrate_index = 0;
  int sfi = 0;  // sampling-frequency index 0..2
  int padding = 0;
  int mode = 0;  // 0 stereo, 1 joint stereo, 2 dual channel, 3 mono
  int sample_rate = 0;
  int channels = 0;
  int kbps = 0;         // 0 for free format
  int samples = 0;      // per channel and frame
  int side_bytes = 0;   // Layer III side information
  int frame_bytes = 0;  // header included; 0 for free format
};

// Bit rate in kbit/s of a bit-rate index (1..14; 0 is free format and gives 0).
int MpegKbps(int version, int layer, int bitrate_index);

// Sampling rate of a sampling-frequency index 0..2 (0 for others).
int MpegSampleRate(int version, int sfi);

// Bytes of a frame at `kbps`, header included (the padding slot is 4 bytes
// in Layer I, 1 byte otherwise).
int MpegFrameBytes(int version, int layer, int kbps, int sample_rate, int padding);

// Parses the 4 header bytes at p.  False when they cannot start a frame: no
// sync word, the reserved version or layer, bit-rate index 15 or the
// reserved sampling frequency.
bool ParseMpegHeader(const std::uint8_t* p, MpegHeader* h);

// The CRC a Layer III frame at `frame` (header, CRC word, side information)
// carries: over the header's last two bytes and the side information.
std::uint16_t Layer3Crc(const std::uint8_t* frame, int side_bytes);

}  // namespace aklkit
