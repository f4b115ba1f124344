// See adts.hpp.
#include "kit/adts.hpp"

namespace aklkit {

int AdtsSampleRate(int sfi) {
  static constexpr int kRates[13] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                     22050, 16000, 12000, 11025, 8000,  7350};
  return sfi >= 0 && sfi <= 12 ? kRates[sfi] : 0;
}

bool ParseAdtsHeader(const std::uint8_t* p, AdtsHeader* h) {
  if (p[0] != 0xFF || (p[1] & 0xF6) != 0xF0) return false;  // sync word, layer 0
  AdtsHeader r;
  r.id = (p[1] >> 3) & 1;
  r.protection_absent = p[1] & 1;
  r.profile = p[2] >> 6;
  r.sfi = (p[2] >> 2) & 15;
  r.config = ((p[2] & 1) << 2) | (p[3] >> 6);
  r.frame_length = ((p[3] & 3) << 11) | (p[4] << 3) | (p[5] >> 5);
  r.fullness = ((p[5] & 0x1F) << 6) | (p[6] >> 2);
  r.blocks = (p[6] & 3) + 1;
  r.header_bytes = r.protection_absent ? 7 : 7 + 2 * r.blocks;
  if (r.sfi > 12) return false;
  if (r.frame_length < (r.protection_absent ? 7 : 9) + 1) return false;
  *h = r;
  return true;
}

}  // namespace aklkit
