// ADTS frame headers as programs need them to find and size frames, ahead of
// the library's own header parser.
#pragma once

#include <cstdint>

namespace aklkit {

struct AdtsHeader {
  int id = 0;                 // 0 MPEG-4, 1 MPEG-2
  int protection_absent = 1;  // 0: CRC words follow
  int profile = 0;            // audio object type minus one
  int sfi = 0;                // sampling-frequency index 0..12
  int config = 0;             // channel configuration
  int frame_length = 0;       // bytes, header included
  int fullness = 0;           // buffer fullness, 0x7FF = variable rate
  int blocks = 1;             // raw data blocks in the frame, 1..4
  // Bytes before the first raw data block: 7, plus (with CRC) the positions
  // of blocks 2.. and the header's CRC word.
  int header_bytes = 7;
};

// Sampling rate of an index 0..12 (0 for others).
int AdtsSampleRate(int sfi);

// Parses the 7 header bytes at p.  False when they cannot start a frame:
// no sync word, a layer other than 0, a sampling-frequency index above 12,
// or a frame length that leaves no room after the header.
bool ParseAdtsHeader(const std::uint8_t* p, AdtsHeader* h);

}  // namespace aklkit
