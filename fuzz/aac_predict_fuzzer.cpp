// The Main and LTP profile tools, from two sides.  With the first byte even:
// the library's operations over a few frames of input-driven side
// information and signals (frequency-domain prediction with a state carried
// from frame to frame, long-term prediction, its reconstruction and history
// update, and the fixed-point filter bank in all four forms), each context
// in caller memory at an input-chosen offset.  A failing call must leave its
// outputs as they were; prediction of finite input in the range a stream can
// produce must stay finite.  With the first byte odd: akl-aacdec's raw-block
// path with a Main or LTP configuration, the rest of the input cut into
// access units at two-byte lengths, so that the prediction and LTP data of
// the bitstream reach the decoder's tools (tools/aacdec/prediction.cpp).
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "aacdec/aac_decoder.hpp"
#include "aklac.h"
#include "fuzz_util.hpp"

namespace {

class NullSink : public aacdec::PcmSink {
 public:
  bool Format(const aacdec::StreamFormat& f) override { return f.channels > 0; }
  bool Frame(const std::int16_t* pcm, int frames) override { return pcm != nullptr && frames == 1024; }
  void Warn(const std::string&) override {}
};

void Check(bool ok) {
  if (!ok) std::abort();
}

// Caller memory for a context at `offset` bytes past a 64-byte boundary.
struct Block {
  std::vector<std::uint8_t> bytes;
  std::uint8_t* at;
  Block(int size, int offset) : bytes(static_cast<std::size_t>(size) + 128) {
    const auto addr = reinterpret_cast<std::uintptr_t>(bytes.data());
    at = bytes.data() + (64 - addr % 64) % 64 + offset;
  }
};

void Program(const std::uint8_t* data, std::size_t size) {
  akl::fuzz::Params p(data, size);
  aacdec::RawConfig config;
  config.object_type = (p.Byte() & 1) ? 4 : 1;
  config.sampling_index = p.Int(0, 11);
  static const int kRates[12] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000};
  config.sample_rate = kRates[config.sampling_index];
  config.channel_config = p.Int(1, 7);
  std::vector<aacdec::AccessUnit> units;
  while (size > 0 && units.size() < 64) {
    const std::size_t n = std::min<std::size_t>(static_cast<std::size_t>(p.Int(0, 2047)), size);
    units.push_back({data, n});
    data += n;
    size -= n;
  }
  // Each unit in a block of its own size: the decoder copies it into its
  // padded frame buffer and must read nothing past it.
  std::vector<std::unique_ptr<akl::fuzz::ExactBuffer>> copies;
  for (auto& u : units) {
    copies.push_back(std::make_unique<akl::fuzz::ExactBuffer>(u.data, u.size));
    u.data = copies.back()->data();
  }
  NullSink sink;
  aacdec::DecodeStats stats;
  std::string message;
  aacdec::DecodeAacAccessUnits(config, units.data(), units.size(), &sink, &stats, &message);
}

void Library(const std::uint8_t* data, std::size_t size) {
  akl::fuzz::Params p(data, size);
  int fdp_size = 0, mdct_size = 0;
  Check(aklsFDPGetSize_32f(&fdp_size) == kStsOk && aklsMDCTGetSize_AAC_32s(&mdct_size) == kStsOk);
  Block fdp_mem(fdp_size, p.Int(0, 63)), mdct_mem(mdct_size, p.Int(0, 63));
  auto* fdp = reinterpret_cast<AklsFDPState_32f*>(fdp_mem.at);
  auto* mdct = reinterpret_cast<AklsMDCTSpec_AAC_32s*>(mdct_mem.at);
  const Akl32s sfi = p.Int(-1, 12);
  const Status fdp_init = aklsFDPInit_32f(sfi, fdp);
  Check((fdp_init == kStsOk) == (sfi >= 0 && sfi <= 11));
  Check(aklsMDCTInit_AAC_32s(mdct) == kStsOk);

  std::vector<Akl32s> history(3072), overlap(1024), spec(1024), est(1024), time(2048), keep;
  std::vector<Akl16s> pcm(1024);
  for (Akl32s& v : history) v = p.Int(-32768, 32767) * (1 << p.Int(0, 12));
  for (Akl32s& v : overlap) v = p.Int(-32768, 32767) * 8;
  const int frames = p.Int(1, 4);
  for (int f = 0; f < frames; ++f) {
    // Frequency-domain prediction.
    AklAACIcsInfo ics{};
    ics.windowSequence = p.Int(-1, 4);
    ics.windowShape = p.Byte() & 1;
    ics.maxSfb = p.Int(-1, 52);
    ics.predictorDataPresent = p.Byte() & 1;
    ics.predictorReset = p.Byte() & 1;
    ics.predictorResetGroupNum = p.Int(-1, 32);
    for (Akl8u& u : ics.predictionUsed) u = p.Byte() & 1;
    ics.numWindowGroups = 1;
    ics.windowGroupLength[0] = 1;
    Akl8u cb[64];
    for (Akl8u& c : cb) c = static_cast<Akl8u>(p.Int(0, 15));
    // Lines up to 2^55 in size: more than 8191^(4/3) * 2^(155/4), the largest
    // a stream can code.
    std::vector<Akl32f> x(1024), y(1024, 1234.5f);
    const int exponent = p.Int(-40, 40);
    for (Akl32f& v : x) v = std::ldexp(static_cast<float>(p.Int(-32768, 32767)), exponent);
    const bool in_place = p.Byte() & 1;
    if (in_place) y = x;
    const std::vector<Akl32f> before = y;
    const Status st = aklsFDP_32f(in_place ? y.data() : x.data(), y.data(), &ics, cb, fdp);
    if (st != kStsOk) {
      Check(std::memcmp(y.data(), before.data(), y.size() * sizeof(Akl32f)) == 0);
    } else {
      for (Akl32f v : y) Check(std::isfinite(v));
    }
    if (p.Byte() % 8 == 0) aklsFDPReset_32f(fdp);

    // Long-term prediction, reconstruction and the history update.
    AklAACLtpData ltp{};
    ltp.ltpDataPresent = p.Byte() & 1;
    ltp.ltpLag = p.Int(-2, 2049);
    ltp.ltpCoef = static_cast<Akl16s>(p.Int(-32768, 32767));
    for (Akl32s& u : ltp.longUsed) u = p.Byte() & 1;
    const Akl32s seq = p.Int(-1, 4), shape = p.Int(-1, 2), prev = p.Int(-1, 2);
    std::fill(est.begin(), est.end(), 77);
    keep = est;
    const Status lst = aklsLongTermPredict_AAC_32s(history.data(), est.data(), &ltp, seq, shape, prev, mdct);
    if (lst != kStsOk) Check(est == keep);
    for (Akl32s& v : spec) v = p.Int(-32768, 32767) * 8;
    keep = spec;
    const Akl32s max_sfb = p.Int(-1, 52), ltp_sfi = p.Int(-1, 12);
    if (aklsLongTermReconstruct_AAC_32s(est.data(), spec.data(), ltp.longUsed, max_sfb, ltp_sfi) != kStsOk)
      Check(spec == keep);

    // The filter bank: inverse to 16 bits, inverse in place (the history's
    // form), forward out of place and in place.
    const Akl32s shape2 = p.Int(-1, 2);
    std::vector<Akl32s> ov_before = overlap;
    if (aklsMDCTInv_AAC_32s16s(spec.data(), pcm.data(), overlap.data(), seq, shape2, prev, mdct) != kStsOk)
      Check(overlap == ov_before);
    std::vector<Akl32s> frame = spec;
    ov_before = overlap;
    if (aklsMDCTInv_AAC_32s_I(frame.data(), overlap.data(), seq, shape2, prev, mdct) != kStsOk) {
      Check(overlap == ov_before);
      Check(frame == spec);
    }
    aklsLtpUpdate_AAC_32s(history.data(), frame.data(), overlap.data());
    std::copy(history.begin() + 1024, history.end(), time.begin());
    std::vector<Akl32s> coef(1024, 5);
    if (aklsMDCTFwd_AAC_32s(time.data(), coef.data(), seq, shape2, prev, mdct) != kStsOk)
      Check(coef == std::vector<Akl32s>(1024, 5));
    aklsMDCTFwd_AAC_32s_I(time.data(), seq, shape2, prev, mdct);
  }
  aklsFDPFree_32f(fdp);  // caller memory: nothing is released
  aklsMDCTFree_AAC_32s(mdct);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  if (data[0] & 1) {
    Program(data + 1, size - 1);
  } else {
    Library(data + 1, size - 1);
  }
  return 0;
}
