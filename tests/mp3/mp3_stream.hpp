// Splits a Layer III stream into frames and assembles each frame's main
// data from the bit reservoir, as a decoder does.  Shared by the stream
// tests and the benchmark; uses only the public header and the client kit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "aklac.h"
#include "kit/mpeg_audio.hpp"

namespace akl::test {

struct Mp3Frame {
  std::size_t offset = 0;  // of the header in the file
  int length = 0;          // bytes, header included
  AklMP3FrameHeader h{};
};

// A Layer III header of MPEG-1 or MPEG-2 (not 2.5), as the client kit reads it.
inline bool PlausibleHeader(const std::uint8_t* p) {
  aklkit::MpegHeader h;
  return aklkit::ParseMpegHeader(p, &h) && h.layer == 3 && h.version != 25;
}

// Frame length in bytes; 0 for free format.
inline int FrameLength(const AklMP3FrameHeader& h) {
  const int version = h.id ? 10 : 20;
  return aklkit::MpegFrameBytes(version, 3, aklkit::MpegKbps(version, 3, h.bitrateIndex),
                                aklkit::MpegSampleRate(version, h.samplingFreqIndex), h.paddingBit);
}

// All whole frames from the first plausible header on (junk before it and
// a truncated last frame are left out).
inline std::vector<Mp3Frame> SplitFrames(const std::vector<std::uint8_t>& data) {
  std::vector<Mp3Frame> frames;
  std::size_t pos = 0;
  while (pos + 4 <= data.size()) {
    if (!PlausibleHeader(&data[pos])) {
      if (!frames.empty()) break;  // lost sync after the start: stop
      ++pos;
      continue;
    }
    Mp3Frame f;
    f.offset = pos;
    Akl8u* p = const_cast<Akl8u*>(&data[pos]);
    if (aklsUnpackFrameHeader_MP3(&p, &f.h) != kStsOk) break;
    f.length = FrameLength(f.h);
    if (f.length == 0) {  // free format: up to the next header of the same kind
      std::size_t next = pos + 4;
      while (next + 4 <= data.size() &&
             !(data[next] == 0xFF && data[next + 1] == data[pos + 1] && (data[next + 2] & 0xFC) == (data[pos + 2] & 0xFC)))
        ++next;
      f.length = static_cast<int>(next - pos);
      if (next + 4 > data.size()) f.length = static_cast<int>(data.size() - pos);
    }
    if (pos + static_cast<std::size_t>(f.length) > data.size()) break;
    if (frames.empty() && pos + static_cast<std::size_t>(f.length) + 4 <= data.size() &&
        !PlausibleHeader(&data[pos + static_cast<std::size_t>(f.length)])) {
      ++pos;  // a false sync in leading junk
      continue;
    }
    frames.push_back(f);
    pos += static_cast<std::size_t>(f.length);
  }
  return frames;
}

// One frame ready for scale-factor and Huffman decoding.
struct Mp3FrameData {
  AklMP3FrameHeader h{};
  AklMP3SideInfo si[4]{};
  Akl32s scfsi[8]{};
  Akl32s main_data_begin = 0;
  int channels = 0, granules = 0;
  bool complete = false;          // main data available (the reservoir reached back far enough)
  std::vector<std::uint8_t> main;  // main data from its first byte, plus 8 bytes of padding
};

// Feeds frames in order and keeps the reservoir of past main data.
class MainDataAssembler {
 public:
  // Returns the status of side-information unpacking.
  Status Next(const std::vector<std::uint8_t>& data, const Mp3Frame& f, Mp3FrameData& out) {
    out = Mp3FrameData{};
    out.h = f.h;
    Akl8u* p = const_cast<Akl8u*>(&data[f.offset]);
    AklMP3FrameHeader h;
    Status st = aklsUnpackFrameHeader_MP3(&p, &h);
    if (st != kStsOk) return st;
    Akl32s priv;
    st = aklsUnpackSideInfo_MP3(&p, out.si, &out.main_data_begin, &priv, out.scfsi, &h);
    if (st != kStsOk) return st;
    out.channels = h.mode == 3 ? 1 : 2;
    out.granules = h.id ? 2 : 1;
    const std::size_t side_end = static_cast<std::size_t>(p - &data[0]);
    const std::size_t frame_end = f.offset + static_cast<std::size_t>(f.length);
    const std::size_t begin = reservoir_.size();
    reservoir_.insert(reservoir_.end(), data.begin() + static_cast<std::ptrdiff_t>(side_end),
                      data.begin() + static_cast<std::ptrdiff_t>(frame_end));
    if (static_cast<std::size_t>(out.main_data_begin) <= begin) {
      out.complete = true;
      out.main.assign(reservoir_.begin() + static_cast<std::ptrdiff_t>(begin - static_cast<std::size_t>(out.main_data_begin)),
                      reservoir_.end());
      out.main.resize(out.main.size() + 8, 0);
    }
    // Keep no more than a back pointer can reach.
    if (reservoir_.size() > 4096) reservoir_.erase(reservoir_.begin(), reservoir_.end() - 4096);
    return kStsOk;
  }

 private:
  std::vector<std::uint8_t> reservoir_;
};

}  // namespace akl::test
