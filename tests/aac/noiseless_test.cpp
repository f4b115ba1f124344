// Noiseless decoders: random channel streams encoded by the test-side writer
// decode back exactly; argument checks in order; the data failures the
// decoders define; hostile input never reads outside the buffer.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "contract_buffer.hpp"
#include "ics_writer.hpp"
#include "../support/test_util.hpp"

namespace {

using aactest::IcsPlan;

struct Outputs {
  AklAACIcsInfo ics{};
  AklAACChanInfo info{};
  AklAACLtpInfo ltp{};
  Akl16s sf[8 * 60];
  Akl32s spec[1024];
  Akl8u cb[8 * 60];
  Akl8s tns[64];
  Outputs() {
    std::memset(sf, 0x5A, sizeof sf);
    for (Akl32s& v : spec) v = 0x5A5A5A5A;
    std::memset(cb, 0x5A, sizeof cb);
    std::memset(tns, 0x5A, sizeof tns);
    info.pIcsInfo = &ics;
  }
};

// Stream buffer: the ICS written at a given byte/bit start, with room behind.
struct Stream {
  std::vector<Akl8u> bytes = std::vector<Akl8u>(16384, 0);
  std::size_t start_byte = 0;
  int start_bit = 0;
  std::size_t end_bits = 0;  // absolute bit position after the last written bit
};

Stream Encode(const IcsPlan& p, bool ics_info, std::size_t start_byte = 4, int start_bit = 0) {
  Stream s;
  s.start_byte = start_byte;
  s.start_bit = start_bit;
  akl::BitWriter bw(s.bytes.data() + start_byte, start_bit);
  aactest::WriteIcs(bw, p, ics_info);
  s.end_bits = static_cast<std::size_t>(bw.BytePtr() - s.bytes.data()) * 8u + static_cast<std::size_t>(bw.BitOffset());
  return s;
}

enum class Decoder { kLc, kGeneral };

// Decodes from a copy holding exactly the bytes the reading contract lets the
// decoder touch for this stream.
Status Decode(Decoder d, Stream& s, Outputs& o, const IcsPlan& p, int common_window, std::size_t* end_bits) {
  aactest::ContractBuffer mem(s.bytes.data(), s.start_byte * 8u + static_cast<std::size_t>(s.start_bit), s.end_bits);
  Akl8u* ptr = mem.At(s.start_byte);
  Akl32s off = s.start_bit;
  o.info.samplingFrequencyIndex = p.sf_index;
  Status st;
  if (d == Decoder::kLc) {
    o.info.predSfbMax = 0;
    st = aklsNoiselessDecoder_LC_AAC(&ptr, &off, common_window, &o.info, o.sf, o.spec, o.cb, o.tns);
  } else {
    st = aklsNoiselessDecode_AAC(&ptr, &off, &o.ltp, o.sf, o.spec, o.cb, o.tns, &o.info, 0, 0, common_window, 0, 2);
  }
  *end_bits = mem.BitPosition(ptr, off);
  return st;
}

void ExpectDecodedAsPlanned(const IcsPlan& p, const Outputs& o) {
  EXPECT_EQ(o.info.globalGain, p.global_gain);
  EXPECT_EQ(o.info.windowLength, p.Short() ? 128 : 1024);
  EXPECT_EQ(o.info.numWindows, p.Short() ? 8 : 1);
  EXPECT_EQ(o.info.numSwb, p.NumSwb());
  EXPECT_EQ(o.info.pulseDataPresent, p.pulse ? 1 : 0);
  int section = 0;
  for (int g = 0; g < p.Groups(); ++g) {
    ASSERT_EQ(o.info.numSec[g], static_cast<int>(p.sections[static_cast<std::size_t>(g)].size()));
    int k = 0;
    for (const auto& sec : p.sections[static_cast<std::size_t>(g)]) {
      k += sec.len;
      EXPECT_EQ(o.info.sectCb[section], sec.cb);
      EXPECT_EQ(o.info.sectEnd[section], k);
      ++section;
    }
    for (int sfb = 0; sfb < p.max_sfb; ++sfb) {
      const std::size_t b = static_cast<std::size_t>(g * p.max_sfb + sfb);
      EXPECT_EQ(o.cb[b], p.BandCb(g, sfb)) << "group " << g << " band " << sfb;
      EXPECT_EQ(o.sf[b], p.sf_expected[b]) << "group " << g << " band " << sfb;
    }
  }
  for (int i = 0; i < 1024; ++i) {
    ASSERT_EQ(o.spec[i], p.expected[static_cast<std::size_t>(i)]) << "coefficient " << i;
  }
}

struct RoundTripRow {
  Decoder decoder;
  bool short_windows;
  bool noise;
  int common_window;
};

// gtest would otherwise print the row's bytes, padding included.
void PrintTo(const RoundTripRow& r, std::ostream* os) {
  *os << (r.decoder == Decoder::kLc ? "LC" : "general") << (r.short_windows ? " short" : " long")
      << (r.noise ? " noise" : "") << " common_window " << r.common_window;
}

class NoiselessRoundTrip : public ::testing::TestWithParam<RoundTripRow> {};

TEST_P(NoiselessRoundTrip, RandomStreamsDecodeExactly) {
  const RoundTripRow row = GetParam();
  std::mt19937 rng(akl::test::TestSeed() + static_cast<unsigned>(row.short_windows) * 7u + static_cast<unsigned>(row.noise));
  for (int iter = 0; iter < 120; ++iter) {
    const int sf_index = iter % 12;
    const IcsPlan p = aactest::RandomPlan(rng, sf_index, row.short_windows, row.noise);
    SCOPED_TRACE(testing::Message() << "iteration " << iter << " sf index " << sf_index << " max_sfb " << p.max_sfb);
    // Vary the start: pointer misalignment 0..3 and bit offset 0..7.
    Stream s = Encode(p, row.common_window == 0, 4 + static_cast<std::size_t>(iter % 4), iter % 8);
    Outputs o;
    if (row.common_window) {
      // The channel pair element read the ICS information before.
      o.ics.windowSequence = p.window_sequence;
      o.ics.maxSfb = p.max_sfb;
      o.ics.scaleFactorGrouping = p.grouping;
      const auto glen = p.GroupLengths();
      o.ics.numWindowGroups = static_cast<Akl32s>(glen.size());
      for (std::size_t g = 0; g < glen.size(); ++g) o.ics.windowGroupLength[g] = glen[g];
    }
    std::size_t end_bits = 0;
    ASSERT_EQ(Decode(row.decoder, s, o, p, row.common_window, &end_bits), kStsOk);
    EXPECT_EQ(end_bits, s.end_bits);
    if (row.common_window == 0) {
      EXPECT_EQ(o.ics.windowSequence, p.window_sequence);
      EXPECT_EQ(o.ics.maxSfb, p.max_sfb);
      EXPECT_EQ(o.ics.numWindowGroups, p.Groups());
    }
    ExpectDecodedAsPlanned(p, o);
  }
}

INSTANTIATE_TEST_SUITE_P(Rows, NoiselessRoundTrip,
                         ::testing::Values(RoundTripRow{Decoder::kLc, false, false, 0},
                                           RoundTripRow{Decoder::kLc, true, false, 0},
                                           RoundTripRow{Decoder::kLc, false, false, 1},
                                           RoundTripRow{Decoder::kLc, true, false, 1},
                                           RoundTripRow{Decoder::kGeneral, false, true, 0},
                                           RoundTripRow{Decoder::kGeneral, true, true, 0},
                                           RoundTripRow{Decoder::kGeneral, true, true, 1}));

// A small long-window plan with the given sections (one group) and zero values.
IcsPlan SimplePlan(int max_sfb, std::vector<aactest::Section> sections) {
  IcsPlan p;
  p.max_sfb = max_sfb;
  p.sections = {std::move(sections)};
  p.coefs.assign(1024, 0);
  p.expected = p.coefs;
  for (int sfb = 0; sfb < max_sfb; ++sfb) {
    p.sf_code.push_back(60);
    p.sf_expected.push_back(p.BandCb(0, sfb) == 0 ? 0 : p.global_gain);
  }
  return p;
}

TEST(NoiselessDecoder, LongWindowWithoutBandsWritesZeros) {
  const IcsPlan p = SimplePlan(0, {});
  Stream s = Encode(p, true);
  Outputs o;
  std::size_t end = 0;
  ASSERT_EQ(Decode(Decoder::kLc, s, o, p, 0, &end), kStsOk);
  EXPECT_EQ(end, s.end_bits);
  EXPECT_EQ(o.info.numSec[0], 0);
  for (Akl32s v : o.spec) ASSERT_EQ(v, 0);
}

// Raw ICS bits after global gain and a long-window ICS info (max_sfb m).
struct RawIcs {
  std::vector<Akl8u> bytes = std::vector<Akl8u>(4096, 0);
  akl::BitWriter bw{bytes.data(), 0};
  RawIcs(int max_sfb, int window_sequence = 0, int grouping = 0) {
    bw.Write(100, 8);
    bw.Write(0, 1);
    bw.Write(static_cast<std::uint32_t>(window_sequence), 2);
    bw.Write(0, 1);
    if (window_sequence == 2) {
      bw.Write(static_cast<std::uint32_t>(max_sfb), 4);
      bw.Write(static_cast<std::uint32_t>(grouping), 7);
    } else {
      bw.Write(static_cast<std::uint32_t>(max_sfb), 6);
      bw.Write(0, 1);
    }
  }
  void Sf(int index) { aactest::WriteCode(bw, akl::aac::kSfCodes[index]); }
  std::size_t Bits() const { return static_cast<std::size_t>(bw.BytePtr() - bytes.data()) * 8u + static_cast<std::size_t>(bw.BitOffset()); }
};

Status DecodeRaw(RawIcs& r, Decoder d, Outputs& o, std::size_t* bits = nullptr, int sf_index = 4) {
  Akl8u* ptr = r.bytes.data();
  Akl32s off = 0;
  o.info.samplingFrequencyIndex = sf_index;
  o.info.predSfbMax = 0;
  const Status st = d == Decoder::kLc
                        ? aklsNoiselessDecoder_LC_AAC(&ptr, &off, 0, &o.info, o.sf, o.spec, o.cb, o.tns)
                        : aklsNoiselessDecode_AAC(&ptr, &off, &o.ltp, o.sf, o.spec, o.cb, o.tns, &o.info, 0, 0, 0, 0, 2);
  if (bits) *bits = static_cast<std::size_t>(ptr - r.bytes.data()) * 8u + static_cast<std::size_t>(off);
  return st;
}

TEST(NoiselessDecoder, SectionEscapeChainOvershootingMaxSfbFails) {
  RawIcs r(20);
  r.bw.Write(1, 4);
  r.bw.Write(31, 5);  // 31 > 20: the chain stops, the count is 31
  Outputs o;
  std::size_t bits = 0;
  EXPECT_EQ(DecodeRaw(r, Decoder::kLc, o, &bits), kStsAacSectDataErr);
  EXPECT_EQ(bits, r.Bits());  // nothing read after the overshooting length
}

TEST(NoiselessDecoder, ZeroLengthSectionFails) {
  RawIcs r(20);
  for (int i = 0; i < 200; ++i) {
    r.bw.Write(1, 4);
    r.bw.Write(0, 5);
  }
  Outputs o;
  EXPECT_EQ(DecodeRaw(r, Decoder::kLc, o), kStsAacSectDataErr);
}

TEST(NoiselessDecoder, ScaleFactorRangeEdges) {
  // Global gain 100; three bands of book 1 whose differences take the running
  // value to `target` at the last band.
  struct Row {
    int d[3];
    int target;
  } rows[] = {
      {{60, 60, 35}, 255}, {{60, 60, 36}, 256}, {{-60, -40, 0}, 0}, {{-60, -40, -1}, -1}, {{-60, -41, 60}, 19},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.target);
    RawIcs r(3);
    r.bw.Write(1, 4);
    r.bw.Write(3, 5);
    for (int d : row.d) r.Sf(d + 60);
    r.bw.Write(0, 3);  // no pulse, TNS, gain control
    const auto zero_quad = akl::aac::kSpectralCodes[akl::aac::kSpectralBooks[1].code_offset + 40];
    for (int i = 0; i < 3; ++i) aactest::WriteCode(r.bw, zero_quad);
    Outputs o;
    // The check applies after every band: -41 from 40 fails even though the
    // next band would come back into range.
    const bool ok = row.target >= 0 && row.target <= 255 && row.d[1] != -41;
    EXPECT_EQ(DecodeRaw(r, Decoder::kLc, o), ok ? kStsOk : kStsAacSfValErr);
    if (ok) {
      EXPECT_EQ(o.sf[2], row.target);
    }
  }
}

TEST(NoiselessDecoder, NoiseEnergySharesTheScaleFactorAccumulator) {
  // Bands: book 1, noise, noise, book 1, with global gain 100.
  RawIcs r(4);
  r.bw.Write(1, 4);
  r.bw.Write(1, 5);
  r.bw.Write(13, 4);
  r.bw.Write(2, 5);
  r.bw.Write(1, 4);
  r.bw.Write(1, 5);
  r.Sf(60 + 10);         // 110
  r.bw.Write(300, 9);    // first noise: 100 + 300 - 346 = 54
  r.Sf(60 - 4);          // 50: continues from the noise energy
  r.Sf(60 + 7);          // 57: the scale factor adds to the last noise energy
  r.bw.Write(0, 3);
  const auto zero_quad = akl::aac::kSpectralCodes[akl::aac::kSpectralBooks[1].code_offset + 40];
  for (int i = 0; i < 2; ++i) aactest::WriteCode(r.bw, zero_quad);
  Outputs o;
  std::size_t bits = 0;
  ASSERT_EQ(DecodeRaw(r, Decoder::kGeneral, o, &bits), kStsOk);
  EXPECT_EQ(bits, r.Bits());
  EXPECT_EQ(o.sf[0], 110);
  EXPECT_EQ(o.sf[1], 54);
  EXPECT_EQ(o.sf[2], 50);
  EXPECT_EQ(o.sf[3], 57);
  for (int i = 4; i < 12; ++i) EXPECT_EQ(o.spec[i], 0);  // noise bands carry no values
  // The low-complexity decoder refuses noise bands.
  Outputs o2;
  EXPECT_EQ(DecodeRaw(r, Decoder::kLc, o2), kStsAacCodebookErr);
}

TEST(NoiselessDecoder, FirstNoiseEnergyIsNotRangeChecked) {
  RawIcs r(2);
  r.bw.Write(13, 4);
  r.bw.Write(2, 5);
  r.bw.Write(0, 9);   // 100 + 0 - 346 = -246
  r.Sf(60 + 1);       // -245: out of range
  Outputs o;
  EXPECT_EQ(DecodeRaw(r, Decoder::kGeneral, o), kStsAacSfValErr);
  EXPECT_EQ(o.sf[0], -246);
}

TEST(NoiselessDecoder, IntensityPositionsRunFromZeroUnchecked) {
  RawIcs r(3);
  r.bw.Write(15, 4);
  r.bw.Write(2, 5);
  r.bw.Write(14, 4);
  r.bw.Write(1, 5);
  r.Sf(0);    // -60
  r.Sf(0);    // -120
  r.Sf(120);  // -60
  r.bw.Write(0, 3);
  Outputs o;
  ASSERT_EQ(DecodeRaw(r, Decoder::kLc, o), kStsOk);
  EXPECT_EQ(o.sf[0], -60);
  EXPECT_EQ(o.sf[1], -120);
  EXPECT_EQ(o.sf[2], -60);
}

TEST(NoiselessDecoder, ReservedCodebooksFail) {
  for (int cb : {12, 13}) {
    RawIcs r(1);
    r.bw.Write(static_cast<std::uint32_t>(cb), 4);
    r.bw.Write(1, 5);
    r.bw.Write(300, 9);
    r.bw.Write(0, 3);
    Outputs o;
    EXPECT_EQ(DecodeRaw(r, Decoder::kLc, o), kStsAacCodebookErr) << cb;
    if (cb == 12) {
      Outputs o2;
      EXPECT_EQ(DecodeRaw(r, Decoder::kGeneral, o2), kStsAacCodebookErr);
    }
  }
}

TEST(NoiselessDecoder, PulseDataInShortWindowsFailsBeforeItsFields) {
  RawIcs r(0, 2, 0);
  // No sections (max_sfb 0) in 8 groups, no scale factors.
  r.bw.Write(1, 1);  // pulse_data_present
  const std::size_t after_flag = r.Bits();
  Outputs o;
  std::size_t bits = 0;
  EXPECT_EQ(DecodeRaw(r, Decoder::kLc, o, &bits), kStsAacPulseErr);
  EXPECT_EQ(bits, after_flag);
}

TEST(NoiselessDecoder, PulseChecks) {
  struct Row {
    int sf_index;
    int start;
    int offset;
    Status status;
  } rows[] = {
      {4, 52, 0, kStsAacPulseErr},   // start band field of 52 or more
      {11, 40, 0, kStsAacPulseErr},  // 8 kHz has 40 bands
      {11, 39, 0, kStsOk},
      {4, 48, 31, kStsOk},           // 928 + 31 + 31 + 31 = 1021
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.start);
    RawIcs r(0);
    r.bw.Write(1, 1);
    r.bw.Write(2, 2);  // three pulses
    r.bw.Write(static_cast<std::uint32_t>(row.start), 6);
    for (int i = 0; i < 3; ++i) {
      r.bw.Write(static_cast<std::uint32_t>(row.offset), 5);
      r.bw.Write(5, 4);
    }
    r.bw.Write(0, 2);
    Outputs o;
    EXPECT_EQ(DecodeRaw(r, Decoder::kLc, o, nullptr, row.sf_index), row.status);
  }
  // Positions beyond the window: start band 48 at 44.1 kHz (928), offsets 31 x 4 = 1052.
  RawIcs r(0);
  r.bw.Write(1, 1);
  r.bw.Write(3, 2);
  r.bw.Write(48, 6);
  for (int i = 0; i < 4; ++i) {
    r.bw.Write(31, 5);
    r.bw.Write(5, 4);
  }
  r.bw.Write(0, 2);
  Outputs o;
  EXPECT_EQ(DecodeRaw(r, Decoder::kLc, o), kStsAacPulseErr);
}

TEST(NoiselessDecoder, GainControlIsRefused) {
  RawIcs r(0);
  r.bw.Write(0, 1);
  r.bw.Write(0, 1);
  r.bw.Write(1, 1);
  Outputs o;
  std::size_t bits = 0;
  EXPECT_EQ(DecodeRaw(r, Decoder::kLc, o, &bits), kStsAacGainCtrlErr);
  EXPECT_EQ(bits, r.Bits());
}

TEST(NoiselessDecoder, EscapeAbove8191Fails) {
  RawIcs r(1);
  r.bw.Write(11, 4);
  r.bw.Write(1, 5);
  r.Sf(60);
  r.bw.Write(0, 3);
  const auto& book = akl::aac::kSpectralBooks[11];
  aactest::WriteCode(r.bw, akl::aac::kSpectralCodes[book.code_offset + 16 * 17]);  // (16, 0)
  r.bw.Write(0, 1);           // sign
  r.bw.Write(0x1FF, 9);       // nine prefix ones: 2^13 or more
  r.bw.Write(0, 1);
  Outputs o;
  EXPECT_EQ(DecodeRaw(r, Decoder::kLc, o), kStsAacCoefValErr);
}

TEST(NoiselessDecoder, LcMaxSfbAboveBandCountFails) {
  RawIcs r(45);  // 8 kHz long windows have 40 bands
  Outputs o;
  EXPECT_EQ(DecodeRaw(r, Decoder::kLc, o, nullptr, 11), kStsAacMaxSfbErr);
}

TEST(NoiselessDecoder, GeneralSectionBeyondBandTableFails) {
  RawIcs r(45);
  r.bw.Write(0, 4);
  r.bw.Write(31, 5);
  r.bw.Write(14, 5);
  r.bw.Write(0, 3);
  Outputs o;
  EXPECT_EQ(DecodeRaw(r, Decoder::kGeneral, o, nullptr, 11), kStsErr);
}

TEST(NoiselessDecoder, LcArgumentChecksInOrder) {
  Outputs o;
  std::vector<Akl8u> buf(64, 0);
  Akl8u* p = buf.data() + 4;
  Akl32s off = 0;
  o.info.samplingFrequencyIndex = 4;
  auto call = [&](Akl8u** pp, Akl32s* po, Akl32s cw, AklAACChanInfo* ci, Akl16s* sf, Akl32s* sp, Akl8u* cb, Akl8s* tns) {
    return aklsNoiselessDecoder_LC_AAC(pp, po, cw, ci, sf, sp, cb, tns);
  };
  EXPECT_EQ(call(nullptr, &off, 0, &o.info, o.sf, o.spec, o.cb, o.tns), kStsNullPtr);
  EXPECT_EQ(call(&p, nullptr, 0, &o.info, o.sf, o.spec, o.cb, o.tns), kStsNullPtr);
  EXPECT_EQ(call(&p, &off, 0, nullptr, o.sf, o.spec, o.cb, o.tns), kStsNullPtr);
  EXPECT_EQ(call(&p, &off, 0, &o.info, nullptr, o.spec, o.cb, o.tns), kStsNullPtr);
  EXPECT_EQ(call(&p, &off, 0, &o.info, o.sf, nullptr, o.cb, o.tns), kStsNullPtr);
  EXPECT_EQ(call(&p, &off, 0, &o.info, o.sf, o.spec, nullptr, o.tns), kStsNullPtr);
  EXPECT_EQ(call(&p, &off, 0, &o.info, o.sf, o.spec, o.cb, nullptr), kStsNullPtr);
  Akl8u* null_byte = nullptr;
  EXPECT_EQ(call(&null_byte, &off, 0, &o.info, o.sf, o.spec, o.cb, o.tns), kStsNullPtr);
  o.info.pIcsInfo = nullptr;
  Akl32s bad_off = 8;
  EXPECT_EQ(call(&p, &bad_off, 5, &o.info, o.sf, o.spec, o.cb, o.tns), kStsNullPtr);  // null before ranges
  o.info.pIcsInfo = &o.ics;
  for (Akl32s bo : {-1, 8}) {
    bad_off = bo;
    EXPECT_EQ(call(&p, &bad_off, 5, &o.info, o.sf, o.spec, o.cb, o.tns), kStsAacBitOffsetErr);
  }
  EXPECT_EQ(call(&p, &off, 2, &o.info, o.sf, o.spec, o.cb, o.tns), kStsAacCommonWinErr);
  EXPECT_EQ(call(&p, &off, -1, &o.info, o.sf, o.spec, o.cb, o.tns), kStsAacCommonWinErr);
  o.info.samplingFrequencyIndex = 12;
  o.info.predSfbMax = 3;
  EXPECT_EQ(call(&p, &off, 0, &o.info, o.sf, o.spec, o.cb, o.tns), kStsAacSmpRateIdxErr);
  o.info.samplingFrequencyIndex = -1;
  EXPECT_EQ(call(&p, &off, 0, &o.info, o.sf, o.spec, o.cb, o.tns), kStsAacSmpRateIdxErr);
  o.info.samplingFrequencyIndex = 11;
  EXPECT_EQ(call(&p, &off, 0, &o.info, o.sf, o.spec, o.cb, o.tns), kStsAacPredSfbErr);
  // Nothing was written by any failing check.
  EXPECT_EQ(p, buf.data() + 4);
  EXPECT_EQ(off, 0);
  EXPECT_EQ(o.spec[0], 0x5A5A5A5A);
  EXPECT_EQ(o.info.globalGain, 0);
}

TEST(NoiselessDecoder, GeneralArgumentChecksInOrder) {
  Outputs o;
  std::vector<Akl8u> buf(64, 0);
  Akl8u* p = buf.data() + 4;
  Akl32s off = 0;
  o.info.samplingFrequencyIndex = 4;
  struct Row {
    Akl32s off, ws, max_sfb, cw, layer, aot, sf_index;
    Status status;
  } rows[] = {
      {8, 9, 99, 9, 9, 99, 99, kStsAacBitOffsetErr},
      {0, 9, 99, 2, 9, 99, 99, kStsAacCommonWinErr},
      {0, 4, 99, 1, 9, 99, 99, kStsAacWinSeqErr},
      {0, 3, 99, 1, 2, 99, 99, kStsAacLayerFlagErr},
      {0, 3, 99, 1, 1, 17, 99, kStsAacAotErr},
      {0, 3, 52, 1, 1, 16, 99, kStsAacMaxSfbErr},
      {0, 3, -1, 1, 1, 16, 99, kStsAacMaxSfbErr},
      {0, 3, 51, 1, 1, 16, 12, kStsAacSmpRateIdxErr},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.status);
    Akl32s o_off = r.off;
    o.info.samplingFrequencyIndex = r.sf_index;
    EXPECT_EQ(aklsNoiselessDecode_AAC(&p, &o_off, &o.ltp, o.sf, o.spec, o.cb, o.tns, &o.info, r.ws, r.max_sfb, r.cw,
                                      r.layer, r.aot),
              r.status);
    EXPECT_EQ(o_off, r.off);
  }
  EXPECT_EQ(aklsNoiselessDecode_AAC(&p, &off, nullptr, o.sf, o.spec, o.cb, o.tns, &o.info, 9, 99, 9, 9, 99),
            kStsNullPtr);
  EXPECT_EQ(p, buf.data() + 4);
}

TEST(NoiselessDecoder, ScalableLayerTakesWindowsFromTheMainHeader) {
  // Short windows, groups of 3 and 5 windows from the main header, max_sfb 2,
  // one book-1 section per group; no pulse/TNS/gain-control fields.
  AklAACMainHeader main{};
  main.numWindowGroups = 2;
  main.windowGroupLength[0] = 3;
  main.windowGroupLength[1] = 5;
  std::vector<Akl8u> buf(512, 0);
  akl::BitWriter bw(buf.data(), 0);
  bw.Write(90, 8);
  for (int g = 0; g < 2; ++g) {
    bw.Write(1, 4);
    bw.Write(2, 3);
  }
  for (int b = 0; b < 4; ++b) aactest::WriteCode(bw, akl::aac::kSfCodes[61]);
  // Group 0: 2 bands x 4 lines x 3 windows = 24 values; group 1: 40.
  const auto& book = akl::aac::kSpectralBooks[1];
  for (int q = 0; q < (24 + 40) / 4; ++q) aactest::WriteCode(bw, akl::aac::kSpectralCodes[book.code_offset + 80]);  // (1,1,1,1)
  const std::size_t bits = static_cast<std::size_t>(bw.BytePtr() - buf.data()) * 8u + static_cast<std::size_t>(bw.BitOffset());
  Outputs o;
  o.info.samplingFrequencyIndex = 4;
  Akl8u* p = buf.data();
  Akl32s off = 0;
  ASSERT_EQ(aklsNoiselessDecode_AAC(&p, &off, &main, o.sf, o.spec, o.cb, o.tns, &o.info, 2, 2, 0, 1, 2), kStsOk);
  EXPECT_EQ(static_cast<std::size_t>(p - buf.data()) * 8u + static_cast<std::size_t>(off), bits);
  for (int i = 0; i < 1024; ++i) {
    const bool coded = i < 24 || (i >= 3 * 128 && i < 3 * 128 + 40);
    ASSERT_EQ(o.spec[i], coded ? 1 : 0) << i;
  }
  EXPECT_EQ(o.sf[3], 94);
  // A grouping of more than eight windows is refused.
  main.windowGroupLength[1] = 6;
  p = buf.data();
  off = 0;
  EXPECT_EQ(aklsNoiselessDecode_AAC(&p, &off, &main, o.sf, o.spec, o.cb, o.tns, &o.info, 2, 2, 0, 1, 2),
            kStsAacWinGrpErr);
}

// Window groupings handed in by the caller (a common-window record, a
// scalable main header) are refused unless they cover exactly eight windows
// in 1..8 groups of 1..8: lengths that would overflow a sum, negative ones,
// and groupings short of eight windows, which would leave part of the
// spectrum unwritten.  Guard words around the spectrum stay untouched.
TEST(NoiselessDecoder, HandedInWindowGroupings) {
  enum class Via { kLcCommon, kGeneralCommon, kScalable };
  struct Row {
    Via via;
    std::vector<Akl32s> groups;
    Status want;
  };
  const Row rows[] = {
      {Via::kLcCommon, {3, 5}, kStsOk},
      {Via::kGeneralCommon, {1, 1, 1, 1, 1, 1, 1, 1}, kStsOk},
      {Via::kScalable, {8}, kStsOk},
      {Via::kLcCommon, {INT_MAX, INT_MAX, 3}, kStsAacWinGrpErr},
      {Via::kGeneralCommon, {INT_MAX, INT_MAX, 3}, kStsAacWinGrpErr},
      {Via::kScalable, {INT_MAX, INT_MAX, 3}, kStsAacWinGrpErr},
      {Via::kLcCommon, {1}, kStsAacWinGrpErr},  // 128 of the 1024 values
      {Via::kScalable, {3, 4}, kStsAacWinGrpErr},
      {Via::kGeneralCommon, {-1, 9}, kStsAacWinGrpErr},
      {Via::kScalable, {0, 8}, kStsAacWinGrpErr},
      {Via::kLcCommon, {9, -1}, kStsAacWinGrpErr},
      {Via::kScalable, {}, kStsAacWinGrpErr},
      {Via::kGeneralCommon, {1, 1, 1, 1, 1, 1, 1, 1, 0}, kStsAacWinGrpErr},  // nine groups
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(::testing::PrintToString(r.groups));
    AklAACMainHeader main{};
    Outputs o;
    o.ics.windowSequence = 2;
    o.ics.maxSfb = 0;
    o.ics.numWindowGroups = static_cast<Akl32s>(r.groups.size());
    main.numWindowGroups = o.ics.numWindowGroups;
    for (std::size_t g = 0; g < r.groups.size() && g < 8; ++g) {
      o.ics.windowGroupLength[g] = r.groups[g];
      main.windowGroupLength[g] = r.groups[g];
    }
    o.info.samplingFrequencyIndex = 4;
    std::vector<Akl32s> guarded(1024 + 2 * 64, 0x5A5A5A5A);
    Akl32s* spectrum = guarded.data() + 64;
    std::vector<Akl8u> zeros(64, 0);
    Akl8u* p = zeros.data();
    Akl32s off = 0;
    Status st;
    switch (r.via) {
      case Via::kLcCommon:
        st = aklsNoiselessDecoder_LC_AAC(&p, &off, 1, &o.info, o.sf, spectrum, o.cb, o.tns);
        break;
      case Via::kGeneralCommon:
        st = aklsNoiselessDecode_AAC(&p, &off, &o.ltp, o.sf, spectrum, o.cb, o.tns, &o.info, 0, 0, 1, 0, 2);
        break;
      default:
        st = aklsNoiselessDecode_AAC(&p, &off, &main, o.sf, spectrum, o.cb, o.tns, &o.info, 2, 0, 0, 1, 2);
        break;
    }
    EXPECT_EQ(st, r.want);
    for (int i = 0; i < 64; ++i) {
      ASSERT_EQ(guarded[static_cast<std::size_t>(i)], 0x5A5A5A5A) << "before the spectrum: " << i;
      ASSERT_EQ(guarded[1024 + 64 + static_cast<std::size_t>(i)], 0x5A5A5A5A) << "after the spectrum: " << i;
    }
    if (r.want == kStsOk) {
      for (int i = 0; i < 1024; ++i) ASSERT_EQ(spectrum[i], 0) << i;
    }
  }
}

// Hostile input: random bytes, or valid streams with flipped bits.  Any status
// may come back, but the decoder stays within the reading contract: a second
// run from memory holding only the words the contract allows for the bits it
// consumed (AddressSanitizer guards the rest) ends in the same place with the
// same status.
TEST(NoiselessDecoder, HostileInputStaysWithinTheReadingContract) {
  std::mt19937 rng(akl::test::TestSeed());
  const std::size_t n = 16384;
  std::vector<Akl8u> buf(n);
  for (int iter = 0; iter < 3000; ++iter) {
    SCOPED_TRACE(iter);
    const std::size_t start_byte = 4 + rng() % 4;
    const int start_bit = static_cast<int>(rng() % 8);
    if (iter % 3 == 0) {
      for (Akl8u& v : buf) v = static_cast<Akl8u>(rng());
    } else {
      std::fill(buf.begin(), buf.end(), Akl8u{0});
      const IcsPlan plan = aactest::RandomPlan(rng, static_cast<int>(rng() % 12), rng() % 2 != 0, true);
      akl::BitWriter bw(buf.data() + start_byte, start_bit);
      aactest::WriteIcs(bw, plan, true);
      const std::size_t used = static_cast<std::size_t>(bw.BytePtr() - buf.data());
      for (int f = 0; f < 1 + static_cast<int>(rng() % 4); ++f) {
        const std::size_t bit = start_byte * 8 + rng() % ((used - start_byte) * 8 + 1);
        buf[bit / 8] = static_cast<Akl8u>(buf[bit / 8] ^ (0x80u >> (bit % 8)));
      }
    }
    const Akl32s sf_index = static_cast<Akl32s>(rng() % 12);
    const Akl32s cw = static_cast<Akl32s>(rng() % 2);
    const bool lc = iter % 2 != 0;
    const Akl32s pred = static_cast<Akl32s>(rng() % 52);
    const Akl32s ws = static_cast<Akl32s>(rng() % 4);
    const Akl32s max_sfb = static_cast<Akl32s>(rng() % 52);
    const Akl32s aot = static_cast<Akl32s>(rng() % 5);
    AklAACIcsInfo common{};
    // A common-window record from a previous element may hold anything in range.
    common.windowSequence = static_cast<Akl32s>(rng() % 4);
    common.maxSfb = static_cast<Akl32s>(rng() % 16);
    common.numWindowGroups = 1 + static_cast<Akl32s>(rng() % 8);
    for (int g = 0; g < 8; ++g) common.windowGroupLength[g] = static_cast<Akl32s>(rng() % 3);
    auto run = [&](Akl8u* p, Akl32s* off, Akl8u** end) {
      Outputs o;
      o.ics = common;
      o.info.samplingFrequencyIndex = sf_index;
      Status st;
      if (lc) {
        st = aklsNoiselessDecoder_LC_AAC(&p, off, cw, &o.info, o.sf, o.spec, o.cb, o.tns);
      } else {
        o.info.predSfbMax = pred;
        st = aklsNoiselessDecode_AAC(&p, off, &o.ltp, o.sf, o.spec, o.cb, o.tns, &o.info, ws, max_sfb, cw, 0, aot);
      }
      *end = p;
      return st;
    };
    Akl32s off = start_bit;
    Akl8u* end = nullptr;
    const Status st = run(buf.data() + start_byte, &off, &end);
    EXPECT_LE(st, kStsOk);
    ASSERT_GE(off, 0);
    ASSERT_LE(off, 7);
    ASSERT_LE(end, buf.data() + n - 16);
    const std::size_t end_bits = static_cast<std::size_t>(end - buf.data()) * 8u + static_cast<std::size_t>(off);
    aactest::ContractBuffer mem(buf.data(), start_byte * 8u + static_cast<std::size_t>(start_bit), end_bits);
    Akl32s off2 = start_bit;
    Akl8u* end2 = nullptr;
    EXPECT_EQ(run(mem.At(start_byte), &off2, &end2), st);
    EXPECT_EQ(mem.BitPosition(end2, off2), end_bits);
  }
}

}  // namespace
