// The MP4 reader on files built here box by box (every box kind it reads,
// broken sizes and counts, truncation everywhere) and on real files.
#include "mp4/bmff.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "../support/test_util.hpp"

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Be(std::uint64_t v, int n) {
  Bytes b;
  for (int i = n - 1; i >= 0; --i) b.push_back(i < 8 ? static_cast<std::uint8_t>(v >> (8 * i)) : 0);
  return b;
}
Bytes Str(const char* s) { return Bytes(s, s + std::strlen(s)); }
Bytes Cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}
Bytes Box(const char* type, std::initializer_list<Bytes> parts) {
  const Bytes body = Cat(parts);
  return Cat({Be(8 + body.size(), 4), Str(type), body});
}
Bytes FullBox(const char* type, int version, std::uint32_t flags, std::initializer_list<Bytes> parts) {
  const Bytes body = Cat(parts);
  return Box(type, {Be(static_cast<std::uint64_t>(version), 1), Be(flags, 3), body});
}

// The access units every built file carries: five of distinct sizes, each
// filled with its own byte value.
const std::uint32_t kSizes[5] = {7, 3, 12, 1, 9};
Bytes Unit(int i) { return Bytes(kSizes[i], static_cast<std::uint8_t>(0xA0 + i)); }

// How a test file is laid out.
struct Layout {
  bool moov_last = false;        // moov after mdat
  bool co64 = false;             // 64-bit chunk offsets
  int stz2_bits = 0;             // compact sample sizes (4, 8, 16) instead of stsz
  bool constant_size = false;    // every unit of kSizes[0] bytes, one stsz field
  int mdat_form = 0;             // 0 plain, 1 64-bit size, 2 size 0 (to the end of the file; needs moov first)
  bool quicktime = false;        // version-1 sound entry, esds inside 'wave', plain meta
  int elst_version = -1;         // -1: no edit list
  bool itunsmpb = false;
  bool video_first = false;      // a video track and a second (MP3) audio track around the AAC one
};

std::uint32_t SizeOf(const Layout& l, int i) { return l.constant_size ? kSizes[0] : kSizes[i]; }

Bytes Esds() {
  const Bytes dsi = {0x12, 0x10};  // AAC-LC, 44.1 kHz, stereo
  const Bytes dcd = Cat({Be(0x04, 1), Be(13 + 2 + dsi.size(), 1), Be(0x40, 1), Be(0x15, 1), Be(0, 3), Be(128000, 4),
                         Be(128000, 4), Be(0x05, 1), Be(dsi.size(), 1), dsi});
  // The ES descriptor's length in the four-byte form some writers use.
  const Bytes es = Cat({Be(1, 2), Be(0, 1), dcd, Be(0x06, 1), Be(1, 1), Be(2, 1)});
  return FullBox("esds", 0, 0, {Be(0x03, 1), {0x80, 0x80, 0x80, static_cast<std::uint8_t>(es.size())}, es});
}

Bytes AudioEntry(const char* format, bool quicktime, const Bytes& children) {
  return Box(format, {Be(0, 6), Be(1, 2), Be(quicktime ? 1 : 0, 2), Be(0, 6), Be(2, 2), Be(16, 2), Be(0, 4),
                      Be(44100u << 16, 4), quicktime ? Be(0, 16) : Bytes(), children});
}

Bytes Trak(std::uint32_t id, const char* handler, const Bytes& entry, const Bytes& tables, const Bytes& edts) {
  return Box("trak", {FullBox("tkhd", 0, 7, {Be(0, 8), Be(id, 4), Be(0, 68)}), edts,
                      Box("mdia", {FullBox("mdhd", 0, 0, {Be(0, 8), Be(44100, 4), Be(5 * 1024, 4), Be(0, 4)}),
                                   FullBox("hdlr", 0, 0, {Be(0, 4), Str(handler), Be(0, 12), Be(0, 1)}),
                                   Box("minf", {Box("stbl", {FullBox("stsd", 0, 0, {Be(1, 4), entry}), tables})})})});
}

// The AAC track's sample tables: two chunks (units 0-1 and 2-4) at the given offsets.
Bytes Tables(const Layout& l, std::uint64_t chunk1, std::uint64_t chunk2) {
  Bytes sizes;
  if (l.stz2_bits == 0) {
    Bytes entries;
    if (!l.constant_size)
      for (int i = 0; i < 5; ++i) entries = Cat({entries, Be(kSizes[i], 4)});
    sizes = FullBox("stsz", 0, 0, {Be(l.constant_size ? kSizes[0] : 0, 4), Be(5, 4), entries});
  } else {
    Bytes entries;
    if (l.stz2_bits == 4) {
      // 4-bit fields hold at most 15: the sizes here all fit.
      entries = {static_cast<std::uint8_t>(kSizes[0] << 4 | kSizes[1]), static_cast<std::uint8_t>(kSizes[2] << 4 | kSizes[3]),
                 static_cast<std::uint8_t>(kSizes[4] << 4)};
    } else {
      for (int i = 0; i < 5; ++i) entries = Cat({entries, Be(kSizes[i], l.stz2_bits / 8)});
    }
    sizes = FullBox("stz2", 0, 0, {Be(0, 3), Be(static_cast<std::uint64_t>(l.stz2_bits), 1), Be(5, 4), entries});
  }
  const Bytes offsets = l.co64 ? FullBox("co64", 0, 0, {Be(2, 4), Be(chunk1, 8), Be(chunk2, 8)})
                               : FullBox("stco", 0, 0, {Be(2, 4), Be(chunk1, 4), Be(chunk2, 4)});
  return Cat({FullBox("stts", 0, 0, {Be(1, 4), Be(5, 4), Be(1024, 4)}),
              FullBox("stsc", 0, 0, {Be(2, 4), Be(1, 4), Be(2, 4), Be(1, 4), Be(2, 4), Be(3, 4), Be(1, 4)}), sizes,
              offsets});
}

Bytes Moov(const Layout& l, std::uint64_t chunk1, std::uint64_t chunk2) {
  const Bytes esds = Esds();
  const Bytes entry = AudioEntry("mp4a", l.quicktime,
                                 l.quicktime ? Box("wave", {Box("frma", {Str("mp4a")}), esds, Be(0, 8)}) : esds);
  Bytes edts;
  if (l.elst_version == 0)
    edts = Box("edts", {FullBox("elst", 0, 0, {Be(2, 4), Be(100, 4), Be(0xFFFFFFFFu, 4), Be(0x10000, 4), Be(1000, 4),
                                               Be(2112, 4), Be(0x10000, 4)})});
  if (l.elst_version == 1)
    edts = Box("edts", {FullBox("elst", 1, 0, {Be(1, 4), Be(441, 8), Be(1024, 8), Be(0x10000, 4)})});
  Bytes udta;
  if (l.itunsmpb) {
    const Bytes item = Box("----", {FullBox("mean", 0, 0, {Str("com.apple.iTunes")}), FullBox("name", 0, 0, {Str("iTunSMPB")}),
                                    Box("data", {Be(1, 4), Be(0, 4),
                                                 Str(" 00000000 00000840 000001C0 0000000000001000 00000000")})});
    const Bytes hdlr = FullBox("hdlr", 0, 0, {Be(0, 4), Str("mdir"), Be(0, 12), Be(0, 1)});
    const Bytes ilst = Box("ilst", {item});
    udta = Box("udta", {l.quicktime ? Box("meta", {hdlr, ilst}) : FullBox("meta", 0, 0, {hdlr, ilst})});
  }
  Bytes tracks = Trak(1, "soun", entry, Tables(l, chunk1, chunk2), edts);
  if (l.video_first) {
    const Bytes video = Trak(7, "vide", Box("avc1", {Be(0, 78)}), Bytes(), Bytes());
    const Bytes mp3 = Trak(9, "soun", AudioEntry(".mp3", false, Bytes()), Bytes(), Bytes());
    tracks = Cat({video, mp3, tracks});
  }
  return Box("moov", {FullBox("mvhd", 0, 0, {Be(0, 8), Be(1000, 4), Be(116, 4), Be(0, 80)}), tracks, udta});
}

// A whole file; *units_at receives the file offsets of the five units.
Bytes BuildFile(const Layout& l, std::vector<std::uint64_t>* units_at = nullptr) {
  const Bytes ftyp = Box("ftyp", {Str("M4A "), Be(0, 4), Str("isomM4A ")});
  const Bytes junk = Bytes(5, 0xEE);  // between the two chunks
  const Bytes payload = Cat({Unit(0), Unit(1), junk, Unit(2), Unit(3), Unit(4)});
  Bytes adjusted = payload;
  if (l.constant_size) {
    adjusted.clear();
    for (int i = 0; i < 5; ++i) {
      adjusted = Cat({adjusted, Bytes(kSizes[0], static_cast<std::uint8_t>(0xA0 + i))});
      if (i == 1) adjusted = Cat({adjusted, junk});
    }
  }
  const std::uint64_t header = l.mdat_form == 1 ? 16 : 8;
  const std::uint64_t moov_size = Moov(l, 0, 0).size();
  const std::uint64_t mdat_at = ftyp.size() + (l.moov_last ? 0 : moov_size);
  const std::uint64_t c1 = mdat_at + header;
  const std::uint64_t c2 = c1 + SizeOf(l, 0) + SizeOf(l, 1) + junk.size();
  Bytes mdat;
  if (l.mdat_form == 0) mdat = Cat({Be(8 + adjusted.size(), 4), Str("mdat"), adjusted});
  if (l.mdat_form == 1) mdat = Cat({Be(1, 4), Str("mdat"), Be(16 + adjusted.size(), 8), adjusted});
  if (l.mdat_form == 2) mdat = Cat({Be(0, 4), Str("mdat"), adjusted});
  const Bytes moov = Moov(l, c1, c2);
  if (units_at) {
    units_at->clear();
    std::uint64_t at = c1;
    for (int i = 0; i < 5; ++i) {
      if (i == 2) at = c2;
      units_at->push_back(at);
      at += SizeOf(l, i);
    }
  }
  return l.moov_last ? Cat({ftyp, mdat, moov}) : Cat({ftyp, moov, mdat});
}

// The units found must be the five built ones, in order and byte for byte.
void ExpectUnits(const Bytes& file, const mp4::Track& t, const Layout& l) {
  ASSERT_EQ(t.samples.size(), 5u);
  for (int i = 0; i < 5; ++i) {
    const auto& s = t.samples[static_cast<std::size_t>(i)];
    ASSERT_EQ(s.size, SizeOf(l, i)) << "unit " << i;
    ASSERT_LE(s.offset + s.size, file.size());
    for (std::uint32_t k = 0; k < s.size; ++k) ASSERT_EQ(file[s.offset + k], 0xA0 + i) << "unit " << i;
  }
}

TEST(Mp4Reader, ReadsEveryLayoutOfTheSampleTables) {
  const struct {
    const char* name;
    Layout layout;
  } kCases[] = {
      {"moov first", {}},
      {"moov after mdat", {.moov_last = true}},
      {"64-bit chunk offsets", {.co64 = true}},
      {"4-bit compact sizes", {.stz2_bits = 4}},
      {"8-bit compact sizes", {.stz2_bits = 8}},
      {"16-bit compact sizes", {.stz2_bits = 16}},
      {"one size for all", {.constant_size = true}},
      {"64-bit mdat size", {.mdat_form = 1}},
      {"mdat of size 0", {.mdat_form = 2}},
      {"QuickTime sound entry", {.quicktime = true}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const Bytes file = BuildFile(c.layout);
    ASSERT_TRUE(mp4::LooksLikeIsoBmff(file.data(), file.size()));
    mp4::Movie m;
    std::string error;
    ASSERT_TRUE(mp4::ReadMovie(file.data(), file.size(), &m, &error)) << error;
    EXPECT_TRUE(m.warnings.empty()) << m.warnings[0];
    EXPECT_EQ(m.timescale, 1000u);
    ASSERT_EQ(m.tracks.size(), 1u);
    const mp4::Track& t = m.tracks[0];
    EXPECT_EQ(t.id, 1u);
    EXPECT_EQ(t.handler, "soun");
    EXPECT_EQ(t.format, "mp4a");
    EXPECT_EQ(t.codec, mp4::Codec::kAac);
    EXPECT_EQ(t.object_type_indication, 0x40);
    EXPECT_EQ(t.decoder_config, (Bytes{0x12, 0x10}));
    EXPECT_EQ(t.channels, 2);
    EXPECT_EQ(t.entry_sample_rate, 44100u);
    EXPECT_EQ(t.timescale, 44100u);
    EXPECT_EQ(t.stts_duration, 5u * 1024);
    EXPECT_EQ(t.declared_samples, 5u);
    ExpectUnits(file, t, c.layout);
  }
}

TEST(Mp4Reader, GaplessFromEditListsAndItunesComment) {
  const struct {
    const char* name;
    Layout layout;
    std::uint32_t output_rate;
    mp4::Trim want;
  } kCases[] = {
      // An empty edit, then media from 2112 for 1 s of the movie's 1000 units.
      {"edit list v0", {.elst_version = 0}, 44100, {2112, true, 44100, "edit list"}},
      {"edit list v1", {.elst_version = 1}, 44100, {1024, true, 19448, "edit list"}},
      // Decoding at half the track's rate (an SBR stream's core) halves the counts.
      {"edit list at half rate", {.elst_version = 0}, 22050, {1056, true, 22050, "edit list"}},
      {"iTunSMPB in an ISO meta", {.itunsmpb = true}, 44100, {0x840, true, 0x1000, "iTunSMPB"}},
      {"iTunSMPB in a QuickTime meta", {.quicktime = true, .itunsmpb = true}, 44100, {0x840, true, 0x1000, "iTunSMPB"}},
      {"the edit list wins", {.elst_version = 1, .itunsmpb = true}, 44100, {1024, true, 19448, "edit list"}},
      {"nothing", {}, 44100, {0, false, 0, ""}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const Bytes file = BuildFile(c.layout);
    mp4::Movie m;
    std::string error;
    ASSERT_TRUE(mp4::ReadMovie(file.data(), file.size(), &m, &error)) << error;
    ASSERT_EQ(m.tracks.size(), 1u);
    const mp4::Trim t = mp4::GaplessTrim(m, m.tracks[0], c.output_rate);
    EXPECT_EQ(t.skip, c.want.skip);
    EXPECT_EQ(t.limited, c.want.limited);
    EXPECT_EQ(t.keep, c.want.keep);
    EXPECT_EQ(t.source, c.want.source);
  }
  const Bytes file = BuildFile({.elst_version = 0});
  mp4::Movie m;
  std::string error;
  ASSERT_TRUE(mp4::ReadMovie(file.data(), file.size(), &m, &error));
  EXPECT_EQ(m.tracks[0].edit_count, 2);
  EXPECT_EQ(m.tracks[0].empty_edit_duration, 100u);
  EXPECT_EQ(m.tracks[0].edit_media_time, 2112);
}

TEST(Mp4Reader, PicksTheFirstAacTrackAndNamesTheOthers) {
  const Bytes file = BuildFile({.video_first = true});
  mp4::Movie m;
  std::string error, note;
  ASSERT_TRUE(mp4::ReadMovie(file.data(), file.size(), &m, &error)) << error;
  ASSERT_EQ(m.tracks.size(), 3u);
  EXPECT_EQ(m.tracks[0].handler, "vide");
  EXPECT_EQ(m.tracks[1].codec, mp4::Codec::kMp3);
  EXPECT_EQ(mp4::SelectAudioTrack(m, mp4::Codec::kAac, &note, &error), 2);
  EXPECT_EQ(note, "the file has 2 audio tracks; decoding track 1, the first AAC one");
  EXPECT_EQ(mp4::SelectAudioTrack(m, mp4::Codec::kMp3, &note, &error), 1);
  m.tracks[2].codec = mp4::Codec::kOther;
  m.tracks[1].codec = mp4::Codec::kOther;
  m.tracks[1].format = "alac";
  EXPECT_EQ(mp4::SelectAudioTrack(m, mp4::Codec::kAac, &note, &error), -1);
  EXPECT_EQ(error, "no AAC track (the audio is 'alac')");
  m.tracks[1].handler = m.tracks[2].handler = "text";
  EXPECT_EQ(mp4::SelectAudioTrack(m, mp4::Codec::kAac, &note, &error), -1);
  EXPECT_EQ(error, "no audio track");
}

// Rewrites the 32-bit field at `at`.
Bytes Patched(Bytes file, std::size_t at, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) file[at + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(v >> (24 - 8 * i));
  return file;
}
std::size_t Find(const Bytes& file, const char* type) {
  for (std::size_t i = 4; i + 4 <= file.size(); ++i)
    if (std::memcmp(&file[i], type, 4) == 0) return i - 4;  // the box's start
  ADD_FAILURE() << "no " << type;
  return 0;
}

TEST(Mp4Reader, RefusesBrokenSizesAndCounts) {
  const Bytes good = BuildFile({});
  const struct {
    const char* name;
    Bytes file;
    const char* error;  // the start of the message
  } kCases[] = {
      {"box smaller than its header", Patched(good, Find(good, "mvhd"), 4), "box 'mvhd' at offset "},
      {"child past its parent", Patched(good, Find(good, "tkhd"), 0x7FFFFFF0), "box 'tkhd' at offset "},
      {"sample sizes past their box", Patched(good, Find(good, "stsz") + 16, 0x40000000), "box 'stsz'"},
      {"chunk offsets past their box", Patched(good, Find(good, "stco") + 12, 0x40000000), "box 'stco'"},
      {"sample-to-chunk entries past their box", Patched(good, Find(good, "stsc") + 12, 0x10000000), "box 'stsc'"},
      {"first chunk not 1", Patched(good, Find(good, "stsc") + 16, 2), "box 'stsc'"},
      {"chunk numbers going back", Patched(good, Find(good, "stsc") + 28, 1), "box 'stsc'"},
      {"edit list past its box", Patched(good, Find(good, "stts") + 12, 0x20000000), "box 'stts'"},
      {"no moov", Patched(good, Find(good, "moov") + 4, 0x66726565), "no movie box (moov)"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    mp4::Movie m;
    std::string error;
    ASSERT_FALSE(mp4::ReadMovie(c.file.data(), c.file.size(), &m, &error));
    EXPECT_EQ(error.rfind(c.error, 0), 0u) << error;
  }
  // A box of size 0 runs to the end of its parent: here the movie header swallows the track.
  {
    const Bytes swallowed = Patched(good, Find(good, "mvhd"), 0);
    mp4::Movie m;
    std::string error;
    ASSERT_TRUE(mp4::ReadMovie(swallowed.data(), swallowed.size(), &m, &error)) << error;
    EXPECT_TRUE(m.tracks.empty());
  }
  // One constant size for more units than the file has bytes.
  Bytes constant = BuildFile({.constant_size = true});
  constant = Patched(constant, Find(constant, "stsz") + 16, 0xFFFFFFFF);
  mp4::Movie m;
  std::string error;
  EXPECT_FALSE(mp4::ReadMovie(constant.data(), constant.size(), &m, &error));
  EXPECT_NE(error.find("exceed the file"), std::string::npos) << error;
}

// A cut file must never be read past its end; what it still holds is kept.
TEST(Mp4Reader, TruncatedAnywhereKeepsWhatIsThere) {
  for (const Layout& l : {Layout{}, Layout{.moov_last = true}, Layout{.quicktime = true, .itunsmpb = true}}) {
    std::vector<std::uint64_t> units_at;
    const Bytes file = BuildFile(l, &units_at);
    for (std::size_t n = 0; n < file.size(); ++n) {
      const Bytes cut(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(n));  // exact-size heap block
      mp4::Movie m;
      std::string error;
      const bool ok = mp4::ReadMovie(cut.data(), cut.size(), &m, &error);
      if (!ok) {
        EXPECT_FALSE(error.empty());
        continue;
      }
      // Success only with the whole movie box, and then exactly the units inside the cut.
      ASSERT_EQ(m.tracks.size(), 1u) << n;
      std::size_t inside = 0;
      for (int i = 0; i < 5; ++i)
        if (units_at[static_cast<std::size_t>(i)] + kSizes[i] <= n && inside == static_cast<std::size_t>(i)) ++inside;
      EXPECT_EQ(m.tracks[0].samples.size(), inside) << n;
      if (inside < 5) {
        EXPECT_FALSE(m.warnings.empty()) << n;
      }
    }
  }
}

// Fragmented layout: moov with mvex/trex, then moof/traf/tfhd/trun runs.
Bytes FragmentedFile(bool default_base_is_moof, bool sizes_in_run) {
  const Bytes ftyp = Box("ftyp", {Str("iso6"), Be(0, 4)});
  const Bytes mvex = Box("mvex", {FullBox("trex", 0, 0, {Be(1, 4), Be(1, 4), Be(1024, 4), Be(kSizes[0], 4), Be(0, 4)})});
  const Bytes esds = Esds();
  const Bytes moov = Box("moov", {FullBox("mvhd", 0, 0, {Be(0, 8), Be(1000, 4), Be(0, 4), Be(0, 80)}),
                                  Trak(1, "soun", AudioEntry("mp4a", false, esds), Bytes(), Bytes()), mvex});
  Bytes out = Cat({ftyp, moov});
  // Fragment 1 holds units 0-1, fragment 2 units 2-4; each moof is followed by its mdat.
  for (int frag = 0; frag < 2; ++frag) {
    const int first = frag == 0 ? 0 : 2, count = frag == 0 ? 2 : 3;
    Bytes payload, run_sizes;
    for (int i = first; i < first + count; ++i) {
      payload = Cat({payload, sizes_in_run ? Unit(i) : Bytes(kSizes[0], static_cast<std::uint8_t>(0xA0 + i))});
      run_sizes = Cat({run_sizes, Be(kSizes[i], 4)});
    }
    const auto moof_of = [&](std::uint32_t data_offset) {
      const std::uint32_t tfhd_flags = default_base_is_moof ? 0x020000 : 0x1;
      const Bytes base = default_base_is_moof ? Bytes() : Be(out.size(), 8);
      const std::uint32_t trun_flags = 0x1 | (sizes_in_run ? 0x200 : 0);
      return Box("moof", {FullBox("mfhd", 0, 0, {Be(static_cast<std::uint64_t>(frag + 1), 4)}),
                          Box("traf", {FullBox("tfhd", 0, tfhd_flags, {Be(1, 4), base}),
                                       FullBox("tfdt", 0, 0, {Be(0, 4)}),
                                       FullBox("trun", 0, trun_flags, {Be(static_cast<std::uint64_t>(count), 4),
                                                                       Be(data_offset, 4), sizes_in_run ? run_sizes : Bytes()})})});
    };
    const std::size_t moof_size = moof_of(0).size();
    out = Cat({out, moof_of(static_cast<std::uint32_t>(moof_size + 8)), Box("mdat", {payload})});
  }
  return out;
}

TEST(Mp4Reader, ReadsMovieFragments) {
  for (bool moof_base : {true, false}) {
    for (bool sizes_in_run : {true, false}) {
      SCOPED_TRACE(std::to_string(moof_base) + std::to_string(sizes_in_run));
      const Bytes file = FragmentedFile(moof_base, sizes_in_run);
      mp4::Movie m;
      std::string error;
      ASSERT_TRUE(mp4::ReadMovie(file.data(), file.size(), &m, &error)) << error;
      EXPECT_TRUE(m.fragmented);
      ASSERT_EQ(m.tracks.size(), 1u);
      ExpectUnits(file, m.tracks[0], Layout{.constant_size = !sizes_in_run});
    }
  }
  // A second fragment pointing outside the file is dropped, the first kept.
  Bytes file = FragmentedFile(true, true);
  std::size_t last_trun = 0;
  for (std::size_t i = 0; i + 4 <= file.size(); ++i)
    if (std::memcmp(&file[i], "trun", 4) == 0) last_trun = i - 4;
  file = Patched(file, last_trun + 16, 0x7FFFFFF0);  // its data offset
  mp4::Movie m;
  std::string error;
  ASSERT_TRUE(mp4::ReadMovie(file.data(), file.size(), &m, &error)) << error;
  EXPECT_EQ(m.tracks[0].samples.size(), 2u);
  ASSERT_EQ(m.warnings.size(), 2u);
  EXPECT_NE(m.warnings[0].find("its data lies outside the file"), std::string::npos) << m.warnings[0];
}

TEST(Mp4Reader, RecognisesFilesByTheirFirstBox) {
  const struct {
    Bytes head;
    bool iso;
  } kCases[] = {
      {Cat({Be(24, 4), Str("ftyp")}), true},   {Cat({Be(8, 4), Str("wide")}), true},
      {Cat({Be(0, 4), Str("mdat")}), true},    {Cat({Be(1, 4), Str("moov")}), true},
      {Cat({Be(4, 4), Str("ftyp")}), false},   {Cat({Be(24, 4), Str("RIFF")}), false},
      {{0xFF, 0xF1, 0x50, 0x80, 0x02, 0x1F, 0xFC, 0x21}, false},  // ADTS
      {Cat({Str("ID3"), Be(0x03000000, 4), Be(0, 1)}), false},
      {Cat({Be(24, 4), Str("fty")}), false},
  };
  for (const auto& c : kCases) EXPECT_EQ(mp4::LooksLikeIsoBmff(c.head.data(), c.head.size()), c.iso);
}

TEST(Mp4Reader, RealFiles) {
  const struct {
    const char* file;
    std::size_t units;
    std::uint32_t timescale;
    mp4::Trim trim;
  } kCases[] = {
      {"mp4/102400samples_qt-lc-aac.m4a", 103, 44100, {2112, true, 102400, "iTunSMPB"}},
      {"mp4/440hz-10ms.m4a", 3, 44100, {2112, true, 441, "edit list"}},
      {"mp4/aac-2048-priming.mov", 217, 44100, {2048, true, 220500, "edit list"}},
      {"mp4/440hz-10ms_fragmented.m4a", 3, 44100, {0, false, 0, ""}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.file);
    const Bytes file = akl::test::ReadFile(akl::test::DataPath(c.file));
    mp4::Movie m;
    std::string error, note;
    ASSERT_TRUE(mp4::ReadMovie(file.data(), file.size(), &m, &error)) << error;
    EXPECT_TRUE(m.warnings.empty());
    const int i = mp4::SelectAudioTrack(m, mp4::Codec::kAac, &note, &error);
    ASSERT_EQ(i, 0) << error;
    const mp4::Track& t = m.tracks[0];
    EXPECT_EQ(t.samples.size(), c.units);
    EXPECT_EQ(t.timescale, c.timescale);
    const mp4::Trim trim = mp4::GaplessTrim(m, t, 44100);
    EXPECT_EQ(trim.skip, c.trim.skip);
    EXPECT_EQ(trim.keep, c.trim.keep);
    EXPECT_EQ(trim.limited, c.trim.limited);
    EXPECT_EQ(trim.source, c.trim.source);
  }
  // The fragmented rewrite holds the very same access units.
  const Bytes a = akl::test::ReadFile(akl::test::DataPath("mp4/440hz-10ms.m4a"));
  const Bytes b = akl::test::ReadFile(akl::test::DataPath("mp4/440hz-10ms_fragmented.m4a"));
  mp4::Movie ma, mb;
  std::string error;
  ASSERT_TRUE(mp4::ReadMovie(a.data(), a.size(), &ma, &error));
  ASSERT_TRUE(mp4::ReadMovie(b.data(), b.size(), &mb, &error));
  ASSERT_EQ(ma.tracks[0].samples.size(), mb.tracks[0].samples.size());
  for (std::size_t k = 0; k < ma.tracks[0].samples.size(); ++k) {
    const auto& sa = ma.tracks[0].samples[k];
    const auto& sb = mb.tracks[0].samples[k];
    ASSERT_EQ(sa.size, sb.size);
    EXPECT_EQ(0, std::memcmp(&a[sa.offset], &b[sb.offset], sa.size));
  }
}

}  // namespace
