// Layer III Huffman encoding of one granule and channel: table selection
// with region splitting, bit counting, and writing the big-values pairs and
// count1 quadruples in the order the decoder reads them.
//
// Region rules are the decoder's: without window switching region 1 starts
// at long band region0Count + 1 and region 2 at band region0Count +
// region1Count + 2; window-switched granules have region 0 of 36 lines
// (MPEG-1 or short blocks) or 54, region 1 the rest of the big values.  The
// count1 region starts at bigValues * 2 and holds quadruples up to the last
// non-zero line, rounded up to a whole quadruple.
#include <cstdint>
#include <initializer_list>

#include "core/bitstream.hpp"
#include "core/exports.hpp"
#include "mp3/huffman_tables.hpp"
#include "mp3enc/encode_tables.hpp"

namespace akl::mp3 {

namespace {

HuffmanEncodeBooks BuildBooks() {
  HuffmanEncodeBooks b{};
  for (int t = 0; t < 32; ++t) {
    const HuffmanTable& tab = kHuffmanTables[t];
    b.linbits[t] = tab.linbits;
    b.xmax[t] = tab.codes ? tab.xmax : -1;
    for (int i = 0; i < tab.count; ++i) {
      const HuffmanCode& c = tab.codes[i];
      const int x = c.value >> 4, y = c.value & 15;
      b.len[t][x * 16 + y] = c.len;
      b.code[t][x * 16 + y] = c.code;
    }
  }
  for (int t = 0; t < 2; ++t)
    for (int i = 0; i < kCount1Tables[t].count; ++i) {
      const HuffmanCode& c = kCount1Tables[t].codes[i];
      b.c1len[t][c.value] = c.len;
      b.c1code[t][c.value] = c.code;
    }
  return b;
}

const HuffmanEncodeBooks kBooks = BuildBooks();

inline int Abs(Akl32s v) { return v < 0 ? -v : v; }

// The largest magnitude a table codes (with linbits), -1 for 0, 4, 14.
inline int TableLimit(int t) {
  if (kBooks.xmax[t] < 0) return -1;
  return kBooks.linbits[t] ? 15 + (1 << kBooks.linbits[t]) - 1 : kBooks.xmax[t];
}

struct Regions {
  int end[3];  // line where regions 0, 1, 2 end (region 2 ends at the big-values end)
};

Regions RegionBounds(const AklMP3SideInfo& si, const AklMP3FrameHeader& h, const Akl16s* lon) {
  const int e = si.bigValues * 2;
  Regions r{};
  if (si.windowSwitchingFlag) {
    const int r0 = (h.id == 1 || si.blockType == 2) ? 36 : 54;
    r.end[0] = r0 < e ? r0 : e;
    r.end[1] = e;
    r.end[2] = e;
  } else {
    const int a = lon[si.region0Count + 1], b = lon[si.region0Count + si.region1Count + 2];
    r.end[0] = a < e ? a : e;
    r.end[1] = b < e ? b : e;
    r.end[2] = e;
  }
  return r;
}

// Last non-zero line plus one.
int Bound(const Akl32s* ix) {
  int n = 576;
  while (n > 0 && ix[n - 1] == 0) --n;
  return n;
}

int PairBits(int t, int x, int y) {
  const int lb = kBooks.linbits[t];
  int bits = 0;
  int cx = x, cy = y;
  if (lb) {
    if (x >= 15) cx = 15, bits += lb;
    if (y >= 15) cy = 15, bits += lb;
  }
  bits += kBooks.len[t][cx * 16 + cy];
  return bits + (x != 0) + (y != 0);
}

int RegionBits(const Akl32s* ix, int from, int to, int t) {
  if (t == 0 || from >= to) return 0;
  int bits = 0;
  for (int i = from; i < to; i += 2) bits += PairBits(t, Abs(ix[i]), Abs(ix[i + 1]));
  return bits;
}

int Count1Bits(const Akl32s* ix, int from, int to, int table) {
  int bits = 0;
  for (int i = from; i < to; i += 4) {
    const int v = Abs(ix[i]), w = Abs(ix[i + 1]), x = Abs(ix[i + 2]), y = Abs(ix[i + 3]);
    bits += kBooks.c1len[table][v << 3 | w << 2 | x << 1 | y] + v + w + x + y;
  }
  return bits;
}

int Count1End(int e, int bound) { return bound <= e ? e : e + ((bound - e + 3) & ~3); }

// Checks that the side information can code ix: every region's values fit
// its table, the lines after the big values are quadruples of magnitude 0/1
// that end within the granule.
bool Codable(const Akl32s* ix, const AklMP3SideInfo& si, const Regions& r) {
  int from = 0;
  for (int k = 0; k < 3; ++k) {
    const int limit = TableLimit(si.tableSelect[k]);
    for (int i = from; i < r.end[k]; ++i)
      if (Abs(ix[i]) > (limit < 0 ? 0 : limit)) return false;
    from = r.end[k];
  }
  const int e = si.bigValues * 2;
  const int end = Count1End(e, Bound(ix));
  if (end > 576) return false;
  for (int i = e; i < end; ++i)
    if (Abs(ix[i]) > 1) return false;
  return true;
}

void WritePair(BitWriter& bw, int t, Akl32s vx, Akl32s vy) {
  const int lb = kBooks.linbits[t];
  const int x = Abs(vx), y = Abs(vy);
  const int cx = (lb && x >= 15) ? 15 : x, cy = (lb && y >= 15) ? 15 : y;
  bw.Write(kBooks.code[t][cx * 16 + cy], kBooks.len[t][cx * 16 + cy]);
  if (lb && x >= 15) bw.Write(static_cast<std::uint32_t>(x - 15), lb);
  if (x) bw.Write(vx < 0 ? 1u : 0u, 1);
  if (lb && y >= 15) bw.Write(static_cast<std::uint32_t>(y - 15), lb);
  if (y) bw.Write(vy < 0 ? 1u : 0u, 1);
}

// Candidate tables for a region whose largest magnitude is m: every plain
// table that codes m, and the first table of each linbits family that does.
int Candidates(int m, int* out) {
  int n = 0;
  if (m == 0) {
    out[n++] = 0;
    return n;
  }
  static constexpr int kPlain[] = {1, 2, 3, 5, 6, 7, 8, 9, 10, 11, 12, 13, 15};
  for (int t : kPlain)
    if (kBooks.xmax[t] >= m) out[n++] = t;
  for (int base : {16, 24})
    for (int t = base; t < base + 8; ++t)
      if (TableLimit(t) >= m) {
        out[n++] = t;
        break;
      }
  return n;
}

int BestTable(const Akl32s* ix, int from, int to, int* bits) {
  int m = 0;
  for (int i = from; i < to; ++i) m = Abs(ix[i]) > m ? Abs(ix[i]) : m;
  int cand[16];
  const int n = Candidates(m, cand);
  int best = cand[0], best_bits = RegionBits(ix, from, to, cand[0]);
  for (int k = 1; k < n; ++k) {
    const int b = RegionBits(ix, from, to, cand[k]);
    if (b < best_bits) best = cand[k], best_bits = b;
  }
  *bits = best_bits;
  return best;
}

// Long granules: the split of the big values into three regions that costs
// the fewest bits.  Costs are added per band and table once; each split is
// then a handful of sums.
struct BandCosts {
  int nb;                 // bands that hold big values
  int edge[23];           // band starts clipped to the big-values end
  int maxv[22];
  int cost[22][32];       // bits of the band's pairs per table (large for tables that cannot code it)
};

constexpr int kHuge = 1 << 28;

void SelectLong(const Akl32s* ix, int e, const Akl16s* lon, AklMP3SideInfo* si, int* big_bits) {
  BandCosts c;
  c.nb = 0;
  c.edge[0] = 0;
  for (int b = 0; b < 22 && lon[b] < e; ++b) {
    c.edge[b + 1] = lon[b + 1] < e ? lon[b + 1] : e;
    c.nb = b + 1;
  }
  for (int b = 0; b < c.nb; ++b) {
    int m = 0;
    for (int i = c.edge[b]; i < c.edge[b + 1]; ++i) m = Abs(ix[i]) > m ? Abs(ix[i]) : m;
    c.maxv[b] = m;
    for (int t = 0; t < 32; ++t) {
      const int lim = TableLimit(t);
      c.cost[b][t] = (t == 0 ? m == 0 : lim >= m) ? RegionBits(ix, c.edge[b], c.edge[b + 1], t) : kHuge;
      if (t == 0 && m == 0) c.cost[b][t] = 0;
    }
  }
  // Best table of a run of bands [b0, b1).
  auto run_best = [&c](int b0, int b1, int* table) {
    if (b0 >= b1) {
      *table = 0;
      return 0;
    }
    int m = 0;
    for (int b = b0; b < b1; ++b) m = c.maxv[b] > m ? c.maxv[b] : m;
    int cand[16];
    const int n = Candidates(m, cand);
    int best = kHuge, bt = cand[0];
    for (int k = 0; k < n; ++k) {
      int s = 0;
      for (int b = b0; b < b1; ++b) s += c.cost[b][cand[k]];
      if (s < best) best = s, bt = cand[k];
    }
    *table = bt;
    return best;
  };
  int best = kHuge, r0b = 0, r1b = 0;
  int tables[3] = {0, 0, 0};
  for (int r0 = 0; r0 < 16; ++r0) {
    const int a = r0 + 1 < c.nb ? r0 + 1 : c.nb;
    int t0;
    const int c0 = run_best(0, a, &t0);
    for (int r1 = 0; r1 < 8 && r0 + r1 <= 20; ++r1) {
      const int bb = r0 + r1 + 2 < c.nb ? r0 + r1 + 2 : c.nb;
      int t1, t2;
      const int total = c0 + run_best(a, bb, &t1) + run_best(bb, c.nb, &t2);
      if (total < best) {
        best = total;
        r0b = r0, r1b = r1;
        tables[0] = t0, tables[1] = t1, tables[2] = t2;
      }
      if (bb >= c.nb) break;  // larger region 1 changes nothing
    }
    if (a >= c.nb) break;
  }
  si->region0Count = r0b;
  si->region1Count = r1b;
  for (int k = 0; k < 3; ++k) si->tableSelect[k] = tables[k];
  *big_bits = best;
}

bool HeaderOk(const AklMP3FrameHeader& h) { return !(Above(h.id, 1) || h.layer != 1 || Above(h.samplingFreqIndex, 2)); }

bool BlockFieldsOk(const AklMP3SideInfo& si) {
  if (Above(si.windowSwitchingFlag, 1) || Above(si.blockType, 3) || Above(si.mixedBlockFlag, 1)) return false;
  return si.windowSwitchingFlag ? si.blockType != 0 : si.blockType == 0;
}

}  // namespace

const HuffmanEncodeBooks& EncodeBooks() { return kBooks; }

Status aklsHuffmanTableSelect_MP3_32s(const Akl32s* pSrcIx, AklMP3SideInfo* pSideInfo,
                                      const AklMP3FrameHeader* pFrameHeader, Akl32s* pDstHufBits) {
  if (!pSrcIx || !pSideInfo || !pFrameHeader || !pDstHufBits) return kStsNullPtr;
  if (!HeaderOk(*pFrameHeader)) return kStsMP3FrameHeaderErr;
  if (!BlockFieldsOk(*pSideInfo)) return kStsMP3SideInfoErr;
  for (int i = 0; i < 576; ++i)
    if (Abs(pSrcIx[i]) > 8206) return kStsBadArgErr;
  const Akl32s* ix = pSrcIx;
  AklMP3SideInfo& si = *pSideInfo;
  const Akl16s* lon = kSfbLong[pFrameHeader->id * 3 + pFrameHeader->samplingFreqIndex];

  // Zero pairs at the top, then quadruples of magnitude 0/1, then big values.
  int rz = 576;
  while (rz >= 2 && ix[rz - 1] == 0 && ix[rz - 2] == 0) rz -= 2;
  int e = rz;
  while (e >= 4 && Abs(ix[e - 1]) <= 1 && Abs(ix[e - 2]) <= 1 && Abs(ix[e - 3]) <= 1 && Abs(ix[e - 4]) <= 1) e -= 4;
  // The count1 region must end where the quadruples end: if a lone pair
  // is left at the top, it is coded as big values.
  if ((rz - e) % 4 != 0) e = rz;
  const int bound = Bound(ix);
  const int c1a = Count1Bits(ix, e, Count1End(e, bound), 0);
  const int c1b = Count1Bits(ix, e, Count1End(e, bound), 1);
  si.count1TableSelect = c1b < c1a ? 1 : 0;
  si.bigValues = e / 2;
  int big = 0;
  if (si.windowSwitchingFlag) {
    si.region0Count = (si.blockType == 2 && !si.mixedBlockFlag) ? 8 : 7;
    si.region1Count = 20 - si.region0Count;
    const Regions r = RegionBounds(si, *pFrameHeader, lon);
    int b0, b1;
    si.tableSelect[0] = BestTable(ix, 0, r.end[0], &b0);
    si.tableSelect[1] = BestTable(ix, r.end[0], r.end[1], &b1);
    si.tableSelect[2] = 0;
    big = b0 + b1;
  } else {
    SelectLong(ix, e, lon, &si, &big);
  }
  *pDstHufBits = big + (c1b < c1a ? c1b : c1a);
  return kStsOk;
}

Status aklsHuffmanEncode_MP3_32s1u(const Akl32s* pSrcIx, Akl8u** ppBitStream, Akl32s* pOffset,
                                   const AklMP3SideInfo* pSideInfo, const AklMP3FrameHeader* pFrameHeader) {
  if (!pSrcIx || !ppBitStream || !*ppBitStream || !pOffset || !pSideInfo || !pFrameHeader) return kStsNullPtr;
  if (Above(*pOffset, 7)) return kStsBadArgErr;
  if (!HeaderOk(*pFrameHeader)) return kStsMP3FrameHeaderErr;
  const AklMP3SideInfo& si = *pSideInfo;
  if (!BlockFieldsOk(si) || Above(si.bigValues, 288) || Above(si.count1TableSelect, 1)) return kStsMP3SideInfoErr;
  for (int k = 0; k < 3; ++k)
    if (Above(si.tableSelect[k], 31)) return kStsMP3SideInfoErr;
  if (!si.windowSwitchingFlag && (si.region0Count < 0 || si.region1Count < 0 || si.region0Count + si.region1Count >= 21))
    return kStsMP3SideInfoErr;
  for (int i = 0; i < 576; ++i)
    if (Abs(pSrcIx[i]) > 8206) return kStsErr;
  const Akl16s* lon = kSfbLong[pFrameHeader->id * 3 + pFrameHeader->samplingFreqIndex];
  const Regions r = RegionBounds(si, *pFrameHeader, lon);
  if (!Codable(pSrcIx, si, r)) return kStsErr;

  BitWriter bw(*ppBitStream, *pOffset);
  int from = 0;
  for (int k = 0; k < 3; ++k) {
    const int t = si.tableSelect[k];
    if (t != 0)
      for (int i = from; i < r.end[k]; i += 2) WritePair(bw, t, pSrcIx[i], pSrcIx[i + 1]);
    from = r.end[k];
  }
  const int e = si.bigValues * 2;
  const int end = Count1End(e, Bound(pSrcIx));
  const int tab = si.count1TableSelect;
  for (int i = e; i < end; i += 4) {
    const Akl32s* q = pSrcIx + i;
    const int idx = (q[0] != 0) << 3 | (q[1] != 0) << 2 | (q[2] != 0) << 1 | (q[3] != 0);
    bw.Write(kBooks.c1code[tab][idx], kBooks.c1len[tab][idx]);
    for (int j = 0; j < 4; ++j)
      if (q[j]) bw.Write(q[j] < 0 ? 1u : 0u, 1);
  }
  bw.WriteBack(ppBitStream, pOffset);
  return kStsOk;
}

}  // namespace akl::mp3
