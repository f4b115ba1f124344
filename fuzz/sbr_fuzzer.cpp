// The SBR payload parser of akl-aacdec and the band replication behind it,
// with the parametric-stereo parser and stereo synthesis of a mono element.
// Leading bytes choose the element (one or two channels, PS on a mono one),
// the SBR rate and how many payloads follow; each payload is copied into an exact-size heap
// block.  The parser's header and previous-frame state carry from payload to
// payload, as in a stream; every payload that parses is then run through
// the element's signal path on a fixed core signal.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "aacdec/sbr.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  static constexpr int kRates[] = {16000, 22050, 24000, 32000, 44100, 48000, 64000, 88200, 96000};
  const int nch = (data[0] & 1) + 1;
  const int fs = kRates[(data[0] >> 1) % 9];
  const bool down = (data[0] & 0x80) != 0;
  const bool ps_on = nch == 1 && (data[0] & 0x40) != 0;
  data += 1;
  size -= 1;

  // 1. The parser alone, payloads split at length bytes.
  aacdec::SbrHeader header;
  aacdec::SbrTables tables;
  bool have = false;
  aacdec::SbrFrameData prev[2];
  aacdec::PsSyntax ps;
  std::size_t pos = 0;
  std::vector<std::vector<std::uint8_t>> payloads;
  while (pos < size) {
    const std::size_t len = std::min<std::size_t>(data[pos], size - pos - 1);
    ++pos;
    auto block = std::make_unique<std::uint8_t[]>(len ? len : 1);
    std::memcpy(block.get(), data + pos, len);
    aacdec::SbrFrameData frame[2];
    bool reset = false, coupling = false;
    int ps_result = 0;
    if (aacdec::ParseSbrPayload(block.get(), static_cast<int>(len), nch, fs, &header, &have, &tables, &reset, frame,
                                &coupling, prev, &ps, &ps_result) == aacdec::SbrError::kNone) {
      prev[0] = frame[0];
      prev[1] = frame[1];
    }
    payloads.emplace_back(data + pos, data + pos + len);
    pos += len;
  }

  // 2. The whole path: the same payloads as one element's, frame by frame.
  aacdec::SbrDecoder sbr(fs / 2, down, [](const std::string&) {});
  if (ps_on) sbr.EnablePs();
  const int rows = ps_on ? 2 : nch;
  std::vector<float> core[2], out[2];
  for (int c = 0; c < rows; ++c) {
    core[c].resize(1024);
    out[c].resize(2048);
    for (int n = 0; n < 1024; ++n) core[c][static_cast<std::size_t>(n)] = 8000.0f * std::sin(0.05f * n * (c + 1));
  }
  const float* in[2] = {core[0].data(), nch > 1 ? core[1].data() : nullptr};
  float* o[2] = {out[0].data(), rows > 1 ? out[1].data() : nullptr};
  int frames = 0;
  for (const auto& p : payloads) {
    if (++frames > 12) break;
    if (!p.empty()) sbr.SetPayload(0, p.data(), static_cast<int>(p.size()));
    sbr.Process(0, nch, nch == 2, false, in, o);
    for (int c = 0; c < rows; ++c)
      for (int n = 0; n < 1024 * sbr.OutputFactor(); ++n)
        if (!std::isfinite(out[c][static_cast<std::size_t>(n)])) __builtin_trap();
  }
  return 0;
}
