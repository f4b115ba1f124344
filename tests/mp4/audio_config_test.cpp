// AudioSpecificConfig: hand-built configs for every signalling form, the
// configs of real files, and every truncation.
#include "mp4/audio_config.hpp"

#include <gtest/gtest.h>

#include <initializer_list>
#include <utility>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

// (value, bit count) fields packed MSB first, zero-padded to a byte.
Bytes Pack(std::initializer_list<std::pair<std::uint32_t, int>> fields) {
  Bytes out;
  int used = 8;
  for (const auto& [v, n] : fields) {
    for (int i = n - 1; i >= 0; --i) {
      if (used == 8) {
        out.push_back(0);
        used = 0;
      }
      out.back() = static_cast<std::uint8_t>(out.back() | (((v >> i) & 1u) << (7 - used)));
      ++used;
    }
  }
  return out;
}

struct Want {
  int object_type, sampling_index;
  std::uint32_t rate;
  int band_index, channel_config;
  mp4::SbrSignalling sbr_signalling;
  bool sbr, ps;
  std::uint32_t ext_rate;
  bool frame_960;
  int pce_bit_offset, pce_bits;
};

TEST(AudioSpecificConfig, SignallingForms) {
  using S = mp4::SbrSignalling;
  const struct {
    const char* name;
    Bytes config;
    Want want;
  } kCases[] = {
      {"LC 44.1 kHz stereo", {0x12, 0x10}, {2, 4, 44100, 4, 2, S::kNone, false, false, 0, false, -1, 0}},
      {"LC, 960-sample frames", Pack({{2, 5}, {3, 4}, {1, 4}, {1, 1}, {0, 1}, {0, 1}}),
       {2, 3, 48000, 3, 1, S::kNone, false, false, 0, true, -1, 0}},
      {"Main with a core coder delay", Pack({{1, 5}, {6, 4}, {2, 4}, {0, 1}, {1, 1}, {1000, 14}, {0, 1}}),
       {1, 6, 24000, 6, 2, S::kNone, false, false, 0, false, -1, 0}},
      {"LTP", Pack({{4, 5}, {5, 4}, {1, 4}, {0, 3}}), {4, 5, 32000, 5, 1, S::kNone, false, false, 0, false, -1, 0}},
      {"SSR", Pack({{3, 5}, {8, 4}, {1, 4}, {0, 3}}), {3, 8, 16000, 8, 1, S::kNone, false, false, 0, false, -1, 0}},
      // An explicit 24-bit rate: 44 kHz is served by the 44.1 kHz tables, 9000 Hz by 8 kHz's.
      {"explicit rate", Pack({{2, 5}, {15, 4}, {44000, 24}, {2, 4}, {0, 3}}),
       {2, 15, 44000, 4, 2, S::kNone, false, false, 0, false, -1, 0}},
      {"explicit low rate", Pack({{2, 5}, {15, 4}, {9000, 24}, {1, 4}, {0, 3}}),
       {2, 15, 9000, 11, 1, S::kNone, false, false, 0, false, -1, 0}},
      // Object type 5 first: SBR at 44.1 kHz over an LC core at 22.05 kHz (a real file's config).
      {"explicit SBR", {0x2B, 0x8A, 0x08, 0x00}, {2, 7, 22050, 7, 1, S::kExplicit, true, false, 44100, false, -1, 0}},
      {"explicit PS", {0xEB, 0x8A, 0x08, 0x00}, {2, 7, 22050, 7, 1, S::kExplicit, true, true, 44100, false, -1, 0}},
      // The core config, then sync extension 0x2B7, SBR, 44.1 kHz, then 0x548 and PS.
      {"backward-compatible SBR and PS", {0x13, 0x88, 0x56, 0xE5, 0xA5, 0x48, 0x80},
       {2, 7, 22050, 7, 1, S::kBackwardCompatible, true, true, 44100, false, -1, 0}},
      {"backward-compatible SBR, flag clear", Pack({{2, 5}, {4, 4}, {2, 4}, {0, 3}, {0x2B7, 11}, {5, 5}, {0, 1}}),
       {2, 4, 44100, 4, 2, S::kNone, false, false, 0, false, -1, 0}},
      // Channel configuration 0: a program configuration element (a real 5.1 file's) and, after it, SBR.
      {"PCE, then SBR", {0x13, 0x00, 0x05, 0x8C, 0x01, 0x00, 0x01, 0x08, 0x80, 0x00, 0x56, 0xE5, 0x98},
       {2, 6, 24000, 6, 0, S::kBackwardCompatible, true, false, 48000, false, 16, 64}},
      {"PCE at 96 kHz", {0x10, 0x00, 0x04, 0x08, 0x05, 0x02, 0x01, 0x08, 0x80, 0x00, 0x00},
       {2, 0, 96000, 0, 0, S::kNone, false, false, 0, false, 16, 72}},
      {"escaped object type 32", Pack({{31, 5}, {0, 6}, {4, 4}, {2, 4}}), {}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    mp4::AudioSpecificConfig a;
    std::string error;
    const bool ok = mp4::ParseAudioSpecificConfig(c.config.data(), c.config.size(), &a, &error);
    if (c.want.object_type == 0) {  // object type 32: no general audio part
      EXPECT_FALSE(ok);
      EXPECT_EQ(error, "object type 32 is not supported");
      continue;
    }
    ASSERT_TRUE(ok) << error;
    EXPECT_EQ(a.object_type, c.want.object_type);
    EXPECT_EQ(a.sampling_index, c.want.sampling_index);
    EXPECT_EQ(a.sample_rate, c.want.rate);
    EXPECT_EQ(a.band_index, c.want.band_index);
    EXPECT_EQ(a.channel_config, c.want.channel_config);
    EXPECT_EQ(a.sbr_signalling, c.want.sbr_signalling);
    EXPECT_EQ(a.sbr, c.want.sbr);
    EXPECT_EQ(a.ps, c.want.ps);
    EXPECT_EQ(a.extension_sample_rate, c.want.ext_rate);
    EXPECT_EQ(a.frame_length_960, c.want.frame_960);
    EXPECT_EQ(a.pce_bit_offset, c.want.pce_bit_offset);
    EXPECT_EQ(a.pce_bits, c.want.pce_bits);
  }
}

TEST(AudioSpecificConfig, RefusesWhatItCannotRead) {
  const struct {
    Bytes config;
    const char* error;
  } kCases[] = {
      {{}, "empty AudioSpecificConfig"},
      {{0x12}, "AudioSpecificConfig cut short"},
      {Pack({{2, 5}, {13, 4}, {2, 4}, {0, 3}}), "reserved sampling index 13"},
      {Pack({{2, 5}, {15, 4}, {0, 24}, {2, 4}, {0, 3}}), "reserved sampling index 15"},
      {Pack({{5, 5}, {4, 4}, {2, 4}, {14, 4}, {2, 5}, {0, 3}}), "reserved SBR sampling index 14"},
      {Pack({{31, 5}, {10, 6}, {4, 4}, {2, 4}}), "USAC is not supported"},
      {Pack({{8, 5}, {4, 4}, {2, 4}}), "object type 8 is not supported"},
  };
  for (const auto& c : kCases) {
    mp4::AudioSpecificConfig a;
    std::string error;
    EXPECT_FALSE(mp4::ParseAudioSpecificConfig(c.config.data(), c.config.size(), &a, &error));
    EXPECT_EQ(error, c.error);
  }
}

// Every prefix of a config that needs all its bytes is refused (exact-size
// heap copies, so a read past the end is an AddressSanitizer report); a
// prefix that still holds the core part parses as the core alone.
TEST(AudioSpecificConfig, EveryTruncation) {
  const Bytes pce = {0x13, 0x00, 0x05, 0x8C, 0x01, 0x00, 0x01, 0x08, 0x80, 0x00, 0x56, 0xE5, 0x98};
  for (std::size_t n = 0; n < pce.size(); ++n) {
    const Bytes cut(pce.begin(), pce.begin() + static_cast<std::ptrdiff_t>(n));
    mp4::AudioSpecificConfig a;
    std::string error;
    const bool ok = mp4::ParseAudioSpecificConfig(cut.data(), cut.size(), &a, &error);
    EXPECT_EQ(ok, n >= 10) << n;  // the element ends in byte 10; the extension needs all 13
    if (ok) {
      EXPECT_FALSE(a.sbr) << n;
    }
  }
}

}  // namespace
