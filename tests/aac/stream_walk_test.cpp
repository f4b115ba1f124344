// Every frame of the bundled ADTS streams: the header unpacks, the raw data
// block walks element by element with the library's parsers, and the walk
// ends byte-aligned exactly at the frame length.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "aac/tables.hpp"
#include "contract_buffer.hpp"
#include "raw_block_walker.hpp"
#include "support/test_util.hpp"

namespace {

// The standard's limit of predictor bands by sampling-frequency index.
constexpr int kPredSfbMax[12] = {33, 33, 38, 40, 40, 40, 41, 41, 37, 37, 37, 34};

struct StreamCase {
  const char* file;
  int frames;
  long elements[8];   // SCE CPE CCE LFE DSE PCE FIL END over the stream
  long short_windows; // channels decoded with eight short windows
  long pulse;         // channels with pulse data
  long tns;           // channels with TNS data
  long tns_filters;   // TNS filters over all windows
  int max_tns_order;  // largest TNS filter order
  long intensity_bands; // bands of codebooks 14/15
  long noise_bands;   // bands of codebook 13
  long escapes;       // codebook-11 values of magnitude 16 or more, pulses included
  Status lc_status;   // first failure of the low-complexity decoder (noise bands: -166)
  Status general_status; // first failure of the general decoder
  int general_failed; // frames the general decoder stops in
};

const aklkit::ScaleFactorCodes* SfCodes() {
  static const aklkit::ScaleFactorCodes codes;
  return &codes;
}

struct WalkResult {
  int frames = 0;
  int failed_frames = 0;
  Status first_failure = kStsOk;
  aactest::WalkStats stats;
  std::string message;
};

WalkResult WalkStream(const std::string& file, bool general) {
  WalkResult r;
  std::vector<std::uint8_t> data = akl::test::ReadFile(akl::test::DataPath("aac/" + file));
  if (data.empty()) {
    r.message = "cannot read " + file;
    return r;
  }
  const std::size_t size = data.size();
  // The readers may fetch up to the aligned word after the last bit used.
  data.resize(size + 8, 0);
  std::size_t pos = 0;
  while (pos + 7 <= size) {
    Akl8u* frame = data.data() + pos;
    Akl8u* p = frame;
    AklAACADTSFrameHeader h{};
    if (aklsUnpackADTSFrameHeader_AAC(&p, &h) != kStsOk || frame[0] != 0xFF || (frame[1] & 0xF0) != 0xF0) {
      r.message = "bad ADTS header at " + std::to_string(pos);
      return r;
    }
    if (h.aacFrameLength < 7 || pos + static_cast<std::size_t>(h.aacFrameLength) > size) {
      r.message = "truncated frame at " + std::to_string(pos);
      return r;
    }
    aactest::WalkConfig cfg;
    cfg.sampling_frequency_index = h.samplingFrequencyIndex;
    cfg.audio_object_type = h.profile + 1;
    cfg.pred_sfb_max = h.profile == 0 ? kPredSfbMax[h.samplingFrequencyIndex] : 0;
    cfg.sf_codes = SfCodes();
    cfg.swb_long = akl::aac::kSwbOffsetLong[h.samplingFrequencyIndex];
    cfg.swb_short = akl::aac::kSwbOffsetShort[h.samplingFrequencyIndex];
    cfg.general = general;
    aactest::RawBlockWalker walker(cfg);
    // The block is walked in a copy holding exactly the bytes the reading
    // contract allows, the frame starting 0..3 bytes into an aligned word.
    const std::size_t lead = static_cast<std::size_t>(r.frames % 4);
    std::vector<Akl8u> staged(lead + static_cast<std::size_t>(h.aacFrameLength) + 8, 0);
    std::memcpy(staged.data() + lead, frame, static_cast<std::size_t>(h.aacFrameLength));
    const std::size_t header_bytes = static_cast<std::size_t>(p - frame);
    aactest::ContractBuffer mem(staged.data(), (lead + header_bytes) * 8u,
                                (lead + static_cast<std::size_t>(h.aacFrameLength)) * 8u);
    p = mem.At(lead + header_bytes);
    frame = mem.At(lead);
    Akl32s off = 0;
    Status st = kStsOk;
    for (int b = 0; b < h.numRawDataBlocks && st == kStsOk; ++b) {
      aactest::WalkError err;
      st = walker.Walk(&p, &off, r.stats, err);
    }
    ++r.frames;
    if (st != kStsOk) {
      if (r.failed_frames++ == 0) r.first_failure = st;
    } else if (p - frame != h.aacFrameLength || off != 0) {
      r.message = "frame " + std::to_string(r.frames - 1) + " ends at byte " + std::to_string(p - frame) +
                  " offset " + std::to_string(off) + ", length " + std::to_string(h.aacFrameLength);
      return r;
    }
    pos += static_cast<std::size_t>(h.aacFrameLength);
  }
  if (pos != size) r.message = "trailing bytes";
  return r;
}

class StreamWalk : public ::testing::TestWithParam<StreamCase> {};

// Through the low-complexity decoder (or the general one for main and LTP
// streams): every frame ends exactly at its length, or, for noise-coded
// streams, stops at the first noise band with kStsAacCodebookErr.
TEST_P(StreamWalk, LowComplexityDecoder) {
  const StreamCase& c = GetParam();
  const WalkResult r = WalkStream(c.file, false);
  ASSERT_EQ(r.message, "");
  EXPECT_EQ(r.frames, c.frames);
  EXPECT_EQ(r.first_failure, c.lc_status);
  if (c.lc_status != kStsOk) return;
  EXPECT_EQ(r.failed_frames, c.general_failed);
  for (int id = 0; id < 8; ++id) EXPECT_EQ(r.stats.elements[id], c.elements[id]) << "element id " << id;
  EXPECT_EQ(r.stats.short_windows, c.short_windows);
  EXPECT_EQ(r.stats.pulse, c.pulse);
  EXPECT_EQ(r.stats.tns, c.tns);
  EXPECT_EQ(r.stats.tns_filters, c.tns_filters);
  EXPECT_EQ(r.stats.max_tns_order, c.max_tns_order);
  EXPECT_EQ(r.stats.intensity_bands, c.intensity_bands);
  EXPECT_EQ(r.stats.escapes, c.escapes);
}

TEST_P(StreamWalk, GeneralDecoder) {
  const StreamCase& c = GetParam();
  const WalkResult r = WalkStream(c.file, true);
  ASSERT_EQ(r.message, "");
  EXPECT_EQ(r.frames, c.frames);
  EXPECT_EQ(r.first_failure, c.general_status);
  EXPECT_EQ(r.failed_frames, c.general_failed);
  if (c.general_failed != 0) return;
  for (int id = 0; id < 8; ++id) EXPECT_EQ(r.stats.elements[id], c.elements[id]) << "element id " << id;
  EXPECT_EQ(r.stats.short_windows, c.short_windows);
  EXPECT_EQ(r.stats.pulse, c.pulse);
  EXPECT_EQ(r.stats.tns, c.tns);
  EXPECT_EQ(r.stats.tns_filters, c.tns_filters);
  EXPECT_EQ(r.stats.max_tns_order, c.max_tns_order);
  EXPECT_EQ(r.stats.intensity_bands, c.intensity_bands);
  EXPECT_EQ(r.stats.noise_bands, c.noise_bands);
  EXPECT_EQ(r.stats.escapes, c.escapes);
}

// Counts come from the walk and agree with the streams' published
// descriptions where those give them (al04: pulse data in 354 of 355 frames;
// al05: 8 eight-short sequences; al06: 19; al17: 97; ct_faac: 328; coupling
// and LFE in every frame of al07/al15; al04: 233 TNS filters of order at most
// 8; TNS orders up to 10 in al06 and 12 in al07/al15; al05: 3977 intensity
// bands; al18: 137837 noise bands).  The main-profile stream am05 uses TNS
// orders up to 20, which the reader accepts for the Main object type.
const StreamCase kCases[] = {
    {"aac_lc_22k05_mono_32_speech.aac", 34, {34, 0, 0, 0, 0, 0, 1, 34}, 14, 0, 10, 15, 7, 0, 0, 859, kStsOk, kStsOk, 0},
    {"aac_lc_32k_st_96_clicks_tns.aac", 39, {0, 39, 0, 0, 0, 0, 1, 39}, 25, 0, 8, 8, 7, 0, 0, 235, kStsOk, kStsOk, 0},
    {"aac_lc_44k1_st_128_mix_msall_is_tns.aac", 66, {0, 66, 0, 0, 0, 0, 1, 66}, 16, 0, 12, 19, 7, 736, 0, 191, kStsOk, kStsOk, 0},
    {"aac_lc_48k_st_64_mix_is_pns.aac", 58, {0, 58, 0, 0, 0, 0, 1, 58}, 10, 0, 6, 11, 7, 47, 1106, 73, kStsAacCodebookErr, kStsOk, 0},
    {"al04_44.adts", 355, {355, 0, 0, 0, 355, 1, 66, 355}, 1, 354, 106, 233, 8, 0, 0, 465, kStsOk, kStsOk, 0},
    {"al05_44.adts", 320, {0, 320, 0, 0, 320, 1, 177, 320}, 8, 0, 0, 0, 0, 3977, 0, 1402, kStsOk, kStsOk, 0},
    {"al06_44.adts", 355, {355, 355, 0, 0, 355, 1, 198, 355}, 19, 0, 202, 435, 10, 2657, 0, 2062, kStsOk, kStsOk, 0},
    {"al07_96.adts", 780, {780, 1560, 780, 780, 0, 1, 308, 780}, 0, 0, 436, 436, 12, 18720, 0, 9478, kStsOk, kStsOk, 0},
    {"al15_44.adts", 130, {130, 260, 130, 130, 0, 1, 545, 130}, 0, 0, 150, 150, 12, 3120, 0, 8121, kStsOk, kStsOk, 0},
    {"al17_44.adts", 323, {646, 0, 0, 0, 0, 1, 539, 323}, 97, 0, 0, 0, 0, 0, 0, 3557, kStsOk, kStsOk, 0},
    {"al18_44.adts", 2813, {2813, 0, 0, 0, 0, 0, 2813, 2813}, 0, 0, 0, 0, 0, 0, 137837, 0, kStsAacCodebookErr, kStsOk, 0},
    {"am05_44.adts", 130, {130, 260, 130, 130, 0, 1, 541, 130}, 0, 0, 163, 163, 20, 3120, 0, 8172, kStsOk, kStsOk, 0},
    {"ap05_48.adts", 891, {0, 891, 0, 0, 0, 1, 69, 891}, 2, 0, 56, 63, 12, 8086, 0, 15836, kStsOk, kStsOk, 0},
    {"ct_faac-adts.aac", 861, {0, 861, 0, 0, 0, 0, 1, 861}, 328, 0, 0, 0, 0, 0, 0, 0, kStsOk, kStsOk, 0},
};

INSTANTIATE_TEST_SUITE_P(Streams, StreamWalk, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<StreamCase>& info) {
                           std::string n = info.param.file;
                           for (char& ch : n) {
                             if (ch == '.' || ch == '-') ch = '_';
                           }
                           return n;
                         });

}  // namespace
