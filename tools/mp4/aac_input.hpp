// akl-aacdec's input: the container is found from the content, never the
// file name.  An ISO base media file (MP4, M4A, 3GP, MOV) has its first AAC
// track decoded from raw access units with the track's AudioSpecificConfig
// and gapless trimming (edit list, else iTunSMPB); anything else is read as
// ADTS or ADIF after any ID3v2 tags in front.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "aacdec/aac_decoder.hpp"

namespace aacdec {

struct InputOptions {
  bool gapless = true;  // apply an MP4 file's edit list or iTunSMPB priming and padding
  bool sbr = true;      // decode HE-AAC band replication (false: the core alone, --no-sbr)
  bool ps = true;       // decode parametric stereo (false: HE-AAC v2 as mono, --no-ps)
};

// As DecodeAacBuffer, for any input; stats->samples counts what the sink
// received after trimming.  A damaged MP4 file whose audio before the damage
// was decoded gives kOk with *damage (if not null) saying what was wrong.
DecodeResult DecodeAacInput(const std::uint8_t* data, std::size_t size, const InputOptions& options, PcmSink* sink,
                            DecodeStats* stats, std::string* message, std::string* damage = nullptr);

// Bytes taken by the ID3v2 tags (one or more, with footers) at the start of
// `data`; 0 if there are none.
std::size_t Id3v2TagsLength(const std::uint8_t* data, std::size_t size);

}  // namespace aacdec
