// Both decoders' MP4 input end to end: sample counts after gapless trimming,
// accuracy against ffmpeg's decodes of the same files, the container found
// by content, ID3v2 tags before ADTS, Layer III access units that carry
// their own main data, and damaged files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "mp4/aac_input.hpp"
#include "mp4/bmff.hpp"
#include "mp4/mp3_input.hpp"
#include "support/test_util.hpp"

namespace {

using Bytes = std::vector<std::uint8_t>;

class AacCollect : public aacdec::PcmSink {
 public:
  bool Format(const aacdec::StreamFormat& f) override {
    format = f;
    return true;
  }
  bool Frame(const std::int16_t* p, int frames) override {
    pcm.insert(pcm.end(), p, p + static_cast<std::ptrdiff_t>(frames) * format.channels);
    return true;
  }
  void Warn(const std::string& m) override { warnings.push_back(m); }
  aacdec::StreamFormat format;
  std::vector<std::int16_t> pcm;
  std::vector<std::string> warnings;
};

class Mp3Collect : public aklmp3::PcmSink {
 public:
  void Format(int rate, int ch) override {
    sample_rate = rate;
    channels = ch;
  }
  void Write(const std::int16_t* s, std::size_t frames) override {
    pcm.insert(pcm.end(), s, s + frames * static_cast<std::size_t>(channels));
  }
  int sample_rate = 0, channels = 0;
  std::vector<std::int16_t> pcm;
};

struct AacRun {
  aacdec::DecodeResult result;
  aacdec::DecodeStats stats;
  std::string message;
  AacCollect out;
};

void DecodeAac(const Bytes& in, bool gapless, AacRun* r) {
  aacdec::InputOptions options;
  options.gapless = gapless;
  r->result = aacdec::DecodeAacInput(in.data(), in.size(), options, &r->out, &r->stats, &r->message);
}

std::vector<std::int16_t> ReadS16(const std::string& name) {
  const Bytes b = akl::test::ReadFile(akl::test::DataPath(name));
  std::vector<std::int16_t> v(b.size() / 2);
  for (std::size_t i = 0; i < v.size(); ++i) v[i] = static_cast<std::int16_t>(b[2 * i] | (b[2 * i + 1] << 8));
  return v;
}

TEST(Mp4Decode, AacSampleCountsAndAccuracy) {
  // Reference: ffmpeg's decode (which keeps the padding: compared over the
  // samples both have).  aac-2048-priming.mov substitutes noise in nearly
  // every frame and each decoder draws its own: where the noise is loud (the
  // first frames) ffmpeg and faad2 differ from each other by up to 5 steps.
  const struct {
    const char* file;
    const char* ref;
    int channels;
    long samples;            // per channel, trimmed
    long untrimmed;          // per channel, --no-gapless
    double max_rms;
    int max_error;
  } kCases[] = {
      {"mp4/102400samples_qt-lc-aac.m4a", "mp4/102400samples_qt-lc-aac.m4a.head.s16", 2, 102400, 103 * 1024, 0.35, 1},
      {"mp4/440hz-10ms.m4a", "mp4/440hz-10ms.m4a.s16", 1, 441, 3 * 1024, 0.35, 1},
      // Over the whole file RMS 0.317, max 4 (docs/mp4-input.md).
      {"mp4/aac-2048-priming.mov", "mp4/aac-2048-priming.mov.head.s16", 1, 217 * 1024 - 2048, 217 * 1024, 0.45, 4},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.file);
    const Bytes in = akl::test::ReadFile(akl::test::DataPath(c.file));
    AacRun r;
    DecodeAac(in, true, &r);
    ASSERT_EQ(r.result, aacdec::DecodeResult::kOk) << r.message;
    EXPECT_TRUE(r.out.warnings.empty()) << r.out.warnings[0];
    EXPECT_EQ(r.out.format.channels, c.channels);
    EXPECT_EQ(r.out.format.sample_rate, 44100);
    EXPECT_EQ(static_cast<long>(r.out.pcm.size()), c.samples * c.channels);
    EXPECT_EQ(r.stats.samples, c.samples);
    const std::vector<std::int16_t> ref = ReadS16(c.ref);
    const std::size_t n = std::min(ref.size(), r.out.pcm.size());
    ASSERT_GT(n, 0u);
    double se = 0;
    int max = 0;
    for (std::size_t i = 0; i < n; ++i) {
      const int d = r.out.pcm[i] - ref[i];
      se += static_cast<double>(d) * d;
      max = std::max(max, std::abs(d));
    }
    EXPECT_LE(std::sqrt(se / static_cast<double>(n)), c.max_rms);
    EXPECT_LE(max, c.max_error);
    AacRun all;
    DecodeAac(in, false, &all);
    ASSERT_EQ(all.result, aacdec::DecodeResult::kOk);
    EXPECT_EQ(static_cast<long>(all.out.pcm.size()), c.untrimmed * c.channels);
    // Trimming only cuts: the trimmed output is a stretch of the untrimmed one.
    const long skip = c.file == std::string("mp4/aac-2048-priming.mov") ? 2048 : 2112;
    EXPECT_TRUE(std::equal(r.out.pcm.begin(), r.out.pcm.end(), all.out.pcm.begin() + skip * c.channels));
  }
}

TEST(Mp4Decode, SbrStreamTrimsInCoreSamples) {
  // iTunSMPB says priming 2336 and length 16000 at the 8 kHz core; SBR
  // doubles the output, so 4672 samples go and 32000 (2 s) stay.
  const Bytes in = akl::test::ReadFile(akl::test::DataPath("mp4/tones_nero_16000_stereo_aac_he.m4a"));
  AacRun whole, trimmed;
  DecodeAac(in, false, &whole);
  DecodeAac(in, true, &trimmed);
  ASSERT_EQ(trimmed.result, aacdec::DecodeResult::kOk) << trimmed.message;
  EXPECT_EQ(trimmed.out.format.sample_rate, 16000);
  ASSERT_EQ(trimmed.out.format.channels, 2);
  ASSERT_EQ(trimmed.out.pcm.size(), 2u * 32000);
  ASSERT_GE(whole.out.pcm.size(), 2u * (4672 + 32000));
  EXPECT_TRUE(std::equal(trimmed.out.pcm.begin(), trimmed.out.pcm.end(), whole.out.pcm.begin() + 2 * 4672));
}

TEST(Mp4Decode, FragmentedFileGivesTheSameAudio) {
  AacRun plain, fragmented;
  DecodeAac(akl::test::ReadFile(akl::test::DataPath("mp4/440hz-10ms.m4a")), false, &plain);
  DecodeAac(akl::test::ReadFile(akl::test::DataPath("mp4/440hz-10ms_fragmented.m4a")), true, &fragmented);
  ASSERT_EQ(fragmented.result, aacdec::DecodeResult::kOk) << fragmented.message;
  EXPECT_EQ(fragmented.out.pcm, plain.out.pcm);  // the rewrite lost the edit list: nothing is trimmed
}

// ID3v2 tags in front of ADTS are passed over (also tags whose bytes look
// like ADTS sync words); the audio is the same as without them.
TEST(Mp4Decode, Id3v2TagsBeforeAdts) {
  const Bytes adts = akl::test::ReadFile(akl::test::DataPath("aac_ref/aac_lc_22k05_mono_32_speech.aac"));
  AacRun plain;
  DecodeAac(adts, true, &plain);
  ASSERT_EQ(plain.result, aacdec::DecodeResult::kOk);
  Bytes tag = {'I', 'D', '3', 3, 0, 0, 0, 0, 2, 0};  // 256 bytes of body
  for (int i = 0; i < 256; ++i) tag.push_back(i % 2 ? 0xF1 : 0xFF);
  Bytes footer_tag = {'I', 'D', '3', 4, 0, 0x10, 0, 0, 0, 20};  // 20 bytes of body and a footer
  footer_tag.resize(10 + 20 + 10, 0xFF);
  const struct {
    const char* name;
    Bytes prefix;
  } kCases[] = {{"one tag", tag}, {"two tags, the second with a footer", [&] {
                                     Bytes b = tag;
                                     b.insert(b.end(), footer_tag.begin(), footer_tag.end());
                                     return b;
                                   }()}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    Bytes in = c.prefix;
    in.insert(in.end(), adts.begin(), adts.end());
    EXPECT_EQ(aacdec::Id3v2TagsLength(in.data(), in.size()), c.prefix.size());
    AacRun r;
    DecodeAac(in, true, &r);
    ASSERT_EQ(r.result, aacdec::DecodeResult::kOk);
    EXPECT_EQ(r.out.pcm, plain.out.pcm);
    EXPECT_EQ(r.stats.skipped_bytes, plain.stats.skipped_bytes);
  }
  // A tag that claims more than the file: nothing after it.
  const Bytes huge = {'I', 'D', '3', 3, 0, 0, 0x7F, 0x7F, 0x7F, 0x7F, 0xFF, 0xF1};
  EXPECT_EQ(aacdec::Id3v2TagsLength(huge.data(), huge.size()), huge.size());
}

TEST(Mp4Decode, RefusalsSayWhy) {
  const Bytes m4a = akl::test::ReadFile(akl::test::DataPath("mp4/440hz-10ms.m4a"));
  const Bytes mp3_in_mp4 = akl::test::ReadFile(akl::test::DataPath("mp4/packed_maindata_40.mp4"));
  // The AudioSpecificConfig of 440hz-10ms.m4a (LC, 44.1 kHz, mono) is the two bytes 0x12 0x08.
  const auto with_config = [&](std::uint8_t b0, std::uint8_t b1) {
    Bytes f = m4a;
    for (std::size_t i = 0; i + 3 < f.size(); ++i)
      if (f[i] == 0x02 && f[i + 1] == 0x12 && f[i + 2] == 0x08) {  // its length, then the config
        f[i + 1] = b0;
        f[i + 2] = b1;
        return f;
      }
    ADD_FAILURE() << "config not found";
    return f;
  };
  const struct {
    const char* name;
    Bytes file;
    aacdec::DecodeResult result;
    const char* message;
  } kCases[] = {
      {"MP3 track", mp3_in_mp4, aacdec::DecodeResult::kRefused,
       "MP4 file with no AAC track (the audio is MPEG audio (Layer I-III)); akl-mp3dec decodes it"},
      {"960-sample frames", with_config(0x12, 0x0C), aacdec::DecodeResult::kRefused,
       "frames of 960 samples (frameLengthFlag) are not supported"},
      {"SSR profile", with_config(0x1A, 0x08), aacdec::DecodeResult::kRefused,
       "AAC SSR profile stream: its gain control is not supported (Main, LC and LTP are)"},
      // Error-resilient object types need two more bits than these two bytes hold.
      {"ER AAC-LC", with_config(0x8A, 0x08), aacdec::DecodeResult::kRefused, "AAC track: AudioSpecificConfig cut short"},
      {"truncated movie box", Bytes(m4a.begin(), m4a.begin() + 200), aacdec::DecodeResult::kNoAudio,
       "damaged MP4 file: the movie box (moov) is truncated"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    AacRun r;
    DecodeAac(c.file, true, &r);
    EXPECT_EQ(r.result, c.result);
    EXPECT_EQ(r.message, c.message);
    EXPECT_TRUE(r.out.pcm.empty());
  }
  Mp3Collect sink;
  std::string refusal;
  std::vector<std::string> warnings;
  const aklmp3::DecodeStats st = aklmp3::DecodeInput(m4a.data(), m4a.size(), {}, &sink, &refusal, &warnings);
  EXPECT_EQ(st.frames, 0);
  EXPECT_EQ(refusal, "MP4 file with no MPEG audio track (the audio is AAC); akl-aacdec decodes it");
}

// HE-AAC signalled in the config: the core is decoded, with one warning.
// With --no-sbr an SBR-signalled configuration gives the core and one note
// (without it, band replication runs: tests/sbr).
TEST(Mp4Decode, SbrSignalledDecodesTheCoreWithOneWarning) {
  const std::uint8_t unit = 0;
  AacCollect out;
  aacdec::DecodeStats stats;
  std::string message;
  aacdec::RawConfig config;
  config.object_type = 2;
  config.sampling_index = 4;
  config.sample_rate = 44100;
  config.channel_config = 1;
  config.sbr_rate = 88200;
  const aacdec::AccessUnit none[1] = {{&unit, 0}};
  aacdec::DecodeOptions core_only;
  core_only.sbr = false;
  const auto r = aacdec::DecodeAacAccessUnits(config, none, 0, &out, &stats, &message, core_only);
  EXPECT_EQ(r, aacdec::DecodeResult::kNoAudio);
  EXPECT_EQ(message, "no access units in the track");
  ASSERT_EQ(out.warnings.size(), 1u);
  EXPECT_EQ(out.warnings[0].rfind("HE-AAC stream: ", 0), 0u) << out.warnings[0];
}

// Layer III units that carry their own main data (more or less than their
// header's frame length): decoded unit by unit, they give exactly what the
// same frames give as an ordinary stream at a bit rate whose frames hold them.
TEST(Mp4Decode, Mp3UnitsCarryingTheirOwnMainData) {
  const Bytes file = akl::test::ReadFile(akl::test::DataPath("mp4/packed_maindata_40.mp4"));
  Mp3Collect units;
  std::string refusal;
  std::vector<std::string> warnings;
  const aklmp3::DecodeStats st = aklmp3::DecodeInput(file.data(), file.size(), {}, &units, &refusal, &warnings);
  ASSERT_TRUE(refusal.empty()) << refusal;
  EXPECT_TRUE(warnings.empty());
  EXPECT_EQ(st.frames, 40);
  EXPECT_EQ(st.damaged, 0);
  EXPECT_EQ(units.sample_rate, 44100);
  ASSERT_EQ(units.channels, 2);
  EXPECT_EQ(units.pcm.size(), 40u * 1152 * 2);
  // The same frames as a 320 kbit/s stream: every main_data_begin is 0, so
  // each frame padded with zeros to 1044 bytes is an ordinary frame.
  mp4::Movie m;
  std::string error;
  ASSERT_TRUE(mp4::ReadMovie(file.data(), file.size(), &m, &error));
  Bytes stream;
  for (const mp4::SampleRef& s : m.tracks[0].samples) {
    ASSERT_LE(s.size, 1044u);
    Bytes frame(file.begin() + static_cast<std::ptrdiff_t>(s.offset),
                file.begin() + static_cast<std::ptrdiff_t>(s.offset + s.size));
    ASSERT_EQ((frame[4] << 1) | (frame[5] >> 7), 0);  // main_data_begin
    frame[2] = static_cast<std::uint8_t>((frame[2] & 0x0D) | 0xE0);  // bit rate index 14, no padding
    frame.resize(1044, 0);
    stream.insert(stream.end(), frame.begin(), frame.end());
  }
  Mp3Collect plain;
  aklmp3::DecodeOptions no_trim;
  no_trim.gapless = false;
  aklmp3::DecodeBuffer(stream.data(), stream.size(), no_trim, &plain);
  EXPECT_EQ(plain.pcm, units.pcm);
}

// A file cut inside its media data: the audio of the units before the cut,
// and the damage named.
TEST(Mp4Decode, TruncatedFileKeepsTheAudioBeforeTheCut) {
  const Bytes m4a = akl::test::ReadFile(akl::test::DataPath("mp4/102400samples_qt-lc-aac.m4a"));
  AacRun whole, cut;
  std::string damage;
  aacdec::InputOptions options;
  whole.result = aacdec::DecodeAacInput(m4a.data(), m4a.size(), options, &whole.out, &whole.stats, &whole.message, &damage);
  ASSERT_EQ(whole.result, aacdec::DecodeResult::kOk);
  EXPECT_TRUE(damage.empty());
  const Bytes head(m4a.begin(), m4a.begin() + 4000);
  cut.result = aacdec::DecodeAacInput(head.data(), head.size(), options, &cut.out, &cut.stats, &cut.message, &damage);
  ASSERT_EQ(cut.result, aacdec::DecodeResult::kOk);
  EXPECT_EQ(damage, "the file ends inside box 'mdat' (offset 1358): it is truncated");
  ASSERT_EQ(cut.out.warnings.size(), 2u);
  EXPECT_EQ(cut.out.warnings[1],
            "track 1: 74 of 103 access units lie inside the file (it is truncated or its tables are damaged)");
  EXPECT_EQ(cut.out.pcm.size(), (74u * 1024 - 2112) * 2);
  EXPECT_TRUE(std::equal(cut.out.pcm.begin(), cut.out.pcm.end(), whole.out.pcm.begin()));
}

// Damaged files: every truncation and a sweep of byte flips end with a
// status and a message or with audio, never a crash or a read outside the
// input (exact-size copies under the sanitizers).
TEST(Mp4Decode, DamagedFilesNeverCrash) {
  const Bytes m4a = akl::test::ReadFile(akl::test::DataPath("mp4/440hz-10ms.m4a"));
  for (std::size_t n = 0; n <= m4a.size(); n += 17) {
    const Bytes cut(m4a.begin(), m4a.begin() + static_cast<std::ptrdiff_t>(n));
    AacRun r;
    DecodeAac(cut, true, &r);
    if (r.result != aacdec::DecodeResult::kOk) {
      EXPECT_FALSE(r.message.empty()) << n;
    }
  }
  for (std::size_t i = 0; i < m4a.size(); i += 9) {
    Bytes f = m4a;
    f[i] ^= static_cast<std::uint8_t>(0x5A + i);
    AacRun r;
    DecodeAac(f, true, &r);
    if (r.result != aacdec::DecodeResult::kOk) {
      EXPECT_FALSE(r.message.empty()) << i;
    }
  }
  const Bytes mp3 = akl::test::ReadFile(akl::test::DataPath("mp4/packed_maindata_40.mp4"));
  for (std::size_t n = 0; n <= mp3.size(); n += 97) {
    const Bytes cut(mp3.begin(), mp3.begin() + static_cast<std::ptrdiff_t>(n));
    Mp3Collect sink;
    std::string refusal;
    std::vector<std::string> warnings;
    const aklmp3::DecodeStats st = aklmp3::DecodeInput(cut.data(), cut.size(), {}, &sink, &refusal, &warnings);
    EXPECT_TRUE(st.frames > 0 || !refusal.empty() || n < 8) << n;
  }
}

}  // namespace
