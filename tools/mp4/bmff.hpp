// ISO base media files (MP4, M4A, 3GP, QuickTime MOV) for the decoder
// programs: finds the audio tracks, their decoder configuration, where every
// access unit lies in the file, the edit list and iTunes' gapless comment.
//
// The reader works over a whole file in memory and never reads outside it.
// Every box size, entry count and offset is checked against its parent box
// and the file size before it is used; a vector is only sized from a count
// after that count has been checked against the bytes that hold its entries
// (or, for implicit entries, against the file size), so memory stays linear
// in the input.  A box of size 0 runs to the end of its parent (the file at
// top level); a box shorter than its own header is damage, never a loop.
//
// Access units may not overlap so much that together they outgrow the file:
// the units up to that point are kept (so work and memory over the units stay
// linear in the input).
//
// Damage policy: the movie box (`moov`) must be whole and consistent, or
// ReadMovie fails with a message.  Access units that the tables place past
// the end of the file (a cut download) and movie fragments after a damaged
// one are dropped with a warning; everything before them is kept.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace mp4 {

enum class Codec { kOther, kAac, kMp3 };

// One access unit: `size` bytes at `offset` in the file (always inside it).
struct SampleRef {
  std::uint64_t offset = 0;
  std::uint32_t size = 0;
};

struct Track {
  std::uint32_t id = 0;
  std::string handler;  // hdlr handler type: "soun", "vide", ...
  std::string format;   // first sample entry's four-character code: "mp4a", ".mp3", "avc1", ...
  Codec codec = Codec::kOther;
  int object_type_indication = 0;            // esds: 0x40 MPEG-4 audio, 0x66..0x68 MPEG-2 AAC, 0x69/0x6B Layer I-III
  std::vector<std::uint8_t> decoder_config;  // esds DecoderSpecificInfo (AudioSpecificConfig for AAC)
  int channels = 0;                          // from the sample entry
  std::uint32_t entry_sample_rate = 0;       // from the sample entry (integer part)
  std::uint32_t timescale = 0;               // mdhd: media time units per second
  std::uint64_t stts_duration = 0;           // sum of the time-to-sample table, media units
  std::vector<SampleRef> samples;            // in decoding order, all inside the file
  std::uint64_t declared_samples = 0;        // what the tables (or fragments) announce
  std::uint64_t sample_bytes = 0;            // the sum of the samples' sizes: never more than the file's size

  // The edit list: the first edit that plays media, and how many edits there were.
  int edit_count = 0;
  bool has_media_edit = false;
  std::int64_t edit_media_time = 0;     // media units: where playback starts (the priming)
  std::uint64_t edit_duration = 0;      // movie units (mvhd timescale): how long it plays; 0 = to the end
  std::uint64_t empty_edit_duration = 0;  // movie units of empty edits before it
};

struct Movie {
  std::uint32_t timescale = 0;  // mvhd
  std::vector<Track> tracks;
  bool fragmented = false;
  // iTunes' gapless comment (----/com.apple.iTunes/iTunSMPB), if present.
  bool has_itunsmpb = false;
  std::uint32_t itunsmpb_delay = 0;
  std::uint32_t itunsmpb_padding = 0;
  std::uint64_t itunsmpb_length = 0;  // samples per channel of the original
  std::vector<std::string> warnings;  // problems that do not stop decoding
  // The first of them that is damage (a truncated file, units outside it or
  // overlapping, a damaged fragment or box after the movie box); empty if none.
  std::string damage;
};

// True if `data` starts like an ISO base media file: a plausible box header
// whose type is one that begins such files (ftyp, moov, mdat, free, skip,
// wide, pnot, styp, moof, sidx).
bool LooksLikeIsoBmff(const std::uint8_t* data, std::size_t size);

// Reads the structure of the whole file.  False, with *error saying why, if
// there is no usable movie box.
bool ReadMovie(const std::uint8_t* data, std::size_t size, Movie* movie, std::string* error);

// The index of the first track of codec `want` among the audio tracks (or -1;
// then *error names what the file holds instead).  *note, if not empty, tells
// the caller about other audio tracks that are not decoded.
int SelectAudioTrack(const Movie& movie, Codec want, std::string* note, std::string* error);

// Gapless trimming in output samples per channel, from the track's edit list
// (media time in the track's timescale, duration in the movie's) or, without
// one, from iTunSMPB, whose counts are samples at `stream_rate`: the AAC
// core's sampling rate, also for an SBR stream, whose output runs at twice
// that (encoders write priming 2112 and the length at the core rate; 0 = the
// track's timescale).  `output_rate` is the rate actually decoded.
struct Trim {
  std::uint64_t skip = 0;      // samples to drop at the start
  bool limited = false;        // if true, keep at most `keep` samples after the skipped ones
  std::uint64_t keep = 0;
  std::string source;          // "edit list", "iTunSMPB" or empty if nothing applies
};
Trim GaplessTrim(const Movie& movie, const Track& track, std::uint32_t output_rate, std::uint32_t stream_rate = 0);

}  // namespace mp4
