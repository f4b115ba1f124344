// Layer III bitstream side under hostile input: frame header, side
// information, then for every granule and channel the scale factors and the
// Huffman-coded spectrum, with the fields taken from the input as they stand
// (seeds are real frames, so mutations stay close to valid syntax).
//
// The first byte chooses the Huffman variant (standard table, caller band
// table, caller band and partition tables), whether hufSize is taken from the
// input instead of part2_3_length, and a start bit.  The rest is one frame:
// header, CRC, side information and main data.
//
// Each reader gets its bytes in an exact block (fuzz_util.hpp): the header
// and side information exactly their byte count; the scale-factor unpacker
// first runs on a padded copy to learn its bit count, then again on a block
// ending at the aligned word after its last bit; the Huffman decoder on a
// block ending at the aligned word after bit hufSize - 1, the limit it
// documents.  Results of the reruns must match.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "aklac.h"
#include "fuzz_util.hpp"
#include "mp3/tables.hpp"

namespace {

using akl::fuzz::ExactBuffer;
using akl::fuzz::Params;

void Trap(bool ok) {
  if (!ok) __builtin_trap();
}

// Mixed-block partition rows: long bands, then short-band widths to add.
constexpr Akl16s kMbp[6][2] = {{8, 3}, {8, 3}, {8, 3}, {6, 3}, {6, 3}, {6, 3}};

// A copy of main data from the aligned word holding bit `pos` on, `bytes`
// bytes long counted from that word; the cursor inside it.
struct Window {
  Window(const std::vector<std::uint8_t>& main, std::size_t pos, std::size_t end_bits)
      : first((pos / 8) & ~std::size_t{3}),
        buf(main.data() + first, (end_bits + 7) / 8 - first) {
    ptr = buf.data() + (pos / 8 - first);
    off = static_cast<Akl32s>(pos % 8);
  }
  std::size_t Position() { return first * 8 + static_cast<std::size_t>(ptr - buf.data()) * 8 +
                                        static_cast<std::size_t>(off); }
  std::size_t first;
  ExactBuffer buf;
  Akl8u* ptr;
  Akl32s off;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Params p(data, size);
  const std::uint8_t how = p.Byte();
  const std::uint8_t huf_override = p.Byte();
  if (size < 4) return 0;

  // Header: 4 bytes, 6 with the CRC word.
  const std::size_t head_bytes = (data[1] & 1) ? 4 : 6;
  if (size < head_bytes) return 0;
  AklMP3FrameHeader hdr;
  {
    ExactBuffer b(data, head_bytes);
    Akl8u* ptr = b.data();
    Trap(aklsUnpackFrameHeader_MP3(&ptr, &hdr) == kStsOk);
    Trap(ptr == b.data() + head_bytes);
  }
  data += head_bytes;
  size -= head_bytes;

  // Side information.
  const bool mono = hdr.mode == 3;
  const int channels = mono ? 1 : 2;
  const int granules = hdr.id == 1 ? 2 : 1;
  const std::size_t side_bytes = hdr.id == 1 ? (mono ? 17 : 32) : (mono ? 9 : 17);
  if (size < side_bytes) return 0;
  AklMP3SideInfo si[4];
  std::memset(si, 0, sizeof si);
  Akl32s main_begin = 0, private_bits = 0, scfsi[8] = {};
  {
    ExactBuffer b(data, side_bytes);
    Akl8u* ptr = b.data();
    const Status st = aklsUnpackSideInfo_MP3(&ptr, si, &main_begin, &private_bits, scfsi, &hdr);
    if (st == kStsMP3FrameHeaderErr) {
      Trap(ptr == b.data());
      return 0;
    }
    if (st != kStsOk) {
      Trap(st == kStsMP3SideInfoErr && ptr >= b.data() && ptr <= b.data() + side_bytes);
      return 0;
    }
    Trap(ptr == b.data() + side_bytes);
    Trap(main_begin >= 0 && main_begin < (hdr.id == 1 ? 512 : 256));
  }
  data += side_bytes;
  size -= side_bytes;

  // Main data: the rest, followed in the padded copy by zero bytes.
  if (size < 1) return 0;
  std::vector<std::uint8_t> main(data, data + size);
  const std::size_t main_bits = size * 8;
  // Windows are cut from this copy, so one reaching past the frame (hufSize 0
  // at its very end) reads zero bytes the caller would have supplied.
  std::vector<std::uint8_t> padded(main);
  padded.resize(main.size() + 64, 0);
  std::size_t pos = how & 7;
  const int row = static_cast<int>(std::clamp(hdr.id, 0, 1) * 3 + std::clamp(hdr.samplingFreqIndex, 0, 2));
  Akl16s long_rows[6 * 23], short_rows[6 * 14], mbp_rows[6 * 2];
  std::memcpy(long_rows, akl::mp3::kSfbLong, sizeof long_rows);
  std::memcpy(short_rows, akl::mp3::kSfbShort, sizeof short_rows);
  std::memcpy(mbp_rows, kMbp, sizeof mbp_rows);
  (void)row;
  if ((how & 0xC0) == 0xC0) {
    // Hostile caller tables for the Sfb and Mbp forms: whatever their values,
    // the decoders keep their regions inside the granule and finish quickly.
    static constexpr Akl16s kVals[] = {-32768, -1, 0, 36, 192, 576, 577, 32767};
    for (int e = 0; e < 8; ++e) {
      const std::uint8_t at = p.Byte();
      const Akl16s v = kVals[p.Byte() % 8];
      switch (at % 3) {
        case 0: long_rows[at % (6 * 23)] = v; break;
        case 1: short_rows[at % (6 * 14)] = v; break;
        default: mbp_rows[at % (6 * 2)] = v; break;
      }
    }
  }

  for (int gr = 0; gr < granules; ++gr) {
    for (int ch = 0; ch < channels; ++ch) {
      AklMP3SideInfo& s = si[gr * channels + ch];
      const std::size_t start = pos;
      // Scale factors, on a padded copy first.
      Akl8s sf_first[64], sf_second[64];
      std::memset(sf_first, 0x55, sizeof sf_first);
      std::memset(sf_second, 0x55, sizeof sf_second);
      AklMP3SideInfo s_first = s, s_second = s;
      std::size_t sf_end;
      Status st1;
      {
        Window w(padded, pos, padded.size() * 8);
        st1 = aklsUnpackScaleFactors_MP3_1u8s(&w.ptr, &w.off, sf_first, &s_first, scfsi + ch * 4, &hdr, gr, ch);
        sf_end = w.Position();
        Trap(w.off >= 0 && w.off <= 7);
      }
      if (st1 != kStsOk) {
        Trap(sf_end == pos);
        return 0;
      }
      if (sf_end > main_bits) return 0;  // the frame ends inside its scale factors
      {
        Window w(padded, pos, std::max(sf_end, pos + 1));
        const Status st2 =
            aklsUnpackScaleFactors_MP3_1u8s(&w.ptr, &w.off, sf_second, &s_second, scfsi + ch * 4, &hdr, gr, ch);
        Trap(st2 == st1 && w.Position() == sf_end);
        Trap(std::memcmp(sf_first, sf_second, sizeof sf_first) == 0);
        Trap(std::memcmp(&s_first, &s_second, sizeof s_first) == 0);
      }
      s = s_first;
      pos = sf_end;

      // Huffman data.
      Akl32s huf_size = s.part23Length - static_cast<Akl32s>(sf_end - start);
      if (huf_override & 1) huf_size = static_cast<Akl32s>(huf_override) * 16 - 40;
      if (huf_size > 0 && pos + static_cast<std::size_t>(huf_size) > main_bits) {
        huf_size = static_cast<Akl32s>(main_bits - pos);
      }
      Akl32s is[576 + 8];
      std::fill(std::begin(is), std::end(is), 0x7EADBEEF);
      Akl32s bound = -1;
      const std::size_t huf_end = pos + static_cast<std::size_t>(std::max(huf_size, 0));
      Window w(padded, pos, std::max(huf_end, pos + 1));
      Status st;
      switch ((how >> 3) % 3) {
        case 0:
          st = aklsHuffmanDecode_MP3_1u32s(&w.ptr, &w.off, is, &bound, &s, &hdr, huf_size);
          break;
        case 1:
          st = aklsHuffmanDecodeSfb_MP3_1u32s(&w.ptr, &w.off, is, &bound, &s, &hdr, huf_size, long_rows);
          break;
        default:
          st = aklsHuffmanDecodeSfbMbp_MP3_1u32s(&w.ptr, &w.off, is, &bound, &s, &hdr, huf_size, long_rows,
                                                  short_rows, mbp_rows);
          break;
      }
      Trap(is[576] == 0x7EADBEEF);  // never more than 576 values
      Trap(w.off >= 0 && w.off <= 7);
      if (st == kStsOk) {
        Trap(w.Position() == huf_end);
        Trap(bound >= 0 && bound <= 576);
        for (int i = bound; i < 576; ++i) Trap(is[i] == 0);
      } else if (st == kStsErr) {
        Trap(w.Position() >= pos);
      } else {
        Trap(w.Position() == pos);
        return 0;
      }
      // The next channel's data starts part2_3_length bits after this one's.
      pos = start + static_cast<std::size_t>(std::max(s.part23Length, 0));
      if (pos >= main_bits) return 0;
    }
  }
  return 0;
}
