// The AAC scale-factor code book (differences -60..60) as a library VLC
// decoding context, for the codes a program decodes itself: coupling gains,
// scale factors it reads on its own, test walkers.
#pragma once

#include <cstdint>

#include "aklac.h"
#include "kit/bits.hpp"

namespace aklkit {

class ScaleFactorCodes {
 public:
  ScaleFactorCodes();
  ~ScaleFactorCodes();
  ScaleFactorCodes(const ScaleFactorCodes&) = delete;
  ScaleFactorCodes& operator=(const ScaleFactorCodes&) = delete;
  // False if the library could not build the context.
  bool ok() const { return spec_ != nullptr; }
  // One code at the cursor: the difference it stands for.  The book is
  // complete, so every bit string decodes (the longest code has 19 bits).
  int Decode(BitCursor& c) const;

  // The code of difference d (-60..60) and its length, for writers.
  static std::uint32_t Code(int d);
  static int Length(int d);

 private:
  aklsVLCDecodeSpec_32s* spec_ = nullptr;
};

}  // namespace aklkit
