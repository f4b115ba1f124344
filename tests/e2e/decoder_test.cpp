// akl-mp3dec's engine on memory buffers: gapless trimming, tags, damaged and
// truncated input, unsupported streams, format changes.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "mp3dec/mp3_stream.hpp"

namespace {

std::vector<std::uint8_t> Read(const std::string& name) {
  std::vector<std::uint8_t> d;
  std::FILE* f = std::fopen((std::string(AKLAC_E2E_DATA_DIR) + "/" + name).c_str(), "rb");
  if (!f) return d;
  unsigned char buf[65536];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) d.insert(d.end(), buf, buf + n);
  std::fclose(f);
  return d;
}

struct Decoded {
  std::vector<std::int16_t> pcm;
  int rate = 0, channels = 0;
  aklmp3::DecodeStats stats;
  std::size_t frames() const { return channels ? pcm.size() / static_cast<std::size_t>(channels) : 0; }
};

class Sink : public aklmp3::PcmSink {
 public:
  explicit Sink(Decoded* d) : d_(d) {}
  void Format(int rate, int channels) override {
    d_->rate = rate;
    d_->channels = channels;
  }
  void Write(const std::int16_t* s, std::size_t frames) override {
    d_->pcm.insert(d_->pcm.end(), s, s + frames * static_cast<std::size_t>(d_->channels));
  }
  Decoded* d_;
};

Decoded Decode(const std::vector<std::uint8_t>& in, bool gapless = true) {
  Decoded d;
  Sink sink(&d);
  aklmp3::DecodeOptions o;
  o.gapless = gapless;
  // An exact-size heap copy, so that any read past the end is caught.
  std::vector<std::uint8_t> exact(in);
  exact.shrink_to_fit();
  d.stats = aklmp3::DecodeBuffer(exact.data(), exact.size(), o, &sink);
  return d;
}

TEST(Mp3Decoder, GaplessTrimFromLameTag) {
  const auto in = Read("mp3_e2e/sine_gapless.mp3");
  ASSERT_FALSE(in.empty());
  const Decoded g = Decode(in);
  EXPECT_TRUE(g.stats.lame_tag);
  EXPECT_EQ(g.stats.encoder_delay, 576);
  EXPECT_EQ(g.frames(), 44100u);  // the source's length exactly
  // Against the reference decoder's gapless output: same alignment, +-1.
  const auto ref = Read("mp3_e2e/sine_gapless.mp3.mpg123.s16");
  ASSERT_EQ(ref.size(), g.pcm.size() * 2);
  int worst = 0;
  for (std::size_t i = 0; i < g.pcm.size(); ++i) {
    const int r = static_cast<std::int16_t>(ref[2 * i] | (ref[2 * i + 1] << 8));
    worst = std::max(worst, std::abs(r - g.pcm[i]));
  }
  EXPECT_LE(worst, 1);
  // Without trimming: every frame but the Info frame, and the trimmed
  // decode is a slice of it starting after encoder and decoder delay.
  const Decoded all = Decode(in, false);
  EXPECT_EQ(all.frames(), static_cast<std::size_t>(all.stats.frames) * 1152);
  const std::size_t skip = static_cast<std::size_t>(g.stats.encoder_delay + 529) * 2;
  ASSERT_GE(all.pcm.size(), skip + g.pcm.size());
  EXPECT_TRUE(std::equal(g.pcm.begin(), g.pcm.end(), all.pcm.begin() + static_cast<std::ptrdiff_t>(skip)));
}

TEST(Mp3Decoder, VbrStreamWithXingFrame) {
  const Decoded d = Decode(Read("mp3_e2e/sine_vbr.mp3"));
  EXPECT_EQ(d.frames(), 44100u);
  EXPECT_EQ(d.stats.damaged, 0);
}

// ID3v2 in front, APE and ID3v1 behind: the audio decodes as without them.
TEST(Mp3Decoder, SkipsTags) {
  const auto plain = Read("mp3_ref/mp3_m2_22k05_mono_40_speech.mp3");
  ASSERT_FALSE(plain.empty());
  std::vector<std::uint8_t> tagged = {'I', 'D', '3', 4, 0, 0, 0, 0, 2, 1};  // 257 bytes of frames follow
  // Frame data that contains a false sync word.
  for (int i = 0; i < 257; ++i) tagged.push_back(i % 7 == 0 ? 0xFF : 0xFB);
  tagged.insert(tagged.end(), plain.begin(), plain.end());
  std::vector<std::uint8_t> ape(32, 0);
  std::memcpy(ape.data(), "APETAGEX", 8);
  ape[8] = 0xD0, ape[9] = 0x07;                  // version 2000
  ape[12] = 32 + 16;                              // items + footer
  std::vector<std::uint8_t> item(16, 0xFF);       // item bytes full of sync-like values
  std::vector<std::uint8_t> header = ape;
  header[23] = 0xA0;                              // has a header, this is the header
  ape[23] = 0x80;                                 // has a header
  tagged.insert(tagged.end(), header.begin(), header.end());
  tagged.insert(tagged.end(), item.begin(), item.end());
  tagged.insert(tagged.end(), ape.begin(), ape.end());
  std::vector<std::uint8_t> id3v1(128, 0xFF);
  std::memcpy(id3v1.data(), "TAG", 3);
  tagged.insert(tagged.end(), id3v1.begin(), id3v1.end());
  const Decoded a = Decode(plain), b = Decode(tagged);
  EXPECT_EQ(a.pcm, b.pcm);
  EXPECT_EQ(b.stats.damaged, 0);
  EXPECT_EQ(a.stats.frames, b.stats.frames);
}

// An ID3v2 tag whose declared size runs past the end of the file is damaged:
// the audio after it still decodes.
TEST(Mp3Decoder, OversizedId3v2TagDoesNotHideTheAudio) {
  const auto plain = Read("mp3_ref/mp3_m2_22k05_mono_40_speech.mp3");
  ASSERT_FALSE(plain.empty());
  std::vector<std::uint8_t> tagged = {'I', 'D', '3', 4, 0, 0, 0x7F, 0x7F, 0x7F, 0x7F};
  tagged.insert(tagged.end(), plain.begin(), plain.end());
  const Decoded a = Decode(plain), b = Decode(tagged);
  EXPECT_EQ(a.stats.frames, b.stats.frames);
  EXPECT_EQ(a.pcm, b.pcm);
}

// A trailing APE footer whose size is below its own 32 bytes (zero here) is
// not a tag: it once made the tag scan loop for ever.
TEST(Mp3Decoder, ApeFooterOfSizeZeroEnds) {
  const auto plain = Read("mp3_ref/mp3_m2_22k05_mono_40_speech.mp3");
  ASSERT_FALSE(plain.empty());
  auto tagged = plain;
  std::vector<std::uint8_t> ape(32, 0);
  std::memcpy(ape.data(), "APETAGEX", 8);
  tagged.insert(tagged.end(), ape.begin(), ape.end());
  const Decoded a = Decode(plain), b = Decode(tagged);
  EXPECT_EQ(a.stats.frames, b.stats.frames);
  EXPECT_EQ(a.pcm, b.pcm);
}

// Bytes overwritten in the middle: the decoder conceals, counts, resyncs,
// and decodes the rest as before.
TEST(Mp3Decoder, ConcealsDamagedFrames) {
  const auto clean = Read("mp3_ref/mp3_m1_44k1_js_128_music.mp3");
  const Decoded ref = Decode(clean);
  std::vector<std::uint8_t> bad = clean;
  for (std::size_t i = 9000; i < 9400; ++i) bad[i] = static_cast<std::uint8_t>(i * 37);
  const Decoded d = Decode(bad);
  EXPECT_GE(d.stats.damaged, 1);
  EXPECT_NEAR(static_cast<double>(d.frames()), static_cast<double>(ref.frames()), 3 * 1152.0);
  // Everything before the damaged region is untouched.
  const std::size_t before = 20 * 1152 * 2;
  EXPECT_TRUE(std::equal(ref.pcm.begin(), ref.pcm.begin() + before, d.pcm.begin()));
  // Once the reservoir refills, the last frames decode exactly again
  // (aligned from the end: the damage may have cost a frame).
  const std::size_t tail = 5 * 1152 * 2;
  ASSERT_GE(d.pcm.size(), tail);
  EXPECT_TRUE(std::equal(ref.pcm.end() - tail, ref.pcm.end(), d.pcm.end() - tail));
}

TEST(Mp3Decoder, CrcMismatchIsConcealed) {
  auto in = Read("mp3_ref/mp3_m1_48k_st_160_crc_clicks.mp3");
  ASSERT_GT(in.size(), 40u);
  in[6 + 5] ^= 0x10;  // first frame, inside the side information after the CRC word
  const Decoded d = Decode(in);
  EXPECT_EQ(d.stats.damaged, 1);
}

TEST(Mp3Decoder, TruncatedAndRandomInputNeverCrash) {
  const auto clean = Read("mp3_ref/mp3_m2_24k_js_64_crc_clicks.mp3");
  for (std::size_t cut : {0u, 1u, 3u, 4u, 5u, 30u, 200u, 1000u, 4321u, 12000u}) {
    SCOPED_TRACE(cut);
    std::vector<std::uint8_t> part(clean.begin(), clean.begin() + static_cast<std::ptrdiff_t>(std::min(cut, clean.size())));
    const Decoded d = Decode(part);
    EXPECT_LE(d.frames(), 65u * 576u);
  }
  std::mt19937 rng(20261122u);
  for (int round = 0; round < 200; ++round) {
    std::vector<std::uint8_t> junk(rng() % 3000);
    for (auto& b : junk) b = static_cast<std::uint8_t>(rng());
    // Plant plausible headers so that the frame loop gets going.
    for (std::size_t i = 0; i + 4 < junk.size(); i += 1 + rng() % 400) {
      junk[i] = 0xFF;
      junk[i + 1] = static_cast<std::uint8_t>(0xF2 | (rng() & 0x0D));
    }
    Decode(junk);
  }
  // And damaged real frames: random bytes flipped all over a stream.
  for (int round = 0; round < 20; ++round) {
    std::vector<std::uint8_t> bad = clean;
    for (int k = 0; k < 40; ++k) bad[rng() % bad.size()] = static_cast<std::uint8_t>(rng());
    const Decoded d = Decode(bad);
    EXPECT_GT(d.frames(), 0u);
  }
}

TEST(Mp3Decoder, UnsupportedStreamsAreNamed) {
  const Decoded l2 = Decode(Read("mp3_e2e/sine_layer2.mp2"));
  EXPECT_EQ(l2.stats.frames, 0);
  EXPECT_EQ(l2.stats.unsupported_kind, "Layer II");
  const Decoded m25 = Decode(Read("mp3_e2e/sine_mpeg25.mp3"));
  EXPECT_EQ(m25.stats.frames, 0);
  EXPECT_EQ(m25.stats.unsupported_kind, "MPEG-2.5");
}

// A stream that switches from 44.1 to 48 kHz keeps the first rate and
// drops the other frames (counted, and not among the frames written).
TEST(Mp3Decoder, RateChangeKeepsFirstRate) {
  const Decoded d = Decode(Read("mp3_e2e/rate_change.mp3"));
  EXPECT_EQ(d.rate, 44100);
  EXPECT_GT(d.stats.other_format_frames, 0);
  EXPECT_EQ(d.stats.damage.Count(aklcli::Tally::kDroppedFrames, aklmp3::kDropRate),
            static_cast<std::uint64_t>(d.stats.other_format_frames));
  EXPECT_EQ(d.frames(), static_cast<std::size_t>(d.stats.frames) * 1152);
}

// Byte offsets of the frames of a clean constant-rate Layer III stream.
std::vector<std::size_t> FrameStarts(const std::vector<std::uint8_t>& d) {
  static const int kKbps[2][15] = {{0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},
                                   {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}};
  static const int kRate[3] = {44100, 48000, 32000};
  std::vector<std::size_t> starts;
  for (std::size_t p = 0; p + 4 <= d.size();) {
    if (d[p] != 0xFF || (d[p + 1] & 0xE6) != 0xE2) break;
    const bool mpeg1 = (d[p + 1] & 0x08) != 0;
    const int rate = kRate[(d[p + 2] >> 2) & 3] / (mpeg1 ? 1 : 2);
    const int len = (mpeg1 ? 144000 : 72000) * kKbps[mpeg1 ? 0 : 1][d[p + 2] >> 4] / rate + ((d[p + 2] >> 1) & 1);
    starts.push_back(p);
    p += static_cast<std::size_t>(len);
  }
  return starts;
}

// Bytes that can never hold a sync word.
std::vector<std::uint8_t> Junk(std::size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  std::vector<std::uint8_t> j(n);
  for (auto& b : j) b = static_cast<std::uint8_t>(rng() & 0x7F);
  return j;
}

// The damage report counts every byte skipped and every frame concealed or
// dropped, by kind; the audio around the damage is the clean stream's.
TEST(Mp3Decoder, DamageReportCountsByKind) {
  using aklcli::Tally;
  const auto clean = Read("mp3_ref/mp3_m1_44k1_js_128_music.mp3");
  const auto starts = FrameStarts(clean);
  ASSERT_GT(starts.size(), 40u);
  const Decoded ref = Decode(clean);
  ASSERT_EQ(ref.stats.damaged, 0);
  auto insert = [](std::vector<std::uint8_t> v, std::size_t at, const std::vector<std::uint8_t>& bytes) {
    v.insert(v.begin() + static_cast<std::ptrdiff_t>(at), bytes.begin(), bytes.end());
    return v;
  };
  const std::size_t last = starts.back();
  struct Case {
    const char* name;
    std::vector<std::uint8_t> input;
    Tally tally;
    const char* kind;
    std::uint64_t count;
    std::uint64_t damaged;
    long frames_lost;  // frames written fewer than the clean stream's
  };
  // Frame 20's bit-rate index raised to 320 kbit/s: its declared length runs
  // over the next frames, but it is taken up to the frame that follows it.
  auto longer = clean;
  longer[starts[20] + 2] = static_cast<std::uint8_t>((longer[starts[20] + 2] & 0x0F) | 0xE0);
  // Frame 20's header wiped: the frame is concealed in place (the stream
  // resumes one frame length later), so the timing is kept.
  auto wiped = clean;
  std::fill(wiped.begin() + static_cast<std::ptrdiff_t>(starts[20]),
            wiped.begin() + static_cast<std::ptrdiff_t>(starts[20] + 4), 0);
  // Frame 20's rate field damaged (44.1 to 48 kHz): its own length leads
  // nowhere, the stream goes on at the old length, so it is concealed in
  // place rather than dropped as a frame of another rate.
  auto rate = clean;
  rate[starts[20] + 2] = static_cast<std::uint8_t>((rate[starts[20] + 2] & 0xF3) | 0x04);
  auto crc = Read("mp3_ref/mp3_m1_48k_st_160_crc_clicks.mp3");
  crc[6 + 5] ^= 0x10;
  const Case cases[] = {
      {"junk before", insert(clean, 0, Junk(1000, 1)), Tally::kSkippedBytes, aklmp3::kSkipBefore, 1000, 1, 0},
      {"junk between", insert(clean, starts[20], Junk(517, 2)), Tally::kSkippedBytes, aklmp3::kSkipBetween, 517, 1,
       0},
      {"junk after", insert(clean, clean.size(), Junk(300, 3)), Tally::kSkippedBytes, aklmp3::kSkipAfter, 300, 1, 0},
      {"truncated", std::vector<std::uint8_t>(clean.begin(), clean.begin() + static_cast<std::ptrdiff_t>(last + 100)),
       Tally::kSkippedBytes, aklmp3::kSkipTruncated, 100, 1, 1},
      {"damaged length", longer, Tally::kSkippedBytes, aklmp3::kSkipBetween, 0, 0, 0},
      {"wiped header", wiped, Tally::kConcealedFrames, aklmp3::kConcealLostHeader, 1, 1, 0},
      {"damaged rate", rate, Tally::kConcealedFrames, aklmp3::kConcealLostHeader, 1, 1, 0},
      {"CRC mismatch", crc, Tally::kConcealedFrames, aklmp3::kConcealCrc, 1, 1, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Decoded d = Decode(c.input);
    EXPECT_EQ(d.stats.damage.Count(c.tally, c.kind), c.count);
    EXPECT_EQ(d.stats.damage.Total(c.tally), c.count);
    EXPECT_EQ(d.stats.damage.Damaged(), c.damaged);
    EXPECT_EQ(d.stats.damaged, static_cast<long>(c.damaged));
    EXPECT_EQ(d.stats.tag_bytes + d.stats.frame_bytes + d.stats.damage.Total(Tally::kSkippedBytes), c.input.size());
    if (c.tally != Tally::kSkippedBytes) {
      EXPECT_EQ(d.stats.damage.Total(Tally::kSkippedBytes), 0u);
      // Concealed in place: the timing is kept (the CRC row is another stream).
      if (c.kind != aklmp3::kConcealCrc) {
        EXPECT_EQ(d.stats.frames, ref.stats.frames);
      }
    } else {
      // Nothing else happened, and the frames that are there decode as in
      // the clean stream.
      EXPECT_EQ(d.stats.frames, ref.stats.frames - c.frames_lost);
      EXPECT_TRUE(std::equal(d.pcm.begin(), d.pcm.end(), ref.pcm.begin()));
    }
  }
}

// Frames of two streams interleaved one by one (sampling rate, MPEG version
// and mode change every frame): the first frame's stream is written exactly
// as on its own, and every frame of the other is dropped and counted.
TEST(Mp3Decoder, AlternatingRatesAreDroppedAndCounted) {
  using aklcli::Tally;
  struct Case {
    const char* first;
    const char* second;
    int rate;
  } const cases[] = {
      {"mp3_ref/mp3_m1_44k1_js_128_music.mp3", "mp3_ref/mp3_m1_48k_st_160_crc_clicks.mp3", 44100},
      {"mp3_ref/mp3_m1_48k_st_160_crc_clicks.mp3", "mp3_ref/mp3_m1_44k1_js_128_music.mp3", 48000},
      {"mp3_ref/mp3_m1_44k1_js_128_music.mp3", "mp3_ref/mp3_m2_22k05_mono_40_speech.mp3", 44100},
      {"mp3_ref/mp3_m2_24k_js_64_crc_clicks.mp3", "mp3_ref/mp3_m2_22k05_mono_40_speech.mp3", 24000},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.second);
    const auto a = Read(c.first), b = Read(c.second);
    const auto sa = FrameStarts(a), sb = FrameStarts(b);
    const std::size_t n = std::min(sa.size(), sb.size()) - 1;
    std::vector<std::uint8_t> mixed, alone;
    for (std::size_t i = 0; i < n; ++i) {
      mixed.insert(mixed.end(), a.begin() + static_cast<std::ptrdiff_t>(sa[i]),
                   a.begin() + static_cast<std::ptrdiff_t>(sa[i + 1]));
      mixed.insert(mixed.end(), b.begin() + static_cast<std::ptrdiff_t>(sb[i]),
                   b.begin() + static_cast<std::ptrdiff_t>(sb[i + 1]));
    }
    alone.assign(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(sa[n]));
    const Decoded d = Decode(mixed, false), ref = Decode(alone, false);
    EXPECT_EQ(d.rate, c.rate);
    EXPECT_EQ(d.stats.damaged, 0);
    EXPECT_EQ(d.stats.damage.Count(Tally::kDroppedFrames, aklmp3::kDropRate), n);
    EXPECT_EQ(d.stats.damage.Total(Tally::kSkippedBytes), 0u);
    EXPECT_EQ(d.stats.frames, ref.stats.frames);
    EXPECT_EQ(d.pcm, ref.pcm);
    EXPECT_EQ(d.stats.frame_bytes, mixed.size());
  }
}

// Finding frames is linear in the input: on random bytes with chains of
// plausible frames planted in them (which lock the search onto junk), the
// bytes looked at per input byte stay the same from 1 to 8 MB, and every
// byte is accounted for.
TEST(Mp3Decoder, ResyncWorkIsLinear) {
  double per_byte[2] = {};
  const std::size_t sizes[2] = {1u << 20, 8u << 20};
  for (int k = 0; k < 2; ++k) {
    std::mt19937 rng(77u + static_cast<unsigned>(k));
    std::vector<std::uint8_t> junk(sizes[k]);
    for (auto& b : junk) b = static_cast<std::uint8_t>(rng());
    // Every 64 KB, three headers of 417-byte frames (MPEG-1, 128 kbit/s,
    // 44.1 kHz) at frame distance.
    for (std::size_t at = 1000; at + 3 * 417 < junk.size(); at += 65536)
      for (std::size_t i = 0; i < 3; ++i) {
        const std::uint8_t h[4] = {0xFF, 0xFB, 0x90, 0x44};
        std::memcpy(&junk[at + 417 * i], h, 4);
      }
    const Decoded d = Decode(junk);
    EXPECT_GT(d.stats.frames, 0);
    EXPECT_EQ(d.stats.tag_bytes + d.stats.frame_bytes + d.stats.damage.Total(aklcli::Tally::kSkippedBytes),
              junk.size());
    per_byte[k] = static_cast<double>(d.stats.scan_work) / static_cast<double>(junk.size());
  }
  // Two passes, memchr over every byte: a little over 2 bytes looked at per
  // input byte.
  std::printf("bytes looked at per input byte: %.4f (1 MB), %.4f (8 MB)\n", per_byte[0], per_byte[1]);
  EXPECT_LT(per_byte[0], 2.5);
  EXPECT_LT(per_byte[1], per_byte[0] * 1.05);
}

// he_mode switches between one and two channels: the output is stereo
// throughout, mono frames written to both channels.
TEST(Mp3Decoder, ChannelChangeGivesStereoThroughout) {
  const Decoded d = Decode(Read("conformance/mp3/he_mode.bit"));
  EXPECT_EQ(d.channels, 2);
  for (std::size_t i = 0; i < 10 * 1152; ++i) ASSERT_EQ(d.pcm[2 * i], d.pcm[2 * i + 1]);
}

}  // namespace

namespace {

std::vector<std::int16_t> S16(const std::vector<std::uint8_t>& b) {
  std::vector<std::int16_t> v(b.size() / 2);
  for (std::size_t i = 0; i < v.size(); ++i) v[i] = static_cast<std::int16_t>(b[2 * i] | (b[2 * i + 1] << 8));
  return v;
}

// Largest difference between channel `ch` of `got` (from frame `from`) and a
// mono or same-layout reference (from its frame `ref_from`), over `frames`.
int MaxDiff(const Decoded& got, std::size_t from, const std::vector<std::int16_t>& ref, int ref_ch,
            std::size_t ref_from, std::size_t frames, int ch = 0) {
  int worst = 0;
  for (std::size_t i = 0; i < frames; ++i) {
    const std::size_t g = (from + i) * static_cast<std::size_t>(got.channels) + static_cast<std::size_t>(ch);
    const std::size_t r = (ref_from + i) * static_cast<std::size_t>(ref_ch) + static_cast<std::size_t>(ch % ref_ch);
    if (g >= got.pcm.size() || r >= ref.size()) return 1 << 16;
    worst = std::max(worst, std::abs(got.pcm[g] - ref[r]));
  }
  return worst;
}

}  // namespace

// minimp3's Layer III edge cases: tags and broken VBR frames are skipped,
// corrupted side information is concealed and the frames after it are
// intact, a 44.1 to 48 kHz change keeps the first rate, and nothing crashes.
TEST(Mp3Decoder, NonstandardStreams) {
  using aklcli::Tally;
  const std::string dir = "mp3_nonstandard/l3-nonstandard-";
  // Tags around one frame: the frame decodes as the second decoder's (minimp3).
  for (const char* name : {"apetag", "id3v1", "id3v1-apetag", "id3v2"}) {
    SCOPED_TRACE(name);
    const Decoded d = Decode(Read(dir + name + ".bit"), false);
    const auto ref = S16(Read(dir + name + ".pcm"));
    EXPECT_EQ(d.stats.damaged, 0);
    ASSERT_EQ(d.pcm.size(), ref.size());
    EXPECT_LE(MaxDiff(d, 0, ref, d.channels, 0, d.frames()), 1);
  }
  // No audio at all: a tag alone, five bytes, a Xing frame alone (empty,
  // corrupted, without frames, pointing past the end).
  for (const char* name : {"id3v2-only", "small", "vbrtag-corrupted", "vbrtag-empty", "vbrtag-noframes",
                           "vbrtag-only", "vbrtag-oob-read"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(Decode(Read(dir + name + ".bit")).stats.frames, 0);
  }
  // Damaged beyond use, decoded without a crash.
  for (const char* name : {"big-iscf", "sideinfo-size"}) Decode(Read(dir + name + ".bit"));
  EXPECT_EQ(Decode(Read("mp3_nonstandard/l3-compl-cut.mp3")).stats.frames, 1);
  // compl.bit with one frame's side information corrupted (frame 190, 81
  // or 26): concealed, and the last 20 frames equal the ISO decode of the
  // clean stream (which holds frames 0..215).
  const auto compl_ref = S16(Read("conformance/mp3/compl.pcm"));
  for (const char* name : {"compl-sideinfo-bigvalues", "compl-sideinfo-blocktype", "compl-sideinfo-size"}) {
    SCOPED_TRACE(name);
    const Decoded d = Decode(Read(dir + name + ".bit"), false);
    EXPECT_EQ(d.stats.damage.Total(Tally::kConcealedFrames), 1u);
    EXPECT_EQ(d.stats.frames, 216);
    EXPECT_LE(MaxDiff(d, 196 * 1152, compl_ref, 1, 196 * 1152, 20 * 1152), 1);
  }
  // he_44khz followed by he_48khz: the 44.1 kHz part is the ISO decode of
  // he_44khz, the 150 frames at 48 kHz are dropped.
  const Decoded he = Decode(Read(dir + "he_44_48khz.bit"), false);
  const auto he_ref = S16(Read("conformance/mp3/he_44khz.pcm"));
  EXPECT_EQ(he.rate, 44100);
  EXPECT_EQ(he.stats.damage.Count(Tally::kDroppedFrames, aklmp3::kDropRate), 150u);
  EXPECT_LE(MaxDiff(he, 0, he_ref, 1, 0, he_ref.size()), 1);
}

// A stream read from a pipe: in small pieces, no second pass.
class PipeSource : public aklmp3::ByteSource {
 public:
  explicit PipeSource(const std::vector<std::uint8_t>& d) : d_(d) {}
  std::size_t Read(std::uint8_t* dst, std::size_t n) override {
    n = std::min({n, d_.size() - pos_, std::size_t{1} + (pos_ * 7919) % 1500});  // 1..1500 bytes a read
    std::memcpy(dst, d_.data() + pos_, n);
    pos_ += n;
    return n;
  }
  bool Rewind() override { return false; }

 private:
  const std::vector<std::uint8_t>& d_;
  std::size_t pos_ = 0;
};

// Decoded in one pass as it arrives, a stream gives the PCM, statistics and
// damage report of the two-pass decode, whatever it holds: tags, junk,
// damage, a truncated end.
TEST(Mp3Decoder, OnePassFromAPipeMatchesTwoPasses) {
  const auto clean = Read("mp3_ref/mp3_m1_44k1_js_128_music.mp3");
  const auto gapless = Read("mp3_e2e/sine_gapless.mp3");
  ASSERT_FALSE(clean.empty());
  ASSERT_FALSE(gapless.empty());
  std::vector<std::uint8_t> junk(3000, 0x5A), damaged = clean;
  for (std::size_t i = 2000; i < damaged.size(); i += 977) damaged[i] ^= 0x24;
  auto cat = [](std::initializer_list<const std::vector<std::uint8_t>*> parts) {
    std::vector<std::uint8_t> out;
    for (const auto* p : parts) out.insert(out.end(), p->begin(), p->end());
    return out;
  };
  std::vector<std::uint8_t> id3v1(128, ' ');
  std::memcpy(id3v1.data(), "TAG", 3);
  std::vector<std::uint8_t> cut(clean.begin(), clean.end() - 300);
  const std::vector<std::uint8_t> streams[] = {clean, gapless, cat({&junk, &clean, &junk, &clean, &id3v1}), damaged,
                                               cut, cat({&gapless, &gapless})};
  for (std::size_t i = 0; i < std::size(streams); ++i) {
    const Decoded two = Decode(streams[i]);
    Decoded one;
    Sink sink(&one);
    PipeSource pipe(streams[i]);
    one.stats = aklmp3::DecodeStream(&pipe, aklmp3::DecodeOptions{}, &sink);
    EXPECT_EQ(one.pcm, two.pcm) << i;
    EXPECT_EQ(one.stats.frames, two.stats.frames) << i;
    EXPECT_EQ(one.stats.damaged, two.stats.damaged) << i;
    EXPECT_EQ(one.stats.tag_bytes, two.stats.tag_bytes) << i;
    EXPECT_EQ(one.stats.frame_bytes, two.stats.frame_bytes) << i;
    EXPECT_EQ(one.stats.damage.Total(aklcli::Tally::kSkippedBytes), two.stats.damage.Total(aklcli::Tally::kSkippedBytes)) << i;
  }
}
