// akl-aacdec's decoder on memory buffers: hand-made streams for the paths the
// conformance material does not reach (ADIF, several raw data blocks per ADTS
// frame, HE-AAC signalling, refused object types), and damaged streams.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "aacdec/aac_decoder.hpp"

namespace {

std::vector<std::uint8_t> ReadBytes(const std::string& name) {
  std::ifstream f(std::string(AKLAC_E2E_DATA_DIR) + "/" + name, std::ios::binary);
  return std::vector<std::uint8_t>((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
}

struct Sink : aacdec::PcmSink {
  bool Format(const aacdec::StreamFormat& f) override {
    format = f;
    ++formats;
    return true;
  }
  bool Frame(const std::int16_t* p, int frames) override {
    pcm.insert(pcm.end(), p, p + static_cast<std::size_t>(frames) * static_cast<std::size_t>(format.channels));
    return true;
  }
  void Warn(const std::string& m) override { warnings.push_back(m); }
  aacdec::StreamFormat format;
  int formats = 0;
  std::vector<std::int16_t> pcm;
  std::vector<std::string> warnings;
};

struct Outcome {
  aacdec::DecodeResult result;
  aacdec::DecodeStats stats;
  Sink sink;
  std::string message;
  long pcm_frames() const { return sink.format.channels ? static_cast<long>(sink.pcm.size()) / sink.format.channels : 0; }
};

Outcome Decode(const std::vector<std::uint8_t>& data) {
  Outcome r;
  r.result = aacdec::DecodeAacBuffer(data.data(), data.size(), &r.sink, &r.stats, &r.message);
  return r;
}

class BitWriter {
 public:
  void Put(std::uint32_t v, int n) {
    for (int i = n - 1; i >= 0; --i) {
      if (bit_ == 0) bytes_.push_back(0);
      bytes_.back() = static_cast<std::uint8_t>(bytes_.back() | (((v >> i) & 1u) << (7 - bit_)));
      bit_ = (bit_ + 1) & 7;
    }
  }
  void Align() { bit_ = 0; }
  std::vector<std::uint8_t>& bytes() { return bytes_; }

 private:
  std::vector<std::uint8_t> bytes_;
  int bit_ = 0;
};

// A silent individual channel stream: long window, max_sfb 0 (no sections,
// scale factors or spectrum), no pulse, TNS or gain control.
void SilentIcs(BitWriter& w) {
  w.Put(100, 8);  // global gain
  w.Put(0, 1);    // reserved
  w.Put(0, 2);    // only long
  w.Put(0, 1);    // sine
  w.Put(0, 6);    // max_sfb
  w.Put(0, 1);    // no predictor data
  w.Put(0, 3);
}

// id 0 SCE, 1 CPE (without a common window), 3 LFE.
void SilentElement(BitWriter& w, int id, int tag) {
  w.Put(static_cast<std::uint32_t>(id), 3);
  w.Put(static_cast<std::uint32_t>(tag), 4);
  if (id == 1) w.Put(0, 1);
  SilentIcs(w);
  if (id == 1) SilentIcs(w);
}

// A silent mono raw data block, optionally with a fill element carrying
// extension payload `ext`.
void SilentBlock(BitWriter& w, int ext) {
  SilentElement(w, 0, 0);
  if (ext >= 0) {
    w.Put(6, 3);  // FIL
    w.Put(2, 4);  // two bytes
    w.Put(static_cast<std::uint32_t>(ext) << 4, 8);
    w.Put(0, 8);
  }
  w.Put(7, 3);  // END
  w.Align();
}

std::vector<std::uint8_t> Adts(int profile, int config, int blocks, const std::vector<std::uint8_t>& p,
                               bool crc = false) {
  // With CRC: block positions (blocks - 1) and the header CRC follow the
  // header (the words are not checked, so any value does).
  const int extra = crc ? 2 * blocks : 0;
  const int len = 7 + extra + static_cast<int>(p.size());
  BitWriter h;
  h.Put(0xFFF, 12);
  h.Put(0, 1);  // MPEG-4
  h.Put(0, 2);
  h.Put(crc ? 0 : 1, 1);  // protection absent
  h.Put(static_cast<std::uint32_t>(profile), 2);
  h.Put(4, 4);  // 44100 Hz
  h.Put(0, 1);
  h.Put(static_cast<std::uint32_t>(config), 3);
  h.Put(0, 4);
  h.Put(static_cast<std::uint32_t>(len), 13);
  h.Put(0x7FF, 11);
  h.Put(static_cast<std::uint32_t>(blocks - 1), 2);
  for (int i = 0; i < extra; ++i) h.Put(0xA5, 8);
  auto out = h.bytes();
  out.insert(out.end(), p.begin(), p.end());
  return out;
}

std::vector<std::uint8_t> AdtsFrame(int profile, int blocks, int ext) {
  BitWriter payload;
  for (int b = 0; b < blocks; ++b) SilentBlock(payload, ext);
  return Adts(profile, 1, blocks, payload.bytes());
}

TEST(AacDecoder, ChannelConfigurationsAndMasks) {
  const struct {
    int config;
    std::vector<int> ids;
    int channels;
    std::uint32_t mask;
  } rows[] = {
      {1, {0}, 1, 0x4},           {2, {1}, 2, 0x3},
      {3, {0, 1}, 3, 0x7},        {4, {0, 1, 0}, 4, 0x107},
      {5, {0, 1, 1}, 5, 0x37},    {6, {0, 1, 1, 3}, 6, 0x3F},
      {7, {0, 1, 1, 1, 3}, 8, 0xFF},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.config);
    std::vector<std::uint8_t> s;
    for (int f = 0; f < 2; ++f) {
      BitWriter w;
      int tag = 0;
      for (int id : row.ids) SilentElement(w, id, tag++);
      w.Put(7, 3);
      w.Align();
      const auto frame = Adts(1, row.config, 1, w.bytes());
      s.insert(s.end(), frame.begin(), frame.end());
    }
    Outcome r = Decode(s);
    ASSERT_EQ(r.result, aacdec::DecodeResult::kOk) << r.message;
    EXPECT_EQ(r.sink.format.channels, row.channels);
    EXPECT_EQ(r.sink.format.channel_mask, row.mask);
    EXPECT_EQ(r.stats.damaged, 0);
    EXPECT_EQ(r.sink.pcm.size(), 2u * 1024 * static_cast<std::size_t>(row.channels));
  }
  // A frame whose elements do not match its configuration is concealed.
  BitWriter w;
  SilentElement(w, 1, 0);
  w.Put(7, 3);
  w.Align();
  auto s = AdtsFrame(1, 1, -1);
  const auto bad = Adts(1, 1, 1, w.bytes());
  s.insert(s.end(), bad.begin(), bad.end());
  Outcome r = Decode(s);
  ASSERT_EQ(r.result, aacdec::DecodeResult::kOk);
  EXPECT_EQ(r.stats.frames, 2);
  EXPECT_EQ(r.stats.damaged, 1);
}

TEST(AacDecoder, SilentFramesAndSeveralBlocksPerFrame) {
  std::vector<std::uint8_t> s;
  for (int i = 0; i < 3; ++i) {
    const auto f = AdtsFrame(1, i == 1 ? 3 : 1, -1);
    s.insert(s.end(), f.begin(), f.end());
  }
  Outcome r = Decode(s);
  ASSERT_EQ(r.result, aacdec::DecodeResult::kOk) << r.message;
  EXPECT_EQ(r.sink.format.channels, 1);
  EXPECT_EQ(r.sink.format.sample_rate, 44100);
  EXPECT_EQ(r.sink.format.channel_mask, 0x4u);
  EXPECT_EQ(r.stats.frames, 5);
  EXPECT_EQ(r.stats.damaged, 0);
  ASSERT_EQ(r.sink.pcm.size(), 5u * 1024);
  for (auto v : r.sink.pcm) ASSERT_EQ(v, 0);
  EXPECT_TRUE(r.sink.warnings.empty());
}

// Frames with CRC words: one block (the CRC after the header), and two blocks
// (their positions and the header CRC, then a CRC after each block).
TEST(AacDecoder, FramesWithCrc) {
  BitWriter one;
  SilentBlock(one, -1);
  BitWriter two;
  SilentBlock(two, -1);
  two.Put(0x1234, 16);  // CRC of block 1
  SilentBlock(two, -1);
  two.Put(0x5678, 16);  // CRC of block 2
  auto s = Adts(1, 1, 1, one.bytes(), true);
  const auto f2 = Adts(1, 1, 2, two.bytes(), true);
  s.insert(s.end(), f2.begin(), f2.end());
  Outcome r = Decode(s);
  ASSERT_EQ(r.result, aacdec::DecodeResult::kOk) << r.message;
  EXPECT_EQ(r.stats.frames, 3);
  EXPECT_EQ(r.stats.damaged, 0);
  EXPECT_EQ(r.stats.skipped_bytes, 0);
}

// An SBR payload (implicit signalling) turns on band replication from the
// first frame: on this 44.1 kHz core it runs down-sampled, so the rate is
// kept; --no-sbr plays the core alone, with one note.
TEST(AacDecoder, HeAacCoreDecodedWithOneWarning) {
  std::vector<std::uint8_t> s;
  for (int i = 0; i < 4; ++i) {
    const auto f = AdtsFrame(1, 1, 13);
    s.insert(s.end(), f.begin(), f.end());
  }
  Outcome r = Decode(s);
  ASSERT_EQ(r.result, aacdec::DecodeResult::kOk) << r.message;
  EXPECT_EQ(r.stats.frames, 4);
  EXPECT_EQ(r.sink.format.sample_rate, 44100);
  EXPECT_EQ(r.pcm_frames(), 4 * 1024);
  EXPECT_TRUE(r.sink.warnings.empty());
  Outcome core;
  aacdec::DecodeOptions options;
  options.sbr = false;
  core.result = aacdec::DecodeAacBuffer(s.data(), s.size(), &core.sink, &core.stats, &core.message, options);
  ASSERT_EQ(core.result, aacdec::DecodeResult::kOk) << core.message;
  EXPECT_EQ(core.sink.format.sample_rate, 44100);
  EXPECT_EQ(core.pcm_frames(), 4 * 1024);
  ASSERT_EQ(core.sink.warnings.size(), 1u);
  EXPECT_NE(core.sink.warnings[0].find("AAC-LC core"), std::string::npos);
}

TEST(AacDecoder, SsrRefused) {
  const struct { int profile; const char* word; } rows[] = {{2, "SSR"}};
  for (const auto& row : rows) {
    Outcome r = Decode(AdtsFrame(row.profile, 1, -1));
    EXPECT_EQ(r.result, aacdec::DecodeResult::kRefused);
    EXPECT_NE(r.message.find(row.word), std::string::npos) << r.message;
    EXPECT_EQ(r.sink.formats, 0);
  }
}

TEST(AacDecoder, NoStreamInGarbage) {
  std::vector<std::uint8_t> junk(5000);
  std::mt19937 rng(7);
  for (auto& b : junk) b = static_cast<std::uint8_t>(rng() & 0xEF);  // no 0xFF: no sync
  Outcome r = Decode(junk);
  EXPECT_EQ(r.result, aacdec::DecodeResult::kNoAudio);
  EXPECT_FALSE(r.message.empty());
  EXPECT_EQ(Decode({}).result, aacdec::DecodeResult::kNoAudio);
}

// The same raw data blocks carried by ADIF (header, one program configuration
// element, blocks back to back) decode to the same samples as by ADTS.
// A program configuration element for one channel pair at 44.1 kHz
// (object type 1: LC), byte-aligned before its empty comment (the writer's
// alignment matches the stream's in both uses below).
void PutPce(BitWriter& w, int object_type) {
  w.Put(0, 4);  // tag
  w.Put(static_cast<std::uint32_t>(object_type), 2);
  w.Put(4, 4);  // 44100 Hz
  w.Put(1, 4);  // one front element
  w.Put(0, 4 + 4 + 2 + 3 + 4);
  w.Put(0, 3);  // no mixdowns
  w.Put(1, 1);  // front element: a channel pair
  w.Put(0, 4);  // with tag 0
  w.Align();
  w.Put(0, 8);  // no comment
}

std::vector<std::uint8_t> AdifHeader(int object_type) {
  BitWriter w;
  for (char c : std::string("ADIF")) w.Put(static_cast<std::uint8_t>(c), 8);
  w.Put(0, 1);        // no copyright id
  w.Put(0, 2);        // original, home
  w.Put(1, 1);        // variable rate: no buffer fullness
  w.Put(128000, 23);  // bit rate
  w.Put(0, 4);        // one program configuration element
  PutPce(w, object_type);
  w.Align();
  return w.bytes();
}

TEST(AacDecoder, AdifMatchesAdts) {
  const auto adts = ReadBytes("aac_ref/aac_lc_44k1_st_128_mix_msall_is_tns.aac");
  ASSERT_FALSE(adts.empty());
  auto adif = AdifHeader(1);
  std::size_t pos = 0;
  int frames = 0;
  while (pos + 7 <= adts.size()) {
    const int len = ((adts[pos + 3] & 3) << 11) | (adts[pos + 4] << 3) | (adts[pos + 5] >> 5);
    const int header = (adts[pos + 1] & 1) ? 7 : 9;
    adif.insert(adif.end(), adts.begin() + static_cast<long>(pos) + header, adts.begin() + static_cast<long>(pos) + len);
    pos += static_cast<std::size_t>(len);
    ++frames;
  }
  Outcome a = Decode(adts);
  Outcome b = Decode(adif);
  ASSERT_EQ(b.result, aacdec::DecodeResult::kOk) << b.message;
  EXPECT_TRUE(b.sink.format.adif);
  EXPECT_EQ(b.sink.format.channels, 2);
  EXPECT_EQ(b.stats.frames, frames);
  EXPECT_EQ(b.stats.damaged, 0);
  EXPECT_EQ(a.sink.pcm, b.sink.pcm);
  // The same with an SSR program configuration: refused.
  auto ssr_profile = AdifHeader(2);
  ssr_profile.insert(ssr_profile.end(), adif.begin() + static_cast<long>(AdifHeader(1).size()), adif.end());
  Outcome m = Decode(ssr_profile);
  EXPECT_EQ(m.result, aacdec::DecodeResult::kRefused);
  EXPECT_NE(m.message.find("SSR"), std::string::npos) << m.message;
}

// Damaged streams: flipped bits, cut frames and byte runs never crash (the
// sanitizers watch), and what cannot be decoded is concealed and counted.
TEST(AacDecoder, DamagedStreamsAreConcealed) {
  const char* files[] = {"aac_ref/aac_lc_48k_st_64_mix_is_pns.aac", "conformance/aac/al07_96.adts",
                         "conformance/aac/al15_44.adts", "aac_ref/aac_lc_32k_st_96_clicks_tns.aac"};
  std::mt19937 rng(20261122);
  for (const char* name : files) {
    SCOPED_TRACE(name);
    const auto clean = ReadBytes(name);
    ASSERT_FALSE(clean.empty());
    const Outcome ref = Decode(clean);
    ASSERT_EQ(ref.stats.damaged, 0);
    for (int trial = 0; trial < 6; ++trial) {
      auto bad = clean;
      std::uniform_int_distribution<std::size_t> at(0, bad.size() - 1);
      const int kind = trial % 3;
      if (kind == 0) {
        for (int i = 0; i < 40; ++i) bad[at(rng)] ^= static_cast<std::uint8_t>(1u << (rng() % 8));
      } else if (kind == 1) {
        const std::size_t from = at(rng);
        bad.erase(bad.begin() + static_cast<long>(from), bad.begin() + static_cast<long>(std::min(bad.size(), from + 300)));
      } else {
        const std::size_t from = at(rng);
        for (std::size_t i = from; i < std::min(bad.size(), from + 200); ++i) bad[i] = static_cast<std::uint8_t>(rng());
      }
      Outcome r = Decode(bad);
      if (r.result == aacdec::DecodeResult::kOk) {
        EXPECT_EQ(r.sink.pcm.size() % static_cast<std::size_t>(r.sink.format.channels * 1024), 0u);
        EXPECT_GT(r.stats.frames, ref.stats.frames / 2);
      }
    }
  }
}

// A damaged frame length of 8191 must not swallow the good frames it covers:
// with every 7th frame's length damaged, every other frame still decodes.
TEST(AacDecoder, DamagedFrameLengthDoesNotSwallowFrames) {
  auto s = ReadBytes("aac_ref/aac_lc_44k1_st_128_mix_msall_is_tns.aac");
  ASSERT_FALSE(s.empty());
  const Outcome clean = Decode(s);
  std::size_t pos = 0;
  int frame = 0, damaged = 0;
  while (pos + 7 <= s.size()) {
    const std::size_t len = static_cast<std::size_t>(((s[pos + 3] & 3) << 11) | (s[pos + 4] << 3) | (s[pos + 5] >> 5));
    if (frame % 7 == 3) {
      s[pos + 3] |= 3;
      s[pos + 4] = 0xFF;
      s[pos + 5] |= 0xE0;
      ++damaged;
    }
    pos += len;
    ++frame;
  }
  const Outcome r = Decode(s);
  ASSERT_EQ(r.result, aacdec::DecodeResult::kOk);
  EXPECT_EQ(r.stats.frames, clean.stats.frames);
  EXPECT_LE(r.stats.damaged, damaged);
  EXPECT_EQ(r.sink.pcm.size(), clean.sink.pcm.size());
}

// A first header damaged into another profile does not refuse an AAC-LC
// stream: the frame is passed over and the rest decodes.
TEST(AacDecoder, OneDamagedProfileDoesNotRefuseTheStream) {
  auto s = ReadBytes("aac_ref/aac_lc_22k05_mono_32_speech.aac");
  ASSERT_FALSE(s.empty());
  const Outcome clean = Decode(s);
  s[2] &= 0x3F;  // profile 0: Main
  const Outcome r = Decode(s);
  ASSERT_EQ(r.result, aacdec::DecodeResult::kOk) << r.message;
  EXPECT_EQ(r.stats.frames, clean.stats.frames - 1);
}

// A frame damaged into a program configuration element of another object
// type (a Main-profile one here) is concealed like any damage; it does not
// refuse the AAC-LC stream that follows.
TEST(AacDecoder, ConfigurationOfAnotherObjectTypeIsDamage) {
  const auto s = ReadBytes("aac_ref/aac_lc_44k1_st_128_mix_msall_is_tns.aac");
  ASSERT_FALSE(s.empty());
  const Outcome clean = Decode(s);
  BitWriter body;
  body.Put(5, 3);  // program configuration element
  PutPce(body, 0);  // object type 0: Main
  body.Put(7, 3);  // END
  body.Align();
  const std::uint32_t len = static_cast<std::uint32_t>(7 + body.bytes().size());
  BitWriter frame;
  frame.Put(0xFFF, 12);
  frame.Put(0, 1);  // MPEG-4
  frame.Put(0, 2);  // layer
  frame.Put(1, 1);  // no CRC
  frame.Put(1, 2);  // profile 1: LC
  frame.Put(4, 4);  // 44100 Hz
  frame.Put(0, 1);
  frame.Put(2, 3);  // channel configuration 2
  frame.Put(0, 4);  // original, home, copyright bits
  frame.Put(len, 13);
  frame.Put(0x7FF, 11);
  frame.Put(0, 2);  // one raw data block
  std::vector<std::uint8_t> bad = frame.bytes();
  bad.insert(bad.end(), body.bytes().begin(), body.bytes().end());
  bad.insert(bad.end(), s.begin(), s.end());
  const Outcome r = Decode(bad);
  ASSERT_EQ(r.result, aacdec::DecodeResult::kOk) << r.message;
  EXPECT_EQ(r.stats.damaged, 1);
  EXPECT_EQ(r.stats.frames, clean.stats.frames + 1);
}

// A first header damaged into another channel configuration does not fix
// the channel count: blocks that do not fit it are held back, the elements
// of the clean blocks decide (the eighth single-pair block), and the decoder
// goes back to the first held block, so that nothing is lost.
TEST(AacDecoder, DamagedFirstConfigurationDoesNotFixTheChannels) {
  auto s = ReadBytes("aac_ref/aac_lc_44k1_st_128_mix_msall_is_tns.aac");
  ASSERT_FALSE(s.empty());
  const Outcome clean = Decode(s);
  ASSERT_EQ(clean.sink.format.channels, 2);
  s[2] = static_cast<std::uint8_t>(s[2] & ~1);  // configuration 2 -> 1: mono
  s[3] = static_cast<std::uint8_t>((s[3] & 0x3F) | 0x40);
  const Outcome r = Decode(s);
  ASSERT_EQ(r.result, aacdec::DecodeResult::kOk) << r.message;
  EXPECT_EQ(r.sink.format.channels, 2);
  EXPECT_EQ(r.sink.formats, 1);
  EXPECT_EQ(r.stats.frames, clean.stats.frames);
  EXPECT_EQ(r.stats.damaged, 0);
  EXPECT_EQ(r.sink.pcm, clean.sink.pcm);
}

TEST(AacDecoder, TruncatedLastFrameIsConcealed) {
  auto s = ReadBytes("aac_ref/aac_lc_22k05_mono_32_speech.aac");
  ASSERT_FALSE(s.empty());
  const Outcome full = Decode(s);
  // Cut the stream in the middle of frame 20.
  std::size_t pos = 0;
  for (int i = 0; i < 19; ++i) pos += static_cast<std::size_t>(((s[pos + 3] & 3) << 11) | (s[pos + 4] << 3) | (s[pos + 5] >> 5));
  const std::size_t len = static_cast<std::size_t>(((s[pos + 3] & 3) << 11) | (s[pos + 4] << 3) | (s[pos + 5] >> 5));
  s.resize(pos + len / 2);
  const Outcome cut = Decode(s);
  ASSERT_EQ(cut.result, aacdec::DecodeResult::kOk);
  EXPECT_EQ(cut.stats.frames, 20);
  EXPECT_EQ(cut.stats.damaged, 1);
  // Everything before the cut frame is unchanged.
  ASSERT_EQ(cut.sink.pcm.size(), 20u * 1024);
  for (std::size_t i = 0; i < 19u * 1024; ++i) ASSERT_EQ(cut.sink.pcm[i], full.sink.pcm[i]) << i;
}

std::vector<std::int16_t> S16(const std::vector<std::uint8_t>& b) {
  std::vector<std::int16_t> v(b.size() / 2);
  for (std::size_t i = 0; i < v.size(); ++i) v[i] = static_cast<std::int16_t>(b[2 * i] | (b[2 * i + 1] << 8));
  return v;
}

// A clipped square wave beside a full-scale sine: the decoded signal passes
// full scale, and the output is clipped there (as the reference is), never
// wrapped; everywhere else it is within a step of the reference.
TEST(AacDecoder, FullScaleClipsAndNeverWraps) {
  const auto stream = ReadBytes("loud/aac_square_st_64.aac");
  const auto ref = S16(ReadBytes("loud/aac_square_st_64.aac.ffmpeg.s16"));
  ASSERT_FALSE(stream.empty());
  const Outcome r = Decode(stream);
  ASSERT_EQ(r.result, aacdec::DecodeResult::kOk) << r.message;
  EXPECT_EQ(r.stats.damaged, 0);
  ASSERT_EQ(r.sink.pcm.size(), ref.size());
  int clipped = 0;
  for (std::size_t i = 0; i < ref.size(); ++i) {
    const int ours = r.sink.pcm[i], theirs = ref[i];
    clipped += ours == 32767 || ours == -32768;
    ASSERT_LE(std::abs(ours - theirs), 1) << i;
    if (theirs == 32767) {
      ASSERT_GE(ours, 32766) << i;
    }
    if (theirs == -32768) {
      ASSERT_LE(ours, -32767) << i;
    }
  }
  EXPECT_GT(clipped, 100);
}

// Streams whose noise energies lie far below their scale factors (the
// encoder's default noise substitution on a quiet tone): every frame
// decodes, none is concealed, and the tone matches the reference closely
// (its noise bands are far below it).
TEST(AacDecoder, NoiseEnergiesFarFromScaleFactorsDecode) {
  const struct {
    const char* name;
    long frames;
  } rows[] = {{"loud/pns_tone44_st_128", 45}, {"loud/pns_tone22_mono_64", 23}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const Outcome r = Decode(ReadBytes(std::string(row.name) + ".aac"));
    const auto ref = S16(ReadBytes(std::string(row.name) + ".aac.ffmpeg.s16"));
    ASSERT_EQ(r.result, aacdec::DecodeResult::kOk) << r.message;
    EXPECT_EQ(r.stats.frames, row.frames);
    EXPECT_EQ(r.stats.damaged, 0);
    ASSERT_EQ(r.sink.pcm.size(), ref.size());
    double sum = 0;
    for (std::size_t i = 0; i < ref.size(); ++i) sum += (r.sink.pcm[i] - ref[i]) * (r.sink.pcm[i] - ref[i]);
    EXPECT_LT(std::sqrt(sum / static_cast<double>(ref.size())), 1.0);
  }
}

// The frames of a stream, as byte ranges.
std::vector<std::pair<std::size_t, std::size_t>> AdtsFrames(const std::vector<std::uint8_t>& s) {
  std::vector<std::pair<std::size_t, std::size_t>> f;
  for (std::size_t pos = 0; pos + 7 <= s.size();) {
    const std::size_t len = static_cast<std::size_t>(((s[pos + 3] & 3) << 11) | (s[pos + 4] << 3) | (s[pos + 5] >> 5));
    f.emplace_back(pos, len);
    pos += len;
  }
  return f;
}

// A raw data block holding only a program configuration element of
// `front_pairs` + `side_pairs` channel pairs (no audio).
std::vector<std::uint8_t> PceOnlyFrame(int front_pairs, int side_pairs) {
  BitWriter w;
  w.Put(5, 3);  // PCE
  w.Put(0, 4);  // tag
  w.Put(1, 2);  // LC
  w.Put(7, 4);  // 22050 Hz
  w.Put(static_cast<std::uint32_t>(front_pairs), 4);
  w.Put(static_cast<std::uint32_t>(side_pairs), 4);
  w.Put(0, 4 + 2 + 3 + 4);  // no back, LFE, data or coupling elements
  w.Put(0, 3);              // no mixdowns
  for (int i = 0; i < front_pairs + side_pairs; ++i) {
    w.Put(1, 1);
    w.Put(static_cast<std::uint32_t>(i), 4);
  }
  w.Align();
  w.Put(0, 8);  // no comment
  w.Put(7, 3);  // END
  w.Align();
  auto frame = Adts(1, 0, 1, w.bytes());
  frame[2] = static_cast<std::uint8_t>((frame[2] & ~0x3C) | (7 << 2));  // 22050 Hz
  return frame;
}

// Issue-by-issue damage of the transport, each counted under its kind; the
// audio that is there is decoded in full.
TEST(AacDecoder, TransportDamageIsCountedByKind) {
  const auto speech = ReadBytes("aac_ref/aac_lc_22k05_mono_32_speech.aac");
  ASSERT_FALSE(speech.empty());
  const Outcome clean = Decode(speech);
  ASSERT_EQ(clean.stats.frames, 34);
  const auto frames = AdtsFrames(speech);
  using aklcli::Tally;
  struct Row {
    const char* what;
    std::vector<std::uint8_t> stream;
    long frames, concealed, dropped, skipped;
    Tally tally;
    const char* kind;
    std::size_t same_from;  // output samples from here on equal the clean decode (shifted by `shift`)
    long shift;
  };
  std::vector<Row> rows;
  {  // channel configuration 0 in every header and no configuration element
    auto s = speech;
    for (auto [pos, len] : frames) {
      s[pos + 2] = static_cast<std::uint8_t>(s[pos + 2] & ~1);
      s[pos + 3] = static_cast<std::uint8_t>(s[pos + 3] & 0x3F);
    }
    rows.push_back({"config 0, no PCE", s, 34, 0, 0, 0, Tally::kConcealedFrames, aacdec::kConcealLayout, 0, 0});
  }
  for (int pairs : {24, 30}) {  // a configuration element declaring 48 / 60 channels, then configuration 0
    auto s = PceOnlyFrame(15, pairs - 15);
    for (auto [pos, len] : frames) {
      s.insert(s.end(), speech.begin() + static_cast<long>(pos), speech.begin() + static_cast<long>(pos + len));
      s[s.size() - len + 2] = static_cast<std::uint8_t>(s[s.size() - len + 2] & ~1);
      s[s.size() - len + 3] = static_cast<std::uint8_t>(s[s.size() - len + 3] & 0x3F);
    }
    rows.push_back({"PCE of many channels", s, 35, 1, 0, 0, Tally::kConcealedFrames, aacdec::kConcealMissing, 1024, 1024});
  }
  {  // frames at another sampling rate in the middle: dropped
    auto s = speech;
    for (int i = 10; i < 13; ++i) s[frames[i].first + 2] = static_cast<std::uint8_t>((s[frames[i].first + 2] & ~0x3C) | (3 << 2));
    rows.push_back({"48 kHz frames", s, 31, 0, 3, 0, Tally::kDroppedFrames, aacdec::kDropRate, 0, 0});
  }
  {  // one frame whose header names another rate: a damaged header, concealed in place
    auto s = speech;
    s[frames[20].first + 2] = static_cast<std::uint8_t>((s[frames[20].first + 2] & ~0x3C) | (3 << 2));
    rows.push_back({"lone 48 kHz header", s, 34, 1, 0, 0, Tally::kConcealedFrames, aacdec::kConcealHeader, 0, 0});
  }
  {  // ID3v2 tags before and between frames, an ID3v1 tag at the end: not damage
    std::vector<std::uint8_t> id3 = {'I', 'D', '3', 4, 0, 0, 0, 0, 0, 20};
    id3.resize(30, 0);
    std::vector<std::uint8_t> id3v1 = {'T', 'A', 'G'};
    id3v1.resize(128, ' ');
    auto s = id3;
    s.insert(s.end(), speech.begin(), speech.begin() + static_cast<long>(frames[6].first));
    s.insert(s.end(), id3.begin(), id3.end());
    s.insert(s.end(), speech.begin() + static_cast<long>(frames[6].first), speech.end());
    s.insert(s.end(), id3v1.begin(), id3v1.end());
    rows.push_back({"ID3 tags", s, 34, 0, 0, 0, Tally::kSkippedBytes, aacdec::kSkipBetween, 0, 0});
  }
  {  // a destroyed sync word: the frame is concealed in place
    auto s = speech;
    s[frames[5].first] = 0x00;
    rows.push_back({"destroyed sync", s, 34, 1, 0, 0, Tally::kConcealedFrames, aacdec::kConcealSync, 7 * 1024, 0});
  }
  {  // 4 blocks declared, 1 present: one block decoded, 3 counted as absent
    auto s = speech;
    s[frames[3].first + 6] = static_cast<std::uint8_t>(s[frames[3].first + 6] | 3);
    rows.push_back({"4 declared, 1 present", s, 34, 0, 3, 0, Tally::kDroppedFrames, aacdec::kDropAbsent, 0, 0});
  }
  {  // 4 blocks declared, 8 present: all 8 decoded
    BitWriter payload;
    for (int b = 0; b < 8; ++b) SilentBlock(payload, -1);
    rows.push_back({"4 declared, 8 present", Adts(1, 1, 4, payload.bytes()), 8, 0, 0, 0, Tally::kDroppedFrames,
                    aacdec::kDropAbsent, ~std::size_t{0}, 0});
  }
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    const Outcome r = Decode(row.stream);
    ASSERT_EQ(r.result, aacdec::DecodeResult::kOk) << r.message;
    EXPECT_EQ(r.stats.frames, row.frames);
    EXPECT_EQ(r.stats.damaged, row.concealed);
    EXPECT_EQ(r.stats.dropped, row.dropped);
    EXPECT_EQ(r.stats.skipped_bytes, row.skipped);
    const long expected = row.tally == Tally::kDroppedFrames ? row.dropped
                          : row.tally == Tally::kSkippedBytes  ? row.skipped
                                                               : row.concealed;
    EXPECT_EQ(r.stats.damage.Count(row.tally, row.kind), static_cast<std::uint64_t>(expected));
    EXPECT_EQ(r.sink.pcm.size(), static_cast<std::size_t>(row.frames) * 1024 * static_cast<std::size_t>(r.sink.format.channels));
    if (row.same_from == ~std::size_t{0}) continue;
    // Dropped frames are missing from the output; compare what is there.
    std::size_t n = 0;
    for (std::size_t i = row.same_from; i < r.sink.pcm.size() && i - row.shift < clean.sink.pcm.size(); ++i, ++n) {
      if (row.dropped && i >= 10 * 1024 && row.tally == Tally::kDroppedFrames && row.kind == aacdec::kDropRate) break;
      if (row.kind == aacdec::kConcealHeader && i >= 20 * 1024) break;
      ASSERT_EQ(r.sink.pcm[i], clean.sink.pcm[i - row.shift]) << i;
    }
    EXPECT_GT(n, 0u);
  }
}

}  // namespace
