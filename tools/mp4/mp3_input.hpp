// akl-mp3dec's input: an ISO base media file (MP4, M4A, MOV, 3GP; found from
// the content, never the file name) has the access units of its first MPEG
// audio track decoded one by one (DecodeUnits), with the edit list's
// trimming; anything else is an MP3 stream as it is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "mp3dec/mp3_stream.hpp"

namespace aklmp3 {

// As DecodeBuffer.  For an MP4 file that cannot be decoded, *refusal says why
// (stats.frames is then 0); *warnings receives what the reader noticed (other
// audio tracks, truncation), and *damage (if not null) the first damage of the
// file, whose audio before it was decoded.  stats.samples_out counts what the
// sink received.
DecodeStats DecodeInput(const std::uint8_t* data, std::size_t size, const DecodeOptions& options, PcmSink* sink,
                        std::string* refusal, std::vector<std::string>* warnings, std::string* damage = nullptr);

}  // namespace aklmp3
