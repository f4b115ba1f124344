// Decodes the bundled Layer III streams with akl-mp3dec's engine and compares
// them with their reference decodes: the ISO/IEC 11172-4 compliance streams
// and the MPEG-2 LSF streams (16-bit references), and the test vectors whose
// references are float decodes (clipped to the 16-bit range before
// comparing).  Prints one row per stream (RMS and maximum difference in
// 16-bit steps) and exits non-zero if any stream is past its bounds.
//
// usage: mp3_accuracy DATA_DIR [--quiet]
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "mp3_model.hpp"
#include "mp3dec/mp3_stream.hpp"

namespace {

class MemorySink : public aklmp3::PcmSink {
 public:
  void Format(int rate, int channels) override {
    rate_ = rate;
    channels_ = channels;
  }
  void Write(const std::int16_t* s, std::size_t frames) override {
    pcm_.insert(pcm_.end(), s, s + frames * static_cast<std::size_t>(channels_));
  }
  std::vector<std::int16_t> pcm_;
  int rate_ = 0, channels_ = 0;
};

std::vector<std::uint8_t> Read(const std::string& path) {
  std::vector<std::uint8_t> d;
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return d;
  unsigned char buf[65536];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) d.insert(d.end(), buf, buf + n);
  std::fclose(f);
  return d;
}

std::vector<double> S16(const std::vector<std::uint8_t>& b) {
  std::vector<double> v(b.size() / 2);
  for (std::size_t i = 0; i < v.size(); ++i) v[i] = static_cast<std::int16_t>(b[2 * i] | (b[2 * i + 1] << 8));
  return v;
}

std::vector<double> F32Clipped(const std::vector<std::uint8_t>& b) {
  std::vector<double> v(b.size() / 4);
  for (std::size_t i = 0; i < v.size(); ++i) {
    float f;
    std::memcpy(&f, b.data() + 4 * i, 4);
    v[i] = std::clamp(static_cast<double>(f) * 32768.0, -32768.0, 32767.0);
  }
  return v;
}

struct Figures {
  double rms = 0, max = 0;
  std::size_t n = 0;
};

Figures Compare(const std::vector<std::int16_t>& got, std::size_t got_from, const std::vector<double>& ref,
                std::size_t ref_from, std::size_t count) {
  Figures f;
  double sum = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const double g = got_from + i < got.size() ? got[got_from + i] : 0.0;
    const double d = g - ref[ref_from + i];
    sum += d * d;
    f.max = std::max(f.max, std::fabs(d));
  }
  f.n = count;
  f.rms = count ? std::sqrt(sum / static_cast<double>(count)) : 0;
  return f;
}

enum class Kind { kIso, kLsf, kFloat, kHeMode, kSin1k, kModel };

struct Stream {
  const char* file;
  const char* ref;
  Kind kind;
  double rms_bound, max_bound;
};

const Stream kStreams[] = {
    {"conformance/mp3/compl.bit", "conformance/mp3/compl.pcm", Kind::kIso, 0.15, 1},
    {"conformance/mp3/he_32khz.bit", "conformance/mp3/he_32khz.pcm", Kind::kIso, 0.15, 1},
    {"conformance/mp3/he_44khz.bit", "conformance/mp3/he_44khz.pcm", Kind::kIso, 0.15, 1},
    {"conformance/mp3/he_48khz.bit", "conformance/mp3/he_48khz.pcm", Kind::kIso, 0.15, 1},
    {"conformance/mp3/he_free.bit", "conformance/mp3/he_free.pcm", Kind::kIso, 0.15, 1},
    {"conformance/mp3/he_mode.bit", "conformance/mp3/he_mode.pcm", Kind::kHeMode, 0.15, 1},
    {"conformance/mp3/hecommon.bit", "conformance/mp3/hecommon.pcm", Kind::kIso, 0.15, 1},
    {"conformance/mp3/si.bit", "conformance/mp3/si.pcm", Kind::kIso, 0.15, 1},
    {"conformance/mp3/si_block.bit", "conformance/mp3/si_block.pcm", Kind::kIso, 0.15, 1},
    {"conformance/mp3/si_huff.bit", "conformance/mp3/si_huff.pcm", Kind::kIso, 0.15, 1},
    {"conformance/mp3/sin1k0db.bit", "conformance/mp3/sin1k0db.pcm", Kind::kSin1k, 0.15, 1},
    {"conformance/mp3/M2L3_bitrate_16_all.bit", "conformance/mp3/M2L3_bitrate_16_all.pcm", Kind::kLsf, 0.15, 1},
    {"conformance/mp3/M2L3_bitrate_22_all.bit", "conformance/mp3/M2L3_bitrate_22_all.pcm", Kind::kLsf, 0.15, 1},
    {"conformance/mp3/M2L3_bitrate_24_all.bit", "conformance/mp3/M2L3_bitrate_24_all.pcm", Kind::kLsf, 0.15, 1},
    {"conformance/mp3/M2L3_compl24.bit", "conformance/mp3/M2L3_compl24.pcm", Kind::kLsf, 0.15, 1},
    {"conformance/mp3/M2L3_noise.bit", "conformance/mp3/M2L3_noise.pcm", Kind::kLsf, 0.15, 1},
    {"mp3_ref/mp3_m1_44k1_js_128_music.mp3", "mp3_ref/mp3_m1_44k1_js_128_music.mp3.mpg123.f32", Kind::kFloat, 0.35, 1},
    {"mp3_ref/mp3_m1_48k_st_160_crc_clicks.mp3", "mp3_ref/mp3_m1_48k_st_160_crc_clicks.mp3.mpg123.f32", Kind::kFloat,
     0.35, 1},
    {"mp3_ref/mp3_m2_22k05_mono_40_speech.mp3", "mp3_ref/mp3_m2_22k05_mono_40_speech.mp3.mpg123.f32", Kind::kFloat,
     0.35, 1},
    {"mp3_ref/mp3_m2_24k_js_64_crc_clicks.mp3", "mp3_ref/mp3_m2_24k_js_64_crc_clicks.mp3.mpg123.f32", Kind::kFloat,
     0.35, 1},
    // Loud material (tests/e2e_aac/make_loud_corpus.sh: lame without a LAME tag,
    // mpg123's 16-bit decode).
    {"loud/mp3_sine_mono_64.mp3", "loud/mp3_sine_mono_64.mp3.mpg123.s16", Kind::kIso, 0.35, 1},
    {"loud/mp3_square_st_320.mp3", "loud/mp3_square_st_320.mp3.mpg123.s16", Kind::kIso, 0.35, 1},
    {"loud/mp3_noise_st_192.mp3", "loud/mp3_noise_st_192.mp3.mpg123.s16", Kind::kIso, 0.35, 1},
    {"loud/mp3_noise_mono_128.mp3", "loud/mp3_noise_mono_128.mp3.mpg123.s16", Kind::kIso, 0.35, 1},
    {"loud/mp3_mix_st_128.mp3", "loud/mp3_mix_st_128.mp3.mpg123.s16", Kind::kIso, 0.35, 1},
    {"loud/mp3_mix_mono_96.mp3", "loud/mp3_mix_mono_96.mp3.mpg123.s16", Kind::kIso, 0.35, 1},
    // MPEG-2 joint stereo (intensity with mid/side) on which other decoders
    // disagree: against the double-precision model (mp3_model.cpp).
    {"mp3_nonstandard/l3-test45.bit", "", Kind::kModel, 0.35, 1},
    {"mp3_nonstandard/l3-test46.bit", "", Kind::kModel, 0.35, 1},
};

// The model itself against ISO decodes: mixed, start and stop blocks
// (si_block), MPEG-2 (M2L3_compl24, M2L3_noise, whose one intensity frame
// is silent), long streams (compl).
const Stream kModelChecks[] = {
    {"conformance/mp3/si_block.bit", "conformance/mp3/si_block.pcm", Kind::kIso, 0.15, 1},
    {"conformance/mp3/compl.bit", "conformance/mp3/compl.pcm", Kind::kIso, 0.15, 1},
    {"conformance/mp3/M2L3_compl24.bit", "conformance/mp3/M2L3_compl24.pcm", Kind::kLsf, 0.15, 1},
    {"conformance/mp3/M2L3_noise.bit", "conformance/mp3/M2L3_noise.pcm", Kind::kLsf, 0.15, 1},
};

std::vector<double> ModelDecode(const std::string& dir, const std::vector<std::uint8_t>& bits) {
  std::vector<std::int16_t> pcm;
  int channels = 0;
  if (!mp3model::Decode(dir, bits, mp3model::Variant{}, &pcm, &channels)) return {};
  return std::vector<double>(pcm.begin(), pcm.end());
}

// he_mode's reference holds each frame in its own channel count: 10 mono
// frames, 100 two-channel frames, 18 mono frames.  Mono frames are written
// to both channels here, as the decoder does.
std::vector<double> ExpandHeMode(const std::vector<double>& ref) {
  std::vector<double> out;
  std::size_t pos = 0;
  const int pattern[3][2] = {{10, 1}, {100, 2}, {18, 1}};
  for (const auto& p : pattern)
    for (int f = 0; f < p[0]; ++f)
      for (int i = 0; i < 1152; ++i) {
        if (p[1] == 1) {
          out.push_back(ref[pos]);
          out.push_back(ref[pos]);
          pos += 1;
        } else {
          out.push_back(ref[pos]);
          out.push_back(ref[pos + 1]);
          pos += 2;
        }
      }
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: mp3_accuracy DATA_DIR [--quiet]\n");
    return 2;
  }
  const std::string dir = argv[1];
  const bool quiet = argc > 2 && std::strcmp(argv[2], "--quiet") == 0;
  int failures = 0;
  std::printf("%-28s %6s %3s %9s %8s %6s %6s  %s\n", "stream", "rate", "ch", "compared", "rms", "max", "bound",
              "note");
  for (const Stream& s : kStreams) {
    const std::vector<std::uint8_t> bits = Read(dir + "/" + s.file);
    const std::vector<std::uint8_t> refb = s.kind == Kind::kModel ? std::vector<std::uint8_t>{} : Read(dir + "/" + s.ref);
    const char* name = std::strrchr(s.file, '/') + 1;
    std::vector<double> ref = s.kind == Kind::kModel ? ModelDecode(dir, bits)
                              : s.kind == Kind::kFloat ? F32Clipped(refb)
                                                       : S16(refb);
    if (bits.empty() || ref.empty()) {
      std::printf("%-28s missing data\n", name);
      ++failures;
      continue;
    }
    MemorySink sink;
    const aklmp3::DecodeStats st = aklmp3::DecodeBuffer(bits.data(), bits.size(), aklmp3::DecodeOptions{}, &sink);
    const auto ch = static_cast<std::size_t>(sink.channels_);
    Figures f;
    std::string note;
    if (s.kind == Kind::kHeMode) {
      ref = ExpandHeMode(ref);
      f = Compare(sink.pcm_, 0, ref, 0, ref.size());
      note = "mono frames compared as L = R";
    } else if (s.kind == Kind::kSin1k) {
      // Reference frame k lines up with a decoder frame k + lag; reference
      // frame 0 depends on the missing reservoir.  Compare reference frames
      // 1..314 at the lag (0..4 frames) that fits best.
      const std::size_t frame = 1152 * ch;
      Figures best;
      int best_lag = -1;
      for (int lag = 0; lag <= 4; ++lag) {
        const Figures t = Compare(sink.pcm_, frame * static_cast<std::size_t>(1 + lag), ref, frame, frame * 314);
        if (best_lag < 0 || t.rms < best.rms) {
          best = t;
          best_lag = lag;
        }
      }
      f = best;
      note = "reference frames 1..314 at a lag of " + std::to_string(best_lag) + " frames";
    } else {
      const std::size_t n = ref.size();
      f = Compare(sink.pcm_, 0, ref, 0, n);
      if (sink.pcm_.size() < n) note = "decode shorter than reference";
      if (s.kind == Kind::kModel) note += "against the double-precision model";
    }
    if (st.damaged) note += (note.empty() ? "" : "; ") + std::to_string(st.damaged) + " damaged";
    const bool ok = f.rms <= s.rms_bound && f.max <= s.max_bound && sink.pcm_.size() >= (s.kind == Kind::kSin1k ? 0 : ref.size());
    if (!ok) ++failures;
    if (!quiet || !ok)
      std::printf("%-28s %6d %3d %9zu %8.4f %6.3f %6.2f  %s%s\n", name, sink.rate_, sink.channels_, f.n, f.rms, f.max,
                  s.rms_bound, ok ? "" : "FAIL ", note.c_str());
  }
  for (const Stream& s : kModelChecks) {
    const std::vector<std::uint8_t> bits = Read(dir + "/" + s.file);
    const std::vector<double> ref = S16(Read(dir + "/" + s.ref));
    const std::vector<double> model = ModelDecode(dir, bits);
    std::vector<std::int16_t> m(model.begin(), model.end());
    const Figures f = Compare(m, 0, ref, 0, ref.size());
    const bool ok = !ref.empty() && m.size() >= ref.size() && f.rms <= s.rms_bound && f.max <= s.max_bound;
    if (!ok) ++failures;
    if (!quiet || !ok)
      std::printf("%-28s %6s %3s %9zu %8.4f %6.3f %6.2f  %sthe model against the ISO decode\n", std::strrchr(s.file, '/') + 1,
                  "", "", f.n, f.rms, f.max, s.rms_bound, ok ? "" : "FAIL ");
  }
  std::printf("%s\n", failures ? "some streams are past their bounds" : "all streams within bounds");
  return failures ? 1 : 0;
}
