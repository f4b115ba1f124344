// The frame loop of akl-mp3dec; see mp3_stream.hpp.
#include "mp3_stream.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>

#include "aklac.h"
#include "kit/mpeg_audio.hpp"

namespace aklmp3 {

namespace {

// ---------------------------------------------------------------------------
// Frame headers as far as finding frames needs them (kit/mpeg_audio.hpp).

using aklkit::MpegHeader;
using aklkit::ParseMpegHeader;

bool SameStream(const MpegHeader& a, const MpegHeader& b) {
  return a.version == b.version && a.layer == b.layer && a.sfi == b.sfi;
}

constexpr int kMaxFrameBytes = 4096;
// Bytes past a frame that finding it may look at: two more frames and a
// free-format length scan.
constexpr std::size_t kLookAhead = 3 * (kMaxFrameBytes + 1) + 64;

// ---------------------------------------------------------------------------
// Tags around the audio.

std::uint32_t Le32(const std::uint8_t* p) {
  return p[0] | (std::uint32_t{p[1]} << 8) | (std::uint32_t{p[2]} << 16) | (std::uint32_t{p[3]} << 24);
}

// End of the audio once trailing ID3v1, APE and Lyrics3 tags are cut off.
std::size_t StripTrailingTags(const std::uint8_t* d, std::size_t begin, std::size_t end) {
  for (bool changed = true; changed;) {
    changed = false;
    if (end - begin >= 128 && std::memcmp(d + end - 128, "TAG", 3) == 0) {
      end -= 128;
      changed = true;
    }
    if (end - begin >= 32 && std::memcmp(d + end - 32, "APETAGEX", 8) == 0) {
      const std::uint64_t len = Le32(d + end - 32 + 12);
      const bool has_header = (Le32(d + end - 32 + 20) & 0x80000000u) != 0;
      const std::uint64_t total = len + (has_header ? 32 : 0);
      // The size counts the 32-byte footer itself; a smaller one is not a
      // tag (and would never shorten the data).
      if (len >= 32) {
        end = total <= end - begin ? end - static_cast<std::size_t>(total) : begin;
        changed = true;
      }
    }
    if (end - begin >= 15 && std::memcmp(d + end - 9, "LYRICS200", 9) == 0) {
      std::size_t len = 0;
      for (int i = 0; i < 6; ++i) len = len * 10 + static_cast<std::size_t>(d[end - 15 + i] - '0');
      if (len + 15 <= end - begin) {
        end -= len + 15;
        changed = true;
      }
    }
  }
  return end;
}

// ---------------------------------------------------------------------------
// Finding frames.
//
// Where the stream is expected to continue (just after the last frame), a
// frame is taken if its header is valid and so is the header after it (or
// it ends exactly at the end of the data).  If nothing valid follows it, its
// length may be damaged: when a frame followed by a valid header starts
// inside it, it is taken up to there.  Anywhere else (at the start, after
// damage) a candidate must begin a chain: the next two frame positions hold
// valid headers of any layer, version or rate (a stream may change its
// sampling rate; frames of another rate or layer are dropped downstream,
// not skipped as junk), or the chain reaches the end of the data; one link
// is enough for a frame of the stream being followed.  Random bytes pass
// the two-link test about once in 10^11 positions.  When the stream resumes
// exactly one frame length after the expected position, the frame there
// only lost its header; it is taken (and concealed) with the previous one.
//
// Each byte is looked at a bounded number of times (memchr to the next 0xFF,
// a header read per candidate, at most three headers per chain, one
// look-ahead inside a frame and one bounded scan per free-format candidate),
// so finding frames is linear in the input.

struct Frame {
  std::size_t pos = 0;
  int bytes = 0;
  MpegHeader h;
  bool damaged_header = false;  // h is the previous frame's header (see Next)
};

class FrameWalker {
 public:
  explicit FrameWalker(std::size_t begin) : pos_(begin) {}

  // The bytes [base, end) of the stream, at w.  `final`: end is the end of
  // the stream's audio; otherwise more follows, and frames are taken only
  // while kLookAhead bytes past them are known (need_more() then asks for
  // the next window).
  void SetWindow(const std::uint8_t* w, std::size_t base, std::size_t end, bool final) {
    w_ = w;
    base_ = base;
    end_ = end;
    final_ = final;
  }
  bool need_more() const { return need_more_; }

  // Next frame; false at the end.  *skipped is the number of bytes passed
  // over before the frame (or, at the end, before the end); *truncated is
  // set when the last frame runs past the end.
  bool Next(Frame* f, std::size_t* skipped, bool* truncated) {
    const std::size_t start = pos_;
    *skipped = 0;
    *truncated = false;
    need_more_ = false;
    const std::size_t to = final_ ? end_ : end_ - kLookAhead;
    MpegHeader h;
    int len = 0;
    if (locked_ && HeaderAt(pos_, &h, &len)) {
      // The stream goes on one frame length (of the last frame's format)
      // later, but this header's own length does not lead there, or makes
      // the frame longer than the last: the header is damaged.  A damaged bit
      // rate only: the frame ends there and is decoded.  A damaged rate or
      // version: it is concealed in place with the last header (a frame that
      // really is at another rate is followed by a header at its own length,
      // and is dropped downstream).
      const std::size_t own_next = pos_ + static_cast<std::size_t>(len);
      const bool chains = own_next == end_ || (own_next < end_ && HeaderAt(own_next, nullptr, nullptr));
      if (!chains || len > last_len_ + 1) {
        const int base = last_len_ - last_.padding;
        for (int c = base; c <= base + 1; ++c) {
          const std::size_t q = pos_ + static_cast<std::size_t>(c);
          if (!ResumesAt(q)) continue;
          if (SameStream(h, last_)) return Take(f, start, pos_, c, h, skipped, truncated);
          MpegHeader guess = last_;
          guess.padding = c - base;
          const bool taken = Take(f, start, pos_, c, guess, skipped, truncated);
          f->damaged_header = true;
          return taken;
        }
      }
      const std::size_t next = pos_ + static_cast<std::size_t>(len);
      if (next == end_ || (next < end_ && HeaderAt(next, nullptr, nullptr)))
        return Take(f, start, pos_, len, h, skipped, truncated);
      // Nothing valid follows (or the frame runs past the end): either this
      // header's length is damaged or the next frame is.  A frame followed by
      // a valid header, starting inside this one, means the former (frames
      // after a damaged one may be damaged too, so one link is enough here);
      // the frame is then taken up to there, where the stream goes on.
      const std::size_t q = Search(pos_ + 1, std::min(next, end_), 1);
      if (q < std::min(next, end_) && q - pos_ >= static_cast<std::size_t>(4 + (h.crc ? 2 : 0) + h.side_bytes))
        return Take(f, start, pos_, static_cast<int>(q - pos_), h, skipped, truncated);
      return Take(f, start, pos_, len, h, skipped, truncated);
    }
    const std::size_t q = Search(pos_, to, 2);
    if (q < to && HeaderAt(q, &h, &len)) {
      // The stream resumes exactly one frame (of the format it had) after
      // the expected position: that frame's header is damaged.  It is taken
      // with the previous header, to be concealed in place.
      const std::size_t gap = q - start, base = static_cast<std::size_t>(last_len_ - last_.padding);
      if (locked_ && q > start && (gap == base || gap == base + 1) && SameStream(last_, h) && gap <= kMaxFrameBytes) {
        MpegHeader guess = last_;
        guess.padding = static_cast<int>(gap - base);
        const bool taken = Take(f, start, start, static_cast<int>(gap), guess, skipped, truncated);
        f->damaged_header = true;
        return taken;
      }
      return Take(f, start, q, len, h, skipped, truncated);
    }
    *skipped = to > start ? to - start : 0;
    pos_ = std::max(pos_, to);
    need_more_ = !final_;
    return false;
  }

  std::size_t Position() const { return pos_; }

  // A header of the stream being followed at q, followed by a valid header
  // (or the end of the data).
  bool ResumesAt(std::size_t q) {
    MpegHeader nh;
    int nl;
    if (!HeaderAt(q, &nh, &nl) || !SameStream(nh, last_)) return false;
    const std::size_t n = q + static_cast<std::size_t>(nl);
    return n == end_ || (n < end_ && HeaderAt(n, nullptr, nullptr));
  }
  // Work done so far, in bytes looked at: bytes memchr passed over, four per
  // header read, and the positions of free-format length scans.
  std::uint64_t work() const { return work_; }

 private:
  bool Take(Frame* f, std::size_t start, std::size_t pos, int len, const MpegHeader& h, std::size_t* skipped,
            bool* truncated) {
    *skipped = pos - start;
    locked_ = true;
    last_ = h;
    last_len_ = len;
    f->pos = pos;
    f->h = h;
    f->damaged_header = false;
    const std::size_t next = pos + static_cast<std::size_t>(len);
    if (next > end_) {
      *truncated = true;
      f->bytes = static_cast<int>(end_ - pos);
      pos_ = end_;
    } else {
      f->bytes = len;
      pos_ = next;
    }
    return true;
  }

  // A valid header at pos whose frame length is known (h and len may be null).
  bool HeaderAt(std::size_t pos, MpegHeader* h, int* len) {
    work_ += 4;
    MpegHeader tmp;
    if (pos + 4 > end_ || !ParseMpegHeader(At(pos), &tmp)) return false;
    const int n = FrameLength(pos, tmp);
    if (n <= 0) return false;
    if (h) *h = tmp;
    if (len) *len = n;
    return true;
  }

  // First position in [from, to) that starts a chain of `links` more valid
  // headers (see above; 1 or 2; 1 for the followed stream's format); `to` if
  // none.
  std::size_t Search(std::size_t from, std::size_t to, int links) {
    for (std::size_t p = from; p < to && p + 4 <= end_; ++p) {
      const void* ff = std::memchr(At(p), 0xFF, std::min(to, end_ - 3) - p);
      const std::size_t q = ff ? base_ + static_cast<std::size_t>(static_cast<const std::uint8_t*>(ff) - w_) : to;
      work_ += q - p;
      if (!ff) return to;
      p = q;
      int len;
      MpegHeader h;
      if (!HeaderAt(p, &h, &len)) continue;
      const std::size_t n1 = p + static_cast<std::size_t>(len);
      if (n1 == end_) return p;
      if (n1 > end_) {
        if (locked_) return p;  // a truncated last frame of the stream we follow
        continue;
      }
      int len1;
      if (!HeaderAt(n1, nullptr, &len1)) continue;
      // After a loss of sync, a frame of the stream being followed needs one
      // link only.
      if (links == 1 || (locked_ && SameStream(h, last_))) return p;
      const std::size_t n2 = n1 + static_cast<std::size_t>(len1);
      if (n2 >= end_ || HeaderAt(n2, nullptr, nullptr)) return p;
    }
    return to;
  }

  int FrameLength(std::size_t pos, const MpegHeader& h) {
    if (h.frame_bytes) return h.frame_bytes;
    if (h.layer != 3) return 0;  // free-format Layers I/II are not followed
    if (free_bytes_ && free_version_ == h.version && free_sfi_ == h.sfi) return free_bytes_ + h.padding;
    // Free format: the frame ends where the next header of the same stream
    // with bit-rate index 0 begins.
    const std::size_t limit = std::min(end_, pos + kMaxFrameBytes + 1);
    const std::size_t from = pos + 4 + static_cast<std::size_t>(h.side_bytes);
    if (limit > from) work_ += limit - from;
    for (std::size_t q = from; q + 4 <= limit; ++q) {
      MpegHeader nh;
      if (ParseMpegHeader(At(q), &nh) && SameStream(h, nh) && nh.bitrate_index == 0) {
        free_bytes_ = static_cast<int>(q - pos) - h.padding;
        free_version_ = h.version;
        free_sfi_ = h.sfi;
        return free_bytes_ + h.padding;
      }
    }
    return 0;
  }

  const std::uint8_t* At(std::size_t pos) const { return w_ + (pos - base_); }

  const std::uint8_t* w_ = nullptr;
  std::size_t base_ = 0;
  std::size_t pos_;
  std::size_t end_ = 0;
  bool final_ = true;
  bool need_more_ = false;
  bool locked_ = false;
  MpegHeader last_;  // the last frame taken, and its length
  int last_len_ = 0;
  int free_bytes_ = 0, free_version_ = 0, free_sfi_ = 0;
  std::uint64_t work_ = 0;
};

// ---------------------------------------------------------------------------
// The Xing/Info frame and its LAME tag.

struct XingInfo {
  bool present = false;
  bool lame = false;
  int delay = 0, padding = 0;
};

XingInfo ReadXing(const std::uint8_t* f, int bytes, const MpegHeader& h) {
  XingInfo x;
  const int off = 4 + (h.crc ? 2 : 0) + h.side_bytes;
  if (off + 8 <= bytes && (std::memcmp(f + off, "Xing", 4) == 0 || std::memcmp(f + off, "Info", 4) == 0)) {
    x.present = true;
    const std::uint32_t flags = (std::uint32_t{f[off + 4]} << 24) | (std::uint32_t{f[off + 5]} << 16) |
                                (std::uint32_t{f[off + 6]} << 8) | f[off + 7];
    int lame = off + 8 + ((flags & 1) ? 4 : 0) + ((flags & 2) ? 4 : 0) + ((flags & 4) ? 100 : 0) + ((flags & 8) ? 4 : 0);
    if (lame + 24 <= bytes &&
        (std::memcmp(f + lame, "LAME", 4) == 0 || std::memcmp(f + lame, "Lavc", 4) == 0 ||
         std::memcmp(f + lame, "Lavf", 4) == 0 || std::memcmp(f + lame, "L3.99", 5) == 0)) {
      x.lame = true;
      x.delay = (f[lame + 21] << 4) | (f[lame + 22] >> 4);
      x.padding = ((f[lame + 22] & 0x0F) << 8) | f[lame + 23];
    }
  } else if (36 + 4 <= bytes && std::memcmp(f + 36, "VBRI", 4) == 0) {
    x.present = true;
  }
  return x;
}

// ---------------------------------------------------------------------------
// Gapless trimming between the decoder and the caller's sink.

class Trimmer {
 public:
  Trimmer(PcmSink* sink, int channels, std::uint64_t skip, std::uint64_t hold)
      : sink_(sink), channels_(channels), skip_(skip), hold_(hold) {}

  void Write(const std::int16_t* s, std::size_t frames) {
    const std::size_t skip = static_cast<std::size_t>(std::min<std::uint64_t>(skip_, frames));
    skip_ -= skip;
    s += skip * static_cast<std::size_t>(channels_);
    frames -= skip;
    if (hold_ == 0) {
      Emit(s, frames);
      return;
    }
    held_.insert(held_.end(), s, s + frames * static_cast<std::size_t>(channels_));
    const std::size_t have = held_.size() / static_cast<std::size_t>(channels_);
    if (have > hold_) {
      const std::size_t out = have - static_cast<std::size_t>(hold_);
      Emit(held_.data(), out);
      held_.erase(held_.begin(), held_.begin() + static_cast<std::ptrdiff_t>(out * static_cast<std::size_t>(channels_)));
    }
  }
  std::uint64_t written() const { return written_; }

 private:
  void Emit(const std::int16_t* s, std::size_t frames) {
    if (!frames) return;
    sink_->Write(s, frames);
    written_ += frames;
  }
  PcmSink* sink_;
  int channels_;
  std::uint64_t skip_, hold_;
  std::vector<std::int16_t> held_;
  std::uint64_t written_ = 0;
};

// ---------------------------------------------------------------------------
// Decoding one frame with the library.

constexpr int kDecoderDelay = 529;  // samples the hybrid filter bank adds
constexpr std::size_t kReservoirKeep = 4096;
constexpr int kPad = 32;  // readable slack around every buffer handed to the library

struct ChannelState {
  Akl32s overlap[576] = {};
  int prev_subbands = 0;
  Akl32s history[512] = {};
  int ring = 0;
};

class Engine {
 public:
  explicit Engine(int out_channels) : out_channels_(out_channels) { reservoir_.reserve(kReservoirKeep + 4096); }

  // Decodes one frame (its bytes copied into padded storage by the caller)
  // into pcm_ (h.samples x out_channels).  Returns null, or the damage kind
  // if the frame (or one of its granules) had to be concealed.  A frame with
  // a damaged header (rh guessed from the previous one) is concealed, but its
  // main data still goes into the bit reservoir for the frames after it.
  const char* Decode(const std::uint8_t* frame, int bytes, const MpegHeader& rh, bool damaged_header) {
    const char* why = damaged_header ? kConcealLostHeader : nullptr;
    auto conceal = [&why](const char* kind) {
      if (!why) why = kind;
    };
    Akl8u* p = const_cast<Akl8u*>(frame);
    AklMP3FrameHeader hdr{};
    bool good = !damaged_header && aklsUnpackFrameHeader_MP3(&p, &hdr) == kStsOk;
    const int nch = rh.channels;
    const int ngr = rh.version == 10 ? 2 : 1;
    AklMP3SideInfo si[4] = {};
    Akl32s main_begin = 0, priv = 0, scfsi[8] = {};
    const int head = 4 + (rh.crc ? 2 : 0);
    const int main_bytes = bytes - head - rh.side_bytes;
    if (main_bytes < 0) good = false;
    if (good && rh.crc && aklkit::Layer3Crc(frame, rh.side_bytes) != static_cast<std::uint16_t>(hdr.crcWord)) {
      good = false;
      conceal(kConcealCrc);
    }
    if (good) good = aklsUnpackSideInfo_MP3(&p, si, &main_begin, &priv, scfsi, &hdr) == kStsOk;
    if (!good) conceal(kConcealHeader);

    // Main data: the reservoir's tail of main_begin bytes, then this frame's.
    bool have_main = good;
    if (good && static_cast<std::size_t>(main_begin) > reservoir_.size()) {
      have_main = false;
      conceal(kConcealReservoir);
    }
    std::size_t md_len = 0;
    if (have_main) {
      md_len = static_cast<std::size_t>(main_begin) + static_cast<std::size_t>(main_bytes);
      main_.assign(kPad + md_len + kPad, 0);
      std::memcpy(main_.data() + kPad, reservoir_.data() + reservoir_.size() - static_cast<std::size_t>(main_begin),
                  static_cast<std::size_t>(main_begin));
      std::memcpy(main_.data() + kPad + main_begin, frame + head + rh.side_bytes, static_cast<std::size_t>(main_bytes));
    }
    if (main_bytes > 0) {
      reservoir_.insert(reservoir_.end(), frame + head + rh.side_bytes, frame + bytes);
      if (reservoir_.size() > kReservoirKeep)
        reservoir_.erase(reservoir_.begin(), reservoir_.end() - static_cast<std::ptrdiff_t>(kReservoirKeep));
    }

    bool damaged = !good;
    std::size_t bit = 0;
    const std::size_t md_bits = md_len * 8;
    Akl8u* md = main_.empty() ? nullptr : main_.data() + kPad;
    for (int gr = 0; gr < ngr; ++gr) {
      int bound[2] = {0, 0};
      std::memset(xr_, 0, sizeof xr_);
      for (int ch = 0; ch < nch && have_main; ++ch) {
        AklMP3SideInfo& g = si[gr * nch + ch];
        const std::size_t start = bit;
        bit += static_cast<std::size_t>(g.part23Length);
        if (bit > md_bits) {
          damaged = true;
          conceal(kConcealOverrun);
          continue;
        }
        Akl8u* cur = md + start / 8;
        Akl32s off = static_cast<Akl32s>(start % 8);
        if (aklsUnpackScaleFactors_MP3_1u8s(&cur, &off, sf_ + 39 * ch, &g, scfsi + 4 * ch, &hdr, gr, ch) != kStsOk) {
          damaged = true;
          conceal(kConcealScaleFactors);
          continue;
        }
        const long used = static_cast<long>((cur - md) * 8 + off) - static_cast<long>(start);
        const long huff = g.part23Length - used;
        if (huff < 0 ||
            aklsHuffmanDecode_MP3_1u32s(&cur, &off, xr_ + 576 * ch, &bound[ch], &g, &hdr, static_cast<int>(huff)) !=
                kStsOk) {
          std::memset(xr_ + 576 * ch, 0, 576 * sizeof(Akl32s));
          bound[ch] = 0;
          damaged = true;
          conceal(kConcealHuffman);
        }
      }
      const AklMP3SideInfo* gsi = &si[gr * nch];
      AklMP3SideInfo plain[2] = {};
      if (have_main && !damaged) {
        if (aklsReQuantize_MP3_32s_I(xr_, bound, sf_, gsi, &hdr, work_) != kStsOk) {
          damaged = true;
          conceal(kConcealRequant);
        }
      }
      if (!have_main || damaged) {
        // Conceal: silence through the filter banks, so earlier tails fade out.
        std::memset(xr_, 0, sizeof xr_);
        bound[0] = bound[1] = 0;
        gsi = plain;
      }
      for (int ch = 0; ch < nch; ++ch) {
        ChannelState& cs = state_[ch];
        aklsMDCTInv_MP3_32s(xr_ + 576 * ch, y_, cs.overlap, bound[ch], &cs.prev_subbands, gsi[ch].blockType,
                            gsi[ch].mixedBlockFlag);
        // A stereo frame in mono output (only when the output's format was
        // chosen before the whole stream was seen) is synthesised as stereo
        // and mixed down.
        const int stride = std::max(out_channels_, nch);
        Akl16s* out = (stride == out_channels_ ? pcm_ + gr * 576 * out_channels_ : wide_) + ch;
        for (int t = 0; t < 18; ++t)
          aklsSynthPQMF_MP3_32s16s(y_ + 32 * t, out + 32 * t * stride, cs.history, &cs.ring, stride);
      }
      if (nch == 1 && out_channels_ == 2) {
        Akl16s* out = pcm_ + gr * 576 * 2;
        for (int i = 0; i < 576; ++i) out[2 * i + 1] = out[2 * i];
      }
      if (nch == 2 && out_channels_ == 1) {
        Akl16s* out = pcm_ + gr * 576;
        for (int i = 0; i < 576; ++i) out[i] = static_cast<Akl16s>((wide_[2 * i] + wide_[2 * i + 1]) >> 1);
      }
    }
    return why;
  }

  // Silence of one frame (used for a frame we cannot read at all).
  const Akl16s* pcm() const { return pcm_; }

 private:
  int out_channels_;
  ChannelState state_[2];
  std::vector<std::uint8_t> reservoir_;
  std::vector<std::uint8_t> main_;
  Akl32s xr_[1152] = {};
  Akl32s y_[576] = {};
  Akl32s work_[576] = {};
  Akl8s sf_[78] = {};
  Akl16s pcm_[1152 * 2] = {};
  Akl16s wide_[576 * 2] = {};
};


void DeclareDamageKinds(aklcli::DamageReport& dr) {
  for (const char* k : {kSkipBefore, kSkipBetween, kSkipAfter, kSkipTruncated})
    dr.Declare(aklcli::Tally::kSkippedBytes, k);
  for (const char* k : {kConcealLostHeader, kConcealHeader, kConcealCrc, kConcealReservoir, kConcealOverrun,
                        kConcealScaleFactors, kConcealHuffman, kConcealRequant})
    dr.Declare(aklcli::Tally::kConcealedFrames, k);
  for (const char* k : {kDropRate, kDropUnsupported}) dr.Declare(aklcli::Tally::kDroppedFrames, k);
}

// The Layer III header a unit starts with, if it has one; false otherwise.
bool UnitHeader(const AccessUnit& u, MpegHeader* h) { return u.size >= 4 && ParseMpegHeader(u.data, h); }

}  // namespace

DecodeStats DecodeUnits(const AccessUnit* units, std::size_t count, PcmSink* sink, const DecodeOptions& options) {
  DecodeStats st;
  MpegHeader h;
  for (std::size_t i = 0; i < count; ++i) {
    if (!UnitHeader(units[i], &h)) continue;
    if (h.layer != 3 || h.version == 25) {
      if (st.unsupported_kind.empty())
        st.unsupported_kind = h.version == 25 ? "MPEG-2.5" : h.layer == 1 ? "Layer I" : "Layer II";
      ++st.unsupported_frames;
      continue;
    }
    if (!st.sample_rate) st.sample_rate = h.sample_rate;
    st.channels = std::max(st.channels, h.channels);
  }
  if (!st.sample_rate) return st;
  if (options.mono) st.channels = 1;
  sink->Format(st.sample_rate, st.channels);
  DeclareDamageKinds(st.damage);
  aklcli::DamageReport& dr = st.damage;
  Engine engine(st.channels);
  Trimmer trim(sink, st.channels, 0, 0);
  std::vector<std::uint8_t> buf(kPad + kMaxFrameBytes + kPad);
  std::size_t consumed = 0, total = 0;
  for (std::size_t i = 0; i < count; ++i) total += units[i].size;
  bool first = true;
  for (std::size_t i = 0; i < count; ++i) {
    const AccessUnit& u = units[i];
    consumed += u.size;
    if (!UnitHeader(u, &h)) {
      dr.Skip(kSkipBetween, u.size);
      continue;
    }
    if (h.layer != 3 || h.version == 25 || h.sample_rate != st.sample_rate) {
      if (h.sample_rate != st.sample_rate) ++st.other_format_frames;
      dr.Drop(h.layer != 3 || h.version == 25 ? kDropUnsupported : kDropRate);
      continue;
    }
    const int bytes = static_cast<int>(std::min<std::size_t>(u.size, kMaxFrameBytes));
    std::fill(buf.begin(), buf.end(), 0);
    std::memcpy(buf.data() + kPad, u.data, static_cast<std::size_t>(bytes));
    const std::uint8_t* fb = buf.data() + kPad;
    if (first) {
      first = false;
      if (ReadXing(fb, bytes, h).present) continue;
    }
    const char* concealed = engine.Decode(fb, bytes, h, false);
    ++st.frames;
    if (concealed) {
      dr.Conceal(concealed);
      if (concealed == kConcealReservoir) ++st.reservoir_gaps;
    }
    trim.Write(engine.pcm(), static_cast<std::size_t>(h.samples));
    if ((st.frames & 63) == 0) sink->Progress(consumed, total);
  }
  st.samples_out = trim.written();
  st.damaged = static_cast<long>(dr.Damaged());
  sink->Progress(total, total);
  return st;
}

namespace {

// ---------------------------------------------------------------------------
// The stream's bytes in a bounded window.

constexpr std::size_t kReadChunk = 64 * 1024;
constexpr std::size_t kKeepBehind = 256 * 1024;  // consumed bytes kept for the trailing tags
constexpr std::size_t kFirstFrameWindow = 1 << 20;  // how far a one-pass stream is searched for its format

class Window {
 public:
  explicit Window(ByteSource* src) : src_(src) {}

  // Drops the bytes before `keep_from` and reads on until `want_end` is
  // available or the stream ends.  A `keep_from` past the bytes read so far
  // discards the bytes up to it.
  void Fill(std::size_t keep_from, std::size_t want_end) {
    if (keep_from > base_) {
      const std::size_t drop = std::min(keep_from - base_, buf_.size());
      buf_.erase(buf_.begin(), buf_.begin() + static_cast<std::ptrdiff_t>(drop));
      base_ += drop;
      while (base_ < keep_from && !eof_) {  // bytes to pass over unread
        std::uint8_t scratch[4096];
        const std::size_t n = src_->Read(scratch, std::min(sizeof scratch, keep_from - base_));
        if (n == 0) eof_ = true;
        base_ += n;
      }
    }
    while (!eof_ && end() < want_end) {
      const std::size_t have = buf_.size();
      buf_.resize(have + kReadChunk);
      const std::size_t n = src_->Read(buf_.data() + have, kReadChunk);
      buf_.resize(have + n);
      if (n == 0) eof_ = true;
    }
  }
  // Back to the stream's first byte; false if the source cannot go back.
  bool Restart() {
    if (!src_->Rewind()) return false;
    buf_.clear();
    base_ = 0;
    eof_ = false;
    return true;
  }
  const std::uint8_t* data() const { return buf_.data(); }
  const std::uint8_t* At(std::size_t pos) const { return buf_.data() + (pos - base_); }
  std::size_t base() const { return base_; }
  std::size_t end() const { return base_ + buf_.size(); }
  bool eof() const { return eof_; }

 private:
  ByteSource* src_;
  std::vector<std::uint8_t> buf_;
  std::size_t base_ = 0;
  bool eof_ = false;
};

// Leading ID3v2 tags from `pos`: where the audio starts.  A tag that claims
// to run past the end of the stream is damaged: the frame search starts at
// it (for a source that cannot go back, whatever follows it is lost).
std::size_t SkipLeadingTags(Window& w, std::size_t pos, bool* lost) {
  for (;;) {
    w.Fill(pos, pos + 10);
    if (w.end() < pos + 10) return pos;
    const std::uint8_t* d = w.At(pos);
    if (!(d[0] == 'I' && d[1] == 'D' && d[2] == '3' && d[3] != 0xFF && d[4] != 0xFF &&
          ((d[6] | d[7] | d[8] | d[9]) & 0x80) == 0))
      return pos;
    const std::size_t len = (std::size_t{d[6]} << 21) | (std::size_t{d[7]} << 14) | (std::size_t{d[8]} << 7) | d[9];
    const std::size_t total = 10 + len + ((d[5] & 0x10) ? 10 : 0);
    // The tag ends inside the stream if one byte past its end exists (or
    // the stream ends exactly with it).
    w.Fill(pos + total, pos + total);
    if (w.base() < pos + total || (w.eof() && w.end() < pos + total)) {
      if (w.Restart()) {
        w.Fill(pos, pos + 10);
      } else {
        *lost = true;
      }
      return pos;
    }
    pos += total;
  }
}

// Frames of the stream from `begin`, window by window.  The end of the audio
// (trailing tags cut off) is worked out when the stream ends, unless given.
class StreamWalk {
 public:
  StreamWalk(Window* w, std::size_t begin, std::size_t audio_end)
      : w_(w), walk_(begin), begin_(begin), audio_end_(audio_end) {}

  bool Next(Frame* f, std::size_t* skipped, bool* truncated) {
    std::size_t junk = 0;
    for (;;) {
      Refill();
      const bool more = walk_.Next(f, skipped, truncated);
      if (!more && walk_.need_more()) {
        junk += *skipped;
        continue;
      }
      *skipped += junk;
      return more;
    }
  }
  std::size_t Position() const { return walk_.Position(); }
  std::uint64_t work() const { return walk_.work(); }
  // Once the stream has ended: the end of its audio.
  std::size_t audio_end() const { return audio_end_; }
  bool ended() const { return final_; }
  // Keep every byte from the start (the format search of a one-pass stream).
  void KeepAll() { keep_all_ = true; }

 private:
  void Refill() {
    if (final_) return;
    const std::size_t pos = walk_.Position();
    // Frames are looked for up to kLookAhead before the known end, so at
    // least one byte more than that is needed to make progress.
    if (w_->end() <= pos + kLookAhead) {
      const std::size_t keep = keep_all_ ? begin_ : pos > kKeepBehind ? pos - kKeepBehind : 0;
      w_->Fill(std::max(keep, w_->base()), pos + kLookAhead + 1);
    }
    std::size_t end = w_->end();
    bool final = w_->eof();
    if (audio_end_ && end >= audio_end_) {
      end = audio_end_;
      final = true;
    } else if (final) {
      const std::size_t lo = std::max(begin_, w_->base());
      end = std::max(pos, w_->base() + StripTrailingTags(w_->data(), lo - w_->base(), w_->end() - w_->base()));
      audio_end_ = end;
    }
    final_ = final;
    walk_.SetWindow(w_->data(), w_->base(), end, final);
  }

  Window* w_;
  FrameWalker walk_;
  std::size_t begin_;
  std::size_t audio_end_;
  bool final_ = false;
  bool keep_all_ = false;
};

class MemorySource : public ByteSource {
 public:
  MemorySource(const std::uint8_t* d, std::size_t n) : d_(d), n_(n) {}
  std::size_t Read(std::uint8_t* dst, std::size_t n) override {
    n = std::min(n, n_ - pos_);
    if (n) std::memcpy(dst, d_ + pos_, n);
    pos_ += n;
    return n;
  }
  bool Rewind() override {
    pos_ = 0;
    return true;
  }
  std::uint64_t Size() const override { return n_; }

 private:
  const std::uint8_t* d_;
  std::size_t n_, pos_ = 0;
};

}  // namespace

DecodeStats DecodeStream(ByteSource* source, const DecodeOptions& options, PcmSink* sink) {
  DecodeStats st;
  Window window(source);
  bool lost = false;
  std::size_t begin = SkipLeadingTags(window, 0, &lost);
  const bool two_pass = source->Rewind();
  if (two_pass) window.Restart();
  if (two_pass) begin = SkipLeadingTags(window, 0, &lost);
  const std::size_t total = static_cast<std::size_t>(source->Size());

  // First pass: the output format (first Layer III frame's rate, the most
  // channels of any frame) and what else is in the stream.  A source that
  // cannot go back (a pipe) is searched for its first Layer III frame only,
  // within its first MiB, and gives that frame's format.
  std::size_t audio_end = 0;
  {
    StreamWalk walk(&window, begin, 0);
    if (!two_pass) walk.KeepAll();
    Frame f;
    std::size_t junk;
    bool trunc;
    while (walk.Next(&f, &junk, &trunc)) {
      if (f.h.layer != 3 || f.h.version == 25) {
        if (st.unsupported_kind.empty())
          st.unsupported_kind = f.h.version == 25 ? "MPEG-2.5" : f.h.layer == 1 ? "Layer I" : "Layer II";
        ++st.unsupported_frames;
      } else {
        if (!st.sample_rate) st.sample_rate = f.h.sample_rate;
        st.channels = std::max(st.channels, f.h.channels);
        if (!two_pass) break;
      }
      if (!two_pass && walk.Position() - begin > kFirstFrameWindow) break;
    }
    st.scan_work = walk.work();
    if (two_pass) {
      audio_end = walk.audio_end();
      window.Restart();
      begin = SkipLeadingTags(window, 0, &lost);
    }
  }
  if (!st.sample_rate) return st;
  if (options.mono) st.channels = 1;
  sink->Format(st.sample_rate, st.channels);
  DeclareDamageKinds(st.damage);
  aklcli::DamageReport& dr = st.damage;
  if (!two_pass) {
    st.unsupported_frames = 0;
    st.unsupported_kind.clear();
  }

  StreamWalk walk(&window, begin, audio_end);
  Engine engine(st.channels);
  std::unique_ptr<Trimmer> trim;
  std::vector<std::uint8_t> buf(kPad + kMaxFrameBytes + kPad);
  Frame f;
  std::size_t junk;
  bool trunc;
  bool first = true, any_frame = false;
  std::size_t end = 0;
  for (;;) {
    const bool more = walk.Next(&f, &junk, &trunc);
    dr.Skip(!any_frame ? kSkipBefore : more ? kSkipBetween : kSkipAfter, junk);
    if (!more) break;
    any_frame = true;
    if (trunc) {
      dr.Skip(kSkipTruncated, walk.audio_end() - f.pos);
      break;
    }
    st.frame_bytes += static_cast<std::uint64_t>(f.bytes);
    if (f.h.layer != 3 || f.h.version == 25) {
      if (!two_pass) {
        if (st.unsupported_kind.empty())
          st.unsupported_kind = f.h.version == 25 ? "MPEG-2.5" : f.h.layer == 1 ? "Layer I" : "Layer II";
        ++st.unsupported_frames;
      }
      dr.Drop(kDropUnsupported);
      continue;
    }
    if (f.h.sample_rate != st.sample_rate) {
      // Another stream's frame: not in the output, and not fed to the
      // decoder, whose bit reservoir and filter banks belong to this one.
      ++st.other_format_frames;
      dr.Drop(kDropRate);
      continue;
    }
    std::fill(buf.begin(), buf.end(), 0);
    std::memcpy(buf.data() + kPad, window.At(f.pos), static_cast<std::size_t>(f.bytes));
    const std::uint8_t* fb = buf.data() + kPad;
    if (first) {
      first = false;
      const XingInfo x = ReadXing(fb, f.bytes, f.h);
      std::uint64_t skip = 0, hold = 0;
      if (x.lame) {
        st.lame_tag = true;
        st.encoder_delay = x.delay;
        st.encoder_padding = x.padding;
        if (options.gapless) {
          skip = static_cast<std::uint64_t>(x.delay + kDecoderDelay);
          hold = x.padding > kDecoderDelay ? static_cast<std::uint64_t>(x.padding - kDecoderDelay) : 0;
        }
      }
      trim = std::make_unique<Trimmer>(sink, st.channels, skip, hold);
      if (x.present) continue;
    }
    const char* concealed = engine.Decode(fb, f.bytes, f.h, f.damaged_header);
    ++st.frames;
    if (concealed) {
      dr.Conceal(concealed);
      if (concealed == kConcealReservoir) ++st.reservoir_gaps;
    }
    trim->Write(engine.pcm(), static_cast<std::size_t>(f.h.samples));
    if ((st.frames & 63) == 0) sink->Progress(walk.Position(), total);
  }
  end = walk.audio_end();
  window.Fill(SIZE_MAX, 0);  // past the trailing tags, to count them
  st.tag_bytes = begin + (window.end() - end);
  if (trim) st.samples_out = trim->written();
  st.scan_work += walk.work();
  st.damaged = static_cast<long>(dr.Damaged());
  sink->Progress(window.end(), total ? total : window.end());
  return st;
}

DecodeStats DecodeBuffer(const std::uint8_t* data, std::size_t size, const DecodeOptions& options, PcmSink* sink) {
  MemorySource source(data, size);
  return DecodeStream(&source, options, sink);
}

}  // namespace aklmp3
