// Layer III Huffman decoding of one granule and channel: the big-values
// region (pairs, up to three sub-regions, linbits escapes), the count1
// region (quadruples) and the zero region.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/bitstream.hpp"
#include "core/exports.hpp"
#include "mp3/huffman_tables.hpp"
#include "mp3/tables.hpp"

namespace akl::mp3 {
namespace {

constexpr int kLines = 576;

// The Huffman data is read through the bounded reader: a 64-bit accumulator,
// refilled one aligned word at a time whenever fewer than 32 bits are in
// hand.  Every code step needs at most 32 bits from where it starts, so a
// refill never loads beyond the aligned word after the last bit a step uses.
// Words past the aligned word after the last bit of the Huffman data are
// never loaded: the reader supplies zero bits there.  Only a malformed
// granule, whose big values run past hufSize, gets that far; it is reported
// as kStsErr all the same.
using HotReader = BoundedReader;

void WriteCursor(const Akl8u* base, std::size_t pos, Akl8u** pp, Akl32s* off) {
  *pp = const_cast<Akl8u*>(base + pos / 8);
  *off = static_cast<Akl32s>(pos & 7u);
}

// Walks the multi-level lookup, consumes the code (and any sign bits folded
// into its entry) and returns the leaf entry.
inline std::uint32_t DecodeCode(HotReader& br, const std::uint32_t* lut, int primary) {
  int width = primary;
  std::uint32_t e = lut[br.Peek(width)];
  while (e & kLutSubTable) {
    br.Skip(width);
    width = static_cast<int>((e >> 16) & 15u);
    e = lut[(e & 0xFFFFu) + br.Peek(width)];
  }
  br.Skip(static_cast<int>((e >> 24) & 31u));
  return e;
}

inline Akl32s LowByteSigned(std::uint32_t v) { return static_cast<Akl32s>(static_cast<std::int8_t>(v & 0xFFu)); }

// Decodes pairs into out[begin, end) with one table.  Most entries carry the
// signed pair; the others (long codes, linbits escapes) carry magnitudes and
// the escapes and signs are read here.
template <bool kLinbits>
void DecodePairs(HotReader& br, const HuffmanTable& t, Akl32s* out, int begin, int end) {
  const std::uint32_t* lut = t.lut;
  const int primary = t.primary_bits;
  const int linbits = t.linbits;
  for (int i = begin; i < end; i += 2) {
    br.Refill();  // >= 32 bits: a code of up to 19 bits and two sign bits
    const std::uint32_t e = DecodeCode(br, lut, primary);
    if (!(e & kLutSlow)) {
      out[i] = LowByteSigned(e);
      out[i + 1] = LowByteSigned(e >> 8);
      continue;
    }
    std::uint32_t x = e & 0xFFu, y = (e >> 8) & 0xFFu;
    if constexpr (kLinbits) {
      if (x == 15) {
        br.Refill();
        x += br.ReadInHand(linbits);
      }
      out[i] = br.TakeSign(x);
      if (y == 15) {
        br.Refill();
        y += br.ReadInHand(linbits);
      }
      out[i + 1] = br.TakeSign(y);
    } else {
      out[i] = br.TakeSign(x);
      out[i + 1] = br.TakeSign(y);
    }
  }
}

void DecodeRegion(HotReader& br, int table, Akl32s* out, int begin, int end) {
  if (begin >= end) return;
  const HuffmanTable& t = kHuffmanTables[table];
  if (t.lut == nullptr) {  // tables 0, 4, 14: all zero, no bits
    std::memset(out + begin, 0, static_cast<std::size_t>(end - begin) * sizeof(Akl32s));
    return;
  }
  if (t.linbits != 0)
    DecodePairs<true>(br, t, out, begin, end);
  else
    DecodePairs<false>(br, t, out, begin, end);
}

// Decodes quadruples from `line` while the line is below 574 and bits
// remain; returns the line after the last one.  kBits is the lookup width
// (code and sign bits of the longest quadruple).
template <int kBits>
int DecodeCount1(HotReader& br, const std::uint32_t* lut, Akl32s* out, int line) {
  while (line < 574 && br.Remaining() >= 1) {
    br.Refill();
    const std::uint32_t e = lut[br.Peek(kBits)];
    br.Skip(static_cast<int>(e >> 24));
    // Sign-extend the four 2-bit fields.
    out[line] = static_cast<Akl32s>(e << 30) >> 30;
    out[line + 1] = static_cast<Akl32s>(e << 28) >> 30;
    out[line + 2] = static_cast<Akl32s>(e << 26) >> 30;
    out[line + 3] = static_cast<Akl32s>(e << 24) >> 30;
    line += 4;
  }
  return line;
}

inline int Min(int a, int b) { return a < b ? a : b; }
inline int Clamp(int v, int lo, int hi) { return v < lo ? lo : (v > hi ? hi : v); }

// Decodes the granule after every argument check has passed.  region1 and
// region2 are the starts of regions 1 and 2 before limiting.
Status DecodeGranule(Akl8u** ppBitStream, Akl32s* pOffset, Akl32s* out, Akl32s* pBound, const AklMP3SideInfo& si,
                     int hufSize, int region1, int region2) {
  if (hufSize == 0) {
    std::memset(out, 0, kLines * sizeof(Akl32s));
    *pBound = 0;
    return kStsOk;
  }
  const int big_end = si.bigValues * 2;
  // Caller band tables are not trusted to increase: keep 0 <= r1 <= r2 <= end.
  const int r1 = Clamp(region1, 0, big_end), r2 = Clamp(region2, r1, big_end);
  HotReader br(*ppBitStream, *pOffset, hufSize);
  DecodeRegion(br, si.tableSelect[0], out, 0, r1);
  DecodeRegion(br, si.tableSelect[1], out, r1, r2);
  DecodeRegion(br, si.tableSelect[2], out, r2, big_end);
  if (br.Remaining() < 0) {
    WriteCursor(br.Base(), br.Position(), ppBitStream, pOffset);
    return kStsErr;
  }

  // count1: quadruples while bits remain; one whose bits cross the end of the
  // data is dropped, and the cursor always ends hufSize bits after the start.
  int line = si.count1TableSelect == 0 ? DecodeCount1<10>(br, kCount1Tables[0].lut, out, big_end)
                                       : DecodeCount1<8>(br, kCount1Tables[1].lut, out, big_end);
  if (br.Remaining() < 0) line -= 4;
  std::memset(out + line, 0, static_cast<std::size_t>(kLines - line) * sizeof(Akl32s));
  while (line > 0 && out[line - 1] == 0) --line;
  *pBound = line;
  WriteCursor(br.Base(), br.End(), ppBitStream, pOffset);
  return kStsOk;
}

// The table and region-count checks shared by both forms.
Status CheckRegions(const AklMP3SideInfo& si, bool window_switching) {
  const int regions = window_switching ? 2 : 3;
  for (int r = 0; r < regions; ++r)
    if (Above(si.tableSelect[r], 31)) return kStsMP3SideInfoErr;
  if (!window_switching &&
      (si.region0Count < 0 || si.region1Count < 0 ||
       static_cast<std::int64_t>(si.region0Count) + si.region1Count >= 21))
    return kStsMP3SideInfoErr;
  return kStsOk;
}

int SfbRow(const AklMP3FrameHeader& h) { return h.id * 3 + h.samplingFreqIndex; }

}  // namespace

Status aklsHuffmanDecodeSfb_MP3_1u32s(Akl8u** ppBitStream, Akl32s* pOffset, Akl32s* pDstIs, Akl32s* pDstNonZeroBound,
                                      const AklMP3SideInfo* pSideInfo, const AklMP3FrameHeader* pFrameHeader,
                                      Akl32s hufSize, const Akl16s* pSfbTableLong) {
  if (!ppBitStream || !*ppBitStream || !pOffset || !pDstIs || !pDstNonZeroBound || !pSideInfo || !pFrameHeader ||
      !pSfbTableLong)
    return kStsNullPtr;
  const AklMP3SideInfo& si = *pSideInfo;
  const AklMP3FrameHeader& h = *pFrameHeader;
  if (Above(*pOffset, 7) || hufSize < 0 || hufSize > si.part23Length) return kStsBadArgErr;
  if (Above(si.bigValues, kLines / 2) || Above(si.blockType, 3) || Above(si.windowSwitchingFlag, 1) ||
      Above(si.count1TableSelect, 1))
    return kStsMP3SideInfoErr;
  if (Above(h.id, 1) || h.layer != 1 || Above(h.samplingFreqIndex, 2)) return kStsMP3FrameHeaderErr;
  const bool ws = si.windowSwitchingFlag != 0;
  if (ws && si.blockType == 0) return kStsMP3SideInfoErr;
  if (const Status st = CheckRegions(si, ws); st != kStsOk) return st;

  int region1, region2;
  if (ws) {
    // Region 0 ends at long band 8 or at short band 3 (36 lines in MPEG-1 and
    // in short blocks, 54 in MPEG-2 long blocks); there is no region 2.
    region1 = (h.id == 1 || si.blockType == 2) ? 36 : 54;
    region2 = kLines;
  } else {
    const Akl16s* bands = pSfbTableLong + SfbRow(h) * kSfbLongRowLen;
    region1 = bands[si.region0Count + 1];
    region2 = bands[si.region0Count + si.region1Count + 2];
  }
  return DecodeGranule(ppBitStream, pOffset, pDstIs, pDstNonZeroBound, si, hufSize, region1, region2);
}

Status aklsHuffmanDecode_MP3_1u32s(Akl8u** ppBitStream, Akl32s* pOffset, Akl32s* pDstIs, Akl32s* pDstNonZeroBound,
                                   const AklMP3SideInfo* pSideInfo, const AklMP3FrameHeader* pFrameHeader,
                                   Akl32s hufSize) {
  return akl::mp3::aklsHuffmanDecodeSfb_MP3_1u32s(ppBitStream, pOffset, pDstIs, pDstNonZeroBound, pSideInfo, pFrameHeader,
                                        hufSize, &kSfbLong[0][0]);
}

Status aklsHuffmanDecodeSfbMbp_MP3_1u32s(Akl8u** ppBitStream, Akl32s* pOffset, Akl32s* pDstIs,
                                         Akl32s* pDstNonZeroBound, const AklMP3SideInfo* pSideInfo,
                                         const AklMP3FrameHeader* pFrameHeader, Akl32s hufSize,
                                         const Akl16s* pSfbTableLong, const Akl16s* pSfbTableShort,
                                         const Akl16s* pMbpTable) {
  if (!ppBitStream || !*ppBitStream || !pOffset || !pDstIs || !pDstNonZeroBound || !pSideInfo || !pFrameHeader ||
      !pSfbTableLong || !pSfbTableShort || !pMbpTable)
    return kStsNullPtr;
  const AklMP3SideInfo& si = *pSideInfo;
  const AklMP3FrameHeader& h = *pFrameHeader;
  // This form checks in its own order: hufSize is a side-information error here.
  if (Above(*pOffset, 7)) return kStsBadArgErr;
  if (Above(h.id, 1)) return kStsMP3FrameHeaderErr;
  if (Above(si.bigValues, kLines / 2) || Above(si.blockType, 3) || Above(si.windowSwitchingFlag, 1))
    return kStsMP3SideInfoErr;
  const bool ws = si.windowSwitchingFlag != 0;
  if (ws && si.blockType == 0) return kStsMP3SideInfoErr;
  if (h.layer != 1 || Above(h.samplingFreqIndex, 2)) return kStsMP3FrameHeaderErr;
  if (Above(si.count1TableSelect, 1) || hufSize < 0 || hufSize > si.part23Length) return kStsMP3SideInfoErr;
  if (const Status st = CheckRegions(si, ws); st != kStsOk) return st;

  const int row = SfbRow(h);
  const Akl16s* longb = pSfbTableLong + row * kSfbLongRowLen;
  const Akl16s* shortb = pSfbTableShort + row * kSfbShortRowLen;
  int region1, region2 = kLines;
  if (!ws) {
    region1 = longb[si.region0Count + 1];
    region2 = longb[si.region0Count + si.region1Count + 2];
  } else if (si.blockType != 2) {
    region1 = longb[8];
  } else if (si.mixedBlockFlag == 0) {
    region1 = 3 * shortb[3];
  } else {
    // Mixed block: from the end of the partition row's long bands, add S
    // short-band widths, moving to the next short band after the 2nd, 5th,
    // 8th ... addition.  Partition values outside the rows are clamped so
    // that a bad caller table cannot index outside them.
    int long_bands = pMbpTable[row * 2];
    const int adds = pMbpTable[row * 2 + 1];
    // The count of additions is bounded likewise (39 reach the last short
    // band), and the sum is formed wide, so no table value can make the
    // walk long or overflow; DecodeGranule clamps the result to the data.
    long_bands = long_bands < 0 ? 0 : Min(long_bands, kSfbLongRowLen - 1);
    const int add_count = adds < 0 ? 0 : Min(adds, 3 * (kSfbShortRowLen - 1));
    std::int64_t b = longb[long_bands];
    int k = 0;
    while (k < kSfbShortRowLen - 1 && shortb[k] * 3 <= b) ++k;
    if (k == 0) k = 1;
    for (int j = 1; j <= add_count; ++j) {
      b += shortb[k] - shortb[k - 1];
      if (j % 3 == 2 && k < kSfbShortRowLen - 1) ++k;
    }
    region1 = static_cast<int>(b < 0 ? 0 : (b > kLines ? kLines : b));
  }
  return DecodeGranule(ppBitStream, pOffset, pDstIs, pDstNonZeroBound, si, hufSize, region1, region2);
}

}  // namespace akl::mp3
