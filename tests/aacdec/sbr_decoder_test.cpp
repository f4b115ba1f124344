// Spectral band replication in akl-aacdec's decoder: band tables, the
// payload parser's statuses, and HE-AAC streams end to end against the
// reference decodes in tests/data/sbr (see its README), including damage.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "aacdec/aac_decoder.hpp"
#include "aacdec/sbr.hpp"

namespace {

using aacdec::SbrError;

std::vector<std::uint8_t> ReadFile(const std::string& name) {
  std::ifstream in(std::string(AKLAC_TEST_DATA_DIR) + "/sbr/" + name, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

struct Sink : aacdec::PcmSink {
  aacdec::StreamFormat format;
  std::vector<std::int16_t> pcm;
  std::vector<std::string> warnings;
  bool Format(const aacdec::StreamFormat& f) override {
    format = f;
    return true;
  }
  bool Frame(const std::int16_t* p, int frames) override {
    pcm.insert(pcm.end(), p, p + frames * format.channels);
    return true;
  }
  void Warn(const std::string& m) override { warnings.push_back(m); }
};

// k0 and k2 of the standard's start / stop tables at three SBR rates
// (copied from the reference constants), and properties of every table.
TEST(SbrTables, StartStopBandsAndShapes) {
  struct Row {
    int fs, start, stop, k0, k2;
    bool ok;  // false: refused (span above the rate's limit, or bands narrower than one subband)
  } rows[] = {
      {48000, 12, 9, 22, 45, true},  {48000, 5, 3, 13, 27, true},  {44100, 5, 7, 14, 40, true},
      {32000, 15, 13, 32, 64, true}, {24000, 3, 4, 15, 40, true},  {16000, 8, 2, 24, 50, true},
      {48000, 0, 13, 7, 64, false},  {48000, 0, 0, 7, 21, false},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.fs);
    aacdec::SbrHeader h;
    h.start_freq = r.start;
    h.stop_freq = r.stop;
    aacdec::SbrTables t;
    const SbrError e = aacdec::BuildSbrTables(h, r.fs, &t);
    EXPECT_EQ(e == SbrError::kNone, r.ok);
    if (e == SbrError::kNone) {
      EXPECT_EQ(t.k0, r.k0);
      EXPECT_EQ(t.k2, r.k2);
    }
  }
  // Linear bands of width 2 round their count to the nearest pair: the
  // header of the HE-AAC v2 check streams (44.1 kHz, k0 8, k2 43) gives 18
  // bands (the last of width 1) and six patches.
  {
    aacdec::SbrHeader h;
    h.stop_freq = 8;
    h.freq_scale = 0;
    h.alter_scale = 1;
    aacdec::SbrTables t;
    ASSERT_EQ(aacdec::BuildSbrTables(h, 44100, &t), SbrError::kNone);
    EXPECT_EQ(t.n_master, 18);
    EXPECT_EQ(t.f_master[1] - t.f_master[0], 1);
    EXPECT_EQ(t.num_patches, 6);
  }
  // Every header at 44.1 and 48 kHz output: tables are monotonic, the
  // patches tile the high band from kx without gaps, sources lie below k0.
  int built = 0;
  for (int fs : {48000, 44100, 32000}) {
    for (int start = 0; start < 16; ++start) {
      for (int stop = 0; stop < 16; ++stop) {
        for (int scale = 0; scale < 4; ++scale) {
          for (int xover = 0; xover < 8; xover += 3) {
            aacdec::SbrHeader h;
            h.start_freq = start;
            h.stop_freq = stop;
            h.freq_scale = scale;
            h.xover_band = xover;
            h.limiter_bands = (start + stop) & 3;
            aacdec::SbrTables t;
            if (aacdec::BuildSbrTables(h, fs, &t) != SbrError::kNone) continue;
            ++built;
            ASSERT_EQ(t.f_master[static_cast<std::size_t>(t.n_master)], t.k2);
            for (int i = 0; i < t.n_master; ++i) ASSERT_LT(t.f_master[i], t.f_master[i + 1]);
            ASSERT_EQ(t.f_low[0], t.kx);
            ASSERT_EQ(t.f_low[static_cast<std::size_t>(t.n_low)], t.kx + t.m);
            ASSERT_EQ(t.f_noise[static_cast<std::size_t>(t.n_q)], t.kx + t.m);
            ASSERT_LE(t.n_q, 5);
            for (int i = 0; i < t.n_lim; ++i) ASSERT_LT(t.f_lim[i], t.f_lim[i + 1]);
            int k = t.kx;
            for (int p = 0; p < t.num_patches; ++p) {
              ASSERT_GT(t.patch_bands[p], 0);
              ASSERT_GE(t.patch_start[p], 0);
              ASSERT_LE(t.patch_start[p] + t.patch_bands[p], t.k0);
              k += t.patch_bands[p];
            }
            ASSERT_LE(k, t.kx + t.m);
            ASSERT_LE(t.num_patches, 6);
          }
        }
      }
    }
  }
  EXPECT_GT(built, 1000);
}

// Status of the parser for malformed payloads, in the order it checks.
TEST(SbrParser, Statuses) {
  struct Row {
    const char* what;
    std::vector<std::uint8_t> bytes;
    SbrError want;
  } rows[] = {
      {"empty", {}, SbrError::kData},
      {"not an SBR extension", {0xC0, 0x00}, SbrError::kData},
      {"CRC that does not match", {0xE0, 0x00, 0x3F, 0xFF}, SbrError::kCrc},
      {"data before any header", {0xD0, 0x00, 0x00}, SbrError::kNoHeader},
      {"header cut short", {0xD9}, SbrError::kHeader},
      // amp 0, start 15, stop 15 (k2 = 3 k0, over the span), xover 0
      {"header whose tables cannot be built", {0xDB, 0xDE, 0x00}, SbrError::kTables},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.what);
    aacdec::SbrHeader h;
    aacdec::SbrTables t;
    bool have = false, reset = false, coupling = false;
    aacdec::SbrFrameData data[2], prev[2];
    EXPECT_EQ(aacdec::ParseSbrPayload(r.bytes.data(), static_cast<int>(r.bytes.size()), 1, 48000, &h, &have, &t,
                                      &reset, data, &coupling, prev),
              r.want);
    EXPECT_FALSE(have);
  }
}

// A real payload carried with a CRC: the header payload of frame 53 of
// al_sbr_ps_04_new (SBR header, one channel, parametric stereo in its
// extended data) as sent (extension 13), and rewritten as extension 14 with
// the 10-bit CRC (x^10 + x^9 + x^5 + x^4 + x + 1, from zero) of every bit
// after it.  Both parse alike; a flipped bit in the CRC or in the data is a
// CRC error.
TEST(SbrParser, CrcOnARealPayload) {
  const std::vector<std::uint8_t> plain = {0xdf, 0xc8, 0x00, 0x20, 0x00, 0x73, 0x36, 0x52,
                                           0x00, 0x00, 0x04, 0x2f, 0xfe, 0xff, 0xe0, 0x00};
  std::vector<int> rest;  // the bits after the extension type
  for (std::size_t i = 4; i < 8 * plain.size(); ++i) rest.push_back((plain[i / 8] >> (7 - i % 8)) & 1);
  while ((4 + 10 + rest.size()) % 8) rest.push_back(0);
  unsigned crc = 0;
  for (int bit : rest) {
    const unsigned in = static_cast<unsigned>(bit) ^ ((crc >> 9) & 1u);
    crc = (crc << 1) & 0x3FFu;
    if (in) crc ^= 0x233u;
  }
  std::vector<int> bits = {1, 1, 1, 0};
  for (int i = 9; i >= 0; --i) bits.push_back((crc >> i) & 1);
  bits.insert(bits.end(), rest.begin(), rest.end());
  std::vector<std::uint8_t> with_crc(bits.size() / 8, 0);
  for (std::size_t i = 0; i < bits.size(); ++i)
    if (bits[i]) with_crc[i / 8] = static_cast<std::uint8_t>(with_crc[i / 8] | (0x80 >> (i % 8)));
  auto parse = [](const std::vector<std::uint8_t>& bytes, aacdec::SbrFrameData* data, aacdec::PsSyntax* ps,
                  int* ps_result) {
    aacdec::SbrHeader h;
    aacdec::SbrTables t;
    bool have = false, reset = false, coupling = false;
    aacdec::SbrFrameData prev[2];
    return aacdec::ParseSbrPayload(bytes.data(), static_cast<int>(bytes.size()), 1, 32000, &h, &have, &t, &reset,
                                   data, &coupling, prev, ps, ps_result);
  };
  aacdec::SbrFrameData a[2], b[2];
  aacdec::PsSyntax pa, pb;
  int ra = 0, rb = 0;
  ASSERT_EQ(parse(plain, a, &pa, &ra), SbrError::kNone);
  ASSERT_EQ(parse(with_crc, b, &pb, &rb), SbrError::kNone);
  EXPECT_EQ(ra, 1);
  EXPECT_EQ(rb, 1);
  EXPECT_EQ(a[0].num_env, b[0].num_env);
  EXPECT_EQ(a[0].env, b[0].env);
  EXPECT_EQ(a[0].noise, b[0].noise);
  EXPECT_EQ(pa.iid, pb.iid);
  EXPECT_EQ(pa.icc, pb.icc);
  for (const std::size_t bit : {std::size_t{6}, std::size_t{40}}) {  // in the CRC, in the header
    std::vector<std::uint8_t> bad = with_crc;
    bad[bit / 8] = static_cast<std::uint8_t>(bad[bit / 8] ^ (0x80 >> (bit % 8)));
    EXPECT_EQ(parse(bad, b, &pb, &rb), SbrError::kCrc) << bit;
  }
}

double Rms(const std::vector<std::int16_t>& a, const std::vector<std::int16_t>& b, std::size_t from, int* max_diff) {
  double s = 0;
  *max_diff = 0;
  for (std::size_t i = from; i < b.size(); ++i) {
    const int d = a[i] - b[i];
    s += double(d) * d;
    *max_diff = std::max(*max_diff, std::abs(d));
  }
  return std::sqrt(s / double(b.size() - from));
}

// Conformance streams (ADTS copies: implicit signalling) against their
// reference decodes.  The cut taken from the middle of a stream starts with
// fresh filter states, so its first frames are not compared.
TEST(SbrDecoder, ConformanceStreamsMatchReference) {
  struct Row {
    const char* name;
    int channels, rate, skip_frames;
  } rows[] = {
      {"al_sbr_cm_48_2.f370-409", 2, 48000, 4},          // dual rate, channel pair, header mid-stream
      {"al_sbr_cm_48_5.1.f0-23", 6, 48000, 0},           // SCE, two CPEs, LFE
      {"al_sbr_sr_48_2_fsaac48.f0-39", 2, 48000, 0},     // down-sampled SBR on a 48 kHz core
      {"al_sbr_ps_04_new.f53-84", 2, 32000, 4},          // parametric stereo, 20 bands
      {"al_sbr_ps_06_new.f80-111", 2, 32000, 4},         // parametric stereo, unrestricted
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.name);
    const std::vector<std::uint8_t> in = ReadFile(std::string(r.name) + ".adts");
    const std::vector<std::uint8_t> ref_bytes = ReadFile(std::string(r.name) + ".s16");
    ASSERT_FALSE(in.empty());
    std::vector<std::int16_t> ref(ref_bytes.size() / 2);
    for (std::size_t i = 0; i < ref.size(); ++i)
      ref[i] = static_cast<std::int16_t>(ref_bytes[2 * i] | ref_bytes[2 * i + 1] << 8);
    Sink sink;
    aacdec::DecodeStats stats;
    std::string message;
    ASSERT_EQ(aacdec::DecodeAacBuffer(in.data(), in.size(), &sink, &stats, &message), aacdec::DecodeResult::kOk);
    EXPECT_EQ(sink.format.sample_rate, r.rate);
    EXPECT_EQ(sink.format.channels, r.channels);
    ASSERT_EQ(sink.pcm.size(), ref.size());
    const std::size_t frame = ref.size() / static_cast<std::size_t>(stats.frames);
    int max_diff = 0;
    const double rms = Rms(sink.pcm, ref, frame * static_cast<std::size_t>(r.skip_frames), &max_diff);
    EXPECT_LE(rms, 0.5);
    EXPECT_LE(max_diff, 4);
    EXPECT_TRUE(sink.warnings.empty()) << sink.warnings.front();
  }
}

// --no-sbr: the core alone, at its own rate, with one note.
TEST(SbrDecoder, CoreOnlyOnRequest) {
  const std::vector<std::uint8_t> in = ReadFile("al_sbr_cm_48_2.f370-409.adts");
  Sink sink;
  aacdec::DecodeStats stats;
  std::string message;
  aacdec::DecodeOptions options;
  options.sbr = false;
  ASSERT_EQ(aacdec::DecodeAacBuffer(in.data(), in.size(), &sink, &stats, &message, options),
            aacdec::DecodeResult::kOk);
  EXPECT_EQ(sink.format.sample_rate, 24000);
  EXPECT_EQ(sink.pcm.size(), static_cast<std::size_t>(stats.frames) * 1024 * 2);
  ASSERT_EQ(sink.warnings.size(), 1u);
  EXPECT_NE(sink.warnings[0].find("--no-sbr"), std::string::npos);
}

// Parametric stereo: --no-ps plays the mono signal; damage never changes
// the layout or the length, and each warning comes once.
TEST(SbrDecoder, ParametricStereoOptionsAndDamage) {
  const std::vector<std::uint8_t> clean = ReadFile("al_sbr_ps_04_new.f53-84.adts");
  {
    Sink sink;
    aacdec::DecodeStats stats;
    std::string message;
    aacdec::DecodeOptions options;
    options.ps = false;
    ASSERT_EQ(aacdec::DecodeAacBuffer(clean.data(), clean.size(), &sink, &stats, &message, options),
              aacdec::DecodeResult::kOk);
    EXPECT_EQ(sink.format.channels, 1);
    EXPECT_EQ(sink.format.sample_rate, 32000);
    EXPECT_EQ(sink.pcm.size(), static_cast<std::size_t>(stats.frames) * 2048);
  }
  std::mt19937 rng(21);
  for (int trial = 0; trial < 8; ++trial) {
    std::vector<std::uint8_t> in = clean;
    for (int n = 0; n < 12; ++n) {
      const std::size_t at = 7 + rng() % (in.size() - 7);
      if (in[at] == 0xFF || (at > 0 && in[at - 1] == 0xFF)) continue;
      in[at] = static_cast<std::uint8_t>(in[at] ^ (1u << (rng() % 8)));
    }
    Sink sink;
    aacdec::DecodeStats stats;
    std::string message;
    if (aacdec::DecodeAacBuffer(in.data(), in.size(), &sink, &stats, &message) != aacdec::DecodeResult::kOk) continue;
    EXPECT_EQ(sink.format.channels, 2);
    EXPECT_EQ(sink.pcm.size(), static_cast<std::size_t>(stats.samples) * 2);
    EXPECT_EQ(stats.samples, stats.frames * 2048);
    std::set<std::string> seen;
    for (const std::string& w : sink.warnings) EXPECT_TRUE(seen.insert(w).second) << "repeated: " << w;
  }
}

// Damaged streams: every block still comes out at the doubled rate (SBR
// dropped or the block concealed), and each kind of SBR damage is reported
// at most once.  (The payload parser alone is fuzzed by sbr_fuzzer.)
TEST(SbrDecoder, DamageKeepsRateAndLength) {
  const std::vector<std::uint8_t> clean = ReadFile("al_sbr_cm_48_2.f370-409.adts");
  std::mt19937 rng(20);
  std::set<std::string> kinds;
  for (int trial = 0; trial < 8; ++trial) {
    std::vector<std::uint8_t> in = clean;
    for (int n = 0; n < 24; ++n) {
      const std::size_t at = 7 + rng() % (in.size() - 7);
      if (in[at] == 0xFF || (at > 0 && in[at - 1] == 0xFF)) continue;  // keep the frame sync findable
      in[at] = static_cast<std::uint8_t>(in[at] ^ (1u << (rng() % 8)));
    }
    Sink sink;
    aacdec::DecodeStats stats;
    std::string message;
    const aacdec::DecodeResult res = aacdec::DecodeAacBuffer(in.data(), in.size(), &sink, &stats, &message);
    if (res != aacdec::DecodeResult::kOk) continue;
    EXPECT_EQ(sink.format.sample_rate, 48000);
    EXPECT_EQ(sink.pcm.size(), static_cast<std::size_t>(stats.samples) * 2);
    EXPECT_EQ(stats.samples, stats.frames * 2048);
    std::set<std::string> seen;
    for (const std::string& w : sink.warnings) {
      if (w.rfind("SBR payload", 0) != 0) continue;
      EXPECT_TRUE(seen.insert(w).second) << "repeated: " << w;
      kinds.insert(w);
    }
  }
  EXPECT_LE(kinds.size(), 5u);
}

}  // namespace
