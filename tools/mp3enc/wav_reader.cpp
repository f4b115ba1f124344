// RIFF/WAVE reading for akl-mp3enc; see wav_reader.hpp.
#include "mp3enc/wav_reader.hpp"

#include <cstring>

namespace aklenc {

namespace {

std::uint32_t Le32(const std::uint8_t* p) {
  return std::uint32_t{p[0]} | std::uint32_t{p[1]} << 8 | std::uint32_t{p[2]} << 16 | std::uint32_t{p[3]} << 24;
}
std::uint16_t Le16(const std::uint8_t* p) { return static_cast<std::uint16_t>(p[0] | p[1] << 8); }

}  // namespace

bool WavReader::ReadBytes(void* p, std::size_t n) { return std::fread(p, 1, n, f_) == n; }

bool WavReader::Skip(std::uint64_t n) {
  std::uint8_t tmp[4096];
  while (n > 0) {
    const std::size_t k = n < sizeof tmp ? static_cast<std::size_t>(n) : sizeof tmp;
    if (std::fread(tmp, 1, k, f_) != k) return false;
    n -= k;
  }
  return true;
}

bool WavReader::Open(std::FILE* f, std::string* error) {
  f_ = f;
  std::uint8_t riff[12];
  if (!ReadBytes(riff, 12) || std::memcmp(riff, "RIFF", 4) != 0 || std::memcmp(riff + 8, "WAVE", 4) != 0) {
    *error = "not a RIFF/WAVE file";
    return false;
  }
  bool have_fmt = false;
  int format = 0, block_align = 0;
  for (;;) {
    std::uint8_t ch[8];
    if (!ReadBytes(ch, 8)) {
      *error = have_fmt ? "no data chunk" : "no fmt chunk";
      return false;
    }
    const std::uint32_t size = Le32(ch + 4);
    if (std::memcmp(ch, "fmt ", 4) == 0) {
      if (size < 16 || size > 1024) {
        *error = "fmt chunk of impossible size";
        return false;
      }
      std::uint8_t fmt[1024];
      if (!ReadBytes(fmt, size + (size & 1))) {
        *error = "file ends inside the fmt chunk";
        return false;
      }
      format = Le16(fmt);
      channels_ = Le16(fmt + 2);
      rate_ = static_cast<int>(Le32(fmt + 4));
      block_align = Le16(fmt + 12);
      bits_ = Le16(fmt + 14);
      if (format == 0xFFFE) {
        if (size < 40) {
          *error = "extensible fmt chunk too short";
          return false;
        }
        format = Le16(fmt + 24);  // first two bytes of the sub-format GUID
      }
      have_fmt = true;
      continue;
    }
    if (std::memcmp(ch, "data", 4) == 0) {
      if (!have_fmt) {
        *error = "data chunk before the fmt chunk";
        return false;
      }
      if (format == 1 && (bits_ == 16 || bits_ == 24)) {
        float_ = false;
      } else if (format == 3 && bits_ == 32) {
        float_ = true;
      } else {
        *error = "unsupported sample format (format " + std::to_string(format) + ", " + std::to_string(bits_) +
                 " bits; 16/24-bit PCM and 32-bit float are supported)";
        return false;
      }
      if (channels_ < 1 || channels_ > 2) {
        *error = "unsupported channel count " + std::to_string(channels_) + " (1 or 2 are supported)";
        return false;
      }
      if (block_align != channels_ * bits_ / 8) {
        *error = "inconsistent block alignment in the fmt chunk";
        return false;
      }
      const int frame_bytes = channels_ * bits_ / 8;
      if (size == 0 || size == 0xFFFFFFFFu) {
        unknown_size_ = true;  // streamed: read to the end
      } else {
        remaining_ = size - size % static_cast<std::uint32_t>(frame_bytes);
        declared_frames_ = static_cast<std::int64_t>(remaining_ / static_cast<std::uint32_t>(frame_bytes));
      }
      return true;
    }
    if (!Skip(std::uint64_t{size} + (size & 1))) {
      *error = "file ends inside a chunk before the data";
      return false;
    }
  }
}

int WavReader::Read(float* dst, int max_frames) {
  const int frame_bytes = channels_ * bits_ / 8;
  std::size_t want = static_cast<std::size_t>(max_frames) * static_cast<std::size_t>(frame_bytes);
  if (!unknown_size_ && want > remaining_) want = static_cast<std::size_t>(remaining_);
  if (want == 0) return 0;
  buf_.resize(want);
  const std::size_t got = std::fread(buf_.data(), 1, want, f_);
  const int frames = static_cast<int>(got / static_cast<std::size_t>(frame_bytes));
  if (got < want) {
    if (!unknown_size_) truncated_ = true;  // the header promised more
    if (got % static_cast<std::size_t>(frame_bytes) != 0) truncated_ = true;  // a partial last frame
    remaining_ = 0;
    unknown_size_ = false;
  } else if (!unknown_size_) {
    remaining_ -= got;
  }
  const std::uint8_t* p = buf_.data();
  const int n = frames * channels_;
  for (int i = 0; i < n; ++i) {
    if (float_) {
      float v;
      std::memcpy(&v, p, 4);
      if (!(v == v)) v = 0.0f;  // NaN
      dst[i] = v > 1.0f ? 1.0f : v < -1.0f ? -1.0f : v;
      p += 4;
    } else if (bits_ == 16) {
      dst[i] = static_cast<float>(static_cast<std::int16_t>(Le16(p))) * (1.0f / 32768.0f);
      p += 2;
    } else {
      const std::int32_t v = static_cast<std::int32_t>((std::uint32_t{p[0]} << 8) | (std::uint32_t{p[1]} << 16) |
                                                       (std::uint32_t{p[2]} << 24)) >> 8;
      dst[i] = static_cast<float>(v) * (1.0f / 8388608.0f);
      p += 3;
    }
  }
  frames_read_ += frames;
  return frames;
}

}  // namespace aklenc
