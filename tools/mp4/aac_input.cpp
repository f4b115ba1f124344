// akl-aacdec's input layer; see aac_input.hpp.
#include "mp4/aac_input.hpp"

#include <vector>

#include "mp4/audio_config.hpp"
#include "mp4/bmff.hpp"
#include "mp4/trim.hpp"

namespace aacdec {
namespace {

// Passes on what the gapless window lets through; the window is set when the
// output rate is known.
class TrimSink : public PcmSink {
 public:
  TrimSink(PcmSink* out, const mp4::Movie& movie, const mp4::Track& track, std::uint32_t stream_rate, bool gapless)
      : out_(out), movie_(movie), track_(track), stream_rate_(stream_rate), gapless_(gapless) {}
  bool Format(const StreamFormat& format) override {
    channels_ = format.channels;
    if (gapless_) {
      const mp4::Trim t = mp4::GaplessTrim(movie_, track_, static_cast<std::uint32_t>(format.sample_rate), stream_rate_);
      window_ = mp4::SampleWindow(t.skip, t.limited, t.keep);
    }
    return out_->Format(format);
  }
  bool Frame(const std::int16_t* pcm, int frames) override {
    std::uint64_t first = 0, count = 0;
    window_.Take(static_cast<std::uint64_t>(frames), &first, &count);
    if (count == 0) return true;
    return out_->Frame(pcm + first * static_cast<std::uint64_t>(channels_), static_cast<int>(count));
  }
  void Warn(const std::string& message) override { out_->Warn(message); }
  void Progress(std::size_t consumed, std::size_t total) override { out_->Progress(consumed, total); }
  std::uint64_t passed() const { return window_.passed(); }

 private:
  PcmSink* out_;
  const mp4::Movie& movie_;
  const mp4::Track& track_;
  std::uint32_t stream_rate_;
  bool gapless_;
  int channels_ = 0;
  mp4::SampleWindow window_;
};

DecodeResult DecodeMp4(const std::uint8_t* data, std::size_t size, const InputOptions& options, PcmSink* sink,
                       DecodeStats* stats, std::string* message, std::string* damage) {
  mp4::Movie movie;
  std::string error, note;
  if (!mp4::ReadMovie(data, size, &movie, &error)) {
    *message = "damaged MP4 file: " + error;
    return DecodeResult::kNoAudio;
  }
  const int index = mp4::SelectAudioTrack(movie, mp4::Codec::kAac, &note, &error);
  if (index < 0) {
    *message = "MP4 file with " + error;
    if (error.find("MPEG audio") != std::string::npos) *message += "; akl-mp3dec decodes it";
    return DecodeResult::kRefused;
  }
  const mp4::Track& track = movie.tracks[static_cast<std::size_t>(index)];
  for (const std::string& w : movie.warnings) sink->Warn(w);
  if (!note.empty()) sink->Warn(note);
  if (track.decoder_config.empty()) {
    *message = "the AAC track has no decoder configuration (AudioSpecificConfig)";
    return DecodeResult::kRefused;
  }
  mp4::AudioSpecificConfig asc;
  if (!mp4::ParseAudioSpecificConfig(track.decoder_config.data(), track.decoder_config.size(), &asc, &error)) {
    *message = "AAC track: " + error;
    return DecodeResult::kRefused;
  }
  if (asc.object_type > 4) {
    *message = mp4::ObjectTypeName(asc.object_type) + " is not supported (AAC Main, LC and LTP are, with SBR)";
    return DecodeResult::kRefused;
  }
  if (asc.frame_length_960) {
    *message = "frames of 960 samples (frameLengthFlag) are not supported";
    return DecodeResult::kRefused;
  }
  if (asc.depends_on_core_coder) {
    *message = "AAC layered on a core coder is not supported";
    return DecodeResult::kRefused;
  }
  if (options.gapless && track.edit_count > 1 && track.empty_edit_duration == 0)
    sink->Warn("the edit list has " + std::to_string(track.edit_count) + " entries; only the first is applied");
  RawConfig config;
  config.object_type = asc.object_type;
  config.sampling_index = asc.band_index;
  config.sample_rate = static_cast<int>(asc.sample_rate);
  config.channel_config = asc.channel_config;
  if (asc.channel_config == 0) {
    config.pce = track.decoder_config.data();
    config.pce_size = track.decoder_config.size();
    config.pce_bit = asc.pce_bit_offset;
  }
  if (asc.sbr) config.sbr_rate = static_cast<int>(asc.extension_sample_rate);
  config.ps = asc.sbr && asc.ps;
  std::vector<AccessUnit> units;
  units.reserve(track.samples.size());
  for (const mp4::SampleRef& s : track.samples) units.push_back({data + s.offset, s.size});
  // iTunSMPB counts core samples, whether or not SBR doubles the output.
  TrimSink trimmed(sink, movie, track, asc.sample_rate, options.gapless);
  DecodeOptions decode;
  decode.sbr = options.sbr;
  decode.ps = options.ps;
  const DecodeResult r = DecodeAacAccessUnits(config, units.data(), units.size(), &trimmed, stats, message, decode);
  stats->samples = static_cast<long>(trimmed.passed());
  if (damage) *damage = movie.damage;
  return r;
}

}  // namespace

std::size_t Id3v2TagsLength(const std::uint8_t* data, std::size_t size) {
  std::size_t pos = 0;
  while (size - pos >= 10 && data[pos] == 'I' && data[pos + 1] == 'D' && data[pos + 2] == '3' && data[pos + 3] != 0xFF &&
         data[pos + 4] != 0xFF && !((data[pos + 6] | data[pos + 7] | data[pos + 8] | data[pos + 9]) & 0x80)) {
    const std::size_t body = (static_cast<std::size_t>(data[pos + 6]) << 21) | (static_cast<std::size_t>(data[pos + 7]) << 14) |
                             (static_cast<std::size_t>(data[pos + 8]) << 7) | data[pos + 9];
    const std::size_t tag = 10 + body + ((data[pos + 5] & 0x10) ? 10 : 0);
    if (tag > size - pos) return size;  // a tag running to the end: nothing follows it
    pos += tag;
  }
  return pos;
}

DecodeResult DecodeAacInput(const std::uint8_t* data, std::size_t size, const InputOptions& options, PcmSink* sink,
                            DecodeStats* stats, std::string* message, std::string* damage) {
  if (damage) damage->clear();
  if (mp4::LooksLikeIsoBmff(data, size)) return DecodeMp4(data, size, options, sink, stats, message, damage);
  const std::size_t tags = Id3v2TagsLength(data, size);
  DecodeOptions decode;
  decode.sbr = options.sbr;
  decode.ps = options.ps;
  return DecodeAacBuffer(data + tags, size - tags, sink, stats, message, decode);
}

}  // namespace aacdec
