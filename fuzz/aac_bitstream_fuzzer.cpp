// AAC bitstream side under hostile input: ADTS and ADIF headers, program
// configuration, channel pair, data stream and fill elements, the scalable
// main and extension headers and both noiseless decoders.
//
// The first byte chooses the mode; the rest is a stream, in the seeds real
// ADTS frames, so mutations stay close to valid syntax:
//   0  ADTS frame: header, then the raw data block element by element
//      (SCE/LFE/CPE through the LC noiseless decoder, DSE, PCE, FIL, END);
//   1  the same with the MPEG-4 forms (CPE with LTP, aklsNoiselessDecode_AAC)
//      and an object type from the second byte;
//   2  ADIF header with its program configuration elements;
//   3  scalable main header, then a scalable-layer channel through
//      aklsNoiselessDecode_AAC, or an extension header.
// Every reader call runs twice (Twice below): over the stream padded with
// zeros to learn where its cursor ends, then over a block ending at the
// aligned word after that bit; the second run must agree and stay inside.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <functional>
#include <vector>

#include "aklac.h"
#include "fuzz_util.hpp"

namespace {

using akl::fuzz::BitWindow;
using akl::fuzz::ExactBuffer;
using akl::fuzz::Params;

void Trap(bool ok) {
  if (!ok) __builtin_trap();
}

constexpr std::size_t kPad = 16384;  // zero bytes after the stream in the first run

struct Stream {
  std::vector<std::uint8_t> padded;
  std::size_t bits;  // real bits
  std::size_t pos;
};

// Runs call(ptr, off) over the padded stream from s.pos, then over an exact
// window ending at the bit the first run stopped at (or, when the call fails
// and leaves the cursor where it was, at the first run's furthest point we
// can know: the padded end, so the rerun only checks agreement).  `snap`
// copies the outputs to compare.  Returns the status and advances s.pos.
Status Twice(Stream& s, const std::function<Status(Akl8u**, Akl32s*)>& call,
             const std::function<std::vector<std::uint8_t>()>& snap) {
  std::size_t end1;
  Status st1;
  std::vector<std::uint8_t> out1;
  {
    BitWindow w(s.padded.data(), s.pos, s.padded.size() * 8);
    st1 = call(&w.ptr, &w.off);
    Trap(w.off >= 0 && w.off <= 7);
    end1 = w.Position();
    out1 = snap();
  }
  Trap(end1 >= s.pos || st1 != kStsOk);
  if (st1 == kStsOk && end1 > s.bits) return kStsErr;  // ran past the real data: the caller's problem
  if (st1 == kStsOk) {
    BitWindow w(s.padded.data(), s.pos, std::max(end1, s.pos + 1));
    const Status st2 = call(&w.ptr, &w.off);
    Trap(st2 == st1 && w.Position() == end1);
    Trap(snap() == out1);
  }
  s.pos = end1;
  return st1;
}

template <class T>
std::vector<std::uint8_t> Bytes(const T& v) {
  std::vector<std::uint8_t> out(sizeof(T));
  std::memcpy(out.data(), &v, sizeof(T));
  return out;
}

std::uint32_t ReadBits(Stream& s, int n) {
  std::uint32_t v = 0;
  for (int i = 0; i < n; ++i, ++s.pos) {
    v = (v << 1) | ((s.padded[s.pos / 8] >> (7 - s.pos % 8)) & 1u);
  }
  return v;
}

struct Channel {
  AklAACIcsInfo ics;
  AklAACChanInfo info;
  Akl16s sf[8 * 60];
  Akl32s spec[1024];
  Akl8u cb[8 * 60];
  Akl8s tns[64];
  AklAACLtpInfo ltp;
  std::vector<std::uint8_t> Snap() const {
    std::vector<std::uint8_t> v = Bytes(ics);
    AklAACChanInfo c = info;
    c.pIcsInfo = nullptr;
    const auto ci = Bytes(c);
    v.insert(v.end(), ci.begin(), ci.end());
    v.insert(v.end(), reinterpret_cast<const std::uint8_t*>(spec), reinterpret_cast<const std::uint8_t*>(spec + 1024));
    v.insert(v.end(), reinterpret_cast<const std::uint8_t*>(sf), reinterpret_cast<const std::uint8_t*>(sf + 480));
    v.insert(v.end(), cb, cb + 480);
    return v;
  }
};

// One channel stream through a noiseless decoder, from a clean start (the
// ICS information kept when the window is common).
Status DecodeChannel(Stream& s, Channel& ch, int sf_index, int common, bool mp4, int aot) {
  const AklAACIcsInfo ics_in = ch.ics;
  auto call = [&](Akl8u** pp, Akl32s* po) {
    ch.ics = ics_in;
    std::memset(&ch.info, 0, sizeof ch.info);
    ch.info.samplingFrequencyIndex = sf_index;
    ch.info.pIcsInfo = &ch.ics;
    std::memset(ch.spec, 0, sizeof ch.spec);
    std::memset(ch.sf, 0, sizeof ch.sf);
    std::memset(ch.cb, 0, sizeof ch.cb);
    std::memset(&ch.ltp, 0, sizeof ch.ltp);
    if (!mp4) return aklsNoiselessDecoder_LC_AAC(pp, po, common, &ch.info, ch.sf, ch.spec, ch.cb, ch.tns);
    return aklsNoiselessDecode_AAC(pp, po, &ch.ltp, ch.sf, ch.spec, ch.cb, ch.tns, &ch.info, 0, 0, common, 0, aot);
  };
  return Twice(s, call, [&] { return ch.Snap(); });
}

void RawDataBlock(Stream& s, int sf_index, bool mp4, int aot) {
  for (int element = 0; element < 10 && s.pos + 3 <= s.bits; ++element) {
    const std::uint32_t id = ReadBits(s, 3);
    Status st = kStsOk;
    switch (id) {
      case 0:  // SCE
      case 3: {  // LFE
        ReadBits(s, 4);
        Channel ch{};
        st = DecodeChannel(s, ch, sf_index, 0, mp4, aot);
        break;
      }
      case 1: {  // CPE
        ReadBits(s, 4);
        Channel ch[2]{};
        AklAACChanPairElt cpe{};
        auto call = [&](Akl8u** pp, Akl32s* po) {
          std::memset(&cpe, 0, sizeof cpe);
          std::memset(&ch[0].ics, 0, sizeof ch[0].ics);
          std::memset(&ch[0].ltp, 0, sizeof ch[0].ltp);
          return mp4 ? aklsDecodeChanPairElt_MP4_AAC(pp, po, &ch[0].ics, &cpe, &ch[0].ltp, 0, aot)
                     : aklsDecodeChanPairElt_AAC(pp, po, &ch[0].ics, &cpe, 0);
        };
        st = Twice(s, call, [&] {
          auto v = Bytes(cpe);
          auto w = Bytes(ch[0].ics);
          v.insert(v.end(), w.begin(), w.end());
          return v;
        });
        if (st != kStsOk) break;
        ch[1].ics = ch[0].ics;
        st = DecodeChannel(s, ch[0], sf_index, cpe.commonWindow, mp4, aot);
        if (st == kStsOk) st = DecodeChannel(s, ch[1], sf_index, cpe.commonWindow, mp4, aot);
        break;
      }
      case 4: {  // DSE
        Akl32s tag = 0, count = 0;
        Akl8u bytes[512];
        st = Twice(
            s,
            [&](Akl8u** pp, Akl32s* po) {
              std::memset(bytes, 0, sizeof bytes);
              return aklsDecodeDatStrElt_AAC(pp, po, &tag, &count, bytes);
            },
            [&] {
              Trap(count >= 0 && count <= 510);
              return std::vector<std::uint8_t>(bytes, bytes + 512);
            });
        break;
      }
      case 5: {  // PCE
        AklAACPrgCfgElt pce;
        st = Twice(
            s,
            [&](Akl8u** pp, Akl32s* po) {
              std::memset(&pce, 0, sizeof pce);
              return aklsDecodePrgCfgElt_AAC(pp, po, &pce);
            },
            [&] { return Bytes(pce); });
        break;
      }
      case 6: {  // FIL
        Akl32s count = 0;
        Akl8u bytes[272];
        st = Twice(
            s,
            [&](Akl8u** pp, Akl32s* po) {
              std::memset(bytes, 0, sizeof bytes);
              return aklsDecodeFillElt_AAC(pp, po, &count, bytes);
            },
            [&] {
              Trap(count >= 0 && count <= 269);
              return std::vector<std::uint8_t>(bytes, bytes + 272);
            });
        break;
      }
      default:  // END, CCE: stop
        return;
    }
    if (st != kStsOk) return;
  }
}

void Adts(Stream& s, Params& p, bool mp4) {
  const int aot = p.Int(0, 16);
  (void)aot;
  if (s.bits < 9 * 8) return;
  AklAACADTSFrameHeader h;
  std::memset(&h, 0, sizeof h);
  const std::size_t head = (s.padded[1] & 1) ? 7 : 9;
  {
    ExactBuffer b(s.padded.data(), head);
    Akl8u* ptr = b.data();
    Trap(aklsUnpackADTSFrameHeader_AAC(&ptr, &h) == kStsOk);
    Trap(ptr == b.data() + head);
  }
  s.pos = head * 8;
  if (h.samplingFrequencyIndex > 11) return;  // the decoders refuse it; nothing to walk
  RawDataBlock(s, h.samplingFrequencyIndex, mp4, mp4 ? 1 + aot % 4 : 1);
}

void Adif(Stream& s, Params& p) {
  const int max = p.Int(0, 17);
  AklAACADIFHeader h;
  AklAACPrgCfgElt pce[17];
  // Byte-pointer parser: learn the bytes it consumes on the padded copy, then
  // rerun on a block that ends at the aligned word after them.
  std::size_t used = 0;
  Status st1;
  std::vector<std::uint8_t> out1;
  {
    ExactBuffer b(s.padded.data(), s.padded.size());
    Akl8u* ptr = b.data();
    std::memset(&h, 0, sizeof h);
    std::memset(pce, 0, sizeof pce);
    st1 = aklsUnpackADIFHeader_AAC(&ptr, &h, pce, max);
    used = static_cast<std::size_t>(ptr - b.data());
    out1 = Bytes(h);
  }
  if (max < 1 || max > 16) {
    Trap(st1 == kStsAacPrgNumErr && used == 0);
    return;
  }
  if (used > s.bits / 8) return;
  // The parser may have looked at the byte holding the last bit it read,
  // beyond `used` whole bytes on a count failure; one more byte covers it.
  ExactBuffer b(s.padded.data(), used + 1);
  Akl8u* ptr = b.data();
  std::memset(&h, 0, sizeof h);
  std::memset(pce, 0, sizeof pce);
  const Status st2 = aklsUnpackADIFHeader_AAC(&ptr, &h, pce, max);
  Trap(st2 == st1 && static_cast<std::size_t>(ptr - b.data()) == used && Bytes(h) == out1);
}

void Scalable(Stream& s, Params& p) {
  const int channels = p.Int(0, 3);
  const int mono_stereo = p.Int(0, 1);
  const std::uint8_t how = p.Byte();
  const int sf_index = p.Int(0, 12);
  s.pos = how & 7;
  if (how & 8) {
    AklAACExtHeader e;
    Akl8u ms[8 * 60];
    const int tns = p.Int(0, 1), msm = p.Int(0, 1), diff = p.Int(0, 1);
    const int lower = p.Int(0, 52), lower_prev = p.Int(0, 52), seq = p.Int(0, 4);
    Twice(
        s,
        [&](Akl8u** pp, Akl32s* po) {
          std::memset(&e, 0, sizeof e);
          std::memset(ms, 0, sizeof ms);
          e.pMsUsed = ms;
          return aklsDecodeExtensionHeader_AAC(pp, po, &e, tns, msm, diff, lower, lower_prev, seq);
        },
        [&] {
          AklAACExtHeader c = e;
          c.pMsUsed = nullptr;
          auto v = Bytes(c);
          const std::size_t at = v.size();
          v.resize(at + sizeof ms);
          std::memcpy(v.data() + at, ms, sizeof ms);
          return v;
        });
    return;
  }
  AklAACMainHeader m;
  Akl8u ms[8 * 60];
  const Status st = Twice(
      s,
      [&](Akl8u** pp, Akl32s* po) {
        std::memset(&m, 0, sizeof m);
        std::memset(ms, 0, sizeof ms);
        m.pMsUsed = ms;
        return aklsDecodeMainHeader_AAC(pp, po, &m, channels, mono_stereo);
      },
      [&] {
        AklAACMainHeader c = m;
        c.pMsUsed = nullptr;
        auto v = Bytes(c);
        const std::size_t at = v.size();
        v.resize(at + sizeof ms);
        std::memcpy(v.data() + at, ms, sizeof ms);
        return v;
      });
  if (st != kStsOk) return;
  // A scalable-layer channel with the main header's window information.
  Channel ch{};
  const int seq = p.Int(0, 4), max_sfb = p.Int(0, 52), aot = p.Int(0, 17);
  AklAACMainHeader m_in = m;
  if (p.Byte() >= 0xC0) {
    // A hostile grouping in the caller's record: lengths at the int extremes,
    // negative, zero, or short of eight windows; the decoder refuses it.
    static constexpr Akl32s kLens[] = {INT_MAX, INT_MIN, -1, 0, 1, 3, 8, 9};
    m_in.numWindowGroups = p.Int(-1, 9);
    for (Akl32s& g : m_in.windowGroupLength) g = kLens[p.Byte() % 8];
  }
  Twice(
      s,
      [&](Akl8u** pp, Akl32s* po) {
        AklAACMainHeader mh = m_in;
        mh.pMsUsed = ms;
        std::memset(&ch.info, 0, sizeof ch.info);
        std::memset(&ch.ics, 0, sizeof ch.ics);
        ch.info.samplingFrequencyIndex = sf_index;
        ch.info.pIcsInfo = &ch.ics;
        std::memset(ch.spec, 0, sizeof ch.spec);
        std::memset(ch.sf, 0, sizeof ch.sf);
        std::memset(ch.cb, 0, sizeof ch.cb);
        return aklsNoiselessDecode_AAC(pp, po, &mh, ch.sf, ch.spec, ch.cb, ch.tns, &ch.info, seq, max_sfb, 0, 1, aot);
      },
      [&] { return ch.Snap(); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // The mode and parameter bytes of each mode come from a fixed-size prefix, so the
  // stream starts at the same place whatever the mode reads.
  std::uint8_t prefix[12] = {};
  const std::size_t take = std::min<std::size_t>(size, sizeof prefix);
  std::memcpy(prefix, data, take);
  data += take;
  size -= take;
  const std::uint8_t* pd = prefix;
  std::size_t ps = sizeof prefix;
  Params q(pd, ps);
  const int mode = q.Byte() % 4;
  Stream s;
  s.padded.assign(data, data + size);
  s.padded.resize(size + kPad, 0);
  s.bits = size * 8;
  s.pos = 0;
  switch (mode) {
    case 0:
      Adts(s, q, false);
      break;
    case 1:
      Adts(s, q, true);
      break;
    case 2:
      Adif(s, q);
      break;
    default:
      Scalable(s, q);
      break;
  }
  return 0;
}
