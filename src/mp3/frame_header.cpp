// Layer III frame header, side information and the encoder's bit reservoir.
//
// Both unpackers work on whole bytes from the byte pointer on and touch no
// byte outside what they consume (the header reads bytes 1..3, and 4..5 when
// a CRC word follows; the side information reads exactly its 9, 17 or 32
// bytes).
#include <cstdint>

#include "core/bitstream.hpp"
#include "core/exports.hpp"
#include "mp3/tables.hpp"

namespace akl::mp3 {
namespace {

// The side information is read through the byte reader, which fetches a
// byte only when its bits are needed.
inline Akl32s Field(ByteReader& br, int n) { return static_cast<Akl32s>(br.Read(n)); }

// Reads one granule/channel record.  Returns false for a window-switched
// granule with block type 0 (after reading its window-switching fields).
bool ReadGranuleChannel(ByteReader& br, bool mpeg1, AklMP3SideInfo& si) {
  si.part23Length = Field(br, 12);
  si.bigValues = Field(br, 9);
  si.globalGain = Field(br, 8);
  si.scalefacCompress = Field(br, mpeg1 ? 4 : 9);
  si.windowSwitchingFlag = Field(br, 1);
  if (si.windowSwitchingFlag != 0) {
    si.blockType = Field(br, 2);
    si.mixedBlockFlag = Field(br, 1);
    si.tableSelect[0] = Field(br, 5);
    si.tableSelect[1] = Field(br, 5);
    for (Akl32s& g : si.subblockGain) g = Field(br, 3);
    if (si.blockType == 0) return false;
    // Region 0 and region 1 together always span the 22 long bands, so the
    // window-switched granule has no region 2.
    si.region0Count = (si.blockType == 2 && si.mixedBlockFlag == 0) ? 8 : 7;
    si.region1Count = 20 - si.region0Count;
  } else {
    for (Akl32s& t : si.tableSelect) t = Field(br, 5);
    si.region0Count = Field(br, 4);
    si.region1Count = Field(br, 3);
    si.blockType = 0;
    si.mixedBlockFlag = 0;
  }
  if (mpeg1) si.preflag = Field(br, 1);
  si.scalefacScale = Field(br, 1);
  si.count1TableSelect = Field(br, 1);
  return true;
}

}  // namespace

Status aklsUnpackFrameHeader_MP3(Akl8u** ppBitStream, AklMP3FrameHeader* pFrameHeader) {
  if (!ppBitStream || !*ppBitStream || !pFrameHeader) return kStsNullPtr;
  const Akl8u* p = *ppBitStream;
  AklMP3FrameHeader& h = *pFrameHeader;
  // Byte 0 and the top nibble of byte 1 are the sync word: the caller's business.
  h.id = (p[1] >> 3) & 1;
  h.layer = (p[1] >> 1) & 3;
  h.protectionBit = p[1] & 1;
  h.bitrateIndex = p[2] >> 4;
  h.samplingFreqIndex = (p[2] >> 2) & 3;
  h.paddingBit = (p[2] >> 1) & 1;
  h.privateBit = p[2] & 1;
  h.mode = p[3] >> 6;
  h.modeExtension = (p[3] >> 4) & 3;
  h.copyFlag = (p[3] >> 3) & 1;
  h.originalHome = (p[3] >> 2) & 1;
  h.emphasis = p[3] & 3;
  if (h.protectionBit == 0) {
    h.crcWord = p[4] * 256 + p[5];
    *ppBitStream += 6;
  } else {
    *ppBitStream += 4;
  }
  return kStsOk;
}

Status aklsUnpackSideInfo_MP3(Akl8u** ppBitStream, AklMP3SideInfo* pDstSideInfo, Akl32s* pDstMainDataBegin,
                              Akl32s* pDstPrivateBits, Akl32s* pDstScfsi, const AklMP3FrameHeader* pFrameHeader) {
  if (!ppBitStream || !*ppBitStream || !pDstSideInfo || !pDstMainDataBegin || !pDstPrivateBits || !pDstScfsi ||
      !pFrameHeader)
    return kStsNullPtr;
  const AklMP3FrameHeader& h = *pFrameHeader;
  if (Above(h.id, 1) || h.layer != 1 || Above(h.mode, 3)) return kStsMP3FrameHeaderErr;

  const int channels = h.mode == 3 ? 1 : 2;
  const bool mpeg1 = h.id == 1;
  const int granules = mpeg1 ? 2 : 1;
  ByteReader br(*ppBitStream, 0);
  if (mpeg1) {
    *pDstMainDataBegin = Field(br, 9);
    *pDstPrivateBits = Field(br, channels == 1 ? 5 : 3);
    for (int i = 0; i < 4 * channels; ++i) pDstScfsi[i] = Field(br, 1);
  } else {
    *pDstMainDataBegin = Field(br, 8);
    *pDstPrivateBits = Field(br, channels == 1 ? 1 : 2);
  }
  for (int gr = 0; gr < granules; ++gr) {
    for (int ch = 0; ch < channels; ++ch) {
      if (!ReadGranuleChannel(br, mpeg1, pDstSideInfo[gr * channels + ch])) {
        *ppBitStream = const_cast<Akl8u*>(br.BytePtr());
        return kStsMP3SideInfoErr;
      }
    }
  }
  *ppBitStream = const_cast<Akl8u*>(br.BytePtr());
  return kStsOk;
}

Status aklsBitReservoirInit_MP3(AklMP3BitReservoir* pDstBitResv, const AklMP3FrameHeader* pFrameHeader) {
  if (!pDstBitResv || !pFrameHeader) return kStsNullPtr;
  const AklMP3FrameHeader& h = *pFrameHeader;
  if (h.id != 1) return kStsMP3FrameHeaderErr;
  // Forbidden bit-rate index 15 and reserved sampling index 3 have no frame length.
  if (Above(h.bitrateIndex, 14) || Above(h.samplingFreqIndex, 2)) return kStsMP3FrameHeaderErr;
  const int frame_bits = kFrameBytesMpeg1[h.samplingFreqIndex][h.bitrateIndex] * 8;
  // 4088 = 511 * 8: the farthest a 9-bit main_data_begin can point back.
  const int room = 7680 - (frame_bits < 7680 ? frame_bits : 7680);
  pDstBitResv->bitsHeld = 0;
  pDstBitResv->maxBits = room < 4088 ? room : 4088;
  return kStsOk;
}

}  // namespace akl::mp3
