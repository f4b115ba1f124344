// The Layer III encoder of akl-mp3enc, built on the aklac encoding
// operations: analysis filter bank, forward MDCT, mid/side, quantization,
// Huffman coding and packing come from the library; this file adds the
// control around them (block switching, masking thresholds, bit allocation
// and rate control, the bit reservoir and frame assembly, the info frame).
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "aklac.h"

namespace aklenc {

enum class RateControl { kCbr, kAbr, kVbr };

struct EncoderConfig {
  int rate = 44100;         // 32000, 44100, 48000 (MPEG-1) or 16000, 22050, 24000 (MPEG-2)
  int in_channels = 2;      // channels of the PCM handed to Encode
  char mode = 'j';          // 's' stereo, 'j' joint stereo, 'm' mono (stereo input down-mixed)
  RateControl rc = RateControl::kCbr;
  int kbps = 128;           // CBR bit rate; ABR average
  int vbr_quality = 4;      // VBR: 0 (best) .. 9
  bool crc = false;
  int lowpass_hz = -1;      // -1: chosen from the bit rate or quality; 0: none
  bool info_frame = true;   // reserve and fill the Xing/Info frame
};

// Bit rates of the header's bitrateIndex 1..14 in kbit/s.
int BitrateKbps(int id, int index);
// The index of a bit rate, or -1.
int BitrateIndex(int id, int kbps);

class Encoder {
 public:
  Encoder();
  ~Encoder();
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;

  // Checks the configuration; false with a reason in *error.
  bool Init(const EncoderConfig& config, std::string* error);
  // Output: called with each completed frame, in order.
  void SetSink(std::function<void(const std::uint8_t*, std::size_t)> sink) { sink_ = std::move(sink); }

  // Encodes interleaved frames of in_channels samples (full scale 1.0).
  void Encode(const float* pcm, int frames);
  // Encodes what is left, with the padding a gapless decoder trims, and
  // flushes the last frames.
  void Finish();

  // The info frame: written first (as a placeholder when the counts are not
  // known yet) and rewritten after Finish.  Empty when not configured.
  std::vector<std::uint8_t> InfoFrame() const;

  int lowpass_hz() const { return lowpass_hz_; }
  int channels_out() const { return nch_; }
  std::int64_t frames() const { return frames_out_; }
  std::int64_t bytes() const { return bytes_out_; }
  std::int64_t samples_in() const { return samples_in_; }
  int encoder_delay() const;
  int padding() const;
  double average_kbps() const;
  int short_granules() const { return short_granules_; }
  int ms_granules() const { return ms_granules_; }

 private:
  struct Channel;
  struct Granule;
  struct PendingFrame;

  void ProcessInputGranule();
  void EncodeGranule(int block_type, bool lookahead_short);
  void EncodeFrame();
  void QuantizeChannel(Granule& g, int ch, int budget, bool vbr);
  void EmitMainData(const std::vector<std::uint8_t>& bytes, int bits_unused);
  void QueueFrame(std::vector<std::uint8_t> frame, int main_offset);
  void Flushed();
  int FrameBytes(int bitrate_index, int padding) const;
  int MaxReservoirBytes(int bitrate_index) const;
  bool Attack(int ch) const;

  EncoderConfig cfg_;
  std::function<void(const std::uint8_t*, std::size_t)> sink_;
  AklMP3FrameHeader hdr_{};
  int id_ = 1, sfi_ = 0, nch_ = 2, ngr_ = 2, side_bytes_ = 32;
  int lowpass_hz_ = 0, lowpass_line_ = 576;
  int cbr_index_ = 9;
  double slot_frac_ = 0.0;  // CBR padding accumulator

  std::vector<std::unique_ptr<Channel>> ch_;
  std::vector<float> inbuf_[2];  // input samples not yet analysed, per output channel
  std::int64_t samples_in_ = 0;
  std::int64_t granules_in_ = 0;     // input granules analysed
  std::int64_t granules_coded_ = 0;  // granules transformed and queued
  std::int64_t target_granules_ = -1;  // set by Finish
  bool desired_short_prev_ = false;
  int prev_block_type_ = 0;

  std::vector<std::unique_ptr<Granule>> frame_gr_;  // granules of the frame being assembled

  // Reservoir and frame assembly.
  std::deque<PendingFrame> pending_;
  int resv_bytes_ = 0;
  std::int64_t frames_out_ = 0, bytes_out_ = 0;
  std::vector<std::uint32_t> frame_offsets_;  // byte offset of every toc_step_-th frame
  int toc_step_ = 1;
  std::int64_t kbps_sum_ = 0;
  int short_granules_ = 0, ms_granules_ = 0;
  double abr_bias_ = 0.0;
};

}  // namespace aklenc
