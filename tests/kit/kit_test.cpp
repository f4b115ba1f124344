// The client kit: frame sizes and header fields against the standards'
// formulas and known streams, the CRC against its check value and known
// frames, WAV header bytes (sizes beyond 4 GiB included), bit fields on the
// cursor and the scale-factor book on the VLC engine.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

#include "kit/aac_scale_factors.hpp"
#include "kit/adts.hpp"
#include "kit/bits.hpp"
#include "kit/crc16.hpp"
#include "kit/mpeg_audio.hpp"
#include "kit/wav_writer.hpp"

namespace {

std::vector<std::uint8_t> ReadFile(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(f), {});
}

// Every version, layer, bit rate, sampling rate and padding: the frame holds
// samples/8 x bitrate / rate bytes (Layer I: whole 4-byte slots), plus the
// padding slot.
TEST(MpegHeader, FrameLengthOfEveryHeader) {
  const int kVersionBits[3][2] = {{3, 10}, {2, 20}, {0, 25}};
  const int kBaseRates[3] = {44100, 48000, 32000};
  int checked = 0;
  for (const auto& v : kVersionBits)
    for (int layer = 1; layer <= 3; ++layer)
      for (int bri = 1; bri <= 14; ++bri)
        for (int sfi = 0; sfi < 3; ++sfi)
          for (int pad = 0; pad < 2; ++pad) {
            const std::uint8_t b[4] = {0xFF, static_cast<std::uint8_t>(0xE0 | v[0] << 3 | (4 - layer) << 1 | 1),
                                       static_cast<std::uint8_t>(bri << 4 | sfi << 2 | pad << 1), 0xC0};
            aklkit::MpegHeader h;
            ASSERT_TRUE(aklkit::ParseMpegHeader(b, &h));
            const int rate = kBaseRates[sfi] / (v[1] == 10 ? 1 : v[1] == 20 ? 2 : 4);
            const long bps = 1000L * h.kbps;
            const long want = layer == 1 ? 4 * (12 * bps / rate + pad)
                                         : (h.samples / 8) * bps / rate + pad;
            EXPECT_EQ(h.version, v[1]);
            EXPECT_EQ(h.layer, layer);
            EXPECT_EQ(h.sample_rate, rate);
            EXPECT_EQ(h.samples, layer == 1 ? 384 : layer == 2 || v[1] == 10 ? 1152 : 576);
            EXPECT_EQ(h.frame_bytes, want) << v[1] << " L" << layer << " " << bri << " " << sfi << " " << pad;
            EXPECT_EQ(h.channels, 1);
            EXPECT_FALSE(h.crc);
            ++checked;
          }
  EXPECT_EQ(checked, 3 * 3 * 14 * 3 * 2);
}

TEST(MpegHeader, BitRatesSideInformationAndRefusals) {
  struct Row {
    int version, layer, bri, kbps;
  } rows[] = {{10, 1, 14, 448}, {10, 2, 14, 384}, {10, 3, 14, 320}, {10, 3, 1, 32},  {20, 1, 14, 256},
              {20, 2, 14, 160}, {20, 3, 1, 8},    {25, 3, 14, 160}, {10, 3, 0, 0}};
  for (const Row& r : rows) EXPECT_EQ(aklkit::MpegKbps(r.version, r.layer, r.bri), r.kbps);
  // Side information: MPEG-1 17/32 bytes, MPEG-2 9/17 (mono/stereo); a CRC.
  aklkit::MpegHeader h;
  const std::uint8_t m1_stereo_crc[4] = {0xFF, 0xFA, 0x90, 0x00}, m2_mono[4] = {0xFF, 0xF3, 0x90, 0xC0};
  ASSERT_TRUE(aklkit::ParseMpegHeader(m1_stereo_crc, &h));
  EXPECT_EQ(h.side_bytes, 32);
  EXPECT_TRUE(h.crc);
  EXPECT_EQ(h.frame_bytes, 417);  // 128 kbit/s at 44.1 kHz
  ASSERT_TRUE(aklkit::ParseMpegHeader(m2_mono, &h));
  EXPECT_EQ(h.side_bytes, 9);
  // Free format: length 0.  No sync, reserved version, reserved layer,
  // bit-rate index 15, reserved rate: no header.
  const std::uint8_t free_format[4] = {0xFF, 0xFB, 0x00, 0x00};
  ASSERT_TRUE(aklkit::ParseMpegHeader(free_format, &h));
  EXPECT_EQ(h.frame_bytes, 0);
  const std::uint8_t bad[][4] = {
      {0xFF, 0xDB, 0x90, 0}, {0xFF, 0xEB, 0x90, 0}, {0xFF, 0xF9, 0x90, 0}, {0xFF, 0xFB, 0xF0, 0}, {0xFF, 0xFB, 0x9C, 0}};
  for (const auto& b : bad) EXPECT_FALSE(aklkit::ParseMpegHeader(b, &h)) << int{b[1]} << " " << int{b[2]};
}

TEST(Crc16, CheckValueAndEveryFeedAgrees) {
  const char* digits = "123456789";
  aklkit::Crc16 c;
  c.Bytes(reinterpret_cast<const std::uint8_t*>(digits), 9);
  EXPECT_EQ(c.value(), 0xAEE7);  // the register preset to ones, not reflected, no final inversion
  // Bits, bytes and bit ranges at any offset give the same CRC.
  std::mt19937 rng(7);
  std::vector<std::uint8_t> d(64);
  for (auto& x : d) x = static_cast<std::uint8_t>(rng());
  for (int from = 0; from < 24; ++from)
    for (int count : {0, 1, 7, 8, 9, 56, 100, 300}) {
      aklkit::Crc16 bits, range;
      for (int i = 0; i < count; ++i) bits.Bits((d[(from + i) / 8] >> (7 - (from + i) % 8)) & 1, 1);
      range.BitRange(d.data(), static_cast<std::uint64_t>(from), static_cast<std::uint64_t>(count));
      EXPECT_EQ(bits.value(), range.value()) << from << " " << count;
    }
}

// Every frame of two CRC-protected streams carries the CRC computed here.
TEST(Crc16, Layer3FramesOfProtectedStreams) {
  for (const char* name : {"mp3_m1_48k_st_160_crc_clicks.mp3", "mp3_m2_24k_js_64_crc_clicks.mp3"}) {
    const auto d = ReadFile(std::string(AKLAC_KIT_DATA_DIR) + "/mp3_ref/" + name);
    ASSERT_FALSE(d.empty()) << name;
    std::size_t pos = 0;
    while (pos + 4 <= d.size() && !(d[pos] == 0xFF && (d[pos + 1] & 0xE0) == 0xE0)) ++pos;
    int frames = 0;
    aklkit::MpegHeader h;
    while (pos + 4 <= d.size() && aklkit::ParseMpegHeader(&d[pos], &h) && h.frame_bytes > 0 &&
           pos + static_cast<std::size_t>(h.frame_bytes) <= d.size()) {
      ASSERT_TRUE(h.crc);
      const int stored = d[pos + 4] << 8 | d[pos + 5];
      EXPECT_EQ(aklkit::Layer3Crc(&d[pos], h.side_bytes), stored) << name << " frame " << frames;
      pos += static_cast<std::size_t>(h.frame_bytes);
      ++frames;
    }
    EXPECT_GT(frames, 40) << name;
  }
}

TEST(Adts, HeaderFieldsAndRefusals) {
  // MPEG-4 LC, 44.1 kHz, stereo, 371 bytes, variable rate, one block, no CRC.
  const std::uint8_t lc[7] = {0xFF, 0xF1, 0x50, 0x80, 0x2E, 0x7F, 0xFC};
  aklkit::AdtsHeader h;
  ASSERT_TRUE(aklkit::ParseAdtsHeader(lc, &h));
  EXPECT_EQ(h.id, 0);
  EXPECT_EQ(h.protection_absent, 1);
  EXPECT_EQ(h.profile, 1);
  EXPECT_EQ(h.sfi, 4);
  EXPECT_EQ(aklkit::AdtsSampleRate(h.sfi), 44100);
  EXPECT_EQ(h.config, 2);
  EXPECT_EQ(h.frame_length, 371);
  EXPECT_EQ(h.fullness, 0x7FF);
  EXPECT_EQ(h.blocks, 1);
  EXPECT_EQ(h.header_bytes, 7);
  // MPEG-2, CRC, three blocks: 7 bytes, two block positions, the CRC word.
  const std::uint8_t crc3[7] = {0xFF, 0xF8, 0x4C, 0x40, 0x80, 0x00, 0x02};
  ASSERT_TRUE(aklkit::ParseAdtsHeader(crc3, &h));
  EXPECT_EQ(h.id, 1);
  EXPECT_EQ(h.protection_absent, 0);
  EXPECT_EQ(h.profile, 1);
  EXPECT_EQ(h.sfi, 3);
  EXPECT_EQ(h.config, 1);
  EXPECT_EQ(h.frame_length, 1024);
  EXPECT_EQ(h.blocks, 3);
  EXPECT_EQ(h.header_bytes, 13);
  const std::uint8_t bad[][7] = {
      {0xFF, 0xE1, 0x50, 0x80, 0x2E, 0x7F, 0xFC},  // sync word
      {0xFF, 0xF3, 0x50, 0x80, 0x2E, 0x7F, 0xFC},  // layer 1
      {0xFF, 0xF1, 0x74, 0x80, 0x2E, 0x7F, 0xFC},  // sampling index 13
      {0xFF, 0xF1, 0x50, 0x80, 0x01, 0x1F, 0xFC},  // length 8 with a 7-byte header is fine ...
  };
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(aklkit::ParseAdtsHeader(bad[i], &h)) << i;
  EXPECT_TRUE(aklkit::ParseAdtsHeader(bad[3], &h));
  const std::uint8_t too_short[7] = {0xFF, 0xF0, 0x50, 0x80, 0x01, 0x1F, 0xFC};  // ... with a 9-byte one not
  EXPECT_FALSE(aklkit::ParseAdtsHeader(too_short, &h));
}

std::uint32_t Le32(const std::vector<std::uint8_t>& b, std::size_t at) {
  return b[at] | b[at + 1] << 8 | b[at + 2] << 16 | static_cast<std::uint32_t>(b[at + 3]) << 24;
}

TEST(Wav, HeaderBytesAndSizesBeyondFourGiB) {
  const std::vector<std::uint8_t> stereo = aklkit::WavHeader({44100, 2, 0}, 1000);
  const std::uint8_t want[44] = {'R', 'I', 'F', 'F', 0x0C, 0x04, 0, 0, 'W', 'A', 'V', 'E', 'f', 'm', 't', ' ',
                                 16, 0, 0, 0, 1, 0, 2, 0, 0x44, 0xAC, 0, 0, 0x10, 0xB1, 0x02, 0, 4, 0, 16, 0,
                                 'd', 'a', 't', 'a', 0xE8, 0x03, 0, 0};
  EXPECT_EQ(stereo, std::vector<std::uint8_t>(want, want + 44));
  // 5.1 with a channel mask: extensible, 68 bytes, PCM sub-format.
  const auto ext = aklkit::WavHeader({48000, 6, 0x3F}, 12);
  ASSERT_EQ(ext.size(), 68u);
  EXPECT_EQ(ext[20] | ext[21] << 8, 0xFFFE);
  EXPECT_EQ(Le32(ext, 40), 0x3Fu);
  EXPECT_EQ(ext[44], 1);
  EXPECT_EQ(Le32(ext, 64), 12u);
  EXPECT_EQ(Le32(ext, 4), 60u + 12u);
  // Mono with its default mask stays plain.
  EXPECT_EQ(aklkit::WavHeader({8000, 1, 0x4}, 0).size(), 44u);
  // Sizes: exact up to the largest the fields hold, then the largest whole
  // number of sample frames that fits.
  struct Row {
    int channels;
    std::uint64_t data;
    std::uint32_t riff, data_field;
  } rows[] = {{2, 0xFFFFFFD8u, 0xFFFFFFFCu, 0xFFFFFFD8u},  // the largest that fits
              {2, 0xFFFFFFDCu, 0xFFFFFFFCu, 0xFFFFFFD8u},  // one sample frame more
              {2, 5ull << 32, 0xFFFFFFFCu, 0xFFFFFFD8u},
              {1, 0xFFFFFFDCu, 0xFFFFFFFEu, 0xFFFFFFDAu},
              {6, 1ull << 40, 0xFFFFFFFCu, 0xFFFFFFC0u}};  // extensible: 60 bytes before the samples
  for (const Row& r : rows) {
    const auto h = aklkit::WavHeader({44100, r.channels, 0}, r.data);
    EXPECT_EQ(Le32(h, 4), r.riff) << r.channels << " " << r.data;
    EXPECT_EQ(Le32(h, h.size() - 4), r.data_field) << r.channels << " " << r.data;
    EXPECT_EQ(Le32(h, h.size() - 4) % (2u * static_cast<unsigned>(r.channels)), 0u);
  }
}

TEST(Wav, WriterPatchesSizesRawWritesSamplesOnly) {
  const std::int16_t s[6] = {1, -1, 0x1234, -2, 3, 4};
  for (bool raw : {false, true}) {
    std::FILE* f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    aklkit::WavWriter w(f, raw);
    ASSERT_TRUE(w.Start({22050, 2, 0}));
    ASSERT_TRUE(w.Write(s, 3));
    ASSERT_TRUE(w.Finish());
    EXPECT_FALSE(w.oversize());
    std::vector<std::uint8_t> all(256);
    std::rewind(f);
    all.resize(std::fread(all.data(), 1, all.size(), f));
    std::fclose(f);
    ASSERT_EQ(all.size(), raw ? 12u : 56u);
    if (!raw) {
      EXPECT_EQ(std::vector<std::uint8_t>(all.begin(), all.begin() + 44), aklkit::WavHeader({22050, 2, 0}, 12));
    }
    const std::size_t at = raw ? 0 : 44;
    EXPECT_EQ(all[at + 4], 0x34);
    EXPECT_EQ(all[at + 5], 0x12);
    EXPECT_EQ(all[at + 2], 0xFF);
  }
}

TEST(Bits, CursorReadsAlignsAndChainsWithTheWriter) {
  std::uint8_t buf[8] = {0xB7, 0x5A, 0xFF, 0x00, 0x81, 0, 0, 0};
  aklkit::BitCursor c{buf, 6};
  EXPECT_EQ(aklkit::ReadBits(c, 5), 0x1Au);  // 11 then 010: byte 1, offset 3
  EXPECT_EQ(c.p, buf + 1);
  EXPECT_EQ(c.off, 3);
  aklkit::ByteAlign(c);
  EXPECT_EQ(c.p, buf + 2);
  EXPECT_EQ(c.off, 0);
  aklkit::ByteAlign(c);
  EXPECT_EQ(c.p, buf + 2);
  EXPECT_EQ(aklkit::ReadBits(c, 0), 0u);
  aklkit::BitCursor w32 = aklkit::CursorAt(buf, 4);
  EXPECT_EQ(aklkit::ReadBits(w32, 32), 0x75AFF008u);
  EXPECT_EQ(aklkit::BitPosition(w32, buf), 36);
  // Writing fields and copying bit ranges reproduce the source bits.
  std::uint8_t out[8] = {};
  aklkit::BitWriter w(out);
  w.Put(0x5, 3);
  w.Copy(buf, 3, 43);
  EXPECT_EQ(w.bits(), 43);
  aklkit::BitCursor a{out, 3}, b{buf, 3};
  EXPECT_EQ(out[0] >> 5, 5);
  for (int i = 0; i < 40; ++i) ASSERT_EQ(aklkit::ReadBits(a, 1), aklkit::ReadBits(b, 1)) << i;
}

TEST(ScaleFactorCodes, EveryDifferenceRoundTripsThroughTheVlcEngine) {
  aklkit::ScaleFactorCodes codes;
  ASSERT_TRUE(codes.ok());
  alignas(16) std::uint8_t buf[4096] = {};
  aklkit::BitWriter w(buf + 16);  // readers may look back to the aligned word
  for (int d = -60; d <= 60; ++d) w.Put(aklkit::ScaleFactorCodes::Code(d), aklkit::ScaleFactorCodes::Length(d));
  EXPECT_EQ(aklkit::ScaleFactorCodes::Length(0), 1);
  EXPECT_EQ(aklkit::ScaleFactorCodes::Length(60), 19);
  aklkit::BitCursor c{buf + 16, 0};
  for (int d = -60; d <= 60; ++d) ASSERT_EQ(codes.Decode(c), d);
  EXPECT_EQ(aklkit::BitPosition(c, buf + 16), w.bits());
}

}  // namespace
