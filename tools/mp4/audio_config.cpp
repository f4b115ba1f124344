// AudioSpecificConfig parser; see audio_config.hpp.
#include "mp4/audio_config.hpp"

namespace mp4 {
namespace {

constexpr std::uint32_t kRates[13] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                      22050, 16000, 12000, 11025, 8000,  7350};

// MSB-first bits of [data, data + size); reads past the end return 0 and
// clear ok().
class Bits {
 public:
  Bits(const std::uint8_t* data, std::size_t size) : d_(data), bits_(static_cast<std::uint64_t>(size) * 8) {}
  std::uint32_t Get(int n) {
    if (!ok_ || bits_ - pos_ < static_cast<std::uint64_t>(n)) {
      ok_ = false;
      return 0;
    }
    std::uint32_t v = 0;
    for (int i = 0; i < n; ++i, ++pos_) v = (v << 1) | ((d_[pos_ >> 3] >> (7 - (pos_ & 7))) & 1u);
    return v;
  }
  void Skip(std::uint64_t n) {
    if (!ok_ || bits_ - pos_ < n) {
      ok_ = false;
      return;
    }
    pos_ += n;
  }
  std::uint64_t pos() const { return pos_; }
  std::uint64_t left() const { return ok_ ? bits_ - pos_ : 0; }
  bool ok() const { return ok_; }

 private:
  const std::uint8_t* d_;
  std::uint64_t bits_, pos_ = 0;
  bool ok_ = true;
};

int ObjectType(Bits& b) {
  const int t = static_cast<int>(b.Get(5));
  return t == 31 ? 32 + static_cast<int>(b.Get(6)) : t;
}

// A sampling index and, for index 15, the explicit rate; false if reserved.
bool Rate(Bits& b, int* index, std::uint32_t* rate) {
  *index = static_cast<int>(b.Get(4));
  if (*index == 15) {
    *rate = b.Get(24);
    return *rate != 0;
  }
  *rate = RateOfSamplingIndex(*index);
  return *rate != 0;
}

// Steps over a program configuration element; its byte alignment counts from
// the first byte of the config.
void SkipPce(Bits& b) {
  b.Skip(4 + 2 + 4);  // element instance tag, object type, sampling index
  const std::uint32_t front = b.Get(4), side = b.Get(4), back = b.Get(4), lfe = b.Get(2), assoc = b.Get(3),
                      cc = b.Get(4);
  if (b.Get(1)) b.Skip(4);  // mono mixdown
  if (b.Get(1)) b.Skip(4);  // stereo mixdown
  if (b.Get(1)) b.Skip(3);  // matrix mixdown
  b.Skip(5 * (front + side + back) + 4 * (lfe + assoc) + 5 * cc);
  b.Skip((8 - b.pos() % 8) % 8);
  b.Skip(8 * b.Get(8));  // comment
}

bool HasGeneralAudioPart(int t) {
  switch (t) {
    case 1: case 2: case 3: case 4: case 6: case 7: case 17: case 19: case 20: case 21: case 22: case 23:
      return true;
    default:
      return false;
  }
}

}  // namespace

std::uint32_t RateOfSamplingIndex(int index) { return index >= 0 && index < 13 ? kRates[index] : 0; }

int SamplingIndexForRate(std::uint32_t rate) {
  constexpr std::uint32_t kLowest[11] = {92017, 75132, 55426, 46009, 37566, 27713, 23004, 18783, 13856, 11502, 9391};
  for (int i = 0; i < 11; ++i)
    if (rate >= kLowest[i]) return i;
  return 11;
}

std::string ObjectTypeName(int t) {
  switch (t) {
    case 1: return "AAC Main";
    case 2: return "AAC-LC";
    case 3: return "AAC SSR";
    case 4: return "AAC LTP";
    case 5: return "HE-AAC (SBR)";
    case 6: return "AAC scalable";
    case 17: return "ER AAC-LC";
    case 19: return "ER AAC LTP";
    case 20: return "ER AAC scalable";
    case 23: return "ER AAC-LD";
    case 29: return "HE-AAC v2 (SBR+PS)";
    case 39: return "ER AAC-ELD";
    case 42: return "USAC";
    default: return "object type " + std::to_string(t);
  }
}

bool ParseAudioSpecificConfig(const std::uint8_t* data, std::size_t size, AudioSpecificConfig* config,
                              std::string* error) {
  AudioSpecificConfig c;
  if (!data || size == 0) {
    *error = "empty AudioSpecificConfig";
    return false;
  }
  Bits b(data, size);
  const int first = ObjectType(b);
  if (!Rate(b, &c.sampling_index, &c.sample_rate)) {
    *error = b.ok() ? "reserved sampling index " + std::to_string(c.sampling_index) : "AudioSpecificConfig cut short";
    return false;
  }
  c.channel_config = static_cast<int>(b.Get(4));
  c.object_type = first;
  if (first == 5 || first == 29) {
    c.sbr_signalling = SbrSignalling::kExplicit;
    c.sbr = true;
    c.ps = first == 29;
    int ext_index;
    if (!Rate(b, &ext_index, &c.extension_sample_rate)) {
      *error = b.ok() ? "reserved SBR sampling index " + std::to_string(ext_index) : "AudioSpecificConfig cut short";
      return false;
    }
    c.object_type = ObjectType(b);
    if (c.object_type == 22) b.Skip(4);  // extension channel configuration
  }
  if (!b.ok()) {
    *error = "AudioSpecificConfig cut short";
    return false;
  }
  if (!HasGeneralAudioPart(c.object_type)) {
    *error = ObjectTypeName(c.object_type) + " is not supported";
    return false;
  }
  c.band_index = c.sampling_index == 15 ? SamplingIndexForRate(c.sample_rate) : c.sampling_index;
  c.frame_length_960 = b.Get(1) != 0;
  c.depends_on_core_coder = b.Get(1) != 0;
  if (c.depends_on_core_coder) c.core_coder_delay = static_cast<int>(b.Get(14));
  c.extension_flag = b.Get(1) != 0;
  if (c.channel_config == 0) {
    c.pce_bit_offset = static_cast<int>(b.pos());
    SkipPce(b);
    c.pce_bits = static_cast<int>(b.pos()) - c.pce_bit_offset;
  }
  if (c.object_type == 6 || c.object_type == 20) b.Skip(3);  // layer number
  if (c.extension_flag) {
    if (c.object_type == 22) b.Skip(5 + 11);
    if (c.object_type == 17 || c.object_type == 19 || c.object_type == 20 || c.object_type == 23) b.Skip(3);
    b.Skip(1);  // extensionFlag3
  }
  if (c.object_type >= 17) b.Skip(2);  // error protection configuration
  if (!b.ok()) {
    *error = "AudioSpecificConfig cut short";
    return false;
  }
  // Backward-compatible signalling: a sync extension after the core config.
  if (c.sbr_signalling == SbrSignalling::kNone && b.left() >= 16) {
    if (b.Get(11) == 0x2B7) {
      const int ext = ObjectType(b);
      if (ext == 5 && b.Get(1)) {
        int ext_index;
        std::uint32_t ext_rate;
        if (Rate(b, &ext_index, &ext_rate)) {
          c.sbr = true;
          c.sbr_signalling = SbrSignalling::kBackwardCompatible;
          c.extension_sample_rate = ext_rate;
          if (b.left() >= 12 && b.Get(11) == 0x548) c.ps = b.Get(1) != 0;
        }
      }
      // A damaged extension is ignored: the core config before it stands.
    }
  }
  *config = c;
  return true;
}

}  // namespace mp4
