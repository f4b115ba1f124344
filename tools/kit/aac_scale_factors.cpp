// See aac_scale_factors.hpp.
#include "kit/aac_scale_factors.hpp"

namespace aklkit {
namespace {

struct SfCode {
  int length;
  std::uint32_t code;
};
constexpr SfCode kSfCodes[121] = {
#include "aacdec/sf_codes.inc"
};
constexpr int kZero = 60;  // index of the difference 0

}  // namespace

ScaleFactorCodes::ScaleFactorCodes() {
  VlcCodeEntry book[121];
  for (int i = 0; i < 121; ++i) book[i] = VlcCodeEntry{i - kZero, static_cast<Akl32s>(kSfCodes[i].code), kSfCodes[i].length};
  const int levels[3] = {9, 5, 5};
  if (aklsVLCDecodeInitAlloc_32s(book, 121, levels, 3, &spec_) != kStsOk) {
    aklsVLCDecodeFree_32s(spec_);
    spec_ = nullptr;
  }
}

ScaleFactorCodes::~ScaleFactorCodes() { aklsVLCDecodeFree_32s(spec_); }

int ScaleFactorCodes::Decode(BitCursor& c) const {
  Akl16s v = 0;
  int off = c.off;
  aklsVLCDecodeOne_1u16s(&c.p, &off, &v, spec_);
  c.off = off;
  return v;
}

std::uint32_t ScaleFactorCodes::Code(int d) { return kSfCodes[d + kZero].code; }
int ScaleFactorCodes::Length(int d) { return kSfCodes[d + kZero].length; }

}  // namespace aklkit
