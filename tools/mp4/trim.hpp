// Gapless trimming on the way from a decoder to its output: drops the first
// `skip` samples per channel and, when limited, passes at most `keep` after
// them.  Decoders hand over blocks of any length; Take says which part of
// each block goes on.
#pragma once

#include <algorithm>
#include <cstdint>

namespace mp4 {

class SampleWindow {
 public:
  SampleWindow() = default;
  SampleWindow(std::uint64_t skip, bool limited, std::uint64_t keep) : skip_(skip), limited_(limited), keep_(keep) {}
  // For a block of `frames` samples per channel: *first is the first one to
  // pass on, *count how many.
  void Take(std::uint64_t frames, std::uint64_t* first, std::uint64_t* count) {
    const std::uint64_t start = seen_;
    seen_ += frames;
    const std::uint64_t from = std::max(start, skip_);
    std::uint64_t to = seen_;
    if (limited_) to = std::min(to, skip_ + keep_ < skip_ ? ~std::uint64_t{0} : skip_ + keep_);
    *first = from - start;
    *count = to > from ? to - from : 0;
    if (*first > frames) *first = frames;
    passed_ += *count;
  }
  std::uint64_t passed() const { return passed_; }

 private:
  std::uint64_t skip_ = 0;
  bool limited_ = false;
  std::uint64_t keep_ = 0;
  std::uint64_t seen_ = 0, passed_ = 0;
};

}  // namespace mp4
