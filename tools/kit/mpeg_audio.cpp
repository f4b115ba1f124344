// See mpeg_audio.hpp.
#include "kit/mpeg_audio.hpp"

#include "kit/crc16.hpp"

namespace aklkit {
namespace {

// kbit/s by bit-rate index 0..14.
constexpr int kKbps[5][15] = {
    {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},  // MPEG-1 Layer I
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},     // MPEG-1 Layer II
    {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},      // MPEG-1 Layer III
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},     // MPEG-2/2.5 Layer I
    {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},          // MPEG-2/2.5 Layers II, III
};
constexpr int kRates[3] = {44100, 48000, 32000};

}  // namespace

int MpegKbps(int version, int layer, int bitrate_index) {
  if (bitrate_index < 0 || bitrate_index > 14 || layer < 1 || layer > 3) return 0;
  const int row = version == 10 ? layer - 1 : layer == 1 ? 3 : 4;
  return kKbps[row][bitrate_index];
}

int MpegSampleRate(int version, int sfi) {
  if (sfi < 0 || sfi > 2) return 0;
  return kRates[sfi] / (version == 10 ? 1 : version == 20 ? 2 : 4);
}

int MpegFrameBytes(int version, int layer, int kbps, int sample_rate, int padding) {
  if (kbps <= 0 || sample_rate <= 0) return 0;
  if (layer == 1) return (12000 * kbps / sample_rate + padding) * 4;
  const int per_kbps = layer == 3 && version != 10 ? 72000 : 144000;
  return per_kbps * kbps / sample_rate + padding;
}

bool ParseMpegHeader(const std::uint8_t* p, MpegHeader* h) {
  if (p[0] != 0xFF || (p[1] & 0xE0) != 0xE0) return false;
  const int vbits = (p[1] >> 3) & 3, lbits = (p[1] >> 1) & 3;
  const int bri = p[2] >> 4, sfi = (p[2] >> 2) & 3;
  if (vbits == 1 || lbits == 0 || bri == 15 || sfi == 3) return false;
  h->version = vbits == 3 ? 10 : vbits == 2 ? 20 : 25;
  h->layer = 4 - lbits;
  h->crc = (p[1] & 1) == 0;
  h->bitrate_index = bri;
  h->sfi = sfi;
  h->padding = (p[2] >> 1) & 1;
  h->mode = p[3] >> 6;
  h->sample_rate = MpegSampleRate(h->version, sfi);
  h->channels = h->mode == 3 ? 1 : 2;
  const bool mpeg1 = h->version == 10;
  h->kbps = MpegKbps(h->version, h->layer, bri);
  h->samples = h->layer == 1 ? 384 : h->layer == 2 || mpeg1 ? 1152 : 576;
  h->frame_bytes = MpegFrameBytes(h->version, h->layer, h->kbps, h->sample_rate, h->padding);
  h->side_bytes = mpeg1 ? (h->channels == 1 ? 17 : 32) : (h->channels == 1 ? 9 : 17);
  return true;
}

std::uint16_t Layer3Crc(const std::uint8_t* frame, int side_bytes) {
  Crc16 crc;
  crc.Bytes(frame + 2, 2);
  crc.Bytes(frame + 6, static_cast<std::size_t>(side_bytes));
  return crc.value();
}

}  // namespace aklkit
