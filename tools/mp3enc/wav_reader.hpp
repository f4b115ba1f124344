// Streaming reader of RIFF/WAVE files: 16- and 24-bit integer PCM and 32-bit
// float, one or two channels (plain or WAVE_FORMAT_EXTENSIBLE headers),
// from a file or a pipe.  Samples come out as floats of full scale 1.0.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace aklenc {

class WavReader {
 public:
  // Reads the header up to the start of the sample data.  On failure returns
  // false with a one-line reason in *error.
  bool Open(std::FILE* f, std::string* error);

  int rate() const { return rate_; }
  int channels() const { return channels_; }
  int bits() const { return bits_; }
  bool is_float() const { return float_; }
  // Frames the header announces, or -1 when the size is unknown (streamed
  // files with a zero or all-ones data size).
  std::int64_t declared_frames() const { return declared_frames_; }

  // Reads up to max_frames frames, interleaved, into dst; returns the count
  // (0 at the end).  A data chunk that ends early (a truncated file) ends
  // the audio there; truncated() then says so.
  int Read(float* dst, int max_frames);
  bool truncated() const { return truncated_; }
  std::int64_t frames_read() const { return frames_read_; }

 private:
  bool ReadBytes(void* p, std::size_t n);
  bool Skip(std::uint64_t n);

  std::FILE* f_ = nullptr;
  int rate_ = 0, channels_ = 0, bits_ = 0;
  bool float_ = false;
  std::int64_t declared_frames_ = -1;
  std::uint64_t remaining_ = 0;  // bytes of sample data still to read (when known)
  bool unknown_size_ = false;
  bool truncated_ = false;
  std::int64_t frames_read_ = 0;
  std::vector<std::uint8_t> buf_;
};

}  // namespace aklenc
