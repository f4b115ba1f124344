// Walks every frame of real Layer III streams through the bitstream stages:
// header, side information, main data from the bit reservoir, scale factors
// and Huffman data of every granule and channel.
#include <gtest/gtest.h>

#include <array>
#include <cctype>
#include <cstdio>
#include <ostream>
#include <cstdint>
#include <string>
#include <vector>

#include "aklac.h"
#include "mp3/tables.hpp"
#include "mp3_stream.hpp"
#include "mp3_test_util.hpp"
#include "../support/test_util.hpp"

namespace {

struct StreamRow {
  const char* file;
  int min_frames;           // frames expected in the walk
  int max_incomplete;       // frames whose reservoir reaches before the file
};

void PrintTo(const StreamRow& row, std::ostream* os) { *os << row.file; }

class StreamWalk : public testing::TestWithParam<StreamRow> {};

TEST_P(StreamWalk, EveryGranuleDecodesToItsPart23Length) {
  const StreamRow& row = GetParam();
  const std::vector<std::uint8_t> data = akl::test::ReadFile(akl::test::DataPath(std::string("mp3/") + row.file));
  ASSERT_FALSE(data.empty()) << row.file;
  const std::vector<akl::test::Mp3Frame> frames = akl::test::SplitFrames(data);
  ASSERT_GE(static_cast<int>(frames.size()), row.min_frames);

  // Partition rows for the Mbp form: mixed blocks have 36 lines of long bands.
  Akl16s shortb[6 * 14], mbp[6 * 2];
  for (int r = 0; r < 6; ++r) {
    for (int b = 0; b < 14; ++b) shortb[r * 14 + b] = akl::mp3::kSfbShort[r][b];
    mbp[r * 2] = static_cast<Akl16s>(r < 3 ? 6 : 8);
    mbp[r * 2 + 1] = 0;
  }

  akl::test::MainDataAssembler assembler;
  akl::test::Mp3FrameData fd;
  int incomplete = 0, granules = 0, stuffed = 0, overrun = 0;
  Akl8s sf[2][40] = {};
  for (std::size_t fi = 0; fi < frames.size(); ++fi) {
    SCOPED_TRACE(testing::Message() << row.file << " frame " << fi);
    ASSERT_EQ(assembler.Next(data, frames[fi], fd), kStsOk);
    if (!fd.complete) {
      ++incomplete;
      continue;
    }
    Akl8u* p = fd.main.data();
    Akl32s off = 0;
    for (int gr = 0; gr < fd.granules; ++gr) {
      for (int ch = 0; ch < fd.channels; ++ch) {
        SCOPED_TRACE(testing::Message() << "granule " << gr << " channel " << ch);
        AklMP3SideInfo si = fd.si[gr * fd.channels + ch];
        const std::size_t start = static_cast<std::size_t>(p - fd.main.data()) * 8 + static_cast<std::size_t>(off);
        ASSERT_LE(start + static_cast<std::size_t>(si.part23Length), (fd.main.size() - 8) * 8) << "main data too short";
        ASSERT_EQ(aklsUnpackScaleFactors_MP3_1u8s(&p, &off, sf[ch], &si, fd.scfsi + 4 * ch, &fd.h, gr, ch), kStsOk);
        const std::size_t after_sf = static_cast<std::size_t>(p - fd.main.data()) * 8 + static_cast<std::size_t>(off);
        const int sf_bits = static_cast<int>(after_sf - start);
        const int huf_bits = si.part23Length - sf_bits;
        ASSERT_GE(huf_bits, 0);

        // Every form from the same cursor; all must agree.
        std::array<Akl32s, 576> is[3];
        Akl32s bound[3];
        std::size_t end[3];
        for (int form = 0; form < 3; ++form) {
          Akl8u* q = p;
          Akl32s qoff = off;
          Status st;
          if (form == 0)
            st = aklsHuffmanDecode_MP3_1u32s(&q, &qoff, is[form].data(), &bound[form], &si, &fd.h, huf_bits);
          else if (form == 1)
            st = aklsHuffmanDecodeSfb_MP3_1u32s(&q, &qoff, is[form].data(), &bound[form], &si, &fd.h, huf_bits,
                                                &akl::mp3::kSfbLong[0][0]);
          else
            st = aklsHuffmanDecodeSfbMbp_MP3_1u32s(&q, &qoff, is[form].data(), &bound[form], &si, &fd.h, huf_bits,
                                                   &akl::mp3::kSfbLong[0][0], shortb, mbp);
          ASSERT_EQ(st, kStsOk) << "form " << form;
          end[form] = static_cast<std::size_t>(q - fd.main.data()) * 8 + static_cast<std::size_t>(qoff);
          if (form == 2) {
            p = q;
            off = qoff;
          }
        }
        EXPECT_EQ(is[0], is[1]);
        EXPECT_EQ(is[0], is[2]);
        EXPECT_EQ(bound[0], bound[1]);
        EXPECT_EQ(bound[0], bound[2]);
        // Scale-factor bits plus Huffman bits land exactly on part23Length.
        ASSERT_EQ(static_cast<long>(end[0] - start), si.part23Length);
        ASSERT_EQ(end[1], end[0]);
        ASSERT_EQ(end[2], end[0]);

        // The bit-by-bit reference decoder reads the same spectrum.
        const auto [r1, r2] = akl::test::SfbRegions(si, fd.h, &akl::mp3::kSfbLong[0][0]);
        const akl::test::RefResult ref = akl::test::RefDecode(fd.main, after_sf, si, huf_bits, r1, r2);
        ASSERT_EQ(ref.status, kStsOk);
        ASSERT_EQ(is[0], ref.values);
        ASSERT_EQ(bound[0], ref.bound);
        if (ref.remaining_after_count1 > 0) ++stuffed;
        if (ref.remaining_after_count1 < 0) ++overrun;
        ++granules;
      }
    }
  }
  EXPECT_LE(incomplete, row.max_incomplete);
  RecordProperty("granules", granules);
  std::printf("%s: %zu frames, %d granule-channels, %d without reservoir, %d with stuffing, %d with count1 overrun\n",
              row.file, frames.size(), granules, incomplete, stuffed, overrun);
}

INSTANTIATE_TEST_SUITE_P(
    Streams, StreamWalk,
    testing::Values(StreamRow{"mp3_m1_44k1_js_128_music.mp3", 59, 0}, StreamRow{"mp3_m1_48k_st_160_crc_clicks.mp3", 51, 0},
                    StreamRow{"mp3_m2_22k05_mono_40_speech.mp3", 60, 0}, StreamRow{"mp3_m2_24k_js_64_crc_clicks.mp3", 65, 0},
                    StreamRow{"compl.bit", 216, 0}, StreamRow{"he_32khz.bit", 150, 0}, StreamRow{"he_44khz.bit", 410, 0},
                    StreamRow{"he_48khz.bit", 150, 0}, StreamRow{"he_free.bit", 68, 0}, StreamRow{"he_mode.bit", 128, 0},
                    StreamRow{"hecommon.bit", 30, 0}, StreamRow{"si.bit", 118, 0}, StreamRow{"si_block.bit", 64, 0},
                    StreamRow{"si_huff.bit", 75, 0}, StreamRow{"sin1k0db.bit", 310, 3},
                    StreamRow{"M2L3_bitrate_16_all.bit", 476, 0}, StreamRow{"M2L3_bitrate_22_all.bit", 476, 0},
                    StreamRow{"M2L3_bitrate_24_all.bit", 476, 0}, StreamRow{"M2L3_compl24.bit", 212, 0},
                    StreamRow{"M2L3_noise.bit", 386, 0}),
    [](const testing::TestParamInfo<StreamRow>& info) {
      std::string n = info.param.file;
      for (char& c : n)
        if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
      return n;
    });

}  // namespace
