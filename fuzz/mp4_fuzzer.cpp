// The decoder programs' MP4 reader (tools/mp4) over arbitrary input: box
// walk, sample tables, fragments, edit lists, the iTunes comment, track
// choice, gapless arithmetic and the AudioSpecificConfig of every track.
// The input is copied into a heap block of exactly its size, and every
// access unit the reader reports is read, so a range outside the file is an
// AddressSanitizer report.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "mp4/audio_config.hpp"
#include "mp4/bmff.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::uint8_t> file(data, data + size);
  mp4::Movie movie;
  std::string error, note;
  if (!mp4::ReadMovie(file.data(), file.size(), &movie, &error)) {
    if (error.empty()) std::abort();
    return 0;
  }
  unsigned sum = 0;
  for (const mp4::Track& t : movie.tracks) {
    if (t.samples.size() > t.declared_samples || t.samples.size() > size || t.sample_bytes > size) std::abort();
    for (const mp4::SampleRef& s : t.samples) {
      if (s.offset > size || s.size > size - s.offset) std::abort();
      for (std::uint32_t i = 0; i < s.size; ++i) sum += file[s.offset + i];
    }
    mp4::AudioSpecificConfig asc;
    if (mp4::ParseAudioSpecificConfig(t.decoder_config.data(), t.decoder_config.size(), &asc, &error)) {
      mp4::GaplessTrim(movie, t, asc.sbr ? asc.extension_sample_rate : asc.sample_rate);
      if (asc.pce_bit_offset >= 0 && static_cast<std::size_t>(asc.pce_bit_offset + asc.pce_bits) > 8 * t.decoder_config.size())
        std::abort();
    }
    mp4::GaplessTrim(movie, t, 0);
    mp4::GaplessTrim(movie, t, 0xFFFFFFFFu);
  }
  mp4::SelectAudioTrack(movie, mp4::Codec::kAac, &note, &error);
  mp4::SelectAudioTrack(movie, mp4::Codec::kMp3, &note, &error);
  return static_cast<int>(sum & 0);
}
