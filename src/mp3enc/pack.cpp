// Layer III encoding: packing of the frame header, the side information and
// the scale factors.  Each packer is the exact reverse of its unpacker: a
// record that packs and unpacks again comes back field for field (except
// the fields an unpacker derives or leaves alone: the region counts of
// window-switched granules, tableSelect[2] there, subblockGain of long
// granules, preflag of MPEG-2).
//
// Every field is checked against its bit width before anything is written,
// so a failing call leaves the output bytes and the cursor as they were.
#include <cstdint>

#include "core/bitstream.hpp"
#include "core/exports.hpp"
#include "mp3/tables.hpp"
#include "mp3enc/encode_tables.hpp"

namespace akl::mp3 {
namespace {

bool HeaderFieldsValid(const AklMP3FrameHeader& h) {
  return !(Above(h.id, 1) || h.layer != 1 || Above(h.protectionBit, 1) || Above(h.bitrateIndex, 14) ||
           Above(h.samplingFreqIndex, 2) || Above(h.paddingBit, 1) || Above(h.privateBit, 1) || Above(h.mode, 3) ||
           Above(h.modeExtension, 3) || Above(h.copyFlag, 1) || Above(h.originalHome, 1) ||
           Above(h.emphasis, 3) || (h.protectionBit == 0 && Above(h.crcWord, 0xFFFF)));
}

bool RecordValid(const AklMP3SideInfo& si, bool mpeg1) {
  if (Above(si.part23Length, 4095) || Above(si.bigValues, 288) || Above(si.globalGain, 255) ||
      Above(si.scalefacCompress, mpeg1 ? 15u : 511u) || Above(si.windowSwitchingFlag, 1) ||
      Above(si.scalefacScale, 1) || Above(si.count1TableSelect, 1) || (mpeg1 && Above(si.preflag, 1)))
    return false;
  if (si.windowSwitchingFlag) {
    if (si.blockType < 1 || si.blockType > 3 || Above(si.mixedBlockFlag, 1)) return false;
    for (int i = 0; i < 2; ++i)
      if (Above(si.tableSelect[i], 31)) return false;
    for (int i = 0; i < 3; ++i)
      if (Above(si.subblockGain[i], 7)) return false;
    return true;
  }
  for (int i = 0; i < 3; ++i)
    if (Above(si.tableSelect[i], 31)) return false;
  return !(Above(si.region0Count, 15) || Above(si.region1Count, 7));
}

void WriteRecord(BitWriter& bw, const AklMP3SideInfo& si, bool mpeg1) {
  bw.Write(si.part23Length, 12);
  bw.Write(si.bigValues, 9);
  bw.Write(si.globalGain, 8);
  bw.Write(si.scalefacCompress, mpeg1 ? 4 : 9);
  bw.Write(si.windowSwitchingFlag, 1);
  if (si.windowSwitchingFlag) {
    bw.Write(si.blockType, 2);
    bw.Write(si.mixedBlockFlag, 1);
    bw.Write(si.tableSelect[0], 5);
    bw.Write(si.tableSelect[1], 5);
    for (int i = 0; i < 3; ++i) bw.Write(si.subblockGain[i], 3);
  } else {
    for (int i = 0; i < 3; ++i) bw.Write(si.tableSelect[i], 5);
    bw.Write(si.region0Count, 4);
    bw.Write(si.region1Count, 3);
  }
  if (mpeg1) bw.Write(si.preflag, 1);
  bw.Write(si.scalefacScale, 1);
  bw.Write(si.count1TableSelect, 1);
}

}  // namespace

Status aklsPackFrameHeader_MP3(const AklMP3FrameHeader* pSrcFrameHeader, Akl8u** ppBitStream) {
  if (!pSrcFrameHeader || !ppBitStream || !*ppBitStream) return kStsNullPtr;
  const AklMP3FrameHeader& h = *pSrcFrameHeader;
  if (!HeaderFieldsValid(h)) return kStsMP3FrameHeaderErr;
  BitWriter bw(*ppBitStream, 0);
  bw.Write(0xFFF, 12);
  bw.Write(h.id, 1);
  bw.Write(h.layer, 2);
  bw.Write(h.protectionBit, 1);
  bw.Write(h.bitrateIndex, 4);
  bw.Write(h.samplingFreqIndex, 2);
  bw.Write(h.paddingBit, 1);
  bw.Write(h.privateBit, 1);
  bw.Write(h.mode, 2);
  bw.Write(h.modeExtension, 2);
  bw.Write(h.copyFlag, 1);
  bw.Write(h.originalHome, 1);
  bw.Write(h.emphasis, 2);
  if (h.protectionBit == 0) bw.Write(h.crcWord, 16);
  *ppBitStream = bw.BytePtr();
  return kStsOk;
}

Status aklsPackSideInfo_MP3(const AklMP3SideInfo* pSrcSideInfo, Akl8u** ppBitStream, Akl32s mainDataBegin,
                            Akl32s privateBits, const Akl32s* pSrcScfsi, const AklMP3FrameHeader* pFrameHeader) {
  if (!pSrcSideInfo || !ppBitStream || !*ppBitStream || !pSrcScfsi || !pFrameHeader) return kStsNullPtr;
  const AklMP3FrameHeader& h = *pFrameHeader;
  if (Above(h.id, 1) || h.layer != 1 || Above(h.mode, 3)) return kStsMP3FrameHeaderErr;
  const bool mpeg1 = h.id == 1;
  const int channels = h.mode == 3 ? 1 : 2;
  const int private_len = mpeg1 ? (channels == 1 ? 5 : 3) : (channels == 1 ? 1 : 2);
  if (Above(mainDataBegin, mpeg1 ? 511u : 255u) || Above(privateBits, (1u << private_len) - 1u))
    return kStsBadArgErr;
  const int granules = mpeg1 ? 2 : 1;
  if (mpeg1)
    for (int i = 0; i < 4 * channels; ++i)
      if (Above(pSrcScfsi[i], 1)) return kStsMP3SideInfoErr;
  for (int i = 0; i < granules * channels; ++i)
    if (!RecordValid(pSrcSideInfo[i], mpeg1)) return kStsMP3SideInfoErr;

  BitWriter bw(*ppBitStream, 0);
  bw.Write(mainDataBegin, mpeg1 ? 9 : 8);
  bw.Write(privateBits, private_len);
  if (mpeg1)
    for (int i = 0; i < 4 * channels; ++i) bw.Write(pSrcScfsi[i], 1);
  for (int i = 0; i < granules * channels; ++i) WriteRecord(bw, pSrcSideInfo[i], mpeg1);
  *ppBitStream = bw.BytePtr();
  return kStsOk;
}

Status aklsPackScaleFactors_MP3_8s1u(const Akl8s* pSrcScaleFactor, Akl8u** ppBitStream, Akl32s* pOffset,
                                     const AklMP3SideInfo* pSideInfo, const Akl32s* pScfsi,
                                     const AklMP3FrameHeader* pFrameHeader, Akl32s granule, Akl32s channel) {
  if (!pSrcScaleFactor || !ppBitStream || !*ppBitStream || !pOffset || !pSideInfo || !pScfsi || !pFrameHeader)
    return kStsNullPtr;
  if (Above(*pOffset, 7) || Above(granule, 1) || Above(channel, 1)) return kStsBadArgErr;
  const AklMP3FrameHeader& h = *pFrameHeader;
  const AklMP3SideInfo& si = *pSideInfo;
  if (Above(h.id, 1) || Above(h.modeExtension, 3)) return kStsMP3FrameHeaderErr;
  if (Above(si.blockType, 3) || Above(si.mixedBlockFlag, 1) ||
      Above(si.scalefacCompress, h.id == 1 ? 15u : 511u))
    return kStsMP3SideInfoErr;
  if (h.id == 1)
    for (int g = 0; g < 4; ++g)
      if (Above(pScfsi[g], 1)) return kStsMP3SideInfoErr;

  ScaleFactorFields f;
  ScaleFactorLayout(si, h, granule, channel, pScfsi, &f);
  // Every value must fit its field (the intensity right channel of MPEG-2
  // may carry a negated limit, the marking of an illegal position).
  for (int r = 0; r < f.runs; ++r)
    for (int i = 0; i < f.count[r]; ++i) {
      int v = pSrcScaleFactor[f.start[r] + i];
      if (v < 0 && f.allow_negated_limit && -v == (1 << f.bits[r]) - 1) v = -v;
      if (v < 0 || v > (1 << f.bits[r]) - 1) return kStsBadArgErr;
    }
  BitWriter bw(*ppBitStream, *pOffset);
  for (int r = 0; r < f.runs; ++r)
    for (int i = 0; i < f.count[r]; ++i) {
      int v = pSrcScaleFactor[f.start[r] + i];
      if (v < 0) v = -v;
      bw.Write(static_cast<std::uint32_t>(v), f.bits[r]);
    }
  bw.WriteBack(ppBitStream, pOffset);
  return kStsOk;
}

}  // namespace akl::mp3
