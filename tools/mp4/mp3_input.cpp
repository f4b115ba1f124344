// akl-mp3dec's input layer; see mp3_input.hpp.
#include "mp4/mp3_input.hpp"

#include "mp4/bmff.hpp"
#include "mp4/trim.hpp"

namespace aklmp3 {
namespace {

class TrimSink : public PcmSink {
 public:
  TrimSink(PcmSink* out, const mp4::Movie& movie, const mp4::Track& track, bool gapless)
      : out_(out), movie_(movie), track_(track), gapless_(gapless) {}
  void Format(int sample_rate, int channels) override {
    channels_ = channels;
    if (gapless_) {
      const mp4::Trim t = mp4::GaplessTrim(movie_, track_, static_cast<std::uint32_t>(sample_rate));
      window_ = mp4::SampleWindow(t.skip, t.limited, t.keep);
    }
    out_->Format(sample_rate, channels);
  }
  void Write(const std::int16_t* samples, std::size_t frames) override {
    std::uint64_t first = 0, count = 0;
    window_.Take(frames, &first, &count);
    if (count) out_->Write(samples + first * static_cast<std::uint64_t>(channels_), static_cast<std::size_t>(count));
  }
  void Progress(std::size_t consumed, std::size_t total) override { out_->Progress(consumed, total); }
  std::uint64_t passed() const { return window_.passed(); }

 private:
  PcmSink* out_;
  const mp4::Movie& movie_;
  const mp4::Track& track_;
  bool gapless_;
  int channels_ = 0;
  mp4::SampleWindow window_;
};

}  // namespace

DecodeStats DecodeInput(const std::uint8_t* data, std::size_t size, const DecodeOptions& options, PcmSink* sink,
                        std::string* refusal, std::vector<std::string>* warnings, std::string* damage) {
  refusal->clear();
  if (damage) damage->clear();
  if (!mp4::LooksLikeIsoBmff(data, size)) return DecodeBuffer(data, size, options, sink);
  mp4::Movie movie;
  std::string error, note;
  if (!mp4::ReadMovie(data, size, &movie, &error)) {
    *refusal = "damaged MP4 file: " + error;
    return DecodeStats();
  }
  const int index = mp4::SelectAudioTrack(movie, mp4::Codec::kMp3, &note, &error);
  if (index < 0) {
    *refusal = "MP4 file with " + error;
    if (error.find("AAC") != std::string::npos) *refusal += "; akl-aacdec decodes it";
    return DecodeStats();
  }
  const mp4::Track& track = movie.tracks[static_cast<std::size_t>(index)];
  *warnings = movie.warnings;
  if (!note.empty()) warnings->push_back(note);
  std::vector<AccessUnit> units;
  units.reserve(track.samples.size());
  for (const mp4::SampleRef& s : track.samples) units.push_back({data + s.offset, s.size});
  TrimSink trimmed(sink, movie, track, options.gapless);
  DecodeStats stats = DecodeUnits(units.data(), units.size(), &trimmed, options);
  stats.samples_out = trimmed.passed();
  if (damage) *damage = movie.damage;
  return stats;
}

}  // namespace aklmp3
