// A plain double-precision Layer III decoding model (see mp3_model.cpp).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace mp3model {

// Rules some decoders follow instead of the standard's, for comparison
// (the default is the standard's rule in each case).
struct Variant {
  bool slen0_illegal = false;
  bool top_band_illegal = false;
  bool top_band_zero = false;
  bool mpeg1_illegal7 = false;
  bool no_illegal = false;
  bool coded_extent = false;
  bool native_channels = false;
  bool illegal_plain = false;
  int illegal_from = 0;  // >0: MPEG-2 positions from this value up are illegal, nothing else  // an illegal position leaves the band as it is, without mid/side  // each frame in its own channel count
  int top_band_outside = 0;  // band 20 / 11 outside the region: 0 its value, 1 illegal, 2 position 0
};

// Decodes a clean stream (frames back to back after an optional ID3v2 tag)
// into interleaved 16-bit PCM, every granule, rounded once from double
// precision; *channels is the first frame's channel count.  Frames
// first..last are described on stdout (--dump).  False if the tables in
// data_dir/mp3_model are missing or the stream holds no readable frame.
bool Decode(const std::string& data_dir, const std::vector<std::uint8_t>& stream, const Variant& variant,
            std::vector<std::int16_t>* pcm, int* channels, long dump_first = -1, long dump_last = -2);

}  // namespace mp3model
